// The geocentric form of the earth manipulator: only the local frame and the
// coordinates of flights differ from CXEarthManipulator.
#include <globe/EarthManipulator>
#include <globe/MapNode>
#include <globe/TerrainEngine>

#include <osg/Math>
#include <osgUtil/IntersectionVisitor>
#include <osgUtil/LineSegmentIntersector>

#include <algorithm>
#include <cmath>

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
      _wgs84(new osg::EllipsoidModel(*rhs._wgs84)),
      _terrainAvoidance(rhs._terrainAvoidance),
      _minimumClearance(rhs._minimumClearance)
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

// ---------------------------------------------------------------------------
// Terrain avoidance

namespace
{

// The terrain lies between these heights over the ellipsoid (the deepest
// ocean trench, the highest mountain, with a margin).
constexpr double kLowestGround = -12000.0;
constexpr double kHighestGround = 10000.0;
// The focal point moves onto the ground when it is farther from it than this.
constexpr double kRegroundTolerance = 0.01;

} // namespace

void EarthManipulator::setTerrainAvoidanceMinimumDistance(double metres)
{
    if (std::isfinite(metres) && metres >= 0.0)
        _minimumClearance = metres;
}

osg::Node* EarthManipulator::terrainNode() const
{
    osg::ref_ptr<osg::CoordinateSystemNode> csn;
    if (!_csn.lock(csn) || !csn->getEllipsoidModel())
        return nullptr;
    if (auto* map = dynamic_cast<MapNode*>(csn.get()))
        return map->getTerrainEngine();
    return csn.get();
}

std::vector<osg::Vec3d> EarthManipulator::groundAlongVertical(const osg::Vec3d& world) const
{
    std::vector<osg::Vec3d> hits;
    osg::Node* terrain = terrainNode();
    const osg::EllipsoidModel* ellipsoid = frameEllipsoid();
    if (!terrain || !ellipsoid || !world.valid())
        return hits;
    double lat = 0.0, lon = 0.0, height = 0.0;
    ellipsoid->convertXYZToLatLongHeight(world.x(), world.y(), world.z(), lat, lon, height);
    if (!std::isfinite(height))
        return hits;
    osg::Vec3d top, bottom;
    ellipsoid->convertLatLongHeightToXYZ(lat, lon, std::max(height, kHighestGround), top.x(), top.y(), top.z());
    ellipsoid->convertLatLongHeightToXYZ(lat, lon, kLowestGround, bottom.x(), bottom.y(), bottom.z());

    osg::ref_ptr<osgUtil::LineSegmentIntersector> picker = new osgUtil::LineSegmentIntersector(top, bottom);
    osgUtil::IntersectionVisitor visitor(picker.get());
    visitor.setTraversalMask(getIntersectTraversalMask());
    terrain->accept(visitor);
    // The intersections come ordered from the start of the segment: highest first.
    for (const osgUtil::LineSegmentIntersector::Intersection& hit : picker->getIntersections())
        hits.push_back(hit.getWorldIntersectPoint());
    return hits;
}

bool EarthManipulator::getGroundUnder(const osg::Vec3d& world, osg::Vec3d& ground) const
{
    const std::vector<osg::Vec3d> hits = groundAlongVertical(world);
    if (hits.empty())
        return false;
    ground = hits.front();
    return true;
}

void EarthManipulator::moveEyeTo(const osg::Vec3d& eye)
{
    const osg::Vec3d toEye = eye - _center;
    const double distance = toEye.length();
    if (!(distance > 0.0) || !std::isfinite(distance))
        return;
    // The view direction in the east-north-up frame of the focal point.
    const osg::Matrixd worldToLocal = osg::Matrixd::inverse(_centerLocalToWorld);
    osg::Vec3d look = osg::Matrixd::transform3x3(-toEye / distance, worldToLocal);
    look.normalize();
    double heading = 0.0;
    getLocalEulerAngles(&heading, nullptr);
    if (osg::Vec2d(look.x(), look.y()).length() > 1e-6)
        heading = std::atan2(look.x(), look.y());
    const double pitch = std::asin(osg::clampBetween(look.z(), -1.0, 1.0));

    // The rotation of a viewpoint with that heading and pitch, as
    // setViewpoint() builds it, without its pitch limits: the ground decides.
    _centerRotation = getRotation(_center).getRotate().inverse();
    const osg::Quat a(heading, osg::Vec3d(0.0, 0.0, 1.0));
    const osg::Quat p(-pitch - osg::PI_2, osg::Vec3d(1.0, 0.0, 0.0));
    _rotation = osg::Matrixd::inverse(osg::Matrixd(a * p)).getRotate();
    _distance = distance;
    _previousUp = getUpVector(_centerLocalToWorld);
}

bool EarthManipulator::applyTerrainAvoidance()
{
    if (!_terrainAvoidance || !frameEllipsoid() || !terrainNode())
        return false;
    bool moved = false;

    // The focal point on the ground, the eye carried along.
    if (!_tetherNode.valid())
    {
        const std::vector<osg::Vec3d> hits = groundAlongVertical(_center);
        if (!hits.empty())
        {
            const osg::Vec3d nearest = *std::min_element(
                hits.begin(), hits.end(),
                [&](const osg::Vec3d& a, const osg::Vec3d& b) { return (a - _center).length2() < (b - _center).length2(); });
            if ((nearest - _center).length() > kRegroundTolerance)
            {
                setCenter(nearest);
                moved = true;
            }
        }
    }

    // The eye over the ground.
    const osg::Vec3d eye = getMatrix().getTrans();
    double lon = 0.0, lat = 0.0, height = 0.0;
    worldToGeographic(eye, lon, lat, height);
    if (!std::isfinite(height) || height > kHighestGround + _minimumClearance)
        return moved;
    osg::Vec3d ground;
    if (!getGroundUnder(eye, ground))
        return moved;
    double groundLon = 0.0, groundLat = 0.0, groundHeight = 0.0;
    worldToGeographic(ground, groundLon, groundLat, groundHeight);
    if (height - groundHeight >= _minimumClearance)
        return moved;
    moveEyeTo(geographicToWorld(lon, lat, groundHeight + _minimumClearance));
    return true;
}

void EarthManipulator::updateCamera(osg::Camera& camera)
{
    applyTerrainAvoidance();
    CXEarthManipulator::updateCamera(camera);
}

} // namespace globe
