// The table of the visible octree, built by the cull callback on octrees made
// by hand and culled without a window.
#include "OctreeTestSupport.h"

#include <gtest/gtest.h>

#include <osg/Group>

#include <string>

using namespace cxtest;

namespace
{

// A scene as the viewer has it: the group that carries the callback, and a
// cloud root under it.
struct Cloud
{
    osg::ref_ptr<osg::Group> lidar = new osg::Group;
    osg::ref_ptr<osg::PagedLOD> root;

    explicit Cloud(osg::ref_ptr<osg::PagedLOD> cloudRoot)
        : root(std::move(cloudRoot))
    {
        lidar->setCullCallback(new pagelodCullCallBack);
        lidar->addChild(root.get());
    }

    osg::Texture2D* table() const { return tableOf(root.get()); }
};

osg::ref_ptr<osg::PagedLOD> rootTile()
{
    osg::ref_ptr<osg::PagedLOD> root = makeTile("ARSCmark");
    root->setName("PoRoot");
    return root;
}

std::vector<osg::ref_ptr<osg::Node>> tilesWithOctants(std::initializer_list<int> octants)
{
    std::vector<osg::ref_ptr<osg::Node>> tiles;
    for (int octant : octants)
        tiles.push_back(makeTile("ARSCmark" + std::to_string(octant)));
    return tiles;
}

osg::PagedLOD* tileAt(osg::Group* level, unsigned int i)
{
    return dynamic_cast<osg::PagedLOD*>(level->getChild(i));
}

int nonZeroBytes(const osg::Texture2D* table)
{
    int count = 0;
    const unsigned char* data = table->getImage()->data();
    for (int i = 0; i < 4 * pagelodVisitor::tableSize; ++i)
        count += data[i] != 0;
    return count;
}

} // namespace

TEST(VisibleOctreeTable, TheTableIsA2048TexelRGBATextureOfZeros)
{
    osg::ref_ptr<osg::Texture2D> table = pagelodCullCallBack::createTableTexture(2048);
    const osg::Image* image = table->getImage();
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->s(), 2048);
    EXPECT_EQ(image->t(), 1);
    EXPECT_EQ(image->r(), 1);
    EXPECT_EQ(image->getInternalTextureFormat(), GL_RGBA);
    EXPECT_EQ(image->getPixelFormat(), static_cast<GLenum>(GL_RGBA));
    EXPECT_EQ(image->getDataType(), static_cast<GLenum>(GL_UNSIGNED_BYTE));
    EXPECT_EQ(image->getAllocationMode(), osg::Image::USE_NEW_DELETE);
    EXPECT_EQ(image->getPacking(), 1u);
    EXPECT_EQ(image->getTotalSizeInBytes(), 8192u);
    EXPECT_EQ(nonZeroBytes(table.get()), 0);
    EXPECT_EQ(table->getFilter(osg::Texture::MIN_FILTER), osg::Texture::LINEAR);
    EXPECT_EQ(table->getFilter(osg::Texture::MAG_FILTER), osg::Texture::LINEAR);
    EXPECT_EQ(table->getWrap(osg::Texture::WRAP_S), osg::Texture::REPEAT);
    EXPECT_EQ(table->getWrap(osg::Texture::WRAP_T), osg::Texture::REPEAT);
}

TEST(VisibleOctreeTable, ARootWithOnlyItsContentIsOneLeafRecord)
{
    Cloud cloud(rootTile());
    cullOnce(cloud.lidar.get(), 1);
    ASSERT_NE(cloud.table(), nullptr);
    EXPECT_EQ(recordOf(cloud.table(), 0), (std::array<int, 4>{0, 0, 0, 0}));
    EXPECT_EQ(nonZeroBytes(cloud.table()), 0);
    EXPECT_EQ(vsnStartOf(contentOf(cloud.root.get())), 0);
}

TEST(VisibleOctreeTable, ALoadedButUnselectedNextLevelIsLeftOut)
{
    osg::ref_ptr<osg::PagedLOD> root = rootTile();
    // Seen only within 1 m of the root's centre: loaded, never selected.
    osg::Group* level = attachNextLevel(root.get(), tilesWithOctants({0, 1}), 1.0f);
    Cloud cloud(root);
    cullOnce(cloud.lidar.get(), 7);
    EXPECT_LT(root->getFrameNumber(1), 7u);
    EXPECT_EQ(recordOf(cloud.table(), 0), (std::array<int, 4>{0, 0, 0, 0}));
    EXPECT_EQ(nonZeroBytes(cloud.table()), 0);
    EXPECT_EQ(vsnStartOf(contentOf(root.get())), 0);
    // The children were not numbered.
    EXPECT_EQ(vsnStartOf(contentOf(tileAt(level, 0))), -1);
}

