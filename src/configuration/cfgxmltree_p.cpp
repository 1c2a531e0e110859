#include "configuration/cfgxmltree_p.h"

#include <QDomDocument>
#include <QDomNamedNodeMap>
#include <QTextStream>

#include <cstring>
#include <new>

CfgXmlTree::CfgXmlTree() : m_nameSlots(64, NO_NAME)
{
    m_textName = Intern(QStringLiteral("#text"));
    m_cdataName = Intern(QStringLiteral("#cdata-section"));
    m_commentName = Intern(QStringLiteral("#comment"));
    m_documentName = Intern(QStringLiteral("#document"));
    NewNode(DocumentNode, m_documentName);
}

CfgXmlTree::Node CfgXmlTree::DocumentElement() const
{
    return FirstChildElement(Document());
}

CfgXmlTree::Node CfgXmlTree::LastChild(Node node) const
{
    const Node first = m_nodes[node].first;
    return first == NONE ? NONE : m_nodes[first].previous;
}

CfgXmlTree::Node CfgXmlTree::PreviousSibling(Node node) const
{
    const Node parent = m_nodes[node].parent;
    if (parent == NONE || m_nodes[parent].first == node)
        return NONE;
    return m_nodes[node].previous;
}

CfgXmlTree::Node CfgXmlTree::FirstChildElement(Node parent, Name name) const
{
    if (parent == NONE || name == NO_NAME)
        return NONE;
    for (Node child = m_nodes[parent].first; child != NONE; child = m_nodes[child].next) {
        if (m_nodes[child].name == name && m_nodes[child].kind == ElementNode)
            return child;
    }
    return NONE;
}

CfgXmlTree::Node CfgXmlTree::FirstChildElement(Node parent) const
{
    if (parent == NONE)
        return NONE;
    Node child = m_nodes[parent].first;
    while (child != NONE && m_nodes[child].kind != ElementNode)
        child = m_nodes[child].next;
    return child;
}

CfgXmlTree::Node CfgXmlTree::NextSiblingElement(Node node) const
{
    Node next = m_nodes[node].next;
    while (next != NONE && m_nodes[next].kind != ElementNode)
        next = m_nodes[next].next;
    return next;
}

CfgXmlTree::Node CfgXmlTree::NextSiblingElement(Node node, Name name) const
{
    Node next = m_nodes[node].next;
    while (next != NONE && (m_nodes[next].kind != ElementNode || m_nodes[next].name != name))
        next = m_nodes[next].next;
    return next;
}

CfgXmlTree::Node CfgXmlTree::FirstTextChild(Node node) const
{
    if (node == NONE)
        return NONE;
    for (Node child = m_nodes[node].first; child != NONE; child = m_nodes[child].next) {
        if (IsText(child))
            return child;
    }
    return NONE;
}

// ---------------------------------------------------------------- names

// Names are short and differ mostly at their ends ("Value1", "Value2"): the
// first and the last four characters and the length make a good hash at the
// cost of a few instructions.
size_t CfgXmlTree::HashOf(QStringView name)
{
    const auto size = size_t(name.size());
    const char16_t* units = name.utf16();
    quint64 head = 0;
    quint64 tail = 0;
    if (size >= 4) {
        std::memcpy(&head, units, sizeof head);
        std::memcpy(&tail, units + size - 4, sizeof tail);
    } else {
        for (size_t i = 0; i < size; ++i)
            head = (head << 16) | units[i];
    }
    // The finaliser of MurmurHash3: every bit of the input reaches the low
    // bits that pick the slot.
    quint64 hash = head ^ (tail * 0x9E3779B97F4A7C15ull) ^ size;
    hash ^= hash >> 33;
    hash *= 0xFF51AFD7ED558CCDull;
    hash ^= hash >> 33;
    hash *= 0xC4CEB9FE1A85EC53ull;
    return size_t(hash ^ (hash >> 33));
}

