// The viewer spine on a real X11 window: tree, handlers, camera, frames,
// commands and shut-down.
#include "ViewerFixture.h"
#include "../objects/CountingCommand.h"

#include <navigation/CXEarthManipulator>
#include <objects/CmdProcessEventHandler>
#include <pointcloud/pagelodCullCallBack>

#include <osg/Uniform>
#include <osgGA/StateSetManipulator>
#include <osgViewer/ViewerEventHandlers>

#include <cmath>

using cxtest::ViewerFixture;

namespace
{

float uniformValue(osg::StateSet* stateSet, const char* name)
{
    osg::Uniform* uniform = stateSet->getUniform(name);
    float value = -1.0f;
    EXPECT_NE(uniform, nullptr) << name;
    if (uniform)
    {
        EXPECT_EQ(uniform->getType(), osg::Uniform::FLOAT) << name;
        uniform->get(value);
    }
    return value;
}

void expectRenderBin(osg::Node* node, int bin)
{
    osg::StateSet* ss = node->getStateSet();
    ASSERT_NE(ss, nullptr);
    EXPECT_EQ(ss->getBinNumber(), bin);
    EXPECT_EQ(ss->getBinName(), "RenderBin");
    EXPECT_EQ(ss->getRenderBinMode(), osg::StateSet::USE_RENDERBIN_DETAILS);
}

} // namespace

class ViewerSpine : public ViewerFixture
{
};

TEST_F(ViewerSpine, TreeHasParentsNamesBinsModesAndUniforms)
{
    CXViewer& v = *viewer;
    osg::Group* scene = v.getScene();
    ASSERT_NE(scene, nullptr);
    EXPECT_EQ(v.getViewer()->getSceneData(), scene);
    EXPECT_EQ(scene->getStateSet()->getMode(GL_DEPTH_TEST), osg::StateAttribute::ON);

    osg::Group* root = v.getRoot();
    ASSERT_EQ(root->getNumParents(), 1u);
    EXPECT_EQ(root->getParent(0), scene);
    EXPECT_EQ(scene->getChild(0), root);

    const std::vector<osg::Node*> expectedChildren = {
        v.getBiaoZhu(), v.getSimpleModel(), v.getJKManage(), v.getPipeGroup(),  v.getExcavate(),
        v.getJingKong(), v.getBuilding(),   v.getOSGBData(), v.getLiDAR(), v.getbuilding_forProperty()};
    ASSERT_GE(root->getNumChildren(), expectedChildren.size());
    for (std::size_t i = 0; i < expectedChildren.size(); ++i)
    {
        ASSERT_NE(expectedChildren[i], nullptr) << i;
        EXPECT_EQ(root->getChild(static_cast<unsigned>(i)), expectedChildren[i]) << i;
        EXPECT_EQ(expectedChildren[i]->getNumParents(), 1u) << i;
        EXPECT_TRUE(expectedChildren[i]->getName().empty()) << i;
        EXPECT_EQ(expectedChildren[i]->getNodeMask(), 0xffffffffu) << i;
    }
    EXPECT_NE(dynamic_cast<osg::MatrixTransform*>(v.getbuilding_forProperty()), nullptr);

    expectRenderBin(v.getBuilding(), 1);
    expectRenderBin(v.getOSGBData(), -1);
    osg::StateSet* building = v.getBuilding()->getStateSet();
    EXPECT_EQ(building->getMode(GL_NORMALIZE), osg::StateAttribute::OVERRIDE);
    EXPECT_EQ(building->getMode(GL_LIGHTING), osg::StateAttribute::OVERRIDE);

    osg::StateSet* lidar = v.getLiDAR()->getStateSet();
    ASSERT_NE(lidar, nullptr);
    EXPECT_EQ(lidar->getMode(GL_POINT_SMOOTH), 6u);
    EXPECT_EQ(lidar->getMode(GL_LINE_SMOOTH), 4u);
    EXPECT_FLOAT_EQ(uniformValue(lidar, "PotreeMinSize"), 1.0f);
    EXPECT_FLOAT_EQ(uniformValue(lidar, "PotreeMaxSize"), 18.0f);
    EXPECT_FLOAT_EQ(uniformValue(lidar, "PotreeDrawmode"), 0.0f);
    EXPECT_NE(dynamic_cast<pagelodCullCallBack*>(v.getLiDAR()->getCullCallback()), nullptr);

    EXPECT_EQ(v.getbuilding_forProperty()->getStateSet()->getMode(GL_BLEND), osg::StateAttribute::ON);
}

