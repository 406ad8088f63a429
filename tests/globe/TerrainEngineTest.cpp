// The paged terrain without a GL context: tiles built from small MBTiles files
// made by the tests, their geometry, texture, bounds and ranges, the pseudo
// files of the pager, following the map's layer list, picking and bad input.
#include "MBTilesTestFiles.h"
#include "TempDir.h"

#include <globe/ElevationLayer>
#include <globe/HorizonCullCallback>
#include <globe/ImageLayer>
#include <globe/Map>
#include <globe/MapNode>
#include <globe/TerrainEngine>

#include <gtest/gtest.h>
#include <osg/Geometry>
#include <osg/Texture2D>
#include <osgDB/ReadFile>
#include <osgUtil/LineSegmentIntersector>
#include <osgUtil/UpdateVisitor>

#include <cfloat>
#include <cmath>

using globe::ElevationLayer;
using globe::ImageLayer;
using globe::Map;
using globe::MapNode;
using globe::MBTilesOptions;
using globe::TerrainEngine;
using globe::TileKey;

namespace
{

// One half-transparent white tile over the whole mercator world.
std::string makeVeil(const cxtest::TempDir& dir)
{
    const std::string path = (dir.path() / "veil.db").string();
    cxtest::MBTilesFile file(path);
    file.tile(0, 0, 0, cxtest::encode(*cxtest::solidImage(256, 255, 255, 255, 128), "png"));
    return path;
}

// Terrain-RGB heights at level 2 that rise eastwards across each tile.
std::string makeSlopes(const cxtest::TempDir& dir)
{
    const std::string path = (dir.path() / "slopes.db").string();
    cxtest::MBTilesFile file(path);
    for (int x = 0; x < 4; ++x)
        for (int y = 0; y < 4; ++y)
            file.tile(2, x, y, cxtest::terrainRGBTile(256, [](int c, int) { return 100.0 + 10.0 * c; }));
    return path;
}

// An engine on a map of one image layer: four colours, one per quadrant.
osg::ref_ptr<TerrainEngine> quadrantsEngine(const cxtest::TempDir& dir)
{
    osg::ref_ptr<Map> map = new Map;
    map->addLayer(new ImageLayer("colours", cxtest::mbtilesOptions(cxtest::writeQuadrants(dir.path()))));
    return new TerrainEngine(map.get());
}

osg::Geometry* geometryOf(osg::MatrixTransform* model)
{
    if (!model || model->getNumChildren() != 1)
        return nullptr;
    return dynamic_cast<osg::Geometry*>(model->getChild(0));
}

osg::Image* imageOf(osg::MatrixTransform* model)
{
    osg::Geometry* geometry = geometryOf(model);
    if (!geometry || !geometry->getStateSet())
        return nullptr;
    auto* texture = dynamic_cast<osg::Texture2D*>(
        geometry->getStateSet()->getTextureAttribute(0, osg::StateAttribute::TEXTURE));
    return texture ? texture->getImage() : nullptr;
}

// RGB of pixel (i, j) (row j from the south) of the tile's texture.
osg::Vec3i rgbAt(const osg::Image& image, int i, int j)
{
    const unsigned char* p = image.data(static_cast<unsigned int>(i), static_cast<unsigned int>(j));
    return osg::Vec3i(p[0], p[1], p[2]);
}

void update(osg::Node* node)
{
    osg::ref_ptr<osgUtil::UpdateVisitor> visitor = new osgUtil::UpdateVisitor;
    osg::ref_ptr<osg::FrameStamp> stamp = new osg::FrameStamp;
    visitor->setFrameStamp(stamp.get());
    node->accept(*visitor);
}

struct Geodetic
{
    double lon, lat, height;
};

Geodetic toGeodetic(const osg::EllipsoidModel& ellipsoid, const osg::Vec3d& world)
{
    Geodetic g{};
    ellipsoid.convertXYZToLatLongHeight(world.x(), world.y(), world.z(), g.lat, g.lon, g.height);
    g.lat = osg::RadiansToDegrees(g.lat);
    g.lon = osg::RadiansToDegrees(g.lon);
    return g;
}

} // namespace

TEST(TerrainEngine, DefaultMapNodeShowsNoTerrain)
{
    osg::ref_ptr<MapNode> node = new MapNode;
    ASSERT_NE(node->getTerrainEngine(), nullptr);
    update(node.get());
    EXPECT_FALSE(node->getTerrainEngine()->hasTerrain());
    EXPECT_EQ(node->getTerrainEngine()->getRoot(), nullptr);
    EXPECT_EQ(node->getNumChildren(), 0u);
    EXPECT_FALSE(node->getBound().valid());
    EXPECT_EQ(node->getTerrainEngine()->createTileModel(TileKey(0, 0, 0)), nullptr);
    EXPECT_EQ(node->getTerrainEngine()->getNumTilesBuilt(), 0u);
    // The terrain is not a child, yet the node asks for update traversals.
    EXPECT_GE(node->getNumChildrenRequiringUpdateTraversal(), 1u);
}

TEST(TerrainEngine, FollowsTheLayersOfTheMap)
{
    cxtest::TempDir dir;
    osg::ref_ptr<MapNode> node = new MapNode;
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    scene->addChild(node.get());
    update(scene.get());
    ASSERT_FALSE(node->getTerrainEngine()->hasTerrain());

    // A layer inserted after the node was made shows up at the next update.
    osg::ref_ptr<ImageLayer> layer =
        new ImageLayer("colours", cxtest::mbtilesOptions(cxtest::writeQuadrants(dir.path())));
    ASSERT_TRUE(node->getMap()->insertLayer(layer.get(), 0));
    update(scene.get());
    TerrainEngine* engine = node->getTerrainEngine();
    ASSERT_TRUE(engine->hasTerrain());
    osg::ref_ptr<osg::PagedLOD> root = engine->getRoot();
    ASSERT_NE(root, nullptr);
    ASSERT_EQ(root->getNumFileNames(), 1u);
    EXPECT_EQ(root->getNumChildren(), 0u) << "the pager loads the root tiles";
    EXPECT_NE(root->getFileName(0).find(".globe_terrain"), std::string::npos);
    EXPECT_NE(root->getDatabaseOptions(), nullptr);
    // The node's bound holds the whole globe.
    EXPECT_TRUE(node->getBound().valid());
    EXPECT_NEAR(node->getBound().radius(), osg::WGS_84_RADIUS_EQUATOR + 10000.0, 1.0);
    EXPECT_TRUE(scene->getBound().valid());

    // Nothing changes while the map does not.
    update(scene.get());
    EXPECT_EQ(engine->getRoot(), root.get());

    // Another layer: the terrain starts again, and the old pseudo files
    // give no tiles.
    const std::string oldName = root->getFileName(0);
    osg::ref_ptr<const osgDB::Options> oldOptions = dynamic_cast<const osgDB::Options*>(root->getDatabaseOptions());
    ASSERT_TRUE(node->getMap()->insertLayer(
        new ElevationLayer("heights", cxtest::mbtilesOptions(cxtest::writeHeightQuadrants(dir.path(), 1, 2, 3, 4))),
        1));
    update(scene.get());
    ASSERT_NE(engine->getRoot(), nullptr);
    EXPECT_NE(engine->getRoot(), root.get());
    EXPECT_NE(engine->getRoot()->getFileName(0), oldName);
    osg::ref_ptr<osg::Node> stale = osgDB::readRefNodeFile(oldName, oldOptions.get());
    ASSERT_TRUE(stale.valid());
    ASSERT_NE(stale->asGroup(), nullptr);
    EXPECT_EQ(stale->asGroup()->getNumChildren(), 0u);
    EXPECT_NE(osgDB::readRefNodeFile(engine->getRoot()->getFileName(0),
                                     dynamic_cast<const osgDB::Options*>(engine->getRoot()->getDatabaseOptions())),
              nullptr);

    // Without layers the terrain goes.
    node->getMap()->removeLayer(layer.get());
    node->getMap()->removeLayer(node->getMap()->getLayerAt(0).get());
    update(scene.get());
    EXPECT_FALSE(engine->hasTerrain());
    EXPECT_FALSE(node->getBound().valid());
}

