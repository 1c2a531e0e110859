#include "cfgclient/cfgetcd.h"

#include "configuration/cfgcenter.h"
#include "configuration/xmlnames_p.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"
#include "kvbase/zentos.h"

#include <QDomDocument>
#include <QMutexLocker>

#include <algorithm>

namespace {

const QString SOURCE_FILE = QStringLiteral("cfgclient/cfgetcd");
const QString CLASS_NAME = QStringLiteral("CfgEtcd");
const QChar KEY_SEPARATOR = QLatin1Char('\\');
const QString TRUE_TEXT = QStringLiteral("true");
const QString FALSE_TEXT = QStringLiteral("false");

QStringList SplitKey(const QString& key)
{
    return key.split(KEY_SEPARATOR, Qt::SkipEmptyParts);
}

QString JoinKey(const QString& base, const QString& relative)
{
    if (base.isEmpty())
        return relative;
    if (relative.isEmpty())
        return base;
    return base + KEY_SEPARATOR + relative;
}

qint64 Now()
{
    return ZentOS::Get().GetTime();
}

qint64 Advanced(qint64 old)
{
    const qint64 now = Now();
    return now > old ? now : old + 1;
}

} // namespace

CfgEtcd::CfgEtcd(std::shared_ptr<CfgEtcdDocument> document, const QString& key, View view)
    : Cfg(key, view), m_pDocument(std::move(document)), m_keyParts(SplitKey(key))
{
    connect(m_pDocument.get(), &CfgEtcdDocument::Changed, this,
            [this](int changedView, const QString& changedKey) {
                if (m_keyParts.isEmpty() || changedKey == m_sKey ||
                    changedKey.startsWith(m_sKey + KEY_SEPARATOR))
                    emit CfgChanged(changedView, changedKey);
            });
}

CfgEtcd::~CfgEtcd() = default;

QString CfgEtcd::GetType()
{
    return QStringLiteral("Server");
}

QString CfgEtcd::GetTarget()
{
    return m_pDocument->Client().CurrentUrl();
}

QString CfgEtcd::GetVersion()
{
    return VERSION_2_3;
}

QStringList CfgEtcd::Path(const QString& relative) const
{
    return relative.isEmpty() ? m_keyParts : SplitKey(JoinKey(m_sKey, relative));
}

// A name may carry a relative path: "Sub\Name" is the value Name of Sub.
QStringList CfgEtcd::ValuePath(const QString& name) const
{
    const int separator = name.lastIndexOf(KEY_SEPARATOR);
    QStringList path = m_keyParts;
    if (separator >= 0)
        path += SplitKey(name.left(separator));
    path.append(separator >= 0 ? name.mid(separator + 1) : name);
    return path;
}

// The caller holds the document's mutex while it uses the element.
CfgEtcdElement* CfgEtcd::Find(View view, const QStringList& path) const
{
    return m_pDocument->Find(view, path);
}

void CfgEtcd::Write(const Changes& changes)
{
    if (!changes.empty())
        m_pDocument->Write(changes);
}

void CfgEtcd::WriteRecord(View view, const QStringList& path, const CfgEtcdRecord& record)
{
    Write({CfgEtcdDocument::Change{view, path, false, record}});
}

// Plain elements for the missing components of `path`; false when one of
// them could not be named in a document (those before it are still added),
// which then is in `invalid` when given.
bool CfgEtcd::AddMissing(View view, const QStringList& path, Changes* changes, QString* invalid) const
{
    const CfgEtcdElement* element = m_pDocument->ViewRoot(view);
    for (int depth = 0; depth < path.size(); ++depth) {
        element = element ? element->Child(path.at(depth)) : nullptr;
        if (element)
            continue;
        if (!XmlNames::IsElementName(path.at(depth))) {
            if (invalid)
                *invalid = path.at(depth);
            return false;
        }
        CfgEtcdRecord record;
        record.ts = Now();
        changes->push_back({view, path.mid(0, depth + 1), false, record});
    }
    return true;
}

void CfgEtcd::AddTree(View view, const QStringList& path, const CfgEtcdElement& element, bool keepOrder,
                      Changes* changes) const
{
    CfgEtcdRecord record = CfgEtcdRecord::FromElement(element, keepOrder);
    if (!keepOrder)
        record.order = 0; // placed by the revision that writes it: after its new siblings
    changes->push_back({view, path, false, record});
    for (const auto& child : element.children)
        AddTree(view, path + QStringList{child->name}, *child, true, changes);
}

