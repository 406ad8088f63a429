// Depth partition: the main camera's drawing handed to a far and a near slave
// camera, each with its own depth range, so that a scene from a metre to tens
// of thousands of kilometres keeps its depth precision.
#include <viewer/CXViewer>

#include <rendering/MyNewUpdateSlaveCallback>

#include <osg/GL>
#include <osg/Notify>
#include <osgViewer/View>

namespace
{

// Settings both cameras share: the split from the scene's bounding volume,
// the master's scene data, no offsets.
osg::ref_ptr<osgViewer::DepthPartitionSettings> boundingVolumeSettings()
{
    return new osgViewer::DepthPartitionSettings(osgViewer::DepthPartitionSettings::BOUNDING_VOLUME);
}

// One slave camera of the partition on `context` and `viewport`, with the
// buffers of `master`, its depth range left to `callback`; it clears depth
// only when `depthOnly` says so, and otherwise keeps a camera's default
// clear mask.
void addPartitionCamera(osgViewer::View& view, const osg::Camera& master, osg::GraphicsContext* context,
                        osg::Viewport* viewport, const char* name, bool depthOnly,
                        MyNewUpdateSlaveCallback* callback, bool useMastersSceneData,
                        const osg::Matrixd& projectionOffset, const osg::Matrixd& viewOffset)
{
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setGraphicsContext(context);
    camera->setViewport(viewport);
    camera->setDrawBuffer(master.getDrawBuffer());
    camera->setReadBuffer(master.getReadBuffer());
    camera->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    camera->setCullingMode(osg::CullSettings::ENABLE_ALL_CULLING);
    if (depthOnly)
        camera->setClearMask(GL_DEPTH_BUFFER_BIT);
    camera->setName(name);
    view.addSlave(camera.get());

    osg::View::Slave& slave = view.getSlave(view.getNumSlaves() - 1);
    slave._useMastersSceneData = useMastersSceneData;
    slave._projectionOffset = projectionOffset;
    slave._viewOffset = viewOffset;
    slave._updateSlaveCallback = callback;
}

// The main camera's state set is the global state of its slaves. Making a
// slave's renderer gives that state set a default light model (ambient 0.1)
// and the default light's modes, over what the view had put there (the
// globe's sky puts its minimum ambient in the light model). While it lives,
// this keeps the state set's attributes and modes as they were.
class MasterStateKeeper
{
public:
    explicit MasterStateKeeper(osg::Camera& master)
        : _stateSet(master.getOrCreateStateSet()), _attributes(_stateSet->getAttributeList()),
          _modes(_stateSet->getModeList())
    {
    }
    ~MasterStateKeeper()
    {
        for (const auto& [key, attribute] : osg::StateSet::AttributeList(_stateSet->getAttributeList()))
            if (_attributes.find(key) == _attributes.end())
                _stateSet->removeAttribute(key.first, key.second);
        for (const auto& [key, attribute] : _attributes)
            if (_stateSet->getAttributePair(key.first, key.second) == nullptr ||
                *_stateSet->getAttributePair(key.first, key.second) != attribute)
                _stateSet->setAttribute(attribute.first.get(), attribute.second);
        for (const auto& [mode, value] : osg::StateSet::ModeList(_stateSet->getModeList()))
            if (_modes.find(mode) == _modes.end())
                _stateSet->removeMode(mode);
        for (const auto& [mode, value] : _modes)
            _stateSet->setMode(mode, value);
    }
    MasterStateKeeper(const MasterStateKeeper&) = delete;
    MasterStateKeeper& operator=(const MasterStateKeeper&) = delete;

private:
    osg::ref_ptr<osg::StateSet> _stateSet;
    const osg::StateSet::AttributeList _attributes;
    const osg::StateSet::ModeList _modes;
};

} // namespace

bool CXViewer::GetDepthPartitionEnable()
{
    return depthPartitionEnable;
}

