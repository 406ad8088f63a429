// The horizon culling of the globe: which spheres the Earth hides from an
// eye, checked against points sampled on the spheres, and the callback in a
// cull traversal (perspective and orthographic cameras).
#include "EarthPoints.h"

#include <globe/HorizonCullCallback>

#include <gtest/gtest.h>
#include <osg/Group>
#include <osg/io_utils>
#include <osg/Viewport>
#include <osgUtil/CullVisitor>

#include <cmath>
#include <limits>
#include <random>

using globe::HorizonCullCallback;

namespace
{

// True when the segment from `a` to `b` passes through the ball of `radius`
// about the origin.
bool segmentMeetsBall(const osg::Vec3d& a, const osg::Vec3d& b, double radius)
{
    const osg::Vec3d d = b - a;
    const double t = d.length2() > 0.0 ? std::clamp(-(a * d) / d.length2(), 0.0, 1.0) : 0.0;
    return (a + d * t).length() < radius;
}

// Counts the traversals that a callback lets through.
struct CountTraversals : public osg::NodeCallback
{
    int count = 0;
    void operator()(osg::Node* node, osg::NodeVisitor* nv) override
    {
        ++count;
        traverse(node, nv);
    }
};

// Runs `callback` in a cull traversal of a node bounded by `bound`, seen by
// a camera at `eye` looking at `target` with `projection`; true when the
// node was traversed.
bool traversedInCull(HorizonCullCallback* callback, const osg::BoundingSphere& bound, const osg::Vec3d& eye,
                     const osg::Vec3d& target, const osg::Matrixd& projection)
{
    osg::ref_ptr<CountTraversals> counter = new CountTraversals;
    callback->setNestedCallback(counter.get());
    osg::ref_ptr<osg::Group> node = new osg::Group;
    node->setInitialBound(bound);

    osg::ref_ptr<osgUtil::CullVisitor> cv = new osgUtil::CullVisitor;
    cv->pushViewport(new osg::Viewport(0, 0, 400, 300));
    cv->pushProjectionMatrix(new osg::RefMatrix(projection));
    const osg::Vec3d forward = target - eye;
    osg::Vec3d up = osg::Vec3d(0, 0, 1) ^ forward;
    up = forward ^ up;
    cv->pushModelViewMatrix(new osg::RefMatrix(osg::Matrixd::lookAt(eye, target, up)), osg::Transform::ABSOLUTE_RF);
    (*callback)(node.get(), cv.get());
    callback->setNestedCallback(nullptr);
    return counter->count == 1;
}

} // namespace

TEST(HorizonCull, FarSideOfTheGlobeIsHiddenNearSideNot)
{
    osg::ref_ptr<HorizonCullCallback> cull = new HorizonCullCallback;
    const osg::Vec3d eye = cxtest::worldOf(109.0, 32.0, 20.0e6);
    // A tile-sized sphere under the eye, and one at the antipode.
    EXPECT_FALSE(cull->isHidden(eye, osg::BoundingSphere(cxtest::worldOf(109.0, 32.0, 0.0), 100000.0f)));
    EXPECT_TRUE(cull->isHidden(eye, osg::BoundingSphere(cxtest::worldOf(-71.0, -32.0, 0.0), 100000.0f)));
    // Just over the eye's horizon (about 81 degrees of arc away from 20,000
    // km), and well past it.
    EXPECT_FALSE(cull->isHidden(eye, osg::BoundingSphere(cxtest::worldOf(109.0, 32.0 - 78.0, 0.0), 50000.0f)));
    EXPECT_TRUE(cull->isHidden(eye, osg::BoundingSphere(cxtest::worldOf(109.0, 32.0 - 100.0, 0.0), 50000.0f)));
}

