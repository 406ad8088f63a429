// The object store through the nine operations of SQLiteDBManager: records
// round-trip field by field, unknown ids give null or false and change nothing,
// and files that are not stores (missing, empty, damaged, of another kind) give
// an empty store and stay exactly as they were.
#include "StoreTestSupport.h"
#include "TempDir.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>

using namespace storetest;
namespace fs = std::filesystem;

namespace
{

class StoreTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        path = (dir.path() / "objects.db").string();
        writeSampleStore(path);
        manager = new DBManage::SQLiteDBManager;
    }

    /** Opens the store in a fresh manager, as the viewer would. */
    osg::ref_ptr<DBManage::SQLiteDBManager> reopen()
    {
        manager->close();
        osg::ref_ptr<DBManage::SQLiteDBManager> fresh = new DBManage::SQLiteDBManager;
        EXPECT_TRUE(fresh->ReadSQLiteDBFile(path)) << fresh->getOpenError();
        return fresh;
    }

    cxtest::TempDir dir;
    std::string path;
    osg::ref_ptr<DBManage::SQLiteDBManager> manager;
};

/** Runs SQL on a raw connection, failing the test on an error. */
void sql(sqlite3* db, const char* statement)
{
    char* message = nullptr;
    EXPECT_EQ(sqlite3_exec(db, statement, nullptr, nullptr, &message), SQLITE_OK)
        << statement << ": " << (message ? message : "");
    sqlite3_free(message);
}

/** Makes an SQLite file with the given statements. */
void makeSqliteFile(const std::string& path, std::initializer_list<const char*> statements)
{
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    for (const char* statement : statements)
        sql(db, statement);
    sqlite3_close(db);
}

/** A scalar result of a query on a raw read-only connection. */
std::string scalar(const std::string& path, const char* query)
{
    sqlite3* db = nullptr;
    std::string value;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK)
    {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db, query, -1, &statement, nullptr) == SQLITE_OK
            && sqlite3_step(statement) == SQLITE_ROW)
            value = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
        sqlite3_finalize(statement);
    }
    sqlite3_close(db);
    return value;
}

void expectSameObject(const DBManage::ShowObjProperty& a, const DBManage::ShowObjProperty& b)
{
    EXPECT_EQ(a.objID, b.objID);
    EXPECT_EQ(a.enterID, b.enterID);
    EXPECT_EQ(a.objName, b.objName);
    EXPECT_EQ(a.visible, b.visible);
    EXPECT_EQ(a.propertyText, b.propertyText);
    EXPECT_EQ(a.reserved0, b.reserved0);
    EXPECT_EQ(a.reserved1, b.reserved1);
    EXPECT_EQ(a.reserved2, b.reserved2);
    EXPECT_EQ(a.radius, b.radius);
    EXPECT_EQ(a.posX, b.posX);
    EXPECT_EQ(a.posY, b.posY);
    EXPECT_EQ(a.posZ, b.posZ);
    EXPECT_EQ(a.objType, b.objType);
}

void expectSameNode(const DBManage::QuadTreeProperty& a, const DBManage::QuadTreeProperty& b)
{
    EXPECT_EQ(a.qtnID, b.qtnID);
    EXPECT_EQ(a.enterID, b.enterID);
    EXPECT_EQ(a.centerText, b.centerText);
    EXPECT_EQ(a.width, b.width);
    EXPECT_EQ(a.height, b.height);
    EXPECT_EQ(a.lodRange, b.lodRange);
    EXPECT_EQ(a.childIDs, b.childIDs);
    EXPECT_EQ(a.objectIDs, b.objectIDs);
}

} // namespace

