// The cxsample command line: usage, malformed commands (status 2), and work
// that cannot be done (status 1) with a message and no table written.
#include "SampleTestSupport.h"

#include "ObjectsCsv.h"
#include "TempDir.h"

#include <gtest/gtest.h>

using namespace sampletest;

TEST(CxsampleCommand, HelpPrintsTheUsage)
{
    for (const char* flag : {"--help", "-h"})
    {
        const RunResult r = runSample({flag});
        EXPECT_EQ(r.status, 0);
        EXPECT_TRUE(contains(r.out, "Usage: cxsample OUTDIR")) << r.out;
        EXPECT_TRUE(contains(r.out, "--dem")) << r.out;
        EXPECT_TRUE(contains(r.out, "objects.csv")) << r.out;
        EXPECT_TRUE(r.err.empty());
    }
}

TEST(CxsampleCommand, MalformedCommandsGiveStatus2)
{
    cxtest::TempDir dir;
    const std::string out = (dir.path() / "out").string();
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, "no output folder"},
        {{out, "--frobnicate"}, "unknown option '--frobnicate'"},
        {{out, "--dem"}, "--dem needs a value"},
        {{out, "--seed", "twelve"}, "--seed wants a whole number"},
        {{out, "--seed", "-3"}, "--seed wants a whole number"},
        {{out, "--cloud-points", "many"}, "--cloud-points wants a whole number"},
        {{out, out + "2"}, "one output folder only"},
    };
    for (const auto& [args, message] : cases)
    {
        const RunResult r = runSample(args);
        EXPECT_EQ(r.status, 2) << message;
        EXPECT_TRUE(contains(r.err, message)) << r.err;
        EXPECT_TRUE(contains(r.err, "Usage:")) << r.err;
    }
    EXPECT_FALSE(fs::exists(out)) << "nothing is written for a bad command";
}

TEST(CxsampleCommand, UnwritableOutputFolderFailsWithAMessage)
{
    cxtest::TempDir dir;
    // A folder below a plain file cannot be made, not even by root.
    const fs::path blocker = dir.write("blocker", "not a folder");
    const std::string out = (blocker / "sample").string();
    const RunResult r = runSample({out});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.err, "cxsample: error: cannot create the folder")) << r.err;
    EXPECT_TRUE(contains(r.err, out)) << r.err;
    EXPECT_TRUE(fs::is_regular_file(blocker));
}

TEST(CxsampleCommand, OutputFolderThatIsAFileFails)
{
    cxtest::TempDir dir;
    const fs::path file = dir.write("taken", "x");
    const RunResult r = runSample({file.string(), "--quiet"});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.err, "cannot create the folder")) << r.err;
    EXPECT_EQ(readBytes(file), "x");
}

TEST(CxsampleCommand, MissingElevationFileFailsBeforeWriting)
{
    cxtest::TempDir dir;
    const fs::path out = dir.path() / "out";
    const std::string dem = (dir.path() / "nowhere" / "dem.db").string();
    const RunResult r = runSample({out.string(), "--dem", dem});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.err, "no elevation file " + dem)) << r.err;
    EXPECT_FALSE(fs::exists(out / "data" / "objects.csv"));
    EXPECT_FALSE(fs::exists(out / "models"));
}

TEST(CxsampleCommand, ElevationFileThatIsNoPyramidFails)
{
    cxtest::TempDir dir;
    const fs::path dem = dir.write("dem.db", "this is not SQLite");
    const RunResult r = runSample({(dir.path() / "out").string(), "--dem", dem.string()});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.err, "cannot read the elevation file " + dem.string())) << r.err;
}

TEST(CxsampleCommand, WithoutElevationEveryObjectStandsAtZero)
{
    cxtest::TempDir dir;
    // A small point cloud: the full one is its own tests' work.
    const RunResult r = runSample({dir.path().string(), "--cloud-points", "2000"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "no elevation file: ground heights 0")) << r.out;
    const std::vector<CsvObject> objects = readObjects(dir.path() / "data" / "objects.csv");
    ASSERT_FALSE(objects.empty());
    for (const CsvObject& o : objects)
        EXPECT_EQ(o.height, 0.0) << o.objName;
}

TEST(CxsampleTable, FieldsAreQuotedOnlyWhenTheyMustBe)
{
    EXPECT_EQ(cxsample::csvField("写字楼 3 / Office Tower 3"), "写字楼 3 / Office Tower 3");
    EXPECT_EQ(cxsample::csvField("a,b"), "\"a,b\"");
    EXPECT_EQ(cxsample::csvField("say \"hi\""), "\"say \"\"hi\"\"\"");
    EXPECT_EQ(cxsample::csvField("two\nlines"), "\"two\nlines\"");
    EXPECT_EQ(cxsample::fixed(-0.001, 2), "0.00");
    EXPECT_EQ(cxsample::fixed(-1.5, 2), "-1.50");
    EXPECT_EQ(cxsample::fixed(116.4567891, 7), "116.4567891");

    cxsample::ObjectRow row;
    row.objID = 4;
    row.enterID = 3;
    row.enterType = 2;
    row.objType = 2;
    row.objName = "燃气管 2, 东段 / Gas Main 2, east";
    row.lon = 116.45;
    row.lat = 39.9;
    row.height = 42.126;
    row.radius = 100.5;
    row.fileName = "pipes/cbd_gas_200m_crude.osgb";
    row.heading = 270.0;
    const std::string text = cxsample::objectsCsv({row});
    const std::string second = text.substr(text.find('\n') + 1);
    EXPECT_EQ(second, "4,3,2,\"燃气管 2, 东段 / Gas Main 2, east\",116.4500000,39.9000000,42.13,100.50,2,"
                      "pipes/cbd_gas_200m_crude.osgb,270.00,0.00,0.00,1.000,1.000,1.000\n");
    EXPECT_EQ(splitCsvLine(second.substr(0, second.size() - 1))[3], row.objName);
}
