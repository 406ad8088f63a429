// The point cloud readers of `cxtiler points`: every LAS point format read,
// with scale and offset, colour, intensity, class, user data and returns;
// PLY ascii and binary with float and double coordinates; the XYZ layouts;
// and each kind of bad file refused with a message naming it.
#include "PointCloudFiles.h"
#include "PointSource.h"
#include "TempDir.h"
#include "ToolError.h"

#include <gtest/gtest.h>

using namespace pointtest;
using cxtiler::PointRecord;

namespace
{

/** Every point of a file, in one pass. */
std::vector<PointRecord> readAll(cxtiler::PointSource& source)
{
    std::vector<PointRecord> all, batch;
    source.rewind();
    while (source.read(batch, 3))
        all.insert(all.end(), batch.begin(), batch.end());
    return all;
}

std::vector<PointRecord> readAll(const std::string& path)
{
    auto source = cxtiler::openPointSource(path);
    return readAll(*source);
}

/** The message of the Error that opening and reading `path` throws; "" when
 *  it reads. */
std::string failureOf(const std::string& path)
{
    try
    {
        auto source = cxtiler::openPointSource(path);
        readAll(*source);
        readAll(*source);
    }
    catch (const cxtool::Error& e)
    {
        return e.what();
    }
    return std::string();
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

/** Three points with every field set to something of its own. */
std::vector<TestPoint> knownPoints()
{
    std::vector<TestPoint> points(3);
    points[0] = {448100.125, 4418200.5, 43.25, 1000, 65535, 32768, 0, 1, 2, 2, 7};
    points[1] = {448101.0, 4418201.75, 44.0, 300, 256, 512, 1024, 2, 3, 6, 1};
    points[2] = {448102.5, 4418199.0, 40.001, 40000, 0, 65280, 4096, 3, 3, 9, 255};
    return points;
}

void expectPosition(const PointRecord& p, const TestPoint& t, double tolerance)
{
    EXPECT_NEAR(p.x, t.x, tolerance);
    EXPECT_NEAR(p.y, t.y, tolerance);
    EXPECT_NEAR(p.z, t.z, tolerance);
}

class LasFormats : public ::testing::TestWithParam<std::tuple<int, int>>
{
};

} // namespace

TEST_P(LasFormats, ReadsEveryFieldOfTheFormat)
{
    const auto [minor, format] = GetParam();
    cxtest::TempDir dir;
    LasFile las;
    las.minor = minor;
    las.format = format;
    las.scale[0] = 0.001;
    las.scale[1] = 0.0005;
    las.scale[2] = 0.01;
    las.offset[0] = 448000.0;
    las.offset[1] = 4418000.0;
    las.offset[2] = -10.0;
    las.points = knownPoints();
    // Formats 0-5 keep flags in the class byte's top bits: only the low 5 bits are the class.
    if (format < 6)
        las.points[1].classification = 6 | 0xE0;
    else
        las.points[1].classification = 200;
    las.vlrs.push_back(wktRecord(32650));
    const std::string path = (dir.path() / "cloud.las").string();
    writeLas(path, las);

    auto source = cxtiler::openPointSource(path);
    EXPECT_EQ(source->info().count, 3);
    EXPECT_TRUE(contains(source->info().format, "point format " + std::to_string(format))) << source->info().format;
    EXPECT_TRUE(contains(source->info().format, "LAS 1." + std::to_string(minor))) << source->info().format;
    const std::vector<PointRecord> points = readAll(*source);
    ASSERT_EQ(points.size(), 3u);
    const bool colour = format == 2 || format == 3 || format == 7 || format == 8;
    EXPECT_EQ(source->info().hasColour, colour);
    for (std::size_t i = 0; i < 3; ++i)
    {
        const TestPoint& t = las.points[i];
        const PointRecord& p = points[i];
        expectPosition(p, t, 0.0051); // the coarsest scale is 1 cm
        EXPECT_EQ(p.intensity, t.intensity);
        EXPECT_EQ(p.returnNumber, t.returnNumber);
        EXPECT_EQ(p.numberOfReturns, t.numberOfReturns);
        EXPECT_EQ(p.userData, t.userData);
        if (colour)
        {
            EXPECT_EQ(p.red, t.red >> 8);
            EXPECT_EQ(p.green, t.green >> 8);
            EXPECT_EQ(p.blue, t.blue >> 8);
        }
        else
        {
            // Grey from the intensity: 8 bits up to 255, 16 bits above.
            const int grey = t.intensity > 255 ? t.intensity >> 8 : t.intensity;
            EXPECT_EQ(p.red, grey);
            EXPECT_EQ(p.green, grey);
            EXPECT_EQ(p.blue, grey);
        }
    }
    EXPECT_EQ(points[0].classification, 2);
    EXPECT_EQ(points[1].classification, format < 6 ? 6 : 200);
    EXPECT_EQ(points[2].classification, 9);
    EXPECT_DOUBLE_EQ(points[0].x, 448100.125);
    EXPECT_EQ(source->info().crsOrigin, "its WKT record");
    EXPECT_TRUE(contains(source->info().crs, "UTM zone 50N")) << source->info().crs;
}

INSTANTIATE_TEST_SUITE_P(Las, LasFormats,
                         ::testing::Values(std::make_tuple(2, 0), std::make_tuple(2, 1), std::make_tuple(2, 2),
                                           std::make_tuple(2, 3), std::make_tuple(3, 3), std::make_tuple(4, 6),
                                           std::make_tuple(4, 7), std::make_tuple(4, 8)));

TEST(LasReader, ReturnsOfLas14TakeFourBitsEach)
{
    cxtest::TempDir dir;
    LasFile las;
    las.minor = 4;
    las.format = 6;
    las.offset[0] = 448000.0;
    las.offset[1] = 4418000.0;
    las.points = knownPoints();
    las.points[0].returnNumber = 13;
    las.points[0].numberOfReturns = 15;
    const std::string path = (dir.path() / "returns.las").string();
    writeLas(path, las);
    const auto points = readAll(path);
    ASSERT_EQ(points.size(), 3u);
    EXPECT_EQ(points[0].returnNumber, 13);
    EXPECT_EQ(points[0].numberOfReturns, 15);
}

TEST(LasReader, ExtraBytesAfterTheRecordAreSkipped)
{
    cxtest::TempDir dir;
    LasFile las;
    las.minor = 4;
    las.format = 7;
    las.extraBytes = 11;
    las.offset[0] = 448000.0;
    las.offset[1] = 4418000.0;
    las.points = knownPoints();
    const std::string path = (dir.path() / "extra.las").string();
    writeLas(path, las);
    const auto points = readAll(path);
    ASSERT_EQ(points.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i)
    {
        expectPosition(points[i], las.points[i], 0.0006);
        EXPECT_EQ(points[i].intensity, las.points[i].intensity);
        EXPECT_EQ(points[i].red, las.points[i].red >> 8);
    }
}

TEST(LasReader, ColoursThatAllStayBelow256AreEightBitsOnceAPassHasShownIt)
{
    cxtest::TempDir dir;
    LasFile las;
    las.format = 2;
    las.points = knownPoints();
    for (TestPoint& p : las.points)
    {
        p.red = 200;
        p.green = 100;
        p.blue = 7;
    }
    const std::string path = (dir.path() / "eight.las").string();
    writeLas(path, las);
    auto source = cxtiler::openPointSource(path);
    readAll(*source); // the tiler's first pass
    const auto points = readAll(*source);
    EXPECT_EQ(points[0].red, 200);
    EXPECT_EQ(points[0].green, 100);
    EXPECT_EQ(points[0].blue, 7);
}

TEST(LasReader, WithoutColourOrIntensityPointsAreWhite)
{
    cxtest::TempDir dir;
    LasFile las;
    las.format = 1;
    las.points = knownPoints();
    for (TestPoint& p : las.points)
        p.intensity = 0;
    const std::string path = (dir.path() / "plain.las").string();
    writeLas(path, las);
    auto source = cxtiler::openPointSource(path);
    readAll(*source);
    const auto points = readAll(*source);
    for (const PointRecord& p : points)
    {
        EXPECT_EQ(p.red, 255);
        EXPECT_EQ(p.green, 255);
        EXPECT_EQ(p.blue, 255);
    }
}

TEST(LasReader, TheCrsComesFromGeoKeysOrAnExtendedRecord)
{
    cxtest::TempDir dir;
    LasFile keys;
    keys.points = knownPoints();
    keys.vlrs.push_back({"LASF_Projection", 34735, geoKeys({{1024, 1}, {3072, 32650}, {4096, 5773}})});
    writeLas((dir.path() / "keys.las").string(), keys);
    auto source = cxtiler::openPointSource((dir.path() / "keys.las").string());
    EXPECT_EQ(source->info().crs, "EPSG:32650");
    EXPECT_EQ(source->info().crsOrigin, "its GeoKeys (EPSG:32650)");

    LasFile geographic = keys;
    geographic.vlrs = {{"LASF_Projection", 34735, geoKeys({{1024, 2}, {2048, 4326}})}};
    writeLas((dir.path() / "geographic.las").string(), geographic);
    EXPECT_EQ(cxtiler::openPointSource((dir.path() / "geographic.las").string())->info().crs, "EPSG:4326");

    LasFile userDefined = keys;
    userDefined.vlrs = {{"LASF_Projection", 34735, geoKeys({{1024, 1}, {3072, 32767}})}};
    writeLas((dir.path() / "user.las").string(), userDefined);
    auto user = cxtiler::openPointSource((dir.path() / "user.las").string());
    EXPECT_EQ(user->info().crs, "");
    EXPECT_TRUE(contains(user->info().crsOrigin, "user-defined")) << user->info().crsOrigin;

    // WKT wins over GeoKeys; LAS 1.4 may carry it in an extended record.
    LasFile extended;
    extended.minor = 4;
    extended.format = 6;
    extended.points = knownPoints();
    extended.vlrs.push_back({"LASF_Projection", 34735, geoKeys({{3072, 32651}})});
    extended.evlrs.push_back(wktRecord(32650));
    writeLas((dir.path() / "evlr.las").string(), extended);
    auto evlr = cxtiler::openPointSource((dir.path() / "evlr.las").string());
    EXPECT_EQ(evlr->info().crsOrigin, "its WKT record");
    EXPECT_TRUE(contains(evlr->info().crs, "UTM zone 50N"));
    EXPECT_EQ(readAll(*evlr).size(), 3u) << "the records after the points are not points";

    LasFile none;
    none.points = knownPoints();
    writeLas((dir.path() / "none.las").string(), none);
    EXPECT_EQ(cxtiler::openPointSource((dir.path() / "none.las").string())->info().crs, "");
}

TEST(LasReader, BadFilesAreRefusedNamingTheFile)
{
    cxtest::TempDir dir;
    LasFile good;
    good.minor = 4;
    good.format = 7;
    good.points = knownPoints();
    const std::string goodPath = (dir.path() / "good.las").string();
    writeLas(goodPath, good);
    const auto goodSize = fs::file_size(goodPath);

    struct Case
    {
        std::string name;
        std::function<void(const std::string&)> make;
        std::string says;
    };
    const std::vector<Case> cases = {
        {"cut-points.las", [&](const std::string& p) { fs::copy_file(goodPath, p); fs::resize_file(p, goodSize - 5); },
         "truncated"},
        {"cut-header.las", [&](const std::string& p) { fs::copy_file(goodPath, p); fs::resize_file(p, 100); },
         "truncated"},
        {"magic.las",
         [&](const std::string& p) {
             fs::copy_file(goodPath, p);
             std::fstream f(p, std::ios::in | std::ios::out | std::ios::binary);
             f.write("LASX", 4);
         },
         "no \"LASF\" signature"},
        {"laz.las",
         [&](const std::string& p) {
             LasFile laz = good;
             laz.formatByte = 0x80 | 7;
             writeLas(p, laz);
         },
         "compressed (LAZ"},
        {"count.las",
         [&](const std::string& p) {
             LasFile more = good;
             more.declaredCount = 1000000;
             writeLas(p, more);
         },
         "promises 1,000,000 points"},
        {"format4.las",
         [&](const std::string& p) {
             LasFile waveform = good;
             waveform.minor = 3;
             waveform.format = 4;
             writeLas(p, waveform);
         },
         "point format 4 is not supported"},
        {"empty.las", [&](const std::string& p) { std::ofstream(p).close(); }, "empty"},
        {"nopoints.las",
         [&](const std::string& p) {
             LasFile none = good;
             none.points.clear();
             writeLas(p, none);
         },
         "no points"},
        {"version.las",
         [&](const std::string& p) {
             LasFile v = good;
             v.major = 2;
             writeLas(p, v);
         },
         "version 2.4 is not supported"},
    };
    for (const Case& c : cases)
    {
        const std::string path = (dir.path() / c.name).string();
        c.make(path);
        const std::string message = failureOf(path);
        EXPECT_TRUE(contains(message, "'" + path + "'")) << c.name << ": " << message;
        EXPECT_TRUE(contains(message, c.says)) << c.name << ": " << message;
    }
}

namespace
{

class PlyVariants : public ::testing::TestWithParam<std::tuple<std::string, std::string>>
{
};

} // namespace

TEST_P(PlyVariants, ReadsCoordinatesColoursIntensityAndClass)
{
    const auto [format, coordinates] = GetParam();
    cxtest::TempDir dir;
    PlyFile ply;
    ply.format = format;
    ply.coordinateType = coordinates;
    ply.points = knownPoints();
    ply.elementBefore = true;
    const std::string path = (dir.path() / "cloud.ply").string();
    writePly(path, ply);
    auto source = cxtiler::openPointSource(path);
    EXPECT_EQ(source->info().count, 3);
    EXPECT_TRUE(contains(source->info().format, format == "ascii" ? "ascii" : "binary little endian"));
    EXPECT_EQ(source->info().crs, "");
    const auto points = readAll(*source);
    ASSERT_EQ(points.size(), 3u);
    // Floats hold these coordinates to a few millimetres, ascii to 1e-6.
    const double tolerance = coordinates == "float" ? 0.5 : 1e-6;
    for (std::size_t i = 0; i < 3; ++i)
    {
        expectPosition(points[i], ply.points[i], tolerance);
        EXPECT_EQ(points[i].red, ply.points[i].red >> 8);
        EXPECT_EQ(points[i].green, ply.points[i].green >> 8);
        EXPECT_EQ(points[i].blue, ply.points[i].blue >> 8);
        EXPECT_EQ(points[i].intensity, ply.points[i].intensity);
        EXPECT_EQ(points[i].classification, ply.points[i].classification);
    }
}

INSTANTIATE_TEST_SUITE_P(Ply, PlyVariants,
                         ::testing::Values(std::make_tuple("ascii", "float"), std::make_tuple("ascii", "double"),
                                           std::make_tuple("binary_little_endian", "float"),
                                           std::make_tuple("binary_little_endian", "double")));

TEST(PlyReader, SixteenBitColoursAndScalarNames)
{
    cxtest::TempDir dir;
    PlyFile ply;
    ply.colourType = "ushort";
    ply.intensityName = "scalar_Intensity";
    ply.classificationName = "scalar_classification";
    ply.points = knownPoints();
    const std::string path = (dir.path() / "wide.ply").string();
    writePly(path, ply);
    const auto points = readAll(path);
    ASSERT_EQ(points.size(), 3u);
    EXPECT_EQ(points[0].red, 255);
    EXPECT_EQ(points[0].green, 128);
    EXPECT_EQ(points[1].blue, 4);
    EXPECT_EQ(points[2].intensity, 40000);
    EXPECT_EQ(points[1].classification, 6);
}

TEST(PlyReader, WithoutColourTheIntensityIsGrey)
{
    cxtest::TempDir dir;
    PlyFile ply;
    ply.colour = false;
    ply.points = knownPoints();
    const std::string path = (dir.path() / "grey.ply").string();
    writePly(path, ply);
    const auto points = readAll(path);
    ASSERT_EQ(points.size(), 3u);
    EXPECT_EQ(points[0].red, 1000 >> 8);
    EXPECT_EQ(points[1].green, 300 >> 8);
    EXPECT_EQ(points[2].blue, 40000 >> 8);
}

TEST(PlyReader, BadFilesAreRefusedNamingTheFile)
{
    cxtest::TempDir dir;
    PlyFile good;
    good.points = knownPoints();
    good.faces = false;
    const std::string goodPath = (dir.path() / "good.ply").string();
    writePly(goodPath, good);

    struct Case
    {
        std::string name;
        std::function<void(const std::string&)> make;
        std::string says;
    };
    const std::vector<Case> cases = {
        {"big.ply",
         [&](const std::string& p) {
             PlyFile big = good;
             big.format = "binary_big_endian";
             writePly(p, big);
         },
         "big-endian"},
        {"cut.ply",
         [&](const std::string& p) {
             fs::copy_file(goodPath, p);
             fs::resize_file(p, fs::file_size(p) - 4);
         },
         "truncated"},
        {"count.ply",
         [&](const std::string& p) {
             PlyFile more = good;
             more.declaredCount = 50;
             writePly(p, more);
         },
         "promises 50 vertices"},
        {"cut-ascii.ply",
         [&](const std::string& p) {
             PlyFile more = good;
             more.format = "ascii";
             more.declaredCount = 5;
             writePly(p, more);
         },
         "ends after 3 of 5 vertices"},
        {"noend.ply", [&](const std::string& p) { std::ofstream(p) << "ply\nformat ascii 1.0\nelement vertex 3\n"; },
         "no end_header"},
        {"novertex.ply",
         [&](const std::string& p) { std::ofstream(p) << "ply\nformat ascii 1.0\nelement face 0\nend_header\n"; },
         "no vertex element"},
        {"noxyz.ply",
         [&](const std::string& p) {
             std::ofstream(p) << "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nend_header\n1\n";
         },
         "no x, y and z"},
        {"magic.ply", [&](const std::string& p) { std::ofstream(p) << "PLY?\n1 2 3\n"; }, "not a PLY file"},
        {"word.ply",
         [&](const std::string& p) {
             std::ofstream(p) << "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nproperty float y\n"
                                 "property float z\nend_header\n1 two 3\n";
         },
         "line 8: 'two' is not a number"},
    };
    for (const Case& c : cases)
    {
        const std::string path = (dir.path() / c.name).string();
        c.make(path);
        const std::string message = failureOf(path);
        EXPECT_TRUE(contains(message, "'" + path + "'")) << c.name << ": " << message;
        EXPECT_TRUE(contains(message, c.says)) << c.name << ": " << message;
    }
}

TEST(XyzReader, ReadsTheFourLayouts)
{
    cxtest::TempDir dir;
    const std::string xyz = dir.write("a.xyz", "# a comment\n// another\n\n1.5 2.5 3.5\n4 5 6\n").string();
    auto a = readAll(xyz);
    ASSERT_EQ(a.size(), 2u);
    EXPECT_EQ(a[0].x, 1.5);
    EXPECT_EQ(a[1].z, 6.0);
    EXPECT_EQ(a[0].red, 255) << "no colour, no intensity: white";

    const std::string xyzi = dir.write("b.txt", "x,y,z,intensity\r\n1,2,3,100\r\n4,5,6,30000\r\n").string();
    auto b = readAll(xyzi);
    ASSERT_EQ(b.size(), 2u);
    EXPECT_EQ(b[0].intensity, 100);
    EXPECT_EQ(b[0].red, 100) << "intensity up to 255 is an 8-bit grey";
    EXPECT_EQ(b[1].intensity, 30000);
    EXPECT_EQ(b[1].green, 30000 >> 8);

    const std::string xyzrgb = dir.write("c.csv", "1;2;3;255;128;0\n4;5;6;10;20;30\n").string();
    auto c = readAll(xyzrgb);
    ASSERT_EQ(c.size(), 2u);
    EXPECT_EQ(c[0].red, 255);
    EXPECT_EQ(c[0].green, 128);
    EXPECT_EQ(c[1].blue, 30);

    const std::string xyzirgb = dir.write("d.xyz", "1 2 3 70 65535 32768 0\n").string();
    auto source = cxtiler::openPointSource(xyzirgb);
    EXPECT_EQ(source->info().format, "XYZ text (x y z intensity r g b)");
    readAll(*source); // a pass shows 16-bit colours
    auto d = readAll(*source);
    ASSERT_EQ(d.size(), 1u);
    EXPECT_EQ(d[0].intensity, 70);
    EXPECT_EQ(d[0].red, 255);
    EXPECT_EQ(d[0].green, 128);
    EXPECT_EQ(d[0].blue, 0);

    const std::string fractions = dir.write("e.xyz", "1 2 3 1.0 0.5 0\n").string();
    auto fs1 = cxtiler::openPointSource(fractions);
    readAll(*fs1);
    auto e = readAll(*fs1);
    EXPECT_EQ(e[0].red, 255);
    EXPECT_EQ(e[0].green, 128);
}

TEST(XyzReader, BadFilesAreRefusedNamingTheFile)
{
    cxtest::TempDir dir;
    const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
        {"five.xyz", "1 2 3 4 5\n", "5 values; the layouts read are 3"},
        {"ragged.xyz", "1 2 3\n4 5 6\n7 8\n", "line 3 has 2 values where the lines before have 3"},
        {"word.xyz", "x y z\n1 2 3\n4 five 6\n", "line 3: 'five' is not a number"},
        {"comments.xyz", "# nothing\n// but comments\n", "no points"},
        {"empty.xyz", "", "empty"},
        {"cloud.bin", "1 2 3\n", "unknown point cloud format"},
    };
    for (const auto& [name, text, says] : cases)
    {
        const std::string path = dir.write(name, text).string();
        const std::string message = failureOf(path);
        EXPECT_TRUE(contains(message, "'" + path + "'")) << name << ": " << message;
        EXPECT_TRUE(contains(message, says)) << name << ": " << message;
    }
    const std::string missing = (dir.path() / "missing.xyz").string();
    EXPECT_TRUE(contains(failureOf(missing), "no such file"));
}
