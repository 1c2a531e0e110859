#include "configuration/cfgxmlwriter_p.h"

#include <QDomNamedNodeMap>
#include <QRegularExpression>
#include <QTextCodec>
#include <QTextStream>

#include <algorithm>
#include <vector>

// Writes the same characters as QDomDocument::toString: the DOM's layout and
// escaping rules, node by node. Asking the codec whether it can encode each
// character is what made Qt's writer slow; UTF-8 can encode every QChar, so
// only other declared encodings ask.

namespace {

struct Writer
{
    QString out;
    int indent = 0;
    const QTextCodec* codec = nullptr; // null: UTF-8, every character encodable
    std::vector<std::pair<QString, QString>> attributes;

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
    void AppendEncoded(const QString& text, bool quotes, bool whitespaceAsReferences, bool carriageReturns)
    {
        const QChar* data = text.constData();
        const int size = text.size();
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

    static bool IsText(const QDomNode& node) { return node.isText(); } // CDATA sections too

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

    void WriteAttributes(const QDomElement& element)
    {
        const QDomNamedNodeMap map = element.attributes();
        const int count = map.count();
        if (count == 0)
            return;
        attributes.clear();
        for (int i = 0; i < count; ++i) {
            const QDomAttr attribute = map.item(i).toAttr();
            attributes.emplace_back(attribute.name(), attribute.value());
        }
        if (attributes.size() > 1)
            std::sort(attributes.begin(), attributes.end(),
                      [](const auto& a, const auto& b) { return AttributeLess(a.first, b.first); });
        for (const auto& attribute : attributes) {
            out.append(QLatin1Char(' '));
            out.append(attribute.first);
            out.append(QLatin1String("=\""));
            AppendEncoded(attribute.second, true, true, false);
            out.append(QLatin1Char('"'));
        }
    }

    void WriteElement(const QDomElement& element, int depth)
    {
        if (!IsText(element.previousSibling()))
            Indent(depth);
        const QString name = element.tagName();
        out.append(QLatin1Char('<'));
        out.append(name);
        WriteAttributes(element);
        const QDomNode first = element.firstChild();
        if (first.isNull()) {
            out.append(QLatin1String("/>"));
        } else {
            out.append(QLatin1Char('>'));
            if (!IsText(first))
                EndLine();
            WriteChildren(element, depth + 1);
            if (!IsText(element.lastChild()))
                Indent(depth);
            out.append(QLatin1String("</"));
            out.append(name);
            out.append(QLatin1Char('>'));
        }
        if (!IsText(element.nextSibling()))
            EndLine();
    }

    void WriteComment(const QDomComment& comment, int depth)
    {
        if (!IsText(comment.previousSibling()))
            Indent(depth);
        const QString value = comment.data();
        out.append(QLatin1String("<!--"));
        out.append(value);
        // A comment must not end in "--->".
        if (value.endsWith(QLatin1Char('-')))
            out.append(QLatin1Char(' '));
        out.append(QLatin1String("-->"));
        if (!IsText(comment.nextSibling()))
            out.append(QLatin1Char('\n'));
    }

    // Node kinds a configuration document rarely holds are written by Qt
    // itself: their output does not depend on the depth.
    void WriteByQt(const QDomNode& node)
    {
        QTextStream stream(&out, QIODevice::WriteOnly | QIODevice::Append);
        node.save(stream, indent);
    }

    void WriteNode(const QDomNode& node, int depth)
    {
        switch (node.nodeType()) {
        case QDomNode::ElementNode:
            WriteElement(node.toElement(), depth);
            break;
        case QDomNode::TextNode:
            AppendEncoded(node.toText().data(), !node.parentNode().isElement(), false, true);
            break;
        case QDomNode::CDATASectionNode:
            out.append(QLatin1String("<![CDATA["));
            out.append(node.toCDATASection().data());
            out.append(QLatin1String("]]>"));
            break;
        case QDomNode::CommentNode:
            WriteComment(node.toComment(), depth);
            break;
        case QDomNode::ProcessingInstructionNode: {
            const QDomProcessingInstruction instruction = node.toProcessingInstruction();
            out.append(QLatin1String("<?"));
            out.append(instruction.target());
            out.append(QLatin1Char(' '));
            out.append(instruction.data());
            out.append(QLatin1String("?>\n"));
            break;
        }
        default:
            WriteByQt(node);
            break;
        }
    }

    void WriteChildren(const QDomNode& parent, int depth)
    {
        for (QDomNode child = parent.firstChild(); !child.isNull(); child = child.nextSibling())
            WriteNode(child, depth);
    }
};

bool IsDeclaration(const QDomNode& node)
{
    return node.isProcessingInstruction() && node.nodeName() == QLatin1String("xml");
}

// The codec Qt's writer takes from the declaration, UTF-8 when none names one.
const QTextCodec* DeclaredCodec(const QDomDocument& document)
{
    const QDomNode first = document.firstChild();
    if (!IsDeclaration(first))
        return nullptr;
    static const QRegularExpression encoding(QStringLiteral("encoding\\s*=\\s*((\"([^\"]*)\")|('([^']*)'))"));
    const QRegularExpressionMatch match = encoding.match(first.nodeValue());
    QString name = match.captured(3);
    if (name.isEmpty())
        name = match.captured(5);
    if (name.isEmpty())
        return nullptr;
    const QTextCodec* codec = QTextCodec::codecForName(name.toLatin1());
    return codec && codec->mibEnum() != 106 ? codec : nullptr;
}

} // namespace

QByteArray CfgXmlWriter::Serialise(const QDomDocument& document, int indent)
{
    Writer writer;
    writer.indent = indent;
    writer.codec = DeclaredCodec(document);
    // The document type follows the declaration, before the first other node.
    bool typeWritten = false;
    for (QDomNode node = document.firstChild(); !node.isNull(); node = node.nextSibling()) {
        if (!typeWritten && !IsDeclaration(node)) {
            writer.WriteByQt(document.doctype());
            typeWritten = true;
        }
        writer.WriteNode(node, 0);
    }
    return writer.out.toUtf8();
}
