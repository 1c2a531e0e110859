#include "configuration/cfgxml.h"

#include "configuration/cfgcenter.h"
#include "configuration/cfgxml_p.h"
#include "configuration/cfgxmlreader_p.h"
#include "configuration/cfgxmlwriter_p.h"
#include "configuration/xmlnames_p.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"
#include "kvbase/zentos.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>
#include <QXmlStreamReader>
#include <algorithm>
#include <atomic>
#include <cstring>
#include <vector>

const QString CfgXml::VERSION_TAG = QStringLiteral("version");
const QString CfgXml::TIME_STAMP_KEY = QStringLiteral("ts");
const int CfgXml::XML_INDENT;
const QString CfgXml::s_sEmptyFile =
    QStringLiteral("<?xml version = '1.0' encoding=\"utf-8\" ?><Cfg "
                   "version='2.2'><System/><Export/><Domain/><Machine/></Cfg>");
const QString CfgXml::NODE_TYPE = QStringLiteral("nodeType");
const QString CfgXml::LOGIN_USER = QStringLiteral("loginUser");
const QString CfgXml::ADD_SUB_KEY = QStringLiteral("addSubKey");
const QString CfgXml::SUBKEY_CONTAINER = QStringLiteral("xyZ9Subkey1Zxy");
const QString CfgXml::PROTECTED = QStringLiteral("protected");
const QString CfgXml::TYPE = QStringLiteral("type");
const QString CfgXml::BUILD = QStringLiteral("build");
const QString CfgXml::ACTIVE = QStringLiteral("active");
const QString CfgXml::DELETE_MARK = QStringLiteral("delete");
const QString CfgXml::USER_CONFIGURATION = QStringLiteral("UserConfiguration");
const QString CfgXml::ACTIVE_USER = QStringLiteral("ActiveUser");
const QString CfgXml::UC_PREFIX = QStringLiteral("UC___");

bool CfgXml::s_isLoginInstalled = false;
QByteArray CfgXml::s_sBackupString;
QByteArray CfgXml::s_sBackupExport;
QString CfgXml::s_Version;
QString CfgXml::s_sUserSubkey;
std::list<QString> CfgXml::s_addtionalSubkeys;
QString CfgXml::s_sLastConfiguration;

namespace {

const QString SOURCE_FILE = QStringLiteral("configuration/cfgxml");
const QString CLASS_NAME = QStringLiteral("CfgXml");
const QChar KEY_SEPARATOR = QLatin1Char('\\');
const QString ROOT_TAG = QStringLiteral("Cfg");
const QString DEFAULT_VERSION = QStringLiteral("2.3");
const QString TRUE_TEXT = QStringLiteral("true");
const QString FALSE_TEXT = QStringLiteral("false");
const char* const USER_TEMPLATE = "<?xml version = '1.0'?><Cfg version='2.2'><User/></Cfg>";
const char* const EXPORT_TEMPLATE = "<?xml version = '1.0'?><Cfg version='2.2'><Export/></Cfg>";
const char* const SIDE_SKELETON = "<?xml version = '1.0'?><Cfg version='2.2'></Cfg>";

std::atomic<bool> s_timeStampsEnabled{true};
// Counts stampings and clones through the public statics, which may touch a
// document without its model knowing; a save then serialises to be sure.
std::atomic<quint64> s_untrackedEdits{0};
// Counts changes of the user partitions, which every document's User view
// depends on.
std::atomic<quint64> s_partitionChanges{0};

// The bytes last written to each side file, so that an unchanged view is not
// written again; the file name guards against another document's bytes.
QByteArray s_sBackupUser;
QString s_sBackupUserFile;
QString s_sBackupExportFile;
QString s_sBackupStringFile;

QString ViewName(ICfg::View view)
{
    // Any number outside the real views addresses the machine view.
    if (view < ICfg::VIEW_User || view > ICfg::VIEW_Export)
        return ICfg::GetViewAsString(ICfg::VIEW_Machine);
    return ICfg::GetViewAsString(view);
}

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

// Throws when a value's name (a relative path ending in the value's own
// name; empty for the node's own text) cannot be written as elements.
void CheckValueName(const QString& name, const QString& operation)
{
    const QString refusal = XmlNames::RefusedValueName(name);
    if (!refusal.isNull())
        throw KVException(refusal, SOURCE_FILE, CLASS_NAME, operation, __LINE__);
}

QDomText FirstTextChild(const QDomNode& node)
{
    for (QDomNode child = node.firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (child.isText())
            return child.toText();
    }
    return QDomText();
}

// A value has text as its first child, or no text but a "protected" flag (an empty value).
bool IsValue(const QDomElement& element)
{
    return element.firstChild().isText() || element.hasAttribute(CfgXml::PROTECTED);
}

QString TypeFromText(const QString& text)
{
    if (text == TRUE_TEXT || text == FALSE_TEXT)
        return ICfg::GetTypeAsString(ICfg::TYPE_Boolean);
    bool isNumber = false;
    text.toInt(&isNumber, 10);
    return ICfg::GetTypeAsString(isNumber ? ICfg::TYPE_Integer : ICfg::TYPE_String);
}

ICfg::AttributeType TypeFromAttribute(const QString& text, bool* known)
{
    *known = true;
    if (text == QLatin1String("string") || text == QLatin1String("String"))
        return ICfg::TYPE_String;
    if (text == QLatin1String("boolean") || text == QLatin1String("Boolean"))
        return ICfg::TYPE_Boolean;
    if (text == QLatin1String("integer") || text == QLatin1String("Integer"))
        return ICfg::TYPE_Integer;
    *known = false;
    return ICfg::TYPE_Undefined;
}

qint32 Now()
{
    return static_cast<qint32>(ZentOS::Get().GetTime());
}

void StampElement(QDomElement element, int mode, qint32 now)
{
    switch (mode) {
    case CfgXml::TS_IfMissing:
        if (!element.hasAttribute(CfgXml::TIME_STAMP_KEY))
            element.setAttribute(CfgXml::TIME_STAMP_KEY, QString::number(now));
        break;
    case CfgXml::TS_Remove:
        element.removeAttribute(CfgXml::TIME_STAMP_KEY);
        break;
    case CfgXml::TS_Advance: {
        bool ok = false;
        qint64 old = element.attribute(CfgXml::TIME_STAMP_KEY).toLongLong(&ok);
        if (!ok)
            old = 0;
        element.setAttribute(CfgXml::TIME_STAMP_KEY, QString::number(now > old ? qint64(now) : old + 1));
        break;
    }
    default:
        break;
    }
}

// Depth first in document order without recursion (documents may be deep)
// and without collecting handles.
template <typename Visit> void ForEachElement(const QDomElement& top, Visit visit)
{
    QDomElement element = top;
    while (!element.isNull()) {
        visit(element);
        QDomElement next = element.firstChildElement();
        for (QDomElement up = element; next.isNull() && up != top; up = up.parentNode().toElement()) {
            next = up.nextSiblingElement();
        }
        element = next;
    }
}

struct ParseResult
{
    bool ok = false;
    QString message;
    int line = 0;
    int column = 0;
};

ParseResult Parse(QDomDocument& document, const QByteArray& bytes)
{
    ParseResult result;
    result.ok = CfgXmlFile::Parse(document, bytes, &result.message, &result.line, &result.column);
    return result;
}

QString ParseErrorText(const QString& format, const QString& fileName, const ParseResult& result)
{
    return format.arg(fileName, result.message, QString::number(result.line), QString::number(result.column));
}

const QString XML_DECLARATION_TARGET = QStringLiteral("xml");
// The declaration of documents made here, and the same as Qt's parser hands
// it over after reading a standard file.
const QString NEW_DECLARATION = QStringLiteral("version=\"1.0\" encoding=\"utf-8\"");
const QString PARSED_DECLARATION = QStringLiteral("version='1.0' encoding='utf-8'");

// Documents are always written in UTF-8 under the standard declaration,
// whatever a file declared when it was read: Qt writes the declaration back
// between apostrophes, so a declared encoding containing one would make the
// saved file unreadable.
void UseStandardDeclaration(QDomDocument& document, DomLookup& model)
{
    const QDomNode first = document.firstChild();
    if (!first.isProcessingInstruction() || first.nodeName() != XML_DECLARATION_TARGET ||
        first.nodeValue() == PARSED_DECLARATION || first.nodeValue() == NEW_DECLARATION)
        return;
    model.Replace(document.createProcessingInstruction(XML_DECLARATION_TARGET, PARSED_DECLARATION), first);
}

QByteArray Serialise(const QDomDocument& document)
{
    return CfgXmlWriter::Serialise(document, CfgXml::XML_INDENT);
}

std::unique_ptr<QDomDocument> NewDocument()
{
    const QDomDocumentType type =
        QDomImplementation().createDocumentType(QStringLiteral("cfg"), QString(), QString());
    auto document = std::make_unique<QDomDocument>(type);
    document->appendChild(document->createProcessingInstruction(XML_DECLARATION_TARGET, NEW_DECLARATION));
    return document;
}

bool UsageIs(std::initializer_list<CfgCenter::CfgCenterUsage> usages)
{
    const CfgCenter::CfgCenterUsage usage = CfgCenter::GetUsage();
    for (const CfgCenter::CfgCenterUsage candidate : usages) {
        if (usage == candidate)
            return true;
    }
    return false;
}

} // namespace

