// The imagery pyramid: synthetic equirectangular images with known colours, the
// tiles read back with SQLite and OSG's image plugins.
#include "EquirectImage.h"
#include "Error.h"
#include "Progress.h"
#include "PyramidBuilder.h"
#include "SourceReader.h"
#include "TileMath.h"

#include "TempDir.h"
#include "TilerTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

using namespace cxtiler;
using namespace tilertest;

namespace
{

using Colour = std::array<std::uint8_t, 4>;

const Colour kRed = {255, 0, 0, 255};
const Colour kGreen = {0, 255, 0, 255};
const Colour kBlue = {0, 0, 255, 255};
const Colour kYellow = {255, 255, 0, 255};

/** North-west red, north-east green, south-west blue, south-east yellow. */
Colour quadrantColour(double lon, double lat)
{
    if (lat >= 0.0)
        return lon < 0.0 ? kRed : kGreen;
    return lon < 0.0 ? kBlue : kYellow;
}

/** Red from the 30-degree longitude band, green from the 10-degree latitude band. */
Colour bandColour(double lon, double lat)
{
    const int lonBand = static_cast<int>(std::floor((lon + 180.0) / 30.0)); // 0..11
    const int latBand = static_cast<int>(std::floor((90.0 - lat) / 10.0));  // 0..17
    return {static_cast<std::uint8_t>(lonBand * 20), static_cast<std::uint8_t>(latBand * 14), 77, 255};
}

void expectColour(const osg::Image& tile, int column, int row, const Colour& expected, int tolerance,
                  const std::string& where)
{
    const std::uint8_t* p = tilePixel(tile, column, row);
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(p[c], expected[c], tolerance) << where << " pixel " << column << "," << row << " channel " << c;
}

PyramidOptions pngOptions(int maxZoom)
{
    PyramidOptions options;
    options.format = TileFormat::Png;
    options.maxZoom = maxZoom;
    return options;
}

/** Counts calls and cancels after `limit` tiles when asked to. */
class CountingProgress : public Progress
{
public:
    explicit CountingProgress(long limit = -1) : _limit(limit) {}
    void begin(const std::string& title, const std::vector<long>& perLevel) override
    {
        Progress::begin(title, perLevel);
        began = true;
    }
    bool tileDone(int level) override
    {
        Progress::tileDone(level);
        return _limit < 0 || doneTiles() < _limit;
    }
    void end() override { ended = true; }
    bool began = false;
    bool ended = false;

private:
    long _limit;
};

} // namespace

TEST(ImageryPyramid, QuadrantColoursLandInTheRightTilesWithTmsRows)
{
    cxtest::TempDir dir;
    const std::string src = (dir.path() / "quadrants.png").string();
    writeEquirect(src, 512, 256, 3, quadrantColour);
    const std::string out = (dir.path() / "image.db").string();
    CountingProgress progress;
    buildImageryPyramid(readEquirectImage(src), out, pngOptions(1), progress);

    MBTiles db(out);
    ASSERT_TRUE(db.valid());
    EXPECT_EQ(db.count("zoom_level = 0"), 1);
    EXPECT_EQ(db.count("zoom_level = 1"), 4);
    EXPECT_EQ(db.count(), 5);

    // At level 1 each tile is one quadrant. XYZ row 0 (north) is stored as TMS row 1.
    const struct
    {
        int x, tmsRow;
        Colour colour;
    } expected[] = {{0, 1, kRed}, {1, 1, kGreen}, {0, 0, kBlue}, {1, 0, kYellow}};
    for (const auto& e : expected)
    {
        const std::string blob = db.blob(1, e.x, e.tmsRow);
        ASSERT_FALSE(blob.empty()) << "tile 1/" << e.x << " tms row " << e.tmsRow;
        std::istringstream in(blob);
        osg::ref_ptr<osg::Image> tile =
            osgDB::Registry::instance()->getReaderWriterForExtension("png")->readImage(in).getImage();
        ASSERT_TRUE(tile.valid());
        ASSERT_EQ(tile->s(), 256);
        ASSERT_EQ(tile->t(), 256);
        const std::string where = "tile 1/" + std::to_string(e.x) + " tms " + std::to_string(e.tmsRow);
        // Everywhere but the blended pixels along the quadrant borders.
        for (int row = 2; row < 254; row += 25)
            for (int column = 2; column < 254; column += 25)
                expectColour(*tile, column, row, e.colour, 0, where);
    }

    // Level 0: the four quadrants in the four quarters of the single tile.
    osg::ref_ptr<osg::Image> root = db.tile(0, 0, 0);
    ASSERT_TRUE(root.valid());
    expectColour(*root, 64, 64, kRed, 0, "root");
    expectColour(*root, 192, 64, kGreen, 0, "root");
    expectColour(*root, 64, 192, kBlue, 0, "root");
    expectColour(*root, 192, 192, kYellow, 0, "root");

    EXPECT_TRUE(progress.began);
    EXPECT_TRUE(progress.ended);
    EXPECT_EQ(progress.done(), (std::vector<long>{1, 4}));
}

