// Tethering the camera's centre to a moving node.
#include "NavTestSupport.h"

#include <navigation/CXEarthManipulator>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/MatrixTransform>

#include <gtest/gtest.h>

#include <cmath>

using M = CXEarthManipulator;
using osgGA::GUIEventAdapter;

namespace
{

osg::ref_ptr<osg::Geode> quad(float half = 5.0f)
{
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(-half, -half, 0), osg::Vec3(2 * half, 0, 0),
                                                       osg::Vec3(0, 2 * half, 0)));
    return geode;
}

struct TetherScene
{
    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<osg::MatrixTransform> mover = new osg::MatrixTransform;
    osg::ref_ptr<osg::Geode> model = quad();
    osg::ref_ptr<osg::Geode> ground = new osg::Geode;

    TetherScene()
    {
        ground->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(-5000, -5000, 0), osg::Vec3(10000, 0, 0),
                                                            osg::Vec3(0, 10000, 0)));
        root->addChild(ground.get());
        mover->addChild(model.get());
        root->addChild(mover.get());
    }
};

} // namespace

TEST(ManipulatorTether, FindsTheLastTransformDownAChainOfSingleChildren)
{
    TetherScene s;
    osg::ref_ptr<osg::Group> outer = new osg::Group;
    osg::ref_ptr<osg::MatrixTransform> inner = new osg::MatrixTransform(osg::Matrixd::translate(1, 2, 3));
    outer->addChild(s.mover.get());
    s.mover->removeChildren(0, 1);
    s.mover->addChild(inner.get());
    osg::ref_ptr<osg::Geode> offCentre = new osg::Geode;
    offCentre->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(10, 10, 0), osg::Vec3(4, 0, 0), osg::Vec3(0, 4, 0)));
    inner->addChild(offCentre.get());

    osg::ref_ptr<M> m = new M;
    m->setTetherNode(outer.get());
    EXPECT_EQ(m->_tetherTransform, inner.get());
    EXPECT_NEAR(m->_tetherLocalCenter.x(), 12.0, 1e-6);
    EXPECT_NEAR(m->_tetherLocalCenter.y(), 12.0, 1e-6);
    EXPECT_EQ(m->getTetherNode(), outer.get());

    // A group with two children stops the walk: no transform.
    osg::ref_ptr<osg::Group> two = new osg::Group;
    two->addChild(quad().get());
    two->addChild(s.mover.get());
    osg::ref_ptr<M> n = new M;
    n->_tetherLocalCenter.set(9, 9, 9);
    n->setTetherNode(two.get());
    EXPECT_EQ(n->_tetherTransform, nullptr);
    EXPECT_EQ(n->_tetherLocalCenter, osg::Vec3d(0, 0, 0));
}

TEST(ManipulatorTether, SettingTheSameNodeAgainKeepsTheOffsetsAndDoesNoSearch)
{
    TetherScene s;
    osg::ref_ptr<M> m = new M;
    m->setTetherNode(s.mover.get());
    ASSERT_EQ(m->_tetherTransform, s.mover.get());
    m->_offsetX = 4.0;
    m->_offsetY = -2.0;
    osg::ref_ptr<osg::MatrixTransform> marker = new osg::MatrixTransform;
    m->_tetherTransform = marker.get();
    m->_tetherLocalCenter.set(7, 7, 7);

    m->setTetherNode(s.mover.get());
    EXPECT_EQ(m->_offsetX, 4.0);
    EXPECT_EQ(m->_offsetY, -2.0);
    EXPECT_EQ(m->_tetherTransform, marker.get());
    EXPECT_EQ(m->_tetherLocalCenter, osg::Vec3d(7, 7, 7));

    // Another node resets the offsets.
    m->setTetherNode(s.model.get());
    EXPECT_EQ(m->_offsetX, 0.0);
    EXPECT_EQ(m->_offsetY, 0.0);
}

