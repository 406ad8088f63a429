#include "TileMath.h"

#include "TilerTestSupport.h"

#include <gtest/gtest.h>

using namespace cxtiler;

TEST(TileMath, TmsRowsCountFromTheSouth)
{
    EXPECT_EQ(tmsRow(0, 0), 0);
    EXPECT_EQ(tmsRow(1, 0), 1);
    EXPECT_EQ(tmsRow(1, 1), 0);
    EXPECT_EQ(tmsRow(3, 2), 5);
    EXPECT_EQ(tmsRow(4, 15), 0);
}

TEST(TileMath, WorldEdgesAndEquator)
{
    EXPECT_DOUBLE_EQ(longitudeAt(0.0, 0), -180.0);
    EXPECT_DOUBLE_EQ(longitudeAt(256.0, 0), 180.0);
    EXPECT_DOUBLE_EQ(longitudeAt(256.0, 1), 0.0);
    EXPECT_NEAR(latitudeAt(0.0, 0), kMaxMercatorLatitude, 1e-9);
    EXPECT_NEAR(latitudeAt(256.0, 0), -kMaxMercatorLatitude, 1e-9);
    EXPECT_NEAR(latitudeAt(256.0, 1), 0.0, 1e-12);
}

TEST(TileMath, LatitudeFollowsMercatorNotALinearScale)
{
    // A quarter of the way down the world is 66.51 N in mercator (45 N if linear).
    EXPECT_NEAR(latitudeAt(256.0, 2), 66.51326044311186, 1e-9);
    for (int z = 0; z < 5; ++z)
        for (int row = 0; row < 256; row += 17)
            EXPECT_NEAR(latitudeAt(row + 0.5, z), tilertest::tilePixelLatitude(z, 0, row), 1e-9);
}

TEST(TileMath, GlobalYInvertsLatitude)
{
    for (double lat : {-85.0, -60.0, -1.5, 0.0, 27.99, 39.91, 84.9})
        EXPECT_NEAR(latitudeAt(globalYAt(lat, 3), 3), lat, 1e-9);
}

TEST(TileMath, MaxZoomKeepsTheSourceResolution)
{
    EXPECT_EQ(maxZoomForWidth(1), 0);
    EXPECT_EQ(maxZoomForWidth(256), 0);
    EXPECT_EQ(maxZoomForWidth(257), 1);
    EXPECT_EQ(maxZoomForWidth(1024), 2);
    EXPECT_EQ(maxZoomForWidth(1350), 3); // the SRTM grid of the sample data
    EXPECT_EQ(maxZoomForWidth(2700), 4); // the Blue Marble
    EXPECT_EQ(maxZoomForWidth(1 << 30), kMaxZoomLimit);
}

TEST(TileMath, MaxZoomFromAPixelSize)
{
    // Level z has 2 * pi * 6378137 / 256 / 2^z metres of EPSG:3857 per pixel.
    EXPECT_NEAR(mercatorPixelSize(0), 156543.03392804097, 1e-6);
    EXPECT_NEAR(mercatorPixelSize(11), 76.43702828517625, 1e-9);
    EXPECT_EQ(maxZoomForPixelSize(200000.0), 0);
    EXPECT_EQ(maxZoomForPixelSize(111.32), 11);          // 0.001 degrees of longitude
    EXPECT_EQ(maxZoomForPixelSize(mercatorPixelSize(12)), 12); // exactly a level's size
    EXPECT_EQ(maxZoomForPixelSize(39.2), 12);            // 30 m UTM at 40 N
    EXPECT_EQ(maxZoomForPixelSize(0.001), kMaxZoomLimit);
    EXPECT_GE(kMaxZoomLimit, 20);
}

TEST(TileMath, MercatorCoordinates)
{
    EXPECT_DOUBLE_EQ(mercatorX(180.0), kMercatorHalfWorld);
    EXPECT_NEAR(mercatorY(kMaxMercatorLatitude), kMercatorHalfWorld, 1e-3);
    EXPECT_NEAR(mercatorY(90.0), kMercatorHalfWorld, 1e-3); // clamped to the square world
    EXPECT_NEAR(globalXOfMercator(mercatorXOfGlobal(1234.5, 7), 7), 1234.5, 1e-6);
    EXPECT_NEAR(globalYOfMercator(mercatorY(39.9), 5), globalYAt(39.9, 5), 1e-6);
}
