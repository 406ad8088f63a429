// Test fixture for rendering tests: a real X11 host window on the test
// display, a CXViewer on it after InitOSG, frame driving, input injection
// through the graphics window's event queue, and frame read-back.
#ifndef CXVIEWER_TESTS_VIEWERFIXTURE_H
#define CXVIEWER_TESTS_VIEWERFIXTURE_H

#include "FrameCapture.h"
#include "X11HostWindow.h"

#include <viewer/CXViewer>

#include <gtest/gtest.h>
#include <osg/Image>
#include <osgGA/EventQueue>
#include <osgViewer/GraphicsWindow>

#include <memory>
#include <string>

namespace cxtest
{

/** RGBA of one pixel of a read-back frame; (x, y) from the top-left corner. */
osg::Vec4ub pixelAt(const osg::Image& image, int x, int y);

/** Pixels at which two frames of the same size differ by more than
  * `tolerance` in any of red, green and blue. */
int differingPixels(const osg::Image& a, const osg::Image& b, int tolerance = 2);

/** Writes `image` to $CXTEST_SCREENSHOT_DIR/<name>.png when that variable is set. */
void saveScreenshot(const osg::Image& image, const std::string& name);

class ViewerFixture : public ::testing::Test
{
protected:
    /** Window size and paths of the viewer; change them in a subclass's
      * constructor. */
    int windowWidth = 640;
    int windowHeight = 480;
    std::string basePath;
    /** false: SetUp only constructs the viewer; the test calls InitOSG(). */
    bool initOnSetUp = true;

    void SetUp() override;
    void TearDown() override;

    /** Runs InitOSG (when initOnSetUp is false). */
    void initOSG();

    /** Draws `count` frames. */
    void frames(int count = 1);
    /** Draws one frame and returns what it drew. */
    osg::ref_ptr<osg::Image> grabFrame();
    /** Draws frames until `done()` is true or `maxFrames` have passed; true
      * when it became true. */
    template <typename Predicate>
    bool framesUntil(Predicate done, int maxFrames)
    {
        for (int i = 0; i < maxFrames; ++i)
        {
            frames(1);
            if (done())
                return true;
        }
        return false;
    }

    osgViewer::GraphicsWindow* graphicsWindow() const;
    /** The graphics window's queue: events put here carry its input range
      * and context, as those of the X server do. */
    osgGA::EventQueue* eventQueue() const;

    // Input in window pixels, origin at the top-left corner, as X delivers it.
    void mouseMove(float x, float y);
    void mousePress(float x, float y, unsigned int button);
    void mouseRelease(float x, float y, unsigned int button);
    /** Press at `from`, `steps` moves with one frame each, release at `to`. */
    void mouseDrag(float fromX, float fromY, float toX, float toY, unsigned int button, int steps = 10);
    void doubleClick(float x, float y, unsigned int button);
    void scroll(osgGA::GUIEventAdapter::ScrollingMotion motion, float x, float y);
    void keyPress(int key);
    void keyRelease(int key);

    std::unique_ptr<cxhost::X11HostWindow> window;
    osg::ref_ptr<CXViewer> viewer;
    osg::ref_ptr<cxhost::FrameCapture> capture;
};

} // namespace cxtest

#endif
