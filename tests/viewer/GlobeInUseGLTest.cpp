// The globe as a user meets it, on a real X11 window with the real sample
// data: close to the ground (the eye never under it, wheel steps into the
// mountains and over the sea, flights that end a few metres up), memory held
// still close to the ground, on the sample and on a map of a few levels, and
// the sky (space and stars from afar, the blue sky and the haze near the
// ground).
#include "MBTilesTestFiles.h"
#include "ProcessMemory.h"
#include "SampleMapFixture.h"
#include "TempDir.h"

#include <globe/AutoClipPlaneCullCallback>
#include <globe/ElevationLayer>
#include <globe/SkyNode>
#include <globe/TerrainEngine>

#include <osg/Geode>
#include <osg/Program>
#include <osg/ShapeDrawable>
#include <osg/Notify>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <mutex>
#include <string>
#include <vector>

using cxtest::SampleMapFixture;
using cxtest::secondsSince;

namespace
{

// The clear colour of the view (0.7 grey).
bool isClearColour(const osg::Vec4ub& c)
{
    return std::abs(c.r() - 179) <= 1 && std::abs(c.g() - 179) <= 1 && std::abs(c.b() - 179) <= 1;
}

// Depth of a pixel of a read-back depth image, (x, y) from the top-left.
float depthAt(const osg::Image& depth, int x, int y)
{
    return *reinterpret_cast<const float*>(depth.data(x, depth.t() - 1 - y));
}


// Collects what OpenSceneGraph prints (the pager's read errors among it)
// while it is installed.
class NotifyRecorder : public osg::NotifyHandler
{
public:
    void notify(osg::NotifySeverity severity, const char* message) override
    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (severity <= osg::WARN)
            _messages.emplace_back(message);
    }

    std::vector<std::string> messages() const
    {
        std::lock_guard<std::mutex> lock(_mutex);
        return _messages;
    }

private:
    mutable std::mutex _mutex;
    std::vector<std::string> _messages;
};

// Installs a NotifyRecorder for its lifetime.
struct RecordNotifications
{
    RecordNotifications() : recorder(new NotifyRecorder), previous(osg::getNotifyHandler())
    {
        osg::setNotifyHandler(recorder.get());
    }
    ~RecordNotifications() { osg::setNotifyHandler(previous.get()); }

    osg::ref_ptr<NotifyRecorder> recorder;
    osg::ref_ptr<osg::NotifyHandler> previous;
};

} // namespace

/** The sample data, with the depth buffer read back too. */
class GlobeInUse : public SampleMapFixture
{
protected:
    void SetUp() override
    {
        SampleMapFixture::SetUp();
        if (capture)
            capture->setCaptureDepth(true);
    }

    double clearance() const { return globeManipulator()->getTerrainAvoidanceMinimumDistance(); }

    /** The near and far plane callback of the main camera. */
    const globe::AutoClipPlaneCullCallback* clipPlanes() const
    {
        const globe::AutoClipPlaneCullCallback* clip = nullptr;
        for (const osg::Callback* cb = viewer->getViewer()->getCamera()->getCullCallback(); cb;
             cb = cb->getNestedCallback())
            if (auto* c = dynamic_cast<const globe::AutoClipPlaneCullCallback*>(cb))
                clip = c;
        return clip;
    }

    /** One frame, checked: the eye at least the clearance over the ground
      * under it, and the window centre showing the ground (drawn with a
      * depth, not the clear colour). */
    void checkedFrame(const char* where, int step)
    {
        osg::ref_ptr<osg::Image> frame = grabFrame();
        ASSERT_TRUE(frame.valid());
        double above = 0.0;
        if (eyeClearance(above))
        {
            EXPECT_GE(above, clearance() - 0.01) << where << ", wheel step " << step;
            lowest = std::min(lowest, above);
        }
        const osg::Vec4ub centre = cxtest::pixelAt(*frame, windowWidth / 2, windowHeight / 2);
        EXPECT_FALSE(isClearColour(centre)) << where << ", wheel step " << step;
        osg::ref_ptr<osg::Image> depth = capture->depth();
        ASSERT_TRUE(depth.valid());
        EXPECT_LT(depthAt(*depth, windowWidth / 2, windowHeight / 2), 1.0f)
            << where << ", wheel step " << step << ": nothing drawn at the window centre";
        ++checkedFrames;
    }

