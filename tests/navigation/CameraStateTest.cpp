// The camera state of the earth manipulator: fields, composition of the view
// matrix, placement from a look-at or a matrix, ground contact.
#include "NavScenes.h"
#include "NavTestSupport.h"

#include <navigation/CXEarthManipulator>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/MatrixTransform>

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

using M = CXEarthManipulator;

namespace
{

void expectMatrixNear(const osg::Matrixd& a, const osg::Matrixd& b, double eps)
{
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            EXPECT_NEAR(a(r, c), b(r, c), eps) << r << "," << c;
}

void expectVecNear(const osg::Vec3d& a, const osg::Vec3d& b, double eps)
{
    EXPECT_NEAR(a.x(), b.x(), eps);
    EXPECT_NEAR(a.y(), b.y(), eps);
    EXPECT_NEAR(a.z(), b.z(), eps);
}

// A horizontal plane at height z, 2 * half wide, centred on (cx, cy).
osg::ref_ptr<osg::Geode> plane(double z, double half = 1000.0, double cx = 0.0, double cy = 0.0)
{
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(cx - half, cy - half, z),
                                                       osg::Vec3(2 * half, 0, 0), osg::Vec3(0, 2 * half, 0)));
    return geode;
}

} // namespace

TEST(ManipulatorState, DefaultsAfterConstruction)
{
    osg::ref_ptr<M> m = new M;
    EXPECT_STREQ(m->className(), "CXEarthManipulator");
    EXPECT_TRUE(m->_needsEstablish);
    EXPECT_FALSE(m->_previousEvent.valid());
    EXPECT_FALSE(m->_lastEvent.valid());
    EXPECT_FALSE(m->_mouseDownEvent.valid());
    EXPECT_EQ(m->getNode(), nullptr);
    EXPECT_FALSE(m->_csn.valid());
    EXPECT_FALSE(m->_isGeocentric);
    EXPECT_FALSE(m->_spareFlag);
    EXPECT_EQ(m->getTetherNode(), nullptr);
    EXPECT_EQ(m->_deltaTime, 0.0);
    EXPECT_EQ(m->_timeFactor, 1.0);
    EXPECT_FALSE(m->_throwing);
    EXPECT_EQ(m->_center, osg::Vec3d(0, 0, 0));
    EXPECT_TRUE(m->_centerLocalToWorld.isIdentity());
    EXPECT_TRUE(m->_rotation.zeroRotation());
    EXPECT_TRUE(m->_centerRotation.zeroRotation());
    EXPECT_EQ(m->getDistance(), 1.0);
    EXPECT_EQ(m->_offsetX, 0.0);
    EXPECT_EQ(m->_offsetY, 0.0);
    EXPECT_EQ(m->_previousUp, osg::Vec3d(0, 0, 0));
    ASSERT_TRUE(m->_task.valid());
    EXPECT_EQ(m->_task->_type, M::TASK_NONE);
    EXPECT_FALSE(m->_continuous);
    EXPECT_FALSE(m->_pendingViewpointSet);
    EXPECT_FALSE(m->_settingViewpoint);
    EXPECT_EQ(m->_arcHeight, 0.0);
    EXPECT_EQ(m->_frameCount, 0u);
    EXPECT_NE(m->getSettings(), nullptr);
    EXPECT_FALSE(m->_homeViewpoint.isSet());
    EXPECT_EQ(m->_lastAction._type, M::ACTION_NULL);
    EXPECT_EQ(m->_verticalFov, 30.0);
    EXPECT_DOUBLE_EQ(m->_tanHalfVerticalFov, std::tan(0.5 * osg::DegreesToRadians(30.0)));
    EXPECT_FALSE(m->_savedNearFarMode.isSet());
    EXPECT_EQ(m->_cameraSettingsRevision, -1);
    EXPECT_EQ(m->_lastPointOnEarth, osg::Vec3d(0, 0, 0));
    EXPECT_DOUBLE_EQ(m->_minRotatePitch, osg::DegreesToRadians(-89.9));
    EXPECT_DOUBLE_EQ(m->_maxRotatePitch, osg::DegreesToRadians(-1.0));
    EXPECT_FALSE(m->_pagingBlocked);
    EXPECT_EQ(m->getFusionDistanceMode(), osgUtil::SceneView::USE_FUSION_DISTANCE_VALUE);
    EXPECT_EQ(m->getFusionDistanceValue(), 1.0f);
}

