#include "configuration/cfgxmlreader_p.h"

#include <QString>

#include <array>
#include <cctype>
#include <cstring>
#include <vector>

// A strict reader for the documents this library writes and people edit: it
// accepts only what it can vouch for, so that every byte sequence it reads
// gives exactly the tree, and every one it declines gets exactly the verdict,
// of Qt's parser. Line-end and attribute-value normalisation, other encodings,
// entity declarations, CDATA sections and processing instructions are
// declined rather than imitated.

namespace {

// What each byte can be, looked up instead of compared: the reader's loops
// run over every byte of a document.
enum ByteClass : unsigned char
{
    SPACE = 1,
    NAME_START = 2,
    NAME_CHAR = 4,
    PLAIN_VALUE = 8, // printable ASCII that stands for itself in an attribute value
    PLAIN_TEXT = 16  // the same in text, with line feeds and tabs; '>' goes to the decoder
};

struct ByteClasses
{
    unsigned char of[256] = {};

    constexpr ByteClasses()
    {
        for (int c = 0x20; c < 0x7F; ++c) {
            if (c != '&' && c != '<') {
                of[c] |= PLAIN_VALUE;
                if (c != '>')
                    of[c] |= PLAIN_TEXT;
            }
            const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
            if (letter)
                of[c] |= NAME_START | NAME_CHAR;
            if ((c >= '0' && c <= '9') || c == '.' || c == '-')
                of[c] |= NAME_CHAR;
        }
        for (const unsigned char c : {' ', '\n', '\t'})
            of[c] |= SPACE;
        of[static_cast<unsigned char>('\n')] |= PLAIN_TEXT;
        of[static_cast<unsigned char>('\t')] |= PLAIN_TEXT;
    }
};

constexpr ByteClasses BYTE_CLASSES;

bool Is(char c, ByteClass byteClass)
{
    return (BYTE_CLASSES.of[static_cast<unsigned char>(c)] & byteClass) != 0;
}

bool IsSpace(char c)
{
    return Is(c, SPACE);
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
    return Is(c, NAME_START);
}

bool IsNameChar(char c)
{
    return Is(c, NAME_CHAR);
}

// The ids of the names met so far by their bytes, so that a name costs a
// hash of a few bytes instead of a string. Open addressing: a document has
// few distinct names, met again and again.
class NameTable
{
public:
    NameTable() : m_slots(256) {}

    /// The id slot of `name`; NO_NAME in it when the name is new.
    CfgXmlTree::Name* Find(const char* name, int length)
    {
        if (m_used * 2 >= m_slots.size())
            Grow();
        Slot* slot = Probe(name, length);
        if (!slot->name) {
            slot->name = name;
            slot->length = length;
            ++m_used;
        }
        return &slot->id;
    }

private:
    struct Slot
    {
        const char* name = nullptr;
        int length = 0;
        CfgXmlTree::Name id = CfgXmlTree::NO_NAME;
    };

    // Names are short and differ mostly at their ends ("Value1", "Value2"):
    // the length and the bytes at both ends pick the slot.
    static size_t Hash(const char* name, int length)
    {
        const auto* bytes = reinterpret_cast<const unsigned char*>(name);
        quint64 hash = (quint64(bytes[0]) << 40) | (quint64(bytes[length - 1]) << 32) |
                       (quint64(bytes[length / 2]) << 24) | (quint64(bytes[(length - 1) / 3]) << 16) |
                       quint64(length);
        // The finaliser of MurmurHash3 spreads every input bit over the slot bits.
        hash ^= hash >> 33;
        hash *= 0xFF51AFD7ED558CCDull;
        hash ^= hash >> 33;
        return size_t(hash);
    }

public:
    static bool Same(const char* a, const char* b, int length)
    {
        for (int i = 0; i < length; ++i) {
            if (a[i] != b[i])
                return false;
        }
        return true;
    }

private:
    Slot* Probe(const char* name, int length)
    {
        const size_t mask = m_slots.size() - 1;
        for (size_t i = Hash(name, length) & mask;; i = (i + 1) & mask) {
            Slot& slot = m_slots[i];
            if (!slot.name || (slot.length == length && Same(slot.name, name, length)))
                return &slot;
        }
    }

