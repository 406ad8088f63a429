// The tiles of each level that cover one or more boxes of longitudes and
// latitudes (the footprints of the inputs): per box a rectangle of columns and
// rows per level, the columns possibly running across the antimeridian. A tile is
// in the range when a box's rectangle holds it; the range of a level is exactly
// the parents of the next level's.
#ifndef CXTILER_TILERANGE_H
#define CXTILER_TILERANGE_H

#include <vector>

namespace cxtiler
{

class TileRange
{
public:
    /** A box in degrees; east may exceed 180 (or west lie below -180) across the antimeridian. */
    struct Box
    {
        double west, south, east, north;
    };

    /** The tiles of levels 0..maxZoom over the boxes. */
    TileRange(const std::vector<Box>& boxes, int maxZoom);
    /** The tiles of levels 0..maxZoom over one box. */
    TileRange(double west, double south, double east, double north, int maxZoom);

    int maxZoom() const { return _maxZoom; }
    /** Whether tile (x, y) of `zoom` (XYZ rows, 0 <= x < 2^zoom) is in the range. */
    bool contains(int zoom, int x, int y) const;
    /** Tiles of `zoom` in the range (tiles under several boxes count once). */
    long count(int zoom) const { return _counts[zoom]; }
    /** count() of each level, for Progress::begin. */
    const std::vector<long>& counts() const { return _counts; }

    struct Level
    {
        int firstColumn; // may be negative, or the last column beyond 2^zoom - 1, across the antimeridian
        int lastColumn;
        int firstRow;
        int lastRow;
    };
    /** The rectangle of box `box` at `zoom`. */
    const Level& level(int zoom, int box = 0) const { return _boxes[box][zoom]; }

private:
    static bool holds(const Level& level, int across, int x, int y);
    long unionCount(int zoom) const;

    int _maxZoom;
    std::vector<std::vector<Level>> _boxes; // [box][zoom]
    std::vector<long> _counts;
};

} // namespace cxtiler

#endif
