#include <globe/GeoPoint>
#include <globe/SpatialReference>

#include <gtest/gtest.h>
#include <proj.h>

#include <cmath>
#include <vector>

using globe::GeoPoint;
using globe::SpatialReference;

namespace
{

// PROJ's own answer for a point, through the C API with longitude / easting
// first on both sides: the reference the library's results are held to.
osg::Vec3d projAnswer(const char* from, const char* to, const osg::Vec3d& in)
{
    PJ_CONTEXT* ctx = proj_context_create();
    proj_log_level(ctx, PJ_LOG_NONE);
    PJ* raw = proj_create_crs_to_crs(ctx, from, to, nullptr);
    PJ* op = proj_normalize_for_visualization(ctx, raw);
    proj_destroy(raw);
    const PJ_COORD out = proj_trans(op, PJ_FWD, proj_coord(in.x(), in.y(), in.z(), 0.0));
    proj_destroy(op);
    proj_context_destroy(ctx);
    return osg::Vec3d(out.xyz.x, out.xyz.y, out.xyz.z);
}

void expectNear(const osg::Vec3d& a, const osg::Vec3d& b, double tolerance)
{
    EXPECT_NEAR(a.x(), b.x(), tolerance);
    EXPECT_NEAR(a.y(), b.y(), tolerance);
    EXPECT_NEAR(a.z(), b.z(), tolerance);
}

} // namespace

TEST(SpatialReference, AcceptsEpsgCodesShortNamesProjStringsAndWkt)
{
    const SpatialReference* gk = SpatialReference::create("epsg:4547");
    ASSERT_NE(gk, nullptr);
    EXPECT_TRUE(gk->isProjected());
    EXPECT_NE(gk->getName().find("114E"), std::string::npos) << gk->getName();

    const SpatialReference* utm = SpatialReference::create("EPSG:32650");
    ASSERT_NE(utm, nullptr);
    EXPECT_TRUE(utm->isProjected());
    EXPECT_EQ(utm->getName(), "WGS 84 / UTM zone 50N");

    const SpatialReference* wgs84 = SpatialReference::create("wgs84");
    ASSERT_NE(wgs84, nullptr);
    EXPECT_TRUE(wgs84->isGeographic());
    EXPECT_TRUE(wgs84->isWGS84Geographic());
    EXPECT_EQ(wgs84, SpatialReference::create("EPSG:4326"));
    EXPECT_EQ(wgs84, SpatialReference::create("  WGS84 "));

    const SpatialReference* ecef = SpatialReference::create("geocentric");
    ASSERT_NE(ecef, nullptr);
    EXPECT_TRUE(ecef->isGeocentric());
    EXPECT_TRUE(ecef->isWGS84Geocentric());

    // A PROJ string without "+type=crs" is a CRS all the same.
    const SpatialReference* projString = SpatialReference::create("+proj=utm +zone=50 +datum=WGS84 +units=m +no_defs");
    ASSERT_NE(projString, nullptr);
    EXPECT_TRUE(projString->isProjected());
    EXPECT_TRUE(projString->isEquivalentTo(utm));

    const SpatialReference* fromWkt = SpatialReference::create(utm->getWKT());
    ASSERT_NE(fromWkt, nullptr);
    EXPECT_TRUE(fromWkt->isProjected());
    EXPECT_TRUE(fromWkt->isEquivalentTo(utm));
    EXPECT_FALSE(fromWkt->isEquivalentTo(gk));

    const SpatialReference* mercator = SpatialReference::create("spherical-mercator");
    ASSERT_NE(mercator, nullptr);
    EXPECT_TRUE(mercator->isProjected());
}

TEST(SpatialReference, RejectsWhatProjDoesNotAccept)
{
    EXPECT_EQ(SpatialReference::create(""), nullptr);
    EXPECT_EQ(SpatialReference::create("epsg:999999"), nullptr);
    EXPECT_EQ(SpatialReference::create("not a coordinate system"), nullptr);
    EXPECT_EQ(SpatialReference::create("+proj=nonsense"), nullptr);
    // A vertical CRS has no horizontal part.
    EXPECT_EQ(SpatialReference::create("EPSG:5703"), nullptr);
}

