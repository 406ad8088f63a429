// LAS 1.0-1.4, uncompressed. The public header block gives the version, the
// offset of the points, the point format and record length, the point count
// (the 64-bit count of LAS 1.4 where it is set, the legacy 32-bit one
// otherwise), scale and offset. Records are read by the record length of the
// header, so that extra bytes after the standard fields are skipped.
//
// Point formats read, with the byte offsets of what the tiles carry:
//   0-3  intensity 12, returns byte 14 (return number bits 0-2, number of
//        returns bits 3-5), classification 15 (class: bits 0-4), user data
//        17; RGB at 20 (format 2) or 28 (format 3)
//   6-8  intensity 12, returns byte 14 (return number bits 0-3, number of
//        returns bits 4-7), classification 16 (the whole byte), user data 17;
//        RGB at 30 (formats 7 and 8)
// Colours are 16 bits a channel and are scaled to 8; a file whose colours all
// stay at or below 255 (written as 8 bits, as some programs do) is read as
// 8 bits once a whole pass has shown it. Points without colour show their
// intensity as grey, or white when every intensity is 0.
//
// The CRS comes from a variable length record of "LASF_Projection" (also the
// extended records of LAS 1.4): OGC WKT (record 2112) first, else the GeoTIFF
// keys (record 34735) with ProjectedCSTypeGeoKey (3072) or
// GeographicTypeGeoKey (2048) naming an EPSG code.
#include "PointReaders.h"

#include "Error.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <vector>

namespace cxtiler
{

namespace
{

constexpr std::size_t kHeader12 = 227; // LAS 1.0-1.2
constexpr std::size_t kHeader13 = 235; // + start of waveform data
constexpr std::size_t kHeader14 = 375; // + extended records, 64-bit counts
constexpr std::size_t kVlrHeader = 54;
constexpr std::size_t kEvlrHeader = 60;
constexpr std::uint16_t kWktRecord = 2112;
constexpr std::uint16_t kGeoKeysRecord = 34735;
/** The most bytes of records read at once. */
constexpr std::size_t kReadBytes = 8u << 20;

/** The smallest record of a point format; 0 for formats not read. */
std::size_t minimumRecordLength(int format)
{
    switch (format)
    {
    case 0: return 20;
    case 1: return 28;
    case 2: return 26;
    case 3: return 34;
    case 6: return 30;
    case 7: return 36;
    case 8: return 38;
    default: return 0;
    }
}

std::string trimmedText(const unsigned char* bytes, std::size_t length)
{
    std::string text(reinterpret_cast<const char*>(bytes), length);
    const auto end = text.find('\0');
    if (end != std::string::npos)
        text.resize(end);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.pop_back();
    return text;
}

/** What the records of LASF_Projection say. */
struct ProjectionRecords
{
    std::string wkt;
    std::string geoKeysCrs;  // "EPSG:n" from the keys
    std::string geoKeysNote; // why the keys gave none
    bool hasGeoKeys = false;
};

void readGeoKeys(const std::vector<unsigned char>& data, ProjectionRecords& records)
{
    records.hasGeoKeys = true;
    if (data.size() < 8)
    {
        records.geoKeysNote = "its GeoKeys record is too short";
        return;
    }
    const std::size_t keys = littleEndian<std::uint16_t>(&data[6]);
    int projected = 0, geographic = 0;
    for (std::size_t k = 0; k < keys && 8 + k * 8 + 8 <= data.size(); ++k)
    {
        const unsigned char* key = &data[8 + k * 8];
        const std::uint16_t id = littleEndian<std::uint16_t>(key);
        const std::uint16_t location = littleEndian<std::uint16_t>(key + 2);
        const std::uint16_t value = littleEndian<std::uint16_t>(key + 6);
        if (location != 0)
            continue; // values held elsewhere (doubles, text) name no code
        if (id == 3072)
            projected = value;
        else if (id == 2048)
            geographic = value;
    }
    const int code = projected != 0 ? projected : geographic;
    if (code == 32767)
        records.geoKeysNote = "its GeoKeys describe a user-defined coordinate system, which is not read";
    else if (code > 0)
        records.geoKeysCrs = "EPSG:" + std::to_string(code);
    else
        records.geoKeysNote = "its GeoKeys name no EPSG code";
}

class LasSource : public PointSource
{
public:
    explicit LasSource(const std::string& path) : _file(path)
    {
        _info.path = path;
        readHeader();
        rewind();
    }

