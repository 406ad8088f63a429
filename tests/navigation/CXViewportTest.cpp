// The viewpoint value type and the two small templates of the manipulator's
// state.
#include <navigation/CXViewport>

#include <osg/CullSettings>
#include <osg/Referenced>

#include <gtest/gtest.h>

TEST(CXViewport, DefaultHasRangeOneAndIsNotValid)
{
    const CXViewport vp;
    EXPECT_EQ(vp.getRange(), 1.0);
    EXPECT_NE(vp.getRange(), 0.0);
    EXPECT_FALSE(vp.isValid());
    EXPECT_EQ(vp.getFocalPoint(), osg::Vec3d(0.0, 0.0, 0.0));
    EXPECT_EQ(vp.getHeading(), 0.0);
    EXPECT_EQ(vp.getPitch(), 0.0);
    EXPECT_TRUE(vp.getName().empty());
}

TEST(CXViewport, SettersLeaveAnInvalidViewportInvalid)
{
    CXViewport vp;
    vp.setFocalPoint(osg::Vec3d(1.0, 2.0, 3.0));
    vp.setHeading(45.0);
    vp.setPitch(-30.0);
    vp.setRange(500.0);
    vp.setName("filled by setters");
    EXPECT_FALSE(vp.isValid());
    EXPECT_EQ(vp.getFocalPoint(), osg::Vec3d(1.0, 2.0, 3.0));
    EXPECT_EQ(vp.getHeading(), 45.0);
    EXPECT_EQ(vp.getPitch(), -30.0);
    EXPECT_EQ(vp.getRange(), 500.0);
    EXPECT_EQ(vp.getName(), "filled by setters");
}

TEST(CXViewport, FourValueConstructorIsValidWithEmptyNameAndCopiesKeepNameAndValidity)
{
    CXViewport vp(osg::Vec3d(10.0, 20.0, 30.0), 90.0, -45.0, 1000.0);
    EXPECT_TRUE(vp.isValid());
    EXPECT_TRUE(vp.getName().empty());
    vp.setName("tower");

    const CXViewport copy(vp);
    EXPECT_TRUE(copy.isValid());
    EXPECT_EQ(copy.getName(), "tower");
    EXPECT_EQ(copy.getFocalPoint(), osg::Vec3d(10.0, 20.0, 30.0));
    EXPECT_EQ(copy.getHeading(), 90.0);
    EXPECT_EQ(copy.getPitch(), -45.0);
    EXPECT_EQ(copy.getRange(), 1000.0);

    CXViewport assigned;
    assigned = vp;
    EXPECT_TRUE(assigned.isValid());
    EXPECT_EQ(assigned.getName(), "tower");

    // Assigning an invalid one makes a valid one invalid.
    assigned = CXViewport();
    EXPECT_FALSE(assigned.isValid());
    EXPECT_TRUE(assigned.getName().empty());
}

TEST(CXViewport, ComponentAccessorsReadAndWriteTheFocalPoint)
{
    CXViewport vp(osg::Vec3d(1.0, 2.0, 3.0), 0.0, 0.0, 1.0);
    EXPECT_EQ(vp.x(), 1.0);
    EXPECT_EQ(vp.y(), 2.0);
    EXPECT_EQ(vp.z(), 3.0);
    vp.x() = 7.0;
    vp.y() += 1.0;
    vp.z() = -3.0;
    EXPECT_EQ(vp.getFocalPoint(), osg::Vec3d(7.0, 3.0, -3.0));
    const CXViewport& c = vp;
    EXPECT_EQ(c.x(), 7.0);
}

TEST(CXOptional, UnsetOnAViewportLeavesTheDefaultViewport)
{
    CXOptional<CXViewport> home;
    EXPECT_FALSE(home.isSet());
    CXViewport& stored = home.assign(CXViewport(osg::Vec3d(5.0, 5.0, 5.0), 10.0, -60.0, 250.0));
    EXPECT_TRUE(home.isSet());
    EXPECT_EQ(&stored, &home.get());
    EXPECT_TRUE(home.get().isValid());
    EXPECT_EQ(home.get().getRange(), 250.0);

    home.unset();
    EXPECT_FALSE(home.isSet());
    EXPECT_EQ(home.get().getRange(), 1.0);
    EXPECT_FALSE(home.get().isValid());
    EXPECT_EQ(home.get().getFocalPoint(), osg::Vec3d(0.0, 0.0, 0.0));
}

TEST(CXOptional, GetAnswersTheValueEvenWhenUnsetAndTheEnumStartsZeroed)
{
    CXOptional<osg::CullSettings::ComputeNearFarMode> mode;
    EXPECT_EQ(static_cast<int>(mode.get()), 0);
    EXPECT_EQ(static_cast<int>(mode._defaultValue), 0);
    mode.assign(osg::CullSettings::COMPUTE_NEAR_FAR_USING_PRIMITIVES);
    EXPECT_TRUE(mode.isSet());
    mode._set = false;
    EXPECT_EQ(mode.get(), osg::CullSettings::COMPUTE_NEAR_FAR_USING_PRIMITIVES);
    mode.unset();
    EXPECT_EQ(static_cast<int>(mode.get()), 0);
}

TEST(CXRevisioned, DirtySyncAndCopiesStayInSync)
{
    osg::ref_ptr<CXRevisioned<osg::Referenced>> r = new CXRevisioned<osg::Referenced>;
    EXPECT_EQ(r->_revision, 0);
    EXPECT_FALSE(r->_alwaysDirty);

    int reader = -1;
    EXPECT_TRUE(r->outOfSyncWith(reader));
    r->sync(reader);
    EXPECT_EQ(reader, 0);
    EXPECT_TRUE(r->inSyncWith(reader));
    EXPECT_FALSE(r->outOfSyncWith(reader));

    r->dirty();
    r->dirty();
    EXPECT_EQ(r->_revision, 2);
    EXPECT_TRUE(r->outOfSyncWith(reader));
    r->sync(reader);
    EXPECT_FALSE(r->outOfSyncWith(reader));

    // A copy is in sync with whoever was in sync with its source.
    osg::ref_ptr<CXRevisioned<osg::Referenced>> copy = new CXRevisioned<osg::Referenced>(*r);
    EXPECT_EQ(copy->_revision, 2);
    EXPECT_TRUE(copy->inSyncWith(reader));
    EXPECT_EQ(copy->referenceCount(), 1);
}

TEST(CXRevisioned, AlwaysDirtyIsOutOfSyncWithEveryIntegerIncludingTheCurrentRevision)
{
    osg::ref_ptr<CXRevisioned<osg::Referenced>> r = new CXRevisioned<osg::Referenced>;
    r->dirty();
    r->_alwaysDirty = true;
    int current = -1;
    r->sync(current);
    EXPECT_EQ(current, 1);
    for (int i : {current, 0, -1, 2, 1000, -2147483647})
    {
        EXPECT_FALSE(r->inSyncWith(i)) << i;
        EXPECT_TRUE(r->outOfSyncWith(i)) << i;
    }
}
