// Helpers of the cxtiler tests: synthetic whole-Earth sources written as real
// image files, and MBTiles read back with SQLite and OSG's image plugins only.
#ifndef CXVIEWER_TESTS_TILERTESTSUPPORT_H
#define CXVIEWER_TESTS_TILERTESTSUPPORT_H

#include "CommandLine.h"

#include <osg/Image>
#include <osgDB/ReadFile>
#include <osgDB/Registry>
#include <osgDB/WriteFile>

#include <sqlite3.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace tilertest
{

constexpr double kPi = 3.14159265358979323846;

/** Longitude of the centre of source column `i` of a grid `width` wide. */
inline double sourceLongitude(int i, int width) { return -180.0 + (i + 0.5) * 360.0 / width; }
/** Latitude of the centre of source row `j` (from the north) of a grid `height` high. */
inline double sourceLatitude(int j, int height) { return 90.0 - (j + 0.5) * 180.0 / height; }

/** Longitude and latitude of the centre of pixel (column, row) of XYZ tile (z, x, y),
 *  worked out here independently of the tool. */
inline double tilePixelLongitude(int z, int x, int column)
{
    return ((x * 256.0 + column + 0.5) / (256.0 * (1 << z))) * 360.0 - 180.0;
}
inline double tilePixelLatitude(int z, int y, int row)
{
    const double n = kPi - 2.0 * kPi * (y * 256.0 + row + 0.5) / (256.0 * (1 << z));
    return 180.0 / kPi * std::atan(0.5 * (std::exp(n) - std::exp(-n)));
}

/** Writes an RGB(A) image whose pixel at (column, row from the top) is colour(lon, lat). */
inline void writeEquirect(const std::string& path, int width, int height, int channels,
                          const std::function<std::array<std::uint8_t, 4>(double lon, double lat)>& colour)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(width, height, 1, channels == 4 ? GL_RGBA : GL_RGB, GL_UNSIGNED_BYTE);
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column)
        {
            const auto c = colour(sourceLongitude(column, width), sourceLatitude(row, height));
            // OSG keeps the bottom row first.
            std::uint8_t* p = image->data(column, height - 1 - row);
            for (int k = 0; k < channels; ++k)
                p[k] = c[k];
        }
    osgDB::writeImageFile(*image, path);
}

/** Writes a single-channel 16-bit image of signed heights, value(column, row from top). */
inline void writeHeights16(const std::string& path, int width, int height,
                           const std::function<std::int16_t(int column, int row)>& value)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(width, height, 1, GL_LUMINANCE, GL_UNSIGNED_SHORT);
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column)
        {
            const std::int16_t v = value(column, row);
            auto* p = reinterpret_cast<std::uint16_t*>(image->data(column, height - 1 - row));
            *p = static_cast<std::uint16_t>(v);
        }
    osgDB::writeImageFile(*image, path);
}

/** Writes an RGB tile in the SRTM encoding: height = (int16)(G * 256 + B). */
inline void writeSrtmTile(const std::string& path, int size, const std::function<std::int16_t(int column, int row)>& value)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(size, size, 1, GL_RGB, GL_UNSIGNED_BYTE);
    for (int row = 0; row < size; ++row)
        for (int column = 0; column < size; ++column)
        {
            const auto v = static_cast<std::uint16_t>(value(column, row));
            std::uint8_t* p = image->data(column, size - 1 - row);
            p[0] = 0;
            p[1] = static_cast<std::uint8_t>(v >> 8);
            p[2] = static_cast<std::uint8_t>(v & 0xff);
        }
    osgDB::writeImageFile(*image, path);
}

