// Small tiles for the oblique tests: geodes of triangles in the model's own
// coordinates, written as OpenSceneGraph binary files, and the read options
// that carry the callback and its four entries.
#ifndef CXVIEWER_TESTS_OBLIQUETESTSUPPORT_H
#define CXVIEWER_TESTS_OBLIQUETESTSUPPORT_H

#include <globe/SpatialReference>
#include <oblique/ReadosgbCallback>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/MatrixTransform>
#include <osg/PagedLOD>
#include <osgDB/Options>
#include <osgDB/WriteFile>

#include <gtest/gtest.h>
#include <proj.h>

#include <cmath>
#include <string>
#include <vector>

namespace cxtest
{

inline osg::ref_ptr<osg::Geometry> triangles(const std::vector<osg::Vec3>& vertices)
{
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setVertexArray(new osg::Vec3Array(vertices.begin(), vertices.end()));
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLES, 0, static_cast<GLsizei>(vertices.size())));
    return geometry;
}

inline osg::ref_ptr<osg::Geode> geodeOf(const std::vector<osg::Vec3>& vertices)
{
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(triangles(vertices));
    return geode;
}

/** A triangle of `size` metres with its first corner at (x, y, z). */
inline osg::ref_ptr<osg::Geode> triangleGeode(float x, float y, float z, float size = 10.0f)
{
    return geodeOf({{x, y, z}, {x + size, y, z}, {x, y + size, z + 2.0f}});
}

inline std::vector<osg::Vec3> verticesOf(const osg::Node* node)
{
    const osg::Geode* geode = node ? node->asGeode() : nullptr;
    const osg::Geometry* geometry = geode && geode->getNumDrawables() ? geode->getDrawable(0)->asGeometry() : nullptr;
    const auto* array = geometry ? dynamic_cast<const osg::Vec3Array*>(geometry->getVertexArray()) : nullptr;
    return array ? std::vector<osg::Vec3>(array->begin(), array->end()) : std::vector<osg::Vec3>();
}

inline void writeTile(const osg::Node& node, const std::string& path)
{
    ASSERT_TRUE(osgDB::writeNodeFile(node, path)) << path;
}

/** The model's system and the map's: CGCS2000 / 3-degree Gauss-Kruger CM 114E
 *  and WGS84, with an offset near Beijing. */
struct ObliqueFrame
{
    const globe::SpatialReference* srs = globe::SpatialReference::create("epsg:4547");
    const globe::SpatialReference* mapsrs = globe::SpatialReference::create("wgs84");
    osg::Vec3d offset{703800.0, 4430600.0, 45.0};
    osg::ref_ptr<osg::MatrixTransform> pp = new osg::MatrixTransform(osg::Matrixd::translate(1000.0, -2000.0, 300.0));
    osg::ref_ptr<ReadosgbCallback> callback = new ReadosgbCallback(nullptr, 1);

    /** Options with the callback and all four entries. */
    osg::ref_ptr<osgDB::Options> options() const
    {
        osg::ref_ptr<osgDB::Options> o = new osgDB::Options;
        o->setPluginData("pp", pp.get());
        o->setPluginData("offset", const_cast<osg::Vec3d*>(&offset));
        o->setPluginData("srs", const_cast<globe::SpatialReference*>(srs));
        o->setPluginData("mapsrs", const_cast<globe::SpatialReference*>(mapsrs));
        o->setReadFileCallback(callback.get());
        return o;
    }
};

/** PROJ's own answer for model points (offset added) from EPSG:4547 into
 *  WGS84 geocentric, through the C API. */
inline std::vector<osg::Vec3d> projGeocentric(const std::vector<osg::Vec3>& local, const osg::Vec3d& offset)
{
    PJ_CONTEXT* ctx = proj_context_create();
    proj_log_level(ctx, PJ_LOG_NONE);
    PJ* raw = proj_create_crs_to_crs(ctx, "EPSG:4547", "EPSG:4978", nullptr);
    PJ* op = proj_normalize_for_visualization(ctx, raw);
    std::vector<osg::Vec3d> out;
    for (const osg::Vec3& v : local)
    {
        const PJ_COORD c = proj_trans(op, PJ_FWD, proj_coord(v.x() + offset.x(), v.y() + offset.y(), v.z() + offset.z(), 0));
        out.emplace_back(c.xyz.x, c.xyz.y, c.xyz.z);
    }
    proj_destroy(op);
    proj_destroy(raw);
    proj_context_destroy(ctx);
    return out;
}

} // namespace cxtest

#endif