TEST(ImageryPyramid, EveryPixelSamplesItsMercatorLongitudeAndLatitude)
{
    cxtest::TempDir dir;
    const std::string src = (dir.path() / "bands.png").string();
    // 0.5 degree pixels: a tile pixel more than one source pixel from a band edge
    // sees a single band.
    writeEquirect(src, 720, 360, 3, bandColour);
    const std::string out = (dir.path() / "bands.db").string();
    Progress progress;
    buildImageryPyramid(readEquirectImage(src), out, pngOptions(2), progress);

    MBTiles db(out);
    ASSERT_EQ(db.count("zoom_level = 2"), 16);
    long checked = 0;
    long wrong = 0;
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
        {
            osg::ref_ptr<osg::Image> tile = db.tile(2, x, y);
            ASSERT_TRUE(tile.valid()) << x << "," << y;
            for (int row = 0; row < 256; row += 3)
                for (int column = 0; column < 256; column += 7)
                {
                    const double lon = tilePixelLongitude(2, x, column);
                    const double lat = tilePixelLatitude(2, y, row);
                    const double lonEdge = std::fabs(std::remainder(lon + 180.0, 30.0));
                    const double latEdge = std::fabs(std::remainder(90.0 - lat, 10.0));
                    if (lonEdge < 1.0 || latEdge < 1.0)
                        continue;
                    const Colour e = bandColour(lon, lat);
                    const std::uint8_t* p = tilePixel(*tile, column, row);
                    ++checked;
                    if (p[0] != e[0] || p[1] != e[1] || p[2] != e[2])
                        ++wrong;
                }
        }
    EXPECT_GT(checked, 10000);
    EXPECT_EQ(wrong, 0);

    // A pixel a quarter of the way down the world lies at 66.5 N (band 2), not at
    // 45 N as a plain scaling of the rows would put it.
    osg::ref_ptr<osg::Image> tile = db.tile(2, 2, 1);
    ASSERT_TRUE(tile.valid());
    EXPECT_EQ(tilePixel(*tile, 128, 0)[1], 2 * 14);
}

TEST(ImageryPyramid, CoarserTilesAverageTheirChildren)
{
    cxtest::TempDir dir;
    const std::string src = (dir.path() / "bands.png").string();
    writeEquirect(src, 720, 360, 3, bandColour);
    const std::string out = (dir.path() / "bands.db").string();
    Progress progress;
    buildImageryPyramid(readEquirectImage(src), out, pngOptions(1), progress);

    MBTiles db(out);
    osg::ref_ptr<osg::Image> root = db.tile(0, 0, 0);
    ASSERT_TRUE(root.valid());
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 2; ++x)
        {
            osg::ref_ptr<osg::Image> child = db.tile(1, x, y);
            ASSERT_TRUE(child.valid());
            for (int row = 0; row < 128; row += 9)
                for (int column = 0; column < 128; column += 9)
                    for (int c = 0; c < 3; ++c)
                    {
                        const int sum = tilePixel(*child, 2 * column, 2 * row)[c]
                                        + tilePixel(*child, 2 * column + 1, 2 * row)[c]
                                        + tilePixel(*child, 2 * column, 2 * row + 1)[c]
                                        + tilePixel(*child, 2 * column + 1, 2 * row + 1)[c];
                        EXPECT_EQ(tilePixel(*root, x * 128 + column, y * 128 + row)[c], (sum + 2) / 4);
                    }
        }
}

