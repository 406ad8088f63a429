// The geocentric form of the earth manipulator: the same code on the
// east-north-up frame of the ellipsoid.
#include "NavScenes.h"
#include "NavTestSupport.h"

#include <globe/EarthManipulator>
#include <globe/MapNode>

#include <gtest/gtest.h>

#include <cmath>

using M = CXEarthManipulator;
using globe::EarthManipulator;
using osgGA::GUIEventAdapter;

namespace
{

// Height of the eye over the WGS84 ellipsoid.
double eyeHeight(const M& m)
{
    double lon, lat, h;
    navtest::wgs84FromWorld(m.getMatrix().getTrans(), lon, lat, h);
    return h;
}

// The local east, north and up at a world point.
void enu(const osg::Vec3d& world, osg::Vec3d& east, osg::Vec3d& north, osg::Vec3d& up)
{
    osg::Matrixd frame;
    osg::ref_ptr<osg::EllipsoidModel> e = new osg::EllipsoidModel;
    e->computeLocalToWorldTransformFromXYZ(world.x(), world.y(), world.z(), frame);
    east.set(frame(0, 0), frame(0, 1), frame(0, 2));
    north.set(frame(1, 0), frame(1, 1), frame(1, 2));
    up.set(frame(2, 0), frame(2, 1), frame(2, 2));
}

// A globe manipulator on an empty map node: geocentric, nothing to hit.
osg::ref_ptr<EarthManipulator> onEmptyMap(osg::ref_ptr<globe::MapNode>& map)
{
    map = new globe::MapNode;
    osg::ref_ptr<EarthManipulator> m = new EarthManipulator;
    m->setNode(map.get());
    return m;
}

} // namespace

TEST(GlobeManipulator, IsAnEarthManipulatorWithTheSameSettingsAndBindings)
{
    osg::ref_ptr<EarthManipulator> m = new EarthManipulator;
    EXPECT_STREQ(m->className(), "EarthManipulator");
    M* base = m.get();
    EXPECT_EQ(base->getSettings()->getBindings().size(), 16u);
    EXPECT_EQ(base->getSettings()->getAction(GUIEventAdapter::DRAG, 1, 0)._type, M::ACTION_PAN);
    osg::ref_ptr<EarthManipulator> copy = new EarthManipulator(*m);
    EXPECT_NE(copy->getSettings(), m->getSettings());
    EXPECT_STREQ(copy->className(), "EarthManipulator");
}

TEST(GlobeManipulator, GeographicConversionsRoundTrip)
{
    osg::ref_ptr<EarthManipulator> m = new EarthManipulator;
    for (const osg::Vec3d& g : {osg::Vec3d(116.0, 40.0, 50.0), osg::Vec3d(-90.0, 0.0, 0.0), osg::Vec3d(179.5, -60.0, 1e6)})
    {
        const osg::Vec3d world = m->geographicToWorld(g.x(), g.y(), g.z());
        EXPECT_NEAR((world - navtest::wgs84ToWorld(g.x(), g.y(), g.z())).length(), 0.0, 1e-6);
        double lon, lat, h;
        m->worldToGeographic(world, lon, lat, h);
        // (The ellipsoid's inverse is a one-step approximation: a few
        // millimetres at 1000 km.)
        EXPECT_NEAR(lon, g.x(), 1e-9);
        EXPECT_NEAR(lat, g.y(), 1e-7);
        EXPECT_NEAR(h, g.z(), 0.02);
    }
    const CXViewport vp = m->createViewpoint(109.0, 32.0, 10.0, 15.0, -90.0, 20928182.0);
    EXPECT_TRUE(vp.isValid());
    EXPECT_EQ(vp.getHeading(), 15.0);
    EXPECT_EQ(vp.getPitch(), -90.0);
    EXPECT_EQ(vp.getRange(), 20928182.0);
    double lon, lat, h;
    m->getGeographicFocalPoint(vp, lon, lat, h);
    EXPECT_NEAR(lon, 109.0, 1e-9);
    EXPECT_NEAR(lat, 32.0, 1e-9);
    EXPECT_NEAR(h, 10.0, 1e-6);
}

