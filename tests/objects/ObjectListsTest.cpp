// The object manager's id lists and enterprise map.
#include <objects/CObjManager>

#include <gtest/gtest.h>

using OBJManage::CObjManager;
using OBJManage::modeData;

namespace
{

osg::ref_ptr<CObjManager> fresh()
{
    return new CObjManager;
}

} // namespace

TEST(ObjectLists, HideOnceHighlightTwice)
{
    osg::ref_ptr<CObjManager> m = fresh();
    m->AddHideObjId(5);
    m->AddHideObjId(5);
    EXPECT_EQ(m->GetHideObjs(), (std::vector<std::int64_t>{5}));
    EXPECT_TRUE(m->isHideObject(5));
    m->AddHideObjId(std::vector<std::int64_t>{6, 5, 7});
    EXPECT_EQ(m->GetHideObjs(), (std::vector<std::int64_t>{5, 6, 7}));
    m->ClearAllHideObjs();
    EXPECT_TRUE(m->GetHideObjs().empty());

    EXPECT_TRUE(m->AddHighLightObj(9));
    EXPECT_TRUE(m->AddHighLightObj(9));
    std::vector<std::int64_t> out;
    EXPECT_TRUE(m->GetHightLightObj(out));
    EXPECT_EQ(out, (std::vector<std::int64_t>{9, 9}));
    EXPECT_TRUE(m->DelHighLightObj(9));
    EXPECT_TRUE(m->GetHightLightObj(out));
    EXPECT_EQ(out, (std::vector<std::int64_t>{9}));
    EXPECT_TRUE(m->isModelHighlight(9));
    EXPECT_FALSE(m->DelHighLightObj(10)) << "an absent id";
    EXPECT_TRUE(m->ClearHighLightObjList());
    EXPECT_FALSE(m->DelHighLightObj(9)) << "an empty list";
}

TEST(ObjectLists, ColourListKeepsDuplicatesToo)
{
    osg::ref_ptr<CObjManager> m = fresh();
    EXPECT_FALSE(m->DelColorObj(3));
    m->AddColorObj(3);
    m->AddColorObj(3);
    std::vector<std::int64_t> out;
    m->GetColorObj(out);
    EXPECT_EQ(out.size(), 2u);
    EXPECT_TRUE(m->DelColorObj(3));
    EXPECT_TRUE(m->isModelColor(3));
    EXPECT_TRUE(m->ClearColorObjList());
    EXPECT_FALSE(m->isModelColor(3));
}

TEST(ObjectLists, ThirtyTwoBitQueriesCompareTheSignExtendedValue)
{
    osg::ref_ptr<CObjManager> m = fresh();
    m->AddHighLightObj(-5);
    m->AddColorObj(4294967295LL); // 2^32 - 1: as a 32-bit int that is -1
    EXPECT_TRUE(m->isModelHighlight(-5));
    EXPECT_FALSE(m->isModelColor(-1)) << "-1 sign-extends to -1, not to 2^32 - 1";
    m->AddColorObj(-1);
    EXPECT_TRUE(m->isModelColor(-1));
}

TEST(ObjectLists, RemovingHiddenIdsSkipsTheElementThatMovesUp)
{
    osg::ref_ptr<CObjManager> m = fresh();
    m->AddHideObjId(std::vector<std::int64_t>{1, 2, 3});
    m->removeHideObjId({1, 2});
    EXPECT_EQ(m->GetHideObjs(), (std::vector<std::int64_t>{2, 3}));
    // Removing the last element ends the walk.
    m->removeHideObjId({3});
    EXPECT_EQ(m->GetHideObjs(), (std::vector<std::int64_t>{2}));
    m->removeHideObjId({2});
    EXPECT_TRUE(m->GetHideObjs().empty());
    m->removeHideObjId({2}); // nothing there
    // 1, 9, 2, 3 (9 once): the 1 goes and the walk steps past 9, the 2 goes
    // and the walk steps past 3, which stays.
    m->AddHideObjId(std::vector<std::int64_t>{1, 9, 2, 9, 3});
    m->removeHideObjId({1, 2, 3});
    EXPECT_EQ(m->GetHideObjs(), (std::vector<std::int64_t>{9, 3}));
}

