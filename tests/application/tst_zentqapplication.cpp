// The Qt application object as ZentApplication::Init makes it: its names and
// settings, the commit forwarding and the three watched events with their
// Linux sources (bring-to-front channel, clock and time-zone watch, keys).
// One application runs for the whole test, as in a real process.
#include "application/applicationterminationcenter.h"
#include "application/iabstractterminationtarget.h"
#include "application/zentapplication.h"
#include "application/zentqapplication.h"
#include "configuration/cfgcenter.h"
#include "configuration/dlldescriptor.h"
#include "kvbase/errorhandler.h"
#include "kvbase/zentos.h"
#include "zentapplication/startuptestsupport.h"

#include <QDialog>
#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QSessionManager>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>
#include <QWidget>
#include <QWindow>
#include <algorithm>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace {

const QString APP_KEY = QStringLiteral("QAppTest");
constexpr unsigned int ERROR_MOD_NOT_FOUND = 126;

/// The system as the test wants it: the clock-change notifier is a pipe the
/// test writes to, the time-zone file lies in the test's folder, and loading
/// "FolderPane.dll" can be made to fail.
class TestOS : public ZentOS
{
public:
    explicit TestOS(const QString& timeZoneFile) : m_sTimeZoneFile(timeZoneFile) {}

    int OpenClockChangeNotifier() override
    {
        if (::pipe2(m_pipe, O_NONBLOCK | O_CLOEXEC) != 0)
            return -1;
        return m_pipe[0];
    }
    bool AcknowledgeClockChange(int descriptor) override
    {
        char byte = 0;
        return ::read(descriptor, &byte, 1) == 1;
    }
    void CloseClockChangeNotifier(int descriptor) override
    {
        ::close(descriptor);
        ::close(m_pipe[1]);
    }
    QString GetTimeZoneFile() const override { return m_sTimeZoneFile; }

    void* LoadLibrary(const QString& fileName) override
    {
        if (m_bFailFolderPane && fileName == QLatin1String("FolderPane.dll")) {
            m_bFailed = true;
            return nullptr;
        }
        m_bFailed = false;
        return ZentOS::LoadLibrary(fileName);
    }
    unsigned long GetLastError() const override
    {
        return m_bFailed ? ERROR_MOD_NOT_FOUND : ZentOS::GetLastError();
    }

    /// Tells the application that the clock was set.
    bool SetClock() { return ::write(m_pipe[1], "x", 1) == 1; }

    bool m_bFailFolderPane = false;

private:
    QString m_sTimeZoneFile;
    int m_pipe[2] = {-1, -1};
    bool m_bFailed = false;
};

bool WriteZoneFile(const QString& path, const QByteArray& bytes)
{
    return QDir().mkpath(QFileInfo(path).absolutePath()) && WriteFile(path, bytes);
}

class RecordingTarget : public IAbstractTerminationTarget
{
public:
    void aboutToTerminate() override { ++m_nCalls; }
    int m_nCalls = 0;
};

/// The process's fixture: a working directory with Cfg.xml and the time-zone
/// file, a private runtime directory, and the plug-in log.
struct Fixture
{
    QTemporaryDir dir;
    QString previousDir = QDir::currentPath();
    QByteArray previousRuntimeDir = qgetenv("XDG_RUNTIME_DIR");
    QByteArray previousPluginLog = qgetenv("ZENT_TEST_PLUGIN_LOG");
    bool valid = false;

