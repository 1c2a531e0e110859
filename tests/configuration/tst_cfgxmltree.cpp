// The document tree of configuration documents: its links, names, character
// data, attributes, copies, the compaction of its character pool and the
// tree it takes over from Qt's DOM.

#include "configuration/cfgxmltree_p.h"

#include <QDomDocument>
#include <QDomImplementation>
#include <QDomNamedNodeMap>
#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>
#include <vector>

namespace {

using Node = CfgXmlTree::Node;

/// The names of the children of `parent`, first to last.
QString Forward(const CfgXmlTree& tree, Node parent)
{
    QStringList names;
    for (Node child = tree.FirstChild(parent); child != CfgXmlTree::NONE; child = tree.NextSibling(child))
        names << tree.NodeName(child);
    return names.join(QLatin1Char(' '));
}

/// The names of the children of `parent`, last to first.
QString Backward(const CfgXmlTree& tree, Node parent)
{
    QStringList names;
    for (Node child = tree.LastChild(parent); child != CfgXmlTree::NONE; child = tree.PreviousSibling(child))
        names << tree.NodeName(child);
    return names.join(QLatin1Char(' '));
}

/// Whether every child of `parent` names it as its parent.
bool ParentsAre(const CfgXmlTree& tree, Node parent)
{
    for (Node child = tree.FirstChild(parent); child != CfgXmlTree::NONE; child = tree.NextSibling(child)) {
        if (tree.Parent(child) != parent)
            return false;
    }
    return true;
}

/// The attributes of an element as "name=value", sorted.
QStringList AttributesOf(const CfgXmlTree& tree, Node element)
{
    std::vector<CfgXmlTree::AttributeRef> attributes;
    tree.Attributes(element, attributes);
    QStringList pairs;
    for (const CfgXmlTree::AttributeRef& attribute : attributes)
        pairs << tree.NameText(attribute.name) + QLatin1Char('=') +
                     QString(tree.Chars(attribute.offset), int(attribute.length));
    pairs.sort();
    return pairs;
}

/// An element with children named `names`, appended in order.
Node ParentWith(CfgXmlTree& tree, const QStringList& names, std::vector<Node>& children)
{
    const Node parent = tree.CreateElement(QStringLiteral("P"));
    tree.Append(tree.Document(), parent);
    children.clear();
    for (const QString& name : names) {
        children.push_back(tree.CreateElement(name));
        tree.Append(parent, children.back());
    }
    return parent;
}

const QStringList ABC{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")};

/// A sub-tree as lines: name, data and the sorted attributes of each node.
void Describe(const CfgXmlTree& tree, Node node, int depth, QStringList& lines)
{
    lines << QString(depth, QLatin1Char(' ')) + tree.NodeName(node) + QLatin1Char('[') + tree.Data(node) +
                 QStringLiteral("] ") +
                 (tree.IsElement(node) ? AttributesOf(tree, node).join(QLatin1Char(' ')) : QString());
    for (Node child = tree.FirstChild(node); child != CfgXmlTree::NONE; child = tree.NextSibling(child))
        Describe(tree, child, depth + 1, lines);
}

void Describe(const QDomNode& node, int depth, QStringList& lines)
{
    QStringList pairs;
    const QDomNamedNodeMap attributes = node.attributes();
    for (int i = 0; i < attributes.count(); ++i)
        pairs << attributes.item(i).nodeName() + QLatin1Char('=') + attributes.item(i).nodeValue();
    pairs.sort();
    lines << QString(depth, QLatin1Char(' ')) + node.nodeName() + QLatin1Char('[') + node.nodeValue() +
                 QStringLiteral("] ") + pairs.join(QLatin1Char(' '));
    for (QDomNode child = node.firstChild(); !child.isNull(); child = child.nextSibling())
        Describe(child, depth + 1, lines);
}

/// Whether `node` hangs below `root`.
bool IsUnder(const CfgXmlTree& tree, Node node, Node root)
{
    for (; node != CfgXmlTree::NONE; node = tree.Parent(node)) {
        if (node == root)
            return true;
    }
    return false;
}

} // namespace

class TestCfgXmlTree : public QObject
{
    Q_OBJECT

private slots:
    void startsWithTheDocumentNodeAlone()
    {
        const CfgXmlTree tree;
        QCOMPARE(tree.Document(), CfgXmlTree::Node(0));
        QCOMPARE(tree.DocumentElement(), CfgXmlTree::NONE);
        QCOMPARE(tree.KindOf(tree.Document()), CfgXmlTree::DocumentNode);
        QCOMPARE(tree.NodeName(tree.Document()), QStringLiteral("#document"));
        QCOMPARE(tree.Parent(tree.Document()), CfgXmlTree::NONE);
        QCOMPARE(tree.FirstChild(tree.Document()), CfgXmlTree::NONE);
        QCOMPARE(tree.LastChild(tree.Document()), CfgXmlTree::NONE);
        QVERIFY(!tree.HasChildren(tree.Document()));
        QCOMPARE(tree.DocumentTypeText(), QString());
    }

    void documentElementIsTheFirstElementOfTheDocument()
    {
        CfgXmlTree tree;
        tree.Append(tree.Document(),
                    tree.CreateProcessingInstruction(QStringLiteral("xml"), QStringLiteral("v")));
        tree.Append(tree.Document(), tree.CreateComment(QStringLiteral("c")));
        const Node root = tree.CreateElement(QStringLiteral("Cfg"));
        tree.Append(tree.Document(), root);
        QCOMPARE(tree.DocumentElement(), root);
    }

    void appendKeepsTheOrderAndBothEnds()
    {
        CfgXmlTree tree;
        std::vector<Node> c;
        const Node parent = ParentWith(tree, ABC, c);
        QCOMPARE(Forward(tree, parent), QStringLiteral("a b c"));
        QCOMPARE(Backward(tree, parent), QStringLiteral("c b a"));
        QVERIFY(ParentsAre(tree, parent));
        QCOMPARE(tree.FirstChild(parent), c[0]);
        QCOMPARE(tree.LastChild(parent), c[2]);
        QCOMPARE(tree.PreviousSibling(c[0]), CfgXmlTree::NONE);
        QCOMPARE(tree.PreviousSibling(c[1]), c[0]);
        QCOMPARE(tree.NextSibling(c[2]), CfgXmlTree::NONE);
        QVERIFY(tree.HasChildren(parent));
        QVERIFY(!tree.HasChildren(c[0]));
    }

