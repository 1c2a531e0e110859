#include "application/systemdserviceimpl_p.h"
#include "common/scopedenvironment.h"
#include "kvbase/errorhandler.h"
#include "notifylistener.h"
#include "recordingservice.h"

#include <QElapsedTimer>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <chrono>

#include <signal.h>

namespace {

// Messages for the user, as the error handler delivers them.
class CapturedMessages
{
public:
    CapturedMessages()
    {
        ErrorHandler::Instance().SetMessagePresenter(
            [this](ErrorHandler::MessageKind kind, const QString& text) {
                std::lock_guard<std::mutex> lock(m_mutex);
                m_messages.append(QStringLiteral("%1 %2").arg(int(kind)).arg(text));
            });
    }
    ~CapturedMessages() { ErrorHandler::Instance().SetMessagePresenter({}); }
    QStringList All() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_messages;
    }

private:
    mutable std::mutex m_mutex;
    QStringList m_messages;
};

QString ErrorMessage(const QString& text)
{
    return QStringLiteral("%1 %2").arg(int(ErrorHandler::MSG_Error)).arg(text);
}

using Status = SystemdServiceImpl::Status;

} // namespace

class TestSystemdServiceImpl : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void statusMessage_data();
    void statusMessage();
    void initRecordsStartAndReportsRunning();
    void initOutsideServiceManagerReportsStoppedWithMinusOne();
    void controlTable_data();
    void controlTable();
    void continueAfterPauseReportsRunning();
    void badNotifySocket_data();
    void badNotifySocket();
    void abstractNotifySocketIsReached();
    void longestNotifySocketPathIsReached();
    void invocationIdWithoutNotifySocketRunsSilently();
    void watchdogPingsAtHalfTheInterval();
    void watchdogNotAskedSendsNoPings_data();
    void watchdogNotAskedSendsNoPings();
    void stopAfterSigtermWithinOneSecond();

private:
    void UseNotifySocket(const QByteArray& name);

    std::unique_ptr<QTemporaryDir> m_pDir;
    std::unique_ptr<ScopedEnvironment> m_pEnvironment;
    std::unique_ptr<NotifyListener> m_pListener;
};

void TestSystemdServiceImpl::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    // A stop control that arrives after Exec has returned must not end the test.
    ::signal(SIGTERM, SIG_IGN);
}

void TestSystemdServiceImpl::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY2(m_pDir->isValid(), qPrintable(m_pDir->errorString()));
    m_pEnvironment = std::make_unique<ScopedEnvironment>();
    m_pEnvironment->Set("INVOCATION_ID", QByteArray());
    m_pEnvironment->Set("WATCHDOG_USEC", QByteArray());
    m_pEnvironment->Set("WATCHDOG_PID", QByteArray());
    UseNotifySocket(QFile::encodeName(m_pDir->filePath(QStringLiteral("notify"))));
}

void TestSystemdServiceImpl::cleanup()
{
    m_pEnvironment.reset();
    m_pListener.reset();
    m_pDir.reset();
}

void TestSystemdServiceImpl::UseNotifySocket(const QByteArray& name)
{
    m_pListener = std::make_unique<NotifyListener>(name);
    QVERIFY(m_pListener->IsBound());
    m_pEnvironment->Set("NOTIFY_SOCKET", name);
}

