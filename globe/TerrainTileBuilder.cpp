#include "TerrainTileBuilder.h"

#include <osg/Geometry>
#include <osg/PrimitiveSet>
#include <osg/Texture2D>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

namespace globe
{
namespace detail
{
namespace
{

std::atomic<unsigned long> g_nextSerial{1};

// What the database options carry back to the builder. A weak link: the
// options belong to the builder's nodes, and the terrain holds the builder.
struct BuilderLink : public osg::Referenced
{
    explicit BuilderLink(const TerrainTileBuilder* b) : builder(b) {}
    osg::observer_ptr<const TerrainTileBuilder> builder;
};

// The Arctic is an ocean; around the South Pole lies the Antarctic ice sheet,
// whose coast runs near 70 S.
constexpr double kOceanSouthOf = -65.0; // pure ocean north of here
constexpr double kIceSouthOf = -75.0;   // pure ice south of here
constexpr unsigned char kOcean[3] = {10, 40, 95};
constexpr unsigned char kIce[3] = {236, 240, 246};

// Unit vector of the ellipsoid normal (geodetic up) at a longitude and
// latitude in radians.
inline osg::Vec3d upVector(double lonRad, double latRad)
{
    const double c = std::cos(latRad);
    return osg::Vec3d(c * std::cos(lonRad), c * std::sin(lonRad), std::sin(latRad));
}

// Coarse tiles get more grid points than the setting asks for: flat
// triangles spanning many degrees would sag far below the ellipsoid (30 km
// for 11 degrees). Cells of at most 180 / 128 degrees keep the sag under a
// kilometre (at a cell's middle); from level 3 on the usual grid is that fine
// already.
constexpr double kMaxCellDegrees = 180.0 / 128.0;

// Coarsest mipmap level of a tile touching a pole: 64 x 64 texels of 256.
constexpr float kPolarMaxLOD = 2.0f;

// Flat grid cells lie under the curved ellipsoid; tiles are refined at least
// until that sag is at most this deep, whatever the data.
constexpr double kMaxSagMetres = 1.0;

// A tile is refined while a layer's pixels are finer than this many of the
// tile's texels (or grid cells): its children then show more of the data.
// Two samples per source pixel keep the magnified data crisp.
constexpr double kSamplesPerSourcePixel = 2.0;

} // namespace

unsigned int TerrainTileBuilder::gridPointsFor(const TileKey& key) const
{
    unsigned int cells = std::clamp(_settings.tileGridSize, 2u, 129u) - 1;
    while (cells < 128 && key.getWidthDegrees() / cells > kMaxCellDegrees)
        cells *= 2;
    return std::min(cells, 128u) + 1;
}

bool TerrainSettings::operator==(const TerrainSettings& rhs) const
{
    return tileGridSize == rhs.tileGridSize && imageSize == rhs.imageSize && maxLevel == rhs.maxLevel
           && rangeFactor == rhs.rangeFactor && skirtRatio == rhs.skirtRatio && horizonCulling == rhs.horizonCulling;
}

void baseColourAt(double latitude, unsigned char rgb[3])
{
    const double a = std::clamp((kOceanSouthOf - latitude) / (kOceanSouthOf - kIceSouthOf), 0.0, 1.0);
    for (int k = 0; k < 3; ++k)
        rgb[k] = static_cast<unsigned char>(std::lround(kOcean[k] + (kIce[k] - kOcean[k]) * a));
}

TerrainTileBuilder::TerrainTileBuilder(const Map* map, const osg::EllipsoidModel* ellipsoid,
                                       const TerrainSettings& settings)
    : _map(map),
      _ellipsoid(ellipsoid ? ellipsoid : new osg::EllipsoidModel),
      _settings(settings),
      _serial(g_nextSerial.fetch_add(1)),
      _options(new osgDB::Options)
{
    // Tiles are made afresh for every request: nothing to cache by name.
    _options->setObjectCacheHint(osgDB::Options::CACHE_NONE);
    _options->setUserData(new BuilderLink(this));
    if (_settings.horizonCulling)
        _horizonCull = new HorizonCullCallback(_ellipsoid.get());

    // The shallowest level whose grid cells sag at most kMaxSagMetres under
    // the ellipsoid (a chord of angle a sags R (1 - cos(a / 2))).
    const double radius = _ellipsoid->getRadiusEquator();
    while (_shapeLevel < TileKey::MAX_LEVEL)
    {
        const TileKey key(_shapeLevel, 0, 0);
        const double cell = osg::DegreesToRadians(key.getWidthDegrees() / (gridPointsFor(key) - 1));
        if (radius * (1.0 - std::cos(0.5 * cell)) <= kMaxSagMetres)
            break;
        ++_shapeLevel;
    }
}

bool TerrainTileBuilder::refines(const TileKey& key) const
{
    const unsigned int level = key.getLevelOfDetail();
    if (!key.valid() || level >= _settings.maxLevel)
        return false;
    if (level < _shapeLevel)
        return true;
    // Past the deepest level of every layer the children would only
    // magnify what this tile shows already.
    const double degrees = key.getHeightDegrees();
    const double texel = degrees / std::clamp(_settings.imageSize, 1u, 4096u);
    const double cell = degrees / (gridPointsFor(key) - 1);
    double pixel = 0.0;
    for (const osg::ref_ptr<ImageLayer>& layer : _map->getImageLayers())
        if (layer->getResolution(key, pixel) && texel * kSamplesPerSourcePixel > pixel)
            return true;
    for (const osg::ref_ptr<ElevationLayer>& layer : _map->getElevationLayers())
        if (layer->getResolution(key, pixel) && cell * kSamplesPerSourcePixel > pixel)
            return true;
    return false;
}

double TerrainTileBuilder::surfaceHeight(double lon, double lat, unsigned int* level) const
{
    TileKey key = TileKey::fromLonLat(lon, lat, 0);
    while (refines(key))
    {
        const TileKey child = TileKey::fromLonLat(lon, lat, key.getLevelOfDetail() + 1);
        if (!child.valid())
            break;
        key = child;
    }
    if (level)
        *level = key.getLevelOfDetail();

    // The grid of createTileModel() and its triangles (sw, se, ne) and
    // (sw, ne, nw) of every cell.
    const unsigned int n = gridPointsFor(key);
    osg::ref_ptr<osg::HeightField> field = _map->createHeightField(key, n, n);
    if (!field || field->getNumColumns() != n || field->getNumRows() != n)
        return 0.0;
    auto at = [&](unsigned int c, unsigned int r) {
        const float h = field->getHeight(c, r);
        return h != ElevationLayer::NO_DATA_VALUE && std::isfinite(h) ? double(h) : 0.0;
    };
    const double u = std::clamp((lon - key.west()) / key.getWidthDegrees() * (n - 1), 0.0, double(n - 1));
    const double v = std::clamp((lat - key.south()) / key.getHeightDegrees() * (n - 1), 0.0, double(n - 1));
    const unsigned int c = std::min(static_cast<unsigned int>(u), n - 2);
    const unsigned int r = std::min(static_cast<unsigned int>(v), n - 2);
    const double fx = u - c, fy = v - r;
    const double sw = at(c, r), se = at(c + 1, r), nw = at(c, r + 1), ne = at(c + 1, r + 1);
    return fx >= fy ? sw + fx * (se - sw) + fy * (ne - se) : sw + fy * (nw - sw) + fx * (ne - nw);
}

TerrainTileBuilder::~TerrainTileBuilder() = default;

osg::ref_ptr<TerrainTileBuilder> TerrainTileBuilder::fromOptions(const osgDB::Options* options, bool* retired)
{
    if (retired)
        *retired = false;
    if (!options)
        return nullptr;
    const auto* link = dynamic_cast<const BuilderLink*>(options->getUserData());
    if (!link)
        return nullptr;
    osg::ref_ptr<const TerrainTileBuilder> builder;
    if (!link->builder.lock(builder))
    {
        if (retired)
            *retired = true;
        return nullptr;
    }
    return const_cast<TerrainTileBuilder*>(builder.get());
}

const char* TerrainTileBuilder::extension()
{
    return "globe_terrain";
}

std::string TerrainTileBuilder::rootFileName() const
{
    return std::to_string(_serial) + ".roots." + extension();
}

std::string TerrainTileBuilder::childrenFileName(const TileKey& parent) const
{
    return std::to_string(_serial) + "." + std::to_string(parent.getLevelOfDetail()) + "_"
           + std::to_string(parent.getTileX()) + "_" + std::to_string(parent.getTileY()) + "." + extension();
}

bool TerrainTileBuilder::parseFileName(const std::string& fileName, Request& out)
{
    const std::string suffix = std::string(".") + extension();
    if (fileName.size() <= suffix.size() || fileName.compare(fileName.size() - suffix.size(), suffix.size(), suffix) != 0)
        return false;
    const std::string body = fileName.substr(0, fileName.size() - suffix.size());
    const std::size_t dot = body.find('.');
    if (dot == std::string::npos || dot == 0)
        return false;
    const std::string serial = body.substr(0, dot);
    if (serial.find_first_not_of("0123456789") != std::string::npos || serial.size() > 18)
        return false;
    Request request;
    request.builder = std::stoul(serial);
    const std::string what = body.substr(dot + 1);
    if (what == "roots")
    {
        request.roots = true;
        out = request;
        return true;
    }
    unsigned int level = 0, x = 0, y = 0;
    char tail = 0;
    if (what.find_first_not_of("0123456789_") != std::string::npos
        || std::sscanf(what.c_str(), "%u_%u_%u%c", &level, &x, &y, &tail) != 3)
        return false;
    request.parent = TileKey(level, x, y);
    if (!request.parent.valid())
        return false;
    out = request;
    return true;
}

osg::ref_ptr<osg::Node> TerrainTileBuilder::read(const Request& request) const
{
    if (request.builder != _serial)
        return nullptr;
    if (isCancelled())
        return new osg::Group;
    if (request.roots)
        return createRootTiles();
    if (osg::ref_ptr<osg::Group> children = createChildTiles(request.parent))
        return children;
    if (isCancelled())
        return new osg::Group;
    // Children that cannot be built: the parent's own model stands in for
    // them, so that the paged node shows the ground and never asks again.
    osg::ref_ptr<osg::Group> standIn = new osg::Group;
    if (osg::ref_ptr<osg::MatrixTransform> model = createTileModel(request.parent))
        standIn->addChild(model.get());
    return standIn;
}

osg::ref_ptr<osg::PagedLOD> TerrainTileBuilder::createRootNode() const
{
    osg::ref_ptr<osg::PagedLOD> root = new osg::PagedLOD;
    root->setName("terrain roots");
    root->setDatabaseOptions(_options.get());
    root->setCenterMode(osg::LOD::USER_DEFINED_CENTER);
    root->setCenter(osg::Vec3d());
    root->setRadius(_ellipsoid->getRadiusEquator() * 1.01);
    root->setFileName(0, rootFileName());
    root->setRange(0, 0.0f, FLT_MAX);
    return root;
}

osg::ref_ptr<osg::Group> TerrainTileBuilder::createRootTiles() const
{
    osg::ref_ptr<osg::Group> group = new osg::Group;
    for (unsigned int x = 0; x < 2; ++x)
    {
        osg::ref_ptr<osg::Node> tile = createTileNode(TileKey(0, x, 0));
        if (!tile)
            return nullptr;
        group->addChild(tile.get());
    }
    return group;
}

osg::ref_ptr<osg::Group> TerrainTileBuilder::createChildTiles(const TileKey& parent) const
{
    if (!parent.valid() || parent.getLevelOfDetail() >= _settings.maxLevel)
        return nullptr;
    osg::ref_ptr<osg::Group> group = new osg::Group;
    for (unsigned int q = 0; q < 4; ++q)
    {
        if (isCancelled())
            return nullptr;
        osg::ref_ptr<osg::Node> tile = createTileNode(parent.createChildKey(q));
        if (!tile)
            return nullptr;
        group->addChild(tile.get());
    }
    return group;
}

osg::ref_ptr<osg::Node> TerrainTileBuilder::createTileNode(const TileKey& key) const
{
    TileBounds bounds;
    osg::ref_ptr<osg::MatrixTransform> model = createTileModel(key, &bounds);
    if (!model)
        return nullptr;
    if (!refines(key))
    {
        model->setCullCallback(_horizonCull.get());
        return model;
    }

    osg::ref_ptr<osg::PagedLOD> plod = new osg::PagedLOD;
    plod->setName(key.str());
    plod->setDatabaseOptions(_options.get());
    // The centre and radius hold the children too, which are not loaded yet.
    plod->setCenterMode(osg::LOD::USER_DEFINED_CENTER);
    plod->setCenter(bounds.center);
    plod->setRadius(bounds.radius);
    plod->addChild(model.get(), static_cast<float>(bounds.splitDistance), FLT_MAX);
    plod->setFileName(1, childrenFileName(key));
    plod->setRange(1, 0.0f, static_cast<float>(bounds.splitDistance));
    // Behind the horizon neither the tile nor its children are drawn or asked for.
    plod->setCullCallback(_horizonCull.get());
    return plod;
}

osg::ref_ptr<osg::Image> TerrainTileBuilder::createImage(const TileKey& key) const
{
    const int size = static_cast<int>(std::clamp(_settings.imageSize, 1u, 4096u));
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(size, size, 1, GL_RGB, GL_UNSIGNED_BYTE, 1);
    image->setInternalTextureFormat(GL_RGB8);

    // The base colour changes with latitude only: one per row.
    std::vector<unsigned char> base(static_cast<std::size_t>(size) * 3);
    for (int j = 0; j < size; ++j)
        baseColourAt(key.south() + (j + 0.5) * key.getHeightDegrees() / size, &base[static_cast<std::size_t>(j) * 3]);

    // The layers, first to last, each over what lies below by its alpha. The
    // first one with data is laid over the base colour in the same pass.
    bool covered = false;
    for (const osg::ref_ptr<ImageLayer>& layer : _map->getImageLayers())
    {
        if (isCancelled())
            return nullptr;
        if (!layer->getEnabled())
            continue;
        osg::ref_ptr<osg::Image> over = layer->createImage(key, static_cast<unsigned int>(size));
        if (!over || over->s() != size || over->t() != size)
            continue;
        for (int j = 0; j < size; ++j)
        {
            const unsigned char* in = over->data(0, static_cast<unsigned int>(j));
            unsigned char* out = image->data(0, static_cast<unsigned int>(j));
            const unsigned char* rowBase = &base[static_cast<std::size_t>(j) * 3];
            for (int i = 0; i < size; ++i, in += 4, out += 3)
            {
                const unsigned int a = in[3];
                const unsigned char* below = covered ? out : rowBase;
                if (a == 255)
                {
                    out[0] = in[0];
                    out[1] = in[1];
                    out[2] = in[2];
                }
                else if (a == 0)
                {
                    if (!covered)
                        std::memcpy(out, rowBase, 3);
                }
                else
                {
                    for (int k = 0; k < 3; ++k)
                        out[k] = static_cast<unsigned char>((in[k] * a + below[k] * (255u - a) + 127u) / 255u);
                }
            }
        }
        covered = true;
    }
    if (!covered)
    {
        for (int j = 0; j < size; ++j)
        {
            unsigned char* out = image->data(0, static_cast<unsigned int>(j));
            for (int i = 0; i < size; ++i, out += 3)
                std::memcpy(out, &base[static_cast<std::size_t>(j) * 3], 3);
        }
    }
    return image;
}

osg::ref_ptr<osg::MatrixTransform> TerrainTileBuilder::createTileModel(const TileKey& key, TileBounds* bounds) const
{
    if (!key.valid())
        return nullptr;
    const unsigned int n = gridPointsFor(key);
    const unsigned int count = n * n;
    const double west = key.west();
    const double south = key.south();
    const double dLon = key.getWidthDegrees() / (n - 1);
    const double dLat = key.getHeightDegrees() / (n - 1);

    // Heights of the grid points: the elevation layers (the last one with
    // data wins), the ellipsoid where none has data.
    std::vector<double> heights(count, 0.0);
    if (osg::ref_ptr<osg::HeightField> field = _map->createHeightField(key, n, n))
    {
        if (field->getNumColumns() == n && field->getNumRows() == n)
        {
            for (unsigned int r = 0; r < n; ++r)
                for (unsigned int c = 0; c < n; ++c)
                {
                    const float h = field->getHeight(c, r);
                    if (h != ElevationLayer::NO_DATA_VALUE && std::isfinite(h))
                        heights[r * n + c] = h;
                }
        }
    }
    if (isCancelled())
        return nullptr;

    // World positions and ellipsoid normals of the grid points.
    std::vector<osg::Vec3d> world(count);
    std::vector<osg::Vec3d> up(count);
    for (unsigned int r = 0; r < n; ++r)
    {
        const double lat = osg::DegreesToRadians(r + 1 == n ? key.north() : south + r * dLat);
        for (unsigned int c = 0; c < n; ++c)
        {
            const double lon = osg::DegreesToRadians(c + 1 == n ? key.east() : west + c * dLon);
            const unsigned int i = r * n + c;
            _ellipsoid->convertLatLongHeightToXYZ(lat, lon, heights[i], world[i].x(), world[i].y(), world[i].z());
            up[i] = upVector(lon, lat);
        }
    }

    // The tile centre: over the middle of the tile, halfway between its
    // lowest and highest grid point. The paged node measures the eye's
    // distance from it, so it must lie in the tile: a centre at sea level
    // under a mountain would make every tile there look as large as the
    // mountain is high, and refine them all as soon as the eye came near.
    const auto [lowest, highest] = std::minmax_element(heights.begin(), heights.end());
    osg::Vec3d center;
    _ellipsoid->convertLatLongHeightToXYZ(osg::DegreesToRadians(key.centerLatitude()),
                                          osg::DegreesToRadians(key.centerLongitude()),
                                          0.5 * (*lowest + *highest), center.x(), center.y(), center.z());

    const unsigned int edgeCount = 4 * (n - 1);
    const unsigned int total = count + edgeCount;
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec2Array> texcoords = new osg::Vec2Array;
    vertices->reserve(total);
    normals->reserve(total);
    texcoords->reserve(total);

    // Surface normals from the neighbouring grid points; the ellipsoid normal
    // where they collapse (the rows at the poles).
    auto at = [&](unsigned int c, unsigned int r) -> const osg::Vec3d& { return world[r * n + c]; };
    double radius2 = 0.0;
    for (unsigned int r = 0; r < n; ++r)
    {
        for (unsigned int c = 0; c < n; ++c)
        {
            const unsigned int i = r * n + c;
            const osg::Vec3d east = at(std::min(c + 1, n - 1), r) - at(c > 0 ? c - 1 : 0, r);
            const osg::Vec3d north = at(c, std::min(r + 1, n - 1)) - at(c, r > 0 ? r - 1 : 0);
            osg::Vec3d normal = east ^ north;
            const double length = normal.length();
            if (length > 1e-6 * (east.length() * north.length()) && length > 0.0 && normal * up[i] > 0.0)
                normal /= length;
            else
                normal = up[i];
            const osg::Vec3d local = world[i] - center;
            radius2 = std::max(radius2, local.length2());
            vertices->push_back(osg::Vec3(local));
            normals->push_back(osg::Vec3(normal));
            texcoords->push_back(osg::Vec2(static_cast<float>(c) / (n - 1), static_cast<float>(r) / (n - 1)));
        }
    }

    // Skirts: the border walked anticlockwise seen from above (south edge
    // eastwards, east edge northwards, north edge westwards, west edge
    // southwards), each point repeated lower down.
    const double skirtDepth = std::max(1.0, _settings.skirtRatio * osg::DegreesToRadians(key.getHeightDegrees())
                                                * _ellipsoid->getRadiusPolar());
    std::vector<unsigned int> border;
    border.reserve(edgeCount);
    for (unsigned int c = 0; c + 1 < n; ++c)
        border.push_back(c);
    for (unsigned int r = 0; r + 1 < n; ++r)
        border.push_back(r * n + (n - 1));
    for (unsigned int c = n - 1; c > 0; --c)
        border.push_back((n - 1) * n + c);
    for (unsigned int r = n - 1; r > 0; --r)
        border.push_back(r * n);
    for (unsigned int i : border)
    {
        const osg::Vec3d local = world[i] - up[i] * skirtDepth - center;
        radius2 = std::max(radius2, local.length2());
        vertices->push_back(osg::Vec3(local));
        normals->push_back((*normals)[i]);
        texcoords->push_back((*texcoords)[i]);
    }

    // Triangles facing outwards (anticlockwise seen from above): the grid,
    // then the skirt walls facing away from the tile.
    osg::ref_ptr<osg::DrawElementsUShort> triangles = new osg::DrawElementsUShort(GL_TRIANGLES);
    triangles->reserve(6 * (n - 1) * (n - 1) + 6 * edgeCount);
    for (unsigned int r = 0; r + 1 < n; ++r)
    {
        for (unsigned int c = 0; c + 1 < n; ++c)
        {
            const auto sw = static_cast<unsigned short>(r * n + c);
            const auto se = static_cast<unsigned short>(sw + 1);
            const auto nw = static_cast<unsigned short>(sw + n);
            const auto ne = static_cast<unsigned short>(nw + 1);
            for (unsigned short index : {sw, se, ne, sw, ne, nw})
                triangles->push_back(index);
        }
    }
    for (unsigned int k = 0; k < edgeCount; ++k)
    {
        const auto a = static_cast<unsigned short>(border[k]);
        const auto b = static_cast<unsigned short>(border[(k + 1) % edgeCount]);
        const auto aLow = static_cast<unsigned short>(count + k);
        const auto bLow = static_cast<unsigned short>(count + (k + 1) % edgeCount);
        for (unsigned short index : {a, aLow, bLow, a, bLow, b})
            triangles->push_back(index);
    }

    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setName(key.str());
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setVertexArray(vertices.get());
    geometry->setNormalArray(normals.get(), osg::Array::BIND_PER_VERTEX);
    geometry->setTexCoordArray(0, texcoords.get(), osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(triangles.get());

    osg::ref_ptr<osg::Image> image = createImage(key);
    if (!image)
        return nullptr;
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D(image.get());
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR_MIPMAP_LINEAR);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    texture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    texture->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
    texture->setResizeNonPowerOfTwoHint(false);
    // The pixels stay on the GPU only.
    texture->setUnRefImageDataAfterApply(true);
    // Where a tile's columns meet at a pole, the texture's footprint across
    // them grows without bound and plain mipmapping would take the coarsest
    // level (the whole tile's average) around the pole: the finest levels
    // only there. (Anisotropic filtering would also do, but Mesa's llvmpipe
    // never finishes sampling those unbounded footprints with it.)
    if (key.north() >= 90.0 || key.south() <= -90.0)
        texture->setMaxLOD(kPolarMaxLOD);
    geometry->getOrCreateStateSet()->setTextureAttributeAndModes(0, texture.get(), osg::StateAttribute::ON);

    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform(osg::Matrixd::translate(center));
    transform->setName(key.str());
    transform->addChild(geometry.get());

    if (bounds)
    {
        const double radius = std::sqrt(radius2);
        bounds->center = center;
        // Finer data of the children may rise a little over this tile.
        bounds->radius = radius * 1.05 + 100.0;
        bounds->splitDistance = radius * _settings.rangeFactor;
    }
    _tilesBuilt.fetch_add(1);
    return transform;
}

} // namespace detail
} // namespace globe
