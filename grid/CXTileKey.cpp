#include <grid/CXTileKey>

const CXTileKey CXTileKey::INVALID(0, 0, 0, new CXProfile);

CXTileKey::CXTileKey(unsigned int lod, unsigned int x, unsigned int y, const CXProfile* profile_)
    : _lod(lod), _x(x), _y(y), extent(), profile(profile_)
{
    if (!profile)
    {
        extent = CXExtent::INVALID;
        return;
    }
    double width = 0.0, height = 0.0;
    profile->getTileDimensions(lod, width, height);
    const double left = profile->extent.xMin() + width * static_cast<double>(x);
    const double bottom = profile->extent.yMin() + height * static_cast<double>(y);
    extent = CXExtent(left, left + width, bottom, bottom + height);
}

CXTileKey::~CXTileKey() = default;

CXTileKey CXTileKey::createChildKey(unsigned int quadrant) const
{
    unsigned int childX = _x * 2;
    unsigned int childY = _y * 2;
    if (quadrant == 1)
        childX += 1;
    else if (quadrant == 2)
        childY += 1;
    else if (quadrant == 3)
    {
        childX += 1;
        childY += 1;
    }
    // Children and parents always live on a fresh default profile.
    return CXTileKey(_lod + 1, childX, childY, new CXProfile);
}

CXTileKey CXTileKey::createParentKey() const
{
    if (_lod == 0)
        return INVALID;
    return CXTileKey(_lod - 1, _x / 2, _y / 2, new CXProfile);
}
