// Labels at geographic points: placement, style, the horizon, picking.
#include <globe/Fonts>
#include <globe/GeoPoint>
#include <globe/MapNode>
#include <globe/PlaceNode>
#include <globe/SpatialReference>
#include <globe/Style>

#include <gtest/gtest.h>
#include <osg/CoordinateSystemNode>
#include <osgUtil/IntersectionVisitor>
#include <osgUtil/LineSegmentIntersector>

#include <cmath>

namespace
{

const globe::SpatialReference* wgs84() { return globe::SpatialReference::create("wgs84"); }

osg::Vec3d worldOf(double lon, double lat, double height)
{
    osg::ref_ptr<osg::EllipsoidModel> ellipsoid = new osg::EllipsoidModel;
    osg::Vec3d p;
    ellipsoid->convertLatLongHeightToXYZ(osg::DegreesToRadians(lat), osg::DegreesToRadians(lon), height, p.x(), p.y(),
                                         p.z());
    return p;
}

globe::Style labelStyle(double size, const std::string& font, const osg::Vec4f& fill)
{
    globe::Style style("");
    globe::TextSymbol* symbol = style.getOrCreateTextSymbol();
    symbol->size() = size;
    symbol->font() = font;
    symbol->encoding() = globe::TextSymbol::ENCODING_UTF8;
    symbol->fill() = fill;
    return style;
}

} // namespace

TEST(PlaceNode, StandsAtItsPointFacingTheScreenInPixels)
{
    const globe::GeoPoint beijing(wgs84(), 116.489, 40.2718, 0.0);
    osg::ref_ptr<globe::PlaceNode> node =
        new globe::PlaceNode(beijing, "北京", labelStyle(16.0, "simhei.ttf", osg::Vec4f(1, 1, 1, 1)));
    ASSERT_EQ(node->getNumChildren(), 1u);
    EXPECT_EQ(node->getChild(0), node->getTransform());
    EXPECT_NE(node->getTransform()->getNodeMask(), 0u);
    const osg::Vec3d expected = worldOf(116.489, 40.2718, 0.0);
    EXPECT_NEAR((node->getTransform()->getMatrix().getTrans() - expected).length(), 0.0, 1e-3);
    EXPECT_NEAR((node->getWorldPosition() - expected).length(), 0.0, 1e-3);

    const osgText::Text* text = node->getTextDrawable();
    ASSERT_NE(text, nullptr);
    EXPECT_TRUE(text->getAutoRotateToScreen());
    EXPECT_EQ(text->getCharacterSizeMode(), osgText::Text::SCREEN_COORDS);
    EXPECT_FLOAT_EQ(text->getCharacterHeight(), 16.0f);
    EXPECT_EQ(text->getAlignment(), osgText::Text::CENTER_CENTER);
    // UTF-8 text: two characters, 北 and 京.
    ASSERT_EQ(text->getText().size(), 2u);
    EXPECT_EQ(text->getText()[0], 0x5317u);
    EXPECT_EQ(text->getText()[1], 0x4EACu);
    EXPECT_EQ(node->getText(), "北京");
    // "simhei.ttf" resolves as the fonts module says, to the shared font.
    EXPECT_EQ(text->getFont(), globe::readFont("simhei.ttf").get());
    EXPECT_EQ(text->getColor(), osg::Vec4(1, 1, 1, 1));
}

