#include "winreg/hivestore_p.h"

#include "kvbase/zentos.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sqlite3.h>

#include <algorithm>

namespace {

// FILETIME counts 100 ns steps since 1601-01-01.
constexpr qint64 FileTimeEpochOffsetMs = 11644473600000LL;

qint64 NowAsFileTime()
{
    return (QDateTime::currentMSecsSinceEpoch() + FileTimeEpochOffsetMs) * 10000;
}

const char* const SchemaSql =
    "CREATE TABLE IF NOT EXISTS keys("
    " id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " parent INTEGER,"
    " name TEXT NOT NULL,"
    " upper TEXT NOT NULL,"
    " written INTEGER NOT NULL);"
    "CREATE UNIQUE INDEX IF NOT EXISTS keys_by_name ON keys(parent, upper);"
    "CREATE TABLE IF NOT EXISTS vals("
    " id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " key INTEGER NOT NULL,"
    " name TEXT NOT NULL,"
    " upper TEXT NOT NULL,"
    " type INTEGER NOT NULL,"
    " data BLOB NOT NULL);"
    "CREATE UNIQUE INDEX IF NOT EXISTS vals_by_name ON vals(key, upper);"
    "INSERT OR IGNORE INTO keys(id, parent, name, upper, written) VALUES(1, NULL, '', '', 0);";

/// The Win32 code for an SQLite failure; `fallback` for all but access and memory.
LONG Failure(int sqliteCode, LONG fallback)
{
    switch (sqliteCode & 0xff) {
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
        return ERROR_ACCESS_DENIED;
    case SQLITE_NOMEM:
        return ERROR_OUTOFMEMORY;
    default:
        return fallback;
    }
}

/// The result of stepping a query to its first row: `whenNoRow` when there is none.
LONG RowResult(int rc, LONG whenNoRow)
{
    if (rc == SQLITE_ROW)
        return ERROR_SUCCESS;
    return rc == SQLITE_DONE ? whenNoRow : Failure(rc, ERROR_CANTREAD);
}

} // namespace

/// A cached prepared statement with its parameters bound in order (?1, ?2, ...),
/// reset for its next use when this goes out of scope.
class HiveStore::Statement
{
public:
    template <typename... Values>
    explicit Statement(sqlite3_stmt* stmt, const Values&... values) : m_pStmt(stmt)
    {
        int index = 0;
        (Bind(++index, values), ...);
    }
    ~Statement()
    {
        if (m_pStmt) {
            sqlite3_reset(m_pStmt);
            sqlite3_clear_bindings(m_pStmt);
        }
    }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    // A statement that failed to prepare binds nothing and steps to an error,
    // which every caller reports as the failure of its read or write.
    int Step() { return m_pStmt ? sqlite3_step(m_pStmt) : SQLITE_ERROR; }
    /// Steps to the first row: ERROR_SUCCESS on a row, `whenNoRow` without one.
    LONG FirstRow(LONG whenNoRow) { return RowResult(Step(), whenNoRow); }
    qint64 Int(int column) const { return sqlite3_column_int64(m_pStmt, column); }
    QString Text(int column) const
    {
        const void* text = sqlite3_column_text16(m_pStmt, column);
        const int bytes = sqlite3_column_bytes16(m_pStmt, column);
        return QString::fromUtf16(static_cast<const char16_t*>(text), bytes / 2);
    }
    QByteArray Blob(int column) const
    {
        const void* data = sqlite3_column_blob(m_pStmt, column);
        const int bytes = sqlite3_column_bytes(m_pStmt, column);
        return QByteArray(static_cast<const char*>(data), bytes);
    }
    /// The row's columns name, type and data as one value.
    HiveValue Value() const { return HiveValue{Text(0), static_cast<DWORD>(Int(1)), Blob(2)}; }

private:
    void Bind(int index, qint64 value)
    {
        if (m_pStmt)
            sqlite3_bind_int64(m_pStmt, index, value);
    }
    void Bind(int index, const QString& text)
    {
        if (m_pStmt)
            sqlite3_bind_text16(m_pStmt, index, text.utf16(), text.size() * 2, SQLITE_TRANSIENT);
    }
    void Bind(int index, const QByteArray& data)
    {
        if (m_pStmt)
            sqlite3_bind_blob(m_pStmt, index, data.constData(), data.size(), SQLITE_TRANSIENT);
    }

