// The map: earth file, manipulator, sky and the local MBTiles layers.
#include <viewer/CXViewer>

#include <globe/AutoClipPlaneCullCallback>
#include <globe/CachePolicy>
#include <globe/Config>
#include <globe/DateTime>
#include <globe/ElevationLayer>
#include <globe/ImageLayer>
#include <globe/MBTilesOptions>
#include <globe/SkyNode>

#include <osg/Light>
#include <osgDB/ConvertUTF>
#include <osgDB/FileNameUtils>
#include <osgDB/ReadFile>
#include <osgDB/Registry>
#include <osgGA/GUIEventAdapter>

#include <filesystem>
#include <system_error>

namespace
{

// basePath is UTF-8; file reads take the system code page, which is UTF-8
// here, so the conversion leaves the text as it is.
std::string toCurrentCodePage(const std::string& utf8)
{
    return osgDB::convertStringFromUTF8toCurrentCodePage(utf8);
}

// Options of an MBTiles layer on `file` (in the system code page): the
// driver and the file as "url", in UTF-8.
globe::MBTilesOptions mbtilesOptions(const std::string& file)
{
    globe::Config conf;
    conf.set("driver", "mbtiles");
    const std::string url = osgDB::convertStringFromCurrentCodePageToUTF8(file);
    conf.remove("url");
    conf.add("url", url);
    globe::MBTilesOptions options{globe::Config()};
    options.setDriver("mbtiles");
    options.mergeConfig(conf);
    return options;
}

} // namespace

void CXViewer::InitOsgEarth()
{
    // 1. The globe's manipulator; double clicks must never fly the camera.
    earthManipulator = new globe::EarthManipulator;
    CXEarthManipulator::Settings* settings = earthManipulator->getSettings();
    settings->bindMouseDoubleClick(CXEarthManipulator::ACTION_NULL, osgGA::GUIEventAdapter::LEFT_MOUSE_BUTTON, 0,
                                   CXEarthManipulator::ActionOptions());
    settings->bindMouseDoubleClick(CXEarthManipulator::ACTION_NULL, osgGA::GUIEventAdapter::RIGHT_MOUSE_BUTTON, 0,
                                   CXEarthManipulator::ActionOptions());

    // 2. Never a null map, even when the earth file is missing.
    mapNode = new globe::MapNode();

    // 3. The earth file below the installation directory.
    const std::string path = toCurrentCodePage(basePath);
    const std::string file = path + "/myselftest/china-simple.earth";

    // 4. Without a map the scene stays as it is, with the manipulator of the
    //    scene set-up.
    osg::ref_ptr<osg::Node> loaded = osgDB::readNodeFile(file, osgDB::Registry::instance(false)->getOptions());
    if (!loaded.valid())
        return;

    // 5. A file that holds something other than a map keeps the empty map.
    osg::ref_ptr<globe::MapNode> loadedMap = dynamic_cast<globe::MapNode*>(loaded.get());
    if (!loadedMap.valid())
        return;
    mapNode = loadedMap;
    root->addChild(mapNode.get());

    // 6.-7. The globe's manipulator takes over the view.
    if (mapNode.valid())
        earthManipulator->setNode(getScene());
    mainView->setCameraManipulator(earthManipulator.get(), true);

    // 8.-12. A 3 second flight to the start view over China, which is also
    //        the home view.
    earthManipulator->getSettings()->setArcViewpointTransitions(true);
    const CXViewport viewpoint = earthManipulator->createViewpoint(109.0, 32.0, 10.0, 0.0, -90.0, 20928182.0);
    earthManipulator->setViewpoint(viewpoint, 3.0);
    earthManipulator->getSettings()->setMinMaxDistance(0.0, 66666666.0);
    earthManipulator->setHomeViewpoint(viewpoint, 0.0);

    // 13.-15. The sky, with a night side as bright as the day side, and its
    //         sun at a fixed time.
    osg::ref_ptr<globe::SkyNode> sky = globe::SkyNode::create(mapNode.get());
    sky->setName("skynode");
    sky->attach(mainView.get());
    sky->setMinimumAmbient(osg::Vec4f(1.0f, 1.0f, 1.0f, 1.0f));
    sky->setDateTime(globe::DateTime(2018, 11, 30, 9.0));
    osg::Light* sun = sky->getSunLight();
    sun->setPosition(osg::Vec4(0.0f, 0.0f, 1.0f, 0.0f));
    sun->setAmbient(osg::Vec4(0.03f, 0.03f, 0.03f, 1.0f));
    sun->setDiffuse(osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f));
    sun->setSpecular(osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f));
    root->addChild(sky.get());

    // 16. Near and far planes from the eye's height; two instances, as the
    //     map set-up has always installed.
    mainView->getCamera()->addCullCallback(new globe::AutoClipPlaneCullCallback(mapNode.get()));
    mainView->getCamera()->addCullCallback(new globe::AutoClipPlaneCullCallback(mapNode.get()));

    // 17. Base imagery.
    osg::ref_ptr<globe::ImageLayer> imageLayer =
        new globe::ImageLayer("baseImage", mbtilesOptions(path + "/data/base/image.db"));
    imageLayer->options().cachePolicy() = globe::CachePolicy::NO_CACHE;

    // 18. Elevation.
    osg::ref_ptr<globe::ElevationLayer> elevationLayer =
        new globe::ElevationLayer("GlobeHeightfield", mbtilesOptions(path + "/data/base/dem.db"));
    elevationLayer->options().cachePolicy() = globe::CachePolicy::NO_CACHE;
    elevationLayer->setEnabled(true);

    // 19. In front of the layers of the earth file.
    mapNode->getMap()->insertLayer(imageLayer.get(), 0);
    mapNode->getMap()->insertLayer(elevationLayer.get(), 1);

    // 20. The pipe lines hang below the map.
    pipeLines = new osg::Group;
    g_pCXviewer->mapNode->addChild(pipeLines.get());
}

namespace
{

// "*.ive" as the directory search matched it: the name ends in ".ive",
// compared without regard to case.
bool matchesIvePattern(const std::string& name)
{
    return name.size() >= 4 && osgDB::convertToLowerCase(name.substr(name.size() - 4)) == ".ive";
}

} // namespace

void CXViewer::dfsFolder(std::string folder, std::vector<std::string>& files)
{
    // The same pattern filters directories, so the walk descends only into
    // directories whose own name ends in ".ive".
    std::error_code error;
    std::filesystem::directory_iterator it(folder, error);
    if (error)
        return;
    for (const std::filesystem::directory_iterator end; it != end; it.increment(error))
    {
        if (error)
            return;
        const std::string name = it->path().filename().string();
        if (!matchesIvePattern(name))
            continue;
        const std::string path = folder + "/" + name;
        if (it->is_directory(error))
        {
            if (name != "." && name != "..")
                dfsFolder(path, files);
        }
        else
        {
            files.push_back(path);
        }
    }
}
