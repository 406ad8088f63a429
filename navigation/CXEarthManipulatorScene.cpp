// Binding the earth manipulator to the scene and to the camera, and
// tethering the camera to a moving node.
#include <navigation/CXEarthManipulator>

#include <globe/FindTopMostNodeOfTypeVisitor>

#include "ManipulatorMath.h"

#include <osg/Math>

#include <cmath>

// ---------------------------------------------------------------------------
// Scene binding

bool CXEarthManipulator::established()
{
    if (!_needsEstablish)
        return _node.valid();
    _needsEstablish = false;

    const bool needed = _node.valid() && (!_csn.valid() || _csnObserverPath.empty());
    if (!needed)
        return _node.valid();

    osg::ref_ptr<osg::Node> node;
    if (!_node.lock(node))
    {
        _needsEstablish = true;
        return false;
    }

    // Up through the parents first, then down, with traversal mask 1.
    osg::CoordinateSystemNode* csn = globe::findRelativeNodeOfType<osg::CoordinateSystemNode>(node.get(), 1);
    _csn = csn;
    _isGeocentric = csn && csn->getEllipsoidModel();

    auto homeFromBound = [this](osg::Node* boundNode) {
        const osg::BoundingSphere& bs = boundNode->getBound();
        setHomeViewpoint(CXViewport(bs.center(), 0.0, -89.9, bs.radius() * 2.0), 0.0);
    };

    if (csn)
    {
        _node = csn;
        node = csn;
        _csnObserverPath.setNodePathTo(csn);

        if (!_homeViewpoint.isSet())
        {
            if (_pendingViewpointSet)
            {
                setHomeViewpoint(_pendingViewpoint, _pendingViewpointDuration);
                _pendingViewpointSet = false;
            }
            else if (!csn->getEllipsoidModel())
            {
                homeFromBound(csn);
            }
            else
            {
                const osg::EllipsoidModel& ellipsoid = *csn->getEllipsoidModel();
                setHomeViewpoint(CXViewport(ellipsoidHomeFocalPoint(ellipsoid), 0.0, -89.0,
                                            ellipsoid.getRadiusEquator() * 3.0),
                                 0.0);
            }
        }
    }
    else if (!_homeViewpoint.isSet())
    {
        if (_pendingViewpointSet)
        {
            setHomeViewpoint(_pendingViewpoint, _pendingViewpointDuration);
            _pendingViewpointSet = false;
        }
        else
        {
            node->dirtyBound();
            homeFromBound(node.get());
        }
    }

    if (_pendingViewpointSet)
        setViewpoint(_pendingViewpoint, _pendingViewpointDuration);
    else
        setViewpoint(_homeViewpoint.get(), _homeViewpointDuration);

    _pendingViewpointSet = false;
    _spareFlag = false;
    _needsEstablish = false;
    return _node.valid();
}

void CXEarthManipulator::setNode(osg::Node* node)
{
    // A node is replaced only through a null in between.
    if (node && _node.valid())
        return;

    _node = node;
    _csn = nullptr;
    _isGeocentric = false;

    osg::ref_ptr<osg::Camera> camera;
    osg::ref_ptr<CameraPostUpdateCallback> callback;
    if (_viewCamera.lock(camera) && _cameraUpdateCallback.lock(callback))
    {
        camera->removeUpdateCallback(callback.get());
        _cameraUpdateCallback = nullptr;
    }

    _viewCamera = nullptr;
    _csnObserverPath.clearNodePath();
    _csnPath.clear();
    reinitialize();
    established();
}

osg::Node* CXEarthManipulator::getNode()
{
    return _node.get();
}

const osg::Node* CXEarthManipulator::getNode() const
{
    return _node.get();
}

// ---------------------------------------------------------------------------
// Camera update

CXEarthManipulator::CameraPostUpdateCallback::CameraPostUpdateCallback(CXEarthManipulator* manipulator)
    : _manipulator(manipulator)
{
}