TEST(ManipulatorState, ReinitializeResetsTheMotionStateAndKeepsFrameCountAndSettings)
{
    osg::ref_ptr<M> m = new M;
    M::Settings* settings = m->getSettings();
    osg::ref_ptr<M::Task> oldTask = m->_task;
    m->_needsEstablish = false;
    m->_spareFlag = true;
    m->_distance = 50.0;
    m->_offsetX = 3.0;
    m->_continuous = true;
    m->_settingViewpoint = true;
    m->_pendingViewpointSet = true;
    m->_arcHeight = 9.0;
    m->_lastAction = M::Action(M::ACTION_PAN);
    m->_verticalFov = 45.0;
    m->_lastPointOnEarth.set(1, 2, 3);
    m->_minRotatePitch = -3.0;
    m->_frameCount = 7;
    m->_center.set(5, 5, 5);

    m->reinitialize();
    EXPECT_TRUE(m->_needsEstablish);
    EXPECT_FALSE(m->_spareFlag);
    EXPECT_EQ(m->getDistance(), 1.0);
    EXPECT_EQ(m->_offsetX, 0.0);
    EXPECT_FALSE(m->_continuous);
    EXPECT_FALSE(m->_settingViewpoint);
    EXPECT_FALSE(m->_pendingViewpointSet);
    EXPECT_EQ(m->_arcHeight, 0.0);
    EXPECT_EQ(m->_lastAction._type, M::ACTION_NULL);
    EXPECT_EQ(m->_verticalFov, 30.0);
    EXPECT_EQ(m->_lastPointOnEarth, osg::Vec3d(0, 0, 0));
    EXPECT_DOUBLE_EQ(m->_minRotatePitch, osg::DegreesToRadians(-89.9));
    EXPECT_NE(m->_task.get(), oldTask.get());
    // Not part of the reset.
    EXPECT_EQ(m->_frameCount, 7u);
    EXPECT_EQ(m->_center, osg::Vec3d(5, 5, 5));
    EXPECT_EQ(m->getSettings(), settings);
}

TEST(ManipulatorState, CopyGetsACopyOfTheSettingsAndAFreshState)
{
    osg::ref_ptr<M> a = new M;
    a->getSettings()->bindKey(M::ACTION_ZOOM_IN, 'z');
    a->getSettings()->setBreakTetherActions({M::ACTION_PAN});
    a->setCenter(osg::Vec3d(1, 2, 3));
    a->setHomeViewpoint(CXViewport(osg::Vec3d(), 0, -45, 10), 1.0);

    osg::ref_ptr<M> b = new M(*a);
    EXPECT_NE(b->getSettings(), a->getSettings());
    EXPECT_EQ(b->getSettings()->getAction(osgGA::GUIEventAdapter::KEYDOWN, 'z', 0)._type, M::ACTION_ZOOM_IN);
    EXPECT_TRUE(b->getSettings()->getBreakTetherActions().empty());
    EXPECT_EQ(b->_center, osg::Vec3d(0, 0, 0));
    EXPECT_FALSE(b->_homeViewpoint.isSet());
    EXPECT_TRUE(b->_needsEstablish);
}

TEST(ManipulatorState, MatrixCompositionAndItsInverse)
{
    osg::ref_ptr<M> m = new M;
    m->setCenter(osg::Vec3d(100, -50, 20));
    m->setDistance(250.0);
    m->_offsetX = 3.0;
    m->_offsetY = -4.0;
    m->setRotation(osg::Quat(0.4, osg::Vec3d(1, 0, 0)) * osg::Quat(1.1, osg::Vec3d(0, 0, 1)));
    m->_centerRotation = osg::Quat(0.2, osg::Vec3d(0, 1, 0));

    const osg::Matrixd expected = osg::Matrixd::translate(-3.0, 4.0, 250.0) * osg::Matrixd::rotate(m->getRotation()) *
                                  osg::Matrixd::rotate(m->_centerRotation) * osg::Matrixd::translate(100, -50, 20);
    expectMatrixNear(m->getMatrix(), expected, 1e-9);
    expectMatrixNear(m->getMatrix() * m->getInverseMatrix(), osg::Matrixd::identity(), 1e-9);
    EXPECT_FLOAT_EQ(m->getFusionDistanceValue(), 250.0f);
}

TEST(ManipulatorState, SetCenterLeavesTheLocalFrameAndTheCenterRotationUntouched)
{
    osg::ref_ptr<M> m = new M;
    const osg::Quat cr(0.3, osg::Vec3d(0, 0, 1));
    m->_centerRotation = cr;
    m->setCenter(osg::Vec3d(1000, 2000, 3000));
    EXPECT_EQ(m->getCenter(), osg::Vec3d(1000, 2000, 3000));
    EXPECT_TRUE(m->_centerLocalToWorld.isIdentity());
    EXPECT_EQ(m->_centerRotation, cr);
}

