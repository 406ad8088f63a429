#include <globe/MapNode>

namespace globe
{

MapNode::MapNode() : MapNode(nullptr) {}

MapNode::MapNode(Map* map) : _map(map ? map : new Map)
{
    setUpCoordinateSystem();
    setUpTerrain();
    makeObservable();
}

MapNode::MapNode(const MapNode& rhs, const osg::CopyOp& copyop) : osg::CoordinateSystemNode(rhs, copyop), _map(rhs._map)
{
    if (!getEllipsoidModel())
        setUpCoordinateSystem();
    setUpTerrain();
    makeObservable();
}

void MapNode::makeObservable()
{
    // Models hold the map node through observer pointers, and the pager's
    // thread makes models while the frame thread does. The set of observers
    // is made here, before either thread can see the node, rather than by
    // whichever thread observes it first.
    getOrCreateObserverSet();
}

MapNode::~MapNode() = default;

void MapNode::setUpCoordinateSystem()
{
    setFormat("PROJ");
    setCoordinateSystem("+proj=geocent +datum=WGS84 +units=m +no_defs");
    setEllipsoidModel(new osg::EllipsoidModel(osg::WGS_84_RADIUS_EQUATOR, osg::WGS_84_RADIUS_POLAR));
}

void MapNode::setUpTerrain()
{
    _terrainEngine = new TerrainEngine(_map.get(), getEllipsoidModel());
    // The terrain is no child: tell the parents that this node wants the
    // update traversal, in which the terrain follows the map.
    setNumChildrenRequiringUpdateTraversal(getNumChildrenRequiringUpdateTraversal() + 1);
}

void MapNode::traverse(osg::NodeVisitor& nv)
{
    if (nv.getVisitorType() == osg::NodeVisitor::UPDATE_VISITOR && _terrainEngine->sync())
        dirtyBound();
    _terrainEngine->accept(nv);
    osg::CoordinateSystemNode::traverse(nv);
}

osg::BoundingSphere MapNode::computeBound() const
{
    osg::BoundingSphere bound = osg::CoordinateSystemNode::computeBound();
    const osg::BoundingSphere& terrain = _terrainEngine->getBound();
    if (terrain.valid())
        bound.expandBy(terrain);
    return bound;
}

const SpatialReference* MapNode::getMapSRS() const
{
    return _map->getSRS();
}

} // namespace globe
