#include <globe/GeoPoint>

#include <osg/Math>

#include <sstream>

namespace globe
{

const GeoPoint GeoPoint::INVALID;

GeoPoint::GeoPoint() : _srs(nullptr), _p(0.0, 0.0, 0.0) {}

GeoPoint::GeoPoint(const SpatialReference* srs, double x, double y, double z) : _srs(srs), _p(x, y, z) {}

GeoPoint::GeoPoint(const SpatialReference* srs, const osg::Vec3d& xyz) : _srs(srs), _p(xyz) {}

GeoPoint::~GeoPoint() = default;

bool GeoPoint::transform(const SpatialReference* outSRS, GeoPoint& output) const
{
    if (!valid() || !outSRS)
        return false;
    osg::Vec3d out;
    if (!_srs->transform(_p, outSRS, out))
        return false;
    output = GeoPoint(outSRS, out);
    return true;
}

GeoPoint GeoPoint::transform(const SpatialReference* outSRS) const
{
    GeoPoint output;
    transform(outSRS, output);
    return output;
}

bool GeoPoint::toWorld(osg::Vec3d& out_world) const
{
    return valid() && _srs->transformToWorld(_p, out_world);
}

bool GeoPoint::fromWorld(const SpatialReference* srs, const osg::Vec3d& world)
{
    if (!srs)
        return false;
    osg::Vec3d p;
    if (!srs->transformFromWorld(world, p))
        return false;
    _srs = srs;
    _p = p;
    return true;
}

bool GeoPoint::createLocalToWorld(osg::Matrixd& out_local2world) const
{
    if (!valid())
        return false;
    const SpatialReference* geographic = SpatialReference::create("wgs84");
    osg::Vec3d lonLatHeight;
    if (!_srs->transform(_p, geographic, lonLatHeight))
        return false;
    geographic->getEllipsoid()->computeLocalToWorldTransformFromLatLongHeight(
        osg::DegreesToRadians(lonLatHeight.y()), osg::DegreesToRadians(lonLatHeight.x()), lonLatHeight.z(),
        out_local2world);
    return true;
}

bool GeoPoint::createWorldToLocal(osg::Matrixd& out_world2local) const
{
    osg::Matrixd local2world;
    if (!createLocalToWorld(local2world))
        return false;
    out_world2local.invert(local2world);
    return true;
}

std::string GeoPoint::toString() const
{
    std::ostringstream out;
    out.precision(12);
    out << _p.x() << ", " << _p.y() << ", " << _p.z();
    if (_srs)
        out << " (" << _srs->getName() << ")";
    return out.str();
}

bool GeoPoint::operator==(const GeoPoint& rhs) const
{
    if (!valid() && !rhs.valid())
        return true;
    if (valid() != rhs.valid())
        return false;
    return _p == rhs._p && (_srs == rhs._srs || _srs->isEquivalentTo(rhs._srs));
}

} // namespace globe
