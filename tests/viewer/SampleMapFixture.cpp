#include "SampleMapFixture.h"

#include <osgUtil/IntersectionVisitor>
#include <osgUtil/LineSegmentIntersector>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>

namespace cxtest
{

std::string sampleDir()
{
    if (const char* env = std::getenv("CXVIEWER_SAMPLE_DIR"); env && *env)
        return env;
    return CXTEST_SAMPLE_DIR;
}

::testing::AssertionResult sampleDataPresent(const std::string& base)
{
    for (const char* file : {"/myselftest/china-simple.earth", "/data/base/image.db", "/data/base/dem.db"})
    {
        if (!std::filesystem::is_regular_file(base + file))
            return ::testing::AssertionFailure()
                   << "the real sample data are missing: no " << base << file
                   << ". Prepare them with scripts/prepare-data.sh (or point CXVIEWER_SAMPLE_DIR at them).";
    }
    return ::testing::AssertionSuccess();
}

double secondsSince(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

SampleMapFixture::SampleMapFixture()
{
    windowWidth = 480;
    windowHeight = 360;
    basePath = sampleDir();
}

void SampleMapFixture::SetUp()
{
    ASSERT_TRUE(sampleDataPresent(basePath));
    ViewerFixture::SetUp();
}

globe::EarthManipulator* SampleMapFixture::globeManipulator() const
{
    return dynamic_cast<globe::EarthManipulator*>(viewer->getViewer()->getCameraManipulator());
}

bool SampleMapFixture::settle(double limit)
{
    const auto start = std::chrono::steady_clock::now();
    globe::EarthManipulator* manipulator = globeManipulator();
    osgDB::DatabasePager* pager = viewer->getViewer()->getDatabasePager();
    int idleFrames = 0;
    while (secondsSince(start) < limit)
    {
        frames(1);
        const bool flying = manipulator && manipulator->isSettingViewpoint();
        idleFrames = (!flying && !pager->getRequestsInProgress()) ? idleFrames + 1 : 0;
        if (idleFrames >= 5)
            return true;
    }
    return false;
}

osg::Vec3d SampleMapFixture::toWindow(const osg::Vec3d& world) const
{
    osg::Camera* camera = viewer->getViewer()->getCamera();
    const osg::Matrixd m = camera->getViewMatrix() * camera->getProjectionMatrix()
                           * camera->getViewport()->computeWindowMatrix();
    return world * m;
}

osg::Vec3d SampleMapFixture::worldOf(double lon, double lat, double height) const
{
    osg::Vec3d p;
    viewer->mapNode->getEllipsoidModel()->convertLatLongHeightToXYZ(osg::DegreesToRadians(lat),
                                                                    osg::DegreesToRadians(lon), height, p.x(), p.y(),
                                                                    p.z());
    return p;
}

void SampleMapFixture::toGeographic(const osg::Vec3d& world, double& lon, double& lat, double& height) const
{
    viewer->mapNode->getEllipsoidModel()->convertXYZToLatLongHeight(world.x(), world.y(), world.z(), lat, lon,
                                                                    height);
    lat = osg::RadiansToDegrees(lat);
    lon = osg::RadiansToDegrees(lon);
}

osg::Vec4ub SampleMapFixture::colourAt(const osg::Image& frame, double lon, double lat) const
{
    const osg::Vec3d w = toWindow(worldOf(lon, lat));
    const int x = static_cast<int>(std::lround(w.x()));
    const int y = frame.t() - 1 - static_cast<int>(std::lround(w.y()));
    EXPECT_TRUE(x >= 0 && x < frame.s() && y >= 0 && y < frame.t()) << lon << ", " << lat << " is off screen";
    return pixelAt(frame, std::clamp(x, 0, frame.s() - 1), std::clamp(y, 0, frame.t() - 1));
}

bool SampleMapFixture::pick(double x, double y, osg::Vec3d& world) const
{
    osg::ref_ptr<osgUtil::LineSegmentIntersector> picker =
        new osgUtil::LineSegmentIntersector(osgUtil::Intersector::WINDOW, x, y);
    osgUtil::IntersectionVisitor visitor(picker.get());
    viewer->getViewer()->getCamera()->accept(visitor);
    if (!picker->containsIntersections())
        return false;
    world = picker->getFirstIntersection().getWorldIntersectPoint();
    return true;
}

void SampleMapFixture::pickCentre(double& lon, double& lat, double& height)
{
    osg::Vec3d world;
    ASSERT_TRUE(pick(windowWidth / 2.0, windowHeight / 2.0, world)) << "nothing under the window centre";
    toGeographic(world, lon, lat, height);
}

bool SampleMapFixture::groundUnder(const osg::Vec3d& world, osg::Vec3d& ground) const
{
    double lon = 0.0, lat = 0.0, height = 0.0;
    toGeographic(world, lon, lat, height);
    osg::ref_ptr<osgUtil::LineSegmentIntersector> picker = new osgUtil::LineSegmentIntersector(
        worldOf(lon, lat, std::max(height, 0.0) + 20000.0), worldOf(lon, lat, -20000.0));
    osgUtil::IntersectionVisitor visitor(picker.get());
    viewer->mapNode->accept(visitor);
    if (!picker->containsIntersections())
        return false;
    ground = picker->getFirstIntersection().getWorldIntersectPoint();
    return true;
}

osg::Vec3d SampleMapFixture::eye() const
{
    return osg::Matrixd::inverse(viewer->getViewer()->getCamera()->getViewMatrix()).getTrans();
}

bool SampleMapFixture::eyeClearance(double& metres) const
{
    const osg::Vec3d e = eye();
    osg::Vec3d ground;
    if (!groundUnder(e, ground))
        return false;
    double lon, lat, eyeHeight, groundHeight;
    toGeographic(e, lon, lat, eyeHeight);
    toGeographic(ground, lon, lat, groundHeight);
    metres = eyeHeight - groundHeight;
    return true;
}

void SampleMapFixture::lookAt(double lon, double lat, double height, double heading, double pitch, double range)
{
    globe::EarthManipulator* manipulator = globeManipulator();
    ASSERT_NE(manipulator, nullptr);
    ASSERT_TRUE(settle()) << "the start view did not settle";
    manipulator->setViewpoint(manipulator->createViewpoint(lon, lat, height, heading, pitch, range), 0.0);
    ASSERT_TRUE(settle()) << "the tiles under " << lon << ", " << lat << " did not settle";
}

void SampleMapFixture::lookDownAt(double lon, double lat, double height, double range)
{
    lookAt(lon, lat, height, 0.0, -90.0, range);
}

} // namespace cxtest
