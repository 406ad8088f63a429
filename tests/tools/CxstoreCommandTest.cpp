// The cxstore command line: a CSV of a few hundred objects becomes a store that
// the viewer's SQLiteDBManager reads back; bad rows fail with their line number
// and leave no output; info prints the counts.
#include "CommandLine.h"
#include "StoreInfo.h"

#include "TempDir.h"

#include <datastore/DBManage>
#include <objects/PropertyText>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

namespace fs = std::filesystem;

namespace
{

const char* const kHeader =
    "objID,enterID,enterType,objName,lon,lat,height,radius,objType,fileName,heading,pitch,roll,scaleX,scaleY,scaleZ";

struct RunResult
{
    int status = -1;
    std::string out;
    std::string err;
};

RunResult run(const std::vector<std::string>& args)
{
    std::ostringstream out, err;
    RunResult result;
    result.status = cxstore::runCommandLine(args, out, err);
    result.out = out.str();
    result.err = err.str();
    return result;
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::vector<std::string> listFiles(const fs::path& dir)
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string fileBytes(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

/** One object of the generated table. */
struct Row
{
    int objID, enterID, enterType;
    std::string objName;
    double lon, lat, height, radius;
    int objType;
    std::string fileName;
    double heading, pitch, roll, scaleX, scaleY, scaleZ;
};

std::string csvField(const std::string& text)
{
    if (text.find_first_of(",\"\n") == std::string::npos)
        return text;
    std::string quoted = "\"";
    for (char c : text)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

std::string csvLine(const Row& r)
{
    char numbers[512];
    std::snprintf(numbers, sizeof(numbers), "%.6f,%.6f,%.2f,%.1f,%d", r.lon, r.lat, r.height, r.radius, r.objType);
    char angles[256];
    std::snprintf(angles, sizeof(angles), "%.3f,%.3f,%.3f,%.3f,%.3f,%.3f", r.heading, r.pitch, r.roll, r.scaleX,
                  r.scaleY, r.scaleZ);
    return std::to_string(r.objID) + "," + std::to_string(r.enterID) + "," + std::to_string(r.enterType) + ","
           + csvField(r.objName) + "," + numbers + "," + csvField(r.fileName) + "," + angles;
}

/** `count` objects in three enterprises (types 0, 1, 5) around Beijing. */
std::vector<Row> makeRows(int count)
{
    std::vector<Row> rows;
    for (int i = 0; i < count; ++i)
    {
        const int enterprise = i % 3;
        Row r{};
        r.objID = 1000 + i * 7;
        r.enterID = 40 + enterprise;
        r.enterType = enterprise == 2 ? 5 : enterprise;
        r.objName = i % 4 == 0 ? "储罐 " + std::to_string(i) + ", 东区" : "装置\"" + std::to_string(i) + "\"";
        r.lon = 116.0 + (i % 23) * 0.0131 + enterprise;
        r.lat = 39.5 + (i % 19) * 0.0173;
        r.height = 20.0 + i % 40;
        r.radius = i % 50 == 0 ? 30000.0 : 5.0 + i % 30;
        r.objType = i % 4;
        r.fileName = i % 10 == 9 ? "" : "模型/crude_" + std::to_string(i) + ".ive";
        r.heading = (i * 37) % 360;
        r.pitch = (i % 7) - 3.5;
        r.roll = 0.25 * (i % 3);
        r.scaleX = 1.0 + (i % 5) * 0.5;
        r.scaleY = 1.0;
        r.scaleZ = 2.0 - (i % 2) * 0.125;
        rows.push_back(r);
    }
    return rows;
}

std::string makeCsv(const std::vector<Row>& rows)
{
    std::string text = std::string(kHeader) + "\r\n";
    for (const Row& r : rows)
        text += csvLine(r) + "\r\n";
    return text;
}

std::vector<int> idList(const std::string& text) { return cxstore::parseIdList(text); }

} // namespace

TEST(CxstoreCommand, BuildMakesAStoreTheManagerReadsBack)
{
    cxtest::TempDir dir;
    const std::vector<Row> rows = makeRows(300);
    const fs::path csv = dir.write("objects.csv", makeCsv(rows));
    const std::string store = (dir.path() / "objects.db").string();

    const RunResult r = run({"build", csv.string(), store, "--leaf-capacity", "12"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "objects: 300/300 rows")) << r.out;
    EXPECT_TRUE(contains(r.out, "quadtrees: 3/3 enterprises")) << r.out;
    EXPECT_TRUE(contains(r.out, "300 objects, 3 enterprises")) << r.out;
    EXPECT_EQ(listFiles(dir.path()), (std::vector<std::string>{"objects.csv", "objects.db"}));

    osg::ref_ptr<DBManage::SQLiteDBManager> manager = new DBManage::SQLiteDBManager;
    ASSERT_TRUE(manager->ReadSQLiteDBFile(store)) << manager->getOpenError();
    ASSERT_TRUE(manager->ReadEnterProperty());
    ASSERT_EQ(manager->enterprises.size(), 3u);
    const int types[3] = {0, 1, 5};
    std::map<int, int> onNodes; // objID -> times listed on a node of its enterprise
    for (int e = 0; e < 3; ++e)
    {
        const DBManage::EnterProperty& enterprise = *manager->enterprises[e];
        EXPECT_EQ(enterprise.enterID, 40 + e);
        EXPECT_EQ(enterprise.enterType, types[e]);
        std::vector<int> queue{enterprise.rootQtnID};
        for (std::size_t i = 0; i < queue.size(); ++i)
        {
            osg::ref_ptr<DBManage::QuadTreeProperty> node = manager->QuadTreeQueryInfo(queue[i]);
            ASSERT_TRUE(node.valid()) << queue[i];
            EXPECT_EQ(node->enterID, enterprise.enterID);
            for (int child : idList(node->childIDs))
                queue.push_back(child);
            std::size_t small = 0;
            for (int id : idList(node->objectIDs))
            {
                ++onNodes[id];
                osg::ref_ptr<DBManage::ShowObjProperty> o = manager->ShowObjQueryInfo(id);
                ASSERT_TRUE(o.valid()) << id;
                EXPECT_EQ(o->enterID, enterprise.enterID);
                small += o->radius < 1000.0;
            }
            if (node->childIDs.empty())
            {
                EXPECT_LE(small, 12u);
            }
        }
    }
    EXPECT_EQ(onNodes.size(), rows.size());
    for (const auto& entry : onNodes)
        EXPECT_EQ(entry.second, 1) << "object " << entry.first;

    for (const Row& row : rows)
    {
        osg::ref_ptr<DBManage::ShowObjProperty> o = manager->ShowObjQueryInfo(row.objID);
        ASSERT_TRUE(o.valid()) << row.objID;
        EXPECT_EQ(o->enterID, row.enterID);
        EXPECT_EQ(o->objName, row.objName);
        EXPECT_EQ(o->visible, 1);
        EXPECT_NEAR(o->posX, row.lon, 1e-9);
        EXPECT_NEAR(o->posY, row.lat, 1e-9);
        EXPECT_NEAR(o->posZ, row.height, 1e-9);
        EXPECT_NEAR(o->radius, row.radius, 1e-9);
        EXPECT_EQ(o->objType, row.objType);
        EXPECT_EQ(o->reserved0, 0.0);
        if (row.fileName.empty())
        {
            EXPECT_EQ(o->propertyText, "");
            continue;
        }
        OBJManage::PropertyValues model;
        ASSERT_TRUE(OBJManage::readPropertyText(o->propertyText, model)) << o->propertyText;
        EXPECT_EQ(model.fileName, row.fileName);
        EXPECT_FLOAT_EQ(model.angle.x(), static_cast<float>(row.heading));
        EXPECT_FLOAT_EQ(model.angle.y(), static_cast<float>(row.pitch));
        EXPECT_FLOAT_EQ(model.angle.z(), static_cast<float>(row.roll));
        EXPECT_FLOAT_EQ(model.scale.x(), static_cast<float>(row.scaleX));
        EXPECT_FLOAT_EQ(model.scale.y(), static_cast<float>(row.scaleY));
        EXPECT_FLOAT_EQ(model.scale.z(), static_cast<float>(row.scaleZ));
        OBJManage::PropertyValues expected;
        expected.fileName = row.fileName;
        expected.angle.set(row.heading, row.pitch, row.roll);
        expected.scale.set(row.scaleX, row.scaleY, row.scaleZ);
        EXPECT_EQ(o->propertyText, OBJManage::writePropertyText(expected));
    }
}

TEST(CxstoreCommand, InfoPrintsTheEnterprisesAndTheirCounts)
{
    cxtest::TempDir dir;
    const fs::path csv = dir.write("objects.csv", makeCsv(makeRows(240)));
    const std::string store = (dir.path() / "objects.db").string();
    ASSERT_EQ(run({"build", csv.string(), store, "-q"}).status, 0);
    const std::string before = fileBytes(store);

    const RunResult r = run({"info", store});
    ASSERT_EQ(r.status, 0) << r.err;
    const cxstore::StoreInfo info = cxstore::readStoreInfo(store);
    ASSERT_EQ(info.enterprises.size(), 3u);
    EXPECT_EQ(info.objects, 240);
    EXPECT_TRUE(contains(r.out, "3 enterprises, " + std::to_string(info.nodes) + " quadtree nodes, 240 objects"))
        << r.out;
    for (const cxstore::EnterpriseInfo& e : info.enterprises)
    {
        EXPECT_TRUE(e.rootFound);
        EXPECT_EQ(e.objects, 80);
        EXPECT_EQ(e.missingObjects, 0);
        EXPECT_GE(e.levels, 2);
        const std::string line = "enterprise " + std::to_string(e.enterID) + ": type " + std::to_string(e.enterType);
        EXPECT_TRUE(contains(r.out, line)) << r.out;
        EXPECT_TRUE(contains(r.out, "root " + std::to_string(e.rootQtnID) + ", " + std::to_string(e.nodes)
                                        + " nodes, 80 objects, " + std::to_string(e.levels) + " levels"))
            << r.out;
    }
    EXPECT_EQ(fileBytes(store), before);

    // Objects deleted since show up as ids without a row.
    {
        osg::ref_ptr<DBManage::SQLiteDBManager> manager = new DBManage::SQLiteDBManager;
        ASSERT_TRUE(manager->ReadSQLiteDBFile(store));
        ASSERT_TRUE(manager->ShowObjDelInfo(1000));
        ASSERT_TRUE(manager->ShowObjDelInfo(1007));
    }
    const RunResult after = run({"info", store});
    EXPECT_EQ(after.status, 0);
    EXPECT_TRUE(contains(after.out, "1 object ids without a row")) << after.out;
}

TEST(CxstoreCommand, InfoOnSomethingElseFailsAndLeavesItAlone)
{
    cxtest::TempDir dir;
    const fs::path text = dir.write("notes.db", "not a database");
    RunResult r = run({"info", text.string()});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.err, "is not an object store: it is not an SQLite file")) << r.err;
    EXPECT_EQ(fileBytes(text), "not a database");

    r = run({"info", (dir.path() / "missing.db").string()});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.err, "does not exist")) << r.err;
    EXPECT_EQ(listFiles(dir.path()), std::vector<std::string>{"notes.db"});
}

