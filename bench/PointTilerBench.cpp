// `cxtiler points` on a LAS 1.4 cloud of 1,000,000 points (a town of ground,
// walls and roofs in UTM zone 50N), worked in memory on one core: the whole
// tile set written, in input points per second. The baselines, in the same
// run and for the same points: reading the file once alone (the tiler reads
// it twice), and PROJ turning the points into geocentric coordinates alone
// (which every tile's vertices need).
#include "MedianReporter.h"

#include "PointCloudFiles.h"
#include "PointSource.h"
#include "PointTiler.h"

#include <benchmark/benchmark.h>
#include <globe/SpatialReference>

#include <cstdio>
#include <filesystem>
#include <sstream>
#include <unistd.h>

namespace
{

constexpr std::size_t kPoints = 1000000;

struct Data
{
    std::filesystem::path folder;
    std::string input;
    std::vector<osg::Vec3d> positions; // the points in the file's CRS

    Data()
    {
        folder = std::filesystem::temp_directory_path() / ("cxviewer-points-bench-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder);
        input = (folder / "town.las").string();
        pointtest::LasFile las;
        las.minor = 4;
        las.format = 7;
        las.vlrs.push_back(pointtest::wktRecord(32650));
        // Ground every 0.8 m over 800 x 800 m, then towers' walls every 0.5 m.
        for (double y = 0.0; y < 800.0 && las.points.size() < kPoints * 3 / 4; y += 0.8)
            for (double x = 0.0; x < 800.0; x += 0.8)
                las.points.push_back({448000.0 + x, 4418000.0 + y, 40.0 + 0.01 * x + 0.02 * y,
                                      static_cast<std::uint16_t>(x * 50), 20000, 30000, 10000, 1, 1, 2, 0});
        for (int tower = 0; las.points.size() < kPoints; ++tower)
        {
            const double x0 = 50.0 + (tower % 10) * 70.0, y0 = 50.0 + (tower / 10 % 10) * 70.0;
            for (double z = 0.0; z < 120.0 && las.points.size() < kPoints; z += 0.5)
                for (double s = 0.0; s < 160.0 && las.points.size() < kPoints; s += 0.5)
                {
                    const double x = s < 40 ? s : s < 80 ? 40 : s < 120 ? 120 - s : 0;
                    const double y = s < 40 ? 0 : s < 80 ? s - 40 : s < 120 ? 40 : 160 - s;
                    las.points.push_back({448000.0 + x0 + x, 4418000.0 + y0 + y, 45.0 + z, 30000, 40000, 40000,
                                          45000, 1, 1, 6, 0});
                }
        }
        pointtest::writeLas(input, las);
        for (const pointtest::TestPoint& p : las.points)
            positions.emplace_back(p.x, p.y, p.z);
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

void BM_TilePointCloud(benchmark::State& state)
{
    cxtiler::PointTilerOptions options;
    options.inputs = {data().input};
    options.output = (data().folder / "tiles").string();
    options.quiet = true;
    std::uint64_t points = 0;
    for (auto _ : state)
    {
        std::ostringstream log;
        points = cxtiler::tilePointCloud(options, log, false).points;
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * points));
}

void BM_ReadTheFileAlone(benchmark::State& state)
{
    std::uint64_t points = 0;
    for (auto _ : state)
    {
        auto source = cxtiler::openPointSource(data().input);
        std::vector<cxtiler::PointRecord> batch;
        points = 0;
        while (source->read(batch, 1 << 16))
            points += batch.size();
        benchmark::DoNotOptimize(batch.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * points));
}

void BM_ProjToGeocentricAlone(benchmark::State& state)
{
    const globe::SpatialReference* utm = globe::SpatialReference::create("EPSG:32650");
    const globe::SpatialReference* world = globe::SpatialReference::create("geocentric");
    std::vector<osg::Vec3d> points;
    for (auto _ : state)
    {
        // In tiles' worth, as the tiler transforms them.
        for (std::size_t at = 0; at < data().positions.size(); at += 20000)
        {
            points.assign(data().positions.begin() + static_cast<std::ptrdiff_t>(at),
                          data().positions.begin()
                              + static_cast<std::ptrdiff_t>(std::min(at + 20000, data().positions.size())));
            utm->transform(points, world);
            benchmark::DoNotOptimize(points.data());
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * data().positions.size()));
}

BENCHMARK(BM_TilePointCloud)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_ReadTheFileAlone)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_ProjToGeocentricAlone)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);

} // namespace

int main(int argc, char** argv)
{
    cxbench::MedianReporter reporter;
    if (!cxbench::runInterleaved(argc, argv, reporter, [] { data(); }))
        return 1;
    const double tiling = reporter.median("BM_TilePointCloud");
    const double reading = reporter.median("BM_ReadTheFileAlone");
    const double projecting = reporter.median("BM_ProjToGeocentricAlone");
    if (tiling > 0.0 && reading > 0.0 && projecting > 0.0)
        std::printf("\ncxtiler points, %zu points of LAS 1.4 in memory, one core: %.0f points/s; reading the file "
                    "once alone %.0f points/s (ratio %.3f); PROJ to geocentric alone %.0f points/s (ratio %.2f)\n",
                    data().positions.size(), tiling, reading, tiling / reading, projecting, tiling / projecting);
    return 0;
}
