#include "HeightGrid.h"

#include "Error.h"
#include "GridSampling.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace cxtiler
{

HeightGrid::HeightGrid(int width, int height, std::vector<float> heights)
    : _width(width), _height(height), _heights(std::move(heights))
{
    if (width < 1 || height < 1 || _heights.size() != static_cast<std::size_t>(width) * height)
        throw Error("internal error: inconsistent height buffer");
}

std::size_t HeightGrid::voidCount() const
{
    return static_cast<std::size_t>(std::count_if(_heights.begin(), _heights.end(), isVoid));
}

template <typename F>
void HeightGrid::forEachNeighbour(int column, int row, F&& f) const
{
    for (int dy = -1; dy <= 1; ++dy)
    {
        const int r = row + dy;
        if (r < 0 || r >= _height)
            continue;
        for (int dx = -1; dx <= 1; ++dx)
        {
            if (dx == 0 && dy == 0)
                continue;
            int c = column + dx;
            if (c < 0)
                c += _width;
            else if (c >= _width)
                c -= _width;
            if (c == column && dx != 0)
                continue; // a one-column grid has no east/west neighbours
            f(_heights[index(c, r)]);
        }
    }
}

std::size_t HeightGrid::removeOutliers(float minValid, float maxValid, float spikeThreshold)
{
    std::size_t removed = 0;
    for (float& h : _heights)
    {
        if (!isVoid(h) && (h < minValid || h > maxValid))
        {
            h = std::numeric_limits<float>::quiet_NaN();
            ++removed;
        }
    }

    // Decide on all spikes against the same state, then remove them together, so
    // that removing one does not change the verdict on its neighbours.
    std::vector<std::size_t> spikes;
    for (int row = 0; row < _height; ++row)
    {
        for (int column = 0; column < _width; ++column)
        {
            const float h = at(column, row);
            if (isVoid(h))
                continue;
            float lowest = std::numeric_limits<float>::max();
            float highest = std::numeric_limits<float>::lowest();
            int valid = 0;
            forEachNeighbour(column, row, [&](float n) {
                if (isVoid(n))
                    return;
                lowest = std::min(lowest, n);
                highest = std::max(highest, n);
                ++valid;
            });
            // Too few neighbours to tell a spike from a coastline or a grid edge.
            if (valid >= 3 && (h - highest > spikeThreshold || lowest - h > spikeThreshold))
                spikes.push_back(index(column, row));
        }
    }
    for (std::size_t i : spikes)
        _heights[i] = std::numeric_limits<float>::quiet_NaN();
    return removed + spikes.size();
}

std::size_t HeightGrid::fillVoids()
{
    std::vector<std::size_t> voids;
    for (std::size_t i = 0; i < _heights.size(); ++i)
        if (isVoid(_heights[i]))
            voids.push_back(i);
    if (voids.empty())
        return 0;
    if (voids.size() == _heights.size())
        throw Error("the elevation grid has no valid height at all");

    const std::size_t total = voids.size();
    std::vector<std::pair<std::size_t, float>> filled;
    std::vector<std::size_t> remaining;
    while (!voids.empty())
    {
        filled.clear();
        remaining.clear();
        for (std::size_t i : voids)
        {
            const int row = static_cast<int>(i / _width);
            const int column = static_cast<int>(i % _width);
            double sum = 0.0;
            int count = 0;
            forEachNeighbour(column, row, [&](float n) {
                if (!isVoid(n))
                {
                    sum += n;
                    ++count;
                }
            });
            if (count > 0)
                filled.emplace_back(i, static_cast<float>(sum / count));
            else
                remaining.push_back(i);
        }
        // Every pass fills at least the voids on the rim, since the grid holds a valid cell.
        for (const auto& [i, value] : filled)
            _heights[i] = value;
        voids.swap(remaining);
    }
    return total;
}

float HeightGrid::sample(double longitude, double latitude) const
{
    const BilinearCell cell = bilinearCell(longitude, latitude, _width, _height);
    const float h00 = at(cell.x0, cell.y0);
    const float h10 = at(cell.x1, cell.y0);
    const float h01 = at(cell.x0, cell.y1);
    const float h11 = at(cell.x1, cell.y1);
    const float top = h00 + (h10 - h00) * cell.fx;
    const float bottom = h01 + (h11 - h01) * cell.fx;
    return top + (bottom - top) * cell.fy;
}

} // namespace cxtiler
