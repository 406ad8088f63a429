#include "SourceReader.h"

#include "Error.h"

#include <osg/Image>
#include <osgDB/ReadFile>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>
#include <sstream>
#include <utility>

namespace fs = std::filesystem;

namespace cxtiler
{

namespace
{

constexpr std::int16_t kSrtmVoid = -32768;

osg::ref_ptr<osg::Image> loadImage(const std::string& path)
{
    std::error_code ec;
    const fs::file_status status = fs::status(path, ec);
    if (!fs::exists(status))
        throw Error("cannot read '" + path + "': no such file");
    if (fs::is_directory(status))
        throw Error("cannot read '" + path + "': it is a folder, not an image");
    osg::ref_ptr<osg::Image> image = osgDB::readRefImageFile(path);
    if (!image || !image->data() || image->s() < 1 || image->t() < 1)
        throw Error("cannot read '" + path + "': not an image this tool can decode (PNG, JPEG, TIFF)");
    if (image->r() != 1)
        throw Error("'" + path + "' is a 3D image; a flat image is needed");
    return image;
}

/** Row `row` counted from the top of the picture, whatever the image's origin. */
const unsigned char* topDownRow(const osg::Image& image, int row)
{
    const int stored = image.getOrigin() == osg::Image::BOTTOM_LEFT ? image.t() - 1 - row : row;
    return image.data(0, stored);
}

std::string sizeText(const osg::Image& image)
{
    return std::to_string(image.s()) + " x " + std::to_string(image.t());
}

void requireWholeEarth(const osg::Image& image, const std::string& path)
{
    if (image.s() != 2 * image.t())
        throw Error("'" + path + "' is " + sizeText(image)
                    + " pixels; a whole-Earth equirectangular grid is exactly twice as wide as it is high");
}

bool isRgb8(const osg::Image& image)
{
    return image.getDataType() == GL_UNSIGNED_BYTE
           && (image.getPixelFormat() == GL_RGB || image.getPixelFormat() == GL_RGBA);
}

/** Appends the SRTM heights of `image` into `heights` (row-major, `stride` wide) at column `offset`. */
void decodeSrtm(const osg::Image& image, std::vector<float>& heights, int stride, int offset)
{
    const int channels = image.getPixelFormat() == GL_RGBA ? 4 : 3;
    for (int row = 0; row < image.t(); ++row)
    {
        const unsigned char* p = topDownRow(image, row);
        float* out = heights.data() + static_cast<std::size_t>(row) * stride + offset;
        for (int column = 0; column < image.s(); ++column, p += channels)
        {
            const auto value = static_cast<std::int16_t>(static_cast<std::uint16_t>((p[1] << 8) | p[2]));
            out[column] = value == kSrtmVoid ? std::numeric_limits<float>::quiet_NaN() : static_cast<float>(value);
        }
    }
}

HeightSource readSrtmPair(const std::string& westPath, const std::string& eastPath)
{
    const osg::ref_ptr<osg::Image> west = loadImage(westPath);
    const osg::ref_ptr<osg::Image> east = loadImage(eastPath);
    for (const auto& [image, path] : {std::pair{west.get(), &westPath}, std::pair{east.get(), &eastPath}})
    {
        if (!isRgb8(*image))
            throw Error("'" + *path + "' is not an 8-bit RGB image, so not an RGB-encoded SRTM tile");
        if (image->s() != image->t())
            throw Error("'" + *path + "' is " + sizeText(*image)
                        + " pixels; an SRTM hemisphere tile is square");
    }
    if (west->s() != east->s())
        throw Error("the SRTM tiles differ in size: '" + westPath + "' is " + sizeText(*west) + ", '" + eastPath
                    + "' is " + sizeText(*east));

    const int size = west->s();
    std::vector<float> heights(static_cast<std::size_t>(2 * size) * size);
    decodeSrtm(*west, heights, 2 * size, 0);
    decodeSrtm(*east, heights, 2 * size, size);
    std::ostringstream what;
    what << "SRTM tiles " << westPath << " + " << eastPath << " (" << 2 * size << " x " << size << ")";
    return HeightSource{HeightGrid(2 * size, size, std::move(heights)), true, what.str()};
}

HeightSource readSrtmFolder(const std::string& folder)
{
    for (const fs::path& dir : {fs::path(folder), fs::path(folder) / "0" / "000000"})
    {
        const fs::path west = dir / "000000_000000.png";
        const fs::path east = dir / "000000_000001.png";
        if (fs::is_regular_file(west) && fs::is_regular_file(east))
            return readSrtmPair(west.string(), east.string());
    }
    throw Error("'" + folder + "' holds no SRTM tiles (000000_000000.png and 000000_000001.png, directly or in 0/000000/)");
}

HeightSource readSingleGrid(const std::string& path)
{
    const osg::ref_ptr<osg::Image> image = loadImage(path);
    requireWholeEarth(*image, path);
    const int width = image->s();
    const int height = image->t();
    std::vector<float> heights(static_cast<std::size_t>(width) * height);

    if (isRgb8(*image))
    {
        decodeSrtm(*image, heights, width, 0);
        return HeightSource{HeightGrid(width, height, std::move(heights)), true,
                            "RGB-encoded SRTM grid " + path + " (" + sizeText(*image) + ")"};
    }

    const GLenum type = image->getDataType();
    if (osg::Image::computeNumComponents(image->getPixelFormat()) != 1
        || (type != GL_UNSIGNED_SHORT && type != GL_SHORT && type != GL_FLOAT))
        throw Error("'" + path + "' is neither a single-channel 16-bit (or float) height image nor an RGB-encoded SRTM grid");

    for (int row = 0; row < height; ++row)
    {
        const unsigned char* bytes = topDownRow(*image, row);
        float* out = heights.data() + static_cast<std::size_t>(row) * width;
        for (int column = 0; column < width; ++column)
        {
            if (type == GL_FLOAT)
            {
                float value = 0.0f;
                std::memcpy(&value, bytes + column * sizeof(float), sizeof(float));
                out[column] = std::isfinite(value) ? value : std::numeric_limits<float>::quiet_NaN();
            }
            else
            {
                // 16-bit PNGs are unsigned on disk; heights are their two's complement reading.
                std::int16_t value = 0;
                std::memcpy(&value, bytes + column * sizeof(value), sizeof(value));
                out[column] = value == kSrtmVoid ? std::numeric_limits<float>::quiet_NaN() : static_cast<float>(value);
            }
        }
    }
    return HeightSource{HeightGrid(width, height, std::move(heights)), false,
                        "height grid " + path + " (" + sizeText(*image) + ")"};
}

} // namespace

EquirectImage readEquirectImage(const std::string& path)
{
    const osg::ref_ptr<osg::Image> image = loadImage(path);
    requireWholeEarth(*image, path);

    const int width = image->s();
    const int height = image->t();
    const GLenum format = image->getPixelFormat();
    const bool alpha = format == GL_RGBA || format == GL_BGRA || format == GL_LUMINANCE_ALPHA || format == GL_ALPHA;
    const int channels = alpha ? 4 : 3;
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width) * height * channels);

    if (isRgb8(*image))
    {
        const std::size_t rowBytes = static_cast<std::size_t>(width) * channels;
        for (int row = 0; row < height; ++row)
            std::memcpy(pixels.data() + row * rowBytes, topDownRow(*image, row), rowBytes);
    }
    else
    {
        // Any other layout (grey, BGR, 16-bit, float) through OSG's generic colour access.
        const bool bottomUp = image->getOrigin() == osg::Image::BOTTOM_LEFT;
        for (int row = 0; row < height; ++row)
        {
            const int stored = bottomUp ? height - 1 - row : row;
            std::uint8_t* out = pixels.data() + static_cast<std::size_t>(row) * width * channels;
            for (int column = 0; column < width; ++column, out += channels)
            {
                osg::Vec4 c = image->getColor(column, stored);
                if (format == GL_LUMINANCE || format == GL_LUMINANCE_ALPHA || format == GL_RED || format == GL_INTENSITY)
                    c.g() = c.b() = c.r();
                for (int k = 0; k < channels; ++k)
                    out[k] = static_cast<std::uint8_t>(std::clamp(c[k], 0.0f, 1.0f) * 255.0f + 0.5f);
            }
        }
    }
    return EquirectImage(width, height, channels, std::move(pixels));
}

HeightSource readHeightSource(const std::vector<std::string>& inputs)
{
    if (inputs.size() == 2)
        return readSrtmPair(inputs[0], inputs[1]);
    if (inputs.size() != 1)
        throw Error("an elevation source is one image, one folder of SRTM tiles, or the west and east SRTM tiles");
    std::error_code ec;
    if (fs::is_directory(inputs[0], ec))
        return readSrtmFolder(inputs[0]);
    return readSingleGrid(inputs[0]);
}

} // namespace cxtiler
