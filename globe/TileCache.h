// A small thread-safe LRU cache of decoded source tiles, shared by the
// layers: neighbouring terrain tiles use the same source tiles, so a tile is
// decoded once and then re-sampled. A cached null records a tile the source
// does not have, so that parent fallback does not query it again.
#ifndef CXVIEWER_GLOBE_TILECACHE_H
#define CXVIEWER_GLOBE_TILECACHE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace globe
{
namespace detail
{

struct TileAddress
{
    int z = 0;
    unsigned int x = 0;
    unsigned int y = 0;
    bool operator==(const TileAddress& rhs) const { return z == rhs.z && x == rhs.x && y == rhs.y; }
};

struct TileAddressHash
{
    std::size_t operator()(const TileAddress& a) const
    {
        std::uint64_t h = static_cast<std::uint64_t>(a.z);
        h = h * 0x9E3779B97F4A7C15ull + a.x;
        h = h * 0x9E3779B97F4A7C15ull + a.y;
        return static_cast<std::size_t>(h ^ (h >> 31));
    }
};

template <class T>
class TileCache
{
public:
    using Value = std::shared_ptr<const T>;

    explicit TileCache(std::size_t capacity) : _capacity(capacity ? capacity : 1) {}

    /** True when `address` is cached; `out` is then its tile (null: known
      * missing). */
    bool get(const TileAddress& address, Value& out)
    {
        std::lock_guard<std::mutex> lock(_mutex);
        auto found = _index.find(address);
        if (found == _index.end())
            return false;
        _order.splice(_order.begin(), _order, found->second);
        out = found->second->second;
        return true;
    }

    /** The cached tile of `address`, or the one `load()` gives, which is
      * then cached (a null result too: the tile is known missing). The load
      * runs without the lock, so two threads may load the same tile once
      * each; the second result replaces the first. */
    template <class Loader>
    Value getOrLoad(const TileAddress& address, Loader&& load)
    {
        Value tile;
        if (get(address, tile))
            return tile;
        tile = load();
        _loads.fetch_add(1, std::memory_order_relaxed);
        put(address, tile);
        return tile;
    }

    /** Number of tiles `getOrLoad` has loaded so far. */
    std::size_t loads() const { return _loads.load(std::memory_order_relaxed); }

    void put(const TileAddress& address, Value value)
    {
        std::lock_guard<std::mutex> lock(_mutex);
        auto found = _index.find(address);
        if (found != _index.end())
        {
            found->second->second = std::move(value);
            _order.splice(_order.begin(), _order, found->second);
            return;
        }
        _order.emplace_front(address, std::move(value));
        _index[address] = _order.begin();
        dropOldestBeyondCapacity();
    }

    /** Changes the number of tiles kept, dropping the oldest beyond it. */
    void setCapacity(std::size_t capacity)
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _capacity = capacity ? capacity : 1;
        dropOldestBeyondCapacity();
    }

    void clear()
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _index.clear();
        _order.clear();
    }

    std::size_t size() const
    {
        std::lock_guard<std::mutex> lock(_mutex);
        return _order.size();
    }

private:
    using Entry = std::pair<TileAddress, Value>;

    // Called with the lock held.
    void dropOldestBeyondCapacity()
    {
        while (_order.size() > _capacity)
        {
            _index.erase(_order.back().first);
            _order.pop_back();
        }
    }

    std::size_t _capacity;
    std::atomic<std::size_t> _loads{0};
    mutable std::mutex _mutex;
    std::list<Entry> _order;
    std::unordered_map<TileAddress, typename std::list<Entry>::iterator, TileAddressHash> _index;
};

} // namespace detail
} // namespace globe

#endif
