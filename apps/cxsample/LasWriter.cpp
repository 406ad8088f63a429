#include "LasWriter.h"

#include "Error.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>

namespace cxsample
{

namespace
{

constexpr std::size_t kVlrHeader = 54;

template <class T>
void put(unsigned char* at, T value)
{
    std::memcpy(at, &value, sizeof(T)); // LAS is little endian, as the machines this builds on
}

void putText(unsigned char* at, const std::string& text, std::size_t width)
{
    std::memcpy(at, text.data(), std::min(width, text.size()));
}

} // namespace

LasWriter::LasWriter(const std::string& path, const std::string& wkt, const std::array<double, 3>& scale,
                     const std::array<double, 3>& offset)
    : _path(path), _wkt(wkt), _scale(scale), _offset(offset)
{
    _file = std::fopen(path.c_str(), "wb");
    if (!_file)
        throw Error("cannot write " + path + ": " + std::strerror(errno));
    _min.fill(std::numeric_limits<double>::infinity());
    _max.fill(-std::numeric_limits<double>::infinity());
    // Room for the header and the CRS record; they are written at the end.
    const std::vector<unsigned char> room(kHeaderSize + kVlrHeader + _wkt.size() + 1, 0);
    if (std::fwrite(room.data(), 1, room.size(), _file) != room.size())
        throw Error("cannot write " + path + ": " + std::strerror(errno));
    _buffer.reserve(kRecordLength * 4096);
}

LasWriter::~LasWriter()
{
    if (_file)
        std::fclose(_file);
}

void LasWriter::add(const LasPoint& p)
{
    unsigned char r[kRecordLength] = {};
    const double v[3] = {p.x, p.y, p.z};
    for (int a = 0; a < 3; ++a)
    {
        const double stored = std::round((v[a] - _offset[a]) / _scale[a]);
        put<std::int32_t>(r + 4 * a, static_cast<std::int32_t>(stored));
        const double back = stored * _scale[a] + _offset[a];
        _min[a] = std::min(_min[a], back);
        _max[a] = std::max(_max[a], back);
    }
    put<std::uint16_t>(r + 12, p.intensity);
    r[14] = static_cast<unsigned char>((p.returnNumber & 0x0F) | ((p.numberOfReturns & 0x0F) << 4));
    r[15] = 0; // no classification flags, scanner channel 0
    r[16] = p.classification;
    r[17] = p.userData;
    put<std::int16_t>(r + 18, p.scanAngle);
    put<std::uint16_t>(r + 20, 1); // point source: one flight line
    put<double>(r + 22, p.gpsTime);
    put<std::uint16_t>(r + 30, p.red);
    put<std::uint16_t>(r + 32, p.green);
    put<std::uint16_t>(r + 34, p.blue);
    _buffer.insert(_buffer.end(), r, r + kRecordLength);
    if (_buffer.size() >= kRecordLength * 4096)
        flush();
    ++_count;
    if (p.returnNumber >= 1 && p.returnNumber <= 15)
        ++_byReturn[p.returnNumber - 1];
}

void LasWriter::flush()
{
    if (!_buffer.empty() && std::fwrite(_buffer.data(), 1, _buffer.size(), _file) != _buffer.size())
        throw Error("cannot write " + _path + ": " + std::strerror(errno));
    _buffer.clear();
}

void LasWriter::close()
{
    flush();
    const std::size_t vlrLength = _wkt.size() + 1; // with its terminating null
    std::vector<unsigned char> h(kHeaderSize + kVlrHeader + vlrLength, 0);
    unsigned char* header = h.data();
    putText(header, "LASF", 4);
    put<std::uint16_t>(header + 4, 1);        // file source
    put<std::uint16_t>(header + 6, 1 | 16);   // adjusted standard GPS time; the CRS is WKT
    header[24] = 1;
    header[25] = 4;
    putText(header + 26, "CXViewer sample", 32);
    putText(header + 58, "cxsample", 32);
    put<std::uint16_t>(header + 90, 163); // 11 June 2024: fixed, so that the file is the same every run
    put<std::uint16_t>(header + 92, 2024);
    put<std::uint16_t>(header + 94, static_cast<std::uint16_t>(kHeaderSize));
    put<std::uint32_t>(header + 96, static_cast<std::uint32_t>(kHeaderSize + kVlrHeader + vlrLength));
    put<std::uint32_t>(header + 100, 1);
    header[104] = 7;
    put<std::uint16_t>(header + 105, static_cast<std::uint16_t>(kRecordLength));
    // The legacy 32-bit counts stay 0 for formats 6 and above.
    for (int a = 0; a < 3; ++a)
    {
        put<double>(header + 131 + 8 * a, _scale[a]);
        put<double>(header + 155 + 8 * a, _offset[a]);
        put<double>(header + 179 + 16 * a, _count ? _max[a] : 0.0);
        put<double>(header + 187 + 16 * a, _count ? _min[a] : 0.0);
    }
    put<std::uint64_t>(header + 227, 0); // no waveforms
    put<std::uint64_t>(header + 235, 0); // no extended records
    put<std::uint32_t>(header + 243, 0);
    put<std::uint64_t>(header + 247, _count);
    for (int i = 0; i < 15; ++i)
        put<std::uint64_t>(header + 255 + 8 * i, _byReturn[static_cast<std::size_t>(i)]);

    unsigned char* vlr = header + kHeaderSize;
    putText(vlr + 2, "LASF_Projection", 16);
    put<std::uint16_t>(vlr + 18, 2112);
    put<std::uint16_t>(vlr + 20, static_cast<std::uint16_t>(vlrLength));
    putText(vlr + 22, "OGC coordinate system WKT", 32);
    putText(vlr + kVlrHeader, _wkt, _wkt.size());

    const bool ok = std::fseek(_file, 0, SEEK_SET) == 0 && std::fwrite(h.data(), 1, h.size(), _file) == h.size();
    const bool closed = std::fclose(_file) == 0;
    _file = nullptr;
    if (!ok || !closed)
        throw Error("cannot write " + _path + ": " + std::strerror(errno));
}

} // namespace cxsample
