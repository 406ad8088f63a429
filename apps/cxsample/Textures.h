// Textures painted by the program: building facades with windows, and the
// helpers that put an image on a surface. Images are RGB, row 0 at the bottom,
// and are embedded in the model files.
#ifndef CXSAMPLE_TEXTURES_H
#define CXSAMPLE_TEXTURES_H

#include <osg/Image>
#include <osg/StateSet>
#include <osg/Vec3>
#include <osg/Vec4>

#include <cstdint>
#include <functional>
#include <string>

namespace cxsample
{

/** How a facade's windows look. */
enum class FacadeStyle
{
    Punched,     // single windows in a plastered wall, some with blinds
    Ribbon,      // continuous window bands between solid spandrels
    CurtainWall, // all glass with mullions
    TwinWindows  // two narrow windows per bay
};

/** A facade texture shows this many bays across and floors up, and repeats. */
constexpr int kFacadeBays = 4;
constexpr int kFacadeFloors = 4;

/** A size x size facade of `style`; the wall parts are near white, so that the
 *  surface's vertex colour tints them. `seed` varies the window shades. */
osg::ref_ptr<osg::Image> facadeImage(FacadeStyle style, int size, std::uint64_t seed, const std::string& name);

/** An RGB image whose pixel (i, j), j from the bottom, is `colour(u, v)` at the
 *  pixel's centre, u and v in [0, 1]. */
osg::ref_ptr<osg::Image> paintImage(int width, int height, const std::string& name,
                                    const std::function<osg::Vec3(double u, double v)>& colour);

/** `image` reduced to size x size by averaging blocks of pixels (size must
 *  divide the image's size). */
osg::ref_ptr<osg::Image> shrinkImage(const osg::Image& image, int size, const std::string& name);

/** The mean colour of an RGB image. */
osg::Vec3 meanColour(const osg::Image& image);

/** A state set that puts `image` on texture unit 0, repeated, mipmapped. */
osg::ref_ptr<osg::StateSet> textureState(osg::Image* image);

} // namespace cxsample

#endif
