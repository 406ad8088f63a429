#include <globe/ElevationLayer>

#include "SourceTiling.h"
#include "TileCache.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

namespace globe
{
namespace detail
{

/** A decoded height tile, row 0 at the north. */
struct HeightTile
{
    int width = 0;
    int height = 0;
    std::vector<float> h;

    float at(int x, int y) const { return h[static_cast<std::size_t>(y) * width + x]; }
};

} // namespace detail

namespace
{

using detail::HeightTile;
using detail::SourceTiling;

constexpr std::size_t kDefaultCacheTiles = 64;
constexpr float kNoData = ElevationLayer::NO_DATA_VALUE;

std::shared_ptr<const HeightTile> toHeightTile(const osg::HeightField& field)
{
    const int width = static_cast<int>(field.getNumColumns());
    const int height = static_cast<int>(field.getNumRows());
    if (width <= 0 || height <= 0)
        return nullptr;
    auto tile = std::make_shared<HeightTile>();
    tile->width = width;
    tile->height = height;
    tile->h.resize(static_cast<std::size_t>(width) * height);
    const osg::HeightField::HeightList& heights = field.getHeightList();
    for (int row = 0; row < height; ++row)
    {
        const std::size_t from = static_cast<std::size_t>(height - 1 - row) * width;
        std::copy(heights.begin() + static_cast<std::ptrdiff_t>(from),
                  heights.begin() + static_cast<std::ptrdiff_t>(from + width),
                  tile->h.begin() + static_cast<std::ptrdiff_t>(row) * width);
    }
    return tile;
}

// Bilinear interpolation of four samples; samples without data are left out
// and the others re-weighted. No data when the samples that carry weight
// have none.
float blend(const float v[4], double fx, double fy)
{
    const double w[4] = {(1.0 - fx) * (1.0 - fy), fx * (1.0 - fy), (1.0 - fx) * fy, fx * fy};
    double sum = 0.0, weight = 0.0;
    for (int k = 0; k < 4; ++k)
    {
        if (v[k] == kNoData)
            continue;
        sum += v[k] * w[k];
        weight += w[k];
    }
    return weight > 1e-9 ? static_cast<float>(sum / weight) : kNoData;
}

// Bilinear sample of a tile at pixel coordinates (pixel centres at
// integers), clamped to its edges.
float sampleClamped(const HeightTile& tile, double px, double py)
{
    const double fx = std::clamp(px, 0.0, static_cast<double>(tile.width - 1));
    const double fy = std::clamp(py, 0.0, static_cast<double>(tile.height - 1));
    const int x0 = static_cast<int>(fx);
    const int y0 = static_cast<int>(fy);
    const int x1 = std::min(x0 + 1, tile.width - 1);
    const int y1 = std::min(y0 + 1, tile.height - 1);
    const float v[4] = {tile.at(x0, y0), tile.at(x1, y0), tile.at(x0, y1), tile.at(x1, y1)};
    return blend(v, fx - x0, fy - y0);
}

using TileLoader = std::function<std::shared_ptr<const HeightTile>(int, unsigned int, unsigned int)>;

// Samples one level of the source, across tile edges and the antimeridian,
// remembering the tiles it used.
class LevelSampler
{
public:
    LevelSampler(const SourceTiling& tiling, int z, TileLoader load)
        : _tiling(tiling), _z(z), _T(tiling.tileSize), _tilesWide(tiling.tilesWide(z)),
          _worldWidth(static_cast<long long>(tiling.tilesWide(z)) * tiling.tileSize),
          _worldHeight(static_cast<long long>(tiling.tilesHigh(z)) * tiling.tileSize), _load(std::move(load))
    {
    }

    float sample(double lon, double lat)
    {
        if (!std::isfinite(lon) || !std::isfinite(lat) || std::fabs(lat) > _tiling.maxLatitude())
            return kNoData;
        const double X = SourceTiling::u(lon) * static_cast<double>(_worldWidth) - 0.5;
        const double Y = _tiling.v(lat) * static_cast<double>(_worldHeight) - 0.5;
        const double fx0 = std::floor(X);
        const double fy0 = std::floor(Y);
        const long long i0 = static_cast<long long>(fx0);
        const long long j0 = static_cast<long long>(fy0);
        const float v[4] = {texel(i0, j0), texel(i0 + 1, j0), texel(i0, j0 + 1), texel(i0 + 1, j0 + 1)};
        return blend(v, X - fx0, Y - fy0);
    }

    bool usedAnyTile() const { return _anyTile; }

private:
    struct Slot
    {
        unsigned int tx;
        unsigned int ty;
        std::shared_ptr<const HeightTile> tile;
        int levelsUp;
    };

    const Slot& slot(unsigned int tx, unsigned int ty)
    {
        for (const Slot& s : _slots)
            if (s.tx == tx && s.ty == ty)
                return s;
        Slot s{tx, ty, nullptr, 0};
        for (int k = 0; _z - k >= _tiling.minZoom; ++k)
        {
            s.tile = _load(_z - k, tx >> k, ty >> k);
            if (s.tile)
            {
                s.levelsUp = k;
                _anyTile = true;
                break;
            }
        }
        _slots.push_back(std::move(s));
        return _slots.back();
    }

