// Linux and other Unix systems: dlopen for libraries, gettid for threads,
// fsync for durability, the desktop's opener for showing files, flock and
// local sockets for single instances, timerfd for changes of the clock.
#include "kvbase/zentos.h"
#include "kvbase/zentoswindowplacement_p.h"

#include "kvbase/errorhandler.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileDevice>
#include <QFileInfo>
#include <QHash>
#include <QLocalSocket>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>
#include <QUrl>
#include <QWidget>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <limits>
#include <mutex>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace {

// dlerror() clears itself when read, so the last failure is kept here per thread,
// the way Windows keeps its last-error value.
thread_local unsigned long t_lastError = 0;
thread_local QString t_lastErrorText;

std::atomic<unsigned long> g_mainThreadId{0};

void RememberDlError(unsigned long code)
{
    const char* text = dlerror();
    t_lastError = code;
    t_lastErrorText = text ? QString::fromLocal8Bit(text) : QString();
}

// Plug-ins installed with the product live in <libdir>/zent/plugins, found
// from this library's own place, so that a relocated install finds its own.
QString InstalledPluginDir()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&RememberDlError), &info) == 0 || !info.dli_fname)
        return QString();
    return QFileInfo(QFile::decodeName(info.dli_fname)).absolutePath() + QStringLiteral("/zent/plugins");
}

QStringList LibraryCandidates(const QString& fileName)
{
    // Plug-ins keep their Windows names in configurations ("FolderPane.dll");
    // here they are found as lib<name>.so or <name>.so.
    QStringList names{fileName};
    if (fileName.endsWith(QLatin1String(".dll"), Qt::CaseInsensitive)) {
        const QFileInfo info(fileName);
        const QString base = info.completeBaseName();
        const QString dir = info.path() == QLatin1String(".") && !fileName.startsWith(QLatin1String("./"))
                                ? QString()
                                : info.path() + QLatin1Char('/');
        names << dir + QStringLiteral("lib") + base + QStringLiteral(".so")
              << dir + base + QStringLiteral(".so");
    }
    QStringList candidates;
    const QString appDir = QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : QString();
    const QString pluginDir = InstalledPluginDir();
    for (const QString& name : qAsConst(names)) {
        if (QFileInfo(name).isAbsolute()) {
            candidates << name;
            continue;
        }
        if (!appDir.isEmpty())
            candidates << appDir + QLatin1Char('/') + name;
        if (!pluginDir.isEmpty())
            candidates << pluginDir + QLatin1Char('/') + name;
        // A bare name goes to the loader's search path. The loader takes a
        // name with a folder in it ("sub/x.so", "./x.so") from the working
        // directory, where anybody may have put it: never.
        if (!name.contains(QLatin1Char('/')))
            candidates << name;
    }
    return candidates;
}

} // namespace

void* ZentOS::LoadLibrary(const QString& fileName)
{
    for (const QString& candidate : LibraryCandidates(fileName)) {
        if (QFileInfo(candidate).isAbsolute() && !QFileInfo::exists(candidate))
            continue;
        // RTLD_NODELETE: plug-ins hand strings with static data (QStringLiteral),
        // connections and timers to objects that outlive FreeLibrary, such as
        // the configuration document saved after the plug-ins are unloaded.
        // Keeping the code mapped makes those references safe; the library's
        // instances are still destroyed and its handle released.
        const int flags = RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE;
        if (void* handle = dlopen(QFile::encodeName(candidate).constData(), flags)) {
            t_lastError = 0;
            t_lastErrorText.clear();
            return handle;
        }
        RememberDlError(ENOENT);
    }
    if (t_lastError == 0) {
        t_lastError = ENOENT;
        t_lastErrorText = QStringLiteral("%1: cannot open shared object file").arg(fileName);
    }
    return nullptr;
}

bool ZentOS::FreeLibrary(void* handle)
{
    if (handle && dlclose(handle) == 0)
        return true;
    RememberDlError(EINVAL);
    return false;
}

