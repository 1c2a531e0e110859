#include "winreg/winreg.h"

#include "winreg/hivestore_p.h"

#include <cstring>
#include <mutex>
#include <unordered_map>

namespace {

/// What a handle stands for: a key of a hive, opened with an access mask.
struct KeyHandle
{
    std::shared_ptr<HiveStore> store;
    qint64 key = 0;
    REGSAM access = 0;
};

/// The handles open in this process. Handle values are small multiples of
/// four, as on Windows, and never dereferenced: an unknown value (a closed
/// handle, the invalid-handle value) is simply not found.
class HandleTable
{
public:
    static HandleTable& Instance()
    {
        static HandleTable s_table;
        return s_table;
    }

    HKEY Add(const KeyHandle& handle)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_nNext += 4;
        m_handles[m_nNext] = handle;
        return reinterpret_cast<HKEY>(m_nNext);
    }

    LONG Find(HKEY hKey, KeyHandle* handle)
    {
        const QString hive = HiveStore::HivePath(hKey);
        if (!hive.isEmpty()) {
            handle->store = HiveStore::ForPath(hive, hKey == HKEY_CURRENT_USER);
            handle->key = HiveStore::RootKey;
            handle->access = KEY_ALL_ACCESS;
            return ERROR_SUCCESS;
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_handles.find(reinterpret_cast<uintptr_t>(hKey));
        if (found == m_handles.end())
            return ERROR_INVALID_HANDLE;
        *handle = found->second;
        return ERROR_SUCCESS;
    }

    LONG Remove(HKEY hKey)
    {
        if (!HiveStore::HivePath(hKey).isEmpty())
            return ERROR_SUCCESS;
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_handles.erase(reinterpret_cast<uintptr_t>(hKey)) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
    }

private:
    std::mutex m_mutex;
    uintptr_t m_nNext = 0x100;
    std::unordered_map<uintptr_t, KeyHandle> m_handles;
};

QString FromWide(LPCWSTR text)
{
    return text ? QString::fromUtf16(text) : QString();
}

/// Finds the handle and checks that it was opened with `access`.
LONG FindWithAccess(HKEY hKey, REGSAM access, KeyHandle* handle)
{
    const LONG result = HandleTable::Instance().Find(hKey, handle);
    if (result != ERROR_SUCCESS)
        return result;
    return (handle->access & access) == access ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

REGSAM EffectiveAccess(REGSAM desired)
{
    return (desired & MAXIMUM_ALLOWED) ? KEY_ALL_ACCESS : desired;
}

/// Copies a name with its terminating zero when `*count` characters leave room for both.
LONG CopyName(const QString& name, LPWSTR buffer, LPDWORD count)
{
    const DWORD length = static_cast<DWORD>(name.size());
    if (*count < length + 1)
        return ERROR_MORE_DATA;
    std::memcpy(buffer, name.utf16(), length * sizeof(WCHAR));
    buffer[length] = 0;
    *count = length;
    return ERROR_SUCCESS;
}

/// The data part of RegQueryValueExW and RegEnumValueW: size only without a
/// buffer, ERROR_MORE_DATA with the size needed when the buffer is short.
LONG CopyData(const QByteArray& data, LPBYTE buffer, LPDWORD size)
{
    if (!size)
        return ERROR_SUCCESS;
    const DWORD needed = static_cast<DWORD>(data.size());
    if (buffer && *size < needed) {
        *size = needed;
        return ERROR_MORE_DATA;
    }
    if (buffer && needed > 0)
        std::memcpy(buffer, data.constData(), needed);
    *size = needed;
    return ERROR_SUCCESS;
}

void SetFileTime(qint64 value, PFILETIME time)
{
    if (!time)
        return;
    time->dwLowDateTime = static_cast<DWORD>(value & 0xffffffff);
    time->dwHighDateTime = static_cast<DWORD>(static_cast<quint64>(value) >> 32);
}

LONG OpenSubKey(HKEY hKey, LPCWSTR lpSubKey, REGSAM access, PHKEY phkResult)
{
    KeyHandle parent;
    LONG result = HandleTable::Instance().Find(hKey, &parent);
    if (result != ERROR_SUCCESS)
        return result;
    qint64 key = 0;
    result = parent.store->OpenKey(parent.key, HiveStore::SplitPath(FromWide(lpSubKey)), &key);
    if (result != ERROR_SUCCESS)
        return result;
    *phkResult = HandleTable::Instance().Add(KeyHandle{parent.store, key, access});
    return ERROR_SUCCESS;
}

} // namespace

LONG RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD /*ulOptions*/, REGSAM samDesired, PHKEY phkResult)
{
    if (!phkResult)
        return ERROR_INVALID_PARAMETER;
    *phkResult = nullptr;
    return OpenSubKey(hKey, lpSubKey, EffectiveAccess(samDesired), phkResult);
}

