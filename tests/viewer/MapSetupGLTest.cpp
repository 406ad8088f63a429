// The map set-up on a real X11 window with the real sample data (Blue Marble
// imagery and SRTM elevation prepared by scripts/prepare-data.sh): the start
// flight over China, picking the ground, and the failure cases.
#include "SampleMapFixture.h"
#include "TempDir.h"

#include <globe/AutoClipPlaneCullCallback>
#include <globe/ElevationLayer>
#include <globe/ImageLayer>
#include <globe/SkyNode>

#include <osgDB/FileNameUtils>
#include <osgDB/ReadFile>
#include <osgDB/Registry>
#include <osgUtil/LineSegmentIntersector>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

using cxtest::ViewerFixture;

using cxtest::sampleDataPresent;
using cxtest::sampleDir;
using cxtest::secondsSince;

using MapSetup = cxtest::SampleMapFixture;

TEST_F(MapSetup, StartFlightShowsTheGlobeOverChinaInFrontOfTheSky)
{
    ASSERT_NE(globeManipulator(), nullptr) << "the earth file did not load";
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(settle()) << "the start flight or its tiles did not finish";
    EXPECT_GE(secondsSince(start), 2.9) << "the start flight lasts 3 s";
    osg::ref_ptr<osg::Image> frame = grabFrame();
    ASSERT_TRUE(frame.valid());
    cxtest::saveScreenshot(*frame, "map_start_view");

    double lon = 0.0, lat = 0.0, h = 0.0;
    globeManipulator()->getGeographicFocalPoint(globeManipulator()->getViewpoint(), lon, lat, h);
    EXPECT_NEAR(lon, 109.0, 1e-3);
    EXPECT_NEAR(lat, 32.0, 1e-3);
    EXPECT_NEAR(globeManipulator()->getViewpoint().getRange(), 20928182.0, 1.0);

    // The globe fills the middle of the window: the window centre looks at
    // the start point, and the disc reaches most of the window's height.
    osg::Vec3d centre = toWindow(worldOf(109.0, 32.0));
    EXPECT_NEAR(centre.x(), windowWidth / 2.0, 1.0);
    EXPECT_NEAR(centre.y(), windowHeight / 2.0, 1.0);
    for (const auto& [x, y] : {std::pair{0.5, 0.5}, {0.3, 0.5}, {0.7, 0.5}, {0.5, 0.15}, {0.5, 0.85}})
    {
        osg::Vec3d hit;
        EXPECT_TRUE(pick(x * windowWidth, y * windowHeight, hit)) << "no ground at " << x << ", " << y;
    }

    // Sea is blue, land is not.
    for (const auto& [seaLon, seaLat] : {std::pair{135.0, 20.0}, {150.0, 30.0}, {88.0, 15.0}, {115.0, 15.0}})
    {
        const osg::Vec4ub sea = colourAt(*frame, seaLon, seaLat);
        // Blue leads by a clear margin (the deep ocean of the imagery is a
        // dark navy).
        const int redGreen = std::max(sea.r(), sea.g());
        EXPECT_GT(sea.b(), redGreen + 10) << "sea at " << seaLon << ", " << seaLat << ": " << int(sea.r()) << " "
                                          << int(sea.g()) << " " << int(sea.b());
        EXPECT_GT(sea.b() * 2, redGreen * 3) << "sea at " << seaLon << ", " << seaLat;
    }
    for (const auto& [landLon, landLat] : {std::pair{105.0, 35.0}, {90.0, 33.0}, {105.0, 42.0}, {78.0, 22.0}})
    {
        const osg::Vec4ub land = colourAt(*frame, landLon, landLat);
        EXPECT_LT(land.b(), std::max(land.r(), land.g())) << "land at " << landLon << ", " << landLat << ": "
                                                         << int(land.r()) << " " << int(land.g()) << " "
                                                         << int(land.b());
    }

    // The sky is behind the globe: its glow shows just outside the limb and
    // nothing of it covers the disc.
    const osg::Vec3d eye = osg::Matrixd::inverse(viewer->getViewer()->getCamera()->getViewMatrix()).getTrans();
    const double limbAngle = std::asin(viewer->mapNode->getEllipsoidModel()->getRadiusEquator() / eye.length());
    const double pixelsPerRadian =
        windowHeight / 2.0 / std::tan(osg::DegreesToRadians(30.0) / 2.0);
    const int limb = static_cast<int>(std::lround(std::tan(limbAngle) * pixelsPerRadian));
    // At 9:00 UTC the sun stands over the Indian Ocean: the western limb is
    // in daylight and glows, the eastern one (the Pacific's night) is dark.
    const osg::Vec4ub glow = cxtest::pixelAt(*frame, windowWidth / 2 - limb - 2, windowHeight / 2);
    EXPECT_GT(glow.b(), glow.r() + 20) << "no sky glow beside the limb";
    const osg::Vec4ub night = cxtest::pixelAt(*frame, windowWidth / 2 + limb + 2, windowHeight / 2);
    EXPECT_LT(night.b(), glow.b() / 2) << "the night side glows like the day side";
    const osg::Vec4ub inside = cxtest::pixelAt(*frame, windowWidth / 2 + limb - 20, windowHeight / 2);
    EXPECT_NE(inside, cxtest::pixelAt(*frame, 2, 2));
}

