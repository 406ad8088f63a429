#include "TileMath.h"

#include <algorithm>
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

double mercatorPixelSize(int zoom) { return 2.0 * kMercatorHalfWorld / worldPixels(zoom); }

int maxZoomForPixelSize(double mercatorMetres)
{
    // A relative tolerance so that a source pixel of exactly a level's size picks
    // that level despite rounding in its computation.
    int zoom = 0;
    while (zoom < kMaxZoomLimit && mercatorPixelSize(zoom) > mercatorMetres * (1.0 + 1e-9))
        ++zoom;
    return zoom;
}

double mercatorX(double longitude) { return longitude / 180.0 * kMercatorHalfWorld; }

double mercatorY(double latitude)
{
    const double clamped = std::clamp(latitude, -kMaxMercatorLatitude, kMaxMercatorLatitude);
    const double phi = clamped * kPi / 180.0;
    return std::log(std::tan(kPi / 4.0 + phi / 2.0)) / kPi * kMercatorHalfWorld;
}

double globalXOfMercator(double x, int zoom)
{
    return (x + kMercatorHalfWorld) / (2.0 * kMercatorHalfWorld) * worldPixels(zoom);
}

double globalYOfMercator(double y, int zoom)
{
    return (kMercatorHalfWorld - y) / (2.0 * kMercatorHalfWorld) * worldPixels(zoom);
}

double mercatorXOfGlobal(double globalX, int zoom) { return globalX * mercatorPixelSize(zoom) - kMercatorHalfWorld; }

double mercatorYOfGlobal(double globalY, int zoom) { return kMercatorHalfWorld - globalY * mercatorPixelSize(zoom); }

int maxZoomForWidth(int sourceWidth)
{
    int zoom = 0;
    while (zoom < kMaxZoomLimit && worldPixels(zoom) < static_cast<double>(sourceWidth))
        ++zoom;
    return zoom;
}

} // namespace cxtiler
