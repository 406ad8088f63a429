// Building footprints in local metres (x east, y north), centred on their
// bounding rectangle: the outline loops for the walls and convex pieces that
// cover the area for the roofs.
#ifndef CXSAMPLE_FOOTPRINT_H
#define CXSAMPLE_FOOTPRINT_H

#include <osg/Vec2d>

#include <vector>

namespace cxsample
{

using Ring = std::vector<osg::Vec2d>;

struct Footprint
{
    /** The outline: the first loop counter-clockwise, courtyards clockwise, so
     *  that the building always lies on the left of an edge. */
    std::vector<Ring> loops;
    /** Convex counter-clockwise pieces that together cover the footprint. */
    std::vector<Ring> pieces;

    osg::Vec2d min() const;
    osg::Vec2d max() const;
    double width() const { return max().x() - min().x(); }
    double depth() const { return max().y() - min().y(); }

    static Footprint rectangle(double width, double depth, const osg::Vec2d& centre = osg::Vec2d());
    /** A rectangle with its corners cut by `chamfer`. */
    static Footprint octagon(double width, double depth, double chamfer);
    /** A wing along the south side (`southWing` deep) and one along the west
     *  side (`westWing` wide). */
    static Footprint lShape(double width, double depth, double westWing, double southWing);
    /** Open to the north: a south wing `back` deep, side wings `wing` wide. */
    static Footprint uShape(double width, double depth, double wing, double back);
    /** A closed ring of wings `wing` deep around a courtyard. */
    static Footprint courtyard(double width, double depth, double wing);
};

/** `ring` moved by `distance` to the left of its edges (into the building for
 *  both outer loops and courtyards), corners mitred. */
Ring insetRing(const Ring& ring, double distance);

} // namespace cxsample

#endif