TEST(ManipulatorState, SetDistanceClampsToTheSettings)
{
    osg::ref_ptr<M> m = new M;
    m->setDistance(0.25);
    EXPECT_EQ(m->getDistance(), 1.0);
    m->getSettings()->setMinMaxDistance(10.0, 20.0);
    m->setDistance(50.0);
    EXPECT_EQ(m->getDistance(), 20.0);
    m->setDistance(15.0);
    EXPECT_EQ(m->getDistance(), 15.0);
}

TEST(ManipulatorState, TheCenterFrameIsTheIdentityEverywhere)
{
    osg::ref_ptr<M> m = new M;
    for (const osg::Vec3d& c : {osg::Vec3d(0, 0, 0), osg::Vec3d(6378137.0, 0, 0), osg::Vec3d(-5, 7, 1e6)})
    {
        const osg::Matrixd r = m->getRotation(c);
        // A look-at straight down -Z with +Y up: no rotation at all.
        EXPECT_TRUE(r.getRotate().zeroRotation() ||
                    osg::equivalent(std::fabs(r.getRotate().w()), 1.0, 1e-12));
        expectVecNear(osg::Vec3d(0, 0, 0) * osg::Matrixd::inverse(r), c + osg::Vec3d(0, 0, 1e-6), 1e-6);
        const osg::Quat q = m->makeCenterRotation(c);
        EXPECT_NEAR(std::fabs(q.w()), 1.0, 1e-12);
    }
}

TEST(ManipulatorState, SetByLookAtBeforeANodeIsANoOp)
{
    osg::ref_ptr<M> m = new M;
    m->setByLookAt(osg::Vec3d(0, -100, 100), osg::Vec3d(0, 0, 0), osg::Vec3d(0, 0, 1));
    EXPECT_EQ(m->_center, osg::Vec3d(0, 0, 0));
    EXPECT_EQ(m->getDistance(), 1.0);
    EXPECT_TRUE(m->_rotation.zeroRotation());
    EXPECT_EQ(m->_previousUp, osg::Vec3d(0, 0, 0));
}

TEST(ManipulatorState, SetByLookAtPutsTheCenterOnTheFirstSurface)
{
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(plane(10.0).get());
    osg::ref_ptr<M> m = new M;
    m->setNode(root.get());

    // Looking at a point below the plane: the centre moves up to it.
    const osg::Vec3d eye(0, -300, 310);
    m->setByLookAt(eye, osg::Vec3d(0, 0, -100), osg::Vec3d(0, 0, 1));
    EXPECT_NEAR(m->_center.z(), 10.0, 1e-6);
    EXPECT_NEAR(m->getDistance(), (m->_center - eye).length(), 1e-6);
    // The eye stays where it was asked to be.
    expectVecNear(m->getMatrix().getTrans(), eye, 1e-6);
    EXPECT_EQ(m->_previousUp, osg::Vec3d(0, 0, 1));
}

TEST(ManipulatorState, SetByMatrixBeforeANodeStillPlacesTheCameraAtEyePlusLook)
{
    osg::ref_ptr<M> m = new M;
    const osg::Vec3d eye(10, 20, 30);
    const osg::Matrixd camera =
        osg::Matrixd::inverse(osg::Matrixd::lookAt(eye, osg::Vec3d(10, 120, 30), osg::Vec3d(0, 0, 1)));
    m->setByMatrix(camera);
    // look is the camera's unit forward vector: (0, 1, 0).
    expectVecNear(m->_center, osg::Vec3d(10, 21, 30), 1e-9);
    EXPECT_NEAR(m->getDistance(), 1.0, 1e-12);
    // Without a node the rotation is taken inverted from the camera matrix,
    // as it stands.
    const osg::Quat expected = camera.getRotate().inverse();
    EXPECT_NEAR((m->getRotation() - expected).length(), 0.0, 1e-12);
}

