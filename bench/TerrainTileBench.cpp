// One terrain tile build, as the database pager's thread does it: a 17 x 17
// grid with skirts, normals and texture coordinates under a tile-centre
// transform, textured from one 256 x 256 JPEG image tile and shaped by one
// 256 x 256 Terrain-RGB elevation tile. The sources are geodetic MBTiles
// files on the terrain's own tiling, so each terrain tile reads one tile of
// each. The builds walk the tiles row by row, as paging over a region does;
// the layers keep two rows decoded, so that the edge pixels a tile takes
// from its east and south neighbours are at hand, and each build decodes
// exactly one new JPEG and one new PNG tile. Over 512 tiles the walk wraps
// around to tiles long evicted.
//
//   BM_TerrainTileBuild              the whole build, both tiles decoded afresh
//   BM_TerrainTileBuildSharedHeights the same with the heights from a coarse
//                                    elevation tile shared by many terrain
//                                    tiles (the level that matches a 17-point
//                                    grid, which the layer picks when the file
//                                    has it): one fresh JPEG per build
//   BM_TerrainTileBuildDataCached    one tile again and again: the terrain's
//                                    own share, with its data decoded already
//   BM_DecodeTileData                the baseline, in the same run: decoding
//                                    one JPEG and one Terrain-RGB PNG tile
//                                    with OpenSceneGraph's plugins, nothing else
//
// With $CXVIEWER_SAMPLE_DIR (or ./sample) holding the prepared sample data,
// BM_TerrainTileBuildRealData builds level-6 tiles over China from the real
// Blue Marble (spherical mercator, re-projected) and SRTM files.
#include "MBTilesTestFiles.h"
#include "MedianReporter.h"

#include <globe/ElevationLayer>
#include <globe/ImageLayer>
#include <globe/MBTilesSource>
#include <globe/Map>
#include <globe/TerrainEngine>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>
#include <vector>

namespace
{

// Level 4 of the geodetic tiling: 32 x 16 tiles of 11.25 degrees.
constexpr unsigned int kLevel = 4;
constexpr unsigned int kWide = 2u << kLevel;
constexpr unsigned int kHigh = 1u << kLevel;

struct SyntheticData
{
    std::filesystem::path folder;
    std::string imagePath;
    std::string demPath;
    std::string coarseDemPath;
    std::vector<std::string> jpegs;
    std::vector<std::string> pngs;
    std::vector<globe::TileKey> keys;

