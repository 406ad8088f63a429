#include "Model.h"

#include "Error.h"
#include "Textures.h"

#include <osg/Geode>
#include <osg/Material>
#include <osg/NodeVisitor>
#include <osgDB/Options>
#include <osgDB/WriteFile>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace cxsample
{

const char* lodWord(Lod lod)
{
    switch (lod)
    {
    case Lod::Fine:
        return "fine";
    case Lod::Middle:
        return "middle";
    case Lod::Crude:
        return "crude";
    case Lod::Crude2:
        return "crude2";
    }
    return "crude";
}

std::string lodFileName(const std::string& stem, Lod lod)
{
    // The viewer finds the levels by the first "crude" in the path.
    if (stem.find("crude") != std::string::npos)
        throw std::logic_error("a model stem must not hold \"crude\": " + stem);
    return stem + "_" + lodWord(lod) + ".osgb";
}

void ModelAssembly::add(const std::string& name, const MeshBuilder& mesh, osg::Image* texture)
{
    if (!mesh.empty())
        _parts.push_back(Part{name, mesh, texture});
}

osg::ref_ptr<osg::Node> ModelAssembly::node(const std::string& name) const
{
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->setName(name);
    for (const Part& part : _parts)
    {
        osg::ref_ptr<osg::Geometry> geometry = part.mesh.build(part.name, part.texture.valid());
        if (part.texture.valid())
            geometry->setStateSet(textureState(part.texture.get()).get());
        geode->addDrawable(geometry.get());
    }
    osg::ref_ptr<osg::Material> material = new osg::Material;
    material->setColorMode(osg::Material::AMBIENT_AND_DIFFUSE);
    material->setSpecular(osg::Material::FRONT_AND_BACK, osg::Vec4(0.08f, 0.08f, 0.08f, 1.0f));
    material->setShininess(osg::Material::FRONT_AND_BACK, 16.0f);
    geode->getOrCreateStateSet()->setAttributeAndModes(material.get(), osg::StateAttribute::ON);
    return geode;
}

namespace
{

class OriginRadiusVisitor : public osg::NodeVisitor
{
public:
    OriginRadiusVisitor() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}

    void apply(osg::Drawable& drawable) override
    {
        const osg::Geometry* geometry = drawable.asGeometry();
        const auto* positions = geometry ? dynamic_cast<const osg::Vec3Array*>(geometry->getVertexArray()) : nullptr;
        if (!positions)
            return;
        for (const osg::Vec3& p : *positions)
            radius2 = std::max(radius2, static_cast<double>(p.length2()));
    }

    double radius2 = 0.0;
};

} // namespace

double originRadius(osg::Node& node)
{
    OriginRadiusVisitor visitor;
    node.accept(visitor);
    return std::sqrt(visitor.radius2);
}

void writeModel(osg::Node& node, const std::string& path)
{
    osg::ref_ptr<osgDB::Options> options = new osgDB::Options("Compressor=zlib WriteImageHint=IncludeData");
    if (!osgDB::writeNodeFile(node, path, options.get()))
        throw Error("cannot write " + path);
}

} // namespace cxsample