TEST_F(MapSetup, GroundPickedOverBeijingHasTheDataHeight)
{
    lookDownAt(116.39, 39.91, 0.0, 5000.0);
    osg::ref_ptr<osg::Image> frame = grabFrame();
    cxtest::saveScreenshot(*frame, "map_beijing_5km");

    double lon = 0.0, lat = 0.0, height = 0.0;
    pickCentre(lon, lat, height);
    EXPECT_NEAR(lon, 116.39, 0.01);
    EXPECT_NEAR(lat, 39.91, 0.01);
    osg::ref_ptr<globe::ElevationLayer> dem =
        dynamic_cast<globe::ElevationLayer*>(viewer->mapNode->getMap()->getLayerByName("GlobeHeightfield").get());
    ASSERT_TRUE(dem.valid());
    float expected = 0.0f;
    ASSERT_TRUE(dem->getHeight(lon, lat, expected));
    EXPECT_NEAR(height, expected, 10.0);
    std::printf("Beijing: picked %.5f, %.5f at %.1f m; elevation data %.1f m\n", lon, lat, height, expected);
}

TEST_F(MapSetup, GroundPickedNearEverestIsHigh)
{
    lookDownAt(86.93, 27.99, 0.0, 40000.0);
    osg::ref_ptr<osg::Image> frame = grabFrame();
    cxtest::saveScreenshot(*frame, "map_everest_40km");

    double lon = 0.0, lat = 0.0, height = 0.0;
    pickCentre(lon, lat, height);
    EXPECT_NEAR(lon, 86.93, 0.01);
    EXPECT_NEAR(lat, 27.99, 0.01);
    EXPECT_GT(height, 4500.0);
    std::printf("Everest: picked %.5f, %.5f at %.1f m\n", lon, lat, height);
}