TEST(ImageryPyramid, SamplingWrapsAroundTheAntimeridian)
{
    // Only the easternmost source column is white. The tile pixels next to the
    // antimeridian fall between that column and the westernmost one, so both world
    // edges blend the two: a quarter white at the west edge, three quarters at the east.
    cxtest::TempDir dir;
    const std::string src = (dir.path() / "seam.png").string();
    writeEquirect(src, 512, 256, 3, [](double lon, double) {
        return lon > 179.5 ? Colour{255, 255, 255, 255} : Colour{0, 0, 0, 255};
    });
    const std::string out = (dir.path() / "seam.db").string();
    Progress progress;
    buildImageryPyramid(readEquirectImage(src), out, pngOptions(2), progress);
    MBTiles db(out);
    osg::ref_ptr<osg::Image> west = db.tile(2, 0, 1);
    osg::ref_ptr<osg::Image> east = db.tile(2, 3, 1);
    ASSERT_TRUE(west.valid() && east.valid());
    EXPECT_NEAR(tilePixel(*west, 0, 100)[0], 64, 1);
    EXPECT_NEAR(tilePixel(*east, 255, 100)[0], 191, 1);
    EXPECT_EQ(tilePixel(*west, 128, 100)[0], 0);
}

TEST(ImageryPyramid, JpegTilesAndMetadata)
{
    cxtest::TempDir dir;
    const std::string src = (dir.path() / "quadrants.jpg").string();
    writeEquirect(src, 1024, 512, 3, quadrantColour);
    const std::string out = (dir.path() / "world.db").string();
    PyramidOptions options; // JPEG, deepest level from the 1024-pixel width
    options.description = "test world";
    options.attribution = "made by the test";
    Progress progress;
    const PyramidSummary summary = buildImageryPyramid(readEquirectImage(src), out, options, progress);
    EXPECT_EQ(summary.maxZoom, 2);
    EXPECT_EQ(summary.tiles, 21);
    EXPECT_GT(summary.tileBytes, 0u);

    MBTiles db(out);
    EXPECT_EQ(db.count(), 21);
    const auto meta = db.metadata();
    EXPECT_EQ(meta.at("name"), "world");
    EXPECT_EQ(meta.at("format"), "jpg");
    EXPECT_EQ(meta.at("minzoom"), "0");
    EXPECT_EQ(meta.at("maxzoom"), "2");
    EXPECT_EQ(meta.at("type"), "baselayer");
    EXPECT_EQ(meta.at("version"), "1");
    EXPECT_EQ(meta.at("description"), "test world");
    EXPECT_EQ(meta.at("attribution"), "made by the test");
    EXPECT_EQ(meta.count("elevation_encoding"), 0u);
    double west = 0, south = 0, east = 0, north = 0;
    ASSERT_EQ(std::sscanf(meta.at("bounds").c_str(), "%lf,%lf,%lf,%lf", &west, &south, &east, &north), 4);
    EXPECT_DOUBLE_EQ(west, -180.0);
    EXPECT_DOUBLE_EQ(east, 180.0);
    EXPECT_NEAR(south, -85.0511, 1e-4);
    EXPECT_NEAR(north, 85.0511, 1e-4);

    const std::string blob = db.blob(2, 0, 3);
    ASSERT_GT(blob.size(), 2u);
    EXPECT_EQ(static_cast<unsigned char>(blob[0]), 0xFF); // JPEG start of image
    EXPECT_EQ(static_cast<unsigned char>(blob[1]), 0xD8);
    osg::ref_ptr<osg::Image> tile = db.tile(2, 0, 0); // far north-west
    ASSERT_TRUE(tile.valid());
    expectColour(*tile, 128, 128, kRed, 12, "jpeg tile 2/0/0");
    tile = db.tile(2, 3, 3); // far south-east
    ASSERT_TRUE(tile.valid());
    expectColour(*tile, 128, 128, kYellow, 12, "jpeg tile 2/3/3");
}

