// Binding the manipulator to the scene and keeping the camera's projection
// in line with the settings.
#include "NavScenes.h"
#include "NavTestSupport.h"

#include <navigation/CXEarthManipulator>

#include <osg/Geode>
#include <osg/Geometry>

#include <gtest/gtest.h>

#include <cmath>

using M = CXEarthManipulator;

TEST(ManipulatorScene, ASecondNodeWhileOneIsAliveChangesNothing)
{
    osg::ref_ptr<osg::Group> a = new osg::Group;
    osg::ref_ptr<osg::Group> b = new osg::Group;
    osg::ref_ptr<M> m = new M;
    m->setNode(a.get());
    m->setViewpoint(CXViewport(osg::Vec3d(1, 2, 3), 10.0, -20.0, 30.0), 0.0);
    const osg::Matrixd before = m->getMatrix();
    m->setNode(b.get());
    EXPECT_EQ(m->getNode(), a.get());
    EXPECT_EQ(m->getMatrix(), before);
    EXPECT_FALSE(m->_needsEstablish);

    // Through a null the new node is taken, and the home viewpoint is kept.
    const CXViewport home = m->_homeViewpoint.get();
    m->setNode(nullptr);
    EXPECT_EQ(m->getNode(), nullptr);
    EXPECT_FALSE(m->established());
    m->setNode(b.get());
    EXPECT_EQ(m->getNode(), b.get());
    EXPECT_EQ(m->_homeViewpoint.get().getFocalPoint(), home.getFocalPoint());

    // A node that went away can be replaced directly.
    osg::ref_ptr<M> n = new M;
    osg::ref_ptr<osg::Group> gone = new osg::Group;
    n->setNode(gone.get());
    gone = nullptr;
    n->setNode(a.get());
    EXPECT_EQ(n->getNode(), a.get());
}

TEST(ManipulatorScene, ASceneWithAnEllipsoidStartsAtMinus90WithThreeRadii)
{
    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<osg::CoordinateSystemNode> csn = new osg::CoordinateSystemNode;
    csn->setEllipsoidModel(new osg::EllipsoidModel(osg::WGS_84_RADIUS_EQUATOR, osg::WGS_84_RADIUS_POLAR));
    root->addChild(csn.get());
    osg::ref_ptr<M> m = new M;
    m->setNode(root.get());
    EXPECT_EQ(m->getNode(), csn.get());
    ASSERT_TRUE(m->_homeViewpoint.isSet());
    const CXViewport& home = m->_homeViewpoint.get();
    EXPECT_EQ(home.getFocalPoint(), osg::Vec3d(-90.0, 0.0, 0.0));
    EXPECT_EQ(home.getHeading(), 0.0);
    EXPECT_EQ(home.getPitch(), -89.0);
    EXPECT_EQ(home.getRange(), 3.0 * osg::WGS_84_RADIUS_EQUATOR);
    EXPECT_EQ(m->_homeViewpointDuration, 0.0);
    // And the camera is there.
    const CXViewport vp = m->getViewpoint();
    EXPECT_EQ(vp.getFocalPoint(), osg::Vec3d(-90.0, 0.0, 0.0));
    EXPECT_NEAR(vp.getPitch(), -89.0, 1e-7);
    EXPECT_NEAR(vp.getRange(), 3.0 * osg::WGS_84_RADIUS_EQUATOR, 1e-3);
    EXPECT_FALSE(m->_needsEstablish);
    EXPECT_FALSE(m->_csnObserverPath.empty());
}