// The slot of `name`, or the free slot where it would go. Names are looked up
// on every read and write, so equal hashes are confirmed by comparing memory.
size_t CfgXmlTree::SlotOf(QStringView name) const
{
    const size_t hash = HashOf(name);
    const size_t mask = m_nameSlots.size() - 1;
    for (size_t i = hash & mask;; i = (i + 1) & mask) {
        const Name id = m_nameSlots[i];
        if (id == NO_NAME)
            return i;
        const QString& candidate = m_names[id];
        if (m_nameHashes[id] == hash && candidate.size() == name.size() &&
            std::memcmp(candidate.constData(), name.data(), size_t(name.size()) * sizeof(QChar)) == 0)
            return i;
    }
}

CfgXmlTree::Name CfgXmlTree::FindName(QStringView name) const
{
    return m_nameSlots[SlotOf(name)];
}

CfgXmlTree::Name CfgXmlTree::Intern(QStringView name)
{
    const size_t slot = SlotOf(name);
    if (m_nameSlots[slot] != NO_NAME)
        return m_nameSlots[slot];
    const Name id = Name(m_names.size());
    m_names.push_back(name.toString());
    m_nameHashes.push_back(HashOf(name));
    m_nameSlots[slot] = id;
    if (m_names.size() * 2 > m_nameSlots.size()) {
        m_nameSlots.assign(m_nameSlots.size() * 2, NO_NAME);
        for (Name each = 0; each < Name(m_names.size()); ++each)
            m_nameSlots[SlotOf(m_names[each])] = each;
    }
    return id;
}

CfgXmlTree::Name CfgXmlTree::Intern(const char* latin1, int length)
{
    return Intern(QString::fromLatin1(latin1, length));
}

// ---------------------------------------------------------------- character data

bool CfgXmlTree::RangeEquals(quint32 offset, quint32 length, QStringView text) const
{
    return int(length) == text.size() &&
           (length == 0 || std::memcmp(m_pool.data() + offset, text.data(), length * sizeof(QChar)) == 0);
}

QString CfgXmlTree::Data(Node node) const
{
    const NodeData& data = m_nodes[node];
    if (data.kind == ElementNode || data.kind == DocumentNode)
        return QString();
    return QString(Chars(data.offset), int(data.length));
}

bool CfgXmlTree::DataEquals(Node node, QStringView text) const
{
    return RangeEquals(m_nodes[node].offset, m_nodes[node].length, text);
}

QString CfgXmlTree::TextOf(Node element) const
{
    const Node text = FirstTextChild(element);
    return text == NONE ? QString() : Data(text);
}

quint32 CfgXmlTree::Store(QStringView text)
{
    const quint32 offset = PoolSize();
    AppendUtf16(text.data(), int(text.size()));
    return offset;
}

// A text that fits where the old one was is written over it (time stamps and
// counters keep their length); a longer one goes to the end of the pool.
void CfgXmlTree::Overwrite(quint32* offset, quint32* length, QStringView text)
{
    const quint32 size = quint32(text.size());
    if (size <= *length) {
        if (size > 0) // a null string has no data to copy
            std::memcpy(m_pool.data() + *offset, text.data(), size * sizeof(QChar));
        m_waste += *length - size;
    } else {
        m_waste += *length;
        *offset = Store(text);
    }
    *length = size;
    CompactIfWasteful();
}

bool CfgXmlTree::SetData(Node node, QStringView text)
{
    NodeData& data = m_nodes[node];
    if (RangeEquals(data.offset, data.length, text))
        return false;
    Overwrite(&data.offset, &data.length, text);
    return true;
}

// Edits that outgrow their place leave their old text behind; once most of
// the pool is such waste, the live texts move together. A long-running
// program that keeps changing values must not grow without end.
void CfgXmlTree::CompactIfWasteful()
{
    if (m_waste < 65536 || m_waste * 2 < m_pool.size())
        return;
    Pool pool;
    pool.reserve(m_pool.size() - m_waste);
    const auto move = [this, &pool](quint32& offset, quint32 length) {
        const quint32 moved = quint32(pool.size());
        std::memcpy(pool.Grow(length), m_pool.data() + offset, length * sizeof(char16_t));
        offset = moved;
    };
    for (NodeData& node : m_nodes) {
        if (node.kind != ElementNode && node.kind != DocumentNode)
            move(node.offset, node.length);
    }
    for (AttributeData& attribute : m_attributes)
        move(attribute.offset, attribute.length);
    m_pool.Swap(pool);
    m_waste = 0;
}

