#include "configuration/cfgxml_p.h"

#include "configuration/cfgxml.h"

#include "configuration/cfgxmlreader_p.h"

#include "kvbase/errorhandler.h"
#include "kvbase/zentos.h"

#include <QDateTime>
#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <QXmlStreamReader>

#include <cerrno>
#include <cstring>

// ---------------------------------------------------------------- TreeModel

void TreeModel::Attach(CfgXmlTree* tree)
{
    m_tree = tree;
    if (!tree)
        return;
    m_stampName = tree->Intern(CfgXml::TIME_STAMP_KEY);
    m_typeName = tree->Intern(CfgXml::TYPE);
    m_protectedName = tree->Intern(CfgXml::PROTECTED);
}

TreeModel::ChildIndex* TreeModel::IndexOf(Node parent)
{
    auto it = m_children.find(parent);
    if (it != m_children.end())
        return &it.value();
    int count = 0;
    for (Node child = m_tree->FirstChild(parent); child != CfgXmlTree::NONE && count < INDEX_THRESHOLD;
         child = m_tree->NextSibling(child))
        ++count;
    if (count < INDEX_THRESHOLD)
        return nullptr;
    ChildIndex index;
    for (Node child = m_tree->FirstChild(parent); child != CfgXmlTree::NONE;
         child = m_tree->NextSibling(child)) {
        const CfgXmlTree::Name name = m_tree->NameOf(child);
        if (!index.firstByName.contains(name))
            index.firstByName.insert(name, child);
    }
    return &m_children.insert(parent, index).value();
}

TreeModel::Node TreeModel::FirstChildNamed(Node parent, QStringView name)
{
    if (parent == CfgXmlTree::NONE)
        return CfgXmlTree::NONE;
    const CfgXmlTree::Name id = m_tree->FindName(name);
    if (id == CfgXmlTree::NO_NAME)
        return CfgXmlTree::NONE;
    const auto indexed = m_children.constFind(parent);
    if (indexed != m_children.constEnd())
        return indexed->firstByName.value(id, CfgXmlTree::NONE);
    // Scanned while it looks small; a crowded parent gets its index.
    int count = 0;
    for (Node child = m_tree->FirstChild(parent); child != CfgXmlTree::NONE;
         child = m_tree->NextSibling(child)) {
        if (++count >= INDEX_THRESHOLD)
            return IndexOf(parent)->firstByName.value(id, CfgXmlTree::NONE);
        if (m_tree->NameOf(child) == id)
            return child;
    }
    return CfgXmlTree::NONE;
}

TreeModel::Node TreeModel::FirstChildElementNamed(Node parent, QStringView name)
{
    const Node first = FirstChildNamed(parent, name);
    if (first == CfgXmlTree::NONE || m_tree->IsElement(first))
        return first;
    // Only a processing instruction can share a tag's name; rare enough to scan.
    return m_tree->NextSiblingElement(first, m_tree->NameOf(first));
}

void TreeModel::Append(Node parent, Node child)
{
    ++m_changes;
    ++m_structureChanges;
    m_tree->Append(parent, child);
    auto it = m_children.find(parent);
    if (it == m_children.end())
        return;
    if (!it->firstByName.contains(m_tree->NameOf(child)))
        it->firstByName.insert(m_tree->NameOf(child), child);
    ForgetListings(parent);
}

void TreeModel::InsertBefore(Node parent, Node child, Node before)
{
    if (before == CfgXmlTree::NONE)
        return Append(parent, child);
    m_tree->InsertBefore(parent, child, before);
    ForgetChildren(parent);
}

void TreeModel::Remove(Node child)
{
    const Node parent = m_tree->Parent(child);
    if (parent == CfgXmlTree::NONE)
        return;
    m_tree->Unlink(child);
    ForgetChildren(parent);
}

void TreeModel::Replace(Node newChild, Node oldChild)
{
    const Node parent = m_tree->Parent(oldChild);
    if (parent == CfgXmlTree::NONE)
        return;
    m_tree->Replace(oldChild, newChild);
    ForgetChildren(parent);
}

void TreeModel::Rename(Node element, const QString& name)
{
    const CfgXmlTree::Name id = m_tree->Intern(name);
    if (m_tree->NameOf(element) == id)
        return;
    m_tree->Rename(element, id);
    const Node parent = m_tree->Parent(element);
    if (parent != CfgXmlTree::NONE)
        ForgetChildren(parent);
    else
        ++m_changes;
}

