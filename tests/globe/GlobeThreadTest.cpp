// The globe core from two threads at once, as the database pager's thread and
// the host's thread use it. Run under ThreadSanitizer too.
#include "MBTilesTestFiles.h"
#include "TempDir.h"

#include <globe/ElevationLayer>
#include <globe/ImageLayer>
#include <globe/Map>
#include <globe/SpatialReference>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using globe::SpatialReference;
using globe::TileKey;

namespace
{

std::vector<osg::Vec3d> projectedPoints()
{
    std::vector<osg::Vec3d> points;
    for (int i = 0; i < 500; ++i)
        points.emplace_back(380000.0 + i * 731.0, 2500000.0 + i * 4111.0, i * 2.0);
    return points;
}

std::vector<osg::Vec3d> geographicPoints()
{
    std::vector<osg::Vec3d> points;
    for (int i = 0; i < 500; ++i)
        points.emplace_back(114.0 + (i % 50) * 0.11, 20.0 + i * 0.05, 10.0);
    return points;
}

} // namespace

TEST(GlobeThreads, TwoThreadsTransformAtOnce)
{
    const SpatialReference* gk = SpatialReference::create("epsg:4547");
    const SpatialReference* wgs84 = SpatialReference::create("wgs84");
    const SpatialReference* ecef = SpatialReference::create("geocentric");
    const SpatialReference* utm = SpatialReference::create("epsg:32650");
    ASSERT_TRUE(gk && wgs84 && ecef && utm);

    // Answers computed on this thread first.
    std::vector<osg::Vec3d> expectedWorld = projectedPoints();
    ASSERT_TRUE(gk->transform(expectedWorld, ecef));
    std::vector<osg::Vec3d> expectedUtm = geographicPoints();
    ASSERT_TRUE(wgs84->transform(expectedUtm, utm));

    std::atomic<int> mismatches{0};
    auto worker = [&](int id) {
        for (int round = 0; round < 24; ++round)
        {
            std::vector<osg::Vec3d> world = projectedPoints();
            if (!gk->transform(world, ecef))
                ++mismatches;
            for (std::size_t i = 0; i < world.size(); ++i)
                if ((world[i] - expectedWorld[i]).length() > 1e-6)
                    ++mismatches;

            osg::Vec3d single;
            const osg::Vec3d g = geographicPoints()[static_cast<std::size_t>(round)];
            if (!wgs84->transform(g, utm, single) || (single - expectedUtm[static_cast<std::size_t>(round)]).length() > 1e-6)
                ++mismatches;

            // Spatial references made and used on both threads.
            const SpatialReference* zone = wgs84->createUTMFromLonLat(6.0 * (round + id) - 177.0, id ? 10.0 : -10.0);
            osg::Vec3d out;
            if (!zone || !zone->transformToWorld(osg::Vec3d(500000.0, id ? 1000000.0 : 9000000.0, 0.0), out))
                ++mismatches;
            if (!SpatialReference::create("epsg:" + std::to_string(32601 + round)))
                ++mismatches;
            if (!gk->getGeographicSRS()->transform(osg::Vec3d(114.0, 30.0, 0.0), wgs84, out))
                ++mismatches;
        }
    };
    std::thread a(worker, 0);
    std::thread b(worker, 1);
    a.join();
    b.join();
    EXPECT_EQ(mismatches.load(), 0);
}

TEST(GlobeThreads, LayersReadWhileTheHostOpensClosesAndInserts)
{
    cxtest::TempDir dir;
    const std::string imagePath = (dir.path() / "image.db").string();
    const std::string demPath = (dir.path() / "dem.db").string();
    {
        cxtest::MBTilesFile image(imagePath);
        cxtest::MBTilesFile dem(demPath);
        for (int z = 0; z <= 2; ++z)
            for (int y = 0; y < (1 << z); ++y)
                for (int x = 0; x < (1 << z); ++x)
                {
                    image.tile(z, x, y, cxtest::encode(*cxtest::solidImage(64, 200, 100, 50), "jpg"));
                    dem.tile(z, x, y, cxtest::terrainRGBTile(32, [](int, int) { return 250.0; }));
                }
    }
    globe::MBTilesOptions imageOptions;
    imageOptions.filename() = imagePath;
    globe::MBTilesOptions demOptions;
    demOptions.filename() = demPath;
    osg::ref_ptr<globe::Map> map = new globe::Map;
    osg::ref_ptr<globe::ImageLayer> image = new globe::ImageLayer("image", imageOptions);
    osg::ref_ptr<globe::ElevationLayer> dem = new globe::ElevationLayer("dem", demOptions);
    image->setCacheSize(4); // keep evicting, so that reads really go to the file
    dem->setCacheSize(2);
    map->addLayer(image.get());
    map->addLayer(dem.get());

    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::atomic<int> images{0};
    auto pager = [&](unsigned int seed) {
        unsigned int n = seed;
        while (!stop.load())
        {
            n = n * 1103515245u + 12345u;
            const unsigned int level = (n >> 8) % 6;
            const unsigned int x = (n >> 12) % TileKey::getNumTilesWide(level);
            const unsigned int y = (n >> 20) % TileKey::getNumTilesHigh(level);
            const TileKey key(level, x, y);
            for (const auto& layer : map->getImageLayers())
            {
                osg::ref_ptr<osg::Image> tile = layer->createImage(key, 64);
                if (tile)
                {
                    ++images;
                    const std::uint32_t rgba = cxtest::rgbaAt(*tile, 32, 32);
                    if ((rgba & 0xFF) == 255 && std::abs(static_cast<int>(rgba >> 24) - 200) > 6)
                        ++wrong;
                }
            }
            osg::ref_ptr<osg::HeightField> field = map->createHeightField(key);
            if (field)
                for (unsigned int i = 0; i < field->getHeightList().size(); ++i)
                {
                    const float h = field->getHeightList()[i];
                    if (h != globe::ElevationLayer::NO_DATA_VALUE && std::fabs(h - 250.0f) > 0.05f)
                        ++wrong;
                }
        }
    };
    std::thread a(pager, 1u);
    std::thread b(pager, 7u);

    // The host: closes and reopens the layers, inserts and removes layers.
    for (int round = 0; round < 60; ++round)
    {
        if (round % 3 == 0)
            image->close();
        if (round % 4 == 0)
            dem->close();
        if (round % 5 == 0)
            image->open();
        image->setEnabled(round % 7 != 0);
        osg::ref_ptr<globe::ImageLayer> extra = new globe::ImageLayer("extra", imageOptions);
        map->insertLayer(extra.get(), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        map->removeLayer(extra.get());
    }
    stop.store(true);
    a.join();
    b.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_GT(images.load(), 0);
}
