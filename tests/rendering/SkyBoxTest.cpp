// The sky box without a GL context: its state, its sphere, the cube map, and
// the matrices the cull visitor and other visitors get.
#include <rendering/XSkyBox>

#include <gtest/gtest.h>
#include <osg/Depth>
#include <osg/Geode>
#include <osg/ShapeDrawable>
#include <osg/TextureCubeMap>
#include <osgUtil/CullVisitor>

namespace
{

osg::ref_ptr<osg::Image> faceImage(unsigned char red)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(4, 4, 1, GL_RGB, GL_UNSIGNED_BYTE);
    for (int i = 0; i < 16; ++i)
    {
        image->data()[i * 3] = red;
        image->data()[i * 3 + 1] = 0;
        image->data()[i * 3 + 2] = 0;
    }
    return image;
}

// A cull visitor whose eye stands at `eye` (view matrix looking down -Z from
// there).
osg::ref_ptr<osgUtil::CullVisitor> cullVisitorAt(const osg::Vec3d& eye)
{
    osg::ref_ptr<osgUtil::CullVisitor> cv = new osgUtil::CullVisitor;
    cv->pushViewport(new osg::Viewport(0, 0, 100, 100));
    cv->pushProjectionMatrix(new osg::RefMatrix(osg::Matrixd::perspective(30.0, 1.0, 1.0, 1000.0)));
    cv->pushModelViewMatrix(
        new osg::RefMatrix(osg::Matrixd::lookAt(eye, eye + osg::Vec3d(0, 0, -1), osg::Vec3d(0, 1, 0))),
        osg::Transform::RELATIVE_RF);
    return cv;
}

} // namespace

TEST(SkyBox, ConstructorState)
{
    osg::ref_ptr<XSkyBox> sky = new XSkyBox;
    EXPECT_EQ(sky->getReferenceFrame(), osg::Transform::ABSOLUTE_RF);
    EXPECT_FALSE(sky->getCullingActive());

    const osg::StateSet* ss = sky->getStateSet();
    ASSERT_NE(ss, nullptr);
    const auto* depth = dynamic_cast<const osg::Depth*>(ss->getAttribute(osg::StateAttribute::DEPTH));
    ASSERT_NE(depth, nullptr);
    EXPECT_EQ(depth->getFunction(), osg::Depth::EQUAL);
    EXPECT_DOUBLE_EQ(depth->getZNear(), 1.0);
    EXPECT_DOUBLE_EQ(depth->getZFar(), 1.0);
    EXPECT_TRUE(depth->getWriteMask());
    EXPECT_EQ(ss->getMode(GL_LIGHTING), static_cast<osg::StateAttribute::GLModeValue>(osg::StateAttribute::OFF));
    EXPECT_EQ(ss->getMode(GL_CULL_FACE), static_cast<osg::StateAttribute::GLModeValue>(osg::StateAttribute::OFF));
    EXPECT_EQ(ss->getRenderBinMode(), osg::StateSet::USE_RENDERBIN_DETAILS);
    EXPECT_EQ(ss->getBinNumber(), 5);
    EXPECT_EQ(ss->getBinName(), "RenderBin");

    ASSERT_EQ(sky->getNumChildren(), 1u);
    const osg::Geode* geode = sky->getChild(0)->asGeode();
    ASSERT_NE(geode, nullptr);
    ASSERT_EQ(geode->getNumDrawables(), 1u);
    const auto* drawable = dynamic_cast<const osg::ShapeDrawable*>(geode->getDrawable(0));
    ASSERT_NE(drawable, nullptr);
    const auto* sphere = dynamic_cast<const osg::Sphere*>(drawable->getShape());
    ASSERT_NE(sphere, nullptr);
    EXPECT_FLOAT_EQ(sphere->getRadius(), 10000.0f);
    EXPECT_EQ(sphere->getCenter(), osg::Vec3(0, 0, 0));
}

TEST(SkyBox, EnvironmentMapTakesTheFacesInOrder)
{
    osg::ref_ptr<XSkyBox> sky = new XSkyBox;
    osg::ref_ptr<osg::Image> faces[6];
    for (int i = 0; i < 6; ++i)
        faces[i] = faceImage(static_cast<unsigned char>(i * 40));
    sky->setEnvironmentMap(2, faces[0].get(), faces[1].get(), faces[2].get(), faces[3].get(), faces[4].get(),
                           faces[5].get());

    const osg::StateSet* ss = sky->getStateSet();
    const auto* cube =
        dynamic_cast<const osg::TextureCubeMap*>(ss->getTextureAttribute(2, osg::StateAttribute::TEXTURE));
    ASSERT_NE(cube, nullptr);
    EXPECT_EQ(ss->getTextureAttribute(0, osg::StateAttribute::TEXTURE), nullptr);
    EXPECT_EQ(ss->getTextureMode(2, GL_TEXTURE_CUBE_MAP),
              static_cast<osg::StateAttribute::GLModeValue>(osg::StateAttribute::ON));
    const osg::TextureCubeMap::Face order[6] = {osg::TextureCubeMap::POSITIVE_X, osg::TextureCubeMap::NEGATIVE_X,
                                                osg::TextureCubeMap::POSITIVE_Y, osg::TextureCubeMap::NEGATIVE_Y,
                                                osg::TextureCubeMap::POSITIVE_Z, osg::TextureCubeMap::NEGATIVE_Z};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(cube->getImage(order[i]), faces[i].get()) << "face " << i;
    EXPECT_EQ(cube->getWrap(osg::Texture::WRAP_S), osg::Texture::CLAMP_TO_EDGE);
    EXPECT_EQ(cube->getWrap(osg::Texture::WRAP_T), osg::Texture::CLAMP_TO_EDGE);
    EXPECT_EQ(cube->getWrap(osg::Texture::WRAP_R), osg::Texture::CLAMP_TO_EDGE);
    EXPECT_EQ(cube->getFilter(osg::Texture::MIN_FILTER), osg::Texture::LINEAR_MIPMAP_LINEAR);
    EXPECT_EQ(cube->getFilter(osg::Texture::MAG_FILTER), osg::Texture::LINEAR);
    EXPECT_FALSE(cube->getResizeNonPowerOfTwoHint());

    // A second call makes a new cube map.
    sky->setEnvironmentMap(2, faces[5].get(), faces[4].get(), faces[3].get(), faces[2].get(), faces[1].get(),
                           faces[0].get());
    const auto* second =
        dynamic_cast<const osg::TextureCubeMap*>(ss->getTextureAttribute(2, osg::StateAttribute::TEXTURE));
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second, cube);
    EXPECT_EQ(second->getImage(osg::TextureCubeMap::POSITIVE_X), faces[5].get());
}

