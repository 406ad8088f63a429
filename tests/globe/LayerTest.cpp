#include "MBTilesTestFiles.h"
#include "TempDir.h"

#include <globe/ElevationLayer>
#include <globe/ImageLayer>
#include <globe/Map>

#include <gtest/gtest.h>

#include <cmath>

using globe::ElevationLayer;
using globe::ImageLayer;
using globe::MBTilesOptions;
using globe::TileKey;

namespace
{

constexpr std::uint32_t kRed = 0xFF0000FFu; // RGBA
constexpr std::uint32_t kGreen = 0x00FF00FFu;
constexpr std::uint32_t kBlue = 0x0000FFFFu;
constexpr std::uint32_t kYellow = 0xFFFF00FFu;
constexpr std::uint32_t kGrey = 0x808080FFu;

// The output pixel of `image` (made for `key`) that covers (lon, lat).
std::uint32_t pixelAt(const osg::Image& image, const TileKey& key, double lon, double lat)
{
    const int i = std::min(image.s() - 1, static_cast<int>((lon - key.west()) / key.getWidthDegrees() * image.s()));
    const int j = std::min(image.t() - 1, static_cast<int>((lat - key.south()) / key.getHeightDegrees() * image.t()));
    return cxtest::rgbaAt(image, i, j);
}

} // namespace

TEST(ImageLayer, TilesThatLineUpWithTheSourceReadOneSourceTileEach)
{
    // Geodetic level 1: four columns, two rows, a colour each.
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "geodetic.db").string();
    {
        cxtest::MBTilesFile file(path);
        file.metadata("profile", "geodetic");
        file.metadata("format", "png");
        for (int x = 0; x < 4; ++x)
            for (int y = 0; y < 2; ++y)
                file.tile(1, x, y, cxtest::encode(*cxtest::solidImage(256, 60 * x, 100 * y, 200), "png"));
    }
    osg::ref_ptr<ImageLayer> layer = new ImageLayer("aligned", cxtest::mbtilesOptions(path));
    // The east and south neighbours would only add pixels of weight zero:
    // they are not read.
    osg::ref_ptr<osg::Image> image = layer->createImage(TileKey(1, 1, 0), 256);
    ASSERT_TRUE(image.valid());
    EXPECT_EQ(layer->getNumSourceTilesRead(), 1u);
    for (int i : {0, 255})
        for (int j : {0, 255})
            EXPECT_EQ(cxtest::rgbaAt(*image, i, j), 0x3C00C8FFu) << i << ", " << j;
    // Again: from the cache, nothing more is read.
    ASSERT_TRUE(layer->createImage(TileKey(1, 1, 0), 256).valid());
    EXPECT_EQ(layer->getNumSourceTilesRead(), 1u);
    // At twice the size the outermost samples lie a quarter pixel outside
    // the outermost source pixel centres and blend with the neighbours to
    // the west, east and north (the south edge is the pole): the tile and
    // its five neighbours, of which the north-western one is cached already.
    ASSERT_TRUE(layer->createImage(TileKey(1, 2, 1), 512).valid());
    EXPECT_EQ(layer->getNumSourceTilesRead(), 1u + 5u);
}

TEST(ImageLayer, HemispheresShowTheRightMercatorTiles)
{
    cxtest::TempDir dir;
    osg::ref_ptr<ImageLayer> layer =
        new ImageLayer("colours", cxtest::mbtilesOptions(cxtest::writeQuadrants(dir.path())));
    const TileKey west(0, 0, 0);
    const TileKey east(0, 1, 0);
    osg::ref_ptr<osg::Image> w = layer->createImage(west);
    osg::ref_ptr<osg::Image> e = layer->createImage(east);
    ASSERT_TRUE(w && e);
    EXPECT_EQ(w->s(), 256);
    EXPECT_EQ(w->t(), 256);
    EXPECT_EQ(w->getPixelFormat(), static_cast<GLenum>(GL_RGBA));
    EXPECT_EQ(pixelAt(*w, west, -90.0, 45.0), kRed);
    EXPECT_EQ(pixelAt(*w, west, -90.0, -45.0), kBlue);
    EXPECT_EQ(pixelAt(*e, east, 90.0, 45.0), kGreen);
    EXPECT_EQ(pixelAt(*e, east, 90.0, -45.0), kYellow);
    EXPECT_EQ(pixelAt(*w, west, -179.9, 80.0), kRed);
    EXPECT_EQ(pixelAt(*e, east, 179.9, -80.0), kYellow);
    // Beyond 85.05 degrees mercator has nothing: transparent.
    EXPECT_EQ(pixelAt(*w, west, -90.0, 89.0) & 0xFFu, 0u);
    EXPECT_EQ(pixelAt(*e, east, 90.0, -89.0) & 0xFFu, 0u);
    EXPECT_EQ(pixelAt(*e, east, 90.0, 85.0) & 0xFFu, 0xFFu);

    osg::ref_ptr<osg::Image> small = layer->createImage(west, 16);
    ASSERT_TRUE(small);
    EXPECT_EQ(small->s(), 16);
    EXPECT_EQ(pixelAt(*small, west, -90.0, 45.0), kRed);
}

