// Reads a camera's rendered frame back into an osg::Image, from a final draw
// callback (after the scene is drawn, before the buffers swap).
#ifndef CXVIEWER_APPS_FRAMECAPTURE_H
#define CXVIEWER_APPS_FRAMECAPTURE_H

#include <osg/Camera>
#include <osg/Image>

#include <atomic>
#include <mutex>

namespace cxhost
{

class FrameCapture : public osg::Camera::DrawCallback
{
public:
    /** Installs a capture as `camera`'s final draw callback. */
    static FrameCapture* install(osg::Camera* camera);

    /** The next drawn frame is read back. */
    void arm() { _armed = true; }
    /** Reads every frame back until disarmed. */
    void setContinuous(bool on) { _continuous = on; }
    /** Reads the depth buffer back too (off by default). */
    void setCaptureDepth(bool on) { _captureDepth = on; }

    /** The last frame read back (RGBA, bottom row first); null before any. */
    osg::ref_ptr<osg::Image> image() const;
    /** Its depth buffer (one float in [0, 1] per pixel, bottom row first)
      * when setCaptureDepth() is on; null otherwise. */
    osg::ref_ptr<osg::Image> depth() const;
    unsigned int captures() const { return _captures; }

    void operator()(osg::RenderInfo& renderInfo) const override;

private:
    mutable std::atomic<bool> _armed{false};
    std::atomic<bool> _continuous{false};
    std::atomic<bool> _captureDepth{false};
    mutable std::atomic<unsigned int> _captures{0};
    mutable std::mutex _mutex;
    mutable osg::ref_ptr<osg::Image> _image;
    mutable osg::ref_ptr<osg::Image> _depth;
};

} // namespace cxhost

#endif
