// The elevation pyramid: Terrain-RGB tiles decoded back to heights, and the
// readers of the RGB-encoded SRTM tiles and of 16-bit height images.
#include "Error.h"
#include "HeightGrid.h"
#include "Progress.h"
#include "PyramidBuilder.h"
#include "SourceReader.h"
#include "TileEncoder.h"

#include "TempDir.h"
#include "TilerTestSupport.h"

#include <gtest/gtest.h>

using namespace cxtiler;
using namespace tilertest;

namespace
{

// A height field that bilinear sampling reproduces exactly: linear in longitude and
// latitude, integer at the cell centres of a 720 x 360 grid (0.5 degree cells), and
// within the Terrain-RGB range (from -10000 m).
double linearHeight(double lon, double lat) { return 40.0 * lon + 20.0 * lat; }

std::int16_t linearCell(int column, int row)
{
    return static_cast<std::int16_t>(std::lround(linearHeight(sourceLongitude(column, 720), sourceLatitude(row, 360))));
}

constexpr std::int16_t kSrtmVoid = -32768;

} // namespace

TEST(TerrainRgb, EncodesToTheNearestTenthOfAMetre)
{
    for (float h : {-10000.0f, -432.1f, -0.05f, 0.0f, 0.04f, 31.2f, 1234.5f, 5284.6f, 8848.86f, 20000.0f})
    {
        std::uint8_t rgb[3];
        encodeTerrainRgb(h, rgb);
        EXPECT_NEAR(decodeTerrainRgb(rgb[0], rgb[1], rgb[2]), h, 0.05 + 1e-3) << h;
    }
    std::uint8_t rgb[3];
    encodeTerrainRgb(0.0f, rgb); // sea level: 100000 = 0x0186A0
    EXPECT_EQ(rgb[0], 0x01);
    EXPECT_EQ(rgb[1], 0x86);
    EXPECT_EQ(rgb[2], 0xA0);
    encodeTerrainRgb(-20000.0f, rgb); // below the encodable range: clamped to its floor
    EXPECT_EQ(rgb[0] | rgb[1] | rgb[2], 0);
    encodeTerrainRgb(std::numeric_limits<float>::quiet_NaN(), rgb);
    EXPECT_EQ(rgb[0] | rgb[1] | rgb[2], 0);
    encodeTerrainRgb(1e9f, rgb); // above it: clamped to its ceiling
    EXPECT_EQ(rgb[0] & rgb[1] & rgb[2], 0xFF);
}

TEST(ElevationPyramid, TilesDecodeToTheInputHeights)
{
    cxtest::TempDir dir;
    const std::string src = (dir.path() / "heights.png").string();
    writeHeights16(src, 720, 360, linearCell);
    HeightSource source = readHeightSource({src});
    EXPECT_FALSE(source.srtmEncoded);
    ASSERT_EQ(source.grid.width(), 720);
    ASSERT_EQ(source.grid.height(), 360);
    EXPECT_EQ(source.grid.voidCount(), 0u);

    const std::string out = (dir.path() / "dem.db").string();
    PyramidOptions options;
    options.maxZoom = 2;
    Progress progress;
    buildElevationPyramid(source.grid, out, options, progress);

    MBTiles db(out);
    ASSERT_TRUE(db.valid());
    const auto meta = db.metadata();
    EXPECT_EQ(meta.at("format"), "png");
    EXPECT_EQ(meta.at("elevation_encoding"), "mapbox");
    EXPECT_EQ(meta.at("maxzoom"), "2");
    EXPECT_EQ(meta.at("minzoom"), "0");
    EXPECT_EQ(meta.at("name"), "dem");
    EXPECT_EQ(db.count(), 21);

    long checked = 0;
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
        {
            osg::ref_ptr<osg::Image> tile = db.tile(2, x, y);
            ASSERT_TRUE(tile.valid());
            ASSERT_EQ(tile->getPixelFormat(), static_cast<GLenum>(GL_RGB));
            for (int row = 0; row < 256; row += 5)
                for (int column = 0; column < 256; column += 5)
                {
                    const double lon = tilePixelLongitude(2, x, column);
                    if (std::fabs(lon) > 179.7)
                        continue; // blends across the antimeridian, where the field jumps
                    const double lat = tilePixelLatitude(2, y, row);
                    ASSERT_NEAR(terrainRgbHeight(tilePixel(*tile, column, row)), linearHeight(lon, lat), 0.1)
                        << "tile 2/" << x << "/" << y << " pixel " << column << "," << row;
                    ++checked;
                }
        }
    EXPECT_GT(checked, 40000);

    // A coarser pixel is the mean of the four below it (each rounded to 0.1 m).
    osg::ref_ptr<osg::Image> parent = db.tile(1, 1, 0);
    osg::ref_ptr<osg::Image> child = db.tile(2, 2, 0);
    ASSERT_TRUE(parent.valid() && child.valid());
    for (int row = 0; row < 128; row += 11)
        for (int column = 0; column < 128; column += 11)
        {
            const double mean = (terrainRgbHeight(tilePixel(*child, 2 * column, 2 * row))
                                 + terrainRgbHeight(tilePixel(*child, 2 * column + 1, 2 * row))
                                 + terrainRgbHeight(tilePixel(*child, 2 * column, 2 * row + 1))
                                 + terrainRgbHeight(tilePixel(*child, 2 * column + 1, 2 * row + 1)))
                                / 4.0;
            EXPECT_NEAR(terrainRgbHeight(tilePixel(*parent, column, row)), mean, 0.1);
        }
}

