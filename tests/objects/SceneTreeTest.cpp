// Enterprises and their quadtrees: the manager's Init, the paged nodes of
// quadtree nodes, adding and deleting objects, finding live models, and the
// reader of ".qtn" names.
#include "ObjectStoreFixture.h"

#include <objects/Enterprise>
#include <objects/getobjNodeVistor>

#include <osg/PagedLOD>
#include <osgDB/ReadFile>
#include <osgDB/Registry>

using OBJManage::CModel;
using OBJManage::Enterprise;

namespace
{

std::string objectIDsOf(int qtnID)
{
    osg::ref_ptr<DBManage::QuadTreeProperty> node = DBManage::getDBManger()->QuadTreeQueryInfo(qtnID);
    return node.valid() ? node->objectIDs : std::string("<no node>");
}

osg::ref_ptr<osg::Node> readQtn(const std::string& name)
{
    return osgDB::Registry::instance()->readNode(name, nullptr, false).getNode();
}

} // namespace

class SceneTree : public cxtest::ObjectStoreFixture
{
protected:
    // Enterprise 1 (buildings): a root cell of 1 degree at (116.5, 39.5)
    // with four children of 0.5 degrees, listed north-west, north-east,
    // south-west, south-east; the south-west child (13) has no row.
    // Enterprise 2 (terrain) and 3 (pipes) with one-node trees; enterprise 4
    // names a root that is not there.
    void writeTree()
    {
        writeStore([&](DBManage::StoreWriter& w) {
            ASSERT_TRUE(w.addEnterprise(*enterprise(1, 0, 10)));
            ASSERT_TRUE(w.addEnterprise(*enterprise(2, 1, 20)));
            ASSERT_TRUE(w.addEnterprise(*enterprise(3, 7, 30)));
            ASSERT_TRUE(w.addEnterprise(*enterprise(4, 0, 999)));
            ASSERT_TRUE(w.addQuadTreeNode(*node(10, "116.5,39.5,0", 1.0, "11,12,13,14", "")));
            ASSERT_TRUE(w.addQuadTreeNode(*node(11, "116.25,39.75,0", 0.5, "", "")));
            ASSERT_TRUE(w.addQuadTreeNode(*node(12, "116.75,39.75,0", 0.5, "", "")));
            ASSERT_TRUE(w.addQuadTreeNode(*node(14, "116.75,39.25,0", 0.5, "", "")));
            ASSERT_TRUE(w.addQuadTreeNode(*node(20, "116.4,39.9,0", 0.2, "", "")));
            ASSERT_TRUE(w.addQuadTreeNode(*node(30, "116.4,39.9,0", 0.2, "", "")));
            for (int id : {100, 101, 102, 103, 104, 105, 106, 107})
                ASSERT_TRUE(w.addObject(*object(id, 1, 116.3, 39.8, 0.01, propertyText("x_crude.osgb"))));
        });
    }
};

TEST_F(SceneTree, AStoreWithoutEnterprisesPlacesNothing)
{
    writeStore([&](DBManage::StoreWriter&) {});
    OBJManage::CObjManager* m = OBJManage::GetObjManager();
    m->Init(storePath);
    EXPECT_EQ(viewer->building->getNumChildren(), 0u);
    EXPECT_EQ(viewer->terrain->getNumChildren(), 0u);
    EXPECT_EQ(viewer->pipeGroup->getNumChildren(), 0u);
    EXPECT_TRUE(m->enterpriseMap.empty());
}

TEST_F(SceneTree, AMissingStorePlacesNothing)
{
    OBJManage::CObjManager* m = OBJManage::GetObjManager();
    m->Init((dir.path() / "nowhere.db").string());
    EXPECT_EQ(viewer->building->getNumChildren(), 0u);
    EXPECT_TRUE(m->enterpriseMap.empty());
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "nowhere.db"));
}

