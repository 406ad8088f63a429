#include <datastore/DBAuthoring>

#include "StoreSchema.h"

#include <sqlite3.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace fs = std::filesystem;

namespace DBManage
{

namespace schema = storeschema;

namespace
{

constexpr double kMetresPerDegree = 111000.0;
// The smallest root cell, and the deepest level a tree may reach: at these
// bounds a cell edge of any longitude or latitude is still an exact double.
constexpr double kSmallestRootSide = 1.0 / (1 << 20);
constexpr int kDeepestLevel = 24;

std::string shortest(double value)
{
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof(buffer), value);
    return std::string(buffer, result.ptr);
}

bool finite(std::initializer_list<double> values)
{
    return std::all_of(values.begin(), values.end(), [](double v) { return std::isfinite(v); });
}

/** An object as the tree builder sees it. */
struct Item
{
    int id;
    double x, y, z, radius;
};

/** A cell of the tree being planned; its objects are items[begin, end), of
  * which the first `own` stay on it and the rest belong to its children. */
struct PlannedNode
{
    double centreX, centreY, side;
    int depth;
    std::size_t begin, end, own;
    std::size_t firstChild = 0, childCount = 0;
};

/** Cuts the items into the cells QuadTreeOptions describes, breadth first
  * (root first, then the children in their order). */
std::vector<PlannedNode> planTree(std::vector<Item>& items, double west, double south, double side,
                                  const QuadTreeOptions& options, int maxDepth)
{
    std::vector<PlannedNode> nodes;
    nodes.push_back({west + side / 2, south + side / 2, side, 0, 0, items.size(), items.size()});
    for (std::size_t i = 0; i < nodes.size(); ++i)
    {
        PlannedNode node = nodes[i];
        const std::size_t count = node.end - node.begin;
        if (count <= options.leafCapacity || node.depth >= maxDepth)
            continue; // a leaf: every item stays

        const auto first = items.begin() + static_cast<std::ptrdiff_t>(node.begin);
        const auto last = items.begin() + static_cast<std::ptrdiff_t>(node.end);
        const double cellMetres = node.side * kMetresPerDegree;
        const auto descending =
            std::partition(first, last, [cellMetres](const Item& item) { return 4.0 * item.radius > cellMetres; });
        if (descending == last)
            continue; // every object is too large for a child
        const auto [lowX, highX] = std::minmax_element(descending, last, [](const Item& a, const Item& b) {
            return a.x < b.x;
        });
        const auto [lowY, highY] = std::minmax_element(descending, last, [](const Item& a, const Item& b) {
            return a.y < b.y;
        });
        if (lowX->x == highX->x && lowY->y == highY->y)
            continue; // one shared position: splitting would not separate them

        const double cx = node.centreX, cy = node.centreY;
        const auto southStart = std::partition(descending, last, [cy](const Item& item) { return item.y >= cy; });
        const auto northEast = std::partition(descending, southStart, [cx](const Item& item) { return item.x <= cx; });
        const auto southEast = std::partition(southStart, last, [cx](const Item& item) { return item.x <= cx; });

        const double quarter = node.side / 4;
        const struct
        {
            decltype(first) from, to;
            double dx, dy;
        } quadrants[4] = {{descending, northEast, -quarter, quarter},
                          {northEast, southStart, quarter, quarter},
                          {southStart, southEast, -quarter, -quarter},
                          {southEast, last, quarter, -quarter}};
        nodes[i].own = static_cast<std::size_t>(descending - items.begin());
        nodes[i].firstChild = nodes.size();
        for (const auto& q : quadrants)
        {
            if (q.from == q.to)
                continue;
            nodes.push_back({cx + q.dx, cy + q.dy, node.side / 2, node.depth + 1,
                             static_cast<std::size_t>(q.from - items.begin()),
                             static_cast<std::size_t>(q.to - items.begin()),
                             static_cast<std::size_t>(q.to - items.begin())});
            ++nodes[i].childCount;
        }
    }
    return nodes;
}

} // namespace

struct StoreWriter::Impl
{
    std::string path;
    std::string error;
    sqlite3* db = nullptr;
    sqlite3_stmt* insertEnterprise = nullptr;
    sqlite3_stmt* insertNode = nullptr;
    sqlite3_stmt* insertObject = nullptr;
    sqlite3_stmt* enterpriseExists = nullptr;
    sqlite3_stmt* objectsOf = nullptr;
    sqlite3_stmt* deleteNodesOf = nullptr;
    sqlite3_stmt* largestNodeId = nullptr;
    sqlite3_stmt* setRoot = nullptr;

    bool fail(const std::string& what)
    {
        error = what;
        return false;
    }

    bool failSql(const std::string& what)
    {
        return fail(what + ": " + (db ? sqlite3_errmsg(db) : "the store is closed"));
    }

