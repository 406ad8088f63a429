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

namespace
{

// The layer of an MBTiles file, open; throws Error naming the file as `what`
// ("elevation", "imagery") when it is missing or cannot be read.
template <class Layer>
osg::ref_ptr<Layer> openLayer(const std::string& path, const std::string& what)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        throw Error("no " + what + " file " + path);
    globe::MBTilesOptions options;
    options.setDriver("mbtiles");
    options.filename() = path;
    osg::ref_ptr<Layer> layer = new Layer(what, options);
    if (!layer->open())
        throw Error("cannot read the " + what + " file " + path + ": " + layer->getStatusMessage());
    return layer;
}

} // namespace

GroundHeights::GroundHeights(const std::string& demPath)
{
    if (!demPath.empty())
        _layer = openLayer<globe::ElevationLayer>(demPath, "elevation");
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
    _imagery = openLayer<globe::ImageLayer>(imagePath, "imagery");
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
