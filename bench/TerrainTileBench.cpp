// One terrain tile build, as the database pager's thread does it: a 17 x 17
// grid with skirts, normals and texture coordinates under a tile-centre
// transform, textured from one 256 x 256 JPEG image tile and shaped by one
// 256 x 256 Terrain-RGB elevation tile. The sources are geodetic MBTiles
// files on the terrain's own tiling, so each terrain tile reads one tile of
// each. The builds walk the tiles row by row, as paging over a region does;
// the layers keep a few rows decoded, so that the edge pixels a tile takes
// from its neighbours are at hand, and each build decodes one new JPEG and
// one new PNG tile. Over 512 tiles the walk wraps around to tiles long
// evicted.
//
// Two sets of tiles:
//   synthetic  made here: imagery with detail at every scale (54 KB JPEG
//              tiles) and smooth heights to a tenth of a metre (73 KB PNG
//              tiles), harder to decode than most real tiles
//   real       the tiles of the prepared sample data (Blue Marble JPEG
//              tiles of about 8 KB, SRTM Terrain-RGB PNG tiles of about
//              15 KB) laid out on the same tiling; needs $CXVIEWER_SAMPLE_DIR
//              (or ./sample)
//
//   BM_TerrainTileBuild<set>         the whole build, both tiles decoded afresh
//   BM_DecodeTileData<set>           the baseline, in the same run: decoding
//                                    one JPEG and one Terrain-RGB PNG tile of
//                                    the set with OpenSceneGraph's plugins
//   BM_TerrainTileBuildSharedHeights the synthetic build with the heights from
//                                    a coarse elevation tile shared by many
//                                    terrain tiles: one fresh JPEG per build
//   BM_TerrainTileBuildDataCached    one tile again and again: the terrain's
//                                    own share, with its data decoded already
//   BM_TerrainTileBuildChina         level-6 tiles over China from the sample
//                                    files themselves: mercator imagery
//                                    re-projected, SRTM heights
#include "MBTilesTestFiles.h"
#include "MedianReporter.h"

#include <globe/ElevationLayer>
#include <globe/ImageLayer>
#include <globe/MBTilesSource>
#include <globe/Map>
#include <globe/TerrainEngine>

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <unistd.h>
#include <vector>

namespace
{

// Level 4 of the geodetic tiling: 32 x 16 tiles of 11.25 degrees.
constexpr unsigned int kLevel = 4;
constexpr unsigned int kWide = 2u << kLevel;
constexpr unsigned int kHigh = 1u << kLevel;

using TileBytes = std::function<std::string(unsigned int x, unsigned int y)>;

// An imagery and an elevation file on the level-4 geodetic tiling, with the
// blobs of each tile kept for the decoding baseline.
struct TileSet
{
    std::filesystem::path folder;
    std::string imagePath;
    std::string demPath;
    std::vector<std::string> jpegs;
    std::vector<std::string> pngs;
    std::vector<globe::TileKey> keys;

    TileSet(const std::string& name, const TileBytes& jpeg, const TileBytes& png)
    {
        folder = std::filesystem::temp_directory_path()
                 / ("cxviewer-terrain-bench-" + name + "-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder);
        imagePath = (folder / "image.db").string();
        demPath = (folder / "dem.db").string();
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
                jpegs.push_back(jpeg(x, y));
                pngs.push_back(png(x, y));
                image.tile(static_cast<int>(kLevel), static_cast<int>(x), static_cast<int>(y), jpegs.back());
                dem.tile(static_cast<int>(kLevel), static_cast<int>(x), static_cast<int>(y), pngs.back());
                keys.emplace_back(kLevel, x, y);
            }
        }
    }

    ~TileSet()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
};

double syntheticHeight(double u, double v)
{
    return 1500.0 + 1200.0 * std::sin(u * 0.02) * std::cos(v * 0.017);
}

TileSet& synthetic()
{
    // Imagery with detail at several scales, like land seen from orbit;
    // heights rolling over a few kilometres.
    static TileSet tiles(
        "synthetic",
        [](unsigned int x, unsigned int y) {
            auto colour = [x, y](int c, int r) {
                const double u = x * 256.0 + c, v = y * 256.0 + r;
                const double shade =
                    120 + 50 * std::sin(u * 0.043) * std::cos(v * 0.029) + 25 * std::sin(u * 0.31 + v * 0.17);
                const auto g = static_cast<std::uint32_t>(std::clamp(shade + ((c * 7 + r * 13) % 19), 0.0, 235.0));
                return (g << 16) | ((g + 20) << 8) | (g / 2 + 40);
            };
            return cxtest::encode(*cxtest::rgbImage(256, colour), "jpg");
        },
        [](unsigned int x, unsigned int y) {
            return cxtest::terrainRGBTile(256, [&](int c, int r) {
                return syntheticHeight(x * 256.0 + c, y * 256.0 + r);
            });
        });
    return tiles;
}

