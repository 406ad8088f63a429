// Earth drag: the point of the ground grabbed at the start of a drag stays
// under the pointer. Also the two run-time switches of the manipulator,
// tourism mode and the paging block.
#include <navigation/CXEarthManipulator>

#include <OpenThreads/ScopedLock>
#include <osg/Math>

#include <cfloat>
#include <cmath>

bool CXEarthManipulator::intersectCircles(const osg::Vec3d& c1, double r1, const osg::Vec3d& c2, double r2,
                                          osg::Vec3d& outCenter, double& outRadius)
{
    osg::Vec3d n = c2 - c1;
    const double d = n.length();
    n.normalize();

    if (d > r1 + r2 || std::fabs(r1 - r2) > d)
        return false;

    if (osg::equivalent(d, 0.0, 1e-6) && osg::equivalent(r1, r2, 1e-6))
    {
        outCenter = c1;
        outRadius = r1;
        return true;
    }

    const double a = (r1 * r1 - r2 * r2 + d * d) / (2.0 * d);
    outCenter = c1 + n * a;
    outRadius = std::sqrt(r1 * r1 - a * a);
    return true;
}

osg::Vec3d CXEarthManipulator::computeSphereTangentPoint(const osg::Vec3d& p1, const osg::Vec3d& p2, double radius,
                                                         const osg::Vec3d& ray)
{
    // The tangent points of lines from p1 to the sphere lie on the sphere
    // whose diameter is p1-p2 (Thales); both spheres meet in a circle.
    const osg::Vec3d mid = (p1 + p2) / 2.0;
    const double midRadius = (p1 - mid).length();

    osg::Vec3d circleCenter;
    double circleRadius = 0.0;
    if (!intersectCircles(p2, radius, mid, midRadius, circleCenter, circleRadius))
        return osg::Vec3d(0.0, 0.0, 0.0);

    osg::Vec3d n = p2 - p1;
    n.normalize();
    osg::Vec3d u = ray ^ n;
    u.normalize();
    const osg::Vec3d w = n ^ u;
    return circleCenter + w * circleRadius;
}

osg::Vec3d CXEarthManipulator::windowToEyePoint(osgViewer::View* view, float x, float y)
{
    float localX = 0.0f, localY = 0.0f;
    const osg::Camera* camera = view->getCameraContainingPosition(x, y, localX, localY);
    if (!camera)
        camera = view->getCamera();

    osg::Matrixd window;
    if (camera->getViewport())
        window = camera->getViewport()->computeWindowMatrix();

    const osg::Matrixd inverse = osg::Matrixd::inverse(camera->getProjectionMatrix() * window);
    const osg::Vec4d v = osg::Vec4d(x, y, 0.0, 1.0) * inverse;
    return osg::Vec3d(v.x() / v.w(), v.y() / v.w(), v.z() / v.w());
}

osg::Matrixd CXEarthManipulator::rotateAroundPoint(const osg::Vec3d& point, double angle, const osg::Vec3d& axis)
{
    return osg::Matrixd::translate(point) * osg::Matrixd::rotate(angle, axis) * osg::Matrixd::translate(-point);
}

