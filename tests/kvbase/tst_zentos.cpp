#include "kvbase/zentos.h"

#include <QNetworkInterface>
#include <QtTest>

#include <cstdlib>
#include <fcntl.h>
#include <signal.h>
#include <thread>
#include <unistd.h>

namespace {

class ScriptedOS : public ZentOS
{
public:
    std::wstring GetWorkStationName() const override { return L"scripted"; }
};

/// Points one of this process's standard descriptors somewhere else while it lives.
class RedirectedDescriptor
{
public:
    RedirectedDescriptor(int fd, int target) : m_fd(fd), m_saved(::dup(fd)) { ::dup2(target, fd); }
    ~RedirectedDescriptor()
    {
        ::dup2(m_saved, m_fd);
        ::close(m_saved);
    }
    RedirectedDescriptor(const RedirectedDescriptor&) = delete;
    RedirectedDescriptor& operator=(const RedirectedDescriptor&) = delete;

private:
    int m_fd;
    int m_saved;
};

/// Sets (or, with a null value, removes) an environment variable while it lives.
class ScopedEnvironment
{
public:
    ScopedEnvironment(const char* name, const QByteArray& value)
        : m_name(name), m_bWasSet(qEnvironmentVariableIsSet(name)), m_saved(qgetenv(name))
    {
        if (value.isNull())
            qunsetenv(name);
        else
            qputenv(name, value);
    }
    ~ScopedEnvironment()
    {
        if (m_bWasSet)
            qputenv(m_name, m_saved);
        else
            qunsetenv(m_name);
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const char* m_name;
    bool m_bWasSet;
    QByteArray m_saved;
};

QByteArray ReadAll(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

bool WriteExecutable(const QString& fileName, const QByteArray& content)
{
    QFile file(fileName);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size() &&
           file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

const QByteArray SHOWN_TEXT = "Help\n\twith a tab and \xe9\n";

/// A folder with a text file to show, a fake desktop session and a PATH of
/// only that folder, standard output going to a file (no terminal).
class DisplayFixture
{
public:
    DisplayFixture()
        : m_display("DISPLAY", ":97"), m_wayland("WAYLAND_DISPLAY", QByteArray()),
          m_path("PATH", QFile::encodeName(m_dir.path()))
    {
        QFile text(TextFile());
        if (text.open(QIODevice::WriteOnly))
            text.write(SHOWN_TEXT);
        m_output = ::open(QFile::encodeName(OutputFile()).constData(),
                          O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        m_stdout.reset(new RedirectedDescriptor(STDOUT_FILENO, m_output));
    }
    ~DisplayFixture()
    {
        m_stdout.reset();
        ::close(m_output);
    }

    QString TextFile() const { return m_dir.filePath(QStringLiteral("help.txt")); }
    QString OutputFile() const { return m_dir.filePath(QStringLiteral("stdout")); }
    QString Marker() const { return m_dir.filePath(QStringLiteral("viewer-saw")); }
    /// An "xdg-open" in the PATH that copies its argument to Marker() and runs `tail`.
    bool InstallViewer(const QByteArray& tail) const
    {
        return WriteExecutable(m_dir.filePath(QStringLiteral("xdg-open")),
                               "#!/bin/sh\n/bin/cat \"$1\" > \"" + QFile::encodeName(Marker()) +
                                   ".part\"\n/bin/mv \"" + QFile::encodeName(Marker()) + ".part\" \"" +
                                   QFile::encodeName(Marker()) + "\"\necho $$ > \"" +
                                   QFile::encodeName(Marker()) + ".pid\"\n" + tail + "\n");
    }

private:
    QTemporaryDir m_dir;
    ScopedEnvironment m_display;
    ScopedEnvironment m_wayland;
    ScopedEnvironment m_path;
    int m_output = -1;
    std::unique_ptr<RedirectedDescriptor> m_stdout;
};

} // namespace

class tst_ZentOS : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void createAndGetGiveOneInstance() { QCOMPARE(&ZentOS::Create(), &ZentOS::Get()); }

    void setInstanceReplacesAndRestores()
    {
        ScriptedOS scripted;
        ZentOS& platform = ZentOS::Get();
        ZentOS::SetInstance(&scripted);
        QCOMPARE(&ZentOS::Get(), static_cast<ZentOS*>(&scripted));
        QCOMPARE(ZentOS::Create().GetWorkStationName(), std::wstring(L"scripted"));
        ZentOS::SetInstance(nullptr);
        QCOMPARE(&ZentOS::Get(), &platform);
    }

    void loadsALibraryByItsWindowsName()
    {
        ZentOS& os = ZentOS::Get();
        os.ResetLastError();
        void* handle = os.LoadLibrary(QStringLiteral("zentostestlib.dll"));
        QVERIFY2(handle, qPrintable(os.GetLastErrorText()));
        QCOMPARE(os.GetLastError(), 0ul);
        using Answer = int (*)();
        auto answer = reinterpret_cast<Answer>(os.GetProcAddress(handle, "ZentOsTestAnswer"));
        QVERIFY(answer);
        QCOMPARE(answer(), 42);
        QCOMPARE(os.GetProcAddress(handle, "NoSuchFunction"), nullptr);
        QVERIFY(os.GetLastError() != 0);
        QVERIFY2(os.GetLastErrorText().contains(QStringLiteral("NoSuchFunction")),
                 qPrintable(os.GetLastErrorText()));
        os.ResetLastError();
        QCOMPARE(os.GetLastError(), 0ul);
        QCOMPARE(os.GetLastErrorText(), QString());
        QVERIFY(os.FreeLibrary(handle));
        // Code and static data of a freed library stay mapped, so references a
        // plug-in left behind (string literals, connections) remain valid.
        QCOMPARE(answer(), 42);
    }

    void missingLibraryLeavesAnError()
    {
        ZentOS& os = ZentOS::Get();
        os.ResetLastError();
        QCOMPARE(os.LoadLibrary(QStringLiteral("NoSuchPlugin.dll")), nullptr);
        QVERIFY(os.GetLastError() != 0);
        QVERIFY(!os.GetLastErrorText().isEmpty());
        QCOMPARE(os.GetProcAddress(nullptr, "x"), nullptr);
        QCOMPARE(os.FreeLibrary(nullptr), false);
    }

    void localAddressesEndWithAnEmptyText()
    {
        ZentOS& os = ZentOS::Get();
        QStringList addresses;
        for (int i = 0; !os.GetLocalAddress(i).isEmpty(); ++i)
            addresses << os.GetLocalAddress(i);
        QVERIFY2(addresses.contains(QStringLiteral("127.0.0.1")),
                 qPrintable(addresses.join(QLatin1Char(' '))));
        QCOMPARE(os.GetLocalAddress(addresses.size()), QString());
        QCOMPARE(os.GetLocalAddress(-1), QString());
        QStringList expected;
        for (const QHostAddress& address : QNetworkInterface::allAddresses())
            expected << address.toString();
        QCOMPARE(addresses, expected);
    }

    void workStationNameIsTheHostName()
    {
        QCOMPARE(QString::fromStdWString(ZentOS::Get().GetWorkStationName()), QSysInfo::machineHostName());
    }

    void mainThreadIsTheOneThatInitialisedTheGui()
    {
        ZentOS& os = ZentOS::Get();
        QVERIFY(os.IsAppThread());
        os.InitGuiProcess();
        QCOMPARE(os.GetMainThreadId(), os.GetCurrentThreadId());
        QVERIFY(os.GetMainThreadId() != 0);
        bool workerIsApp = true;
        unsigned long workerId = 0;
        // std::thread, so that ThreadSanitizer sees the join.
        std::thread worker([&] {
            workerIsApp = ZentOS::Get().IsAppThread();
            workerId = ZentOS::Get().GetCurrentThreadId();
        });
        worker.join();
        QCOMPARE(workerIsApp, false);
        QVERIFY(workerId != os.GetMainThreadId());
        QVERIFY(os.IsAppThread());
    }

    void environmentVariables()
    {
        qputenv("ZENT_TEST_VARIABLE", "value 1");
        QCOMPARE(QByteArray(ZentOS::Get().GetEnvironmentVar("ZENT_TEST_VARIABLE")), QByteArray("value 1"));
        qunsetenv("ZENT_TEST_VARIABLE");
        QCOMPARE(ZentOS::Get().GetEnvironmentVar("ZENT_TEST_VARIABLE"), nullptr);
        QCOMPARE(ZentOS::Get().GetEnvironmentVar(nullptr), nullptr);
    }

    void folders()
    {
        const QString temp = QString::fromStdWString(ZentOS::Get().GetTempDir());
        QCOMPARE(temp, QDir::tempPath());
        QVERIFY(!temp.endsWith(QLatin1Char('/')) || temp == QLatin1String("/"));
        const QString system = QString::fromStdWString(ZentOS::Get().GetSystemDir());
        QVERIFY(QFileInfo(system).isDir());
        // The folder of the system's shared libraries: the C library is there.
        QVERIFY2(QFileInfo::exists(system + QStringLiteral("/libc.so.6")), qPrintable(system));
    }

    void productDirectoryFollowsTheEnvironment()
    {
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        qputenv("ZENT_PRODUCT_DIR", QFile::encodeName(dir.path()));
        QCOMPARE(ZentOS::Get().GetProductDir(), dir.path());
        qunsetenv("ZENT_PRODUCT_DIR");
        QCOMPARE(ZentOS::Get().GetProductDir(), QString());
    }

    void iconsByNumber()
    {
        QVERIFY(!ZentOS::Get().GetIcon(0).isNull());
        QVERIFY(ZentOS::Get().GetIcon(4711).isNull());
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        QVERIFY(QDir(dir.path()).mkpath(QStringLiteral("icons")));
        QVERIFY(
            QFile::copy(QStringLiteral(":/kvbase/icons/0.png"), dir.filePath(QStringLiteral("icons/7.png"))));
        qputenv("ZENT_PRODUCT_DIR", QFile::encodeName(dir.path()));
        const QIcon icon = ZentOS::Get().GetIcon(7);
        qunsetenv("ZENT_PRODUCT_DIR");
        QVERIFY(!icon.isNull());
        QCOMPARE(icon.availableSizes().value(0), QSize(32, 32));
    }

    void clockIsSecondsSince1970()
    {
        const qint64 before = QDateTime::currentSecsSinceEpoch();
        const qint64 now = ZentOS::Get().GetTime();
        QVERIFY(now >= before && now <= QDateTime::currentSecsSinceEpoch());
    }

    void syncFileAndDirectory()
    {
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        QFile file(dir.filePath(QStringLiteral("f")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("data");
        QVERIFY(file.flush());
        QCOMPARE(ZentOS::Get().SyncFile(file), true);
        file.close();
        QCOMPARE(ZentOS::Get().SyncFile(file), false);
        QCOMPARE(ZentOS::Get().SyncDirectory(dir.path()), true);
        QCOMPARE(ZentOS::Get().SyncDirectory(dir.filePath(QStringLiteral("missing"))), false);
    }

    void hiddenLegacyProgramRunsWithItsParameters()
    {
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        const QString target = dir.filePath(QStringLiteral("out.txt"));
        int result = -1;
        const QString params = QStringLiteral("-c \"echo hidden > '%1'\"").arg(target);
        QVERIFY(ZentOS::Get().StartHiddenLegacyProgram(u"/bin/sh", params.toStdU16String(), result));
        QVERIFY(result > 0);
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(target).size() == 7, 10000);
        QFile file(target);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray("hidden\n"));
        QCOMPARE(ZentOS::Get().StartHiddenLegacyProgram(u"/nonexistent/program", u"", result), false);
    }

    void startProgramWithOneArgument()
    {
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        const QString target = dir.filePath(QStringLiteral("touched"));
        QVERIFY(ZentOS::Get().StartProgram(QStringLiteral("touch"), target));
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(target), 10000);
        QCOMPARE(ZentOS::Get().StartProgram(QStringLiteral("/nonexistent/program"), target), false);
    }

    void displayWithoutTerminalOrDesktopFails()
    {
        DisplayFixture fixture;
        QVERIFY(fixture.InstallViewer("exit 0"));
        ScopedEnvironment noDisplay("DISPLAY", QByteArray());
        QCOMPARE(ZentOS::Get().DisplayTextFile(fixture.TextFile()), false);
        QCOMPARE(QFile::exists(fixture.Marker()), false);
        QCOMPARE(ReadAll(fixture.OutputFile()), QByteArray());
    }

    void displayWithoutViewerFails()
    {
        DisplayFixture fixture;
        QCOMPARE(ZentOS::Get().DisplayTextFile(fixture.TextFile()), false);
        QCOMPARE(ReadAll(fixture.OutputFile()), QByteArray());
    }

    void displayWithFailingViewerFails()
    {
        DisplayFixture fixture;
        QVERIFY(fixture.InstallViewer("exit 3"));
        QCOMPARE(ZentOS::Get().DisplayTextFile(fixture.TextFile()), false);
        // The viewer ran and was given the file.
        QCOMPARE(ReadAll(fixture.Marker()), SHOWN_TEXT);
        QCOMPARE(ReadAll(fixture.OutputFile()), QByteArray());
    }

    void displayOpensTheFileWithTheDesktopViewer()
    {
        DisplayFixture fixture;
        QVERIFY(fixture.InstallViewer("exit 0"));
        QCOMPARE(ZentOS::Get().DisplayTextFile(fixture.TextFile()), true);
        QCOMPARE(ReadAll(fixture.Marker()), SHOWN_TEXT);
        QCOMPARE(ReadAll(fixture.OutputFile()), QByteArray());
    }

    void displayLeavesAViewerThatKeepsRunning()
    {
        DisplayFixture fixture;
        // A viewer in the opener's foreground: no verdict, so it is showing the file.
        QVERIFY(fixture.InstallViewer("exec /bin/sleep 30"));
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(ZentOS::Get().DisplayTextFile(fixture.TextFile()), true);
        QVERIFY2(clock.elapsed() < 20000, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(ReadAll(fixture.Marker()), SHOWN_TEXT);
        // Still running after the call returned; the test ends it.
        const pid_t viewer = ReadAll(fixture.Marker() + QStringLiteral(".pid")).trimmed().toInt();
        QVERIFY(viewer > 0);
        QCOMPARE(::kill(viewer, 0), 0);
        QCOMPARE(::kill(viewer, SIGTERM), 0);
    }

    void displayOfAMissingFileFails()
    {
        DisplayFixture fixture;
        QVERIFY(fixture.InstallViewer("exit 0"));
        QCOMPARE(ZentOS::Get().DisplayTextFile(fixture.TextFile() + QStringLiteral(".missing")), false);
        QCOMPARE(QFile::exists(fixture.Marker()), false);
    }

    void displayPrintsTheFileOnATerminal()
    {
        DisplayFixture fixture;
        QVERIFY(fixture.InstallViewer("exit 0"));
        const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
        QVERIFY(master >= 0);
        QVERIFY(::grantpt(master) == 0 && ::unlockpt(master) == 0);
        const int terminal = ::open(::ptsname(master), O_RDWR | O_NOCTTY);
        QVERIFY(terminal >= 0);
        bool shown = false;
        {
            RedirectedDescriptor onTerminal(STDOUT_FILENO, terminal);
            shown = ZentOS::Get().DisplayTextFile(fixture.TextFile());
        }
        ::close(terminal);
        QCOMPARE(shown, true);
        QByteArray received(4096, '\0');
        const ssize_t size = ::read(master, received.data(), static_cast<size_t>(received.size()));
        ::close(master);
        // The terminal's line discipline turns each "\n" into "\r\n".
        QCOMPARE(received.left(static_cast<int>(size)), QByteArray(SHOWN_TEXT).replace("\n", "\r\n"));
        QCOMPARE(QFile::exists(fixture.Marker()), false);
    }

    void writeStandardErrorWritesTheBytesAsTheyAre()
    {
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        const QString target = dir.filePath(QStringLiteral("stderr"));
        const int fd =
            ::open(QFile::encodeName(target).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        QVERIFY(fd >= 0);
        static const char start[] = "Latin-1 \xe9\0and a zero\n";
        const QByteArray bytes = QByteArray(start, sizeof(start) - 1) + QByteArray(100000, 'x');
        bool written = false;
        {
            RedirectedDescriptor toFile(STDERR_FILENO, fd);
            written = ZentOS::Get().WriteStandardError(bytes);
        }
        ::close(fd);
        QCOMPARE(written, true);
        QCOMPARE(ReadAll(target), bytes);
    }

    void exclusiveLockIsHeldAlone()
    {
        QTemporaryDir runtime;
        QVERIFY2(runtime.isValid(), qPrintable(runtime.errorString()));
        ScopedEnvironment runtimeDir("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
        ZentOS& os = ZentOS::Get();
        const QString name = QStringLiteral("Exclusive App");
        void* first = os.TryExclusiveLock(name);
        QVERIFY(first);
        QVERIFY(os.NamedLockExists(name));
        QCOMPARE(os.TryExclusiveLock(name), nullptr);
        // Other names are other locks.
        void* other = os.TryExclusiveLock(QStringLiteral("Other App"));
        QVERIFY(other);
        os.CloseNamedLock(other);
        os.CloseNamedLock(first);
        QVERIFY(!os.NamedLockExists(name));
        void* again = os.TryExclusiveLock(name);
        QVERIFY(again);
        os.CloseNamedLock(again);
    }

    void placementOfAProcessWithoutWindowIsUnknown()
    {
        // Offscreen: this process has no X11 window, whether a display is there or not.
        ZentOS::WindowPlacement placement;
        QCOMPARE(ZentOS::Get().GetWindowPlacement(QCoreApplication::applicationPid(), placement), false);
        QCOMPARE(placement.left, -1);
        QCOMPARE(placement.top, -1);
        QCOMPARE(placement.right, -1);
        QCOMPARE(placement.bottom, -1);
        QCOMPARE(placement.showState, -1);
        QCOMPARE(ZentOS::Get().SetWindowPlacement(QCoreApplication::applicationPid(), placement), false);
    }
};

QTEST_MAIN(tst_ZentOS)
#include "tst_zentos.moc"