void TreeModel::SetAttribute(Node element, const QString& name, const QString& value)
{
    if (m_tree->SetAttribute(element, name, value))
        ++m_changes;
}

void TreeModel::SetText(Node text, const QString& value)
{
    if (m_tree->SetData(text, value))
        ++m_changes;
}

TreeModel::Listing* TreeModel::ListingOf(Node parent, ListingKind kind)
{
    ChildIndex* index = IndexOf(parent);
    return index ? &index->listings[kind] : nullptr;
}

void TreeModel::ForgetListings(Node parent)
{
    ++m_changes;
    ++m_structureChanges;
    auto it = m_children.find(parent);
    if (it == m_children.end())
        return;
    it->listings[Values] = Listing();
    it->listings[SubConfigurations] = Listing();
}

void TreeModel::ForgetChildren(Node parent)
{
    ++m_changes;
    ++m_structureChanges;
    m_children.remove(parent);
}

void TreeModel::ForgetAll()
{
    ++m_changes;
    ++m_structureChanges;
    m_children.clear();
}

void TreeModel::MarkStamped(Node node)
{
    ++m_changes;
    m_stamped.insert(node);
}

void TreeModel::ForgetStamps()
{
    ++m_changes;
    m_stamped.clear();
}

// ---------------------------------------------------------------- ReadCache

void ReadCache::Validate(quint64 structure, quint64 partitions)
{
    if (structure == m_structure && partitions == m_partitions)
        return;
    m_entries.clear();
    m_structure = structure;
    m_partitions = partitions;
}

const ReadCache::Entry* ReadCache::Find(const QString& key, const QString& name, int view, quint64 structure,
                                        quint64 partitions)
{
    Validate(structure, partitions);
    if (m_entries.isEmpty())
        return nullptr;
    const auto it = m_entries.constFind(Key{key, name, view});
    return it == m_entries.constEnd() ? nullptr : &it.value();
}

void ReadCache::Insert(const QString& key, const QString& name, int view, const Entry& entry,
                       quint64 structure, quint64 partitions)
{
    Validate(structure, partitions);
    m_entries.insert(Key{key, name, view}, entry);
}

void ReadCache::Clear()
{
    m_entries.clear();
}

// ---------------------------------------------------------------- CfgXmlFile

namespace {

const char* const SOURCE_FILE = "configuration/cfgxml";

void TraceFileProblem(const QString& what, const QFileDevice& file)
{
    _Q_Trace(what + QStringLiteral(": ") + file.errorString(), SOURCE_FILE, __LINE__);
}

qint64 FileSize(const QString& fileName)
{
    const QFileInfo info(fileName);
    return info.exists() ? info.size() : -1;
}

QString DirectoryOf(const QString& fileName)
{
    return QFileInfo(fileName).absolutePath();
}

bool Rename(const QString& from, const QString& to)
{
    QFile file(from);
    if (file.rename(to))
        return true;
    TraceFileProblem(QStringLiteral("Cannot rename ") + from + QStringLiteral(" to ") + to, file);
    return false;
}

void RemoveIfPresent(const QString& fileName)
{
    QFile file(fileName);
    if (file.exists() && !file.remove())
        TraceFileProblem(QStringLiteral("Cannot remove ") + fileName, file);
}

void TraceSystemProblem(const QString& what)
{
    const int error = errno;
    _Q_Trace(what + QStringLiteral(": ") + qt_error_string(error), SOURCE_FILE, __LINE__);
}

// An entry of that name, also a link whose target is missing.
bool EntryExists(const QString& fileName)
{
    const QFileInfo info(fileName);
    return info.exists() || info.isSymLink();
}

void CreateEmptyIfMissing(const QString& fileName)
{
    if (EntryExists(fileName))
        return;
    QFile file;
    if (!ZentOS::Get().CreateNewFile(file, fileName))
        TraceSystemProblem(QStringLiteral("Cannot create ") + fileName);
}

bool WriteSynced(QFile& file, const QString& fileName, const QByteArray& bytes)
{
    const bool written = file.write(bytes) == bytes.size() && file.flush();
    const bool synced = ZentOS::Get().SyncFile(file);
    if (!written)
        _Q_Trace(QStringLiteral("Cannot write ") + fileName + QStringLiteral(": ") + file.errorString(),
                 SOURCE_FILE, __LINE__);
    file.close();
    return written && synced;
}

QString CorruptName(const QString& fileName)
{
    const QDateTime now = QDateTime::fromSecsSinceEpoch(ZentOS::Get().GetTime(), Qt::UTC);
    const QString base =
        fileName + QStringLiteral(".corrupt.") + now.toString(QStringLiteral("yyyyMMdd_hhmmss"));
    // A second corrupt file within the same second must not replace the first.
    QString name = base;
    for (int n = 1; QFile::exists(name); ++n)
        name = base + QLatin1Char('_') + QString::number(n);
    return name;
}

} // namespace

