#include <grid/CXExtent>

const CXExtent CXExtent::INVALID;

CXExtent::CXExtent() : _xMin(0.0), _xMax(0.0), _yMin(0.0), _yMax(0.0) {}

CXExtent::CXExtent(double xMin, double xMax, double yMin, double yMax)
    : _xMin(xMin), _xMax(xMax), _yMin(yMin), _yMax(yMax)
{
}

CXExtent::~CXExtent() = default;

void CXExtent::getCentroid(double& x, double& y) const
{
    x = (_xMin + _xMax) / 2.0;
    y = (_yMin + _yMax) / 2.0;
}
