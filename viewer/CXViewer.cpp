// Construction, start-up and shut-down of the viewer object.
#include <viewer/CXViewer>

#include <labels/CLableControlEventHandler>
#include <oblique/ReadosgbCallback>

#include <objects/CmdProcessEventHandler>

#include <chrono>
#include <thread>

CXViewer* g_pCXviewer = nullptr;

CXViewer::CXViewer(CXNativeWindow hWnd_)
    : shanshuoState(0),
      hWnd(hWnd_),
      compositeViewer(nullptr),
      graphicsContext(nullptr),
      depthPartitionEnable(true),
      posFileName("pos.txt"),
      modelDbName("model.db"),
      lessTenFine(300.0f), lessTenMiddle(800.0f), lessTenCrude(1000.0f), lessTenCrude2(3000.0f),
      lessSixtyFine(300.0f), lessSixtyMiddle(1500.0f), lessSixtyCrude(2000.0f), lessSixtyCrude2(4000.0f),
      otherFine(500.0f), otherMiddle(1500.0f), otherCrude(2000.0f), otherCrude2(4000.0f),
      readOptions(new osgDB::Options),
      labelHandler(nullptr),
      earthLabelGroup(new osg::Group)
{
    g_pCXviewer = this;
}

CXViewer::CXViewer(const CXViewer& rhs) = default;
CXViewer& CXViewer::operator=(const CXViewer& rhs) = default;

CXViewer::~CXViewer()
{
    // The HUD handler and the main view hold each other; a host that never
    // called UnInitOSG would otherwise keep both, and the scene, for good.
    if (labelHandler)
        labelHandler->view = nullptr;
    g_pCXviewer = nullptr;
}

void CXViewer::InitOSG()
{
    InitViewer();
    InitSceneConfig();
    InitSceneGraph();
    InitEventHandler();
    InitOsgEarth();
    addearthLabel();
    // Every read of the process passes through this callback; it re-projects
    // only the tiles read with options that carry it (oblique datasets).
    readFileCallback = new ReadosgbCallback(mapNode.get(), 1);
    osgDB::Registry::instance()->setReadFileCallback(readFileCallback.get());
}

void CXViewer::UnInitOSG()
{
    if (!mainView.valid())
        return;

    compositeViewer->setDone(true);
    mainView->getDatabasePager()->cancel();
    // Time for the paging thread to wind down before the view goes.
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));
    compositeViewer->removeView(mainView.get());
    // The HUD handler holds the view that holds it: let go of the view, so
    // that the view, its handlers and its scene go now.
    if (labelHandler)
        labelHandler->view = nullptr;
    labelHandler = nullptr;
    mainView = nullptr;
    compositeViewer->stopThreading();
    OBJManage::GetObjManager()->Release();
    OBJManage::CmdProcessEventHandler::instance(true);
}

void CXViewer::DestoryObjManager()
{
    objManager = nullptr;
}