TEST_F(SceneTree, EnterprisesGoUnderTheGroupOfTheirType)
{
    writeTree();
    OBJManage::CObjManager* m = OBJManage::GetObjManager();
    m->Init(storePath);
    EXPECT_EQ(m->buildingGroup.get(), viewer->building.get());
    EXPECT_EQ(m->terrainGroup.get(), viewer->terrain.get());
    EXPECT_EQ(m->pipeGroup.get(), viewer->pipeGroup.get());
    ASSERT_EQ(m->enterpriseMap.size(), 4u);
    ASSERT_EQ(viewer->building->getNumChildren(), 1u) << "enterprise 4 has no root node";
    EXPECT_EQ(viewer->building->getChild(0), m->enterpriseMap[1]->enterNode.get());
    ASSERT_EQ(viewer->terrain->getNumChildren(), 1u);
    EXPECT_EQ(viewer->terrain->getChild(0), m->enterpriseMap[2]->enterNode.get());
    ASSERT_EQ(viewer->pipeGroup->getNumChildren(), 1u);
    EXPECT_EQ(viewer->pipeGroup->getChild(0), m->enterpriseMap[3]->enterNode.get());
    // The enterprise without its root stays known, outside the scene.
    EXPECT_EQ(m->getEnterIDMap().at(4), 0);
    EXPECT_TRUE(m->enterpriseMap[4]->enterNode.valid());
    EXPECT_EQ(m->enterpriseMap[4]->enterNode->getNumParents(), 0u);
    EXPECT_TRUE(m->isEnterTerrain(2));
    EXPECT_TRUE(viewer->isTerrainGroup(2));
    // The terrain group is not in the drawn scene until the host puts it there.
    EXPECT_EQ(viewer->terrain->getNumParents(), 0u);
}

TEST_F(SceneTree, TheRootIsOnePagedNodeNamingItsPseudoFile)
{
    writeStore([&](DBManage::StoreWriter& w) {
        ASSERT_TRUE(w.addEnterprise(*enterprise(9, 0, 7)));
        ASSERT_TRUE(w.addQuadTreeNode(*node(7, "116.3,39.9,45", 0.5, "", "", 3500.0)));
        ASSERT_TRUE(w.addQuadTreeNode(*node(-3, "116.3,39.9", 0.5, "", "", 100.0)));
    });
    osg::ref_ptr<Enterprise> e = new Enterprise;
    EXPECT_FALSE(e->Init(nullptr));
    EXPECT_FALSE(e->enterNode.valid());
    osg::ref_ptr<DBManage::EnterProperty> record = DBManage::getDBManger()->EnterQueryInfo(9);
    ASSERT_TRUE(record.valid());
    ASSERT_TRUE(e->Init(record.get()));
    EXPECT_EQ(e->enterID, 9);
    EXPECT_EQ(e->enterType, 0);
    ASSERT_EQ(e->enterNode->getNumChildren(), 1u);
    auto* plod = dynamic_cast<osg::PagedLOD*>(e->enterNode->getChild(0));
    ASSERT_NE(plod, nullptr);
    EXPECT_EQ(plod->getFileName(0), "7.qtn");
    EXPECT_FLOAT_EQ(plod->getMinRange(0), 0.0f);
    EXPECT_FLOAT_EQ(plod->getMaxRange(0), 3500.0f);
    EXPECT_EQ(plod->getCenterMode(), osg::LOD::USER_DEFINED_CENTER);
    osg::Vec3d centre;
    viewer->mapNode->getEllipsoidModel()->convertLatLongHeightToXYZ(
        osg::DegreesToRadians(39.9), osg::DegreesToRadians(116.3), 45.0, centre.x(), centre.y(), centre.z());
    // The paged node keeps its centre in single precision: half a metre at
    // the Earth's radius.
    EXPECT_LT((osg::Vec3d(plod->getCenter()) - centre).length(), 1.0);
    EXPECT_FLOAT_EQ(plod->getInitialBound().radius(), 55500.0f);
    EXPECT_EQ(plod->getNumChildren(), 0u) << "nothing loaded at start";

    // A negative id keeps its sign in the name.
    EXPECT_TRUE(e->addQtnNode(-3));
    EXPECT_EQ(dynamic_cast<osg::PagedLOD*>(e->enterNode->getChild(1))->getFileName(0), "-3.qtn");
    EXPECT_FALSE(e->addQtnNode(12345));
    EXPECT_EQ(Enterprise::qtnFileName(1024), "1024.qtn");
}

