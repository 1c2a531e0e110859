// The start-up sequence of ZentApplication in this process: every test builds
// a configuration document in a temporary working directory, runs Init on
// it and tears the application down again.
#include "application/applicationterminationcenter.h"
#include "application/iabstractterminationtarget.h"
#include "application/zentapplication.h"
#include "application/zentqapplication.h"
#include "application/zentsplash.h"
#include "configuration/cfgcenter.h"
#include "kvbase/clogtracer.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"
#include "kvbase/zentos.h"
#include "zentapplication/startuptestsupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QImage>
#include <QLabel>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLocale>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QSemaphore>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <memory>

namespace {

const QString APP_KEY = QStringLiteral("TestApp");
const QSize SPLASH_SIZE(120, 80);

const QString PLUGIN_ENTRY = QStringLiteral("<AdditionalDlls>"
                                            "<Plugin><FileName>StartupPlugin.dll</FileName></Plugin>"
                                            "</AdditionalDlls>");
const QString EXPERT_TRACE = QStringLiteral("<ExceptionHandling>"
                                            "<Q_TRACE>true</Q_TRACE><Q_EXPERT_TRACE>true</Q_EXPERT_TRACE>"
                                            "</ExceptionHandling>");

/// Two plug-ins that are listed but not loaded at start-up.
const QString SUSPENDED_A_AND_B = QStringLiteral("<AdditionalDlls>"
                                                 "<A><FileName>A.dll</FileName><Suspend>true</Suspend></A>"
                                                 "<B><FileName>B.dll</FileName><Suspend>true</Suspend></B>"
                                                 "</AdditionalDlls>");

QString SplashStartup(int timeout)
{
    return QStringLiteral("<Startup><SplashImage>splash.png</SplashImage>"
                          "<SplashTimeout>%1</SplashTimeout></Startup>")
        .arg(timeout);
}

/// The splash windows among the application's top-level widgets.
QList<ZentSplash*> TopLevelSplashes()
{
    QList<ZentSplash*> splashes;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (auto* found = qobject_cast<ZentSplash*>(widget))
            splashes << found;
    }
    return splashes;
}

/// A temporary working directory holding Cfg.xml, a splash image and the
/// plug-in log; the previous working directory comes back at the end.
class WorkingDir
{
public:
    explicit WorkingDir(const QByteArray& cfg) : m_previous(QDir::currentPath())
    {
        m_valid =
            m_dir.isValid() && QDir::setCurrent(m_dir.path()) && WriteFile(QStringLiteral("Cfg.xml"), cfg);
        QImage image(SPLASH_SIZE, QImage::Format_RGB32);
        image.fill(QColor(0x20, 0x60, 0xa0));
        m_valid = m_valid && image.save(m_dir.filePath(QStringLiteral("splash.png")));
        m_previousLog = qgetenv("ZENT_TEST_PLUGIN_LOG");
        qputenv("ZENT_TEST_PLUGIN_LOG", QFile::encodeName(PluginLog()));
    }
    ~WorkingDir()
    {
        QDir::setCurrent(m_previous);
        qputenv("ZENT_TEST_PLUGIN_LOG", m_previousLog);
    }

    bool IsValid() const { return m_valid; }
    QString Path() const { return m_dir.path(); }
    QString PluginLog() const { return m_dir.filePath(QStringLiteral("plugin.log")); }
    /// What the test plug-ins recorded, one event per line.
    QString PluginEvents() const { return ReadLines(PluginLog()).join(QLatin1Char('\n')); }

private:
    QTemporaryDir m_dir;
    QString m_previous;
    QByteArray m_previousLog;
    bool m_valid = false;
};

/// Another running instance of an application, as this process sees it: it
/// holds the lock and, when asked to, listens for bring-to-front requests in
/// a thread of its own (this process's event loop belongs to the tests).
class RunningInstance : public QThread
{
public:
    RunningInstance(const QString& name, bool listening) : m_name(name)
    {
        m_lock = ZentOS::Create().CreateNamedLock(name);
        if (listening) {
            start();
            m_ready.acquire();
        }
    }
    ~RunningInstance() override { Release(); }

    void Release()
    {
        ZentOS::Create().CloseNamedLock(m_lock);
        m_lock = nullptr;
        quit();
        wait();
    }
    bool IsListening() const { return m_bListening; }
    /// The lines received so far, after a moment for late ones.
    QStringList Requests()
    {
        QThread::msleep(200);
        QMutexLocker lock(&m_mutex);
        return m_requests;
    }

protected:
    void run() override
    {
        QLocalServer server;
        m_bListening = server.listen(ZentOS::Create().GetMessageChannel(m_name));
        QObject::connect(&server, &QLocalServer::newConnection, [this, &server] {
            while (QLocalSocket* socket = server.nextPendingConnection()) {
                QObject::connect(socket, &QLocalSocket::readyRead, [this, socket] {
                    QMutexLocker lock(&m_mutex);
                    m_requests << QString::fromLatin1(socket->readAll());
                });
            }
        });
        m_ready.release();
        exec();
    }

private:
    QString m_name;
    void* m_lock = nullptr;
    QSemaphore m_ready;
    std::atomic<bool> m_bListening{false};
    QMutex m_mutex;
    QStringList m_requests;
};