TEST_F(StoreTest, ReadsTheEnterprisesInIdOrder)
{
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path)) << manager->getOpenError();
    EXPECT_EQ(manager->getPath(), path);
    EXPECT_EQ(manager->getOpenError(), "");
    EXPECT_TRUE(manager->enterprises.empty()); // only ReadEnterProperty fills it
    ASSERT_TRUE(manager->ReadEnterProperty());
    ASSERT_EQ(manager->enterprises.size(), 2u);
    const DBManage::EnterProperty& first = *manager->enterprises[0];
    EXPECT_EQ(first.enterID, 3);
    EXPECT_EQ(first.enterName, "燕山石化");
    EXPECT_EQ(first.rootQtnID, 10);
    EXPECT_EQ(first.enterType, 0);
    const DBManage::EnterProperty& second = *manager->enterprises[1];
    EXPECT_EQ(second.enterID, 5);
    EXPECT_EQ(second.enterName, "管网");
    EXPECT_EQ(second.rootQtnID, 20);
    EXPECT_EQ(second.enterType, 2);

    // A second reading replaces the list rather than appending to it.
    ASSERT_TRUE(manager->ReadEnterProperty());
    EXPECT_EQ(manager->enterprises.size(), 2u);
}

TEST_F(StoreTest, ObjectRecordRoundTripsFieldByField)
{
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path));
    osg::ref_ptr<DBManage::ShowObjProperty> read = manager->ShowObjQueryInfo(7);
    ASSERT_TRUE(read.valid());
    EXPECT_EQ(read->objID, 7);
    EXPECT_EQ(read->enterID, 3);
    EXPECT_EQ(read->objName, "常减压装置");
    EXPECT_EQ(read->visible, 0);
    EXPECT_EQ(read->propertyText, sampleText());
    EXPECT_EQ(read->reserved0, 1.5);
    EXPECT_EQ(read->reserved1, -2.25);
    EXPECT_EQ(read->reserved2, 1e-300);
    EXPECT_EQ(read->radius, 35.5);
    EXPECT_EQ(read->posX, 116.391234567);
    EXPECT_EQ(read->posY, 39.907654321);
    EXPECT_EQ(read->posZ, 48.125);
    EXPECT_EQ(read->objType, 1);

    osg::ref_ptr<DBManage::ShowObjProperty> other = manager->ShowObjQueryInfo(9);
    ASSERT_TRUE(other.valid());
    EXPECT_EQ(other->objName, "储罐 9");
    EXPECT_EQ(other->visible, 1);
    EXPECT_EQ(other->propertyText, "");
    EXPECT_EQ(other->objType, 7);
}

TEST_F(StoreTest, NodeAndEnterpriseRecordsRoundTrip)
{
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path));
    osg::ref_ptr<DBManage::QuadTreeProperty> root = manager->QuadTreeQueryInfo(10);
    ASSERT_TRUE(root.valid());
    expectSameNode(*root, *node(10, 3, "116.3,39.9,50", 0.5, "11,12", ",7,9"));
    osg::ref_ptr<DBManage::QuadTreeProperty> leaf = manager->QuadTreeQueryInfo(12);
    ASSERT_TRUE(leaf.valid());
    expectSameNode(*leaf, *node(12, 3, "116.425,39.9,0", 0.25, "", "9"));

    osg::ref_ptr<DBManage::EnterProperty> enterprise = manager->EnterQueryInfo(5);
    ASSERT_TRUE(enterprise.valid());
    EXPECT_EQ(enterprise->enterID, 5);
    EXPECT_EQ(enterprise->enterName, "管网");
    EXPECT_EQ(enterprise->rootQtnID, 20);
    EXPECT_EQ(enterprise->enterType, 2);
}

TEST_F(StoreTest, QueriesReturnFreshRecordsOwnedByTheCaller)
{
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path));
    DBManage::QuadTreeProperty* raw = manager->QuadTreeQueryInfo(10);
    ASSERT_NE(raw, nullptr);
    EXPECT_EQ(raw->referenceCount(), 0); // nobody holds it until the caller does
    osg::ref_ptr<DBManage::QuadTreeProperty> first = raw;
    osg::ref_ptr<DBManage::QuadTreeProperty> second = manager->QuadTreeQueryInfo(10);
    ASSERT_TRUE(second.valid());
    EXPECT_NE(first.get(), second.get());
    first->objectIDs += ",11";
    EXPECT_EQ(second->objectIDs, ",7,9");
    osg::ref_ptr<DBManage::QuadTreeProperty> third = manager->QuadTreeQueryInfo(10);
    EXPECT_EQ(third->objectIDs, ",7,9"); // a changed record is not the store
}