CfgXmlFile::WriteResult CfgXmlFile::WriteRotated(const QString& fileName, const QByteArray& bytes)
{
    const QString temp = fileName + QStringLiteral(".temp");
    const QString bak = fileName + QStringLiteral(".bak");
    const QString bakTemp = fileName + QStringLiteral(".bak.temp");

    QThread::yieldCurrentThread();
    // Made afresh: an F.temp left there, or a link planted in its place, is
    // replaced, never written through.
    QFile tempFile;
    if (!ZentOS::Get().ReplaceWithNewFile(tempFile, temp))
        return WriteResult::TempNotOpened;
    // A save changes the document, not who owns it or who may read it.
    if (!ZentOS::Get().KeepModeAndOwner(tempFile, fileName))
        TraceSystemProblem(QStringLiteral("Cannot keep the mode and owner of ") + fileName);
    const bool complete = WriteSynced(tempFile, temp, bytes);
    QThread::yieldCurrentThread();
    if (!complete) {
        // F stays as it was; a partial F.temp is never renamed into place.
        RemoveIfPresent(temp);
        return WriteResult::Failed;
    }

    CreateEmptyIfMissing(bak);
    RemoveIfPresent(bakTemp);
    // Without F there is no previous document, and F.bak stays as it is.
    const bool hadPrevious = QFile::exists(fileName) && Rename(fileName, bakTemp);
    if (!Rename(temp, fileName))
        return WriteResult::Failed;
    if (hadPrevious) {
        RemoveIfPresent(bak);
        Rename(bakTemp, bak);
    }
    ZentOS::Get().SyncDirectory(DirectoryOf(fileName));
    return WriteResult::Written;
}

bool CfgXmlFile::CompleteInterruptedRotation(const QString& fileName)
{
    if (QFile::exists(fileName))
        return true;
    // F.temp was flushed to disk before F was renamed away, so it is complete
    // whenever F is missing; F.bak.temp is the document before it.
    for (const QString& candidate :
         {fileName + QStringLiteral(".temp"), fileName + QStringLiteral(".bak.temp")}) {
        if (FileSize(candidate) > 0 && Rename(candidate, fileName)) {
            _Q_Trace(fileName + QStringLiteral(" was missing after an interrupted save; completed from ") +
                         candidate,
                     SOURCE_FILE, __LINE__);
            ZentOS::Get().SyncDirectory(DirectoryOf(fileName));
            return true;
        }
    }
    return false;
}

bool CfgXmlFile::HasUsableBackup(const QString& fileName)
{
    return FileSize(fileName + QStringLiteral(".bak")) > 0;
}

bool CfgXmlFile::RestoreFromBackup(const QString& fileName)
{
    const QString bak = fileName + QStringLiteral(".bak");
    QString problem;
    const QByteArray bytes = ReadFile(bak, &problem);
    if (!problem.isEmpty() || !QFileInfo::exists(bak)) {
        _Q_Trace(QStringLiteral("No backup to restore for ") + fileName + QStringLiteral(": ") +
                     (problem.isEmpty() ? QStringLiteral("missing") : problem),
                 SOURCE_FILE, __LINE__);
        return false;
    }
    if (bytes.isEmpty()) {
        _Q_Trace(QStringLiteral("The backup of ") + fileName +
                     QStringLiteral(" is empty and was not restored"),
                 SOURCE_FILE, __LINE__);
        return false;
    }
    if (QFile::exists(fileName) && !Rename(fileName, CorruptName(fileName)))
        return false;
    // Whatever still has the name (a link to a missing file) is replaced, never written through.
    QFile file;
    if (!ZentOS::Get().ReplaceWithNewFile(file, fileName)) {
        TraceSystemProblem(QStringLiteral("Cannot restore ") + fileName);
        return false;
    }
    if (!ZentOS::Get().KeepModeAndOwner(file, bak))
        TraceSystemProblem(QStringLiteral("Cannot keep the mode and owner of ") + bak);
    const bool restored = WriteSynced(file, fileName, bytes);
    ZentOS::Get().SyncDirectory(DirectoryOf(fileName));
    return restored;
}

