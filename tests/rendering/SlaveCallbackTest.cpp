// The depth partition's slave callback without a GL context: the ranges it
// gives the two cameras, the widening, the dormant target branch, and the
// camera that is switched off when its range cannot be had.
#include "NotifyCapture.h"

#include <rendering/MyNewUpdateSlaveCallback>

#include <gtest/gtest.h>
#include <osg/Geode>
#include <osg/ShapeDrawable>
#include <osgViewer/View>

namespace
{

// Fixed ranges: near camera 1 to 5, far camera 5 to 1000 (the settings'
// defaults), unless a test changes them.
osg::ref_ptr<osgViewer::DepthPartitionSettings> fixedRange(double zNear = 1.0, double zMid = 5.0,
                                                           double zFar = 1000.0)
{
    osg::ref_ptr<osgViewer::DepthPartitionSettings> dps =
        new osgViewer::DepthPartitionSettings(osgViewer::DepthPartitionSettings::FIXED_RANGE);
    dps->_zNear = zNear;
    dps->_zMid = zMid;
    dps->_zFar = zFar;
    return dps;
}

// Settings whose far partition has no range while `failFar` is set.
struct FarFailsSettings : osgViewer::DepthPartitionSettings
{
    FarFailsSettings() : osgViewer::DepthPartitionSettings(FIXED_RANGE) {}
    bool getDepthRange(osg::View& view, unsigned int partition, double& zNear, double& zFar) override
    {
        if (partition == 1 && failFar)
            return false;
        return osgViewer::DepthPartitionSettings::getDepthRange(view, partition, zNear, zFar);
    }
    bool failFar = true;
};

// A camera at the origin looking down -Z.
osg::ref_ptr<osg::Camera> cameraLookingDownZ()
{
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setViewMatrixAsLookAt(osg::Vec3d(0, 0, 0), osg::Vec3d(0, 0, -1), osg::Vec3d(0, 1, 0));
    return camera;
}

// A view with a scene and a perspective master camera, and its two partition
// cameras as slaves with callbacks on `dps`.
struct PartitionedView
{
    explicit PartitionedView(osgViewer::DepthPartitionSettings* dps)
    {
        view = new osgViewer::View;
        osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        geode->addDrawable(new osg::ShapeDrawable(new osg::Box(osg::Vec3(0, 0, -20), 4.0f)));
        view->setSceneData(geode.get());
        view->getCamera()->setProjectionMatrixAsPerspective(30.0, 4.0 / 3.0, 1.0, 1000.0);
        view->getCamera()->setViewMatrixAsLookAt(osg::Vec3d(0, 0, 0), osg::Vec3d(0, 0, -1), osg::Vec3d(0, 1, 0));
        for (unsigned int partition : {1u, 0u})
        {
            osg::ref_ptr<osg::Camera> camera = new osg::Camera;
            view->addSlave(camera.get());
            callbacks[partition] = new MyNewUpdateSlaveCallback(dps, partition);
            view->getSlave(view->getNumSlaves() - 1)._updateSlaveCallback = callbacks[partition].get();
        }
    }
    osg::Camera* far() { return view->getSlave(0)._camera.get(); }
    osg::Camera* near() { return view->getSlave(1)._camera.get(); }

    osg::ref_ptr<osgViewer::View> view;
    osg::ref_ptr<MyNewUpdateSlaveCallback> callbacks[2];
};

void frustumOf(const osg::Camera& camera, double& left, double& right, double& bottom, double& top, double& zNear,
               double& zFar)
{
    ASSERT_TRUE(camera.getProjectionMatrixAsFrustum(left, right, bottom, top, zNear, zFar));
}

} // namespace

TEST(SlaveCallback, ConstructionLeavesTheTargetOff)
{
    osg::ref_ptr<osgViewer::DepthPartitionSettings> dps = fixedRange();
    osg::ref_ptr<MyNewUpdateSlaveCallback> callback = new MyNewUpdateSlaveCallback(dps.get(), 1);
    EXPECT_EQ(callback->_dps.get(), dps.get());
    EXPECT_EQ(callback->_partition, 1u);
    EXPECT_EQ(callback->target, osg::Vec3f(0, 0, 0));
    EXPECT_DOUBLE_EQ(callback->targetRadius, 0.0);
    EXPECT_FALSE(callback->targetEnabled);
}

