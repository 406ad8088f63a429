// The split view on a real window: root twice, the dividing line between,
// objects of GetViceModels() on the right only (and of GetModels(), which
// hangs under scene, in the main view only); the halves in integers; a
// resize; and the vice view made and removed a hundred times while frames
// run.
#include "PlainSceneFixture.h"

#include <navigation/CXEarthManipulator>

#include <osg/MatrixTransform>
#include <osg/observer_ptr>

#include <vector>

namespace
{

using cxtest::describe;
using cxtest::near;
using cxtest::pixelAt;

const osg::Vec4 kRootColour(0, 1, 1, 1);      // cyan: root, both sides
const osg::Vec4 kModelsColour(1, 1, 0, 1);    // yellow: models, under scene: left only
const osg::Vec4 kViceColour(1, 0, 1, 1);      // magenta: viceModels, right only
const osg::Vec4 kViceBackground(1, 1, 1, 1);  // white behind the right side

osg::ref_ptr<osg::Node> boxAt(const osg::Vec3& centre, const osg::Vec4& colour)
{
    return cxtest::colouredShape(new osg::Box(centre, 2.0f), colour).get();
}

class SplitView : public cxtest::PlainSceneFixture
{
protected:
    void SetUp() override
    {
        PlainSceneFixture::SetUp();
        if (HasFatalFailure())
            return;
        // Looking north from 30 m south of the origin: x to the right, z up.
        viewer->getRoot()->addChild(boxAt(osg::Vec3(0, 0, 0), kRootColour));
        lookAt(osg::Vec3d(0, -30, 0), osg::Vec3d(0, 0, 0));
    }

    void createAndFill()
    {
        viewer->createViceView();
        ASSERT_NE(viewer->GetViceView(), nullptr);
        viewer->GetViceView()->getCamera()->setClearColor(kViceBackground);
        lookAt(osg::Vec3d(0, -30, 0), osg::Vec3d(0, 0, 0));
        viewer->GetModels()->addChild(boxAt(osg::Vec3(0, 0, 4), kModelsColour));
        viewer->GetViceModels()->addChild(boxAt(osg::Vec3(0, 0, -4), kViceColour));
    }

    // Pixel of a scene point in one half (0 left, 1 right), origin top-left.
    osg::Vec4ub inHalf(const osg::Image& image, int half, const osg::Vec3d& world)
    {
        osg::Camera* camera = half == 0 ? viewer->getViewer()->getCamera() : viewer->GetViceView()->getCamera();
        const osg::Vec3d w =
            world * camera->getViewMatrix() * camera->getProjectionMatrix() * camera->getViewport()->computeWindowMatrix();
        return pixelAt(image, static_cast<int>(w.x()), image.t() - 1 - static_cast<int>(w.y()));
    }

