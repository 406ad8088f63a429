// The rendering modes on the real sample map: the depth partition's slave
// cameras together with the globe's own near/far callback and its sky, from
// space and near the ground; the split view over the globe; the vice view
// made and removed while the pagers work.
#include "SampleMapFixture.h"
#include "WindowCapture.h"

#include <globe/SkyNode>
#include <rendering/MyNewUpdateSlaveCallback>

#include <osg/MatrixTransform>
#include <osg/ShapeDrawable>

#include <cmath>

namespace
{

using cxtest::pixelAt;

int brightness(const osg::Vec4ub& p)
{
    return (p.r() + p.g() + p.b()) / 3;
}

bool near(const osg::Vec4ub& p, int r, int g, int b, int tolerance = 3)
{
    return std::abs(p.r() - r) <= tolerance && std::abs(p.g() - g) <= tolerance && std::abs(p.b() - b) <= tolerance;
}

std::string describe(const osg::Vec4ub& p)
{
    return "(" + std::to_string(p.r()) + ", " + std::to_string(p.g()) + ", " + std::to_string(p.b()) + ")";
}

class RenderingOnTheMap : public cxtest::SampleMapFixture
{
protected:
    void SetUp() override
    {
        SampleMapFixture::SetUp();
        if (HasFatalFailure())
            return;
        windowCapture = cxhost::WindowCapture::install(viewer->graphicsContext);
    }

    osg::ref_ptr<osg::Image> grabWindow()
    {
        windowCapture->arm();
        frames(1);
        return windowCapture->image();
    }

    /** Frames until the pager is idle again (the slave cameras ask for what
      * they see). */
    void settleFrames()
    {
        ASSERT_TRUE(settle()) << "the view did not settle";
    }

    /** Of the four corners of the window, how many are dark and how many
      * show the clear colour. */
    void corners(const osg::Image& image, int& dark, int& clearColour)
    {
        const osg::Vec4 clear = viewer->getViewer()->getCamera()->getClearColor();
        dark = clearColour = 0;
        for (const auto& [x, y] : {std::pair{2, 2}, {windowWidth - 3, 2}, {2, windowHeight - 3},
                                   {windowWidth - 3, windowHeight - 3}})
        {
            const osg::Vec4ub p = pixelAt(image, x, y);
            dark += brightness(p) < 40;
            clearColour += near(p, static_cast<int>(clear.r() * 255.0f + 0.5f),
                                static_cast<int>(clear.g() * 255.0f + 0.5f),
                                static_cast<int>(clear.b() * 255.0f + 0.5f));
        }
    }

