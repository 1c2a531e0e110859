#ifndef ZENT_WINREG_WINREG_H
#define ZENT_WINREG_WINREG_H

/// \file
/// The registry seam: the Win32 registry functions with Windows' names,
/// argument types and error codes, so that the registry configuration is
/// written once against them. On Linux they are implemented here over one
/// SQLite database per hive; a Windows build includes `windows.h` and links
/// the real advapi32 functions instead of this folder.
///
/// Behaviour kept from Windows: key and value names are case-insensitive and
/// case-preserving; sub-keys enumerate in the order of their upper-case names,
/// values in creation order; a buffer that is too small gives ERROR_MORE_DATA
/// and, for value data, the size needed; RegDeleteKeyW refuses a key that has
/// sub-keys; a handle whose key was deleted through another handle (or by
/// another process) answers ERROR_KEY_DELETED. Every write is visible to other
/// processes at once and survives a kill of the writing process.
///
/// Where the hives live: HKEY_CURRENT_USER in the user's configuration
/// directory, HKEY_LOCAL_MACHINE in a machine-wide data directory; the
/// environment variable ZENT_REGISTRY_DIR, when set, holds both.

#ifdef _WIN32
#include <windows.h>
#else

#include "zentappstartup_export.h"

#include <cstdint>

/// The Windows data types of the registry functions, with Windows' sizes.
///@{
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint8_t BYTE;
typedef char16_t WCHAR;
typedef DWORD* LPDWORD;
typedef BYTE* LPBYTE;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef DWORD ACCESS_MASK;
typedef ACCESS_MASK REGSAM;
///@}

struct HKEY__;
/// An open registry key; opaque.
///@{
typedef HKEY__* HKEY;
typedef HKEY* PHKEY;
///@}

/// A point in time as Windows counts it: 100-nanosecond intervals since
/// 1 January 1601 (UTC), in two 32-bit halves.
typedef struct _FILETIME
{
    /// The lower 32 bits of the count.
    DWORD dwLowDateTime;
    /// The upper 32 bits of the count.
    DWORD dwHighDateTime;
} FILETIME, *PFILETIME;
/// \typedef struct _FILETIME* PFILETIME
/// A pointer to a FILETIME.

// Predefined keys: the 32-bit values of Windows, sign-extended as there.
/// A predefined root key, always open.
///@{
#define HKEY_CLASSES_ROOT (reinterpret_cast<HKEY>(static_cast<intptr_t>(static_cast<LONG>(0x80000000))))
#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(static_cast<intptr_t>(static_cast<LONG>(0x80000001))))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<intptr_t>(static_cast<LONG>(0x80000002))))
#define HKEY_USERS (reinterpret_cast<HKEY>(static_cast<intptr_t>(static_cast<LONG>(0x80000003))))
///@}

/// A result of the registry functions, with Windows' number.
///@{
#define ERROR_SUCCESS 0
#define ERROR_FILE_NOT_FOUND 2
#define ERROR_ACCESS_DENIED 5
#define ERROR_INVALID_HANDLE 6
#define ERROR_OUTOFMEMORY 14
#define ERROR_INVALID_PARAMETER 87
#define ERROR_BAD_PATHNAME 161
#define ERROR_MORE_DATA 234
#define ERROR_NO_MORE_ITEMS 259
#define ERROR_CANTOPEN 1011
#define ERROR_CANTREAD 1012
#define ERROR_CANTWRITE 1013
#define ERROR_KEY_DELETED 1018
///@}

/// A registry value type, with Windows' number.
///@{
#define REG_NONE 0
#define REG_SZ 1
#define REG_EXPAND_SZ 2
#define REG_BINARY 3
#define REG_DWORD 4
#define REG_DWORD_LITTLE_ENDIAN 4
#define REG_DWORD_BIG_ENDIAN 5
#define REG_LINK 6
#define REG_MULTI_SZ 7
#define REG_QWORD 11
///@}

