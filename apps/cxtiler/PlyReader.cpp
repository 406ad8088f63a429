// PLY, "format ascii 1.0" and "format binary_little_endian 1.0". The element
// "vertex" gives the points: x, y, z (any numeric type), and where present
// red, green, blue (uchar as they are, ushort scaled to 8 bits, float 0..1),
// intensity (or scalar_intensity), classification (or
// scalar_classification), user_data, return_number and number_of_returns
// (also with the "scalar_" prefix; names in any case). Other vertex
// properties are skipped by their size, elements before the vertices are
// skipped (faces and the like after them are never read). Big-endian files
// are refused with a message.
#include "PointReaders.h"

#include "Error.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <sstream>
#include <vector>

namespace cxtiler
{

namespace
{

enum class PlyType
{
    Int8,
    UInt8,
    Int16,
    UInt16,
    Int32,
    UInt32,
    Float32,
    Float64
};

bool plyType(const std::string& name, PlyType& type)
{
    static const std::pair<const char*, PlyType> kTypes[] = {
        {"char", PlyType::Int8},     {"int8", PlyType::Int8},       {"uchar", PlyType::UInt8},
        {"uint8", PlyType::UInt8},   {"short", PlyType::Int16},     {"int16", PlyType::Int16},
        {"ushort", PlyType::UInt16}, {"uint16", PlyType::UInt16},   {"int", PlyType::Int32},
        {"int32", PlyType::Int32},   {"uint", PlyType::UInt32},     {"uint32", PlyType::UInt32},
        {"float", PlyType::Float32}, {"float32", PlyType::Float32}, {"double", PlyType::Float64},
        {"float64", PlyType::Float64}};
    for (const auto& [text, value] : kTypes)
        if (name == text)
        {
            type = value;
            return true;
        }
    return false;
}

std::size_t typeSize(PlyType type)
{
    switch (type)
    {
    case PlyType::Int8:
    case PlyType::UInt8: return 1;
    case PlyType::Int16:
    case PlyType::UInt16: return 2;
    case PlyType::Int32:
    case PlyType::UInt32:
    case PlyType::Float32: return 4;
    case PlyType::Float64: return 8;
    }
    return 0;
}

double binaryValue(const unsigned char* at, PlyType type)
{
    switch (type)
    {
    case PlyType::Int8: return static_cast<double>(static_cast<std::int8_t>(*at));
    case PlyType::UInt8: return static_cast<double>(*at);
    case PlyType::Int16: return littleEndian<std::int16_t>(at);
    case PlyType::UInt16: return littleEndian<std::uint16_t>(at);
    case PlyType::Int32: return littleEndian<std::int32_t>(at);
    case PlyType::UInt32: return littleEndian<std::uint32_t>(at);
    case PlyType::Float32: return littleEndian<float>(at);
    case PlyType::Float64: return littleEndian<double>(at);
    }
    return 0.0;
}

struct Property
{
    std::string name;
    PlyType type = PlyType::Float32;
    bool list = false;
    PlyType countType = PlyType::UInt8;
    std::size_t offset = 0; // within a binary vertex
};

struct Element
{
    std::string name;
    std::uint64_t count = 0;
    std::vector<Property> properties;

    bool fixedSize() const
    {
        return std::none_of(properties.begin(), properties.end(), [](const Property& p) { return p.list; });
    }
    std::size_t stride() const
    {
        std::size_t bytes = 0;
        for (const Property& p : properties)
            bytes += typeSize(p.type);
        return bytes;
    }
};

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/** What the tiles take from a vertex, by property index; -1 when absent. */
enum Field
{
    X,
    Y,
    Z,
    Red,
    Green,
    Blue,
    Intensity,
    Classification,
    UserData,
    ReturnNumber,
    NumberOfReturns,
    FieldCount
};

int fieldOf(const std::string& propertyName)
{
    std::string name = lower(propertyName);
    if (name.compare(0, 7, "scalar_") == 0)
        name = name.substr(7);
    static const std::pair<const char*, Field> kNames[] = {
        {"x", X},
        {"y", Y},
        {"z", Z},
        {"red", Red},
        {"green", Green},
        {"blue", Blue},
        {"r", Red},
        {"g", Green},
        {"b", Blue},
        {"diffuse_red", Red},
        {"diffuse_green", Green},
        {"diffuse_blue", Blue},
        {"intensity", Intensity},
        {"classification", Classification},
        {"user_data", UserData},
        {"return_number", ReturnNumber},
        {"number_of_returns", NumberOfReturns}};
    for (const auto& [text, field] : kNames)
        if (name == text)
            return field;
    return -1;
}

template <class T>
T clampedRound(double value, double high)
{
    if (!(value > 0.0))
        return 0;
    return static_cast<T>(std::lround(std::min(value, high)));
}

class PlySource : public PointSource
{
public:
    explicit PlySource(const std::string& path) : _file(path)
    {
        _info.path = path;
        readHeader();
        rewind();
    }

