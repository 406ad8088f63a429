// Smooth value noise that depends on position and seed only, for the painted
// textures and the ground of the park.
#ifndef CXSAMPLE_NOISE_H
#define CXSAMPLE_NOISE_H

#include <cstdint>

namespace cxsample
{

/** A hash of a lattice point in [0, 1). */
double latticeValue(long x, long y, std::uint64_t seed);

/** Value noise in [0, 1) with one lattice cell per unit, smoothly interpolated. */
double valueNoise(double x, double y, std::uint64_t seed);

/** `octaves` of value noise, each twice the frequency and half the weight of
 *  the one before, scaled back to [0, 1). */
double fractalNoise(double x, double y, std::uint64_t seed, int octaves);

} // namespace cxsample

#endif
