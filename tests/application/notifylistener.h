#ifndef TESTS_APPLICATION_NOTIFYLISTENER_H
#define TESTS_APPLICATION_NOTIFYLISTENER_H

#include <QByteArray>
#include <QElapsedTimer>
#include <QFile>

#include <cstddef>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/// The test's side of systemd's notify protocol: a datagram socket bound to a
/// path or, with a leading "@", to an abstract name; it receives what a
/// service reports.
class NotifyListener
{
public:
    explicit NotifyListener(const QByteArray& name)
    {
        m_fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address;
        std::memset(&address, 0, sizeof address);
        address.sun_family = AF_UNIX;
        if (m_fd < 0 || static_cast<size_t>(name.size()) >= sizeof address.sun_path)
            return;
        std::memcpy(address.sun_path, name.constData(), static_cast<size_t>(name.size()));
        socklen_t length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size() + 1);
        if (name.startsWith('@')) {
            address.sun_path[0] = '\0';
            --length;
        }
        m_bBound = ::bind(m_fd, reinterpret_cast<const sockaddr*>(&address), length) == 0;
    }
    ~NotifyListener()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    NotifyListener(const NotifyListener&) = delete;
    NotifyListener& operator=(const NotifyListener&) = delete;

    bool IsBound() const { return m_bBound; }

    /// The next datagram, or a null array when none arrives within `timeoutMs`.
    QByteArray Receive(int timeoutMs)
    {
        pollfd fd = {m_fd, POLLIN, 0};
        if (::poll(&fd, 1, timeoutMs) <= 0)
            return QByteArray();
        char buffer[4096];
        const ssize_t size = ::recv(m_fd, buffer, sizeof buffer, 0);
        return size < 0 ? QByteArray() : QByteArray(buffer, static_cast<int>(size));
    }

    /// The next datagram other than a watchdog ping.
    QByteArray ReceiveReport(int timeoutMs)
    {
        QElapsedTimer timer;
        timer.start();
        for (;;) {
            const int left = timeoutMs - static_cast<int>(timer.elapsed());
            const QByteArray datagram = Receive(left > 0 ? left : 0);
            if (datagram != "WATCHDOG=1\n")
                return datagram;
        }
    }

private:
    int m_fd = -1;
    bool m_bBound = false;
};

#endif