TEST(SlaveCallback, WithoutTargetTheNearCameraReachesHalfAUnitIntoTheFarRange)
{
    osg::ref_ptr<osg::Camera> camera = cameraLookingDownZ();
    osg::ref_ptr<MyNewUpdateSlaveCallback> nearCallback = new MyNewUpdateSlaveCallback(nullptr, 0);
    osg::ref_ptr<MyNewUpdateSlaveCallback> farCallback = new MyNewUpdateSlaveCallback(nullptr, 1);

    double zNear = 1.0, zFar = 5.0;
    nearCallback->adjustRange(*camera, 0.5, zNear, zFar);
    EXPECT_DOUBLE_EQ(zNear, 1.0);
    EXPECT_DOUBLE_EQ(zFar, 5.5);

    zNear = 5.0;
    zFar = 1000.0;
    farCallback->adjustRange(*camera, 0.5, zNear, zFar);
    EXPECT_DOUBLE_EQ(zNear, 5.0);
    EXPECT_DOUBLE_EQ(zFar, 1000.0);
}

TEST(SlaveCallback, ANearPlaneBeyondTheWidenedFarPlaneIsPulledToIt)
{
    osg::ref_ptr<osg::Camera> camera = cameraLookingDownZ();
    osg::ref_ptr<MyNewUpdateSlaveCallback> nearCallback = new MyNewUpdateSlaveCallback(nullptr, 0);
    double zNear = 10.0, zFar = 2.0;
    nearCallback->adjustRange(*camera, 0.5, zNear, zFar);
    EXPECT_DOUBLE_EQ(zFar, 2.5);
    EXPECT_DOUBLE_EQ(zNear, 2.5);

    // And the far camera's far plane is not left before its near plane.
    osg::ref_ptr<MyNewUpdateSlaveCallback> farCallback = new MyNewUpdateSlaveCallback(nullptr, 1);
    zNear = 50.0;
    zFar = 20.0;
    farCallback->adjustRange(*camera, 0.5, zNear, zFar);
    EXPECT_DOUBLE_EQ(zNear, 50.0);
    EXPECT_DOUBLE_EQ(zFar, 50.0);
}

// The target branch, dormant unless a caller sets the three fields: the
// shared plane (5 between the ranges 1-5 and 5-1000) moves so that the
// sphere around the target lies in one range.
struct TargetCase
{
    osg::Vec3f target;
    double radius;
    double nearCameraNear, nearCameraFar; // from 1 to 5
    double farCameraNear, farCameraFar;   // from 5 to 1000
};

class SlaveCallbackTarget : public ::testing::TestWithParam<TargetCase>
{
};