    void Grow()
    {
        std::vector<Slot> old(m_slots.size() * 2);
        old.swap(m_slots);
        for (const Slot& slot : old) {
            if (slot.name)
                *Probe(slot.name, slot.length) = slot;
        }
    }

    std::vector<Slot> m_slots;
    size_t m_used = 0;
};

class Reader
{
public:
    Reader(const QByteArray& bytes, int maxDepth, int maxElements)
        : m_p(bytes.constData()), m_end(bytes.constData() + bytes.size()), m_maxDepth(maxDepth),
          m_maxElements(maxElements)
    {
    }

    bool Read(CfgXmlTree& document);

private:
    template <size_t N> bool At(const char (&text)[N]) const
    {
        return size_t(m_end - m_p) >= N - 1 && memcmp(m_p, text, N - 1) == 0;
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
    bool Element();
    bool Attributes(CfgXmlTree::Node element);
    bool Comment(CfgXmlTree::Node parent);
    bool Text(const char* start, const char* end, CfgXmlTree::Node parent);
    bool CopyPlain(const char* from, int length, ByteClass plainClass);
    int CountTags() const;

    CfgXmlTree::Name Interned(const char* start, int length);
    CfgXmlTree::Name AttributeName(int position, const char* start, int length);

    const char* m_p;
    const char* m_end;
    int m_maxDepth;
    int m_maxElements;
    QString m_text;
    CfgXmlTree m_tree;
    NameTable m_names;
    struct RecentName
    {
        const char* start = nullptr;
        int length = -1;
        CfgXmlTree::Name name = CfgXmlTree::NO_NAME;
    };
    std::array<RecentName, 8> m_recentAttributes;
};

CfgXmlTree::Name Reader::Interned(const char* start, int length)
{
    CfgXmlTree::Name* slot = m_names.Find(start, length);
    if (*slot == CfgXmlTree::NO_NAME)
        *slot = m_tree.Intern(start, length);
    return *slot;
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

// Copies bytes of `plainClass` to the pool as they stand, checking and
// widening in one pass; at the first other byte nothing is kept and the
// caller decodes instead.
bool Reader::CopyPlain(const char* from, int length, ByteClass plainClass)
{
    const quint32 offset = m_tree.PoolSize();
    char16_t* out = m_tree.GrowPool(length);
    for (int i = 0; i < length; ++i) {
        const char c = from[i];
        if (!Is(c, plainClass)) {
            m_tree.ShrinkPool(offset);
            return false;
        }
        out[i] = static_cast<unsigned char>(c);
    }
    return true;
}

CfgXmlTree::Name Reader::AttributeName(int position, const char* start, int length)
{
    // Elements tend to carry the same attributes in the same order, so the
    // name at the same position is most often the one seen last there.
    RecentName& recent = m_recentAttributes[size_t(qMin(position, int(m_recentAttributes.size()) - 1))];
    if (recent.length == length && NameTable::Same(recent.start, start, length))
        return recent.name;
    recent = {start, length, Interned(start, length)};
    return recent.name;
}

bool Reader::Attributes(CfgXmlTree::Node element)
{
    for (int position = 0;; ++position) {
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
        const quint32 offset = m_tree.PoolSize();
        if (!CopyPlain(value, valueLength, PLAIN_VALUE)) {
            if (!Decode(value, value + valueLength, true, m_text))
                return false;
            m_tree.AppendUtf16(m_text.constData(), m_text.size());
        }
        m_tree.SetAttributeFromPool(element, AttributeName(position, name, nameLength), offset);
    }
}

bool Reader::Comment(CfgXmlTree::Node parent)
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
    m_tree.Append(parent, m_tree.CreateComment(QString::fromUtf8(start, int(end - start))));
    return true;
}

// Plain ASCII text goes to the tree as it stands; everything else is decoded.
bool Reader::Text(const char* start, const char* end, CfgXmlTree::Node parent)
{
    const char* t = start;
    // Indentation comes in runs of spaces, eight at a time.
    static constexpr quint64 EIGHT_SPACES = 0x2020202020202020ull;
    for (quint64 word;;) {
        while (end - t >= 8 && (std::memcpy(&word, t, 8), word == EIGHT_SPACES))
            t += 8;
        if (t == end || !IsSpace(*t))
            break;
        ++t;
    }
    if (t == end)
        return true; // white space between elements
    const quint32 offset = m_tree.PoolSize();
    if (!CopyPlain(start, int(end - start), PLAIN_TEXT)) {
        // Text that only references or other white space make blank is declined.
        if (!Decode(start, end, false, m_text) || IsBlank(m_text))
            return false;
        m_tree.AppendUtf16(m_text.constData(), m_text.size());
    }
    m_tree.Append(parent, m_tree.CreateTextFromPool(CfgXmlTree::TextNode, offset));
    return true;
}

bool Reader::Element()
{
    // Elements are read with an explicit stack: nesting must not recurse.
    struct Open
    {
        CfgXmlTree::Node element;
        const char* name;
        int length;
    };
    std::vector<Open> open;
    for (;;) {
        // At '<' of a start tag.
        ++m_p;
        const char* name;
        int length;
        if (!Name(&name, &length) || int(open.size()) + 1 > m_maxDepth || --m_maxElements < 0)
            return false;
        const CfgXmlTree::Node element = m_tree.CreateElement(Interned(name, length));
        if (!Attributes(element))
            return false;
        m_tree.Append(open.empty() ? m_tree.Document() : open.back().element, element);
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
            if (m_p > textStart && !Text(textStart, m_p, open.back().element))
                return false;
            const char next = m_p + 1 < m_end ? m_p[1] : '\0';
            if (next == '!' && At("<!--")) {
                if (!Comment(open.back().element))
                    return false;
                continue;
            }
            if (next == '/') {
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
            if (IsNameStart(next))
                break; // another start tag
            return false;
        }
    }
}

// How many '<' the rest holds, up to the element limit: a bound on the
// elements, found at the speed of memchr, so that the tree's arrays are sized
// once and close to need, and never beyond what the limit allows.
int Reader::CountTags() const
{
    int count = 0;
    for (const char* p = m_p;
         count < m_maxElements && (p = static_cast<const char*>(memchr(p, '<', size_t(m_end - p)))); ++p)
        ++count;
    return count;
}

bool Reader::Read(CfgXmlTree& document)
{
    QString declaration;
    QString typeName;
    if (!Declaration(&declaration) || !DocumentType(&typeName))
        return false;
    SkipSpace();
    if (m_p >= m_end || *m_p != '<')
        return false;
    m_tree.Reserve(m_end - m_p, CountTags());
    if (!typeName.isEmpty())
        m_tree.SetDocumentTypeText(QStringLiteral("<!DOCTYPE ") + typeName + QStringLiteral(">\n"));
    if (!declaration.isNull())
        m_tree.Append(m_tree.Document(),
                      m_tree.CreateProcessingInstruction(QStringLiteral("xml"), declaration));
    if (!Element())
        return false;
    SkipSpace();
    if (m_p != m_end)
        return false;
    document = std::move(m_tree);
    return true;
}

} // namespace

bool CfgXmlReader::ReadPlain(const QByteArray& bytes, int maxDepth, CfgXmlTree& document, int maxElements)
{
    return Reader(bytes, maxDepth, maxElements).Read(document);
}