    unsigned int camerasOnContext() const
    {
        return static_cast<unsigned int>(viewer->graphicsContext->getCameras().size());
    }
};

TEST_F(SplitView, CreateMakesTheViceViewOnTheRightHalf)
{
    frames(1);
    osgViewer::CompositeViewer* composite = viewer->getCompositeViewer();
    ASSERT_EQ(composite->getNumViews(), 1u);
    // Nothing of the split view before it is made.
    EXPECT_EQ(viewer->GetModels(), nullptr);
    EXPECT_EQ(viewer->GetViceModels(), nullptr);
    EXPECT_EQ(viewer->GetViceView(), nullptr);
    viewer->createViceView();

    osgViewer::View* vice = viewer->GetViceView();
    ASSERT_NE(vice, nullptr);
    EXPECT_EQ(composite->getNumViews(), 2u);
    EXPECT_EQ(composite->getView(1), vice);
    osg::Camera* camera = vice->getCamera();
    EXPECT_EQ(camera->getGraphicsContext(), viewer->graphicsContext);
    const osg::Viewport* vp = camera->getViewport();
    ASSERT_NE(vp, nullptr);
    EXPECT_EQ(vp->x(), 240);
    EXPECT_EQ(vp->y(), 0);
    EXPECT_EQ(vp->width(), 240);
    EXPECT_EQ(vp->height(), 360);
    double fovy = 0, aspect = 0, zn = 0, zf = 0;
    ASSERT_TRUE(camera->getProjectionMatrixAsPerspective(fovy, aspect, zn, zf));
    EXPECT_NEAR(fovy, 30.0, 1e-9);
    EXPECT_NEAR(aspect, 240.0 / 360.0, 1e-9);
    EXPECT_NEAR(zn, 1.0, 1e-9);
    EXPECT_NEAR(zf, 1000.0, 1e-6);
    EXPECT_DOUBLE_EQ(camera->getNearFarRatio(), 2e-05);

    // Its scene: root, viceModels (viceExtra is null, so it is not added),
    // then the dividing line; depth test on.
    osg::Group* viceRoot = viewer->viceRoot.get();
    ASSERT_NE(viceRoot, nullptr);
    EXPECT_EQ(vice->getSceneData(), viceRoot);
    ASSERT_EQ(viceRoot->getNumChildren(), 3u);
    EXPECT_EQ(viceRoot->getChild(0), viewer->getRoot());
    EXPECT_EQ(viceRoot->getChild(1), viewer->GetViceModels());
    EXPECT_NE(viceRoot->getChild(2)->asCamera(), nullptr);
    EXPECT_EQ(viceRoot->getStateSet()->getMode(GL_DEPTH_TEST),
              static_cast<osg::StateAttribute::GLModeValue>(osg::StateAttribute::ON));

    // Its light.
    EXPECT_EQ(vice->getLightingMode(), osg::View::SKY_LIGHT);
    ASSERT_NE(vice->getLight(), nullptr);
    EXPECT_EQ(vice->getLight()->getAmbient(), osg::Vec4(1, 1, 1, 1));
    EXPECT_EQ(vice->getLight()->getDiffuse(), osg::Vec4(1, 1, 1, 1));
    EXPECT_EQ(vice->getLight()->getPosition(), osg::Vec4(500, 500, 1000, 0));

    // models hangs under scene; the main view has the left half.
    ASSERT_NE(viewer->GetModels(), nullptr);
    EXPECT_EQ(viewer->GetModels()->getNumParents(), 1u);
    EXPECT_EQ(viewer->GetModels()->getParent(0), viewer->getScene());
    const osg::Viewport* main = viewer->getViewer()->getCamera()->getViewport();
    EXPECT_EQ(main->x(), 0);
    EXPECT_EQ(main->width(), 240);
    EXPECT_EQ(main->height(), 360);
    ASSERT_TRUE(viewer->getViewer()->getCamera()->getProjectionMatrixAsPerspective(fovy, aspect, zn, zf));
    EXPECT_NEAR(aspect, 240.0 / 360.0, 1e-9);
    frames(2);
}

TEST_F(SplitView, TheSceneTwiceViceModelsOnTheRightOnlyAndTheLineBetween)
{
    frames(1);
    createAndFill();
    frames(2);
    osg::ref_ptr<osg::Image> image = grabWindow();
    ASSERT_TRUE(image.valid());
    ASSERT_EQ(image->s(), 480);
    cxtest::saveScreenshot(*image, "split_view_plain");

    // root shows on both sides.
    for (int half : {0, 1})
    {
        SCOPED_TRACE(half == 0 ? "left" : "right");
        EXPECT_TRUE(near(inHalf(*image, half, osg::Vec3d(0, 0, 0)), 0, 255, 255))
            << describe(inHalf(*image, half, osg::Vec3d(0, 0, 0)));
    }
    // viceModels: magenta on the right only.
    EXPECT_TRUE(near(inHalf(*image, 1, osg::Vec3d(0, 0, -4)), 255, 0, 255))
        << describe(inHalf(*image, 1, osg::Vec3d(0, 0, -4)));
    const osg::Vec4ub bg = background();
    EXPECT_TRUE(near(inHalf(*image, 0, osg::Vec3d(0, 0, -4)), bg.r(), bg.g(), bg.b()))
        << describe(inHalf(*image, 0, osg::Vec3d(0, 0, -4)));
    // models hangs under scene, and the vice view shows root, not the rest
    // of scene: what stands in models shows on the left.
    EXPECT_TRUE(near(inHalf(*image, 0, osg::Vec3d(0, 0, 4)), 255, 255, 0))
        << describe(inHalf(*image, 0, osg::Vec3d(0, 0, 4)));
    EXPECT_TRUE(near(inHalf(*image, 1, osg::Vec3d(0, 0, 4)), 255, 255, 255))
        << describe(inHalf(*image, 1, osg::Vec3d(0, 0, 4)));

    // The same picture of root in each half: the left half against the right
    // half.
    int sameRoot = 0, magentaLeft = 0, yellowRight = 0;
    for (int y = 0; y < 360; ++y)
        for (int x = 10; x < 230; ++x)
        {
            const osg::Vec4ub l = pixelAt(*image, x, y);
            const osg::Vec4ub r = pixelAt(*image, x + 240, y);
            magentaLeft += near(l, 255, 0, 255);
            yellowRight += near(r, 255, 255, 0);
            if (near(l, 0, 255, 255))
                sameRoot += near(r, 0, 255, 255);
        }
    EXPECT_GT(sameRoot, 1000);
    EXPECT_EQ(magentaLeft, 0);
    EXPECT_EQ(yellowRight, 0);

    // The dividing line: black at the left edge of the right half, from top
    // to bottom, over the white background.
    int blackRows = 0;
    for (int y = 0; y < 360; ++y)
        blackRows += near(pixelAt(*image, 240, y), 0, 0, 0, 40);
    EXPECT_GT(blackRows, 340);
    // Not a black half: a few pixels in, the background is white.
    EXPECT_TRUE(near(pixelAt(*image, 250, 20), 255, 255, 255));
}

TEST_F(SplitView, ClearEmptiesTheGroupsAndLeavesTheViewAndTheLine)
{
    frames(1);
    createAndFill();
    frames(1);
    viewer->clearViceView();
    EXPECT_EQ(viewer->GetModels()->getNumChildren(), 0u);
    EXPECT_EQ(viewer->GetViceModels()->getNumChildren(), 0u);
    EXPECT_EQ(viewer->viceRoot->getNumChildren(), 3u);
    EXPECT_NE(viewer->GetViceView(), nullptr);
    osg::ref_ptr<osg::Image> image = grabWindow();
    ASSERT_TRUE(image.valid());
    EXPECT_TRUE(near(inHalf(*image, 1, osg::Vec3d(0, 0, -4)), 255, 255, 255));
    EXPECT_TRUE(near(inHalf(*image, 1, osg::Vec3d(0, 0, 4)), 255, 255, 255));
    EXPECT_TRUE(near(inHalf(*image, 1, osg::Vec3d(0, 0, 0)), 0, 255, 255));
    int blackRows = 0;
    for (int y = 0; y < 360; ++y)
        blackRows += near(pixelAt(*image, 240, y), 0, 0, 0, 40);
    EXPECT_GT(blackRows, 340);
}

TEST_F(SplitView, DeleteGivesTheMainViewTheWholeWindow)
{
    frames(1);
    osg::ref_ptr<osg::Image> before = grabWindow();
    createAndFill();
    frames(1);
    osg::observer_ptr<osgViewer::View> vice = viewer->GetViceView();
    osg::observer_ptr<osg::Group> models = viewer->GetModels();

    viewer->deleteViceView();
    EXPECT_EQ(viewer->GetViceView(), nullptr);
    EXPECT_EQ(viewer->viceRoot.get(), nullptr);
    EXPECT_EQ(viewer->GetViceModels(), nullptr);
    EXPECT_EQ(viewer->GetModels(), nullptr);
    EXPECT_EQ(viewer->getCompositeViewer()->getNumViews(), 1u);
    EXPECT_FALSE(vice.valid());
    EXPECT_FALSE(models.valid());
    EXPECT_EQ(viewer->getScene()->getNumChildren(), 1u);
    const osg::Viewport* main = viewer->getViewer()->getCamera()->getViewport();
    EXPECT_EQ(main->width(), 480);
    EXPECT_EQ(main->height(), 360);

    osg::ref_ptr<osg::Image> after = grabWindow();
    ASSERT_TRUE(after.valid());
    cxtest::saveScreenshot(*after, "split_view_deleted");
    EXPECT_LT(cxtest::differingPixels(*before, *after), 10);
}

TEST_F(SplitView, TheViewsShareOneManipulator)
{
    // A manipulator again, as the viewer installs one.
    osg::ref_ptr<osgGA::CameraManipulator> manipulator = new CXEarthManipulator;
    viewer->getViewer()->setCameraManipulator(manipulator.get(), true);
    frames(2);
    viewer->createViceView();
    ASSERT_NE(viewer->GetViceView(), nullptr);
    EXPECT_EQ(viewer->GetViceView()->getCameraManipulator(), manipulator.get());
    EXPECT_EQ(viewer->getViewer()->getCameraManipulator(), manipulator.get());
    frames(3);
    EXPECT_EQ(viewer->GetViceView()->getCamera()->getViewMatrix(), viewer->getViewer()->getCamera()->getViewMatrix());
    // A drag in the left half moves both cameras alike.
    const osg::Matrixd start = viewer->getViewer()->getCamera()->getViewMatrix();
    mouseDrag(100, 150, 160, 200, 1);
    frames(2);
    EXPECT_NE(viewer->getViewer()->getCamera()->getViewMatrix(), start);
    EXPECT_EQ(viewer->GetViceView()->getCamera()->getViewMatrix(), viewer->getViewer()->getCamera()->getViewMatrix());
    viewer->deleteViceView();
    frames(2);
}

class SplitViewOddWidth : public SplitView
{
protected:
    SplitViewOddWidth() { windowWidth = 481; }
};

TEST_F(SplitViewOddWidth, TheHalvesAreOnePixelShortOfTheWindow)
{
    frames(1);
    createAndFill();
    const osg::Viewport* main = viewer->getViewer()->getCamera()->getViewport();
    const osg::Viewport* vice = viewer->GetViceView()->getCamera()->getViewport();
    EXPECT_EQ(main->x(), 0);
    EXPECT_EQ(main->width(), 240);
    EXPECT_EQ(vice->x(), 240);
    EXPECT_EQ(vice->width(), 240);
    EXPECT_EQ(main->width() + vice->width(), windowWidth - 1);
    double fovy = 0, aspect = 0, zn = 0, zf = 0;
    ASSERT_TRUE(viewer->GetViceView()->getCamera()->getProjectionMatrixAsPerspective(fovy, aspect, zn, zf));
    EXPECT_NEAR(aspect, 240.0 / 360.0, 1e-9);
    // The last column belongs to neither view.
    osg::ref_ptr<osg::Image> image = grabWindow();
    ASSERT_TRUE(image.valid());
    EXPECT_EQ(image->s(), 481);
    frames(1);
}

TEST_F(SplitView, AResizeIsNotFollowedUntilChangeViewSize)
{
    frames(1);
    createAndFill();
    frames(1);
    const osg::ref_ptr<osg::Viewport> viceBefore = new osg::Viewport(*viewer->GetViceView()->getCamera()->getViewport());
    window->resize(641, 360);
    ASSERT_TRUE(framesUntil([&] { return viewer->graphicsContext->getTraits()->width == 641; }, 50));
    frames(1);
    // The library does not follow: the context scaled both viewports in
    // proportion (240 * 641 / 480), not into integer halves of 641.
    const osg::Viewport* main = viewer->getViewer()->getCamera()->getViewport();
    const osg::Viewport* vice = viewer->GetViceView()->getCamera()->getViewport();
    EXPECT_DOUBLE_EQ(main->width(), 320.5);
    EXPECT_DOUBLE_EQ(vice->x(), 320.5);
    EXPECT_DOUBLE_EQ(vice->width(), 320.5);
    EXPECT_NE(vice->width(), viceBefore->width());
    // changeViewSize fits the main view to the new size; the vice view keeps
    // what it has.
    viewer->changeViewSize(true);
    main = viewer->getViewer()->getCamera()->getViewport();
    EXPECT_EQ(main->x(), 0);
    EXPECT_EQ(main->width(), 320);
    EXPECT_EQ(main->height(), 360);
    EXPECT_DOUBLE_EQ(viewer->GetViceView()->getCamera()->getViewport()->x(), 320.5);
    frames(1);
}

TEST_F(SplitView, AHundredCyclesWhileFramesRunLeaveNoViewOrCameraBehind)
{
    frames(2);
    osgViewer::CompositeViewer* composite = viewer->getCompositeViewer();
    const unsigned int views = composite->getNumViews();
    const unsigned int cameras = camerasOnContext();
    const unsigned int sceneChildren = viewer->getScene()->getNumChildren();
    ASSERT_EQ(views, 1u);

    std::vector<osg::observer_ptr<osgViewer::View>> viceViews;
    for (int i = 0; i < 100; ++i)
    {
        createAndFill();
        viceViews.emplace_back(viewer->GetViceView());
        EXPECT_EQ(composite->getNumViews(), views + 1);
        frames(1);
        viewer->clearViceView();
        frames(1);
        viewer->deleteViceView();
        frames(1);
        if (HasFailure())
            break;
    }
    EXPECT_EQ(composite->getNumViews(), views);
    EXPECT_EQ(camerasOnContext(), cameras);
    EXPECT_EQ(viewer->getScene()->getNumChildren(), sceneChildren);
    int alive = 0;
    for (const auto& v : viceViews)
        alive += v.valid();
    EXPECT_EQ(alive, 0);

    const osg::Viewport* main = viewer->getViewer()->getCamera()->getViewport();
    EXPECT_EQ(main->x(), 0);
    EXPECT_EQ(main->y(), 0);
    EXPECT_EQ(main->width(), 480);
    EXPECT_EQ(main->height(), 360);
    osg::ref_ptr<osg::Image> image = grabWindow();
    ASSERT_TRUE(image.valid());
    cxtest::saveScreenshot(*image, "split_view_after_cycles");
    // The whole window is the main view's: the root's box in the middle.
    EXPECT_TRUE(near(pixelAt(*image, 240, 180), 0, 255, 255)) << describe(pixelAt(*image, 240, 180));
    const osg::Vec4ub bg = background();
    EXPECT_TRUE(near(pixelAt(*image, 470, 10), bg.r(), bg.g(), bg.b()));
}

} // namespace
