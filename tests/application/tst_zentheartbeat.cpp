// The example service zentheartbeat, run as systemd would run it: a child
// process with NOTIFY_SOCKET naming a datagram socket this test listens on.

#include "notifylistener.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <signal.h>

namespace {

QByteArray ReadAll(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

// Stops the child when a test fails half-way.
class ChildGuard
{
public:
    explicit ChildGuard(QProcess& process) : m_process(process) {}
    ~ChildGuard()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }

private:
    QProcess& m_process;
};

} // namespace

class TestZentHeartbeat : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void runsUntilSigterm();
    void consoleStartReturnsAtOnce();
    void badNotifySocketEndsAtOnce_data();
    void badNotifySocketEndsAtOnce();
    void unitFilePassesSystemdAnalyzeVerify();

private:
    QProcessEnvironment ServiceEnvironment(const QByteArray& notifySocket) const;
    QString LogFile() const { return m_pDir->filePath(QStringLiteral("logs/ServiceLog.txt")); }

    std::unique_ptr<QTemporaryDir> m_pDir;
};

void TestZentHeartbeat::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
}

void TestZentHeartbeat::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY2(m_pDir->isValid(), qPrintable(m_pDir->errorString()));
    QVERIFY(QDir(m_pDir->path()).mkdir(QStringLiteral("logs")));
}

void TestZentHeartbeat::cleanup()
{
    m_pDir.reset();
}

QProcessEnvironment TestZentHeartbeat::ServiceEnvironment(const QByteArray& notifySocket) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"NOTIFY_SOCKET", "INVOCATION_ID", "WATCHDOG_USEC", "WATCHDOG_PID"})
        environment.remove(QLatin1String(name));
    if (!notifySocket.isNull())
        environment.insert(QStringLiteral("NOTIFY_SOCKET"), QFile::decodeName(notifySocket));
    environment.insert(QStringLiteral("LOGS_DIRECTORY"), m_pDir->filePath(QStringLiteral("logs")));
    environment.insert(QStringLiteral("QT_MESSAGE_PATTERN"), QStringLiteral("%{category}: %{message}"));
    return environment;
}

void TestZentHeartbeat::runsUntilSigterm()
{
    const QByteArray socket = QFile::encodeName(m_pDir->filePath(QStringLiteral("notify")));
    NotifyListener listener(socket);
    QVERIFY(listener.IsBound());
    QProcessEnvironment environment = ServiceEnvironment(socket);
    // systemd would act after 1 s without a ping.
    environment.insert(QStringLiteral("WATCHDOG_USEC"), QStringLiteral("1000000"));
    QProcess service;
    ChildGuard guard(service);
    service.setProcessEnvironment(environment);
    service.start(QStringLiteral(ZENT_HEARTBEAT_PROGRAM), QStringList());
    QVERIFY(service.waitForStarted());

    QCOMPARE(listener.ReceiveReport(10000), QByteArray("READY=1\nSTATUS=ZentHeartbeat: running\n"));

    // Running: only watchdog pings, each in time, each datagram well formed.
    const QRegularExpression wellFormed(QStringLiteral("^([A-Z_]+=[^\\n]*\\n)+$"));
    QElapsedTimer running;
    running.start();
    qint64 lastPing = 0;
    int pings = 0;
    while (running.elapsed() < 2300) {
        const QByteArray datagram = listener.Receive(100);
        if (datagram.isNull())
            continue;
        QVERIFY2(wellFormed.match(QString::fromUtf8(datagram)).hasMatch(), datagram.constData());
        QCOMPARE(datagram, QByteArray("WATCHDOG=1\n"));
        QVERIFY2(running.elapsed() - lastPing < 1000,
                 qPrintable(QStringLiteral("ping after %1 ms").arg(running.elapsed() - lastPing)));
        lastPing = running.elapsed();
        ++pings;
    }
    QVERIFY2(pings >= 4, qPrintable(QString::number(pings)));

    QElapsedTimer stopping;
    stopping.start();
    QCOMPARE(::kill(static_cast<pid_t>(service.processId()), SIGTERM), 0);
    QCOMPARE(listener.ReceiveReport(1000),
             QByteArray("STOPPING=1\nSTATUS=ZentHeartbeat: stopped, exit code 0\n"));
    QVERIFY(service.waitForFinished(1000));
    QVERIFY2(stopping.elapsed() < 1000, qPrintable(QString::number(stopping.elapsed())));
    QCOMPARE(service.exitStatus(), QProcess::NormalExit);
    QCOMPARE(service.exitCode(), 0);
    QCOMPARE(service.readAllStandardError(), QByteArray());

    // The heartbeats, and OnStop ending the body.
    const QList<QByteArray> lines = ReadAll(LogFile()).split('\n');
    QVERIFY2(lines.size() >= 5, qPrintable(QString::number(lines.size())));
    QCOMPARE(lines.first(), QByteArray("ZentHeartbeat started"));
    for (int beat = 1; beat < lines.size() - 2; ++beat)
        QCOMPARE(lines[beat], "heartbeat " + QByteArray::number(beat));
    QCOMPARE(lines[lines.size() - 2], QByteArray("ZentHeartbeat stopped"));
    QCOMPARE(lines.last(), QByteArray());
}

