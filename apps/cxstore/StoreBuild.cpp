#include "StoreBuild.h"

#include "Error.h"
#include "OutputFile.h"
#include "Progress.h"

#include <datastore/DBAuthoring>
#include <objects/PropertyText>

#include <filesystem>

namespace fs = std::filesystem;

namespace cxstore
{

BuildSummary writeStore(const ObjectTable& table, const std::string& path, const BuildOptions& options,
                        Progress& progress)
{
    cxtool::checkOutputPath(path);
    if (options.leafCapacity < 1)
        throw Error("the leaf capacity must be 1 at least");

    const std::string temporary = cxtool::temporaryPathFor(path);
    cxtool::PendingFile pending(temporary);
    DBManage::StoreWriter writer; // removes the temporary file unless committed
    auto check = [&writer, &path](bool ok) {
        if (!ok)
            throw Error("cannot write '" + path + "': " + writer.error());
    };
    check(writer.create(temporary));

    BuildSummary summary;
    for (const auto& [enterID, enterType] : table.enterprises)
    {
        osg::ref_ptr<DBManage::EnterProperty> enterprise = new DBManage::EnterProperty;
        enterprise->enterID = enterID;
        enterprise->enterType = enterType;
        check(writer.addEnterprise(*enterprise));
    }
    summary.enterprises = static_cast<long>(table.enterprises.size());

    progress.begin("objects", static_cast<long>(table.rows.size()), "rows");
    osg::ref_ptr<DBManage::ShowObjProperty> object = new DBManage::ShowObjProperty;
    OBJManage::PropertyValues model;
    for (const ObjectRow& row : table.rows)
    {
        object->objID = row.objID;
        object->enterID = row.enterID;
        object->objName = row.objName;
        object->visible = 1;
        object->radius = row.radius;
        object->posX = row.lon;
        object->posY = row.lat;
        object->posZ = row.height;
        object->objType = row.objType;
        if (row.fileName.empty())
            object->propertyText.clear();
        else
        {
            model.fileName = row.fileName;
            model.angle.set(static_cast<float>(row.heading), static_cast<float>(row.pitch),
                            static_cast<float>(row.roll));
            model.scale.set(static_cast<float>(row.scaleX), static_cast<float>(row.scaleY),
                            static_cast<float>(row.scaleZ));
            object->propertyText = OBJManage::writePropertyText(model);
        }
        if (!writer.addObject(*object))
            throw Error("cannot write '" + path + "' (line " + std::to_string(row.line) + "): " + writer.error());
        progress.advance();
    }
    progress.end();
    summary.objects = static_cast<long>(table.rows.size());

    progress.begin("quadtrees", static_cast<long>(table.enterprises.size()), "enterprises");
    DBManage::QuadTreeOptions treeOptions;
    treeOptions.leafCapacity = options.leafCapacity;
    treeOptions.viewDistance = options.viewDistance;
    for (const auto& entry : table.enterprises)
    {
        DBManage::QuadTreeSummary tree;
        check(writer.buildQuadTree(entry.first, treeOptions, &tree));
        summary.nodes += tree.nodes;
        summary.levels = std::max(summary.levels, tree.levels);
        progress.advance();
    }
    progress.end();

    progress.begin("finishing", 1, "files");
    check(writer.commit());
    // The log files of an earlier store at the target would be applied to the
    // new one; they go before it takes the name.
    std::error_code ec;
    for (const char* suffix : {"-wal", "-shm"})
        fs::remove(path + suffix, ec);
    fs::rename(temporary, path, ec);
    if (ec)
    {
        fs::remove(temporary, ec);
        throw Error("cannot write '" + path + "': " + ec.message());
    }
    progress.advance();
    progress.end();
    return summary;
}

BuildSummary buildStore(const std::string& csvPath, const std::string& storePath, const BuildOptions& options,
                        Progress& progress)
{
    std::error_code ec;
    if (fs::exists(storePath, ec) && fs::equivalent(csvPath, storePath, ec))
        throw Error("the store '" + storePath + "' would replace its own input");
    const ObjectTable table = readObjectCsv(csvPath, progress);
    return writeStore(table, storePath, options, progress);
}

} // namespace cxstore
