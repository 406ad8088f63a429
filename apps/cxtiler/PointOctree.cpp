#include "PointOctree.h"

#include "Error.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <unordered_map>

namespace cxtiler
{

namespace
{

/** Points read from or written to a spill file at once. */
constexpr std::size_t kSpillBlock = 4096;

/** Appends points to a spill file through a buffer of its own. */
class SpillWriter
{
public:
    explicit SpillWriter(const std::string& path) : _path(path)
    {
        _file = std::fopen(path.c_str(), "wb");
        if (!_file)
            throw Error("cannot write the spill file '" + path + "': " + std::strerror(errno));
        _buffer.reserve(kSpillBlock);
    }
    ~SpillWriter()
    {
        if (_file)
            std::fclose(_file);
    }
    SpillWriter(const SpillWriter&) = delete;
    SpillWriter& operator=(const SpillWriter&) = delete;

    void write(const PointRecord& p)
    {
        _buffer.push_back(p);
        if (_buffer.size() == kSpillBlock)
            flush();
    }

    void close()
    {
        flush();
        const bool failed = std::fclose(_file) != 0;
        _file = nullptr;
        if (failed)
            throw Error("cannot write the spill file '" + _path + "': " + std::strerror(errno));
    }

private:
    void flush()
    {
        if (_buffer.empty())
            return;
        if (std::fwrite(_buffer.data(), sizeof(PointRecord), _buffer.size(), _file) != _buffer.size())
            throw Error("cannot write the spill file '" + _path + "': " + std::strerror(errno)
                        + " (is the disk full?)");
        _buffer.clear();
    }

    std::string _path;
    std::FILE* _file = nullptr;
    std::vector<PointRecord> _buffer;
};

/** Calls `each` for every point of a spill file, a block at a time. */
template <class Each>
void readSpill(const std::string& path, std::uint64_t count, Each&& each)
{
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        throw Error("cannot read the spill file '" + path + "': " + std::strerror(errno));
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> closer(file, &std::fclose);
    std::vector<PointRecord> block(kSpillBlock);
    std::uint64_t left = count;
    while (left > 0)
    {
        const std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(left, kSpillBlock));
        if (std::fread(block.data(), sizeof(PointRecord), want, file) != want)
            throw Error("the spill file '" + path + "' ends early");
        for (std::size_t i = 0; i < want; ++i)
            each(block[i]);
        left -= want;
    }
}

} // namespace

std::uint32_t pointPriority(std::uint64_t index)
{
    std::uint64_t z = index + 0x9E3779B97F4A7C15ull;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return static_cast<std::uint32_t>((z ^ (z >> 31)) >> 32);
}

std::string NodeKey::path() const
{
    std::string digits(static_cast<std::size_t>(level), '0');
    for (int l = level; l >= 1; --l)
    {
        const int shift = level - l;
        const int octant = static_cast<int>((((x >> shift) & 1u) << 2) | (((y >> shift) & 1u) << 1) | ((z >> shift) & 1u));
        digits[static_cast<std::size_t>(l - 1)] = static_cast<char>('0' + octant);
    }
    return digits;
}

double NodeKey::size(const OctreeFrame& frame) const { return std::ldexp(frame.edge, -level); }

void NodeKey::corner(const OctreeFrame& frame, double& cx, double& cy, double& cz) const
{
    const double s = size(frame);
    cx = x * s;
    cy = y * s;
    cz = z * s;
}

/** The store of the points waiting for a node: in memory or in a spill file. */
struct OctreeBuilder::Store
{
    std::uint64_t count = 0;
    std::vector<PointRecord> points;
    std::string spill;
};

/** One node's choice: of each cell of its grid the point of lowest priority,
 *  for the budget's worth of cells of lowest cell priority; every other
 *  point offered goes to `down`, at once or when it is displaced. A cell's
 *  priority is a hash of the cell alone, so that the cells kept are an even
 *  random draw of those the points occupy, however densely each is filled. */
class OctreeBuilder::Selection
{
public:
    Selection(const OctreeBuilder& builder, int level, std::size_t budget)
        : _builder(builder), _level(level), _shift(kKeyBits - level - kGridBits), _budget(budget)
    {
        _slotOfCell.reserve(budget * 2);
        _points.reserve(std::min<std::size_t>(budget, 1u << 16));
        _octants.reserve(_points.capacity());
        _heap.reserve(_points.capacity());
    }

