// The sample's point cloud, made once at its full size on an elevation file
// with a known slope, and read back twice: its header and CRS record byte by
// byte, and its points through `cxtiler points`' own LAS reader, with their
// positions turned back into longitude and latitude by PROJ.
#include "SampleTestSupport.h"

#include "CityPlan.h"
#include "GroundHeights.h"
#include "PointCloudSample.h"
#include "PointSource.h"
#include "SampleGenerator.h"
#include "TempDir.h"

#include <globe/SpatialReference>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>

using namespace sampletest;

namespace
{

/** A building of the business district, where the plan puts it. */
struct District
{
    double lon, lat, base, reach, top;
    bool tallest = false;
};

class PointCloudSample : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        _dir = std::make_unique<cxtest::TempDir>();
        const std::string dem = writeRampDem(_dir->path());
        const cxsample::SamplePlan plan = cxsample::planSample(cxsample::kDefaultSeed);
        const cxsample::GroundHeights ground(dem);
        _summary = cxsample::writePointCloudSample(_dir->path().string(), plan, ground, cxsample::kDefaultSeed,
                                                   cxsample::kDefaultCloudPoints);
        _path = (_dir->path() / cxsample::kPointCloudPath).string();
        auto source = cxtiler::openPointSource(_path);
        _info = source->info();
        std::vector<cxtiler::PointRecord> batch;
        while (source->read(batch, 1 << 16))
            _points.insert(_points.end(), batch.begin(), batch.end());

        double tallest = 0.0;
        for (const cxsample::PlacedObject& o : plan.objects)
        {
            if (o.family != cxsample::Family::Building)
                continue;
            const cxsample::BuildingDesign& design = plan.buildings[o.design];
            if (design.stem.rfind(cxsample::kBusinessDistrictPrefix, 0) != 0)
                continue;
            District d;
            d.lon = o.lon;
            d.lat = o.lat;
            d.base = ground.at(o.lon, o.lat);
            d.reach = 0.5 * std::hypot(design.width(), design.depth()) + 1.5;
            d.top = design.height() + design.spireHeight + 5.0; // roof plant, the spire's ball
            if (design.height() > tallest)
                tallest = design.height();
            _district.push_back(d);
        }
        // The tallest tower: the first of the highest designs, as the generator picks it.
        std::size_t index = 0;
        for (const cxsample::PlacedObject& o : plan.objects)
        {
            if (o.family != cxsample::Family::Building)
                continue;
            const cxsample::BuildingDesign& design = plan.buildings[o.design];
            if (design.stem.rfind(cxsample::kBusinessDistrictPrefix, 0) != 0)
                continue;
            if (design.height() == tallest)
            {
                _district[index].tallest = true;
                break;
            }
            ++index;
        }
    }
    static void TearDownTestSuite()
    {
        _points.clear();
        _points.shrink_to_fit();
        _dir.reset();
    }
    void SetUp() override { ASSERT_GT(_points.size(), 0u) << _path; }

    /** Longitude, latitude and height of a point of the cloud. */
    static osg::Vec3d lonLat(const cxtiler::PointRecord& p)
    {
        osg::Vec3d out;
        globe::SpatialReference::create("EPSG:32650")
            ->transform(osg::Vec3d(p.x, p.y, p.z), globe::SpatialReference::create("wgs84"), out);
        return out;
    }

    /** Metres between two places near each other. */
    static double metresBetween(double lon1, double lat1, double lon2, double lat2)
    {
        const double north = (lat2 - lat1) * 111000.0;
        const double east = (lon2 - lon1) * 111000.0 * std::cos(lat1 * 3.14159265358979 / 180.0);
        return std::hypot(east, north);
    }

    static std::unique_ptr<cxtest::TempDir> _dir;
    static cxsample::PointCloudSummary _summary;
    static std::string _path;
    static cxtiler::PointSourceInfo _info;
    static std::vector<cxtiler::PointRecord> _points;
    static std::vector<District> _district;
};

std::unique_ptr<cxtest::TempDir> PointCloudSample::_dir;
cxsample::PointCloudSummary PointCloudSample::_summary;
std::string PointCloudSample::_path;
cxtiler::PointSourceInfo PointCloudSample::_info;
std::vector<cxtiler::PointRecord> PointCloudSample::_points;
std::vector<District> PointCloudSample::_district;

} // namespace