void TestSystemdServiceImpl::statusMessage_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<quint32>("state");
    QTest::addColumn<quint32>("exitCode");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("running") << QStringLiteral("Heartbeat") << quint32(ServiceImpl::SERVICE_RUNNING) << 0u
                             << QByteArray("READY=1\nSTATUS=Heartbeat: running\n");
    QTest::newRow("paused") << QStringLiteral("Heartbeat") << quint32(ServiceImpl::SERVICE_PAUSED) << 0u
                            << QByteArray("STATUS=Heartbeat: paused\n");
    QTest::newRow("start_pending") << QStringLiteral("Heartbeat")
                                   << quint32(ServiceImpl::SERVICE_START_PENDING) << 0u
                                   << QByteArray("STATUS=Heartbeat: starting\n");
    QTest::newRow("stopped") << QStringLiteral("Heartbeat") << quint32(ServiceImpl::SERVICE_STOPPED) << 0u
                             << QByteArray("STOPPING=1\nSTATUS=Heartbeat: stopped, exit code 0\n");
    QTest::newRow("stopped_with_all_bits_set")
        << QStringLiteral("Heartbeat") << quint32(ServiceImpl::SERVICE_STOPPED) << 0xFFFFFFFFu
        << QByteArray("STOPPING=1\nSTATUS=Heartbeat: stopped, exit code -1\n");
    QTest::newRow("unknown_state") << QStringLiteral("Heartbeat") << 3u << 0u
                                   << QByteArray("STATUS=Heartbeat: state 3\n");
    QTest::newRow("line_feed_in_name")
        << QStringLiteral("Heart\nbeat") << quint32(ServiceImpl::SERVICE_PAUSED) << 0u
        << QByteArray("STATUS=Heart beat: paused\n");
    QTest::newRow("name_in_utf8") << QStringLiteral("Gr\u00fc\u00dfe") << quint32(ServiceImpl::SERVICE_PAUSED)
                                  << 0u
                                  << QByteArray("STATUS=Gr\xc3\xbc\xc3\x9f"
                                                "e: paused\n");
}

void TestSystemdServiceImpl::statusMessage()
{
    QFETCH(QString, name);
    QFETCH(quint32, state);
    QFETCH(quint32, exitCode);
    QFETCH(QByteArray, expected);
    QCOMPARE(SystemdServiceImpl::StatusMessage(name, state, exitCode), expected);
}

void TestSystemdServiceImpl::initRecordsStartAndReportsRunning()
{
    ServiceEvents events;
    RecordingService service(QStringLiteral("Impl"), events, false);
    SystemdServiceImpl impl(&service);
    QVERIFY(!impl.IsRunning());
    QVERIFY(impl.Init());
    const Status& status = impl.GetStatus();
    QCOMPARE(status.serviceType, 0x30u);
    QCOMPARE(status.currentState.load(), 4u);
    QCOMPARE(status.controlsAccepted, 5u);
    QCOMPARE(status.exitCode.load(), 0u);
    QCOMPARE(status.serviceSpecificExitCode, 0u);
    QCOMPARE(status.checkPoint, 0u);
    QCOMPARE(status.waitHint, 0u);
    QVERIFY(impl.IsRunning());
    QCOMPARE(m_pListener->Receive(1000), QByteArray("READY=1\nSTATUS=Impl: running\n"));
    QCOMPARE(m_pListener->Receive(100), QByteArray());
    QCOMPARE(events.All(), QStringList());
}

void TestSystemdServiceImpl::initOutsideServiceManagerReportsStoppedWithMinusOne()
{
    m_pEnvironment->Set("NOTIFY_SOCKET", QByteArray());
    CapturedMessages messages;
    ServiceEvents events;
    RecordingService service(QStringLiteral("Impl"), events, false);
    SystemdServiceImpl impl(&service);
    QVERIFY(!impl.Init());
    QCOMPARE(impl.GetStatus().currentState.load(), 1u);
    QCOMPARE(impl.GetStatus().exitCode.load(), 0xFFFFFFFFu);
    QCOMPARE(impl.GetStatus().controlsAccepted, 5u);
    QVERIFY(!impl.IsRunning());
    QCOMPARE(m_pListener->Receive(100), QByteArray());
    QCOMPARE(messages.All(), QStringList());
}

void TestSystemdServiceImpl::controlTable_data()
{
    QTest::addColumn<quint32>("control");
    QTest::addColumn<quint32>("state");
    QTest::addColumn<QString>("handler");
    QTest::addColumn<QByteArray>("report");

    QTest::newRow("stop") << 1u << 1u << QStringLiteral("OnStop Table")
                          << QByteArray("STOPPING=1\nSTATUS=Table: stopped, exit code 0\n");
    QTest::newRow("pause") << 2u << 7u << QStringLiteral("OnPause Table")
                           << QByteArray("STATUS=Table: paused\n");
    QTest::newRow("continue") << 3u << 4u << QStringLiteral("OnContinue Table")
                              << QByteArray("READY=1\nSTATUS=Table: running\n");
    QTest::newRow("interrogate_only_reports")
        << 4u << 4u << QString() << QByteArray("READY=1\nSTATUS=Table: running\n");
    QTest::newRow("shutdown_only_reports")
        << 5u << 4u << QString() << QByteArray("READY=1\nSTATUS=Table: running\n");
    QTest::newRow("unknown_only_reports")
        << 200u << 4u << QString() << QByteArray("READY=1\nSTATUS=Table: running\n");
}

