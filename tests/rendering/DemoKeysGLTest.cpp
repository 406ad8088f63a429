// The demo host's keys on the real sample map, pressed on the window as a
// person would: 'p' the depth partition, 'v' the split view with the planned
// tower on the right, 'k' the sky box with the sample's cube map, 'n' the region
// labels, 'm' the point clouds' draw mode.
#include "SampleMapFixture.h"
#include "WindowCapture.h"

#include "DemoKeys.h"
#include "DemoSkyBox.h"

#include <globe/SkyNode>

#include <algorithm>
#include <cmath>

namespace
{

using cxtest::pixelAt;

int brightness(const osg::Vec4ub& p)
{
    return (p.r() + p.g() + p.b()) / 3;
}

class DemoKeysOnTheMap : public cxtest::SampleMapFixture
{
protected:
    void SetUp() override
    {
        SampleMapFixture::SetUp();
        if (HasFatalFailure())
            return;
        viewer->modelRootPath = basePath + "/models/";
        keys = cxdemo::DemoKeys::install(viewer.get(), basePath);
        windowCapture = cxhost::WindowCapture::install(viewer->graphicsContext);
    }

    osg::ref_ptr<osg::Image> grabWindow()
    {
        windowCapture->arm();
        frames(1);
        return windowCapture->image();
    }

    void press(int key)
    {
        keyPress(key);
        keyRelease(key);
        frames(2);
    }

    globe::SkyNode* sky()
    {
        for (unsigned int i = 0; i < viewer->getRoot()->getNumChildren(); ++i)
            if (auto* s = dynamic_cast<globe::SkyNode*>(viewer->getRoot()->getChild(i)))
                return s;
        return nullptr;
    }