TEST(ImageLayer, ReprojectsMercatorLatitudes)
{
    // Level 2: four rows of tiles, one colour per row. In mercator the rows
    // meet at 66.51 N, the equator and 66.51 S, not at 45 degrees.
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "rows.db").string();
    const unsigned char shades[4] = {40, 90, 160, 220};
    {
        cxtest::MBTilesFile file(path);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 4; ++x)
                file.tile(2, x, y, cxtest::encode(*cxtest::solidImage(256, shades[y], shades[y], shades[y]), "png"));
    }
    osg::ref_ptr<ImageLayer> layer = new ImageLayer("rows", cxtest::mbtilesOptions(path));
    auto grey = [](unsigned char v)
    { return (std::uint32_t(v) << 24) | (std::uint32_t(v) << 16) | (std::uint32_t(v) << 8) | 0xFFu; };

    const TileKey hemisphere(0, 1, 0);
    osg::ref_ptr<osg::Image> image = layer->createImage(hemisphere);
    ASSERT_TRUE(image);
    EXPECT_EQ(pixelAt(*image, hemisphere, 100.0, 70.0), grey(shades[0]));
    EXPECT_EQ(pixelAt(*image, hemisphere, 100.0, 60.0), grey(shades[1]));
    EXPECT_EQ(pixelAt(*image, hemisphere, 100.0, 30.0), grey(shades[1]));
    EXPECT_EQ(pixelAt(*image, hemisphere, 100.0, -60.0), grey(shades[2]));
    EXPECT_EQ(pixelAt(*image, hemisphere, 100.0, -70.0), grey(shades[3]));

    // In a 45 x 45 degree tile the change from row 1 to row 0 lies at
    // 66.513 N, within one output pixel (0.18 degrees).
    const TileKey key(2, 5, 0); // 45..90 E, 45..90 N
    osg::ref_ptr<osg::Image> detail = layer->createImage(key);
    ASSERT_TRUE(detail);
    const double boundary = std::atan(std::sinh(M_PI / 2.0)) * 180.0 / M_PI; // 66.513 degrees
    int changeRow = -1;
    for (int j = 0; j < detail->t(); ++j)
    {
        if (cxtest::rgbaAt(*detail, 128, j) != grey(shades[1]))
        {
            changeRow = j;
            break;
        }
    }
    ASSERT_GE(changeRow, 0);
    const double changeLat = key.south() + (changeRow + 0.5) * key.getHeightDegrees() / detail->t();
    EXPECT_NEAR(changeLat, boundary, 45.0 / 256.0);
}

TEST(ImageLayer, PastTheDeepestLevelTheParentIsMagnified)
{
    cxtest::TempDir dir;
    osg::ref_ptr<ImageLayer> layer =
        new ImageLayer("colours", cxtest::mbtilesOptions(cxtest::writeQuadrants(dir.path())));
    EXPECT_EQ(layer->getMaxLevel(), 1);
    const TileKey deep = TileKey::fromLonLat(-90.0, 45.0, 12);
    osg::ref_ptr<osg::Image> image = layer->createImage(deep);
    ASSERT_TRUE(image);
    for (int j = 0; j < image->t(); j += 17)
        for (int i = 0; i < image->s(); i += 17)
            ASSERT_EQ(cxtest::rgbaAt(*image, i, j), kRed) << i << ", " << j;
}