LONG RegOpenKeyW(HKEY hKey, LPCWSTR lpSubKey, PHKEY phkResult)
{
    if (!phkResult)
        return ERROR_INVALID_PARAMETER;
    *phkResult = nullptr;
    if (HiveStore::SplitPath(FromWide(lpSubKey)).isEmpty()) {
        // Without a sub-key the caller gets its own handle back, not a new one.
        KeyHandle handle;
        LONG result = HandleTable::Instance().Find(hKey, &handle);
        if (result == ERROR_SUCCESS)
            result = handle.store->CheckKey(handle.key);
        if (result == ERROR_SUCCESS)
            *phkResult = hKey;
        return result;
    }
    return OpenSubKey(hKey, lpSubKey, KEY_ALL_ACCESS, phkResult);
}

LONG RegCreateKeyW(HKEY hKey, LPCWSTR lpSubKey, PHKEY phkResult)
{
    if (!phkResult)
        return ERROR_INVALID_PARAMETER;
    *phkResult = nullptr;
    const QStringList path = HiveStore::SplitPath(FromWide(lpSubKey));
    if (path.isEmpty())
        return RegOpenKeyW(hKey, lpSubKey, phkResult);
    KeyHandle parent;
    LONG result = FindWithAccess(hKey, KEY_CREATE_SUB_KEY, &parent);
    if (result != ERROR_SUCCESS)
        return result;
    qint64 key = 0;
    result = parent.store->CreateKey(parent.key, path, &key);
    if (result != ERROR_SUCCESS)
        return result;
    *phkResult = HandleTable::Instance().Add(KeyHandle{parent.store, key, KEY_ALL_ACCESS});
    return ERROR_SUCCESS;
}

LONG RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                      LPDWORD lpcbData)
{
    if (lpReserved || (lpData && !lpcbData))
        return ERROR_INVALID_PARAMETER;
    KeyHandle handle;
    LONG result = FindWithAccess(hKey, KEY_QUERY_VALUE, &handle);
    if (result != ERROR_SUCCESS)
        return result;
    HiveValue value;
    result = handle.store->QueryValue(handle.key, FromWide(lpValueName), &value);
    if (result != ERROR_SUCCESS)
        return result;
    if (lpType)
        *lpType = value.type;
    return CopyData(value.data, lpData, lpcbData);
}

LONG RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD /*Reserved*/, DWORD dwType, const BYTE* lpData,
                    DWORD cbData)
{
    if (!lpData && cbData > 0)
        return ERROR_INVALID_PARAMETER;
    KeyHandle handle;
    const LONG result = FindWithAccess(hKey, KEY_SET_VALUE, &handle);
    if (result != ERROR_SUCCESS)
        return result;
    const QByteArray data(reinterpret_cast<const char*>(lpData), lpData ? static_cast<int>(cbData) : 0);
    return handle.store->SetValue(handle.key, FromWide(lpValueName), dwType, data);
}

LONG RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName)
{
    KeyHandle handle;
    const LONG result = FindWithAccess(hKey, KEY_SET_VALUE, &handle);
    if (result != ERROR_SUCCESS)
        return result;
    return handle.store->DeleteValue(handle.key, FromWide(lpValueName));
}

