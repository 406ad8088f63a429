// The quadtree builder of the store writer: every object on exactly one node
// whose cell holds it, leaves within the capacity, large objects kept high,
// children in the documented order, lodRange per level, and the same node as a
// new object would find by descending the tree the way the viewer does.
#include "StoreTestSupport.h"
#include "TempDir.h"

#include <gtest/gtest.h>
#include <osg/Vec3d>

#include <cmath>
#include <cstdlib>
#include <map>
#include <random>
#include <regex>
#include <set>

using namespace storetest;

namespace
{

struct Placed
{
    double x, y, z, radius;
};

/** The centre of a node as the viewer reads centreText: x before the first
  * comma, y after it, z after the last one, each with atof. */
osg::Vec3d centreOf(const DBManage::QuadTreeProperty& node)
{
    const std::string& text = node.centerText;
    const std::size_t first = text.find(',');
    const std::size_t last = text.rfind(',');
    return {std::atof(text.c_str()), std::atof(text.c_str() + (first == std::string::npos ? 0 : first + 1)),
            std::atof(text.c_str() + (last == std::string::npos ? 0 : last + 1))};
}

bool inCell(double x, double y, const osg::Vec3d& centre, double width, double height)
{
    return x >= centre.x() - width / 2 && x <= centre.x() + width / 2 && y >= centre.y() - height / 2
           && y <= centre.y() + height / 2;
}

std::vector<int> ids(const std::string& text)
{
    std::vector<int> result;
    std::size_t start = 0;
    while (start < text.size())
    {
        std::size_t end = text.find(',', start);
        if (end == std::string::npos)
            end = text.size();
        if (end > start)
            result.push_back(static_cast<int>(std::strtoll(text.substr(start, end - start).c_str(), nullptr, 10)));
        start = end + 1;
    }
    return result;
}

struct TreeNode
{
    osg::ref_ptr<DBManage::QuadTreeProperty> record;
    int depth = 0;
    int parent = -1; ///< index in the walk, -1 for the root
};

/** The tree from `root`, breadth first, as the viewer pages it. */
std::vector<TreeNode> walk(DBManage::SQLiteDBManager& manager, int root)
{
    std::vector<TreeNode> nodes;
    osg::ref_ptr<DBManage::QuadTreeProperty> first = manager.QuadTreeQueryInfo(root);
    if (!first)
        return nodes;
    nodes.push_back({first, 0, -1});
    for (std::size_t i = 0; i < nodes.size() && nodes.size() < 100000; ++i)
        for (int child : ids(nodes[i].record->childIDs))
        {
            osg::ref_ptr<DBManage::QuadTreeProperty> record = manager.QuadTreeQueryInfo(child);
            EXPECT_TRUE(record.valid()) << "child " << child << " of " << nodes[i].record->qtnID;
            if (record)
                nodes.push_back({record, nodes[i].depth + 1, static_cast<int>(i)});
        }
    return nodes;
}

/** A store with one enterprise (id 8) holding `objects`, its tree built. */
class TreeStore
{
public:
    TreeStore(const std::map<int, Placed>& objects, const DBManage::QuadTreeOptions& options, int enterID = 8)
        : objects(objects)
    {
        path = (dir.path() / "tree.db").string();
        EXPECT_TRUE(writer.create(path)) << writer.error();
        EXPECT_TRUE(writer.addEnterprise(*enterprise(enterID, 0, "厂区")));
        for (const auto& [id, p] : objects)
        {
            osg::ref_ptr<DBManage::ShowObjProperty> o = object(id, enterID, p.x, p.y, p.radius);
            o->posZ = p.z;
            EXPECT_TRUE(writer.addObject(*o)) << writer.error();
        }
        built = writer.buildQuadTree(enterID, options, &summary);
        EXPECT_TRUE(built) << writer.error();
    }

