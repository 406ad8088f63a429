// The terrain model: a park of a few square kilometres with a wooded hill, a
// lower mound and a lake, as a textured height mesh at four grid spacings.
// The ground of the park lies a little above the surrounding ground, follows
// its rise and fall (so that the globe's own surface does not show through),
// falls to it at the edges, and a skirt around the border hides any gap to
// the globe's surface.
#ifndef CXSAMPLE_TERRAINMODEL_H
#define CXSAMPLE_TERRAINMODEL_H

#include "Model.h"

#include <osg/Image>
#include <osg/Node>
#include <osg/Vec2d>

#include <cstdint>
#include <functional>
#include <string>

namespace cxsample
{

struct ParkDesign
{
    std::string stem = "park";
    double width = 2000.0; // east-west, metres
    double depth = 1600.0; // north-south
    double lawnLevel = 1.2;  // the park's ground over the surrounding ground
    double edgeRamp = 45.0;  // distance over which it falls to that ground at the border
    osg::Vec2d hill{-430.0, 260.0};
    double hillHeight = 46.0;
    double hillRadius = 230.0;
    osg::Vec2d mound{540.0, -420.0};
    double moundHeight = 14.0;
    double moundRadius = 170.0;
    osg::Vec2d lake{330.0, 170.0};
    osg::Vec2d lakeRadii{390.0, 250.0};
    double waterLevel = 0.7;
    double lakeDepth = 4.5;
    std::uint64_t seed = 0;
    /** The surrounding ground at (x, y) metres east and north of the object,
     *  over the ground at the object's position; none: flat. */
    std::function<double(double x, double y)> surroundings;

    /** The surrounding ground at (x, y), with the lake's neighbourhood
     *  levelled to the ground at the lake's centre so that the water lies
     *  flat between its banks. */
    double baseHeight(double x, double y) const;
    /** Height of the ground at (x, y) over the object's position. */
    double groundHeight(double x, double y) const;
    /** The lake's shore at `angle` (radians from east) as a distance from its
     *  centre; > 1 outside, < 1 inside when divided into the point's distance. */
    double shoreRadius(double angle) const;
    /** The point's distance from the lake centre over the shore's, so 1 on the
     *  shore. */
    double lakeFraction(double x, double y) const;
};

/** The grid of a level: points along x (those along y follow the aspect). */
int terrainGridColumns(Lod lod);

/** The park's texture at size x size pixels (the fine one; the other levels
 *  shrink it). */
osg::ref_ptr<osg::Image> parkImage(const ParkDesign& design, int size);

/** The park at one level of detail; `fineImage` is parkImage's result, shared
 *  by the levels. */
osg::ref_ptr<osg::Node> terrainModel(const ParkDesign& design, Lod lod, const osg::Image& fineImage);

} // namespace cxsample

#endif