TEST_F(SceneTree, AddedObjectsDescendToTheFirstChildThatHoldsThem)
{
    writeTree();
    OBJManage::CObjManager* m = OBJManage::GetObjManager();
    m->Init(storePath);
    modelFile("x_crude.osgb");

    // In the north-west child.
    m->AddObjToSceneTree(object(100, 1, 116.3, 39.8, 0.01, propertyText("x_crude.osgb")).get());
    EXPECT_EQ(objectIDsOf(11), "100");
    // Outside the root's cell: on the root all the same.
    m->AddObjToSceneTree(object(101, 1, 120.0, 39.8, 0.01, propertyText("x_crude.osgb")).get());
    EXPECT_EQ(objectIDsOf(10), "101");
    // Four times the radius over the root's width (compared as bare numbers):
    // stays on the root although a child holds it.
    m->AddObjToSceneTree(object(102, 1, 116.3, 39.8, 0.3, propertyText("x_crude.osgb")).get());
    EXPECT_EQ(objectIDsOf(10), "101,102");
    // On the line between the north-west and north-east children: the
    // first in the list.
    m->AddObjToSceneTree(object(103, 1, 116.5, 39.8, 0.01, propertyText("x_crude.osgb")).get());
    EXPECT_EQ(objectIDsOf(11), "100,103");
    // In the south-west quarter, whose child has no row: skipped, the next
    // ones do not hold it, and it stays on the root.
    m->AddObjToSceneTree(object(104, 1, 116.25, 39.25, 0.01, propertyText("x_crude.osgb")).get());
    EXPECT_EQ(objectIDsOf(10), "101,102,104");
    // Added twice: twice in the list.
    m->AddObjToSceneTree(object(105, 1, 116.8, 39.3, 0.01, propertyText("x_crude.osgb")).get());
    m->AddObjToSceneTree(object(105, 1, 116.8, 39.3, 0.01, propertyText("x_crude.osgb")).get());
    EXPECT_EQ(objectIDsOf(14), "105,105");

    // The live models under the enterprise's node, each with its node.
    osg::MatrixTransform* enterNode = m->enterpriseMap[1]->enterNode.get();
    EXPECT_EQ(enterNode->getNumChildren(), 1u + 7u) << "the root's paged node and seven models";
    CModel* found = m->GetObj(103);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->getQtnID(), 11);
    EXPECT_EQ(found->getParent(0), enterNode);
    EXPECT_EQ(m->GetObj(104)->getQtnID(), 10);
    EXPECT_EQ(m->GetObj(106), nullptr) << "no model loaded for it";

    // An unknown enterprise: nothing.
    EXPECT_EQ(m->AddObjToSceneTree(object(107, 42, 116.3, 39.8, 0.01, "").get()), nullptr);
    EXPECT_EQ(m->GetObj(107), nullptr);

    // Deleting with the node: both entries of 105 go.
    m->DelObjFromSceneTree(105, 14);
    EXPECT_EQ(objectIDsOf(14), "");
    EXPECT_EQ(DBManage::getDBManger()->ShowObjQueryInfo(105), nullptr);
    // Deleting without the node: the row goes, the id stays in the list,
    // and the live model stays on screen.
    m->DelObjFromSceneTree(100);
    EXPECT_EQ(DBManage::getDBManger()->ShowObjQueryInfo(100), nullptr);
    EXPECT_EQ(objectIDsOf(11), "100,103");
    EXPECT_NE(m->GetObj(100), nullptr);
}

