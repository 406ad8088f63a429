// Dates, the sun's position and the sky node's sun light, without a window.
#include <globe/DateTime>
#include <globe/MapNode>
#include <globe/SkyNode>

#include <gtest/gtest.h>
#include <osg/Geometry>
#include <osg/LightModel>
#include <osg/View>
#include <osgUtil/IntersectionVisitor>
#include <osgUtil/LineSegmentIntersector>
#include <osgUtil/UpdateVisitor>

#include <algorithm>
#include <cmath>
#include <limits>

namespace
{

constexpr double kPi = 3.14159265358979323846;

double angleBetweenDegrees(const osg::Vec3d& a, const osg::Vec3d& b)
{
    const double c = (a * b) / (a.length() * b.length());
    return std::acos(std::clamp(c, -1.0, 1.0)) * 180.0 / kPi;
}

osg::Vec3d directionFromLonLat(double lonDeg, double latDeg)
{
    const double lon = lonDeg * kPi / 180.0;
    const double lat = latDeg * kPi / 180.0;
    return osg::Vec3d(std::cos(lat) * std::cos(lon), std::cos(lat) * std::sin(lon), std::sin(lat));
}

// An independent estimate of the sub-solar point, by another route: the
// apparent sun in Julian centuries (equation of centre to the third harmonic,
// nutation and aberration terms), and the longitude from the equation of
// time rather than from sidereal time: the sub-solar meridian is where the
// apparent solar time is noon.
void independentSubSolarPoint(double julianDay, double utcHours, double& lonDeg, double& latDeg)
{
    const double d2r = kPi / 180.0;
    const double T = (julianDay - 2451545.0) / 36525.0;
    const double L0 = 280.46646 + 36000.76983 * T + 0.0003032 * T * T;
    const double M = (357.52911 + 35999.05029 * T - 0.0001537 * T * T) * d2r;
    const double C = (1.914602 - 0.004817 * T - 0.000014 * T * T) * std::sin(M) +
                     (0.019993 - 0.000101 * T) * std::sin(2 * M) + 0.000289 * std::sin(3 * M);
    const double omega = (125.04 - 1934.136 * T) * d2r;
    const double lambda = (L0 + C - 0.00569 - 0.00478 * std::sin(omega)) * d2r;
    const double eps0 = 23.439291111 - 0.013004167 * T - 1.6389e-7 * T * T + 5.0361e-7 * T * T * T;
    const double eps = (eps0 + 0.00256 * std::cos(omega)) * d2r;
    const double alpha = std::atan2(std::cos(eps) * std::sin(lambda), std::cos(lambda)) / d2r;
    latDeg = std::asin(std::sin(eps) * std::sin(lambda)) / d2r;
    const double nutationInLongitude = -0.00478 * std::sin(omega);
    double equationOfTime = L0 - 0.0057183 - alpha + nutationInLongitude * std::cos(eps);
    equationOfTime = std::fmod(equationOfTime, 360.0);
    if (equationOfTime > 180.0)
        equationOfTime -= 360.0;
    if (equationOfTime <= -180.0)
        equationOfTime += 360.0;
    lonDeg = 15.0 * (12.0 - utcHours) - equationOfTime;
    while (lonDeg > 180.0)
        lonDeg -= 360.0;
    while (lonDeg <= -180.0)
        lonDeg += 360.0;
}

void runUpdate(osg::Node* node)
{
    osg::ref_ptr<osgUtil::UpdateVisitor> update = new osgUtil::UpdateVisitor;
    osg::ref_ptr<osg::FrameStamp> stamp = new osg::FrameStamp;
    update->setFrameStamp(stamp.get());
    node->accept(*update);
}

} // namespace

// ---------------------------------------------------------------- DateTime

TEST(DateTime, HoldsTheGivenDate)
{
    const globe::DateTime t(2018, 11, 30, 9.0);
    EXPECT_EQ(t.year(), 2018);
    EXPECT_EQ(t.month(), 11);
    EXPECT_EQ(t.day(), 30);
    EXPECT_DOUBLE_EQ(t.hours(), 9.0);
    EXPECT_EQ(t.asISO8601(), "2018-11-30T09:00:00Z");
}