void TestZentHeartbeat::consoleStartReturnsAtOnce()
{
    QProcess service;
    ChildGuard guard(service);
    service.setProcessEnvironment(ServiceEnvironment(QByteArray()));
    QElapsedTimer timer;
    timer.start();
    service.start(QStringLiteral(ZENT_HEARTBEAT_PROGRAM), QStringList());
    QVERIFY(service.waitForFinished(5000));
    QVERIFY2(timer.elapsed() < 2000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(service.exitCode(), 1);
    QCOMPARE(service.readAllStandardError(),
             QByteArray("zentheartbeat: not run as a systemd service (see zentheartbeat.service)\n"));
    // OnStart never ran: it would have written the first line.
    QVERIFY(!QFile::exists(LogFile()));
}

void TestZentHeartbeat::badNotifySocketEndsAtOnce_data()
{
    QTest::addColumn<QByteArray>("socket");
    QTest::addColumn<QByteArray>("message");

    // "<dir>" stands for the test's temporary folder.
    QTest::newRow("names_nothing")
        << QByteArray("<dir>/nothing")
        << QByteArray("The notify socket \"<dir>/nothing\" cannot be reached: No such file or directory");
    const QByteArray abstract = "@zent-heartbeat-nobody-" + QByteArray::number(::getpid());
    QTest::newRow("abstract_name_nobody_binds")
        << abstract << "The notify socket \"" + abstract + "\" cannot be reached: Connection refused";
    const QByteArray tooLong = "/" + QByteArray(150, 'n');
    QTest::newRow("path_too_long") << tooLong
                                   << "The notify socket \"" + tooLong +
                                          "\" is too long for a socket address";
}

void TestZentHeartbeat::badNotifySocketEndsAtOnce()
{
    QFETCH(QByteArray, socket);
    QFETCH(QByteArray, message);
    const QByteArray dir = QFile::encodeName(m_pDir->path());
    socket.replace("<dir>", dir);
    message.replace("<dir>", dir);

    QProcess service;
    ChildGuard guard(service);
    service.setProcessEnvironment(ServiceEnvironment(socket));
    QElapsedTimer timer;
    timer.start();
    service.start(QStringLiteral(ZENT_HEARTBEAT_PROGRAM), QStringList());
    QVERIFY(service.waitForFinished(5000));
    QVERIFY2(timer.elapsed() < 2000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(service.exitStatus(), QProcess::NormalExit);
    QCOMPARE(service.exitCode(), 1);
    QCOMPARE(service.readAllStandardError(),
             "zent.message: Error: SystemdServiceImpl::Init: " + message +
                 "\nzentheartbeat: not run as a systemd service (see zentheartbeat.service)\n");
    QVERIFY(!QFile::exists(LogFile()));
}

void TestZentHeartbeat::unitFilePassesSystemdAnalyzeVerify()
{
    const QString analyze = QStandardPaths::findExecutable(QStringLiteral("systemd-analyze"));
    if (analyze.isEmpty())
        QSKIP("systemd-analyze is not installed: the unit file was not verified");
    // The unit as installed, naming the program built here.
    QByteArray unit = ReadAll(QStringLiteral(ZENT_HEARTBEAT_UNIT));
    const QRegularExpression execStart(QStringLiteral("^ExecStart=.*$"), QRegularExpression::MultilineOption);
    QString text = QString::fromUtf8(unit);
    QCOMPARE(text.count(execStart), 1);
    text.replace(execStart, QStringLiteral("ExecStart=") + QStringLiteral(ZENT_HEARTBEAT_PROGRAM));
    const QString copy = m_pDir->filePath(QStringLiteral("zentheartbeat.service"));
    QFile file(copy);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(text.toUtf8());
    file.close();

    QProcess verify;
    verify.start(analyze, {QStringLiteral("verify"), copy});
    QVERIFY(verify.waitForFinished(60000));
    QCOMPARE(verify.readAllStandardError(), QByteArray());
    QCOMPARE(verify.exitCode(), 0);
    QVERIFY(text.contains(QLatin1String("\nType=notify\n")));
    QVERIFY(text.contains(QLatin1String("\nWatchdogSec=")));
    QVERIFY(text.contains(QLatin1String("\nLogsDirectory=zent\n")));
}

QTEST_GUILESS_MAIN(TestZentHeartbeat)
#include "tst_zentheartbeat.moc"
