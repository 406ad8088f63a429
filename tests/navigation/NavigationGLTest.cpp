// The manipulators on a real X11 window: events go through the graphics
// window's event queue, as the X server's do, and the checks read the
// rendered frames.
#include "NavScenes.h"
#include "ViewerFixture.h"

#include <globe/EarthManipulator>
#include <navigation/CXEarthManipulator>
#include <navigation/MemoryManipulator>

#include <osg/Timer>
#include <osgGA/TrackballManipulator>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>

using cxtest::ViewerFixture;
using M = CXEarthManipulator;
using osgGA::GUIEventAdapter;

namespace
{

// What a frame shows: the pixels that are not the clear colour, and their
// centroid (window pixels, origin top-left).
struct Content
{
    int count = 0;
    double x = 0.0;
    double y = 0.0;
};

bool isClearColour(const osg::Vec4ub& p)
{
    return std::abs(p.r() - 179) <= 3 && std::abs(p.g() - 179) <= 3 && std::abs(p.b() - 179) <= 3;
}

Content contentOf(const osg::Image& image)
{
    Content c;
    for (int y = 0; y < image.t(); y += 2)
        for (int x = 0; x < image.s(); x += 2)
            if (!isClearColour(cxtest::pixelAt(image, x, y)))
            {
                ++c.count;
                c.x += x;
                c.y += y;
            }
    if (c.count > 0)
    {
        c.x /= c.count;
        c.y /= c.count;
    }
    return c;
}

bool sameColour(const osg::Vec4ub& a, const osg::Vec4ub& b, int tolerance = 12)
{
    return std::abs(a.r() - b.r()) <= tolerance && std::abs(a.g() - b.g()) <= tolerance &&
           std::abs(a.b() - b.b()) <= tolerance;
}

} // namespace

class NavigationGL : public ViewerFixture
{
protected:
    CXEarthManipulator* manipulator() const
    {
        return dynamic_cast<CXEarthManipulator*>(viewer->getViewer()->getCameraManipulator());
    }

    /** Puts a scene into the viewer's tree and has the installed manipulator
      * bind the tree again, so that it finds the scene's coordinate system
      * node. */
    void addScene(osg::Node* scene)
    {
        viewer->getRoot()->addChild(scene);
        CXEarthManipulator* m = manipulator();
        ASSERT_NE(m, nullptr);
        m->setNode(nullptr);
        m->setNode(viewer->getScene());
    }

    /** Window position (origin bottom-left, as manipulators see events) of a
      * world point in the current frame. */
    osg::Vec2d project(const osg::Vec3d& world) const
    {
        const osg::Camera* c = viewer->getViewer()->getCamera();
        const osg::Vec3d w =
            world * c->getViewMatrix() * c->getProjectionMatrix() * c->getViewport()->computeWindowMatrix();
        return osg::Vec2d(w.x(), w.y());
    }

    /** The scene point under a window position given top-left, as X does. */
    bool pick(float x, float y, osg::Vec3d& out) const
    {
        return manipulator()->screenToWorld(x, float(windowHeight - 1) - y, viewer->getViewer(), out);
    }

    /** Draws frames until the manipulator's timed task has run out. */
    void framesUntilTaskDone(CXEarthManipulator* m)
    {
        EXPECT_TRUE(framesUntil([&] { return m->_task->_type == M::TASK_NONE; }, 300));
    }

    /** Left drag in `steps` moves, one frame each, using the keys of the
      * test fixture (top-left pixels). */
    void leftDrag(float fromX, float fromY, float toX, float toY, int steps = 8)
    {
        mouseDrag(fromX, fromY, toX, toY, GUIEventAdapter::LEFT_MOUSE_BUTTON, steps);
        frames(1);
    }
};

// The scenes of the parameterised tests: a flat textured plane and the
// WGS84 globe, both driven by the manipulator that InitOSG installs.
class NavigationScenesGL : public NavigationGL, public ::testing::WithParamInterface<bool>
{
protected:
    bool round() const { return GetParam(); }

    void SetUp() override
    {
        NavigationGL::SetUp();
        if (HasFatalFailure())
            return;
        if (round())
        {
            addScene(navtest::makeGlobeScene().get());
            // Over the north pole (the plain manipulator's frame is the
            // identity: its up is the earth's axis).
            manipulator()->setViewpoint(
                CXViewport(osg::Vec3d(0, 0, osg::WGS_84_RADIUS_POLAR), 0.0, -89.9, 2.5e7), 0.0);
        }
        else
        {
            addScene(navtest::makeFlatScene().get());
            manipulator()->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -89.9, 5000.0), 0.0);
        }
        frames(3);
    }

    std::string name(const char* what) const { return std::string("nav-") + (round() ? "round-" : "flat-") + what; }
};

