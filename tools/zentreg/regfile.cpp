#include "regfile.h"

#include "regundolog.h"

#include <QRegularExpression>
#include <QStringList>
#include <QTextCodec>

#include <vector>

namespace {

const QString Version5Header = QStringLiteral("Windows Registry Editor Version 5.00");
const QString Regedit4Header = QStringLiteral("REGEDIT4");
const QString LineEnd = QStringLiteral("\r\n");
// The registry editor keeps hex lines within 80 columns, continuation lines indented by two.
constexpr int HexLineWidth = 80;

QTextCodec* AnsiCodec()
{
    return QTextCodec::codecForName("Windows-1252");
}

bool IsUtf16(const QByteArray& content)
{
    return content.startsWith("\xff\xfe");
}

QStringList SplitLines(const QString& text)
{
    return text.split(QRegularExpression(QStringLiteral("\r\n|\r|\n")));
}

// A UTF-16 file decodes whole characters only; the byte of a cut-off one is left out.
QString DecodeText(const QByteArray& content)
{
    if (IsUtf16(content))
        return QString::fromUtf16(reinterpret_cast<const char16_t*>(content.constData() + 2),
                                  (content.size() - 2) / 2);
    if (content.startsWith("\xef\xbb\xbf"))
        return QString::fromUtf8(content.mid(3));
    QTextCodec::ConverterState state;
    const QString text =
        QTextCodec::codecForName("UTF-8")->toUnicode(content.constData(), content.size(), &state);
    if (state.invalidChars == 0)
        return text;
    return AnsiCodec()->toUnicode(content);
}

QByteArray Utf16Bytes(const QString& text)
{
    return QByteArray(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
}

QString TextOfUtf16(const QByteArray& data)
{
    return QString::fromUtf16(reinterpret_cast<const char16_t*>(data.constData()), data.size() / 2);
}

/// Reads a quoted string at `*pos` (which holds the opening quote); \\ and \" are the escapes.
bool ReadQuoted(const QString& text, int* pos, QString* out)
{
    out->clear();
    for (int i = *pos + 1; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == QLatin1Char('"')) {
            *pos = i + 1;
            return true;
        }
        if (c == QLatin1Char('\\') && i + 1 < text.size() &&
            (text.at(i + 1) == QLatin1Char('\\') || text.at(i + 1) == QLatin1Char('"')))
            ++i;
        out->append(text.at(i));
    }
    return false;
}

QString Quote(const QString& text)
{
    QString quoted = text;
    quoted.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    quoted.replace(QLatin1Char('"'), QLatin1String("\\\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

/// A REG_SZ whose data is one terminated string without inner zeros is written as text.
bool IsPlainString(const QByteArray& data)
{
    if (data.size() < 2 || data.size() % 2 != 0)
        return false;
    const QString text = TextOfUtf16(data);
    return text.indexOf(QChar(0)) == text.size() - 1;
}

QString HexLines(const QString& prefix, const QByteArray& data)
{
    QString result = prefix;
    QString line = prefix;
    for (int i = 0; i < data.size(); ++i) {
        QString token = QString::asprintf("%02x", static_cast<unsigned char>(data.at(i)));
        if (i + 1 < data.size())
            token += QLatin1Char(',');
        if (line.size() + token.size() + 1 > HexLineWidth) {
            result += QLatin1Char('\\') + LineEnd + QLatin1String("  ");
            line = QStringLiteral("  ");
        }
        result += token;
        line += token;
    }
    return result;
}

/// REGEDIT4 keeps the text of expandable and multi-strings in 8-bit characters.
QByteArray NarrowForRegedit4(const QByteArray& utf16)
{
    return AnsiCodec()->fromUnicode(TextOfUtf16(utf16));
}

QByteArray WidenFromRegedit4(const QByteArray& narrow)
{
    return Utf16Bytes(AnsiCodec()->toUnicode(narrow));
}

QString FormatValue(const QString& name, DWORD type, const QByteArray& data, RegFile::Format format)
{
    const QString lead = (name.isEmpty() ? QStringLiteral("@") : Quote(name)) + QLatin1Char('=');
    if (type == REG_SZ && IsPlainString(data))
        return lead + Quote(TextOfUtf16(data.left(data.size() - 2)));
    if (type == REG_DWORD && data.size() == 4) {
        const quint32 value = static_cast<quint8>(data.at(0)) | static_cast<quint8>(data.at(1)) << 8 |
                              static_cast<quint8>(data.at(2)) << 16 |
                              static_cast<quint32>(static_cast<quint8>(data.at(3))) << 24;
        return lead + QString::asprintf("dword:%08x", value);
    }
    if (type == REG_BINARY)
        return HexLines(lead + QStringLiteral("hex:"), data);
    const bool narrow = format == RegFile::Regedit4 && (type == REG_EXPAND_SZ || type == REG_MULTI_SZ);
    return HexLines(lead + QString::asprintf("hex(%x):", type), narrow ? NarrowForRegedit4(data) : data);
}

LONG ExportValues(HKEY key, RegFile::Format format, QString* text)
{
    DWORD maxName = 0;
    DWORD maxData = 0;
    LONG result = RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                   &maxName, &maxData, nullptr, nullptr);
    if (result != ERROR_SUCCESS)
        return result;
    std::vector<WCHAR> name(maxName + 1);
    std::vector<BYTE> data(maxData + 1);
    for (DWORD index = 0;; ++index) {
        DWORD nameLength = static_cast<DWORD>(name.size());
        DWORD dataSize = static_cast<DWORD>(data.size());
        DWORD type = REG_NONE;
        result = RegEnumValueW(key, index, name.data(), &nameLength, nullptr, &type, data.data(), &dataSize);
        if (result == ERROR_NO_MORE_ITEMS)
            return ERROR_SUCCESS;
        if (result != ERROR_SUCCESS)
            return result;
        const QString valueName = QString::fromUtf16(name.data(), static_cast<int>(nameLength));
        const QByteArray bytes(reinterpret_cast<const char*>(data.data()), static_cast<int>(dataSize));
        *text += FormatValue(valueName, type, bytes, format) + LineEnd;
    }
}

LONG ExportKey(HKEY key, const QString& path, RegFile::Format format, QString* text)
{
    *text += QLatin1Char('[') + path + QLatin1Char(']') + LineEnd;
    LONG result = ExportValues(key, format, text);
    if (result != ERROR_SUCCESS)
        return result;
    *text += LineEnd;
    for (DWORD index = 0;; ++index) {
        WCHAR name[256];
        DWORD length = 256;
        result = RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (result == ERROR_NO_MORE_ITEMS)
            return ERROR_SUCCESS;
        if (result != ERROR_SUCCESS)
            return result;
        const QString subName = QString::fromUtf16(name, static_cast<int>(length));
        HKEY sub = nullptr;
        result = RegOpenKeyExW(key, name, 0, KEY_READ, &sub);
        if (result != ERROR_SUCCESS)
            return result;
        result = ExportKey(sub, path + QLatin1Char('\\') + subName, format, text);
        RegCloseKey(sub);
        if (result != ERROR_SUCCESS)
            return result;
    }
}

/// Applies one step after recording in `undo` what it is about to change.
LONG ApplyOne(const RegFile::Operation& op, RegUndoLog* undo)
{
    QString subKey;
    const HKEY root = RegFile::SplitRoot(op.key, &subKey);
    const auto wide = [](const QString& text) { return reinterpret_cast<LPCWSTR>(text.utf16()); };
    if (op.kind == RegFile::Operation::DeleteKey) {
        // A missing key is no error, as in the registry editor.
        undo->RecordKeyDeletion(root, subKey);
        return RegUndoLog::DeleteTree(root, subKey);
    }
    HKEY key = nullptr;
    LONG result = ERROR_SUCCESS;
    if (op.kind == RegFile::Operation::DeleteValue) {
        result = RegOpenKeyExW(root, wide(subKey), 0, KEY_WRITE, &key);
        if (result == ERROR_FILE_NOT_FOUND)
            return ERROR_SUCCESS;
    } else {
        undo->RecordKeyCreation(root, subKey);
        result = RegCreateKeyW(root, wide(subKey), &key);
    }
    if (result != ERROR_SUCCESS)
        return result;
    if (op.kind == RegFile::Operation::SetValue) {
        undo->RecordValue(root, subKey, op.name);
        result =
            RegSetValueExW(key, wide(op.name), 0, op.type, reinterpret_cast<const BYTE*>(op.data.constData()),
                           static_cast<DWORD>(op.data.size()));
    } else if (op.kind == RegFile::Operation::DeleteValue) {
        undo->RecordValue(root, subKey, op.name);
        result = RegDeleteValueW(key, wide(op.name));
        if (result == ERROR_FILE_NOT_FOUND)
            result = ERROR_SUCCESS;
    }
    if (key != root)
        RegCloseKey(key);
    return result;
}

} // namespace

HKEY RegFile::SplitRoot(const QString& key, QString* subKey, QString* rootName)
{
    const int slash = key.indexOf(QLatin1Char('\\'));
    const QString root = (slash < 0 ? key : key.left(slash)).toUpper();
    *subKey = slash < 0 ? QString() : key.mid(slash + 1);
    QString name;
    HKEY handle = nullptr;
    if (root == QLatin1String("HKEY_CURRENT_USER") || root == QLatin1String("HKCU")) {
        name = QStringLiteral("HKEY_CURRENT_USER");
        handle = HKEY_CURRENT_USER;
    } else if (root == QLatin1String("HKEY_LOCAL_MACHINE") || root == QLatin1String("HKLM")) {
        name = QStringLiteral("HKEY_LOCAL_MACHINE");
        handle = HKEY_LOCAL_MACHINE;
    }
    if (rootName)
        *rootName = name;
    return handle;
}

bool RegFile::Fail(int line, const QString& text)
{
    m_operations.clear();
    m_nErrorLine = line;
    m_sErrorText = text;
    return false;
}

bool RegFile::Parse(const QByteArray& content)
{
    m_operations.clear();
    m_sCurrentKey.clear();
    m_bKeyDeleted = false;
    m_nErrorLine = 0;
    m_sErrorText.clear();
    const QString text = DecodeText(content);
    // A cut-off file is refused whole rather than imported up to the cut.
    if (IsUtf16(content) && content.size() % 2 != 0) {
        // Cut after a "\r", the lost character is the "\n" of that line.
        const QString complete = text.endsWith(QLatin1Char('\r')) ? text.left(text.size() - 1) : text;
        return Fail(SplitLines(complete).size(),
                    QStringLiteral("incomplete UTF-16 character at the end of the file"));
    }
    return ParseLines(SplitLines(text));
}

bool RegFile::ParseLines(const QStringList& lines)
{
    int first = 0;
    while (first < lines.size() && lines.at(first).trimmed().isEmpty())
        ++first;
    const QString header = first < lines.size() ? lines.at(first).trimmed() : QString();
    if (header == Version5Header)
        m_format = Version5;
    else if (header == Regedit4Header)
        m_format = Regedit4;
    else
        return Fail(first + 1,
                    QStringLiteral("expected \"%1\" or \"%2\"").arg(Version5Header, Regedit4Header));
    for (int i = first + 1; i < lines.size(); ++i) {
        const int number = i + 1;
        QString line = lines.at(i).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char(';')))
            continue;
        if (line.startsWith(QLatin1Char('['))) {
            if (!ParseKeyLine(line, number))
                return false;
            continue;
        }
        if (!line.startsWith(QLatin1Char('"')) && !line.startsWith(QLatin1Char('@')))
            return Fail(number, QStringLiteral("neither a key nor a value: %1").arg(line));
        // Long hex data continues on the next line after a trailing backslash.
        // Appended in place: building a new line for each one would take
        // quadratic time on long data.
        while (line.endsWith(QLatin1Char('\\')) && i + 1 < lines.size()) {
            line.chop(1);
            line += lines.at(++i).trimmed();
        }
        if (!ParseValueLine(line, number))
            return false;
    }
    return true;
}

