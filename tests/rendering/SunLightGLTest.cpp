// The sun light on a real window: a sphere lit by the view's sky light and by
// the sun, whose lit side follows changeA.
#include "PlainSceneFixture.h"

#include <rendering/CXSunLight>

#include <osg/Material>

namespace
{

using cxtest::pixelAt;

class SunLightGL : public cxtest::PlainSceneFixture
{
protected:
    void SetUp() override
    {
        PlainSceneFixture::SetUp();
        if (HasFatalFailure())
            return;
        sphere = new osg::Geode;
        osg::ref_ptr<osg::TessellationHints> hints = new osg::TessellationHints;
        hints->setDetailRatio(3.0f);
        sphere->addDrawable(new osg::ShapeDrawable(new osg::Sphere(osg::Vec3(), 5.0f), hints.get()));
        // A dull grey surface, so that two lights do not wash it out.
        osg::ref_ptr<osg::Material> material = new osg::Material;
        material->setColorMode(osg::Material::OFF);
        material->setAmbient(osg::Material::FRONT_AND_BACK, osg::Vec4(0.1f, 0.1f, 0.1f, 1.0f));
        material->setDiffuse(osg::Material::FRONT_AND_BACK, osg::Vec4(0.6f, 0.6f, 0.6f, 1.0f));
        material->setSpecular(osg::Material::FRONT_AND_BACK, osg::Vec4(0.0f, 0.0f, 0.0f, 1.0f));
        sphere->getOrCreateStateSet()->setAttributeAndModes(material.get());
        viewer->getRoot()->addChild(sphere.get());
        // Looking down -Z: x to the right, y up on the screen.
        lookAt(osg::Vec3d(0, 0, 30), osg::Vec3d(0, 0, 0), osg::Vec3d(0, 1, 0));
    }

    // Mean grey of a small patch of the sphere at window offset (dx, dy)
    // from the centre (y up).
    double brightness(const osg::Image& image, int dx, int dy)
    {
        const int cx = image.s() / 2 + dx, cy = image.t() / 2 - dy;
        double sum = 0.0;
        int n = 0;
        for (int y = cy - 2; y <= cy + 2; ++y)
            for (int x = cx - 2; x <= cx + 2; ++x)
            {
                const osg::Vec4ub p = pixelAt(image, x, y);
                sum += (p.r() + p.g() + p.b()) / 3.0;
                ++n;
            }
        return sum / n;
    }

    osg::ref_ptr<osg::Geode> sphere;
};

TEST_F(SunLightGL, ChangeAMovesTheLitSide)
{
    osg::ref_ptr<CXSunLight> sun = new CXSunLight(sphere.get(), viewer->getViewer());
    viewer->getRoot()->addChild(sun.get());
    frames(1);
    osg::ref_ptr<osg::Image> before = grabWindow();
    ASSERT_TRUE(before.valid());
    cxtest::saveScreenshot(*before, "sun_light_default");
    // The sphere, 5 m at 30 m, is about 115 pixels in radius: samples near
    // its left and right limbs.
    const double leftBefore = brightness(*before, -100, 0);
    const double rightBefore = brightness(*before, 100, 0);
    // Both lights come from (500, 500, 1000): the right side is lit.
    EXPECT_GT(rightBefore, leftBefore + 60.0) << leftBefore << " / " << rightBefore;

    // The sun from the left (-x).
    sun->changeA(osg::Vec3d(-1.0, 0.0, 0.0));
    osg::ref_ptr<osg::Image> after = grabWindow();
    ASSERT_TRUE(after.valid());
    cxtest::saveScreenshot(*after, "sun_light_from_the_left");
    const double leftAfter = brightness(*after, -100, 0);
    const double rightAfter = brightness(*after, 100, 0);
    EXPECT_GT(leftAfter, leftBefore + 60.0) << leftBefore << " -> " << leftAfter;
    EXPECT_LT(rightAfter, rightBefore - 30.0) << rightBefore << " -> " << rightAfter;
    // Directional: the same direction from a point ten times as far lights
    // the same.
    sun->changeA(osg::Vec3d(-10.0, 0.0, 0.0));
    osg::ref_ptr<osg::Image> farther = grabWindow();
    EXPECT_LT(cxtest::differingPixels(*after, *farther), 5);

    // From below (-y): the bottom brightens, the left goes back.
    sun->changeA(osg::Vec3d(0.0, -1.0, 0.0));
    osg::ref_ptr<osg::Image> below = grabWindow();
    EXPECT_GT(brightness(*below, 0, -100), brightness(*after, 0, -100) + 60.0);
    EXPECT_LT(brightness(*below, -100, 0), leftAfter - 60.0);
}

TEST_F(SunLightGL, ShadowAnalysisChangesNoPixel)
{
    osg::ref_ptr<CXSunLight> sun = new CXSunLight(sphere.get(), viewer->getViewer());
    viewer->getRoot()->addChild(sun.get());
    frames(1);
    osg::ref_ptr<osg::Image> before = grabWindow();
    sun->shadowAnalysisON(viewer->getRoot(), viewer->getViewer());
    osg::ref_ptr<osg::Image> on = grabWindow();
    sun->shadowAnalysisOFF(viewer->getRoot());
    osg::ref_ptr<osg::Image> off = grabWindow();
    ASSERT_TRUE(before.valid() && on.valid() && off.valid());
    EXPECT_EQ(cxtest::differingPixels(*before, *on), 0);
    EXPECT_EQ(cxtest::differingPixels(*before, *off), 0);
}

} // namespace
