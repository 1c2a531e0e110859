#ifndef CFGCLIENT_ETCDWATCHER_H
#define CFGCLIENT_ETCDWATCHER_H

#include "cfgclient/etcdclient.h"

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

typedef void CURLM;

/// One change etcd reports: a put or a deletion of a key.
struct EtcdEvent
{
    bool isDelete = false;
    EtcdKeyValue kv;
};

/// Follows every change below a key prefix from a given revision on, in a
/// thread of its own, over etcd's streaming watch.
///
/// The handler runs in the watch thread for each batch of events, in
/// revision order. When the stream breaks (a member ends, the network
/// fails) the watch is opened again, on the next member, from the revision
/// after the last event seen, so nothing is lost and nothing is repeated.
/// When etcd has compacted the history the watch needs, the handler is told
/// (`compacted`) and a new stream goes on from the oldest revision etcd still
/// holds; the owner reloads what it keeps.
class EtcdWatcher
{
public:
    using Handler = std::function<void(const std::vector<EtcdEvent>& events, bool compacted)>;

    EtcdWatcher(EtcdClient* client, const QByteArray& prefix, qint64 startRevision, Handler handler);
    /// Stops the thread; returns once the handler no longer runs.
    ~EtcdWatcher();
    EtcdWatcher(const EtcdWatcher&) = delete;
    EtcdWatcher& operator=(const EtcdWatcher&) = delete;

private:
    void Run();
    void WatchOnce(const QString& url);
    void Consume(const QByteArray& chunk);
    void HandleMessage(const QByteArray& line);
    void Pause(int milliseconds);

    EtcdClient* m_pClient;
    QByteArray m_prefix;
    std::atomic<qint64> m_nextRevision;
    Handler m_handler;
    CURLM* m_pMulti;
    std::atomic<bool> m_stop;
    /// etcd ended this watch (compaction, cancellation): open a new stream.
    bool m_bReopen = false;
    QByteArray m_buffer;
    std::thread m_thread;

    static size_t Receive(char* data, size_t size, size_t count, void* self);
};

#endif
