#include "application/service.h"
#include "common/scopedenvironment.h"
#include "notifylistener.h"
#include "recordingservice.h"

#include <QElapsedTimer>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <signal.h>

namespace {

// A wide argument vector as a Windows entry point receives it.
class WideArgs
{
public:
    explicit WideArgs(const QStringList& args)
    {
        for (const QString& arg : args)
            m_strings.push_back(arg.toStdWString());
        for (std::wstring& string : m_strings)
            m_pointers.push_back(&string[0]);
        m_pointers.push_back(nullptr);
    }
    int Count() const { return static_cast<int>(m_strings.size()); }
    wchar_t** Vector() { return m_pointers.data(); }

private:
    std::vector<std::wstring> m_strings;
    std::vector<wchar_t*> m_pointers;
};

} // namespace

class TestService : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void nameIsTheConstructorsName();
    void consoleStartReturnsAtOnceWithoutOnStart();
    void stopReportsStoppedWithExitCodeZeroAfterOnStop();
    void onStartGetsTheArgumentsGivenToExec();
    void secondServiceReceivesStartAndControls();
    void startWithoutServiceManagerSkipsOnStart();
    void startUnderServiceManagerReportsRunningBeforeOnStart();
    void controlsCallTheirHandlersOnly();

private:
    std::unique_ptr<QTemporaryDir> m_pDir;
    std::unique_ptr<ScopedEnvironment> m_pEnvironment;
    std::unique_ptr<NotifyListener> m_pListener;
};

void TestService::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    // A stop control that arrives after Exec has returned must not end the test.
    ::signal(SIGTERM, SIG_IGN);
}

void TestService::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY2(m_pDir->isValid(), qPrintable(m_pDir->errorString()));
    const QByteArray socket = QFile::encodeName(m_pDir->filePath(QStringLiteral("notify")));
    m_pListener = std::make_unique<NotifyListener>(socket);
    QVERIFY(m_pListener->IsBound());
    m_pEnvironment = std::make_unique<ScopedEnvironment>();
    m_pEnvironment->Set("NOTIFY_SOCKET", socket);
    m_pEnvironment->Set("INVOCATION_ID", QByteArray());
    m_pEnvironment->Set("WATCHDOG_USEC", QByteArray());
    m_pEnvironment->Set("WATCHDOG_PID", QByteArray());
}

void TestService::cleanup()
{
    m_pEnvironment.reset();
    m_pListener.reset();
    m_pDir.reset();
}

void TestService::nameIsTheConstructorsName()
{
    ServiceEvents events;
    RecordingService service(QStringLiteral("Heartbeat"), events);
    QCOMPARE(service.Name(), QStringLiteral("Heartbeat"));
}