TEST_F(MapSetup, InstallsManipulatorSkyClipPlanesLayersAndPipeLines)
{
    // Before the first frame: what InitOsgEarth left.
    CXViewer& v = *viewer;
    ASSERT_TRUE(v.earthManipulator.valid());
    EXPECT_EQ(v.getViewer()->getCameraManipulator(), v.earthManipulator.get());
    CXEarthManipulator::Settings* settings = v.earthManipulator->getSettings();
    EXPECT_EQ(settings->getAction(osgGA::GUIEventAdapter::DOUBLECLICK, osgGA::GUIEventAdapter::LEFT_MOUSE_BUTTON, 0)._type,
              CXEarthManipulator::ACTION_NULL);
    EXPECT_EQ(settings->getAction(osgGA::GUIEventAdapter::DOUBLECLICK, osgGA::GUIEventAdapter::RIGHT_MOUSE_BUTTON, 0)._type,
              CXEarthManipulator::ACTION_NULL);
    EXPECT_TRUE(settings->getArcViewpointTransitions());
    EXPECT_EQ(settings->getMinDistance(), 0.0);
    EXPECT_EQ(settings->getMaxDistance(), 66666666.0);
    ASSERT_TRUE(v.earthManipulator->_homeViewpoint.isSet());
    double lon = 0.0, lat = 0.0, h = 0.0;
    v.earthManipulator->getGeographicFocalPoint(v.earthManipulator->_homeViewpoint.get(), lon, lat, h);
    EXPECT_NEAR(lon, 109.0, 1e-9);
    EXPECT_NEAR(lat, 32.0, 1e-9);
    EXPECT_NEAR(h, 10.0, 1e-6);
    EXPECT_EQ(v.earthManipulator->_homeViewpoint.get().getRange(), 20928182.0);
    EXPECT_EQ(v.earthManipulator->_homeViewpoint.get().getPitch(), -90.0);
    EXPECT_EQ(v.earthManipulator->_homeViewpointDuration, 0.0);
    EXPECT_TRUE(v.earthManipulator->isSettingViewpoint());

    // The map under the root, with the two layers in front.
    ASSERT_TRUE(v.mapNode.valid());
    ASSERT_EQ(v.mapNode->getNumParents(), 1u);
    EXPECT_EQ(v.mapNode->getParent(0), v.getRoot());
    globe::Map* map = v.mapNode->getMap();
    ASSERT_EQ(map->getNumLayers(), 2u);
    osg::ref_ptr<globe::ImageLayer> image = dynamic_cast<globe::ImageLayer*>(map->getLayerAt(0).get());
    osg::ref_ptr<globe::ElevationLayer> dem = dynamic_cast<globe::ElevationLayer*>(map->getLayerAt(1).get());
    ASSERT_TRUE(image.valid());
    ASSERT_TRUE(dem.valid());
    EXPECT_EQ(image->getName(), "baseImage");
    EXPECT_EQ(dem->getName(), "GlobeHeightfield");
    EXPECT_EQ(image->options().driver().getDriver(), "mbtiles");
    EXPECT_EQ(image->options().driver().getFilename(), basePath + "/data/base/image.db");
    EXPECT_EQ(dem->options().driver().getFilename(), basePath + "/data/base/dem.db");
    EXPECT_TRUE(image->options().cachePolicy() == globe::CachePolicy::NO_CACHE);
    EXPECT_TRUE(dem->options().cachePolicy() == globe::CachePolicy::NO_CACHE);
    EXPECT_TRUE(image->getEnabled());
    EXPECT_TRUE(dem->getEnabled());
    EXPECT_TRUE(image->open()) << image->getStatusMessage();
    EXPECT_TRUE(dem->open()) << dem->getStatusMessage();

    // The pipe lines below the map.
    ASSERT_NE(v.getPipeLines(), nullptr);
    ASSERT_EQ(v.getPipeLines()->getNumParents(), 1u);
    EXPECT_EQ(v.getPipeLines()->getParent(0), v.mapNode.get());

    // The sky after the map, with its sun at the fixed time.
    globe::SkyNode* sky = nullptr;
    for (unsigned int i = 0; i < v.getRoot()->getNumChildren(); ++i)
        if (auto* s = dynamic_cast<globe::SkyNode*>(v.getRoot()->getChild(i)))
            sky = s;
    ASSERT_NE(sky, nullptr);
    EXPECT_EQ(sky->getName(), "skynode");
    EXPECT_GT(v.getRoot()->getChildIndex(sky), v.getRoot()->getChildIndex(v.mapNode.get()));
    EXPECT_EQ(sky->getMinimumAmbient(), osg::Vec4f(1.0f, 1.0f, 1.0f, 1.0f));
    EXPECT_TRUE(sky->getDateTime() == globe::DateTime(2018, 11, 30, 9.0));
    const osg::Light* sun = sky->getSunLight();
    EXPECT_EQ(sun->getPosition(), osg::Vec4(0.0f, 0.0f, 1.0f, 0.0f));
    EXPECT_EQ(sun->getAmbient(), osg::Vec4(0.03f, 0.03f, 0.03f, 1.0f));
    EXPECT_EQ(sun->getDiffuse(), osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f));
    EXPECT_EQ(sun->getSpecular(), osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f));
    EXPECT_EQ(v.getViewer()->getLightingMode(), osg::View::SKY_LIGHT);
    EXPECT_EQ(v.getViewer()->getLight(), sun);

    // Two clip plane callbacks on the camera, one behind the other.
    std::vector<const globe::AutoClipPlaneCullCallback*> clips;
    for (const osg::Callback* cb = v.getViewer()->getCamera()->getCullCallback(); cb; cb = cb->getNestedCallback())
        if (auto* clip = dynamic_cast<const globe::AutoClipPlaneCullCallback*>(cb))
            clips.push_back(clip);
    ASSERT_EQ(clips.size(), 2u);
    EXPECT_NE(clips[0], clips[1]);

    // The first frame starts the terrain from the map's layers.
    frames(1);
    EXPECT_TRUE(v.mapNode->getTerrainEngine()->hasTerrain());

    // The viewer's paging switch reaches the globe's manipulator.
    const bool blocked = v.earthManipulator->_pagingBlocked.load();
    v.changeManipulatorState();
    EXPECT_NE(v.earthManipulator->_pagingBlocked.load(), blocked);
    v.changeManipulatorState();
    EXPECT_EQ(v.earthManipulator->_pagingBlocked.load(), blocked);
}

