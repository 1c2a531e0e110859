// Linux sources of the watched events: no window messages arrive here, so
// bring-to-front requests come through a local server, changes of the clock
// through a clock-change notifier, changes of the time zone through a watch on
// the time-zone file, and keys through an application-wide event filter.
#include "application/zentqapplication.h"
#include "application/zentqapplication_p.h"

#include "kvbase/errorhandler.h"
#include "kvbase/zentos.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QKeyEvent>
#include <QLocalServer>
#include <QLocalSocket>
#include <QSocketNotifier>
#include <QTimer>

namespace {

const char* const SOURCE_FILE = "application/zentqapplication";

// Registered messages are the only ones the bring-to-front channel carries.
constexpr unsigned int FIRST_REGISTERED_MESSAGE = 0xC000;
constexpr unsigned int LAST_REGISTERED_MESSAGE = 0xFFFF;
// A request is one short line; anything longer is not a request.
constexpr qint64 MAX_REQUEST_LENGTH = 32;
// How long a live instance has to answer on the channel, and how soon to look
// again while another instance is taking the channel over.
constexpr int CHANNEL_PROBE_MS = 500;
constexpr int CHANNEL_RETRY_MS = 200;

// Held by the instance that serves the channel, so that of the instances
// watching it exactly one takes it over when it ends.
QString ChannelLockName(const QString& name)
{
    return name + QStringLiteral(":bring-to-front");
}

unsigned int VirtualKey(int qtKey)
{
    switch (qtKey) {
    case Qt::Key_Shift:
        return ZentQApplication::KEY_Shift;
    case Qt::Key_Control:
        return ZentQApplication::KEY_Control;
    case Qt::Key_Alt:
        return ZentQApplication::KEY_Alt;
    case Qt::Key_F12:
        return ZentQApplication::KEY_F12;
    default:
        return 0;
    }
}

} // namespace

bool DecodeWindowMessage(const QByteArray&, void*, unsigned int&, unsigned int&)
{
    // X11 and Wayland events are no window messages; the sources below
    // deliver the watched events instead.
    return false;
}

void ZentQApplication::StartPlatformSources()
{
    m_pSources.reset(new ZentQApplicationSources(this));
    installEventFilter(this);
}

bool ZentQApplication::eventFilter(QObject* watched, QEvent* event)
{
    const QEvent::Type type = event->type();
    // A key event reaches the window first and then, as a new event, the
    // widgets; only the window's counts, so that a press counts once.
    // Windows repeats no key-up and its repeated key-downs change nothing.
    if ((type == QEvent::KeyPress || type == QEvent::KeyRelease) && watched->isWindowType()) {
        const auto* keyEvent = static_cast<QKeyEvent*>(event);
        const unsigned int key = VirtualKey(keyEvent->key());
        if (key != 0 && !keyEvent->isAutoRepeat())
            HandleMessage(type == QEvent::KeyPress ? MSG_KeyDown : MSG_KeyUp, key);
    }
    return QApplication::eventFilter(watched, event);
}

ZentQApplicationSources::ZentQApplicationSources(ZentQApplication* app) : QObject(app), m_pApp(app)
{
    WatchClock();
    WatchTimeZoneFile();
}

ZentQApplicationSources::~ZentQApplicationSources()
{
    delete m_pClockNotifier;
    ZentOS::Create().CloseClockChangeNotifier(m_nClockDescriptor);
    ZentOS::Create().CloseNamedLock(m_pChannelLock);
}

bool ZentQApplicationSources::ListenForActivation(const QString& name)
{
    m_sChannelName = name;
    ++m_nChannelGeneration;
    delete m_pChannelWatch;
    m_pChannelWatch = nullptr;
    return ListenOrWatch();
}

// A live instance answers on the channel and keeps it; this one stays
// connected to it and takes the channel over when that instance ends, so that
// a later start still finds somebody to bring to the front. Anything else on
// the channel was left by a crashed instance: listening replaces it.
bool ZentQApplicationSources::ListenOrWatch()
{
    ZentOS& os = ZentOS::Create();
    const QString channel = os.GetMessageChannel(m_sChannelName);
    auto* probe = new QLocalSocket(this);
    probe->connectToServer(channel);
    if (probe->waitForConnected(CHANNEL_PROBE_MS)) {
        _Q_Trace(QStringLiteral("Another instance receives the bring-to-front requests on %1").arg(channel),
                 SOURCE_FILE, __LINE__);
        m_pChannelWatch = probe;
        connect(probe, &QLocalSocket::disconnected, this, &ZentQApplicationSources::OnChannelListenerEnded);
        return false;
    }
    delete probe;
    void* lock = os.TryExclusiveLock(ChannelLockName(m_sChannelName));
    if (!lock) {
        // Another instance is taking the channel over just now.
        RetryListenOrWatch();
        return false;
    }
    if (!Listen(channel)) {
        os.CloseNamedLock(lock);
        return false;
    }
    os.CloseNamedLock(m_pChannelLock);
    m_pChannelLock = lock;
    return true;
}

void ZentQApplicationSources::RetryListenOrWatch()
{
    const int generation = m_nChannelGeneration;
    QTimer::singleShot(CHANNEL_RETRY_MS, this, [this, generation] {
        if (generation == m_nChannelGeneration && !m_pChannelWatch)
            ListenOrWatch();
    });
}

