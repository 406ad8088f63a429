#include <grid/CXProfile>

#include <cmath>

CXProfile::CXProfile() : extent(0.0, 1000.0, 0.0, 1000.0) {}

CXProfile::CXProfile(const CXProfile& rhs) : osg::Referenced(rhs), extent(rhs.extent) {}

CXProfile& CXProfile::operator=(const CXProfile& rhs)
{
    // osg::Referenced's assignment leaves the reference count alone.
    osg::Referenced::operator=(rhs);
    extent = rhs.extent;
    return *this;
}

CXProfile::~CXProfile() = default;

void CXProfile::getTileDimensions(unsigned int lod, double& width, double& height) const
{
    // Single precision on purpose: keys computed elsewhere with the same
    // rounding must land on the same edges.
    const double tiles = static_cast<double>(powf(2.0f, static_cast<float>(lod)));
    width = (extent.xMax() - extent.xMin()) / tiles;
    height = (extent.yMax() - extent.yMin()) / tiles;
}

std::vector<std::string> CXProfile::splitStr(const std::string& str, const std::string& pattern) const
{
    std::vector<std::string> pieces;
    std::string::size_type start = 0;
    for (;;)
    {
        const std::string::size_type match = str.find(pattern, start);
        if (match == std::string::npos)
            break;
        pieces.push_back(str.substr(start, match - start));
        start = match + pattern.size();
    }
    std::string tail = str.substr(start);
    if (!tail.empty())
        pieces.push_back(std::move(tail));
    return pieces;
}
