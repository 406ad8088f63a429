// Void filling in windows of heights: small holes from their rim, what counts as
// small, pixels outside the data left alone, and the cleaning of corrupt heights.
#include "WindowVoidFill.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

using namespace cxtiler;

namespace
{

const float kVoid = std::numeric_limits<float>::quiet_NaN();

struct Window
{
    int width, height;
    std::vector<float> heights;
    std::vector<std::uint8_t> covered;

    Window(int w, int h, float value) : width(w), height(h), heights(w * h, value), covered(w * h, 1) {}
    float& at(int c, int r) { return heights[r * width + c]; }
    std::uint8_t& cover(int c, int r) { return covered[r * width + c]; }
};

} // namespace

TEST(TilerWindowVoidFill, AHoleFillsBetweenTheHeightsAroundIt)
{
    // West 1000 m, east 3000 m, a 4 x 4 hole across the border.
    Window w(20, 20, 1000.0f);
    for (int r = 0; r < 20; ++r)
        for (int c = 10; c < 20; ++c)
            w.at(c, r) = 3000.0f;
    for (int r = 8; r < 12; ++r)
        for (int c = 8; c < 12; ++c)
            w.at(c, r) = kVoid;
    EXPECT_EQ(fillVoidsFromNeighbours(w.heights.data(), w.covered.data(), nullptr, 20, 20), 16u);
    for (int r = 8; r < 12; ++r)
    {
        for (int c = 8; c < 12; ++c)
        {
            EXPECT_GE(w.at(c, r), 1000.0f);
            EXPECT_LE(w.at(c, r), 3000.0f);
        }
        EXPECT_LT(w.at(8, r), w.at(11, r)); // nearer the high side is higher
    }
}

TEST(TilerWindowVoidFill, PixelsOutsideTheDataAreNeitherFilledNorUsed)
{
    Window w(10, 10, 500.0f);
    for (int r = 0; r < 10; ++r)
        for (int c = 0; c < 3; ++c)
        {
            w.cover(c, r) = 0;
            w.at(c, r) = c == 2 ? 9000.0f : kVoid; // uncovered, so never a neighbour
        }
    w.at(3, 5) = kVoid;
    EXPECT_EQ(fillVoidsFromNeighbours(w.heights.data(), w.covered.data(), nullptr, 10, 10), 1u);
    EXPECT_FLOAT_EQ(w.at(3, 5), 500.0f);
    EXPECT_TRUE(std::isnan(w.at(0, 0)));
}

TEST(TilerWindowVoidFill, OnlyHolesClearOfTheEdgeAndSmallEnoughCountAsSmall)
{
    Window w(40, 40, 10.0f);
    for (int r = 5; r < 9; ++r) // 4 x 4: small
        for (int c = 5; c < 9; ++c)
            w.at(c, r) = kVoid;
    for (int r = 20; r < 32; ++r) // 12 x 3: too long
        for (int c = 20; c < 23; ++c)
            w.at(c, r) = kVoid;
    w.at(0, 15) = kVoid; // on the edge
    w.at(1, 15) = kVoid;
    const std::vector<std::uint8_t> small = markSmallHoles(w.heights.data(), w.covered.data(), 40, 40, 10);
    EXPECT_EQ(small[6 * 40 + 6], 1);
    EXPECT_EQ(small[25 * 40 + 21], 0);
    EXPECT_EQ(small[15 * 40 + 1], 0);
    EXPECT_EQ(small[0], 0); // not a void
    // Filling only the small hole leaves the others void.
    fillVoidsFromNeighbours(w.heights.data(), w.covered.data(), small.data(), 40, 40);
    EXPECT_FLOAT_EQ(w.at(6, 6), 10.0f);
    EXPECT_TRUE(std::isnan(w.at(21, 25)));
    EXPECT_TRUE(std::isnan(w.at(0, 15)));
}

TEST(TilerWindowVoidFill, RelaxingTakesTheCreasesOutOfAFill)
{
    // A wide hole in a plane sloping west to east: ring-by-ring filling meets in
    // creases; relaxed, the fill comes close to the plane and stays within the rim.
    Window w(60, 30, 0.0f);
    for (int r = 0; r < 30; ++r)
        for (int c = 0; c < 60; ++c)
            w.at(c, r) = 10.0f * c;
    std::vector<std::uint8_t> hole(60 * 30, 0);
    for (int r = 5; r < 25; ++r)
        for (int c = 5; c < 55; ++c)
        {
            w.at(c, r) = kVoid;
            hole[r * 60 + c] = 1;
        }
    fillVoidsFromNeighbours(w.heights.data(), w.covered.data(), nullptr, 60, 30);
    auto worst = [&] {
        float error = 0.0f;
        for (int r = 5; r < 25; ++r)
            for (int c = 5; c < 55; ++c)
                error = std::max(error, std::fabs(w.at(c, r) - 10.0f * c));
        return error;
    };
    const float ringError = worst();
    relaxFilledVoids(w.heights.data(), w.covered.data(), hole.data(), 60, 30, 400);
    EXPECT_LT(worst(), ringError / 4.0f);
    for (int r = 5; r < 25; ++r)
        for (int c = 5; c < 55; ++c)
        {
            EXPECT_GE(w.at(c, r), 40.0f);
            EXPECT_LE(w.at(c, r), 550.0f);
        }
    EXPECT_FLOAT_EQ(w.at(4, 10), 40.0f); // the rim is kept
}

TEST(TilerWindowVoidFill, CorruptHeightsBecomeVoids)
{
    Window w(8, 8, 200.0f);
    w.at(3, 3) = 7000.0f;   // a lone spike
    w.at(6, 1) = -30000.0f; // impossible
    EXPECT_EQ(removeOutliersInWindow(w.heights.data(), w.covered.data(), 8, 8, -500.0f, 9000.0f, 2000.0f), 2u);
    EXPECT_TRUE(std::isnan(w.at(3, 3)));
    EXPECT_TRUE(std::isnan(w.at(6, 1)));
    EXPECT_FLOAT_EQ(w.at(4, 4), 200.0f);
}
