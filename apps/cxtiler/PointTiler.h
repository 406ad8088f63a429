// `cxtiler points`: point cloud files to the viewer's paged octree of tiles.
//
// Two passes over the inputs: the first checks every file and finds the
// cloud's bounds and count, the second places the points into the octree
// (PointOctree.h), which the tile writer (PointTileWriter.h) turns into
// files as the nodes are chosen. The tile set is written into a temporary
// folder beside OUTDIR (spill files included) and renamed into place once
// complete; a failure or an interrupt removes it, and an existing tile set at
// OUTDIR stays until the new one replaces it.
#ifndef CXTILER_POINTTILER_H
#define CXTILER_POINTTILER_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace cxtiler
{

/** Defaults of the command line. */
constexpr std::size_t kDefaultMaxPointsPerTile = 20000;
constexpr double kDefaultLodFactor = 3.0;
constexpr std::size_t kDefaultMaxMemoryMB = 512;

/** The name of the small description written beside the root file. */
extern const char* const kPointCloudInfoFile; // "cloud.json"

struct PointTilerOptions
{
    std::vector<std::string> inputs;
    std::string output;
    /** The inputs' CRS, overriding what they carry (anything PROJ takes). */
    std::string srs;
    std::size_t maxPointsPerTile = kDefaultMaxPointsPerTile;
    /** Child tiles load within lodFactor * cube edge of the cube's centre. */
    double lodFactor = kDefaultLodFactor;
    /** Memory for the points and tiles at work, beside the program itself. */
    std::size_t maxMemoryMB = kDefaultMaxMemoryMB;
    /** When non-zero, the number of points worked in memory at once, instead
     *  of what maxMemoryMB allows (lets tests stream small clouds). */
    std::uint64_t memoryPoints = 0;
    bool quiet = false;
};

struct PointTilerSummary
{
    std::uint64_t points = 0;
    std::uint64_t tiles = 0;
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
    int depth = 0;
    std::uint64_t spilledPoints = 0;
    std::string crsName;
};

/** Tiles the cloud; progress goes to `out` (a line redrawn in place when
 *  `interactive`). Throws Error for bad input or an unwritable output, and
 *  then leaves no OUTDIR behind (an earlier one stays as it was). */
PointTilerSummary tilePointCloud(const PointTilerOptions& options, std::ostream& out, bool interactive);

} // namespace cxtiler

#endif
