#include "ObjectCsv.h"

#include "Csv.h"
#include "Error.h"
#include "Progress.h"

#include <charconv>
#include <climits>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <unordered_map>

namespace cxstore
{

namespace
{

constexpr std::size_t kMessagesShown = 20;

enum Column
{
    ObjID,
    EnterID,
    EnterType,
    ObjName,
    Lon,
    Lat,
    Height,
    Radius,
    ObjType,
    FileName,
    Heading,
    Pitch,
    Roll,
    ScaleX,
    ScaleY,
    ScaleZ,
    ColumnCount
};

std::string_view trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos)
        return {};
    const std::size_t last = text.find_last_not_of(" \t");
    return text.substr(first, last - first + 1);
}

/** A field shown in a message: quoted, and cut when long (between two UTF-8
  * characters, never inside one). */
std::string shown(std::string_view text)
{
    if (text.size() <= 40)
        return "'" + std::string(text) + "'";
    std::size_t cut = 40;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80)
        --cut;
    return "'" + std::string(text.substr(0, cut)) + "...'";
}

/** Collects the problems of the rows; each names its line. */
class Problems
{
public:
    explicit Problems(const std::string& name) : _name(name) {}

    void add(long line, const std::string& message)
    {
        if (_messages.size() < kMessagesShown)
            _messages.push_back(_name + ", line " + std::to_string(line) + ": " + message);
        ++_count;
    }
    bool any() const { return _count > 0; }

    [[noreturn]] void raise() const
    {
        std::string text;
        for (const std::string& message : _messages)
            text += (text.empty() ? "" : "\n") + message;
        if (_count > _messages.size())
            text += "\n... and " + std::to_string(_count - _messages.size()) + " more problems";
        throw Error(text);
    }

private:
    std::string _name;
    std::vector<std::string> _messages;
    std::size_t _count = 0;
};

bool parseInt(std::string_view field, int& value)
{
    std::string_view text = trimmed(field);
    if (!text.empty() && text[0] == '+')
        text.remove_prefix(1);
    long long wide = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), wide);
    if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size())
        return false;
    if (wide < INT_MIN || wide > INT_MAX)
        return false;
    value = static_cast<int>(wide);
    return true;
}

bool parseNumber(std::string_view field, double& value)
{
    std::string_view text = trimmed(field);
    if (!text.empty() && text[0] == '+')
        text.remove_prefix(1);
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    return !text.empty() && result.ec == std::errc() && result.ptr == text.data() + text.size()
           && std::isfinite(value);
}

} // namespace