TEST(DateTime, JulianDayAndJ2000)
{
    // J2000.0 is 2000-01-01 12:00 UTC, Julian date 2451545.0.
    EXPECT_DOUBLE_EQ(globe::DateTime(2000, 1, 1, 12.0).getJulianDay(), 2451545.0);
    EXPECT_DOUBLE_EQ(globe::DateTime(2000, 1, 1, 12.0).getDaysSinceJ2000(), 0.0);
    // The Unix epoch is Julian date 2440587.5.
    EXPECT_DOUBLE_EQ(globe::DateTime(1970, 1, 1, 0.0).getJulianDay(), 2440587.5);
    // 2018-01-01 00:00 is Julian date 2458119.5; the 30th of November is 333 days later.
    EXPECT_DOUBLE_EQ(globe::DateTime(2018, 11, 30, 9.0).getJulianDay(), 2458119.5 + 333.0 + 9.0 / 24.0);
    EXPECT_DOUBLE_EQ(globe::DateTime(2018, 11, 30, 9.0).getDaysSinceJ2000(), 6907.875);
    EXPECT_DOUBLE_EQ(globe::DateTime(1999, 12, 31, 0.0).getDaysSinceJ2000(), -1.5);
}

TEST(DateTime, OutOfRangeFieldsCarryOver)
{
    EXPECT_EQ(globe::DateTime(2018, 13, 1, 0.0), globe::DateTime(2019, 1, 1, 0.0));
    EXPECT_EQ(globe::DateTime(2018, 0, 15, 0.0), globe::DateTime(2017, 12, 15, 0.0));
    EXPECT_EQ(globe::DateTime(2018, 3, 0, 0.0), globe::DateTime(2018, 2, 28, 0.0));
    EXPECT_EQ(globe::DateTime(2016, 3, 0, 0.0), globe::DateTime(2016, 2, 29, 0.0));
    EXPECT_EQ(globe::DateTime(2018, 1, 32, 0.0), globe::DateTime(2018, 2, 1, 0.0));
    EXPECT_EQ(globe::DateTime(1900, 2, 29, 0.0), globe::DateTime(1900, 3, 1, 0.0));
    EXPECT_EQ(globe::DateTime(2000, 2, 29, 0.0).day(), 29);
    EXPECT_EQ(globe::DateTime(2018, 12, 31, 25.0), globe::DateTime(2019, 1, 1, 1.0));
    EXPECT_EQ(globe::DateTime(2018, 1, 1, -1.0), globe::DateTime(2017, 12, 31, 23.0));
    EXPECT_EQ(globe::DateTime(2018, 1, 1, 48.0), globe::DateTime(2018, 1, 3, 0.0));
}