    void appendsTheOnlyChild()
    {
        CfgXmlTree tree;
        std::vector<Node> c;
        const Node parent = ParentWith(tree, {QStringLiteral("a")}, c);
        QCOMPARE(tree.FirstChild(parent), c[0]);
        QCOMPARE(tree.LastChild(parent), c[0]);
        QCOMPARE(tree.PreviousSibling(c[0]), CfgXmlTree::NONE);
        QCOMPARE(tree.NextSibling(c[0]), CfgXmlTree::NONE);
    }

    void insertsBeforeTheFirstTheMiddleAndAtTheEnd()
    {
        CfgXmlTree tree;
        std::vector<Node> c;
        const Node parent = ParentWith(tree, ABC, c);
        const Node x = tree.CreateElement(QStringLiteral("x"));
        tree.InsertBefore(parent, x, c[0]);
        QCOMPARE(Forward(tree, parent), QStringLiteral("x a b c"));
        QCOMPARE(Backward(tree, parent), QStringLiteral("c b a x"));
        QCOMPARE(tree.FirstChild(parent), x);
        QCOMPARE(tree.PreviousSibling(x), CfgXmlTree::NONE);
        QCOMPARE(tree.PreviousSibling(c[0]), x);

        const Node y = tree.CreateElement(QStringLiteral("y"));
        tree.InsertBefore(parent, y, c[2]);
        QCOMPARE(Forward(tree, parent), QStringLiteral("x a b y c"));
        QCOMPARE(Backward(tree, parent), QStringLiteral("c y b a x"));

        const Node z = tree.CreateElement(QStringLiteral("z"));
        tree.InsertBefore(parent, z, CfgXmlTree::NONE);
        QCOMPARE(Forward(tree, parent), QStringLiteral("x a b y c z"));
        QCOMPARE(Backward(tree, parent), QStringLiteral("z c y b a x"));
        QCOMPARE(tree.LastChild(parent), z);
        QVERIFY(ParentsAre(tree, parent));
    }

    void insertsIntoAnEmptyParent()
    {
        CfgXmlTree tree;
        std::vector<Node> c;
        const Node parent = ParentWith(tree, {}, c);
        const Node x = tree.CreateElement(QStringLiteral("x"));
        tree.InsertBefore(parent, x, CfgXmlTree::NONE);
        QCOMPARE(Forward(tree, parent), QStringLiteral("x"));
        QCOMPARE(Backward(tree, parent), QStringLiteral("x"));
        QCOMPARE(tree.Parent(x), parent);
    }

    void unlinksTheFirstChild()
    {
        CfgXmlTree tree;
        std::vector<Node> c;
        const Node parent = ParentWith(tree, ABC, c);
        tree.Unlink(c[0]);
        QCOMPARE(Forward(tree, parent), QStringLiteral("b c"));
        QCOMPARE(Backward(tree, parent), QStringLiteral("c b"));
        QCOMPARE(tree.FirstChild(parent), c[1]);
        QCOMPARE(tree.PreviousSibling(c[1]), CfgXmlTree::NONE);
        QCOMPARE(tree.Parent(c[0]), CfgXmlTree::NONE);
        QCOMPARE(tree.NextSibling(c[0]), CfgXmlTree::NONE);
        QCOMPARE(tree.PreviousSibling(c[0]), CfgXmlTree::NONE);
    }

    void unlinksAMiddleChild()
    {
        CfgXmlTree tree;
        std::vector<Node> c;
        const Node parent = ParentWith(tree, ABC, c);
        tree.Unlink(c[1]);
        QCOMPARE(Forward(tree, parent), QStringLiteral("a c"));
        QCOMPARE(Backward(tree, parent), QStringLiteral("c a"));
        QCOMPARE(tree.NextSibling(c[0]), c[2]);
        QCOMPARE(tree.PreviousSibling(c[2]), c[0]);
        QCOMPARE(tree.Parent(c[1]), CfgXmlTree::NONE);
    }

    void unlinksTheLastChild()
    {
        CfgXmlTree tree;
        std::vector<Node> c;
        const Node parent = ParentWith(tree, ABC, c);
        tree.Unlink(c[2]);
        QCOMPARE(Forward(tree, parent), QStringLiteral("a b"));
        QCOMPARE(Backward(tree, parent), QStringLiteral("b a"));
        QCOMPARE(tree.LastChild(parent), c[1]);
        QCOMPARE(tree.NextSibling(c[1]), CfgXmlTree::NONE);
        // Appending after the new last child links behind it.
        const Node d = tree.CreateElement(QStringLiteral("d"));
        tree.Append(parent, d);
        QCOMPARE(Forward(tree, parent), QStringLiteral("a b d"));
        QCOMPARE(Backward(tree, parent), QStringLiteral("d b a"));
    }

    void unlinksTheOnlyChild()
    {
        CfgXmlTree tree;
        std::vector<Node> c;
        const Node parent = ParentWith(tree, {QStringLiteral("a")}, c);
        tree.Unlink(c[0]);
        QCOMPARE(tree.FirstChild(parent), CfgXmlTree::NONE);
        QCOMPARE(tree.LastChild(parent), CfgXmlTree::NONE);
        QVERIFY(!tree.HasChildren(parent));
        QCOMPARE(tree.Parent(c[0]), CfgXmlTree::NONE);
    }

