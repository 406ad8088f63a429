// The sample's oblique dataset on the real globe: it lands where its
// metadata says, its tiles page in through the read callback once each, and
// its ground lies on the globe's.
#include "SampleMapFixture.h"

#include <globe/SpatialReference>
#include <oblique/ObliqueDataset>
#include <oblique/ReadosgbCallback>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/PagedLOD>
#include <osgDB/FileNameUtils>
#include <osgDB/ReadFile>
#include <osgDB/Registry>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <mutex>

namespace
{

// The viewer's read callback, counting the files it is handed.
class CountingCallback : public ReadosgbCallback
{
public:
    osgDB::ReaderWriter::ReadResult readNode(const std::string& fileName, const osgDB::Options* options) override
    {
        {
            std::lock_guard<std::mutex> lock(_mutex);
            ++_reads[osgDB::getSimpleFileName(fileName)];
        }
        return ReadosgbCallback::readNode(fileName, options);
    }

    std::map<std::string, int> reads() const
    {
        std::lock_guard<std::mutex> lock(_mutex);
        return _reads;
    }

private:
    mutable std::mutex _mutex;
    std::map<std::string, int> _reads;
};

/** The roof of the tallest building of a tile's coarse mesh, in the model's
 *  coordinates: its rectangle and height. */
struct Roof
{
    double x0 = 1e30, y0 = 1e30, x1 = -1e30, y1 = -1e30, top = -1e30;
};

Roof tallestRoof(const std::string& rootTile)
{
    Roof roof;
    osg::ref_ptr<osg::Node> node = osgDB::readRefNodeFile(rootTile); // no options: model coordinates
    auto* plod = dynamic_cast<osg::PagedLOD*>(node.get());
    const osg::Geode* geode = plod && plod->getNumChildren() ? plod->getChild(0)->asGeode() : nullptr;
    if (!geode)
        return roof;
    const auto* vertices = dynamic_cast<const osg::Vec3Array*>(geode->getDrawable(0)->asGeometry()->getVertexArray());
    for (const osg::Vec3& v : *vertices)
        roof.top = std::max(roof.top, double(v.z()));
    for (const osg::Vec3& v : *vertices)
        if (v.z() > roof.top - 0.01)
        {
            roof.x0 = std::min(roof.x0, double(v.x()));
            roof.x1 = std::max(roof.x1, double(v.x()));
            roof.y0 = std::min(roof.y0, double(v.y()));
            roof.y1 = std::max(roof.y1, double(v.y()));
        }
    return roof;
}

} // namespace

class SampleOblique : public cxtest::SampleMapFixture
{
protected:
    void SetUp() override
    {
        SampleMapFixture::SetUp();
        if (HasFatalFailure())
            return;
        folder = basePath + "/oblique";
        ASSERT_TRUE(std::filesystem::is_regular_file(folder + "/metadata.xml"))
            << "the sample has no oblique dataset: prepare it with scripts/prepare-data.sh";
        std::string message;
        dataset = ObliqueDataset::open(folder, message);
        ASSERT_TRUE(dataset.valid()) << message;
        installed = viewer->readFileCallback;
        counter = new CountingCallback;
        viewer->readFileCallback = counter;
        node = ObliqueDataset::addToViewer(viewer.get(), folder, message);
        ASSERT_NE(node, nullptr) << message;
    }

    /** Longitude, latitude and height of a point of the model, by PROJ. */
    osg::Vec3d geographicOf(double x, double y, double z) const
    {
        osg::Vec3d geographic;
        EXPECT_TRUE(dataset->getSRS()->transform(dataset->getOrigin() + osg::Vec3d(x, y, z),
                                                 globe::SpatialReference::create("wgs84"), geographic));
        return geographic;
    }

    /** Picks through the window position of a model point; the hit's height
     *  over the ellipsoid, or -1e9 for no hit. */
    double heightPickedAt(double x, double y, double z)
    {
        const osg::Vec3d g = geographicOf(x, y, z);
        const osg::Vec3d window = toWindow(worldOf(g.x(), g.y(), g.z()));
        osg::Vec3d hit;
        if (!pick(window.x(), window.y(), hit))
            return -1e9;
        double lon, lat, height;
        toGeographic(hit, lon, lat, height);
        return height;
    }

    std::string folder;
    osg::ref_ptr<ObliqueDataset> dataset;
    osg::ref_ptr<osgDB::ReadFileCallback> installed; // by InitOSG
    osg::ref_ptr<CountingCallback> counter;
    osg::MatrixTransform* node = nullptr;
};

TEST_F(SampleOblique, InitOSGInstalledTheCallbackInTheRegistry)
{
    auto* callback = dynamic_cast<ReadosgbCallback*>(installed.get());
    ASSERT_NE(callback, nullptr);
    EXPECT_EQ(osgDB::Registry::instance()->getReadFileCallback(), callback);
    EXPECT_EQ(callback->mapNode, viewer->mapNode.get());
    // The terrain, read through it without it in its options, still draws.
    ASSERT_TRUE(settle());
    double lon, lat, height;
    pickCentre(lon, lat, height);
    EXPECT_TRUE(std::isfinite(height));
}

