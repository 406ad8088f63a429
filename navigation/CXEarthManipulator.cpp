// Construction and camera state of the earth manipulator: composing the view
// matrix, reading it back, and putting the centre on the ground.
#include <navigation/CXEarthManipulator>

#include "ManipulatorMath.h"

#include <osg/Math>
#include <osgUtil/IntersectionVisitor>
#include <osgUtil/LineSegmentIntersector>

#include <cmath>

namespace
{

const osg::Vec3d kZAxis(0.0, 0.0, 1.0);

} // namespace

CXEarthManipulator::CXEarthManipulator()
{
    _savedNearFarMode._value = _savedNearFarMode._defaultValue = osg::CullSettings::ComputeNearFarMode(0);
    reinitialize();
    configureDefaultSettings();
}

// A copy shares nothing with its source but a copy of its settings; every
// other field starts as in a new manipulator.
CXEarthManipulator::CXEarthManipulator(const CXEarthManipulator& rhs)
    : osg::Object(rhs, osg::CopyOp()),
      osg::Callback(rhs, osg::CopyOp()),
      osgGA::CameraManipulator(rhs, osg::CopyOp()),
      _settings(new Settings(*rhs._settings))
{
    _savedNearFarMode._value = _savedNearFarMode._defaultValue = osg::CullSettings::ComputeNearFarMode(0);
    reinitialize();
}

CXEarthManipulator::~CXEarthManipulator()
{
    // The tether's update callback stays on the camera, which owns it; it
    // must no longer call into this object.
    osg::ref_ptr<CameraPostUpdateCallback> callback;
    if (_cameraUpdateCallback.lock(callback))
        callback->_manipulator = nullptr;
}

void CXEarthManipulator::reinitialize()
{
    _needsEstablish = true;
    _spareFlag = false;
    _deltaTime = 0.0;
    _timeFactor = 1.0;
    _throwing = false;
    _distance = 1.0;
    _offsetX = 0.0;
    _offsetY = 0.0;
    _task = new Task;
    _continuous = false;
    _pendingViewpointSet = false;
    _settingViewpoint = false;
    _arcHeight = 0.0;
    _lastAction = Action(ACTION_NULL);
    _verticalFov = 30.0;
    _tanHalfVerticalFov = std::tan(0.5 * osg::DegreesToRadians(_verticalFov));
    _lastPointOnEarth.set(0.0, 0.0, 0.0);
    _minRotatePitch = osg::DegreesToRadians(-89.9);
    _maxRotatePitch = osg::DegreesToRadians(-1.0);
}

// ---------------------------------------------------------------------------
// The local frame (identity in this class)

osg::Matrixd CXEarthManipulator::computeLocalFrame(const osg::Vec3d&) const
{
    return osg::Matrixd::identity();
}

osg::Vec3d CXEarthManipulator::moveAlongSurface(const osg::Vec3d& from, const osg::Vec3d& offset) const
{
    return from + offset;
}

osg::Vec3d CXEarthManipulator::toTransitionSpace(const osg::Vec3d& world) const
{
    return world;
}

osg::Vec3d CXEarthManipulator::fromTransitionSpace(const osg::Vec3d& transition) const
{
    return transition;
}

double CXEarthManipulator::transitionGroundDistance(const osg::Vec3d&, const osg::Vec3d&,
                                                    const osg::Vec3d& delta) const
{
    return delta.length();
}

osg::Vec3d CXEarthManipulator::ellipsoidHomeFocalPoint(const osg::EllipsoidModel&) const
{
    return osg::Vec3d(-90.0, 0.0, 0.0);
}

// ---------------------------------------------------------------------------
// Composition of the camera

void CXEarthManipulator::setCenter(const osg::Vec3d& center)
{
    _center = center;
    _centerLocalToWorld = computeLocalFrame(center);
}

void CXEarthManipulator::setDistance(double distance)
{
    _distance = osg::clampBetween(distance, _settings->getMinDistance(), _settings->getMaxDistance());
}

osg::Matrixd CXEarthManipulator::getMatrix() const
{
    return osg::Matrixd::translate(-_offsetX, -_offsetY, _distance) * osg::Matrixd::rotate(_rotation) *
           osg::Matrixd::rotate(_centerRotation) * osg::Matrixd::translate(_center);
}

