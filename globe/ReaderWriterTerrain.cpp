// The pseudo-file reader of the terrain. The terrain's paged nodes name their
// children "<builder>.roots.globe_terrain" or "<builder>.<level>_<x>_<y>.globe_terrain";
// the database pager reads those names on its own thread, and this reader
// builds the tiles there, with the builder that the read options lead to.
// The library registers it when it loads.

#include "TerrainTileBuilder.h"

#include <osgDB/FileNameUtils>
#include <osgDB/ReaderWriter>
#include <osgDB/Registry>

namespace globe
{
namespace
{

using detail::TerrainTileBuilder;

class ReaderWriterTerrain : public osgDB::ReaderWriter
{
public:
    ReaderWriterTerrain()
    {
        supportsExtension(TerrainTileBuilder::extension(), "Globe terrain tiles (pseudo files of the pager)");
    }

    const char* className() const override { return "globe terrain tile reader"; }

    ReadResult readObject(const std::string& fileName, const Options* options) const override
    {
        return readNode(fileName, options);
    }

    ReadResult readNode(const std::string& fileName, const Options* options) const override
    {
        if (!acceptsExtension(osgDB::getLowerCaseFileExtension(fileName)))
            return ReadResult::FILE_NOT_HANDLED;
        TerrainTileBuilder::Request request;
        if (!TerrainTileBuilder::parseFileName(osgDB::getSimpleFileName(fileName), request))
            return ReadResult("not a terrain tile name: " + fileName);
        bool retired = false;
        osg::ref_ptr<TerrainTileBuilder> builder = TerrainTileBuilder::fromOptions(options, &retired);
        // A request still queued when its terrain was rebuilt: its tree has
        // left the scene, so an empty answer ends it quietly.
        if (retired)
            return new osg::Group;
        if (!builder || builder->getSerial() != request.builder)
            return ReadResult("no terrain reads " + fileName);
        osg::ref_ptr<osg::Node> node = builder->read(request);
        if (!node)
            return ReadResult("no terrain tiles for " + fileName);
        return node.release();
    }
};

osgDB::RegisterReaderWriterProxy<ReaderWriterTerrain> g_terrainReaderWriter;

} // namespace
} // namespace globe
