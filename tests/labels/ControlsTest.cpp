// The heads-up display's canvas and text labels: layout by alignment,
// margins and position, sizes, colours, and the canvas's camera.
#include <globe/ControlCanvas>
#include <globe/Fonts>
#include <globe/LabelControl>

#include <gtest/gtest.h>
#include <osg/Geode>

namespace
{

using globe::LabelControl;

// The width of the text alone, as the label measures it.
float textWidth(LabelControl& label)
{
    const osg::BoundingBox& bound = label.getTextDrawable()->getBoundingBox();
    return bound.xMax() - label.getTextDrawable()->getPosition().x();
}

} // namespace

TEST(LabelControl, Defaults)
{
    osg::ref_ptr<LabelControl> label = new LabelControl("", osg::Vec4f(1, 1, 1, 1), 18.0f);
    EXPECT_EQ(label->text(), "");
    EXPECT_FLOAT_EQ(label->fontSize(), 18.0f);
    EXPECT_EQ(label->foreColor(), osg::Vec4f(1, 1, 1, 1));
    EXPECT_EQ(label->backColor().a(), 0.0f);
    EXPECT_EQ(label->encoding(), osgText::String::ENCODING_UTF8);
    // The default font shows Chinese: the CJK fallback.
    EXPECT_EQ(label->font(), globe::readFont("").get());
    EXPECT_FALSE(label->hasPosition());
    // Values of the alignments and sides that hosts store.
    EXPECT_EQ(LabelControl::ALIGN_LEFT, 1);
    EXPECT_EQ(LabelControl::ALIGN_RIGHT, 3);
    EXPECT_EQ(LabelControl::ALIGN_BOTTOM, 5);
}

TEST(LabelControl, TheBoxHoldsTheTextAndAtLeastTheSize)
{
    osg::ref_ptr<LabelControl> label = new LabelControl("", osg::Vec4f(1, 1, 1, 1), 18.0f);
    label->setSize(220.0f, 10.0f);
    label->layout(640.0f, 480.0f);
    // Empty: the size asked for across, one line of characters up.
    EXPECT_FLOAT_EQ(label->renderSize().x(), 220.0f);
    EXPECT_FLOAT_EQ(label->renderSize().y(), 18.0f + 2.0f * label->padding());

    label->setFontSize(15.0f);
    label->setText("B:-116.407  L:-39.9042  H:-8.8e+03  (long)");
    label->layout(640.0f, 480.0f);
    const float width = textWidth(*label);
    EXPECT_GT(width, 220.0f); // 40 characters of 15 pixels
    EXPECT_LT(width, 40.0f * 15.0f);
    EXPECT_FLOAT_EQ(label->renderSize().x(), width + 2.0f * label->padding());
    EXPECT_FLOAT_EQ(label->renderSize().y(), 15.0f + 2.0f * label->padding());

    label->setText("1 m");
    label->layout(640.0f, 480.0f);
    EXPECT_FLOAT_EQ(label->renderSize().x(), 220.0f);
}

TEST(LabelControl, AlignedRightAndBottomWithMargins)
{
    osg::ref_ptr<LabelControl> label = new LabelControl("scale", osg::Vec4f(1, 1, 1, 1), 18.0f);
    label->setAlign(LabelControl::ALIGN_RIGHT, LabelControl::ALIGN_BOTTOM);
    label->setMargin(LabelControl::SIDE_RIGHT, 30.0f);
    label->setMargin(LabelControl::SIDE_BOTTOM, 20.0f);
    label->layout(640.0f, 480.0f);
    const osg::Vec2f size = label->renderSize();
    EXPECT_FLOAT_EQ(label->renderPosition().x(), std::floor(640.0f - 30.0f - size.x()));
    // GL coordinates: the bottom margin is the height of the box's lower edge.
    EXPECT_FLOAT_EQ(label->renderPosition().y(), 20.0f);
}

TEST(LabelControl, AlignedLeftAndBottomLikeTheScaleText)
{
    osg::ref_ptr<LabelControl> label = new LabelControl("", osg::Vec4f(1, 1, 1, 1), 18.0f);
    label->setAlign(LabelControl::ALIGN_LEFT, LabelControl::ALIGN_BOTTOM);
    label->setSize(10.0f, 10.0f);
    label->setMargin(LabelControl::SIDE_BOTTOM, 20.0f);
    label->setMargin(LabelControl::SIDE_LEFT, 50.0f);
    label->setText("40.177 km");
    label->layout(960.0f, 600.0f);
    EXPECT_FLOAT_EQ(label->renderPosition().x(), 50.0f);
    EXPECT_FLOAT_EQ(label->renderPosition().y(), 20.0f);
}

