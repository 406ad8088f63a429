// A small seeded random generator (SplitMix64) whose sequence is the same on
// every platform and library version, unlike the standard distributions: the
// sample has to come out byte for byte the same from the same seed.
#ifndef CXSAMPLE_RANDOM_H
#define CXSAMPLE_RANDOM_H

#include <cstdint>
#include <vector>

namespace cxsample
{

class Random
{
public:
    explicit Random(std::uint64_t seed) : _state(seed) {}

    std::uint64_t next()
    {
        std::uint64_t z = (_state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }

    /** Uniform in [0, 1). */
    double uniform() { return static_cast<double>(next() >> 11) * (1.0 / 9007199254740992.0); }
    /** Uniform in [low, high). */
    double uniform(double low, double high) { return low + (high - low) * uniform(); }
    /** Uniform whole number in [low, high], both included. */
    int between(int low, int high)
    {
        return low + static_cast<int>(next() % static_cast<std::uint64_t>(high - low + 1));
    }
    bool chance(double probability) { return uniform() < probability; }

    template <class T>
    const T& pick(const std::vector<T>& items)
    {
        return items[static_cast<std::size_t>(next() % items.size())];
    }

    /** An independent generator for one part of the work, so that a change in
     *  one part does not shift the numbers of the others. */
    Random fork(std::uint64_t salt) const { return Random(mix(_state ^ mix(salt + 0x632BE59BD9B4E019ull))); }

    /** A well-mixed hash of a number, for noise that depends on position only. */
    static std::uint64_t mix(std::uint64_t x)
    {
        x = (x ^ (x >> 33)) * 0xFF51AFD7ED558CCDull;
        x = (x ^ (x >> 33)) * 0xC4CEB9FE1A85EC53ull;
        return x ^ (x >> 33);
    }

private:
    std::uint64_t _state;
};

} // namespace cxsample

#endif
