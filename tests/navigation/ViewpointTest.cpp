// Viewpoint placement and flights of the earth manipulator.
#include "NavTestSupport.h"

#include <navigation/CXEarthManipulator>

#include <osg/Geode>
#include <osg/Geometry>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using M = CXEarthManipulator;
using osgGA::GUIEventAdapter;

namespace
{

double smoothStep(double x)
{
    return x * x * (3.0 - 2.0 * x);
}

// A manipulator bound to an empty group: established, nothing to hit.
osg::ref_ptr<M> boundManipulator(osg::ref_ptr<osg::Group>& scene)
{
    scene = new osg::Group;
    osg::ref_ptr<M> m = new M;
    m->setNode(scene.get());
    return m;
}

// Runs one flight step at fraction t of the flight.
CXViewport stepAt(M& m, double t)
{
    m._timeNow = m._transitionStartTime + t * m._transitionDuration;
    if (t >= 1.0)
        m._timeNow += 1.0; // past the end, whatever the rounding
    m.updateSetViewpoint();
    return m.getViewpoint();
}

} // namespace

TEST(ManipulatorViewpoint, ImmediatePlacementClampsAZeroPitchToMinusTen)
{
    osg::ref_ptr<osg::Group> scene;
    osg::ref_ptr<M> m = boundManipulator(scene);
    m->setViewpoint(CXViewport(osg::Vec3d(10, 20, 0), 0.0, 0.0, 500.0), 0.0);
    const CXViewport vp = m->getViewpoint();
    EXPECT_NEAR(vp.getPitch(), -10.0, 1e-9);
    EXPECT_NEAR(vp.getHeading(), 0.0, 1e-9);
    EXPECT_NEAR(vp.getRange(), 500.0, 1e-9);
    EXPECT_EQ(vp.getFocalPoint(), osg::Vec3d(10, 20, 0));
    EXPECT_FALSE(m->_settingViewpoint);
    EXPECT_EQ(m->_previousUp, osg::Vec3d(0, 0, 1));

    // And the other way: below the minimum.
    m->setViewpoint(CXViewport(osg::Vec3d(10, 20, 0), 0.0, -95.0, 500.0), 0.0);
    EXPECT_NEAR(m->getViewpoint().getPitch(), -89.9, 1e-9);
}

TEST(ManipulatorViewpoint, GetViewpointIsValidWithAnEmptyName)
{
    osg::ref_ptr<osg::Group> scene;
    osg::ref_ptr<M> m = boundManipulator(scene);
    CXViewport target(osg::Vec3d(1, 2, 3), -120.0, -35.0, 42.0);
    target.setName("named");
    m->setViewpoint(target, 0.0);
    const CXViewport vp = m->getViewpoint();
    EXPECT_TRUE(vp.isValid());
    EXPECT_TRUE(vp.getName().empty());
    EXPECT_NEAR(vp.getHeading(), -120.0, 1e-9);
    EXPECT_NEAR(vp.getPitch(), -35.0, 1e-9);
    EXPECT_NEAR(vp.getRange(), 42.0, 1e-9);
}

TEST(ManipulatorViewpoint, ImmediatePlacementSnapsTheFocalPointToTheGround)
{
    osg::ref_ptr<osg::Geode> ground = new osg::Geode;
    ground->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(-1000, -1000, 25), osg::Vec3(2000, 0, 0),
                                                        osg::Vec3(0, 2000, 0)));
    osg::ref_ptr<M> m = new M;
    m->setNode(ground.get());
    m->setViewpoint(CXViewport(osg::Vec3d(100, 100, 0), 0.0, -45.0, 300.0), 0.0);
    EXPECT_NEAR(m->_center.z(), 25.0, 1e-9);
    EXPECT_NEAR(m->_center.x(), 100.0, 1e-9);
}

