// The sample's point cloud (the business district of Beijing, tiled by
// cxtiler points) on the real globe: it draws under the LiDAR group, each
// draw mode colours it as the program says, and its points are sized by the
// depth of the octree drawn where they lie.
#include "OctreeTestSupport.h"
#include "SampleMapFixture.h"

#include <osg/PagedLOD>
#include <osgDB/ReadFile>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

using namespace cxtest;

namespace
{

const osg::Vec4ub kBackground(178, 178, 178, 255); // the camera's clear colour

bool isBackground(const osg::Vec4ub& p)
{
    return std::abs(int(p.r()) - kBackground.r()) <= 2 && std::abs(int(p.g()) - kBackground.g()) <= 2 &&
           std::abs(int(p.b()) - kBackground.b()) <= 2;
}

bool near(const osg::Vec4ub& p, int r, int g, int b, int tolerance = 8)
{
    return std::abs(int(p.r()) - r) <= tolerance && std::abs(int(p.g()) - g) <= tolerance &&
           std::abs(int(p.b()) - b) <= tolerance;
}

/** The fraction of the frame's point pixels (those that are not the clear
  * colour) for which `test` holds, and their number. */
template <typename Test>
double fractionOfPointPixels(const osg::Image& frame, Test test, int* count = nullptr)
{
    int points = 0, hits = 0;
    for (int y = 0; y < frame.t(); ++y)
        for (int x = 0; x < frame.s(); ++x)
        {
            const osg::Vec4ub p = pixelAt(frame, x, y);
            if (isBackground(p))
                continue;
            ++points;
            hits += test(p) ? 1 : 0;
        }
    if (count)
        *count = points;
    return points ? double(hits) / points : 0.0;
}

osg::Geometry* contentGeometry(osg::PagedLOD* tile)
{
    osg::Group* content = tile->getChild(0)->asGroup();
    osg::Geode* geode = content && content->getNumChildren() ? content->getChild(0)->asGeode() : nullptr;
    return geode && geode->getNumDrawables() ? geode->getDrawable(0)->asGeometry() : nullptr;
}

float tileUniform(osg::PagedLOD* tile, const char* name)
{
    return floatUniform(tile->getChild(0)->getStateSet(), name);
}

osg::Vec3 tileOffset(osg::PagedLOD* tile)
{
    osg::Vec3 offset;
    const osg::Uniform* uniform = tile->getChild(0)->getStateSet()->getUniform("offset");
    if (uniform)
        uniform->get(offset);
    return offset;
}

class SampleCloud : public SampleMapFixture
{
protected:
    void SetUp() override
    {
        SampleMapFixture::SetUp();
        if (HasFatalFailure())
            return;
        const std::string file = sampleDir() + "/pointcloud/beijing/cloud.osgb";
        ASSERT_TRUE(std::filesystem::is_regular_file(file))
            << "no sample point cloud at " << file << "; prepare it with scripts/prepare-data.sh";
        osg::ref_ptr<osg::Node> loaded = osgDB::readNodeFile(file);
        cloud = dynamic_cast<osg::PagedLOD*>(loaded.get());
        ASSERT_TRUE(cloud.valid()) << file;
        ASSERT_EQ(cloud->getName(), "PoRoot");
        viewer->getLiDAR()->addChild(cloud.get());
        // The start flight first, so that the view below is the last word.
        ASSERT_TRUE(settle());
    }

    /** Hides everything but the point clouds: the frames then show the
      * points on the clear colour. */
    void showPointsOnly()
    {
        osg::Group* root = viewer->getRoot();
        for (unsigned int i = 0; i < root->getNumChildren(); ++i)
            if (root->getChild(i) != viewer->getLiDAR())
                root->getChild(i)->setNodeMask(0);
    }

    void setLidarUniform(osg::Uniform* uniform) { viewer->getLiDAR()->getOrCreateStateSet()->addUniform(uniform); }

    osg::ref_ptr<osg::PagedLOD> cloud;
};

} // namespace

