// The read callback on tiles written by the tests: which reads it acts on,
// and what it does to paged nodes, lone geodes and groups.
#include "ObliqueTestSupport.h"
#include "TempDir.h"

#include <osgDB/ReadFile>
#include <osgDB/Registry>

using cxtest::ObliqueFrame;
using cxtest::TempDir;
using Result = osgDB::ReaderWriter::ReadResult;

namespace
{

class ReadosgbCallbackTest : public ::testing::Test
{
protected:
    std::string write(const osg::Node& node, const std::string& name)
    {
        const std::string path = (dir.path() / name).string();
        cxtest::writeTile(node, path);
        return path;
    }

    Result read(const std::string& path, const osgDB::Options* options)
    {
        return frame.callback->readNode(path, options);
    }

    /** The transform's matrix with the parent's put back: translate(anchor). */
    osg::Vec3d anchorOf(const osg::MatrixTransform& transform) const
    {
        return (transform.getMatrix() * frame.pp->getMatrix()).getTrans();
    }

    TempDir dir;
    ObliqueFrame frame;
};

osg::ref_ptr<osg::PagedLOD> pagedOf(std::initializer_list<osg::Node*> children, const std::string& fileName)
{
    osg::ref_ptr<osg::PagedLOD> plod = new osg::PagedLOD;
    float range = 0.0f;
    for (osg::Node* child : children)
    {
        plod->addChild(child, range, range + 100.0f);
        range += 100.0f;
    }
    plod->setFileName(plod->getNumChildren(), fileName);
    plod->setRange(plod->getNumChildren(), 0.0f, 50.0f);
    plod->setCenterMode(osg::LOD::USER_DEFINED_CENTER);
    plod->setCenter(osg::Vec3(10, 10, 0));
    plod->setRadius(30.0f);
    return plod;
}

} // namespace

TEST_F(ReadosgbCallbackTest, AReadWithoutItsOptionsReturnsExactlyWhatTheRegistryRead)
{
    osg::ref_ptr<osg::PagedLOD> plod = pagedOf({cxtest::triangleGeode(1, 2, 3).get()}, "child.osgb");
    const std::string path = write(*plod, "root.osgb");
    const std::vector<osg::Vec3> original = cxtest::verticesOf(plod->getChild(0));

    osg::ref_ptr<osgDB::Options> withoutCallback = frame.options();
    withoutCallback->setReadFileCallback(nullptr);
    osg::ref_ptr<osgDB::Options> otherCallback = frame.options();
    otherCallback->setReadFileCallback(new osgDB::ReadFileCallback);

    for (const osgDB::Options* options : {static_cast<const osgDB::Options*>(nullptr),
                                          static_cast<const osgDB::Options*>(withoutCallback.get()),
                                          static_cast<const osgDB::Options*>(otherCallback.get())})
    {
        Result result = read(path, options);
        ASSERT_TRUE(result.success());
        auto* back = dynamic_cast<osg::PagedLOD*>(result.getNode());
        ASSERT_NE(back, nullptr);
        ASSERT_NE(back->getChild(0)->asGeode(), nullptr);
        EXPECT_EQ(cxtest::verticesOf(back->getChild(0)), original);
        EXPECT_EQ(back->getDatabaseOptions(), nullptr);
    }
}

