// The tile factory of the terrain: builds the nodes of the geodetic quadtree
// (a tile's textured, skirted grid under a tile-centre transform, and the
// paged LOD that swaps it for its four children), and names the pseudo files
// through which the database pager asks for them.
//
// One builder serves one state of a map (its layer list at one revision).
// Everything it reads after construction is immutable or thread-safe (the
// map's layers), and the nodes it makes share nothing mutable with each
// other or with the scene, so the database pager's thread and the frame
// thread may both use it.
#ifndef CXVIEWER_GLOBE_TERRAINTILEBUILDER_H
#define CXVIEWER_GLOBE_TERRAINTILEBUILDER_H

#include <globe/HorizonCullCallback>
#include <globe/Map>
#include <globe/TileKey>

#include <osg/CoordinateSystemNode>
#include <osg/Image>
#include <osg/MatrixTransform>
#include <osg/PagedLOD>
#include <osg/observer_ptr>
#include <osg/ref_ptr>
#include <osgDB/Options>

#include <atomic>
#include <memory>
#include <string>

namespace globe
{
namespace detail
{

/** Tunables of a terrain. */
struct TerrainSettings
{
    /** Grid points along each side of a tile. */
    unsigned int tileGridSize = 17;
    /** Width and height of a tile's texture in pixels. */
    unsigned int imageSize = 256;
    /** Deepest level of the quadtree. */
    unsigned int maxLevel = 19;
    /** A tile is replaced by its children closer than this many tile radii. */
    double rangeFactor = 6.0;
    /** Depth of the skirts as a share of the tile's north-south size. */
    double skirtRatio = 0.05;
    /** Tiles wholly behind the horizon are culled (see HorizonCullCallback). */
    bool horizonCulling = true;

    bool operator==(const TerrainSettings& rhs) const;
    bool operator!=(const TerrainSettings& rhs) const { return !(*this == rhs); }
};

/** Colour of the ground where no image layer has data: ocean, turning to ice
  * over Antarctica (south of 65 S to 75 S). RGB, 8 bits. */
void baseColourAt(double latitude, unsigned char rgb[3]);

class TerrainTileBuilder : public osg::Referenced
{
public:
    /** A builder for the layers of `map`, on `ellipsoid`. */
    TerrainTileBuilder(const Map* map, const osg::EllipsoidModel* ellipsoid, const TerrainSettings& settings);

    /** The builder that made `options` (the database options of its paged
      * nodes), when it still exists. `retired` tells whether the options
      * came from a builder that is gone (its terrain was rebuilt or
      * destroyed), as opposed to options that never had one. */
    static osg::ref_ptr<TerrainTileBuilder> fromOptions(const osgDB::Options* options, bool* retired = nullptr);

    /** The extension of the pseudo files: "globe_terrain". */
    static const char* extension();

    /** What a pseudo-file name asks for. */
    struct Request
    {
        unsigned long builder = 0; ///< the builder's serial number
        bool roots = false;        ///< the two level-0 tiles
        TileKey parent;            ///< else: the four children of this tile
    };
    /** Reads a pseudo-file name; false when it is not one. */
    static bool parseFileName(const std::string& fileName, Request& out);

    /** The node at the top of the terrain: a paged LOD whose one child, the
      * two level-0 tiles, the pager reads. */
    osg::ref_ptr<osg::PagedLOD> createRootNode() const;

    /** The two level-0 tiles. */
    osg::ref_ptr<osg::Group> createRootTiles() const;
    /** The four children of `parent` (north-west, north-east, south-west,
      * south-east); null past the deepest level or for an invalid key. */
    osg::ref_ptr<osg::Group> createChildTiles(const TileKey& parent) const;
    /** What the request names: null when it is not this builder's, an
      * empty group when the builder was cancelled (the request belongs to a
      * tree that left the scene). Children that cannot be built are
      * answered with the parent's own model, so that a failed request is
      * never repeated and leaves no hole. */
    osg::ref_ptr<osg::Node> read(const Request& request) const;

    /** One tile as the quadtree holds it: a paged LOD whose first child is
      * the tile's model and whose second, paged, is its four children; the
      * bare model where the tile is not refined (see refines()). */
    osg::ref_ptr<osg::Node> createTileNode(const TileKey& key) const;

    /** Where a tile lies: its centre (world), the radius of a sphere about
      * it holding the whole tile with its skirts, and the distance below
      * which the children replace it. */
    struct TileBounds
    {
        osg::Vec3d center;
        double radius = 0.0;
        double splitDistance = 0.0;
    };
    /** The tile's model: a transform to the tile centre holding the grid
      * geometry with skirts, normals, texture coordinates and the tile's
      * texture in its state set. Null for an invalid key. */
    osg::ref_ptr<osg::MatrixTransform> createTileModel(const TileKey& key, TileBounds* bounds = nullptr) const;

    /** The tile's imagery: the image layers composited in map order over the
      * base colour; RGB, row 0 at the south. */
    osg::ref_ptr<osg::Image> createImage(const TileKey& key) const;

    /** Grid points along each side of `key`'s tile: the setting's, more for
      * tiles so large that the grid would sag under the ellipsoid. */
    unsigned int gridPointsFor(const TileKey& key) const;

    /** Whether `key`'s tile gets children: below the deepest level, while
      * its grid cells sag more than a metre under the ellipsoid, or while
      * some layer has data finer than the tile shows (half a texel or half a
      * grid cell per source pixel); past that the children would only
      * magnify the same data. A tile without children is never refined, so
      * the pager is never asked for tiles that add nothing. */
    bool refines(const TileKey& key) const;

    /** The height at (lon, lat) of the ground as the finest tile there
      * draws it: the tile's grid heights interpolated over its triangles.
      * `level` receives that tile's level when given. */
    double surfaceHeight(double lon, double lat, unsigned int* level = nullptr) const;
    /** The shallowest level whose grid sags at most a metre. */
    unsigned int getShapeLevel() const { return _shapeLevel; }

    /** The pseudo-file name of the two root tiles and of a tile's children. */
    std::string rootFileName() const;
    std::string childrenFileName(const TileKey& parent) const;

    /** The database options of the paged nodes; they lead the pseudo-file
      * reader back to this builder. */
    osgDB::Options* getDatabaseOptions() const { return _options.get(); }

    /** Stops serving: later reads give nothing. Any thread. */
    void cancel() { _cancelled.store(true); }
    bool isCancelled() const { return _cancelled.load(); }

    unsigned long getSerial() const { return _serial; }
    const TerrainSettings& getSettings() const { return _settings; }
    /** Tile models built so far, on any thread. */
    unsigned long getNumTilesBuilt() const { return _tilesBuilt.load(); }

protected:
    ~TerrainTileBuilder() override;

private:
    osg::ref_ptr<const Map> _map;
    osg::ref_ptr<const osg::EllipsoidModel> _ellipsoid;
    TerrainSettings _settings;
    unsigned long _serial;
    osg::ref_ptr<osgDB::Options> _options;
    /** Shared by all tiles; null when horizon culling is off. */
    osg::ref_ptr<HorizonCullCallback> _horizonCull;
    unsigned int _shapeLevel = 0;
    std::atomic<bool> _cancelled{false};
    mutable std::atomic<unsigned long> _tilesBuilt{0};
};

} // namespace detail
} // namespace globe

#endif