TEST(TerrainEngine, PseudoFilesGiveTheRootTilesAndTheirChildren)
{
    cxtest::TempDir dir;
    osg::ref_ptr<TerrainEngine> engine = quadrantsEngine(dir);
    ASSERT_TRUE(engine->sync());
    EXPECT_FALSE(engine->sync());
    osg::PagedLOD* root = engine->getRoot();
    ASSERT_NE(root, nullptr);
    const auto* options = dynamic_cast<const osgDB::Options*>(root->getDatabaseOptions());

    // What the pager reads for the root: the two hemispheres.
    osg::ref_ptr<osg::Node> roots = osgDB::readRefNodeFile(root->getFileName(0), options);
    ASSERT_TRUE(roots.valid());
    osg::Group* group = roots->asGroup();
    ASSERT_NE(group, nullptr);
    ASSERT_EQ(group->getNumChildren(), 2u);
    for (unsigned int x = 0; x < 2; ++x)
    {
        auto* tile = dynamic_cast<osg::PagedLOD*>(group->getChild(x));
        ASSERT_NE(tile, nullptr);
        EXPECT_EQ(tile->getName(), TileKey(0, x, 0).str());
        ASSERT_EQ(tile->getNumChildren(), 1u);
        EXPECT_NE(dynamic_cast<osg::MatrixTransform*>(tile->getChild(0)), nullptr);
        ASSERT_EQ(tile->getNumFileNames(), 2u);
        EXPECT_TRUE(tile->getFileName(0).empty());
        EXPECT_EQ(tile->getDatabaseOptions(), root->getDatabaseOptions());
    }

    // The children of the eastern hemisphere, north-west to south-east.
    auto* east = dynamic_cast<osg::PagedLOD*>(group->getChild(1));
    osg::ref_ptr<osg::Node> children = osgDB::readRefNodeFile(east->getFileName(1), options);
    ASSERT_TRUE(children.valid());
    ASSERT_EQ(children->asGroup()->getNumChildren(), 4u);
    const TileKey expected[4] = {TileKey(1, 2, 0), TileKey(1, 3, 0), TileKey(1, 2, 1), TileKey(1, 3, 1)};
    for (unsigned int q = 0; q < 4; ++q)
        EXPECT_EQ(children->asGroup()->getChild(q)->getName(), expected[q].str());
    EXPECT_EQ(engine->getNumTilesBuilt(), 6u);
}

