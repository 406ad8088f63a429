// Readers of point cloud files, streamed in batches: LAS (1.0-1.4,
// uncompressed, point formats 0-3 and 6-8), PLY (ascii and binary little
// endian) and XYZ text. A reader checks what it can up front (signature,
// header, that the file can hold the points its header promises) and the rest
// while it reads; every failure is an Error whose message names the file.
#ifndef CXTILER_POINTSOURCE_H
#define CXTILER_POINTSOURCE_H

#include "PointRecord.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace cxtiler
{

struct PointSourceInfo
{
    std::string path;
    /** What was found, for the log: "LAS 1.4, point format 7", "PLY binary
     *  little endian", "XYZ text (x y z r g b)". */
    std::string format;
    /** Points the header promises; -1 when the format has no count (XYZ). */
    std::int64_t count = -1;
    /** The CRS the file carries, as PROJ takes it (WKT or "EPSG:n"); empty
     *  when it carries none. */
    std::string crs;
    /** Where the CRS came from, for the log: "its WKT record". */
    std::string crsOrigin;
    bool hasColour = false;
    bool hasIntensity = false;
};

class PointSource
{
public:
    virtual ~PointSource() = default;

    const PointSourceInfo& info() const { return _info; }

    /** Reads the next points, at most `max`, into `out` (cleared first), with
     *  coordinates in the file's CRS and priority 0. Returns false once there
     *  are no more. Throws Error for bad data. */
    virtual bool read(std::vector<PointRecord>& out, std::size_t max) = 0;

    /** Back to the first point, for another pass. */
    virtual void rewind() = 0;

    /** The number of points read since the last rewind. */
    std::int64_t pointsRead() const { return _read; }

protected:
    PointSourceInfo _info;
    std::int64_t _read = 0;
};

/** Opens a point cloud file, by its signature or, for text, its extension
 *  (.xyz, .txt, .csv). Throws Error naming the file when it is missing,
 *  empty, of an unknown or unsupported kind, or its header is wrong. */
std::unique_ptr<PointSource> openPointSource(const std::string& path);

/** The "cannot read 'PATH': " that starts the messages about a file. */
std::string cannotRead(const std::string& path);

} // namespace cxtiler

#endif
