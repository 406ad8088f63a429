#include "CommandLine.h"

#include "EarthFile.h"
#include "Error.h"
#include "GdalSupport.h"
#include "GeoMosaic.h"
#include "HeightGrid.h"
#include "PointTiler.h"
#include "Progress.h"
#include "PyramidBuilder.h"
#include "SourceReader.h"
#include "TileMath.h"
#include "WarpedPyramidBuilder.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <malloc.h>
#include <map>
#include <optional>
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

const std::set<std::string> kValueOptions = {"--format",      "--quality",   "--max-zoom",
                                             "--name",        "--description", "--attribution",
                                             "--image",       "--elevation", "--srs",
                                             "--max-points-per-tile", "--lod-factor", "--max-memory"};
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

/** `convert(text, &used)` (std::stoi, std::stod, ...) over all of `text`;
 *  false when it fails or leaves characters over. */
template <typename T, typename Convert>
bool convertAll(const std::string& text, Convert convert, T& value)
{
    std::size_t used = 0;
    try
    {
        value = convert(text, &used);
    }
    catch (const std::exception&)
    {
        return false;
    }
    return used != 0 && used == text.size();
}

int parseInt(const std::string& option, const std::string& text, int low, int high)
{
    int value = 0;
    const auto toInt = [](const std::string& t, std::size_t* used) { return std::stoi(t, used); };
    if (!convertAll(text, toInt, value) || value < low || value > high)
        throw UsageError(option + " wants a whole number from " + std::to_string(low) + " to "
                         + std::to_string(high) + ", not '" + text + "'");
    return value;
}

