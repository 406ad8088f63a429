// A whole-Earth equirectangular grid of heights in metres, rows from the north
// edge down, laid out like EquirectImage. NaN marks a void (no data).
#ifndef CXTILER_HEIGHTGRID_H
#define CXTILER_HEIGHTGRID_H

#include <cmath>
#include <cstddef>
#include <vector>

namespace cxtiler
{

class HeightGrid
{
public:
    /** `heights` holds width * height values, north row first; NaN is a void. */
    HeightGrid(int width, int height, std::vector<float> heights);

    static bool isVoid(float h) { return std::isnan(h); }

    int width() const { return _width; }
    int height() const { return _height; }
    float at(int column, int row) const { return _heights[index(column, row)]; }
    float& at(int column, int row) { return _heights[index(column, row)]; }
    std::size_t voidCount() const;

    /**
     * Turns cells that cannot be real ground into voids: heights outside
     * [minValid, maxValid], and lone spikes or pits that stand more than
     * `spikeThreshold` metres above every valid neighbour (or below every one).
     * At a few kilometres per cell a single cell cannot rise that far out of its
     * surroundings; such values are corrupt samples. Returns the number of cells
     * made void.
     */
    std::size_t removeOutliers(float minValid, float maxValid, float spikeThreshold);

    /**
     * Fills every void from its neighbours, ring by ring from the edge of the void
     * inwards: each pass gives every void that touches valid cells the mean of those
     * cells (eight-neighbourhood, wrapping around the antimeridian), so a hole in high
     * ground fills as high ground and a hole between high and low ground takes values
     * in between. Returns the number of cells filled; throws Error when the grid has
     * no valid cell at all.
     */
    std::size_t fillVoids();

    /** Bilinear sample at a longitude and latitude in degrees (voids give NaN). */
    float sample(double longitude, double latitude) const;

private:
    std::size_t index(int column, int row) const { return static_cast<std::size_t>(row) * _width + column; }

    /** Calls f(value) for each of the up to eight neighbours of a cell. */
    template <typename F>
    void forEachNeighbour(int column, int row, F&& f) const;

    int _width;
    int _height;
    std::vector<float> _heights;
};

} // namespace cxtiler

#endif
