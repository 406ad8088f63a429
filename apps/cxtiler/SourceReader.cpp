#include "SourceReader.h"

#include "Error.h"
#include "GdalSupport.h"
#include "ImageryBands.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>
#include <sstream>
#include <utility>

namespace fs = std::filesystem;

namespace cxtiler
{

namespace
{

constexpr std::int16_t kSrtmVoid = -32768;

struct Raster
{
    DatasetPtr dataset;
    std::string path;
    int width = 0;
    int height = 0;

    GDALDatasetH handle() const { return static_cast<GDALDatasetH>(dataset.get()); }
    GDALRasterBandH band(int index) const { return GDALGetRasterBand(handle(), index); }
    int bandCount() const { return GDALGetRasterCount(handle()); }
    GDALDataType type(int index) const { return GDALGetRasterDataType(band(index)); }
};

Raster loadRaster(const std::string& path)
{
    Raster raster;
    raster.dataset = openRaster(path);
    raster.path = path;
    raster.width = GDALGetRasterXSize(raster.handle());
    raster.height = GDALGetRasterYSize(raster.handle());
    return raster;
}

std::string sizeText(const Raster& raster)
{
    return std::to_string(raster.width) + " x " + std::to_string(raster.height);
}

void requireWholeEarth(const Raster& raster)
{
    if (raster.width != 2 * raster.height)
        throw Error("'" + raster.path + "' is " + sizeText(raster)
                    + " pixels and not georeferenced; a whole-Earth equirectangular grid is exactly twice as wide as "
                      "it is high (any other raster needs georeferencing: a GeoTIFF, a world file, ...)");
}

/** Reads `count` bands (`bands`) of the whole raster, pixel-interleaved, as `type`. */
void readPixels(const Raster& raster, int count, const int* bands, GDALDataType type, void* out)
{
    GdalErrorTrap trap;
    const int size = GDALGetDataTypeSizeBytes(type);
    const CPLErr result = GDALDatasetRasterIO(raster.handle(), GF_Read, 0, 0, raster.width, raster.height, out,
                                              raster.width, raster.height, type, count, const_cast<int*>(bands),
                                              static_cast<GSpacing>(size) * count,
                                              static_cast<GSpacing>(size) * count * raster.width, size);
    if (result != CE_None)
        throw Error("cannot read '" + raster.path + "': " + trap.reason("reading its pixels failed"));
}

/** 8-bit RGB or RGBA: what the RGB-encoded SRTM tiles are. */
bool isRgb8(const Raster& raster)
{
    const int count = raster.bandCount();
    if (count < 3 || count > 4)
        return false;
    for (int b = 1; b <= count; ++b)
        if (raster.type(b) != GDT_Byte || GDALGetRasterColorTable(raster.band(b)))
            return false;
    return true;
}

/** Writes the SRTM heights of `raster` into `heights` (row-major, `stride` wide) at column `offset`. */
void decodeSrtm(const Raster& raster, std::vector<float>& heights, int stride, int offset)
{
    const ImageryBands layout(raster.handle(), raster.path);
    const int bands[2] = {layout.green(), layout.blue()};
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(raster.width) * raster.height * 2);
    readPixels(raster, 2, bands, GDT_Byte, pixels.data());
    for (int row = 0; row < raster.height; ++row)
    {
        const std::uint8_t* p = pixels.data() + static_cast<std::size_t>(row) * raster.width * 2;
        float* out = heights.data() + static_cast<std::size_t>(row) * stride + offset;
        for (int column = 0; column < raster.width; ++column, p += 2)
        {
            const auto value = static_cast<std::int16_t>(static_cast<std::uint16_t>((p[0] << 8) | p[1]));
            out[column] = value == kSrtmVoid ? std::numeric_limits<float>::quiet_NaN() : static_cast<float>(value);
        }
    }
}

HeightSource readSrtmPair(const std::string& westPath, const std::string& eastPath)
{
    const Raster west = loadRaster(westPath);
    const Raster east = loadRaster(eastPath);
    for (const Raster* raster : {&west, &east})
    {
        if (!isRgb8(*raster))
            throw Error("'" + raster->path + "' is not an 8-bit RGB image, so not an RGB-encoded SRTM tile");
        if (raster->width != raster->height)
            throw Error("'" + raster->path + "' is " + sizeText(*raster)
                        + " pixels; an SRTM hemisphere tile is square");
    }
    if (west.width != east.width)
        throw Error("the SRTM tiles differ in size: '" + westPath + "' is " + sizeText(west) + ", '" + eastPath
                    + "' is " + sizeText(east));

    const int size = west.width;
    std::vector<float> heights(static_cast<std::size_t>(2 * size) * size);
    decodeSrtm(west, heights, 2 * size, 0);
    decodeSrtm(east, heights, 2 * size, size);
    std::ostringstream what;
    what << "SRTM tiles " << westPath << " + " << eastPath << " (" << 2 * size << " x " << size << ")";
    return HeightSource{HeightGrid(2 * size, size, std::move(heights)), true, what.str()};
}

HeightSource readSrtmFolder(const std::string& folder)
{
    for (const fs::path& dir : {fs::path(folder), fs::path(folder) / "0" / "000000"})
    {
        const fs::path west = dir / "000000_000000.png";
        const fs::path east = dir / "000000_000001.png";
        if (fs::is_regular_file(west) && fs::is_regular_file(east))
            return readSrtmPair(west.string(), east.string());
    }
    throw Error("'" + folder + "' holds no SRTM tiles (000000_000000.png and 000000_000001.png, directly or in 0/000000/)");
}

HeightSource readSingleGrid(const std::string& path)
{
    const Raster raster = loadRaster(path);
    requireWholeEarth(raster);
    const int width = raster.width;
    const int height = raster.height;
    std::vector<float> heights(static_cast<std::size_t>(width) * height);

    if (isRgb8(raster))
    {
        decodeSrtm(raster, heights, width, 0);
        return HeightSource{HeightGrid(width, height, std::move(heights)), true,
                            "RGB-encoded SRTM grid " + path + " (" + sizeText(raster) + ")"};
    }

    const GDALDataType type = raster.type(1);
    if (raster.bandCount() != 1 || type == GDT_Byte || GDALDataTypeIsComplex(type))
        throw Error("'" + path + "' is neither a single-channel 16-bit (or float) height image nor an RGB-encoded SRTM grid");

    GDALRasterBandH band = raster.band(1);
    int hasNoData = 0;
    const double noData = GDALGetRasterNoDataValue(band, &hasNoData);
    int hasScale = 0;
    int hasOffset = 0;
    const double scale = GDALGetRasterScale(band, &hasScale);
    const double offset = GDALGetRasterOffset(band, &hasOffset);
    const int bands[1] = {1};
    const std::size_t count = heights.size();
    auto store = [&](std::size_t i, double value) {
        if (!std::isfinite(value) || std::fabs(value) > 1e30 || (hasNoData && value == noData))
            heights[i] = std::numeric_limits<float>::quiet_NaN();
        else
            heights[i] = static_cast<float>(value * (hasScale && scale != 0.0 ? scale : 1.0)
                                            + (hasOffset ? offset : 0.0));
    };
    if (type == GDT_UInt16 || type == GDT_Int16)
    {
        // 16-bit PNGs are unsigned on disk; heights are their two's complement reading.
        // Read as stored (GDAL would clamp 16-bit values into the other type), then
        // taken as signed.
        std::vector<std::uint16_t> raw(count);
        readPixels(raster, 1, bands, type, raw.data());
        std::vector<std::int16_t> values(count);
        std::memcpy(values.data(), raw.data(), count * sizeof(std::int16_t));
        for (std::size_t i = 0; i < count; ++i)
        {
            if (values[i] == kSrtmVoid)
                heights[i] = std::numeric_limits<float>::quiet_NaN();
            else
                store(i, values[i]);
        }
    }
    else
    {
        std::vector<double> values(count);
        readPixels(raster, 1, bands, GDT_Float64, values.data());
        for (std::size_t i = 0; i < count; ++i)
            store(i, values[i]);
    }
    return HeightSource{HeightGrid(width, height, std::move(heights)), false,
                        "height grid " + path + " (" + sizeText(raster) + ")"};
}

} // namespace

