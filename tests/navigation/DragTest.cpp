// Earth drag on a flat scene and on a globe, tourism mode and the paging
// block switch.
#include "NavScenes.h"
#include "NavTestSupport.h"

#include <navigation/CXEarthManipulator>

#include <gtest/gtest.h>

#include <atomic>
#include <cfloat>
#include <cmath>
#include <thread>
#include <vector>

using M = CXEarthManipulator;
using osgGA::GUIEventAdapter;

namespace
{

// A manipulator with the earth drag on the left button, on a scene, with a
// view whose camera follows the manipulator after every event.
struct DragRig
{
    osg::ref_ptr<osgViewer::View> view = navtest::makeView();
    navtest::RecordingAdapter aa{view.get()};
    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<M> m;
    double time = 1.0;

    explicit DragRig(osg::Node* scene, M* manipulator = nullptr) : m(manipulator ? manipulator : new M)
    {
        root->addChild(scene);
        view->setSceneData(root.get());
        m->getSettings()->bindMouse(M::ACTION_EARTH_DRAG, GUIEventAdapter::LEFT_MOUSE_BUTTON);
        m->setNode(root.get());
    }

    void place(const CXViewport& vp)
    {
        m->setViewpoint(vp, 0.0);
        sync();
    }
    void sync() { navtest::syncCamera(view.get(), m.get()); }
    void press(float x, float y)
    {
        m->handle(*navtest::mouseEvent(GUIEventAdapter::PUSH, x, y, 1, time += 0.05, 1), aa);
        sync();
    }
    void dragTo(float x, float y)
    {
        m->handle(*navtest::mouseEvent(GUIEventAdapter::DRAG, x, y, 1, time += 0.05), aa);
        sync();
    }
    osg::Vec2d project(const osg::Vec3d& world) const
    {
        const osg::Camera* c = view->getCamera();
        const osg::Vec3d w = world * c->getViewMatrix() * c->getProjectionMatrix() * c->getViewport()->computeWindowMatrix();
        return osg::Vec2d(w.x(), w.y());
    }
};

} // namespace

TEST(ManipulatorDrag, TheGrabbedPointOfAFlatSceneStaysUnderThePointer)
{
    DragRig rig(navtest::makeFlatScene().get());
    rig.place(CXViewport(osg::Vec3d(0, 0, 0), 20.0, -55.0, 1500.0));
    ASSERT_FALSE(rig.m->_isGeocentric);

    const osg::Vec2f start(300, 260);
    osg::Vec3d grabbed;
    ASSERT_TRUE(rig.m->screenToWorld(start.x(), start.y(), rig.view.get(), grabbed));
    rig.press(start.x(), start.y());
    for (int i = 1; i <= 10; ++i)
    {
        const osg::Vec2f p = start + osg::Vec2f(12.0f * i, -7.0f * i);
        rig.dragTo(p.x(), p.y());
        EXPECT_EQ(rig.m->_lastAction._type, M::ACTION_EARTH_DRAG);
        // (The first event rebuilt the projection: the pick may differ in
        // the last bits.)
        EXPECT_NEAR((rig.m->_lastPointOnEarth - grabbed).length(), 0.0, 1e-6);
        const osg::Vec2d at = rig.project(grabbed);
        EXPECT_NEAR(at.x(), p.x(), 1e-3) << i;
        EXPECT_NEAR(at.y(), p.y(), 1e-3) << i;
    }
    // Pure translation: the heading and pitch stay.
    double heading = 0, pitch = 0;
    navtest::headingPitchDegrees(*rig.m, heading, pitch);
    EXPECT_NEAR(heading, 20.0, 1e-9);
    EXPECT_NEAR(pitch, -55.0, 1e-9);
}

TEST(ManipulatorDrag, OffTheFlatModelThereIsNoMotionAndNoAnchor)
{
    DragRig rig(navtest::makeFlatScene(100.0).get());
    rig.place(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -80.0, 2000.0));
    osg::Vec3d probe;
    ASSERT_FALSE(rig.m->screenToWorld(20, 20, rig.view.get(), probe));
    const osg::Matrixd before = rig.m->getMatrix();
    rig.press(20, 20);
    rig.dragTo(40, 30);
    rig.dragTo(60, 40);
    EXPECT_EQ(rig.m->getMatrix(), before);
    EXPECT_EQ(rig.m->_lastPointOnEarth, osg::Vec3d(0, 0, 0));

    // Starting on the model and ending off it: the end point is the tangent
    // point of a sphere, which moves a flat scene far away; the anchor stays.
    rig.press(320, 240);
    rig.dragTo(322, 241);
    EXPECT_NE(rig.m->_lastPointOnEarth, osg::Vec3d(0, 0, 0));
}

