#ifndef CONFIGURATION_CFGXMLTREE_P_H
#define CONFIGURATION_CFGXMLTREE_P_H

#include <QString>
#include <QStringView>
#include <QtGlobal>
#include <cstdlib>
#include <utility>
#include <vector>

class QDomDocument;
class QDomNode;

/// A configuration document in memory, made to be cheap to build, walk and
/// keep: nodes live in one array and refer to each other by index, names are
/// interned once per document, and character data (texts, attribute values)
/// sits in one pool of UTF-16 code units. A value with its time stamp and
/// type costs about 200 bytes where Qt's DOM spends about 1.7 KiB, and
/// reading a file is little more than copying its characters.
///
/// The tree holds what Qt's DOM holds for the same bytes (elements with
/// attributes, text, CDATA sections, comments, processing instructions and
/// the document type), so that written back it gives the same bytes.
///
/// Node indexes stay valid for the life of the tree: a removed node is only
/// unlinked, never reused, so an index kept in a cache can never come to
/// name another node.
class CfgXmlTree
{
public:
    using Node = quint32;
    using Name = quint32;
    static constexpr Node NONE = 0xFFFFFFFFu;
    static constexpr Name NO_NAME = 0xFFFFFFFFu;

    enum Kind : quint8
    {
        DocumentNode,
        ElementNode,
        TextNode,
        CDataNode,
        CommentNode,
        ProcessingInstructionNode,
        /// Any other node Qt's parser may hand over, kept as the exact text
        /// Qt writes for it (it does not depend on the indentation).
        VerbatimNode
    };

    /// An empty document: the document node alone.
    CfgXmlTree();

    Node Document() const { return 0; }
    /// The first element child of the document node; NONE when none.
    Node DocumentElement() const;

    // ------------------------------------------------------------ structure
    Kind KindOf(Node node) const { return m_nodes[node].kind; }
    bool IsElement(Node node) const { return node != NONE && m_nodes[node].kind == ElementNode; }
    /// Text and CDATA sections, as QDomNode::isText counts them.
    bool IsText(Node node) const
    {
        return node != NONE && (m_nodes[node].kind == TextNode || m_nodes[node].kind == CDataNode);
    }
    Node Parent(Node node) const { return m_nodes[node].parent; }
    Node FirstChild(Node node) const { return m_nodes[node].first; }
    Node LastChild(Node node) const;
    Node NextSibling(Node node) const { return m_nodes[node].next; }
    Node PreviousSibling(Node node) const;
    bool HasChildren(Node node) const { return m_nodes[node].first != NONE; }
    /// The first child element named `name`; NONE when none.
    Node FirstChildElement(Node parent, Name name) const;
    Node FirstChildElement(Node parent) const;
    Node NextSiblingElement(Node node) const;
    Node NextSiblingElement(Node node, Name name) const;
    /// The first text or CDATA child; NONE when none.
    Node FirstTextChild(Node node) const;

    // ------------------------------------------------------------ names
    /// The id of `name`, NO_NAME when it was never interned (then no node or
    /// attribute of this tree is called so).
    Name FindName(QStringView name) const;
    Name Intern(QStringView name);
    Name Intern(const char* latin1, int length);
    const QString& NameText(Name name) const { return m_names[name]; }
    /// The node's name as QDomNode::nodeName gives it: the tag of an
    /// element, the target of a processing instruction, "#text" and the like.
    Name NameOf(Node node) const { return m_nodes[node].name; }
    const QString& NodeName(Node node) const { return m_names[m_nodes[node].name]; }

    // ------------------------------------------------------------ character data
    /// The data of a text, CDATA section, comment or processing instruction
    /// (for a verbatim node, its text).
    QString Data(Node node) const;
    bool DataEquals(Node node, QStringView text) const;
    /// Returns false when the data was already `text`.
    bool SetData(Node node, QStringView text);
    /// The text of the first text child, a null string when none.
    QString TextOf(Node element) const;

    // ------------------------------------------------------------ attributes
    bool HasAttribute(Node element, Name name) const;
    QString Attribute(Node element, Name name, const QString& defaultValue = QString()) const;
    /// The value of an attribute without copying it; empty when missing.
    QStringView AttributeView(Node element, Name name) const;
    bool AttributeEquals(Node element, Name name, QStringView value) const;
    /// Returns false when the attribute already had that value.
    bool SetAttribute(Node element, Name name, QStringView value);
    bool SetAttribute(Node element, const QString& name, QStringView value)
    {
        return SetAttribute(element, Intern(name), value);
    }
    /// Returns false when there was no such attribute.
    bool RemoveAttribute(Node element, Name name);
    /// The attributes of an element, by index, in no particular order.
    struct AttributeRef
    {
        Name name;
        quint32 offset;
        quint32 length;
    };
    void Attributes(Node element, std::vector<AttributeRef>& out) const;
    const QChar* Chars(quint32 offset) const
    {
        return reinterpret_cast<const QChar*>(m_pool.data() + offset);
    }

