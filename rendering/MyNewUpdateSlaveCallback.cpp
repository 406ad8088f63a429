#include <rendering/MyNewUpdateSlaveCallback>

#include <osg/Notify>

namespace
{

// What the target branch gives the shared plane when a sphere around the
// target reaches over it: the sphere's far side X when that keeps more room
// to the near limit than it takes, otherwise the near limit 0.1 itself.
double splitBeyond(double split, double X)
{
    return (split - 0.1) > (X - split) ? X : 0.1;
}

} // namespace

MyNewUpdateSlaveCallback::MyNewUpdateSlaveCallback(osgViewer::DepthPartitionSettings* dps, unsigned int partition)
    : _dps(dps), _partition(partition), target(0.0f, 0.0f, 0.0f), targetRadius(0.0), targetEnabled(false)
{
}

MyNewUpdateSlaveCallback::~MyNewUpdateSlaveCallback() = default;

void MyNewUpdateSlaveCallback::updateSlave(osg::View& view, osg::View::Slave& slave)
{
    // The master's view and projection first, as every slave gets them.
    slave.updateSlaveImplementation(view);

    if (!_dps.valid())
        return;

    osg::Camera* camera = slave._camera.get();
    if (!camera)
        return;

    double zNear = 0.0, zFar = 0.0;
    if (!_dps->getDepthRange(view, _partition, zNear, zFar))
    {
        OSG_NOTICE << "Switching off Camera " << camera << std::endl;
        camera->setNodeMask(0x0);
        return;
    }

    adjustRange(*camera, 0.5, zNear, zFar);
    camera->setNodeMask(0xffffff);

    const osg::Matrixd& projection = camera->getProjectionMatrix();
    double left = 0.0, right = 0.0, bottom = 0.0, top = 0.0, n = 0.0, f = 0.0;
    if (projection(0, 3) == 0.0 && projection(1, 3) == 0.0 && projection(2, 3) == 0.0)
    {
        // Orthographic: only the planes change.
        camera->getProjectionMatrixAsOrtho(left, right, bottom, top, n, f);
        camera->setProjectionMatrixAsOrtho(left, right, bottom, top, zNear, zFar);
    }
    else
    {
        // A frustum keeps its field of view: its sides scale with the near plane.
        // A projection that is no frustum (or one with its near plane at
        // the eye) has no sides to scale: it stays as the master made it.
        if (!camera->getProjectionMatrixAsFrustum(left, right, bottom, top, n, f) || n == 0.0)
            return;
        const double nr = zNear / n;
        camera->setProjectionMatrixAsFrustum(left * nr, right * nr, bottom * nr, top * nr, zNear, zFar);
    }
}

void MyNewUpdateSlaveCallback::adjustRange(const osg::Camera& camera, double overlap, double& zNear,
                                           double& zFar) const
{
    // The plane the two cameras share.
    double split = _partition == 1 ? zNear : zFar;

    if (targetEnabled)
    {
        osg::Vec3f eye, center, up;
        camera.getViewMatrixAsLookAt(eye, center, up, 1.0f);
        const osg::Vec3f a = target - eye;
        const osg::Vec3f b = center - eye;
        const double dist = a.length();
        // The cosine between the line of sight and the target, in single
        // precision as the vectors are.
        const double c = static_cast<double>((a * b) / (a.length() * b.length()));
        const double proj = dist * c;
        const double r = targetRadius;
        if (c > 0.0)
        {
            // The target lies ahead: keep its sphere on one side of the plane.
            const double delta = proj - split;
            if (delta > 0.0 && overlap + r >= delta)
            {
                if (overlap + r > proj)
                    split = splitBeyond(split, proj + r);
                else
                    split = proj - r - overlap;
            }
            if (delta <= 0.0 && overlap + r >= -delta)
                split = splitBeyond(split, proj + r);
        }
        else
        {
            const double X = r + proj;
            if (X >= split)
                split = splitBeyond(split, X);
        }
    }

    if (_partition == 0)
    {
        double newFar = 0.0;
        if (targetEnabled && split == 0.1)
            newFar = 0.1;
        else if (targetEnabled)
            newFar = split + overlap;
        else
            newFar = zFar + overlap;
        // Never inverted: a near plane beyond the far one is pulled to it.
        zNear = zNear > newFar ? newFar : zNear;
        zFar = newFar;
    }
    else
    {
        const double newNear = targetEnabled ? split : zNear;
        zFar = newNear > zFar ? newNear : zFar;
        zNear = newNear;
    }
}