    osg::ref_ptr<cxdemo::DemoKeys> keys;
    osg::ref_ptr<cxhost::WindowCapture> windowCapture;
};

TEST_F(DemoKeysOnTheMap, PSwitchesTheDepthPartitionAtTheFirstPress)
{
    ASSERT_TRUE(settle());
    press('p');
    EXPECT_TRUE(keys->depthPartitionOn());
    EXPECT_EQ(viewer->getViewer()->getNumSlaves(), 2u);
    EXPECT_TRUE(viewer->GetDepthPartitionEnable());
    press('p');
    EXPECT_FALSE(keys->depthPartitionOn());
    EXPECT_NE(viewer->getViewer()->getCamera()->getGraphicsContext(), nullptr);
    press('p');
    EXPECT_TRUE(keys->depthPartitionOn());
    // Other keys pass on.
    keyPress('x');
    keyRelease('x');
    frames(1);
    EXPECT_TRUE(keys->depthPartitionOn());
}

TEST_F(DemoKeysOnTheMap, VSplitsTheViewWithThePlannedTowerOnTheRightOnly)
{
    lookAt(116.458, 39.912, 0.0, 30.0, -28.0, 1600.0);
    const CXViewport before = globeManipulator()->getViewpoint();
    press('v');
    ASSERT_TRUE(keys->splitViewOn());
    ASSERT_NE(viewer->GetViceView(), nullptr);
    // The view stayed where it was, though the vice view took the
    // manipulator home.
    const CXViewport after = globeManipulator()->getViewpoint();
    EXPECT_LT((after.getFocalPoint() - before.getFocalPoint()).length(), 1.0);
    ASSERT_EQ(viewer->GetViceModels()->getNumChildren(), 1u);
    EXPECT_EQ(viewer->GetViceModels()->getChild(0)->getName(), "planned tower");
    ASSERT_TRUE(settle());
    osg::ref_ptr<osg::Image> image = grabWindow();
    ASSERT_TRUE(image.valid());
    cxtest::saveScreenshot(*image, "demo_split_view");

    // The tower's middle, seen by each half.
    const osg::BoundingSphere tower = viewer->GetViceModels()->getChild(0)->getBound();
    auto pixelOf = [&](osg::Camera* camera) {
        const osg::Vec3d w = osg::Vec3d(tower.center()) * camera->getViewMatrix() * camera->getProjectionMatrix() *
                             camera->getViewport()->computeWindowMatrix();
        return std::pair<int, int>(static_cast<int>(w.x()), image->t() - 1 - static_cast<int>(w.y()));
    };
    const auto [rx, ry] = pixelOf(viewer->GetViceView()->getCamera());
    const auto [lx, ly] = pixelOf(viewer->getViewer()->getCamera());
    ASSERT_GE(rx, windowWidth / 2);
    ASSERT_LT(lx, windowWidth / 2);
    // On the right the tower's facade, on the left what lies behind it: the
    // two differ there, and are alike elsewhere.
    int differ = 0;
    for (int dy = -3; dy <= 3; ++dy)
    {
        const osg::Vec4ub r = pixelAt(*image, rx, ry + dy), l = pixelAt(*image, lx, ly + dy);
        differ += std::abs(r.r() - l.r()) + std::abs(r.g() - l.g()) + std::abs(r.b() - l.b()) > 30;
    }
    EXPECT_GE(differ, 4);

    press('v');
    EXPECT_FALSE(keys->splitViewOn());
    EXPECT_EQ(viewer->getCompositeViewer()->getNumViews(), 1u);
    EXPECT_EQ(viewer->getViewer()->getCamera()->getViewport()->width(), windowWidth);
}

TEST_F(DemoKeysOnTheMap, KPutsTheSampleSkyBoxAroundTheGlobe)
{
    // The start view from space: the globe in the middle, space around it.
    ASSERT_TRUE(settle());
    osg::ref_ptr<osg::Image> plain = grabWindow();
    press('k');
    ASSERT_TRUE(keys->skyBoxOn()) << "the sample has no sky box faces (scripts/prepare-data.sh)";
    ASSERT_NE(sky(), nullptr);
    EXPECT_EQ(sky()->getSpace()->getNodeMask(), 0u);
    EXPECT_EQ(sky()->getStars()->getNodeMask(), 0u);
    frames(2);
    osg::ref_ptr<osg::Image> boxed = grabWindow();
    ASSERT_TRUE(boxed.valid());
    cxtest::saveScreenshot(*boxed, "demo_sky_box_space");

    // Around the globe the cube map's night sky and its stars; the globe
    // itself as it was.
    osg::Vec3d hit;
    int space = 0, changedSky = 0, globe = 0, changedGlobe = 0, stars = 0;
    for (int y = 0; y < windowHeight; y += 3)
        for (int x = 0; x < windowWidth; x += 3)
        {
            const osg::Vec4ub a = pixelAt(*plain, x, y), b = pixelAt(*boxed, x, y);
            const int change = std::abs(a.r() - b.r()) + std::abs(a.g() - b.g()) + std::abs(a.b() - b.b());
            if (pick(x, windowHeight - 1 - y, hit))
            {
                ++globe;
                changedGlobe += change > 6;
            }
            else
            {
                // The cube map's night is bluer than the globe's space, by a
                // little: any change counts.
                ++space;
                changedSky += change > 0;
            }
        }
    // Stars of the cube map, where the globe's own stars are not: in the
    // corners, well away from the glow of the limb.
    int ownStars = 0;
    const int corner = 70;
    for (int y = 0; y < windowHeight; ++y)
        for (int x = 0; x < windowWidth; ++x)
        {
            if ((x >= corner && x < windowWidth - corner) || (y >= corner && y < windowHeight - corner))
                continue;
            const bool star = brightness(pixelAt(*boxed, x, y)) > 24;
            stars += star;
            ownStars += star && brightness(pixelAt(*plain, x, y)) > 24;
        }
    EXPECT_GT(changedSky, space / 2) << changedSky << " of " << space;
    EXPECT_LT(changedGlobe, globe / 50 + 5) << changedGlobe << " of " << globe;
    EXPECT_GT(stars, 3);
    EXPECT_LT(ownStars, stars / 4 + 1) << stars << " stars";

    press('k');
    EXPECT_FALSE(keys->skyBoxOn());
    EXPECT_NE(sky()->getSpace()->getNodeMask(), 0u);
    osg::ref_ptr<osg::Image> again = grabWindow();
    EXPECT_LT(cxtest::differingPixels(*plain, *again, 6), windowWidth * windowHeight / 200);
}

TEST_F(DemoKeysOnTheMap, SkyBoxAndDepthPartitionTogether)
{
    ASSERT_TRUE(settle());
    press('k');
    ASSERT_TRUE(keys->skyBoxOn());
    frames(2);
    osg::ref_ptr<osg::Image> single = grabWindow();
    press('p');
    ASSERT_TRUE(keys->depthPartitionOn());
    ASSERT_TRUE(settle());
    osg::ref_ptr<osg::Image> partitioned = grabWindow();
    ASSERT_TRUE(partitioned.valid());
    cxtest::saveScreenshot(*partitioned, "demo_sky_box_partition");
    // The sky box is drawn by the far pass only: the near pass does not
    // paint it over the globe.
    EXPECT_LT(cxtest::differingPixels(*single, *partitioned, 12), windowWidth * windowHeight / 100);
}

TEST(DemoSkyBox, MissingFacesAreAClearMessage)
{
    std::string message;
    EXPECT_EQ(cxdemo::makeDemoSkyBox("/nonexistent/skybox", message), nullptr);
    EXPECT_NE(message.find("/nonexistent/skybox/posx.png"), std::string::npos) << message;
}

} // namespace

