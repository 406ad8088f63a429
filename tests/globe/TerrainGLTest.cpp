// The paged terrain drawn on a real X11 window (Mesa llvmpipe on Xvfb): a
// small map made by the test, one colour of imagery over steep, rolling
// ground, so that a missing tile, a hole or a seam along a tile's texture
// edge shows as a pixel of another colour; and the ice cap at the pole.
// (That skirts cover the gaps between levels is measured on the geometry in
// TerrainEngineTest.)
#include "MBTilesTestFiles.h"
#include "TempDir.h"
#include "ViewerFixture.h"

#include <globe/EarthManipulator>
#include <globe/MapNode>
#include <globe/SkyNode>
#include <globe/TerrainEngine>

#include <osgUtil/RenderStage>
#include <osgUtil/SceneView>
#include <osgUtil/Statistics>
#include <osgViewer/Renderer>

#include <chrono>
#include <cmath>
#include <iostream>

using cxtest::ViewerFixture;

namespace
{

constexpr unsigned char kGreen[3] = {40, 160, 60};

double seconds(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

bool isGreen(const osg::Vec4ub& p)
{
    return std::abs(p.r() - kGreen[0]) <= 12 && std::abs(p.g() - kGreen[1]) <= 12 && std::abs(p.b() - kGreen[2]) <= 12;
}

} // namespace

/** A viewer on a map below a temporary base path: green imagery down to
  * level 2 (PNG, so the colour is exact) and Terrain-RGB hills of +-3 km
  * every 200 km or so down to level 4. */
class TerrainDrawing : public ViewerFixture
{
protected:
    TerrainDrawing()
    {
        windowWidth = 400;
        windowHeight = 300;
        basePath = dir.path().string();
        dir.write("myselftest/china-simple.earth", "<map name=\"test\" type=\"geocentric\" version=\"2\"/>");
        std::filesystem::create_directories(dir.path() / "data/base");
        {
            cxtest::MBTilesFile image((dir.path() / "data/base/image.db").string());
            const std::string green = cxtest::encode(*cxtest::solidImage(256, kGreen[0], kGreen[1], kGreen[2]), "png");
            for (int z = 0; z <= 2; ++z)
                for (int x = 0; x < (1 << z); ++x)
                    for (int y = 0; y < (1 << z); ++y)
                        image.tile(z, x, y, green);
        }
        {
            cxtest::MBTilesFile dem((dir.path() / "data/base/dem.db").string());
            for (int z = 0; z <= 4; ++z)
            {
                for (int x = 0; x < (1 << z); ++x)
                {
                    for (int y = 0; y < (1 << z); ++y)
                    {
                        const double size = 64.0 * (1 << z);
                        dem.tile(z, x, y, cxtest::terrainRGBTile(64, [&](int c, int r) {
                            const double u = (x * 64 + c + 0.5) / size, v = (y * 64 + r + 0.5) / size;
                            return 3000.0 * std::sin(u * 1300.0) * std::cos(v * 1150.0);
                        }));
                    }
                }
            }
        }
    }

    void SetUp() override
    {
        ViewerFixture::SetUp();
        // The haze of the air tints distant ground; these tests look for a
        // pixel of another colour than the imagery's.
        for (unsigned int i = 0; viewer && i < viewer->getRoot()->getNumChildren(); ++i)
            if (auto* sky = dynamic_cast<globe::SkyNode*>(viewer->getRoot()->getChild(i)))
                sky->setHazeEnabled(false);
    }

    globe::EarthManipulator* manipulator() const
    {
        return dynamic_cast<globe::EarthManipulator*>(viewer->getViewer()->getCameraManipulator());
    }

    bool settle(double limit = 120.0)
    {
        const auto start = std::chrono::steady_clock::now();
        osgDB::DatabasePager* pager = viewer->getViewer()->getDatabasePager();
        int idle = 0;
        while (idle < 5 && seconds(start) < limit)
        {
            frames(1);
            idle = (!manipulator()->isSettingViewpoint() && !pager->getRequestsInProgress()) ? idle + 1 : 0;
        }
        return idle >= 5;
    }

    /** Pixels of the frame inside the rectangle (fractions of the window,
      * from the top-left corner) that are not green. */
    int countOffColour(const osg::Image& frame, double x0, double y0, double x1, double y1) const
    {
        int off = 0;
        for (int y = static_cast<int>(y0 * frame.t()); y < static_cast<int>(y1 * frame.t()); ++y)
            for (int x = static_cast<int>(x0 * frame.s()); x < static_cast<int>(x1 * frame.s()); ++x)
                off += isGreen(cxtest::pixelAt(frame, x, y)) ? 0 : 1;
        return off;
    }

    /** Drawables the main camera drew in the last frame. */
    unsigned int drawablesDrawn() const
    {
        auto* renderer = dynamic_cast<osgViewer::Renderer*>(viewer->getViewer()->getCamera()->getRenderer());
        osgUtil::SceneView* sceneView = renderer ? renderer->getSceneView(0) : nullptr;
        if (!sceneView || !sceneView->getRenderStage())
            return 0;
        osgUtil::Statistics stats;
        sceneView->getRenderStage()->getStats(stats);
        return stats.numDrawables;
    }

