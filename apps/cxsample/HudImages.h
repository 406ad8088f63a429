// The pictures of the viewer's heads-up display, painted by the program with
// an alpha channel (transparent around the shapes):
//   OUT/icon/Compass.PNG             the compass needle: a rose of four points,
//                                    the north one red, and an "N" at its tip
//   OUT/icon/plate.PNG               the dial it turns on: a translucent disc,
//                                    a rim and ticks every 10 degrees
//   OUT/myselftest/data/mapscale.png the scale bar: two black and white
//                                    segments with end ticks
// The viewer draws the compass and the plate as squares of 100 x 100 pixels,
// and the scale bar's picture stretched over a corner of 150 x 30 pixels of
// which it shows the part that mapscale.png's bar is drawn in (see
// kScaleBar* below); the bar spans 30 pixels of the screen, the length the
// viewer's scale text measures. Images are RGBA, row 0 at the bottom.
#ifndef CXSAMPLE_HUDIMAGES_H
#define CXSAMPLE_HUDIMAGES_H

#include <osg/Image>

#include <string>
#include <vector>

namespace cxsample
{

/** Where the pictures go below the output folder. */
extern const char* const kCompassImagePath;  // "icon/Compass.PNG"
extern const char* const kPlateImagePath;    // "icon/plate.PNG"
extern const char* const kScaleBarImagePath; // "myselftest/data/mapscale.png"

/** The scale bar's picture and where its bar lies in it, in the picture's
 *  pixels (x from the left, y from the bottom). The viewer shows the whole
 *  picture 150 x 60 screen pixels large, its left edge 12.5 pixels from the
 *  window's left edge and its bottom 15 pixels below the window, so that the
 *  window's bottom 30 pixels show its rows 30 to 90: two picture pixels make
 *  one screen pixel, and the bar's 60 pixels are the 30 screen pixels that
 *  the scale text measures, from 50 pixels off the window's left edge (under
 *  the scale text) to 80. */
constexpr int kScaleBarImageWidth = 300;
constexpr int kScaleBarImageHeight = 120;
constexpr int kScaleBarLeft = 75;   // 50 screen pixels from the window's left edge
constexpr int kScaleBarRight = 135; // 30 screen pixels further
constexpr int kScaleBarBottom = 38;
constexpr int kScaleBarTop = 54;

/** A size x size compass needle. */
osg::ref_ptr<osg::Image> compassImage(int size);
/** A size x size dial. */
osg::ref_ptr<osg::Image> plateImage(int size);
/** The kScaleBarImageWidth x kScaleBarImageHeight scale bar. */
osg::ref_ptr<osg::Image> scaleBarImage();

/** Writes the three pictures below `outputDir` (making the folders) and
 *  returns their paths; throws Error when one cannot be written. */
std::vector<std::string> writeHudImages(const std::string& outputDir);

} // namespace cxsample

#endif
