#include "MBTilesTestFiles.h"
#include "TempDir.h"

#include <globe/ElevationLayer>
#include <globe/ImageLayer>
#include <globe/MapNode>

#include <osgDB/ReadFile>
#include <osgDB/Registry>

#include <gtest/gtest.h>

#include <sstream>

using globe::ElevationLayer;
using globe::ImageLayer;
using globe::MapNode;
using globe::TileKey;

namespace
{

osg::ref_ptr<MapNode> readMap(const std::filesystem::path& file)
{
    osg::ref_ptr<osg::Node> node = osgDB::readNodeFile(file.string());
    return dynamic_cast<MapNode*>(node.get());
}

void makeImagery(const std::filesystem::path& path)
{
    std::filesystem::create_directories(path.parent_path());
    cxtest::MBTilesFile file(path.string());
    file.metadata("format", "jpg");
    file.tile(0, 0, 0, cxtest::encode(*cxtest::solidImage(256, 20, 60, 200), "jpg"));
}

void makeHeights(const std::filesystem::path& path, double height, bool terrarium = false)
{
    std::filesystem::create_directories(path.parent_path());
    cxtest::MBTilesFile file(path.string());
    if (terrarium)
        file.tile(0, 0, 0, cxtest::encode(*cxtest::rgbImage(32, [=](int, int) { return cxtest::terrarium(height); }), "png"));
    else
        file.tile(0, 0, 0, cxtest::terrainRGBTile(32, [=](int, int) { return height; }));
}

const char* const kEarth = R"(<?xml version="1.0" encoding="UTF-8"?>
<map name="china-simple" type="geocentric" version="2">
  <options>
    <terrain min_lod="2"/>
  </options>
  <image name="world" driver="mbtiles">
    <filename>data/world.db</filename>
    <format>jpg</format>
  </image>
  <elevation name="heights" driver="mbtiles">
    <url>data/heights.db</url>
  </elevation>
  <model name="ignored" driver="simple"/>
</map>
)";

} // namespace

TEST(EarthFile, ReaderIsRegisteredByTheLibrary)
{
    osgDB::ReaderWriter* rw = osgDB::Registry::instance()->getReaderWriterForExtension("earth");
    ASSERT_NE(rw, nullptr);
    EXPECT_STREQ(rw->className(), "globe earth file reader");
}

TEST(EarthFile, ValidFileGivesAMapNodeWithItsLayers)
{
    cxtest::TempDir dir;
    makeImagery(dir.path() / "data" / "world.db");
    makeHeights(dir.path() / "data" / "heights.db", 321.0);
    const auto earth = dir.write("maps.earth", kEarth);

    osg::ref_ptr<MapNode> node = readMap(earth);
    ASSERT_TRUE(node);
    EXPECT_EQ(node->getName(), "china-simple");
    ASSERT_NE(node->getEllipsoidModel(), nullptr);
    EXPECT_TRUE(node->getEllipsoidModel()->isWGS84());
    globe::Map* map = node->getMap();
    EXPECT_EQ(map->getName(), "china-simple");
    ASSERT_EQ(map->getNumLayers(), 2u); // <model> and <options> are ignored

    auto* image = dynamic_cast<ImageLayer*>(map->getLayerAt(0).get());
    auto* heights = dynamic_cast<ElevationLayer*>(map->getLayerAt(1).get());
    ASSERT_TRUE(image && heights);
    EXPECT_EQ(image->getName(), "world");
    EXPECT_EQ(heights->getName(), "heights");
    EXPECT_EQ(image->options().driver().getDriver(), "mbtiles");
    EXPECT_EQ(image->options().driver().format().value_or(""), "jpg");
    EXPECT_TRUE(image->getEnabled());

    // Relative paths start at the earth file's folder.
    EXPECT_TRUE(std::filesystem::equivalent(image->options().driver().getFilename(), dir.path() / "data" / "world.db"));
    EXPECT_TRUE(std::filesystem::equivalent(heights->options().driver().getFilename(), dir.path() / "data" / "heights.db"));

    osg::ref_ptr<osg::Image> tile = image->createImage(TileKey(0, 1, 0));
    ASSERT_TRUE(tile);
    const std::uint32_t rgba = cxtest::rgbaAt(*tile, 128, 128);
    EXPECT_NEAR(static_cast<int>(rgba >> 24), 20, 4);
    EXPECT_NEAR(static_cast<int>((rgba >> 16) & 0xFF), 60, 4);
    EXPECT_NEAR(static_cast<int>((rgba >> 8) & 0xFF), 200, 4);
    float h = 0.0f;
    ASSERT_TRUE(heights->getHeight(116.0, 40.0, h));
    EXPECT_NEAR(h, 321.0, 0.05);
}

