#include "configuration/xmlnames_p.h"

#include <QStringList>

namespace {

const QChar KEY_SEPARATOR = QLatin1Char('\\');

bool IsNameStartChar(QChar c)
{
    return c.isLetter() || c == QLatin1Char('_') || c == QLatin1Char(':') || c.unicode() > 0x7f;
}

bool IsNameChar(QChar c)
{
    return IsNameStartChar(c) || c.isDigit() || c == QLatin1Char('-') || c == QLatin1Char('.');
}

bool IsElementNameView(QStringView name)
{
    if (name.isEmpty() || !IsNameStartChar(name.front()))
        return false;
    for (const QChar c : name) {
        if (!IsNameChar(c) || c.isSpace())
            return false;
    }
    return true;
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
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
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
    // The components of the path, without building a list on every write;
    // empty ones (doubled separators) are skipped, as the walk skips them.
    const QStringView view(path);
    for (int start = 0; start < view.size();) {
        int end = path.indexOf(KEY_SEPARATOR, start);
        if (end < 0)
            end = int(view.size());
        if (end > start && !IsElementNameView(view.mid(start, end - start))) {
            *invalid = path.mid(start, end - start);
            return true;
        }
        start = end + 1;
    }
    return false;
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
    const QString valueName = separator >= 0 ? name.mid(separator + 1) : name;
    QString invalid;
    if (FindInvalidComponent(separator >= 0 ? name.left(separator) : QString(), &invalid))
        return NotAnElementName(QStringLiteral("The value"), name, invalid);
    // "Sub\" names no value: its empty last component is no element name.
    if (!name.isEmpty() && !IsElementName(valueName))
        return NotAnElementName(QStringLiteral("The value"), name, valueName);
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
