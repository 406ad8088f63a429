// The metadata rows every pyramid the tiler writes carries.
#ifndef CXTILER_PYRAMIDMETADATA_H
#define CXTILER_PYRAMIDMETADATA_H

#include <string>

namespace cxtiler
{

class MBTilesWriter;
struct PyramidOptions;

struct PyramidExtent
{
    double west = -180.0;
    double south;
    double east = 180.0;
    double north;
    int minZoom = 0;
    int maxZoom = 0;
    /** Level of the "center" row. */
    int centerZoom = 0;
};

/** The whole mercator world from level 0 to `maxZoom`. */
PyramidExtent worldExtent(int maxZoom);

/** Writes name, format, bounds, center, minzoom, maxzoom, type, version and the
 *  optional description and attribution. The name defaults to `output`'s stem. */
void writePyramidMetadata(MBTilesWriter& writer, const std::string& output, const PyramidOptions& options,
                          const std::string& format, const PyramidExtent& extent);

} // namespace cxtiler

#endif
