#include "StoreSchema.h"

#include <datastore/DBManage>

#include <sqlite3.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace DBManage
{
namespace storeschema
{

const char* const kCreateStatements[] = {
    "CREATE TABLE store_meta (key TEXT PRIMARY KEY, value TEXT NOT NULL)",
    "CREATE TABLE enterprises ("
    " enter_id INTEGER PRIMARY KEY,"
    " enter_name TEXT NOT NULL,"
    " root_qtn_id INTEGER NOT NULL,"
    " enter_type INTEGER NOT NULL)",
    "CREATE TABLE quadtree_nodes ("
    " qtn_id INTEGER PRIMARY KEY,"
    " enter_id INTEGER NOT NULL,"
    " center_text TEXT NOT NULL,"
    " width REAL NOT NULL,"
    " height REAL NOT NULL,"
    " lod_range REAL NOT NULL,"
    " child_ids TEXT NOT NULL,"
    " object_ids TEXT NOT NULL)",
    "CREATE INDEX quadtree_nodes_enter ON quadtree_nodes (enter_id)",
    "CREATE TABLE objects ("
    " obj_id INTEGER PRIMARY KEY,"
    " enter_id INTEGER NOT NULL,"
    " obj_name TEXT NOT NULL,"
    " visible INTEGER NOT NULL,"
    " property_text TEXT NOT NULL,"
    " reserved0 REAL NOT NULL,"
    " reserved1 REAL NOT NULL,"
    " reserved2 REAL NOT NULL,"
    " radius REAL NOT NULL,"
    " pos_x REAL NOT NULL,"
    " pos_y REAL NOT NULL,"
    " pos_z REAL NOT NULL,"
    " obj_type INTEGER NOT NULL)",
    "CREATE INDEX objects_enter ON objects (enter_id)",
};
const int kCreateStatementCount = static_cast<int>(sizeof(kCreateStatements) / sizeof(kCreateStatements[0]));

namespace
{

std::uint32_t bigEndian(const unsigned char* bytes, int count)
{
    std::uint32_t value = 0;
    for (int i = 0; i < count; ++i)
        value = (value << 8) | bytes[i];
    return value;
}

std::string text(sqlite3_stmt* statement, int column)
{
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    return bytes ? std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement, column)))
                 : std::string();
}

void bindText(sqlite3_stmt* statement, int index, const std::string& value)
{
    sqlite3_bind_text(statement, index, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
}

int integer(sqlite3_stmt* statement, int column)
{
    // Ids and types are 32 bits wide in the records; a wider value written by
    // another program is cut as the records would cut it.
    return static_cast<int>(static_cast<std::uint32_t>(sqlite3_column_int64(statement, column)));
}

} // namespace

std::string checkFileHeader(const std::string& path)
{
    std::error_code ec;
    const fs::file_status status = fs::status(path, ec);
    if (!fs::exists(status))
        return "the file does not exist";
    if (!fs::is_regular_file(status))
        return "it is not a regular file";
    const std::uintmax_t size = fs::file_size(path, ec);
    if (ec)
        return "its size cannot be read: " + ec.message();
    if (size == 0)
        return "the file is empty";

    std::array<unsigned char, 100> header{};
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return "the file cannot be read";
    in.read(reinterpret_cast<char*>(header.data()), header.size());
    if (in.gcount() != static_cast<std::streamsize>(header.size())
        || std::memcmp(header.data(), "SQLite format 3", 16) != 0)
        return "it is not an SQLite file";

    const auto applicationId = static_cast<std::int32_t>(bigEndian(&header[68], 4));
    if (applicationId != kApplicationId)
    {
        char hex[16];
        std::snprintf(hex, sizeof(hex), "0x%08x", static_cast<unsigned>(applicationId));
        return std::string("it is an SQLite file of another kind (application id ") + hex + ")";
    }

    std::uint32_t pageSize = bigEndian(&header[16], 2);
    if (pageSize == 1)
        pageSize = 65536;
    if (pageSize < 512 || pageSize > 65536 || (pageSize & (pageSize - 1)) != 0)
        return "its header is damaged (page size " + std::to_string(pageSize) + ")";

    // The page count in the header is valid when the change counter matches the
    // "version valid for" number. Without a write-ahead log beside it (whose pages
    // would complete the file) a shorter file has lost its end.
    const std::uint32_t changeCounter = bigEndian(&header[24], 4);
    const std::uint32_t pages = bigEndian(&header[28], 4);
    const std::uint32_t validFor = bigEndian(&header[92], 4);
    if (pages > 0 && changeCounter == validFor && !fs::exists(path + "-wal", ec)
        && size < static_cast<std::uintmax_t>(pages) * pageSize)
        return "the file is truncated (" + std::to_string(size) + " bytes of "
               + std::to_string(static_cast<std::uintmax_t>(pages) * pageSize) + ")";
    return {};
}

