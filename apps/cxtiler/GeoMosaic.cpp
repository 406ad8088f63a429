#include "GeoMosaic.h"

#include "Error.h"
#include "TileMath.h"

#include <cpl_string.h>
#include <gdal_alg.h>
#include <gdal_utils.h>
#include <ogr_srs_api.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <sstream>

namespace cxtiler
{

namespace
{

// Points along each edge of a raster whose transformation bounds its footprint.
constexpr int kEdgeSamples = 128;

/** A coordinate system: the handle and its WKT. */
struct Srs
{
    OGRSpatialReferenceH handle = nullptr;
    explicit Srs(OGRSpatialReferenceH h = nullptr) : handle(h) {}
    ~Srs()
    {
        if (handle)
            OSRDestroySpatialReference(handle);
    }
    Srs(const Srs&) = delete;
    Srs& operator=(const Srs&) = delete;
};

std::string wktOf(OGRSpatialReferenceH srs)
{
    char* text = nullptr;
    const char* const options[] = {"FORMAT=WKT2_2019", nullptr};
    std::string wkt;
    if (OSRExportToWktEx(srs, &text, options) == OGRERR_NONE && text)
        wkt = text;
    CPLFree(text);
    return wkt;
}

/** The coordinate system's name for the user ("WGS 84 / UTM zone 50N"). */
std::string srsName(const std::string& wkt)
{
    Srs srs(OSRNewSpatialReference(nullptr));
    if (OSRSetFromUserInput(srs.handle, wkt.c_str()) != OGRERR_NONE)
        return "unnamed coordinate system";
    const char* name = OSRGetName(srs.handle);
    return name && *name ? name : "unnamed coordinate system";
}

/** A GDAL transformer from a raster's pixels to a coordinate system, freed on exit. */
class PixelTransformer
{
public:
    /** `imposedSrs`: the coordinate system to take for the raster instead of its own
     *  (empty: its own); `name` for messages. */
    PixelTransformer(GDALDatasetH dataset, const std::string& imposedSrs, const std::string& targetWkt,
                     const std::string& name)
    {
        GdalErrorTrap trap;
        char** options = CSLSetNameValue(nullptr, "DST_SRS", targetWkt.c_str());
        if (!imposedSrs.empty())
            options = CSLSetNameValue(options, "SRC_SRS", imposedSrs.c_str());
        _transformer = GDALCreateGenImgProjTransformer2(dataset, nullptr, options);
        CSLDestroy(options);
        if (!_transformer)
            throw Error("cannot read '" + name + "': its coordinate system cannot be converted to spherical mercator: "
                        + trap.reason("GDAL gave no reason"));
    }
    ~PixelTransformer()
    {
        if (_transformer)
            GDALDestroyGenImgProjTransformer(_transformer);
    }
    PixelTransformer(const PixelTransformer&) = delete;
    PixelTransformer& operator=(const PixelTransformer&) = delete;

    /** Pixel (x, y) to the target system in place; false when it cannot be transformed. */
    bool forward(double& x, double& y) const { return run(FALSE, x, y); }
    /** The target system's (x, y) to pixels in place. */
    bool inverse(double& x, double& y) const { return run(TRUE, x, y); }

private:
    bool run(int dstToSrc, double& x, double& y) const
    {
        double z = 0.0;
        int ok = 0;
        GdalErrorTrap quiet; // points outside a projection's domain are expected
        GDALGenImgProjTransform(_transformer, dstToSrc, 1, &x, &y, &z, &ok);
        return ok && std::isfinite(x) && std::isfinite(y);
    }