// ---------------------------------------------------------------- values

QString CfgEtcd::GetStringImpl(QString name, QString defaultValue, View view)
{
    // Repeated reads are answered by key, name and view until the cache changes.
    const QString readKey = QString::number(view) + m_sKey + QChar(1) + name;
    std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
    if (const std::optional<QString>* known = m_pDocument->CachedRead(readKey))
        return known->has_value() ? **known : defaultValue;
    const QStringList path = name.isEmpty() ? m_keyParts : ValuePath(name);
    if (!m_pDocument->IsLoaded(path)) {
        locker.unlock();
        m_pDocument->EnsureLoaded(path);
        locker.lock();
    }
    const CfgEtcdElement* element = path.isEmpty() ? nullptr : Find(view, path);
    const std::optional<QString> text = element ? element->text : std::nullopt;
    m_pDocument->RememberRead(readKey, text);
    return text ? *text : defaultValue;
}

long CfgEtcd::GetIntegerImpl(QString name, long defaultValue, View view)
{
    const QString text = GetStringImpl(name, QString::number(defaultValue), view);
    bool ok = false;
    const qint32 value = text.toInt(&ok, 10);
    return ok ? value : defaultValue;
}

// Throws when the value `name` cannot be stored because of its name, as an
// XML document could not store it.
void CfgEtcd::CheckValueName(const QString& name, const QString& operation)
{
    const QString refusal = XmlNames::RefusedValueName(name);
    if (!refusal.isNull())
        throw KVException(refusal, SOURCE_FILE, CLASS_NAME, operation, __LINE__);
}

// A write that an XML document could not store is refused with an exception
// before anything is written, so that every configuration can be copied
// between the backends: never dropped, never altered.
void CfgEtcd::SetValueAndType(const QString& name, const QString& value, const QString& type, View view,
                              const QString& operation)
{
    CheckValueName(name, operation);
    const QString refusedText = XmlNames::RefusedValueText(name, value);
    if (!refusedText.isNull())
        throw KVException(refusedText, SOURCE_FILE, CLASS_NAME, operation, __LINE__);
    const bool ownText = name.isEmpty();
    const QStringList path = ownText ? m_keyParts : ValuePath(name);
    if (path.isEmpty())
        return; // the view itself holds no text
    m_pDocument->EnsureLoaded(path);
    Changes changes;
    QString invalid;
    {
        std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
        const bool walked = AddMissing(view, path.mid(0, path.size() - 1), &changes, &invalid);
        const CfgEtcdElement* element = walked ? Find(view, path) : nullptr;
        CfgEtcdRecord record;
        if (!element) {
            // The name was checked, so only a component of this object's key can fail to be an element
            // name; the value is refused, and the path walked so far stays, as in XML documents.
            if (!walked || !XmlNames::IsElementName(path.last())) {
                if (walked)
                    invalid = path.last();
                locker.unlock();
                Write(changes);
                throw KVException(XmlNames::NotAnElementName(QStringLiteral("The value"), name, invalid),
                                  SOURCE_FILE, CLASS_NAME, operation, __LINE__);
            }
            record.text = value;
            // New values outside the user view are protected, as in XML documents.
            if (!ownText && view != VIEW_User)
                record.protection = TRUE_TEXT;
            record.type = type;
            record.ts = Now();
        } else {
            record = CfgEtcdRecord::FromElement(*element, false);
            const bool textChanged = !element->text || *element->text != value;
            if (!textChanged && element->type)
                return; // nothing to write
            // A node's own text goes after its children; a value's text before them.
            if (!element->text)
                record.textLast = ownText && !element->children.empty();
            record.text = value;
            if (!record.type)
                record.type = type; // an existing type is never changed here
            if (textChanged)
                record.ts = Advanced(element->ts);
        }
        changes.push_back({view, path, false, record});
    }
    Write(changes);
}

void CfgEtcd::SetStringImpl(QString name, QString value, View view)
{
    SetValueAndType(name, value, GetTypeAsString(TYPE_String), view, QStringLiteral("SetString"));
}