TEST_F(StoreTest, ObjectUpdateWritesEveryField)
{
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path));
    osg::ref_ptr<DBManage::ShowObjProperty> changed = new DBManage::ShowObjProperty;
    changed->objID = 9;
    changed->enterID = 5;
    changed->objName = "新名称 \"引号\" & 符号";
    changed->visible = 1;
    changed->propertyText = std::string("<模型 文件名=\"b.ive\"/>\n") + '\0' + "tail";
    changed->reserved0 = 0.0;
    changed->reserved1 = 0.0;
    changed->reserved2 = 0.0;
    changed->radius = 77.25;
    changed->posX = -73.985428;
    changed->posY = -40.748817;
    changed->posZ = -12.5;
    changed->objType = -3;
    EXPECT_TRUE(manager->ShowObjUpdateInfo(changed.get()));
    EXPECT_EQ(changed->referenceCount(), 1); // the caller keeps its record

    osg::ref_ptr<DBManage::SQLiteDBManager> fresh = reopen();
    osg::ref_ptr<DBManage::ShowObjProperty> read = fresh->ShowObjQueryInfo(9);
    ASSERT_TRUE(read.valid());
    expectSameObject(*read, *changed);
    osg::ref_ptr<DBManage::ShowObjProperty> untouched = fresh->ShowObjQueryInfo(7);
    ASSERT_TRUE(untouched.valid());
    EXPECT_EQ(untouched->objName, "常减压装置");
}

TEST_F(StoreTest, NodeUpdateWritesEveryField)
{
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path));
    osg::ref_ptr<DBManage::QuadTreeProperty> root = manager->QuadTreeQueryInfo(10);
    ASSERT_TRUE(root.valid());
    root->objectIDs += ",15";
    root->centerText = "1.5,2.5,3.5";
    root->width = 0.125;
    root->height = 0.0625;
    root->lodRange = 1234.5;
    root->childIDs = "12";
    root->enterID = 5;
    EXPECT_TRUE(manager->QuadTreeUpdateInfo(root.get()));

    osg::ref_ptr<DBManage::SQLiteDBManager> fresh = reopen();
    osg::ref_ptr<DBManage::QuadTreeProperty> read = fresh->QuadTreeQueryInfo(10);
    ASSERT_TRUE(read.valid());
    expectSameNode(*read, *root);
    EXPECT_EQ(read->objectIDs, ",7,9,15");
}

TEST_F(StoreTest, DeleteRemovesTheRowOnce)
{
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path));
    EXPECT_TRUE(manager->ShowObjDelInfo(7));
    EXPECT_EQ(manager->ShowObjQueryInfo(7), nullptr);
    EXPECT_FALSE(manager->ShowObjDelInfo(7));
    // The node still names it: the object list is not the store's to change.
    osg::ref_ptr<DBManage::QuadTreeProperty> root = manager->QuadTreeQueryInfo(10);
    EXPECT_EQ(root->objectIDs, ",7,9");
    osg::ref_ptr<DBManage::ShowObjProperty> stays = manager->ShowObjQueryInfo(9);
    EXPECT_TRUE(stays.valid());

    osg::ref_ptr<DBManage::SQLiteDBManager> fresh = reopen();
    EXPECT_EQ(fresh->ShowObjQueryInfo(7), nullptr);
}

