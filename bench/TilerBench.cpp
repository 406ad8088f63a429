// cxtiler's imagery pyramid from a georeferenced raster, on one core: a
// synthetic 2048 x 2048 RGB GeoTIFF in UTM zone 50N (30 m pixels near Beijing)
// warped tile by tile into spherical mercator and averaged up to level 0, written
// as MBTiles, as `cxtiler image` does. Reported in output tiles per second.
// The baselines, in the same run and for the same number of tiles: encoding the
// pyramid's own tiles alone (decoded from a first build; JPEG, or PNG where they
// have transparency), the least any tiler spends; and GDAL reading the source
// pixels alone.
#include "MedianReporter.h"

#include "GeoMosaic.h"
#include "Progress.h"
#include "TileEncoder.h"
#include "TileMath.h"
#include "WarpedPyramidBuilder.h"

#include <benchmark/benchmark.h>
#include <cpl_string.h>
#include <gdal.h>
#include <ogr_srs_api.h>
#include <osg/Image>
#include <osgDB/Registry>
#include <sqlite3.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <sstream>
#include <unistd.h>
#include <vector>

namespace
{

constexpr int kSourceSize = 2048;
constexpr double kPixel = 30.0;

struct Data
{
    std::filesystem::path folder;
    std::string source;
    std::string output;
    std::unique_ptr<cxtiler::GeoMosaic> mosaic;
    long pyramidTiles = 0;
    long transparentTiles = 0;
    /** The pixels of every tile of the pyramid, north row first, and their channels. */
    struct TilePixels
    {
        std::vector<std::uint8_t> pixels;
        int channels;
    };
    std::vector<TilePixels> tiles;