void CfgEtcd::SetIntegerImpl(QString name, long value, View view)
{
    SetValueAndType(name, QString::number(static_cast<qint32>(value)), GetTypeAsString(TYPE_Integer), view,
                    QStringLiteral("SetInteger"));
}

void CfgEtcd::SetBooleanImpl(QString name, bool value, View view)
{
    SetValueAndType(name, value ? TRUE_TEXT : FALSE_TEXT, GetTypeAsString(TYPE_Boolean), view,
                    QStringLiteral("SetBoolean"));
}

ICfg::AttributeType CfgEtcd::GetAttributeType(QString name, View view)
{
    QMutexLocker centre(CfgCenter::GetMutex());
    view = ResolveView(view);
    const QStringList path = ValuePath(name);
    m_pDocument->EnsureLoaded(path);
    std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
    CfgEtcdElement* element = Find(view, path);
    if (!element)
        return TYPE_Undefined;
    const QString declared = element->type.value_or(QString());
    if (declared == QLatin1String("string") || declared == QLatin1String("String"))
        return TYPE_String;
    if (declared == QLatin1String("boolean") || declared == QLatin1String("Boolean"))
        return TYPE_Boolean;
    if (declared == QLatin1String("integer") || declared == QLatin1String("Integer"))
        return TYPE_Integer;
    const QString text = element->text.value_or(QString());
    if (text.isEmpty())
        return TYPE_Undefined;
    const AttributeType derived = (text == TRUE_TEXT || text == FALSE_TEXT) ? TYPE_Boolean : TYPE_String;
    element->type = GetTypeAsString(derived); // kept in memory only
    return derived;
}

void CfgEtcd::SetAttributeType(QString name, AttributeType type, View view)
{
    QMutexLocker centre(CfgCenter::GetMutex());
    CheckValueName(name, QStringLiteral("SetAttributeType"));
    view = ResolveView(view);
    const QStringList path = ValuePath(name);
    m_pDocument->EnsureLoaded(path);
    CfgEtcdRecord record;
    {
        std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
        const CfgEtcdElement* element = Find(view, path);
        if (!element)
            return;
        const bool known = type == TYPE_String || type == TYPE_Boolean || type == TYPE_Integer;
        record = CfgEtcdRecord::FromElement(*element, false);
        record.type = GetTypeAsString(known ? type : TYPE_String);
        record.ts = Advanced(element->ts);
    }
    WriteRecord(view, path, record);
}

bool CfgEtcd::IsProtected(QString name, View view)
{
    QMutexLocker centre(CfgCenter::GetMutex());
    view = ResolveView(view);
    const QStringList path = ValuePath(name);
    m_pDocument->EnsureLoaded(path);
    std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
    const CfgEtcdElement* element = Find(view, path);
    return element && element->protection == TRUE_TEXT;
}

void CfgEtcd::SetProtected(QString name, bool isProtected, View view)
{
    QMutexLocker centre(CfgCenter::GetMutex());
    CheckValueName(name, QStringLiteral("SetProtected"));
    view = ResolveView(view);
    const QStringList path = ValuePath(name);
    m_pDocument->EnsureLoaded(path);
    CfgEtcdRecord record;
    {
        std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
        const CfgEtcdElement* element = Find(view, path);
        if (!element)
            return;
        const QString flag = isProtected ? TRUE_TEXT : FALSE_TEXT;
        if (element->protection == flag)
            return;
        record = CfgEtcdRecord::FromElement(*element, false);
        record.protection = flag;
    }
    WriteRecord(view, path, record);
}

bool CfgEtcd::HasAttribute(QString key, QString name, View view)
{
    QMutexLocker centre(CfgCenter::GetMutex());
    view = ResolveView(view);
    const QStringList path = Path(key);
    m_pDocument->EnsureLoaded(path + QStringList{name});
    std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
    const CfgEtcdElement* node = Find(view, path);
    return node && node->Child(name);
}

// Removes the element at `path` with everything below it; false when there is none.
bool CfgEtcd::RemoveElement(View view, const QStringList& path)
{
    m_pDocument->EnsureLoaded(path);
    {
        std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
        if (!Find(view, path))
            return false;
    }
    Write({CfgEtcdDocument::Change{view, path, true, CfgEtcdRecord()}});
    return true;
}

bool CfgEtcd::RemoveAttribute(QString name, View view)
{
    QMutexLocker centre(CfgCenter::GetMutex());
    view = ResolveView(view);
    const QStringList path = ValuePath(name);
    return RemoveElement(view, path);
}

