// Oblique datasets in their common layout: what metadata.xml may say, which
// root tiles are found, and the node the loader builds.
#include "ObliqueTestSupport.h"
#include "TempDir.h"

#include <oblique/ObliqueDataset>
#include <viewer/CXViewer>

#include <osg/ComputeBoundsVisitor>

using cxtest::TempDir;

namespace
{

std::string metadata(const std::string& srs, const std::string& origin)
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<ModelMetadata version=\"1\">\n  <SRS>" + srs
           + "</SRS>\n  <SRSOrigin>" + origin + "</SRSOrigin>\n  <Texture><ColorSource>Visible</ColorSource></Texture>\n"
           + "</ModelMetadata>\n";
}

void writeRootTile(const TempDir& dir, const std::string& name, float x, float y)
{
    std::filesystem::create_directories(dir.path() / "Data" / name);
    osg::ref_ptr<osg::PagedLOD> plod = new osg::PagedLOD;
    plod->addChild(cxtest::triangleGeode(x, y, 2.0f, 20.0f), 0.0f, 1e30f);
    cxtest::writeTile(*plod, (dir.path() / "Data" / name / (name + ".osgb")).string());
}

struct BadMetadata
{
    const char* label;
    const char* text; // nullptr: no metadata.xml at all
    const char* expected;
};

class ObliqueDatasetBadMetadata : public ::testing::TestWithParam<BadMetadata>
{
};

} // namespace

