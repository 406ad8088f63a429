// The cxtiler command line: the three commands end to end, and bad input giving a
// clear message, a non-zero status and no output file.
#include "CommandLine.h"
#include "TileMath.h"

#include "TempDir.h"
#include "TilerTestSupport.h"

#include <gtest/gtest.h>
#include <tinyxml.h>

#include <algorithm>
#include <fstream>

using namespace tilertest;
namespace fs = std::filesystem;

namespace
{

RunResult run(const std::vector<std::string>& args) { return runTiler(args); }

std::array<std::uint8_t, 4> blueMarbleLike(double lon, double lat)
{
    return {static_cast<std::uint8_t>(lat > 0 ? 200 : 20), static_cast<std::uint8_t>(lon > 0 ? 180 : 40), 90, 255};
}

/** A folder with the marble layout: srtm2/0/000000/000000_00000{0,1}.png. */
fs::path writeSrtmFolder(const fs::path& root, int size)
{
    const fs::path tiles = root / "srtm2" / "0" / "000000";
    fs::create_directories(tiles);
    writeSrtmTile((tiles / "000000_000000.png").string(), size, [](int column, int) {
        return static_cast<std::int16_t>(column == 5 ? -32768 : 300);
    });
    writeSrtmTile((tiles / "000000_000001.png").string(), size, [](int, int row) {
        return static_cast<std::int16_t>(row * 10);
    });
    return root / "srtm2";
}

/** Expects a failed run with a message naming `what`, and nothing left in `dir`
 *  but the files listed. */
void expectFailure(const RunResult& r, int status, const std::string& what, const fs::path& dir,
                   std::vector<std::string> remaining)
{
    EXPECT_EQ(r.status, status) << r.err;
    EXPECT_TRUE(contains(r.err, what)) << "message: " << r.err;
    std::vector<std::string> files = listFiles(dir);
    std::sort(files.begin(), files.end());
    std::sort(remaining.begin(), remaining.end());
    EXPECT_EQ(files, remaining);
}

} // namespace

