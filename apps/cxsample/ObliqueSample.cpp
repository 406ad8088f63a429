#include "ObliqueSample.h"

#include "Error.h"
#include "MeshBuilder.h"
#include "Model.h"
#include "Noise.h"
#include "OutputFile.h"
#include "Random.h"
#include "Textures.h"

#include <globe/SpatialReference>

#include <osg/Geode>
#include <osg/Group>
#include <osg/PagedLOD>
#include <osg/Texture>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <vector>

namespace cxsample
{

const char* const kObliqueSRS = "EPSG:4547";
const char* const kObliqueFolder = "oblique";

namespace
{

namespace fs = std::filesystem;

constexpr int kTilesAcross = 2;                       // tiles in x and in y
constexpr double kTileSize = 240.0;                   // metres
constexpr double kBlockSize = 60.0;                   // a block and half its streets
constexpr int kBlocksAcross = 8;                      // over the whole area
constexpr double kHalfArea = kTilesAcross * kTileSize / 2.0;
constexpr double kStreetHalfWidth = 6.0;              // carriageway and sidewalk on one side
constexpr double kSidewalk = 2.0;
constexpr double kGroundLift = 1.0;                   // the mesh lies this far over the globe's ground
constexpr double kGroundStep = 10.0;                  // spacing of the sampled ground heights
constexpr float kSwitchPixels = 256.0f;               // screen size at which a finer level is asked for
const osg::Vec2d kShadow(0.45, 0.6);                  // horizontal shadow per metre of height (sun in the south-west)

struct Building
{
    double x0, y0, x1, y1; // footprint, local metres
    double base = 0.0;     // local height of the ground under it
    double height = 0.0;
    osg::Vec3 roof;        // roof colour
    osg::Vec3 wall;        // wall tint
    FacadeStyle style = FacadeStyle::Punched;

    bool contains(double x, double y) const { return x >= x0 && x <= x1 && y >= y0 && y <= y1; }
    /** Whether (x, y) on the ground lies in the shadow of the building. */
    bool shadows(double x, double y) const
    {
        // Some height t in [0, height] whose shadow offset t * kShadow takes
        // the point back into the footprint.
        const double low = std::max({0.0, (x - x1) / kShadow.x(), (y - y1) / kShadow.y()});
        const double high = std::min({height, (x - x0) / kShadow.x(), (y - y0) / kShadow.y()});
        return low <= high;
    }
};

struct Block
{
    double x0 = 0.0, y0 = 0.0; // corner of the block's cell
    bool park = false;
    std::vector<Building> buildings;
};

/** A square of the area, in local metres. */
struct Region
{
    double x0, y0, size;
};

/** The level of detail of a mesh. */
struct Detail
{
    int groundSteps;
    int orthoPixels;
    int facadePixels;
};

class Site
{
public:
    Site(std::uint64_t seed, const std::function<double(double, double)>& groundHeight) : _seed(seed)
    {
        _srs = globe::SpatialReference::create(kObliqueSRS);
        const globe::SpatialReference* wgs84 = globe::SpatialReference::create("wgs84");
        osg::Vec3d centre;
        if (!_srs || !wgs84->transform(osg::Vec3d(kObliqueLon, kObliqueLat, 0.0), _srs, centre))
            throw Error(std::string("cannot project the oblique site into ") + kObliqueSRS);
        _origin.set(std::round(centre.x()), std::round(centre.y()), 0.0);
        _origin.z() = std::round(groundHeight(kObliqueLon, kObliqueLat) * 100.0) / 100.0;

        // The ground under the area, sampled every 10 m.
        _samples = static_cast<int>(2.0 * kHalfArea / kGroundStep) + 1;
        std::vector<osg::Vec3d> points;
        for (int j = 0; j < _samples; ++j)
            for (int i = 0; i < _samples; ++i)
                points.emplace_back(_origin.x() - kHalfArea + i * kGroundStep, _origin.y() - kHalfArea + j * kGroundStep, 0.0);
        if (!_srs->transform(points, wgs84))
            throw Error("cannot place the oblique site's ground");
        for (const osg::Vec3d& p : points)
            _ground.push_back(groundHeight(p.x(), p.y()) - _origin.z() + kGroundLift);

        planBlocks();
    }

