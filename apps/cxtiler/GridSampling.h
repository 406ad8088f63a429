// Where a longitude and latitude fall between the pixel centres of a whole-Earth
// equirectangular grid: the four neighbouring cells and the bilinear weights.
#ifndef CXTILER_GRIDSAMPLING_H
#define CXTILER_GRIDSAMPLING_H

#include <algorithm>
#include <cmath>

namespace cxtiler
{

struct BilinearCell
{
    int x0, x1; // columns, wrapped around the antimeridian
    int y0, y1; // rows from the north, clamped to the grid
    float fx;   // weight of x1
    float fy;   // weight of y1
};

inline BilinearCell bilinearCell(double longitude, double latitude, int width, int height)
{
    // Pixel centres sit at half-pixel positions: column i at
    // lon = -180 + (i + 0.5) * 360 / width, row j at lat = 90 - (j + 0.5) * 180 / height.
    const double fx = (longitude + 180.0) / 360.0 * width - 0.5;
    const double fy = (90.0 - latitude) / 180.0 * height - 0.5;

    BilinearCell cell{};
    const double xFloor = std::floor(fx);
    cell.fx = static_cast<float>(fx - xFloor);
    long x0 = static_cast<long>(xFloor) % width;
    if (x0 < 0)
        x0 += width;
    cell.x0 = static_cast<int>(x0);
    cell.x1 = cell.x0 + 1 == width ? 0 : cell.x0 + 1;

    const double yClamped = std::clamp(fy, 0.0, static_cast<double>(height - 1));
    const double yFloor = std::floor(yClamped);
    cell.y0 = static_cast<int>(yFloor);
    cell.y1 = std::min(cell.y0 + 1, height - 1);
    cell.fy = static_cast<float>(yClamped - yFloor);
    return cell;
}

} // namespace cxtiler

#endif
