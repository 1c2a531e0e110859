#ifndef ZENT_WINREG_HIVESTORE_P_H
#define ZENT_WINREG_HIVESTORE_P_H

#include "winreg/winreg.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <map>
#include <memory>
#include <mutex>

struct sqlite3;
struct sqlite3_stmt;

/// Facts about one key, as RegQueryInfoKeyW reports them.
struct HiveKeyInfo
{
    DWORD subKeys = 0;
    DWORD maxSubKeyLen = 0;
    DWORD values = 0;
    DWORD maxValueNameLen = 0;
    DWORD maxValueLen = 0;
    qint64 lastWriteTime = 0; // FILETIME units: 100 ns since 1601
};

/// One value as stored.
struct HiveValue
{
    QString name;
    DWORD type = REG_NONE;
    QByteArray data;
};

/// One registry hive in one SQLite database.
///
/// Keys are rows with a parent; the root key of the hive has the id
/// `RootKey`. Key ids are never reused, so a handle that still holds the id
/// of a deleted key finds nothing and answers ERROR_KEY_DELETED, even after
/// a key of the same name was created again. Names are compared through
/// their upper-case form and stored as written. Every operation reads the
/// database afresh, so other processes' writes are seen at once.
///
/// Every member is thread-safe; the results are Win32 error codes.
class HiveStore
{
public:
    static constexpr qint64 RootKey = 1;

    /// The store for the database file `path`, shared by every handle of this process on it.
    /// A new file of a private hive (`ownerOnly`) is readable and writable by its owner alone.
    static std::shared_ptr<HiveStore> ForPath(const QString& path, bool ownerOnly);
    /// The database file of a predefined hive (HKEY_CURRENT_USER or HKEY_LOCAL_MACHINE);
    /// empty for any other handle.
    static QString HivePath(HKEY predefined);
    /// The folder of both hives when ZENT_REGISTRY_DIR does not name one (platform code).
    static QString DefaultDirectory(HKEY predefined);

    /// The form in which names are compared: each UTF-16 unit mapped to its upper case alone,
    /// as Windows does (no expansion such as "ß" to "SS").
    static QString UpperName(const QString& name);
    /// Splits a key path at backslashes; empty components are dropped.
    static QStringList SplitPath(const QString& path);

    ~HiveStore();
    HiveStore(const HiveStore&) = delete;
    HiveStore& operator=(const HiveStore&) = delete;

    QString Path() const { return m_sPath; }

    LONG OpenKey(qint64 parent, const QStringList& path, qint64* key);
    LONG CreateKey(qint64 parent, const QStringList& path, qint64* key);
    /// Deletes the key `path` below `parent` (or `parent` itself when `path` is empty).
    LONG DeleteKey(qint64 parent, const QStringList& path);
    LONG CheckKey(qint64 key);

    LONG QueryValue(qint64 key, const QString& name, HiveValue* value);
    LONG SetValue(qint64 key, const QString& name, DWORD type, const QByteArray& data);
    LONG DeleteValue(qint64 key, const QString& name);

    LONG EnumKey(qint64 key, DWORD index, QString* name, qint64* lastWriteTime);
    LONG EnumValue(qint64 key, DWORD index, HiveValue* value);
    LONG QueryInfo(qint64 key, HiveKeyInfo* info);

private:
    class Statement;
    class Transaction;

    HiveStore(const QString& path, bool ownerOnly);

    LONG Open(bool ownerOnly);
    LONG CreateSchema();
    sqlite3_stmt* Prepare(const char* sql);

    /// Runs `body` under the lock in a read transaction once `key` is known to exist;
    /// `withoutDatabase` is the answer when the hive could not be opened.
    template <typename Body> LONG Read(qint64 key, LONG withoutDatabase, Body body);
    /// Runs `body` under the lock in a write transaction once `key` is known to exist,
    /// and commits when it succeeds; `withoutWritableDatabase` is the answer when the
    /// hive could not be opened or is read-only.
    template <typename Body> LONG Write(qint64 key, LONG withoutWritableDatabase, Body body);
    /// Runs one INSERT, UPDATE or DELETE with its parameters.
    template <typename... Values> LONG Change(const char* sql, const Values&... values);

    LONG KeyExists(qint64 key);
    LONG FindChild(qint64 parent, const QString& name, qint64* child);
    /// Follows `path` down from `*key`; `*owner` becomes the parent of the key found.
    LONG FindPath(const QStringList& path, qint64* key, qint64* owner);
    LONG InsertChild(qint64 parent, const QString& name, qint64* child);
    /// ERROR_ACCESS_DENIED for the root key and for a key with sub-keys.
    LONG CheckRemovable(qint64 key);
    /// Deletes `key` and its values and marks `owner` as written.
    LONG RemoveKey(qint64 key, qint64 owner);
    LONG TouchKey(qint64 key);

    QString m_sPath;
    std::recursive_mutex m_mutex;
    sqlite3* m_pDb = nullptr;
    bool m_bReadOnly = false;
    LONG m_lOpenError = ERROR_SUCCESS;
    std::map<const char*, sqlite3_stmt*> m_statements;
};

#endif