    const osg::Vec3d& origin() const { return _origin; }

    /** Local height of the ground mesh at (x, y). */
    double ground(double x, double y) const
    {
        const double fx = std::clamp((x + kHalfArea) / kGroundStep, 0.0, double(_samples - 1));
        const double fy = std::clamp((y + kHalfArea) / kGroundStep, 0.0, double(_samples - 1));
        const int i = std::min(static_cast<int>(fx), _samples - 2);
        const int j = std::min(static_cast<int>(fy), _samples - 2);
        const double u = fx - i, v = fy - j;
        auto at = [&](int a, int b) { return _ground[static_cast<std::size_t>(b * _samples + a)]; };
        return (1 - v) * ((1 - u) * at(i, j) + u * at(i + 1, j)) + v * ((1 - u) * at(i, j + 1) + u * at(i + 1, j + 1));
    }

    const Block& blockAt(double x, double y) const
    {
        const int i = std::clamp(static_cast<int>(std::floor((x + kHalfArea) / kBlockSize)), 0, kBlocksAcross - 1);
        const int j = std::clamp(static_cast<int>(std::floor((y + kHalfArea) / kBlockSize)), 0, kBlocksAcross - 1);
        return _blocks[static_cast<std::size_t>(j * kBlocksAcross + i)];
    }

    /** The buildings whose footprint centre lies in the region. */
    std::vector<const Building*> buildingsIn(const Region& region) const
    {
        std::vector<const Building*> found;
        for (const Block& block : _blocks)
            for (const Building& b : block.buildings)
            {
                const double cx = (b.x0 + b.x1) / 2.0, cy = (b.y0 + b.y1) / 2.0;
                if (cx >= region.x0 && cx < region.x0 + region.size && cy >= region.y0 && cy < region.y0 + region.size)
                    found.push_back(&b);
            }
        return found;
    }

