#ifndef CONFIGURATION_CFGXML_P_H
#define CONFIGURATION_CFGXML_P_H

#include "configuration/cfgxmltree_p.h"

#include <QByteArray>
#include <QFile>
#include <QHash>
#include <QSet>
#include <QString>
#include <memory>
#include <vector>

/// The model of one in-memory document: every edit of the document goes
/// through it, and it keeps the lookup structures that let reads stay fast on
/// nodes with many children.
///
/// Edits are counted here, where they happen, so that a save can trust an
/// unchanged count without serialising: no caller has to remember to report
/// a change. Nodes not yet in the document may be built freely; attaching
/// them is the counted edit.
///
/// The child index maps a parent to the first child of each node name; it is
/// kept up to date for appended children and dropped for a parent whose
/// children are removed, renamed or moved. The stamped set remembers nodes
/// whose whole sub-tree is known to carry time stamps, so that the stamping of
/// every walk does not visit the sub-tree again. Nodes of a tree are never
/// reused, so an entry can never come to describe another node.
class TreeModel
{
public:
    using Node = CfgXmlTree::Node;

    /// The tree the model edits; null while no document is open.
    void Attach(CfgXmlTree* tree);

    /// The names every read and write asks for, looked up once per tree:
    /// "ts", "type" and "protected".
    CfgXmlTree::Name StampName() const { return m_stampName; }
    CfgXmlTree::Name TypeName() const { return m_typeName; }
    CfgXmlTree::Name ProtectedName() const { return m_protectedName; }

    /// The first child of `parent` whose node name is `name`; NONE when none.
    Node FirstChildNamed(Node parent, QStringView name);
    /// The first child element of `parent` with tag `name`; NONE when none.
    Node FirstChildElementNamed(Node parent, QStringView name);
    /// Appends the unlinked `child` to `parent` and records it.
    void Append(Node parent, Node child);
    /// Inserts `child` before `before` (at the end when NONE).
    void InsertBefore(Node parent, Node child, Node before);
    /// Removes `child` from its parent.
    void Remove(Node child);
    /// Puts the unlinked `newChild` in the place of `oldChild`.
    void Replace(Node newChild, Node oldChild);
    /// Gives `element` another tag name.
    void Rename(Node element, const QString& name);
    /// Sets an attribute; an equal value is no change.
    void SetAttribute(Node element, const QString& name, const QString& value);
    /// Sets the data of a text node; an equal text is no change.
    void SetText(Node text, const QString& value);
    /// Forgets the listings of `parent`: a child turned from value to
    /// sub-configuration or back.
    void ForgetListings(Node parent);
    /// Forgets what is known about the children of `parent`.
    void ForgetChildren(Node parent);
    /// Forgets everything (document replaced, sub-trees grafted or moved).
    void ForgetAll();

    /// The children of one kind in document order. `reachable` is how many of
    /// them come before the first child that may not be there (-1: all).
    struct Listing
    {
        bool built = false;
        std::vector<Node> items;
        int reachable = -1;
    };
    enum ListingKind
    {
        Values = 0,
        SubConfigurations = 1
    };
    /// The cached listing of a crowded parent, built or not; null for small
    /// parents, which are cheap to scan. Dropped whenever the parent's children
    /// change or a child changes between value and sub-configuration.
    Listing* ListingOf(Node parent, ListingKind kind);

    /// Counts changes of the document: every append, every forgetting (which
    /// follows removals, renames and moves), every stamping and every change
    /// the owner reports. Equal counts mean an unchanged document.
    quint64 Changes() const { return m_changes; }
    void Changed() { ++m_changes; }
    /// Counts changes that may move a node to another path or put another
    /// node on a path: appends, removals, renames, moves, replacements, and a
    /// child turning between value and sub-configuration.
    quint64 StructureChanges() const { return m_structureChanges; }

    bool IsStamped(Node node) const { return m_stamped.contains(node); }
    void MarkStamped(Node node);
    /// Unstamped nodes may have entered a sub-tree.
    void ForgetStamps();

private:
    struct ChildIndex
    {
        QHash<CfgXmlTree::Name, Node> firstByName;
        Listing listings[2];
    };
    // Small parents are scanned; an index pays off only on crowded nodes.
    static constexpr int INDEX_THRESHOLD = 16;

    ChildIndex* IndexOf(Node parent);

    CfgXmlTree* m_tree = nullptr;
    CfgXmlTree::Name m_stampName = CfgXmlTree::NO_NAME;
    CfgXmlTree::Name m_typeName = CfgXmlTree::NO_NAME;
    CfgXmlTree::Name m_protectedName = CfgXmlTree::NO_NAME;
    QHash<Node, ChildIndex> m_children;
    QSet<Node> m_stamped;
    quint64 m_changes = 0;
    quint64 m_structureChanges = 0;
};

/// Where reads found their values: the node a value's path leads to and the
/// value element below it (null handles when missing), by the reading
/// object's key, the value's name and the view. An entry is trusted only
/// while neither the document's structure nor the user partitions changed
/// since it was recorded.
class ReadCache
{
public:
    struct Entry
    {
        CfgXmlTree::Node node = CfgXmlTree::NONE;
        CfgXmlTree::Node value = CfgXmlTree::NONE;
    };

