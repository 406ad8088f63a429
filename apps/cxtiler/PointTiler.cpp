#include "PointTiler.h"

#include "Error.h"
#include "OutputFile.h"
#include "PointOctree.h"
#include "PointReaders.h"
#include "PointSource.h"
#include "PointTileWriter.h"
#include "StatusLine.h"

#include <globe/SpatialReference>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <ostream>
#include <sstream>
#include <unistd.h>

namespace cxtiler
{

const char* const kPointCloudInfoFile = "cloud.json";

namespace
{

namespace fs = std::filesystem;

/** Points read from an input at once. */
constexpr std::size_t kBatch = 1 << 16;
/** Memory kept aside for what is not points at work: read batches, spill
 *  buffers, PROJ's caches. */
constexpr std::uint64_t kFixedReserve = 8ull << 20;
/** Memory of one point of a tile while it is made (OSG arrays, geocentric
 *  doubles) and of one cell of a node's selection. */
constexpr std::uint64_t kTileBytesPerPoint = 80;
constexpr std::uint64_t kSelectionBytesPerPoint = 120;

std::string fixed(double value, int decimals)
{
    char text[64];
    std::snprintf(text, sizeof(text), "%.*f", decimals, value);
    return text;
}

std::string megabytes(std::uint64_t bytes) { return fixed(static_cast<double>(bytes) / (1024.0 * 1024.0), 1) + " MB"; }

std::string jsonString(const std::string& text)
{
    std::string quoted = "\"";
    for (const char c : text)
    {
        switch (c)
        {
        case '"': quoted += "\\\""; break;
        case '\\': quoted += "\\\\"; break;
        case '\n': quoted += "\\n"; break;
        case '\r': quoted += "\\r"; break;
        case '\t': quoted += "\\t"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20)
            {
                char escaped[8];
                std::snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned char>(c));
                quoted += escaped;
            }
            else
            {
                quoted += c;
            }
        }
    }
    return quoted + "\"";
}

std::string jsonNumber(double value)
{
    char text[64];
    std::snprintf(text, sizeof(text), "%.10g", value);
    return text;
}

/** The first line of a long CRS text, for messages. */
std::string shortCrs(const std::string& crs)
{
    std::string text = crs.substr(0, crs.find('\n'));
    if (text.size() > 80)
        text = text.substr(0, 77) + "...";
    return text;
}

/** The inputs' CRS and the frame's: the same for a projected CRS, the UTM
 *  zone of the first point for a geographic one. */
struct CloudCrs
{
    const globe::SpatialReference* input = nullptr;
    const globe::SpatialReference* frame = nullptr;
    std::string description;
};

CloudCrs resolveCrs(const std::vector<std::unique_ptr<PointSource>>& sources, const std::string& srs)
{
    CloudCrs crs;
    if (!srs.empty())
    {
        crs.input = globe::SpatialReference::create(srs);
        if (!crs.input)
            throw Error("unknown coordinate system '" + shortCrs(srs) + "' (--srs): PROJ does not know it");
        crs.description = crs.input->getName() + " (--srs)";
    }
    else
    {
        const PointSource* first = nullptr;
        for (const auto& source : sources)
        {
            const PointSourceInfo& info = source->info();
            if (info.crs.empty())
                throw Error(cannotRead(info.path) + "it carries no coordinate system"
                            + (info.crsOrigin.empty() ? std::string() : " (" + info.crsOrigin + ")")
                            + ": give one with --srs, such as --srs EPSG:32650");
            const globe::SpatialReference* found = globe::SpatialReference::create(info.crs);
            if (!found)
                throw Error(cannotRead(info.path) + "unknown coordinate system in " + info.crsOrigin + ": '"
                            + shortCrs(info.crs) + "'; give the right one with --srs");
            if (!crs.input)
            {
                crs.input = found;
                first = source.get();
            }
            else if (!found->isEquivalentTo(crs.input))
            {
                throw Error(cannotRead(info.path) + "its coordinate system (" + found->getName()
                            + ") differs from that of '" + first->info().path + "' (" + crs.input->getName()
                            + "); the inputs of one cloud share one (or give it with --srs)");
            }
        }
        crs.description = crs.input->getName() + " (from " + first->info().crsOrigin + ")";
    }
    if (crs.input->isGeocentric())
        throw Error("the coordinate system " + crs.input->getName()
                    + " is geocentric: the octree needs a projected CRS in metres (or a geographic one, which is "
                      "projected to its UTM zone)");
    crs.frame = crs.input;
    return crs;
}