void CXEarthManipulator::drag(double, double, osg::View* view)
{
    // A new drag has no anchor. _lastAction becomes the drag only after its
    // first event, so this clears at the first event and not later.
    if (_lastAction._type != ACTION_EARTH_DRAG)
        _lastPointOnEarth.set(0.0, 0.0, 0.0);

    const osg::EllipsoidModel* ellipsoid = _csn.valid() ? _csn->getEllipsoidModel() : nullptr;
    // A coordinate system node without an ellipsoid has no earth radius; the
    // WGS84 radius stands in rather than reading a missing model.
    const double R = ellipsoid ? ellipsoid->getRadiusEquator() : 6378137.0;

    auto* v = dynamic_cast<osgViewer::View*>(view);
    if (!v || !_lastEvent.valid())
        return;
    const float x = _lastEvent->getX();
    const float y = _lastEvent->getY();

    float localX = 0.0f, localY = 0.0f;
    const osg::Camera* camera = v->getCameraContainingPosition(x, y, localX, localY);
    if (!camera)
        camera = v->getCamera();
    const osg::Matrixd viewMatrix = camera->getViewMatrix();
    const osg::Matrixd viewInverse = camera->getInverseViewMatrix();

    if (!_previousEvent.valid())
        return;

    const bool hasAnchor = _lastPointOnEarth != osg::Vec3d(0.0, 0.0, 0.0);

    // Start point: the anchor of this drag, or the ground under the
    // previous pointer position, or where the view ray touches the earth.
    osg::Vec3d start(0.0, 0.0, 0.0);
    const bool ok = screenToWorld(_previousEvent->getX(), _previousEvent->getY(), v, start);
    if (ok)
    {
        if (!hasAnchor)
            _lastPointOnEarth = start;
        else
            start = _lastPointOnEarth;
    }
    else
    {
        if (!_isGeocentric)
            return;
        if (hasAnchor)
        {
            start = _lastPointOnEarth;
        }
        else if (_csn.valid())
        {
            const osg::Vec3d ray = windowToEyePoint(v, _previousEvent->getX(), _previousEvent->getY());
            const osg::Vec3d origin = osg::Vec3d(0.0, 0.0, 0.0) * viewMatrix;
            start = computeSphereTangentPoint(osg::Vec3d(0.0, 0.0, 0.0), origin, R, ray) * viewInverse;
        }
    }

    // End point: the ground under the pointer now, or the tangent point.
    const osg::Vec3d ray = windowToEyePoint(v, x, y);
    osg::Vec3d end(0.0, 0.0, 0.0);
    if (!screenToWorld(x, y, v, end))
    {
        const osg::Vec3d origin = osg::Vec3d(0.0, 0.0, 0.0) * viewMatrix;
        end = computeSphereTangentPoint(osg::Vec3d(0.0, 0.0, 0.0), origin, R, ray) * viewInverse;
    }

    if (!_isGeocentric)
    {
        setCenter(_center + (start - end));
        return;
    }

    // Globe: turn the camera around the earth's centre by the rotation that
    // takes the grabbed point back under the pointer.
    osg::Quat q;
    q.makeRotate(start, end);
    const osg::Quat qc = q.conj();

    const osg::Matrixd cam = osg::Matrixd::translate(_offsetX, _offsetY, -_distance) * viewInverse;
    const osg::Vec3d centerPoint = cam.getTrans();
    const osg::Quat cr = makeCenterRotation(centerPoint);

    const osg::Matrixd camRelative = cam * osg::Matrixd::translate(-centerPoint) * osg::Matrixd::rotate(cr.inverse());
    const osg::Matrixd newFrame =
        osg::Matrixd::rotate(cr) * osg::Matrixd::translate(centerPoint) * osg::Matrixd::rotate(qc);

    if (!_settings->getLockAzimuthWhilePanning())
    {
        // The heading follows the earth.
        const double a = std::atan2(-newFrame(0, 2), newFrame(1, 2));
        double s = std::sin(a);
        double c = std::cos(a);
        if (c * newFrame(1, 2) - s * newFrame(0, 2) < 0.0)
        {
            s = -s;
            c = -c;
        }
        const osg::Matrixd r(c, s, 0.0, 0.0, -s, c, 0.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.0);
        setCenter((r * newFrame).getTrans());
        const osg::Matrixd m =
            osg::Matrixd::translate(-_offsetX, -_offsetY, _distance) * camRelative * osg::Matrixd::inverse(r);
        _rotation = m.getRotate();
    }
    else
    {
        // The heading is kept: turn the frame around the axis through `end`
        // until its x axis is horizontal again, which gives sin(angle) as
        // the root of a quadratic.
        osg::Vec3d axis = -end;
        axis.normalize();
        const osg::Vec3d xAxis(newFrame(0, 0), newFrame(0, 1), newFrame(0, 2));

        const double t = xAxis * axis;
        const osg::Vec3d p = axis * t;
        osg::Vec3d e = xAxis - p;
        osg::Vec3d f = e ^ axis;
        const double le = e.length();
        e.normalize();
        f.normalize();

        const double a = le * (f.z() * f.z() + e.z() * e.z());
        if (osg::equivalent(a, 0.0, 1e-6))
            return;
        const double b = le * a - p.z() * p.z();
        if (b < 0.0)
            return;

        const double g = e.z() * std::sqrt(b) / a;
        const double h = f.z() * p.z() / a;
        const double s1 = g + h;
        const double s2 = g - h;

        bool has1 = false, has2 = false;
        osg::Matrixd candidate1, candidate2;
        if (std::fabs(s1) <= 1.0)
        {
            candidate1 = newFrame * rotateAroundPoint(end, std::asin(s1), axis);
            has1 = true;
        }
        if (std::fabs(s2) <= 1.0)
        {
            candidate2 = newFrame * rotateAroundPoint(end, -std::asin(s2), axis);
            has2 = true;
        }
        if (!has1 && !has2)
            return;

        // Of the two roots, the one whose north axis points north.
        const osg::Matrixd* chosen = nullptr;
        if (has1 && candidate1(1, 2) >= 0.0)
            chosen = &candidate1;
        else if (has2 && candidate2(1, 2) >= 0.0)
            chosen = &candidate2;
        if (!chosen)
            return;
        setCenter(chosen->getTrans());
    }

    _centerRotation = makeCenterRotation(_center);
    _previousUp = getUpVector(_centerLocalToWorld);
}

void CXEarthManipulator::setTourismMode(TourismMode mode)
{
    switch (mode)
    {
    case TOURISM_MODE_FREE:
        // Walking close to a model: the camera may pass the focal point and
        // turn over the horizon either way.
        _settings->setMinMaxDistance(-15.0, DBL_MAX);
        _minRotatePitch = osg::DegreesToRadians(-180.0);
        _maxRotatePitch = osg::DegreesToRadians(180.0);
        break;
    case TOURISM_MODE_EARTH:
        _settings->setMinMaxDistance(1.0, DBL_MAX);
        _minRotatePitch = osg::DegreesToRadians(-89.9);
        _maxRotatePitch = osg::DegreesToRadians(-1.0);
        break;
    default:
        break;
    }
}

void CXEarthManipulator::changeManipulatorState()
{
    OpenThreads::ScopedLock<OpenThreads::Mutex> lock(_mutex);
    _pagingBlocked = !_pagingBlocked;
}
