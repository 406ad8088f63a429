// Reads back the whole window as it is about to be shown: a swap callback of
// the graphics context that reads the back buffer after every camera on the
// context has drawn (all views, all slave cameras), then swaps. A capture of
// one camera's viewport (FrameCapture) misses what the other cameras draw.
#ifndef CXVIEWER_APPS_WINDOWCAPTURE_H
#define CXVIEWER_APPS_WINDOWCAPTURE_H

#include <osg/GraphicsContext>
#include <osg/Image>

#include <atomic>
#include <mutex>

namespace cxhost
{

class WindowCapture : public osg::GraphicsContext::SwapCallback
{
public:
    /** Installs a capture as `context`'s swap callback; null for a null
      * context. */
    static WindowCapture* install(osg::GraphicsContext* context);

    /** The next swapped frame is read back. */
    void arm() { _armed = true; }

    /** The last frame read back (RGBA, bottom row first, the window's size);
      * null before any. */
    osg::ref_ptr<osg::Image> image() const;
    unsigned int captures() const { return _captures; }

    void swapBuffersImplementation(osg::GraphicsContext* context) override;

private:
    std::atomic<bool> _armed{false};
    std::atomic<unsigned int> _captures{0};
    mutable std::mutex _mutex;
    osg::ref_ptr<osg::Image> _image;
};

} // namespace cxhost

#endif
