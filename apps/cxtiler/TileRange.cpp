#include "TileRange.h"

#include "Error.h"
#include "TileMath.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace cxtiler
{

namespace
{

// Keeps a box that starts or ends on a tile edge (give or take rounding) out of
// the tile beyond that edge.
constexpr double kEdgeEpsilon = 1e-6;

/** Floor division by two, also for columns west of the antimeridian. */
int parent(int i) { return i >= 0 ? i / 2 : -((-i + 1) / 2); }

std::vector<TileRange::Level> levelsOf(const TileRange::Box& box, int maxZoom)
{
    if (!(box.west < box.east) || !(box.south < box.north))
        throw Error("internal error: an empty box of tiles");

    // The deepest level from the box; every coarser one holds the parents of the
    // level below, so that a tile is in the range exactly when a child of it is.
    const int across = tilesAcross(maxZoom);
    const double worldPixels = static_cast<double>(kTileSize) * across;
    TileRange::Level deepest{};
    const double x0 = (box.west + 180.0) / 360.0 * worldPixels;
    const double x1 = (box.east + 180.0) / 360.0 * worldPixels;
    deepest.firstColumn = static_cast<int>(std::floor((x0 + kEdgeEpsilon) / kTileSize));
    deepest.lastColumn = std::max(static_cast<int>(std::floor((x1 - kEdgeEpsilon) / kTileSize)), deepest.firstColumn);
    const double y0 = globalYAt(std::min(box.north, kMaxMercatorLatitude), maxZoom);
    const double y1 = globalYAt(std::max(box.south, -kMaxMercatorLatitude), maxZoom);
    deepest.firstRow = std::clamp(static_cast<int>(std::floor((y0 + kEdgeEpsilon) / kTileSize)), 0, across - 1);
    deepest.lastRow =
        std::clamp(static_cast<int>(std::floor((y1 - kEdgeEpsilon) / kTileSize)), deepest.firstRow, across - 1);

    std::vector<TileRange::Level> levels(maxZoom + 1);
    TileRange::Level level = deepest;
    for (int zoom = maxZoom; zoom >= 0; --zoom)
    {
        const int tiles = tilesAcross(zoom);
        if (box.east - box.west >= 360.0 || level.lastColumn - level.firstColumn >= tiles - 1)
        {
            level.firstColumn = 0;
            level.lastColumn = tiles - 1;
        }
        levels[zoom] = level;
        level = {parent(level.firstColumn), parent(level.lastColumn), level.firstRow / 2, level.lastRow / 2};
    }
    return levels;
}

} // namespace

TileRange::TileRange(const std::vector<Box>& boxes, int maxZoom) : _maxZoom(maxZoom)
{
    if (boxes.empty() || maxZoom < 0 || maxZoom > kMaxZoomLimit)
        throw Error("internal error: an empty tile range");
    for (const Box& box : boxes)
        _boxes.push_back(levelsOf(box, maxZoom));
    for (int zoom = 0; zoom <= maxZoom; ++zoom)
        _counts.push_back(unionCount(zoom));
}

TileRange::TileRange(double west, double south, double east, double north, int maxZoom)
    : TileRange(std::vector<Box>{{west, south, east, north}}, maxZoom)
{
}

bool TileRange::holds(const Level& level, int across, int x, int y)
{
    if (y < level.firstRow || y > level.lastRow)
        return false;
    int offset = (x - level.firstColumn) % across;
    if (offset < 0)
        offset += across;
    return offset <= level.lastColumn - level.firstColumn;
}

bool TileRange::contains(int zoom, int x, int y) const
{
    if (zoom < 0 || zoom > _maxZoom)
        return false;
    const int across = tilesAcross(zoom);
    for (const auto& box : _boxes)
        if (holds(box[zoom], across, x, y))
            return true;
    return false;
}

long TileRange::unionCount(int zoom) const
{
    const int across = tilesAcross(zoom);
    if (_boxes.size() == 1)
    {
        const Level& level = _boxes.front()[zoom];
        return static_cast<long>(level.lastColumn - level.firstColumn + 1) * (level.lastRow - level.firstRow + 1);
    }
    // Row by row: the columns of the boxes over the row, unwrapped into [0, across), merged.
    int firstRow = across;
    int lastRow = -1;
    for (const auto& box : _boxes)
    {
        firstRow = std::min(firstRow, box[zoom].firstRow);
        lastRow = std::max(lastRow, box[zoom].lastRow);
    }
    long total = 0;
    std::vector<std::pair<int, int>> spans;
    for (int y = firstRow; y <= lastRow; ++y)
    {
        spans.clear();
        for (const auto& box : _boxes)
        {
            const Level& level = box[zoom];
            if (y < level.firstRow || y > level.lastRow)
                continue;
            const int length = level.lastColumn - level.firstColumn + 1;
            int start = level.firstColumn % across;
            if (start < 0)
                start += across;
            if (start + length <= across)
            {
                spans.emplace_back(start, start + length - 1);
            }
            else
            {
                spans.emplace_back(start, across - 1);
                spans.emplace_back(0, start + length - 1 - across);
            }
        }
        std::sort(spans.begin(), spans.end());
        int end = -1;
        for (const auto& [from, to] : spans)
        {
            if (to <= end)
                continue;
            total += to - std::max(from, end + 1) + 1;
            end = to;
        }
    }
    return total;
}

} // namespace cxtiler