TEST_P(NavigationScenesGL, WheelDownZoomsInAndWheelUpZoomsOut)
{
    CXEarthManipulator* m = manipulator();
    osg::ref_ptr<osg::Image> before = grabFrame();
    const Content c0 = contentOf(*before);
    const double d0 = m->getDistance();
    ASSERT_GT(c0.count, 1000);

    scroll(GUIEventAdapter::SCROLL_DOWN, 320, 240);
    frames(1);
    EXPECT_EQ(m->_lastAction._type, M::ACTION_ZOOM_IN);
    framesUntilTaskDone(m);
    osg::ref_ptr<osg::Image> in = grabFrame();
    const Content c1 = contentOf(*in);
    cxtest::saveScreenshot(*in, name("zoomed-in"));
    const double d1 = m->getDistance();
    EXPECT_LT(d1, d0);
    EXPECT_GT(c1.count, c0.count);

    scroll(GUIEventAdapter::SCROLL_UP, 320, 240);
    frames(1);
    EXPECT_EQ(m->_lastAction._type, M::ACTION_ZOOM_OUT);
    framesUntilTaskDone(m);
    osg::ref_ptr<osg::Image> out = grabFrame();
    const Content c2 = contentOf(*out);
    cxtest::saveScreenshot(*out, name("zoomed-out"));
    EXPECT_GT(m->getDistance(), d1);
    EXPECT_LT(c2.count, c1.count);
}

TEST_P(NavigationScenesGL, ALeftDragPans)
{
    osg::ref_ptr<osg::Image> before = grabFrame();
    const Content c0 = contentOf(*before);
    const osg::Vec3d centre0 = manipulator()->_center;
    leftDrag(300, 240, 400, 200);
    osg::ref_ptr<osg::Image> after = grabFrame();
    cxtest::saveScreenshot(*after, name("panned"));
    const Content c1 = contentOf(*after);
    // The picture follows the pointer: right and up.
    EXPECT_GT(c1.x - c0.x, 15.0);
    EXPECT_LT(c1.y - c0.y, -5.0);
    EXPECT_NE(manipulator()->_center, centre0);
    EXPECT_EQ(manipulator()->_lastAction._type, M::ACTION_PAN);
}

TEST_P(NavigationScenesGL, AHeldArrowKeyPansUntilItsKeyUp)
{
    CXEarthManipulator* m = manipulator();
    const Content c0 = contentOf(*grabFrame());
    keyPress(GUIEventAdapter::KEY_Left);
    frames(1);
    EXPECT_EQ(m->_task->_type, M::TASK_PAN);
    const double start = osg::Timer::instance()->time_s();
    while (osg::Timer::instance()->time_s() - start < 0.4)
        frames(1);
    const Content held = contentOf(*grabFrame());
    // Pan left: the camera goes left, the picture to the right.
    EXPECT_GT(held.x - c0.x, 5.0);
    keyRelease(GUIEventAdapter::KEY_Left);
    frames(2);
    EXPECT_EQ(m->_task->_type, M::TASK_NONE);
    const osg::Vec3d stopped = m->_center;
    osg::ref_ptr<osg::Image> a = grabFrame();
    const double later = osg::Timer::instance()->time_s();
    while (osg::Timer::instance()->time_s() - later < 0.2)
        frames(1);
    osg::ref_ptr<osg::Image> b = grabFrame();
    EXPECT_EQ(m->_center, stopped);
    EXPECT_EQ(cxtest::differingPixels(*a, *b), 0);
}

TEST_P(NavigationScenesGL, ADoubleClickChangesNothing)
{
    CXEarthManipulator* m = manipulator();
    osg::ref_ptr<osg::Image> before = grabFrame();
    const osg::Matrixd matrix = m->getMatrix();
    doubleClick(250, 200, GUIEventAdapter::LEFT_MOUSE_BUTTON);
    frames(3);
    doubleClick(250, 200, GUIEventAdapter::RIGHT_MOUSE_BUTTON);
    frames(3);
    osg::ref_ptr<osg::Image> after = grabFrame();
    EXPECT_EQ(m->getMatrix(), matrix);
    EXPECT_FALSE(m->_settingViewpoint);
    EXPECT_EQ(cxtest::differingPixels(*before, *after), 0);
}

