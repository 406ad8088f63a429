// The sun light without a GL context: what its constructor sets on the node,
// the view and its own light, moving the sun, the empty shadow analysis and
// the animation path.
#include <rendering/CXSunLight>

#include <gtest/gtest.h>
#include <osg/Geode>
#include <osg/ShapeDrawable>

namespace
{

// Exposes the protected path generator.
class PathSunLight : public CXSunLight
{
public:
    using CXSunLight::CXSunLight;
    using CXSunLight::createAnimationPath;
};

osg::ref_ptr<osg::Geode> sphereNode()
{
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(new osg::ShapeDrawable(new osg::Sphere(osg::Vec3(), 1.0f)));
    return geode;
}

void expectVec4(const osg::Vec4& actual, const osg::Vec4& expected)
{
    for (int i = 0; i < 4; ++i)
        EXPECT_FLOAT_EQ(actual[i], expected[i]) << "component " << i;
}

} // namespace

TEST(SunLight, ConstructorLightsTheNodeTheViewAndLightOne)
{
    osg::ref_ptr<osg::Geode> node = sphereNode();
    osg::ref_ptr<osgViewer::View> view = new osgViewer::View;
    osg::ref_ptr<CXSunLight> sun = new CXSunLight(node.get(), view.get());

    const osg::StateSet* ss = node->getStateSet();
    ASSERT_NE(ss, nullptr);
    EXPECT_EQ(ss->getMode(GL_LIGHTING), static_cast<osg::StateAttribute::GLModeValue>(osg::StateAttribute::ON));
    EXPECT_EQ(ss->getMode(GL_LIGHT0), static_cast<osg::StateAttribute::GLModeValue>(osg::StateAttribute::ON));
    EXPECT_EQ(ss->getMode(GL_LIGHT1),
              static_cast<osg::StateAttribute::GLModeValue>(osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE));
    EXPECT_TRUE(node->getBound().valid());

    EXPECT_EQ(view->getLightingMode(), osg::View::SKY_LIGHT);
    ASSERT_NE(view->getLight(), nullptr);
    expectVec4(view->getLight()->getAmbient(), osg::Vec4(1, 1, 1, 1));
    expectVec4(view->getLight()->getDiffuse(), osg::Vec4(1, 1, 1, 1));
    expectVec4(view->getLight()->getPosition(), osg::Vec4(500, 500, 1000, 0));

    ASSERT_TRUE(sun->light.valid());
    EXPECT_EQ(sun->light->getLightNum(), 1);
    expectVec4(sun->light->getPosition(), osg::Vec4(500, 500, 1000, 0));
    expectVec4(sun->light->getAmbient(), osg::Vec4(1, 1, 1, 1));
    expectVec4(sun->light->getDiffuse(), osg::Vec4(1, 1, 1, 1));
    EXPECT_FLOAT_EQ(sun->light->getConstantAttenuation(), 1.0f);
    EXPECT_FLOAT_EQ(sun->light->getLinearAttenuation(), 0.0f);
    EXPECT_FLOAT_EQ(sun->light->getQuadraticAttenuation(), 0.0f);

    ASSERT_TRUE(sun->lightSource.valid());
    EXPECT_EQ(sun->lightSource->getLight(), sun->light.get());
    EXPECT_EQ(sun->getLS().get(), sun->lightSource.get());
    EXPECT_EQ(sun->getNumChildren(), 1u);
    EXPECT_EQ(sun->getChild(0), sun->lightSource.get());
    // Light 1 is on in the light source's own state set.
    const osg::StateSet* local = sun->lightSource->getStateSet();
    ASSERT_NE(local, nullptr);
    EXPECT_EQ(local->getMode(GL_LIGHT1), static_cast<osg::StateAttribute::GLModeValue>(osg::StateAttribute::ON));
}

TEST(SunLight, ChangeAKeepsTheLightDirectional)
{
    osg::ref_ptr<osg::Geode> node = sphereNode();
    osg::ref_ptr<osgViewer::View> view = new osgViewer::View;
    osg::ref_ptr<CXSunLight> sun = new CXSunLight(node.get(), view.get());
    sun->changeA(osg::Vec3d(1, 2, 3));
    expectVec4(sun->light->getPosition(), osg::Vec4(1, 2, 3, 0));
    // Narrowed to float.
    sun->changeA(osg::Vec3d(0.1, -1e10, 123456789.123));
    expectVec4(sun->light->getPosition(), osg::Vec4(0.1f, -1e10f, 123456789.123f, 0.0f));
    // The view's light is not touched.
    expectVec4(view->getLight()->getPosition(), osg::Vec4(500, 500, 1000, 0));
}