class RecordingTarget : public IAbstractTerminationTarget
{
public:
    void aboutToTerminate() override { ++m_nCalls; }
    int m_nCalls = 0;
};

QStringList StartupSteps(const QStringList& traces)
{
    // "application/zentapplication:<line> <text>" -> "<text>", for this class only.
    QStringList steps;
    for (const QString& trace : traces) {
        if (trace.startsWith(QLatin1String("application/zentapplication:")))
            steps << trace.section(QLatin1Char(' '), 1);
    }
    return steps;
}

QList<QByteArray> Args(const QString& appKey)
{
    return {QByteArrayLiteral("tst_zentapplication"), appKey.toLatin1(), QByteArrayLiteral("Xml:Cfg.xml")};
}

} // namespace

class TestZentApplication : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void constructorSetsEverythingToZero();
    void startUpRunsItsStepsInOrder();
    void cfgKeyIsArgumentOneBeforeItsFirstColon();
    void withoutArgumentsTheCfgKeyIsEmpty();
    void firstInstanceHoldsLockAndAnswersRequests();
    void secondStartWithOnceHandsOverAndQuitsAfterOneSecond();
    void secondStartWithoutOnceRunsAndStillTakesTheLock();
    void secondStartWithoutReachableInstanceThrows();
    void serverApplicationSkipsTheSingleInstanceCheck();
    void localeSystemInAnyCaseSelectsSystemLocale_data();
    void localeSystemInAnyCaseSelectsSystemLocale();
    void localeComesFromApplicationThenAdministration_data();
    void localeComesFromApplicationThenAdministration();
    void localeIsReadInTheUserViewOnceASplashWasShown();
    void remoteInstanceIsReportedAndQuitIsRequested();
    void splashTimeoutIsKeptInMilliseconds();
    void splashWithoutImageIsNotShownButTimeoutIsKept();
    void splashIsCentredOnTheStoredScreen_data();
    void splashIsCentredOnTheStoredScreen();
    void splashOfConfigurationServerIsNamedCfgServer();
    void splashControlsReachTheSplash();
    void splashControlsWithoutSplashDoNothing();
    void windowIconComesFromProductIcon_data();
    void windowIconComesFromProductIcon();
    void tearDownEndsPluginsBeforeDestroyingThem();
    void checkListOfAdditonalDllsAcceptsTheConfiguredList_data();
    void checkListOfAdditonalDllsAcceptsTheConfiguredList();
    void checkListOfAdditonalDllsThrowsOnADifference();
    void initWithFixedAppKeyInsertsProgramAndKey();
    void initWithAppKeyAndCfgDocBuildsTheCommandLine();
    void initUnicodeOnlyKeepsThePointer();
    void execReturnsTheLoopResultAndQuitEndsIt();
    void copiesShareTheParts();

private:
    QTemporaryDir m_runtimeDir;
    QByteArray m_savedRuntimeDir;
    QByteArray m_savedPlatform;
    QStringList m_messages;
};

void TestZentApplication::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY2(m_runtimeDir.isValid(), qPrintable(m_runtimeDir.errorString()));
    // Locks and channels of the instances live here, out of the user's way.
    m_savedRuntimeDir = qgetenv("XDG_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtimeDir.path()));
    m_savedPlatform = qgetenv("QT_QPA_PLATFORM");
    qputenv("QT_QPA_PLATFORM", "offscreen");
}

void TestZentApplication::cleanupTestCase()
{
    qputenv("XDG_RUNTIME_DIR", m_savedRuntimeDir);
    qputenv("QT_QPA_PLATFORM", m_savedPlatform);
}

void TestZentApplication::init()
{
    ErrorHandler::Instance().ResetMessageMask();
    m_messages.clear();
    ErrorHandler::Instance().SetMessagePresenter([this](ErrorHandler::MessageKind kind, const QString& text) {
        m_messages << QString::number(kind) + QLatin1Char(' ') + text;
    });
}

void TestZentApplication::cleanup()
{
    ErrorHandler::Instance().SetMessagePresenter(ErrorHandler::MessagePresenter());
    ErrorHandler::Instance().SetLogTracer(nullptr);
    ErrorHandler::Instance().ResetMessageMask();
    QCOMPARE(QCoreApplication::instance(), nullptr);
}

