// The terrain paged by a real osgDB::DatabasePager, without a window: a
// stand-in cull traversal asks for tiles around an eye, the pager's thread
// builds them, the test's thread merges and expires them, and meanwhile it
// changes the map's layers. Run under ThreadSanitizer too.
#include "MBTilesTestFiles.h"
#include "TempDir.h"

#include <globe/ElevationLayer>
#include <globe/ImageLayer>
#include <globe/MapNode>
#include <globe/TerrainEngine>

#include <gtest/gtest.h>
#include <osg/FrameStamp>
#include <osg/PagedLOD>
#include <osgDB/DatabasePager>
#include <osgDB/FileNameUtils>
#include <osgDB/Registry>
#include <osgUtil/UpdateVisitor>

#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <thread>

using globe::ElevationLayer;
using globe::ImageLayer;
using globe::MapNode;
using globe::MBTilesOptions;
using globe::TileKey;

namespace
{

std::string makeImagery(const cxtest::TempDir& dir, const char* name, unsigned char r, unsigned char g,
                        unsigned char b)
{
    const std::string path = (dir.path() / name).string();
    cxtest::MBTilesFile file(path);
    for (int x = 0; x < 2; ++x)
        for (int y = 0; y < 2; ++y)
            file.tile(1, x, y, cxtest::encode(*cxtest::solidImage(64, r, g, b), "png"));
    // One tile of level 13 (at the antimeridian, far from the places the
    // tests look at) makes the layer's data fine enough for the terrain to
    // refine down to level 14; elsewhere level 1 is magnified.
    file.tile(13, 0, 0, cxtest::encode(*cxtest::solidImage(64, r, g, b), "png"));
    return path;
}

std::string makeHeights(const cxtest::TempDir& dir)
{
    const std::string path = (dir.path() / "heights.db").string();
    cxtest::MBTilesFile file(path);
    for (int x = 0; x < 2; ++x)
        for (int y = 0; y < 2; ++y)
            file.tile(1, x, y, cxtest::terrainRGBTile(64, [](int c, int r) { return 10.0 * (c + r); }));
    return path;
}

// The parts of a cull traversal that paged LODs use: the eye for their
// distances, the frame stamp and the pager to ask for their children.
class StandInCull : public osg::NodeVisitor
{
public:
    StandInCull() : osg::NodeVisitor(CULL_VISITOR, TRAVERSE_ACTIVE_CHILDREN) {}

    osg::Vec3 getEyePoint() const override { return eye; }
    float getDistanceToViewPoint(const osg::Vec3& pos, bool) const override { return (pos - eye).length(); }
    float getDistanceFromEyePoint(const osg::Vec3& pos, bool) const override { return (pos - eye).length(); }
    float getDistanceToEyePoint(const osg::Vec3& pos, bool) const override { return (pos - eye).length(); }

    osg::Vec3 eye;
};

// Records on which threads the terrain's pseudo files are read.
class ReadRecorder : public osgDB::ReadFileCallback
{
public:
    osgDB::ReaderWriter::ReadResult readNode(const std::string& fileName, const osgDB::Options* options) override
    {
        if (osgDB::getLowerCaseFileExtension(fileName) == "globe_terrain")
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _threads.insert(std::this_thread::get_id());
            ++_reads;
        }
        return osgDB::ReadFileCallback::readNode(fileName, options);
    }

    std::set<std::thread::id> threads() const
    {
        std::lock_guard<std::mutex> lock(_mutex);
        return _threads;
    }
    int reads() const
    {
        std::lock_guard<std::mutex> lock(_mutex);
        return _reads;
    }

private:
    mutable std::mutex _mutex;
    std::set<std::thread::id> _threads;
    int _reads = 0;
};

// The deepest tile model in the scene below `node` whose paged LOD holds
// (lon, lat): the level the view has reached there.
int deepestLevelAt(osg::Node* node, double lon, double lat)
{
    int deepest = -1;
    auto* plod = dynamic_cast<osg::PagedLOD*>(node);
    if (plod && !plod->getName().empty())
    {
        TileKey key;
        if (TileKey::fromString(plod->getName(), key) && key.contains(lon, lat))
            deepest = static_cast<int>(key.getLevelOfDetail());
    }
    if (osg::Group* group = node->asGroup())
        for (unsigned int i = 0; i < group->getNumChildren(); ++i)
            deepest = std::max(deepest, deepestLevelAt(group->getChild(i), lon, lat));
    return deepest;
}

class PagedTerrain : public ::testing::Test
{
protected:
    void SetUp() override
    {
        recorder = new ReadRecorder;
        osgDB::Registry::instance()->setReadFileCallback(recorder.get());
        pager = new osgDB::DatabasePager;
        pager->setUpThreads(1, 0);
        pager->setTargetMaximumNumberOfPageLOD(40);
        pager->setDoPreCompile(false);
        stamp = new osg::FrameStamp;
        cull.setDatabaseRequestHandler(pager.get());
        cull.setFrameStamp(stamp.get());
        update = new osgUtil::UpdateVisitor;
        update->setFrameStamp(stamp.get());
    }

    void TearDown() override
    {
        // As a viewer shuts down: the pager's thread stops before the scene
        // goes (its requests point into the scene).
        pager->cancel();
        pager = nullptr;
        scene = nullptr;
        osgDB::Registry::instance()->setReadFileCallback(nullptr);
    }