TEST(SpatialReference, SameInitGivesTheSameObject)
{
    EXPECT_EQ(SpatialReference::create("epsg:4547"), SpatialReference::create("epsg:4547"));
    EXPECT_NE(SpatialReference::create("epsg:4547")->getUID(), SpatialReference::create("epsg:32650")->getUID());
}

TEST(SpatialReference, GeographicAndGeocentricOfTheDatum)
{
    const SpatialReference* utm = SpatialReference::create("epsg:32650");
    EXPECT_EQ(utm->getGeographicSRS(), SpatialReference::create("wgs84"));
    EXPECT_EQ(utm->getGeocentricSRS(), SpatialReference::create("geocentric"));
    EXPECT_EQ(SpatialReference::create("wgs84")->getGeographicSRS(), SpatialReference::create("wgs84"));

    // CGCS2000 is its own datum, on the GRS80 ellipsoid.
    const SpatialReference* gk = SpatialReference::create("epsg:4547");
    const SpatialReference* cgcs = gk->getGeographicSRS();
    ASSERT_NE(cgcs, nullptr);
    EXPECT_TRUE(cgcs->isGeographic());
    EXPECT_FALSE(cgcs->isWGS84Geographic());
    EXPECT_NE(cgcs->getName().find("2000"), std::string::npos) << cgcs->getName();
    const SpatialReference* cgcsGeocentric = gk->getGeocentricSRS();
    ASSERT_NE(cgcsGeocentric, nullptr);
    EXPECT_TRUE(cgcsGeocentric->isGeocentric());
    EXPECT_DOUBLE_EQ(gk->getEllipsoid()->getRadiusEquator(), 6378137.0);
    EXPECT_NEAR(gk->getEllipsoid()->getRadiusPolar(), 6356752.314140, 1e-5); // GRS80
    EXPECT_NEAR(utm->getEllipsoid()->getRadiusPolar(), 6356752.314245, 1e-5); // WGS84
}

TEST(SpatialReference, Epsg4547AgreesWithProjToOneMillimetre)
{
    const SpatialReference* gk = SpatialReference::create("epsg:4547");
    const SpatialReference* world = SpatialReference::create("geocentric");
    const std::vector<osg::Vec3d> points = {
        {528000.0, 3386000.0, 0.0}, {704000.0, 4420000.0, 0.0}, {350000.0, 2500000.0, 120.0}, {610000.0, 5000000.0, -30.0}};
    for (const osg::Vec3d& p : points)
    {
        osg::Vec3d out;
        ASSERT_TRUE(gk->transform(p, world, out));
        expectNear(out, projAnswer("EPSG:4547", "EPSG:4978", p), 1e-3);

        osg::Vec3d geographic;
        ASSERT_TRUE(gk->transform(p, gk->getGeographicSRS(), geographic));
        expectNear(geographic, projAnswer("EPSG:4547", "EPSG:4490", p), 1e-9);
    }

    // Numbers from the proj-bin tools, which take the CRS's own axis order
    // (northing first for EPSG:4547, latitude first for EPSG:4490):
    //   echo "3386000 528000 0" | cs2cs -f %.6f EPSG:4547 EPSG:4978
    //   echo "3386000 528000 0" | cs2cs -f %.10f EPSG:4547 EPSG:4490
    osg::Vec3d out;
    ASSERT_TRUE(gk->transformToWorld(osg::Vec3d(528000.0, 3386000.0, 0.0), out));
    expectNear(out, osg::Vec3d(-2260582.777862, 5008511.878702, 3227230.066764), 1e-3);
    ASSERT_TRUE(gk->transform(osg::Vec3d(528000.0, 3386000.0, 0.0), gk->getGeographicSRS(), out));
    EXPECT_NEAR(out.x(), 114.2919504658, 1e-9);
    EXPECT_NEAR(out.y(), 30.5940086500, 1e-9);
}

