#include "MeshBuilder.h"

#include <osg/PrimitiveSet>

#include <cmath>
#include <limits>

namespace cxsample
{

namespace
{
constexpr double kPi = 3.14159265358979323846;
}

unsigned int MeshBuilder::vertex(const osg::Vec3& position, const osg::Vec3& normal, const osg::Vec4& colour,
                                 const osg::Vec2& texCoord)
{
    _positions.push_back(position);
    _normals.push_back(normal);
    _colours.push_back(colour);
    _texCoords.push_back(texCoord);
    return static_cast<unsigned int>(_positions.size() - 1);
}

void MeshBuilder::triangle(unsigned int a, unsigned int b, unsigned int c)
{
    _indices.push_back(a);
    _indices.push_back(b);
    _indices.push_back(c);
}

void MeshBuilder::quad(const osg::Vec3& p0, const osg::Vec3& p1, const osg::Vec3& p2, const osg::Vec3& p3,
                       const osg::Vec4& colour, const osg::Vec2& t0, const osg::Vec2& t1, const osg::Vec2& t2,
                       const osg::Vec2& t3)
{
    osg::Vec3 normal = (p1 - p0) ^ (p2 - p0);
    if (normal.length2() == 0.0f)
        normal = (p2 - p0) ^ (p3 - p0);
    normal.normalize();
    const unsigned int a = vertex(p0, normal, colour, t0);
    const unsigned int b = vertex(p1, normal, colour, t1);
    const unsigned int c = vertex(p2, normal, colour, t2);
    const unsigned int d = vertex(p3, normal, colour, t3);
    triangle(a, b, c);
    triangle(a, c, d);
}

void MeshBuilder::convexPolygon(const std::vector<osg::Vec3>& corners, const osg::Vec4& colour)
{
    if (corners.size() < 3)
        return;
    osg::Vec3 normal;
    for (std::size_t i = 1; i + 1 < corners.size(); ++i)
        normal += (corners[i] - corners[0]) ^ (corners[i + 1] - corners[0]);
    normal.normalize();
    const unsigned int first = vertex(corners[0], normal, colour);
    unsigned int previous = vertex(corners[1], normal, colour);
    for (std::size_t i = 2; i < corners.size(); ++i)
    {
        const unsigned int current = vertex(corners[i], normal, colour);
        triangle(first, previous, current);
        previous = current;
    }
}

void MeshBuilder::box(const osg::Vec3& min, const osg::Vec3& max, const osg::Vec4& colour)
{
    const osg::Vec3 p000(min.x(), min.y(), min.z()), p100(max.x(), min.y(), min.z()), p110(max.x(), max.y(), min.z()),
        p010(min.x(), max.y(), min.z()), p001(min.x(), min.y(), max.z()), p101(max.x(), min.y(), max.z()),
        p111(max.x(), max.y(), max.z()), p011(min.x(), max.y(), max.z());
    quad(p000, p100, p101, p001, colour); // south
    quad(p100, p110, p111, p101, colour); // east
    quad(p110, p010, p011, p111, colour); // north
    quad(p010, p000, p001, p011, colour); // west
    quad(p001, p101, p111, p011, colour); // top
}

void perpendiculars(const osg::Vec3& axis, osg::Vec3& u, osg::Vec3& v)
{
    osg::Vec3 w = axis;
    w.normalize();
    const osg::Vec3 helper = std::fabs(w.z()) < 0.9f ? osg::Vec3(0.0f, 0.0f, 1.0f) : osg::Vec3(1.0f, 0.0f, 0.0f);
    u = helper ^ w;
    u.normalize();
    v = w ^ u;
    v.normalize();
}

void MeshBuilder::cylinder(const osg::Vec3& a, const osg::Vec3& b, float radius, int sides, const osg::Vec4& colour)
{
    osg::Vec3 u, v;
    perpendiculars(b - a, u, v);
    const unsigned int base = static_cast<unsigned int>(_positions.size());
    for (int i = 0; i <= sides; ++i)
    {
        const double angle = 2.0 * kPi * (i % sides) / sides;
        const osg::Vec3 n = u * static_cast<float>(std::cos(angle)) + v * static_cast<float>(std::sin(angle));
        vertex(a + n * radius, n, colour);
        vertex(b + n * radius, n, colour);
    }
    for (int i = 0; i < sides; ++i)
    {
        const unsigned int a0 = base + 2 * i, b0 = a0 + 1, a1 = a0 + 2, b1 = a0 + 3;
        triangle(a0, a1, b1);
        triangle(a0, b1, b0);
    }
}

void MeshBuilder::disc(const osg::Vec3& centre, const osg::Vec3& facing, float radius, int sides,
                       const osg::Vec4& colour)
{
    osg::Vec3 u, v;
    perpendiculars(facing, u, v);
    osg::Vec3 n = facing;
    n.normalize();
    const unsigned int middle = vertex(centre, n, colour);
    const unsigned int base = static_cast<unsigned int>(_positions.size());
    for (int i = 0; i < sides; ++i)
    {
        const double angle = 2.0 * kPi * i / sides;
        vertex(centre + (u * static_cast<float>(std::cos(angle)) + v * static_cast<float>(std::sin(angle))) * radius,
               n, colour);
    }
    for (int i = 0; i < sides; ++i)
        triangle(middle, base + i, base + (i + 1) % sides);
}

void MeshBuilder::sphere(const osg::Vec3& centre, float radius, int sides, const osg::Vec4& colour)
{
    const int rings = std::max(2, sides / 2);
    const unsigned int base = static_cast<unsigned int>(_positions.size());
    for (int r = 0; r <= rings; ++r)
    {
        const double polar = kPi * r / rings;
        for (int i = 0; i <= sides; ++i)
        {
            const double azimuth = 2.0 * kPi * (i % sides) / sides;
            const osg::Vec3 n(static_cast<float>(std::sin(polar) * std::cos(azimuth)),
                              static_cast<float>(std::sin(polar) * std::sin(azimuth)),
                              static_cast<float>(std::cos(polar)));
            vertex(centre + n * radius, n, colour);
        }
    }
    const unsigned int row = static_cast<unsigned int>(sides + 1);
    for (int r = 0; r < rings; ++r)
        for (int i = 0; i < sides; ++i)
        {
            const unsigned int top0 = base + r * row + i, top1 = top0 + 1;
            const unsigned int bottom0 = top0 + row, bottom1 = bottom0 + 1;
            // The polar rows are points: one triangle there, two elsewhere.
            if (r != 0)
                triangle(top0, bottom0, top1);
            if (r != rings - 1)
                triangle(top1, bottom0, bottom1);
        }
}

osg::ref_ptr<osg::Geometry> MeshBuilder::build(const std::string& name, bool textured) const
{
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setName(name);
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);