TEST_F(StoreTest, UnknownIdsGiveNullOrFalseAndLeaveTheFileUnchanged)
{
    const std::string before = fileBytes(path);
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path));
    ASSERT_TRUE(manager->ReadEnterProperty());
    for (int id : {0, 1, 8, 13, -7, 2147483647, -2147483647 - 1})
    {
        EXPECT_EQ(manager->ShowObjQueryInfo(id), nullptr) << id;
        EXPECT_EQ(manager->EnterQueryInfo(id), nullptr) << id;
        EXPECT_EQ(manager->QuadTreeQueryInfo(id), nullptr) << id;
        EXPECT_FALSE(manager->ShowObjDelInfo(id)) << id;
        osg::ref_ptr<DBManage::ShowObjProperty> object = storetest::object(id, 3, 1.0, 2.0);
        EXPECT_FALSE(manager->ShowObjUpdateInfo(object.get())) << id;
        osg::ref_ptr<DBManage::QuadTreeProperty> node = storetest::node(id, 3, "1,2,3", 1.0, "", "7");
        EXPECT_FALSE(manager->QuadTreeUpdateInfo(node.get())) << id;
    }
    EXPECT_FALSE(manager->ShowObjUpdateInfo(nullptr));
    EXPECT_FALSE(manager->QuadTreeUpdateInfo(nullptr));
    // The enterprise of an object and the root of an enterprise may be unknown
    // without making the known ones unreadable.
    EXPECT_EQ(manager->QuadTreeQueryInfo(manager->enterprises[1]->rootQtnID), nullptr);
    osg::ref_ptr<DBManage::ShowObjProperty> known = manager->ShowObjQueryInfo(7);
    EXPECT_TRUE(known.valid());
    manager->close();

    EXPECT_EQ(fileBytes(path), before);
    EXPECT_FALSE(fs::exists(path + "-wal"));
    EXPECT_FALSE(fs::exists(path + "-shm"));
}

TEST_F(StoreTest, RecordsWithNaNAreRefused)
{
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path));
    osg::ref_ptr<DBManage::ShowObjProperty> object = manager->ShowObjQueryInfo(9);
    object->posX = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(manager->ShowObjUpdateInfo(object.get()));
    osg::ref_ptr<DBManage::QuadTreeProperty> node = manager->QuadTreeQueryInfo(11);
    node->lodRange = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(manager->QuadTreeUpdateInfo(node.get()));

    osg::ref_ptr<DBManage::ShowObjProperty> read = manager->ShowObjQueryInfo(9);
    EXPECT_EQ(read->posX, 116.5);
    osg::ref_ptr<DBManage::QuadTreeProperty> readNode = manager->QuadTreeQueryInfo(11);
    EXPECT_EQ(readNode->lodRange, 0.25 * 222000.0);
}

TEST_F(StoreTest, TheFileCarriesTheStoreMarksInWalMode)
{
    EXPECT_FALSE(fs::exists(path + "-wal")); // the writer closed it cleanly
    EXPECT_EQ(scalar(path, "PRAGMA journal_mode"), "wal");
    EXPECT_EQ(scalar(path, "PRAGMA application_id"), std::to_string(0x43585354));
    EXPECT_EQ(scalar(path, "SELECT value FROM store_meta WHERE key = 'format'"), "cxviewer-object-store");
    EXPECT_EQ(scalar(path, "SELECT value FROM store_meta WHERE key = 'version'"), "1");
}

TEST_F(StoreTest, AStoreSwitchedOutOfWalIsSwitchedBack)
{
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    sql(db, "PRAGMA journal_mode=DELETE");
    sqlite3_close(db);
    ASSERT_EQ(scalar(path, "PRAGMA journal_mode"), "delete");

    ASSERT_TRUE(manager->ReadSQLiteDBFile(path));
    manager->close();
    EXPECT_EQ(scalar(path, "PRAGMA journal_mode"), "wal");
}

TEST_F(StoreTest, WithoutAnOpenStoreEverythingIsEmpty)
{
    EXPECT_FALSE(manager->ReadEnterProperty());
    EXPECT_TRUE(manager->enterprises.empty());
    EXPECT_EQ(manager->ShowObjQueryInfo(7), nullptr);
    EXPECT_EQ(manager->EnterQueryInfo(3), nullptr);
    EXPECT_EQ(manager->QuadTreeQueryInfo(10), nullptr);
    EXPECT_FALSE(manager->ShowObjDelInfo(7));
    osg::ref_ptr<DBManage::ShowObjProperty> object = storetest::object(7, 3, 1.0, 2.0);
    EXPECT_FALSE(manager->ShowObjUpdateInfo(object.get()));
    EXPECT_EQ(manager->getPath(), "");

    // close() ends an open store the same way.
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path));
    ASSERT_TRUE(manager->ReadEnterProperty());
    manager->close();
    EXPECT_TRUE(manager->enterprises.empty());
    EXPECT_EQ(manager->ShowObjQueryInfo(7), nullptr);
    EXPECT_FALSE(manager->ReadEnterProperty());
}

