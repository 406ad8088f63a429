#include "Footprint.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace cxsample
{

namespace
{

Ring rectangleRing(double x0, double y0, double x1, double y1)
{
    return {osg::Vec2d(x0, y0), osg::Vec2d(x1, y0), osg::Vec2d(x1, y1), osg::Vec2d(x0, y1)};
}

} // namespace

osg::Vec2d Footprint::min() const
{
    osg::Vec2d low(std::numeric_limits<double>::max(), std::numeric_limits<double>::max());
    for (const Ring& ring : loops)
        for (const osg::Vec2d& p : ring)
            low.set(std::min(low.x(), p.x()), std::min(low.y(), p.y()));
    return low;
}

osg::Vec2d Footprint::max() const
{
    osg::Vec2d high(std::numeric_limits<double>::lowest(), std::numeric_limits<double>::lowest());
    for (const Ring& ring : loops)
        for (const osg::Vec2d& p : ring)
            high.set(std::max(high.x(), p.x()), std::max(high.y(), p.y()));
    return high;
}

Footprint Footprint::rectangle(double width, double depth, const osg::Vec2d& centre)
{
    const double x0 = centre.x() - width / 2, x1 = centre.x() + width / 2;
    const double y0 = centre.y() - depth / 2, y1 = centre.y() + depth / 2;
    Footprint f;
    f.loops.push_back(rectangleRing(x0, y0, x1, y1));
    f.pieces = f.loops;
    return f;
}

Footprint Footprint::octagon(double width, double depth, double chamfer)
{
    const double w = width / 2, d = depth / 2, c = chamfer;
    Footprint f;
    f.loops.push_back({osg::Vec2d(-w + c, -d), osg::Vec2d(w - c, -d), osg::Vec2d(w, -d + c), osg::Vec2d(w, d - c),
                       osg::Vec2d(w - c, d), osg::Vec2d(-w + c, d), osg::Vec2d(-w, d - c), osg::Vec2d(-w, -d + c)});
    f.pieces = f.loops;
    return f;
}

Footprint Footprint::lShape(double width, double depth, double westWing, double southWing)
{
    const double w = width / 2, d = depth / 2;
    Footprint f;
    f.loops.push_back({osg::Vec2d(-w, -d), osg::Vec2d(w, -d), osg::Vec2d(w, -d + southWing),
                       osg::Vec2d(-w + westWing, -d + southWing), osg::Vec2d(-w + westWing, d), osg::Vec2d(-w, d)});
    f.pieces.push_back(rectangleRing(-w, -d, w, -d + southWing));
    f.pieces.push_back(rectangleRing(-w, -d + southWing, -w + westWing, d));
    return f;
}

Footprint Footprint::uShape(double width, double depth, double wing, double back)
{
    const double w = width / 2, d = depth / 2;
    Footprint f;
    f.loops.push_back({osg::Vec2d(-w, -d), osg::Vec2d(w, -d), osg::Vec2d(w, d), osg::Vec2d(w - wing, d),
                       osg::Vec2d(w - wing, -d + back), osg::Vec2d(-w + wing, -d + back), osg::Vec2d(-w + wing, d),
                       osg::Vec2d(-w, d)});
    f.pieces.push_back(rectangleRing(-w, -d, w, -d + back));
    f.pieces.push_back(rectangleRing(-w, -d + back, -w + wing, d));
    f.pieces.push_back(rectangleRing(w - wing, -d + back, w, d));
    return f;
}

Footprint Footprint::courtyard(double width, double depth, double wing)
{
    const double w = width / 2, d = depth / 2;
    Footprint f;
    f.loops.push_back(rectangleRing(-w, -d, w, d));
    Ring yard = rectangleRing(-w + wing, -d + wing, w - wing, d - wing);
    std::reverse(yard.begin(), yard.end());
    f.loops.push_back(yard);
    f.pieces.push_back(rectangleRing(-w, -d, w, -d + wing));
    f.pieces.push_back(rectangleRing(-w, d - wing, w, d));
    f.pieces.push_back(rectangleRing(-w, -d + wing, -w + wing, d - wing));
    f.pieces.push_back(rectangleRing(w - wing, -d + wing, w, d - wing));
    return f;
}

Ring insetRing(const Ring& ring, double distance)
{
    Ring inset;
    const std::size_t n = ring.size();
    for (std::size_t i = 0; i < n; ++i)
    {
        const osg::Vec2d& previous = ring[(i + n - 1) % n];
        const osg::Vec2d& here = ring[i];
        const osg::Vec2d& next = ring[(i + 1) % n];
        osg::Vec2d in = here - previous, out = next - here;
        in.normalize();
        out.normalize();
        const osg::Vec2d leftIn(-in.y(), in.x()), leftOut(-out.y(), out.x());
        const double mitre = 1.0 + leftIn * leftOut;
        inset.push_back(here + (leftIn + leftOut) * (distance / mitre));
    }
    return inset;
}

} // namespace cxsample
