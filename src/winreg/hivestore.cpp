#include "winreg/hivestore_p.h"

#include <QDateTime>
#include <QDir>
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

} // namespace

/// A cached prepared statement, reset for its next use when this goes out of scope.
class HiveStore::Statement
{
public:
    explicit Statement(sqlite3_stmt* stmt) : m_pStmt(stmt) {}
    ~Statement()
    {
        if (m_pStmt) {
            sqlite3_reset(m_pStmt);
            sqlite3_clear_bindings(m_pStmt);
        }
    }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    bool IsValid() const { return m_pStmt != nullptr; }
    // A statement that failed to prepare binds nothing and steps to an error.
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
    int Step() { return m_pStmt ? sqlite3_step(m_pStmt) : SQLITE_ERROR; }
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

private:
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
    QString dir = qEnvironmentVariable("ZENT_REGISTRY_DIR");
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
    QDir().mkpath(QFileInfo(m_sPath).absolutePath());
    const bool isNew = !QFileInfo::exists(m_sPath);
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
    // The user's hive is as private as HKEY_CURRENT_USER is on Windows; SQLite gives
    // its log and index files the permissions of the database file.
    if (isNew && ownerOnly)
        QFile::setPermissions(m_sPath, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
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

LONG HiveStore::Failure(int sqliteCode, LONG fallback) const
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

LONG HiveStore::KeyExists(qint64 key)
{
    Statement stmt(Prepare("SELECT 1 FROM keys WHERE id = ?1"));
    if (!stmt.IsValid())
        return ERROR_CANTREAD;
    stmt.Bind(1, key);
    const int rc = stmt.Step();
    if (rc == SQLITE_ROW)
        return ERROR_SUCCESS;
    return rc == SQLITE_DONE ? ERROR_KEY_DELETED : Failure(rc, ERROR_CANTREAD);
}

LONG HiveStore::FindChild(qint64 parent, const QString& name, qint64* child)
{
    Statement stmt(Prepare("SELECT id FROM keys WHERE parent = ?1 AND upper = ?2"));
    if (!stmt.IsValid())
        return ERROR_CANTREAD;
    stmt.Bind(1, parent);
    stmt.Bind(2, UpperName(name));
    const int rc = stmt.Step();
    if (rc == SQLITE_ROW) {
        *child = stmt.Int(0);
        return ERROR_SUCCESS;
    }
    return rc == SQLITE_DONE ? ERROR_FILE_NOT_FOUND : Failure(rc, ERROR_CANTREAD);
}

LONG HiveStore::InsertChild(qint64 parent, const QString& name, qint64* child)
{
    Statement stmt(Prepare("INSERT INTO keys(parent, name, upper, written) VALUES(?1, ?2, ?3, ?4)"));
    if (!stmt.IsValid())
        return ERROR_CANTWRITE;
    stmt.Bind(1, parent);
    stmt.Bind(2, name);
    stmt.Bind(3, UpperName(name));
    stmt.Bind(4, NowAsFileTime());
    const int rc = stmt.Step();
    if (rc != SQLITE_DONE)
        return Failure(rc, ERROR_CANTWRITE);
    *child = sqlite3_last_insert_rowid(m_pDb);
    return TouchKey(parent);
}

LONG HiveStore::HasChildren(qint64 key, bool* has)
{
    Statement stmt(Prepare("SELECT 1 FROM keys WHERE parent = ?1 LIMIT 1"));
    if (!stmt.IsValid())
        return ERROR_CANTREAD;
    stmt.Bind(1, key);
    const int rc = stmt.Step();
    if (rc != SQLITE_ROW && rc != SQLITE_DONE)
        return Failure(rc, ERROR_CANTREAD);
    *has = rc == SQLITE_ROW;
    return ERROR_SUCCESS;
}

LONG HiveStore::TouchKey(qint64 key)
{
    Statement stmt(Prepare("UPDATE keys SET written = ?2 WHERE id = ?1"));
    if (!stmt.IsValid())
        return ERROR_CANTWRITE;
    stmt.Bind(1, key);
    stmt.Bind(2, NowAsFileTime());
    const int rc = stmt.Step();
    return rc == SQLITE_DONE ? ERROR_SUCCESS : Failure(rc, ERROR_CANTWRITE);
}

LONG HiveStore::CheckKey(qint64 key)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!m_pDb)
        return key == RootKey ? ERROR_SUCCESS : ERROR_KEY_DELETED;
    Transaction txn(m_pDb, false);
    if (txn.Result() != SQLITE_OK)
        return Failure(txn.Result(), ERROR_CANTREAD);
    return KeyExists(key);
}

