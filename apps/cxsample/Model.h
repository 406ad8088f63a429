// What every sample model shares: the four levels of detail and their file
// names, assembling a model from its meshes, measuring it and writing it.
#ifndef CXSAMPLE_MODEL_H
#define CXSAMPLE_MODEL_H

#include "MeshBuilder.h"

#include <osg/Image>
#include <osg/Node>

#include <array>
#include <string>
#include <vector>

namespace cxsample
{

/** The levels of detail, from the nearest to the farthest view. The viewer
 *  finds the others from the crude file's name by putting the level's word in
 *  the place of "crude". */
enum class Lod
{
    Fine,
    Middle,
    Crude,
    Crude2
};

constexpr std::array<Lod, 4> kLods = {Lod::Fine, Lod::Middle, Lod::Crude, Lod::Crude2};

/** "fine", "middle", "crude" or "crude2". */
const char* lodWord(Lod lod);

/** `stem` + "_" + the level's word + ".osgb"; `stem` must not hold "crude". */
std::string lodFileName(const std::string& stem, Lod lod);

/** A model made of meshes, each plain or with a texture. */
class ModelAssembly
{
public:
    void add(const std::string& name, const MeshBuilder& mesh, osg::Image* texture = nullptr);

    /** One geode with a geometry per mesh; vertex colours drive the lit
     *  colour (ambient and diffuse), textures are modulated by them. */
    osg::ref_ptr<osg::Node> node(const std::string& name) const;

private:
    struct Part
    {
        std::string name;
        MeshBuilder mesh;
        osg::ref_ptr<osg::Image> texture;
    };
    std::vector<Part> _parts;
};

/** The radius of the smallest sphere about the model's origin that holds all
 *  its vertices: the bound the viewer gives the object, whose centre is the
 *  object's position. */
double originRadius(osg::Node& node);

/** Writes `node` as OpenSceneGraph binary (zlib-compressed, images embedded);
 *  throws Error when the file cannot be written. */
void writeModel(osg::Node& node, const std::string& path);

} // namespace cxsample

#endif
