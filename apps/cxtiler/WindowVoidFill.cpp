#include "WindowVoidFill.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace cxtiler
{

namespace
{

bool isVoid(float h) { return std::isnan(h); }

bool isCovered(const std::uint8_t* covered, std::size_t i) { return !covered || covered[i] != 0; }

/** Calls f(index) for each of the up to eight neighbours of (column, row). */
template <typename F>
void forEachNeighbour(int column, int row, int width, int height, F&& f)
{
    for (int dy = -1; dy <= 1; ++dy)
    {
        const int r = row + dy;
        if (r < 0 || r >= height)
            continue;
        for (int dx = -1; dx <= 1; ++dx)
        {
            const int c = column + dx;
            if ((dx == 0 && dy == 0) || c < 0 || c >= width)
                continue;
            f(static_cast<std::size_t>(r) * width + c);
        }
    }
}

/** The mean of the valid, covered neighbours of pixel i; false when it has
  * none. */
bool neighbourMean(const float* heights, const std::uint8_t* covered, std::size_t i, int width, int height,
                   float& mean)
{
    double sum = 0.0;
    int valid = 0;
    forEachNeighbour(static_cast<int>(i % width), static_cast<int>(i / width), width, height, [&](std::size_t n) {
        if (isCovered(covered, n) && !isVoid(heights[n]))
        {
            sum += heights[n];
            ++valid;
        }
    });
    if (valid == 0)
        return false;
    mean = static_cast<float>(sum / valid);
    return true;
}

} // namespace

std::size_t fillVoidsFromNeighbours(float* heights, const std::uint8_t* covered, const std::uint8_t* targets,
                                    int width, int height)
{
    const std::size_t count = static_cast<std::size_t>(width) * height;
    std::vector<std::size_t> voids;
    for (std::size_t i = 0; i < count; ++i)
        if (isVoid(heights[i]) && isCovered(covered, i) && (!targets || targets[i]))
            voids.push_back(i);

    std::size_t filledTotal = 0;
    std::vector<std::pair<std::size_t, float>> filled;
    std::vector<std::size_t> remaining;
    while (!voids.empty())
    {
        filled.clear();
        remaining.clear();
        for (std::size_t i : voids)
        {
            float mean = 0.0f;
            if (neighbourMean(heights, covered, i, width, height, mean))
                filled.emplace_back(i, mean);
            else
                remaining.push_back(i);
        }
        if (filled.empty())
            break; // what is left has no valid pixel within reach
        for (const auto& [i, value] : filled)
            heights[i] = value;
        filledTotal += filled.size();
        voids.swap(remaining);
    }
    return filledTotal;
}

void relaxFilledVoids(float* heights, const std::uint8_t* covered, const std::uint8_t* filled, int width, int height,
                      int iterations)
{
    const std::size_t count = static_cast<std::size_t>(width) * height;
    std::vector<std::size_t> pixels;
    for (std::size_t i = 0; i < count; ++i)
        if (filled[i] && isCovered(covered, i) && !isVoid(heights[i]))
            pixels.push_back(i);
    for (int pass = 0; pass < iterations && !pixels.empty(); ++pass)
    {
        for (std::size_t i : pixels)
        {
            float mean = 0.0f;
            if (neighbourMean(heights, covered, i, width, height, mean))
                heights[i] = mean;
        }
    }
}

std::vector<std::uint8_t> markSmallHoles(const float* heights, const std::uint8_t* covered, int width, int height,
                                         int maxExtent)
{
    const std::size_t count = static_cast<std::size_t>(width) * height;
    std::vector<std::uint8_t> small(count, 0);
    std::vector<std::uint8_t> seen(count, 0);
    std::vector<std::size_t> component;
    std::vector<std::size_t> stack;
    for (std::size_t start = 0; start < count; ++start)
    {
        if (seen[start] || !isVoid(heights[start]) || !isCovered(covered, start))
            continue;
        component.clear();
        stack.assign(1, start);
        seen[start] = 1;
        int minColumn = width, maxColumn = -1, minRow = height, maxRow = -1;
        while (!stack.empty())
        {
            const std::size_t i = stack.back();
            stack.pop_back();
            component.push_back(i);
            const int column = static_cast<int>(i % width);
            const int row = static_cast<int>(i / width);
            minColumn = std::min(minColumn, column);
            maxColumn = std::max(maxColumn, column);
            minRow = std::min(minRow, row);
            maxRow = std::max(maxRow, row);
            forEachNeighbour(column, row, width, height, [&](std::size_t n) {
                if (!seen[n] && isVoid(heights[n]) && isCovered(covered, n))
                {
                    seen[n] = 1;
                    stack.push_back(n);
                }
            });
        }
        const bool touchesEdge = minColumn == 0 || minRow == 0 || maxColumn == width - 1 || maxRow == height - 1;
        if (touchesEdge || maxColumn - minColumn + 1 > maxExtent || maxRow - minRow + 1 > maxExtent)
            continue;
        for (std::size_t i : component)
            small[i] = 1;
    }
    return small;
}

std::size_t removeOutliersInWindow(float* heights, const std::uint8_t* covered, int width, int height,
                                   float minValid, float maxValid, float spikeThreshold)
{
    const std::size_t count = static_cast<std::size_t>(width) * height;
    std::size_t removed = 0;
    for (std::size_t i = 0; i < count; ++i)
    {
        if (isCovered(covered, i) && !isVoid(heights[i]) && (heights[i] < minValid || heights[i] > maxValid))
        {
            heights[i] = std::numeric_limits<float>::quiet_NaN();
            ++removed;
        }
    }
    // Decide on all spikes against the same state, then remove them together.
    std::vector<std::size_t> spikes;
    for (std::size_t i = 0; i < count; ++i)
    {
        const float h = heights[i];
        if (!isCovered(covered, i) || isVoid(h))
            continue;
        float lowest = std::numeric_limits<float>::max();
        float highest = std::numeric_limits<float>::lowest();
        int valid = 0;
        forEachNeighbour(static_cast<int>(i % width), static_cast<int>(i / width), width, height, [&](std::size_t n) {
            if (!isCovered(covered, n) || isVoid(heights[n]))
                return;
            lowest = std::min(lowest, heights[n]);
            highest = std::max(highest, heights[n]);
            ++valid;
        });
        if (valid >= 3 && (h - highest > spikeThreshold || lowest - h > spikeThreshold))
            spikes.push_back(i);
    }
    for (std::size_t i : spikes)
        heights[i] = std::numeric_limits<float>::quiet_NaN();
    return removed + spikes.size();
}

} // namespace cxtiler
