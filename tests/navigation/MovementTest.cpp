// The primitive moves and picking through a window position.
#include "NavScenes.h"
#include "NavTestSupport.h"

#include <navigation/CXEarthManipulator>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/MatrixTransform>

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

using M = CXEarthManipulator;

namespace
{

osg::ref_ptr<M> boundAt(osg::ref_ptr<osg::Group>& scene, double distance, double heading = 0.0, double pitch = -60.0)
{
    scene = new osg::Group;
    osg::ref_ptr<M> m = new M;
    m->setNode(scene.get());
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), heading, pitch, distance), 0.0);
    return m;
}

} // namespace

TEST(ManipulatorMovement, PanAtDistanceOneMovesAsFarAsAt33)
{
    osg::ref_ptr<osg::Group> s1, s2, s3;
    osg::ref_ptr<M> near1 = boundAt(s1, 1.0);
    osg::ref_ptr<M> near33 = boundAt(s2, 33.3);
    osg::ref_ptr<M> far = boundAt(s3, 1000.0);
    for (M* m : {near1.get(), near33.get(), far.get()})
        m->pan(0.1, 0.0);
    EXPECT_NEAR(near1->_center.x(), -1.0, 1e-9);
    EXPECT_NEAR(near33->_center.x(), -1.0, 1e-9);
    EXPECT_NEAR(far->_center.x(), 0.1 * -0.3f * 1000.0, 1e-6);
}

TEST(ManipulatorMovement, PanMovesInTheHorizontalPlaneAndKeepsTheHeading)
{
    osg::ref_ptr<osg::Group> scene;
    osg::ref_ptr<M> m = boundAt(scene, 100.0, 90.0, -30.0);
    // Heading 90 looks along +X: a vertical motion moves the centre along X
    // at the ground, whatever the pitch.
    m->pan(0.0, -0.5);
    EXPECT_NEAR(m->_center.x(), 0.5 * 0.3f * 100.0, 1e-6);
    EXPECT_NEAR(m->_center.y(), 0.0, 1e-6);
    EXPECT_NEAR(m->_center.z(), 0.0, 1e-12);
    double heading = 0, pitch = 0;
    navtest::headingPitchDegrees(*m, heading, pitch);
    EXPECT_NEAR(heading, 90.0, 1e-9);
    EXPECT_NEAR(pitch, -30.0, 1e-9);
}

TEST(ManipulatorMovement, PanOnATetheredCameraWithDefaultLimitsChangesNothing)
{
    osg::ref_ptr<osg::Group> scene;
    osg::ref_ptr<M> m = boundAt(scene, 100.0);
    osg::ref_ptr<osg::Group> target = new osg::Group;
    scene->addChild(target.get());
    m->setTetherNode(target.get());
    const osg::Matrixd before = m->getMatrix();
    m->pan(0.3, -0.2);
    EXPECT_EQ(m->_offsetX, 0.0);
    EXPECT_EQ(m->_offsetY, 0.0);
    EXPECT_EQ(m->getMatrix(), before);

    // With limits it shifts the screen offset, clamped, and leaves the centre.
    const osg::Vec3d centre = m->_center;
    m->getSettings()->setMaxOffset(20.0, 5.0);
    m->pan(0.1, 0.5);
    EXPECT_NEAR(m->_offsetX, 10.0, 1e-12);
    EXPECT_EQ(m->_offsetY, 5.0);
    EXPECT_EQ(m->_center, centre);
}

