#ifndef CFGCLIENT_CFGETCDDOCUMENT_H
#define CFGCLIENT_CFGETCDDOCUMENT_H

#include "cfgclient/etcdclient.h"
#include "configuration/icfg.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QStringList>
#include <mutex>

#include <memory>
#include <optional>
#include <vector>

class EtcdWatcher;
struct EtcdEvent;

/// One element of a configuration: a value, a sub-configuration, or both
/// (an element with text and children), as in an XML document.
struct CfgEtcdElement
{
    QString name;
    std::optional<QString> text;
    std::optional<QString> type;       ///< "string", "integer", "boolean" or what a writer stored
    std::optional<QString> protection; ///< "true", "false" or absent, as the "protected" attribute
    qint64 ts = 0;
    /// The text came after child elements (a node's own text set later), so
    /// it does not make the element a value.
    bool textLast = false;
    /// Sibling position: the revision that created the element, or the one
    /// it kept when it was renamed or moved.
    qint64 order = 0;
    /// The order was stored with the element (renamed or moved), not taken from its creation.
    bool explicitOrder = false;
    qint64 modRevision = 0;
    /// False for an element that only exists because keys below it do.
    bool stored = false;
    CfgEtcdElement* parent = nullptr;
    std::vector<std::unique_ptr<CfgEtcdElement>> children;
    QHash<QString, CfgEtcdElement*> byName;

    /// Text before any child, or a protection flag, make an element a value.
    bool IsValue() const { return (text.has_value() && !textLast) || protection.has_value(); }
    CfgEtcdElement* Child(const QString& childName) const { return byName.value(childName, nullptr); }
};

/// The record of one element as etcd keeps it (its key says where it is).
struct CfgEtcdRecord
{
    std::optional<QString> text;
    std::optional<QString> type;
    std::optional<QString> protection;
    qint64 ts = 0;
    bool textLast = false;
    qint64 order = 0; ///< 0: the creating revision orders the element

    QByteArray ToJson() const;
    /// The element's record; its order is written when it was stored
    /// before or `forceOrder` asks for it (elements that move keep their place).
    static CfgEtcdRecord FromElement(const CfgEtcdElement& element, bool forceOrder);
};

/// The configurations held by the configuration service, as one process sees
/// them: a cache of the applications it opened, kept current by a watch.
///
/// Key layout in etcd (readable with `etcdctl get --prefix zent/`): every
/// element of a configuration is one key
///
///     zent/<application>/<view>[/<sub>/.../<name>]
///
/// where <application> is the first component of the configuration key,
/// <view> one of User, Machine, Domain, System, Export, and the rest the
/// remaining components (backslashes of the key become slashes). The value
/// is a JSON object with the element's text ("text"), its type ("type"), its
/// protection flag ("protected"), "textLast" for a text that follows child
/// elements, its time stamp ("ts", seconds since 1970,
/// advancing on every change of the text) and, for a renamed or moved
/// element, its sibling position ("order"). Siblings are ordered by the
/// revision that created them, so enumerations keep creation order.
///
/// Loading an application reads its whole sub-tree in one range request;
/// afterwards every read is served from memory. One watch over the prefix,
/// from the revision of the first load on, applies the changes of other
/// processes (within milliseconds) and emits Changed for each. Writes are
/// sent at once, in one transaction per operation (transactions of more than
/// 128 keys are split); the cache changes only when etcd acknowledged them.
/// A write that etcd did not acknowledge throws KVException and leaves the
/// cache as it was.
///
/// Elements whose key appears without its parents' keys (written by other
/// tools) get implicit parents. Protected elements without a type are typed
/// from their text in memory, as the XML backend types them after opening.
///
/// Thread-safe: the cache has its own mutex, taken briefly by every access
/// and by the watch thread; requests to etcd run outside it.
class CfgEtcdDocument : public QObject
{
    Q_OBJECT

public:
    static const QByteArray DEFAULT_PREFIX; ///< "zent/"

