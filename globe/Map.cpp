#include <globe/Map>

#include <algorithm>

namespace globe
{

Map::Map() = default;

Map::~Map() = default;

const SpatialReference* Map::getSRS() const
{
    return SpatialReference::create("wgs84");
}

const SpatialReference* Map::getWorldSRS() const
{
    return SpatialReference::create("geocentric");
}

void Map::addLayer(Layer* layer)
{
    insertLayer(layer, getNumLayers());
}

bool Map::insertLayer(Layer* layer, unsigned int index)
{
    if (!layer)
        return false;
    std::lock_guard<std::mutex> lock(_mutex);
    if (std::find(_layers.begin(), _layers.end(), layer) != _layers.end())
        return false;
    const std::size_t at = std::min<std::size_t>(index, _layers.size());
    _layers.insert(_layers.begin() + static_cast<std::ptrdiff_t>(at), layer);
    ++_revision;
    return true;
}

bool Map::removeLayer(Layer* layer)
{
    std::lock_guard<std::mutex> lock(_mutex);
    auto found = std::find(_layers.begin(), _layers.end(), layer);
    if (found == _layers.end() || !layer)
        return false;
    _layers.erase(found);
    ++_revision;
    return true;
}

unsigned int Map::getNumLayers() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return static_cast<unsigned int>(_layers.size());
}

osg::ref_ptr<Layer> Map::getLayerAt(unsigned int index) const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return index < _layers.size() ? _layers[index] : nullptr;
}

osg::ref_ptr<Layer> Map::getLayerByName(const std::string& name) const
{
    std::lock_guard<std::mutex> lock(_mutex);
    for (const osg::ref_ptr<Layer>& layer : _layers)
        if (layer->getName() == name)
            return layer;
    return nullptr;
}

int Map::getIndexOfLayer(const Layer* layer) const
{
    std::lock_guard<std::mutex> lock(_mutex);
    for (std::size_t i = 0; i < _layers.size(); ++i)
        if (_layers[i].get() == layer)
            return static_cast<int>(i);
    return -1;
}

LayerVector Map::getLayers() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _layers;
}

ImageLayerVector Map::getImageLayers() const
{
    ImageLayerVector out;
    std::lock_guard<std::mutex> lock(_mutex);
    for (const osg::ref_ptr<Layer>& layer : _layers)
        if (auto* image = dynamic_cast<ImageLayer*>(layer.get()))
            out.push_back(image);
    return out;
}

ElevationLayerVector Map::getElevationLayers() const
{
    ElevationLayerVector out;
    std::lock_guard<std::mutex> lock(_mutex);
    for (const osg::ref_ptr<Layer>& layer : _layers)
        if (auto* elevation = dynamic_cast<ElevationLayer*>(layer.get()))
            out.push_back(elevation);
    return out;
}

unsigned int Map::getRevision() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _revision;
}

osg::ref_ptr<osg::HeightField> Map::createHeightField(const TileKey& key, unsigned int cols, unsigned int rows) const
{
    const ElevationLayerVector layers = getElevationLayers();
    osg::ref_ptr<osg::HeightField> result;
    // From the last layer to the first: a point keeps the first height found.
    for (auto it = layers.rbegin(); it != layers.rend(); ++it)
    {
        if (!(*it)->getEnabled())
            continue;
        osg::ref_ptr<osg::HeightField> field = (*it)->createHeightField(key, cols, rows);
        if (!field)
            continue;
        if (!result)
            result = field;
        bool complete = true;
        for (unsigned int r = 0; r < result->getNumRows(); ++r)
        {
            for (unsigned int c = 0; c < result->getNumColumns(); ++c)
            {
                if (result->getHeight(c, r) == ElevationLayer::NO_DATA_VALUE)
                    result->setHeight(c, r, field->getHeight(c, r));
                complete = complete && result->getHeight(c, r) != ElevationLayer::NO_DATA_VALUE;
            }
        }
        if (complete)
            break;
    }
    return result;
}

bool Map::getElevation(double lon, double lat, double& height) const
{
    const ElevationLayerVector layers = getElevationLayers();
    for (auto it = layers.rbegin(); it != layers.rend(); ++it)
    {
        float h = 0.0f;
        if ((*it)->getEnabled() && (*it)->getHeight(lon, lat, h))
        {
            height = h;
            return true;
        }
    }
    return false;
}

} // namespace globe