LONG HiveStore::OpenKey(qint64 parent, const QStringList& path, qint64* key)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!m_pDb)
        return path.isEmpty() ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    Transaction txn(m_pDb, false);
    if (txn.Result() != SQLITE_OK)
        return Failure(txn.Result(), ERROR_CANTREAD);
    LONG result = KeyExists(parent);
    qint64 current = parent;
    for (int i = 0; result == ERROR_SUCCESS && i < path.size(); ++i)
        result = FindChild(current, path.at(i), &current);
    if (result == ERROR_SUCCESS)
        *key = current;
    return result;
}

LONG HiveStore::CreateKey(qint64 parent, const QStringList& path, qint64* key)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!m_pDb || m_bReadOnly)
        return ERROR_ACCESS_DENIED;
    Transaction txn(m_pDb, true);
    if (txn.Result() != SQLITE_OK)
        return Failure(txn.Result(), ERROR_CANTWRITE);
    LONG result = KeyExists(parent);
    qint64 current = parent;
    for (int i = 0; result == ERROR_SUCCESS && i < path.size(); ++i) {
        result = FindChild(current, path.at(i), &current);
        if (result == ERROR_FILE_NOT_FOUND)
            result = InsertChild(current, path.at(i), &current);
    }
    if (result != ERROR_SUCCESS)
        return result;
    if (txn.Commit() != SQLITE_OK)
        return ERROR_CANTWRITE;
    *key = current;
    return ERROR_SUCCESS;
}

LONG HiveStore::DeleteKey(qint64 parent, const QStringList& path)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!m_pDb || m_bReadOnly)
        return path.isEmpty() ? ERROR_ACCESS_DENIED : ERROR_FILE_NOT_FOUND;
    Transaction txn(m_pDb, true);
    if (txn.Result() != SQLITE_OK)
        return Failure(txn.Result(), ERROR_CANTWRITE);
    LONG result = KeyExists(parent);
    qint64 target = parent;
    qint64 owner = parent;
    for (int i = 0; result == ERROR_SUCCESS && i < path.size(); ++i) {
        owner = target;
        result = FindChild(target, path.at(i), &target);
    }
    if (result != ERROR_SUCCESS)
        return result;
    bool hasChildren = false;
    if (target == RootKey)
        return ERROR_ACCESS_DENIED;
    if ((result = HasChildren(target, &hasChildren)) != ERROR_SUCCESS)
        return result;
    if (hasChildren)
        return ERROR_ACCESS_DENIED;
    if (path.isEmpty()) {
        Statement parentOf(Prepare("SELECT parent FROM keys WHERE id = ?1"));
        parentOf.Bind(1, target);
        if (parentOf.Step() == SQLITE_ROW)
            owner = parentOf.Int(0);
    }
    Statement values(Prepare("DELETE FROM vals WHERE key = ?1"));
    values.Bind(1, target);
    int rc = values.Step();
    if (rc != SQLITE_DONE)
        return Failure(rc, ERROR_CANTWRITE);
    Statement keys(Prepare("DELETE FROM keys WHERE id = ?1"));
    keys.Bind(1, target);
    rc = keys.Step();
    if (rc != SQLITE_DONE)
        return Failure(rc, ERROR_CANTWRITE);
    if ((result = TouchKey(owner)) != ERROR_SUCCESS)
        return result;
    return txn.Commit() == SQLITE_OK ? ERROR_SUCCESS : ERROR_CANTWRITE;
}

