#include "CommandLine.h"

#include "Error.h"
#include "SampleGenerator.h"

#include <chrono>
#include <cstdio>
#include <limits>
#include <ostream>

namespace cxsample
{

namespace
{

struct UsageError : Error
{
    using Error::Error;
};

/** A whole number from 0 up to `largest`, all of `text`, not negative. */
bool parseWholeNumber(const std::string& text, std::uint64_t largest, std::uint64_t& value)
{
    if (text.empty() || text[0] == '-')
        return false;
    std::size_t used = 0;
    try
    {
        value = std::stoull(text, &used);
    }
    catch (const std::exception&)
    {
        return false;
    }
    return used == text.size() && value <= largest;
}

std::uint64_t parseSeed(const std::string& text)
{
    std::uint64_t value = 0;
    if (!parseWholeNumber(text, std::numeric_limits<std::uint64_t>::max(), value))
        throw UsageError("--seed wants a whole number from 0 up, not '" + text + "'");
    return value;
}

std::uint64_t parseCount(const std::string& text)
{
    std::uint64_t value = 0;
    if (!parseWholeNumber(text, 100000000ull, value))
        throw UsageError("--cloud-points wants a whole number from 0 to 100000000, not '" + text + "'");
    return value;
}

} // namespace

std::string usageText(const std::string& program)
{
    return "Usage: " + program + " OUTDIR [--dem DEM.db [--image IMG.db]] [--seed N] [--cloud-points N] [--quiet]\n"
           "\n"
           "Writes the sample scene objects around Beijing (116.30-116.48 E, 39.86-39.96 N):\n"
           "  OUTDIR/models/buildings/  a few hundred buildings of some thirty designs\n"
           "  OUTDIR/models/terrain/    a park of 3 km2 with a hill and a lake, a textured height mesh\n"
           "  OUTDIR/models/pipes/      water, gas and heat mains along the streets\n"
           "  OUTDIR/data/objects.csv   the objects, for `cxstore build`: enterprise 1 buildings (type 0),\n"
           "                            2 the terrain (type 1), 3 the pipes (type 2)\n"
           "  OUTDIR/oblique/           an oblique photography dataset of 64 blocks north of the city\n"
           "                            (116.391 E, 39.985 N): metadata.xml (EPSG:4547 and an origin)\n"
           "                            and Data/Tile_*/ pyramids of paged, textured tiles (.osgb)\n"
           "  OUTDIR/icon/Compass.PNG, OUTDIR/icon/plate.PNG, OUTDIR/myselftest/data/mapscale.png\n"
           "                            the pictures of the viewer's heads-up display: compass\n"
           "                            needle, dial and scale bar, with alpha\n"
           "  OUTDIR/skybox/            a sky box's cube map: posx, negx, posy, negy, posz, negz.png,\n"
           "                            512 x 512 each, a star field over a night sky with a glow\n"
           "                            along the horizon (+Z up, the warm glow towards -X)\n"
           "Every model comes in four levels of detail, NAME_fine, NAME_middle, NAME_crude and\n"
           "NAME_crude2.osgb; the table names the crude file relative to OUTDIR/models/, the\n"
           "viewer's model root.\n"
           "\n"
           "Options:\n"
           "  --dem DEM.db   ground heights from this elevation MBTiles file (as `cxtiler elevation`\n"
           "                 writes it); without it every object stands at height 0\n"
           "  --image IMG.db the imagery the globe shows with DEM.db; with it the oblique dataset's\n"
           "                 ground lies on the terrain exactly as the globe draws it up close\n"
           "  --cloud-points N  points of the point cloud (default " + std::to_string(kDefaultCloudPoints) + "; 0: none)\n"
           "  --seed N       another city from another seed (default " + std::to_string(kDefaultSeed) + ");\n"
           "                 the same seed gives the same files\n"
           "  --quiet, -q    no progress lines\n"
           "  --help, -h     this text\n"
           "\n"
           "Exit status: 0 done, 1 failed (output not writable, elevation file not readable),\n"
           "2 bad command line.\n";
}

int runCommandLine(const std::vector<std::string>& args, std::ostream& out, std::ostream& err)
{
    const std::string program = "cxsample";
    GeneratorOptions options;
    bool quiet = false;
    try
    {
        std::vector<std::string> positional;
        for (std::size_t i = 0; i < args.size(); ++i)
        {
            const std::string& arg = args[i];
            if (arg == "--help" || arg == "-h")
            {
                out << usageText(program);
                return 0;
            }
            if (arg == "--quiet" || arg == "-q")
                quiet = true;
            else if (arg == "--dem" || arg == "--seed" || arg == "--image" || arg == "--cloud-points")
            {
                if (i + 1 >= args.size())
                    throw UsageError(arg + " needs a value");
                const std::string& value = args[++i];
                if (arg == "--dem")
                    options.demPath = value;
                else if (arg == "--image")
                    options.imagePath = value;
                else if (arg == "--cloud-points")
                    options.cloudPoints = parseCount(value);
                else
                    options.seed = parseSeed(value);
            }
            else if (arg.size() > 1 && arg[0] == '-')
                throw UsageError("unknown option '" + arg + "'");
            else
                positional.push_back(arg);
        }
        if (positional.empty())
            throw UsageError("no output folder given");
        if (positional.size() > 1)
            throw UsageError("one output folder only, not '" + positional[0] + "' and '" + positional[1] + "'");
        if (positional[0].empty())
            throw UsageError("the output folder is an empty name");
        options.outputDir = positional[0];
    }
    catch (const UsageError& e)
    {
        err << program << ": " << e.what() << "\n" << usageText(program);
        return 2;
    }

    try
    {
        const auto start = std::chrono::steady_clock::now();
        generateSample(options, quiet ? nullptr : &out);
        if (!quiet)
        {
            char seconds[32];
            std::snprintf(seconds, sizeof(seconds), "%.1f s",
                          std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
            out << "done in " << seconds << "\n";
        }
        return 0;
    }
    catch (const Error& e)
    {
        err << program << ": error: " << e.what() << "\n";
        return 1;
    }
}

} // namespace cxsample
