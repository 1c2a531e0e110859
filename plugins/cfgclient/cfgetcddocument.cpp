#include "cfgclient/cfgetcddocument.h"

#include "cfgclient/etcdwatcher.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

const QByteArray CfgEtcdDocument::DEFAULT_PREFIX = QByteArrayLiteral("zent/");

namespace {

const char KEY_SEPARATOR = '/';
// etcd's default limit of operations in one transaction.
const size_t MAX_TXN_OPERATIONS = 128;
const QString TEXT = QStringLiteral("text");
const QString TYPE = QStringLiteral("type");
const QString PROTECTED = QStringLiteral("protected");
const QString TS = QStringLiteral("ts");
const QString ORDER = QStringLiteral("order");
const QString TEXT_LAST = QStringLiteral("textLast");

int ViewIndex(ICfg::View view)
{
    // Any number outside the real views addresses the machine view, as in XML documents.
    if (view < ICfg::VIEW_User || view > ICfg::VIEW_Export)
        return ICfg::VIEW_Machine - 1;
    return view - 1;
}

QString TypeFromText(const QString& text)
{
    if (text == QLatin1String("true") || text == QLatin1String("false"))
        return ICfg::GetTypeAsString(ICfg::TYPE_Boolean);
    bool isNumber = false;
    text.toInt(&isNumber, 10);
    return ICfg::GetTypeAsString(isNumber ? ICfg::TYPE_Integer : ICfg::TYPE_String);
}

std::optional<QString> OptionalString(const QJsonObject& object, const QString& name)
{
    const QJsonValue value = object.value(name);
    if (!value.isString())
        return std::nullopt;
    return value.toString();
}

CfgEtcdRecord RecordFromJson(const QByteArray& bytes)
{
    CfgEtcdRecord record;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        // A key written by hand ("etcdctl put ...") holds the text itself.
        if (!bytes.isEmpty())
            record.text = QString::fromUtf8(bytes);
        return record;
    }
    const QJsonObject object = document.object();
    record.text = OptionalString(object, TEXT);
    record.type = OptionalString(object, TYPE);
    record.protection = OptionalString(object, PROTECTED);
    record.ts = qint64(object.value(TS).toDouble());
    record.order = qint64(object.value(ORDER).toDouble());
    record.textLast = object.value(TEXT_LAST).toBool();
    // Protected values without a type are typed from their text, as XML documents are after opening.
    if (record.protection && !record.type)
        record.type = TypeFromText(record.text.value_or(QString()));
    return record;
}

bool Precedes(const CfgEtcdElement& left, const CfgEtcdElement& right)
{
    return left.order != right.order ? left.order < right.order : left.name < right.name;
}

} // namespace