    /** Commits and opens the store; the root of enterprise `enterID`. */
    int open(int enterID = 8)
    {
        EXPECT_TRUE(writer.commit()) << writer.error();
        manager = new DBManage::SQLiteDBManager;
        EXPECT_TRUE(manager->ReadSQLiteDBFile(path)) << manager->getOpenError();
        osg::ref_ptr<DBManage::EnterProperty> e = manager->EnterQueryInfo(enterID);
        EXPECT_TRUE(e.valid());
        return e ? e->rootQtnID : 0;
    }

    cxtest::TempDir dir;
    std::string path;
    std::map<int, Placed> objects;
    DBManage::StoreWriter writer;
    DBManage::QuadTreeSummary summary;
    bool built = false;
    osg::ref_ptr<DBManage::SQLiteDBManager> manager;
};

/** Checks every documented property of the tree of `store`; returns the node
  * (its index in the walk) of each object. */
std::map<int, int> checkTree(TreeStore& store, const DBManage::QuadTreeOptions& options)
{
    const int root = store.open();
    EXPECT_EQ(root, store.summary.rootQtnID);
    const std::vector<TreeNode> nodes = walk(*store.manager, root);
    EXPECT_EQ(static_cast<int>(nodes.size()), store.summary.nodes);

    const std::regex idList("^([0-9]+(,[0-9]+)*)?$");
    std::map<int, int> nodeOf;
    std::set<int> nodeIds;
    int levels = 0, placed = 0;
    for (std::size_t i = 0; i < nodes.size(); ++i)
    {
        const DBManage::QuadTreeProperty& n = *nodes[i].record;
        const osg::Vec3d c = centreOf(n);
        SCOPED_TRACE("node " + std::to_string(n.qtnID) + " " + n.centerText + " w " + std::to_string(n.width));
        EXPECT_TRUE(nodeIds.insert(n.qtnID).second) << "reached twice";
        EXPECT_EQ(n.enterID, 8);
        EXPECT_EQ(n.width, n.height);
        EXPECT_TRUE(std::regex_match(n.childIDs, idList)) << n.childIDs;
        EXPECT_TRUE(std::regex_match(n.objectIDs, idList)) << n.objectIDs;
        const std::size_t lodIndex = std::min<std::size_t>(nodes[i].depth, options.lodRangeByDepth.size() - 1);
        EXPECT_EQ(n.lodRange, options.lodRangeByDepth[lodIndex]);
        levels = std::max(levels, nodes[i].depth + 1);

        // Children: quadrants of this cell, in the order NW, NE, SW, SE.
        int lastQuadrant = -1;
        for (std::size_t k = i + 1; k < nodes.size(); ++k)
        {
            if (nodes[k].parent != static_cast<int>(i))
                continue;
            const DBManage::QuadTreeProperty& child = *nodes[k].record;
            const osg::Vec3d cc = centreOf(child);
            EXPECT_EQ(child.width, n.width / 2);
            EXPECT_EQ(std::abs(cc.x() - c.x()), n.width / 4);
            EXPECT_EQ(std::abs(cc.y() - c.y()), n.width / 4);
            const int quadrant = (cc.y() > c.y() ? 0 : 2) + (cc.x() < c.x() ? 0 : 1);
            EXPECT_GT(quadrant, lastQuadrant) << "children out of order";
            lastQuadrant = quadrant;
        }

        const std::vector<int> own = ids(n.objectIDs);
        EXPECT_TRUE(std::is_sorted(own.begin(), own.end()));
        std::set<std::pair<double, double>> smallPoints; // of the objects a child could take
        double heightSum = 0.0;
        for (int id : own)
        {
            const auto found = store.objects.find(id);
            EXPECT_NE(found, store.objects.end()) << "unknown object " << id;
            if (found == store.objects.end())
                continue;
            const Placed& p = found->second;
            EXPECT_TRUE(nodeOf.emplace(id, static_cast<int>(i)).second) << "object " << id << " on two nodes";
            EXPECT_TRUE(inCell(p.x, p.y, c, n.width, n.height)) << "object " << id << " outside its cell";
            if (!n.childIDs.empty())
            {
                EXPECT_GT(4.0 * p.radius, n.width * 111000.0) << "small object " << id << " kept on a split cell";
            }
            if (nodes[i].parent >= 0)
            {
                EXPECT_LE(4.0 * p.radius, nodes[nodes[i].parent].record->width * 111000.0)
                    << "object " << id << " should have stayed on the parent";
            }
            if (4.0 * p.radius <= n.width * 111000.0)
                smallPoints.emplace(p.x, p.y);
            heightSum += p.z;
            ++placed;
        }
        if (n.childIDs.empty())
        {
            // More than the capacity only when splitting could not help: the
            // objects small enough for a child share one point, or the depth
            // is exhausted.
            const bool mayOverflow = smallPoints.size() <= 1 || nodes[i].depth == options.maxDepth;
            if (!mayOverflow)
            {
                EXPECT_LE(own.size(), options.leafCapacity);
            }
            if (!own.empty())
            {
                EXPECT_NEAR(c.z(), heightSum / own.size(), 1e-9);
            }
        }
    }
    EXPECT_EQ(levels, store.summary.levels);
    EXPECT_EQ(placed, store.summary.objects);
    EXPECT_EQ(nodeOf.size(), store.objects.size()) << "objects missing from the tree";
    return nodeOf;
}

DBManage::QuadTreeOptions options(unsigned capacity, std::vector<double> lodRanges = {60000.0, 25000.0, 9000.0, 4000.0})
{
    DBManage::QuadTreeOptions o;
    o.leafCapacity = capacity;
    o.lodRangeByDepth = std::move(lodRanges);
    return o;
}

} // namespace