bool CXViewer::setUpDepthPartition()
{
    osgViewer::View* view = mainView.get();
    if (!view)
        return false;
    osg::ref_ptr<osg::Camera> cameraToPartition = view->getCamera();
    if (!cameraToPartition)
        return false;
    osg::ref_ptr<osg::GraphicsContext> context = cameraToPartition->getGraphicsContext();
    if (!context)
        return false;
    osg::ref_ptr<osg::Viewport> viewport = cameraToPartition->getViewport();
    if (!viewport)
        return false;

    osg::ref_ptr<osgViewer::DepthPartitionSettings> dps = boundingVolumeSettings();

    bool useMastersSceneData = true;
    osg::Matrixd projectionOffset;
    osg::Matrixd viewOffset;
    if (view->getCamera() == cameraToPartition)
    {
        OSG_INFO << "View::setUpDepthPartitionForCamera(..) Replacing main Camera" << std::endl;
    }
    else
    {
        // A slave camera hands over its place and its offsets.
        const unsigned int i = view->findSlaveIndexForCamera(cameraToPartition.get());
        if (i >= view->getNumSlaves())
            return false;
        const osg::View::Slave& slave = view->getSlave(i);
        useMastersSceneData = slave._useMastersSceneData;
        projectionOffset = slave._projectionOffset;
        viewOffset = slave._viewOffset;
        OSG_NOTICE << "View::setUpDepthPartitionForCamera(..) Replacing slave Camera" << i << std::endl;
        view->removeSlave(i);
    }

    cameraToPartition->setGraphicsContext(nullptr);
    cameraToPartition->setViewport(nullptr);

    // The far camera keeps a camera's default clear mask; the near one clears
    // depth only, so that the far camera's picture stays.
    const MasterStateKeeper keeper(*cameraToPartition);
    addPartitionCamera(*view, *cameraToPartition, context.get(), viewport.get(), "farcamera", false,
                       new MyNewUpdateSlaveCallback(dps.get(), 1), useMastersSceneData, projectionOffset, viewOffset);
    addPartitionCamera(*view, *cameraToPartition, context.get(), viewport.get(), "nearcamera", true,
                       new MyNewUpdateSlaveCallback(dps.get(), 0), useMastersSceneData, projectionOffset, viewOffset);
    return true;
}

void CXViewer::ToggleDepthPartition()
{
    // Before InitOSG there is no view to partition.
    if (!compositeViewer || !mainView.valid())
        return;
    osgViewer::View* view = mainView.get();

    if (depthPartitionEnable)
    {
        // Switch off.
        const bool threadsRunning = compositeViewer->areThreadsRunning();
        if (threadsRunning)
            compositeViewer->stopThreading();

        // The flag starts set while the view has no slaves yet, so the first
        // toggle comes here with an empty list: there is nothing to switch
        // off, the cameras stay as they are and only the flag changes. The
        // partition itself comes with the next toggle.
        if (view->getNumSlaves() > 0)
        {
            osg::Camera* slaveCamera = view->getSlave(0)._camera.get();
            osg::GraphicsContext* context = slaveCamera ? slaveCamera->getGraphicsContext() : nullptr;
            osg::Viewport* viewport = slaveCamera ? slaveCamera->getViewport() : nullptr;
            view->getCamera()->setGraphicsContext(context);
            view->getCamera()->setViewport(viewport);
            // Fixed numbers: with the far camera at 0 and the near one at 1,
            // the first removal finds nothing and the far camera stays
            // behind as slave 0, drawn before the main camera clears over it.
            view->removeSlave(2);
            view->removeSlave(1);
        }

        if (threadsRunning)
            compositeViewer->startThreading();
        depthPartitionEnable = false;
        return;
    }

    // Switch on.
    const bool threadsRunning = compositeViewer->areThreadsRunning();
    if (threadsRunning)
        compositeViewer->stopThreading();

    osg::Camera* camera = view->getCamera();
    osg::ref_ptr<osg::GraphicsContext> context = camera->getGraphicsContext();
    osg::ref_ptr<osg::Viewport> viewport = camera->getViewport();
    osg::ref_ptr<osgViewer::DepthPartitionSettings> dps = boundingVolumeSettings();

    camera->setGraphicsContext(nullptr);
    camera->setViewport(nullptr);

    // Here both cameras clear depth only, the far one too. What the scene
    // leaves empty is painted by a backdrop drawn in the far pass (the
    // globe's sky) or else shows the colour that the context clears to after
    // each swap: the main camera's clear colour.
    {
        // The master's state comes back before the threads start again.
        const MasterStateKeeper keeper(*camera);
        addPartitionCamera(*view, *camera, context.get(), viewport.get(), "farcamera", true,
                           new MyNewUpdateSlaveCallback(dps.get(), 1), true, osg::Matrixd(), osg::Matrixd());
        addPartitionCamera(*view, *camera, context.get(), viewport.get(), "nearcamera", true,
                           new MyNewUpdateSlaveCallback(dps.get(), 0), true, osg::Matrixd(), osg::Matrixd());
    }
    if (context.valid())
    {
        context->setClearColor(camera->getClearColor());
        context->setClearMask(GL_COLOR_BUFFER_BIT);
    }

    if (threadsRunning)
        compositeViewer->startThreading();
    depthPartitionEnable = true;
}