TEST_F(SampleCloud, TheCloudDrawsOverTheDistrictAndItsTableListsTheVisibleTiles)
{
    lookAt(116.458, 39.912, 40.0, 30.0, -40.0, 1800.0);
    osg::ref_ptr<osg::Image> withCloud = grabFrame();
    saveScreenshot(*withCloud, "pointcloud-sample");
    viewer->getLiDAR()->setNodeMask(0);
    osg::ref_ptr<osg::Image> without = grabFrame();
    viewer->getLiDAR()->setNodeMask(~0u);

    const int changed = differingPixels(*withCloud, *without, 8);
    EXPECT_GT(changed, windowWidth * windowHeight / 5) << "the cloud covers much of the view";

    osg::Texture2D* table = tableOf(cloud.get());
    ASSERT_NE(table, nullptr);
    EXPECT_NE(recordOf(table, 0)[0], 0) << "the root's next level is visible";
    EXPECT_EQ(vsnStartOf(cloud->getChild(0)), 0);
    // The children of the root are numbered from 1 on.
    ASSERT_EQ(cloud->getNumChildren(), 2u);
    osg::Group* level1 = cloud->getChild(1)->asGroup();
    ASSERT_NE(level1, nullptr);
    ASSERT_GT(level1->getNumChildren(), 0u);
    EXPECT_EQ(vsnStartOf(dynamic_cast<osg::PagedLOD*>(level1->getChild(0))->getChild(0)), 1);
}

TEST_F(SampleCloud, EachDrawModeColoursTheCloudAsWritten)
{
    lookAt(116.458, 39.912, 40.0, 0.0, -60.0, 1500.0);
    showPointsOnly();
    osg::StateSet* rootState = cloud->getOrCreateStateSet();

    setLidarUniform(new osg::Uniform("PotreeDrawmode", 1.0f));
    osg::ref_ptr<osg::Image> classes = grabFrame();
    saveScreenshot(*classes, "pointcloud-sample-classes");
    int count = 0;
    // Ground orange, buildings red, trees green, water dark grey.
    const double classColoured = fractionOfPointPixels(
        *classes,
        [](const osg::Vec4ub& p) {
            return near(p, 255, 127, 0) || near(p, 255, 0, 0) || near(p, 0, 255, 0) || near(p, 64, 64, 64);
        },
        &count);
    EXPECT_GT(count, windowWidth * windowHeight / 4);
    EXPECT_GT(classColoured, 0.85);
    EXPECT_GT(fractionOfPointPixels(*classes, [](const osg::Vec4ub& p) { return near(p, 255, 0, 0); }), 0.05)
        << "buildings";
    EXPECT_GT(fractionOfPointPixels(*classes, [](const osg::Vec4ub& p) { return near(p, 255, 127, 0); }), 0.05)
        << "ground";

    setLidarUniform(new osg::Uniform("PotreeDrawmode", 2.0f));
    osg::ref_ptr<osg::Image> heights = grabFrame();
    saveScreenshot(*heights, "pointcloud-sample-heights");
    // Pure hues: one channel full, one empty.
    EXPECT_GT(fractionOfPointPixels(*heights,
                                    [](const osg::Vec4ub& p) {
                                        const int hi = std::max({p.r(), p.g(), p.b()});
                                        const int lo = std::min({p.r(), p.g(), p.b()});
                                        return hi >= 247 && lo <= 8;
                                    }),
              0.85);
    // The ground is low: mostly red; roofs reach up the ramp.
    EXPECT_GT(fractionOfPointPixels(*heights, [](const osg::Vec4ub& p) { return near(p, 255, 0, 0, 30); }), 0.2);
    EXPECT_GT(fractionOfPointPixels(*heights, [](const osg::Vec4ub& p) { return p.b() > 200 || p.g() > 200; }),
              0.05);

    setLidarUniform(new osg::Uniform("PotreeDrawmode", 3.0f));
    osg::ref_ptr<osg::Image> intensity = grabFrame();
    saveScreenshot(*intensity, "pointcloud-sample-intensity");
    EXPECT_GT(fractionOfPointPixels(*intensity,
                                    [](const osg::Vec4ub& p) {
                                        return std::abs(p.r() - p.g()) <= 3 && std::abs(p.g() - p.b()) <= 3;
                                    }),
              0.95);

    setLidarUniform(new osg::Uniform("PotreeDrawmode", 0.0f));
    osg::ref_ptr<osg::Image> stored = grabFrame();
    saveScreenshot(*stored, "pointcloud-sample-colours");
    EXPECT_LT(fractionOfPointPixels(*stored,
                                    [](const osg::Vec4ub& p) {
                                        return near(p, 255, 127, 0) || near(p, 255, 0, 0) || near(p, 0, 255, 0);
                                    }),
              0.2);
    EXPECT_LT(fractionOfPointPixels(*stored,
                                    [](const osg::Vec4ub& p) {
                                        return std::abs(p.r() - p.g()) <= 3 && std::abs(p.g() - p.b()) <= 3;
                                    }),
              0.9);

    // The sample flags its tallest tower with user data 1.
    rootState->addUniform(new osg::Uniform("flag", 1));
    rootState->addUniform(new osg::Uniform("flagColor", osg::Vec3(1.0f, 0.0f, 1.0f)));
    osg::ref_ptr<osg::Image> flagged = grabFrame();
    saveScreenshot(*flagged, "pointcloud-sample-flagged");
    int magenta = 0;
    fractionOfPointPixels(*flagged, [&](const osg::Vec4ub& p) {
        magenta += near(p, 255, 0, 255) ? 1 : 0;
        return false;
    });
    EXPECT_GT(magenta, 200);
    EXPECT_EQ(fractionOfPointPixels(*stored, [](const osg::Vec4ub& p) { return near(p, 255, 0, 255); }), 0.0);
}

