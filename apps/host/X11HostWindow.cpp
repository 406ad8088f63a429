#include "X11HostWindow.h"

#include <GL/glx.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <atomic>
#include <cstdio>

namespace cxhost
{
namespace
{

std::atomic<int> g_errors{0};

int countError(Display* display, XErrorEvent* event)
{
    char text[256] = {0};
    XGetErrorText(display, event->error_code, text, sizeof(text) - 1);
    std::fprintf(stderr, "X error on the host connection: %s (request %d)\n", text, event->request_code);
    ++g_errors;
    return 0;
}

} // namespace

struct X11HostWindow::Impl
{
    Display* display = nullptr;
    Colormap colormap = 0;
    Atom deleteWindow = 0;
};

int X11HostWindow::errorCount()
{
    return g_errors.load();
}

X11HostWindow::X11HostWindow(int width, int height, const std::string& title, const std::string& displayName)
    : _impl(new Impl)
{
    _impl->display = XOpenDisplay(displayName.empty() ? nullptr : displayName.c_str());
    if (!_impl->display)
    {
        _error = "cannot open X display";
        return;
    }
    XSetErrorHandler(countError);
    Display* display = _impl->display;
    const int screen = DefaultScreen(display);

    int attributes[] = {GLX_RGBA, GLX_DOUBLEBUFFER, GLX_RED_SIZE, 8, GLX_GREEN_SIZE, 8, GLX_BLUE_SIZE, 8,
                        GLX_ALPHA_SIZE, 8, GLX_DEPTH_SIZE, 24, GLX_STENCIL_SIZE, 8, None};
    XVisualInfo* visual = glXChooseVisual(display, screen, attributes);
    if (!visual)
    {
        _error = "no GL-capable visual on the display";
        return;
    }

    const Window rootWindow = RootWindow(display, screen);
    _impl->colormap = XCreateColormap(display, rootWindow, visual->visual, AllocNone);
    XSetWindowAttributes set{};
    set.colormap = _impl->colormap;
    set.background_pixel = 0;
    set.border_pixel = 0;
    // The host listens to structure events only; input goes to the library.
    set.event_mask = StructureNotifyMask;
    const Window window = XCreateWindow(display, rootWindow, 0, 0, static_cast<unsigned>(width),
                                        static_cast<unsigned>(height), 0, visual->depth, InputOutput,
                                        visual->visual, CWColormap | CWBackPixel | CWBorderPixel | CWEventMask,
                                        &set);
    XFree(visual);

    XStoreName(display, window, title.c_str());
    _impl->deleteWindow = XInternAtom(display, "WM_DELETE_WINDOW", False);
    XSetWMProtocols(display, window, &_impl->deleteWindow, 1);
    XMapWindow(display, window);
    for (;;)
    {
        XEvent event;
        XWindowEvent(display, window, StructureNotifyMask, &event);
        if (event.type == MapNotify)
            break;
    }
    XSync(display, False);
    _window = window;
}

X11HostWindow::~X11HostWindow()
{
    if (_impl->display)
    {
        if (_window)
            XDestroyWindow(_impl->display, static_cast<Window>(_window));
        if (_impl->colormap)
            XFreeColormap(_impl->display, _impl->colormap);
        XSync(_impl->display, False);
        XCloseDisplay(_impl->display);
    }
    delete _impl;
}

bool X11HostWindow::processEvents()
{
    bool open = true;
    while (_impl->display && XPending(_impl->display) > 0)
    {
        XEvent event;
        XNextEvent(_impl->display, &event);
        if (event.type == ClientMessage &&
            static_cast<Atom>(event.xclient.data.l[0]) == _impl->deleteWindow)
            open = false;
        if (event.type == DestroyNotify)
            open = false;
    }
    return open;
}

void X11HostWindow::resize(int width, int height)
{
    if (!_window)
        return;
    XResizeWindow(_impl->display, static_cast<Window>(_window), static_cast<unsigned>(width),
                  static_cast<unsigned>(height));
    XSync(_impl->display, False);
}

} // namespace cxhost