    bool read(std::vector<PointRecord>& out, std::size_t max) override
    {
        out.clear();
        const std::uint64_t left = _count - static_cast<std::uint64_t>(_read);
        // Records with many extra bytes are read in fewer at a time.
        const std::size_t fit = std::max<std::size_t>(1, kReadBytes / _recordLength);
        const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(left, std::min(max, fit)));
        if (n == 0)
        {
            _completedPass = true;
            return false;
        }
        _buffer.resize(n * _recordLength);
        _file.readExactly(_buffer.data(), _buffer.size(),
                          "point " + withThousands(static_cast<std::uint64_t>(_read) + 1));
        out.resize(n);
        for (std::size_t i = 0; i < n; ++i)
            decode(&_buffer[i * _recordLength], out[i]);
        _read += static_cast<std::int64_t>(n);
        return true;
    }

    void rewind() override
    {
        if (_completedPass)
        {
            // A whole pass has shown the ranges of the values.
            _eightBitColour = _maxColour <= 255;
            _intensityAsGrey = _maxIntensity > 0;
        }
        _file.seek(_pointOffset);
        _read = 0;
    }

private:
    void fail(const std::string& what) const { throw Error(cannotRead(_info.path) + what); }

    void readHeader()
    {
        unsigned char h[kHeader14] = {};
        const std::size_t got = _file.readSome(h, sizeof(h));
        if (got < kHeader12)
            fail("the LAS header is cut short (" + std::to_string(got) + " bytes; it has at least "
                 + std::to_string(kHeader12) + "): the file is truncated");
        const int major = h[24], minor = h[25];
        if (major != 1 || minor > 4)
            fail("LAS version " + std::to_string(major) + "." + std::to_string(minor)
                 + " is not supported (1.0 to 1.4 are)");
        const std::size_t headerSize = littleEndian<std::uint16_t>(h + 94);
        const std::size_t needed = minor >= 4 ? kHeader14 : minor == 3 ? kHeader13 : kHeader12;
        if (headerSize < needed)
            fail("its header size " + std::to_string(headerSize) + " is too small for LAS 1." + std::to_string(minor)
                 + " (" + std::to_string(needed) + " bytes): it is not a valid LAS file");
        if (got < needed || headerSize > _file.size())
            fail("the LAS header is cut short: the file is truncated");
        _pointOffset = littleEndian<std::uint32_t>(h + 96);
        const std::uint32_t vlrCount = littleEndian<std::uint32_t>(h + 100);
        const int formatByte = h[104];
        _recordLength = littleEndian<std::uint16_t>(h + 105);
        if (formatByte & 0xC0)
            fail("it is compressed (LAZ: point format byte " + std::to_string(formatByte)
                 + "); decompress it to plain LAS first");
        _format = formatByte;
        const std::size_t minimum = minimumRecordLength(_format);
        if (minimum == 0)
            fail("LAS point format " + std::to_string(_format) + " is not supported (formats 0, 1, 2, 3, 6, 7 and 8 are)");
        if (_recordLength < minimum)
            fail("its point record length " + std::to_string(_recordLength) + " is shorter than point format "
                 + std::to_string(_format) + " needs (" + std::to_string(minimum) + " bytes)");
        std::uint64_t count = littleEndian<std::uint32_t>(h + 107);
        if (minor >= 4)
        {
            const std::uint64_t count64 = littleEndian<std::uint64_t>(h + 247);
            if (count64 != 0 || _format >= 6)
                count = count64;
        }
        _count = count;
        for (int axis = 0; axis < 3; ++axis)
        {
            _scale[axis] = littleEndian<double>(h + 131 + 8 * axis);
            _offset[axis] = littleEndian<double>(h + 155 + 8 * axis);
            if (!std::isfinite(_scale[axis]) || _scale[axis] == 0.0 || !std::isfinite(_offset[axis]))
                fail("its header has an unusable scale or offset");
        }
        if (_pointOffset < headerSize || _pointOffset > _file.size())
            fail("its offset to the points (" + std::to_string(_pointOffset) + ") lies outside the file ("
                 + std::to_string(_file.size()) + " bytes): it is truncated or not a valid LAS file");
        const std::uint64_t pointBytes = _count * _recordLength;
        if (_recordLength != 0 && (_count > (_file.size() / _recordLength) + 1
                                   || _pointOffset + pointBytes > _file.size()))
            fail("its header promises " + withThousands(_count) + " points of " + std::to_string(_recordLength)
                 + " bytes from byte " + std::to_string(_pointOffset) + ", but the file has only "
                 + withThousands(_file.size()) + " bytes (it is truncated)");
        if (_count == 0)
            fail("it holds no points");

        ProjectionRecords projection;
        readVlrs(headerSize, vlrCount, projection);
        if (minor >= 4)
        {
            const std::uint64_t evlrStart = littleEndian<std::uint64_t>(h + 235);
            const std::uint32_t evlrCount = littleEndian<std::uint32_t>(h + 243);
            if (evlrCount > 0 && evlrStart >= _pointOffset + pointBytes && evlrStart < _file.size())
                readEvlrs(evlrStart, evlrCount, projection);
        }
        if (!projection.wkt.empty())
        {
            _info.crs = projection.wkt;
            _info.crsOrigin = "its WKT record";
        }
        else if (!projection.geoKeysCrs.empty())
        {
            _info.crs = projection.geoKeysCrs;
            _info.crsOrigin = "its GeoKeys (" + projection.geoKeysCrs + ")";
        }
        else if (projection.hasGeoKeys)
        {
            _info.crsOrigin = projection.geoKeysNote;
        }

        _info.format = "LAS " + std::to_string(major) + "." + std::to_string(minor) + ", point format "
                       + std::to_string(_format);
        _info.count = static_cast<std::int64_t>(_count);
        _info.hasColour = _format == 2 || _format == 3 || _format == 7 || _format == 8;
        _info.hasIntensity = true;
        _colourOffset = _format == 2 ? 20 : _format == 3 ? 28 : 30;
    }