TEST(TerrainTile, GridWithSkirtsNormalsAndTextureCoordinatesAroundTheTileCentre)
{
    cxtest::TempDir dir;
    osg::ref_ptr<Map> map = new Map;
    map->addLayer(new ImageLayer("colours", cxtest::mbtilesOptions(cxtest::writeQuadrants(dir.path()))));
    map->addLayer(new ElevationLayer(
        "heights", cxtest::mbtilesOptions(cxtest::writeHeightQuadrants(dir.path(), 1000, 2000, 3000, 4000))));
    osg::ref_ptr<TerrainEngine> engine = new TerrainEngine(map.get());
    const osg::EllipsoidModel& ellipsoid = *engine->getEllipsoidModel();

    // 67.5..90 E, 22.5..45 N: inside the north-east quadrant, 2,000 m high.
    const TileKey key(3, 11, 2);
    osg::ref_ptr<osg::MatrixTransform> model = engine->createTileModel(key);
    ASSERT_TRUE(model.valid());
    // The centre lies over the middle of the tile, halfway between its
    // lowest and highest point: on this level ground, 2,000 m up.
    osg::Vec3d centre;
    ellipsoid.convertLatLongHeightToXYZ(osg::DegreesToRadians(key.centerLatitude()),
                                        osg::DegreesToRadians(key.centerLongitude()), 2000.0, centre.x(), centre.y(),
                                        centre.z());
    EXPECT_LT((model->getMatrix().getTrans() - centre).length(), 1e-6);
    EXPECT_TRUE(model->getMatrix().getRotate().zeroRotation());

    osg::Geometry* geometry = geometryOf(model.get());
    ASSERT_NE(geometry, nullptr);
    const auto* vertices = dynamic_cast<const osg::Vec3Array*>(geometry->getVertexArray());
    const auto* normals = dynamic_cast<const osg::Vec3Array*>(geometry->getNormalArray());
    const auto* texcoords = dynamic_cast<const osg::Vec2Array*>(geometry->getTexCoordArray(0));
    ASSERT_TRUE(vertices && normals && texcoords);
    const unsigned int n = 17, grid = n * n, skirt = 4 * (n - 1);
    ASSERT_EQ(vertices->size(), grid + skirt);
    ASSERT_EQ(normals->size(), vertices->size());
    ASSERT_EQ(texcoords->size(), vertices->size());
    EXPECT_EQ(geometry->getNormalBinding(), osg::Geometry::BIND_PER_VERTEX);
    ASSERT_EQ(geometry->getNumPrimitiveSets(), 1u);
    const auto* triangles = dynamic_cast<const osg::DrawElementsUShort*>(geometry->getPrimitiveSet(0));
    ASSERT_NE(triangles, nullptr);
    EXPECT_EQ(triangles->getMode(), static_cast<GLenum>(GL_TRIANGLES));
    ASSERT_EQ(triangles->size(), 3u * (2 * (n - 1) * (n - 1) + 2 * skirt));

    // Grid points: row r from the south, column c from the west, 2,000 m up,
    // in float relative to the centre.
    for (unsigned int r = 0; r < n; ++r)
    {
        for (unsigned int c = 0; c < n; ++c)
        {
            const unsigned int i = r * n + c;
            const Geodetic g = toGeodetic(ellipsoid, osg::Vec3d((*vertices)[i]) + centre);
            EXPECT_NEAR(g.lon, key.west() + c * key.getWidthDegrees() / (n - 1), 1e-5) << i;
            EXPECT_NEAR(g.lat, key.south() + r * key.getHeightDegrees() / (n - 1), 1e-5) << i;
            EXPECT_NEAR(g.height, 2000.0, 1.0) << i;
            EXPECT_NEAR((*normals)[i].length(), 1.0, 1e-5);
            EXPECT_FLOAT_EQ((*texcoords)[i].x(), static_cast<float>(c) / (n - 1));
            EXPECT_FLOAT_EQ((*texcoords)[i].y(), static_cast<float>(r) / (n - 1));
        }
    }
    // On level ground the normals are the ellipsoid's.
    const unsigned int middle = (n / 2) * n + n / 2;
    osg::Vec3d up = ellipsoid.computeLocalUpVector(centre.x(), centre.y(), centre.z());
    EXPECT_GT(osg::Vec3d((*normals)[middle]) * up, 0.99999);

    // Skirt points hang below border points: same place, lower down.
    const double skirtDepth = 0.05 * osg::DegreesToRadians(key.getHeightDegrees()) * ellipsoid.getRadiusPolar();
    for (unsigned int k = grid; k < vertices->size(); ++k)
    {
        const Geodetic g = toGeodetic(ellipsoid, osg::Vec3d((*vertices)[k]) + centre);
        EXPECT_NEAR(g.height, 2000.0 - skirtDepth, 2.0) << k;
        const bool onBorder = std::fabs(g.lon - key.west()) < 1e-5 || std::fabs(g.lon - key.east()) < 1e-5
                              || std::fabs(g.lat - key.south()) < 1e-5 || std::fabs(g.lat - key.north()) < 1e-5;
        EXPECT_TRUE(onBorder) << k;
    }

    // Every triangle faces outwards: the grid up into the sky, the skirts
    // away from the tile.
    for (std::size_t t = 0; t < triangles->size(); t += 3)
    {
        const osg::Vec3d a = (*vertices)[(*triangles)[t]], b = (*vertices)[(*triangles)[t + 1]],
                         c = (*vertices)[(*triangles)[t + 2]];
        const osg::Vec3d face = (b - a) ^ (c - a);
        if (t < 3u * 2 * (n - 1) * (n - 1))
        {
            EXPECT_GT(face * up, 0.0) << "grid triangle " << t / 3;
        }
        else
        {
            osg::Vec3d outwards = (a + b + c) / 3.0;
            outwards -= up * (outwards * up);
            EXPECT_GT(face * outwards, 0.0) << "skirt triangle " << t / 3;
        }
    }

    // The texture: mipmapped, clamped, the green of the quadrant.
    osg::Image* image = imageOf(model.get());
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->s(), 256);
    EXPECT_EQ(image->t(), 256);
    auto* texture = dynamic_cast<osg::Texture2D*>(
        geometry->getStateSet()->getTextureAttribute(0, osg::StateAttribute::TEXTURE));
    EXPECT_EQ(texture->getFilter(osg::Texture::MIN_FILTER), osg::Texture::LINEAR_MIPMAP_LINEAR);
    EXPECT_EQ(texture->getFilter(osg::Texture::MAG_FILTER), osg::Texture::LINEAR);
    EXPECT_EQ(texture->getWrap(osg::Texture::WRAP_S), osg::Texture::CLAMP_TO_EDGE);
    EXPECT_EQ(texture->getWrap(osg::Texture::WRAP_T), osg::Texture::CLAMP_TO_EDGE);
    EXPECT_EQ(rgbAt(*image, 0, 0), osg::Vec3i(0, 255, 0));
    EXPECT_EQ(rgbAt(*image, 128, 128), osg::Vec3i(0, 255, 0));
    EXPECT_EQ(rgbAt(*image, 255, 255), osg::Vec3i(0, 255, 0));
}

TEST(TerrainTile, ImageLayersCompositeInMapOrderOverTheBaseColour)
{
    cxtest::TempDir dir;
    const std::string quadrants = cxtest::writeQuadrants(dir.path());
    const std::string veil = makeVeil(dir);
    const TileKey key(3, 11, 2); // green

    // The veil over the colours: half white.
    osg::ref_ptr<Map> over = new Map;
    over->addLayer(new ImageLayer("colours", cxtest::mbtilesOptions(quadrants)));
    over->addLayer(new ImageLayer("veil", cxtest::mbtilesOptions(veil)));
    osg::ref_ptr<osg::MatrixTransform> veiled =
        osg::ref_ptr<TerrainEngine>(new TerrainEngine(over.get()))->createTileModel(key);
    ASSERT_NE(imageOf(veiled.get()), nullptr);
    const osg::Vec3i blend = rgbAt(*imageOf(veiled.get()), 100, 100);
    EXPECT_NEAR(blend.x(), 128, 2);
    EXPECT_NEAR(blend.y(), 255, 1);
    EXPECT_NEAR(blend.z(), 128, 2);

    // The colours over the veil: the opaque layer hides it.
    osg::ref_ptr<Map> under = new Map;
    under->addLayer(new ImageLayer("veil", cxtest::mbtilesOptions(veil)));
    under->addLayer(new ImageLayer("colours", cxtest::mbtilesOptions(quadrants)));
    osg::ref_ptr<osg::MatrixTransform> plain =
        osg::ref_ptr<TerrainEngine>(new TerrainEngine(under.get()))->createTileModel(key);
    EXPECT_EQ(rgbAt(*imageOf(plain.get()), 100, 100), osg::Vec3i(0, 255, 0));

    // The veil alone lightens the ocean base colour.
    osg::ref_ptr<Map> alone = new Map;
    alone->addLayer(new ImageLayer("veil", cxtest::mbtilesOptions(veil)));
    osg::ref_ptr<osg::MatrixTransform> sea =
        osg::ref_ptr<TerrainEngine>(new TerrainEngine(alone.get()))->createTileModel(key);
    const osg::Vec3i lightened = rgbAt(*imageOf(sea.get()), 100, 100);
    EXPECT_GT(lightened.z(), lightened.x());
    EXPECT_GT(lightened.x(), 120);

    // A disabled layer adds nothing.
    over->getLayerAt(1)->setEnabled(false);
    osg::ref_ptr<osg::MatrixTransform> unveiled =
        osg::ref_ptr<TerrainEngine>(new TerrainEngine(over.get()))->createTileModel(key);
    EXPECT_EQ(rgbAt(*imageOf(unveiled.get()), 100, 100), osg::Vec3i(0, 255, 0));
}