    osg::ref_ptr<cxhost::WindowCapture> windowCapture;
};

TEST_F(RenderingOnTheMap, DepthPartitionFromSpaceKeepsTheGlobeAndTheDarkOfSpace)
{
    // The start view: 20,929 km over China.
    settleFrames();
    osg::ref_ptr<osg::Image> plain = grabWindow();
    ASSERT_TRUE(plain.valid());
    cxtest::saveScreenshot(*plain, "map_partition_plain_space");

    viewer->ToggleDepthPartition();
    viewer->ToggleDepthPartition();
    ASSERT_EQ(viewer->getViewer()->getNumSlaves(), 2u);
    settleFrames();
    osg::ref_ptr<osg::Image> partitioned = grabWindow();
    ASSERT_TRUE(partitioned.valid());
    cxtest::saveScreenshot(*partitioned, "map_partition_on_space");

    // The same picture: the globe, its limb, space with its stars.
    const int differing = cxtest::differingPixels(*plain, *partitioned, 12);
    EXPECT_LT(differing, windowWidth * windowHeight / 100) << differing << " pixels differ";
    int dark = 0, clearColour = 0;
    corners(*partitioned, dark, clearColour);
    EXPECT_EQ(dark, 4) << "space is not painted behind the globe";
    EXPECT_EQ(clearColour, 0);
    // Over China the globe's own colours.
    const osg::Vec4ub centre = pixelAt(*partitioned, windowWidth / 2, windowHeight / 2);
    EXPECT_GT(brightness(centre), 30) << describe(centre);

    // The view moves: what the globe left is painted again, nothing stays
    // behind from the frames before.
    globeManipulator()->setViewpoint(globeManipulator()->createViewpoint(20.0, 10.0, 0.0, 0.0, -90.0, 30000000.0),
                                     0.0);
    settleFrames();
    osg::ref_ptr<osg::Image> moved = grabWindow();
    ASSERT_TRUE(moved.valid());
    cxtest::saveScreenshot(*moved, "map_partition_on_moved");
    corners(*moved, dark, clearColour);
    EXPECT_EQ(dark, 4);
    EXPECT_EQ(clearColour, 0);

    // Off again: the main camera and its near/far callback draw alone.
    viewer->ToggleDepthPartition();
    EXPECT_NE(viewer->getViewer()->getCamera()->getGraphicsContext(), nullptr);
    settleFrames();
    osg::ref_ptr<osg::Image> off = grabWindow();
    ASSERT_TRUE(off.valid());
    EXPECT_LT(cxtest::differingPixels(*moved, *off, 12), windowWidth * windowHeight / 100);
}

TEST_F(RenderingOnTheMap, DepthPartitionNearTheGroundDrawsWhatTheSingleCameraDraws)
{
    // 1.6 km over Beijing, looking north-east and down: ground from a few
    // kilometres to the horizon, and the sky above it.
    lookAt(116.40, 39.90, 0.0, 30.0, -10.0, 9200.0);
    osg::ref_ptr<osg::Image> plain = grabWindow();
    ASSERT_TRUE(plain.valid());
    cxtest::saveScreenshot(*plain, "map_partition_plain_ground");
    double clearance = 0.0;
    ASSERT_TRUE(eyeClearance(clearance));
    osg::Vec3d hit;
    ASSERT_TRUE(pick(windowWidth / 2.0, 3.0, hit)) << "no ground at the bottom";
    ASSERT_FALSE(pick(windowWidth / 2.0, windowHeight - 3.0, hit)) << "no sky at the top";

    viewer->ToggleDepthPartition();
    viewer->ToggleDepthPartition();
    settleFrames();
    osg::ref_ptr<osg::Image> partitioned = grabWindow();
    ASSERT_TRUE(partitioned.valid());
    cxtest::saveScreenshot(*partitioned, "map_partition_on_ground");

    // Both cameras have a share of the ground: the split lies between the
    // eye and the horizon.
    osgViewer::View* view = viewer->getViewer();
    double l, r, b, t, farNear, farFar, nearNear, nearFar;
    ASSERT_TRUE(view->getSlave(0)._camera->getProjectionMatrixAsFrustum(l, r, b, t, farNear, farFar));
    ASSERT_TRUE(view->getSlave(1)._camera->getProjectionMatrixAsFrustum(l, r, b, t, nearNear, nearFar));
    std::printf("clearance %.0f m; near camera %.1f-%.1f m, far camera %.1f-%.1f m\n", clearance, nearNear, nearFar,
                farNear, farFar);
    EXPECT_LT(nearNear, clearance);
    EXPECT_NEAR(nearFar, farNear + 0.5, 1e-3);
    EXPECT_GT(farFar, 1.0e6);
    // With the eye inside the scene's bounding sphere the near plane is a
    // hundred-thousandth of the depth to the sphere's far side: over 100 m on
    // a globe, so that close-ups want the partition off.
    EXPECT_NEAR(nearNear, 1.0e-5 * farFar, 1.0e-3 * nearNear);
    EXPECT_GT(nearNear, 100.0);

    const int differing = cxtest::differingPixels(*plain, *partitioned, 16);
    EXPECT_LT(differing, windowWidth * windowHeight / 50) << differing << " pixels differ";
    // Sky at the top, ground at the bottom, as without the partition.
    const osg::Vec4ub top = pixelAt(*partitioned, windowWidth / 2, 3);
    EXPECT_GT(top.b(), top.r() + 20) << describe(top);
    const osg::Vec4ub bottom = pixelAt(*partitioned, windowWidth / 2, windowHeight - 3);
    const osg::Vec4ub plainBottom = pixelAt(*plain, windowWidth / 2, windowHeight - 3);
    EXPECT_LT(std::abs(brightness(bottom) - brightness(plainBottom)), 16)
        << describe(bottom) << " / " << describe(plainBottom);
}

TEST_F(RenderingOnTheMap, SplitViewShowsTheGlobeTwiceAndViceModelsOnTheRight)
{
    ASSERT_TRUE(settle());
    viewer->createViceView();
    ASSERT_NE(viewer->GetViceView(), nullptr);
    // The shared manipulator went home; a view over Beijing again.
    lookAt(116.40, 39.90, 0.0, 0.0, -60.0, 60000.0);

    // A red block 3 km across over the city on the right only, a yellow one
    // beside it in models.
    auto block = [&](double lon, double lat, const osg::Vec4& colour) {
        osg::ref_ptr<osg::MatrixTransform> place = new osg::MatrixTransform;
        osg::Matrixd frame;
        viewer->mapNode->getEllipsoidModel()->computeLocalToWorldTransformFromLatLongHeight(
            osg::DegreesToRadians(lat), osg::DegreesToRadians(lon), 1500.0, frame);
        place->setMatrix(frame);
        osg::ref_ptr<osg::ShapeDrawable> box = new osg::ShapeDrawable(new osg::Box(osg::Vec3(), 3000.0f));
        box->setColor(colour);
        osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        geode->addDrawable(box.get());
        geode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
        place->addChild(geode.get());
        return place;
    };
    viewer->GetViceModels()->addChild(block(116.40, 39.90, osg::Vec4(1, 0, 0, 1)));
    viewer->GetModels()->addChild(block(116.50, 39.90, osg::Vec4(1, 1, 0, 1)));
    ASSERT_TRUE(settle());
    osg::ref_ptr<osg::Image> image = grabWindow();
    ASSERT_TRUE(image.valid());
    cxtest::saveScreenshot(*image, "map_split_view");

    const osg::Matrixd leftCamera = viewer->getViewer()->getCamera()->getViewMatrix();
    EXPECT_EQ(viewer->GetViceView()->getCamera()->getViewMatrix(), leftCamera);
    auto pixelOf = [&](osg::Camera* camera, double lon, double lat) {
        const osg::Vec3d w = worldOf(lon, lat, 1500.0) * camera->getViewMatrix() * camera->getProjectionMatrix() *
                             camera->getViewport()->computeWindowMatrix();
        return pixelAt(*image, static_cast<int>(w.x()), image->t() - 1 - static_cast<int>(w.y()));
    };
    osg::Camera* left = viewer->getViewer()->getCamera();
    osg::Camera* right = viewer->GetViceView()->getCamera();
    const osg::Vec4ub redRight = pixelOf(right, 116.40, 39.90);
    const osg::Vec4ub redLeft = pixelOf(left, 116.40, 39.90);
    EXPECT_TRUE(redRight.r() > 200 && redRight.g() < 60 && redRight.b() < 60) << describe(redRight);
    EXPECT_FALSE(redLeft.r() > 200 && redLeft.g() < 60 && redLeft.b() < 60) << describe(redLeft);
    const osg::Vec4ub yellowLeft = pixelOf(left, 116.50, 39.90);
    const osg::Vec4ub yellowRight = pixelOf(right, 116.50, 39.90);
    EXPECT_TRUE(yellowLeft.r() > 200 && yellowLeft.g() > 200 && yellowLeft.b() < 60) << describe(yellowLeft);
    EXPECT_FALSE(yellowRight.r() > 200 && yellowRight.g() > 200 && yellowRight.b() < 60) << describe(yellowRight);

    // The globe in both halves: the ground beside the blocks is alike.
    int alike = 0, compared = 0;
    for (int y = 20; y < windowHeight - 20; y += 4)
        for (int x = 10; x < windowWidth / 2 - 10; x += 4)
        {
            const osg::Vec4ub a = pixelAt(*image, x, y), b = pixelAt(*image, x + windowWidth / 2, y);
            if (a.r() > 200 || b.r() > 200)
                continue; // the blocks
            ++compared;
            alike += std::abs(brightness(a) - brightness(b)) < 40;
        }
    EXPECT_GT(alike, compared * 8 / 10) << alike << " of " << compared;
    viewer->deleteViceView();
    frames(2);
}

TEST_F(RenderingOnTheMap, SplitViewCyclesWhileThePagersWork)
{
    ASSERT_TRUE(settle());
    osgViewer::CompositeViewer* composite = viewer->getCompositeViewer();
    const unsigned int views = composite->getNumViews();
    const auto cameras = viewer->graphicsContext->getCameras().size();
    for (int i = 0; i < 20; ++i)
    {
        viewer->createViceView();
        // Moving, so that both views ask for tiles.
        globeManipulator()->setViewpoint(
            globeManipulator()->createViewpoint(100.0 + i, 30.0, 0.0, 0.0, -70.0, 400000.0 + 20000.0 * i), 0.0);
        frames(3);
        viewer->clearViceView();
        frames(1);
        viewer->deleteViceView();
        frames(2);
    }
    EXPECT_EQ(composite->getNumViews(), views);
    EXPECT_EQ(viewer->graphicsContext->getCameras().size(), cameras);
    const osg::Viewport* main = viewer->getViewer()->getCamera()->getViewport();
    EXPECT_EQ(main->width(), windowWidth);
    EXPECT_EQ(main->height(), windowHeight);
    ASSERT_TRUE(settle());
    osg::ref_ptr<osg::Image> image = grabWindow();
    ASSERT_TRUE(image.valid());
    cxtest::saveScreenshot(*image, "map_split_after_cycles");
    osg::Vec3d hit;
    EXPECT_TRUE(pick(windowWidth - 5.0, windowHeight / 2.0, hit)) << "the right half is not the main view's";
}

} // namespace