TEST(QuadTreeBuild, EveryObjectOnExactlyOneNodeThatHoldsIt)
{
    std::mt19937 random(20240611);
    std::uniform_real_distribution<double> lon(116.0, 117.3), lat(39.0, 40.1), height(0.0, 80.0);
    std::uniform_real_distribution<double> radius(0.0, 60.0);
    std::map<int, Placed> objects;
    for (int id = 1; id <= 3000; ++id)
        objects[id * 3] = {lon(random), lat(random), height(random), radius(random)};
    // A few objects of every size, and a cluster denser than a leaf.
    for (int id = 1; id <= 12; ++id)
        objects[20000 + id] = {lon(random), lat(random), 5.0, 500.0 * id * id};
    for (int id = 0; id < 40; ++id)
        objects[30000 + id] = {116.5 + id * 1e-6, 39.5, 1.0, 1.0};

    const DBManage::QuadTreeOptions o = options(16);
    TreeStore store(objects, o);
    ASSERT_TRUE(store.built);
    checkTree(store, o);
    EXPECT_GE(store.summary.levels, 4);
}

TEST(QuadTreeBuild, ALargeObjectStaysHigh)
{
    std::map<int, Placed> objects;
    for (int i = 0; i < 400; ++i)
        objects[i + 1] = {100.0 + (i % 20) * 0.05, 30.0 + (i / 20) * 0.05, 0.0, 2.0};
    // Its footprint (0.72 degrees around it) makes the root 4 degrees wide,
    // 444 km; 4 r = 320 km fits the root but not its 222 km children.
    objects[1000] = {100.5, 30.5, 0.0, 80000.0};
    // 160 km: fits a child of the root, not a grandchild of 111 km.
    objects[1001] = {100.3, 30.3, 0.0, 40000.0};
    const DBManage::QuadTreeOptions o = options(10);
    TreeStore store(objects, o);
    ASSERT_TRUE(store.built);
    const std::map<int, int> nodeOf = checkTree(store, o);
    const std::vector<TreeNode> nodes = walk(*store.manager, store.summary.rootQtnID);
    EXPECT_EQ(nodes[0].record->width, 4.0);
    EXPECT_EQ(nodes[nodeOf.at(1000)].depth, 1) << "the largest object stays on a child of the root";
    const int middle = nodeOf.at(1001);
    EXPECT_EQ(nodes[middle].depth, 2);
    EXPECT_NE(nodes[middle].record->childIDs, "");
    EXPECT_GE(nodes[nodeOf.at(1)].depth, 3) << "small objects go down";
}