namespace {

struct GuardProblem
{
    QString message;
    int line = 0;
    int column = 0;
};

// Qt's DOM builds and frees its tree recursively and keeps every node at
// hundreds of bytes; the stream reader walks the bytes without building
// anything, so hostile documents are refused before the DOM sees them.
bool CheckGuards(const QByteArray& bytes, GuardProblem& problem)
{
    QXmlStreamReader reader(bytes);
    int depth = 0;
    int elements = 0;
    const auto fail = [&](const char* message) {
        problem.message = QString::fromLatin1(message);
        problem.line = int(reader.lineNumber());
        problem.column = int(reader.columnNumber());
        return false;
    };
    while (!reader.atEnd()) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        if (token == QXmlStreamReader::StartElement) {
            if (++depth > CfgXmlFile::MAX_NESTING)
                return fail("elements nested too deeply");
            if (++elements > CfgXmlFile::MAX_ELEMENTS)
                return fail("too many elements");
        }
        if (token == QXmlStreamReader::EndElement)
            --depth;
        // Configuration documents need no entities; declared ones can expand
        // into arbitrarily deep or large content.
        if (token == QXmlStreamReader::DTD &&
            (!reader.entityDeclarations().isEmpty() || reader.text().contains(QLatin1String("<!ENTITY"))))
            return fail("entity declarations are not allowed");
    }
    return true;
}

} // namespace

bool CfgXmlFile::Parse(CfgXmlTree& document, const QByteArray& bytes, QString* message, int* line,
                       int* column)
{
    GuardProblem problem;
    if (bytes.size() > MAX_FILE_SIZE) {
        problem.message = QStringLiteral("file too large");
    } else if (CfgXmlReader::ReadPlain(bytes, MAX_NESTING, document, MAX_ELEMENTS)) {
        // Plain documents within the limits are read by our own reader, which
        // checks the limits as it goes and declines document types with an
        // internal subset, the only place entities could be declared.
        return true;
    } else if ((IsShallow(bytes, MAX_NESTING) && bytes.count('<') <= MAX_ELEMENTS) ||
               CheckGuards(bytes, problem)) {
        // Qt's parser decides on everything else and words the errors. The
        // exact guard check runs only where the quick scans cannot vouch for
        // the document.
        QDomDocument parsed;
        if (!parsed.setContent(bytes, message, line, column))
            return false;
        CfgXmlTree::FromDom(parsed, document);
        return true;
    }
    if (message)
        *message = problem.message;
    if (line)
        *line = problem.line;
    if (column)
        *column = problem.column;
    return false;
}

QByteArray CfgXmlFile::ReadFile(const QString& fileName, QString* problem)
{
    QByteArray bytes;
    QString text;
    switch (ZentOS::Get().ReadRegularFile(fileName, MAX_FILE_SIZE, bytes)) {
    case ZentOS::ReadResult::Read:
    case ZentOS::ReadResult::Missing:
        break;
    case ZentOS::ReadResult::TooLarge:
        text = QStringLiteral("file too large");
        break;
    case ZentOS::ReadResult::NotRegular:
        text = QStringLiteral("not a regular file");
        break;
    case ZentOS::ReadResult::Failed:
        text = QStringLiteral("cannot be read");
        break;
    }
    if (problem)
        *problem = text;
    return bytes;
}

QString CfgXmlFile::CreateNumberedFile(QFile& file, const QString& prefix, const QString& suffix,
                                       qint64 first)
{
    QString name;
    for (qint64 number = first;; ++number) {
        name = prefix + QString::number(number) + suffix;
        if (EntryExists(name))
            continue;
        if (ZentOS::Get().CreateNewFile(file, name) || !EntryExists(name))
            return name; // made, or failed for another reason than a taken name
    }
}