TEST_F(SceneTree, RootAppendsPutACommaFirstAndDeletionsTidyTheList)
{
    writeTree();
    OBJManage::CObjManager* m = OBJManage::GetObjManager();
    m->Init(storePath);
    EXPECT_TRUE(m->AddObjToSceneTreeRoot(object(7, 1, 0, 0, 1, "").get()));
    EXPECT_EQ(objectIDsOf(10), ",7");
    m->DelObjFromSceneTree(7, 10);
    EXPECT_EQ(objectIDsOf(10), "");

    EXPECT_TRUE(m->AddObjToSceneTreeRoot(object(7, 1, 0, 0, 1, "").get()));
    EXPECT_TRUE(m->AddObjToSceneTreeRoot(object(9, 1, 0, 0, 1, "").get()));
    EXPECT_EQ(objectIDsOf(10), ",7,9");
    m->DelObjFromSceneTree(9, 10);
    EXPECT_EQ(objectIDsOf(10), "7");

    // A single comma: empty after any deletion.
    osg::ref_ptr<DBManage::QuadTreeProperty> root = DBManage::getDBManger()->QuadTreeQueryInfo(10);
    root->objectIDs = ",";
    ASSERT_TRUE(DBManage::getDBManger()->QuadTreeUpdateInfo(root.get()));
    m->DelObjFromSceneTree(12345, 10);
    EXPECT_EQ(objectIDsOf(10), "");
    // An unknown node: the row goes all the same.
    m->DelObjFromSceneTree(101, 777);
    EXPECT_EQ(DBManage::getDBManger()->ShowObjQueryInfo(101), nullptr);

    // An unknown enterprise or a missing root: false.
    EXPECT_FALSE(m->AddObjToSceneTreeRoot(object(8, 42, 0, 0, 1, "").get()));
    EXPECT_FALSE(m->AddObjToSceneTreeRoot(object(8, 4, 0, 0, 1, "").get()));
}

TEST_F(SceneTree, TheSearchFindsModelsAtTheDepthsTheSceneHoldsThem)
{
    osg::ref_ptr<CModel> a = new CModel, b = new CModel;
    a->objID = 1;
    b->objID = 2;
    // root -> group -> enterprise node -> model a; -> paged node -> group -> model b
    osg::ref_ptr<osg::Group> group = new osg::Group, enterNode = new osg::MatrixTransform, tile = new osg::Group;
    osg::ref_ptr<osg::PagedLOD> plod = new osg::PagedLOD;
    viewer->root->addChild(group.get());
    group->addChild(enterNode.get());
    enterNode->addChild(a.get());
    enterNode->addChild(plod.get());
    plod->addChild(tile.get());
    tile->addChild(b.get());
    EXPECT_EQ(OBJManage::GetObjManager()->GetObj(1), a.get());
    EXPECT_EQ(OBJManage::GetObjManager()->GetObj(2), b.get());
    // Hidden models are found too.
    b->setNodeMask(0);
    EXPECT_EQ(OBJManage::GetObjManager()->GetObj(2), b.get());
    EXPECT_EQ(OBJManage::GetObjManager()->GetObj(3), nullptr);
}

TEST_F(SceneTree, AMatchEndsItsOwnGroupAndTheWalkGoesOn)
{
    // The walk looks at the children of the groups it applies to and
    // traverses the others, so it applies to every second level: models
    // stand at odd depths under the root, as the enterprises' do (root,
    // group, enterprise node, paged node, node content, model).
    osg::ref_ptr<CModel> first = new CModel, second = new CModel, later = new CModel, outer = new CModel,
                         inner = new CModel;
    for (CModel* m : {first.get(), second.get(), later.get(), inner.get()})
        m->objID = 5;
    outer->objID = 6;
    osg::ref_ptr<osg::Group> holder = new osg::Group, one = new osg::Group, two = new osg::Group;
    one->addChild(first.get());
    one->addChild(second.get());
    two->addChild(later.get());
    holder->addChild(one.get());
    holder->addChild(two.get());
    viewer->root->addChild(holder.get());
    // The walk goes on after the first group: the model met last answers.
    EXPECT_EQ(OBJManage::GetObjManager()->GetObj(5), later.get());
    holder->removeChild(two.get());
    // Within a group the first match ends the loop.
    EXPECT_EQ(OBJManage::GetObjManager()->GetObj(5), first.get());

    // Below a model only its files are expected; they are not searched.
    holder->removeChild(one.get());
    osg::ref_ptr<osg::Group> outerGroup = new osg::Group;
    osg::ref_ptr<osg::MatrixTransform> files = new osg::MatrixTransform;
    files->addChild(inner.get());
    outer->addChild(files.get());
    outerGroup->addChild(outer.get());
    holder->addChild(outerGroup.get());
    EXPECT_EQ(OBJManage::GetObjManager()->GetObj(6), outer.get());
    EXPECT_EQ(OBJManage::GetObjManager()->GetObj(5), nullptr);

    // A model at an even depth is never looked at.
    viewer->root->removeChild(holder.get());
    viewer->root->addChild(one.get());
    EXPECT_EQ(OBJManage::GetObjManager()->GetObj(5), nullptr);
}

