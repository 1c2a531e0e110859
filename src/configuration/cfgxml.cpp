#include "configuration/cfgxml.h"

#include "configuration/cfgcenter.h"
#include "configuration/cfgxml_p.h"
#include "configuration/cfgxmlreader_p.h"
#include "configuration/cfgxmltree_p.h"
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

using Node = CfgXmlTree::Node;
constexpr Node NONE = CfgXmlTree::NONE;

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

// Throws when XML cannot carry the text of a value.
void CheckValueText(const QString& name, const QString& value, const QString& operation)
{
    const QString refusal = XmlNames::RefusedValueText(name, value);
    if (!refusal.isNull())
        throw KVException(refusal, SOURCE_FILE, CLASS_NAME, operation, __LINE__);
}

// A value has text as its first child, or no text but a "protected" flag (an
// empty value). `isProtected` is the tree's id of "protected".
bool IsValue(const CfgXmlTree& tree, Node element, CfgXmlTree::Name isProtected)
{
    return tree.IsText(tree.FirstChild(element)) || tree.HasAttribute(element, isProtected);
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

// A time stamp as QString::toLongLong reads it, 0 when it is none; plain
// digits are read without making a string.
qint64 StampValue(QStringView text)
{
    bool digits = !text.isEmpty() && text.size() <= 18; // 18 digits cannot overflow
    qint64 value = 0;
    for (int i = 0; digits && i < int(text.size()); ++i) {
        const char16_t c = text.at(i).unicode();
        digits = c >= u'0' && c <= u'9';
        if (digits)
            value = value * 10 + (c - u'0');
    }
    if (digits)
        return value;
    bool ok = false;
    const qint64 parsed = text.toString().toLongLong(&ok);
    return ok ? parsed : 0;
}

// The next time stamp: now, or one past the old one when the clock is behind it.
qint64 AdvancedStamp(QStringView old, qint32 now)
{
    const qint64 previous = StampValue(old);
    return now > previous ? qint64(now) : previous + 1;
}

// Time stamps of elements of Qt DOM documents, for the public helper.
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
    case CfgXml::TS_Advance:
        element.setAttribute(CfgXml::TIME_STAMP_KEY,
                             QString::number(AdvancedStamp(element.attribute(CfgXml::TIME_STAMP_KEY), now)));
        break;
    default:
        break;
    }
}

// The digits of `value` at the end of `buffer`; a stamp is written on every
// change, so it does not allocate.
QStringView FormatStamp(qint64 value, QChar (&buffer)[24])
{
    int at = 24;
    const bool negative = value < 0;
    quint64 rest = negative ? 0 - quint64(value) : quint64(value);
    do {
        buffer[--at] = QLatin1Char(char('0' + rest % 10));
        rest /= 10;
    } while (rest != 0);
    if (negative)
        buffer[--at] = QLatin1Char('-');
    return QStringView(buffer + at, 24 - at);
}

