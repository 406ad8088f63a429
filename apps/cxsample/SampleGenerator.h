// Writes the sample's scene objects under an output folder:
//   OUT/models/buildings/<stem>_{fine,middle,crude,crude2}.osgb
//   OUT/models/terrain/park_{fine,middle,crude,crude2}.osgb
//   OUT/models/pipes/<stem>_{fine,middle,crude,crude2}.osgb
//   OUT/data/objects.csv   the objects, each naming its crude file relative to
//                          OUT/models/ (the viewer's model root)
//   OUT/oblique/           an oblique photography dataset of a few blocks
//                          (metadata.xml, Data/Tile_*/*.osgb; ObliqueSample.h)
//   OUT/icon/, OUT/myselftest/data/mapscale.png
//                          the pictures of the viewer's heads-up display
//                          (HudImages.h)
//   OUT/pointcloud/beijing.las  a point cloud of the business district
//                          (LAS 1.4; PointCloudSample.h)
//   OUT/skybox/            a sky box's cube map: six faces posx, negx, posy,
//                          negy, posz, negz.png (SkyBoxImages.h)
// The same seed gives the same files, byte for byte.
#ifndef CXSAMPLE_SAMPLEGENERATOR_H
#define CXSAMPLE_SAMPLEGENERATOR_H

#include "PointCloudSample.h"

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace cxsample
{

constexpr std::uint64_t kDefaultSeed = 20240611;

/** Where things go below the output folder. */
extern const char* const kModelsFolder; // "models"
extern const char* const kCsvPath;      // "data/objects.csv"

struct GeneratorOptions
{
    std::string outputDir;
    /** Elevation MBTiles for the ground heights; empty: heights 0. */
    std::string demPath;
    /** The imagery shown with it, which decides how deep the globe's terrain
     *  goes and so the ground the oblique dataset lies on; may be empty. */
    std::string imagePath;
    std::uint64_t seed = kDefaultSeed;
    /** Points of the sample's point cloud (pointcloud/beijing.las); 0: none. */
    std::uint64_t cloudPoints = kDefaultCloudPoints;
};

struct GeneratorSummary
{
    std::size_t objects = 0;
    std::size_t buildings = 0;
    std::size_t terrains = 0;
    std::size_t pipes = 0;
    std::size_t modelFiles = 0;
    std::uint64_t modelBytes = 0;
    std::string csvPath;
    std::string modelsDir;
    std::string obliqueFolder;
    std::vector<std::string> hudImages;
    std::string pointCloud;
    std::uint64_t cloudPoints = 0;
    std::string skyBoxFolder;
};

/** Plans and writes the sample, with progress lines on `progress` (none when
 *  null); throws Error when something cannot be read or written. */
GeneratorSummary generateSample(const GeneratorOptions& options, std::ostream* progress);

} // namespace cxsample

#endif