TEST(ManipulatorState, SetByMatrixHitsTheSceneAheadOrBelow)
{
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(plane(0.0).get());
    osg::ref_ptr<M> m = new M;
    m->setNode(root.get());

    // Ahead: looking obliquely down at the plane.
    // (The target is off the plane's diagonal, where its two triangles meet.)
    const osg::Vec3d eye(30, -200, 200);
    const osg::Vec3d target(30, 0, 0);
    osg::Matrixd camera = osg::Matrixd::inverse(osg::Matrixd::lookAt(eye, target, osg::Vec3d(0, 0, 1)));
    m->setByMatrix(camera);
    expectVecNear(m->_center, target, 1e-6);
    EXPECT_NEAR(m->getDistance(), (eye - target).length(), 1e-6);
    expectMatrixNear(m->getMatrix(), camera, 1e-6);

    // Looking at the sky: the ground straight below, looking down.
    const osg::Vec3d eye2(100, 100, 50);
    camera = osg::Matrixd::inverse(osg::Matrixd::lookAt(eye2, eye2 + osg::Vec3d(0, 1, 1), osg::Vec3d(0, 0, 1)));
    m->setByMatrix(camera);
    expectVecNear(m->_center, osg::Vec3d(100, 100, 0), 1e-6);
    EXPECT_NEAR(m->getDistance(), 50.0, 1e-6);
    EXPECT_TRUE(m->_rotation.zeroRotation());

    // Off the scene in every direction: centre and distance stay.
    const osg::Vec3d before = m->_center;
    camera = osg::Matrixd::inverse(
        osg::Matrixd::lookAt(osg::Vec3d(5000, 0, 50), osg::Vec3d(6000, 0, 50), osg::Vec3d(0, 0, 1)));
    m->setByMatrix(camera);
    EXPECT_EQ(m->_center, before);
    EXPECT_NEAR(m->getDistance(), 50.0, 1e-6);
}

TEST(ManipulatorState, GetLocalEulerAnglesWithTwoNullPointersChangesNothing)
{
    osg::ref_ptr<M> m = new M;
    m->setCenter(osg::Vec3d(1, 2, 3));
    m->setRotation(osg::Quat(0.5, osg::Vec3d(1, 0, 0)));
    const osg::Matrixd before = m->getMatrix();
    m->getLocalEulerAngles(nullptr, nullptr);
    expectMatrixNear(m->getMatrix(), before, 0.0);

    double azimuth = 99.0;
    m->getLocalEulerAngles(&azimuth, nullptr);
    EXPECT_NE(azimuth, 99.0);
    double pitch = 99.0;
    m->getLocalEulerAngles(nullptr, &pitch);
    EXPECT_NE(pitch, 99.0);
}

TEST(ManipulatorState, EulerAnglesFollowTheViewpointConvention)
{
    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<M> m = new M;
    m->setNode(root.get());
    for (double heading : {0.0, 45.0, 90.0, -135.0, 179.0})
        for (double pitch : {-89.0, -60.0, -30.0, -10.0})
        {
            m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), heading, pitch, 100.0), 0.0);
            double h = 0, p = 0;
            navtest::headingPitchDegrees(*m, h, p);
            EXPECT_NEAR(h, heading, 1e-7) << heading << " " << pitch;
            EXPECT_NEAR(p, pitch, 1e-7) << heading << " " << pitch;
            // Heading 0 looks along +Y, 90 along +X.
            osg::Vec3d look = -m->getUpVector(m->getMatrix());
            EXPECT_NEAR(std::atan2(look.x(), look.y()), osg::DegreesToRadians(heading), 1e-7);
        }
}

TEST(ManipulatorState, NormalizeAzimuth)
{
    EXPECT_DOUBLE_EQ(M::normalizeAzimRad(0.5), 0.5);
    EXPECT_NEAR(M::normalizeAzimRad(4.0), 4.0 - 2 * osg::PI, 1e-12);
    EXPECT_NEAR(M::normalizeAzimRad(-4.0), -4.0 + 2 * osg::PI, 1e-12);
    EXPECT_NEAR(M::normalizeAzimRad(13.0), std::fmod(13.0, 2 * osg::PI), 1e-12);
    EXPECT_NEAR(M::normalizeAzimRad(-16.0), std::fmod(-16.0, 2 * osg::PI) + 2 * osg::PI, 1e-12);
}