TEST(EarthFile, RelativePathsFromAnotherWorkingDirectory)
{
    cxtest::TempDir dir;
    makeImagery(dir.path() / "data" / "base" / "image.db");
    const auto earth = dir.write("myselftest/china-simple.earth",
                                 "<map name='m' type='geocentric' version='2'>"
                                 "<image name='base' driver='mbtiles'><url>../data/base/image.db</url></image>"
                                 "</map>");
    cxtest::TempDir elsewhere(true); // the working directory is somewhere else
    osg::ref_ptr<MapNode> node = readMap(earth);
    ASSERT_TRUE(node);
    auto* image = dynamic_cast<ImageLayer*>(node->getMap()->getLayerAt(0).get());
    ASSERT_TRUE(image);
    EXPECT_TRUE(image->createImage(TileKey(0, 0, 0)));

    // A relative earth file name, read from its folder.
    std::filesystem::current_path(dir.path());
    osg::ref_ptr<MapNode> relative = readMap("myselftest/china-simple.earth");
    ASSERT_TRUE(relative);
    std::filesystem::current_path(elsewhere.path());
    auto* again = dynamic_cast<ImageLayer*>(relative->getMap()->getLayerAt(0).get());
    ASSERT_TRUE(again);
    EXPECT_TRUE(again->createImage(TileKey(0, 0, 0))) << again->getStatusMessage();
}

TEST(EarthFile, Utf8Paths)
{
    cxtest::TempDir dir;
    const std::filesystem::path base = dir.path() / u8"三维地球" / u8"北京 数据";
    makeImagery(base / "data" / u8"影像.db");
    makeHeights(base / "data" / u8"高程.db", 44.5);
    const auto earth = dir.write(std::string(u8"三维地球/北京 数据/") + u8"中国.earth",
                                 std::string("<map name='") + u8"中国" + "' type='geocentric' version='2'>"
                                 "<image name='" + u8"影像" + "' driver='mbtiles'><url>data/" + u8"影像.db" + "</url></image>"
                                 "<elevation name='dem' driver='mbtiles'><url>data/" + u8"高程.db" + "</url></elevation>"
                                 "</map>");
    osg::ref_ptr<MapNode> node = readMap(earth);
    ASSERT_TRUE(node);
    EXPECT_EQ(node->getName(), u8"中国");
    ASSERT_EQ(node->getMap()->getNumLayers(), 2u);
    auto* image = dynamic_cast<ImageLayer*>(node->getMap()->getLayerAt(0).get());
    ASSERT_TRUE(image);
    EXPECT_EQ(image->getName(), u8"影像");
    EXPECT_TRUE(image->createImage(TileKey(0, 0, 0))) << image->getStatusMessage();
    double h = 0.0;
    ASSERT_TRUE(node->getMap()->getElevation(10.0, 10.0, h));
    EXPECT_NEAR(h, 44.5, 0.05);
}

TEST(EarthFile, NoLayersIsAValidEmptyMap)
{
    cxtest::TempDir dir;
    const auto earth = dir.write("empty.earth", "<map name=\"empty\" type=\"geocentric\" version=\"2\"/>");
    osg::ref_ptr<MapNode> node = readMap(earth);
    ASSERT_TRUE(node);
    EXPECT_EQ(node->getMap()->getNumLayers(), 0u);
    EXPECT_TRUE(node->getEllipsoidModel()->isWGS84());

    // No type at all is a globe too.
    osg::ref_ptr<MapNode> untyped = readMap(dir.write("untyped.earth", "<map/>"));
    ASSERT_TRUE(untyped);
    EXPECT_EQ(untyped->getMap()->getNumLayers(), 0u);
}

TEST(EarthFile, LayersWithMissingFilesAreStillInserted)
{
    cxtest::TempDir dir;
    const auto earth = dir.write("missing.earth",
                                 "<map type='geocentric' version='2'>"
                                 "<image name='a' driver='mbtiles'><url>nowhere/image.db</url></image>"
                                 "<elevation name='b' driver='mbtiles'><filename>nowhere/dem.db</filename></elevation>"
                                 "<image name='c' driver='gdal'><url>world.tif</url></image>"
                                 "</map>");
    osg::ref_ptr<MapNode> node = readMap(earth);
    ASSERT_TRUE(node);
    ASSERT_EQ(node->getMap()->getNumLayers(), 3u);
    auto* image = dynamic_cast<ImageLayer*>(node->getMap()->getLayerAt(0).get());
    ASSERT_TRUE(image);
    EXPECT_FALSE(image->createImage(TileKey(0, 0, 0)));
    EXPECT_FALSE(image->getStatusMessage().empty());
    auto* other = dynamic_cast<ImageLayer*>(node->getMap()->getLayerAt(2).get());
    ASSERT_TRUE(other);
    EXPECT_FALSE(other->createImage(TileKey(0, 0, 0)));
    EXPECT_NE(other->getStatusMessage().find("gdal"), std::string::npos) << other->getStatusMessage();
}