    /** `steps` wheel steps at the window centre, frames between them until
      * each zoom has run its course and the pager is idle, every frame
      * checked. */
    void wheel(osgGA::GUIEventAdapter::ScrollingMotion motion, int steps, const char* where)
    {
        osgDB::DatabasePager* pager = viewer->getViewer()->getDatabasePager();
        for (int step = 0; step < steps; ++step)
        {
            scroll(motion, windowWidth / 2.0f, windowHeight / 2.0f);
            const auto start = std::chrono::steady_clock::now();
            // A wheel step zooms for 0.2 s; then the tiles of the new view.
            do
            {
                checkedFrame(where, step);
                if (HasFatalFailure())
                    return;
            } while (secondsSince(start) < 0.25 || (pager->getRequestsInProgress() && secondsSince(start) < 20.0));
        }
    }

    double lowest = 1.0e30;
    int checkedFrames = 0;
};

TEST_F(GlobeInUse, TwoHundredWheelStepsIntoTheHimalayaStopAboveTheGround)
{
    // Everest's cell from 150 km, looking down at 60 degrees.
    lookAt(86.925, 27.988, 0.0, 0.0, -60.0, 150000.0);
    wheel(osgGA::GUIEventAdapter::SCROLL_DOWN, 200, "zooming into the Himalaya");
    std::printf("Himalaya: %d frames, lowest eye %.3f m over the ground, range now %.3f m\n", checkedFrames, lowest,
                globeManipulator()->getDistance());
    EXPECT_LT(lowest, 20.0) << "the zoom never came close to the ground";
    double lon = 0.0, lat = 0.0, height = 0.0;
    toGeographic(eye(), lon, lat, height);
    EXPECT_GT(height, 4000.0) << "the eye is not in the mountains";

    // Zooming back out returns to the globe: the whole Earth in the window,
    // space around it.
    for (int step = 0; step < 120 && globeManipulator()->getDistance() < 1.2e7; ++step)
        wheel(osgGA::GUIEventAdapter::SCROLL_UP, 1, "zooming out");
    EXPECT_GT(globeManipulator()->getDistance(), 1.2e7);
    ASSERT_TRUE(settle());
    osg::ref_ptr<osg::Image> frame = grabFrame();
    cxtest::saveScreenshot(*frame, "globe_zoomed_back_out");
    osg::Vec3d hit;
    EXPECT_TRUE(pick(windowWidth / 2.0, windowHeight / 2.0, hit));
    EXPECT_FALSE(pick(2.0, 2.0, hit)) << "the window corner shows ground: the globe is not whole";
}

TEST_F(GlobeInUse, TwoHundredWheelStepsOverTheSeaStopAboveTheWater)
{
    // The Philippine Sea.
    lookAt(133.0, 20.0, 0.0, 0.0, -60.0, 150000.0);
    wheel(osgGA::GUIEventAdapter::SCROLL_DOWN, 200, "zooming over the sea");
    std::printf("sea: %d frames, lowest eye %.3f m over the water\n", checkedFrames, lowest);
    EXPECT_LT(lowest, 20.0);
    double lon = 0.0, lat = 0.0, height = 0.0;
    toGeographic(eye(), lon, lat, height);
    EXPECT_NEAR(lon, 133.0, 0.5);
    EXPECT_NEAR(lat, 20.0, 0.5);
    // Near the water: the clearance holds over the drawn surface, whose flat
    // cells lie up to half a metre under the ellipsoid.
    EXPECT_GT(height, 0.0);
    EXPECT_LT(height, 100.0);
}

