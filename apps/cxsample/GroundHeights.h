// Ground heights for placing the objects, read from an elevation MBTiles file
// through the library's own elevation layer, as the globe will draw the ground.
#ifndef CXSAMPLE_GROUNDHEIGHTS_H
#define CXSAMPLE_GROUNDHEIGHTS_H

#include <osg/ref_ptr>

#include <string>

namespace globe
{
class ElevationLayer;
}

namespace cxsample
{

class GroundHeights
{
public:
    /** Heights from the file at `demPath`; an empty path gives 0 everywhere.
     *  Throws Error when the file is missing or not an elevation pyramid. */
    explicit GroundHeights(const std::string& demPath);
    ~GroundHeights();
    GroundHeights(const GroundHeights&) = delete;
    GroundHeights& operator=(const GroundHeights&) = delete;

    bool hasSource() const { return _layer.valid(); }

    /** Metres at (lon, lat); 0 where the file has no data or there is no file. */
    double at(double lon, double lat) const;

private:
    osg::ref_ptr<globe::ElevationLayer> _layer;
};

} // namespace cxsample

#endif
