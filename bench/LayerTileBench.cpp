// The data half of a terrain tile: one 256 x 256 image re-projected from
// spherical mercator JPEG tiles and one 17 x 17 height grid from Terrain-RGB
// PNG tiles, as the terrain asks the layers for them on the pager thread.
// The baseline, in the same run, is OpenSceneGraph's plugins decoding one
// 256 x 256 JPEG tile and one 256 x 256 Terrain-RGB PNG tile: the least any
// tile build must spend on its data. Prints both rates and their ratio.
#include "MBTilesTestFiles.h"
#include "MedianReporter.h"

#include <globe/ElevationLayer>
#include <globe/ImageLayer>
#include <globe/MBTilesSource>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <unistd.h>

namespace
{

// Terrain tiles of level 6 over China; they read imagery level 7 and heights
// level 3 of the files below.
constexpr unsigned int kLevel = 6;

struct Data
{
    std::filesystem::path folder;
    std::string imagePath;
    std::string demPath;
    std::vector<std::string> jpegs;
    std::vector<std::string> pngs;
    std::vector<globe::TileKey> keys;

    Data()
    {
        folder = std::filesystem::temp_directory_path() / ("cxviewer-bench-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder);
        imagePath = (folder / "image.db").string();
        demPath = (folder / "dem.db").string();

        // Textured imagery (JPEG of a smooth pattern with detail, like land).
        cxtest::MBTilesFile image(imagePath);
        image.metadata("format", "jpg");
        for (int y = 40; y <= 58; ++y)
            for (int x = 69; x <= 113; ++x)
            {
                auto colour = [x, y](int c, int r) {
                    const double u = x * 256.0 + c, v = y * 256.0 + r;
                    const auto g = static_cast<std::uint32_t>(128 + 60 * std::sin(u * 0.05) * std::cos(v * 0.031)
                                                              + ((c * 7 + r * 13) % 23));
                    return (std::min(g, 255u) << 16) | (std::min(g + 20, 255u) << 8) | 90u;
                };
                jpegs.push_back(cxtest::encode(*cxtest::rgbImage(256, colour), "jpg"));
                image.tile(7, x, y, jpegs.back());
            }

        cxtest::MBTilesFile dem(demPath);
        dem.metadata("format", "png");
        dem.metadata("elevation_encoding", "mapbox");
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x)
            {
                pngs.push_back(cxtest::terrainRGBTile(256, [x, y](int c, int r) {
                    return 1500.0 + 1200.0 * std::sin((x * 256 + c) * 0.02) * std::cos((y * 256 + r) * 0.017);
                }));
                dem.tile(3, x, y, pngs.back());
            }

        for (double lat = 53.0; lat >= 18.0; lat -= 180.0 / (1 << kLevel))
            for (double lon = 73.0; lon <= 135.0; lon += 180.0 / (1 << kLevel))
                keys.push_back(globe::TileKey::fromLonLat(lon, lat, kLevel));
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

void BM_DecodeOneJpegAndOneHeightTile(benchmark::State& state)
{
    Data& d = data();
    osgDB::ReaderWriter* jpeg = osgDB::Registry::instance()->getReaderWriterForExtension("jpg");
    osgDB::ReaderWriter* png = osgDB::Registry::instance()->getReaderWriterForExtension("png");
    std::size_t i = 0;
    for (auto _ : state)
    {
        std::istringstream jpegBytes(d.jpegs[i % d.jpegs.size()]);
        std::istringstream pngBytes(d.pngs[i % d.pngs.size()]);
        osg::ref_ptr<osg::Image> image = jpeg->readImage(jpegBytes).getImage();
        osg::ref_ptr<osg::Image> heights = png->readImage(pngBytes).getImage();
        benchmark::DoNotOptimize(image.get());
        benchmark::DoNotOptimize(heights.get());
        ++i;
    }
    state.SetItemsProcessed(state.iterations());
}

// `cacheTiles` 1: every terrain tile decodes its own imagery (about two
// mercator tiles per geodetic tile at this latitude); the layers' default
// cache keeps the tiles shared with neighbouring terrain tiles.
void layerTiles(benchmark::State& state, std::size_t imageCacheTiles)
{
    Data& d = data();
    osg::ref_ptr<globe::ImageLayer> image = new globe::ImageLayer("image", cxtest::mbtilesOptions(d.imagePath));
    osg::ref_ptr<globe::ElevationLayer> dem = new globe::ElevationLayer("dem", cxtest::mbtilesOptions(d.demPath));
    if (imageCacheTiles)
        image->setCacheSize(imageCacheTiles);
    std::size_t i = 0, missing = 0;
    for (auto _ : state)
    {
        const globe::TileKey& key = d.keys[i % d.keys.size()];
        osg::ref_ptr<osg::Image> tile = image->createImage(key, 256);
        osg::ref_ptr<osg::HeightField> heights = dem->createHeightField(key, 17, 17);
        missing += !tile || !heights;
        benchmark::DoNotOptimize(tile.get());
        ++i;
    }
    if (missing)
        state.SkipWithError("a layer gave no data");
    state.SetItemsProcessed(state.iterations());
}

void BM_LayerTileColdImagery(benchmark::State& state) { layerTiles(state, 1); }
void BM_LayerTileDefaultCache(benchmark::State& state) { layerTiles(state, 0); }

BENCHMARK(BM_DecodeOneJpegAndOneHeightTile)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_LayerTileColdImagery)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_LayerTileDefaultCache)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly(true);

} // namespace

int main(int argc, char** argv)
{
    cxbench::MedianReporter reporter;
    const bool ran = cxbench::runInterleaved(argc, argv, reporter, [] {
        data(); // made before timing
    });
    if (!ran)
        return 1;

    const double decode = reporter.median("BM_DecodeOneJpegAndOneHeightTile");
    const double cold = reporter.median("BM_LayerTileColdImagery");
    const double cached = reporter.median("BM_LayerTileDefaultCache");
    if (decode > 0.0 && cold > 0.0 && cached > 0.0)
        std::printf("\nterrain tile data (256^2 image + 17x17 heights), one core: cold imagery %.0f tiles/s, default "
                    "cache %.0f tiles/s; decoding alone %.0f tiles/s; ratios %.2f and %.2f\n",
                    cold, cached, decode, cold / decode, cached / decode);
    return 0;
}