    bool read(std::vector<PointRecord>& out, std::size_t max) override
    {
        out.clear();
        const std::uint64_t left = _vertices - static_cast<std::uint64_t>(_read);
        // Vertices with many properties are read in fewer at a time.
        const std::size_t fit = _binary ? std::max<std::size_t>(1, (8u << 20) / std::max<std::size_t>(_stride, 1)) : max;
        const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(left, std::min(max, fit)));
        if (n == 0)
        {
            _completedPass = true;
            return false;
        }
        out.resize(n);
        if (_binary)
        {
            _buffer.resize(n * _stride);
            _file.readExactly(_buffer.data(), _buffer.size(),
                              "vertex " + withThousands(static_cast<std::uint64_t>(_read) + 1) + " of "
                                  + withThousands(_vertices));
            double values[FieldCount];
            for (std::size_t i = 0; i < n; ++i)
            {
                const unsigned char* vertex = &_buffer[i * _stride];
                for (int f = 0; f < FieldCount; ++f)
                    if (_fields[f] >= 0)
                    {
                        const Property& p = _vertex.properties[static_cast<std::size_t>(_fields[f])];
                        values[f] = binaryValue(vertex + p.offset, p.type);
                    }
                make(values, out[i], static_cast<std::uint64_t>(_read) + i + 1);
            }
        }
        else
        {
            std::vector<double> tokens;
            double values[FieldCount];
            for (std::size_t i = 0; i < n; ++i)
            {
                const std::uint64_t number = static_cast<std::uint64_t>(_read) + i + 1;
                if (!nextTextLine(tokens))
                    fail("the file ends after " + withThousands(number - 1) + " of " + withThousands(_vertices)
                         + " vertices (it is truncated)");
                if (tokens.size() < _vertex.properties.size())
                    fail("vertex " + withThousands(number) + " has " + std::to_string(tokens.size())
                         + " values where the header names " + std::to_string(_vertex.properties.size()));
                for (int f = 0; f < FieldCount; ++f)
                    if (_fields[f] >= 0)
                        values[f] = tokens[static_cast<std::size_t>(_fields[f])];
                make(values, out[i], number);
            }
        }
        _read += static_cast<std::int64_t>(n);
        return true;
    }

    void rewind() override
    {
        if (_completedPass)
            _intensityAsGrey = _maxIntensity > 0;
        _file.seek(_dataStart);
        _lines.restart(_headerLines);
        // Skip the elements before the vertices.
        for (const Element& element : _before)
        {
            if (!_binary)
            {
                std::vector<double> tokens;
                for (std::uint64_t i = 0; i < element.count; ++i)
                    if (!nextTextLine(tokens))
                        fail("the file ends in its element '" + element.name + "' (it is truncated)");
            }
            else if (element.fixedSize())
            {
                _file.seek(_file.tell() + element.count * element.stride());
            }
            else
            {
                skipBinaryListElement(element);
            }
        }
        _read = 0;
    }

private:
    void fail(const std::string& what) const { throw Error(cannotRead(_info.path) + what); }

