// The point cloud cull callback's share of a cull: culls per second of a
// cloud of 585 visible tiles (three complete octree levels below the root,
// 2,000 points a tile) under the viewer's callback, which rebuilds the table
// of visible tiles, hands out "vsnStart" uniforms and the view uniforms,
// against the same cull with no callback, in the same run. Prints the ratio
// of the medians and the callback's cost per cull and per visible tile.
// Then the table build alone (a fresh table, both passes, a "vsnStart" per
// tile) for 2,048 visible tiles, the table's capacity, in milliseconds,
// against its floor in the same run: the new uniforms alone.
#include "MedianReporter.h"
#include "OctreeTestSupport.h"

#include <benchmark/benchmark.h>

#include <osg/Group>
#include <pointcloud/pagelodVisitor>

#include <cstdio>

namespace
{

constexpr int kLevels = 3;
constexpr int kTiles = 1 + 8 + 64 + 512;
constexpr int kPointsPerTile = 2000;

// A tile's content gets points spread over a metre around its centre.
void fillTiles(osg::Node* node, unsigned int& seed)
{
    osg::PagedLOD* tile = dynamic_cast<osg::PagedLOD*>(node);
    if (!tile)
        return;
    osg::Geometry* geometry =
        tile->getChild(0)->asGroup()->getChild(0)->asGeode()->getDrawable(0)->asGeometry();
    osg::ref_ptr<osg::Vec3Array> points = new osg::Vec3Array;
    for (int i = 0; i < kPointsPerTile; ++i)
    {
        seed = seed * 1103515245u + 12345u;
        const float x = float((seed >> 8) % 1000) / 1000.0f;
        seed = seed * 1103515245u + 12345u;
        const float y = float((seed >> 8) % 1000) / 1000.0f;
        points->push_back(osg::Vec3(x - 0.5f, y - 0.5f, float(i % 10) / 10.0f));
    }
    geometry->setVertexArray(points.get());
    geometry->setPrimitiveSet(0, new osg::DrawArrays(GL_POINTS, 0, kPointsPerTile));
    if (tile->getNumChildren() == 2)
    {
        osg::Group* level = tile->getChild(1)->asGroup();
        for (unsigned int i = 0; i < level->getNumChildren(); ++i)
            fillTiles(level->getChild(i), seed);
    }
}

osg::ref_ptr<osg::Group> makeCloud(bool withCallback)
{
    osg::ref_ptr<osg::Group> lidar = new osg::Group;
    if (withCallback)
        lidar->setCullCallback(new pagelodCullCallBack);
    osg::ref_ptr<osg::PagedLOD> root = cxtest::completeOctree(kLevels);
    unsigned int seed = 4711;
    fillTiles(root.get(), seed);
    lidar->addChild(root.get());
    return lidar;
}

void cullLoop(benchmark::State& state, bool withCallback)
{
    osg::ref_ptr<osg::Group> cloud = makeCloud(withCallback);
    unsigned int frame = 1;
    for (auto _ : state)
        cxtest::cullOnce(cloud.get(), frame++);
    state.SetItemsProcessed(state.iterations());
}

void BM_CullWithoutCallback(benchmark::State& state)
{
    cullLoop(state, false);
}

void BM_CullWithCallback(benchmark::State& state)
{
    cullLoop(state, true);
}

// A cloud of exactly 2,048 tiles, all visible: three complete levels below
// the root (585 tiles) and the rest on the fourth, eight under each of the
// first level-3 tiles (seven under the last).
constexpr int kTableTiles = pagelodVisitor::tableSize;

osg::ref_ptr<osg::PagedLOD> makeFullTableCloud(osg::PagedLOD*& last)
{
    osg::ref_ptr<osg::PagedLOD> root = cxtest::completeOctree(kLevels);
    std::vector<osg::PagedLOD*> deepest{root.get()};
    for (int level = 0; level < kLevels; ++level)
    {
        std::vector<osg::PagedLOD*> next;
        for (osg::PagedLOD* tile : deepest)
        {
            osg::Group* children = tile->getChild(1)->asGroup();
            for (unsigned int i = 0; i < children->getNumChildren(); ++i)
                next.push_back(dynamic_cast<osg::PagedLOD*>(children->getChild(i)));
        }
        deepest.swap(next);
    }
    int missing = kTableTiles - kTiles;
    for (osg::PagedLOD* tile : deepest)
    {
        if (missing == 0)
            break;
        std::vector<osg::ref_ptr<osg::Node>> children;
        for (int octant = 0; octant < 8 && missing > 0; ++octant, --missing)
            children.push_back(cxtest::makeTile("ARSCmark" + std::to_string(octant)));
        cxtest::attachNextLevel(tile, children);
        last = dynamic_cast<osg::PagedLOD*>(children.back().get());
    }
    return root;
}

void BM_TableBuild2048(benchmark::State& state)
{
    osg::PagedLOD* last = nullptr;
    osg::ref_ptr<osg::PagedLOD> root = makeFullTableCloud(last);
    const unsigned int frame = 7;
    cxtest::cullOnce(root.get(), frame); // every tile selected in frame 7
    for (auto _ : state)
    {
        osg::ref_ptr<osg::Texture2D> table = pagelodCullCallBack::createTableTexture(pagelodVisitor::tableSize);
        pagelodVisitor::writeTable(*root, table.get(), frame);
        benchmark::DoNotOptimize(table->getImage()->data());
    }
    // The last record is that of tile 2,047: the table is full.
    osg::ref_ptr<osg::Texture2D> table = pagelodCullCallBack::createTableTexture(pagelodVisitor::tableSize);
    pagelodVisitor::writeTable(*root, table.get(), frame);
    if (cxtest::vsnStartOf(cxtest::contentOf(last)) != kTableTiles - 1)
        state.SkipWithError("the last tile is not the table's last record");
    state.SetItemsProcessed(state.iterations());
}

// The floor of the table build: a new "vsnStart" uniform on each of the
// 2,048 content transforms, replacing the last one, as every cull must do;
// nothing else.
void BM_UniformsAlone2048(benchmark::State& state)
{
    osg::PagedLOD* last = nullptr;
    osg::ref_ptr<osg::PagedLOD> root = makeFullTableCloud(last);
    const unsigned int frame = 7;
    cxtest::cullOnce(root.get(), frame);
    osg::ref_ptr<osg::Texture2D> table = pagelodCullCallBack::createTableTexture(pagelodVisitor::tableSize);
    pagelodVisitor::writeTable(*root, table.get(), frame);
    // The content transforms, found through the uniforms the table gave them.
    std::vector<osg::StateSet*> contents;
    std::vector<osg::Node*> open{root.get()};
    while (!open.empty())
    {
        osg::Node* node = open.back();
        open.pop_back();
        if (node->getStateSet() && node->getStateSet()->getUniform("vsnStart"))
            contents.push_back(node->getStateSet());
        if (osg::Group* group = node->asGroup())
            for (unsigned int i = 0; i < group->getNumChildren(); ++i)
                open.push_back(group->getChild(i));
    }
    for (auto _ : state)
        for (std::size_t i = 0; i < contents.size(); ++i)
            contents[i]->addUniform(new osg::Uniform("vsnStart", static_cast<int>(i)), osg::StateAttribute::ON);
    if (contents.size() != static_cast<std::size_t>(kTableTiles))
        state.SkipWithError("not every tile has its uniform");
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_CullWithoutCallback)->Unit(benchmark::kMicrosecond)->Repetitions(9)->ReportAggregatesOnly(true);
BENCHMARK(BM_CullWithCallback)->Unit(benchmark::kMicrosecond)->Repetitions(9)->ReportAggregatesOnly(true);
BENCHMARK(BM_TableBuild2048)->Unit(benchmark::kMicrosecond)->Repetitions(9)->ReportAggregatesOnly(true);
BENCHMARK(BM_UniformsAlone2048)->Unit(benchmark::kMicrosecond)->Repetitions(9)->ReportAggregatesOnly(true);

} // namespace

int main(int argc, char** argv)
{
    cxbench::MedianReporter reporter;
    if (!cxbench::runInterleaved(argc, argv, reporter))
        return 1;
    const double plain = reporter.median("BM_CullWithoutCallback");
    const double table = reporter.median("BM_CullWithCallback");
    if (plain > 0.0 && table > 0.0)
    {
        const double extra = 1.0 / table - 1.0 / plain;
        std::printf("\n%d visible tiles: cull alone %.3f ms, with the table %.3f ms (ratio %.2f); the callback adds "
                    "%.3f ms a cull, %.2f us a visible tile\n",
                    kTiles, 1e3 / plain, 1e3 / table, plain / table, extra * 1e3, extra * 1e6 / kTiles);
    }
    const double build = reporter.median("BM_TableBuild2048");
    const double uniforms = reporter.median("BM_UniformsAlone2048");
    if (build > 0.0 && uniforms > 0.0)
        std::printf("table build for %d visible tiles (a fresh table, both passes, the uniforms): %.3f ms a cull;\n"
                    "its new \"vsnStart\" uniforms alone %.3f ms (ratio %.2f)\n",
                    kTableTiles, 1e3 / build, 1e3 / uniforms, uniforms / build);
    return 0;
}
