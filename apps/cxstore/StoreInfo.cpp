#include "StoreInfo.h"

#include "Error.h"

#include <datastore/DBManage>

#include <cstdint>
#include <cstdlib>
#include <deque>
#include <ostream>
#include <unordered_set>
#include <utility>

namespace cxstore
{

std::vector<int> parseIdList(const std::string& text)
{
    std::vector<int> ids;
    std::size_t start = 0;
    while (start <= text.size())
    {
        std::size_t end = text.find(',', start);
        if (end == std::string::npos)
            end = text.size();
        if (end > start)
        {
            const std::string piece = text.substr(start, end - start);
            ids.push_back(static_cast<int>(static_cast<std::uint32_t>(std::strtoll(piece.c_str(), nullptr, 10))));
        }
        start = end + 1;
    }
    return ids;
}

StoreInfo readStoreInfo(const std::string& path)
{
    osg::ref_ptr<DBManage::SQLiteDBManager> manager = new DBManage::SQLiteDBManager;
    if (!manager->ReadSQLiteDBFile(path))
        throw Error("'" + path + "' is not an object store: " + manager->getOpenError());
    if (!manager->ReadEnterProperty())
        throw Error("cannot read the enterprises of '" + path + "'");

    StoreInfo info;
    for (const osg::ref_ptr<DBManage::EnterProperty>& enterprise : manager->enterprises)
    {
        EnterpriseInfo e;
        e.enterID = enterprise->enterID;
        e.enterType = enterprise->enterType;
        e.rootQtnID = enterprise->rootQtnID;

        std::unordered_set<int> seen;
        std::deque<std::pair<int, int>> queue{{e.rootQtnID, 0}};
        seen.insert(e.rootQtnID);
        while (!queue.empty())
        {
            const auto [id, depth] = queue.front();
            queue.pop_front();
            osg::ref_ptr<DBManage::QuadTreeProperty> node = manager->QuadTreeQueryInfo(id);
            if (!node)
            {
                if (depth > 0)
                    ++e.missingNodes;
                continue;
            }
            if (depth == 0)
                e.rootFound = true;
            ++e.nodes;
            e.levels = std::max(e.levels, depth + 1);
            for (int object : parseIdList(node->objectIDs))
            {
                ++e.objects;
                osg::ref_ptr<DBManage::ShowObjProperty> record = manager->ShowObjQueryInfo(object);
                if (!record)
                    ++e.missingObjects;
            }
            for (int child : parseIdList(node->childIDs))
                if (seen.insert(child).second)
                    queue.emplace_back(child, depth + 1);
        }
        info.nodes += e.nodes;
        info.objects += e.objects;
        info.enterprises.push_back(e);
    }
    return info;
}

void printStoreInfo(const StoreInfo& info, const std::string& path, std::ostream& out)
{
    out << path << ": " << info.enterprises.size() << " enterprises, " << info.nodes << " quadtree nodes, "
        << info.objects << " objects\n";
    for (const EnterpriseInfo& e : info.enterprises)
    {
        const char* kind = e.enterType == 0 ? "buildings" : e.enterType == 1 ? "terrain" : "pipes";
        out << "  enterprise " << e.enterID << ": type " << e.enterType << " (" << kind << "), root " << e.rootQtnID;
        if (!e.rootFound)
        {
            out << " (missing: no tree)\n";
            continue;
        }
        out << ", " << e.nodes << " nodes, " << e.objects << " objects, " << e.levels
            << (e.levels == 1 ? " level" : " levels");
        if (e.missingNodes)
            out << ", " << e.missingNodes << " child ids without a node";
        if (e.missingObjects)
            out << ", " << e.missingObjects << " object ids without a row";
        out << '\n';
    }
}

} // namespace cxstore
