// The octree of a point cloud, built with bounded memory.
//
// The frame: the cloud's projected CRS shifted so that the root cube's lowest
// corner is (0, 0, 0). A node at level L is a cube of edge root / 2^L; its
// children are its eight half cubes, numbered 4 * ix + 2 * iy + iz.
//
// Which points a node keeps: a node that receives at most the tile budget
// keeps them all and is a leaf. A larger one lays a grid of 128 cells a side
// over its cube (cells of the level's spacing, root edge / 128 / 2^L), lets
// the point of lowest priority (a hash of its place in the input) stand for
// each cell, keeps the budget's worth of cells of lowest cell priority (a
// hash of the cell: an even draw of the occupied cells, however densely each
// is filled), and passes every other point down to the child cube it lies
// in. Every point thus ends in exactly one node, and each node holds at most
// one point per cell of its spacing, spread evenly over what reached it. At
// the deepest level (23) a node keeps what it receives.
//
// Memory: the points of a subtree are held in memory only when they fit the
// memory capacity; above that they are streamed through spill files, one per
// child cube, and each node's selection needs only the budget's worth of
// points at once. Children are built one level at a time, so that the file
// holding a node's children (see TileSink) can be written as soon as they are
// chosen.
#ifndef CXTILER_POINTOCTREE_H
#define CXTILER_POINTOCTREE_H

#include "PointRecord.h"

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace cxtiler
{

/** Bits of the integer coordinates of a point in the root cube. */
constexpr int kKeyBits = 30;
/** A node's selection grid has 2^kGridBits cells a side. */
constexpr int kGridBits = 7;
constexpr int kGridCells = 1 << kGridBits;
/** The deepest level: there a node's grid cells are single key steps. */
constexpr int kMaxLevel = kKeyBits - kGridBits;

struct OctreeFrame
{
    /** The root cube's lowest corner in the CRS of the frame. */
    double originX = 0.0, originY = 0.0, originZ = 0.0;
    /** The root cube's edge, metres. */
    double edge = 1.0;

    double rootSpacing() const { return edge / kGridCells; }
};

/** A node: its level and the integer coordinates of its cube at that level
 *  (0 .. 2^level - 1 on each axis). */
struct NodeKey
{
    int level = 0;
    std::uint32_t x = 0, y = 0, z = 0;

    NodeKey child(int octant) const
    {
        return NodeKey{level + 1, (x << 1) | ((octant >> 2) & 1u), (y << 1) | ((octant >> 1) & 1u),
                       (z << 1) | (octant & 1u)};
    }
    /** The octant number of this node within its parent. */
    int octant() const { return static_cast<int>(((x & 1u) << 2) | ((y & 1u) << 1) | (z & 1u)); }
    /** The octant numbers from level 1 down: "" for the root, "05" for child
     *  5 of child 0. */
    std::string path() const;

    /** The cube in the frame. */
    double size(const OctreeFrame& frame) const;
    void corner(const OctreeFrame& frame, double& cx, double& cy, double& cz) const;
};

/** Where the nodes go as they are chosen. The root first; then, for each node
 *  with children, its children in rising octant number between beginGroup()
 *  and endGroup(), each child's own children after its group has ended. */
class TileSink
{
public:
    virtual ~TileSink() = default;
    virtual void root(const NodeKey& key, std::vector<PointRecord>& points, bool hasChildren) = 0;
    virtual void beginGroup(const NodeKey& parent) = 0;
    virtual void tile(const NodeKey& key, std::vector<PointRecord>& points, bool hasChildren) = 0;
    virtual void endGroup(const NodeKey& parent) = 0;
};

struct OctreeOptions
{
    std::size_t maxPointsPerTile = 20000;
    /** Points the builder may hold in memory at once (the working copy of a
     *  subtree, counted twice while it is split). */
    std::uint64_t memoryPoints = 1u << 22;
    /** Folder for the spill files (it must exist). */
    std::string spillFolder;
};

struct OctreeStats
{
    std::uint64_t points = 0;
    std::uint64_t nodes = 0;
    int deepestLevel = 0;
    /** Points written to spill files, counted once per file. */
    std::uint64_t spilledPoints = 0;
    std::uint64_t spillFiles = 0;
};

class OctreeBuilder
{
public:
    OctreeBuilder(const OctreeFrame& frame, const OctreeOptions& options, TileSink& sink);

    /** Builds the tree of `total` points, which `next` hands out in batches
     *  (frame coordinates, priorities set; false once they are all given),
     *  calling `placed(points)` as nodes take their points. */
    void build(const std::function<bool(std::vector<PointRecord>&)>& next, std::uint64_t total,
               const std::function<void(std::uint64_t)>& placed = {});

    const OctreeStats& stats() const { return _stats; }

    /** The integer coordinates of a frame point (each 0 .. 2^kKeyBits - 1). */
    void key(const PointRecord& p, std::uint32_t& qx, std::uint32_t& qy, std::uint32_t& qz) const;

private:
    struct Store;
    using Children = std::array<Store, 8>;
    class Selection;
    class ChildSpills;

    std::vector<PointRecord> select(const NodeKey& node, Store& store, Children& children, bool inMemory);
    std::vector<PointRecord> selectStream(const NodeKey& node, std::uint64_t count,
                                          const std::function<bool(std::vector<PointRecord>&)>& next,
                                          Children& children, bool inMemory);
    void expand(const NodeKey& node, Children& children);
    void load(Store& store);
    void release(Store& store);
    int octantAt(const PointRecord& p, int level) const;
    std::string spillPath();

    OctreeFrame _frame;
    OctreeOptions _options;
    TileSink& _sink;
    OctreeStats _stats;
    std::function<void(std::uint64_t)> _placed;
    double _keyScale = 1.0;
};

/** The priority of the point at `index` of the input: a well-mixed hash. */
std::uint32_t pointPriority(std::uint64_t index);

} // namespace cxtiler

#endif
