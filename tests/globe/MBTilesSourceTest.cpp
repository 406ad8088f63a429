#include "MBTilesTestFiles.h"
#include "TempDir.h"

#include <globe/MBTilesSource>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

using globe::MBTilesOptions;
using globe::MBTilesSource;

namespace
{

osg::ref_ptr<MBTilesSource> openSource(const std::string& path, const MBTilesOptions& base = MBTilesOptions())
{
    MBTilesOptions options = base;
    options.filename() = path;
    osg::ref_ptr<MBTilesSource> source = new MBTilesSource(options);
    source->open();
    return source;
}

// Colour of the centre pixel of a decoded tile, 0xRRGGBB.
std::uint32_t centreColour(const osg::Image& image)
{
    const unsigned char* p = image.data(static_cast<unsigned int>(image.s() / 2), static_cast<unsigned int>(image.t() / 2));
    return (std::uint32_t(p[0]) << 16) | (std::uint32_t(p[1]) << 8) | p[2];
}

} // namespace

TEST(MBTilesSource, ReadsTilesByTmsRow)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "colours.db").string();
    {
        cxtest::MBTilesFile file(path);
        file.metadata("format", "png");
        // Level 1, stored at the file's own rows: TMS row 1 is the north.
        file.tileTms(1, 0, 1, cxtest::encode(*cxtest::solidImage(256, 255, 0, 0), "png"));   // north-west
        file.tileTms(1, 1, 1, cxtest::encode(*cxtest::solidImage(256, 0, 255, 0), "png"));   // north-east
        file.tileTms(1, 0, 0, cxtest::encode(*cxtest::solidImage(256, 0, 0, 255), "png"));   // south-west
        file.tileTms(1, 1, 0, cxtest::encode(*cxtest::solidImage(256, 255, 255, 0), "png")); // south-east
    }
    osg::ref_ptr<MBTilesSource> source = openSource(path);
    ASSERT_TRUE(source->isOpen()) << source->getStatusMessage();
    EXPECT_EQ(source->getProfile(), MBTilesSource::SPHERICAL_MERCATOR);
    EXPECT_TRUE(source->hasLevels());
    EXPECT_EQ(source->getMinLevel(), 1);
    EXPECT_EQ(source->getMaxLevel(), 1);
    EXPECT_EQ(source->getTileSize(), 256);
    EXPECT_EQ(source->getFormat(), "png");
    const MBTilesSource::Layout layout = source->getLayout();
    EXPECT_EQ(layout.profile, MBTilesSource::SPHERICAL_MERCATOR);
    EXPECT_TRUE(layout.hasLevels);
    EXPECT_EQ(layout.minLevel, 1);
    EXPECT_EQ(layout.maxLevel, 1);
    EXPECT_EQ(layout.tileSize, 256);

    // Rows here count from the north.
    osg::ref_ptr<osg::Image> nw = source->readImage(1, 0, 0);
    osg::ref_ptr<osg::Image> ne = source->readImage(1, 1, 0);
    osg::ref_ptr<osg::Image> sw = source->readImage(1, 0, 1);
    osg::ref_ptr<osg::Image> se = source->readImage(1, 1, 1);
    ASSERT_TRUE(nw && ne && sw && se);
    EXPECT_EQ(centreColour(*nw), 0xFF0000u);
    EXPECT_EQ(centreColour(*ne), 0x00FF00u);
    EXPECT_EQ(centreColour(*sw), 0x0000FFu);
    EXPECT_EQ(centreColour(*se), 0xFFFF00u);

    EXPECT_FALSE(source->readImage(1, 2, 0));
    EXPECT_FALSE(source->readImage(0, 0, 0));
    EXPECT_FALSE(source->readImage(2, 0, 0));
    EXPECT_FALSE(source->readImage(-1, 0, 0));
}