TEST(ManipulatorScene, ASceneWithoutOneStartsOverTheBoundAtTwiceItsRadius)
{
    osg::ref_ptr<osg::Geode> ground = new osg::Geode;
    ground->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(100, 200, 0), osg::Vec3(600, 0, 0),
                                                        osg::Vec3(0, 800, 0)));
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(ground.get());
    osg::ref_ptr<M> m = new M;
    m->setNode(root.get());
    EXPECT_FALSE(m->_csn.valid());
    const osg::BoundingSphere& bs = root->getBound();
    const CXViewport& home = m->_homeViewpoint.get();
    EXPECT_EQ(home.getFocalPoint(), osg::Vec3d(bs.center()));
    EXPECT_EQ(home.getPitch(), -89.9);
    EXPECT_EQ(home.getHeading(), 0.0);
    EXPECT_NEAR(home.getRange(), 2.0 * bs.radius(), 1e-3);
    const CXViewport vp = m->getViewpoint();
    EXPECT_NEAR(vp.getPitch(), -89.9, 1e-7);
    EXPECT_NEAR(vp.getRange(), 2.0 * bs.radius(), 1e-3);
    EXPECT_NEAR(vp.getFocalPoint().x(), bs.center().x(), 1e-3);

    // A flat coordinate system node: its own bound, the same way.
    osg::ref_ptr<osg::CoordinateSystemNode> flat = navtest::makeFlatScene(500.0);
    osg::ref_ptr<M> f = new M;
    f->setNode(flat.get());
    EXPECT_EQ(f->_csn.get(), flat.get());
    EXPECT_EQ(f->_homeViewpoint.get().getPitch(), -89.9);
    EXPECT_NEAR(f->_homeViewpoint.get().getRange(), 2.0 * flat->getBound().radius(), 1e-3);
}

TEST(ManipulatorScene, TheCoordinateSystemNodeIsFoundAboveBeforeBelow)
{
    osg::ref_ptr<osg::CoordinateSystemNode> outer = new osg::CoordinateSystemNode;
    osg::ref_ptr<osg::Group> middle = new osg::Group;
    osg::ref_ptr<osg::CoordinateSystemNode> inner = new osg::CoordinateSystemNode;
    outer->addChild(middle.get());
    middle->addChild(inner.get());
    osg::ref_ptr<M> m = new M;
    m->setNode(middle.get());
    EXPECT_EQ(m->_csn.get(), outer.get());

    // A node with traversal mask bits other than 1 is not looked at.
    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<osg::CoordinateSystemNode> hidden = new osg::CoordinateSystemNode;
    hidden->setNodeMask(0x2);
    root->addChild(hidden.get());
    osg::ref_ptr<M> n = new M;
    n->setNode(root.get());
    EXPECT_FALSE(n->_csn.valid());
}

TEST(ManipulatorScene, PerspectiveIsRebuiltWhenTheSettingsChange)
{
    osg::ref_ptr<osgViewer::View> view = navtest::makeView();
    navtest::RecordingAdapter aa(view.get());
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    osg::ref_ptr<M> m = new M;
    m->setNode(scene.get());
    m->handle(*navtest::frameEvent(), aa);
    EXPECT_EQ(m->_viewCamera.get(), view->getCamera());
    double fovy = 0, aspect = 0, zNear = 0, zFar = 0;
    ASSERT_TRUE(view->getCamera()->getProjectionMatrixAsPerspective(fovy, aspect, zNear, zFar));
    EXPECT_NEAR(fovy, 30.0, 1e-9);
    EXPECT_NEAR(aspect, 640.0 / 480.0, 1e-12);
    EXPECT_NEAR(zNear, 1.0, 1e-6);
    EXPECT_NEAR(zFar, 10000.0, 1e-3);
    EXPECT_EQ(m->_cameraSettingsRevision, m->getSettings()->_revision);

    // In sync: a projection set by somebody else stays.
    view->getCamera()->setProjectionMatrixAsPerspective(45.0, 2.0, 5.0, 50.0);
    m->handle(*navtest::frameEvent(), aa);
    ASSERT_TRUE(view->getCamera()->getProjectionMatrixAsPerspective(fovy, aspect, zNear, zFar));
    EXPECT_NEAR(fovy, 45.0, 1e-9);

    // Frustum offsets shift the projection centre by pixels.
    m->getSettings()->setCameraFrustumOffsets(osg::Vec2s(64, -48));
    m->handle(*navtest::frameEvent(), aa);
    const osg::Matrixd& p = view->getCamera()->getProjectionMatrix();
    const osg::Vec3d centre = osg::Vec3d(0, 0, -100) * p;
    EXPECT_NEAR(centre.x(), (320.0 + 64.0) / 640.0 * 2.0 - 1.0, 1e-9);
    EXPECT_NEAR(centre.y(), (240.0 - 48.0) / 480.0 * 2.0 - 1.0, 1e-9);
}

