// Georeferenced input rasters, opened and checked, as the sources the warper
// reads: files in the same coordinate system and band layout are joined into one
// in-memory mosaic (a GDAL VRT), others stay sources of their own. Knows where
// the data lie on the Earth and how fine their pixels are.
#ifndef CXTILER_GEOMOSAIC_H
#define CXTILER_GEOMOSAIC_H

#include "GdalSupport.h"
#include "ImageryBands.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cxtiler
{

enum class RasterKind
{
    Imagery,
    Elevation
};

/** A rectangle in EPSG:3857 metres. minX may lie below -kMercatorHalfWorld (or
 *  maxX beyond it) for data across the antimeridian. */
struct MercatorBounds
{
    double minX = 0.0, minY = 0.0, maxX = 0.0, maxY = 0.0;
    bool intersects(const MercatorBounds& other) const
    {
        return minX < other.maxX && other.minX < maxX && minY < other.maxY && other.minY < maxY;
    }
};

/** Longitudes and latitudes in degrees; east may exceed 180 (or west lie below
 *  -180) for data across the antimeridian. */
struct GeoBounds
{
    double west = 0.0, south = 0.0, east = 0.0, north = 0.0;
};

/** One raster the warper reads: an input file or the mosaic of several. */
struct WarpSource
{
    /** For messages: the file's path, or the paths of the mosaic's files. */
    std::string name;
    DatasetPtr dataset;
    /** The coordinate system: the file's own, or the one given with --srs. */
    std::string srsWkt;
    /** True when srsWkt came from --srs and must be imposed on the dataset. */
    bool srsImposed = false;

    /** Imagery: the colour bands and their 8-bit scaling. */
    std::unique_ptr<ImageryBands> imagery;

    /** Elevation: band 1, metres = value * scale + offset. */
    double heightScale = 1.0;
    double heightOffset = 0.0;

    /** The band read for each output channel (imagery: red, green, blue;
     *  elevation: 1) and the alpha band (0: none). */
    std::vector<int> bands;
    int alphaBand = 0;
    /** The nodata value of each band of `bands`, when the bands have one. */
    std::optional<std::vector<double>> noData;

    int width = 0;
    int height = 0;
    /** Where each file of the source has data; a mosaic's files may lie far apart. */
    std::vector<MercatorBounds> parts;
    MercatorBounds mercator;
    GeoBounds geographic;
    /** Size of a pixel in EPSG:3857 metres near the raster's centre (the smaller
     *  of its two sides). */
    double pixelSize = 0.0;

    GDALDatasetH handle() const
    {
        return imagery ? imagery->dataset() : static_cast<GDALDatasetH>(dataset.get());
    }
};

class GeoMosaic
{
public:
    /**
     * Opens and checks every input before anything is written: each must be a
     * readable raster with georeferencing and a coordinate system (its own, or
     * `srs` for files that have none: EPSG:4326, a WKT or PROJ string) that can be
     * converted to spherical mercator. Throws Error naming the first bad file.
     */
    GeoMosaic(const std::vector<std::string>& paths, RasterKind kind, const std::string& srs = {});
    ~GeoMosaic();
    GeoMosaic(const GeoMosaic&) = delete;
    GeoMosaic& operator=(const GeoMosaic&) = delete;

    RasterKind kind() const { return _kind; }
    const std::vector<WarpSource>& sources() const { return _sources; }
    const std::vector<std::string>& paths() const { return _paths; }

    /** Where the data lie: the union of the sources' footprints, latitudes
     *  limited to the mercator world. */
    const GeoBounds& bounds() const { return _bounds; }
    /** Where each input file has data, in the inputs' order. */
    const std::vector<GeoBounds>& footprints() const { return _footprints; }
    const MercatorBounds& mercatorBounds() const { return _mercator; }
    bool crossesAntimeridian() const { return _bounds.west < -180.0 || _bounds.east > 180.0; }

    /** The finest source pixel in EPSG:3857 metres. */
    double finestPixelSize() const { return _finestPixel; }
    /** The first level whose pixel is as fine as the finest source pixel. */
    int naturalMaxZoom() const;

    /** A line for the user: sizes, coordinate systems and where the data lie. */
    std::string description() const;

    /** The spherical mercator coordinate system as WKT. */
    static const std::string& mercatorWkt();

private:
    void addSources(const std::vector<std::string>& paths, const std::string& srsWkt);
    void measure(WarpSource& source) const;

    RasterKind _kind;
    std::vector<std::string> _paths;
    std::vector<WarpSource> _sources;
    std::vector<GeoBounds> _footprints;
    GeoBounds _bounds;
    MercatorBounds _mercator;
    double _finestPixel = 0.0;
};

} // namespace cxtiler

#endif