// ------------------------------------------------------------------ objects

CfgXml::CfgXml(QString fileName, QString key, View view)
    : Cfg(key, view), m_pData(std::make_shared<CfgXmlData>()),
      m_sFileName(fileName.isEmpty() ? QStringLiteral("Cfg.xml") : fileName), m_bNoSideFiles(false),
      m_keyParts(SplitKey(key))
{
}

CfgXml::CfgXml(const CfgXml* parent, QString key, View view)
    : Cfg(key, view), m_pData(parent->m_pData), m_sFileName(parent->m_sFileName),
      m_bNoSideFiles(parent->m_bNoSideFiles), m_keyParts(SplitKey(key))
{
}

CfgXml::~CfgXml() = default;

QString CfgXml::GetType()
{
    return QStringLiteral("Xml");
}

QString CfgXml::GetTarget()
{
    QMutexLocker locker(CfgCenter::GetMutex());
    return m_sFileName;
}

QString CfgXml::GetVersion()
{
    const QDomDocument* document = Document();
    if (!document)
        return s_Version;
    return document->documentElement().attribute(VERSION_TAG, DEFAULT_VERSION);
}

void CfgXml::SuppressSideFiles(bool suppress)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    m_bNoSideFiles = suppress;
}

QDomDocument* CfgXml::Document() const
{
    return m_pData->document.get();
}

// ---------------------------------------------------------------- time stamps

namespace {

void ApplyStamp(const QDomNode& node, int mode, bool recursive)
{
    if (!CfgXml::AreTimeStampsEnabled() || node.isNull())
        return;
    const QDomElement element = node.isText() ? node.parentNode().toElement() : node.toElement();
    if (element.isNull())
        return;
    const qint32 now = Now();
    if (!recursive) {
        StampElement(element, mode, now);
        return;
    }
    ForEachElement(element, [mode, now](const QDomElement& each) { StampElement(each, mode, now); });
}

} // namespace

void CfgXml::SetTimeStamp(QDomNode node, int mode, bool recursive)
{
    if (mode < TS_IfMissing || mode > TS_Advance)
        throw KVException(QStringLiteral("Undefinied enum used ..."), SOURCE_FILE, CLASS_NAME,
                          QStringLiteral("SetTimeStamp"), __LINE__);
    ++s_untrackedEdits;
    ApplyStamp(node, mode, recursive);
}

// Stamps of the own document are edits its model counts.
void CfgXml::Stamp(const QDomNode& node, int mode, bool recursive) const
{
    m_pData->lookup.Changed();
    ApplyStamp(node, mode, recursive);
}

void CfgXml::SetTimeStampsEnabled(bool enabled)
{
    s_timeStampsEnabled.store(enabled);
}

bool CfgXml::AreTimeStampsEnabled()
{
    return s_timeStampsEnabled.load();
}

void CfgXml::StampSubTree(const QDomNode& node) const
{
    if (!AreTimeStampsEnabled() || m_pData->lookup.IsStamped(node))
        return;
    ApplyStamp(node, TS_IfMissing, true);
    m_pData->lookup.MarkStamped(node);
}

void CfgXml::AdvanceStamp(const QDomNode& node) const
{
    Stamp(node, TS_Advance, true);
}

// ---------------------------------------------------------------- path walk

void CfgXml::FailWalk(const QString& problem, int line) const
{
    m_pData->Reset();
    throw KVException(m_sFileName + problem, SOURCE_FILE, CLASS_NAME, QStringLiteral("GetNode"), line);
}

QDomElement CfgXml::ViewElement(const QDomElement& root, View view) const
{
    const QString name = ViewName(view);
    QDomNode node = m_pData->lookup.FirstChildNamed(root, name);
    if (node.isNull()) {
        if (name != GetViewAsString(VIEW_User))
            FailWalk(QStringLiteral(" is invalid. Cfg has no sub elements."), __LINE__);
        node = m_pData->lookup.Append(root, Document()->createElement(name));
        StampSubTree(node);
    }
    if (!node.isElement())
        FailWalk(QStringLiteral(" is invalid. Node in Cfg is not an element."), __LINE__);
    QDomElement element = node.toElement();
    return name == GetViewAsString(VIEW_User) ? UserPartition(element) : element;
}

QDomElement CfgXml::ChildForWalk(QDomElement parent, const QString& name, bool create) const
{
    const QDomNode node = m_pData->lookup.FirstChildNamed(parent, name);
    if (!node.isNull()) {
        if (node.isElement())
            return node.toElement();
        if (create)
            FailWalk(QStringLiteral(" is invalid. Node in View element is not an element."), __LINE__);
        return QDomElement();
    }
    if (!create || !XmlNames::IsElementName(name))
        return QDomElement();
    const QDomElement created = m_pData->lookup.Append(parent, Document()->createElement(name)).toElement();
    StampSubTree(created);
    return created;
}

// The partitions are created on first access, as the User view itself is.
QDomElement CfgXml::UserPartition(QDomElement user) const
{
    if (s_sUserSubkey.isEmpty() && s_addtionalSubkeys.empty())
        return user;
    QDomElement base = ChildForWalk(user, SUBKEY_CONTAINER, true);
    if (!s_sUserSubkey.isEmpty() && !base.isNull()) {
        QDomElement login = m_pData->lookup.FirstChildElementNamed(base, s_sUserSubkey);
        if (login.isNull() && XmlNames::IsElementName(s_sUserSubkey)) {
            login = Document()->createElement(s_sUserSubkey);
            login.setAttribute(NODE_TYPE, LOGIN_USER);
            if (s_addtionalSubkeys.empty()) {
                for (QDomNode child = user.firstChild(); !child.isNull(); child = child.nextSibling()) {
                    if (child.nodeName() != SUBKEY_CONTAINER)
                        login.appendChild(child.cloneNode(true));
                }
            }
            m_pData->lookup.Append(base, login);
            m_pData->lookup.ForgetStamps();
            StampSubTree(login);
        }
        base = login;
    }
    for (const QString& subkey : s_addtionalSubkeys) {
        if (base.isNull())
            break;
        QDomElement partition = m_pData->lookup.FirstChildElementNamed(base, subkey);
        if (partition.isNull() && XmlNames::IsElementName(subkey)) {
            partition = Document()->createElement(subkey);
            partition.setAttribute(NODE_TYPE, ADD_SUB_KEY);
            m_pData->lookup.Append(base, partition);
            StampSubTree(partition);
        }
        base = partition;
    }
    return base;
}

QDomNode CfgXml::GetNode(const QString& path, View view, bool create) const
{
    QDomDocument* document = Document();
    if (!document)
        return QDomNode();
    const QDomElement root = document->documentElement();
    if (root.isNull() || root.tagName() != ROOT_TAG)
        FailWalk(QStringLiteral(" is invalid. Element Cfg not found."), __LINE__);
    QDomElement node = ViewElement(root, view);
    const QStringList parts = path.isEmpty() ? m_keyParts : SplitKey(JoinKey(m_sKey, path));
    for (const QString& part : parts) {
        if (node.isNull())
            return QDomNode();
        node = ChildForWalk(node, part, create);
    }
    if (node.isNull())
        return QDomNode();
    StampSubTree(node);
    return node;
}