TEST_F(ReadosgbCallbackTest, APagedRootWithTwoGeodesGetsTwoTransformsInTheirPlaces)
{
    osg::ref_ptr<osg::PagedLOD> plod =
        pagedOf({cxtest::triangleGeode(1, 2, 3).get(), cxtest::triangleGeode(50, 60, 7).get()}, "Tile_L1.osgb");
    const std::string path = write(*plod, "root.osgb");
    const osg::ref_ptr<osgDB::Options> options = frame.options();

    Result result = read(path, options.get());
    EXPECT_EQ(result.status(), Result::FILE_LOADED);
    auto* back = dynamic_cast<osg::PagedLOD*>(result.getNode());
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->getDatabaseOptions(), options.get());
    ASSERT_EQ(back->getNumChildren(), 2u);
    ASSERT_EQ(back->getNumFileNames(), 3u);
    EXPECT_EQ(back->getFileName(2), "Tile_L1.osgb");
    for (unsigned int i = 0; i < 3; ++i)
    {
        EXPECT_EQ(back->getMinRange(i), plod->getMinRange(i)) << i;
        EXPECT_EQ(back->getMaxRange(i), plod->getMaxRange(i)) << i;
    }
    EXPECT_EQ(back->getCenter(), osg::Vec3(10, 10, 0));

    std::vector<osg::Vec3d> anchors;
    for (unsigned int i = 0; i < 2; ++i)
    {
        auto* transform = dynamic_cast<osg::MatrixTransform*>(back->getChild(i));
        ASSERT_NE(transform, nullptr) << i;
        ASSERT_EQ(transform->getNumChildren(), 1u);
        const std::vector<osg::Vec3> vertices = cxtest::verticesOf(transform->getChild(0));
        ASSERT_EQ(vertices.size(), 3u);
        EXPECT_EQ(vertices[0], osg::Vec3(0, 0, 0));
        const osg::Vec3d anchor = anchorOf(*transform);
        const std::vector<osg::Vec3d> expected =
            cxtest::projGeocentric(cxtest::verticesOf(plod->getChild(i)), frame.offset);
        EXPECT_NEAR((anchor - expected[0]).length(), 0.0, 1e-3);
        // Through the parent's own matrix the vertices land where PROJ says.
        const osg::Vec3d world = osg::Vec3d(vertices[2]) * transform->getMatrix() * frame.pp->getMatrix();
        EXPECT_NEAR((world - expected[2]).length(), 0.0, 1e-3);
        anchors.push_back(anchor);
    }
    EXPECT_GT((anchors[0] - anchors[1]).length(), 50.0);
}

TEST_F(ReadosgbCallbackTest, ALoneGeodeComesBackInANewTransform)
{
    osg::ref_ptr<osg::Geode> geode = cxtest::triangleGeode(-20, 30, 5);
    const std::string path = write(*geode, "leaf.osgb");
    Result result = read(path, frame.options().get());
    EXPECT_EQ(result.status(), Result::FILE_LOADED);
    auto* transform = dynamic_cast<osg::MatrixTransform*>(result.getNode());
    ASSERT_NE(transform, nullptr);
    ASSERT_EQ(transform->getNumChildren(), 1u);
    ASSERT_NE(transform->getChild(0)->asGeode(), nullptr);
    const osg::Vec3d expected = cxtest::projGeocentric({{-20, 30, 5}}, frame.offset)[0];
    EXPECT_NEAR((anchorOf(*transform) - expected).length(), 0.0, 1e-3);
}

TEST_F(ReadosgbCallbackTest, AGroupFitsItsPagedNodesAndLeavesABareGeodeInModelCoordinates)
{
    osg::ref_ptr<osg::Group> group = new osg::Group;
    group->addChild(pagedOf({cxtest::triangleGeode(1, 2, 3).get()}, "a.osgb"));
    group->addChild(cxtest::triangleGeode(4, 5, 6));
    const std::string path = write(*group, "group.osgb");
    const osg::ref_ptr<osgDB::Options> options = frame.options();

    Result result = read(path, options.get());
    osg::Group* back = result.getNode() ? result.getNode()->asGroup() : nullptr;
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->getNumChildren(), 2u);
    auto* plod = dynamic_cast<osg::PagedLOD*>(back->getChild(0));
    ASSERT_NE(plod, nullptr);
    EXPECT_EQ(plod->getDatabaseOptions(), options.get());
    EXPECT_NE(dynamic_cast<osg::MatrixTransform*>(plod->getChild(0)), nullptr);
    ASSERT_NE(back->getChild(1)->asGeode(), nullptr);
    EXPECT_EQ(cxtest::verticesOf(back->getChild(1))[0], osg::Vec3(4, 5, 6));
}