EquirectImage readEquirectImage(const std::string& path)
{
    const Raster raster = loadRaster(path);
    requireWholeEarth(raster);
    const ImageryBands layout(raster.handle(), path);
    const int width = raster.width;
    const int height = raster.height;
    const int channels = layout.alpha() ? 4 : 3;
    const int bands[4] = {layout.red(), layout.green(), layout.blue(), layout.alpha()};
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width) * height * channels);

    GdalErrorTrap trap;
    auto read = [&](GDALDataType type, void* out) {
        const int size = GDALGetDataTypeSizeBytes(type);
        if (GDALDatasetRasterIO(layout.dataset(), GF_Read, 0, 0, width, height, out, width, height, type, channels,
                                const_cast<int*>(bands), static_cast<GSpacing>(size) * channels,
                                static_cast<GSpacing>(size) * channels * width, size)
            != CE_None)
            throw Error("cannot read '" + path + "': " + trap.reason("reading its pixels failed"));
    };
    const bool alphaIsByte =
        !layout.alpha() || GDALGetRasterDataType(GDALGetRasterBand(layout.dataset(), layout.alpha())) == GDT_Byte;
    if (layout.type() == GDT_Byte && alphaIsByte)
    {
        read(GDT_Byte, pixels.data());
    }
    else
    {
        std::vector<float> values(pixels.size());
        read(GDT_Float32, values.data());
        const double alphaScale = 255.0 / layout.alphaMax();
        for (std::size_t i = 0; i < values.size(); i += channels)
        {
            for (int c = 0; c < 3; ++c)
                pixels[i + c] = layout.toByte(values[i + c]);
            if (channels == 4)
            {
                const double a = values[i + 3] * alphaScale;
                pixels[i + 3] = !(a > 0.0) ? 0 : (a >= 255.0 ? 255 : static_cast<std::uint8_t>(a + 0.5));
            }
        }
    }
    return EquirectImage(width, height, channels, std::move(pixels));
}

HeightSource readHeightSource(const std::vector<std::string>& inputs)
{
    if (inputs.size() == 2)
        return readSrtmPair(inputs[0], inputs[1]);
    if (inputs.size() != 1)
        throw Error("an elevation source is one image, one folder of SRTM tiles, or the west and east SRTM tiles");
    std::error_code ec;
    if (fs::is_directory(inputs[0], ec))
        return readSrtmFolder(inputs[0]);
    return readSingleGrid(inputs[0]);
}

} // namespace cxtiler
