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

void FrameCapture::operator()(osg::RenderInfo& renderInfo) const
{
    if (!_armed.exchange(false) && !_continuous)
        return;
    const osg::Camera* camera = renderInfo.getCurrentCamera();
    const osg::Viewport* viewport = camera ? camera->getViewport() : nullptr;
    if (!viewport || viewport->width() <= 0 || viewport->height() <= 0)
        return;

    osg::ref_ptr<osg::Image> image = new osg::Image;
    glReadBuffer(camera->getReadBuffer() ? camera->getReadBuffer() : GL_BACK);
    image->readPixels(static_cast<int>(viewport->x()), static_cast<int>(viewport->y()),
                      static_cast<int>(viewport->width()), static_cast<int>(viewport->height()), GL_RGBA,
                      GL_UNSIGNED_BYTE);
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _image = image;
    }
    ++_captures;
}

} // namespace cxhost