TEST(GlobeManipulator, TheLocalFrameIsEastNorthUpAndTheBaseFrameTheIdentity)
{
    osg::ref_ptr<globe::MapNode> map;
    osg::ref_ptr<EarthManipulator> m = onEmptyMap(map);
    EXPECT_TRUE(m->_isGeocentric);
    const osg::Vec3d p = navtest::wgs84ToWorld(30.0, 45.0);
    m->setCenter(p);
    osg::Vec3d east, north, up;
    enu(p, east, north, up);
    EXPECT_NEAR((m->getUpVector(m->_centerLocalToWorld) - up).length(), 0.0, 1e-12);
    EXPECT_NEAR((m->getFrontVector(m->_centerLocalToWorld) - north).length(), 0.0, 1e-12);
    // The centre rotation is the frame's rotation.
    const osg::Quat q = m->makeCenterRotation(p);
    EXPECT_NEAR((osg::Vec3d(0, 0, 1) * osg::Matrixd(q) - up).length(), 0.0, 1e-9);
    EXPECT_NEAR((osg::Vec3d(0, 1, 0) * osg::Matrixd(q) - north).length(), 0.0, 1e-9);

    // The same scene with the plain manipulator keeps the identity.
    osg::ref_ptr<M> plain = new M;
    plain->setNode(map.get());
    EXPECT_TRUE(plain->_isGeocentric);
    plain->setCenter(p);
    EXPECT_TRUE(plain->_centerLocalToWorld.isIdentity());
}

TEST(GlobeManipulator, HomeOnTheEllipsoidIsLongitudeMinus90AtThreeRadii)
{
    osg::ref_ptr<globe::MapNode> map;
    osg::ref_ptr<EarthManipulator> m = onEmptyMap(map);
    ASSERT_TRUE(m->_homeViewpoint.isSet());
    double lon, lat, h;
    m->getGeographicFocalPoint(m->_homeViewpoint.get(), lon, lat, h);
    EXPECT_NEAR(lon, -90.0, 1e-9);
    EXPECT_NEAR(lat, 0.0, 1e-9);
    EXPECT_NEAR(h, 0.0, 1e-6);
    // About three radii up (the curvature adds a little to range * sin(89)).
    EXPECT_NEAR(eyeHeight(*m), 3.0 * osg::WGS_84_RADIUS_EQUATOR * std::sin(osg::DegreesToRadians(89.0)),
                0.001 * 3.0 * osg::WGS_84_RADIUS_EQUATOR);
    EXPECT_NEAR(m->getViewpoint().getPitch(), -89.0, 1e-7);
    EXPECT_NEAR(m->getViewpoint().getRange(), 3.0 * osg::WGS_84_RADIUS_EQUATOR, 1e-3);
}

TEST(GlobeManipulator, HeadingZeroLooksNorthAtAnyLongitude)
{
    osg::ref_ptr<globe::MapNode> map;
    osg::ref_ptr<EarthManipulator> m = onEmptyMap(map);
    for (double lon : {-179.0, -120.0, -45.0, 0.0, 45.0, 109.0, 170.0})
        for (double lat : {-60.0, 0.0, 32.0, 75.0})
        {
            m->setViewpoint(m->createViewpoint(lon, lat, 0.0, 0.0, -45.0, 10000.0), 0.0);
            osg::Vec3d east, north, up;
            enu(m->_center, east, north, up);
            const osg::Matrixd cam = m->getMatrix();
            const osg::Vec3d look = -m->getUpVector(cam);
            EXPECT_GT(look * north, 0.7) << lon << " " << lat;
            EXPECT_NEAR(look * east, 0.0, 1e-9) << lon << " " << lat;
            EXPECT_NEAR(look * up, -std::sin(osg::DegreesToRadians(45.0)), 1e-9) << lon << " " << lat;
            const CXViewport vp = m->getViewpoint();
            EXPECT_NEAR(vp.getHeading(), 0.0, 1e-7);
            EXPECT_NEAR(vp.getPitch(), -45.0, 1e-7);
            // Looking straight down, the top of the screen is north.
            m->setViewpoint(m->createViewpoint(lon, lat, 0.0, 0.0, -89.9, 10000.0), 0.0);
            const osg::Vec3d screenUp = m->getFrontVector(m->getMatrix());
            EXPECT_GT(screenUp * north, 0.99) << lon << " " << lat;
            // Heading 90 looks east.
            m->setViewpoint(m->createViewpoint(lon, lat, 0.0, 90.0, -30.0, 10000.0), 0.0);
            EXPECT_GT(-m->getUpVector(m->getMatrix()) * east, 0.8) << lon << " " << lat;
        }
}

