#include <objects/CNCObj>

#include <viewer/CXViewer>

#include <osg/Math>
#include <osg/PagedLOD>

#include <cmath>

namespace OBJManage
{

CNCObj::CNCObj() = default;

CNCObj::CNCObj(int id, double r, const osg::Vec3d& position) : pos(position), radius(r), enterID(id) {}

CNCObj::CNCObj(const CNCObj& rhs, const osg::CopyOp& copyop)
    : osg::Object(rhs, copyop), osg::Callback(rhs, copyop), osg::NodeCallback(rhs, copyop),
      osg::DrawableCullCallback(rhs, copyop)
{
}

CNCObj::~CNCObj() = default;

void CNCObj::operator()(osg::Node* node, osg::NodeVisitor* nv)
{
    if (!nv || !dynamic_cast<osg::PagedLOD*>(node))
        return;
    if (cull())
        traverse(node, nv);
}

bool CNCObj::cull()
{
    CXViewer* viewer = g_pCXviewer;
    if (!viewer || !viewer->getViewer())
        return true;
    osg::Vec3d eye, centre, up;
    viewer->getViewer()->getCamera()->getViewMatrixAsLookAt(eye, centre, up, 1.0);
    const double distance = (eye - pos).length();
    if (distance != 0.0)
    {
        // The elevation of the eye over the object, in degrees: measured,
        // not used.
        const double elevation = osg::RadiansToDegrees(std::asin(osg::clampBetween((eye.z() - pos.z()) / distance, -1.0, 1.0)));
        (void)elevation;
    }
    return true;
}

} // namespace OBJManage
