#include "GroundHeights.h"

#include "Error.h"

#include <globe/ElevationLayer>
#include <globe/ImageLayer>
#include <globe/Map>
#include <globe/TerrainEngine>
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

void GroundHeights::setImagery(const std::string& imagePath)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(imagePath, error))
        throw Error("no imagery file " + imagePath);
    globe::MBTilesOptions options;
    options.setDriver("mbtiles");
    options.filename() = imagePath;
    osg::ref_ptr<globe::ImageLayer> imagery = new globe::ImageLayer("imagery", options);
    if (!imagery->open())
        throw Error("cannot read the imagery file " + imagePath + ": " + imagery->getStatusMessage());
    _imagery = imagery;
    _terrain = nullptr;
}

double GroundHeights::surfaceAt(double lon, double lat) const
{
    if (!_layer.valid())
        return 0.0;
    if (!_terrain.valid())
    {
        // The map the viewer makes: the imagery under the heights.
        osg::ref_ptr<globe::Map> map = new globe::Map;
        if (_imagery.valid())
            map->addLayer(_imagery.get());
        map->addLayer(_layer.get());
        _terrain = new globe::TerrainEngine(map.get());
    }
    return _terrain->getSurfaceHeight(lon, lat);
}

} // namespace cxsample