void ZentQApplicationSources::OnChannelListenerEnded()
{
    auto* watch = qobject_cast<QLocalSocket*>(sender());
    if (!watch || watch != m_pChannelWatch)
        return;
    m_pChannelWatch = nullptr;
    watch->deleteLater();
    _Q_Trace(QStringLiteral("The instance that received the bring-to-front requests of \"%1\" ended")
                 .arg(m_sChannelName),
             SOURCE_FILE, __LINE__);
    if (ListenOrWatch())
        _Q_Trace(QStringLiteral("Bring-to-front requests of \"%1\" taken over").arg(m_sChannelName),
                 SOURCE_FILE, __LINE__);
}

bool ZentQApplicationSources::Listen(const QString& channel)
{
    // The runtime directory is the user's alone, and the peer's user is
    // checked on every connection; the socket needs no access options of its
    // own (which would cost a temporary directory and a rename at each start).
    QLocalServer::removeServer(channel);
    auto* server = new QLocalServer(this);
    if (!server->listen(channel)) {
        _Q_Trace(QStringLiteral("No bring-to-front requests received on %1: %2")
                     .arg(channel, server->errorString()),
                 SOURCE_FILE, __LINE__);
        delete server;
        return false;
    }
    connect(server, &QLocalServer::newConnection, this, &ZentQApplicationSources::OnActivationConnection);
    delete m_pServer;
    m_pServer = server;
    return true;
}

void ZentQApplicationSources::OnActivationConnection()
{
    while (QLocalSocket* socket = m_pServer->nextPendingConnection()) {
        if (!ZentOS::Create().IsPeerSameUser(socket->socketDescriptor())) {
            _Q_Trace(QStringLiteral("Bring-to-front request of another user refused"), SOURCE_FILE, __LINE__);
            socket->abort();
            socket->deleteLater();
            continue;
        }
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { ReadRequests(socket); });
        connect(socket, &QLocalSocket::disconnected, this, [this, socket] {
            ReadRequests(socket);
            socket->deleteLater();
        });
        ReadRequests(socket);
    }
}

void ZentQApplicationSources::ReadRequests(QLocalSocket* socket)
{
    while (socket->canReadLine()) {
        bool isNumber = false;
        const unsigned int message = socket->readLine(MAX_REQUEST_LENGTH).trimmed().toUInt(&isNumber);
        if (isNumber && message >= FIRST_REGISTERED_MESSAGE && message <= LAST_REGISTERED_MESSAGE)
            m_pApp->HandleMessage(message, 0);
    }
    if (socket->bytesAvailable() > MAX_REQUEST_LENGTH)
        socket->abort();
}

void ZentQApplicationSources::WatchClock()
{
    m_nClockDescriptor = ZentOS::Create().OpenClockChangeNotifier();
    if (m_nClockDescriptor < 0) {
        _Q_Trace(QStringLiteral("Changes of the system clock cannot be watched"), SOURCE_FILE, __LINE__);
        return;
    }
    m_pClockNotifier = new QSocketNotifier(m_nClockDescriptor, QSocketNotifier::Read, this);
    connect(m_pClockNotifier, &QSocketNotifier::activated, this, &ZentQApplicationSources::OnClockChange);
}

void ZentQApplicationSources::OnClockChange()
{
    if (ZentOS::Create().AcknowledgeClockChange(m_nClockDescriptor))
        m_pApp->HandleMessage(ZentQApplication::MSG_TimeChange, 0);
}

void ZentQApplicationSources::WatchTimeZoneFile()
{
    m_sTimeZoneFile = ZentOS::Create().GetTimeZoneFile();
    if (m_sTimeZoneFile.isEmpty())
        return;
    // The folder is watched as well: tools replace the file (or re-point the
    // link) by a rename, which ends a watch on the file itself.
    m_pTimeZoneWatcher = new QFileSystemWatcher(this);
    m_pTimeZoneWatcher->addPath(QFileInfo(m_sTimeZoneFile).absolutePath());
    if (QFileInfo::exists(m_sTimeZoneFile))
        m_pTimeZoneWatcher->addPath(m_sTimeZoneFile);
    m_sTimeZoneSignature = TimeZoneSignature();
    connect(m_pTimeZoneWatcher, &QFileSystemWatcher::fileChanged, this,
            &ZentQApplicationSources::OnTimeZoneFileEvent);
    connect(m_pTimeZoneWatcher, &QFileSystemWatcher::directoryChanged, this,
            &ZentQApplicationSources::OnTimeZoneFileEvent);
}

void ZentQApplicationSources::OnTimeZoneFileEvent()
{
    if (!m_pTimeZoneWatcher->files().contains(m_sTimeZoneFile) && QFileInfo::exists(m_sTimeZoneFile))
        m_pTimeZoneWatcher->addPath(m_sTimeZoneFile);
    // The folder changes for other files too; only a new zone counts.
    const QString signature = TimeZoneSignature();
    if (signature == m_sTimeZoneSignature)
        return;
    m_sTimeZoneSignature = signature;
    m_pApp->HandleMessage(ZentQApplication::MSG_TimeChange, 0);
}

QString ZentQApplicationSources::TimeZoneSignature() const
{
    QFile file(m_sTimeZoneFile);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QFileInfo(m_sTimeZoneFile).symLinkTarget() + QLatin1Char('|') +
           QString::fromLatin1(QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha1).toHex());
}
