// Builds MBTiles pyramids in spherical mercator from georeferenced rasters (a
// GeoMosaic): only the tiles over the data exist, at every level from 0 down to
// the deepest. Every tile of the deepest level is warped from the inputs on its
// own (GDAL reads just the pixels under it); every coarser tile averages its
// children, depth first, so that one chain of tiles is in memory at a time.
#ifndef CXTILER_WARPEDPYRAMIDBUILDER_H
#define CXTILER_WARPEDPYRAMIDBUILDER_H

#include "HeightOverview.h"
#include "PyramidBuilder.h"

#include <optional>
#include <string>

namespace cxtiler
{

class GeoMosaic;
class Progress;

/** Pixels added on every side of a deepest-level tile when warping heights, so that
 *  holes narrower than this fill from their own rims the same way in every tile. */
constexpr int kHeightFillMargin = 32;

/**
 * Imagery: pixels without data (outside the inputs, nodata, transparent) get
 * alpha 0; a tile with any such pixel is stored as RGBA PNG, an opaque one in the
 * chosen format; a tile without any data is not stored. Coarser tiles average
 * their children weighted by alpha. The deepest level is options.maxZoom, or the
 * first level as fine as the inputs' pixels. Writes metadata bounds (the data's
 * longitudes and latitudes), minzoom 0, maxzoom and format; replaces `output` only
 * on success and throws Error (leaving it untouched) on failure or cancellation.
 */
PyramidSummary buildImageryPyramid(const GeoMosaic& source, const std::string& output,
                                   const PyramidOptions& options, Progress& progress);

/**
 * Elevation as Terrain-RGB PNG tiles (metadata elevation_encoding "mapbox"):
 * heights in metres from band 1 with its scale and offset; voids within the data
 * (nodata) are filled from their neighbours and smoothed, small holes from their
 * rim within the tile's margin, larger ones from a coarse filled overview of all
 * the data;
 * outside the inputs' extent heights are 0 m. `cleaning`, when given, first turns
 * implausible heights and lone spikes into voids. Otherwise as the imagery.
 */
PyramidSummary buildElevationPyramid(const GeoMosaic& source, const std::string& output,
                                     const PyramidOptions& options, const std::optional<HeightCleaning>& cleaning,
                                     Progress& progress);

} // namespace cxtiler

#endif