/** The progress of the two passes on the terminal. */
class PassProgress
{
public:
    PassProgress(std::ostream& out, bool interactive, bool quiet) : _line(out, interactive), _quiet(quiet) {}

    void start(const std::string& title, std::uint64_t total)
    {
        _title = title;
        _total = total;
        _done = 0;
        _tiles = 0;
        _line.start();
        draw(true);
    }

    void points(std::uint64_t more, bool tile)
    {
        _done += more;
        _tiles += tile ? 1 : 0;
        draw(false);
    }

    void finish(const std::string& what)
    {
        if (_quiet)
            return;
        if (_line.interactive())
            _line.out() << '\r' << text() << "\n";
        _line.out() << "  " << what << " in " << _line.elapsed() << "\n" << std::flush;
    }

private:
    std::string text() const
    {
        std::string line = _title + ": ";
        if (_tiles > 0 || _title == "tiling")
            line += withThousands(_tiles) + " tiles, ";
        line += withThousands(_done);
        if (_total > 0)
            line += "/" + withThousands(_total) + " points (" + std::to_string(_done * 100 / _total) + "%)";
        else
            line += " points";
        return line;
    }

    void draw(bool force)
    {
        if (_quiet)
            return;
        if (_line.interactive())
        {
            _line.redraw(text(), force || _done == _total);
            return;
        }
        if (const int tenth = _line.tenthReached(static_cast<long>(_done), static_cast<long>(_total)))
            _line.out() << "  " << tenth * 10 << "% (" << withThousands(_done) << " points)\n" << std::flush;
    }

    cxtool::StatusLine _line;
    bool _quiet;
    std::string _title;
    std::uint64_t _total = 0;
    std::uint64_t _done = 0;
    std::uint64_t _tiles = 0;
};

/** The temporary folder of a run: removed unless committed, and on an
 *  interrupt. */
class TemporaryFolder
{
public:
    explicit TemporaryFolder(const fs::path& path) : _path(path), _pending(path.string())
    {
        std::error_code ec;
        fs::remove_all(_path, ec); // left by a killed run of the same id
        if (!fs::create_directory(_path, ec) || ec)
            throw Error("cannot create the folder '" + _path.string() + "'" + (ec ? ": " + ec.message() : ""));
    }
    ~TemporaryFolder()
    {
        if (!_committed)
        {
            std::error_code ec;
            fs::remove_all(_path, ec);
        }
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const fs::path& path() const { return _path; }

    /** Renames the folder to `target`, replacing a folder there. */
    void commit(const fs::path& target)
    {
        std::error_code ec;
        const fs::path old = target.string() + ".old" + std::to_string(::getpid());
        const bool replacing = fs::exists(target, ec);
        if (replacing)
        {
            fs::remove_all(old, ec);
            fs::rename(target, old, ec);
            if (ec)
                throw Error("cannot replace '" + target.string() + "': " + ec.message());
        }
        fs::rename(_path, target, ec);
        if (ec)
        {
            if (replacing)
            {
                std::error_code ignored;
                fs::rename(old, target, ignored);
            }
            throw Error("cannot move the tile set into '" + target.string() + "': " + ec.message());
        }
        _committed = true;
        _pending.release();
        if (replacing)
            fs::remove_all(old, ec);
    }

private:
    fs::path _path;
    cxtool::PendingFolder _pending;
    bool _committed = false;
};

fs::path checkedOutput(const std::string& output)
{
    std::string text = output;
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    if (text.empty())
        throw Error("the output folder is an empty name");
    const fs::path path(text);
    std::error_code ec;
    const fs::path parent = path.parent_path().empty() ? fs::path(".") : path.parent_path();
    if (!fs::is_directory(parent, ec))
        throw Error("cannot write '" + text + "': the folder '" + parent.string() + "' does not exist");
    if (fs::exists(path, ec))
    {
        if (!fs::is_directory(path, ec))
            throw Error("cannot write '" + text + "': it is a file, not a folder");
        if (!fs::is_empty(path, ec) && !fs::exists(path / kPointCloudRootFile, ec))
            throw Error("cannot write '" + text + "': it is a folder that holds something other than a point "
                        "cloud tile set; give a new or an empty folder");
    }
    return path;
}

struct Bounds
{
    double min[3] = {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity(),
                     std::numeric_limits<double>::infinity()};
    double max[3] = {-std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                     -std::numeric_limits<double>::infinity()};

