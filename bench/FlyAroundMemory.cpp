// A scripted fly-around of the globe on the real sample data that prints the
// process's memory as it goes, on an X display (run it under xvfb-run when
// there is none).
//
//   bench_flyaround [--base-path DIR] [--minutes M] [--size WIDTHxHEIGHT]
//
// Cycles of about a minute, until the time is up: flights to twelve places at
// every height (from 20,000 km down to a few metres) over mountains, sea,
// plains and the poles, each followed by wheel steps in or out, a drag (pan)
// or a rotation through the graphics window's event queue, as a user's input
// arrives; each cycle visits the places in another order. Every 10 s it
// prints the resident memory, the tiles built so far and the pager's queue;
// at the end, the memory after the first minute (one cycle: the whole
// working set) against the last and the highest.
#include "ProcessMemory.h"
#include "X11HostWindow.h"

#include <viewer/CXViewer>

#include <globe/EarthManipulator>
#include <globe/TerrainEngine>

#include <osgGA/EventQueue>
#include <osgViewer/GraphicsWindow>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;


struct Place
{
    const char* name;
    double lon, lat, heading, pitch, range;
};

// Every height, over mountains, sea, plains, coasts and the poles.
const Place kPlaces[] = {
    {"China from space", 109.0, 32.0, 0.0, -90.0, 2.0e7},
    {"Everest, 10 m", 86.925, 27.988, 30.0, -20.0, 10.0},
    {"Himalaya, 40 km", 86.5, 28.2, 90.0, -30.0, 40000.0},
    {"Pacific, 500 m", -150.0, 10.0, 0.0, -15.0, 500.0},
    {"Beijing, 2 km", 116.39, 39.91, 45.0, -40.0, 2000.0},
    {"Andes, 5 km", -70.0, -32.6, 200.0, -25.0, 5000.0},
    {"North pole, 1,000 km", 0.0, 89.0, 0.0, -60.0, 1.0e6},
    {"Alps, 300 m", 7.66, 45.98, 300.0, -12.0, 300.0},
    {"Sahara, 200 km", 10.0, 23.0, 0.0, -90.0, 200000.0},
    {"Antarctica, 20 km", 0.0, -80.0, 0.0, -35.0, 20000.0},
    {"Rockies, 1 km", -106.0, 39.6, 120.0, -15.0, 1000.0},
    {"Indian Ocean, 3,000 km", 75.0, -10.0, 0.0, -90.0, 3.0e6},
};

class FlyAround
{
public:
    FlyAround(cxhost::X11HostWindow& window, const std::string& basePath, int width, int height)
        : _window(window), _width(width), _height(height)
    {
        _viewer = new CXViewer(window.handle());
        _viewer->basePath = basePath;
        _viewer->InitOSG();
        _manipulator = dynamic_cast<globe::EarthManipulator*>(_viewer->getViewer()->getCameraManipulator());
    }

    ~FlyAround() { _viewer->UnInitOSG(); }

    bool valid() const { return _manipulator && !_viewer->getCompositeViewer()->done(); }

    void frame()
    {
        _window.processEvents();
        _viewer->getCompositeViewer()->frame();
        const double t = elapsed();
        if (t >= _nextReport)
        {
            report(t);
            _nextReport += 10.0;
        }
    }

    void frames(double seconds)
    {
        const Clock::time_point until = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                            std::chrono::duration<double>(seconds));
        while (Clock::now() < until)
            frame();
    }

    void fly(const Place& place, double seconds)
    {
        _manipulator->setViewpoint(
            _manipulator->createViewpoint(place.lon, place.lat, 0.0, place.heading, place.pitch, place.range), seconds);
        frames(seconds + 1.5);
    }

    void wheel(osgGA::GUIEventAdapter::ScrollingMotion motion, int steps)
    {
        for (int i = 0; i < steps; ++i)
        {
            queue()->mouseMotion(_width / 2.0f, _height / 2.0f);
            queue()->mouseScroll(motion);
            frames(0.25);
        }
    }

    void drag(float dx, float dy, unsigned int button)
    {
        const float x0 = _width * 0.5f, y0 = _height * 0.5f;
        queue()->mouseMotion(x0, y0);
        queue()->mouseButtonPress(x0, y0, button);
        for (int i = 1; i <= 12; ++i)
        {
            queue()->mouseMotion(x0 + dx * i / 12.0f, y0 + dy * i / 12.0f);
            frame();
        }
        queue()->mouseButtonRelease(x0 + dx, y0 + dy, button);
        frames(0.3);
    }

    double elapsed() const { return std::chrono::duration<double>(Clock::now() - _start).count(); }

    void report(double t)
    {
        const double rss = cxhost::residentMegabytes();
        _curve.emplace_back(t, rss);
        std::printf("%6.0f s  %7.1f MB  %8lu tiles built  %4u requests queued\n", t, rss,
                    _viewer->mapNode->getTerrainEngine()->getNumTilesBuilt(),
                    _viewer->getViewer()->getDatabasePager()->getFileRequestListSize());
        std::fflush(stdout);
    }

    const std::vector<std::pair<double, double>>& curve() const { return _curve; }

