#include "WarpedPyramidBuilder.h"

#include "Error.h"
#include "GeoMosaic.h"
#include "MBTilesWriter.h"
#include "Progress.h"
#include "PyramidMetadata.h"
#include "TileEncoder.h"
#include "TileMath.h"
#include "TileRange.h"
#include "TileWarper.h"
#include "WindowVoidFill.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

namespace cxtiler
{

namespace
{

constexpr std::size_t kTilePixels = static_cast<std::size_t>(kTileSize) * kTileSize;

/**
 * Depth-first walk over the tiles of a TileRange. A tile of the deepest level
 * comes from `leaf`; a coarser one from its children, each shrunk into its
 * quarter by `shrink` as soon as it is made; a missing child leaves its quarter
 * as `clear` set it. `store` writes a tile and says whether it had data.
 */
template <typename Sample>
class SparseQuadtree
{
public:
    using Leaf = std::function<bool(int zoom, int x, int y, std::vector<Sample>& tile)>;
    using Shrink = std::function<void(const std::vector<Sample>& child, std::vector<Sample>& parent, int dx, int dy)>;
    using Store = std::function<bool(int zoom, int x, int y, const std::vector<Sample>& tile)>;

    SparseQuadtree(const TileRange& range, std::size_t tileSamples, Leaf leaf, Shrink shrink, Store store,
                   Progress& progress)
        : _range(range), _tileSamples(tileSamples), _leaf(std::move(leaf)), _shrink(std::move(shrink)),
          _store(std::move(store)), _progress(progress)
    {
    }

