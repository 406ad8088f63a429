// The depth partition on a real window: a box 50 m from the eye in front of a
// whole Earth, which one depth range cannot hold, drawn by the far and the
// near camera; the toggle's fixed slave numbers; a camera without a range;
// the partition set up by a subclass.
#include "NotifyCapture.h"
#include "PlainSceneFixture.h"

#include <rendering/MyNewUpdateSlaveCallback>

#include <osg/LightModel>
#include <osg/MatrixTransform>

#include <cmath>

namespace
{

using cxtest::near;
using cxtest::pixelAt;

constexpr double kEarthRadius = 6371000.0;
// A shell 20 km over the Earth, drawn after it: where the depth buffer cannot
// tell the two apart, the Earth below shows through.
constexpr double kShellHeight = 20000.0;
const osg::Vec3d kEye(0.0, -5.0 * kEarthRadius, 0.0);
const osg::Vec4 kBoxColour(0, 1, 0, 1);
const osg::Vec4 kShellColour(1, 0, 0, 1);
const osg::Vec4 kEarthColour(0, 0, 1, 1);

// What the window shows of the scene, in counts of pixels.
struct Census
{
    bool boxAtCentre = false;
    int shell = 0;      // red: the nearer surface, as it should be
    int earth = 0;      // blue: the Earth through the shell
    bool backgroundInCorner = false;
};

// Subclass that reaches the protected set-up.
class PartitioningViewer : public CXViewer
{
public:
    using CXViewer::CXViewer;
    using CXViewer::setUpDepthPartition;
};

class DepthPartition : public cxtest::PlainSceneFixture
{
protected:
    void SetUp() override
    {
        PlainSceneFixture::SetUp();
        if (HasFatalFailure())
            return;
        buildScene();
    }

    void buildScene()
    {
        osg::ref_ptr<osg::Geode> earth =
            cxtest::colouredShape(new osg::Sphere(osg::Vec3(), static_cast<float>(kEarthRadius)), kEarthColour, 2.0f);
        earth->getOrCreateStateSet()->setRenderBinDetails(1, "RenderBin");
        osg::ref_ptr<osg::Geode> shell = cxtest::colouredShape(
            new osg::Sphere(osg::Vec3(), static_cast<float>(kEarthRadius + kShellHeight)), kShellColour, 2.0f);
        shell->getOrCreateStateSet()->setRenderBinDetails(2, "RenderBin");
        // The box in its own frame, 50 m ahead of the eye: double precision
        // for its place, small numbers for its vertices. Its bound reaches
        // 10 m around it, so that the scene's bound (in single precision,
        // a few metres at 30,000 km) starts safely before its front face.
        osg::ref_ptr<osg::MatrixTransform> boxPlace =
            new osg::MatrixTransform(osg::Matrixd::translate(kEye + osg::Vec3d(0.0, 50.0, 0.0)));
        osg::ref_ptr<osg::Geode> box = cxtest::colouredShape(new osg::Box(osg::Vec3(), 4.0f), kBoxColour);
        box->setInitialBound(osg::BoundingSphere(osg::Vec3(), 10.0f));
        boxPlace->addChild(box.get());
        viewer->getRoot()->addChild(earth.get());
        viewer->getRoot()->addChild(shell.get());
        viewer->getRoot()->addChild(boxPlace.get());
        lookAt(kEye, osg::Vec3d(0, 0, 0));
    }

    Census census(const osg::Image& image)
    {
        Census c;
        const int cx = image.s() / 2, cy = image.t() / 2;
        c.boxAtCentre = near(pixelAt(image, cx, cy), 0, 255, 0);
        // The ring between the box and the limb.
        for (int y = 0; y < image.t(); ++y)
            for (int x = 0; x < image.s(); ++x)
            {
                const double r = std::hypot(x - cx, y - cy);
                if (r < 40.0 || r > 120.0)
                    continue;
                const osg::Vec4ub p = pixelAt(image, x, y);
                c.shell += near(p, 255, 0, 0);
                c.earth += near(p, 0, 0, 255);
            }
        const osg::Vec4ub bg = background();
        c.backgroundInCorner = near(pixelAt(image, 5, 5), bg.r(), bg.g(), bg.b());
        return c;
    }