TEST(SpatialReference, Epsg32650AgreesWithProjToOneMillimetre)
{
    const SpatialReference* utm = SpatialReference::create("EPSG:32650");
    const SpatialReference* wgs84 = SpatialReference::create("wgs84");
    const SpatialReference* world = SpatialReference::create("geocentric");

    const osg::Vec3d beijing(116.39, 39.91, 50.0);
    osg::Vec3d projected;
    ASSERT_TRUE(wgs84->transform(beijing, utm, projected));
    expectNear(projected, projAnswer("EPSG:4326", "EPSG:32650", beijing), 1e-3);
    // echo "39.91 116.39 50" | cs2cs -f %.6f EPSG:4326 EPSG:32650
    expectNear(projected, osg::Vec3d(447862.111557, 4417946.247690, 50.0), 1e-3);

    const osg::Vec3d p(448000.0, 4418000.0, 0.0);
    osg::Vec3d geocentric;
    ASSERT_TRUE(utm->transform(p, world, geocentric));
    expectNear(geocentric, projAnswer("EPSG:32650", "EPSG:4978", p), 1e-3);
    // echo "448000 4418000 0" | cs2cs -f %.6f EPSG:32650 EPSG:4978
    expectNear(geocentric, osg::Vec3d(-2177665.026437, 4388491.395601, 4070367.385027), 1e-3);

    osg::Vec3d back;
    ASSERT_TRUE(utm->transform(p, wgs84, back));
    // echo "448000 4418000 0" | cs2cs -f %.10f EPSG:32650 EPSG:4326
    EXPECT_NEAR(back.x(), 116.3916088894, 1e-9);
    EXPECT_NEAR(back.y(), 39.9104927526, 1e-9);
}

TEST(SpatialReference, GeographicGeocentricRoundTripWithinANanoDegree)
{
    const SpatialReference* wgs84 = SpatialReference::create("wgs84");
    const SpatialReference* ecef = wgs84->getGeocentricSRS();
    double worstAngle = 0.0;
    double worstHeight = 0.0;
    for (double lat = -90.0; lat <= 90.0; lat += 7.5)
    {
        for (double lon = -180.0; lon <= 180.0; lon += 15.0)
        {
            for (double h : {-420.0, 0.0, 8848.0, 400000.0, 20928182.0})
            {
                const osg::Vec3d in(lon, lat, h);
                osg::Vec3d xyz, out;
                ASSERT_TRUE(wgs84->transform(in, ecef, xyz));
                ASSERT_TRUE(ecef->transform(xyz, wgs84, out));
                worstAngle = std::max(worstAngle, std::fabs(out.y() - lat));
                if (std::fabs(lat) < 90.0)
                {
                    double dLon = std::fabs(out.x() - lon);
                    dLon = std::min(dLon, 360.0 - dLon);
                    worstAngle = std::max(worstAngle, dLon);
                }
                worstHeight = std::max(worstHeight, std::fabs(out.z() - h));
            }
        }
    }
    EXPECT_LT(worstAngle, 1e-9);
    EXPECT_LT(worstHeight, 1e-3);
}

TEST(SpatialReference, WGS84GeocentricMatchesProj)
{
    const SpatialReference* wgs84 = SpatialReference::create("wgs84");
    for (const osg::Vec3d& p : {osg::Vec3d(116.39, 39.91, 43.5), osg::Vec3d(-70.0, -33.0, 0.0), osg::Vec3d(0.0, 90.0, 10.0),
                                osg::Vec3d(179.9, -89.0, 2000.0)})
    {
        osg::Vec3d out;
        ASSERT_TRUE(wgs84->transformToWorld(p, out));
        expectNear(out, projAnswer("EPSG:4326", "EPSG:4978", p), 1e-4);
    }
}

