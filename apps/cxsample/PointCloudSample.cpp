#include "PointCloudSample.h"

#include "BuildingModels.h"
#include "CityPlan.h"
#include "Error.h"
#include "GroundHeights.h"
#include "LasWriter.h"
#include "Random.h"

#include <globe/SpatialReference>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/NodeVisitor>
#include <osg/Texture>
#include <osg/TriangleIndexFunctor>

#include <proj.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <unordered_map>

namespace cxsample
{

const char* const kPointCloudPath = "pointcloud/beijing.las";
const char* const kPointCloudCrs = "EPSG:32650";

namespace
{

namespace fs = std::filesystem;

constexpr double kPi = 3.14159265358979323846;

// How the points are shared out between the surfaces.
constexpr double kGroundShare = 0.48;
constexpr double kBuildingShare = 0.42;
constexpr double kTreeShare = 0.10;

// LAS classes.
constexpr std::uint8_t kGround = 2;
constexpr std::uint8_t kVegetation = 5;
constexpr std::uint8_t kBuilding = 6;
constexpr std::uint8_t kWater = 9;

/** Towards the scanner from a surface: a beam some 20 degrees off nadir. */
const osg::Vec3d kTowardsScanner = [] {
    osg::Vec3d v(0.28, 0.18, 1.0);
    v.normalize();
    return v;
}();

struct Rgb
{
    double r, g, b; // 0..1
};

/** The attributes of a point besides its position. */
struct PointLook
{
    Rgb colour{1.0, 1.0, 1.0};
    double reflectance = 0.3; // of the beam, 0..1
    osg::Vec3d normal{0.0, 0.0, 1.0};
    std::uint8_t classification = kGround;
    std::uint8_t returnNumber = 1;
    std::uint8_t numberOfReturns = 1;
    std::uint8_t userData = 0;
};

double clamp01(double v) { return v < 0.0 ? 0.0 : v > 1.0 ? 1.0 : v; }

/** The lon, lat and height of the points, their looks, turned into UTM and
 *  written in batches. */
class CloudOutput
{
public:
    CloudOutput(LasWriter& writer, Random random) : _writer(writer), _random(random)
    {
        _geographic = globe::SpatialReference::create("wgs84");
        _projected = globe::SpatialReference::create(kPointCloudCrs);
        if (!_geographic || !_projected)
            throw Error(std::string("PROJ does not know ") + kPointCloudCrs);
    }

    void add(double lon, double lat, double height, const PointLook& look)
    {
        _positions.emplace_back(lon, lat, height);
        _looks.push_back(look);
        if (_positions.size() == 65536)
            flush();
    }

    void flush()
    {
        if (_positions.empty())
            return;
        if (!_geographic->transform(_positions, _projected))
            throw Error("cannot project the point cloud to " + _projected->getName());
        for (std::size_t i = 0; i < _positions.size(); ++i)
        {
            const PointLook& look = _looks[i];
            LasPoint p;
            p.x = _positions[i].x();
            p.y = _positions[i].y();
            p.z = _positions[i].z();
            // Returns weaken with the angle of incidence; some noise of the sensor.
            const double incidence = std::fabs(look.normal * kTowardsScanner);
            const double strength = look.reflectance * (0.3 + 0.7 * incidence) * _random.uniform(0.88, 1.12)
                                    * (look.returnNumber > 1 ? 0.6 : 1.0);
            p.intensity = static_cast<std::uint16_t>(std::lround(clamp01(strength) * 65535.0));
            p.returnNumber = look.returnNumber;
            p.numberOfReturns = look.numberOfReturns;
            p.classification = look.classification;
            p.userData = look.userData;
            p.gpsTime = 388800.0 + static_cast<double>(_writer.count()) * 2e-6;
            p.red = static_cast<std::uint16_t>(std::lround(clamp01(look.colour.r) * 255.0) * 257);
            p.green = static_cast<std::uint16_t>(std::lround(clamp01(look.colour.g) * 255.0) * 257);
            p.blue = static_cast<std::uint16_t>(std::lround(clamp01(look.colour.b) * 255.0) * 257);
            _writer.add(p);
            switch (look.classification)
            {
            case kGround: ++summary.ground; break;
            case kBuilding: ++summary.buildings; break;
            case kVegetation: ++summary.vegetation; break;
            case kWater: ++summary.water; break;
            default: break;
            }
            summary.flagged += look.userData != 0;
        }
        _positions.clear();
        _looks.clear();
    }

