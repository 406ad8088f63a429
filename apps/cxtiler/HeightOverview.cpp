#include "HeightOverview.h"

#include "Error.h"
#include "TileMath.h"
#include "TileWarper.h"
#include "WindowVoidFill.h"

#include <algorithm>
#include <cmath>

namespace cxtiler
{

namespace
{
// Pixel updates the smoothing of the overview's filled holes may take.
constexpr std::size_t kRelaxWork = 40'000'000;
} // namespace

HeightOverview::HeightOverview(const GeoMosaic& mosaic, int maxZoom, const std::optional<HeightCleaning>& cleaning)
{
    const MercatorBounds& bounds = mosaic.mercatorBounds();
    const double spanX = bounds.maxX - bounds.minX;
    const double spanY = bounds.maxY - bounds.minY;
    _pixelSize = std::max(mercatorPixelSize(maxZoom), std::max(spanX, spanY) / kMaxSide);
    _width = std::clamp(static_cast<int>(std::ceil(spanX / _pixelSize - 1e-9)), 1, kMaxSide);
    _height = std::clamp(static_cast<int>(std::ceil(spanY / _pixelSize - 1e-9)), 1, kMaxSide);
    _left = bounds.minX;
    _top = bounds.maxY;

    const std::size_t count = static_cast<std::size_t>(_width) * _height;
    _heights.assign(count, 0.0f);
    std::vector<std::uint8_t> covered(count, 0);
    MercatorWindow window;
    window.left = _left;
    window.top = _top;
    window.pixelSize = _pixelSize;
    window.width = _width;
    window.height = _height;
    // Averaging keeps a cell valid while any of its source pixels is.
    TileWarper warper(mosaic, _width, _height, GRA_Average);
    warper.warpHeights(window, _heights.data(), covered.data());
    if (cleaning)
        removeOutliersInWindow(_heights.data(), covered.data(), _width, _height, cleaning->minValid,
                               cleaning->maxValid, cleaning->spikeThreshold);

    const bool anyValid = std::any_of(_heights.begin(), _heights.end(), [](float h) { return !std::isnan(h); });
    if (!anyValid)
        throw Error("the input holds no valid height (every pixel is nodata): " + mosaic.sources().front().name);

    // Holes in the data first, from the data only; then everything else, so that
    // sampling near the data's edge meets no gap.
    std::vector<std::uint8_t> holes(count, 0);
    for (std::size_t i = 0; i < count; ++i)
        holes[i] = covered[i] && std::isnan(_heights[i]);
    _voidsFilled = fillVoidsFromNeighbours(_heights.data(), covered.data(), nullptr, _width, _height);
    if (_voidsFilled > 0)
    {
        // Smoothing passes, as many as a bounded amount of work allows (creases are
        // fine detail: a few dozen passes take them out).
        const int passes = static_cast<int>(std::clamp<std::size_t>(kRelaxWork / _voidsFilled, 20, 200));
        relaxFilledVoids(_heights.data(), covered.data(), holes.data(), _width, _height, passes);
    }
    fillVoidsFromNeighbours(_heights.data(), nullptr, nullptr, _width, _height);
}

float HeightOverview::sample(double x, double y) const
{
    const double world = 2.0 * kMercatorHalfWorld;
    const double right = _left + _width * _pixelSize;
    if (x < _left && x + world <= right)
        x += world;
    else if (x > right && x - world >= _left)
        x -= world;
    const double fx = std::clamp((x - _left) / _pixelSize - 0.5, 0.0, static_cast<double>(_width - 1));
    const double fy = std::clamp((_top - y) / _pixelSize - 0.5, 0.0, static_cast<double>(_height - 1));
    const int x0 = static_cast<int>(fx);
    const int y0 = static_cast<int>(fy);
    const int x1 = std::min(x0 + 1, _width - 1);
    const int y1 = std::min(y0 + 1, _height - 1);
    const float tx = static_cast<float>(fx - x0);
    const float ty = static_cast<float>(fy - y0);
    auto at = [this](int column, int row) { return _heights[static_cast<std::size_t>(row) * _width + column]; };
    const float top = at(x0, y0) + (at(x1, y0) - at(x0, y0)) * tx;
    const float bottom = at(x0, y1) + (at(x1, y1) - at(x0, y1)) * tx;
    return top + (bottom - top) * ty;
}

} // namespace cxtiler
