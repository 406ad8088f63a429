// The sample's point cloud: an airborne scan, simulated, of 1.3 x 0.96 km
// around the business district (116.458 E, 39.912 N). Its points lie on the
// ground of the elevation file, as the sample's objects stand on it, and on
// the walls, roofs and roof plant of the district's buildings, the same
// designs at the same places, headings and heights as the object table;
// street trees and lawn trees stand between them, and a pond fills one open
// parcel.
//
// Classes: 2 ground (asphalt with lane markings and crossings, pavements,
// plazas, lawns), 6 building, 5 vegetation, 9 water. Intensity (0..65535)
// follows each material's reflectance and the angle at which the scanner's
// beam meets the surface; colours are those of the materials and of the
// buildings' facade textures. User data: 1 on every point of the tallest
// tower, 2 on the pond, 0 elsewhere, for the viewer's flag colouring.
//
// Written as LAS 1.4, point format 7, in WGS 84 / UTM zone 50N (EPSG:32650)
// given as OGC WKT; heights are over the ellipsoid, as the globe draws them.
#ifndef CXSAMPLE_POINTCLOUDSAMPLE_H
#define CXSAMPLE_POINTCLOUDSAMPLE_H

#include <cstdint>
#include <iosfwd>
#include <string>

namespace cxsample
{

class GroundHeights;
struct SamplePlan;

constexpr std::uint64_t kDefaultCloudPoints = 2800000;
/** Where the cloud goes below the output folder. */
extern const char* const kPointCloudPath; // "pointcloud/beijing.las"
/** Its coordinate reference system. */
extern const char* const kPointCloudCrs; // "EPSG:32650"

/** Half the cloud's extent east-west and north-south, metres. */
constexpr double kCloudHalfWidth = 650.0;
constexpr double kCloudHalfDepth = 480.0;

struct PointCloudSummary
{
    std::string path;
    std::uint64_t points = 0;
    std::uint64_t ground = 0;
    std::uint64_t buildings = 0;
    std::uint64_t vegetation = 0;
    std::uint64_t water = 0;
    std::uint64_t flagged = 0;
    std::size_t buildingCount = 0;
    std::size_t trees = 0;
};

/** Writes the cloud of about `points` points (at least that many less a
 *  tenth of a percent) into OUTPUT/pointcloud/beijing.las; throws Error when
 *  it cannot be written. The same seed gives the same file. */
PointCloudSummary writePointCloudSample(const std::string& outputDir, const SamplePlan& plan,
                                        const GroundHeights& ground, std::uint64_t seed, std::uint64_t points);

} // namespace cxsample

#endif
