// A host that owns its window and frame loop, as a desktop application does:
// it makes an X11 window, hands it to CXViewer, draws one frame and shuts down.
#include <viewer/CXViewer>

#include <X11/Xlib.h>

#include <cstdio>

int main()
{
    Display* display = XOpenDisplay(nullptr);
    if (!display)
    {
        std::fprintf(stderr, "tinyhost: no X display\n");
        return 1;
    }
    const int screen = DefaultScreen(display);
    const Window window = XCreateSimpleWindow(display, RootWindow(display, screen), 0, 0, 320, 240, 0, 0, 0);
    XMapWindow(display, window);
    XSync(display, False);

    int status = 0;
    {
        osg::ref_ptr<CXViewer> viewer = new CXViewer(window);
        viewer->InitOSG();
        // Every public field is usable from this one include.
        viewer->commandQueue.push(new OBJManage::command);
        viewer->setPipeVisible("water", true, false, true);
        if (viewer->getCompositeViewer()->done())
        {
            std::fprintf(stderr, "tinyhost: no GL context on the window\n");
            status = 1;
        }
        else
        {
            viewer->getCompositeViewer()->frame();
            std::printf("tinyhost: frame drawn, %u views, root has %u children\n",
                        viewer->getCompositeViewer()->getNumViews(), viewer->getRoot()->getNumChildren());
        }
        viewer->UnInitOSG();
    }

    XDestroyWindow(display, window);
    XCloseDisplay(display);
    return status;
}