TEST(CxtilerCommand, ImageWritesAPyramidAndShowsProgress)
{
    cxtest::TempDir dir;
    const std::string src = (dir.path() / "world.png").string();
    writeEquirect(src, 600, 300, 3, blueMarbleLike);
    const std::string out = (dir.path() / "image.db").string();
    const RunResult r = run({"image", src, out, "--name", "Blue test", "--attribution", "synthetic"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.err.empty()) << r.err;
    EXPECT_TRUE(contains(r.out, "600 x 300")) << r.out;
    EXPECT_TRUE(contains(r.out, "level 2 done: 16 tiles")) << r.out;
    EXPECT_TRUE(contains(r.out, "level 0 done: 1 tiles")) << r.out;
    EXPECT_TRUE(contains(r.out, "21 tiles")) << r.out;
    EXPECT_TRUE(contains(r.out, "wrote " + out)) << r.out;

    MBTiles db(out);
    const auto meta = db.metadata();
    EXPECT_EQ(meta.at("name"), "Blue test");
    EXPECT_EQ(meta.at("format"), "jpg");
    EXPECT_EQ(meta.at("maxzoom"), "2");
    EXPECT_EQ(meta.at("attribution"), "synthetic");
    EXPECT_EQ(db.count(), 21);
    EXPECT_EQ(listFiles(dir.path()).size(), 2u);
}

TEST(CxtilerCommand, ImageOptions)
{
    cxtest::TempDir dir;
    const std::string src = (dir.path() / "world.png").string();
    writeEquirect(src, 600, 300, 3, blueMarbleLike);
    const std::string out = (dir.path() / "image.db").string();
    const RunResult r = run({"image", "--format", "png", "--max-zoom", "1", src, out, "--quiet"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_FALSE(contains(r.out, "level 1 done")) << r.out;
    MBTiles db(out);
    EXPECT_EQ(db.metadata().at("format"), "png");
    EXPECT_EQ(db.metadata().at("maxzoom"), "1");
    EXPECT_EQ(db.count(), 5);

    const std::string jpeg = (dir.path() / "q.db").string();
    EXPECT_EQ(run({"image", src, jpeg, "--quality", "40", "--max-zoom", "0"}).status, 0);
    EXPECT_EQ(MBTiles(jpeg).count(), 1);
}

TEST(CxtilerCommand, ElevationFromTheMarbleFolderFillsVoids)
{
    cxtest::TempDir dir;
    const fs::path folder = writeSrtmFolder(dir.path() / "marble", 64);
    const std::string out = (dir.path() / "dem.db").string();
    const RunResult r = run({"elevation", folder.string(), out});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "128 x 64")) << r.out;
    EXPECT_TRUE(contains(r.out, "64 voids")) << r.out;
    EXPECT_TRUE(contains(r.out, "64 voids filled")) << r.out;
    EXPECT_TRUE(contains(r.out, "level 0 done")) << r.out;

    MBTiles db(out);
    EXPECT_EQ(db.metadata().at("elevation_encoding"), "mapbox");
    EXPECT_EQ(db.metadata().at("maxzoom"), "0");
    osg::ref_ptr<osg::Image> tile = db.tile(0, 0, 0);
    ASSERT_TRUE(tile.valid());
    // The void column of the west tile (about 150 W) was filled from its 300 m neighbours.
    for (int row = 40; row < 220; row += 20)
        EXPECT_NEAR(terrainRgbHeight(tilePixel(*tile, 8, row)), 300.0, 0.1) << row;
}

TEST(CxtilerCommand, ElevationFromTwoTilesAndFromAHeightImage)
{
    cxtest::TempDir dir;
    const fs::path folder = writeSrtmFolder(dir.path() / "marble", 16);
    const fs::path tiles = folder / "0" / "000000";
    const std::string pair = (dir.path() / "pair.db").string();
    EXPECT_EQ(run({"elevation", (tiles / "000000_000000.png").string(), (tiles / "000000_000001.png").string(), pair})
                  .status,
              0);
    EXPECT_EQ(MBTiles(pair).count(), 1);

    const std::string heights = (dir.path() / "heights.png").string();
    writeHeights16(heights, 64, 32, [](int, int row) { return static_cast<std::int16_t>(row < 16 ? 1500 : -20); });
    const std::string out = (dir.path() / "grid.db").string();
    const RunResult r = run({"elevation", heights, out, "--max-zoom", "1"});
    ASSERT_EQ(r.status, 0) << r.err;
    MBTiles db(out);
    EXPECT_EQ(db.count(), 5);
    osg::ref_ptr<osg::Image> north = db.tile(1, 0, 0);
    osg::ref_ptr<osg::Image> south = db.tile(1, 1, 1);
    ASSERT_TRUE(north.valid() && south.valid());
    EXPECT_NEAR(terrainRgbHeight(tilePixel(*north, 100, 60)), 1500.0, 0.1);
    EXPECT_NEAR(terrainRgbHeight(tilePixel(*south, 100, 200)), -20.0, 0.1);
}

TEST(CxtilerCommand, CleaningIsOnForSrtmAndOptionalForHeightImages)
{
    cxtest::TempDir dir;
    const std::string heights = (dir.path() / "spike.png").string();
    writeHeights16(heights, 64, 32, [](int column, int row) {
        return static_cast<std::int16_t>(column == 20 && row == 10 ? 12000 : 100);
    });
    const std::string kept = (dir.path() / "kept.db").string();
    const std::string cleaned = (dir.path() / "cleaned.db").string();
    ASSERT_EQ(run({"elevation", heights, kept, "--max-zoom", "0", "-q"}).status, 0);
    const RunResult r = run({"elevation", heights, cleaned, "--max-zoom", "0", "--clean", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "1 corrupt cells")) << r.out;

    // The spike's cell centre: 180 * (20.5 / 64 * 2 - 1) = -64.6875 E, 90 - 10.5 * 180 / 32 = 30.9375 N.
    const double x = (-64.6875 + 180.0) / 360.0 * 256.0;
    const double n = std::log(std::tan(kPi / 4.0 + 30.9375 * kPi / 360.0));
    const double y = (1.0 - n / kPi) / 2.0 * 256.0;
    osg::ref_ptr<osg::Image> spiky = MBTiles(kept).tile(0, 0, 0);
    osg::ref_ptr<osg::Image> flat = MBTiles(cleaned).tile(0, 0, 0);
    ASSERT_TRUE(spiky.valid() && flat.valid());
    EXPECT_GT(terrainRgbHeight(tilePixel(*spiky, static_cast<int>(x), static_cast<int>(y))), 1000.0);
    EXPECT_NEAR(terrainRgbHeight(tilePixel(*flat, static_cast<int>(x), static_cast<int>(y))), 100.0, 0.1);
}

TEST(CxtilerCommand, EarthFileWithoutAndWithLayers)
{
    cxtest::TempDir dir;
    const fs::path plain = dir.path() / "china-simple.earth";
    RunResult r = run({"earth", plain.string()});
    ASSERT_EQ(r.status, 0) << r.err;
    {
        TiXmlDocument doc(plain.string());
        ASSERT_TRUE(doc.LoadFile());
        const TiXmlElement* map = doc.RootElement();
        ASSERT_NE(map, nullptr);
        EXPECT_STREQ(map->Value(), "map");
        EXPECT_STREQ(map->Attribute("name"), "china-simple");
        EXPECT_STREQ(map->Attribute("type"), "geocentric");
        EXPECT_STREQ(map->Attribute("version"), "2");
        EXPECT_EQ(map->FirstChildElement(), nullptr); // the viewer adds its layers itself
    }

    const fs::path layered = dir.path() / "layers.earth";
    r = run({"earth", layered.string(), "--name", "A & <B>", "--image", "../data/base/image.db", "--elevation",
             "dem.db"});
    ASSERT_EQ(r.status, 0) << r.err;
    TiXmlDocument doc(layered.string());
    ASSERT_TRUE(doc.LoadFile());
    const TiXmlElement* map = doc.RootElement();
    ASSERT_NE(map, nullptr);
    EXPECT_STREQ(map->Attribute("name"), "A & <B>");
    const TiXmlElement* image = map->FirstChildElement("image");
    ASSERT_NE(image, nullptr);
    EXPECT_STREQ(image->Attribute("driver"), "mbtiles");
    EXPECT_STREQ(image->Attribute("name"), "image");
    ASSERT_NE(image->FirstChildElement("url"), nullptr);
    EXPECT_STREQ(image->FirstChildElement("url")->GetText(), "../data/base/image.db");
    const TiXmlElement* elevation = map->FirstChildElement("elevation");
    ASSERT_NE(elevation, nullptr);
    EXPECT_STREQ(elevation->Attribute("driver"), "mbtiles");
    ASSERT_NE(elevation->FirstChildElement("url"), nullptr);
    EXPECT_STREQ(elevation->FirstChildElement("url")->GetText(), "dem.db");
}

TEST(CxtilerCommand, MissingInputFile)
{
    cxtest::TempDir dir;
    const std::string out = (dir.path() / "image.db").string();
    expectFailure(run({"image", (dir.path() / "nowhere.jpg").string(), out}), 1, "no such file", dir.path(), {});
    expectFailure(run({"elevation", (dir.path() / "nowhere.png").string(), out}), 1, "no such file", dir.path(), {});
}

TEST(CxtilerCommand, InputThatIsNotAnImage)
{
    cxtest::TempDir dir;
    dir.write("fake.jpg", "this is text, not a JPEG");
    dir.write("fake.png", "this is text, not a PNG");
    const std::string out = (dir.path() / "out.db").string();
    expectFailure(run({"image", (dir.path() / "fake.jpg").string(), out}), 1, "not an image", dir.path(),
                  {"fake.jpg", "fake.png"});
    expectFailure(run({"elevation", (dir.path() / "fake.png").string(), out}), 1, "not an image", dir.path(),
                  {"fake.jpg", "fake.png"});
    // An empty folder holds no SRTM tiles.
    fs::create_directory(dir.path() / "empty");
    expectFailure(run({"elevation", (dir.path() / "empty").string(), out}), 1, "holds no SRTM tiles", dir.path(),
                  {"fake.jpg", "fake.png", "empty"});
    // A folder is not an image.
    expectFailure(run({"image", (dir.path() / "empty").string(), out}), 1, "folder", dir.path(),
                  {"fake.jpg", "fake.png", "empty"});
}

TEST(CxtilerCommand, InputOfTheWrongSize)
{
    cxtest::TempDir dir;
    const std::string square = (dir.path() / "square.png").string();
    writeEquirect(square, 300, 300, 3, blueMarbleLike);
    const std::string out = (dir.path() / "out.db").string();
    expectFailure(run({"image", square, out}), 1, "twice as wide as it is high", dir.path(), {"square.png"});

    const std::string heights = (dir.path() / "h.png").string();
    writeHeights16(heights, 50, 30, [](int, int) { return std::int16_t(1); });
    expectFailure(run({"elevation", heights, out}), 1, "twice as wide as it is high", dir.path(),
                  {"square.png", "h.png"});

    // SRTM tiles that are not square, or not the same size.
    const std::string west = (dir.path() / "w.png").string();
    const std::string east = (dir.path() / "e.png").string();
    writeSrtmTile(west, 20, [](int, int) { return std::int16_t(1); });
    writeSrtmTile(east, 24, [](int, int) { return std::int16_t(1); });
    expectFailure(run({"elevation", west, east, out}), 1, "differ in size", dir.path(),
                  {"square.png", "h.png", "w.png", "e.png"});
    expectFailure(run({"elevation", west, heights, out}), 1, "not an 8-bit RGB image", dir.path(),
                  {"square.png", "h.png", "w.png", "e.png"});
    writeEquirect(east, 40, 20, 3, blueMarbleLike);
    expectFailure(run({"elevation", west, east, out}), 1, "square", dir.path(),
                  {"square.png", "h.png", "w.png", "e.png"});

    // An 8-bit grey image is no height grid.
    osg::ref_ptr<osg::Image> grey = new osg::Image;
    grey->allocateImage(8, 4, 1, GL_LUMINANCE, GL_UNSIGNED_BYTE);
    std::fill(grey->data(), grey->data() + 32, 7);
    const std::string greyPath = (dir.path() / "grey.png").string();
    ASSERT_TRUE(osgDB::writeImageFile(*grey, greyPath));
    expectFailure(run({"elevation", greyPath, out}), 1, "16-bit", dir.path(),
                  {"square.png", "h.png", "w.png", "e.png", "grey.png"});
}

TEST(CxtilerCommand, UnwritableOutput)
{
    cxtest::TempDir dir;
    const std::string src = (dir.path() / "world.png").string();
    writeEquirect(src, 64, 32, 3, blueMarbleLike);
    dir.write("plain-file", "x");
    fs::create_directory(dir.path() / "folder");
    const std::vector<std::string> sources = {"world.png", "plain-file", "folder"};

    expectFailure(run({"image", src, (dir.path() / "missing" / "image.db").string()}), 1, "does not exist",
                  dir.path(), sources);
    expectFailure(run({"image", src, (dir.path() / "plain-file" / "image.db").string()}), 1, "cannot write",
                  dir.path(), sources);
    expectFailure(run({"image", src, (dir.path() / "folder").string()}), 1, "it is a folder", dir.path(), sources);
    EXPECT_TRUE(fs::is_empty(dir.path() / "folder"));
    expectFailure(run({"earth", (dir.path() / "missing" / "x.earth").string()}), 1, "cannot write", dir.path(),
                  sources);
    expectFailure(run({"earth", (dir.path() / "folder").string()}), 1, "it is a folder", dir.path(), sources);
}

TEST(CxtilerCommand, FailedRunKeepsTheEarlierOutput)
{
    cxtest::TempDir dir;
    const std::string src = (dir.path() / "world.png").string();
    writeEquirect(src, 64, 32, 3, blueMarbleLike);
    const std::string out = (dir.path() / "image.db").string();
    ASSERT_EQ(run({"image", src, out, "-q"}).status, 0);
    const auto size = fs::file_size(out);
    dir.write("broken.png", "not a picture");
    expectFailure(run({"image", (dir.path() / "broken.png").string(), out}), 1, "not an image", dir.path(),
                  {"world.png", "image.db", "broken.png"});
    EXPECT_EQ(fs::file_size(out), size);
    EXPECT_EQ(MBTiles(out).count(), 1);
}

TEST(CxtilerCommand, MalformedCommandLines)
{
    cxtest::TempDir dir;
    const std::string src = (dir.path() / "world.png").string();
    writeEquirect(src, 64, 32, 3, blueMarbleLike);
    const std::string out = (dir.path() / "o.db").string();
    const std::vector<std::string> sources = {"world.png"};

    expectFailure(run({}), 2, "usage:", dir.path(), sources);
    expectFailure(run({"pyramid", src, out}), 2, "unknown command 'pyramid'", dir.path(), sources);
    expectFailure(run({"image", src}), 2, "one or more input images and an output file", dir.path(), sources);
    expectFailure(run({"image", src, out, "--format", "gif"}), 2, "--format is jpg or png", dir.path(), sources);
    expectFailure(run({"image", src, out, "--quality", "0"}), 2, "--quality wants a whole number", dir.path(), sources);
    expectFailure(run({"image", src, out, "--max-zoom", "x"}), 2, "--max-zoom wants a whole number", dir.path(),
                  sources);
    expectFailure(run({"image", src, out, "--max-zoom", std::to_string(cxtiler::kMaxZoomLimit + 1)}), 2,
                  "--max-zoom wants a whole number", dir.path(), sources);
    expectFailure(run({"image", src, out, "--max-zoom"}), 2, "--max-zoom needs a value", dir.path(), sources);
    expectFailure(run({"image", src, out, "--clean"}), 2, "unknown option '--clean'", dir.path(), sources);
    expectFailure(run({"elevation", src, out, "--format", "png"}), 2, "unknown option '--format'", dir.path(),
                  sources);
    expectFailure(run({"elevation", src, out, "--clean", "--no-clean"}), 2, "exclude each other", dir.path(),
                  sources);
    expectFailure(run({"elevation", out}), 2, "one or more inputs and an output file", dir.path(), sources);
    expectFailure(run({"image", src, out, "--srs"}), 2, "--srs needs a value", dir.path(), sources);
    expectFailure(run({"earth"}), 2, "the output file", dir.path(), sources);

    const RunResult help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(contains(help.out, "cxtiler image INPUT... OUTPUT.db"));
    EXPECT_TRUE(contains(help.out, "cxtiler elevation INPUT... OUTPUT.db"));
    EXPECT_TRUE(contains(help.out, "--srs SRS"));
    EXPECT_TRUE(contains(help.out, "cxtiler earth OUTPUT.earth"));
}