TEST_F(StoreTest, OpeningABadFileDropsTheEarlierStore)
{
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path));
    ASSERT_TRUE(manager->ReadEnterProperty());
    EXPECT_FALSE(manager->ReadSQLiteDBFile((dir.path() / "nothing.db").string()));
    EXPECT_TRUE(manager->enterprises.empty());
    EXPECT_EQ(manager->ShowObjQueryInfo(7), nullptr);
    EXPECT_EQ(manager->getPath(), "");
    EXPECT_NE(manager->getOpenError().find("does not exist"), std::string::npos) << manager->getOpenError();
    EXPECT_FALSE(fs::exists(dir.path() / "nothing.db"));
}

TEST(StoreManager, GetDBMangerIsOneManagerForTheProcess)
{
    DBManage::SQLiteDBManager* manager = DBManage::getDBManger();
    ASSERT_NE(manager, nullptr);
    EXPECT_EQ(DBManage::getDBManger(), manager);
    EXPECT_GE(manager->referenceCount(), 1);

    cxtest::TempDir dir;
    const std::string path = (dir.path() / "objects.db").string();
    writeSampleStore(path);
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path));
    osg::ref_ptr<DBManage::ShowObjProperty> read = DBManage::getDBManger()->ShowObjQueryInfo(7);
    EXPECT_TRUE(read.valid());
    manager->close();
}

// --- Files that are not object stores ------------------------------------