    sqlite3_stmt* m_pStmt;
};

/// One SQLite transaction; rolled back unless committed. Writers take the
/// write lock at once (IMMEDIATE) so that a reader never has to upgrade.
class HiveStore::Transaction
{
public:
    Transaction(sqlite3* db, bool write) : m_pDb(db)
    {
        m_nResult = sqlite3_exec(db, write ? "BEGIN IMMEDIATE" : "BEGIN", nullptr, nullptr, nullptr);
    }
    ~Transaction()
    {
        if (m_nResult == SQLITE_OK && !m_bDone)
            sqlite3_exec(m_pDb, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    int Result() const { return m_nResult; }
    int Commit()
    {
        m_bDone = true;
        const int rc = sqlite3_exec(m_pDb, "COMMIT", nullptr, nullptr, nullptr);
        if (rc != SQLITE_OK)
            sqlite3_exec(m_pDb, "ROLLBACK", nullptr, nullptr, nullptr);
        return rc;
    }

private:
    sqlite3* m_pDb;
    int m_nResult;
    bool m_bDone = false;
};

std::shared_ptr<HiveStore> HiveStore::ForPath(const QString& path, bool ownerOnly)
{
    static std::mutex s_mutex;
    static std::map<QString, std::shared_ptr<HiveStore>> s_stores;
    std::lock_guard<std::mutex> lock(s_mutex);
    std::shared_ptr<HiveStore>& store = s_stores[path];
    if (!store)
        store.reset(new HiveStore(path, ownerOnly));
    return store;
}

QString HiveStore::HivePath(HKEY predefined)
{
    QString fileName;
    if (predefined == HKEY_CURRENT_USER)
        fileName = QStringLiteral("HKEY_CURRENT_USER.db");
    else if (predefined == HKEY_LOCAL_MACHINE)
        fileName = QStringLiteral("HKEY_LOCAL_MACHINE.db");
    else
        return QString();
    // Not from the environment of a set-user-id caller: it could move the machine hive.
    const char* moved = ZentOS::Get().GetTrustedEnvironmentVar("ZENT_REGISTRY_DIR");
    QString dir = moved ? QFile::decodeName(moved) : QString();
    if (dir.isEmpty())
        dir = DefaultDirectory(predefined);
    return QDir(dir).filePath(fileName);
}

QString HiveStore::UpperName(const QString& name)
{
    QString upper(name);
    for (QChar& c : upper)
        c = c.toUpper();
    return upper;
}

QStringList HiveStore::SplitPath(const QString& path)
{
    return path.split(QLatin1Char('\\'), Qt::SkipEmptyParts);
}

HiveStore::HiveStore(const QString& path, bool ownerOnly) : m_sPath(path)
{
    m_lOpenError = Open(ownerOnly);
}

HiveStore::~HiveStore()
{
    for (auto& entry : m_statements)
        sqlite3_finalize(entry.second);
    sqlite3_close(m_pDb);
}

LONG HiveStore::Open(bool ownerOnly)
{
    // The machine hive's folder is everybody's to read and the administrator's
    // to write, whatever the umask; a user's hive folder is the user's alone.
    ZentOS::Get().CreateDirectories(QFileInfo(m_sPath).absolutePath(), ownerOnly ? 0700 : 0755);
    const bool isNew = !QFileInfo::exists(m_sPath);
    if (isNew) {
        // Made here, not by SQLite, so that it has its final mode from the
        // start and no link is followed; SQLite takes an empty file for a
        // new database and gives its log and index files the same mode.
        QFile made;
        ZentOS::Get().CreateNewFile(made, m_sPath, ownerOnly ? 0600 : 0644);
    }
    const QByteArray file = QFile::encodeName(m_sPath);
    int rc = sqlite3_open_v2(file.constData(), &m_pDb, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (rc != SQLITE_OK) {
        sqlite3_close(m_pDb);
        m_pDb = nullptr;
        // A hive this user may not write (the machine hive, usually) can still be read.
        rc = sqlite3_open_v2(file.constData(), &m_pDb, SQLITE_OPEN_READONLY, nullptr);
        if (rc != SQLITE_OK) {
            sqlite3_close(m_pDb);
            m_pDb = nullptr;
            return ERROR_FILE_NOT_FOUND;
        }
        m_bReadOnly = true;
    }
    sqlite3_busy_timeout(m_pDb, 10000);
    if (m_bReadOnly)
        return ERROR_SUCCESS;
    // The log and index files stay when the last writer closes: a reader who
    // may not write the folder (every user, for the machine hive) cannot make
    // them, and without them could read only while a writer holds the hive.
    int persist = 1;
    sqlite3_file_control(m_pDb, "main", SQLITE_FCNTL_PERSIST_WAL, &persist);
    // WAL: a commit is in the log file before the call returns, so a killed
    // process loses nothing it was told was written; NORMAL syncs at
    // checkpoints, which keeps the database consistent after a power loss.
    sqlite3_exec(m_pDb, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr);
    sqlite3_exec(m_pDb, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
    return CreateSchema();
}

LONG HiveStore::CreateSchema()
{
    Transaction txn(m_pDb, true);
    if (txn.Result() != SQLITE_OK)
        return Failure(txn.Result(), ERROR_CANTWRITE);
    const int rc = sqlite3_exec(m_pDb, SchemaSql, nullptr, nullptr, nullptr);
    if (rc != SQLITE_OK)
        return Failure(rc, ERROR_CANTWRITE);
    return txn.Commit() == SQLITE_OK ? ERROR_SUCCESS : ERROR_CANTWRITE;
}

sqlite3_stmt* HiveStore::Prepare(const char* sql)
{
    auto found = m_statements.find(sql);
    if (found != m_statements.end())
        return found->second;
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(m_pDb, sql, -1, &stmt, nullptr) != SQLITE_OK) {
        sqlite3_finalize(stmt);
        return nullptr;
    }
    m_statements[sql] = stmt;
    return stmt;
}

template <typename Body> LONG HiveStore::Read(qint64 key, LONG withoutDatabase, Body body)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!m_pDb)
        return withoutDatabase;
    Transaction txn(m_pDb, false);
    if (txn.Result() != SQLITE_OK)
        return Failure(txn.Result(), ERROR_CANTREAD);
    const LONG result = KeyExists(key);
    return result == ERROR_SUCCESS ? body() : result;
}

template <typename Body> LONG HiveStore::Write(qint64 key, LONG withoutWritableDatabase, Body body)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!m_pDb || m_bReadOnly)
        return withoutWritableDatabase;
    Transaction txn(m_pDb, true);
    if (txn.Result() != SQLITE_OK)
        return Failure(txn.Result(), ERROR_CANTWRITE);
    LONG result = KeyExists(key);
    if (result == ERROR_SUCCESS)
        result = body();
    if (result != ERROR_SUCCESS)
        return result;
    return txn.Commit() == SQLITE_OK ? ERROR_SUCCESS : ERROR_CANTWRITE;
}

