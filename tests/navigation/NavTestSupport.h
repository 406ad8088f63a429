// Helpers of the manipulator unit tests: a view with a camera that has a
// (never realized) graphics context and a viewport, an action adapter that
// records what the manipulator asks for, and event factories.
#ifndef CXVIEWER_TESTS_NAVTESTSUPPORT_H
#define CXVIEWER_TESTS_NAVTESTSUPPORT_H

#include <navigation/CXEarthManipulator>

#include <osg/GraphicsContext>
#include <osg/Timer>
#include <osgGA/GUIActionAdapter>
#include <osgGA/GUIEventAdapter>
#include <osgViewer/View>

#include <chrono>
#include <thread>
#include <vector>

namespace navtest
{

/** A graphics context that is never realized: cameras that need "a context"
  * for picking decisions get one without a display. */
class DummyContext : public osg::GraphicsContext
{
public:
    DummyContext(int width, int height)
    {
        osg::ref_ptr<Traits> traits = new Traits;
        traits->width = width;
        traits->height = height;
        _traits = traits;
    }
    bool valid() const override { return true; }
    bool realizeImplementation() override { return false; }
    bool isRealizedImplementation() const override { return false; }
    void closeImplementation() override {}
    bool makeCurrentImplementation() override { return false; }
    bool makeContextCurrentImplementation(osg::GraphicsContext*) override { return false; }
    bool releaseContextImplementation() override { return false; }
    void bindPBufferToTextureImplementation(GLenum) override {}
    void swapBuffersImplementation() override {}
};

/** Records the requests of a manipulator. */
struct RecordingAdapter : public osgGA::GUIActionAdapter
{
    explicit RecordingAdapter(osgViewer::View* v = nullptr) : view(v) {}
    osg::View* asView() override { return view.get(); }
    void requestRedraw() override { ++redraws; }
    void requestContinuousUpdate(bool needed = true) override
    {
        continuous.push_back(needed);
        lastContinuous = needed;
    }
    void requestWarpPointer(float, float) override {}
    void clear()
    {
        redraws = 0;
        continuous.clear();
    }

    osg::ref_ptr<osgViewer::View> view;
    int redraws = 0;
    std::vector<bool> continuous;
    bool lastContinuous = false;
};

const int kWidth = 640;
const int kHeight = 480;

/** A view whose camera has a context, a kWidth x kHeight viewport and a 30
  * degree perspective. */
inline osg::ref_ptr<osgViewer::View> makeView(int width = kWidth, int height = kHeight)
{
    osg::ref_ptr<osgViewer::View> view = new osgViewer::View;
    osg::Camera* camera = view->getCamera();
    camera->setGraphicsContext(new DummyContext(width, height));
    camera->setViewport(0, 0, width, height);
    camera->setProjectionMatrixAsPerspective(30.0, double(width) / double(height), 1.0, 1.0e8);
    return view;
}

/** Copies the manipulator's view matrix to the view's camera, as the viewer
  * does after the event traversal, and gives the projection the wide near
  * and far planes that the cull traversal would compute (the manipulator
  * sets 1 to 10000 when it rebuilds the projection). */
inline void syncCamera(osgViewer::View* view, const osgGA::CameraManipulator* manipulator)
{
    osg::Camera* camera = view->getCamera();
    camera->setViewMatrix(manipulator->getInverseMatrix());
    const osg::Viewport* vp = camera->getViewport();
    camera->setProjectionMatrixAsPerspective(30.0, vp->width() / vp->height(), 1.0, 1.0e8);
}

/** A mouse event in window pixels with y up, as the viewer hands them to a
  * manipulator after its own conversion. */
inline osg::ref_ptr<osgGA::GUIEventAdapter> mouseEvent(osgGA::GUIEventAdapter::EventType type, float x, float y,
                                                       int buttonMask, double time, int button = 0,
                                                       int modKeyMask = 0)
{
    osg::ref_ptr<osgGA::GUIEventAdapter> ea = new osgGA::GUIEventAdapter;
    ea->setEventType(type);
    ea->setInputRange(0.0f, 0.0f, float(kWidth - 1), float(kHeight - 1));
    ea->setMouseYOrientation(osgGA::GUIEventAdapter::Y_INCREASING_UPWARDS);
    ea->setX(x);
    ea->setY(y);
    ea->setButtonMask(buttonMask);
    ea->setButton(button);
    ea->setModKeyMask(modKeyMask);
    ea->setTime(time);
    return ea;
}

inline osg::ref_ptr<osgGA::GUIEventAdapter> keyEvent(osgGA::GUIEventAdapter::EventType type, int key,
                                                     int modKeyMask = 0)
{
    osg::ref_ptr<osgGA::GUIEventAdapter> ea = new osgGA::GUIEventAdapter;
    ea->setEventType(type);
    ea->setKey(key);
    ea->setModKeyMask(modKeyMask);
    ea->setTime(osg::Timer::instance()->time_s());
    return ea;
}

inline osg::ref_ptr<osgGA::GUIEventAdapter> scrollEvent(osgGA::GUIEventAdapter::ScrollingMotion motion,
                                                        int modKeyMask = 0)
{
    osg::ref_ptr<osgGA::GUIEventAdapter> ea =
        mouseEvent(osgGA::GUIEventAdapter::SCROLL, kWidth / 2.0f, kHeight / 2.0f, 0, osg::Timer::instance()->time_s());
    ea->setScrollingMotion(motion);
    ea->setModKeyMask(modKeyMask);
    return ea;
}

inline osg::ref_ptr<osgGA::GUIEventAdapter> frameEvent()
{
    osg::ref_ptr<osgGA::GUIEventAdapter> ea = new osgGA::GUIEventAdapter;
    ea->setEventType(osgGA::GUIEventAdapter::FRAME);
    ea->setTime(osg::Timer::instance()->time_s());
    return ea;
}

inline void sleepSeconds(double seconds)
{
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

/** The heading and pitch of a manipulator in degrees. */
inline void headingPitchDegrees(const CXEarthManipulator& m, double& heading, double& pitch)
{
    double a = 0.0, p = 0.0;
    m.getLocalEulerAngles(&a, &p);
    heading = osg::RadiansToDegrees(a);
    pitch = osg::RadiansToDegrees(p);
}

} // namespace navtest

#endif
