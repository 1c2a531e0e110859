#include "configuration/cfgxmlreader_p.h"

#include <QDomImplementation>
#include <QString>

#include <cctype>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <vector>

// A strict reader for the documents this library writes and people edit: it
// accepts only what it can vouch for, so that every byte sequence it reads
// gives exactly the tree, and every one it declines gets exactly the verdict,
// of Qt's parser. Line-end and attribute-value normalisation, other encodings,
// entity declarations, CDATA sections and processing instructions are
// declined rather than imitated.

namespace {

bool IsSpace(char c)
{
    return c == ' ' || c == '\n' || c == '\t';
}

// Printable ASCII without references or quotes: an attribute value as it stands.
bool IsPlainAscii(const char* text, int length)
{
    for (int i = 0; i < length; ++i) {
        const char c = text[i];
        if (c < 0x20 || c >= 0x7F || c == '&' || c == '<')
            return false;
    }
    return true;
}

// Qt's parser drops text that is white space in Unicode's sense.
bool IsBlank(const QString& text)
{
    for (const QChar c : text) {
        if (!c.isSpace())
            return false;
    }
    return true;
}

bool IsNameStart(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool IsNameChar(char c)
{
    return IsNameStart(c) || (c >= '0' && c <= '9') || c == '.' || c == '-';
}

class Reader
{
public:
    Reader(const QByteArray& bytes, int maxDepth)
        : m_p(bytes.constData()), m_end(bytes.constData() + bytes.size()), m_maxDepth(maxDepth)
    {
    }

    bool Read(QDomDocument& document);

private:
    bool At(const char* text) const
    {
        const size_t length = strlen(text);
        return size_t(m_end - m_p) >= length && memcmp(m_p, text, length) == 0;
    }
    void SkipSpace()
    {
        while (m_p < m_end && IsSpace(*m_p))
            ++m_p;
    }
    // ASCII names only; a name running into ':' or a non-ASCII byte is declined.
    bool Name(const char** start, int* length)
    {
        if (m_p >= m_end || !IsNameStart(*m_p))
            return false;
        *start = m_p;
        while (m_p < m_end && IsNameChar(*m_p))
            ++m_p;
        *length = int(m_p - *start);
        return m_p < m_end && !(static_cast<unsigned char>(*m_p) >= 0x80 || *m_p == ':');
    }
    bool Equals()
    {
        SkipSpace();
        if (m_p >= m_end || *m_p != '=')
            return false;
        ++m_p;
        SkipSpace();
        return true;
    }
    bool Quoted(const char** start, int* length)
    {
        if (m_p >= m_end || (*m_p != '"' && *m_p != '\''))
            return false;
        const char quote = *m_p++;
        const void* close = memchr(m_p, quote, size_t(m_end - m_p));
        if (!close)
            return false;
        *start = m_p;
        m_p = static_cast<const char*>(close) + 1;
        *length = int(static_cast<const char*>(close) - *start);
        return true;
    }
    bool Declaration(QString* data);
    bool DocumentType(QString* name);
    bool Element(QDomDocument& document);
    bool Attributes(QDomElement& element);
    bool Comment(QDomDocument& document, QDomNode parent);

    QString Interned(const char* start, int length);

    const char* m_p;
    const char* m_end;
    int m_maxDepth;
    QString m_text;
    // Names and short values repeat throughout a document ("ts", "type",
    // "string", a time stamp); shared copies spare an allocation each.
    std::unordered_map<std::string_view, QString> m_interned;
};

QString Reader::Interned(const char* start, int length)
{
    const std::string_view key(start, size_t(length));
    const auto it = m_interned.find(key);
    if (it != m_interned.end())
        return it->second;
    const QString text = QString::fromLatin1(start, length);
    if (m_interned.size() < 4096)
        m_interned.emplace(key, text);
    return text;
}

// Decodes XML character data [from, to) into `out`: references resolved,
// UTF-8 checked. False for anything declined: other references, carriage
// returns, characters XML does not allow, "]]>" and, in attribute values,
// '<' and the white space that values normalise.
bool Decode(const char* from, const char* to, bool attribute, QString& out)
{
    out.clear();
    const char* plain = from;
    bool ascii = true;
    auto flush = [&](const char* until) {
        if (until > plain)
            out.append(ascii ? QString::fromLatin1(plain, int(until - plain))
                             : QString::fromUtf8(plain, int(until - plain)));
    };
    for (const char* p = from; p < to; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if (c >= 0x80) {
            ascii = false;
            continue;
        }
        if ((c < 0x20 && c != '\n' && c != '\t') || c == 0x7F)
            return false;
        if (attribute && (c == '\n' || c == '\t' || c == '<'))
            return false;
        if (!attribute && c == '>' && p - from >= 2 && p[-1] == ']' && p[-2] == ']')
            return false;
        if (c != '&')
            continue;
        flush(p);
        const char* semicolon = static_cast<const char*>(memchr(p, ';', size_t(to - p)));
        if (!semicolon || semicolon - p > 10)
            return false;
        const QByteArray name(p + 1, int(semicolon - p - 1));
        if (name == "lt")
            out.append(QLatin1Char('<'));
        else if (name == "gt")
            out.append(QLatin1Char('>'));
        else if (name == "amp")
            out.append(QLatin1Char('&'));
        else if (name == "quot")
            out.append(QLatin1Char('"'));
        else if (name == "apos")
            out.append(QLatin1Char('\''));
        else if (name.startsWith('#') && name.size() > 1) {
            const bool hex = name.at(1) == 'x';
            bool ok = false;
            const uint code = name.mid(hex ? 2 : 1).toUInt(&ok, hex ? 16 : 10);
            const QByteArray digits = name.mid(hex ? 2 : 1);
            for (const char d : digits) {
                if (!(std::isxdigit(static_cast<unsigned char>(d)) && (hex || (d >= '0' && d <= '9'))))
                    ok = false;
            }
            // Only characters that need no normalisation and no surrogates.
            if (!ok || code < 0x20 || (code >= 0xD800 && code < 0xE000) || code > 0xFFFD)
                return false;
            out.append(QChar(char16_t(code)));
        } else {
            return false;
        }
        p = semicolon;
        plain = p + 1;
    }
    flush(to);
    // QString::fromUtf8 would drop a byte order mark that starts a run.
    if (!ascii && QByteArray::fromRawData(from, int(to - from)).contains("\xEF\xBB\xBF"))
        return false;
    if (!ascii) {
        // Invalid or overlong UTF-8 and encoded surrogates decode to U+FFFD.
        for (const QChar ch : out) {
            const char16_t u = ch.unicode();
            if (u == 0xFFFD || u == 0xFFFE || u == 0xFFFF || (u >= 0x7F && u < 0xA0))
                return false;
        }
    }
    return true;
}

bool Reader::Declaration(QString* data)
{
    if (!At("<?xml"))
        return true;
    m_p += 5;
    if (m_p >= m_end || !IsSpace(*m_p))
        return false;
    SkipSpace();
    const char* value;
    int length;
    if (!At("version"))
        return false;
    m_p += 7;
    if (!Equals() || !Quoted(&value, &length) || QByteArray(value, length) != "1.0")
        return false;
    *data = QStringLiteral("version='1.0'");
    const char* beforeSpace = m_p;
    SkipSpace();
    if (m_p > beforeSpace && At("encoding")) {
        m_p += 8;
        if (!Equals() || !Quoted(&value, &length) || QByteArray(value, length).toLower() != "utf-8")
            return false;
        *data += QStringLiteral(" encoding='") + QString::fromLatin1(value, length) + QLatin1Char('\'');
        SkipSpace();
    }
    if (!At("?>"))
        return false;
    m_p += 2;
    return true;
}

bool Reader::DocumentType(QString* name)
{
    SkipSpace();
    if (!At("<!DOCTYPE"))
        return true;
    m_p += 9;
    if (m_p >= m_end || !IsSpace(*m_p))
        return false;
    SkipSpace();
    const char* start;
    int length;
    if (!Name(&start, &length))
        return false;
    SkipSpace();
    if (m_p >= m_end || *m_p != '>')
        return false;
    ++m_p;
    *name = QString::fromLatin1(start, length);
    return true;
}

bool Reader::Attributes(QDomElement& element)
{
    for (;;) {
        const char* beforeSpace = m_p;
        SkipSpace();
        if (m_p >= m_end)
            return false;
        if (*m_p == '>' || *m_p == '/')
            return true;
        if (m_p == beforeSpace)
            return false;
        const char* name;
        int nameLength;
        const char* value;
        int valueLength;
        if (!Name(&name, &nameLength) || !Equals() || !Quoted(&value, &valueLength))
            return false;
        if (valueLength <= 24 && IsPlainAscii(value, valueLength)) {
            element.setAttribute(Interned(name, nameLength), Interned(value, valueLength));
            continue;
        }
        if (!Decode(value, value + valueLength, true, m_text))
            return false;
        element.setAttribute(Interned(name, nameLength), m_text);
    }
}

bool Reader::Comment(QDomDocument& document, QDomNode parent)
{
    m_p += 4;
    const char* start = m_p;
    for (;;) {
        const void* dash = memchr(m_p, '-', size_t(m_end - m_p));
        if (!dash)
            return false;
        m_p = static_cast<const char*>(dash);
        if (At("--"))
            break;
        ++m_p;
    }
    const char* end = m_p;
    if (!At("-->"))
        return false;
    m_p += 3;
    if (!Decode(start, end, false, m_text) || m_text.contains(QLatin1Char('&')) ||
        memchr(start, '&', size_t(end - start)))
        return false;
    parent.appendChild(document.createComment(QString::fromUtf8(start, int(end - start))));
    return true;
}

bool Reader::Element(QDomDocument& document)
{
    // Elements are read with an explicit stack: nesting must not recurse.
    struct Open
    {
        QDomElement element;
        const char* name;
        int length;
    };
    std::vector<Open> open;
    for (;;) {
        // At '<' of a start tag.
        ++m_p;
        const char* name;
        int length;
        if (!Name(&name, &length) || int(open.size()) + 1 > m_maxDepth)
            return false;
        QDomElement element = document.createElement(Interned(name, length));
        if (!Attributes(element))
            return false;
        if (open.empty())
            document.appendChild(element);
        else
            open.back().element.appendChild(element);
        if (*m_p == '/') {
            if (!At("/>"))
                return false;
            m_p += 2;
        } else {
            ++m_p;
            open.push_back({element, name, length});
        }
        // Content up to the next start tag, or end tags closing the open ones.
        for (;;) {
            if (open.empty())
                return true;
            const char* textStart = m_p;
            const void* lt = memchr(m_p, '<', size_t(m_end - m_p));
            if (!lt)
                return false;
            m_p = static_cast<const char*>(lt);
            if (m_p > textStart) {
                bool blank = true;
                for (const char* t = textStart; t < m_p && blank; ++t)
                    blank = IsSpace(*t);
                if (!blank) {
                    // Text that only references or other white space make blank is declined.
                    if (!Decode(textStart, m_p, false, m_text) || IsBlank(m_text))
                        return false;
                    open.back().element.appendChild(document.createTextNode(m_text));
                }
            }
            if (At("<!--")) {
                if (!Comment(document, open.back().element))
                    return false;
                continue;
            }
            if (At("</")) {
                m_p += 2;
                const Open& top = open.back();
                if (m_end - m_p < top.length || memcmp(m_p, top.name, size_t(top.length)) != 0)
                    return false;
                m_p += top.length;
                SkipSpace();
                if (m_p >= m_end || *m_p != '>')
                    return false;
                ++m_p;
                open.pop_back();
                continue;
            }
            if (m_p + 1 < m_end && IsNameStart(m_p[1]))
                break; // another start tag
            return false;
        }
    }
}

bool Reader::Read(QDomDocument& document)
{
    QString declaration;
    QString typeName;
    if (!Declaration(&declaration) || !DocumentType(&typeName))
        return false;
    SkipSpace();
    if (m_p >= m_end || *m_p != '<')
        return false;
    QDomDocument result =
        typeName.isEmpty()
            ? QDomDocument()
            : QDomDocument(QDomImplementation().createDocumentType(typeName, QString(), QString()));
    if (!declaration.isNull())
        result.appendChild(result.createProcessingInstruction(QStringLiteral("xml"), declaration));
    if (!Element(result))
        return false;
    SkipSpace();
    if (m_p != m_end)
        return false;
    document = result;
    return true;
}

} // namespace

bool CfgXmlReader::ReadPlain(const QByteArray& bytes, int maxDepth, QDomDocument& document)
{
    return Reader(bytes, maxDepth).Read(document);
}
