// A whole-Earth equirectangular (plate carree) colour image: 8 bits per channel,
// 3 (RGB) or 4 (RGBA) channels, rows stored from the north edge down. Column i
// covers longitudes [-180 + i * 360 / width, -180 + (i + 1) * 360 / width).
#ifndef CXTILER_EQUIRECTIMAGE_H
#define CXTILER_EQUIRECTIMAGE_H

#include <cstdint>
#include <vector>

namespace cxtiler
{

class EquirectImage
{
public:
    /** `pixels` holds width * height * channels bytes, north row first. */
    EquirectImage(int width, int height, int channels, std::vector<std::uint8_t> pixels);

    int width() const { return _width; }
    int height() const { return _height; }
    int channels() const { return _channels; }
    const std::uint8_t* pixel(int column, int row) const
    {
        return _pixels.data() + (static_cast<std::size_t>(row) * _width + column) * _channels;
    }

    /** Bilinear sample at a longitude and latitude in degrees, one value per channel
     *  in 0..255. Longitudes wrap around the antimeridian; latitudes beyond the first
     *  and last row centres take the edge rows. */
    void sample(double longitude, double latitude, float* out) const;

private:
    int _width;
    int _height;
    int _channels;
    std::vector<std::uint8_t> _pixels;
};

} // namespace cxtiler

#endif
