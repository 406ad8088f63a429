#include "NavScenes.h"

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Image>
#include <osg/MatrixTransform>
#include <osg/Texture2D>

#include <algorithm>
#include <cmath>

namespace navtest
{

namespace
{

const osg::EllipsoidModel& wgs84()
{
    static const osg::ref_ptr<osg::EllipsoidModel> model =
        new osg::EllipsoidModel(osg::WGS_84_RADIUS_EQUATOR, osg::WGS_84_RADIUS_POLAR);
    return *model;
}

const int kTexels = 256;
const int kSquares = 8;

osg::Vec4ub texel(int s, int t)
{
    // The marker: the central 1/16 of the texture.
    const int lo = kTexels / 2 - kTexels / 32;
    const int hi = kTexels / 2 + kTexels / 32;
    if (s >= lo && s < hi && t >= lo && t < hi)
        return osg::Vec4ub(220, 30, 30, 255);
    const int square = kTexels / kSquares;
    const bool light = ((s / square) + (t / square)) % 2 == 0;
    return light ? osg::Vec4ub(200, 200, 200, 255) : osg::Vec4ub(60, 60, 60, 255);
}

} // namespace

osg::Vec4ub flatSceneColour(double x, double y, double halfSize)
{
    const double u = (x + halfSize) / (2.0 * halfSize);
    const double v = (y + halfSize) / (2.0 * halfSize);
    const int s = std::min(kTexels - 1, std::max(0, static_cast<int>(u * kTexels)));
    const int t = std::min(kTexels - 1, std::max(0, static_cast<int>(v * kTexels)));
    return texel(s, t);
}

osg::ref_ptr<osg::CoordinateSystemNode> makeFlatScene(double halfSize)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(kTexels, kTexels, 1, GL_RGBA, GL_UNSIGNED_BYTE);
    for (int t = 0; t < kTexels; ++t)
        for (int s = 0; s < kTexels; ++s)
        {
            const osg::Vec4ub c = texel(s, t);
            unsigned char* p = image->data(s, t);
            p[0] = c.r();
            p[1] = c.g();
            p[2] = c.b();
            p[3] = c.a();
        }

    const float h = static_cast<float>(halfSize);
    osg::ref_ptr<osg::Geometry> plane =
        osg::createTexturedQuadGeometry(osg::Vec3(-h, -h, 0.0f), osg::Vec3(2.0f * h, 0.0f, 0.0f),
                                        osg::Vec3(0.0f, 2.0f * h, 0.0f));
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D(image.get());
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    osg::StateSet* ss = plane->getOrCreateStateSet();
    ss->setTextureAttributeAndModes(0, texture.get());
    ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF);

    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(plane.get());

    osg::ref_ptr<osg::CoordinateSystemNode> csn = new osg::CoordinateSystemNode;
    csn->setName("flat scene");
    csn->addChild(geode.get());
    return csn;
}

osg::Vec3d wgs84ToWorld(double longitude, double latitude, double height)
{
    osg::Vec3d world;
    wgs84().convertLatLongHeightToXYZ(osg::DegreesToRadians(latitude), osg::DegreesToRadians(longitude), height,
                                      world.x(), world.y(), world.z());
    return world;
}

void wgs84FromWorld(const osg::Vec3d& world, double& longitude, double& latitude, double& height)
{
    double lat = 0.0, lon = 0.0;
    wgs84().convertXYZToLatLongHeight(world.x(), world.y(), world.z(), lat, lon, height);
    longitude = osg::RadiansToDegrees(lon);
    latitude = osg::RadiansToDegrees(lat);
}

osg::ref_ptr<osg::CoordinateSystemNode> makeGlobeScene()
{
    osg::ref_ptr<osg::CoordinateSystemNode> csn = new osg::CoordinateSystemNode;
    csn->setName("globe scene");
    csn->setEllipsoidModel(new osg::EllipsoidModel(osg::WGS_84_RADIUS_EQUATOR, osg::WGS_84_RADIUS_POLAR));
    csn->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);

    const int tileDegrees = 10;
    const int steps = 5; // two-degree cells inside a tile
    for (int lat0 = -90; lat0 < 90; lat0 += tileDegrees)
    {
        for (int lon0 = -180; lon0 < 180; lon0 += tileDegrees)
        {
            const osg::Vec3d origin = wgs84ToWorld(lon0 + tileDegrees * 0.5, lat0 + tileDegrees * 0.5);
            const bool blue = ((lat0 + 90) / tileDegrees + (lon0 + 180) / tileDegrees) % 2 == 0;
            const osg::Vec4 colour = blue ? osg::Vec4(0.15f, 0.25f, 0.75f, 1.0f) : osg::Vec4(0.2f, 0.65f, 0.25f, 1.0f);

            osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
            for (int j = 0; j <= steps; ++j)
                for (int i = 0; i <= steps; ++i)
                {
                    const double lon = lon0 + tileDegrees * double(i) / steps;
                    const double lat = lat0 + tileDegrees * double(j) / steps;
                    vertices->push_back(osg::Vec3(wgs84ToWorld(lon, lat) - origin));
                }
            osg::ref_ptr<osg::DrawElementsUInt> triangles = new osg::DrawElementsUInt(GL_TRIANGLES);
            for (int j = 0; j < steps; ++j)
                for (int i = 0; i < steps; ++i)
                {
                    const unsigned a = j * (steps + 1) + i;
                    const unsigned b = a + 1;
                    const unsigned c = a + (steps + 1);
                    const unsigned d = c + 1;
                    for (unsigned v : {a, b, d, a, d, c})
                        triangles->push_back(v);
                }
            osg::ref_ptr<osg::Vec4Array> colours = new osg::Vec4Array;
            colours->push_back(colour);

            osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
            geometry->setVertexArray(vertices.get());
            geometry->setColorArray(colours.get(), osg::Array::BIND_OVERALL);
            geometry->addPrimitiveSet(triangles.get());

            osg::ref_ptr<osg::Geode> geode = new osg::Geode;
            geode->addDrawable(geometry.get());
            osg::ref_ptr<osg::MatrixTransform> tile = new osg::MatrixTransform(osg::Matrixd::translate(origin));
            tile->addChild(geode.get());
            csn->addChild(tile.get());
        }
    }
    return csn;
}

} // namespace navtest
