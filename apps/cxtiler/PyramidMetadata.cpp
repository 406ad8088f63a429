#include "PyramidMetadata.h"

#include "MBTilesWriter.h"
#include "PyramidBuilder.h"
#include "TileMath.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace cxtiler
{

PyramidExtent worldExtent(int maxZoom)
{
    PyramidExtent extent;
    extent.south = -kMaxMercatorLatitude;
    extent.north = kMaxMercatorLatitude;
    extent.maxZoom = maxZoom;
    extent.centerZoom = std::min(2, maxZoom);
    return extent;
}

void writePyramidMetadata(MBTilesWriter& writer, const std::string& output, const PyramidOptions& options,
                          const std::string& format, const PyramidExtent& extent)
{
    const std::string name = options.name.empty() ? std::filesystem::path(output).stem().string() : options.name;
    // A whole-world pyramid writes its longitudes as whole numbers and its centre as 0,0.
    const bool world = extent.west <= -180.0 && extent.east >= 180.0 && extent.south <= -kMaxMercatorLatitude
                       && extent.north >= kMaxMercatorLatitude;
    char bounds[128];
    char center[128];
    if (world)
    {
        std::snprintf(bounds, sizeof(bounds), "-180,%.6f,180,%.6f", -kMaxMercatorLatitude, kMaxMercatorLatitude);
        std::snprintf(center, sizeof(center), "0,0,%d", extent.centerZoom);
    }
    else
    {
        std::snprintf(bounds, sizeof(bounds), "%.6f,%.6f,%.6f,%.6f", extent.west, extent.south, extent.east,
                      extent.north);
        std::snprintf(center, sizeof(center), "%.6f,%.6f,%d", (extent.west + extent.east) / 2.0,
                      (extent.south + extent.north) / 2.0, extent.centerZoom);
    }
    writer.setMetadata("name", name);
    writer.setMetadata("format", format);
    writer.setMetadata("bounds", bounds);
    writer.setMetadata("center", center);
    writer.setMetadata("minzoom", std::to_string(extent.minZoom));
    writer.setMetadata("maxzoom", std::to_string(extent.maxZoom));
    writer.setMetadata("type", "baselayer");
    writer.setMetadata("version", "1");
    if (!options.description.empty())
        writer.setMetadata("description", options.description);
    if (!options.attribution.empty())
        writer.setMetadata("attribution", options.attribution);
}

} // namespace cxtiler