TEST(ManipulatorDrag, TwoDragEventsAtTheSamePixelLeaveTheCentre)
{
    DragRig rig(navtest::makeFlatScene().get());
    rig.place(CXViewport(osg::Vec3d(50, 50, 0), 0.0, -60.0, 1000.0));
    const osg::Vec3d centre = rig.m->_center;
    rig.m->_lastAction = M::Action(M::ACTION_EARTH_DRAG);
    rig.m->addMouseEvent(*navtest::mouseEvent(GUIEventAdapter::DRAG, 333, 222, 1, 1.0));
    rig.m->addMouseEvent(*navtest::mouseEvent(GUIEventAdapter::DRAG, 333, 222, 1, 1.1));
    rig.m->drag(0.0, 0.0, rig.view.get());
    EXPECT_EQ(rig.m->_center, centre);
    EXPECT_NE(rig.m->_lastPointOnEarth, osg::Vec3d(0, 0, 0));

    // Through handle, the zero deltas stop before the drag.
    rig.press(333, 222);
    rig.dragTo(333, 222);
    rig.dragTo(333, 222);
    EXPECT_EQ(rig.m->_center, centre);
}

TEST(ManipulatorDrag, ASkyStartOnAGlobeUsesTheTangentPointAndAnchorsOnlyOnAHit)
{
    DragRig rig(navtest::makeGlobeScene().get());
    ASSERT_TRUE(rig.m->_isGeocentric);
    // Three earth radii over a point (off the mesh's tile corners), looking
    // at the earth's centre.
    rig.m->setByLookAt(navtest::wgs84ToWorld(5.3, 3.7) * 4.0, osg::Vec3d(0, 0, 0), osg::Vec3d(0, 0, 1));
    rig.sync();
    osg::Vec3d probe;
    ASSERT_FALSE(rig.m->screenToWorld(5, 5, rig.view.get(), probe));
    ASSERT_TRUE(rig.m->screenToWorld(320, 240, rig.view.get(), probe));

    rig.press(5, 5);
    rig.dragTo(8, 9);
    EXPECT_EQ(rig.m->_lastPointOnEarth, osg::Vec3d(0, 0, 0));
    rig.dragTo(320, 240); // the previous position was still in the sky
    EXPECT_EQ(rig.m->_lastPointOnEarth, osg::Vec3d(0, 0, 0));
    osg::Vec3d expected;
    ASSERT_TRUE(rig.m->screenToWorld(320, 240, rig.view.get(), expected));
    rig.dragTo(325, 243);
    EXPECT_NEAR((rig.m->_lastPointOnEarth - expected).length(), 0.0, 1.0);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(std::isfinite(rig.m->getMatrix()(3, i)));
}

TEST(ManipulatorDrag, SpheresThatDoNotMeetGiveTheOriginAsTangentPoint)
{
    // The eye inside the sphere: the Thales sphere lies within it.
    EXPECT_EQ(M::computeSphereTangentPoint(osg::Vec3d(0, 0, 0), osg::Vec3d(0, 0, -10), 20.0, osg::Vec3d(0, 0.1, -1)),
              osg::Vec3d(0, 0, 0));
    osg::Vec3d c;
    double r = 0;
    EXPECT_FALSE(M::intersectCircles(osg::Vec3d(0, 0, 0), 1.0, osg::Vec3d(5, 0, 0), 1.0, c, r));
    EXPECT_FALSE(M::intersectCircles(osg::Vec3d(0, 0, 0), 10.0, osg::Vec3d(1, 0, 0), 1.0, c, r));

    // Touching circles and equal ones.
    ASSERT_TRUE(M::intersectCircles(osg::Vec3d(0, 0, 0), 1.0, osg::Vec3d(2, 0, 0), 1.0, c, r));
    EXPECT_NEAR(c.x(), 1.0, 1e-12);
    EXPECT_NEAR(r, 0.0, 1e-6);
    ASSERT_TRUE(M::intersectCircles(osg::Vec3d(1, 1, 1), 3.0, osg::Vec3d(1, 1, 1), 3.0, c, r));
    EXPECT_EQ(c, osg::Vec3d(1, 1, 1));
    EXPECT_EQ(r, 3.0);

    // An eye at distance 2 from a unit sphere: the tangent points lie at 60
    // degrees from the line to the centre, on the side of the ray.
    const osg::Vec3d t = M::computeSphereTangentPoint(osg::Vec3d(0, 0, 0), osg::Vec3d(0, 0, -2), 1.0,
                                                      osg::Vec3d(0, 1, -2));
    EXPECT_NEAR((t - osg::Vec3d(0, 0, -2)).length(), 1.0, 1e-12);
    EXPECT_NEAR(t * (t - osg::Vec3d(0, 0, -2)), 0.0, 1e-12); // the eye ray touches
    EXPECT_GT(t.y(), 0.0);
}