/// An access right of a key, with Windows' bits.
///@{
#define DELETE 0x00010000
#define READ_CONTROL 0x00020000
#define SYNCHRONIZE 0x00100000
#define STANDARD_RIGHTS_READ READ_CONTROL
#define STANDARD_RIGHTS_WRITE READ_CONTROL
#define STANDARD_RIGHTS_ALL 0x001F0000
#define MAXIMUM_ALLOWED 0x02000000

#define KEY_QUERY_VALUE 0x0001
#define KEY_SET_VALUE 0x0002
#define KEY_CREATE_SUB_KEY 0x0004
#define KEY_ENUMERATE_SUB_KEYS 0x0008
#define KEY_NOTIFY 0x0010
#define KEY_CREATE_LINK 0x0020
#define KEY_WOW64_64KEY 0x0100
#define KEY_WOW64_32KEY 0x0200
#define KEY_READ                                                                                             \
    ((STANDARD_RIGHTS_READ | KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY) & ~SYNCHRONIZE)
#define KEY_WRITE ((STANDARD_RIGHTS_WRITE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY) & ~SYNCHRONIZE)
#define KEY_EXECUTE (KEY_READ & ~SYNCHRONIZE)
#define KEY_ALL_ACCESS                                                                                       \
    ((STANDARD_RIGHTS_ALL | KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY | KEY_ENUMERATE_SUB_KEYS |  \
      KEY_NOTIFY | KEY_CREATE_LINK) &                                                                        \
     ~SYNCHRONIZE)
///@}

/// Opens a symbolic link key itself rather than its target.
#define REG_OPTION_OPEN_LINK 0x00000008

extern "C" {

/// Opens `lpSubKey` below `hKey` with the access `samDesired`; NULL or "" opens `hKey` again.
ZENTAPPSTARTUP_EXPORT LONG RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired,
                                         PHKEY phkResult);
/// Opens or creates `lpSubKey` (and every missing key on its path) with full access.
ZENTAPPSTARTUP_EXPORT LONG RegCreateKeyW(HKEY hKey, LPCWSTR lpSubKey, PHKEY phkResult);
/// Opens `lpSubKey` with full access; NULL or "" gives `hKey` itself back.
ZENTAPPSTARTUP_EXPORT LONG RegOpenKeyW(HKEY hKey, LPCWSTR lpSubKey, PHKEY phkResult);
/// Reads a value; NULL or "" names the default value. Without `lpData` only the size is
/// returned; a short buffer gives ERROR_MORE_DATA with the size needed in `*lpcbData`.
ZENTAPPSTARTUP_EXPORT LONG RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved,
                                            LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData);
/// Writes the value `lpValueName` (NULL or "" the default value) with the
/// type `dwType` and `cbData` bytes of `lpData`, replacing an existing one.
ZENTAPPSTARTUP_EXPORT LONG RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved, DWORD dwType,
                                          const BYTE* lpData, DWORD cbData);
/// Deletes the value `lpValueName`.
ZENTAPPSTARTUP_EXPORT LONG RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName);
/// Deletes a key that has no sub-keys (ERROR_ACCESS_DENIED otherwise); "" deletes `hKey`'s own key.
ZENTAPPSTARTUP_EXPORT LONG RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey);
/// The sub-key at `dwIndex` in the order of upper-case names; `*lpcchName` counts characters.
ZENTAPPSTARTUP_EXPORT LONG RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName,
                                         LPDWORD lpReserved, LPWSTR lpClass, LPDWORD lpcchClass,
                                         PFILETIME lpftLastWriteTime);
/// The value at `dwIndex` in creation order.
ZENTAPPSTARTUP_EXPORT LONG RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcchValueName,
                                         LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData);
/// Counts and maximum lengths (names in characters, data in bytes); keys have no class here.
ZENTAPPSTARTUP_EXPORT LONG RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved,
                                            LPDWORD lpcSubKeys, LPDWORD lpcbMaxSubKeyLen,
                                            LPDWORD lpcbMaxClassLen, LPDWORD lpcValues,
                                            LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen,
                                            LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime);
/// Releases a handle of RegOpenKeyExW, RegCreateKeyW or RegOpenKeyW.
ZENTAPPSTARTUP_EXPORT LONG RegCloseKey(HKEY hKey);
}

#endif // _WIN32

#endif