// (Few test cases, each a whole check: every case makes the cloud again in a
// process of its own, which under the sanitizers takes a while.)
TEST_F(PointCloudSample, ItIsALas14CloudOfMoreThanTwoMillionPointsAroundTheDistrict)
{
    EXPECT_GE(_points.size(), 2000000u);
    EXPECT_EQ(_points.size(), _summary.points);
    EXPECT_EQ(_info.count, static_cast<std::int64_t>(_points.size()));
    std::map<int, std::uint64_t> classes;
    for (const cxtiler::PointRecord& p : _points)
        ++classes[p.classification];
    EXPECT_EQ(classes.size(), 4u);
    EXPECT_EQ(classes[2], _summary.ground);
    EXPECT_EQ(classes[6], _summary.buildings);
    EXPECT_EQ(classes[5], _summary.vegetation);
    EXPECT_EQ(classes[9], _summary.water);
    EXPECT_GT(classes[2], _points.size() / 3);
    EXPECT_GT(classes[6], _points.size() / 5);
    EXPECT_GT(classes[5], _points.size() / 20);
    EXPECT_GT(classes[9], 100u);
    EXPECT_GT(_summary.buildingCount, 50u);
    EXPECT_GT(_summary.trees, 500u);

    // LAS 1.4, point format 7, its CRS as WKT in the one record.
    const std::string bytes = readBytes(_path);
    ASSERT_GT(bytes.size(), 375u + 54u);
    EXPECT_EQ(bytes.substr(0, 4), "LASF");
    EXPECT_EQ(bytes[24], 1);
    EXPECT_EQ(bytes[25], 4);
    EXPECT_EQ(static_cast<unsigned char>(bytes[104]), 7u);
    std::uint16_t recordLength = 0, globalEncoding = 0;
    std::memcpy(&recordLength, &bytes[105], 2);
    std::memcpy(&globalEncoding, &bytes[6], 2);
    EXPECT_EQ(recordLength, 36);
    EXPECT_TRUE(globalEncoding & 16) << "the WKT bit";
    std::uint32_t vlrs = 0, pointOffset = 0;
    std::memcpy(&vlrs, &bytes[100], 4);
    std::memcpy(&pointOffset, &bytes[96], 4);
    EXPECT_EQ(vlrs, 1u);
    // The one record: LASF_Projection 2112, OGC WKT.
    EXPECT_EQ(std::string(bytes.c_str() + 375 + 2), "LASF_Projection");
    std::uint16_t recordId = 0, length = 0;
    std::memcpy(&recordId, &bytes[375 + 18], 2);
    std::memcpy(&length, &bytes[375 + 20], 2);
    EXPECT_EQ(recordId, 2112);
    EXPECT_EQ(pointOffset, 375u + 54u + length);
    EXPECT_EQ(bytes.size(), pointOffset + 36 * _points.size());
    const std::string wkt(bytes.c_str() + 375 + 54);
    EXPECT_TRUE(contains(wkt, "PROJCS[\"WGS 84 / UTM zone 50N\"")) << wkt;
    EXPECT_EQ(_info.crsOrigin, "its WKT record");
    EXPECT_EQ(_info.format, "LAS 1.4, point format 7");
    const globe::SpatialReference* crs = globe::SpatialReference::create(_info.crs);
    ASSERT_NE(crs, nullptr);
    EXPECT_TRUE(crs->isEquivalentTo(globe::SpatialReference::create(cxsample::kPointCloudCrs)));

    // More than a kilometre across, around the business district.
    double west = 1e300, east = -1e300, south = 1e300, north = -1e300;
    for (const cxtiler::PointRecord& p : _points)
    {
        west = std::min(west, p.x);
        east = std::max(east, p.x);
        south = std::min(south, p.y);
        north = std::max(north, p.y);
    }
    EXPECT_GT(east - west, 1200.0);
    EXPECT_GT(north - south, 900.0);
    cxtiler::PointRecord centre;
    centre.x = (west + east) / 2;
    centre.y = (south + north) / 2;
    const osg::Vec3d place = lonLat(centre);
    EXPECT_NEAR(place.x(), 116.458, 0.001);
    EXPECT_NEAR(place.y(), 39.912, 0.001);
}