void TestZentApplication::constructorSetsEverythingToZero()
{
    {
        ZentApplication app;
        QCOMPARE(ZentApplication::Get(), &app);
        QCOMPARE(app.GetActivatedMsg(), 0u);
        QCOMPARE(app.SplashShowTime(), qint64(0));
        QCOMPARE(app.SplashShowTimeInMSec(), 0);
        QCOMPARE(app.UnicodeArgv(), nullptr);
        QCOMPARE(app.Argc(), 0);
        QCOMPARE(app.Argv(), nullptr);
    }
    QCOMPARE(ZentApplication::Get(), nullptr);
}

void TestZentApplication::startUpRunsItsStepsInOrder()
{
    WorkingDir dir(StartupCfg(APP_KEY, EXPERT_TRACE + SplashStartup(0) + PLUGIN_ENTRY));
    QVERIFY(dir.IsValid());
    TraceCapture capture;
    ErrorHandler::Instance().SetMessageMask(ErrorHandler::Q_EXPERT_TRACE, true);
    CommandLine line(Args(APP_KEY));
    {
        ZentApplication app;
        app.Init(line.argc(), line.argv(), false);
        const unsigned int message = ZentOS::Create().RegisterMessage(APP_KEY);
        QCOMPARE(app.GetActivatedMsg(), message);
        auto* tracer = dynamic_cast<CLogTracer*>(ErrorHandler::Instance().GetLogTracer());
        QVERIFY(tracer);
        QCOMPARE(tracer->GetModuleName(), APP_KEY);

        const QStringList expected{
            QStringLiteral("Start-up: Qt application object created"),
            QStringLiteral("Start-up: CfgKey \"TestApp\", bring-to-front message %1").arg(message),
            QStringLiteral("Start-up: log tracer installed: ") + tracer->GetFileName(),
            QStringLiteral("Start-up: configuration centre created"),
            QStringLiteral("Start-up: splash splash.png shown"),
            QStringLiteral("Start-up: locale ") + QLocale().name(),
            QStringLiteral("Start-up: single-instance lock of \"TestApp\" held"),
            QStringLiteral("Start-up: translations initialised"),
            QStringLiteral("Start-up: window icon set"),
            QStringLiteral("Start-up: additional plug-ins loaded"),
            QStringLiteral("Started !"),
            QStringLiteral("Start-up: plug-ins executed")};
        QCOMPARE(StartupSteps(TraceCapture::Lines()), expected);
        QVERIFY(TraceCapture::Lines().contains(QStringLiteral("application/zentapplication:323 Started !")));
        QCOMPARE(dir.PluginEvents(),
                 QStringList({QStringLiteral("StartupPlugin create TestApp\\AdditionalDlls\\Plugin\\Config"),
                              QStringLiteral("StartupPlugin execute")})
                     .join(QLatin1Char('\n')));
    }
    const QStringList tearDown = StartupSteps(TraceCapture::Lines()).filter(QStringLiteral("Tear-down"));
    QCOMPARE(tearDown,
             QStringList({QStringLiteral("Tear-down: begins"),
                          QStringLiteral("Tear-down: plug-in instances told that the application ends"),
                          QStringLiteral("Tear-down: plug-in instances destroyed"),
                          QStringLiteral("Tear-down: termination targets notified"),
                          QStringLiteral("Tear-down: configuration saved and closed"),
                          QStringLiteral("Tear-down: Qt application object deleted")}));
}

void TestZentApplication::cfgKeyIsArgumentOneBeforeItsFirstColon()
{
    WorkingDir dir(StartupCfg(APP_KEY, QString()));
    QVERIFY(dir.IsValid());
    // The pre-load list after the colon is the configuration centre's.
    CommandLine line(Args(QStringLiteral("TestApp:StartupPlugin.dll")));
    ZentApplication app;
    app.Init(line.argc(), line.argv(), false);
    QCOMPARE(app.GetActivatedMsg(), ZentOS::Create().RegisterMessage(APP_KEY));
    QCOMPARE(ErrorHandler::Instance().GetLogTracer()->GetModuleName(), APP_KEY);
    QVERIFY(ZentOS::Create().NamedLockExists(APP_KEY));
    QCOMPARE(dir.PluginEvents(), QStringList({QStringLiteral("StartupPlugin create TestApp"),
                                              QStringLiteral("StartupPlugin execute")})
                                     .join(QLatin1Char('\n')));
}

