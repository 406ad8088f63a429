// The HUD pictures that cxsample paints: written where the viewer reads
// them, with alpha, and showing what they are meant to show.
#include "TempDir.h"

#include "Error.h"
#include "HudImages.h"

#include <gtest/gtest.h>
#include <osgDB/ReadFile>

#include <cmath>
#include <filesystem>

namespace
{

struct Rgba
{
    int r, g, b, a;
};

Rgba at(const osg::Image& image, int x, int y)
{
    const unsigned char* p = image.data(x, y);
    return {p[0], p[1], p[2], p[3]};
}

// A compass picture's pixel at `radius` (of the half size) and `bearing`
// degrees clockwise from the top.
Rgba atBearing(const osg::Image& image, double radius, double bearing)
{
    const double half = image.s() / 2.0;
    const double a = osg::DegreesToRadians(bearing);
    const int x = static_cast<int>(half + radius * half * std::sin(a));
    const int y = static_cast<int>(half + radius * half * std::cos(a));
    return at(image, x, y);
}

bool reddish(const Rgba& p) { return p.a > 200 && p.r > 150 && p.g < 90 && p.b < 90; }
bool whitish(const Rgba& p) { return p.a > 200 && p.r > 130 && p.g > 130 && p.b > 130; }

} // namespace

TEST(HudImages, WrittenWhereTheViewerReadsThemWithAlpha)
{
    cxtest::TempDir dir;
    const std::vector<std::string> files = cxsample::writeHudImages(dir.path().string());
    ASSERT_EQ(files.size(), 3u);
    EXPECT_EQ(std::filesystem::path(files[0]), dir.path() / "icon" / "Compass.PNG");
    EXPECT_EQ(std::filesystem::path(files[1]), dir.path() / "icon" / "plate.PNG");
    EXPECT_EQ(std::filesystem::path(files[2]), dir.path() / "myselftest" / "data" / "mapscale.png");
    for (const std::string& file : files)
    {
        osg::ref_ptr<osg::Image> image = osgDB::readRefImageFile(file);
        ASSERT_TRUE(image.valid()) << file;
        EXPECT_EQ(image->getPixelFormat(), static_cast<GLenum>(GL_RGBA)) << file;
        // Transparent in a corner, (nearly) opaque somewhere.
        EXPECT_EQ(at(*image, 0, 0).a, 0) << file;
        int opaque = 0;
        for (int y = 0; y < image->t(); ++y)
            for (int x = 0; x < image->s(); ++x)
                opaque += at(*image, x, y).a >= 200;
        EXPECT_GT(opaque, 100) << file;
    }
}

TEST(HudImages, TheCompassPointsNorthInRed)
{
    osg::ref_ptr<osg::Image> compass = cxsample::compassImage(256);
    // North (up) red, the other points white; nothing between the points.
    EXPECT_TRUE(reddish(atBearing(*compass, 0.4, -3.0)));
    EXPECT_TRUE(reddish(atBearing(*compass, 0.4, 3.0)));
    for (const double bearing : {90.0, 180.0, 270.0})
    {
        EXPECT_TRUE(whitish(atBearing(*compass, 0.35, bearing - 3.0))) << bearing;
        EXPECT_FALSE(reddish(atBearing(*compass, 0.35, bearing))) << bearing;
    }
    EXPECT_EQ(atBearing(*compass, 0.5, 45.0).a, 0);
    EXPECT_EQ(atBearing(*compass, 0.95, 120.0).a, 0);
    // The "N" over the north point.
    EXPECT_TRUE(whitish(atBearing(*compass, 0.72, 0.0)));
}

TEST(HudImages, ThePlateIsATranslucentDialWithTicks)
{
    osg::ref_ptr<osg::Image> plate = cxsample::plateImage(256);
    const Rgba centre = atBearing(*plate, 0.0, 0.0);
    EXPECT_GT(centre.a, 60);
    EXPECT_LT(centre.a, 230);
    // The rim and a major tick are light and nearly opaque, the disc between
    // two ticks is not.
    EXPECT_TRUE(whitish(atBearing(*plate, 0.905, 17.0)));
    EXPECT_TRUE(whitish(atBearing(*plate, 0.8, 90.0)));
    EXPECT_FALSE(whitish(atBearing(*plate, 0.8, 95.0)));
    EXPECT_EQ(atBearing(*plate, 0.99, 45.0).a, 0);
}

TEST(HudImages, TheScaleBarSpansSixtyPicturePixels)
{
    osg::ref_ptr<osg::Image> bar = cxsample::scaleBarImage();
    ASSERT_EQ(bar->s(), cxsample::kScaleBarImageWidth);
    ASSERT_EQ(bar->t(), cxsample::kScaleBarImageHeight);
    const int y = (cxsample::kScaleBarBottom + cxsample::kScaleBarTop) / 2;
    // Opaque from the left end to the right end of the bar, black then
    // white, transparent beyond its frame.
    int first = -1, last = -1;
    for (int x = 0; x < bar->s(); ++x)
        if (at(*bar, x, y).a == 255)
        {
            if (first < 0)
                first = x;
            last = x;
        }
    EXPECT_NEAR(first, cxsample::kScaleBarLeft, 2);
    EXPECT_NEAR(last + 1, cxsample::kScaleBarRight, 2);
    EXPECT_EQ(cxsample::kScaleBarRight - cxsample::kScaleBarLeft, 60); // 30 screen pixels
    const Rgba left = at(*bar, cxsample::kScaleBarLeft + 15, y);
    const Rgba right = at(*bar, cxsample::kScaleBarRight - 15, y);
    EXPECT_LT(left.r + left.g + left.b, 60);
    EXPECT_GT(right.r + right.g + right.b, 600);
    // The rows the viewer shows (30 to 90) hold the bar; the rest is clear.
    EXPECT_EQ(at(*bar, 100, 20).a, 0);
    EXPECT_EQ(at(*bar, 100, 100).a, 0);
}

TEST(HudImages, AnUnwritableFolderIsAnError)
{
    cxtest::TempDir dir;
    const std::filesystem::path blocker = dir.write("icon", "a file where the folder should be");
    EXPECT_THROW(cxsample::writeHudImages(dir.path().string()), cxsample::Error);
}
