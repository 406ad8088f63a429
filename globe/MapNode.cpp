#include <globe/MapNode>

namespace globe
{

MapNode::MapNode() : MapNode(nullptr) {}

MapNode::MapNode(Map* map) : _map(map ? map : new Map)
{
    setUpCoordinateSystem();
}

MapNode::MapNode(const MapNode& rhs, const osg::CopyOp& copyop) : osg::CoordinateSystemNode(rhs, copyop), _map(rhs._map)
{
    if (!getEllipsoidModel())
        setUpCoordinateSystem();
}

MapNode::~MapNode() = default;

void MapNode::setUpCoordinateSystem()
{
    setFormat("PROJ");
    setCoordinateSystem("+proj=geocent +datum=WGS84 +units=m +no_defs");
    setEllipsoidModel(new osg::EllipsoidModel(osg::WGS_84_RADIUS_EQUATOR, osg::WGS_84_RADIUS_POLAR));
}

const SpatialReference* MapNode::getMapSRS() const
{
    return _map->getSRS();
}

} // namespace globe