TEST(SunLight, ShadowAnalysisChangesNothing)
{
    osg::ref_ptr<osg::Geode> node = sphereNode();
    osg::ref_ptr<osgViewer::View> view = new osgViewer::View;
    osg::ref_ptr<CXSunLight> sun = new CXSunLight(node.get(), view.get());
    const osg::ref_ptr<osg::StateSet> before =
        new osg::StateSet(*node->getStateSet(), osg::CopyOp::DEEP_COPY_ALL);
    const osg::Vec4 position = sun->light->getPosition();

    sun->shadowAnalysisON(node.get(), view.get());
    sun->shadowAnalysisOFF(node.get());

    EXPECT_EQ(node->getStateSet()->compare(*before, true), 0);
    EXPECT_EQ(node->getNumParents(), 0u);
    EXPECT_EQ(sun->getNumChildren(), 1u);
    expectVec4(sun->light->getPosition(), position);
    EXPECT_EQ(view->getLightingMode(), osg::View::SKY_LIGHT);
    EXPECT_EQ(view->getSceneData(), nullptr);
    // Null arguments too.
    sun->shadowAnalysisON(nullptr, nullptr);
    sun->shadowAnalysisOFF(nullptr);
}

TEST(SunLight, ACopySharesTheLight)
{
    osg::ref_ptr<osg::Geode> node = sphereNode();
    osg::ref_ptr<osgViewer::View> view = new osgViewer::View;
    osg::ref_ptr<CXSunLight> sun = new CXSunLight(node.get(), view.get());
    osg::ref_ptr<CXSunLight> copy = new CXSunLight(*sun);
    EXPECT_EQ(copy->light.get(), sun->light.get());
    EXPECT_EQ(copy->getLS().get(), sun->getLS().get());
    EXPECT_EQ(copy->getNumChildren(), 1u);
    copy->changeA(osg::Vec3d(-1, 0, 0));
    expectVec4(sun->light->getPosition(), osg::Vec4(-1, 0, 0, 0));
}

TEST(SunLight, NullNodeOrViewIsPassedOver)
{
    osg::ref_ptr<CXSunLight> sun = new CXSunLight(nullptr, nullptr);
    ASSERT_TRUE(sun->light.valid());
    EXPECT_EQ(sun->light->getLightNum(), 1);
    EXPECT_EQ(sun->getNumChildren(), 1u);
    sun->changeA(osg::Vec3d(1, 2, 3));
    expectVec4(sun->light->getPosition(), osg::Vec4(1, 2, 3, 0));
}

TEST(SunLight, AnimationPathIsALoopOfFortySamplesOnACircle)
{
    osg::ref_ptr<PathSunLight> sun = new PathSunLight(nullptr, nullptr);
    const osg::Vec3f center(10, 20, 30);
    const float radius = 5.0f;
    osg::ref_ptr<osg::AnimationPath> path = sun->createAnimationPath(center, radius, 8.0);
    ASSERT_TRUE(path.valid());
    EXPECT_EQ(path->getLoopMode(), osg::AnimationPath::LOOP);

    const osg::AnimationPath::TimeControlPointMap& points = path->getTimeControlPointMap();
    ASSERT_EQ(points.size(), 40u);
    // Time steps of looptime / 40: the last sample at 39 / 40 of the loop.
    EXPECT_NEAR(points.begin()->first, 0.0, 1e-9);
    EXPECT_NEAR(points.rbegin()->first, 8.0 * 39.0 / 40.0, 1e-9);

    int i = 0;
    const double yawDelta = 2.0 * osg::PI / 39.0;
    for (const auto& [time, point] : points)
    {
        EXPECT_NEAR(time, i * 8.0 / 40.0, 1e-6);
        const osg::Vec3d p = point.getPosition();
        // In the plane x = center.x, on the circle.
        EXPECT_NEAR(p.x(), center.x(), 1e-4);
        EXPECT_NEAR((p - osg::Vec3d(center)).length(), radius, 1e-4);
        const double yaw = i * yawDelta;
        EXPECT_NEAR(p.y(), center.y() + std::sin(yaw) * radius, 1e-3);
        EXPECT_NEAR(p.z(), center.z() + std::cos(yaw) * radius, 1e-3);
        const osg::Quat expected = osg::Quat(osg::DegreesToRadians(30.0), osg::Vec3d(0, 1, 0)) *
                                   osg::Quat(-(yaw + osg::PI_2), osg::Vec3d(0, 0, 1));
        const osg::Quat q = point.getRotation();
        // The same rotation (a quaternion and its negative are one).
        const double dot = q.x() * expected.x() + q.y() * expected.y() + q.z() * expected.z() + q.w() * expected.w();
        EXPECT_NEAR(std::abs(dot), 1.0, 1e-4) << "sample " << i;
        ++i;
    }
    // Thirty-nine steps of a whole turn: the last sample meets the first.
    const osg::Vec3d first = points.begin()->second.getPosition();
    const osg::Vec3d last = points.rbegin()->second.getPosition();
    EXPECT_NEAR((first - last).length(), 0.0, 1e-3);
}
