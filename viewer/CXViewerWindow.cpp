// View and window set-up: the composite viewer, the main view and a graphics
// context that draws into the host's existing window.
#include <viewer/CXViewer>

#include "HostWindowX11.h"

#include <objects/CmdProcessEventHandler>

#include <osg/DisplaySettings>
#include <osg/GL>
#include <osg/Notify>
#include <osgGA/StateSetManipulator>
#include <osgViewer/ViewerEventHandlers>

namespace
{

// Mesa's llvmpipe offers at most 4 samples and some drivers none: when the
// requested count is refused, fewer samples are better than no context (a
// composite viewer without a context opens a window of its own).
osg::GraphicsContext* createContextWithSampleFallback(osg::GraphicsContext::Traits* traits,
                                                       unsigned int displayMaxSamples)
{
    const unsigned int requested = traits->samples;
    for (unsigned int samples : {requested, 4u, 0u})
    {
        if (samples > requested || samples > displayMaxSamples)
            continue;
        traits->samples = samples;
        traits->sampleBuffers = samples > 0 ? 1 : 0;
        if (osg::GraphicsContext* context = osg::GraphicsContext::createGraphicsContext(traits))
            return context;
        if (samples == 0)
            break;
    }
    return nullptr;
}

} // namespace

void CXViewer::InitViewer()
{
    // One paging thread and none for remote files; must precede any view.
    osg::DisplaySettings::instance()->setNumOfDatabaseThreadsHint(1);
    osg::DisplaySettings::instance()->setNumOfHttpDatabaseThreadsHint(0);

    compositeViewer = new osgViewer::CompositeViewer;
    compositeViewer->setKeyEventSetsDone(0);
    compositeViewer->setQuitEventSetsDone(false);
    // Deterministic: GL on the host's thread, and cull never overlaps draw.
    compositeViewer->setThreadingModel(osgViewer::ViewerBase::SingleThreaded);

    mainView = new osgViewer::View;
    mainView->setName("MainView");
    compositeViewer->addView(mainView.get());

    osg::ref_ptr<osg::GraphicsContext::Traits> traits = new osg::GraphicsContext::Traits;
    traits->readDISPLAY();
    traits->setUndefinedScreenDetailsToDefaultScreen();
    const cxviewer::HostWindowFormat window = cxviewer::queryHostWindow(hWnd, traits->displayName());

    traits->x = 0;
    traits->y = 0;
    traits->width = window.width;
    traits->height = window.height;
    traits->windowDecoration = false;
    traits->doubleBuffer = window.valid ? window.doubleBuffer : true;
    traits->sharedContext = nullptr;
    traits->setInheritedWindowPixelFormat = true;
    traits->inheritedWindowData = cxviewer::makeInheritedWindowData(hWnd);
    // OSG on X11 picks the pixel format from the traits, not from the
    // inherited window: describe the window's own visual.
    traits->red = window.red;
    traits->green = window.green;
    traits->blue = window.blue;
    traits->alpha = window.alpha;
    traits->depth = window.depth;
    traits->stencil = window.stencil;
    traits->samples = 16;

    graphicsContext = window.valid ? createContextWithSampleFallback(traits.get(), static_cast<unsigned int>(window.maxSamples)) : nullptr;
    if (graphicsContext)
    {
        compositeViewer->setRealizeOperation(new cxviewer::SelectHostWindowInput);
    }
    else
    {
        // Without a context the viewer would open a window of its own on the
        // first frame; frames do nothing instead.
        OSG_WARN << "CXViewer: no graphics context on host window " << hWnd << std::endl;
        compositeViewer->setDone(true);
    }

    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setGraphicsContext(graphicsContext);
    camera->setViewport(new osg::Viewport(static_cast<double>(traits->x), static_cast<double>(traits->y),
                                          static_cast<double>(traits->width),
                                          static_cast<double>(traits->height)));
    const GLenum buffer = traits->doubleBuffer ? GL_BACK : GL_FRONT;
    camera->setDrawBuffer(buffer);
    camera->setReadBuffer(buffer);
    camera->setClearMask(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
    camera->setClearColor(osg::Vec4(0.7f, 0.7f, 0.7f, 1.0f));
    // No guard on purpose: a window of height 0 gives a non-finite aspect.
    camera->setProjectionMatrixAsPerspective(
        30.0, static_cast<double>(traits->width) / static_cast<double>(traits->height), 1.0, 1000.0);
    camera->setNearFarRatio(2e-05);

    mainView->setCamera(camera.get());

    osgDB::DatabasePager* pager = mainView->getDatabasePager();
    pager->setDoPreCompile(true);
    pager->setTargetMaximumNumberOfPageLOD(300);
}

void CXViewer::InitEventHandler()
{
    OBJManage::CmdProcessEventHandler* handler = OBJManage::CmdProcessEventHandler::instance(false);
    if (getViewer())
        getViewer()->addEventHandler(handler);
}

void CXViewer::configureView(osgViewer::View* view) const
{
    view->addEventHandler(new osgViewer::StatsHandler);
    view->addEventHandler(new osgViewer::WindowSizeHandler);
    view->addEventHandler(new osgViewer::ThreadingHandler);
    view->addEventHandler(new osgViewer::LODScaleHandler);
    view->addEventHandler(new osgGA::StateSetManipulator(view->getCamera()->getOrCreateStateSet()));
}
