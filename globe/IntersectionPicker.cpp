#include <globe/IntersectionPicker>

#include <osg/Camera>
#include <osgUtil/IntersectionVisitor>

namespace globe
{

IntersectionPicker::IntersectionPicker(osgViewer::View* view, osg::Node* root, unsigned int traversalMask, float buffer,
                                       Limit limit)
    : _view(view)
    , _root(root)
    , _hasRoot(root != nullptr)
    , _traversalMask(traversalMask)
    , _buffer(buffer)
    , _limit(limit)
{
}

IntersectionPicker::~IntersectionPicker() = default;

bool IntersectionPicker::pick(float x, float y, Hits& results) const
{
    results.clear();
    osg::ref_ptr<osgViewer::View> view;
    if (!_view.lock(view))
        return false;
    osg::Camera* camera = view->getCamera();
    if (!camera)
        return false;
    osg::ref_ptr<osg::Node> root;
    if (_hasRoot && !_root.lock(root))
        return false; // the node is gone

    // Window -> clip -> eye -> world, then into the root's parent frame.
    osg::Matrixd toWindow = camera->getViewMatrix() * camera->getProjectionMatrix();
    if (camera->getViewport())
        toWindow.postMult(camera->getViewport()->computeWindowMatrix());
    if (root.valid() && root->getNumParents() > 0)
    {
        const osg::NodePathList paths = root->getParentalNodePaths();
        if (!paths.empty() && paths.front().size() > 1)
        {
            const osg::NodePath above(paths.front().begin(), paths.front().end() - 1);
            toWindow.preMult(osg::computeLocalToWorld(above));
        }
    }
    osg::Matrixd fromWindow;
    if (!fromWindow.invert(toWindow))
        return false;
    const double zNear = camera->getViewport() ? 0.0 : -1.0;
    const osg::Vec3d start = osg::Vec3d(x, y, zNear) * fromWindow;
    const osg::Vec3d end = osg::Vec3d(x, y, 1.0) * fromWindow;
    if (!start.valid() || !end.valid())
        return false;

    osg::ref_ptr<osgUtil::LineSegmentIntersector> intersector =
        new osgUtil::LineSegmentIntersector(osgUtil::Intersector::MODEL, start, end);
    switch (_limit)
    {
    case LIMIT_ONE_PER_DRAWABLE:
        intersector->setIntersectionLimit(osgUtil::Intersector::LIMIT_ONE_PER_DRAWABLE);
        break;
    case LIMIT_ONE:
        intersector->setIntersectionLimit(osgUtil::Intersector::LIMIT_ONE);
        break;
    case LIMIT_NEAREST:
        intersector->setIntersectionLimit(osgUtil::Intersector::LIMIT_NEAREST);
        break;
    case NO_LIMIT:
    default:
        intersector->setIntersectionLimit(osgUtil::Intersector::NO_LIMIT);
        break;
    }
    osgUtil::IntersectionVisitor visitor(intersector.get());
    visitor.setTraversalMask(_traversalMask);
    osg::Node* scene = root.valid() ? root.get() : view->getSceneData();
    if (!scene)
        return false;
    scene->accept(visitor);
    if (!intersector->containsIntersections())
        return false;
    results.swap(intersector->getIntersections());
    return true;
}

} // namespace globe