    void finalize()
    {
        for (sqlite3_stmt** statement : {&insertEnterprise, &insertNode, &insertObject, &enterpriseExists, &objectsOf,
                                         &deleteNodesOf, &largestNodeId, &setRoot})
        {
            sqlite3_finalize(*statement);
            *statement = nullptr;
        }
    }

    /** Runs an insert whose parameters are bound; names the row in a failure. */
    bool insert(sqlite3_stmt* statement, const std::string& row)
    {
        const int rc = sqlite3_step(statement);
        if (rc == SQLITE_DONE)
            return true;
        if (sqlite3_extended_errcode(db) == SQLITE_CONSTRAINT_PRIMARYKEY)
            return fail(row + " is already in the store");
        return failSql("cannot add " + row);
    }
};

StoreWriter::StoreWriter() : _impl(new Impl) {}

StoreWriter::~StoreWriter() { discard(); }

bool StoreWriter::isOpen() const { return _impl->db != nullptr; }

const std::string& StoreWriter::path() const { return _impl->path; }

const std::string& StoreWriter::error() const { return _impl->error; }

bool StoreWriter::create(const std::string& path)
{
    Impl& d = *_impl;
    if (d.db)
        return d.fail("the writer already has a store open ('" + d.path + "')");

    // Made here, exclusively, so that an existing file is never taken over.
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
    {
        std::error_code ec;
        if (fs::exists(fs::symlink_status(path, ec)))
            return d.fail("cannot create '" + path + "': a file of that name exists");
        return d.fail("cannot create '" + path + "': " + std::error_code(errno, std::generic_category()).message());
    }
    ::close(fd);
    d.path = path;

    std::error_code ec;
    const fs::path absolute = fs::absolute(path, ec);
    if (sqlite3_open_v2(ec ? path.c_str() : absolute.c_str(), &d.db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                        nullptr)
        != SQLITE_OK)
    {
        const std::string reason = d.db ? sqlite3_errmsg(d.db) : "out of memory";
        discard();
        return d.fail("cannot create '" + path + "': " + reason);
    }

    std::string reason;
    const std::string setUp[] = {
        "PRAGMA page_size=4096",
        "PRAGMA application_id=" + std::to_string(schema::kApplicationId),
        // No journal while writing: an incomplete file is removed, never repaired.
        "PRAGMA journal_mode=OFF",
        "PRAGMA synchronous=OFF",
        "PRAGMA cache_size=-65536",
        "BEGIN",
    };
    bool ok = true;
    for (const std::string& sql : setUp)
        ok = ok && schema::execute(d.db, sql.c_str(), &reason);
    for (int i = 0; ok && i < schema::kCreateStatementCount; ++i)
        ok = schema::execute(d.db, schema::kCreateStatements[i], &reason);
    const std::string meta = std::string("INSERT INTO store_meta (key, value) VALUES ('format', '")
                             + schema::kFormatName + "'), ('version', '" + schema::kFormatVersion + "')";
    ok = ok && schema::execute(d.db, meta.c_str(), &reason);

    const struct
    {
        sqlite3_stmt** statement;
        const char* sql;
    } statements[] = {
        {&d.insertEnterprise, "INSERT INTO enterprises (" CXSTORE_ENTER_COLUMNS ") VALUES (?1, ?2, ?3, ?4)"},
        {&d.insertNode, "INSERT INTO quadtree_nodes (" CXSTORE_NODE_COLUMNS ") VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)"},
        {&d.insertObject, "INSERT INTO objects (" CXSTORE_OBJECT_COLUMNS
                          ") VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13)"},
        {&d.enterpriseExists, "SELECT 1 FROM enterprises WHERE enter_id = ?1"},
        {&d.objectsOf, "SELECT obj_id, pos_x, pos_y, pos_z, radius FROM objects WHERE enter_id = ?1"},
        {&d.deleteNodesOf, "DELETE FROM quadtree_nodes WHERE enter_id = ?1"},
        {&d.largestNodeId, "SELECT max(qtn_id) FROM quadtree_nodes"},
        {&d.setRoot, "UPDATE enterprises SET root_qtn_id = ?2 WHERE enter_id = ?1"},
    };
    for (const auto& s : statements)
        if (ok && sqlite3_prepare_v3(d.db, s.sql, -1, SQLITE_PREPARE_PERSISTENT, s.statement, nullptr) != SQLITE_OK)
        {
            reason = sqlite3_errmsg(d.db);
            ok = false;
        }
    if (!ok)
    {
        discard();
        return d.fail("cannot create '" + path + "': " + reason);
    }
    return true;
}

