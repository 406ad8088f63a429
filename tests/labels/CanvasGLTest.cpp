// Text on a real window without a map: Chinese glyphs on the HUD canvas
// against the missing-glyph boxes of a Latin font, the canvas following
// the window, and the HUD of a viewer whose earth file is missing.
#include "GlyphInk.h"
#include "ViewerFixture.h"

#include <labels/CLableControlEventHandler>

#include <globe/ControlCanvas>
#include <globe/Fonts>
#include <globe/LabelControl>


namespace
{

const char* const kDejaVu = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// Dark pixels of a frame on the grey background: the ink of black text.
cxtest::Ink darkInk(const osg::Image& frame, int x0, int y0, int width, int height)
{
    return cxtest::inkOf(frame, x0, y0, width, height, [&](int x, int y) {
        const osg::Vec4ub c = cxtest::pixelAt(frame, x, y);
        return c.r() + c.g() + c.b() < 3 * 90;
    });
}

} // namespace

class Canvas : public cxtest::ViewerFixture
{
protected:
    Canvas()
    {
        windowWidth = 320;
        windowHeight = 200;
    }
};

TEST_F(Canvas, ChineseTextShowsRealGlyphsWhereALatinFontDrawsBoxes)
{
    osg::ref_ptr<globe::ControlCanvas> canvas = new globe::ControlCanvas;
    viewer->getRoot()->addChild(canvas.get());
    osg::ref_ptr<globe::LabelControl> label = new globe::LabelControl("北京", osg::Vec4f(0, 0, 0, 1), 64.0f);
    label->setFont(globe::readFont("simhei.ttf").get());
    label->setPosition(20.0f, 20.0f);
    canvas->addControl(label.get());
    osg::ref_ptr<osg::Image> cjk = grabFrame();
    cxtest::saveScreenshot(*cjk, "canvas_beijing_cjk");

    label->setFont(globe::readFont(kDejaVu).get());
    osg::ref_ptr<osg::Image> latin = grabFrame();
    cxtest::saveScreenshot(*latin, "canvas_beijing_dejavu");

    // The label's box: from (20, 20) below the top left, 64 pixels high.
    const int x0 = 20, y0 = 20, width = 180, height = 80;
    const cxtest::Ink real = darkInk(*cjk, x0, y0, width, height);
    const cxtest::Ink boxes = darkInk(*latin, x0, y0, width, height);
    ASSERT_GT(real.count(), 300);
    ASSERT_GT(boxes.count(), 100);
    EXPECT_GT(cxtest::mismatch(real, boxes), 0.4);
    // 北 and 京 differ from each other; DejaVu Sans draws one box twice.
    EXPECT_GT(cxtest::glyphMismatch(real), 0.4);
    EXPECT_LT(cxtest::glyphMismatch(boxes), 0.05);
    // The default font of a label is the CJK one.
    label->setFont(nullptr);
    osg::ref_ptr<osg::Image> byDefault = grabFrame();
    EXPECT_LT(cxtest::mismatch(darkInk(*byDefault, x0, y0, width, height), real), 0.02);
}

TEST_F(Canvas, BackColourTextColourAndAlignmentOnScreen)
{
    osg::ref_ptr<globe::ControlCanvas> canvas = new globe::ControlCanvas;
    viewer->getRoot()->addChild(canvas.get());
    osg::ref_ptr<globe::LabelControl> label = new globe::LabelControl("", osg::Vec4f(1, 1, 1, 1), 18.0f);
    label->setAlign(globe::LabelControl::ALIGN_RIGHT, globe::LabelControl::ALIGN_BOTTOM);
    label->setBackColor(0.0f, 0.0f, 0.0f, 0.5f);
    label->setSize(100.0f, 30.0f);
    canvas->addControl(label.get());
    osg::ref_ptr<osg::Image> frame = grabFrame();
    // Half-transparent black over the 0.7 grey: 0.35 grey in the bottom
    // right 100 x 30, the grey elsewhere.
    const osg::Vec4ub inside = cxtest::pixelAt(*frame, windowWidth - 50, windowHeight - 15);
    const osg::Vec4ub outside = cxtest::pixelAt(*frame, windowWidth - 150, windowHeight - 15);
    EXPECT_NEAR(inside.r(), 89, 3);
    EXPECT_NEAR(outside.r(), 179, 2);
    EXPECT_NEAR(cxtest::pixelAt(*frame, windowWidth - 99, windowHeight - 2).r(), 89, 3);
    EXPECT_NEAR(cxtest::pixelAt(*frame, windowWidth - 102, windowHeight - 2).r(), 179, 2);

    label->setText("HHHH");
    label->setFontSize(24.0f);
    frame = grabFrame();
    cxtest::saveScreenshot(*frame, "canvas_back_colour");
    int white = 0;
    for (int y = windowHeight - 30; y < windowHeight; ++y)
        for (int x = windowWidth - 100; x < windowWidth; ++x)
            white += cxtest::pixelAt(*frame, x, y).r() > 180;
    EXPECT_GT(white, 50) << "light letters in the dark box";
}

