// Geometry of a source tiling (spherical mercator or geodetic) as the layers
// sample it: normalized coordinates u (west -> east, 0..1) and v (north ->
// south, 0..1) of a longitude / latitude, tiles per level, and the level that
// matches a requested resolution.
#ifndef CXVIEWER_GLOBE_SOURCETILING_H
#define CXVIEWER_GLOBE_SOURCETILING_H

#include <globe/MBTilesSource>

#include <algorithm>
#include <cmath>

namespace globe
{
namespace detail
{

/** The latitude where the square spherical mercator world ends. */
constexpr double kMercatorMaxLatitude = 85.051128779806592;

struct SourceTiling
{
    bool mercator = true;
    int minZoom = 0;
    int maxZoom = -1;
    int tileSize = 256;

    /** The tiling of `source` from one snapshot of it; false when the
      * source has no levels (no tiles, or closed meanwhile). */
    static bool of(const MBTilesSource& source, SourceTiling& t)
    {
        const MBTilesSource::Layout layout = source.getLayout();
        t.mercator = layout.profile == MBTilesSource::SPHERICAL_MERCATOR;
        t.minZoom = layout.minLevel;
        t.maxZoom = layout.maxLevel;
        t.tileSize = std::max(1, layout.tileSize);
        return layout.hasLevels && t.maxZoom >= t.minZoom;
    }

    double maxLatitude() const { return mercator ? kMercatorMaxLatitude : 90.0; }

    unsigned int tilesWide(int z) const { return mercator ? (1u << z) : (2u << z); }
    unsigned int tilesHigh(int z) const { return 1u << z; }

    static double u(double lon) { return (lon + 180.0) / 360.0; }

    double v(double lat) const
    {
        if (!mercator)
            return (90.0 - lat) / 180.0;
        const double phi = lat * (M_PI / 180.0);
        return 0.5 - std::asinh(std::tan(phi)) / (2.0 * M_PI);
    }

    /** Most source tiles one request may read: keys much coarser than the
      * source's top level get no data rather than a flood of decoding. */
    static constexpr long long kMaxTilesPerRequest = 16;

    /** Number of level-z tiles over the normalized rectangle. */
    long long tilesOver(double uWest, double uEast, double vNorth, double vSouth, int z) const
    {
        const double wide = tilesWide(z);
        const double high = tilesHigh(z);
        const long long nx = static_cast<long long>(std::ceil(uEast * wide - 1e-9)) - static_cast<long long>(std::floor(uWest * wide));
        const long long ny = static_cast<long long>(std::ceil(vSouth * high - 1e-9)) - static_cast<long long>(std::floor(vNorth * high));
        return std::max(1LL, nx) * std::max(1LL, ny);
    }

    /** The level whose pixels match `pixels` samples over the normalized
      * height vSouth - vNorth, unclamped. */
    int idealZoom(double vNorth, double vSouth, double pixels) const
    {
        const double span = std::max(vSouth - vNorth, 1e-12);
        return static_cast<int>(std::lround(std::log2(pixels / (tileSize * span))));
    }
};

} // namespace detail
} // namespace globe

#endif