TEST(ManipulatorViewpoint, BeforeEstablishmentOnlyTheLastRequestWaits)
{
    osg::ref_ptr<M> m = new M;
    m->setViewpoint(CXViewport(osg::Vec3d(1, 1, 0), 0.0, -45.0, 100.0), 0.0);
    m->setViewpoint(CXViewport(osg::Vec3d(5, 6, 0), 30.0, -60.0, 200.0), 2.0);
    EXPECT_TRUE(m->_pendingViewpointSet);
    EXPECT_EQ(m->_pendingViewpoint.getFocalPoint(), osg::Vec3d(5, 6, 0));
    EXPECT_EQ(m->_pendingViewpointDuration, 2.0);
    EXPECT_EQ(m->_center, osg::Vec3d(0, 0, 0));

    // setNode starts over with reinitialize(), which drops the request: the
    // scene's bound gives the home viewpoint instead.
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    m->setNode(scene.get());
    EXPECT_FALSE(m->_pendingViewpointSet);
    ASSERT_TRUE(m->_homeViewpoint.isSet());
    EXPECT_NE(m->_homeViewpoint.get().getFocalPoint(), osg::Vec3d(5, 6, 0));
}

TEST(ManipulatorViewpoint, APendingRequestBecomesTheHomeViewpointOnEstablishment)
{
    // A request made while no scene is bound waits; establishing then finds
    // it (here the scene is put in place without setNode, which would
    // reinitialise and drop the request).
    osg::ref_ptr<M> m = new M;
    m->setViewpoint(CXViewport(osg::Vec3d(5, 6, 0), 30.0, -60.0, 200.0), 2.0);
    ASSERT_TRUE(m->_pendingViewpointSet);

    osg::ref_ptr<osg::Group> scene = new osg::Group;
    m->_node = scene.get();
    m->_needsEstablish = true;
    ASSERT_TRUE(m->established());
    EXPECT_FALSE(m->_pendingViewpointSet);
    ASSERT_TRUE(m->_homeViewpoint.isSet());
    EXPECT_EQ(m->_homeViewpoint.get().getFocalPoint(), osg::Vec3d(5, 6, 0));
    EXPECT_EQ(m->_homeViewpointDuration, 2.0);
    // It then flies there with the same duration.
    EXPECT_TRUE(m->_settingViewpoint);
    EXPECT_EQ(m->_transitionDuration, 2.0);
}

TEST(ManipulatorViewpoint, TheFrameStepAppliesAPendingRequestOnceANodeIsThere)
{
    osg::ref_ptr<M> m = new M;
    navtest::RecordingAdapter aa;
    m->setViewpoint(CXViewport(osg::Vec3d(5, 6, 0), 30.0, -60.0, 200.0), 0.0);
    ASSERT_TRUE(m->_pendingViewpointSet);
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    m->_node = scene.get();
    EXPECT_FALSE(m->handle(*navtest::frameEvent(), aa));
    EXPECT_FALSE(m->_pendingViewpointSet);
    EXPECT_EQ(aa.redraws, 1);
    EXPECT_EQ(m->getViewpoint().getFocalPoint(), osg::Vec3d(5, 6, 0));
    EXPECT_NEAR(m->getViewpoint().getRange(), 200.0, 1e-9);
}

TEST(ManipulatorViewpoint, SameFocalPointFlightHasNoArc)
{
    osg::ref_ptr<osg::Group> scene;
    osg::ref_ptr<M> m = boundManipulator(scene);
    m->setViewpoint(CXViewport(osg::Vec3d(50, 50, 0), 0.0, -45.0, 1000.0), 0.0);
    m->setViewpoint(CXViewport(osg::Vec3d(50, 50, 0), 90.0, -80.0, 50.0), 1.0);
    EXPECT_TRUE(m->_settingViewpoint);
    EXPECT_EQ(m->_arcHeight, 0.0);
    EXPECT_EQ(m->_deltaFocalPoint, osg::Vec3d(0, 0, 0));
    EXPECT_EQ(m->_task->_type, M::TASK_NONE);
}

