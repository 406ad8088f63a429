// Void handling in a rectangular window of heights (a warped tile with a margin,
// or an overview of the data), as HeightGrid does for a whole-Earth grid but
// without wrapping around the antimeridian, and only among the pixels that lie
// within the data's extent ("covered"); the others are neither filled nor used.
// Heights are row-major, `width` per row; NaN marks a void.
#ifndef CXTILER_WINDOWVOIDFILL_H
#define CXTILER_WINDOWVOIDFILL_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace cxtiler
{

/**
 * Fills the voids marked in `targets` (all voids when null) ring by ring from
 * their edge inwards: each pass gives every target void that touches valid
 * pixels the mean of them (eight-neighbourhood), so holes take the heights of
 * their surroundings. Neighbours count only where `covered` (all when null).
 * Returns the number of voids filled; voids without any valid neighbour in reach
 * stay void.
 */
std::size_t fillVoidsFromNeighbours(float* heights, const std::uint8_t* covered, const std::uint8_t* targets,
                                    int width, int height);

/**
 * Smooths filled holes: `iterations` passes in which every pixel marked in
 * `filled` takes the mean of its covered eight neighbours (Gauss-Seidel, rows in
 * order), the real heights around the holes staying as they are. Ring-by-ring
 * filling leaves creases where fronts from different sides of a hole meet; this
 * relaxes the fill towards the smoothest surface spanning the hole's rim, and
 * every value stays between the lowest and the highest height of that rim.
 */
void relaxFilledVoids(float* heights, const std::uint8_t* covered, const std::uint8_t* filled, int width, int height,
                      int iterations);

/**
 * Marks (1) the voids that belong to small holes: groups of touching covered
 * voids (eight-neighbourhood) that stay clear of the window's edge and fit in a
 * `maxExtent` x `maxExtent` box. Such a hole lies wholly, with its rim, in the
 * window of every tile it touches when `maxExtent` is below the windows' margin,
 * so fillVoidsFromNeighbours and relaxFilledVoids fill it alike in all of them
 * and tiles meet without seams.
 */
std::vector<std::uint8_t> markSmallHoles(const float* heights, const std::uint8_t* covered, int width, int height,
                                         int maxExtent);

/**
 * Makes void the covered heights outside [minValid, maxValid] and lone spikes or
 * pits more than `spikeThreshold` above (below) all of at least three valid
 * neighbours, as HeightGrid::removeOutliers. Returns the number made void.
 */
std::size_t removeOutliersInWindow(float* heights, const std::uint8_t* covered, int width, int height,
                                   float minValid, float maxValid, float spikeThreshold);

} // namespace cxtiler

#endif