TEST(TerrainTile, TilesAtThePolesStopShortOfTheCoarsestMipmapsWithoutAnisotropy)
{
    cxtest::TempDir dir;
    osg::ref_ptr<TerrainEngine> engine = quadrantsEngine(dir);
    auto textureOf = [&](const TileKey& key) -> osg::ref_ptr<osg::Texture2D> {
        osg::ref_ptr<osg::MatrixTransform> model = engine->createTileModel(key);
        osg::Geometry* geometry = geometryOf(model.get());
        if (!geometry || !geometry->getStateSet())
            return nullptr;
        return dynamic_cast<osg::Texture2D*>(geometry->getStateSet()->getTextureAttribute(0, osg::StateAttribute::TEXTURE));
    };
    // Level 3 has rows 0 (touching the South Pole) to 7 (the North Pole).
    for (const TileKey& key : {TileKey(3, 5, 0), TileKey(3, 9, 7), TileKey(0, 1, 0)})
    {
        osg::ref_ptr<osg::Texture2D> texture = textureOf(key);
        ASSERT_TRUE(texture.valid()) << key.str();
        EXPECT_EQ(texture->getFilter(osg::Texture::MIN_FILTER), osg::Texture::LINEAR_MIPMAP_LINEAR) << key.str();
        EXPECT_EQ(texture->getMaxLOD(), 2.0f) << key.str();
        // Mesa's llvmpipe hangs sampling the unbounded footprints at a pole
        // with anisotropic filtering.
        EXPECT_EQ(texture->getMaxAnisotropy(), 1.0f) << key.str();
    }
    osg::ref_ptr<osg::Texture2D> inner = textureOf(TileKey(3, 5, 3));
    ASSERT_TRUE(inner.valid());
    EXPECT_EQ(inner->getMaxLOD(), osg::ref_ptr<osg::Texture2D>(new osg::Texture2D)->getMaxLOD());
    EXPECT_EQ(inner->getMaxAnisotropy(), 1.0f);
}

TEST(TerrainTile, BeyondTheImageryTheArcticIsOceanAndAntarcticaIce)
{
    cxtest::TempDir dir;
    osg::ref_ptr<TerrainEngine> engine = quadrantsEngine(dir);
    // The eastern hemisphere: green and yellow between 85.05 N and S, ocean
    // around the North Pole, ice around the South Pole.
    osg::ref_ptr<osg::MatrixTransform> east = engine->createTileModel(TileKey(0, 1, 0));
    osg::Image* image = imageOf(east.get());
    ASSERT_NE(image, nullptr);
    const osg::Vec3i north = rgbAt(*image, 128, 255); // 89.6 N
    const osg::Vec3i middle = rgbAt(*image, 128, 200); // 50.3 N
    const osg::Vec3i south = rgbAt(*image, 128, 0);    // 89.6 S
    EXPECT_GT(north.z(), north.x() + 40);
    EXPECT_GT(north.z(), north.y() + 30);
    EXPECT_EQ(middle, osg::Vec3i(0, 255, 0));
    EXPECT_GT(south.x(), 220);
    EXPECT_GT(south.y(), 220);
    EXPECT_GT(south.z(), 220);

    // Heights only: ocean all over, ice over Antarctica.
    osg::ref_ptr<Map> bare = new Map;
    bare->addLayer(
        new ElevationLayer("heights", cxtest::mbtilesOptions(cxtest::writeHeightQuadrants(dir.path(), 1, 2, 3, 4))));
    osg::ref_ptr<osg::MatrixTransform> ocean =
        osg::ref_ptr<TerrainEngine>(new TerrainEngine(bare.get()))->createTileModel(TileKey(0, 0, 0));
    osg::Image* oceanImage = imageOf(ocean.get());
    ASSERT_NE(oceanImage, nullptr);
    const osg::Vec3i equator = rgbAt(*oceanImage, 10, 128);
    EXPECT_GT(equator.z(), equator.x() + 40);
    EXPECT_GT(equator.z(), equator.y() + 30);
    EXPECT_EQ(rgbAt(*oceanImage, 10, 255), equator); // 89.6 N: the Arctic Ocean
    EXPECT_EQ(rgbAt(*oceanImage, 10, 72), equator);  // 39.0 S
    EXPECT_GT(rgbAt(*oceanImage, 10, 0).x(), 220);   // 89.6 S: the ice sheet
    EXPECT_GT(rgbAt(*oceanImage, 10, 20).x(), 220);  // 75.6 S
}

TEST(TerrainTile, BoundsHoldTheSkirtsAndRangesFollowTheTileSize)
{
    cxtest::TempDir dir;
    osg::ref_ptr<Map> map = new Map;
    map->addLayer(new ElevationLayer(
        "heights", cxtest::mbtilesOptions(cxtest::writeHeightQuadrants(dir.path(), 8000, -400, 3000, 100))));
    osg::ref_ptr<TerrainEngine> engine = new TerrainEngine(map.get());

    double previousRadius = DBL_MAX;
    for (const TileKey& key : {TileKey(0, 1, 0), TileKey(1, 2, 0), TileKey(4, 20, 5), TileKey(7, 150, 37)})
    {
        osg::ref_ptr<osg::Node> node = engine->createTileNode(key);
        auto* tile = dynamic_cast<osg::PagedLOD*>(node.get());
        ASSERT_NE(tile, nullptr) << key.str();
        auto* model = dynamic_cast<osg::MatrixTransform*>(tile->getChild(0));
        ASSERT_NE(model, nullptr);
        EXPECT_EQ(tile->getCenterMode(), osg::LOD::USER_DEFINED_CENTER);
        EXPECT_LT((tile->getCenter() - model->getMatrix().getTrans()).length(), 1e-3);
        const double radius = tile->getRadius();
        EXPECT_LT(radius, previousRadius);
        previousRadius = radius;

        // All vertices, skirts included, lie within the paged node's sphere
        // and the model's own bound.
        const auto* vertices = dynamic_cast<const osg::Vec3Array*>(geometryOf(model)->getVertexArray());
        double farthest = 0.0;
        for (const osg::Vec3& v : *vertices)
            farthest = std::max(farthest, (osg::Vec3d(v) + model->getMatrix().getTrans() - tile->getCenter()).length());
        EXPECT_LE(farthest, radius) << key.str();
        EXPECT_GE(farthest, radius * 0.8) << key.str();
        EXPECT_TRUE(tile->getBound().contains(osg::Vec3(model->getBound().center()) ));

        // Closer than six times the farthest vertex's distance from the
        // centre the children replace the tile.
        ASSERT_EQ(tile->getRangeList().size(), 2u);
        const float split = tile->getMinRange(0);
        EXPECT_NEAR(split, farthest * 6.0, farthest * 6.0 * 1e-5);
        EXPECT_EQ(tile->getMaxRange(0), FLT_MAX);
        EXPECT_EQ(tile->getMinRange(1), 0.0f);
        EXPECT_EQ(tile->getMaxRange(1), split);
        EXPECT_FALSE(tile->getFileName(1).empty());
    }

    // The data (level 1, 64 pixels a tile) are far coarser than level 8,
    // whose grid follows the ellipsoid within a metre: tiles stop there.
    EXPECT_NE(dynamic_cast<osg::PagedLOD*>(engine->createTileNode(TileKey(7, 150, 37)).get()), nullptr);
    EXPECT_EQ(dynamic_cast<osg::PagedLOD*>(engine->createTileNode(TileKey(8, 300, 75)).get()), nullptr);

    // At the deepest level a tile has no children.
    engine->setMaxLevel(4);
    osg::ref_ptr<osg::Node> deepest = engine->createTileNode(TileKey(4, 20, 5));
    EXPECT_EQ(dynamic_cast<osg::PagedLOD*>(deepest.get()), nullptr);
    EXPECT_NE(dynamic_cast<osg::MatrixTransform*>(deepest.get()), nullptr);
    EXPECT_NE(dynamic_cast<osg::PagedLOD*>(engine->createTileNode(TileKey(3, 10, 2)).get()), nullptr);
}