TEST(DateTime, AbsurdInputStaysBounded)
{
    const globe::DateTime nanHours(2018, 5, 5, std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(nanHours, globe::DateTime(2018, 5, 5, 0.0));
    const globe::DateTime infHours(2018, 5, 5, std::numeric_limits<double>::infinity());
    EXPECT_EQ(infHours, globe::DateTime(2018, 5, 5, 0.0));
    const globe::DateTime huge(std::numeric_limits<int>::max(), std::numeric_limits<int>::max(),
                               std::numeric_limits<int>::max(), 1e300);
    EXPECT_LE(huge.year(), 100000);
    EXPECT_GE(huge.hours(), 0.0);
    EXPECT_LT(huge.hours(), 24.0);
    const globe::DateTime tiny(std::numeric_limits<int>::min(), std::numeric_limits<int>::min(),
                               std::numeric_limits<int>::min(), -1e300);
    EXPECT_GE(tiny.year(), -4000);
    EXPECT_TRUE(std::isfinite(tiny.getJulianDay()));
}

TEST(DateTime, TimeStampRoundTrip)
{
    // 2018-11-30 09:00:00 UTC.
    const std::time_t stamp = 1543568400;
    const globe::DateTime t(stamp);
    EXPECT_EQ(t, globe::DateTime(2018, 11, 30, 9.0));
    EXPECT_EQ(t.asTimeStamp(), stamp);
    EXPECT_EQ(globe::DateTime(std::time_t(0)), globe::DateTime(1970, 1, 1, 0.0));
    EXPECT_EQ(globe::DateTime(std::time_t(-1)).asISO8601(), "1969-12-31T23:59:59Z");
}

TEST(DateTime, DefaultIsNow)
{
    const std::time_t before = std::time(nullptr);
    const globe::DateTime now;
    const std::time_t after = std::time(nullptr);
    EXPECT_GE(now.asTimeStamp(), before);
    EXPECT_LE(now.asTimeStamp(), after);
}

TEST(DateTime, TimeStampsOfWholeSecondsComeBackExactly)
{
    // Every second of one day, and some far from 1970 on both sides.
    const std::time_t day = 1763769600; // 2025-11-22 00:00:00 UTC
    for (std::time_t t = day; t < day + 86400; ++t)
        ASSERT_EQ(globe::DateTime(t).asTimeStamp(), t) << "seconds " << t;
    for (const std::time_t t : {std::time_t(-86399), std::time_t(-1), std::time_t(0), std::time_t(3601),
                                std::time_t(4102444799)})
        EXPECT_EQ(globe::DateTime(t).asTimeStamp(), t) << "seconds " << t;
}

// ---------------------------------------------------------------- the sun

TEST(SunPosition, November30th2018At0900UTC)
{
    const auto sun = globe::SkyNode::computeSunPosition(globe::DateTime(2018, 11, 30, 9.0));
    EXPECT_NEAR(sun.subSolarLongitude, 42.1, 0.5);
    EXPECT_NEAR(sun.subSolarLatitude, -21.7, 0.5);
    // Independent check: the same moment computed by another route.
    double lon = 0.0, lat = 0.0;
    independentSubSolarPoint(globe::DateTime(2018, 11, 30, 9.0).getJulianDay(), 9.0, lon, lat);
    EXPECT_NEAR(sun.subSolarLongitude, lon, 0.5);
    EXPECT_NEAR(sun.subSolarLatitude, lat, 0.5);
    // The direction points at that sub-solar point, within 0.5 degrees.
    EXPECT_LT(angleBetweenDegrees(sun.direction, directionFromLonLat(42.1, -21.7)), 0.5);
    EXPECT_LT(angleBetweenDegrees(sun.direction, directionFromLonLat(lon, lat)), 0.5);
    EXPECT_NEAR(sun.direction.length(), 1.0, 1e-12);
}

TEST(SunPosition, IntermediateQuantitiesFollowTheFormulas)
{
    const globe::DateTime t(2018, 11, 30, 9.0);
    const auto sun = globe::SkyNode::computeSunPosition(t);
    const double n = 6907.875;
    EXPECT_DOUBLE_EQ(sun.daysSinceJ2000, n);
    EXPECT_NEAR(sun.meanLongitude, std::fmod(280.460 + 0.9856474 * n, 360.0), 1e-9);
    EXPECT_NEAR(sun.meanAnomaly, std::fmod(357.528 + 0.9856003 * n, 360.0), 1e-9);
    EXPECT_NEAR(sun.obliquity, 23.439 - 0.0000004 * n, 1e-12);
    // Right ascension and declination agree with the ecliptic longitude.
    const double lambda = sun.eclipticLongitude * kPi / 180.0;
    const double eps = sun.obliquity * kPi / 180.0;
    const osg::Vec3d equatorial(std::cos(lambda), std::cos(eps) * std::sin(lambda), std::sin(eps) * std::sin(lambda));
    EXPECT_LT(angleBetweenDegrees(equatorial, directionFromLonLat(sun.rightAscension, sun.declination)), 1e-9);
    // Turning the equatorial direction by the sidereal time gives the
    // geocentric direction.
    const double gmst = sun.greenwichSiderealTime * kPi / 180.0;
    const osg::Vec3d turned(std::cos(-gmst) * equatorial.x() - std::sin(-gmst) * equatorial.y(),
                            std::sin(-gmst) * equatorial.x() + std::cos(-gmst) * equatorial.y(), equatorial.z());
    EXPECT_LT(angleBetweenDegrees(turned, sun.direction), 1e-9);
    // Sun-earth distance near perihelion (early January) is about 0.986 AU.
    EXPECT_NEAR(sun.distance, 0.986, 0.003);
}

TEST(SunPosition, AgreesWithAnIndependentFormulationThroughTheYear)
{
    for (int year : {1990, 2005, 2018, 2024, 2035})
    {
        for (int month = 1; month <= 12; ++month)
        {
            for (double hours : {0.0, 6.5, 13.25, 21.0})
            {
                const int day = 1 + (month * 7) % 28;
                const globe::DateTime t(year, month, day, hours);
                const auto sun = globe::SkyNode::computeSunPosition(t);
                double lon = 0.0, lat = 0.0;
                independentSubSolarPoint(t.getJulianDay(), hours, lon, lat);
                // Both are good to a few hundredths of a degree.
                EXPECT_LT(angleBetweenDegrees(sun.direction, directionFromLonLat(lon, lat)), 0.1)
                    << year << "-" << month << "-" << day << " " << hours << "h";
            }
        }
    }
}

TEST(SunPosition, SolsticesAndEquinoxes)
{
    // June solstice 2018: 21 June 10:07 UTC; December: 21 December 22:23 UTC.
    const auto june = globe::SkyNode::computeSunPosition(globe::DateTime(2018, 6, 21, 10.0 + 7.0 / 60.0));
    EXPECT_NEAR(june.declination, 23.436, 0.02);
    EXPECT_NEAR(june.eclipticLongitude, 90.0, 0.02);
    const auto december = globe::SkyNode::computeSunPosition(globe::DateTime(2018, 12, 21, 22.0 + 23.0 / 60.0));
    EXPECT_NEAR(december.declination, -23.436, 0.02);
    EXPECT_NEAR(december.eclipticLongitude, 270.0, 0.02);
    // Equinoxes 2018: 20 March 16:15 UTC and 23 September 01:54 UTC.
    const auto march = globe::SkyNode::computeSunPosition(globe::DateTime(2018, 3, 20, 16.25));
    EXPECT_NEAR(march.declination, 0.0, 0.02);
    EXPECT_NEAR(std::fmod(march.eclipticLongitude + 180.0, 360.0) - 180.0, 0.0, 0.05);
    const auto september = globe::SkyNode::computeSunPosition(globe::DateTime(2018, 9, 23, 1.9));
    EXPECT_NEAR(september.declination, 0.0, 0.02);
    EXPECT_NEAR(september.eclipticLongitude, 180.0, 0.05);
    // The declination never exceeds the obliquity.
    for (int day = 0; day < 366; day += 5)
    {
        const auto sun = globe::SkyNode::computeSunPosition(globe::DateTime(2018, 1, 1 + day, 12.0));
        EXPECT_LE(std::fabs(sun.declination), sun.obliquity + 1e-9);
    }
}

TEST(SunPosition, NoonAtGreenwichAndTheDailyTurn)
{
    // At 12:00 UTC the sun stands within the equation of time (at most about
    // 16.5 minutes, 4.1 degrees) of the Greenwich meridian.
    for (int day = 0; day < 365; day += 3)
    {
        const auto sun = globe::SkyNode::computeSunPosition(globe::DateTime(2018, 1, 1 + day, 12.0));
        EXPECT_LT(std::fabs(sun.subSolarLongitude), 4.5) << day;
    }
    // One hour later it is about 15 degrees further west.
    const auto at9 = globe::SkyNode::computeSunPosition(globe::DateTime(2018, 11, 30, 9.0));
    const auto at10 = globe::SkyNode::computeSunPosition(globe::DateTime(2018, 11, 30, 10.0));
    EXPECT_NEAR(at9.subSolarLongitude - at10.subSolarLongitude, 15.0, 0.05);
    EXPECT_GT(at10.subSolarLongitude, -180.0);
    EXPECT_LE(at10.subSolarLongitude, 180.0);
}

// ---------------------------------------------------------------- the sky node

TEST(SkyNode, EllipsoidFromTheMapNodeOrWGS84)
{
    osg::ref_ptr<globe::SkyNode> plain = globe::SkyNode::create(nullptr);
    ASSERT_TRUE(plain.valid());
    EXPECT_DOUBLE_EQ(plain->getEllipsoidModel()->getRadiusEquator(), osg::WGS_84_RADIUS_EQUATOR);
    EXPECT_DOUBLE_EQ(plain->getEllipsoidModel()->getRadiusPolar(), osg::WGS_84_RADIUS_POLAR);
    EXPECT_NEAR(plain->getAtmosphereHeight(), 0.025 * osg::WGS_84_RADIUS_EQUATOR, 1e-6);

    osg::ref_ptr<globe::MapNode> map = new globe::MapNode;
    osg::ref_ptr<globe::SkyNode> onMap = globe::SkyNode::create(map.get());
    EXPECT_DOUBLE_EQ(onMap->getEllipsoidModel()->getRadiusEquator(), osg::WGS_84_RADIUS_EQUATOR);

    // A coordinate system node below a plain group, with a small planet.
    osg::ref_ptr<osg::Group> group = new osg::Group;
    osg::ref_ptr<osg::CoordinateSystemNode> csn = new osg::CoordinateSystemNode;
    csn->setEllipsoidModel(new osg::EllipsoidModel(1000.0, 900.0));
    group->addChild(csn.get());
    osg::ref_ptr<globe::SkyNode> small = globe::SkyNode::create(group.get());
    EXPECT_DOUBLE_EQ(small->getEllipsoidModel()->getRadiusEquator(), 1000.0);
    EXPECT_DOUBLE_EQ(small->getAtmosphereHeight(), 25.0);

    // An unusable ellipsoid falls back to WGS84.
    osg::ref_ptr<globe::SkyNode> bad = globe::SkyNode::create(osg::EllipsoidModel(-1.0, 0.0));
    EXPECT_DOUBLE_EQ(bad->getEllipsoidModel()->getRadiusEquator(), osg::WGS_84_RADIUS_EQUATOR);
}

TEST(SkyNode, DateMovesTheSunLight)
{
    osg::ref_ptr<globe::SkyNode> sky = globe::SkyNode::create();
    sky->setDateTime(globe::DateTime(2018, 11, 30, 9.0));
    EXPECT_EQ(sky->getDateTime(), globe::DateTime(2018, 11, 30, 9.0));
    const osg::Vec4 position = sky->getSunLight()->getPosition();
    EXPECT_FLOAT_EQ(position.w(), 0.0f);
    const osg::Vec3d direction(position.x(), position.y(), position.z());
    EXPECT_LT(angleBetweenDegrees(direction, directionFromLonLat(42.1, -21.7)), 0.5);
    EXPECT_LT(angleBetweenDegrees(direction, sky->getSunDirection()), 1e-4);

    sky->setDateTime(globe::DateTime(2018, 6, 21, 12.0));
    const osg::Vec4 june = sky->getSunLight()->getPosition();
    EXPECT_GT(june.z(), 0.39f); // sin(23.4 degrees): northern summer
    EXPECT_GT(june.x(), 0.9f);  // close to the Greenwich meridian at noon
}

TEST(SkyNode, MapSetUpSequenceKeepsTheSunDirection)
{
    // What the map set-up does: attach, full minimum ambient, the date, then
    // position (0, 0, 1, 0) and the colours on the sun light; then a frame.
    osg::ref_ptr<osg::View> view = new osg::View;
    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<globe::MapNode> map = new globe::MapNode;
    osg::ref_ptr<globe::SkyNode> sky = globe::SkyNode::create(map.get());
    sky->setName("skynode");
    sky->attach(view.get());
    sky->setMinimumAmbient(osg::Vec4f(1, 1, 1, 1));
    sky->setDateTime(globe::DateTime(2018, 11, 30, 9.0));
    osg::Light* light = sky->getSunLight();
    light->setPosition(osg::Vec4(0, 0, 1, 0));
    light->setAmbient(osg::Vec4(0.03f, 0.03f, 0.03f, 1));
    light->setDiffuse(osg::Vec4(1, 1, 1, 1));
    light->setSpecular(osg::Vec4(1, 1, 1, 1));
    root->addChild(sky.get());
    EXPECT_EQ(sky->getName(), "skynode");

    // The root now asks for update traversals because of the sky.
    EXPECT_GT(root->getNumChildrenRequiringUpdateTraversal(), 0u);
    runUpdate(root.get());

    ASSERT_EQ(view->getLight(), light);
    const osg::Vec4 position = light->getPosition();
    EXPECT_FLOAT_EQ(position.w(), 0.0f);
    const auto sun = globe::SkyNode::computeSunPosition(globe::DateTime(2018, 11, 30, 9.0));
    const osg::Vec3d direction(position.x(), position.y(), position.z());
    EXPECT_LT(angleBetweenDegrees(direction, sun.direction), 1e-4);
    EXPECT_LT(angleBetweenDegrees(direction, directionFromLonLat(sun.subSolarLongitude, sun.subSolarLatitude)), 1e-4);
    EXPECT_LT(angleBetweenDegrees(direction, directionFromLonLat(42.1, -21.7)), 0.5);
    // The colours stay as the caller set them.
    EXPECT_EQ(light->getAmbient(), osg::Vec4(0.03f, 0.03f, 0.03f, 1));
    EXPECT_EQ(light->getDiffuse(), osg::Vec4(1, 1, 1, 1));
    EXPECT_EQ(light->getSpecular(), osg::Vec4(1, 1, 1, 1));
}

TEST(SkyNode, AttachMakesTheSunTheViewsSkyLight)
{
    osg::ref_ptr<osg::View> view = new osg::View;
    osg::ref_ptr<globe::SkyNode> sky = globe::SkyNode::create();
    sky->attach(view.get());
    EXPECT_EQ(view->getLightingMode(), osg::View::SKY_LIGHT);
    EXPECT_EQ(view->getLight(), sky->getSunLight());
    EXPECT_EQ(sky->getSunLight()->getLightNum(), 0);
    osg::StateSet* ss = view->getCamera()->getStateSet();
    ASSERT_NE(ss, nullptr);
    EXPECT_EQ(ss->getMode(GL_LIGHTING), osg::StateAttribute::ON);
    EXPECT_EQ(ss->getMode(GL_LIGHT0), osg::StateAttribute::ON);

    sky->setMinimumAmbient(osg::Vec4f(1, 1, 1, 1));
    auto* lightModel = dynamic_cast<osg::LightModel*>(ss->getAttribute(osg::StateAttribute::LIGHTMODEL));
    ASSERT_NE(lightModel, nullptr);
    EXPECT_EQ(lightModel->getAmbientIntensity(), osg::Vec4(1, 1, 1, 1));
    osg::Uniform* uniform = ss->getUniform("globe_MinimumAmbient");
    ASSERT_NE(uniform, nullptr);
    osg::Vec4f value;
    ASSERT_TRUE(uniform->get(value));
    EXPECT_EQ(value, osg::Vec4f(1, 1, 1, 1));
    EXPECT_EQ(sky->getMinimumAmbient(), osg::Vec4f(1, 1, 1, 1));

    // Another light number, clamped to the eight fixed-function lights.
    osg::ref_ptr<osg::View> second = new osg::View;
    sky->attach(second.get(), 12);
    EXPECT_EQ(sky->getSunLight()->getLightNum(), 7);
    EXPECT_EQ(second->getCamera()->getStateSet()->getMode(GL_LIGHT0 + 7), osg::StateAttribute::ON);

    sky->attach(nullptr); // ignored
    EXPECT_EQ(view->getLight(), sky->getSunLight());
}

TEST(SkyNode, MinimumAmbientIsClamped)
{
    osg::ref_ptr<globe::SkyNode> sky = globe::SkyNode::create();
    EXPECT_EQ(sky->getMinimumAmbient(), osg::Vec4f(0.1f, 0.1f, 0.1f, 1.0f));
    sky->setMinimumAmbient(osg::Vec4f(2.0f, -1.0f, std::numeric_limits<float>::quiet_NaN(), 0.5f));
    EXPECT_EQ(sky->getMinimumAmbient(), osg::Vec4f(1.0f, 0.0f, 0.0f, 0.5f));
}

TEST(SkyNode, PickersDoNotHitTheAtmosphere)
{
    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<globe::SkyNode> sky = globe::SkyNode::create();
    root->addChild(sky.get());
    ASSERT_NE(sky->getAtmosphere(), nullptr);
    // Space, the stars and the shell, in the order they are drawn.
    ASSERT_EQ(sky->getNumChildren(), 3u);
    EXPECT_EQ(sky->getChild(0), sky->getSpace());
    EXPECT_EQ(sky->getChild(1), sky->getStars());
    EXPECT_EQ(sky->getChild(2), sky->getAtmosphere());
    // A segment from far out through the whole shell.
    const double r = osg::WGS_84_RADIUS_EQUATOR * 2.0;
    osg::ref_ptr<osgUtil::LineSegmentIntersector> picker =
        new osgUtil::LineSegmentIntersector(osg::Vec3d(r, 0, 0), osg::Vec3d(-r, 0, 0));
    osgUtil::IntersectionVisitor visitor(picker.get());
    root->accept(visitor);
    EXPECT_FALSE(picker->containsIntersections());
    // The shell itself is real geometry at the atmosphere's height.
    const osg::BoundingBox box = sky->getAtmosphere()->getDrawable(0)->getBoundingBox();
    EXPECT_NEAR(box.xMax(), osg::WGS_84_RADIUS_EQUATOR * 1.025, 1000.0);
    EXPECT_NEAR(box.zMax(), osg::WGS_84_RADIUS_POLAR + osg::WGS_84_RADIUS_EQUATOR * 0.025, 1000.0);
}

TEST(SkyNode, CloneIsASkyOfItsOwn)
{
    osg::ref_ptr<globe::SkyNode> sky = globe::SkyNode::create();
    sky->setName("skynode");
    sky->setDateTime(globe::DateTime(2018, 11, 30, 9.0));
    sky->setMinimumAmbient(osg::Vec4f(0.5f, 0.5f, 0.5f, 1.0f));
    osg::ref_ptr<globe::SkyNode> copy = dynamic_cast<globe::SkyNode*>(sky->clone(osg::CopyOp::DEEP_COPY_ALL));
    ASSERT_TRUE(copy.valid());
    EXPECT_EQ(copy->getName(), "skynode");
    EXPECT_EQ(copy->getDateTime(), sky->getDateTime());
    EXPECT_EQ(copy->getMinimumAmbient(), sky->getMinimumAmbient());
    EXPECT_NE(copy->getSunLight(), sky->getSunLight());
    EXPECT_EQ(copy->getSunLight()->getPosition(), sky->getSunLight()->getPosition());
    EXPECT_EQ(copy->getNumChildren(), 3u);
    EXPECT_NE(copy->getStars(), sky->getStars());
}

namespace
{

const osg::Geometry* starGeometry(globe::SkyNode& sky)
{
    return sky.getStars() ? dynamic_cast<const osg::Geometry*>(sky.getStars()->getDrawable(0)) : nullptr;
}

// The star rotation uniform of a sky: equatorial to world coordinates.
osg::Matrixf starRotation(globe::SkyNode& sky)
{
    osg::Matrixf m;
    const osg::Uniform* u = sky.getStars()->getStateSet()->getUniform("globe_starRotation");
    EXPECT_NE(u, nullptr);
    if (u)
        u->get(m);
    return m;
}

} // namespace

TEST(SkyNode, StarsAreTheSameFieldEverySkyWithRealMagnitudes)
{
    osg::ref_ptr<globe::SkyNode> a = globe::SkyNode::create();
    osg::ref_ptr<globe::SkyNode> b = globe::SkyNode::create();
    const osg::Geometry* ga = starGeometry(*a);
    const osg::Geometry* gb = starGeometry(*b);
    ASSERT_TRUE(ga && gb);
    const auto* da = dynamic_cast<const osg::Vec3Array*>(ga->getVertexArray());
    const auto* db = dynamic_cast<const osg::Vec3Array*>(gb->getVertexArray());
    const auto* colours = dynamic_cast<const osg::Vec4Array*>(ga->getColorArray());
    const auto* sizes = dynamic_cast<const osg::Vec2Array*>(ga->getTexCoordArray(0));
    ASSERT_TRUE(da && db && colours && sizes);
    ASSERT_GE(da->size(), 2000u);
    ASSERT_EQ(da->size(), db->size());
    ASSERT_EQ(colours->size(), da->size());
    ASSERT_EQ(sizes->size(), da->size());
    EXPECT_EQ(ga->getPrimitiveSet(0)->getMode(), static_cast<GLenum>(GL_POINTS));

    int north = 0, bright = 0, faint = 0, big = 0;
    for (std::size_t i = 0; i < da->size(); ++i)
    {
        EXPECT_EQ((*da)[i], (*db)[i]) << "the same seed gives the same sky";
        EXPECT_NEAR((*da)[i].length(), 1.0f, 1e-5f);
        north += (*da)[i].z() > 0.0f ? 1 : 0;
        const osg::Vec4& c = (*colours)[i];
        const float intensity = std::max(c.r(), std::max(c.g(), c.b()));
        EXPECT_GE(intensity, 0.29f);
        EXPECT_LE(intensity, 1.0f);
        bright += intensity > 0.7f ? 1 : 0;
        faint += intensity < 0.45f ? 1 : 0;
        big += (*sizes)[i].x() > 1.0f ? 1 : 0;
    }
    const int n = static_cast<int>(da->size());
    // Spread over the whole sphere.
    EXPECT_NEAR(north, n / 2, n / 20);
    // Far more faint stars than bright ones, and a few larger points.
    EXPECT_GT(faint, 5 * bright);
    EXPECT_GT(bright, 0);
    EXPECT_GT(big, 0);
    EXPECT_LT(big, n / 10);
}

TEST(SkyNode, StarsTurnWithTheSiderealTimeOfTheDate)
{
    osg::ref_ptr<globe::SkyNode> sky = globe::SkyNode::create();
    sky->setDateTime(globe::DateTime(2018, 11, 30, 9.0));
    const double gmst = sky->getSunPosition().greenwichSiderealTime;
    const osg::Matrixf m = starRotation(*sky);
    // The vernal equinox (x of the equatorial frame) stands over the
    // longitude -GMST.
    const osg::Vec3f equinox = osg::Vec3f(1, 0, 0) * m;
    EXPECT_NEAR(osg::RadiansToDegrees(std::atan2(equinox.y(), equinox.x())),
                osg::RadiansToDegrees(std::atan2(std::sin(osg::DegreesToRadians(-gmst)),
                                                 std::cos(osg::DegreesToRadians(-gmst)))),
                1e-3);
    // The celestial pole stays on the Earth's axis.
    EXPECT_NEAR((osg::Vec3f(0, 0, 1) * m).z(), 1.0f, 1e-6f);
    // Six sidereal hours later the sky has turned a quarter of a turn.
    sky->setDateTime(globe::DateTime(2018, 11, 30, 9.0 + 6.0 * 0.99726957));
    const osg::Vec3f later = osg::Vec3f(1, 0, 0) * starRotation(*sky);
    EXPECT_NEAR(later * equinox, 0.0f, 1e-3f);
    EXPECT_NEAR((equinox ^ later).z(), -1.0f, 1e-3f) << "the sky turns westwards";
}

TEST(SkyNode, AttachGivesTheTerrainTheSunAndTheHaze)
{
    osg::ref_ptr<osg::View> view = new osg::View;
    osg::ref_ptr<globe::SkyNode> sky = globe::SkyNode::create();
    sky->setDateTime(globe::DateTime(2018, 11, 30, 9.0));
    sky->attach(view.get());
    osg::StateSet* ss = view->getCamera()->getStateSet();
    ASSERT_NE(ss, nullptr);
    osg::Uniform* sun = ss->getUniform("globe_SunDirection");
    osg::Uniform* haze = ss->getUniform("globe_hazeDensity");
    osg::Uniform* scaleHeight = ss->getUniform("globe_hazeScaleHeight");
    ASSERT_TRUE(sun && haze && scaleHeight);
    osg::Vec3f direction;
    ASSERT_TRUE(sun->get(direction));
    EXPECT_NEAR((osg::Vec3d(direction) - sky->getSunDirection()).length(), 0.0, 1e-6);
    float density = 0.0f, height = 0.0f;
    ASSERT_TRUE(haze->get(density));
    ASSERT_TRUE(scaleHeight->get(height));
    EXPECT_TRUE(sky->getHazeEnabled());
    // A visual range of about 120 km at sea level, thinning over 8 km.
    EXPECT_NEAR(1.0 / density, 120000.0, 1.0);
    EXPECT_FLOAT_EQ(height, 8000.0f);

    sky->setHazeEnabled(false);
    ASSERT_TRUE(haze->get(density));
    EXPECT_EQ(density, 0.0f);
    EXPECT_FALSE(sky->getHazeEnabled());
    sky->setHazeEnabled(true);
    ASSERT_TRUE(haze->get(density));
    EXPECT_GT(density, 0.0f);

    // The date moves the sun the terrain sees.
    sky->setDateTime(globe::DateTime(2018, 6, 21, 12.0));
    ASSERT_TRUE(sun->get(direction));
    EXPECT_NEAR((osg::Vec3d(direction) - sky->getSunDirection()).length(), 0.0, 1e-6);
}