TEST(ManipulatorViewpoint, HeadingFrom170ToMinus170GoesThrough180)
{
    osg::ref_ptr<osg::Group> scene;
    osg::ref_ptr<M> m = boundManipulator(scene);
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 170.0, -45.0, 100.0), 0.0);
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), -170.0, -45.0, 100.0), 1.0);
    EXPECT_NEAR(m->_deltaHeading, 20.0, 1e-9);
    const CXViewport mid = stepAt(*m, 0.5);
    EXPECT_NEAR(std::fabs(mid.getHeading()), 180.0, 1e-6);
    const CXViewport end = stepAt(*m, 1.0);
    EXPECT_NEAR(end.getHeading(), -170.0, 1e-6);
    EXPECT_FALSE(m->_settingViewpoint);
}

TEST(ManipulatorViewpoint, HeadingsOfManyTurnsWrapAtOnceAndEndlessOnesDoNotHang)
{
    osg::ref_ptr<osg::Group> scene;
    osg::ref_ptr<M> m = boundManipulator(scene);
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 10.0, -45.0, 100.0), 0.0);
    // A million turns and 30 degrees: the flight turns by 20 degrees.
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 360.0e6 + 30.0, -45.0, 100.0), 1.0);
    EXPECT_NEAR(m->_deltaHeading, 20.0, 1e-6);
    // Beyond any count of turns (and not finite at all) the request returns;
    // the heading it asks for is kept as it came.
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 1.0e300, -45.0, 100.0), 1.0);
    EXPECT_TRUE(std::isfinite(m->_deltaHeading));
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), std::numeric_limits<double>::infinity(), -45.0, 100.0), 1.0);
    EXPECT_TRUE(std::isinf(m->_deltaHeading));
}

TEST(ManipulatorViewpoint, OnAnEllipsoidSceneTheWorldXOfAFlightIsWrappedLikeALongitude)
{
    // The plain manipulator interpolates world coordinates, and on a scene
    // with an ellipsoid still wraps x into (-180, 180]: a flight from x = 0
    // to x = 500 ends at x = 140. (The globe's manipulator interpolates real
    // longitudes, where the wrap is the short way round.)
    osg::ref_ptr<osg::CoordinateSystemNode> csn = new osg::CoordinateSystemNode;
    csn->setEllipsoidModel(new osg::EllipsoidModel);
    osg::ref_ptr<M> m = new M;
    m->setNode(csn.get());
    ASSERT_TRUE(m->_isGeocentric);
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -45.0, 100.0), 0.0);
    m->setViewpoint(CXViewport(osg::Vec3d(500, 0, 0), 0.0, -45.0, 100.0), 1.0);
    EXPECT_NEAR(m->_deltaFocalPoint.x(), 140.0, 1e-9);
    EXPECT_NEAR(stepAt(*m, 1.0).getFocalPoint().x(), 140.0, 1e-9);

    // Without an ellipsoid there is no wrap.
    osg::ref_ptr<osg::Group> flat;
    osg::ref_ptr<M> f = boundManipulator(flat);
    f->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -45.0, 100.0), 0.0);
    f->setViewpoint(CXViewport(osg::Vec3d(500, 0, 0), 0.0, -45.0, 100.0), 1.0);
    EXPECT_NEAR(f->_deltaFocalPoint.x(), 500.0, 1e-9);
}

TEST(ManipulatorViewpoint, ArcsCanBeSwitchedOffAtAnyDistance)
{
    osg::ref_ptr<osg::Group> scene;
    osg::ref_ptr<M> m = boundManipulator(scene);
    m->getSettings()->setArcViewpointTransitions(false);
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -45.0, 100.0), 0.0);
    m->setViewpoint(CXViewport(osg::Vec3d(5.0e6, 0, 0), 0.0, -45.0, 100.0), 1.0);
    EXPECT_EQ(m->_arcHeight, 0.0);
    const CXViewport mid = stepAt(*m, 0.5);
    EXPECT_NEAR(mid.getRange(), 100.0, 1e-6);
    EXPECT_NEAR(mid.getFocalPoint().x(), 2.5e6, 1e-3);
}