TEST(LabelControl, CentredAndTopLeft)
{
    osg::ref_ptr<LabelControl> label = new LabelControl("middle", osg::Vec4f(1, 1, 1, 1), 20.0f);
    label->setSize(100.0f, 40.0f);
    label->setAlign(LabelControl::ALIGN_CENTER, LabelControl::ALIGN_CENTER);
    label->layout(500.0f, 300.0f);
    EXPECT_FLOAT_EQ(label->renderPosition().x(), 200.0f);
    EXPECT_FLOAT_EQ(label->renderPosition().y(), 130.0f);
    label->setAlign(LabelControl::ALIGN_NONE, LabelControl::ALIGN_NONE);
    label->setMargin(5.0f);
    label->layout(500.0f, 300.0f);
    EXPECT_FLOAT_EQ(label->renderPosition().x(), 5.0f);
    EXPECT_FLOAT_EQ(label->renderPosition().y(), 300.0f - 5.0f - 40.0f);
}

TEST(LabelControl, APositionCountsFromTheTopLeftAndBeatsTheAlignment)
{
    osg::ref_ptr<LabelControl> label = new LabelControl("B:1  L:2  H:3", osg::Vec4f(1, 1, 1, 1), 15.0f);
    label->setAlign(LabelControl::ALIGN_RIGHT, LabelControl::ALIGN_BOTTOM);
    label->setPosition(640.0f / 2.0f - 100.0f, 0.0f);
    label->layout(640.0f, 480.0f);
    EXPECT_FLOAT_EQ(label->renderPosition().x(), 220.0f);
    // At the top of the canvas.
    EXPECT_FLOAT_EQ(label->renderPosition().y() + label->renderSize().y(), 480.0f);
    label->setMargin(LabelControl::SIDE_LEFT, 7.0f);
    label->setMargin(LabelControl::SIDE_TOP, 3.0f);
    label->layout(640.0f, 480.0f);
    EXPECT_FLOAT_EQ(label->renderPosition().x(), 227.0f);
    EXPECT_FLOAT_EQ(label->renderPosition().y() + label->renderSize().y(), 477.0f);
    label->clearPosition();
    label->layout(640.0f, 480.0f);
    EXPECT_FLOAT_EQ(label->renderPosition().y(), 0.0f);
}

TEST(LabelControl, TheBackColourFillsTheBox)
{
    osg::ref_ptr<LabelControl> label = new LabelControl("x", osg::Vec4f(1, 1, 1, 1), 18.0f);
    label->setSize(220.0f, 10.0f);
    label->layout(640.0f, 480.0f);
    // The transform holds the box's geode and the text's geode.
    auto* transform = dynamic_cast<osg::MatrixTransform*>(label->getChild(0));
    ASSERT_NE(transform, nullptr);
    ASSERT_EQ(transform->getNumChildren(), 2u);
    osg::Geode* box = transform->getChild(0)->asGeode();
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->getNodeMask(), 0u); // transparent: no box
    label->setBackColor(0.0f, 0.0f, 0.0f, 0.5f);
    EXPECT_NE(box->getNodeMask(), 0u);
    const osg::Geometry* geometry = box->getDrawable(0)->asGeometry();
    const auto* colours = static_cast<const osg::Vec4Array*>(geometry->getColorArray());
    EXPECT_EQ((*colours)[0], osg::Vec4(0.0f, 0.0f, 0.0f, 0.5f));
    const auto* corners = static_cast<const osg::Vec3Array*>(geometry->getVertexArray());
    EXPECT_FLOAT_EQ((*corners)[2].x(), 220.0f);
    EXPECT_FLOAT_EQ((*corners)[2].y(), label->renderSize().y());
}

