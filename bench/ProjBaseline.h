// The baseline of the re-projection benchmarks: raw PROJ, one operation from
// a CRS to another made as the library makes it (crs_to_crs, normalised to
// longitude or easting first), applied to points in place with
// proj_trans_generic.
#pragma once

#include <osg/Vec3d>

#include <proj.h>

#include <vector>

namespace cxbench
{

class ProjBaseline
{
public:
    ProjBaseline(const char* from, const char* to)
    {
        _ctx = proj_context_create();
        PJ* raw = proj_create_crs_to_crs(_ctx, from, to, nullptr);
        _op = proj_normalize_for_visualization(_ctx, raw);
        proj_destroy(raw);
    }
    ~ProjBaseline()
    {
        proj_destroy(_op);
        proj_context_destroy(_ctx);
    }
    ProjBaseline(const ProjBaseline&) = delete;
    ProjBaseline& operator=(const ProjBaseline&) = delete;

    void transform(std::vector<osg::Vec3d>& points) const
    {
        double* base = points.front().ptr();
        const std::size_t stride = sizeof(osg::Vec3d);
        const std::size_t n = points.size();
        proj_trans_generic(_op, PJ_FWD, base, stride, n, base + 1, stride, n, base + 2, stride, n, nullptr, 0, 0);
    }

private:
    PJ_CONTEXT* _ctx = nullptr;
    PJ* _op = nullptr;
};

} // namespace cxbench