TEST(ManipulatorViewpoint, TheArcAddsItsWholeHeightHalfWay)
{
    osg::ref_ptr<osg::Group> scene;
    osg::ref_ptr<M> m = boundManipulator(scene);
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -90.0, 1000.0), 0.0);
    m->setViewpoint(CXViewport(osg::Vec3d(500000.0, 0, 0), 0.0, -90.0, 3000.0), 4.0);
    // de = 500000, dh = 2000: the arc is their difference.
    // (The start pitch is read back from the matrix, so h0 is 1000 to
    // about 1e-6.)
    EXPECT_NEAR(m->_arcHeight, 498000.0, 1e-2);
    const double top = 2.0 * (1000.0 + 3000.0) + m->_arcHeight;
    EXPECT_NEAR(m->_transitionAccel, std::log10(std::fabs(top - 1000.0) / 100000.0), 1e-8);
    EXPECT_NEAR(m->_transitionAccel2, -std::log10(std::fabs(top - 3000.0) / 100000.0), 1e-8);

    // Find the time at which the time curve gives tp = 0.5: by symmetry of
    // the two halves around t = 0.5 only when both accelerations mirror, so
    // search it.
    double lo = 0.0, hi = 1.0;
    for (int i = 0; i < 80; ++i)
    {
        const double t = 0.5 * (lo + hi);
        const double x = stepAt(*m, t).getFocalPoint().x() / 500000.0;
        (x < 0.5 ? lo : hi) = t;
    }
    const CXViewport mid = stepAt(*m, 0.5 * (lo + hi));
    EXPECT_NEAR(mid.getFocalPoint().x(), 250000.0, 1e-3);
    // The straight value there is 1000 + 2000 * 0.5 = 2000.
    EXPECT_NEAR(mid.getRange() - 2000.0, m->_arcHeight, 1e-3);
}

TEST(ManipulatorViewpoint, SmallHeightChangeGivesAPureSmoothStep)
{
    osg::ref_ptr<osg::Group> scene;
    osg::ref_ptr<M> m = boundManipulator(scene);
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -90.0, 1000.0), 0.0);
    // |dh| = 99000 <= 100000, no lateral motion: no arc, no acceleration.
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -90.0, 100000.0), 2.0);
    EXPECT_EQ(m->_arcHeight, 0.0);
    EXPECT_EQ(m->_transitionAccel, 0.0);
    for (double t : {0.1, 0.25, 0.5, 0.8})
        EXPECT_NEAR(stepAt(*m, t).getRange(), 1000.0 + 99000.0 * smoothStep(t), 1e-6) << t;

    // A large change of height alone is accelerated: log10(dh / 100000)
    // when that is at least 1, and nothing below.
    const double now = m->getViewpoint().getRange();
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -90.0, 2.1e6), 2.0);
    EXPECT_EQ(m->_arcHeight, 0.0);
    EXPECT_NEAR(m->_transitionAccel, std::log10((2.1e6 - now) / 100000.0), 1e-6);
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -90.0, now + 900000.0), 2.0);
    EXPECT_EQ(m->_transitionAccel, 0.0); // log10(9) < 1 is dropped
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -90.0, 3.0e6), 0.0);
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -90.0, 100.0), 2.0);
    EXPECT_NEAR(m->_transitionAccel, -std::log10((3.0e6 - 100.0) / 100000.0), 1e-6); // downwards: -log10(-q)
}

TEST(ManipulatorViewpoint, AFlightEndsOnItsTargetAndAZeroDurationRequestDoesNotEndIt)
{
    osg::ref_ptr<osg::Group> scene;
    osg::ref_ptr<M> m = boundManipulator(scene);
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 10.0, -45.0, 100.0), 0.0);
    m->setViewpoint(CXViewport(osg::Vec3d(300, -200, 0), 80.0, -70.0, 900.0), 1.0);
    m->setViewpoint(CXViewport(osg::Vec3d(7, 7, 0), 0.0, -45.0, 10.0), 0.0);
    EXPECT_TRUE(m->_settingViewpoint);

    const CXViewport end = stepAt(*m, 1.5);
    EXPECT_FALSE(m->_settingViewpoint);
    EXPECT_NEAR(end.getFocalPoint().x(), 300.0, 1e-9);
    EXPECT_NEAR(end.getFocalPoint().y(), -200.0, 1e-9);
    EXPECT_NEAR(end.getHeading(), 80.0, 1e-9);
    EXPECT_NEAR(end.getPitch(), -70.0, 1e-9);
    EXPECT_NEAR(end.getRange(), 900.0, 1e-6);

    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -45.0, 100.0), 1.0);
    m->cancelViewpointTransition();
    EXPECT_FALSE(m->_settingViewpoint);
}

