// Near and far planes over the globe, from the rule and through a real cull
// traversal of a camera, without a window.
#include "EarthPoints.h"

#include <globe/AutoClipPlaneCullCallback>
#include <globe/MapNode>

#include <gtest/gtest.h>
#include <osg/Camera>
#include <osg/Geode>
#include <osg/MatrixTransform>
#include <osg/ShapeDrawable>
#include <osgUtil/CullVisitor>
#include <osgUtil/RenderStage>
#include <osgUtil/StateGraph>

#include <cmath>
#include <limits>
#include <vector>

namespace
{

osg::Vec3d upAt(double lonDeg, double latDeg)
{
    return cxtest::wgs84().computeLocalUpVector(cxtest::worldOf(lonDeg, latDeg, 0.0).x(),
                                                cxtest::worldOf(lonDeg, latDeg, 0.0).y(),
                                                cxtest::worldOf(lonDeg, latDeg, 0.0).z());
}

// True when the segment from `from` to `to` passes through the ellipsoid's
// inside (in the space where the ellipsoid is the unit sphere).
bool segmentEntersEllipsoid(const osg::Vec3d& from, const osg::Vec3d& to)
{
    const double a = cxtest::wgs84().getRadiusEquator();
    const double b = cxtest::wgs84().getRadiusPolar();
    const osg::Vec3d o(from.x() / a, from.y() / a, from.z() / b);
    const osg::Vec3d p(to.x() / a, to.y() / a, to.z() / b);
    const osg::Vec3d d = p - o;
    // |o + t d|^2 = 1 - tiny, for t in (0, 1)
    const double A = d * d;
    const double B = 2.0 * (o * d);
    const double C = o * o - (1.0 - 1e-9);
    const double disc = B * B - 4 * A * C;
    if (disc <= 0.0)
        return false;
    const double s = std::sqrt(disc);
    const double t0 = (-B - s) / (2 * A);
    const double t1 = (-B + s) / (2 * A);
    return t1 > 1e-9 && t0 < 1.0 - 1e-9;
}

struct Sampled
{
    double nearest = std::numeric_limits<double>::max();
    double farthest = 0.0;
    int count = 0;
};

// Distances from `eye` to the points of the globe in sight: the ellipsoid
// surface and ground up to `groundHeight` over it.
Sampled sampleVisibleGlobe(const osg::Vec3d& eye, double groundHeight, double stepDeg = 2.0)
{
    Sampled s;
    for (double lat = -90.0; lat <= 90.0; lat += stepDeg)
    {
        for (double lon = -180.0; lon < 180.0; lon += stepDeg)
        {
            for (double h : {0.0, groundHeight})
            {
                const osg::Vec3d p = cxtest::worldOf(lon, lat, h);
                if (segmentEntersEllipsoid(eye, p))
                    continue;
                if (h == 0.0 && (eye - p) * upAt(lon, lat) < 0.0)
                    continue; // beyond the horizon of a convex body
                const double d = (eye - p).length();
                s.nearest = std::min(s.nearest, d);
                s.farthest = std::max(s.farthest, d);
                ++s.count;
            }
        }
    }
    return s;
}

// Depth step of a 24-bit perspective depth buffer at distance z.
double depthStep(double z, double zNear, double zFar)
{
    return z * z * (zFar - zNear) / (zFar * zNear * 16777216.0);
}

// A cull traversal of `camera` as the viewer runs one: projection and view
// pushed, the camera's cull callbacks, then the pops that clamp.
osg::Matrixd cullOnce(osg::Camera* camera)
{
    osg::ref_ptr<osgUtil::CullVisitor> cv = new osgUtil::CullVisitor;
    osg::ref_ptr<osgUtil::StateGraph> graph = new osgUtil::StateGraph;
    osg::ref_ptr<osgUtil::RenderStage> stage = new osgUtil::RenderStage;
    stage->setClearMask(camera->getClearMask());
    cv->setStateGraph(graph.get());
    cv->setRenderStage(stage.get());
    cv->reset();
    cv->setCullSettings(*camera);
    cv->setTraversalMask(camera->getCullMask());
    cv->pushViewport(camera->getViewport());
    osg::ref_ptr<osg::RefMatrix> projection = new osg::RefMatrix(camera->getProjectionMatrix());
    cv->pushProjectionMatrix(projection.get());
    cv->pushModelViewMatrix(new osg::RefMatrix(camera->getViewMatrix()), osg::Transform::ABSOLUTE_RF);
    if (camera->getCullCallback())
        camera->getCullCallback()->run(camera, cv.get());
    else
        cv->traverse(*camera);
    cv->popModelViewMatrix();
    cv->popProjectionMatrix();
    cv->popViewport();
    // As the scene view does after the traversal: the camera's own matrix is
    // clamped to what was measured.
    if (cv->getComputeNearFarMode() != osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR &&
        cv->getCalculatedFarPlane() >= cv->getCalculatedNearPlane())
    {
        osgUtil::CullVisitor::value_type zNear = cv->getCalculatedNearPlane();
        osgUtil::CullVisitor::value_type zFar = cv->getCalculatedFarPlane();
        cv->clampProjectionMatrix(camera->getProjectionMatrix(), zNear, zFar);
    }
    return *projection;
}

void nearFarOf(const osg::Matrixd& projection, double& zNear, double& zFar)
{
    double l, r, b, t;
    ASSERT_TRUE(projection.getFrustum(l, r, b, t, zNear, zFar));
}

// A camera 100 m over the ground at (lon, lat), looking level to the north
// with a 60 degree field of view, over a globe-sized sphere and a building
// (20 m wide, 120 m tall) whose near face stands 50 m north of the eye.
struct GroundScene
{
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    osg::ref_ptr<globe::MapNode> map = new globe::MapNode;
    osg::Vec3d eye;
    osg::Vec3d boxCentre;

