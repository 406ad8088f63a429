// The sky box on a real window: it fills exactly the pixels the scene leaves
// empty, and whatever the scene draws, near or beyond the sphere, hides it.
#include "PlainSceneFixture.h"

#include <rendering/XSkyBox>

#include <osg/MatrixTransform>

namespace
{

using cxtest::describe;
using cxtest::near;
using cxtest::pixelAt;

osg::ref_ptr<osg::Image> plainFace(unsigned char r, unsigned char g, unsigned char b)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(8, 8, 1, GL_RGB, GL_UNSIGNED_BYTE);
    for (int i = 0; i < 64; ++i)
    {
        image->data()[i * 3] = r;
        image->data()[i * 3 + 1] = g;
        image->data()[i * 3 + 2] = b;
    }
    return image;
}

class SkyBoxGL : public cxtest::PlainSceneFixture
{
protected:
    void SetUp() override
    {
        PlainSceneFixture::SetUp();
        if (HasFatalFailure())
            return;
        // A green box 30 m ahead, and a red one 20 km away, beyond the
        // sphere of the sky box (10 km), off to the right.
        viewer->getRoot()->addChild(cxtest::colouredShape(new osg::Box(osg::Vec3(), 4.0f), osg::Vec4(0, 1, 0, 1)));
        viewer->getRoot()->addChild(
            cxtest::colouredShape(new osg::Box(osg::Vec3(4000, 20030, 0), 1500.0f), osg::Vec4(1, 0, 0, 1)));
        lookAt(osg::Vec3d(0, -30, 0), osg::Vec3d(0, 0, 0));
    }

    osg::ref_ptr<XSkyBox> magentaSky()
    {
        osg::ref_ptr<XSkyBox> sky = new XSkyBox;
        osg::ref_ptr<osg::Image> face = plainFace(255, 0, 255);
        sky->setEnvironmentMap(0, face.get(), face.get(), face.get(), face.get(), face.get(), face.get());
        return sky;
    }
};

TEST_F(SkyBoxGL, FillsExactlyThePixelsTheSceneLeavesEmpty)
{
    frames(1);
    osg::ref_ptr<osg::Image> without = grabWindow();
    ASSERT_TRUE(without.valid());
    viewer->getRoot()->addChild(magentaSky().get());
    frames(1);
    osg::ref_ptr<osg::Image> with = grabWindow();
    ASSERT_TRUE(with.valid());
    cxtest::saveScreenshot(*without, "sky_box_without");
    cxtest::saveScreenshot(*with, "sky_box_with");

    const osg::Vec4ub bg = background();
    int empty = 0, filled = 0, scene = 0, kept = 0, edges = 0, red = 0;
    for (int y = 0; y < with->t(); ++y)
        for (int x = 0; x < with->s(); ++x)
        {
            const osg::Vec4ub a = pixelAt(*without, x, y);
            const osg::Vec4ub b = pixelAt(*with, x, y);
            if (near(a, bg.r(), bg.g(), bg.b(), 1))
            {
                ++empty;
                filled += near(b, 255, 0, 255, 2);
            }
            else if (near(a, 0, 255, 0, 0) || near(a, 255, 0, 0, 0))
            {
                ++scene;
                red += near(a, 255, 0, 0, 0);
                kept += b == a;
            }
            else
            {
                // Multisampled edges mix the two.
                ++edges;
            }
        }
    EXPECT_EQ(filled, empty);
    EXPECT_EQ(kept, scene);
    EXPECT_GT(empty, 100000);
    EXPECT_GT(scene, 3000);
    // The box beyond the sphere hides the sky too.
    EXPECT_GT(red, 100);
    EXPECT_LT(edges, 2000);
}

TEST_F(SkyBoxGL, FollowsTheEyeAndStaysBehindEverything)
{
    viewer->getRoot()->addChild(magentaSky().get());
    // Far from the origin: the sphere goes with the eye, and the boxes now
    // in front still hide it.
    osg::ref_ptr<osg::MatrixTransform> place = new osg::MatrixTransform(osg::Matrixd::translate(50000, 0, 0));
    place->addChild(cxtest::colouredShape(new osg::Box(osg::Vec3(), 4.0f), osg::Vec4(0, 0, 1, 1)));
    viewer->getRoot()->addChild(place.get());
    lookAt(osg::Vec3d(50000, -30, 0), osg::Vec3d(50000, 0, 0));
    frames(1);
    osg::ref_ptr<osg::Image> image = grabWindow();
    ASSERT_TRUE(image.valid());
    cxtest::saveScreenshot(*image, "sky_box_moved");
    EXPECT_TRUE(near(pixelAt(*image, 240, 180), 0, 0, 255)) << describe(pixelAt(*image, 240, 180));
    EXPECT_TRUE(near(pixelAt(*image, 10, 10), 255, 0, 255, 2)) << describe(pixelAt(*image, 10, 10));
    EXPECT_TRUE(near(pixelAt(*image, 470, 350), 255, 0, 255, 2)) << describe(pixelAt(*image, 470, 350));
}

} // namespace