// Heights of 0.7 degrees a pixel, the spacing of a 17-point grid on level-4
// tiles: two level-0 tiles that every terrain tile shares.
const std::string& coarseDemPath()
{
    static const std::string path = [] {
        const std::string p = (synthetic().folder / "dem-coarse.db").string();
        cxtest::MBTilesFile coarse(p);
        coarse.metadata("profile", "geodetic");
        coarse.metadata("format", "png");
        for (int x = 0; x < 2; ++x)
            coarse.tile(0, x, 0, cxtest::terrainRGBTile(256, [&](int c, int r) {
                            return syntheticHeight((x * 256.0 + c) * 16.0, r * 16.0);
                        }));
        return p;
    }();
    return path;
}

std::string sampleDir()
{
    if (const char* env = std::getenv("CXVIEWER_SAMPLE_DIR"); env && *env)
        return env;
    return "sample";
}

bool sampleDataPresent()
{
    return std::filesystem::is_regular_file(sampleDir() + "/data/base/image.db")
           && std::filesystem::is_regular_file(sampleDir() + "/data/base/dem.db");
}

// Every tile blob of one level of an MBTiles file.
std::vector<std::string> blobsOf(const std::string& path, int level)
{
    std::vector<std::string> blobs;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK)
    {
        sqlite3_stmt* query = nullptr;
        if (sqlite3_prepare_v2(db, "SELECT tile_data FROM tiles WHERE zoom_level = ?", -1, &query, nullptr)
            == SQLITE_OK)
        {
            sqlite3_bind_int(query, 1, level);
            while (sqlite3_step(query) == SQLITE_ROW)
                blobs.emplace_back(static_cast<const char*>(sqlite3_column_blob(query, 0)),
                                   static_cast<std::size_t>(sqlite3_column_bytes(query, 0)));
        }
        sqlite3_finalize(query);
    }
    sqlite3_close(db);
    return blobs;
}

TileSet& realTiles()
{
    // The sample's deepest levels: 256 imagery tiles, 64 elevation tiles,
    // dealt out over the 512 tiles of the walk.
    static const std::vector<std::string> jpegs = blobsOf(sampleDir() + "/data/base/image.db", 4);
    static const std::vector<std::string> pngs = blobsOf(sampleDir() + "/data/base/dem.db", 3);
    static TileSet tiles(
        "real", [](unsigned int x, unsigned int y) { return jpegs.at((y * kWide + x) % jpegs.size()); },
        [](unsigned int x, unsigned int y) { return pngs.at((y * kWide + x) % pngs.size()); });
    return tiles;
}

osg::ref_ptr<globe::TerrainEngine> makeEngine(const std::string& image, const std::string& dem)
{
    osg::ref_ptr<globe::Map> map = new globe::Map;
    osg::ref_ptr<globe::ImageLayer> imageLayer = new globe::ImageLayer("image", cxtest::mbtilesOptions(image));
    osg::ref_ptr<globe::ElevationLayer> demLayer = new globe::ElevationLayer("dem", cxtest::mbtilesOptions(dem));
    // Two rows of the tiling and then some.
    imageLayer->setCacheSize(4 * kWide);
    demLayer->setCacheSize(4 * kWide);
    map->addLayer(imageLayer.get());
    map->addLayer(demLayer.get());
    return new globe::TerrainEngine(map.get());
}

void countTiles(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations());
    state.counters["tiles_per_s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
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
    countTiles(state);
}

// The whole tile: data, grid, skirts, normals, texture.
void buildTiles(benchmark::State& state, TileSet& tiles)
{
    osg::ref_ptr<globe::TerrainEngine> engine = makeEngine(tiles.imagePath, tiles.demPath);
    buildInTurn(state, *engine, tiles.keys);
}

