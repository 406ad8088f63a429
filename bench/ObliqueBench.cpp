// Oblique tiles re-projected as they load: vertices per second through the
// read callback's fitting of a tile's geodes (changevertex and the anchored
// transform, as ReadosgbCallback::readNode does for each geode) against raw
// PROJ proj_trans_generic on the same points (offset added) with the same
// operation, in the same run. A tile read from its file through the whole
// callback is measured too, for the share of reading. Prints the ratio of
// the medians (target: >= 0.9).
#include <globe/SpatialReference>
#include <oblique/ReadosgbCallback>

#include "MedianReporter.h"
#include "ProjBaseline.h"

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/PagedLOD>
#include <osgDB/Options>
#include <osgDB/WriteFile>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace
{

constexpr int kGeodes = 4;
constexpr int kGeometries = 2;
constexpr std::size_t kVerticesPerGeometry = 25000;
constexpr std::size_t kVertices = kGeodes * kGeometries * kVerticesPerGeometry;
const osg::Vec3d kOffset(704232.0, 4430603.0, 52.43);

// A tile of four 120 m geodes of two meshes each, in model coordinates.
osg::ref_ptr<osg::PagedLOD> makeTile()
{
    osg::ref_ptr<osg::PagedLOD> tile = new osg::PagedLOD;
    unsigned int n = 12345;
    for (int g = 0; g < kGeodes; ++g)
    {
        osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        for (int m = 0; m < kGeometries; ++m)
        {
            osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
            for (std::size_t i = 0; i < kVerticesPerGeometry; ++i)
            {
                n = n * 1103515245u + 12345u;
                const float x = -240.0f + 120.0f * (g % 2) + float((n >> 8) % 12000) / 100.0f;
                n = n * 1103515245u + 12345u;
                const float y = -240.0f + 120.0f * (g / 2) + float((n >> 8) % 12000) / 100.0f;
                vertices->push_back(osg::Vec3(x, y, float(i % 90)));
            }
            osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
            geometry->setVertexArray(vertices);
            geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLES, 0, GLsizei(vertices->size())));
            geode->addDrawable(geometry);
        }
        tile->addChild(geode, 0.0f, 1e30f);
    }
    return tile;
}

const osg::PagedLOD& pristineTile()
{
    static const osg::ref_ptr<osg::PagedLOD> tile = makeTile();
    return *tile;
}

std::vector<osg::Vec3d> pristinePoints()
{
    std::vector<osg::Vec3d> points;
    points.reserve(kVertices);
    const osg::PagedLOD& tile = pristineTile();
    for (unsigned int g = 0; g < tile.getNumChildren(); ++g)
    {
        const osg::Geode* geode = tile.getChild(g)->asGeode();
        for (unsigned int m = 0; m < geode->getNumDrawables(); ++m)
            for (const osg::Vec3& v : *static_cast<const osg::Vec3Array*>(geode->getDrawable(m)->asGeometry()->getVertexArray()))
                points.emplace_back(v.x() + kOffset.x(), v.y() + kOffset.y(), v.z() + kOffset.z());
    }
    return points;
}

void BM_ProjTransGeneric(benchmark::State& state)
{
    const cxbench::ProjBaseline proj("EPSG:4547", "EPSG:4978");
    const std::vector<osg::Vec3d> pristine = pristinePoints();
    std::vector<osg::Vec3d> points;
    for (auto _ : state)
    {
        state.PauseTiming();
        points = pristine;
        state.ResumeTiming();
        proj.transform(points);
        benchmark::DoNotOptimize(points.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kVertices));
}

void BM_CallbackFitsTheTile(benchmark::State& state)
{
    const globe::SpatialReference* srs = globe::SpatialReference::create("epsg:4547");
    const globe::SpatialReference* mapsrs = globe::SpatialReference::create("wgs84");
    const osg::Matrixd parentInverse = osg::Matrixd::identity();
    for (auto _ : state)
    {
        state.PauseTiming();
        osg::ref_ptr<osg::PagedLOD> tile =
            static_cast<osg::PagedLOD*>(pristineTile().clone(osg::CopyOp::DEEP_COPY_ALL));
        state.ResumeTiming();
        for (unsigned int g = 0; g < tile->getNumChildren(); ++g)
        {
            osg::Geode* geode = tile->getChild(g)->asGeode();
            osg::ref_ptr<osg::MatrixTransform> transform =
                ReadosgbCallback::fitGeode(geode, kOffset, srs, mapsrs, parentInverse);
            tile->replaceChild(geode, transform.get());
        }
        benchmark::DoNotOptimize(tile.get());
        state.PauseTiming();
        tile = nullptr;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kVertices));
}

std::string tilePath()
{
    static const std::string path = [] {
        const std::string p = (std::filesystem::temp_directory_path() / "cxviewer-bench-oblique-tile.osgb").string();
        osgDB::writeNodeFile(pristineTile(), p);
        return p;
    }();
    return path;
}

void BM_CallbackReadsTheTile(benchmark::State& state)
{
    osg::ref_ptr<ReadosgbCallback> callback = new ReadosgbCallback;
    osg::ref_ptr<osg::MatrixTransform> pp = new osg::MatrixTransform;
    osg::Vec3d offset = kOffset;
    osg::ref_ptr<osgDB::Options> options = new osgDB::Options;
    options->setPluginData("pp", pp.get());
    options->setPluginData("offset", &offset);
    options->setPluginData("srs", const_cast<globe::SpatialReference*>(globe::SpatialReference::create("epsg:4547")));
    options->setPluginData("mapsrs", const_cast<globe::SpatialReference*>(globe::SpatialReference::create("wgs84")));
    options->setReadFileCallback(callback.get());
    const std::string path = tilePath();
    for (auto _ : state)
    {
        osgDB::ReaderWriter::ReadResult result = callback->readNode(path, options.get());
        if (!result.getNode())
        {
            state.SkipWithError("the tile could not be read");
            break;
        }
        benchmark::DoNotOptimize(result.getNode());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kVertices));
}

BENCHMARK(BM_ProjTransGeneric)->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly(true);
BENCHMARK(BM_CallbackFitsTheTile)->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly(true);
BENCHMARK(BM_CallbackReadsTheTile)->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly(true);

} // namespace

int main(int argc, char** argv)
{
    cxbench::MedianReporter reporter;
    if (!cxbench::runInterleaved(argc, argv, reporter))
        return 1;
    std::error_code ignored;
    std::filesystem::remove(tilePath(), ignored);

    const double proj = reporter.median("BM_ProjTransGeneric");
    const double fit = reporter.median("BM_CallbackFitsTheTile");
    const double read = reporter.median("BM_CallbackReadsTheTile");
    if (proj > 0.0 && fit > 0.0)
        std::printf("\nEPSG:4547 tile of %zu vertices -> geocentric: PROJ %.2f M vertices/s, the callback's fitting "
                    "%.2f M vertices/s, ratio %.3f (target >= 0.9); read from its file through the callback "
                    "%.2f M vertices/s (%.3f)\n",
                    kVertices, proj / 1e6, fit / 1e6, fit / proj, read / 1e6, read / proj);
    return 0;
}