    /** The colour of the orthophoto at (x, y): what a camera straight above sees. */
    osg::Vec3 orthoColour(double x, double y) const
    {
        const Block& block = blockAt(x, y);
        const double lx = x - block.x0, ly = y - block.y0;
        const double grain = fractalNoise(x * 0.9, y * 0.9, _seed + 11, 3) - 0.5;
        for (const Building& b : block.buildings)
            if (b.contains(x, y))
            {
                const double edge = std::min({x - b.x0, b.x1 - x, y - b.y0, b.y1 - y});
                osg::Vec3 colour = b.roof * float(1.0 + 0.12 * grain);
                if (edge < 0.6)
                    colour *= 0.72f; // parapet
                // Rooftop plant: a few boxes on a lattice of the roof.
                const double ux = std::fmod(x - b.x0, 9.0), uy = std::fmod(y - b.y0, 7.0);
                if (edge > 3.0 && ux > 3.0 && ux < 5.5 && uy > 2.0 && uy < 4.0
                    && latticeValue(long((x - b.x0) / 9.0), long((y - b.y0) / 7.0), _seed + 5) < 0.35)
                    colour = osg::Vec3(0.78f, 0.78f, 0.76f);
                return colour;
            }

        osg::Vec3 colour;
        const double toStreet = std::min({lx, kBlockSize - lx, ly, kBlockSize - ly});
        if (toStreet < kStreetHalfWidth - kSidewalk)
        {
            colour = osg::Vec3(0.30f, 0.31f, 0.32f) * float(1.0 + 0.25 * grain);
            // Dashed centre line, where two cells meet.
            const bool alongX = std::min(ly, kBlockSize - ly) < 0.15;
            const bool alongY = std::min(lx, kBlockSize - lx) < 0.15;
            if ((alongX && std::fmod(x + 1000.0, 6.0) < 3.0) || (alongY && std::fmod(y + 1000.0, 6.0) < 3.0))
                colour = osg::Vec3(0.92f, 0.92f, 0.88f);
        }
        else if (toStreet < kStreetHalfWidth)
        {
            const bool joint = std::fmod(x + 1000.0, 1.0) < 0.06 || std::fmod(y + 1000.0, 1.0) < 0.06;
            colour = osg::Vec3(0.68f, 0.66f, 0.62f) * float((joint ? 0.85 : 1.0) + 0.1 * grain);
        }
        else if (block.park || fractalNoise(x * 0.08, y * 0.08, _seed + 3, 2) > 0.62)
        {
            const double tree = fractalNoise(x * 0.25, y * 0.25, _seed + 7, 3);
            colour = tree > 0.55 ? osg::Vec3(0.16f, 0.30f, 0.12f) * float(0.8 + tree * 0.4)
                                 : osg::Vec3(0.36f, 0.50f, 0.22f) * float(1.0 + 0.3 * grain);
        }
        else
        {
            colour = osg::Vec3(0.74f, 0.70f, 0.62f) * float(1.0 + 0.12 * grain); // paved courtyard
        }
        for (const Building& b : block.buildings)
            if (b.shadows(x, y))
            {
                colour *= 0.55f;
                break;
            }
        return colour;
    }

private:
    void planBlocks()
    {
        Random random(_seed ^ 0x0B11C0EDull);
        const std::vector<osg::Vec3> roofs = {{0.55f, 0.53f, 0.50f}, {0.62f, 0.60f, 0.58f}, {0.45f, 0.44f, 0.47f},
                                              {0.58f, 0.36f, 0.30f}, {0.40f, 0.50f, 0.55f}, {0.70f, 0.68f, 0.62f}};
        const std::vector<osg::Vec3> walls = {{0.95f, 0.92f, 0.86f}, {0.85f, 0.82f, 0.78f}, {0.80f, 0.86f, 0.92f},
                                              {0.92f, 0.84f, 0.74f}, {0.78f, 0.78f, 0.80f}};
        const std::vector<FacadeStyle> styles = {FacadeStyle::Punched, FacadeStyle::Ribbon, FacadeStyle::CurtainWall,
                                                 FacadeStyle::TwinWindows};
        for (int j = 0; j < kBlocksAcross; ++j)
            for (int i = 0; i < kBlocksAcross; ++i)
            {
                Block block;
                block.x0 = -kHalfArea + i * kBlockSize;
                block.y0 = -kHalfArea + j * kBlockSize;
                block.park = random.chance(0.12);
                if (!block.park)
                {
                    // One to three buildings in the block, set back from its sidewalk.
                    const double inner0x = block.x0 + kStreetHalfWidth + 1.0, inner0y = block.y0 + kStreetHalfWidth + 1.0;
                    const double inner = kBlockSize - 2.0 * (kStreetHalfWidth + 1.0);
                    const int count = random.between(1, 3);
                    const bool splitX = random.chance(0.5);
                    const double gap = 5.0;
                    const double part = (inner - gap * (count - 1)) / count;
                    for (int k = 0; k < count; ++k)
                    {
                        Building b;
                        const double shrinkA = random.uniform(0.0, part * 0.2);
                        const double shrinkB = random.uniform(0.0, inner * 0.3);
                        const double start = k * (part + gap);
                        if (splitX)
                        {
                            b.x0 = inner0x + start + shrinkA;
                            b.x1 = inner0x + start + part;
                            b.y0 = inner0y + shrinkB * 0.5;
                            b.y1 = inner0y + inner - shrinkB * 0.5;
                        }
                        else
                        {
                            b.y0 = inner0y + start + shrinkA;
                            b.y1 = inner0y + start + part;
                            b.x0 = inner0x + shrinkB * 0.5;
                            b.x1 = inner0x + inner - shrinkB * 0.5;
                        }
                        const bool tower = random.chance(0.18);
                        b.height = tower ? random.uniform(55.0, 95.0) : random.uniform(10.0, 36.0);
                        b.roof = random.pick(roofs);
                        b.wall = random.pick(walls);
                        b.style = tower ? FacadeStyle::CurtainWall : random.pick(styles);
                        block.buildings.push_back(b);
                    }
                }
                _blocks.push_back(block);
            }
        for (Block& block : _blocks)
            for (Building& b : block.buildings)
                b.base = std::min({ground(b.x0, b.y0), ground(b.x1, b.y0), ground(b.x0, b.y1), ground(b.x1, b.y1)});
    }

