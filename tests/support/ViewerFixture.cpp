#include "ViewerFixture.h"

#include <osgDB/WriteFile>

#include <algorithm>
#include <cstdlib>

namespace cxtest
{

osg::Vec4ub pixelAt(const osg::Image& image, int x, int y)
{
    // Read-back rows run from the bottom up.
    const unsigned char* p = image.data(x, image.t() - 1 - y);
    return osg::Vec4ub(p[0], p[1], p[2], p[3]);
}

int differingPixels(const osg::Image& a, const osg::Image& b, int tolerance)
{
    int n = 0;
    for (int y = 0; y < std::min(a.t(), b.t()); ++y)
        for (int x = 0; x < std::min(a.s(), b.s()); ++x)
        {
            const osg::Vec4ub p = pixelAt(a, x, y);
            const osg::Vec4ub q = pixelAt(b, x, y);
            if (std::abs(p.r() - q.r()) > tolerance || std::abs(p.g() - q.g()) > tolerance ||
                std::abs(p.b() - q.b()) > tolerance)
                ++n;
        }
    return n;
}

void saveScreenshot(const osg::Image& image, const std::string& name)
{
    const char* dir = std::getenv("CXTEST_SCREENSHOT_DIR");
    if (!dir || !*dir)
        return;
    osgDB::writeImageFile(image, std::string(dir) + "/" + name + ".png");
}

void ViewerFixture::SetUp()
{
    window = std::make_unique<cxhost::X11HostWindow>(windowWidth, windowHeight, "cxviewer test");
    ASSERT_TRUE(window->isValid()) << window->error();
    viewer = new CXViewer(window->handle());
    viewer->basePath = basePath;
    if (initOnSetUp)
        initOSG();
}

void ViewerFixture::initOSG()
{
    viewer->InitOSG();
    ASSERT_NE(viewer->graphicsContext, nullptr);
    capture = cxhost::FrameCapture::install(viewer->getViewer()->getCamera());
}

void ViewerFixture::TearDown()
{
    if (viewer.valid())
        viewer->UnInitOSG();
    viewer = nullptr;
    window.reset();
}

void ViewerFixture::frames(int count)
{
    for (int i = 0; i < count; ++i)
    {
        window->processEvents();
        viewer->getCompositeViewer()->frame();
    }
}

osg::ref_ptr<osg::Image> ViewerFixture::grabFrame()
{
    capture->arm();
    frames(1);
    return capture->image();
}

osgViewer::GraphicsWindow* ViewerFixture::graphicsWindow() const
{
    return dynamic_cast<osgViewer::GraphicsWindow*>(viewer->graphicsContext);
}

osgGA::EventQueue* ViewerFixture::eventQueue() const
{
    return graphicsWindow()->getEventQueue();
}

void ViewerFixture::mouseMove(float x, float y)
{
    eventQueue()->mouseMotion(x, y);
}

void ViewerFixture::mousePress(float x, float y, unsigned int button)
{
    eventQueue()->mouseButtonPress(x, y, button);
}

void ViewerFixture::mouseRelease(float x, float y, unsigned int button)
{
    eventQueue()->mouseButtonRelease(x, y, button);
}

void ViewerFixture::mouseDrag(float fromX, float fromY, float toX, float toY, unsigned int button, int steps)
{
    mouseMove(fromX, fromY);
    mousePress(fromX, fromY, button);
    frames(1);
    for (int i = 1; i <= steps; ++i)
    {
        const float t = static_cast<float>(i) / static_cast<float>(steps);
        mouseMove(fromX + (toX - fromX) * t, fromY + (toY - fromY) * t);
        frames(1);
    }
    mouseRelease(toX, toY, button);
    frames(1);
}

void ViewerFixture::doubleClick(float x, float y, unsigned int button)
{
    eventQueue()->mouseMotion(x, y);
    eventQueue()->mouseButtonPress(x, y, button);
    eventQueue()->mouseButtonRelease(x, y, button);
    eventQueue()->mouseDoubleButtonPress(x, y, button);
    eventQueue()->mouseButtonRelease(x, y, button);
}

void ViewerFixture::scroll(osgGA::GUIEventAdapter::ScrollingMotion motion, float x, float y)
{
    eventQueue()->mouseMotion(x, y);
    eventQueue()->mouseScroll(motion);
}

void ViewerFixture::keyPress(int key)
{
    eventQueue()->keyPress(key);
}

void ViewerFixture::keyRelease(int key)
{
    eventQueue()->keyRelease(key);
}

} // namespace cxtest