void* ZentOS::GetProcAddress(void* handle, const char* name)
{
    dlerror();
    void* symbol = handle ? dlsym(handle, name) : nullptr;
    if (!symbol)
        RememberDlError(ENOENT);
    return symbol;
}

unsigned long ZentOS::GetLastError() const
{
    return t_lastError;
}

void ZentOS::ResetLastError()
{
    t_lastError = 0;
    t_lastErrorText.clear();
    dlerror();
}

QString ZentOS::GetLastErrorText() const
{
    return t_lastErrorText;
}

std::wstring ZentOS::GetWorkStationName() const
{
    char name[256] = {};
    if (gethostname(name, sizeof(name) - 1) != 0)
        return std::wstring();
    return QString::fromLocal8Bit(name).toStdWString();
}

void ZentOS::InitGuiProcess()
{
    g_mainThreadId.store(GetCurrentThreadId());
}

unsigned long ZentOS::GetMainThreadId() const
{
    return g_mainThreadId.load();
}

unsigned long ZentOS::GetCurrentThreadId() const
{
    return static_cast<unsigned long>(syscall(SYS_gettid));
}

const char* ZentOS::GetEnvironmentVar(const char* name) const
{
    return name ? std::getenv(name) : nullptr;
}

const char* ZentOS::GetTrustedEnvironmentVar(const char* name) const
{
    return name ? ::secure_getenv(name) : nullptr;
}

std::wstring ZentOS::GetSystemDir() const
{
    // Where the C library was loaded from: the system's own library folder
    // ("/usr/lib/x86_64-linux-gnu" on Debian), as System32 is on Windows.
    Dl_info info = {};
    if (!dladdr(reinterpret_cast<void*>(&::getpid), &info) || !info.dli_fname)
        return std::wstring(L"/usr/lib");
    return QFileInfo(QFile::decodeName(info.dli_fname)).canonicalPath().toStdWString();
}

std::wstring ZentOS::GetTempDir() const
{
    QString dir = QDir::tempPath();
    while (dir.size() > 1 && dir.endsWith(QLatin1Char('/')))
        dir.chop(1);
    return dir.toStdWString();
}

QString ZentOS::GetProductDir() const
{
    // An installed product keeps its data in <prefix>/share/zent beside bin/;
    // ZENT_PRODUCT_DIR overrides it (relocated installs, tests).
    if (const char* dir = GetTrustedEnvironmentVar("ZENT_PRODUCT_DIR"))
        return QFile::decodeName(dir);
    if (!QCoreApplication::instance())
        return QString();
    const QString installed = QCoreApplication::applicationDirPath() + QStringLiteral("/../share/zent");
    return QFileInfo(installed).isDir() ? QDir::cleanPath(installed) : QString();
}

bool ZentOS::GetWindowPlacement(qint64 processId, WindowPlacement& placement) const
{
    int values[5];
    if (!ZentWindowPlacement::Get(processId, values))
        return false;
    placement = WindowPlacement{values[0], values[1], values[2], values[3], values[4]};
    return true;
}

bool ZentOS::SetWindowPlacement(qint64 processId, const WindowPlacement& placement)
{
    const int values[5] = {placement.left, placement.top, placement.right, placement.bottom,
                           placement.showState};
    return ZentWindowPlacement::Set(processId, values);
}

bool ZentOS::StartHiddenLegacyProgram(const std::u16string& program, const std::u16string& params,
                                      int& result)
{
    const QString programName = QString::fromStdU16String(program);
    const QStringList arguments = QProcess::splitCommand(QString::fromStdU16String(params));
    QProcess process;
    process.setProgram(programName);
    process.setArguments(arguments);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    qint64 pid = 0;
    if (!process.startDetached(&pid))
        return false;
    result = static_cast<int>(pid);
    return true;
}

bool ZentOS::StartProgram(const QString& program, const QString& argument)
{
    return QProcess::startDetached(program, QStringList{argument});
}

