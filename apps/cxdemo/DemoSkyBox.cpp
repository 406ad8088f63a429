#include "DemoSkyBox.h"

#include <rendering/XSkyBox>

#include <osg/CoordinateSystemNode>
#include <osg/TexGen>
#include <osg/Transform>
#include <osgDB/ReadFile>
#include <osgUtil/CullVisitor>

#include <array>
#include <cmath>

namespace cxdemo
{

namespace
{

// The sky box's sphere radius (XSkyBox).
constexpr double kSphereRadius = 10000.0;

class SkyBoxFrame : public osg::Transform
{
public:
    SkyBoxFrame() : _ellipsoid(new osg::EllipsoidModel) { setCullingActive(false); }

    bool computeLocalToWorldMatrix(osg::Matrixd& matrix, osg::NodeVisitor* nv) const override
    {
        osgUtil::CullVisitor* cv = nv ? nv->asCullVisitor() : nullptr;
        if (!cv)
            return false;
        matrix.preMult(frameFor(*cv));
        return true;
    }

    bool computeWorldToLocalMatrix(osg::Matrixd& matrix, osg::NodeVisitor* nv) const override
    {
        osgUtil::CullVisitor* cv = nv ? nv->asCullVisitor() : nullptr;
        if (!cv)
            return false;
        matrix.postMult(osg::Matrixd::inverse(frameFor(*cv)));
        return true;
    }

    void traverse(osg::NodeVisitor& nv) override
    {
        osgUtil::CullVisitor* cv = nv.asCullVisitor();
        if (!cv)
        {
            osg::Transform::traverse(nv);
            return;
        }
        const osg::Camera* camera = cv->getCurrentCamera();
        if (camera && camera->getName() == "nearcamera")
            return;
        // The sphere follows the planes; the planes must not follow it.
        const osg::CullSettings::InheritanceMask mask = cv->getInheritanceMask();
        const osg::CullSettings::ComputeNearFarMode mode = cv->getComputeNearFarMode();
        cv->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
        osg::Transform::traverse(nv);
        cv->setComputeNearFarMode(mode);
        cv->setInheritanceMask(mask);
    }

private:
    // Scale, then the east-north-up frame at the eye, without its position:
    // the sky box centres itself on the eye.
    osg::Matrixd frameFor(osgUtil::CullVisitor& cv) const
    {
        const osg::Vec3d eye = cv.getEyeLocal();
        osg::Matrixd enu;
        if (eye.length() > 1.0)
            _ellipsoid->computeLocalToWorldTransformFromXYZ(eye.x(), eye.y(), eye.z(), enu);
        enu.setTrans(0.0, 0.0, 0.0);
        double left = 0, right = 0, bottom = 0, top = 0, zNear = 0, zFar = 0;
        double radius = kSphereRadius;
        if (cv.getProjectionMatrix() &&
            cv.getProjectionMatrix()->getFrustum(left, right, bottom, top, zNear, zFar) && zNear > 0.0 &&
            zFar > zNear && std::isfinite(zFar))
            radius = std::sqrt(zNear * zFar);
        const double scale = radius / kSphereRadius;
        return osg::Matrixd::scale(scale, scale, scale) * enu;
    }

    osg::ref_ptr<osg::EllipsoidModel> _ellipsoid;
};

} // namespace

osg::ref_ptr<osg::Node> makeDemoSkyBox(const std::string& folder, std::string& message)
{
    static const std::array<const char*, 6> names = {"posx", "negx", "posy", "negy", "posz", "negz"};
    std::array<osg::ref_ptr<osg::Image>, 6> faces;
    for (std::size_t i = 0; i < names.size(); ++i)
    {
        const std::string path = folder + "/" + names[i] + ".png";
        faces[i] = osgDB::readImageFile(path);
        if (!faces[i].valid())
        {
            message = "no sky box: cannot read " + path + " (scripts/prepare-data.sh makes it)";
            return nullptr;
        }
    }

    osg::ref_ptr<XSkyBox> sky = new XSkyBox;
    sky->setEnvironmentMap(0, faces[0].get(), faces[1].get(), faces[2].get(), faces[3].get(), faces[4].get(),
                           faces[5].get());
    // The cube map by direction: the sphere's own coordinates, east, north
    // and up in the frame above, brought to unit length (a renderer may take
    // the mipmap level from the coordinates' rate of change before it
    // divides them by their largest component).
    const double unit = 1.0 / kSphereRadius;
    osg::ref_ptr<osg::TexGen> texGen = new osg::TexGen;
    texGen->setMode(osg::TexGen::OBJECT_LINEAR);
    texGen->setPlane(osg::TexGen::S, osg::Plane(unit, 0.0, 0.0, 0.0));
    texGen->setPlane(osg::TexGen::T, osg::Plane(0.0, unit, 0.0, 0.0));
    texGen->setPlane(osg::TexGen::R, osg::Plane(0.0, 0.0, unit, 0.0));
    sky->getOrCreateStateSet()->setTextureAttributeAndModes(0, texGen.get(), osg::StateAttribute::ON);

    osg::ref_ptr<SkyBoxFrame> frame = new SkyBoxFrame;
    frame->setName("demo sky box");
    frame->addChild(sky.get());
    message.clear();
    return frame;
}

} // namespace cxdemo
