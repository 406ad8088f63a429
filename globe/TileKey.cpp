#include <globe/TileKey>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace globe
{

TileKey::TileKey() : _level(0), _x(0), _y(0), _valid(false), _west(0.0), _south(0.0), _east(0.0), _north(0.0) {}

TileKey::TileKey(unsigned int level, unsigned int x, unsigned int y) : TileKey()
{
    if (level > MAX_LEVEL || x >= getNumTilesWide(level) || y >= getNumTilesHigh(level))
        return;
    _level = level;
    _x = x;
    _y = y;
    _valid = true;
    const double size = 180.0 / static_cast<double>(1u << level);
    _west = -180.0 + size * x;
    _east = (x + 1 == getNumTilesWide(level)) ? 180.0 : _west + size;
    _north = 90.0 - size * y;
    _south = (y + 1 == getNumTilesHigh(level)) ? -90.0 : _north - size;
}

unsigned int TileKey::getNumTilesWide(unsigned int level)
{
    return level > MAX_LEVEL ? 0u : 2u << level;
}

unsigned int TileKey::getNumTilesHigh(unsigned int level)
{
    return level > MAX_LEVEL ? 0u : 1u << level;
}

void TileKey::getExtent(double& west, double& south, double& east, double& north) const
{
    west = _west;
    south = _south;
    east = _east;
    north = _north;
}

bool TileKey::contains(double lon, double lat) const
{
    if (!_valid)
        return false;
    const bool inLon = lon >= _west && (lon < _east || (_east == 180.0 && lon <= 180.0));
    const bool inLat = lat >= _south && (lat < _north || (_north == 90.0 && lat <= 90.0));
    return inLon && inLat;
}

TileKey TileKey::createChildKey(unsigned int quadrant) const
{
    if (!_valid || quadrant > 3 || _level >= MAX_LEVEL)
        return TileKey();
    return TileKey(_level + 1, _x * 2 + (quadrant & 1u), _y * 2 + (quadrant >> 1));
}

TileKey TileKey::createParentKey() const
{
    if (!_valid || _level == 0)
        return TileKey();
    return TileKey(_level - 1, _x / 2, _y / 2);
}

TileKey TileKey::createAncestorKey(unsigned int level) const
{
    if (!_valid || level > _level)
        return TileKey();
    const unsigned int shift = _level - level;
    return TileKey(level, _x >> shift, _y >> shift);
}

unsigned int TileKey::getQuadrant() const
{
    return (_x & 1u) | ((_y & 1u) << 1);
}

TileKey TileKey::fromLonLat(double lon, double lat, unsigned int level)
{
    if (level > MAX_LEVEL || !std::isfinite(lon) || !std::isfinite(lat))
        return TileKey();
    double wrapped = std::fmod(lon + 180.0, 360.0);
    if (wrapped < 0.0)
        wrapped += 360.0;
    const double size = 180.0 / static_cast<double>(1u << level);
    const double clampedLat = std::clamp(lat, -90.0, 90.0);
    const unsigned int wide = getNumTilesWide(level);
    const unsigned int high = getNumTilesHigh(level);
    const unsigned int x = std::min(wide - 1, static_cast<unsigned int>(wrapped / size));
    const unsigned int y = std::min(high - 1, static_cast<unsigned int>((90.0 - clampedLat) / size));
    return TileKey(level, x, y);
}

std::string TileKey::str() const
{
    if (!_valid)
        return "invalid";
    return std::to_string(_level) + "/" + std::to_string(_x) + "/" + std::to_string(_y);
}

bool TileKey::fromString(const std::string& text, TileKey& out)
{
    unsigned int level = 0, x = 0, y = 0;
    int consumed = 0;
    if (std::sscanf(text.c_str(), "%u/%u/%u%n", &level, &x, &y, &consumed) != 3
        || consumed != static_cast<int>(text.size()) || text.empty() || text[0] == '-')
        return false;
    // Reject signs anywhere: sscanf's %u accepts "-1".
    if (text.find_first_of("+- ") != std::string::npos)
        return false;
    const TileKey key(level, x, y);
    if (!key.valid())
        return false;
    out = key;
    return true;
}

bool TileKey::operator<(const TileKey& rhs) const
{
    if (_valid != rhs._valid)
        return !_valid;
    if (_level != rhs._level)
        return _level < rhs._level;
    if (_y != rhs._y)
        return _y < rhs._y;
    return _x < rhs._x;
}

std::size_t TileKey::hash() const
{
    if (!_valid)
        return 0;
    std::size_t h = _level;
    h = h * 0x9E3779B97F4A7C15ull + _x;
    h = h * 0x9E3779B97F4A7C15ull + _y;
    return h ^ (h >> 29);
}

} // namespace globe