TEST_F(GlobeInUse, AFlightToTenMetresOverEverestEndsAboveTheGround)
{
    ASSERT_TRUE(settle());
    globe::EarthManipulator* manipulator = globeManipulator();
    // Straight down, and looking along the slope: both end over the ground.
    for (const double pitch : {-90.0, -10.0})
    {
        manipulator->setViewpoint(manipulator->createViewpoint(86.925, 27.988, 0.0, 30.0, pitch, 10.0), 2.0);
        frames(1);
        ASSERT_TRUE(manipulator->isSettingViewpoint());
        const auto start = std::chrono::steady_clock::now();
        while (manipulator->isSettingViewpoint() && secondsSince(start) < 60.0)
        {
            checkedFrame("flying to Everest", 0);
            if (HasFatalFailure())
                return;
        }
        ASSERT_FALSE(manipulator->isSettingViewpoint());
        ASSERT_TRUE(settle());
        for (int i = 0; i < 10; ++i)
            checkedFrame("landed at Everest", 0);
        double above = 0.0;
        ASSERT_TRUE(eyeClearance(above));
        EXPECT_GE(above, clearance() - 0.01) << "pitch " << pitch;
        // The focal point is on the ground of Everest's cell, over 4,500 m.
        double lon = 0.0, lat = 0.0, height = 0.0;
        manipulator->getGeographicFocalPoint(manipulator->getViewpoint(), lon, lat, height);
        EXPECT_NEAR(lon, 86.925, 1e-3);
        EXPECT_NEAR(lat, 27.988, 1e-3);
        EXPECT_GT(height, 4500.0);
        osg::Vec3d ground;
        ASSERT_TRUE(groundUnder(manipulator->getCenter(), ground));
        EXPECT_LT((ground - manipulator->getCenter()).length(), 0.05);
        osg::ref_ptr<osg::Image> frame = grabFrame();
        cxtest::saveScreenshot(*frame, pitch < -45.0 ? "everest_10m_down" : "everest_10m_along");
    }
}

TEST_F(GlobeInUse, AvoidanceCanBeTurnedOffAndItsClearanceSet)
{
    globe::EarthManipulator* manipulator = globeManipulator();
    EXPECT_TRUE(manipulator->getTerrainAvoidanceEnabled());
    EXPECT_EQ(manipulator->getTerrainAvoidanceMinimumDistance(), 1.0);
    manipulator->setTerrainAvoidanceMinimumDistance(-3.0);
    manipulator->setTerrainAvoidanceMinimumDistance(std::nan(""));
    EXPECT_EQ(manipulator->getTerrainAvoidanceMinimumDistance(), 1.0);

    // 50 m of clearance: a view 10 m over Beijing is lifted to 50 m.
    manipulator->setTerrainAvoidanceMinimumDistance(50.0);
    lookDownAt(116.39, 39.91, 0.0, 10.0);
    double above = 0.0;
    ASSERT_TRUE(eyeClearance(above));
    EXPECT_NEAR(above, 50.0, 0.05);
    EXPECT_NEAR(manipulator->getDistance(), 50.0, 0.05);

    // Off: the eye stays where the viewpoint puts it, 10 m up.
    manipulator->setTerrainAvoidanceEnabled(false);
    manipulator->setViewpoint(manipulator->createViewpoint(116.39, 39.91, 0.0, 0.0, -90.0, 10.0), 0.0);
    frames(2);
    EXPECT_NEAR(manipulator->getDistance(), 10.0, 1e-6);
    ASSERT_TRUE(eyeClearance(above));
    EXPECT_NEAR(above, 10.0, 0.05);
}

TEST_F(GlobeInUse, TheNearPlaneStaysUnderTheClearance)
{
    // Looking straight down from the clearance, the ground at the window
    // centre lies one clearance away: the near plane must be closer.
    const globe::AutoClipPlaneCullCallback* clip = clipPlanes();
    ASSERT_NE(clip, nullptr);
    EXPECT_LT(clip->getMinimumNear(), clearance());
    lookDownAt(116.39, 39.91, 0.0, 0.0);
    for (int i = 0; i < 5; ++i)
        checkedFrame("1 m over Beijing", 0);
    double zNear = 0.0, zFar = 0.0;
    ASSERT_TRUE(clip->getLastClipPlanes(zNear, zFar));
    EXPECT_LT(zNear, clearance());
}

