#include "DemoKeys.h"

#include "DemoSkyBox.h"

#include <globe/FindTopMostNodeOfTypeVisitor>
#include <globe/EarthManipulator>
#include <globe/SkyNode>
#include <globe/TerrainEngine>

#include <osg/MatrixTransform>
#include <osg/OperationThread>
#include <osg/Uniform>
#include <osgDB/ReadFile>
#include <osgViewer/GraphicsWindow>

#include <cmath>
#include <cstdio>

namespace cxdemo
{

namespace
{

// Where the planned tower stands: on open ground south of the business
// district, and the sample's tallest design, a little taller still.
constexpr double kTowerLon = 116.4558;
constexpr double kTowerLat = 39.9076;
constexpr const char* kTowerModel = "buildings/cbd_tower_03_fine.osgb";
constexpr double kTowerHeightScale = 1.5;

// Runs the handler's keys in the update traversal.
class PendingKeys : public osg::Operation
{
public:
    explicit PendingKeys(DemoKeys* keys) : osg::Operation("cxdemo keys", true), _keys(keys) {}
    void operator()(osg::Object*) override
    {
        osg::ref_ptr<DemoKeys> keys;
        if (_keys.lock(keys))
            keys->runPending();
    }

private:
    osg::observer_ptr<DemoKeys> _keys;
};

globe::SkyNode* skyOf(CXViewer& viewer)
{
    return globe::findTopMostNodeOfType<globe::SkyNode>(viewer.getRoot());
}

globe::EarthManipulator* globeManipulatorOf(CXViewer& viewer)
{
    return viewer.getViewer() ? dynamic_cast<globe::EarthManipulator*>(viewer.getViewer()->getCameraManipulator())
                              : nullptr;
}

} // namespace

DemoKeys::DemoKeys(CXViewer* viewer, const std::string& basePath) : _viewer(viewer), _basePath(basePath) {}

DemoKeys* DemoKeys::install(CXViewer* viewer, const std::string& basePath)
{
    osg::ref_ptr<DemoKeys> keys = new DemoKeys(viewer, basePath);
    viewer->getViewer()->addEventHandler(keys.get());
    viewer->getCompositeViewer()->addUpdateOperation(new PendingKeys(keys.get()));
    return keys.get();
}

const char* DemoKeys::help()
{
    return "  p  depth partition on/off (a far and a near camera, each with its own depth range;\n"
           "     the near camera starts some 150 m from the eye, so closer views need it off)\n"
           "  v  split view on/off: a second view on the right half, with a planned tower south of\n"
           "     the business district that only it shows, behind a dividing line\n"
           "  k  sky box on/off: the sample's cube map (BASE/skybox) around the globe, in place\n"
           "     of the globe's space and stars\n"
           "  n  region labels on/off\n"
           "  m  point clouds' draw mode: stored colour, class, height, intensity\n";
}

bool DemoKeys::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter&)
{
    if (ea.getEventType() != osgGA::GUIEventAdapter::KEYDOWN)
        return false;
    switch (ea.getKey())
    {
    case 'p':
    case 'v':
    case 'k':
        _pending.push_back(ea.getKey());
        return true;
    case 'n':
    case 'N':
        setLabelsShown(!labelsShown());
        return true;
    case 'm':
    case 'M':
        nextPointCloudDrawMode();
        return true;
    default:
        return false;
    }
}

void DemoKeys::setLabelsShown(bool shown)
{
    osg::ref_ptr<CXViewer> viewer;
    if (_viewer.lock(viewer) && viewer->earthLabelGroup.valid())
        viewer->earthLabelGroup->setNodeMask(shown ? ~0u : 0u);
}

bool DemoKeys::labelsShown() const
{
    osg::ref_ptr<CXViewer> viewer;
    return _viewer.lock(viewer) && viewer->earthLabelGroup.valid() && viewer->earthLabelGroup->getNodeMask() != 0;
}

int DemoKeys::pointCloudDrawMode() const
{
    osg::ref_ptr<CXViewer> viewer;
    if (!_viewer.lock(viewer) || !viewer->getLiDAR() || !viewer->getLiDAR()->getStateSet())
        return 0;
    float mode = 0.0f;
    if (const osg::Uniform* uniform = viewer->getLiDAR()->getStateSet()->getUniform("PotreeDrawmode"))
        uniform->get(mode);
    return static_cast<int>(mode);
}

int DemoKeys::nextPointCloudDrawMode()
{
    static const char* const names[] = {"stored colour", "class", "height", "intensity"};
    osg::ref_ptr<CXViewer> viewer;
    if (!_viewer.lock(viewer) || !viewer->getLiDAR())
        return 0;
    const int mode = (pointCloudDrawMode() + 1) % 4;
    // A new uniform, as the viewer's own per-frame uniforms are.
    viewer->getLiDAR()->getOrCreateStateSet()->addUniform(new osg::Uniform("PotreeDrawmode", static_cast<float>(mode)),
                                                           osg::StateAttribute::ON);
    std::printf("cxdemo: point clouds drawn by %s\n", names[mode]);
    std::fflush(stdout);
    return mode;
}

void DemoKeys::runPending()
{
    const std::vector<int> keys = std::move(_pending);
    _pending.clear();
    for (int key : keys)
    {
        if (key == 'p')
            toggleDepthPartition();
        else if (key == 'v')
            toggleSplitView();
        else if (key == 'k')
            toggleSkyBox();
    }
}

