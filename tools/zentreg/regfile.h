#ifndef ZENT_TOOLS_ZENTREG_REGFILE_H
#define ZENT_TOOLS_ZENTREG_REGFILE_H

#include "winreg/winreg.h"

#include <QByteArray>
#include <QList>
#include <QString>

/// The text format of registry exports, as Windows' registry editor reads and
/// writes it: "Windows Registry Editor Version 5.00" (UTF-16LE with a byte
/// order mark) and the older "REGEDIT4" (8-bit text).
///
/// A file is parsed completely before anything is applied, so a file with a
/// bad line changes nothing; a step the registry refuses undoes the steps
/// before it.
class RegFile
{
public:
    /// Imports larger than this are refused before they are read.
    static constexpr qint64 MaxFileSize = qint64(64) * 1024 * 1024;

    enum Format
    {
        Version5,
        Regedit4
    };

    /// One step of an import, in file order.
    struct Operation
    {
        enum Kind
        {
            CreateKey,
            DeleteKey,
            SetValue,
            DeleteValue
        };
        Kind kind = CreateKey;
        QString key; ///< full path, beginning with the root's name
        QString name;
        DWORD type = REG_NONE;
        QByteArray data;
        int line = 0;
    };

    /// Parses a whole file (UTF-16 with BOM, UTF-8 with or without BOM, else
    /// Windows-1252). On failure the operations are empty and the error names the line.
    bool Parse(const QByteArray& content);
    QList<Operation> Operations() const { return m_operations; }
    Format GetFormat() const { return m_format; }
    int ErrorLine() const { return m_nErrorLine; }
    QString ErrorText() const { return m_sErrorText; }

    /// Applies the parsed operations to the registry; an empty result means
    /// success. When a step fails, the steps before it are undone.
    QString Apply() const;

    /// Writes `key` and everything below it as a complete file in `format`,
    /// lines ended by CR LF. On failure the result is empty and `error` says why.
    static QByteArray Export(const QString& key, Format format, QString* error);

    /// The predefined handle a path begins with ("HKEY_CURRENT_USER", "HKCU",
    /// "HKEY_LOCAL_MACHINE", "HKLM"), and the rest of the path; null for any other root.
    static HKEY SplitRoot(const QString& key, QString* subKey, QString* rootName = nullptr);

private:
    bool ParseLines(const QStringList& lines);
    bool ParseKeyLine(const QString& line, int number);
    bool ParseValueLine(const QString& line, int number);
    bool ParseData(const QString& text, Operation* op);
    bool ParseHex(const QString& text, Operation* op);
    bool Fail(int line, const QString& text);

    QList<Operation> m_operations;
    Format m_format = Version5;
    QString m_sCurrentKey;
    bool m_bKeyDeleted = false;
    int m_nErrorLine = 0;
    QString m_sErrorText;
};

#endif
