// The region labels on the real globe (sample data, a real X11 window):
// hidden until the host shows them, real glyphs where they show, nothing
// drawn for a label behind the Earth.
#include "GlyphInk.h"
#include "SampleMapFixture.h"

#include <globe/PlaceNode>
#include <globe/SpatialReference>
#include <globe/Style>

#include <algorithm>
#include <cstdlib>
#include <vector>

using cxtest::SampleMapFixture;

namespace
{

const char* const kDejaVu = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

globe::PlaceNode* labelNamed(osg::Group& group, const std::string& text)
{
    for (unsigned int i = 0; i < group.getNumChildren(); ++i)
        if (auto* label = dynamic_cast<globe::PlaceNode*>(group.getChild(i)); label && label->getText() == text)
            return label;
    return nullptr;
}

} // namespace

class RegionLabels : public SampleMapFixture
{
protected:
    /** Window position (origin top left, as the frames are read) of a point
      * on the ground. */
    osg::Vec2i onScreen(double lon, double lat) const
    {
        const osg::Vec3d w = toWindow(worldOf(lon, lat, 0.0));
        return osg::Vec2i(static_cast<int>(std::lround(w.x())), windowHeight - 1 - static_cast<int>(std::lround(w.y())));
    }
};

TEST_F(RegionLabels, HiddenAfterInitUntilTheHostShowsThem)
{
    osg::Group* group = viewer->earthLabelGroup.get();
    ASSERT_EQ(group->getNumChildren(), 35u);
    EXPECT_EQ(group->getNodeMask(), 0u);
    lookDownAt(116.489, 40.2718, 0.0, 800000.0);
    osg::ref_ptr<osg::Image> hidden = grabFrame();
    osg::ref_ptr<osg::Image> again = grabFrame();
    EXPECT_EQ(cxtest::differingPixels(*hidden, *again), 0) << "the view is still";

    group->setNodeMask(~0u);
    osg::ref_ptr<osg::Image> shown = grabFrame();
    cxtest::saveScreenshot(*shown, "labels_beijing");
    const osg::Vec2i beijing = onScreen(116.489, 40.2718);
    const cxtest::Ink ink = cxtest::inkBetween(*hidden, *shown, beijing.x() - 24, beijing.y() - 12, 48, 24);
    EXPECT_GT(ink.count(), 40) << "the label 北京 draws around its point";
    // Nothing but labels changes: far from every label the frames agree.
    const cxtest::Ink corner = cxtest::inkBetween(*hidden, *shown, 5, windowHeight - 35, 30, 30, 2);
    EXPECT_EQ(corner.count(), 0);

    group->setNodeMask(0);
    osg::ref_ptr<osg::Image> hiddenAgain = grabFrame();
    EXPECT_EQ(cxtest::differingPixels(*hidden, *hiddenAgain), 0);
}

TEST_F(RegionLabels, BeijingShowsRealGlyphsNotMissingGlyphBoxes)
{
    lookDownAt(116.489, 40.2718, 0.0, 800000.0);
    osg::Group* group = viewer->earthLabelGroup.get();
    globe::PlaceNode* beijing = labelNamed(*group, "北京");
    ASSERT_NE(beijing, nullptr);
    osg::ref_ptr<osg::Image> hidden = grabFrame();
    group->setNodeMask(~0u);
    osg::ref_ptr<osg::Image> cjk = grabFrame();

    // The same text in a font without CJK glyphs.
    globe::Style boxes = beijing->getStyle();
    boxes.getTextSymbol()->font() = kDejaVu;
    beijing->setStyle(boxes);
    osg::ref_ptr<osg::Image> latin = grabFrame();
    cxtest::saveScreenshot(*latin, "labels_beijing_without_cjk_glyphs");

    const osg::Vec2i at = onScreen(116.489, 40.2718);
    const cxtest::Ink real = cxtest::inkBetween(*hidden, *cjk, at.x() - 24, at.y() - 12, 48, 24);
    const cxtest::Ink box = cxtest::inkBetween(*hidden, *latin, at.x() - 24, at.y() - 12, 48, 24);
    ASSERT_GT(real.count(), 40);
    ASSERT_GT(box.count(), 40);
    // Characters 16 pixels high: compared pixel for pixel.
    EXPECT_GT(cxtest::mismatch(real, box, 0), 0.5) << "北京 in the CJK font looks nothing like two boxes";
    // 北 and 京 are two different shapes; the missing-glyph boxes are one.
    EXPECT_GT(cxtest::glyphMismatch(real, 0), 0.3);
    EXPECT_LT(cxtest::glyphMismatch(box, 0), 0.1);
}

TEST_F(RegionLabels, ALabelOnTheFarSideOfTheGlobeIsNotDrawn)
{
    ASSERT_TRUE(settle()); // from space over China
    const globe::SpatialReference* wgs84 = viewer->mapNode->getMapSRS();
    globe::Style style("");
    style.getOrCreateTextSymbol()->size() = 48.0;
    osg::ref_ptr<osg::Group> extra = new osg::Group;
    viewer->mapNode->addChild(extra.get());

    // The antipode of the view's centre lies right behind it.
    osg::ref_ptr<globe::PlaceNode> far = new globe::PlaceNode(globe::GeoPoint(wgs84, -71.0, -32.0), "背面标签", style);
    const osg::Vec3d behind = toWindow(far->getWorldPosition());
    ASSERT_GT(behind.x(), 0.0);
    ASSERT_LT(behind.x(), windowWidth);
    ASSERT_GT(behind.y(), 0.0);
    ASSERT_LT(behind.y(), windowHeight);
    EXPECT_TRUE(far->isHiddenFrom(eye()));

    osg::ref_ptr<osg::Image> without = grabFrame();
    extra->addChild(far.get());
    osg::ref_ptr<osg::Image> with = grabFrame();
    EXPECT_EQ(cxtest::differingPixels(*without, *with), 0);

    // The same label on the near side draws.
    extra->removeChildren(0, extra->getNumChildren());
    extra->addChild(new globe::PlaceNode(globe::GeoPoint(wgs84, 109.0, 32.0), "正面标签", style));
    osg::ref_ptr<osg::Image> near = grabFrame();
    cxtest::saveScreenshot(*near, "labels_near_side");
    EXPECT_GT(cxtest::differingPixels(*without, *near), 200);
}
