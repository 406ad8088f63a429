#include <globe/TileKey>

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <unordered_set>

using globe::TileKey;

TEST(GlobeTileKey, LevelZeroIsTwoHemispheres)
{
    EXPECT_EQ(TileKey::getNumTilesWide(0), 2u);
    EXPECT_EQ(TileKey::getNumTilesHigh(0), 1u);
    const TileKey west(0, 0, 0);
    const TileKey east(0, 1, 0);
    ASSERT_TRUE(west.valid());
    ASSERT_TRUE(east.valid());
    EXPECT_DOUBLE_EQ(west.west(), -180.0);
    EXPECT_DOUBLE_EQ(west.east(), 0.0);
    EXPECT_DOUBLE_EQ(west.south(), -90.0);
    EXPECT_DOUBLE_EQ(west.north(), 90.0);
    EXPECT_DOUBLE_EQ(east.west(), 0.0);
    EXPECT_DOUBLE_EQ(east.east(), 180.0);
    EXPECT_DOUBLE_EQ(east.getWidthDegrees(), 180.0);
    EXPECT_DOUBLE_EQ(east.getHeightDegrees(), 180.0);
    EXPECT_FALSE(TileKey(0, 2, 0).valid());
    EXPECT_FALSE(TileKey(0, 0, 1).valid());
}

TEST(GlobeTileKey, RowsCountFromTheNorth)
{
    EXPECT_EQ(TileKey::getNumTilesWide(3), 16u);
    EXPECT_EQ(TileKey::getNumTilesHigh(3), 8u);
    const TileKey top(3, 0, 0);
    EXPECT_DOUBLE_EQ(top.north(), 90.0);
    EXPECT_DOUBLE_EQ(top.south(), 67.5);
    const TileKey bottom(3, 15, 7);
    EXPECT_DOUBLE_EQ(bottom.south(), -90.0);
    EXPECT_DOUBLE_EQ(bottom.north(), -67.5);
    EXPECT_DOUBLE_EQ(bottom.east(), 180.0);
    EXPECT_DOUBLE_EQ(bottom.west(), 157.5);
}

TEST(GlobeTileKey, ChildrenParentsAndAncestors)
{
    const TileKey key(2, 5, 1);
    const TileKey nw = key.createChildKey(0);
    const TileKey ne = key.createChildKey(1);
    const TileKey sw = key.createChildKey(2);
    const TileKey se = key.createChildKey(3);
    EXPECT_EQ(nw, TileKey(3, 10, 2));
    EXPECT_EQ(ne, TileKey(3, 11, 2));
    EXPECT_EQ(sw, TileKey(3, 10, 3));
    EXPECT_EQ(se, TileKey(3, 11, 3));
    EXPECT_DOUBLE_EQ(nw.north(), key.north());
    EXPECT_DOUBLE_EQ(nw.west(), key.west());
    EXPECT_DOUBLE_EQ(se.south(), key.south());
    EXPECT_DOUBLE_EQ(se.east(), key.east());
    EXPECT_DOUBLE_EQ(nw.south(), key.centerLatitude());
    for (unsigned int q = 0; q < 4; ++q)
    {
        EXPECT_EQ(key.createChildKey(q).createParentKey(), key);
        EXPECT_EQ(key.createChildKey(q).getQuadrant(), q);
    }
    EXPECT_FALSE(key.createChildKey(4).valid());
    EXPECT_FALSE(TileKey(0, 1, 0).createParentKey().valid());
    EXPECT_EQ(TileKey(5, 37, 20).createAncestorKey(2), TileKey(2, 4, 2));
    EXPECT_EQ(TileKey(5, 37, 20).createAncestorKey(5), TileKey(5, 37, 20));
    EXPECT_FALSE(TileKey(2, 1, 1).createAncestorKey(3).valid());
    EXPECT_FALSE(TileKey(TileKey::MAX_LEVEL, 0, 0).createChildKey(0).valid());
    EXPECT_FALSE(TileKey().createChildKey(0).valid());
}

TEST(GlobeTileKey, FromLonLat)
{
    EXPECT_EQ(TileKey::fromLonLat(116.39, 39.91, 0), TileKey(0, 1, 0));
    EXPECT_EQ(TileKey::fromLonLat(-0.001, 0.0, 0), TileKey(0, 0, 0));
    const TileKey k = TileKey::fromLonLat(116.39, 39.91, 10);
    EXPECT_TRUE(k.contains(116.39, 39.91));
    EXPECT_EQ(TileKey::fromLonLat(180.0, 90.0, 4), TileKey(4, 0, 0)); // wraps to -180
    EXPECT_EQ(TileKey::fromLonLat(179.999, -90.0, 4), TileKey(4, 31, 15));
    EXPECT_EQ(TileKey::fromLonLat(-190.0, 0.0, 1), TileKey(1, 3, 1));
    EXPECT_FALSE(TileKey::fromLonLat(NAN, 0.0, 1).valid());
}

TEST(GlobeTileKey, StringsOrderAndHash)
{
    EXPECT_EQ(TileKey(7, 100, 33).str(), "7/100/33");
    EXPECT_EQ(TileKey().str(), "invalid");
    TileKey parsed;
    ASSERT_TRUE(TileKey::fromString("7/100/33", parsed));
    EXPECT_EQ(parsed, TileKey(7, 100, 33));
    for (const char* bad : {"", "7/100", "7/100/33/1", "a/b/c", "0/2/0", "7/-1/3", "7/100/33x", " 7/1/1"})
    {
        TileKey untouched(1, 1, 1);
        EXPECT_FALSE(TileKey::fromString(bad, untouched)) << bad;
        EXPECT_EQ(untouched, TileKey(1, 1, 1));
    }
    EXPECT_LT(TileKey(), TileKey(0, 0, 0));
    EXPECT_LT(TileKey(0, 1, 0), TileKey(1, 0, 0));
    EXPECT_LT(TileKey(1, 3, 0), TileKey(1, 0, 1));

    std::unordered_set<TileKey> keys;
    std::set<TileKey> ordered;
    for (unsigned int level = 0; level < 4; ++level)
        for (unsigned int y = 0; y < TileKey::getNumTilesHigh(level); ++y)
            for (unsigned int x = 0; x < TileKey::getNumTilesWide(level); ++x)
            {
                keys.insert(TileKey(level, x, y));
                ordered.insert(TileKey(level, x, y));
            }
    EXPECT_EQ(keys.size(), 2u + 8u + 32u + 128u);
    EXPECT_EQ(ordered.size(), keys.size());
}

TEST(GlobeTileKey, Contains)
{
    const TileKey key(1, 3, 0); // 90..180 E, 0..90 N
    EXPECT_TRUE(key.contains(120.0, 45.0));
    EXPECT_TRUE(key.contains(90.0, 0.0));
    EXPECT_TRUE(key.contains(180.0, 90.0));
    EXPECT_FALSE(key.contains(89.999, 45.0));
    EXPECT_FALSE(key.contains(120.0, -0.001));
    EXPECT_FALSE(TileKey().contains(0.0, 0.0));
}
