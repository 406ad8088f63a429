#include <objects/Enterprise>
#include <objects/IdText>

#include <viewer/CXViewer>

#include <globe/SpatialReference>

namespace OBJManage
{

namespace
{

// A quadtree cell's width in degrees counts this many metres in its bound.
constexpr double kMetresPerDegree = 111000.0;

} // namespace

Enterprise::Enterprise() = default;

Enterprise::~Enterprise()
{
    done = true;
}

std::string Enterprise::qtnFileName(int qtnID)
{
    return std::to_string(qtnID) + ".qtn";
}

osg::ref_ptr<osg::PagedLOD> Enterprise::createQtnNode(const DBManage::QuadTreeProperty& node)
{
    osg::ref_ptr<osg::PagedLOD> plod = new osg::PagedLOD;
    const std::string name = qtnFileName(node.qtnID);

    // The centre in the map's spatial reference, then geocentric.
    osg::Vec3d centre = parseCenterText(node.centerText);
    const globe::SpatialReference* srs = g_pCXviewer && g_pCXviewer->mapNode.valid()
                                             ? g_pCXviewer->mapNode->getMapSRS()
                                             : globe::SpatialReference::create("wgs84");
    // As the pager reads it; a point that does not transform keeps what
    // the transform left.
    osg::Vec3d world = centre;
    if (srs)
        srs->transform(centre, srs->getGeocentricSRS(), world);

    plod->setInitialBound(osg::BoundingSphere(osg::Vec3f(world), static_cast<float>(node.width * kMetresPerDegree)));
    plod->setCenter(world);
    plod->setFileName(0, name);
    plod->setRange(0, 0.0f, static_cast<float>(node.lodRange));
    return plod;
}

bool Enterprise::Init(DBManage::EnterProperty* record)
{
    if (!record)
        return false;
    enterID = record->enterID;
    enterType = record->enterType;
    enterNode = new osg::MatrixTransform;
    return addQtnNode(record->rootQtnID);
}

bool Enterprise::addQtnNode(int qtnID)
{
    osg::ref_ptr<DBManage::QuadTreeProperty> node = DBManage::getDBManger()->QuadTreeQueryInfo(qtnID);
    if (!node.valid())
        return false;
    if (!enterNode.valid())
        enterNode = new osg::MatrixTransform;
    enterNode->addChild(createQtnNode(*node).get());
    return true;
}

} // namespace OBJManage
