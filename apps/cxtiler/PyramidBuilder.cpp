#include "PyramidBuilder.h"

#include "EquirectImage.h"
#include "Error.h"
#include "HeightGrid.h"
#include "MBTilesWriter.h"
#include "Progress.h"
#include "PyramidMetadata.h"
#include "TileMath.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <utility>
#include <vector>

namespace cxtiler
{

namespace
{

constexpr std::size_t kTilePixels = static_cast<std::size_t>(kTileSize) * kTileSize;

/**
 * Depth-first walk of the quadtree: a tile of the deepest level is sampled from the
 * source, a coarser one is the 2 x 2 average of its children, made just before it.
 * Only one chain of tiles from the root down is held in memory at a time.
 */
template <typename Sample>
class QuadtreeBuilder
{
public:
    using SampleLeaf = std::function<void(int zoom, int x, int y, Sample* pixels)>;
    using Encode = std::function<std::vector<std::uint8_t>(const Sample* pixels)>;
    using Average = std::function<Sample(Sample, Sample, Sample, Sample)>;

    QuadtreeBuilder(int maxZoom, int channels, SampleLeaf sampleLeaf, Average average, Encode encode,
                    MBTilesWriter& writer, Progress& progress)
        : _maxZoom(maxZoom), _channels(channels), _sampleLeaf(std::move(sampleLeaf)), _average(std::move(average)),
          _encode(std::move(encode)), _writer(writer), _progress(progress)
    {
    }

    std::uint64_t bytes() const { return _bytes; }

    void build(int zoom, int x, int y, std::vector<Sample>& pixels)
    {
        pixels.assign(kTilePixels * _channels, Sample{});
        if (zoom == _maxZoom)
        {
            _sampleLeaf(zoom, x, y, pixels.data());
        }
        else
        {
            std::vector<Sample> child;
            for (int quadrant = 0; quadrant < 4; ++quadrant)
            {
                const int dx = quadrant & 1;
                const int dy = quadrant >> 1;
                build(zoom + 1, 2 * x + dx, 2 * y + dy, child);
                shrinkInto(child, pixels, dx, dy);
            }
        }
        const std::vector<std::uint8_t> encoded = _encode(pixels.data());
        _writer.putTile(zoom, x, y, encoded);
        _bytes += encoded.size();
        if (!_progress.tileDone(zoom))
            throw Error("cancelled");
    }

private:
    /** Averages a child tile 2 x 2 into its quarter (dx, dy) of the parent tile. */
    void shrinkInto(const std::vector<Sample>& child, std::vector<Sample>& parent, int dx, int dy) const
    {
        constexpr int half = kTileSize / 2;
        const std::size_t rowStride = static_cast<std::size_t>(kTileSize) * _channels;
        for (int row = 0; row < half; ++row)
        {
            const Sample* top = child.data() + (2 * row) * rowStride;
            const Sample* bottom = top + rowStride;
            Sample* out = parent.data() + (dy * half + row) * rowStride + static_cast<std::size_t>(dx) * half * _channels;
            for (int column = 0; column < half; ++column)
            {
                for (int c = 0; c < _channels; ++c)
                {
                    const std::size_t left = static_cast<std::size_t>(2 * column) * _channels + c;
                    const std::size_t right = left + _channels;
                    out[column * _channels + c] = _average(top[left], top[right], bottom[left], bottom[right]);
                }
            }
        }
    }

    int _maxZoom;
    int _channels;
    SampleLeaf _sampleLeaf;
    Average _average;
    Encode _encode;
    MBTilesWriter& _writer;
    Progress& _progress;
    std::uint64_t _bytes = 0;
};

int resolveMaxZoom(int requested, int sourceWidth)
{
    if (requested > kMaxZoomLimit)
        throw Error("the deepest level can be at most " + std::to_string(kMaxZoomLimit) + ", not "
                    + std::to_string(requested));
    return requested >= 0 ? requested : maxZoomForWidth(sourceWidth);
}

std::vector<long> tilesPerLevel(int maxZoom)
{
    std::vector<long> counts;
    for (int z = 0; z <= maxZoom; ++z)
        counts.push_back(static_cast<long>(tilesAcross(z)) * tilesAcross(z));
    return counts;
}

/** Longitudes of the pixel centres of the tile column `x`, and latitudes of its rows `y`. */
struct TileCentres
{
    std::array<double, kTileSize> longitude;
    std::array<double, kTileSize> latitude;