bool CfgEtcd::RenameAttribute(QString oldName, QString newName, View view)
{
    QMutexLocker centre(CfgCenter::GetMutex());
    view = ResolveView(view);
    const QStringList path = ValuePath(oldName);
    m_pDocument->EnsureLoaded(path);
    Changes changes;
    {
        std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
        const CfgEtcdElement* element = Find(view, path);
        if (!element)
            return false;
        if (newName == element->name)
            return true;
        if (!XmlNames::IsElementName(newName) || element->parent->Child(newName))
            return false;
        QStringList target = path;
        target.last() = newName;
        changes.push_back({view, path, true, CfgEtcdRecord()});
        // The renamed element keeps its place among its siblings.
        AddTree(view, target, *element, true, &changes);
        changes[1].record.ts = Advanced(element->ts);
    }
    Write(changes);
    return true;
}

// ---------------------------------------------------------------- sub-configurations

ICfg* CfgEtcd::CreateSubCfg(QString key, View view) const
{
    QMutexLocker centre(CfgCenter::GetMutex());
    view = ResolveView(view);
    QString invalid;
    if (XmlNames::FindInvalidComponent(key, &invalid)) {
        _Q_Trace(XmlNames::NoSuchSubConfiguration(key, invalid), __FILE__, __LINE__);
        return nullptr;
    }
    const QStringList path = Path(key);
    m_pDocument->EnsureLoaded(path);
    {
        std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
        if (!Find(view, path))
            return nullptr;
    }
    return new CfgEtcd(m_pDocument, path.join(KEY_SEPARATOR), view);
}

ICfg* CfgEtcd::CreateSubCfgAtImpl(int index, View view)
{
    m_pDocument->EnsureLoaded(m_keyParts);
    QString name;
    {
        std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
        const CfgEtcdElement* node = Find(view, m_keyParts);
        if (!node || index < 0)
            return nullptr;
        int position = 0;
        for (const auto& child : node->children) {
            if (child->IsValue())
                continue;
            if (position++ == index) {
                name = child->name;
                break;
            }
        }
    }
    return name.isEmpty() ? nullptr : CreateSubCfg(name, view);
}

QString CfgEtcd::GetValueKeyAtImpl(int index, View view)
{
    m_pDocument->EnsureLoaded(m_keyParts);
    std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
    const CfgEtcdElement* node = Find(view, m_keyParts);
    if (!node || index < 0)
        return QString();
    int position = 0;
    for (const auto& child : node->children) {
        if (child->IsValue() && position++ == index)
            return child->name;
    }
    return QString();
}

bool CfgEtcd::AddSubCfg(QString key, View view)
{
    QMutexLocker centre(CfgCenter::GetMutex());
    QString invalid;
    if (SplitKey(key).isEmpty() || XmlNames::FindInvalidComponent(key, &invalid)) {
        _Q_Trace(XmlNames::NotAnElementName(QStringLiteral("The sub-configuration"), key, invalid), __FILE__,
                 __LINE__);
        return false;
    }
    view = ResolveView(view);
    const QStringList path = Path(key);
    m_pDocument->EnsureLoaded(path);
    Changes changes;
    bool added = false;
    {
        std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
        added = AddMissing(view, path, &changes);
    }
    Write(changes);
    return added;
}

bool CfgEtcd::HasSubCfg(QString key, View view)
{
    QMutexLocker centre(CfgCenter::GetMutex());
    view = ResolveView(view);
    const QStringList path = Path(key);
    m_pDocument->EnsureLoaded(path);
    std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
    return Find(view, path) != nullptr;
}

bool CfgEtcd::RemoveSubCfg(QString key, View view)
{
    QMutexLocker centre(CfgCenter::GetMutex());
    view = ResolveView(view);
    const QStringList path = Path(key);
    // A view is not a sub-configuration of anything.
    if (path.isEmpty())
        return false;
    return RemoveElement(view, path);
}