    void add(const PointRecord& p)
    {
        const double v[3] = {p.x, p.y, p.z};
        for (int a = 0; a < 3; ++a)
        {
            min[a] = std::min(min[a], v[a]);
            max[a] = std::max(max[a], v[a]);
        }
    }
};

/** Moves a batch from the input's CRS into the frame's (geographic inputs). */
void toFrame(std::vector<PointRecord>& batch, const CloudCrs& crs, const std::string& path)
{
    if (crs.frame == crs.input)
        return;
    std::vector<osg::Vec3d> points;
    points.reserve(batch.size());
    for (const PointRecord& p : batch)
        points.emplace_back(p.x, p.y, p.z);
    if (!crs.input->transform(points, crs.frame))
        throw Error(cannotRead(path) + "some of its points lie outside " + crs.frame->getName());
    for (std::size_t i = 0; i < batch.size(); ++i)
    {
        batch[i].x = points[i].x();
        batch[i].y = points[i].y();
        batch[i].z = points[i].z();
    }
}

void writeInfo(const fs::path& file, const CloudCrs& crs, const std::string& srsDefinition, const OctreeFrame& frame,
               const Bounds& bounds, std::uint64_t points, const TileSetStats& tiles, int depth,
               const PointTilerOptions& options)
{
    // The centre of the cloud on the globe, for hosts that fly to it.
    osg::Vec3d centre((bounds.min[0] + bounds.max[0]) / 2, (bounds.min[1] + bounds.max[1]) / 2,
                      (bounds.min[2] + bounds.max[2]) / 2);
    osg::Vec3d lonLat;
    const bool placed = crs.frame->transform(centre, globe::SpatialReference::create("wgs84"), lonLat);

    std::ostringstream json;
    json << "{\n"
         << "  \"crs\": " << jsonString(srsDefinition) << ",\n"
         << "  \"crsName\": " << jsonString(crs.frame->getName()) << ",\n"
         << "  \"points\": " << points << ",\n"
         << "  \"tiles\": " << tiles.tiles << ",\n"
         << "  \"files\": " << tiles.files << ",\n"
         << "  \"depth\": " << depth << ",\n"
         << "  \"rootSpacing\": " << jsonNumber(frame.rootSpacing()) << ",\n"
         << "  \"maxPointsPerTile\": " << options.maxPointsPerTile << ",\n"
         << "  \"lodFactor\": " << jsonNumber(options.lodFactor) << ",\n"
         << "  \"origin\": [" << jsonNumber(frame.originX) << ", " << jsonNumber(frame.originY) << ", "
         << jsonNumber(frame.originZ) << "],\n"
         << "  \"cubeEdge\": " << jsonNumber(frame.edge) << ",\n"
         << "  \"boundsMin\": [" << jsonNumber(bounds.min[0]) << ", " << jsonNumber(bounds.min[1]) << ", "
         << jsonNumber(bounds.min[2]) << "],\n"
         << "  \"boundsMax\": [" << jsonNumber(bounds.max[0]) << ", " << jsonNumber(bounds.max[1]) << ", "
         << jsonNumber(bounds.max[2]) << "],\n";
    if (placed)
        json << "  \"centreLonLatHeight\": [" << jsonNumber(lonLat.x()) << ", " << jsonNumber(lonLat.y()) << ", "
             << jsonNumber(lonLat.z()) << "],\n";
    json << "  \"root\": " << jsonString(kPointCloudRootFile) << "\n"
         << "}\n";
    std::ofstream out(file, std::ios::binary);
    out << json.str();
    if (!out)
        throw Error("cannot write '" + file.string() + "'");
}

} // namespace