double parseNumber(const std::string& option, const std::string& text, double low, double high)
{
    double value = 0.0;
    const auto toDouble = [](const std::string& t, std::size_t* used) { return std::stod(t, used); };
    if (!convertAll(text, toDouble, value) || !std::isfinite(value) || value < low || value > high)
        throw UsageError(option + " wants a number from " + std::to_string(static_cast<int>(low)) + " to "
                         + std::to_string(static_cast<int>(high)) + ", not '" + text + "'");
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

/** How the inputs of a command are read. */
enum class InputMode
{
    /** Georeferenced rasters, warped into the pyramid over their extent. */
    Georeferenced,
    /** One whole-Earth equirectangular grid (or the marble SRTM pair) without
     *  georeferencing, as the tool has always read them. */
    WholeEarth
};

/**
 * Opens every input and reads a block at its start and its end (in order, so that
 * the first bad one is the one reported), and decides how they are read: all
 * georeferenced, or none. A folder is the marble SRTM layout for elevation and
 * left to its reader.
 */
InputMode inputMode(const std::vector<std::string>& inputs, bool folderAllowed)
{
    std::string georeferenced;
    std::string plain;
    for (const std::string& input : inputs)
    {
        std::error_code ec;
        if (folderAllowed && inputs.size() == 1 && std::filesystem::is_directory(input, ec))
            return InputMode::WholeEarth;
        const DatasetPtr dataset = openRaster(input);
        probeReadable(static_cast<GDALDatasetH>(dataset.get()), input);
        std::string& kind = hasGeoreferencing(static_cast<GDALDatasetH>(dataset.get())) ? georeferenced : plain;
        if (kind.empty())
            kind = input;
    }
    if (!georeferenced.empty() && !plain.empty())
        throw Error("cannot read '" + plain + "': it is not georeferenced (no geotransform, world file or ground "
                    "control points) while '" + georeferenced + "' is; a mosaic needs every input placed on the Earth");
    return georeferenced.empty() ? InputMode::WholeEarth : InputMode::Georeferenced;
}

void reportLevels(std::ostream& out, const GeoMosaic& mosaic, const PyramidOptions& options)
{
    if (options.maxZoom >= 0)
        out << "  deepest level " << options.maxZoom << " (--max-zoom); the inputs' pixels suggest "
            << mosaic.naturalMaxZoom() << "\n";
    else
        out << "  deepest level " << mosaic.naturalMaxZoom() << ", the first as fine as the inputs' pixels\n";
}

int runImage(const Arguments& a, std::ostream& out, bool interactive)
{
    if (a.positional.size() < 2)
        throw UsageError("'image' takes one or more input images and an output file");
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

    const std::vector<std::string> inputs(a.positional.begin(), a.positional.end() - 1);
    const std::string& output = a.positional.back();
    TerminalProgress terminal(out, interactive);
    SilentProgress silent;
    Progress& progress = a.has("--quiet") ? static_cast<Progress&>(silent) : terminal;

    if (inputMode(inputs, false) == InputMode::Georeferenced)
    {
        out << "reading " << (inputs.size() == 1 ? inputs[0] : std::to_string(inputs.size()) + " inputs") << "\n";
        const GeoMosaic mosaic(inputs, RasterKind::Imagery, a.value("--srs"));
        out << mosaic.description();
        reportLevels(out, mosaic, options);
        const PyramidSummary summary = buildImageryPyramid(mosaic, output, options, progress);
        reportWritten(out, output, summary);
        if (summary.transparentTiles > 0)
            out << "  " << summary.transparentTiles << " tiles with transparent pixels written as PNG\n";
        return 0;
    }

    if (inputs.size() != 1)
        throw Error("'" + inputs[0] + "' is not georeferenced; several inputs form a mosaic only by their "
                    "georeferencing, and an image without it must be a whole-Earth image on its own");
    if (a.has("--srs"))
        throw Error("'" + inputs[0] + "' is not georeferenced: --srs names the coordinate system of georeferenced "
                    "inputs that lack one (a world file without a .prj), it cannot place an image");
    out << "reading " << inputs[0] << "\n";
    const EquirectImage source = readEquirectImage(inputs[0]);
    out << "  " << source.width() << " x " << source.height() << " pixels, " << source.channels()
        << " channels, the whole Earth (not georeferenced)\n";
    reportWritten(out, output, buildImageryPyramid(source, output, options, progress));
    return 0;
}

int runElevation(const Arguments& a, std::ostream& out, bool interactive)
{
    if (a.positional.size() < 2)
        throw UsageError("'elevation' takes one or more inputs and an output file");
    if (a.has("--clean") && a.has("--no-clean"))
        throw UsageError("--clean and --no-clean exclude each other");
    const PyramidOptions options = pyramidOptions(a);
    const std::vector<std::string> inputs(a.positional.begin(), a.positional.end() - 1);
    const std::string& output = a.positional.back();
    TerminalProgress terminal(out, interactive);
    SilentProgress silent;
    Progress& progress = a.has("--quiet") ? static_cast<Progress&>(silent) : terminal;

    if (inputMode(inputs, true) == InputMode::Georeferenced)
    {
        out << "reading " << (inputs.size() == 1 ? inputs[0] : std::to_string(inputs.size()) + " inputs") << "\n";
        const GeoMosaic mosaic(inputs, RasterKind::Elevation, a.value("--srs"));
        out << mosaic.description();
        reportLevels(out, mosaic, options);
        std::optional<HeightCleaning> cleaning;
        if (a.has("--clean"))
        {
            cleaning = HeightCleaning{kLowestGround, kHighestGround, kSpikeThreshold};
            out << "  heights outside " << kLowestGround << ".." << kHighestGround << " m, and lone spikes over "
                << kSpikeThreshold << " m, are treated as voids\n";
        }
        const PyramidSummary summary = buildElevationPyramid(mosaic, output, options, cleaning, progress);
        out << "  " << summary.voidsFilled << " void pixels of level " << summary.maxZoom
            << " filled from their neighbours\n";
        reportWritten(out, output, summary);
        return 0;
    }

    if (inputs.size() > 2)
        throw Error("'" + inputs[0] + "' is not georeferenced; without georeferencing the elevation is one height "
                    "image, one folder of SRTM tiles, or the west and east SRTM tiles");
    if (a.has("--srs"))
        throw Error("'" + inputs[0] + "' is not georeferenced: --srs names the coordinate system of georeferenced "
                    "inputs that lack one (a world file without a .prj), it cannot place an image");
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
    reportWritten(out, output, buildElevationPyramid(grid, output, options, progress));
    return 0;
}

int runPoints(const Arguments& a, std::ostream& out, bool interactive)
{
    if (a.positional.size() < 2)
        throw UsageError("'points' takes one or more point cloud files and an output folder");
    PointTilerOptions options;
    options.inputs.assign(a.positional.begin(), a.positional.end() - 1);
    options.output = a.positional.back();
    options.srs = a.value("--srs");
    if (a.has("--max-points-per-tile"))
        options.maxPointsPerTile = static_cast<std::size_t>(
            parseInt("--max-points-per-tile", a.value("--max-points-per-tile"), 100, 10000000));
    if (a.has("--lod-factor"))
        options.lodFactor = parseNumber("--lod-factor", a.value("--lod-factor"), 1.0, 100.0);
    if (a.has("--max-memory"))
        options.maxMemoryMB = static_cast<std::size_t>(parseInt("--max-memory", a.value("--max-memory"), 16, 1 << 20));
    options.quiet = a.has("--quiet");
    // Freed blocks of points go back to the system at once, so that the
    // process's memory follows what is at work rather than its peak.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    tilePointCloud(options, out, interactive);
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
           "  " + program + " image INPUT... OUTPUT.db [options]\n"
           "      INPUT: any raster GDAL reads (GeoTIFF, JPEG or PNG with a world file, JPEG 2000,\n"
           "      VRT, ...) in any coordinate system; several inputs form one mosaic. Pixels without\n"
           "      data (nodata, alpha, outside the inputs) are transparent, and tiles exist only over\n"
           "      the data. An image without georeferencing, twice as wide as high, is the whole Earth\n"
           "      (equirectangular). Writes an MBTiles imagery pyramid in spherical mercator.\n"
           "      --format jpg|png     format of opaque tiles (default jpg); tiles with transparency are PNG\n"
           "      --quality N          JPEG quality 1-100 (default 90)\n"
           "  " + program + " elevation INPUT... OUTPUT.db [options]\n"
           "      INPUT: georeferenced rasters of heights in metres (band 1 with its scale and offset;\n"
           "      GeoTIFF, SRTM .hgt, ...); several form one mosaic; nodata pixels are voids.\n"
           "      Without georeferencing: a folder of the marble SRTM tiles (000000_000000.png,\n"
           "      000000_000001.png), the west and east SRTM tiles (RGB, height = (int16)(G * 256 + B),\n"
           "      -32768 void), or one whole-Earth single-channel 16-bit image of heights in metres.\n"
           "      Writes a Terrain-RGB MBTiles elevation pyramid; voids are filled from their neighbours,\n"
           "      heights outside georeferenced inputs are 0 m.\n"
           "      --clean / --no-clean treat corrupt cells (impossible heights, lone spikes) as voids\n"
           "                           (default: on for the RGB-encoded SRTM tiles, off otherwise)\n"
           "  " + program + " points INPUT... OUTDIR [options]\n"
           "      INPUT: point clouds in one projected CRS: LAS 1.0-1.4 (uncompressed, point formats 0-3 and\n"
           "      6-8; the CRS from its WKT or GeoKeys record), PLY (ascii or binary little endian: vertex\n"
           "      x y z, optional red green blue, intensity, classification) or XYZ text (.xyz, .txt, .csv;\n"
           "      x y z, x y z intensity, x y z r g b or x y z intensity r g b a line). Several inputs are\n"
           "      one cloud. A geographic CRS (degrees) is projected to the UTM zone of the first point.\n"
           "      Writes OUTDIR/cloud.osgb (the root tile, a paged octree of .osgb tiles below it) and\n"
           "      OUTDIR/cloud.json (CRS, bounds, counts).\n"
           "      --srs SRS            the inputs' CRS, over what they carry (needed for PLY and XYZ)\n"
           "      --max-points-per-tile N   at most N points a tile (default " + std::to_string(kDefaultMaxPointsPerTile) + "); a tile keeps\n"
           "                           one point per cell of its spacing (its cube's edge / 128), the\n"
           "                           rest go to its eight child cubes\n"
           "      --lod-factor F       a tile's children load within F x its cube's edge of its centre\n"
           "                           (default " + std::to_string(kDefaultLodFactor).substr(0, 3) + ")\n"
           "      --max-memory MB      memory for the points at work, beside the program itself\n"
           "                           (default " + std::to_string(kDefaultMaxMemoryMB) + "); larger clouds stream through\n"
           "                           spill files in the output's temporary folder\n"
           "      -q, --quiet          no progress\n"
           "  " + program + " earth OUTPUT.earth [--name NAME] [--image DB] [--elevation DB]\n"
           "      Writes an earth file; layers only for the MBTiles files given (paths relative to it).\n"
           "  options of image and elevation:\n"
           "      --max-zoom N         deepest level 0-" + std::to_string(kMaxZoomLimit) + "\n"
           "                           (default: the first level as fine as the input's pixels)\n"
           "      --srs SRS            coordinate system of georeferenced inputs that have none, such as\n"
           "                           a world file without .prj (EPSG:4326, WKT or PROJ string)\n"
           "      --name, --description, --attribution TEXT   metadata (name defaults to OUTPUT's name)\n"
           "      -q, --quiet          no progress\n"
           "Every input is checked before anything is written; an existing output is replaced only\n"
           "once the new one is complete.\n";
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
    const std::set<std::string> common = {"--max-zoom", "--name",  "--description",
                                          "--attribution", "--quiet", "--srs"};
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
        else if (args[0] == "points")
        {
            status = runPoints(parse(args, 1, {"--srs", "--max-points-per-tile", "--lod-factor", "--max-memory",
                                               "--quiet"}),
                               out, interactive);
        }
        else if (args[0] == "earth")
        {
            return runEarth(parse(args, 1, {"--name", "--image", "--elevation"}), out);
        }
        else
        {
            throw UsageError("unknown command '" + args[0] + "' (image, elevation, points or earth)");
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