namespace
{

struct BadFile
{
    const char* name;
    /** Makes the file at `path` (or nothing, for a missing one). `store` is a
      * complete sample store in the same folder, to cut from. */
    void (*make)(const std::string& path, const std::string& store);
    const char* reason; ///< a part of getOpenError()
};

// Test listings name the case rather than dump its bytes.
void PrintTo(const BadFile& value, std::ostream* out)
{
    *out << value.name;
}

void writeText(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

const BadFile kBadFiles[] = {
    {"Missing", [](const std::string&, const std::string&) {}, "does not exist"},
    {"Empty", [](const std::string& path, const std::string&) { writeText(path, ""); }, "empty"},
    {"Text",
     [](const std::string& path, const std::string&) { writeText(path, "objID,enterID\n1,2\n"); },
     "not an SQLite file"},
    {"RandomBytes",
     [](const std::string& path, const std::string&) {
         std::string bytes(8192, '\0');
         for (std::size_t i = 0; i < bytes.size(); ++i)
             bytes[i] = static_cast<char>((i * 2654435761u) >> 13);
         writeText(path, bytes);
     },
     "not an SQLite file"},
    {"SqliteHeaderThenGarbage",
     [](const std::string& path, const std::string& store) {
         std::string bytes = fileBytes(store).substr(0, 100);
         bytes += std::string(4096 * 3, '\x5a');
         writeText(path, bytes);
     },
     "truncated"},
    {"Truncated",
     [](const std::string& path, const std::string& store) {
         const std::string bytes = fileBytes(store);
         writeText(path, bytes.substr(0, bytes.size() / 2));
     },
     "truncated"},
    {"MBTiles",
     [](const std::string& path, const std::string&) {
         makeSqliteFile(path, {"CREATE TABLE metadata (name TEXT, value TEXT)",
                               "INSERT INTO metadata VALUES ('format', 'png')",
                               "CREATE TABLE tiles (zoom_level INTEGER, tile_column INTEGER, tile_row INTEGER,"
                               " tile_data BLOB)",
                               "INSERT INTO tiles VALUES (0, 0, 0, x'89504e47')"});
     },
     "another kind"},
    {"MBTilesInWalMode",
     [](const std::string& path, const std::string&) {
         makeSqliteFile(path, {"PRAGMA application_id=0x4d504258", "PRAGMA journal_mode=WAL",
                               "CREATE TABLE metadata (name TEXT, value TEXT)",
                               "INSERT INTO metadata VALUES ('format', 'jpg')"});
     },
     "another kind"},
    {"StoreIdWithoutDescription",
     [](const std::string& path, const std::string&) {
         makeSqliteFile(path, {"PRAGMA application_id=0x43585354", "CREATE TABLE objects (obj_id INTEGER)"});
     },
     "no store description"},
    {"StoreOfAnotherVersion",
     [](const std::string& path, const std::string&) {
         makeSqliteFile(path, {"PRAGMA application_id=0x43585354",
                               "CREATE TABLE store_meta (key TEXT PRIMARY KEY, value TEXT NOT NULL)",
                               "INSERT INTO store_meta VALUES ('format', 'cxviewer-object-store'), ('version', '2')"});
     },
     "version '2'"},
    {"StoreOfAnotherVersionInWalMode",
     [](const std::string& path, const std::string&) {
         makeSqliteFile(path, {"PRAGMA application_id=0x43585354", "PRAGMA journal_mode=WAL",
                               "CREATE TABLE store_meta (key TEXT PRIMARY KEY, value TEXT NOT NULL)",
                               "INSERT INTO store_meta VALUES ('format', 'cxviewer-object-store'), ('version', '3')"});
     },
     "version '3'"},
    {"StoreWithOtherTables",
     [](const std::string& path, const std::string&) {
         makeSqliteFile(path, {"PRAGMA application_id=0x43585354",
                               "CREATE TABLE store_meta (key TEXT PRIMARY KEY, value TEXT NOT NULL)",
                               "INSERT INTO store_meta VALUES ('format', 'cxviewer-object-store'), ('version', '1')",
                               "CREATE TABLE objects (id INTEGER PRIMARY KEY, name TEXT)"});
     },
     "tables"},
};

class BadStoreFile : public ::testing::TestWithParam<BadFile>
{
};

} // namespace

TEST_P(BadStoreFile, GivesAnEmptyStoreAndStaysUnchanged)
{
    const BadFile& bad = GetParam();
    cxtest::TempDir dir;
    const std::string good = (dir.path() / "good.db").string();
    writeSampleStore(good);
    const std::string path = (dir.path() / "bad.db").string();
    bad.make(path, good);
    const std::string before = fileBytes(path);
    const bool existed = fs::exists(path);
    std::vector<std::string> filesBefore;
    for (const auto& entry : fs::directory_iterator(dir.path()))
        filesBefore.push_back(entry.path().filename().string());
    std::sort(filesBefore.begin(), filesBefore.end());

    osg::ref_ptr<DBManage::SQLiteDBManager> manager = new DBManage::SQLiteDBManager;
    EXPECT_FALSE(manager->ReadSQLiteDBFile(path));
    EXPECT_NE(manager->getOpenError().find(bad.reason), std::string::npos) << manager->getOpenError();
    EXPECT_FALSE(manager->ReadEnterProperty());
    EXPECT_TRUE(manager->enterprises.empty());
    for (int id : {0, 1, 3, 7, 9, 10})
    {
        EXPECT_EQ(manager->ShowObjQueryInfo(id), nullptr);
        EXPECT_EQ(manager->EnterQueryInfo(id), nullptr);
        EXPECT_EQ(manager->QuadTreeQueryInfo(id), nullptr);
        EXPECT_FALSE(manager->ShowObjDelInfo(id));
        osg::ref_ptr<DBManage::ShowObjProperty> object = storetest::object(id, 3, 1.0, 2.0);
        EXPECT_FALSE(manager->ShowObjUpdateInfo(object.get()));
        osg::ref_ptr<DBManage::QuadTreeProperty> node = storetest::node(id, 3, "1,2,3", 1.0, "", "");
        EXPECT_FALSE(manager->QuadTreeUpdateInfo(node.get()));
    }
    manager = nullptr;

    EXPECT_EQ(fs::exists(path), existed);
    EXPECT_EQ(fileBytes(path), before); // the header's journal mode included
    std::vector<std::string> filesAfter;
    for (const auto& entry : fs::directory_iterator(dir.path()))
        filesAfter.push_back(entry.path().filename().string());
    std::sort(filesAfter.begin(), filesAfter.end());
    EXPECT_EQ(filesAfter, filesBefore); // no log or index left beside it
}

INSTANTIATE_TEST_SUITE_P(Files, BadStoreFile, ::testing::ValuesIn(kBadFiles),
                         [](const ::testing::TestParamInfo<BadFile>& info) { return std::string(info.param.name); });

// --- The writer ------------------------------------------------------------

TEST(StoreWriter, NeverTakesOverAnExistingFile)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "taken.db").string();
    writeText(path, "someone's data");
    DBManage::StoreWriter writer;
    EXPECT_FALSE(writer.create(path));
    EXPECT_NE(writer.error().find("exists"), std::string::npos) << writer.error();
    EXPECT_FALSE(writer.isOpen());
    EXPECT_EQ(fileBytes(path), "someone's data");
    EXPECT_FALSE(writer.create((dir.path() / "no-folder" / "x.db").string()));
}

