// Collects triangles with normals, per-vertex colours and, for textured
// surfaces, texture coordinates, and turns them into one osg::Geometry.
// All shapes are made counter-clockwise as seen from outside.
#ifndef CXSAMPLE_MESHBUILDER_H
#define CXSAMPLE_MESHBUILDER_H

#include <osg/Geometry>
#include <osg/Vec2>
#include <osg/Vec3>
#include <osg/Vec4>

#include <vector>

namespace cxsample
{

class MeshBuilder
{
public:
    /** A vertex; returns its index. */
    unsigned int vertex(const osg::Vec3& position, const osg::Vec3& normal, const osg::Vec4& colour,
                        const osg::Vec2& texCoord = osg::Vec2());
    void triangle(unsigned int a, unsigned int b, unsigned int c);

    /** A flat quad p0 p1 p2 p3 (counter-clockwise seen from the front), with
     *  the normal of its plane and the given texture coordinates. */
    void quad(const osg::Vec3& p0, const osg::Vec3& p1, const osg::Vec3& p2, const osg::Vec3& p3,
              const osg::Vec4& colour, const osg::Vec2& t0 = {}, const osg::Vec2& t1 = {}, const osg::Vec2& t2 = {},
              const osg::Vec2& t3 = {});

    /** A flat convex polygon (counter-clockwise seen from the front) as a fan. */
    void convexPolygon(const std::vector<osg::Vec3>& corners, const osg::Vec4& colour);

    /** An axis-aligned box without its bottom face (it stands on something). */
    void box(const osg::Vec3& min, const osg::Vec3& max, const osg::Vec4& colour);

    /** The side of a cylinder from `a` to `b` with smooth normals; `sides` is
     *  the number of facets around. No caps: joints or caps close the ends. */
    void cylinder(const osg::Vec3& a, const osg::Vec3& b, float radius, int sides, const osg::Vec4& colour);
    /** A flat disc closing a cylinder end at `centre`, facing `facing`. */
    void disc(const osg::Vec3& centre, const osg::Vec3& facing, float radius, int sides, const osg::Vec4& colour);
    /** A sphere with `sides` facets around and `sides / 2` rings. */
    void sphere(const osg::Vec3& centre, float radius, int sides, const osg::Vec4& colour);

    bool empty() const { return _indices.empty(); }
    std::size_t triangleCount() const { return _indices.size() / 3; }

    /** The geometry, in vertex buffer objects; texture coordinates on unit 0
     *  only when `textured`. */
    osg::ref_ptr<osg::Geometry> build(const std::string& name, bool textured) const;

private:
    std::vector<osg::Vec3> _positions;
    std::vector<osg::Vec3> _normals;
    std::vector<osg::Vec4> _colours;
    std::vector<osg::Vec2> _texCoords;
    std::vector<unsigned int> _indices;
};

/** Two unit vectors perpendicular to `axis` and to each other. */
void perpendiculars(const osg::Vec3& axis, osg::Vec3& u, osg::Vec3& v);

} // namespace cxsample

#endif