TEST_F(Canvas, TheCanvasFollowsTheWindowOnItsOwn)
{
    osg::ref_ptr<globe::ControlCanvas> canvas = new globe::ControlCanvas;
    viewer->getRoot()->addChild(canvas.get());
    osg::ref_ptr<globe::LabelControl> label = new globe::LabelControl("corner", osg::Vec4f(1, 1, 1, 1), 18.0f);
    label->setAlign(globe::LabelControl::ALIGN_RIGHT, globe::LabelControl::ALIGN_TOP);
    canvas->addControl(label.get());
    frames(2);
    ASSERT_NE(canvas->getViewport(), nullptr);
    EXPECT_EQ(canvas->getViewport()->width(), windowWidth);
    EXPECT_EQ(canvas->getViewport()->height(), windowHeight);

    window->resize(500, 260);
    frames(3);
    EXPECT_EQ(canvas->getViewport()->width(), 500.0);
    EXPECT_EQ(canvas->getViewport()->height(), 260.0);
    EXPECT_FLOAT_EQ(label->renderPosition().x(), std::floor(500.0f - label->renderSize().x()));
    EXPECT_FLOAT_EQ(label->renderPosition().y(), 260.0f - label->renderSize().y());
    // Drawn there: white text in the new top right corner.
    osg::ref_ptr<osg::Image> frame = grabFrame();
    cxtest::saveScreenshot(*frame, "canvas_resized");
    ASSERT_EQ(frame->s(), 500);
    int white = 0;
    for (int y = 0; y < 22; ++y)
        for (int x = 500 - static_cast<int>(label->renderSize().x()); x < 500; ++x)
            white += cxtest::pixelAt(*frame, x, y).r() > 215;
    EXPECT_GT(white, 20);
}

class HudWithoutMap : public cxtest::ViewerFixture
{
protected:
    HudWithoutMap()
    {
        windowWidth = 320;
        windowHeight = 240;
    }
};

TEST_F(HudWithoutMap, TheHudShowsButThePositionTextStaysEmpty)
{
    // No earth file under the empty base path: an empty map, the plain
    // CXEarthManipulator.
    ASSERT_EQ(viewer->mapNode->getNumParents(), 0u);
    viewer->addViewPointLable();
    CLableControlEventHandler* handler = viewer->labelHandler;
    ASSERT_NE(handler, nullptr);
    EXPECT_EQ(handler->mapNode, viewer->mapNode.get());
    for (int i = 0; i < 4; ++i)
    {
        mouseMove(100.0f + 20.0f * i, 120.0f);
        frames(1);
    }
    EXPECT_EQ(handler->coordinateLabel->text(), "");
    EXPECT_EQ(handler->scaleLabel->text(), "");
    EXPECT_EQ(handler->scaleCamera->getNodeMask(), 0u);
    EXPECT_TRUE(handler->compass->getMatrix().isIdentity());

    // The HUD is there: the compass corner moved to the top left and drew
    // (without its pictures, plain quads), the empty position label's box
    // at the bottom right.
    osg::ref_ptr<osg::Image> frame = grabFrame();
    cxtest::saveScreenshot(*frame, "hud_without_map");
    EXPECT_EQ(handler->compassCamera->getViewport()->y(), windowHeight - 100.0);
    const osg::Vec4ub compass = cxtest::pixelAt(*frame, 50, 50);
    EXPECT_GT(compass.r(), 230);
    const osg::Vec4ub box = cxtest::pixelAt(*frame, windowWidth - 10, windowHeight - 5);
    EXPECT_NEAR(box.r(), 89, 3);
    const osg::Vec4ub clear = cxtest::pixelAt(*frame, windowWidth / 2, windowHeight / 2);
    EXPECT_NEAR(clear.r(), 179, 2);
}