TEST(QuadTreeBuild, TheRootCellCoversTheObjectsFootprints)
{
    // One park of 1,280 m: its cell, and so the bound of its paged node,
    // spans the park, not the point it stands on.
    std::map<int, Placed> objects{{320, {116.397, 39.928, 34.0, 1280.0}}};
    const DBManage::QuadTreeOptions o = options(64);
    TreeStore store(objects, o);
    ASSERT_TRUE(store.built);
    checkTree(store, o);
    const std::vector<TreeNode> nodes = walk(*store.manager, store.summary.rootQtnID);
    ASSERT_EQ(nodes.size(), 1u);
    const DBManage::QuadTreeProperty& root = *nodes[0].record;
    const osg::Vec3d c = centreOf(root);
    const double reach = 1280.0 / 111000.0;
    EXPECT_GE(root.width * 111000.0, 2.0 * 1280.0);
    EXPECT_TRUE(inCell(116.397 - reach, 39.928 - reach, c, root.width, root.height));
    EXPECT_TRUE(inCell(116.397 + reach, 39.928 + reach, c, root.width, root.height));
    // The smallest power of two at least twice the footprint's 0.023 degrees.
    EXPECT_EQ(root.width, 1.0 / 16.0);
}

TEST(QuadTreeBuild, ObjectsSharingAPointStayTogetherOnOneLeaf)
{
    std::map<int, Placed> objects;
    for (int i = 0; i < 50; ++i)
        objects[i + 1] = {121.25, 31.125, static_cast<double>(i), 1.0};
    for (int i = 0; i < 30; ++i)
        objects[100 + i] = {121.003 + i * 0.01, 31.0 + i * 0.005, 0.0, 1.0};
    const DBManage::QuadTreeOptions o = options(4);
    TreeStore store(objects, o);
    ASSERT_TRUE(store.built);
    const std::map<int, int> nodeOf = checkTree(store, o);
    for (int i = 2; i <= 50; ++i)
        EXPECT_EQ(nodeOf.at(i), nodeOf.at(1));
    EXPECT_EQ(store.summary.largestLeaf, 50);
}

TEST(QuadTreeBuild, DepthIsBoundedByMaxDepth)
{
    std::map<int, Placed> objects;
    for (int i = 0; i < 64; ++i)
        objects[i + 1] = {10.0 + i * 1e-9, 10.0 - i * 1e-9, 0.0, 0.0};
    DBManage::QuadTreeOptions o = options(2);
    o.maxDepth = 3;
    TreeStore store(objects, o);
    ASSERT_TRUE(store.built);
    checkTree(store, o);
    EXPECT_EQ(store.summary.levels, 4);
    EXPECT_GT(store.summary.largestLeaf, 2);
}

TEST(QuadTreeBuild, ANewObjectDescendsToTheNodeTheBuilderChose)
{
    // Points on a grid that puts many of them exactly on the dividing lines of
    // the cells; radius 0, so that size plays no part in the descent.
    std::map<int, Placed> objects;
    int id = 1;
    for (int i = 0; i <= 16; ++i)
        for (int j = 0; j <= 16; ++j)
            objects[id++] = {116.0 + i / 16.0, 39.0 + j / 16.0, 0.0, 0.0};
    const DBManage::QuadTreeOptions o = options(3);
    TreeStore store(objects, o);
    ASSERT_TRUE(store.built);
    const std::map<int, int> nodeOf = checkTree(store, o);
    const std::vector<TreeNode> nodes = walk(*store.manager, store.summary.rootQtnID);

    // The descent of the viewer's AddObjToSceneTree: stay when the point is
    // outside the cell (width for both extents) or there are no children,
    // otherwise go to the first child in childIDs whose cell holds the point.
    for (const auto& [objID, p] : objects)
    {
        osg::ref_ptr<DBManage::QuadTreeProperty> node = store.manager->QuadTreeQueryInfo(store.summary.rootQtnID);
        bool noChildFits = false;
        while (node)
        {
            const osg::Vec3d c = centreOf(*node);
            if (!inCell(p.x, p.y, c, node->width, node->width) || noChildFits || 4.0 * p.radius > node->width
                || node->childIDs.empty())
                break;
            osg::ref_ptr<DBManage::QuadTreeProperty> next;
            for (int child : ids(node->childIDs))
            {
                osg::ref_ptr<DBManage::QuadTreeProperty> candidate = store.manager->QuadTreeQueryInfo(child);
                if (candidate && inCell(p.x, p.y, centreOf(*candidate), candidate->width, candidate->height))
                {
                    next = candidate;
                    break;
                }
            }
            if (next)
                node = next;
            else
                noChildFits = true;
        }
        ASSERT_TRUE(node.valid());
        EXPECT_EQ(node->qtnID, nodes[nodeOf.at(objID)].record->qtnID)
            << "object " << objID << " at " << p.x << "," << p.y;
    }
}