TEST(GlobeManipulator, RotationTurnsAboutTheLocalVertical)
{
    osg::ref_ptr<globe::MapNode> map;
    osg::ref_ptr<EarthManipulator> m = onEmptyMap(map);
    m->setViewpoint(m->createViewpoint(116.0, 40.0, 0.0, 10.0, -40.0, 5000.0), 0.0);
    const osg::Vec3d centre = m->_center;
    const double h0 = eyeHeight(*m);
    // dx adds to the heading.
    m->rotate(osg::DegreesToRadians(-30.0), 0.0);
    const CXViewport vp = m->getViewpoint();
    EXPECT_NEAR(vp.getHeading(), -20.0, 1e-7);
    EXPECT_NEAR(vp.getPitch(), -40.0, 1e-7);
    EXPECT_EQ(m->_center, centre);
    EXPECT_NEAR(eyeHeight(*m), h0, 1e-3);
}

TEST(GlobeManipulator, PanningAt116E40NForAWholeDragKeepsTheEyeHeightWithinOnePercent)
{
    osg::ref_ptr<globe::MapNode> map;
    osg::ref_ptr<EarthManipulator> m = onEmptyMap(map);
    osg::ref_ptr<osgViewer::View> view = navtest::makeView();
    navtest::RecordingAdapter aa(view.get());
    for (double range : {2000.0, 200000.0, 2.0e6})
    {
        m->setViewpoint(m->createViewpoint(116.0, 40.0, 0.0, 25.0, -50.0, range), 0.0);
        const double h0 = eyeHeight(*m);
        double lon0, lat0, hc;
        m->getGeographicFocalPoint(m->getViewpoint(), lon0, lat0, hc);
        double t = osg::Timer::instance()->time_s();
        m->handle(*navtest::mouseEvent(GUIEventAdapter::PUSH, 100, 100, 1, t, 1), aa);
        for (int i = 1; i <= 40; ++i)
        {
            m->handle(*navtest::mouseEvent(GUIEventAdapter::DRAG, 100.0f + 11.0f * i, 100.0f + 8.0f * i, 1, t + 0.02 * i),
                      aa);
            EXPECT_NEAR(eyeHeight(*m), h0, 0.01 * h0) << range << " " << i;
        }
        m->handle(*navtest::mouseEvent(GUIEventAdapter::RELEASE, 540, 420, 0, t + 1.0, 1), aa);
        double lon, lat, h;
        m->getGeographicFocalPoint(m->getViewpoint(), lon, lat, h);
        // It moved along the surface, kept the heading and stayed on it.
        EXPECT_GT(std::fabs(lon - lon0) + std::fabs(lat - lat0), 1e-4) << range;
        EXPECT_NEAR(h, 0.0, 1e-3) << range;
        EXPECT_NEAR(m->getViewpoint().getHeading(), 25.0, 1e-6) << range;
        EXPECT_NEAR(m->getViewpoint().getPitch(), -50.0, 1e-6) << range;
    }
}

TEST(GlobeManipulator, AFlightToALongitudeLatitudeViewpointEndsOnIt)
{
    osg::ref_ptr<globe::MapNode> map;
    osg::ref_ptr<EarthManipulator> m = onEmptyMap(map);
    const CXViewport target = m->createViewpoint(109.0, 32.0, 10.0, 30.0, -60.0, 20928182.0);
    m->setViewpoint(target, 3.0);
    ASSERT_TRUE(m->_settingViewpoint);
    // From longitude -90 to 109: the short way round, west across 180.
    EXPECT_NEAR(m->_deltaFocalPoint.x(), -161.0, 1e-6);
    EXPECT_GT(m->_arcHeight, 0.0);

    // Half way the focal point is over the Pacific, on the surface path.
    m->_timeNow = m->_transitionStartTime + 1.5;
    m->updateSetViewpoint();
    double lon, lat, h;
    m->getGeographicFocalPoint(m->getViewpoint(), lon, lat, h);
    EXPECT_TRUE(lon > 109.0 || lon < -90.0) << lon;

    m->_timeNow = m->_transitionStartTime + 3.5;
    m->updateSetViewpoint();
    EXPECT_FALSE(m->_settingViewpoint);
    const CXViewport vp = m->getViewpoint();
    EXPECT_NEAR((vp.getFocalPoint() - target.getFocalPoint()).length(), 0.0, 1.0);
    EXPECT_NEAR(vp.getHeading(), 30.0, 0.01);
    EXPECT_NEAR(vp.getPitch(), -60.0, 0.01);
    EXPECT_NEAR(vp.getRange(), 20928182.0, 1.0);
    m->getGeographicFocalPoint(vp, lon, lat, h);
    EXPECT_NEAR(lon, 109.0, 1e-6);
    EXPECT_NEAR(lat, 32.0, 1e-6);
    EXPECT_NEAR(h, 10.0, 1e-3);
}