TEST(VisibleOctreeTable, ANextLevelSelectedInAnEarlierFrameIsLeftOut)
{
    osg::ref_ptr<osg::PagedLOD> root = rootTile();
    attachNextLevel(root.get(), tilesWithOctants({0, 1}));
    pagelodVisitor visitor(pagelodCullCallBack::createTableTexture(2048));
    osg::ref_ptr<osg::Texture2D> keep = visitor.texture;
    root->setFrameNumber(1, 4);
    visitor.setTraversalNumber(5);
    visitor.apply(*root);
    EXPECT_EQ(visitor.count_, 1);
    EXPECT_TRUE(visitor.tileLists[0].empty());
    EXPECT_EQ(recordOf(keep.get(), 0)[0], 0);
}

TEST(VisibleOctreeTable, OctantsZeroThreeAndSevenGiveMask137AndAdjacentRecords)
{
    osg::ref_ptr<osg::PagedLOD> root = rootTile();
    osg::Group* level = attachNextLevel(root.get(), tilesWithOctants({0, 3, 7}));
    Cloud cloud(root);
    cullOnce(cloud.lidar.get(), 3);
    osg::Texture2D* table = cloud.table();
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(recordOf(table, 0), (std::array<int, 4>{137, 1, 0, 0}));
    for (unsigned int i = 0; i < 3; ++i)
    {
        EXPECT_EQ(vsnStartOf(contentOf(tileAt(level, i))), static_cast<int>(i + 1));
        EXPECT_EQ(recordOf(table, static_cast<int>(i + 1)), (std::array<int, 4>{0, 0, 0, 0}));
    }
}

TEST(VisibleOctreeTable, AHandBuiltThreeLevelSetGivesTheExpectedMasksAndOffsets)
{
    // Root -> octants 1, 4, 6; octant 1 -> 0, 2; octant 4 -> nothing loaded;
    // octant 6 -> 5, 6, 7; octant 6's child 7 -> 3.
    osg::ref_ptr<osg::PagedLOD> root = rootTile();
    osg::Group* level1 = attachNextLevel(root.get(), tilesWithOctants({1, 4, 6}));
    osg::Group* below1 = attachNextLevel(tileAt(level1, 0), tilesWithOctants({0, 2}));
    osg::Group* below6 = attachNextLevel(tileAt(level1, 2), tilesWithOctants({5, 6, 7}));
    attachNextLevel(tileAt(below6, 2), tilesWithOctants({3}));
    Cloud cloud(root);
    cullOnce(cloud.lidar.get(), 11);
    osg::Texture2D* table = cloud.table();
    ASSERT_NE(table, nullptr);

    // Breadth first: 0 root; 1, 2, 3 level 1; 4, 5 under octant 1; 6, 7, 8
    // under octant 6; 9 under its child 7.
    const std::array<int, 4> expected[] = {
        {2 + 16 + 64, 1, 0, 0}, // root: octants 1, 4, 6; first child at 1
        {1 + 4, 3, 0, 0},       // octant 1: children at 4
        {0, 0, 0, 0},           // octant 4: leaf
        {32 + 64 + 128, 3, 0, 0}, // octant 6: children at 6
        {0, 0, 0, 0},
        {0, 0, 0, 0},
        {0, 0, 0, 0},
        {0, 0, 0, 0},
        {8, 1, 0, 0},           // its child 7: child at 9
        {0, 0, 0, 0},
    };
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(recordOf(table, i), expected[i]) << "record " << i;
    EXPECT_EQ(recordOf(table, 10), (std::array<int, 4>{0, 0, 0, 0}));
    EXPECT_EQ(vsnStartOf(contentOf(tileAt(below1, 1))), 5);
    EXPECT_EQ(vsnStartOf(contentOf(tileAt(below6, 0))), 6);
}

TEST(VisibleOctreeTable, TwoChildrenWithTheSameOctantCarryIntoTheNextBit)
{
    osg::ref_ptr<osg::PagedLOD> root = rootTile();
    attachNextLevel(root.get(), tilesWithOctants({2, 2}));
    Cloud cloud(root);
    cullOnce(cloud.lidar.get(), 2);
    // 4 + 4 = 8: the bit of octant 3, not that of octant 2.
    EXPECT_EQ(recordOf(cloud.table(), 0)[0], 8);
}

TEST(VisibleOctreeTable, AMissingOrNonNumericSuffixReadsAsOctantZero)
{
    osg::ref_ptr<osg::PagedLOD> root = rootTile();
    attachNextLevel(root.get(), tilesWithOctants({}));
    osg::Group* level = root->getChild(1)->asGroup();
    level->addChild(makeTile("ARSCmark").get());
    level->addChild(makeTile("ARSCmarkx").get());
    Cloud cloud(root);
    cullOnce(cloud.lidar.get(), 2);
    EXPECT_EQ(recordOf(cloud.table(), 0)[0], 2); // 1 + 1
}