    Fixture()
    {
        valid = dir.isValid() && QDir(dir.path()).mkdir(QStringLiteral("runtime")) &&
                QFile::setPermissions(RuntimeDir(), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                        QFileDevice::ExeOwner) &&
                QDir::setCurrent(dir.path()) &&
                WriteFile(QStringLiteral("Cfg.xml"),
                          StartupCfg(APP_KEY, QStringLiteral("<AdditionalDlls><Plugin>"
                                                             "<FileName>StartupPlugin.dll</FileName>"
                                                             "</Plugin></AdditionalDlls>"))) &&
                WriteZoneFile(TimeZoneFile(), QByteArrayLiteral("TZif zone A"));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(RuntimeDir()));
        qputenv("ZENT_TEST_PLUGIN_LOG", QFile::encodeName(PluginLog()));
    }
    ~Fixture()
    {
        QDir::setCurrent(previousDir);
        qputenv("XDG_RUNTIME_DIR", previousRuntimeDir);
        qputenv("ZENT_TEST_PLUGIN_LOG", previousPluginLog);
    }
    QString RuntimeDir() const { return dir.filePath(QStringLiteral("runtime")); }
    QString TimeZoneFile() const { return dir.filePath(QStringLiteral("zoneinfo/localtime")); }
    QString PluginLog() const { return dir.filePath(QStringLiteral("plugin.log")); }
};

/// As when the user has switched to another application. Shown windows ask
/// for activation later, so pending events go first.
bool NoActiveWindow()
{
    QTest::qWait(50);
    QApplication::setActiveWindow(nullptr);
    return QApplication::activeWindow() == nullptr;
}

/// A new top-level window, minimised while no window is active, as a request
/// to bring the application to the front finds it; null when it does not get there.
QWidget* MinimisedWindowWhileNoneIsActive()
{
    auto* window = new QWidget;
    window->showMinimized();
    const bool minimised = QTest::qWaitFor([window] { return window->isMinimized(); });
    return minimised && NoActiveWindow() ? window : nullptr;
}

/// A new top-level window, shown and active; null when it does not become active.
QWidget* ActiveWindow()
{
    auto* window = new QWidget;
    window->show();
    window->activateWindow();
    return QTest::qWaitForWindowActive(window) ? window : nullptr;
}

void SendKey(QWindow* window, bool press, Qt::Key key)
{
    if (press)
        QTest::keyPress(window, key);
    else
        QTest::keyRelease(window, key);
}

} // namespace

class TestZentQApplication : public QObject
{
    Q_OBJECT

public:
    TestZentQApplication(ZentApplication& app, TestOS& os, const Fixture& fixture)
        : m_app(app), m_os(os), m_fixture(fixture)
    {
    }

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void constructorNamesOrganisationAndApplication();
    void argumentsAreKeptAfterQtTookItsOptions();
    void closingTheLastWindowLeavesTheLoopRunning();
    void bringToFrontWithAnActiveWindowChangesNothingButIsConsumed();
    void bringToFrontActivatesAndRestoresAMinimisedWindow();
    void bringToFrontLeavesWindowsWithAParentAlone();
    void bringToFrontFromAnotherThreadIsNotHandled();
    void bringToFrontRequestArrivesOnTheChannel();
    void channelPassesOnlyRegisteredMessages();
    void channelIsPrivateToTheUser();
    void liveChannelOfAnotherInstanceIsKept();
    void leftoverChannelFileIsReplaced();
    void timeChangeMessageEmitsTheSignal();
    void settingTheClockEmitsTheSignal();
    void changedTimeZoneFileEmitsTheSignal();
    void platformClockNotifierIsArmed();
    void failingFolderPaneIsReported();
    void controlShiftAltF12OpensFolderPaneOnceAndReusesIt();
    void f12WithOnlyControlAndShiftDoesNothing();
    void f12AfterAltWasReleasedDoesNothing();
    void keyMessagesInWindowsNumbering();
    void commitDataRequestReachesTheApplication();

private:
    ZentQApplication* QApp() const { return qobject_cast<ZentQApplication*>(qApp); }
    QString PluginEvents() const { return ReadLines(m_fixture.PluginLog()).join(QLatin1Char('\n')); }
    void PressCombination(QWindow* window, const QList<Qt::Key>& modifiers);

    ZentApplication& m_app;
    TestOS& m_os;
    const Fixture& m_fixture;
    QStringList m_messages;
};

