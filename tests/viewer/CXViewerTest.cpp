#include <viewer/CXViewer>

#include <gtest/gtest.h>

TEST(CXViewer, ConstructorDefaultsAndGlobalPointer)
{
    osg::ref_ptr<CXViewer> v = new CXViewer(1234);
    EXPECT_EQ(g_pCXviewer, v.get());
    EXPECT_EQ(v->getWnd(), 1234u);
    EXPECT_TRUE(v->basePath.empty());
    EXPECT_TRUE(v->modelRootPath.empty());
    EXPECT_EQ(v->shanshuoState, 0);
    EXPECT_EQ(v->posFileName, "pos.txt");
    EXPECT_EQ(v->modelDbName, "model.db");
    EXPECT_TRUE(v->depthPartitionEnable);
    EXPECT_TRUE(v->readOptions.valid());
    EXPECT_TRUE(v->earthLabelGroup.valid());
    EXPECT_EQ(v->earthLabelGroup->getNumChildren(), 0u);
    EXPECT_EQ(v->labelHandler, nullptr);
    EXPECT_FALSE(v->readFileCallback.valid());
    EXPECT_FALSE(v->mainView.valid());
    EXPECT_EQ(v->getViewer(), nullptr);
    EXPECT_EQ(v->getRoot(), nullptr);
    EXPECT_EQ(v->getObjManager(), nullptr);
    EXPECT_TRUE(v->pipeVisibleMap.empty());
    EXPECT_EQ(v->commandQueue.size(), 0u);
    EXPECT_FLOAT_EQ(v->lessTenFine, 300.0f);
    EXPECT_FLOAT_EQ(v->lessTenCrude2, 3000.0f);
    EXPECT_FLOAT_EQ(v->lessSixtyMiddle, 1500.0f);
    EXPECT_FLOAT_EQ(v->otherFine, 500.0f);
    EXPECT_FLOAT_EQ(v->otherCrude2, 4000.0f);
}

TEST(CXViewer, DestroyingClearsGlobalPointer)
{
    {
        osg::ref_ptr<CXViewer> v = new CXViewer(0);
        EXPECT_EQ(g_pCXviewer, v.get());
    }
    EXPECT_EQ(g_pCXviewer, nullptr);
}

TEST(CXViewer, SecondConstructionTakesOverGlobalPointer)
{
    osg::ref_ptr<CXViewer> first = new CXViewer(1);
    osg::ref_ptr<CXViewer> second = new CXViewer(2);
    EXPECT_EQ(g_pCXviewer, second.get());
    second = nullptr;
    // The destructor clears the pointer even though an older viewer lives.
    EXPECT_EQ(g_pCXviewer, nullptr);
}

TEST(CXViewer, UnInitBeforeInitDoesNothing)
{
    osg::ref_ptr<CXViewer> v = new CXViewer(0);
    v->UnInitOSG();
    v->UnInitOSG();
    EXPECT_EQ(v->getCompositeViewer(), nullptr);
    EXPECT_EQ(g_pCXviewer, v.get());
}

TEST(CXViewer, CopyIsMemberwiseAndSharesGroups)
{
    osg::ref_ptr<CXViewer> v = new CXViewer(7);
    v->basePath = "/opt/x";
    v->root = new osg::Group;
    v->otherCrude = 2500.0f;
    v->setPipeVisible("gas", true, false, true);
    osg::ref_ptr<CXViewer> copy = new CXViewer(*v);
    EXPECT_EQ(copy->basePath, "/opt/x");
    EXPECT_EQ(copy->getRoot(), v->getRoot());
    EXPECT_EQ(copy->getWnd(), 7u);
    EXPECT_FLOAT_EQ(copy->otherCrude, 2500.0f);
    EXPECT_EQ(copy->pipeVisibleMap.size(), 1u);
    EXPECT_EQ(copy->referenceCount(), 1);
    // Copying does not take the global pointer.
    EXPECT_EQ(g_pCXviewer, v.get());
}

TEST(CXViewer, SmallServices)
{
    osg::ref_ptr<CXViewer> v = new CXViewer(0);
    v->startshanshuo(3);
    EXPECT_EQ(v->shanshuoState, 3);
    v->startshanshuo(-1);
    EXPECT_EQ(v->shanshuoState, -1);

    v->objManager = OBJManage::GetObjManager();
    EXPECT_EQ(v->getObjManager(), OBJManage::GetObjManager());
    v->objManager->enterIDMap[5] = 1;
    v->objManager->enterIDMap[6] = 0;
    EXPECT_TRUE(v->isTerrainGroup(5));
    EXPECT_FALSE(v->isTerrainGroup(6));
    EXPECT_FALSE(v->isTerrainGroup(99));
    EXPECT_EQ(v->objManager->getEnterIDMap().count(99), 0u);
    v->objManager->enterIDMap.clear();

    v->DestoryObjManager();
    EXPECT_EQ(v->getObjManager(), nullptr);
    // Without the manager no enterprise is known.
    EXPECT_FALSE(v->isTerrainGroup(5));
}