INSTANTIATE_TEST_SUITE_P(FlatAndRound, NavigationScenesGL, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& info) { return info.param ? "Round" : "Flat"; });

TEST_F(NavigationGL, InitOSGInstallsTheEarthManipulator)
{
    CXEarthManipulator* m = manipulator();
    ASSERT_NE(m, nullptr);
    EXPECT_STREQ(m->className(), "CXEarthManipulator");
    EXPECT_EQ(m->getNode(), viewer->getScene());
    EXPECT_TRUE(m->_homeViewpoint.isSet());
    frames(2);
    EXPECT_EQ(m->_viewCamera.get(), viewer->getViewer()->getCamera());
}

TEST_F(NavigationGL, TheGrabbedPointOfTheFlatSceneStaysUnderThePointer)
{
    addScene(navtest::makeFlatScene().get());
    CXEarthManipulator* m = manipulator();
    m->getSettings()->bindMouse(M::ACTION_EARTH_DRAG, GUIEventAdapter::LEFT_MOUSE_BUTTON);
    m->setViewpoint(CXViewport(osg::Vec3d(100, -50, 0), 30.0, -50.0, 2500.0), 0.0);
    frames(3);

    const osg::Vec2f press(260, 300);
    osg::Vec3d grabbed;
    ASSERT_TRUE(pick(press.x(), press.y(), grabbed));
    osg::ref_ptr<osg::Image> first = grabFrame();
    const osg::Vec4ub colour = cxtest::pixelAt(*first, int(press.x()), int(press.y()));

    mouseMove(press.x(), press.y());
    mousePress(press.x(), press.y(), GUIEventAdapter::LEFT_MOUSE_BUTTON);
    frames(1);
    double worst = 0.0;
    for (int i = 1; i <= 10; ++i)
    {
        const osg::Vec2f p = press + osg::Vec2f(14.0f * i, -9.0f * i);
        mouseMove(p.x(), p.y());
        frames(1);
        const osg::Vec2d at = project(grabbed);
        const double dx = at.x() - p.x();
        const double dy = at.y() - (windowHeight - 1 - p.y());
        worst = std::max(worst, std::sqrt(dx * dx + dy * dy));
    }
    osg::ref_ptr<osg::Image> last = grabFrame();
    mouseRelease(press.x() + 140.0f, press.y() - 90.0f, GUIEventAdapter::LEFT_MOUSE_BUTTON);
    frames(1);
    cxtest::saveScreenshot(*last, "nav-flat-earth-drag");
    EXPECT_LT(worst, 2.0);
    EXPECT_EQ(m->_lastAction._type, M::ACTION_EARTH_DRAG);
    // The texel under the pointer is the one grabbed.
    EXPECT_TRUE(sameColour(cxtest::pixelAt(*last, int(press.x()) + 140, int(press.y()) - 90), colour));
    EXPECT_TRUE(sameColour(colour, navtest::flatSceneColour(grabbed.x(), grabbed.y())));
}

TEST_F(NavigationGL, TheGrabbedLongitudeAndLatitudeOfTheGlobeStayUnderThePointer)
{
    // The globe's manipulator, installed as the map set-up does.
    viewer->getRoot()->addChild(navtest::makeGlobeScene().get());
    osg::ref_ptr<globe::EarthManipulator> em = new globe::EarthManipulator;
    em->getSettings()->bindMouse(M::ACTION_EARTH_DRAG, GUIEventAdapter::LEFT_MOUSE_BUTTON);
    viewer->getViewer()->setCameraManipulator(em.get(), true);
    ASSERT_TRUE(em->_isGeocentric);

    for (double range : {3.0e6, 1.5e7})
    {
        em->setViewpoint(em->createViewpoint(116.0, 40.0, 0.0, 0.0, -80.0, range), 0.0);
        frames(3);
        const osg::Vec2f press(280, 260);
        osg::Vec3d grabbed;
        ASSERT_TRUE(pick(press.x(), press.y(), grabbed));
        double lon0, lat0, h0;
        navtest::wgs84FromWorld(grabbed, lon0, lat0, h0);

        mouseMove(press.x(), press.y());
        mousePress(press.x(), press.y(), GUIEventAdapter::LEFT_MOUSE_BUTTON);
        frames(1);
        double worst = 0.0;
        for (int i = 1; i <= 10; ++i)
        {
            const osg::Vec2f p = press + osg::Vec2f(10.0f * i, -6.0f * i);
            mouseMove(p.x(), p.y());
            frames(1);
            osg::Vec3d under;
            ASSERT_TRUE(pick(p.x(), p.y(), under)) << i;
            double lon, lat, h;
            navtest::wgs84FromWorld(under, lon, lat, h);
            worst = std::max(worst, std::max(std::fabs(lon - lon0), std::fabs(lat - lat0)));
        }
        osg::ref_ptr<osg::Image> last = grabFrame();
        mouseRelease(press.x() + 100.0f, press.y() - 60.0f, GUIEventAdapter::LEFT_MOUSE_BUTTON);
        frames(1);
        cxtest::saveScreenshot(*last, range < 1e7 ? "nav-globe-drag-near" : "nav-globe-drag-far");
        // About two pixels of the view.
        const double pixelDegrees = osg::RadiansToDegrees(2.0 * range * std::tan(osg::DegreesToRadians(15.0)) /
                                                          windowHeight / osg::WGS_84_RADIUS_EQUATOR);
        EXPECT_LT(worst, 2.0 * pixelDegrees) << range;
        // It moved the globe and kept the heading.
        double lon, lat, h;
        em->getGeographicFocalPoint(em->getViewpoint(), lon, lat, h);
        EXPECT_GT(std::fabs(lon - 116.0) + std::fabs(lat - 40.0), 2.0 * pixelDegrees) << range;
        EXPECT_NEAR(em->getViewpoint().getHeading(), 0.0, 1.0) << range;
    }
}

