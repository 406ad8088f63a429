#include "TileWarper.h"

#include "Error.h"
#include "TileMath.h"

#include <cpl_string.h>
#include <gdal_alg.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace cxtiler
{

namespace
{

// GDAL's bound on the error of its interpolated transformation, in pixels.
constexpr double kApproximationError = 0.125;

/** Whether `source` overlaps `window`, also across the antimeridian. */
bool overlaps(const MercatorBounds& window, const MercatorBounds& source)
{
    const double world = 2.0 * kMercatorHalfWorld;
    for (const double shift : {0.0, -world, world})
    {
        const MercatorBounds shifted{source.minX + shift, source.minY, source.maxX + shift, source.maxY};
        if (window.intersects(shifted))
            return true;
    }
    return false;
}

DatasetPtr createTarget(int width, int height, int bands, GDALDataType type)
{
    GDALDriverH memory = GDALGetDriverByName("MEM");
    if (!memory)
        throw Error("GDAL has no MEM driver to warp into");
    DatasetPtr target(GDALCreate(memory, "", width, height, bands, type, nullptr));
    if (!target)
        throw Error("cannot allocate a " + std::to_string(width) + " x " + std::to_string(height) + " warp buffer");
    return target;
}

int* bandList(const std::vector<int>& bands)
{
    auto* list = static_cast<int*>(CPLMalloc(sizeof(int) * bands.size()));
    std::copy(bands.begin(), bands.end(), list);
    return list;
}

} // namespace

MercatorWindow MercatorWindow::tile(int zoom, int x, int y, int margin)
{
    MercatorWindow window;
    window.pixelSize = mercatorPixelSize(zoom);
    window.left = mercatorXOfGlobal(static_cast<double>(x) * kTileSize - margin, zoom);
    window.top = mercatorYOfGlobal(static_cast<double>(y) * kTileSize - margin, zoom);
    window.width = kTileSize + 2 * margin;
    window.height = kTileSize + 2 * margin;
    return window;
}

TileWarper::TileWarper(const GeoMosaic& mosaic, int width, int height, GDALResampleAlg resampling)
    : _mosaic(mosaic), _width(width), _height(height), _kind(mosaic.kind())
{
    const std::size_t pixels = static_cast<std::size_t>(width) * height;
    const int channels = _kind == RasterKind::Imagery ? 3 : 1;
    for (const WarpSource& source : mosaic.sources())
    {
        SourceWarp warp;
        warp.source = &source;
        GDALDatasetH sourceData = source.handle();
        warp.byteData = _kind == RasterKind::Imagery && source.imagery->type() == GDT_Byte
                        && (!source.alphaBand
                            || GDALGetRasterDataType(GDALGetRasterBand(sourceData, source.alphaBand)) == GDT_Byte);

        {
            GdalErrorTrap trap;
            char** transformOptions = CSLSetNameValue(nullptr, "DST_SRS", GeoMosaic::mercatorWkt().c_str());
            if (source.srsImposed)
                transformOptions = CSLSetNameValue(transformOptions, "SRC_SRS", source.srsWkt.c_str());
            warp.transformer = GDALCreateGenImgProjTransformer2(sourceData, nullptr, transformOptions);
            CSLDestroy(transformOptions);
            if (!warp.transformer)
                throw Error("cannot read '" + source.name
                            + "': its coordinate system cannot be converted to spherical mercator: "
                            + trap.reason("GDAL gave no reason"));
        }
        warp.approximate = GDALCreateApproxTransformer(GDALGenImgProjTransform, warp.transformer, kApproximationError);

        GDALWarpOptions* options = GDALCreateWarpOptions();
        warp.options = options;
        options->hSrcDS = sourceData;
        options->eResampleAlg = resampling;
        options->eWorkingDataType = warp.byteData ? GDT_Byte : GDT_Float32;
        options->nBandCount = channels;
        options->panSrcBands = bandList(source.bands);
        std::vector<int> targetBands;
        for (int b = 1; b <= channels; ++b)
            targetBands.push_back(b);
        options->panDstBands = bandList(targetBands);
        options->nSrcAlphaBand = source.alphaBand;
        if (source.alphaBand && !warp.byteData && source.imagery)
            options->papszWarpOptions = CSLSetNameValue(options->papszWarpOptions, "SRC_ALPHA_MAX",
                                                        std::to_string(source.imagery->alphaMax()).c_str());
        if (source.noData)
        {
            options->padfSrcNoDataReal = static_cast<double*>(CPLMalloc(sizeof(double) * channels));
            for (int c = 0; c < channels; ++c)
                options->padfSrcNoDataReal[c] = (*source.noData)[c];
            // A colour pixel is missing only when all its bands hold the nodata value.
            options->papszWarpOptions = CSLSetNameValue(options->papszWarpOptions, "UNIFIED_SRC_NODATA", "YES");
        }
        if (_kind == RasterKind::Imagery)
        {
            options->nDstAlphaBand = channels + 1;
            if (!warp.byteData)
                options->papszWarpOptions = CSLSetNameValue(options->papszWarpOptions, "DST_ALPHA_MAX", "255");
        }
        else
        {
            options->padfDstNoDataReal = static_cast<double*>(CPLMalloc(sizeof(double)));
            options->padfDstNoDataReal[0] = std::numeric_limits<double>::quiet_NaN();
        }
        options->pfnTransformer = GDALApproxTransform;
        options->pTransformerArg = warp.approximate;

        DatasetPtr& target = warp.byteData ? _byteTarget : _floatTarget;
        if (!target)
            target = createTarget(width, height, _kind == RasterKind::Imagery ? 4 : 1,
                                  warp.byteData ? GDT_Byte : GDT_Float32);
        options->hDstDS = target.get();
        _warps.push_back(warp);
    }
    _values.resize(pixels * 4);
    _bytes.resize(pixels * 4);
    _rowX.resize(width);
    _rowY.resize(width);
    _rowZ.resize(width);
    _rowOk.resize(width);
}

TileWarper::~TileWarper()
{
    for (SourceWarp& warp : _warps)
    {
        if (warp.options)
        {
            warp.options->pTransformerArg = nullptr;
            GDALDestroyWarpOptions(warp.options);
        }
        if (warp.approximate)
            GDALDestroyApproxTransformer(warp.approximate);
        if (warp.transformer)
            GDALDestroyGenImgProjTransformer(warp.transformer);
    }
}

bool TileWarper::warpSource(SourceWarp& warp, const MercatorWindow& window)
{
    if (window.width != _width || window.height != _height)
        throw Error("internal error: a warp window of the wrong size");
    const MercatorBounds bounds = window.bounds();
    if (!std::any_of(warp.source->parts.begin(), warp.source->parts.end(),
                     [&](const MercatorBounds& part) { return overlaps(bounds, part); }))
        return false;

    double transform[6] = {window.left, window.pixelSize, 0.0, window.top, 0.0, -window.pixelSize};
    GDALSetGenImgProjTransformerDstGeoTransform(warp.transformer, transform);

    // Start from "no data" everywhere: the warper only writes where the source has
    // pixels, and blends the edges of the data over what is there.
    GDALDatasetH target = warp.options->hDstDS;
    const double empty = _kind == RasterKind::Imagery ? 0.0 : std::numeric_limits<double>::quiet_NaN();
    for (int b = 1; b <= GDALGetRasterCount(target); ++b)
        GDALFillRaster(GDALGetRasterBand(target, b), empty, 0.0);

    GdalErrorTrap trap;
    GDALWarpOperationH operation = GDALCreateWarpOperation(warp.options);
    if (!operation)
        throw Error("cannot read '" + warp.source->name + "': " + trap.reason("GDAL cannot warp it"));
    const CPLErr result = GDALChunkAndWarpImage(operation, 0, 0, _width, _height);
    GDALDestroyWarpOperation(operation);
    if (result != CE_None)
        throw Error("cannot read '" + warp.source->name + "': " + trap.reason("warping its pixels failed"));
    return true;
}

bool TileWarper::warpImagery(const MercatorWindow& window, std::uint8_t* rgba)
{
    if (_kind != RasterKind::Imagery)
        throw Error("internal error: imagery asked of an elevation warper");
    const std::size_t pixels = static_cast<std::size_t>(_width) * _height;
    std::fill(rgba, rgba + pixels * 4, std::uint8_t{0});
    bool any = false;
    for (SourceWarp& warp : _warps)
    {
        if (!warpSource(warp, window))
            continue;
        GDALDatasetH target = warp.options->hDstDS;
        int bands[4] = {1, 2, 3, 4};
        const bool bytes = warp.byteData;
        GdalErrorTrap trap;
        const CPLErr read =
            bytes ? GDALDatasetRasterIO(target, GF_Read, 0, 0, _width, _height, _bytes.data(), _width, _height,
                                        GDT_Byte, 4, bands, 4, 4 * _width, 1)
                  : GDALDatasetRasterIO(target, GF_Read, 0, 0, _width, _height, _values.data(), _width, _height,
                                        GDT_Float32, 4, bands, 4 * sizeof(float), 4 * sizeof(float) * _width,
                                        sizeof(float));
        if (read != CE_None)
            throw Error("cannot read the warped pixels of '" + warp.source->name + "': " + trap.reason("unknown"));

        const ImageryBands& scaling = *warp.source->imagery;
        for (std::size_t i = 0; i < pixels; ++i)
        {
            std::uint8_t colour[4];
            if (bytes)
            {
                std::copy(&_bytes[i * 4], &_bytes[i * 4] + 4, colour);
            }
            else
            {
                for (int c = 0; c < 3; ++c)
                    colour[c] = scaling.toByte(_values[i * 4 + c]);
                const float a = _values[i * 4 + 3];
                colour[3] = !(a > 0.0f) ? 0 : (a >= 255.0f ? 255 : static_cast<std::uint8_t>(a + 0.5f));
            }
            const int sourceAlpha = colour[3];
            if (sourceAlpha == 0)
                continue;
            any = true;
            std::uint8_t* out = rgba + i * 4;
            const int below = out[3];
            if (sourceAlpha == 255 || below == 0)
            {
                std::copy(colour, colour + 4, out);
                continue;
            }
            // The later source over the earlier one.
            const float as = sourceAlpha / 255.0f;
            const float ab = below / 255.0f * (1.0f - as);
            const float a = as + ab;
            for (int c = 0; c < 3; ++c)
                out[c] = static_cast<std::uint8_t>(std::lround((colour[c] * as + out[c] * ab) / a));
            out[3] = static_cast<std::uint8_t>(std::lround(a * 255.0f));
        }
    }
    return any;
}

void TileWarper::markCoverage(const SourceWarp& warp, std::uint8_t* covered)
{
    const double width = warp.source->width;
    const double height = warp.source->height;
    for (int row = 0; row < _height; ++row)
    {
        for (int column = 0; column < _width; ++column)
        {
            _rowX[column] = column + 0.5;
            _rowY[column] = row + 0.5;
            _rowZ[column] = 0.0;
        }
        GdalErrorTrap quiet; // points outside the source's projection are simply not covered
        GDALApproxTransform(warp.approximate, TRUE, _width, _rowX.data(), _rowY.data(), _rowZ.data(), _rowOk.data());
        std::uint8_t* out = covered + static_cast<std::size_t>(row) * _width;
        for (int column = 0; column < _width; ++column)
        {
            const double x = _rowX[column];
            const double y = _rowY[column];
            if (_rowOk[column] && x >= 0.0 && x <= width && y >= 0.0 && y <= height)
                out[column] = 1;
        }
    }
}

bool TileWarper::warpHeights(const MercatorWindow& window, float* heights, std::uint8_t* covered)
{
    if (_kind != RasterKind::Elevation)
        throw Error("internal error: heights asked of an imagery warper");
    const std::size_t pixels = static_cast<std::size_t>(_width) * _height;
    std::fill(heights, heights + pixels, std::numeric_limits<float>::quiet_NaN());
    std::fill(covered, covered + pixels, std::uint8_t{0});
    bool any = false;
    for (SourceWarp& warp : _warps)
    {
        if (!warpSource(warp, window))
            continue;
        GdalErrorTrap trap;
        if (GDALRasterIO(GDALGetRasterBand(warp.options->hDstDS, 1), GF_Read, 0, 0, _width, _height, _values.data(),
                         _width, _height, GDT_Float32, 0, 0)
            != CE_None)
            throw Error("cannot read the warped heights of '" + warp.source->name + "': " + trap.reason("unknown"));
        const float scale = static_cast<float>(warp.source->heightScale);
        const float offset = static_cast<float>(warp.source->heightOffset);
        for (std::size_t i = 0; i < pixels; ++i)
        {
            const float value = _values[i];
            if (std::isfinite(value))
                heights[i] = value * scale + offset; // later sources lie on top
        }
        markCoverage(warp, covered);
        any = true;
    }
    if (!any)
        return false;
    return std::any_of(covered, covered + pixels, [](std::uint8_t c) { return c != 0; });
}

} // namespace cxtiler