QByteArray CfgEtcdRecord::ToJson() const
{
    QJsonObject object;
    if (text)
        object.insert(TEXT, *text);
    if (type)
        object.insert(TYPE, *type);
    if (protection)
        object.insert(PROTECTED, *protection);
    object.insert(TS, double(ts));
    if (textLast)
        object.insert(TEXT_LAST, true);
    if (order)
        object.insert(ORDER, double(order));
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

CfgEtcdRecord CfgEtcdRecord::FromElement(const CfgEtcdElement& element, bool forceOrder)
{
    CfgEtcdRecord record;
    record.text = element.text;
    record.type = element.type;
    record.protection = element.protection;
    record.ts = element.ts;
    record.textLast = element.textLast;
    record.order = forceOrder || element.explicitOrder ? element.order : 0;
    return record;
}

CfgEtcdDocument::CfgEtcdDocument(std::shared_ptr<EtcdClient> client, const QByteArray& prefix)
    : m_pClient(std::move(client)), m_prefix(prefix), m_bAllLoaded(false), m_nAllRevision(0)
{
}

CfgEtcdDocument::~CfgEtcdDocument()
{
    StopWatching();
}

void CfgEtcdDocument::StopWatching()
{
    m_pWatcher.reset();
}

QByteArray CfgEtcdDocument::Key(ICfg::View view, const QStringList& path) const
{
    QByteArray key = m_prefix + path.value(0).toUtf8() + KEY_SEPARATOR +
                     ICfg::GetViewAsString(ICfg::View(ViewIndex(view) + 1)).toUtf8();
    for (int i = 1; i < path.size(); ++i)
        key += KEY_SEPARATOR + path.at(i).toUtf8();
    return key;
}

bool CfgEtcdDocument::ParseKey(const QByteArray& key, ICfg::View* view, QStringList* path) const
{
    if (!key.startsWith(m_prefix))
        return false;
    const QStringList parts = QString::fromUtf8(key.mid(m_prefix.size())).split(QLatin1Char(KEY_SEPARATOR));
    if (parts.size() < 2 || parts.contains(QString()))
        return false;
    for (int candidate = ICfg::VIEW_User; candidate <= ICfg::VIEW_Export; ++candidate) {
        if (ICfg::GetViewAsString(ICfg::View(candidate)) == parts.at(1)) {
            *view = ICfg::View(candidate);
            *path = QStringList{parts.at(0)} + parts.mid(2);
            return true;
        }
    }
    return false;
}

CfgEtcdElement* CfgEtcdDocument::ViewRoot(ICfg::View view)
{
    return &m_views[ViewIndex(view)];
}

CfgEtcdElement* CfgEtcdDocument::Find(ICfg::View view, const QStringList& path)
{
    CfgEtcdElement* element = ViewRoot(view);
    for (const QString& part : path) {
        element = element->Child(part);
        if (!element)
            return nullptr;
    }
    return element;
}

bool CfgEtcdDocument::IsHeld(const QString& application) const
{
    return m_bAllLoaded || m_loaded.contains(application);
}

void CfgEtcdDocument::EnsureLoaded(const QStringList& path)
{
    const QString application = path.value(0);
    {
        std::lock_guard<std::mutex> locker(m_mutex);
        if (path.isEmpty() ? m_bAllLoaded : IsHeld(application))
            return;
    }
    Load(application);
}

void CfgEtcdDocument::Load(const QString& application)
{
    qint64 revision = 0;
    const std::vector<EtcdKeyValue> kvs = m_pClient->Range(
        application.isEmpty() ? m_prefix : m_prefix + application.toUtf8() + KEY_SEPARATOR, &revision);
    {
        std::lock_guard<std::mutex> locker(m_mutex);
        ClearApplication(application);
        for (const EtcdKeyValue& kv : kvs) {
            ICfg::View view = ICfg::VIEW_Machine;
            QStringList path;
            if (ParseKey(kv.key, &view, &path))
                ApplyPut(view, path, RecordFromJson(kv.value), kv.createRevision, kv.modRevision);
        }
        if (application.isEmpty()) {
            m_bAllLoaded = true;
            m_nAllRevision = revision;
            m_loaded.clear();
        } else {
            m_loaded.insert(application, revision);
        }
    }
    if (!m_pWatcher) {
        m_pWatcher = std::make_unique<EtcdWatcher>(
            m_pClient.get(), m_prefix, revision + 1,
            [this](const std::vector<EtcdEvent>& events, bool compacted) { OnEvents(events, compacted); });
    }
}

const std::optional<QString>* CfgEtcdDocument::CachedRead(const QString& readKey) const
{
    const auto found = m_reads.constFind(readKey);
    return found == m_reads.constEnd() ? nullptr : &found.value();
}

void CfgEtcdDocument::RememberRead(const QString& readKey, const std::optional<QString>& text)
{
    m_reads.insert(readKey, text);
}

void CfgEtcdDocument::ClearApplication(const QString& application)
{
    m_reads.clear();
    for (CfgEtcdElement& root : m_views) {
        if (application.isEmpty()) {
            root.children.clear();
            root.byName.clear();
        } else if (CfgEtcdElement* element = root.Child(application)) {
            Detach(element);
        }
    }
}

void CfgEtcdDocument::Insert(CfgEtcdElement* parent, std::unique_ptr<CfgEtcdElement> child)
{
    child->parent = parent;
    const auto position = std::upper_bound(
        parent->children.begin(), parent->children.end(), child,
        [](const std::unique_ptr<CfgEtcdElement>& left, const std::unique_ptr<CfgEtcdElement>& right) {
            return Precedes(*left, *right);
        });
    parent->byName.insert(child->name, child.get());
    parent->children.insert(position, std::move(child));
}

void CfgEtcdDocument::Detach(CfgEtcdElement* element)
{
    CfgEtcdElement* parent = element->parent;
    parent->byName.remove(element->name);
    const auto position = std::find_if(parent->children.begin(), parent->children.end(),
                                       [element](const auto& child) { return child.get() == element; });
    if (position != parent->children.end())
        parent->children.erase(position);
    // Implicit parents exist only for their children.
    if (parent->parent && !parent->stored && parent->children.empty())
        Detach(parent);
}

CfgEtcdElement* CfgEtcdDocument::Materialise(ICfg::View view, const QStringList& path)
{
    CfgEtcdElement* element = ViewRoot(view);
    for (const QString& part : path) {
        CfgEtcdElement* child = element->Child(part);
        if (!child) {
            auto created = std::make_unique<CfgEtcdElement>();
            created->name = part;
            child = created.get();
            Insert(element, std::move(created));
        }
        element = child;
    }
    return element;
}

void CfgEtcdDocument::ApplyPut(ICfg::View view, const QStringList& path, const CfgEtcdRecord& record,
                               qint64 createRevision, qint64 modRevision)
{
    m_reads.clear();
    CfgEtcdElement* element = Materialise(view, path);
    const qint64 order = record.order ? record.order : (element->stored ? element->order : createRevision);
    element->text = record.text;
    element->type = record.type;
    element->protection = record.protection;
    element->ts = record.ts;
    element->textLast = record.textLast;
    element->modRevision = modRevision;
    element->stored = true;
    element->explicitOrder = record.order != 0;
    if (element->order != order) {
        // Re-insert at the element's position among its siblings.
        CfgEtcdElement* parent = element->parent;
        auto position = std::find_if(parent->children.begin(), parent->children.end(),
                                     [element](const auto& child) { return child.get() == element; });
        std::unique_ptr<CfgEtcdElement> owned = std::move(*position);
        parent->children.erase(position);
        owned->order = order;
        Insert(parent, std::move(owned));
    }
}

void CfgEtcdDocument::CollectKeys(ICfg::View view, QStringList path, const CfgEtcdElement& element,
                                  QList<QByteArray>* keys) const
{
    keys->append(Key(view, path));
    for (const auto& child : element.children)
        CollectKeys(view, path + QStringList{child->name}, *child, keys);
}

void CfgEtcdDocument::ApplyRemove(ICfg::View view, const QStringList& path, qint64 revision, bool recordLocal)
{
    m_reads.clear();
    CfgEtcdElement* element = Find(view, path);
    if (!element) {
        if (recordLocal)
            m_localRevisions.insert(Key(view, path), revision);
        return;
    }
    if (recordLocal) {
        QList<QByteArray> keys;
        CollectKeys(view, path, *element, &keys);
        for (const QByteArray& key : qAsConst(keys))
            m_localRevisions.insert(key, revision);
        Detach(element);
        return;
    }
    // One key deleted by another process: its children (if any) stay.
    if (!element->children.empty()) {
        element->stored = false;
        element->text.reset();
        element->type.reset();
        element->protection.reset();
        element->textLast = false;
        return;
    }
    Detach(element);
}

void CfgEtcdDocument::Write(const std::vector<Change>& changes)
{
    size_t first = 0;
    while (first < changes.size()) {
        // As many changes as fit into one transaction.
        std::vector<EtcdOperation> batch;
        size_t end = first;
        for (; end < changes.size(); ++end) {
            const Change& change = changes[end];
            const size_t needed = change.remove ? 2 : 1;
            if (!batch.empty() && batch.size() + needed > MAX_TXN_OPERATIONS)
                break;
            const QByteArray key = Key(change.view, change.path);
            if (change.remove) {
                batch.push_back({EtcdOperation::DeleteKey, key, QByteArray()});
                batch.push_back({EtcdOperation::DeletePrefix, key + KEY_SEPARATOR, QByteArray()});
            } else {
                batch.push_back({EtcdOperation::Put, key, change.record.ToJson()});
            }
        }
        const QList<QByteArray> inFlight = MarkInFlight(changes, first, end, batch);
        qint64 revision = 0;
        try {
            revision = m_pClient->Commit(batch);
        } catch (...) {
            std::lock_guard<std::mutex> locker(m_mutex);
            for (const QByteArray& key : inFlight)
                m_inFlight.remove(key);
            throw;
        }
        std::lock_guard<std::mutex> locker(m_mutex);
        for (const QByteArray& key : inFlight)
            m_inFlight.remove(key);
        for (size_t index = first; index < end; ++index) {
            const Change& change = changes[index];
            if (change.remove) {
                ApplyRemove(change.view, change.path, revision, true);
                continue;
            }
            m_localRevisions.insert(Key(change.view, change.path), revision);
            ApplyPut(change.view, change.path, change.record, revision, revision);
        }
        first = end;
    }
}

QList<QByteArray> CfgEtcdDocument::MarkInFlight(const std::vector<Change>& changes, size_t first, size_t end,
                                                const std::vector<EtcdOperation>& batch)
{
    std::lock_guard<std::mutex> locker(m_mutex);
    QList<QByteArray> keys;
    for (size_t index = first; index < end; ++index) {
        const Change& change = changes[index];
        if (!change.remove)
            continue;
        keys.append(Key(change.view, change.path));
        if (const CfgEtcdElement* element = Find(change.view, change.path))
            CollectKeys(change.view, change.path, *element, &keys);
    }
    for (const QByteArray& key : qAsConst(keys))
        m_inFlight.insert(key, QByteArray());
    for (const EtcdOperation& operation : batch) {
        if (operation.kind == EtcdOperation::Put) {
            m_inFlight.insert(operation.key, operation.value);
            keys.append(operation.key);
        }
    }
    return keys;
}

// An event of a write this process has not seen answered yet: the write
// applies it itself.
bool CfgEtcdDocument::IsOwnEcho(const EtcdEvent& event) const
{
    const auto flight = m_inFlight.constFind(event.kv.key);
    if (flight == m_inFlight.constEnd())
        return false;
    return event.isDelete ? flight->isNull() : (!flight->isNull() && *flight == event.kv.value);
}

void CfgEtcdDocument::OnEvents(const std::vector<EtcdEvent>& events, bool compacted)
{
    if (compacted) {
        // The history is gone: read again what this process holds.
        QStringList held;
        {
            std::lock_guard<std::mutex> locker(m_mutex);
            held = m_bAllLoaded ? QStringList{QString()} : m_loaded.keys();
        }
        for (const QString& application : held)
            Load(application);
        return;
    }
    std::vector<std::pair<int, QString>> changed;
    {
        std::lock_guard<std::mutex> locker(m_mutex);
        for (const EtcdEvent& event : events) {
            ICfg::View view = ICfg::VIEW_Machine;
            QStringList path;
            if (!ParseKey(event.kv.key, &view, &path) || !IsHeld(path.first()))
                continue;
            const qint64 loadedAt = qMax(m_nAllRevision, m_loaded.value(path.first(), 0));
            if (event.kv.modRevision <= loadedAt || IsOwnEcho(event))
                continue;
            const auto local = m_localRevisions.find(event.kv.key);
            if (local != m_localRevisions.end()) {
                const qint64 localRevision = local.value();
                if (event.kv.modRevision >= localRevision)
                    m_localRevisions.erase(local);
                if (event.kv.modRevision <= localRevision)
                    continue;
            }
            if (event.isDelete)
                ApplyRemove(view, path, event.kv.modRevision, false);
            else
                ApplyPut(view, path, RecordFromJson(event.kv.value), event.kv.createRevision,
                         event.kv.modRevision);
            changed.emplace_back(int(view), path.join(QLatin1Char('\\')));
        }
    }
    for (const auto& [view, key] : changed)
        emit Changed(view, key);
}