private:
    osgGA::EventQueue* queue() const
    {
        auto* gw = dynamic_cast<osgViewer::GraphicsWindow*>(_viewer->graphicsContext);
        return gw ? gw->getEventQueue() : _viewer->getViewer()->getEventQueue();
    }

    cxhost::X11HostWindow& _window;
    int _width, _height;
    osg::ref_ptr<CXViewer> _viewer;
    globe::EarthManipulator* _manipulator = nullptr;
    Clock::time_point _start = Clock::now();
    double _nextReport = 0.0;
    std::vector<std::pair<double, double>> _curve;
};

} // namespace

int main(int argc, char** argv)
{
    std::string basePath = std::getenv("CXVIEWER_SAMPLE_DIR") ? std::getenv("CXVIEWER_SAMPLE_DIR") : "sample";
    double minutes = 10.0;
    int width = 1280, height = 720;
    for (int i = 1; i < argc; ++i)
    {
        const std::string arg = argv[i];
        if (arg == "--base-path" && i + 1 < argc)
            basePath = argv[++i];
        else if (arg == "--minutes" && i + 1 < argc)
            minutes = std::max(1.0, std::atof(argv[++i]));
        else if (arg == "--size" && i + 1 < argc && std::sscanf(argv[++i], "%dx%d", &width, &height) == 2)
            continue;
        else
        {
            std::fprintf(stderr, "usage: %s [--base-path DIR] [--minutes M] [--size WIDTHxHEIGHT]\n", argv[0]);
            return 2;
        }
    }

    // As the demo host does: freed tiles go back to the system.
    cxhost::keepLargeBlocksOutOfTheHeap();
    cxhost::X11HostWindow window(width, height, "bench_flyaround");
    if (!window.isValid())
    {
        std::fprintf(stderr, "bench_flyaround: %s (is DISPLAY set?)\n", window.error().c_str());
        return 1;
    }
    FlyAround fly(window, basePath, width, height);
    if (!fly.valid())
    {
        std::fprintf(stderr, "bench_flyaround: no globe under %s\n", basePath.c_str());
        return 1;
    }
    std::printf("fly-around of %.0f minutes at %dx%d on %s\n", minutes, width, height, basePath.c_str());
    fly.frames(4.0); // the start flight

    // Each cycle visits every place once, in an order of its own, with one
    // of four kinds of input at each: a cycle (about a minute) shows the
    // whole working set, and the later ones repeat it in other orders.
    constexpr std::size_t kPlaceCount = sizeof(kPlaces) / sizeof(kPlaces[0]);
    std::size_t leg = 0;
    for (std::size_t cycle = 0; fly.elapsed() < minutes * 60.0; ++cycle)
    {
        for (std::size_t i = 0; i < kPlaceCount && fly.elapsed() < minutes * 60.0; ++i, ++leg)
        {
            // Steps through the places by a stride prime to their number.
            const std::size_t strides[] = {1, 5, 7, 11};
            const Place& place = kPlaces[(i * strides[cycle % 4] + cycle) % kPlaceCount];
            fly.fly(place, 2.5);
            switch ((i + cycle) % 4)
            {
            case 0:
                fly.wheel(osgGA::GUIEventAdapter::SCROLL_DOWN, 5);
                break;
            case 1:
                fly.drag(-150.0f, 120.0f, 1);
                break;
            case 2:
                fly.drag(120.0f, -40.0f, 2); // rotate
                break;
            default:
                fly.wheel(osgGA::GUIEventAdapter::SCROLL_UP, 5);
                break;
            }
        }
    }
    fly.report(fly.elapsed());

    // Memory after the first minute against the end and the peak.
    const auto& curve = fly.curve();
    double afterFirstMinute = 0.0, peak = 0.0;
    for (const auto& [t, rss] : curve)
    {
        if (afterFirstMinute == 0.0 && t >= 60.0)
            afterFirstMinute = rss;
        peak = std::max(peak, rss);
    }
    const double last = curve.empty() ? 0.0 : curve.back().second;
    if (afterFirstMinute > 0.0)
        std::printf("memory after the first minute %.1f MB, at the end %.1f MB (%+.1f %%), peak %.1f MB; %zu legs\n",
                    afterFirstMinute, last, 100.0 * (last - afterFirstMinute) / afterFirstMinute, peak, leg);
    return 0;
}