    PointCloudSummary summary;

private:
    LasWriter& _writer;
    Random _random;
    const globe::SpatialReference* _geographic = nullptr;
    const globe::SpatialReference* _projected = nullptr;
    std::vector<osg::Vec3d> _positions;
    std::vector<PointLook> _looks;
};

/** Heights of the ground over the cloud's area, on a grid of `step` metres
 *  east and north of the centre, read from the elevation file as the
 *  sample's objects read theirs, interpolated between the grid's nodes. */
class GroundGrid
{
public:
    GroundGrid(const GroundHeights& ground, double lon0, double lat0, double halfWidth, double halfDepth, double step)
        : _step(step), _west(-halfWidth - step), _south(-halfDepth - step)
    {
        _columns = static_cast<int>(std::ceil(2 * (halfWidth + step) / step)) + 1;
        _rows = static_cast<int>(std::ceil(2 * (halfDepth + step) / step)) + 1;
        _heights.resize(static_cast<std::size_t>(_columns * _rows));
        for (int j = 0; j < _rows; ++j)
            for (int i = 0; i < _columns; ++i)
            {
                double lon, lat;
                offsetLonLat(lon0, lat0, _west + i * step, _south + j * step, lon, lat);
                _heights[static_cast<std::size_t>(j * _columns + i)] = ground.at(lon, lat);
            }
    }

    double at(double east, double north) const
    {
        const double fx = std::clamp((east - _west) / _step, 0.0, _columns - 1.000001);
        const double fy = std::clamp((north - _south) / _step, 0.0, _rows - 1.000001);
        const int i = static_cast<int>(fx), j = static_cast<int>(fy);
        const double tx = fx - i, ty = fy - j;
        auto h = [this](int c, int r) { return _heights[static_cast<std::size_t>(r * _columns + c)]; };
        return (h(i, j) * (1 - tx) + h(i + 1, j) * tx) * (1 - ty) + (h(i, j + 1) * (1 - tx) + h(i + 1, j + 1) * tx) * ty;
    }

private:
    double _step, _west, _south;
    int _columns = 0, _rows = 0;
    std::vector<double> _heights;
};

/** Even-odd rule over all the rings: inside an outline, outside its courtyards. */
bool insideRings(const std::vector<Ring>& rings, double x, double y)
{
    bool inside = false;
    for (const Ring& ring : rings)
        for (std::size_t i = 0, j = ring.size() - 1; i < ring.size(); j = i++)
        {
            const osg::Vec2d& a = ring[i];
            const osg::Vec2d& b = ring[j];
            if ((a.y() > y) != (b.y() > y) && x < (b.x() - a.x()) * (y - a.y()) / (b.y() - a.y()) + a.x())
                inside = !inside;
        }
    return inside;
}

/** A surface triangle of a model, with what a point on it looks like. */
struct SurfaceTriangle
{
    osg::Vec3 p[3];
    osg::Vec2 t[3];
    osg::Vec4 colour;
    osg::Vec3 normal;
    const osg::Image* texture = nullptr;
    double area = 0.0;
};

/** The triangles of a model that a scan from above can see: not those that
 *  face down. */
class TriangleCollector : public osg::NodeVisitor
{
public:
    TriangleCollector() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}

    void apply(osg::Drawable& drawable) override
    {
        osg::Geometry* geometry = drawable.asGeometry();
        if (!geometry)
            return;
        const auto* positions = dynamic_cast<const osg::Vec3Array*>(geometry->getVertexArray());
        const auto* colours = dynamic_cast<const osg::Vec4Array*>(geometry->getColorArray());
        const auto* coords = dynamic_cast<const osg::Vec2Array*>(geometry->getTexCoordArray(0));
        if (!positions || !colours)
            return;
        const osg::Image* texture = nullptr;
        if (const osg::StateSet* state = geometry->getStateSet())
            if (const auto* t = dynamic_cast<const osg::Texture*>(state->getTextureAttribute(0, osg::StateAttribute::TEXTURE)))
                texture = t->getImage(0);
        osg::TriangleIndexFunctor<Indices> functor;
        geometry->accept(functor);
        for (std::size_t k = 0; k + 2 < functor.indices.size(); k += 3)
        {
            SurfaceTriangle tri;
            for (int v = 0; v < 3; ++v)
            {
                const unsigned int index = functor.indices[k + static_cast<std::size_t>(v)];
                tri.p[v] = (*positions)[index];
                tri.t[v] = coords && texture ? (*coords)[index] : osg::Vec2();
            }
            tri.colour = (*colours)[functor.indices[k]];
            osg::Vec3 n = (tri.p[1] - tri.p[0]) ^ (tri.p[2] - tri.p[0]);
            tri.area = 0.5 * n.length();
            if (tri.area <= 1e-6)
                continue;
            n.normalize();
            if (n.z() < -0.5)
                continue;
            tri.normal = n;
            tri.texture = coords ? texture : nullptr;
            triangles.push_back(tri);
        }
    }

