#include "application/systemdserviceimpl_p.h"

#include "application/service.h"
#include "kvbase/errorhandler.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <memory>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stddef.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

const char* const SOURCE_FILE = "application/systemdserviceimpl";
const char* const CLASS_NAME = "SystemdServiceImpl";

// How long Exec waits, once the stop is reported, for OnStart to return.
constexpr std::chrono::seconds BODY_END_WAIT{5};

using Clock = std::chrono::steady_clock;

QByteArray Variable(const char* name)
{
    // Variables that move where the process reports are ignored in privileged (set-user-id) processes.
    return QByteArray(secure_getenv(name));
}

void ReportError(const QString& text)
{
    ErrorHandler::Instance().Message(text, ErrorHandler::MSG_Error, QStringLiteral("Init"),
                                     QLatin1String(CLASS_NAME));
}

QString ErrnoText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// A notify socket's address: an absolute path, or an abstract name written with a leading "@".
class NotifyAddress
{
public:
    explicit NotifyAddress(const QByteArray& name)
    {
        std::memset(&m_address, 0, sizeof m_address);
        m_address.sun_family = AF_UNIX;
        if (!name.startsWith('/') && !name.startsWith('@')) {
            m_error =
                QStringLiteral("The notify socket \"%1\" is neither an absolute path nor an abstract name")
                    .arg(QString::fromLocal8Bit(name));
            return;
        }
        // A path needs its terminating zero; an abstract name is its bytes after a leading zero.
        const bool isAbstract = name.startsWith('@');
        const size_t room = sizeof m_address.sun_path - (isAbstract ? 0 : 1);
        if (static_cast<size_t>(name.size()) > room) {
            m_error = QStringLiteral("The notify socket \"%1\" is too long for a socket address")
                          .arg(QString::fromLocal8Bit(name));
            return;
        }
        std::memcpy(m_address.sun_path, name.constData(), static_cast<size_t>(name.size()));
        if (isAbstract)
            m_address.sun_path[0] = '\0';
        m_length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + static_cast<size_t>(name.size()) +
                                          (isAbstract ? 0 : 1));
    }

    bool IsValid() const { return m_length != 0; }
    QString Error() const { return m_error; }

    /// Connects a new datagram socket; -1 (errno set) on failure.
    int Connect() const
    {
        const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (fd < 0)
            return -1;
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&m_address), m_length) != 0) {
            const int error = errno;
            ::close(fd);
            errno = error;
            return -1;
        }
        return fd;
    }

private:
    sockaddr_un m_address;
    socklen_t m_length = 0;
    QString m_error;
};

// One datagram per report, on a socket of its own, so that a service manager
// that re-executes itself still receives the next one.
bool SendNotification(const QByteArray& socketName, const QByteArray& message)
{
    const NotifyAddress address(socketName);
    const int fd = address.IsValid() ? address.Connect() : -1;
    bool sent = false;
    if (fd >= 0) {
        ssize_t result;
        do
            result = ::send(fd, message.constData(), static_cast<size_t>(message.size()), MSG_NOSIGNAL);
        while (result < 0 && errno == EINTR);
        sent = result == message.size();
        if (!sent)
            _Q_Trace(QStringLiteral("Notification to %1 failed: %2")
                         .arg(QString::fromLocal8Bit(socketName), ErrnoText(errno)),
                     SOURCE_FILE, __LINE__);
        ::close(fd);
    } else {
        _Q_Trace(QStringLiteral("Notification to %1 failed: %2")
                     .arg(QString::fromLocal8Bit(socketName),
                          address.IsValid() ? ErrnoText(errno) : address.Error()),
                 SOURCE_FILE, __LINE__);
    }
    return sent;
}

// Half the interval systemd's watchdog asks for, when it asks this process; zero otherwise.
std::chrono::microseconds WatchdogInterval()
{
    const QByteArray pid = Variable("WATCHDOG_PID");
    if (!pid.isEmpty() && pid.toLongLong() != static_cast<long long>(::getpid()))
        return std::chrono::microseconds(0);
    bool ok = false;
    const qulonglong usec = Variable("WATCHDOG_USEC").toULongLong(&ok);
    return std::chrono::microseconds(ok ? static_cast<long long>(usec / 2) : 0);
}

bool StartedBySystemd()
{
    return !Variable("NOTIFY_SOCKET").isEmpty() || !Variable("INVOCATION_ID").isEmpty();
}

// The stop control arrives as SIGTERM. Its handler only writes a byte to a
// pipe; the control handler reads it on the thread that called Exec.
std::atomic<int> s_signalWriteFd{-1};
// Woken when a service main has registered or given up.
std::atomic<int> s_wakeWriteFd{-1};

void OnTerminateSignal(int)
{
    const int savedErrno = errno;
    const int fd = s_signalWriteFd.load();
    if (fd >= 0) {
        const char byte = 'T';
        [[maybe_unused]] const ssize_t ignored = ::write(fd, &byte, 1);
    }
    errno = savedErrno;
}

