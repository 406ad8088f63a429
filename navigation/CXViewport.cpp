#include <navigation/CXViewport>

CXViewport::CXViewport() : _focalPoint(0.0, 0.0, 0.0), _heading(0.0), _pitch(0.0), _range(1.0), _valid(false) {}

CXViewport::CXViewport(const osg::Vec3d& focalPoint, double heading, double pitch, double range)
    : _focalPoint(focalPoint), _heading(heading), _pitch(pitch), _range(range), _valid(true)
{
}

CXViewport::CXViewport(const CXViewport& rhs) = default;
CXViewport& CXViewport::operator=(const CXViewport& rhs) = default;
CXViewport::~CXViewport() = default;