bool RegFile::ParseKeyLine(const QString& line, int number)
{
    if (!line.endsWith(QLatin1Char(']')))
        return Fail(number, QStringLiteral("a key line must end with \"]\""));
    const bool deletion = line.startsWith(QLatin1String("[-"));
    const QString key = line.mid(deletion ? 2 : 1, line.size() - (deletion ? 3 : 2));
    QString subKey;
    QString rootName;
    if (!SplitRoot(key, &subKey, &rootName))
        return Fail(number, QStringLiteral("unknown root key: %1").arg(key));
    if (subKey.isEmpty() && deletion)
        return Fail(number, QStringLiteral("a root key cannot be deleted: %1").arg(key));
    m_sCurrentKey = subKey.isEmpty() ? rootName : rootName + QLatin1Char('\\') + subKey;
    m_bKeyDeleted = deletion;
    Operation op;
    op.kind = deletion ? Operation::DeleteKey : Operation::CreateKey;
    op.key = m_sCurrentKey;
    op.line = number;
    m_operations.append(op);
    return true;
}

bool RegFile::ParseValueLine(const QString& line, int number)
{
    if (m_sCurrentKey.isEmpty() || m_bKeyDeleted)
        return Fail(number, QStringLiteral("a value must follow a key"));
    Operation op;
    op.key = m_sCurrentKey;
    op.line = number;
    int pos = 1;
    if (line.startsWith(QLatin1Char('"'))) {
        pos = 0;
        if (!ReadQuoted(line, &pos, &op.name))
            return Fail(number, QStringLiteral("the value name lacks its closing quote"));
    }
    const QString rest = line.mid(pos).trimmed();
    if (!rest.startsWith(QLatin1Char('=')))
        return Fail(number, QStringLiteral("\"=\" expected after the value name"));
    if (!ParseData(rest.mid(1).trimmed(), &op))
        return false;
    m_operations.append(op);
    return true;
}