    // ------------------------------------------------------------ building and editing
    Node CreateElement(Name name);
    Node CreateElement(const QString& name) { return CreateElement(Intern(name)); }
    Node CreateText(const QString& text);
    Node CreateComment(const QString& text);
    Node CreateCData(const QString& text);
    Node CreateProcessingInstruction(const QString& target, const QString& data);
    Node CreateVerbatim(const QString& text);
    /// Appends `child`, which must not be linked anywhere.
    void Append(Node parent, Node child);
    /// Inserts `child` before `before`, at the end when `before` is NONE.
    void InsertBefore(Node parent, Node child, Node before);
    /// Takes `node` out of its parent; it can be linked again later.
    void Unlink(Node node);
    /// Puts the unlinked `replacement` in the place of `node`.
    void Replace(Node node, Node replacement);
    void Rename(Node element, Name name) { m_nodes[element].name = name; }
    /// A deep copy of `node` of `source` (which may be this tree), unlinked.
    Node Import(const CfgXmlTree& source, Node node);

    /// What Qt writes for the document type ("<!DOCTYPE cfg>\n"), empty for none.
    const QString& DocumentTypeText() const { return m_documentType; }
    void SetDocumentTypeText(const QString& text) { m_documentType = text; }

    /// The tree of a document Qt's parser read: the reader of our own takes
    /// plain documents only, Qt's parser decides on the rest.
    static void FromDom(const QDomDocument& document, CfgXmlTree& tree);

    /// Room for a document of `bytes` bytes with `tags` tags, so that
    /// reading it does not move the arrays.
    void Reserve(qint64 bytes, int tags);

    // For the reader: character data appended to the pool directly.
    quint32 PoolSize() const { return quint32(m_pool.size()); }
    /// Room for `count` more units at the end of the pool, to be written.
    char16_t* GrowPool(int count) { return m_pool.Grow(size_t(count)); }
    /// Gives back what the pool grew by since it had `size` units.
    void ShrinkPool(quint32 size) { m_pool.Shrink(size); }
    void AppendUtf16(const QChar* text, int length);
    /// A text node over the pool range [offset, PoolSize()).
    Node CreateTextFromPool(Kind kind, quint32 offset);
    /// Sets an attribute to the pool range [offset, PoolSize()); a repeated
    /// name keeps the later value.
    void SetAttributeFromPool(Node element, Name name, quint32 offset);

private:
    struct NodeData
    {
        Node parent = NONE;
        Node first = NONE;
        Node next = NONE;
        Node previous = NONE; // cyclic: the first child's is the last child
        Name name = NO_NAME;
        quint32 offset = 0; // character data, or the first attribute of an element
        quint32 length = 0;
        Kind kind = DocumentNode;
    };
    struct AttributeData
    {
        Name name;
        quint32 offset;
        quint32 length;
        quint32 next;
    };
    static constexpr quint32 NO_ATTRIBUTE = 0xFFFFFFFFu;

    Node NewNode(Kind kind, Name name);
    Node NewDataNode(Kind kind, Name name, const QString& text);
    quint32 Store(QStringView text);
    void Overwrite(quint32* offset, quint32* length, QStringView text);
    quint32 FindAttribute(Node element, Name name) const;
    bool RangeEquals(quint32 offset, quint32 length, QStringView text) const;
    static size_t HashOf(QStringView name);
    size_t SlotOf(QStringView name) const;
    void CompactIfWasteful();

    std::vector<NodeData> m_nodes;
    std::vector<AttributeData> m_attributes;
    /// Character data: a growing array of UTF-16 units that, unlike a
    /// vector, is not filled with zeros before the reader writes it.
    class Pool
    {
    public:
        Pool() = default;
        Pool(Pool&& other) noexcept { Swap(other); }
        Pool& operator=(Pool&& other) noexcept
        {
            Swap(other);
            return *this;
        }
        ~Pool() { std::free(m_data); }

        char16_t* data() const { return m_data; }
        size_t size() const { return m_size; }
        void reserve(size_t capacity);
        /// Room for `count` more units at the end, counted as used.
        char16_t* Grow(size_t count);
        void Shrink(size_t size) { m_size = qMin(m_size, size); }
        void Swap(Pool& other) noexcept
        {
            std::swap(m_data, other.m_data);
            std::swap(m_size, other.m_size);
            std::swap(m_capacity, other.m_capacity);
        }

    private:
        char16_t* m_data = nullptr;
        size_t m_size = 0;
        size_t m_capacity = 0;
    };
    Pool m_pool;
    std::vector<QString> m_names;
    std::vector<size_t> m_nameHashes;
    std::vector<Name> m_nameSlots; // open addressing over m_names, NO_NAME where free
    QString m_documentType;
    quint64 m_waste = 0; // pool units no longer referenced
    Name m_textName;
    Name m_cdataName;
    Name m_commentName;
    Name m_documentName;
};

#endif