TEST(VisibleOctreeTable, APlainGroupInANextLevelIsSkippedSilently)
{
    osg::ref_ptr<osg::PagedLOD> root = rootTile();
    std::vector<osg::ref_ptr<osg::Node>> children = tilesWithOctants({1});
    children.push_back(new osg::Group);
    children.push_back(makeTile("ARSCmark5"));
    osg::Group* level = attachNextLevel(root.get(), children);
    Cloud cloud(root);

    testing::internal::CaptureStdout();
    cullOnce(cloud.lidar.get(), 4);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(printed, "");
    EXPECT_EQ(recordOf(cloud.table(), 0), (std::array<int, 4>{2 + 32, 1, 0, 0}));
    EXPECT_EQ(vsnStartOf(contentOf(tileAt(level, 0))), 1);
    EXPECT_EQ(vsnStartOf(contentOf(tileAt(level, 2))), 2);
}

TEST(VisibleOctreeTable, ChildrenWithoutContentOrWithoutATransformAreSkipped)
{
    osg::ref_ptr<osg::PagedLOD> root = rootTile();
    osg::ref_ptr<osg::PagedLOD> empty = new osg::PagedLOD;
    osg::ref_ptr<osg::PagedLOD> geodeFirst = new osg::PagedLOD;
    geodeFirst->addChild(new osg::Geode, 0.0f, FLT_MAX);
    osg::Group* level = attachNextLevel(root.get(), {empty, geodeFirst, makeTile("ARSCmark6")});
    Cloud cloud(root);
    cullOnce(cloud.lidar.get(), 4);
    EXPECT_EQ(recordOf(cloud.table(), 0), (std::array<int, 4>{64, 1, 0, 0}));
    EXPECT_EQ(vsnStartOf(contentOf(tileAt(level, 2))), 1);
}

TEST(VisibleOctreeTable, ATileWithAnotherPrefixStillTakesAnIndex)
{
    // The middle child's content has another name: the parent lists it (its
    // child 0 is a transform) and it is numbered, but it writes nothing of
    // its own and gets no "vsnStart".
    osg::ref_ptr<osg::PagedLOD> root = rootTile();
    std::vector<osg::ref_ptr<osg::Node>> children = tilesWithOctants({0});
    osg::ref_ptr<osg::PagedLOD> other = makeTile("OTHRmark3");
    attachNextLevel(other.get(), tilesWithOctants({0, 1}));
    children.push_back(other);
    children.push_back(makeTile("ARSCmark5"));
    osg::Group* level = attachNextLevel(root.get(), children);
    Cloud cloud(root);

    testing::internal::CaptureStdout();
    cullOnce(cloud.lidar.get(), 8);
    const std::string printed = testing::internal::GetCapturedStdout();

    EXPECT_EQ(recordOf(cloud.table(), 0), (std::array<int, 4>{1 + 8 + 32, 1, 0, 0}));
    EXPECT_EQ(vsnStartOf(contentOf(tileAt(level, 0))), 1);
    EXPECT_EQ(vsnStartOf(contentOf(tileAt(level, 1))), -1);
    EXPECT_EQ(vsnStartOf(contentOf(tileAt(level, 2))), 3);
    // Its own next level was never listed.
    EXPECT_EQ(recordOf(cloud.table(), 2), (std::array<int, 4>{0, 0, 0, 0}));
    EXPECT_EQ(vsnStartOf(contentOf(tileAt(other->getChild(1)->asGroup(), 0))), -1);
    // Pass 2 finds no index on it and says so.
    EXPECT_EQ(printed, "count_与vsnStart不相等\n");
}

TEST(VisibleOctreeTable, AMarkedTileWhoseContentIsNoTransformSaysSo)
{
    osg::ref_ptr<osg::PagedLOD> tile = new osg::PagedLOD;
    osg::ref_ptr<osg::Geode> content = new osg::Geode;
    content->setName("ARSCmark2");
    tile->addChild(content.get(), 0.0f, FLT_MAX);

    osg::ref_ptr<osg::Texture2D> table = pagelodCullCallBack::createTableTexture(2048);
    pagelodVisitor visitor(table.get());
    testing::internal::CaptureStdout();
    visitor.apply(*tile);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "pagelod第一个子节点不为geode 000\n");
    EXPECT_EQ(visitor.count_, 1);
}

