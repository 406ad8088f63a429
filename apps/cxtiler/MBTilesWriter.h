// Writes an MBTiles 1.3 file: the `metadata` and `tiles` tables, rows in TMS order.
// Everything goes to a temporary file next to the target, which replaces the
// target only once complete; a writer destroyed before commit() removes it, so no
// half-written MBTiles is ever left at the target path.
#ifndef CXTILER_MBTILESWRITER_H
#define CXTILER_MBTILESWRITER_H

#include "OutputFile.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace cxtiler
{

class MBTilesWriter
{
public:
    /** Creates the temporary file and the schema; throws Error when the output
     *  cannot be written. */
    explicit MBTilesWriter(const std::string& path);
    ~MBTilesWriter();
    MBTilesWriter(const MBTilesWriter&) = delete;
    MBTilesWriter& operator=(const MBTilesWriter&) = delete;

    void setMetadata(const std::string& name, const std::string& value);

    /** Stores a tile given in XYZ order (row 0 at the north); written as TMS row. */
    void putTile(int zoom, int x, int y, const std::vector<std::uint8_t>& data);

    /** Finishes the file and moves it onto the target path. */
    void commit();

    const std::string& path() const { return _path; }
    const std::string& temporaryPath() const { return _temporaryPath; }

private:
    void execute(const char* sql);
    [[noreturn]] void fail(const std::string& what);
    void discard();

    std::string _path;
    std::string _temporaryPath;
    sqlite3* _db = nullptr;
    sqlite3_stmt* _insertTile = nullptr;
    sqlite3_stmt* _insertMetadata = nullptr;
    std::unique_ptr<cxtool::PendingFile> _pending; ///< while the temporary file is ours
    bool _committed = false;
};

} // namespace cxtiler

#endif