QDomElement CfgXml::GetCfgElem(View view, bool create) const
{
    return GetNode(QString(), view, create).toElement();
}

// ---------------------------------------------------------------- values

// A name may carry a relative path: "Sub\Name" is the value Name of Sub.
QDomElement CfgXml::FindValue(const QString& name, View view, bool create) const
{
    const int separator = name.lastIndexOf(KEY_SEPARATOR);
    const QDomNode node = GetNode(separator >= 0 ? name.left(separator) : QString(), view, create);
    if (node.isNull())
        return QDomElement();
    return m_pData->lookup.FirstChildElementNamed(node, separator >= 0 ? name.mid(separator + 1) : name);
}

// FindValue without creating, remembering where the value was found.
QDomElement CfgXml::FindValueToRead(const QString& name, View view) const
{
    CfgXmlData& data = *m_pData;
    if (!data.document)
        return QDomElement();
    const ReadCache::Entry* known = data.reads.Find(m_sKey, name, view, data.lookup.StructureChanges(),
                                                    s_partitionChanges.load(std::memory_order_relaxed));
    if (known) {
        if (!known->node.isNull())
            StampSubTree(known->node);
        return known->value;
    }
    const int separator = name.lastIndexOf(KEY_SEPARATOR);
    ReadCache::Entry found;
    found.node = GetNode(separator >= 0 ? name.left(separator) : QString(), view, false).toElement();
    if (!found.node.isNull())
        found.value =
            data.lookup.FirstChildElementNamed(found.node, separator >= 0 ? name.mid(separator + 1) : name);
    data.reads.Insert(m_sKey, name, view, found, data.lookup.StructureChanges(),
                      s_partitionChanges.load(std::memory_order_relaxed));
    return found.value;
}

QString CfgXml::GetStringImpl(QString name, QString defaultValue, View view)
{
    if (name.isEmpty()) {
        const QDomText text = FirstTextChild(GetNode(QString(), view, false));
        return text.isNull() ? defaultValue : text.data();
    }
    const QDomText text = FirstTextChild(FindValueToRead(name, view));
    return text.isNull() ? defaultValue : text.data();
}

long CfgXml::GetIntegerImpl(QString name, long defaultValue, View view)
{
    const QString text = GetStringImpl(name, QString::number(defaultValue), view);
    bool ok = false;
    const qint32 value = text.toInt(&ok, 10);
    return ok ? value : defaultValue;
}

// The first name on the way to this object's node that cannot be an element
// name: a user partition (in the user view) or a component of the key.
bool CfgXml::FindInvalidNodeName(View view, QString* invalid) const
{
    QStringList names;
    if (view == VIEW_User) {
        if (!s_sUserSubkey.isEmpty())
            names.append(s_sUserSubkey);
        for (const QString& subkey : s_addtionalSubkeys)
            names.append(subkey);
    }
    names.append(m_keyParts);
    for (const QString& name : names) {
        if (!XmlNames::IsElementName(name)) {
            *invalid = name;
            return true;
        }
    }
    return false;
}

// A write that cannot be stored as it was given is refused with an
// exception, before anything is created: never dropped, never altered.
QDomElement CfgXml::SetStringImplPrivate(const QString& name, const QString& value, View view,
                                         const QString& operation)
{
    const int separator = name.lastIndexOf(KEY_SEPARATOR);
    const QString path = separator >= 0 ? name.left(separator) : QString();
    const QString valueName = separator >= 0 ? name.mid(separator + 1) : name;
    CheckValueName(name, operation);
    const QString refusedText = XmlNames::RefusedValueText(name, value);
    if (!refusedText.isNull())
        throw KVException(refusedText, SOURCE_FILE, CLASS_NAME, operation, __LINE__);
    QDomNode node = GetNode(path, view, true);
    QString invalid;
    if (node.isNull()) {
        // Only a name on the way there can keep an open document's node from
        // being created: this object's key or a user partition.
        if (Document() && FindInvalidNodeName(view, &invalid))
            throw KVException(XmlNames::NotAnElementName(QStringLiteral("The value"), name, invalid),
                              SOURCE_FILE, CLASS_NAME, operation, __LINE__);
        return QDomElement();
    }
    if (valueName.isEmpty() && separator < 0) {
        QDomText text = FirstTextChild(node);
        if (text.isNull()) {
            text = m_pData->lookup.Append(node, Document()->createTextNode(value)).toText();
            m_pData->lookup.ForgetListings(node);
            m_pData->lookup.ForgetListings(node.parentNode());
            AdvanceStamp(text);
        } else if (text.data() != value) {
            m_pData->lookup.SetText(text, value);
            AdvanceStamp(text);
        }
        return node.toElement();
    }
    QDomElement element = m_pData->lookup.FirstChildElementNamed(node, valueName);
    if (element.isNull()) {
        element = Document()->createElement(valueName);
        if (view != VIEW_User)
            element.setAttribute(PROTECTED, TRUE_TEXT);
        const QDomNode text = element.appendChild(Document()->createTextNode(value));
        m_pData->lookup.Append(node, element);
        AdvanceStamp(text);
        return element;
    }
    QDomText text = FirstTextChild(element);
    if (text.isNull()) {
        text = m_pData->lookup.InsertBefore(element, Document()->createTextNode(value), element.firstChild())
                   .toText();
        m_pData->lookup.ForgetListings(element);
        m_pData->lookup.ForgetListings(node);
        AdvanceStamp(text);
    } else if (text.data() != value) {
        m_pData->lookup.SetText(text, value);
        AdvanceStamp(text);
    }
    return element;
}

void CfgXml::SetValueAndType(const QString& name, const QString& value, const QString& type, View view,
                             const QString& operation)
{
    QDomElement element = SetStringImplPrivate(name, value, view, operation);
    if (!element.isNull() && !element.hasAttribute(TYPE))
        m_pData->lookup.SetAttribute(element, TYPE, type);
}

void CfgXml::SetStringImpl(QString name, QString value, View view)
{
    SetValueAndType(name, value, GetTypeAsString(TYPE_String), view, QStringLiteral("SetString"));
}

void CfgXml::SetIntegerImpl(QString name, long value, View view)
{
    SetValueAndType(name, QString::number(static_cast<qint32>(value)), GetTypeAsString(TYPE_Integer), view,
                    QStringLiteral("SetInteger"));
}

void CfgXml::SetBooleanImpl(QString name, bool value, View view)
{
    SetValueAndType(name, value ? TRUE_TEXT : FALSE_TEXT, GetTypeAsString(TYPE_Boolean), view,
                    QStringLiteral("SetBoolean"));
}

ICfg::AttributeType CfgXml::GetAttributeType(QString name, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    QDomElement element = FindValue(name, ResolveView(view), false);
    if (element.isNull())
        return TYPE_Undefined;
    bool known = false;
    const AttributeType declared = TypeFromAttribute(element.attribute(TYPE), &known);
    if (known)
        return declared;
    const QString text = FirstTextChild(element).data();
    if (text.isEmpty())
        return TYPE_Undefined;
    const AttributeType derived = (text == TRUE_TEXT || text == FALSE_TEXT) ? TYPE_Boolean : TYPE_String;
    m_pData->lookup.SetAttribute(element, TYPE, GetTypeAsString(derived));
    return derived;
}

void CfgXml::SetAttributeType(QString name, AttributeType type, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    CheckValueName(name, QStringLiteral("SetAttributeType"));
    QDomElement element = FindValue(name, ResolveView(view), false);
    if (element.isNull())
        return;
    const bool known = type == TYPE_String || type == TYPE_Boolean || type == TYPE_Integer;
    m_pData->lookup.SetAttribute(element, TYPE, GetTypeAsString(known ? type : TYPE_String));
    AdvanceStamp(element);
}

bool CfgXml::IsProtected(QString name, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    return FindValue(name, ResolveView(view), false).attribute(PROTECTED) == TRUE_TEXT;
}