TEST_F(MapSetup, DoubleClicksDoNotMoveTheCamera)
{
    ASSERT_TRUE(settle());
    osg::Camera* camera = viewer->getViewer()->getCamera();
    const float x = windowWidth * 0.4f, y = windowHeight * 0.6f;
    for (unsigned int button : {1u, 3u})
    {
        const osg::Matrixd before = camera->getViewMatrix();
        doubleClick(x, y, button);
        frames(10);
        EXPECT_EQ(camera->getViewMatrix(), before) << "double click of button " << button;
        EXPECT_FALSE(globeManipulator()->isSettingViewpoint());
    }
    // With Ctrl held the default goto (a flight farther out) does nothing either.
    const osg::Matrixd before = camera->getViewMatrix();
    eventQueue()->getCurrentEventState()->setModKeyMask(osgGA::GUIEventAdapter::MODKEY_LEFT_CTRL);
    doubleClick(x, y, 1);
    frames(10);
    eventQueue()->getCurrentEventState()->setModKeyMask(0);
    EXPECT_EQ(camera->getViewMatrix(), before);
}

/** A viewer whose base path holds nothing. */
class MapSetupWithoutData : public ViewerFixture
{
protected:
    MapSetupWithoutData()
    {
        windowWidth = 320;
        windowHeight = 240;
        basePath = (dir.path() / "nothing-here").string();
    }
    cxtest::TempDir dir;
};

TEST_F(MapSetupWithoutData, SceneStaysMaplessAndKeepsItsManipulator)
{
    CXViewer& v = *viewer;
    ASSERT_TRUE(v.mapNode.valid()) << "the map node is never null";
    EXPECT_EQ(v.mapNode->getNumParents(), 0u);
    EXPECT_EQ(v.mapNode->getMap()->getNumLayers(), 0u);
    // Only the region labels went to the empty map, hidden.
    ASSERT_EQ(v.mapNode->getNumChildren(), 1u);
    EXPECT_EQ(v.mapNode->getChild(0), v.earthLabelGroup.get());
    EXPECT_EQ(v.earthLabelGroup->getNodeMask(), 0u);
    ASSERT_TRUE(v.earthManipulator.valid());
    EXPECT_NE(v.getViewer()->getCameraManipulator(), v.earthManipulator.get());
    EXPECT_NE(dynamic_cast<CXEarthManipulator*>(v.getViewer()->getCameraManipulator()), nullptr);
    EXPECT_EQ(dynamic_cast<globe::EarthManipulator*>(v.getViewer()->getCameraManipulator()), nullptr);
    EXPECT_EQ(v.getPipeLines(), nullptr);
    for (unsigned int i = 0; i < v.getRoot()->getNumChildren(); ++i)
        EXPECT_EQ(dynamic_cast<globe::SkyNode*>(v.getRoot()->getChild(i)), nullptr);

    // Frames, input and the services keep working on the empty scene.
    frames(3);
    mouseDrag(100, 100, 200, 150, 1, 3);
    scroll(osgGA::GUIEventAdapter::SCROLL_UP, 160, 120);
    osg::ref_ptr<osg::Image> frame = grabFrame();
    ASSERT_TRUE(frame.valid());
    cxtest::saveScreenshot(*frame, "map_no_data");
    // Nothing but the clear colour (0.7 grey).
    const osg::Vec4ub centre = cxtest::pixelAt(*frame, 160, 120);
    for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(centre[k], 179, 1) << k;
    EXPECT_FALSE(v.mapNode->getTerrainEngine()->hasTerrain());
}

