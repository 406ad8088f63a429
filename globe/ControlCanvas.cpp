#include <globe/ControlCanvas>

#include <osg/BlendFunc>
#include <osg/StateSet>
#include <osg/View>
#include <osgGA/EventVisitor>

namespace globe
{

namespace
{

// Follows the viewport of the view's camera at every event.
class FollowViewport : public osg::NodeCallback
{
public:
    void operator()(osg::Node* node, osg::NodeVisitor* nv) override
    {
        auto* canvas = static_cast<ControlCanvas*>(node);
        if (auto* ev = dynamic_cast<osgGA::EventVisitor*>(nv))
            if (auto* view = dynamic_cast<osg::View*>(ev->getActionAdapter()))
                canvas->followViewport(view->getCamera());
        traverse(node, nv);
    }
};

// Lays the controls out once per frame, after the event handlers have set
// their text.
class LayOut : public osg::NodeCallback
{
public:
    void operator()(osg::Node* node, osg::NodeVisitor* nv) override
    {
        static_cast<ControlCanvas*>(node)->update();
        traverse(node, nv);
    }
};

} // namespace

ControlCanvas::ControlCanvas()
{
    setUp();
}

ControlCanvas::ControlCanvas(const ControlCanvas& rhs, const osg::CopyOp& copyop) : osg::Camera(rhs, copyop)
{
    setUp();
}

ControlCanvas::~ControlCanvas() = default;

void ControlCanvas::setUp()
{
    setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    setViewMatrix(osg::Matrix::identity());
    setProjectionMatrixAsOrtho2D(0.0, 1.0, 0.0, 1.0);
    setRenderOrder(osg::Camera::POST_RENDER);
    setClearMask(GL_DEPTH_BUFFER_BIT);
    setAllowEventFocus(false);
    setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    osg::StateSet* state = getOrCreateStateSet();
    state->setMode(GL_LIGHTING, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    state->setMode(GL_DEPTH_TEST, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    state->setMode(GL_CULL_FACE, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    state->setMode(GL_BLEND, osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    state->setAttributeAndModes(new osg::BlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA));
    setEventCallback(new FollowViewport);
    setUpdateCallback(new LayOut);
}

void ControlCanvas::addControl(LabelControl* control)
{
    if (control && !containsNode(control))
        addChild(control);
}

bool ControlCanvas::removeControl(LabelControl* control)
{
    return control && removeChild(control);
}

unsigned int ControlCanvas::getNumControls() const
{
    return getNumChildren();
}

LabelControl* ControlCanvas::getControl(unsigned int i)
{
    return i < getNumChildren() ? dynamic_cast<LabelControl*>(getChild(i)) : nullptr;
}

void ControlCanvas::followViewport(const osg::Camera* camera)
{
    const osg::Viewport* source = camera ? camera->getViewport() : nullptr;
    if (!source)
        return;
    const osg::Viewport* mine = getViewport();
    if (mine && mine->x() == source->x() && mine->y() == source->y() && mine->width() == source->width() &&
        mine->height() == source->height())
        return;
    setViewport(source->x(), source->y(), source->width(), source->height());
}

void ControlCanvas::update()
{
    const osg::Viewport* viewport = getViewport();
    if (!viewport || viewport->width() <= 0.0 || viewport->height() <= 0.0)
        return;
    const double w = viewport->width(), h = viewport->height();
    setProjectionMatrixAsOrtho2D(0.0, w, 0.0, h);
    for (unsigned int i = 0; i < getNumChildren(); ++i)
    {
        LabelControl* control = dynamic_cast<LabelControl*>(getChild(i));
        if (control && control->getNodeMask() != 0)
            control->layout(static_cast<float>(w), static_cast<float>(h));
    }
}

} // namespace globe
