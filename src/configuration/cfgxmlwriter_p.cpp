#include "configuration/cfgxmlwriter_p.h"

#include <QRegularExpression>
#include <QTextCodec>

#include <algorithm>
#include <vector>

// Writes the characters QDomDocument::toString writes for the same tree: the
// DOM's layout and escaping rules, node by node. Asking the codec whether it
// can encode each character is what made Qt's writer slow; UTF-8 can encode
// every QChar, so only other declared encodings ask.

namespace {

struct Writer
{
    QString out;
    int indent = 0;
    const QTextCodec* codec = nullptr; // null: UTF-8, every character encodable

    void Indent(int depth)
    {
        if (indent > 0)
            out.append(QString(depth * indent, QLatin1Char(' ')));
    }

    void EndLine()
    {
        if (indent != -1)
            out.append(QLatin1Char('\n'));
    }

    void AppendReference(QChar c)
    {
        out.append(QLatin1String("&#x"));
        out.append(QString::number(c.unicode(), 16));
        out.append(QLatin1Char(';'));
    }

    // Qt's escaping of text and attribute values.
    void AppendEncoded(const QChar* data, int size, bool quotes, bool whitespaceAsReferences,
                       bool carriageReturns)
    {
        int plain = 0; // start of the run not yet appended
        for (int i = 0; i < size; ++i) {
            const char16_t c = data[i].unicode();
            const char* replacement = nullptr;
            if (c == '<')
                replacement = "&lt;";
            else if (c == '"' && quotes)
                replacement = "&quot;";
            else if (c == '&')
                replacement = "&amp;";
            else if (c == '>' && i >= 2 && data[i - 1] == QLatin1Char(']') && data[i - 2] == QLatin1Char(']'))
                replacement = "&gt;";
            else if (c == '\n' || c == '\r' || c == '\t') {
                if (!whitespaceAsReferences && !(carriageReturns && c == '\r'))
                    continue;
                replacement = c == '\n' ? "&#xa;" : c == '\r' ? "&#xd;" : "&#x9;";
            } else if (!codec || codec->canEncode(data[i])) {
                continue;
            } else {
                out.append(data + plain, i - plain);
                AppendReference(data[i]);
                plain = i + 1;
                continue;
            }
            out.append(data + plain, i - plain);
            out.append(QLatin1String(replacement));
            plain = i + 1;
        }
        out.append(data + plain, size - plain);
    }

    const CfgXmlTree* tree = nullptr;
    const std::vector<CfgXmlTree::Node>* leftOut = nullptr;
    std::vector<CfgXmlTree::AttributeRef> refs;

    bool IsText(CfgXmlTree::Node node) const { return tree->IsText(node); } // CDATA sections too

    // The tree as it would be without the nodes left out.
    bool IsLeftOut(CfgXmlTree::Node node) const
    {
        return node != CfgXmlTree::NONE && !leftOut->empty() &&
               std::find(leftOut->begin(), leftOut->end(), node) != leftOut->end();
    }
    CfgXmlTree::Node Next(CfgXmlTree::Node node) const
    {
        do
            node = tree->NextSibling(node);
        while (IsLeftOut(node));
        return node;
    }
    CfgXmlTree::Node Previous(CfgXmlTree::Node node) const
    {
        do
            node = tree->PreviousSibling(node);
        while (IsLeftOut(node));
        return node;
    }
    CfgXmlTree::Node First(CfgXmlTree::Node parent) const
    {
        const CfgXmlTree::Node first = tree->FirstChild(parent);
        return IsLeftOut(first) ? Next(first) : first;
    }
    CfgXmlTree::Node Last(CfgXmlTree::Node parent) const
    {
        const CfgXmlTree::Node last = tree->LastChild(parent);
        return IsLeftOut(last) ? Previous(last) : last;
    }

    void AppendEncoded(const QString& text, bool quotes, bool whitespaceAsReferences, bool carriageReturns)
    {
        AppendEncoded(text.constData(), text.size(), quotes, whitespaceAsReferences, carriageReturns);
    }

    static QByteArray SortKey(const QString& name) { return name.toUtf8() + '='; }

    // Sorted as the bytes ` name="value"`; names differ, so the name and
    // its '=' decide. Plain ASCII names compare without converting.
    static bool AttributeLess(const QString& a, const QString& b)
    {
        const int shorter = qMin(a.size(), b.size());
        for (int i = 0; i <= shorter; ++i) {
            const char16_t ca = i < a.size() ? a.at(i).unicode() : u'=';
            const char16_t cb = i < b.size() ? b.at(i).unicode() : u'=';
            if (ca >= 0x80 || cb >= 0x80)
                return SortKey(a) < SortKey(b);
            if (ca != cb)
                return ca < cb;
        }
        return false;
    }