TEST(ImageLayer, MissingAndCorruptTilesFallBackToTheirAncestor)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "holes.db").string();
    {
        cxtest::MBTilesFile file(path);
        file.tile(0, 0, 0, cxtest::encode(*cxtest::solidImage(256, 128, 128, 128), "png"));
        file.tile(1, 0, 0, cxtest::encode(*cxtest::solidImage(256, 255, 0, 0), "png"));
        file.tile(1, 0, 1, cxtest::encode(*cxtest::solidImage(256, 0, 0, 255), "png"));
        // (1, 1, 0) is missing; (1, 1, 1) does not decode.
        file.tile(1, 1, 1, "this is not an image");
    }
    osg::ref_ptr<ImageLayer> layer = new ImageLayer("holes", cxtest::mbtilesOptions(path));
    const TileKey east(0, 1, 0);
    const TileKey west(0, 0, 0);
    // 512 pixels over a hemisphere match level 1 of the source.
    osg::ref_ptr<osg::Image> e = layer->createImage(east, 512);
    osg::ref_ptr<osg::Image> w = layer->createImage(west, 512);
    ASSERT_TRUE(e && w);
    EXPECT_EQ(pixelAt(*e, east, 90.0, 45.0), kGrey);
    EXPECT_EQ(pixelAt(*e, east, 90.0, -45.0), kGrey);
    EXPECT_EQ(pixelAt(*w, west, -90.0, 45.0), kRed);
    EXPECT_EQ(pixelAt(*w, west, -90.0, -45.0), kBlue);

    // A deep key over the missing tile: the level-0 tile, magnified.
    const TileKey deep = TileKey::fromLonLat(100.0, 30.0, 9);
    osg::ref_ptr<osg::Image> d = layer->createImage(deep);
    ASSERT_TRUE(d);
    EXPECT_EQ(cxtest::rgbaAt(*d, 100, 100), kGrey);
}

TEST(ImageLayer, NoDataGivesNoImage)
{
    cxtest::TempDir dir;
    osg::ref_ptr<ImageLayer> layer =
        new ImageLayer("colours", cxtest::mbtilesOptions(cxtest::writeQuadrants(dir.path())));
    // Entirely beyond mercator's latitude range (87.19..90 N).
    EXPECT_FALSE(layer->createImage(TileKey(6, 10, 0)));
    EXPECT_FALSE(layer->mayHaveData(TileKey(6, 10, 0)));
    EXPECT_FALSE(layer->mayHaveData(TileKey(6, 10, 63)));
    EXPECT_TRUE(layer->mayHaveData(TileKey(6, 10, 1)));
    EXPECT_TRUE(layer->createImage(TileKey(6, 10, 1)));
    EXPECT_FALSE(layer->createImage(TileKey()));

    layer->setEnabled(false);
    EXPECT_FALSE(layer->createImage(TileKey(0, 0, 0)));
    EXPECT_FALSE(layer->mayHaveData(TileKey(0, 0, 0)));
    layer->setEnabled(true);
    EXPECT_TRUE(layer->createImage(TileKey(0, 0, 0)));

    // A source whose top level is far below the key: too many tiles to read.
    const std::string deepOnly = (dir.path() / "deep.db").string();
    {
        cxtest::MBTilesFile file(deepOnly);
        file.tile(6, 10, 10, cxtest::encode(*cxtest::solidImage(64, 1, 1, 1), "png"));
    }
    osg::ref_ptr<ImageLayer> deepLayer = new ImageLayer("deep", cxtest::mbtilesOptions(deepOnly));
    EXPECT_FALSE(deepLayer->createImage(TileKey(0, 0, 0)));
}

TEST(ImageLayer, LayerOverAMissingFileHasNoDataAndSaysWhy)
{
    cxtest::TempDir dir;
    osg::ref_ptr<ImageLayer> layer =
        new ImageLayer("baseImage", cxtest::mbtilesOptions((dir.path() / "image.db").string()));
    EXPECT_FALSE(layer->createImage(TileKey(0, 0, 0)));
    EXPECT_FALSE(layer->isOpen());
    EXPECT_NE(layer->getStatusMessage().find("image.db"), std::string::npos) << layer->getStatusMessage();
    EXPECT_FALSE(layer->mayHaveData(TileKey(0, 0, 0)));
    EXPECT_EQ(layer->getMaxLevel(), -1);

    // The file appears later: an explicit open picks it up.
    cxtest::writeQuadrants(dir.path(), "image.db");
    EXPECT_FALSE(layer->createImage(TileKey(0, 0, 0))); // data calls do not retry by themselves
    EXPECT_TRUE(layer->open());
    EXPECT_TRUE(layer->createImage(TileKey(0, 0, 0)));
    layer->close();
    EXPECT_FALSE(layer->isOpen());
    EXPECT_TRUE(layer->createImage(TileKey(0, 0, 0))); // reopens on use
}