    struct Indices
    {
        std::vector<unsigned int> indices;
        void operator()(unsigned int a, unsigned int b, unsigned int c)
        {
            indices.push_back(a);
            indices.push_back(b);
            indices.push_back(c);
        }
    };

    std::vector<SurfaceTriangle> triangles;
};

/** The colour of an RGB(A) image at texture coordinates, repeated. */
Rgb texel(const osg::Image& image, const osg::Vec2& t)
{
    const double s = t.x() - std::floor(t.x()), u = t.y() - std::floor(t.y());
    const int column = std::min(image.s() - 1, static_cast<int>(s * image.s()));
    const int row = std::min(image.t() - 1, static_cast<int>(u * image.t()));
    const unsigned char* pixel = image.data(column, row);
    return Rgb{pixel[0] / 255.0, pixel[1] / 255.0, pixel[2] / 255.0};
}

double luminance(const Rgb& c) { return 0.3 * c.r + 0.59 * c.g + 0.11 * c.b; }

/** One building of the district where the plan puts it. */
struct Instance
{
    const BuildingDesign* design = nullptr;
    std::size_t designIndex = 0;
    double lon = 0.0, lat = 0.0;
    double east = 0.0, north = 0.0; // from the cloud's centre
    double base = 0.0;              // the ground under its origin
    double cosH = 1.0, sinH = 0.0;  // heading, clockwise from north
    double reach = 0.0;             // farthest corner from its origin
    std::uint8_t userData = 0;

    /** From east/north offsets of the cloud's centre to the model's x, y. */
    void toModel(double e, double n, double& x, double& y) const
    {
        const double de = e - east, dn = n - north;
        x = de * cosH - dn * sinH;
        y = de * sinH + dn * cosH;
    }
    bool covers(double e, double n) const
    {
        double x, y;
        toModel(e, n, x, y);
        for (const Tier& tier : design->tiers)
            if (insideRings(tier.footprint.loops, x, y))
                return true;
        return false;
    }
};

/** Things indexed by the 25 m squares they reach. */
class SquareIndex
{
public:
    void add(std::size_t item, double e, double n, double radius)
    {
        for (int i = square(e - radius); i <= square(e + radius); ++i)
            for (int j = square(n - radius); j <= square(n + radius); ++j)
                _items[key(i, j)].push_back(item);
    }
    const std::vector<std::size_t>& near(double e, double n) const
    {
        static const std::vector<std::size_t> none;
        const auto found = _items.find(key(square(e), square(n)));
        return found == _items.end() ? none : found->second;
    }

private:
    static int square(double v) { return static_cast<int>(std::floor(v / 25.0)); }
    static std::uint64_t key(int i, int j)
    {
        return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(i)) << 32) | static_cast<std::uint32_t>(j);
    }
    std::unordered_map<std::uint64_t, std::vector<std::size_t>> _items;
};

struct Tree
{
    double east, north;
    double ground;
    double radius;  // of the crown
    double centre;  // height of the crown's centre over the ground
    Rgb leaves;
};

/** The district's streets and parcels, in grid coordinates u (across), v
 *  (along the north-south streets). */
class StreetPlan
{
public:
    explicit StreetPlan(const StreetGrid& grid) : _grid(grid)
    {
        const double a = grid.angle * kPi / 180.0;
        _cosA = std::cos(a);
        _sinA = std::sin(a);
        _width = grid.columns * grid.pitchU;
        _depth = grid.rows * grid.pitchV;
        _parcelU = (grid.pitchU - grid.street) / grid.parcelsU;
        _parcelV = (grid.pitchV - grid.street) / grid.parcelsV;
    }

    /** East, north of the grid's centre to u, v. */
    void toGrid(double e, double n, double& u, double& v) const
    {
        u = e * _cosA - n * _sinA;
        v = e * _sinA + n * _cosA;
    }
    void fromGrid(double u, double v, double& e, double& n) const
    {
        e = u * _cosA + v * _sinA;
        n = -u * _sinA + v * _cosA;
    }

    /** Distance across to the nearest north-south street's centre line, and
     *  the place along it (v); the same for the cross streets. */
    double acrossU(double u) const { return offsetFromLine(u + _width / 2, _grid.pitchU); }
    double acrossV(double v) const { return offsetFromLine(v + _depth / 2, _grid.pitchV); }

    bool inDistrict(double u, double v) const { return std::fabs(u) < _width / 2 && std::fabs(v) < _depth / 2; }