TEST_F(SceneTree, TheReaderAnswersWithChildNodesAndModels)
{
    modelFile("r_crude.osgb");
    writeStore([&](DBManage::StoreWriter& w) {
        ASSERT_TRUE(w.addEnterprise(*enterprise(1, 0, 50)));
        // Children 51, 52 and a missing 53; objects 200 (hidden), 201
        // (edited, coloured), 202 (highlighted), 203 without a row, and the
        // list written with a leading comma and a repeat.
        ASSERT_TRUE(w.addQuadTreeNode(*node(50, "116.4,39.9,0", 0.4, "51,52,53", ",200,201,203,202,201", 9000.0)));
        ASSERT_TRUE(w.addQuadTreeNode(*node(51, "116.3,40.0,0", 0.2, "", "", 4000.0)));
        ASSERT_TRUE(w.addQuadTreeNode(*node(52, "116.5,40.0,0", 0.2, "", "", 4000.0)));
        ASSERT_TRUE(w.addQuadTreeNode(*node(60, "116.4,39.9,0", 0.1, "", "")));
        for (int id : {200, 201, 202})
            ASSERT_TRUE(w.addObject(*object(id, 1, 116.4, 39.9, 20.0, propertyText("r_crude.osgb"))));
    });
    OBJManage::CObjManager* m = OBJManage::GetObjManager();
    m->AddHideObjId(200);
    OBJManage::modeData edit;
    edit.objID = 201;
    edit.pos.set(116.41, 39.91, 70.0);
    edit.scale.set(1, 1, 1);
    m->AddOrChangeEditObjId(edit);
    m->AddColorObj(201);
    m->AddHighLightObj(202);

    osg::ref_ptr<osg::Node> answer = readQtn("50.qtn");
    ASSERT_TRUE(answer.valid());
    osg::Group* group = answer->asGroup();
    ASSERT_NE(group, nullptr);
    ASSERT_EQ(group->getNumChildren(), 2u + 3u) << "two children, three models";
    auto* first = dynamic_cast<osg::PagedLOD*>(group->getChild(0));
    auto* second = dynamic_cast<osg::PagedLOD*>(group->getChild(1));
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->getFileName(0), "51.qtn");
    EXPECT_EQ(second->getFileName(0), "52.qtn");
    EXPECT_FLOAT_EQ(first->getMaxRange(0), 4000.0f);
    EXPECT_FLOAT_EQ(first->getInitialBound().radius(), 0.2f * 111000.0f);

    auto model = [&](int index) { return dynamic_cast<CModel*>(group->getChild(index)); };
    ASSERT_TRUE(model(2) && model(3) && model(4));
    EXPECT_EQ(model(2)->objID, 200);
    EXPECT_EQ(model(3)->objID, 201);
    EXPECT_EQ(model(4)->objID, 202);
    for (int i = 2; i < 5; ++i)
        EXPECT_EQ(model(i)->getQtnID(), 50);
    EXPECT_EQ(model(2)->getNodeMask(), 0u) << "hidden";
    EXPECT_EQ(model(3)->GetPos(), osg::Vec3d(116.41, 39.91, 70.0)) << "edited";
    EXPECT_EQ(model(3)->getStateSet()->getAttribute(osg::StateAttribute::MATERIAL), CModel::colorMaterial());
    EXPECT_EQ(model(4)->getStateSet()->getAttribute(osg::StateAttribute::MATERIAL), CModel::highlightMaterial());

    // A node without children and objects, and a node the store lacks: an
    // empty group, so that the pager has its answer.
    osg::ref_ptr<osg::Node> empty = readQtn("60.qtn");
    ASSERT_TRUE(empty.valid());
    EXPECT_EQ(empty->asGroup()->getNumChildren(), 0u);
    osg::ref_ptr<osg::Node> missing = readQtn("61.qtn");
    ASSERT_TRUE(missing.valid());
    EXPECT_EQ(missing->asGroup()->getNumChildren(), 0u);
    // A name that is no node id is an error.
    EXPECT_FALSE(readQtn("abc.qtn").valid());
    EXPECT_FALSE(readQtn("12x.qtn").valid());
}
