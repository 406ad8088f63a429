#include "HudImages.h"

#include "Error.h"
#include "PngFile.h"

#include <osg/Vec2d>
#include <osg/Vec4>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>

namespace cxsample
{

const char* const kCompassImagePath = "icon/Compass.PNG";
const char* const kPlateImagePath = "icon/plate.PNG";
const char* const kScaleBarImagePath = "myselftest/data/mapscale.png";

namespace
{

constexpr double kPi = 3.14159265358979323846;

// Samples per pixel along each axis: edges come out smooth.
constexpr int kSupersampling = 4;

/** A shape: true where the point (in the picture's own units) is inside. */
using Shape = std::function<bool(const osg::Vec2d&)>;

struct Layer
{
    Shape shape;
    osg::Vec4 colour; // straight alpha
};

/** Paints `layers` one over the other on a transparent width x height
 *  picture; `toShape` takes a pixel position (x from the left, y from the
 *  bottom, in pixels) to the shapes' units. */
osg::ref_ptr<osg::Image> paint(int width, int height, const std::function<osg::Vec2d(double, double)>& toShape,
                               const std::vector<Layer>& layers)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(width, height, 1, GL_RGBA, GL_UNSIGNED_BYTE);
    const double step = 1.0 / kSupersampling;
    for (int j = 0; j < height; ++j)
        for (int i = 0; i < width; ++i)
        {
            // Premultiplied sums over the samples.
            osg::Vec4d sum;
            for (int sy = 0; sy < kSupersampling; ++sy)
                for (int sx = 0; sx < kSupersampling; ++sx)
                {
                    const osg::Vec2d p = toShape(i + (sx + 0.5) * step, j + (sy + 0.5) * step);
                    osg::Vec4d c; // premultiplied
                    for (const Layer& layer : layers)
                    {
                        if (!layer.shape(p))
                            continue;
                        const double a = layer.colour.a();
                        c = osg::Vec4d(layer.colour.r() * a, layer.colour.g() * a, layer.colour.b() * a, a) +
                            c * (1.0 - a);
                    }
                    sum += c;
                }
            sum /= static_cast<double>(kSupersampling * kSupersampling);
            unsigned char* px = image->data(i, j);
            const double a = sum.a();
            auto byte = [](double v) {
                return static_cast<unsigned char>(std::lround(std::clamp(v, 0.0, 1.0) * 255.0));
            };
            px[0] = byte(a > 0.0 ? sum.r() / a : 0.0);
            px[1] = byte(a > 0.0 ? sum.g() / a : 0.0);
            px[2] = byte(a > 0.0 ? sum.b() / a : 0.0);
            px[3] = byte(a);
        }
    return image;
}

// Shapes in a square picture's units: the centre at (0, 0), the edges at +-1,
// y up.
std::function<osg::Vec2d(double, double)> squareUnits(int size)
{
    return [size](double x, double y) { return osg::Vec2d(2.0 * x / size - 1.0, 2.0 * y / size - 1.0); };
}

Shape disc(double radius)
{
    return [radius](const osg::Vec2d& p) { return p.length2() <= radius * radius; };
}

Shape ring(double inner, double outer)
{
    return [inner, outer](const osg::Vec2d& p) {
        const double r2 = p.length2();
        return r2 >= inner * inner && r2 <= outer * outer;
    };
}

double cross(const osg::Vec2d& a, const osg::Vec2d& b) { return a.x() * b.y() - a.y() * b.x(); }

Shape triangle(const osg::Vec2d& a, const osg::Vec2d& b, const osg::Vec2d& c)
{
    return [a, b, c](const osg::Vec2d& p) {
        const double d1 = cross(b - a, p - a), d2 = cross(c - b, p - b), d3 = cross(a - c, p - c);
        const bool negative = d1 < 0.0 || d2 < 0.0 || d3 < 0.0;
        const bool positive = d1 > 0.0 || d2 > 0.0 || d3 > 0.0;
        return !(negative && positive);
    };
}

/** A stroke of `width` from a to b, with round ends. */
Shape stroke(const osg::Vec2d& a, const osg::Vec2d& b, double width)
{
    return [a, b, width](const osg::Vec2d& p) {
        const osg::Vec2d d = b - a;
        const double t = std::clamp(((p - a) * d) / std::max(d.length2(), 1e-12), 0.0, 1.0);
        return (a + d * t - p).length2() <= 0.25 * width * width;
    };
}

Shape rectangle(double x0, double y0, double x1, double y1)
{
    return [=](const osg::Vec2d& p) { return p.x() >= x0 && p.x() <= x1 && p.y() >= y0 && p.y() <= y1; };
}

osg::Vec2d polar(double radius, double degreesFromNorth)
{
    const double a = degreesFromNorth * kPi / 180.0;
    return osg::Vec2d(radius * std::sin(a), radius * std::cos(a));
}

} // namespace