    GroundScene(double lon, double lat, double groundHeight)
    {
        auto* globeGeode = new osg::Geode;
        globeGeode->addDrawable(new osg::ShapeDrawable(new osg::Sphere(osg::Vec3(), osg::WGS_84_RADIUS_POLAR)));
        map->addChild(globeGeode);
        osg::Matrixd frame;
        cxtest::wgs84().computeLocalToWorldTransformFromLatLongHeight(osg::DegreesToRadians(lat),
                                                                      osg::DegreesToRadians(lon), groundHeight, frame);
        auto* place = new osg::MatrixTransform(osg::Matrixd::translate(0, 60, 60) * frame);
        auto* boxGeode = new osg::Geode;
        boxGeode->addDrawable(new osg::ShapeDrawable(new osg::Box(osg::Vec3(), 20.0f, 20.0f, 120.0f)));
        place->addChild(boxGeode);
        map->addChild(place);
        boxCentre = osg::Vec3d(0, 60, 60) * frame;
        eye = osg::Vec3d(0, 0, 100) * frame;
        const osg::Vec3d north = osg::Vec3d(0, 1, 0) * frame - osg::Vec3d(0, 0, 0) * frame;
        const osg::Vec3d up = osg::Vec3d(0, 0, 1) * frame - osg::Vec3d(0, 0, 0) * frame;
        camera->setViewport(0, 0, 640, 480);
        camera->setProjectionMatrixAsPerspective(60.0, 640.0 / 480.0, 1.0, 10000.0);
        camera->setViewMatrixAsLookAt(eye, eye + north, up);
        camera->addChild(map.get());
    }
};

} // namespace

TEST(AutoClipPlanes, WholeVisibleGlobeFitsFromEveryHeight)
{
    osg::ref_ptr<globe::MapNode> map = new globe::MapNode;
    osg::ref_ptr<globe::AutoClipPlaneCullCallback> clip = new globe::AutoClipPlaneCullCallback(map.get());
    const double heights[] = {100.0, 1000.0, 10000.0, 100000.0, 1.0e6, 2.0e7};
    const double places[][2] = {{116.39, 39.91}, {0.0, 0.0}, {-70.0, -89.5}, {86.93, 27.99}};
    for (double h : heights)
    {
        for (const auto& place : places)
        {
            const osg::Vec3d eye = cxtest::worldOf(place[0], place[1], h);
            double zNear = 0, zFar = 0;
            ASSERT_TRUE(clip->computeClipPlanes(eye, zNear, zFar));
            EXPECT_GT(zNear, 0.0);
            EXPECT_GT(zFar, zNear);
            // Ground up to the highest mountain, at a resolution that finds
            // the horizon from high up.
            const Sampled s = sampleVisibleGlobe(eye, 8848.0, h > 50000.0 ? 2.0 : 0.5);
            ASSERT_GT(s.count, 0) << h;
            EXPECT_LE(s.farthest, zFar) << "height " << h << " at " << place[0] << "," << place[1];
            // Near stays within half the nearest distance: nothing in sight is
            // cut for any field of view up to 120 degrees across the diagonal.
            EXPECT_LE(zNear, 0.5 * s.nearest) << "height " << h;
        }
    }
}

