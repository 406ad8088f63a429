// The tiles of each level over a box of longitudes and latitudes.
#include "TileMath.h"
#include "TileRange.h"

#include <gtest/gtest.h>

using namespace cxtiler;

TEST(TilerTileRange, ARegionHasItsTilesAtEveryLevel)
{
    // 116.3-116.5 E, 39.9-40.0 N at level 12: columns from (lon + 180) / 360 * 4096.
    const TileRange range(116.3, 39.9, 116.5, 40.0, 12);
    ASSERT_EQ(range.maxZoom(), 12);
    const TileRange::Level& deepest = range.level(12);
    EXPECT_EQ(deepest.firstColumn, 3371); // 3371.4
    EXPECT_EQ(deepest.lastColumn, 3373);  // 3373.7
    EXPECT_EQ(deepest.firstRow, static_cast<int>(globalYAt(40.0, 12) / kTileSize));
    EXPECT_EQ(deepest.lastRow, static_cast<int>(globalYAt(39.9, 12) / kTileSize));
    EXPECT_TRUE(range.contains(12, 3372, deepest.firstRow));
    EXPECT_FALSE(range.contains(12, 3370, deepest.firstRow));
    EXPECT_FALSE(range.contains(12, 3372, deepest.lastRow + 1));
    EXPECT_EQ(range.count(0), 1);
    EXPECT_TRUE(range.contains(0, 0, 0));
    // Every level holds exactly the parents of the next one.
    for (int z = 0; z < 12; ++z)
        for (int y = 0; y < tilesAcross(z + 1); ++y)
            for (int x = range.level(z + 1).firstColumn; x <= range.level(z + 1).lastColumn; ++x)
            {
                if (range.contains(z + 1, x, y))
                {
                    EXPECT_TRUE(range.contains(z, x / 2, y / 2)) << z << " " << x << " " << y;
                }
            }
    const std::vector<long> counts = range.counts();
    ASSERT_EQ(counts.size(), 13u);
    for (int z = 0; z <= 12; ++z)
    {
        const TileRange::Level& level = range.level(z);
        EXPECT_EQ(counts[z], static_cast<long>(level.lastColumn - level.firstColumn + 1)
                                 * (level.lastRow - level.firstRow + 1));
    }
    EXPECT_EQ(counts[12], 3L * (deepest.lastRow - deepest.firstRow + 1));
}

TEST(TilerTileRange, ABoxEndingOnATileEdgeStaysOutOfTheNextTile)
{
    // 0-90 E, 0-66.51 N is exactly tile (2, 2, 1), and its four children below.
    const TileRange range(0.0, 0.0, 90.0, latitudeAt(256.0, 2), 3);
    EXPECT_EQ(range.count(2), 1);
    EXPECT_TRUE(range.contains(2, 2, 1));
    EXPECT_EQ(range.count(3), 4);
}

TEST(TilerTileRange, AcrossTheAntimeridian)
{
    // 170 E to 190 E (= 170 W): the columns wrap.
    const TileRange range(170.0, -10.0, 190.0, 10.0, 4);
    const int across = tilesAcross(4);
    EXPECT_TRUE(range.contains(4, across - 1, 7));
    EXPECT_TRUE(range.contains(4, 0, 7));
    EXPECT_FALSE(range.contains(4, across / 2, 7));
    EXPECT_EQ(range.count(4), 2 * 2);
    EXPECT_EQ(range.count(0), 1);
    // A box around the whole world is every tile.
    const TileRange world(-180.0, -85.0, 180.0, 85.0, 3);
    EXPECT_EQ(world.count(3), 64);
}

TEST(TilerTileRange, SeveralBoxesCountTheirTilesOnce)
{
    // Two overlapping boxes and one far away, at level 6 (5.625 degrees a tile).
    const std::vector<TileRange::Box> boxes = {
        {0.5, 0.5, 10.0, 5.0}, {5.0, 0.5, 12.0, 5.0}, {100.5, 30.5, 101.0, 31.0}};
    const TileRange range(boxes, 6);
    // 0.5-12 E spans columns 32-34, 0.5-5 N one row; the far box one tile.
    EXPECT_EQ(range.count(6), 3 + 1);
    EXPECT_TRUE(range.contains(6, 33, 31));
    EXPECT_TRUE(range.contains(6, 49, 26));
    EXPECT_FALSE(range.contains(6, 40, 31)); // between the two groups
    EXPECT_EQ(range.count(0), 1);
    EXPECT_EQ(range.counts().size(), 7u);
    // A parent is in the range exactly when one of its children is.
    for (int z = 0; z < 6; ++z)
        for (int y = 0; y < tilesAcross(z); ++y)
            for (int x = 0; x < tilesAcross(z); ++x)
            {
                bool child = false;
                for (int q = 0; q < 4; ++q)
                    child = child || range.contains(z + 1, 2 * x + (q & 1), 2 * y + (q >> 1));
                EXPECT_EQ(range.contains(z, x, y), child) << z << " " << x << " " << y;
            }
}
