// `cxtiler elevation` on georeferenced rasters written by the test with GDAL: a
// GeoTIFF with scale, offset and voids, SRTM .hgt files alone and as a mosaic;
// heights decoded from the Terrain-RGB tiles against the input's.
#include "GeoRasterFiles.h"
#include "TempDir.h"
#include "TilerTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <limits>

using namespace tilertest;
using namespace geotest;

namespace
{

// Terrain-RGB keeps 0.1 m steps; bilinear resampling of a field linear in the
// pixel grid adds only rounding.
constexpr double kTolerance = 0.1;

/** Range of `height` over the cells around the box [c0, c1] x [r0, r1]. */
std::pair<double, double> rimRange(int c0, int c1, int r0, int r1, const std::function<double(int, int)>& height)
{
    double low = std::numeric_limits<double>::max();
    double high = std::numeric_limits<double>::lowest();
    for (int r = r0 - 1; r <= r1 + 1; ++r)
        for (int c = c0 - 1; c <= c1 + 1; ++c)
            if (r == r0 - 1 || r == r1 + 1 || c == c0 - 1 || c == c1 + 1)
            {
                low = std::min(low, height(c, r));
                high = std::max(high, height(c, r));
            }
    return {low, high};
}

} // namespace

TEST(GeoElevationPyramid, GeoTiffHeightsWithScaleOffsetAndVoids)
{
    // 0.5 x 0.5 degrees at 0.001 degrees, stored as 16-bit v with metres = v * 0.5 + 100.
    // Heights are linear in the pixel grid: h = 1500.5 + 2 * column - row.
    constexpr double west = 100.0, north = 30.5, step = 0.001;
    auto height = [](int column, int row) { return 1500.5 + 2.0 * column - row; };
    auto smallVoid = [](int c, int r) { return c >= 200 && c <= 205 && r >= 200 && r <= 205; };
    auto largeVoid = [](int c, int r) { return c >= 350 && c <= 429 && r >= 50 && r <= 129; };
    cxtest::TempDir dir;
    const std::string input = (dir.path() / "dem.tif").string();
    TestRaster layout;
    layout.width = layout.height = 500;
    layout.type = GDT_Int16;
    layout.transform = northUp(west, north, step, step);
    layout.noData = -32768;
    layout.scale = 0.5;
    layout.offset = 100.0;
    layout.value = [&](int, int c, int r) {
        return smallVoid(c, r) || largeVoid(c, r) ? -32768.0 : (height(c, r) - 100.0) / 0.5;
    };
    writeGeoTiff(input, layout);

    const std::string output = (dir.path() / "dem.db").string();
    const RunResult r = runTiler({"elevation", input, output});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "void pixels of level 11 filled")) << r.out;
    EXPECT_FALSE(contains(r.out, " 0 void pixels")) << r.out;

    MBTiles db(output);
    const auto meta = db.metadata();
    EXPECT_EQ(meta.at("elevation_encoding"), "mapbox");
    EXPECT_EQ(meta.at("format"), "png");
    EXPECT_EQ(meta.at("maxzoom"), "11");
    EXPECT_EQ(meta.at("minzoom"), "0");
    double b[4];
    ASSERT_EQ(std::sscanf(meta.at("bounds").c_str(), "%lf,%lf,%lf,%lf", &b[0], &b[1], &b[2], &b[3]), 4);
    EXPECT_NEAR(b[0], 100.0, 1e-6);
    EXPECT_NEAR(b[1], 30.0, 1e-6);
    EXPECT_NEAR(b[2], 100.5, 1e-6);
    EXPECT_NEAR(b[3], 30.5, 1e-6);
    for (int z = 0; z <= 11; ++z)
        EXPECT_GT(db.count("zoom_level = " + std::to_string(z)), 0) << z;

    // Away from the voids and the edges the tiles hold the input's heights.
    const int z = 11;
    int checked = 0;
    for (double lon = 100.01; lon < 100.49; lon += 0.023)
        for (double lat = 30.01; lat < 30.49; lat += 0.019)
        {
            const auto centre = pixelCentre(lon, lat, z);
            const double column = (centre[0] - west) / step - 0.5;
            const double row = (north - centre[1]) / step - 0.5;
            const int c = static_cast<int>(column), rr = static_cast<int>(row);
            bool nearVoid = false;
            for (int dr = -2; dr <= 3; ++dr)
                for (int dc = -2; dc <= 3; ++dc)
                    nearVoid = nearVoid || smallVoid(c + dc, rr + dr) || largeVoid(c + dc, rr + dr);
            if (nearVoid)
                continue;
            const double expected = 1500.5 + 2.0 * column - row;
            ASSERT_NEAR(heightAt(db, z, lon, lat), expected, kTolerance + 0.05) << lon << " " << lat;
            ++checked;
        }
    EXPECT_GT(checked, 300);

    // The small void is filled from its rim, the large one from the filled overview:
    // both between the heights around them.
    const auto [smallLow, smallHigh] = rimRange(200, 205, 200, 205, height);
    const double smallFilled = heightAt(db, z, west + 203 * step, north - 203 * step);
    EXPECT_GE(smallFilled, smallLow - kTolerance);
    EXPECT_LE(smallFilled, smallHigh + kTolerance);
    const auto [largeLow, largeHigh] = rimRange(350, 429, 50, 129, height);
    for (const auto& [c, rr] : {std::pair{390, 90}, std::pair{355, 55}, std::pair{425, 125}})
    {
        const double filled = heightAt(db, z, west + (c + 0.5) * step, north - (rr + 0.5) * step);
        EXPECT_GE(filled, largeLow - 1.0) << c << "," << rr;
        EXPECT_LE(filled, largeHigh + 1.0) << c << "," << rr;
    }

    // The large void crosses the west edge of tile column 1595 of level 11 (100.3711 E):
    // the fill goes on across it without a step (the field rises 1.4 m a pixel).
    const double tileEdge = 1595.0 / 2048.0 * 360.0 - 180.0;
    ASSERT_GT(tileEdge, west + 350 * step);
    ASSERT_LT(tileEdge, west + 430 * step);
    const double pixel = 360.0 / (256.0 * 2048.0);
    for (const double lat : {30.44, 30.41, 30.38})
    {
        const double westSide = heightAt(db, z, tileEdge - pixel / 2.0, lat);
        const double eastSide = heightAt(db, z, tileEdge + pixel / 2.0, lat);
        EXPECT_NEAR(eastSide - westSide, 1.4, 1.5) << lat;
    }

    // West of the data, in a tile that holds some of it: sea level.
    ASSERT_EQ(positionOf(100.0005, 30.25, z).x, positionOf(99.999, 30.25, z).x) << "test layout";
    EXPECT_NEAR(heightAt(db, z, 99.999, 30.25), 0.0, kTolerance);
}