TEST_P(ObliqueDatasetBadMetadata, GivesNullAndAMessage)
{
    TempDir dir;
    writeRootTile(dir, "Tile_+000_+000", 0, 0);
    if (GetParam().text)
        dir.write("metadata.xml", GetParam().text);
    std::string message;
    EXPECT_FALSE(ObliqueDataset::open(dir.path().string(), message).valid());
    EXPECT_NE(message.find(GetParam().expected), std::string::npos) << message;

    // Through the viewer: false, nothing added.
    CXViewer viewer(0);
    viewer.OSGBData = new osg::MatrixTransform; // as InitSceneGraph makes it
    ASSERT_NE(viewer.getOSGBData(), nullptr);
    EXPECT_EQ(ObliqueDataset::addToViewer(&viewer, dir.path().string(), message), nullptr);
    EXPECT_EQ(viewer.getOSGBData()->getNumChildren(), 0u);
    EXPECT_FALSE(message.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, ObliqueDatasetBadMetadata,
    ::testing::Values(BadMetadata{"missing", nullptr, "no metadata.xml"},
                      BadMetadata{"notXml", "this is { not xml", "not readable XML"},
                      BadMetadata{"truncated", "<ModelMetadata><SRS>EPSG:4547</SR", "not readable XML"},
                      BadMetadata{"noSrs", "<ModelMetadata><SRSOrigin>1,2,3</SRSOrigin></ModelMetadata>", "no <SRS>"},
                      BadMetadata{"emptySrs", "<ModelMetadata><SRS> </SRS></ModelMetadata>", "no <SRS>"},
                      BadMetadata{"unknownSrs", "<ModelMetadata><SRS>EPSG:999999</SRS></ModelMetadata>",
                                  "unknown SRS 'EPSG:999999'"},
                      BadMetadata{"badEnu", "<ModelMetadata><SRS>ENU:39.9</SRS></ModelMetadata>", "unknown SRS"},
                      BadMetadata{"badOrigin",
                                  "<ModelMetadata><SRS>EPSG:4547</SRS><SRSOrigin>1,2,x</SRSOrigin></ModelMetadata>",
                                  "bad <SRSOrigin> '1,2,x'"},
                      BadMetadata{"oneNumberOrigin",
                                  "<ModelMetadata><SRS>EPSG:4547</SRS><SRSOrigin>7</SRSOrigin></ModelMetadata>",
                                  "bad <SRSOrigin>"}),
    [](const ::testing::TestParamInfo<BadMetadata>& info) { return std::string(info.param.label); });

TEST(ObliqueDataset, ReadsTheSrsTheOriginAndTheRootTilesInOrder)
{
    TempDir dir;
    dir.write("metadata.xml", metadata("EPSG:4547", " 703800.5, 4430600 , 45.25 "));
    writeRootTile(dir, "Tile_+001_+000", 0, 0);
    writeRootTile(dir, "Tile_+000_+000", 0, 0);
    std::filesystem::create_directories(dir.path() / "Data" / "Tile_+002_+000"); // no tile file in it
    dir.write("Data/notes.txt", "not a tile");

    std::string message = "left from before";
    osg::ref_ptr<ObliqueDataset> dataset = ObliqueDataset::open(dir.path().string(), message);
    ASSERT_TRUE(dataset.valid()) << message;
    EXPECT_TRUE(message.empty());
    EXPECT_EQ(dataset->getSRSText(), "EPSG:4547");
    EXPECT_EQ(dataset->getSRS(), globe::SpatialReference::create("EPSG:4547"));
    EXPECT_EQ(dataset->getOrigin(), osg::Vec3d(703800.5, 4430600.0, 45.25));
    ASSERT_EQ(dataset->getRootTiles().size(), 2u);
    EXPECT_EQ(std::filesystem::path(dataset->getRootTiles()[0]).filename(), "Tile_+000_+000.osgb");
    EXPECT_EQ(std::filesystem::path(dataset->getRootTiles()[1]).filename(), "Tile_+001_+000.osgb");
}

TEST(ObliqueDataset, TakesATangentPlaneAWktAndATwoNumberOrigin)
{
    TempDir enu;
    enu.write("metadata.xml", "<ModelMetadata><SRS>ENU:39.99,116.39</SRS></ModelMetadata>");
    writeRootTile(enu, "Tile_0", 0, 0);
    std::string message;
    osg::ref_ptr<ObliqueDataset> dataset = ObliqueDataset::open(enu.path().string(), message);
    ASSERT_TRUE(dataset.valid()) << message;
    EXPECT_TRUE(dataset->getSRS()->isTangentPlane());
    EXPECT_EQ(dataset->getOrigin(), osg::Vec3d(0, 0, 0));

    TempDir wkt;
    wkt.write("metadata.xml", metadata(globe::SpatialReference::create("EPSG:4547")->getWKT(), "703800,4430600"));
    writeRootTile(wkt, "Tile_0", 0, 0);
    dataset = ObliqueDataset::open(wkt.path().string(), message);
    ASSERT_TRUE(dataset.valid()) << message;
    EXPECT_TRUE(dataset->getSRS()->isProjected());
    EXPECT_EQ(dataset->getOrigin(), osg::Vec3d(703800, 4430600, 0));
}

TEST(ObliqueDataset, WithoutRootTilesThereIsNoDataset)
{
    TempDir dir;
    dir.write("metadata.xml", metadata("EPSG:4547", "0,0,0"));
    std::string message;
    EXPECT_FALSE(ObliqueDataset::open(dir.path().string(), message).valid());
    EXPECT_NE(message.find("no root tiles"), std::string::npos) << message;
}

TEST(ObliqueDataset, TheNodeHoldsEveryRootTileOnTheGlobe)
{
    TempDir dir;
    const osg::Vec3d origin(703800.0, 4430600.0, 45.0);
    dir.write("metadata.xml", metadata("EPSG:4547", "703800,4430600,45"));
    writeRootTile(dir, "Tile_+000_+000", 10, 20);
    writeRootTile(dir, "Tile_+001_+000", 250, 20);
    std::string message;
    osg::ref_ptr<ObliqueDataset> dataset = ObliqueDataset::open(dir.path().string() + "/", message);
    ASSERT_TRUE(dataset.valid()) << message;

    const globe::SpatialReference* wgs84 = globe::SpatialReference::create("wgs84");
    osg::ref_ptr<osg::MatrixTransform> node = dataset->createNode(wgs84, new ReadosgbCallback, message);
    ASSERT_TRUE(node.valid()) << message;
    EXPECT_EQ(node->getName(), dir.path().filename().string());
    ASSERT_EQ(node->getNumChildren(), 2u);

    // The node's matrix is the model's frame at the origin.
    const osg::Vec3d originWorld = cxtest::projGeocentric({{0, 0, 0}}, origin)[0];
    EXPECT_NEAR((node->getMatrix().getTrans() - originWorld).length(), 0.0, 1e-3);
    const osg::Vec3d along = osg::Vec3d(200, 0, 0) * node->getMatrix();
    EXPECT_NEAR((along - cxtest::projGeocentric({{200, 0, 0}}, origin)[0]).length(), 0.0, 0.01);

    // Each tile's geode, through its transform and the node, lands where PROJ
    // puts its first vertex.
    const float corners[2][2] = {{10, 20}, {250, 20}};
    for (unsigned int i = 0; i < 2; ++i)
    {
        auto* plod = dynamic_cast<osg::PagedLOD*>(node->getChild(i));
        ASSERT_NE(plod, nullptr);
        auto* transform = dynamic_cast<osg::MatrixTransform*>(plod->getChild(0));
        ASSERT_NE(transform, nullptr);
        const osg::Vec3d world = osg::Vec3d(cxtest::verticesOf(transform->getChild(0))[1]) * transform->getMatrix()
                                 * node->getMatrix();
        const osg::Vec3d expected =
            cxtest::projGeocentric({{corners[i][0] + 20.0f, corners[i][1], 2.0f}}, origin)[0];
        EXPECT_NEAR((world - expected).length(), 0.0, 1e-3) << i;
    }
}

TEST(ObliqueDataset, RootTilesThatCannotBeReadAreNamed)
{
    TempDir dir;
    dir.write("metadata.xml", metadata("EPSG:4547", "703800,4430600,45"));
    writeRootTile(dir, "Tile_A", 0, 0);
    dir.write("Data/Tile_B/Tile_B.osgb", "not a tile at all");
    std::string message;
    osg::ref_ptr<ObliqueDataset> dataset = ObliqueDataset::open(dir.path().string(), message);
    ASSERT_TRUE(dataset.valid());
    const globe::SpatialReference* wgs84 = globe::SpatialReference::create("wgs84");
    osg::ref_ptr<osg::MatrixTransform> node = dataset->createNode(wgs84, new ReadosgbCallback, message);
    ASSERT_TRUE(node.valid());
    EXPECT_EQ(node->getNumChildren(), 1u);
    EXPECT_NE(message.find("1 of 2 root tiles could not be read: Tile_B.osgb"), std::string::npos) << message;

    std::filesystem::remove(dir.path() / "Data/Tile_A/Tile_A.osgb");
    dir.write("Data/Tile_A/Tile_A.osgb", "");
    dataset = ObliqueDataset::open(dir.path().string(), message);
    ASSERT_TRUE(dataset.valid());
    EXPECT_FALSE(dataset->createNode(wgs84, new ReadosgbCallback, message).valid());
    EXPECT_NE(message.find("2 of 2"), std::string::npos) << message;
}

TEST(ObliqueDataset, AViewerWithoutItsGroupsTakesNothing)
{
    TempDir dir;
    dir.write("metadata.xml", metadata("EPSG:4547", "0,0,0"));
    writeRootTile(dir, "Tile_0", 0, 0);
    std::string message;
    EXPECT_EQ(ObliqueDataset::addToViewer(nullptr, dir.path().string(), message), nullptr);
    EXPECT_FALSE(message.empty());
    CXViewer viewer(0);
    EXPECT_EQ(ObliqueDataset::addToViewer(&viewer, dir.path().string(), message), nullptr);
    EXPECT_NE(message.find("InitOSG"), std::string::npos) << message;
}

TEST(ObliqueDataset, AddToViewerHangsTheDatasetUnderTheObliqueGroup)
{
    TempDir dir;
    dir.write("metadata.xml", metadata("EPSG:4547", "703800,4430600,45"));
    writeRootTile(dir, "Tile_0", 0, 0);
    CXViewer viewer(0);
    viewer.OSGBData = new osg::MatrixTransform; // as InitSceneGraph makes it
    std::string message;
    osg::MatrixTransform* node = ObliqueDataset::addToViewer(&viewer, dir.path().string(), message);
    ASSERT_NE(node, nullptr) << message;
    ASSERT_EQ(viewer.getOSGBData()->getNumChildren(), 1u);
    EXPECT_EQ(viewer.getOSGBData()->getChild(0), node);
    auto* plod = dynamic_cast<osg::PagedLOD*>(node->getChild(0));
    ASSERT_NE(plod, nullptr);
    auto* options = dynamic_cast<osgDB::Options*>(plod->getDatabaseOptions());
    ASSERT_NE(options, nullptr);
    EXPECT_EQ(options->getPluginData("pp"), node);
    EXPECT_NE(dynamic_cast<ReadosgbCallback*>(options->getReadFileCallback()), nullptr);
    EXPECT_EQ(*static_cast<const osg::Vec3d*>(options->getPluginData("offset")), osg::Vec3d(703800, 4430600, 45));
}
