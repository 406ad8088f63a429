#include <grid/CXProfile>

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <unistd.h>

TEST(CXProfile, DefaultRectangle)
{
    osg::ref_ptr<CXProfile> p = new CXProfile;
    EXPECT_EQ(p->getExtent().xMin(), 0.0);
    EXPECT_EQ(p->getExtent().xMax(), 1000.0);
    EXPECT_EQ(p->getExtent().yMin(), 0.0);
    EXPECT_EQ(p->getExtent().yMax(), 1000.0);
}

TEST(CXProfile, TileDimensionsAtLevelOneAreHalfTheRoot)
{
    osg::ref_ptr<CXProfile> p = new CXProfile;
    double w = 0.0, h = 0.0;
    p->getTileDimensions(1, w, h);
    EXPECT_EQ(w, 500.0);
    EXPECT_EQ(h, 500.0);
    p->getTileDimensions(0, w, h);
    EXPECT_EQ(w, 1000.0);
    EXPECT_EQ(h, 1000.0);
}

TEST(CXProfile, TileDimensionsUseSinglePrecisionPower)
{
    // powf(2, lod) widened to double: exact for small levels, and the same
    // rounding as single precision for large ones.
    osg::ref_ptr<CXProfile> p = new CXProfile;
    p->extent = CXExtent(0.0, 3.0, 0.0, 1.0);
    for (unsigned int lod : {3u, 20u, 40u, 127u, 130u})
    {
        double w = 0.0, h = 0.0;
        p->getTileDimensions(lod, w, h);
        const double tiles = static_cast<double>(powf(2.0f, static_cast<float>(lod)));
        EXPECT_EQ(w, 3.0 / tiles) << lod;
        EXPECT_EQ(h, 1.0 / tiles) << lod;
    }
    // Beyond float range the power is infinite and the tiles have no size.
    double w = 1.0, h = 1.0;
    p->getTileDimensions(200, w, h);
    EXPECT_EQ(w, 0.0);
    EXPECT_EQ(h, 0.0);
}

TEST(CXProfile, NonSquareRootIsNotAspectCorrected)
{
    osg::ref_ptr<CXProfile> p = new CXProfile;
    p->extent = CXExtent(0.0, 800.0, 0.0, 200.0);
    double w = 0.0, h = 0.0;
    p->getTileDimensions(2, w, h);
    EXPECT_EQ(w, 200.0);
    EXPECT_EQ(h, 50.0);
}

TEST(CXProfile, CopyAndAssignmentCopyTheExtent)
{
    osg::ref_ptr<CXProfile> a = new CXProfile;
    a->extent = CXExtent(1.0, 2.0, 3.0, 4.0);
    osg::ref_ptr<CXProfile> b = new CXProfile(*a);
    EXPECT_EQ(b->getExtent().xMax(), 2.0);
    EXPECT_EQ(b->referenceCount(), 1);
    osg::ref_ptr<CXProfile> c = new CXProfile;
    *c = *a;
    EXPECT_EQ(c->getExtent().yMax(), 4.0);
    EXPECT_EQ(c->referenceCount(), 1);
}

TEST(CXProfileSplit, EmptyPieceInsideStaysEmptyTailIsDropped)
{
    osg::ref_ptr<CXProfile> p = new CXProfile;
    const std::vector<std::string> parts = p->splitStr("a,,b,", ",");
    ASSERT_EQ(parts.size(), 3u);
    EXPECT_EQ(parts[0], "a");
    EXPECT_EQ(parts[1], "");
    EXPECT_EQ(parts[2], "b");
}

TEST(CXProfileSplit, EmptyStringGivesEmptyVector)
{
    osg::ref_ptr<CXProfile> p = new CXProfile;
    EXPECT_TRUE(p->splitStr("", ",").empty());
}

TEST(CXProfileSplit, LeadingSeparatorAndMultiCharacterPattern)
{
    osg::ref_ptr<CXProfile> p = new CXProfile;
    const std::vector<std::string> parts = p->splitStr(",12::34::", "::");
    ASSERT_EQ(parts.size(), 2u);
    EXPECT_EQ(parts[0], ",12");
    EXPECT_EQ(parts[1], "34");
    const std::vector<std::string> lead = p->splitStr(",x", ",");
    ASSERT_EQ(lead.size(), 2u);
    EXPECT_EQ(lead[0], "");
    EXPECT_EQ(lead[1], "x");
    const std::vector<std::string> none = p->splitStr("1024", ",");
    ASSERT_EQ(none.size(), 1u);
    EXPECT_EQ(none[0], "1024");
}

TEST(CXProfileSplit, EmptyPatternNeverAdvances)
{
    // An empty pattern matches at once and the split would loop forever. The
    // function is run in a child process that must still be busy after a
    // while; callers must never pass an empty pattern.
    EXPECT_EXIT(
        {
            ualarm(200000, 0);
            osg::ref_ptr<CXProfile> p = new CXProfile;
            (void)p->splitStr("abc", "");
            std::_Exit(0);
        },
        ::testing::KilledBySignal(SIGALRM), "");
}