    void linksAnUnlinkedNodeAgain()
    {
        CfgXmlTree tree;
        std::vector<Node> c;
        const Node parent = ParentWith(tree, ABC, c);
        tree.Unlink(c[0]);
        tree.Unlink(c[0]); // a second time changes nothing
        QCOMPARE(Forward(tree, parent), QStringLiteral("b c"));
        tree.Append(parent, c[0]);
        QCOMPARE(Forward(tree, parent), QStringLiteral("b c a"));
        QCOMPARE(Backward(tree, parent), QStringLiteral("a c b"));
        tree.Unlink(c[1]);
        tree.InsertBefore(parent, c[1], c[2]);
        QCOMPARE(Forward(tree, parent), QStringLiteral("b c a"));
        QCOMPARE(Backward(tree, parent), QStringLiteral("a c b"));
        QVERIFY(ParentsAre(tree, parent));
    }

    void replacesTheFirstTheMiddleAndTheLastChild()
    {
        CfgXmlTree tree;
        std::vector<Node> c;
        const Node parent = ParentWith(tree, ABC, c);
        const Node x = tree.CreateElement(QStringLiteral("x"));
        tree.Replace(c[0], x);
        QCOMPARE(Forward(tree, parent), QStringLiteral("x b c"));
        QCOMPARE(Backward(tree, parent), QStringLiteral("c b x"));
        QCOMPARE(tree.Parent(c[0]), CfgXmlTree::NONE);
        QCOMPARE(tree.PreviousSibling(x), CfgXmlTree::NONE);

        const Node y = tree.CreateElement(QStringLiteral("y"));
        tree.Replace(c[1], y);
        QCOMPARE(Forward(tree, parent), QStringLiteral("x y c"));
        QCOMPARE(Backward(tree, parent), QStringLiteral("c y x"));

        const Node z = tree.CreateElement(QStringLiteral("z"));
        tree.Replace(c[2], z);
        QCOMPARE(Forward(tree, parent), QStringLiteral("x y z"));
        QCOMPARE(Backward(tree, parent), QStringLiteral("z y x"));
        QCOMPARE(tree.LastChild(parent), z);
        QCOMPARE(tree.NextSibling(z), CfgXmlTree::NONE);
        QVERIFY(ParentsAre(tree, parent));
    }

    void replacesTheOnlyChild()
    {
        CfgXmlTree tree;
        std::vector<Node> c;
        const Node parent = ParentWith(tree, {QStringLiteral("a")}, c);
        const Node x = tree.CreateElement(QStringLiteral("x"));
        tree.Replace(c[0], x);
        QCOMPARE(tree.FirstChild(parent), x);
        QCOMPARE(tree.LastChild(parent), x);
        QCOMPARE(tree.Parent(x), parent);
        QCOMPARE(tree.PreviousSibling(x), CfgXmlTree::NONE);
        QCOMPARE(tree.NextSibling(x), CfgXmlTree::NONE);
        QCOMPARE(tree.Parent(c[0]), CfgXmlTree::NONE);
    }

    void firstChildElementSkipsAnInstructionOfTheSameName()
    {
        CfgXmlTree tree;
        const Node root = tree.CreateElement(QStringLiteral("Cfg"));
        tree.Append(tree.Document(), root);
        tree.Append(root, tree.CreateProcessingInstruction(QStringLiteral("Value"), QStringLiteral("pi")));
        tree.Append(root, tree.CreateText(QStringLiteral("Value")));
        const Node other = tree.CreateElement(QStringLiteral("Other"));
        tree.Append(root, other);
        const Node first = tree.CreateElement(QStringLiteral("Value"));
        tree.Append(root, first);
        const Node second = tree.CreateElement(QStringLiteral("Value"));
        tree.Append(root, second);
        const CfgXmlTree::Name value = tree.FindName(QStringLiteral("Value"));
        QCOMPARE(tree.FirstChildElement(root, value), first);
        QCOMPARE(tree.NextSiblingElement(first, value), second);
        QCOMPARE(tree.NextSiblingElement(second, value), CfgXmlTree::NONE);
        QCOMPARE(tree.FirstChildElement(root), other);
        QCOMPARE(tree.NextSiblingElement(other), first);
        QCOMPARE(tree.FirstChildElement(root, CfgXmlTree::NO_NAME), CfgXmlTree::NONE);
        QCOMPARE(tree.FirstChildElement(CfgXmlTree::NONE, value), CfgXmlTree::NONE);
    }

    void findNameKnowsOnlyNamesSeen()
    {
        CfgXmlTree tree;
        QCOMPARE(tree.FindName(QStringLiteral("Cfg")), CfgXmlTree::NO_NAME);
        const Node root = tree.CreateElement(QStringLiteral("Cfg"));
        QCOMPARE(tree.FindName(QStringLiteral("Cfg")), tree.NameOf(root));
        QCOMPARE(tree.Intern(QStringLiteral("Cfg")), tree.NameOf(root));
        QCOMPARE(tree.FindName(QStringLiteral("cfg")), CfgXmlTree::NO_NAME);
        tree.SetAttribute(root, QStringLiteral("ts"), QStringLiteral("1"));
        const CfgXmlTree::Name ts = tree.FindName(QStringLiteral("ts"));
        QVERIFY(ts != CfgXmlTree::NO_NAME);
        QCOMPARE(tree.NameText(ts), QStringLiteral("ts"));
        QCOMPARE(tree.Intern("ts", 2), ts);
        QCOMPARE(tree.FindName(QString()), CfgXmlTree::NO_NAME);
        QCOMPARE(tree.NodeName(tree.CreateText(QStringLiteral("t"))), QStringLiteral("#text"));
        QCOMPARE(tree.NodeName(tree.CreateCData(QStringLiteral("t"))), QStringLiteral("#cdata-section"));
        QCOMPARE(tree.NodeName(tree.CreateComment(QStringLiteral("t"))), QStringLiteral("#comment"));
        QCOMPARE(tree.NodeName(tree.CreateProcessingInstruction(QStringLiteral("pi"), QStringLiteral("t"))),
                 QStringLiteral("pi"));
    }