TEST_F(NavigationGL, AThreeSecondFlightEndsOnTheTargetViewpoint)
{
    addScene(navtest::makeFlatScene().get());
    CXEarthManipulator* m = manipulator();
    m->setViewpoint(CXViewport(osg::Vec3d(-700, 600, 0), 0.0, -60.0, 1500.0), 0.0);
    frames(2);
    const CXViewport target(osg::Vec3d(0, 0, 0), 45.0, -80.0, 400.0);
    const double start = osg::Timer::instance()->time_s();
    m->setViewpoint(target, 3.0);
    EXPECT_TRUE(m->_settingViewpoint);
    ASSERT_TRUE(framesUntil([&] { return !m->_settingViewpoint; }, 2000));
    const double took = osg::Timer::instance()->time_s() - start;
    EXPECT_GE(took, 2.9);
    EXPECT_LT(took, 5.0);
    const CXViewport vp = m->getViewpoint();
    EXPECT_NEAR((vp.getFocalPoint() - target.getFocalPoint()).length(), 0.0, 1e-6);
    EXPECT_NEAR(vp.getHeading(), 45.0, 0.01);
    EXPECT_NEAR(vp.getPitch(), -80.0, 0.01);
    EXPECT_NEAR(vp.getRange(), 400.0, 1e-6);
    // The red marker at the target is in the middle of the picture.
    osg::ref_ptr<osg::Image> image = grabFrame();
    cxtest::saveScreenshot(*image, "nav-flight-end");
    const osg::Vec4ub centre = cxtest::pixelAt(*image, windowWidth / 2, windowHeight / 2);
    EXPECT_GT(centre.r(), 180);
    EXPECT_LT(centre.g(), 80);
}

TEST_F(NavigationGL, TheMapStartFlightEndsOnItsLongitudeLatitudeViewpoint)
{
    viewer->getRoot()->addChild(navtest::makeGlobeScene().get());
    osg::ref_ptr<globe::EarthManipulator> em = new globe::EarthManipulator;
    em->getSettings()->clearBindings(GUIEventAdapter::DOUBLECLICK);
    viewer->getViewer()->setCameraManipulator(em.get(), true);
    frames(2);
    const CXViewport start = em->createViewpoint(109.0, 32.0, 10.0, 0.0, -90.0, 20928182.0);
    em->setViewpoint(start, 3.0);
    em->setHomeViewpoint(start, 3.0);
    ASSERT_TRUE(framesUntil([&] { return !em->_settingViewpoint; }, 2000));
    const CXViewport vp = em->getViewpoint();
    double lon, lat, h;
    em->getGeographicFocalPoint(vp, lon, lat, h);
    EXPECT_NEAR(lon, 109.0, 1e-6);
    EXPECT_NEAR(lat, 32.0, 1e-6);
    // The focal point sits on the mesh, whose two-degree cells lie up to
    // about a kilometre under the ellipsoid.
    EXPECT_LT(std::fabs(h), 1500.0);
    EXPECT_NEAR(vp.getHeading(), 0.0, 0.01);
    EXPECT_NEAR(vp.getPitch(), -89.9, 0.01); // -90 is clamped to the settings' -89.9
    EXPECT_NEAR(vp.getRange(), 20928182.0, 1.0);
    // Over China, in a cell of the checker: the middle of the picture shows
    // the globe, and the whole disc is in view.
    osg::ref_ptr<osg::Image> image = grabFrame();
    cxtest::saveScreenshot(*image, "nav-map-start");
    EXPECT_FALSE(isClearColour(cxtest::pixelAt(*image, windowWidth / 2, windowHeight / 2)));
    EXPECT_TRUE(isClearColour(cxtest::pixelAt(*image, 5, 5)));
}