TEST(ElevationLayer, HeightsAtTheGridPoints)
{
    cxtest::TempDir dir;
    osg::ref_ptr<ElevationLayer> layer = new ElevationLayer(
        "dem", cxtest::mbtilesOptions(cxtest::writeHeightQuadrants(dir.path(), 100.0, 200.0, -50.0, 1000.0)));
    const TileKey west(0, 0, 0);
    osg::ref_ptr<osg::HeightField> field = layer->createHeightField(west);
    ASSERT_TRUE(field);
    ASSERT_EQ(field->getNumColumns(), 17u);
    ASSERT_EQ(field->getNumRows(), 17u);
    EXPECT_FLOAT_EQ(field->getOrigin().x(), -180.0f);
    EXPECT_FLOAT_EQ(field->getOrigin().y(), -90.0f);
    EXPECT_FLOAT_EQ(field->getXInterval(), 180.0f / 16.0f);
    EXPECT_FLOAT_EQ(field->getYInterval(), 180.0f / 16.0f);
    // Column 8 is -90 E; row 12 is 45 N, row 4 is 45 S.
    EXPECT_NEAR(field->getHeight(8, 12), 100.0, 0.05);
    EXPECT_NEAR(field->getHeight(8, 4), -50.0, 0.05);
    EXPECT_NEAR(field->getHeight(8, 15), 100.0, 0.05); // 78.75 N
    // The poles are beyond mercator.
    EXPECT_EQ(field->getHeight(8, 16), ElevationLayer::NO_DATA_VALUE);
    EXPECT_EQ(field->getHeight(8, 0), ElevationLayer::NO_DATA_VALUE);

    const TileKey east(0, 1, 0);
    osg::ref_ptr<osg::HeightField> eastField = layer->createHeightField(east, 9, 5);
    ASSERT_TRUE(eastField);
    EXPECT_EQ(eastField->getNumColumns(), 9u);
    EXPECT_EQ(eastField->getNumRows(), 5u);
    EXPECT_NEAR(eastField->getHeight(4, 3), 200.0, 0.05);  // 90 E, 45 N
    EXPECT_NEAR(eastField->getHeight(4, 1), 1000.0, 0.05); // 90 E, 45 S

    float h = 0.0f;
    ASSERT_TRUE(layer->getHeight(-90.0, 45.0, h));
    EXPECT_NEAR(h, 100.0, 0.05);
    ASSERT_TRUE(layer->getHeight(120.0, -10.0, h));
    EXPECT_NEAR(h, 1000.0, 0.05);
    EXPECT_FALSE(layer->getHeight(0.0, 86.0, h));
    EXPECT_FALSE(layer->getHeight(NAN, 0.0, h));
}

TEST(ElevationLayer, BilinearBetweenPixelCentresAndAcrossTheAntimeridian)
{
    // One level-0 tile whose height grows by 10 m per pixel column: at a
    // longitude the height is 10 * (source x - 0.5).
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "ramp.db").string();
    {
        cxtest::MBTilesFile file(path);
        file.tile(0, 0, 0, cxtest::terrainRGBTile(256, [](int c, int) { return c * 10.0; }));
    }
    osg::ref_ptr<ElevationLayer> layer = new ElevationLayer("ramp", cxtest::mbtilesOptions(path));
    const TileKey key(3, 9, 3); // 22.5..45 E, 0..22.5 N
    osg::ref_ptr<osg::HeightField> field = layer->createHeightField(key);
    ASSERT_TRUE(field);
    for (unsigned int c = 0; c < 17; ++c)
    {
        const double lon = key.west() + c * key.getWidthDegrees() / 16.0;
        const double expected = 10.0 * ((lon + 180.0) / 360.0 * 256.0 - 0.5);
        EXPECT_NEAR(field->getHeight(c, 5), expected, 0.05) << lon;
    }
    // At -180 the left neighbour is the last column (2550 m): halfway.
    osg::ref_ptr<osg::HeightField> edge = layer->createHeightField(TileKey(3, 0, 3));
    ASSERT_TRUE(edge);
    EXPECT_NEAR(edge->getHeight(0, 8), 1275.0, 0.05);
}