    osg::ref_ptr<osg::Vec3Array> positions = new osg::Vec3Array(_positions.begin(), _positions.end());
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array(_normals.begin(), _normals.end());
    osg::ref_ptr<osg::Vec4Array> colours = new osg::Vec4Array(_colours.begin(), _colours.end());
    geometry->setVertexArray(positions.get());
    geometry->setNormalArray(normals.get(), osg::Array::BIND_PER_VERTEX);
    geometry->setColorArray(colours.get(), osg::Array::BIND_PER_VERTEX);
    if (textured)
        geometry->setTexCoordArray(0, new osg::Vec2Array(_texCoords.begin(), _texCoords.end()),
                                   osg::Array::BIND_PER_VERTEX);

    if (_positions.size() <= std::numeric_limits<unsigned short>::max())
    {
        osg::ref_ptr<osg::DrawElementsUShort> triangles = new osg::DrawElementsUShort(GL_TRIANGLES);
        triangles->reserve(_indices.size());
        for (unsigned int index : _indices)
            triangles->push_back(static_cast<unsigned short>(index));
        geometry->addPrimitiveSet(triangles.get());
    }
    else
    {
        geometry->addPrimitiveSet(new osg::DrawElementsUInt(GL_TRIANGLES, _indices.begin(), _indices.end()));
    }
    return geometry;
}

} // namespace cxsample
