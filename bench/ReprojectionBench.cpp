// Re-projection of a vector of points from a projected CRS (EPSG:4547,
// CGCS2000 / 3-degree Gauss-Kruger CM 114E) to world coordinates (WGS84
// geocentric, EPSG:4978): globe::SpatialReference::transform (vector form)
// against raw PROJ proj_trans_generic on the same points with the same
// operation, in the same run. Prints the ratio of the medians of the
// throughputs (target: >= 0.9).
#include <globe/SpatialReference>

#include "MedianReporter.h"

#include <benchmark/benchmark.h>
#include <proj.h>

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
    PJ_CONTEXT* ctx = proj_context_create();
    PJ* raw = proj_create_crs_to_crs(ctx, "EPSG:4547", "EPSG:4978", nullptr);
    PJ* op = proj_normalize_for_visualization(ctx, raw);
    proj_destroy(raw);
    std::vector<osg::Vec3d> points;
    for (auto _ : state)
    {
        points = pristinePoints();
        double* base = points.front().ptr();
        const std::size_t stride = sizeof(osg::Vec3d);
        proj_trans_generic(op, PJ_FWD, base, stride, kPoints, base + 1, stride, kPoints, base + 2, stride, kPoints,
                           nullptr, 0, 0);
        benchmark::DoNotOptimize(points.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kPoints));
    proj_destroy(op);
    proj_context_destroy(ctx);
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
    argv = cxbench::initializeInterleaved(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    cxbench::MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    const double proj = reporter.median("BM_ProjTransGeneric");
    const double ours = reporter.median("BM_SpatialReferenceTransform");
    if (proj > 0.0 && ours > 0.0)
        std::printf("\nEPSG:4547 -> geocentric, %zu points: PROJ %.2f M points/s, SpatialReference %.2f M points/s, "
                    "ratio %.3f (target >= 0.9)\n",
                    kPoints, proj / 1e6, ours / 1e6, ours / proj);
    return 0;
}
