// cxdemo: a small X11 host for the library. It makes its own window, hands it
// to CXViewer, drives the frames, and can write the last frame to a PNG.
//
//   cxdemo [--base-path DIR] [--model-root DIR] [--store FILE] [--oblique DIR] [--pointcloud FILE] [--frames N]
//          [--snapshot FILE.png] [--size WIDTHxHEIGHT] [--viewpoint LON,LAT,RANGE[,HEADING,PITCH]] [--settle]
//          [--labels] [--keys KEYS]

#include "DemoKeys.h"
#include "ProcessMemory.h"
#include "WindowCapture.h"
#include "X11HostWindow.h"

#include <viewer/CXViewer>

#include <globe/EarthManipulator>
#include <objects/CObjManager>
#include <oblique/ObliqueDataset>

#include <osgDB/ReadFile>
#include <osgDB/WriteFile>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#ifndef CXDEMO_DEFAULT_DATA_DIR
#define CXDEMO_DEFAULT_DATA_DIR "data"
#endif

namespace
{

struct Options
{
    std::string basePath = CXDEMO_DEFAULT_DATA_DIR;
    std::string modelRoot;
    std::string store;
    std::string oblique;
    std::string pointcloud;
    long frames = -1; // until the window closes
    std::string snapshot;
    int width = 1280;
    int height = 720;
    /** Where to fly after the start flight. */
    bool hasViewpoint = false;
    double longitude = 0.0, latitude = 0.0, range = 0.0, heading = 0.0, pitch = -90.0;
    /** Stop once the flights have landed and the pager is idle. */
    bool settle = false;
    /** Show the region labels from the start. */
    bool labels = false;
    /** Keys pressed once the view has settled. */
    std::string keys;
};

// How long the flight to --viewpoint takes.
constexpr double kViewpointFlightSeconds = 2.0;
// Frames without a flight or a pending tile after which a view has settled.
constexpr int kSettledFrames = 20;

// "LON,LAT,RANGE[,HEADING,PITCH]": degrees, metres, degrees.
bool parseViewpoint(const char* text, Options& options)
{
    double v[5] = {0.0, 0.0, 0.0, 0.0, -90.0};
    int count = 0;
    const char* p = text;
    for (;;)
    {
        char* end = nullptr;
        v[count] = std::strtod(p, &end);
        if (end == p)
            return false;
        ++count;
        if (*end == '\0')
            break;
        // A separator, then another value: never more than five.
        if (*end != ',' || count == 5)
            return false;
        p = end + 1;
    }
    if (count != 3 && count != 5)
        return false;
    for (double value : v)
        if (!std::isfinite(value))
            return false;
    if (v[1] < -90.0 || v[1] > 90.0 || v[2] < 0.0)
        return false;
    options.hasViewpoint = true;
    options.longitude = v[0];
    options.latitude = v[1];
    options.range = v[2];
    options.heading = v[3];
    options.pitch = v[4];
    return true;
}

void usage(const char* program)
{
    std::fprintf(stderr,
                 "usage: %s [--base-path DIR] [--model-root DIR] [--store FILE] [--oblique DIR] [--frames N]\n"
                 "          [--snapshot FILE.png] [--size WIDTHxHEIGHT]\n"
                 "          [--viewpoint LON,LAT,RANGE[,HEADING,PITCH]] [--settle] [--pointcloud FILE]\n"
                 "          [--labels] [--keys KEYS]\n"
                 "  --base-path   installation directory with myselftest/ and data/base/ (default %s)\n"
                 "  --model-root  directory of the model files (default: BASE/models)\n"
                 "  --store       the object store (default: BASE/data/objects.db)\n"
                 "  --oblique     an oblique photography dataset, a folder with metadata.xml and\n"
                 "                Data/Tile_*/ (default: BASE/oblique, when it is there)\n"
                 "  --pointcloud  the root file of a point cloud tile set made by cxtiler points\n"
                 "                (default: BASE/pointcloud/beijing/cloud.osgb, when it is there)\n"
                 "  --frames      number of frames to draw, then exit (default: until the window closes)\n"
                 "  --snapshot    write the last frame to this PNG file\n"
                 "  --size        window size (default 1280x720)\n"
                 "  --viewpoint   after the start flight, fly to this view: longitude and latitude in\n"
                 "                degrees, range in metres from the ground, optionally heading and pitch\n"
                 "                in degrees (default 0,-90: north up, looking straight down)\n"
                 "  --settle      exit once the flights have landed and every tile of the view is in\n"
                 "                (at the latest after --frames)\n"
                 "  --labels      show the region labels from the start (the key n shows and hides them)\n"
                 "  --keys        press these keys once the view has settled, then settle again\n"
                 "                (e.g. --keys v --settle --snapshot split.png)\n"
                 "mouse: left drag pans, middle drag rotates, right drag or wheel zooms; arrow keys pan;\n"
                 "space flies home\n"
                 "keys:\n"
                 "%s",
                 program, CXDEMO_DEFAULT_DATA_DIR, cxdemo::DemoKeys::help());
}

bool parse(int argc, char** argv, Options& options)
{
    for (int i = 1; i < argc; ++i)
    {
        const std::string arg = argv[i];
        auto value = [&](const char* name) -> const char* {
            if (i + 1 >= argc)
            {
                std::fprintf(stderr, "%s needs a value\n", name);
                return nullptr;
            }
            return argv[++i];
        };
        if (arg == "--help" || arg == "-h")
        {
            usage(argv[0]);
            std::exit(0);
        }
        const char* v = nullptr;
        if (arg == "--base-path" && (v = value("--base-path")))
            options.basePath = v;
        else if (arg == "--model-root" && (v = value("--model-root")))
            options.modelRoot = v;
        else if (arg == "--store" && (v = value("--store")))
            options.store = v;
        else if (arg == "--oblique" && (v = value("--oblique")))
            options.oblique = v;
        else if (arg == "--pointcloud" && (v = value("--pointcloud")))
            options.pointcloud = v;
        else if (arg == "--frames" && (v = value("--frames")))
        {
            char* end = nullptr;
            options.frames = std::strtol(v, &end, 10);
            if (!end || *end || options.frames < 1)
            {
                std::fprintf(stderr, "--frames wants a positive number, not '%s'\n", v);
                return false;
            }
        }
        else if (arg == "--snapshot" && (v = value("--snapshot")))
            options.snapshot = v;
        else if (arg == "--viewpoint" && (v = value("--viewpoint")))
        {
            if (!parseViewpoint(v, options))
            {
                std::fprintf(stderr, "--viewpoint wants LON,LAT,RANGE or LON,LAT,RANGE,HEADING,PITCH, not '%s'\n", v);
                return false;
            }
        }
        else if (arg == "--settle")
            options.settle = true;
        else if (arg == "--labels")
            options.labels = true;
        else if (arg == "--keys" && (v = value("--keys")))
            options.keys = v;
        else if (arg == "--size" && (v = value("--size")))
        {
            if (std::sscanf(v, "%dx%d", &options.width, &options.height) != 2 || options.width < 1 ||
                options.height < 1)
            {
                std::fprintf(stderr, "--size wants WIDTHxHEIGHT, not '%s'\n", v);
                return false;
            }
        }
        else
        {
            if (!v)
                std::fprintf(stderr, "unknown or incomplete argument '%s'\n", arg.c_str());
            return false;
        }
    }
    if (options.modelRoot.empty())
        options.modelRoot = options.basePath + "/models";
    // The model files' names are appended to the root as they stand.
    if (options.modelRoot.back() != '/')
        options.modelRoot += '/';
    if (options.store.empty())
        options.store = options.basePath + "/data/objects.db";
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    if (!parse(argc, argv, options))
    {
        usage(argv[0]);
        return 2;
    }

    // Freed tiles go back to the system, so the demo's memory follows the view.
    cxhost::keepLargeBlocksOutOfTheHeap();
    cxhost::X11HostWindow window(options.width, options.height, "cxdemo");
    if (!window.isValid())
    {
        std::fprintf(stderr, "cxdemo: %s (is DISPLAY set?)\n", window.error().c_str());
        return 1;
    }

    osg::ref_ptr<CXViewer> viewer = new CXViewer(window.handle());
    viewer->basePath = options.basePath;
    viewer->modelRootPath = options.modelRoot;
    viewer->objManager = OBJManage::GetObjManager();
    viewer->InitOSG();

    osgViewer::CompositeViewer* composite = viewer->getCompositeViewer();
    if (composite->done())
    {
        std::fprintf(stderr, "cxdemo: the viewer could not make a GL context on the window\n");
        viewer->UnInitOSG();
        return 1;
    }

    // The heads-up display (position under the mouse, scale bar, compass).
    viewer->addViewPointLable();

    // The scene objects: buildings, terrain models and pipes of the store,
    // paged by their quadtrees. The terrain models' group is the host's to
    // place; the demo shows it with the rest.
    OBJManage::GetObjManager()->Init(options.store);
    if (viewer->getTerrain() && viewer->getTerrain()->getNumParents() == 0)
        viewer->getRoot()->addChild(viewer->getTerrain());
    std::printf("cxdemo: %zu enterprises from %s\n", OBJManage::GetObjManager()->enterpriseMap.size(),
                options.store.c_str());

    // The oblique photography dataset, re-projected onto the globe as its
    // tiles load. The sample's is loaded when it is there.
    const std::string obliqueFolder = options.oblique.empty() ? options.basePath + "/oblique" : options.oblique;
    if (!options.oblique.empty() || std::filesystem::is_regular_file(obliqueFolder + "/metadata.xml"))
    {
        std::string message;
        if (osg::MatrixTransform* oblique = ObliqueDataset::addToViewer(viewer.get(), obliqueFolder, message))
            std::printf("cxdemo: oblique dataset %s, %u root tiles%s%s\n", obliqueFolder.c_str(),
                        oblique->getNumChildren(), message.empty() ? "" : "; ", message.c_str());
        else
            std::fprintf(stderr, "cxdemo: no oblique dataset: %s\n", message.c_str());
    }

    // The point cloud, paged by its octree under the LiDAR group, whose cull
    // callback sizes the points by the depth of the octree drawn at each.
    const std::string cloudFile =
        options.pointcloud.empty() ? options.basePath + "/pointcloud/beijing/cloud.osgb" : options.pointcloud;
    if (!options.pointcloud.empty() || std::filesystem::is_regular_file(cloudFile))
    {
        if (osg::ref_ptr<osg::Node> cloud = osgDB::readNodeFile(cloudFile))
        {
            viewer->getLiDAR()->addChild(cloud.get());
            std::printf("cxdemo: point cloud %s\n", cloudFile.c_str());
        }
        else
        {
            std::fprintf(stderr, "cxdemo: cannot read the point cloud %s\n", cloudFile.c_str());
        }
    }

    // The demo's keys: rendering modes, region labels, point cloud colours.
    cxdemo::DemoKeys* keys = cxdemo::DemoKeys::install(viewer.get(), options.basePath);
    keys->setLabelsShown(options.labels);

    // The whole window: all views and cameras, as shown.
    osg::ref_ptr<cxhost::WindowCapture> capture;
    if (!options.snapshot.empty())
        capture = cxhost::WindowCapture::install(viewer->graphicsContext);

    // The start flight runs from the first frame; the requested view follows
    // once it has landed.
    globe::EarthManipulator* manipulator = viewer->earthManipulator.get();
    const bool onGlobe = manipulator && viewer->getViewer()->getCameraManipulator() == manipulator;
    if (options.hasViewpoint && !onGlobe)
        std::fprintf(stderr, "cxdemo: no globe (the earth file did not load); --viewpoint is ignored\n");
    bool viewpointPending = options.hasViewpoint && onGlobe;
    std::string pendingKeys = options.keys;
    int quietFrames = 0;

    long frame = 0;
    const auto frameTime = std::chrono::milliseconds(16);
    while (!composite->done() && window.processEvents())
    {
        const auto start = std::chrono::steady_clock::now();
        bool last = options.frames > 0 && frame + 1 >= options.frames;
        // A settled view: the keys of --keys, then one more frame, captured.
        if (quietFrames >= kSettledFrames && !pendingKeys.empty())
        {
            cxdemo::pressKeys(*viewer, pendingKeys);
            pendingKeys.clear();
            quietFrames = 0;
        }
        else if (options.settle && quietFrames >= kSettledFrames)
            last = true;
        if (capture && (last || options.frames < 0))
            capture->arm();
        composite->frame();
        ++frame;
        if (last)
            break;

        const bool flying = onGlobe && manipulator->isSettingViewpoint();
        if (viewpointPending && frame > 1 && !flying)
        {
            viewpointPending = false;
            manipulator->setViewpoint(manipulator->createViewpoint(options.longitude, options.latitude, 0.0,
                                                                   options.heading, options.pitch, options.range),
                                      kViewpointFlightSeconds);
        }
        // Every view's pager: the split view's second view has its own.
        bool paging = false;
        for (unsigned int i = 0; i < composite->getNumViews(); ++i)
            if (osgDB::DatabasePager* pager = composite->getView(i)->getDatabasePager())
                paging = paging || pager->getRequestsInProgress();
        const bool busy = flying || viewpointPending || paging;
        quietFrames = busy ? 0 : quietFrames + 1;
        if (options.frames < 0 && !options.settle)
            std::this_thread::sleep_until(start + frameTime);
    }
    std::printf("cxdemo: drew %ld frames\n", frame);

    int status = 0;
    if (capture)
    {
        osg::ref_ptr<osg::Image> image = capture->image();
        if (image && osgDB::writeImageFile(*image, options.snapshot))
            std::printf("cxdemo: wrote %s (%dx%d)\n", options.snapshot.c_str(), image->s(), image->t());
        else
        {
            std::fprintf(stderr, "cxdemo: could not write %s\n", options.snapshot.c_str());
            status = 1;
        }
    }

    viewer->UnInitOSG();
    viewer = nullptr;
    return status;
}
