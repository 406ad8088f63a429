// Spherical mercator tile arithmetic (EPSG:3857 tiling, 256 x 256 pixel tiles,
// XYZ rows counted from the north; MBTiles stores TMS rows counted from the south).
#ifndef CXTILER_TILEMATH_H
#define CXTILER_TILEMATH_H

namespace cxtiler
{

constexpr int kTileSize = 256;

/** Northern (and, negated, southern) limit of the square mercator world. */
constexpr double kMaxMercatorLatitude = 85.05112877980659;

/** Deepest zoom level accepted from the command line (about 4 cm per pixel at
 *  the equator: finer than any imagery the tool is meant for). */
constexpr int kMaxZoomLimit = 22;

/** Half the width of the spherical mercator world in EPSG:3857 metres (pi * 6378137). */
constexpr double kMercatorHalfWorld = 20037508.342789244;

/** Number of tiles along one side of the world at `zoom`. */
inline int tilesAcross(int zoom) { return 1 << zoom; }

/** MBTiles row of the XYZ row `y`: rows count from the south. */
inline int tmsRow(int zoom, int y) { return tilesAcross(zoom) - 1 - y; }

/** Longitude in degrees of a position `globalX` pixels from the west edge of the
 *  world at `zoom` (the world is 256 * 2^zoom pixels wide). */
double longitudeAt(double globalX, int zoom);

/** Latitude in degrees of a position `globalY` pixels south of the north edge of
 *  the mercator world at `zoom`. */
double latitudeAt(double globalY, int zoom);

/** The inverse of latitudeAt: pixels south of the north edge at `zoom`. */
double globalYAt(double latitude, int zoom);

/** The smallest zoom whose equator carries at least as many pixels as a whole-world
 *  equirectangular source `sourceWidth` pixels wide, so that no source detail is lost. */
int maxZoomForWidth(int sourceWidth);

/** EPSG:3857 metres of a pixel at `zoom` (the same everywhere in mercator units). */
double mercatorPixelSize(int zoom);

/** The smallest zoom whose pixel is no larger than `mercatorMetres`, the size of a
 *  source pixel expressed in EPSG:3857 metres; kMaxZoomLimit at most. */
int maxZoomForPixelSize(double mercatorMetres);

/** EPSG:3857 coordinates of a longitude and of a latitude (clamped to the square world). */
double mercatorX(double longitude);
double mercatorY(double latitude);

/** Pixels from the west (north) edge of the world at `zoom` of an EPSG:3857 x (y). */
double globalXOfMercator(double x, int zoom);
double globalYOfMercator(double y, int zoom);

/** EPSG:3857 x (y) of a position `globalX` (`globalY`) pixels from the west (north)
 *  edge of the world at `zoom`. */
double mercatorXOfGlobal(double globalX, int zoom);
double mercatorYOfGlobal(double globalY, int zoom);

} // namespace cxtiler

#endif