void CXEarthManipulator::CameraPostUpdateCallback::operator()(osg::Node* node, osg::NodeVisitor* nv)
{
    if (_manipulator)
        _manipulator->postUpdate();
    traverse(node, nv);
}

void CXEarthManipulator::updateCamera(osg::Camera* camera)
{
    if (camera != _viewCamera.get())
    {
        osg::ref_ptr<osg::Camera> oldCamera;
        osg::ref_ptr<CameraPostUpdateCallback> callback;
        if (_viewCamera.lock(oldCamera) && _cameraUpdateCallback.lock(callback))
            oldCamera->removeUpdateCallback(callback.get());

        _viewCamera = camera;

        if (camera && _cameraUpdateCallback.lock(callback))
            camera->addUpdateCallback(callback.get());
    }

    osg::ref_ptr<osg::Camera> cam;
    if (!_viewCamera.lock(cam))
        return;

    // The tether's callback is there exactly while a tether is in force.
    osg::ref_ptr<CameraPostUpdateCallback> callback;
    const bool hasCallback = _cameraUpdateCallback.lock(callback);
    if (_tetherNode.valid() && !hasCallback)
    {
        callback = new CameraPostUpdateCallback(this);
        _cameraUpdateCallback = callback.get();
        cam->addUpdateCallback(callback.get());
    }
    else if (!_tetherNode.valid() && hasCallback)
    {
        cam->removeUpdateCallback(callback.get());
        _cameraUpdateCallback = nullptr;
    }

    const bool dirty = _settings->outOfSyncWith(_cameraSettingsRevision);

    if (const osg::Viewport* viewport = cam->getViewport())
    {
        const double w = viewport->width();
        const double h = viewport->height();
        const osg::Matrixd& P = cam->getProjectionMatrix();
        const bool orthographic = P(3, 3) == 1.0 && P(2, 3) == 0.0 && P(1, 3) == 0.0 && P(0, 3) == 0.0;
        const osg::Vec2s& offsets = _settings->getCameraFrustumOffsets();

        if (_settings->getCameraProjection() == PROJ_PERSPECTIVE)
        {
            if (orthographic || dirty)
            {
                const double ox = (w / 2.0 + offsets.x()) / w;
                const double oy = (h / 2.0 + offsets.y()) / h;
                const osg::Matrixd projection = osg::Matrixd::perspective(_verticalFov, w / h, 1.0, 10000.0) *
                                                osg::Matrixd::translate(ox * 2.0 - 1.0, oy * 2.0 - 1.0, 0.0);
                cam->setProjectionMatrix(projection);
            }
            if (_savedNearFarMode.isSet())
            {
                cam->setComputeNearFarMode(_savedNearFarMode.get());
                _savedNearFarMode.unset();
            }
        }
        else if (_settings->getCameraProjection() == PROJ_ORTHOGRAPHIC)
        {
            if (!orthographic)
            {
                double fovy = 0.0, aspect = 0.0, zNear = 0.0, zFar = 0.0;
                if (cam->getProjectionMatrixAsPerspective(fovy, aspect, zNear, zFar))
                    _verticalFov = fovy;
                _tanHalfVerticalFov = std::tan(osg::DegreesToRadians(_verticalFov) * 0.5);
                _savedNearFarMode.assign(cam->getComputeNearFarMode());
                cam->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
            }

            double pitch = 0.0;
            getLocalEulerAngles(nullptr, &pitch);
            const double vh = _distance * _tanHalfVerticalFov;
            const double hw = vh * w / h;
            const double M = osg::maximum(hw, vh);
            const double zNear = -M * 5.0;
            const double zFar = M * (std::sin(pitch + osg::PI_2) * 10.0 + 5.0);
            double px = 0.0, py = 0.0;
            if (offsets.x() != 0 || offsets.y() != 0)
            {
                px = (hw * 2.0 * -offsets.x()) / w;
                py = (vh * 2.0 * -offsets.y()) / h;
            }
            cam->setProjectionMatrixAsOrtho(px - hw, px + hw, py - vh, py + vh, zNear, zFar);
        }
    }

    _settings->sync(_cameraSettingsRevision);
}