    TileCentres(int zoom, int x, int y)
    {
        for (int i = 0; i < kTileSize; ++i)
        {
            longitude[i] = longitudeAt(static_cast<double>(x) * kTileSize + i + 0.5, zoom);
            latitude[i] = latitudeAt(static_cast<double>(y) * kTileSize + i + 0.5, zoom);
        }
    }
};

template <typename Sample>
PyramidSummary run(QuadtreeBuilder<Sample>& builder, MBTilesWriter& writer, Progress& progress, int maxZoom)
{
    std::vector<Sample> root;
    builder.build(0, 0, 0, root);
    writer.commit();
    progress.end();
    PyramidSummary summary;
    summary.maxZoom = maxZoom;
    summary.tiles = progress.doneTiles();
    summary.tileBytes = builder.bytes();
    return summary;
}

} // namespace

PyramidSummary buildImageryPyramid(const EquirectImage& source, const std::string& output,
                                   const PyramidOptions& options, Progress& progress)
{
    const int maxZoom = resolveMaxZoom(options.maxZoom, source.width());
    if (options.jpegQuality < 1 || options.jpegQuality > 100)
        throw Error("the JPEG quality is 1 to 100, not " + std::to_string(options.jpegQuality));
    const int channels = source.channels();

    MBTilesWriter writer(output);
    writePyramidMetadata(writer, output, options, formatName(options.format), worldExtent(maxZoom));
    progress.begin("imagery", tilesPerLevel(maxZoom));

    auto sampleLeaf = [&](int zoom, int x, int y, std::uint8_t* pixels) {
        const TileCentres centres(zoom, x, y);
        float value[4];
        for (int row = 0; row < kTileSize; ++row)
        {
            for (int column = 0; column < kTileSize; ++column)
            {
                source.sample(centres.longitude[column], centres.latitude[row], value);
                for (int c = 0; c < channels; ++c)
                    *pixels++ = static_cast<std::uint8_t>(std::lround(value[c]));
            }
        }
    };
    auto average = [](std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d) {
        return static_cast<std::uint8_t>((a + b + c + d + 2) / 4);
    };
    auto encode = [&](const std::uint8_t* pixels) {
        return encodeTile(pixels, kTileSize, channels, options.format, options.jpegQuality);
    };
    QuadtreeBuilder<std::uint8_t> builder(maxZoom, channels, sampleLeaf, average, encode, writer, progress);
    return run(builder, writer, progress, maxZoom);
}

PyramidSummary buildElevationPyramid(const HeightGrid& heights, const std::string& output,
                                     const PyramidOptions& options, Progress& progress)
{
    const int maxZoom = resolveMaxZoom(options.maxZoom, heights.width());
    if (heights.voidCount() > 0)
        throw Error("internal error: the elevation grid still has voids");

    MBTilesWriter writer(output);
    writePyramidMetadata(writer, output, options, "png", worldExtent(maxZoom));
    writer.setMetadata("elevation_encoding", "mapbox");
    progress.begin("elevation", tilesPerLevel(maxZoom));

    auto sampleLeaf = [&](int zoom, int x, int y, float* pixels) {
        const TileCentres centres(zoom, x, y);
        for (int row = 0; row < kTileSize; ++row)
            for (int column = 0; column < kTileSize; ++column)
                *pixels++ = heights.sample(centres.longitude[column], centres.latitude[row]);
    };
    auto average = [](float a, float b, float c, float d) { return (a + b + c + d) * 0.25f; };
    auto encode = [](const float* pixels) {
        std::vector<std::uint8_t> rgb(kTilePixels * 3);
        for (std::size_t i = 0; i < kTilePixels; ++i)
            encodeTerrainRgb(pixels[i], &rgb[i * 3]);
        return encodeTile(rgb.data(), kTileSize, 3, TileFormat::Png, 0);
    };
    QuadtreeBuilder<float> builder(maxZoom, 1, sampleLeaf, average, encode, writer, progress);
    return run(builder, writer, progress, maxZoom);
}

} // namespace cxtiler
