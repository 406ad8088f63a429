// Re-projection of a vector of points from a projected CRS (EPSG:4547,
// CGCS2000 / 3-degree Gauss-Kruger CM 114E) to world coordinates (WGS84
// geocentric, EPSG:4978): globe::SpatialReference::transform (vector form)
// against raw PROJ proj_trans_generic on the same points with the same
// operation, in the same run. Prints the ratio of the medians of the
// throughputs (target: >= 0.9).
#include <globe/SpatialReference>

#include "MedianReporter.h"
#include "ProjBaseline.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

namespace
{

constexpr std::size_t kPoints = 100000;

const std::vector<osg::Vec3d>& pristinePoints()
{
    static const std::vector<osg::Vec3d> points = [] {
        std::vector<osg::Vec3d> p;
        p.reserve(kPoints);
        unsigned int n = 12345;
        for (std::size_t i = 0; i < kPoints; ++i)
        {
            n = n * 1103515245u + 12345u;
            const double e = 380000.0 + (n >> 8) % 240000;
            n = n * 1103515245u + 12345u;
            const double north = 2500000.0 + (n >> 8) % 2000000;
            p.emplace_back(e, north, static_cast<double>(i % 500));
        }
        return p;
    }();
    return points;
}

void BM_ProjTransGeneric(benchmark::State& state)
{
    const cxbench::ProjBaseline proj("EPSG:4547", "EPSG:4978");
    std::vector<osg::Vec3d> points;
    for (auto _ : state)
    {
        points = pristinePoints();
        proj.transform(points);
        benchmark::DoNotOptimize(points.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kPoints));
}

void BM_SpatialReferenceTransform(benchmark::State& state)
{
    const globe::SpatialReference* gk = globe::SpatialReference::create("epsg:4547");
    const globe::SpatialReference* world = globe::SpatialReference::create("geocentric");
    std::vector<osg::Vec3d> points;
    bool ok = true;
    for (auto _ : state)
    {
        points = pristinePoints();
        ok = gk->transform(points, world) && ok;
        benchmark::DoNotOptimize(points.data());
    }
    if (!ok)
        state.SkipWithError("transform failed");
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kPoints));
}

// Both are run in turn, several times, and compared by their medians.
BENCHMARK(BM_ProjTransGeneric)->Unit(benchmark::kMillisecond)->Repetitions(7)->ReportAggregatesOnly(true);
BENCHMARK(BM_SpatialReferenceTransform)->Unit(benchmark::kMillisecond)->Repetitions(7)->ReportAggregatesOnly(true);


} // namespace

int main(int argc, char** argv)
{
    cxbench::MedianReporter reporter;
    if (!cxbench::runInterleaved(argc, argv, reporter))
        return 1;

    const double proj = reporter.median("BM_ProjTransGeneric");
    const double ours = reporter.median("BM_SpatialReferenceTransform");
    if (proj > 0.0 && ours > 0.0)
        std::printf("\nEPSG:4547 -> geocentric, %zu points: PROJ %.2f M points/s, SpatialReference %.2f M points/s, "
                    "ratio %.3f (target >= 0.9)\n",
                    kPoints, proj / 1e6, ours / 1e6, ours / proj);
    return 0;
}