// Showing text to the user.
namespace {

// How long the desktop's opener has to say whether it could open a file. One
// still running by then has a viewer in its foreground, so it is showing the
// file, and it is left to run.
constexpr int VIEWER_VERDICT_MS = 3000;
constexpr int VIEWER_POLL_MS = 10;
// How long a bring-to-front request looks for a listener, and how often.
constexpr int BROADCAST_CONNECT_MS = 2000;
constexpr unsigned long BROADCAST_RETRY_MS = 20;

bool WriteAll(int fd, const QByteArray& bytes)
{
    const char* data = bytes.constData();
    size_t left = static_cast<size_t>(bytes.size());
    while (left > 0) {
        const ssize_t written = ::write(fd, data, left);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        left -= static_cast<size_t>(written);
    }
    return true;
}

bool DesktopSessionPresent()
{
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"}) {
        const char* value = std::getenv(name);
        if (value && *value)
            return true;
    }
    return false;
}

// Runs in the forked child, so only async-signal-safe calls: starts the
// viewer in a grandchild (which init adopts once this child has ended) and
// ends with the viewer's exit code, or 0 when the viewer still runs after
// VIEWER_VERDICT_MS.
[[noreturn]] void RunViewerAndReportVerdict(char* const* argv)
{
    ::setsid();
    const pid_t viewer = ::fork();
    if (viewer < 0)
        ::_exit(127);
    if (viewer == 0) {
        // The viewer's own output must not mix into a redirected standard output.
        const int devNull = ::open("/dev/null", O_RDWR | O_CLOEXEC);
        if (devNull >= 0) {
            ::dup2(devNull, STDIN_FILENO);
            ::dup2(devNull, STDOUT_FILENO);
        }
        ::execv(argv[0], argv);
        ::_exit(127);
    }
    for (int waited = 0; waited < VIEWER_VERDICT_MS; waited += VIEWER_POLL_MS) {
        int status = 0;
        const pid_t ended = ::waitpid(viewer, &status, WNOHANG);
        if (ended == viewer)
            ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : 126);
        if (ended < 0 && errno != EINTR)
            ::_exit(126);
        const timespec pause{0, VIEWER_POLL_MS * 1000L * 1000L};
        ::nanosleep(&pause, nullptr);
    }
    ::_exit(0);
}

