// Differential target of the configuration reader, document tree and writer.
// The same bytes go to CfgXmlReader::ReadPlain and to QDomDocument::setContent:
// whatever the reader reads, Qt's parser must accept and build into the same
// tree (node kinds, names, values, attributes, document type), which then
// saves to the same bytes. For every document Qt's parser accepts, its DOM
// taken over by CfgXmlTree::FromDom must save to the bytes of Qt's own writer
// with every element's attributes sorted. Inputs the reader declines take
// Qt's parser in the library, so their verdict and error text are Qt's by
// construction. Copies of a tree, made within it and into another, save the
// same.

#include "common/xmltreedescription.h"
#include "configuration/cfgxmlreader_p.h"
#include "configuration/cfgxmltree_p.h"
#include "configuration/cfgxmlwriter_p.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDomDocument>
#include <QDomNamedNodeMap>
#include <QStringList>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

const int MAX_NESTING = 1000;
const int INDENT = 4;

// The writer as it was: Qt's bytes, then each start tag's attributes sorted
// as the bytes ` name="value"`.
// The end of the markup that starts at `from` and ends with `terminator`;
// the end of the bytes when the terminator is missing.
int EndOf(const QByteArray& bytes, int from, const char* terminator)
{
    const int end = bytes.indexOf(terminator, from);
    return end < 0 ? bytes.size() : end + int(qstrlen(terminator));
}

bool StartsWithAt(const QByteArray& bytes, int at, const char* text)
{
    const int length = int(qstrlen(text));
    return bytes.size() - at >= length && memcmp(bytes.constData() + at, text, size_t(length)) == 0;
}

// Appends the start tag at bytes[from, end) with its attributes sorted by
// name. The DOM writes every attribute as ` name="value"` with quotes inside
// values escaped, which is all this needs to know. `attributes` is scratch
// space, kept by the caller so that tags do not allocate.
void AppendSortedTag(const QByteArray& bytes, int from, int end, std::vector<std::string_view>& attributes,
                     QByteArray& out)
{
    const char* data = bytes.constData();
    int i = from + 1;
    while (i < end && data[i] != ' ' && data[i] != '>' && data[i] != '/')
        ++i;
    attributes.clear();
    int rest = i;
    while (rest < end && data[rest] == ' ') {
        const int equals = bytes.indexOf("=\"", rest);
        const int close = equals < 0 ? -1 : bytes.indexOf('"', equals + 2);
        if (close < 0 || close >= end)
            break;
        attributes.emplace_back(data + rest, size_t(close + 1 - rest));
        rest = close + 1;
    }
    if (attributes.size() < 2) {
        out.append(data + from, end - from);
        return;
    }
    std::sort(attributes.begin(), attributes.end());
    out.append(data + from, i - from);
    for (const std::string_view attribute : attributes)
        out.append(attribute.data(), int(attribute.size()));
    out.append(data + rest, end - rest);
}

// The end of the document type at `from`: its literals may hold '>' and
// markup, and its internal subset declarations ending in '>'. Nothing in it
// is a start tag to sort.
int EndOfDocumentType(const QByteArray& bytes, int from)
{
    char quote = 0;
    int depth = 0;
    for (int i = from + 2; i < bytes.size(); ++i) {
        const char c = bytes.at(i);
        if (quote) {
            quote = c == quote ? 0 : quote;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '[') {
            ++depth;
        } else if (c == ']') {
            --depth;
        } else if (c == '>' && depth <= 0) {
            return i + 1;
        }
    }
    return bytes.size();
}

// Qt writes an element's attributes in the order of a hash that it seeds per
// process, so the same document could be saved differently by two
// processes. Sorted by name, the saved bytes depend on the content alone.
QByteArray WithSortedAttributes(const QByteArray& bytes)
{
    QByteArray out;
    out.reserve(bytes.size());
    std::vector<std::string_view> attributes;
    const char* data = bytes.constData();
    int i = 0;
    while (i < bytes.size()) {
        const int open = bytes.indexOf('<', i);
        if (open < 0) {
            out.append(data + i, bytes.size() - i);
            break;
        }
        out.append(data + i, open - i);
        int end;
        if (StartsWithAt(bytes, open, "<!--")) {
            end = EndOf(bytes, open + 4, "-->");
        } else if (StartsWithAt(bytes, open, "<![CDATA[")) {
            end = EndOf(bytes, open + 9, "]]>");
        } else if (StartsWithAt(bytes, open, "<?")) {
            end = EndOf(bytes, open + 2, "?>");
        } else if (StartsWithAt(bytes, open, "<!DOCTYPE")) {
            end = EndOfDocumentType(bytes, open);
        } else if (StartsWithAt(bytes, open, "<!") || StartsWithAt(bytes, open, "</")) {
            end = EndOf(bytes, open + 2, ">");
        } else {
            // Quotes inside values are escaped, so a '>' between quotes
            // belongs to a value and the first one outside ends the tag.
            end = open + 1;
            bool quoted = false;
            while (end < bytes.size() && (quoted || data[end] != '>')) {
                if (data[end] == '"')
                    quoted = !quoted;
                ++end;
            }
            end = qMin(end + 1, bytes.size());
            AppendSortedTag(bytes, open, end, attributes, out);
            i = end;
            continue;
        }
        out.append(data + open, end - open);
        i = end;
    }
    return out;
}

QByteArray ReferenceBytes(const QDomDocument& document)
{
    return WithSortedAttributes(document.toByteArray(INDENT));
}

using XmlTreeDescription::Describe;

// A tree copied node by node into a tree of its own, and then with its root
// replaced by a copy made within that tree, saves to the same bytes.
bool CopiesSaveTheSame(const CfgXmlTree& tree, const QByteArray& expected)
{
    CfgXmlTree copy;
    copy.SetDocumentTypeText(tree.DocumentTypeText());
    for (CfgXmlTree::Node node = tree.FirstChild(tree.Document()); node != CfgXmlTree::NONE;
         node = tree.NextSibling(node))
        copy.Append(copy.Document(), copy.Import(tree, node));
    if (CfgXmlWriter::Serialise(copy, INDENT) != expected)
        return false;
    const CfgXmlTree::Node root = copy.DocumentElement();
    if (root == CfgXmlTree::NONE)
        return true;
    copy.Replace(root, copy.Import(copy, root));
    return CfgXmlWriter::Serialise(copy, INDENT) == expected;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static int argc = 1;
    static char name[] = "fuzz_cfgxmlreader";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);

    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<int>(size));
    QDomDocument byQt;
    const bool qtAccepts = byQt.setContent(bytes);
    QByteArray reference;
    if (qtAccepts) {
        reference = ReferenceBytes(byQt);
        CfgXmlTree converted;
        CfgXmlTree::FromDom(byQt, converted);
        if (CfgXmlWriter::Serialise(converted, INDENT) != reference ||
            !CopiesSaveTheSame(converted, reference))
            std::abort();
    }

    CfgXmlTree byReader;
    if (!CfgXmlReader::ReadPlain(bytes, MAX_NESTING, byReader))
        return 0;
    if (!qtAccepts || Describe(byReader) != Describe(byQt))
        std::abort();
    if (CfgXmlWriter::Serialise(byReader, INDENT) != reference)
        std::abort();
    return 0;
}