void TestZentApplication::withoutArgumentsTheCfgKeyIsEmpty()
{
    WorkingDir dir(StartupCfg(APP_KEY, QString()));
    QVERIFY(dir.IsValid());
    // Without a document argument the centre opens its default document.
    const char* savedDefault = CfgCenter::s_pDefaultCfgDoc;
    CfgCenter::s_pDefaultCfgDoc = "Xml:Cfg.xml";
    CommandLine line({QByteArrayLiteral("tst_zentapplication")});
    {
        ZentApplication app;
        app.Init(line.argc(), line.argv(), false);
        QCOMPARE(app.GetActivatedMsg(), ZentOS::Create().RegisterMessage(QString()));
        QCOMPARE(ErrorHandler::Instance().GetLogTracer()->GetModuleName(), QString());
        QVERIFY(ZentOS::Create().NamedLockExists(QString()));
        QVERIFY(!ZentOS::Create().NamedLockExists(APP_KEY));
    }
    CfgCenter::s_pDefaultCfgDoc = savedDefault;
    QVERIFY(!ZentOS::Create().NamedLockExists(QString()));
}

void TestZentApplication::firstInstanceHoldsLockAndAnswersRequests()
{
    WorkingDir dir(StartupCfg(APP_KEY, QString()));
    QVERIFY(dir.IsValid());
    CommandLine line(Args(APP_KEY));
    {
        ZentApplication app;
        QVERIFY(!ZentOS::Create().NamedLockExists(APP_KEY));
        app.Init(line.argc(), line.argv(), false);
        QVERIFY(ZentOS::Create().NamedLockExists(APP_KEY));
        QCOMPARE(ZentOS::Create().BroadcastMessage(APP_KEY, app.GetActivatedMsg()), 1L);
    }
    // The lock goes with the application; nobody answers any more.
    QVERIFY(!ZentOS::Create().NamedLockExists(APP_KEY));
    QCOMPARE(ZentOS::Create().BroadcastMessage(APP_KEY, ZentOS::Create().RegisterMessage(APP_KEY)), -1L);
}

void TestZentApplication::secondStartWithOnceHandsOverAndQuitsAfterOneSecond()
{
    WorkingDir dir(StartupCfg(APP_KEY, QStringLiteral("<Once>true</Once>") + PLUGIN_ENTRY));
    QVERIFY(dir.IsValid());
    RunningInstance first(APP_KEY, true);
    QVERIFY(first.IsListening());
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    QElapsedTimer clock;
    clock.start();
    app.Init(line.argc(), line.argv(), false);
    const QStringList requests = first.Requests();
    QCOMPARE(requests, QStringList({QString::number(app.GetActivatedMsg()) + QLatin1Char('\n')}));
    // Start-up stopped before the plug-ins.
    QCOMPARE(dir.PluginEvents(), QString());
    QCOMPARE(app.Exec(), 0);
    QVERIFY2(clock.elapsed() >= 1000 && clock.elapsed() < 3000, qPrintable(QString::number(clock.elapsed())));
    QCOMPARE(dir.PluginEvents(), QString());
}

void TestZentApplication::secondStartWithoutOnceRunsAndStillTakesTheLock()
{
    WorkingDir dir(StartupCfg(APP_KEY, QStringLiteral("<Once>false</Once>") + PLUGIN_ENTRY));
    QVERIFY(dir.IsValid());
    RunningInstance first(APP_KEY, true);
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    app.Init(line.argc(), line.argv(), false);
    QCOMPARE(first.Requests(), QStringList());
    QCOMPARE(dir.PluginEvents(),
             QStringList({QStringLiteral("StartupPlugin create TestApp\\AdditionalDlls\\Plugin\\Config"),
                          QStringLiteral("StartupPlugin execute")})
                 .join(QLatin1Char('\n')));
    // With the other instance gone, this one still holds the lock.
    first.Release();
    QVERIFY(ZentOS::Create().NamedLockExists(APP_KEY));
}

void TestZentApplication::secondStartWithoutReachableInstanceThrows()
{
    WorkingDir dir(StartupCfg(APP_KEY, PLUGIN_ENTRY));
    QVERIFY(dir.IsValid());
    RunningInstance first(APP_KEY, false);
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    try {
        app.Init(line.argc(), line.argv(), false);
        QFAIL("Init returned");
    } catch (const KVException& e) {
        QCOMPARE(
            e.GetMessage(),
            QStringLiteral("An instance of an application with the config key \"TestApp\" is already running "
                           "on this machine."));
        QCOMPARE(e.GetSourceFile(), QStringLiteral("application/zentapplication"));
        QCOMPARE(e.GetClassName(), QString());
        QCOMPARE(e.GetOperation(), QStringLiteral("main"));
        QCOMPARE(e.GetLine(), 488);
        QCOMPARE(e.GetCode(), -1);
    }
    QCOMPARE(dir.PluginEvents(), QString());
}

