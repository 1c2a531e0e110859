#include "common/rawregistry.h"
#include "common/scriptrun.h"
#include "common/temporaryregistry.h"
#include "regfile.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTextCodec>
#include <QtTest>

#include <memory>

namespace {

QByteArray Utf16(const QString& text)
{
    return QByteArray(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
}

QByteArray ReadFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The text of a registry file with every line end made "\n".
QString NormalisedText(const QByteArray& content)
{
    QString text = content.startsWith("\xff\xfe")
                       ? QString::fromUtf16(reinterpret_cast<const char16_t*>(content.constData() + 2),
                                            (content.size() - 2) / 2)
                       : QTextCodec::codecForName("Windows-1252")->toUnicode(content);
    return text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
}

/// Reads one value below HKEY_CURRENT_USER; an error code as text when it cannot.
QByteArray Value(const QString& key, const QString& name, DWORD* type = nullptr)
{
    return ReadRegistryValue(HKEY_CURRENT_USER, key, name, type);
}

LONG KeyState(const QString& key)
{
    return RegistryKeyState(HKEY_CURRENT_USER, key);
}

const QString Base = QStringLiteral("SOFTWARE\\Velkor&Amsel\\Zent\\");

const QByteArray USAGE = "usage: zentreg import FILE.reg\n"
                         "       zentreg export [--regedit4] KEY FILE.reg\n";

const QByteArray HELP = "Usage: zentreg import FILE.reg\n"
                        "       zentreg export [--regedit4] KEY FILE.reg\n"
                        "       zentreg --help | --version\n"
                        "\n"
                        "Brings registry exports (.reg files as Windows' registry editor writes them)\n"
                        "into the portable registry, and writes keys of it out again, so that a\n"
                        "configuration from a Windows machine can be copied into XML with cfgcopy.\n"
                        "\n"
                        "Commands:\n"
                        "  import FILE.reg   applies the file: all of it, or nothing when a line is bad\n"
                        "                    or the registry refuses a step\n"
                        "  export KEY FILE.reg\n"
                        "                    writes KEY and everything below it to FILE.reg\n"
                        "  KEY begins with its root: HKEY_CURRENT_USER (HKCU) or HKEY_LOCAL_MACHINE (HKLM)\n"
                        "\n"
                        "Formats, one example each:\n"
                        "  Windows Registry Editor Version 5.00   UTF-16 text, the default\n"
                        "      zentreg export HKCU\\SOFTWARE\\Velkor&Amsel\\Zent\\DemoApp DemoApp.reg\n"
                        "  REGEDIT4                               8-bit text, with --regedit4\n"
                        "      zentreg export --regedit4 HKLM\\SOFTWARE\\Velkor&Amsel\\Zent Zent.reg\n"
                        "  import reads both, and UTF-8 too:\n"
                        "      zentreg import DemoApp.reg\n"
                        "\n"
                        "The environment variable ZENT_REGISTRY_DIR names the folder of both hives.\n"
                        "\n"
                        "Exit codes:\n"
                        "  0  imported or exported\n"
                        "  1  the file could not be read, parsed, applied or written; standard error\n"
                        "     says why\n"
                        "  2  wrong arguments; the usage is shown on standard error\n";

} // namespace

class tst_ZentReg : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TemporaryRegistry> m_registry;

    QString DataFile(const QString& name) const { return QStringLiteral(ZENTREG_TEST_DATA "/") + name; }

    struct Run
    {
        int exitCode = -1;
        QString errors;
    };

    Run Zentreg(const QStringList& args)
    {
        QProcess process;
        process.start(QCoreApplication::applicationDirPath() + QStringLiteral("/zentreg"), args);
        Run run;
        if (!process.waitForFinished(30000))
            return run;
        run.exitCode = process.exitCode();
        run.errors = QString::fromUtf8(process.readAllStandardError()).trimmed();
        return run;
    }

    QString WriteTemp(const QString& name, const QByteArray& content)
    {
        const QString path = m_registry->filePath(name);
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(content);
        return path;
    }

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void init()
    {
        m_registry.reset(new TemporaryRegistry(QStringLiteral("registry")));
        QVERIFY2(m_registry->isValid(), qPrintable(m_registry->errorString()));
    }

    void cleanup() { m_registry.reset(); }