namespace
{

struct BadRow
{
    const char* name;
    const char* line;     ///< the bad row, put on line 7 of the file
    const char* expected; ///< a part of the message
};

// Test listings name the case rather than dump its bytes.
void PrintTo(const BadRow& value, std::ostream* out)
{
    *out << value.name;
}

const BadRow kBadRows[] = {
    {"TooFewFields", "9001,40,0,name,116.1,39.6,10,5,0,a.ive,0,0,0,1,1", "15 fields, 16 expected"},
    {"TooManyFields", "9001,40,0,name,116.1,39.6,10,5,0,a.ive,0,0,0,1,1,1,7", "17 fields, 16 expected"},
    {"ObjIdNotANumber", "90x1,40,0,name,116.1,39.6,10,5,0,a.ive,0,0,0,1,1,1", "objID '90x1' is not a whole number"},
    {"ObjIdBeyond32Bits", "4294967296,40,0,name,116.1,39.6,10,5,0,a.ive,0,0,0,1,1,1", "objID '4294967296'"},
    {"FractionalEnterType", "9001,40,0.5,name,116.1,39.6,10,5,0,a.ive,0,0,0,1,1,1", "enterType '0.5'"},
    {"LatitudeNotANumber", "9001,40,0,name,116.1,north,10,5,0,a.ive,0,0,0,1,1,1", "lat 'north' is not a finite"},
    {"HeightNaN", "9001,40,0,name,116.1,39.6,nan,5,0,a.ive,0,0,0,1,1,1", "height 'nan' is not a finite"},
    {"ScaleEmpty", "9001,40,0,name,116.1,39.6,10,5,0,a.ive,0,0,0,1,,1", "scaleY '' is not a finite"},
    {"LatitudeOutOfRange", "9001,40,0,name,116.1,90.5,10,5,0,a.ive,0,0,0,1,1,1", "lat '90.5' is outside -90..90"},
    {"LongitudeOutOfRange", "9001,40,0,name,-180.25,39.6,10,5,0,a.ive,0,0,0,1,1,1", "lon '-180.25' is outside"},
    {"NegativeRadius", "9001,40,0,name,116.1,39.6,10,-5,0,a.ive,0,0,0,1,1,1", "radius '-5' is negative"},
    {"DuplicateObjId", "1007,40,0,name,116.1,39.6,10,5,0,a.ive,0,0,0,1,1,1", "objID 1007 is already on line 3"},
    {"EnterTypeDisagrees", "9001,40,1,name,116.1,39.6,10,5,0,a.ive,0,0,0,1,1,1",
     "enterprise 40 has enterType 1 here but 0 on line 2"},
    {"NameNotUtf8", "9001,40,0,\xb4\xa2\xb9\xde,116.1,39.6,10,5,0,a.ive,0,0,0,1,1,1", "objName is not valid UTF-8"},
    {"UnclosedQuote", "9001,40,0,\"name,116.1,39.6,10,5,0,a.ive,0,0,0,1,1,1", "a quoted field is not closed"},
    {"TextAfterQuote", "9001,40,0,\"name\"x,116.1,39.6,10,5,0,a.ive,0,0,0,1,1,1", "text after the closing quote"},
};

class CxstoreBadRow : public ::testing::TestWithParam<BadRow>
{
};

} // namespace

