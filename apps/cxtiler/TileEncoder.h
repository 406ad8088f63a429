// Turns tile pixels into the bytes stored in an MBTiles file (PNG or JPEG through
// OpenSceneGraph's image plugins), and the Terrain-RGB height encoding.
#ifndef CXTILER_TILEENCODER_H
#define CXTILER_TILEENCODER_H

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace cxtiler
{

enum class TileFormat
{
    Png,
    Jpeg
};

/** The MBTiles metadata spelling of a format: "png" or "jpg". */
std::string formatName(TileFormat format);

/**
 * Encodes a square tile of `size` x `size` pixels with 3 (RGB) or 4 (RGBA)
 * channels, rows from the top (north) down. JPEG drops an alpha channel.
 * Throws Error when the plugin is missing or fails.
 */
std::vector<std::uint8_t> encodeTile(const std::uint8_t* pixels, int size, int channels, TileFormat format,
                                     int jpegQuality);

/** Height in metres as Terrain-RGB: h = -10000 + (R * 65536 + G * 256 + B) * 0.1,
 *  rounded to the nearest 0.1 m and clamped to the encodable range. */
inline void encodeTerrainRgb(float height, std::uint8_t* rgb)
{
    double code = std::nearbyint((static_cast<double>(height) + 10000.0) * 10.0);
    code = !(code >= 0.0) ? 0.0 : (code > 16777215.0 ? 16777215.0 : code); // NaN gives the floor too
    const auto value = static_cast<std::uint32_t>(code);
    rgb[0] = static_cast<std::uint8_t>(value >> 16);
    rgb[1] = static_cast<std::uint8_t>((value >> 8) & 0xff);
    rgb[2] = static_cast<std::uint8_t>(value & 0xff);
}

inline double decodeTerrainRgb(std::uint8_t r, std::uint8_t g, std::uint8_t b)
{
    return -10000.0 + (r * 65536.0 + g * 256.0 + b) * 0.1;
}

} // namespace cxtiler

#endif