    std::uint64_t _seed;
    const globe::SpatialReference* _srs = nullptr;
    osg::Vec3d _origin;
    int _samples = 0;
    std::vector<double> _ground;
    std::vector<Block> _blocks;
};

/** The mesh of one region at one level of detail: ground and roofs under the
 *  orthophoto, walls under a facade texture. */
osg::ref_ptr<osg::Geode> regionMesh(const Site& site, const Region& region, const Detail& detail,
                                    std::uint64_t seed, const std::string& name)
{
    auto ortho = [&](double x, double y) {
        return osg::Vec2(float((x - region.x0) / region.size), float((y - region.y0) / region.size));
    };
    const osg::Vec4 white(1, 1, 1, 1);
    const osg::Vec3 up(0, 0, 1);
    const std::vector<const Building*> buildings = site.buildingsIn(region);

    MeshBuilder surface;
    const int n = detail.groundSteps;
    std::vector<unsigned int> index;
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i)
        {
            const double x = region.x0 + region.size * i / n, y = region.y0 + region.size * j / n;
            index.push_back(surface.vertex(osg::Vec3(float(x), float(y), float(site.ground(x, y))), up, white, ortho(x, y)));
        }
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i)
        {
            const unsigned int a = index[j * (n + 1) + i], b = a + 1, c = a + (n + 1) + 1, d = a + (n + 1);
            surface.triangle(a, b, c);
            surface.triangle(a, c, d);
        }

    MeshBuilder walls;
    // Baked light: the sun in the south-west, the walls facing it brightest.
    const float light[4] = {0.95f, 0.62f, 0.50f, 0.80f}; // facing south, east, north, west
    constexpr double kBay = 16.0, kStorey = 14.0;          // one repeat of the facade texture
    for (const Building* b : buildings)
    {
        const float z0 = float(b->base - 1.0), z1 = float(b->base + b->height);
        const osg::Vec3 c00(float(b->x0), float(b->y0), 0), c10(float(b->x1), float(b->y0), 0),
            c11(float(b->x1), float(b->y1), 0), c01(float(b->x0), float(b->y1), 0);
        surface.quad(c00 + up * z1, c10 + up * z1, c11 + up * z1, c01 + up * z1, white, ortho(b->x0, b->y0),
                     ortho(b->x1, b->y0), ortho(b->x1, b->y1), ortho(b->x0, b->y1));
        const osg::Vec3 corners[4] = {c00, c10, c11, c01};
        for (int side = 0; side < 4; ++side)
        {
            const osg::Vec3& p = corners[side];
            const osg::Vec3& q = corners[(side + 1) % 4];
            const float u = float((q - p).length() / kBay), v0 = float(-1.0 / kStorey), v1 = float(b->height / kStorey);
            const osg::Vec4 tint(b->wall * light[side], 1.0f);
            walls.quad(p + up * z0, q + up * z0, q + up * z1, p + up * z1, tint, osg::Vec2(0, v0), osg::Vec2(u, v0),
                       osg::Vec2(u, v1), osg::Vec2(0, v1));
        }
    }

