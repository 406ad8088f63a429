// Void filling and the removal of corrupt cells in elevation grids.
#include "Error.h"
#include "HeightGrid.h"

#include <gtest/gtest.h>

#include <limits>

using namespace cxtiler;

namespace
{

const float kVoid = std::numeric_limits<float>::quiet_NaN();

HeightGrid constantGrid(int width, int height, float value)
{
    return HeightGrid(width, height, std::vector<float>(static_cast<std::size_t>(width) * height, value));
}

} // namespace

TEST(HeightGrid, AVoidInHighGroundFillsAsHighGround)
{
    // A plateau at 5000 m with a 5 x 5 hole of voids, next to lower land.
    HeightGrid grid = constantGrid(40, 20, 5000.0f);
    for (int row = 0; row < 20; ++row)
        for (int column = 0; column < 5; ++column)
            grid.at(column, row) = 100.0f;
    for (int row = 6; row < 11; ++row)
        for (int column = 20; column < 25; ++column)
            grid.at(column, row) = kVoid;
    ASSERT_EQ(grid.voidCount(), 25u);

    EXPECT_EQ(grid.fillVoids(), 25u);
    EXPECT_EQ(grid.voidCount(), 0u);
    for (int row = 6; row < 11; ++row)
        for (int column = 20; column < 25; ++column)
            EXPECT_FLOAT_EQ(grid.at(column, row), 5000.0f) << column << "," << row;
}

TEST(HeightGrid, AVoidBetweenHighAndLowGroundTakesValuesInBetween)
{
    // West half 6000 m, east half 0 m, a band of voids across the border.
    HeightGrid grid = constantGrid(32, 16, 0.0f);
    for (int row = 0; row < 16; ++row)
        for (int column = 0; column < 16; ++column)
            grid.at(column, row) = 6000.0f;
    for (int row = 4; row < 12; ++row)
        for (int column = 12; column < 20; ++column)
            grid.at(column, row) = kVoid;
    grid.fillVoids();
    for (int row = 4; row < 12; ++row)
    {
        for (int column = 12; column < 20; ++column)
        {
            EXPECT_GE(grid.at(column, row), 0.0f);
            EXPECT_LE(grid.at(column, row), 6000.0f);
        }
        // Inward averaging: nearer the high side is higher.
        EXPECT_GT(grid.at(12, row), grid.at(19, row));
    }
    // The rim next to the plateau stays high ground, not a pit.
    EXPECT_GT(grid.at(12, 4), 3000.0f);
}

TEST(HeightGrid, VoidsWrapAroundTheAntimeridianAndReachThePoles)
{
    HeightGrid grid = constantGrid(16, 8, 1200.0f);
    for (int row = 0; row < 8; ++row)
    {
        grid.at(0, row) = kVoid;  // the westernmost column
        grid.at(15, row) = kVoid; // the easternmost column
    }
    for (int column = 0; column < 16; ++column)
        grid.at(column, 0) = kVoid; // the northern row
    EXPECT_EQ(grid.fillVoids(), 30u);
    EXPECT_EQ(grid.voidCount(), 0u);
    for (int row = 0; row < 8; ++row)
        for (int column = 0; column < 16; ++column)
            EXPECT_FLOAT_EQ(grid.at(column, row), 1200.0f);
}

TEST(HeightGrid, AllVoidIsAnError)
{
    HeightGrid grid = constantGrid(4, 2, kVoid);
    EXPECT_THROW(grid.fillVoids(), Error);
}

TEST(HeightGrid, NoVoidsIsANoOp)
{
    HeightGrid grid = constantGrid(4, 2, 7.0f);
    EXPECT_EQ(grid.fillVoids(), 0u);
    EXPECT_FLOAT_EQ(grid.at(3, 1), 7.0f);
}

TEST(HeightGrid, ImpossibleHeightsAndLoneSpikesBecomeVoids)
{
    HeightGrid grid = constantGrid(20, 10, 100.0f);
    grid.at(3, 3) = 27679.0f;   // far above any mountain
    grid.at(6, 6) = -28784.0f;  // far below any land
    grid.at(12, 4) = 8740.0f;   // a lone spike in flat land
    grid.at(15, 7) = -4000.0f;  // out of range as well
    // A real massif: high cells next to each other survive.
    for (int row = 1; row < 4; ++row)
        for (int column = 15; column < 18; ++column)
            grid.at(column, row) = 4000.0f;
    grid.at(16, 2) = 5500.0f; // its summit, 1500 m above its flanks

    EXPECT_EQ(grid.removeOutliers(-500.0f, 9000.0f, 2000.0f), 4u);
    EXPECT_TRUE(HeightGrid::isVoid(grid.at(3, 3)));
    EXPECT_TRUE(HeightGrid::isVoid(grid.at(6, 6)));
    EXPECT_TRUE(HeightGrid::isVoid(grid.at(12, 4)));
    EXPECT_TRUE(HeightGrid::isVoid(grid.at(15, 7)));
    EXPECT_FLOAT_EQ(grid.at(16, 2), 5500.0f);
    EXPECT_FLOAT_EQ(grid.at(15, 1), 4000.0f);

    grid.fillVoids();
    EXPECT_FLOAT_EQ(grid.at(12, 4), 100.0f);
    EXPECT_FLOAT_EQ(grid.at(3, 3), 100.0f);
}

TEST(HeightGrid, BilinearSampleBetweenCellCentres)
{
    // Cell centres of a 4 x 2 grid: longitudes -135, -45, 45, 135; latitudes 45, -45.
    HeightGrid grid(4, 2, {0.0f, 100.0f, 200.0f, 300.0f, 1000.0f, 1100.0f, 1200.0f, 1300.0f});
    EXPECT_FLOAT_EQ(grid.sample(-135.0, 45.0), 0.0f);
    EXPECT_FLOAT_EQ(grid.sample(-90.0, 45.0), 50.0f);
    EXPECT_FLOAT_EQ(grid.sample(-90.0, 0.0), 550.0f);
    EXPECT_FLOAT_EQ(grid.sample(45.0, -80.0), 1200.0f); // beyond the last row centre: clamped
    EXPECT_FLOAT_EQ(grid.sample(180.0, 45.0), 150.0f);  // between 135 E and 135 W across the seam
}
