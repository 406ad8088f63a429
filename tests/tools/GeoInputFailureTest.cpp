// Bad georeferenced inputs: every one is found before anything is written, the
// message names it, the status is 1 and no output file appears (an earlier one
// stays as it was).
#include "GeoRasterFiles.h"
#include "TempDir.h"
#include "TilerTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace tilertest;
using namespace geotest;
namespace fs = std::filesystem;

namespace
{

TestRaster colourRaster(double west, double north)
{
    TestRaster layout;
    layout.width = layout.height = 300;
    layout.bands = 3;
    layout.transform = northUp(west, north, 0.001, 0.001);
    layout.value = [](int band, int column, int row) { return (band * 40 + column + row) % 256; };
    return layout;
}

/** A failed run: status 1, a message naming `path`, and only `files` left in `dir`. */
void expectRejected(const RunResult& r, const std::string& path, const fs::path& dir, std::vector<std::string> files)
{
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_TRUE(contains(r.err, "'" + path + "'")) << r.err;
    std::vector<std::string> present = listFiles(dir);
    std::sort(present.begin(), present.end());
    std::sort(files.begin(), files.end());
    EXPECT_EQ(present, files);
}

} // namespace

TEST(TilerGeoInputs, TruncatedGeoTiff)
{
    cxtest::TempDir dir;
    const std::string good = (dir.path() / "good.tif").string();
    const std::string cut = (dir.path() / "cut.tif").string();
    writeGeoTiff(good, colourRaster(8.0, 47.0));
    writeGeoTiff(cut, colourRaster(8.3, 47.0));
    fs::resize_file(cut, fs::file_size(cut) * 2 / 5);

    const std::string output = (dir.path() / "out.db").string();
    expectRejected(runTiler({"image", cut, output}), cut, dir.path(), {"good.tif", "cut.tif"});
    expectRejected(runTiler({"image", good, cut, output}), cut, dir.path(), {"good.tif", "cut.tif"});
    // Cut short comes before missing: the first bad input is the one named.
    const RunResult first = runTiler({"image", good, cut, (dir.path() / "missing.tif").string(), output});
    expectRejected(first, cut, dir.path(), {"good.tif", "cut.tif"});
    EXPECT_FALSE(contains(first.err, "missing.tif")) << first.err;
    expectRejected(runTiler({"elevation", cut, output}), cut, dir.path(), {"good.tif", "cut.tif"});

    // A complete earlier output survives a failed rebuild unchanged.
    ASSERT_EQ(runTiler({"image", good, output, "-q"}).status, 0);
    const auto size = fs::file_size(output);
    const long tiles = MBTiles(output).count();
    expectRejected(runTiler({"image", cut, output}), cut, dir.path(), {"good.tif", "cut.tif", "out.db"});
    EXPECT_EQ(fs::file_size(output), size);
    EXPECT_EQ(MBTiles(output).count(), tiles);
}

TEST(TilerGeoInputs, TextFileNamedTifAndMissingFiles)
{
    cxtest::TempDir dir;
    const std::string good = (dir.path() / "good.tif").string();
    writeGeoTiff(good, colourRaster(8.0, 47.0));
    const std::string text = dir.write("notes.tif", "these are notes, not a GeoTIFF\n").string();
    const std::string missing = (dir.path() / "missing.tif").string();
    const std::string output = (dir.path() / "out.db").string();
    const std::vector<std::string> files = {"good.tif", "notes.tif"};

    RunResult r = runTiler({"image", text, output});
    expectRejected(r, text, dir.path(), files);
    EXPECT_TRUE(contains(r.err, "not an image")) << r.err;
    r = runTiler({"elevation", good, missing, output});
    expectRejected(r, missing, dir.path(), files);
    EXPECT_TRUE(contains(r.err, "no such file")) << r.err;
    // The first bad input of several is the one reported.
    r = runTiler({"image", good, text, missing, output});
    expectRejected(r, text, dir.path(), files);
    EXPECT_FALSE(contains(r.err, missing)) << r.err;
}

TEST(TilerGeoInputs, TruncatedHgt)
{
    cxtest::TempDir dir;
    const std::string hgt = (dir.path() / "N39E116.hgt").string();
    writeHgt(hgt, 116, 39, 1201, [](int column, int row) { return 100.0 + column - row; });
    fs::resize_file(hgt, 1201 * 2 * 600);
    const std::string output = (dir.path() / "dem.db").string();
    expectRejected(runTiler({"elevation", hgt, output}), hgt, dir.path(), {"N39E116.hgt"});
}

TEST(TilerGeoInputs, GeoreferencedAndPlainImagesDoNotMix)
{
    cxtest::TempDir dir;
    const std::string good = (dir.path() / "good.tif").string();
    writeGeoTiff(good, colourRaster(8.0, 47.0));
    const std::string plain = (dir.path() / "plain.png").string();
    writeEquirect(plain, 64, 32, 3, [](double, double) { return std::array<std::uint8_t, 4>{1, 2, 3, 255}; });
    const std::string output = (dir.path() / "out.db").string();
    const RunResult r = runTiler({"image", good, plain, output});
    expectRejected(r, plain, dir.path(), {"good.tif", "plain.png"});
    EXPECT_TRUE(contains(r.err, "not georeferenced")) << r.err;
    // --srs cannot place an image that has no georeferencing at all.
    expectRejected(runTiler({"image", plain, output, "--srs", "EPSG:4326"}), plain, dir.path(),
                   {"good.tif", "plain.png"});
}

TEST(TilerGeoInputs, CoordinateSystemThatCannotBeConverted)
{
    // A raster in a coordinate system PROJ cannot take to spherical mercator: an
    // engineering system with no tie to the Earth.
    cxtest::TempDir dir;
    const std::string input = (dir.path() / "local.tif").string();
    TestRaster layout = colourRaster(1000.0, 2000.0);
    layout.epsg = 0;
    GDALDatasetH memory = memoryRaster(layout);
    GDALSetProjection(memory, "LOCAL_CS[\"site grid\",UNIT[\"metre\",1]]");
    ASSERT_TRUE(copyTo(memory, "GTiff", input));
    GDALClose(memory);
    const std::string output = (dir.path() / "out.db").string();
    const RunResult r = runTiler({"image", input, output});
    expectRejected(r, input, dir.path(), {"local.tif"});
}
