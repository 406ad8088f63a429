#include "MBTilesWriter.h"

#include "Error.h"
#include "OutputFile.h"
#include "TileMath.h"

#include <sqlite3.h>

#include <filesystem>

namespace fs = std::filesystem;

namespace cxtiler
{

MBTilesWriter::MBTilesWriter(const std::string& path) : _path(path)
{
    cxtool::checkOutputPath(path);
    _temporaryPath = cxtool::temporaryPathFor(path);
    if (sqlite3_open_v2(_temporaryPath.c_str(), &_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr)
        != SQLITE_OK)
    {
        const std::string message = _db ? sqlite3_errmsg(_db) : "out of memory";
        sqlite3_close(_db);
        _db = nullptr;
        std::error_code ec;
        fs::remove(_temporaryPath, ec);
        throw Error("cannot write '" + path + "': " + message);
    }
    _pending = std::make_unique<cxtool::PendingFile>(_temporaryPath);

    // No rollback journal: a failed run throws the whole file away anyway.
    execute("PRAGMA journal_mode=OFF");
    execute("PRAGMA synchronous=OFF");
    execute("PRAGMA page_size=4096");
    execute("CREATE TABLE metadata (name TEXT, value TEXT)");
    execute("CREATE UNIQUE INDEX metadata_name ON metadata (name)");
    execute("CREATE TABLE tiles (zoom_level INTEGER, tile_column INTEGER, tile_row INTEGER, tile_data BLOB)");
    execute("CREATE UNIQUE INDEX tile_index ON tiles (zoom_level, tile_column, tile_row)");
    execute("BEGIN");
    if (sqlite3_prepare_v2(_db, "INSERT OR REPLACE INTO tiles VALUES (?, ?, ?, ?)", -1, &_insertTile, nullptr)
            != SQLITE_OK
        || sqlite3_prepare_v2(_db, "INSERT OR REPLACE INTO metadata VALUES (?, ?)", -1, &_insertMetadata, nullptr)
               != SQLITE_OK)
        fail("preparing the inserts");
}

MBTilesWriter::~MBTilesWriter()
{
    if (!_committed)
        discard();
}

void MBTilesWriter::execute(const char* sql)
{
    char* message = nullptr;
    if (sqlite3_exec(_db, sql, nullptr, nullptr, &message) != SQLITE_OK)
    {
        const std::string text = message ? message : "unknown error";
        sqlite3_free(message);
        fail(text);
    }
}

void MBTilesWriter::fail(const std::string& what)
{
    const std::string message = _db ? sqlite3_errmsg(_db) : "";
    discard();
    throw Error("cannot write '" + _path + "': " + what + (message.empty() || message == what ? "" : ": " + message));
}

void MBTilesWriter::discard()
{
    sqlite3_finalize(_insertTile);
    sqlite3_finalize(_insertMetadata);
    _insertTile = _insertMetadata = nullptr;
    if (_db)
    {
        sqlite3_close(_db);
        _db = nullptr;
    }
    if (!_temporaryPath.empty())
    {
        std::error_code ec;
        fs::remove(_temporaryPath, ec);
        _pending.reset();
    }
}

void MBTilesWriter::setMetadata(const std::string& name, const std::string& value)
{
    if (!_db)
        throw Error("cannot write '" + _path + "': the file is closed");
    sqlite3_reset(_insertMetadata);
    sqlite3_bind_text(_insertMetadata, 1, name.c_str(), static_cast<int>(name.size()), SQLITE_TRANSIENT);
    sqlite3_bind_text(_insertMetadata, 2, value.c_str(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
    if (sqlite3_step(_insertMetadata) != SQLITE_DONE)
        fail("writing the metadata");
}

void MBTilesWriter::putTile(int zoom, int x, int y, const std::vector<std::uint8_t>& data)
{
    if (!_db)
        throw Error("cannot write '" + _path + "': the file is closed");
    sqlite3_reset(_insertTile);
    sqlite3_bind_int(_insertTile, 1, zoom);
    sqlite3_bind_int(_insertTile, 2, x);
    sqlite3_bind_int(_insertTile, 3, tmsRow(zoom, y));
    sqlite3_bind_blob(_insertTile, 4, data.data(), static_cast<int>(data.size()), SQLITE_STATIC);
    if (sqlite3_step(_insertTile) != SQLITE_DONE)
        fail("writing tile " + std::to_string(zoom) + "/" + std::to_string(x) + "/" + std::to_string(y));
}

void MBTilesWriter::commit()
{
    if (!_db)
        throw Error("cannot write '" + _path + "': the file is closed");
    sqlite3_finalize(_insertTile);
    sqlite3_finalize(_insertMetadata);
    _insertTile = _insertMetadata = nullptr;
    execute("COMMIT");
    if (sqlite3_close(_db) != SQLITE_OK)
        fail("closing the file");
    _db = nullptr;
    cxtool::syncFile(_temporaryPath);

    std::error_code ec;
    fs::rename(_temporaryPath, _path, ec);
    if (ec)
    {
        discard();
        throw Error("cannot write '" + _path + "': " + ec.message());
    }
    _pending.reset();
    _committed = true;
}

} // namespace cxtiler
