// ZentOS's files on a shared machine: what another local user plants (links,
// pipes, squatted runtime folders, libraries in the working directory) is
// never followed, written or loaded.

#include "kvbase/errorhandler.h"
#include "kvbase/zentos.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct Entry
{
    bool exists = false;
    bool link = false;
    bool directory = false;
    int mode = -1;
    long owner = -1;
};

Entry EntryOf(const QString& path)
{
    struct stat info
    {
    };
    Entry entry;
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0)
        return entry;
    entry.exists = true;
    entry.link = S_ISLNK(info.st_mode);
    entry.directory = S_ISDIR(info.st_mode);
    entry.mode = int(info.st_mode & 07777);
    entry.owner = long(info.st_uid);
    return entry;
}

QByteArray Read(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

bool Write(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

/// Sets or unsets an environment variable for one test and restores it.
class ScopedVariable
{
public:
    ScopedVariable(const char* name, const QByteArray* value)
        : m_name(name), m_had(qEnvironmentVariableIsSet(name)), m_saved(qgetenv(name))
    {
        if (value)
            qputenv(name, *value);
        else
            qunsetenv(name);
    }
    ~ScopedVariable()
    {
        if (m_had)
            qputenv(m_name, m_saved);
        else
            qunsetenv(m_name);
    }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    const char* m_name;
    bool m_had;
    QByteArray m_saved;
};

/// Stays in a folder for one test.
class ScopedCurrent
{
public:
    explicit ScopedCurrent(const QString& path) : m_previous(QDir::currentPath()) { QDir::setCurrent(path); }
    ~ScopedCurrent() { QDir::setCurrent(m_previous); }

private:
    QString m_previous;
};

const QString EVIL_LIBRARY = QStringLiteral("libzentosevillib.so");

} // namespace

class tst_ZentOSFiles : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QStringList m_warnings;

    QString Path(const QString& name) const { return m_dir->filePath(name); }

    QString OwnRuntimeDir() const
    {
        return Path(QStringLiteral("zent-runtime-")) + QString::number(::geteuid());
    }

    /// A planted copy of the library whose loading leaves "evil-ran" behind.
    bool Plant(const QString& name) const
    {
        const QString target = Path(name);
        QDir().mkpath(QFileInfo(target).absolutePath());
        return QFile::copy(QCoreApplication::applicationDirPath() + QLatin1Char('/') + EVIL_LIBRARY, target);
    }

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY2(m_dir->isValid(), qPrintable(m_dir->errorString()));
        QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("victim")));
        m_warnings.clear();
        ErrorHandler::Instance().SetMessagePresenter(
            [this](ErrorHandler::MessageKind kind, const QString& text) {
                if (kind == ErrorHandler::MSG_Warning)
                    m_warnings.append(text);
            });
    }

    void cleanup()
    {
        ErrorHandler::Instance().SetMessagePresenter({});
        m_dir.reset();
    }

    // ------------------------------------------------------------ creating and writing

    void createNewFileNeverFollowsALink_data()
    {
        QTest::addColumn<QString>("target");
        QTest::addColumn<bool>("targetExists");
        QTest::newRow("link_to_an_existing_file") << QStringLiteral("victim/existing") << true;
        QTest::newRow("link_to_a_missing_file") << QStringLiteral("victim/created") << false;
    }

    void createNewFileNeverFollowsALink()
    {
        QFETCH(QString, target);
        QFETCH(bool, targetExists);
        if (targetExists)
            QVERIFY(Write(Path(target), "victim's bytes"));
        QVERIFY(QFile::link(Path(target), Path(QStringLiteral("planted"))));
        QFile file;
        QVERIFY(!ZentOS::Get().CreateNewFile(file, Path(QStringLiteral("planted"))));
        QVERIFY(!file.isOpen());
        QCOMPARE(EntryOf(Path(target)).exists, targetExists);
        if (targetExists)
            QCOMPARE(Read(Path(target)), QByteArray("victim's bytes"));
    }

    void createNewFileRefusesAnExistingFile()
    {
        QVERIFY(Write(Path(QStringLiteral("there")), "kept"));
        QFile file;
        QVERIFY(!ZentOS::Get().CreateNewFile(file, Path(QStringLiteral("there"))));
        QCOMPARE(Read(Path(QStringLiteral("there"))), QByteArray("kept"));
    }

    void newFilesHaveExactlyTheirModeWhateverTheUmask_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("umask");
        QTest::newRow("private_under_000") << 0600 << 0;
        QTest::newRow("machine_wide_under_000") << 0644 << 0;
        QTest::newRow("machine_wide_under_077") << 0644 << 077;
    }

    void newFilesHaveExactlyTheirModeWhateverTheUmask()
    {
        QFETCH(int, mode);
        QFETCH(int, umask);
        const mode_t previous = ::umask(mode_t(umask));
        QFile file;
        const bool made = ZentOS::Get().CreateNewFile(file, Path(QStringLiteral("new")), mode);
        ::umask(previous);
        QVERIFY(made);
        QCOMPARE(file.fileName(), Path(QStringLiteral("new")));
        QCOMPARE(file.write("text"), qint64(4));
        file.close();
        QCOMPARE(EntryOf(Path(QStringLiteral("new"))).mode, mode);
        QCOMPARE(Read(Path(QStringLiteral("new"))), QByteArray("text"));
    }

    void replaceWithNewFileReplacesTheLinkNotItsTarget()
    {
        QVERIFY(Write(Path(QStringLiteral("victim/existing")), "victim's bytes"));
        QVERIFY(QFile::link(Path(QStringLiteral("victim/existing")), Path(QStringLiteral("help.txt"))));
        QFile file;
        QVERIFY(ZentOS::Get().ReplaceWithNewFile(file, Path(QStringLiteral("help.txt")), 0644));
        QCOMPARE(file.write("help"), qint64(4));
        file.close();
        QCOMPARE(Read(Path(QStringLiteral("victim/existing"))), QByteArray("victim's bytes"));
        const Entry entry = EntryOf(Path(QStringLiteral("help.txt")));
        QVERIFY(entry.exists && !entry.link);
        QCOMPARE(entry.mode, 0644);
        QCOMPARE(Read(Path(QStringLiteral("help.txt"))), QByteArray("help"));
    }

    void openForAppendRefusesALink()
    {
        QVERIFY(Write(Path(QStringLiteral("victim/existing")), "victim's bytes"));
        QVERIFY(QFile::link(Path(QStringLiteral("victim/existing")), Path(QStringLiteral("app.log"))));
        QFile file;
        QVERIFY(!ZentOS::Get().OpenForAppend(file, Path(QStringLiteral("app.log"))));
        QCOMPARE(Read(Path(QStringLiteral("victim/existing"))), QByteArray("victim's bytes"));
    }

    void openForAppendAppendsToTheUsersOwnFileOnly()
    {
        QFile file;
        QVERIFY(ZentOS::Get().OpenForAppend(file, Path(QStringLiteral("app.log"))));
        file.write("one\n");
        file.close();
        QVERIFY(ZentOS::Get().OpenForAppend(file, Path(QStringLiteral("app.log"))));
        file.write("two\n");
        file.close();
        QCOMPARE(Read(Path(QStringLiteral("app.log"))), QByteArray("one\ntwo\n"));
        QCOMPARE(EntryOf(Path(QStringLiteral("app.log"))).mode, 0600);
        if (::geteuid() != 0)
            QSKIP("a file of another account needs the administrator to make it");
        QVERIFY(Write(Path(QStringLiteral("foreign.log")), "theirs\n"));
        QCOMPARE(::chown(QFile::encodeName(Path(QStringLiteral("foreign.log"))).constData(), 65534, 65534),
                 0);
        QVERIFY(!ZentOS::Get().OpenForAppend(file, Path(QStringLiteral("foreign.log"))));
        QCOMPARE(Read(Path(QStringLiteral("foreign.log"))), QByteArray("theirs\n"));
    }

    // ------------------------------------------------------------ reading

    void readRegularFileReadsOnlyRegularFilesUnderTheCap()
    {
        QByteArray bytes = "stale";
        ZentOS& os = ZentOS::Get();
        QCOMPARE(os.ReadRegularFile(Path(QStringLiteral("missing")), 100, bytes),
                 ZentOS::ReadResult::Missing);
        QCOMPARE(bytes, QByteArray());
        QVERIFY(Write(Path(QStringLiteral("ten")), "0123456789"));
        QCOMPARE(os.ReadRegularFile(Path(QStringLiteral("ten")), 10, bytes), ZentOS::ReadResult::Read);
        QCOMPARE(bytes, QByteArray("0123456789"));
        QCOMPARE(os.ReadRegularFile(Path(QStringLiteral("ten")), 9, bytes), ZentOS::ReadResult::TooLarge);
        QCOMPARE(bytes, QByteArray());
        QVERIFY(QFile::link(QStringLiteral("/dev/zero"), Path(QStringLiteral("zero"))));
        QCOMPARE(os.ReadRegularFile(Path(QStringLiteral("zero")), 100, bytes),
                 ZentOS::ReadResult::NotRegular);
        QCOMPARE(::mkfifo(QFile::encodeName(Path(QStringLiteral("pipe"))).constData(), 0600), 0);
        QCOMPARE(os.ReadRegularFile(Path(QStringLiteral("pipe")), 100, bytes),
                 ZentOS::ReadResult::NotRegular);
        QCOMPARE(os.ReadRegularFile(Path(QStringLiteral("victim")), 100, bytes), ZentOS::ReadResult::Failed);
        // A link to a regular file is read: documents may be links their owner made.
        QVERIFY(QFile::link(Path(QStringLiteral("ten")), Path(QStringLiteral("linked"))));
        QCOMPARE(os.ReadRegularFile(Path(QStringLiteral("linked")), 10, bytes), ZentOS::ReadResult::Read);
        QCOMPARE(bytes, QByteArray("0123456789"));
    }

    // ------------------------------------------------------------ mode, owner, folders

    void keepModeAndOwnerCopiesThemFromTheModel()
    {
        QVERIFY(Write(Path(QStringLiteral("model")), "old"));
        QCOMPARE(::chmod(QFile::encodeName(Path(QStringLiteral("model"))).constData(), 0640), 0);
        const bool root = ::geteuid() == 0;
        if (root)
            QCOMPARE(::chown(QFile::encodeName(Path(QStringLiteral("model"))).constData(), 65534, 65534), 0);
        QFile file;
        QVERIFY(ZentOS::Get().CreateNewFile(file, Path(QStringLiteral("new"))));
        QVERIFY(ZentOS::Get().KeepModeAndOwner(file, Path(QStringLiteral("model"))));
        file.close();
        QCOMPARE(EntryOf(Path(QStringLiteral("new"))).mode, 0640);
        QCOMPARE(EntryOf(Path(QStringLiteral("new"))).owner, root ? 65534L : long(::geteuid()));
        // Nothing to keep from a missing file or a link.
        QVERIFY(ZentOS::Get().CreateNewFile(file, Path(QStringLiteral("other"))));
        QVERIFY(ZentOS::Get().KeepModeAndOwner(file, Path(QStringLiteral("missing"))));
        file.close();
        QCOMPARE(EntryOf(Path(QStringLiteral("other"))).mode, 0600);
    }

    void createDirectoriesGivesNewFoldersExactlyTheirMode()
    {
        const mode_t previous = ::umask(0);
        const bool made = ZentOS::Get().CreateDirectories(Path(QStringLiteral("a/b/c")), 0755);
        ::umask(previous);
        QVERIFY(made);
        for (const QString& folder : {QStringLiteral("a"), QStringLiteral("a/b"), QStringLiteral("a/b/c")})
            QCOMPARE(EntryOf(Path(folder)).mode, 0755);
        // An existing folder is left as it is.
        QCOMPARE(::chmod(QFile::encodeName(Path(QStringLiteral("a"))).constData(), 0700), 0);
        QVERIFY(ZentOS::Get().CreateDirectories(Path(QStringLiteral("a/b/c")), 0755));
        QCOMPARE(EntryOf(Path(QStringLiteral("a"))).mode, 0700);
    }

    // ------------------------------------------------------------ runtime folder

    void withoutASessionTheRuntimeFolderIsTheUsersOwn()
    {
        const QByteArray tmp = QFile::encodeName(m_dir->path());
        ScopedVariable noSession("XDG_RUNTIME_DIR", nullptr);
        ScopedVariable temp("TMPDIR", &tmp);
        QString problem = QStringLiteral("stale");
        QCOMPARE(ZentOS::Get().GetRuntimeDir(&problem), OwnRuntimeDir());
        QCOMPARE(problem, QString());
        const Entry entry = EntryOf(OwnRuntimeDir());
        QVERIFY(entry.directory && !entry.link);
        QCOMPARE(entry.mode, 0700);
        QCOMPARE(entry.owner, long(::geteuid()));
    }

    void aSquattedRuntimeFolderIsNotUsed_data()
    {
        QTest::addColumn<QString>("squat");
        QTest::addColumn<QString>("why");
        QTest::newRow("open_to_everybody")
            << QStringLiteral("mode") << QStringLiteral("is open to other users (mode 0777)");
        QTest::newRow("link_to_another_folder")
            << QStringLiteral("link") << QStringLiteral("is not a folder");
        QTest::newRow("another_users_folder")
            << QStringLiteral("owner") << QStringLiteral("belongs to user 65534");
    }

    // Another user made the fallback folder first (services, cron and su have
    // no session folder) and waits in it with a lock of the application's name.
    void aSquattedRuntimeFolderIsNotUsed()
    {
        QFETCH(QString, squat);
        QFETCH(QString, why);
        if (squat == QLatin1String("owner") && ::geteuid() != 0)
            QSKIP("only the administrator can give a folder to another account");
        const QByteArray tmp = QFile::encodeName(m_dir->path());
        ScopedVariable noSession("XDG_RUNTIME_DIR", nullptr);
        ScopedVariable temp("TMPDIR", &tmp);
        const QString own = OwnRuntimeDir();
        const QString squatted = squat == QLatin1String("link") ? Path(QStringLiteral("victim")) : own;
        if (squat == QLatin1String("link"))
            QVERIFY(QFile::link(squatted, own));
        else
            QVERIFY(QDir().mkdir(own));
        QCOMPARE(
            ::chmod(QFile::encodeName(squatted).constData(), squat == QLatin1String("mode") ? 0777 : 0700),
            0);
        const QString name = QStringLiteral("SquattedApp");
        const QString squatterLock = squatted + QStringLiteral("/zent-SquattedApp-") +
                                     QString::number(::getuid()) + QStringLiteral(".lock");
        QVERIFY(Write(squatterLock, QByteArray()));
        QFile held(squatterLock);
        QVERIFY(held.open(QIODevice::ReadOnly));
        QCOMPARE(::flock(held.handle(), LOCK_SH), 0);
        if (squat == QLatin1String("owner"))
            QCOMPARE(::chown(QFile::encodeName(own).constData(), 65534, 65534), 0);

        QString problem;
        const QString runtime = ZentOS::Get().GetRuntimeDir(&problem);
        QVERIFY(runtime.startsWith(own + QLatin1Char('-')));
        const Entry entry = EntryOf(runtime);
        QVERIFY(entry.directory && !entry.link);
        QCOMPARE(entry.mode, 0700);
        QCOMPARE(problem,
                 QStringLiteral("The runtime folder %1 %2; this instance's lock and socket are in %3, "
                                "where other instances do not look for them")
                     .arg(own, why, runtime));
        // The same folder for the process's whole life.
        QCOMPARE(ZentOS::Get().GetRuntimeDir(), runtime);

        // The application starts as the single instance, with a warning.
        ZentOS& os = ZentOS::Get();
        QVERIFY(!os.NamedLockExists(name));
        void* lock = os.CreateNamedLock(name);
        QVERIFY(lock);
        QVERIFY(os.NamedLockExists(name));
        QVERIFY(os.GetMessageChannel(name).startsWith(runtime + QLatin1Char('/')));
        QCOMPARE(m_warnings, QStringList{problem});
        os.CloseNamedLock(lock);
        QCOMPARE(Read(squatterLock), QByteArray());
    }

    void aSessionFolderOfAnotherUserIsNotUsed()
    {
        const QByteArray tmp = QFile::encodeName(m_dir->path());
        QVERIFY(QDir().mkdir(Path(QStringLiteral("session"))));
        QCOMPARE(::chmod(QFile::encodeName(Path(QStringLiteral("session"))).constData(), 0777), 0);
        const QByteArray session = QFile::encodeName(Path(QStringLiteral("session")));
        ScopedVariable sessionVariable("XDG_RUNTIME_DIR", &session);
        ScopedVariable temp("TMPDIR", &tmp);
        QString problem;
        QCOMPARE(ZentOS::Get().GetRuntimeDir(&problem), OwnRuntimeDir());
        QCOMPARE(problem, QStringLiteral("The runtime folder %1 is open to other users (mode 0777)")
                              .arg(Path(QStringLiteral("session"))));
    }

    void theLockFileIsNeverALink()
    {
        const QByteArray tmp = QFile::encodeName(m_dir->path());
        ScopedVariable noSession("XDG_RUNTIME_DIR", nullptr);
        ScopedVariable temp("TMPDIR", &tmp);
        const QString runtime = ZentOS::Get().GetRuntimeDir();
        QCOMPARE(runtime, OwnRuntimeDir());
        const QString lockFile = runtime + QStringLiteral("/zent-LinkedApp-") + QString::number(::getuid()) +
                                 QStringLiteral(".lock");
        QVERIFY(QFile::link(Path(QStringLiteral("victim/created")), lockFile));
        QCOMPARE(ZentOS::Get().CreateNamedLock(QStringLiteral("LinkedApp")), nullptr);
        QVERIFY(!EntryOf(Path(QStringLiteral("victim/created"))).exists);
    }

    // ------------------------------------------------------------ libraries

    void pluginNamesWithAFolderNeverComeFromTheWorkingDirectory_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("sub_folder_windows_name") << QStringLiteral("sub/Evil.dll");
        QTest::newRow("dot_windows_name") << QStringLiteral("./Evil.dll");
        QTest::newRow("sub_folder_library_name") << QStringLiteral("sub/libEvil.so");
    }

    void pluginNamesWithAFolderNeverComeFromTheWorkingDirectory()
    {
        QFETCH(QString, name);
        for (const QString& planted :
             {QStringLiteral("sub/Evil.dll"), QStringLiteral("sub/libEvil.so"), QStringLiteral("sub/Evil.so"),
              QStringLiteral("Evil.dll"), QStringLiteral("libEvil.so"), QStringLiteral("Evil.so")})
            QVERIFY(Plant(planted));
        ScopedCurrent current(m_dir->path());
        ZentOS& os = ZentOS::Get();
        QCOMPARE(os.LoadLibrary(name), nullptr);
        QVERIFY(!QFile::exists(Path(QStringLiteral("evil-ran"))));
        QVERIFY(os.GetLastError() != 0);
    }

    void pluginNamesBesideTheApplicationStillLoad()
    {
        // The same library by its absolute name loads: the test sees its mark.
        QVERIFY(Plant(QStringLiteral("lib/libEvil.so")));
        ScopedCurrent current(m_dir->path());
        void* handle = ZentOS::Get().LoadLibrary(Path(QStringLiteral("lib/Evil.dll")));
        QVERIFY2(handle, qPrintable(ZentOS::Get().GetLastErrorText()));
        QVERIFY(QFile::exists(Path(QStringLiteral("evil-ran"))));
        ZentOS::Get().FreeLibrary(handle);
    }

    void programsLoadNoLibraryFromTheWorkingDirectory_data()
    {
        QTest::addColumn<QString>("program");
        QTest::newRow("cfgcopy") << QStringLiteral("cfgcopy");
        QTest::newRow("cfgdelete") << QStringLiteral("cfgdelete");
    }

    void programsLoadNoLibraryFromTheWorkingDirectory()
    {
        QFETCH(QString, program);
        const QString path = QCoreApplication::applicationDirPath() + QLatin1Char('/') + program;
        if (!QFile::exists(path))
            QSKIP("the program is not built");
        for (const QString& planted :
             {QStringLiteral("libsqlite3.so.0"), QStringLiteral("libKVBase.so.1"),
              QStringLiteral("libZentAppStartUp.so.1"), QStringLiteral("libQt5Core.so.5")})
            QVERIFY(Plant(planted));
        QProcess process;
        process.setWorkingDirectory(m_dir->path());
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(QStringLiteral("LD_LIBRARY_PATH"));
        process.setProcessEnvironment(environment);
        process.start(path, QStringList());
        QVERIFY(process.waitForFinished(30000));
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QVERIFY(!QFile::exists(Path(QStringLiteral("evil-ran"))));
    }
};

QTEST_MAIN(tst_ZentOSFiles)
#include "tst_zentosfiles.moc"