TEST(ManipulatorMovement, RotateBeyondALimitKeepsTheHeadingPartAndDropsThePitchPart)
{
    osg::ref_ptr<osg::Group> scene;
    osg::ref_ptr<M> m = boundAt(scene, 100.0, 0.0, -10.0);
    double heading = 0, pitch = 0;
    // -10 + 10 degrees would pass -1: the pitch part is dropped as a whole.
    m->rotate(osg::DegreesToRadians(20.0), osg::DegreesToRadians(10.0));
    navtest::headingPitchDegrees(*m, heading, pitch);
    EXPECT_NEAR(pitch, -10.0, 1e-9);
    EXPECT_NEAR(heading, 20.0, 1e-9);

    // Within the limits both apply; dy adds to the pitch.
    m->rotate(osg::DegreesToRadians(-5.0), osg::DegreesToRadians(-20.0));
    navtest::headingPitchDegrees(*m, heading, pitch);
    EXPECT_NEAR(pitch, -30.0, 1e-9);
    EXPECT_NEAR(heading, 15.0, 1e-9);
    m->rotate(0.0, osg::DegreesToRadians(8.5));
    navtest::headingPitchDegrees(*m, heading, pitch);
    EXPECT_NEAR(pitch, -21.5, 1e-9);

    // Below -89.9 as well; not cut at the limit.
    m->rotate(osg::DegreesToRadians(1.0), osg::DegreesToRadians(-70.0));
    navtest::headingPitchDegrees(*m, heading, pitch);
    EXPECT_NEAR(pitch, -21.5, 1e-9);
    EXPECT_NEAR(heading, 16.0, 1e-9);
}

TEST(ManipulatorMovement, ZoomIsProportionalAboveFiveAndStepsBelow)
{
    osg::ref_ptr<M> m = new M;
    m->setDistance(100.0);
    m->zoom(0.0, 1.0);
    EXPECT_DOUBLE_EQ(m->getDistance(), 200.0);
    m->setDistance(5.0);
    m->zoom(0.0, 1.0);
    EXPECT_DOUBLE_EQ(m->getDistance(), 5.1);
    m->zoom(0.0, 1.0);
    EXPECT_DOUBLE_EQ(m->getDistance(), 10.2);
    // Near the centre a dy of 0 counts as a step inwards, whatever dx.
    m->setDistance(3.0);
    m->zoom(5.0, 0.0);
    EXPECT_DOUBLE_EQ(m->getDistance(), 2.9);
    m->zoom(0.0, -100.0);
    EXPECT_DOUBLE_EQ(m->getDistance(), 2.8);
}

TEST(ManipulatorMovement, ZoomStaysWithinTheDistanceLimits)
{
    osg::ref_ptr<M> m = new M;
    m->getSettings()->setMinMaxDistance(2.0, 1000.0);
    m->setDistance(900.0);
    m->zoom(0.0, 1.0);
    EXPECT_EQ(m->getDistance(), 1000.0);
    m->setDistance(2.05);
    m->zoom(0.0, -1.0);
    EXPECT_EQ(m->getDistance(), 2.0);
    m->setDistance(10.0);
    m->zoom(0.0, -5.0); // 10 * -4 = -40, clamped
    EXPECT_EQ(m->getDistance(), 2.0);
}

TEST(ManipulatorMovement, ScreenToWorldAnswersFalseWithoutACoordinateSystemNode)
{
    osg::ref_ptr<osgViewer::View> view = navtest::makeView();
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    osg::ref_ptr<osg::Geode> ground = new osg::Geode;
    ground->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(-1000, -1000, 0), osg::Vec3(2000, 0, 0),
                                                        osg::Vec3(0, 2000, 0)));
    scene->addChild(ground.get());
    osg::ref_ptr<M> m = new M;
    m->setNode(scene.get());
    navtest::syncCamera(view.get(), m.get());
    osg::Vec3d out(1, 2, 3);
    EXPECT_FALSE(m->screenToWorld(320, 240, view.get(), out));
    EXPECT_EQ(out, osg::Vec3d(1, 2, 3));
    // Not a viewer view: false too.
    EXPECT_FALSE(m->screenToWorld(320, 240, nullptr, out));
}

