// An oblique-photography-style dataset of a few city blocks north of the
// sample city, written as such datasets come: a textured mesh per tile in a
// pyramid of paged levels, in a projected system with an origin offset.
//   OUT/oblique/metadata.xml                     SRS EPSG:4547 and SRSOrigin
//   OUT/oblique/Data/Tile_+00i_+00j/             one folder per 240 m tile:
//     Tile_+00i_+00j.osgb          a paged node: the tile's coarse mesh, and
//     Tile_+00i_+00j_L1.osgb       a group of four paged quadrants (120 m),
//     Tile_+00i_+00j_L2_q.osgb     a group of four paged blocks (60 m) each,
//     Tile_+00i_+00j_L3_qb.osgb    a block's finest mesh, a lone geode.
// Every level has the ground and the roofs under an orthophoto painted by the
// program and the walls under a facade texture; finer levels have finer
// textures and ground. Lighting is baked into the colours, as in photographs.
#ifndef CXSAMPLE_OBLIQUESAMPLE_H
#define CXSAMPLE_OBLIQUESAMPLE_H

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>

namespace cxsample
{

/** Where the dataset's centre lies, in degrees. */
constexpr double kObliqueLon = 116.391;
constexpr double kObliqueLat = 39.985;
/** Its system, as metadata.xml names it. */
extern const char* const kObliqueSRS; // "EPSG:4547"
/** The folder below the output folder. */
extern const char* const kObliqueFolder; // "oblique"

struct ObliqueSummary
{
    int tiles = 0;
    int files = 0;
    std::uint64_t bytes = 0;
    std::string folder;
};

/** Writes the dataset under `outputDir`/oblique; `groundHeight(lon, lat)`
 *  gives the ground it stands on. Throws Error when it cannot write. */
ObliqueSummary writeObliqueSample(const std::string& outputDir, std::uint64_t seed,
                                  const std::function<double(double lon, double lat)>& groundHeight,
                                  std::ostream* progress);

} // namespace cxsample

#endif