void TestZentApplication::serverApplicationSkipsTheSingleInstanceCheck()
{
    // The key "*" is the whole document, opened by the configuration server's own application.
    WorkingDir dir(StartupCfg(APP_KEY, QString()));
    QVERIFY(dir.IsValid());
    const QString key = QStringLiteral("*");
    RunningInstance first(key, false);
    CommandLine line(Args(key));
    ZentApplication app;
    app.Init(line.argc(), line.argv(), false);
    QVERIFY(CfgCenter::IsServer());
    first.Release();
    QVERIFY(!ZentOS::Create().NamedLockExists(key));
}

void TestZentApplication::localeSystemInAnyCaseSelectsSystemLocale_data()
{
    QTest::addColumn<QString>("value");
    QTest::newRow("lower case") << QStringLiteral("system");
    QTest::newRow("capitalised") << QStringLiteral("System");
    QTest::newRow("upper case") << QStringLiteral("SYSTEM");
    QTest::newRow("mixed case") << QStringLiteral("sYsTeM");
}

void TestZentApplication::localeSystemInAnyCaseSelectsSystemLocale()
{
    QFETCH(QString, value);
    WorkingDir dir(StartupCfg(APP_KEY, QStringLiteral("<Locale>%1</Locale>").arg(value)));
    QVERIFY(dir.IsValid());
    QLocale::setDefault(QLocale(QLocale::Swahili, QLocale::Kenya));
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    app.Init(line.argc(), line.argv(), false);
    QCOMPARE(QLocale(), QLocale::system());
}

void TestZentApplication::localeComesFromApplicationThenAdministration_data()
{
    QTest::addColumn<QString>("machine");
    QTest::addColumn<QString>("administration");
    QTest::addColumn<QString>("expected");
    QTest::newRow("application value") << QStringLiteral("<Locale>de_DE</Locale>")
                                       << QStringLiteral("<Locale>it_IT</Locale>") << QStringLiteral("de_DE");
    QTest::newRow("administration value")
        << QString() << QStringLiteral("<Locale>it_IT</Locale>") << QStringLiteral("it_IT");
    QTest::newRow("neither: system") << QString() << QString() << QLocale::system().name();
    QTest::newRow("administration says system")
        << QString() << QStringLiteral("<Locale>System</Locale>") << QLocale::system().name();
}

void TestZentApplication::localeComesFromApplicationThenAdministration()
{
    QFETCH(QString, machine);
    QFETCH(QString, administration);
    QFETCH(QString, expected);
    WorkingDir dir(StartupCfg(APP_KEY, machine, QString(), administration));
    QVERIFY(dir.IsValid());
    QLocale::setDefault(QLocale(QLocale::Swahili, QLocale::Kenya));
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    app.Init(line.argc(), line.argv(), false);
    QCOMPARE(QLocale().name(), expected);
}

void TestZentApplication::localeIsReadInTheUserViewOnceASplashWasShown()
{
    // The splash looks up the screen in the user view and leaves it selected,
    // so the application's "Locale" is then read there.
    WorkingDir dir(StartupCfg(APP_KEY, SplashStartup(0) + QStringLiteral("<Locale>de_DE</Locale>"),
                              QStringLiteral("<Locale>fr_FR</Locale>")));
    QVERIFY(dir.IsValid());
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    app.Init(line.argc(), line.argv(), false);
    QCOMPARE(QLocale().name(), QStringLiteral("fr_FR"));
}

void TestZentApplication::remoteInstanceIsReportedAndQuitIsRequested()
{
    WorkingDir dir(StartupCfg(APP_KEY, QStringLiteral("<Locale>de_DE</Locale><Language>en</Language>")));
    QVERIFY(dir.IsValid());
    CfgCenter::SetAsyncStartup(CfgCenter::ASYNC_RunningOnServer);
    CommandLine line(Args(APP_KEY));
    {
        ZentApplication app;
        app.Init(line.argc(), line.argv(), false);
        QCOMPARE(m_messages,
                 QStringList({QStringLiteral("0 An instance of an application with the config key "
                                             "\"TestApp\" is already running on the Remote Server. ")}));
        // Start-up went on after the report.
        QVERIFY(ZentOS::Create().NamedLockExists(APP_KEY));
    }
    CfgCenter::SetAsyncStartup(CfgCenter::ASYNC_Off);
}