TEST(TerrainTile, PickedGroundHasTheHeightOfTheElevationData)
{
    cxtest::TempDir dir;
    osg::ref_ptr<Map> map = new Map;
    osg::ref_ptr<ElevationLayer> dem = new ElevationLayer("slopes", cxtest::mbtilesOptions(makeSlopes(dir)));
    map->addLayer(dem.get());
    osg::ref_ptr<TerrainEngine> engine = new TerrainEngine(map.get());
    const osg::EllipsoidModel& ellipsoid = *engine->getEllipsoidModel();

    for (const auto& [lon, lat] : {std::pair{116.39, 39.91}, {-70.3, -33.1}, {12.34, 56.78}})
    {
        for (unsigned int level : {8u, 12u})
        {
            const TileKey key = TileKey::fromLonLat(lon, lat, level);
            osg::ref_ptr<osg::MatrixTransform> model = engine->createTileModel(key);
            ASSERT_TRUE(model.valid());
            osg::Vec3d top, bottom;
            ellipsoid.convertLatLongHeightToXYZ(osg::DegreesToRadians(lat), osg::DegreesToRadians(lon), 20000.0,
                                                top.x(), top.y(), top.z());
            ellipsoid.convertLatLongHeightToXYZ(osg::DegreesToRadians(lat), osg::DegreesToRadians(lon), -1000.0,
                                                bottom.x(), bottom.y(), bottom.z());
            osg::ref_ptr<osgUtil::LineSegmentIntersector> picker = new osgUtil::LineSegmentIntersector(top, bottom);
            osgUtil::IntersectionVisitor visitor(picker.get());
            model->accept(visitor);
            ASSERT_TRUE(picker->containsIntersections()) << lon << ", " << lat << " level " << level;
            const Geodetic g = toGeodetic(ellipsoid, picker->getFirstIntersection().getWorldIntersectPoint());
            float expected = 0.0f;
            ASSERT_TRUE(dem->getHeight(lon, lat, expected));
            EXPECT_NEAR(g.lon, lon, 1e-6);
            EXPECT_NEAR(g.lat, lat, 1e-6);
            EXPECT_NEAR(g.height, expected, level >= 12 ? 0.5 : 5.0) << lon << ", " << lat << " level " << level;
        }
    }
}

TEST(TerrainTile, MissingFilesAndBadKeysGiveClearOutcomes)
{
    cxtest::TempDir dir;
    osg::ref_ptr<Map> map = new Map;
    map->addLayer(new ImageLayer("gone", cxtest::mbtilesOptions((dir.path() / "missing.db").string())));
    map->addLayer(new ElevationLayer("gone too", cxtest::mbtilesOptions((dir.path() / "missing-dem.db").string())));
    osg::ref_ptr<TerrainEngine> engine = new TerrainEngine(map.get());

    // Layers without data: the tile still builds, on the ellipsoid, in the
    // base colour.
    osg::ref_ptr<osg::MatrixTransform> model = engine->createTileModel(TileKey(2, 3, 1));
    ASSERT_TRUE(model.valid());
    const auto* vertices = dynamic_cast<const osg::Vec3Array*>(geometryOf(model.get())->getVertexArray());
    const Geodetic g =
        toGeodetic(*engine->getEllipsoidModel(), osg::Vec3d((*vertices)[0]) + model->getMatrix().getTrans());
    EXPECT_NEAR(g.height, 0.0, 0.5); // float vertices 2,000 km from the tile centre
    const osg::Vec3i colour = rgbAt(*imageOf(model.get()), 128, 128);
    EXPECT_GT(colour.z(), colour.x());

    EXPECT_EQ(engine->createTileModel(TileKey()), nullptr);
    EXPECT_EQ(engine->createTileNode(TileKey(40, 0, 0)), nullptr);

    // Names the reader does not know, or without their terrain, read as
    // errors, not crashes.
    ASSERT_TRUE(engine->sync());
    const auto* options = dynamic_cast<const osgDB::Options*>(engine->getRoot()->getDatabaseOptions());
    for (const std::string name : {"x.globe_terrain", "1.roots.globe_terrain", "7.2_1.globe_terrain",
                                   "7.2_9_9.globe_terrain", "7.-1_0_0.globe_terrain", "7.2_1_1x.globe_terrain",
                                   "99999999999999999999.roots.globe_terrain"})
        EXPECT_EQ(osgDB::readRefNodeFile(name, options), nullptr) << name;
    EXPECT_EQ(osgDB::readRefNodeFile(engine->getRoot()->getFileName(0), nullptr), nullptr);
    EXPECT_NE(osgDB::readRefNodeFile(engine->getRoot()->getFileName(0), options), nullptr);
}

