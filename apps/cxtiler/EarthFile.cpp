#include "EarthFile.h"

#include "Error.h"

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace cxtiler
{

namespace
{

std::string escapeXml(const std::string& text)
{
    std::string out;
    for (char c : text)
    {
        switch (c)
        {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        case '\'': out += "&apos;"; break;
        default: out += c;
        }
    }
    return out;
}

std::string layer(const char* element, const std::string& file)
{
    const std::string name = fs::path(file).stem().string();
    return std::string("  <") + element + " name=\"" + escapeXml(name) + "\" driver=\"mbtiles\">\n    <url>"
           + escapeXml(file) + "</url>\n  </" + element + ">\n";
}

} // namespace

std::string earthFileText(const EarthFileOptions& options)
{
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    text += "<map name=\"" + escapeXml(options.name) + "\" type=\"geocentric\" version=\"2\">\n";
    if (!options.image.empty())
        text += layer("image", options.image);
    if (!options.elevation.empty())
        text += layer("elevation", options.elevation);
    text += "</map>\n";
    return text;
}

void writeEarthFile(const std::string& path, const EarthFileOptions& options)
{
    std::error_code ec;
    if (fs::is_directory(path, ec))
        throw Error("cannot write '" + path + "': it is a folder");
    EarthFileOptions named = options;
    if (named.name.empty())
        named.name = fs::path(path).stem().string();

    const std::string temporary = path + ".tmp" + std::to_string(::getpid());
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out)
            throw Error("cannot write '" + path + "': cannot create '" + temporary + "'");
        out << earthFileText(named);
        out.close();
        if (!out)
        {
            fs::remove(temporary, ec);
            throw Error("cannot write '" + path + "': write failed");
        }
    }
    fs::rename(temporary, path, ec);
    if (ec)
    {
        std::error_code ignored;
        fs::remove(temporary, ignored);
        throw Error("cannot write '" + path + "': " + ec.message());
    }
}

} // namespace cxtiler
