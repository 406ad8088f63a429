// The geocentric form of the earth manipulator: only the local frame and the
// coordinates of flights differ from CXEarthManipulator.
#include <globe/EarthManipulator>

#include <osg/Math>

namespace globe
{

EarthManipulator::EarthManipulator()
    : CXEarthManipulator(), _wgs84(new osg::EllipsoidModel(osg::WGS_84_RADIUS_EQUATOR, osg::WGS_84_RADIUS_POLAR))
{
}

EarthManipulator::EarthManipulator(const EarthManipulator& rhs)
    : osg::Object(rhs, osg::CopyOp()),
      osg::Callback(rhs, osg::CopyOp()),
      CXEarthManipulator(rhs),
      _wgs84(new osg::EllipsoidModel(*rhs._wgs84))
{
}

EarthManipulator::~EarthManipulator() = default;

const osg::EllipsoidModel* EarthManipulator::frameEllipsoid() const
{
    osg::ref_ptr<osg::CoordinateSystemNode> csn;
    if (_csn.lock(csn))
        return csn->getEllipsoidModel();
    return _wgs84.get();
}

const osg::EllipsoidModel* EarthManipulator::getEllipsoidModel() const
{
    return frameEllipsoid();
}

osg::Vec3d EarthManipulator::geographicToWorld(double longitude, double latitude, double height) const
{
    const osg::EllipsoidModel* ellipsoid = frameEllipsoid();
    if (!ellipsoid)
        ellipsoid = _wgs84.get();
    osg::Vec3d world;
    ellipsoid->convertLatLongHeightToXYZ(osg::DegreesToRadians(latitude), osg::DegreesToRadians(longitude), height,
                                         world.x(), world.y(), world.z());
    return world;
}

void EarthManipulator::worldToGeographic(const osg::Vec3d& world, double& longitude, double& latitude,
                                         double& height) const
{
    const osg::EllipsoidModel* ellipsoid = frameEllipsoid();
    if (!ellipsoid)
        ellipsoid = _wgs84.get();
    double lat = 0.0, lon = 0.0;
    ellipsoid->convertXYZToLatLongHeight(world.x(), world.y(), world.z(), lat, lon, height);
    longitude = osg::RadiansToDegrees(lon);
    latitude = osg::RadiansToDegrees(lat);
}

CXViewport EarthManipulator::createViewpoint(double longitude, double latitude, double height, double heading,
                                             double pitch, double range) const
{
    return CXViewport(geographicToWorld(longitude, latitude, height), heading, pitch, range);
}

void EarthManipulator::getGeographicFocalPoint(const CXViewport& vp, double& longitude, double& latitude,
                                               double& height) const
{
    worldToGeographic(vp.getFocalPoint(), longitude, latitude, height);
}

// ---------------------------------------------------------------------------
// The hooks of the local frame

osg::Matrixd EarthManipulator::computeLocalFrame(const osg::Vec3d& point) const
{
    const osg::EllipsoidModel* ellipsoid = frameEllipsoid();
    if (!ellipsoid)
        return CXEarthManipulator::computeLocalFrame(point);
    osg::Matrixd frame;
    ellipsoid->computeLocalToWorldTransformFromXYZ(point.x(), point.y(), point.z(), frame);
    return frame;
}

osg::Vec3d EarthManipulator::moveAlongSurface(const osg::Vec3d& from, const osg::Vec3d& offset) const
{
    const osg::EllipsoidModel* ellipsoid = frameEllipsoid();
    if (!ellipsoid)
        return CXEarthManipulator::moveAlongSurface(from, offset);

    // Step in the tangent plane, then back to the height the centre had.
    double lat = 0.0, lon = 0.0, height = 0.0;
    ellipsoid->convertXYZToLatLongHeight(from.x(), from.y(), from.z(), lat, lon, height);
    const osg::Vec3d moved = from + offset;
    double movedLat = 0.0, movedLon = 0.0, movedHeight = 0.0;
    ellipsoid->convertXYZToLatLongHeight(moved.x(), moved.y(), moved.z(), movedLat, movedLon, movedHeight);
    osg::Vec3d out;
    ellipsoid->convertLatLongHeightToXYZ(movedLat, movedLon, height, out.x(), out.y(), out.z());
    return out;
}

osg::Vec3d EarthManipulator::toTransitionSpace(const osg::Vec3d& world) const
{
    if (!frameEllipsoid())
        return CXEarthManipulator::toTransitionSpace(world);
    osg::Vec3d geographic;
    worldToGeographic(world, geographic.x(), geographic.y(), geographic.z());
    return geographic;
}

osg::Vec3d EarthManipulator::fromTransitionSpace(const osg::Vec3d& transition) const
{
    if (!frameEllipsoid())
        return CXEarthManipulator::fromTransitionSpace(transition);
    return geographicToWorld(transition.x(), transition.y(), transition.z());
}

double EarthManipulator::transitionGroundDistance(const osg::Vec3d& fromWorld, const osg::Vec3d& toWorld,
                                                  const osg::Vec3d& delta) const
{
    if (!frameEllipsoid())
        return CXEarthManipulator::transitionGroundDistance(fromWorld, toWorld, delta);
    double lon0, lat0, h0, lon1, lat1, h1;
    worldToGeographic(fromWorld, lon0, lat0, h0);
    worldToGeographic(toWorld, lon1, lat1, h1);
    return (geographicToWorld(lon1, lat1, 0.0) - geographicToWorld(lon0, lat0, 0.0)).length();
}

osg::Vec3d EarthManipulator::ellipsoidHomeFocalPoint(const osg::EllipsoidModel& ellipsoid) const
{
    osg::Vec3d world;
    ellipsoid.convertLatLongHeightToXYZ(0.0, osg::DegreesToRadians(-90.0), 0.0, world.x(), world.y(), world.z());
    return world;
}

} // namespace globe
