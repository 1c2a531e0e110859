// One instance per application and user, with real processes: every
// instance is the helper program zentapphelper, which runs the start-up on
// its command line and reports on standard output.
#include "kvbase/zentos.h"
#include "zentapplication/startuptestsupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <sys/file.h>
#include <unistd.h>

namespace {

const QString APP_KEY = QStringLiteral("InstanceApp");
const QString PLUGIN_ENTRY = QStringLiteral("<AdditionalDlls>"
                                            "<Plugin><FileName>StartupPlugin.dll</FileName></Plugin>"
                                            "</AdditionalDlls>");
/// What the plug-in of PLUGIN_ENTRY logs when nothing after its end runs.
const QString EVENTS_UP_TO_THE_END =
    QStringLiteral("StartupPlugin create InstanceApp\\AdditionalDlls\\Plugin\\Config\n"
                   "StartupPlugin execute\nStartupPlugin ends");
constexpr int START_TIMEOUT_MS = 20000;

QString HelperProgram()
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/zentapphelper");
}

/// One helper process with its own plug-in log; its output is collected line by line.
class Instance
{
public:
    Instance(const QString& workDir, const QString& name) : m_sLog(workDir + QLatin1Char('/') + name + ".log")
    {
        m_process.setWorkingDirectory(workDir);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        environment.insert(QStringLiteral("ZENT_TEST_PLUGIN_LOG"), m_sLog);
        m_process.setProcessEnvironment(environment);
        QObject::connect(&m_process, &QProcess::readyReadStandardOutput,
                         [this] { m_output += QString::fromUtf8(m_process.readAllStandardOutput()); });
    }
    ~Instance()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }

    void SetEnvironment(const QString& name, const QString& value)
    {
        QProcessEnvironment environment = m_process.processEnvironment();
        environment.insert(name, value);
        m_process.setProcessEnvironment(environment);
    }
    void Start(const QStringList& arguments, const QString& program = HelperProgram())
    {
        m_clock.start();
        m_process.start(program, arguments);
    }
    void Start(const QString& appKey, const QStringList& options = QStringList())
    {
        Start(QStringList{appKey, QStringLiteral("Xml:Cfg.xml")} + options);
    }
    QStringList Lines() const { return m_output.split(QLatin1Char('\n'), Qt::SkipEmptyParts); }
    bool WaitForLine(const QString& line, int timeoutMs = START_TIMEOUT_MS)
    {
        QElapsedTimer clock;
        clock.start();
        while (!Lines().contains(line) && clock.elapsed() < timeoutMs) {
            if (m_process.state() == QProcess::NotRunning && !m_process.bytesAvailable())
                break;
            QTest::qWait(20);
        }
        return Lines().contains(line);
    }
    bool Quit()
    {
        m_process.write("quit\n");
        return WaitForEnd() && m_process.exitStatus() == QProcess::NormalExit;
    }
    bool WaitForEnd()
    {
        const bool ended =
            m_process.state() == QProcess::NotRunning || m_process.waitForFinished(START_TIMEOUT_MS);
        m_nLifeMs = m_clock.elapsed();
        m_output += QString::fromUtf8(m_process.readAllStandardOutput());
        return ended;
    }
    void Kill()
    {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
    int ExitCode() const { return m_process.exitCode(); }
    qint64 LifeMs() const { return m_nLifeMs; }
    QString Errors() { return QString::fromUtf8(m_process.readAllStandardError()); }
    QString PluginEvents() const { return ReadLines(m_sLog).join(QLatin1Char('\n')); }

private:
    QProcess m_process;
    QString m_sLog;
    QString m_output;
    QElapsedTimer m_clock;
    qint64 m_nLifeMs = 0;
};

/// Runs a program as the unprivileged user "nobody" (only possible for root).
QStringList AsNobody(const QStringList& command)
{
    return QStringList{QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                       QStringLiteral("--clear-groups")} +
           command;
}

} // namespace

