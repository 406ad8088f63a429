#include <globe/Layer>

#include "SourceTiling.h"

#include <osg/Math>

#include <algorithm>
#include <cmath>

namespace globe
{

Layer::Layer(const std::string& name, const MBTilesOptions& options) : _options(name, options) {}

Layer::~Layer() = default;

bool Layer::open()
{
    std::lock_guard<std::mutex> lock(_mutex);
    if (_source)
        return true;
    _openTried = true;
    osg::ref_ptr<MBTilesSource> source = new MBTilesSource(_options.driver());
    if (!source->open())
    {
        _status = source->getStatusMessage();
        return false;
    }
    _source = source;
    _status.clear();
    return true;
}

void Layer::close()
{
    osg::ref_ptr<MBTilesSource> source;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        source.swap(_source);
        _openTried = false;
        _status.clear();
    }
    if (source)
        source->close();
    clearCaches();
}

bool Layer::isOpen() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _source.valid();
}

std::string Layer::getStatusMessage() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _status;
}

osg::ref_ptr<MBTilesSource> Layer::getTileSource() const
{
    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (_source || _openTried)
            return _source;
    }
    const_cast<Layer*>(this)->open();
    std::lock_guard<std::mutex> lock(_mutex);
    return _source;
}

int Layer::getMinLevel() const
{
    osg::ref_ptr<MBTilesSource> source = getTileSource();
    return source ? source->getMinLevel() : 0;
}

int Layer::getMaxLevel() const
{
    osg::ref_ptr<MBTilesSource> source = getTileSource();
    return source ? source->getMaxLevel() : -1;
}

namespace
{

// The tiling of `source` when it may have data for `key`.
bool tilingCovering(const MBTilesSource* source, const TileKey& key, detail::SourceTiling& tiling)
{
    if (!source || !detail::SourceTiling::of(*source, tiling))
        return false;
    if (key.south() >= tiling.maxLatitude() || key.north() <= -tiling.maxLatitude())
        return false;
    double west, south, east, north;
    if (source->getBounds(west, south, east, north))
    {
        if (key.west() >= east || key.east() <= west || key.south() >= north || key.north() <= south)
            return false;
    }
    return true;
}

} // namespace

bool Layer::mayHaveData(const TileKey& key) const
{
    if (!getEnabled() || !key.valid())
        return false;
    osg::ref_ptr<MBTilesSource> source = getTileSource();
    detail::SourceTiling tiling;
    return tilingCovering(source.get(), key, tiling);
}

bool Layer::getResolution(const TileKey& key, double& degrees) const
{
    if (!getEnabled() || !key.valid())
        return false;
    osg::ref_ptr<MBTilesSource> source = getTileSource();
    detail::SourceTiling tiling;
    if (!tilingCovering(source.get(), key, tiling))
        return false;
    // Pixels of the deepest level along the equator: 360 degrees over the
    // level's width in pixels (geodetic levels are two tiles wide at level 0).
    const double pixelsAround = static_cast<double>(tiling.tilesWide(tiling.maxZoom)) * tiling.tileSize;
    double size = 360.0 / pixelsAround;
    if (tiling.mercator)
    {
        // Mercator is conformal: a pixel spans cos(latitude) times as many
        // degrees of latitude as of longitude.
        const double farthest = std::min(std::max(std::fabs(key.south()), std::fabs(key.north())),
                                         tiling.maxLatitude());
        size *= std::cos(osg::DegreesToRadians(farthest));
    }
    degrees = size;
    return true;
}

} // namespace globe