TEST(VisibleOctreeTable, AVisibleNextLevelThatIsNoGroupSaysSo)
{
    osg::ref_ptr<osg::PagedLOD> tile = makeTile("ARSCmark1");
    // A geode is a group; a plain node is not.
    tile->addChild(new osg::Node, 0.0f, FLT_MAX, "next.osgb");
    tile->setFrameNumber(1, 9);

    osg::ref_ptr<osg::Texture2D> table = pagelodCullCallBack::createTableTexture(2048);
    pagelodVisitor visitor(table.get());
    visitor.setTraversalNumber(9);
    testing::internal::CaptureStdout();
    visitor.apply(*tile);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "pagelod最后一个子节点不为group节点\n");
    EXPECT_EQ(visitor.count_, 1);
    EXPECT_EQ(recordOf(table.get(), 0)[0], 0);
}

TEST(VisibleOctreeTable, ANullTextureNumbersTheTilesWithoutATable)
{
    osg::ref_ptr<osg::PagedLOD> root = rootTile();
    osg::Group* level = attachNextLevel(root.get(), tilesWithOctants({2, 5}));
    root->setFrameNumber(1, 3);
    pagelodVisitor visitor(nullptr);
    EXPECT_EQ(visitor.tableData, nullptr);
    visitor.setTraversalNumber(3);
    visitor.apply(*root);
    EXPECT_EQ(visitor.count_, 1);
    EXPECT_EQ(visitor.tileLists[0].size(), 2u);
    EXPECT_EQ(visitor.tileLists[1].size(), 2u);
    EXPECT_EQ(vsnStartOf(contentOf(root.get())), 0);
    static_cast<void>(level);
}

TEST(VisibleOctreeTable, AFirstChildOffsetAbove255WrapsInTheSecondByte)
{
    // Three complete levels: 1 + 8 + 64 + 512 tiles. The last tile of level 2
    // (index 72) has its first child at 73 + 8 * 63 = 577: offset 505, which
    // the table holds as 505 - 512 + 256 = 249.
    Cloud cloud(completeOctree(3));
    cullOnce(cloud.lidar.get(), 5);
    osg::Texture2D* table = cloud.table();
    EXPECT_EQ(recordOf(table, 72), (std::array<int, 4>{255, 505 % 256, 0, 0}));
    // Level 2's first tile (index 9): first child at 73, offset 64.
    EXPECT_EQ(recordOf(table, 9), (std::array<int, 4>{255, 64, 0, 0}));
    EXPECT_EQ(recordOf(table, 0), (std::array<int, 4>{255, 1, 0, 0}));
    EXPECT_EQ(recordOf(table, 584), (std::array<int, 4>{0, 0, 0, 0}));
}

TEST(VisibleOctreeTable, MoreThan2048VisibleTilesWriteNothingPastTheTable)
{
    // Four complete levels: 4,681 visible tiles. Tiles past record 2047 are
    // numbered, but the table stays 2048 records long (AddressSanitizer would
    // catch a write past it).
    osg::ref_ptr<osg::PagedLOD> root = completeOctree(4);
    Cloud cloud(root);
    testing::internal::CaptureStdout();
    cullOnce(cloud.lidar.get(), 6);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    osg::Texture2D* table = cloud.table();
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->getImage()->getTotalSizeInBytes(), 8192u);
    // Level 3 (indices 73..584) all have children; level 4 (585..4680) none.
    EXPECT_EQ(recordOf(table, 584)[0], 255);
    EXPECT_EQ(recordOf(table, 2047), (std::array<int, 4>{0, 0, 0, 0}));

    // The last tile was numbered 4680.
    osg::PagedLOD* tile = root.get();
    for (int level = 0; level < 4; ++level)
        tile = dynamic_cast<osg::PagedLOD*>(tile->getChild(1)->asGroup()->getChild(7));
    EXPECT_EQ(vsnStartOf(contentOf(tile)), 4680);
}

TEST(VisibleOctreeTable, EachCullMakesAFreshTableAndFreshIndexUniforms)
{
    osg::ref_ptr<osg::PagedLOD> root = rootTile();
    attachNextLevel(root.get(), tilesWithOctants({4}));
    Cloud cloud(root);
    cullOnce(cloud.lidar.get(), 1);
    osg::ref_ptr<osg::Texture2D> first = cloud.table();
    osg::ref_ptr<osg::Uniform> firstIndex = contentOf(root.get())->getStateSet()->getUniform("vsnStart");
    cullOnce(cloud.lidar.get(), 2);
    EXPECT_NE(cloud.table(), first.get());
    EXPECT_NE(contentOf(root.get())->getStateSet()->getUniform("vsnStart"), firstIndex.get());
    EXPECT_EQ(recordOf(cloud.table(), 0), (std::array<int, 4>{16, 1, 0, 0}));
}