TEST(ManipulatorTether, EndingATetherTipsAHighCameraDownToMinusTen)
{
    TetherScene s;
    osg::ref_ptr<M> m = new M;
    m->setNode(s.root.get());
    m->setTetherNode(s.mover.get());
    // Looking almost level: -2 degrees, heading 30.
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 30.0, -45.0, 200.0), 0.0);
    m->rotate(0.0, osg::DegreesToRadians(43.0));
    double heading = 0, pitch = 0;
    navtest::headingPitchDegrees(*m, heading, pitch);
    ASSERT_NEAR(pitch, -2.0, 1e-6);
    const osg::Vec3d eye = m->getMatrix().getTrans();

    m->setTetherNode(nullptr);
    navtest::headingPitchDegrees(*m, heading, pitch);
    EXPECT_NEAR(pitch, -10.0, 1e-9);
    EXPECT_NEAR(heading, 30.0, 1e-9);
    EXPECT_EQ(m->getTetherNode(), nullptr);
    // The centre is looked for along the camera's view axis (it is on the
    // ground already) and the distance keeps the eye of the tipped camera.
    EXPECT_NEAR(m->_center.length(), 0.0, 1e-6);
    EXPECT_NEAR(m->getDistance(), 200.0, 1e-6);
    EXPECT_GT(m->getMatrix().getTrans().z(), eye.z());

    // A camera already looking down more steeply keeps its pitch.
    m->setTetherNode(s.mover.get());
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -50.0, 200.0), 0.0);
    m->setTetherNode(nullptr);
    navtest::headingPitchDegrees(*m, heading, pitch);
    EXPECT_NEAR(pitch, -50.0, 1e-9);
}

TEST(ManipulatorTether, ANodeWithoutParentsLeavesTheCameraWhereItIs)
{
    osg::ref_ptr<osg::Geode> orphan = quad();
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    osg::ref_ptr<M> m = new M;
    m->setNode(scene.get());
    m->setViewpoint(CXViewport(osg::Vec3d(3, 4, 5), 10.0, -40.0, 60.0), 0.0);
    const osg::Matrixd before = m->getMatrix();
    m->setTetherNode(orphan.get());
    EXPECT_EQ(m->_tetherTransform, nullptr);
    m->updateTether();
    EXPECT_EQ(m->getMatrix(), before);

    // And a node that went away: nothing either.
    osg::ref_ptr<osg::Group> gone = new osg::Group;
    scene->addChild(gone.get());
    m->setTetherNode(gone.get());
    scene->removeChildren(0, 1);
    gone = nullptr;
    m->updateTether();
    EXPECT_EQ(m->getMatrix(), before);
}

TEST(ManipulatorTether, ANodeScaledByTwoIsFollowedInPositionWithAScaleFreeRotation)
{
    TetherScene s;
    const osg::Quat turn(osg::DegreesToRadians(30.0), osg::Vec3d(0, 0, 1));
    s.mover->setMatrix(osg::Matrixd::scale(2, 2, 2) * osg::Matrixd::rotate(turn) * osg::Matrixd::translate(100, 50, 0));

    osg::ref_ptr<M> m = new M;
    m->setNode(s.root.get());
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -60.0, 80.0), 0.0);
    const osg::Quat rotationBefore = m->getRotation();
    const double distanceBefore = m->getDistance();
    m->setTetherNode(s.mover.get());

    m->getSettings()->setTetherMode(M::TETHER_CENTER_AND_ROTATION);
    m->updateTether();
    EXPECT_NEAR(m->_center.x(), 100.0, 1e-9);
    EXPECT_NEAR(m->_center.y(), 50.0, 1e-9);
    // A unit quaternion of the 30 degree turn, not one scaled by 2.
    EXPECT_NEAR(m->_centerRotation.length(), 1.0, 1e-9);
    osg::Vec3d axis;
    double angle = 0.0;
    m->_centerRotation.getRotate(angle, axis);
    EXPECT_NEAR(angle, osg::DegreesToRadians(30.0), 1e-9);
    EXPECT_NEAR(axis.z(), 1.0, 1e-9);
    // The user keeps turning and zooming.
    EXPECT_EQ(m->getRotation(), rotationBefore);
    EXPECT_EQ(m->getDistance(), distanceBefore);
    EXPECT_EQ(m->_previousUp, osg::Vec3d(0, 0, 1));

    m->getSettings()->setTetherMode(M::TETHER_CENTER);
    m->updateTether();
    EXPECT_TRUE(m->_centerRotation.zeroRotation());

    m->getSettings()->setTetherMode(M::TETHER_CENTER_AND_HEADING);
    m->updateTether();
    m->_centerRotation.getRotate(angle, axis);
    EXPECT_NEAR(angle, osg::DegreesToRadians(30.0), 1e-9);
    EXPECT_NEAR(std::fabs(axis.z()), 1.0, 1e-9);

    // It follows the node when it moves.
    s.mover->setMatrix(osg::Matrixd::scale(2, 2, 2) * osg::Matrixd::translate(-40, 10, 5));
    m->updateTether();
    EXPECT_NEAR(m->_center.x(), -40.0, 1e-9);
    EXPECT_NEAR(m->_center.y(), 10.0, 1e-9);
    EXPECT_NEAR(m->_center.z(), 5.0, 1e-9);
}

