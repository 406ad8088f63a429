// Small MBTiles files made by the globe tests: tiles encoded with
// OpenSceneGraph's image writers and stored through SQLite, with or without
// a metadata table.
#ifndef CXVIEWER_TESTS_GLOBE_MBTILESTESTFILES_H
#define CXVIEWER_TESTS_GLOBE_MBTILESTESTFILES_H

#include <globe/MBTilesOptions>

#include <osg/Image>
#include <osgDB/ObjectWrapper>
#include <osgDB/ReaderWriter>
#include <osgDB/Registry>

#include <sqlite3.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>

namespace cxtest
{

class MBTilesFile
{
public:
    /** Creates `path` with a tiles table and, unless `withMetadata` is false,
      * a metadata table. */
    explicit MBTilesFile(const std::string& path, bool withMetadata = true)
    {
        if (sqlite3_open_v2(path.c_str(), &_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) != SQLITE_OK)
            throw std::runtime_error("cannot create " + path);
        exec("CREATE TABLE tiles (zoom_level INTEGER, tile_column INTEGER, tile_row INTEGER, tile_data BLOB)");
        exec("CREATE UNIQUE INDEX tile_index ON tiles (zoom_level, tile_column, tile_row)");
        if (withMetadata)
            exec("CREATE TABLE metadata (name TEXT, value TEXT)");
    }
    ~MBTilesFile() { sqlite3_close(_db); }
    MBTilesFile(const MBTilesFile&) = delete;
    MBTilesFile& operator=(const MBTilesFile&) = delete;