    /** Makes tile (zoom, x, y) into `tile`; false when it is not in the range or has no data. */
    bool build(int zoom, int x, int y, std::vector<Sample>& tile)
    {
        if (!_range.contains(zoom, x, y))
            return false;
        tile.assign(_tileSamples, Sample{});
        bool hasData = false;
        if (zoom == _range.maxZoom())
        {
            hasData = _leaf(zoom, x, y, tile);
        }
        else
        {
            std::vector<Sample> child;
            for (int quadrant = 0; quadrant < 4; ++quadrant)
            {
                const int dx = quadrant & 1;
                const int dy = quadrant >> 1;
                if (build(zoom + 1, 2 * x + dx, 2 * y + dy, child))
                {
                    _shrink(child, tile, dx, dy);
                    hasData = true;
                }
            }
        }
        if (hasData)
            hasData = _store(zoom, x, y, tile);
        if (!_progress.tileDone(zoom))
            throw Error("cancelled");
        return hasData;
    }

private:
    const TileRange& _range;
    std::size_t _tileSamples;
    Leaf _leaf;
    Shrink _shrink;
    Store _store;
    Progress& _progress;
};

int resolveMaxZoom(int requested, const GeoMosaic& source)
{
    if (requested > kMaxZoomLimit)
        throw Error("the deepest level can be at most " + std::to_string(kMaxZoomLimit) + ", not "
                    + std::to_string(requested));
    return requested >= 0 ? requested : source.naturalMaxZoom();
}

PyramidExtent extentOf(const GeoMosaic& source, int maxZoom)
{
    PyramidExtent extent;
    const GeoBounds& b = source.bounds();
    if (source.crossesAntimeridian())
    {
        // MBTiles bounds cannot cross the antimeridian: claim every longitude.
        extent.west = -180.0;
        extent.east = 180.0;
    }
    else
    {
        extent.west = b.west;
        extent.east = b.east;
    }
    extent.south = b.south;
    extent.north = b.north;
    extent.maxZoom = maxZoom;
    // The level at which the data fill about one tile.
    int fit = 0;
    const double spanX = (b.east - b.west) / 360.0;
    const double spanY = (globalYAt(b.south, 0) - globalYAt(b.north, 0)) / kTileSize;
    while (fit < maxZoom && std::max(spanX, spanY) * tilesAcross(fit + 1) <= 1.0)
        ++fit;
    extent.centerZoom = fit;
    return extent;
}

template <typename Sample>
void walkFromRoot(SparseQuadtree<Sample>& walk)
{
    std::vector<Sample> root;
    walk.build(0, 0, 0, root);
}

/** The tiles over the input files' footprints: inputs far apart need no tiles between them. */
TileRange tileRangeOf(const GeoMosaic& source, int maxZoom)
{
    std::vector<TileRange::Box> boxes;
    for (const GeoBounds& b : source.footprints())
        boxes.push_back({b.west, b.south, b.east, b.north});
    return TileRange(boxes, maxZoom);
}

/** Averages 2 x 2 child pixels weighted by their alpha (premultiplied), so that
 *  transparent pixels lend no colour to their parent. */
void shrinkRgba(const std::vector<std::uint8_t>& child, std::vector<std::uint8_t>& parent, int dx, int dy)
{
    constexpr int half = kTileSize / 2;
    constexpr std::size_t stride = static_cast<std::size_t>(kTileSize) * 4;
    for (int row = 0; row < half; ++row)
    {
        const std::uint8_t* top = child.data() + (2 * row) * stride;
        const std::uint8_t* bottom = top + stride;
        std::uint8_t* out = parent.data() + (dy * half + row) * stride + static_cast<std::size_t>(dx) * half * 4;
        for (int column = 0; column < half; ++column, out += 4)
        {
            const std::uint8_t* p[4] = {top + column * 8, top + column * 8 + 4, bottom + column * 8,
                                        bottom + column * 8 + 4};
            const int alphaSum = p[0][3] + p[1][3] + p[2][3] + p[3][3];
            if (alphaSum == 0)
            {
                out[0] = out[1] = out[2] = out[3] = 0;
                continue;
            }
            for (int c = 0; c < 3; ++c)
            {
                const int weighted = p[0][c] * p[0][3] + p[1][c] * p[1][3] + p[2][c] * p[2][3] + p[3][c] * p[3][3];
                out[c] = static_cast<std::uint8_t>((weighted + alphaSum / 2) / alphaSum);
            }
            out[3] = static_cast<std::uint8_t>((alphaSum + 2) / 4);
        }
    }
}

void shrinkHeights(const std::vector<float>& child, std::vector<float>& parent, int dx, int dy)
{
    constexpr int half = kTileSize / 2;
    for (int row = 0; row < half; ++row)
    {
        const float* top = child.data() + static_cast<std::size_t>(2 * row) * kTileSize;
        const float* bottom = top + kTileSize;
        float* out = parent.data() + static_cast<std::size_t>(dy * half + row) * kTileSize + dx * half;
        for (int column = 0; column < half; ++column)
            out[column] = (top[2 * column] + top[2 * column + 1] + bottom[2 * column] + bottom[2 * column + 1]) * 0.25f;
    }
}

PyramidSummary finish(const GeoMosaic& source, MBTilesWriter& writer, Progress& progress, PyramidSummary summary)
{
    if (summary.tiles == 0)
        throw Error("no tile has data: every pixel of '" + source.sources().front().name
                    + "' is nodata or transparent");
    writer.commit();
    progress.end();
    return summary;
}

} // namespace

PyramidSummary buildImageryPyramid(const GeoMosaic& source, const std::string& output,
                                   const PyramidOptions& options, Progress& progress)
{
    if (source.kind() != RasterKind::Imagery)
        throw Error("internal error: an elevation mosaic given for imagery");
    const int maxZoom = resolveMaxZoom(options.maxZoom, source);
    if (options.jpegQuality < 1 || options.jpegQuality > 100)
        throw Error("the JPEG quality is 1 to 100, not " + std::to_string(options.jpegQuality));
    const PyramidExtent extent = extentOf(source, maxZoom);
    const TileRange range = tileRangeOf(source, maxZoom);
    TileWarper warper(source, kTileSize, kTileSize, GRA_Bilinear);

    MBTilesWriter writer(output);
    writePyramidMetadata(writer, output, options, formatName(options.format), extent);
    progress.begin("imagery", range.counts());

    PyramidSummary summary;
    summary.maxZoom = maxZoom;
    std::vector<std::uint8_t> rgb(kTilePixels * 3);
    auto leaf = [&](int zoom, int x, int y, std::vector<std::uint8_t>& tile) {
        return warper.warpImagery(MercatorWindow::tile(zoom, x, y), tile.data());
    };
    auto store = [&](int zoom, int x, int y, const std::vector<std::uint8_t>& tile) {
        bool opaque = true;
        bool empty = true;
        for (std::size_t i = 3; i < tile.size(); i += 4)
        {
            opaque = opaque && tile[i] == 255;
            empty = empty && tile[i] == 0;
        }
        if (empty)
            return false;
        std::vector<std::uint8_t> encoded;
        if (opaque)
        {
            for (std::size_t i = 0; i < kTilePixels; ++i)
                std::copy(&tile[i * 4], &tile[i * 4] + 3, &rgb[i * 3]);
            encoded = encodeTile(rgb.data(), kTileSize, 3, options.format, options.jpegQuality);
        }
        else
        {
            // JPEG has no alpha: tiles with transparent pixels are PNG, whatever the format.
            encoded = encodeTile(tile.data(), kTileSize, 4, TileFormat::Png, 0);
            ++summary.transparentTiles;
        }
        writer.putTile(zoom, x, y, encoded);
        summary.tileBytes += encoded.size();
        ++summary.tiles;
        return true;
    };
    SparseQuadtree<std::uint8_t> walk(range, kTilePixels * 4, leaf, shrinkRgba, store, progress);
    walkFromRoot(walk);
    return finish(source, writer, progress, summary);
}

PyramidSummary buildElevationPyramid(const GeoMosaic& source, const std::string& output,
                                     const PyramidOptions& options, const std::optional<HeightCleaning>& cleaning,
                                     Progress& progress)
{
    if (source.kind() != RasterKind::Elevation)
        throw Error("internal error: an imagery mosaic given for elevation");
    const int maxZoom = resolveMaxZoom(options.maxZoom, source);
    const PyramidExtent extent = extentOf(source, maxZoom);
    const TileRange range = tileRangeOf(source, maxZoom);

    // Read before the output is created: a source that fails here leaves nothing behind.
    const HeightOverview overview(source, maxZoom, cleaning);
    constexpr int margin = kHeightFillMargin;
    constexpr int side = kTileSize + 2 * margin;
    TileWarper warper(source, side, side, GRA_Bilinear);

    MBTilesWriter writer(output);
    writePyramidMetadata(writer, output, options, "png", extent);
    writer.setMetadata("elevation_encoding", "mapbox");
    progress.begin("elevation", range.counts());

    PyramidSummary summary;
    summary.maxZoom = maxZoom;
    const std::size_t windowPixels = static_cast<std::size_t>(side) * side;
    std::vector<float> heights(windowPixels);
    std::vector<std::uint8_t> covered(windowPixels);
    auto leaf = [&](int zoom, int x, int y, std::vector<float>& tile) {
        const MercatorWindow window = MercatorWindow::tile(zoom, x, y, margin);
        if (!warper.warpHeights(window, heights.data(), covered.data()))
            return false;
        bool anyCovered = false;
        long voids = 0;
        for (int row = margin; row < margin + kTileSize; ++row)
            for (int column = margin; column < margin + kTileSize; ++column)
            {
                const std::size_t i = static_cast<std::size_t>(row) * side + column;
                anyCovered = anyCovered || covered[i];
                voids += covered[i] && std::isnan(heights[i]);
            }
        if (!anyCovered)
            return false;
        if (cleaning)
        {
            removeOutliersInWindow(heights.data(), covered.data(), side, side, cleaning->minValid,
                                   cleaning->maxValid, cleaning->spikeThreshold);
            voids = 0;
            for (int row = margin; row < margin + kTileSize; ++row)
                for (int column = margin; column < margin + kTileSize; ++column)
                {
                    const std::size_t i = static_cast<std::size_t>(row) * side + column;
                    voids += covered[i] && std::isnan(heights[i]);
                }
        }
        summary.voidsFilled += voids;
        if (voids > 0 || cleaning)
        {
            const std::vector<std::uint8_t> small =
                markSmallHoles(heights.data(), covered.data(), side, side, margin - 2);
            fillVoidsFromNeighbours(heights.data(), covered.data(), small.data(), side, side);
            relaxFilledVoids(heights.data(), covered.data(), small.data(), side, side, 2 * margin);
        }
        for (int row = 0; row < kTileSize; ++row)
        {
            for (int column = 0; column < kTileSize; ++column)
            {
                const std::size_t i = static_cast<std::size_t>(row + margin) * side + column + margin;
                float h = 0.0f; // outside the inputs: sea level
                if (covered[i])
                    h = std::isnan(heights[i]) ? overview.sample(window.x(column + margin), window.y(row + margin))
                                               : heights[i];
                tile[static_cast<std::size_t>(row) * kTileSize + column] = h;
            }
        }
        return true;
    };
    std::vector<std::uint8_t> rgb(kTilePixels * 3);
    auto store = [&](int zoom, int x, int y, const std::vector<float>& tile) {
        for (std::size_t i = 0; i < kTilePixels; ++i)
            encodeTerrainRgb(tile[i], &rgb[i * 3]);
        const std::vector<std::uint8_t> encoded = encodeTile(rgb.data(), kTileSize, 3, TileFormat::Png, 0);
        writer.putTile(zoom, x, y, encoded);
        summary.tileBytes += encoded.size();
        ++summary.tiles;
        return true;
    };
    SparseQuadtree<float> walk(range, kTilePixels, leaf, shrinkHeights, store, progress);
    walkFromRoot(walk);
    return finish(source, writer, progress, summary);
}

} // namespace cxtiler