    void* _transformer = nullptr;
};

const std::string& geographicWkt()
{
    static const std::string wkt = [] {
        Srs srs(OSRNewSpatialReference(nullptr));
        OSRImportFromEPSG(srs.handle, 4326);
        return wktOf(srs.handle);
    }();
    return wkt;
}

/**
 * The longitudes and latitudes a raster covers, from points along its edges. The
 * longitudes are kept continuous around the raster's centre, so that a raster
 * across the antimeridian gives east > 180 (or west < -180) rather than the whole
 * circle; a pole inside the raster gives every longitude. Latitudes are limited to
 * the mercator world. Throws Error naming `name` when the raster lies outside it.
 */
GeoBounds footprintOf(const PixelTransformer& toGeographic, double width, double height, const std::string& name)
{
    double centreLon = width / 2.0;
    double centreLat = height / 2.0;
    const bool centreOk = toGeographic.forward(centreLon, centreLat);

    GeoBounds b{std::numeric_limits<double>::max(), std::numeric_limits<double>::max(),
                std::numeric_limits<double>::lowest(), std::numeric_limits<double>::lowest()};
    bool any = false;
    double reference = centreOk ? centreLon : std::numeric_limits<double>::quiet_NaN();
    auto add = [&](double x, double y) {
        if (!toGeographic.forward(x, y))
            return;
        if (std::isnan(reference))
            reference = x;
        const double lon = reference + std::remainder(x - reference, 360.0);
        b.west = std::min(b.west, lon);
        b.east = std::max(b.east, lon);
        b.south = std::min(b.south, y);
        b.north = std::max(b.north, y);
        any = true;
    };
    for (int i = 0; i <= kEdgeSamples; ++i)
    {
        const double t = static_cast<double>(i) / kEdgeSamples;
        add(t * width, 0.0);
        add(t * width, height);
        add(0.0, t * height);
        add(width, t * height);
    }
    if (!any)
        throw Error("cannot read '" + name + "': none of its edges can be placed on the Earth");

    // A pole inside the raster: its edges alone do not show that it reaches it.
    for (const double pole : {90.0, -90.0})
    {
        double x = std::isnan(reference) ? 0.0 : reference;
        double y = pole;
        if (toGeographic.inverse(x, y) && x >= 0.0 && x <= width && y >= 0.0 && y <= height)
        {
            b.west = -180.0;
            b.east = 180.0;
            (pole > 0 ? b.north : b.south) = pole;
        }
    }
    if (b.east - b.west >= 360.0)
    {
        b.west = -180.0;
        b.east = 180.0;
    }
    b.south = std::max(b.south, -kMaxMercatorLatitude);
    b.north = std::min(b.north, kMaxMercatorLatitude);
    if (!(b.south < b.north))
        throw Error("cannot read '" + name
                    + "': it lies beyond 85.05 degrees of latitude, outside the spherical mercator world");
    return b;
}

MercatorBounds mercatorOf(const GeoBounds& b)
{
    return {mercatorX(b.west), mercatorY(b.south), mercatorX(b.east), mercatorY(b.north)};
}

/** One checked input file and what decides whether it can join a mosaic with others. */
struct OpenedInput
{
    std::string path;
    std::string srsWkt;
    bool srsImposed = false;
    /** North-up geotransform without rotation: GDAL's VRT mosaic can hold it. */
    bool northUp = false;
    /** The file may join others in one VRT mosaic. */
    bool mosaicable = false;
    /** Files with equal keys form one mosaic. */
    std::string groupKey;
    /** Where the file's data lie. */
    GeoBounds footprint;
};

std::string layoutKey(GDALDatasetH dataset, RasterKind kind)
{
    std::ostringstream key;
    const int count = GDALGetRasterCount(dataset);
    key << count;
    for (int b = 1; b <= count; ++b)
    {
        GDALRasterBandH band = GDALGetRasterBand(dataset, b);
        int hasNoData = 0;
        GDALGetRasterNoDataValue(band, &hasNoData);
        key << ':' << GDALGetRasterDataType(band) << '/' << GDALGetRasterColorInterpretation(band) << '/'
            << (GDALGetRasterColorTable(band) ? "palette" : "") << '/' << hasNoData;
        if (kind == RasterKind::Elevation && b == 1)
        {
            char numbers[64];
            std::snprintf(numbers, sizeof(numbers), "/%.17g/%.17g", GDALGetRasterScale(band, nullptr),
                          GDALGetRasterOffset(band, nullptr));
            key << numbers;
        }
    }
    return key.str();
}

OpenedInput openInput(const std::string& path, RasterKind kind, const std::string& srsWkt)
{
    OpenedInput input;
    input.path = path;
    // Closed again on return: a mosaic of thousands of files must not hold them all open.
    const DatasetPtr dataset = openRaster(path);
    GDALDatasetH ds = dataset.get();
    if (!hasGeoreferencing(ds))
        throw Error("cannot read '" + path
                    + "': it is not georeferenced (no geotransform, world file or ground control points), so it "
                      "cannot be placed on the Earth");

    double transform[6] = {0, 1, 0, 0, 0, 1};
    const bool affine = GDALGetGeoTransform(ds, transform) == CE_None;
    input.northUp = affine && transform[2] == 0.0 && transform[4] == 0.0 && transform[1] > 0.0 && transform[5] < 0.0;
    OGRSpatialReferenceH own = affine ? GDALGetSpatialRef(ds) : GDALGetGCPSpatialRef(ds);
    if (own)
    {
        input.srsWkt = wktOf(own);
        if (input.srsWkt.empty())
            throw Error("cannot read '" + path + "': its coordinate system cannot be read");
    }
    else if (!srsWkt.empty())
    {
        input.srsWkt = srsWkt;
        input.srsImposed = true;
    }
    else
    {
        throw Error("cannot read '" + path
                    + "': it has a position but no coordinate system (a world file without a .prj?); name the "
                      "coordinate system with --srs, e.g. --srs EPSG:4326");
    }

    if (kind == RasterKind::Elevation
        && GDALDataTypeIsComplex(GDALGetRasterDataType(GDALGetRasterBand(ds, 1))))
        throw Error("cannot read '" + path + "': its first band holds complex numbers, not heights");
    probeReadable(ds, path);
    const PixelTransformer toGeographic(ds, input.srsImposed ? input.srsWkt : std::string(), geographicWkt(), path);
    input.footprint = footprintOf(toGeographic, GDALGetRasterXSize(ds), GDALGetRasterYSize(ds), path);
    // Checked here, so that a file whose system PROJ cannot take to mercator is named.
    const PixelTransformer toMercator(ds, input.srsImposed ? input.srsWkt : std::string(), GeoMosaic::mercatorWkt(),
                                      path);

    // A palette image joins no mosaic: GDAL's VRT needs the same colour table in every file.
    input.mosaicable = input.northUp && !GDALGetRasterColorTable(GDALGetRasterBand(ds, 1));
    input.groupKey = input.srsWkt + (input.srsImposed ? "|imposed|" : "|own|") + layoutKey(ds, kind);
    return input;
}

/** An in-memory VRT mosaic of files in the same coordinate system and band layout. */
DatasetPtr buildMosaic(const std::vector<OpenedInput*>& files, bool addAlpha)
{
    std::vector<const char*> names;
    for (const OpenedInput* file : files)
        names.push_back(file->path.c_str());
    char** args = nullptr;
    args = CSLAddString(args, "-resolution");
    args = CSLAddString(args, "highest");
    if (addAlpha)
        args = CSLAddString(args, "-addalpha"); // the gaps between the files have no data
    if (files.front()->srsImposed)
    {
        args = CSLAddString(args, "-a_srs");
        args = CSLAddString(args, files.front()->srsWkt.c_str());
    }
    GdalErrorTrap trap;
    GDALBuildVRTOptions* options = GDALBuildVRTOptionsNew(args, nullptr);
    CSLDestroy(args);
    int usageError = 0;
    DatasetPtr mosaic(GDALBuildVRT("", static_cast<int>(names.size()), nullptr, names.data(), options, &usageError));
    GDALBuildVRTOptionsFree(options);
    if (!mosaic)
        throw Error("cannot join '" + files.front()->path + "' and the files like it into one mosaic: "
                    + trap.reason("GDAL gave no reason"));
    return mosaic;
}

std::string mosaicName(const std::vector<OpenedInput*>& files)
{
    if (files.size() == 1)
        return files.front()->path;
    std::string name = "mosaic of " + std::to_string(files.size()) + " files (" + files.front()->path;
    name += files.size() == 2 ? ", " + files[1]->path + ")" : ", " + files[1]->path + ", ...)";
    return name;
}

/** The band marked as alpha, 0 when none. */
int alphaBandOf(GDALDatasetH dataset)
{
    for (int b = GDALGetRasterCount(dataset); b >= 2; --b)
        if (GDALGetRasterColorInterpretation(GDALGetRasterBand(dataset, b)) == GCI_AlphaBand)
            return b;
    return 0;
}

/** The nodata values of `bands` when every one of them has one. */
std::optional<std::vector<double>> noDataOf(GDALDatasetH dataset, const std::vector<int>& bands)
{
    std::vector<double> values;
    for (int b : bands)
    {
        int has = 0;
        const double value = GDALGetRasterNoDataValue(GDALGetRasterBand(dataset, b), &has);
        if (!has)
            return std::nullopt;
        values.push_back(value);
    }
    return values;
}

} // namespace

GeoMosaic::GeoMosaic(const std::vector<std::string>& paths, RasterKind kind, const std::string& srs)
    : _kind(kind), _paths(paths)
{
    registerGdal();
    if (paths.empty())
        throw Error("no input given");
    std::string srsWkt;
    if (!srs.empty())
    {
        GdalErrorTrap trap;
        Srs parsed(OSRNewSpatialReference(nullptr));
        if (OSRSetFromUserInput(parsed.handle, srs.c_str()) != OGRERR_NONE)
            throw Error("--srs '" + srs + "' is not a coordinate system GDAL knows ("
                        + trap.reason("it reads EPSG:4326, WKT or PROJ strings") + ")");
        srsWkt = wktOf(parsed.handle);
    }
    addSources(paths, srsWkt);

    _finestPixel = std::numeric_limits<double>::max();
    bool first = true;
    for (WarpSource& source : _sources)
    {
        measure(source);
        _finestPixel = std::min(_finestPixel, source.pixelSize);
        if (first)
        {
            _bounds = source.geographic;
            first = false;
            continue;
        }
        // Shift the source by whole turns to the side nearest the bounds so far.
        const double centre = (_bounds.west + _bounds.east) / 2.0;
        const double shift =
            360.0 * std::round((centre - (source.geographic.west + source.geographic.east) / 2.0) / 360.0);
        _bounds.west = std::min(_bounds.west, source.geographic.west + shift);
        _bounds.east = std::max(_bounds.east, source.geographic.east + shift);
        _bounds.south = std::min(_bounds.south, source.geographic.south);
        _bounds.north = std::max(_bounds.north, source.geographic.north);
    }
    if (_bounds.east - _bounds.west >= 360.0)
    {
        _bounds.west = -180.0;
        _bounds.east = 180.0;
    }
    else if (_bounds.east <= -180.0 || _bounds.west >= 180.0)
    {
        const double shift = _bounds.east <= -180.0 ? 360.0 : -360.0;
        _bounds.west += shift;
        _bounds.east += shift;
    }
    _mercator = mercatorOf(_bounds);
}

GeoMosaic::~GeoMosaic() = default;

void GeoMosaic::addSources(const std::vector<std::string>& paths, const std::string& srsWkt)
{
    std::vector<OpenedInput> inputs;
    inputs.reserve(paths.size());
    for (const std::string& path : paths)
        inputs.push_back(openInput(path, _kind, srsWkt));

    // Files that GDAL's VRT can join, in the order their group first appears; later
    // files lie on top of earlier ones where they overlap.
    std::vector<std::vector<OpenedInput*>> groups;
    std::map<std::string, std::size_t> groupOfKey;
    for (OpenedInput& input : inputs)
    {
        if (!input.mosaicable)
        {
            groups.push_back({&input});
            continue;
        }
        const auto found = groupOfKey.find(input.groupKey);
        if (found == groupOfKey.end())
        {
            groupOfKey[input.groupKey] = groups.size();
            groups.push_back({&input});
        }
        else
        {
            groups[found->second].push_back(&input);
        }
    }

    for (const auto& group : groups)
    {
        WarpSource source;
        source.name = mosaicName(group);
        source.srsWkt = group.front()->srsWkt;
        source.srsImposed = group.front()->srsImposed;
        source.dataset = openRaster(group.front()->path);
        if (group.size() > 1)
        {
            GDALDatasetH sample = source.dataset.get();
            const bool hasAlpha = alphaBandOf(sample) != 0;
            int hasNoData = 0;
            GDALGetRasterNoDataValue(GDALGetRasterBand(sample, 1), &hasNoData);
            source.dataset = buildMosaic(group, !hasAlpha && !hasNoData);
        }
        for (const OpenedInput* file : group)
        {
            source.parts.push_back(mercatorOf(file->footprint));
            _footprints.push_back(file->footprint);
        }
        GDALDatasetH ds = static_cast<GDALDatasetH>(source.dataset.get());
        source.width = GDALGetRasterXSize(ds);
        source.height = GDALGetRasterYSize(ds);

        if (_kind == RasterKind::Imagery)
        {
            source.imagery = std::make_unique<ImageryBands>(ds, source.name);
            const ImageryBands& bands = *source.imagery;
            source.bands = {bands.red(), bands.green(), bands.blue()};
            source.alphaBand = bands.alpha();
            source.noData = noDataOf(bands.dataset(), source.bands);
        }
        else
        {
            GDALRasterBandH band = GDALGetRasterBand(ds, 1);
            int has = 0;
            const double scale = GDALGetRasterScale(band, &has);
            source.heightScale = has && scale != 0.0 ? scale : 1.0;
            source.heightOffset = GDALGetRasterOffset(band, &has);
            if (!has)
                source.heightOffset = 0.0;
            source.bands = {1};
            source.alphaBand = alphaBandOf(ds);
            source.noData = noDataOf(ds, source.bands);
        }
        _sources.push_back(std::move(source));
    }
}

void GeoMosaic::measure(WarpSource& source) const
{
    GDALDatasetH ds = source.handle();
    const std::string imposed = source.srsImposed ? source.srsWkt : std::string();
    const PixelTransformer toGeographic(ds, imposed, geographicWkt(), source.name);
    const PixelTransformer toMercator(ds, imposed, mercatorWkt(), source.name);
    const double width = source.width;
    const double height = source.height;
    source.geographic = footprintOf(toGeographic, width, height, source.name);
    source.mercator = mercatorOf(source.geographic);

    // Pixel size near the centre, in mercator metres: the smaller side, so that no
    // detail of the source is lost.
    double size = std::numeric_limits<double>::max();
    const double cx = std::floor(width / 2.0);
    const double cy = std::floor(height / 2.0);
    double x0 = cx, y0 = cy, x1 = cx + 1.0, y1 = cy, x2 = cx, y2 = cy + 1.0;
    if (toMercator.forward(x0, y0) && toMercator.forward(x1, y1) && toMercator.forward(x2, y2))
        size = std::min(std::hypot(x1 - x0, y1 - y0), std::hypot(x2 - x0, y2 - y0));
    if (!(size > 0.0) || !std::isfinite(size))
    {
        // Fall back to the footprint's size over the raster's size.
        size = std::min((source.mercator.maxX - source.mercator.minX) / width,
                        (source.mercator.maxY - source.mercator.minY) / height);
    }
    source.pixelSize = size;
}

int GeoMosaic::naturalMaxZoom() const { return maxZoomForPixelSize(_finestPixel); }

std::string GeoMosaic::description() const
{
    std::ostringstream text;
    char line[256];
    for (const WarpSource& source : _sources)
    {
        text << "  " << source.name << ": " << source.width << " x " << source.height << " pixels, "
             << srsName(source.srsWkt) << (source.srsImposed ? " (from --srs)" : "");
        if (_kind == RasterKind::Imagery && source.imagery)
            text << (source.imagery->grey() ? ", grey" : ", colour") << (source.alphaBand ? " with alpha" : "");
        if (source.noData)
        {
            std::snprintf(line, sizeof(line), ", nodata %g", source.noData->front());
            text << line;
        }
        text << "\n";
    }
    std::snprintf(line, sizeof(line),
                  "  data over longitudes %.6f to %.6f, latitudes %.6f to %.6f; finest pixel %.3g m in spherical "
                  "mercator\n",
                  _bounds.west, _bounds.east, _bounds.south, _bounds.north, _finestPixel);
    text << line;
    return text.str();
}

const std::string& GeoMosaic::mercatorWkt()
{
    static const std::string wkt = [] {
        registerGdal();
        Srs srs(OSRNewSpatialReference(nullptr));
        OSRImportFromEPSG(srs.handle, 3857);
        return wktOf(srs.handle);
    }();
    return wkt;
}

} // namespace cxtiler