TEST(SpatialReference, VectorFormEqualsPointForm)
{
    const SpatialReference* gk = SpatialReference::create("epsg:4547");
    const SpatialReference* utm = SpatialReference::create("epsg:32650");
    const SpatialReference* wgs84 = SpatialReference::create("wgs84");
    const SpatialReference* ecef = SpatialReference::create("geocentric");

    struct Case
    {
        const SpatialReference* from;
        const SpatialReference* to;
        std::vector<osg::Vec3d> points;
    };
    std::vector<Case> cases;
    Case projected{gk, ecef, {}};
    for (int i = 0; i < 200; ++i)
        projected.points.emplace_back(400000.0 + i * 1234.5, 2600000.0 + i * 9876.5, i * 3.0);
    cases.push_back(projected);
    Case utmToGeographic{utm, wgs84, {}};
    for (int i = 0; i < 200; ++i)
        utmToGeographic.points.emplace_back(300000.0 + i * 2000.0, 4000000.0 + i * 3000.0, 0.0);
    cases.push_back(utmToGeographic);
    Case fast{wgs84, ecef, {}};
    for (int i = 0; i < 200; ++i)
        fast.points.emplace_back(-180.0 + i * 1.8, -89.5 + i * 0.895, i * 10.0);
    cases.push_back(fast);
    Case fastBack{ecef, wgs84, {}};
    for (const osg::Vec3d& p : fast.points)
    {
        osg::Vec3d xyz;
        ASSERT_TRUE(wgs84->transform(p, ecef, xyz));
        fastBack.points.push_back(xyz);
    }
    cases.push_back(fastBack);

    for (const Case& c : cases)
    {
        std::vector<osg::Vec3d> vector = c.points;
        ASSERT_TRUE(c.from->transform(vector, c.to));
        for (std::size_t i = 0; i < c.points.size(); ++i)
        {
            osg::Vec3d single;
            ASSERT_TRUE(c.from->transform(c.points[i], c.to, single));
            EXPECT_EQ(vector[i], single) << c.from->getName() << " -> " << c.to->getName() << " point " << i;
        }
    }
}

TEST(SpatialReference, FailuresAreReportedNotThrown)
{
    const SpatialReference* wgs84 = SpatialReference::create("wgs84");
    const SpatialReference* ecef = SpatialReference::create("geocentric");
    const SpatialReference* mercator = SpatialReference::create("spherical-mercator");
    osg::Vec3d out;
    EXPECT_FALSE(wgs84->transform(osg::Vec3d(0.0, 95.0, 0.0), ecef, out));
    EXPECT_FALSE(wgs84->transform(osg::Vec3d(NAN, 0.0, 0.0), ecef, out));
    EXPECT_FALSE(wgs84->transform(osg::Vec3d(0.0, 0.0, 0.0), nullptr, out));
    // PROJ refuses a latitude past the pole.
    EXPECT_FALSE(wgs84->transform(osg::Vec3d(0.0, 95.0, 0.0), mercator, out));

    std::vector<osg::Vec3d> points = {{10.0, 10.0, 0.0}, {0.0, 95.0, 0.0}, {20.0, 20.0, 0.0}};
    EXPECT_FALSE(wgs84->transform(points, mercator));
    EXPECT_TRUE(std::isfinite(points[0].x()));
    EXPECT_TRUE(std::isfinite(points[2].x()));

    std::vector<osg::Vec3d> none;
    EXPECT_TRUE(wgs84->transform(none, mercator));
}

TEST(SpatialReference, TransformToAndFromWorld)
{
    const SpatialReference* utm = SpatialReference::create("epsg:32650");
    const osg::Vec3d p(448000.0, 4418000.0, 75.0);
    osg::Vec3d world;
    ASSERT_TRUE(utm->transformToWorld(p, world));
    osg::Vec3d back;
    double height = 0.0;
    ASSERT_TRUE(utm->transformFromWorld(world, back, &height));
    expectNear(back, p, 1e-4);
    EXPECT_NEAR(height, 75.0, 1e-4);

    const SpatialReference* wgs84 = SpatialReference::create("wgs84");
    osg::Vec3d lonLat;
    ASSERT_TRUE(wgs84->transformFromWorld(osg::Vec3d(6378137.0 + 100.0, 0.0, 0.0), lonLat, &height));
    expectNear(lonLat, osg::Vec3d(0.0, 0.0, 100.0), 1e-9);
    EXPECT_NEAR(height, 100.0, 1e-9);
}