namespace {

// Only encodings in which '<', '>', quotes and '/' are the ASCII bytes.
bool HasAsciiCompatibleDeclaration(const QByteArray& bytes, int start)
{
    if (!bytes.mid(start, 5).startsWith("<?xml"))
        return true;
    const int end = bytes.indexOf("?>", start);
    if (end < 0)
        return false;
    const QByteArray declaration = bytes.mid(start, end - start).toLower();
    const int encoding = declaration.indexOf("encoding");
    if (encoding < 0)
        return true;
    const QByteArray rest = declaration.mid(encoding + 8).replace(' ', "").replace('\'', '"');
    return rest.startsWith("=\"utf-8\"") || rest.startsWith("=\"utf8\"") ||
           rest.startsWith("=\"us-ascii\"") || rest.startsWith("=\"iso-8859-1\"");
}

// The end of the markup that starts at `from`; -1 when the data ends first.
int SkipPast(const QByteArray& bytes, int from, const char* terminator)
{
    const int end = bytes.indexOf(terminator, from);
    return end < 0 ? -1 : end + int(qstrlen(terminator));
}

// The position after the tag that starts at `from`, honouring quoted
// attribute values; -1 when the data ends first. `selfClosing` tells "/>".
int SkipTag(const QByteArray& bytes, int from, bool* selfClosing)
{
    const char* data = bytes.constData();
    const int size = bytes.size();
    for (int i = from; i < size; ++i) {
        const char c = data[i];
        if (c == '"' || c == '\'') {
            const void* close = memchr(data + i + 1, c, size_t(size - i - 1));
            if (!close)
                return -1;
            i = int(static_cast<const char*>(close) - data);
        } else if (c == '>') {
            *selfClosing = data[i - 1] == '/';
            return i + 1;
        }
    }
    return -1;
}

bool StartsAt(const QByteArray& bytes, int at, const char* text)
{
    const int length = int(qstrlen(text));
    return bytes.size() - at >= length && memcmp(bytes.constData() + at, text, size_t(length)) == 0;
}

// A document type without an internal subset cannot declare entities. One
// with brackets or quoted identifiers (where a '>' might hide) gets the exact
// check.
bool HasOnlyPlainDocumentTypes(const QByteArray& bytes)
{
    for (int at = bytes.indexOf("<!DOCTYPE"); at >= 0; at = bytes.indexOf("<!DOCTYPE", at + 1)) {
        const int end = bytes.indexOf('>', at);
        if (end < 0)
            return false;
        for (int i = at; i < end; ++i) {
            const char c = bytes.at(i);
            if (c == '[' || c == '"' || c == '\'')
                return false;
        }
    }
    return true;
}

} // namespace

bool CfgXmlFile::IsShallow(const QByteArray& bytes, int limit)
{
    const int start = bytes.startsWith("\xEF\xBB\xBF") ? 3 : 0;
    if (bytes.left(4).contains('\0') || !HasOnlyPlainDocumentTypes(bytes) ||
        !HasAsciiCompatibleDeclaration(bytes, start))
        return false;
    int depth = 0;
    int i = start;
    const char* data = bytes.constData();
    while (i >= 0 && i < bytes.size()) {
        const void* open = memchr(data + i, '<', size_t(bytes.size() - i));
        if (!open)
            break;
        i = int(static_cast<const char*>(open) - data);
        const char next = i + 1 < bytes.size() ? data[i + 1] : '\0';
        if (StartsAt(bytes, i, "<!--")) {
            i = SkipPast(bytes, i + 4, "-->");
        } else if (StartsAt(bytes, i, "<![CDATA[")) {
            i = SkipPast(bytes, i + 9, "]]>");
        } else if (next == '?') {
            i = SkipPast(bytes, i + 2, "?>");
        } else if (next == '!') {
            i = SkipPast(bytes, i + 2, ">");
        } else if (next == '/') {
            // Stray end tags must not hide depth that follows them.
            depth = qMax(0, depth - 1);
            i = SkipPast(bytes, i + 2, ">");
        } else {
            bool selfClosing = false;
            i = SkipTag(bytes, i + 1, &selfClosing);
            if (!selfClosing && ++depth > limit)
                return false;
        }
    }
    return true;
}

QByteArray CfgXmlFile::NormaliseLineEnds(const QByteArray& bytes)
{
    QByteArray result;
    result.reserve(bytes.size() + bytes.size() / 150);
    for (const char c : bytes) {
        const bool afterCr = !result.isEmpty() && result.back() == '\r';
        if (c == '\r' && afterCr)
            continue;
        if (c == '\n' && !afterCr)
            result.append('\r');
        result.append(c);
    }
    return result;
}
