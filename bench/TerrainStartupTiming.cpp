// Start-up time of the globe: from InitOSG to the last tile of the start view
// merged into the scene, on an X display (run it under xvfb-run when there is
// none). The host loop draws frames as fast as it can, as a host that does
// not wait for the vertical retrace does; the start flight itself lasts 3 s.
//
//   bench_terrain_startup [--base-path DIR] [--runs N] [--size WIDTHxHEIGHT]
//
// Prints each run and the medians: the whole start-up (the later of the
// flight's landing and the last merge), the time to the last merge alone,
// the number of frames and of tiles built.
#include "FrameCapture.h"
#include "X11HostWindow.h"

#include <viewer/CXViewer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

struct Run
{
    double total = 0.0;     ///< InitOSG to the view complete: flight landed, last tile merged
    double init = 0.0;      ///< InitOSG itself
    double landing = 0.0;   ///< InitOSG to the end of the start flight
    double lastMerge = 0.0; ///< InitOSG to the frame that merged the last tile
    long frames = 0;
    unsigned long tiles = 0;
    bool ok = false;
};

Run measure(const std::string& basePath, int width, int height)
{
    Run run;
    cxhost::X11HostWindow window(width, height, "bench_terrain_startup");
    if (!window.isValid())
    {
        std::fprintf(stderr, "bench_terrain_startup: %s (is DISPLAY set?)\n", window.error().c_str());
        return run;
    }
    osg::ref_ptr<CXViewer> viewer = new CXViewer(window.handle());
    viewer->basePath = basePath;

    const Clock::time_point start = Clock::now();
    viewer->InitOSG();
    run.init = since(start);
    osgViewer::CompositeViewer* composite = viewer->getCompositeViewer();
    osgDB::DatabasePager* pager = viewer->getViewer()->getDatabasePager();
    auto* manipulator = dynamic_cast<globe::EarthManipulator*>(viewer->getViewer()->getCameraManipulator());
    if (!manipulator || composite->done())
    {
        std::fprintf(stderr, "bench_terrain_startup: no map under %s\n", basePath.c_str());
        viewer->UnInitOSG();
        return run;
    }

    // The last frame that found the pager busy merged the last tile; the
    // view has settled when the flight is over and the pager stays idle.
    double lastMerge = 0.0;
    int idleFrames = 0;
    while (idleFrames < 20 && since(start) < 300.0)
    {
        window.processEvents();
        const bool busyBefore = pager->getRequestsInProgress();
        composite->frame();
        ++run.frames;
        const bool flying = manipulator->isSettingViewpoint();
        if (!flying && run.landing == 0.0)
            run.landing = since(start);
        if (busyBefore)
            lastMerge = since(start);
        idleFrames = (!flying && !pager->getRequestsInProgress() && !busyBefore) ? idleFrames + 1 : 0;
    }
    run.ok = idleFrames >= 20;
    run.lastMerge = lastMerge;
    run.total = std::max(lastMerge, run.landing);
    run.tiles = viewer->mapNode->getTerrainEngine()->getNumTilesBuilt();
    viewer->UnInitOSG();
    return run;
}

} // namespace

int main(int argc, char** argv)
{
    std::string basePath = std::getenv("CXVIEWER_SAMPLE_DIR") ? std::getenv("CXVIEWER_SAMPLE_DIR") : "sample";
    int runs = 3, width = 1280, height = 720;
    for (int i = 1; i < argc; ++i)
    {
        const std::string arg = argv[i];
        if (arg == "--base-path" && i + 1 < argc)
            basePath = argv[++i];
        else if (arg == "--runs" && i + 1 < argc)
            runs = std::max(1, std::atoi(argv[++i]));
        else if (arg == "--size" && i + 1 < argc && std::sscanf(argv[++i], "%dx%d", &width, &height) == 2)
            continue;
        else
        {
            std::fprintf(stderr, "usage: %s [--base-path DIR] [--runs N] [--size WIDTHxHEIGHT]\n", argv[0]);
            return 2;
        }
    }

    std::vector<double> totals, merges;
    for (int r = 0; r < runs; ++r)
    {
        const Run run = measure(basePath, width, height);
        if (!run.ok)
        {
            std::fprintf(stderr, "bench_terrain_startup: run %d did not settle\n", r + 1);
            return 1;
        }
        std::printf("run %d: start-up %.3f s (InitOSG %.3f s, last tile merged at %.3f s, flight landed at %.3f s), "
                    "%ld frames, %lu tiles built\n",
                    r + 1, run.total, run.init, run.lastMerge, run.landing, run.frames, run.tiles);
        totals.push_back(run.total);
        merges.push_back(run.lastMerge);
    }
    std::sort(totals.begin(), totals.end());
    std::sort(merges.begin(), merges.end());
    std::printf("median start-up %.3f s at %dx%d; median time to the last tile merged %.3f s (the start flight "
                "lasts 3 s)\n",
                totals[totals.size() / 2], width, height, merges[merges.size() / 2]);
    return 0;
}
