// Split view: the main view in the left half of the window and a second view,
// the vice view, in the right half, one manipulator for both. The vice view
// shows root, not the rest of scene: what stands in viceModels shows on the
// right only, what stands in models (under scene) on the left only.
#include <viewer/CXViewer>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/GL>
#include <osg/Light>
#include <osg/LineWidth>

void CXViewer::changeViewSize(bool half)
{
    // The window's size as the context was made with it; a later resize is
    // not seen here.
    if (!mainView.valid() || !graphicsContext || !graphicsContext->getTraits())
        return;
    const int width = graphicsContext->getTraits()->width;
    const int height = graphicsContext->getTraits()->height;
    osg::Camera* camera = mainView->getCamera();

    if (camera->getViewport())
    {
        // The left half, halved in integers, or the whole window.
        const int viewWidth = half ? width / 2 : width;
        camera->setViewport(new osg::Viewport(0, 0, viewWidth, height));
        camera->setProjectionMatrixAsPerspective(
            30.0, static_cast<double>(viewWidth) / static_cast<double>(height), 1.0, 1000.0);
        return;
    }

    // A partitioned view draws through its slaves. Nothing tests the present
    // state: a second call with the same argument halves or doubles again.
    for (unsigned int i = 0; i < mainView->getNumSlaves(); ++i)
    {
        osg::Camera* slaveCamera = mainView->getSlave(i)._camera.get();
        const osg::Viewport* viewport = slaveCamera ? slaveCamera->getViewport() : nullptr;
        if (!viewport)
            continue;
        const double slaveWidth = half ? viewport->width() / 2.0 : viewport->width() * 2.0;
        slaveCamera->setViewport(new osg::Viewport(viewport->x(), viewport->y(), slaveWidth, viewport->height()));
    }
    double fovy = 0.0, aspect = 0.0, zNear = 0.0, zFar = 0.0;
    camera->getProjectionMatrixAsPerspective(fovy, aspect, zNear, zFar);
    camera->setProjectionMatrixAsPerspective(fovy, half ? aspect / 2.0 : aspect * 2.0, zNear, zFar);
}

void CXViewer::createViceView()
{
    // Without a view or a context there is no window to split.
    if (!compositeViewer || !mainView.valid() || !graphicsContext || !graphicsContext->getTraits())
        return;
    const int width = graphicsContext->getTraits()->width;
    const int height = graphicsContext->getTraits()->height;

    viceView = new osgViewer::View;

    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setGraphicsContext(graphicsContext);
    // The right half, halved in integers.
    camera->setViewport(new osg::Viewport(width / 2, 0, width / 2, height));
    camera->setProjectionMatrixAsPerspective(30.0, static_cast<double>(width / 2) / static_cast<double>(height),
                                             1.0, 1000.0);
    camera->setNearFarRatio(2e-05);
    viceView->setCamera(camera.get());

    viceRoot = new osg::Group;
    viceModels = new osg::Group;
    viceRoot->getOrCreateStateSet()->setMode(GL_DEPTH_TEST, osg::StateAttribute::ON);
    // All of root, not the rest of scene; then what the right side alone shows.
    viceRoot->addChild(root.get());
    viceRoot->addChild(viceModels.get());
    viceRoot->addChild(viceExtra.get());
    viceView->setSceneData(viceRoot.get());

    // One manipulator for both views keeps the cameras in step.
    viceView->setCameraManipulator(mainView->getCameraManipulator(), true);

    viceView->setLightingMode(osg::View::SKY_LIGHT);
    if (osg::Light* light = viceView->getLight())
    {
        light->setAmbient(osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f));
        light->setPosition(osg::Vec4(500.0f, 500.0f, 1000.0f, 0.0f));
        light->setDiffuse(osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f));
    }

    compositeViewer->addView(viceView.get());

    viceRoot->addChild(createDividingLine(2, 1050, 0));

    models = new osg::Group;
    scene->addChild(models.get());

    changeViewSize(true);
}

void CXViewer::clearViceView()
{
    if (models.valid())
        models->removeChildren(0, models->getNumChildren());
    if (viceModels.valid())
        viceModels->removeChildren(0, viceModels->getNumChildren());
}

void CXViewer::deleteViceView()
{
    if (viceRoot.valid())
        viceRoot->removeChildren(0, viceRoot->getNumChildren());
    if (compositeViewer && viceView.valid())
        compositeViewer->removeView(viceView.get());
    viceView = nullptr;
    viceRoot = nullptr;
    viceModels = nullptr;

    changeViewSize(false);

    if (models.valid())
    {
        models->removeChildren(0, models->getNumChildren());
        if (scene.valid())
            scene->removeChild(models.get());
    }
    models = nullptr;
}

osg::Camera* CXViewer::createDividingLine(int x, int y1, int y2)
{
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;

    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    vertices->push_back(osg::Vec3(static_cast<float>(x), static_cast<float>(y1), 0.0f));
    vertices->push_back(osg::Vec3(static_cast<float>(x), static_cast<float>(y2), 0.0f));
    geometry->setVertexArray(vertices.get());
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_LINES, 0, 2));

    osg::ref_ptr<osg::Vec4Array> colours = new osg::Vec4Array;
    colours->push_back(osg::Vec4(0.0f, 0.0f, 0.0f, 1.0f));
    geometry->setColorArray(colours.get(), osg::Array::BIND_OVERALL);
    geode->addDrawable(geometry.get());

    osg::StateSet* lineState = geode->getOrCreateStateSet();
    osg::ref_ptr<osg::LineWidth> lineWidth = new osg::LineWidth(1.0f);
    lineWidth->setWidth(4.0f);
    lineState->setAttribute(lineWidth.get());
    lineState->setMode(GL_LINE_SMOOTH, osg::StateAttribute::ON);

    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    // A fixed frame of 1680 by 1050, whatever the window's size.
    camera->setProjectionMatrix(osg::Matrixd::ortho2D(0.0, 1680.0, 0.0, 1050.0));
    camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    camera->setViewMatrix(osg::Matrixd::identity());
    camera->setClearMask(GL_DEPTH_BUFFER_BIT);
    camera->setRenderOrder(osg::Camera::POST_RENDER, 0);
    camera->setAllowEventFocus(false);
    camera->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    camera->addChild(geode.get());
    return camera.release();
}
