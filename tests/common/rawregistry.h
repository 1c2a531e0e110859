#ifndef TESTS_COMMON_RAWREGISTRY_H
#define TESTS_COMMON_RAWREGISTRY_H

// The registry as a test sees it from outside the code under test: read and
// written with the Win32 functions themselves, key paths in full.

#include "winreg/winreg.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

inline LPCWSTR W(const QString& text)
{
    return reinterpret_cast<LPCWSTR>(text.utf16());
}

/// REG_SZ data: the UTF-16 text with its terminating zero.
inline QByteArray Sz(const QString& text)
{
    return QByteArray(reinterpret_cast<const char*>(text.utf16()), (text.size() + 1) * 2);
}

/// A value as the registry holds it, or "error <code>" when the key or the value cannot be read.
inline QByteArray ReadRegistryValue(HKEY root, const QString& key, const QString& name, DWORD* type = nullptr)
{
    HKEY handle = nullptr;
    LONG result = RegOpenKeyExW(root, W(key), 0, KEY_READ, &handle);
    if (result != ERROR_SUCCESS)
        return "error " + QByteArray::number(result);
    QByteArray data(4096, '\0');
    DWORD size = 4096;
    result = RegQueryValueExW(handle, W(name), nullptr, type, reinterpret_cast<LPBYTE>(data.data()), &size);
    RegCloseKey(handle);
    if (result != ERROR_SUCCESS)
        return "error " + QByteArray::number(result);
    return data.left(static_cast<int>(size));
}

/// Writes one value, creating its key where it is missing.
inline LONG WriteRegistryValue(HKEY root, const QString& key, const QString& name, DWORD type,
                               const QByteArray& data)
{
    HKEY handle = nullptr;
    LONG result = RegCreateKeyW(root, W(key), &handle);
    if (result != ERROR_SUCCESS)
        return result;
    result = RegSetValueExW(handle, W(name), 0, type, reinterpret_cast<const BYTE*>(data.constData()),
                            static_cast<DWORD>(data.size()));
    RegCloseKey(handle);
    return result;
}

inline LONG CreateRegistryKey(HKEY root, const QString& key)
{
    HKEY handle = nullptr;
    const LONG result = RegCreateKeyW(root, W(key), &handle);
    if (result == ERROR_SUCCESS)
        RegCloseKey(handle);
    return result;
}

/// ERROR_SUCCESS when the key exists, otherwise the error of opening it.
inline LONG RegistryKeyState(HKEY root, const QString& key)
{
    HKEY handle = nullptr;
    const LONG result = RegOpenKeyExW(root, W(key), 0, KEY_READ, &handle);
    if (result == ERROR_SUCCESS)
        RegCloseKey(handle);
    return result;
}

/// The names `enumerate(index, buffer, length)` hands out for index 0, 1, ... until it fails.
template <typename Enumerate> QStringList EnumeratedNames(Enumerate enumerate)
{
    QStringList names;
    for (DWORD i = 0;; ++i) {
        WCHAR name[256];
        DWORD length = 256;
        if (enumerate(i, name, &length) != ERROR_SUCCESS)
            return names;
        names << QString::fromUtf16(name, static_cast<int>(length));
    }
}

inline QStringList SubKeyNames(HKEY key)
{
    return EnumeratedNames([key](DWORD i, LPWSTR name, LPDWORD length) {
        return RegEnumKeyExW(key, i, name, length, nullptr, nullptr, nullptr, nullptr);
    });
}

inline QStringList ValueNames(HKEY key)
{
    return EnumeratedNames([key](DWORD i, LPWSTR name, LPDWORD length) {
        return RegEnumValueW(key, i, name, length, nullptr, nullptr, nullptr, nullptr);
    });
}

#endif