    void WriteAttributes(CfgXmlTree::Node element)
    {
        tree->Attributes(element, refs);
        if (refs.empty())
            return;
        if (refs.size() > 1)
            std::sort(refs.begin(), refs.end(), [this](const auto& a, const auto& b) {
                return AttributeLess(tree->NameText(a.name), tree->NameText(b.name));
            });
        for (const auto& attribute : refs) {
            out.append(QLatin1Char(' '));
            out.append(tree->NameText(attribute.name));
            out.append(QLatin1String("=\""));
            AppendEncoded(tree->Chars(attribute.offset), int(attribute.length), true, true, false);
            out.append(QLatin1Char('"'));
        }
    }

    void WriteElement(CfgXmlTree::Node element, int depth)
    {
        if (!IsText(Previous(element)))
            Indent(depth);
        const QString& name = tree->NodeName(element);
        out.append(QLatin1Char('<'));
        out.append(name);
        WriteAttributes(element);
        const CfgXmlTree::Node first = First(element);
        if (first == CfgXmlTree::NONE) {
            out.append(QLatin1String("/>"));
        } else {
            out.append(QLatin1Char('>'));
            if (!IsText(first))
                EndLine();
            WriteChildren(element, depth + 1);
            if (!IsText(Last(element)))
                Indent(depth);
            out.append(QLatin1String("</"));
            out.append(name);
            out.append(QLatin1Char('>'));
        }
        if (!IsText(Next(element)))
            EndLine();
    }

    void WriteComment(CfgXmlTree::Node comment, int depth)
    {
        if (!IsText(Previous(comment)))
            Indent(depth);
        const QString value = tree->Data(comment);
        out.append(QLatin1String("<!--"));
        out.append(value);
        // A comment must not end in "--->".
        if (value.endsWith(QLatin1Char('-')))
            out.append(QLatin1Char(' '));
        out.append(QLatin1String("-->"));
        if (!IsText(Next(comment)))
            out.append(QLatin1Char('\n'));
    }

    void WriteNode(CfgXmlTree::Node node, int depth)
    {
        switch (tree->KindOf(node)) {
        case CfgXmlTree::ElementNode:
            WriteElement(node, depth);
            break;
        case CfgXmlTree::TextNode:
            AppendEncoded(tree->Data(node), !tree->IsElement(tree->Parent(node)), false, true);
            break;
        case CfgXmlTree::CDataNode:
            out.append(QLatin1String("<![CDATA["));
            out.append(tree->Data(node));
            out.append(QLatin1String("]]>"));
            break;
        case CfgXmlTree::CommentNode:
            WriteComment(node, depth);
            break;
        case CfgXmlTree::ProcessingInstructionNode:
            out.append(QLatin1String("<?"));
            out.append(tree->NodeName(node));
            out.append(QLatin1Char(' '));
            out.append(tree->Data(node));
            out.append(QLatin1String("?>\n"));
            break;
        default: // verbatim: the text Qt writes for it, whatever the depth
            out.append(tree->Data(node));
            break;
        }
    }

    void WriteChildren(CfgXmlTree::Node parent, int depth)
    {
        for (CfgXmlTree::Node child = First(parent); child != CfgXmlTree::NONE; child = Next(child))
            WriteNode(child, depth);
    }
};

bool IsDeclaration(const CfgXmlTree& tree, CfgXmlTree::Node node)
{
    return node != CfgXmlTree::NONE && tree.KindOf(node) == CfgXmlTree::ProcessingInstructionNode &&
           tree.NodeName(node) == QLatin1String("xml");
}

// The codec Qt's writer takes from the declaration, UTF-8 when none names one.
const QTextCodec* DeclaredCodec(const CfgXmlTree& tree)
{
    const CfgXmlTree::Node first = tree.FirstChild(tree.Document());
    if (!IsDeclaration(tree, first))
        return nullptr;
    static const QRegularExpression encoding(QStringLiteral("encoding\\s*=\\s*((\"([^\"]*)\")|('([^']*)'))"));
    const QRegularExpressionMatch match = encoding.match(tree.Data(first));
    QString name = match.captured(3);
    if (name.isEmpty())
        name = match.captured(5);
    if (name.isEmpty())
        return nullptr;
    const QTextCodec* codec = QTextCodec::codecForName(name.toLatin1());
    return codec && codec->mibEnum() != 106 ? codec : nullptr;
}

} // namespace

QByteArray CfgXmlWriter::Serialise(const CfgXmlTree& tree, int indent,
                                   const std::vector<CfgXmlTree::Node>& leftOut)
{
    Writer writer;
    writer.tree = &tree;
    writer.leftOut = &leftOut;
    writer.indent = indent;
    writer.codec = DeclaredCodec(tree);
    // The document type follows the declaration, before the first other node.
    bool typeWritten = false;
    for (CfgXmlTree::Node node = writer.First(tree.Document()); node != CfgXmlTree::NONE;
         node = writer.Next(node)) {
        if (!typeWritten && !IsDeclaration(tree, node)) {
            writer.out.append(tree.DocumentTypeText());
            typeWritten = true;
        }
        writer.WriteNode(node, 0);
    }
    return writer.out.toUtf8();
}