    void setAttributeTellsWhetherItChanged()
    {
        CfgXmlTree tree;
        const Node root = tree.CreateElement(QStringLiteral("Cfg"));
        const CfgXmlTree::Name ts = tree.Intern(QStringLiteral("ts"));
        QVERIFY(!tree.HasAttribute(root, ts));
        QCOMPARE(tree.Attribute(root, ts, QStringLiteral("none")), QStringLiteral("none"));
        QVERIFY(tree.Attribute(root, ts).isNull());
        QVERIFY(tree.SetAttribute(root, ts, QStringLiteral("17")));
        QVERIFY(tree.HasAttribute(root, ts));
        QVERIFY(!tree.SetAttribute(root, ts, QStringLiteral("17")));
        QVERIFY(tree.SetAttribute(root, ts, QStringLiteral("18")));
        QCOMPARE(tree.Attribute(root, ts), QStringLiteral("18"));
        QVERIFY(tree.SetAttribute(root, ts, QStringLiteral("1")));
        QCOMPARE(tree.Attribute(root, ts), QStringLiteral("1"));
        QVERIFY(tree.SetAttribute(root, ts, QStringLiteral("123456")));
        QCOMPARE(tree.Attribute(root, ts), QStringLiteral("123456"));
        QVERIFY(tree.AttributeEquals(root, ts, QStringLiteral("123456")));
        QVERIFY(!tree.AttributeEquals(root, ts, QStringLiteral("12345")));
        QVERIFY(tree.SetAttribute(root, ts, QString()));
        QCOMPARE(tree.Attribute(root, ts, QStringLiteral("none")), QString());
        QVERIFY(!tree.SetAttribute(root, ts, QStringLiteral("")));
        QVERIFY(tree.SetAttribute(root, QStringLiteral("type"), QStringLiteral("string")));
        QCOMPARE(AttributesOf(tree, root),
                 QStringList({QStringLiteral("ts="), QStringLiteral("type=string")}));
    }

    void removesAttributes()
    {
        CfgXmlTree tree;
        const Node root = tree.CreateElement(QStringLiteral("Cfg"));
        tree.SetAttribute(root, QStringLiteral("a"), QStringLiteral("1"));
        tree.SetAttribute(root, QStringLiteral("b"), QStringLiteral("2"));
        tree.SetAttribute(root, QStringLiteral("c"), QStringLiteral("3"));
        QVERIFY(tree.RemoveAttribute(root, tree.FindName(QStringLiteral("b"))));
        QCOMPARE(AttributesOf(tree, root), QStringList({QStringLiteral("a=1"), QStringLiteral("c=3")}));
        QVERIFY(!tree.HasAttribute(root, tree.FindName(QStringLiteral("b"))));
        QVERIFY(!tree.RemoveAttribute(root, tree.FindName(QStringLiteral("b"))));
        QVERIFY(tree.RemoveAttribute(root, tree.FindName(QStringLiteral("c"))));
        QVERIFY(tree.RemoveAttribute(root, tree.FindName(QStringLiteral("a"))));
        QCOMPARE(AttributesOf(tree, root), QStringList());
        QVERIFY(
            !tree.RemoveAttribute(tree.CreateText(QStringLiteral("t")), tree.FindName(QStringLiteral("a"))));
        // A removed attribute can be set again.
        QVERIFY(tree.SetAttribute(root, QStringLiteral("b"), QStringLiteral("4")));
        QCOMPARE(AttributesOf(tree, root), QStringList({QStringLiteral("b=4")}));
    }

    void setDataInPlaceWhenItFits()
    {
        CfgXmlTree tree;
        const Node text = tree.CreateText(QStringLiteral("2024-01-01"));
        const Node after = tree.CreateText(QStringLiteral("after"));
        const quint32 pool = tree.PoolSize();
        QVERIFY(tree.SetData(text, QStringLiteral("2025-12-31")));
        QCOMPARE(tree.Data(text), QStringLiteral("2025-12-31"));
        QCOMPARE(tree.PoolSize(), pool);
        QVERIFY(tree.SetData(text, QStringLiteral("short")));
        QCOMPARE(tree.Data(text), QStringLiteral("short"));
        QCOMPARE(tree.PoolSize(), pool);
        QVERIFY(!tree.SetData(text, QStringLiteral("short")));
        QVERIFY(tree.DataEquals(text, QStringLiteral("short")));
        QVERIFY(!tree.DataEquals(text, QStringLiteral("shor")));
        QCOMPARE(tree.Data(after), QStringLiteral("after"));
    }

    void setDataGrowingMovesTheText()
    {
        CfgXmlTree tree;
        const Node text = tree.CreateText(QStringLiteral("1"));
        const Node after = tree.CreateComment(QStringLiteral("after"));
        const quint32 pool = tree.PoolSize();
        QVERIFY(tree.SetData(text, QStringLiteral("12345678")));
        QCOMPARE(tree.Data(text), QStringLiteral("12345678"));
        QCOMPARE(tree.PoolSize(), pool + 8);
        QCOMPARE(tree.Data(after), QStringLiteral("after"));
        QVERIFY(tree.SetData(text, QString()));
        QCOMPARE(tree.Data(text), QString());
        QVERIFY(tree.SetData(text, QStringLiteral("x")));
        QCOMPARE(tree.Data(text), QStringLiteral("x"));
    }

    void dataAndTextOf()
    {
        CfgXmlTree tree;
        const Node value = tree.CreateElement(QStringLiteral("Value"));
        QVERIFY(tree.TextOf(value).isNull());
        tree.Append(value, tree.CreateComment(QStringLiteral("note")));
        tree.Append(value, tree.CreateElement(QStringLiteral("Inner")));
        QVERIFY(tree.TextOf(value).isNull());
        const Node text = tree.CreateText(QStringLiteral("v1"));
        tree.Append(value, text);
        tree.Append(value, tree.CreateText(QStringLiteral("v2")));
        QCOMPARE(tree.FirstTextChild(value), text);
        QCOMPARE(tree.TextOf(value), QStringLiteral("v1"));
        QVERIFY(tree.Data(value).isNull());
        QCOMPARE(tree.Data(tree.FirstChild(value)), QStringLiteral("note"));

        const Node raw = tree.CreateElement(QStringLiteral("Raw"));
        tree.Append(raw, tree.CreateCData(QStringLiteral("<x>")));
        QCOMPARE(tree.TextOf(raw), QStringLiteral("<x>"));
        QVERIFY(tree.IsText(tree.FirstChild(raw)));
        QCOMPARE(tree.Data(tree.CreateProcessingInstruction(QStringLiteral("pi"), QStringLiteral("d"))),
                 QStringLiteral("d"));
    }

