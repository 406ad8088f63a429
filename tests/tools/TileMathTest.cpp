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
