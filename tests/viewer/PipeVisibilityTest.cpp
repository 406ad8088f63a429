#include <viewer/CXViewer>

#include <gtest/gtest.h>

TEST(PipeVisibility, FreshTableIsAllTrue)
{
    const PIPEVISIBLETABLE t;
    EXPECT_TRUE(t.pipeVisible);
    EXPECT_TRUE(t.lidVisible);
    EXPECT_TRUE(t.lipVisible);
    EXPECT_EQ(sizeof(PIPEVISIBLETABLE), 3u);
}

TEST(PipeVisibility, OneFlagFormsNeverInsert)
{
    osg::ref_ptr<CXViewer> v = new CXViewer(0);
    v->setPipeLidVisible("x", false);
    v->setPipeLipVisible("x", false);
    v->setPipeVisible("x", false);
    EXPECT_TRUE(v->getPipeVisilbeMap().empty());
    PIPEVISIBLETABLE out;
    out.pipeVisible = false;
    EXPECT_FALSE(v->getPipeVisible("x", out));
    // `out` stays as it was.
    EXPECT_FALSE(out.pipeVisible);
    EXPECT_TRUE(out.lidVisible);
}

TEST(PipeVisibility, ThreeFlagFormInsertsAndOneFlagFormsChangeOneField)
{
    osg::ref_ptr<CXViewer> v = new CXViewer(0);
    v->setPipeVisible("x", false, true, false);
    PIPEVISIBLETABLE t;
    ASSERT_TRUE(v->getPipeVisible("x", t));
    EXPECT_FALSE(t.pipeVisible);
    EXPECT_TRUE(t.lidVisible);
    EXPECT_FALSE(t.lipVisible);

    v->setPipeVisible("x", true);
    ASSERT_TRUE(v->getPipeVisible("x", t));
    EXPECT_TRUE(t.pipeVisible);
    EXPECT_TRUE(t.lidVisible);
    EXPECT_FALSE(t.lipVisible);

    v->setPipeLidVisible("x", false);
    v->setPipeLipVisible("x", true);
    ASSERT_TRUE(v->getPipeVisible("x", t));
    EXPECT_TRUE(t.pipeVisible);
    EXPECT_FALSE(t.lidVisible);
    EXPECT_TRUE(t.lipVisible);

    // The three-flag form overwrites an existing entry.
    v->setPipeVisible("x", false, false, false);
    ASSERT_TRUE(v->getPipeVisible("x", t));
    EXPECT_FALSE(t.pipeVisible || t.lidVisible || t.lipVisible);
}

TEST(PipeVisibility, MapIsReturnedAsCopy)
{
    osg::ref_ptr<CXViewer> v = new CXViewer(0);
    v->setPipeVisible("water", true, true, true);
    std::map<std::string, PIPEVISIBLETABLE> copy = v->getPipeVisilbeMap();
    copy["water"].pipeVisible = false;
    copy["gas"] = PIPEVISIBLETABLE();
    PIPEVISIBLETABLE t;
    ASSERT_TRUE(v->getPipeVisible("water", t));
    EXPECT_TRUE(t.pipeVisible);
    EXPECT_FALSE(v->getPipeVisible("gas", t));
    EXPECT_EQ(v->getPipeVisilbeMap().size(), 1u);
}
