#include <globe/Layer>

#include "SourceTiling.h"

#include <algorithm>

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

bool Layer::mayHaveData(const TileKey& key) const
{
    if (!getEnabled() || !key.valid())
        return false;
    osg::ref_ptr<MBTilesSource> source = getTileSource();
    detail::SourceTiling tiling;
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

} // namespace globe