void WriteWakeByte(const std::atomic<int>& target)
{
    const int fd = target.load();
    if (fd >= 0) {
        const char byte = 'W';
        [[maybe_unused]] const ssize_t ignored = ::write(fd, &byte, 1);
    }
}

void Drain(int fd)
{
    char buffer[64];
    while (::read(fd, buffer, sizeof buffer) > 0) {
    }
}

// The pipes and the SIGTERM handler that exist while Exec runs.
class ControlChannel
{
public:
    bool Open()
    {
        if (::pipe2(m_signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
            return false;
        if (::pipe2(m_wakePipe, O_CLOEXEC | O_NONBLOCK) != 0)
            return false;
        s_signalWriteFd = m_signalPipe[1];
        s_wakeWriteFd = m_wakePipe[1];
        struct sigaction action;
        std::memset(&action, 0, sizeof action);
        action.sa_handler = OnTerminateSignal;
        action.sa_flags = SA_RESTART;
        sigemptyset(&action.sa_mask);
        m_bHandlerInstalled = ::sigaction(SIGTERM, &action, &m_previousAction) == 0;
        return m_bHandlerInstalled;
    }

    ~ControlChannel()
    {
        if (m_bHandlerInstalled)
            ::sigaction(SIGTERM, &m_previousAction, nullptr);
        s_signalWriteFd = -1;
        s_wakeWriteFd = -1;
        for (int fd : {m_signalPipe[0], m_signalPipe[1], m_wakePipe[0], m_wakePipe[1]})
            if (fd >= 0)
                ::close(fd);
    }

    int SignalFd() const { return m_signalPipe[0]; }
    int WakeFd() const { return m_wakePipe[0]; }

private:
    int m_signalPipe[2] = {-1, -1};
    int m_wakePipe[2] = {-1, -1};
    struct sigaction m_previousAction;
    bool m_bHandlerInstalled = false;
};

// The channel of the running Exec; used on Exec's thread only.
ControlChannel* s_pChannel = nullptr;

int PollTimeout(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() <= 0 ? 0 : static_cast<int>(left.count()) + 1;
}

} // namespace

std::atomic<SystemdServiceImpl*> SystemdServiceImpl::s_pInstance{nullptr};

ServiceImpl* ServiceImpl::CreatePlatformImpl(Service* service)
{
    return new SystemdServiceImpl(service);
}

SystemdServiceImpl::SystemdServiceImpl(Service* service) : ServiceImpl(service)
{
    s_pInstance = this;
}

SystemdServiceImpl::~SystemdServiceImpl()
{
    SystemdServiceImpl* self = this;
    s_pInstance.compare_exchange_strong(self, nullptr);
}

void SystemdServiceImpl::Exec(int argc, wchar_t** argv)
{
    m_argc = argc;
    m_argv = argv;
    if (!StartedBySystemd()) {
        _Q_Trace(QStringLiteral("Not started by systemd (neither NOTIFY_SOCKET nor INVOCATION_ID is set)"),
                 SOURCE_FILE, __LINE__);
        return;
    }
    ControlChannel channel;
    if (!channel.Open()) {
        ReportError(QStringLiteral("The stop control cannot be set up: %1").arg(ErrnoText(errno)));
        return;
    }
    s_pChannel = &channel;

    // Shared with the thread, which may outlive this call when the body does not end.
    auto bodyEnded = std::make_shared<std::promise<void>>();
    std::future<void> bodyEnd = bodyEnded->get_future();
    std::thread serviceMain([bodyEnded] {
        ServiceMain();
        bodyEnded->set_value();
    });
    RunControlLoop();

    if (bodyEnd.wait_for(BODY_END_WAIT) == std::future_status::ready) {
        serviceMain.join();
    } else {
        _Q_Trace(QStringLiteral("The service's body did not end after the stop; it is left running"),
                 SOURCE_FILE, __LINE__);
        serviceMain.detach();
    }
    s_pChannel = nullptr;
}

void SystemdServiceImpl::ServiceMain()
{
    if (SystemdServiceImpl* impl = s_pInstance.load())
        impl->m_pService->Start(impl->Arguments());
}

void SystemdServiceImpl::ControlHandler(quint32 control)
{
    if (SystemdServiceImpl* impl = s_pInstance.load())
        impl->HandleControl(control);
}

// Runs on the thread that called Exec until the current service is stopped:
// hands SIGTERM to the control handler once the service has registered, and
// keeps systemd's watchdog fed.
void SystemdServiceImpl::RunControlLoop()
{
    const std::chrono::microseconds watchdog = WatchdogInterval();
    Clock::time_point nextPing = Clock::now() + watchdog;
    for (;;) {
        SystemdServiceImpl* impl = s_pInstance.load();
        if (!impl || impl->m_status.currentState == SERVICE_STOPPED)
            return;
        pollfd fds[2] = {{s_pChannel->WakeFd(), POLLIN, 0},
                         {s_pChannel->SignalFd(), static_cast<short>(impl->m_bRegistered ? POLLIN : 0), 0}};
        const int result = ::poll(fds, 2, watchdog.count() > 0 ? PollTimeout(nextPing) : -1);
        if (result < 0 && errno != EINTR)
            return;
        if (fds[0].revents & POLLIN)
            Drain(fds[0].fd);
        if (fds[1].revents & POLLIN) {
            Drain(fds[1].fd);
            ControlHandler(SERVICE_CONTROL_STOP);
        }
        if (watchdog.count() > 0 && Clock::now() >= nextPing) {
            SendNotification(Variable("NOTIFY_SOCKET"), QByteArrayLiteral("WATCHDOG=1\n"));
            nextPing = std::max(nextPing + watchdog, Clock::now());
        }
    }
}

bool SystemdServiceImpl::Init()
{
    m_status.serviceType = SERVICE_WIN32;
    m_status.currentState = SERVICE_START_PENDING;
    m_status.controlsAccepted = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN;
    m_status.exitCode = 0;
    m_status.serviceSpecificExitCode = 0;
    m_status.checkPoint = 0;
    m_status.waitHint = 0;

    m_bRegistered = RegisterControlHandler();
    const bool registered = m_bRegistered;
    if (registered) {
        m_status.currentState = SERVICE_RUNNING;
    } else {
        m_status.currentState = SERVICE_STOPPED;
        m_status.exitCode = 0xFFFFFFFFu;
    }
    // Without registration this reports nothing: there is no one to report to.
    ReportStatus();
    WriteWakeByte(s_wakeWriteFd);
    return registered;
}

bool SystemdServiceImpl::IsRunning()
{
    return m_status.currentState == SERVICE_RUNNING;
}

void SystemdServiceImpl::HandleControl(quint32 control)
{
    switch (control) {
    case SERVICE_CONTROL_STOP:
        m_pService->Stop();
        m_status.exitCode = 0;
        m_status.currentState = SERVICE_STOPPED;
        break;
    case SERVICE_CONTROL_PAUSE:
        m_pService->Pause();
        m_status.exitCode = 0;
        m_status.currentState = SERVICE_PAUSED;
        break;
    case SERVICE_CONTROL_CONTINUE:
        m_pService->Continue();
        m_status.exitCode = 0;
        m_status.currentState = SERVICE_RUNNING;
        break;
    default:
        break;
    }
    ReportStatus();
}

QByteArray SystemdServiceImpl::StatusMessage(const QString& name, quint32 state, quint32 exitCode)
{
    // A line feed would end the STATUS= line early.
    QString text = name;
    text.replace(QLatin1Char('\n'), QLatin1Char(' '));
    switch (state) {
    case SERVICE_RUNNING:
        return "READY=1\nSTATUS=" + text.toUtf8() + ": running\n";
    case SERVICE_PAUSED:
        return "STATUS=" + text.toUtf8() + ": paused\n";
    case SERVICE_START_PENDING:
        return "STATUS=" + text.toUtf8() + ": starting\n";
    case SERVICE_STOPPED:
        return "STOPPING=1\nSTATUS=" + text.toUtf8() + ": stopped, exit code " +
               QByteArray::number(static_cast<qint32>(exitCode)) + '\n';
    default:
        return "STATUS=" + text.toUtf8() + ": state " + QByteArray::number(state) + '\n';
    }
}

bool SystemdServiceImpl::RegisterControlHandler()
{
    m_notifySocket = Variable("NOTIFY_SOCKET");
    if (m_notifySocket.isEmpty()) {
        // A unit without notifications still runs under systemd.
        if (!Variable("INVOCATION_ID").isEmpty())
            return true;
        _Q_Trace(QStringLiteral("Not started by systemd: the service is not registered"), SOURCE_FILE,
                 __LINE__);
        return false;
    }
    const NotifyAddress address(m_notifySocket);
    if (!address.IsValid()) {
        ReportError(address.Error());
        return false;
    }
    const int fd = address.Connect();
    if (fd < 0) {
        ReportError(QStringLiteral("The notify socket \"%1\" cannot be reached: %2")
                        .arg(QString::fromLocal8Bit(m_notifySocket), ErrnoText(errno)));
        return false;
    }
    ::close(fd);
    return true;
}

void SystemdServiceImpl::ReportStatus()
{
    if (m_bRegistered && !m_notifySocket.isEmpty())
        SendNotification(m_notifySocket,
                         StatusMessage(m_pService->Name(), m_status.currentState, m_status.exitCode));
}

QStringList SystemdServiceImpl::Arguments() const
{
    QStringList args;
    for (int i = 0; m_argv && i < m_argc; ++i)
        args.append(QString::fromWCharArray(m_argv[i]));
    return args;
}
