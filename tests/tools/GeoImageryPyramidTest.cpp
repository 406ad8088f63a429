// `cxtiler image` on georeferenced rasters written by the test with GDAL: where
// the tiles are, which colour lands at which longitude and latitude, transparent
// nodata, PNG and JPEG tiles, mosaics, and the deepest level from the resolution.
#include "GeoRasterFiles.h"
#include "TempDir.h"
#include "TilerTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

using namespace tilertest;
using namespace geotest;

namespace
{

using Colour = std::array<int, 3>;

void expectColour(const std::optional<std::array<int, 4>>& found, const Colour& expected, int tolerance,
                  const std::string& where)
{
    ASSERT_TRUE(found.has_value()) << where << ": no tile there";
    EXPECT_EQ((*found)[3], 255) << where;
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR((*found)[c], expected[c], tolerance) << where << " channel " << c;
}

std::array<double, 4> boundsOf(const MBTiles& db)
{
    std::array<double, 4> b{};
    const auto meta = db.metadata();
    EXPECT_EQ(std::sscanf(meta.at("bounds").c_str(), "%lf,%lf,%lf,%lf", &b[0], &b[1], &b[2], &b[3]), 4);
    return b;
}

/** Tiles of level `z` stored outside the tiles that touch the box (west, south, east, north). */
long tilesOutside(const MBTiles& db, int z, const std::array<double, 4>& box)
{
    const TilePosition northWest = positionOf(box[0], box[3], z);
    const TilePosition southEast = positionOf(box[2] - 1e-9, box[1] + 1e-9, z);
    const int n = 1 << z;
    const std::string where = "zoom_level = " + std::to_string(z) + " AND (tile_column < "
                              + std::to_string(northWest.x) + " OR tile_column > " + std::to_string(southEast.x)
                              + " OR tile_row > " + std::to_string(n - 1 - northWest.y) + " OR tile_row < "
                              + std::to_string(n - 1 - southEast.y) + ")";
    return db.count(where);
}

bool inside(const std::array<double, 4>& tile, const std::array<double, 4>& area)
{
    return tile[0] > area[0] && tile[1] > area[1] && tile[2] < area[2] && tile[3] < area[3];
}

bool overlapsArea(const std::array<double, 4>& tile, const std::array<double, 4>& area)
{
    return tile[0] < area[2] && area[0] < tile[2] && tile[1] < area[3] && area[1] < tile[3];
}

} // namespace