void TestZentQApplication::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY2(m_fixture.valid, qPrintable(m_fixture.dir.errorString()));
    QVERIFY(QApp());
    QVERIFY(m_app.GetActivatedMsg() >= 0xC000u);
}

void TestZentQApplication::init()
{
    m_messages.clear();
    ErrorHandler::Instance().SetMessagePresenter([this](ErrorHandler::MessageKind kind, const QString& text) {
        m_messages << QString::number(kind) + QLatin1Char(' ') + text;
    });
}

void TestZentQApplication::cleanup()
{
    ErrorHandler::Instance().SetMessagePresenter(ErrorHandler::MessagePresenter());
    for (QWidget* window : QApplication::topLevelWidgets()) {
        if (!window->parentWidget())
            window->deleteLater();
    }
    QTest::qWait(10);
    QApplication::setActiveWindow(nullptr);
}

void TestZentQApplication::constructorNamesOrganisationAndApplication()
{
    QCOMPARE(QCoreApplication::organizationName(), QStringLiteral("Velkor-Amsel"));
    QCOMPARE(QCoreApplication::applicationName(), QStringLiteral("TALVO"));
    QCOMPARE(QGuiApplication::quitOnLastWindowClosed(), false);
}

void TestZentQApplication::argumentsAreKeptAfterQtTookItsOptions()
{
    // "-reverse" was Qt's: it is gone from the vector and in effect.
    QCOMPARE(QApp()->argc(), 3);
    QCOMPARE(m_app.Argc(), 3);
    QCOMPARE(QByteArray(QApp()->argv()[1]), QByteArrayLiteral("QAppTest"));
    QCOMPARE(QByteArray(m_app.Argv()[2]), QByteArrayLiteral("Xml:Cfg.xml"));
    QCOMPARE(QGuiApplication::layoutDirection(), Qt::RightToLeft);
}

void TestZentQApplication::closingTheLastWindowLeavesTheLoopRunning()
{
    auto* window = new QWidget;
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window));
    bool runningAfterClose = false;
    QTimer::singleShot(0, window, &QWidget::close);
    QTimer::singleShot(300, [&runningAfterClose] {
        runningAfterClose = true;
        QCoreApplication::exit(5);
    });
    QCOMPARE(QCoreApplication::exec(), 5);
    QVERIFY(runningAfterClose);
    QVERIFY(!window->isVisible());
}

void TestZentQApplication::bringToFrontWithAnActiveWindowChangesNothingButIsConsumed()
{
    auto* minimised = new QWidget;
    minimised->showMinimized();
    QTRY_VERIFY(minimised->isMinimized());
    QWidget* active = ActiveWindow();
    QVERIFY(active);
    QTest::qWait(50);
    QCOMPARE(QApplication::activeWindow(), active);
    QVERIFY(QApp()->HandleMessage(m_app.GetActivatedMsg(), 0));
    QTest::qWait(100);
    QCOMPARE(QApplication::activeWindow(), active);
    QVERIFY(minimised->isMinimized());
}

void TestZentQApplication::bringToFrontActivatesAndRestoresAMinimisedWindow()
{
    auto* window = new QWidget;
    window->setObjectName(QStringLiteral("Main"));
    window->showMinimized();
    QTRY_VERIFY(window->isMinimized());
    QVERIFY(NoActiveWindow());
    QVERIFY(QApp()->HandleMessage(m_app.GetActivatedMsg(), 0));
    QVERIFY(!window->isMinimized());
    QVERIFY(window->isVisible());
    // Restored without taking the focus itself: the attribute was only lent.
    QVERIFY(!window->testAttribute(Qt::WA_ShowWithoutActivating));
}