PointTilerSummary tilePointCloud(const PointTilerOptions& options, std::ostream& out, bool interactive)
{
    if (options.inputs.empty())
        throw Error("no input files");
    const fs::path target = checkedOutput(options.output);
    std::ostream& log = out;
    const bool quiet = options.quiet;

    // What fits in memory: the subtrees worked there, counted twice while
    // they are split, beside the tiles and selections at work.
    const std::uint64_t budgetBytes = static_cast<std::uint64_t>(options.maxMemoryMB) << 20;
    const std::uint64_t reserve = kFixedReserve + 8 * options.maxPointsPerTile * kTileBytesPerPoint
                                  + options.maxPointsPerTile * kSelectionBytesPerPoint;
    const std::uint64_t minimumPoints = 8 * static_cast<std::uint64_t>(options.maxPointsPerTile);
    std::uint64_t memoryPoints = options.memoryPoints;
    if (memoryPoints == 0)
    {
        if (budgetBytes < reserve + minimumPoints * 2 * sizeof(PointRecord))
            throw Error("--max-memory " + std::to_string(options.maxMemoryMB) + " is too small for tiles of "
                        + withThousands(options.maxPointsPerTile) + " points: give at least "
                        + std::to_string((reserve + minimumPoints * 2 * sizeof(PointRecord)) / (1 << 20) + 1)
                        + " MB");
        memoryPoints = (budgetBytes - reserve) / (2 * sizeof(PointRecord));
    }

    // Every input opened (and its header checked) before anything is read.
    std::vector<std::unique_ptr<PointSource>> sources;
    std::uint64_t promised = 0;
    bool allCounted = true;
    for (const std::string& input : options.inputs)
    {
        sources.push_back(openPointSource(input));
        const PointSourceInfo& info = sources.back()->info();
        if (info.count >= 0)
            promised += static_cast<std::uint64_t>(info.count);
        else
            allCounted = false;
        if (!quiet)
            log << "reading " << input << ": " << info.format
                << (info.count >= 0 ? ", " + withThousands(static_cast<std::uint64_t>(info.count)) + " points" : "")
                << (info.crs.empty() ? std::string(", no CRS") : ", CRS from " + info.crsOrigin) << "\n";
    }
    CloudCrs crs = resolveCrs(sources, options.srs);
    std::string srsDefinition = options.srs.empty() ? crs.input->getInitString() : options.srs;

    // Pass 1: every point read, the bounds in the frame.
    PassProgress progress(out, interactive, quiet);
    progress.start("reading", allCounted ? promised : 0);
    Bounds bounds;
    std::uint64_t total = 0;
    std::vector<PointRecord> batch;
    for (auto& source : sources)
    {
        source->rewind();
        while (source->read(batch, kBatch))
        {
            if (crs.input->isGeographic() && crs.frame == crs.input)
            {
                // The frame of geographic input: the UTM zone of its first point.
                crs.frame = crs.input->createUTMFromLonLat(batch.front().x, batch.front().y);
                if (!crs.frame)
                    throw Error(cannotRead(source->info().path) + "its first point is no place on the Earth");
                crs.description += ", projected to " + crs.frame->getName();
                srsDefinition = crs.frame->getInitString();
            }
            toFrame(batch, crs, source->info().path);
            for (const PointRecord& p : batch)
                bounds.add(p);
            total += batch.size();
            progress.points(batch.size(), false);
        }
    }
    if (total == 0)
        throw Error("the inputs hold no points");
    progress.finish(withThousands(total) + " points read");

    OctreeFrame frame;
    frame.originX = bounds.min[0];
    frame.originY = bounds.min[1];
    frame.originZ = bounds.min[2];
    const double extent = std::max({bounds.max[0] - bounds.min[0], bounds.max[1] - bounds.min[1],
                                    bounds.max[2] - bounds.min[2], 0.001});
    // A hair larger than the cloud, so that its highest points lie inside.
    frame.edge = extent * (1.0 + 1e-6);

    if (!quiet)
    {
        log << "  CRS " << crs.description << "\n"
            << "  bounds x " << fixed(bounds.min[0], 2) << " .. " << fixed(bounds.max[0], 2) << ", y "
            << fixed(bounds.min[1], 2) << " .. " << fixed(bounds.max[1], 2) << ", z " << fixed(bounds.min[2], 2)
            << " .. " << fixed(bounds.max[2], 2) << "\n"
            << "octree: root cube " << fixed(frame.edge, 2) << " m, root spacing " << fixed(frame.rootSpacing(), 3)
            << " m (cube / " << kGridCells << ", halving each level), at most "
            << withThousands(options.maxPointsPerTile) << " points a tile, children within "
            << jsonNumber(options.lodFactor) << " x cube edge\n"
            << "  " << (total <= memoryPoints ? "worked in memory" : "streamed through spill files")
            << " (up to " << withThousands(memoryPoints) << " points in memory at once)\n"
            << std::flush;
    }

    // Pass 2 into a temporary folder beside the output.
    TemporaryFolder folder(target.string() + ".tmp" + std::to_string(::getpid()));
    const fs::path spillFolder = folder.path() / "spill";
    fs::create_directory(spillFolder);

    PointTileWriter writer(folder.path().string(), frame, crs.frame, options.lodFactor, 0.0f,
                           static_cast<float>(bounds.max[2] - bounds.min[2]));
    OctreeOptions octreeOptions;
    octreeOptions.maxPointsPerTile = options.maxPointsPerTile;
    octreeOptions.memoryPoints = memoryPoints;
    octreeOptions.spillFolder = spillFolder.string();
    OctreeBuilder builder(frame, octreeOptions, writer);

    progress.start("tiling", total);
    std::size_t current = 0;
    std::uint64_t index = 0;
    bool rewound = false;
    auto next = [&](std::vector<PointRecord>& out) {
        while (current < sources.size())
        {
            PointSource& source = *sources[current];
            if (!rewound)
            {
                source.rewind();
                rewound = true;
            }
            if (source.read(out, kBatch))
            {
                toFrame(out, crs, source.info().path);
                for (PointRecord& p : out)
                {
                    p.x -= frame.originX;
                    p.y -= frame.originY;
                    p.z -= frame.originZ;
                    p.priority = pointPriority(index++);
                }
                return true;
            }
            ++current;
            rewound = false;
        }
        return false;
    };
    builder.build(next, total, [&](std::uint64_t placed) { progress.points(placed, true); });
    if (index != total)
        throw Error("the inputs changed while they were read (" + withThousands(total) + " points, then "
                    + withThousands(index) + ")");
    const OctreeStats& stats = builder.stats();
    progress.finish(withThousands(stats.nodes) + " tiles");

    fs::remove_all(spillFolder);
    writeInfo(folder.path() / kPointCloudInfoFile, crs, srsDefinition, frame, bounds, stats.points, writer.stats(),
              stats.deepestLevel, options);
    folder.commit(target);

    PointTilerSummary summary;
    summary.points = stats.points;
    summary.tiles = writer.stats().tiles;
    summary.files = writer.stats().files;
    summary.bytes = writer.stats().bytes;
    summary.depth = stats.deepestLevel;
    summary.spilledPoints = stats.spilledPoints;
    summary.crsName = crs.frame->getName();
    if (!quiet)
        log << "wrote " << target.string() << ": " << withThousands(summary.tiles) << " tiles in "
            << withThousands(summary.files) << " files, levels 0-" << summary.depth << ", "
            << withThousands(summary.points) << " points, " << megabytes(summary.bytes)
            << (summary.spilledPoints > 0 ? ", " + withThousands(summary.spilledPoints) + " points through spill files"
                                          : std::string())
            << "\n";
    return summary;
}

} // namespace cxtiler