// Opens `fileName` with `viewer`, detached; true unless the viewer failed
// within VIEWER_VERDICT_MS.
bool StartViewer(const QString& viewer, const QString& fileName)
{
    QByteArray program = QFile::encodeName(viewer);
    QByteArray file = QFile::encodeName(fileName);
    char* const argv[] = {program.data(), file.data(), nullptr};
    const pid_t child = ::fork();
    if (child < 0)
        return false;
    if (child == 0)
        RunViewerAndReportVerdict(argv);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return false;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace

bool ZentOS::DisplayTextFile(const QString& fileName)
{
    if (isatty(STDOUT_FILENO)) {
        QFile file(fileName);
        if (!file.open(QIODevice::ReadOnly))
            return false;
        return WriteAll(STDOUT_FILENO, file.readAll());
    }
    if (!DesktopSessionPresent())
        return false;
    const QString viewer = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
    return !viewer.isEmpty() && QFileInfo(fileName).isFile() && StartViewer(viewer, fileName);
}

bool ZentOS::WriteStandardError(const QByteArray& bytes)
{
    return WriteAll(STDERR_FILENO, bytes);
}

qint64 ZentOS::GetTime() const
{
    return QDateTime::currentSecsSinceEpoch();
}

bool ZentOS::SyncFile(QFileDevice& file)
{
    const int fd = file.handle();
    return fd >= 0 && ::fsync(fd) == 0;
}

bool ZentOS::SyncDirectory(const QString& path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool synced = ::fsync(fd) == 0;
    ::close(fd);
    return synced;
}

// Instances of one application: lock files and local sockets in the user's
// runtime directory (private to the user), named from the application's name
// and the user id.
namespace {

struct NamedLockHandle
{
    int fd;
};

// A fallback runtime folder is worth one warning per process, not one per lock or socket.
QString RuntimeDirWarningOnce()
{
    static std::mutex s_mutex;
    static QString s_warned;
    QString problem;
    const QString dir = ZentOS::Get().GetRuntimeDir(&problem);
    std::lock_guard<std::mutex> lock(s_mutex);
    if (!problem.isEmpty() && problem != s_warned) {
        s_warned = problem;
        ErrorHandler::Instance().Message(problem, ErrorHandler::MSG_Warning, QStringLiteral("GetRuntimeDir"),
                                         QStringLiteral("ZentOS"));
    }
    return dir;
}

QString InstanceFileBase(const QString& name)
{
    QString token = QString::fromLatin1(QUrl::toPercentEncoding(name));
    // Socket paths hold at most 107 bytes, so long names go by their hash.
    if (token.size() > 40)
        token =
            QStringLiteral("h") +
            QString::fromLatin1(QCryptographicHash::hash(name.toUtf8(), QCryptographicHash::Sha1).toHex());
    const QString dir = RuntimeDirWarningOnce();
    if (dir.isEmpty())
        return QString(); // nowhere safe: no lock and no socket
    return dir + QStringLiteral("/zent-") + token + QLatin1Char('-') + QString::number(::getuid());
}

QByteArray LockFileName(const QString& name)
{
    const QString base = InstanceFileBase(name);
    return base.isEmpty() ? QByteArray() : QFile::encodeName(base + QStringLiteral(".lock"));
}

int FlockRetryingOnSignal(int fd, int operation)
{
    int result;
    do {
        result = ::flock(fd, operation);
    } while (result != 0 && errno == EINTR);
    return result;
}

// An absolute timer at the end of time never fires; it exists only to be
// cancelled when somebody sets the clock.
bool ArmClockChangeTimer(int fd)
{
    itimerspec spec{};
    spec.it_value.tv_sec = std::numeric_limits<time_t>::max();
    return ::timerfd_settime(fd, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &spec, nullptr) == 0;
}

} // namespace

bool ZentOS::NamedLockExists(const QString& name) const
{
    const int fd = ::open(LockFileName(name).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false; // never made, so never held
    // Holders keep a shared lock; an exclusive try fails exactly while one
    // lives. flock, not fcntl: fcntl locks are per process, so a holder in
    // this very process would go unseen.
    const bool held = FlockRetryingOnSignal(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(fd); // also drops the probe's own lock
    return held;
}

void* ZentOS::CreateNamedLock(const QString& name)
{
    // The file is never removed: a holder would keep a lock on a file nobody
    // else can open any more, and a new start would not see it.
    const int fd =
        ::open(LockFileName(name).constData(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (fd < 0)
        return nullptr;
    struct stat info
    {
    };
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_uid != ::geteuid()) {
        ::close(fd);
        return nullptr;
    }
    // Blocking is brief: only a probe of NamedLockExists holds the lock exclusively.
    if (FlockRetryingOnSignal(fd, LOCK_SH) != 0) {
        ::close(fd);
        return nullptr;
    }
    return new NamedLockHandle{fd};
}

void ZentOS::CloseNamedLock(void* handle)
{
    auto* lock = static_cast<NamedLockHandle*>(handle);
    if (!lock)
        return;
    ::close(lock->fd);
    delete lock;
}

void* ZentOS::TryExclusiveLock(const QString& name)
{
    const int fd = ::open(LockFileName(name).constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0)
        return nullptr;
    if (FlockRetryingOnSignal(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return nullptr;
    }
    return new NamedLockHandle{fd};
}

unsigned int ZentOS::RegisterMessage(const QString& name)
{
    // FNV-1a over the case-folded name: every process computes the same
    // number, in the range Windows gives registered messages.
    quint32 hash = 2166136261u;
    for (const QChar c : name.toCaseFolded()) {
        hash = (hash ^ (c.unicode() & 0xFFu)) * 16777619u;
        hash = (hash ^ (c.unicode() >> 8)) * 16777619u;
    }
    return 0xC000u + hash % 0x4000u;
}

QString ZentOS::GetMessageChannel(const QString& name) const
{
    const QString base = InstanceFileBase(name);
    return base.isEmpty() ? QString() : base + QStringLiteral(".sock");
}

long ZentOS::BroadcastMessage(const QString& name, unsigned int message)
{
    // A refused connection may only mean that the listening instance has just
    // ended and a living one is taking the channel over: keep trying a while.
    QLocalSocket socket;
    const QDeadlineTimer deadline(BROADCAST_CONNECT_MS);
    socket.connectToServer(GetMessageChannel(name), QIODevice::WriteOnly);
    while (!socket.waitForConnected(int(deadline.remainingTime()))) {
        if (deadline.hasExpired())
            return -1;
        QThread::msleep(BROADCAST_RETRY_MS);
        socket.connectToServer(GetMessageChannel(name), QIODevice::WriteOnly);
    }
    socket.write(QByteArray::number(message) + '\n');
    const bool written = socket.waitForBytesWritten(1000);
    socket.disconnectFromServer();
    return written ? 1 : -1;
}

bool ZentOS::IsPeerSameUser(qintptr descriptor) const
{
    ucred credentials{};
    socklen_t size = sizeof(credentials);
    if (::getsockopt(static_cast<int>(descriptor), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return false;
    return credentials.uid == ::geteuid();
}

void ZentOS::ShowWindowNoActivate(QWidget* window)
{
    if (!window)
        return;
    const bool hadAttribute = window->testAttribute(Qt::WA_ShowWithoutActivating);
    window->setAttribute(Qt::WA_ShowWithoutActivating);
    window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
    window->show();
    window->setAttribute(Qt::WA_ShowWithoutActivating, hadAttribute);
}

int ZentOS::OpenClockChangeNotifier()
{
    const int fd = ::timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC);
    if (fd < 0)
        return -1;
    if (!ArmClockChangeTimer(fd)) {
        ::close(fd);
        return -1;
    }
    return fd;
}

bool ZentOS::AcknowledgeClockChange(int descriptor)
{
    quint64 expirations = 0;
    const ssize_t size = ::read(descriptor, &expirations, sizeof(expirations));
    // A set clock cancels the timer: the read fails with ECANCELED once and
    // the timer must be armed again.
    const bool clockSet = size < 0 && errno == ECANCELED;
    if (clockSet || size == static_cast<ssize_t>(sizeof(expirations)))
        ArmClockChangeTimer(descriptor);
    return clockSet;
}

void ZentOS::CloseClockChangeNotifier(int descriptor)
{
    if (descriptor >= 0)
        ::close(descriptor);
}

QString ZentOS::GetTimeZoneFile() const
{
    return QStringLiteral("/etc/localtime");
}

// ---------------------------------------------------------------- files on a shared machine

namespace {

QByteArray Native(const QString& path)
{
    return QFile::encodeName(path);
}

// Qt keeps a file's name only when it opened the file by that name. So the
// file made (or checked) through `fd` is opened again by name, without
// truncation, and kept only when it is the very same file: a link swapped in
// meanwhile is found out before anything is written.
bool OpenSameFileByName(QFile& file, const QString& fileName, int fd, QIODevice::OpenMode mode)
{
    struct stat made
    {
    };
    const bool known = ::fstat(fd, &made) == 0;
    file.setFileName(fileName);
    const bool opened = known && file.open(mode | QIODevice::ExistingOnly);
    ::close(fd);
    if (!opened)
        return false;
    struct stat now
    {
    };
    if (::fstat(file.handle(), &now) != 0 || now.st_dev != made.st_dev || now.st_ino != made.st_ino) {
        file.close();
        errno = EEXIST;
        return false;
    }
    return true;
}

// Why `path` is no private folder of this user; empty when it is one.
QString PrivateDirProblem(const QByteArray& path)
{
    struct stat info
    {
    };
    if (::lstat(path.constData(), &info) != 0)
        return QStringLiteral("cannot be examined: ") + QString::fromLocal8Bit(std::strerror(errno));
    if (!S_ISDIR(info.st_mode))
        return QStringLiteral("is not a folder");
    if (info.st_uid != ::geteuid())
        return QStringLiteral("belongs to user %1").arg(info.st_uid);
    if ((info.st_mode & 077) != 0)
        return QStringLiteral("is open to other users (mode %1)")
            .arg(info.st_mode & 07777, 4, 8, QLatin1Char('0'));
    return QString();
}

QString TempBase()
{
    QString dir = QDir::tempPath();
    while (dir.size() > 1 && dir.endsWith(QLatin1Char('/')))
        dir.chop(1);
    return dir;
}

} // namespace

bool ZentOS::CreateNewFile(QFile& file, const QString& fileName, int mode)
{
    // O_EXCL with O_CREAT never follows a link, not even a dangling one.
    const int fd = ::open(Native(fileName).constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          static_cast<mode_t>(mode));
    if (fd < 0)
        return false;
    ::fchmod(fd, static_cast<mode_t>(mode)); // the umask must not decide who reads it
    // Read and write: Qt truncates a file opened for writing only.
    return OpenSameFileByName(file, fileName, fd, QIODevice::ReadWrite);
}

bool ZentOS::ReplaceWithNewFile(QFile& file, const QString& fileName, int mode)
{
    // Somebody may plant a link again between the removal and the creation;
    // the creation then fails instead of following it.
    if (::unlink(Native(fileName).constData()) != 0 && errno != ENOENT)
        return false;
    return CreateNewFile(file, fileName, mode);
}

bool ZentOS::OpenForAppend(QFile& file, const QString& fileName, int mode)
{
    const int fd = ::open(Native(fileName).constData(),
                          O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                          static_cast<mode_t>(mode));
    if (fd < 0)
        return false;
    struct stat info
    {
    };
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_uid != ::geteuid()) {
        ::close(fd);
        errno = EPERM;
        return false;
    }
    return OpenSameFileByName(file, fileName, fd, QIODevice::WriteOnly | QIODevice::Append);
}

bool ZentOS::ReplaceFile(const QString& from, const QString& to)
{
    return ::rename(Native(from).constData(), Native(to).constData()) == 0;
}

ZentOS::ReadResult ZentOS::ReadRegularFile(const QString& fileName, qint64 maxSize, QByteArray& bytes) const
{
    bytes.clear();
    // Non-blocking, so that a pipe put in the file's place cannot hold the open.
    const int fd = ::open(Native(fileName).constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return errno == ENOENT ? ReadResult::Missing : ReadResult::Failed;
    struct stat info
    {
    };
    ReadResult result = ReadResult::Read;
    if (::fstat(fd, &info) != 0)
        result = ReadResult::Failed;
    else if (S_ISDIR(info.st_mode))
        result = ReadResult::Failed; // a folder cannot be opened as a file
    else if (!S_ISREG(info.st_mode))
        result = ReadResult::NotRegular;
    else if (info.st_size > maxSize)
        result = ReadResult::TooLarge;
    if (result != ReadResult::Read) {
        ::close(fd);
        return result;
    }
    bytes.resize(static_cast<int>(info.st_size));
    qint64 total = 0;
    // The file may grow while it is read; one byte beyond the cap tells.
    for (;;) {
        if (total == bytes.size()) {
            if (total > maxSize) {
                result = ReadResult::TooLarge;
                break;
            }
            bytes.resize(static_cast<int>(qMin<qint64>(maxSize + 1, qMax<qint64>(total * 2, total + 4096))));
        }
        const ssize_t got = ::read(fd, bytes.data() + total, static_cast<size_t>(bytes.size() - total));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0) {
            result = ReadResult::Failed;
            break;
        }
        if (got == 0)
            break;
        total += got;
    }
    ::close(fd);
    if (result != ReadResult::Read) {
        bytes.clear();
        return result;
    }
    bytes.resize(static_cast<int>(total));
    return ReadResult::Read;
}

bool ZentOS::KeepModeAndOwner(QFileDevice& file, const QString& model)
{
    struct stat info
    {
    };
    if (::lstat(Native(model).constData(), &info) != 0 || !S_ISREG(info.st_mode))
        return true;
    const int fd = file.handle();
    if (fd < 0)
        return false;
    // The owner first: changing it clears set-user-id bits, which the mode then puts back.
    bool kept = true;
    struct stat own
    {
    };
    if (::fstat(fd, &own) == 0 && (own.st_uid != info.st_uid || own.st_gid != info.st_gid) &&
        ::fchown(fd, info.st_uid, info.st_gid) != 0) {
        // Only the administrator gives files away; a member of the group keeps at least the group.
        kept = ::fchown(fd, static_cast<uid_t>(-1), info.st_gid) == 0 && own.st_uid == info.st_uid;
    }
    return ::fchmod(fd, info.st_mode & 07777) == 0 && kept;
}

bool ZentOS::CreateDirectories(const QString& path, int mode)
{
    const QString clean = QDir::cleanPath(QDir(path).absolutePath());
    struct stat info
    {
    };
    if (::stat(Native(clean).constData(), &info) == 0)
        return S_ISDIR(info.st_mode);
    const QString parent = QFileInfo(clean).path();
    if (parent != clean && !CreateDirectories(parent, mode))
        return false;
    if (::mkdir(Native(clean).constData(), static_cast<mode_t>(mode)) != 0)
        return errno == EEXIST && ::stat(Native(clean).constData(), &info) == 0 && S_ISDIR(info.st_mode);
    // mkdir applies the umask; the folder's mode must not depend on it. No
    // link can stand where mkdir just made a folder, but the folder is
    // opened without following one all the same.
    const int fd = ::open(Native(clean).constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool set = ::fchmod(fd, static_cast<mode_t>(mode)) == 0;
    ::close(fd);
    return set;
}

QString ZentOS::GetRuntimeDir(QString* problem) const
{
    QString why;
    if (const char* runtime = GetTrustedEnvironmentVar("XDG_RUNTIME_DIR")) {
        const QString dir = QFile::decodeName(runtime);
        if (!dir.isEmpty() && QDir::isAbsolutePath(dir)) {
            const QString dirProblem = PrivateDirProblem(Native(dir));
            if (dirProblem.isEmpty())
                return dir;
            why = QStringLiteral("The runtime folder %1 %2").arg(dir, dirProblem);
        }
    }
    // Without a session's runtime folder (services, cron, su): one of this
    // user's own in the temporary folder, which other users must not have made first.
    const QString own = TempBase() + QStringLiteral("/zent-runtime-") + QString::number(::geteuid());
    ::mkdir(Native(own).constData(), 0700);
    const QString ownProblem = PrivateDirProblem(Native(own));
    if (ownProblem.isEmpty()) {
        if (problem)
            *problem = why;
        return own;
    }
    // Taken by somebody else: a fresh folder keeps this process's files
    // private; other instances cannot find them there, so the warning.
    static std::mutex s_mutex;
    static QHash<QString, QString> s_fresh;
    std::lock_guard<std::mutex> lock(s_mutex);
    QString fresh = s_fresh.value(own);
    if (fresh.isEmpty()) {
        QByteArray pattern = Native(own + QStringLiteral("-XXXXXX"));
        if (::mkdtemp(pattern.data()))
            fresh = QFile::decodeName(pattern);
        s_fresh.insert(own, fresh);
    }
    if (problem) {
        *problem = QStringLiteral("The runtime folder %1 %2; this instance's lock and socket are in %3, "
                                  "where other instances do not look for them")
                       .arg(own, ownProblem, fresh.isEmpty() ? QStringLiteral("no folder") : fresh);
        if (!why.isEmpty())
            *problem = why + QStringLiteral(". ") + *problem;
    }
    return fresh;
}
