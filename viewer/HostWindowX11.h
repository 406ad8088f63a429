// Everything the viewer needs to know about the host's X11 window. This file
// and its source are the only places of the library that include X11 headers.
#ifndef CXVIEWER_VIEWER_HOSTWINDOWX11_H
#define CXVIEWER_VIEWER_HOSTWINDOWX11_H

#include <viewer/Platform>

#include <osg/GraphicsContext>
#include <osg/OperationThread>
#include <osg/ref_ptr>

#include <string>

namespace cxviewer
{

/** Size and pixel format of the host window, read from the X server. */
struct HostWindowFormat
{
    bool valid = false;      ///< the window exists on the display
    int width = 0;
    int height = 0;
    bool doubleBuffer = true;
    int red = 8, green = 8, blue = 8, alpha = 0;
    int depth = 24;
    int stencil = 0;
    int samples = 0;
    /** Highest multisample count (16, 8, 4, 2 or 0) for which the display
      * has a framebuffer configuration of this format. */
    int maxSamples = 0;
};

/** Queries the window on `displayName` (XGetWindowAttributes, and glXGetConfig
  * on its visual). A window that does not exist, or a display that cannot be
  * opened, gives an invalid format of size 0 x 0; no X error escapes. */
HostWindowFormat queryHostWindow(CXNativeWindow window, const std::string& displayName);

/** osgViewer::GraphicsWindowX11::WindowData for the window, for the traits'
  * inheritedWindowData. */
osg::ref_ptr<osg::Referenced> makeInheritedWindowData(CXNativeWindow window);

/** Realize operation: once OSG has made the context current on the host
  * window, selects structure, exposure, pointer-motion and key events on it
  * through OSG's event connection, and button events unless another client
  * (the host) already takes button presses. */
class SelectHostWindowInput : public osg::Operation
{
public:
    SelectHostWindowInput();
    void operator()(osg::Object* object) override;
};

} // namespace cxviewer

#endif