TEST(HorizonCull, LowEyeLosesTheGroundBeyondItsHorizon)
{
    osg::ref_ptr<HorizonCullCallback> cull = new HorizonCullCallback;
    cull->setLowestHeight(0.0);
    EXPECT_DOUBLE_EQ(cull->getOccluderRadius(), cxtest::wgs84().getRadiusPolar());
    // From 1 km over the equator, ground on the equator shows over the polar
    // sphere (which lies 21 km under the equator) up to about 9.5 degrees
    // of longitude away.
    const osg::Vec3d eye = cxtest::worldOf(0.0, 0.0, 1000.0);
    EXPECT_FALSE(cull->isHidden(eye, osg::BoundingSphere(cxtest::worldOf(1.0, 0.0, 0.0), 1000.0f)));
    EXPECT_FALSE(cull->isHidden(eye, osg::BoundingSphere(cxtest::worldOf(5.0, 0.0, 0.0), 1000.0f)));
    EXPECT_TRUE(cull->isHidden(eye, osg::BoundingSphere(cxtest::worldOf(10.0, 0.0, 0.0), 1000.0f)));
    // A mountain standing up over the horizon stays: a sphere 300 km high
    // at 10 degrees (1,100 km) is visible from the eye.
    EXPECT_FALSE(cull->isHidden(eye, osg::BoundingSphere(cxtest::worldOf(10.0, 0.0, 300000.0), 1000.0f)));
    // The default occluder lies under the deepest ocean: from that low eye
    // it hides less (up to about 11.6 degrees away the ground still counts).
    osg::ref_ptr<HorizonCullCallback> deep = new HorizonCullCallback;
    EXPECT_DOUBLE_EQ(deep->getLowestHeight(), HorizonCullCallback::DEFAULT_LOWEST_HEIGHT);
    EXPECT_FALSE(deep->isHidden(eye, osg::BoundingSphere(cxtest::worldOf(11.0, 0.0, 0.0), 1000.0f)));
    EXPECT_TRUE(deep->isHidden(eye, osg::BoundingSphere(cxtest::worldOf(20.0, 0.0, 0.0), 1000.0f)));
}

TEST(HorizonCull, NothingThatCouldShowIsEverHidden)
{
    // Random eyes and spheres: whenever a sphere is called hidden, the line
    // from the eye to every point sampled on and in it passes through the
    // occluder. And the test does hide a good share of them.
    std::mt19937 random(20261122);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    const double occluder = 6.3e6;
    auto direction = [&] {
        osg::Vec3d d;
        do
            d.set(unit(random), unit(random), unit(random));
        while (d.length2() > 1.0 || d.length2() < 1e-6);
        d.normalize();
        return d;
    };
    int hidden = 0;
    for (int i = 0; i < 4000; ++i)
    {
        const osg::Vec3d eye = direction() * (occluder * (1.0001 + 4.0 * std::abs(unit(random))));
        const osg::Vec3d centre = direction() * (occluder * (0.5 + 1.0 * std::abs(unit(random))));
        const double radius = occluder * 0.2 * std::abs(unit(random));
        if (!HorizonCullCallback::isHidden(eye, centre, radius, occluder))
            continue;
        ++hidden;
        for (int k = 0; k < 64; ++k)
        {
            const osg::Vec3d p = centre + direction() * (radius * (k % 2 ? 1.0 : std::abs(unit(random))));
            ASSERT_TRUE(segmentMeetsBall(eye, p, occluder)) << "eye " << eye << " centre " << centre << " r " << radius;
        }
    }
    EXPECT_GT(hidden, 400);
}

