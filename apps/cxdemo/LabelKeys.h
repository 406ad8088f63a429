// The demo's key for the region labels: 'n' shows and hides the viewer's
// "provinceName" group (CXViewer::addearthLabel), by its node mask.
#ifndef CXDEMO_LABELKEYS_H
#define CXDEMO_LABELKEYS_H

#include <osg/Node>
#include <osg/observer_ptr>
#include <osgGA/GUIEventHandler>

namespace cxdemo
{

class LabelKeys : public osgGA::GUIEventHandler
{
public:
    /** The key that shows and hides the labels. */
    static constexpr int kToggleKey = 'n';

    explicit LabelKeys(osg::Node* labels);

    /** Shows (node mask all ones) or hides (0) the labels. */
    void setShown(bool shown);
    bool isShown() const;

    /** 'n' (or 'N') toggles; other events pass on. */
    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;
    using osgGA::GUIEventHandler::handle;

    void getUsage(osg::ApplicationUsage& usage) const override;

private:
    osg::observer_ptr<osg::Node> _labels;
};

} // namespace cxdemo

#endif