TEST(ManipulatorDrag, RotateAroundAPointIsTranslateRotateTranslateBack)
{
    // The product in the written order, with row vectors: (v + p) R - p.
    const osg::Vec3d point(10, 0, 0);
    const osg::Matrixd r = M::rotateAroundPoint(point, osg::PI_2, osg::Vec3d(0, 0, 1));
    const osg::Vec3d v(1, 2, 3);
    const osg::Vec3d expected = (v + point) * osg::Matrixd::rotate(osg::PI_2, osg::Vec3d(0, 0, 1)) - point;
    EXPECT_NEAR((v * r - expected).length(), 0.0, 1e-12);

    // The drag turns about an axis through the earth's centre and the point,
    // for which the point stays where it is.
    const osg::Vec3d onAxis(3, 4, 12);
    osg::Vec3d axis = -onAxis;
    axis.normalize();
    const osg::Matrixd s = M::rotateAroundPoint(onAxis, 0.7, axis);
    EXPECT_NEAR((onAxis * s - onAxis).length(), 0.0, 1e-12);
    EXPECT_NEAR((osg::Vec3d(0, 0, 0) * s).length(), 0.0, 1e-12);
}

TEST(ManipulatorDrag, WindowToEyePointLiesOnTheNearPlaneThroughThePixel)
{
    osg::ref_ptr<osgViewer::View> view = navtest::makeView();
    const osg::Vec3d centre = M::windowToEyePoint(view.get(), 320.0f, 240.0f);
    EXPECT_NEAR(centre.x(), 0.0, 1e-9);
    EXPECT_NEAR(centre.y(), 0.0, 1e-9);
    EXPECT_NEAR(centre.z(), -1.0, 1e-9); // near plane of the test camera
    const osg::Vec3d corner = M::windowToEyePoint(view.get(), 0.0f, 0.0f);
    EXPECT_LT(corner.x(), 0.0);
    EXPECT_LT(corner.y(), 0.0);
}

TEST(ManipulatorDrag, ACoordinateSystemNodeWithoutEllipsoidIsDraggedAsFlat)
{
    // The scene's coordinate system node has no ellipsoid: not geocentric,
    // so the flat drag applies and the earth radius is never needed.
    DragRig rig(navtest::makeFlatScene(100.0).get());
    rig.place(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -80.0, 400.0));
    ASSERT_TRUE(rig.m->_csn.valid());
    ASSERT_EQ(rig.m->_csn->getEllipsoidModel(), nullptr);
    rig.press(320, 240);
    rig.dragTo(330, 240);
    EXPECT_TRUE(std::isfinite(rig.m->_center.x()));
    EXPECT_LT(rig.m->_center.x(), 0.0);
    rig.dragTo(635, 5); // off the model: the tangent point, finite
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(std::isfinite(rig.m->_center[i]));
}

