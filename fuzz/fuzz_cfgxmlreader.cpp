// Differential target of the configuration reader and writer. The same bytes
// go to CfgXmlReader::ReadPlain and to QDomDocument::setContent: whatever the
// reader reads, Qt's parser must accept and build into the same tree (node
// kinds, names, values, attributes, document type), which then saves to the
// same bytes. For every document Qt's parser accepts, CfgXmlWriter must write
// the bytes of Qt's own writer with every element's attributes sorted.
// Inputs the reader declines take Qt's parser in the library, so their
// verdict and error text are Qt's by construction.

#include "configuration/cfgxmlreader_p.h"
#include "configuration/cfgxmlwriter_p.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDomDocument>
#include <QDomNamedNodeMap>

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

bool SameTree(const QDomNode& a, const QDomNode& b)
{
    if (a.nodeType() != b.nodeType() || a.nodeName() != b.nodeName() || a.nodeValue() != b.nodeValue())
        return false;
    if (a.isElement()) {
        const QDomNamedNodeMap first = a.attributes();
        const QDomNamedNodeMap second = b.attributes();
        if (first.count() != second.count())
            return false;
        for (int i = 0; i < first.count(); ++i) {
            const QDomNode attribute = first.item(i);
            const QDomNode other = second.namedItem(attribute.nodeName());
            if (other.isNull() || other.nodeValue() != attribute.nodeValue())
                return false;
        }
    }
    QDomNode x = a.firstChild();
    QDomNode y = b.firstChild();
    for (; !x.isNull() && !y.isNull(); x = x.nextSibling(), y = y.nextSibling()) {
        if (!SameTree(x, y))
            return false;
    }
    return x.isNull() && y.isNull();
}

bool SameType(const QDomDocumentType& a, const QDomDocumentType& b)
{
    return a.name() == b.name() && a.publicId() == b.publicId() && a.systemId() == b.systemId() &&
           a.publicId().isNull() == b.publicId().isNull() && a.systemId().isNull() == b.systemId().isNull();
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
    if (qtAccepts && CfgXmlWriter::Serialise(byQt, INDENT) != ReferenceBytes(byQt))
        std::abort();

    QDomDocument byReader;
    if (!CfgXmlReader::ReadPlain(bytes, MAX_NESTING, byReader))
        return 0;
    if (!qtAccepts || !SameTree(byQt, byReader) || !SameType(byQt.doctype(), byReader.doctype()))
        std::abort();
    if (CfgXmlWriter::Serialise(byReader, INDENT) != ReferenceBytes(byQt))
        std::abort();
    return 0;
}