TEST_F(GlobeInUse, HigherUpTheNearPlaneFollowsTheMeasuredClearance)
{
    const globe::AutoClipPlaneCullCallback* clip = clipPlanes();
    ASSERT_NE(clip, nullptr);
    // 2.5 km over Beijing, lower than the highest mountains: the rule of the
    // height alone gives the minimum; the ground below gives a tenth of the
    // clearance, and models 1 m over the ground 4 km away stay apart in a
    // 24-bit depth buffer.
    lookAt(116.39, 39.91, 0.0, 0.0, -45.0, 3500.0);
    ASSERT_TRUE(settle());
    double above = 0.0;
    ASSERT_TRUE(eyeClearance(above));
    double measured = 0.0;
    ASSERT_TRUE(clip->measureClearance(eye(), measured));
    EXPECT_NEAR(measured, above, 1.0);
    double zNear = 0.0, zFar = 0.0;
    ASSERT_TRUE(clip->getLastClipPlanes(zNear, zFar));
    EXPECT_NEAR(zNear, 0.1 * above, 0.02 * above);
    const double resolutionAt4km = 4000.0 * 4000.0 / (zNear * (1 << 24));
    EXPECT_LT(resolutionAt4km, 0.05);

    // Something closer than that pulls the near plane in: a box 20 m ahead.
    osg::Vec3d eyePoint, centre, up;
    viewer->getViewer()->getCamera()->getViewMatrixAsLookAt(eyePoint, centre, up);
    osg::Vec3d look = centre - eyePoint;
    look.normalize();
    osg::ref_ptr<osg::Geode> box = new osg::Geode;
    box->addDrawable(new osg::ShapeDrawable(new osg::Box(eyePoint + look * 20.0, 2.0)));
    viewer->getRoot()->addChild(box.get());
    frames(2);
    ASSERT_TRUE(clip->getLastClipPlanes(zNear, zFar));
    EXPECT_LT(zNear, 19.0);
    EXPECT_GT(zNear, clip->getMinimumNear());
    osg::ref_ptr<osg::Image> depth = (grabFrame(), capture->depth());
    ASSERT_TRUE(depth.valid());
    EXPECT_LT(depthAt(*depth, windowWidth / 2, windowHeight / 2), 0.5f) << "the box is not drawn";
    viewer->getRoot()->removeChild(box.get());
}

TEST_F(GlobeInUse, WithoutAMapNodeTheClearanceIsNotMeasured)
{
    osg::ref_ptr<globe::AutoClipPlaneCullCallback> bare = new globe::AutoClipPlaneCullCallback(nullptr);
    double measured = -1.0;
    EXPECT_FALSE(bare->measureClearance(eye(), measured));
    EXPECT_EQ(measured, -1.0);
    const globe::AutoClipPlaneCullCallback* clip = clipPlanes();
    ASSERT_NE(clip, nullptr);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(clip->measureClearance(osg::Vec3d(nan, 0.0, 0.0), measured));
}

// Memory held still close to the ground: after the pager settles, 20 s of
// frames grow the process by less than 64 MB, and nothing is printed.
void holdStill(cxtest::ViewerFixture& fixture, CXViewer& viewer, globe::EarthManipulator* manipulator, double lon,
               double lat, double range, const char* what)
{
    RecordNotifications notifications;
    manipulator->setViewpoint(manipulator->createViewpoint(lon, lat, 0.0, 0.0, -90.0, range), 0.0);
    osgDB::DatabasePager* pager = viewer.getViewer()->getDatabasePager();
    auto start = std::chrono::steady_clock::now();
    int idle = 0;
    while (idle < 20 && secondsSince(start) < 180.0)
    {
        viewer.getCompositeViewer()->frame();
        idle = pager->getRequestsInProgress() ? 0 : idle + 1;
    }
    ASSERT_GE(idle, 20) << what << ": the pager did not settle";
    const double before = cxhost::residentMegabytes();
    const unsigned long tilesBefore = viewer.mapNode->getTerrainEngine()->getNumTilesBuilt();
    start = std::chrono::steady_clock::now();
    int frames = 0;
    while (secondsSince(start) < 20.0)
    {
        viewer.getCompositeViewer()->frame();
        ++frames;
    }
    const double after = cxhost::residentMegabytes();
    const unsigned long tilesAfter = viewer.mapNode->getTerrainEngine()->getNumTilesBuilt();
    std::printf("%s: %d frames held still, %.0f MB -> %.0f MB, %lu tiles built, %lu more while still\n", what, frames,
                before, after, tilesBefore, tilesAfter - tilesBefore);
    EXPECT_LT(after - before, 64.0) << what;
    EXPECT_EQ(tilesAfter, tilesBefore) << what << ": tiles are still being built";
    for (const std::string& message : notifications.recorder->messages())
        ADD_FAILURE() << what << " printed: " << message;
    (void)fixture;
}