TEST(ElevationLayer, FallsBackToAncestorsAndPastTheDeepestLevel)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "fallback.db").string();
    {
        cxtest::MBTilesFile file(path);
        file.tile(0, 0, 0, cxtest::terrainRGBTile(64, [](int, int) { return 500.0; }));
        file.tile(1, 0, 0, cxtest::terrainRGBTile(64, [](int, int) { return 100.0; }));
        file.tile(1, 1, 1, "corrupt");
    }
    osg::ref_ptr<ElevationLayer> layer = new ElevationLayer("dem", cxtest::mbtilesOptions(path));
    float h = 0.0f;
    ASSERT_TRUE(layer->getHeight(-90.0, 45.0, h));
    EXPECT_NEAR(h, 100.0, 0.05);
    ASSERT_TRUE(layer->getHeight(90.0, 45.0, h)); // missing tile
    EXPECT_NEAR(h, 500.0, 0.05);
    ASSERT_TRUE(layer->getHeight(90.0, -45.0, h)); // corrupt tile
    EXPECT_NEAR(h, 500.0, 0.05);

    const TileKey deep = TileKey::fromLonLat(-100.0, 40.0, 14);
    osg::ref_ptr<osg::HeightField> field = layer->createHeightField(deep);
    ASSERT_TRUE(field);
    for (unsigned int r = 0; r < 17; r += 4)
        for (unsigned int c = 0; c < 17; c += 4)
            EXPECT_NEAR(field->getHeight(c, r), 100.0, 0.05);
}

TEST(ElevationLayer, TerrariumFromTheLayerOptions)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "terrarium.db").string();
    {
        cxtest::MBTilesFile file(path);
        file.tile(0, 0, 0,
                  cxtest::encode(*cxtest::rgbImage(32, [](int, int) { return cxtest::terrarium(4321.25); }), "png"));
    }
    MBTilesOptions options = cxtest::mbtilesOptions(path);
    options.elevationEncoding() = "terrarium";
    osg::ref_ptr<ElevationLayer> layer = new ElevationLayer("dem", options);
    float h = 0.0f;
    ASSERT_TRUE(layer->getHeight(10.0, 10.0, h));
    EXPECT_NEAR(h, 4321.25, 1.0 / 256.0);
}

TEST(ElevationLayer, MissingFileOrDisabledGivesNothing)
{
    cxtest::TempDir dir;
    osg::ref_ptr<ElevationLayer> missing =
        new ElevationLayer("GlobeHeightfield", cxtest::mbtilesOptions((dir.path() / "dem.db").string()));
    EXPECT_FALSE(missing->createHeightField(TileKey(0, 0, 0)));
    float h = 0.0f;
    EXPECT_FALSE(missing->getHeight(0.0, 0.0, h));
    EXPECT_FALSE(missing->getStatusMessage().empty());

    osg::ref_ptr<ElevationLayer> layer =
        new ElevationLayer("dem", cxtest::mbtilesOptions(cxtest::writeHeightQuadrants(dir.path(), 1.0, 2.0, 3.0, 4.0)));
    layer->setEnabled(false);
    EXPECT_FALSE(layer->createHeightField(TileKey(0, 0, 0)));
    EXPECT_FALSE(layer->getHeight(-90.0, 45.0, h));
    // Beyond mercator entirely.
    layer->setEnabled(true);
    EXPECT_FALSE(layer->createHeightField(TileKey(6, 3, 0)));
    EXPECT_TRUE(layer->createHeightField(TileKey(6, 3, 1)));
}

TEST(Map, LaterElevationLayersWinWhereTheyHaveData)
{
    cxtest::TempDir dir;
    const std::string everywhere = (dir.path() / "everywhere.db").string();
    const std::string patch = (dir.path() / "patch.db").string();
    {
        cxtest::MBTilesFile a(everywhere);
        a.tile(0, 0, 0, cxtest::terrainRGBTile(64, [](int, int) { return 100.0; }));
        cxtest::MBTilesFile b(patch);
        b.tile(1, 0, 0, cxtest::terrainRGBTile(64, [](int, int) { return 700.0; }));
    }
    osg::ref_ptr<globe::Map> map = new globe::Map;
    osg::ref_ptr<ElevationLayer> base = new ElevationLayer("base", cxtest::mbtilesOptions(everywhere));
    osg::ref_ptr<ElevationLayer> top = new ElevationLayer("top", cxtest::mbtilesOptions(patch));
    map->addLayer(base.get());
    map->addLayer(top.get());

    double h = 0.0;
    ASSERT_TRUE(map->getElevation(-90.0, 45.0, h));
    EXPECT_NEAR(h, 700.0, 0.05);
    ASSERT_TRUE(map->getElevation(90.0, 45.0, h));
    EXPECT_NEAR(h, 100.0, 0.05);
    EXPECT_FALSE(map->getElevation(0.0, 89.0, h));

    osg::ref_ptr<osg::HeightField> field = map->createHeightField(TileKey(0, 0, 0));
    ASSERT_TRUE(field);
    EXPECT_NEAR(field->getHeight(8, 12), 700.0, 0.05); // 90 W, 45 N: the patch
    EXPECT_NEAR(field->getHeight(8, 4), 100.0, 0.05);  // 90 W, 45 S: the base
    EXPECT_EQ(field->getHeight(8, 16), ElevationLayer::NO_DATA_VALUE);

    top->setEnabled(false);
    ASSERT_TRUE(map->getElevation(-90.0, 45.0, h));
    EXPECT_NEAR(h, 100.0, 0.05);

    osg::ref_ptr<globe::Map> empty = new globe::Map;
    EXPECT_FALSE(empty->createHeightField(TileKey(0, 0, 0)));
    EXPECT_FALSE(empty->getElevation(0.0, 0.0, h));
}