class TestZentApplicationInstance : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void secondStartBringsTheFirstToTheFrontAndEnds();
    void secondStartRestoresTheMinimisedFirst();
    void withoutOnceBothInstancesRun();
    void otherApplicationsDoNotCount();
    void crashedFirstInstanceNeverBlocksANewStart();
    void channelIsTakenOverWhenItsListenerEndsWhileAnotherLives_data();
    void channelIsTakenOverWhenItsListenerEndsWhileAnotherLives();
    void anotherUserCannotActivate();
    void peerOfAnotherUserIsRecognised();
    void tearDownTracesAKVExceptionAndSkipsTheRest();
    void tearDownTracesAStandardException();
    void aSquattedRuntimeFolderLeavesTheApplicationTheSingleInstance();

private:
    bool WriteCfg(const QString& machine);
    void RunThrowingAtTheEnd(Instance& instance, const QString& kind);

    std::unique_ptr<QTemporaryDir> m_dir;
    QTemporaryDir m_runtimeDir;
    QByteArray m_savedRuntimeDir;
};

void TestZentApplicationInstance::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY2(m_runtimeDir.isValid(), qPrintable(m_runtimeDir.errorString()));
    QVERIFY2(QFileInfo::exists(HelperProgram()), qPrintable(HelperProgram()));
    // The instances find each other here, out of the user's way.
    m_savedRuntimeDir = qgetenv("XDG_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtimeDir.path()));
}

void TestZentApplicationInstance::init()
{
    m_dir.reset(new QTemporaryDir);
    QVERIFY2(m_dir->isValid(), qPrintable(m_dir->errorString()));
}

void TestZentApplicationInstance::cleanupTestCase()
{
    qputenv("XDG_RUNTIME_DIR", m_savedRuntimeDir);
}

/// Runs `instance` with the plug-in of PLUGIN_ENTRY throwing `kind` ("kv" or "std")
/// when it is told to end, and the trace on standard error, until it has quit.
void TestZentApplicationInstance::RunThrowingAtTheEnd(Instance& instance, const QString& kind)
{
    QVERIFY(WriteCfg(PLUGIN_ENTRY));
    instance.SetEnvironment(QStringLiteral("ZENT_TEST_PLUGIN_THROW"), kind);
    instance.SetEnvironment(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("zent.trace.debug=true"));
    // The skipped steps leave the centre and the Qt application behind, deliberately.
    instance.SetEnvironment(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("detect_leaks=0"));
    instance.Start(APP_KEY);
    QVERIFY2(instance.WaitForLine(QStringLiteral("init-returned")), qPrintable(instance.Errors()));
    QVERIFY(instance.Quit());
}

bool TestZentApplicationInstance::WriteCfg(const QString& machine)
{
    return WriteFile(m_dir->filePath(QStringLiteral("Cfg.xml")), StartupCfg(APP_KEY, machine));
}

void TestZentApplicationInstance::secondStartBringsTheFirstToTheFrontAndEnds()
{
    QVERIFY(WriteCfg(QStringLiteral("<Once>true</Once>") + PLUGIN_ENTRY));
    Instance first(m_dir->path(), QStringLiteral("first"));
    first.Start(APP_KEY, {QStringLiteral("--window")});
    QVERIFY2(first.WaitForLine(QStringLiteral("window-shown")), qPrintable(first.Errors()));
    QCOMPARE(first.PluginEvents(),
             QStringLiteral("StartupPlugin create InstanceApp\\AdditionalDlls\\Plugin\\Config\n"
                            "StartupPlugin execute"));

    Instance second(m_dir->path(), QStringLiteral("second"));
    second.Start(APP_KEY);
    QVERIFY(second.WaitForEnd());
    QCOMPARE(second.ExitCode(), 0);
    QCOMPARE(second.Lines(),
             QStringList({QStringLiteral("init-returned"), QStringLiteral("exec-returned 0")}));
    QVERIFY2(second.LifeMs() >= 1000, qPrintable(QString::number(second.LifeMs())));
    // The second instance ran no plug-in; it only configured them.
    QCOMPARE(second.PluginEvents(), QString());
    QVERIFY(first.WaitForLine(QStringLiteral("activated HelperWindow")));
    QVERIFY(first.Quit());
    QCOMPARE(first.ExitCode(), 0);
}