TEST_F(GlobeInUse, HeldStillUnderEverestsSummitMemoryStaysFlat)
{
    ASSERT_TRUE(settle());
    // The focal point at sea level under Everest, 5 km up: under the mountain.
    holdStill(*this, *viewer, globeManipulator(), 86.925, 27.988, 5000.0, "Everest from 5,000 m");
    double above = 0.0;
    ASSERT_TRUE(eyeClearance(above));
    EXPECT_GT(above, 1000.0) << "the view sank into the mountain";
}

/** A map of two small MBTiles files of levels 0 to 3 only. */
class GlobeOfFewLevels : public SampleMapFixture
{
protected:
    GlobeOfFewLevels()
    {
        const std::filesystem::path base = dir.path();
        std::filesystem::create_directories(base / "myselftest");
        std::filesystem::create_directories(base / "data" / "base");
        std::ofstream(base / "myselftest" / "china-simple.earth")
            << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<map name=\"few levels\" type=\"geocentric\" version=\"2\">\n</map>\n";
        cxtest::MBTilesFile image((base / "data" / "base" / "image.db").string());
        cxtest::MBTilesFile heights((base / "data" / "base" / "dem.db").string());
        image.metadata("format", "png");
        for (int z = 0; z <= 3; ++z)
            for (int x = 0; x < (1 << z); ++x)
                for (int y = 0; y < (1 << z); ++y)
                {
                    image.tile(z, x, y,
                               cxtest::encode(*cxtest::solidImage(256, static_cast<unsigned char>(40 * x),
                                                                  static_cast<unsigned char>(30 * y), 90),
                                              "png"));
                    heights.tile(z, x, y, cxtest::terrainRGBTile(64, [=](int c, int r) { return 200.0 + 3.0 * (c + r); }));
                }
        basePath = base.string();
    }

    cxtest::TempDir dir;
};

TEST_F(GlobeOfFewLevels, HeldStillFromFiveKilometresMemoryStaysFlat)
{
    ASSERT_NE(globeManipulator(), nullptr);
    ASSERT_TRUE(settle());
    holdStill(*this, *viewer, globeManipulator(), 116.39, 39.91, 5000.0, "four levels from 5,000 m");
}

namespace
{

globe::SkyNode* skyOf(CXViewer& viewer)
{
    for (unsigned int i = 0; i < viewer.getRoot()->getNumChildren(); ++i)
        if (auto* sky = dynamic_cast<globe::SkyNode*>(viewer.getRoot()->getChild(i)))
            return sky;
    return nullptr;
}

int brightness(const osg::Vec4ub& p)
{
    return (p.r() + p.g() + p.b()) / 3;
}

// A place in the afternoon sun of `sky`, about 15 degrees high: 75 degrees
// east of the sub-solar point, on its parallel (the Great Sandy Desert at the
// map set-up's date).
void afternoonPlace(const globe::SkyNode& sky, double& lon, double& lat)
{
    const globe::SkyNode::SunPosition& sun = sky.getSunPosition();
    lon = sun.subSolarLongitude + 75.0;
    lat = sun.subSolarLatitude;
}

} // namespace

TEST_F(GlobeInUse, FromSpaceTheGlobeHangsInTheDarkAmongStars)
{
    // The start view: 20,929 km over China.
    ASSERT_TRUE(settle());
    osg::ref_ptr<osg::Image> frame = grabFrame();
    cxtest::saveScreenshot(*frame, "globe_from_space");
    const osg::Vec4 clear = viewer->getViewer()->getCamera()->getClearColor();
    for (const auto& [x, y] : {std::pair{2, 2}, {windowWidth - 3, 2}, {2, windowHeight - 3}, {windowWidth - 3, windowHeight - 3}})
    {
        const osg::Vec4ub p = cxtest::pixelAt(*frame, x, y);
        EXPECT_LT(brightness(p), 40) << x << "," << y;
        EXPECT_GT(std::abs(p.r() - clear.r() * 255.0f) + std::abs(p.g() - clear.g() * 255.0f), 200.0f)
            << "the clear colour at " << x << "," << y;
    }
    // Stars: a few bright pixels in the dark around the globe.
    osg::Vec3d hit;
    int bright = 0;
    for (int y = 0; y < windowHeight; ++y)
        for (int x = 0; x < windowWidth; ++x)
            if (brightness(cxtest::pixelAt(*frame, x, y)) > 120 && !pick(x, windowHeight - 1 - y, hit))
                ++bright;
    EXPECT_GE(bright, 3) << "no bright stars";
    EXPECT_LT(bright, windowWidth * windowHeight / 100) << "too much light in space";
}

