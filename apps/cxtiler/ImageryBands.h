// Where the colour of an image lies in a GDAL dataset's bands, and how its values
// become the 8-bit channels of the tiles.
#ifndef CXTILER_IMAGERYBANDS_H
#define CXTILER_IMAGERYBANDS_H

#include "GdalSupport.h"

#include <cstdint>
#include <string>

namespace cxtiler
{

class ImageryBands
{
public:
    /**
     * Reads the layout of `dataset` (opened from `path`): red, green and blue from
     * the bands' colour interpretation, or the first three bands; a grey image
     * gives its one band to all three; an alpha band when one is marked as such.
     * A palette image is read through an RGB(A) expansion of its colour table.
     * 8-bit values are taken as they are; other integer types are scaled from their
     * type's whole range (a 16-bit 65535 becomes 255), floating-point values from
     * the data's minimum and maximum. Throws Error for complex-valued bands.
     */
    ImageryBands(GDALDatasetH dataset, const std::string& path);

    /** The dataset to read: the original, or the expansion of its palette. */
    GDALDatasetH dataset() const { return _expanded ? static_cast<GDALDatasetH>(_expanded.get()) : _original; }
    int red() const { return _bands[0]; }
    int green() const { return _bands[1]; }
    int blue() const { return _bands[2]; }
    const int* colourBands() const { return _bands; }
    /** The alpha band, 0 when there is none. */
    int alpha() const { return _alpha; }
    bool grey() const { return _bands[0] == _bands[1] && _bands[1] == _bands[2]; }
    /** The type of the colour bands. */
    GDALDataType type() const { return _type; }
    /** The largest value of the alpha band (fully opaque). */
    double alphaMax() const { return _alphaMax; }

    /** 8-bit value of a band value: value * scale + offset, rounded and clamped. */
    double scale() const { return _scale; }
    double offset() const { return _offset; }
    std::uint8_t toByte(double value) const
    {
        const double v = value * _scale + _offset + 0.5;
        return static_cast<std::uint8_t>(!(v > 0.0) ? 0.0 : (v >= 255.0 ? 255.0 : v));
    }

private:
    GDALDatasetH _original;
    DatasetPtr _expanded;
    int _bands[3] = {1, 1, 1};
    int _alpha = 0;
    GDALDataType _type = GDT_Byte;
    double _scale = 1.0;
    double _offset = 0.0;
    double _alphaMax = 255.0;
};

} // namespace cxtiler

#endif