TEST_P(CxstoreBadRow, FailsWithItsLineAndWritesNothing)
{
    const BadRow& bad = GetParam();
    cxtest::TempDir dir;
    const std::vector<Row> rows = makeRows(10);
    std::string text = std::string(kHeader) + "\n";
    for (int i = 0; i < 5; ++i)
        text += csvLine(rows[i]) + "\n"; // lines 2 to 6
    text += std::string(bad.line) + "\n";
    for (int i = 5; i < 10; ++i)
        text += csvLine(rows[i]) + "\n";
    const fs::path csv = dir.write("objects.csv", text);

    const RunResult r = run({"build", csv.string(), (dir.path() / "objects.db").string()});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.err, "objects.csv, line 7: ")) << r.err;
    EXPECT_TRUE(contains(r.err, bad.expected)) << r.err;
    EXPECT_EQ(listFiles(dir.path()), std::vector<std::string>{"objects.csv"});
}

INSTANTIATE_TEST_SUITE_P(Rows, CxstoreBadRow, ::testing::ValuesIn(kBadRows),
                         [](const ::testing::TestParamInfo<BadRow>& info) { return std::string(info.param.name); });

TEST(CxstoreCommand, EveryBadRowIsReportedAndAnOldStoreStays)
{
    cxtest::TempDir dir;
    const std::vector<Row> rows = makeRows(40);
    const fs::path csv = dir.write("objects.csv", makeCsv(rows));
    const std::string store = (dir.path() / "objects.db").string();
    ASSERT_EQ(run({"build", csv.string(), store, "-q"}).status, 0);
    const std::string before = fileBytes(store);

    std::string text = makeCsv(rows);
    text += "9001,40,0,a,116,95,0,1,0,a.ive,0,0,0,1,1,1\r\n";  // line 42
    text += "9002,40,0,b,116,39,0,1,0,a.ive,0,0,0,1,1\r\n";    // line 43
    text += "\r\n";                                            // an empty line is skipped
    text += "9003,41,0,\"c, d\",116,39,0,1,0,a.ive,0,0,0,1,1,1\r\n"; // line 45: enterprise 41 is type 1
    dir.write("objects.csv", text);
    const RunResult r = run({"build", csv.string(), store});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.err, "line 42: lat '95'")) << r.err;
    EXPECT_TRUE(contains(r.err, "line 43: 15 fields")) << r.err;
    EXPECT_TRUE(contains(r.err, "line 45: enterprise 41 has enterType 0 here but 1 on line 3")) << r.err;
    EXPECT_EQ(fileBytes(store), before);
    EXPECT_EQ(listFiles(dir.path()), (std::vector<std::string>{"objects.csv", "objects.db"}));

    // Many bad rows: the first twenty are listed, and how many more there are.
    text = makeCsv(rows);
    for (int i = 0; i < 25; ++i)
        text += "x,40,0,a,116,39,0,1,0,a.ive,0,0,0,1,1,1\n";
    dir.write("objects.csv", text);
    const RunResult many = run({"build", csv.string(), store});
    EXPECT_EQ(many.status, 1);
    EXPECT_TRUE(contains(many.err, "line 61: objID 'x'")) << many.err;
    EXPECT_FALSE(contains(many.err, "line 62:")) << many.err;
    EXPECT_TRUE(contains(many.err, "... and 5 more problems")) << many.err;
    EXPECT_EQ(fileBytes(store), before);
}