TEST_F(GlobeInUse, NearTheGroundTheSkyIsBlueAndDistantGroundHazy)
{
    globe::SkyNode* sky = skyOf(*viewer);
    ASSERT_NE(sky, nullptr);
    double lon = 0.0, lat = 0.0;
    afternoonPlace(*sky, lon, lat);
    // 2 km over the ground, looking south, inland, 10 degrees down: the
    // horizon crosses the upper part of the window.
    lookAt(lon, lat, 0.0, 180.0, -10.0, 2000.0 / std::sin(osg::DegreesToRadians(10.0)));
    osg::ref_ptr<osg::Image> hazy = grabFrame();
    cxtest::saveScreenshot(*hazy, "globe_horizon_2km");
    double eyeLon, eyeLat, eyeHeight;
    toGeographic(eye(), eyeLon, eyeLat, eyeHeight);

    // Above the horizon: blue sky, brighter towards the horizon.
    int horizonRow = -1;
    osg::Vec3d hit;
    for (int y = 0; y < windowHeight && horizonRow < 0; ++y)
        if (pick(windowWidth / 2.0, windowHeight - 1 - y, hit))
            horizonRow = y;
    ASSERT_GT(horizonRow, 10) << "no sky in the window";
    for (int y = 0; y < horizonRow - 3; y += 4)
    {
        const osg::Vec4ub p = cxtest::pixelAt(*hazy, windowWidth / 2, y);
        EXPECT_GT(p.b(), p.r() + 25) << "row " << y;
        EXPECT_GE(p.b(), p.g()) << "row " << y;
    }
    const osg::Vec4ub top = cxtest::pixelAt(*hazy, windowWidth / 2, 0);
    const osg::Vec4ub low = cxtest::pixelAt(*hazy, windowWidth / 2, horizonRow - 3);
    EXPECT_GE(brightness(low), brightness(top));

    // Without the haze the distant ground keeps its own colour; with it, it
    // turns towards the sky's, and the ground under the eye hardly changes.
    sky->setHazeEnabled(false);
    osg::ref_ptr<osg::Image> clear = grabFrame();
    sky->setHazeEnabled(true);
    cxtest::saveScreenshot(*clear, "globe_horizon_2km_no_haze");
    auto change = [&](int y) {
        const osg::Vec4ub a = cxtest::pixelAt(*hazy, windowWidth / 2, y), b = cxtest::pixelAt(*clear, windowWidth / 2, y);
        return std::abs(a.r() - b.r()) + std::abs(a.g() - b.g()) + std::abs(a.b() - b.b());
    };
    const int distant = change(horizonRow + 2), near = change(windowHeight - 3);
    EXPECT_GT(distant, 40) << "no haze on the distant ground";
    EXPECT_LT(near, distant / 3) << "the near ground is as hazy as the distant";
    const osg::Vec4ub distantHazy = cxtest::pixelAt(*hazy, windowWidth / 2, horizonRow + 2);
    const osg::Vec4ub distantClear = cxtest::pixelAt(*clear, windowWidth / 2, horizonRow + 2);
    EXPECT_GT(distantHazy.b() - distantHazy.r(), distantClear.b() - distantClear.r()) << "the haze is not bluish";
}

TEST_F(GlobeInUse, TerrainShaderLinks)
{
    frames(3);
    osg::StateSet* ss = viewer->mapNode->getTerrainEngine()->getStateSet();
    ASSERT_NE(ss, nullptr);
    auto* program = dynamic_cast<osg::Program*>(ss->getAttribute(osg::StateAttribute::PROGRAM));
    ASSERT_NE(program, nullptr);
    osg::Program::PerContextProgram* pcp = program->getPCP(*viewer->graphicsContext->getState());
    ASSERT_NE(pcp, nullptr);
    std::string log;
    pcp->getInfoLog(log);
    EXPECT_TRUE(pcp->isLinked()) << log;
}