osg::ref_ptr<osg::Image> compassImage(int size)
{
    std::vector<Layer> layers;
    const osg::Vec4 shadow(0.0f, 0.0f, 0.0f, 0.35f);
    // The four points, each in a lit and a shaded half: north red and
    // longest, the others white.
    for (int k = 0; k < 4; ++k)
    {
        const double bearing = 90.0 * k;
        const bool north = k == 0;
        const double length = north ? 0.62 : 0.52;
        const double half = 0.13;
        const osg::Vec2d tip = polar(length, bearing);
        const osg::Vec2d left = polar(half, bearing - 90.0);
        const osg::Vec2d right = polar(half, bearing + 90.0);
        const osg::Vec2d offset(0.02, -0.02);
        layers.push_back({triangle(tip + offset, left + offset, right + offset), shadow});
        const osg::Vec4 lit = north ? osg::Vec4(0.93f, 0.2f, 0.17f, 1.0f) : osg::Vec4(0.96f, 0.96f, 0.94f, 1.0f);
        const osg::Vec4 shaded = north ? osg::Vec4(0.62f, 0.08f, 0.07f, 1.0f) : osg::Vec4(0.62f, 0.64f, 0.66f, 1.0f);
        layers.push_back({triangle(tip, left, osg::Vec2d(0.0, 0.0)), lit});
        layers.push_back({triangle(tip, osg::Vec2d(0.0, 0.0), right), shaded});
    }
    // The pivot.
    layers.push_back({disc(0.065), osg::Vec4(0.15f, 0.16f, 0.18f, 1.0f)});
    layers.push_back({disc(0.03), osg::Vec4(0.8f, 0.8f, 0.78f, 1.0f)});
    // "N" beyond the north point.
    const double w = 0.04, x0 = -0.05, x1 = 0.05, y0 = 0.655, y1 = 0.785;
    const osg::Vec4 letter(0.97f, 0.97f, 0.95f, 1.0f);
    layers.push_back({stroke({x0, y0}, {x0, y1}, w), letter});
    layers.push_back({stroke({x0, y1}, {x1, y0}, w), letter});
    layers.push_back({stroke({x1, y0}, {x1, y1}, w), letter});
    osg::ref_ptr<osg::Image> image = paint(size, size, squareUnits(size), layers);
    image->setFileName(kCompassImagePath);
    return image;
}

osg::ref_ptr<osg::Image> plateImage(int size)
{
    std::vector<Layer> layers;
    // A dark translucent disc with a light rim.
    layers.push_back({disc(0.96), osg::Vec4(0.0f, 0.0f, 0.0f, 0.3f)});
    layers.push_back({disc(0.93), osg::Vec4(0.08f, 0.12f, 0.18f, 0.55f)});
    layers.push_back({ring(0.88, 0.93), osg::Vec4(0.82f, 0.85f, 0.88f, 0.9f)});
    // Ticks every 10 degrees, longer and wider every 90.
    for (int k = 0; k < 36; ++k)
    {
        const double bearing = 10.0 * k;
        const bool major = k % 9 == 0;
        const bool medium = k % 3 == 0;
        const double inner = major ? 0.74 : (medium ? 0.77 : 0.80);
        const double width = major ? 0.04 : (medium ? 0.025 : 0.015);
        layers.push_back({stroke(polar(inner, bearing), polar(0.86, bearing), width),
                          osg::Vec4(0.9f, 0.92f, 0.94f, major ? 0.95f : 0.75f)});
    }
    osg::ref_ptr<osg::Image> image = paint(size, size, squareUnits(size), layers);
    image->setFileName(kPlateImagePath);
    return image;
}

osg::ref_ptr<osg::Image> scaleBarImage()
{
    // Shapes in the picture's pixels.
    const auto pixels = [](double x, double y) { return osg::Vec2d(x, y); };
    const double left = kScaleBarLeft, right = kScaleBarRight, bottom = kScaleBarBottom, top = kScaleBarTop;
    const double middle = 0.5 * (left + right);
    const double outline = 2.0, tick = 8.0;
    const osg::Vec4 black(0.05f, 0.05f, 0.05f, 1.0f), white(0.97f, 0.97f, 0.95f, 1.0f);
    std::vector<Layer> layers;
    // A soft shadow, the black frame with its end ticks, then the two
    // segments: black on the left, white on the right.
    layers.push_back({rectangle(left - outline + 2, bottom - outline - 2, right + outline + 2, top + outline - 2),
                      osg::Vec4(0.0f, 0.0f, 0.0f, 0.3f)});
    layers.push_back({rectangle(left - outline, bottom - outline, right + outline, top + outline), black});
    layers.push_back({rectangle(left - outline, top, left + outline, top + tick), black});
    layers.push_back({rectangle(right - outline, top, right + outline, top + tick), black});
    layers.push_back({rectangle(middle - 1.0, top, middle + 1.0, top + 0.5 * tick), black});
    layers.push_back({rectangle(left + outline, bottom + outline, middle, top - outline), black});
    layers.push_back({rectangle(middle, bottom + outline, right - outline, top - outline), white});
    osg::ref_ptr<osg::Image> image = paint(kScaleBarImageWidth, kScaleBarImageHeight, pixels, layers);
    image->setFileName(kScaleBarImagePath);
    return image;
}

std::vector<std::string> writeHudImages(const std::string& outputDir)
{
    const std::filesystem::path out(outputDir);
    const std::vector<std::pair<std::string, osg::ref_ptr<osg::Image>>> images = {
        {kCompassImagePath, compassImage(256)},
        {kPlateImagePath, plateImage(256)},
        {kScaleBarImagePath, scaleBarImage()},
    };
    std::vector<std::string> written;
    for (const auto& [path, image] : images)
    {
        const std::filesystem::path file = out / path;
        writePng(*image, file);
        written.push_back(file.string());
    }
    return written;
}

} // namespace cxsample
