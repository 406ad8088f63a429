// What the heads-up display's handler costs a frame, on the real sample
// data, on an X display (run it under xvfb-run when there is none).
//
//   bench_hud_frames [--base-path DIR] [--size WIDTHxHEIGHT] [--rounds N]
//
// At three heights (the start view from space, 150 km over the Himalaya,
// 2 km over the ground looking at the horizon), with the mouse over the
// ground, it times CLableControlEventHandler's work of a FRAME event (the
// HUD's viewports, its two ground picks at the window's centre, the pick
// under the mouse and the texts), and on their own the two centre picks and
// the mouse pick, against the cull traversal of the frames drawn in the same
// run, interleaved; it prints the medians, the handler's share of the cull
// and, for scale, the median time of a whole frame.
#include "GlobeBench.h"

#include <globe/IntersectionPicker>
#include <labels/CLableControlEventHandler>

#include <osgViewer/GraphicsWindow>

#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

namespace
{

using namespace cxbench;

class Bench : public GlobeBench
{
public:
    Bench(cxhost::X11HostWindow& window, const std::string& basePath) : GlobeBench(window, basePath)
    {
        _viewer->addViewPointLable();
        _handler = _viewer->labelHandler;
    }

    bool valid() const override { return GlobeBench::valid() && _handler; }

    /** Puts the mouse at a window position (origin bottom left) through the
      * graphics window's event queue, as the X server does, and draws a
      * frame so that the view takes it in. */
    void mouseAt(double x, double y)
    {
        auto* window = dynamic_cast<osgViewer::GraphicsWindow*>(_viewer->graphicsContext);
        const osg::Viewport* viewport = _viewer->getViewer()->getCamera()->getViewport();
        window->getEventQueue()->mouseMotion(static_cast<float>(x), static_cast<float>(viewport->height() - y));
        frame();
        frame();
    }

    /** The handler's work of one FRAME event at the view's mouse position. */
    double handlerFrame()
    {
        osgViewer::View* view = _viewer->getViewer();
        osg::ref_ptr<osgGA::GUIEventAdapter> event =
            new osgGA::GUIEventAdapter(*view->getEventQueue()->getCurrentEventState());
        event->setEventType(osgGA::GUIEventAdapter::FRAME);
        const Clock::time_point start = Clock::now();
        _handler->handle(*event, *view);
        return millisecondsSince(start);
    }

    /** The two ground picks at the window's centre, as the handler makes them. */
    double centrePicks()
    {
        osgViewer::View* view = _viewer->getViewer();
        const osg::Viewport* viewport = view->getCamera()->getViewport();
        const int cx = static_cast<int>(viewport->width()) / 2, cy = static_cast<int>(viewport->height()) / 2;
        const Clock::time_point start = Clock::now();
        const globe::IntersectionPicker picker(view, _viewer->mapNode.get(), 0xFFFFFFFFu, 5.0f,
                                               globe::IntersectionPicker::LIMIT_NEAREST);
        globe::IntersectionPicker::Hits hits;
        _centreHits += picker.pick(static_cast<float>(cx), static_cast<float>(cy), hits);
        _centreHits += picker.pick(static_cast<float>(cx + 1), static_cast<float>(cy), hits);
        return millisecondsSince(start);
    }

    /** The pick under the mouse, as the handler makes it. */
    double mousePick()
    {
        osgViewer::View* view = _viewer->getViewer();
        const osgGA::GUIEventAdapter* state = view->getEventQueue()->getCurrentEventState();
        osgUtil::LineSegmentIntersector::Intersections hits;
        const Clock::time_point start = Clock::now();
        _mouseHits += view->computeIntersections(state->getX(), state->getY(), _handler->nodePath, hits, 0xFFFFFFFFu);
        return millisecondsSince(start);
    }

    std::string positionText() const { return _handler->coordinateLabel->text(); }
    std::string scaleText() const { return _handler->scaleLabel->text(); }
    int centreHits() const { return _centreHits; }
    int mouseHits() const { return _mouseHits; }

private:
    CLableControlEventHandler* _handler = nullptr;
    int _centreHits = 0;
    int _mouseHits = 0;
};

} // namespace

int main(int argc, char** argv)
{
    GlobeBenchArguments arguments;
    if (!parseGlobeBenchArguments(argc, argv, arguments))
        return 2;
    const int width = arguments.width, height = arguments.height, rounds = arguments.rounds;
    cxhost::X11HostWindow window(width, height, "bench_hud_frames");
    std::unique_ptr<Bench> started = startGlobeBench<Bench>("bench_hud_frames", window, arguments);
    if (!started)
        return 1;
    Bench& bench = *started;

    constexpr int kFramesPerRound = 40;
    std::printf("%dx%d, %d rounds of %d frames; per frame the cull traversal, the handler's FRAME work, the two\n"
                "centre picks and the mouse pick, interleaved; medians\n",
                width, height, rounds, kFramesPerRound);
    for (const GlobeView& view : globeViews())
    {
        if (!bench.go(view))
        {
            std::fprintf(stderr, "bench_hud_frames: %s did not settle\n", view.name);
            return 1;
        }
        // The mouse over the ground, a little off the centre and below it.
        bench.mouseAt(0.55 * width, 0.4 * height);
        std::vector<double> frames, culls, handler, centre, mouse;
        for (int r = 0; r < rounds; ++r)
            for (int f = 0; f < kFramesPerRound; ++f)
            {
                frames.push_back(bench.frame());
                const double cull = bench.lastCull();
                if (cull >= 0.0)
                    culls.push_back(cull);
                handler.push_back(bench.handlerFrame());
                centre.push_back(bench.centrePicks());
                mouse.push_back(bench.mousePick());
            }
        const double c = median(culls), h = median(handler), p = median(centre), m = median(mouse);
        std::printf("%s:\n  position \"%s\", scale \"%s\"\n", view.name, bench.positionText().c_str(),
                    bench.scaleText().c_str());
        std::printf("  cull traversal %.3f ms; handler %.3f ms a frame (%.1f %% of the cull): two centre picks "
                    "%.3f ms, mouse pick %.3f ms; the whole frame %.2f ms\n",
                    c, h, c > 0.0 ? 100.0 * h / c : 0.0, p, m, median(frames));
    }
    std::printf("picks that hit: %d centre, %d mouse\n", bench.centreHits(), bench.mouseHits());
    return 0;
}
