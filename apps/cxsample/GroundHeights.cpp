#include "GroundHeights.h"

#include "Error.h"

#include <globe/ElevationLayer>
#include <globe/MBTilesOptions>

#include <filesystem>

namespace cxsample
{

GroundHeights::GroundHeights(const std::string& demPath)
{
    if (demPath.empty())
        return;
    std::error_code error;
    if (!std::filesystem::is_regular_file(demPath, error))
        throw Error("no elevation file " + demPath);
    globe::MBTilesOptions options;
    options.setDriver("mbtiles");
    options.filename() = demPath;
    _layer = new globe::ElevationLayer("ground", options);
    if (!_layer->open())
        throw Error("cannot read the elevation file " + demPath + ": " + _layer->getStatusMessage());
}

GroundHeights::~GroundHeights() = default;

double GroundHeights::at(double lon, double lat) const
{
    float height = 0.0f;
    if (!_layer.valid() || !_layer->getHeight(lon, lat, height))
        return 0.0;
    return height;
}

} // namespace cxsample