TEST(GeoImageryPyramid, GeographicGeoTiffWithANodataArea)
{
    // 2 x 2 degrees at 0.005 degrees a pixel: red west of 11 E, blue east of it;
    // the south-east quarter is nodata (0).
    cxtest::TempDir dir;
    const std::string input = (dir.path() / "geographic.tif").string();
    TestRaster layout;
    layout.width = layout.height = 400;
    layout.bands = 3;
    layout.transform = northUp(10.0, 47.0, 0.005, 0.005);
    layout.noData = 0;
    layout.value = [](int band, int column, int row) -> double {
        const double lon = 10.0 + (column + 0.5) * 0.005;
        const double lat = 47.0 - (row + 0.5) * 0.005;
        if (lon > 11.0 && lat < 46.0)
            return 0;
        if (band == 2)
            return 40;
        return (band == 1) == (lon < 11.0) ? 210 : 30;
    };
    writeGeoTiff(input, layout);

    const std::string output = (dir.path() / "image.db").string();
    const RunResult r = runTiler({"image", input, output});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "imagery: ")) << r.out;
    EXPECT_TRUE(contains(r.out, "level 0 done: 1 tiles")) << r.out;

    MBTiles db(output);
    const auto meta = db.metadata();
    const int maxZoom = expectedMaxZoom(0.005 / 360.0 * 40075016.68557849);
    EXPECT_EQ(maxZoom, 9);
    EXPECT_EQ(meta.at("maxzoom"), std::to_string(maxZoom));
    EXPECT_EQ(meta.at("minzoom"), "0");
    EXPECT_EQ(meta.at("format"), "jpg");
    const std::array<double, 4> bounds = boundsOf(db);
    EXPECT_NEAR(bounds[0], 10.0, 1e-6);
    EXPECT_NEAR(bounds[1], 45.0, 1e-6);
    EXPECT_NEAR(bounds[2], 12.0, 1e-6);
    EXPECT_NEAR(bounds[3], 47.0, 1e-6);

    // Tiles over the data at every level, down to level 0, and none elsewhere.
    for (int z = 0; z <= maxZoom; ++z)
    {
        EXPECT_GT(db.count("zoom_level = " + std::to_string(z)), 0) << z;
        EXPECT_EQ(tilesOutside(db, z, {10.0, 45.0, 12.0, 47.0}), 0) << z;
    }

    expectColour(colourAt(db, maxZoom, 10.5, 46.5), {210, 40, 30}, 12, "red half");
    expectColour(colourAt(db, maxZoom, 11.5, 46.5), {30, 40, 210}, 12, "blue half");
    expectColour(colourAt(db, maxZoom, 10.5, 45.2), {210, 40, 30}, 12, "red half, south");
    const auto hole = colourAt(db, maxZoom, 11.2, 45.8);
    ASSERT_TRUE(hole.has_value());
    EXPECT_EQ((*hole)[3], 0) << "nodata must be transparent";

    // Opaque tiles are JPEG, tiles with nodata PNG, tiles with no data at all absent.
    int jpeg = 0, png = 0, missing = 0;
    const std::array<double, 4> data = {10.0, 45.0, 12.0, 47.0};
    const std::array<double, 4> nodata = {11.0, 45.0, 12.0, 46.0};
    const std::array<double, 4> validNorth = {10.0, 46.0, 12.0, 47.0};
    const std::array<double, 4> validSouthWest = {10.0, 45.0, 11.0, 46.0};
    const TilePosition nw = positionOf(10.0, 47.0, maxZoom);
    const TilePosition se = positionOf(12.0 - 1e-9, 45.0 + 1e-9, maxZoom);
    for (int y = nw.y; y <= se.y; ++y)
        for (int x = nw.x; x <= se.x; ++x)
        {
            const auto box = tileBox(maxZoom, x, y);
            const TileKind kind = tileKind(db, maxZoom, x, y);
            if (!overlapsArea(box, validNorth) && !overlapsArea(box, validSouthWest))
            {
                EXPECT_EQ(kind, TileKind::Missing) << x << "," << y;
                ++missing;
            }
            else if (inside(box, data) && !overlapsArea(box, nodata))
            {
                EXPECT_EQ(kind, TileKind::Jpeg) << x << "," << y;
                ++jpeg;
            }
            else
            {
                EXPECT_EQ(kind, TileKind::Png) << x << "," << y;
                ++png;
            }
        }
    EXPECT_GT(jpeg, 0);
    EXPECT_GT(png, 0);
    EXPECT_GT(missing, 0);
    // Where a PNG tile has data, it is opaque; where not, transparent.
    const TilePosition edge = positionOf(11.2, 45.8, maxZoom);
    ASSERT_EQ(tileKind(db, maxZoom, edge.x, edge.y), TileKind::Png);
}

