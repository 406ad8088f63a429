#include <rendering/XSkyBox>

#include <osg/Depth>
#include <osg/GL>
#include <osg/Geode>
#include <osg/ShapeDrawable>
#include <osg/TextureCubeMap>
#include <osgUtil/CullVisitor>

XSkyBox::XSkyBox()
{
    setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    setCullingActive(false);

    osg::StateSet* stateSet = getOrCreateStateSet();
    // Depth 1.0 everywhere, and only where the depth buffer still holds its
    // cleared value: behind everything the scene drew.
    osg::ref_ptr<osg::Depth> depth = new osg::Depth;
    depth->setFunction(osg::Depth::EQUAL);
    depth->setRange(1.0, 1.0);
    stateSet->setAttributeAndModes(depth.get(), osg::StateAttribute::ON);
    stateSet->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    stateSet->setMode(GL_CULL_FACE, osg::StateAttribute::OFF);
    stateSet->setRenderBinDetails(5, "RenderBin", osg::StateSet::USE_RENDERBIN_DETAILS);

    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(new osg::ShapeDrawable(new osg::Sphere(osg::Vec3(), 10000.0f)));
    addChild(geode.get());
}

XSkyBox::XSkyBox(const XSkyBox& rhs, const osg::CopyOp& copyop) : osg::AutoTransform(rhs, copyop)
{
}

XSkyBox::~XSkyBox() = default;

void XSkyBox::setEnvironmentMap(unsigned int unit, osg::Image* posX, osg::Image* negX, osg::Image* posY,
                                osg::Image* negY, osg::Image* posZ, osg::Image* negZ)
{
    osg::ref_ptr<osg::TextureCubeMap> cubeMap = new osg::TextureCubeMap;
    cubeMap->setImage(osg::TextureCubeMap::POSITIVE_X, posX);
    cubeMap->setImage(osg::TextureCubeMap::NEGATIVE_X, negX);
    cubeMap->setImage(osg::TextureCubeMap::POSITIVE_Y, posY);
    cubeMap->setImage(osg::TextureCubeMap::NEGATIVE_Y, negY);
    cubeMap->setImage(osg::TextureCubeMap::POSITIVE_Z, posZ);
    cubeMap->setImage(osg::TextureCubeMap::NEGATIVE_Z, negZ);
    cubeMap->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    cubeMap->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
    cubeMap->setWrap(osg::Texture::WRAP_R, osg::Texture::CLAMP_TO_EDGE);
    cubeMap->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR_MIPMAP_LINEAR);
    cubeMap->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    cubeMap->setResizeNonPowerOfTwoHint(false);
    getOrCreateStateSet()->setTextureAttributeAndModes(unit, cubeMap.get(), osg::StateAttribute::ON);
}

bool XSkyBox::computeLocalToWorldMatrix(osg::Matrixd& matrix, osg::NodeVisitor* nv) const
{
    osgUtil::CullVisitor* cull =
        nv && nv->getVisitorType() == osg::NodeVisitor::CULL_VISITOR ? nv->asCullVisitor() : nullptr;
    if (cull)
    {
        // Centred on the eye, in the parent's frame.
        matrix.preMult(osg::Matrixd::translate(cull->getEyeLocal()));
        return true;
    }
    return osg::Transform::computeLocalToWorldMatrix(matrix, nv);
}

bool XSkyBox::computeWorldToLocalMatrix(osg::Matrixd& matrix, osg::NodeVisitor* nv) const
{
    osgUtil::CullVisitor* cull =
        nv && nv->getVisitorType() == osg::NodeVisitor::CULL_VISITOR ? nv->asCullVisitor() : nullptr;
    if (cull)
    {
        // The same translation by the negated eye, on the same side.
        matrix.preMult(osg::Matrixd::translate(-cull->getEyeLocal()));
        return true;
    }
    return osg::Transform::computeWorldToLocalMatrix(matrix, nv);
}