    /** One frame: update (the terrain follows the map), cull, merge. */
    void frame(osg::Node* top)
    {
        stamp->setFrameNumber(stamp->getFrameNumber() + 1);
        stamp->setReferenceTime(stamp->getReferenceTime() + 0.05);
        stamp->setSimulationTime(stamp->getReferenceTime());
        pager->signalBeginFrame(stamp.get());
        top->accept(*update);
        pager->updateSceneGraph(*stamp);
        top->accept(cull);
        pager->signalEndFrame();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }

    /** Frames until the eye's point has tiles of `level` or `frames` passed. */
    int frameUntilLevel(osg::Node* top, MapNode* map, double lon, double lat, int level, int frames)
    {
        int reached = -1;
        for (int i = 0; i < frames && reached < level; ++i)
        {
            frame(top);
            reached = deepestLevelAt(map->getTerrainEngine()->getRoot(), lon, lat);
        }
        return reached;
    }

    osg::Vec3 eyeOver(const MapNode& map, double lon, double lat, double height) const
    {
        osg::Vec3d p;
        map.getEllipsoidModel()->convertLatLongHeightToXYZ(osg::DegreesToRadians(lat), osg::DegreesToRadians(lon),
                                                           height, p.x(), p.y(), p.z());
        return osg::Vec3(p);
    }

    osg::ref_ptr<ReadRecorder> recorder;
    osg::ref_ptr<osgDB::DatabasePager> pager;
    osg::ref_ptr<osg::FrameStamp> stamp;
    osg::ref_ptr<osgUtil::UpdateVisitor> update;
    StandInCull cull;
    osg::ref_ptr<osg::Group> scene = new osg::Group;
};

} // namespace

TEST_F(PagedTerrain, PagerThreadBuildsTilesDownToTheEyeAndExpiresThemBehindIt)
{
    cxtest::TempDir dir;
    osg::ref_ptr<MapNode> map = new MapNode;
    scene->addChild(map.get());
    map->getMap()->addLayer(new ImageLayer("blue", cxtest::mbtilesOptions(makeImagery(dir, "blue.db", 0, 0, 255))));
    map->getMap()->addLayer(new ElevationLayer("heights", cxtest::mbtilesOptions(makeHeights(dir))));
    map->getTerrainEngine()->setImageSize(32); // small textures: this is about paging
    map->getTerrainEngine()->setMaxLevel(14);

    // From space, then 3 km over Beijing: the tiles deepen down to the eye.
    cull.eye = eyeOver(*map, 116.39, 39.91, 2.0e7);
    const int fromSpace = frameUntilLevel(scene.get(), map.get(), 116.39, 39.91, 1, 400);
    EXPECT_GE(fromSpace, 1);
    cull.eye = eyeOver(*map, 116.39, 39.91, 3000.0);
    const int close = frameUntilLevel(scene.get(), map.get(), 116.39, 39.91, 12, 3000);
    EXPECT_GE(close, 12) << "the pager did not bring the deep tiles";
    EXPECT_LE(close, 14);

    // Built on the pager's thread only.
    const std::set<std::thread::id> threads = recorder->threads();
    EXPECT_GT(recorder->reads(), 12);
    EXPECT_EQ(threads.count(std::this_thread::get_id()), 0u);
    EXPECT_EQ(threads.size(), 1u);

    // Away to the other side of the Earth: the tiles over Beijing expire.
    cull.eye = eyeOver(*map, -63.6, -38.4, 3000.0);
    const int there = frameUntilLevel(scene.get(), map.get(), -63.6, -38.4, 12, 3000);
    EXPECT_GE(there, 12);
    for (int i = 0; i < 200; ++i)
        frame(scene.get());
    EXPECT_LT(deepestLevelAt(map->getTerrainEngine()->getRoot(), 116.39, 39.91), 6) << "no expiry over Beijing";
}

TEST_F(PagedTerrain, LayerChangesWhileThePagerBuildsRestartTheTerrain)
{
    cxtest::TempDir dir;
    osg::ref_ptr<MapNode> map = new MapNode;
    scene->addChild(map.get());
    map->getTerrainEngine()->setImageSize(32);
    osg::ref_ptr<ImageLayer> blue =
        new ImageLayer("blue", cxtest::mbtilesOptions(makeImagery(dir, "blue.db", 0, 0, 255)));
    osg::ref_ptr<ImageLayer> red = new ImageLayer("red", cxtest::mbtilesOptions(makeImagery(dir, "red.db", 255, 0, 0)));
    osg::ref_ptr<ElevationLayer> heights = new ElevationLayer("heights", cxtest::mbtilesOptions(makeHeights(dir)));
    map->getMap()->addLayer(blue.get());

    // The host thread inserts and removes layers while the pager thread
    // builds tiles from them; each change starts the terrain again.
    cull.eye = eyeOver(*map, 10.0, 50.0, 20000.0);
    std::set<std::string> roots;
    for (int round = 0; round < 12; ++round)
    {
        for (int i = 0; i < 15; ++i)
        {
            frame(scene.get());
            if (map->getTerrainEngine()->getRoot())
                roots.insert(map->getTerrainEngine()->getRoot()->getFileName(0));
        }
        switch (round % 3)
        {
        case 0: map->getMap()->insertLayer(heights.get(), 0); break;
        case 1: map->getMap()->insertLayer(red.get(), 1); break;
        default:
            map->getMap()->removeLayer(heights.get());
            map->getMap()->removeLayer(red.get());
            break;
        }
    }
    EXPECT_EQ(roots.size(), 12u);
    // After the last change the terrain settles and deepens again.
    EXPECT_GE(frameUntilLevel(scene.get(), map.get(), 10.0, 50.0, 8, 3000), 8);
    EXPECT_GT(map->getTerrainEngine()->getNumTilesBuilt(), 20u);
}