// The same for elements of our own documents; `stamp` is the name "ts".
void StampElement(CfgXmlTree& tree, Node element, int mode, qint32 now, CfgXmlTree::Name stamp)
{
    QChar buffer[24];
    switch (mode) {
    case CfgXml::TS_IfMissing:
        if (!tree.HasAttribute(element, stamp))
            tree.SetAttribute(element, stamp, FormatStamp(now, buffer));
        break;
    case CfgXml::TS_Remove:
        tree.RemoveAttribute(element, stamp);
        break;
    case CfgXml::TS_Advance:
        tree.SetAttribute(element, stamp,
                          FormatStamp(AdvancedStamp(tree.AttributeView(element, stamp), now), buffer));
        break;
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

template <typename Visit> void ForEachElement(const CfgXmlTree& tree, Node top, Visit visit)
{
    Node element = top;
    while (element != NONE) {
        visit(element);
        Node next = tree.FirstChildElement(element);
        for (Node up = element; next == NONE && up != top; up = tree.Parent(up))
            next = tree.NextSiblingElement(up);
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

ParseResult Parse(CfgXmlTree& document, const QByteArray& bytes)
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
void UseStandardDeclaration(CfgXmlTree& document, TreeModel& model)
{
    const Node first = document.FirstChild(document.Document());
    if (first == NONE || document.KindOf(first) != CfgXmlTree::ProcessingInstructionNode ||
        document.NodeName(first) != XML_DECLARATION_TARGET ||
        document.DataEquals(first, PARSED_DECLARATION) || document.DataEquals(first, NEW_DECLARATION))
        return;
    model.SetText(first, PARSED_DECLARATION);
}

QByteArray Serialise(const CfgXmlTree& document)
{
    return CfgXmlWriter::Serialise(document, CfgXml::XML_INDENT);
}

// A document made here: the declaration, and the document type "cfg" when
// asked for.
std::unique_ptr<CfgXmlTree> NewDocument(bool withType)
{
    auto document = std::make_unique<CfgXmlTree>();
    if (withType)
        document->SetDocumentTypeText(QStringLiteral("<!DOCTYPE cfg>\n"));
    document->Append(document->Document(),
                     document->CreateProcessingInstruction(XML_DECLARATION_TARGET, NEW_DECLARATION));
    return document;
}

// A template document of this file; they are all well formed.
std::unique_ptr<CfgXmlTree> TemplateDocument(const char* bytes)
{
    auto document = std::make_unique<CfgXmlTree>();
    Parse(*document, QByteArray(bytes));
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
    const CfgXmlTree* document = Document();
    if (!document)
        return s_Version;
    return document->Attribute(document->DocumentElement(), document->FindName(VERSION_TAG), DEFAULT_VERSION);
}

void CfgXml::SuppressSideFiles(bool suppress)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    m_bNoSideFiles = suppress;
}

CfgXmlTree* CfgXml::Document() const
{
    return m_pData->document.get();
}

// ---------------------------------------------------------------- time stamps

namespace {

void ApplyStamp(CfgXmlTree& tree, Node node, int mode, bool recursive, CfgXmlTree::Name stamp)
{
    if (!CfgXml::AreTimeStampsEnabled() || node == NONE)
        return;
    const Node element = tree.IsText(node) ? tree.Parent(node) : node;
    if (!tree.IsElement(element))
        return;
    const qint32 now = Now();
    if (!recursive) {
        StampElement(tree, element, mode, now, stamp);
        return;
    }
    ForEachElement(tree, element, [&](Node each) { StampElement(tree, each, mode, now, stamp); });
}

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
void CfgXml::Stamp(TreeNode node, int mode, bool recursive) const
{
    m_pData->lookup.Changed();
    ApplyStamp(*Document(), node, mode, recursive, m_pData->lookup.StampName());
}

void CfgXml::SetTimeStampsEnabled(bool enabled)
{
    s_timeStampsEnabled.store(enabled);
}

bool CfgXml::AreTimeStampsEnabled()
{
    return s_timeStampsEnabled.load();
}

void CfgXml::StampSubTree(TreeNode node) const
{
    if (!AreTimeStampsEnabled() || m_pData->lookup.IsStamped(node))
        return;
    ApplyStamp(*Document(), node, TS_IfMissing, true, m_pData->lookup.StampName());
    m_pData->lookup.MarkStamped(node);
}

void CfgXml::AdvanceStamp(TreeNode node) const
{
    Stamp(node, TS_Advance, true);
}

// ---------------------------------------------------------------- path walk

void CfgXml::FailWalk(const QString& problem, int line) const
{
    m_pData->Reset();
    throw KVException(m_sFileName + problem, SOURCE_FILE, CLASS_NAME, QStringLiteral("GetNode"), line);
}

CfgXml::TreeNode CfgXml::ViewElement(TreeNode root, View view) const
{
    const QString name = ViewName(view);
    Node node = m_pData->lookup.FirstChildNamed(root, name);
    if (node == NONE) {
        if (name != GetViewAsString(VIEW_User))
            FailWalk(QStringLiteral(" is invalid. Cfg has no sub elements."), __LINE__);
        node = Document()->CreateElement(name);
        m_pData->lookup.Append(root, node);
        StampSubTree(node);
    }
    if (!Document()->IsElement(node))
        FailWalk(QStringLiteral(" is invalid. Node in Cfg is not an element."), __LINE__);
    return name == GetViewAsString(VIEW_User) ? UserPartition(node) : node;
}

CfgXml::TreeNode CfgXml::ChildForWalk(TreeNode parent, QStringView name, bool create) const
{
    const Node node = m_pData->lookup.FirstChildNamed(parent, name);
    if (node != NONE) {
        if (Document()->IsElement(node))
            return node;
        if (create)
            FailWalk(QStringLiteral(" is invalid. Node in View element is not an element."), __LINE__);
        return NONE;
    }
    if (!create || !XmlNames::IsElementName(name.toString()))
        return NONE;
    const Node created = Document()->CreateElement(name.toString());
    m_pData->lookup.Append(parent, created);
    StampSubTree(created);
    return created;
}

// The partitions are created on first access, as the User view itself is.
CfgXml::TreeNode CfgXml::UserPartition(TreeNode user) const
{
    if (s_sUserSubkey.isEmpty() && s_addtionalSubkeys.empty())
        return user;
    CfgXmlTree& tree = *Document();
    Node base = ChildForWalk(user, SUBKEY_CONTAINER, true);
    if (!s_sUserSubkey.isEmpty() && base != NONE) {
        Node login = m_pData->lookup.FirstChildElementNamed(base, s_sUserSubkey);
        if (login == NONE && XmlNames::IsElementName(s_sUserSubkey)) {
            login = tree.CreateElement(s_sUserSubkey);
            tree.SetAttribute(login, NODE_TYPE, LOGIN_USER);
            if (s_addtionalSubkeys.empty()) {
                const CfgXmlTree::Name container = tree.FindName(SUBKEY_CONTAINER);
                for (Node child = tree.FirstChild(user); child != NONE; child = tree.NextSibling(child)) {
                    if (tree.NameOf(child) != container)
                        tree.Append(login, tree.Import(tree, child));
                }
            }
            m_pData->lookup.Append(base, login);
            m_pData->lookup.ForgetStamps();
            StampSubTree(login);
        }
        base = login;
    }
    for (const QString& subkey : s_addtionalSubkeys) {
        if (base == NONE)
            break;
        Node partition = m_pData->lookup.FirstChildElementNamed(base, subkey);
        if (partition == NONE && XmlNames::IsElementName(subkey)) {
            partition = tree.CreateElement(subkey);
            tree.SetAttribute(partition, NODE_TYPE, ADD_SUB_KEY);
            m_pData->lookup.Append(base, partition);
            StampSubTree(partition);
        }
        base = partition;
    }
    return base;
}

// The path is relative to this object's key; both are walked component by
// component, empty components (doubled separators) skipped.
CfgXml::TreeNode CfgXml::GetNode(QStringView path, View view, bool create) const
{
    const CfgXmlTree* document = Document();
    if (!document)
        return NONE;
    const Node root = document->DocumentElement();
    if (root == NONE || document->NodeName(root) != ROOT_TAG)
        FailWalk(QStringLiteral(" is invalid. Element Cfg not found."), __LINE__);
    Node node = ViewElement(root, view);
    for (const QString& part : m_keyParts) {
        if (node == NONE)
            return NONE;
        node = ChildForWalk(node, part, create);
    }
    for (qsizetype start = 0; start < path.size();) {
        qsizetype end = start;
        while (end < path.size() && path.at(end) != KEY_SEPARATOR)
            ++end;
        if (end > start) {
            if (node == NONE)
                return NONE;
            node = ChildForWalk(node, path.mid(start, end - start), create);
        }
        start = end + 1;
    }
    if (node == NONE)
        return NONE;
    StampSubTree(node);
    return node;
}

// ---------------------------------------------------------------- values

// A name may carry a relative path: "Sub\Name" is the value Name of Sub.
CfgXml::TreeNode CfgXml::FindValue(const QString& name, View view, bool create) const
{
    const int separator = name.lastIndexOf(KEY_SEPARATOR);
    const Node node = GetNode(QStringView(name).left(qMax(separator, 0)), view, create);
    if (node == NONE)
        return NONE;
    return m_pData->lookup.FirstChildElementNamed(node, QStringView(name).mid(separator + 1));
}

// FindValue without creating, remembering where the value was found.
namespace {

// Where an earlier read or write of the value `name` of the object `key`
// found it, while nothing has moved since; null when unknown.
const ReadCache::Entry* KnownValue(CfgXmlData& data, const QString& key, const QString& name, int view)
{
    return data.reads.Find(key, name, view, data.lookup.StructureChanges(),
                           s_partitionChanges.load(std::memory_order_relaxed));
}

void RememberValue(CfgXmlData& data, const QString& key, const QString& name, int view, Node node, Node value)
{
    data.reads.Insert(key, name, view, ReadCache::Entry{node, value}, data.lookup.StructureChanges(),
                      s_partitionChanges.load(std::memory_order_relaxed));
}

} // namespace

CfgXml::TreeNode CfgXml::FindValueToRead(const QString& name, View view) const
{
    CfgXmlData& data = *m_pData;
    if (!data.document)
        return NONE;
    const ReadCache::Entry* known = KnownValue(data, m_sKey, name, view);
    if (known) {
        if (known->node != NONE)
            StampSubTree(known->node);
        return known->value;
    }
    const int separator = name.lastIndexOf(KEY_SEPARATOR);
    ReadCache::Entry found;
    found.node = GetNode(QStringView(name).left(qMax(separator, 0)), view, false);
    if (!data.document->IsElement(found.node))
        found.node = NONE;
    if (found.node != NONE)
        found.value = data.lookup.FirstChildElementNamed(found.node, QStringView(name).mid(separator + 1));
    RememberValue(data, m_sKey, name, view, found.node, found.value);
    return found.value;
}

QString CfgXml::GetStringImpl(QString name, QString defaultValue, View view)
{
    const Node node = name.isEmpty() ? GetNode(QString(), view, false) : FindValueToRead(name, view);
    if (node == NONE)
        return defaultValue;
    const Node text = Document()->FirstTextChild(node);
    return text == NONE ? defaultValue : Document()->Data(text);
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
CfgXml::TreeNode CfgXml::SetStringImplPrivate(const QString& name, const QString& value, View view,
                                              const QString& operation)
{
    const ReadCache::Entry* known =
        name.isEmpty() || !Document() ? nullptr : KnownValue(*m_pData, m_sKey, name, view);
    if (known && known->value != NONE) {
        // A value found before: its path and name are elements of the
        // document, so its name passes the check.
        CheckValueText(name, value, operation);
        const ReadCache::Entry entry = *known;
        StampSubTree(entry.node);
        WriteValueText(entry.node, entry.value, value);
        return entry.value;
    }
    const int separator = name.lastIndexOf(KEY_SEPARATOR);
    const QStringView path = QStringView(name).left(qMax(separator, 0));
    const QStringView valueName = QStringView(name).mid(separator + 1);
    CheckValueName(name, operation);
    CheckValueText(name, value, operation);
    const Node node = GetNode(path, view, true);
    QString invalid;
    if (node == NONE) {
        // Only a name on the way there can keep an open document's node from
        // being created: this object's key or a user partition.
        if (Document() && FindInvalidNodeName(view, &invalid))
            throw KVException(XmlNames::NotAnElementName(QStringLiteral("The value"), name, invalid),
                              SOURCE_FILE, CLASS_NAME, operation, __LINE__);
        return NONE;
    }
    CfgXmlTree& tree = *Document();
    TreeModel& model = m_pData->lookup;
    if (valueName.isEmpty() && separator < 0) {
        const Node text = tree.FirstTextChild(node);
        if (text == NONE) {
            const Node created = tree.CreateText(value);
            model.Append(node, created);
            model.ForgetListings(node);
            if (tree.Parent(node) != NONE)
                model.ForgetListings(tree.Parent(node));
            AdvanceStamp(created);
        } else if (!tree.DataEquals(text, value)) {
            model.SetText(text, value);
            AdvanceStamp(text);
        }
        return tree.IsElement(node) ? node : NONE;
    }
    Node element = model.FirstChildElementNamed(node, valueName);
    if (element == NONE) {
        element = tree.CreateElement(valueName.toString());
        if (view != VIEW_User)
            tree.SetAttribute(element, PROTECTED, TRUE_TEXT);
        const Node text = tree.CreateText(value);
        tree.Append(element, text);
        model.Append(node, element);
        AdvanceStamp(text);
    } else {
        WriteValueText(node, element, value);
    }
    RememberValue(*m_pData, m_sKey, name, view, node, element);
    return element;
}

// The text of the existing value `element` below `node` becomes `value`.
void CfgXml::WriteValueText(TreeNode node, TreeNode element, const QString& value)
{
    CfgXmlTree& tree = *Document();
    TreeModel& model = m_pData->lookup;
    const Node text = tree.FirstTextChild(element);
    if (text == NONE) {
        const Node created = tree.CreateText(value);
        model.InsertBefore(element, created, tree.FirstChild(element));
        model.ForgetListings(element);
        model.ForgetListings(node);
        AdvanceStamp(created);
    } else if (!tree.DataEquals(text, value)) {
        model.SetText(text, value);
        AdvanceStamp(text);
    }
}

void CfgXml::SetValueAndType(const QString& name, const QString& value, const QString& type, View view,
                             const QString& operation)
{
    const Node element = SetStringImplPrivate(name, value, view, operation);
    if (element != NONE && !Document()->HasAttribute(element, m_pData->lookup.TypeName()))
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
    const Node element = FindValue(name, ResolveView(view), false);
    if (element == NONE)
        return TYPE_Undefined;
    const CfgXmlTree& tree = *Document();
    bool known = false;
    const AttributeType declared =
        TypeFromAttribute(tree.Attribute(element, m_pData->lookup.TypeName()), &known);
    if (known)
        return declared;
    const QString text = tree.TextOf(element);
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
    const Node element = FindValue(name, ResolveView(view), false);
    if (element == NONE)
        return;
    const bool known = type == TYPE_String || type == TYPE_Boolean || type == TYPE_Integer;
    m_pData->lookup.SetAttribute(element, TYPE, GetTypeAsString(known ? type : TYPE_String));
    AdvanceStamp(element);
}

bool CfgXml::IsProtected(QString name, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const Node element = FindValue(name, ResolveView(view), false);
    return element != NONE &&
           Document()->AttributeEquals(element, m_pData->lookup.ProtectedName(), TRUE_TEXT);
}

void CfgXml::SetProtected(QString name, bool isProtected, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    CheckValueName(name, QStringLiteral("SetProtected"));
    const Node element = FindValue(name, ResolveView(view), false);
    if (element == NONE)
        return;
    if (!Document()->HasAttribute(element, m_pData->lookup.ProtectedName()))
        m_pData->lookup.ForgetListings(Document()->Parent(element));
    m_pData->lookup.SetAttribute(element, PROTECTED, isProtected ? TRUE_TEXT : FALSE_TEXT);
}

bool CfgXml::HasAttribute(QString key, QString name, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const Node node = GetNode(key, ResolveView(view), false);
    return node != NONE && m_pData->lookup.FirstChildElementNamed(node, name) != NONE;
}

bool CfgXml::RemoveAttribute(QString name, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const Node element = FindValue(name, ResolveView(view), false);
    if (element == NONE)
        return false;
    m_pData->lookup.Remove(element);
    return true;
}

bool CfgXml::RenameAttribute(QString oldName, QString newName, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    view = ResolveView(view);
    const Node element = FindValue(oldName, view, false);
    if (element == NONE)
        return false;
    if (newName == Document()->NodeName(element))
        return true;
    const Node parent = Document()->Parent(element);
    if (!XmlNames::IsElementName(newName) || m_pData->lookup.FirstChildNamed(parent, newName) != NONE)
        return false;
    m_pData->lookup.Rename(element, newName);
    Stamp(element, TS_Advance, false);
    return true;
}

namespace {

// Values and sub-configurations in document order. Any child that is not an
// element (text, comment, processing instruction) ends what the
// sub-configuration listing can reach: enumerating past it fails.
TreeModel::Listing BuildListing(const CfgXmlTree& tree, Node node, TreeModel::ListingKind kind,
                                CfgXmlTree::Name isProtected)
{
    TreeModel::Listing listing;
    listing.built = true;
    for (Node child = tree.FirstChild(node); child != NONE; child = tree.NextSibling(child)) {
        if (!tree.IsElement(child)) {
            if (kind == TreeModel::SubConfigurations && listing.reachable < 0)
                listing.reachable = int(listing.items.size());
            continue;
        }
        if (IsValue(tree, child, isProtected) == (kind == TreeModel::Values))
            listing.items.push_back(child);
    }
    return listing;
}

const TreeModel::Listing& ChildListing(CfgXmlData& data, Node node, TreeModel::ListingKind kind)
{
    TreeModel::Listing* cached = data.lookup.ListingOf(node, kind);
    TreeModel::Listing& listing = cached ? *cached : data.scratch;
    if (!cached || !cached->built)
        listing = BuildListing(*data.document, node, kind, data.lookup.ProtectedName());
    return listing;
}

} // namespace

QString CfgXml::GetValueKeyAtImpl(int index, View view)
{
    const Node node = GetNode(QString(), view, false);
    if (node == NONE || index < 0)
        return QString();
    const TreeModel::Listing& values = ChildListing(*m_pData, node, TreeModel::Values);
    return index < int(values.items.size()) ? Document()->NodeName(values.items[size_t(index)]) : QString();
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
    if (!Document() || !Document()->IsElement(GetNode(key, view, false)))
        return nullptr;
    return new CfgXml(this, SplitKey(JoinKey(m_sKey, key)).join(KEY_SEPARATOR), view);
}

ICfg* CfgXml::CreateSubCfgAtImpl(int index, View view)
{
    const Node node = GetNode(QString(), view, false);
    if (node == NONE || index < 0)
        return nullptr;
    const TreeModel::Listing& subs = ChildListing(*m_pData, node, TreeModel::SubConfigurations);
    if (subs.reachable >= 0 && index >= subs.reachable)
        throw KVException(QStringLiteral("Not all childs are elements."), SOURCE_FILE, CLASS_NAME,
                          QStringLiteral("CreateSubCfgAtImpl"), __LINE__);
    if (index >= int(subs.items.size()))
        return nullptr;
    return CreateSubCfg(Document()->NodeName(subs.items[size_t(index)]), view);
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
    return GetNode(key, ResolveView(view), true) != NONE;
}

bool CfgXml::HasSubCfg(QString key, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    return Document() && Document()->IsElement(GetNode(key, ResolveView(view), false));
}

bool CfgXml::RemoveSubCfg(QString key, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    // An empty name removes this configuration's own element; a view element
    // (the document's root node) is not a sub-configuration of anything.
    if (SplitKey(JoinKey(m_sKey, key)).isEmpty())
        return false;
    const Node node = GetNode(key, ResolveView(view), false);
    if (node == NONE)
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
    const Node source = GetNode(from, view, false);
    if (source == NONE || !XmlNames::IsElementName(newName) || GetNode(to, view, false) != NONE)
        return false;
    const Node target = GetNode(toParts.join(KEY_SEPARATOR), view, true);
    if (target == NONE)
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
    TreeModel& model = m_pData->lookup;
    CfgXmlTree& tree = *Document();
    const CfgXmlTree::Name isProtected = model.ProtectedName();
    const CfgXmlTree::Name type = model.TypeName();
    const Node root = tree.DocumentElement();
    for (const View view : {VIEW_User, VIEW_Domain, VIEW_System, VIEW_Machine}) {
        const Node top = model.FirstChildElementNamed(root, GetViewAsString(view));
        if (top == NONE)
            continue;
        ForEachElement(tree, top, [&](Node element) {
            if (tree.HasAttribute(element, isProtected) && !tree.HasAttribute(element, type))
                model.SetAttribute(element, TYPE, TypeFromText(tree.TextOf(element)));
        });
    }
}

// ---------------------------------------------------------------- open

void CfgXml::OpenDocument(bool restoreAllowed)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const bool exists = CfgXmlFile::CompleteInterruptedRotation(m_sFileName);
    m_pData->Reset();
    m_pData->document = NewDocument(true);
    m_pData->lookup.Attach(m_pData->document.get());
    if (!exists) {
        if (GetSelectedView() == VIEW_User) {
            OpenUserOnlyDocument();
            return;
        }
        HandleMissingFile();
    }
    // A missing file may have been restored from its backup meanwhile.
    QString unreadable;
    const QByteArray bytes = ReadOrCreateFile(exists || QFile::exists(m_sFileName), &unreadable);
    if (!ParseMainFile(bytes, unreadable, restoreAllowed))
        return;
    const CfgXmlTree& tree = *Document();
    const Node root = tree.DocumentElement();
    if (root == NONE || tree.NodeName(root) != ROOT_TAG) {
        m_pData->Reset();
        throw KVException(m_sFileName + QStringLiteral(" is invalid. Element Cfg not found."), SOURCE_FILE,
                          CLASS_NAME, QStringLiteral("OpenDocument"), __LINE__);
    }
    s_Version = tree.Attribute(root, tree.FindName(VERSION_TAG), DEFAULT_VERSION);
    const Node machine = tree.FirstChildElement(root, tree.FindName(GetViewAsString(VIEW_Machine)));
    if (tree.FirstChildElement(machine, tree.FindName(QStringLiteral("Login"))) != NONE)
        s_isLoginInstalled = true;
    if (m_pData->lookup.FirstChildNamed(root, GetViewAsString(VIEW_System)) == NONE) {
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
    m_pData->document = TemplateDocument(USER_TEMPLATE);
    m_pData->lookup.Attach(m_pData->document.get());
    s_Version = GetVersion();
    const QString userFile = SideFileName(QStringLiteral("usr"));
    if (!userFile.isEmpty())
        CfgXmlFile::CompleteInterruptedRotation(userFile);
    if (!userFile.isEmpty() && QFile::exists(userFile)) {
        CfgXmlTree& tree = *Document();
        const Node user = ReadSideView(userFile, GetViewAsString(VIEW_User), USER_TEMPLATE);
        m_pData->lookup.Replace(
            user, tree.FirstChildElement(tree.DocumentElement(), tree.FindName(GetViewAsString(VIEW_User))));
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

// Too large or not a regular file: empty bytes and the reason in `unreadable`,
// reported as a parse error.
QByteArray CfgXml::ReadOrCreateFile(bool existed, QString* unreadable)
{
    QFile file;
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
    const QByteArray bytes = CfgXmlFile::ReadFile(m_sFileName, unreadable);
    if (*unreadable == QLatin1String("cannot be read")) {
        m_pData->Reset();
        // An existing file that cannot be read is not overwritten with the template.
        throw KVException((existed ? QStringLiteral("Can neither open nor create the file ")
                                   : QStringLiteral("Cannot open the file ")) +
                              m_sFileName + QStringLiteral("."),
                          SOURCE_FILE, CLASS_NAME, QStringLiteral("OpenDocument"), __LINE__);
    }
    return bytes;
}

// Returns false when the document was opened through the backup instead.
bool CfgXml::ParseMainFile(const QByteArray& bytes, const QString& unreadable, bool restoreAllowed)
{
    const ParseResult result =
        !unreadable.isEmpty() ? ParseResult{false, unreadable, 0, 0} : Parse(*m_pData->document, bytes);
    if (result.ok) {
        m_pData->lookup.Attach(m_pData->document.get()); // the parse replaced its names
        return true;
    }
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

void CfgXml::ValidateViews(TreeNode root)
{
    const auto fail = [this](const QString& problem, int line) {
        m_pData->Reset();
        throw KVException(m_sFileName + problem, SOURCE_FILE, CLASS_NAME, QStringLiteral("OpenDocument"),
                          line);
    };
    const CfgXmlTree& tree = *Document();
    if (!tree.IsElement(m_pData->lookup.FirstChildNamed(root, GetViewAsString(VIEW_System))))
        fail(QStringLiteral(" is invalid. Sub node System of element Cfg is not an element."), __LINE__);
    const Node domain = m_pData->lookup.FirstChildNamed(root, GetViewAsString(VIEW_Domain));
    if (domain == NONE)
        fail(QStringLiteral(" is invalid. Element Cfg has no sub node Domain."), __LINE__);
    if (!tree.IsElement(domain))
        fail(QStringLiteral(" is invalid. Sub node Domain of element Cfg is not an element."), __LINE__);
    const Node machine = m_pData->lookup.FirstChildNamed(root, GetViewAsString(VIEW_Machine));
    if (machine == NONE)
        fail(QStringLiteral(" is invalid. Element Cfg has no sub node Machine."), __LINE__);
    if (!tree.IsElement(machine))
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
    const bool exists = CfgXmlFile::CompleteInterruptedRotation(fileName);
    const CfgXmlTree& tree = *Document();
    const Node root = tree.DocumentElement();
    const Node existing = tree.FirstChildElement(root, tree.FindName(viewName));
    if (!exists && (existing != NONE || !UsesSideFiles()))
        return;
    // A missing side file stands for its template, whose view is empty.
    const Node view =
        exists ? ReadSideView(fileName, viewName, emptyTemplate) : Document()->CreateElement(viewName);
    if (existing == NONE)
        m_pData->lookup.Append(root, view);
    else
        m_pData->lookup.Replace(view, existing);
    m_pData->lookup.ForgetAll();
    m_pData->lookup.ForgetStamps();
}

// The view of a side file, copied into the document (not linked yet).
CfgXml::TreeNode CfgXml::ReadSideView(const QString& fileName, const QString& viewName,
                                      const char* emptyTemplate)
{
    CfgXmlTree side;
    QString problem;
    QByteArray bytes = CfgXmlFile::ReadFile(fileName, &problem);
    if (!QFile::exists(fileName)) {
        Parse(side, QByteArray(emptyTemplate));
    } else if (problem == QLatin1String("cannot be read")) {
        ErrorHandler::Instance().Message(QStringLiteral("Cannot open the file ") + fileName,
                                         ErrorHandler::MSG_Error, QStringLiteral("OpenDocument"), CLASS_NAME);
        Parse(side, QByteArray(emptyTemplate));
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
                Parse(side, QByteArray(emptyTemplate));
        }
    }
    const Node view = side.FirstChildElement(side.DocumentElement(), side.FindName(viewName));
    if (view == NONE)
        return Document()->CreateElement(viewName);
    return Document()->Import(side, view);
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
    if (const CfgXmlTree* document = Document()) {
        Node value = document->DocumentElement();
        for (const QString& name : {GetViewAsString(VIEW_Machine), QStringLiteral("Administration"),
                                    QStringLiteral("TalvoDataDir")})
            value = document->FirstChildElement(value, document->FindName(name));
        directory = document->TextOf(value);
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
    CfgXmlTree* document = Document();
    if (!document) {
        _Q_Trace(m_sFileName + QStringLiteral(" is not open; nothing saved"), __FILE__, __LINE__);
        return;
    }
    if (IsSavedUnchanged())
        return;
    // The views of the side files are left out of the main file; the
    // document itself stays as it is, so nothing known about it is lost.
    const std::list<SideView> sideViews = SideViews();
    std::vector<Node> leftOut;
    bool complete = true;
    for (const SideView& view : sideViews) {
        complete = WriteSideView(view, document->NodeName(view.element)) && complete;
        leftOut.push_back(view.element);
    }
    UseStandardDeclaration(*document, m_pData->lookup);
    QByteArray bytes = CfgXmlWriter::Serialise(*document, XML_INDENT, leftOut);
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

std::list<CfgXml::SideView> CfgXml::SideViews() const
{
    std::list<SideView> views;
    if (!UsesSideFiles())
        return views;
    const CfgXmlTree& tree = *Document();
    const Node root = tree.DocumentElement();
    for (const auto& side : {std::make_pair(VIEW_User, QStringLiteral("usr")),
                             std::make_pair(VIEW_Export, QStringLiteral("exp"))}) {
        const QString fileName = SideFileName(side.second);
        const Node view = tree.FirstChildElement(root, tree.FindName(GetViewAsString(side.first)));
        if (fileName.isEmpty() || view == NONE)
            continue;
        views.push_back({view, fileName});
    }
    return views;
}

bool CfgXml::WriteSideView(const SideView& view, const QString& viewName)
{
    const bool isExport = viewName == GetViewAsString(VIEW_Export);
    QByteArray bytes;
    if (Document()->HasChildren(view.element)) {
        const std::unique_ptr<CfgXmlTree> side = TemplateDocument(SIDE_SKELETON);
        side->Append(side->DocumentElement(), side->Import(*Document(), view.element));
        bytes = Serialise(*side);
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

// ---------------------------------------------------------------- exchange

QByteArray CfgXml::GetCfgAsStringFromApp(const QString& appKey)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const std::unique_ptr<CfgXmlTree> exchange = NewDocument(false);
    const Node exchangeRoot = exchange->CreateElement(ROOT_TAG);
    exchange->SetAttribute(exchangeRoot, VERSION_TAG, GetVersion());
    exchange->Append(exchange->Document(), exchangeRoot);
    if (const CfgXmlTree* document = Document(); document && !appKey.isEmpty()) {
        const Node root = document->DocumentElement();
        for (const View view : {VIEW_System, VIEW_Domain, VIEW_Machine, VIEW_User, VIEW_Export}) {
            const QString viewName = GetViewAsString(view);
            const Node app = document->FirstChildElement(
                document->FirstChildElement(root, document->FindName(viewName)), document->FindName(appKey));
            if (app == NONE)
                continue;
            const Node exchangeView = exchange->CreateElement(viewName);
            exchange->Append(exchangeView, exchange->Import(*document, app));
            exchange->Append(exchangeRoot, exchangeView);
        }
    }
    return Serialise(*exchange);
}

namespace {

// A document and an incoming one merged into it.
struct Merge
{
    const CfgXmlTree& source;
    CfgXmlTree& target;
    TreeModel& model;

    void Value(Node from, Node into)
    {
        const QString text = source.TextOf(from);
        const Node targetText = target.FirstTextChild(into);
        if (targetText == NONE) {
            const Node created = target.CreateText(text);
            model.InsertBefore(into, created, target.FirstChild(into));
            model.Changed();
            ApplyStamp(target, created, CfgXml::TS_Advance, false, model.StampName());
        } else if (!target.DataEquals(targetText, text)) {
            model.SetText(targetText, text);
            ApplyStamp(target, targetText, CfgXml::TS_Advance, false, model.StampName());
        }
        for (const QString& attribute : {CfgXml::TYPE, CfgXml::PROTECTED}) {
            const CfgXmlTree::Name name = source.FindName(attribute);
            if (source.HasAttribute(from, name))
                model.SetAttribute(into, attribute, source.Attribute(from, name));
        }
    }

    void Children(Node from, Node into)
    {
        std::vector<std::pair<Node, Node>> pending{{from, into}};
        while (!pending.empty()) {
            const auto [sourceParent, targetParent] = pending.back();
            pending.pop_back();
            for (Node child = source.FirstChildElement(sourceParent); child != NONE;
                 child = source.NextSiblingElement(child)) {
                const Node existing =
                    target.FirstChildElement(targetParent, target.FindName(source.NodeName(child)));
                if (existing == NONE)
                    model.Append(targetParent, target.Import(source, child));
                else if (IsValue(source, child, source.FindName(CfgXml::PROTECTED)))
                    Value(child, existing);
                else
                    pending.emplace_back(child, existing);
            }
        }
    }
};

} // namespace

void CfgXml::MergeCfgFromStringAndApp(const QByteArray& bytes, const QString& appKey)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    CfgXmlTree incoming;
    const ParseResult result = Parse(incoming, bytes);
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
    CfgXmlTree& tree = *Document();
    const Node root = tree.DocumentElement();
    Merge merge{incoming, tree, m_pData->lookup};
    for (Node view = incoming.FirstChildElement(incoming.DocumentElement()); view != NONE;
         view = incoming.NextSiblingElement(view)) {
        const Node app = incoming.FirstChildElement(view, incoming.FindName(appKey));
        const Node targetView = tree.FirstChildElement(root, tree.FindName(incoming.NodeName(view)));
        if (app == NONE || targetView == NONE)
            continue;
        const Node targetApp = tree.FirstChildElement(targetView, tree.FindName(appKey));
        if (targetApp == NONE)
            m_pData->lookup.Append(targetView, tree.Import(incoming, app));
        else
            merge.Children(app, targetApp);
    }
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

CfgXml::TreeNode CfgXml::UserElement()
{
    const CfgXmlTree* tree = Document();
    if (!tree)
        return NONE;
    return tree->FirstChildElement(tree->DocumentElement(), tree->FindName(GetViewAsString(VIEW_User)));
}

namespace {

// The child elements named `name` whose "nodeType" is `nodeType`, in order.
template <typename Visit>
void ForEachMarkedChild(const CfgXmlTree& tree, Node parent, const QString& name, const QString& nodeType,
                        Visit visit)
{
    const CfgXmlTree::Name id = tree.FindName(name);
    const CfgXmlTree::Name marker = tree.FindName(CfgXml::NODE_TYPE);
    for (Node child = tree.FirstChildElement(parent, id); child != NONE;
         child = tree.NextSiblingElement(child, id)) {
        if (tree.AttributeEquals(child, marker, nodeType) && !visit(child))
            return;
    }
}

Node FirstMarkedChild(const CfgXmlTree& tree, Node parent, const QString& name, const QString& nodeType)
{
    Node found = NONE;
    ForEachMarkedChild(tree, parent, name, nodeType, [&found](Node child) {
        found = child;
        return false;
    });
    return found;
}

} // namespace

CfgXml::TreeNode CfgXml::LoginUserElement()
{
    if (s_sUserSubkey.isEmpty() || !Document())
        return NONE;
    const CfgXmlTree& tree = *Document();
    const Node container = tree.FirstChildElement(UserElement(), tree.FindName(SUBKEY_CONTAINER));
    return FirstMarkedChild(tree, container, s_sUserSubkey, LOGIN_USER);
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
    const Node login = LoginUserElement();
    const QString active =
        login == NONE ? QString() : Document()->Attribute(login, Document()->FindName(ACTIVE_USER));
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
    Node partition = LoginUserElement();
    for (const QString& subkey : s_addtionalSubkeys) {
        partition = m_pData->lookup.FirstChildElementNamed(partition, subkey);
        if (partition == NONE)
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
    const Node user = LoginUserElement();
    if (user == NONE)
        return;
    CfgXmlTree& tree = *Document();
    Node configuration = FirstMarkedChild(tree, user, key, ADD_SUB_KEY);
    if (configuration == NONE) {
        configuration = tree.CreateElement(key);
        tree.SetAttribute(configuration, NODE_TYPE, ADD_SUB_KEY);
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
    const Node user = LoginUserElement();
    const Node configuration =
        user == NONE ? NONE : Document()->FirstChildElement(user, Document()->FindName(UC_PREFIX + from));
    if (configuration == NONE)
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
    const Node user = LoginUserElement();
    const Node configuration = user == NONE ? NONE : FirstMarkedChild(*Document(), user, key, ADD_SUB_KEY);
    if (configuration != NONE) {
        m_pData->lookup.SetAttribute(configuration, USER_CONFIGURATION, DELETE_MARK);
        SaveThroughCentre();
        m_pData->lookup.Remove(configuration);
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
    const Node user = LoginUserElement();
    if (user != NONE)
        m_pData->lookup.SetAttribute(user, ACTIVE_USER, key);
}

std::list<QString> CfgXml::GetUserConfigurations()
{
    QMutexLocker locker(CfgCenter::GetMutex());
    std::list<QString> names;
    const Node user = LoginUserElement();
    if (user == NONE)
        return names;
    const CfgXmlTree& tree = *Document();
    const CfgXmlTree::Name marker = tree.FindName(NODE_TYPE);
    const CfgXmlTree::Name state = tree.FindName(USER_CONFIGURATION);
    for (Node child = tree.FirstChildElement(user); child != NONE; child = tree.NextSiblingElement(child)) {
        if (tree.AttributeEquals(child, marker, ADD_SUB_KEY) && tree.AttributeEquals(child, state, ACTIVE))
            names.push_back(tree.NodeName(child).mid(UC_PREFIX.size()));
    }
    return names;
}

std::list<QString> CfgXml::GetUsers()
{
    QMutexLocker locker(CfgCenter::GetMutex());
    std::list<QString> users;
    const CfgXmlTree* tree = Document();
    if (!tree)
        return users;
    const Node container = tree->FirstChildElement(UserElement(), tree->FindName(SUBKEY_CONTAINER));
    const CfgXmlTree::Name marker = tree->FindName(NODE_TYPE);
    for (Node child = tree->FirstChildElement(container); child != NONE;
         child = tree->NextSiblingElement(child)) {
        if (tree->AttributeEquals(child, marker, LOGIN_USER))
            users.push_back(tree->NodeName(child));
    }
    return users;
}

void CfgXml::DeleteUser(const QString& name)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const CfgXmlTree* tree = Document();
    if (!tree)
        return;
    const Node container = tree->FirstChildElement(UserElement(), tree->FindName(SUBKEY_CONTAINER));
    const Node user = FirstMarkedChild(*tree, container, name, LOGIN_USER);
    if (user != NONE) {
        m_pData->lookup.Remove(user);
        m_pData->lookup.ForgetAll();
    }
}

QString CfgXml::GetActiveUserConfiguraton()
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const Node user = LoginUserElement();
    QString active =
        user == NONE ? QString() : Document()->Attribute(user, Document()->FindName(ACTIVE_USER));
    if (active.startsWith(UC_PREFIX))
        active.remove(0, UC_PREFIX.size());
    return active;
}

bool CfgXml::UsingUserConfiguration() const
{
    QMutexLocker locker(CfgCenter::GetMutex());
    return !s_sLastConfiguration.isEmpty();
}
