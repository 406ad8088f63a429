// Small helpers shared by the manipulator's sources; not installed.
#ifndef CXVIEWER_NAVIGATION_MANIPULATORMATH_H
#define CXVIEWER_NAVIGATION_MANIPULATORMATH_H

#include <osg/Quat>
#include <osg/Vec3d>

namespace cxnav
{

/** The rotation that takes `from` to `to`; none when either is zero (an up
  * vector not yet known), where makeRotate would divide by zero. */
inline osg::Quat rotationBetween(const osg::Vec3d& from, const osg::Vec3d& to)
{
    osg::Quat q;
    if (from.length2() > 0.0 && to.length2() > 0.0)
        q.makeRotate(from, to);
    return q;
}

} // namespace cxnav

#endif
