// The manager of the object store: one SQLite connection per open store,
// prepared statements, and one mutex per store that serialises the callers
// (the host's thread and the database pager's threads call at once).
#include <datastore/DBManage>

#include "StoreSchema.h"

#include <sqlite3.h>

#include <filesystem>

namespace DBManage
{

namespace schema = storeschema;

ShowObjProperty::ShowObjProperty() = default;
ShowObjProperty::ShowObjProperty(const ShowObjProperty& rhs) = default;
ShowObjProperty& ShowObjProperty::operator=(const ShowObjProperty& rhs) = default;
ShowObjProperty::~ShowObjProperty() = default;

EnterProperty::EnterProperty() = default;
EnterProperty::EnterProperty(const EnterProperty& rhs) = default;
EnterProperty& EnterProperty::operator=(const EnterProperty& rhs) = default;
EnterProperty::~EnterProperty() = default;

QuadTreeProperty::QuadTreeProperty() = default;
QuadTreeProperty::QuadTreeProperty(const QuadTreeProperty& rhs) = default;
QuadTreeProperty& QuadTreeProperty::operator=(const QuadTreeProperty& rhs) = default;
QuadTreeProperty::~QuadTreeProperty() = default;

namespace
{

// How long a call waits for a lock held by another process (a tool writing
// the same file) before it gives up with a null or false result.
constexpr int kBusyTimeoutMs = 2000;

// sqlite3 would read a path that starts with "file:" as a URI; an absolute
// path never does.
std::string sqlitePath(const std::string& path)
{
    std::error_code ec;
    const std::filesystem::path absolute = std::filesystem::absolute(path, ec);
    return ec ? path : absolute.string();
}

} // namespace

struct SQLiteDBManager::Store
{
    std::mutex mutex;
    std::string path;
    sqlite3* db = nullptr;
    sqlite3_stmt* selectObject = nullptr;
    sqlite3_stmt* updateObject = nullptr;
    sqlite3_stmt* deleteObject = nullptr;
    sqlite3_stmt* selectEnterprise = nullptr;
    sqlite3_stmt* selectEnterprises = nullptr;
    sqlite3_stmt* selectNode = nullptr;
    sqlite3_stmt* updateNode = nullptr;

    Store() = default;
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    ~Store()
    {
        for (sqlite3_stmt* statement :
             {selectObject, updateObject, deleteObject, selectEnterprise, selectEnterprises, selectNode, updateNode})
            sqlite3_finalize(statement);
        sqlite3_close_v2(db);
    }