void TestZentApplicationInstance::secondStartRestoresTheMinimisedFirst()
{
    QVERIFY(WriteCfg(QString()));
    Instance first(m_dir->path(), QStringLiteral("first"));
    first.Start(APP_KEY, {QStringLiteral("--window"), QStringLiteral("--minimized")});
    QVERIFY2(first.WaitForLine(QStringLiteral("window-shown")), qPrintable(first.Errors()));
    QVERIFY(!first.Lines().contains(QStringLiteral("window-state normal")));

    Instance second(m_dir->path(), QStringLiteral("second"));
    second.Start(APP_KEY);
    QVERIFY(first.WaitForLine(QStringLiteral("window-state normal")));
    QVERIFY(second.WaitForEnd());
    QCOMPARE(second.ExitCode(), 0);
    QVERIFY(first.Quit());
}

void TestZentApplicationInstance::withoutOnceBothInstancesRun()
{
    QVERIFY(WriteCfg(QStringLiteral("<Once>false</Once>") + PLUGIN_ENTRY));
    Instance first(m_dir->path(), QStringLiteral("first"));
    first.Start(APP_KEY, {QStringLiteral("--window")});
    QVERIFY2(first.WaitForLine(QStringLiteral("window-shown")), qPrintable(first.Errors()));
    Instance second(m_dir->path(), QStringLiteral("second"));
    second.Start(APP_KEY);
    QVERIFY2(second.WaitForLine(QStringLiteral("init-returned")), qPrintable(second.Errors()));
    const QString ran = QStringLiteral("StartupPlugin create InstanceApp\\AdditionalDlls\\Plugin\\Config\n"
                                       "StartupPlugin execute");
    QCOMPARE(second.PluginEvents(), ran);
    QCOMPARE(first.PluginEvents(), ran);
    // Nobody asked anybody to come to the front.
    QTest::qWait(300);
    QVERIFY(!first.Lines().contains(QStringLiteral("activated HelperWindow")));

    // Without "Once" the lock is still taken: the second holds it alone now.
    QVERIFY(first.Quit());
    QVERIFY(ZentOS::Create().NamedLockExists(APP_KEY));
    QVERIFY(second.Quit());
    QVERIFY(!ZentOS::Create().NamedLockExists(APP_KEY));
}

void TestZentApplicationInstance::otherApplicationsDoNotCount()
{
    const QString otherKey = QStringLiteral("OtherApp");
    QVERIFY(WriteFile(m_dir->filePath(QStringLiteral("Cfg.xml")),
                      StartupCfg(APP_KEY, QString())
                          .replace("</Machine>", "<OtherApp><Name>x</Name></OtherApp>"
                                                 "</Machine>")));
    Instance first(m_dir->path(), QStringLiteral("first"));
    first.Start(APP_KEY);
    QVERIFY2(first.WaitForLine(QStringLiteral("init-returned")), qPrintable(first.Errors()));
    Instance other(m_dir->path(), QStringLiteral("other"));
    other.Start(otherKey);
    QVERIFY2(other.WaitForLine(QStringLiteral("init-returned")), qPrintable(other.Errors()));
    QTest::qWait(1200);
    QVERIFY(!other.Lines().contains(QStringLiteral("exec-returned 0")));
    QVERIFY(other.Quit());
    QVERIFY(first.Quit());
}

void TestZentApplicationInstance::crashedFirstInstanceNeverBlocksANewStart()
{
    QVERIFY(WriteCfg(PLUGIN_ENTRY));
    Instance first(m_dir->path(), QStringLiteral("first"));
    first.Start(APP_KEY);
    QVERIFY2(first.WaitForLine(QStringLiteral("init-returned")), qPrintable(first.Errors()));
    QVERIFY(ZentOS::Create().NamedLockExists(APP_KEY));
    first.Kill();
    // What it leaves behind: its channel's socket file, but no lock.
    QVERIFY(QFileInfo::exists(ZentOS::Create().GetMessageChannel(APP_KEY)));
    QVERIFY(!ZentOS::Create().NamedLockExists(APP_KEY));

    Instance second(m_dir->path(), QStringLiteral("second"));
    second.Start(APP_KEY, {QStringLiteral("--window")});
    QVERIFY2(second.WaitForLine(QStringLiteral("window-shown")), qPrintable(second.Errors()));
    QCOMPARE(second.PluginEvents(),
             QStringLiteral("StartupPlugin create InstanceApp\\AdditionalDlls\\Plugin\\Config\n"
                            "StartupPlugin execute"));
    // The new first instance took over the channel: a third start reaches it.
    Instance third(m_dir->path(), QStringLiteral("third"));
    third.Start(APP_KEY);
    QVERIFY(third.WaitForEnd());
    QCOMPARE(third.Lines(),
             QStringList({QStringLiteral("init-returned"), QStringLiteral("exec-returned 0")}));
    QCOMPARE(third.PluginEvents(), QString());
    QVERIFY(second.WaitForLine(QStringLiteral("activated HelperWindow")));
    QVERIFY(second.Quit());
}

