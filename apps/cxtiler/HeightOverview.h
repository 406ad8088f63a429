// A coarse, void-free grid of the heights over the whole extent of the data, in
// spherical mercator: what the elevation pyramid falls back on for holes too
// large to fill within one tile's window, so that such holes fill the same way in
// every tile they cross. At most kMaxSide pixels a side, whatever the inputs' size.
#ifndef CXTILER_HEIGHTOVERVIEW_H
#define CXTILER_HEIGHTOVERVIEW_H

#include "GeoMosaic.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace cxtiler
{

/** Limits of plausible ground for the optional cleaning of corrupt heights. */
struct HeightCleaning
{
    float minValid;
    float maxValid;
    float spikeThreshold;
};

class HeightOverview
{
public:
    static constexpr int kMaxSide = 1024;

    /**
     * Warps the mosaic (averaging) into a grid over its extent, no finer than the
     * pixels of `maxZoom`; optionally cleans it; fills its voids from their
     * neighbours; and extends the heights beyond the data's edge so that every
     * position has a value. Throws Error when the inputs hold no valid height.
     */
    HeightOverview(const GeoMosaic& mosaic, int maxZoom, const std::optional<HeightCleaning>& cleaning);

    /** Bilinear height at EPSG:3857 (x, y); positions outside take the edge. */
    float sample(double x, double y) const;

    int width() const { return _width; }
    int height() const { return _height; }
    /** Voids in the data's extent that were filled. */
    std::size_t voidsFilled() const { return _voidsFilled; }

private:
    double _left = 0.0;
    double _top = 0.0;
    double _pixelSize = 1.0;
    int _width = 1;
    int _height = 1;
    std::vector<float> _heights;
    std::size_t _voidsFilled = 0;
};

} // namespace cxtiler

#endif