// Baseline: decoding one JPEG and one Terrain-RGB PNG tile, nothing else.
void decodeTiles(benchmark::State& state, TileSet& tiles)
{
    std::size_t next = 0;
    for (auto _ : state)
    {
        osg::ref_ptr<osg::Image> image = globe::MBTilesSource::decodeImage(tiles.jpegs[next], "jpg");
        osg::ref_ptr<osg::Image> heights = globe::MBTilesSource::decodeImage(tiles.pngs[next], "png");
        if (!image || !heights)
            state.SkipWithError("a tile did not decode");
        osg::ref_ptr<osg::HeightField> field =
            globe::MBTilesSource::decodeHeights(*heights, globe::MBTilesSource::ElevationEncoding::MAPBOX);
        benchmark::DoNotOptimize(field.get());
        next = (next + 1) % tiles.jpegs.size();
    }
    countTiles(state);
}

void BM_TerrainTileBuildSharedHeights(benchmark::State& state)
{
    osg::ref_ptr<globe::TerrainEngine> engine = makeEngine(synthetic().imagePath, coarseDemPath());
    buildInTurn(state, *engine, synthetic().keys);
}

void BM_TerrainTileBuildDataCached(benchmark::State& state)
{
    osg::ref_ptr<globe::TerrainEngine> engine = makeEngine(synthetic().imagePath, synthetic().demPath);
    const globe::TileKey key = synthetic().keys[kWide * 5 + 7];
    for (auto _ : state)
    {
        osg::ref_ptr<osg::MatrixTransform> tile = engine->createTileModel(key);
        benchmark::DoNotOptimize(tile.get());
    }
    countTiles(state);
}

void BM_TerrainTileBuildChina(benchmark::State& state)
{
    const std::string base = sampleDir();
    osg::ref_ptr<globe::TerrainEngine> engine = makeEngine(base + "/data/base/image.db", base + "/data/base/dem.db");
    std::vector<globe::TileKey> keys;
    for (double lat = 53.0; lat >= 18.0; lat -= 180.0 / (1 << 6))
        for (double lon = 73.0; lon <= 135.0; lon += 180.0 / (1 << 6))
            keys.push_back(globe::TileKey::fromLonLat(lon, lat, 6));
    buildInTurn(state, *engine, keys);
}

// Medians of five runs; the walks run long enough for the first row, which
// decodes its neighbours too, to weigh little.
template <class Function>
void add(const char* name, Function function, double minTime)
{
    benchmark::RegisterBenchmark(name, function)
        ->Unit(benchmark::kMillisecond)
        ->MinTime(minTime)
        ->Repetitions(5)
        ->ReportAggregatesOnly(true);
}

void report(const cxbench::MedianReporter& reporter, const char* set)
{
    const double build = reporter.median(std::string("BM_TerrainTileBuild/") + set);
    const double decode = reporter.median(std::string("BM_DecodeTileData/") + set);
    if (build > 0.0 && decode > 0.0)
        std::printf("terrain tile build, %s tiles, one core: %.0f tiles/s (target >= 300); decoding their data "
                    "alone %.0f tiles/s; ratio %.2f\n",
                    set, build, decode, build / decode);
}

} // namespace

int main(int argc, char** argv)
{
    argv = cxbench::initializeInterleaved(&argc, argv);
    add("BM_TerrainTileBuild/synthetic", [](benchmark::State& s) { buildTiles(s, synthetic()); }, 2.0);
    add("BM_DecodeTileData/synthetic", [](benchmark::State& s) { decodeTiles(s, synthetic()); }, 0.5);
    add("BM_TerrainTileBuildSharedHeights", BM_TerrainTileBuildSharedHeights, 2.0);
    add("BM_TerrainTileBuildDataCached", BM_TerrainTileBuildDataCached, 0.5);
    if (sampleDataPresent())
    {
        add("BM_TerrainTileBuild/real", [](benchmark::State& s) { buildTiles(s, realTiles()); }, 2.0);
        add("BM_DecodeTileData/real", [](benchmark::State& s) { decodeTiles(s, realTiles()); }, 0.5);
        add("BM_TerrainTileBuildChina", BM_TerrainTileBuildChina, 0.5);
    }
    else
    {
        std::fprintf(stderr, "no sample data under %s: the benchmarks of real tiles are left out\n",
                     sampleDir().c_str());
    }
    cxbench::MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    std::printf("\n");
    report(reporter, "synthetic");
    report(reporter, "real");
    return 0;
}