TEST(StoreWriter, RefusesDuplicateIdsAndNonFiniteNumbers)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "store.db").string();
    DBManage::StoreWriter writer;
    ASSERT_TRUE(writer.create(path)) << writer.error();
    ASSERT_TRUE(writer.addEnterprise(*enterprise(1, 0, "a")));
    EXPECT_FALSE(writer.addEnterprise(*enterprise(1, 1, "b")));
    EXPECT_NE(writer.error().find("enterprise 1 is already"), std::string::npos) << writer.error();
    ASSERT_TRUE(writer.addObject(*object(4, 1, 1.0, 2.0)));
    EXPECT_FALSE(writer.addObject(*object(4, 1, 3.0, 4.0)));
    EXPECT_NE(writer.error().find("object 4 is already"), std::string::npos) << writer.error();
    EXPECT_FALSE(writer.addObject(*object(5, 1, std::numeric_limits<double>::infinity(), 4.0)));
    EXPECT_NE(writer.error().find("finite"), std::string::npos) << writer.error();
    ASSERT_TRUE(writer.addQuadTreeNode(*node(2, 1, "0,0,0", 1.0, "", "4")));
    EXPECT_FALSE(writer.addQuadTreeNode(*node(2, 1, "0,0,0", 1.0, "", "")));
    EXPECT_FALSE(writer.addQuadTreeNode(*node(3, 1, "0,0,0", std::numeric_limits<double>::quiet_NaN(), "", "")));
    ASSERT_TRUE(writer.commit()) << writer.error();
    EXPECT_FALSE(writer.addObject(*object(6, 1, 1.0, 2.0))); // closed

    osg::ref_ptr<DBManage::SQLiteDBManager> manager = new DBManage::SQLiteDBManager;
    ASSERT_TRUE(manager->ReadSQLiteDBFile(path)) << manager->getOpenError();
    osg::ref_ptr<DBManage::EnterProperty> e = manager->EnterQueryInfo(1);
    ASSERT_TRUE(e.valid());
    EXPECT_EQ(e->enterName, "a");
    osg::ref_ptr<DBManage::ShowObjProperty> o = manager->ShowObjQueryInfo(4);
    ASSERT_TRUE(o.valid());
    EXPECT_EQ(o->posX, 1.0);
    EXPECT_EQ(manager->ShowObjQueryInfo(5), nullptr);
    EXPECT_EQ(manager->QuadTreeQueryInfo(3), nullptr);
}

TEST(StoreWriter, AnUncommittedStoreIsRemoved)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "store.db").string();
    {
        DBManage::StoreWriter writer;
        ASSERT_TRUE(writer.create(path)) << writer.error();
        ASSERT_TRUE(writer.addEnterprise(*enterprise(1, 0, "a")));
        EXPECT_TRUE(fs::exists(path));
    }
    EXPECT_FALSE(fs::exists(path));

    DBManage::StoreWriter writer;
    ASSERT_TRUE(writer.create(path)) << writer.error();
    writer.discard();
    EXPECT_FALSE(fs::exists(path));
    EXPECT_FALSE(writer.isOpen());
    EXPECT_FALSE(writer.commit());
}

