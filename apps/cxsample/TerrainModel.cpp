#include "TerrainModel.h"

#include "MeshBuilder.h"
#include "Noise.h"
#include "Textures.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace cxsample
{

namespace
{

constexpr double kPi = 3.14159265358979323846;
constexpr double kSkirtDepth = 4.0; // how far the border skirt reaches below the ground
// Lake fractions (distance from the lake's centre over the shore line's): where
// the painted water ends, where the water surface ends (under the rising bank,
// which passes the water level at about 1.14), where the stone shore ends and
// where the path around the lake runs.
constexpr double kPaintedWater = 1.12;
constexpr double kWaterSurface = 1.17;
constexpr double kShoreEnd = 1.2;
constexpr double kLakePath = 1.36;

double smoothstep(double edge0, double edge1, double x)
{
    const double t = std::clamp((x - edge0) / (edge1 - edge0), 0.0, 1.0);
    return t * t * (3.0 - 2.0 * t);
}

double mix(double a, double b, double t) { return a + (b - a) * t; }

osg::Vec3 mix(const osg::Vec3& a, const osg::Vec3& b, double t)
{
    return a + (b - a) * static_cast<float>(std::clamp(t, 0.0, 1.0));
}

/** A smooth bump of height 1 at the centre, 0 from `radius` on; `stretch`
 *  lengthens it east-west into a ridge. */
double bump(const osg::Vec2d& centre, double radius, double stretch, double x, double y)
{
    const double dx = (x - centre.x()) / (radius * stretch), dy = (y - centre.y()) / radius;
    const double r = std::sqrt(dx * dx + dy * dy);
    if (r >= 1.0)
        return 0.0;
    return std::pow(0.5 + 0.5 * std::cos(kPi * r), 1.3);
}

double distanceToSegment(double x, double y, const osg::Vec2d& a, const osg::Vec2d& b)
{
    const osg::Vec2d p(x, y), ab = b - a;
    const double t = std::clamp(((p - a) * ab) / ab.length2(), 0.0, 1.0);
    return (p - (a + ab * t)).length();
}

} // namespace

double ParkDesign::shoreRadius(double angle) const
{
    return 1.0 + 0.12 * std::sin(3.0 * angle + 0.7) + 0.07 * std::sin(5.0 * angle + 2.1);
}

double ParkDesign::lakeFraction(double x, double y) const
{
    const double dx = (x - lake.x()) / lakeRadii.x(), dy = (y - lake.y()) / lakeRadii.y();
    return std::sqrt(dx * dx + dy * dy) / shoreRadius(std::atan2(dy, dx));
}

double ParkDesign::baseHeight(double x, double y) const
{
    if (!surroundings)
        return 0.0;
    const double atLake = surroundings(lake.x(), lake.y());
    return mix(atLake, surroundings(x, y), smoothstep(kLakePath, 2.0, lakeFraction(x, y)));
}

double ParkDesign::groundHeight(double x, double y) const
{
    const double fromEdge = std::min(width / 2 - std::fabs(x), depth / 2 - std::fabs(y));
    const double ramp = smoothstep(0.0, edgeRamp, fromEdge);
    const double undulation = 1.6 * (fractalNoise(x / 220.0, y / 220.0, seed, 3) - 0.5);
    const double roughness = 0.85 + 0.3 * fractalNoise(x / 90.0, y / 90.0, seed + 11, 3);
    const double hills = hillHeight * bump(hill, hillRadius, 1.35, x, y) * roughness
                         + moundHeight * bump(mound, moundRadius, 1.0, x, y) * roughness;
    double h = ramp * (lawnLevel + undulation * smoothstep(0.0, 120.0, fromEdge) + hills);
    const double q = lakeFraction(x, y);
    if (q < 1.3)
    {
        const double bed = waterLevel - 0.4 - lakeDepth * (1.0 - std::min(q, 1.0) * std::min(q, 1.0));
        h = mix(bed, h, smoothstep(1.0, 1.3, q));
    }
    return baseHeight(x, y) + h;
}

int terrainGridColumns(Lod lod)
{
    switch (lod)
    {
    case Lod::Fine:
        return 161;
    case Lod::Middle:
        return 81;
    case Lod::Crude:
        return 41;
    case Lod::Crude2:
        return 21;
    }
    return 21;
}

osg::ref_ptr<osg::Image> parkImage(const ParkDesign& design, int size)
{
    const osg::Vec3 lawnDry(0.55f, 0.6f, 0.33f), lawnLush(0.36f, 0.54f, 0.24f);
    const osg::Vec3 woodDark(0.12f, 0.26f, 0.1f), woodLight(0.24f, 0.4f, 0.16f);
    const osg::Vec3 waterDeep(0.14f, 0.3f, 0.4f), waterShallow(0.3f, 0.47f, 0.5f);
    const osg::Vec3 stone(0.74f, 0.71f, 0.64f), paving(0.8f, 0.77f, 0.7f);
    const osg::Vec3 wall(0.6f, 0.26f, 0.2f), glaze(0.88f, 0.68f, 0.2f);
    const osg::Vec2d summit = design.hill;
    const double w = design.width / 2, d = design.depth / 2;
    // Avenues from the four gates, and one from the mound to the lake.
    const std::vector<std::pair<osg::Vec2d, osg::Vec2d>> avenues = {
        {osg::Vec2d(-430.0, -d), summit},
        {osg::Vec2d(-w, 150.0), summit},
        {osg::Vec2d(w, -120.0), design.lake + osg::Vec2d(280.0, -150.0)},
        {osg::Vec2d(200.0, d), design.lake + osg::Vec2d(-60.0, 230.0)},
        {design.mound, design.lake + osg::Vec2d(40.0, -250.0)},
        {summit, design.lake + osg::Vec2d(-380.0, 40.0)}};
    const double metresPerPixel = design.width / size;

    return paintImage(size, size, design.stem + "_ground", [&](double u, double v) {
        const double x = (u - 0.5) * design.width, y = (v - 0.5) * design.depth;
        const double q = design.lakeFraction(x, y);
        if (q < kPaintedWater)
            return mix(waterDeep, waterShallow, smoothstep(0.6, kPaintedWater, q));
        if (q < kShoreEnd)
            return stone;

        // The red wall around the park.
        const double fromEdge = std::min(w - std::fabs(x), d - std::fabs(y));
        if (fromEdge < 5.0)
            return wall;

        // The pavilion and its terrace on the summit.
        const double fromSummit = (osg::Vec2d(x, y) - summit).length();
        if (fromSummit < 8.0)
            return fromSummit < 6.0 ? glaze : wall;
        if (fromSummit < 22.0)
            return paving;

        // Paths: around the lake, and the avenues, a little wavy.
        const double meanLakeRadius = 0.5 * (design.lakeRadii.x() + design.lakeRadii.y());
        double fromPath = std::fabs(q - kLakePath) * meanLakeRadius;
        for (const auto& avenue : avenues)
            fromPath = std::min(fromPath, distanceToSegment(x + 9.0 * std::sin(y / 70.0), y + 9.0 * std::sin(x / 80.0),
                                                            avenue.first, avenue.second));
        if (fromPath < std::max(3.0, metresPerPixel * 0.75))
            return paving;

        // Slopes facing the light (from the north-west) are brighter.
        const double step = 4.0;
        const double gx = (design.groundHeight(x + step, y) - design.groundHeight(x - step, y)) / (2 * step);
        const double gy = (design.groundHeight(x, y + step) - design.groundHeight(x, y - step)) / (2 * step);
        const double light = std::clamp(1.0 + 0.9 * (-gx * -0.7 + -gy * 0.7), 0.75, 1.15);

        // Woods: dense on the hill, in groves elsewhere; lawn between.
        const double onHill = bump(design.hill, design.hillRadius * 1.1, 1.35, x, y);
        const double woods = fractalNoise(x / 150.0, y / 150.0, design.seed + 21, 3) + 0.45 * onHill;
        const double crowns = valueNoise(x / 7.0, y / 7.0, design.seed + 31);
        osg::Vec3 colour;
        if (woods > 0.6)
            colour = mix(woodDark, woodLight, crowns);
        else
            colour = mix(lawnLush, lawnDry, fractalNoise(x / 60.0, y / 60.0, design.seed + 41, 2));
        return colour * static_cast<float>(light);
    });
}

osg::ref_ptr<osg::Node> terrainModel(const ParkDesign& design, Lod lod, const osg::Image& fineImage)
{
    const int columns = terrainGridColumns(lod);
    const int rows = static_cast<int>(std::lround((columns - 1) * design.depth / design.width)) + 1;
    const double dx = design.width / (columns - 1), dy = design.depth / (rows - 1);
    const osg::Vec4 white(1.0f, 1.0f, 1.0f, 1.0f);

    auto position = [&](int c, int r) {
        const double x = -design.width / 2 + c * dx, y = -design.depth / 2 + r * dy;
        return osg::Vec3(static_cast<float>(x), static_cast<float>(y), static_cast<float>(design.groundHeight(x, y)));
    };

    // The ground: a grid of heights with smooth normals.
    MeshBuilder ground;
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < columns; ++c)
        {
            const osg::Vec3 p = position(c, r);
            const double x = p.x(), y = p.y();
            const double gx = (design.groundHeight(x + dx, y) - design.groundHeight(x - dx, y)) / (2 * dx);
            const double gy = (design.groundHeight(x, y + dy) - design.groundHeight(x, y - dy)) / (2 * dy);
            osg::Vec3 normal(static_cast<float>(-gx), static_cast<float>(-gy), 1.0f);
            normal.normalize();
            ground.vertex(p, normal, white,
                          osg::Vec2(static_cast<float>(c) / (columns - 1), static_cast<float>(r) / (rows - 1)));
        }
    for (int r = 0; r + 1 < rows; ++r)
        for (int c = 0; c + 1 < columns; ++c)
        {
            const unsigned int a = static_cast<unsigned int>(r * columns + c), b = a + 1;
            const unsigned int e = a + static_cast<unsigned int>(columns), f = e + 1;
            ground.triangle(a, b, f);
            ground.triangle(a, f, e);
        }

    // The skirt around the border, facing out.
    std::vector<osg::Vec3> border;
    for (int c = 0; c < columns - 1; ++c)
        border.push_back(position(c, 0));
    for (int r = 0; r < rows - 1; ++r)
        border.push_back(position(columns - 1, r));
    for (int c = columns - 1; c > 0; --c)
        border.push_back(position(c, rows - 1));
    for (int r = rows - 1; r > 0; --r)
        border.push_back(position(0, r));
    MeshBuilder sides;
    const osg::Vec4 earth(0.45f, 0.36f, 0.26f, 1.0f);
    for (std::size_t i = 0; i < border.size(); ++i)
    {
        const osg::Vec3& a = border[i];
        const osg::Vec3& b = border[(i + 1) % border.size()];
        const osg::Vec3 down(0.0f, 0.0f, static_cast<float>(-kSkirtDepth));
        const auto base = [&](const osg::Vec3& p) {
            return osg::Vec3(p.x(), p.y(), static_cast<float>(design.baseHeight(p.x(), p.y()))) + down;
        };
        sides.quad(base(a), base(b), b, a, earth);
    }

    // The water: a fan over the lake out to a little beyond the shore line,
    // where the bank has risen through the water level.
    MeshBuilder water;
    const int segments = columns * 2 / 5;
    const osg::Vec3 up(0.0f, 0.0f, 1.0f);
    const osg::Vec4 blue(0.22f, 0.4f, 0.52f, 1.0f);
    const float level = static_cast<float>(design.baseHeight(design.lake.x(), design.lake.y()) + design.waterLevel);
    const unsigned int centre = water.vertex(
        osg::Vec3(static_cast<float>(design.lake.x()), static_cast<float>(design.lake.y()), level), up, blue);
    for (int i = 0; i < segments; ++i)
    {
        const double angle = 2.0 * kPi * i / segments;
        const double reach = design.shoreRadius(angle) * kWaterSurface;
        water.vertex(osg::Vec3(static_cast<float>(design.lake.x() + design.lakeRadii.x() * reach * std::cos(angle)),
                               static_cast<float>(design.lake.y() + design.lakeRadii.y() * reach * std::sin(angle)),
                               level),
                     up, blue);
    }
    for (int i = 0; i < segments; ++i)
        water.triangle(centre, centre + 1 + i, centre + 1 + (i + 1) % segments);

    osg::ref_ptr<osg::Image> texture;
    const int textureSize = fineImage.s() >> static_cast<int>(lod);
    if (lod == Lod::Fine)
        texture = new osg::Image(fineImage, osg::CopyOp::DEEP_COPY_ALL);
    else
        texture = shrinkImage(fineImage, textureSize, design.stem + "_ground_" + lodWord(lod));

    ModelAssembly model;
    model.add("ground", ground, texture.get());
    model.add("skirt", sides);
    model.add("water", water);
    return model.node(design.stem + "_" + lodWord(lod));
}

} // namespace cxsample
