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
#include "GlobeBench.h"

#include <globe/FindTopMostNodeOfTypeVisitor>
#include <globe/SkyNode>

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
    Bench(cxhost::X11HostWindow& window, const std::string& basePath)
        : GlobeBench(window, basePath), _sky(globe::findTopMostNodeOfType<globe::SkyNode>(_viewer->getRoot()))
    {
    }

    bool valid() const override { return GlobeBench::valid() && _sky; }

    void setSky(bool on)
    {
        _sky->setNodeMask(on ? ~0u : 0u);
        _sky->setHazeEnabled(on);
    }

    double avoidance()
    {
        const Clock::time_point start = Clock::now();
        _manipulator->applyTerrainAvoidance();
        return millisecondsSince(start);
    }

private:
    osg::ref_ptr<globe::SkyNode> _sky;
};

} // namespace

int main(int argc, char** argv)
{
    GlobeBenchArguments arguments;
    if (!parseGlobeBenchArguments(argc, argv, arguments))
        return 2;
    const int width = arguments.width, height = arguments.height, rounds = arguments.rounds;
    cxhost::X11HostWindow window(width, height, "bench_globe_frames");
    std::unique_ptr<Bench> started = startGlobeBench<Bench>("bench_globe_frames", window, arguments);
    if (!started)
        return 1;
    Bench& bench = *started;

    constexpr int kFramesPerRound = 40;
    std::printf("%dx%d, %d rounds of %d frames with and without the sky, interleaved; medians\n", width, height,
                rounds, kFramesPerRound);
    for (const GlobeView& view : globeViews())
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
