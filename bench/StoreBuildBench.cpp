// Building an object store of 100,000 objects the way "cxstore build" does it
// (reading and checking the CSV, a property text per object, the rows, one
// quadtree per enterprise, the temporary file renamed into place), against the
// same-run baseline of inserting the same rows, texts already made, into an
// objects table with raw SQLite in one transaction: the least any store of
// these rows costs. Prints both medians and their ratio.
#include "MedianReporter.h"

#include "ObjectCsv.h"
#include "Progress.h"
#include "StoreBuild.h"

#include <objects/PropertyText>

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <unistd.h>

namespace
{

constexpr int kObjects = 100000;

struct Data
{
    std::filesystem::path folder;
    std::string csvPath;
    cxstore::ObjectTable table;
    std::vector<std::string> propertyTexts;

    Data()
    {
        folder = std::filesystem::temp_directory_path() / ("cxviewer-store-bench-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder);
        csvPath = (folder / "objects.csv").string();

        // 100,000 objects of 40 enterprises over northern China, in clusters
        // like plants, with Chinese names and a few large objects.
        std::mt19937 random(42);
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        std::ofstream csv(csvPath, std::ios::binary);
        csv << "objID,enterID,enterType,objName,lon,lat,height,radius,objType,fileName,heading,pitch,roll,"
               "scaleX,scaleY,scaleZ\n";
        char line[512];
        for (int i = 0; i < kObjects; ++i)
        {
            const int enterprise = i % 40;
            const double lon = 105.0 + enterprise * 0.6 + unit(random) * 0.25;
            const double lat = 32.0 + (enterprise % 8) * 1.5 + unit(random) * 0.2;
            const double radius = i % 997 == 0 ? 2500.0 : 3.0 + unit(random) * 40.0;
            std::snprintf(line, sizeof(line),
                          "%d,%d,%d,\"储罐 %d, 第%d区\",%.7f,%.7f,%.2f,%.1f,%d,models/tank_%d.ive,%.2f,0,0,1,1,%.3f\n",
                          100000 + i, 1 + enterprise, enterprise % 3, i, enterprise, lon, lat, 20.0 + unit(random) * 30,
                          radius, i % 5, i % 50, unit(random) * 360.0, 1.0 + unit(random));
            csv << line;
        }
        csv.close();

        cxstore::Progress quiet;
        table = cxstore::readObjectCsv(csvPath, quiet);
        for (const cxstore::ObjectRow& row : table.rows)
        {
            OBJManage::PropertyValues values;
            values.fileName = row.fileName;
            values.angle.set(row.heading, row.pitch, row.roll);
            values.scale.set(row.scaleX, row.scaleY, row.scaleZ);
            propertyTexts.push_back(OBJManage::writePropertyText(values));
        }
    }
    ~Data()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
};

Data& data()
{
    static Data instance;
    return instance;
}

void BM_CxstoreBuild(benchmark::State& state)
{
    Data& d = data();
    const std::string store = (d.folder / "built.db").string();
    cxstore::BuildOptions options;
    long nodes = 0;
    for (auto _ : state)
    {
        cxstore::Progress quiet;
        const cxstore::BuildSummary summary = cxstore::buildStore(d.csvPath, store, options, quiet);
        nodes = summary.nodes;
        state.PauseTiming();
        std::filesystem::remove(store);
        state.ResumeTiming();
    }
    state.counters["nodes"] = static_cast<double>(nodes);
    state.SetItemsProcessed(state.iterations() * kObjects);
}

void BM_RawSqliteInserts(benchmark::State& state)
{
    Data& d = data();
    const std::string path = (d.folder / "raw.db").string();
    for (auto _ : state)
    {
        sqlite3* db = nullptr;
        sqlite3_stmt* insert = nullptr;
        bool ok = sqlite3_open(path.c_str(), &db) == SQLITE_OK
                  && sqlite3_exec(db,
                                  "CREATE TABLE objects (obj_id INTEGER PRIMARY KEY, enter_id INTEGER, obj_name TEXT,"
                                  " visible INTEGER, property_text TEXT, reserved0 REAL, reserved1 REAL,"
                                  " reserved2 REAL, radius REAL, pos_x REAL, pos_y REAL, pos_z REAL, obj_type INTEGER);"
                                  "BEGIN",
                                  nullptr, nullptr, nullptr)
                         == SQLITE_OK
                  && sqlite3_prepare_v2(db, "INSERT INTO objects VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?)", -1, &insert,
                                        nullptr)
                         == SQLITE_OK;
        for (std::size_t i = 0; ok && i < d.table.rows.size(); ++i)
        {
            const cxstore::ObjectRow& row = d.table.rows[i];
            sqlite3_bind_int(insert, 1, row.objID);
            sqlite3_bind_int(insert, 2, row.enterID);
            sqlite3_bind_text(insert, 3, row.objName.data(), static_cast<int>(row.objName.size()), SQLITE_STATIC);
            sqlite3_bind_int(insert, 4, 1);
            sqlite3_bind_text(insert, 5, d.propertyTexts[i].data(), static_cast<int>(d.propertyTexts[i].size()),
                              SQLITE_STATIC);
            for (int column = 6; column <= 8; ++column)
                sqlite3_bind_double(insert, column, 0.0);
            sqlite3_bind_double(insert, 9, row.radius);
            sqlite3_bind_double(insert, 10, row.lon);
            sqlite3_bind_double(insert, 11, row.lat);
            sqlite3_bind_double(insert, 12, row.height);
            sqlite3_bind_int(insert, 13, row.objType);
            ok = sqlite3_step(insert) == SQLITE_DONE;
            sqlite3_reset(insert);
        }
        sqlite3_finalize(insert);
        ok = ok && sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
        sqlite3_close(db);
        if (!ok)
        {
            state.SkipWithError("raw SQLite insert failed");
            break;
        }
        state.PauseTiming();
        std::filesystem::remove(path);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kObjects);
}

BENCHMARK(BM_CxstoreBuild)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_RawSqliteInserts)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1)->Repetitions(5)->ReportAggregatesOnly(true);

} // namespace

int main(int argc, char** argv)
{
    cxbench::MedianReporter reporter;
    const bool ran = cxbench::runInterleaved(argc, argv, reporter, [] {
        data(); // made before timing
    });
    if (!ran)
        return 1;

    const double build = reporter.median("BM_CxstoreBuild");
    const double raw = reporter.median("BM_RawSqliteInserts");
    if (build > 0.0 && raw > 0.0)
        std::printf("\nstore of %d objects, one core: cxstore build %.2f s (%.0f objects/s), raw SQLite inserts "
                    "%.2f s (%.0f objects/s); build / raw = %.2f\n",
                    kObjects, kObjects / build, build, kObjects / raw, raw, raw / build);
    return 0;
}