TEST(SpatialReference, CreateUTMFromLonLat)
{
    const SpatialReference* wgs84 = SpatialReference::create("wgs84");
    const SpatialReference* beijing = wgs84->createUTMFromLonLat(116.39, 39.91);
    ASSERT_NE(beijing, nullptr);
    EXPECT_EQ(beijing, SpatialReference::create("EPSG:32650"));
    EXPECT_EQ(wgs84->createUTMFromLonLat(-70.6, -33.4)->getName(), "WGS 84 / UTM zone 19S");
    EXPECT_EQ(wgs84->createUTMFromLonLat(-180.0, 1.0)->getName(), "WGS 84 / UTM zone 1N");
    EXPECT_EQ(wgs84->createUTMFromLonLat(180.0, 1.0)->getName(), "WGS 84 / UTM zone 1N"); // 180 E is 180 W
    EXPECT_EQ(wgs84->createUTMFromLonLat(179.99, 1.0)->getName(), "WGS 84 / UTM zone 60N");
    EXPECT_EQ(wgs84->createUTMFromLonLat(360.0 - 63.0, 0.0)->getName(), "WGS 84 / UTM zone 20N");
    EXPECT_EQ(wgs84->createUTMFromLonLat(NAN, 0.0), nullptr);

    // On another datum the zone keeps the datum.
    const SpatialReference* cgcs = SpatialReference::create("epsg:4547")->getGeographicSRS();
    const SpatialReference* cgcsUtm = cgcs->createUTMFromLonLat(116.39, 39.91);
    ASSERT_NE(cgcsUtm, nullptr);
    EXPECT_TRUE(cgcsUtm->isProjected());
    EXPECT_NE(cgcsUtm->getName().find("UTM zone 50N"), std::string::npos) << cgcsUtm->getName();
    osg::Vec3d out;
    const osg::Vec3d lonLat(116.39, 39.91, 0.0);
    ASSERT_TRUE(cgcs->transform(lonLat, cgcsUtm, out));
    expectNear(out, projAnswer("EPSG:4490", "+proj=utm +zone=50 +ellps=GRS80 +units=m +type=crs", lonLat), 1e-3);
}

TEST(GeoPoint, WorldRoundTripAndLocalFrame)
{
    const SpatialReference* wgs84 = SpatialReference::create("wgs84");
    const GeoPoint point(wgs84, 116.39, 39.91, 120.0);
    ASSERT_TRUE(point.valid());
    osg::Vec3d world;
    ASSERT_TRUE(point.toWorld(world));

    GeoPoint back;
    ASSERT_TRUE(back.fromWorld(wgs84, world));
    EXPECT_NEAR(back.x(), 116.39, 1e-9);
    EXPECT_NEAR(back.y(), 39.91, 1e-9);
    EXPECT_NEAR(back.z(), 120.0, 1e-4);
    EXPECT_EQ(back.getSRS(), wgs84);

    const GeoPoint inUtm = point.transform(SpatialReference::create("epsg:32650"));
    ASSERT_TRUE(inUtm.valid());
    osg::Vec3d worldFromUtm;
    ASSERT_TRUE(inUtm.toWorld(worldFromUtm));
    EXPECT_LT((worldFromUtm - world).length(), 1e-3);

    osg::Matrixd local2world;
    ASSERT_TRUE(point.createLocalToWorld(local2world));
    EXPECT_LT((local2world.getTrans() - world).length(), 1e-6);
    // Up is the ellipsoid normal: 100 m up the local z axis is 100 m higher.
    GeoPoint above;
    ASSERT_TRUE(above.fromWorld(wgs84, osg::Vec3d(0.0, 0.0, 100.0) * local2world));
    EXPECT_NEAR(above.z(), 220.0, 1e-4);
    EXPECT_NEAR(above.x(), 116.39, 1e-9);
    EXPECT_NEAR(above.y(), 39.91, 1e-9);
    // x points east: longitude grows, latitude stays.
    GeoPoint east;
    ASSERT_TRUE(east.fromWorld(wgs84, osg::Vec3d(10.0, 0.0, 0.0) * local2world));
    EXPECT_GT(east.x(), 116.39);
    EXPECT_NEAR(east.y(), 39.91, 1e-6);

    osg::Matrixd world2local;
    ASSERT_TRUE(point.createWorldToLocal(world2local));
    EXPECT_LT((world * world2local).length(), 1e-6);
}

TEST(GeoPoint, InvalidPoints)
{
    const GeoPoint none;
    EXPECT_FALSE(none.valid());
    osg::Vec3d world;
    EXPECT_FALSE(none.toWorld(world));
    EXPECT_FALSE(none.transform(SpatialReference::create("wgs84")).valid());
    osg::Matrixd m;
    EXPECT_FALSE(none.createLocalToWorld(m));
    GeoPoint p;
    EXPECT_FALSE(p.fromWorld(nullptr, osg::Vec3d(1.0, 2.0, 3.0)));
    EXPECT_EQ(none, GeoPoint::INVALID);
    EXPECT_NE(GeoPoint(SpatialReference::create("wgs84"), 1.0, 2.0), none);
}

