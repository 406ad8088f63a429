// Reads the whole-Earth sources of the pyramids that carry no georeferencing
// (any raster GDAL reads) and checks that they are what the tiler needs.
#ifndef CXTILER_SOURCEREADER_H
#define CXTILER_SOURCEREADER_H

#include "EquirectImage.h"
#include "HeightGrid.h"

#include <string>
#include <vector>

namespace cxtiler
{

/**
 * Reads an equirectangular colour image of the whole Earth (any raster GDAL reads:
 * JPEG, PNG, TIFF, JPEG 2000, ...; grey and palette images become RGB, an alpha
 * channel is kept, values of more than 8 bits are scaled as ImageryBands says).
 * Throws Error for a missing file, a file that is not a readable image, or an image
 * that is not twice as wide as it is high.
 */
EquirectImage readEquirectImage(const std::string& path);

struct HeightSource
{
    HeightGrid grid;
    /** True for the RGB-encoded SRTM tiles, whose corrupt cells need cleaning. */
    bool srtmEncoded;
    /** What was read, for the user: "SRTM tiles west.png + east.png (1350 x 675)". */
    std::string description;
};

/**
 * Reads an equirectangular elevation grid of the whole Earth from:
 *  - the two RGB-encoded SRTM tiles of the marble data (west and east hemisphere,
 *    each square, top row at 90 N, height = (int16)(G * 256 + B) metres, -32768 a
 *    void), given as the two files or as a folder holding 000000_000000.png and
 *    000000_000001.png (directly or below 0/000000/);
 *  - one RGB image with the same encoding, twice as wide as high;
 *  - one single-channel image of heights in metres, twice as wide as high: 16-bit
 *    (read as signed, -32768 a void), or any other type but 8-bit (NaN a void);
 *    the band's nodata value is a void too, its scale and offset are applied.
 * Voids come back as NaN. Throws Error for anything else.
 */
HeightSource readHeightSource(const std::vector<std::string>& inputs);

} // namespace cxtiler

#endif