TEST(TerrainEngine, SettingsAreClampedAndRebuildTheTiles)
{
    cxtest::TempDir dir;
    osg::ref_ptr<TerrainEngine> engine = quadrantsEngine(dir);
    EXPECT_EQ(engine->getTileGridSize(), 17u);
    EXPECT_EQ(engine->getImageSize(), 256u);
    EXPECT_EQ(engine->getMaxLevel(), 19u);
    EXPECT_EQ(engine->getRangeFactor(), 6.0);
    EXPECT_EQ(engine->getSkirtRatio(), 0.05);

    engine->setTileGridSize(1);
    EXPECT_EQ(engine->getTileGridSize(), 2u);
    engine->setTileGridSize(100000);
    EXPECT_EQ(engine->getTileGridSize(), 129u);
    engine->setImageSize(0);
    EXPECT_EQ(engine->getImageSize(), 1u);
    engine->setMaxLevel(99);
    EXPECT_EQ(engine->getMaxLevel(), TileKey::MAX_LEVEL);
    engine->setRangeFactor(0.2);
    EXPECT_EQ(engine->getRangeFactor(), 1.0);
    engine->setRangeFactor(std::nan(""));
    EXPECT_EQ(engine->getRangeFactor(), 6.0);
    engine->setSkirtRatio(-1.0);
    EXPECT_EQ(engine->getSkirtRatio(), 0.0);

    ASSERT_TRUE(engine->sync());
    osg::ref_ptr<osg::PagedLOD> first = engine->getRoot();
    engine->setTileGridSize(9);
    engine->setImageSize(64);
    ASSERT_TRUE(engine->sync());
    EXPECT_NE(engine->getRoot(), first.get());
    osg::ref_ptr<osg::MatrixTransform> model = engine->createTileModel(TileKey(4, 22, 4));
    EXPECT_EQ(geometryOf(model.get())->getVertexArray()->getNumElements(), 81u + 32u);
    EXPECT_EQ(imageOf(model.get())->s(), 64);
}

TEST(TerrainEngine, TilesCarryTheHorizonCullingUnlessItIsOff)
{
    cxtest::TempDir dir;
    osg::ref_ptr<TerrainEngine> engine = quadrantsEngine(dir);
    EXPECT_TRUE(engine->getHorizonCulling());
    ASSERT_TRUE(engine->sync());

    // Every paged tile and every tile of the deepest level carries it; one
    // callback serves them all.
    osg::ref_ptr<osg::Node> tile = engine->createTileNode(TileKey(3, 5, 2));
    ASSERT_TRUE(tile.valid());
    auto* cull = dynamic_cast<globe::HorizonCullCallback*>(tile->getCullCallback());
    ASSERT_NE(cull, nullptr);
    EXPECT_EQ(engine->createTileNode(TileKey(3, 6, 2))->getCullCallback(), cull);
    engine->setMaxLevel(3);
    ASSERT_TRUE(engine->sync());
    osg::ref_ptr<osg::Node> leaf = engine->createTileNode(TileKey(3, 5, 2));
    ASSERT_NE(dynamic_cast<osg::MatrixTransform*>(leaf.get()), nullptr);
    EXPECT_NE(dynamic_cast<globe::HorizonCullCallback*>(leaf->getCullCallback()), nullptr);

    // Switching it off rebuilds the terrain with bare tiles.
    osg::ref_ptr<osg::PagedLOD> first = engine->getRoot();
    engine->setHorizonCulling(false);
    EXPECT_FALSE(engine->getHorizonCulling());
    ASSERT_TRUE(engine->sync());
    EXPECT_NE(engine->getRoot(), first.get());
    EXPECT_EQ(engine->createTileNode(TileKey(3, 5, 2))->getCullCallback(), nullptr);
    EXPECT_EQ(engine->createTileNode(TileKey(2, 5, 2))->getCullCallback(), nullptr);
}

TEST(TerrainEngine, ClonesShareTheMapButBuildTheirOwnTiles)
{
    cxtest::TempDir dir;
    osg::ref_ptr<MapNode> node = new MapNode;
    node->getMap()->addLayer(new ImageLayer("colours", cxtest::mbtilesOptions(cxtest::writeQuadrants(dir.path()))));
    osg::ref_ptr<MapNode> copy = dynamic_cast<MapNode*>(node->clone(osg::CopyOp::SHALLOW_COPY));
    ASSERT_TRUE(copy.valid());
    EXPECT_EQ(copy->getMap(), node->getMap());
    EXPECT_NE(copy->getTerrainEngine(), node->getTerrainEngine());
    update(node.get());
    update(copy.get());
    ASSERT_TRUE(node->getTerrainEngine()->hasTerrain());
    ASSERT_TRUE(copy->getTerrainEngine()->hasTerrain());
    EXPECT_NE(node->getTerrainEngine()->getRoot()->getFileName(0), copy->getTerrainEngine()->getRoot()->getFileName(0));
}

TEST(TerrainTile, LargeTilesGetFinerGridsSoThatTheyHugTheEllipsoid)
{
    cxtest::TempDir dir;
    osg::ref_ptr<TerrainEngine> engine = quadrantsEngine(dir);
    const osg::EllipsoidModel& ellipsoid = *engine->getEllipsoidModel();

    // Cells of at most 180 / 128 degrees: 129, 65 and 33 points on levels
    // 0 to 2, the usual 17 from level 3 on.
    const unsigned int expected[] = {129, 65, 33, 17, 17};
    for (unsigned int level = 0; level < 5; ++level)
    {
        osg::ref_ptr<osg::MatrixTransform> model = engine->createTileModel(TileKey::fromLonLat(100.0, 30.0, level));
        ASSERT_TRUE(model.valid());
        const unsigned int n = expected[level];
        EXPECT_EQ(geometryOf(model.get())->getVertexArray()->getNumElements(), n * n + 4 * (n - 1)) << level;
    }

    // Flat ground: between the grid points of a root tile the surface stays
    // within a kilometre of the ellipsoid (not 30 km, as with 17 points).
    osg::ref_ptr<osg::MatrixTransform> root = engine->createTileModel(TileKey(0, 1, 0));
    for (double lon = 0.7; lon < 180.0; lon += 13.3)
    {
        for (double lat = -80.3; lat < 85.0; lat += 11.1)
        {
            osg::Vec3d top, bottom;
            ellipsoid.convertLatLongHeightToXYZ(osg::DegreesToRadians(lat), osg::DegreesToRadians(lon), 10000.0,
                                                top.x(), top.y(), top.z());
            ellipsoid.convertLatLongHeightToXYZ(osg::DegreesToRadians(lat), osg::DegreesToRadians(lon), -10000.0,
                                                bottom.x(), bottom.y(), bottom.z());
            osg::ref_ptr<osgUtil::LineSegmentIntersector> picker = new osgUtil::LineSegmentIntersector(top, bottom);
            osgUtil::IntersectionVisitor visitor(picker.get());
            root->accept(visitor);
            ASSERT_TRUE(picker->containsIntersections()) << lon << ", " << lat;
            const Geodetic g = toGeodetic(ellipsoid, picker->getFirstIntersection().getWorldIntersectPoint());
            EXPECT_GT(g.height, -1000.0) << lon << ", " << lat;
            EXPECT_LT(g.height, 1.0) << lon << ", " << lat;
        }
    }
}

