#include "PointTileWriter.h"

#include "Error.h"

#include <globe/SpatialReference>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/MatrixTransform>
#include <osg/Uniform>
#include <osgDB/WriteFile>

#include <cfloat>
#include <cmath>
#include <filesystem>

namespace cxtiler
{

const char* const kPointCloudRootFile = "cloud.osgb";

namespace
{

namespace fs = std::filesystem;

/** A new folder every this many levels. */
constexpr std::size_t kLevelsPerFolder = 4;

/** The folder (relative, ending in '/', or "") of the file that holds the
 *  children of the node with octant path `path`. */
std::string folderOf(const std::string& path)
{
    std::string folder;
    for (std::size_t at = 0; at + kLevelsPerFolder <= path.size(); at += kLevelsPerFolder)
        folder += path.substr(0, at + kLevelsPerFolder).substr(at) + "/";
    return folder;
}

} // namespace

std::string PointTileWriter::childrenFile(const std::string& path) { return folderOf(path) + "r" + path + ".osgb"; }

PointTileWriter::PointTileWriter(const std::string& folder, const OctreeFrame& frame,
                                 const globe::SpatialReference* frameSrs, double lodFactor, float minz, float maxz)
    : _folder(folder), _frame(frame), _frameSrs(frameSrs), _geocentric(globe::SpatialReference::create("geocentric")),
      _lodFactor(lodFactor), _minz(minz), _maxz(maxz)
{
}

osg::ref_ptr<osg::PagedLOD> PointTileWriter::makeTile(const NodeKey& key, const std::vector<PointRecord>& points,
                                                      bool hasChildren)
{
    const double size = key.size(_frame);
    double cx, cy, cz;
    key.corner(_frame, cx, cy, cz);

    // Geocentric positions in double precision: the cube's centre (the
    // anchor) and every point, from the frame's CRS.
    std::vector<osg::Vec3d> world;
    world.reserve(points.size() + 1);
    world.emplace_back(_frame.originX + cx + size / 2, _frame.originY + cy + size / 2, _frame.originZ + cz + size / 2);
    for (const PointRecord& p : points)
        world.emplace_back(_frame.originX + p.x, _frame.originY + p.y, _frame.originZ + p.z);
    if (!_frameSrs->transform(world, _geocentric))
        throw Error("cannot turn the points of tile " + (key.level == 0 ? std::string("root") : key.path())
                    + " into geocentric coordinates: they lie outside the area of " + _frameSrs->getName());
    const osg::Vec3d anchor = world.front();

    const std::size_t n = points.size();
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array(n);
    osg::ref_ptr<osg::Vec4ubArray> colours = new osg::Vec4ubArray(n);
    osg::ref_ptr<osg::Vec3Array> positions = new osg::Vec3Array(n);
    osg::ref_ptr<osg::FloatArray> numberOfReturns = new osg::FloatArray(n);
    osg::ref_ptr<osg::FloatArray> returnNumber = new osg::FloatArray(n);
    osg::ref_ptr<osg::FloatArray> usingFlag = new osg::FloatArray(n);
    osg::ref_ptr<osg::FloatArray> intensity = new osg::FloatArray(n);
    osg::ref_ptr<osg::FloatArray> classification = new osg::FloatArray(n);
    for (std::size_t i = 0; i < n; ++i)
    {
        const PointRecord& p = points[i];
        (*vertices)[i] = osg::Vec3(world[i + 1] - anchor);
        (*colours)[i].set(p.red, p.green, p.blue, 255);
        (*positions)[i].set(static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z));
        (*numberOfReturns)[i] = p.numberOfReturns;
        (*returnNumber)[i] = p.returnNumber;
        (*usingFlag)[i] = p.userData;
        (*intensity)[i] = p.intensity;
        (*classification)[i] = p.classification;
    }
    colours->setNormalize(true);

    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setVertexArray(vertices.get());
    geometry->setColorArray(colours.get(), osg::Array::BIND_PER_VERTEX);
    const std::pair<int, osg::Array*> attributes[] = {
        {kPositionAttribute, positions.get()},           {kNumberOfReturnsAttribute, numberOfReturns.get()},
        {kReturnNumberAttribute, returnNumber.get()},     {kUsingFlagAttribute, usingFlag.get()},
        {kIntensityAttribute, intensity.get()},           {kClassificationAttribute, classification.get()}};
    for (const auto& [location, array] : attributes)
    {
        array->setNormalize(false);
        geometry->setVertexAttribArray(static_cast<unsigned int>(location), array, osg::Array::BIND_PER_VERTEX);
    }
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, static_cast<GLsizei>(n)));

    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry.get());

    osg::ref_ptr<osg::MatrixTransform> content = new osg::MatrixTransform(osg::Matrixd::translate(anchor));
    content->setName(key.level == 0 ? std::string("ARSCmark") : "ARSCmark" + std::to_string(key.octant()));
    content->addChild(geode.get());
    osg::StateSet* state = content->getOrCreateStateSet();
    state->addUniform(new osg::Uniform("offset", osg::Vec3(static_cast<float>(cx), static_cast<float>(cy),
                                                           static_cast<float>(cz))),
                      osg::StateAttribute::ON);
    state->addUniform(new osg::Uniform("currentNodeSize", static_cast<float>(size)), osg::StateAttribute::ON);
    state->addUniform(new osg::Uniform("spacing", static_cast<float>(std::ldexp(_frame.rootSpacing(), -key.level))),
                      osg::StateAttribute::ON);

    osg::ref_ptr<osg::PagedLOD> tile = new osg::PagedLOD;
    tile->addChild(content.get(), 0.0f, FLT_MAX);
    tile->setRangeMode(osg::LOD::DISTANCE_FROM_EYE_POINT);
    tile->setCenterMode(osg::LOD::USER_DEFINED_CENTER);
    tile->setCenter(anchor);
    tile->setRadius(size * std::sqrt(3.0) / 2.0);
    if (hasChildren)
    {
        // Named from the folder of the file that holds this tile.
        const std::string path = key.path();
        const std::string file = childrenFile(path);
        const std::string here = key.level == 0 ? std::string() : folderOf(path.substr(0, path.size() - 1));
        tile->setFileName(1, file.substr(here.size()));
        tile->setRange(1, 0.0f, static_cast<float>(_lodFactor * size));
    }

    ++_stats.tiles;
    _stats.points += n;
    _stats.largestTile = std::max(_stats.largestTile, n);
    return tile;
}