/** A viewer on a copy of the sample data in a folder with a Chinese name. */
class MapSetupChinesePath : public ViewerFixture
{
protected:
    MapSetupChinesePath()
    {
        windowWidth = 320;
        windowHeight = 240;
        const std::filesystem::path base = dir.path() / u8"北京 数据" / u8"地球";
        const std::string sample = sampleDir();
        if (sampleDataPresent(sample))
        {
            for (const char* file : {"myselftest/china-simple.earth", "data/base/image.db", "data/base/dem.db"})
            {
                std::filesystem::create_directories((base / file).parent_path());
                std::filesystem::copy_file(std::filesystem::path(sample) / file, base / file);
            }
        }
        basePath = base.string();
    }

    void SetUp() override
    {
        ASSERT_TRUE(sampleDataPresent(sampleDir()));
        ViewerFixture::SetUp();
    }

    cxtest::TempDir dir;
};

TEST_F(MapSetupChinesePath, LoadsTheMapAndItsLayersFromAUtf8Folder)
{
    ASSERT_NE(basePath.find(u8"北京 数据/地球"), std::string::npos);
    CXViewer& v = *viewer;
    ASSERT_EQ(v.mapNode->getNumParents(), 1u) << "the earth file below " << basePath << " did not load";
    EXPECT_EQ(v.getViewer()->getCameraManipulator(), v.earthManipulator.get());
    globe::Map* map = v.mapNode->getMap();
    ASSERT_EQ(map->getNumLayers(), 2u);
    for (unsigned int i = 0; i < 2; ++i)
    {
        osg::ref_ptr<globe::Layer> layer = map->getLayerAt(i);
        EXPECT_EQ(layer->options().driver().getFilename().rfind(basePath + "/data/base/", 0), 0u);
        EXPECT_TRUE(layer->open()) << layer->getName() << ": " << layer->getStatusMessage();
    }
    const auto start = std::chrono::steady_clock::now();
    osgDB::DatabasePager* pager = v.getViewer()->getDatabasePager();
    int idle = 0;
    while (idle < 5 && secondsSince(start) < 120.0)
    {
        frames(1);
        idle = (!v.earthManipulator->isSettingViewpoint() && !pager->getRequestsInProgress()) ? idle + 1 : 0;
    }
    osg::ref_ptr<osg::Image> frame = grabFrame();
    cxtest::saveScreenshot(*frame, "map_chinese_path");
    // The globe with its imagery: the window centre over China is land.
    const osg::Vec4ub centre = cxtest::pixelAt(*frame, windowWidth / 2, windowHeight / 2);
    EXPECT_LT(centre.b(), std::max(centre.r(), centre.g()));
    EXPECT_GT(v.mapNode->getTerrainEngine()->getNumTilesBuilt(), 2u);
}

namespace
{

// Stands in for the earth file reader: records the names asked for and
// answers them with `answer`.
class EarthFileStandIn : public osgDB::ReadFileCallback
{
public:
    explicit EarthFileStandIn(osg::Node* answer) : _answer(answer) {}

    osgDB::ReaderWriter::ReadResult readNode(const std::string& fileName, const osgDB::Options* options) override
    {
        if (osgDB::getLowerCaseFileExtension(fileName) != "earth")
            return osgDB::ReadFileCallback::readNode(fileName, options);
        names.push_back(fileName);
        readWithRegistryOptions = options == osgDB::Registry::instance()->getOptions();
        return _answer.get();
    }

    std::vector<std::string> names;
    bool readWithRegistryOptions = false;

private:
    osg::ref_ptr<osg::Node> _answer;
};

} // namespace

/** A viewer whose earth file read the test answers itself. */
class MapSetupReadByTest : public ViewerFixture
{
protected:
    MapSetupReadByTest()
    {
        windowWidth = 320;
        windowHeight = 240;
        initOnSetUp = false;
    }

    void TearDown() override
    {
        osgDB::Registry::instance()->setReadFileCallback(nullptr);
        ViewerFixture::TearDown();
    }

    osg::ref_ptr<EarthFileStandIn> install(osg::Node* answer)
    {
        osg::ref_ptr<EarthFileStandIn> standIn = new EarthFileStandIn(answer);
        osgDB::Registry::instance()->setReadFileCallback(standIn.get());
        return standIn;
    }
};

