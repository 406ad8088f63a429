// Warps the sources of a GeoMosaic into windows of the spherical mercator pixel
// grid with GDAL's warper, one window at a time, so that only the source pixels
// under the window are read: inputs larger than memory work.
#ifndef CXTILER_TILEWARPER_H
#define CXTILER_TILEWARPER_H

#include "GdalSupport.h"
#include "GeoMosaic.h"

#include <gdalwarper.h>

#include <cstdint>
#include <vector>

namespace cxtiler
{

/** A rectangle of pixels in EPSG:3857: the top-left corner, the pixel size in
 *  metres, and the size in pixels. Rows run from the north. */
struct MercatorWindow
{
    double left = 0.0;
    double top = 0.0;
    double pixelSize = 1.0;
    int width = 0;
    int height = 0;

    /** Tile (x, y) of `zoom` (XYZ rows) grown by `margin` pixels on every side. */
    static MercatorWindow tile(int zoom, int x, int y, int margin = 0);

    MercatorBounds bounds() const
    {
        return {left, top - height * pixelSize, left + width * pixelSize, top};
    }
    /** EPSG:3857 coordinates of the centre of pixel (column, row). */
    double x(double column) const { return left + (column + 0.5) * pixelSize; }
    double y(double row) const { return top - (row + 0.5) * pixelSize; }
};

class TileWarper
{
public:
    /** Warps `mosaic` into windows of `width` x `height` pixels with `resampling`
     *  (bilinear for tiles; average for an overview of heights). Throws Error when a
     *  source's coordinate system cannot be converted to spherical mercator. */
    TileWarper(const GeoMosaic& mosaic, int width, int height, GDALResampleAlg resampling);
    ~TileWarper();
    TileWarper(const TileWarper&) = delete;
    TileWarper& operator=(const TileWarper&) = delete;

    /**
     * Imagery: fills `rgba` (width * height * 4 bytes, rows from the north) with the
     * window's colours; alpha 0 where no source has data (outside the inputs, their
     * nodata pixels, their transparent pixels), partial alpha along the edges of the
     * data. Where sources overlap, later ones lie on top. Returns false when the
     * whole window is transparent. Throws Error naming the input when reading fails.
     */
    bool warpImagery(const MercatorWindow& window, std::uint8_t* rgba);

    /**
     * Elevation: fills `heights` (width * height) with metres, NaN where the
     * sources have no height (voids, nodata, outside them), and `covered` with 1
     * where the pixel lies within a source's extent (a void there is a hole to
     * fill; outside every extent there is just no data). Returns false when no
     * pixel is covered. Throws Error naming the input when reading fails.
     */
    bool warpHeights(const MercatorWindow& window, float* heights, std::uint8_t* covered);

private:
    struct SourceWarp
    {
        const WarpSource* source = nullptr;
        void* transformer = nullptr; // pixel grid of the window <-> source pixels
        void* approximate = nullptr; // the same, interpolated within GDAL's error bound
        GDALWarpOptions* options = nullptr;
        bool byteData = true;
    };

    /** Warps one source into its target dataset; false when it has no pixel there. */
    bool warpSource(SourceWarp& warp, const MercatorWindow& window);
    /** Marks in `covered` the pixels of the window inside the source's extent. */
    void markCoverage(const SourceWarp& warp, std::uint8_t* covered);

    const GeoMosaic& _mosaic;
    int _width;
    int _height;
    RasterKind _kind;
    std::vector<SourceWarp> _warps;
    DatasetPtr _byteTarget;
    DatasetPtr _floatTarget;
    std::vector<float> _values;
    std::vector<std::uint8_t> _bytes;
    std::vector<double> _rowX;
    std::vector<double> _rowY;
    std::vector<double> _rowZ;
    std::vector<int> _rowOk;
};

} // namespace cxtiler

#endif
