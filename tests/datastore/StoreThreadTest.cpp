// The store used by two threads at once, as the host's thread and the database
// pager's thread use it: queries on one thread while the other updates and
// deletes, and a store reopened and closed under a reader. Built as a THREADS
// test, so that ThreadSanitizer runs it too.
#include "StoreTestSupport.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

using namespace storetest;

namespace
{

constexpr int kObjects = 600;
constexpr int kNodes = 60;

/** A store whose records can be checked on their own: object i has the name
  * "对象 i v<version>" and posZ = version; node n lists the objects n*10 ..
  * n*10 + 9 and has lodRange = its version. */
std::string writeStore(const cxtest::TempDir& dir)
{
    const std::string path = (dir.path() / "shared.db").string();
    DBManage::StoreWriter writer;
    EXPECT_TRUE(writer.create(path)) << writer.error();
    EXPECT_TRUE(writer.addEnterprise(*enterprise(1, 0, "企业", 1)));
    for (int n = 1; n <= kNodes; ++n)
    {
        std::string objects;
        for (int k = 0; k < 10; ++k)
            objects += (k ? "," : "") + std::to_string(n * 10 + k);
        osg::ref_ptr<DBManage::QuadTreeProperty> record = node(n, 1, "116,39,0", 1.0, "", objects);
        record->lodRange = 0.0;
        EXPECT_TRUE(writer.addQuadTreeNode(*record));
    }
    for (int i = 10; i < 10 + kObjects; ++i)
    {
        osg::ref_ptr<DBManage::ShowObjProperty> record = object(i, 1, 116.0 + i * 1e-4, 39.0);
        record->objName = "对象 " + std::to_string(i) + " v0";
        record->posZ = 0.0;
        EXPECT_TRUE(writer.addObject(*record));
    }
    EXPECT_TRUE(writer.commit()) << writer.error();
    return path;
}

/** True when a record read while another thread writes is whole: its fields
  * all belong to one version. */
bool consistent(const DBManage::ShowObjProperty& o)
{
    const int version = static_cast<int>(o.posZ);
    return o.objName == "对象 " + std::to_string(o.objID) + " v" + std::to_string(version)
           && o.posX == 116.0 + o.objID * 1e-4;
}

bool consistent(const DBManage::QuadTreeProperty& n)
{
    return n.width == 1.0 + n.lodRange && n.objectIDs.rfind(std::to_string(n.qtnID * 10), 0) == 0;
}

} // namespace

