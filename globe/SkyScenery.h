// The scenery of the sky: the dark of space over the whole window, a field
// of stars at infinity, and (SkyNode's) the atmosphere shell. They are drawn
// after the opaque scene and before the transparent one, at the back of the
// depth range, tested against the scene's depth and writing none: they fill
// only the pixels the scene left empty, and the costly atmosphere is not
// computed where the ground hides it.
#ifndef CXVIEWER_GLOBE_SKYSCENERY_H
#define CXVIEWER_GLOBE_SKYSCENERY_H

#include <osg/Geode>
#include <osg/StateSet>
#include <osg/Uniform>
#include <osg/Vec4>

namespace globe
{
namespace detail
{

/** Render bins of the scenery, in drawing order: after the opaque bin (0),
  * before the depth-sorted transparent one (10). */
constexpr int kSpaceBin = 7;
constexpr int kStarBin = 8;
constexpr int kAtmosphereBin = 9;

/** The state of scenery drawn at the back of the depth range (its shaders
  * put every vertex there, z = w): depth test less-or-equal against what the
  * scene drew, no depth writes, no lighting, no face culling, in `bin`. */
void setBehindTheScene(osg::StateSet& stateSet, int bin);

/** The colour of space where no star shines. */
const osg::Vec4 kSpaceColour(0.008f, 0.01f, 0.022f, 1.0f);

/** A quad over the whole window in the colour of space, at the back of the
  * depth range whatever the camera's matrices. */
osg::Geode* createSpace();

/** `count` stars on the celestial sphere: directions in equatorial
  * coordinates (x towards the vernal equinox, z to the north celestial
  * pole), spread evenly, with magnitudes as the sky has them (three times
  * as many stars each magnitude fainter, down to 6.5), each a point of one
  * to three pixels from white-blue to yellow-white. The same `seed` gives the
  * same sky. The uniform `rotation` (a mat4) turns equatorial coordinates
  * into world (geocentric) ones: it follows the Earth's rotation, see
  * celestialToWorld(). */
osg::Geode* createStars(unsigned int count, unsigned int seed, osg::Uniform* rotation);

/** The rotation from equatorial to geocentric coordinates at a Greenwich
  * sidereal time (degrees): a turn of -GMST about the polar axis. */
osg::Matrixf celestialToWorld(double greenwichSiderealTimeDegrees);

} // namespace detail
} // namespace globe

#endif