// ---------------------------------------------------------------------------
// Tethering

void CXEarthManipulator::setTetherNode(osg::Node* node)
{
    if (node != _tetherNode.get())
    {
        _offsetX = 0.0;
        _offsetY = 0.0;

        if (!node)
        {
            // Release gently: a free camera must see the ground, so it looks
            // down at least 10 degrees.
            double pitch = 0.0;
            getLocalEulerAngles(nullptr, &pitch);
            const double limit = osg::DegreesToRadians(-10.0);
            if (pitch > limit)
                rotate(0.0, -(pitch - limit));

            const osg::Vec3d eye = getMatrix().getTrans();
            recalculateCenter(osg::Matrixd(_rotation * _centerRotation));
            setDistance((eye - _center).length());
        }
        else
        {
            // Down a chain of single children the last transform wins.
            _tetherTransform = nullptr;
            osg::Node* walk = node;
            while (walk)
            {
                osg::Group* group = walk->asGroup();
                if (!group)
                    break;
                if (auto* transform = dynamic_cast<osg::Transform*>(group))
                    _tetherTransform = transform;
                walk = group->getNumChildren() == 1 ? group->getChild(0) : nullptr;
            }

            if (!_tetherTransform)
            {
                _tetherLocalCenter.set(0.0, 0.0, 0.0);
            }
            else
            {
                osg::BoundingSphere bs;
                for (unsigned int i = 0; i < _tetherTransform->getNumChildren(); ++i)
                    bs.expandBy(_tetherTransform->getChild(i)->getBound());
                _tetherLocalCenter = bs.center();
            }
        }
    }
    _tetherNode = node;
}

void CXEarthManipulator::postUpdate()
{
    updateTether();
}

void CXEarthManipulator::updateTether()
{
    osg::ref_ptr<osg::Node> node;
    if (!_tetherNode.lock(node))
        return;

    osg::Matrixd L;
    if (!_tetherTransform)
    {
        // A node without parents has only itself on its path: nothing to follow.
        const osg::NodePathList paths = node->getParentalNodePaths();
        if (paths.empty() || paths.front().size() < 2)
            return;
        L = osg::computeLocalToWorld(paths.front(), true);
        setCenter(L.getTrans());
    }
    else
    {
        const osg::NodePathList paths = _tetherTransform->getParentalNodePaths();
        if (paths.empty() || paths.front().size() < 2)
            return;
        L = osg::computeLocalToWorld(paths.front(), true);
        setCenter(_tetherLocalCenter * L);
    }

    _previousUp = getUpVector(_centerLocalToWorld);

    // The rotation of the node, free of its scale.
    const double sx = 1.0 / std::sqrt(L(0, 0) * L(0, 0) + L(1, 0) * L(1, 0) + L(2, 0) * L(2, 0));
    const double sy = 1.0 / std::sqrt(L(0, 1) * L(0, 1) + L(1, 1) * L(1, 1) + L(2, 1) * L(2, 1));
    const double sz = 1.0 / std::sqrt(L(0, 2) * L(0, 2) + L(1, 2) * L(1, 2) + L(2, 2) * L(2, 2));
    L = L * osg::Matrixd::scale(sx, sy, sz);

    switch (_settings->getTetherMode())
    {
    case TETHER_CENTER:
        _centerRotation = _centerLocalToWorld.getRotate();
        break;
    case TETHER_CENTER_AND_ROTATION:
        _centerRotation = L.getRotate();
        break;
    case TETHER_CENTER_AND_HEADING:
    {
        const osg::Matrixd l = L * osg::Matrixd::inverse(_centerLocalToWorld);
        const double angle = std::atan2(-l(0, 1), l(0, 0));
        const osg::Quat q(-angle, osg::Vec3d(0.0, 0.0, 1.0));
        _centerRotation = q * _centerLocalToWorld.getRotate();
        break;
    }
    }
}
