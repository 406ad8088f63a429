#include <globe/AutoClipPlaneCullCallback>
#include <globe/FindTopMostNodeOfTypeVisitor>
#include <globe/MapNode>
#include <globe/TerrainEngine>

#include <osg/Camera>
#include <osgUtil/CullVisitor>
#include <osgUtil/IntersectionVisitor>
#include <osgUtil/LineSegmentIntersector>

#include <algorithm>
#include <cmath>

namespace globe
{

namespace
{

// The lowest ground lies at most this far under the ellipsoid.
constexpr double kLowestGroundDepth = 1000.0;
// Share of the measured clearance over the ground under the eye that near
// may take: a cliff face closer than a tenth of the eye's height over the
// valley floor is the rare view it would cut.
constexpr double kGroundNearFactor = 0.1;

// Gives a perspective matrix new near and far planes, keeping its field of
// view (and any off-axis shift).
template <class M>
bool setFrustumPlanes(M& matrix, double zNear, double zFar)
{
    double left = 0.0, right = 0.0, bottom = 0.0, top = 0.0, oldNear = 0.0, oldFar = 0.0;
    if (!matrix.getFrustum(left, right, bottom, top, oldNear, oldFar) || !(oldNear > 0.0))
        return false;
    const double scale = zNear / oldNear;
    matrix.makeFrustum(left * scale, right * scale, bottom * scale, top * scale, zNear, zFar);
    return true;
}

bool finite(const osg::Vec3d& v)
{
    return std::isfinite(v.x()) && std::isfinite(v.y()) && std::isfinite(v.z());
}

} // namespace

// Takes the place of the cull visitor's clamping for the camera's own
// projection matrix: what the traversal measured, bounded by the globe rule.
// Other matrices (nested cameras) get the scene graph's usual clamping.
class AutoClipPlaneCullCallback::Clamp : public osg::CullSettings::ClampProjectionMatrixCallback
{
public:
    void prepare(osg::RefMatrix* target, double horizonNear, double horizonFar, double nearFarRatio,
                 osg::Camera* camera, double minimumNear)
    {
        _target = target;
        _horizonNear = horizonNear;
        _horizonFar = horizonFar;
        _nearFarRatio = nearFarRatio;
        _camera = camera;
        _minimumNear = minimumNear;
        _lastNear = horizonNear;
        _lastFar = horizonFar;
        _valid = true;
    }

    bool clampProjectionMatrixImplementation(osg::Matrixf& projection, double& zNear, double& zFar) const override
    {
        return osg::clampProjectionMatrix(projection, zNear, zFar, _nearFarRatio);
    }

    bool clampProjectionMatrixImplementation(osg::Matrixd& projection, double& zNear, double& zFar) const override
    {
        if (!isOurs(projection))
            return osg::clampProjectionMatrix(projection, zNear, zFar, _nearFarRatio);
        // zNear and zFar are what the traversal measured; the pull and push
        // of 2 % are the scene graph's usual margins.
        const double measuredNear = std::isfinite(zNear) ? zNear * 0.98 : _horizonNear;
        const double measuredFar = std::isfinite(zFar) ? zFar * 1.02 : _horizonFar;
        const double newNear = std::max(_minimumNear, std::min(_horizonNear, measuredNear));
        double newFar = std::min(_horizonFar, measuredFar);
        if (!(newFar > newNear))
            newFar = newNear * 2.0;
        if (!setFrustumPlanes(projection, newNear, newFar))
            return false;
        zNear = newNear;
        zFar = newFar;
        _lastNear = newNear;
        _lastFar = newFar;
        osg::ref_ptr<osg::Camera> camera;
        if (_camera.lock(camera) && &projection != &camera->getProjectionMatrix())
            camera->setProjectionMatrix(projection);
        return true;
    }

    // The matrix the camera's drawables are culled with, or the camera's own
    // (which the scene view clamps after the traversal with the same
    // measurement).
    bool isOurs(const osg::Matrixd& projection) const
    {
        if (_target.valid() && &projection == static_cast<const osg::Matrixd*>(_target.get()))
            return true;
        osg::ref_ptr<osg::Camera> camera;
        return _camera.lock(camera) && &projection == &camera->getProjectionMatrix();
    }

