#include "WindowCapture.h"

#include <osg/GL>

namespace cxhost
{

WindowCapture* WindowCapture::install(osg::GraphicsContext* context)
{
    if (!context)
        return nullptr;
    osg::ref_ptr<WindowCapture> capture = new WindowCapture;
    context->setSwapCallback(capture.get());
    return capture.get();
}

osg::ref_ptr<osg::Image> WindowCapture::image() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _image;
}

void WindowCapture::swapBuffersImplementation(osg::GraphicsContext* context)
{
    const osg::GraphicsContext::Traits* traits = context->getTraits();
    if (_armed.exchange(false) && traits && traits->width > 0 && traits->height > 0)
    {
        osg::ref_ptr<osg::Image> image = new osg::Image;
        glReadBuffer(traits->doubleBuffer ? GL_BACK : GL_FRONT);
        image->readPixels(0, 0, traits->width, traits->height, GL_RGBA, GL_UNSIGNED_BYTE);
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _image = image;
        }
        ++_captures;
    }
    context->swapBuffersImplementation();
}

} // namespace cxhost