TEST(AutoClipPlanes, WholeEarthFrom20000Kilometres)
{
    osg::ref_ptr<globe::AutoClipPlaneCullCallback> clip = new globe::AutoClipPlaneCullCallback;
    const osg::Vec3d eye = cxtest::worldOf(109.0, 32.0, 2.0e7);
    double zNear = 0, zFar = 0;
    ASSERT_TRUE(clip->computeClipPlanes(eye, zNear, zFar));
    // The disc of the Earth seen from there: from the sub-eye point to the limb.
    const double distanceToCentre = eye.length();
    const double limb = std::sqrt(distanceToCentre * distanceToCentre -
                                  osg::WGS_84_RADIUS_EQUATOR * osg::WGS_84_RADIUS_EQUATOR);
    EXPECT_LT(zNear, 2.0e7 - 9000.0);
    EXPECT_GT(zFar, limb);
    // The planes hug the globe: plenty of depth precision at the globe.
    EXPECT_GT(zNear, 1.0e6);
    EXPECT_LT(depthStep(2.0e7, zNear, zFar), 50.0);
}

TEST(AutoClipPlanes, FiftyMetreBuildingFromAHundredMetresOverTheGround)
{
    osg::ref_ptr<globe::AutoClipPlaneCullCallback> clip = new globe::AutoClipPlaneCullCallback;
    // Over the coast near the sea level, and over the Tibetan plateau.
    for (double ground : {0.0, 4500.0})
    {
        const osg::Vec3d eye = cxtest::worldOf(116.39, 39.91, ground + 100.0);
        double zNear = 0, zFar = 0;
        ASSERT_TRUE(clip->computeClipPlanes(eye, zNear, zFar));
        // Any point of a building 50 m away is at least 50 m * cos(60) deep.
        EXPECT_LE(zNear, 25.0) << ground;
        EXPECT_GE(zFar, 300000.0) << ground; // distant mountains stay in
        // No z-fighting: the depth buffer resolves well under a millimetre at
        // 50 m and about a decimetre at a kilometre (the near plane stays
        // under the half-metre minimum, below the manipulator's clearance).
        EXPECT_LT(depthStep(50.0, zNear, zFar), 0.001) << ground;
        EXPECT_LT(depthStep(1000.0, zNear, zFar), 0.15) << ground;
        // The horizon (with mountains behind it) is inside, and the ratio stays bounded.
        EXPECT_LT(zFar / zNear, 4.0e6) << ground;
    }
}

TEST(AutoClipPlanes, NearGrowsWithClearanceOverTheHighestGround)
{
    osg::ref_ptr<globe::AutoClipPlaneCullCallback> clip = new globe::AutoClipPlaneCullCallback;
    double previous = 0.0;
    for (double h : {100.0, 9000.0, 10000.0, 50000.0, 500000.0, 5.0e6, 2.0e7})
    {
        double zNear = 0, zFar = 0;
        ASSERT_TRUE(clip->computeClipPlanes(cxtest::worldOf(10.0, 50.0, h), zNear, zFar));
        EXPECT_GE(zNear, previous) << h;
        EXPECT_GE(zNear, 0.5);
        // A mountain top right under the eye is still well beyond near.
        EXPECT_LE(zNear, 0.5 * std::max(h - 8848.0, 2.0)) << h;
        previous = zNear;
    }
    double zNear = 0, zFar = 0;
    clip->computeClipPlanes(cxtest::worldOf(10.0, 50.0, 100.0), zNear, zFar);
    EXPECT_DOUBLE_EQ(zNear, 0.5);
}