    /** Opens `path` if it is an object store; null with `error` set if not.
      * A file that is not a store is never written: its header is read by hand
      * first, and only a file that has the store's marks and tables is switched
      * to WAL. A connection that can write changes a file by itself only when a
      * log lies beside it (it replays or checkpoints it): then the marks are
      * read through a read-only connection first. */
    static std::shared_ptr<Store> open(const std::string& path, std::string& error)
    {
        error = schema::checkFileHeader(path);
        if (!error.empty())
            return nullptr;
        const std::string file = sqlitePath(path);

        std::error_code ec;
        if (std::filesystem::exists(path + "-wal", ec) || std::filesystem::exists(path + "-journal", ec))
        {
            const bool hadShm = std::filesystem::exists(path + "-shm", ec);
            sqlite3* probe = nullptr;
            if (sqlite3_open_v2(file.c_str(), &probe, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr)
                == SQLITE_OK)
            {
                sqlite3_busy_timeout(probe, kBusyTimeoutMs);
                error = schema::checkMarks(probe);
            }
            else
                error = std::string("it cannot be opened: ") + (probe ? sqlite3_errmsg(probe) : "out of memory");
            sqlite3_close_v2(probe);
            if (!error.empty())
            {
                // The read-only connection may have made the shared-memory index.
                if (!hadShm)
                    std::filesystem::remove(path + "-shm", ec);
                return nullptr;
            }
        }

        auto store = std::make_shared<Store>();
        store->path = path;
        if (sqlite3_open_v2(file.c_str(), &store->db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr)
            != SQLITE_OK)
        {
            error = std::string("it cannot be opened: ") + (store->db ? sqlite3_errmsg(store->db) : "out of memory");
            return nullptr;
        }
        sqlite3_busy_timeout(store->db, kBusyTimeoutMs);
        error = schema::checkMarks(store->db);
        if (!error.empty())
            return nullptr;

        const struct
        {
            sqlite3_stmt** statement;
            const char* sql;
        } statements[] = {
            {&store->selectObject, "SELECT " CXSTORE_OBJECT_COLUMNS " FROM objects WHERE obj_id = ?1"},
            {&store->updateObject,
             "UPDATE objects SET enter_id = ?2, obj_name = ?3, visible = ?4, property_text = ?5, reserved0 = ?6,"
             " reserved1 = ?7, reserved2 = ?8, radius = ?9, pos_x = ?10, pos_y = ?11, pos_z = ?12, obj_type = ?13"
             " WHERE obj_id = ?1"},
            {&store->deleteObject, "DELETE FROM objects WHERE obj_id = ?1"},
            {&store->selectEnterprise, "SELECT " CXSTORE_ENTER_COLUMNS " FROM enterprises WHERE enter_id = ?1"},
            {&store->selectEnterprises, "SELECT " CXSTORE_ENTER_COLUMNS " FROM enterprises ORDER BY enter_id"},
            {&store->selectNode, "SELECT " CXSTORE_NODE_COLUMNS " FROM quadtree_nodes WHERE qtn_id = ?1"},
            {&store->updateNode,
             "UPDATE quadtree_nodes SET enter_id = ?2, center_text = ?3, width = ?4, height = ?5, lod_range = ?6,"
             " child_ids = ?7, object_ids = ?8 WHERE qtn_id = ?1"},
        };
        for (const auto& s : statements)
            if (sqlite3_prepare_v3(store->db, s.sql, -1, SQLITE_PREPARE_PERSISTENT, s.statement, nullptr) != SQLITE_OK)
            {
                error = std::string("its tables are not those of an object store: ") + sqlite3_errmsg(store->db);
                return nullptr;
            }

        // Stores are written in WAL mode; one that was switched back (by another
        // tool) is switched again. A write-protected file stays as it is and is
        // served read-only: its updates give false.
        sqlite3_stmt* mode = nullptr;
        std::string journal;
        if (sqlite3_prepare_v2(store->db, "PRAGMA journal_mode", -1, &mode, nullptr) == SQLITE_OK
            && sqlite3_step(mode) == SQLITE_ROW)
            journal = reinterpret_cast<const char*>(sqlite3_column_text(mode, 0));
        sqlite3_finalize(mode);
        if (journal != "wal" && !sqlite3_db_readonly(store->db, "main"))
            schema::execute(store->db, "PRAGMA journal_mode=WAL", nullptr);
        schema::execute(store->db, "PRAGMA synchronous=NORMAL", nullptr);
        return store;
    }
};

SQLiteDBManager::SQLiteDBManager() = default;

SQLiteDBManager::~SQLiteDBManager() = default;

std::shared_ptr<SQLiteDBManager::Store> SQLiteDBManager::store() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _store;
}

bool SQLiteDBManager::ReadSQLiteDBFile(std::string path)
{
    enterprises.clear();
    std::string error;
    std::shared_ptr<Store> opened = Store::open(path, error);
    std::shared_ptr<Store> previous;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        previous = std::move(_store);
        _store = opened;
        _openError = error;
    }
    // `previous` closes here, or with the last call still running on it.
    return opened != nullptr;
}