template <typename... Values> LONG HiveStore::Change(const char* sql, const Values&... values)
{
    Statement stmt(Prepare(sql), values...);
    const int rc = stmt.Step();
    return rc == SQLITE_DONE ? ERROR_SUCCESS : Failure(rc, ERROR_CANTWRITE);
}

LONG HiveStore::KeyExists(qint64 key)
{
    return Statement(Prepare("SELECT 1 FROM keys WHERE id = ?1"), key).FirstRow(ERROR_KEY_DELETED);
}

LONG HiveStore::FindChild(qint64 parent, const QString& name, qint64* child)
{
    Statement stmt(Prepare("SELECT id FROM keys WHERE parent = ?1 AND upper = ?2"), parent, UpperName(name));
    const LONG result = stmt.FirstRow(ERROR_FILE_NOT_FOUND);
    if (result == ERROR_SUCCESS)
        *child = stmt.Int(0);
    return result;
}

LONG HiveStore::FindPath(const QStringList& path, qint64* key, qint64* owner)
{
    LONG result = ERROR_SUCCESS;
    for (int i = 0; result == ERROR_SUCCESS && i < path.size(); ++i) {
        *owner = *key;
        result = FindChild(*key, path.at(i), key);
    }
    return result;
}

LONG HiveStore::InsertChild(qint64 parent, const QString& name, qint64* child)
{
    const LONG result = Change("INSERT INTO keys(parent, name, upper, written) VALUES(?1, ?2, ?3, ?4)",
                               parent, name, UpperName(name), NowAsFileTime());
    if (result != ERROR_SUCCESS)
        return result;
    *child = sqlite3_last_insert_rowid(m_pDb);
    return TouchKey(parent);
}