TEST(PlaceNode, TheStyleGivesSizeFontEncodingAndFill)
{
    globe::Style style = labelStyle(24.0, "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
                                    osg::Vec4f(1.0f, 0.5f, 0.0f, 0.8f));
    osg::ref_ptr<globe::PlaceNode> node = new globe::PlaceNode(globe::GeoPoint(wgs84(), 0.0, 0.0), "ABC", style);
    const osgText::Text* text = node->getTextDrawable();
    EXPECT_FLOAT_EQ(text->getCharacterHeight(), 24.0f);
    EXPECT_EQ(text->getColor(), osg::Vec4(1.0f, 0.5f, 0.0f, 0.8f));
    EXPECT_EQ(text->getFont(), globe::readFont("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf").get());
    EXPECT_NE(text->getFont(), globe::readFont("simhei.ttf").get());

    // The node keeps a copy: changing the caller's style changes nothing.
    style.getTextSymbol()->size() = 40.0;
    EXPECT_FLOAT_EQ(text->getCharacterHeight(), 24.0f);
    node->setStyle(style);
    EXPECT_FLOAT_EQ(node->getTextDrawable()->getCharacterHeight(), 40.0f);

    // ASCII text is taken byte by byte.
    globe::Style ascii = labelStyle(16.0, "", osg::Vec4f(1, 1, 1, 1));
    ascii.getTextSymbol()->encoding() = globe::TextSymbol::ENCODING_ASCII;
    node->setStyle(ascii);
    node->setText("\xe5\x8c\x97");
    EXPECT_EQ(node->getTextDrawable()->getText().size(), 3u);
}

TEST(PlaceNode, WithoutATextSymbolItUsesTheDefaults)
{
    osg::ref_ptr<globe::PlaceNode> node = new globe::PlaceNode(globe::GeoPoint(wgs84(), 10.0, 20.0), "x", globe::Style());
    EXPECT_FLOAT_EQ(node->getTextDrawable()->getCharacterHeight(), 16.0f);
    EXPECT_EQ(node->getTextDrawable()->getFont(), globe::readFont("").get());
}

TEST(PlaceNode, AnInvalidPointDrawsNothing)
{
    osg::ref_ptr<globe::PlaceNode> node = new globe::PlaceNode(globe::GeoPoint(), "nowhere");
    EXPECT_EQ(node->getTransform()->getNodeMask(), 0u);
    EXPECT_FALSE(node->setPosition(globe::GeoPoint(wgs84(), std::nan(""), 0.0)));
    EXPECT_EQ(node->getTransform()->getNodeMask(), 0u);
    EXPECT_FALSE(node->isHiddenFrom(osg::Vec3d(1e7, 0, 0)));
    // A good point later places it.
    EXPECT_TRUE(node->setPosition(globe::GeoPoint(wgs84(), 30.0, 10.0, 5.0)));
    EXPECT_NE(node->getTransform()->getNodeMask(), 0u);
    EXPECT_NEAR((node->getWorldPosition() - worldOf(30.0, 10.0, 5.0)).length(), 0.0, 1e-3);
    // A failed set keeps the last good position.
    EXPECT_FALSE(node->setPosition(globe::GeoPoint()));
    EXPECT_NEAR(node->getPosition().x(), 30.0, 1e-12);
}

TEST(PlaceNode, APointInAnotherReferenceIsPlacedInWorldCoordinates)
{
    // Beijing in UTM zone 50 north.
    const globe::SpatialReference* utm = wgs84()->createUTMFromLonLat(116.4, 39.9);
    ASSERT_NE(utm, nullptr);
    osg::Vec3d projected;
    ASSERT_TRUE(wgs84()->transform(osg::Vec3d(116.4, 39.9, 50.0), utm, projected));
    osg::ref_ptr<globe::PlaceNode> node = new globe::PlaceNode(globe::GeoPoint(utm, projected), "x");
    EXPECT_NEAR((node->getWorldPosition() - worldOf(116.4, 39.9, 50.0)).length(), 0.0, 1e-3);
}

TEST(PlaceNode, FarSideOfTheEarthIsHidden)
{
    osg::ref_ptr<globe::PlaceNode> beijing = new globe::PlaceNode(globe::GeoPoint(wgs84(), 116.4, 39.9), "北京");
    osg::ref_ptr<globe::PlaceNode> antipode = new globe::PlaceNode(globe::GeoPoint(wgs84(), -63.6, -39.9), "对跖");
    const osg::Vec3d overChina = worldOf(109.0, 32.0, 20928182.0);
    EXPECT_FALSE(beijing->isHiddenFrom(overChina));
    EXPECT_TRUE(antipode->isHiddenFrom(overChina));
    const osg::Vec3d overArgentina = worldOf(-63.6, -39.9, 20000000.0);
    EXPECT_TRUE(beijing->isHiddenFrom(overArgentina));
    EXPECT_FALSE(antipode->isHiddenFrom(overArgentina));
    // An eye right above the label sees it; an eye inside the Earth hides nothing.
    EXPECT_FALSE(beijing->isHiddenFrom(worldOf(116.4, 39.9, 10.0)));
    EXPECT_FALSE(antipode->isHiddenFrom(osg::Vec3d(0.0, 0.0, 0.0)));
}

