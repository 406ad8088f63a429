#include "FrameCapture.h"

#include <osg/GL>
#include <osg/RenderInfo>
#include <osg/Viewport>

namespace cxhost
{

FrameCapture* FrameCapture::install(osg::Camera* camera)
{
    osg::ref_ptr<FrameCapture> capture = new FrameCapture;
    camera->setFinalDrawCallback(capture.get());
    return capture.get();
}

osg::ref_ptr<osg::Image> FrameCapture::image() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _image;
}

osg::ref_ptr<osg::Image> FrameCapture::depth() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _depth;
}

void FrameCapture::operator()(osg::RenderInfo& renderInfo) const
{
    if (!_armed.exchange(false) && !_continuous)
        return;
    const osg::Camera* camera = renderInfo.getCurrentCamera();
    const osg::Viewport* viewport = camera ? camera->getViewport() : nullptr;
    if (!viewport || viewport->width() <= 0 || viewport->height() <= 0)
        return;

    const int x = static_cast<int>(viewport->x()), y = static_cast<int>(viewport->y());
    const int width = static_cast<int>(viewport->width()), height = static_cast<int>(viewport->height());
    osg::ref_ptr<osg::Image> image = new osg::Image;
    glReadBuffer(camera->getReadBuffer() ? camera->getReadBuffer() : GL_BACK);
    image->readPixels(x, y, width, height, GL_RGBA, GL_UNSIGNED_BYTE);
    osg::ref_ptr<osg::Image> depth;
    if (_captureDepth)
    {
        depth = new osg::Image;
        depth->readPixels(x, y, width, height, GL_DEPTH_COMPONENT, GL_FLOAT);
    }
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _image = image;
        _depth = depth;
    }
    ++_captures;
}

} // namespace cxhost