    cxtest::TempDir dir;
};

TEST_F(TerrainDrawing, GlobeFromSpaceIsOneColourWithoutSeamsOrHoles)
{
    ASSERT_NE(manipulator(), nullptr) << "the test map did not load";
    ASSERT_TRUE(settle());
    osg::ref_ptr<osg::Image> frame = grabFrame();
    cxtest::saveScreenshot(*frame, "terrain_from_space");
    // The middle of the disc (the globe is about 0.9 of the window high).
    EXPECT_EQ(countOffColour(*frame, 0.35, 0.25, 0.65, 0.75), 0);
    EXPECT_GT(viewer->mapNode->getTerrainEngine()->getNumTilesBuilt(), 6u);
}

TEST_F(TerrainDrawing, SteepHillsSeenObliquelyShowNoSeamsOrHoles)
{
    ASSERT_TRUE(settle());
    for (const auto& [lon, lat, pitch, range] :
         {std::tuple{95.0, 30.0, -35.0, 60000.0}, {10.0, 47.0, -60.0, 150000.0}, {-70.0, -20.0, -25.0, 80000.0}})
    {
        manipulator()->setViewpoint(manipulator()->createViewpoint(lon, lat, 0.0, 30.0, pitch, range), 0.0);
        ASSERT_TRUE(settle());
        osg::ref_ptr<osg::Image> frame = grabFrame();
        cxtest::saveScreenshot(*frame, "terrain_hills_" + std::to_string(static_cast<int>(lon)));
        // The lower half of the window is ground: all of it green.
        EXPECT_EQ(countOffColour(*frame, 0.0, 0.55, 1.0, 1.0), 0) << lon << ", " << lat;
    }
}

TEST_F(TerrainDrawing, PolesBeyondTheImageryShowOceanInTheNorthAndIceInTheSouth)
{
    ASSERT_TRUE(settle());
    for (const double lat : {89.99, -89.99})
    {
        manipulator()->setViewpoint(manipulator()->createViewpoint(0.0, lat, 0.0, 0.0, -90.0, 3.0e6), 0.0);
        ASSERT_TRUE(settle());
        osg::ref_ptr<osg::Image> frame = grabFrame();
        cxtest::saveScreenshot(*frame, lat > 0 ? "terrain_north_pole" : "terrain_south_pole");
        // Beyond 85.05 degrees the imagery ends: the Arctic Ocean's blue, the
        // Antarctic ice sheet's white, with no blur of the imagery around the
        // pole itself.
        const osg::Vec4ub pole = cxtest::pixelAt(*frame, windowWidth / 2, windowHeight / 2);
        if (lat > 0)
        {
            EXPECT_GT(pole.b(), pole.r() + 40) << "north";
            EXPECT_GT(pole.b(), pole.g() + 30) << "north";
        }
        else
        {
            EXPECT_GT(pole.r(), 220) << "south";
            EXPECT_GT(pole.g(), 220) << "south";
            EXPECT_GT(pole.b(), 220) << "south";
        }
        EXPECT_EQ(countOffColour(*frame, 0.45, 0.45, 0.55, 0.55), (windowWidth / 10) * (windowHeight / 10))
            << "imagery near the pole";
        // From 3,000 km the window reaches about 800 km from the pole; 85.05
        // degrees lie 550 km from it, so the window's edges show imagery.
        EXPECT_TRUE(isGreen(cxtest::pixelAt(*frame, 2, windowHeight / 2)));
        EXPECT_TRUE(isGreen(cxtest::pixelAt(*frame, windowWidth / 2, 2)));
    }
}

TEST_F(TerrainDrawing, HorizonCullingDrawsFewerTilesForTheSamePicture)
{
    ASSERT_TRUE(settle());
    globe::TerrainEngine* engine = viewer->mapNode->getTerrainEngine();
    ASSERT_TRUE(engine->getHorizonCulling());
    // From 2,700 km, looking at the limb: within the far plane lie tiles
    // over the horizon, on the far side of the globe.
    const auto viewpoint = manipulator()->createViewpoint(95.0, 30.0, 0.0, 30.0, -20.0, 8.0e6);

    // The view paged in from the roots with the culling off and then on
    // (each change rebuilds the terrain): tiles built, drawables drawn and
    // the picture.
    struct Outcome
    {
        unsigned long tilesBuilt = 0;
        unsigned int drawables = 0;
        osg::ref_ptr<osg::Image> picture;
    };
    auto look = [&](bool culling) {
        Outcome out;
        engine->setHorizonCulling(culling);
        frames(1);
        const unsigned long before = engine->getNumTilesBuilt();
        manipulator()->setViewpoint(viewpoint, 0.0);
        EXPECT_TRUE(settle());
        out.picture = grabFrame();
        out.drawables = drawablesDrawn();
        out.tilesBuilt = engine->getNumTilesBuilt() - before;
        return out;
    };
    const Outcome without = look(false);
    const Outcome with = look(true);
    cxtest::saveScreenshot(*without.picture, "terrain_horizon_without_culling");
    cxtest::saveScreenshot(*with.picture, "terrain_horizon_with_culling");
    std::cout << "without horizon culling: " << without.tilesBuilt << " tiles built, " << without.drawables
              << " drawn; with: " << with.tilesBuilt << " built, " << with.drawables << " drawn" << std::endl;

    EXPECT_LT(with.drawables * 10, without.drawables * 9) << "at least a tenth fewer";
    EXPECT_LE(with.tilesBuilt, without.tilesBuilt);
    // The globe in the lower part, space above the limb, and the same pixels
    // either way.
    EXPECT_EQ(countOffColour(*with.picture, 0.25, 0.7, 0.75, 1.0), 0);
    EXPECT_FALSE(isGreen(cxtest::pixelAt(*with.picture, windowWidth / 2, 2)));
    EXPECT_LE(cxtest::differingPixels(*with.picture, *without.picture), windowWidth * windowHeight / 1000);
}