bool SQLiteDBManager::ReadEnterProperty()
{
    enterprises.clear();
    const std::shared_ptr<Store> s = store();
    if (!s)
        return false;
    std::vector<osg::ref_ptr<EnterProperty>> read;
    int rc;
    {
        std::lock_guard<std::mutex> lock(s->mutex);
        schema::StatementScope scope(s->selectEnterprises);
        while ((rc = sqlite3_step(s->selectEnterprises)) == SQLITE_ROW)
            read.emplace_back(schema::readEnterprise(s->selectEnterprises));
    }
    if (rc != SQLITE_DONE)
        return false;
    enterprises = std::move(read);
    return true;
}

ShowObjProperty* SQLiteDBManager::ShowObjQueryInfo(int id)
{
    const std::shared_ptr<Store> s = store();
    if (!s)
        return nullptr;
    std::lock_guard<std::mutex> lock(s->mutex);
    schema::StatementScope scope(s->selectObject);
    sqlite3_bind_int(s->selectObject, 1, id);
    return sqlite3_step(s->selectObject) == SQLITE_ROW ? schema::readObject(s->selectObject) : nullptr;
}

bool SQLiteDBManager::ShowObjUpdateInfo(ShowObjProperty* property)
{
    const std::shared_ptr<Store> s = store();
    if (!s || !property)
        return false;
    std::lock_guard<std::mutex> lock(s->mutex);
    schema::StatementScope scope(s->updateObject);
    schema::bindObject(s->updateObject, *property);
    return sqlite3_step(s->updateObject) == SQLITE_DONE && sqlite3_changes(s->db) == 1;
}

bool SQLiteDBManager::ShowObjDelInfo(int id)
{
    const std::shared_ptr<Store> s = store();
    if (!s)
        return false;
    std::lock_guard<std::mutex> lock(s->mutex);
    schema::StatementScope scope(s->deleteObject);
    sqlite3_bind_int(s->deleteObject, 1, id);
    return sqlite3_step(s->deleteObject) == SQLITE_DONE && sqlite3_changes(s->db) > 0;
}

EnterProperty* SQLiteDBManager::EnterQueryInfo(int id)
{
    const std::shared_ptr<Store> s = store();
    if (!s)
        return nullptr;
    std::lock_guard<std::mutex> lock(s->mutex);
    schema::StatementScope scope(s->selectEnterprise);
    sqlite3_bind_int(s->selectEnterprise, 1, id);
    return sqlite3_step(s->selectEnterprise) == SQLITE_ROW ? schema::readEnterprise(s->selectEnterprise) : nullptr;
}

QuadTreeProperty* SQLiteDBManager::QuadTreeQueryInfo(int id)
{
    const std::shared_ptr<Store> s = store();
    if (!s)
        return nullptr;
    std::lock_guard<std::mutex> lock(s->mutex);
    schema::StatementScope scope(s->selectNode);
    sqlite3_bind_int(s->selectNode, 1, id);
    return sqlite3_step(s->selectNode) == SQLITE_ROW ? schema::readNode(s->selectNode) : nullptr;
}

bool SQLiteDBManager::QuadTreeUpdateInfo(QuadTreeProperty* property)
{
    const std::shared_ptr<Store> s = store();
    if (!s || !property)
        return false;
    std::lock_guard<std::mutex> lock(s->mutex);
    schema::StatementScope scope(s->updateNode);
    schema::bindNode(s->updateNode, *property);
    return sqlite3_step(s->updateNode) == SQLITE_DONE && sqlite3_changes(s->db) == 1;
}

std::string SQLiteDBManager::getPath() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _store ? _store->path : std::string();
}

std::string SQLiteDBManager::getOpenError() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _openError;
}

void SQLiteDBManager::close()
{
    enterprises.clear();
    std::shared_ptr<Store> previous;
    std::lock_guard<std::mutex> lock(_mutex);
    previous.swap(_store);
    _openError.clear();
    // `previous` is released after the lock: closing may checkpoint the log.
}

SQLiteDBManager* getDBManger()
{
    static osg::ref_ptr<SQLiteDBManager> manager = new SQLiteDBManager;
    return manager.get();
}

} // namespace DBManage