TEST(QuadTreeBuild, DefaultLodRangeReachesTheViewDistanceBeyondTheCell)
{
    std::map<int, Placed> objects;
    for (int i = 0; i < 100; ++i)
        objects[i + 1] = {-70.0 + (i % 10) * 0.1, -33.0 + (i / 10) * 0.1, 0.0, 1.0};
    DBManage::QuadTreeOptions o;
    o.leafCapacity = 8;
    TreeStore store(objects, o);
    ASSERT_TRUE(store.built);
    store.open();
    const std::vector<TreeNode> nodes = walk(*store.manager, store.summary.rootQtnID);
    ASSERT_GT(nodes.size(), 1u);
    // Half the cell's diagonal plus the distance from which models are seen:
    // every node pages in as the eye comes within 6 km of its cell.
    for (const TreeNode& n : nodes)
        EXPECT_DOUBLE_EQ(n.record->lodRange, std::sqrt(0.5) * n.record->width * 111000.0 + 6000.0);
    // A single small object: a tiny cell, still paged in from 6 km.
    std::map<int, Placed> one;
    one[1] = {116.4, 39.9, 50.0, 1280.0};
    TreeStore single(one, DBManage::QuadTreeOptions());
    ASSERT_TRUE(single.built);
    single.open();
    const std::vector<TreeNode> lone = walk(*single.manager, single.summary.rootQtnID);
    ASSERT_EQ(lone.size(), 1u);
    EXPECT_GT(lone[0].record->lodRange, 6000.0);
    EXPECT_EQ(nodes[0].record->width, 2.0); // the smallest power of two >= twice the 0.9 degree extent
}

TEST(QuadTreeBuild, AnEnterpriseWithoutObjectsGetsOneEmptyRoot)
{
    TreeStore store({}, options(8));
    ASSERT_TRUE(store.built);
    const int root = store.open();
    osg::ref_ptr<DBManage::QuadTreeProperty> node = store.manager->QuadTreeQueryInfo(root);
    ASSERT_TRUE(node.valid());
    EXPECT_EQ(node->centerText, "0,0,0");
    EXPECT_EQ(node->width, 360.0);
    EXPECT_EQ(node->childIDs, "");
    EXPECT_EQ(node->objectIDs, "");
    EXPECT_EQ(store.summary.nodes, 1);
    EXPECT_EQ(store.summary.levels, 1);
}

TEST(QuadTreeBuild, RebuildingReplacesTheEarlierTree)
{
    std::map<int, Placed> objects;
    for (int i = 0; i < 200; ++i)
        objects[i + 1] = {10.0 + (i % 15) * 0.07, 50.0 + (i / 15) * 0.03, 0.0, 1.0};
    TreeStore store(objects, options(50));
    ASSERT_TRUE(store.built);
    const DBManage::QuadTreeSummary first = store.summary;
    const DBManage::QuadTreeOptions o = options(5);
    ASSERT_TRUE(store.writer.buildQuadTree(8, o, &store.summary)) << store.writer.error();
    EXPECT_GT(store.summary.nodes, first.nodes);
    EXPECT_GT(store.summary.rootQtnID, first.rootQtnID);
    checkTree(store, o);
    for (int id = first.rootQtnID; id < first.rootQtnID + first.nodes; ++id)
        EXPECT_EQ(store.manager->QuadTreeQueryInfo(id), nullptr) << "old node " << id;
}

