#include "Noise.h"

#include "Random.h"

#include <cmath>

namespace cxsample
{

double latticeValue(long x, long y, std::uint64_t seed)
{
    const std::uint64_t key = Random::mix(seed ^ (static_cast<std::uint64_t>(static_cast<std::uint32_t>(x)) << 32)
                                          ^ static_cast<std::uint64_t>(static_cast<std::uint32_t>(y)));
    return static_cast<double>(Random::mix(key) >> 11) * (1.0 / 9007199254740992.0);
}

double valueNoise(double x, double y, std::uint64_t seed)
{
    const double fx = std::floor(x), fy = std::floor(y);
    const long ix = static_cast<long>(fx), iy = static_cast<long>(fy);
    double tx = x - fx, ty = y - fy;
    tx = tx * tx * (3.0 - 2.0 * tx);
    ty = ty * ty * (3.0 - 2.0 * ty);
    const double v00 = latticeValue(ix, iy, seed), v10 = latticeValue(ix + 1, iy, seed);
    const double v01 = latticeValue(ix, iy + 1, seed), v11 = latticeValue(ix + 1, iy + 1, seed);
    const double south = v00 + (v10 - v00) * tx;
    const double north = v01 + (v11 - v01) * tx;
    return south + (north - south) * ty;
}

double fractalNoise(double x, double y, std::uint64_t seed, int octaves)
{
    double sum = 0.0, weight = 1.0, total = 0.0, scale = 1.0;
    for (int octave = 0; octave < octaves; ++octave)
    {
        sum += weight * valueNoise(x * scale, y * scale, seed + static_cast<std::uint64_t>(octave) * 7919u);
        total += weight;
        weight *= 0.5;
        scale *= 2.0;
    }
    return sum / total;
}

} // namespace cxsample
