#include "EquirectImage.h"

#include "Error.h"
#include "GridSampling.h"

#include <utility>

namespace cxtiler
{

EquirectImage::EquirectImage(int width, int height, int channels, std::vector<std::uint8_t> pixels)
    : _width(width), _height(height), _channels(channels), _pixels(std::move(pixels))
{
    if (width < 1 || height < 1 || (channels != 3 && channels != 4)
        || _pixels.size() != static_cast<std::size_t>(width) * height * channels)
        throw Error("internal error: inconsistent image buffer");
}

void EquirectImage::sample(double longitude, double latitude, float* out) const
{
    const BilinearCell cell = bilinearCell(longitude, latitude, _width, _height);
    const std::uint8_t* p00 = pixel(cell.x0, cell.y0);
    const std::uint8_t* p10 = pixel(cell.x1, cell.y0);
    const std::uint8_t* p01 = pixel(cell.x0, cell.y1);
    const std::uint8_t* p11 = pixel(cell.x1, cell.y1);
    for (int c = 0; c < _channels; ++c)
    {
        const float top = p00[c] + (p10[c] - p00[c]) * cell.fx;
        const float bottom = p01[c] + (p11[c] - p01[c]) * cell.fx;
        out[c] = top + (bottom - top) * cell.fy;
    }
}

} // namespace cxtiler
