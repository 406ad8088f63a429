// The scene objects on one core:
// - reading a quadtree node of 1,000 objects through its ".qtn" name (the
//   models built: records read, property texts parsed, files looked for,
//   paged nodes made and placed) against raw SQLite point selects of the same
//   rows, the same run; the ratio of objects per second;
// - GetObj over 100,000 loaded models: one walk of the scene, in ms.
#include "MedianReporter.h"

#include <datastore/DBAuthoring>
#include <objects/CObjManager>
#include <objects/PropertyText>
#include <viewer/CXViewer>

#include <osgDB/Registry>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace
{

constexpr int kObjectsPerNode = 1000;
constexpr int kNodeID = 1;
constexpr int kLoadedModels = 100000;

struct Data
{
    std::filesystem::path folder;
    std::string store;
    osg::ref_ptr<CXViewer> viewer;
};

Data& data()
{
    static Data d = [] {
        Data made;
        std::string templ = (std::filesystem::temp_directory_path() / "cxviewer-bench-XXXXXX").string();
        made.folder = mkdtemp(templ.data());
        made.store = (made.folder / "objects.db").string();
        std::filesystem::create_directories(made.folder / "models");
        for (const char* form : {"crude", "middle", "fine"})
            std::ofstream(made.folder / "models" / (std::string("house_") + form + ".osgb")) << "model";

        DBManage::StoreWriter writer;
        if (!writer.create(made.store))
        {
            std::fprintf(stderr, "bench_objects: %s\n", writer.error().c_str());
            std::exit(1);
        }
        osg::ref_ptr<DBManage::EnterProperty> enterprise = new DBManage::EnterProperty;
        enterprise->enterID = 1;
        enterprise->rootQtnID = kNodeID;
        writer.addEnterprise(*enterprise);
        std::string ids;
        OBJManage::PropertyValues values;
        values.fileName = "house_crude.osgb";
        values.angle.set(30.0f, 0.0f, 0.0f);
        const std::string text = OBJManage::writePropertyText(values);
        for (int id = 1; id <= kObjectsPerNode; ++id)
        {
            osg::ref_ptr<DBManage::ShowObjProperty> o = new DBManage::ShowObjProperty;
            o->objID = id;
            o->enterID = 1;
            o->objName = "楼 " + std::to_string(id);
            o->propertyText = text;
            o->radius = 20.0 + id % 50;
            o->posX = 116.3 + (id % 40) * 0.002;
            o->posY = 39.9 + (id / 40) * 0.002;
            o->posZ = 50.0;
            writer.addObject(*o);
            ids += (ids.empty() ? "" : ",") + std::to_string(id);
        }
        osg::ref_ptr<DBManage::QuadTreeProperty> node = new DBManage::QuadTreeProperty;
        node->qtnID = kNodeID;
        node->enterID = 1;
        node->centerText = "116.34,39.95,50";
        node->width = node->height = 0.1;
        node->lodRange = 5000.0;
        node->objectIDs = ids;
        writer.addQuadTreeNode(*node);
        if (!writer.commit())
        {
            std::fprintf(stderr, "bench_objects: %s\n", writer.error().c_str());
            std::exit(1);
        }

        // A viewer object with what the models read: the map node, the
        // model root, the distance tiers.
        made.viewer = new CXViewer(0);
        made.viewer->mapNode = new globe::MapNode;
        made.viewer->modelRootPath = (made.folder / "models").string() + "/";
        made.viewer->root = new osg::Group;
        DBManage::getDBManger()->ReadSQLiteDBFile(made.store);
        return made;
    }();
    return d;
}

void BM_QtnNodeBuildsItsModels(benchmark::State& state)
{
    data();
    const std::string name = std::to_string(kNodeID) + ".qtn";
    long objects = 0;
    for (auto _ : state)
    {
        osg::ref_ptr<osg::Node> node = osgDB::Registry::instance()->readNode(name, nullptr, false).getNode();
        if (!node.valid() || !node->asGroup() || node->asGroup()->getNumChildren() != kObjectsPerNode)
        {
            state.SkipWithError("the node did not give its models");
            return;
        }
        objects += kObjectsPerNode;
    }
    state.SetItemsProcessed(objects);
}

void BM_RawSqliteSelectsOfTheSameRows(benchmark::State& state)
{
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(data().store.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK)
    {
        state.SkipWithError("cannot open the store");
        return;
    }
    sqlite3_stmt* select = nullptr;
    sqlite3_prepare_v2(db, "SELECT * FROM objects WHERE obj_id = ?1", -1, &select, nullptr);
    long rows = 0;
    for (auto _ : state)
    {
        for (int id = 1; id <= kObjectsPerNode; ++id)
        {
            sqlite3_bind_int(select, 1, id);
            if (sqlite3_step(select) == SQLITE_ROW)
            {
                benchmark::DoNotOptimize(sqlite3_column_text(select, 4));
                ++rows;
            }
            sqlite3_reset(select);
        }
    }
    sqlite3_finalize(select);
    sqlite3_close(db);
    state.SetItemsProcessed(rows);
}

// 100 paged tiles of 1,000 models each under one enterprise node, as a
// loaded quadtree holds them.
osg::Group* loadedScene()
{
    static osg::ref_ptr<osg::Group> scene = [] {
        osg::ref_ptr<osg::Group> root = new osg::Group;
        osg::ref_ptr<osg::Group> buildings = new osg::Group;
        osg::ref_ptr<osg::MatrixTransform> enterNode = new osg::MatrixTransform;
        root->addChild(buildings.get());
        buildings->addChild(enterNode.get());
        int id = 0;
        for (int tile = 0; tile < kLoadedModels / 1000; ++tile)
        {
            osg::ref_ptr<osg::PagedLOD> plod = new osg::PagedLOD;
            osg::ref_ptr<osg::Group> content = new osg::Group;
            plod->addChild(content.get());
            enterNode->addChild(plod.get());
            for (int k = 0; k < 1000; ++k)
            {
                osg::ref_ptr<OBJManage::CModel> model = new OBJManage::CModel;
                model->objID = ++id;
                content->addChild(model.get());
            }
        }
        return root;
    }();
    return scene.get();
}

void BM_GetObjOverOneHundredThousandModels(benchmark::State& state)
{
    data().viewer->root = loadedScene();
    OBJManage::CObjManager* manager = OBJManage::GetObjManager();
    long walks = 0;
    for (auto _ : state)
    {
        // The last model: the whole scene is walked.
        OBJManage::CModel* model = manager->GetObj(kLoadedModels);
        if (!model)
        {
            state.SkipWithError("GetObj did not find the model");
            return;
        }
        benchmark::DoNotOptimize(model);
        ++walks;
    }
    state.SetItemsProcessed(walks);
}

BENCHMARK(BM_QtnNodeBuildsItsModels)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_RawSqliteSelectsOfTheSameRows)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_GetObjOverOneHundredThousandModels)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

} // namespace

int main(int argc, char** argv)
{
    cxbench::MedianReporter reporter;
    const bool ran = cxbench::runInterleaved(argc, argv, reporter, [] {
        data(); // made before timing
        loadedScene();
    });
    if (!ran)
        return 1;

    const double built = reporter.median("BM_QtnNodeBuildsItsModels");
    const double selected = reporter.median("BM_RawSqliteSelectsOfTheSameRows");
    const double walks = reporter.median("BM_GetObjOverOneHundredThousandModels");
    if (built > 0.0 && selected > 0.0)
        std::printf("\n.qtn node of %d objects: %.0f models built/s, raw point selects %.0f rows/s: ratio %.3f "
                    "(goal >= 0.1)\n",
                    kObjectsPerNode, built, selected, built / selected);
    if (walks > 0.0)
        std::printf("GetObj over %d loaded models: %.2f ms (goal <= 10 ms)\n", kLoadedModels, 1000.0 / walks);
    std::error_code ignored;
    data().viewer = nullptr;
    std::filesystem::remove_all(data().folder, ignored);
    return 0;
}