TEST(AutoClipPlanes, SettingsAndBadInput)
{
    osg::ref_ptr<globe::AutoClipPlaneCullCallback> clip = new globe::AutoClipPlaneCullCallback(nullptr);
    EXPECT_DOUBLE_EQ(clip->getEllipsoidModel()->getRadiusEquator(), osg::WGS_84_RADIUS_EQUATOR);
    double zNear = -1, zFar = -1;
    EXPECT_FALSE(clip->computeClipPlanes(osg::Vec3d(std::numeric_limits<double>::quiet_NaN(), 0, 0), zNear, zFar));
    EXPECT_FALSE(clip->computeClipPlanes(osg::Vec3d(std::numeric_limits<double>::infinity(), 0, 0), zNear, zFar));
    EXPECT_EQ(zNear, -1);
    EXPECT_FALSE(clip->getLastClipPlanes(zNear, zFar));
    // The centre of the Earth still gives usable planes.
    EXPECT_TRUE(clip->computeClipPlanes(osg::Vec3d(0, 0, 0), zNear, zFar));
    EXPECT_GT(zFar, zNear);

    EXPECT_DOUBLE_EQ(clip->getMinimumNear(), 0.5);
    clip->setMinimumNear(0.25);
    EXPECT_DOUBLE_EQ(clip->getMinimumNear(), 0.25);
    clip->setMinimumNear(-3.0);
    clip->setMinimumNear(std::numeric_limits<double>::quiet_NaN());
    EXPECT_DOUBLE_EQ(clip->getMinimumNear(), 0.25);
    clip->setNearFactor(5.0);
    EXPECT_DOUBLE_EQ(clip->getNearFactor(), 1.0);
    clip->setNearFactor(0.0);
    EXPECT_DOUBLE_EQ(clip->getNearFactor(), 1.0);
    clip->setMaxTerrainHeight(-1.0);
    EXPECT_DOUBLE_EQ(clip->getMaxTerrainHeight(), 9000.0);
    clip->setMaxTerrainHeight(0.0);
    EXPECT_DOUBLE_EQ(clip->getMaxTerrainHeight(), 0.0);

    // The ellipsoid of the map's coordinate system node.
    osg::ref_ptr<osg::CoordinateSystemNode> small = new osg::CoordinateSystemNode;
    small->setEllipsoidModel(new osg::EllipsoidModel(1000.0, 1000.0));
    osg::ref_ptr<globe::AutoClipPlaneCullCallback> onSmall = new globe::AutoClipPlaneCullCallback(small.get());
    EXPECT_DOUBLE_EQ(onSmall->getEllipsoidModel()->getRadiusEquator(), 1000.0);
}

TEST(AutoClipPlanes, CullTraversalAppliesThePlanesAndKeepsTheBoxInside)
{
    GroundScene scene(116.39, 39.91, 0.0);
    osg::ref_ptr<globe::AutoClipPlaneCullCallback> clip = new globe::AutoClipPlaneCullCallback(scene.map.get());
    scene.camera->addCullCallback(clip.get());
    const osg::Matrixd projection = cullOnce(scene.camera.get());
    double zNear = 0, zFar = 0;
    nearFarOf(projection, zNear, zFar);
    double lastNear = 0, lastFar = 0;
    ASSERT_TRUE(clip->getLastClipPlanes(lastNear, lastFar));
    EXPECT_NEAR(zNear, lastNear, 1e-6 * lastNear);
    EXPECT_NEAR(zFar, lastFar, 1e-6 * lastFar);
    // The building's near face is 50 m ahead; its far corners about 120 m away.
    EXPECT_LT(zNear, 50.0 * 0.5);
    EXPECT_GT(zFar, 130.0);
    EXPECT_GE(zNear, clip->getMinimumNear());
    // The field of view is kept, and the camera's matrix carries the planes.
    double fovy = 0, aspect = 0, n = 0, f = 0;
    ASSERT_TRUE(projection.getPerspective(fovy, aspect, n, f));
    EXPECT_NEAR(fovy, 60.0, 1e-6);
    EXPECT_NEAR(aspect, 640.0 / 480.0, 1e-9);
    double cameraNear = 0, cameraFar = 0;
    nearFarOf(scene.camera->getProjectionMatrix(), cameraNear, cameraFar);
    EXPECT_NEAR(cameraNear, zNear, 1e-6 * zNear);
    EXPECT_NEAR(cameraFar, zFar, 1e-6 * zFar);
}

