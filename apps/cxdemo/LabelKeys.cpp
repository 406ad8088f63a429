#include "LabelKeys.h"

#include <osg/ApplicationUsage>

namespace cxdemo
{

LabelKeys::LabelKeys(osg::Node* labels) : _labels(labels) {}

void LabelKeys::setShown(bool shown)
{
    osg::ref_ptr<osg::Node> labels;
    if (_labels.lock(labels))
        labels->setNodeMask(shown ? ~0u : 0u);
}

bool LabelKeys::isShown() const
{
    osg::ref_ptr<osg::Node> labels;
    return _labels.lock(labels) && labels->getNodeMask() != 0;
}

bool LabelKeys::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& /*aa*/)
{
    if (ea.getEventType() != osgGA::GUIEventAdapter::KEYDOWN)
        return false;
    if (ea.getKey() != kToggleKey && ea.getKey() != 'N')
        return false;
    setShown(!isShown());
    return true;
}

void LabelKeys::getUsage(osg::ApplicationUsage& usage) const
{
    usage.addKeyboardMouseBinding("n", "Show or hide the region labels");
}

} // namespace cxdemo
