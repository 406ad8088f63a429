#include "HostWindowX11.h"

#include <osg/Notify>
#include <osgViewer/api/X11/GraphicsWindowX11>

#include <GL/glx.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <mutex>

namespace cxviewer
{
namespace
{

// Xlib's error handler is process-wide. While we probe a window that may not
// exist, errors are recorded instead of ending the process.
std::mutex g_trapMutex;
int g_trappedError = 0;

int trapError(Display*, XErrorEvent* event)
{
    g_trappedError = event->error_code;
    return 0;
}

class XErrorTrap
{
public:
    explicit XErrorTrap(Display* display) : _display(display), _lock(g_trapMutex)
    {
        XSync(_display, False);
        g_trappedError = 0;
        _previous = XSetErrorHandler(trapError);
    }
    ~XErrorTrap() { XSetErrorHandler(_previous); }

    /** Flushes the requests made so far and tells whether any failed. */
    bool failed()
    {
        XSync(_display, False);
        return g_trappedError != 0;
    }

private:
    Display* _display;
    std::lock_guard<std::mutex> _lock;
    int (*_previous)(Display*, XErrorEvent*) = nullptr;
};

int glxConfig(Display* display, XVisualInfo* visual, int attribute, int fallback)
{
    int value = 0;
    return glXGetConfig(display, visual, attribute, &value) == 0 ? value : fallback;
}

// Whether the screen has a window-capable framebuffer configuration of this
// format with `samples` samples. Asking OSG for one that does not exist makes
// GLX report X errors before the context creation fails.
bool hasConfigWithSamples(Display* display, int screen, const HostWindowFormat& format, int samples)
{
    const int attributes[] = {GLX_X_RENDERABLE, True,
                              GLX_DRAWABLE_TYPE, GLX_WINDOW_BIT,
                              GLX_RENDER_TYPE, GLX_RGBA_BIT,
                              GLX_RED_SIZE, format.red,
                              GLX_GREEN_SIZE, format.green,
                              GLX_BLUE_SIZE, format.blue,
                              GLX_ALPHA_SIZE, format.alpha,
                              GLX_DEPTH_SIZE, format.depth,
                              GLX_STENCIL_SIZE, format.stencil,
                              GLX_DOUBLEBUFFER, format.doubleBuffer ? True : False,
                              GLX_SAMPLE_BUFFERS, samples > 0 ? 1 : 0,
                              GLX_SAMPLES, samples,
                              None};
    int count = 0;
    GLXFBConfig* configs = glXChooseFBConfig(display, screen, attributes, &count);
    if (configs)
        XFree(configs);
    return count > 0;
}

} // namespace

HostWindowFormat queryHostWindow(CXNativeWindow window, const std::string& displayName)
{
    HostWindowFormat format;
    if (window == 0)
        return format;

    Display* display = XOpenDisplay(displayName.empty() ? nullptr : displayName.c_str());
    if (!display)
    {
        OSG_WARN << "CXViewer: cannot open X display \"" << displayName << "\"" << std::endl;
        return format;
    }

    {
        XErrorTrap trap(display);
        XWindowAttributes attributes{};
        const Status ok = XGetWindowAttributes(display, static_cast<Window>(window), &attributes);
        if (ok && !trap.failed())
        {
            format.valid = true;
            format.width = attributes.width;
            format.height = attributes.height;

            XVisualInfo templ{};
            templ.visualid = XVisualIDFromVisual(attributes.visual);
            int count = 0;
            XVisualInfo* visual = XGetVisualInfo(display, VisualIDMask, &templ, &count);
            if (visual && count > 0 && glxConfig(display, visual, GLX_USE_GL, 0))
            {
                format.doubleBuffer = glxConfig(display, visual, GLX_DOUBLEBUFFER, 1) != 0;
                format.red = glxConfig(display, visual, GLX_RED_SIZE, format.red);
                format.green = glxConfig(display, visual, GLX_GREEN_SIZE, format.green);
                format.blue = glxConfig(display, visual, GLX_BLUE_SIZE, format.blue);
                format.alpha = glxConfig(display, visual, GLX_ALPHA_SIZE, format.alpha);
                format.depth = glxConfig(display, visual, GLX_DEPTH_SIZE, format.depth);
                format.stencil = glxConfig(display, visual, GLX_STENCIL_SIZE, format.stencil);
                format.samples = glxConfig(display, visual, GLX_SAMPLES, format.samples);
            }
            if (visual)
                XFree(visual);

            const int screen = XScreenNumberOfScreen(attributes.screen);
            for (int samples : {16, 8, 4, 2})
            {
                if (hasConfigWithSamples(display, screen, format, samples))
                {
                    format.maxSamples = samples;
                    break;
                }
            }
        }
    }
    XCloseDisplay(display);
    return format;
}

osg::ref_ptr<osg::Referenced> makeInheritedWindowData(CXNativeWindow window)
{
    return new osgViewer::GraphicsWindowX11::WindowData(static_cast<Window>(window));
}

SelectHostWindowInput::SelectHostWindowInput() : osg::Operation("SelectHostWindowInput", false) {}

void SelectHostWindowInput::operator()(osg::Object* object)
{
    auto* window = dynamic_cast<osgViewer::GraphicsWindowX11*>(object);
    if (!window || !window->getEventDisplay() || window->getWindow() == 0)
        return;

    Display* display = window->getEventDisplay();
    const Window handle = window->getWindow();
    long mask = StructureNotifyMask | ExposureMask | PointerMotionMask | KeyPressMask |
                KeyReleaseMask | EnterWindowMask | LeaveWindowMask | FocusChangeMask;

    XErrorTrap trap(display);
    XWindowAttributes attributes{};
    if (XGetWindowAttributes(display, handle, &attributes) && !trap.failed())
    {
        // Only one client may select button presses on a window. When the host
        // already has them, it forwards mouse input through the event queue.
        if ((attributes.all_event_masks & ButtonPressMask) == 0)
            mask |= ButtonPressMask | ButtonReleaseMask;
    }
    XSelectInput(display, handle, mask);
    if (trap.failed())
        OSG_WARN << "CXViewer: could not select input on the host window" << std::endl;
}

} // namespace cxviewer