bool CfgEtcd::MoveSubCfg(QString from, QString to, View view)
{
    QMutexLocker centre(CfgCenter::GetMutex());
    view = ResolveView(view);
    const QStringList fromParts = SplitKey(from);
    QStringList toParts = SplitKey(to);
    if (fromParts.isEmpty() || toParts.isEmpty() || toParts.mid(0, fromParts.size()) == fromParts)
        return false;
    const QStringList source = Path(from);
    const QStringList target = Path(to);
    m_pDocument->EnsureLoaded(source);
    m_pDocument->EnsureLoaded(target);
    Changes changes;
    {
        std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
        const CfgEtcdElement* element = Find(view, source);
        if (!element || !XmlNames::IsElementName(target.last()) || Find(view, target))
            return false;
        if (!AddMissing(view, target.mid(0, target.size() - 1), &changes))
            return false;
        changes.push_back({view, source, true, CfgEtcdRecord()});
        const size_t top = changes.size();
        // The moved element goes to the end of its new parent; what is below it keeps its order.
        AddTree(view, target, *element, false, &changes);
        changes[top].record.ts = Advanced(element->ts);
    }
    Write(changes);
    return true;
}

// ---------------------------------------------------------------- document

void CfgEtcd::OpenDocument(bool)
{
    QMutexLocker centre(CfgCenter::GetMutex());
    m_pDocument->Load(m_keyParts.value(0));
}

void CfgEtcd::SaveDocument()
{
    // Every write has gone to the service already.
    Cfg::SaveDocument();
}

void CfgEtcd::NotAvailable(const char* operation, int line) const
{
    throw KVException(
        QStringLiteral("Named user configurations are not available on the configuration service."),
        SOURCE_FILE, CLASS_NAME, QString::fromLatin1(operation), line);
}

void CfgEtcd::SetUserViewSubkey(const QString& subkey)
{
    if (!subkey.isEmpty())
        NotAvailable("SetUserViewSubkey", __LINE__);
}

void CfgEtcd::SetAdditionalUserViewSubkey(const std::list<QString>& subkeys)
{
    if (!subkeys.empty())
        NotAvailable("SetAdditionalUserViewSubkey", __LINE__);
}

std::list<QString> CfgEtcd::GetAdditionalUserViewSubkey()
{
    return {};
}

void CfgEtcd::SaveConfigurationName(const QString&)
{
    NotAvailable("SaveConfigurationName", __LINE__);
}

void CfgEtcd::RenameConfigurationName(const QString&, const QString&)
{
    NotAvailable("RenameConfigurationName", __LINE__);
}

void CfgEtcd::DeleteConfigurationName(const QString&)
{
    NotAvailable("DeleteConfigurationName", __LINE__);
}

void CfgEtcd::LoadConfigurationName(const QString&)
{
    NotAvailable("LoadConfigurationName", __LINE__);
}

namespace {

const QString PROTECTED = QStringLiteral("protected");
const QString TYPE = QStringLiteral("type");
const QString TS = QStringLiteral("ts");
const ICfg::View EXCHANGED_VIEWS[] = {ICfg::VIEW_System, ICfg::VIEW_Domain, ICfg::VIEW_Machine,
                                      ICfg::VIEW_User, ICfg::VIEW_Export};

QDomText FirstText(const QDomElement& element)
{
    for (QDomNode child = element.firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (child.isText())
            return child.toText();
    }
    return QDomText();
}

bool IsValueElement(const QDomElement& element)
{
    return element.firstChild().isText() || element.hasAttribute(PROTECTED);
}

QDomElement ToDom(QDomDocument& document, const CfgEtcdElement& element)
{
    QDomElement result = document.createElement(element.name);
    if (element.protection)
        result.setAttribute(PROTECTED, *element.protection);
    if (element.type)
        result.setAttribute(TYPE, *element.type);
    result.setAttribute(TS, QString::number(element.ts));
    if (element.text && !element.textLast)
        result.appendChild(document.createTextNode(*element.text));
    for (const auto& child : element.children)
        result.appendChild(ToDom(document, *child));
    if (element.text && element.textLast)
        result.appendChild(document.createTextNode(*element.text));
    return result;
}

CfgEtcdRecord RecordOf(const QDomElement& element)
{
    CfgEtcdRecord record;
    const QDomText text = FirstText(element);
    if (!text.isNull()) {
        record.text = text.data();
        record.textLast = !element.firstChild().isText();
    }
    if (element.hasAttribute(TYPE))
        record.type = element.attribute(TYPE);
    if (element.hasAttribute(PROTECTED))
        record.protection = element.attribute(PROTECTED);
    bool ok = false;
    record.ts = element.attribute(TS).toLongLong(&ok);
    if (!ok)
        record.ts = Now();
    return record;
}

} // namespace