osg::Matrixd CXEarthManipulator::getInverseMatrix() const
{
    return osg::Matrixd::translate(-_center) * osg::Matrixd::rotate(_centerRotation.inverse()) *
           osg::Matrixd::rotate(_rotation.inverse()) * osg::Matrixd::translate(_offsetX, _offsetY, -_distance);
}

osgUtil::SceneView::FusionDistanceMode CXEarthManipulator::getFusionDistanceMode() const
{
    return osgUtil::SceneView::USE_FUSION_DISTANCE_VALUE;
}

float CXEarthManipulator::getFusionDistanceValue() const
{
    return static_cast<float>(_distance);
}

osg::Matrixd CXEarthManipulator::getRotation(const osg::Vec3d& center)
{
    const osg::Vec3d look = -getUpVector(computeLocalFrame(center));
    osg::Vec3d worldUp = kZAxis;
    // Looking along the world's Z axis, the world's Y axis gives the roll.
    if (osg::equivalent(std::fabs(look * worldUp), 1.0, 1e-6))
        worldUp.set(0.0, 1.0, 0.0);
    const osg::Vec3d side = look ^ worldUp;
    osg::Vec3d up = side ^ look;
    up.normalize();
    const double offset = 1e-6;
    // lookAt(center - look * offset, center, up), with the direction taken
    // from look itself: at earth-sized coordinates the difference of two
    // points 1e-6 apart keeps only about three digits.
    const osg::Vec3d eye = center - look * offset;
    osg::Matrixd rotation = osg::Matrixd::lookAt(-look * offset, osg::Vec3d(0.0, 0.0, 0.0), up);
    rotation.setTrans(0.0, 0.0, 0.0);
    return osg::Matrixd::translate(-eye) * rotation;
}

osg::Quat CXEarthManipulator::makeCenterRotation(const osg::Vec3d& center)
{
    return getRotation(center).getRotate().inverse();
}

double CXEarthManipulator::normalizeAzimRad(double azimuth)
{
    const double period = 2.0 * osg::PI;
    if (std::fabs(azimuth) > period)
        azimuth = std::fmod(azimuth, period);
    if (azimuth < -osg::PI)
        azimuth += period;
    if (azimuth > osg::PI)
        azimuth -= period;
    return azimuth;
}

void CXEarthManipulator::getLocalEulerAngles(double* azimuth, double* pitch) const
{
    const osg::Matrixd m = getMatrix() * osg::Matrixd::inverse(_centerLocalToWorld);
    osg::Vec3d look = -getUpVector(m);
    osg::Vec3d up = getFrontVector(m);
    look.normalize();
    up.normalize();

    if (azimuth)
    {
        double a;
        if (look.z() < -0.9)
            a = std::atan2(up.x(), up.y());
        else if (look.z() > 0.9)
            a = std::atan2(-up.x(), -up.y());
        else
            a = std::atan2(look.x(), look.y());
        *azimuth = normalizeAzimRad(a);
    }
    if (pitch)
        *pitch = std::asin(osg::clampBetween(look.z(), -1.0, 1.0));
}

// ---------------------------------------------------------------------------
// Placing the camera from a look-at or a matrix

void CXEarthManipulator::setByLookAt(const osg::Vec3d& eye, const osg::Vec3d& center, const osg::Vec3d& up)
{
    osg::ref_ptr<osg::Node> node;
    if (!_node.lock(node))
        return;

    const osg::Vec3d lv = center - eye;
    setDistance(lv.length());
    setCenter(center);

    // Put the centre on the first surface along the line of sight.
    const double distance = lv.length();
    const double maxDistance = distance + 2.0 * (eye - node->getBound().center()).length();
    const osg::Vec3d farPosition = eye + lv * (maxDistance / distance);
    for (const osg::Vec3d& endPoint : {center, farPosition})
    {
        osg::Vec3d hit;
        if (intersect(eye, endPoint, hit))
        {
            setCenter(hit);
            setDistance((hit - eye).length());
            break;
        }
    }

    const osg::Matrixd rotation = osg::Matrixd::lookAt(eye, center, up);
    _centerRotation = getRotation(_center).getRotate().inverse();
    _rotation = rotation.getRotate().inverse() * _centerRotation.inverse();

    _previousUp = getUpVector(_centerLocalToWorld);
    recalculateRoll();
}

