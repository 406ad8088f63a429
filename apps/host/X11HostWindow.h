// A plain X11 top-level window with a GL-capable visual, made the way a
// desktop host makes the window it hands to CXViewer. Used by the demo host
// and by the rendering tests.
#ifndef CXVIEWER_APPS_X11HOSTWINDOW_H
#define CXVIEWER_APPS_X11HOSTWINDOW_H

#include <viewer/Platform>

#include <string>

namespace cxhost
{

class X11HostWindow
{
public:
    /** Opens the display of DISPLAY (or `displayName`), creates and maps a
      * width x height window titled `title`. isValid() tells whether it worked. */
    X11HostWindow(int width, int height, const std::string& title, const std::string& displayName = "");
    ~X11HostWindow();
    X11HostWindow(const X11HostWindow&) = delete;
    X11HostWindow& operator=(const X11HostWindow&) = delete;

    bool isValid() const { return _window != 0; }
    CXNativeWindow handle() const { return _window; }
    const std::string& error() const { return _error; }

    /** Handles the host's own X events; false once the window manager asked to
      * close the window. */
    bool processEvents();

    /** Resizes the window and waits until the server has done it. */
    void resize(int width, int height);

    /** Number of X protocol errors seen on the host's connection. */
    static int errorCount();

private:
    struct Impl;
    Impl* _impl = nullptr;
    CXNativeWindow _window = 0;
    std::string _error;
};

} // namespace cxhost

#endif