TEST(MBTilesSource, WorksWithoutMetadataTable)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "bare.db").string();
    {
        cxtest::MBTilesFile file(path, false);
        file.tile(0, 0, 0, cxtest::encode(*cxtest::solidImage(128, 10, 20, 30), "jpg"));
        file.tile(2, 1, 1, cxtest::encode(*cxtest::solidImage(128, 10, 20, 30), "jpg"));
    }
    osg::ref_ptr<MBTilesSource> source = openSource(path);
    ASSERT_TRUE(source->isOpen()) << source->getStatusMessage();
    EXPECT_EQ(source->getProfile(), MBTilesSource::SPHERICAL_MERCATOR);
    EXPECT_EQ(source->getMinLevel(), 0);
    EXPECT_EQ(source->getMaxLevel(), 2);
    EXPECT_EQ(source->getTileSize(), 128);
    EXPECT_EQ(source->getFormat(), "");
    EXPECT_EQ(source->getMetadata("format"), "");
    double w, s, e, n;
    EXPECT_FALSE(source->getBounds(w, s, e, n));
    // The JPEG is recognised by its bytes.
    osg::ref_ptr<osg::Image> image = source->readImage(2, 1, 1);
    ASSERT_TRUE(image);
    const unsigned char* p = image->data(64, 64);
    EXPECT_NEAR(p[0], 10, 3);
    EXPECT_NEAR(p[1], 20, 3);
    EXPECT_NEAR(p[2], 30, 3);
}

TEST(MBTilesSource, LevelsFromMetadataWhenAskedTo)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "levels.db").string();
    {
        cxtest::MBTilesFile file(path);
        file.metadata("minzoom", "3");
        file.metadata("maxzoom", "5");
        file.metadata("bounds", "70.5,15.25,135,55");
        file.metadata("profile", "global-geodetic");
        for (int z = 0; z <= 6; ++z)
            file.tile(z, 0, 0, cxtest::encode(*cxtest::solidImage(64, 1, 2, 3), "png"));
    }
    osg::ref_ptr<MBTilesSource> computed = openSource(path);
    EXPECT_EQ(computed->getMinLevel(), 0);
    EXPECT_EQ(computed->getMaxLevel(), 6);
    EXPECT_EQ(computed->getProfile(), MBTilesSource::GEODETIC);
    EXPECT_EQ(computed->getNumTilesWide(2), 8u);
    EXPECT_EQ(computed->getNumTilesHigh(2), 4u);
    double w, s, e, n;
    ASSERT_TRUE(computed->getBounds(w, s, e, n));
    EXPECT_DOUBLE_EQ(w, 70.5);
    EXPECT_DOUBLE_EQ(s, 15.25);
    EXPECT_DOUBLE_EQ(e, 135.0);
    EXPECT_DOUBLE_EQ(n, 55.0);

    MBTilesOptions fromMetadata;
    fromMetadata.computeLevels() = false;
    osg::ref_ptr<MBTilesSource> declared = openSource(path, fromMetadata);
    EXPECT_EQ(declared->getMinLevel(), 3);
    EXPECT_EQ(declared->getMaxLevel(), 5);
    EXPECT_FALSE(declared->readImage(6, 0, 0));
    EXPECT_TRUE(declared->readImage(5, 0, 0));
}

TEST(MBTilesSource, MetadataLevelsMissingFallBackToTheTable)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "partial.db").string();
    {
        cxtest::MBTilesFile file(path);
        file.metadata("minzoom", "1");
        file.tile(2, 0, 0, cxtest::encode(*cxtest::solidImage(64, 1, 2, 3), "png"));
        file.tile(4, 0, 0, cxtest::encode(*cxtest::solidImage(64, 1, 2, 3), "png"));
    }
    MBTilesOptions options;
    options.computeLevels() = false;
    osg::ref_ptr<MBTilesSource> source = openSource(path, options);
    EXPECT_EQ(source->getMinLevel(), 2);
    EXPECT_EQ(source->getMaxLevel(), 4);
}