void TestSystemdServiceImpl::controlTable()
{
    QFETCH(quint32, control);
    QFETCH(quint32, state);
    QFETCH(QString, handler);
    QFETCH(QByteArray, report);

    ServiceEvents events;
    RecordingService service(QStringLiteral("Table"), events, false);
    SystemdServiceImpl impl(&service);
    QVERIFY(impl.Init());
    QCOMPARE(m_pListener->Receive(1000), QByteArray("READY=1\nSTATUS=Table: running\n"));

    impl.HandleControl(control);
    QCOMPARE(impl.GetStatus().currentState.load(), state);
    QCOMPARE(impl.GetStatus().exitCode.load(), 0u);
    QCOMPARE(events.All(), handler.isEmpty() ? QStringList() : QStringList({handler}));
    QCOMPARE(m_pListener->Receive(1000), report);
    QCOMPARE(m_pListener->Receive(100), QByteArray());
}

void TestSystemdServiceImpl::continueAfterPauseReportsRunning()
{
    ServiceEvents events;
    RecordingService service(QStringLiteral("Table"), events, false);
    SystemdServiceImpl impl(&service);
    QVERIFY(impl.Init());
    impl.HandleControl(ServiceImpl::SERVICE_CONTROL_PAUSE);
    QVERIFY(!impl.IsRunning());
    impl.HandleControl(ServiceImpl::SERVICE_CONTROL_CONTINUE);
    QVERIFY(impl.IsRunning());
    QCOMPARE(m_pListener->Receive(1000), QByteArray("READY=1\nSTATUS=Table: running\n"));
    QCOMPARE(m_pListener->Receive(1000), QByteArray("STATUS=Table: paused\n"));
    QCOMPARE(m_pListener->Receive(1000), QByteArray("READY=1\nSTATUS=Table: running\n"));
    QCOMPARE(events.All(),
             QStringList({QStringLiteral("OnPause Table"), QStringLiteral("OnContinue Table")}));
}

void TestSystemdServiceImpl::badNotifySocket_data()
{
    QTest::addColumn<QByteArray>("socket");
    QTest::addColumn<QString>("message");

    // "<dir>" stands for the test's temporary folder.
    QTest::newRow("path_names_nothing")
        << QByteArray("<dir>/nothing")
        << QStringLiteral("The notify socket \"<dir>/nothing\" cannot be reached: No such file or directory");
    QTest::newRow("path_names_a_file")
        << QByteArray("<dir>/plain-file")
        << QStringLiteral("The notify socket \"<dir>/plain-file\" cannot be reached: Connection refused");
    const QByteArray abstract = "@zent-test-nobody-binds-" + QByteArray::number(::getpid());
    QTest::newRow("abstract_name_nobody_binds")
        << abstract
        << QStringLiteral("The notify socket \"%1\" cannot be reached: Connection refused")
               .arg(QString::fromLatin1(abstract));
    const QByteArray tooLong = "/" + QByteArray(200, 'n');
    QTest::newRow("path_too_long") << tooLong
                                   << QStringLiteral(
                                          "The notify socket \"%1\" is too long for a socket address")
                                          .arg(QString::fromLatin1(tooLong));
    const QByteArray abstractTooLong = "@" + QByteArray(108, 'n');
    QTest::newRow("abstract_name_too_long")
        << abstractTooLong
        << QStringLiteral("The notify socket \"%1\" is too long for a socket address")
               .arg(QString::fromLatin1(abstractTooLong));
    QTest::newRow("relative_path")
        << QByteArray("run/notify")
        << QStringLiteral(
               "The notify socket \"run/notify\" is neither an absolute path nor an abstract name");
    QTest::newRow("vsock_address")
        << QByteArray("vsock:2:1234")
        << QStringLiteral(
               "The notify socket \"vsock:2:1234\" is neither an absolute path nor an abstract name");
}

