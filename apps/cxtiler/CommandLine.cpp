#include "CommandLine.h"

#include "EarthFile.h"
#include "Error.h"
#include "HeightGrid.h"
#include "Progress.h"
#include "PyramidBuilder.h"
#include "SourceReader.h"
#include "TileMath.h"

#include <chrono>
#include <cstdio>
#include <map>
#include <ostream>
#include <set>

namespace cxtiler
{

namespace
{

// Heights the RGB-encoded SRTM data can really hold at a few kilometres per cell
// (the Dead Sea shore to Everest, with a margin); values outside are corrupt.
constexpr float kLowestGround = -500.0f;
constexpr float kHighestGround = 9000.0f;
// A cell this far above (or below) all its neighbours is a corrupt sample.
constexpr float kSpikeThreshold = 2000.0f;

struct UsageError : Error
{
    using Error::Error;
};

struct Arguments
{
    std::vector<std::string> positional;
    std::map<std::string, std::string> values;
    std::set<std::string> flags;

    bool has(const std::string& option) const { return values.count(option) || flags.count(option); }
    std::string value(const std::string& option, const std::string& fallback = {}) const
    {
        const auto it = values.find(option);
        return it == values.end() ? fallback : it->second;
    }
};

const std::set<std::string> kValueOptions = {"--format", "--quality", "--max-zoom", "--name", "--description",
                                             "--attribution", "--image", "--elevation"};
const std::set<std::string> kFlagOptions = {"--clean", "--no-clean", "--quiet"};

Arguments parse(const std::vector<std::string>& args, std::size_t first, const std::set<std::string>& allowed)
{
    Arguments parsed;
    for (std::size_t i = first; i < args.size(); ++i)
    {
        std::string arg = args[i];
        if (arg == "-q")
            arg = "--quiet";
        if (arg.size() > 1 && arg[0] == '-')
        {
            if (!allowed.count(arg))
                throw UsageError("unknown option '" + arg + "' for '" + args[0] + "'");
            if (kValueOptions.count(arg))
            {
                if (i + 1 >= args.size())
                    throw UsageError(arg + " needs a value");
                parsed.values[arg] = args[++i];
            }
            else
            {
                parsed.flags.insert(arg);
            }
            continue;
        }
        parsed.positional.push_back(arg);
    }
    return parsed;
}

int parseInt(const std::string& option, const std::string& text, int low, int high)
{
    std::size_t used = 0;
    int value = 0;
    try
    {
        value = std::stoi(text, &used);
    }
    catch (const std::exception&)
    {
        used = 0;
    }
    if (used == 0 || used != text.size() || value < low || value > high)
        throw UsageError(option + " wants a whole number from " + std::to_string(low) + " to "
                         + std::to_string(high) + ", not '" + text + "'");
    return value;
}

PyramidOptions pyramidOptions(const Arguments& a)
{
    PyramidOptions options;
    if (a.has("--max-zoom"))
        options.maxZoom = parseInt("--max-zoom", a.value("--max-zoom"), 0, kMaxZoomLimit);
    options.name = a.value("--name");
    options.description = a.value("--description");
    options.attribution = a.value("--attribution");
    return options;
}

std::string megabytes(std::uint64_t bytes)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f MB", static_cast<double>(bytes) / (1024.0 * 1024.0));
    return text;
}

void reportWritten(std::ostream& out, const std::string& path, const PyramidSummary& summary)
{
    out << "wrote " << path << ": " << summary.tiles << " tiles, levels " << summary.minZoom << "-"
        << summary.maxZoom << ", " << megabytes(summary.tileBytes) << " of tiles\n";
}

/** Progress that prints nothing, for --quiet. */
class SilentProgress : public Progress
{
};

int runImage(const Arguments& a, std::ostream& out, bool interactive)
{
    if (a.positional.size() != 2)
        throw UsageError("'image' takes an input image and an output file");
    PyramidOptions options = pyramidOptions(a);
    const std::string format = a.value("--format", "jpg");
    if (format == "png")
        options.format = TileFormat::Png;
    else if (format == "jpg" || format == "jpeg")
        options.format = TileFormat::Jpeg;
    else
        throw UsageError("--format is jpg or png, not '" + format + "'");
    if (a.has("--quality"))
        options.jpegQuality = parseInt("--quality", a.value("--quality"), 1, 100);

    const std::string& input = a.positional[0];
    const std::string& output = a.positional[1];
    out << "reading " << input << "\n";
    const EquirectImage source = readEquirectImage(input);
    out << "  " << source.width() << " x " << source.height() << " pixels, " << source.channels() << " channels\n";

    TerminalProgress terminal(out, interactive);
    SilentProgress silent;
    Progress& progress = a.has("--quiet") ? static_cast<Progress&>(silent) : terminal;
    reportWritten(out, output, buildImageryPyramid(source, output, options, progress));
    return 0;
}

int runElevation(const Arguments& a, std::ostream& out, bool interactive)
{
    if (a.positional.size() < 2 || a.positional.size() > 3)
        throw UsageError("'elevation' takes one or two inputs and an output file");
    if (a.has("--clean") && a.has("--no-clean"))
        throw UsageError("--clean and --no-clean exclude each other");
    const PyramidOptions options = pyramidOptions(a);
    const std::vector<std::string> inputs(a.positional.begin(), a.positional.end() - 1);
    const std::string& output = a.positional.back();

    HeightSource source = readHeightSource(inputs);
    HeightGrid& grid = source.grid;
    out << "read " << source.description << ", " << grid.voidCount() << " voids\n";
    const bool clean = a.has("--clean") || (source.srtmEncoded && !a.has("--no-clean"));
    if (clean)
    {
        const std::size_t removed = grid.removeOutliers(kLowestGround, kHighestGround, kSpikeThreshold);
        out << "  " << removed << " corrupt cells (outside " << kLowestGround << ".." << kHighestGround
            << " m, or lone spikes over " << kSpikeThreshold << " m) treated as voids\n";
    }
    const std::size_t filled = grid.fillVoids();
    out << "  " << filled << " voids filled from their neighbours\n";

    TerminalProgress terminal(out, interactive);
    SilentProgress silent;
    Progress& progress = a.has("--quiet") ? static_cast<Progress&>(silent) : terminal;
    reportWritten(out, output, buildElevationPyramid(grid, output, options, progress));
    return 0;
}

int runEarth(const Arguments& a, std::ostream& out)
{
    if (a.positional.size() != 1)
        throw UsageError("'earth' takes the output file");
    EarthFileOptions options;
    options.name = a.value("--name");
    options.image = a.value("--image");
    options.elevation = a.value("--elevation");
    writeEarthFile(a.positional[0], options);
    out << "wrote " << a.positional[0] << "\n";
    return 0;
}

} // namespace