TEST(HorizonCull, BadInputAndDegenerateCasesHideNothing)
{
    const double occluder = 6.3e6;
    const osg::Vec3d far(0, 0, -7.0e6);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const osg::Vec3d eye(0, 0, 2.0e7);
    EXPECT_TRUE(HorizonCullCallback::isHidden(eye, far, 1000.0, occluder));
    // Non-finite or negative input.
    EXPECT_FALSE(HorizonCullCallback::isHidden(osg::Vec3d(nan, 0, 0), far, 1000.0, occluder));
    EXPECT_FALSE(HorizonCullCallback::isHidden(eye, osg::Vec3d(0, inf, 0), 1000.0, occluder));
    EXPECT_FALSE(HorizonCullCallback::isHidden(eye, far, nan, occluder));
    EXPECT_FALSE(HorizonCullCallback::isHidden(eye, far, -1.0, occluder));
    EXPECT_FALSE(HorizonCullCallback::isHidden(eye, far, 1000.0, 0.0));
    EXPECT_FALSE(HorizonCullCallback::isHidden(eye, far, 1000.0, nan));
    // A sphere as large as the Earth (the root tiles) is never hidden.
    EXPECT_FALSE(HorizonCullCallback::isHidden(eye, far, occluder, occluder));
    // An eye inside the occluder (under the ground) has no horizon.
    EXPECT_FALSE(HorizonCullCallback::isHidden(osg::Vec3d(0, 0, 6.0e6), far, 1000.0, occluder));
    // A sphere holding the eye is never hidden, however deep its centre.
    EXPECT_FALSE(HorizonCullCallback::isHidden(osg::Vec3d(0, 0, 6.4e6), osg::Vec3d(0, 0, 6.0e6), 5.0e5, occluder));
    // A sphere inside the Earth is hidden from any eye outside it.
    EXPECT_TRUE(HorizonCullCallback::isHidden(eye, osg::Vec3d(0, 0, 1.0e6), 1.0e6, occluder));
    // The setter ignores what is not a height; the occluder never goes negative.
    osg::ref_ptr<HorizonCullCallback> cull = new HorizonCullCallback;
    cull->setLowestHeight(nan);
    EXPECT_DOUBLE_EQ(cull->getLowestHeight(), HorizonCullCallback::DEFAULT_LOWEST_HEIGHT);
    cull->setLowestHeight(-1.0e8);
    EXPECT_DOUBLE_EQ(cull->getOccluderRadius(), 0.0);
    EXPECT_FALSE(cull->isHidden(eye, osg::BoundingSphere(far, 1000.0f)));
    // An invalid bounding sphere (an empty node) is left to the other culling.
    EXPECT_FALSE(osg::ref_ptr<HorizonCullCallback>(new HorizonCullCallback)->isHidden(eye, osg::BoundingSphere()));
}

TEST(HorizonCull, CullTraversalSkipsHiddenNodesUnderPerspectiveOnly)
{
    osg::ref_ptr<HorizonCullCallback> cull = new HorizonCullCallback;
    const osg::Vec3d eye = cxtest::worldOf(109.0, 32.0, 20.0e6);
    const osg::BoundingSphere behind(cxtest::worldOf(-71.0, -32.0, 0.0), 100000.0f);
    const osg::BoundingSphere below(cxtest::worldOf(109.0, 32.0, 0.0), 100000.0f);
    const osg::Matrixd perspective = osg::Matrixd::perspective(30.0, 4.0 / 3.0, 1000.0, 1.0e8);
    EXPECT_FALSE(traversedInCull(cull.get(), behind, eye, osg::Vec3d(), perspective));
    EXPECT_TRUE(traversedInCull(cull.get(), below, eye, osg::Vec3d(), perspective));
    // Parallel lines of sight have no single eye: the callback stands aside.
    const osg::Matrixd ortho = osg::Matrixd::ortho(-7.0e6, 7.0e6, -5.0e6, 5.0e6, 1000.0, 1.0e8);
    EXPECT_TRUE(traversedInCull(cull.get(), behind, eye, osg::Vec3d(), ortho));
    // Other visitors always pass.
    osg::ref_ptr<CountTraversals> counter = new CountTraversals;
    cull->setNestedCallback(counter.get());
    osg::ref_ptr<osg::Group> node = new osg::Group;
    node->setInitialBound(behind);
    osg::NodeVisitor visitor;
    (*cull)(node.get(), &visitor);
    EXPECT_EQ(counter->count, 1);
}