void CfgXml::SetProtected(QString name, bool isProtected, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    CheckValueName(name, QStringLiteral("SetProtected"));
    QDomElement element = FindValue(name, ResolveView(view), false);
    if (element.isNull())
        return;
    if (!element.hasAttribute(PROTECTED))
        m_pData->lookup.ForgetListings(element.parentNode());
    m_pData->lookup.SetAttribute(element, PROTECTED, isProtected ? TRUE_TEXT : FALSE_TEXT);
}

bool CfgXml::HasAttribute(QString key, QString name, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const QDomNode node = GetNode(key, ResolveView(view), false);
    return !node.isNull() && !m_pData->lookup.FirstChildElementNamed(node, name).isNull();
}

bool CfgXml::RemoveAttribute(QString name, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const QDomElement element = FindValue(name, ResolveView(view), false);
    if (element.isNull())
        return false;
    m_pData->lookup.Remove(element);
    return true;
}

bool CfgXml::RenameAttribute(QString oldName, QString newName, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    view = ResolveView(view);
    QDomElement element = FindValue(oldName, view, false);
    if (element.isNull())
        return false;
    if (newName == element.tagName())
        return true;
    const QDomNode parent = element.parentNode();
    if (!XmlNames::IsElementName(newName) || !m_pData->lookup.FirstChildNamed(parent, newName).isNull())
        return false;
    m_pData->lookup.Rename(element, newName);
    Stamp(element, TS_Advance, false);
    return true;
}

namespace {

// Values and sub-configurations in document order. Any child that is not an
// element (text, comment, processing instruction) ends what the
// sub-configuration listing can reach: enumerating past it fails.
DomLookup::Listing BuildListing(const QDomNode& node, DomLookup::ListingKind kind)
{
    DomLookup::Listing listing;
    listing.built = true;
    for (QDomNode child = node.firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (!child.isElement()) {
            if (kind == DomLookup::SubConfigurations && listing.reachable < 0)
                listing.reachable = int(listing.items.size());
            continue;
        }
        if (IsValue(child.toElement()) == (kind == DomLookup::Values))
            listing.items.push_back(child.toElement());
    }
    return listing;
}

const DomLookup::Listing& ChildListing(CfgXmlData& data, const QDomNode& node, DomLookup::ListingKind kind)
{
    DomLookup::Listing* cached = data.lookup.ListingOf(node, kind);
    if (!cached) {
        data.scratch = BuildListing(node, kind);
        return data.scratch;
    }
    if (!cached->built)
        *cached = BuildListing(node, kind);
    return *cached;
}

} // namespace

QString CfgXml::GetValueKeyAtImpl(int index, View view)
{
    const QDomNode node = GetNode(QString(), view, false);
    if (node.isNull() || index < 0)
        return QString();
    const DomLookup::Listing& values = ChildListing(*m_pData, node, DomLookup::Values);
    return index < int(values.items.size()) ? values.items[size_t(index)].nodeName() : QString();
}

// ---------------------------------------------------------------- sub-configurations

ICfg* CfgXml::CreateSubCfg(QString key, View view) const
{
    QMutexLocker locker(CfgCenter::GetMutex());
    view = ResolveView(view);
    QString invalid;
    if (XmlNames::FindInvalidComponent(key, &invalid)) {
        _Q_Trace(XmlNames::NoSuchSubConfiguration(key, invalid), __FILE__, __LINE__);
        return nullptr;
    }
    const QDomNode node = GetNode(key, view, false);
    if (!node.isElement())
        return nullptr;
    return new CfgXml(this, SplitKey(JoinKey(m_sKey, key)).join(KEY_SEPARATOR), view);
}

ICfg* CfgXml::CreateSubCfgAtImpl(int index, View view)
{
    const QDomNode node = GetNode(QString(), view, false);
    if (node.isNull() || index < 0)
        return nullptr;
    const DomLookup::Listing& subs = ChildListing(*m_pData, node, DomLookup::SubConfigurations);
    if (subs.reachable >= 0 && index >= subs.reachable)
        throw KVException(QStringLiteral("Not all childs are elements."), SOURCE_FILE, CLASS_NAME,
                          QStringLiteral("CreateSubCfgAtImpl"), __LINE__);
    if (index >= int(subs.items.size()))
        return nullptr;
    return CreateSubCfg(subs.items[size_t(index)].nodeName(), view);
}

bool CfgXml::AddSubCfg(QString key, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    QString invalid;
    if (SplitKey(key).isEmpty() || XmlNames::FindInvalidComponent(key, &invalid)) {
        _Q_Trace(XmlNames::NotAnElementName(QStringLiteral("The sub-configuration"), key, invalid), __FILE__,
                 __LINE__);
        return false;
    }
    return !GetNode(key, ResolveView(view), true).isNull();
}

bool CfgXml::HasSubCfg(QString key, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    return GetNode(key, ResolveView(view), false).isElement();
}

bool CfgXml::RemoveSubCfg(QString key, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    // An empty name removes this configuration's own element; a view element
    // (the document's root node) is not a sub-configuration of anything.
    if (SplitKey(JoinKey(m_sKey, key)).isEmpty())
        return false;
    const QDomNode node = GetNode(key, ResolveView(view), false);
    if (node.isNull())
        return false;
    m_pData->lookup.Remove(node);
    m_pData->lookup.ForgetAll();
    return true;
}

bool CfgXml::MoveSubCfg(QString from, QString to, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    view = ResolveView(view);
    const QStringList fromParts = SplitKey(from);
    QStringList toParts = SplitKey(to);
    if (fromParts.isEmpty() || toParts.isEmpty() || toParts.mid(0, fromParts.size()) == fromParts)
        return false;
    const QString newName = toParts.takeLast();
    QDomElement source = GetNode(from, view, false).toElement();
    if (source.isNull() || !XmlNames::IsElementName(newName) || !GetNode(to, view, false).isNull())
        return false;
    QDomNode target = GetNode(toParts.join(KEY_SEPARATOR), view, true);
    if (target.isNull())
        return false;
    m_pData->lookup.Remove(source);
    m_pData->lookup.Rename(source, newName);
    m_pData->lookup.Append(target, source);
    m_pData->lookup.ForgetAll();
    m_pData->lookup.ForgetStamps();
    Stamp(source, TS_Advance, false);
    return true;
}

QDomElement CfgXml::RecursiveClone(const QDomElement& source, QDomElement target)
{
    ++s_untrackedEdits;
    QDomDocument document = target.ownerDocument();
    for (QDomNode child = source.firstChild(); !child.isNull(); child = child.nextSibling())
        target.appendChild(document.importNode(child, true));
    return target;
}

void CfgXml::AssignDefaults()
{
    QMutexLocker locker(CfgCenter::GetMutex());
    if (!Document())
        return;
    DomLookup& model = m_pData->lookup;
    const QDomElement root = Document()->documentElement();
    for (const View view : {VIEW_User, VIEW_Domain, VIEW_System, VIEW_Machine}) {
        const QDomElement top = model.FirstChildElementNamed(root, GetViewAsString(view));
        if (top.isNull())
            continue;
        ForEachElement(top, [&model](const QDomElement& element) {
            if (element.hasAttribute(PROTECTED) && !element.hasAttribute(TYPE))
                model.SetAttribute(element, TYPE, TypeFromText(FirstTextChild(element).data()));
        });
    }
}

// ---------------------------------------------------------------- open