void TestZentQApplication::bringToFrontLeavesWindowsWithAParentAlone()
{
    auto* window = new QWidget;
    window->showMinimized();
    auto* dialog = new QDialog(window);
    dialog->showMinimized();
    QTRY_VERIFY(dialog->isMinimized());
    QVERIFY(QApplication::topLevelWidgets().contains(dialog));
    QVERIFY(NoActiveWindow());
    QVERIFY(QApp()->HandleMessage(m_app.GetActivatedMsg(), 0));
    QVERIFY(!window->isMinimized());
    QVERIFY(dialog->isMinimized());
}

void TestZentQApplication::bringToFrontFromAnotherThreadIsNotHandled()
{
    QWidget* window = MinimisedWindowWhileNoneIsActive();
    QVERIFY(window);
    bool consumed = true;
    const unsigned int message = m_app.GetActivatedMsg();
    // std::thread, so that ThreadSanitizer sees the join.
    std::thread thread([this, message, &consumed] { consumed = QApp()->HandleMessage(message, 0); });
    thread.join();
    QCOMPARE(consumed, false);
    QVERIFY(window->isMinimized());
}

void TestZentQApplication::bringToFrontRequestArrivesOnTheChannel()
{
    QWidget* window = MinimisedWindowWhileNoneIsActive();
    QVERIFY(window);
    QCOMPARE(ZentOS::Create().BroadcastMessage(APP_KEY, m_app.GetActivatedMsg()), 1L);
    QTRY_VERIFY(!window->isMinimized());
}

void TestZentQApplication::channelPassesOnlyRegisteredMessages()
{
    QWidget* window = MinimisedWindowWhileNoneIsActive();
    QVERIFY(window);
    QSignalSpy timeChanges(QApp(), &ZentQApplication::signalRereadTimeZoneOffset);
    const QList<QByteArray> requests{QByteArrayLiteral("30\n"), QByteArrayLiteral("257\n"),
                                     QByteArrayLiteral("no number\n"), QByteArray(200, '7') + '\n',
                                     QByteArray::number(m_app.GetActivatedMsg() + 1) + '\n'};
    for (const QByteArray& request : requests) {
        QLocalSocket socket;
        socket.connectToServer(ZentOS::Create().GetMessageChannel(APP_KEY));
        QVERIFY(socket.waitForConnected(1000));
        socket.write(request);
        QVERIFY(socket.waitForBytesWritten(1000));
        socket.disconnectFromServer();
    }
    QTest::qWait(300);
    QCOMPARE(timeChanges.count(), 0);
    QVERIFY(window->isMinimized());
    QVERIFY(NoActiveWindow());
    QCOMPARE(ZentOS::Create().BroadcastMessage(APP_KEY, m_app.GetActivatedMsg()), 1L);
    QTRY_VERIFY(!window->isMinimized());
}

void TestZentQApplication::channelIsPrivateToTheUser()
{
    // The channel lies in the user's private runtime directory, its name
    // carries the user id, and nobody else may write to (connect to) it.
    const QFileInfo channel(ZentOS::Create().GetMessageChannel(APP_KEY));
    QVERIFY(channel.exists());
    QCOMPARE(channel.absolutePath(), QFileInfo(m_fixture.RuntimeDir()).absoluteFilePath());
    QVERIFY(channel.fileName().endsWith(QStringLiteral("-%1.sock").arg(::getuid())));
    QCOMPARE(channel.permissions() & (QFileDevice::WriteGroup | QFileDevice::WriteOther),
             QFileDevice::Permissions());
    const QFileDevice::Permissions others = QFileDevice::ReadGroup | QFileDevice::WriteGroup |
                                            QFileDevice::ExeGroup | QFileDevice::ReadOther |
                                            QFileDevice::WriteOther | QFileDevice::ExeOther;
    QCOMPARE(QFileInfo(m_fixture.RuntimeDir()).permissions() & others, QFileDevice::Permissions());
}

