// The viewer's rendering operations without a window: the dividing line's
// camera, the flag of the depth partition, and the operations called before
// InitOSG, which have nothing to act on.
#include <viewer/CXViewer>

#include <gtest/gtest.h>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LineWidth>

TEST(ViewerRendering, DividingLineIsAPostRenderCameraInAFixedFrame)
{
    osg::ref_ptr<CXViewer> viewer = new CXViewer(0);
    osg::ref_ptr<osg::Camera> camera = viewer->createDividingLine(2, 1050, 0);
    ASSERT_TRUE(camera.valid());

    EXPECT_EQ(camera->getProjectionMatrix(), osg::Matrixd::ortho2D(0.0, 1680.0, 0.0, 1050.0));
    EXPECT_EQ(camera->getReferenceFrame(), osg::Transform::ABSOLUTE_RF);
    EXPECT_TRUE(camera->getViewMatrix().isIdentity());
    EXPECT_EQ(camera->getClearMask(), static_cast<GLbitfield>(GL_DEPTH_BUFFER_BIT));
    EXPECT_EQ(camera->getRenderOrder(), osg::Camera::POST_RENDER);
    EXPECT_EQ(camera->getRenderOrderNum(), 0);
    EXPECT_FALSE(camera->getAllowEventFocus());
    ASSERT_NE(camera->getStateSet(), nullptr);
    EXPECT_EQ(camera->getStateSet()->getMode(GL_LIGHTING),
              static_cast<osg::StateAttribute::GLModeValue>(osg::StateAttribute::OFF));
    // No viewport of its own: it draws in the view it is put in.
    EXPECT_EQ(camera->getViewport(), nullptr);

    ASSERT_EQ(camera->getNumChildren(), 1u);
    const osg::Geode* geode = camera->getChild(0)->asGeode();
    ASSERT_NE(geode, nullptr);
    ASSERT_EQ(geode->getNumDrawables(), 1u);
    const osg::Geometry* geometry = geode->getDrawable(0)->asGeometry();
    ASSERT_NE(geometry, nullptr);
    const auto* vertices = dynamic_cast<const osg::Vec3Array*>(geometry->getVertexArray());
    ASSERT_NE(vertices, nullptr);
    ASSERT_EQ(vertices->size(), 2u);
    EXPECT_EQ((*vertices)[0], osg::Vec3(2, 1050, 0));
    EXPECT_EQ((*vertices)[1], osg::Vec3(2, 0, 0));
    ASSERT_EQ(geometry->getNumPrimitiveSets(), 1u);
    const auto* lines = dynamic_cast<const osg::DrawArrays*>(geometry->getPrimitiveSet(0));
    ASSERT_NE(lines, nullptr);
    EXPECT_EQ(lines->getMode(), static_cast<GLenum>(GL_LINES));
    EXPECT_EQ(lines->getFirst(), 0);
    EXPECT_EQ(lines->getCount(), 2);
    const auto* colours = dynamic_cast<const osg::Vec4Array*>(geometry->getColorArray());
    ASSERT_NE(colours, nullptr);
    ASSERT_EQ(colours->size(), 1u);
    EXPECT_EQ((*colours)[0], osg::Vec4(0, 0, 0, 1));
    EXPECT_EQ(colours->getBinding(), osg::Array::BIND_OVERALL);

    const osg::StateSet* lineState = geode->getStateSet();
    ASSERT_NE(lineState, nullptr);
    const auto* width = dynamic_cast<const osg::LineWidth*>(lineState->getAttribute(osg::StateAttribute::LINEWIDTH));
    ASSERT_NE(width, nullptr);
    EXPECT_FLOAT_EQ(width->getWidth(), 4.0f);
    EXPECT_EQ(lineState->getMode(GL_LINE_SMOOTH),
              static_cast<osg::StateAttribute::GLModeValue>(osg::StateAttribute::ON));
}

TEST(ViewerRendering, DividingLineTakesItsArguments)
{
    osg::ref_ptr<CXViewer> viewer = new CXViewer(0);
    osg::ref_ptr<osg::Camera> camera = viewer->createDividingLine(840, 10, 900);
    const osg::Geometry* geometry = camera->getChild(0)->asGeode()->getDrawable(0)->asGeometry();
    const auto* vertices = static_cast<const osg::Vec3Array*>(geometry->getVertexArray());
    EXPECT_EQ((*vertices)[0], osg::Vec3(840, 10, 0));
    EXPECT_EQ((*vertices)[1], osg::Vec3(840, 900, 0));
    // The frame does not depend on the arguments either.
    EXPECT_EQ(camera->getProjectionMatrix(), osg::Matrixd::ortho2D(0.0, 1680.0, 0.0, 1050.0));
}

TEST(ViewerRendering, DepthPartitionFlagStartsSet)
{
    osg::ref_ptr<CXViewer> viewer = new CXViewer(0);
    EXPECT_TRUE(viewer->GetDepthPartitionEnable());
    viewer->depthPartitionEnable = false;
    EXPECT_FALSE(viewer->GetDepthPartitionEnable());
}

TEST(ViewerRendering, OperationsBeforeInitOSGChangeNothing)
{
    osg::ref_ptr<CXViewer> viewer = new CXViewer(0);
    viewer->ToggleDepthPartition();
    EXPECT_TRUE(viewer->GetDepthPartitionEnable());
    viewer->changeViewSize(true);
    viewer->createViceView();
    EXPECT_EQ(viewer->GetViceView(), nullptr);
    EXPECT_EQ(viewer->GetViceModels(), nullptr);
    EXPECT_EQ(viewer->GetModels(), nullptr);
    viewer->clearViceView();
    viewer->deleteViceView();
    EXPECT_EQ(viewer->GetViceView(), nullptr);
    EXPECT_EQ(viewer->GetModels(), nullptr);
}
