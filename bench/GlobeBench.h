// What the timing programs on the real globe share: a viewer on the sample
// data in an X window, frames timed one by one, the cull traversal's time
// from the camera's statistics, settling after a flight, the three views they
// measure at, their command line, and medians.
#pragma once

#include "X11HostWindow.h"

#include <viewer/CXViewer>

#include <globe/EarthManipulator>

#include <osg/Stats>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace cxbench
{

using Clock = std::chrono::steady_clock;

inline double median(std::vector<double> values)
{
    if (values.empty())
        return 0.0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

inline double millisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

struct GlobeView
{
    const char* name;
    double lon, lat, heading, pitch, range;
};

/** The start view from space, 150 km over the Himalaya, and 2 km over the
  * ground looking at the horizon. */
inline const std::vector<GlobeView>& globeViews()
{
    static const std::vector<GlobeView> views = {
        {"from space (20,929 km)", 109.0, 32.0, 0.0, -90.0, 20928182.0},
        {"150 km over the Himalaya, 45 degrees down", 86.925, 27.988, 0.0, -45.0, 150000.0},
        {"2 km over Western Australia, at the horizon", 117.8, -21.7, 0.0, -10.0, 2000.0 / std::sin(0.17453)},
    };
    return views;
}

struct GlobeBenchArguments
{
    std::string basePath = std::getenv("CXVIEWER_SAMPLE_DIR") ? std::getenv("CXVIEWER_SAMPLE_DIR") : "sample";
    int width = 1280;
    int height = 720;
    int rounds = 5;
};

/** [--base-path DIR] [--size WIDTHxHEIGHT] [--rounds N]; false after the
  * usage on a bad argument. */
inline bool parseGlobeBenchArguments(int argc, char** argv, GlobeBenchArguments& arguments)
{
    for (int i = 1; i < argc; ++i)
    {
        const std::string arg = argv[i];
        if (arg == "--base-path" && i + 1 < argc)
            arguments.basePath = argv[++i];
        else if (arg == "--rounds" && i + 1 < argc)
            arguments.rounds = std::max(1, std::atoi(argv[++i]));
        else if (arg == "--size" && i + 1 < argc &&
                 std::sscanf(argv[++i], "%dx%d", &arguments.width, &arguments.height) == 2)
            continue;
        else
        {
            std::fprintf(stderr, "usage: %s [--base-path DIR] [--size WIDTHxHEIGHT] [--rounds N]\n", argv[0]);
            return false;
        }
    }
    return true;
}

/** A viewer after InitOSG on the sample data, on `window`. */
class GlobeBench
{
public:
    GlobeBench(cxhost::X11HostWindow& window, const std::string& basePath) : _window(window)
    {
        _viewer = new CXViewer(window.handle());
        _viewer->basePath = basePath;
        _viewer->InitOSG();
        _manipulator = dynamic_cast<globe::EarthManipulator*>(_viewer->getViewer()->getCameraManipulator());
        _viewer->getViewer()->getCamera()->getStats()->collectStats("rendering", true);
    }

    virtual ~GlobeBench() { _viewer->UnInitOSG(); }

    GlobeBench(const GlobeBench&) = delete;
    GlobeBench& operator=(const GlobeBench&) = delete;

    /** The globe came up on a GL context. */
    virtual bool valid() const { return _manipulator && !_viewer->getCompositeViewer()->done(); }

    /** Draws a frame; its time in milliseconds. */
    double frame()
    {
        _window.processEvents();
        const Clock::time_point start = Clock::now();
        _viewer->getCompositeViewer()->frame();
        return millisecondsSince(start);
    }

    /** Frames until the flight has landed and the pager is idle. */
    bool settle()
    {
        osgDB::DatabasePager* pager = _viewer->getViewer()->getDatabasePager();
        const Clock::time_point start = Clock::now();
        int idle = 0;
        while (idle < 10 && std::chrono::duration<double>(Clock::now() - start).count() < 180.0)
        {
            frame();
            idle = (_manipulator->isSettingViewpoint() || pager->getRequestsInProgress()) ? 0 : idle + 1;
        }
        return idle >= 10;
    }

    /** Jumps to a view and settles there. */
    bool go(const GlobeView& v)
    {
        _manipulator->setViewpoint(_manipulator->createViewpoint(v.lon, v.lat, 0.0, v.heading, v.pitch, v.range), 0.0);
        return settle();
    }

    /** The cull traversal of the last frame, in milliseconds; -1 without. */
    double lastCull() const
    {
        osg::Stats* stats = _viewer->getViewer()->getCamera()->getStats();
        double seconds = 0.0;
        const unsigned int frameNumber = _viewer->getViewer()->getFrameStamp()->getFrameNumber();
        if (stats->getAttribute(frameNumber, "Cull traversal time taken", seconds))
            return seconds * 1000.0;
        return -1.0;
    }

protected:
    cxhost::X11HostWindow& _window;
    osg::ref_ptr<CXViewer> _viewer;
    globe::EarthManipulator* _manipulator = nullptr;
};

/** Opens the window, makes the bench and settles its start view; null after
  * saying why not. */
template <typename Bench>
std::unique_ptr<Bench> startGlobeBench(const char* program, cxhost::X11HostWindow& window,
                                       const GlobeBenchArguments& arguments)
{
    if (!window.isValid())
    {
        std::fprintf(stderr, "%s: %s (is DISPLAY set?)\n", program, window.error().c_str());
        return nullptr;
    }
    auto bench = std::make_unique<Bench>(window, arguments.basePath);
    if (!bench->valid())
    {
        std::fprintf(stderr, "%s: no globe under %s\n", program, arguments.basePath.c_str());
        return nullptr;
    }
    if (!bench->settle())
    {
        std::fprintf(stderr, "%s: the start view did not settle\n", program);
        return nullptr;
    }
    return bench;
}

} // namespace cxbench