bool RegFile::ParseData(const QString& text, Operation* op)
{
    op->kind = Operation::SetValue;
    if (text == QLatin1String("-")) {
        op->kind = Operation::DeleteValue;
        return true;
    }
    if (text.startsWith(QLatin1Char('"'))) {
        int pos = 0;
        QString value;
        if (!ReadQuoted(text, &pos, &value) || pos != text.size())
            return Fail(op->line, QStringLiteral("malformed string data: %1").arg(text));
        op->type = REG_SZ;
        op->data = Utf16Bytes(value) + QByteArray(2, '\0');
        return true;
    }
    static const QRegularExpression dword(QStringLiteral("^dword:([0-9a-fA-F]{1,8})$"));
    const QRegularExpressionMatch match = dword.match(text);
    if (match.hasMatch()) {
        const quint32 value = match.captured(1).toUInt(nullptr, 16);
        op->type = REG_DWORD;
        op->data = QByteArray(4, '\0');
        for (int i = 0; i < 4; ++i)
            op->data[i] = static_cast<char>((value >> (8 * i)) & 0xff);
        return true;
    }
    if (text.startsWith(QLatin1String("hex")))
        return ParseHex(text, op);
    return Fail(op->line, QStringLiteral("unknown data: %1").arg(text));
}

bool RegFile::ParseHex(const QString& text, Operation* op)
{
    static const QRegularExpression hex(QStringLiteral("^hex(?:\\(([0-9a-fA-F]{1,8})\\))?:(.*)$"));
    const QRegularExpressionMatch match = hex.match(text);
    if (!match.hasMatch())
        return Fail(op->line, QStringLiteral("malformed hex data: %1").arg(text));
    op->type = match.captured(1).isEmpty() ? REG_BINARY : match.captured(1).toUInt(nullptr, 16);
    QString bytes = match.captured(2);
    bytes.remove(QRegularExpression(QStringLiteral("\\s")));
    op->data.clear();
    if (!bytes.isEmpty()) {
        for (const QString& byte : bytes.split(QLatin1Char(','))) {
            // One digit is a byte of that value ("hex:1" is 01), as Windows'
            // registry editor imports it; three or more digits are refused.
            bool ok = false;
            const uint value = byte.toUInt(&ok, 16);
            if (!ok || byte.size() > 2)
                return Fail(op->line, QStringLiteral("\"%1\" is not a hex byte").arg(byte));
            op->data.append(static_cast<char>(value));
        }
    }
    if (m_format == Regedit4 && (op->type == REG_EXPAND_SZ || op->type == REG_MULTI_SZ))
        op->data = WidenFromRegedit4(op->data);
    return true;
}