TEST(StoreThreads, QueriesWhileAnotherThreadUpdatesAndDeletes)
{
    cxtest::TempDir dir;
    const std::string path = writeStore(dir);
    osg::ref_ptr<DBManage::SQLiteDBManager> manager = new DBManage::SQLiteDBManager;
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path));
    ASSERT_TRUE(manager->ReadEnterProperty());

    constexpr int kIterations = 4000;
    std::atomic<bool> writing{true};
    std::atomic<int> badObjects{0}, badNodes{0}, objectsSeen{0}, nodesSeen{0};

    // The pager's side: reads nodes and the objects they list.
    std::thread reader([&] {
        std::mt19937 random(1);
        int rounds = 0;
        while (writing.load() || rounds < 200)
        {
            ++rounds;
            const int n = 1 + static_cast<int>(random() % kNodes);
            osg::ref_ptr<DBManage::QuadTreeProperty> node = manager->QuadTreeQueryInfo(n);
            if (!node || !consistent(*node))
            {
                ++badNodes;
                continue;
            }
            ++nodesSeen;
            for (int k = 0; k < 3; ++k)
            {
                osg::ref_ptr<DBManage::ShowObjProperty> o =
                    manager->ShowObjQueryInfo(n * 10 + static_cast<int>(random() % 10));
                if (!o)
                    continue; // deleted by the other thread
                ++objectsSeen;
                if (!consistent(*o))
                    ++badObjects;
            }
            osg::ref_ptr<DBManage::EnterProperty> e = manager->EnterQueryInfo(1);
            if (!e || e->rootQtnID != 1)
                ++badNodes;
        }
    });

    // The host's side: updates objects and nodes, deletes some objects.
    std::mt19937 random(2);
    int updates = 0, deletes = 0;
    for (int i = 1; i <= kIterations; ++i)
    {
        const int id = 10 + static_cast<int>(random() % kObjects);
        osg::ref_ptr<DBManage::ShowObjProperty> o = manager->ShowObjQueryInfo(id);
        if (o)
        {
            if (i % 17 == 0)
            {
                deletes += manager->ShowObjDelInfo(id);
            }
            else
            {
                o->posZ = i;
                o->objName = "对象 " + std::to_string(id) + " v" + std::to_string(i);
                updates += manager->ShowObjUpdateInfo(o.get());
            }
        }
        const int n = 1 + static_cast<int>(random() % kNodes);
        osg::ref_ptr<DBManage::QuadTreeProperty> node = manager->QuadTreeQueryInfo(n);
        ASSERT_TRUE(node.valid());
        node->lodRange = i;
        node->width = 1.0 + i;
        node->objectIDs += "," + std::to_string(id);
        EXPECT_TRUE(manager->QuadTreeUpdateInfo(node.get()));
    }
    writing = false;
    reader.join();

    EXPECT_EQ(badObjects.load(), 0);
    EXPECT_EQ(badNodes.load(), 0);
    EXPECT_GT(objectsSeen.load(), 100);
    EXPECT_GT(nodesSeen.load(), 100);
    EXPECT_GT(updates, kIterations / 2);
    EXPECT_GT(deletes, 10);

    // Everything the writing thread did is in the file.
    manager->close();
    osg::ref_ptr<DBManage::SQLiteDBManager> fresh = new DBManage::SQLiteDBManager;
    ASSERT_TRUE(fresh->ReadSQLiteDBFile(path));
    int rows = 0;
    for (int id = 10; id < 10 + kObjects; ++id)
    {
        osg::ref_ptr<DBManage::ShowObjProperty> o = fresh->ShowObjQueryInfo(id);
        if (o)
        {
            ++rows;
            EXPECT_TRUE(consistent(*o)) << o->objName;
        }
    }
    EXPECT_EQ(rows, kObjects - deletes);
}

TEST(StoreThreads, ReopeningAndClosingUnderAReader)
{
    cxtest::TempDir dir;
    const std::string path = writeStore(dir);
    const std::string missing = (dir.path() / "missing.db").string();
    osg::ref_ptr<DBManage::SQLiteDBManager> manager = new DBManage::SQLiteDBManager;
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path));

    std::atomic<bool> running{true};
    std::atomic<int> found{0}, absent{0}, bad{0};
    std::thread reader([&] {
        int id = 10;
        while (running.load())
        {
            osg::ref_ptr<DBManage::ShowObjProperty> o = manager->ShowObjQueryInfo(id);
            osg::ref_ptr<DBManage::QuadTreeProperty> n = manager->QuadTreeQueryInfo(1 + id % kNodes);
            (o ? found : absent)++;
            if ((o && !consistent(*o)) || (n && !consistent(*n)))
                ++bad;
            (void)manager->getPath();
            id = id + 1 < 10 + kObjects ? id + 1 : 10;
        }
    });
    for (int round = 0; round < 60; ++round)
    {
        EXPECT_TRUE(manager->ReadSQLiteDBFile(path));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (round % 3 == 0)
        {
            EXPECT_FALSE(manager->ReadSQLiteDBFile(missing));
        }
        if (round % 5 == 0)
            manager->close();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    running = false;
    reader.join();
    EXPECT_EQ(bad.load(), 0);
    EXPECT_GT(found.load(), 0);
    EXPECT_FALSE(std::filesystem::exists(missing));
}
