// What the sky and the terrain avoidance cost a frame, on the real sample
// data, on an X display (run it under xvfb-run when there is none).
//
//   bench_globe_frames [--base-path DIR] [--size WIDTHxHEIGHT] [--rounds N]
//
// For a few views (the start view from space, 150 km over the Himalaya, 2 km
// over the ground looking at the horizon) it draws rounds of frames with the
// sky (space, stars, atmosphere, haze) and without it (its node hidden, the
// haze off), the two interleaved so that both see the same machine, and
// prints the median frame times and their ratio. Then, at the same views, the
// median time of one terrain avoidance pass (the manipulator's ground picks)
// against the median cull traversal of a frame.
#include "X11HostWindow.h"

#include <viewer/CXViewer>

#include <globe/EarthManipulator>
#include <globe/SkyNode>

#include <osg/Stats>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;

double median(std::vector<double> values)
{
    if (values.empty())
        return 0.0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

struct View
{
    const char* name;
    double lon, lat, heading, pitch, range;
};

class Bench
{
public:
    Bench(cxhost::X11HostWindow& window, const std::string& basePath) : _window(window)
    {
        _viewer = new CXViewer(window.handle());
        _viewer->basePath = basePath;
        _viewer->InitOSG();
        _manipulator = dynamic_cast<globe::EarthManipulator*>(_viewer->getViewer()->getCameraManipulator());
        for (unsigned int i = 0; i < _viewer->getRoot()->getNumChildren(); ++i)
            if (auto* sky = dynamic_cast<globe::SkyNode*>(_viewer->getRoot()->getChild(i)))
                _sky = sky;
        _viewer->getViewer()->getCamera()->getStats()->collectStats("rendering", true);
    }

    ~Bench() { _viewer->UnInitOSG(); }

    bool valid() const { return _manipulator && _sky && !_viewer->getCompositeViewer()->done(); }

    double frame()
    {
        _window.processEvents();
        const Clock::time_point start = Clock::now();
        _viewer->getCompositeViewer()->frame();
        return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
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

    bool go(const View& v)
    {
        _manipulator->setViewpoint(_manipulator->createViewpoint(v.lon, v.lat, 0.0, v.heading, v.pitch, v.range), 0.0);
        return settle();
    }

    void setSky(bool on)
    {
        _sky->setNodeMask(on ? ~0u : 0u);
        _sky->setHazeEnabled(on);
    }

    /** The cull traversal of the last frame, in milliseconds. */
    double lastCull() const
    {
        osg::Stats* stats = _viewer->getViewer()->getCamera()->getStats();
        double seconds = 0.0;
        const unsigned int frameNumber = _viewer->getViewer()->getFrameStamp()->getFrameNumber();
        if (stats->getAttribute(frameNumber, "Cull traversal time taken", seconds))
            return seconds * 1000.0;
        return -1.0;
    }

    double avoidance()
    {
        const Clock::time_point start = Clock::now();
        _manipulator->applyTerrainAvoidance();
        return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    }

private:
    cxhost::X11HostWindow& _window;
    osg::ref_ptr<CXViewer> _viewer;
    globe::EarthManipulator* _manipulator = nullptr;
    osg::ref_ptr<globe::SkyNode> _sky;
};

} // namespace

int main(int argc, char** argv)
{
    std::string basePath = std::getenv("CXVIEWER_SAMPLE_DIR") ? std::getenv("CXVIEWER_SAMPLE_DIR") : "sample";
    int width = 1280, height = 720, rounds = 5;
    for (int i = 1; i < argc; ++i)
    {
        const std::string arg = argv[i];
        if (arg == "--base-path" && i + 1 < argc)
            basePath = argv[++i];
        else if (arg == "--rounds" && i + 1 < argc)
            rounds = std::max(1, std::atoi(argv[++i]));
        else if (arg == "--size" && i + 1 < argc && std::sscanf(argv[++i], "%dx%d", &width, &height) == 2)
            continue;
        else
        {
            std::fprintf(stderr, "usage: %s [--base-path DIR] [--size WIDTHxHEIGHT] [--rounds N]\n", argv[0]);
            return 2;
        }
    }

    cxhost::X11HostWindow window(width, height, "bench_globe_frames");
    if (!window.isValid())
    {
        std::fprintf(stderr, "bench_globe_frames: %s (is DISPLAY set?)\n", window.error().c_str());
        return 1;
    }
    Bench bench(window, basePath);
    if (!bench.valid())
    {
        std::fprintf(stderr, "bench_globe_frames: no globe under %s\n", basePath.c_str());
        return 1;
    }
    if (!bench.settle())
    {
        std::fprintf(stderr, "bench_globe_frames: the start view did not settle\n");
        return 1;
    }

    const View views[] = {
        {"from space (20,929 km)", 109.0, 32.0, 0.0, -90.0, 20928182.0},
        {"150 km over the Himalaya, 45 degrees down", 86.925, 27.988, 0.0, -45.0, 150000.0},
        {"2 km over Western Australia, at the horizon", 117.8, -21.7, 0.0, -10.0, 2000.0 / std::sin(0.17453)},
    };
    constexpr int kFramesPerRound = 40;
    std::printf("%dx%d, %d rounds of %d frames with and without the sky, interleaved; medians\n", width, height,
                rounds, kFramesPerRound);
    for (const View& view : views)
    {
        if (!bench.go(view))
        {
            std::fprintf(stderr, "bench_globe_frames: %s did not settle\n", view.name);
            return 1;
        }
        std::vector<double> withSky, withoutSky, culls, picks;
        for (int r = 0; r < rounds; ++r)
        {
            for (const bool on : {true, false})
            {
                bench.setSky(on);
                bench.frame(); // the change takes effect
                for (int f = 0; f < kFramesPerRound; ++f)
                {
                    (on ? withSky : withoutSky).push_back(bench.frame());
                    if (on)
                    {
                        const double cull = bench.lastCull();
                        if (cull >= 0.0)
                            culls.push_back(cull);
                        picks.push_back(bench.avoidance());
                    }
                }
            }
        }
        bench.setSky(true);
        const double a = median(withSky), b = median(withoutSky);
        std::printf("%s:\n  frame %.2f ms with the sky, %.2f ms without: ratio %.3f\n", view.name, a, b, a / b);
        const double pick = median(picks), cull = median(culls);
        std::printf("  terrain avoidance %.3f ms a frame, cull traversal %.2f ms: %.1f %% of the cull\n", pick, cull,
                    cull > 0.0 ? 100.0 * pick / cull : 0.0);
    }
    return 0;
}