TEST(ManipulatorTether, UpdateCameraAttachesTheCallbackWhichFollowsAfterUpdate)
{
    TetherScene s;
    s.mover->setMatrix(osg::Matrixd::translate(10, 20, 0));
    osg::ref_ptr<osgViewer::View> view = navtest::makeView();
    navtest::RecordingAdapter aa(view.get());
    osg::ref_ptr<M> m = new M;
    m->setNode(s.root.get());
    m->handle(*navtest::frameEvent(), aa);
    EXPECT_EQ(view->getCamera()->getUpdateCallback(), nullptr);

    m->setTetherNode(s.mover.get());
    m->handle(*navtest::frameEvent(), aa);
    auto* callback = dynamic_cast<M::CameraPostUpdateCallback*>(view->getCamera()->getUpdateCallback());
    ASSERT_NE(callback, nullptr);
    EXPECT_EQ(callback->_manipulator, m.get());
    EXPECT_EQ(m->_cameraUpdateCallback.get(), callback);

    // The callback runs postUpdate, which moves the centre to the node.
    (*callback)(view->getCamera(), nullptr);
    EXPECT_NEAR(m->_center.x(), 10.0, 1e-9);
    EXPECT_NEAR(m->_center.y(), 20.0, 1e-9);

    // Ended: removed on the next event.
    m->setTetherNode(nullptr);
    m->handle(*navtest::frameEvent(), aa);
    EXPECT_EQ(view->getCamera()->getUpdateCallback(), nullptr);
    EXPECT_FALSE(m->_cameraUpdateCallback.valid());
}

TEST(ManipulatorTether, NoInputEndsATetherUntilTheHostNamesBreakActions)
{
    TetherScene s;
    osg::ref_ptr<osgViewer::View> view = navtest::makeView();
    navtest::RecordingAdapter aa(view.get());
    osg::ref_ptr<M> m = new M;
    m->setNode(s.root.get());
    m->setTetherNode(s.mover.get());
    EXPECT_TRUE(m->getSettings()->getBreakTetherActions().empty());

    const double t = osg::Timer::instance()->time_s();
    m->handle(*navtest::mouseEvent(GUIEventAdapter::PUSH, 100, 100, 1, t, 1), aa);
    m->handle(*navtest::mouseEvent(GUIEventAdapter::DRAG, 120, 100, 1, t + 0.1), aa);
    m->handle(*navtest::keyEvent(GUIEventAdapter::KEYDOWN, GUIEventAdapter::KEY_Left), aa);
    EXPECT_EQ(m->getTetherNode(), s.mover.get());

    // The lookup uses the button mask for every event: a left drag is a pan.
    m->getSettings()->setBreakTetherActions({M::ACTION_PAN});
    m->handle(*navtest::mouseEvent(GUIEventAdapter::DRAG, 140, 100, 1, t + 0.2), aa);
    EXPECT_EQ(m->getTetherNode(), nullptr);
}