LONG HiveStore::QueryValue(qint64 key, const QString& name, HiveValue* value)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!m_pDb)
        return ERROR_FILE_NOT_FOUND;
    Transaction txn(m_pDb, false);
    if (txn.Result() != SQLITE_OK)
        return Failure(txn.Result(), ERROR_CANTREAD);
    const LONG result = KeyExists(key);
    if (result != ERROR_SUCCESS)
        return result;
    Statement stmt(Prepare("SELECT name, type, data FROM vals WHERE key = ?1 AND upper = ?2"));
    if (!stmt.IsValid())
        return ERROR_CANTREAD;
    stmt.Bind(1, key);
    stmt.Bind(2, UpperName(name));
    const int rc = stmt.Step();
    if (rc != SQLITE_ROW)
        return rc == SQLITE_DONE ? ERROR_FILE_NOT_FOUND : Failure(rc, ERROR_CANTREAD);
    value->name = stmt.Text(0);
    value->type = static_cast<DWORD>(stmt.Int(1));
    value->data = stmt.Blob(2);
    return ERROR_SUCCESS;
}

LONG HiveStore::SetValue(qint64 key, const QString& name, DWORD type, const QByteArray& data)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!m_pDb || m_bReadOnly)
        return ERROR_ACCESS_DENIED;
    Transaction txn(m_pDb, true);
    if (txn.Result() != SQLITE_OK)
        return Failure(txn.Result(), ERROR_CANTWRITE);
    LONG result = KeyExists(key);
    if (result != ERROR_SUCCESS)
        return result;
    // An existing value keeps its name as first written and its place in the enumeration.
    Statement update(Prepare("UPDATE vals SET type = ?3, data = ?4 WHERE key = ?1 AND upper = ?2"));
    update.Bind(1, key);
    update.Bind(2, UpperName(name));
    update.Bind(3, static_cast<qint64>(type));
    update.Bind(4, data);
    int rc = update.Step();
    if (rc != SQLITE_DONE)
        return Failure(rc, ERROR_CANTWRITE);
    if (sqlite3_changes(m_pDb) == 0) {
        Statement insert(
            Prepare("INSERT INTO vals(key, name, upper, type, data) VALUES(?1, ?2, ?3, ?4, ?5)"));
        insert.Bind(1, key);
        insert.Bind(2, name);
        insert.Bind(3, UpperName(name));
        insert.Bind(4, static_cast<qint64>(type));
        insert.Bind(5, data);
        rc = insert.Step();
        if (rc != SQLITE_DONE)
            return Failure(rc, ERROR_CANTWRITE);
    }
    if ((result = TouchKey(key)) != ERROR_SUCCESS)
        return result;
    return txn.Commit() == SQLITE_OK ? ERROR_SUCCESS : ERROR_CANTWRITE;
}

LONG HiveStore::DeleteValue(qint64 key, const QString& name)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!m_pDb || m_bReadOnly)
        return m_pDb ? ERROR_ACCESS_DENIED : ERROR_FILE_NOT_FOUND;
    Transaction txn(m_pDb, true);
    if (txn.Result() != SQLITE_OK)
        return Failure(txn.Result(), ERROR_CANTWRITE);
    LONG result = KeyExists(key);
    if (result != ERROR_SUCCESS)
        return result;
    Statement stmt(Prepare("DELETE FROM vals WHERE key = ?1 AND upper = ?2"));
    stmt.Bind(1, key);
    stmt.Bind(2, UpperName(name));
    const int rc = stmt.Step();
    if (rc != SQLITE_DONE)
        return Failure(rc, ERROR_CANTWRITE);
    if (sqlite3_changes(m_pDb) == 0)
        return ERROR_FILE_NOT_FOUND;
    if ((result = TouchKey(key)) != ERROR_SUCCESS)
        return result;
    return txn.Commit() == SQLITE_OK ? ERROR_SUCCESS : ERROR_CANTWRITE;
}