TEST_F(ViewerSpine, DongAndHuAreFoundBelowBuildingForProperty)
{
    osg::Group* holder = viewer->getbuilding_forProperty();
    ASSERT_EQ(holder->getNumChildren(), 2u);
    EXPECT_EQ(holder->getChild(0)->getName(), "dong");
    EXPECT_EQ(holder->getChild(1)->getName(), "hu");
    for (unsigned i = 0; i < 2; ++i)
    {
        auto* transform = dynamic_cast<osg::MatrixTransform*>(holder->getChild(i));
        ASSERT_NE(transform, nullptr);
        EXPECT_EQ(transform->getNumChildren(), 0u);
    }
}

TEST_F(ViewerSpine, TerrainAndShanshuoHaveNoParentFloorAndModelsAreNull)
{
    ASSERT_NE(viewer->getTerrain(), nullptr);
    EXPECT_EQ(viewer->getTerrain()->getNumParents(), 0u);
    ASSERT_NE(viewer->getShanshuo(), nullptr);
    EXPECT_EQ(viewer->getShanshuo()->getNumParents(), 0u);
    EXPECT_EQ(viewer->getFloor(), nullptr);
    EXPECT_EQ(viewer->GetModels(), nullptr);
    EXPECT_EQ(viewer->GetViceView(), nullptr);
    EXPECT_EQ(viewer->GetViceModels(), nullptr);
}

TEST_F(ViewerSpine, ShanshuoChildrenDoNotShow)
{
    // A bright red quad in the flashing group must not reach the frame.
    osg::ref_ptr<osg::Geode> quad = new osg::Geode;
    quad->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(-50, -50, -100), osg::Vec3(100, 0, 0),
                                                      osg::Vec3(0, 100, 0)));
    quad->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    viewer->getShanshuo()->addChild(quad.get());
    viewer->getViewer()->setCameraManipulator(nullptr);
    viewer->getViewer()->getCamera()->setViewMatrix(osg::Matrix::identity());
    osg::ref_ptr<osg::Image> image = grabFrame();
    ASSERT_TRUE(image.valid());
    const osg::Vec4ub centre = cxtest::pixelAt(*image, windowWidth / 2, windowHeight / 2);
    EXPECT_NEAR(centre.r(), 179, 2);
    EXPECT_NEAR(centre.g(), 179, 2);
}

TEST_F(ViewerSpine, HandlersInOrder)
{
    const osgViewer::View::EventHandlers& handlers = viewer->getViewer()->getEventHandlers();
    ASSERT_GE(handlers.size(), 3u);
    auto it = handlers.begin();
    EXPECT_NE(dynamic_cast<osgViewer::StatsHandler*>(it->get()), nullptr);
    ++it;
    auto* stateSetManipulator = dynamic_cast<osgGA::StateSetManipulator*>(it->get());
    ASSERT_NE(stateSetManipulator, nullptr);
    EXPECT_EQ(stateSetManipulator->getStateSet(), viewer->getViewer()->getCamera()->getStateSet());
    ++it;
    EXPECT_EQ(it->get(), OBJManage::CmdProcessEventHandler::instance(false));
}

TEST_F(ViewerSpine, TheSceneGraphSetUpInstallsTheEarthManipulator)
{
    auto* manipulator = dynamic_cast<CXEarthManipulator*>(viewer->getViewer()->getCameraManipulator());
    ASSERT_NE(manipulator, nullptr);
    EXPECT_STREQ(manipulator->className(), "CXEarthManipulator");
    EXPECT_EQ(manipulator->getNode(), viewer->getScene());
}