    void readHeader()
    {
        // The header is text up to and including the line "end_header".
        std::string header;
        char c = 0;
        while (true)
        {
            if (_file.readSome(&c, 1) != 1)
                fail("the PLY header has no end_header line (the file is truncated)");
            header += c;
            if (c == '\n' && header.size() >= 11)
            {
                const std::size_t lineStart = header.rfind('\n', header.size() - 2);
                std::string line = header.substr(lineStart == std::string::npos ? 0 : lineStart + 1);
                while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
                    line.pop_back();
                if (line == "end_header")
                    break;
            }
            if (header.size() > (1u << 20))
                fail("the PLY header is longer than a megabyte: it is not a PLY file");
        }
        _dataStart = _file.tell();

        std::istringstream lines(header);
        std::string line;
        bool haveFormat = false;
        std::vector<Element> elements;
        while (std::getline(lines, line))
        {
            ++_headerLines;
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            std::istringstream words(line);
            std::string keyword;
            words >> keyword;
            if (keyword == "ply" || keyword == "comment" || keyword == "obj_info" || keyword == "end_header"
                || keyword.empty())
                continue;
            if (keyword == "format")
            {
                std::string kind, version;
                words >> kind >> version;
                if (kind == "binary_big_endian")
                    fail("it is a big-endian binary PLY (format binary_big_endian), which is not supported; "
                         "ascii and binary_little_endian are read");
                if (kind != "ascii" && kind != "binary_little_endian")
                    fail("unknown PLY format '" + kind + "'");
                if (version != "1.0")
                    fail("PLY version " + version + " is not supported (1.0 is)");
                _binary = kind == "binary_little_endian";
                haveFormat = true;
            }
            else if (keyword == "element")
            {
                Element element;
                std::string count;
                words >> element.name >> count;
                std::uint64_t value = 0;
                const auto [end, error] = std::from_chars(count.data(), count.data() + count.size(), value);
                if (element.name.empty() || error != std::errc() || end != count.data() + count.size())
                    fail("bad PLY header line '" + line + "'");
                element.count = value;
                elements.push_back(element);
            }
            else if (keyword == "property")
            {
                if (elements.empty())
                    fail("a PLY property comes before any element: '" + line + "'");
                Property property;
                std::string type;
                words >> type;
                if (type == "list")
                {
                    std::string countType, itemType;
                    words >> countType >> itemType >> property.name;
                    property.list = true;
                    if (!plyType(countType, property.countType) || !plyType(itemType, property.type))
                        fail("unknown PLY type in '" + line + "'");
                }
                else
                {
                    words >> property.name;
                    if (!plyType(type, property.type))
                        fail("unknown PLY property type '" + type + "' in '" + line + "'");
                }
                if (property.name.empty())
                    fail("bad PLY header line '" + line + "'");
                elements.back().properties.push_back(property);
            }
            else
            {
                fail("unknown PLY header line '" + line + "'");
            }
        }
        if (!haveFormat)
            fail("the PLY header has no format line");

        const auto vertex = std::find_if(elements.begin(), elements.end(), [](const Element& e) { return e.name == "vertex"; });
        if (vertex == elements.end())
            fail("it has no vertex element");
        _before.assign(elements.begin(), vertex);
        _vertex = *vertex;
        _vertices = _vertex.count;
        std::fill(std::begin(_fields), std::end(_fields), -1);
        std::size_t offset = 0;
        for (std::size_t i = 0; i < _vertex.properties.size(); ++i)
        {
            Property& p = _vertex.properties[i];
            if (p.list)
                fail("its vertex element has a list property ('" + p.name + "'), which is not read");
            p.offset = offset;
            offset += typeSize(p.type);
            const int field = fieldOf(p.name);
            if (field >= 0 && _fields[field] < 0)
            {
                _fields[field] = static_cast<int>(i);
                _types[field] = p.type;
            }
        }
        _stride = offset;
        if (_fields[X] < 0 || _fields[Y] < 0 || _fields[Z] < 0)
            fail("its vertices have no x, y and z properties");
        if (_vertices == 0)
            fail("it holds no points (0 vertices)");

        if (_binary && std::all_of(_before.begin(), _before.end(), [](const Element& e) { return e.fixedSize(); }))
        {
            std::uint64_t start = _dataStart;
            for (const Element& e : _before)
                start += e.count * e.stride();
            if (_vertices > _file.size() / std::max<std::size_t>(_stride, 1) + 1
                || start + _vertices * _stride > _file.size())
                fail("its header promises " + withThousands(_vertices) + " vertices of " + std::to_string(_stride)
                     + " bytes, but the file has only " + withThousands(_file.size())
                     + " bytes (it is truncated)");
        }

        _info.format = std::string("PLY ") + (_binary ? "binary little endian" : "ascii");
        _info.count = static_cast<std::int64_t>(_vertices);
        _info.hasColour = _fields[Red] >= 0 && _fields[Green] >= 0 && _fields[Blue] >= 0;
        _info.hasIntensity = _fields[Intensity] >= 0;
    }