LONG RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey)
{
    if (!lpSubKey)
        return ERROR_INVALID_PARAMETER;
    KeyHandle handle;
    const LONG result = HandleTable::Instance().Find(hKey, &handle);
    if (result != ERROR_SUCCESS)
        return result;
    return handle.store->DeleteKey(handle.key, HiveStore::SplitPath(FromWide(lpSubKey)));
}

LONG RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName, LPDWORD lpReserved,
                   LPWSTR lpClass, LPDWORD lpcchClass, PFILETIME lpftLastWriteTime)
{
    if (!lpName || !lpcchName || lpReserved)
        return ERROR_INVALID_PARAMETER;
    KeyHandle handle;
    LONG result = FindWithAccess(hKey, KEY_ENUMERATE_SUB_KEYS, &handle);
    if (result != ERROR_SUCCESS)
        return result;
    QString name;
    qint64 written = 0;
    result = handle.store->EnumKey(handle.key, dwIndex, &name, &written);
    if (result != ERROR_SUCCESS)
        return result;
    result = CopyName(name, lpName, lpcchName);
    if (result != ERROR_SUCCESS)
        return result;
    // Keys carry no class here: an empty one.
    if (lpClass && lpcchClass) {
        if (*lpcchClass < 1)
            return ERROR_MORE_DATA;
        lpClass[0] = 0;
        *lpcchClass = 0;
    }
    SetFileTime(written, lpftLastWriteTime);
    return ERROR_SUCCESS;
}

LONG RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcchValueName, LPDWORD lpReserved,
                   LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData)
{
    if (!lpValueName || !lpcchValueName || lpReserved || (lpData && !lpcbData))
        return ERROR_INVALID_PARAMETER;
    KeyHandle handle;
    LONG result = FindWithAccess(hKey, KEY_QUERY_VALUE, &handle);
    if (result != ERROR_SUCCESS)
        return result;
    HiveValue value;
    result = handle.store->EnumValue(handle.key, dwIndex, &value);
    if (result != ERROR_SUCCESS)
        return result;
    result = CopyName(value.name, lpValueName, lpcchValueName);
    if (result != ERROR_SUCCESS)
        return result;
    if (lpType)
        *lpType = value.type;
    return CopyData(value.data, lpData, lpcbData);
}

LONG RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved, LPDWORD lpcSubKeys,
                      LPDWORD lpcbMaxSubKeyLen, LPDWORD lpcbMaxClassLen, LPDWORD lpcValues,
                      LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen, LPDWORD lpcbSecurityDescriptor,
                      PFILETIME lpftLastWriteTime)
{
    if (lpReserved || (lpClass && !lpcchClass))
        return ERROR_INVALID_PARAMETER;
    KeyHandle handle;
    LONG result = FindWithAccess(hKey, KEY_QUERY_VALUE, &handle);
    if (result != ERROR_SUCCESS)
        return result;
    HiveKeyInfo info;
    result = handle.store->QueryInfo(handle.key, &info);
    if (result != ERROR_SUCCESS)
        return result;
    if (lpClass) {
        if (*lpcchClass < 1)
            return ERROR_MORE_DATA;
        lpClass[0] = 0;
    }
    if (lpcchClass)
        *lpcchClass = 0;
    const auto put = [](LPDWORD target, DWORD value) {
        if (target)
            *target = value;
    };
    put(lpcSubKeys, info.subKeys);
    put(lpcbMaxSubKeyLen, info.maxSubKeyLen);
    put(lpcbMaxClassLen, 0);
    put(lpcValues, info.values);
    put(lpcbMaxValueNameLen, info.maxValueNameLen);
    put(lpcbMaxValueLen, info.maxValueLen);
    put(lpcbSecurityDescriptor, 0);
    SetFileTime(info.lastWriteTime, lpftLastWriteTime);
    return ERROR_SUCCESS;
}

LONG RegCloseKey(HKEY hKey)
{
    return HandleTable::Instance().Remove(hKey);
}