void TestSystemdServiceImpl::badNotifySocket()
{
    QFETCH(QByteArray, socket);
    QFETCH(QString, message);
    socket.replace("<dir>", QFile::encodeName(m_pDir->path()));
    message.replace(QLatin1String("<dir>"), m_pDir->path());

    QFile plain(m_pDir->filePath(QStringLiteral("plain-file")));
    QVERIFY(plain.open(QIODevice::WriteOnly));
    plain.close();
    m_pEnvironment->Set("NOTIFY_SOCKET", socket);
    CapturedMessages messages;
    ServiceEvents events;

    {
        RecordingService service(QStringLiteral("Bad"), events);
        SystemdServiceImpl impl(&service);
        QVERIFY(!impl.Init());
        QCOMPARE(impl.GetStatus().currentState.load(), 1u);
        QCOMPARE(impl.GetStatus().exitCode.load(), 0xFFFFFFFFu);
        QCOMPARE(messages.All(), QStringList({ErrorMessage(message)}));
    }

    // Under Exec: the service is reported stopped at once and Exec returns.
    RecordingService service(QStringLiteral("Bad"), events);
    wchar_t name[] = L"bad";
    wchar_t* argv[] = {name, nullptr};
    QElapsedTimer timer;
    timer.start();
    service.Exec(1, argv);
    QVERIFY2(timer.elapsed() < 1000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(service.starts.load(), 0);
    QCOMPARE(messages.All(), QStringList({ErrorMessage(message), ErrorMessage(message)}));
    QCOMPARE(m_pListener->Receive(100), QByteArray());
}

void TestSystemdServiceImpl::abstractNotifySocketIsReached()
{
    const QByteArray name = "@zent-test-notify-" + QByteArray::number(::getpid());
    UseNotifySocket(name);
    ServiceEvents events;
    RecordingService service(QStringLiteral("Abstract"), events);
    wchar_t program[] = L"abstract";
    wchar_t* argv[] = {program, nullptr};
    ExecUntilStopped(service, events, m_pListener.get(), QStringLiteral("OnStart Abstract"), 1, argv);
    QStringList happened = events.All();
    QCOMPARE(happened.removeAll(QStringLiteral("OnStart Abstract")), 1);
    QCOMPARE(happened,
             QStringList({QStringLiteral("report READY=1\nSTATUS=Abstract: running\n"),
                          QStringLiteral("OnStop Abstract"),
                          QStringLiteral("report STOPPING=1\nSTATUS=Abstract: stopped, exit code 0\n")}));
}

void TestSystemdServiceImpl::longestNotifySocketPathIsReached()
{
    // A socket path holds 107 bytes and the terminating zero.
    const QByteArray folder = QFile::encodeName(m_pDir->path()) + '/';
    QVERIFY(folder.size() < 100);
    const QByteArray longest = folder + QByteArray(107 - folder.size(), 's');
    QCOMPARE(longest.size(), 107);
    UseNotifySocket(longest);
    ServiceEvents events;
    RecordingService service(QStringLiteral("Longest"), events, false);
    SystemdServiceImpl impl(&service);
    QVERIFY(impl.Init());
    QCOMPARE(m_pListener->Receive(1000), QByteArray("READY=1\nSTATUS=Longest: running\n"));

    CapturedMessages messages;
    m_pEnvironment->Set("NOTIFY_SOCKET", longest + 's');
    QVERIFY(!impl.Init());
    QCOMPARE(
        messages.All(),
        QStringList({ErrorMessage(QStringLiteral("The notify socket \"%1\" is too long for a socket address")
                                      .arg(QString::fromLocal8Bit(longest + 's')))}));
}

void TestSystemdServiceImpl::invocationIdWithoutNotifySocketRunsSilently()
{
    m_pEnvironment->Set("NOTIFY_SOCKET", QByteArray());
    m_pEnvironment->Set("INVOCATION_ID", "0123456789abcdef0123456789abcdef");
    ServiceEvents events;
    RecordingService service(QStringLiteral("Silent"), events);
    wchar_t program[] = L"silent";
    wchar_t* argv[] = {program, nullptr};
    ExecUntilStopped(service, events, nullptr, QStringLiteral("OnStart Silent"), 1, argv);
    QCOMPARE(events.All(), QStringList({QStringLiteral("OnStart Silent"), QStringLiteral("OnStop Silent")}));
    QVERIFY(service.runningInOnStart);
    QVERIFY(!service.Running());
    QCOMPARE(m_pListener->Receive(100), QByteArray());
}

void TestSystemdServiceImpl::watchdogPingsAtHalfTheInterval()
{
    // systemd would act after 300 ms without a ping; pings come every 150 ms.
    m_pEnvironment->Set("WATCHDOG_USEC", "300000");
    m_pEnvironment->Set("WATCHDOG_PID", QByteArray::number(::getpid()));
    ServiceEvents events;
    RecordingService service(QStringLiteral("Watched"), events);
    wchar_t program[] = L"watched";
    wchar_t* argv[] = {program, nullptr};
    QList<qint64> pings;
    QList<QByteArray> others;
    ExecUntilStopped(service, events, m_pListener.get(), QStringLiteral("OnStart Watched"), 1, argv, [&] {
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 1000) {
            const QByteArray datagram = m_pListener->Receive(100);
            if (datagram == "WATCHDOG=1\n")
                pings.append(timer.elapsed());
            else if (!datagram.isNull())
                others.append(datagram);
        }
    });
    QCOMPARE(others, QList<QByteArray>());
    QVERIFY2(pings.size() >= 5, qPrintable(QString::number(pings.size())));
    QVERIFY2(pings.first() < 300, qPrintable(QString::number(pings.first())));
    for (int i = 1; i < pings.size(); ++i)
        QVERIFY2(pings[i] - pings[i - 1] < 300 && pings[i] - pings[i - 1] > 50,
                 qPrintable(QStringLiteral("ping %1 after %2 ms").arg(i).arg(pings[i] - pings[i - 1])));
}

