// XYZ text: one point a line, numbers separated by blanks, commas or
// semicolons. The first data line decides the layout, and every later line
// must have as many numbers:
//   3  x y z
//   4  x y z intensity
//   6  x y z red green blue
//   7  x y z intensity red green blue
// Empty lines, lines starting with '#' or '//', and one header line of words
// before the first data line are skipped. Intensities are rounded into
// 0..65535. Colours are 0..255; a file whose colours all stay within 0..1 is
// read as fractions, one with any above 255 as 16 bits a channel (both known
// once a whole pass has shown the range).
#include "PointReaders.h"

#include "Error.h"

#include <algorithm>
#include <cmath>

namespace cxtiler
{

namespace
{

enum class Layout
{
    Xyz = 3,
    Xyzi = 4,
    Xyzrgb = 6,
    Xyzirgb = 7
};

const char* layoutName(Layout layout)
{
    switch (layout)
    {
    case Layout::Xyz: return "x y z";
    case Layout::Xyzi: return "x y z intensity";
    case Layout::Xyzrgb: return "x y z r g b";
    case Layout::Xyzirgb: return "x y z intensity r g b";
    }
    return "";
}

bool isComment(const char* begin, const char* end)
{
    while (begin < end && (*begin == ' ' || *begin == '\t'))
        ++begin;
    return begin == end || *begin == '#' || (end - begin >= 2 && begin[0] == '/' && begin[1] == '/');
}

class XyzSource : public PointSource
{
public:
    explicit XyzSource(const std::string& path) : _file(path)
    {
        _info.path = path;
        // The layout comes from the first data line.
        rewind();
        const char* begin = nullptr;
        const char* end = nullptr;
        if (!nextData(begin, end))
            fail("it holds no points (no line of numbers)");
        const std::size_t columns = _numbers.size();
        if (columns != 3 && columns != 4 && columns != 6 && columns != 7)
            fail("line " + withThousands(_lines.lineNumber()) + " has " + std::to_string(columns)
                 + " values; the layouts read are 3 (x y z), 4 (x y z intensity), 6 (x y z r g b) and 7 "
                   "(x y z intensity r g b)");
        _layout = static_cast<Layout>(columns);
        _info.format = std::string("XYZ text (") + layoutName(_layout) + ")";
        _info.hasColour = _layout == Layout::Xyzrgb || _layout == Layout::Xyzirgb;
        _info.hasIntensity = _layout == Layout::Xyzi || _layout == Layout::Xyzirgb;
        rewind();
    }

    bool read(std::vector<PointRecord>& out, std::size_t max) override
    {
        out.clear();
        const char* begin = nullptr;
        const char* end = nullptr;
        while (out.size() < max && nextData(begin, end))
        {
            if (_numbers.size() != static_cast<std::size_t>(_layout))
                fail("line " + withThousands(_lines.lineNumber()) + " has " + std::to_string(_numbers.size())
                     + " values where the lines before have " + std::to_string(static_cast<int>(_layout)) + " ("
                     + layoutName(_layout) + ")");
            out.push_back(make());
        }
        _read += static_cast<std::int64_t>(out.size());
        if (out.empty())
        {
            if (_read == 0)
                fail("it holds no points (no line of numbers)");
            if (!_completedPass)
            {
                _completedPass = true;
                _colourScale = _maxColour <= 1.0 ? 255.0 : _maxColour <= 255.0 ? 1.0 : 1.0 / 256.0;
                _intensityAsGrey = _maxIntensity > 0;
            }
            return false;
        }
        return true;
    }

    void rewind() override
    {
        _file.seek(0);
        _lines.restart(0);
        _headerSeen = false;
        _read = 0;
    }

private:
    void fail(const std::string& what) const { throw Error(cannotRead(_info.path) + what); }

    /** The next line of numbers, in _numbers. */
    bool nextData(const char*& begin, const char*& end)
    {
        std::string bad;
        while (_lines.next(begin, end))
        {
            if (isComment(begin, end))
                continue;
            if (parseNumbers(begin, end, true, _numbers, bad))
            {
                if (_numbers.empty())
                    continue;
                _headerSeen = true;
                return true;
            }
            if (_headerSeen)
                fail("line " + withThousands(_lines.lineNumber()) + ": '" + bad + "' is not a number");
            _headerSeen = true; // the one header line
        }
        return false;
    }

    std::uint8_t channel(double value) const
    {
        const double scaled = value * _colourScale;
        if (!(scaled > 0.0))
            return 0;
        return static_cast<std::uint8_t>(std::lround(std::min(scaled, 255.0)));
    }

    PointRecord make()
    {
        PointRecord p;
        p.x = _numbers[0];
        p.y = _numbers[1];
        p.z = _numbers[2];
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
            fail("line " + withThousands(_lines.lineNumber()) + " has a coordinate that is not a number");
        std::size_t next = 3;
        if (_info.hasIntensity)
        {
            const double value = _numbers[next++];
            p.intensity = value > 0.0 ? static_cast<std::uint16_t>(std::lround(std::min(value, 65535.0))) : 0;
            _maxIntensity = std::max(_maxIntensity, p.intensity);
        }
        if (_info.hasColour)
        {
            for (std::size_t k = next; k < next + 3; ++k)
                _maxColour = std::max(_maxColour, _numbers[k]);
            p.red = channel(_numbers[next]);
            p.green = channel(_numbers[next + 1]);
            p.blue = channel(_numbers[next + 2]);
        }
        else
        {
            const std::uint8_t grey = _info.hasIntensity && _intensityAsGrey ? greyFromIntensity(p.intensity) : 255;
            p.red = p.green = p.blue = grey;
        }
        return p;
    }

    InputFile _file;
    TextLines _lines{_file};
    std::vector<double> _numbers;
    Layout _layout = Layout::Xyz;
    bool _headerSeen = false;
    bool _completedPass = false;
    double _colourScale = 1.0;
    double _maxColour = 0.0;
    bool _intensityAsGrey = true;
    std::uint16_t _maxIntensity = 0;
};

} // namespace

std::unique_ptr<PointSource> openXyzSource(const std::string& path) { return std::make_unique<XyzSource>(path); }

} // namespace cxtiler
