// Helpers of the cxtiler tests for georeferenced inputs: small rasters written
// with the GDAL API (GeoTIFF, SRTM .hgt, PNG with a world file, JPEG 2000), and
// the pixel of an MBTiles pyramid at a longitude and latitude, found with tile
// arithmetic worked out here and decoded with OSG's image plugins.
#ifndef CXVIEWER_TESTS_GEORASTERFILES_H
#define CXVIEWER_TESTS_GEORASTERFILES_H

#include "TilerTestSupport.h"

#include <cpl_string.h>
#include <gdal.h>
#include <ogr_srs_api.h>

#include <array>
#include <cmath>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace geotest
{

/** What a test raster is: size, bands, type, placement and values. */
struct TestRaster
{
    int width = 0;
    int height = 0;
    int bands = 1;
    GDALDataType type = GDT_Byte;
    /** GDAL geotransform: origin x, pixel width, 0, origin y, 0, -pixel height. */
    std::array<double, 6> transform{0, 1, 0, 0, 0, -1};
    /** EPSG code of the coordinate system; 0 for none. */
    int epsg = 4326;
    std::optional<double> noData;
    std::optional<double> scale;
    std::optional<double> offset;
    /** Colour interpretation of each band; empty: GDAL's default. */
    std::vector<GDALColorInterp> interpretation;
    /** Value of band `band` (1-based) at (column, row from the top). */
    std::function<double(int band, int column, int row)> value;
};

/** Geotransform of a north-up raster whose top-left corner is (west, north). */
inline std::array<double, 6> northUp(double west, double north, double pixelWidth, double pixelHeight)
{
    return {west, pixelWidth, 0.0, north, 0.0, -pixelHeight};
}

inline std::string wktOfEpsg(int epsg)
{
    OGRSpatialReferenceH srs = OSRNewSpatialReference(nullptr);
    OSRImportFromEPSG(srs, epsg);
    char* wkt = nullptr;
    OSRExportToWkt(srs, &wkt);
    std::string text = wkt ? wkt : "";
    CPLFree(wkt);
    OSRDestroySpatialReference(srs);
    return text;
}

/** An in-memory raster filled from `layout`. */
inline GDALDatasetH memoryRaster(const TestRaster& layout, bool georeference = true)
{
    GDALAllRegister();
    GDALDatasetH ds = GDALCreate(GDALGetDriverByName("MEM"), "", layout.width, layout.height, layout.bands, layout.type,
                                 nullptr);
    if (!ds)
        throw std::runtime_error("cannot create a MEM raster");
    if (georeference)
    {
        std::array<double, 6> transform = layout.transform;
        GDALSetGeoTransform(ds, transform.data());
        if (layout.epsg)
            GDALSetProjection(ds, wktOfEpsg(layout.epsg).c_str());
    }
    std::vector<double> row(layout.width);
    for (int b = 1; b <= layout.bands; ++b)
    {
        GDALRasterBandH band = GDALGetRasterBand(ds, b);
        if (layout.noData)
            GDALSetRasterNoDataValue(band, *layout.noData);
        if (layout.scale)
            GDALSetRasterScale(band, *layout.scale);
        if (layout.offset)
            GDALSetRasterOffset(band, *layout.offset);
        if (b <= static_cast<int>(layout.interpretation.size()))
            GDALSetRasterColorInterpretation(band, layout.interpretation[b - 1]);
        for (int r = 0; r < layout.height; ++r)
        {
            for (int c = 0; c < layout.width; ++c)
                row[c] = layout.value(b, c, r);
            if (GDALRasterIO(band, GF_Write, 0, r, layout.width, 1, row.data(), layout.width, 1, GDT_Float64, 0, 0)
                != CE_None)
                throw std::runtime_error("cannot fill a MEM raster");
        }
    }
    return ds;
}

/** Copies `source` into a file of `driver` format; false when the driver is missing. */
inline bool copyTo(GDALDatasetH source, const std::string& driver, const std::string& path,
                   const std::vector<std::string>& options = {})
{
    GDALDriverH handle = GDALGetDriverByName(driver.c_str());
    if (!handle)
        return false;
    char** list = nullptr;
    for (const std::string& option : options)
        list = CSLAddString(list, option.c_str());
    GDALDatasetH copy = GDALCreateCopy(handle, path.c_str(), source, FALSE, list, nullptr, nullptr);
    CSLDestroy(list);
    if (!copy)
        throw std::runtime_error("cannot write " + path);
    GDALClose(copy);
    return true;
}

inline void writeGeoTiff(const std::string& path, const TestRaster& layout)
{
    GDALDatasetH ds = memoryRaster(layout);
    copyTo(ds, "GTiff", path);
    GDALClose(ds);
}

/** An SRTM .hgt file (big-endian 16-bit, pixel-is-point grid of size x size) at
 *  the 1-degree cell whose south-west corner is (lon, lat); `value` as in TestRaster. */
inline void writeHgt(const std::string& path, int lon, int lat, int size,
                     const std::function<double(int column, int row)>& value)
{
    TestRaster layout;
    layout.width = layout.height = size;
    layout.type = GDT_Int16;
    const double step = 1.0 / (size - 1);
    layout.transform = northUp(lon - step / 2.0, lat + 1.0 + step / 2.0, step, step);
    layout.noData = -32768;
    layout.value = [&](int, int column, int row) { return value(column, row); };
    GDALDatasetH ds = memoryRaster(layout);
    copyTo(ds, "SRTMHGT", path);
    GDALClose(ds);
}

/** A PNG without georeferencing of its own and a world file (.pgw) placing it;
 *  no .prj, so it has no coordinate system. */
inline void writePngWithWorldFile(const std::string& pngPath, const TestRaster& layout)
{
    GDALDatasetH ds = memoryRaster(layout, false);
    copyTo(ds, "PNG", pngPath);
    GDALClose(ds);
    const std::string worldPath = pngPath.substr(0, pngPath.size() - 3) + "pgw";
    std::ofstream world(worldPath);
    world.precision(17);
    // Pixel size x, rotation, rotation, pixel size y (negative), centre of the top-left pixel.
    world << layout.transform[1] << "\n0\n0\n" << layout.transform[5] << "\n"
          << layout.transform[0] + layout.transform[1] / 2.0 << "\n" << layout.transform[3] + layout.transform[5] / 2.0
          << "\n";
}

/** Longitude and latitude of (x, y) in EPSG `epsg`. */
inline std::array<double, 2> toLonLat(int epsg, double x, double y)
{
    OGRSpatialReferenceH from = OSRNewSpatialReference(nullptr);
    OGRSpatialReferenceH to = OSRNewSpatialReference(nullptr);
    OSRImportFromEPSG(from, epsg);
    OSRImportFromEPSG(to, 4326);
    OSRSetAxisMappingStrategy(from, OAMS_TRADITIONAL_GIS_ORDER);
    OSRSetAxisMappingStrategy(to, OAMS_TRADITIONAL_GIS_ORDER);
    OGRCoordinateTransformationH transform = OCTNewCoordinateTransformation(from, to);
    double px = x, py = y, pz = 0.0;
    OCTTransform(transform, 1, &px, &py, &pz);
    OCTDestroyCoordinateTransformation(transform);
    OSRDestroySpatialReference(from);
    OSRDestroySpatialReference(to);
    return {px, py};
}

/** Pixel position of a longitude and latitude at `zoom`: the tile and the pixel in it. */
struct TilePosition
{
    int x, y;           // XYZ tile
    int column, row;    // pixel in the tile, row 0 at the north
};

inline TilePosition positionOf(double lon, double lat, int zoom)
{
    const double world = 256.0 * (1 << zoom);
    const double gx = (lon + 180.0) / 360.0 * world;
    const double n = std::log(std::tan(tilertest::kPi / 4.0 + lat * tilertest::kPi / 360.0));
    const double gy = (1.0 - n / tilertest::kPi) / 2.0 * world;
    const int ix = static_cast<int>(std::floor(gx));
    const int iy = static_cast<int>(std::floor(gy));
    return {ix / 256, iy / 256, ix % 256, iy % 256};
}

/** Longitude and latitude box of XYZ tile (z, x, y): west, south, east, north. */
inline std::array<double, 4> tileBox(int z, int x, int y)
{
    const double n = 1 << z;
    auto lat = [n](double row) {
        const double m = tilertest::kPi * (1.0 - 2.0 * row / n);
        return std::atan(std::sinh(m)) * 180.0 / tilertest::kPi;
    };
    return {x / n * 360.0 - 180.0, lat(y + 1), (x + 1) / n * 360.0 - 180.0, lat(y)};
}

enum class TileKind
{
    Missing,
    Png,
    Jpeg
};

inline TileKind tileKind(const tilertest::MBTiles& db, int z, int x, int y)
{
    const std::string blob = db.blob(z, x, (1 << z) - 1 - y);
    if (blob.size() < 4)
        return TileKind::Missing;
    if (static_cast<unsigned char>(blob[0]) == 0xFF && static_cast<unsigned char>(blob[1]) == 0xD8)
        return TileKind::Jpeg;
    return blob.substr(1, 3) == "PNG" ? TileKind::Png : TileKind::Missing;
}

/** The RGBA colour (alpha 255 for RGB tiles) of the pixel at (lon, lat) of level
 *  `zoom`; nullopt when that tile is missing. */
inline std::optional<std::array<int, 4>> colourAt(const tilertest::MBTiles& db, int zoom, double lon, double lat)
{
    const TilePosition p = positionOf(lon, lat, zoom);
    osg::ref_ptr<osg::Image> tile = db.tile(zoom, p.x, p.y);
    if (!tile)
        return std::nullopt;
    const std::uint8_t* px = tilertest::tilePixel(*tile, p.column, p.row);
    const bool alpha = tile->getPixelFormat() == GL_RGBA;
    return std::array<int, 4>{px[0], px[1], px[2], alpha ? px[3] : 255};
}

/** The Terrain-RGB height at (lon, lat) of level `zoom`; NaN when the tile is missing. */
inline double heightAt(const tilertest::MBTiles& db, int zoom, double lon, double lat)
{
    const TilePosition p = positionOf(lon, lat, zoom);
    osg::ref_ptr<osg::Image> tile = db.tile(zoom, p.x, p.y);
    if (!tile)
        return std::nan("");
    return tilertest::terrainRgbHeight(tilertest::tilePixel(*tile, p.column, p.row));
}

/** Longitude and latitude of the centre of the pixel at (lon, lat) of level `zoom`:
 *  where that tile pixel really samples the input. */
inline std::array<double, 2> pixelCentre(double lon, double lat, int zoom)
{
    const TilePosition p = positionOf(lon, lat, zoom);
    return {tilertest::tilePixelLongitude(zoom, p.x, p.column), tilertest::tilePixelLatitude(zoom, p.y, p.row)};
}

/** The first zoom whose mercator pixel (40075016.686 m / 256 / 2^z in EPSG:3857
 *  metres) is no larger than `mercatorMetres`. */
inline int expectedMaxZoom(double mercatorMetres)
{
    int zoom = 0;
    while (40075016.68557849 / 256.0 / (1 << zoom) > mercatorMetres * (1.0 + 1e-9))
        ++zoom;
    return zoom;
}

} // namespace geotest

#endif