// ---------------------------------------------------------------- attributes

quint32 CfgXmlTree::FindAttribute(Node element, Name name) const
{
    if (element == NONE || m_nodes[element].kind != ElementNode)
        return NO_ATTRIBUTE;
    for (quint32 a = m_nodes[element].offset; a != NO_ATTRIBUTE; a = m_attributes[a].next) {
        if (m_attributes[a].name == name)
            return a;
    }
    return NO_ATTRIBUTE;
}

bool CfgXmlTree::HasAttribute(Node element, Name name) const
{
    return FindAttribute(element, name) != NO_ATTRIBUTE;
}

QString CfgXmlTree::Attribute(Node element, Name name, const QString& defaultValue) const
{
    const quint32 a = FindAttribute(element, name);
    if (a == NO_ATTRIBUTE)
        return defaultValue;
    return QString(Chars(m_attributes[a].offset), int(m_attributes[a].length));
}

QStringView CfgXmlTree::AttributeView(Node element, Name name) const
{
    const quint32 a = FindAttribute(element, name);
    if (a == NO_ATTRIBUTE)
        return QStringView();
    return QStringView(Chars(m_attributes[a].offset), qsizetype(m_attributes[a].length));
}

bool CfgXmlTree::AttributeEquals(Node element, Name name, QStringView value) const
{
    const quint32 a = FindAttribute(element, name);
    return a != NO_ATTRIBUTE && RangeEquals(m_attributes[a].offset, m_attributes[a].length, value);
}

bool CfgXmlTree::SetAttribute(Node element, Name name, QStringView value)
{
    Q_ASSERT(IsElement(element));
    const quint32 a = FindAttribute(element, name);
    if (a == NO_ATTRIBUTE) {
        const quint32 offset = Store(value);
        m_attributes.push_back({name, offset, quint32(value.size()), m_nodes[element].offset});
        m_nodes[element].offset = quint32(m_attributes.size() - 1);
        return true;
    }
    AttributeData& attribute = m_attributes[a];
    if (RangeEquals(attribute.offset, attribute.length, value))
        return false;
    Overwrite(&attribute.offset, &attribute.length, value);
    return true;
}

bool CfgXmlTree::RemoveAttribute(Node element, Name name)
{
    if (element == NONE || m_nodes[element].kind != ElementNode)
        return false;
    quint32* link = &m_nodes[element].offset;
    while (*link != NO_ATTRIBUTE) {
        AttributeData& attribute = m_attributes[*link];
        if (attribute.name == name) {
            m_waste += attribute.length;
            attribute.length = 0;
            *link = attribute.next;
            return true;
        }
        link = &attribute.next;
    }
    return false;
}

void CfgXmlTree::Attributes(Node element, std::vector<AttributeRef>& out) const
{
    out.clear();
    if (element == NONE || m_nodes[element].kind != ElementNode)
        return; // other nodes keep character data where elements keep attributes
    for (quint32 a = m_nodes[element].offset; a != NO_ATTRIBUTE; a = m_attributes[a].next)
        out.push_back({m_attributes[a].name, m_attributes[a].offset, m_attributes[a].length});
}

// ---------------------------------------------------------------- building

CfgXmlTree::Node CfgXmlTree::NewNode(Kind kind, Name name)
{
    NodeData data;
    data.kind = kind;
    data.name = name;
    if (kind == ElementNode)
        data.offset = NO_ATTRIBUTE;
    m_nodes.push_back(data);
    return Node(m_nodes.size() - 1);
}

CfgXmlTree::Node CfgXmlTree::NewDataNode(Kind kind, Name name, const QString& text)
{
    const quint32 offset = Store(text);
    const Node node = NewNode(kind, name);
    m_nodes[node].offset = offset;
    m_nodes[node].length = quint32(text.size());
    return node;
}

CfgXmlTree::Node CfgXmlTree::CreateElement(Name name)
{
    return NewNode(ElementNode, name);
}

