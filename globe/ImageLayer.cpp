#include <globe/ImageLayer>

#include "SourceTiling.h"
#include "TileCache.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace globe
{
namespace detail
{

/** A decoded source tile: premultiplied RGBA, 8 bits per channel, row 0 at
  * the north. */
struct RasterTile
{
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> rgba;
};

} // namespace detail

namespace
{

using detail::RasterTile;
using detail::SourceTiling;

constexpr std::size_t kDefaultCacheTiles = 128;
constexpr long long kMaxMosaicPixels = 4096LL * 4096LL;

inline std::uint8_t premultiply(unsigned int c, unsigned int a)
{
    return static_cast<std::uint8_t>((c * a + 127u) / 255u);
}

std::shared_ptr<const RasterTile> toRaster(const osg::Image& image)
{
    const int width = image.s();
    const int height = image.t();
    if (width <= 0 || height <= 0 || !image.data())
        return nullptr;
    auto tile = std::make_shared<RasterTile>();
    tile->width = width;
    tile->height = height;
    tile->rgba.resize(static_cast<std::size_t>(width) * height * 4);

    const GLenum format = image.getPixelFormat();
    const GLenum type = image.getDataType();
    const bool topDown = image.getOrigin() == osg::Image::TOP_LEFT;
    for (int row = 0; row < height; ++row)
    {
        const int imageRow = topDown ? row : height - 1 - row;
        std::uint8_t* out = &tile->rgba[static_cast<std::size_t>(row) * width * 4];
        const unsigned char* in = image.data(0, static_cast<unsigned int>(imageRow));
        if (type == GL_UNSIGNED_BYTE && (format == GL_RGB || format == GL_BGR))
        {
            const bool bgr = format == GL_BGR;
            for (int c = 0; c < width; ++c, in += 3, out += 4)
            {
                out[0] = in[bgr ? 2 : 0];
                out[1] = in[1];
                out[2] = in[bgr ? 0 : 2];
                out[3] = 255;
            }
        }
        else if (type == GL_UNSIGNED_BYTE && (format == GL_RGBA || format == GL_BGRA))
        {
            const bool bgr = format == GL_BGRA;
            for (int c = 0; c < width; ++c, in += 4, out += 4)
            {
                const unsigned int a = in[3];
                out[0] = premultiply(in[bgr ? 2 : 0], a);
                out[1] = premultiply(in[1], a);
                out[2] = premultiply(in[bgr ? 0 : 2], a);
                out[3] = static_cast<std::uint8_t>(a);
            }
        }
        else if (type == GL_UNSIGNED_BYTE && (format == GL_LUMINANCE || format == GL_RED))
        {
            for (int c = 0; c < width; ++c, ++in, out += 4)
            {
                out[0] = out[1] = out[2] = in[0];
                out[3] = 255;
            }
        }
        else if (type == GL_UNSIGNED_BYTE && format == GL_LUMINANCE_ALPHA)
        {
            for (int c = 0; c < width; ++c, in += 2, out += 4)
            {
                out[0] = out[1] = out[2] = premultiply(in[0], in[1]);
                out[3] = in[1];
            }
        }
        else
        {
            // Any other layout through OpenSceneGraph's general accessor.
            for (int c = 0; c < width; ++c, out += 4)
            {
                const osg::Vec4 colour = image.getColor(static_cast<unsigned int>(c), static_cast<unsigned int>(imageRow));
                auto to8 = [](float v) {
                    return static_cast<unsigned int>(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f));
                };
                const unsigned int a = to8(colour.a());
                out[0] = premultiply(to8(colour.r()), a);
                out[1] = premultiply(to8(colour.g()), a);
                out[2] = premultiply(to8(colour.b()), a);
                out[3] = static_cast<std::uint8_t>(a);
            }
        }
    }
    return tile;
}

// Bilinear sample of a tile at pixel coordinates (px, py) (pixel centres at
// integers), clamped to the tile's edges.
inline void sampleClamped(const RasterTile& tile, double px, double py, std::uint8_t* out)
{
    const double fx = std::clamp(px, 0.0, static_cast<double>(tile.width - 1));
    const double fy = std::clamp(py, 0.0, static_cast<double>(tile.height - 1));
    const int x0 = static_cast<int>(fx);
    const int y0 = static_cast<int>(fy);
    const int x1 = std::min(x0 + 1, tile.width - 1);
    const int y1 = std::min(y0 + 1, tile.height - 1);
    const unsigned int wx = static_cast<unsigned int>(std::lround((fx - x0) * 256.0));
    const unsigned int wy = static_cast<unsigned int>(std::lround((fy - y0) * 256.0));
    const std::uint8_t* a = &tile.rgba[(static_cast<std::size_t>(y0) * tile.width + x0) * 4];
    const std::uint8_t* b = &tile.rgba[(static_cast<std::size_t>(y0) * tile.width + x1) * 4];
    const std::uint8_t* c = &tile.rgba[(static_cast<std::size_t>(y1) * tile.width + x0) * 4];
    const std::uint8_t* d = &tile.rgba[(static_cast<std::size_t>(y1) * tile.width + x1) * 4];
    for (int k = 0; k < 4; ++k)
    {
        const unsigned int top = a[k] * (256u - wx) + b[k] * wx;
        const unsigned int bottom = c[k] * (256u - wx) + d[k] * wx;
        out[k] = static_cast<std::uint8_t>((top * (256u - wy) + bottom * wy + 32768u) >> 16);
    }
}

inline long long floorDiv(long long a, long long b)
{
    return a >= 0 ? a / b : -((-a + b - 1) / b);
}

struct TileRef
{
    std::shared_ptr<const RasterTile> tile;
    int levelsUp = 0;
};

} // namespace

