#include "ProjThreadState.h"

#include <unordered_map>
#include <utility>

namespace globe
{
namespace proj
{
namespace
{

struct PairHash
{
    std::size_t operator()(const std::pair<std::uint64_t, std::uint64_t>& key) const
    {
        return std::hash<std::uint64_t>()(key.first * 0x9E3779B97F4A7C15ull ^ key.second);
    }
};

// Entries are keyed by the unique number of a SpatialReference; numbers are
// never reused, so a dead object's entries are only wasted memory, and the
// maps are emptied when they grow past a bound.
constexpr std::size_t kMaxEntries = 256;

struct ThreadState
{
    PJ_CONTEXT* ctx = nullptr;
    std::unordered_map<std::uint64_t, PJ*> crs;
    std::unordered_map<std::pair<std::uint64_t, std::uint64_t>, PJ*, PairHash> operations;

    ThreadState()
    {
        ctx = proj_context_create();
        proj_log_level(ctx, PJ_LOG_NONE);
        proj_context_set_enable_network(ctx, 0);
    }
    ~ThreadState()
    {
        clearOperations();
        clearCrs();
        proj_context_destroy(ctx);
    }
    void clearOperations()
    {
        for (auto& entry : operations)
            if (entry.second)
                proj_destroy(entry.second);
        operations.clear();
    }
    void clearCrs()
    {
        for (auto& entry : crs)
            if (entry.second)
                proj_destroy(entry.second);
        crs.clear();
    }
};

ThreadState& state()
{
    thread_local ThreadState threadState;
    return threadState;
}


// Makes room for two more CRS objects. Operations keep their own copies of
// the CRS they were made from, so both maps may be emptied at any time.
void ensureRoom(ThreadState& s)
{
    if (s.crs.size() + 2 > kMaxEntries)
    {
        s.clearOperations();
        s.clearCrs();
    }
}

PJ* lookupCrs(ThreadState& s, std::uint64_t uid, const std::string& definition)
{
    auto found = s.crs.find(uid);
    if (found != s.crs.end())
        return found->second;
    PJ* object = proj_create(s.ctx, definition.c_str());
    s.crs.emplace(uid, object);
    return object;
}

} // namespace

PJ_CONTEXT* context()
{
    return state().ctx;
}

PJ* crs(std::uint64_t uid, const std::string& definition)
{
    ThreadState& s = state();
    ensureRoom(s);
    return lookupCrs(s, uid, definition);
}

PJ* operation(std::uint64_t sourceUid, const std::string& sourceDefinition,
              std::uint64_t targetUid, const std::string& targetDefinition)
{
    ThreadState& s = state();
    const auto key = std::make_pair(sourceUid, targetUid);
    auto found = s.operations.find(key);
    if (found != s.operations.end())
        return found->second;

    ensureRoom(s);
    PJ* source = lookupCrs(s, sourceUid, sourceDefinition);
    PJ* target = lookupCrs(s, targetUid, targetDefinition);
    PJ* normalized = nullptr;
    if (source && target)
    {
        Object op(proj_create_crs_to_crs_from_pj(s.ctx, source, target, nullptr, nullptr));
        if (op)
            normalized = proj_normalize_for_visualization(s.ctx, op.get());
    }
    if (s.operations.size() >= kMaxEntries)
        s.clearOperations();
    s.operations.emplace(key, normalized);
    return normalized;
}

} // namespace proj
} // namespace globe
