#include "TempDir.h"

#include <viewer/CXViewer>

#include <gtest/gtest.h>

namespace
{

struct Tiers
{
    float v[12];
};

Tiers tiersOf(const CXViewer& viewer)
{
    return Tiers{{viewer.lessTenFine, viewer.lessTenMiddle, viewer.lessTenCrude, viewer.lessTenCrude2,
                  viewer.lessSixtyFine, viewer.lessSixtyMiddle, viewer.lessSixtyCrude, viewer.lessSixtyCrude2,
                  viewer.otherFine, viewer.otherMiddle, viewer.otherCrude, viewer.otherCrude2}};
}

const Tiers kDefaults{{300, 800, 1000, 3000, 300, 1500, 2000, 4000, 500, 1500, 2000, 4000}};

void expectTiers(const CXViewer& viewer, const Tiers& expected)
{
    const Tiers actual = tiersOf(viewer);
    for (int i = 0; i < 12; ++i)
        EXPECT_FLOAT_EQ(actual.v[i], expected.v[i]) << "field " << i;
}

} // namespace

TEST(SceneConfig, NoFileKeepsTheTwelveDefaults)
{
    cxtest::TempDir dir(true);
    osg::ref_ptr<CXViewer> v = new CXViewer(0);
    v->InitSceneConfig();
    expectTiers(*v, kDefaults);
}

TEST(SceneConfig, OnlyOtherCrudeChanges)
{
    cxtest::TempDir dir(true);
    dir.write("distance.xml", "<Distances><OtherDistance crude=\"2500\"/></Distances>");
    osg::ref_ptr<CXViewer> v = new CXViewer(0);
    v->InitSceneConfig();
    Tiers expected = kDefaults;
    expected.v[10] = 2500;
    expectTiers(*v, expected);
}

TEST(SceneConfig, AtoiStopsAtThePoint)
{
    cxtest::TempDir dir(true);
    dir.write("distance.xml", "<d><LessSixtyDdistance fine=\"12.7\"/></d>");
    osg::ref_ptr<CXViewer> v = new CXViewer(0);
    v->InitSceneConfig();
    EXPECT_FLOAT_EQ(v->lessSixtyFine, 12.0f);
}

TEST(SceneConfig, NonNumberStoresZero)
{
    cxtest::TempDir dir(true);
    dir.write("distance.xml", "<d><LessTenDistance fine=\"near\" crude2=\"-40\"/></d>");
    osg::ref_ptr<CXViewer> v = new CXViewer(0);
    v->InitSceneConfig();
    EXPECT_FLOAT_EQ(v->lessTenFine, 0.0f);
    EXPECT_FLOAT_EQ(v->lessTenCrude2, -40.0f);
    EXPECT_FLOAT_EQ(v->lessTenMiddle, 800.0f);
}

TEST(SceneConfig, AllThreeTiersAndAnyRootName)
{
    cxtest::TempDir dir(true);
    dir.write("distance.xml",
              "<?xml version=\"1.0\"?>\n<whatever>\n"
              "  <LessTenDistance fine=\"1\" middle=\"2\" crude=\"3\" crude2=\"4\"/>\n"
              "  <LessSixtyDdistance fine=\"5\" middle=\"6\" crude=\"7\" crude2=\"8\"/>\n"
              "  <OtherDistance fine=\"9\" middle=\"10\" crude=\"11\" crude2=\"12\"/>\n"
              "</whatever>\n");
    osg::ref_ptr<CXViewer> v = new CXViewer(0);
    v->InitSceneConfig();
    expectTiers(*v, Tiers{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}});
}

TEST(SceneConfig, CorrectlySpelledSixtyElementIsIgnored)
{
    cxtest::TempDir dir(true);
    dir.write("distance.xml", "<d><LessSixtyDistance fine=\"1\" middle=\"2\"/></d>");
    osg::ref_ptr<CXViewer> v = new CXViewer(0);
    v->InitSceneConfig();
    expectTiers(*v, kDefaults);
}

TEST(SceneConfig, MalformedFileKeepsDefaults)
{
    cxtest::TempDir dir(true);
    dir.write("distance.xml", "<d><OtherDistance fine=\"1\"");
    osg::ref_ptr<CXViewer> v = new CXViewer(0);
    v->InitSceneConfig();
    expectTiers(*v, kDefaults);
}

TEST(SceneConfig, ReadOnceChangingTheFileLaterHasNoEffect)
{
    cxtest::TempDir dir(true);
    dir.write("distance.xml", "<d><OtherDistance fine=\"700\"/></d>");
    osg::ref_ptr<CXViewer> v = new CXViewer(0);
    v->InitSceneConfig();
    EXPECT_FLOAT_EQ(v->otherFine, 700.0f);
    dir.write("distance.xml", "<d><OtherDistance fine=\"900\"/></d>");
    EXPECT_FLOAT_EQ(v->otherFine, 700.0f);
    // Only the next start reads it again.
    osg::ref_ptr<CXViewer> next = new CXViewer(0);
    next->InitSceneConfig();
    EXPECT_FLOAT_EQ(next->otherFine, 900.0f);
}