TEST_F(PointCloudSample, ItsPointsLieOnTheGroundAndOnTheDistrictsBuildings)
{
    int checked = 0;
    double worst = 0.0;
    for (std::size_t i = 0; i < _points.size(); i += 23)
    {
        const cxtiler::PointRecord& p = _points[i];
        if (p.classification != 2 && p.classification != 9)
            continue;
        const osg::Vec3d place = lonLat(p);
        double above = place.z() - rampHeight(place.x());
        // Pavements and plazas stand a kerb's height above the road, the pond below.
        if (p.classification == 9)
            above += 0.4;
        else if (std::fabs(above - 0.15) < 0.05)
            above -= 0.15;
        worst = std::max(worst, std::fabs(above));
        ++checked;
    }
    EXPECT_GT(checked, 40000);
    EXPECT_LT(worst, 0.02) << "metres off the ground of the elevation file";

    // Building points on the district's buildings, at their places and heights.
    int buildingPoints = 0, stray = 0;
    for (std::size_t i = 0; i < _points.size(); i += 11)
    {
        const cxtiler::PointRecord& p = _points[i];
        if (p.classification != 6)
            continue;
        const osg::Vec3d place = lonLat(p);
        bool onOne = false;
        for (const District& d : _district)
            if (metresBetween(d.lon, d.lat, place.x(), place.y()) < d.reach && place.z() >= d.base + 0.04
                && place.z() <= d.base + d.top)
                onOne = true;
        stray += onOne ? 0 : 1;
        ++buildingPoints;
    }
    EXPECT_GT(buildingPoints, 30000);
    EXPECT_EQ(stray, 0) << "building points away from every building of the district";

    // User data for the flag colouring: 1 on the tallest tower, 2 on the pond.
    const auto tallest = std::find_if(_district.begin(), _district.end(), [](const District& d) { return d.tallest; });
    ASSERT_NE(tallest, _district.end());
    std::uint64_t flagged = 0;
    for (std::size_t i = 0; i < _points.size(); ++i)
    {
        const cxtiler::PointRecord& p = _points[i];
        if (p.userData == 0)
            continue;
        ++flagged;
        if (p.userData == 2)
        {
            ASSERT_EQ(p.classification, 9) << "point " << i;
            continue;
        }
        ASSERT_EQ(p.userData, 1) << "point " << i;
        ASSERT_EQ(p.classification, 6) << "point " << i;
        if (i % 17 == 0)
        {
            const osg::Vec3d place = lonLat(p);
            ASSERT_LT(metresBetween(tallest->lon, tallest->lat, place.x(), place.y()), tallest->reach);
        }
    }
    EXPECT_EQ(flagged, _summary.flagged);
    EXPECT_GT(flagged, 1000u);
    EXPECT_LT(flagged, _points.size() / 10) << "a few points, not the cloud";
}

TEST_F(PointCloudSample, IntensityColourAndReturnsFollowTheMaterials)
{
    std::map<int, double> intensity, red, green, blue;
    std::map<int, std::uint64_t> count;
    std::uint16_t lowest = 65535, highest = 0;
    int multipleReturns = 0, lastReturnsOnTheGround = 0;
    for (const cxtiler::PointRecord& p : _points)
    {
        intensity[p.classification] += p.intensity;
        red[p.classification] += p.red;
        green[p.classification] += p.green;
        blue[p.classification] += p.blue;
        ++count[p.classification];
        lowest = std::min(lowest, p.intensity);
        highest = std::max(highest, p.intensity);
        if (p.classification == 5 && p.numberOfReturns > 1)
            ++multipleReturns;
        if (p.classification == 2 && p.returnNumber == 2 && p.numberOfReturns == 2)
            ++lastReturnsOnTheGround;
    }
    auto mean = [&](std::map<int, double>& sum, int c) { return sum[c] / static_cast<double>(count[c]); };
    EXPECT_LT(lowest, 3000);
    EXPECT_GT(highest, 30000);
    EXPECT_LT(mean(intensity, 9), 5000.0) << "water gives little back";
    EXPECT_LT(mean(intensity, 9), mean(intensity, 2));
    EXPECT_LT(mean(intensity, 6), mean(intensity, 2)) << "the towers' glass gives less back than the ground";
    EXPECT_LT(mean(intensity, 9), mean(intensity, 6));
    EXPECT_GT(mean(green, 5), mean(red, 5) + 40) << "leaves are green";
    EXPECT_GT(mean(green, 5), mean(blue, 5) + 40);
    EXPECT_LT(mean(red, 9), 80.0) << "water is dark";
    EXPECT_EQ(multipleReturns, static_cast<int>(count[5]));
    EXPECT_GT(lastReturnsOnTheGround, 10000) << "ground under the trees";
}