void TestZentApplicationInstance::channelIsTakenOverWhenItsListenerEndsWhileAnotherLives_data()
{
    QTest::addColumn<bool>("crash");
    QTest::newRow("listener_quits") << false;
    QTest::newRow("listener_crashes") << true;
}

void TestZentApplicationInstance::channelIsTakenOverWhenItsListenerEndsWhileAnotherLives()
{
    QFETCH(bool, crash);
    // The first two run side by side without "Once"; the first listens.
    QVERIFY(WriteCfg(QStringLiteral("<Once>false</Once>")));
    Instance first(m_dir->path(), QStringLiteral("first"));
    first.Start(APP_KEY, {QStringLiteral("--window")});
    QVERIFY2(first.WaitForLine(QStringLiteral("window-shown")), qPrintable(first.Errors()));
    Instance second(m_dir->path(), QStringLiteral("second"));
    second.Start(APP_KEY, {QStringLiteral("--window")});
    QVERIFY2(second.WaitForLine(QStringLiteral("window-shown")), qPrintable(second.Errors()));

    if (crash)
        first.Kill();
    else
        QVERIFY(first.Quit());
    QVERIFY(ZentOS::Create().NamedLockExists(APP_KEY));

    // A start with "Once" (its own document, the same key) still finds an
    // instance to bring to the front, and ends.
    QVERIFY(WriteFile(m_dir->filePath(QStringLiteral("Once.xml")),
                      StartupCfg(APP_KEY, QStringLiteral("<Once>true</Once>"))));
    Instance third(m_dir->path(), QStringLiteral("third"));
    third.Start({APP_KEY, QStringLiteral("Xml:Once.xml")});
    QVERIFY(third.WaitForEnd());
    QVERIFY2(third.ExitCode() == 0, qPrintable(third.Errors()));
    QCOMPARE(third.Lines(),
             QStringList({QStringLiteral("init-returned"), QStringLiteral("exec-returned 0")}));
    QCOMPARE(third.PluginEvents(), QString());
    QVERIFY(second.WaitForLine(QStringLiteral("activated HelperWindow")));
    QVERIFY(!first.Lines().contains(QStringLiteral("activated HelperWindow")));
    QVERIFY(second.Quit());
    QCOMPARE(second.ExitCode(), 0);
}

void TestZentApplicationInstance::anotherUserCannotActivate()
{
    if (::geteuid() != 0)
        QSKIP("Starting a program as another user needs root");
    QVERIFY(WriteCfg(QString()));
    Instance first(m_dir->path(), QStringLiteral("first"));
    first.Start(APP_KEY, {QStringLiteral("--window")});
    QVERIFY2(first.WaitForLine(QStringLiteral("window-shown")), qPrintable(first.Errors()));

    Instance stranger(m_dir->path(), QStringLiteral("stranger"));
    stranger.Start(AsNobody({HelperProgram(), QStringLiteral("--broadcast"), APP_KEY}),
                   QStringLiteral("setpriv"));
    QVERIFY(stranger.WaitForEnd());
    QCOMPARE(stranger.Lines(), QStringList({QStringLiteral("-1")}));
    QTest::qWait(300);
    QVERIFY(!first.Lines().contains(QStringLiteral("activated HelperWindow")));

    // The same request from this user arrives.
    Instance owner(m_dir->path(), QStringLiteral("owner"));
    owner.Start({QStringLiteral("--broadcast"), APP_KEY});
    QVERIFY(owner.WaitForEnd());
    QCOMPARE(owner.Lines(), QStringList({QStringLiteral("1")}));
    QVERIFY(first.WaitForLine(QStringLiteral("activated HelperWindow")));
    QVERIFY(first.Quit());
}