TEST(MBTilesSource, TerrainRGBHeights)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "dem.db").string();
    {
        cxtest::MBTilesFile file(path);
        file.metadata("format", "png");
        file.metadata("elevation_encoding", "mapbox");
        // Heights that change along the tile: -10000 + 0.1 * n covers the
        // encoding's range ends too.
        file.tile(0, 0, 0, cxtest::terrainRGBTile(16, [](int c, int r) {
            if (c == 0 && r == 0)
                return -10000.0;
            if (c == 15 && r == 15)
                return 8848.8;
            return c * 100.0 + r * 0.5 - 420.0;
        }));
    }
    osg::ref_ptr<MBTilesSource> source = openSource(path);
    ASSERT_TRUE(source->isOpen());
    EXPECT_EQ(source->getElevationEncoding(), MBTilesSource::ElevationEncoding::MAPBOX);
    osg::ref_ptr<osg::HeightField> field = source->readHeightField(0, 0, 0);
    ASSERT_TRUE(field);
    ASSERT_EQ(field->getNumColumns(), 16u);
    ASSERT_EQ(field->getNumRows(), 16u);
    // Height field rows count from the south: pixel row r from the top is
    // field row 15 - r.
    EXPECT_NEAR(field->getHeight(0, 15), -10000.0, 1e-3);
    EXPECT_NEAR(field->getHeight(15, 0), 8848.8, 1e-2);
    EXPECT_NEAR(field->getHeight(3, 15 - 7), 3 * 100.0 + 7 * 0.5 - 420.0, 1e-2);
    EXPECT_NEAR(field->getHeight(10, 15 - 2), 10 * 100.0 + 2 * 0.5 - 420.0, 1e-2);

    // The documented example: h = 1234.5 is (R, G, B) = (1, 182, 217).
    EXPECT_EQ(cxtest::terrainRGB(1234.5), (1u << 16) | (182u << 8) | 217u);
}

TEST(MBTilesSource, TerrariumHeights)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "terrarium.db").string();
    auto height = [](int c, int r) { return c * 250.0 - r * 10.25 - 1000.0; };
    {
        cxtest::MBTilesFile file(path);
        file.metadata("elevation_encoding", "terrarium");
        file.tile(0, 0, 0,
                  cxtest::encode(*cxtest::rgbImage(16, [&](int c, int r) { return cxtest::terrarium(height(c, r)); }), "png"));
    }
    osg::ref_ptr<MBTilesSource> source = openSource(path);
    EXPECT_EQ(source->getElevationEncoding(), MBTilesSource::ElevationEncoding::TERRARIUM);
    osg::ref_ptr<osg::HeightField> field = source->readHeightField(0, 0, 0);
    ASSERT_TRUE(field);
    for (int r = 0; r < 16; r += 5)
        for (int c = 0; c < 16; c += 3)
            EXPECT_NEAR(field->getHeight(c, 15 - r), height(c, r), 1.0 / 256.0) << c << ", " << r;

    // (R, G, B) = (132, 210, 128) is 1234.5 m.
    EXPECT_EQ(cxtest::terrarium(1234.5), (132u << 16) | (210u << 8) | 128u);

    // The option overrides the file's metadata: read as Terrain-RGB.
    MBTilesOptions mapbox;
    mapbox.elevationEncoding() = "mapbox";
    osg::ref_ptr<MBTilesSource> overridden = openSource(path, mapbox);
    EXPECT_EQ(overridden->getElevationEncoding(), MBTilesSource::ElevationEncoding::MAPBOX);
    const std::uint32_t rgb = cxtest::terrarium(height(0, 0));
    osg::ref_ptr<osg::HeightField> asMapbox = overridden->readHeightField(0, 0, 0);
    ASSERT_TRUE(asMapbox);
    EXPECT_NEAR(asMapbox->getHeight(0, 15), -10000.0 + rgb * 0.1, 0.1); // a float near 800 km
}