TEST(EarthFile, LayerOptionsFromElementsAndAttributes)
{
    cxtest::TempDir dir;
    makeHeights(dir.path() / "t.db", 1500.25, true);
    makeImagery(dir.path() / "url.db");
    const auto earth = dir.write("options.earth",
                                 "<MAP Type='Geocentric'>"
                                 "<Elevation Name='t' Driver='MBTiles'>"
                                 "  <url> t.db </url><elevation_encoding>terrarium</elevation_encoding>"
                                 "  <compute_levels>false</compute_levels>"
                                 "</Elevation>"
                                 "<image name='both' driver='mbtiles' enabled='false'>"
                                 "  <url>url.db</url><filename>filename.db</filename>"
                                 "</image>"
                                 "</MAP>");
    osg::ref_ptr<MapNode> node = readMap(earth);
    ASSERT_TRUE(node);
    ASSERT_EQ(node->getMap()->getNumLayers(), 2u);
    auto* heights = dynamic_cast<ElevationLayer*>(node->getMap()->getLayerAt(0).get());
    ASSERT_TRUE(heights);
    EXPECT_EQ(heights->options().driver().elevationEncoding().value_or(""), "terrarium");
    EXPECT_FALSE(heights->options().driver().getComputeLevels());
    float h = 0.0f;
    ASSERT_TRUE(heights->getHeight(0.0, 0.0, h));
    EXPECT_NEAR(h, 1500.25, 1.0 / 256.0);

    auto* image = dynamic_cast<ImageLayer*>(node->getMap()->getLayerAt(1).get());
    ASSERT_TRUE(image);
    EXPECT_FALSE(image->getEnabled());
    // "url" is read after "filename" and wins.
    EXPECT_EQ(std::filesystem::path(image->options().driver().getFilename()).filename(), "url.db");
}

TEST(EarthFile, MissingFileGivesNoNode)
{
    cxtest::TempDir dir;
    EXPECT_FALSE(osgDB::readNodeFile((dir.path() / "absent.earth").string()));
    EXPECT_FALSE(osgDB::readNodeFile((dir.path() / "no" / "such" / "folder" / "x.earth").string()));
}

TEST(EarthFile, MalformedFileGivesNoNode)
{
    cxtest::TempDir dir;
    EXPECT_FALSE(osgDB::readNodeFile(dir.write("broken.earth", "<map name='x'><image></map>").string()));
    EXPECT_FALSE(osgDB::readNodeFile(dir.write("empty.earth", "").string()));
    EXPECT_FALSE(osgDB::readNodeFile(dir.write("binary.earth", std::string("\x00\x01\x02\xff\xfe", 5)).string()));
    EXPECT_FALSE(osgDB::readNodeFile(dir.write("text.earth", "just some words").string()));
}

TEST(EarthFile, NotAMapGivesNoNode)
{
    cxtest::TempDir dir;
    EXPECT_FALSE(osgDB::readNodeFile(dir.write("other.earth", "<scene><image name='a'/></scene>").string()));
    EXPECT_FALSE(osgDB::readNodeFile(dir.write("flat.earth", "<map type='projected'/>").string()));
}

TEST(EarthFile, ReadsFromAStream)
{
    cxtest::TempDir dir;
    makeImagery(dir.path() / "data" / "world.db");
    makeHeights(dir.path() / "data" / "heights.db", 5.0);
    osgDB::ReaderWriter* rw = osgDB::Registry::instance()->getReaderWriterForExtension("earth");
    ASSERT_NE(rw, nullptr);
    osg::ref_ptr<osgDB::Options> options = new osgDB::Options;
    options->getDatabasePathList().push_back(dir.path().string());
    std::istringstream in(kEarth);
    osgDB::ReaderWriter::ReadResult result = rw->readNode(in, options.get());
    osg::ref_ptr<MapNode> node = dynamic_cast<MapNode*>(result.getNode());
    ASSERT_TRUE(node);
    ASSERT_EQ(node->getMap()->getNumLayers(), 2u);
    auto* image = dynamic_cast<ImageLayer*>(node->getMap()->getLayerAt(0).get());
    ASSERT_TRUE(image);
    EXPECT_TRUE(image->createImage(TileKey(0, 0, 0)));

    std::istringstream bad("<map>");
    EXPECT_FALSE(rw->readNode(bad, options.get()).getNode());
}
