#include <globe/ElevationLayer>
#include <globe/ImageLayer>
#include <globe/Map>
#include <globe/MapNode>

#include <gtest/gtest.h>

using globe::ElevationLayer;
using globe::ImageLayer;
using globe::Map;
using globe::MapNode;
using globe::MBTilesOptions;

namespace
{
std::vector<std::string> names(const Map& map)
{
    std::vector<std::string> out;
    for (const auto& layer : map.getLayers())
        out.push_back(layer->getName());
    return out;
}
} // namespace

TEST(Map, InsertLayerShiftsTheLayersBehind)
{
    osg::ref_ptr<Map> map = new Map;
    EXPECT_EQ(map->getNumLayers(), 0u);
    const unsigned int r0 = map->getRevision();

    // Layers that came with the file.
    map->addLayer(new ImageLayer("fileImage", MBTilesOptions()));
    map->addLayer(new ElevationLayer("fileHeights", MBTilesOptions()));
    // The viewer's own layers go in front of them.
    osg::ref_ptr<ImageLayer> image = new ImageLayer("baseImage", MBTilesOptions());
    osg::ref_ptr<ElevationLayer> elevation = new ElevationLayer("GlobeHeightfield", MBTilesOptions());
    EXPECT_TRUE(map->insertLayer(image.get(), 0));
    EXPECT_TRUE(map->insertLayer(elevation.get(), 1));
    EXPECT_EQ(names(*map), (std::vector<std::string>{"baseImage", "GlobeHeightfield", "fileImage", "fileHeights"}));
    EXPECT_GT(map->getRevision(), r0);

    EXPECT_EQ(map->getLayerAt(0).get(), image.get());
    EXPECT_EQ(map->getLayerAt(4), nullptr);
    EXPECT_EQ(map->getLayerByName("GlobeHeightfield").get(), elevation.get());
    EXPECT_EQ(map->getLayerByName("nothing"), nullptr);
    EXPECT_EQ(map->getIndexOfLayer(elevation.get()), 1);

    const auto images = map->getImageLayers();
    ASSERT_EQ(images.size(), 2u);
    EXPECT_EQ(images[0]->getName(), "baseImage");
    EXPECT_EQ(images[1]->getName(), "fileImage");
    const auto heights = map->getElevationLayers();
    ASSERT_EQ(heights.size(), 2u);
    EXPECT_EQ(heights[0]->getName(), "GlobeHeightfield");

    // Past the end appends; null and duplicates are refused.
    EXPECT_TRUE(map->insertLayer(new ImageLayer("last", MBTilesOptions()), 99));
    EXPECT_EQ(map->getLayerAt(4)->getName(), "last");
    const unsigned int before = map->getRevision();
    EXPECT_FALSE(map->insertLayer(nullptr, 0));
    EXPECT_FALSE(map->insertLayer(image.get(), 3));
    EXPECT_EQ(map->getNumLayers(), 5u);
    EXPECT_EQ(map->getRevision(), before);

    EXPECT_TRUE(map->removeLayer(image.get()));
    EXPECT_FALSE(map->removeLayer(image.get()));
    EXPECT_EQ(map->getLayerAt(0)->getName(), "GlobeHeightfield");
}

TEST(Map, LayersWithoutFilesAreStillInserted)
{
    osg::ref_ptr<Map> map = new Map;
    MBTilesOptions options;
    options.setDriver("mbtiles");
    options.filename() = "/nonexistent/place/image.db";
    osg::ref_ptr<ImageLayer> layer = new ImageLayer("baseImage", options);
    layer->options().cachePolicy() = globe::CachePolicy::NO_CACHE;
    EXPECT_TRUE(map->insertLayer(layer.get(), 0));
    EXPECT_EQ(map->getNumLayers(), 1u);
    EXPECT_FALSE(layer->open());
    EXPECT_EQ(map->getNumLayers(), 1u);
}

TEST(Map, SpatialReferences)
{
    osg::ref_ptr<Map> map = new Map;
    ASSERT_NE(map->getSRS(), nullptr);
    EXPECT_TRUE(map->getSRS()->isWGS84Geographic());
    EXPECT_TRUE(map->getWorldSRS()->isWGS84Geocentric());
    EXPECT_TRUE(map->isGeocentric());
}

TEST(MapNode, DefaultIsAValidEmptyWGS84CoordinateSystemNode)
{
    osg::ref_ptr<MapNode> node = new MapNode;
    ASSERT_NE(node->getMap(), nullptr);
    EXPECT_EQ(node->getMap()->getNumLayers(), 0u);
    EXPECT_EQ(node->getNumChildren(), 0u);
    ASSERT_NE(node->getEllipsoidModel(), nullptr);
    EXPECT_TRUE(node->getEllipsoidModel()->isWGS84());
    EXPECT_EQ(node->getFormat(), "PROJ");
    EXPECT_NE(node->getCoordinateSystem().find("geocent"), std::string::npos);
    ASSERT_NE(node->getMapSRS(), nullptr);
    EXPECT_TRUE(node->getMapSRS()->isGeographic());
    EXPECT_NE(dynamic_cast<osg::CoordinateSystemNode*>(node.get()), nullptr);
    EXPECT_STREQ(node->className(), "MapNode");
    EXPECT_STREQ(node->libraryName(), "globe");
}

TEST(MapNode, WrapsAGivenMapAndClonesShareIt)
{
    osg::ref_ptr<Map> map = new Map;
    map->addLayer(new ImageLayer("a", MBTilesOptions()));
    osg::ref_ptr<MapNode> node = new MapNode(map.get());
    EXPECT_EQ(node->getMap(), map.get());
    osg::ref_ptr<MapNode> copy = dynamic_cast<MapNode*>(node->clone(osg::CopyOp::SHALLOW_COPY));
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->getMap(), map.get());
    EXPECT_TRUE(copy->getEllipsoidModel()->isWGS84());
    osg::ref_ptr<MapNode> fresh = dynamic_cast<MapNode*>(node->cloneType());
    ASSERT_TRUE(fresh);
    EXPECT_EQ(fresh->getMap()->getNumLayers(), 0u);
    osg::ref_ptr<MapNode> fromNull = new MapNode(nullptr);
    EXPECT_NE(fromNull->getMap(), nullptr);
}