TEST(AutoClipPlanes, TwoInstancesOnOneCameraActAsOne)
{
    GroundScene one(116.39, 39.91, 0.0);
    one.camera->addCullCallback(new globe::AutoClipPlaneCullCallback(one.map.get()));
    const osg::Matrixd single = cullOnce(one.camera.get());

    GroundScene two(116.39, 39.91, 0.0);
    osg::ref_ptr<globe::AutoClipPlaneCullCallback> first = new globe::AutoClipPlaneCullCallback(two.map.get());
    osg::ref_ptr<globe::AutoClipPlaneCullCallback> second = new globe::AutoClipPlaneCullCallback(two.map.get());
    two.camera->addCullCallback(first.get());
    two.camera->addCullCallback(second.get());
    const osg::Matrixd doubled = cullOnce(two.camera.get());
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_NEAR(single(i, j), doubled(i, j), 1e-9 * (1.0 + std::fabs(single(i, j)))) << i << "," << j;
    double n1 = 0, f1 = 0, n2 = 0, f2 = 0;
    ASSERT_TRUE(first->getLastClipPlanes(n1, f1));
    ASSERT_TRUE(second->getLastClipPlanes(n2, f2));
    EXPECT_DOUBLE_EQ(n1, n2);
    EXPECT_DOUBLE_EQ(f1, f2);
    // Repeated frames change nothing either.
    const osg::Matrixd again = cullOnce(two.camera.get());
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_NEAR(again(i, j), doubled(i, j), 1e-9 * (1.0 + std::fabs(again(i, j))));
}

TEST(AutoClipPlanes, CameraThatComputesNoNearFarStillGetsThePlanes)
{
    GroundScene scene(86.93, 27.99, 4500.0);
    scene.camera->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    osg::ref_ptr<globe::AutoClipPlaneCullCallback> clip = new globe::AutoClipPlaneCullCallback(scene.map.get());
    scene.camera->addCullCallback(clip.get());
    const osg::Matrixd projection = cullOnce(scene.camera.get());
    double zNear = 0, zFar = 0;
    nearFarOf(projection, zNear, zFar);
    EXPECT_LT(zNear, 50.0 * 0.5);
    EXPECT_GT(zFar, 130.0);
    // The camera's own setting is left as it was.
    EXPECT_EQ(scene.camera->getComputeNearFarMode(), osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
}

TEST(AutoClipPlanes, SomethingNearerThanTheRuleAllowsPullsNearIn)
{
    // 20 km up, a 10 m box 40 m in front of the camera: the rule alone would
    // put near at about 2.75 km.
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    osg::ref_ptr<globe::MapNode> map = new globe::MapNode;
    osg::Matrixd frame;
    cxtest::wgs84().computeLocalToWorldTransformFromLatLongHeight(osg::DegreesToRadians(30.0),
                                                                  osg::DegreesToRadians(100.0), 20000.0, frame);
    auto* place = new osg::MatrixTransform(osg::Matrixd::translate(0, 40, 0) * frame);
    auto* geode = new osg::Geode;
    geode->addDrawable(new osg::ShapeDrawable(new osg::Box(osg::Vec3(), 10.0f)));
    place->addChild(geode);
    map->addChild(place);
    camera->addChild(map.get());
    const osg::Vec3d eye = osg::Vec3d() * frame;
    const osg::Vec3d north = osg::Vec3d(0, 1, 0) * frame - eye;
    const osg::Vec3d up = osg::Vec3d(0, 0, 1) * frame - eye;
    camera->setViewport(0, 0, 640, 480);
    camera->setProjectionMatrixAsPerspective(45.0, 4.0 / 3.0, 1.0, 1000.0);
    camera->setViewMatrixAsLookAt(eye, eye + north, up);
    osg::ref_ptr<globe::AutoClipPlaneCullCallback> clip = new globe::AutoClipPlaneCullCallback(map.get());
    camera->addCullCallback(clip.get());
    double ruleNear = 0, ruleFar = 0;
    ASSERT_TRUE(clip->computeClipPlanes(eye, ruleNear, ruleFar));
    EXPECT_GT(ruleNear, 1000.0);
    double zNear = 0, zFar = 0;
    nearFarOf(cullOnce(camera.get()), zNear, zFar);
    EXPECT_LT(zNear, 35.0);
    EXPECT_GT(zFar, 45.0);
}

TEST(AutoClipPlanes, OrthographicProjectionIsLeftAlone)
{
    GroundScene scene(0.0, 0.0, 0.0);
    scene.camera->setProjectionMatrixAsOrtho(-100, 100, -75, 75, -500, 500);
    scene.camera->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    scene.camera->addCullCallback(new globe::AutoClipPlaneCullCallback(scene.map.get()));
    const osg::Matrixd before = scene.camera->getProjectionMatrix();
    const osg::Matrixd after = cullOnce(scene.camera.get());
    EXPECT_EQ(before, after);
    EXPECT_EQ(scene.camera->getProjectionMatrix(), before);
}