    void skipBinaryListElement(const Element& element)
    {
        for (std::uint64_t i = 0; i < element.count; ++i)
            for (const Property& p : element.properties)
            {
                if (!p.list)
                {
                    _file.seek(_file.tell() + typeSize(p.type));
                    continue;
                }
                unsigned char count[8];
                _file.readExactly(count, typeSize(p.countType), "the element '" + element.name + "'");
                const double items = binaryValue(count, p.countType);
                if (!(items >= 0.0) || items * typeSize(p.type) > static_cast<double>(_file.size()))
                    fail("a list length that the file cannot hold in its element '" + element.name
                         + "' (it is truncated or not a PLY file)");
                _file.seek(_file.tell() + static_cast<std::uint64_t>(items) * typeSize(p.type));
            }
        if (_file.tell() > _file.size())
            fail("the file ends in its element '" + element.name + "' (it is truncated)");
    }

    std::uint8_t colourChannel(double value, PlyType type) const
    {
        switch (type)
        {
        case PlyType::UInt16:
        case PlyType::Int16: return static_cast<std::uint8_t>(std::min(255.0, std::floor(std::max(0.0, value) / 256.0)));
        case PlyType::Float32:
        case PlyType::Float64: return clampedRound<std::uint8_t>(value * 255.0, 255.0);
        default: return clampedRound<std::uint8_t>(value, 255.0);
        }
    }

    void make(const double* values, PointRecord& p, std::uint64_t number)
    {
        p.x = values[X];
        p.y = values[Y];
        p.z = values[Z];
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
            fail("vertex " + withThousands(number) + " has a coordinate that is not a number");
        p.priority = 0;
        p.intensity = _fields[Intensity] >= 0 ? clampedRound<std::uint16_t>(values[Intensity], 65535.0) : 0;
        p.classification = _fields[Classification] >= 0 ? clampedRound<std::uint8_t>(values[Classification], 255.0) : 0;
        p.userData = _fields[UserData] >= 0 ? clampedRound<std::uint8_t>(values[UserData], 255.0) : 0;
        p.returnNumber = _fields[ReturnNumber] >= 0 ? clampedRound<std::uint8_t>(values[ReturnNumber], 255.0) : 1;
        p.numberOfReturns =
            _fields[NumberOfReturns] >= 0 ? clampedRound<std::uint8_t>(values[NumberOfReturns], 255.0) : 1;
        _maxIntensity = std::max(_maxIntensity, p.intensity);
        if (_info.hasColour)
        {
            p.red = colourChannel(values[Red], _types[Red]);
            p.green = colourChannel(values[Green], _types[Green]);
            p.blue = colourChannel(values[Blue], _types[Blue]);
        }
        else
        {
            const std::uint8_t grey = _info.hasIntensity && _intensityAsGrey ? greyFromIntensity(p.intensity) : 255;
            p.red = p.green = p.blue = grey;
        }
    }

    /** The numbers of the next line of an ascii body that has any (blank
     *  lines are passed over); false at the end. */
    bool nextTextLine(std::vector<double>& tokens)
    {
        const char* begin = nullptr;
        const char* end = nullptr;
        std::string bad;
        while (_lines.next(begin, end))
        {
            if (!parseNumbers(begin, end, false, tokens, bad))
                fail("line " + withThousands(_lines.lineNumber()) + ": '" + bad + "' is not a number");
            if (!tokens.empty())
                return true;
        }
        return false;
    }

    InputFile _file;
    bool _binary = false;
    std::uint64_t _dataStart = 0;
    std::uint64_t _headerLines = 0;
    std::vector<Element> _before;
    Element _vertex;
    std::uint64_t _vertices = 0;
    std::size_t _stride = 0;
    int _fields[FieldCount];
    PlyType _types[FieldCount] = {};
    std::vector<unsigned char> _buffer;
    TextLines _lines{_file};
    bool _completedPass = false;
    bool _intensityAsGrey = true;
    std::uint16_t _maxIntensity = 0;
};

} // namespace

std::unique_ptr<PointSource> openPlySource(const std::string& path) { return std::make_unique<PlySource>(path); }

} // namespace cxtiler
