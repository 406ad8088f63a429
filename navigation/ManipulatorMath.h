// Small helpers shared by the manipulator's sources; not installed.
#ifndef CXVIEWER_NAVIGATION_MANIPULATORMATH_H
#define CXVIEWER_NAVIGATION_MANIPULATORMATH_H

#include <osg/CoordinateSystemNode>
#include <osg/NodeVisitor>
#include <osg/Quat>
#include <osg/Vec3d>

namespace cxnav
{

/** The rotation that takes `from` to `to`; none when either is zero (an up
  * vector not yet known), where makeRotate would divide by zero. */
inline osg::Quat rotationBetween(const osg::Vec3d& from, const osg::Vec3d& to)
{
    osg::Quat q;
    if (from.length2() > 0.0 && to.length2() > 0.0)
        q.makeRotate(from, to);
    return q;
}

/** Finds the first node of type T in the direction of the traversal mode:
  * with TRAVERSE_PARENTS the node itself or its nearest ancestor; with
  * TRAVERSE_ALL_CHILDREN the first one depth-first, without looking below it. */
template <class T>
class FindTopMostNodeOfTypeVisitor : public osg::NodeVisitor
{
public:
    explicit FindTopMostNodeOfTypeVisitor(TraversalMode mode) : osg::NodeVisitor(mode), _found(nullptr) {}

    void apply(osg::Node& node) override
    {
        if (_found)
            return;
        if (T* result = dynamic_cast<T*>(&node))
            _found = result;
        else
            traverse(node);
    }

    T* _found;
};

/** Runs the visitor from `node` with the traversal mask `mask`. */
template <class T>
T* findTopMostNodeOfType(osg::Node* node, osg::NodeVisitor::TraversalMode mode, unsigned int mask)
{
    if (!node)
        return nullptr;
    FindTopMostNodeOfTypeVisitor<T> visitor(mode);
    visitor.setTraversalMask(mask);
    node->accept(visitor);
    return visitor._found;
}

} // namespace cxnav

#endif
