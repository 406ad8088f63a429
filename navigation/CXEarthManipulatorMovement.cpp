// The primitive camera moves of the earth manipulator, and picking through a
// window position.
#include <navigation/CXEarthManipulator>

#include "ManipulatorMath.h"

#include <osg/Math>
#include <osgUtil/IntersectionVisitor>
#include <osgUtil/LineSegmentIntersector>

#include <algorithm>
#include <cmath>

void CXEarthManipulator::pan(double dx, double dy)
{
    if (_tetherNode.valid())
    {
        // A tethered camera shifts on the screen instead, within the limits.
        _offsetX += dx * _distance;
        _offsetY += dy * _distance;
        _offsetX = osg::clampBetween(_offsetX, -_settings->getMaxXOffset(), _settings->getMaxXOffset());
        _offsetY = osg::clampBetween(_offsetY, -_settings->getMaxYOffset(), _settings->getMaxYOffset());
        return;
    }

    // The pan speed has a floor: near the ground the camera keeps moving 10
    // units per unit of delta.
    const double scale = std::min(static_cast<double>(-0.3f) * _distance, -10.0);

    double oldAzimuth = 0.0;
    getLocalEulerAngles(&oldAzimuth, nullptr);

    // Move in the horizontal plane of the frame, whatever the pitch.
    const osg::Matrixd r(_rotation * _centerRotation);
    osg::Vec3d side = getSideVector(r);
    const osg::Vec3d localUp = _previousUp;
    osg::Vec3d forward = localUp ^ side;
    side = forward ^ localUp;
    forward.normalize();
    side.normalize();

    const osg::Vec3d dv = side * (dx * scale) + forward * (dy * scale);
    setCenter(moveAlongSurface(_center, dv));

    osg::ref_ptr<osg::Node> node;
    if (_node.lock(node))
    {
        // Carry the centre frame over to the new local vertical.
        const osg::Vec3d newUp = getUpVector(_centerLocalToWorld);
        const osg::Quat toNewUp = cxnav::rotationBetween(_previousUp, newUp);
        if (!toNewUp.zeroRotation())
        {
            _centerRotation = _centerRotation * toNewUp;
            _previousUp = newUp;
        }

        if (_settings->getLockAzimuthWhilePanning())
        {
            double newAzimuth = 0.0;
            getLocalEulerAngles(&newAzimuth, nullptr);
            const osg::Quat keepHeading(newAzimuth - oldAzimuth, newUp);
            if (!keepHeading.zeroRotation())
                _centerRotation = _centerRotation * keepHeading;
        }
    }
}

void CXEarthManipulator::rotate(double dx, double dy)
{
    double pitch = 0.0;
    getLocalEulerAngles(nullptr, &pitch);
    // A step past a limit loses its pitch part as a whole.
    if (pitch + dy > _maxRotatePitch || pitch + dy < _minRotatePitch)
        dy = 0.0;

    const osg::Matrixd r(_rotation);
    osg::Vec3d side = getSideVector(r);
    const osg::Vec3d localUp(0.0, 0.0, 1.0);
    osg::Vec3d forward = localUp ^ side;
    side = forward ^ localUp;
    forward.normalize();
    side.normalize();

    const osg::Quat elevation(dy, side);
    const osg::Quat azimuth(-dx, localUp);
    _rotation = _rotation * elevation * azimuth;
}

void CXEarthManipulator::zoom(double, double dy)
{
    double newDistance;
    if (_distance > 5.0)
        newDistance = _distance * (1.0 + dy);
    else
        newDistance = dy > 0.0 ? _distance + 0.1 : _distance - 0.1;
    setDistance(newDistance);
}

const osg::Camera* CXEarthManipulator::cameraAtWindowPosition(osgViewer::View* view, float x, float y, float& localX,
                                                              float& localY)
{
    const osg::Camera* camera = view->getCamera();
    const osg::Viewport* viewport = camera ? camera->getViewport() : nullptr;
    if (camera && camera->getGraphicsContext() && viewport)
    {
        const double dx = x;
        const double dy = y;
        const double epsilon = 0.5;
        // Inclusive at the top, strict on the right.
        if (dx >= viewport->x() - epsilon && dy >= viewport->y() - epsilon &&
            dx < viewport->x() + viewport->width() - 1.0 + epsilon &&
            dy <= viewport->y() + viewport->height() - 1.0 + epsilon)
        {
            localX = x;
            localY = y;
            return camera;
        }
    }
    return view->getCameraContainingPosition(x, y, localX, localY);
}

bool CXEarthManipulator::screenToWorld(float x, float y, osg::View* view, osg::Vec3d& out) const
{
    auto* viewerView = dynamic_cast<osgViewer::View*>(view);
    if (!viewerView || !viewerView->getCamera())
        return false;

    // Without a coordinate system node there is no pick.
    osg::NodePath path;
    if (!_csnObserverPath.getNodePath(path) || path.empty())
        return false;

    float localX = 0.0f, localY = 0.0f;
    const osg::Camera* camera = cameraAtWindowPosition(viewerView, x, y, localX, localY);
    if (!camera)
        return false;

    osg::Matrixd m;
    if (path.size() > 1)
    {
        const osg::NodePath below(path.begin() + 1, path.end());
        m = osg::computeLocalToWorld(below, true);
    }
    m.postMult(camera->getViewMatrix());
    m.postMult(camera->getProjectionMatrix());
    double zNear = -1.0;
    double zFar = 1.0;
    if (camera->getViewport())
    {
        m.postMult(camera->getViewport()->computeWindowMatrix());
        zNear = 0.0;
        zFar = 1.0;
    }

    osg::Matrixd inverse;
    if (!inverse.invert(m))
        return false;
    const osg::Vec3d start = osg::Vec3d(localX, localY, zNear) * inverse;
    const osg::Vec3d end = osg::Vec3d(localX, localY, zFar) * inverse;

    osg::ref_ptr<osgUtil::LineSegmentIntersector> lsi =
        new osgUtil::LineSegmentIntersector(osgUtil::Intersector::MODEL, start, end);
    osgUtil::IntersectionVisitor iv(lsi.get());
    iv.setTraversalMask(getIntersectTraversalMask());
    path.back()->accept(iv);

    if (!lsi->containsIntersections())
        return false;
    out = lsi->getIntersections().begin()->getWorldIntersectPoint();
    return true;
}
