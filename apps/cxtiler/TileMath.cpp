#include "TileMath.h"

#include <cmath>

namespace cxtiler
{

namespace
{
constexpr double kPi = 3.14159265358979323846;

double worldPixels(int zoom) { return static_cast<double>(kTileSize) * tilesAcross(zoom); }
} // namespace

double longitudeAt(double globalX, int zoom)
{
    return globalX / worldPixels(zoom) * 360.0 - 180.0;
}

double latitudeAt(double globalY, int zoom)
{
    const double mercatorY = kPi * (1.0 - 2.0 * globalY / worldPixels(zoom));
    return std::atan(std::sinh(mercatorY)) * 180.0 / kPi;
}

double globalYAt(double latitude, int zoom)
{
    const double phi = latitude * kPi / 180.0;
    const double mercatorY = std::log(std::tan(kPi / 4.0 + phi / 2.0));
    return (1.0 - mercatorY / kPi) / 2.0 * worldPixels(zoom);
}

int maxZoomForWidth(int sourceWidth)
{
    int zoom = 0;
    while (zoom < kMaxZoomLimit && worldPixels(zoom) < static_cast<double>(sourceWidth))
        ++zoom;
    return zoom;
}

} // namespace cxtiler