/** A read-only MBTiles file opened with SQLite. */
class MBTiles
{
public:
    explicit MBTiles(const std::string& path)
    {
        if (sqlite3_open_v2(path.c_str(), &_db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK)
        {
            sqlite3_close(_db);
            _db = nullptr;
        }
    }
    ~MBTiles() { sqlite3_close(_db); }
    MBTiles(const MBTiles&) = delete;
    MBTiles& operator=(const MBTiles&) = delete;

    bool valid() const { return _db != nullptr; }

    std::map<std::string, std::string> metadata() const
    {
        std::map<std::string, std::string> values;
        sqlite3_stmt* st = nullptr;
        if (sqlite3_prepare_v2(_db, "SELECT name, value FROM metadata", -1, &st, nullptr) == SQLITE_OK)
            while (sqlite3_step(st) == SQLITE_ROW)
                values[reinterpret_cast<const char*>(sqlite3_column_text(st, 0))] =
                    reinterpret_cast<const char*>(sqlite3_column_text(st, 1));
        sqlite3_finalize(st);
        return values;
    }

    long count(const std::string& where = "1") const
    {
        long n = -1;
        sqlite3_stmt* st = nullptr;
        const std::string sql = "SELECT COUNT(*) FROM tiles WHERE " + where;
        if (sqlite3_prepare_v2(_db, sql.c_str(), -1, &st, nullptr) == SQLITE_OK && sqlite3_step(st) == SQLITE_ROW)
            n = sqlite3_column_int64(st, 0);
        sqlite3_finalize(st);
        return n;
    }

    /** The stored bytes of the tile at the MBTiles (TMS) row `tmsRow`; empty when absent. */
    std::string blob(int z, int x, int tmsRow) const
    {
        std::string data;
        sqlite3_stmt* st = nullptr;
        if (sqlite3_prepare_v2(_db,
                               "SELECT tile_data FROM tiles WHERE zoom_level = ? AND tile_column = ? AND tile_row = ?",
                               -1, &st, nullptr)
            == SQLITE_OK)
        {
            sqlite3_bind_int(st, 1, z);
            sqlite3_bind_int(st, 2, x);
            sqlite3_bind_int(st, 3, tmsRow);
            if (sqlite3_step(st) == SQLITE_ROW)
                data.assign(static_cast<const char*>(sqlite3_column_blob(st, 0)), sqlite3_column_bytes(st, 0));
        }
        sqlite3_finalize(st);
        return data;
    }

    /** Decodes the tile of XYZ row `y` (converted to the TMS row here). */
    osg::ref_ptr<osg::Image> tile(int z, int x, int y) const
    {
        const std::string data = blob(z, x, (1 << z) - 1 - y);
        if (data.empty())
            return nullptr;
        const bool jpeg = data.size() > 2 && static_cast<unsigned char>(data[0]) == 0xFF
                          && static_cast<unsigned char>(data[1]) == 0xD8;
        osgDB::ReaderWriter* rw = osgDB::Registry::instance()->getReaderWriterForExtension(jpeg ? "jpg" : "png");
        if (!rw)
            return nullptr;
        std::istringstream in(data);
        return rw->readImage(in).getImage();
    }

private:
    sqlite3* _db = nullptr;
};

/** Pixel (column, row from the top) of a decoded tile. */
inline const std::uint8_t* tilePixel(const osg::Image& tile, int column, int row)
{
    const int stored = tile.getOrigin() == osg::Image::BOTTOM_LEFT ? tile.t() - 1 - row : row;
    return tile.data(column, stored);
}

inline double terrainRgbHeight(const std::uint8_t* p)
{
    return -10000.0 + (p[0] * 65536.0 + p[1] * 256.0 + p[2]) * 0.1;
}

/** What a run of the command line gave. */
struct RunResult
{
    int status = -1;
    std::string out;
    std::string err;
};

/** Runs the cxtiler command line in-process. */
inline RunResult runTiler(const std::vector<std::string>& args)
{
    std::ostringstream out;
    std::ostringstream err;
    RunResult result;
    result.status = cxtiler::runCommandLine(args, out, err);
    result.out = out.str();
    result.err = err.str();
    return result;
}

inline bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

/** Files in `dir` (names only), to check that nothing half-written stays behind. */
inline std::vector<std::string> listFiles(const std::filesystem::path& dir)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        names.push_back(entry.path().filename().string());
    return names;
}

} // namespace tilertest

#endif