    CfgEtcdDocument(std::shared_ptr<EtcdClient> client, const QByteArray& prefix = DEFAULT_PREFIX);
    ~CfgEtcdDocument() override;

    EtcdClient& Client() const { return *m_pClient; }
    std::mutex& Mutex() const { return m_mutex; }

    /// (Re)loads one application, or every application for an empty name.
    void Load(const QString& application);
    /// Loads the application of `path` (all for an empty path) unless held.
    void EnsureLoaded(const QStringList& path);
    /// Whether the application of `path` is held; caller holds Mutex().
    bool IsLoaded(const QStringList& path) const
    {
        return path.isEmpty() ? m_bAllLoaded : IsHeld(path.first());
    }
    /// Stops following changes (the service client disconnects).
    void StopWatching();

    /// The view's top element (never null); caller holds Mutex().
    CfgEtcdElement* ViewRoot(ICfg::View view);
    /// The element at `path` below the view, or null; caller holds Mutex().
    CfgEtcdElement* Find(ICfg::View view, const QStringList& path);

    /// One change of a write.
    struct Change
    {
        ICfg::View view;
        QStringList path;
        bool remove = false;  ///< removes the element with everything below it
        CfgEtcdRecord record; ///< the element's new record (puts)
    };
    /// Sends `changes` to etcd and, once acknowledged, applies them to the
    /// cache. Throws KVException (cache unchanged) otherwise. Called without
    /// Mutex() held.
    void Write(const std::vector<Change>& changes);

    /// A text read before (absent: an empty optional) for `readKey`, while
    /// nothing changed since; caller holds Mutex().
    const std::optional<QString>* CachedRead(const QString& readKey) const;
    void RememberRead(const QString& readKey, const std::optional<QString>& text);

    /// The etcd key of an element.
    QByteArray Key(ICfg::View view, const QStringList& path) const;

signals:
    /// Another process changed (or removed) the element `key` (backslash
    /// path) in `view`. Emitted from the watch thread: connect it with a
    /// receiver object, so that the call is queued to the receiver's thread.
    void Changed(int view, const QString& key);

private:
    bool ParseKey(const QByteArray& key, ICfg::View* view, QStringList* path) const;
    void ApplyPut(ICfg::View view, const QStringList& path, const CfgEtcdRecord& record,
                  qint64 createRevision, qint64 modRevision);
    void ApplyRemove(ICfg::View view, const QStringList& path, qint64 revision, bool recordLocal);
    void CollectKeys(ICfg::View view, QStringList path, const CfgEtcdElement& element,
                     QList<QByteArray>* keys) const;
    QList<QByteArray> MarkInFlight(const std::vector<Change>& changes, size_t first, size_t end,
                                   const std::vector<EtcdOperation>& batch);
    bool IsOwnEcho(const EtcdEvent& event) const;
    CfgEtcdElement* Materialise(ICfg::View view, const QStringList& path);
    void Insert(CfgEtcdElement* parent, std::unique_ptr<CfgEtcdElement> child);
    void Detach(CfgEtcdElement* element);
    void ClearApplication(const QString& application);
    void OnEvents(const std::vector<EtcdEvent>& events, bool compacted);
    bool IsHeld(const QString& application) const;

    std::shared_ptr<EtcdClient> m_pClient;
    QByteArray m_prefix;
    mutable std::mutex m_mutex;
    CfgEtcdElement m_views[5];
    QHash<QString, qint64> m_loaded; ///< application -> revision of its load
    bool m_bAllLoaded;
    qint64 m_nAllRevision;
    /// Keys this process changed, with the revision of the change: older
    /// events for them are stale.
    QHash<QByteArray, qint64> m_localRevisions;
    /// Keys this process is writing right now, with what it writes (a null
    /// value for a deletion): their events may come before the write's answer.
    QHash<QByteArray, QByteArray> m_inFlight;
    /// Texts read since the last change of the cache, by object key, name and view.
    QHash<QString, std::optional<QString>> m_reads;
    std::unique_ptr<EtcdWatcher> m_pWatcher;
};

#endif