void CfgXml::OpenDocument(bool restoreAllowed)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    CfgXmlFile::CompleteInterruptedRotation(m_sFileName);
    m_pData->Reset();
    m_pData->document = NewDocument();
    if (!QFile::exists(m_sFileName)) {
        if (GetSelectedView() == VIEW_User) {
            OpenUserOnlyDocument();
            return;
        }
        HandleMissingFile();
    }
    if (!ParseMainFile(ReadOrCreateFile(), restoreAllowed))
        return;
    QDomElement root = Document()->documentElement();
    if (root.tagName() != ROOT_TAG) {
        m_pData->Reset();
        throw KVException(m_sFileName + QStringLiteral(" is invalid. Element Cfg not found."), SOURCE_FILE,
                          CLASS_NAME, QStringLiteral("OpenDocument"), __LINE__);
    }
    s_Version = root.attribute(VERSION_TAG, DEFAULT_VERSION);
    const QDomElement machine = root.firstChildElement(GetViewAsString(VIEW_Machine));
    if (!machine.firstChildElement(QStringLiteral("Login")).isNull())
        s_isLoginInstalled = true;
    if (m_pData->lookup.FirstChildNamed(root, GetViewAsString(VIEW_System)).isNull()) {
        // A user-only or export-only document.
        GraftSideView(GetViewAsString(VIEW_User), SideFileName(QStringLiteral("usr")), USER_TEMPLATE);
        AssignDefaults();
        return;
    }
    ValidateViews(root);
    GraftSideView(GetViewAsString(VIEW_User), SideFileName(QStringLiteral("usr")), USER_TEMPLATE);
    GraftSideView(GetViewAsString(VIEW_Export), SideFileName(QStringLiteral("exp")), EXPORT_TEMPLATE);
    AssignDefaults();
}

void CfgXml::OpenUserOnlyDocument()
{
    m_pData->document->setContent(QByteArray(USER_TEMPLATE));
    s_Version = GetVersion();
    const QString userFile = SideFileName(QStringLiteral("usr"));
    if (!userFile.isEmpty())
        CfgXmlFile::CompleteInterruptedRotation(userFile);
    if (!userFile.isEmpty() && QFile::exists(userFile)) {
        QDomElement root = Document()->documentElement();
        const QDomElement user = ReadSideView(userFile, GetViewAsString(VIEW_User), USER_TEMPLATE);
        m_pData->lookup.Replace(user, root.firstChildElement(GetViewAsString(VIEW_User)));
        m_pData->lookup.ForgetAll();
    }
    AssignDefaults();
}

void CfgXml::HandleMissingFile()
{
    if (CfgXmlFile::HasUsableBackup(m_sFileName)) {
        const QString message = QStringLiteral("The configuration file \"") + m_sFileName +
                                QStringLiteral("\" does not exist, but a backup file was found.") +
                                QStringLiteral("The system restores it.\n");
        _Q_Trace(message, __FILE__, __LINE__);
        // Should the restore fail, the file is not created without asking.
        if (CfgXmlFile::RestoreFromBackup(m_sFileName))
            return;
    }
    const QString message =
        QStringLiteral("The configuration file \"") + m_sFileName + QStringLiteral("\" does not exist.\n");
    ErrorHandler& handler = ErrorHandler::Instance();
    if (handler.HasMessageDialog() &&
        handler.ShowMessageDialog(message +
                                  QStringLiteral("Press \"Continue\" if the system should create it.")))
        return;
    m_pData->Reset();
    throw KVException(message, SOURCE_FILE, CLASS_NAME, QStringLiteral("OpenDocument"), __LINE__);
}

QByteArray CfgXml::ReadOrCreateFile()
{
    QFile file;
    const bool existed = QFile::exists(m_sFileName);
    if (!existed) {
        // Made afresh, so that a link planted in its place is not followed.
        if (!ZentOS::Get().CreateNewFile(file, m_sFileName)) {
            m_pData->Reset();
            throw KVException(QStringLiteral("Can neither open nor create the file ") + m_sFileName +
                                  QStringLiteral("."),
                              SOURCE_FILE, CLASS_NAME, QStringLiteral("OpenDocument"), __LINE__);
        }
        file.write(s_sEmptyFile.toUtf8());
        ZentOS::Get().SyncFile(file);
        file.close();
    }
    QString problem;
    const QByteArray bytes = CfgXmlFile::ReadFile(m_sFileName, &problem);
    if (problem == QLatin1String("cannot be read")) {
        m_pData->Reset();
        // An existing file that cannot be read is not overwritten with the template.
        throw KVException((existed ? QStringLiteral("Can neither open nor create the file ")
                                   : QStringLiteral("Cannot open the file ")) +
                              m_sFileName + QStringLiteral("."),
                          SOURCE_FILE, CLASS_NAME, QStringLiteral("OpenDocument"), __LINE__);
    }
    return bytes; // too large or not a regular file: empty, reported as a parse error
}

// Returns false when the document was opened through the backup instead.
bool CfgXml::ParseMainFile(const QByteArray& bytes, bool restoreAllowed)
{
    QString unreadable;
    if (bytes.isEmpty())
        CfgXmlFile::ReadFile(m_sFileName, &unreadable);
    const ParseResult result =
        !unreadable.isEmpty() ? ParseResult{false, unreadable, 0, 0} : Parse(*m_pData->document, bytes);
    if (result.ok)
        return true;
    m_pData->Reset();
    const QString text =
        ParseErrorText(QStringLiteral("Parse error in file %1: %2 at line %3 in column %4. And no "
                                      "valid backup file found.\n\nTALVO terminates!"),
                       m_sFileName, result);
    if (CfgCenter::GetUsage() != CfgCenter::USAGE_1 && restoreAllowed &&
        CfgXmlFile::HasUsableBackup(m_sFileName) && CfgXmlFile::RestoreFromBackup(m_sFileName)) {
        OpenDocument(false);
        _Q_Trace(m_sFileName + QStringLiteral(" defect, restoring backup file"), __FILE__, __LINE__);
        return false;
    }
    throw KVException(text, SOURCE_FILE, CLASS_NAME, QStringLiteral("OpenDocument"), __LINE__);
}

void CfgXml::ValidateViews(const QDomElement& root)
{
    const auto fail = [this](const QString& problem, int line) {
        m_pData->Reset();
        throw KVException(m_sFileName + problem, SOURCE_FILE, CLASS_NAME, QStringLiteral("OpenDocument"),
                          line);
    };
    if (!m_pData->lookup.FirstChildNamed(root, GetViewAsString(VIEW_System)).isElement())
        fail(QStringLiteral(" is invalid. Sub node System of element Cfg is not an element."), __LINE__);
    const QDomNode domain = m_pData->lookup.FirstChildNamed(root, GetViewAsString(VIEW_Domain));
    if (domain.isNull())
        fail(QStringLiteral(" is invalid. Element Cfg has no sub node Domain."), __LINE__);
    if (!domain.isElement())
        fail(QStringLiteral(" is invalid. Sub node Domain of element Cfg is not an element."), __LINE__);
    const QDomNode machine = m_pData->lookup.FirstChildNamed(root, GetViewAsString(VIEW_Machine));
    if (machine.isNull())
        fail(QStringLiteral(" is invalid. Element Cfg has no sub node Machine."), __LINE__);
    if (!machine.isElement())
        fail(QStringLiteral(" is invalid. Sub node Machine of element Cfg is not an element."), __LINE__);
}

bool CfgXml::UsesSideFiles() const
{
    return !m_bNoSideFiles && UsageIs({CfgCenter::USAGE_0, CfgCenter::USAGE_4});
}

// A missing side file keeps the view found in the main document, so that a
// one-file document keeps its user and export values.
void CfgXml::GraftSideView(const QString& viewName, const QString& fileName, const char* emptyTemplate)
{
    // The user side file is read in every usage; only usages 0 and 4 write it.
    const bool reads = viewName == GetViewAsString(VIEW_User) ? !m_bNoSideFiles : UsesSideFiles();
    if (!reads || fileName.isEmpty())
        return;
    CfgXmlFile::CompleteInterruptedRotation(fileName);
    QDomElement root = Document()->documentElement();
    const QDomElement existing = root.firstChildElement(viewName);
    if (!QFile::exists(fileName) && (!existing.isNull() || !UsesSideFiles()))
        return;
    const QDomElement view = ReadSideView(fileName, viewName, emptyTemplate);
    if (view.isNull())
        return;
    if (existing.isNull())
        m_pData->lookup.Append(root, view);
    else
        m_pData->lookup.Replace(view, existing);
    m_pData->lookup.ForgetAll();
    m_pData->lookup.ForgetStamps();
}