TEST(ManipulatorScene, OrthographicAndBackRestoresTheSavedNearFarMode)
{
    osg::ref_ptr<osgViewer::View> view = navtest::makeView();
    navtest::RecordingAdapter aa(view.get());
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    osg::ref_ptr<M> m = new M;
    m->setNode(scene.get());
    m->setViewpoint(CXViewport(osg::Vec3d(), 0.0, -90.0, 200.0), 0.0);
    osg::Camera* camera = view->getCamera();
    camera->setComputeNearFarMode(osg::CullSettings::COMPUTE_NEAR_FAR_USING_PRIMITIVES);
    camera->setProjectionMatrixAsPerspective(40.0, 640.0 / 480.0, 1.0, 1000.0);

    m->getSettings()->setCameraProjection(M::PROJ_ORTHOGRAPHIC);
    m->handle(*navtest::frameEvent(), aa);
    EXPECT_EQ(camera->getComputeNearFarMode(), osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    ASSERT_TRUE(m->_savedNearFarMode.isSet());
    EXPECT_EQ(m->_savedNearFarMode.get(), osg::CullSettings::COMPUTE_NEAR_FAR_USING_PRIMITIVES);
    EXPECT_NEAR(m->_verticalFov, 40.0, 1e-9);
    double left, right, bottom, top, zNear, zFar;
    ASSERT_TRUE(camera->getProjectionMatrixAsOrtho(left, right, bottom, top, zNear, zFar));
    const double vh = 200.0 * std::tan(osg::DegreesToRadians(20.0));
    const double hw = vh * 640.0 / 480.0;
    EXPECT_NEAR(top, vh, 1e-6);
    EXPECT_NEAR(right, hw, 1e-6);
    EXPECT_NEAR(zNear, -hw * 5.0, 1e-3);
    // The pitch of -90 was clamped to -89.9 by the viewpoint.
    EXPECT_NEAR(zFar, hw * (std::sin(osg::DegreesToRadians(0.1)) * 10.0 + 5.0), 1e-3);

    // A second orthographic frame keeps the mode saved from the first.
    camera->setComputeNearFarMode(osg::CullSettings::COMPUTE_NEAR_FAR_USING_BOUNDING_VOLUMES);
    m->handle(*navtest::frameEvent(), aa);
    EXPECT_EQ(m->_savedNearFarMode.get(), osg::CullSettings::COMPUTE_NEAR_FAR_USING_PRIMITIVES);
    // Zooming scales the orthographic extent.
    m->setDistance(400.0);
    m->handle(*navtest::frameEvent(), aa);
    ASSERT_TRUE(camera->getProjectionMatrixAsOrtho(left, right, bottom, top, zNear, zFar));
    EXPECT_NEAR(top, 2.0 * vh, 1e-6);

    m->getSettings()->setCameraProjection(M::PROJ_PERSPECTIVE);
    m->handle(*navtest::frameEvent(), aa);
    EXPECT_EQ(camera->getComputeNearFarMode(), osg::CullSettings::COMPUTE_NEAR_FAR_USING_PRIMITIVES);
    EXPECT_FALSE(m->_savedNearFarMode.isSet());
    double fovy, aspect;
    ASSERT_TRUE(camera->getProjectionMatrixAsPerspective(fovy, aspect, zNear, zFar));
    EXPECT_NEAR(fovy, 40.0, 1e-9);
}

TEST(ManipulatorScene, ACameraWithoutAViewportKeepsItsProjection)
{
    osg::ref_ptr<osgViewer::View> view = new osgViewer::View;
    view->getCamera()->setViewport(nullptr);
    view->getCamera()->setProjectionMatrixAsFrustum(-1, 1, -1, 1, 1, 10);
    const osg::Matrixd p = view->getCamera()->getProjectionMatrix();
    navtest::RecordingAdapter aa(view.get());
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    osg::ref_ptr<M> m = new M;
    m->setNode(scene.get());
    m->handle(*navtest::frameEvent(), aa);
    EXPECT_EQ(view->getCamera()->getProjectionMatrix(), p);
    EXPECT_EQ(m->_cameraSettingsRevision, m->getSettings()->_revision);

    // No view at all: handled without a camera.
    navtest::RecordingAdapter none;
    EXPECT_FALSE(m->handle(*navtest::frameEvent(), none));
    EXPECT_FALSE(m->_viewCamera.valid());
}