TEST(GeoImageryPyramid, UtmGeoTiffNearBeijingLandsAtItsLongitudesAndLatitudes)
{
    // 12 x 9 km of UTM zone 50N at 30 m: four coloured quarters and a nodata strip
    // along the north edge.
    constexpr double west = 440000.0, north = 4440000.0, pixel = 30.0;
    cxtest::TempDir dir;
    const std::string input = (dir.path() / "beijing-utm.tif").string();
    TestRaster layout;
    layout.width = 400;
    layout.height = 300;
    layout.bands = 3;
    layout.epsg = 32650;
    layout.transform = northUp(west, north, pixel, pixel);
    layout.noData = 0;
    auto quarter = [](double e, double n) -> Colour {
        if (n > 4438000.0)
            return {0, 0, 0};
        if (n >= 4435000.0)
            return e < 446000.0 ? Colour{220, 200, 40} : Colour{40, 200, 220};
        return e < 446000.0 ? Colour{200, 40, 200} : Colour{90, 90, 90};
    };
    layout.value = [&](int band, int column, int row) -> double {
        return quarter(west + (column + 0.5) * pixel, north - (row + 0.5) * pixel)[band - 1];
    };
    writeGeoTiff(input, layout);

    const std::string output = (dir.path() / "beijing.db").string();
    const RunResult r = runTiler({"image", input, output, "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "UTM zone 50N")) << r.out;

    MBTiles db(output);
    // The footprint's longitudes and latitudes, from its edges.
    std::array<double, 4> footprint = {1e9, 1e9, -1e9, -1e9};
    for (int i = 0; i <= 20; ++i)
        for (const auto& [e, n] : {std::pair{west + i * 600.0, north}, std::pair{west + i * 600.0, north - 9000.0},
                                   std::pair{west, north - i * 450.0}, std::pair{west + 12000.0, north - i * 450.0}})
        {
            const auto ll = toLonLat(32650, e, n);
            footprint = {std::min(footprint[0], ll[0]), std::min(footprint[1], ll[1]), std::max(footprint[2], ll[0]),
                         std::max(footprint[3], ll[1])};
        }
    const std::array<double, 4> bounds = boundsOf(db);
    for (int i = 0; i < 4; ++i)
        EXPECT_NEAR(bounds[i], footprint[i], 1e-4) << i;

    const double centreLat = toLonLat(32650, west + 6000.0, north - 4500.0)[1];
    const int maxZoom = expectedMaxZoom(pixel / std::cos(centreLat * kPi / 180.0));
    EXPECT_EQ(maxZoom, 12);
    EXPECT_EQ(db.metadata().at("maxzoom"), std::to_string(maxZoom));
    for (int z = 0; z <= maxZoom; ++z)
        EXPECT_EQ(tilesOutside(db, z, footprint), 0) << z;

    for (const auto& [e, n] : {std::pair{443000.0, 4436500.0}, std::pair{449000.0, 4436500.0},
                               std::pair{443000.0, 4433000.0}, std::pair{449000.0, 4433000.0}})
    {
        const auto ll = toLonLat(32650, e, n);
        expectColour(colourAt(db, maxZoom, ll[0], ll[1]), quarter(e, n), 12,
                     "UTM " + std::to_string(e) + " " + std::to_string(n));
    }
    const auto strip = toLonLat(32650, 446000.0, 4439000.0);
    const auto transparent = colourAt(db, maxZoom, strip[0], strip[1]);
    ASSERT_TRUE(transparent.has_value());
    EXPECT_EQ((*transparent)[3], 0);
    const TilePosition p = positionOf(strip[0], strip[1], maxZoom);
    EXPECT_EQ(tileKind(db, maxZoom, p.x, p.y), TileKind::Png);
}

TEST(GeoImageryPyramid, TwoAdjacentFilesMakeOneSeamlessPyramid)
{
    cxtest::TempDir dir;
    auto write = [&](const std::string& name, double westLon, Colour colour) {
        TestRaster layout;
        layout.width = layout.height = 100;
        layout.bands = 3;
        layout.transform = northUp(westLon, 31.0, 0.01, 0.01);
        layout.value = [colour](int band, int, int) { return colour[band - 1]; };
        const std::string path = (dir.path() / name).string();
        writeGeoTiff(path, layout);
        return path;
    };
    const Colour green = {40, 180, 60};
    const Colour magenta = {180, 40, 160};
    const std::string a = write("west.tif", 20.0, green);
    const std::string b = write("east.tif", 21.0, magenta);

    const std::string output = (dir.path() / "mosaic.db").string();
    const RunResult r = runTiler({"image", a, b, output, "--max-zoom", "10", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    MBTiles db(output);
    const std::array<double, 4> bounds = boundsOf(db);
    EXPECT_NEAR(bounds[0], 20.0, 1e-6);
    EXPECT_NEAR(bounds[2], 22.0, 1e-6);
    EXPECT_NEAR(bounds[1], 30.0, 1e-6);
    EXPECT_NEAR(bounds[3], 31.0, 1e-6);

    expectColour(colourAt(db, 10, 20.5, 30.5), green, 10, "west file");
    expectColour(colourAt(db, 10, 21.5, 30.5), magenta, 10, "east file");
    // No gap along the seam: opaque pixels right beside it on both sides.
    const double pixel = 360.0 / (256.0 * 1024.0);
    const auto left = colourAt(db, 10, 21.0 - pixel, 30.5);
    const auto right = colourAt(db, 10, 21.0 + pixel, 30.5);
    ASSERT_TRUE(left && right);
    EXPECT_EQ((*left)[3], 255);
    EXPECT_EQ((*right)[3], 255);
    // The tiles wholly over the data, the one across the seam among them, are opaque JPEG.
    const TilePosition seam = positionOf(21.0, 30.5, 10);
    const auto box = tileBox(10, seam.x, seam.y);
    ASSERT_TRUE(box[0] > 20.0 && box[2] < 22.0 && box[1] > 30.0 && box[3] < 31.0) << "test layout";
    EXPECT_EQ(tileKind(db, 10, seam.x, seam.y), TileKind::Jpeg);
}

TEST(GeoImageryPyramid, InputsFarApartGetNoTilesBetweenThem)
{
    cxtest::TempDir dir;
    auto write = [&](const std::string& name, double westLon, double northLat) {
        TestRaster layout;
        layout.width = layout.height = 50;
        layout.bands = 3;
        layout.transform = northUp(westLon, northLat, 0.01, 0.01);
        layout.value = [](int band, int, int) { return 60.0 * band; };
        const std::string path = (dir.path() / name).string();
        writeGeoTiff(path, layout);
        return path;
    };
    const std::string beijing = write("beijing.tif", 116.2, 40.1);
    const std::string berlin = write("berlin.tif", 13.2, 52.7);
    const std::string output = (dir.path() / "two.db").string();
    const RunResult r = runTiler({"image", beijing, berlin, output, "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    MBTiles db(output);
    const int z = 8;
    ASSERT_EQ(db.metadata().at("maxzoom"), std::to_string(z));
    // Each 0.5 degree square touches at most 2 x 2 tiles of level 8 (1.4 degrees a tile).
    EXPECT_LE(db.count("zoom_level = 8"), 8);
    EXPECT_GE(db.count("zoom_level = 8"), 2);
    expectColour(colourAt(db, z, 116.45, 39.85), {60, 120, 180}, 10, "Beijing");
    expectColour(colourAt(db, z, 13.45, 52.45), {60, 120, 180}, 10, "Berlin");
    EXPECT_FALSE(colourAt(db, z, 60.0, 45.0).has_value());
}

TEST(GeoImageryPyramid, DeepestLevelFromTheInputResolution)
{
    cxtest::TempDir dir;
    const std::string input = (dir.path() / "fine.tif").string();
    TestRaster layout;
    layout.width = layout.height = 60;
    layout.bands = 3;
    layout.transform = northUp(116.30, 40.00, 0.001, 0.001);
    layout.value = [](int band, int column, int row) { return band * 50 + (column + row) % 7; };
    writeGeoTiff(input, layout);

    // 0.001 degrees is 111.3 m of EPSG:3857 along x, the finer side: level 11 has 76.4 m pixels, level 10 152.9 m.
    const int expected = expectedMaxZoom(0.001 / 360.0 * 40075016.68557849);
    EXPECT_EQ(expected, 11);
    const std::string output = (dir.path() / "fine.db").string();
    ASSERT_EQ(runTiler({"image", input, output, "-q"}).status, 0);
    MBTiles db(output);
    EXPECT_EQ(db.metadata().at("maxzoom"), "11");
    EXPECT_EQ(db.count("zoom_level > 11"), 0);
    EXPECT_GT(db.count("zoom_level = 11"), 0);

    // --max-zoom overrides it, deeper or coarser.
    const std::string deep = (dir.path() / "deep.db").string();
    ASSERT_EQ(runTiler({"image", input, deep, "--max-zoom", "13", "-q"}).status, 0);
    EXPECT_EQ(MBTiles(deep).metadata().at("maxzoom"), "13");
    EXPECT_GT(MBTiles(deep).count("zoom_level = 13"), 0);
    const std::string coarse = (dir.path() / "coarse.db").string();
    ASSERT_EQ(runTiler({"image", input, coarse, "--max-zoom", "4", "-q"}).status, 0);
    EXPECT_EQ(MBTiles(coarse).count(), 5);
}

TEST(GeoImageryPyramid, WorldFileWithoutCoordinateSystemNeedsSrs)
{
    cxtest::TempDir dir;
    const std::string input = (dir.path() / "scan.png").string();
    TestRaster layout;
    layout.width = layout.height = 64;
    layout.bands = 3;
    layout.transform = northUp(5.0, 50.0, 0.01, 0.01);
    layout.value = [](int band, int, int) { return band == 1 ? 230 : 20; };
    writePngWithWorldFile(input, layout);
    const std::string output = (dir.path() / "scan.db").string();

    RunResult r = runTiler({"image", input, output});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.err, "'" + input + "'")) << r.err;
    EXPECT_TRUE(contains(r.err, "--srs")) << r.err;
    EXPECT_FALSE(std::filesystem::exists(output));

    r = runTiler({"image", input, output, "--srs", "EPSG:999999"});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.err, "--srs 'EPSG:999999'")) << r.err;
    EXPECT_FALSE(std::filesystem::exists(output));

    r = runTiler({"image", input, output, "--srs", "EPSG:4326", "--format", "png", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    MBTiles db(output);
    const int maxZoom = std::stoi(db.metadata().at("maxzoom"));
    expectColour(colourAt(db, maxZoom, 5.3, 49.7), {230, 20, 20}, 0, "world file placement");
    const auto outside = colourAt(db, maxZoom, 4.99, 49.7);
    if (outside)
    {
        EXPECT_EQ((*outside)[3], 0);
    }
}

TEST(GeoImageryPyramid, SixteenBitGreyAndJpeg2000)
{
    cxtest::TempDir dir;
    // 16-bit values scale from the type's range: 51400 of 65535 is 200 of 255.
    const std::string grey = (dir.path() / "grey16.tif").string();
    TestRaster layout;
    layout.width = layout.height = 50;
    layout.type = GDT_UInt16;
    layout.transform = northUp(-70.0, -20.0, 0.01, 0.01);
    layout.value = [](int, int, int) { return 51400.0; };
    writeGeoTiff(grey, layout);
    const std::string greyDb = (dir.path() / "grey.db").string();
    ASSERT_EQ(runTiler({"image", grey, greyDb, "-q"}).status, 0);
    MBTiles greyTiles(greyDb);
    const int greyZoom = std::stoi(greyTiles.metadata().at("maxzoom"));
    expectColour(colourAt(greyTiles, greyZoom, -69.75, -20.25), {200, 200, 200}, 4, "16-bit grey");

    GDALAllRegister();
    if (!GDALGetDriverByName("JP2OpenJPEG"))
        GTEST_SKIP() << "this GDAL has no JPEG 2000 driver";
    const std::string jp2 = (dir.path() / "tile.jp2").string();
    TestRaster colour;
    colour.width = colour.height = 64;
    colour.bands = 3;
    colour.transform = northUp(139.0, 36.0, 0.005, 0.005);
    colour.value = [](int band, int column, int) { return band == 3 ? 220 : (column < 32 ? 60 : 150); };
    GDALDatasetH memory = memoryRaster(colour);
    ASSERT_TRUE(copyTo(memory, "JP2OpenJPEG", jp2, {"REVERSIBLE=YES", "QUALITY=100"}));
    GDALClose(memory);
    const std::string jp2Db = (dir.path() / "jp2.db").string();
    const RunResult r = runTiler({"image", jp2, jp2Db, "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    MBTiles jp2Tiles(jp2Db);
    const int zoom = std::stoi(jp2Tiles.metadata().at("maxzoom"));
    expectColour(colourAt(jp2Tiles, zoom, 139.05, 35.85), {60, 60, 220}, 10, "JPEG 2000 west");
    expectColour(colourAt(jp2Tiles, zoom, 139.27, 35.85), {150, 150, 220}, 10, "JPEG 2000 east");
}

TEST(GeoImageryPyramid, PaletteImageWithANodataIndex)
{
    // Index 1 is orange, 2 teal; index 0, the nodata value, covers the east half.
    cxtest::TempDir dir;
    TestRaster layout;
    layout.width = layout.height = 100;
    layout.transform = northUp(-3.0, 41.0, 0.01, 0.01);
    layout.noData = 0;
    layout.value = [](int, int column, int row) { return column >= 50 ? 0.0 : (row < 50 ? 1.0 : 2.0); };
    GDALDatasetH memory = memoryRaster(layout);
    GDALColorTableH table = GDALCreateColorTable(GPI_RGB);
    const GDALColorEntry none = {0, 0, 0, 255}, orange = {240, 140, 20, 255}, teal = {20, 150, 140, 255};
    GDALSetColorEntry(table, 0, &none);
    GDALSetColorEntry(table, 1, &orange);
    GDALSetColorEntry(table, 2, &teal);
    GDALSetRasterColorTable(GDALGetRasterBand(memory, 1), table);
    GDALSetRasterColorInterpretation(GDALGetRasterBand(memory, 1), GCI_PaletteIndex);
    GDALDestroyColorTable(table);
    const std::string input = (dir.path() / "palette.tif").string();
    ASSERT_TRUE(copyTo(memory, "GTiff", input));
    GDALClose(memory);

    const std::string output = (dir.path() / "palette.db").string();
    const RunResult r = runTiler({"image", input, output, "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    MBTiles db(output);
    const int zoom = std::stoi(db.metadata().at("maxzoom"));
    expectColour(colourAt(db, zoom, -2.75, 40.75), {240, 140, 20}, 3, "orange");
    expectColour(colourAt(db, zoom, -2.75, 40.25), {20, 150, 140}, 3, "teal");
    const auto east = colourAt(db, zoom, -2.25, 40.5);
    ASSERT_TRUE(east.has_value());
    EXPECT_EQ((*east)[3], 0);
}

TEST(GeoImageryPyramid, CoarserTilesAverageTheirChildrenWeightedByAlpha)
{
    // Stripes of colour with nodata stripes between them, written as PNG throughout.
    cxtest::TempDir dir;
    TestRaster layout;
    layout.width = layout.height = 256;
    layout.bands = 3;
    layout.transform = northUp(30.0, 10.0, 0.004, 0.004);
    layout.noData = 0;
    layout.value = [](int band, int column, int row) -> double {
        if ((column / 7) % 3 == 0)
            return 0; // nodata
        return band == 1 ? 40 + row % 200 : (band == 2 ? 250 - column % 200 : 128);
    };
    const std::string input = (dir.path() / "stripes.tif").string();
    writeGeoTiff(input, layout);
    const std::string output = (dir.path() / "stripes.db").string();
    ASSERT_EQ(runTiler({"image", input, output, "--format", "png", "-q"}).status, 0);
    MBTiles db(output);
    const int z = std::stoi(db.metadata().at("maxzoom"));
    const TilePosition p = positionOf(30.5, 9.5, z - 1);
    osg::ref_ptr<osg::Image> parent = db.tile(z - 1, p.x, p.y);
    ASSERT_TRUE(parent.valid());
    ASSERT_EQ(parent->getPixelFormat(), static_cast<GLenum>(GL_RGBA));
    int compared = 0;
    for (int dy = 0; dy < 2; ++dy)
        for (int dx = 0; dx < 2; ++dx)
        {
            osg::ref_ptr<osg::Image> child = db.tile(z, 2 * p.x + dx, 2 * p.y + dy);
            if (!child)
                continue;
            ASSERT_EQ(child->getPixelFormat(), static_cast<GLenum>(GL_RGBA));
            for (int row = 0; row < 128; row += 13)
                for (int column = 0; column < 128; column += 5)
                {
                    const std::uint8_t* q[4] = {tilePixel(*child, 2 * column, 2 * row),
                                                tilePixel(*child, 2 * column + 1, 2 * row),
                                                tilePixel(*child, 2 * column, 2 * row + 1),
                                                tilePixel(*child, 2 * column + 1, 2 * row + 1)};
                    const int alpha = q[0][3] + q[1][3] + q[2][3] + q[3][3];
                    const std::uint8_t* out = tilePixel(*parent, dx * 128 + column, dy * 128 + row);
                    EXPECT_NEAR(out[3], alpha / 4.0, 1.0);
                    if (alpha == 0)
                        continue;
                    for (int c = 0; c < 3; ++c)
                    {
                        const double weighted =
                            (q[0][c] * q[0][3] + q[1][c] * q[1][3] + q[2][c] * q[2][3] + q[3][c] * q[3][3])
                            / static_cast<double>(alpha);
                        EXPECT_NEAR(out[c], weighted, 1.0) << c;
                    }
                    ++compared;
                }
        }
    EXPECT_GT(compared, 200);
}