    void parsesEveryKindOfLine()
    {
        RegFile file;
        QVERIFY(file.Parse("Windows Registry Editor Version 5.00\n"
                           "\n"
                           "[HKCU\\A]\n"
                           "@=\"d\"\n"
                           "\"s\"=\"x\\\\y\\\"z\"\n"
                           "\"n\"=dword:1F\n"
                           "\"b\"=hex:01,02,\\\n"
                           "  03\n"
                           "\"e\"=hex(2):41,00,00,00\n"
                           "\"gone\"=-\n"
                           "[-HKEY_LOCAL_MACHINE\\B]\n"));
        QCOMPARE(file.GetFormat(), RegFile::Version5);
        const QList<RegFile::Operation> ops = file.Operations();
        QCOMPARE(ops.size(), 8);
        QCOMPARE(ops[0].kind, RegFile::Operation::CreateKey);
        QCOMPARE(ops[0].key, QStringLiteral("HKEY_CURRENT_USER\\A"));
        QCOMPARE(ops[1].name, QString());
        QCOMPARE(ops[1].data, Sz(QStringLiteral("d")));
        QCOMPARE(ops[2].name, QStringLiteral("s"));
        QCOMPARE(ops[2].type, DWORD(REG_SZ));
        QCOMPARE(ops[2].data, Sz(QStringLiteral("x\\y\"z")));
        QCOMPARE(ops[3].type, DWORD(REG_DWORD));
        QCOMPARE(ops[3].data, QByteArray("\x1f\0\0\0", 4));
        QCOMPARE(ops[4].type, DWORD(REG_BINARY));
        QCOMPARE(ops[4].data, QByteArray("\x01\x02\x03"));
        QCOMPARE(ops[4].line, 7);
        QCOMPARE(ops[5].type, DWORD(REG_EXPAND_SZ));
        QCOMPARE(ops[5].data, Sz(QStringLiteral("A")));
        QCOMPARE(ops[6].kind, RegFile::Operation::DeleteValue);
        QCOMPARE(ops[6].name, QStringLiteral("gone"));
        QCOMPARE(ops[7].kind, RegFile::Operation::DeleteKey);
        QCOMPARE(ops[7].key, QStringLiteral("HKEY_LOCAL_MACHINE\\B"));
        QCOMPARE(ops[7].line, 11);
    }

    void regedit4KeepsStringsOfHexDataIn8Bits()
    {
        RegFile file;
        QVERIFY(file.Parse(
            "REGEDIT4\r\n[HKEY_CURRENT_USER\\A]\r\n\"e\"=hex(2):41,fc,00\r\n\"m\"=hex(7):61,00,00\r\n"));
        QCOMPARE(file.GetFormat(), RegFile::Regedit4);
        QCOMPARE(file.Operations().at(1).data, Sz(QStringLiteral("A\u00fc")));
        QCOMPARE(file.Operations().at(2).data, Utf16(QStringLiteral("a")) + QByteArray(4, '\0'));
    }