    /** `down(point, octant)` takes the points not kept, with the child cube
     *  they lie in. */
    template <class Down>
    void offer(const PointRecord& p, Down&& down)
    {
        std::uint32_t qx, qy, qz;
        _builder.key(p, qx, qy, qz);
        qx >>= _shift;
        qy >>= _shift;
        qz >>= _shift;
        // The highest bit of the cell within the node is the child cube.
        constexpr int top = kGridBits - 1;
        const int octant = static_cast<int>((((qx >> top) & 1u) << 2) | (((qy >> top) & 1u) << 1) | ((qz >> top) & 1u));
        constexpr std::uint32_t mask = kGridCells - 1;
        const std::uint32_t cell = ((qx & mask) << (2 * kGridBits)) | ((qy & mask) << kGridBits) | (qz & mask);
        // The cell's place in the whole cloud and its level decide its rank.
        const std::uint32_t rank = pointPriority((((static_cast<std::uint64_t>(qx) << 30) | qy) * 0x9E3779B97F4A7C15ull)
                                                 ^ (static_cast<std::uint64_t>(qz) << 8) ^ static_cast<std::uint64_t>(_level));
        const Ranked ranked{rank, cell};
        const bool full = _heap.size() == _budget;
        if (full && _heap.front() < ranked)
        {
            down(p, octant);
            return;
        }
        const auto found = _slotOfCell.find(cell);
        if (found != _slotOfCell.end())
        {
            // The cell is kept; its point of lowest priority stands for it.
            const std::uint32_t slot = found->second;
            if (p.priority < _points[slot].priority)
            {
                down(_points[slot], _octants[slot]);
                _points[slot] = p;
            }
            else
            {
                down(p, octant);
            }
            return;
        }
        std::uint32_t slot;
        if (full)
        {
            // The cell of highest rank gives way.
            std::pop_heap(_heap.begin(), _heap.end());
            const auto evicted = _slotOfCell.find(_heap.back().second);
            _heap.pop_back();
            slot = evicted->second;
            down(_points[slot], _octants[slot]);
            _slotOfCell.erase(evicted);
            _points[slot] = p;
            _octants[slot] = static_cast<std::uint8_t>(octant);
        }
        else
        {
            slot = static_cast<std::uint32_t>(_points.size());
            _points.push_back(p);
            _octants.push_back(static_cast<std::uint8_t>(octant));
        }
        _slotOfCell.emplace(cell, slot);
        _heap.push_back(ranked);
        std::push_heap(_heap.begin(), _heap.end());
    }

    std::vector<PointRecord> take() { return std::move(_points); }

private:
    using Ranked = std::pair<std::uint32_t, std::uint32_t>; // (cell rank, cell)

    const OctreeBuilder& _builder;
    int _level;
    int _shift;
    std::size_t _budget;
    std::unordered_map<std::uint32_t, std::uint32_t> _slotOfCell;
    std::vector<PointRecord> _points;
    std::vector<std::uint8_t> _octants; // of the kept points
    std::vector<Ranked> _heap;          // the kept cells, highest rank on top
};

OctreeBuilder::OctreeBuilder(const OctreeFrame& frame, const OctreeOptions& options, TileSink& sink)
    : _frame(frame), _options(options), _sink(sink)
{
    _options.maxPointsPerTile = std::max<std::size_t>(1, _options.maxPointsPerTile);
    _keyScale = std::ldexp(1.0, kKeyBits) / _frame.edge;
}

void OctreeBuilder::key(const PointRecord& p, std::uint32_t& qx, std::uint32_t& qy, std::uint32_t& qz) const
{
    constexpr double top = static_cast<double>((1u << kKeyBits) - 1);
    auto quantize = [this](double v) {
        const double k = std::floor(v * _keyScale);
        return static_cast<std::uint32_t>(k < 0.0 ? 0.0 : k > top ? top : k);
    };
    qx = quantize(p.x);
    qy = quantize(p.y);
    qz = quantize(p.z);
}

int OctreeBuilder::octantAt(const PointRecord& p, int level) const
{
    std::uint32_t qx, qy, qz;
    key(p, qx, qy, qz);
    const int shift = kKeyBits - level - 1;
    return static_cast<int>((((qx >> shift) & 1u) << 2) | (((qy >> shift) & 1u) << 1) | ((qz >> shift) & 1u));
}

std::string OctreeBuilder::spillPath()
{
    ++_stats.spillFiles;
    return (std::filesystem::path(_options.spillFolder) / ("spill" + std::to_string(_stats.spillFiles) + ".bin"))
        .string();
}

void OctreeBuilder::load(Store& store)
{
    if (store.spill.empty())
        return;
    store.points.clear();
    store.points.reserve(static_cast<std::size_t>(store.count));
    readSpill(store.spill, store.count, [&](const PointRecord& p) { store.points.push_back(p); });
    std::error_code ec;
    std::filesystem::remove(store.spill, ec);
    store.spill.clear();
}

void OctreeBuilder::release(Store& store)
{
    std::vector<PointRecord>().swap(store.points);
    if (!store.spill.empty())
    {
        std::error_code ec;
        std::filesystem::remove(store.spill, ec);
        store.spill.clear();
    }
    store.count = 0;
}

/** The points a node passes down, written to one spill file per child
 *  octant, each opened at the child's first point. */
class OctreeBuilder::ChildSpills
{
public:
    ChildSpills(OctreeBuilder& builder, Children& children) : _builder(builder), _children(children) {}