TEST(GeoElevationPyramid, SrtmHgtWithAVoid)
{
    // N39E116.hgt: 1201 x 1201 posts, h = 100 + column + 2 * row, a 3 x 3 void.
    cxtest::TempDir dir;
    const std::string input = (dir.path() / "N39E116.hgt").string();
    auto height = [](int column, int row) { return 100.0 + column + 2.0 * row; };
    auto isVoid = [](int c, int r) { return c >= 600 && c <= 602 && r >= 600 && r <= 602; };
    writeHgt(input, 116, 39, 1201, [&](int c, int r) { return isVoid(c, r) ? -32768.0 : height(c, r); });

    const std::string output = (dir.path() / "hgt.db").string();
    const RunResult r = runTiler({"elevation", input, output, "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    MBTiles db(output);
    // 1/1200 degree posts: 92.8 m of EPSG:3857 along x; level 11 has 76.4 m pixels.
    EXPECT_EQ(db.metadata().at("maxzoom"), "11");
    const int z = 11;
    int checked = 0;
    for (double lon = 116.02; lon < 116.98; lon += 0.047)
        for (double lat = 39.02; lat < 39.98; lat += 0.051)
        {
            const auto centre = pixelCentre(lon, lat, z);
            const double column = (centre[0] - 116.0) * 1200.0;
            const double row = (40.0 - centre[1]) * 1200.0;
            if (std::abs(column - 601) < 5 && std::abs(row - 601) < 5)
                continue;
            ASSERT_NEAR(heightAt(db, z, lon, lat), 100.0 + column + 2.0 * row, kTolerance + 0.05) << lon << " " << lat;
            ++checked;
        }
    EXPECT_GT(checked, 300);

    const auto [low, high] = rimRange(600, 602, 600, 602, height);
    const double filled = heightAt(db, z, 116.0 + 601.0 / 1200.0, 40.0 - 601.0 / 1200.0);
    EXPECT_GE(filled, low - kTolerance);
    EXPECT_LE(filled, high + kTolerance);
}

TEST(GeoElevationPyramid, TwoHgtFilesFormOneSurface)
{
    cxtest::TempDir dir;
    // One plane over both cells, so that it must continue across the join.
    auto height = [](double lon, double lat) { return 500.0 + 1200.0 * (lon - 116.0) + 600.0 * (lat - 39.0); };
    for (int lon : {116, 117})
    {
        const std::string path = (dir.path() / ("N39E" + std::to_string(lon) + ".hgt")).string();
        writeHgt(path, lon, 39, 1201, [&](int c, int r) { return height(lon + c / 1200.0, 40.0 - r / 1200.0); });
    }
    const std::string output = (dir.path() / "pair.db").string();
    const RunResult r = runTiler({"elevation", (dir.path() / "N39E116.hgt").string(),
                                  (dir.path() / "N39E117.hgt").string(), output, "--max-zoom", "9", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    MBTiles db(output);
    double b[4];
    ASSERT_EQ(std::sscanf(db.metadata().at("bounds").c_str(), "%lf,%lf,%lf,%lf", &b[0], &b[1], &b[2], &b[3]), 4);
    EXPECT_NEAR(b[0], 116.0, 0.001);
    EXPECT_NEAR(b[2], 118.0, 0.001);
    // Across the join between the files (117 E) the surface goes on.
    for (double lon : {116.5, 116.99, 117.0, 117.01, 117.5})
    {
        const auto centre = pixelCentre(lon, 39.5, 9);
        EXPECT_NEAR(heightAt(db, 9, lon, 39.5), height(centre[0], centre[1]), 1.0) << lon;
    }
}

TEST(GeoElevationPyramid, AnInputWithoutAnyHeightFails)
{
    cxtest::TempDir dir;
    const std::string input = (dir.path() / "empty.tif").string();
    TestRaster layout;
    layout.width = layout.height = 20;
    layout.type = GDT_Float32;
    layout.transform = northUp(10.0, 10.0, 0.01, 0.01);
    layout.noData = -9999.0;
    layout.value = [](int, int, int) { return -9999.0; };
    writeGeoTiff(input, layout);
    const std::string output = (dir.path() / "empty.db").string();
    const RunResult r = runTiler({"elevation", input, output});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.err, "no valid height")) << r.err;
    EXPECT_TRUE(contains(r.err, input)) << r.err;
    EXPECT_FALSE(std::filesystem::exists(output));
}