void CXEarthManipulator::setByMatrix(const osg::Matrixd& matrix)
{
    const osg::Vec3d look = -osg::Vec3d(matrix(2, 0), matrix(2, 1), matrix(2, 2));
    const osg::Vec3d eye(matrix(3, 0), matrix(3, 1), matrix(3, 2));

    _centerRotation = makeCenterRotation(_center);

    osg::ref_ptr<osg::Node> node;
    if (!_node.lock(node))
    {
        setCenter(eye + look);
        setDistance(look.length());
        _rotation = matrix.getRotate().inverse() * _centerRotation.inverse();
        return;
    }

    const osg::BoundingSphere& bs = node->getBound();
    const double maxDist = static_cast<float>((eye - bs.center()).length() + bs.radius());

    osg::Vec3d ip;
    if (intersect(eye, eye + look * maxDist, ip))
    {
        setCenter(ip);
        _centerRotation = makeCenterRotation(_center);
        setDistance((eye - ip).length());
        const osg::Matrixd r =
            osg::Matrixd::translate(0.0, 0.0, -_distance) * matrix * osg::Matrixd::translate(-_center);
        _rotation = r.getRotate() * _centerRotation.inverse();
    }
    else
    {
        // Nothing ahead: look for the ground straight below (or above) the eye.
        const osg::Vec3d up = getUpVector(computeLocalFrame(eye));
        if (intersect(eye + up * maxDist, eye - up * maxDist, ip))
        {
            setCenter(ip);
            _centerRotation = makeCenterRotation(_center);
            setDistance((eye - ip).length());
            _rotation.set(0.0, 0.0, 0.0, 1.0);
        }
    }

    _previousUp = getUpVector(_centerLocalToWorld);
    recalculateRoll();
}

void CXEarthManipulator::setByInverseMatrix(const osg::Matrixd& matrix)
{
    setByMatrix(osg::Matrixd::inverse(matrix));
}

// ---------------------------------------------------------------------------
// Ground contact

void CXEarthManipulator::recalculateCenter()
{
    recalculateCenter(_centerLocalToWorld);
}

void CXEarthManipulator::recalculateCenter(const osg::Matrixd& frame)
{
    osg::ref_ptr<osg::Node> node;
    if (!_node.lock(node))
        return;

    const double d = static_cast<double>(static_cast<float>(node->getBound().radius()) * 0.25f);
    const osg::Vec3d up = getUpVector(frame);

    osg::Vec3d ip1, ip2;
    const bool hit1 = intersect(_center - up * d * 0.1, _center + up * d, ip1);
    const bool hit2 = intersect(_center + up * d * 0.1, _center - up * d, ip2);
    if (hit1 && hit2)
        setCenter((ip1 - _center).length2() < (ip2 - _center).length2() ? ip1 : ip2);
    else if (hit1)
        setCenter(ip1);
    else if (hit2)
        setCenter(ip2);
}

bool CXEarthManipulator::intersect(const osg::Vec3d& start, const osg::Vec3d& end, osg::Vec3d& out) const
{
    osg::ref_ptr<osg::Node> node;
    if (!_node.lock(node))
        return false;

    osg::ref_ptr<osgUtil::LineSegmentIntersector> lsi = new osgUtil::LineSegmentIntersector(start, end);
    osgUtil::IntersectionVisitor iv(lsi.get());
    iv.setTraversalMask(getIntersectTraversalMask());
    node->accept(iv);

    if (!lsi->containsIntersections())
        return false;
    out = lsi->getIntersections().begin()->getWorldIntersectPoint();
    return true;
}

void CXEarthManipulator::recalculateRoll()
{
    const osg::Matrixd r(_centerRotation);
    const osg::Vec3d look = -getUpVector(r);
    const osg::Vec3d up = getFrontVector(r);
    const osg::Vec3d localUp = getUpVector(_centerLocalToWorld);

    osg::Vec3d side = look ^ localUp;
    if (side.length() < 0.1)
    {
        side = up ^ localUp;
        side.normalize();
    }
    osg::Vec3d newUp = side ^ look;
    newUp.normalize();

    const osg::Quat q = cxnav::rotationBetween(up, newUp);
    if (!q.zeroRotation())
        _centerRotation = _centerRotation * q;
}
