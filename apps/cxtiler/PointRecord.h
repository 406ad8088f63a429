// One point of a cloud as the point tiler carries it: coordinates (in the
// input's CRS as read, in the octree frame once placed), the attributes that
// the tiles carry, and the priority that decides which points a coarse tile
// keeps.
#ifndef CXTILER_POINTRECORD_H
#define CXTILER_POINTRECORD_H

#include <cstdint>

namespace cxtiler
{

struct PointRecord
{
    double x = 0.0, y = 0.0, z = 0.0;
    /** A pseudo-random number from the point's place in the input: among the
     *  points of a grid cell the lowest one stands for the cell. */
    std::uint32_t priority = 0;
    /** Raw intensity (LAS: 0..65535). */
    std::uint16_t intensity = 0;
    /** The colour the tiles show, 8 bits a channel. */
    std::uint8_t red = 255, green = 255, blue = 255;
    std::uint8_t returnNumber = 1;
    std::uint8_t numberOfReturns = 1;
    std::uint8_t classification = 0;
    /** LAS "user data"; the viewer's flag colouring compares it. */
    std::uint8_t userData = 0;
};

static_assert(sizeof(PointRecord) == 40, "PointRecord is written to spill files as it is");

/** The grey a point without colour shows: its intensity read as 8 bits when
 *  it is at most 255, as 16 bits above (as the viewer's intensity mode reads
 *  it). */
inline std::uint8_t greyFromIntensity(std::uint16_t intensity)
{
    return static_cast<std::uint8_t>(intensity > 255 ? intensity >> 8 : intensity);
}

} // namespace cxtiler

#endif