TEST(ElevationPyramid, MaxZoomFromTheGridWidth)
{
    cxtest::TempDir dir;
    const std::string src = (dir.path() / "small.png").string();
    writeHeights16(src, 300, 150, [](int, int) { return std::int16_t(250); });
    HeightSource source = readHeightSource({src});
    const std::string out = (dir.path() / "small.db").string();
    Progress progress;
    const PyramidSummary summary = buildElevationPyramid(source.grid, out, PyramidOptions{}, progress);
    EXPECT_EQ(summary.maxZoom, 1);
    MBTiles db(out);
    EXPECT_EQ(db.count(), 5);
    osg::ref_ptr<osg::Image> tile = db.tile(1, 0, 1);
    ASSERT_TRUE(tile.valid());
    EXPECT_NEAR(terrainRgbHeight(tilePixel(*tile, 17, 200)), 250.0, 0.05);
}

TEST(ElevationPyramid, RefusesAGridWithVoids)
{
    cxtest::TempDir dir;
    HeightGrid grid(4, 2, {1, 2, 3, std::numeric_limits<float>::quiet_NaN(), 5, 6, 7, 8});
    const std::string out = (dir.path() / "voids.db").string();
    Progress progress;
    EXPECT_THROW(buildElevationPyramid(grid, out, PyramidOptions{}, progress), Error);
    EXPECT_FALSE(std::filesystem::exists(out));
}

TEST(SrtmTiles, WestAndEastTilesJoinIntoOneGrid)
{
    cxtest::TempDir dir;
    const std::string west = (dir.path() / "000000_000000.png").string();
    const std::string east = (dir.path() / "000000_000001.png").string();
    writeSrtmTile(west, 32, [](int column, int row) {
        if (column == 3 && row == 4)
            return kSrtmVoid;
        return static_cast<std::int16_t>(row * 100 + column);
    });
    writeSrtmTile(east, 32, [](int column, int row) {
        return static_cast<std::int16_t>(column == 0 && row == 0 ? -50 : 8000 + column);
    });

    const HeightSource source = readHeightSource({west, east});
    EXPECT_TRUE(source.srtmEncoded);
    const HeightGrid& grid = source.grid;
    ASSERT_EQ(grid.width(), 64);
    ASSERT_EQ(grid.height(), 32);
    EXPECT_FLOAT_EQ(grid.at(0, 0), 0.0f);         // 180 W, top row at 90 N
    EXPECT_FLOAT_EQ(grid.at(5, 7), 705.0f);
    EXPECT_FLOAT_EQ(grid.at(31, 31), 3131.0f);
    EXPECT_TRUE(HeightGrid::isVoid(grid.at(3, 4)));
    EXPECT_EQ(grid.voidCount(), 1u);
    EXPECT_FLOAT_EQ(grid.at(32, 0), -50.0f);      // the east tile starts at 0 E; negative heights
    EXPECT_FLOAT_EQ(grid.at(40, 9), 8008.0f);

    // The same tiles found in a folder laid out like the marble data.
    cxtest::TempDir data;
    const auto tiles = data.path() / "srtm2" / "0" / "000000";
    std::filesystem::create_directories(tiles);
    std::filesystem::copy_file(west, tiles / "000000_000000.png");
    std::filesystem::copy_file(east, tiles / "000000_000001.png");
    const HeightSource fromFolder = readHeightSource({(data.path() / "srtm2").string()});
    ASSERT_EQ(fromFolder.grid.width(), 64);
    EXPECT_FLOAT_EQ(fromFolder.grid.at(40, 9), 8008.0f);
    EXPECT_TRUE(HeightGrid::isVoid(fromFolder.grid.at(3, 4)));
}