TEST_F(NavigationGL, MemoryManipulatorSwitchesOnItsKeyAndHandsTheViewMatrixOver)
{
    addScene(navtest::makeFlatScene().get());
    osg::ref_ptr<CXEarthManipulator> earth = manipulator();
    osg::ref_ptr<osgGA::TrackballManipulator> ball = new osgGA::TrackballManipulator;
    osg::ref_ptr<MemoryManipulator> memory = new MemoryManipulator;
    memory->addMatrixManipulator('1', "earth", earth.get());
    memory->addMatrixManipulator('2', "ball", ball.get());
    viewer->getViewer()->setCameraManipulator(memory.get(), true);
    EXPECT_EQ(memory->getCurrentMatrixManipulator(), earth.get());
    EXPECT_NE(earth->getNode(), nullptr);
    ASSERT_TRUE(earth->established());
    earth->setViewpoint(CXViewport(osg::Vec3d(200, 100, 0), 20.0, -60.0, 1800.0), 0.0);
    frames(3);
    osg::ref_ptr<osg::Image> before = grabFrame();
    cxtest::saveScreenshot(*before, "nav-memory-earth");
    const osg::Matrixd view = viewer->getViewer()->getCamera()->getViewMatrix();

    keyPress('2');
    keyRelease('2');
    frames(2);
    EXPECT_EQ(memory->getCurrentMatrixManipulator(), ball.get());
    osg::ref_ptr<osg::Image> after = grabFrame();
    cxtest::saveScreenshot(*after, "nav-memory-ball");
    const osg::Matrixd handed = viewer->getViewer()->getCamera()->getViewMatrix();
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            EXPECT_NEAR(handed(r, c), view(r, c), 1e-6 * (1.0 + std::fabs(view(r, c))));
    EXPECT_LT(cxtest::differingPixels(*before, *after), 50);

    // Back to the earth manipulator, which takes the trackball's matrix.
    keyPress('1');
    keyRelease('1');
    frames(2);
    EXPECT_EQ(memory->getCurrentMatrixManipulator(), earth.get());
    osg::ref_ptr<osg::Image> back = grabFrame();
    EXPECT_LT(cxtest::differingPixels(*before, *back), 50);
    CXViewport vp;
    EXPECT_TRUE(memory->GetViewpoint(vp));
    EXPECT_NEAR(vp.getHeading(), 20.0, 0.01);
}

TEST_F(NavigationGL, ChangeManipulatorStateBlocksPagingDuringADrag)
{
    addScene(navtest::makeFlatScene().get());
    CXEarthManipulator* m = manipulator();
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -60.0, 3000.0), 0.0);
    frames(2);
    osgDB::DatabasePager* pager = viewer->getViewer()->getDatabasePager();
    ASSERT_FALSE(m->_pagingBlocked);

    viewer->changeManipulatorState();
    EXPECT_TRUE(m->_pagingBlocked);
    mouseMove(300, 200);
    mousePress(300, 200, GUIEventAdapter::LEFT_MOUSE_BUTTON);
    frames(1);
    mouseMove(330, 210);
    frames(1);
    EXPECT_FALSE(pager->getAcceptNewDatabaseRequests());
    mouseRelease(330, 210, GUIEventAdapter::LEFT_MOUSE_BUTTON);
    frames(1);
    EXPECT_TRUE(pager->getAcceptNewDatabaseRequests());

    viewer->changeManipulatorState();
    EXPECT_FALSE(m->_pagingBlocked);
    mousePress(300, 200, GUIEventAdapter::LEFT_MOUSE_BUTTON);
    frames(1);
    mouseMove(330, 210);
    frames(1);
    EXPECT_TRUE(pager->getAcceptNewDatabaseRequests());
    mouseRelease(330, 210, GUIEventAdapter::LEFT_MOUSE_BUTTON);
    frames(1);

    // Another manipulator in the view: nothing happens.
    viewer->getViewer()->setCameraManipulator(new osgGA::TrackballManipulator, true);
    viewer->changeManipulatorState();
    EXPECT_FALSE(m->_pagingBlocked);
}