TEST(SpatialReference, TangentPlaneIsTheEastNorthUpFrameOfItsPoint)
{
    const SpatialReference* enu = SpatialReference::create("ENU:39.99,116.39");
    ASSERT_NE(enu, nullptr);
    EXPECT_TRUE(enu->isTangentPlane());
    EXPECT_TRUE(enu->isProjected());
    EXPECT_EQ(enu, SpatialReference::create(" enu: 39.99 , 116.39 "));
    EXPECT_NE(enu, SpatialReference::create("ENU:39.99,116.40"));
    EXPECT_EQ(enu->getGeographicSRS(), SpatialReference::create("wgs84"));
    EXPECT_EQ(enu->getGeocentricSRS(), SpatialReference::create("geocentric"));

    // The origin is the ellipsoid point; 100 m up is 100 m over it.
    const SpatialReference* wgs84 = SpatialReference::create("wgs84");
    osg::Vec3d geo;
    ASSERT_TRUE(enu->transform(osg::Vec3d(0, 0, 100), wgs84, geo));
    expectNear(geo, osg::Vec3d(116.39, 39.99, 100), 1e-9);

    // East is east and north is north: distances along the axes are kept.
    osg::Vec3d origin, east, north;
    ASSERT_TRUE(enu->transformToWorld(osg::Vec3d(0, 0, 0), origin));
    ASSERT_TRUE(enu->transformToWorld(osg::Vec3d(250, 0, 0), east));
    ASSERT_TRUE(enu->transformToWorld(osg::Vec3d(0, 250, 0), north));
    EXPECT_NEAR((east - origin).length(), 250.0, 1e-6);
    EXPECT_NEAR((north - origin).length(), 250.0, 1e-6);
    osg::Vec3d eastGeo, northGeo;
    ASSERT_TRUE(enu->transform(osg::Vec3d(250, 0, 0), wgs84, eastGeo));
    ASSERT_TRUE(enu->transform(osg::Vec3d(0, 250, 0), wgs84, northGeo));
    EXPECT_GT(eastGeo.x(), 116.39);
    EXPECT_NEAR(eastGeo.y(), 39.99, 1e-6);
    EXPECT_NEAR(northGeo.x(), 116.39, 1e-9);
    EXPECT_GT(northGeo.y(), 39.99);

    // Into another projected system and back, in both vector and point form.
    const SpatialReference* gk = SpatialReference::create("epsg:4547");
    std::vector<osg::Vec3d> points = {{0, 0, 0}, {120.5, -80.25, 42}, {-300, 310, 7}};
    const std::vector<osg::Vec3d> original = points;
    ASSERT_TRUE(enu->transform(points, gk));
    for (std::size_t i = 0; i < points.size(); ++i)
    {
        osg::Vec3d single;
        ASSERT_TRUE(enu->transform(original[i], gk, single));
        expectNear(points[i], single, 1e-9);
    }
    ASSERT_TRUE(gk->transform(points, enu));
    for (std::size_t i = 0; i < points.size(); ++i)
        expectNear(points[i], original[i], 1e-6);

    // One tangent plane into another.
    const SpatialReference* other = SpatialReference::create("ENU:40.0,116.4");
    osg::Vec3d there, back;
    ASSERT_TRUE(enu->transform(osg::Vec3d(10, 20, 30), other, there));
    ASSERT_TRUE(other->transform(there, enu, back));
    expectNear(back, osg::Vec3d(10, 20, 30), 1e-6);
    EXPECT_FALSE(enu->isEquivalentTo(other));
    EXPECT_TRUE(enu->isEquivalentTo(enu));
}

TEST(SpatialReference, BadTangentPlanesAreRefused)
{
    for (const char* text : {"ENU:", "ENU:39.9", "ENU:abc,116", "ENU:95,116", "ENU:39.9,116x", "ENU:,116"})
        EXPECT_EQ(SpatialReference::create(text), nullptr) << text;
}