QDomElement CfgXml::ReadSideView(const QString& fileName, const QString& viewName, const char* emptyTemplate)
{
    QDomDocument side;
    QString problem;
    QByteArray bytes = CfgXmlFile::ReadFile(fileName, &problem);
    if (!QFile::exists(fileName)) {
        side.setContent(QByteArray(emptyTemplate));
    } else if (problem == QLatin1String("cannot be read")) {
        ErrorHandler::Instance().Message(QStringLiteral("Cannot open the file ") + fileName,
                                         ErrorHandler::MSG_Error, QStringLiteral("OpenDocument"), CLASS_NAME);
        side.setContent(QByteArray(emptyTemplate));
    } else {
        if (!problem.isEmpty())
            bytes = "<"; // too large or not a regular file: reported as a parse error
        const ParseResult result = Parse(side, bytes);
        if (!result.ok) {
            ErrorHandler::Instance().Message(
                ParseErrorText(QStringLiteral("Parse error in file %1: %2 at line %3 in column %4."),
                               fileName, result),
                ErrorHandler::MSG_Error, QStringLiteral("OpenDocument"), CLASS_NAME);
            const bool restored =
                CfgXmlFile::HasUsableBackup(fileName) && CfgXmlFile::RestoreFromBackup(fileName);
            if (!restored || !Parse(side, CfgXmlFile::ReadFile(fileName, nullptr)).ok)
                side.setContent(QByteArray(emptyTemplate));
        }
    }
    QDomElement view = side.documentElement().firstChildElement(viewName);
    if (view.isNull())
        view = side.createElement(viewName);
    return Document()->importNode(view, true).toElement();
}

QString CfgXml::SideFileName(const QString& tag) const
{
    // The extension dot belongs to the file name, not to a folder on its path.
    const int dot = m_sFileName.lastIndexOf(QLatin1Char('.'));
    const int folderEnd =
        qMax(m_sFileName.lastIndexOf(QLatin1Char('/')), m_sFileName.lastIndexOf(KEY_SEPARATOR));
    if (dot <= 0 || dot < folderEnd)
        return QString();
    const QString name = m_sFileName.left(dot) + QLatin1Char('.') + tag + m_sFileName.mid(dot);
    if (tag != QLatin1String("exp"))
        return name;
    const int separator = qMax(name.lastIndexOf(QLatin1Char('/')), name.lastIndexOf(KEY_SEPARATOR));
    if (separator >= 0)
        return DataDirectory() + name.mid(separator);
    return DataDirectory() + QDir::separator() + name;
}

QString CfgXml::GetUserSideFileName() const
{
    QMutexLocker locker(CfgCenter::GetMutex());
    return SideFileName(QStringLiteral("usr"));
}

QString CfgXml::GetExportSideFileName() const
{
    QMutexLocker locker(CfgCenter::GetMutex());
    return SideFileName(QStringLiteral("exp"));
}

QString CfgXml::DataDirectory() const
{
    QString directory;
    if (const QDomDocument* document = Document()) {
        const QDomElement value = document->documentElement()
                                      .firstChildElement(GetViewAsString(VIEW_Machine))
                                      .firstChildElement(QStringLiteral("Administration"))
                                      .firstChildElement(QStringLiteral("TalvoDataDir"));
        directory = FirstTextChild(value).data();
    }
    return directory.isEmpty() ? QDir::currentPath() : directory;
}

void CfgXml::CloseDocument()
{
    QMutexLocker locker(CfgCenter::GetMutex());
    m_pData->Reset();
}

void CfgXml::RestoreBackup()
{
    QMutexLocker locker(CfgCenter::GetMutex());
    // F no longer holds what was last saved, so the next save writes.
    m_pData->saved = CfgXmlData::SavedState();
    if (s_sBackupStringFile == m_sFileName) {
        s_sBackupString.clear();
        s_sBackupStringFile.clear();
    }
    CfgXmlFile::RestoreFromBackup(m_sFileName);
}

QString CfgXml::GetBackupDocumentName(const char* name)
{
    const QString backup = QFile::decodeName(name) + QStringLiteral(".bak");
    return QFile::exists(backup) ? backup : QString();
}

// ---------------------------------------------------------------- save

void CfgXml::SaveDocument()
{
    _Q_assert(ZentOS::Get().IsAppThread(), __FILE__, __LINE__);
    QMutexLocker locker(CfgCenter::GetMutex());
    Cfg::SaveDocument();
    QDomDocument* document = Document();
    if (!document) {
        _Q_Trace(m_sFileName + QStringLiteral(" is not open; nothing saved"), __FILE__, __LINE__);
        return;
    }
    if (IsSavedUnchanged())
        return;
    std::list<DetachedView> detached = DetachSideViews();
    bool complete = true;
    try {
        for (const DetachedView& view : detached)
            complete = WriteSideView(view, view.element.tagName()) && complete;
        UseStandardDeclaration(*document, m_pData->lookup);
        QByteArray bytes = Serialise(*document);
        if (UsageIs({CfgCenter::USAGE_1, CfgCenter::USAGE_3}))
            bytes = CfgXmlFile::NormaliseLineEnds(bytes);
        if (bytes != s_sBackupString || s_sBackupStringFile != m_sFileName) {
            const CfgXmlFile::WriteResult result = RotationFindsOnlyFiles(m_sFileName)
                                                       ? CfgXmlFile::WriteRotated(m_sFileName, bytes)
                                                       : CfgXmlFile::WriteResult::TempNotOpened;
            // The message names the ".bak.temp" file although ".temp" failed: intended wording.
            if (result == CfgXmlFile::WriteResult::TempNotOpened)
                throw KVException(QStringLiteral("Cannot open ") + m_sFileName + QStringLiteral(".bak.temp") +
                                      QStringLiteral(" for writing."),
                                  SOURCE_FILE, CLASS_NAME, QStringLiteral("SaveDocument"), __LINE__);
            if (result == CfgXmlFile::WriteResult::Written) {
                s_sBackupString = bytes;
                s_sBackupStringFile = m_sFileName;
            }
            complete = complete && result == CfgXmlFile::WriteResult::Written;
        }
    } catch (...) {
        GraftBack(detached);
        throw;
    }
    GraftBack(detached);
    if (complete)
        RememberSaved();
    else
        m_pData->saved = CfgXmlData::SavedState();
}

// The rotation renames and removes the file and its ".temp", ".bak" and
// ".bak.temp". A folder, device or pipe of one of these names is never moved,
// so the save stops before the rotation starts. A link in the document's own
// place would be moved as well; links at the other three names are replaced
// by the rotation's file operations, never followed.
bool CfgXml::RotationFindsOnlyFiles(const QString& fileName)
{
    for (const QString& name : {fileName, fileName + QStringLiteral(".temp"),
                                fileName + QStringLiteral(".bak"), fileName + QStringLiteral(".bak.temp")}) {
        const QFileInfo info(name);
        const bool link = info.isSymLink();
        const bool foreign = (link && name == fileName) || (!link && info.exists() && !info.isFile());
        if (foreign) {
            _Q_Trace(name + QStringLiteral(" is not a regular file; not saved"), __FILE__, __LINE__);
            return false;
        }
    }
    return true;
}

bool CfgXml::IsSavedUnchanged() const
{
    const CfgXmlData::SavedState& saved = m_pData->saved;
    return saved.valid && saved.changes == m_pData->lookup.Changes() &&
           saved.untrackedEdits == s_untrackedEdits.load() && saved.fileName == m_sFileName &&
           saved.usage == CfgCenter::GetUsage() && saved.noSideFiles == m_bNoSideFiles &&
           saved.exportFileName == SideFileName(QStringLiteral("exp")) &&
           s_sBackupStringFile == m_sFileName && s_sBackupString.isSharedWith(saved.main) &&
           s_sBackupUser.isSharedWith(saved.user) && s_sBackupExport.isSharedWith(saved.exportView);
}

void CfgXml::RememberSaved()
{
    CfgXmlData::SavedState& saved = m_pData->saved;
    saved.valid = true;
    saved.changes = m_pData->lookup.Changes();
    saved.untrackedEdits = s_untrackedEdits.load();
    saved.usage = CfgCenter::GetUsage();
    saved.noSideFiles = m_bNoSideFiles;
    saved.fileName = m_sFileName;
    saved.exportFileName = SideFileName(QStringLiteral("exp"));
    saved.main = s_sBackupString;
    saved.user = s_sBackupUser;
    saved.exportView = s_sBackupExport;
}