TEST_F(MapSetupReadByTest, EmptyBasePathGivesPathsFromTheRoot)
{
    osg::ref_ptr<globe::MapNode> map = new globe::MapNode;
    osg::ref_ptr<EarthFileStandIn> standIn = install(map.get());
    viewer->basePath.clear();
    initOSG();

    ASSERT_EQ(standIn->names.size(), 1u);
    EXPECT_EQ(standIn->names[0], "/myselftest/china-simple.earth");
    EXPECT_TRUE(standIn->readWithRegistryOptions);
    EXPECT_EQ(viewer->mapNode.get(), map.get());
    ASSERT_EQ(map->getMap()->getNumLayers(), 2u);
    EXPECT_EQ(map->getMap()->getLayerAt(0)->options().driver().getFilename(), "/data/base/image.db");
    EXPECT_EQ(map->getMap()->getLayerAt(1)->options().driver().getFilename(), "/data/base/dem.db");
    // No such files: the layers are there all the same, without data, and
    // the globe shows its plain ocean colour.
    EXPECT_FALSE(map->getMap()->getLayerAt(0)->open());
    EXPECT_FALSE(map->getMap()->getLayerAt(1)->open());
    auto* manipulator = dynamic_cast<globe::EarthManipulator*>(viewer->getViewer()->getCameraManipulator());
    ASSERT_NE(manipulator, nullptr);
    osgDB::DatabasePager* pager = viewer->getViewer()->getDatabasePager();
    const auto start = std::chrono::steady_clock::now();
    int idle = 0;
    while (idle < 5 && secondsSince(start) < 60.0)
    {
        frames(1);
        idle = (!manipulator->isSettingViewpoint() && !pager->getRequestsInProgress()) ? idle + 1 : 0;
    }
    EXPECT_TRUE(map->getTerrainEngine()->hasTerrain());
    osg::ref_ptr<osg::Image> frame = grabFrame();
    cxtest::saveScreenshot(*frame, "map_layers_without_files");
    const osg::Vec4ub centre = cxtest::pixelAt(*frame, windowWidth / 2, windowHeight / 2);
    EXPECT_GT(centre.b(), centre.r() + 40);
    EXPECT_GT(centre.b(), centre.g() + 30);
}

TEST_F(MapSetupReadByTest, LayersOfTheEarthFileShiftBehindTheTwoLayers)
{
    osg::ref_ptr<globe::Map> content = new globe::Map;
    globe::MBTilesOptions options;
    options.setDriver("mbtiles");
    options.filename() = "/nowhere/overlay.db";
    content->addLayer(new globe::ImageLayer("overlay", options));
    content->addLayer(new globe::ElevationLayer("bathymetry", options));
    osg::ref_ptr<globe::MapNode> map = new globe::MapNode(content.get());
    install(map.get());
    viewer->basePath = "/opt/城市";
    initOSG();

    ASSERT_EQ(content->getNumLayers(), 4u);
    EXPECT_EQ(content->getLayerAt(0)->getName(), "baseImage");
    EXPECT_EQ(content->getLayerAt(1)->getName(), "GlobeHeightfield");
    EXPECT_EQ(content->getLayerAt(2)->getName(), "overlay");
    EXPECT_EQ(content->getLayerAt(3)->getName(), "bathymetry");
    EXPECT_EQ(content->getLayerAt(0)->options().driver().getFilename(), "/opt/城市/data/base/image.db");
}

TEST_F(MapSetupReadByTest, AnEarthFileThatIsNoMapKeepsTheEmptyMap)
{
    osg::ref_ptr<osg::Group> notAMap = new osg::Group;
    install(notAMap.get());
    viewer->basePath = "/opt/x";
    initOSG();

    ASSERT_TRUE(viewer->mapNode.valid());
    EXPECT_EQ(viewer->mapNode->getNumParents(), 0u);
    EXPECT_EQ(viewer->mapNode->getMap()->getNumLayers(), 0u);
    EXPECT_EQ(notAMap->getNumParents(), 0u);
    EXPECT_EQ(dynamic_cast<globe::EarthManipulator*>(viewer->getViewer()->getCameraManipulator()), nullptr);
    EXPECT_EQ(viewer->getPipeLines(), nullptr);
    frames(3);
}