    void takeRecord(const std::string& userId, std::uint16_t recordId, std::vector<unsigned char>& data,
                    ProjectionRecords& projection)
    {
        if (userId != "LASF_Projection")
            return;
        if (recordId == kWktRecord && projection.wkt.empty())
            projection.wkt = trimmedText(data.data(), data.size());
        else if (recordId == kGeoKeysRecord)
            readGeoKeys(data, projection);
    }

    void readVlrs(std::size_t headerSize, std::uint32_t count, ProjectionRecords& projection)
    {
        std::uint64_t at = headerSize;
        for (std::uint32_t i = 0; i < count; ++i)
        {
            if (at + kVlrHeader > _pointOffset)
                fail("its variable length record " + std::to_string(i + 1) + " of " + std::to_string(count)
                     + " runs into the points: the header is wrong");
            unsigned char header[kVlrHeader];
            _file.seek(at);
            _file.readExactly(header, sizeof(header), "a variable length record");
            const std::string userId = trimmedText(header + 2, 16);
            const std::uint16_t recordId = littleEndian<std::uint16_t>(header + 18);
            const std::uint16_t length = littleEndian<std::uint16_t>(header + 20);
            if (at + kVlrHeader + length > _pointOffset)
                fail("its variable length record " + std::to_string(i + 1) + " of " + std::to_string(count)
                     + " runs into the points: the header is wrong");
            std::vector<unsigned char> data(length);
            _file.readExactly(data.data(), data.size(), "a variable length record");
            takeRecord(userId, recordId, data, projection);
            at += kVlrHeader + length;
        }
    }