QString RegFile::Apply() const
{
    RegUndoLog undo;
    for (const Operation& op : m_operations) {
        const LONG result = ApplyOne(op, &undo);
        if (result != ERROR_SUCCESS) {
            // All or nothing: what the file changed before this step is put back.
            undo.Rollback();
            return QStringLiteral("line %1: the registry refused %2 (error %3)")
                .arg(op.line)
                .arg(op.key)
                .arg(result);
        }
    }
    return QString();
}

QByteArray RegFile::Export(const QString& key, Format format, QString* error)
{
    QString subKey;
    QString rootName;
    const HKEY root = SplitRoot(key, &subKey, &rootName);
    if (!root) {
        *error = QStringLiteral("unknown root key: %1").arg(key);
        return QByteArray();
    }
    HKEY handle = nullptr;
    LONG result = RegOpenKeyExW(root, reinterpret_cast<LPCWSTR>(subKey.utf16()), 0, KEY_READ, &handle);
    if (result != ERROR_SUCCESS) {
        *error = QStringLiteral("cannot open %1 (error %2)").arg(key).arg(result);
        return QByteArray();
    }
    QString text = (format == Version5 ? Version5Header : Regedit4Header) + LineEnd + LineEnd;
    const QString path = subKey.isEmpty() ? rootName : rootName + QLatin1Char('\\') + subKey;
    result = ExportKey(handle, path, format, &text);
    RegCloseKey(handle);
    if (result != ERROR_SUCCESS) {
        *error = QStringLiteral("cannot read %1 (error %2)").arg(key).arg(result);
        return QByteArray();
    }
    if (format == Regedit4)
        return AnsiCodec()->fromUnicode(text);
    return QByteArray("\xff\xfe", 2) + Utf16Bytes(text);
}