    void importsASubTreeWithinTheTree()
    {
        CfgXmlTree tree;
        const Node root = tree.CreateElement(QStringLiteral("Cfg"));
        tree.Append(tree.Document(), root);
        const Node section = tree.CreateElement(QStringLiteral("Section"));
        tree.Append(root, section);
        tree.SetAttribute(section, QStringLiteral("name"), QStringLiteral("s"));
        tree.SetAttribute(section, QStringLiteral("ts"), QStringLiteral("3"));
        const Node value = tree.CreateElement(QStringLiteral("Value"));
        tree.Append(section, value);
        tree.SetAttribute(value, QStringLiteral("type"), QStringLiteral("string"));
        tree.Append(value, tree.CreateText(QStringLiteral("text")));
        tree.Append(section, tree.CreateComment(QStringLiteral("c")));
        tree.Append(section, tree.CreateProcessingInstruction(QStringLiteral("pi"), QStringLiteral("d")));

        const Node copy = tree.Import(tree, section);
        QVERIFY(copy != section);
        QCOMPARE(tree.Parent(copy), CfgXmlTree::NONE);
        QCOMPARE(tree.NameOf(copy), tree.NameOf(section));
        QCOMPARE(AttributesOf(tree, copy), QStringList({QStringLiteral("name=s"), QStringLiteral("ts=3")}));
        QCOMPARE(Forward(tree, copy), QStringLiteral("Value #comment pi"));
        QCOMPARE(Backward(tree, copy), QStringLiteral("pi #comment Value"));
        const Node valueCopy = tree.FirstChild(copy);
        QVERIFY(valueCopy != value);
        QCOMPARE(AttributesOf(tree, valueCopy), QStringList({QStringLiteral("type=string")}));
        QCOMPARE(tree.TextOf(valueCopy), QStringLiteral("text"));
        QCOMPARE(tree.Data(tree.NextSibling(valueCopy)), QStringLiteral("c"));
        QCOMPARE(tree.Data(tree.LastChild(copy)), QStringLiteral("d"));

        // The copy is its own: changing it leaves the original alone.
        tree.Append(root, copy);
        tree.SetAttribute(copy, QStringLiteral("name"), QStringLiteral("t"));
        tree.SetData(tree.FirstChild(valueCopy), QStringLiteral("changed"));
        QCOMPARE(tree.Attribute(section, tree.FindName(QStringLiteral("name"))), QStringLiteral("s"));
        QCOMPARE(tree.TextOf(value), QStringLiteral("text"));
        QCOMPARE(Forward(tree, root), QStringLiteral("Section Section"));
    }

    void importsFromAnotherTree()
    {
        CfgXmlTree source;
        const Node section = source.CreateElement(QStringLiteral("Section"));
        source.Append(source.Document(), section);
        source.SetAttribute(section, QStringLiteral("name"), QStringLiteral("s\xe9"));
        const Node value = source.CreateElement(QStringLiteral("Value"));
        source.Append(section, value);
        source.SetAttribute(value, QStringLiteral("type"), QStringLiteral("int"));
        source.Append(value, source.CreateText(QStringLiteral("42")));
        source.Append(section, source.CreateCData(QStringLiteral("<raw>")));
        source.Append(section,
                      source.CreateProcessingInstruction(QStringLiteral("target"), QStringLiteral("d")));

        CfgXmlTree tree;
        // Names the source does not have, so that its ids mean other names here.
        tree.Intern(QStringLiteral("zero"));
        tree.Intern(QStringLiteral("one"));
        tree.Intern(QStringLiteral("two"));
        QVERIFY(tree.FindName(QStringLiteral("Section")) == CfgXmlTree::NO_NAME);
        const Node copy = tree.Import(source, section);
        tree.Append(tree.Document(), copy);
        QCOMPARE(tree.NodeName(copy), QStringLiteral("Section"));
        QCOMPARE(tree.NameOf(copy), tree.FindName(QStringLiteral("Section")));
        QVERIFY(tree.NameOf(copy) != source.NameOf(section));
        QCOMPARE(AttributesOf(tree, copy), QStringList({QStringLiteral("name=s\xe9")}));
        QCOMPARE(tree.Attribute(copy, tree.FindName(QStringLiteral("name"))), QStringLiteral("s\xe9"));
        QCOMPARE(Forward(tree, copy), QStringLiteral("Value #cdata-section target"));
        const Node valueCopy = tree.FirstChild(copy);
        QCOMPARE(tree.KindOf(valueCopy), CfgXmlTree::ElementNode);
        QCOMPARE(tree.Attribute(valueCopy, tree.FindName(QStringLiteral("type"))), QStringLiteral("int"));
        QCOMPARE(tree.TextOf(valueCopy), QStringLiteral("42"));
        QCOMPARE(tree.KindOf(tree.NextSibling(valueCopy)), CfgXmlTree::CDataNode);
        QCOMPARE(tree.Data(tree.NextSibling(valueCopy)), QStringLiteral("<raw>"));
        QCOMPARE(tree.KindOf(tree.LastChild(copy)), CfgXmlTree::ProcessingInstructionNode);
        QCOMPARE(tree.NameOf(tree.LastChild(copy)), tree.FindName(QStringLiteral("target")));
        QCOMPARE(tree.Data(tree.LastChild(copy)), QStringLiteral("d"));
        QCOMPARE(tree.DocumentElement(), copy);
        QCOMPARE(tree.NameText(tree.FindName(QStringLiteral("zero"))), QStringLiteral("zero"));
    }

