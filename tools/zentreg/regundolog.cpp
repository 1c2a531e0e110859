#include "regundolog.h"

#include <QStringList>

#include <vector>

namespace {

LPCWSTR Wide(const QString& text)
{
    return reinterpret_cast<LPCWSTR>(text.utf16());
}

QString ParentOf(const QString& subKey)
{
    const int slash = subKey.lastIndexOf(QLatin1Char('\\'));
    return slash < 0 ? QString() : subKey.left(slash);
}

QString LastComponent(const QString& subKey)
{
    return subKey.mid(subKey.lastIndexOf(QLatin1Char('\\')) + 1);
}

QStringList SubKeyNames(HKEY key)
{
    QStringList names;
    for (DWORD index = 0;; ++index) {
        WCHAR name[256];
        DWORD length = 256;
        if (RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            return names;
        names << QString::fromUtf16(name, static_cast<int>(length));
    }
}

/// Opens a key for reading; null when it does not exist (or cannot be read).
HKEY OpenForReading(HKEY root, const QString& subKey)
{
    HKEY key = nullptr;
    return RegOpenKeyExW(root, Wide(subKey), 0, KEY_READ, &key) == ERROR_SUCCESS ? key : nullptr;
}

} // namespace

void RegUndoLog::RecordKeyCreation(HKEY root, const QString& subKey)
{
    QString path;
    for (const QString& component : subKey.split(QLatin1Char('\\'), Qt::SkipEmptyParts)) {
        path += (path.isEmpty() ? QString() : QStringLiteral("\\")) + component;
        HKEY key = nullptr;
        const LONG result = RegOpenKeyExW(root, Wide(path), 0, KEY_READ, &key);
        if (result == ERROR_FILE_NOT_FOUND) {
            Step step;
            step.kind = Step::RemoveTree;
            step.root = root;
            step.subKey = path;
            m_steps.append(step);
            return;
        }
        if (result != ERROR_SUCCESS)
            return;
        RegCloseKey(key);
    }
}

void RegUndoLog::RecordValue(HKEY root, const QString& subKey, const QString& name)
{
    const HKEY key = OpenForReading(root, subKey);
    if (!key)
        return;
    Step step;
    step.root = root;
    step.subKey = subKey;
    step.kind = ReadValue(key, name, &step.value) ? Step::PutValue : Step::RemoveValue;
    step.value.name = name;
    RegCloseKey(key);
    m_steps.append(step);
}

void RegUndoLog::RecordKeyDeletion(HKEY root, const QString& subKey)
{
    const HKEY key = OpenForReading(root, subKey);
    if (!key)
        return;
    Step step;
    step.kind = Step::PutTree;
    step.root = root;
    step.subKey = subKey;
    const bool complete = ReadTree(key, LastComponent(subKey), &step.tree);
    RegCloseKey(key);
    if (complete)
        m_steps.append(step);
}

void RegUndoLog::Rollback()
{
    for (int i = m_steps.size() - 1; i >= 0; --i) {
        const Step& step = m_steps.at(i);
        HKEY key = nullptr;
        switch (step.kind) {
        case Step::RemoveTree:
            DeleteTree(step.root, step.subKey);
            break;
        case Step::PutValue:
            if (RegCreateKeyW(step.root, Wide(step.subKey), &key) == ERROR_SUCCESS) {
                WriteValue(key, step.value);
                RegCloseKey(key);
            }
            break;
        case Step::RemoveValue:
            if (RegOpenKeyExW(step.root, Wide(step.subKey), 0, KEY_ALL_ACCESS, &key) == ERROR_SUCCESS) {
                RegDeleteValueW(key, Wide(step.value.name));
                RegCloseKey(key);
            }
            break;
        case Step::PutTree:
            if (RegCreateKeyW(step.root, Wide(ParentOf(step.subKey)), &key) == ERROR_SUCCESS) {
                WriteTree(key, step.tree);
                if (key != step.root)
                    RegCloseKey(key);
            }
            break;
        }
    }
    m_steps.clear();
}

LONG RegUndoLog::DeleteTree(HKEY root, const QString& subKey)
{
    HKEY key = nullptr;
    LONG result = RegOpenKeyExW(root, Wide(subKey), 0, KEY_ALL_ACCESS, &key);
    if (result == ERROR_FILE_NOT_FOUND)
        return ERROR_SUCCESS;
    if (result != ERROR_SUCCESS)
        return result;
    for (;;) {
        WCHAR name[256];
        DWORD length = 256;
        result = RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (result != ERROR_SUCCESS)
            break;
        result = DeleteTree(key, QString::fromUtf16(name, static_cast<int>(length)));
        if (result != ERROR_SUCCESS)
            break;
    }
    RegCloseKey(key);
    if (result != ERROR_NO_MORE_ITEMS)
        return result;
    return RegDeleteKeyW(root, Wide(subKey));
}

bool RegUndoLog::ReadValue(HKEY key, const QString& name, ValueState* value)
{
    DWORD size = 0;
    if (RegQueryValueExW(key, Wide(name), nullptr, &value->type, nullptr, &size) != ERROR_SUCCESS)
        return false;
    value->data = QByteArray(static_cast<int>(size), '\0');
    return RegQueryValueExW(key, Wide(name), nullptr, &value->type,
                            reinterpret_cast<LPBYTE>(value->data.data()), &size) == ERROR_SUCCESS;
}

bool RegUndoLog::ReadTree(HKEY key, const QString& name, KeyState* tree)
{
    tree->name = name;
    DWORD maxName = 0;
    DWORD maxData = 0;
    if (RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &maxName,
                         &maxData, nullptr, nullptr) != ERROR_SUCCESS)
        return false;
    std::vector<WCHAR> nameBuffer(maxName + 1);
    for (DWORD index = 0;; ++index) {
        DWORD length = static_cast<DWORD>(nameBuffer.size());
        ValueState value;
        value.data = QByteArray(static_cast<int>(maxData), '\0');
        DWORD size = maxData;
        const LONG result = RegEnumValueW(key, index, nameBuffer.data(), &length, nullptr, &value.type,
                                          reinterpret_cast<LPBYTE>(value.data.data()), &size);
        if (result == ERROR_NO_MORE_ITEMS)
            break;
        if (result != ERROR_SUCCESS)
            return false;
        value.name = QString::fromUtf16(nameBuffer.data(), static_cast<int>(length));
        value.data.truncate(static_cast<int>(size));
        tree->values.append(value);
    }
    for (const QString& childName : SubKeyNames(key)) {
        const HKEY child = OpenForReading(key, childName);
        KeyState childTree;
        const bool complete = child && ReadTree(child, childName, &childTree);
        if (child)
            RegCloseKey(child);
        if (!complete)
            return false;
        tree->children.append(childTree);
    }
    return true;
}

void RegUndoLog::WriteTree(HKEY parent, const KeyState& tree)
{
    HKEY key = nullptr;
    if (RegCreateKeyW(parent, Wide(tree.name), &key) != ERROR_SUCCESS)
        return;
    for (const ValueState& value : tree.values)
        WriteValue(key, value);
    for (const KeyState& child : tree.children)
        WriteTree(key, child);
    RegCloseKey(key);
}

void RegUndoLog::WriteValue(HKEY key, const ValueState& value)
{
    RegSetValueExW(key, Wide(value.name), 0, value.type,
                   reinterpret_cast<const BYTE*>(value.data.constData()),
                   static_cast<DWORD>(value.data.size()));
}