void TestZentQApplication::liveChannelOfAnotherInstanceIsKept()
{
    const QString other = QStringLiteral("OtherApp");
    QLocalServer running;
    QVERIFY(running.listen(ZentOS::Create().GetMessageChannel(other)));
    QCOMPARE(QApp()->ListenForActivation(other), false);
    QVERIFY(running.isListening());
    // This application's own channel is still in use.
    QWidget* window = MinimisedWindowWhileNoneIsActive();
    QVERIFY(window);
    QCOMPARE(ZentOS::Create().BroadcastMessage(APP_KEY, m_app.GetActivatedMsg()), 1L);
    QTRY_VERIFY(!window->isMinimized());
}

void TestZentQApplication::leftoverChannelFileIsReplaced()
{
    const QString stale = QStringLiteral("StaleApp");
    QVERIFY(WriteFile(ZentOS::Create().GetMessageChannel(stale), QByteArrayLiteral("left by a crash")));
    QVERIFY(QApp()->ListenForActivation(stale));
    QWidget* window = MinimisedWindowWhileNoneIsActive();
    QVERIFY(window);
    QCOMPARE(ZentOS::Create().BroadcastMessage(stale, m_app.GetActivatedMsg()), 1L);
    QTRY_VERIFY(!window->isMinimized());
    QVERIFY(QApp()->ListenForActivation(APP_KEY));
}

void TestZentQApplication::timeChangeMessageEmitsTheSignal()
{
    QSignalSpy timeChanges(QApp(), &ZentQApplication::signalRereadTimeZoneOffset);
    QCOMPARE(QApp()->HandleMessage(ZentQApplication::MSG_TimeChange, 0), false);
    QCOMPARE(timeChanges.count(), 1);
}

void TestZentQApplication::settingTheClockEmitsTheSignal()
{
    QSignalSpy timeChanges(QApp(), &ZentQApplication::signalRereadTimeZoneOffset);
    QVERIFY(m_os.SetClock());
    QTRY_COMPARE(timeChanges.count(), 1);
    QVERIFY(m_os.SetClock());
    QTRY_COMPARE(timeChanges.count(), 2);
}

void TestZentQApplication::changedTimeZoneFileEmitsTheSignal()
{
    QSignalSpy timeChanges(QApp(), &ZentQApplication::signalRereadTimeZoneOffset);
    const QString zone = m_fixture.TimeZoneFile();
    QVERIFY(WriteZoneFile(zone, QByteArrayLiteral("TZif zone B")));
    QTRY_COMPARE(timeChanges.count(), 1);

    // Tools put a new zone in place by a rename, which ends a watch on the file.
    const QString next = zone + QStringLiteral(".new");
    QVERIFY(WriteZoneFile(next, QByteArrayLiteral("TZif zone C")));
    QVERIFY(::rename(QFile::encodeName(next).constData(), QFile::encodeName(zone).constData()) == 0);
    QTRY_COMPARE(timeChanges.count(), 2);
    QVERIFY(WriteZoneFile(zone, QByteArrayLiteral("TZif zone D")));
    QTRY_COMPARE(timeChanges.count(), 3);

    // Other files of the folder and an unchanged zone are no change.
    QVERIFY(WriteZoneFile(QFileInfo(zone).absolutePath() + QStringLiteral("/other"), QByteArrayLiteral("x")));
    QVERIFY(WriteZoneFile(zone, QByteArrayLiteral("TZif zone D")));
    QTest::qWait(500);
    QCOMPARE(timeChanges.count(), 3);
}

void TestZentQApplication::platformClockNotifierIsArmed()
{
    ZentOS& platform = m_os;
    const int descriptor = platform.ZentOS::OpenClockChangeNotifier();
    QVERIFY(descriptor >= 0);
    // Nobody set the clock: nothing to acknowledge, and the timer stays armed.
    QCOMPARE(platform.ZentOS::AcknowledgeClockChange(descriptor), false);
    QCOMPARE(platform.ZentOS::AcknowledgeClockChange(descriptor), false);
    platform.ZentOS::CloseClockChangeNotifier(descriptor);
    QCOMPARE(platform.ZentOS::GetTimeZoneFile(), QStringLiteral("/etc/localtime"));
}