TEST(ImageryPyramid, PngTilesKeepAnAlphaChannel)
{
    cxtest::TempDir dir;
    const std::string src = (dir.path() / "alpha.png").string();
    writeEquirect(src, 512, 256, 4, [](double, double lat) {
        return lat >= 0 ? Colour{10, 20, 30, 255} : Colour{10, 20, 30, 0};
    });
    const std::string out = (dir.path() / "alpha.db").string();
    Progress progress;
    buildImageryPyramid(readEquirectImage(src), out, pngOptions(0), progress);
    MBTiles db(out);
    EXPECT_EQ(db.metadata().at("format"), "png");
    const std::string blob = db.blob(0, 0, 0);
    ASSERT_GT(blob.size(), 4u);
    EXPECT_EQ(blob.substr(1, 3), "PNG");
    osg::ref_ptr<osg::Image> tile = db.tile(0, 0, 0);
    ASSERT_TRUE(tile.valid());
    ASSERT_EQ(tile->getPixelFormat(), static_cast<GLenum>(GL_RGBA));
    EXPECT_EQ(tilePixel(*tile, 100, 60)[3], 255);
    EXPECT_EQ(tilePixel(*tile, 100, 200)[3], 0);
    EXPECT_EQ(tilePixel(*tile, 100, 60)[2], 30);
}

TEST(ImageryPyramid, MaxZoomOverrideAndLimit)
{
    cxtest::TempDir dir;
    const std::string src = (dir.path() / "quadrants.png").string();
    writeEquirect(src, 1024, 512, 3, quadrantColour);
    const EquirectImage image = readEquirectImage(src);
    Progress progress;
    const std::string out = (dir.path() / "z1.db").string();
    EXPECT_EQ(buildImageryPyramid(image, out, pngOptions(1), progress).tiles, 5);
    MBTiles db(out);
    EXPECT_EQ(db.metadata().at("maxzoom"), "1");
    EXPECT_EQ(db.count("zoom_level > 1"), 0);

    const std::string tooDeep = (dir.path() / "deep.db").string();
    EXPECT_THROW(buildImageryPyramid(image, tooDeep, pngOptions(kMaxZoomLimit + 1), progress), Error);
    EXPECT_FALSE(std::filesystem::exists(tooDeep));
}

TEST(ImageryPyramid, CancelledBuildLeavesNoFileAndKeepsTheOldOne)
{
    cxtest::TempDir dir;
    const std::string src = (dir.path() / "quadrants.png").string();
    writeEquirect(src, 512, 256, 3, quadrantColour);
    const EquirectImage image = readEquirectImage(src);

    const std::string fresh = (dir.path() / "fresh.db").string();
    CountingProgress cancelFresh(3);
    EXPECT_THROW(buildImageryPyramid(image, fresh, pngOptions(2), cancelFresh), Error);
    EXPECT_FALSE(cancelFresh.ended);
    EXPECT_FALSE(std::filesystem::exists(fresh));

    // An earlier, complete file stays as it was when a rebuild fails.
    const std::string existing = (dir.path() / "existing.db").string();
    Progress progress;
    buildImageryPyramid(image, existing, pngOptions(0), progress);
    const auto sizeBefore = std::filesystem::file_size(existing);
    CountingProgress cancelRebuild(5);
    EXPECT_THROW(buildImageryPyramid(image, existing, pngOptions(2), cancelRebuild), Error);
    EXPECT_EQ(std::filesystem::file_size(existing), sizeBefore);
    MBTiles db(existing);
    EXPECT_EQ(db.count(), 1);
    EXPECT_EQ(db.metadata().at("maxzoom"), "0");

    // Only the source and the complete file remain: no temporary files.
    auto files = listFiles(dir.path());
    std::sort(files.begin(), files.end());
    EXPECT_EQ(files, (std::vector<std::string>{"existing.db", "quadrants.png"}));
}

TEST(ImageryPyramid, GreyImagesBecomeRgb)
{
    cxtest::TempDir dir;
    osg::ref_ptr<osg::Image> grey = new osg::Image;
    grey->allocateImage(64, 32, 1, GL_LUMINANCE, GL_UNSIGNED_BYTE);
    for (int row = 0; row < 32; ++row) // stored bottom row first: the south half is dark
        for (int column = 0; column < 64; ++column)
            *grey->data(column, row) = row < 16 ? 40 : 200;
    const std::string src = (dir.path() / "grey.png").string();
    ASSERT_TRUE(osgDB::writeImageFile(*grey, src));
    const EquirectImage image = readEquirectImage(src);
    ASSERT_EQ(image.channels(), 3);
    EXPECT_EQ(image.pixel(5, 0)[0], 200);
    EXPECT_EQ(image.pixel(5, 0)[2], 200);
    EXPECT_EQ(image.pixel(5, 31)[1], 40);
}