TEST_P(SlaveCallbackTarget, MovesTheSharedPlane)
{
    const TargetCase& c = GetParam();
    osg::ref_ptr<osg::Camera> camera = cameraLookingDownZ();
    for (unsigned int partition : {0u, 1u})
    {
        osg::ref_ptr<MyNewUpdateSlaveCallback> callback = new MyNewUpdateSlaveCallback(nullptr, partition);
        callback->target = c.target;
        callback->targetRadius = c.radius;
        callback->targetEnabled = true;
        double zNear = partition == 0 ? 1.0 : 5.0;
        double zFar = partition == 0 ? 5.0 : 1000.0;
        callback->adjustRange(*camera, 0.5, zNear, zFar);
        if (partition == 0)
        {
            EXPECT_NEAR(zNear, c.nearCameraNear, 1e-6) << "near camera";
            EXPECT_NEAR(zFar, c.nearCameraFar, 1e-6) << "near camera";
        }
        else
        {
            EXPECT_NEAR(zNear, c.farCameraNear, 1e-6) << "far camera";
            EXPECT_NEAR(zFar, c.farCameraFar, 1e-6) << "far camera";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SlaveCallbackTarget,
    ::testing::Values(
        // Just beyond the plane, small: the plane comes before the sphere
        // (5.2 - 1 - 0.5), the sphere lies in the far range.
        TargetCase{osg::Vec3f(0, 0, -5.2f), 1.0, 1.0, 4.2, 3.7, 1000.0},
        // Just before the plane: the plane goes behind the sphere (4.8 + 1),
        // the sphere lies in the near range.
        TargetCase{osg::Vec3f(0, 0, -4.8f), 1.0, 1.0, 6.3, 5.8, 1000.0},
        // A sphere too large to go behind: the plane drops to 0.1 and the near
        // camera's range shrinks to nothing, pulled to its far plane.
        TargetCase{osg::Vec3f(0, 0, -4.8f), 6.0, 0.1, 0.1, 0.1, 1000.0},
        // Beyond the plane and reaching back past the eye: 0.1 as well.
        TargetCase{osg::Vec3f(0, 0, -5.5f), 5.2, 0.1, 0.1, 0.1, 1000.0},
        // Far beyond the plane: no change.
        TargetCase{osg::Vec3f(0, 0, -50.0f), 1.0, 1.0, 5.5, 5.0, 1000.0},
        // Behind the eye, reaching past the plane: the plane goes behind it.
        TargetCase{osg::Vec3f(0, 0, 2.0f), 8.0, 1.0, 6.5, 6.0, 1000.0},
        // Behind the eye, not reaching the plane: no change.
        TargetCase{osg::Vec3f(0, 0, 2.0f), 4.0, 1.0, 5.5, 5.0, 1000.0}));

TEST(SlaveCallback, UpdateGivesEachCameraItsRangeInTheMastersFrustum)
{
    osg::ref_ptr<osgViewer::DepthPartitionSettings> dps = fixedRange();
    PartitionedView pv(dps.get());
    pv.view->updateSlaves();

    double left = 0, right = 0, bottom = 0, top = 0, zNear = 0, zFar = 0;
    double mLeft = 0, mRight = 0, mBottom = 0, mTop = 0, mNear = 0, mFar = 0;
    ASSERT_TRUE(pv.view->getCamera()->getProjectionMatrixAsFrustum(mLeft, mRight, mBottom, mTop, mNear, mFar));

    frustumOf(*pv.near(), left, right, bottom, top, zNear, zFar);
    EXPECT_NEAR(zNear, 1.0, 1e-9);
    EXPECT_NEAR(zFar, 5.5, 1e-9);
    EXPECT_NEAR(left / zNear, mLeft / mNear, 1e-9);
    EXPECT_NEAR(top / zNear, mTop / mNear, 1e-9);

    frustumOf(*pv.far(), left, right, bottom, top, zNear, zFar);
    EXPECT_NEAR(zNear, 5.0, 1e-9);
    EXPECT_NEAR(zFar, 1000.0, 1e-6);
    // The field of view stays: the sides scale with the near plane.
    EXPECT_NEAR(right / zNear, mRight / mNear, 1e-9);
    EXPECT_NEAR(bottom / zNear, mBottom / mNear, 1e-9);

    // The view matrix is the master's.
    EXPECT_EQ(pv.far()->getViewMatrix(), pv.view->getCamera()->getViewMatrix());
    EXPECT_EQ(pv.near()->getNodeMask(), 0xffffffu);
    EXPECT_EQ(pv.far()->getNodeMask(), 0xffffffu);
}

TEST(SlaveCallback, AnOrthographicProjectionGetsOnlyNewPlanes)
{
    osg::ref_ptr<osgViewer::DepthPartitionSettings> dps = fixedRange();
    PartitionedView pv(dps.get());
    pv.view->getCamera()->setProjectionMatrixAsOrtho(-10, 10, -7, 7, -100, 100);
    pv.view->updateSlaves();
    double left = 0, right = 0, bottom = 0, top = 0, zNear = 0, zFar = 0;
    ASSERT_TRUE(pv.far()->getProjectionMatrixAsOrtho(left, right, bottom, top, zNear, zFar));
    EXPECT_NEAR(left, -10, 1e-9);
    EXPECT_NEAR(right, 10, 1e-9);
    EXPECT_NEAR(bottom, -7, 1e-9);
    EXPECT_NEAR(top, 7, 1e-9);
    EXPECT_NEAR(zNear, 5.0, 1e-9);
    EXPECT_NEAR(zFar, 1000.0, 1e-6);
    ASSERT_TRUE(pv.near()->getProjectionMatrixAsOrtho(left, right, bottom, top, zNear, zFar));
    EXPECT_NEAR(zNear, 1.0, 1e-9);
    EXPECT_NEAR(zFar, 5.5, 1e-9);
}

TEST(SlaveCallback, OnlyTheCameraWithoutARangeIsSwitchedOffAndComesBack)
{
    osg::ref_ptr<FarFailsSettings> dps = new FarFailsSettings;
    PartitionedView pv(dps.get());
    cxtest::NotifyCapture notices(osg::NOTICE);
    pv.view->updateSlaves();

    EXPECT_EQ(pv.far()->getNodeMask(), 0u);
    EXPECT_EQ(pv.near()->getNodeMask(), 0xffffffu);
    // The far camera has the master's projection and nothing else.
    EXPECT_EQ(pv.far()->getProjectionMatrix(), pv.view->getCamera()->getProjectionMatrix());
    std::ostringstream expected;
    expected << "Switching off Camera " << pv.far();
    EXPECT_EQ(notices.count(osg::NOTICE, expected.str()), 1) << notices.all();

    dps->failFar = false;
    pv.view->updateSlaves();
    EXPECT_EQ(pv.far()->getNodeMask(), 0xffffffu);
    EXPECT_EQ(pv.near()->getNodeMask(), 0xffffffu);
    EXPECT_EQ(notices.count(osg::NOTICE, expected.str()), 1);
}

TEST(SlaveCallback, BoundingVolumeRangesMeetAtTheGeometricMean)
{
    // The box's bound runs from 20 - 2*sqrt(3) to 20 + 2*sqrt(3) along the
    // line of sight.
    osg::ref_ptr<osgViewer::DepthPartitionSettings> dps =
        new osgViewer::DepthPartitionSettings(osgViewer::DepthPartitionSettings::BOUNDING_VOLUME);
    PartitionedView pv(dps.get());
    pv.view->updateSlaves();
    const double radius = pv.view->getSceneData()->getBound().radius();
    const double sceneNear = 20.0 - radius, sceneFar = 20.0 + radius;
    const double mid = std::sqrt(sceneNear * sceneFar);
    double left = 0, right = 0, bottom = 0, top = 0, zNear = 0, zFar = 0;
    frustumOf(*pv.near(), left, right, bottom, top, zNear, zFar);
    EXPECT_NEAR(zNear, sceneNear, 1e-4);
    EXPECT_NEAR(zFar, mid + 0.5, 1e-4);
    frustumOf(*pv.far(), left, right, bottom, top, zNear, zFar);
    EXPECT_NEAR(zNear, mid, 1e-4);
    EXPECT_NEAR(zFar, sceneFar, 1e-4);
}

TEST(SlaveCallback, WithoutSettingsTheSlaveOnlyFollowsTheMaster)
{
    PartitionedView pv(nullptr);
    pv.view->updateSlaves();
    EXPECT_EQ(pv.near()->getProjectionMatrix(), pv.view->getCamera()->getProjectionMatrix());
    EXPECT_EQ(pv.far()->getViewMatrix(), pv.view->getCamera()->getViewMatrix());
}

TEST(SlaveCallback, APartitionOutsideTheTwoHasNoRange)
{
    osg::ref_ptr<osgViewer::DepthPartitionSettings> dps = fixedRange();
    osg::ref_ptr<osgViewer::View> view = new osgViewer::View;
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    view->addSlave(camera.get());
    view->getSlave(0)._updateSlaveCallback = new MyNewUpdateSlaveCallback(dps.get(), 2);
    cxtest::NotifyCapture notices(osg::NOTICE);
    view->updateSlaves();
    EXPECT_EQ(camera->getNodeMask(), 0u);
    EXPECT_EQ(notices.count(osg::NOTICE, "Switching off Camera "), 1);
}