std::list<CfgXml::DetachedView> CfgXml::DetachSideViews()
{
    std::list<DetachedView> detached;
    if (!UsesSideFiles())
        return detached;
    QDomElement root = Document()->documentElement();
    for (const auto& side : {std::make_pair(VIEW_User, QStringLiteral("usr")),
                             std::make_pair(VIEW_Export, QStringLiteral("exp"))}) {
        const QString fileName = SideFileName(side.second);
        const QDomElement view = root.firstChildElement(GetViewAsString(side.first));
        if (fileName.isEmpty() || view.isNull())
            continue;
        m_pData->lookup.Remove(view);
        detached.push_back({view, fileName});
    }
    m_pData->lookup.ForgetChildren(root);
    return detached;
}

bool CfgXml::WriteSideView(const DetachedView& view, const QString& viewName)
{
    const bool isExport = viewName == GetViewAsString(VIEW_Export);
    QByteArray bytes;
    if (view.element.hasChildNodes()) {
        QDomDocument side;
        side.setContent(QByteArray(SIDE_SKELETON));
        side.documentElement().appendChild(side.importNode(view.element, true));
        bytes = Serialise(side);
    } else if (QFile::exists(view.fileName)) {
        bytes = isExport ? EXPORT_TEMPLATE : USER_TEMPLATE;
    } else {
        return true;
    }
    QByteArray& lastBytes = isExport ? s_sBackupExport : s_sBackupUser;
    QString& lastFile = isExport ? s_sBackupExportFile : s_sBackupUserFile;
    if (bytes == lastBytes && lastFile == view.fileName)
        return true;
    // A side file that cannot be written is an error of the save, whichever
    // step of the rotation failed.
    if (!RotationFindsOnlyFiles(view.fileName) ||
        CfgXmlFile::WriteRotated(view.fileName, bytes) != CfgXmlFile::WriteResult::Written)
        throw KVException(QStringLiteral("Cannot open ") + view.fileName + QStringLiteral(" for writing."),
                          SOURCE_FILE, CLASS_NAME, QStringLiteral("SaveDocumentExtra"), __LINE__);
    lastBytes = bytes;
    lastFile = view.fileName;
    return true;
}

void CfgXml::GraftBack(std::list<DetachedView>& views)
{
    if (views.empty())
        return;
    QDomElement root = Document()->documentElement();
    for (DetachedView& view : views)
        m_pData->lookup.Append(root, view.element);
    views.clear();
}

// ---------------------------------------------------------------- exchange

QByteArray CfgXml::GetCfgAsStringFromApp(const QString& appKey)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    QDomDocument exchange;
    exchange.appendChild(exchange.createProcessingInstruction(XML_DECLARATION_TARGET, NEW_DECLARATION));
    QDomElement exchangeRoot = exchange.createElement(ROOT_TAG);
    exchangeRoot.setAttribute(VERSION_TAG, GetVersion());
    exchange.appendChild(exchangeRoot);
    if (Document() && !appKey.isEmpty()) {
        const QDomElement root = Document()->documentElement();
        for (const View view : {VIEW_System, VIEW_Domain, VIEW_Machine, VIEW_User, VIEW_Export}) {
            const QString viewName = GetViewAsString(view);
            const QDomElement app = root.firstChildElement(viewName).firstChildElement(appKey);
            if (app.isNull())
                continue;
            QDomElement exchangeView = exchange.createElement(viewName);
            exchangeView.appendChild(exchange.importNode(app, true));
            exchangeRoot.appendChild(exchangeView);
        }
    }
    return Serialise(exchange);
}

namespace {

void MergeValue(const QDomElement& source, QDomElement target, DomLookup& model)
{
    const QString text = FirstTextChild(source).data();
    QDomText targetText = FirstTextChild(target);
    if (targetText.isNull()) {
        targetText =
            model.InsertBefore(target, target.ownerDocument().createTextNode(text), target.firstChild())
                .toText();
        model.Changed();
        ApplyStamp(targetText, CfgXml::TS_Advance, false);
    } else if (targetText.data() != text) {
        model.SetText(targetText, text);
        ApplyStamp(targetText, CfgXml::TS_Advance, false);
    }
    for (const QString& attribute : {CfgXml::TYPE, CfgXml::PROTECTED}) {
        if (source.hasAttribute(attribute))
            model.SetAttribute(target, attribute, source.attribute(attribute));
    }
}

void MergeChildren(const QDomElement& source, QDomElement target, DomLookup& model)
{
    std::vector<std::pair<QDomElement, QDomElement>> pending{{source, target}};
    while (!pending.empty()) {
        auto pair = pending.back();
        pending.pop_back();
        for (QDomElement child = pair.first.firstChildElement(); !child.isNull();
             child = child.nextSiblingElement()) {
            QDomElement existing = pair.second.firstChildElement(child.tagName());
            if (existing.isNull())
                model.Append(pair.second, pair.second.ownerDocument().importNode(child, true));
            else if (IsValue(child))
                MergeValue(child, existing, model);
            else
                pending.emplace_back(child, existing);
        }
    }
}

} // namespace

void CfgXml::MergeCfgFromStringAndApp(const QByteArray& bytes, const QString& appKey)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    auto incoming = std::make_unique<QDomDocument>();
    const ParseResult result = Parse(*incoming, bytes);
    if (!result.ok) {
        const QString directory = QFileInfo(m_sFileName).absolutePath();
        QFile diagnosis;
        const QString name = CfgXmlFile::CreateNumberedFile(
            diagnosis, directory + QStringLiteral("/Invalid_cfg_from_") + appKey + QLatin1Char('_'),
            QStringLiteral(".xml"), ZentOS::Get().GetTime());
        if (diagnosis.isOpen()) {
            diagnosis.write(bytes);
            diagnosis.write("<ErrorInfo>");
            diagnosis.write(QStringLiteral(" <LineNumber>%1</LineNumber>").arg(result.line).toUtf8());
            diagnosis.write(QStringLiteral(" <ColumnNumber>%1</ColumnNumber>").arg(result.column).toUtf8());
            diagnosis.write(QStringLiteral(" <Message>%1</Message>").arg(result.message).toUtf8());
            diagnosis.write("</ErrorInfo>");
        }
        _Q_Trace(QStringLiteral("Configuration of ") + appKey + QStringLiteral(" not merged; see ") + name,
                 __FILE__, __LINE__);
        return;
    }
    if (!Document() || appKey.isEmpty())
        return;
    QDomElement root = Document()->documentElement();
    const QDomElement incomingRoot = incoming->documentElement();
    for (QDomElement view = incomingRoot.firstChildElement(); !view.isNull();
         view = view.nextSiblingElement()) {
        const QDomElement app = view.firstChildElement(appKey);
        QDomElement targetView = root.firstChildElement(view.tagName());
        if (app.isNull() || targetView.isNull())
            continue;
        QDomElement targetApp = targetView.firstChildElement(appKey);
        if (targetApp.isNull())
            m_pData->lookup.Append(targetView, Document()->importNode(app, true));
        else
            MergeChildren(app, targetApp, m_pData->lookup);
    }
    m_pData->mergeDocument = std::move(incoming);
    m_pData->lookup.ForgetAll();
    m_pData->lookup.ForgetStamps();
}

// ---------------------------------------------------------------- user partitions

void CfgXml::DropActiveConfiguration()
{
    if (!s_addtionalSubkeys.empty() && s_addtionalSubkeys.front() == s_sLastConfiguration) {
        s_addtionalSubkeys.pop_front();
        ++s_partitionChanges;
    }
}

QDomElement CfgXml::UserElement()
{
    if (!Document())
        return QDomElement();
    return Document()->documentElement().firstChildElement(GetViewAsString(VIEW_User));
}

QDomElement CfgXml::LoginUserElement()
{
    if (s_sUserSubkey.isEmpty())
        return QDomElement();
    const QDomElement container = UserElement().firstChildElement(SUBKEY_CONTAINER);
    for (QDomElement child = container.firstChildElement(s_sUserSubkey); !child.isNull();
         child = child.nextSiblingElement(s_sUserSubkey)) {
        if (child.attribute(NODE_TYPE) == LOGIN_USER)
            return child;
    }
    return QDomElement();
}

