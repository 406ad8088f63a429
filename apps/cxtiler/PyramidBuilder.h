// Builds MBTiles pyramids in spherical mercator from whole-Earth equirectangular
// sources: every pixel of the deepest level samples the source bilinearly at its
// own longitude and latitude, and every coarser tile averages its four children.
#ifndef CXTILER_PYRAMIDBUILDER_H
#define CXTILER_PYRAMIDBUILDER_H

#include "TileEncoder.h"

#include <cstdint>
#include <string>

namespace cxtiler
{

class EquirectImage;
class HeightGrid;
class Progress;

struct PyramidOptions
{
    /** Deepest level; negative: chosen from the source width (maxZoomForWidth). */
    int maxZoom = -1;
    /** Metadata "name"; empty: the output file's name without extension. */
    std::string name;
    std::string description;
    std::string attribution;
    /** Imagery tile format (elevation tiles are always PNG). */
    TileFormat format = TileFormat::Jpeg;
    int jpegQuality = 90;
};

struct PyramidSummary
{
    int minZoom = 0;
    int maxZoom = 0;
    /** Tiles written (tiles without data are not). */
    long tiles = 0;
    std::uint64_t tileBytes = 0;
    /** Imagery: tiles written as PNG because they have transparent pixels. */
    long transparentTiles = 0;
    /** Elevation from georeferenced rasters: void pixels of the deepest level filled. */
    long voidsFilled = 0;
};

/** Writes an imagery pyramid to `output` (replacing it only on success). Throws
 *  Error on failure or when `progress` cancels; the target is then untouched. */
PyramidSummary buildImageryPyramid(const EquirectImage& source, const std::string& output,
                                   const PyramidOptions& options, Progress& progress);

/** Writes a Terrain-RGB elevation pyramid (PNG tiles, metadata elevation_encoding
 *  "mapbox"). `heights` must hold no voids. Same failure behaviour. */
PyramidSummary buildElevationPyramid(const HeightGrid& heights, const std::string& output,
                                     const PyramidOptions& options, Progress& progress);

} // namespace cxtiler

#endif