LONG HiveStore::CheckRemovable(qint64 key)
{
    if (key == RootKey)
        return ERROR_ACCESS_DENIED;
    Statement stmt(Prepare("SELECT 1 FROM keys WHERE parent = ?1 LIMIT 1"), key);
    const int rc = stmt.Step();
    if (rc != SQLITE_ROW && rc != SQLITE_DONE)
        return Failure(rc, ERROR_CANTREAD);
    return rc == SQLITE_ROW ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

LONG HiveStore::RemoveKey(qint64 key, qint64 owner)
{
    LONG result = Change("DELETE FROM vals WHERE key = ?1", key);
    if (result == ERROR_SUCCESS)
        result = Change("DELETE FROM keys WHERE id = ?1", key);
    return result == ERROR_SUCCESS ? TouchKey(owner) : result;
}

LONG HiveStore::TouchKey(qint64 key)
{
    return Change("UPDATE keys SET written = ?2 WHERE id = ?1", key, NowAsFileTime());
}

LONG HiveStore::CheckKey(qint64 key)
{
    return Read(key, key == RootKey ? ERROR_SUCCESS : ERROR_KEY_DELETED,
                []() -> LONG { return ERROR_SUCCESS; });
}

LONG HiveStore::OpenKey(qint64 parent, const QStringList& path, qint64* key)
{
    return Read(parent, path.isEmpty() ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND, [&]() -> LONG {
        qint64 found = parent;
        qint64 owner = parent;
        const LONG result = FindPath(path, &found, &owner);
        if (result == ERROR_SUCCESS)
            *key = found;
        return result;
    });
}

LONG HiveStore::CreateKey(qint64 parent, const QStringList& path, qint64* key)
{
    qint64 current = parent;
    const LONG result = Write(parent, ERROR_ACCESS_DENIED, [&]() -> LONG {
        LONG step = ERROR_SUCCESS;
        for (int i = 0; step == ERROR_SUCCESS && i < path.size(); ++i) {
            step = FindChild(current, path.at(i), &current);
            if (step == ERROR_FILE_NOT_FOUND)
                step = InsertChild(current, path.at(i), &current);
        }
        return step;
    });
    if (result == ERROR_SUCCESS)
        *key = current;
    return result;
}

LONG HiveStore::DeleteKey(qint64 parent, const QStringList& path)
{
    return Write(parent, path.isEmpty() ? ERROR_ACCESS_DENIED : ERROR_FILE_NOT_FOUND, [&]() -> LONG {
        qint64 target = parent;
        qint64 owner = parent;
        LONG result = FindPath(path, &target, &owner);
        if (result == ERROR_SUCCESS)
            result = CheckRemovable(target);
        if (result != ERROR_SUCCESS)
            return result;
        if (path.isEmpty()) {
            Statement parentOf(Prepare("SELECT parent FROM keys WHERE id = ?1"), target);
            if (parentOf.Step() == SQLITE_ROW)
                owner = parentOf.Int(0);
        }
        return RemoveKey(target, owner);
    });
}

LONG HiveStore::QueryValue(qint64 key, const QString& name, HiveValue* value)
{
    return Read(key, ERROR_FILE_NOT_FOUND, [&]() -> LONG {
        Statement stmt(Prepare("SELECT name, type, data FROM vals WHERE key = ?1 AND upper = ?2"), key,
                       UpperName(name));
        const LONG result = stmt.FirstRow(ERROR_FILE_NOT_FOUND);
        if (result == ERROR_SUCCESS)
            *value = stmt.Value();
        return result;
    });
}

LONG HiveStore::SetValue(qint64 key, const QString& name, DWORD type, const QByteArray& data)
{
    return Write(key, ERROR_ACCESS_DENIED, [&]() -> LONG {
        const QString upper = UpperName(name);
        // An existing value keeps its name as first written and its place in the enumeration.
        LONG result = Change("UPDATE vals SET type = ?3, data = ?4 WHERE key = ?1 AND upper = ?2", key, upper,
                             static_cast<qint64>(type), data);
        if (result == ERROR_SUCCESS && sqlite3_changes(m_pDb) == 0)
            result = Change("INSERT INTO vals(key, name, upper, type, data) VALUES(?1, ?2, ?3, ?4, ?5)", key,
                            name, upper, static_cast<qint64>(type), data);
        return result == ERROR_SUCCESS ? TouchKey(key) : result;
    });
}

LONG HiveStore::DeleteValue(qint64 key, const QString& name)
{
    // m_pDb is set once, when the store is opened.
    return Write(key, m_pDb ? ERROR_ACCESS_DENIED : ERROR_FILE_NOT_FOUND, [&]() -> LONG {
        LONG result = Change("DELETE FROM vals WHERE key = ?1 AND upper = ?2", key, UpperName(name));
        if (result == ERROR_SUCCESS && sqlite3_changes(m_pDb) == 0)
            result = ERROR_FILE_NOT_FOUND;
        return result == ERROR_SUCCESS ? TouchKey(key) : result;
    });
}

LONG HiveStore::EnumKey(qint64 key, DWORD index, QString* name, qint64* lastWriteTime)
{
    return Read(key, ERROR_NO_MORE_ITEMS, [&]() -> LONG {
        // Upper-case names compare as Windows sorts sub-keys: by code unit after upper-casing.
        Statement stmt(
            Prepare("SELECT name, written FROM keys WHERE parent = ?1 ORDER BY upper LIMIT 1 OFFSET ?2"), key,
            static_cast<qint64>(index));
        const LONG result = stmt.FirstRow(ERROR_NO_MORE_ITEMS);
        if (result == ERROR_SUCCESS) {
            *name = stmt.Text(0);
            *lastWriteTime = stmt.Int(1);
        }
        return result;
    });
}

LONG HiveStore::EnumValue(qint64 key, DWORD index, HiveValue* value)
{
    return Read(key, ERROR_NO_MORE_ITEMS, [&]() -> LONG {
        Statement stmt(
            Prepare("SELECT name, type, data FROM vals WHERE key = ?1 ORDER BY id LIMIT 1 OFFSET ?2"), key,
            static_cast<qint64>(index));
        const LONG result = stmt.FirstRow(ERROR_NO_MORE_ITEMS);
        if (result == ERROR_SUCCESS)
            *value = stmt.Value();
        return result;
    });
}

LONG HiveStore::QueryInfo(qint64 key, HiveKeyInfo* info)
{
    *info = HiveKeyInfo();
    return Read(key, ERROR_SUCCESS, [&]() -> LONG {
        Statement keys(Prepare("SELECT name FROM keys WHERE parent = ?1"), key);
        while (keys.Step() == SQLITE_ROW) {
            ++info->subKeys;
            info->maxSubKeyLen = std::max<DWORD>(info->maxSubKeyLen, keys.Text(0).size());
        }
        Statement values(Prepare("SELECT name, length(data) FROM vals WHERE key = ?1"), key);
        while (values.Step() == SQLITE_ROW) {
            ++info->values;
            info->maxValueNameLen = std::max<DWORD>(info->maxValueNameLen, values.Text(0).size());
            info->maxValueLen = std::max<DWORD>(info->maxValueLen, static_cast<DWORD>(values.Int(1)));
        }
        Statement written(Prepare("SELECT written FROM keys WHERE id = ?1"), key);
        if (written.Step() == SQLITE_ROW)
            info->lastWriteTime = written.Int(0);
        return ERROR_SUCCESS;
    });
}