ObjectTable parseObjectCsv(std::string_view text, const std::string& name, Progress& progress)
{
    progress.begin("reading " + name, static_cast<long>(text.size()), "bytes");
    CsvReader reader(text);
    CsvRecord record;
    Problems problems(name);
    ObjectTable table;

    try
    {
        if (!reader.next(record))
            throw Error(name + " is empty: it needs the header line " + cxtool::objectTableHeader());
        for (std::size_t i = 0; i < kObjectColumns.size(); ++i)
        {
            const std::string_view found = i < record.fields.size() ? trimmed(record.fields[i]) : "(nothing)";
            if (found != kObjectColumns[i])
                throw Error(name + ", line " + std::to_string(record.line) + ": the header's column "
                            + std::to_string(i + 1) + " is " + shown(found) + ", '" + kObjectColumns[i]
                            + "' expected");
        }
        if (record.fields.size() != kObjectColumns.size())
            throw Error(name + ", line " + std::to_string(record.line) + ": the header has "
                        + std::to_string(record.fields.size()) + " columns, " + std::to_string(kObjectColumns.size())
                        + " expected");

        std::unordered_map<int, long> objectLines;
        std::map<int, std::pair<int, long>> enterpriseFirst; // enterID -> (type, line)
        std::size_t reported = 0;
        while (reader.next(record))
        {
            progress.advance(static_cast<long>(reader.position() - reported));
            reported = reader.position();
            const long line = record.line;
            if (record.fields.size() != ColumnCount)
            {
                problems.add(line, std::to_string(record.fields.size()) + " fields, "
                                       + std::to_string(static_cast<int>(ColumnCount)) + " expected");
                continue;
            }
            const std::vector<std::string>& f = record.fields;
            ObjectRow row;
            row.line = line;
            bool good = true;
            auto integer = [&](Column column, int& value) {
                if (!parseInt(f[column], value))
                {
                    problems.add(line, kObjectColumns[column] + " " + shown(f[column])
                                           + " is not a whole number of 32 bits");
                    good = false;
                }
            };
            auto number = [&](Column column, double& value) {
                if (!parseNumber(f[column], value))
                {
                    problems.add(line, kObjectColumns[column] + " " + shown(f[column]) + " is not a finite number");
                    good = false;
                }
            };
            auto utf8 = [&](Column column, std::string& value) {
                if (!isValidUtf8(f[column]))
                {
                    problems.add(line, kObjectColumns[column] + " is not valid UTF-8 text");
                    good = false;
                }
                value = f[column];
            };
            integer(ObjID, row.objID);
            integer(EnterID, row.enterID);
            integer(EnterType, row.enterType);
            utf8(ObjName, row.objName);
            number(Lon, row.lon);
            number(Lat, row.lat);
            number(Height, row.height);
            number(Radius, row.radius);
            integer(ObjType, row.objType);
            utf8(FileName, row.fileName);
            number(Heading, row.heading);
            number(Pitch, row.pitch);
            number(Roll, row.roll);
            number(ScaleX, row.scaleX);
            number(ScaleY, row.scaleY);
            number(ScaleZ, row.scaleZ);
            if (!good)
                continue;

            if (row.lon < -180.0 || row.lon > 180.0)
            {
                problems.add(line, "lon " + shown(trimmed(f[Lon])) + " is outside -180..180");
                good = false;
            }
            if (row.lat < -90.0 || row.lat > 90.0)
            {
                problems.add(line, "lat " + shown(trimmed(f[Lat])) + " is outside -90..90");
                good = false;
            }
            if (row.radius < 0.0)
            {
                problems.add(line, "radius " + shown(trimmed(f[Radius])) + " is negative");
                good = false;
            }
            const auto [known, fresh] = objectLines.emplace(row.objID, line);
            if (!fresh)
            {
                problems.add(line, "objID " + std::to_string(row.objID) + " is already on line "
                                       + std::to_string(known->second));
                good = false;
            }
            const auto [enterprise, added] = enterpriseFirst.emplace(row.enterID, std::make_pair(row.enterType, line));
            if (!added && enterprise->second.first != row.enterType)
            {
                problems.add(line, "enterprise " + std::to_string(row.enterID) + " has enterType "
                                       + std::to_string(row.enterType) + " here but "
                                       + std::to_string(enterprise->second.first) + " on line "
                                       + std::to_string(enterprise->second.second));
                good = false;
            }
            if (good)
                table.rows.push_back(std::move(row));
        }
        progress.advance(static_cast<long>(text.size() - reported));
        for (const auto& [enterID, first] : enterpriseFirst)
            table.enterprises[enterID] = first.first;
    }
    catch (const CsvError& e)
    {
        // A broken quoted field ends the reading, after the problems of the
        // rows before it.
        problems.add(e.line, e.what());
        problems.raise();
    }
    if (problems.any())
        problems.raise();
    if (table.rows.empty())
        throw Error(name + " has no object rows");
    progress.end();
    return table;
}

ObjectTable readObjectCsv(const std::string& path, Progress& progress)
{
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec))
        throw Error("cannot read '" + path + "': "
                    + (std::filesystem::exists(path, ec) ? "it is not a file" : "the file does not exist"));
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw Error("cannot read '" + path + "'");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad())
        throw Error("cannot read '" + path + "'");
    return parseObjectCsv(text, std::filesystem::path(path).filename().string(), progress);
}

} // namespace cxstore
