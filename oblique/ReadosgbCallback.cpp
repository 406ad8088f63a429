#include <oblique/ReadosgbCallback>

#include <oblique/changevertex>

#include <globe/SpatialReference>

#include <osg/PagedLOD>
#include <osgDB/Registry>

namespace
{

struct PluginData
{
    const osg::MatrixTransform* pp = nullptr;
    const osg::Vec3d* offset = nullptr;
    const globe::SpatialReference* srs = nullptr;
    const globe::SpatialReference* mapsrs = nullptr;

    bool complete() const { return pp && offset && srs && mapsrs; }
};

PluginData pluginData(const osgDB::Options& options)
{
    PluginData data;
    data.pp = static_cast<const osg::MatrixTransform*>(options.getPluginData("pp"));
    data.offset = static_cast<const osg::Vec3d*>(options.getPluginData("offset"));
    data.srs = static_cast<const globe::SpatialReference*>(options.getPluginData("srs"));
    data.mapsrs = static_cast<const globe::SpatialReference*>(options.getPluginData("mapsrs"));
    return data;
}

// Gives the paged node the read's options, so that its children are read
// with them and come back through the callback, and fits its geode children
// in their places; children of other kinds stay as they are.
void fitPagedLOD(osg::PagedLOD& plod, const osgDB::Options* options, const PluginData& data,
                 const osg::Matrixd& parentInverse)
{
    plod.setDatabaseOptions(const_cast<osgDB::Options*>(options));
    for (unsigned int i = 0; i < plod.getNumChildren(); ++i)
    {
        osg::Geode* geode = dynamic_cast<osg::Geode*>(plod.getChild(i));
        if (!geode)
            continue;
        osg::ref_ptr<osg::MatrixTransform> transform =
            ReadosgbCallback::fitGeode(geode, *data.offset, data.srs, data.mapsrs, parentInverse);
        plod.replaceChild(geode, transform.get());
    }
}

} // namespace

ReadosgbCallback::ReadosgbCallback(globe::MapNode* mapNode_, int /*reserved*/) : mapNode(mapNode_) {}

ReadosgbCallback::~ReadosgbCallback() = default;

osg::ref_ptr<osg::MatrixTransform> ReadosgbCallback::fitGeode(osg::Geode* geode, const osg::Vec3d& offset,
                                                              const globe::SpatialReference* srs,
                                                              const globe::SpatialReference* mapsrs,
                                                              const osg::Matrixd& parentInverse)
{
    // The geode's centre in the model's system, taken to geographic
    // coordinates: the answer is not used further.
    const osg::Vec3f boundCentre = geode->getBound().center();
    const osg::Vec3d centre(double(boundCentre.x()) + offset.x(), double(boundCentre.y()) + offset.y(),
                            double(boundCentre.z()) + offset.z());
    osg::Vec3d geographic;
    srs->transform(centre, srs->getGeographicSRS(), geographic);

    changevertex visitor(offset, srs, mapsrs);
    geode->accept(visitor);

    // Row vectors: a vertex is first moved to the anchor, then out of the
    // parent transform's frame, so that the parent's own matrix brings it
    // back.
    osg::Matrixd matrix = osg::Matrixd::translate(visitor.center);
    matrix.postMult(parentInverse);

    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform;
    transform->setMatrix(matrix);
    transform->addChild(geode);
    return transform;
}

osgDB::ReaderWriter::ReadResult ReadosgbCallback::readNode(const std::string& filename, const osgDB::Options* options)
{
    osgDB::ReaderWriter::ReadResult result = osgDB::Registry::instance()->readNodeImplementation(filename, options);
    if (!options)
        return result;
    // Only reads whose options carry this kind of callback are oblique tiles.
    if (!dynamic_cast<ReadosgbCallback*>(options->getReadFileCallback()))
        return result;

    const PluginData data = pluginData(*options);
    osg::Node* node = result.getNode();
    // A failed read, or options that lack an entry, come back untouched.
    if (!node || !data.complete())
        return result;
    const osg::Matrixd parentInverse = osg::Matrixd::inverse(data.pp->getMatrix());

    if (osg::PagedLOD* plod = dynamic_cast<osg::PagedLOD*>(node))
    {
        fitPagedLOD(*plod, options, data, parentInverse);
        return result;
    }
    if (osg::Geode* geode = node->asGeode())
    {
        osg::ref_ptr<osg::MatrixTransform> transform =
            fitGeode(geode, *data.offset, data.srs, data.mapsrs, parentInverse);
        return osgDB::ReaderWriter::ReadResult(transform.get(), osgDB::ReaderWriter::ReadResult::FILE_LOADED);
    }
    if (osg::Group* group = node->asGroup())
    {
        const unsigned int count = group->getNumChildren();
        for (unsigned int i = 0; i < count; ++i)
            if (osg::PagedLOD* child = dynamic_cast<osg::PagedLOD*>(group->getChild(i)))
                fitPagedLOD(*child, options, data, parentInverse);
        return result;
    }
    return result;
}
