// Ground heights for placing the objects, read from an elevation MBTiles file
// through the library's own elevation layer, as the globe will draw the ground.
#ifndef CXSAMPLE_GROUNDHEIGHTS_H
#define CXSAMPLE_GROUNDHEIGHTS_H

#include <osg/ref_ptr>

#include <string>

namespace globe
{
class ElevationLayer;
class ImageLayer;
class TerrainEngine;
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

    /** The ground at (lon, lat) as the globe's finest terrain tile draws it
     *  (its grid interpolated over its triangles), for surfaces that must
     *  lie on it rather than on the data; 0 without a file. How deep the
     *  terrain goes also depends on the imagery shown with the heights:
     *  give it with setImagery(). */
    double surfaceAt(double lon, double lat) const;

    /** The imagery the globe shows with the heights (an image MBTiles file);
     *  throws Error when it cannot be read. */
    void setImagery(const std::string& imagePath);

private:
    osg::ref_ptr<globe::ElevationLayer> _layer;
    osg::ref_ptr<globe::ImageLayer> _imagery;
    mutable osg::ref_ptr<globe::TerrainEngine> _terrain; // made on first use
};

} // namespace cxsample

#endif