LONG HiveStore::EnumKey(qint64 key, DWORD index, QString* name, qint64* lastWriteTime)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!m_pDb)
        return ERROR_NO_MORE_ITEMS;
    Transaction txn(m_pDb, false);
    if (txn.Result() != SQLITE_OK)
        return Failure(txn.Result(), ERROR_CANTREAD);
    const LONG result = KeyExists(key);
    if (result != ERROR_SUCCESS)
        return result;
    // Upper-case names compare as Windows sorts sub-keys: by code unit after upper-casing.
    Statement stmt(
        Prepare("SELECT name, written FROM keys WHERE parent = ?1 ORDER BY upper LIMIT 1 OFFSET ?2"));
    stmt.Bind(1, key);
    stmt.Bind(2, static_cast<qint64>(index));
    const int rc = stmt.Step();
    if (rc != SQLITE_ROW)
        return rc == SQLITE_DONE ? ERROR_NO_MORE_ITEMS : Failure(rc, ERROR_CANTREAD);
    *name = stmt.Text(0);
    *lastWriteTime = stmt.Int(1);
    return ERROR_SUCCESS;
}

LONG HiveStore::EnumValue(qint64 key, DWORD index, HiveValue* value)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!m_pDb)
        return ERROR_NO_MORE_ITEMS;
    Transaction txn(m_pDb, false);
    if (txn.Result() != SQLITE_OK)
        return Failure(txn.Result(), ERROR_CANTREAD);
    const LONG result = KeyExists(key);
    if (result != ERROR_SUCCESS)
        return result;
    Statement stmt(Prepare("SELECT name, type, data FROM vals WHERE key = ?1 ORDER BY id LIMIT 1 OFFSET ?2"));
    stmt.Bind(1, key);
    stmt.Bind(2, static_cast<qint64>(index));
    const int rc = stmt.Step();
    if (rc != SQLITE_ROW)
        return rc == SQLITE_DONE ? ERROR_NO_MORE_ITEMS : Failure(rc, ERROR_CANTREAD);
    value->name = stmt.Text(0);
    value->type = static_cast<DWORD>(stmt.Int(1));
    value->data = stmt.Blob(2);
    return ERROR_SUCCESS;
}

LONG HiveStore::QueryInfo(qint64 key, HiveKeyInfo* info)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    *info = HiveKeyInfo();
    if (!m_pDb)
        return ERROR_SUCCESS;
    Transaction txn(m_pDb, false);
    if (txn.Result() != SQLITE_OK)
        return Failure(txn.Result(), ERROR_CANTREAD);
    const LONG result = KeyExists(key);
    if (result != ERROR_SUCCESS)
        return result;
    Statement keys(Prepare("SELECT name FROM keys WHERE parent = ?1"));
    keys.Bind(1, key);
    while (keys.Step() == SQLITE_ROW) {
        ++info->subKeys;
        info->maxSubKeyLen = std::max<DWORD>(info->maxSubKeyLen, keys.Text(0).size());
    }
    Statement values(Prepare("SELECT name, length(data) FROM vals WHERE key = ?1"));
    values.Bind(1, key);
    while (values.Step() == SQLITE_ROW) {
        ++info->values;
        info->maxValueNameLen = std::max<DWORD>(info->maxValueNameLen, values.Text(0).size());
        info->maxValueLen = std::max<DWORD>(info->maxValueLen, static_cast<DWORD>(values.Int(1)));
    }
    Statement written(Prepare("SELECT written FROM keys WHERE id = ?1"));
    written.Bind(1, key);
    if (written.Step() == SQLITE_ROW)
        info->lastWriteTime = written.Int(0);
    return ERROR_SUCCESS;
}
