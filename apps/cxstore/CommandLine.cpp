#include "CommandLine.h"

#include "Error.h"
#include "Progress.h"
#include "StoreBuild.h"
#include "StoreInfo.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstdio>
#include <memory>
#include <ostream>

namespace cxstore
{

namespace
{

struct UsageError : Error
{
    using Error::Error;
};

unsigned int parseCapacity(const std::string& text)
{
    unsigned long value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size() || value < 1
        || value > 1000000)
        throw UsageError("--leaf-capacity needs a whole number from 1 to 1000000, not '" + text + "'");
    return static_cast<unsigned int>(value);
}

double parseDistance(const std::string& text)
{
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(value) || value < 0.0 || value > 1.0e7)
        throw UsageError("--view-distance needs a distance in metres from 0 to 10000000, not '" + text + "'");
    return value;
}

int build(const std::vector<std::string>& args, std::ostream& out, bool interactive)
{
    std::vector<std::string> positional;
    BuildOptions options;
    bool quiet = false;
    for (std::size_t i = 1; i < args.size(); ++i)
    {
        const std::string& arg = args[i];
        if (arg == "--leaf-capacity")
        {
            if (i + 1 >= args.size())
                throw UsageError("--leaf-capacity needs a value");
            options.leafCapacity = parseCapacity(args[++i]);
        }
        else if (arg.rfind("--leaf-capacity=", 0) == 0)
            options.leafCapacity = parseCapacity(arg.substr(16));
        else if (arg == "--view-distance")
        {
            if (i + 1 >= args.size())
                throw UsageError("--view-distance needs a value");
            options.viewDistance = parseDistance(args[++i]);
        }
        else if (arg == "-q" || arg == "--quiet")
            quiet = true;
        else if (arg.size() > 1 && arg[0] == '-')
            throw UsageError("unknown option '" + arg + "' for 'build'");
        else
            positional.push_back(arg);
    }
    if (positional.size() != 2)
        throw UsageError("'build' takes OBJECTS.csv and STORE.db");

    std::unique_ptr<Progress> progress =
        quiet ? std::make_unique<Progress>() : std::make_unique<TerminalProgress>(out, interactive);
    const auto start = std::chrono::steady_clock::now();
    const BuildSummary summary = buildStore(positional[0], positional[1], options, *progress);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    char elapsed[32];
    std::snprintf(elapsed, sizeof(elapsed), "%.2f s", seconds);
    out << positional[1] << ": " << summary.objects << " objects, " << summary.enterprises << " enterprises, "
        << summary.nodes << " quadtree nodes (at most " << summary.levels << " levels) in " << elapsed << '\n';
    return 0;
}

int info(const std::vector<std::string>& args, std::ostream& out)
{
    if (args.size() != 2 || (args[1].size() > 1 && args[1][0] == '-'))
        throw UsageError("'info' takes one STORE.db");
    printStoreInfo(readStoreInfo(args[1]), args[1], out);
    return 0;
}

} // namespace

std::string usageText(const std::string& program)
{
    return "Usage:\n"
           "  " + program + " build OBJECTS.csv STORE.db [--leaf-capacity N] [--view-distance M] [-q]\n"
           "  " + program + " info STORE.db\n"
           "  " + program + " --help\n"
           "\n"
           "Builds and lists the object stores the viewer reads its scene objects from.\n"
           "\n"
           "build  reads OBJECTS.csv, UTF-8, a header line and then one object per line:\n"
           "         objID,enterID,enterType,objName,lon,lat,height,radius,objType,fileName,\n"
           "         heading,pitch,roll,scaleX,scaleY,scaleZ\n"
           "       (one line in the file). A field in double quotes may hold commas, with \"\"\n"
           "       for a quote. lon and lat in degrees, height and radius in metres, heading,\n"
           "       pitch and roll in degrees; ids and types are 32-bit integers. Each object\n"
           "       gets its model description (file name, angles, scale); an empty fileName\n"
           "       makes an object without a model. Each enterID becomes an enterprise (its\n"
           "       rows must agree on enterType) with a quadtree of its objects: a cell with\n"
           "       more than N objects is split in four, and an object whose radius exceeds\n"
           "       a quarter of the cell's width stays on it. Every row is checked first:\n"
           "       bad rows are reported with their line numbers, and nothing is written.\n"
           "       The store appears at STORE.db only once complete; an existing file there\n"
           "       is replaced.\n"
           "info   lists a store's enterprises (id, type, root node) with the nodes, objects\n"
           "       and levels of each one's quadtree.\n"
           "\n"
           "Options:\n"
           "  --leaf-capacity N   most objects on a quadtree leaf (default 64)\n"
           "  --view-distance M   a quadtree node pages in when the eye comes within M metres\n"
           "                      of its cell (default 6000: the distance from which the\n"
           "                      viewer shows the coarsest models)\n"
           "  -q, --quiet         no progress\n"
           "  -h, --help          this text\n"
           "\n"
           "Exit status: 0 done, 1 bad input or a failed write, 2 a malformed command line.\n";
}

int runCommandLine(const std::vector<std::string>& args, std::ostream& out, std::ostream& err, bool interactive)
{
    const std::string program = "cxstore";
    try
    {
        if (args.empty())
            throw UsageError("no command given");
        const std::string& command = args[0];
        if (command == "-h" || command == "--help" || command == "help")
        {
            out << usageText(program);
            return 0;
        }
        if (command == "build")
            return build(args, out, interactive);
        if (command == "info")
            return info(args, out);
        throw UsageError("unknown command '" + command + "'");
    }
    catch (const UsageError& e)
    {
        err << program << ": " << e.what() << "\n\n" << usageText(program);
        return 2;
    }
    catch (const Error& e)
    {
        if (interactive)
            out << '\n' << std::flush;
        err << program << ": " << e.what() << '\n';
        return 1;
    }
    catch (const std::exception& e)
    {
        err << program << ": " << e.what() << '\n';
        return 1;
    }
}

} // namespace cxstore