TEST(ManipulatorState, IntersectAnswersTheFirstHitAndLeavesOutAloneOnAMiss)
{
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(plane(0.0).get());
    root->addChild(plane(50.0).get());
    osg::ref_ptr<M> m = new M;
    osg::Vec3d out(7, 7, 7);
    EXPECT_FALSE(m->intersect(osg::Vec3d(0, 0, 100), osg::Vec3d(0, 0, -100), out));
    m->setNode(root.get());
    ASSERT_TRUE(m->intersect(osg::Vec3d(0, 0, 100), osg::Vec3d(0, 0, -100), out));
    expectVecNear(out, osg::Vec3d(0, 0, 50), 1e-9);
    out.set(7, 7, 7);
    EXPECT_FALSE(m->intersect(osg::Vec3d(5000, 0, 100), osg::Vec3d(5000, 0, -100), out));
    EXPECT_EQ(out, osg::Vec3d(7, 7, 7));
    // The traversal mask of the manipulator applies.
    root->getChild(1)->setNodeMask(0x2);
    m->setIntersectTraversalMask(0x1);
    ASSERT_TRUE(m->intersect(osg::Vec3d(0, 0, 100), osg::Vec3d(0, 0, -100), out));
    expectVecNear(out, osg::Vec3d(0, 0, 0), 1e-9);
}

TEST(ManipulatorState, RecalculateCenterTakesTheNearerOfTheHitsAlongTheVertical)
{
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(plane(0.0, 2000.0).get());
    root->addChild(plane(30.0, 2000.0).get());
    osg::ref_ptr<M> m = new M;
    m->setNode(root.get());
    const double radius = root->getBound().radius();
    ASSERT_GT(radius * 0.25, 100.0);

    m->setCenter(osg::Vec3d(10, 30, 20)); // 20 above the first plane, 10 below the second
    m->recalculateCenter();
    expectVecNear(m->_center, osg::Vec3d(10, 30, 30), 1e-9);

    m->setCenter(osg::Vec3d(10, 30, 5));
    m->recalculateCenter();
    expectVecNear(m->_center, osg::Vec3d(10, 30, 0), 1e-9);

    // Along another frame's up axis: x.
    osg::ref_ptr<osg::Group> wall = new osg::Group;
    osg::ref_ptr<osg::Geode> g = new osg::Geode;
    g->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(40, -500, -500), osg::Vec3(0, 1000, 0),
                                                   osg::Vec3(0, 0, 1000)));
    wall->addChild(g.get());
    osg::ref_ptr<M> w = new M;
    w->setNode(wall.get());
    w->setCenter(osg::Vec3d(0, 0, 0));
    w->recalculateCenter(osg::Matrixd::rotate(osg::Vec3d(0, 0, 1), osg::Vec3d(1, 0, 0)));
    expectVecNear(w->_center, osg::Vec3d(40, 0, 0), 1e-6);
}

TEST(ManipulatorState, RecalculateRollLevelsTheCenterFrame)
{
    osg::ref_ptr<M> m = new M;
    // A centre frame that is only rolled about the view axis stays as it is
    // (its side vector is horizontal); one that is tilted gets levelled.
    m->_centerRotation = osg::Quat(0.3, osg::Vec3d(0, 0, 1));
    m->recalculateRoll();
    EXPECT_NEAR(m->_centerRotation.w(), osg::Quat(0.3, osg::Vec3d(0, 0, 1)).w(), 1e-12);

    m->_centerRotation = osg::Quat(osg::DegreesToRadians(-45.0), osg::Vec3d(1, 0, 0)) *
                         osg::Quat(osg::DegreesToRadians(20.0), osg::Vec3d(0, 1, 0));
    m->recalculateRoll();
    const osg::Matrixd r(m->_centerRotation);
    const osg::Vec3d side = m->getSideVector(r);
    EXPECT_NEAR(side.z(), 0.0, 1e-9);
}

TEST(ManipulatorState, GeocentricIsTrueExactlyWithAnEllipsoidModel)
{
    osg::ref_ptr<M> m = new M;
    osg::ref_ptr<osg::Group> none = new osg::Group;
    none->addChild(plane(0.0).get());
    m->setNode(none.get());
    EXPECT_FALSE(m->_csn.valid());
    EXPECT_FALSE(m->_isGeocentric);

    m->setNode(nullptr);
    osg::ref_ptr<osg::CoordinateSystemNode> flat = navtest::makeFlatScene();
    m->setNode(flat.get());
    EXPECT_TRUE(m->_csn.valid());
    EXPECT_FALSE(m->_isGeocentric);

    m->setNode(nullptr);
    EXPECT_FALSE(m->_isGeocentric);
    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<osg::CoordinateSystemNode> round = new osg::CoordinateSystemNode;
    round->setEllipsoidModel(new osg::EllipsoidModel);
    root->addChild(round.get());
    m->setNode(root.get());
    EXPECT_EQ(m->_csn.get(), round.get());
    EXPECT_TRUE(m->_isGeocentric);
}