void PointTileWriter::write(osg::Node& node, const std::string& relative)
{
    const fs::path path = fs::path(_folder) / relative;
    std::error_code ec;
    fs::create_directories(path.parent_path(), ec);
    if (!osgDB::writeNodeFile(node, path.string()))
        throw Error("cannot write the tile file '" + path.string() + "' (is the osgb plugin installed, the disk full?)");
    ++_stats.files;
    const auto bytes = fs::file_size(path, ec);
    _stats.bytes += ec ? 0 : static_cast<std::uint64_t>(bytes);
}

void PointTileWriter::root(const NodeKey& key, std::vector<PointRecord>& points, bool hasChildren)
{
    osg::ref_ptr<osg::PagedLOD> root = makeTile(key, points, hasChildren);
    root->setName("PoRoot");
    osg::StateSet* state = root->getOrCreateStateSet();
    state->addUniform(new osg::Uniform("minz", _minz), osg::StateAttribute::ON);
    state->addUniform(new osg::Uniform("maxz", _maxz), osg::StateAttribute::ON);
    state->addUniform(new osg::Uniform("isCircle", true), osg::StateAttribute::ON);
    state->addUniform(new osg::Uniform("flag", 0), osg::StateAttribute::ON);
    state->addUniform(new osg::Uniform("flagColor", osg::Vec3(1.0f, 1.0f, 0.0f)), osg::StateAttribute::ON);
    write(*root, kPointCloudRootFile);
}

void PointTileWriter::beginGroup(const NodeKey&) { _group = new osg::Group; }

void PointTileWriter::tile(const NodeKey& key, std::vector<PointRecord>& points, bool hasChildren)
{
    _group->addChild(makeTile(key, points, hasChildren).get());
}

void PointTileWriter::endGroup(const NodeKey& parent)
{
    write(*_group, childrenFile(parent.path()));
    _group = nullptr;
}

} // namespace cxtiler