TEST(QuadTreeBuild, TwoEnterprisesGetSeparateTrees)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "two.db").string();
    DBManage::StoreWriter writer;
    ASSERT_TRUE(writer.create(path));
    ASSERT_TRUE(writer.addEnterprise(*enterprise(1, 0, "一厂")));
    ASSERT_TRUE(writer.addEnterprise(*enterprise(2, 1, "二厂")));
    ASSERT_TRUE(writer.addQuadTreeNode(*node(500, 1, "0,0,0", 1.0, "", ""))); // an id the builder must avoid
    for (int i = 0; i < 100; ++i)
    {
        ASSERT_TRUE(writer.addObject(*object(i + 1, 1, 1.0 + i * 0.01, 1.0, 1.0)));
        ASSERT_TRUE(writer.addObject(*object(i + 1001, 2, 2.0, 2.0 + i * 0.01, 1.0)));
    }
    DBManage::QuadTreeSummary one, two;
    ASSERT_TRUE(writer.buildQuadTree(1, options(10), &one)) << writer.error();
    ASSERT_TRUE(writer.buildQuadTree(2, options(10), &two)) << writer.error();
    EXPECT_GT(one.rootQtnID, 500); // the hand-made node of enterprise 1 is replaced, its id not reused below
    EXPECT_GE(two.rootQtnID, one.rootQtnID + one.nodes);
    EXPECT_EQ(one.objects, 100);
    EXPECT_EQ(two.objects, 100);
    ASSERT_TRUE(writer.commit());

    osg::ref_ptr<DBManage::SQLiteDBManager> manager = new DBManage::SQLiteDBManager;
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path));
    ASSERT_TRUE(manager->ReadEnterProperty());
    ASSERT_EQ(manager->enterprises.size(), 2u);
    EXPECT_EQ(manager->enterprises[0]->rootQtnID, one.rootQtnID);
    EXPECT_EQ(manager->enterprises[1]->rootQtnID, two.rootQtnID);
    EXPECT_EQ(manager->QuadTreeQueryInfo(500), nullptr);
    for (const TreeNode& n : walk(*manager, two.rootQtnID))
        for (int id : ids(n.record->objectIDs))
            EXPECT_GT(id, 1000) << "an object of enterprise 1 in the tree of 2";
}

TEST(QuadTreeBuild, BadRequestsFailAndWriteNoTree)
{
    std::map<int, Placed> objects = {{1, {1.0, 1.0, 0.0, 1.0}}, {2, {2.0, 2.0, 0.0, 1.0}}};
    TreeStore store(objects, options(1));
    ASSERT_TRUE(store.built);
    DBManage::StoreWriter& writer = store.writer;
    DBManage::QuadTreeSummary untouched;
    untouched.nodes = -1;
    EXPECT_FALSE(writer.buildQuadTree(99, options(4), &untouched));
    EXPECT_NE(writer.error().find("no such enterprise"), std::string::npos) << writer.error();
    EXPECT_FALSE(writer.buildQuadTree(8, options(0), &untouched));
    EXPECT_NE(writer.error().find("capacity"), std::string::npos) << writer.error();
    DBManage::QuadTreeOptions deep = options(4);
    deep.maxDepth = 60;
    EXPECT_FALSE(writer.buildQuadTree(8, deep, &untouched));
    EXPECT_FALSE(writer.buildQuadTree(8, options(4, {1.0, std::nan("")}), &untouched));
    EXPECT_EQ(untouched.nodes, -1);

    // The tree built first is still the enterprise's.
    const int root = store.open();
    EXPECT_EQ(root, store.summary.rootQtnID);
    EXPECT_EQ(static_cast<int>(walk(*store.manager, root).size()), store.summary.nodes);
}