CfgXmlTree::Node CfgXmlTree::CreateText(const QString& text)
{
    return NewDataNode(TextNode, m_textName, text);
}

CfgXmlTree::Node CfgXmlTree::CreateComment(const QString& text)
{
    return NewDataNode(CommentNode, m_commentName, text);
}

CfgXmlTree::Node CfgXmlTree::CreateCData(const QString& text)
{
    return NewDataNode(CDataNode, m_cdataName, text);
}

CfgXmlTree::Node CfgXmlTree::CreateProcessingInstruction(const QString& target, const QString& data)
{
    return NewDataNode(ProcessingInstructionNode, Intern(target), data);
}

CfgXmlTree::Node CfgXmlTree::CreateVerbatim(const QString& text)
{
    return NewDataNode(VerbatimNode, m_documentName, text);
}

void CfgXmlTree::Append(Node parent, Node child)
{
    InsertBefore(parent, child, NONE);
}

void CfgXmlTree::InsertBefore(Node parent, Node child, Node before)
{
    NodeData& node = m_nodes[child];
    node.parent = parent;
    Node& first = m_nodes[parent].first;
    if (first == NONE) {
        first = child;
        node.previous = child;
        node.next = NONE;
        return;
    }
    if (before == NONE) {
        const Node last = m_nodes[first].previous;
        m_nodes[last].next = child;
        node.previous = last;
        node.next = NONE;
        m_nodes[first].previous = child;
        return;
    }
    node.next = before;
    node.previous = m_nodes[before].previous;
    if (first == before)
        first = child;
    else
        m_nodes[node.previous].next = child;
    m_nodes[before].previous = child;
}

void CfgXmlTree::Unlink(Node child)
{
    const Node parent = m_nodes[child].parent;
    if (parent == NONE)
        return;
    Node& first = m_nodes[parent].first;
    const Node next = m_nodes[child].next;
    const Node previous = m_nodes[child].previous;
    if (first == child) {
        first = next;
        if (next != NONE)
            m_nodes[next].previous = previous; // the last child
    } else {
        m_nodes[previous].next = next;
        if (next != NONE)
            m_nodes[next].previous = previous;
        else
            m_nodes[first].previous = previous;
    }
    m_nodes[child].parent = NONE;
    m_nodes[child].next = NONE;
    m_nodes[child].previous = NONE;
}

void CfgXmlTree::Replace(Node node, Node replacement)
{
    const Node parent = m_nodes[node].parent;
    if (parent == NONE)
        return;
    const Node next = m_nodes[node].next;
    Unlink(node);
    InsertBefore(parent, replacement, next);
}

CfgXmlTree::Node CfgXmlTree::Import(const CfgXmlTree& source, Node node)
{
    // Copied through the source's own values: `source` may be this tree,
    // whose arrays grow while copying.
    const auto copyOne = [this, &source](Node from) {
        const Kind kind = source.m_nodes[from].kind;
        const Name name = &source == this ? source.m_nodes[from].name : Intern(source.NodeName(from));
        if (kind != ElementNode)
            return NewDataNode(kind, name, source.Data(from));
        const Node copy = NewNode(ElementNode, name);
        std::vector<AttributeRef> attributes;
        source.Attributes(from, attributes);
        for (auto it = attributes.rbegin(); it != attributes.rend(); ++it) {
            const QString value(source.Chars(it->offset), int(it->length));
            SetAttribute(copy, &source == this ? it->name : Intern(source.NameText(it->name)), value);
        }
        return copy;
    };
    const Node top = copyOne(node);
    // Depth first without recursion: documents may be deep.
    std::vector<std::pair<Node, Node>> pending{{node, top}};
    while (!pending.empty()) {
        const auto [from, to] = pending.back();
        pending.pop_back();
        for (Node child = source.FirstChild(from); child != NONE; child = source.NextSibling(child)) {
            const Node copy = copyOne(child);
            Append(to, copy);
            if (source.HasChildren(child))
                pending.emplace_back(child, copy);
        }
    }
    return top;
}

// ---------------------------------------------------------------- reading

