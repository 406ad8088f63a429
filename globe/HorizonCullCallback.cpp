#include <globe/HorizonCullCallback>

#include <osg/Node>
#include <osgUtil/CullVisitor>

#include <algorithm>
#include <cmath>

namespace globe
{

HorizonCullCallback::HorizonCullCallback(const osg::EllipsoidModel* ellipsoid)
    : _ellipsoid(ellipsoid ? ellipsoid : new osg::EllipsoidModel)
{
}

HorizonCullCallback::~HorizonCullCallback() = default;

void HorizonCullCallback::setLowestHeight(double metres)
{
    if (std::isfinite(metres))
        _lowestHeight = metres;
}

double HorizonCullCallback::getOccluderRadius() const
{
    return std::max(0.0, _ellipsoid->getRadiusPolar() + _lowestHeight);
}

bool HorizonCullCallback::isHidden(const osg::Vec3d& eye, const osg::BoundingSphere& bound) const
{
    return bound.valid() && isHidden(eye, osg::Vec3d(bound.center()), bound.radius(), getOccluderRadius());
}

bool HorizonCullCallback::isHidden(const osg::Vec3d& eye, const osg::Vec3d& center, double radius,
                                   double occluderRadius)
{
    if (!eye.valid() || !center.valid() || !std::isfinite(radius) || !std::isfinite(occluderRadius) ||
        radius < 0.0 || occluderRadius <= 0.0)
        return false;
    // Every line from the eye to a point within `radius` of the centre stays
    // within `radius` of the line to the centre (at every fraction of the way),
    // so when that line passes through the occluder shrunk by `radius`, all of
    // them pass through the occluder.
    const double shrunk = occluderRadius - radius;
    if (shrunk <= 0.0)
        return false;
    const double shrunk2 = shrunk * shrunk;
    // An eye inside the occluder sees nothing of it as a horizon.
    if (eye.length2() <= occluderRadius * occluderRadius)
        return false;
    if (center.length2() < shrunk2)
        return true;
    // The point of the segment eye -> centre closest to the origin.
    const osg::Vec3d d = center - eye;
    const double length2 = d.length2();
    if (length2 <= 0.0)
        return false;
    const double t = std::clamp(-(eye * d) / length2, 0.0, 1.0);
    const osg::Vec3d closest = eye + d * t;
    return closest.length2() < shrunk2;
}

void HorizonCullCallback::operator()(osg::Node* node, osg::NodeVisitor* nv)
{
    auto* cv = dynamic_cast<osgUtil::CullVisitor*>(nv);
    if (cv && node)
    {
        const osg::RefMatrix* projection = cv->getProjectionMatrix();
        // The last column of a perspective projection is (0, 0, -1, 0); an
        // orthographic one ends in 1.
        const bool perspective = projection && (*projection)(3, 3) == 0.0;
        if (perspective && isHidden(cv->getEyeLocal(), node->getBound()))
            return;
    }
    traverse(node, nv);
}

} // namespace globe