void TestZentApplication::splashTimeoutIsKeptInMilliseconds()
{
    WorkingDir dir(StartupCfg(APP_KEY, SplashStartup(5)));
    QVERIFY(dir.IsValid());
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    const qint64 before = ZentOS::Create().GetTime();
    app.Init(line.argc(), line.argv(), false);
    const qint64 after = ZentOS::Create().GetTime();
    QCOMPARE(app.SplashShowTimeInMSec(), 5000);
    QVERIFY(app.SplashShowTime() >= before && app.SplashShowTime() <= after);
    const QList<ZentSplash*> splashes = TopLevelSplashes();
    QCOMPARE(splashes.size(), 1);
    QCOMPARE(splashes.first()->objectName(), QStringLiteral("SplashScreen_TestApp"));
    QVERIFY(splashes.first()->isVisible());
}

void TestZentApplication::splashWithoutImageIsNotShownButTimeoutIsKept()
{
    WorkingDir dir(
        StartupCfg(APP_KEY, QStringLiteral("<Startup><SplashTimeout>3</SplashTimeout></Startup>")));
    QVERIFY(dir.IsValid());
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    app.Init(line.argc(), line.argv(), false);
    QCOMPARE(app.SplashShowTimeInMSec(), 3000);
    QCOMPARE(app.SplashShowTime(), qint64(0));
    for (QWidget* widget : QApplication::topLevelWidgets())
        QVERIFY(!qobject_cast<ZentSplash*>(widget));
}

void TestZentApplication::splashIsCentredOnTheStoredScreen_data()
{
    QTest::addColumn<QString>("geometry");
    QTest::newRow("screen 7 does not exist") << QStringLiteral("7,10,10,400,300,0");
    QTest::newRow("screen 0") << QStringLiteral("0,10,10,400,300,0");
    QTest::newRow("unreadable geometry") << QStringLiteral("seven");
    QTest::newRow("no geometry") << QString();
}

void TestZentApplication::splashIsCentredOnTheStoredScreen()
{
    QFETCH(QString, geometry);
    const QString user =
        geometry.isNull()
            ? QString()
            : QStringLiteral("<GuiBase_main><Geometry>%1</Geometry></GuiBase_main>").arg(geometry);
    WorkingDir dir(StartupCfg(APP_KEY, SplashStartup(1), user));
    QVERIFY(dir.IsValid());
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    app.Init(line.argc(), line.argv(), false);
    ZentSplash* splash = TopLevelSplashes().value(0);
    QVERIFY(splash);
    // The offscreen platform has one screen: every other number means the primary one.
    const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
    QCOMPARE(splash->pos(), QPoint(area.left() + (area.width() - SPLASH_SIZE.width()) / 2,
                                   area.top() + (area.height() - SPLASH_SIZE.height()) / 2));
}

void TestZentApplication::splashOfConfigurationServerIsNamedCfgServer()
{
    WorkingDir dir(StartupCfg(APP_KEY, QStringLiteral("<CfgServer>%1</CfgServer>").arg(SplashStartup(2))));
    QVERIFY(dir.IsValid());
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    app.Init(line.argc(), line.argv(), false);
    QCOMPARE(app.SplashShowTimeInMSec(), 2000);
    ZentSplash* splash = TopLevelSplashes().value(0);
    QVERIFY(splash);
    QCOMPARE(splash->objectName(), QStringLiteral("SplashScreen_CfgServer"));
}

void TestZentApplication::splashControlsReachTheSplash()
{
    WorkingDir dir(StartupCfg(APP_KEY, SplashStartup(4)));
    QVERIFY(dir.IsValid());
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    app.Init(line.argc(), line.argv(), false);
    ZentSplash* splash = TopLevelSplashes().value(0);
    QVERIFY(splash);
    QPointer<ZentSplash> guard(splash);

    app.Write2Splash(QStringLiteral("Loading"));
    QList<QLabel*> labels = splash->findChildren<QLabel*>();
    QCOMPARE(labels.size(), 2);
    QCOMPARE(labels.last()->text(), QStringLiteral("Loading"));
    app.SplashBusy();
    auto* bar = splash->findChild<QProgressBar*>();
    QVERIFY(bar);
    QCOMPARE(bar->maximum(), 0);
    app.SplashShowQuitButton(QString());
    auto* button = splash->findChild<QPushButton*>();
    QVERIFY(button);
    QCOMPARE(button->text(), QStringLiteral("QUIT"));
    QWidget other;
    other.show();
    app.RaiseSplash();
    QCOMPARE(QApplication::topLevelWidgets().contains(splash), true);

    app.HideSplash();
    QVERIFY(guard.isNull());
    QCOMPARE(app.SplashShowTime(), qint64(0));
    QCOMPARE(app.SplashShowTimeInMSec(), 0);
}