TEST(TerrainTile, SkirtsReachDownPastTheGapsToFinerNeighbours)
{
    // Steep hills (+-3 km every 100 km), levels 3 to 5 of the data around
    // 100 E, 30 N.
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "hills.db").string();
    {
        cxtest::MBTilesFile dem(path);
        for (int z = 3; z <= 5; ++z)
            for (int x = (1 << z) * 7 / 10; x <= (1 << z) * 8 / 10; ++x)
                for (int y = (1 << z) * 38 / 100; y <= (1 << z) * 45 / 100; ++y)
                {
                    const double size = 64.0 * (1 << z);
                    dem.tile(z, x, y, cxtest::terrainRGBTile(64, [&](int c, int r) {
                        const double u = (x * 64 + c + 0.5) / size, v = (y * 64 + r + 0.5) / size;
                        return 3000.0 * std::sin(u * 2600.0) * std::cos(v * 2300.0);
                    }));
                }
    }
    osg::ref_ptr<Map> map = new Map;
    map->addLayer(new ElevationLayer("hills", cxtest::mbtilesOptions(path)));
    osg::ref_ptr<TerrainEngine> engine = new TerrainEngine(map.get());
    const osg::EllipsoidModel& ellipsoid = *engine->getEllipsoidModel();

    // Heights of a tile's western border points, south to north, and the
    // depth of its skirts.
    struct Border
    {
        std::vector<Geodetic> points;
        double skirt = 0.0;
    };
    auto westBorder = [&](const TileKey& key) {
        Border border;
        osg::ref_ptr<osg::MatrixTransform> model = engine->createTileModel(key);
        const auto* vertices = dynamic_cast<const osg::Vec3Array*>(geometryOf(model.get())->getVertexArray());
        const unsigned int n = 17;
        for (unsigned int r = 0; r < n; ++r)
            border.points.push_back(
                toGeodetic(ellipsoid, osg::Vec3d((*vertices)[r * n]) + model->getMatrix().getTrans()));
        // The skirt point under the south-west corner is the last one.
        const Geodetic low = toGeodetic(ellipsoid, osg::Vec3d(vertices->back()) + model->getMatrix().getTrans());
        border.skirt = border.points.front().height - low.height;
        return border;
    };

    double worstShare = 0.0;
    for (unsigned int level = 4; level <= 11; ++level)
    {
        // A tile, and the two finer tiles east of its eastern border.
        const TileKey coarse = TileKey::fromLonLat(100.3, 30.3, level);
        const TileKey eastNeighbour(level, coarse.getTileX() + 1, coarse.getTileY());
        for (unsigned int q : {0u, 2u})
        {
            const TileKey fine = eastNeighbour.createChildKey(q);
            const Border f = westBorder(fine);
            // The coarse tile's eastern border, as a polyline in height.
            osg::ref_ptr<osg::MatrixTransform> model = engine->createTileModel(coarse);
            const auto* vertices = dynamic_cast<const osg::Vec3Array*>(geometryOf(model.get())->getVertexArray());
            std::vector<Geodetic> east;
            for (unsigned int r = 0; r < 17; ++r)
                east.push_back(
                    toGeodetic(ellipsoid, osg::Vec3d((*vertices)[r * 17 + 16]) + model->getMatrix().getTrans()));
            const double coarseSkirt = westBorder(coarse).skirt;
            for (const Geodetic& p : f.points)
            {
                // The coarse border's height at the fine point's latitude.
                const double t = (p.lat - coarse.south()) / coarse.getHeightDegrees() * 16.0;
                const unsigned int i = std::min(15u, static_cast<unsigned int>(std::max(0.0, std::floor(t))));
                const double h = east[i].height + (east[i + 1].height - east[i].height) * (t - i);
                const double gap = std::fabs(p.height - h);
                EXPECT_LT(gap, f.skirt) << "level " << level << " at " << p.lat;
                EXPECT_LT(gap, coarseSkirt) << "level " << level << " at " << p.lat;
                worstShare = std::max(worstShare, gap / std::min(f.skirt, coarseSkirt));
            }
        }
    }
    std::printf("largest gap: %.0f %% of the skirt depth\n", worstShare * 100.0);
}

TEST(TerrainTile, TilesOnHighGroundAreSizedByTheirOwnExtentNotTheirHeight)
{
    // A plateau 8,000 m high over a whole quadrant, sea level in another,
    // and imagery fine enough (one level-14 tile) to refine deep.
    cxtest::TempDir dir;
    const std::string finePath = (dir.path() / "fine.db").string();
    {
        cxtest::MBTilesFile file(finePath);
        file.tile(14, 0, 0, cxtest::encode(*cxtest::solidImage(256, 255, 255, 255), "png"));
    }
    osg::ref_ptr<Map> map = new Map;
    map->addLayer(new ImageLayer("fine", cxtest::mbtilesOptions(finePath)));
    map->addLayer(new ElevationLayer(
        "heights", cxtest::mbtilesOptions(cxtest::writeHeightQuadrants(dir.path(), 8000, 0, 0, 0))));
    osg::ref_ptr<TerrainEngine> engine = new TerrainEngine(map.get());
    const osg::EllipsoidModel& ellipsoid = *engine->getEllipsoidModel();

    // Level-12 tiles (4.9 km north to south) at 40 N, on the plateau (the
    // north-west quadrant) and at sea level (the north-east one).
    osg::ref_ptr<osg::Node> highNode = engine->createTileNode(TileKey::fromLonLat(-120.0, 40.0, 12));
    osg::ref_ptr<osg::Node> lowNode = engine->createTileNode(TileKey::fromLonLat(60.0, 40.0, 12));
    auto* high = dynamic_cast<osg::PagedLOD*>(highNode.get());
    auto* low = dynamic_cast<osg::PagedLOD*>(lowNode.get());
    ASSERT_NE(high, nullptr);
    ASSERT_NE(low, nullptr);
    // The centre lies in the tile, 8,000 m up on the plateau...
    const Geodetic centre = toGeodetic(ellipsoid, high->getCenter());
    EXPECT_NEAR(centre.height, 8000.0, 1.0);
    // ... so the plateau's tile splits where the sea-level one does, at six
    // times its half diagonal (3.1 km), not at six times the plateau's height
    // (48 km), which would refine every tile within 48 km down to the
    // deepest level.
    EXPECT_NEAR(high->getMinRange(0), low->getMinRange(0), low->getMinRange(0) * 0.01);
    EXPECT_GT(high->getMinRange(0), 15000.0f);
    EXPECT_LT(high->getMinRange(0), 22000.0f);
}

