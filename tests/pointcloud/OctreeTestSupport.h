// Point cloud octrees built by hand, in the structure the table visitor
// reads: tiles are osg::PagedLODs whose child 0 is a content transform named
// "ARSCmark<n>" and whose child 1 is the loaded next level, an osg::Group of
// the child tiles. And a cull traversal run without a window, as a camera's
// cull runs it.
#ifndef CXVIEWER_TESTS_OCTREETESTSUPPORT_H
#define CXVIEWER_TESTS_OCTREETESTSUPPORT_H

#include <pointcloud/pagelodCullCallBack>
#include <pointcloud/pagelodVisitor>

#include <osg/FrameStamp>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/MatrixTransform>
#include <osg/PagedLOD>
#include <osg/Texture2D>
#include <osg/Uniform>
#include <osg/Viewport>
#include <osgUtil/CullVisitor>
#include <osgUtil/RenderStage>
#include <osgUtil/StateGraph>

#include <array>
#include <cfloat>
#include <limits>
#include <string>
#include <vector>

namespace cxtest
{

/** A tile with a content transform named `contentName` holding one point
  * at `centre`. The tile's own range covers every distance. */
inline osg::ref_ptr<osg::PagedLOD> makeTile(const std::string& contentName, const osg::Vec3& centre = osg::Vec3())
{
    osg::ref_ptr<osg::Geometry> points = new osg::Geometry;
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    vertices->push_back(centre);
    points->setVertexArray(vertices.get());
    points->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, 1));
    // A metre of extent, so that small feature culling keeps the tile.
    points->setInitialBound(osg::BoundingBox(centre - osg::Vec3(1, 1, 1), centre + osg::Vec3(1, 1, 1)));
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(points.get());

    osg::ref_ptr<osg::MatrixTransform> content = new osg::MatrixTransform;
    content->setName(contentName);
    content->addChild(geode.get());

    osg::ref_ptr<osg::PagedLOD> tile = new osg::PagedLOD;
    tile->setCenterMode(osg::LOD::USER_DEFINED_CENTER);
    tile->setCenter(centre);
    tile->setRadius(1.0f);
    tile->addChild(content.get(), 0.0f, FLT_MAX);
    return tile;
}

/** The content transform of a tile (its child 0). */
inline osg::Transform* contentOf(osg::PagedLOD* tile)
{
    return tile && tile->getNumChildren() ? tile->getChild(0)->asTransform() : nullptr;
}

/** Hangs `children` under a new group as the tile's loaded next level, seen
  * within `range` of the tile's centre. Returns the group. */
inline osg::Group* attachNextLevel(osg::PagedLOD* tile, const std::vector<osg::ref_ptr<osg::Node>>& children,
                                   float range = FLT_MAX)
{
    osg::ref_ptr<osg::Group> group = new osg::Group;
    for (const osg::ref_ptr<osg::Node>& child : children)
        group->addChild(child.get());
    tile->addChild(group.get(), 0.0f, range, "next.osgb");
    return group.get();
}

/** A complete octree of `levels` levels below the root "PoRoot": every tile
  * has all eight children, octants 0 to 7 in rising order. */
inline osg::ref_ptr<osg::PagedLOD> completeOctree(int levels)
{
    struct Builder
    {
        static void grow(osg::PagedLOD* tile, int levelsLeft)
        {
            if (levelsLeft == 0)
                return;
            std::vector<osg::ref_ptr<osg::Node>> children;
            for (int octant = 0; octant < 8; ++octant)
            {
                osg::ref_ptr<osg::PagedLOD> child = makeTile("ARSCmark" + std::to_string(octant));
                grow(child.get(), levelsLeft - 1);
                children.push_back(child);
            }
            attachNextLevel(tile, children);
        }
    };
    osg::ref_ptr<osg::PagedLOD> root = makeTile("ARSCmark");
    root->setName("PoRoot");
    Builder::grow(root.get(), levels);
    return root;
}

/** One cull of `scene` as a camera at `eye` looking at `target` with the
  * given projection would run it, frame number `frame`. No window needed. */
inline void cullOnce(osg::Node* scene, unsigned int frame,
                     const osg::Matrixd& projection = osg::Matrixd::perspective(30.0, 4.0 / 3.0, 1.0, 10000.0),
                     const osg::Vec3d& eye = osg::Vec3d(0.0, -100.0, 0.0), const osg::Vec3d& target = osg::Vec3d(),
                     double viewportHeight = 600.0)
{
    osg::ref_ptr<osgUtil::CullVisitor> cull = new osgUtil::CullVisitor;
    osg::ref_ptr<osgUtil::StateGraph> stateGraph = new osgUtil::StateGraph;
    osg::ref_ptr<osgUtil::RenderStage> renderStage = new osgUtil::RenderStage;
    cull->setStateGraph(stateGraph.get());
    cull->setRenderStage(renderStage.get());
    osg::ref_ptr<osg::FrameStamp> stamp = new osg::FrameStamp;
    stamp->setFrameNumber(frame);
    cull->setFrameStamp(stamp.get());
    cull->setTraversalNumber(frame);
    cull->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);

    osg::ref_ptr<osg::Viewport> viewport = new osg::Viewport(0.0, 0.0, viewportHeight * 4.0 / 3.0, viewportHeight);
    renderStage->setViewport(viewport.get());
    cull->pushViewport(viewport.get());
    cull->pushProjectionMatrix(new osg::RefMatrix(projection));
    cull->pushModelViewMatrix(new osg::RefMatrix(osg::Matrixd::lookAt(eye, target, osg::Vec3d(0.0, 0.0, 1.0))),
                              osg::Transform::ABSOLUTE_RF);
    scene->accept(*cull);
    cull->popModelViewMatrix();
    cull->popProjectionMatrix();
    cull->popViewport();
}

/** The table texture that the last cull put on a cloud root. */
inline osg::Texture2D* tableOf(osg::Node* root)
{
    osg::StateSet* state = root ? root->getStateSet() : nullptr;
    return state ? dynamic_cast<osg::Texture2D*>(state->getTextureAttribute(0, osg::StateAttribute::TEXTURE))
                 : nullptr;
}

/** The four bytes of record `index` of a table. */
inline std::array<int, 4> recordOf(const osg::Texture2D* table, int index)
{
    const unsigned char* data = table->getImage()->data();
    return {data[4 * index], data[4 * index + 1], data[4 * index + 2], data[4 * index + 3]};
}

/** The "vsnStart" of a content transform, or -1 without one. */
inline int vsnStartOf(const osg::Node* content)
{
    const osg::StateSet* state = content ? content->getStateSet() : nullptr;
    const osg::Uniform* uniform = state ? state->getUniform("vsnStart") : nullptr;
    int value = -1;
    if (uniform)
        uniform->get(value);
    return value;
}

/** A float uniform of a state set, or NaN without one. */
inline float floatUniform(const osg::StateSet* state, const char* name)
{
    const osg::Uniform* uniform = state ? state->getUniform(name) : nullptr;
    float value = std::numeric_limits<float>::quiet_NaN();
    if (uniform)
        uniform->get(value);
    return value;
}

} // namespace cxtest

#endif