void CfgXmlTree::Reserve(qint64 bytes, int tags)
{
    // Every character becomes at most one unit; every tag gives at most an
    // element or comment and the text before it; elements carry three
    // attributes or fewer as a rule, and the arrays grow for more.
    const size_t size = size_t(qMax<qint64>(bytes, 0));
    const size_t nodes = size_t(qMax(tags, 0)) * 2 + 2;
    m_pool.reserve(m_pool.size() + size);
    m_nodes.reserve(m_nodes.size() + qMin(nodes, size / 2 + 2));
    m_attributes.reserve(m_attributes.size() + qMin(nodes / 2 * 3, size / 4 + 2));
}

void CfgXmlTree::Pool::reserve(size_t capacity)
{
    if (capacity <= m_capacity)
        return;
    auto* grown = static_cast<char16_t*>(std::realloc(m_data, capacity * sizeof(char16_t)));
    if (!grown)
        throw std::bad_alloc();
    m_data = grown;
    m_capacity = capacity;
}

char16_t* CfgXmlTree::Pool::Grow(size_t count)
{
    if (m_capacity - m_size < count)
        reserve(qMax(m_size + count, m_capacity * 2));
    char16_t* room = m_data + m_size;
    m_size += count;
    return room;
}

void CfgXmlTree::AppendUtf16(const QChar* text, int length)
{
    if (length > 0)
        std::memcpy(m_pool.Grow(size_t(length)), text, size_t(length) * sizeof(char16_t));
}

CfgXmlTree::Node CfgXmlTree::CreateTextFromPool(Kind kind, quint32 offset)
{
    const Node node = NewNode(kind, kind == CommentNode ? m_commentName : m_textName);
    m_nodes[node].offset = offset;
    m_nodes[node].length = PoolSize() - offset;
    return node;
}

void CfgXmlTree::SetAttributeFromPool(Node element, Name name, quint32 offset)
{
    Q_ASSERT(IsElement(element));
    const quint32 length = PoolSize() - offset;
    const quint32 a = FindAttribute(element, name);
    if (a != NO_ATTRIBUTE) {
        m_waste += m_attributes[a].length;
        m_attributes[a].offset = offset;
        m_attributes[a].length = length;
        return;
    }
    m_attributes.push_back({name, offset, length, m_nodes[element].offset});
    m_nodes[element].offset = quint32(m_attributes.size() - 1);
}

// ---------------------------------------------------------------- from Qt's DOM

namespace {

QString SavedByQt(const QDomNode& node)
{
    QString text;
    QTextStream stream(&text, QIODevice::WriteOnly);
    node.save(stream, 0);
    stream.flush();
    return text;
}

} // namespace

void CfgXmlTree::FromDom(const QDomDocument& document, CfgXmlTree& tree)
{
    tree = CfgXmlTree();
    tree.SetDocumentTypeText(SavedByQt(document.doctype()));
    std::vector<std::pair<QDomNode, Node>> pending{{document, tree.Document()}};
    while (!pending.empty()) {
        const auto [parent, into] = pending.back();
        pending.pop_back();
        for (QDomNode child = parent.firstChild(); !child.isNull(); child = child.nextSibling()) {
            Node copy = NONE;
            switch (child.nodeType()) {
            case QDomNode::ElementNode: {
                copy = tree.CreateElement(child.nodeName());
                const QDomNamedNodeMap attributes = child.attributes();
                for (int i = 0; i < attributes.count(); ++i)
                    tree.SetAttribute(copy, attributes.item(i).nodeName(), attributes.item(i).nodeValue());
                pending.emplace_back(child, copy);
                break;
            }
            case QDomNode::TextNode:
                copy = tree.CreateText(child.nodeValue());
                break;
            case QDomNode::CDATASectionNode:
                copy = tree.CreateCData(child.nodeValue());
                break;
            case QDomNode::CommentNode:
                copy = tree.CreateComment(child.nodeValue());
                break;
            case QDomNode::ProcessingInstructionNode:
                copy = tree.CreateProcessingInstruction(child.nodeName(), child.nodeValue());
                break;
            case QDomNode::DocumentTypeNode:
                continue;
            default:
                copy = tree.CreateVerbatim(SavedByQt(child));
                break;
            }
            tree.Append(into, copy);
        }
    }
}
