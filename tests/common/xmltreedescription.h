#ifndef TESTS_COMMON_XMLTREEDESCRIPTION_H
#define TESTS_COMMON_XMLTREEDESCRIPTION_H

// A document as lines, one per node, for Qt's DOM and for CfgXmlTree alike,
// so that tests and the differential fuzz target compare the two trees.

#include "configuration/cfgxmltree_p.h"

#include <QDomDocument>
#include <QDomNamedNodeMap>
#include <QStringList>

#include <vector>

namespace XmlTreeDescription {

/// One line per node: kind (QDomNode's numbers), name, value and the
/// attributes sorted by name.
inline QString Line(int depth, int kind, const QString& name, const QString& value, QStringList pairs)
{
    QString line = QString(depth * 2, QLatin1Char(' ')) + QString::number(kind) + QLatin1Char(' ') + name +
                   QStringLiteral(" [") + value + QLatin1Char(']');
    pairs.sort();
    for (const QString& pair : pairs)
        line += QLatin1Char(' ') + pair;
    return line;
}

inline void Describe(const QDomNode& parent, int depth, QStringList& lines)
{
    for (QDomNode node = parent.firstChild(); !node.isNull(); node = node.nextSibling()) {
        const QDomNamedNodeMap attributes = node.attributes();
        QStringList pairs;
        for (int i = 0; i < attributes.count(); ++i)
            pairs << attributes.item(i).nodeName() + QLatin1Char('=') + attributes.item(i).nodeValue();
        lines << Line(depth, node.nodeType(), node.nodeName(), node.nodeValue(), pairs);
        Describe(node, depth + 1, lines);
    }
}

inline QStringList Describe(const QDomDocument& document)
{
    QStringList lines{QStringLiteral("doctype [") + document.doctype().name() + QLatin1Char(']')};
    Describe(document, 0, lines);
    return lines;
}

inline int DomKind(CfgXmlTree::Kind kind)
{
    switch (kind) {
    case CfgXmlTree::ElementNode:
        return QDomNode::ElementNode;
    case CfgXmlTree::TextNode:
        return QDomNode::TextNode;
    case CfgXmlTree::CDataNode:
        return QDomNode::CDATASectionNode;
    case CfgXmlTree::CommentNode:
        return QDomNode::CommentNode;
    case CfgXmlTree::ProcessingInstructionNode:
        return QDomNode::ProcessingInstructionNode;
    default:
        return 0; // no DOM kind of its own
    }
}

/// The name in the text Qt writes for a document type: "<!DOCTYPE cfg>\n".
inline QString DocumentTypeName(const QString& text)
{
    const QString prefix = QStringLiteral("<!DOCTYPE ");
    if (!text.startsWith(prefix))
        return QString();
    int end = prefix.size();
    while (end < text.size() && text.at(end) != QLatin1Char(' ') && text.at(end) != QLatin1Char('>'))
        ++end;
    return text.mid(prefix.size(), end - prefix.size());
}

inline void Describe(const CfgXmlTree& tree, CfgXmlTree::Node parent, int depth, QStringList& lines)
{
    std::vector<CfgXmlTree::AttributeRef> attributes;
    for (CfgXmlTree::Node node = tree.FirstChild(parent); node != CfgXmlTree::NONE;
         node = tree.NextSibling(node)) {
        QStringList pairs;
        if (tree.IsElement(node)) {
            tree.Attributes(node, attributes);
            for (const CfgXmlTree::AttributeRef& attribute : attributes)
                pairs << tree.NameText(attribute.name) + QLatin1Char('=') +
                             QString(tree.Chars(attribute.offset), int(attribute.length));
        }
        lines << Line(depth, DomKind(tree.KindOf(node)), tree.NodeName(node), tree.Data(node), pairs);
        Describe(tree, node, depth + 1, lines);
    }
}

inline QStringList Describe(const CfgXmlTree& tree)
{
    QStringList lines{QStringLiteral("doctype [") + DocumentTypeName(tree.DocumentTypeText()) +
                      QLatin1Char(']')};
    Describe(tree, tree.Document(), 0, lines);
    return lines;
}

} // namespace XmlTreeDescription

#endif
