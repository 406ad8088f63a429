#include "ImageryBands.h"

#include "Error.h"

#include <cpl_string.h>
#include <gdal_utils.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace cxtiler
{

namespace
{

GDALColorInterp interpretation(GDALDatasetH dataset, int band)
{
    return GDALGetRasterColorInterpretation(GDALGetRasterBand(dataset, band));
}

/** True when the palette needs an alpha band: a nodata entry or see-through entries. */
bool paletteHasTransparency(GDALRasterBandH band, GDALColorTableH table)
{
    int hasNoData = 0;
    GDALGetRasterNoDataValue(band, &hasNoData);
    if (hasNoData)
        return true;
    for (int i = 0; i < GDALGetColorEntryCount(table); ++i)
    {
        const GDALColorEntry* entry = GDALGetColorEntry(table, i);
        if (entry && entry->c4 < 255)
            return true;
    }
    return false;
}

/** An in-memory VRT that shows the palette image as RGB or RGBA bands. */
DatasetPtr expandPalette(GDALDatasetH dataset, bool alpha, const std::string& path)
{
    GdalErrorTrap trap;
    char** args = nullptr;
    for (const char* arg : {"-of", "VRT", "-b", "1", "-expand", alpha ? "rgba" : "rgb"})
        args = CSLAddString(args, arg);
    GDALTranslateOptions* options = GDALTranslateOptionsNew(args, nullptr);
    CSLDestroy(args);
    int usageError = 0;
    DatasetPtr expanded(GDALTranslate("", dataset, options, &usageError));
    GDALTranslateOptionsFree(options);
    if (!expanded)
        throw Error("cannot read '" + path + "': cannot expand its colour table: " + trap.reason("unknown reason"));
    return expanded;
}

/** The largest value of an integer type, 0 for other types. */
double integerTypeMax(GDALDataType type)
{
    switch (type)
    {
    case GDT_Byte:
        return 255.0;
    case GDT_UInt16:
        return 65535.0;
    case GDT_Int16:
        return 32767.0;
    case GDT_UInt32:
        return 4294967295.0;
    case GDT_Int32:
        return 2147483647.0;
    default:
        return 0.0;
    }
}

double integerTypeMin(GDALDataType type)
{
    switch (type)
    {
    case GDT_Int16:
        return -32768.0;
    case GDT_Int32:
        return -2147483648.0;
    default:
        return 0.0;
    }
}

} // namespace

ImageryBands::ImageryBands(GDALDatasetH dataset, const std::string& path) : _original(dataset)
{
    GDALRasterBandH first = GDALGetRasterBand(dataset, 1);
    if (GDALColorTableH table = GDALGetRasterColorTable(first);
        table && interpretation(dataset, 1) == GCI_PaletteIndex)
    {
        _expanded = expandPalette(dataset, paletteHasTransparency(first, table), path);
    }
    GDALDatasetH source = this->dataset();
    const int count = GDALGetRasterCount(source);

    int red = 0, green = 0, blue = 0;
    for (int b = 1; b <= count; ++b)
    {
        switch (interpretation(source, b))
        {
        case GCI_RedBand:
            red = red ? red : b;
            break;
        case GCI_GreenBand:
            green = green ? green : b;
            break;
        case GCI_BlueBand:
            blue = blue ? blue : b;
            break;
        case GCI_AlphaBand:
            _alpha = _alpha ? _alpha : b;
            break;
        default:
            break;
        }
    }
    if (red && green && blue)
    {
        _bands[0] = red;
        _bands[1] = green;
        _bands[2] = blue;
    }
    else if (count >= 3 && _alpha != 1 && _alpha != 2 && _alpha != 3)
    {
        _bands[0] = 1;
        _bands[1] = 2;
        _bands[2] = 3;
    }
    else
    {
        // Grey: the first band that is not the alpha band.
        const int grey = _alpha == 1 && count > 1 ? 2 : 1;
        _bands[0] = _bands[1] = _bands[2] = grey;
    }

    _type = GDALGetRasterDataType(GDALGetRasterBand(source, _bands[0]));
    for (int b : _bands)
    {
        const GDALDataType type = GDALGetRasterDataType(GDALGetRasterBand(source, b));
        if (GDALDataTypeIsComplex(type))
            throw Error("cannot read '" + path + "': its bands hold complex numbers, not colours");
        if (type != _type)
            _type = GDALDataTypeUnion(_type, type);
    }
    if (_alpha)
        _alphaMax = std::max(1.0, integerTypeMax(GDALGetRasterDataType(GDALGetRasterBand(source, _alpha))));
    if (_alphaMax <= 0.0)
        _alphaMax = 255.0;

    if (_type == GDT_Byte)
        return;
    double low = integerTypeMin(_type);
    double high = integerTypeMax(_type);
    if (high == 0.0)
    {
        // Floating point (or 64-bit) values: stretch the data's own range.
        GdalErrorTrap trap;
        low = std::numeric_limits<double>::max();
        high = std::numeric_limits<double>::lowest();
        for (int b : _bands)
        {
            double range[2] = {0.0, 0.0};
            if (GDALComputeRasterMinMax(GDALGetRasterBand(source, b), TRUE, range) != CE_None)
                throw Error("cannot read '" + path + "': " + trap.reason("cannot find the range of its values"));
            low = std::min(low, range[0]);
            high = std::max(high, range[1]);
        }
    }
    if (!(high > low) || !std::isfinite(high - low))
    {
        _scale = 1.0;
        _offset = -low;
        return;
    }
    _scale = 255.0 / (high - low);
    _offset = -low * _scale;
}

} // namespace cxtiler
