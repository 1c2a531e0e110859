#ifndef TESTS_TOOLS_CFGCOMMANDTEST_H
#define TESTS_TOOLS_CFGCOMMANDTEST_H

// Shared parts of the tests of the cfgcopy and cfgdelete programs: running a
// program in the test's folder with the test's registry, and reading and
// writing registry values and XML documents from outside.

#include "common/rawregistry.h"
#include "common/scriptrun.h"
#include "common/temporaryregistry.h"

#include <QCoreApplication>
#include <QDir>
#include <QDomDocument>
#include <QDomElement>
#include <QFile>
#include <QObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QString>
#include <QStringList>
#include <QTest>

#include <memory>

namespace CfgCommandTest {

const QString ROOT = QStringLiteral("SOFTWARE\\Velkor&Amsel\\Zent\\");

/// How a program ended and what it wrote.
struct Run
{
    int exitCode = -1;
    QProcess::ExitStatus exitStatus = QProcess::CrashExit;
    QByteArray output;
    QByteArray errors;
};

/// Runs `program` (beside the test) in `directory`, with the registry in
/// `registryDir`.
inline Run RunProgram(const QString& program, const QStringList& arguments, const QString& directory,
                      const QString& registryDir)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("ZENT_REGISTRY_DIR"), registryDir);
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(directory);
    process.start(QDir(QCoreApplication::applicationDirPath()).filePath(program), arguments);
    Run run;
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        return run;
    }
    run.exitCode = process.exitCode();
    run.exitStatus = process.exitStatus();
    run.output = process.readAllStandardOutput();
    run.errors = process.readAllStandardError();
    return run;
}

/// Compares how a program ended with a normal exit with `exitCode` that wrote
/// exactly `output` and `errors`.
inline void CompareRun(const Run& run, int exitCode, const QByteArray& output, const QByteArray& errors)
{
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, exitCode);
    QCOMPARE(run.output, output);
    QCOMPARE(run.errors, errors);
}

/// The base of a program's test: each test function gets a fresh folder to
/// run the program in, with the program's registry in its "registry"
/// sub-folder, which ZENT_REGISTRY_DIR names meanwhile so that the test reads
/// and writes that registry itself.
class ProgramTest : public QObject
{
    Q_OBJECT

protected:
    QString Path(const QString& name) const { return m_dir->filePath(name); }
    QString RegistryDir() const { return Path(QStringLiteral("registry")); }
    QStringList FilesInDir() const { return QDir(m_dir->path()).entryList(QDir::Files, QDir::Name); }

    Run RunInFolder(const QString& program, const QStringList& arguments) const
    {
        return RunProgram(program, arguments, m_dir->path(), RegistryDir());
    }

    /// As RunInFolder, but with standard output going to a file and no
    /// viewer on the PATH, as a script or an editor's run button starts it.
    Run RunLikeAScriptInFolder(const QString& program, const QStringList& arguments) const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("ZENT_REGISTRY_DIR"), RegistryDir());
        const ScriptRun script =
            RunLikeAScript(QDir(QCoreApplication::applicationDirPath()).filePath(program), arguments,
                           m_dir->path(), QByteArray(), environment);
        Run run;
        run.exitCode = script.finished ? script.exitCode : -1;
        run.exitStatus = script.exitStatus;
        run.output = script.output;
        run.errors = script.errors;
        return run;
    }

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void init()
    {
        m_dir = std::make_unique<TemporaryRegistry>(QStringLiteral("registry"));
        QVERIFY2(m_dir->isValid(), qPrintable(m_dir->errorString()));
        QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("registry")));
    }

    /// Removes the folder; ZENT_REGISTRY_DIR gets back its earlier value.
    void cleanup() { m_dir.reset(); }

private:
    std::unique_ptr<TemporaryRegistry> m_dir;
};

inline QByteArray Dword(quint32 value)
{
    return QByteArray(reinterpret_cast<const char*>(&value), 4);
}

/// Writes one registry value below the configuration root; creates the key.
inline LONG SetValue(HKEY root, const QString& key, const QString& name, DWORD type, const QByteArray& data)
{
    return WriteRegistryValue(root, ROOT + key, name, type, data);
}

/// Whether the key exists: ERROR_SUCCESS or the error of opening it.
inline LONG KeyState(HKEY root, const QString& key)
{
    return RegistryKeyState(root, ROOT + key);
}

/// Every value of a key as "name=type:hex data", in creation order, then
/// every sub-key's the same way under "sub\" names; an error as text.
inline QStringList Dump(HKEY root, const QString& key)
{
    HKEY handle = nullptr;
    LONG result = RegOpenKeyExW(root, W(ROOT + key), 0, KEY_READ, &handle);
    if (result != ERROR_SUCCESS)
        return {QStringLiteral("error %1").arg(result)};
    QStringList lines;
    for (DWORD index = 0;; ++index) {
        WCHAR name[1024];
        DWORD nameSize = 1024;
        DWORD type = 0;
        QByteArray data(8192, '\0');
        DWORD dataSize = 8192;
        if (RegEnumValueW(handle, index, name, &nameSize, nullptr, &type,
                          reinterpret_cast<LPBYTE>(data.data()), &dataSize) != ERROR_SUCCESS)
            break;
        lines << QStringLiteral("%1=%2:%3")
                     .arg(QString::fromUtf16(name, int(nameSize)))
                     .arg(type)
                     .arg(QString::fromLatin1(data.left(int(dataSize)).toHex()));
    }
    const QStringList subKeys = SubKeyNames(handle);
    RegCloseKey(handle);
    for (const QString& sub : subKeys) {
        for (const QString& line : Dump(root, key + QLatin1Char('\\') + sub))
            lines << sub + QLatin1Char('\\') + line;
    }
    return lines;
}

inline QByteArray ReadFile(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

inline bool WriteFile(const QString& fileName, const QByteArray& bytes)
{
    QFile file(fileName);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

/// The element at `path` ("Machine/App/Port") below the root of an XML file.
inline QDomElement ElementAt(const QString& fileName, const QString& path)
{
    QDomDocument document;
    document.setContent(ReadFile(fileName));
    QDomElement element = document.documentElement();
    for (const QString& part : path.split(QLatin1Char('/'), Qt::SkipEmptyParts))
        element = element.firstChildElement(part);
    return element;
}

/// "text|type|protected" of a value element, without its time stamp.
inline QString ValueAt(const QString& fileName, const QString& path)
{
    const QDomElement element = ElementAt(fileName, path);
    if (element.isNull())
        return QStringLiteral("<none>");
    return element.text() + QLatin1Char('|') +
           element.attribute(QStringLiteral("type"), QStringLiteral("-")) + QLatin1Char('|') +
           element.attribute(QStringLiteral("protected"), QStringLiteral("-"));
}

/// The tag names of an element's child elements, in document order.
inline QStringList ChildNames(const QString& fileName, const QString& path)
{
    QStringList names;
    const QDomElement parent = ElementAt(fileName, path);
    for (QDomElement child = parent.firstChildElement(); !child.isNull(); child = child.nextSiblingElement())
        names << child.tagName();
    return names;
}

} // namespace CfgCommandTest

#endif
