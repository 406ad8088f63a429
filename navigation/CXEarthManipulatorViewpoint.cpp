// Viewpoints of the earth manipulator: immediate placement, flights along an
// arc, the home viewpoint and reading the current viewpoint back.
#include <navigation/CXEarthManipulator>

#include <osg/Math>
#include <osg/Timer>

#include <cmath>

namespace
{

double smoothStep(double x)
{
    return x * x * (3.0 - 2.0 * x);
}

// f(x, a) = x / (x + a - a x): a > 0 starts slowly and ends fast; a < 0 is
// its mirror image.
double accelerationCurve(double x, double a)
{
    auto f = [](double x_, double a_) { return x_ / (x_ + a_ - a_ * x_); };
    if (a == 0.0)
        return x;
    if (a > 0.0)
        return f(x, a);
    return 1.0 - f(1.0 - x, -a);
}

// Brings an angle into [-180, 180] in one step; an angle that is not finite
// is left as it is (subtracting turns from it would never end).
double wrapDegrees180(double value)
{
    if (!std::isfinite(value))
        return value;
    value = std::fmod(value, 360.0);
    if (value > 180.0)
        value -= 360.0;
    else if (value < -180.0)
        value += 360.0;
    return value;
}

} // namespace

void CXEarthManipulator::setViewpoint(const CXViewport& vp, double duration)
{
    if (!established())
    {
        // Remembered until the scene is bound; only the last request counts.
        _pendingViewpoint = vp;
        _pendingViewpointDuration = duration;
        _pendingViewpointSet = true;
        return;
    }

    if (duration <= 0.0)
    {
        const double pitch =
            osg::DegreesToRadians(osg::clampBetween(vp.getPitch(), _settings->getMinPitch(), _settings->getMaxPitch()));
        const double azimuth = normalizeAzimRad(osg::DegreesToRadians(vp.getHeading()));

        setCenter(vp.getFocalPoint());
        setDistance(vp.getRange());

        _previousUp = getUpVector(_centerLocalToWorld);
        _centerRotation = getRotation(vp.getFocalPoint()).getRotate().inverse();

        const osg::Quat a(azimuth, osg::Vec3d(0.0, 0.0, 1.0));
        const osg::Quat p(-pitch - osg::PI_2, osg::Vec3d(1.0, 0.0, 0.0));
        _rotation = osg::Matrixd::inverse(osg::Matrixd(a * p)).getRotate();

        recalculateCenter();
        return;
    }

    _transitionStart = getViewpoint();

    _deltaHeading = vp.getHeading() - _transitionStart.getHeading();
    _deltaPitch = vp.getPitch() - _transitionStart.getPitch();
    _deltaRange = vp.getRange() - _transitionStart.getRange();
    _deltaFocalPoint = toTransitionSpace(vp.getFocalPoint()) - toTransitionSpace(_transitionStart.getFocalPoint());

    _deltaHeading = wrapDegrees180(_deltaHeading);
    // On a scene with an ellipsoid, x of the interpolated focal point is
    // taken as a longitude and goes the short way round.
    if (_isGeocentric)
        _deltaFocalPoint.x() = wrapDegrees180(_deltaFocalPoint.x());

    // Heights of the eye over the focal point at both ends.
    const double h0 = _transitionStart.getRange() * std::sin(osg::DegreesToRadians(-_transitionStart.getPitch()));
    const double h1 = vp.getRange() * std::sin(osg::DegreesToRadians(-vp.getPitch()));
    const double dh = h1 - h0;

    const double de = transitionGroundDistance(_transitionStart.getFocalPoint(), vp.getFocalPoint(), _deltaFocalPoint);

    _arcHeight = 0.0;
    if (_settings->getArcViewpointTransitions())
        _arcHeight = osg::maximum(de - std::fabs(dh), 0.0);

    if (_arcHeight > 0.0)
    {
        const double top = 2.0 * (h0 + h1) + _arcHeight;
        _transitionAccel = std::log10(std::fabs(top - h0) / 100000.0);
        _transitionAccel2 = -std::log10(std::fabs(top - h1) / 100000.0);
    }
    else
    {
        const double q = dh / 100000.0;
        if (std::fabs(q) > 1.0)
            _transitionAccel = q > 0.0 ? std::log10(q) : -std::log10(-q);
        else
            _transitionAccel = 0.0;
        if (std::fabs(_transitionAccel) < 1.0)
            _transitionAccel = 0.0;
    }

    // The duration is the caller's; the settings' duration limits stay out.
    _transitionStartTime = osg::Timer::instance()->time_s();
    _transitionDuration = duration;

    _settingViewpoint = true;
    _throwing = false;
    _task->_type = TASK_NONE;

    recalculateCenter();
}

void CXEarthManipulator::updateSetViewpoint()
{
    double t = (_timeNow - _transitionStartTime) / _transitionDuration;
    double tp = t;

    if (t >= 1.0)
    {
        t = tp = 1.0;
        _settingViewpoint = false;
    }
    else if (_arcHeight > 0.0)
    {
        if (tp <= 0.5)
            tp = 0.5 * accelerationCurve(2.0 * tp, _transitionAccel);
        else
            tp = 0.5 + 0.5 * accelerationCurve(2.0 * (tp - 0.5), _transitionAccel2);
        tp = smoothStep(smoothStep(tp));
    }
    else if (t > 0.0)
    {
        tp = smoothStep(accelerationCurve(tp, _transitionAccel));
    }

    const double range = _transitionStart.getRange() + _deltaRange * tp + std::sin(tp * osg::PI) * _arcHeight;
    const double pitch = _transitionStart.getPitch() + _deltaPitch * tp;
    const double heading = _transitionStart.getHeading() + _deltaHeading * tp;
    const osg::Vec3d focalPoint =
        fromTransitionSpace(toTransitionSpace(_transitionStart.getFocalPoint()) + _deltaFocalPoint * tp);

    setViewpoint(CXViewport(focalPoint, heading, pitch, range), 0.0);
}

CXViewport CXEarthManipulator::getViewpoint() const
{
    double azimuth = 0.0, pitch = 0.0;
    getLocalEulerAngles(&azimuth, &pitch);
    return CXViewport(_center, osg::RadiansToDegrees(azimuth), osg::RadiansToDegrees(pitch), _distance);
}

void CXEarthManipulator::setHomeViewpoint(const CXViewport& vp, double duration)
{
    _homeViewpoint.assign(vp);
    _homeViewpointDuration = duration;
}

void CXEarthManipulator::home(double)
{
    handleAction(Action(ACTION_HOME), 0.0, 0.0, 0.0);
}

void CXEarthManipulator::home(const osgGA::GUIEventAdapter&, osgGA::GUIActionAdapter& aa)
{
    home(0.0);
    aa.requestRedraw();
}

void CXEarthManipulator::computeHomePosition()
{
    const osg::Node* node = getNode();
    if (!node)
        return;
    const osg::BoundingSphere& bs = node->getBound();
    const osg::Vec3 center(bs.center());
    const float radius = bs.radius();
    const osg::Vec3 eye = center + osg::Vec3(0.0f, -3.5f * radius, 0.0001f * radius);
    setHomePosition(eye, center, osg::Vec3d(0.0, 0.0, 1.0), getAutoComputeHomePosition());
}
