#include <globe/MapNode>

namespace globe
{

MapNode::MapNode()
{
    setFormat("PROJ");
    setCoordinateSystem("+proj=geocent +datum=WGS84 +units=m +no_defs");
    setEllipsoidModel(new osg::EllipsoidModel(osg::WGS_84_RADIUS_EQUATOR, osg::WGS_84_RADIUS_POLAR));
}

MapNode::~MapNode() = default;

} // namespace globe