    void badLinesAreReportedWithTheirNumber_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<int>("line");
        QTest::addColumn<QString>("error");
        const QByteArray head = "Windows Registry Editor Version 5.00\n\n[HKCU\\A]\n";
        QTest::newRow("missing_header")
            << QByteArray("\n[HKCU\\A]\n") << 2
            << QStringLiteral("expected \"Windows Registry Editor Version 5.00\" or \"REGEDIT4\"");
        QTest::newRow("bad_dword") << head + "\"a\"=dword:12345678Z\n"
                                   << 4 << QStringLiteral("unknown data: dword:12345678Z");
        QTest::newRow("dword_too_long") << head + "\"a\"=dword:123456789\n"
                                        << 4 << QStringLiteral("unknown data: dword:123456789");
        QTest::newRow("bad_hex_byte") << head + "\"a\"=hex:01,2g3\n"
                                      << 4 << QStringLiteral("\"2g3\" is not a hex byte");
        QTest::newRow("bad_hex_in_continuation") << head + "\"a\"=hex:01,\\\n  zz\n"
                                                 << 4 << QStringLiteral("\"zz\" is not a hex byte");
        QTest::newRow("unknown_root") << QByteArray("REGEDIT4\n[HKEY_NOWHERE\\A]\n") << 2
                                      << QStringLiteral("unknown root key: HKEY_NOWHERE\\A");
        QTest::newRow("unclosed_key") << head + "[HKCU\\B\n"
                                      << 4 << QStringLiteral("a key line must end with \"]\"");
        QTest::newRow("value_before_key")
            << QByteArray("REGEDIT4\n\"a\"=\"b\"\n") << 2 << QStringLiteral("a value must follow a key");
        QTest::newRow("value_under_deleted_key") << head + "[-HKCU\\A]\n\"a\"=\"b\"\n"
                                                 << 5 << QStringLiteral("a value must follow a key");
        QTest::newRow("unclosed_string") << head + "\"a\"=\"b\n"
                                         << 4 << QStringLiteral("malformed string data: \"b");
        QTest::newRow("unclosed_name") << head + "\"a=\"b\"\n"
                                       << 4 << QStringLiteral("\"=\" expected after the value name");
        QTest::newRow("garbage") << head + "\n\nhello\n"
                                 << 6 << QStringLiteral("neither a key nor a value: hello");
        QTest::newRow("root_deletion") << head + "[-HKLM]\n"
                                       << 4 << QStringLiteral("a root key cannot be deleted: HKLM");
    }

    void badLinesAreReportedWithTheirNumber()
    {
        QFETCH(QByteArray, content);
        QFETCH(int, line);
        QFETCH(QString, error);
        RegFile file;
        QVERIFY(!file.Parse(content));
        QCOMPARE(file.ErrorLine(), line);
        QCOMPARE(file.ErrorText(), error);
        QCOMPARE(file.Operations().size(), 0);
    }

    void aBadLineImportsNothing()
    {
        const QByteArray content = "Windows Registry Editor Version 5.00\r\n\r\n"
                                   "[HKEY_CURRENT_USER\\SOFTWARE\\Velkor&Amsel\\Zent\\Partial]\r\n"
                                   "\"ok\"=\"yes\"\r\n"
                                   "\"n\"=dword:00000001\r\n\r\n"
                                   "\"broken\"=dword:xyz\r\n";
        const QString path = WriteTemp(QStringLiteral("bad.reg"), content);
        const Run run = Zentreg({QStringLiteral("import"), path});
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.errors, QStringLiteral("zentreg: %1: line 7: unknown data: dword:xyz").arg(path));
        QCOMPARE(KeyState(Base + QStringLiteral("Partial")), ERROR_FILE_NOT_FOUND);
        QCOMPARE(KeyState(QStringLiteral("SOFTWARE")), ERROR_FILE_NOT_FOUND);
    }

    void aRefusedStepUndoesTheStepsBeforeIt()
    {
        // The machine hive cannot be opened: its file name is taken by a directory.
        QVERIFY(QDir().mkpath(m_registry->filePath(QStringLiteral("registry/HKEY_LOCAL_MACHINE.db"))));
        HKEY keep = nullptr;
        QCOMPARE(RegCreateKeyW(HKEY_CURRENT_USER, W(Base + QStringLiteral("Keep")), &keep), ERROR_SUCCESS);
        RegSetValueExW(keep, W(QStringLiteral("v")), 0, REG_SZ,
                       reinterpret_cast<const BYTE*>(Sz(QStringLiteral("old")).constData()), 8);
        RegSetValueExW(keep, W(QStringLiteral("w")), 0, REG_DWORD,
                       reinterpret_cast<const BYTE*>("\x01\0\0\0"), 4);
        RegCloseKey(keep);
        HKEY child = nullptr;
        QCOMPARE(RegCreateKeyW(HKEY_CURRENT_USER, W(Base + QStringLiteral("Doomed\\Child")), &child),
                 ERROR_SUCCESS);
        RegSetValueExW(child, W(QStringLiteral("b")), 0, REG_DWORD,
                       reinterpret_cast<const BYTE*>("\x02\0\0\0"), 4);
        RegCloseKey(child);
        const QByteArray content = "Windows Registry Editor Version 5.00\r\n\r\n"
                                   "[HKEY_CURRENT_USER\\SOFTWARE\\Velkor&Amsel\\Zent\\Keep]\r\n"
                                   "\"v\"=\"new\"\r\n"
                                   "\"w\"=-\r\n"
                                   "\"added\"=\"x\"\r\n\r\n"
                                   "[-HKEY_CURRENT_USER\\SOFTWARE\\Velkor&Amsel\\Zent\\Doomed]\r\n\r\n"
                                   "[HKEY_CURRENT_USER\\SOFTWARE\\Velkor&Amsel\\Zent\\Fresh\\Deep]\r\n"
                                   "\"f\"=\"1\"\r\n\r\n"
                                   "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Zent]\r\n"
                                   "\"m\"=\"1\"\r\n";
        const QString path = WriteTemp(QStringLiteral("partly.reg"), content);
        const Run run = Zentreg({QStringLiteral("import"), path});
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(
            run.errors,
            QStringLiteral(
                "zentreg: %1: line 13: the registry refused HKEY_LOCAL_MACHINE\\SOFTWARE\\Zent (error 5)")
                .arg(path));
        QCOMPARE(Value(Base + QStringLiteral("Keep"), QStringLiteral("v")), Sz(QStringLiteral("old")));
        QCOMPARE(Value(Base + QStringLiteral("Keep"), QStringLiteral("w")), QByteArray("\x01\0\0\0", 4));
        QCOMPARE(Value(Base + QStringLiteral("Keep"), QStringLiteral("added")), QByteArray("error 2"));
        QCOMPARE(Value(Base + QStringLiteral("Doomed\\Child"), QStringLiteral("b")),
                 QByteArray("\x02\0\0\0", 4));
        QCOMPARE(KeyState(Base + QStringLiteral("Fresh")), ERROR_FILE_NOT_FOUND);
    }

    void version5RoundTripGivesTheSameFile()
    {
        const QString source = DataFile(QStringLiteral("alltypes.reg"));
        QCOMPARE(Zentreg({QStringLiteral("import"), source}).exitCode, 0);
        DWORD type = 0;
        QCOMPARE(Value(Base + QStringLiteral("RoundTrip"), QStringLiteral("String"), &type),
                 Sz(QStringLiteral("Grüße aus Köln")));
        QCOMPARE(type, DWORD(REG_SZ));
        QCOMPARE(Value(Base + QStringLiteral("RoundTrip"), QStringLiteral("Negative"), &type),
                 QByteArray("\xaf\xaf\xaf\xaf"));
        QCOMPARE(type, DWORD(REG_DWORD));
        QCOMPARE(Value(Base + QStringLiteral("RoundTrip"), QStringLiteral("Qword"), &type),
                 QByteArray("\x01\x02\x03\x04\x05\x06\x07\x08"));
        QCOMPARE(type, DWORD(REG_QWORD));
        const QString exported = m_registry->filePath(QStringLiteral("out.reg"));
        const Run run =
            Zentreg({QStringLiteral("export"),
                     QStringLiteral("HKEY_CURRENT_USER\\SOFTWARE\\Velkor&Amsel\\Zent\\RoundTrip"), exported});
        QCOMPARE(run.errors, QString());
        QCOMPARE(run.exitCode, 0);
        const QByteArray out = ReadFile(exported);
        QVERIFY(out.startsWith("\xff\xfe"));
        QCOMPARE(NormalisedText(out), NormalisedText(ReadFile(source)));
    }

    void regedit4RoundTripGivesTheSameFile()
    {
        const QString source = DataFile(QStringLiteral("regedit4.reg"));
        QCOMPARE(Zentreg({QStringLiteral("import"), source}).exitCode, 0);
        QCOMPARE(Value(Base + QStringLiteral("Old"), QStringLiteral("Text")), Sz(QStringLiteral("Müller")));
        QCOMPARE(Value(Base + QStringLiteral("Old"), QStringLiteral("Path")),
                 Sz(QStringLiteral("%TEMP%\\zent")));
        const QString exported = m_registry->filePath(QStringLiteral("out4.reg"));
        QCOMPARE(Zentreg({QStringLiteral("export"), QStringLiteral("--regedit4"),
                          QStringLiteral("HKCU\\SOFTWARE\\Velkor&Amsel\\Zent\\Old"), exported})
                     .exitCode,
                 0);
        QCOMPARE(NormalisedText(ReadFile(exported)), NormalisedText(ReadFile(source)));
    }

    void realWorldShapesImport()
    {
        QCOMPARE(Zentreg({QStringLiteral("import"), DataFile(QStringLiteral("realworld.reg"))}).exitCode, 0);
        const QString werk = Base + QStringLiteral("Werk");
        QCOMPARE(Value(werk, QStringLiteral("GRÖSSE")), QByteArray("error 2"));
        QCOMPARE(Value(werk, QStringLiteral("größe")), Sz(QStringLiteral("Übermaß")));
        QCOMPARE(Value(werk, QStringLiteral("Leer")), Sz(QString()));
        QCOMPARE(Value(werk, QStringLiteral("Obsolete")), QByteArray("error 2"));
        QStringList levels;
        for (int i = 0; i < 12; ++i)
            levels << QStringLiteral("Ebene%1_mit_einem_recht_langen_Namen").arg(i, 2, 10, QLatin1Char('0'));
        QCOMPARE(Value(werk + QLatin1Char('\\') + levels.join(QLatin1Char('\\')), QStringLiteral("Tief")),
                 QByteArray("\x07\0\0\0", 4));
        QCOMPARE(KeyState(werk + QStringLiteral("\\Veraltet")), ERROR_FILE_NOT_FOUND);
        QCOMPARE(Value(werk + QStringLiteral("\\STRASSE"), QString()), QByteArray("error 2"));
        QCOMPARE(Value(werk + QStringLiteral("\\Straße"), QString()), Sz(QString()));
        QCOMPARE(Value(werk + QStringLiteral("\\Straße"), QStringLiteral("Liste")),
                 Sz(QStringLiteral("a")) + Sz(QStringLiteral("b")) + QByteArray(2, '\0'));
    }

    void utf8TextIsReadToo()
    {
        const QString path = WriteTemp(QStringLiteral("utf8.reg"),
                                       QStringLiteral("\ufeffWindows Registry Editor Version 5.00\n\n"
                                                      "[HKEY_CURRENT_USER\\Ümlaut]\n\"ä\"=\"ö\"\n")
                                           .toUtf8());
        QCOMPARE(Zentreg({QStringLiteral("import"), path}).exitCode, 0);
        QCOMPARE(Value(QStringLiteral("ümlaut"), QStringLiteral("Ä")), Sz(QStringLiteral("ö")));
    }

    void exportingAMissingKeyFails()
    {
        const Run run = Zentreg({QStringLiteral("export"), QStringLiteral("HKCU\\Nothing"),
                                 m_registry->filePath(QStringLiteral("x.reg"))});
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.errors, QStringLiteral("zentreg: cannot open HKCU\\Nothing (error 2)"));
    }

    ScriptRun ZentregLikeAScript(const QStringList& args)
    {
        return RunLikeAScript(QCoreApplication::applicationDirPath() + QStringLiteral("/zentreg"), args,
                              m_registry->path(), QByteArray());
    }

    void oddUtf16FileIsAnErrorNamingTheLine()
    {
        const QByteArray whole =
            QByteArray("\xff\xfe") +
            Utf16(QStringLiteral("Windows Registry Editor Version 5.00\r\n\r\n"
                                 "[HKEY_CURRENT_USER\\SOFTWARE\\Velkor&Amsel\\Zent\\Cut]\r\n"
                                 "\"a\"=\"b\"\r\n"
                                 "\"c\"=\"d\"\r\n"));
        // Cut off in the middle of the last character, the line end of line 5.
        const QByteArray cut = whole.left(whole.size() - 1);
        RegFile file;
        QVERIFY(!file.Parse(cut));
        QCOMPARE(file.ErrorLine(), 5);
        QCOMPARE(file.ErrorText(), QStringLiteral("incomplete UTF-16 character at the end of the file"));
        QCOMPARE(file.Operations().size(), 0);
        // The whole file is good.
        QVERIFY(file.Parse(whole));
        QCOMPARE(file.Operations().size(), 3);
        // A stray byte after the last line end is on the line after it.
        QVERIFY(!file.Parse(whole + 'x'));
        QCOMPARE(file.ErrorLine(), 6);

        const QString path = WriteTemp(QStringLiteral("cut.reg"), cut);
        const Run run = Zentreg({QStringLiteral("import"), path});
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.errors,
                 QStringLiteral("zentreg: %1: line 5: incomplete UTF-16 character at the end of the file")
                     .arg(path));
        QCOMPARE(KeyState(Base + QStringLiteral("Cut")), ERROR_FILE_NOT_FOUND);
        QCOMPARE(KeyState(QStringLiteral("SOFTWARE")), ERROR_FILE_NOT_FOUND);
    }

    void oneDigitHexBytesAreBytesOfThatValue()
    {
        RegFile file;
        QVERIFY(file.Parse("REGEDIT4\n[HKCU\\A]\n\"a\"=hex:1,a,0f,F\n"));
        QCOMPARE(file.Operations().at(1).data, QByteArray("\x01\x0a\x0f\x0f", 4));
        QVERIFY(!file.Parse("REGEDIT4\n[HKCU\\A]\n\"a\"=hex:1,00f\n"));
        QCOMPARE(file.ErrorLine(), 3);
        QCOMPARE(file.ErrorText(), QStringLiteral("\"00f\" is not a hex byte"));
    }

    void helpIsPrintedOnStandardOutput()
    {
        const ScriptRun run = ZentregLikeAScript({QStringLiteral("--help")});
        QVERIFY(run.finished);
        QCOMPARE(run.exitStatus, QProcess::NormalExit);
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.output, HELP);
        QCOMPARE(run.errors, QByteArray());
    }

    void versionIsTheProjectVersion()
    {
        const ScriptRun run = ZentregLikeAScript({QStringLiteral("--version")});
        QVERIFY(run.finished);
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.output, QByteArray("zentreg " ZENT_VERSION "\n"));
        QCOMPARE(run.errors, QByteArray());
    }

    void wrongArgumentsShowTheUsageOnStandardError_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::newRow("none") << QStringList();
        QTest::newRow("unknown_command") << QStringList{QStringLiteral("frobnicate")};
        QTest::newRow("import_without_file") << QStringList{QStringLiteral("import")};
        QTest::newRow("help_late") << QStringList{QStringLiteral("import"), QStringLiteral("--help"),
                                                  QStringLiteral("x")};
    }

    void wrongArgumentsShowTheUsageOnStandardError()
    {
        QFETCH(QStringList, args);
        const ScriptRun run = ZentregLikeAScript(args);
        QVERIFY(run.finished);
        QCOMPARE(run.exitCode, 2);
        QCOMPARE(run.output, QByteArray());
        QCOMPARE(run.errors, USAGE);
    }

    void wrongArgumentsShowTheUsage()
    {
        const Run run = Zentreg({QStringLiteral("frobnicate")});
        QCOMPARE(run.exitCode, 2);
        QCOMPARE(run.errors, QStringLiteral("usage: zentreg import FILE.reg\n"
                                            "       zentreg export [--regedit4] KEY FILE.reg"));
    }

    // ------------------------------------------------------------ hostile files

    void longContinuedDataParsesInLinearTime()
    {
        // 1.4 MB of hex data in 20,000 continued lines; joining them anew for
        // each line took seconds.
        QByteArray content =
            "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\Big]\r\n\"b\"=hex:00";
        for (int i = 0; i < 20000; ++i)
            content += ",\\\r\n  " +
                       QByteArray("01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,16,17");
        content += "\r\n";
        QVERIFY(content.size() > 1400000);
        RegFile file;
        QElapsedTimer timer;
        timer.start();
        QVERIFY2(file.Parse(content), qPrintable(file.ErrorText()));
        QVERIFY2(timer.elapsed() < 5000, qPrintable(QStringLiteral("%1 ms").arg(timer.elapsed())));
        QCOMPARE(file.Operations().size(), 2);
        QCOMPARE(file.Operations().back().data.size(), 1 + 20000 * 23);
    }

    void importReadsOnlyRegularFiles()
    {
        const QString link = m_registry->filePath(QStringLiteral("zero.reg"));
        QVERIFY(QFile::link(QStringLiteral("/dev/zero"), link));
        const Run run = Zentreg({QStringLiteral("import"), link});
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.errors, QStringLiteral("zentreg: %1: not a regular file").arg(link));
    }

    void importRefusesFilesAboveTheCap()
    {
        const QString big = m_registry->filePath(QStringLiteral("big.reg"));
        QFile file(big);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.resize(RegFile::MaxFileSize + 1)); // sparse: no disk space taken
        file.close();
        const Run run = Zentreg({QStringLiteral("import"), big});
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.errors, QStringLiteral("zentreg: %1: larger than 67108864 bytes").arg(big));
    }

    void exportReplacesALinkInsteadOfWritingThroughIt()
    {
        QCOMPARE(Zentreg({QStringLiteral("import"),
                          WriteTemp(QStringLiteral("in.reg"), "REGEDIT4\r\n\r\n[HKEY_CURRENT_USER\\L]\r\n"
                                                              "\"v\"=\"1\"\r\n")})
                     .exitCode,
                 0);
        const QString victim = WriteTemp(QStringLiteral("victim"), "untouched");
        const QString out = m_registry->filePath(QStringLiteral("out.reg"));
        QVERIFY(QFile::link(victim, out));
        const Run run = Zentreg({QStringLiteral("export"), QStringLiteral("HKEY_CURRENT_USER\\L"), out});
        QCOMPARE(run.errors, QString());
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(ReadFile(victim), QByteArray("untouched"));
        QVERIFY(!QFileInfo(out).isSymLink());
        QVERIFY(NormalisedText(ReadFile(out)).contains(QStringLiteral("\"v\"=\"1\"")));
    }
};

QTEST_GUILESS_MAIN(tst_ZentReg)
#include "tst_zentreg.moc"