void CfgXml::SetUserViewSubkey(const QString& subkey)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    DropActiveConfiguration();
    s_sLastConfiguration.clear();
    QString name = subkey;
    name.replace(QLatin1Char(' '), QLatin1Char('.'));
    // Element names must not start with a digit.
    if (!name.isEmpty() && name.at(0).isDigit())
        name.prepend(QLatin1Char('_'));
    s_sUserSubkey = name;
    ++s_partitionChanges;
    m_pData->lookup.ForgetAll();
    // The walk creates the user's partition when it is missing, as a copy of
    // the plain user view.
    if (Document())
        CfgXml(this, CfgCenter::GetAppName(), VIEW_User).GetNode(QString(), VIEW_User, false);
    const QString active = LoginUserElement().attribute(ACTIVE_USER);
    if (!active.isEmpty()) {
        s_addtionalSubkeys.push_front(active);
        ++s_partitionChanges;
        s_sLastConfiguration = active;
    }
}

void CfgXml::SetAdditionalUserViewSubkey(const std::list<QString>& subkeys)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    s_addtionalSubkeys = subkeys;
    ++s_partitionChanges;
    m_pData->lookup.ForgetAll();
    if (s_sUserSubkey.isEmpty() || subkeys.empty() || !Document())
        return;
    // The partitions are brought in line with the list: below the user's
    // element each entry is the partition inside the one before it. The walk
    // creates the missing ones; an element of an entry's name that is not
    // marked yet becomes a partition ("nodeType"="addSubKey"). Partitions the
    // list does not name are kept: they hold other named configurations.
    CfgXml(this, QString(), VIEW_User).GetNode(QString(), VIEW_User, false);
    QDomElement partition = LoginUserElement();
    for (const QString& subkey : s_addtionalSubkeys) {
        partition = m_pData->lookup.FirstChildElementNamed(partition, subkey);
        if (partition.isNull())
            break;
        m_pData->lookup.SetAttribute(partition, NODE_TYPE, ADD_SUB_KEY);
    }
}

std::list<QString> CfgXml::GetAdditionalUserViewSubkey()
{
    QMutexLocker locker(CfgCenter::GetMutex());
    return s_addtionalSubkeys;
}

// A configuration's name becomes part of an element name; one that cannot is
// refused before anything changes, so that the user's settings never go to
// a partition that cannot exist.
void CfgXml::CheckConfigurationName(const QString& name, const QString& operation)
{
    if (!XmlNames::IsElementName(UC_PREFIX + name))
        throw KVException(
            XmlNames::NotAnElementName(QStringLiteral("The configuration"), name, UC_PREFIX + name),
            SOURCE_FILE, CLASS_NAME, operation, __LINE__);
}

void CfgXml::SaveConfigurationName(const QString& name)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    CheckConfigurationName(name, QStringLiteral("SaveConfigurationName"));
    const QString key = UC_PREFIX + name;
    DropActiveConfiguration();
    s_addtionalSubkeys.push_front(key);
    ++s_partitionChanges;
    s_sLastConfiguration = key;
    QDomElement user = LoginUserElement();
    if (user.isNull())
        return;
    QDomElement configuration;
    for (QDomElement child = user.firstChildElement(key); !child.isNull();
         child = child.nextSiblingElement(key)) {
        if (child.attribute(NODE_TYPE) == ADD_SUB_KEY) {
            configuration = child;
            break;
        }
    }
    if (configuration.isNull()) {
        configuration = Document()->createElement(key);
        configuration.setAttribute(NODE_TYPE, ADD_SUB_KEY);
        m_pData->lookup.Append(user, configuration);
    }
    m_pData->lookup.SetAttribute(configuration, USER_CONFIGURATION, ACTIVE);
    m_pData->lookup.SetAttribute(user, ACTIVE_USER, key);
    m_pData->lookup.ForgetAll();
    SaveThroughCentre();
}

// Named configurations are saved the way the application saves: through the
// centre, so that its save components are asked first.
void CfgXml::SaveThroughCentre()
{
    try {
        CfgCenter::SaveDocument();
    } catch (const KVException& e) {
        _Q_Trace(QStringLiteral("User configuration not saved: ") + e.GetMessage(), __FILE__, __LINE__);
    }
}

void CfgXml::RenameConfigurationName(const QString& from, const QString& to)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    CheckConfigurationName(to, QStringLiteral("RenameConfigurationName"));
    QDomElement configuration = LoginUserElement().firstChildElement(UC_PREFIX + from);
    if (configuration.isNull())
        return;
    m_pData->lookup.Rename(configuration, UC_PREFIX + to);
    if (s_sLastConfiguration == UC_PREFIX + from) {
        DropActiveConfiguration();
        s_sLastConfiguration = UC_PREFIX + to;
        s_addtionalSubkeys.push_front(s_sLastConfiguration);
        ++s_partitionChanges;
    }
    m_pData->lookup.ForgetAll();
}

void CfgXml::DeleteConfigurationName(const QString& name)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const QString key = UC_PREFIX + name;
    QDomElement user = LoginUserElement();
    for (QDomElement child = user.firstChildElement(key); !child.isNull();
         child = child.nextSiblingElement(key)) {
        if (child.attribute(NODE_TYPE) != ADD_SUB_KEY)
            continue;
        m_pData->lookup.SetAttribute(child, USER_CONFIGURATION, DELETE_MARK);
        SaveThroughCentre();
        m_pData->lookup.Remove(child);
        break;
    }
    m_pData->lookup.ForgetAll();
}

void CfgXml::LoadConfigurationName(const QString& name)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const QString program = QCoreApplication::applicationFilePath().toUpper();
    for (const char* single : {"KESTRELGUI", "MARLINGUI", "OSPREYEDITOR"}) {
        if (program.contains(QLatin1String(single)))
            return;
    }
    const std::list<QString> names = GetUserConfigurations();
    if (std::find(names.begin(), names.end(), name) == names.end())
        return;
    const QString key = UC_PREFIX + name;
    DropActiveConfiguration();
    s_addtionalSubkeys.push_front(key);
    ++s_partitionChanges;
    s_sLastConfiguration = key;
    m_pData->lookup.ForgetAll();
    CfgCenter::ReLoadUserConfig();
    const QDomElement user = LoginUserElement();
    if (!user.isNull())
        m_pData->lookup.SetAttribute(user, ACTIVE_USER, key);
}

std::list<QString> CfgXml::GetUserConfigurations()
{
    QMutexLocker locker(CfgCenter::GetMutex());
    std::list<QString> names;
    const QDomElement user = LoginUserElement();
    for (QDomElement child = user.firstChildElement(); !child.isNull(); child = child.nextSiblingElement()) {
        if (child.attribute(NODE_TYPE) == ADD_SUB_KEY && child.attribute(USER_CONFIGURATION) == ACTIVE)
            names.push_back(child.tagName().mid(UC_PREFIX.size()));
    }
    return names;
}

std::list<QString> CfgXml::GetUsers()
{
    QMutexLocker locker(CfgCenter::GetMutex());
    std::list<QString> users;
    const QDomElement container = UserElement().firstChildElement(SUBKEY_CONTAINER);
    for (QDomElement child = container.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        if (child.attribute(NODE_TYPE) == LOGIN_USER)
            users.push_back(child.tagName());
    }
    return users;
}

void CfgXml::DeleteUser(const QString& name)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    QDomElement container = UserElement().firstChildElement(SUBKEY_CONTAINER);
    for (QDomElement child = container.firstChildElement(name); !child.isNull();
         child = child.nextSiblingElement(name)) {
        if (child.attribute(NODE_TYPE) == LOGIN_USER) {
            m_pData->lookup.Remove(child);
            m_pData->lookup.ForgetAll();
            return;
        }
    }
}

QString CfgXml::GetActiveUserConfiguraton()
{
    QMutexLocker locker(CfgCenter::GetMutex());
    QString active = LoginUserElement().attribute(ACTIVE_USER);
    if (active.startsWith(UC_PREFIX))
        active.remove(0, UC_PREFIX.size());
    return active;
}

bool CfgXml::UsingUserConfiguration() const
{
    QMutexLocker locker(CfgCenter::GetMutex());
    return !s_sLastConfiguration.isEmpty();
}