void TestZentApplicationInstance::peerOfAnotherUserIsRecognised()
{
    if (::geteuid() != 0)
        QSKIP("Starting a program as another user needs root");
    // A socket everybody may reach, unlike an application's channel.
    QTemporaryDir open(QDir::tempPath() + QStringLiteral("/zentpeer-XXXXXX"));
    QVERIFY2(open.isValid(), qPrintable(open.errorString()));
    QVERIFY(QFile::setPermissions(open.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                   QFileDevice::ExeOwner | QFileDevice::ReadOther |
                                                   QFileDevice::ExeOther | QFileDevice::ReadGroup |
                                                   QFileDevice::ExeGroup));
    QLocalServer server;
    server.setSocketOptions(QLocalServer::WorldAccessOption);
    const QString path = open.filePath(QStringLiteral("peer.sock"));
    QVERIFY(server.listen(path));
    QList<bool> sameUser;
    connect(&server, &QLocalServer::newConnection, [&server, &sameUser] {
        while (QLocalSocket* socket = server.nextPendingConnection()) {
            sameUser << ZentOS::Create().IsPeerSameUser(socket->socketDescriptor());
            socket->disconnectFromServer();
        }
    });

    Instance stranger(m_dir->path(), QStringLiteral("stranger"));
    stranger.Start(AsNobody({HelperProgram(), QStringLiteral("--connect"), path}), QStringLiteral("setpriv"));
    QVERIFY(stranger.WaitForLine(QStringLiteral("connected")));
    QTRY_COMPARE(sameUser, QList<bool>({false}));
    QVERIFY(stranger.WaitForEnd());

    Instance owner(m_dir->path(), QStringLiteral("owner"));
    owner.Start({QStringLiteral("--connect"), path});
    QVERIFY(owner.WaitForLine(QStringLiteral("connected")));
    QTRY_COMPARE(sameUser, QList<bool>({false, true}));
    QVERIFY(owner.WaitForEnd());
}

void TestZentApplicationInstance::tearDownTracesAKVExceptionAndSkipsTheRest()
{
    Instance instance(m_dir->path(), QStringLiteral("instance"));
    RunThrowingAtTheEnd(instance, QStringLiteral("kv"));
    if (QTest::currentTestFailed())
        return;
    const QString errors = instance.Errors();
    QVERIFY2(
        errors.contains(QStringLiteral("zent.trace: application/zentapplication:449 KVException caught in "
                                       "ZentApplication::~ZentApplication: Plug-in refuses to end\n")),
        qPrintable(errors));
    // Nothing after the failed step ran: the instance was never destroyed,
    // the document never saved.
    QCOMPARE(instance.PluginEvents(), EVENTS_UP_TO_THE_END);
    QVERIFY(!errors.contains(QStringLiteral("destroyed !")));
    QVERIFY(!QFileInfo::exists(m_dir->filePath(QStringLiteral("Cfg.xml.bak"))));
}

void TestZentApplicationInstance::tearDownTracesAStandardException()
{
    Instance instance(m_dir->path(), QStringLiteral("instance"));
    RunThrowingAtTheEnd(instance, QStringLiteral("std"));
    if (QTest::currentTestFailed())
        return;
    const QString errors = instance.Errors();
    QVERIFY2(
        errors.contains(QStringLiteral("zent.trace: application/zentapplication:454 std::exception caught in "
                                       "ZentApplication::~ZentApplication: plug-in failure\n")),
        qPrintable(errors));
    QCOMPARE(instance.PluginEvents(), EVENTS_UP_TO_THE_END);
}

