#include "SkyBoxImages.h"

#include "Error.h"
#include "PngFile.h"
#include "Random.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <ostream>
#include <vector>

namespace cxsample
{

const char* const kSkyBoxFolder = "skybox";
const std::array<const char*, 6> kSkyBoxFaceNames = {"posx", "negx", "posy", "negy", "posz", "negz"};

namespace
{

namespace fs = std::filesystem;

constexpr double kPi = 3.14159265358979323846;
// Stars in the whole sky, and the magnitudes they span (three times as many
// stars each magnitude fainter).
constexpr int kStarCount = 6000;
constexpr double kBrightest = -1.0;
constexpr double kFaintest = 6.5;

double smoothstep(double edge0, double edge1, double x)
{
    const double t = std::clamp((x - edge0) / (edge1 - edge0), 0.0, 1.0);
    return t * t * (3.0 - 2.0 * t);
}

osg::Vec3 mix(const osg::Vec3& a, const osg::Vec3& b, double t)
{
    return a * static_cast<float>(1.0 - t) + b * static_cast<float>(t);
}

// Smooth value noise in three dimensions, in [0, 1): a function of the
// point alone, so that it is continuous over the whole sphere.
double valueNoise3(const osg::Vec3d& p, std::uint64_t seed)
{
    const double fx = std::floor(p.x()), fy = std::floor(p.y()), fz = std::floor(p.z());
    const long x0 = static_cast<long>(fx), y0 = static_cast<long>(fy), z0 = static_cast<long>(fz);
    auto lattice = [seed](long x, long y, long z) {
        const std::uint64_t h = Random::mix(seed ^ Random::mix(static_cast<std::uint64_t>(x) * 0x9E3779B97F4A7C15ull ^
                                                               static_cast<std::uint64_t>(y) * 0xC2B2AE3D27D4EB4Full ^
                                                               static_cast<std::uint64_t>(z) * 0x165667B19E3779F9ull));
        return static_cast<double>(h >> 11) * (1.0 / 9007199254740992.0);
    };
    const double tx = smoothstep(0.0, 1.0, p.x() - fx), ty = smoothstep(0.0, 1.0, p.y() - fy),
                 tz = smoothstep(0.0, 1.0, p.z() - fz);
    double value = 0.0;
    for (int k = 0; k < 2; ++k)
        for (int j = 0; j < 2; ++j)
            for (int i = 0; i < 2; ++i)
            {
                const double w = (i ? tx : 1.0 - tx) * (j ? ty : 1.0 - ty) * (k ? tz : 1.0 - tz);
                value += w * lattice(x0 + i, y0 + j, z0 + k);
            }
    return value;
}

// The band of the Milky Way: faint light near a tilted great circle, mottled.
double milkyWay(const osg::Vec3d& n, std::uint64_t seed)
{
    static const osg::Vec3d pole = [] {
        osg::Vec3d v(0.35, -0.55, 0.76);
        v.normalize();
        return v;
    }();
    const double offPlane = n * pole;
    const double band = std::exp(-(offPlane * offPlane) / (2.0 * 0.13 * 0.13));
    const double mottle = 0.45 * valueNoise3(n * 5.0, seed) + 0.35 * valueNoise3(n * 11.0, seed + 1) +
                          0.20 * valueNoise3(n * 23.0, seed + 2);
    return band * smoothstep(0.35, 0.85, mottle);
}

// How much of the horizon's glow is in a direction (0 to about 1), and how
// warm it is there (0 cool, 1 towards the set sun in the west).
void glowAt(const osg::Vec3d& n, double& strength, double& warmth)
{
    const double horizontal = std::hypot(n.x(), n.y());
    const double west = horizontal > 1e-9 ? -n.x() / horizontal : 0.0;
    warmth = std::pow(0.5 * (1.0 + west), 3.0);
    const double z = n.z();
    const double band = z >= 0.0 ? std::exp(-z / 0.10) : std::exp(z / 0.05);
    strength = band * (0.45 + 0.55 * warmth);
}

struct Star
{
    osg::Vec3d direction;
    osg::Vec3 colour; // brightness included
};

std::vector<Star> makeStars(std::uint64_t seed)
{
    Random random(Random::mix(seed ^ 0x5EA75A11ull));
    const double low = std::pow(3.0, kBrightest), high = std::pow(3.0, kFaintest);
    std::vector<Star> stars;
    stars.reserve(kStarCount);
    for (int i = 0; i < kStarCount; ++i)
    {
        // Evenly over the sphere.
        const double z = random.uniform(-1.0, 1.0);
        const double phi = random.uniform(0.0, 2.0 * kPi);
        const double r = std::sqrt(std::max(0.0, 1.0 - z * z));
        Star star;
        star.direction = osg::Vec3d(r * std::cos(phi), r * std::sin(phi), z);
        const double magnitude = std::log(low + (high - low) * random.uniform()) / std::log(3.0);
        // Brighter than the sky has them, so that the fainter ones show on a
        // screen at all.
        const double brightness = std::min(1.6, std::pow(10.0, -0.2 * (magnitude - 1.5)));
        const osg::Vec3 tint = mix(osg::Vec3(0.72f, 0.82f, 1.0f), osg::Vec3(1.0f, 0.86f, 0.66f), random.uniform());
        star.colour = tint * static_cast<float>(brightness);
        stars.push_back(star);
    }
    return stars;
}

unsigned char toByte(float value)
{
    return static_cast<unsigned char>(std::lround(std::clamp(value, 0.0f, 1.0f) * 255.0f));
}

} // namespace

osg::Vec3d cubeFaceDirection(int face, double s, double t)
{
    const double a = 2.0 * s - 1.0, b = 2.0 * t - 1.0;
    switch (face)
    {
    case 0: return osg::Vec3d(1.0, -b, -a);
    case 1: return osg::Vec3d(-1.0, -b, a);
    case 2: return osg::Vec3d(a, 1.0, b);
    case 3: return osg::Vec3d(a, -1.0, -b);
    case 4: return osg::Vec3d(a, -b, 1.0);
    default: return osg::Vec3d(-a, -b, -1.0);
    }
}

void cubeFaceOf(const osg::Vec3d& d, int& face, double& s, double& t)
{
    const double ax = std::abs(d.x()), ay = std::abs(d.y()), az = std::abs(d.z());
    double sc = 0.0, tc = 0.0, ma = 1.0;
    if (ax >= ay && ax >= az)
    {
        face = d.x() >= 0.0 ? 0 : 1;
        ma = ax;
        sc = d.x() >= 0.0 ? -d.z() : d.z();
        tc = -d.y();
    }
    else if (ay >= az)
    {
        face = d.y() >= 0.0 ? 2 : 3;
        ma = ay;
        sc = d.x();
        tc = d.y() >= 0.0 ? d.z() : -d.z();
    }
    else
    {
        face = d.z() >= 0.0 ? 4 : 5;
        ma = az;
        sc = d.z() >= 0.0 ? d.x() : -d.x();
        tc = -d.y();
    }
    s = 0.5 * (sc / ma + 1.0);
    t = 0.5 * (tc / ma + 1.0);
}

osg::Vec3 skyColour(const osg::Vec3d& direction)
{
    osg::Vec3d n = direction;
    n.normalize();
    // The night: darkest towards the poles of the box, a little lighter
    // towards the horizon. Below the horizon it is night sky as well: on a
    // globe the ground hides it, and from space it lies behind the Earth.
    const osg::Vec3 zenith(0.006f, 0.010f, 0.032f);
    const osg::Vec3 lowSky(0.030f, 0.045f, 0.095f);
    osg::Vec3 colour = mix(zenith, lowSky, std::exp(-std::abs(n.z()) / 0.35));
    // The glow along the horizon, warm where the sun went down.
    double strength = 0.0, warmth = 0.0;
    glowAt(n, strength, warmth);
    const osg::Vec3 glow = mix(osg::Vec3(0.10f, 0.17f, 0.34f), osg::Vec3(0.88f, 0.46f, 0.17f), warmth);
    colour += glow * static_cast<float>(strength);
    return colour;
}

std::array<osg::ref_ptr<osg::Image>, 6> skyBoxFaces(int size, std::uint64_t seed)
{
    // Light per face and texel, accumulated in floating point.
    std::array<std::vector<osg::Vec3>, 6> light;
    const auto texelDirection = [size](int face, int column, int row) {
        osg::Vec3d d = cubeFaceDirection(face, (column + 0.5) / size, (row + 0.5) / size);
        d.normalize();
        return d;
    };
    for (int face = 0; face < 6; ++face)
    {
        light[face].resize(static_cast<std::size_t>(size) * size);
        for (int row = 0; row < size; ++row)
            for (int column = 0; column < size; ++column)
            {
                const osg::Vec3d n = texelDirection(face, column, row);
                double strength = 0.0, warmth = 0.0;
                glowAt(n, strength, warmth);
                const double band = milkyWay(n, seed) * std::max(0.0, 1.0 - 2.5 * strength);
                light[face][static_cast<std::size_t>(row) * size + column] =
                    skyColour(n) + osg::Vec3(0.085f, 0.085f, 0.10f) * static_cast<float>(band);
            }
    }

    // Stars: a small round spot each, by the angle from its direction, on
    // every face it reaches, so that a star on an edge is split exactly.
    const double sigma = 1.1 / size;
    const int reach = 6;
    for (const Star& star : makeStars(seed))
    {
        double strength = 0.0, warmth = 0.0;
        glowAt(star.direction, strength, warmth);
        const double seen = std::max(0.0, 1.0 - 1.8 * strength);
        if (seen <= 0.0)
            continue;
        const osg::Vec3 colour = star.colour * static_cast<float>(seen);
        for (int face = 0; face < 6; ++face)
        {
            const osg::Vec3d axis = cubeFaceDirection(face, 0.5, 0.5);
            const double along = star.direction * axis;
            if (along < 0.3)
                continue;
            // The star on this face's plane, possibly just beyond the face.
            const osg::Vec3d onPlane = star.direction / along;
            double s = 0.0, t = 0.0;
            {
                const osg::Vec3d dS = cubeFaceDirection(face, 1.0, 0.5) - axis; // s from 0.5 to 1
                const osg::Vec3d dT = cubeFaceDirection(face, 0.5, 1.0) - axis;
                s = 0.5 + 0.5 * ((onPlane - axis) * dS);
                t = 0.5 + 0.5 * ((onPlane - axis) * dT);
            }
            const int c0 = std::max(0, static_cast<int>(std::floor(s * size)) - reach);
            const int c1 = std::min(size - 1, static_cast<int>(std::floor(s * size)) + reach);
            const int r0 = std::max(0, static_cast<int>(std::floor(t * size)) - reach);
            const int r1 = std::min(size - 1, static_cast<int>(std::floor(t * size)) + reach);
            for (int row = r0; row <= r1; ++row)
                for (int column = c0; column <= c1; ++column)
                {
                    const double angle2 = (texelDirection(face, column, row) - star.direction).length2();
                    const double w = std::exp(-angle2 / (2.0 * sigma * sigma));
                    if (w > 1e-4)
                        light[face][static_cast<std::size_t>(row) * size + column] += colour * static_cast<float>(w);
                }
        }
    }

    std::array<osg::ref_ptr<osg::Image>, 6> faces;
    for (int face = 0; face < 6; ++face)
    {
        osg::ref_ptr<osg::Image> image = new osg::Image;
        image->allocateImage(size, size, 1, GL_RGB, GL_UNSIGNED_BYTE);
        image->setFileName(std::string(kSkyBoxFaceNames[face]) + ".png");
        for (int row = 0; row < size; ++row)
            for (int column = 0; column < size; ++column)
            {
                const osg::Vec3& c = light[face][static_cast<std::size_t>(row) * size + column];
                unsigned char* p = image->data(column, row);
                p[0] = toByte(c.x());
                p[1] = toByte(c.y());
                p[2] = toByte(c.z());
            }
        faces[face] = image;
    }
    return faces;
}

SkyBoxSummary writeSkyBoxImages(const std::string& outputDir, std::uint64_t seed, std::ostream* progress, int size)
{
    const fs::path folder = fs::path(outputDir) / kSkyBoxFolder;
    makeFolder(folder);

    SkyBoxSummary summary;
    summary.folder = folder.string();
    summary.stars = kStarCount;
    const std::array<osg::ref_ptr<osg::Image>, 6> faces = skyBoxFaces(size, seed);
    for (int face = 0; face < 6; ++face)
    {
        summary.bytes += writePng(*faces[face], folder / (std::string(kSkyBoxFaceNames[face]) + ".png"));
        ++summary.faces;
    }
    if (progress)
        *progress << "skybox: 6 faces of " << size << " x " << size << " pixels, " << kStarCount << " stars\n"
                  << std::flush;
    return summary;
}

} // namespace cxsample