    /** The parcel (block column, row and parcel within) at u, v; false on a
     *  street or outside the district. */
    bool parcel(double u, double v, int& index) const
    {
        if (!inDistrict(u, v))
            return false;
        const double bu = u + _width / 2, bv = v + _depth / 2;
        const int column = static_cast<int>(bu / _grid.pitchU), row = static_cast<int>(bv / _grid.pitchV);
        const double inU = bu - column * _grid.pitchU - _grid.street / 2;
        const double inV = bv - row * _grid.pitchV - _grid.street / 2;
        if (inU < 0 || inV < 0 || inU >= _parcelU * _grid.parcelsU || inV >= _parcelV * _grid.parcelsV)
            return false;
        const int pu = static_cast<int>(inU / _parcelU), pv = static_cast<int>(inV / _parcelV);
        index = ((row * _grid.columns + column) * _grid.parcelsV + pv) * _grid.parcelsU + pu;
        return true;
    }
    int parcelCount() const { return _grid.columns * _grid.rows * _grid.parcelsU * _grid.parcelsV; }
    /** The centre of parcel `index` in u, v. */
    void parcelCentre(int index, double& u, double& v) const
    {
        const int pu = index % _grid.parcelsU;
        const int pv = (index / _grid.parcelsU) % _grid.parcelsV;
        const int cell = index / (_grid.parcelsU * _grid.parcelsV);
        const int column = cell % _grid.columns, row = cell / _grid.columns;
        u = -_width / 2 + column * _grid.pitchU + _grid.street / 2 + (pu + 0.5) * _parcelU;
        v = -_depth / 2 + row * _grid.pitchV + _grid.street / 2 + (pv + 0.5) * _parcelV;
    }
    double parcelU() const { return _parcelU; }
    double parcelV() const { return _parcelV; }
    const StreetGrid& grid() const { return _grid; }

private:
    /** Signed distance of `t` from the nearest multiple of `pitch`. */
    static double offsetFromLine(double t, double pitch) { return t - pitch * std::round(t / pitch); }

    StreetGrid _grid;
    double _cosA = 1.0, _sinA = 0.0;
    double _width = 0.0, _depth = 0.0;
    double _parcelU = 0.0, _parcelV = 0.0;
};

Rgb jitter(Random& random, const Rgb& c, double amount)
{
    const double shade = random.uniform(-amount, amount);
    return Rgb{c.r + shade + random.uniform(-amount, amount) * 0.3, c.g + shade + random.uniform(-amount, amount) * 0.3,
               c.b + shade + random.uniform(-amount, amount) * 0.3};
}

/** The visible area of a design's fine model and its triangles. */
struct DesignSurfaces
{
    osg::ref_ptr<osg::Node> model; // keeps the textures alive
    std::vector<SurfaceTriangle> triangles;
    double area = 0.0;
};

/** Whether a point of a building's surface lies inside one of its tiers (a
 *  lower roof under an upper tier), where no scan reaches. */
bool hiddenInside(const BuildingDesign& design, const osg::Vec3d& p, const osg::Vec3& normal)
{
    if (normal.z() < 0.5)
        return false;
    double base = -2.0;
    for (std::size_t t = 0; t < design.tiers.size(); ++t)
    {
        const Tier& tier = design.tiers[t];
        if (t > 0 && p.z() > base - 0.05 && p.z() < tier.top - 0.05 && insideRings(tier.footprint.loops, p.x(), p.y()))
            return true;
        base = tier.top;
    }
    return false;
}

} // namespace