    void importsDeepNesting_data()
    {
        QTest::addColumn<bool>("sameTree");
        QTest::newRow("from another tree") << false;
        QTest::newRow("within the tree") << true;
    }

    void importsDeepNesting()
    {
        QFETCH(bool, sameTree);
        const int depth = 5000;
        CfgXmlTree source;
        Node parent = source.Document();
        for (int i = 0; i < depth; ++i) {
            const Node element = source.CreateElement(QStringLiteral("e%1").arg(i % 7));
            source.SetAttribute(element, QStringLiteral("level"), QString::number(i));
            source.Append(parent, element);
            parent = element;
        }
        source.Append(parent, source.CreateText(QStringLiteral("bottom")));

        CfgXmlTree other;
        CfgXmlTree& tree = sameTree ? source : other;
        const Node copy = tree.Import(source, source.DocumentElement());
        QVERIFY(copy != source.DocumentElement() || !sameTree);
        Node node = copy;
        const CfgXmlTree::Name level = tree.FindName(QStringLiteral("level"));
        for (int i = 0; i < depth; ++i) {
            QCOMPARE(tree.KindOf(node), CfgXmlTree::ElementNode);
            QCOMPARE(tree.NodeName(node), QStringLiteral("e%1").arg(i % 7));
            QCOMPARE(tree.Attribute(node, level), QString::number(i));
            if (i + 1 < depth) {
                QCOMPARE(tree.FirstChild(node), tree.LastChild(node));
                node = tree.FirstChild(node);
            }
        }
        QCOMPARE(tree.TextOf(node), QStringLiteral("bottom"));
        QCOMPARE(tree.FirstChild(tree.FirstChild(node)), CfgXmlTree::NONE);
    }

    void compactionKeepsEveryOtherText()
    {
        CfgXmlTree tree;
        tree.SetDocumentTypeText(QStringLiteral("<!DOCTYPE cfg>\n"));
        const Node declaration =
            tree.CreateProcessingInstruction(QStringLiteral("xml"), QStringLiteral("version='1.0'"));
        tree.Append(tree.Document(), declaration);
        const Node root = tree.CreateElement(QStringLiteral("Cfg"));
        tree.Append(tree.Document(), root);
        tree.SetAttribute(root, QStringLiteral("version"), QStringLiteral("2.3"));
        tree.SetAttribute(root, QStringLiteral("gone"), QStringLiteral("removed before"));
        tree.SetAttribute(root, QStringLiteral("ts"), QStringLiteral("1700000000"));
        tree.SetAttribute(root, QStringLiteral("ts"), QStringLiteral("17")); // in place, shorter
        tree.RemoveAttribute(root, tree.FindName(QStringLiteral("gone")));
        const Node value = tree.CreateElement(QStringLiteral("Value"));
        tree.Append(root, value);
        tree.SetAttribute(value, QStringLiteral("type"), QStringLiteral("string"));
        const Node text = tree.CreateText(QStringLiteral("first"));
        tree.Append(value, text);
        tree.SetData(text, QStringLiteral("a longer text")); // moved once
        const Node comment = tree.CreateComment(QStringLiteral(" note "));
        tree.Append(root, comment);
        const Node cdata = tree.CreateCData(QStringLiteral("<raw>"));
        tree.Append(root, cdata);
        const Node unlinked = tree.CreateText(QStringLiteral("kept aside"));
        const Node empty = tree.CreateText(QString());
        tree.Append(root, empty);
        const Node churning = tree.CreateElement(QStringLiteral("Churn"));
        tree.Append(root, churning);
        const Node churn = tree.CreateText(QStringLiteral("c"));
        tree.Append(churning, churn);
        const CfgXmlTree::Name counter = tree.Intern(QStringLiteral("counter"));

        int compactions = 0;
        quint32 largest = 0;
        quint32 previous = tree.PoolSize();
        // Counts the edits after which the pool is smaller than before.
        const auto watch = [&](bool changed) {
            if (tree.PoolSize() < previous)
                ++compactions;
            previous = tree.PoolSize();
            largest = qMax(largest, previous);
            return changed;
        };
        QString last;
        for (int i = 0; i < 400; ++i) {
            QVERIFY(watch(tree.SetData(churn, QStringLiteral("s"))));
            last = QString(1000 + i, QLatin1Char('a' + i % 26));
            QVERIFY(watch(tree.SetData(churn, last)));
            QVERIFY(watch(tree.SetAttribute(churning, counter, QString(600 + i, QLatin1Char('0' + i % 10)))));
            QVERIFY(watch(tree.SetAttribute(churning, counter, QString::number(i))));
        }
        QVERIFY2(compactions >= 2, qPrintable(QString::number(compactions)));
        // Without compaction the pool would hold every text ever written: more than 640000 units.
        QVERIFY2(largest < 300000, qPrintable(QString::number(largest)));

        QCOMPARE(tree.Data(churn), last);
        QCOMPARE(tree.Attribute(churning, counter), QStringLiteral("399"));
        QCOMPARE(tree.Data(declaration), QStringLiteral("version='1.0'"));
        QCOMPARE(AttributesOf(tree, root),
                 QStringList({QStringLiteral("ts=17"), QStringLiteral("version=2.3")}));
        QCOMPARE(AttributesOf(tree, value), QStringList({QStringLiteral("type=string")}));
        QCOMPARE(tree.Data(text), QStringLiteral("a longer text"));
        QCOMPARE(tree.Data(comment), QStringLiteral(" note "));
        QCOMPARE(tree.Data(cdata), QStringLiteral("<raw>"));
        QCOMPARE(tree.Data(unlinked), QStringLiteral("kept aside"));
        QCOMPARE(tree.Data(empty), QString());
        QCOMPARE(tree.DocumentTypeText(), QStringLiteral("<!DOCTYPE cfg>\n"));
        QCOMPARE(Forward(tree, root), QStringLiteral("Value #comment #cdata-section #text Churn"));
        // Edits after a compaction still go in place or to the end.
        QVERIFY(tree.SetData(text, QStringLiteral("short")));
        QVERIFY(tree.SetData(comment, QStringLiteral(" a much longer note than before ")));
        QCOMPARE(tree.Data(text), QStringLiteral("short"));
        QCOMPARE(tree.Data(comment), QStringLiteral(" a much longer note than before "));
        QCOMPARE(tree.Data(cdata), QStringLiteral("<raw>"));
    }