bool DemoKeys::depthPartitionOn() const
{
    osg::ref_ptr<CXViewer> viewer;
    if (!_viewer.lock(viewer) || !viewer->getViewer())
        return false;
    // The main camera hands its drawing to the slaves.
    return viewer->getViewer()->getCamera()->getGraphicsContext() == nullptr && viewer->getViewer()->getNumSlaves() > 0;
}

void DemoKeys::toggleDepthPartition()
{
    osg::ref_ptr<CXViewer> viewer;
    if (!_viewer.lock(viewer) || !viewer->getViewer())
        return;
    const bool wasOn = depthPartitionOn();
    viewer->ToggleDepthPartition();
    if (!wasOn && !depthPartitionOn())
        viewer->ToggleDepthPartition(); // the first toggle had nothing to switch off
    std::printf("cxdemo: depth partition %s\n", depthPartitionOn() ? "on" : "off");
    std::fflush(stdout);
}

bool DemoKeys::splitViewOn() const
{
    osg::ref_ptr<CXViewer> viewer;
    return _viewer.lock(viewer) && viewer->GetViceView() != nullptr;
}

void DemoKeys::toggleSplitView()
{
    osg::ref_ptr<CXViewer> viewer;
    if (!_viewer.lock(viewer) || !viewer->getViewer())
        return;
    if (viewer->GetViceView())
    {
        viewer->deleteViceView();
        std::printf("cxdemo: split view off\n");
        std::fflush(stdout);
        return;
    }

    // The shared manipulator goes home when the vice view takes it: the
    // demo puts the view back where it was.
    globe::EarthManipulator* manipulator = globeManipulatorOf(*viewer);
    const CXViewport viewpoint = manipulator ? manipulator->getViewpoint() : CXViewport();
    viewer->createViceView();
    if (!viewer->GetViceView())
        return;
    if (manipulator)
        manipulator->setViewpoint(viewpoint, 0.0);
    // Keys reach the view under the mouse.
    viewer->GetViceView()->addEventHandler(this);

    if (!_plannedTower.valid() && viewer->mapNode.valid())
    {
        std::string root = viewer->modelRootPath;
        if (!root.empty() && root.back() != '/')
            root += '/';
        osg::ref_ptr<osg::Node> model = osgDB::readNodeFile(root + kTowerModel);
        if (model.valid())
        {
            const globe::TerrainEngine* terrain = viewer->mapNode->getTerrainEngine();
            const double ground = terrain ? terrain->getSurfaceHeight(kTowerLon, kTowerLat) : 0.0;
            osg::Matrixd frame;
            viewer->mapNode->getEllipsoidModel()->computeLocalToWorldTransformFromLatLongHeight(
                osg::DegreesToRadians(kTowerLat), osg::DegreesToRadians(kTowerLon), std::isfinite(ground) ? ground : 0.0,
                frame);
            osg::ref_ptr<osg::MatrixTransform> place =
                new osg::MatrixTransform(osg::Matrixd::scale(1.0, 1.0, kTowerHeightScale) * frame);
            place->setName("planned tower");
            // Unlit, as the viewer draws its buildings.
            place->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OVERRIDE);
            place->addChild(model.get());
            _plannedTower = place;
        }
        else
        {
            std::fprintf(stderr, "cxdemo: no planned tower: cannot read %s%s\n", root.c_str(), kTowerModel);
        }
    }
    if (_plannedTower.valid())
        viewer->GetViceModels()->addChild(_plannedTower.get());
    std::printf("cxdemo: split view on%s\n", _plannedTower.valid() ? ", the planned tower on the right" : "");
    std::fflush(stdout);
}

bool DemoKeys::skyBoxOn() const
{
    return _skyBox.valid() && _skyBox->getNumParents() > 0;
}

bool DemoKeys::toggleSkyBox()
{
    osg::ref_ptr<CXViewer> viewer;
    if (!_viewer.lock(viewer) || !viewer->getRoot())
        return false;
    globe::SkyNode* sky = skyOf(*viewer);
    if (skyBoxOn())
    {
        viewer->getRoot()->removeChild(_skyBox.get());
        if (sky)
        {
            sky->getSpace()->setNodeMask(~0u);
            sky->getStars()->setNodeMask(~0u);
        }
        std::printf("cxdemo: sky box off\n");
        std::fflush(stdout);
        return true;
    }
    if (!_skyBox.valid())
    {
        std::string message;
        _skyBox = makeDemoSkyBox(_basePath + "/skybox", message);
        if (!_skyBox.valid())
        {
            std::fprintf(stderr, "cxdemo: %s\n", message.c_str());
            return false;
        }
    }
    viewer->getRoot()->addChild(_skyBox.get());
    // The globe's space and stars would paint over it; its atmosphere stays.
    if (sky)
    {
        sky->getSpace()->setNodeMask(0u);
        sky->getStars()->setNodeMask(0u);
    }
    std::printf("cxdemo: sky box on\n");
    std::fflush(stdout);
    return true;
}

void pressKeys(CXViewer& viewer, const std::string& keys)
{
    auto* window = dynamic_cast<osgViewer::GraphicsWindow*>(viewer.graphicsContext);
    if (!window)
        return;
    for (char key : keys)
    {
        window->getEventQueue()->keyPress(static_cast<unsigned char>(key));
        window->getEventQueue()->keyRelease(static_cast<unsigned char>(key));
    }
}

} // namespace cxdemo