TEST(ManipulatorViewpoint, FramesDriveAFlightInRealTime)
{
    osg::ref_ptr<osg::Group> scene;
    osg::ref_ptr<M> m = boundManipulator(scene);
    navtest::RecordingAdapter aa(navtest::makeView().get());
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -45.0, 100.0), 0.0);
    m->setViewpoint(CXViewport(osg::Vec3d(100, 0, 0), 0.0, -45.0, 200.0), 0.2);
    const double start = osg::Timer::instance()->time_s();
    int frames = 0;
    while (m->_settingViewpoint && osg::Timer::instance()->time_s() - start < 5.0)
    {
        m->handle(*navtest::frameEvent(), aa);
        ++frames;
        navtest::sleepSeconds(0.01);
    }
    EXPECT_FALSE(m->_settingViewpoint);
    EXPECT_GT(frames, 5);
    EXPECT_FALSE(aa.lastContinuous);
    EXPECT_NEAR(m->getViewpoint().getFocalPoint().x(), 100.0, 1e-9);
    EXPECT_NEAR(m->getViewpoint().getRange(), 200.0, 1e-6);
}

TEST(ManipulatorViewpoint, HomeWithoutAHomeViewpointChangesNothing)
{
    osg::ref_ptr<M> m = new M;
    m->home(0.0);
    EXPECT_FALSE(m->_pendingViewpointSet);
    EXPECT_FALSE(m->_settingViewpoint);

    osg::ref_ptr<osg::Group> scene;
    m = boundManipulator(scene);
    m->setViewpoint(CXViewport(osg::Vec3d(3, 4, 0), 20.0, -30.0, 70.0), 0.0);
    m->_homeViewpoint.unset();
    const osg::Matrixd before = m->getMatrix();
    navtest::RecordingAdapter aa;
    m->home(*navtest::frameEvent(), aa);
    EXPECT_EQ(aa.redraws, 1);
    EXPECT_EQ(m->getMatrix(), before);
    EXPECT_TRUE(m->handleAction(M::Action(M::ACTION_HOME), 0, 0, 0));

    m->setHomeViewpoint(CXViewport(osg::Vec3d(9, 9, 0), 0.0, -50.0, 30.0), 0.0);
    m->home(0.0);
    EXPECT_NEAR(m->getViewpoint().getRange(), 30.0, 1e-9);
    EXPECT_EQ(m->getViewpoint().getFocalPoint(), osg::Vec3d(9, 9, 0));
}

TEST(ManipulatorViewpoint, ComputeHomePositionLooksAtTheBoundFromTheSouth)
{
    osg::ref_ptr<M> m = new M;
    osg::Vec3d eye0, center0, up0;
    m->getHomePosition(eye0, center0, up0);
    m->computeHomePosition(); // no node: nothing
    osg::Vec3d eye, center, up;
    m->getHomePosition(eye, center, up);
    EXPECT_EQ(eye, eye0);
    EXPECT_EQ(center, center0);

    osg::ref_ptr<osg::Geode> box = new osg::Geode;
    box->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(0, 0, 0), osg::Vec3(200, 0, 0), osg::Vec3(0, 200, 0)));
    m->setNode(box.get());
    m->computeHomePosition();
    m->getHomePosition(eye, center, up);
    const osg::BoundingSphere& bs = box->getBound();
    EXPECT_NEAR(center.x(), bs.center().x(), 1e-4);
    EXPECT_NEAR(eye.y(), bs.center().y() - 3.5 * bs.radius(), 1e-2);
    EXPECT_NEAR(eye.z(), bs.center().z() + 0.0001 * bs.radius(), 1e-4);
    EXPECT_EQ(up, osg::Vec3d(0, 0, 1));
}