    void metadata(const std::string& name, const std::string& value)
    {
        sqlite3_stmt* stmt = nullptr;
        sqlite3_prepare_v2(_db, "INSERT INTO metadata VALUES (?1, ?2)", -1, &stmt, nullptr);
        sqlite3_bind_text(stmt, 1, name.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(stmt, 2, value.c_str(), -1, SQLITE_TRANSIENT);
        step(stmt);
    }

    /** Stores `bytes` at the file's own (TMS) row. */
    void tileTms(int z, int x, int tmsRow, const std::string& bytes)
    {
        sqlite3_stmt* stmt = nullptr;
        sqlite3_prepare_v2(_db, "INSERT OR REPLACE INTO tiles VALUES (?1, ?2, ?3, ?4)", -1, &stmt, nullptr);
        sqlite3_bind_int(stmt, 1, z);
        sqlite3_bind_int(stmt, 2, x);
        sqlite3_bind_int(stmt, 3, tmsRow);
        sqlite3_bind_blob(stmt, 4, bytes.data(), static_cast<int>(bytes.size()), SQLITE_TRANSIENT);
        step(stmt);
    }

    /** Stores `bytes` at row y counted from the north. */
    void tile(int z, int x, int y, const std::string& bytes) { tileTms(z, x, (1 << z) - 1 - y, bytes); }

    void exec(const std::string& sql)
    {
        char* error = nullptr;
        if (sqlite3_exec(_db, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK)
        {
            const std::string message = error ? error : "?";
            sqlite3_free(error);
            throw std::runtime_error(message);
        }
    }

private:
    void step(sqlite3_stmt* stmt)
    {
        const int rc = sqlite3_step(stmt);
        sqlite3_finalize(stmt);
        if (rc != SQLITE_DONE)
            throw std::runtime_error(sqlite3_errmsg(_db));
    }

    sqlite3* _db = nullptr;
};

/** Encodes an image with the plugin for `extension` ("png", "jpg", "tif"). */
inline std::string encode(const osg::Image& image, const std::string& extension)
{
    osgDB::ReaderWriter* rw = osgDB::Registry::instance()->getReaderWriterForExtension(extension);
    if (!rw)
        throw std::runtime_error("no writer for " + extension);
    std::ostringstream out;
    const osgDB::ReaderWriter::WriteResult result = rw->writeImage(image, out);
    if (!result.success())
        throw std::runtime_error("cannot encode " + extension + ": " + result.message());
    return out.str();
}

/** A size x size image of one colour (RGB, or RGBA when a < 255). */
inline osg::ref_ptr<osg::Image> solidImage(int size, unsigned char r, unsigned char g, unsigned char b,
                                           unsigned char a = 255)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    const bool alpha = a != 255;
    image->allocateImage(size, size, 1, alpha ? GL_RGBA : GL_RGB, GL_UNSIGNED_BYTE);
    const int channels = alpha ? 4 : 3;
    unsigned char* p = image->data();
    for (int i = 0; i < size * size; ++i, p += channels)
    {
        p[0] = r;
        p[1] = g;
        p[2] = b;
        if (alpha)
            p[3] = a;
    }
    return image;
}

/** An RGB image whose pixel (col, rowFromTop) has the colour
  * `colour(col, rowFromTop)` (0xRRGGBB). */
inline osg::ref_ptr<osg::Image> rgbImage(int size, const std::function<std::uint32_t(int, int)>& colour)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(size, size, 1, GL_RGB, GL_UNSIGNED_BYTE);
    for (int rowFromTop = 0; rowFromTop < size; ++rowFromTop)
    {
        // OpenSceneGraph images keep row 0 at the bottom.
        unsigned char* p = image->data(0, static_cast<unsigned int>(size - 1 - rowFromTop));
        for (int col = 0; col < size; ++col, p += 3)
        {
            const std::uint32_t c = colour(col, rowFromTop);
            p[0] = static_cast<unsigned char>(c >> 16);
            p[1] = static_cast<unsigned char>(c >> 8);
            p[2] = static_cast<unsigned char>(c);
        }
    }
    return image;
}

/** Terrain-RGB pixel of a height: (h + 10000) * 10 as 24 bits. */
inline std::uint32_t terrainRGB(double height)
{
    return static_cast<std::uint32_t>(std::lround((height + 10000.0) * 10.0));
}

/** Terrarium pixel of a height: h + 32768 as R * 256 + G + B / 256. */
inline std::uint32_t terrarium(double height)
{
    const double v = height + 32768.0;
    const auto whole = static_cast<std::uint32_t>(std::floor(v));
    const auto fraction = static_cast<std::uint32_t>(std::lround((v - std::floor(v)) * 256.0));
    return ((whole >> 8) << 16) | ((whole & 0xFF) << 8) | std::min<std::uint32_t>(fraction, 255);
}

/** A png tile of Terrain-RGB heights `height(col, rowFromTop)`. */
inline std::string terrainRGBTile(int size, const std::function<double(int, int)>& height)
{
    return encode(*rgbImage(size, [&](int c, int r) { return terrainRGB(height(c, r)); }), "png");
}

/** zlib-compresses bytes with OpenSceneGraph's compressor. */
inline std::string zlibCompress(const std::string& bytes)
{
    osgDB::BaseCompressor* zlib = osgDB::Registry::instance()->getObjectWrapperManager()->findCompressor("zlib");
    if (!zlib)
        throw std::runtime_error("no zlib compressor");
    std::ostringstream out;
    if (!zlib->compress(out, bytes))
        throw std::runtime_error("compression failed");
    return out.str();
}

/** Options of the mbtiles driver on the file at `path`. */
inline globe::MBTilesOptions mbtilesOptions(const std::string& path)
{
    globe::MBTilesOptions options;
    options.setDriver("mbtiles");
    options.filename() = path;
    return options;
}

/** Writes level 1 of spherical mercator in four colours: red north-west,
  * green north-east, blue south-west, yellow south-east; to `name` in
  * `folder`, whose path it returns. */
inline std::string writeQuadrants(const std::filesystem::path& folder, const std::string& name = "quadrants.db")
{
    const std::string path = (folder / name).string();
    MBTilesFile file(path);
    file.metadata("format", "png");
    file.tile(1, 0, 0, encode(*solidImage(256, 255, 0, 0), "png"));
    file.tile(1, 1, 0, encode(*solidImage(256, 0, 255, 0), "png"));
    file.tile(1, 0, 1, encode(*solidImage(256, 0, 0, 255), "png"));
    file.tile(1, 1, 1, encode(*solidImage(256, 255, 255, 0), "png"));
    return path;
}

/** Writes level 1 of Terrain-RGB heights, one height per quadrant, to
  * "heights.db" in `folder`, whose path it returns. */
inline std::string writeHeightQuadrants(const std::filesystem::path& folder, double nw, double ne, double sw, double se)
{
    const std::string path = (folder / "heights.db").string();
    MBTilesFile file(path);
    file.tile(1, 0, 0, terrainRGBTile(64, [=](int, int) { return nw; }));
    file.tile(1, 1, 0, terrainRGBTile(64, [=](int, int) { return ne; }));
    file.tile(1, 0, 1, terrainRGBTile(64, [=](int, int) { return sw; }));
    file.tile(1, 1, 1, terrainRGBTile(64, [=](int, int) { return se; }));
    return path;
}

/** RGBA of pixel (i, j) (row j from the south) of an RGBA image. */
inline std::uint32_t rgbaAt(const osg::Image& image, int i, int j)
{
    const unsigned char* p = image.data(static_cast<unsigned int>(i), static_cast<unsigned int>(j));
    return (std::uint32_t(p[0]) << 24) | (std::uint32_t(p[1]) << 16) | (std::uint32_t(p[2]) << 8) | p[3];
}

} // namespace cxtest

#endif