    osg::ref_ptr<osg::Image> orthoImage =
        paintImage(detail.orthoPixels, detail.orthoPixels, name + "_ortho", [&](double u, double v) {
            return site.orthoColour(region.x0 + u * region.size, region.y0 + v * region.size);
        });
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->setName(name);
    osg::ref_ptr<osg::Geometry> ground = surface.build(name + "_surface", true);
    // The orthophoto covers the region exactly: clamped, so that its edges do
    // not blend with the opposite side into a seam between regions.
    osg::ref_ptr<osg::StateSet> orthoState = textureState(orthoImage.get());
    auto* orthoTexture = static_cast<osg::Texture*>(orthoState->getTextureAttribute(0, osg::StateAttribute::TEXTURE));
    orthoTexture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    orthoTexture->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
    ground->setStateSet(orthoState.get());
    geode->addDrawable(ground);
    if (!walls.empty())
    {
        const FacadeStyle style = buildings.front()->style;
        osg::ref_ptr<osg::Geometry> sides = walls.build(name + "_walls", true);
        sides->setStateSet(textureState(facadeImage(style, detail.facadePixels, seed, name + "_facade").get()));
        geode->addDrawable(sides);
    }
    // Photographs carry their light: no lighting on top of it.
    geode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return geode;
}

/** A paged node showing `coarse` until its sphere covers kSwitchPixels on
 *  screen, then the file `finer`. Its centre and radius are the region's. */
osg::ref_ptr<osg::PagedLOD> pagedRegion(const Site& site, const Region& region, osg::Geode* coarse,
                                        const std::string& finer)
{
    double top = 0.0;
    for (const Building* b : site.buildingsIn(region))
        top = std::max(top, b->base + b->height);
    const double cx = region.x0 + region.size / 2.0, cy = region.y0 + region.size / 2.0;
    const double bottom = site.ground(cx, cy) - 2.0;
    osg::ref_ptr<osg::PagedLOD> plod = new osg::PagedLOD;
    plod->setRangeMode(osg::LOD::PIXEL_SIZE_ON_SCREEN);
    plod->setCenterMode(osg::LOD::USER_DEFINED_CENTER);
    plod->setCenter(osg::Vec3(float(cx), float(cy), float((bottom + std::max(top, bottom)) / 2.0)));
    const double half = region.size / 2.0, rise = (std::max(top, bottom) - bottom) / 2.0;
    plod->setRadius(float(std::sqrt(2.0 * half * half + rise * rise)));
    plod->addChild(coarse, 0.0f, kSwitchPixels);
    plod->setFileName(1, finer);
    plod->setRange(1, kSwitchPixels, 1e30f);
    return plod;
}

std::string tileName(int i, int j)
{
    char name[32];
    std::snprintf(name, sizeof(name), "Tile_%+04d_%+04d", i, j);
    return name;
}

class TileWriter
{
public:
    TileWriter(const Site& site, std::uint64_t seed, ObliqueSummary& summary)
        : _site(site), _seed(seed), _summary(summary)
    {
    }