TEST(ManipulatorTourism, FreeModeZoomsInStepsDownToMinusFifteenAndStops)
{
    osg::ref_ptr<M> m = new M;
    m->setTourismMode(M::TOURISM_MODE_FREE);
    EXPECT_EQ(m->getSettings()->getMinDistance(), -15.0);
    EXPECT_EQ(m->getSettings()->getMaxDistance(), DBL_MAX);
    EXPECT_DOUBLE_EQ(m->_minRotatePitch, osg::DegreesToRadians(-180.0));
    EXPECT_DOUBLE_EQ(m->_maxRotatePitch, osg::DegreesToRadians(180.0));

    m->setDistance(3.0);
    std::vector<double> steps;
    for (int i = 0; i < 400; ++i)
    {
        const double before = m->getDistance();
        m->zoom(0.0, -1.0);
        if (m->getDistance() == before)
            break;
        steps.push_back(before - m->getDistance());
    }
    EXPECT_EQ(m->getDistance(), -15.0);
    // 180 steps of 0.1 from 3 to -15; the rounding of the sum leaves the
    // last one clamped to whatever remained.
    ASSERT_GE(steps.size(), 180u);
    ASSERT_LE(steps.size(), 181u);
    for (std::size_t i = 0; i + 1 < steps.size(); ++i)
        EXPECT_NEAR(steps[i], 0.1, 1e-9) << i;
    EXPECT_LE(steps.back(), 0.1 + 1e-9);
    m->zoom(0.0, -1.0);
    EXPECT_EQ(m->getDistance(), -15.0);

    // Rotation over the horizon is allowed in free mode.
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    m->setNode(scene.get());
    m->setViewpoint(CXViewport(osg::Vec3d(), 0.0, -10.0, 50.0), 0.0);
    m->setTourismMode(M::TOURISM_MODE_FREE);
    m->rotate(0.0, osg::DegreesToRadians(30.0));
    double heading = 0, pitch = 0;
    navtest::headingPitchDegrees(*m, heading, pitch);
    EXPECT_NEAR(pitch, 20.0, 1e-9);

    // Earth mode is the state after construction; the distance is clamped
    // by the next setDistance only.
    m->setDistance(-5.0);
    m->setTourismMode(M::TOURISM_MODE_EARTH);
    EXPECT_EQ(m->getDistance(), -5.0);
    EXPECT_EQ(m->getSettings()->getMinDistance(), 1.0);
    EXPECT_DOUBLE_EQ(m->_maxRotatePitch, osg::DegreesToRadians(-1.0));
    m->zoom(0.0, 1.0);
    EXPECT_EQ(m->getDistance(), 1.0);

    // Other values do nothing.
    m->setTourismMode(static_cast<M::TourismMode>(7));
    EXPECT_EQ(m->getSettings()->getMinDistance(), 1.0);
}

TEST(ManipulatorTourism, SetTourismModeDirtiesTheSettings)
{
    osg::ref_ptr<M> m = new M;
    int reader = -1;
    m->getSettings()->sync(reader);
    m->setTourismMode(M::TOURISM_MODE_EARTH);
    EXPECT_TRUE(m->getSettings()->outOfSyncWith(reader));
}

TEST(ManipulatorPagingBlock, ChangingTwiceLeavesItAsItWas)
{
    osg::ref_ptr<M> m = new M;
    EXPECT_FALSE(m->_pagingBlocked);
    m->changeManipulatorState();
    EXPECT_TRUE(m->_pagingBlocked);
    m->changeManipulatorState();
    EXPECT_FALSE(m->_pagingBlocked);
}

TEST(ManipulatorPagingBlock, AnotherThreadMayToggleWhileEventsAreHandled)
{
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    osg::ref_ptr<osgViewer::View> view = navtest::makeView();
    navtest::RecordingAdapter aa(view.get());
    osg::ref_ptr<M> m = new M;
    m->setNode(scene.get());

    std::atomic<bool> stop{false};
    std::atomic<int> toggles{0};
    std::thread host([&] {
        while (!stop)
        {
            m->changeManipulatorState();
            ++toggles;
        }
    });
    for (int i = 0; i < 2000; ++i)
    {
        m->handle(*navtest::scrollEvent(GUIEventAdapter::SCROLL_DOWN), aa);
        m->handle(*navtest::frameEvent(), aa);
    }
    // Let the other thread run at least a few times.
    while (toggles.load() < 10)
        std::this_thread::yield();
    stop = true;
    host.join();
    // An even number of toggles leaves it off, an odd one on.
    EXPECT_EQ(m->_pagingBlocked.load(), toggles.load() % 2 == 1);
    // Every wheel event resumed what it stopped.
    EXPECT_TRUE(view->getDatabasePager()->getAcceptNewDatabaseRequests());
}