TEST(PlaceNode, TheHorizonLiesWhereTheEllipsoidCurvesAway)
{
    // Along the equator the ellipsoid's section is a circle of the
    // equatorial radius: from a height h the horizon is acos(a / (a + h))
    // away.
    const double a = osg::WGS_84_RADIUS_EQUATOR;
    for (const double h : {1000.0, 100000.0, 3000000.0})
    {
        const double horizon = osg::RadiansToDegrees(std::acos(a / (a + h)));
        const osg::Vec3d eye = worldOf(0.0, 0.0, h);
        osg::ref_ptr<globe::PlaceNode> before =
            new globe::PlaceNode(globe::GeoPoint(wgs84(), horizon * 0.97, 0.0), "before");
        osg::ref_ptr<globe::PlaceNode> beyond =
            new globe::PlaceNode(globe::GeoPoint(wgs84(), horizon * 1.03, 0.0), "beyond");
        EXPECT_FALSE(before->isHiddenFrom(eye)) << "height " << h;
        EXPECT_TRUE(beyond->isHiddenFrom(eye)) << "height " << h;
        // A label up a mountain is seen from farther.
        osg::ref_ptr<globe::PlaceNode> high =
            new globe::PlaceNode(globe::GeoPoint(wgs84(), horizon * 1.03, 0.0, 0.2 * h + 2000.0), "high");
        EXPECT_FALSE(high->isHiddenFrom(eye)) << "height " << h;
    }
}

TEST(PlaceNode, PickersPassThroughLabels)
{
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    osg::ref_ptr<globe::PlaceNode> node = new globe::PlaceNode(globe::GeoPoint(wgs84(), 0.0, 0.0), "XXXXXXXX",
                                                               labelStyle(64.0, "", osg::Vec4f(1, 1, 1, 1)));
    scene->addChild(node.get());
    const osg::Vec3d at = worldOf(0.0, 0.0, 0.0);
    osg::ref_ptr<osgUtil::LineSegmentIntersector> picker =
        new osgUtil::LineSegmentIntersector(at * 2.0, osg::Vec3d(0.0, 0.0, 0.0));
    osgUtil::IntersectionVisitor visitor(picker.get());
    scene->accept(visitor);
    EXPECT_FALSE(picker->containsIntersections());
}

TEST(PlaceNode, ACopyHasItsOwnTextAndTransform)
{
    osg::ref_ptr<globe::PlaceNode> node = new globe::PlaceNode(globe::GeoPoint(wgs84(), 116.4, 39.9), "北京",
                                                               labelStyle(20.0, "", osg::Vec4f(1, 0, 0, 1)));
    node->setName("beijing");
    osg::ref_ptr<globe::PlaceNode> copy = static_cast<globe::PlaceNode*>(node->clone(osg::CopyOp::SHALLOW_COPY));
    EXPECT_EQ(copy->getName(), "beijing");
    EXPECT_EQ(copy->getText(), "北京");
    EXPECT_NE(copy->getTransform(), node->getTransform());
    EXPECT_NE(copy->getTextDrawable(), node->getTextDrawable());
    EXPECT_EQ(copy->getNumChildren(), 1u);
    EXPECT_NEAR((copy->getWorldPosition() - node->getWorldPosition()).length(), 0.0, 1e-9);
    EXPECT_FLOAT_EQ(copy->getTextDrawable()->getCharacterHeight(), 20.0f);
    copy->setText("天津");
    EXPECT_EQ(node->getText(), "北京");
}
