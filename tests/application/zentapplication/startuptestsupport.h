#ifndef TESTS_APPLICATION_ZENTAPPLICATION_STARTUPTESTSUPPORT_H
#define TESTS_APPLICATION_ZENTAPPLICATION_STARTUPTESTSUPPORT_H

#include "common/commandline.h"

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QLoggingCategory>
#include <QMetaMethod>
#include <QMutex>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTest>

/// A configuration document with the application key `appKey`: `machine`,
/// `user` and `administration` are the XML inside the key's element in the
/// machine view (after a value "Name", so that the key exists), in the user
/// view and inside the machine view's "Administration".
inline QByteArray StartupCfg(const QString& appKey, const QString& machine, const QString& user = QString(),
                             const QString& administration = QString())
{
    return QStringLiteral("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                          "<Cfg version=\"2.2\">\n"
                          "    <System/>\n"
                          "    <Export/>\n"
                          "    <Domain/>\n"
                          "    <Machine>\n"
                          "        <Administration>%3</Administration>\n"
                          "        <%1><Name>Start-up test</Name>%2</%1>\n"
                          "    </Machine>\n"
                          "    <User><%1>%4</%1></User>\n"
                          "</Cfg>\n")
        .arg(appKey, machine, administration, user)
        .toUtf8();
}

inline bool WriteFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

inline QStringList ReadLines(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QStringList();
    return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

/// Collects the lines of the trace category "zent.trace" as
/// "source:line text" while it exists.
class TraceCapture
{
public:
    TraceCapture()
    {
        {
            QMutexLocker lock(&s_mutex);
            s_lines.clear();
        }
        QLoggingCategory::setFilterRules(QStringLiteral("zent.trace.debug=true"));
        m_previous = qInstallMessageHandler(&TraceCapture::Handle);
    }
    ~TraceCapture()
    {
        qInstallMessageHandler(m_previous);
        QLoggingCategory::setFilterRules(QString());
    }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    static QStringList Lines()
    {
        QMutexLocker lock(&s_mutex);
        return s_lines;
    }

private:
    static void Handle(QtMsgType, const QMessageLogContext& context, const QString& text)
    {
        if (context.category && QByteArray(context.category) == "zent.trace") {
            QMutexLocker lock(&s_mutex);
            s_lines.append(text);
        }
    }

    static inline QMutex s_mutex;
    static inline QStringList s_lines;
    QtMessageHandler m_previous = nullptr;
};

/// Runs every test function of `test` in a process of its own, the way
/// applications run: one application object per process, and the
/// process-wide state (the configuration centre's statics, the translators,
/// the error handler) fresh for each. With arguments QtTest runs here as usual.
inline int RunEachTestInItsOwnProcess(QObject& test, int argc, char** argv)
{
    if (argc > 1)
        return QTest::qExec(&test, argc, argv);
    const QStringList fixtures{QStringLiteral("initTestCase"), QStringLiteral("cleanupTestCase"),
                               QStringLiteral("init"), QStringLiteral("cleanup")};
    const QMetaObject* meta = test.metaObject();
    int failures = 0;
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        const QString name = QString::fromLatin1(method.name());
        if (method.methodType() != QMetaMethod::Slot || method.access() != QMetaMethod::Private ||
            fixtures.contains(name) || name.endsWith(QLatin1String("_data")))
            continue;
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedChannels);
        child.start(QString::fromLocal8Bit(argv[0]), {name});
        if (!child.waitForFinished(-1) || child.exitStatus() != QProcess::NormalExit || child.exitCode() != 0)
            ++failures;
    }
    return failures;
}

#endif