void TestZentApplication::splashControlsWithoutSplashDoNothing()
{
    WorkingDir dir(StartupCfg(APP_KEY, QString()));
    QVERIFY(dir.IsValid());
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    app.Init(line.argc(), line.argv(), false);
    const int windows = QApplication::topLevelWidgets().size();
    app.Write2Splash(QStringLiteral("Loading"));
    app.SplashBusy();
    app.SplashShowQuitButton(QStringLiteral("Stop"));
    app.RaiseSplash();
    app.HideSplash();
    QCOMPARE(QApplication::topLevelWidgets().size(), windows);
    QCOMPARE(app.SplashShowTime(), qint64(0));
}

void TestZentApplication::windowIconComesFromProductIcon_data()
{
    QTest::addColumn<QString>("startup");
    QTest::addColumn<bool>("hasIcon");
    QTest::newRow("icon 0") << QStringLiteral("<Startup><ProductIcon>0</ProductIcon></Startup>") << true;
    QTest::newRow("unknown icon falls back to icon 0")
        << QStringLiteral("<Startup><ProductIcon>4711</ProductIcon></Startup>") << true;
    QTest::newRow("no Startup: no icon") << QString() << false;
}

void TestZentApplication::windowIconComesFromProductIcon()
{
    QFETCH(QString, startup);
    QFETCH(bool, hasIcon);
    WorkingDir dir(StartupCfg(APP_KEY, startup));
    QVERIFY(dir.IsValid());
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    app.Init(line.argc(), line.argv(), false);
    QCOMPARE(!QApplication::windowIcon().isNull(), hasIcon);
    if (hasIcon)
        QCOMPARE(QApplication::windowIcon().pixmap(16).toImage(),
                 ZentOS::Create().GetIcon(0).pixmap(16).toImage());
}

void TestZentApplication::tearDownEndsPluginsBeforeDestroyingThem()
{
    WorkingDir dir(StartupCfg(APP_KEY, QStringLiteral("<AdditionalDlls>"
                                                      "<A><FileName>StartupPlugin.dll</FileName></A>"
                                                      "<B><FileName>FolderPane.dll</FileName></B>"
                                                      "</AdditionalDlls>")));
    QVERIFY(dir.IsValid());
    CommandLine line(Args(APP_KEY));
    RecordingTarget target;
    {
        ZentApplication app;
        app.Init(line.argc(), line.argv(), false);
    }
    QCOMPARE(target.m_nCalls, 1);
    QCOMPARE(dir.PluginEvents(),
             QStringList({QStringLiteral("StartupPlugin create TestApp\\AdditionalDlls\\A\\Config"),
                          QStringLiteral("FolderPane create TestApp\\AdditionalDlls\\B\\Config"),
                          QStringLiteral("StartupPlugin execute"), QStringLiteral("FolderPane execute"),
                          QStringLiteral("StartupPlugin ends"), QStringLiteral("FolderPane ends"),
                          QStringLiteral("StartupPlugin destroy"), QStringLiteral("FolderPane destroy")})
                 .join(QLatin1Char('\n')));
    QVERIFY(!ZentOS::Create().NamedLockExists(APP_KEY));
    QVERIFY_EXCEPTION_THROWN(CfgCenter::GetAppCfg(), KVException);
    // Cfg.xml was saved: the document carries the machine's name now.
    QFile saved(dir.Path() + QStringLiteral("/Cfg.xml"));
    QVERIFY(saved.open(QIODevice::ReadOnly));
    QVERIFY(saved.readAll().contains("<name"));
}

void TestZentApplication::checkListOfAdditonalDllsAcceptsTheConfiguredList_data()
{
    QTest::addColumn<QStringList>("dlls");
    QTest::newRow("the same list") << QStringList({QStringLiteral("A.dll"), QStringLiteral("B.dll")});
    QTest::newRow("extra entries are ignored")
        << QStringList({QStringLiteral("A.dll"), QStringLiteral("B.dll"), QStringLiteral("C.dll")});
}

void TestZentApplication::checkListOfAdditonalDllsAcceptsTheConfiguredList()
{
    QFETCH(QStringList, dlls);
    WorkingDir dir(StartupCfg(APP_KEY, SUSPENDED_A_AND_B));
    QVERIFY(dir.IsValid());
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    app.Init(line.argc(), line.argv(), false);
    ZentApplication::CheckListOfAdditonalDlls(dlls);
    QCOMPARE(CfgCenter::GetAppCfg().GetKey(), APP_KEY);
}

