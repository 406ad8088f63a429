// The HUD's texts: the scale in metres and kilometres, what 30 pixels span
// between two picked points, and the position text.
#include <labels/CLableControlEventHandler>

#include <globe/SpatialReference>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace
{

const globe::SpatialReference* wgs84() { return globe::SpatialReference::create("wgs84"); }

// The point `east` and `north` metres from (lon, lat) in the UTM zone of
// (lon, lat), at `height`.
osg::Vec3d offsetInUtm(double lon, double lat, double east, double north, double height)
{
    const globe::SpatialReference* utm = wgs84()->createUTMFromLonLat(lon, lat);
    osg::Vec3d q;
    EXPECT_TRUE(wgs84()->transform(osg::Vec3d(lon, lat, 0.0), utm, q));
    osg::Vec3d p;
    EXPECT_TRUE(utm->transform(q + osg::Vec3d(east, north, height), wgs84(), p));
    return p;
}

// The number after `tag` in a position text.
double valueAfter(const std::string& text, const std::string& tag)
{
    const std::size_t at = text.find(tag);
    EXPECT_NE(at, std::string::npos) << text;
    return at == std::string::npos ? std::nan("") : std::strtod(text.c_str() + at + tag.size(), nullptr);
}

} // namespace

TEST(ScaleText, OneMetreAndLessReadOneMetre)
{
    // Both picks missed: both points at zero, nothing between them.
    EXPECT_EQ(CLableControlEventHandler::formatScale(0), "1 m");
    EXPECT_EQ(CLableControlEventHandler::formatScale(1), "1 m");
    EXPECT_EQ(CLableControlEventHandler::formatScale(-7), "1 m");
}

TEST(ScaleText, UpToOneThousandInMetres)
{
    EXPECT_EQ(CLableControlEventHandler::formatScale(2), "2 m");
    EXPECT_EQ(CLableControlEventHandler::formatScale(999), "999 m");
    EXPECT_EQ(CLableControlEventHandler::formatScale(1000), "1000 m");
}

TEST(ScaleText, OverOneThousandInKilometresWithSixDigits)
{
    EXPECT_EQ(CLableControlEventHandler::formatScale(1001), "1.001 km");
    EXPECT_EQ(CLableControlEventHandler::formatScale(1500), "1.5 km");
    EXPECT_EQ(CLableControlEventHandler::formatScale(40177), "40.177 km");
    EXPECT_EQ(CLableControlEventHandler::formatScale(1234567), "1234.57 km");
    EXPECT_EQ(CLableControlEventHandler::formatScale(INT_MAX), "2.14748e+06 km");
}

TEST(ScaleMeasure, ThirtyTimesTheDistanceInTheUtmZone)
{
    const osg::Vec3d p1(116.4, 39.9, 0.0);
    // 10.001 m apart: 300.03 m for the bar, truncated.
    EXPECT_EQ(CLableControlEventHandler::measureScale(wgs84(), p1, offsetInUtm(116.4, 39.9, 10.001, 0.0, 0.0)), 300);
    EXPECT_EQ(CLableControlEventHandler::measureScale(wgs84(), p1, offsetInUtm(116.4, 39.9, 0.0, 33.31, 0.0)), 999);
    // 1001 m for a bar whose pixel spans 33.367 m.
    EXPECT_EQ(CLableControlEventHandler::measureScale(wgs84(), p1, offsetInUtm(116.4, 39.9, 33.367, 0.0, 0.0)), 1001);
    EXPECT_EQ(CLableControlEventHandler::formatScale(CLableControlEventHandler::measureScale(
                  wgs84(), p1, offsetInUtm(116.4, 39.9, 33.367, 0.0, 0.0))),
              "1.001 km");
    // The heights of the two points count as well.
    EXPECT_EQ(CLableControlEventHandler::measureScale(wgs84(), p1, osg::Vec3d(116.4, 39.9, 2.0)), 60);
}

TEST(ScaleMeasure, BothPicksMissedMeasureNothing)
{
    const osg::Vec3d zero(0.0, 0.0, 0.0);
    EXPECT_EQ(CLableControlEventHandler::measureScale(wgs84(), zero, zero), 0);
    EXPECT_EQ(CLableControlEventHandler::formatScale(CLableControlEventHandler::measureScale(wgs84(), zero, zero)),
              "1 m");
}

TEST(ScaleMeasure, BadInputGivesZeroOrTheLargestNumber)
{
    const osg::Vec3d p1(116.4, 39.9, 0.0);
    EXPECT_EQ(CLableControlEventHandler::measureScale(nullptr, p1, p1), 0);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(CLableControlEventHandler::measureScale(wgs84(), osg::Vec3d(nan, 0.0, 0.0), p1), 0);
    EXPECT_EQ(CLableControlEventHandler::measureScale(wgs84(), p1, osg::Vec3d(nan, 0.0, 0.0)), 0);
    // One pick missed: the other point is at longitude 0, latitude 0, far
    // outside the zone, and the number stays within an int.
    const int far = CLableControlEventHandler::measureScale(wgs84(), p1, osg::Vec3d(0.0, 0.0, 0.0));
    EXPECT_GE(far, 0);
    EXPECT_LE(far, INT_MAX);
    EXPECT_EQ(CLableControlEventHandler::measureScale(wgs84(), p1, osg::Vec3d(116.4, 39.9, 1e12)), INT_MAX);
}

TEST(PositionText, LongitudeAfterBLatitudeAfterL)
{
    const std::string text = CLableControlEventHandler::formatPosition(116.4074, 39.9042, 52.341);
    EXPECT_EQ(text.rfind("B:116.4", 0), 0u) << text;
    EXPECT_NEAR(valueAfter(text, "B:"), 116.4074, 1e-3);
    EXPECT_NEAR(valueAfter(text, "  L:"), 39.9042, 1e-4);
    EXPECT_NEAR(valueAfter(text, "  H:"), 52.34, 0.5);
    EXPECT_LT(text.find("B:"), text.find("  L:"));
    EXPECT_LT(text.find("  L:"), text.find("  H:"));
}

TEST(PositionText, SixSixAndTwoSignificantDigits)
{
    EXPECT_EQ(CLableControlEventHandler::formatPosition(116.4074, 39.9042, 52.341), "B:116.407  L:39.9042  H:52");
    EXPECT_EQ(CLableControlEventHandler::formatPosition(-63.5, -39.25, -4.0), "B:-63.5  L:-39.25  H:-4");
    // Two significant digits of a height over a thousand metres: exponent form.
    EXPECT_EQ(CLableControlEventHandler::formatPosition(86.925, 27.988, 8848.0), "B:86.925  L:27.988  H:8.8e+03");
}
