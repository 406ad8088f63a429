// The read callback on two threads at once, as the database pager's thread
// and the host's thread use it: the same options, the same spatial
// references, tiles of every kind.
#include "ObliqueTestSupport.h"
#include "TempDir.h"

#include <osgDB/ReadFile>

#include <atomic>
#include <thread>

using cxtest::ObliqueFrame;

TEST(ReadosgbCallbackThreads, TwoThreadsReadTilesThroughOneCallbackWithTheSameOptions)
{
    cxtest::TempDir dir;
    ObliqueFrame frame;
    osg::ref_ptr<osg::PagedLOD> plod = new osg::PagedLOD;
    plod->addChild(cxtest::triangleGeode(1, 2, 3), 0.0f, 100.0f);
    plod->setFileName(1, "leaf.osgb");
    plod->setRange(1, 100.0f, 1e30f);
    cxtest::writeTile(*plod, (dir.path() / "root.osgb").string());
    cxtest::writeTile(*cxtest::triangleGeode(40, 50, 6), (dir.path() / "leaf.osgb").string());
    osg::ref_ptr<osg::Group> group = new osg::Group;
    group->addChild(plod);
    cxtest::writeTile(*group, (dir.path() / "group.osgb").string());

    const osg::ref_ptr<osgDB::Options> options = frame.options();
    const osg::Vec3d expectedRoot = cxtest::projGeocentric({{1, 2, 3}}, frame.offset)[0];
    const osg::Vec3d expectedLeaf = cxtest::projGeocentric({{40, 50, 6}}, frame.offset)[0];
    std::atomic<int> good{0}, bad{0};
    auto reader = [&] {
        for (int i = 0; i < 30; ++i)
        {
            osg::ref_ptr<osg::Node> root = osgDB::readRefNodeFile((dir.path() / "root.osgb").string(), options.get());
            osg::ref_ptr<osg::Node> leaf = osgDB::readRefNodeFile((dir.path() / "leaf.osgb").string(), options.get());
            osg::ref_ptr<osg::Node> grouped = osgDB::readRefNodeFile((dir.path() / "group.osgb").string(), options.get());
            auto* rootPaged = dynamic_cast<osg::PagedLOD*>(root.get());
            auto* rootFit = rootPaged ? dynamic_cast<osg::MatrixTransform*>(rootPaged->getChild(0)) : nullptr;
            auto* leafFit = dynamic_cast<osg::MatrixTransform*>(leaf.get());
            const bool ok = rootFit && leafFit && grouped.valid()
                            && ((rootFit->getMatrix() * frame.pp->getMatrix()).getTrans() - expectedRoot).length() < 1e-3
                            && ((leafFit->getMatrix() * frame.pp->getMatrix()).getTrans() - expectedLeaf).length() < 1e-3;
            ++(ok ? good : bad);
        }
    };
    std::thread pager(reader);
    reader();
    pager.join();
    EXPECT_EQ(good.load(), 60);
    EXPECT_EQ(bad.load(), 0);
}
