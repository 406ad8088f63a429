#include "ObjectsCsv.h"

#include "Error.h"
#include "OutputFile.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace cxsample
{

std::string csvField(const std::string& text)
{
    if (text.find_first_of(",\"\r\n") == std::string::npos)
        return text;
    std::string quoted = "\"";
    for (char c : text)
    {
        if (c == '"')
            quoted += '"';
        quoted += c;
    }
    return quoted + "\"";
}

std::string fixed(double value, int decimals)
{
    char text[64];
    std::snprintf(text, sizeof(text), "%.*f", decimals, value);
    std::string result = text;
    // "-0.00" is zero.
    if (result[0] == '-' && result.find_first_not_of("-0.") == std::string::npos)
        result.erase(0, 1);
    return result;
}

std::string objectsCsv(const std::vector<ObjectRow>& rows)
{
    std::string text = cxtool::objectTableHeader() + "\n";
    for (const ObjectRow& row : rows)
    {
        text += std::to_string(row.objID) + "," + std::to_string(row.enterID) + "," + std::to_string(row.enterType)
                + "," + csvField(row.objName) + "," + fixed(row.lon, 7) + "," + fixed(row.lat, 7) + ","
                + fixed(row.height, 2) + "," + fixed(row.radius, 2) + "," + std::to_string(row.objType) + ","
                + csvField(row.fileName) + "," + fixed(row.heading, 2) + "," + fixed(row.pitch, 2) + ","
                + fixed(row.roll, 2) + "," + fixed(row.scaleX, 3) + "," + fixed(row.scaleY, 3) + ","
                + fixed(row.scaleZ, 3) + "\n";
    }
    return text;
}

void writeObjectsCsv(const std::string& path, const std::vector<ObjectRow>& rows)
{
    const std::string partial = cxtool::temporaryPathFor(path);
    cxtool::PendingFile pending(partial);
    const std::string text = objectsCsv(rows);
    auto fail = [&](const std::string& why) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        throw Error("cannot write " + path + why);
    };
    {
        std::ofstream out(partial, std::ios::binary | std::ios::trunc);
        if (!out)
            fail(std::string(": ") + std::strerror(errno));
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
        out.close();
        if (!out)
            fail("");
    }
    std::error_code error;
    std::filesystem::rename(partial, path, error);
    if (error)
        fail(": " + error.message());
}

} // namespace cxsample
