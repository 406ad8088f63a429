// Writes a LAS 1.4 file of point data record format 7 (coordinates, intensity,
// returns, class, user data, GPS time, RGB), with its CRS as OGC WKT in a
// "LASF_Projection" record 2112. Points are appended as they come; the
// header (counts, bounds) is written when the file is closed.
#ifndef CXSAMPLE_LASWRITER_H
#define CXSAMPLE_LASWRITER_H

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace cxsample
{

struct LasPoint
{
    double x = 0.0, y = 0.0, z = 0.0; // in the file's CRS
    std::uint16_t intensity = 0;
    std::uint8_t returnNumber = 1;    // 1..15
    std::uint8_t numberOfReturns = 1; // 1..15
    std::uint8_t classification = 1;
    std::uint8_t userData = 0;
    std::int16_t scanAngle = 0; // in steps of 0.006 degrees
    double gpsTime = 0.0;
    std::uint16_t red = 0, green = 0, blue = 0; // 16 bits a channel
};

class LasWriter
{
public:
    /** Opens `path`; coordinates are stored as whole multiples of `scale`
     *  from `offset`. Throws Error when the file cannot be written. */
    LasWriter(const std::string& path, const std::string& wkt, const std::array<double, 3>& scale,
              const std::array<double, 3>& offset);
    ~LasWriter();
    LasWriter(const LasWriter&) = delete;
    LasWriter& operator=(const LasWriter&) = delete;

    void add(const LasPoint& point);
    /** Writes the header and closes; throws Error when that fails. */
    void close();

    std::uint64_t count() const { return _count; }

    /** The size of a format 7 record. */
    static constexpr std::size_t kRecordLength = 36;
    static constexpr std::size_t kHeaderSize = 375;

private:
    void flush();

    std::string _path;
    std::FILE* _file = nullptr;
    std::string _wkt;
    std::array<double, 3> _scale, _offset;
    std::vector<unsigned char> _buffer;
    std::uint64_t _count = 0;
    std::array<std::uint64_t, 15> _byReturn{};
    std::array<double, 3> _min, _max;
};

} // namespace cxsample

#endif