ImageLayer::ImageLayer(const std::string& name, const MBTilesOptions& options)
    : Layer(name, options), _cache(std::make_unique<detail::TileCache<RasterTile>>(kDefaultCacheTiles))
{
}

ImageLayer::~ImageLayer() = default;

void ImageLayer::setCacheSize(std::size_t tiles)
{
    _cache->setCapacity(tiles);
}

std::size_t ImageLayer::getNumSourceTilesRead() const
{
    return _cache->loads();
}

void ImageLayer::clearCaches()
{
    _cache->clear();
}

std::shared_ptr<const RasterTile> ImageLayer::loadTile(const MBTilesSource& source, int z, unsigned int x,
                                                       unsigned int y) const
{
    return _cache->getOrLoad(detail::TileAddress{z, x, y}, [&]() -> std::shared_ptr<const RasterTile> {
        osg::ref_ptr<osg::Image> image = source.readImage(z, x, y);
        return image ? toRaster(*image) : nullptr;
    });
}

osg::ref_ptr<osg::Image> ImageLayer::createImage(const TileKey& key, unsigned int size) const
{
    if (!getEnabled() || !key.valid())
        return nullptr;
    osg::ref_ptr<MBTilesSource> source = getTileSource();
    SourceTiling tiling;
    if (!source || !SourceTiling::of(*source, tiling))
        return nullptr;

    const int W = static_cast<int>(std::clamp(size, 1u, 4096u));
    const int H = W;
    const double latMax = tiling.maxLatitude();
    const double north = std::min(key.north(), latMax);
    const double south = std::max(key.south(), -latMax);
    if (north <= south)
        return nullptr;

    // The source level whose pixels match the output's over the covered band.
    const double bandPixels = H * (north - south) / key.getHeightDegrees();
    const int ideal = tiling.idealZoom(tiling.v(north), tiling.v(south), bandPixels);
    const int z = std::clamp(ideal, tiling.minZoom, tiling.maxZoom);
    if (tiling.tilesOver(SourceTiling::u(key.west()), SourceTiling::u(key.east()), tiling.v(north), tiling.v(south), z)
        > SourceTiling::kMaxTilesPerRequest)
        return nullptr;
    const long long T = tiling.tileSize;
    const unsigned int tilesWide = tiling.tilesWide(z);
    const double worldWidth = static_cast<double>(tilesWide) * T;
    const double worldHeight = static_cast<double>(tiling.tilesHigh(z)) * T;

    // Source pixel coordinates of the output pixel centres (source pixel
    // centres at integers).
    std::vector<double> X(W);
    for (int i = 0; i < W; ++i)
        X[i] = SourceTiling::u(key.west() + (i + 0.5) * key.getWidthDegrees() / W) * worldWidth - 0.5;
    std::vector<double> Y(H);
    std::vector<char> rowValid(H, 0);
    double yLow = worldHeight, yHigh = -1.0;
    for (int j = 0; j < H; ++j)
    {
        const double lat = key.south() + (j + 0.5) * key.getHeightDegrees() / H;
        if (std::fabs(lat) > latMax)
            continue;
        rowValid[j] = 1;
        Y[j] = tiling.v(lat) * worldHeight - 0.5;
        yLow = std::min(yLow, Y[j]);
        yHigh = std::max(yHigh, Y[j]);
    }
    if (yHigh < yLow)
        return nullptr;

    // The window of source pixels the output needs, gathered from the source
    // tiles (or their ancestors) into one premultiplied mosaic.
    // The pixel after the last sample point is needed only when its
    // quantised bilinear weight is not zero. Where the output's tiling lines
    // up with the source's, the last sample falls on a pixel centre, and
    // leaving that pixel out spares decoding the neighbouring source tiles.
    auto lastNeeded = [](double p) {
        const double f = std::floor(p);
        return static_cast<long long>(f) + (std::lround((p - f) * 256.0) > 0 ? 1 : 0);
    };
    const long long xMin = static_cast<long long>(std::floor(X.front()));
    const long long xMax = lastNeeded(X.back());
    const long long yMin = std::clamp(static_cast<long long>(std::floor(yLow)), 0LL, static_cast<long long>(worldHeight) - 1);
    const long long yMax = std::clamp(lastNeeded(yHigh), yMin, static_cast<long long>(worldHeight) - 1);
    const long long mw = xMax - xMin + 1;
    const long long mh = yMax - yMin + 1;
    if (mw <= 0 || mh <= 0 || mw * mh > kMaxMosaicPixels)
        return nullptr;
    std::vector<std::uint8_t> mosaic(static_cast<std::size_t>(mw * mh * 4), 0);

    bool anyTile = false;
    for (long long ty = yMin / T; ty <= yMax / T; ++ty)
    {
        for (long long txu = floorDiv(xMin, T); txu <= floorDiv(xMax, T); ++txu)
        {
            const unsigned int tx = static_cast<unsigned int>(((txu % tilesWide) + tilesWide) % tilesWide);
            TileRef ref;
            for (int k = 0; z - k >= tiling.minZoom; ++k)
            {
                ref.tile = loadTile(*source, z - k, tx >> k, static_cast<unsigned int>(ty) >> k);
                if (ref.tile)
                {
                    ref.levelsUp = k;
                    break;
                }
            }
            if (!ref.tile)
                continue;
            anyTile = true;
            const RasterTile& tile = *ref.tile;
            const long long gx0 = std::max(xMin, txu * T);
            const long long gx1 = std::min(xMax, txu * T + T - 1);
            const long long gy0 = std::max(yMin, ty * T);
            const long long gy1 = std::min(yMax, ty * T + T - 1);
            if (ref.levelsUp == 0 && tile.width == T && tile.height == T)
            {
                for (long long gy = gy0; gy <= gy1; ++gy)
                    std::memcpy(&mosaic[static_cast<std::size_t>(((gy - yMin) * mw + (gx0 - xMin)) * 4)],
                                &tile.rgba[static_cast<std::size_t>(((gy - ty * T) * T + (gx0 - txu * T)) * 4)],
                                static_cast<std::size_t>((gx1 - gx0 + 1) * 4));
                continue;
            }
            // An ancestor (or a tile of another size): resample its part.
            const double scale = static_cast<double>(T) * static_cast<double>(1u << ref.levelsUp);
            const double ax = static_cast<double>(tx >> ref.levelsUp);
            const double ay = static_cast<double>(static_cast<unsigned int>(ty) >> ref.levelsUp);
            for (long long gy = gy0; gy <= gy1; ++gy)
            {
                const double py = ((gy + 0.5) / scale - ay) * tile.height - 0.5;
                for (long long gx = gx0; gx <= gx1; ++gx)
                {
                    const double unwrapped = static_cast<double>(tx) * T + (gx - txu * T);
                    const double px = ((unwrapped + 0.5) / scale - ax) * tile.width - 0.5;
                    sampleClamped(tile, px, py, &mosaic[static_cast<std::size_t>(((gy - yMin) * mw + (gx - xMin)) * 4)]);
                }
            }
        }
    }
    if (!anyTile)
        return nullptr;

    // Bilinear resampling of the mosaic at the output pixel centres.
    std::vector<int> x0(W), x1(W);
    std::vector<unsigned int> wx(W);
    for (int i = 0; i < W; ++i)
    {
        const double local = X[i] - static_cast<double>(xMin);
        const double f = std::floor(local);
        x0[i] = static_cast<int>(std::clamp<long long>(static_cast<long long>(f), 0, mw - 1));
        x1[i] = static_cast<int>(std::min<long long>(x0[i] + 1, mw - 1));
        wx[i] = static_cast<unsigned int>(std::lround(std::clamp(local - f, 0.0, 1.0) * 256.0));
    }

    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(W, H, 1, GL_RGBA, GL_UNSIGNED_BYTE);
    image->setInternalTextureFormat(GL_RGBA8);
    unsigned int alphaSeen = 0;
    // Two passes per output row: the two mosaic rows blended vertically into
    // a 16-bit row (contiguous, so the compiler vectorizes it), then each
    // output pixel blended horizontally from that row.
    std::vector<std::uint16_t> blended(static_cast<std::size_t>(mw * 4));
    for (int j = 0; j < H; ++j)
    {
        std::uint8_t* out = image->data(0, static_cast<unsigned int>(j));
        if (!rowValid[j])
        {
            std::memset(out, 0, static_cast<std::size_t>(W) * 4);
            continue;
        }
        const double local = Y[j] - static_cast<double>(yMin);
        const double f = std::floor(local);
        const long long y0 = std::clamp<long long>(static_cast<long long>(f), 0, mh - 1);
        const long long y1 = std::min<long long>(y0 + 1, mh - 1);
        const unsigned int wy = static_cast<unsigned int>(std::lround(std::clamp(local - f, 0.0, 1.0) * 256.0));
        const std::uint8_t* r0 = &mosaic[static_cast<std::size_t>(y0 * mw * 4)];
        const std::uint8_t* r1 = &mosaic[static_cast<std::size_t>(y1 * mw * 4)];
        const std::size_t count = static_cast<std::size_t>(mw * 4);
        std::uint16_t* b = blended.data();
        for (std::size_t k = 0; k < count; ++k)
            b[k] = static_cast<std::uint16_t>(r0[k] * (256u - wy) + r1[k] * wy);

        for (int i = 0; i < W; ++i, out += 4)
        {
            const std::uint16_t* left = b + x0[i] * 4;
            const std::uint16_t* right = b + x1[i] * 4;
            const unsigned int wxi = wx[i];
            for (int k = 0; k < 4; ++k)
                out[k] = static_cast<std::uint8_t>((left[k] * (256u - wxi) + right[k] * wxi + 32768u) >> 16);
            const unsigned int alpha = out[3];
            alphaSeen |= alpha;
            if (alpha == 255)
                continue;
            if (alpha == 0)
            {
                out[0] = out[1] = out[2] = 0;
            }
            else
            {
                for (int k = 0; k < 3; ++k)
                    out[k] = static_cast<std::uint8_t>(std::min(255u, (out[k] * 255u + alpha / 2) / alpha));
            }
        }
    }
    if (alphaSeen == 0)
        return nullptr;
    return image;
}

} // namespace globe