TEST(ObjectLists, EditEntryIsReplacedInPlace)
{
    osg::ref_ptr<CObjManager> m = fresh();
    modeData a;
    a.objID = 7;
    a.pos.set(116.0, 39.0, 10.0);
    a.angle.set(10, 0, 0);
    a.scale.set(1, 1, 1);
    m->AddOrChangeEditObjId(a);
    modeData other;
    other.objID = 8;
    m->AddOrChangeEditObjId(other);
    modeData b = a;
    b.pos.set(117.0, 40.0, 20.0);
    b.angle.set(45, 1, 2);
    b.scale.set(2, 2, 2);
    m->AddOrChangeEditObjId(b);
    ASSERT_EQ(m->editList.size(), 2u);
    modeData out;
    out.objID = -1;
    ASSERT_TRUE(m->GetEditModelData(7, out));
    EXPECT_EQ(out.pos, b.pos);
    EXPECT_EQ(out.angle, b.angle);
    EXPECT_EQ(out.scale, b.scale);
    EXPECT_TRUE(m->ObjIsEdit(8));

    modeData untouched;
    untouched.objID = 123;
    EXPECT_FALSE(m->GetEditModelData(99, untouched));
    EXPECT_EQ(untouched.objID, 123);
    m->RemoveEditObjId(7);
    EXPECT_FALSE(m->ObjIsEdit(7));
    EXPECT_EQ(m->editList.size(), 1u);
    m->RemoveEditObjId(7); // absent: nothing
}

TEST(ObjectLists, UnknownEnterpriseIsNoTerrainAndStaysUnknown)
{
    osg::ref_ptr<CObjManager> m = fresh();
    m->enterIDMap[1] = 1;
    m->enterIDMap[2] = 0;
    EXPECT_TRUE(m->isEnterTerrain(1));
    EXPECT_FALSE(m->isEnterTerrain(2));
    EXPECT_FALSE(m->isEnterTerrain(3));
    EXPECT_EQ(m->getEnterIDMap().size(), 2u);
    EXPECT_EQ(m->getEnterIDMap().count(3), 0u);
}

TEST(ObjectLists, ReleaseTwiceIsHarmless)
{
    osg::ref_ptr<CObjManager> m = fresh();
    osg::ref_ptr<osg::Group> building = new osg::Group, terrain = new osg::Group, pipes = new osg::Group;
    building->addChild(new osg::Group);
    pipes->addChild(new osg::Group);
    m->buildingGroup = building;
    m->terrainGroup = terrain;
    m->pipeGroup = pipes;
    m->AddHideObjId(4);
    m->Release();
    EXPECT_EQ(building->getNumChildren(), 0u);
    EXPECT_EQ(pipes->getNumChildren(), 0u);
    EXPECT_FALSE(m->buildingGroup.valid());
    EXPECT_FALSE(m->terrainGroup.valid());
    EXPECT_FALSE(m->pipeGroup.valid());
    m->Release();
    EXPECT_TRUE(m->isHideObject(4)) << "the lists stay";
}

TEST(ObjectLists, CopiesCarryEveryList)
{
    osg::ref_ptr<CObjManager> m = fresh();
    m->AddHideObjId(1);
    m->AddHighLightObj(2);
    m->AddColorObj(3);
    m->qtnEnterVec = {4, 5};
    m->enterIDMap[6] = 1;
    osg::ref_ptr<CObjManager> copy = new CObjManager(*m);
    EXPECT_TRUE(copy->isHideObject(1));
    EXPECT_TRUE(copy->isModelHighlight(2));
    EXPECT_TRUE(copy->isModelColor(3));
    std::vector<std::int64_t> vec;
    copy->GetQtnEnterVec(vec);
    EXPECT_EQ(vec, (std::vector<std::int64_t>{4, 5}));
    EXPECT_TRUE(copy->isEnterTerrain(6));
    // The empty hooks accept anything.
    copy->setPipeVisibile("water", 1, 0);
    copy->setVisibleByID(1, 0);
}

TEST(ObjectLists, TheSingletonIsOne)
{
    EXPECT_EQ(OBJManage::GetObjManager(), OBJManage::GetObjManager());
    EXPECT_NE(OBJManage::GetObjManager(), nullptr);
}