void TestZentQApplication::PressCombination(QWindow* window, const QList<Qt::Key>& modifiers)
{
    for (Qt::Key key : modifiers)
        SendKey(window, true, key);
    SendKey(window, true, Qt::Key_F12);
    SendKey(window, false, Qt::Key_F12);
    for (auto it = modifiers.crbegin(); it != modifiers.crend(); ++it)
        SendKey(window, false, *it);
}

void TestZentQApplication::failingFolderPaneIsReported()
{
    m_os.m_bFailFolderPane = true;
    QApp()->HandleMessage(ZentQApplication::MSG_KeyDown, ZentQApplication::KEY_Control);
    QApp()->HandleMessage(ZentQApplication::MSG_KeyDown, ZentQApplication::KEY_Shift);
    QApp()->HandleMessage(ZentQApplication::MSG_KeyDown, ZentQApplication::KEY_Alt);
    QCOMPARE(QApp()->HandleMessage(ZentQApplication::MSG_KeyUp, ZentQApplication::KEY_F12), false);
    QApp()->HandleMessage(ZentQApplication::MSG_KeyUp, ZentQApplication::KEY_Alt);
    QApp()->HandleMessage(ZentQApplication::MSG_KeyUp, ZentQApplication::KEY_Shift);
    QApp()->HandleMessage(ZentQApplication::MSG_KeyUp, ZentQApplication::KEY_Control);
    m_os.m_bFailFolderPane = false;
    QCOMPARE(m_messages, QStringList({QStringLiteral(
                             "0 Received invalid Dll handle while loading FolderPane.dll. Error: 126")}));
    QCOMPARE(CfgCenter::GetDllInstanceByFileName(QStringLiteral("FolderPane.dll"), QString()), nullptr);
}

void TestZentQApplication::controlShiftAltF12OpensFolderPaneOnceAndReusesIt()
{
    QWidget* window = ActiveWindow();
    QVERIFY(window);
    const QString before = PluginEvents();
    PressCombination(window->windowHandle(), {Qt::Key_Control, Qt::Key_Shift, Qt::Key_Alt});
    // Made after start-up, the instance runs once at its creation and once for the key.
    QCOMPARE(PluginEvents(),
             before + QStringLiteral("\nFolderPane create \nFolderPane execute\nFolderPane execute"));
    IDllInstance* instance = CfgCenter::GetDllInstanceByFileName(QStringLiteral("FolderPane.dll"), QString());
    QVERIFY(instance);
    // Created with two zero arguments: not by the centre, and loaded as usual.
    const CfgCenter::DllInstanceList* instances = CfgCenter::GetDllInstanceList();
    QVERIFY(instances);
    const auto descriptor =
        std::find_if(instances->begin(), instances->end(),
                     [instance](const DllInstanceDescriptor* d) { return d->GetInstance() == instance; });
    QVERIFY(descriptor != instances->end());
    QCOMPARE((*descriptor)->IsCreatedByCenter(), false);
    QCOMPARE((*descriptor)->GetInstanceKey(), QString());

    PressCombination(window->windowHandle(), {Qt::Key_Alt, Qt::Key_Shift, Qt::Key_Control});
    QCOMPARE(PluginEvents(),
             before + QStringLiteral("\nFolderPane create \nFolderPane execute\nFolderPane execute"
                                     "\nFolderPane execute"));
    QCOMPARE(CfgCenter::GetDllInstanceByFileName(QStringLiteral("FolderPane.dll"), QString()), instance);
    QCOMPARE(m_messages, QStringList());
}

void TestZentQApplication::f12WithOnlyControlAndShiftDoesNothing()
{
    QWidget* window = ActiveWindow();
    QVERIFY(window);
    const QString before = PluginEvents();
    PressCombination(window->windowHandle(), {Qt::Key_Control, Qt::Key_Shift});
    PressCombination(window->windowHandle(), {Qt::Key_Alt, Qt::Key_Shift});
    PressCombination(window->windowHandle(), {});
    QCOMPARE(PluginEvents(), before);
}