TEST(CxstoreCommand, HeaderAndEmptyTablesAreRefused)
{
    cxtest::TempDir dir;
    const std::string store = (dir.path() / "objects.db").string();
    struct
    {
        const char* text;
        const char* expected;
    } cases[] = {
        {"", "is empty: it needs the header line objID,enterID"},
        {"objID,enterID,enterType,objName,lon,lat,height,radius,objType,fileName,heading,pitch,roll\n",
         "the header's column 14 is '(nothing)', 'scaleX' expected"},
        {"objID,enterID,type,objName,lon,lat,height,radius,objType,fileName,heading,pitch,roll,scaleX,scaleY,scaleZ\n",
         "line 1: the header's column 3 is 'type', 'enterType' expected"},
        {"\xEF\xBB\xBF" "objID,enterID,enterType,objName,lon,lat,height,radius,objType,fileName,heading,pitch,roll,"
         "scaleX,scaleY,scaleZ\n",
         "has no object rows"},
    };
    for (const auto& c : cases)
    {
        const fs::path csv = dir.write("objects.csv", c.text);
        const RunResult r = run({"build", csv.string(), store});
        EXPECT_EQ(r.status, 1) << c.text;
        EXPECT_TRUE(contains(r.err, c.expected)) << r.err;
        EXPECT_FALSE(fs::exists(store));
    }
    const RunResult missing = run({"build", (dir.path() / "none.csv").string(), store});
    EXPECT_EQ(missing.status, 1);
    EXPECT_TRUE(contains(missing.err, "does not exist")) << missing.err;
    EXPECT_EQ(listFiles(dir.path()), std::vector<std::string>{"objects.csv"});
}