namespace
{

// The demo's sky box alone, on a plain scene: the eye 100 m over the
// equator at longitude 0, where east is +Y, north +Z and up +X.
class DemoSkyBoxAlone : public cxtest::ViewerFixture
{
protected:
    DemoSkyBoxAlone()
    {
        windowWidth = 320;
        windowHeight = 240;
    }
    void SetUp() override
    {
        ViewerFixture::SetUp();
        if (HasFatalFailure())
            return;
        viewer->getViewer()->setCameraManipulator(nullptr, false);
        windowCapture = cxhost::WindowCapture::install(viewer->graphicsContext);
    }
    osg::ref_ptr<osg::Image> look(const osg::Vec3d& direction, const osg::Vec3d& up)
    {
        const osg::Vec3d eye(6378137.0 + 100.0, 0.0, 0.0);
        viewer->getViewer()->getCamera()->setViewMatrixAsLookAt(eye, eye + direction, up);
        frames(1);
        windowCapture->arm();
        frames(1);
        return windowCapture->image();
    }
    osg::ref_ptr<cxhost::WindowCapture> windowCapture;
};

TEST_F(DemoSkyBoxAlone, TheGlowLiesOnTheHorizonAndTheNightAbove)
{
    std::string message;
    osg::ref_ptr<osg::Node> skyBox = cxdemo::makeDemoSkyBox(cxtest::sampleDir() + "/skybox", message);
    ASSERT_TRUE(skyBox.valid()) << message;
    viewer->getRoot()->addChild(skyBox.get());

    // West along the horizon: the warm glow across the middle row.
    osg::ref_ptr<osg::Image> west = look(osg::Vec3d(0, -1, 0), osg::Vec3d(1, 0, 0));
    ASSERT_TRUE(west.valid());
    cxtest::saveScreenshot(*west, "demo_sky_box_west");
    const osg::Vec4ub horizon = pixelAt(*west, windowWidth / 2, windowHeight / 2);
    const osg::Vec4ub above = pixelAt(*west, windowWidth / 2, 5);
    EXPECT_GT(horizon.r(), 120) << int(horizon.r()) << "," << int(horizon.g()) << "," << int(horizon.b());
    EXPECT_GT(horizon.r(), horizon.b());
    EXPECT_LT(brightness(above), brightness(horizon) / 2);

    // East: the glow is cool; straight up: the dark of night.
    osg::ref_ptr<osg::Image> east = look(osg::Vec3d(0, 1, 0), osg::Vec3d(1, 0, 0));
    cxtest::saveScreenshot(*east, "demo_sky_box_east");
    const osg::Vec4ub eastHorizon = pixelAt(*east, windowWidth / 2, windowHeight / 2);
    EXPECT_GT(eastHorizon.b(), eastHorizon.r());
    osg::ref_ptr<osg::Image> zenith = look(osg::Vec3d(1, 0, 0), osg::Vec3d(0, 0, 1));
    cxtest::saveScreenshot(*zenith, "demo_sky_box_zenith");
    EXPECT_LT(brightness(pixelAt(*zenith, windowWidth / 2, windowHeight / 2)), 40);

    // Towards a corner of the cube, where three faces meet (north-east and
    // 35 degrees up): the night sky between the stars is smooth, with the
    // faces' edges across it (the faces' texels are compared across the
    // edges by the generator's own tests).
    osg::ref_ptr<osg::Image> corner = look(osg::Vec3d(1, 1, 1), osg::Vec3d(1, 0, 0));
    cxtest::saveScreenshot(*corner, "demo_sky_box_corner");
    double sum = 0.0;
    int n = 0;
    for (int y = 1; y < windowHeight - 1; ++y)
        for (int x = 1; x < windowWidth - 1; ++x)
        {
            const int b = brightness(pixelAt(*corner, x, y));
            const int right = brightness(pixelAt(*corner, x + 1, y));
            const int below = brightness(pixelAt(*corner, x, y + 1));
            if (std::max({b, right, below}) > 14)
                continue; // a star or its halo
            const int step = std::abs(b - right) + std::abs(b - below);
            sum += step;
            ++n;
        }
    EXPECT_GT(n, windowWidth * windowHeight / 2);
    EXPECT_LT(sum / n, 1.0);
}

} // namespace

TEST_F(DemoKeysOnTheMap, NShowsAndHidesTheRegionLabels)
{
    ASSERT_TRUE(settle());
    ASSERT_TRUE(viewer->earthLabelGroup.valid());
    EXPECT_EQ(viewer->earthLabelGroup->getNodeMask(), 0u) << "hidden after InitOSG";
    osg::ref_ptr<osg::Image> hidden = grabFrame();
    press('n');
    EXPECT_TRUE(keys->labelsShown());
    EXPECT_NE(viewer->earthLabelGroup->getNodeMask(), 0u);
    // The start view is over China: the labels change the picture.
    osg::ref_ptr<osg::Image> shown = grabFrame();
    EXPECT_GT(cxtest::differingPixels(*hidden, *shown, 30), 200);
    press('N');
    EXPECT_FALSE(keys->labelsShown());
    EXPECT_EQ(viewer->earthLabelGroup->getNodeMask(), 0u);
}

TEST_F(DemoKeysOnTheMap, MCyclesThePointCloudDrawModes)
{
    ASSERT_TRUE(settle());
    EXPECT_EQ(keys->pointCloudDrawMode(), 0);
    for (int expected : {1, 2, 3, 0, 1})
    {
        press('m');
        EXPECT_EQ(keys->pointCloudDrawMode(), expected);
        float mode = -1.0f;
        viewer->getLiDAR()->getStateSet()->getUniform("PotreeDrawmode")->get(mode);
        EXPECT_FLOAT_EQ(mode, static_cast<float>(expected));
    }
}
