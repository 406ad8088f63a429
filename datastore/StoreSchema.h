// The object store file: its schema, the marks that identify it, and the
// checks that decide whether a file is one.
//
// Object store, format version 1
// ==============================
//
// One SQLite 3 file in WAL journal mode (readers on the pager's thread do not
// wait for a writer on the host's thread). All texts are UTF-8. Every id is a
// 32-bit signed integer stored in the table's INTEGER PRIMARY KEY (the rowid),
// so that a lookup by id is one b-tree search.
//
// Marks of the format (a file lacking any of them is not opened, and is left
// exactly as it is):
//   - PRAGMA application_id = 0x43585354 ("CXST") in the file header;
//   - the table store_meta (key TEXT PRIMARY KEY, value TEXT NOT NULL) with the
//     rows ('format', 'cxviewer-object-store') and ('version', '1').
//
// enterprises: one row per EnterProperty
//   enter_id      INTEGER PRIMARY KEY   enterID
//   enter_name    TEXT NOT NULL         enterName
//   root_qtn_id   INTEGER NOT NULL      rootQtnID (0 until a tree is built)
//   enter_type    INTEGER NOT NULL      enterType: 0 buildings, 1 terrain, other pipes
//
// quadtree_nodes: one row per QuadTreeProperty
//   qtn_id        INTEGER PRIMARY KEY   qtnID
//   enter_id      INTEGER NOT NULL      enterID of the tree's enterprise
//   center_text   TEXT NOT NULL         "x,y,z": cell centre (longitude, latitude, height)
//   width         REAL NOT NULL         cell extent in longitude, degrees
//   height        REAL NOT NULL         cell extent in latitude, degrees
//   lod_range     REAL NOT NULL         paging distance in metres
//   child_ids     TEXT NOT NULL         comma-separated qtnIDs; "" on a leaf
//   object_ids    TEXT NOT NULL         comma-separated objIDs; may be ""
//   index quadtree_nodes_enter (enter_id)
//
// objects: one row per ShowObjProperty
//   obj_id        INTEGER PRIMARY KEY   objID
//   enter_id      INTEGER NOT NULL      enterID
//   obj_name      TEXT NOT NULL         objName
//   visible       INTEGER NOT NULL      visible
//   property_text TEXT NOT NULL         the model description (XML); "" = no model
//   reserved0, reserved1, reserved2     REAL NOT NULL
//   radius        REAL NOT NULL         bounding radius, metres
//   pos_x, pos_y, pos_z REAL NOT NULL   longitude, latitude (degrees), height (metres)
//   obj_type      INTEGER NOT NULL      objType
//   index objects_enter (enter_id)
//
// There are no foreign keys: a node's object list may name an object whose row
// was deleted, and readers skip such ids. Real columns cannot hold NaN (SQLite
// stores it as NULL), so a record with a NaN number is refused.
#ifndef CXVIEWER_DATASTORE_STORESCHEMA_H
#define CXVIEWER_DATASTORE_STORESCHEMA_H

#include <cstdint>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace DBManage
{
class ShowObjProperty;
class EnterProperty;
class QuadTreeProperty;

namespace storeschema
{

constexpr std::int32_t kApplicationId = 0x43585354; // "CXST"
constexpr const char* kFormatName = "cxviewer-object-store";
constexpr const char* kFormatVersion = "1";

/** The statements that make the schema in an empty database, in order. */
extern const char* const kCreateStatements[];
extern const int kCreateStatementCount;

/** Columns in the order the statements below select and bind them. */
#define CXSTORE_OBJECT_COLUMNS                                                                                   \
    "obj_id, enter_id, obj_name, visible, property_text, reserved0, reserved1, reserved2, radius, pos_x, pos_y, " \
    "pos_z, obj_type"
#define CXSTORE_NODE_COLUMNS "qtn_id, enter_id, center_text, width, height, lod_range, child_ids, object_ids"
#define CXSTORE_ENTER_COLUMNS "enter_id, enter_name, root_qtn_id, enter_type"

/**
 * Looks at the first 100 bytes of `path` without SQLite: empty when the file
 * can be an object store (an SQLite 3 header with the store's application id,
 * and not shorter than its header says), otherwise why it cannot.
 */
std::string checkFileHeader(const std::string& path);

/**
 * On an open connection: empty when the database carries the store's marks
 * (store_meta with the format name and version), otherwise why not.
 */
std::string checkMarks(sqlite3* db);

/** Runs one statement without results; false with `error` set on failure. */
bool execute(sqlite3* db, const char* sql, std::string* error);

/** Binds a record's columns, in the order of the column lists above, to the
  * parameters 1.. of `statement`. */
void bindObject(sqlite3_stmt* statement, const ShowObjProperty& object);
void bindNode(sqlite3_stmt* statement, const QuadTreeProperty& node);
void bindEnterprise(sqlite3_stmt* statement, const EnterProperty& enterprise);

/** A new record from the current row of `statement`, whose result columns are
  * those of the column lists above. */
ShowObjProperty* readObject(sqlite3_stmt* statement);
QuadTreeProperty* readNode(sqlite3_stmt* statement);
EnterProperty* readEnterprise(sqlite3_stmt* statement);

/** Resets a statement and clears its parameters when the scope ends, so that
  * it holds no read transaction open between calls. */
class StatementScope
{
public:
    explicit StatementScope(sqlite3_stmt* statement) : _statement(statement) {}
    ~StatementScope();
    StatementScope(const StatementScope&) = delete;
    StatementScope& operator=(const StatementScope&) = delete;

private:
    sqlite3_stmt* _statement;
};

} // namespace storeschema
} // namespace DBManage

#endif
