#include <grid/CXTileKey>

#include <gtest/gtest.h>

namespace
{
void expectExtent(const CXExtent& e, double xMin, double xMax, double yMin, double yMax)
{
    EXPECT_DOUBLE_EQ(e.xMin(), xMin);
    EXPECT_DOUBLE_EQ(e.xMax(), xMax);
    EXPECT_DOUBLE_EQ(e.yMin(), yMin);
    EXPECT_DOUBLE_EQ(e.yMax(), yMax);
}
} // namespace

TEST(CXTileKey, ExtentFromProfileRowZeroIsSouth)
{
    osg::ref_ptr<CXProfile> p = new CXProfile;
    const CXTileKey k(2, 1, 0, p.get());
    EXPECT_EQ(k.lod(), 2u);
    EXPECT_EQ(k.x(), 1u);
    EXPECT_EQ(k.y(), 0u);
    expectExtent(k.getExtent(), 250.0, 500.0, 0.0, 250.0);
    EXPECT_EQ(k.profile.get(), p.get());
}

TEST(CXTileKey, NullProfileGivesInvalidExtentAndChildrenUseDefaultProfile)
{
    const CXTileKey k(0, 0, 0, nullptr);
    expectExtent(k.getExtent(), 0.0, 0.0, 0.0, 0.0);
    expectExtent(k.createChildKey(0).getExtent(), 0.0, 500.0, 0.0, 500.0);
    expectExtent(k.createChildKey(1).getExtent(), 500.0, 1000.0, 0.0, 500.0);
    expectExtent(k.createChildKey(2).getExtent(), 0.0, 500.0, 500.0, 1000.0);
    expectExtent(k.createChildKey(3).getExtent(), 500.0, 1000.0, 500.0, 1000.0);
    EXPECT_NE(k.createChildKey(0).profile.get(), nullptr);
}

TEST(CXTileKey, InvalidIsRootTileOfDefaultProfile)
{
    EXPECT_EQ(CXTileKey::INVALID.lod(), 0u);
    EXPECT_EQ(CXTileKey::INVALID.x(), 0u);
    EXPECT_EQ(CXTileKey::INVALID.y(), 0u);
    expectExtent(CXTileKey::INVALID.getExtent(), 0.0, 1000.0, 0.0, 1000.0);
}

TEST(CXTileKey, ParentOfLevelZeroIsCopyOfInvalid)
{
    osg::ref_ptr<CXProfile> p = new CXProfile;
    p->extent = CXExtent(-10.0, 10.0, -10.0, 10.0);
    const CXTileKey root(0, 0, 0, p.get());
    const CXTileKey parent = root.createParentKey();
    EXPECT_EQ(parent.lod(), 0u);
    EXPECT_EQ(parent.x(), 0u);
    EXPECT_EQ(parent.y(), 0u);
    expectExtent(parent.getExtent(), 0.0, 1000.0, 0.0, 1000.0);
}

TEST(CXTileKey, ChildQuadrantsAndOutOfRangeQuadrantIsZero)
{
    osg::ref_ptr<CXProfile> p = new CXProfile;
    const CXTileKey k(3, 5, 2, p.get());
    const struct { unsigned int q, x, y; } expected[] = {{0, 10, 4}, {1, 11, 4}, {2, 10, 5}, {3, 11, 5}, {7, 10, 4}};
    for (const auto& e : expected)
    {
        const CXTileKey c = k.createChildKey(e.q);
        EXPECT_EQ(c.lod(), 4u) << e.q;
        EXPECT_EQ(c.x(), e.x) << e.q;
        EXPECT_EQ(c.y(), e.y) << e.q;
    }
    const CXTileKey seven = k.createChildKey(7);
    const CXTileKey zero = k.createChildKey(0);
    expectExtent(seven.getExtent(), zero.getExtent().xMin(), zero.getExtent().xMax(), zero.getExtent().yMin(),
                 zero.getExtent().yMax());
}

TEST(CXTileKey, ParentUsesIntegerDivision)
{
    osg::ref_ptr<CXProfile> p = new CXProfile;
    const CXTileKey k(3, 5, 3, p.get());
    const CXTileKey parent = k.createParentKey();
    EXPECT_EQ(parent.lod(), 2u);
    EXPECT_EQ(parent.x(), 2u);
    EXPECT_EQ(parent.y(), 1u);
    expectExtent(parent.getExtent(), 500.0, 750.0, 250.0, 500.0);
}

TEST(CXTileKey, ChildAndParentLoseAnOwnProfile)
{
    osg::ref_ptr<CXProfile> p = new CXProfile;
    p->extent = CXExtent(100.0, 300.0, 100.0, 300.0);
    const CXTileKey k(1, 1, 1, p.get());
    expectExtent(k.getExtent(), 200.0, 300.0, 200.0, 300.0);
    // The child is computed in the default rectangle, not in (100, 300).
    const CXTileKey child = k.createChildKey(0);
    expectExtent(child.getExtent(), 500.0, 750.0, 500.0, 750.0);
    EXPECT_NE(child.profile.get(), p.get());
    const CXTileKey parent = k.createParentKey();
    expectExtent(parent.getExtent(), 0.0, 1000.0, 0.0, 1000.0);
}

TEST(CXTileKey, KeyBeyondGridLiesOutsideRoot)
{
    osg::ref_ptr<CXProfile> p = new CXProfile;
    const CXTileKey k(1, 3, 0, p.get());
    expectExtent(k.getExtent(), 1500.0, 2000.0, 0.0, 500.0);
}

TEST(CXTileKey, CopySharesProfile)
{
    osg::ref_ptr<CXProfile> p = new CXProfile;
    const CXTileKey a(1, 1, 0, p.get());
    CXTileKey b = CXTileKey::INVALID;
    b = a;
    EXPECT_EQ(b.profile.get(), p.get());
    EXPECT_EQ(b.x(), 1u);
    expectExtent(b.getExtent(), 500.0, 1000.0, 0.0, 500.0);
}