TEST_F(SampleCloud, PointsWhereTheOctreeIsDrawnThreeLevelsDeeperAreSmallerOnScreen)
{
    // A low view from the south-west corner of the cloud across it: near the
    // eye the pager brings in the finest level, at the far corner only the
    // first.
    lookAt(116.45131, 39.90838, 40.0, 45.0, -12.0, 120.0);
    osg::ref_ptr<osg::Image> full = grabFrame();
    saveScreenshot(*full, "pointcloud-sample-oblique");

    // Draw only a sparse choice of the root tile's own points, so that each
    // stands alone on the screen, and none of the deeper tiles' points; the
    // visible octree (and so each point's size) stays as loaded.
    showPointsOnly();
    std::vector<osg::PagedLOD*> tiles{cloud.get()};
    for (std::size_t i = 0; i < tiles.size(); ++i)
    {
        if (tiles[i]->getNumChildren() < 2)
            continue;
        osg::Group* level = tiles[i]->getChild(1)->asGroup();
        for (unsigned int c = 0; level && c < level->getNumChildren(); ++c)
            if (osg::PagedLOD* child = dynamic_cast<osg::PagedLOD*>(level->getChild(c)))
            {
                // The geode, not the content transform: the table's visitor
                // skips nodes that their mask hides, and would number the
                // tiles differently.
                child->getChild(0)->asGroup()->getChild(0)->setNodeMask(0);
                tiles.push_back(child);
            }
    }
    // Stop paging: the tree must stay as it is for the measurement.
    viewer->getViewer()->getDatabasePager()->setDatabasePagerThreadPause(true);

    osg::Geometry* geometry = contentGeometry(cloud.get());
    ASSERT_NE(geometry, nullptr);
    const osg::Vec3Array* vertices = dynamic_cast<const osg::Vec3Array*>(geometry->getVertexArray());
    const osg::Vec3Array* positions = dynamic_cast<const osg::Vec3Array*>(geometry->getVertexAttribArray(10));
    ASSERT_TRUE(vertices && positions);
    ASSERT_EQ(vertices->size(), positions->size());

    osg::Camera* camera = viewer->getViewer()->getCamera();
    const osg::Matrixd toWorld = cloud->getChild(0)->asTransform()->asMatrixTransform()->getMatrix();
    const osg::Matrixd view = camera->getViewMatrix();
    const osg::Matrixd window = view * camera->getProjectionMatrix() * camera->getViewport()->computeWindowMatrix();
    double fovy, aspect, zNear, zFar;
    ASSERT_TRUE(camera->getProjectionMatrix().getPerspective(fovy, aspect, zNear, zFar));
    const double slope = std::tan(fovy * 0.5 * M_PI / 180.0);
    const double rootSpacing = tileUniform(cloud.get(), "spacing");
    ASSERT_GT(rootSpacing, 0.0);
    const unsigned int frame = viewer->getViewer()->getFrameStamp()->getFrameNumber();

    // How many levels below the root are drawn at a point, by the tiles the
    // last cull selected.
    auto visibleDepth = [&](const osg::Vec3& position) {
        int depth = 0;
        osg::PagedLOD* tile = cloud.get();
        for (;;)
        {
            if (tile->getNumChildren() != 2 || tile->getFrameNumber(1) != frame)
                return depth;
            osg::Group* level = tile->getChild(1)->asGroup();
            osg::PagedLOD* inside = nullptr;
            for (unsigned int c = 0; level && c < level->getNumChildren() && !inside; ++c)
            {
                osg::PagedLOD* child = dynamic_cast<osg::PagedLOD*>(level->getChild(c));
                const osg::Vec3 corner = tileOffset(child);
                const float size = tileUniform(child, "currentNodeSize");
                const osg::Vec3 d = position - corner;
                if (d.x() > 0 && d.y() > 0 && d.z() > 0 && d.x() < size && d.y() < size && d.z() < size)
                    inside = child;
            }
            if (!inside)
                return depth;
            tile = inside;
            ++depth;
        }
    };

    // Points far apart on the screen, inside it, each with its expected size.
    struct Chosen
    {
        unsigned int index;
        osg::Vec2 at;
        int depth;
        double distance;
        double size;
    };
    std::vector<Chosen> chosen;
    const double margin = 24.0;
    // Candidates spread over the whole tile (its points are stored in no
    // particular spatial order one can rely on).
    const unsigned int stride = std::max(1u, static_cast<unsigned int>(vertices->size() / 4000));
    for (unsigned int i = 0; i < vertices->size() && chosen.size() < 120; i += stride)
    {
        const osg::Vec3d world = osg::Vec3d((*vertices)[i]) * toWorld;
        const osg::Vec3d w = world * window;
        if (w.z() <= 0.0 || w.z() >= 1.0 || w.x() < margin || w.y() < margin || w.x() > windowWidth - margin ||
            w.y() > windowHeight - margin)
            continue;
        const osg::Vec2 at(w.x(), windowHeight - w.y());
        bool alone = true;
        for (const Chosen& c : chosen)
            alone = alone && (c.at - at).length() > 2.0 * margin;
        if (!alone)
            continue;
        const int depth = visibleDepth((*positions)[i]);
        const double distance = -(world * view).z();
        const double size = 1.5 * (rootSpacing / std::pow(2.0, depth)) * 0.5 * windowHeight / (slope * distance);
        if (size < 2.0 || size > 2.0 * margin - 4.0)
            continue;
        chosen.push_back({i, at, depth, distance, size});
    }
    ASSERT_GE(chosen.size(), 10u);

    osg::ref_ptr<osg::DrawElementsUInt> sparse = new osg::DrawElementsUInt(GL_POINTS);
    for (const Chosen& c : chosen)
        sparse->push_back(c.index);
    geometry->setPrimitiveSet(0, sparse.get());
    setLidarUniform(new osg::Uniform("PotreeMinSize", 0.5f));
    setLidarUniform(new osg::Uniform("PotreeMaxSize", 200.0f));
    setLidarUniform(new osg::Uniform("PotreeDrawmode", 1.0f));
    osg::ref_ptr<osg::Image> frameImage = grabFrame();
    saveScreenshot(*frameImage, "pointcloud-sample-sparse");

    // Measured: the width of each point's square on the screen.
    int shallowest = 99, deepest = -1;
    std::vector<double> measured;
    for (const Chosen& c : chosen)
    {
        int minX = 1 << 30, maxX = -1;
        const int cx = int(std::floor(c.at.x())), cy = int(std::floor(c.at.y()));
        for (int y = cy - int(margin); y <= cy + int(margin); ++y)
            for (int x = cx - int(margin); x <= cx + int(margin); ++x)
                if (!isBackground(pixelAt(*frameImage, x, y)))
                {
                    minX = std::min(minX, x);
                    maxX = std::max(maxX, x);
                }
        measured.push_back(maxX >= minX ? maxX - minX + 1 : 0.0);
        EXPECT_NEAR(measured.back(), c.size, std::max(1.6, 0.12 * c.size))
            << "point " << c.index << " at depth " << c.depth << " at (" << c.at.x() << ", " << c.at.y() << ")";
        shallowest = std::min(shallowest, c.depth);
        deepest = std::max(deepest, c.depth);
    }
    EXPECT_GE(deepest - shallowest, 3) << "a region drawn three levels deeper than another in one view";
    // The same sizes at one distance (pixels times distance): what the depth
    // of the octree alone does. Three levels deeper, eight times smaller.
    double shallowSize = 0.0, deepSize = 0.0;
    int shallowCount = 0, deepCount = 0;
    for (std::size_t i = 0; i < chosen.size(); ++i)
    {
        const double atUnitDistance = measured[i] * chosen[i].distance;
        if (chosen[i].depth == shallowest)
        {
            shallowSize += atUnitDistance;
            ++shallowCount;
        }
        if (chosen[i].depth == deepest)
        {
            deepSize += atUnitDistance;
            ++deepCount;
        }
    }
    ASSERT_GT(shallowCount, 0);
    ASSERT_GT(deepCount, 0);
    const double ratio = (shallowSize / shallowCount) / (deepSize / deepCount);
    EXPECT_NEAR(ratio, std::pow(2.0, deepest - shallowest), 0.25 * std::pow(2.0, deepest - shallowest))
        << "depth " << shallowest << " against depth " << deepest;
    viewer->getViewer()->getDatabasePager()->setDatabasePagerThreadPause(false);
}