    osgViewer::View* view() { return viewer->getViewer(); }
};

TEST_F(DepthPartition, OneRangeCannotHoldTheBoxAndTheEarth)
{
    frames(2);
    osg::ref_ptr<osg::Image> image = grabWindow();
    ASSERT_TRUE(image.valid());
    cxtest::saveScreenshot(*image, "depth_partition_plain");
    const Census c = census(*image);
    // The near plane follows the far one (ratio 2e-5): the box is cut away,
    // and 20 km are below the depth buffer's resolution at 25,000 km.
    EXPECT_FALSE(c.boxAtCentre);
    EXPECT_GT(c.earth, (c.shell + c.earth) / 10) << "shell " << c.shell << ", earth " << c.earth;
}

TEST_F(DepthPartition, FirstToggleFindsNothingToSwitchOff)
{
    frames(2);
    osg::ref_ptr<osg::Image> before = grabWindow();
    osg::Camera* camera = view()->getCamera();
    osg::GraphicsContext* context = camera->getGraphicsContext();
    osg::Viewport* viewport = camera->getViewport();
    ASSERT_TRUE(viewer->GetDepthPartitionEnable());
    ASSERT_EQ(view()->getNumSlaves(), 0u);

    viewer->ToggleDepthPartition();

    EXPECT_FALSE(viewer->GetDepthPartitionEnable());
    EXPECT_EQ(view()->getNumSlaves(), 0u);
    EXPECT_EQ(camera->getGraphicsContext(), context);
    EXPECT_EQ(camera->getViewport(), viewport);
    osg::ref_ptr<osg::Image> after = grabWindow();
    ASSERT_TRUE(after.valid());
    EXPECT_EQ(cxtest::differingPixels(*before, *after), 0);
}

TEST_F(DepthPartition, SecondToggleDrawsTheBoxAndTheEarthWithoutDepthFighting)
{
    frames(1);
    osg::GraphicsContext* context = view()->getCamera()->getGraphicsContext();
    // The main camera's state set is the slaves' global state: what the view
    // put there stays, though each new slave's renderer sets its defaults.
    osg::StateSet* global = view()->getCamera()->getOrCreateStateSet();
    osg::ref_ptr<osg::LightModel> lightModel = new osg::LightModel;
    lightModel->setAmbientIntensity(osg::Vec4(0.7f, 0.7f, 0.7f, 1.0f));
    global->setAttributeAndModes(lightModel.get());
    global->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    const unsigned int modes = static_cast<unsigned int>(global->getModeList().size());
    viewer->ToggleDepthPartition(); // nothing to switch off
    viewer->ToggleDepthPartition(); // on
    EXPECT_TRUE(viewer->GetDepthPartitionEnable());
    EXPECT_EQ(global->getAttribute(osg::StateAttribute::LIGHTMODEL), lightModel.get());
    EXPECT_EQ(global->getMode(GL_LIGHTING), static_cast<osg::StateAttribute::GLModeValue>(osg::StateAttribute::OFF));
    EXPECT_EQ(global->getModeList().size(), modes);

    ASSERT_EQ(view()->getNumSlaves(), 2u);
    osg::Camera* farCamera = view()->getSlave(0)._camera.get();
    osg::Camera* nearCamera = view()->getSlave(1)._camera.get();
    EXPECT_EQ(farCamera->getName(), "farcamera");
    EXPECT_EQ(nearCamera->getName(), "nearcamera");
    // Here both clear depth only.
    EXPECT_EQ(farCamera->getClearMask(), static_cast<GLbitfield>(GL_DEPTH_BUFFER_BIT));
    EXPECT_EQ(nearCamera->getClearMask(), static_cast<GLbitfield>(GL_DEPTH_BUFFER_BIT));
    EXPECT_EQ(farCamera->getGraphicsContext(), context);
    EXPECT_EQ(nearCamera->getGraphicsContext(), context);
    EXPECT_EQ(farCamera->getComputeNearFarMode(), osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    EXPECT_EQ(farCamera->getCullingMode(), osg::CullSettings::ENABLE_ALL_CULLING);
    EXPECT_EQ(view()->getCamera()->getGraphicsContext(), nullptr);
    EXPECT_EQ(view()->getCamera()->getViewport(), nullptr);
    auto* farCallback = dynamic_cast<MyNewUpdateSlaveCallback*>(view()->getSlave(0)._updateSlaveCallback.get());
    auto* nearCallback = dynamic_cast<MyNewUpdateSlaveCallback*>(view()->getSlave(1)._updateSlaveCallback.get());
    ASSERT_NE(farCallback, nullptr);
    ASSERT_NE(nearCallback, nullptr);
    EXPECT_EQ(farCallback->_partition, 1u);
    EXPECT_EQ(nearCallback->_partition, 0u);
    EXPECT_EQ(farCallback->_dps.get(), nearCallback->_dps.get());
    EXPECT_EQ(farCallback->_dps->_mode, osgViewer::DepthPartitionSettings::BOUNDING_VOLUME);

    frames(2);
    osg::ref_ptr<osg::Image> image = grabWindow();
    ASSERT_TRUE(image.valid());
    cxtest::saveScreenshot(*image, "depth_partition_on");
    const Census c = census(*image);
    EXPECT_TRUE(c.boxAtCentre);
    // The near camera clears depth only: the Earth the far camera drew stays.
    EXPECT_GT(c.shell, 10000);
    EXPECT_EQ(c.earth, 0) << "shell " << c.shell;
    EXPECT_TRUE(c.backgroundInCorner);

    // The ranges meet with half a unit of overlap, the near one starting at
    // the box.
    double l = 0, r = 0, b = 0, t = 0, farNear = 0, farFar = 0, nearNear = 0, nearFar = 0;
    ASSERT_TRUE(farCamera->getProjectionMatrixAsFrustum(l, r, b, t, farNear, farFar));
    ASSERT_TRUE(nearCamera->getProjectionMatrixAsFrustum(l, r, b, t, nearNear, nearFar));
    EXPECT_NEAR(nearFar, farNear + 0.5, 1e-3);
    EXPECT_LT(nearNear, 46.0);
    EXPECT_GT(nearNear, 30.0);
    EXPECT_GT(farFar, 6.0 * kEarthRadius - 1.0);
}

TEST_F(DepthPartition, TogglingOnAndOffLeavesTheMainCameraAndSlaveZero)
{
    frames(1);
    osg::ref_ptr<osg::Image> plain = grabWindow();
    osg::GraphicsContext* context = view()->getCamera()->getGraphicsContext();
    const double wholeWidth = view()->getCamera()->getViewport()->width();
    const double wholeHeight = view()->getCamera()->getViewport()->height();
    viewer->ToggleDepthPartition();
    viewer->ToggleDepthPartition();
    frames(1);
    osg::Camera* farCamera = view()->getSlave(0)._camera.get();

    viewer->ToggleDepthPartition(); // off
    EXPECT_FALSE(viewer->GetDepthPartitionEnable());
    EXPECT_EQ(view()->getCamera()->getGraphicsContext(), context);
    ASSERT_NE(view()->getCamera()->getViewport(), nullptr);
    EXPECT_EQ(view()->getCamera()->getViewport()->width(), wholeWidth);
    EXPECT_EQ(view()->getCamera()->getViewport()->height(), wholeHeight);
    // removeSlave(2) found nothing, removeSlave(1) took the near camera.
    ASSERT_EQ(view()->getNumSlaves(), 1u);
    EXPECT_EQ(view()->getSlave(0)._camera.get(), farCamera);
    EXPECT_EQ(farCamera->getName(), "farcamera");

    // The far camera still draws, before the main camera clears over it.
    frames(1);
    osg::ref_ptr<osg::Image> after = grabWindow();
    ASSERT_TRUE(after.valid());
    cxtest::saveScreenshot(*after, "depth_partition_off_again");
    EXPECT_LT(cxtest::differingPixels(*plain, *after), 10);

    // And on once more: two new cameras behind the one left over.
    viewer->ToggleDepthPartition();
    EXPECT_EQ(view()->getNumSlaves(), 3u);
    frames(1);
    const Census c = census(*grabWindow());
    EXPECT_TRUE(c.boxAtCentre);
    EXPECT_EQ(c.earth, 0);
    viewer->ToggleDepthPartition();
    EXPECT_EQ(view()->getNumSlaves(), 1u);
    EXPECT_EQ(view()->getSlave(0)._camera.get(), farCamera);
}

// Settings whose far partition has no range.
struct FarFailsSettings : osgViewer::DepthPartitionSettings
{
    FarFailsSettings() : osgViewer::DepthPartitionSettings(BOUNDING_VOLUME) {}
    bool getDepthRange(osg::View& view, unsigned int partition, double& zNear, double& zFar) override
    {
        return partition != 1 && osgViewer::DepthPartitionSettings::getDepthRange(view, partition, zNear, zFar);
    }
};

TEST_F(DepthPartition, OnlyTheCameraWithoutARangeIsSwitchedOff)
{
    frames(1);
    viewer->ToggleDepthPartition();
    viewer->ToggleDepthPartition();
    osg::ref_ptr<FarFailsSettings> dps = new FarFailsSettings;
    for (unsigned int i = 0; i < 2; ++i)
        dynamic_cast<MyNewUpdateSlaveCallback&>(*view()->getSlave(i)._updateSlaveCallback)._dps = dps;
    cxtest::NotifyCapture notices(osg::NOTICE);
    frames(2);
    osg::ref_ptr<osg::Image> image = grabWindow();
    ASSERT_TRUE(image.valid());
    cxtest::saveScreenshot(*image, "depth_partition_far_off");

    EXPECT_EQ(view()->getSlave(0)._camera->getNodeMask(), 0u);
    EXPECT_EQ(view()->getSlave(1)._camera->getNodeMask(), 0xffffffu);
    EXPECT_GE(notices.count(osg::NOTICE, "Switching off Camera "), 3);
    const Census c = census(*image);
    EXPECT_TRUE(c.boxAtCentre);
    EXPECT_EQ(c.shell + c.earth, 0);
}

TEST_F(DepthPartition, WhatTheSceneLeavesEmptyShowsTheClearColour)
{
    viewer->ToggleDepthPartition();
    viewer->ToggleDepthPartition();
    EXPECT_EQ(viewer->graphicsContext->getClearMask(), static_cast<GLbitfield>(GL_COLOR_BUFFER_BIT));
    frames(2);
    osg::ref_ptr<osg::Image> first = grabWindow();
    ASSERT_TRUE(first.valid());
    const int cx = first->s() / 2, cy = first->t() / 2;
    ASSERT_TRUE(near(pixelAt(*first, cx, cy), 0, 255, 0));
    // Look past the Earth: the box and the Earth leave the centre, where
    // nothing is drawn now.
    lookAt(kEye, kEye + osg::Vec3d(0.0, 1.0, 0.0) * 100.0 + osg::Vec3d(0.0, 0.0, 60.0));
    frames(1);
    osg::ref_ptr<osg::Image> second = grabWindow();
    ASSERT_TRUE(second.valid());
    cxtest::saveScreenshot(*second, "depth_partition_moved");
    const osg::Vec4ub bg = background();
    EXPECT_TRUE(near(pixelAt(*second, cx, cy), bg.r(), bg.g(), bg.b())) << "centre " << cxtest::describe(pixelAt(*second, cx, cy));
}

TEST_F(DepthPartition, ChangeViewSizeOnSlavesHalvesWhateverTheyAre)
{
    frames(1);
    viewer->ToggleDepthPartition();
    viewer->ToggleDepthPartition();
    double fovy = 0, aspect = 0, zn = 0, zf = 0;
    ASSERT_TRUE(view()->getCamera()->getProjectionMatrixAsPerspective(fovy, aspect, zn, zf));
    const double width = view()->getSlave(0)._camera->getViewport()->width();

    viewer->changeViewSize(true);
    for (unsigned int i = 0; i < 2; ++i)
    {
        const osg::Viewport* vp = view()->getSlave(i)._camera->getViewport();
        EXPECT_DOUBLE_EQ(vp->width(), width / 2.0);
        EXPECT_DOUBLE_EQ(vp->height(), windowHeight);
        EXPECT_DOUBLE_EQ(vp->x(), 0.0);
    }
    double fovy2 = 0, aspect2 = 0, zn2 = 0, zf2 = 0;
    ASSERT_TRUE(view()->getCamera()->getProjectionMatrixAsPerspective(fovy2, aspect2, zn2, zf2));
    EXPECT_NEAR(aspect2, aspect / 2.0, 1e-9);
    EXPECT_NEAR(fovy2, fovy, 1e-9);

    // Nothing tests the present state: again halves again.
    viewer->changeViewSize(true);
    EXPECT_DOUBLE_EQ(view()->getSlave(1)._camera->getViewport()->width(), width / 4.0);
    viewer->changeViewSize(false);
    viewer->changeViewSize(false);
    EXPECT_DOUBLE_EQ(view()->getSlave(0)._camera->getViewport()->width(), width);
    ASSERT_TRUE(view()->getCamera()->getProjectionMatrixAsPerspective(fovy2, aspect2, zn2, zf2));
    EXPECT_NEAR(aspect2, aspect, 1e-9);
    frames(1);
}

// The partition set up by a subclass, as the protected operation allows.
class DepthPartitionSetUp : public DepthPartition
{
protected:
    void SetUp() override
    {
        initOnSetUp = false;
        cxtest::ViewerFixture::SetUp();
        if (HasFatalFailure())
            return;
        // The fixture's viewer goes first, so that the new one stays the
        // global viewer.
        viewer = nullptr;
        partitioning = new PartitioningViewer(window->handle());
        viewer = partitioning;
        initOSG();
        preparePlainScene();
        buildScene();
    }
    PartitioningViewer* partitioning = nullptr;
};

TEST_F(DepthPartitionSetUp, FarCameraClearsWhatTheMainCameraClearedAndTheToggleSwitchesOff)
{
    frames(1);
    osg::GraphicsContext* context = view()->getCamera()->getGraphicsContext();
    cxtest::NotifyCapture notices(osg::INFO);
    ASSERT_TRUE(partitioning->setUpDepthPartition());
    EXPECT_EQ(notices.count(osg::INFO, "View::setUpDepthPartitionForCamera(..) Replacing main Camera"), 1)
        << notices.all();
    // The flag is the toggle's: the set-up leaves it.
    EXPECT_TRUE(viewer->GetDepthPartitionEnable());
    ASSERT_EQ(view()->getNumSlaves(), 2u);
    osg::Camera* farCamera = view()->getSlave(0)._camera.get();
    osg::Camera* nearCamera = view()->getSlave(1)._camera.get();
    EXPECT_EQ(farCamera->getName(), "farcamera");
    EXPECT_EQ(nearCamera->getName(), "nearcamera");
    EXPECT_EQ(nearCamera->getClearMask(), static_cast<GLbitfield>(GL_DEPTH_BUFFER_BIT));
    EXPECT_EQ(view()->getCamera()->getGraphicsContext(), nullptr);

    frames(2);
    // The far camera kept the default clear mask, and so follows the main
    // camera's: colour, depth and stencil.
    EXPECT_EQ(farCamera->getClearMask(), view()->getCamera()->getClearMask());
    EXPECT_TRUE(farCamera->getClearMask() & GL_COLOR_BUFFER_BIT);
    // Without a context the main camera cannot be partitioned again.
    EXPECT_FALSE(partitioning->setUpDepthPartition());
    EXPECT_EQ(view()->getNumSlaves(), 2u);

    osg::ref_ptr<osg::Image> image = grabWindow();
    ASSERT_TRUE(image.valid());
    cxtest::saveScreenshot(*image, "depth_partition_setup");
    const Census c = census(*image);
    EXPECT_TRUE(c.boxAtCentre);
    EXPECT_GT(c.shell, 10000);
    EXPECT_EQ(c.earth, 0);
    EXPECT_TRUE(c.backgroundInCorner);

    // The flag is set: the first toggle switches off, leaving slave 0.
    viewer->ToggleDepthPartition();
    EXPECT_FALSE(viewer->GetDepthPartitionEnable());
    EXPECT_EQ(view()->getCamera()->getGraphicsContext(), context);
    ASSERT_EQ(view()->getNumSlaves(), 1u);
    EXPECT_EQ(view()->getSlave(0)._camera.get(), farCamera);
    frames(1);
    EXPECT_FALSE(census(*grabWindow()).boxAtCentre);
}

} // namespace