void TestZentApplication::checkListOfAdditonalDllsThrowsOnADifference()
{
    WorkingDir dir(StartupCfg(APP_KEY, SUSPENDED_A_AND_B));
    QVERIFY(dir.IsValid());
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    app.Init(line.argc(), line.argv(), false);
    const QList<QStringList> lists{{QStringLiteral("A.dll"), QStringLiteral("X.dll")},
                                   {QStringLiteral("A.dll")},
                                   {QStringLiteral("a.dll"), QStringLiteral("B.dll")}};
    for (const QStringList& dlls : lists) {
        try {
            ZentApplication::CheckListOfAdditonalDlls(dlls);
            QFAIL(qPrintable(dlls.join(QLatin1Char(',')) + QStringLiteral(" accepted")));
        } catch (const KVException& e) {
            QCOMPARE(
                e.GetMessage(),
                QStringLiteral("Unexpected content in document Cfg.xml and key TestApp\\AdditionalDlls"));
            QCOMPARE(e.GetSourceFile(), QStringLiteral("application/zentapplication"));
            QCOMPARE(e.GetClassName(), QStringLiteral("ZentApplication"));
            QCOMPARE(e.GetOperation(), QStringLiteral("CheckListOfAdditonalDlls"));
            QCOMPARE(e.GetLine(), 156);
        }
    }
}

void TestZentApplication::initWithFixedAppKeyInsertsProgramAndKey()
{
    // Argument 0 and the fixed key without a separator: "prog" and "Key" make "progKey".
    WorkingDir dir(StartupCfg(QStringLiteral("progKey"), PLUGIN_ENTRY));
    QVERIFY(dir.IsValid());
    QByteArray program("prog");
    QByteArray document("Xml:Cfg.xml");
    char* argv[] = {program.data(), document.data(), nullptr};
    ZentApplication app;
    app.Init("Key", 2, argv, false);
    QCOMPARE(app.Arguments(),
             QStringList({QStringLiteral("prog"), QStringLiteral("progKey"), QStringLiteral("Xml:Cfg.xml")}));
    QCOMPARE(app.Argc(), 3);
    QCOMPARE(QByteArray(app.Argv()[1]), QByteArray("progKey"));
    QCOMPARE(app.GetActivatedMsg(), ZentOS::Create().RegisterMessage(QStringLiteral("progKey")));
    QCOMPARE(CfgCenter::GetAppCfg().GetKey(), QStringLiteral("progKey"));
    QCOMPARE(dir.PluginEvents(),
             QStringLiteral(
                 "StartupPlugin create progKey\\AdditionalDlls\\Plugin\\Config\nStartupPlugin execute"));
    // The caller's vector is untouched.
    QCOMPARE(QByteArray(argv[1]), QByteArray("Xml:Cfg.xml"));
}

void TestZentApplication::initWithAppKeyAndCfgDocBuildsTheCommandLine()
{
    WorkingDir dir(StartupCfg(APP_KEY, QString()));
    QVERIFY(dir.IsValid());
    ZentApplication app;
    app.Init("TestApp", "Xml:Cfg.xml", false);
    QCOMPARE(app.Arguments(),
             QStringList({QStringLiteral("zent"), QStringLiteral("TestApp"), QStringLiteral("Xml:Cfg.xml")}));
    QCOMPARE(app.Argc(), 3);
    QCOMPARE(app.GetActivatedMsg(), ZentOS::Create().RegisterMessage(APP_KEY));
    QCOMPARE(CfgCenter::GetAppCfg().GetKey(), APP_KEY);
}

void TestZentApplication::initUnicodeOnlyKeepsThePointer()
{
    unsigned short first[] = {'a', 0};
    unsigned short* argv[] = {first, nullptr};
    ZentApplication app;
    app.InitUnicode(argv);
    QCOMPARE(app.UnicodeArgv(), static_cast<unsigned short**>(argv));
    QCOMPARE(QCoreApplication::instance(), nullptr);
}

void TestZentApplication::execReturnsTheLoopResultAndQuitEndsIt()
{
    WorkingDir dir(StartupCfg(APP_KEY, QString()));
    QVERIFY(dir.IsValid());
    CommandLine line(Args(APP_KEY));
    ZentApplication app;
    app.Init(line.argc(), line.argv(), false);
    QTimer::singleShot(0, [] { QCoreApplication::exit(7); });
    QCOMPARE(app.Exec(), 7);
    QTimer::singleShot(0, [&app] { app.Quit(); });
    QCOMPARE(app.Exec(), 0);
}

void TestZentApplication::copiesShareTheParts()
{
    ZentApplication app;
    ZentApplication copy(app);
    QCOMPARE(ZentApplication::Get(), &app);
    QCOMPARE(copy.GetActivatedMsg(), app.GetActivatedMsg());
    ZentApplication assigned;
    assigned = app;
    QCOMPARE(ZentApplication::Get(), &assigned);
    QCOMPARE(assigned.Argc(), 0);
}

int main(int argc, char** argv)
{
    // No application object here: each test's ZentApplication makes its own.
    TestZentApplication test;
    return RunEachTestInItsOwnProcess(test, argc, argv);
}

#include "tst_zentapplication.moc"