TEST(StoreDamage, PagesDamagedInsideTheTablesGiveNullAndFalse)
{
    // The header and the store description are intact, the tables' pages are
    // overwritten: the store opens, and every query that meets a damaged page
    // gives null (or false), the file staying as it is.
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "damaged.db").string();
    writeSampleStore(path);
    std::string bytes = fileBytes(path);
    ASSERT_GT(bytes.size(), 4u * 4096u);
    for (std::size_t i = 3 * 4096; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(0x5a ^ (i & 0xff));
    writeText(path, bytes);

    osg::ref_ptr<DBManage::SQLiteDBManager> manager = new DBManage::SQLiteDBManager;
    const bool opened = manager->ReadSQLiteDBFile(path);
    EXPECT_EQ(opened, manager->getOpenError().empty());
    manager->ReadEnterProperty();
    EXPECT_TRUE(manager->enterprises.empty());
    EXPECT_EQ(manager->ShowObjQueryInfo(7), nullptr);
    EXPECT_EQ(manager->QuadTreeQueryInfo(10), nullptr);
    EXPECT_EQ(manager->EnterQueryInfo(3), nullptr);
    osg::ref_ptr<DBManage::ShowObjProperty> object = storetest::object(7, 3, 1.0, 2.0);
    EXPECT_FALSE(manager->ShowObjUpdateInfo(object.get()));
    EXPECT_FALSE(manager->ShowObjDelInfo(7));
    manager = nullptr;
    EXPECT_EQ(fileBytes(path), bytes);
}

namespace
{

/** Copies `from` and its write-ahead log to `to` while `db` still holds them
  * open: what a crash leaves on disk. */
void copyWithLog(const std::string& from, const std::string& to)
{
    fs::copy_file(from, to);
    ASSERT_TRUE(fs::exists(from + "-wal"));
    fs::copy_file(from + "-wal", to + "-wal");
}

} // namespace

TEST(StoreLog, AStoreLeftWithItsLogIsReadWithTheLoggedChanges)
{
    cxtest::TempDir dir;
    const std::string path = (dir.path() / "objects.db").string();
    const std::string crashed = (dir.path() / "crashed.db").string();
    writeSampleStore(path);
    {
        osg::ref_ptr<DBManage::SQLiteDBManager> manager = new DBManage::SQLiteDBManager;
        ASSERT_TRUE(manager->ReadSQLiteDBFile(path));
        osg::ref_ptr<DBManage::ShowObjProperty> object = manager->ShowObjQueryInfo(9);
        object->objName = "改过的名称";
        ASSERT_TRUE(manager->ShowObjUpdateInfo(object.get()));
        copyWithLog(path, crashed);
    }
    osg::ref_ptr<DBManage::SQLiteDBManager> manager = new DBManage::SQLiteDBManager;
    ASSERT_TRUE(manager->ReadSQLiteDBFile(crashed)) << manager->getOpenError();
    osg::ref_ptr<DBManage::ShowObjProperty> object = manager->ShowObjQueryInfo(9);
    ASSERT_TRUE(object.valid());
    EXPECT_EQ(object->objName, "改过的名称");
    manager->close();
    EXPECT_FALSE(fs::exists(crashed + "-wal")); // checkpointed into the file at the close
}

TEST(StoreLog, ALogBesideAFileOfAnotherVersionIsLeftAlone)
{
    cxtest::TempDir dir;
    const std::string original = (dir.path() / "original.db").string();
    const std::string path = (dir.path() / "future.db").string();
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(original.c_str(), &db), SQLITE_OK);
    sql(db, "PRAGMA application_id=0x43585354");
    sql(db, "PRAGMA journal_mode=WAL");
    sql(db, "CREATE TABLE store_meta (key TEXT PRIMARY KEY, value TEXT NOT NULL)");
    sql(db, "INSERT INTO store_meta VALUES ('format', 'cxviewer-object-store'), ('version', '2')");
    copyWithLog(original, path);
    sqlite3_close(db);
    const std::string bytes = fileBytes(path);
    const std::string log = fileBytes(path + "-wal");
    ASSERT_GT(log.size(), 0u);

    osg::ref_ptr<DBManage::SQLiteDBManager> manager = new DBManage::SQLiteDBManager;
    EXPECT_FALSE(manager->ReadSQLiteDBFile(path));
    EXPECT_NE(manager->getOpenError().find("version '2'"), std::string::npos) << manager->getOpenError();
    manager = nullptr;
    EXPECT_EQ(fileBytes(path), bytes);
    EXPECT_EQ(fileBytes(path + "-wal"), log);
    EXPECT_FALSE(fs::exists(path + "-shm"));
}