bool StoreWriter::addEnterprise(const EnterProperty& enterprise)
{
    Impl& d = *_impl;
    if (!d.db)
        return d.fail("no store is open");
    schema::StatementScope scope(d.insertEnterprise);
    schema::bindEnterprise(d.insertEnterprise, enterprise);
    return d.insert(d.insertEnterprise, "enterprise " + std::to_string(enterprise.enterID));
}

bool StoreWriter::addQuadTreeNode(const QuadTreeProperty& node)
{
    Impl& d = *_impl;
    if (!d.db)
        return d.fail("no store is open");
    if (!finite({node.width, node.height, node.lodRange}))
        return d.fail("quadtree node " + std::to_string(node.qtnID) + ": width, height and lodRange must be finite");
    schema::StatementScope scope(d.insertNode);
    schema::bindNode(d.insertNode, node);
    return d.insert(d.insertNode, "quadtree node " + std::to_string(node.qtnID));
}

bool StoreWriter::addObject(const ShowObjProperty& object)
{
    Impl& d = *_impl;
    if (!d.db)
        return d.fail("no store is open");
    if (!finite({object.posX, object.posY, object.posZ, object.radius, object.reserved0, object.reserved1,
                 object.reserved2}))
        return d.fail("object " + std::to_string(object.objID) + ": position, radius and reserved numbers must be finite");
    schema::StatementScope scope(d.insertObject);
    schema::bindObject(d.insertObject, object);
    return d.insert(d.insertObject, "object " + std::to_string(object.objID));
}