QByteArray CfgEtcd::GetCfgAsStringFromApp(const QString& appKey)
{
    QMutexLocker centre(CfgCenter::GetMutex());
    QDomDocument exchange;
    exchange.appendChild(exchange.createProcessingInstruction(
        QStringLiteral("xml"), QStringLiteral("version=\"1.0\" encoding=\"utf-8\"")));
    QDomElement root = exchange.createElement(QStringLiteral("Cfg"));
    root.setAttribute(QStringLiteral("version"), GetVersion());
    exchange.appendChild(root);
    if (!appKey.isEmpty()) {
        m_pDocument->EnsureLoaded({appKey});
        std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
        for (const View view : EXCHANGED_VIEWS) {
            const CfgEtcdElement* app = Find(view, {appKey});
            if (!app)
                continue;
            QDomElement viewElement = exchange.createElement(GetViewAsString(view));
            viewElement.appendChild(ToDom(exchange, *app));
            root.appendChild(viewElement);
        }
    }
    return exchange.toByteArray(4);
}

void CfgEtcd::ImportElement(View view, const QStringList& path, const QDomElement& source,
                            Changes* changes) const
{
    if (!XmlNames::IsElementName(path.last()))
        return;
    changes->push_back({view, path, false, RecordOf(source)});
    for (QDomElement child = source.firstChildElement(); !child.isNull(); child = child.nextSiblingElement())
        ImportElement(view, path + QStringList{child.tagName()}, child, changes);
}

void CfgEtcd::MergeElement(View view, const QStringList& path, const QDomElement& source,
                           Changes* changes) const
{
    const CfgEtcdElement* target = Find(view, path);
    for (QDomElement child = source.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        const QStringList childPath = path + QStringList{child.tagName()};
        const CfgEtcdElement* existing = target ? target->Child(child.tagName()) : nullptr;
        if (!existing) {
            ImportElement(view, childPath, child, changes);
        } else if (IsValueElement(child)) {
            CfgEtcdRecord record = CfgEtcdRecord::FromElement(*existing, false);
            const QString text = FirstText(child).data();
            if (!existing->text || *existing->text != text) {
                if (!existing->text)
                    record.textLast = false;
                record.text = text;
                record.ts = Advanced(existing->ts);
            }
            if (child.hasAttribute(TYPE))
                record.type = child.attribute(TYPE);
            if (child.hasAttribute(PROTECTED))
                record.protection = child.attribute(PROTECTED);
            changes->push_back({view, childPath, false, record});
        } else {
            MergeElement(view, childPath, child, changes);
        }
    }
}

void CfgEtcd::MergeCfgFromStringAndApp(const QByteArray& bytes, const QString& appKey)
{
    QMutexLocker centre(CfgCenter::GetMutex());
    QDomDocument incoming;
    QString message;
    int line = 0;
    int column = 0;
    if (!incoming.setContent(bytes, &message, &line, &column))
        throw KVException(
            QStringLiteral("The configuration of %1 could not be merged: %2 at line %3 in column %4.")
                .arg(appKey, message, QString::number(line), QString::number(column)),
            SOURCE_FILE, CLASS_NAME, QStringLiteral("MergeCfgFromStringAndApp"), __LINE__);
    if (appKey.isEmpty())
        return;
    m_pDocument->EnsureLoaded({appKey});
    Changes changes;
    {
        std::unique_lock<std::mutex> locker(m_pDocument->Mutex());
        for (QDomElement viewElement = incoming.documentElement().firstChildElement(); !viewElement.isNull();
             viewElement = viewElement.nextSiblingElement()) {
            const QDomElement app = viewElement.firstChildElement(appKey);
            const auto known = std::find_if(
                std::begin(EXCHANGED_VIEWS), std::end(EXCHANGED_VIEWS),
                [&viewElement](View view) { return GetViewAsString(view) == viewElement.tagName(); });
            if (app.isNull() || known == std::end(EXCHANGED_VIEWS))
                continue;
            if (!Find(*known, {appKey}))
                ImportElement(*known, {appKey}, app, &changes);
            else
                MergeElement(*known, {appKey}, app, &changes);
        }
    }
    Write(changes);
}
