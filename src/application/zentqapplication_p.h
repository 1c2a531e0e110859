#ifndef APPLICATION_ZENTQAPPLICATION_P_H
#define APPLICATION_ZENTQAPPLICATION_P_H

#include <QByteArray>
#include <QObject>
#include <QString>

class QFileSystemWatcher;
class QLocalServer;
class QLocalSocket;
class QSocketNotifier;
class ZentQApplication;

/// Reads the message number and, for key messages, the key code out of a
/// native message record; false when the record is no window message.
bool DecodeWindowMessage(const QByteArray& eventType, void* message, unsigned int& number, unsigned int& key);

/// The platform's sources of the watched events of a ZentQApplication, where
/// they do not arrive as window messages: bring-to-front requests of later
/// instances, changes of the clock and of the time-zone file. Each one is
/// handed to ZentQApplication::HandleMessage as its window message.
class ZentQApplicationSources : public QObject
{
    Q_OBJECT

public:
    explicit ZentQApplicationSources(ZentQApplication* app);
    ~ZentQApplicationSources() override;

    bool ListenForActivation(const QString& name);

private slots:
    void OnActivationConnection();
    void OnChannelListenerEnded();
    void OnClockChange();
    void OnTimeZoneFileEvent();

private:
    bool ListenOrWatch();
    bool Listen(const QString& channel);
    void RetryListenOrWatch();
    void WatchClock();
    void WatchTimeZoneFile();
    void ReadRequests(QLocalSocket* socket);
    QString TimeZoneSignature() const;

    ZentQApplication* m_pApp;
    QLocalServer* m_pServer = nullptr;
    // The bring-to-front channel this instance serves, or watches while
    // another instance serves it, so as to take it over when that one ends.
    QString m_sChannelName;
    QLocalSocket* m_pChannelWatch = nullptr;
    void* m_pChannelLock = nullptr;
    int m_nChannelGeneration = 0;
    int m_nClockDescriptor = -1;
    QSocketNotifier* m_pClockNotifier = nullptr;
    QFileSystemWatcher* m_pTimeZoneWatcher = nullptr;
    QString m_sTimeZoneFile;
    QString m_sTimeZoneSignature;
};

#endif