TEST(MBTilesSource, SingleChannelHeights)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "gray.db").string();
    {
        osg::ref_ptr<osg::Image> png16 = new osg::Image;
        png16->allocateImage(8, 8, 1, GL_LUMINANCE, GL_UNSIGNED_SHORT);
        auto* s = reinterpret_cast<std::int16_t*>(png16->data());
        for (int i = 0; i < 64; ++i)
            s[i] = static_cast<std::int16_t>(i * 100 - 430);
        s[9] = -32768; // a void

        osg::ref_ptr<osg::Image> tiff = new osg::Image;
        tiff->allocateImage(8, 8, 1, GL_LUMINANCE, GL_FLOAT);
        auto* f = reinterpret_cast<float*>(tiff->data());
        for (int i = 0; i < 64; ++i)
            f[i] = i * 12.25f - 100.5f;

        cxtest::MBTilesFile file(path);
        file.tile(1, 0, 0, cxtest::encode(*png16, "png"));
        file.tile(1, 1, 0, cxtest::encode(*tiff, "tif"));
    }
    osg::ref_ptr<MBTilesSource> source = openSource(path);
    osg::ref_ptr<osg::HeightField> a = source->readHeightField(1, 0, 0);
    ASSERT_TRUE(a);
    // Image row 0 is the south, as in the height field.
    EXPECT_FLOAT_EQ(a->getHeight(0, 0), -430.0f);
    EXPECT_FLOAT_EQ(a->getHeight(7, 7), 63 * 100.0f - 430.0f);
    EXPECT_FLOAT_EQ(a->getHeight(1, 1), MBTilesSource::NO_DATA_VALUE);
    osg::ref_ptr<osg::HeightField> b = source->readHeightField(1, 1, 0);
    ASSERT_TRUE(b);
    EXPECT_FLOAT_EQ(b->getHeight(3, 2), 19 * 12.25f - 100.5f);
}

TEST(MBTilesSource, TransparentPixelsHaveNoHeight)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(2, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE);
    const unsigned char pixels[8] = {1, 134, 160, 255, 1, 134, 160, 0};
    std::memcpy(image->data(), pixels, 8);
    osg::ref_ptr<osg::HeightField> field = MBTilesSource::decodeHeights(*image, MBTilesSource::ElevationEncoding::MAPBOX);
    ASSERT_TRUE(field);
    EXPECT_NEAR(field->getHeight(0, 0), 0.0, 1e-3);
    EXPECT_EQ(field->getHeight(1, 0), MBTilesSource::NO_DATA_VALUE);

    osg::ref_ptr<osg::Image> unusable = new osg::Image;
    unusable->allocateImage(2, 2, 1, GL_RGB, GL_FLOAT);
    EXPECT_FALSE(MBTilesSource::decodeHeights(*unusable, MBTilesSource::ElevationEncoding::MAPBOX));
}

TEST(MBTilesSource, CorruptBlobGivesNoImage)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "corrupt.db").string();
    {
        cxtest::MBTilesFile file(path);
        file.metadata("format", "png");
        const std::string good = cxtest::encode(*cxtest::solidImage(32, 9, 9, 9), "png");
        file.tile(1, 0, 0, good.substr(0, good.size() / 2)); // truncated PNG
        file.tile(1, 1, 0, std::string(500, '\x42'));         // not an image at all
        file.tile(1, 0, 1, "");                               // empty blob
        file.tile(1, 1, 1, good);
        std::string flipped = good; // damaged in the middle of the pixel data
        for (std::size_t i = good.size() / 2; i < good.size() / 2 + 8; ++i)
            flipped[i] = static_cast<char>(flipped[i] ^ 0x5A);
        file.tile(2, 0, 0, flipped);
        file.tile(2, 1, 0, good);
    }
    osg::ref_ptr<MBTilesSource> source = openSource(path);
    ASSERT_TRUE(source->isOpen());
    EXPECT_FALSE(source->readImage(2, 0, 0));
    EXPECT_TRUE(source->readImage(2, 1, 0));
    EXPECT_FALSE(source->readImage(1, 0, 0));
    EXPECT_FALSE(source->readImage(1, 1, 0));
    EXPECT_FALSE(source->readImage(1, 0, 1));
    EXPECT_FALSE(source->readHeightField(1, 0, 0));
    EXPECT_TRUE(source->readImage(1, 1, 1));
    std::string bytes;
    EXPECT_TRUE(source->readTileData(1, 1, 0, bytes));
    EXPECT_EQ(bytes.size(), 500u);
    EXPECT_FALSE(source->readTileData(1, 0, 1, bytes));
}