void TestService::consoleStartReturnsAtOnceWithoutOnStart()
{
    m_pEnvironment->Set("NOTIFY_SOCKET", QByteArray());
    ServiceEvents events;
    RecordingService service(QStringLiteral("Console"), events);
    WideArgs args({QStringLiteral("console")});
    QElapsedTimer timer;
    timer.start();
    service.Exec(args.Count(), args.Vector());
    QVERIFY2(timer.elapsed() < 1000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(service.starts.load(), 0);
    QCOMPARE(events.All(), QStringList());
    QVERIFY(!service.Running());
    QCOMPARE(m_pListener->Receive(100), QByteArray());
}

void TestService::stopReportsStoppedWithExitCodeZeroAfterOnStop()
{
    ServiceEvents events;
    RecordingService service(QStringLiteral("Recorder"), events);
    WideArgs args({QStringLiteral("recorder")});
    ExecUntilStopped(service, events, m_pListener.get(), QStringLiteral("OnStart Recorder"), args.Count(),
                     args.Vector());

    QStringList reportsAndStop = events.All();
    QCOMPARE(reportsAndStop.removeAll(QStringLiteral("OnStart Recorder")), 1);
    QCOMPARE(reportsAndStop,
             QStringList({QStringLiteral("report READY=1\nSTATUS=Recorder: running\n"),
                          QStringLiteral("OnStop Recorder"),
                          QStringLiteral("report STOPPING=1\nSTATUS=Recorder: stopped, exit code 0\n")}));
    QCOMPARE(service.starts.load(), 1);
    QCOMPARE(service.stops.load(), 1);
    QVERIFY(service.runningInOnStart);
    QVERIFY(!service.Running());
    // The body on a thread of its own, the controls on the thread that called Exec.
    QVERIFY(service.startThread != std::this_thread::get_id());
    QVERIFY(service.stopThread == std::this_thread::get_id());
    QCOMPARE(m_pListener->Receive(100), QByteArray());
}

void TestService::onStartGetsTheArgumentsGivenToExec()
{
    ServiceEvents events;
    RecordingService service(QStringLiteral("Arguments"), events);
    const QStringList given = {QStringLiteral("heartbeat"), QStringLiteral("--interval"), QString(),
                               QStringLiteral("Gr\u00fc\u00dfe \u20ac")};
    WideArgs args(given);
    ExecUntilStopped(service, events, m_pListener.get(), QString(), args.Count(), args.Vector());
    QCOMPARE(service.startArgs, given);

    // Only the first argc entries count.
    ServiceEvents fewerEvents;
    RecordingService fewer(QStringLiteral("Fewer"), fewerEvents);
    ExecUntilStopped(fewer, fewerEvents, m_pListener.get(), QString(), 2, args.Vector());
    QCOMPARE(fewer.startArgs, given.mid(0, 2));
}

void TestService::secondServiceReceivesStartAndControls()
{
    ServiceEvents events;
    RecordingService first(QStringLiteral("First"), events);
    RecordingService second(QStringLiteral("Second"), events);
    WideArgs args({QStringLiteral("first"), QStringLiteral("--flag")});
    ExecUntilStopped(first, events, m_pListener.get(), QString(), args.Count(), args.Vector());

    QStringList happened = events.All();
    QCOMPARE(happened.removeAll(QStringLiteral("OnStart Second")), 1);
    QCOMPARE(happened,
             QStringList({QStringLiteral("report READY=1\nSTATUS=Second: running\n"),
                          QStringLiteral("OnStop Second"),
                          QStringLiteral("report STOPPING=1\nSTATUS=Second: stopped, exit code 0\n")}));
    QCOMPARE(first.starts.load(), 0);
    QCOMPARE(first.stops.load(), 0);
    QCOMPARE(second.starts.load(), 1);
    QCOMPARE(second.stops.load(), 1);
    // The newer service's own vector is used, and it was never given one.
    QCOMPARE(second.startArgs, QStringList());
    QVERIFY(!second.Running());
}

void TestService::startWithoutServiceManagerSkipsOnStart()
{
    m_pEnvironment->Set("NOTIFY_SOCKET", QByteArray());
    ServiceEvents events;
    RecordingService service(QStringLiteral("Direct"), events, false);
    service.Start({QStringLiteral("direct")});
    QCOMPARE(service.starts.load(), 0);
    QVERIFY(!service.Running());
    QCOMPARE(m_pListener->Receive(100), QByteArray());
}

void TestService::startUnderServiceManagerReportsRunningBeforeOnStart()
{
    ServiceEvents events;
    RecordingService service(QStringLiteral("Direct"), events, false);
    service.Start({QStringLiteral("direct"), QStringLiteral("-x")});
    QCOMPARE(m_pListener->Receive(1000), QByteArray("READY=1\nSTATUS=Direct: running\n"));
    QCOMPARE(service.starts.load(), 1);
    QCOMPARE(service.startArgs, QStringList({QStringLiteral("direct"), QStringLiteral("-x")}));
    QVERIFY(service.runningInOnStart);
    QVERIFY(service.startThread == std::this_thread::get_id());
    QVERIFY(service.Running());
}

void TestService::controlsCallTheirHandlersOnly()
{
    ServiceEvents events;
    RecordingService service(QStringLiteral("Controls"), events, false);
    service.Pause();
    service.Continue();
    service.Stop();
    QCOMPARE(events.All(),
             QStringList({QStringLiteral("OnPause Controls"), QStringLiteral("OnContinue Controls"),
                          QStringLiteral("OnStop Controls")}));
    // The handlers alone report nothing and change no state.
    QCOMPARE(m_pListener->Receive(100), QByteArray());
    QVERIFY(!service.Running());
}

QTEST_GUILESS_MAIN(TestService)
#include "tst_service.moc"