TEST(LabelControl, SettersTakeTheirValues)
{
    osg::ref_ptr<LabelControl> label = new LabelControl;
    osg::ref_ptr<osgText::Font> dejavu = globe::readFont("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
    label->setFont(dejavu.get());
    label->setFontSize(15.0f);
    label->setForeColor(1.0f, 0.0f, 0.0f, 1.0f);
    label->setEncoding(osgText::String::ENCODING_ASCII);
    label->setText("\xe5\x8c\x97");
    label->layout(100.0f, 100.0f);
    const osgText::Text* text = label->getTextDrawable();
    EXPECT_EQ(text->getFont(), dejavu.get());
    EXPECT_FLOAT_EQ(text->getCharacterHeight(), 15.0f);
    EXPECT_EQ(text->getColor(), osg::Vec4(1, 0, 0, 1));
    EXPECT_EQ(text->getText().size(), 3u);
    label->setEncoding(osgText::String::ENCODING_UTF8);
    label->layout(100.0f, 100.0f);
    EXPECT_EQ(text->getText().size(), 1u);
    // Bad sizes are ignored; null restores the default font.
    label->setFontSize(-3.0f);
    label->setFontSize(std::nanf(""));
    EXPECT_FLOAT_EQ(label->fontSize(), 15.0f);
    label->setFont(nullptr);
    EXPECT_EQ(label->font(), globe::readFont("").get());
}

TEST(ControlCanvas, AnOrthographicCameraOverTheViewport)
{
    osg::ref_ptr<globe::ControlCanvas> canvas = new globe::ControlCanvas;
    EXPECT_EQ(canvas->getReferenceFrame(), osg::Transform::ABSOLUTE_RF);
    EXPECT_EQ(canvas->getRenderOrder(), osg::Camera::POST_RENDER);
    EXPECT_EQ(canvas->getClearMask(), static_cast<GLbitfield>(GL_DEPTH_BUFFER_BIT));
    EXPECT_FALSE(canvas->getAllowEventFocus());
    const osg::StateSet* state = canvas->getStateSet();
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->getMode(GL_LIGHTING) & osg::StateAttribute::ON, 0u);
    EXPECT_EQ(state->getMode(GL_DEPTH_TEST) & osg::StateAttribute::ON, 0u);
    EXPECT_NE(state->getMode(GL_BLEND) & osg::StateAttribute::ON, 0u);

    canvas->setViewport(0, 0, 800, 600);
    canvas->update();
    const osg::Vec3d corner = osg::Vec3d(800.0, 600.0, 0.0) * canvas->getProjectionMatrix();
    EXPECT_NEAR(corner.x(), 1.0, 1e-12);
    EXPECT_NEAR(corner.y(), 1.0, 1e-12);
    const osg::Vec3d origin = osg::Vec3d(0.0, 0.0, 0.0) * canvas->getProjectionMatrix();
    EXPECT_NEAR(origin.x(), -1.0, 1e-12);
    EXPECT_NEAR(origin.y(), -1.0, 1e-12);
}

TEST(ControlCanvas, LaysOutItsVisibleControls)
{
    osg::ref_ptr<globe::ControlCanvas> canvas = new globe::ControlCanvas;
    osg::ref_ptr<LabelControl> shown = new LabelControl("a");
    osg::ref_ptr<LabelControl> hidden = new LabelControl("b");
    shown->setAlign(LabelControl::ALIGN_RIGHT, LabelControl::ALIGN_BOTTOM);
    hidden->setAlign(LabelControl::ALIGN_RIGHT, LabelControl::ALIGN_BOTTOM);
    hidden->setNodeMask(0);
    canvas->addControl(shown.get());
    canvas->addControl(hidden.get());
    canvas->addControl(shown.get()); // already there
    canvas->addControl(nullptr);
    EXPECT_EQ(canvas->getNumControls(), 2u);
    EXPECT_EQ(canvas->getControl(0), shown.get());
    EXPECT_EQ(canvas->getControl(5), nullptr);

    canvas->setViewport(0, 0, 400, 300);
    canvas->update();
    EXPECT_FLOAT_EQ(shown->renderPosition().x(), std::floor(400.0f - shown->renderSize().x()));
    EXPECT_FLOAT_EQ(hidden->renderPosition().x(), 0.0f); // never laid out

    // Another viewport: the layout follows.
    canvas->setViewport(0, 0, 800, 300);
    canvas->update();
    EXPECT_FLOAT_EQ(shown->renderPosition().x(), std::floor(800.0f - shown->renderSize().x()));
    EXPECT_TRUE(canvas->removeControl(hidden.get()));
    EXPECT_FALSE(canvas->removeControl(hidden.get()));
    EXPECT_EQ(canvas->getNumControls(), 1u);
}

TEST(ControlCanvas, FollowsTheViewportOfACamera)
{
    osg::ref_ptr<globe::ControlCanvas> canvas = new globe::ControlCanvas;
    osg::ref_ptr<osg::Camera> main = new osg::Camera;
    canvas->followViewport(main.get()); // no viewport: nothing
    EXPECT_EQ(canvas->getViewport(), nullptr);
    main->setViewport(0, 0, 1024, 768);
    canvas->followViewport(main.get());
    ASSERT_NE(canvas->getViewport(), nullptr);
    EXPECT_EQ(canvas->getViewport()->width(), 1024.0);
    EXPECT_EQ(canvas->getViewport()->height(), 768.0);
    canvas->followViewport(nullptr);
    EXPECT_EQ(canvas->getViewport()->width(), 1024.0);
    // Without a viewport, an update does nothing.
    osg::ref_ptr<globe::ControlCanvas> bare = new globe::ControlCanvas;
    bare->update();
    EXPECT_EQ(bare->getViewport(), nullptr);
}