TEST_F(ViewerSpine, CameraSettings)
{
    osg::Camera* camera = viewer->getViewer()->getCamera();
    EXPECT_EQ(camera->getGraphicsContext(), viewer->graphicsContext);
    EXPECT_EQ(camera->getClearColor(), osg::Vec4(0.7f, 0.7f, 0.7f, 1.0f));
    EXPECT_EQ(camera->getClearMask(), 0x4500u);
    EXPECT_DOUBLE_EQ(camera->getNearFarRatio(), 2e-05);
    EXPECT_EQ(camera->getDrawBuffer(), static_cast<GLenum>(GL_BACK));
    EXPECT_EQ(camera->getReadBuffer(), static_cast<GLenum>(GL_BACK));
    const osg::Viewport* viewport = camera->getViewport();
    ASSERT_NE(viewport, nullptr);
    EXPECT_EQ(viewport->x(), 0);
    EXPECT_EQ(viewport->y(), 0);
    EXPECT_EQ(viewport->width(), windowWidth);
    EXPECT_EQ(viewport->height(), windowHeight);

    double fovy = 0, aspect = 0, zNear = 0, zFar = 0;
    ASSERT_TRUE(camera->getProjectionMatrixAsPerspective(fovy, aspect, zNear, zFar));
    EXPECT_NEAR(fovy, 30.0, 1e-9);
    EXPECT_NEAR(aspect, double(windowWidth) / double(windowHeight), 1e-12);
    EXPECT_NEAR(zNear, 1.0, 1e-9);
    EXPECT_NEAR(zFar, 1000.0, 1e-6);

    const osg::GraphicsContext::Traits* traits = viewer->graphicsContext->getTraits();
    EXPECT_FALSE(traits->windowDecoration);
    EXPECT_TRUE(traits->doubleBuffer);
    EXPECT_TRUE(traits->setInheritedWindowPixelFormat);
    EXPECT_LE(traits->samples, 16u);
}

TEST_F(ViewerSpine, ViewerAndPagerSettings)
{
    osgViewer::CompositeViewer* composite = viewer->getCompositeViewer();
    EXPECT_EQ(composite->getNumViews(), 1u);
    EXPECT_EQ(composite->getView(0), viewer->getViewer());
    EXPECT_EQ(viewer->getViewer()->getName(), "MainView");
    EXPECT_EQ(composite->getKeyEventSetsDone(), 0);
    EXPECT_FALSE(composite->getQuitEventSetsDone());
    EXPECT_EQ(composite->getThreadingModel(), osgViewer::ViewerBase::SingleThreaded);
    EXPECT_EQ(osg::DisplaySettings::instance()->getNumOfDatabaseThreadsHint(), 1u);
    EXPECT_EQ(osg::DisplaySettings::instance()->getNumOfHttpDatabaseThreadsHint(), 0u);
    // The pager is tuned before the first frame.
    osgDB::DatabasePager* pager = viewer->getViewer()->getDatabasePager();
    EXPECT_TRUE(pager->getDoPreCompile());
    EXPECT_EQ(pager->getTargetMaximumNumberOfPageLOD(), 300u);
    EXPECT_FALSE(composite->isRealized());
}

TEST_F(ViewerSpine, TwentyFramesOfEmptySceneShowTheClearColour)
{
    frames(19);
    EXPECT_TRUE(viewer->getCompositeViewer()->isRealized());
    osg::ref_ptr<osg::Image> image = grabFrame();
    ASSERT_TRUE(image.valid());
    EXPECT_EQ(image->s(), windowWidth);
    EXPECT_EQ(image->t(), windowHeight);
    cxtest::saveScreenshot(*image, "viewer-empty-scene");
    // 0.7 of 255, rounded either way by the driver.
    int off = 0;
    for (int y = 0; y < windowHeight; y += 16)
        for (int x = 0; x < windowWidth; x += 16)
        {
            const osg::Vec4ub p = cxtest::pixelAt(*image, x, y);
            if (std::abs(p.r() - 179) > 1 || std::abs(p.g() - 179) > 1 || std::abs(p.b() - 179) > 1)
                ++off;
        }
    EXPECT_EQ(off, 0);
    EXPECT_GE(viewer->getCompositeViewer()->getFrameStamp()->getFrameNumber(), 19u);
}