    float texel(long long gx, long long gy)
    {
        gx = ((gx % _worldWidth) + _worldWidth) % _worldWidth;
        gy = std::clamp<long long>(gy, 0, _worldHeight - 1);
        const unsigned int tx = static_cast<unsigned int>(gx / _T);
        const unsigned int ty = static_cast<unsigned int>(gy / _T);
        const Slot& s = slot(tx, ty);
        if (!s.tile)
            return kNoData;
        const HeightTile& tile = *s.tile;
        if (s.levelsUp == 0 && tile.width == _T && tile.height == _T)
            return tile.at(static_cast<int>(gx - static_cast<long long>(tx) * _T),
                           static_cast<int>(gy - static_cast<long long>(ty) * _T));
        const double scale = static_cast<double>(_T) * static_cast<double>(1u << s.levelsUp);
        const double px = ((gx + 0.5) / scale - static_cast<double>(tx >> s.levelsUp)) * tile.width - 0.5;
        const double py = ((gy + 0.5) / scale - static_cast<double>(ty >> s.levelsUp)) * tile.height - 0.5;
        return sampleClamped(tile, px, py);
    }

    const SourceTiling& _tiling;
    int _z;
    int _T;
    unsigned int _tilesWide;
    long long _worldWidth;
    long long _worldHeight;
    TileLoader _load;
    std::vector<Slot> _slots;
    bool _anyTile = false;
};

} // namespace

ElevationLayer::ElevationLayer(const std::string& name, const MBTilesOptions& options)
    : Layer(name, options), _cache(std::make_unique<detail::TileCache<HeightTile>>(kDefaultCacheTiles))
{
}

ElevationLayer::~ElevationLayer() = default;

void ElevationLayer::setCacheSize(std::size_t tiles)
{
    _cache->setCapacity(tiles);
}

std::size_t ElevationLayer::getNumSourceTilesRead() const
{
    return _cache->loads();
}

void ElevationLayer::clearCaches()
{
    _cache->clear();
}

std::shared_ptr<const HeightTile> ElevationLayer::loadTile(const MBTilesSource& source, int z, unsigned int x,
                                                           unsigned int y) const
{
    return _cache->getOrLoad(detail::TileAddress{z, x, y}, [&]() -> std::shared_ptr<const HeightTile> {
        osg::ref_ptr<osg::HeightField> field = source.readHeightField(z, x, y);
        return field ? toHeightTile(*field) : nullptr;
    });
}

osg::ref_ptr<osg::HeightField> ElevationLayer::createHeightField(const TileKey& key, unsigned int cols,
                                                                 unsigned int rows) const
{
    if (!getEnabled() || !key.valid())
        return nullptr;
    osg::ref_ptr<MBTilesSource> source = getTileSource();
    SourceTiling tiling;
    if (!source || !SourceTiling::of(*source, tiling))
        return nullptr;
    cols = std::clamp(cols, 2u, 1025u);
    rows = std::clamp(rows, 2u, 1025u);

    const double latMax = tiling.maxLatitude();
    const double north = std::min(key.north(), latMax);
    const double south = std::max(key.south(), -latMax);
    if (north <= south)
        return nullptr;
    const double bandSamples = (rows - 1) * (north - south) / key.getHeightDegrees();
    const int ideal = tiling.idealZoom(tiling.v(north), tiling.v(south), bandSamples);
    const int z = std::clamp(ideal, tiling.minZoom, tiling.maxZoom);
    if (tiling.tilesOver(SourceTiling::u(key.west()), SourceTiling::u(key.east()), tiling.v(north), tiling.v(south), z)
        > SourceTiling::kMaxTilesPerRequest)
        return nullptr;

    const MBTilesSource& src = *source;
    LevelSampler sampler(tiling, z, [this, &src](int lz, unsigned int x, unsigned int y) { return loadTile(src, lz, x, y); });

    osg::ref_ptr<osg::HeightField> field = new osg::HeightField;
    field->allocate(cols, rows);
    const double dx = key.getWidthDegrees() / (cols - 1);
    const double dy = key.getHeightDegrees() / (rows - 1);
    field->setOrigin(osg::Vec3(static_cast<float>(key.west()), static_cast<float>(key.south()), 0.0f));
    field->setXInterval(static_cast<float>(dx));
    field->setYInterval(static_cast<float>(dy));

    bool any = false;
    for (unsigned int r = 0; r < rows; ++r)
    {
        const double lat = (r + 1 == rows) ? key.north() : key.south() + r * dy;
        for (unsigned int c = 0; c < cols; ++c)
        {
            const double lon = (c + 1 == cols) ? key.east() : key.west() + c * dx;
            const float h = sampler.sample(lon, lat);
            any = any || h != kNoData;
            field->setHeight(c, r, h);
        }
    }
    return any ? field : nullptr;
}

bool ElevationLayer::getHeight(double lon, double lat, float& height) const
{
    if (!getEnabled())
        return false;
    osg::ref_ptr<MBTilesSource> source = getTileSource();
    SourceTiling tiling;
    if (!source || !SourceTiling::of(*source, tiling))
        return false;
    const MBTilesSource& src = *source;
    LevelSampler sampler(tiling, tiling.maxZoom,
                         [this, &src](int lz, unsigned int x, unsigned int y) { return loadTile(src, lz, x, y); });
    const float h = sampler.sample(lon, lat);
    if (h == kNoData)
        return false;
    height = h;
    return true;
}

} // namespace globe