    Data()
    {
        folder = std::filesystem::temp_directory_path() / ("cxviewer-tiler-bench-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder);
        source = (folder / "utm50n.tif").string();
        output = (folder / "pyramid.db").string();
        writeSource();
        mosaic = std::make_unique<cxtiler::GeoMosaic>(std::vector<std::string>{source}, cxtiler::RasterKind::Imagery);

        // One build before timing: its tiles are what the encoding baseline encodes.
        cxtiler::Progress quiet;
        const cxtiler::PyramidSummary summary =
            cxtiler::buildImageryPyramid(*mosaic, output, cxtiler::PyramidOptions{}, quiet);
        pyramidTiles = summary.tiles;
        transparentTiles = summary.transparentTiles;
        readTiles();
    }
    ~Data()
    {
        mosaic.reset();
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    /** A smooth pattern with fine detail, like land seen from above. */
    static double colour(int channel, double x, double y)
    {
        const double base = 120 + 60 * std::sin(x * 0.021 + channel) * std::cos(y * 0.017 - channel);
        return std::fmin(255.0, base + static_cast<int>(x * 7 + y * 13 + channel * 5) % 23);
    }

    void readTiles()
    {
        sqlite3* db = nullptr;
        sqlite3_stmt* st = nullptr;
        sqlite3_open_v2(output.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
        sqlite3_prepare_v2(db, "SELECT tile_data FROM tiles", -1, &st, nullptr);
        while (st && sqlite3_step(st) == SQLITE_ROW)
        {
            const std::string bytes(static_cast<const char*>(sqlite3_column_blob(st, 0)), sqlite3_column_bytes(st, 0));
            const bool jpeg = bytes.size() > 2 && static_cast<unsigned char>(bytes[0]) == 0xFF;
            std::istringstream in(bytes);
            osgDB::ReaderWriter* reader =
                osgDB::Registry::instance()->getReaderWriterForExtension(jpeg ? "jpg" : "png");
            osg::ref_ptr<osg::Image> image = reader ? reader->readImage(in).getImage() : nullptr;
            if (!image)
                continue;
            TilePixels tile;
            tile.channels = image->getPixelFormat() == GL_RGBA ? 4 : 3;
            for (int row = 0; row < image->t(); ++row)
            {
                const unsigned char* p = image->data(0, image->t() - 1 - row);
                tile.pixels.insert(tile.pixels.end(), p, p + image->s() * tile.channels);
            }
            tiles.push_back(std::move(tile));
        }
        sqlite3_finalize(st);
        sqlite3_close(db);
    }

    void writeSource() const
    {
        GDALAllRegister();
        GDALDatasetH ds = GDALCreate(GDALGetDriverByName("GTiff"), source.c_str(), kSourceSize, kSourceSize, 3,
                                     GDT_Byte, nullptr);
        double transform[6] = {440000.0, kPixel, 0.0, 4460000.0, 0.0, -kPixel};
        GDALSetGeoTransform(ds, transform);
        OGRSpatialReferenceH srs = OSRNewSpatialReference(nullptr);
        OSRImportFromEPSG(srs, 32650);
        GDALSetSpatialRef(ds, srs);
        OSRDestroySpatialReference(srs);
        std::vector<std::uint8_t> row(kSourceSize);
        for (int b = 1; b <= 3; ++b)
            for (int r = 0; r < kSourceSize; ++r)
            {
                for (int c = 0; c < kSourceSize; ++c)
                    row[c] = static_cast<std::uint8_t>(colour(b - 1, c, r));
                if (GDALRasterIO(GDALGetRasterBand(ds, b), GF_Write, 0, r, kSourceSize, 1, row.data(), kSourceSize,
                                 1, GDT_Byte, 0, 0)
                    != CE_None)
                    std::fprintf(stderr, "cannot write the benchmark's source\n");
            }
        GDALClose(ds);
    }
};

Data& data()
{
    static Data instance;
    return instance;
}

void BM_ImageryPyramidFromGeoTiff(benchmark::State& state)
{
    Data& d = data();
    long tiles = 0;
    for (auto _ : state)
    {
        cxtiler::Progress quiet;
        tiles += cxtiler::buildImageryPyramid(*d.mosaic, d.output, cxtiler::PyramidOptions{}, quiet).tiles;
    }
    state.SetItemsProcessed(tiles);
}

void BM_EncodeTheSameTilesAlone(benchmark::State& state)
{
    Data& d = data();
    if (static_cast<long>(d.tiles.size()) != d.pyramidTiles)
        state.SkipWithError("cannot decode the pyramid's tiles");
    long tiles = 0;
    for (auto _ : state)
    {
        for (const Data::TilePixels& tile : d.tiles)
        {
            const bool transparent = tile.channels == 4;
            const std::vector<std::uint8_t> bytes =
                cxtiler::encodeTile(tile.pixels.data(), 256, tile.channels,
                                    transparent ? cxtiler::TileFormat::Png : cxtiler::TileFormat::Jpeg, 90);
            benchmark::DoNotOptimize(bytes.data());
        }
        tiles += static_cast<long>(d.tiles.size());
    }
    state.SetItemsProcessed(tiles);
}

void BM_GdalReadsTheSourcePixelsAlone(benchmark::State& state)
{
    Data& d = data();
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(kSourceSize) * kSourceSize * 3);
    long tiles = 0;
    for (auto _ : state)
    {
        // A fresh open each time, so that GDAL's block cache does not hold the pixels.
        GDALDatasetH ds = GDALOpen(d.source.c_str(), GA_ReadOnly);
        int bands[3] = {1, 2, 3};
        if (!ds
            || GDALDatasetRasterIO(ds, GF_Read, 0, 0, kSourceSize, kSourceSize, pixels.data(), kSourceSize,
                                   kSourceSize, GDT_Byte, 3, bands, 3, 3 * kSourceSize, 1)
                   != CE_None)
            state.SkipWithError("cannot read the source");
        if (ds)
            GDALClose(ds);
        benchmark::DoNotOptimize(pixels.data());
        tiles += d.pyramidTiles;
    }
    state.SetItemsProcessed(tiles);
}

BENCHMARK(BM_ImageryPyramidFromGeoTiff)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_EncodeTheSameTilesAlone)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_GdalReadsTheSourcePixelsAlone)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);

} // namespace

int main(int argc, char** argv)
{
    cxbench::MedianReporter reporter;
    const bool ran = cxbench::runInterleaved(argc, argv, reporter, [] {
        setenv("GDAL_NUM_THREADS", "1", 1); // one core, as the tool's default
        data(); // made before timing
    });
    if (!ran)
        return 1;

    const double pyramid = reporter.median("BM_ImageryPyramidFromGeoTiff");
    const double encode = reporter.median("BM_EncodeTheSameTilesAlone");
    const double read = reporter.median("BM_GdalReadsTheSourcePixelsAlone");
    if (pyramid > 0.0 && encode > 0.0 && read > 0.0)
        std::printf("\ncxtiler image, %d x %d UTM GeoTIFF -> %ld tiles (%ld PNG with transparency), one core: "
                    "%.0f tiles/s; encoding the same tiles alone %.0f tiles/s (ratio %.2f); GDAL reading the "
                    "source alone %.0f tiles/s (ratio %.2f)\n",
                    kSourceSize, kSourceSize, data().pyramidTiles, data().transparentTiles, pyramid, encode,
                    pyramid / encode, read, pyramid / read);
    return 0;
}