TEST_F(ViewerSpine, EscapeDoesNotEndTheViewer)
{
    frames(1);
    keyPress(osgGA::GUIEventAdapter::KEY_Escape);
    keyRelease(osgGA::GUIEventAdapter::KEY_Escape);
    eventQueue()->quitApplication();
    frames(2);
    EXPECT_FALSE(viewer->getCompositeViewer()->done());
}

TEST_F(ViewerSpine, CommandAskingTwiceRunsInThreeFramesAndFinishesOnce)
{
    osg::ref_ptr<cxtest::CountingCommand> cmd = new cxtest::CountingCommand({true, true, false});
    viewer->commandQueue.push(cmd.get());
    frames(1);
    EXPECT_EQ(cmd->executes, 1);
    frames(1);
    EXPECT_EQ(cmd->executes, 2);
    EXPECT_EQ(cmd->finishes, 0);
    frames(1);
    EXPECT_EQ(cmd->executes, 3);
    EXPECT_EQ(cmd->finishes, 1);
    frames(3);
    EXPECT_EQ(cmd->executes, 3);
    EXPECT_EQ(cmd->finishes, 1);
}

TEST_F(ViewerSpine, ResizeEventsArriveFromTheHostWindow)
{
    frames(2);
    window->resize(800, 500);
    const bool resized = framesUntil(
        [&] {
            const osg::Viewport* vp = viewer->getViewer()->getCamera()->getViewport();
            return vp->width() == 800 && vp->height() == 500;
        },
        50);
    EXPECT_TRUE(resized);
    osg::ref_ptr<osg::Image> image = grabFrame();
    ASSERT_TRUE(image.valid());
    EXPECT_EQ(image->s(), 800);
    EXPECT_EQ(image->t(), 500);
}

TEST_F(ViewerSpine, UnInitTwiceIsHarmlessAndNoXErrors)
{
    frames(3);
    viewer->UnInitOSG();
    EXPECT_EQ(viewer->getViewer(), nullptr);
    EXPECT_EQ(viewer->getCompositeViewer()->getNumViews(), 0u);
    EXPECT_TRUE(viewer->getCompositeViewer()->done());
    viewer->UnInitOSG();
    // The groups stay with the viewer until the host destroys it.
    EXPECT_NE(viewer->getRoot(), nullptr);
    EXPECT_EQ(cxhost::X11HostWindow::errorCount(), 0);
}

// A viewer on a window that does not exist: no context, an empty viewport,
// and frames that do nothing instead of opening a window of their own.
class ViewerOnMissingWindow : public ::testing::Test
{
};

TEST_F(ViewerOnMissingWindow, NoContextNoOwnWindow)
{
    osg::ref_ptr<CXViewer> v = new CXViewer(0x7ffffff0);
    v->InitOSG();
    EXPECT_EQ(v->graphicsContext, nullptr);
    osg::Camera* camera = v->getViewer()->getCamera();
    EXPECT_EQ(camera->getGraphicsContext(), nullptr);
    EXPECT_EQ(camera->getViewport()->width(), 0);
    EXPECT_EQ(camera->getViewport()->height(), 0);
    // Height 0: the aspect is 0 / 0 and the projection is not finite.
    EXPECT_FALSE(camera->getProjectionMatrix().valid());
    EXPECT_TRUE(v->getCompositeViewer()->done());
    v->getCompositeViewer()->frame();
    osgViewer::ViewerBase::Contexts contexts;
    v->getCompositeViewer()->getContexts(contexts);
    EXPECT_TRUE(contexts.empty());
    v->UnInitOSG();
}