TEST(ManipulatorMovement, ScreenToWorldPicksThroughTheWindowPosition)
{
    osg::ref_ptr<osgViewer::View> view = navtest::makeView();
    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<osg::CoordinateSystemNode> flat = navtest::makeFlatScene();
    root->addChild(flat.get());
    osg::ref_ptr<M> m = new M;
    m->setNode(root.get());
    ASSERT_TRUE(m->_csn.valid());
    m->setViewpoint(CXViewport(osg::Vec3d(100, 50, 0), 30.0, -50.0, 800.0), 0.0);
    navtest::syncCamera(view.get(), m.get());

    // The centre of the window shows the focal point.
    osg::Vec3d out;
    ASSERT_TRUE(m->screenToWorld(320, 240, view.get(), out));
    EXPECT_NEAR(out.x(), 100.0, 0.5);
    EXPECT_NEAR(out.y(), 50.0, 0.5);

    // Any position: the hit projects back to that position.
    const osg::Camera* camera = view->getCamera();
    const osg::Matrixd vpw =
        camera->getViewMatrix() * camera->getProjectionMatrix() * camera->getViewport()->computeWindowMatrix();
    for (const osg::Vec2f& p : {osg::Vec2f(10, 10), osg::Vec2f(600, 400), osg::Vec2f(100, 300)})
    {
        ASSERT_TRUE(m->screenToWorld(p.x(), p.y(), view.get(), out));
        EXPECT_NEAR(out.z(), 0.0, 1e-6);
        const osg::Vec3d back = out * vpw;
        EXPECT_NEAR(back.x(), p.x(), 1e-3);
        EXPECT_NEAR(back.y(), p.y(), 1e-3);
    }

    // A transform above the coordinate system node is taken into account.
    osg::ref_ptr<osg::MatrixTransform> lift = new osg::MatrixTransform(osg::Matrixd::translate(0, 0, 100));
    osg::ref_ptr<osg::Group> root2 = new osg::Group;
    root2->addChild(lift.get());
    lift->addChild(navtest::makeFlatScene().get());
    osg::ref_ptr<M> m2 = new M;
    m2->setNode(root2.get());
    m2->setViewpoint(CXViewport(osg::Vec3d(0, 0, 100), 0.0, -90.0, 500.0), 0.0);
    navtest::syncCamera(view.get(), m2.get());
    ASSERT_TRUE(m2->screenToWorld(320, 240, view.get(), out));
    // The answer is in the coordinate system node's own frame.
    EXPECT_NEAR(out.z(), 0.0, 1e-6);
}

TEST(ManipulatorMovement, TheRightEdgeIsStrictAndTheTopEdgeInclusive)
{
    osg::ref_ptr<osgViewer::View> view = navtest::makeView();
    float lx = -1, ly = -1;
    const float right = float(navtest::kWidth) - 1.0f;
    const float top = float(navtest::kHeight) - 1.0f;
    EXPECT_EQ(M::cameraAtWindowPosition(view.get(), right + 0.5f, 100.0f, lx, ly), nullptr);
    EXPECT_EQ(M::cameraAtWindowPosition(view.get(), right + 0.49f, 100.0f, lx, ly), view->getCamera());
    EXPECT_EQ(lx, right + 0.49f);
    EXPECT_EQ(M::cameraAtWindowPosition(view.get(), 100.0f, top + 0.5f, lx, ly), view->getCamera());
    EXPECT_EQ(ly, top + 0.5f);
    EXPECT_EQ(M::cameraAtWindowPosition(view.get(), 100.0f, top + 0.51f, lx, ly), nullptr);
    EXPECT_EQ(M::cameraAtWindowPosition(view.get(), -0.5f, -0.5f, lx, ly), view->getCamera());
    EXPECT_EQ(M::cameraAtWindowPosition(view.get(), -0.51f, 0.0f, lx, ly), nullptr);

    // A camera without a context goes through the view's own search.
    view->getCamera()->setGraphicsContext(nullptr);
    EXPECT_EQ(M::cameraAtWindowPosition(view.get(), 100.0f, 100.0f, lx, ly), nullptr);
}
