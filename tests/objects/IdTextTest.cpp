// The texts of the quadtree nodes: cell centres and id lists.
#include <objects/IdText>

#include <gtest/gtest.h>

using OBJManage::childIdsOf;
using OBJManage::joinIdList;
using OBJManage::parseCenterText;
using OBJManage::splitIdList;

TEST(CenterText, ThreeNumbersBetweenCommas)
{
    const osg::Vec3d c = parseCenterText("116.3,39.9,50");
    EXPECT_DOUBLE_EQ(c.x(), 116.3);
    EXPECT_DOUBLE_EQ(c.y(), 39.9);
    EXPECT_DOUBLE_EQ(c.z(), 50.0);
}

TEST(CenterText, WithoutACommaTheSameNumberThreeTimes)
{
    const osg::Vec3d c = parseCenterText("116.3");
    EXPECT_DOUBLE_EQ(c.x(), 116.3);
    EXPECT_DOUBLE_EQ(c.y(), 116.3);
    EXPECT_DOUBLE_EQ(c.z(), 116.3);
}

TEST(CenterText, YBehindTheFirstCommaZBehindTheLast)
{
    // Two numbers: z is the second one too.
    const osg::Vec3d two = parseCenterText("1.5,2.5");
    EXPECT_DOUBLE_EQ(two.x(), 1.5);
    EXPECT_DOUBLE_EQ(two.y(), 2.5);
    EXPECT_DOUBLE_EQ(two.z(), 2.5);
    // Four numbers: the third is nobody's.
    const osg::Vec3d four = parseCenterText("1,2,3,4");
    EXPECT_DOUBLE_EQ(four.y(), 2.0);
    EXPECT_DOUBLE_EQ(four.z(), 4.0);
    // Not numbers: atof gives 0.
    const osg::Vec3d bad = parseCenterText("x,,y");
    EXPECT_EQ(bad, osg::Vec3d(0, 0, 0));
    EXPECT_EQ(parseCenterText(""), osg::Vec3d(0, 0, 0));
}

TEST(IdList, LeadingCommaAndPlainListDenoteTheSameObjects)
{
    EXPECT_EQ(splitIdList(",7,9"), splitIdList("7,9"));
    EXPECT_EQ(splitIdList("7,9"), (std::vector<std::string>{"7", "9"}));
}

TEST(IdList, EmptyPiecesSkippedRepeatsCollapsed)
{
    EXPECT_TRUE(splitIdList("").empty());
    EXPECT_TRUE(splitIdList(",").empty());
    EXPECT_TRUE(splitIdList(",,,").empty());
    EXPECT_EQ(splitIdList("5,,5,3,5,"), (std::vector<std::string>{"5", "3"}));
    EXPECT_EQ(joinIdList({"5", "3"}), "5,3");
    EXPECT_EQ(joinIdList({}), "");
}

TEST(IdList, ChildIdsReadEveryPieceCutToThirtyTwoBits)
{
    EXPECT_EQ(childIdsOf("4,5,6"), (std::vector<int>{4, 5, 6}));
    // Empty pieces read as 0; the descent finds no node for them.
    EXPECT_EQ(childIdsOf("4,,6,"), (std::vector<int>{4, 0, 6, 0}));
    // 2^32 + 7 keeps its low 32 bits; a negative id stays negative.
    EXPECT_EQ(childIdsOf("4294967303,-3"), (std::vector<int>{7, -3}));
    EXPECT_EQ(childIdsOf(" 12abc"), (std::vector<int>{12}));
}
