#include <oblique/changevertex>

#include <globe/SpatialReference>

#include <osg/Geode>
#include <osg/Geometry>

#include <vector>

changevertex::changevertex(osg::Vec3d offset_, const globe::SpatialReference* srs_,
                           const globe::SpatialReference* mapsrs_)
    : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), srs(srs_), mapsrs(mapsrs_), offset(offset_), center(0.0, 0.0, 0.0)
{
}

void changevertex::apply(osg::Geode& geode)
{
    for (unsigned int i = 0; i < geode.getNumDrawables(); ++i)
        if (osg::Drawable* drawable = geode.getDrawable(i))
            apply(*drawable);
    geode.dirtyBound();
}

void changevertex::apply(osg::Drawable& drawable)
{
    std::vector<osg::Vec3d> points;
    osg::Geometry* geometry = dynamic_cast<osg::Geometry*>(&drawable);
    if (!geometry)
        return;
    // Only single precision vertex arrays are re-projected: anything else
    // (or no array at all) is left as it came.
    osg::Vec3Array* vertices = dynamic_cast<osg::Vec3Array*>(geometry->getVertexArray());
    if (!vertices || !srs || !mapsrs)
        return;

    points.reserve(vertices->size());
    for (const osg::Vec3f& v : *vertices)
        points.emplace_back(double(v.x()) + offset.x(), double(v.y()) + offset.y(), double(v.z()) + offset.z());

    // One PROJ call for the whole drawable. A point that fails keeps what the
    // transform left in it, as the others go on.
    srs->transform(points, mapsrs->getGeocentricSRS());

    if (!points.empty())
    {
        if (center.x() == 0.0 && center.y() == 0.0 && center.z() == 0.0)
            center = points.front();
        for (std::size_t i = 0; i < points.size(); ++i)
        {
            const osg::Vec3d relative = points[i] - center;
            (*vertices)[i].set(float(relative.x()), float(relative.y()), float(relative.z()));
        }
    }
    drawable.dirtyBound();
}
