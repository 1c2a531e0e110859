#include "configuration/xmlnames_p.h"

#include <QStringList>

namespace {

const QChar KEY_SEPARATOR = QLatin1Char('\\');

// Every character beyond ASCII may be part of a name, except white space;
// within ASCII: letters, '_' and ':', and after the first also digits, '-'
// and '.'. Names are checked on every write, so ASCII is decided by
// comparison.
enum NameCharClass : unsigned char
{
    NAME_START = 1,
    NAME_CHAR = 2
};

struct AsciiNameChars
{
    unsigned char of[128] = {};

    constexpr AsciiNameChars()
    {
        for (int c = 0; c < 128; ++c) {
            if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':')
                of[c] = NAME_START | NAME_CHAR;
            else if ((c >= '0' && c <= '9') || c == '-' || c == '.')
                of[c] = NAME_CHAR;
        }
    }
};

constexpr AsciiNameChars ASCII_NAME_CHARS;

bool IsAsciiNameStartChar(char16_t c)
{
    return (ASCII_NAME_CHARS.of[c] & NAME_START) != 0;
}

bool IsAsciiNameChar(char16_t c)
{
    return (ASCII_NAME_CHARS.of[c] & NAME_CHAR) != 0;
}

bool IsElementNameView(QStringView name)
{
    if (name.isEmpty() || (name.front().unicode() < 0x80 && !IsAsciiNameStartChar(name.front().unicode())))
        return false;
    for (const QChar c : name) {
        if (c.unicode() < 0x80 ? !IsAsciiNameChar(c.unicode()) : c.isSpace())
            return false;
    }
    return true;
}

// The first component of `path` that cannot be an element name.
bool FindInvalidComponentView(QStringView path, QStringView* invalid)
{
    // The components of the path, without building a list on every write;
    // empty ones (doubled separators) are skipped, as the walk skips them.
    for (qsizetype start = 0; start < path.size();) {
        qsizetype end = start;
        while (end < path.size() && path.at(end) != KEY_SEPARATOR)
            ++end;
        if (end > start && !IsElementNameView(path.mid(start, end - start))) {
            *invalid = path.mid(start, end - start);
            return true;
        }
        start = end + 1;
    }
    return false;
}

bool IsXmlChar(char16_t c)
{
    return c >= 0x20 ? (c != 0xFFFE && c != 0xFFFF) : (c == 0x09 || c == 0x0A || c == 0x0D);
}

} // namespace

bool XmlNames::IsElementName(const QString& name)
{
    return IsElementNameView(name);
}

int XmlNames::FirstNonXmlChar(const QString& text)
{
    const QChar* data = text.constData();
    for (int i = 0; i < text.size(); ++i) {
        const char16_t u = data[i].unicode();
        if (u >= 0x20 && u < 0xD800)
            continue; // the common case, decided at once
        const QChar c = data[i];
        if (c.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
            ++i;
            continue;
        }
        if (c.isSurrogate() || !IsXmlChar(c.unicode()))
            return i;
    }
    return -1;
}

bool XmlNames::FindInvalidComponent(const QString& path, QString* invalid)
{
    QStringView found;
    if (!FindInvalidComponentView(path, &found))
        return false;
    *invalid = found.toString();
    return true;
}

QString XmlNames::NotAnElementName(const QString& what, const QString& name, const QString& invalid)
{
    return QStringLiteral("%1 \"%2\" was not stored: \"%3\" cannot be an XML element name.")
        .arg(what, name, invalid);
}

QString XmlNames::NoSuchSubConfiguration(const QString& key, const QString& invalid)
{
    return QStringLiteral(
               "The sub-configuration \"%1\" does not exist: \"%2\" cannot be an XML element name.")
        .arg(key, invalid);
}

QString XmlNames::RefusedValueName(const QString& name)
{
    const int separator = name.lastIndexOf(KEY_SEPARATOR);
    const QStringView valueName = QStringView(name).mid(separator + 1);
    QStringView invalid;
    if (separator >= 0 && FindInvalidComponentView(QStringView(name).left(separator), &invalid))
        return NotAnElementName(QStringLiteral("The value"), name, invalid.toString());
    // "Sub\" names no value: its empty last component is no element name.
    if (!name.isEmpty() && !IsElementNameView(valueName))
        return NotAnElementName(QStringLiteral("The value"), name, valueName.toString());
    return QString();
}

QString XmlNames::RefusedValueText(const QString& name, const QString& text)
{
    const int position = FirstNonXmlChar(text);
    if (position < 0)
        return QString();
    return QStringLiteral("The value \"%1\" was not stored: its text contains the character U+%2, which XML "
                          "cannot carry.")
        .arg(name, QStringLiteral("%1").arg(text.at(position).unicode(), 4, 16, QLatin1Char('0')).toUpper());
}