    void randomEditsMatchQtsDomUnderTheSameEdits()
    {
        // Every edit is made to a tree and to Qt's DOM alike; texts long
        // enough that the pool compacts many times on the way.
        QRandomGenerator random(20261123);
        CfgXmlTree tree;
        QDomDocument document;
        std::vector<Node> nodes{tree.CreateElement(QStringLiteral("Cfg"))};
        std::vector<QDomNode> domNodes{document.createElement(QStringLiteral("Cfg"))};
        const Node root = nodes[0];
        tree.Append(tree.Document(), root);
        document.appendChild(domNodes[0]);
        const QStringList names{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("ts"),
                                QStringLiteral("type")};
        const auto text = [&random]() {
            const int length = random.bounded(8) == 0 ? random.bounded(3000) : random.bounded(12);
            return QString(length, QLatin1Char('a' + random.bounded(26)));
        };
        // A node in the document, or one not linked anywhere.
        const auto pick = [&](bool linked, bool element) {
            for (;;) {
                const size_t i = random.bounded(quint32(nodes.size()));
                const bool fits =
                    linked ? IsUnder(tree, nodes[i], root) : tree.Parent(nodes[i]) == CfgXmlTree::NONE;
                if (fits && (!element || tree.IsElement(nodes[i])))
                    return i;
            }
        };
        int compactions = 0;
        for (int step = 0; step < 20000; ++step) {
            const quint32 poolBefore = tree.PoolSize();
            const bool anyUnlinked = std::any_of(nodes.begin(), nodes.end(),
                                                 [&](Node n) { return tree.Parent(n) == CfgXmlTree::NONE; });
            switch (random.bounded(12)) {
            case 0: // a new element or text, at the end or before a child
            case 1: {
                const size_t parent = pick(true, true);
                if (random.bounded(2) == 0) {
                    const QString name = names.at(random.bounded(names.size()));
                    nodes.push_back(tree.CreateElement(name));
                    domNodes.push_back(document.createElement(name));
                } else {
                    const QString data = text();
                    nodes.push_back(tree.CreateText(data));
                    domNodes.push_back(document.createTextNode(data));
                }
                // At the end, or before a child chosen at random.
                const int count = domNodes[parent].childNodes().count();
                const int at = random.bounded(count + 1);
                if (at == count) {
                    tree.Append(nodes[parent], nodes.back());
                    domNodes[parent].appendChild(domNodes.back());
                } else {
                    Node before = tree.FirstChild(nodes[parent]);
                    for (int k = 0; k < at; ++k)
                        before = tree.NextSibling(before);
                    tree.InsertBefore(nodes[parent], nodes.back(), before);
                    domNodes[parent].insertBefore(domNodes.back(), domNodes[parent].childNodes().at(at));
                }
                break;
            }
            case 2: { // unlink
                if (nodes.size() < 2)
                    break;
                const size_t i = pick(true, false);
                if (nodes[i] == root)
                    break;
                tree.Unlink(nodes[i]);
                domNodes[i].parentNode().removeChild(domNodes[i]);
                break;
            }
            case 3: { // replace a linked node with an unlinked one
                if (!anyUnlinked)
                    break;
                const size_t old = pick(true, false);
                if (nodes[old] == root)
                    break;
                const size_t replacement = pick(false, false);
                tree.Replace(nodes[old], nodes[replacement]);
                domNodes[old].parentNode().replaceChild(domNodes[replacement], domNodes[old]);
                break;
            }
            case 4: { // link an unlinked node again
                if (!anyUnlinked)
                    break;
                const size_t i = pick(false, false);
                const size_t parent = pick(true, true);
                tree.Append(nodes[parent], nodes[i]);
                domNodes[parent].appendChild(domNodes[i]);
                break;
            }
            case 5: // change a text, linked or not
            case 6:
            case 7:
            case 8:
            case 9: {
                std::vector<size_t> texts;
                for (size_t i = 0; i < nodes.size(); ++i) {
                    if (tree.KindOf(nodes[i]) == CfgXmlTree::TextNode)
                        texts.push_back(i);
                }
                if (texts.empty())
                    break;
                const size_t i = texts[random.bounded(quint32(texts.size()))];
                const QString data = text();
                QCOMPARE(tree.SetData(nodes[i], data), domNodes[i].nodeValue() != data);
                domNodes[i].setNodeValue(data);
                break;
            }
            case 10: { // set an attribute, on an element linked or not
                size_t i = random.bounded(quint32(nodes.size()));
                while (!tree.IsElement(nodes[i]))
                    i = random.bounded(quint32(nodes.size()));
                const QString name = names.at(random.bounded(names.size()));
                const QString value = text();
                QDomElement element = domNodes[i].toElement();
                const bool changes = !element.hasAttribute(name) || element.attribute(name) != value;
                QCOMPARE(tree.SetAttribute(nodes[i], name, value), changes);
                element.setAttribute(name, value);
                break;
            }
            case 11: { // remove an attribute
                const size_t i = pick(true, true);
                const QString name = names.at(random.bounded(names.size()));
                QDomElement element = domNodes[i].toElement();
                QCOMPARE(tree.RemoveAttribute(nodes[i], tree.Intern(name)), element.hasAttribute(name));
                element.removeAttribute(name);
                break;
            }
            }
            if (tree.PoolSize() < poolBefore)
                ++compactions;
            if (step % 2000 == 1999) {
                // The links both ways, the document and every sub-tree not linked anywhere.
                for (const Node node : nodes) {
                    QStringList backward = Backward(tree, node).split(QLatin1Char(' '));
                    std::reverse(backward.begin(), backward.end());
                    QCOMPARE(backward.join(QLatin1Char(' ')), Forward(tree, node));
                    QVERIFY(ParentsAre(tree, node));
                }
                for (size_t i = 0; i < nodes.size(); ++i) {
                    if (nodes[i] != root && tree.Parent(nodes[i]) != CfgXmlTree::NONE)
                        continue;
                    QStringList byTree;
                    QStringList byQt;
                    Describe(tree, nodes[i], 0, byTree);
                    Describe(domNodes[i], 0, byQt);
                    QCOMPARE(byTree, byQt);
                }
            }
        }
        QVERIFY2(compactions >= 2, qPrintable(QString::number(compactions)));
    }