TEST(Layer, ResolutionIsTheDeepestLevelsPixelWhereTheDataAre)
{
    cxtest::TempDir dir;
    // Mercator, levels 1 and 3 (256-pixel tiles): the finest pixels are
    // 360 / (8 * 256) degrees along the equator, cos(latitude) times that
    // along a meridian.
    const std::string mercatorPath = (dir.path() / "mercator.db").string();
    {
        cxtest::MBTilesFile file(mercatorPath);
        file.tile(1, 0, 0, cxtest::encode(*cxtest::solidImage(256, 255, 0, 0), "png"));
        file.tile(3, 6, 2, cxtest::encode(*cxtest::solidImage(256, 255, 0, 0), "png"));
    }
    osg::ref_ptr<ImageLayer> mercator = new ImageLayer("mercator", cxtest::mbtilesOptions(mercatorPath));
    const double equatorPixel = 360.0 / (8 * 256);
    double degrees = 0.0;
    // A tile touching the equator: its farthest latitude is 11.25 degrees.
    ASSERT_TRUE(mercator->getResolution(TileKey(4, 20, 7), degrees));
    EXPECT_NEAR(degrees, equatorPixel * std::cos(osg::DegreesToRadians(11.25)), 1e-12);
    // 45..67.5 N: pixels at 67.5 N are the finest.
    ASSERT_TRUE(mercator->getResolution(TileKey(3, 8, 1), degrees));
    EXPECT_NEAR(degrees, equatorPixel * std::cos(osg::DegreesToRadians(67.5)), 1e-12);
    // A polar tile: capped at the mercator limit, still positive.
    ASSERT_TRUE(mercator->getResolution(TileKey(1, 0, 0), degrees));
    EXPECT_GT(degrees, 0.0);
    EXPECT_NEAR(degrees, equatorPixel * std::cos(osg::DegreesToRadians(85.05112877980659)), 1e-9);
    // Beyond the mercator world there are no data, and no resolution.
    EXPECT_FALSE(mercator->getResolution(TileKey(6, 0, 0), degrees)); // 87.2..90 N

    // Geodetic 64-pixel tiles at level 2: 360 / (8 * 64) degrees everywhere.
    const std::string geodeticPath = (dir.path() / "geodetic.db").string();
    {
        cxtest::MBTilesFile file(geodeticPath);
        file.metadata("profile", "global-geodetic");
        file.metadata("bounds", "100,20,120,40");
        file.tile(2, 0, 0, cxtest::encode(*cxtest::solidImage(64, 0, 255, 0), "png"));
    }
    osg::ref_ptr<ElevationLayer> geodetic = new ElevationLayer("geodetic", cxtest::mbtilesOptions(geodeticPath));
    ASSERT_TRUE(geodetic->getResolution(TileKey(3, 12, 2), degrees)); // 90..112.5 E, 22.5..45 N
    EXPECT_NEAR(degrees, 360.0 / (8 * 64), 1e-12);
    // Outside the metadata bounds, or disabled: no data there.
    EXPECT_FALSE(geodetic->getResolution(TileKey(3, 0, 2), degrees));
    geodetic->setEnabled(false);
    EXPECT_FALSE(geodetic->getResolution(TileKey(3, 12, 2), degrees));

    // A layer without a file has no resolution anywhere.
    osg::ref_ptr<ImageLayer> missing =
        new ImageLayer("missing", cxtest::mbtilesOptions((dir.path() / "none.db").string()));
    EXPECT_FALSE(missing->getResolution(TileKey(0, 0, 0), degrees));
}

