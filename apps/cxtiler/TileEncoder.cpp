#include "TileEncoder.h"

#include "Error.h"

#include <osg/Image>
#include <osgDB/Registry>

#include <cstring>
#include <sstream>

namespace cxtiler
{

std::string formatName(TileFormat format)
{
    return format == TileFormat::Png ? "png" : "jpg";
}

std::vector<std::uint8_t> encodeTile(const std::uint8_t* pixels, int size, int channels, TileFormat format,
                                     int jpegQuality)
{
    const bool jpeg = format == TileFormat::Jpeg;
    const int outChannels = jpeg ? 3 : channels;
    const GLenum pixelFormat = outChannels == 4 ? GL_RGBA : GL_RGB;

    // OSG images keep the bottom row first and its writers flip them back, so the
    // tile's north row goes last.
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(size, size, 1, pixelFormat, GL_UNSIGNED_BYTE);
    for (int row = 0; row < size; ++row)
    {
        const std::uint8_t* in = pixels + static_cast<std::size_t>(row) * size * channels;
        std::uint8_t* out = image->data(0, size - 1 - row);
        if (outChannels == channels)
        {
            std::memcpy(out, in, static_cast<std::size_t>(size) * channels);
            continue;
        }
        for (int column = 0; column < size; ++column)
            std::memcpy(out + column * outChannels, in + column * channels, outChannels);
    }

    const std::string extension = jpeg ? "jpg" : "png";
    osgDB::ReaderWriter* writer = osgDB::Registry::instance()->getReaderWriterForExtension(extension);
    if (!writer)
        throw Error("OpenSceneGraph has no " + extension + " image plugin to write tiles with");
    osg::ref_ptr<osgDB::Options> options = new osgDB::Options;
    if (jpeg)
        options->setOptionString("JPEG_QUALITY " + std::to_string(jpegQuality));

    std::ostringstream stream(std::ios::out | std::ios::binary);
    const osgDB::ReaderWriter::WriteResult result = writer->writeImage(*image, stream, options.get());
    if (!result.success())
        throw Error("cannot encode a " + extension + " tile: " + result.message());
    const std::string bytes = stream.str();
    return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
}

} // namespace cxtiler