    void readEvlrs(std::uint64_t start, std::uint32_t count, ProjectionRecords& projection)
    {
        std::uint64_t at = start;
        for (std::uint32_t i = 0; i < count && at + kEvlrHeader <= _file.size(); ++i)
        {
            unsigned char header[kEvlrHeader];
            _file.seek(at);
            _file.readExactly(header, sizeof(header), "an extended variable length record");
            const std::string userId = trimmedText(header + 2, 16);
            const std::uint16_t recordId = littleEndian<std::uint16_t>(header + 18);
            const std::uint64_t length = littleEndian<std::uint64_t>(header + 20);
            if (length > _file.size() - at - kEvlrHeader)
                break;
            // Only the projection records are wanted, and they are small.
            if (userId == "LASF_Projection" && length <= (16u << 20))
            {
                std::vector<unsigned char> data(static_cast<std::size_t>(length));
                _file.readExactly(data.data(), data.size(), "an extended variable length record");
                takeRecord(userId, recordId, data, projection);
            }
            at += kEvlrHeader + length;
        }
    }

    void decode(const unsigned char* r, PointRecord& p)
    {
        p.x = littleEndian<std::int32_t>(r) * _scale[0] + _offset[0];
        p.y = littleEndian<std::int32_t>(r + 4) * _scale[1] + _offset[1];
        p.z = littleEndian<std::int32_t>(r + 8) * _scale[2] + _offset[2];
        p.priority = 0;
        p.intensity = littleEndian<std::uint16_t>(r + 12);
        const unsigned char returns = r[14];
        if (_format < 6)
        {
            p.returnNumber = returns & 0x07;
            p.numberOfReturns = (returns >> 3) & 0x07;
            p.classification = r[15] & 0x1F;
        }
        else
        {
            p.returnNumber = returns & 0x0F;
            p.numberOfReturns = returns >> 4;
            p.classification = r[16];
        }
        p.userData = r[17];
        _maxIntensity = std::max(_maxIntensity, p.intensity);
        if (_info.hasColour)
        {
            const unsigned char* c = r + _colourOffset;
            const std::uint16_t red = littleEndian<std::uint16_t>(c);
            const std::uint16_t green = littleEndian<std::uint16_t>(c + 2);
            const std::uint16_t blue = littleEndian<std::uint16_t>(c + 4);
            _maxColour = std::max({_maxColour, red, green, blue});
            const int shift = _eightBitColour ? 0 : 8;
            p.red = static_cast<std::uint8_t>(std::min(255, red >> shift));
            p.green = static_cast<std::uint8_t>(std::min(255, green >> shift));
            p.blue = static_cast<std::uint8_t>(std::min(255, blue >> shift));
        }
        else
        {
            const std::uint8_t grey = _intensityAsGrey ? greyFromIntensity(p.intensity) : 255;
            p.red = p.green = p.blue = grey;
        }
    }

    InputFile _file;
    int _format = 0;
    std::size_t _recordLength = 0;
    std::uint64_t _count = 0;
    std::uint64_t _pointOffset = 0;
    double _scale[3] = {1.0, 1.0, 1.0};
    double _offset[3] = {0.0, 0.0, 0.0};
    std::size_t _colourOffset = 0;
    std::vector<unsigned char> _buffer;
    bool _completedPass = false;
    bool _eightBitColour = false;
    bool _intensityAsGrey = true;
    std::uint16_t _maxColour = 0;
    std::uint16_t _maxIntensity = 0;
};

} // namespace

std::unique_ptr<PointSource> openLasSource(const std::string& path) { return std::make_unique<LasSource>(path); }

} // namespace cxtiler