std::string usageText(const std::string& program)
{
    return "usage:\n"
           "  " + program + " image INPUT OUTPUT.db [options]\n"
           "      INPUT: a whole-Earth equirectangular (plate carree) image, twice as wide as high\n"
           "      (JPEG, PNG, TIFF). Writes an MBTiles imagery pyramid in spherical mercator.\n"
           "      --format jpg|png     tile format (default jpg)\n"
           "      --quality N          JPEG quality 1-100 (default 90)\n"
           "  " + program + " elevation INPUT [INPUT2] OUTPUT.db [options]\n"
           "      INPUT: a folder of the marble SRTM tiles (000000_000000.png, 000000_000001.png),\n"
           "      the west and east SRTM tiles (RGB, height = (int16)(G * 256 + B), -32768 void),\n"
           "      or one whole-Earth single-channel 16-bit image of heights in metres.\n"
           "      Writes a Terrain-RGB MBTiles elevation pyramid; voids are filled from their neighbours.\n"
           "      --clean / --no-clean treat corrupt cells (impossible heights, lone spikes) as voids\n"
           "                           (default: on for SRTM tiles, off for height images)\n"
           "  " + program + " earth OUTPUT.earth [--name NAME] [--image DB] [--elevation DB]\n"
           "      Writes an earth file; layers only for the MBTiles files given (paths relative to it).\n"
           "  options of image and elevation:\n"
           "      --max-zoom N         deepest level (default: from the source resolution)\n"
           "      --name, --description, --attribution TEXT   metadata (name defaults to OUTPUT's name)\n"
           "      -q, --quiet          no progress\n"
           "An existing output is replaced only once the new one is complete.\n";
}

int runCommandLine(const std::vector<std::string>& args, std::ostream& out, std::ostream& err, bool interactive)
{
    const std::string program = "cxtiler";
    if (args.empty())
    {
        err << usageText(program);
        return 2;
    }
    if (args[0] == "-h" || args[0] == "--help" || args[0] == "help")
    {
        out << usageText(program);
        return 0;
    }
    const std::set<std::string> common = {"--max-zoom", "--name", "--description", "--attribution", "--quiet"};
    try
    {
        const auto start = std::chrono::steady_clock::now();
        int status = 0;
        if (args[0] == "image")
        {
            std::set<std::string> allowed = common;
            allowed.insert({"--format", "--quality"});
            status = runImage(parse(args, 1, allowed), out, interactive);
        }
        else if (args[0] == "elevation")
        {
            std::set<std::string> allowed = common;
            allowed.insert({"--clean", "--no-clean"});
            status = runElevation(parse(args, 1, allowed), out, interactive);
        }
        else if (args[0] == "earth")
        {
            return runEarth(parse(args, 1, {"--name", "--image", "--elevation"}), out);
        }
        else
        {
            throw UsageError("unknown command '" + args[0] + "' (image, elevation or earth)");
        }
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        char elapsed[32];
        std::snprintf(elapsed, sizeof(elapsed), "%.2f", seconds);
        out << "done in " << elapsed << " s\n";
        return status;
    }
    catch (const UsageError& e)
    {
        err << program << ": " << e.what() << "\n" << usageText(program);
        return 2;
    }
    catch (const std::exception& e)
    {
        err << program << ": error: " << e.what() << "\n";
        return 1;
    }
}

} // namespace cxtiler