    void write(const fs::path& folder, int i, int j)
    {
        const std::string name = tileName(i, j);
        const Region tile{-kHalfArea + i * kTileSize, -kHalfArea + j * kTileSize, kTileSize};
        const Detail coarse{4, 128, 32}, middle{4, 128, 64}, fine{8, 256, 128};

        // Level 1: the tile's quadrants; level 2: each quadrant's blocks;
        // level 3: each block alone at its finest.
        osg::ref_ptr<osg::Group> level1 = new osg::Group;
        for (int q = 0; q < 4; ++q)
        {
            const Region quadrant{tile.x0 + (q % 2) * kTileSize / 2, tile.y0 + (q / 2) * kTileSize / 2, kTileSize / 2};
            const std::string quadrantName = name + "_L2_" + std::to_string(q);
            osg::ref_ptr<osg::Group> level2 = new osg::Group;
            for (int b = 0; b < 4; ++b)
            {
                const Region block{quadrant.x0 + (b % 2) * kBlockSize, quadrant.y0 + (b / 2) * kBlockSize, kBlockSize};
                const std::string blockName = name + "_L3_" + std::to_string(q) + std::to_string(b);
                save(*regionMesh(_site, block, fine, _seed + b, blockName), folder / (blockName + ".osgb"));
                level2->addChild(pagedRegion(_site, block, regionMesh(_site, block, middle, _seed + b, blockName + "_c"),
                                             blockName + ".osgb"));
            }
            save(*level2, folder / (quadrantName + ".osgb"));
            level1->addChild(pagedRegion(_site, quadrant,
                                         regionMesh(_site, quadrant, middle, _seed + q, quadrantName + "_c"),
                                         quadrantName + ".osgb"));
        }
        save(*level1, folder / (name + "_L1.osgb"));
        osg::ref_ptr<osg::PagedLOD> root =
            pagedRegion(_site, tile, regionMesh(_site, tile, coarse, _seed, name), name + "_L1.osgb");
        save(*root, folder / (name + ".osgb"));
        ++_summary.tiles;
    }

private:
    void save(osg::Node& node, const fs::path& path)
    {
        writeModel(node, path.string());
        std::error_code error;
        const auto size = fs::file_size(path, error);
        _summary.bytes += error ? 0 : size;
        ++_summary.files;
    }

    const Site& _site;
    std::uint64_t _seed;
    ObliqueSummary& _summary;
};

void writeMetadata(const fs::path& path, const osg::Vec3d& origin)
{
    const std::string temporary = cxtool::temporaryPathFor(path.string());
    cxtool::PendingFile pending(temporary);
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        char originText[96];
        std::snprintf(originText, sizeof(originText), "%.3f,%.3f,%.3f", origin.x(), origin.y(), origin.z());
        out << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
            << "<ModelMetadata version=\"1\">\n"
            << "\t<!-- Spatial reference system of the tiles' coordinates -->\n"
            << "\t<SRS>" << kObliqueSRS << "</SRS>\n"
            << "\t<!-- Origin of the tiles' coordinates in that system -->\n"
            << "\t<SRSOrigin>" << originText << "</SRSOrigin>\n"
            << "\t<Texture>\n\t\t<ColorSource>Visible</ColorSource>\n\t</Texture>\n"
            << "</ModelMetadata>\n";
        if (!out.flush())
            throw Error("cannot write " + path.string());
    }
    cxtool::syncFile(temporary);
    std::error_code error;
    fs::rename(temporary, path, error);
    if (error)
        throw Error("cannot write " + path.string() + ": " + error.message());
    pending.release();
}

} // namespace

ObliqueSummary writeObliqueSample(const std::string& outputDir, std::uint64_t seed,
                                  const std::function<double(double lon, double lat)>& groundHeight,
                                  std::ostream* progress)
{
    const fs::path folder = fs::path(outputDir) / kObliqueFolder;
    ObliqueSummary summary;
    summary.folder = folder.string();
    const Site site(seed, groundHeight);

    // A dataset is complete when its metadata is there: it goes first, and
    // comes back last.
    std::error_code error;
    fs::remove(folder / "metadata.xml", error);
    TileWriter writer(site, seed, summary);
    for (int j = 0; j < kTilesAcross; ++j)
        for (int i = 0; i < kTilesAcross; ++i)
        {
            const fs::path tileFolder = folder / "Data" / tileName(i, j);
            fs::create_directories(tileFolder, error);
            if (error)
                throw Error("cannot create the folder " + tileFolder.string() + ": " + error.message());
            writer.write(tileFolder, i, j);
            if (progress)
                *progress << "oblique: " << summary.tiles << "/" << kTilesAcross * kTilesAcross << " tiles\n" << std::flush;
        }
    writeMetadata(folder / "metadata.xml", site.origin());
    return summary;
}

} // namespace cxsample