std::string checkMarks(sqlite3* db)
{
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT key, value FROM store_meta WHERE key IN ('format', 'version')", -1,
                           &statement, nullptr)
        != SQLITE_OK)
    {
        const std::string reason = sqlite3_errmsg(db);
        sqlite3_finalize(statement);
        return "it has no store description (" + reason + ")";
    }
    std::string format, version;
    int rc;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW)
    {
        const std::string key = text(statement, 0);
        (key == "format" ? format : version) = text(statement, 1);
    }
    const std::string stepError = rc == SQLITE_DONE ? std::string() : sqlite3_errmsg(db);
    sqlite3_finalize(statement);
    if (!stepError.empty())
        return "its store description cannot be read (" + stepError + ")";
    if (format != kFormatName)
        return "it is not an object store (format '" + format + "')";
    if (version != kFormatVersion)
        return "it is an object store of version '" + version + "', this library reads version " + kFormatVersion;
    return {};
}

bool execute(sqlite3* db, const char* sql, std::string* error)
{
    char* message = nullptr;
    if (sqlite3_exec(db, sql, nullptr, nullptr, &message) == SQLITE_OK)
        return true;
    if (error)
        *error = message ? message : sqlite3_errmsg(db);
    sqlite3_free(message);
    return false;
}

void bindObject(sqlite3_stmt* statement, const ShowObjProperty& object)
{
    sqlite3_bind_int(statement, 1, object.objID);
    sqlite3_bind_int(statement, 2, object.enterID);
    bindText(statement, 3, object.objName);
    sqlite3_bind_int(statement, 4, object.visible);
    bindText(statement, 5, object.propertyText);
    sqlite3_bind_double(statement, 6, object.reserved0);
    sqlite3_bind_double(statement, 7, object.reserved1);
    sqlite3_bind_double(statement, 8, object.reserved2);
    sqlite3_bind_double(statement, 9, object.radius);
    sqlite3_bind_double(statement, 10, object.posX);
    sqlite3_bind_double(statement, 11, object.posY);
    sqlite3_bind_double(statement, 12, object.posZ);
    sqlite3_bind_int(statement, 13, object.objType);
}

void bindNode(sqlite3_stmt* statement, const QuadTreeProperty& node)
{
    sqlite3_bind_int(statement, 1, node.qtnID);
    sqlite3_bind_int(statement, 2, node.enterID);
    bindText(statement, 3, node.centerText);
    sqlite3_bind_double(statement, 4, node.width);
    sqlite3_bind_double(statement, 5, node.height);
    sqlite3_bind_double(statement, 6, node.lodRange);
    bindText(statement, 7, node.childIDs);
    bindText(statement, 8, node.objectIDs);
}

void bindEnterprise(sqlite3_stmt* statement, const EnterProperty& enterprise)
{
    sqlite3_bind_int(statement, 1, enterprise.enterID);
    bindText(statement, 2, enterprise.enterName);
    sqlite3_bind_int(statement, 3, enterprise.rootQtnID);
    sqlite3_bind_int(statement, 4, enterprise.enterType);
}

ShowObjProperty* readObject(sqlite3_stmt* statement)
{
    auto* object = new ShowObjProperty;
    object->objID = integer(statement, 0);
    object->enterID = integer(statement, 1);
    object->objName = text(statement, 2);
    object->visible = integer(statement, 3);
    object->propertyText = text(statement, 4);
    object->reserved0 = sqlite3_column_double(statement, 5);
    object->reserved1 = sqlite3_column_double(statement, 6);
    object->reserved2 = sqlite3_column_double(statement, 7);
    object->radius = sqlite3_column_double(statement, 8);
    object->posX = sqlite3_column_double(statement, 9);
    object->posY = sqlite3_column_double(statement, 10);
    object->posZ = sqlite3_column_double(statement, 11);
    object->objType = integer(statement, 12);
    return object;
}

QuadTreeProperty* readNode(sqlite3_stmt* statement)
{
    auto* node = new QuadTreeProperty;
    node->qtnID = integer(statement, 0);
    node->enterID = integer(statement, 1);
    node->centerText = text(statement, 2);
    node->width = sqlite3_column_double(statement, 3);
    node->height = sqlite3_column_double(statement, 4);
    node->lodRange = sqlite3_column_double(statement, 5);
    node->childIDs = text(statement, 6);
    node->objectIDs = text(statement, 7);
    return node;
}

EnterProperty* readEnterprise(sqlite3_stmt* statement)
{
    auto* enterprise = new EnterProperty;
    enterprise->enterID = integer(statement, 0);
    enterprise->enterName = text(statement, 1);
    enterprise->rootQtnID = integer(statement, 2);
    enterprise->enterType = integer(statement, 3);
    return enterprise;
}

StatementScope::~StatementScope()
{
    if (_statement)
    {
        sqlite3_reset(_statement);
        sqlite3_clear_bindings(_statement);
    }
}

} // namespace storeschema
} // namespace DBManage