    SyntheticData()
    {
        folder = std::filesystem::temp_directory_path() / ("cxviewer-terrain-bench-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder);
        imagePath = (folder / "image.db").string();
        demPath = (folder / "dem.db").string();
        coarseDemPath = (folder / "dem-coarse.db").string();
        auto height = [](double u, double v) {
            return 1500.0 + 1200.0 * std::sin(u * 0.02) * std::cos(v * 0.017);
        };
        {
            // Level 0: two tiles of 0.7 degrees a pixel, the spacing of a
            // 17-point grid on level-4 tiles.
            cxtest::MBTilesFile coarse(coarseDemPath);
            coarse.metadata("profile", "geodetic");
            coarse.metadata("format", "png");
            for (int x = 0; x < 2; ++x)
                coarse.tile(0, x, 0, cxtest::terrainRGBTile(256, [&](int c, int r) {
                    return height((x * 256.0 + c) * 16.0, r * 16.0);
                }));
        }
        cxtest::MBTilesFile image(imagePath);
        image.metadata("profile", "geodetic");
        image.metadata("format", "jpg");
        cxtest::MBTilesFile dem(demPath);
        dem.metadata("profile", "geodetic");
        dem.metadata("format", "png");
        for (unsigned int y = 0; y < kHigh; ++y)
        {
            for (unsigned int x = 0; x < kWide; ++x)
            {
                // Imagery with detail at several scales, like land seen from
                // orbit; heights rolling over a few kilometres.
                auto colour = [x, y](int c, int r) {
                    const double u = x * 256.0 + c, v = y * 256.0 + r;
                    const double shade =
                        120 + 50 * std::sin(u * 0.043) * std::cos(v * 0.029) + 25 * std::sin(u * 0.31 + v * 0.17);
                    const auto g = static_cast<std::uint32_t>(std::clamp(shade + ((c * 7 + r * 13) % 19), 0.0, 235.0));
                    return (g << 16) | ((g + 20) << 8) | (g / 2 + 40);
                };
                jpegs.push_back(cxtest::encode(*cxtest::rgbImage(256, colour), "jpg"));
                image.tile(static_cast<int>(kLevel), static_cast<int>(x), static_cast<int>(y), jpegs.back());
                pngs.push_back(cxtest::terrainRGBTile(256, [&](int c, int r) {
                    return height(x * 256.0 + c, y * 256.0 + r);
                }));
                dem.tile(static_cast<int>(kLevel), static_cast<int>(x), static_cast<int>(y), pngs.back());
                keys.emplace_back(kLevel, x, y);
            }
        }
    }

    ~SyntheticData()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
};

SyntheticData& synthetic()
{
    static SyntheticData data;
    return data;
}

osg::ref_ptr<globe::TerrainEngine> makeEngine(const std::string& image, const std::string& dem)
{
    osg::ref_ptr<globe::Map> map = new globe::Map;
    osg::ref_ptr<globe::ImageLayer> imageLayer = new globe::ImageLayer("image", cxtest::mbtilesOptions(image));
    osg::ref_ptr<globe::ElevationLayer> demLayer = new globe::ElevationLayer("dem", cxtest::mbtilesOptions(dem));
    // Two rows of the synthetic tiling and then some.
    imageLayer->setCacheSize(4 * kWide);
    demLayer->setCacheSize(4 * kWide);
    map->addLayer(imageLayer.get());
    map->addLayer(demLayer.get());
    return new globe::TerrainEngine(map.get());
}

void buildInTurn(benchmark::State& state, globe::TerrainEngine& engine, const std::vector<globe::TileKey>& keys)
{
    std::size_t next = 0;
    for (auto _ : state)
    {
        osg::ref_ptr<osg::MatrixTransform> tile = engine.createTileModel(keys[next]);
        if (!tile)
            state.SkipWithError("a tile did not build");
        benchmark::DoNotOptimize(tile.get());
        next = (next + 1) % keys.size();
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["tiles_per_s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

// The whole tile: data, grid, skirts, normals, texture.
void BM_TerrainTileBuild(benchmark::State& state)
{
    SyntheticData& data = synthetic();
    osg::ref_ptr<globe::TerrainEngine> engine = makeEngine(data.imagePath, data.demPath);
    buildInTurn(state, *engine, data.keys);
}
BENCHMARK(BM_TerrainTileBuild)->Unit(benchmark::kMillisecond)->MinTime(0.5)->Repetitions(5)->ReportAggregatesOnly(true);

void BM_TerrainTileBuildSharedHeights(benchmark::State& state)
{
    SyntheticData& data = synthetic();
    osg::ref_ptr<globe::TerrainEngine> engine = makeEngine(data.imagePath, data.coarseDemPath);
    buildInTurn(state, *engine, data.keys);
}
BENCHMARK(BM_TerrainTileBuildSharedHeights)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.5)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

// Baseline: decoding one JPEG and one Terrain-RGB PNG tile, nothing else.
void BM_DecodeTileData(benchmark::State& state)
{
    SyntheticData& data = synthetic();
    std::size_t next = 0;
    for (auto _ : state)
    {
        osg::ref_ptr<osg::Image> image = globe::MBTilesSource::decodeImage(data.jpegs[next], "jpg");
        osg::ref_ptr<osg::Image> heights = globe::MBTilesSource::decodeImage(data.pngs[next], "png");
        if (!image || !heights)
            state.SkipWithError("a tile did not decode");
        osg::ref_ptr<osg::HeightField> field =
            globe::MBTilesSource::decodeHeights(*heights, globe::MBTilesSource::ElevationEncoding::MAPBOX);
        benchmark::DoNotOptimize(field.get());
        next = (next + 1) % data.jpegs.size();
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["tiles_per_s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_DecodeTileData)->Unit(benchmark::kMillisecond)->MinTime(0.5)->Repetitions(5)->ReportAggregatesOnly(true);

// The terrain's own share: the same tile again and again, its data decoded
// once and kept by the layers.
void BM_TerrainTileBuildDataCached(benchmark::State& state)
{
    SyntheticData& data = synthetic();
    osg::ref_ptr<globe::TerrainEngine> engine = makeEngine(data.imagePath, data.demPath);
    const globe::TileKey key = data.keys[kWide * 5 + 7];
    for (auto _ : state)
    {
        osg::ref_ptr<osg::MatrixTransform> tile = engine->createTileModel(key);
        benchmark::DoNotOptimize(tile.get());
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["tiles_per_s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_TerrainTileBuildDataCached)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.5)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

std::string sampleDir()
{
    if (const char* env = std::getenv("CXVIEWER_SAMPLE_DIR"); env && *env)
        return env;
    return "sample";
}

// Level-6 tiles over China from the real sample data: mercator JPEG imagery
// re-projected, SRTM heights.
void BM_TerrainTileBuildRealData(benchmark::State& state)
{
    const std::string base = sampleDir();
    osg::ref_ptr<globe::TerrainEngine> engine = makeEngine(base + "/data/base/image.db", base + "/data/base/dem.db");
    std::vector<globe::TileKey> keys;
    for (double lat = 53.0; lat >= 18.0; lat -= 180.0 / (1 << 6))
        for (double lon = 73.0; lon <= 135.0; lon += 180.0 / (1 << 6))
            keys.push_back(globe::TileKey::fromLonLat(lon, lat, 6));
    buildInTurn(state, *engine, keys);
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (std::filesystem::is_regular_file(sampleDir() + "/data/base/image.db")
        && std::filesystem::is_regular_file(sampleDir() + "/data/base/dem.db"))
        benchmark::RegisterBenchmark("BM_TerrainTileBuildRealData", BM_TerrainTileBuildRealData)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(0.5)
            ->Repetitions(5)
            ->ReportAggregatesOnly(true);
    else
        std::fprintf(stderr, "no sample data under %s: the real-data benchmark is left out\n", sampleDir().c_str());
    cxbench::MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    const double build = reporter.median("BM_TerrainTileBuild");
    const double decode = reporter.median("BM_DecodeTileData");
    if (build > 0.0 && decode > 0.0)
        std::printf("\nterrain tile build, one core: %.0f tiles/s (target >= 300); decoding its data alone %.0f "
                    "tiles/s; ratio %.2f\n",
                    build, decode, build / decode);
    return 0;
}
