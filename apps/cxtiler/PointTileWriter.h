// Writes the octree's nodes as the viewer's point cloud tiles (.osgb):
//
//   cloud.osgb        the root: an osg::PagedLOD named "PoRoot"
//   r.osgb            the root's children: one osg::Group of their PagedLODs
//   r5.osgb, r52.osgb ...  the children of node 5, of its child 2, ...
//   0123/r0123.osgb   every fourth level starts a folder, so that no folder
//                     holds more than 8^4 files
//
// Every tile is an osg::PagedLOD: child 0 inline, an osg::MatrixTransform
// named "ARSCmark" (the root) or "ARSCmark<n>" (n: its octant number) that
// moves its geometry to the anchor, the geocentric position of the cube's
// centre; child 1, only for a tile with children, is the file of its
// children, named relative to the file that holds the tile and loaded by
// distance: range [0, lodFactor * cube edge] around the cube's centre.
//
// The geometry: GL_POINTS of geocentric offsets from the anchor, the colour,
// and per-vertex attributes at fixed locations: 10 "position" (the point in
// the octree frame), 11 "numberOfReturns", 12 "returnNumber", 13
// "usingFlag" (LAS user data), 14 "intensity", 15 "classfication".
// Uniforms: "offset", "currentNodeSize" and "spacing" on each tile's
// transform; "minz", "maxz", "isCircle", "flag" and "flagColor" on the root.
#ifndef CXTILER_POINTTILEWRITER_H
#define CXTILER_POINTTILEWRITER_H

#include "PointOctree.h"

#include <osg/Group>
#include <osg/PagedLOD>
#include <osg/ref_ptr>

#include <string>

namespace globe
{
class SpatialReference;
}

namespace cxtiler
{

/** The attribute locations of the tiles' geometry. */
enum PointAttribute
{
    kPositionAttribute = 10,
    kNumberOfReturnsAttribute = 11,
    kReturnNumberAttribute = 12,
    kUsingFlagAttribute = 13,
    kIntensityAttribute = 14,
    kClassificationAttribute = 15
};

/** The name of the root file of a tile set. */
extern const char* const kPointCloudRootFile; // "cloud.osgb"

struct TileSetStats
{
    std::uint64_t tiles = 0;
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
    std::uint64_t points = 0;
    std::size_t largestTile = 0;
};

class PointTileWriter : public TileSink
{
public:
    /** Tiles into `folder` (which exists) for points in `frame`, whose CRS is
     *  `frameSrs`; `minz`, `maxz`: the cloud's heights in the frame. */
    PointTileWriter(const std::string& folder, const OctreeFrame& frame, const globe::SpatialReference* frameSrs,
                    double lodFactor, float minz, float maxz);

    void root(const NodeKey& key, std::vector<PointRecord>& points, bool hasChildren) override;
    void beginGroup(const NodeKey& parent) override;
    void tile(const NodeKey& key, std::vector<PointRecord>& points, bool hasChildren) override;
    void endGroup(const NodeKey& parent) override;

    const TileSetStats& stats() const { return _stats; }

    /** The file, relative to the tile set's folder, that holds the children
     *  of the node with octant path `path` ("" for the root). */
    static std::string childrenFile(const std::string& path);

private:
    osg::ref_ptr<osg::PagedLOD> makeTile(const NodeKey& key, const std::vector<PointRecord>& points, bool hasChildren);
    void write(osg::Node& node, const std::string& relative);

    std::string _folder;
    OctreeFrame _frame;
    const globe::SpatialReference* _frameSrs;
    const globe::SpatialReference* _geocentric;
    double _lodFactor;
    float _minz, _maxz;
    osg::ref_ptr<osg::Group> _group;
    TileSetStats _stats;
};

} // namespace cxtiler

#endif
