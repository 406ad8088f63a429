// The object store and the manager used by two threads at once, as the
// database pager and the host use them: one thread reads quadtree nodes
// through the registry (building models, consulting the manager's lists)
// while the other adds and deletes objects and changes the lists.
#include "ObjectStoreFixture.h"

#include <osgDB/Registry>

#include <atomic>
#include <thread>

using OBJManage::CModel;

class ObjectsThreads : public cxtest::ObjectStoreFixture
{
};

TEST_F(ObjectsThreads, PagerThreadReadsNodesWhileTheHostAddsAndDeletes)
{
    modelFile("w_crude.osgb");
    modelFile("w_fine.osgb");
    writeStore([&](DBManage::StoreWriter& w) {
        ASSERT_TRUE(w.addEnterprise(*enterprise(1, 0, 10)));
        ASSERT_TRUE(w.addQuadTreeNode(*node(10, "116.4,39.9,0", 1.0, "11", "")));
        ASSERT_TRUE(w.addQuadTreeNode(*node(11, "116.4,39.9,0", 0.5, "", "")));
        for (int id = 1; id <= 40; ++id)
            ASSERT_TRUE(w.addObject(*object(id, 1, 116.4 + id * 0.001, 39.9, 0.001, propertyText("w_crude.osgb"))));
    });
    OBJManage::CObjManager* m = OBJManage::GetObjManager();
    m->Init(storePath);
    ASSERT_EQ(viewer->building->getNumChildren(), 1u);

    std::atomic<bool> stop{false};
    std::atomic<int> reads{0}, models{0};
    std::thread pager([&] {
        while (!stop.load())
        {
            for (const char* name : {"10.qtn", "11.qtn"})
            {
                osg::ref_ptr<osg::Node> node = osgDB::Registry::instance()->readNode(name, nullptr, false).getNode();
                if (node.valid() && node->asGroup())
                    for (unsigned int i = 0; i < node->asGroup()->getNumChildren(); ++i)
                        models += dynamic_cast<CModel*>(node->asGroup()->getChild(i)) ? 1 : 0;
                ++reads;
            }
        }
    });

    // The host: objects onto the root and into the tree, deleted again,
    // and the lists changed, many times.
    for (int round = 0; round < 200; ++round)
    {
        const int id = 1 + round % 40;
        osg::ref_ptr<DBManage::ShowObjProperty> record = DBManage::getDBManger()->ShowObjQueryInfo(id);
        if (!record.valid())
            record = object(id, 1, 116.4 + id * 0.001, 39.9, 0.001, propertyText("w_crude.osgb"));
        if (round % 3 == 0)
            m->AddObjToSceneTree(record.get());
        else
            m->AddObjToSceneTreeRoot(record.get());
        m->AddHighLightObj(id);
        m->AddHideObjId(id + 1);
        if (round % 5 == 4)
        {
            m->DelObjFromSceneTree(id, 11);
            m->DelObjFromSceneTree(id - 1, 10);
            m->DelHighLightObj(id);
            m->removeHideObjId({id + 1});
        }
    }
    // Let the reader see the final state too.
    const int readsBefore = reads.load();
    while (reads.load() < readsBefore + 4)
        std::this_thread::yield();
    stop = true;
    pager.join();

    EXPECT_GT(reads.load(), 4);
    EXPECT_GT(models.load(), 0);
    // The stored lists stay well formed: no empty piece survives a deletion
    // on node 11, and every listed object the reader can build.
    osg::ref_ptr<osg::Node> last = osgDB::Registry::instance()->readNode("11.qtn", nullptr, false).getNode();
    ASSERT_TRUE(last.valid());
    osg::ref_ptr<DBManage::QuadTreeProperty> node = DBManage::getDBManger()->QuadTreeQueryInfo(11);
    ASSERT_TRUE(node.valid());
    EXPECT_EQ(node->objectIDs.find(",,"), std::string::npos);
}
