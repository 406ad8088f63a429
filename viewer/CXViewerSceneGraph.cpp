// The fixed tree of named groups into which the other parts of the library
// put their nodes, with the render state of each.
#include <viewer/CXViewer>

#include <globe/Style>
#include <navigation/CXEarthManipulator>
#include <pointcloud/pagelodCullCallBack>

#include <osg/Material>
#include <osg/Uniform>
#include <osgGA/StateSetManipulator>
#include <osgViewer/ViewerEventHandlers>

void CXViewer::InitSceneGraph()
{
    shanshuo = new osg::Group;

    scene = new osg::Group;
    scene->getOrCreateStateSet()->setMode(GL_DEPTH_TEST, osg::StateAttribute::ON);

    root = new osg::Group;
    scene->addChild(root.get());

    for (osg::ref_ptr<osg::Group>* group : {&BiaoZhu, &simpleModel, &JKManage, &pipeGroup, &excavate, &JingKong})
    {
        *group = new osg::Group;
        // The pipe group goes to the root of the global viewer, which by now
        // is this object.
        osg::Group* parent = root.get();
        if (group == &pipeGroup && g_pCXviewer && g_pCXviewer->getRoot())
            parent = g_pCXviewer->getRoot();
        parent->addChild(group->get());
    }

    terrain = new osg::Group;

    building = new osg::Group;
    root->addChild(building.get());

    // A style with an empty name that nothing uses; it only lives for the
    // length of the set-up.
    const globe::Style unusedStyle("");
    static_cast<void>(unusedStyle);

    // Oblique models draw before the default bin, buildings after it.
    OSGBData = new osg::MatrixTransform;
    OSGBData->getOrCreateStateSet()->setRenderBinDetails(-1, "RenderBin", osg::StateSet::USE_RENDERBIN_DETAILS);
    root->addChild(OSGBData.get());

    building->getOrCreateStateSet()->setRenderBinDetails(1, "RenderBin", osg::StateSet::USE_RENDERBIN_DETAILS);

    // Point clouds: the cull callback spreads from here over every cloud and
    // rebuilds each root's table of visible tiles at every cull.
    LiDAR = new osg::Group;
    LiDAR->setCullCallback(new pagelodCullCallBack);
    osg::StateSet* lidarState = LiDAR->getOrCreateStateSet();
    lidarState->addUniform(new osg::Uniform("PotreeMinSize", 1.0f), osg::StateAttribute::ON);
    lidarState->addUniform(new osg::Uniform("PotreeMaxSize", 18.0f), osg::StateAttribute::ON);
    lidarState->addUniform(new osg::Uniform("PotreeDrawmode", 0.0f), osg::StateAttribute::ON);
    lidarState->setMode(GL_POINT_SMOOTH, osg::StateAttribute::OVERRIDE | osg::StateAttribute::PROTECTED);
    lidarState->setMode(GL_LINE_SMOOTH, osg::StateAttribute::PROTECTED);
    root->addChild(LiDAR.get());

    osg::ref_ptr<osg::MatrixTransform> forProperty = new osg::MatrixTransform;
    building_forProperty = forProperty;
    for (const char* name : {"dong", "hu"})
    {
        osg::ref_ptr<osg::MatrixTransform> holder = new osg::MatrixTransform;
        holder->setName(name);
        building_forProperty->addChild(holder.get());
    }
    root->addChild(building_forProperty.get());
    building_forProperty->getOrCreateStateSet()->setMode(GL_BLEND, osg::StateAttribute::ON);

    mainView->setSceneData(scene.get());

    // Lighting of the buildings stays off over all their children.
    osg::StateSet* buildingState = building->getOrCreateStateSet();
    buildingState->setMode(GL_NORMALIZE, osg::StateAttribute::OVERRIDE);
    buildingState->setMode(GL_LIGHTING, osg::StateAttribute::OVERRIDE);

    // The library's own manipulator; the map set-up replaces it by the
    // globe's when the earth file loads, and it stays when that fails.
    mainView->setCameraManipulator(new CXEarthManipulator, true);

    osg::Camera* camera = mainView->getCamera();
    mainView->addEventHandler(new osgViewer::StatsHandler);
    mainView->addEventHandler(new osgGA::StateSetManipulator(camera->getOrCreateStateSet()));
}