TEST(GlobeManipulator, AFlightDrivenByFramesEndsOnItsTarget)
{
    osg::ref_ptr<globe::MapNode> map;
    osg::ref_ptr<EarthManipulator> m = onEmptyMap(map);
    osg::ref_ptr<osgViewer::View> view = navtest::makeView();
    navtest::RecordingAdapter aa(view.get());
    const CXViewport target = m->createViewpoint(2.35, 48.85, 0.0, -20.0, -35.0, 12000.0);
    m->setViewpoint(target, 0.3);
    const double start = osg::Timer::instance()->time_s();
    while (m->_settingViewpoint && osg::Timer::instance()->time_s() - start < 5.0)
    {
        m->handle(*navtest::frameEvent(), aa);
        navtest::sleepSeconds(0.01);
    }
    ASSERT_FALSE(m->_settingViewpoint);
    const CXViewport vp = m->getViewpoint();
    EXPECT_NEAR((vp.getFocalPoint() - target.getFocalPoint()).length(), 0.0, 1.0);
    EXPECT_NEAR(vp.getHeading(), -20.0, 0.01);
    EXPECT_NEAR(vp.getPitch(), -35.0, 0.01);
    EXPECT_NEAR(vp.getRange(), 12000.0, 1.0);
}

TEST(GlobeManipulator, AFlatSceneKeepsTheIdentityFrame)
{
    osg::ref_ptr<osg::CoordinateSystemNode> flat = navtest::makeFlatScene();
    osg::ref_ptr<EarthManipulator> m = new EarthManipulator;
    m->setNode(flat.get());
    EXPECT_FALSE(m->_isGeocentric);
    EXPECT_EQ(m->getEllipsoidModel(), nullptr);
    m->setViewpoint(CXViewport(osg::Vec3d(10, 20, 0), 0.0, -45.0, 300.0), 0.0);
    EXPECT_TRUE(m->_centerLocalToWorld.isIdentity());
    m->pan(0.1, 0.0);
    EXPECT_NEAR(m->_center.x(), 10.0 - 0.1 * 0.3f * 300.0, 1e-6);
    EXPECT_NEAR(m->_center.z(), 0.0, 1e-9);
}

TEST(GlobeManipulator, TheGrabbedLongitudeAndLatitudeStayUnderThePointer)
{
    osg::ref_ptr<osgViewer::View> view = navtest::makeView();
    navtest::RecordingAdapter aa(view.get());
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(navtest::makeGlobeScene().get());
    osg::ref_ptr<EarthManipulator> m = new EarthManipulator;
    m->getSettings()->bindMouse(M::ACTION_EARTH_DRAG, GUIEventAdapter::LEFT_MOUSE_BUTTON);
    m->setNode(root.get());
    ASSERT_TRUE(m->_isGeocentric);

    for (double range : {3.0e6, 2.0e7})
    {
        m->setViewpoint(m->createViewpoint(116.0, 40.0, 0.0, 0.0, -89.0, range), 0.0);
        navtest::syncCamera(view.get(), m.get());
        const osg::Vec2f start(300, 260);
        osg::Vec3d grabbed;
        ASSERT_TRUE(m->screenToWorld(start.x(), start.y(), view.get(), grabbed));
        double t = 1.0;
        m->handle(*navtest::mouseEvent(GUIEventAdapter::PUSH, start.x(), start.y(), 1, t, 1), aa);
        navtest::syncCamera(view.get(), m.get());
        for (int i = 1; i <= 12; ++i)
        {
            const osg::Vec2f p = start + osg::Vec2f(9.0f * i, -6.0f * i);
            m->handle(*navtest::mouseEvent(GUIEventAdapter::DRAG, p.x(), p.y(), 1, t += 0.05), aa);
            navtest::syncCamera(view.get(), m.get());
            osg::Vec3d under;
            ASSERT_TRUE(m->screenToWorld(p.x(), p.y(), view.get(), under));
            double lon0, lat0, h0, lon1, lat1, h1;
            navtest::wgs84FromWorld(grabbed, lon0, lat0, h0);
            navtest::wgs84FromWorld(under, lon1, lat1, h1);
            // Within a few hundredths of a degree (a pixel is about 0.02
            // degrees at the nearer range).
            const double tolerance = range < 1e7 ? 0.05 : 0.3;
            EXPECT_NEAR(lon1, lon0, tolerance) << range << " " << i;
            EXPECT_NEAR(lat1, lat0, tolerance) << range << " " << i;
        }
        m->handle(*navtest::mouseEvent(GUIEventAdapter::RELEASE, 400, 200, 0, t + 1.0, 1), aa);
        // The heading is kept while dragging.
        EXPECT_NEAR(m->getViewpoint().getHeading(), 0.0, 0.5) << range;
    }
}