TEST(SrtmTiles, VoidsNextToAPeakComeOutAsHighGroundInTheTiles)
{
    // A plateau at 4800 m around a 5800 m summit whose neighbours are voids and
    // corrupt samples, as beside Everest in the sample data.
    cxtest::TempDir dir;
    const std::string west = (dir.path() / "w.png").string();
    const std::string east = (dir.path() / "e.png").string();
    writeSrtmTile(west, 64, [](int, int) { return std::int16_t(0); });
    writeSrtmTile(east, 64, [](int column, int row) -> std::int16_t {
        if (column < 24 || column > 40 || row < 10 || row > 26)
            return 0;
        if (column == 32 && row == 18)
            return 5800;
        if (std::abs(column - 32) <= 1 && std::abs(row - 18) <= 1)
            return (column + row) % 2 ? kSrtmVoid : std::int16_t(30989);
        return 4800;
    });
    HeightSource source = readHeightSource({west, east});
    source.grid.removeOutliers(-500.0f, 9000.0f, 2000.0f);
    source.grid.fillVoids();
    for (int row = 17; row <= 19; ++row)
        for (int column = 64 + 31; column <= 64 + 33; ++column)
        {
            EXPECT_GT(source.grid.at(column, row), 4500.0f) << column << "," << row;
            EXPECT_LT(source.grid.at(column, row), 6000.0f) << column << "," << row;
        }

    const std::string out = (dir.path() / "dem.db").string();
    PyramidOptions options;
    options.maxZoom = 2;
    Progress progress;
    buildElevationPyramid(source.grid, out, options, progress);
    // The summit cell's centre: column 96 of 128 -> 90.0 + 1.40625 E, row 18 of 64 -> 39.375 N.
    const double lon = sourceLongitude(96, 128);
    const double lat = sourceLatitude(18, 64);
    const int z = 2;
    const double worldX = (lon + 180.0) / 360.0 * 1024.0;
    const double n = std::log(std::tan(kPi / 4.0 + lat * kPi / 360.0));
    const double worldY = (1.0 - n / kPi) / 2.0 * 1024.0;
    MBTiles db(out);
    osg::ref_ptr<osg::Image> tile = db.tile(z, static_cast<int>(worldX) / 256, static_cast<int>(worldY) / 256);
    ASSERT_TRUE(tile.valid());
    for (int dy = -4; dy <= 4; ++dy)
        for (int dx = -4; dx <= 4; ++dx)
        {
            const int column = static_cast<int>(worldX) % 256 + dx;
            const int row = static_cast<int>(worldY) % 256 + dy;
            EXPECT_GT(terrainRgbHeight(tilePixel(*tile, column, row)), 4500.0) << dx << "," << dy;
        }
}

TEST(SrtmTiles, SingleRgbGridUsesTheSameEncoding)
{
    cxtest::TempDir dir;
    // One RGB image twice as wide as high in the SRTM encoding.
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(8, 4, 1, GL_RGB, GL_UNSIGNED_BYTE);
    for (int i = 0; i < 32; ++i)
    {
        const auto v = static_cast<std::uint16_t>(static_cast<std::int16_t>(i == 5 ? -32768 : -100 + i));
        image->data()[i * 3 + 0] = 0;
        image->data()[i * 3 + 1] = static_cast<std::uint8_t>(v >> 8);
        image->data()[i * 3 + 2] = static_cast<std::uint8_t>(v & 0xff);
    }
    const std::string path = (dir.path() / "grid.png").string();
    ASSERT_TRUE(osgDB::writeImageFile(*image, path));
    const HeightSource source = readHeightSource({path});
    EXPECT_TRUE(source.srtmEncoded);
    // Stored bottom row first: index 0 is the south-west cell.
    EXPECT_FLOAT_EQ(source.grid.at(0, 3), -100.0f);
    EXPECT_FLOAT_EQ(source.grid.at(7, 0), -100.0f + 31.0f);
    EXPECT_TRUE(HeightGrid::isVoid(source.grid.at(5, 3)));
}

TEST(HeightImages, SixteenBitVoidsAndNegativeHeights)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "h.png").string();
    writeHeights16(path, 8, 4, [](int column, int row) -> std::int16_t {
        if (column == 2 && row == 1)
            return kSrtmVoid;
        return static_cast<std::int16_t>(row == 3 ? -4200 : 1000 * row + column);
    });
    const HeightSource source = readHeightSource({path});
    EXPECT_FLOAT_EQ(source.grid.at(1, 0), 1.0f);
    EXPECT_FLOAT_EQ(source.grid.at(6, 2), 2006.0f);
    EXPECT_FLOAT_EQ(source.grid.at(0, 3), -4200.0f);
    EXPECT_TRUE(HeightGrid::isVoid(source.grid.at(2, 1)));
    EXPECT_EQ(source.grid.voidCount(), 1u);
}

TEST(HeightImages, FloatHeights)
{
    cxtest::TempDir dir;
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(4, 2, 1, GL_LUMINANCE, GL_FLOAT);
    auto* values = reinterpret_cast<float*>(image->data());
    for (int i = 0; i < 8; ++i)
        values[i] = i == 6 ? std::numeric_limits<float>::quiet_NaN()
                    : i == 1 ? std::numeric_limits<float>::infinity()
                             : -10.5f * i;
    const std::string path = (dir.path() / "h.tif").string();
    ASSERT_TRUE(osgDB::writeImageFile(*image, path));
    const HeightSource source = readHeightSource({path});
    EXPECT_FLOAT_EQ(source.grid.at(0, 1), 0.0f); // the bottom row is stored first
    EXPECT_FLOAT_EQ(source.grid.at(3, 0), -73.5f);
    EXPECT_TRUE(HeightGrid::isVoid(source.grid.at(2, 0)));
    EXPECT_TRUE(HeightGrid::isVoid(source.grid.at(1, 1))); // not a finite height
    EXPECT_EQ(source.grid.voidCount(), 2u);
}
