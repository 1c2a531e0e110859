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

/// Runs `operation(store, key)` on the key of `hKey` once the handle is found
/// and was opened with `access`.
template <typename Operation> LONG OnKey(HKEY hKey, REGSAM access, Operation operation)
{
    KeyHandle handle;
    const LONG result = FindWithAccess(hKey, access, &handle);
    return result == ERROR_SUCCESS ? operation(*handle.store, handle.key) : result;
}

REGSAM EffectiveAccess(REGSAM desired)
{
    return (desired & MAXIMUM_ALLOWED) ? KEY_ALL_ACCESS : desired;
}

/// Clears the caller's handle variable; false when there is none.
bool ClearResult(PHKEY phkResult)
{
    if (!phkResult)
        return false;
    *phkResult = nullptr;
    return true;
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

/// The type and data of a value, as RegQueryValueExW and RegEnumValueW hand them out.
LONG CopyTypeAndData(const HiveValue& value, LPDWORD type, LPBYTE buffer, LPDWORD size)
{
    if (type)
        *type = value.type;
    return CopyData(value.data, buffer, size);
}

void SetFileTime(qint64 value, PFILETIME time)
{
    if (!time)
        return;
    time->dwLowDateTime = static_cast<DWORD>(value & 0xffffffff);
    time->dwHighDateTime = static_cast<DWORD>(static_cast<quint64>(value) >> 32);
}

/// Opens, or with `create` creates, the key `path` below `hKey` and hands out a new
/// handle with `granted` access to it; the parent handle must hold `required`.
LONG OpenSubKey(HKEY hKey, const QStringList& path, REGSAM required, bool create, REGSAM granted,
                PHKEY phkResult)
{
    KeyHandle parent;
    LONG result = FindWithAccess(hKey, required, &parent);
    qint64 key = 0;
    if (result == ERROR_SUCCESS)
        result = create ? parent.store->CreateKey(parent.key, path, &key)
                        : parent.store->OpenKey(parent.key, path, &key);
    if (result == ERROR_SUCCESS)
        *phkResult = HandleTable::Instance().Add(KeyHandle{parent.store, key, granted});
    return result;
}

} // namespace

LONG RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD /*ulOptions*/, REGSAM samDesired, PHKEY phkResult)
{
    if (!ClearResult(phkResult))
        return ERROR_INVALID_PARAMETER;
    return OpenSubKey(hKey, HiveStore::SplitPath(FromWide(lpSubKey)), 0, false, EffectiveAccess(samDesired),
                      phkResult);
}

LONG RegOpenKeyW(HKEY hKey, LPCWSTR lpSubKey, PHKEY phkResult)
{
    if (!ClearResult(phkResult))
        return ERROR_INVALID_PARAMETER;
    const QStringList path = HiveStore::SplitPath(FromWide(lpSubKey));
    if (!path.isEmpty())
        return OpenSubKey(hKey, path, 0, false, KEY_ALL_ACCESS, phkResult);
    // Without a sub-key the caller gets its own handle back, not a new one.
    const LONG result = OnKey(hKey, 0, [](HiveStore& store, qint64 key) { return store.CheckKey(key); });
    if (result == ERROR_SUCCESS)
        *phkResult = hKey;
    return result;
}

LONG RegCreateKeyW(HKEY hKey, LPCWSTR lpSubKey, PHKEY phkResult)
{
    if (!ClearResult(phkResult))
        return ERROR_INVALID_PARAMETER;
    const QStringList path = HiveStore::SplitPath(FromWide(lpSubKey));
    if (path.isEmpty())
        return RegOpenKeyW(hKey, lpSubKey, phkResult);
    return OpenSubKey(hKey, path, KEY_CREATE_SUB_KEY, true, KEY_ALL_ACCESS, phkResult);
}

LONG RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                      LPDWORD lpcbData)
{
    if (lpReserved || (lpData && !lpcbData))
        return ERROR_INVALID_PARAMETER;
    HiveValue value;
    const LONG result = OnKey(hKey, KEY_QUERY_VALUE, [&](HiveStore& store, qint64 key) {
        return store.QueryValue(key, FromWide(lpValueName), &value);
    });
    return result == ERROR_SUCCESS ? CopyTypeAndData(value, lpType, lpData, lpcbData) : result;
}

LONG RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD /*Reserved*/, DWORD dwType, const BYTE* lpData,
                    DWORD cbData)
{
    if (!lpData && cbData > 0)
        return ERROR_INVALID_PARAMETER;
    return OnKey(hKey, KEY_SET_VALUE, [&](HiveStore& store, qint64 key) {
        const QByteArray data(reinterpret_cast<const char*>(lpData), lpData ? static_cast<int>(cbData) : 0);
        return store.SetValue(key, FromWide(lpValueName), dwType, data);
    });
}

LONG RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName)
{
    return OnKey(hKey, KEY_SET_VALUE,
                 [&](HiveStore& store, qint64 key) { return store.DeleteValue(key, FromWide(lpValueName)); });
}

LONG RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey)
{
    if (!lpSubKey)
        return ERROR_INVALID_PARAMETER;
    return OnKey(hKey, 0, [&](HiveStore& store, qint64 key) {
        return store.DeleteKey(key, HiveStore::SplitPath(FromWide(lpSubKey)));
    });
}

LONG RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName, LPDWORD lpReserved,
                   LPWSTR lpClass, LPDWORD lpcchClass, PFILETIME lpftLastWriteTime)
{
    if (!lpName || !lpcchName || lpReserved)
        return ERROR_INVALID_PARAMETER;
    QString name;
    qint64 written = 0;
    LONG result = OnKey(hKey, KEY_ENUMERATE_SUB_KEYS, [&](HiveStore& store, qint64 key) {
        return store.EnumKey(key, dwIndex, &name, &written);
    });
    if (result == ERROR_SUCCESS)
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
    HiveValue value;
    LONG result = OnKey(hKey, KEY_QUERY_VALUE,
                        [&](HiveStore& store, qint64 key) { return store.EnumValue(key, dwIndex, &value); });
    if (result == ERROR_SUCCESS)
        result = CopyName(value.name, lpValueName, lpcchValueName);
    return result == ERROR_SUCCESS ? CopyTypeAndData(value, lpType, lpData, lpcbData) : result;
}

LONG RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved, LPDWORD lpcSubKeys,
                      LPDWORD lpcbMaxSubKeyLen, LPDWORD lpcbMaxClassLen, LPDWORD lpcValues,
                      LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen, LPDWORD lpcbSecurityDescriptor,
                      PFILETIME lpftLastWriteTime)
{
    if (lpReserved || (lpClass && !lpcchClass))
        return ERROR_INVALID_PARAMETER;
    HiveKeyInfo info;
    const LONG result = OnKey(hKey, KEY_QUERY_VALUE,
                              [&](HiveStore& store, qint64 key) { return store.QueryInfo(key, &info); });
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