TEST_F(SampleOblique, LandsWhereItsMetadataSays)
{
    const Roof roof = tallestRoof(dataset->getRootTiles().front());
    ASSERT_GT(roof.top, 20.0);
    const double cx = (roof.x0 + roof.x1) / 2.0, cy = (roof.y0 + roof.y1) / 2.0;
    const osg::Vec3d centre = geographicOf(cx, cy, roof.top);
    lookDownAt(centre.x(), centre.y(), centre.z(), 250.0);

    // The roof's centre: the picked point is PROJ's point for it.
    const osg::Vec3d window = toWindow(worldOf(centre.x(), centre.y(), centre.z()));
    osg::Vec3d hit;
    ASSERT_TRUE(pick(window.x(), window.y(), hit));
    EXPECT_LT((hit - worldOf(centre.x(), centre.y(), centre.z())).length(), 1.0);
    double lon, lat, height;
    toGeographic(hit, lon, lat, height);
    const double metresPerDegreeLat = 111000.0, metresPerDegreeLon = 111000.0 * std::cos(osg::DegreesToRadians(lat));
    EXPECT_LT(std::hypot((lon - centre.x()) * metresPerDegreeLon, (lat - centre.y()) * metresPerDegreeLat), 1.0);

    // Its edges where PROJ puts them: half a metre inside is roof, half a
    // metre outside falls to the ground.
    const double topHeight = centre.z();
    EXPECT_NEAR(heightPickedAt(roof.x1 - 0.5, cy, roof.top), topHeight, 0.3);
    EXPECT_LT(heightPickedAt(roof.x1 + 0.5, cy, roof.top), topHeight - 5.0);
    EXPECT_NEAR(heightPickedAt(roof.x0 + 0.5, cy, roof.top), topHeight, 0.3);
    EXPECT_LT(heightPickedAt(roof.x0 - 0.5, cy, roof.top), topHeight - 5.0);
    EXPECT_NEAR(heightPickedAt(cx, roof.y1 - 0.5, roof.top), topHeight, 0.3);
    EXPECT_LT(heightPickedAt(cx, roof.y1 + 0.5, roof.top), topHeight - 5.0);
    EXPECT_NEAR(heightPickedAt(cx, roof.y0 + 0.5, roof.top), topHeight, 0.3);
    EXPECT_LT(heightPickedAt(cx, roof.y0 - 0.5, roof.top), topHeight - 5.0);
}

TEST_F(SampleOblique, PagingBringsEachTileThroughTheCallbackOnce)
{
    // Close over one block: every level above it pages in.
    const osg::Vec3d block = geographicOf(-90.0, -90.0, 0.0);
    lookAt(block.x(), block.y(), block.z(), 0.0, -70.0, 120.0);
    frames(30);
    ASSERT_TRUE(settle());

    const std::map<std::string, int> reads = counter->reads();
    int levels[4] = {0, 0, 0, 0};
    for (const auto& [name, count] : reads)
    {
        EXPECT_EQ(count, 1) << name;
        const int level = name.find("_L3_") != std::string::npos   ? 3
                          : name.find("_L2_") != std::string::npos ? 2
                          : name.find("_L1") != std::string::npos  ? 1
                                                                   : 0;
        ++levels[level];
    }
    EXPECT_EQ(levels[0], 4); // the root tiles, read by the loader
    EXPECT_GE(levels[1], 1);
    EXPECT_GE(levels[2], 1);
    EXPECT_GE(levels[3], 1);
}

TEST_F(SampleOblique, ItsGroundLiesOnTheGlobesGround)
{
    // Street crossings of the dataset, where nothing stands.
    const double crossings[][2] = {{0.0, 0.0}, {-120.0, 60.0}, {180.0, -180.0}, {-180.0, 120.0}};
    for (const auto& c : crossings)
    {
        const osg::Vec3d point = geographicOf(c[0], c[1], 0.0);
        lookDownAt(point.x(), point.y(), point.z(), 300.0);
        osg::Vec3d world = worldOf(point.x(), point.y(), 0.0);
        osg::Vec3d terrain;
        ASSERT_TRUE(groundUnder(world, terrain));
        double lon, lat, terrainHeight;
        toGeographic(terrain, lon, lat, terrainHeight);

        const osg::Vec3d window = toWindow(worldOf(point.x(), point.y(), terrainHeight));
        osg::Vec3d hit;
        ASSERT_TRUE(pick(window.x(), window.y(), hit));
        double obliqueHeight;
        toGeographic(hit, lon, lat, obliqueHeight);
        EXPECT_GE(obliqueHeight, terrainHeight) << c[0] << "," << c[1];
        EXPECT_LT(obliqueHeight, terrainHeight + 3.0) << c[0] << "," << c[1];
    }
}