TEST(SkyBox, TheCullVisitorSeesTheSphereAroundTheEye)
{
    osg::ref_ptr<XSkyBox> sky = new XSkyBox;
    const osg::Vec3d eye(100.0, -250.0, 4000.0);
    osg::ref_ptr<osgUtil::CullVisitor> cv = cullVisitorAt(eye);
    ASSERT_EQ(cv->getVisitorType(), osg::NodeVisitor::CULL_VISITOR);
    ASSERT_LT((osg::Vec3d(cv->getEyeLocal()) - eye).length(), 1e-2);

    const osg::Matrixd start = osg::Matrixd::rotate(0.3, osg::Vec3d(0, 0, 1)) * osg::Matrixd::translate(5, 6, 7);
    osg::Matrixd matrix = start;
    EXPECT_TRUE(sky->computeLocalToWorldMatrix(matrix, cv.get()));
    osg::Matrixd expected = start;
    expected.preMult(osg::Matrixd::translate(cv->getEyeLocal()));
    EXPECT_EQ(matrix, expected);
    // The sphere's centre lands on the eye (before the start matrix).
    osg::Matrixd identity;
    EXPECT_TRUE(sky->computeLocalToWorldMatrix(identity, cv.get()));
    EXPECT_LT((osg::Vec3d(0, 0, 0) * identity - eye).length(), 1e-2);

    osg::Matrixd inverse = start;
    EXPECT_TRUE(sky->computeWorldToLocalMatrix(inverse, cv.get()));
    osg::Matrixd expectedInverse = start;
    expectedInverse.preMult(osg::Matrixd::translate(-cv->getEyeLocal()));
    EXPECT_EQ(inverse, expectedInverse);
}

TEST(SkyBox, OtherVisitorsGetTheBaseMatrix)
{
    osg::ref_ptr<XSkyBox> sky = new XSkyBox;
    osg::ref_ptr<osg::Transform> plain = new osg::Transform;
    plain->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    const osg::Matrixd start = osg::Matrixd::translate(5, 6, 7);

    osg::NodeVisitor update(osg::NodeVisitor::UPDATE_VISITOR, osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
    osg::NodeVisitor intersect(osg::NodeVisitor::INTERSECTION_VISITOR, osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
    for (osg::NodeVisitor* nv : {static_cast<osg::NodeVisitor*>(&update), &intersect,
                                 static_cast<osg::NodeVisitor*>(nullptr)})
    {
        osg::Matrixd matrix = start, base = start;
        EXPECT_EQ(sky->computeLocalToWorldMatrix(matrix, nv), plain->computeLocalToWorldMatrix(base, nv));
        EXPECT_EQ(matrix, base);
        // An absolute transform: the identity, whatever came in.
        EXPECT_TRUE(matrix.isIdentity());
        osg::Matrixd inverse = start, baseInverse = start;
        EXPECT_EQ(sky->computeWorldToLocalMatrix(inverse, nv), plain->computeWorldToLocalMatrix(baseInverse, nv));
        EXPECT_EQ(inverse, baseInverse);
    }
    // A visitor that calls itself a cull visitor but is none gets the base's too.
    osg::NodeVisitor pretender(osg::NodeVisitor::CULL_VISITOR, osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
    osg::Matrixd matrix = start;
    EXPECT_TRUE(sky->computeLocalToWorldMatrix(matrix, &pretender));
    EXPECT_TRUE(matrix.isIdentity());
}

TEST(SkyBox, ACopyKeepsTheClassAndTheState)
{
    osg::ref_ptr<XSkyBox> sky = new XSkyBox;
    osg::ref_ptr<osg::Object> copy = sky->clone(osg::CopyOp::SHALLOW_COPY);
    auto* copied = dynamic_cast<XSkyBox*>(copy.get());
    ASSERT_NE(copied, nullptr);
    EXPECT_EQ(copied->getReferenceFrame(), osg::Transform::ABSOLUTE_RF);
    EXPECT_EQ(copied->getStateSet(), sky->getStateSet());
    EXPECT_EQ(copied->getNumChildren(), 1u);
    EXPECT_STREQ(copied->className(), "XSkyBox");
}