TEST(TerrainTile, TilesStopRefiningWhereNoLayerHasFinerData)
{
    cxtest::TempDir dir;
    // Imagery of level 1 everywhere, and of level 12 (256-pixel tiles) in
    // the bounds of one level-12 tile near Beijing.
    const std::string coarsePath = cxtest::writeQuadrants(dir.path());
    const TileKey beijing = TileKey::fromLonLat(116.39, 39.91, 9);
    const std::string finePath = (dir.path() / "fine.db").string();
    {
        cxtest::MBTilesFile file(finePath);
        file.metadata("bounds", "116.3,39.8,116.5,40.0");
        const int x = static_cast<int>((116.39 + 180.0) / 360.0 * 4096.0);
        file.tile(12, x, 1552, cxtest::encode(*cxtest::solidImage(256, 255, 255, 255), "png"));
    }
    osg::ref_ptr<Map> map = new Map;
    map->addLayer(new ImageLayer("coarse", cxtest::mbtilesOptions(coarsePath)));
    osg::ref_ptr<TerrainEngine> coarseOnly = new TerrainEngine(map.get());

    auto refines = [](TerrainEngine* engine, const TileKey& key) {
        return dynamic_cast<osg::PagedLOD*>(engine->createTileNode(key).get()) != nullptr;
    };
    // The grid alone asks for level 8 (cells sag under a metre there).
    EXPECT_TRUE(refines(coarseOnly.get(), TileKey(7, 100, 30)));
    EXPECT_FALSE(refines(coarseOnly.get(), TileKey(8, 200, 60)));
    EXPECT_FALSE(refines(coarseOnly.get(), beijing));

    // With the fine layer: refined in its bounds, down to where two texels
    // fall on each of its pixels, and nowhere else.
    map->addLayer(new ImageLayer("fine", cxtest::mbtilesOptions(finePath)));
    osg::ref_ptr<TerrainEngine> engine = new TerrainEngine(map.get());
    EXPECT_TRUE(refines(engine.get(), beijing));
    EXPECT_FALSE(refines(engine.get(), TileKey(9, 100, 60)));
    // Mercator pixels of level 12 near 40 N span 360 / 2^20 * cos(40 N)
    // degrees; a geodetic tile of level L spans 180 / 2^L degrees in 256
    // texels: refined while 2 * 180 / 2^L / 256 > that, so up to level 12.
    EXPECT_TRUE(refines(engine.get(), TileKey::fromLonLat(116.39, 39.91, 12)));
    EXPECT_FALSE(refines(engine.get(), TileKey::fromLonLat(116.39, 39.91, 13)));
    // The deepest level of the engine still wins.
    engine->setMaxLevel(10);
    EXPECT_FALSE(refines(engine.get(), TileKey::fromLonLat(116.39, 39.91, 10)));
}

TEST(TerrainEngine, ChildrenThatCannotBeBuiltAreAnsweredWithTheParentsOwnModel)
{
    cxtest::TempDir dir;
    osg::ref_ptr<MapNode> mapNode = new MapNode;
    mapNode->getMap()->addLayer(new ImageLayer("colours", cxtest::mbtilesOptions(cxtest::writeQuadrants(dir.path()))));
    TerrainEngine* engine = mapNode->getTerrainEngine();
    engine->setMaxLevel(3);
    update(mapNode.get());
    osg::PagedLOD* root = engine->getRoot();
    ASSERT_NE(root, nullptr);
    const auto* options = dynamic_cast<const osgDB::Options*>(root->getDatabaseOptions());
    const std::string serial = root->getFileName(0).substr(0, root->getFileName(0).find('.'));

    // Children of a level-3 tile lie past the deepest level: the answer is a
    // node (so the pager does not ask again), holding the tile's own model.
    const std::string name = serial + ".3_10_2.globe_terrain";
    osgDB::ReaderWriter::ReadResult result = osgDB::Registry::instance()->readNode(name, options, false);
    ASSERT_TRUE(result.validNode()) << result.message();
    osg::Group* standIn = result.getNode()->asGroup();
    ASSERT_NE(standIn, nullptr);
    ASSERT_EQ(standIn->getNumChildren(), 1u);
    auto* model = dynamic_cast<osg::MatrixTransform*>(standIn->getChild(0));
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(model->getName(), TileKey(3, 10, 2).str());

    // A name of no terrain is an error, not a stand-in.
    EXPECT_FALSE(osgDB::Registry::instance()->readNode("99999.3_10_2.globe_terrain", options, false).validNode());
}


TEST(TerrainEngine, SurfaceHeightIsTheGroundTheFinestTileDraws)
{
    cxtest::TempDir dir;
    osg::ref_ptr<Map> map = new Map;
    map->addLayer(new ImageLayer("coarse", cxtest::mbtilesOptions(cxtest::writeQuadrants(dir.path()))));
    osg::ref_ptr<ElevationLayer> dem = new ElevationLayer("slopes", cxtest::mbtilesOptions(makeSlopes(dir)));
    map->addLayer(dem.get());
    osg::ref_ptr<TerrainEngine> engine = new TerrainEngine(map.get());
    const osg::EllipsoidModel& ellipsoid = *engine->getEllipsoidModel();

    for (const auto& [lon, lat] : {std::pair{116.39, 39.91}, {116.4137, 39.9722}, {-70.3, -33.1}, {12.34, 56.78}})
    {
        unsigned int level = 0;
        const double surface = engine->getSurfaceHeight(lon, lat, &level);
        const TileKey key = TileKey::fromLonLat(lon, lat, level);
        // The finest tile: not refined any further.
        EXPECT_EQ(dynamic_cast<osg::PagedLOD*>(engine->createTileNode(key).get()), nullptr) << level;
        ASSERT_TRUE(dynamic_cast<osg::PagedLOD*>(engine->createTileNode(key.createParentKey()).get()));

        osg::ref_ptr<osg::MatrixTransform> model = engine->createTileModel(key);
        osg::Vec3d top, bottom;
        ellipsoid.convertLatLongHeightToXYZ(osg::DegreesToRadians(lat), osg::DegreesToRadians(lon), 20000.0, top.x(),
                                            top.y(), top.z());
        ellipsoid.convertLatLongHeightToXYZ(osg::DegreesToRadians(lat), osg::DegreesToRadians(lon), -1000.0,
                                            bottom.x(), bottom.y(), bottom.z());
        osg::ref_ptr<osgUtil::LineSegmentIntersector> picker = new osgUtil::LineSegmentIntersector(top, bottom);
        osgUtil::IntersectionVisitor visitor(picker.get());
        model->accept(visitor);
        ASSERT_TRUE(picker->containsIntersections());
        const Geodetic g = toGeodetic(ellipsoid, picker->getFirstIntersection().getWorldIntersectPoint());
        // The flat triangles sag under the ellipsoid by at most a metre.
        EXPECT_NEAR(surface, g.height, 1.0) << lon << ", " << lat << " level " << level;
        EXPECT_LE(g.height, surface + 0.01) << lon << ", " << lat;
    }
    osg::ref_ptr<TerrainEngine> empty = new TerrainEngine;
    EXPECT_EQ(empty->getSurfaceHeight(116.39, 39.91), 0.0);
}