PointCloudSummary writePointCloudSample(const std::string& outputDir, const SamplePlan& plan,
                                        const GroundHeights& ground, std::uint64_t seed, std::uint64_t points)
{
    const fs::path path = fs::path(outputDir) / kPointCloudPath;
    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    if (error)
        throw Error("cannot create the folder " + path.parent_path().string() + ": " + error.message());

    const StreetGrid grid = businessDistrictGrid();
    const StreetPlan streets(grid);
    const double lon0 = grid.lon, lat0 = grid.lat;
    const Random root = Random(seed).fork(0x9017C10D);

    // The WKT of the CRS as LAS files carry it (OGC WKT 1).
    std::string wkt;
    {
        PJ_CONTEXT* ctx = proj_context_create();
        proj_context_use_proj4_init_rules(ctx, 0);
        PJ* crs = proj_create(ctx, kPointCloudCrs);
        if (const char* text = crs ? proj_as_wkt(ctx, crs, PJ_WKT1_GDAL, nullptr) : nullptr)
            wkt = text;
        if (crs)
            proj_destroy(crs);
        proj_context_destroy(ctx);
        if (wkt.empty())
            throw Error(std::string("PROJ gives no WKT for ") + kPointCloudCrs);
    }

    // The district's buildings as the plan places them.
    const double phi = lat0 * kPi / 180.0;
    const double e2 = 6.69437999014e-3, a = 6378137.0;
    const double w = std::sqrt(1.0 - e2 * std::sin(phi) * std::sin(phi));
    const double metresPerLat = a * (1.0 - e2) / (w * w * w) * kPi / 180.0;
    const double metresPerLon = a / w * std::cos(phi) * kPi / 180.0;
    std::vector<Instance> buildings;
    std::map<std::size_t, DesignSurfaces> surfaces;
    for (const PlacedObject& object : plan.objects)
    {
        if (object.family != Family::Building)
            continue;
        const BuildingDesign& design = plan.buildings[object.design];
        if (design.stem.rfind(kBusinessDistrictPrefix, 0) != 0)
            continue;
        Instance b;
        b.design = &design;
        b.designIndex = object.design;
        b.lon = object.lon;
        b.lat = object.lat;
        b.east = (object.lon - lon0) * metresPerLon;
        b.north = (object.lat - lat0) * metresPerLat;
        b.base = ground.at(object.lon, object.lat);
        const double h = object.heading * kPi / 180.0;
        b.cosH = std::cos(h);
        b.sinH = std::sin(h);
        b.reach = 0.5 * std::hypot(design.width(), design.depth()) + 1.0;
        buildings.push_back(b);
        if (!surfaces.count(object.design))
        {
            DesignSurfaces s;
            s.model = buildingModel(design, Lod::Fine);
            TriangleCollector collector;
            s.model->accept(collector);
            s.triangles = std::move(collector.triangles);
            for (const SurfaceTriangle& t : s.triangles)
                s.area += t.area;
            surfaces.emplace(object.design, std::move(s));
        }
    }
    if (!buildings.empty())
    {
        const auto tallest = std::max_element(buildings.begin(), buildings.end(), [](const Instance& x, const Instance& y) {
            return x.design->height() < y.design->height();
        });
        tallest->userData = 1;
    }
    SquareIndex buildingIndex;
    for (std::size_t i = 0; i < buildings.size(); ++i)
        buildingIndex.add(i, buildings[i].east, buildings[i].north, buildings[i].reach);
    auto underBuilding = [&](double e, double n) {
        for (std::size_t i : buildingIndex.near(e, n))
            if (buildings[i].covers(e, n))
                return true;
        return false;
    };

    // Open parcels: lawns, and the pond in the first.
    std::vector<bool> open(static_cast<std::size_t>(streets.parcelCount()), true);
    for (const Instance& b : buildings)
    {
        double u, v;
        streets.toGrid(b.east, b.north, u, v);
        int index;
        if (streets.parcel(u, v, index))
            open[static_cast<std::size_t>(index)] = false;
    }
    int pond = -1;
    for (int i = 0; i < streets.parcelCount() && pond < 0; ++i)
        if (open[static_cast<std::size_t>(i)])
            pond = i;
    double pondU = 0.0, pondV = 0.0;
    if (pond >= 0)
        streets.parcelCentre(pond, pondU, pondV);
    const double pondA = streets.parcelU() / 2 - grid.margin - 4.0, pondB = streets.parcelV() / 2 - grid.margin - 4.0;
    auto inPond = [&](double u, double v) {
        if (pond < 0)
            return false;
        const double x = (u - pondU) / pondA, y = (v - pondV) / pondB;
        return x * x + y * y < 1.0;
    };

    const double areaWidth = 2 * kCloudHalfWidth, areaDepth = 2 * kCloudHalfDepth;
    const GroundGrid heights(ground, lon0, lat0, kCloudHalfWidth, kCloudHalfDepth, 20.0);

    // Trees: along both sides of every street, and scattered over the lawns.
    std::vector<Tree> trees;
    {
        Random random = root.fork(1);
        auto plant = [&](double e, double n, double scale) {
            if (std::fabs(e) > kCloudHalfWidth - 3 || std::fabs(n) > kCloudHalfDepth - 3)
                return;
            Tree t;
            t.east = e;
            t.north = n;
            t.radius = random.uniform(2.2, 3.8) * scale;
            t.centre = t.radius * 0.85 + random.uniform(2.5, 4.5);
            for (double dx : {-1.0, 0.0, 1.0})
                for (double dy : {-1.0, 0.0, 1.0})
                    if (underBuilding(e + dx * t.radius, n + dy * t.radius))
                        return;
            t.ground = heights.at(e, n);
            t.leaves = Rgb{random.uniform(0.16, 0.30), random.uniform(0.36, 0.52), random.uniform(0.12, 0.22)};
            trees.push_back(t);
        };
        const double kerb = grid.street / 2 + 2.0;
        const double reach = std::max(kCloudHalfWidth, kCloudHalfDepth) + grid.pitchU;
        for (double u0 = -grid.columns * grid.pitchU / 2 - 3 * grid.pitchU; u0 < reach; u0 += grid.pitchU)
            for (double side : {-kerb, kerb})
                for (double v = -reach; v < reach; v += 9.0)
                {
                    if (std::fabs(streets.acrossV(v)) < grid.street / 2 + 5.0)
                        continue; // the crossing
                    double e, n;
                    streets.fromGrid(u0 + side, v, e, n);
                    plant(e, n, 1.0);
                }
        for (double v0 = -grid.rows * grid.pitchV / 2 - 3 * grid.pitchV; v0 < reach; v0 += grid.pitchV)
            for (double side : {-kerb, kerb})
                for (double u = -reach; u < reach; u += 9.0)
                {
                    if (std::fabs(streets.acrossU(u)) < grid.street / 2 + 5.0)
                        continue;
                    double e, n;
                    streets.fromGrid(u, v0 + side, e, n);
                    plant(e, n, 1.0);
                }
        // Lawn trees: one to some 350 m2 of lawn, none in the pond.
        const double lawnStep = 18.7;
        for (double n = -kCloudHalfDepth; n < kCloudHalfDepth; n += lawnStep)
            for (double e = -kCloudHalfWidth; e < kCloudHalfWidth; e += lawnStep)
            {
                const double te = e + random.uniform(0.0, lawnStep), tn = n + random.uniform(0.0, lawnStep);
                double u, v;
                streets.toGrid(te, tn, u, v);
                int parcel;
                const bool inParcel = streets.parcel(u, v, parcel);
                const bool lawn = inParcel ? open[static_cast<std::size_t>(parcel)] : !streets.inDistrict(u, v);
                const double clear = grid.street / 2 + 9.0;
                if (!lawn || std::fabs(streets.acrossU(u)) < clear || std::fabs(streets.acrossV(v)) < clear)
                    continue;
                if (inPond(u, v) || inPond(u + 6, v) || inPond(u - 6, v) || inPond(u, v + 6) || inPond(u, v - 6))
                    continue;
                if (random.chance(0.35))
                    continue;
                plant(te, tn, random.uniform(1.0, 1.5));
            }
    }
    SquareIndex treeIndex;
    for (std::size_t i = 0; i < trees.size(); ++i)
        treeIndex.add(i, trees[i].east, trees[i].north, trees[i].radius);
    auto underTree = [&](double e, double n) {
        for (std::size_t i : treeIndex.near(e, n))
            if (std::hypot(e - trees[i].east, n - trees[i].north) < trees[i].radius)
                return true;
        return false;
    };

    // Written under a temporary name, renamed once complete.
    const std::string part = path.string() + ".part";
    struct PartRemover
    {
        std::string file;
        bool done = false;
        ~PartRemover()
        {
            std::error_code ignored;
            if (!done)
                fs::remove(file, ignored);
        }
    } remover{part};
    LasWriter writer(part, wkt, {0.001, 0.001, 0.001}, [&] {
        // The offset: the centre's UTM coordinates, whole kilometres.
        osg::Vec3d centre(lon0, lat0, 0.0), projected;
        globe::SpatialReference::create("wgs84")->transform(centre, globe::SpatialReference::create(kPointCloudCrs),
                                                            projected);
        return std::array<double, 3>{std::round(projected.x() / 1000.0) * 1000.0,
                                     std::round(projected.y() / 1000.0) * 1000.0, 0.0};
    }());
    CloudOutput out(writer, root.fork(2));

    // --- the ground, a jittered grid over the area --------------------------
    {
        Random random = root.fork(3);
        double footprints = 0.0;
        for (const Instance& b : buildings)
            footprints += b.design->width() * b.design->depth() * 0.8;
        const double groundArea = areaWidth * areaDepth - footprints;
        const double step = std::sqrt(groundArea / (kGroundShare * static_cast<double>(points)));
        const int columns = static_cast<int>(areaWidth / step), rows = static_cast<int>(areaDepth / step);
        const double half = grid.street / 2;
        for (int j = 0; j < rows; ++j)
            for (int i = 0; i < columns; ++i)
            {
                const double e = -kCloudHalfWidth + (i + 0.5 + random.uniform(-0.4, 0.4)) * step;
                const double n = -kCloudHalfDepth + (j + 0.5 + random.uniform(-0.4, 0.4)) * step;
                if (underBuilding(e, n))
                    continue;
                double u, v;
                streets.toGrid(e, n, u, v);
                const double du = std::fabs(streets.acrossU(u)), dv = std::fabs(streets.acrossV(v));
                PointLook look;
                double z = heights.at(e, n);
                int parcel = -1;
                const bool inParcel = streets.parcel(u, v, parcel);
                if (du < half || dv < half)
                {
                    // Asphalt, with lane lines and crossings.
                    look.colour = jitter(random, Rgb{0.27, 0.28, 0.30}, 0.03);
                    look.reflectance = 0.12;
                    const bool crossing = du < half && dv < half;
                    bool marking = false;
                    if (!crossing)
                    {
                        const double across = du < half ? du : dv;            // from the centre line
                        const double along = du < half ? v : u;               // along the street
                        const double toCrossing = du < half ? dv : du;        // to the crossing street's line
                        marking = (across < 0.2)                              // the centre line
                                  || (std::fabs(across - 7.0) < 0.15 && std::fmod(std::fabs(along), 9.0) < 4.5) // lanes
                                  || std::fabs(across - (half - 1.0)) < 0.15; // the edges
                        // Zebra crossings just before each crossing.
                        if (toCrossing > half && toCrossing < half + 4.0)
                            marking = std::fmod(across + 100.0, 1.2) < 0.6;
                    }
                    if (marking)
                    {
                        look.colour = jitter(random, Rgb{0.86, 0.86, 0.82}, 0.03);
                        look.reflectance = 0.55;
                    }
                }
                else if (du < half + 4.5 || dv < half + 4.5)
                {
                    // Pavements of square slabs.
                    const bool joint = std::fmod(std::fabs(u), 1.5) < 0.08 || std::fmod(std::fabs(v), 1.5) < 0.08;
                    look.colour = jitter(random, joint ? Rgb{0.48, 0.46, 0.43} : Rgb{0.64, 0.61, 0.56}, 0.03);
                    look.reflectance = 0.32;
                    z += 0.15; // the kerb
                }
                else if ((inParcel && open[static_cast<std::size_t>(parcel)]) || (!inParcel && !streets.inDistrict(u, v)))
                {
                    if (inPond(u, v))
                    {
                        // Few returns come back from water.
                        if (!random.chance(0.3))
                            continue;
                        look.colour = jitter(random, Rgb{0.13, 0.25, 0.30}, 0.02);
                        look.reflectance = 0.03;
                        look.classification = kWater;
                        look.userData = 2;
                        z -= 0.4;
                    }
                    else
                    {
                        // Lawn, mown in stripes.
                        const bool stripe = std::fmod(std::fabs(u) + 50.0, 6.0) < 3.0;
                        look.colour = jitter(random, stripe ? Rgb{0.33, 0.52, 0.22} : Rgb{0.29, 0.46, 0.19}, 0.04);
                        look.reflectance = 0.45;
                    }
                }
                else
                {
                    // Plazas around the buildings: light stone in a grid.
                    const bool band = std::fmod(std::fabs(u), 6.0) < 0.5 || std::fmod(std::fabs(v), 6.0) < 0.5;
                    look.colour = jitter(random, band ? Rgb{0.55, 0.50, 0.45} : Rgb{0.74, 0.70, 0.64}, 0.025);
                    look.reflectance = 0.36;
                    z += 0.15;
                }
                if (look.classification == kGround && underTree(e, n))
                {
                    // The last of two returns, under the leaves.
                    look.returnNumber = 2;
                    look.numberOfReturns = 2;
                }
                double lon, lat;
                offsetLonLat(lon0, lat0, e, n, lon, lat);
                out.add(lon, lat, z, look);
            }
    }

    // --- the buildings: their fine models' surfaces ------------------------
    {
        Random random = root.fork(4);
        double area = 0.0;
        for (const Instance& b : buildings)
            area += surfaces[b.designIndex].area;
        const double density = area > 0.0 ? kBuildingShare * static_cast<double>(points) / area : 0.0;
        for (const Instance& b : buildings)
        {
            const DesignSurfaces& s = surfaces[b.designIndex];
            for (const SurfaceTriangle& tri : s.triangles)
            {
                const double expected = tri.area * density;
                int count = static_cast<int>(expected);
                if (random.uniform() < expected - count)
                    ++count;
                for (int k = 0; k < count; ++k)
                {
                    const double r1 = std::sqrt(random.uniform()), r2 = random.uniform();
                    const double w0 = 1.0 - r1, w1 = r1 * (1.0 - r2), w2 = r1 * r2;
                    const osg::Vec3d p = osg::Vec3d(tri.p[0]) * w0 + osg::Vec3d(tri.p[1]) * w1 + osg::Vec3d(tri.p[2]) * w2;
                    if (p.z() < 0.05 || hiddenInside(*b.design, p, tri.normal))
                        continue;
                    PointLook look;
                    look.classification = kBuilding;
                    look.userData = b.userData;
                    Rgb colour{tri.colour.r(), tri.colour.g(), tri.colour.b()};
                    if (tri.texture)
                    {
                        const osg::Vec2 t = tri.t[0] * static_cast<float>(w0) + tri.t[1] * static_cast<float>(w1)
                                            + tri.t[2] * static_cast<float>(w2);
                        const Rgb pixel = texel(*tri.texture, t);
                        colour = Rgb{colour.r * pixel.r, colour.g * pixel.g, colour.b * pixel.b};
                    }
                    look.colour = jitter(random, colour, 0.02);
                    // Glass gives little back, pale plaster and concrete much.
                    look.reflectance = 0.08 + 0.5 * luminance(colour);
                    const double x = p.x() * b.cosH + p.y() * b.sinH;
                    const double y = -p.x() * b.sinH + p.y() * b.cosH;
                    look.normal.set(tri.normal.x() * b.cosH + tri.normal.y() * b.sinH,
                                    -tri.normal.x() * b.sinH + tri.normal.y() * b.cosH, tri.normal.z());
                    double lon, lat;
                    offsetLonLat(b.lon, b.lat, x, y, lon, lat);
                    out.add(lon, lat, b.base + p.z(), look);
                }
            }
        }
    }

    // --- the trees: crowns of leaves on short trunks -------------------------
    {
        Random random = root.fork(5);
        double area = 0.0;
        for (const Tree& t : trees)
            area += 4.0 * kPi * t.radius * t.radius;
        const double density = area > 0.0 ? kTreeShare * static_cast<double>(points) / area : 0.0;
        for (const Tree& t : trees)
        {
            const int count = static_cast<int>(std::lround(4.0 * kPi * t.radius * t.radius * density));
            for (int k = 0; k < count; ++k)
            {
                PointLook look;
                look.classification = kVegetation;
                osg::Vec3d offset;
                double depth = 1.0;
                if (k % 25 == 0)
                {
                    // The trunk, seen through the leaves.
                    offset.set(random.uniform(-0.15, 0.15), random.uniform(-0.15, 0.15),
                               random.uniform(0.3, t.centre - 0.5 * t.radius));
                    look.colour = jitter(random, Rgb{0.33, 0.26, 0.19}, 0.03);
                    look.normal.set(1.0, 0.0, 0.0);
                    look.reflectance = 0.35;
                    look.returnNumber = 3;
                    look.numberOfReturns = 3;
                }
                else
                {
                    // On and just under the crown's surface, mostly its upper part.
                    const double z = random.uniform(-0.55, 1.0);
                    const double ring = std::sqrt(std::max(0.0, 1.0 - z * z));
                    const double angle = random.uniform(0.0, 2.0 * kPi);
                    depth = random.chance(0.75) ? random.uniform(0.92, 1.0) : random.uniform(0.4, 0.92);
                    look.normal.set(ring * std::cos(angle), ring * std::sin(angle), z);
                    offset = osg::Vec3d(look.normal.x() * t.radius, look.normal.y() * t.radius,
                                        t.centre + look.normal.z() * t.radius * 0.85) ;
                    offset.x() *= depth;
                    offset.y() *= depth;
                    offset.z() = t.centre + (offset.z() - t.centre) * depth;
                    look.colour = jitter(random, depth > 0.92 ? t.leaves : Rgb{t.leaves.r * 0.7, t.leaves.g * 0.7, t.leaves.b * 0.7}, 0.05);
                    look.reflectance = 0.5;
                    look.numberOfReturns = 2;
                    look.returnNumber = depth > 0.92 ? 1 : 2;
                }
                double lon, lat;
                offsetLonLat(lon0, lat0, t.east + offset.x(), t.north + offset.y(), lon, lat);
                out.add(lon, lat, t.ground + offset.z(), look);
            }
        }
    }

    out.flush();
    writer.close();
    fs::rename(part, path, error);
    if (error)
        throw Error("cannot write " + path.string() + ": " + error.message());
    remover.done = true;

    PointCloudSummary summary = out.summary;
    summary.path = path.string();
    summary.points = writer.count();
    summary.buildingCount = buildings.size();
    summary.trees = trees.size();
    return summary;
}

} // namespace cxsample
