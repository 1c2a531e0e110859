// Linux and other Unix systems: dlopen for libraries, gettid for threads,
// fsync for durability, the desktop's opener for showing files, flock and
// local sockets for single instances, timerfd for changes of the clock.
#include "kvbase/zentos.h"
#include "kvbase/zentoswindowplacement_p.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileDevice>
#include <QFileInfo>
#include <QLocalSocket>
#include <QProcess>
#include <QStandardPaths>
#include <QUrl>
#include <QWidget>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <limits>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
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
    for (const QString& name : qAsConst(names)) {
        if (!appDir.isEmpty() && QFileInfo(name).isRelative())
            candidates << appDir + QLatin1Char('/') + name;
        candidates << name; // the loader's own search path
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
    if (const char* dir = GetEnvironmentVar("ZENT_PRODUCT_DIR"))
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
    const int values[5] = {placement.left, placement.top, placement.right, placement.bottom, placement.showState};
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

bool ZentOS::DisplayTextFile(const QString& fileName)
{
    if (isatty(STDOUT_FILENO)) {
        QFile file(fileName);
        if (!file.open(QIODevice::ReadOnly))
            return false;
        const QByteArray bytes = file.readAll();
        return ::write(STDOUT_FILENO, bytes.constData(), static_cast<size_t>(bytes.size())) == bytes.size();
    }
    return StartProgram(QStringLiteral("xdg-open"), fileName);
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

QString InstanceFileBase(const QString& name)
{
    QString token = QString::fromLatin1(QUrl::toPercentEncoding(name));
    // Socket paths hold at most 107 bytes, so long names go by their hash.
    if (token.size() > 40)
        token =
            QStringLiteral("h") +
            QString::fromLatin1(QCryptographicHash::hash(name.toUtf8(), QCryptographicHash::Sha1).toHex());
    QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (dir.isEmpty())
        dir = QDir::tempPath();
    return dir + QStringLiteral("/zent-") + token + QLatin1Char('-') + QString::number(::getuid());
}

QByteArray LockFileName(const QString& name)
{
    return QFile::encodeName(InstanceFileBase(name) + QStringLiteral(".lock"));
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
    const int fd = ::open(LockFileName(name).constData(), O_RDONLY | O_CLOEXEC);
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
    const int fd = ::open(LockFileName(name).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        return nullptr;
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
    return InstanceFileBase(name) + QStringLiteral(".sock");
}

long ZentOS::BroadcastMessage(const QString& name, unsigned int message)
{
    QLocalSocket socket;
    socket.connectToServer(GetMessageChannel(name), QIODevice::WriteOnly);
    if (!socket.waitForConnected(1000))
        return -1;
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