    /// The entry for the read, or null; drops every entry first when the
    /// structure or the partitions changed.
    const Entry* Find(const QString& key, const QString& name, int view, quint64 structure,
                      quint64 partitions);
    void Insert(const QString& key, const QString& name, int view, const Entry& entry, quint64 structure,
                quint64 partitions);
    void Clear();

private:
    struct Key
    {
        QString key;
        QString name;
        int view;
        bool operator==(const Key& other) const
        {
            return view == other.view && name == other.name && key == other.key;
        }
    };
    friend uint qHash(const Key& key, uint seed)
    {
        return qHash(key.name, seed) ^ qHash(key.key, seed) ^ uint(key.view);
    }
    void Validate(quint64 structure, quint64 partitions);

    QHash<Key, Entry> m_entries;
    quint64 m_structure = 0;
    quint64 m_partitions = 0;
};

/// The document that a root CfgXml and its sub-configuration objects share.
/// Closing the root empties it, so sub-configuration objects that outlive the
/// open document find no document instead of a dangling one.
struct CfgXmlData
{
    std::unique_ptr<CfgXmlTree> document;
    TreeModel lookup;
    ReadCache reads;
    /// The listing of a small parent, built for one call.
    TreeModel::Listing scratch;

    /// What the last complete save left behind. While the document has not
    /// changed and nobody else wrote since, saving again would find bytes
    /// equal to the last written ones, so it need not serialise at all.
    struct SavedState
    {
        bool valid = false;
        quint64 changes = 0;
        quint64 untrackedEdits = 0;
        int usage = 0;
        bool noSideFiles = false;
        QString fileName;
        QString exportFileName;
        QByteArray main;
        QByteArray user;
        QByteArray exportView;
    } saved;

    void Reset()
    {
        document.reset();
        lookup.Attach(nullptr);
        lookup.ForgetAll();
        lookup.ForgetStamps();
        reads.Clear();
        scratch = TreeModel::Listing();
        saved = SavedState();
    }
};

/// File operations of the configuration files: the crash-safe rotation and
/// the helpers of open and recovery.
namespace CfgXmlFile {

enum class WriteResult
{
    Written,
    TempNotOpened,
    Failed
};

/// Writes `bytes` to `fileName` through the rotation ".temp", ".bak",
/// ".bak.temp". TempNotOpened is for the caller to report; other failures are
/// traced and leave the previous file in place.
WriteResult WriteRotated(const QString& fileName, const QByteArray& bytes);

/// Completes a rotation that a crash interrupted while the file was missing:
/// the newest complete file of ".temp" and ".bak.temp" becomes the file.
/// Returns whether the file is there afterwards.
bool CompleteInterruptedRotation(const QString& fileName);

/// Sets `fileName` aside as fileName + ".corrupt." + UTC time stamp and
/// writes the bytes of its ".bak" in its place. An empty or missing backup
/// restores nothing. Returns whether the backup was restored.
bool RestoreFromBackup(const QString& fileName);

/// True when fileName + ".bak" exists and is not empty.
bool HasUsableBackup(const QString& fileName);

/// Documents larger than this are refused before they are read.
constexpr qint64 MAX_FILE_SIZE = qint64(256) * 1024 * 1024;

/// Deeper nesting only comes from damaged or hostile files.
constexpr int MAX_NESTING = 1000;
/// More elements than this would take gigabytes as a tree (hundreds of bytes each).
constexpr int MAX_ELEMENTS = 1000000;

/// Parses `bytes` into `document` with the guards every configuration
/// document gets, whichever code reads it: size, nesting depth, number of
/// elements, no entity declarations. Plain documents are read by our own
/// reader; Qt's parser decides on every other one and words the errors. On
/// failure the message, line and column.
bool Parse(CfgXmlTree& document, const QByteArray& bytes, QString* message, int* line, int* column);

/// Reads a configuration file: a regular file of at most MAX_FILE_SIZE bytes.
/// Empty `problem` when read; otherwise what keeps it from being read
/// ("file too large", "not a regular file", "cannot be read"). A missing
/// file reads as empty.
QByteArray ReadFile(const QString& fileName, QString* problem);

/// Creates a new file `prefix` + number + `suffix` for writing, counting up
/// from `first` past every name already taken (links included); returns the
/// name, and `file` is open on it unless it could not be made.
QString CreateNumberedFile(QFile& file, const QString& prefix, const QString& suffix, qint64 first);

/// True when `bytes` certainly nest elements no deeper than `limit`. A quick
/// scan of plain UTF-8 documents without a document type; false for anything
/// it cannot vouch for (other encodings, document types, deeper nesting).
bool IsShallow(const QByteArray& bytes, int limit);

/// The line ends of usages 1 and 3: every LF gets a CR before it and runs
/// of CR collapse to one.
QByteArray NormaliseLineEnds(const QByteArray& bytes);

} // namespace CfgXmlFile

#endif