void TestSystemdServiceImpl::watchdogNotAskedSendsNoPings_data()
{
    QTest::addColumn<QByteArray>("usec");
    QTest::addColumn<bool>("otherProcess");
    QTest::newRow("no_watchdog") << QByteArray() << false;
    QTest::newRow("watchdog_of_another_process") << QByteArray("100000") << true;
    QTest::newRow("not_a_number") << QByteArray("soon") << false;
    QTest::newRow("zero") << QByteArray("0") << false;
}

void TestSystemdServiceImpl::watchdogNotAskedSendsNoPings()
{
    QFETCH(QByteArray, usec);
    QFETCH(bool, otherProcess);
    m_pEnvironment->Set("WATCHDOG_USEC", usec);
    m_pEnvironment->Set("WATCHDOG_PID", otherProcess ? QByteArray::number(::getpid() + 1) : QByteArray());
    ServiceEvents events;
    RecordingService service(QStringLiteral("Unwatched"), events);
    wchar_t program[] = L"unwatched";
    wchar_t* argv[] = {program, nullptr};
    QList<QByteArray> datagrams;
    ExecUntilStopped(service, events, m_pListener.get(), QStringLiteral("OnStart Unwatched"), 1, argv, [&] {
        for (QByteArray datagram; !(datagram = m_pListener->Receive(400)).isNull();)
            datagrams.append(datagram);
    });
    QCOMPARE(datagrams, QList<QByteArray>());
    QCOMPARE(events.All().last(),
             QStringLiteral("report STOPPING=1\nSTATUS=Unwatched: stopped, exit code 0\n"));
}

void TestSystemdServiceImpl::stopAfterSigtermWithinOneSecond()
{
    ServiceEvents events;
    RecordingService service(QStringLiteral("Quick"), events);
    wchar_t program[] = L"quick";
    wchar_t* argv[] = {program, nullptr};
    QElapsedTimer sinceStop;
    ExecUntilStopped(service, events, m_pListener.get(), QStringLiteral("OnStart Quick"), 1, argv,
                     [&] { sinceStop.start(); });
    QVERIFY2(sinceStop.elapsed() < 1000, qPrintable(QString::number(sinceStop.elapsed())));
    QCOMPARE(service.stops.load(), 1);
}

QTEST_GUILESS_MAIN(TestSystemdServiceImpl)
#include "tst_systemdserviceimpl.moc"