TEST(CxstoreCommand, UsageAndMalformedCommandLines)
{
    RunResult r = run({"--help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(contains(r.out, "cxstore build OBJECTS.csv STORE.db [--leaf-capacity N]")) << r.out;
    EXPECT_TRUE(contains(r.out, "cxstore info STORE.db")) << r.out;
    EXPECT_EQ(run({}).status, 2);
    EXPECT_EQ(run({"make", "a", "b"}).status, 2);
    EXPECT_EQ(run({"build", "only.csv"}).status, 2);
    EXPECT_EQ(run({"info"}).status, 2);
    r = run({"build", "a.csv", "b.db", "--leaf-capacity", "0"});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "--leaf-capacity needs a whole number")) << r.err;
    EXPECT_EQ(run({"build", "a.csv", "b.db", "--leaf-capacity"}).status, 2);
    EXPECT_EQ(run({"build", "a.csv", "b.db", "--depth", "3"}).status, 2);
    EXPECT_FALSE(fs::exists("b.db"));
}

TEST(CxstoreCommand, TheStoreNeverReplacesItsOwnInput)
{
    cxtest::TempDir dir;
    const std::string text = makeCsv(makeRows(5));
    const fs::path csv = dir.write("objects.csv", text);
    const RunResult r = run({"build", csv.string(), csv.string()});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(fileBytes(csv), text);
    EXPECT_EQ(listFiles(dir.path()), std::vector<std::string>{"objects.csv"});
}