bool StoreWriter::buildQuadTree(int enterID, const QuadTreeOptions& options, QuadTreeSummary* summary)
{
    Impl& d = *_impl;
    const std::string which = "quadtree of enterprise " + std::to_string(enterID);
    if (!d.db)
        return d.fail("no store is open");
    if (options.leafCapacity < 1)
        return d.fail(which + ": the leaf capacity must be 1 at least");
    if (options.maxDepth < 0 || options.maxDepth > kDeepestLevel)
        return d.fail(which + ": the depth must lie in 0.." + std::to_string(kDeepestLevel));
    for (double range : options.lodRangeByDepth)
        if (!std::isfinite(range))
            return d.fail(which + ": every lodRange must be finite");
    if (options.lodRangeByDepth.empty()
        && (!std::isfinite(options.lodRangeFactor) || !std::isfinite(options.viewDistance)))
        return d.fail(which + ": the lodRange factor and the view distance must be finite");

    {
        schema::StatementScope scope(d.enterpriseExists);
        sqlite3_bind_int(d.enterpriseExists, 1, enterID);
        const int rc = sqlite3_step(d.enterpriseExists);
        if (rc == SQLITE_DONE)
            return d.fail(which + ": there is no such enterprise");
        if (rc != SQLITE_ROW)
            return d.failSql(which);
    }

    std::vector<Item> items;
    {
        schema::StatementScope scope(d.objectsOf);
        sqlite3_bind_int(d.objectsOf, 1, enterID);
        int rc;
        while ((rc = sqlite3_step(d.objectsOf)) == SQLITE_ROW)
            items.push_back({sqlite3_column_int(d.objectsOf, 0), sqlite3_column_double(d.objectsOf, 1),
                             sqlite3_column_double(d.objectsOf, 2), sqlite3_column_double(d.objectsOf, 3),
                             sqlite3_column_double(d.objectsOf, 4)});
        if (rc != SQLITE_DONE)
            return d.failSql(which + ": cannot read the objects");
    }

    // The root cell (see QuadTreeOptions), or the whole world for no objects.
    double west = -180.0, south = -180.0, side = 360.0;
    if (!items.empty())
    {
        // The objects' footprints, not only their positions: a cell, and the
        // bound the viewer gives its paged node, must cover the models that
        // hang under it, or a lone large object gets a cell too small to be
        // drawn and never pages in.
        double minX = items[0].x, maxX = minX, minY = items[0].y, maxY = minY;
        for (const Item& item : items)
        {
            const double reach = std::max(0.0, item.radius) / kMetresPerDegree;
            minX = std::min(minX, item.x - reach);
            maxX = std::max(maxX, item.x + reach);
            minY = std::min(minY, item.y - reach);
            maxY = std::max(maxY, item.y + reach);
        }
        const double extent = std::max(maxX - minX, maxY - minY);
        side = kSmallestRootSide;
        while (side < 2.0 * extent && std::isfinite(side))
            side *= 2.0;
        for (;;)
        {
            if (!std::isfinite(side))
                return d.fail(which + ": the objects' positions span too far to be cut into cells");
            const double half = side / 2.0;
            west = std::floor(minX / half) * half;
            south = std::floor(minY / half) * half;
            if (west + side >= maxX && south + side >= maxY)
                break;
            side *= 2.0;
        }
    }

    const std::vector<PlannedNode> plan =
        planTree(items, west, south, side, options, options.maxDepth);

    // New ids lie above those of the earlier tree too, so that no id names
    // two different nodes in the life of the file.
    sqlite3_int64 firstId = 1;
    {
        schema::StatementScope scope(d.largestNodeId);
        if (sqlite3_step(d.largestNodeId) != SQLITE_ROW)
            return d.failSql(which);
        if (sqlite3_column_type(d.largestNodeId, 0) != SQLITE_NULL)
            firstId = std::max<sqlite3_int64>(1, sqlite3_column_int64(d.largestNodeId, 0) + 1);
    }
    if (firstId + static_cast<sqlite3_int64>(plan.size()) - 1 > INT_MAX)
        return d.fail(which + ": node ids would exceed 32 bits");
    {
        schema::StatementScope scope(d.deleteNodesOf);
        sqlite3_bind_int(d.deleteNodesOf, 1, enterID);
        if (sqlite3_step(d.deleteNodesOf) != SQLITE_DONE)
            return d.failSql(which + ": cannot remove the earlier tree");
    }

    QuadTreeSummary made;
    made.rootQtnID = static_cast<int>(firstId);
    std::vector<int> ids;
    for (std::size_t i = 0; i < plan.size(); ++i)
    {
        const PlannedNode& p = plan[i];
        osg::ref_ptr<QuadTreeProperty> node = new QuadTreeProperty;
        node->qtnID = static_cast<int>(firstId + static_cast<sqlite3_int64>(i));
        node->enterID = enterID;

        double heightSum = 0.0;
        for (std::size_t k = p.begin; k < p.end; ++k)
            heightSum += items[k].z;
        const double height = p.end > p.begin ? heightSum / static_cast<double>(p.end - p.begin) : 0.0;
        node->centerText = shortest(p.centreX) + "," + shortest(p.centreY) + "," + shortest(height);
        node->width = node->height = p.side;
        node->lodRange = options.lodRange(p.depth, p.side);

        for (std::size_t c = 0; c < p.childCount; ++c)
        {
            if (c)
                node->childIDs += ',';
            node->childIDs += std::to_string(firstId + static_cast<sqlite3_int64>(p.firstChild + c));
        }
        ids.clear();
        for (std::size_t k = p.begin; k < p.own; ++k)
            ids.push_back(items[k].id);
        std::sort(ids.begin(), ids.end());
        for (std::size_t k = 0; k < ids.size(); ++k)
        {
            if (k)
                node->objectIDs += ',';
            node->objectIDs += std::to_string(ids[k]);
        }

        schema::StatementScope scope(d.insertNode);
        schema::bindNode(d.insertNode, *node);
        if (!d.insert(d.insertNode, "quadtree node " + std::to_string(node->qtnID)))
            return false;

        made.nodes += 1;
        made.objects += static_cast<int>(ids.size());
        made.levels = std::max(made.levels, p.depth + 1);
        if (p.childCount == 0)
            made.largestLeaf = std::max(made.largestLeaf, static_cast<int>(ids.size()));
    }

    {
        schema::StatementScope scope(d.setRoot);
        sqlite3_bind_int(d.setRoot, 1, enterID);
        sqlite3_bind_int(d.setRoot, 2, made.rootQtnID);
        if (sqlite3_step(d.setRoot) != SQLITE_DONE)
            return d.failSql(which + ": cannot write the root");
    }
    if (summary)
        *summary = made;
    return true;
}

bool StoreWriter::commit()
{
    Impl& d = *_impl;
    if (!d.db)
        return d.fail("no store is open");
    d.finalize();
    std::string reason;
    if (!schema::execute(d.db, "COMMIT", &reason) || !schema::execute(d.db, "PRAGMA journal_mode=WAL", &reason))
    {
        discard();
        return d.fail("cannot finish '" + d.path + "': " + reason);
    }
    if (sqlite3_close(d.db) != SQLITE_OK)
    {
        reason = sqlite3_errmsg(d.db);
        discard();
        return d.fail("cannot close '" + d.path + "': " + reason);
    }
    d.db = nullptr;
    // On disk before anyone renames it into place.
    const int fd = ::open(d.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0)
    {
        ::fsync(fd);
        ::close(fd);
    }
    d.path.clear();
    return true;
}

void StoreWriter::discard()
{
    Impl& d = *_impl;
    d.finalize();
    if (d.db)
    {
        sqlite3_close_v2(d.db);
        d.db = nullptr;
    }
    if (!d.path.empty())
    {
        std::error_code ec;
        for (const char* suffix : {"", "-journal", "-wal", "-shm"})
            fs::remove(d.path + suffix, ec);
        d.path.clear();
    }
}

} // namespace DBManage