// Without a session's runtime folder (services, cron, su) another user made
// the per-user fallback folder first, holds the lock of the application's
// name in it and listens on its socket for the bring-to-front number.
void TestZentApplicationInstance::aSquattedRuntimeFolderLeavesTheApplicationTheSingleInstance()
{
    QVERIFY(WriteCfg(QStringLiteral("<Once>true</Once>") + PLUGIN_ENTRY));
    const QString temp = m_dir->filePath(QStringLiteral("tmp"));
    const QString squatted = temp + QStringLiteral("/zent-runtime-") + QString::number(::geteuid());
    QVERIFY(QDir().mkpath(squatted));
    QVERIFY(QFile::setPermissions(
        squatted, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
                      QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ExeGroup |
                      QFileDevice::ReadOther | QFileDevice::WriteOther | QFileDevice::ExeOther));
    const QString base =
        squatted + QStringLiteral("/zent-") + APP_KEY + QLatin1Char('-') + QString::number(::getuid());
    QVERIFY(WriteFile(base + QStringLiteral(".lock"), QByteArray()));
    QFile squatterLock(base + QStringLiteral(".lock"));
    QVERIFY(squatterLock.open(QIODevice::ReadOnly));
    QCOMPARE(::flock(squatterLock.handle(), LOCK_SH), 0);
    QLocalServer squatter;
    QVERIFY(squatter.listen(base + QStringLiteral(".sock")));
    // The same straight in the temporary folder, where instance files once
    // went when Qt's own runtime folder was another user's.
    const QString user = QString::fromLocal8Bit(qgetenv("USER").isEmpty() ? "root" : qgetenv("USER"));
    QVERIFY(QDir().mkpath(temp + QStringLiteral("/runtime-") + user));
    if (::geteuid() == 0)
        QCOMPARE(
            ::chown(QFile::encodeName(temp + QStringLiteral("/runtime-") + user).constData(), 65534, 65534),
            0);
    const QString tempBase =
        temp + QStringLiteral("/zent-") + APP_KEY + QLatin1Char('-') + QString::number(::getuid());
    QVERIFY(WriteFile(tempBase + QStringLiteral(".lock"), QByteArray()));
    QFile tempLock(tempBase + QStringLiteral(".lock"));
    QVERIFY(tempLock.open(QIODevice::ReadOnly));
    QCOMPARE(::flock(tempLock.handle(), LOCK_SH), 0);
    QLocalServer tempSquatter;
    QVERIFY(tempSquatter.listen(tempBase + QStringLiteral(".sock")));

    Instance instance(m_dir->path(), QStringLiteral("instance"));
    instance.SetEnvironment(QStringLiteral("XDG_RUNTIME_DIR"), QString());
    instance.SetEnvironment(QStringLiteral("TMPDIR"), temp);
    // The application's log lands here, warning included.
    instance.SetEnvironment(QStringLiteral("XDG_DATA_HOME"), m_dir->filePath(QStringLiteral("data")));
    instance.Start(APP_KEY, {QStringLiteral("--window")});
    QVERIFY2(instance.WaitForLine(QStringLiteral("window-shown")), qPrintable(instance.Errors()));
    QCOMPARE(instance.PluginEvents(),
             QStringLiteral("StartupPlugin create InstanceApp\\AdditionalDlls\\Plugin\\Config\n"
                            "StartupPlugin execute"));
    QVERIFY(!squatter.hasPendingConnections());
    QVERIFY(!tempSquatter.hasPendingConnections());
    QVERIFY(instance.Quit());
    QCOMPARE(instance.ExitCode(), 0);
    QFile log(m_dir->filePath(QStringLiteral("data/Velkor-Amsel/log/InstanceApp.log")));
    QVERIFY(log.open(QIODevice::ReadOnly));
    const QString logged = QString::fromUtf8(log.readAll());
    QVERIFY2(logged.contains(
                 QStringLiteral("\tInstanceApp\tZentOS\t0\tWarning: ZentOS::GetRuntimeDir: The runtime "
                                "folder ") +
                 squatted +
                 QStringLiteral(" is open to other users (mode 0777); this instance's lock and "
                                "socket are in ") +
                 squatted + QLatin1Char('-')),
             qPrintable(logged));
}

QTEST_GUILESS_MAIN(TestZentApplicationInstance)
#include "tst_zentapplicationinstance.moc"
