// Per-thread PROJ state of the spatial references: a PROJ context, the CRS
// objects and the transformations made on this thread. PROJ objects belong to
// the context they were made in and must not be used by two threads at once,
// so every thread builds its own and nothing here is shared.
#ifndef CXVIEWER_GLOBE_PROJTHREADSTATE_H
#define CXVIEWER_GLOBE_PROJTHREADSTATE_H

#include <proj.h>

#include <cstdint>
#include <string>

namespace globe
{
namespace proj
{

/** This thread's PROJ context (network off, log quiet). */
PJ_CONTEXT* context();

/** This thread's CRS object for `definition`, made once per uid; null when
  * PROJ rejects it. Owned by the thread state. */
PJ* crs(std::uint64_t uid, const std::string& definition);

/** This thread's transformation from one CRS to another, with longitude /
  * easting first on both sides; null when PROJ finds none. Owned by the thread
  * state. */
PJ* operation(std::uint64_t sourceUid, const std::string& sourceDefinition,
              std::uint64_t targetUid, const std::string& targetDefinition);

/** RAII holder of a PJ made by the caller. */
class Object
{
public:
    explicit Object(PJ* pj = nullptr) : _pj(pj) {}
    ~Object() { if (_pj) proj_destroy(_pj); }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    Object(Object&& rhs) noexcept : _pj(rhs._pj) { rhs._pj = nullptr; }
    Object& operator=(Object&& rhs) noexcept
    {
        if (this != &rhs)
        {
            if (_pj) proj_destroy(_pj);
            _pj = rhs._pj;
            rhs._pj = nullptr;
        }
        return *this;
    }
    PJ* get() const { return _pj; }
    explicit operator bool() const { return _pj != nullptr; }

private:
    PJ* _pj;
};

} // namespace proj
} // namespace globe

#endif
