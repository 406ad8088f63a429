// Earth-centred positions of geographic points, for the globe tests.
#ifndef CXVIEWER_TESTS_GLOBE_EARTHPOINTS_H
#define CXVIEWER_TESTS_GLOBE_EARTHPOINTS_H

#include <osg/CoordinateSystemNode>
#include <osg/Math>
#include <osg/Vec3d>

namespace cxtest
{

/** The WGS84 ellipsoid. */
inline const osg::EllipsoidModel& wgs84()
{
    static const osg::ref_ptr<osg::EllipsoidModel> ellipsoid = new osg::EllipsoidModel;
    return *ellipsoid;
}

/** Earth-centred position on `ellipsoid` of a longitude and latitude in
  * degrees and a height in metres. */
inline osg::Vec3d worldOf(const osg::EllipsoidModel& ellipsoid, double lonDeg, double latDeg, double height)
{
    double x = 0.0, y = 0.0, z = 0.0;
    ellipsoid.convertLatLongHeightToXYZ(osg::DegreesToRadians(latDeg), osg::DegreesToRadians(lonDeg), height, x, y, z);
    return osg::Vec3d(x, y, z);
}

/** The same on WGS84. */
inline osg::Vec3d worldOf(double lonDeg, double latDeg, double height)
{
    return worldOf(wgs84(), lonDeg, latDeg, height);
}

} // namespace cxtest

#endif
