#include "application/log_p.h"

#include "kvbase/errorhandler.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char* const SOURCE_FILE = "application/log";
const char* const LOG_FILE_NAME = "ServiceLog.txt";

QString Variable(const char* name)
{
    // Variables that move files are ignored in privileged (set-user-id) processes.
    const char* value = secure_getenv(name);
    return value ? QFile::decodeName(value) : QString();
}

void TraceLostLine(const QString& fileName, const char* reason)
{
    _Q_Trace(QStringLiteral("Log line for %1 lost: %2").arg(fileName, QString::fromLocal8Bit(reason)),
             SOURCE_FILE, __LINE__);
}

bool WriteAll(int fd, const QByteArray& bytes)
{
    const char* data = bytes.constData();
    qint64 left = bytes.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, data, static_cast<size_t>(left));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        left -= written;
    }
    return true;
}

} // namespace

namespace LogPrivate {

QString DefaultFileName(unsigned effectiveUser)
{
    // systemd's LogsDirectory= may list several folders; the first is ours.
    const QString logsDirectory = Variable("LOGS_DIRECTORY").section(QLatin1Char(':'), 0, 0);
    if (!logsDirectory.isEmpty())
        return logsDirectory + QLatin1Char('/') + QLatin1String(LOG_FILE_NAME);
    // Never the shared temporary folder: a root service appending to a
    // predictable name there could be sent through a planted link.
    if (effectiveUser == 0)
        return QStringLiteral("/var/log/zent/") + QLatin1String(LOG_FILE_NAME);
    QString stateHome = Variable("XDG_STATE_HOME");
    if (stateHome.isEmpty() || !QDir::isAbsolutePath(stateHome))
        stateHome = Variable("HOME") + QStringLiteral("/.local/state");
    return stateHome + QStringLiteral("/zent/") + QLatin1String(LOG_FILE_NAME);
}

QString DefaultFileName()
{
    return DefaultFileName(static_cast<unsigned>(::geteuid()));
}

void CreateDefaultFolder(const QString& fileName)
{
    const QString folder = QFileInfo(fileName).path();
    if (QFileInfo(folder).isDir())
        return;
    const QByteArray path = QFile::encodeName(folder);
    // Created one level at a time, each private to the user (0700) and never through a link.
    for (int slash = path.indexOf('/', 1);; slash = path.indexOf('/', slash + 1)) {
        const QByteArray part = slash < 0 ? path : path.left(slash);
        if (::mkdir(part.constData(), 0700) != 0 && errno != EEXIST) {
            TraceLostLine(fileName, std::strerror(errno));
            return;
        }
        if (slash < 0)
            return;
    }
}

bool AppendToFile(const QString& fileName, const QByteArray& bytes)
{
    // O_NOFOLLOW keeps a root service from appending through a planted link;
    // O_NONBLOCK keeps a FIFO put in the file's place from blocking the open.
    const int fd = ::open(QFile::encodeName(fileName).constData(),
                          O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0640);
    if (fd < 0) {
        TraceLostLine(fileName, std::strerror(errno));
        return false;
    }
    struct stat info;
    bool written = false;
    if (::fstat(fd, &info) != 0)
        TraceLostLine(fileName, std::strerror(errno));
    else if (!S_ISREG(info.st_mode))
        TraceLostLine(fileName, "not a regular file");
    else if (info.st_uid != ::geteuid())
        TraceLostLine(fileName, "owned by another user");
    else if (!(written = WriteAll(fd, bytes)))
        TraceLostLine(fileName, std::strerror(errno));
    ::close(fd);
    return written;
}

} // namespace LogPrivate