TEST_F(ReadosgbCallbackTest, APagedChildOfAnotherKindStaysInModelCoordinates)
{
    osg::ref_ptr<osg::Group> nested = new osg::Group;
    nested->addChild(cxtest::triangleGeode(7, 8, 9));
    osg::ref_ptr<osg::PagedLOD> plod = pagedOf({nested.get(), cxtest::triangleGeode(1, 1, 1).get()}, "b.osgb");
    const std::string path = write(*plod, "nested.osgb");

    Result result = read(path, frame.options().get());
    auto* back = dynamic_cast<osg::PagedLOD*>(result.getNode());
    ASSERT_NE(back, nullptr);
    osg::Group* group = back->getChild(0)->asGroup();
    ASSERT_NE(group, nullptr);
    EXPECT_EQ(dynamic_cast<osg::Transform*>(group), nullptr);
    EXPECT_EQ(cxtest::verticesOf(group->getChild(0))[0], osg::Vec3(7, 8, 9));
    EXPECT_NE(dynamic_cast<osg::MatrixTransform*>(back->getChild(1)), nullptr);
}

TEST_F(ReadosgbCallbackTest, FailedReadsAndMissingEntriesComeBackUntouched)
{
    Result missing = read((dir.path() / "no-such-tile.osgb").string(), frame.options().get());
    EXPECT_FALSE(missing.success());
    EXPECT_EQ(missing.getNode(), nullptr);

    const std::string path = write(*cxtest::triangleGeode(1, 2, 3), "leaf.osgb");
    for (const char* key : {"pp", "offset", "srs", "mapsrs"})
    {
        osg::ref_ptr<osgDB::Options> options = frame.options();
        options->removePluginData(key);
        Result result = read(path, options.get());
        ASSERT_NE(result.getNode(), nullptr) << key;
        ASSERT_NE(result.getNode()->asGeode(), nullptr) << key;
        EXPECT_EQ(cxtest::verticesOf(result.getNode())[0], osg::Vec3(1, 2, 3)) << key;
    }
}

TEST_F(ReadosgbCallbackTest, InTheRegistryItLeavesOtherReadsAlone)
{
    // A model read as the scene objects and the terrain read theirs: without
    // options, or with options of their own.
    osg::ref_ptr<osg::PagedLOD> plod = pagedOf({cxtest::triangleGeode(1, 2, 3).get()}, "child.osgb");
    const std::string path = write(*plod, "model.osgb");
    osgDB::Registry::instance()->setReadFileCallback(frame.callback.get());
    osg::ref_ptr<osg::Node> plain = osgDB::readRefNodeFile(path);
    osg::ref_ptr<osgDB::Options> own = new osgDB::Options("some=option");
    osg::ref_ptr<osg::Node> withOwn = osgDB::readRefNodeFile(path, own.get());
    // Through the pager's path too: the options carry the callback, so it acts.
    osg::ref_ptr<osg::Node> oblique = osgDB::readRefNodeFile(path, frame.options().get());
    osgDB::Registry::instance()->setReadFileCallback(nullptr);

    for (osg::Node* node : {plain.get(), withOwn.get()})
    {
        auto* back = dynamic_cast<osg::PagedLOD*>(node);
        ASSERT_NE(back, nullptr);
        EXPECT_EQ(cxtest::verticesOf(back->getChild(0))[0], osg::Vec3(1, 2, 3));
    }
    auto* fitted = dynamic_cast<osg::PagedLOD*>(oblique.get());
    ASSERT_NE(fitted, nullptr);
    EXPECT_NE(dynamic_cast<osg::MatrixTransform*>(fitted->getChild(0)), nullptr);
}
