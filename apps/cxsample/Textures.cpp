#include "Textures.h"

#include "Noise.h"

#include <osg/Texture2D>

#include <algorithm>
#include <cmath>

namespace cxsample
{

namespace
{

unsigned char toByte(float value)
{
    return static_cast<unsigned char>(std::lround(std::clamp(value, 0.0f, 1.0f) * 255.0f));
}

bool inside(double f, double low, double high) { return f >= low && f < high; }

/** The colour of a facade at (fx, fy) within the bay of column `bay` and floor
 *  `floor`; fx, fy in [0, 1). `shade` in [0, 1) is the bay's own variation. */
osg::Vec3 facadeColour(FacadeStyle style, double fx, double fy, double shade, bool blind)
{
    const osg::Vec3 plaster(0.93f, 0.92f, 0.89f);
    const osg::Vec3 frame(0.42f, 0.43f, 0.45f);
    // Glass darkens with depth and mirrors the sky at the top of the pane.
    auto glass = [&](double top, const osg::Vec3& base) {
        const float sky = static_cast<float>(0.22 * std::clamp((fy - top + 0.6) / 0.6, 0.0, 1.0));
        const float variation = static_cast<float>(0.8 + 0.35 * shade);
        return osg::Vec3(base.x() * variation + sky * 0.6f, base.y() * variation + sky * 0.75f,
                         base.z() * variation + sky);
    };
    switch (style)
    {
    case FacadeStyle::Punched:
    {
        if (inside(fy, 0.22, 0.27) && inside(fx, 0.16, 0.84))
            return osg::Vec3(0.78f, 0.77f, 0.74f); // sill
        if (!inside(fx, 0.2, 0.8) || !inside(fy, 0.27, 0.82))
            return plaster;
        if (!inside(fx, 0.24, 0.76) || !inside(fy, 0.31, 0.78) || inside(fx, 0.48, 0.52))
            return frame;
        if (blind && fy > 0.58)
            return osg::Vec3(0.78f, 0.74f, 0.64f);
        return glass(0.78, osg::Vec3(0.16f, 0.21f, 0.28f));
    }
    case FacadeStyle::Ribbon:
    {
        if (!inside(fy, 0.36, 0.93))
            return plaster;
        if (fx < 0.04 || inside(fy, 0.36, 0.39))
            return frame;
        return glass(0.93, osg::Vec3(0.2f, 0.28f, 0.34f));
    }
    case FacadeStyle::CurtainWall:
    {
        if (fy < 0.07)
            return osg::Vec3(0.24f, 0.29f, 0.32f); // spandrel at the floor slab
        if (fx < 0.035 || inside(fx, 0.49, 0.51) || inside(fy, 0.07, 0.09))
            return osg::Vec3(0.62f, 0.66f, 0.68f); // mullions and transom
        return glass(1.0, osg::Vec3(0.3f, 0.44f, 0.52f));
    }
    case FacadeStyle::TwinWindows:
    {
        const bool left = inside(fx, 0.12, 0.42), right = inside(fx, 0.58, 0.88);
        if (!(left || right) || !inside(fy, 0.3, 0.8))
            return plaster;
        if (!inside(fy, 0.33, 0.77) || inside(fx, 0.12, 0.15) || inside(fx, 0.39, 0.42) || inside(fx, 0.58, 0.61)
            || inside(fx, 0.85, 0.88))
            return frame;
        if (blind && fy > 0.55)
            return osg::Vec3(0.8f, 0.77f, 0.7f);
        return glass(0.77, osg::Vec3(0.15f, 0.2f, 0.26f));
    }
    }
    return plaster;
}

osg::ref_ptr<osg::Image> newImage(int width, int height, const std::string& name)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(width, height, 1, GL_RGB, GL_UNSIGNED_BYTE);
    image->setInternalTextureFormat(GL_RGB8);
    image->setFileName(name);
    image->setWriteHint(osg::Image::STORE_INLINE);
    return image;
}

} // namespace

osg::ref_ptr<osg::Image> paintImage(int width, int height, const std::string& name,
                                    const std::function<osg::Vec3(double u, double v)>& colour)
{
    osg::ref_ptr<osg::Image> image = newImage(width, height, name);
    for (int j = 0; j < height; ++j)
    {
        unsigned char* p = image->data(0, static_cast<unsigned int>(j));
        for (int i = 0; i < width; ++i, p += 3)
        {
            const osg::Vec3 c = colour((i + 0.5) / width, (j + 0.5) / height);
            p[0] = toByte(c.x());
            p[1] = toByte(c.y());
            p[2] = toByte(c.z());
        }
    }
    return image;
}

osg::ref_ptr<osg::Image> facadeImage(FacadeStyle style, int size, std::uint64_t seed, const std::string& name)
{
    return paintImage(size, size, name, [&](double u, double v) {
        const double bx = u * kFacadeBays, fy = v * kFacadeFloors;
        const long bay = static_cast<long>(bx), floor = static_cast<long>(fy);
        const double shade = latticeValue(bay, floor, seed);
        const bool blind = latticeValue(bay, floor, seed + 1) < 0.3;
        return facadeColour(style, bx - bay, fy - floor, shade, blind);
    });
}

osg::ref_ptr<osg::Image> shrinkImage(const osg::Image& image, int size, const std::string& name)
{
    const int factor = image.s() / size;
    osg::ref_ptr<osg::Image> small = newImage(size, size, name);
    for (int j = 0; j < size; ++j)
        for (int i = 0; i < size; ++i)
        {
            unsigned int sum[3] = {0, 0, 0};
            for (int y = 0; y < factor; ++y)
            {
                const unsigned char* p = image.data(static_cast<unsigned int>(i * factor),
                                                    static_cast<unsigned int>(j * factor + y));
                for (int x = 0; x < factor; ++x, p += 3)
                    for (int c = 0; c < 3; ++c)
                        sum[c] += p[c];
            }
            unsigned char* q = small->data(static_cast<unsigned int>(i), static_cast<unsigned int>(j));
            for (int c = 0; c < 3; ++c)
                q[c] = static_cast<unsigned char>((sum[c] + factor * factor / 2) / (factor * factor));
        }
    return small;
}

osg::Vec3 meanColour(const osg::Image& image)
{
    double sum[3] = {0.0, 0.0, 0.0};
    for (int j = 0; j < image.t(); ++j)
    {
        const unsigned char* p = image.data(0, static_cast<unsigned int>(j));
        for (int i = 0; i < image.s(); ++i, p += 3)
            for (int c = 0; c < 3; ++c)
                sum[c] += p[c];
    }
    const double n = 255.0 * image.s() * image.t();
    return osg::Vec3(static_cast<float>(sum[0] / n), static_cast<float>(sum[1] / n), static_cast<float>(sum[2] / n));
}

osg::ref_ptr<osg::StateSet> textureState(osg::Image* image)
{
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D(image);
    texture->setWrap(osg::Texture::WRAP_S, osg::Texture::REPEAT);
    texture->setWrap(osg::Texture::WRAP_T, osg::Texture::REPEAT);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR_MIPMAP_LINEAR);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    texture->setResizeNonPowerOfTwoHint(false);
    osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    state->setTextureAttributeAndModes(0, texture.get(), osg::StateAttribute::ON);
    return state;
}

} // namespace cxsample