    bool last(double& zNear, double& zFar) const
    {
        if (!_valid)
            return false;
        zNear = _lastNear;
        zFar = _lastFar;
        return true;
    }

private:
    osg::ref_ptr<osg::RefMatrix> _target;
    osg::observer_ptr<osg::Camera> _camera;
    double _horizonNear = 1.0;
    double _horizonFar = 1.0;
    double _nearFarRatio = 0.0005;
    double _minimumNear = 0.5;
    mutable double _lastNear = 0.0;
    mutable double _lastFar = 0.0;
    bool _valid = false;
};

AutoClipPlaneCullCallback::AutoClipPlaneCullCallback(osg::Node* mapNode)
    : _clamp(new Clamp)
{
    auto* csn = findTopMostNodeOfType<osg::CoordinateSystemNode>(mapNode);
    const osg::EllipsoidModel* e = csn ? csn->getEllipsoidModel() : nullptr;
    const bool usable = e && std::isfinite(e->getRadiusEquator()) && std::isfinite(e->getRadiusPolar()) &&
                        e->getRadiusEquator() > 0.0 && e->getRadiusPolar() > 0.0;
    _ellipsoid = usable ? new osg::EllipsoidModel(*e) : new osg::EllipsoidModel();
    if (auto* map = dynamic_cast<MapNode*>(csn))
        _terrain = map->getTerrainEngine();
}

AutoClipPlaneCullCallback::~AutoClipPlaneCullCallback() = default;

void AutoClipPlaneCullCallback::setMinimumNear(double metres)
{
    if (std::isfinite(metres) && metres > 0.0)
        _minimumNear = std::max(metres, 1.0e-3);
}

void AutoClipPlaneCullCallback::setNearFactor(double factor)
{
    if (std::isfinite(factor) && factor > 0.0)
        _nearFactor = std::min(factor, 1.0);
}

void AutoClipPlaneCullCallback::setMaxTerrainHeight(double metres)
{
    if (std::isfinite(metres) && metres >= 0.0)
        _maxTerrainHeight = metres;
}

bool AutoClipPlaneCullCallback::computeClipPlanes(const osg::Vec3d& eye, double& zNear, double& zFar) const
{
    if (!finite(eye))
        return false;
    double lat = 0.0, lon = 0.0, height = 0.0;
    _ellipsoid->convertXYZToLatLongHeight(eye.x(), eye.y(), eye.z(), lat, lon, height);
    if (!std::isfinite(height))
        return false;

    const double lowest = _ellipsoid->getRadiusPolar() - kLowestGroundDepth;
    const double highest = _ellipsoid->getRadiusEquator() + _maxTerrainHeight;
    const double distance = eye.length();
    // Along the tangent to the lowest ground, then on to where that line
    // leaves the highest ground: nothing of the globe in sight lies farther.
    const double farPlane = std::sqrt(std::max(distance * distance - lowest * lowest, 0.0)) +
                            std::sqrt(highest * highest - lowest * lowest);
    const double nearPlane = std::max(_minimumNear, _nearFactor * (height - _maxTerrainHeight));
    zNear = nearPlane;
    zFar = std::max(farPlane, nearPlane * 2.0);
    return true;
}

bool AutoClipPlaneCullCallback::measureClearance(const osg::Vec3d& eye, double& clearance) const
{
    osg::ref_ptr<osg::Node> terrain;
    if (!_terrain.lock(terrain) || !finite(eye))
        return false;
    double lat = 0.0, lon = 0.0, height = 0.0;
    _ellipsoid->convertXYZToLatLongHeight(eye.x(), eye.y(), eye.z(), lat, lon, height);
    if (!std::isfinite(height))
        return false;
    osg::Vec3d bottom;
    _ellipsoid->convertLatLongHeightToXYZ(lat, lon, -kLowestGroundDepth - _maxTerrainHeight, bottom.x(), bottom.y(),
                                          bottom.z());
    osg::ref_ptr<osgUtil::LineSegmentIntersector> ray = new osgUtil::LineSegmentIntersector(eye, bottom);
    ray->setIntersectionLimit(osgUtil::Intersector::LIMIT_NEAREST);
    osgUtil::IntersectionVisitor visitor(ray.get());
    terrain->accept(visitor);
    if (!ray->containsIntersections())
        return false;
    clearance = (eye - ray->getFirstIntersection().getWorldIntersectPoint()).length();
    return std::isfinite(clearance);
}

bool AutoClipPlaneCullCallback::getLastClipPlanes(double& zNear, double& zFar) const
{
    return _clamp->last(zNear, zFar);
}

void AutoClipPlaneCullCallback::operator()(osg::Node* node, osg::NodeVisitor* nv)
{
    osgUtil::CullVisitor* cv = nv ? nv->asCullVisitor() : nullptr;
    osg::Camera* camera = node ? node->asCamera() : nullptr;
    osg::RefMatrix* projection = cv ? cv->getProjectionMatrix() : nullptr;
    double zNear = 0.0, zFar = 0.0;
    const osg::Vec3d eye = cv && cv->getModelViewMatrix() ? osg::Matrixd::inverse(*cv->getModelViewMatrix()).getTrans()
                                                          : osg::Vec3d();
    if (!cv || !camera || !projection || !cv->getModelViewMatrix() || !computeClipPlanes(eye, zNear, zFar))
    {
        traverse(node, nv);
        return;
    }
    // Lower than the highest ground the globe rule only knows the minimum;
    // the ground under the eye, as far as it has paged in, tells how far
    // the nearest terrain really is, and keeps the depth buffer's precision
    // for the ground at a distance (2 m at 4 km with a near plane of 0.5 m).
    double clearance = 0.0;
    if (zNear < kGroundNearFactor * _maxTerrainHeight && measureClearance(eye, clearance))
        zNear = std::max(zNear, kGroundNearFactor * clearance);
    if (!setFrustumPlanes(*projection, zNear, zFar))
    {
        // An orthographic projection.
        traverse(node, nv);
        return;
    }
    camera->setProjectionMatrix(*projection);
    _clamp->prepare(projection, zNear, zFar, cv->getNearFarRatio(), camera, _minimumNear);

    // The traversal measures what it draws, and the measurement comes to the
    // clamp above rather than to the cull visitor's own. The inheritance mask
    // is kept, so the camera's settings reach the cull visitor next frame.
    const osg::CullSettings::InheritanceMask mask = cv->getInheritanceMask();
    // The near side is measured on the triangles themselves: the boxes of
    // the terrain tiles around an eye close to the ground reach behind it
    // and would bring near down to the minimum whatever the clearance.
    cv->setComputeNearFarMode(osg::CullSettings::COMPUTE_NEAR_USING_PRIMITIVES);
    cv->setClampProjectionMatrixCallback(_clamp.get());
    cv->setInheritanceMask(mask);

    traverse(node, nv);
}

} // namespace globe