    void operator()(const PointRecord& r, int octant)
    {
        const auto o = static_cast<std::size_t>(octant);
        if (!_writers[o])
        {
            _children[o].spill = _builder.spillPath();
            _writers[o] = std::make_unique<SpillWriter>(_children[o].spill);
        }
        _writers[o]->write(r);
        ++_children[o].count;
        ++_builder._stats.spilledPoints;
    }

    void close()
    {
        for (auto& writer : _writers)
            if (writer)
                writer->close();
    }

private:
    OctreeBuilder& _builder;
    Children& _children;
    std::array<std::unique_ptr<SpillWriter>, 8> _writers;
};

std::vector<PointRecord> OctreeBuilder::select(const NodeKey& node, Store& store, Children& children, bool inMemory)
{
    const std::size_t budget = _options.maxPointsPerTile;
    if (store.count <= budget || node.level >= kMaxLevel)
    {
        // A leaf: all its points.
        load(store);
        std::vector<PointRecord> all = std::move(store.points);
        release(store);
        return all;
    }

    Selection selection(*this, node.level, budget);
    if (inMemory)
    {
        load(store);
        std::array<std::uint64_t, 8> counts{};
        for (const PointRecord& p : store.points)
            ++counts[static_cast<std::size_t>(octantAt(p, node.level))];
        for (int o = 0; o < 8; ++o)
            children[o].points.reserve(static_cast<std::size_t>(counts[o]));
        for (const PointRecord& p : store.points)
            selection.offer(p, [&](const PointRecord& r, int octant) {
                children[static_cast<std::size_t>(octant)].points.push_back(r);
            });
        release(store);
        for (Store& child : children)
            child.count = child.points.size();
        return selection.take();
    }

    ChildSpills down(*this, children);
    if (store.spill.empty())
    {
        for (const PointRecord& p : store.points)
            selection.offer(p, down);
    }
    else
    {
        readSpill(store.spill, store.count, [&](const PointRecord& p) { selection.offer(p, down); });
    }
    release(store);
    down.close();
    return selection.take();
}

std::vector<PointRecord> OctreeBuilder::selectStream(const NodeKey& node, std::uint64_t count,
                                                     const std::function<bool(std::vector<PointRecord>&)>& next,
                                                     Children& children, bool inMemory)
{
    if (inMemory || count <= _options.maxPointsPerTile)
    {
        Store all;
        all.points.reserve(static_cast<std::size_t>(count));
        std::vector<PointRecord> batch;
        while (next(batch))
            all.points.insert(all.points.end(), batch.begin(), batch.end());
        all.count = all.points.size();
        return select(node, all, children, true);
    }
    // Too large for memory: one pass over the input, the rest to spill files.
    Selection selection(*this, node.level, _options.maxPointsPerTile);
    ChildSpills down(*this, children);
    std::vector<PointRecord> batch;
    while (next(batch))
        for (const PointRecord& p : batch)
            selection.offer(p, down);
    down.close();
    return selection.take();
}

void OctreeBuilder::build(const std::function<bool(std::vector<PointRecord>&)>& next, std::uint64_t total,
                          const std::function<void(std::uint64_t)>& placed)
{
    _placed = placed;
    _stats = OctreeStats();
    const NodeKey root;
    Children children;
    std::vector<PointRecord> own = selectStream(root, total, next, children, total <= _options.memoryPoints);
    const bool hasChildren = std::any_of(children.begin(), children.end(), [](const Store& s) { return s.count > 0; });
    _stats.points += own.size();
    ++_stats.nodes;
    const std::uint64_t taken = own.size();
    _sink.root(root, own, hasChildren);
    if (_placed)
        _placed(taken);
    if (hasChildren)
        expand(root, children);
}

void OctreeBuilder::expand(const NodeKey& node, Children& children)
{
    std::uint64_t total = 0;
    for (const Store& store : children)
        total += store.count;
    // A subtree that fits is worked in memory from here down.
    const bool inMemory = total <= _options.memoryPoints;
    if (inMemory)
        for (Store& store : children)
            load(store);

    struct Pending
    {
        NodeKey key;
        Children children;
    };
    std::vector<std::unique_ptr<Pending>> pending;
    _sink.beginGroup(node);
    for (int octant = 0; octant < 8; ++octant)
    {
        Store& store = children[static_cast<std::size_t>(octant)];
        if (store.count == 0)
            continue;
        auto next = std::make_unique<Pending>();
        next->key = node.child(octant);
        std::vector<PointRecord> own = select(next->key, store, next->children, inMemory);
        const bool hasChildren =
            std::any_of(next->children.begin(), next->children.end(), [](const Store& s) { return s.count > 0; });
        _stats.points += own.size();
        ++_stats.nodes;
        _stats.deepestLevel = std::max(_stats.deepestLevel, next->key.level);
        const std::uint64_t taken = own.size();
        _sink.tile(next->key, own, hasChildren);
        if (_placed)
            _placed(taken);
        if (hasChildren)
            pending.push_back(std::move(next));
    }
    _sink.endGroup(node);
    for (std::unique_ptr<Pending>& child : pending)
    {
        expand(child->key, child->children);
        child.reset();
    }
}

} // namespace cxtiler