    void takesEveryNodeKindFromQtsDom()
    {
        QDomDocument document;
        QVERIFY(
            document.setContent(QByteArray("<?xml version='1.0' encoding='utf-8'?>\n"
                                           "<!DOCTYPE cfg PUBLIC \"-//Zent//Cfg//EN\" \"cfg.dtd\">\n"
                                           "<Cfg a='1' b='x&amp;y'><!--c--><?pi data?>text<![CDATA[<raw>]]>"
                                           "<E/></Cfg><!--after-->")));
        CfgXmlTree tree;
        tree.Append(tree.Document(), tree.CreateElement(QStringLiteral("Replaced")));
        CfgXmlTree::FromDom(document, tree);
        QCOMPARE(tree.DocumentTypeText(),
                 QStringLiteral("<!DOCTYPE cfg PUBLIC '-//Zent//Cfg//EN' 'cfg.dtd'>\n"));
        QVERIFY(document.toString(4).contains(tree.DocumentTypeText()));
        QCOMPARE(tree.FindName(QStringLiteral("Replaced")), CfgXmlTree::NO_NAME);
        QCOMPARE(Forward(tree, tree.Document()), QStringLiteral("xml Cfg #comment"));
        const Node declaration = tree.FirstChild(tree.Document());
        QCOMPARE(tree.KindOf(declaration), CfgXmlTree::ProcessingInstructionNode);
        QCOMPARE(tree.Data(declaration), QStringLiteral("version='1.0' encoding='utf-8'"));
        const Node root = tree.DocumentElement();
        QCOMPARE(tree.NodeName(root), QStringLiteral("Cfg"));
        QCOMPARE(AttributesOf(tree, root), QStringList({QStringLiteral("a=1"), QStringLiteral("b=x&y")}));
        QCOMPARE(Forward(tree, root), QStringLiteral("#comment pi #text #cdata-section E"));
        QCOMPARE(Backward(tree, root), QStringLiteral("E #cdata-section #text pi #comment"));
        QVERIFY(ParentsAre(tree, root));
        Node node = tree.FirstChild(root);
        QCOMPARE(tree.KindOf(node), CfgXmlTree::CommentNode);
        QCOMPARE(tree.Data(node), QStringLiteral("c"));
        node = tree.NextSibling(node);
        QCOMPARE(tree.KindOf(node), CfgXmlTree::ProcessingInstructionNode);
        QCOMPARE(tree.Data(node), QStringLiteral("data"));
        node = tree.NextSibling(node);
        QCOMPARE(tree.KindOf(node), CfgXmlTree::TextNode);
        QCOMPARE(tree.Data(node), QStringLiteral("text"));
        node = tree.NextSibling(node);
        QCOMPARE(tree.KindOf(node), CfgXmlTree::CDataNode);
        QCOMPARE(tree.Data(node), QStringLiteral("<raw>"));
        node = tree.NextSibling(node);
        QCOMPARE(tree.KindOf(node), CfgXmlTree::ElementNode);
        QVERIFY(!tree.HasChildren(node));
        const Node after = tree.LastChild(tree.Document());
        QCOMPARE(tree.KindOf(after), CfgXmlTree::CommentNode);
        QCOMPARE(tree.Data(after), QStringLiteral("after"));
    }

    void keepsOtherDomNodesAsQtWritesThem()
    {
        QDomDocument document;
        QDomElement root = document.createElement(QStringLiteral("Cfg"));
        document.appendChild(root);
        root.appendChild(document.createTextNode(QStringLiteral("a")));
        root.appendChild(document.createEntityReference(QStringLiteral("e")));
        CfgXmlTree tree;
        CfgXmlTree::FromDom(document, tree);
        const Node reference = tree.LastChild(tree.DocumentElement());
        QCOMPARE(tree.KindOf(reference), CfgXmlTree::VerbatimNode);
        QCOMPARE(tree.Data(reference), QStringLiteral("&e;"));
        QCOMPARE(tree.DocumentTypeText(), QString());
    }

    void documentTypeTextIsWhatQtWrites()
    {
        QDomDocument document(
            QDomImplementation().createDocumentType(QStringLiteral("cfg"), QString(), QString()));
        document.appendChild(document.createElement(QStringLiteral("Cfg")));
        CfgXmlTree tree;
        CfgXmlTree::FromDom(document, tree);
        QCOMPARE(tree.DocumentTypeText(), QStringLiteral("<!DOCTYPE cfg>\n"));
        QCOMPARE(document.toString(4), QStringLiteral("<!DOCTYPE cfg>\n<Cfg/>\n"));

        QDomDocument system(QDomImplementation().createDocumentType(QStringLiteral("cfg"), QString(),
                                                                    QStringLiteral("cfg.dtd")));
        system.appendChild(system.createElement(QStringLiteral("Cfg")));
        CfgXmlTree::FromDom(system, tree);
        QCOMPARE(tree.DocumentTypeText(), QStringLiteral("<!DOCTYPE cfg SYSTEM 'cfg.dtd'>\n"));
        QVERIFY(system.toString(4).startsWith(tree.DocumentTypeText()));
    }
};

QTEST_GUILESS_MAIN(TestCfgXmlTree)
#include "tst_cfgxmltree.moc"
