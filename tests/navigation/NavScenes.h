// Test scenes for the manipulators: a flat textured plane and a WGS84 globe,
// each under an osg::CoordinateSystemNode (the globe's with its ellipsoid).
#ifndef CXVIEWER_TESTS_NAVSCENES_H
#define CXVIEWER_TESTS_NAVSCENES_H

#include <osg/CoordinateSystemNode>
#include <osg/Vec3d>
#include <osg/Vec4ub>

namespace navtest
{

/** A square plane at z = 0 centred on the origin, 2 * halfSize wide, with a
  * checker texture of 8 x 8 squares (dark and light grey) and a red square
  * marker one sixteenth of the plane wide around the origin. No ellipsoid. */
osg::ref_ptr<osg::CoordinateSystemNode> makeFlatScene(double halfSize = 1000.0);

/** Colour of the flat scene's texture at a point of the plane. */
osg::Vec4ub flatSceneColour(double x, double y, double halfSize = 1000.0);

/** The WGS84 ellipsoid as a mesh: tiles of 10 x 10 degrees in cells of two
  * degrees, each tile with its vertices relative to a tile-centre transform,
  * coloured as a checker of the tiles (blue and green), under a coordinate
  * system node that carries the WGS84 osg::EllipsoidModel. */
osg::ref_ptr<osg::CoordinateSystemNode> makeGlobeScene();

/** World position of longitude/latitude (degrees) and height on WGS84. */
osg::Vec3d wgs84ToWorld(double longitude, double latitude, double height = 0.0);
/** Longitude/latitude (degrees) and height of a world position on WGS84. */
void wgs84FromWorld(const osg::Vec3d& world, double& longitude, double& latitude, double& height);

} // namespace navtest

#endif