void TestZentQApplication::f12AfterAltWasReleasedDoesNothing()
{
    QWidget* window = ActiveWindow();
    QVERIFY(window);
    const QString before = PluginEvents();
    QWindow* handle = window->windowHandle();
    SendKey(handle, true, Qt::Key_Control);
    SendKey(handle, true, Qt::Key_Shift);
    SendKey(handle, true, Qt::Key_Alt);
    SendKey(handle, false, Qt::Key_Alt);
    SendKey(handle, true, Qt::Key_F12);
    SendKey(handle, false, Qt::Key_F12);
    SendKey(handle, false, Qt::Key_Shift);
    SendKey(handle, false, Qt::Key_Control);
    QCOMPARE(PluginEvents(), before);
}

void TestZentQApplication::keyMessagesInWindowsNumbering()
{
    const QString before = PluginEvents();
    for (unsigned int key :
         {ZentQApplication::KEY_Shift, ZentQApplication::KEY_Control, ZentQApplication::KEY_Alt})
        QCOMPARE(QApp()->HandleMessage(ZentQApplication::MSG_KeyDown, key), false);
    QCOMPARE(QApp()->HandleMessage(ZentQApplication::MSG_KeyUp, ZentQApplication::KEY_F12), false);
    QCOMPARE(PluginEvents(), before + QStringLiteral("\nFolderPane execute"));
    for (unsigned int key :
         {ZentQApplication::KEY_Shift, ZentQApplication::KEY_Control, ZentQApplication::KEY_Alt})
        QApp()->HandleMessage(ZentQApplication::MSG_KeyUp, key);
    QApp()->HandleMessage(ZentQApplication::MSG_KeyUp, ZentQApplication::KEY_F12);
    QCOMPARE(PluginEvents(), before + QStringLiteral("\nFolderPane execute"));
}

void TestZentQApplication::commitDataRequestReachesTheApplication()
{
    // Runs last: a commit happens once per process.
    auto* manager = qApp->findChild<QSessionManager*>();
    if (!manager)
        QSKIP("This Qt has no session manager object");
    RecordingTarget target;
    const QString before = PluginEvents();
    const bool folderPaneOpen =
        CfgCenter::GetDllInstanceByFileName(QStringLiteral("FolderPane.dll"), QString()) != nullptr;
    QVERIFY(!CfgCenter::DataCommitted());
    emit QApp()->commitDataRequest(*manager);
    QVERIFY(CfgCenter::DataCommitted());
    QCOMPARE(target.m_nCalls, 1);
    // Every plug-in instance commits, in the order of creation.
    // The folder pane (opened by the key tests) commits too, and its creator
    // destroys it when the application is told that it ends.
    QCOMPARE(PluginEvents(),
             before + QStringLiteral("\nStartupPlugin commit") +
                 (folderPaneOpen ? QStringLiteral("\nFolderPane commit\nFolderPane destroy") : QString()));
    QCOMPARE(CfgCenter::GetDllInstanceByFileName(QStringLiteral("FolderPane.dll"), QString()), nullptr);
}

int main(int argc, char** argv)
{
    QStandardPaths::setTestModeEnabled(true);
    Fixture fixture;
    TestOS os(fixture.TimeZoneFile());
    ZentOS::SetInstance(&os);
    int result = 1;
    {
        CommandLine line({QByteArrayLiteral("tst_zentqapplication"), QByteArrayLiteral("-reverse"),
                          APP_KEY.toLatin1(), QByteArrayLiteral("Xml:Cfg.xml")});
        ZentApplication app;
        app.Init(line.argc(), line.argv(), false);
        TestZentQApplication test(app, os, fixture);
        result = QTest::qExec(&test, argc, argv);
    }
    ZentOS::SetInstance(nullptr);
    return result;
}

#include "tst_zentqapplication.moc"
