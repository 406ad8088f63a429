// The sample's sky for a sky box: a cube map of six faces painted by the
// program, a field of stars over a night sky with a glow along the horizon
// (on both sides of it: below the horizon the ground hides the sky on a
// globe, and from space it lies behind the Earth).
//   OUT/skybox/posx.png negx.png posy.png negy.png posz.png negz.png
// The faces follow OpenGL's cube map conventions (face +X is what is seen
// looking along +X, with OpenGL's orientation of s and t on it), rows from the
// bottom as osg::Image keeps them; +Z is up, so the horizon is the plane
// z = 0, the glow is warmest towards -X (west, when +X is east and +Y north).
// Every pixel's colour is a function of its direction alone, stars included,
// so the faces meet without a seam.
#ifndef CXSAMPLE_SKYBOXIMAGES_H
#define CXSAMPLE_SKYBOXIMAGES_H

#include <osg/Image>
#include <osg/Vec3>
#include <osg/Vec3d>

#include <array>
#include <cstdint>
#include <iosfwd>
#include <string>

namespace cxsample
{

/** The folder below the output folder. */
extern const char* const kSkyBoxFolder; // "skybox"
/** The faces' file stems in the order +X, -X, +Y, -Y, +Z, -Z. */
extern const std::array<const char*, 6> kSkyBoxFaceNames; // "posx", "negx", ...
/** Pixels along a face's edge. */
constexpr int kSkyBoxFaceSize = 512;

/** The direction through texture coordinates (s, t) in [0, 1] of `face` (0 to
  * 5 in the order of kSkyBoxFaceNames), not normalised. */
osg::Vec3d cubeFaceDirection(int face, double s, double t);

/** The face and the texture coordinates of a direction: the inverse of
  * cubeFaceDirection. */
void cubeFaceOf(const osg::Vec3d& direction, int& face, double& s, double& t);

/** The sky's colour towards `direction` without the stars, each channel in
  * [0, 1]. */
osg::Vec3 skyColour(const osg::Vec3d& direction);

/** The six faces, size x size, RGB, in the order of kSkyBoxFaceNames. The
  * same seed gives the same stars. */
std::array<osg::ref_ptr<osg::Image>, 6> skyBoxFaces(int size, std::uint64_t seed);

struct SkyBoxSummary
{
    std::string folder;
    int faces = 0;
    int stars = 0;
    std::uint64_t bytes = 0;
};

/** Writes the faces under `outputDir`/skybox, each appearing only once
  * complete. Throws Error when it cannot write. */
SkyBoxSummary writeSkyBoxImages(const std::string& outputDir, std::uint64_t seed, std::ostream* progress,
                                int size = kSkyBoxFaceSize);

} // namespace cxsample

#endif