TEST(MBTilesSource, MissingFileDoesNotOpen)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "nowhere" / "image.db").string();
    osg::ref_ptr<MBTilesSource> source = openSource(path);
    EXPECT_FALSE(source->isOpen());
    EXPECT_NE(source->getStatusMessage().find("not found"), std::string::npos) << source->getStatusMessage();
    EXPECT_FALSE(source->hasLevels());
    EXPECT_FALSE(source->readImage(0, 0, 0));
    EXPECT_FALSE(source->readHeightField(0, 0, 0));
    EXPECT_FALSE(std::filesystem::exists(path)); // not created by the read

    osg::ref_ptr<MBTilesSource> unnamed = new MBTilesSource(MBTilesOptions());
    EXPECT_FALSE(unnamed->open());
    EXPECT_FALSE(unnamed->getStatusMessage().empty());
}

TEST(MBTilesSource, FileThatIsNoDatabaseDoesNotOpen)
{
    cxtest::TempDir dir;
    const std::filesystem::path path = dir.write("junk.db", std::string(4096, 'x'));
    osg::ref_ptr<MBTilesSource> source = openSource(path.string());
    EXPECT_FALSE(source->isOpen());
    EXPECT_FALSE(source->getStatusMessage().empty());
    EXPECT_FALSE(source->readImage(0, 0, 0));

    // A database without a tiles table.
    const std::string other = (dir.path() / "other.db").string();
    {
        sqlite3* db = nullptr;
        sqlite3_open(other.c_str(), &db);
        sqlite3_exec(db, "CREATE TABLE something (a INTEGER)", nullptr, nullptr, nullptr);
        sqlite3_close(db);
    }
    osg::ref_ptr<MBTilesSource> noTiles = openSource(other);
    EXPECT_FALSE(noTiles->isOpen());
    EXPECT_NE(noTiles->getStatusMessage().find("tiles"), std::string::npos) << noTiles->getStatusMessage();
}

TEST(MBTilesSource, EmptyTableHasNoLevels)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "empty.db").string();
    {
        cxtest::MBTilesFile file(path);
        file.metadata("format", "jpg");
    }
    osg::ref_ptr<MBTilesSource> source = openSource(path);
    ASSERT_TRUE(source->isOpen());
    EXPECT_FALSE(source->hasLevels());
    EXPECT_EQ(source->getMaxLevel(), -1);
    EXPECT_FALSE(source->readImage(0, 0, 0));
    EXPECT_EQ(source->getTileSize(), 256);
}

TEST(MBTilesSource, CompressedTiles)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "compressed.db").string();
    const std::string png = cxtest::encode(*cxtest::solidImage(32, 200, 100, 50), "png");
    {
        cxtest::MBTilesFile file(path);
        file.tile(0, 0, 0, cxtest::zlibCompress(png));
    }
    MBTilesOptions options;
    options.compress() = true;
    osg::ref_ptr<MBTilesSource> source = openSource(path, options);
    std::string bytes;
    ASSERT_TRUE(source->readTileData(0, 0, 0, bytes));
    EXPECT_EQ(bytes, png);
    osg::ref_ptr<osg::Image> image = source->readImage(0, 0, 0);
    ASSERT_TRUE(image);
    EXPECT_EQ(centreColour(*image), 0xC86432u);
    // Recognised by its header without the option too.
    EXPECT_TRUE(openSource(path)->readImage(0, 0, 0));
}

TEST(MBTilesSource, CloseAndReopen)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "reopen.db").string();
    {
        cxtest::MBTilesFile file(path);
        file.tile(0, 0, 0, cxtest::encode(*cxtest::solidImage(16, 1, 2, 3), "png"));
    }
    osg::ref_ptr<MBTilesSource> source = openSource(path);
    EXPECT_TRUE(source->readImage(0, 0, 0));
    EXPECT_TRUE(source->getLayout().hasLevels);
    source->close();
    EXPECT_FALSE(source->isOpen());
    EXPECT_FALSE(source->readImage(0, 0, 0));
    // Closed: a layout without levels, as a whole.
    const MBTilesSource::Layout closed = source->getLayout();
    EXPECT_FALSE(closed.hasLevels);
    EXPECT_LT(closed.maxLevel, closed.minLevel);
    EXPECT_TRUE(source->open());
    EXPECT_TRUE(source->open());
    EXPECT_TRUE(source->readImage(0, 0, 0));
}
