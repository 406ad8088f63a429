// Styles and their symbols, model placement, and the top-most node search.
#include "EarthPoints.h"

#include <globe/FindTopMostNodeOfTypeVisitor>
#include <globe/GeoPoint>
#include <globe/MapNode>
#include <globe/ModelNode>
#include <globe/SpatialReference>
#include <globe/Style>

#include <gtest/gtest.h>
#include <osg/Geode>
#include <osg/MatrixTransform>
#include <osg/PagedLOD>

#include <cmath>
#include <limits>

namespace
{

// Unit vectors east, north and up at a point.
void enu(const osg::EllipsoidModel& e, double lonDeg, double latDeg, osg::Vec3d& east, osg::Vec3d& north,
         osg::Vec3d& up)
{
    const double lon = osg::DegreesToRadians(lonDeg);
    const double lat = osg::DegreesToRadians(latDeg);
    east.set(-std::sin(lon), std::cos(lon), 0.0);
    north.set(-std::sin(lat) * std::cos(lon), -std::sin(lat) * std::sin(lon), std::cos(lat));
    up.set(std::cos(lat) * std::cos(lon), std::cos(lat) * std::sin(lon), std::sin(lat));
}

void expectNear(const osg::Vec3d& a, const osg::Vec3d& b, double tolerance, const char* what)
{
    EXPECT_NEAR((a - b).length(), 0.0, tolerance) << what << ": (" << a.x() << ", " << a.y() << ", " << a.z()
                                                  << ") vs (" << b.x() << ", " << b.y() << ", " << b.z() << ")";
}

// Where a model-space direction points in the world under `m`.
osg::Vec3d turn(const osg::Matrixd& m, const osg::Vec3d& v)
{
    return osg::Vec3d(v * m) - osg::Vec3d(osg::Vec3d() * m);
}

} // namespace

// ---------------------------------------------------------------- Style

TEST(Style, StartsEmptyWithItsName)
{
    globe::Style unnamed;
    EXPECT_TRUE(unnamed.getName().empty());
    EXPECT_TRUE(unnamed.empty());
    EXPECT_EQ(unnamed.getModelSymbol(), nullptr);
    EXPECT_EQ(unnamed.get<globe::TextSymbol>(), nullptr);
    globe::Style named("roads");
    EXPECT_EQ(named.getName(), "roads");
}

TEST(Style, SymbolsAreMadeOnceWithDefaults)
{
    globe::Style style;
    globe::ModelSymbol* model = style.getOrCreate<globe::ModelSymbol>();
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(style.getOrCreateModelSymbol(), model);
    EXPECT_EQ(style.get<globe::ModelSymbol>(), model);
    EXPECT_EQ(model->getModel(), nullptr);
    EXPECT_EQ(model->heading(), 0.0);
    EXPECT_EQ(model->pitch(), 0.0);
    EXPECT_EQ(model->roll(), 0.0);
    EXPECT_EQ(model->getScale(), osg::Vec3d(1, 1, 1));
    EXPECT_FALSE(style.empty());

    globe::TextSymbol* text = style.getOrCreate<globe::TextSymbol>();
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(style.getOrCreateTextSymbol(), text);
    EXPECT_EQ(text->size(), 16.0);
    EXPECT_TRUE(text->font().empty());
    EXPECT_EQ(text->encoding(), globe::TextSymbol::ENCODING_UTF8);
    EXPECT_EQ(text->fill(), osg::Vec4f(1, 1, 1, 1));
    EXPECT_EQ(static_cast<int>(globe::TextSymbol::ENCODING_UTF8), 1);
}

TEST(Style, CopyingCopiesTheSymbols)
{
    osg::ref_ptr<osg::PagedLOD> lod = new osg::PagedLOD;
    globe::Style original;
    globe::ModelSymbol* model = original.getOrCreateModelSymbol();
    model->setModel(lod.get());
    model->heading() = 10.0;
    model->pitch() = 20.0;
    model->roll() = 30.0;
    model->scaleX() = 2.0;
    model->scaleY() = 3.0;
    model->scaleZ() = 4.0;
    globe::TextSymbol* text = original.getOrCreateTextSymbol();
    text->size() = 16.0;
    text->font() = "simhei.ttf";
    text->encoding() = globe::TextSymbol::ENCODING_UTF8;
    text->fill() = osg::Vec4f(1, 1, 1, 1);

    // The copy that the model object makes before it edits a style.
    globe::Style copy(original, osg::CopyOp(osg::CopyOp::DEEP_COPY_ALL));
    ASSERT_NE(copy.getModelSymbol(), nullptr);
    ASSERT_NE(copy.getTextSymbol(), nullptr);
    EXPECT_NE(copy.getModelSymbol(), original.getModelSymbol());
    EXPECT_NE(copy.getTextSymbol(), original.getTextSymbol());
    EXPECT_EQ(copy.getModelSymbol()->getModel(), lod.get()); // the same model node
    EXPECT_EQ(copy.getModelSymbol()->heading(), 10.0);
    EXPECT_EQ(copy.getModelSymbol()->pitch(), 20.0);
    EXPECT_EQ(copy.getModelSymbol()->roll(), 30.0);
    EXPECT_EQ(copy.getModelSymbol()->getScale(), osg::Vec3d(2, 3, 4));
    EXPECT_EQ(copy.getTextSymbol()->font(), "simhei.ttf");
    EXPECT_EQ(copy.getTextSymbol()->fill(), osg::Vec4f(1, 1, 1, 1));

    // Editing the copy leaves the original alone.
    copy.getModelSymbol()->heading() = 90.0;
    copy.getModelSymbol()->setScale(5.0);
    copy.getTextSymbol()->size() = 30.0;
    EXPECT_EQ(original.getModelSymbol()->heading(), 10.0);
    EXPECT_EQ(original.getModelSymbol()->getScale(), osg::Vec3d(2, 3, 4));
    EXPECT_EQ(original.getTextSymbol()->size(), 16.0);

    // Plain copy and assignment copy as well.
    globe::Style plain(original);
    EXPECT_NE(plain.getModelSymbol(), original.getModelSymbol());
    EXPECT_EQ(plain.getModelSymbol()->heading(), 10.0);
    globe::Style assigned("other");
    assigned = copy;
    EXPECT_NE(assigned.getModelSymbol(), copy.getModelSymbol());
    EXPECT_EQ(assigned.getModelSymbol()->heading(), 90.0);
    EXPECT_EQ(assigned.getTextSymbol()->size(), 30.0);
    EXPECT_TRUE(assigned.getName().empty());
    assigned = assigned; // self-assignment keeps the symbols
    ASSERT_NE(assigned.getModelSymbol(), nullptr);
    EXPECT_EQ(assigned.getModelSymbol()->heading(), 90.0);

    // A symbol's own copy takes its values and a reference count of its
    // own; assigning one leaves the count as it was.
    osg::ref_ptr<globe::ModelSymbol> modelCopy = new globe::ModelSymbol(*original.getModelSymbol());
    EXPECT_EQ(modelCopy->referenceCount(), 1);
    EXPECT_EQ(modelCopy->getScale(), osg::Vec3d(2, 3, 4));
    const int held = copy.getTextSymbol()->referenceCount();
    *copy.getTextSymbol() = *original.getTextSymbol();
    EXPECT_EQ(copy.getTextSymbol()->referenceCount(), held);
    EXPECT_EQ(copy.getTextSymbol()->size(), 16.0);

    // A copy of a style without symbols has none.
    globe::Style empty;
    globe::Style emptyCopy(empty);
    EXPECT_TRUE(emptyCopy.empty());
}

TEST(Style, SettersTakeTheSymbolItself)
{
    globe::Style style;
    osg::ref_ptr<globe::ModelSymbol> symbol = new globe::ModelSymbol;
    style.setModelSymbol(symbol.get());
    EXPECT_EQ(style.getModelSymbol(), symbol.get());
    style.setModelSymbol(nullptr);
    EXPECT_TRUE(style.empty());
}

// ---------------------------------------------------------------- ModelNode

TEST(ModelNode, FirstChildIsThePlacingTransformOverTheModel)
{
    osg::ref_ptr<globe::MapNode> map = new globe::MapNode;
    osg::ref_ptr<osg::Geode> model = new osg::Geode;
    globe::Style style;
    style.getOrCreateModelSymbol()->setModel(model.get());
    osg::ref_ptr<globe::ModelNode> node = new globe::ModelNode(map.get(), style);
    ASSERT_GE(node->getNumChildren(), 1u);
    auto* transform = dynamic_cast<osg::MatrixTransform*>(node->getChild(0));
    ASSERT_NE(transform, nullptr);
    EXPECT_EQ(transform, node->getTransform());
    ASSERT_EQ(transform->getNumChildren(), 1u);
    EXPECT_EQ(transform->getChild(0), model.get());
    EXPECT_EQ(node->getMapNode(), map.get());
    // The node keeps a copy of the style.
    EXPECT_NE(node->getStyle().getModelSymbol(), style.getModelSymbol());
    EXPECT_EQ(node->getStyle().getModelSymbol()->getModel(), model.get());
}

TEST(ModelNode, PlacedAtTheRightEarthCentredPoint)
{
    osg::ref_ptr<globe::MapNode> map = new globe::MapNode;
    globe::Style style;
    style.getOrCreateModelSymbol()->setModel(new osg::Geode);
    osg::ref_ptr<globe::ModelNode> node = new globe::ModelNode(map.get(), style);
    const osg::EllipsoidModel& e = *map->getEllipsoidModel();
    for (const osg::Vec3d& p : {osg::Vec3d(116.39, 39.91, 50.0), osg::Vec3d(-70.0, -33.4, 2500.0),
                                osg::Vec3d(0.0, 0.0, 0.0), osg::Vec3d(179.9, 89.0, -20.0)})
    {
        ASSERT_TRUE(node->setPosition(p));
        EXPECT_EQ(node->getPosition(), p);
        const osg::Matrixd& m = node->getTransform()->getMatrix();
        // The model's origin lands on the point.
        expectNear(osg::Vec3d() * m, cxtest::worldOf(e, p.x(), p.y(), p.z()), 1e-6, "origin");
        // Its axes are east, north and up there.
        osg::Vec3d east, north, up;
        enu(e, p.x(), p.y(), east, north, up);
        expectNear(turn(m, osg::Vec3d(1, 0, 0)), east, 1e-9, "x is east");
        expectNear(turn(m, osg::Vec3d(0, 1, 0)), north, 1e-9, "y is north");
        expectNear(turn(m, osg::Vec3d(0, 0, 1)), up, 1e-9, "z is up");
        // A point 10 m up the model's z axis is 10 m higher.
        double lat = 0, lon = 0, h = 0;
        const osg::Vec3d top = osg::Vec3d(0, 0, 10) * m;
        e.convertXYZToLatLongHeight(top.x(), top.y(), top.z(), lat, lon, h);
        EXPECT_NEAR(h, p.z() + 10.0, 1e-4);
        EXPECT_NEAR(osg::RadiansToDegrees(lat), p.y(), 1e-8);
    }
}

TEST(ModelNode, PositionFromAGeoPoint)
{
    osg::ref_ptr<globe::MapNode> map = new globe::MapNode;
    osg::ref_ptr<globe::ModelNode> node = new globe::ModelNode(map.get(), globe::Style());
    // In the map's own spatial reference.
    const globe::GeoPoint geographic(map->getMapSRS(), 116.39, 39.91, 45.0);
    ASSERT_TRUE(node->setPosition(geographic));
    EXPECT_NEAR(node->getPosition().x(), 116.39, 1e-9);
    EXPECT_NEAR(node->getPosition().y(), 39.91, 1e-9);
    EXPECT_NEAR(node->getPosition().z(), 45.0, 1e-6);
    expectNear(osg::Vec3d() * node->getTransform()->getMatrix(),
               cxtest::worldOf(*map->getEllipsoidModel(), 116.39, 39.91, 45.0), 1e-3, "geographic point");

    // A UTM point (zone 50N) lands where PROJ puts it.
    const globe::SpatialReference* utm = globe::SpatialReference::create("epsg:32650");
    ASSERT_NE(utm, nullptr);
    globe::GeoPoint projected;
    ASSERT_TRUE(geographic.transform(utm, projected));
    ASSERT_TRUE(node->setPosition(globe::GeoPoint(utm, projected.x(), projected.y(), 45.0)));
    EXPECT_NEAR(node->getPosition().x(), 116.39, 1e-7);
    EXPECT_NEAR(node->getPosition().y(), 39.91, 1e-7);

    // An invalid point changes nothing.
    EXPECT_FALSE(node->setPosition(globe::GeoPoint()));
    EXPECT_NEAR(node->getPosition().x(), 116.39, 1e-7);
}

TEST(ModelNode, HeadingPitchRollAndScale)
{
    osg::ref_ptr<globe::MapNode> map = new globe::MapNode;
    const osg::EllipsoidModel& e = *map->getEllipsoidModel();
    osg::Vec3d east, north, up;
    enu(e, 116.0, 40.0, east, north, up);
    globe::Style style;
    globe::ModelSymbol* symbol = style.getOrCreateModelSymbol();

    // Heading 90 turns the model's north (its +y) to east, and its east to south.
    symbol->heading() = 90.0;
    osg::ref_ptr<globe::ModelNode> node = new globe::ModelNode(map.get(), style);
    ASSERT_TRUE(node->setPosition(116.0, 40.0, 0.0));
    osg::Matrixd m = node->getTransform()->getMatrix();
    expectNear(turn(m, osg::Vec3d(0, 1, 0)), east, 1e-9, "heading 90: y to east");
    expectNear(turn(m, osg::Vec3d(1, 0, 0)), -north, 1e-9, "heading 90: x to south");
    expectNear(turn(m, osg::Vec3d(0, 0, 1)), up, 1e-9, "heading 90: z stays up");

    // Pitch 90 raises the nose straight up.
    symbol->heading() = 0.0;
    symbol->pitch() = 90.0;
    node->setStyle(style);
    m = node->getTransform()->getMatrix();
    expectNear(turn(m, osg::Vec3d(0, 1, 0)), up, 1e-9, "pitch 90: nose up");

    // Roll 90 puts the right side (+x) down.
    symbol->pitch() = 0.0;
    symbol->roll() = 90.0;
    node->setStyle(style);
    m = node->getTransform()->getMatrix();
    expectNear(turn(m, osg::Vec3d(1, 0, 0)), -up, 1e-9, "roll 90: right side down");
    expectNear(turn(m, osg::Vec3d(0, 1, 0)), north, 1e-9, "roll 90: nose stays north");

    // Heading, then pitch, then roll, applied to the model in the order roll,
    // pitch, heading: heading 90 and pitch 45 point the nose up to the east.
    symbol->heading() = 90.0;
    symbol->pitch() = 45.0;
    symbol->roll() = 0.0;
    node->setStyle(style);
    m = node->getTransform()->getMatrix();
    expectNear(turn(m, osg::Vec3d(0, 1, 0)), (east + up) / std::sqrt(2.0), 1e-9, "heading 90 pitch 45");

    // Scale acts along the model's own axes, before the turn.
    symbol->pitch() = 0.0;
    symbol->scaleX() = 2.0;
    symbol->scaleY() = 3.0;
    symbol->scaleZ() = 4.0;
    node->setStyle(style);
    m = node->getTransform()->getMatrix();
    expectNear(turn(m, osg::Vec3d(0, 1, 0)), east * 3.0, 1e-9, "scaled nose");
    expectNear(turn(m, osg::Vec3d(1, 0, 0)), -north * 2.0, 1e-9, "scaled side");
    expectNear(turn(m, osg::Vec3d(0, 0, 1)), up * 4.0, 1e-9, "scaled height");
    expectNear(osg::Vec3d() * m, cxtest::worldOf(e, 116.0, 40.0, 0.0), 1e-6, "origin under scale");
}

TEST(ModelNode, SettersUpdateTheTransformAndTheModel)
{
    osg::ref_ptr<globe::MapNode> map = new globe::MapNode;
    osg::ref_ptr<osg::Geode> first = new osg::Geode;
    osg::ref_ptr<osg::Geode> second = new osg::Geode;
    globe::Style style;
    style.getOrCreateModelSymbol()->setModel(first.get());
    osg::ref_ptr<globe::ModelNode> node = new globe::ModelNode(map.get(), style);
    const osg::Matrixd atOrigin = node->getTransform()->getMatrix();
    node->setPosition(10.0, 20.0, 30.0);
    EXPECT_NE(node->getTransform()->getMatrix(), atOrigin);

    style.getModelSymbol()->setModel(second.get());
    node->setStyle(style);
    ASSERT_EQ(node->getTransform()->getNumChildren(), 1u);
    EXPECT_EQ(node->getTransform()->getChild(0), second.get());

    // A style without a model symbol leaves the transform empty but placed.
    node->setStyle(globe::Style());
    EXPECT_EQ(node->getTransform()->getNumChildren(), 0u);
    expectNear(osg::Vec3d() * node->getTransform()->getMatrix(), cxtest::worldOf(*map->getEllipsoidModel(), 10, 20, 30),
               1e-6, "still placed");

    // Another map node's ellipsoid moves the model.
    osg::ref_ptr<globe::MapNode> round = new globe::MapNode;
    round->setEllipsoidModel(new osg::EllipsoidModel(1000.0, 1000.0));
    node->setMapNode(round.get());
    EXPECT_NEAR((osg::Vec3d() * node->getTransform()->getMatrix()).length(), 1030.0, 1e-6);
}

TEST(ModelNode, BadInputChangesNothing)
{
    osg::ref_ptr<globe::ModelNode> node = new globe::ModelNode; // no map: WGS84
    ASSERT_TRUE(node->setPosition(1.0, 2.0, 3.0));
    const osg::Matrixd before = node->getTransform()->getMatrix();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(node->setPosition(nan, 2.0, 3.0));
    EXPECT_FALSE(node->setPosition(1.0, 91.0, 3.0));
    EXPECT_FALSE(node->setPosition(1.0, -90.5, 3.0));
    EXPECT_FALSE(node->setPosition(1.0, 2.0, std::numeric_limits<double>::infinity()));
    EXPECT_EQ(node->getPosition(), osg::Vec3d(1.0, 2.0, 3.0));
    EXPECT_EQ(node->getTransform()->getMatrix(), before);
    EXPECT_EQ(node->getMapNode(), nullptr);

    // Non-finite attitude and scale read as 0 and 1.
    globe::Style style;
    style.getOrCreateModelSymbol()->heading() = nan;
    style.getOrCreateModelSymbol()->scaleY() = nan;
    node->setStyle(style);
    EXPECT_EQ(node->getTransform()->getMatrix(), before);

    // The map node going away falls back to WGS84.
    osg::ref_ptr<globe::MapNode> map = new globe::MapNode;
    map->setEllipsoidModel(new osg::EllipsoidModel(1000.0, 1000.0));
    node->setMapNode(map.get());
    map = nullptr;
    EXPECT_EQ(node->getMapNode(), nullptr);
    node->setPosition(1.0, 2.0, 3.0);
    EXPECT_EQ(node->getTransform()->getMatrix(), before);
}

TEST(ModelNode, CopyHasItsOwnTransform)
{
    osg::ref_ptr<osg::Geode> model = new osg::Geode;
    globe::Style style;
    style.getOrCreateModelSymbol()->setModel(model.get());
    osg::ref_ptr<globe::MapNode> map = new globe::MapNode;
    osg::ref_ptr<globe::ModelNode> node = new globe::ModelNode(map.get(), style);
    node->setPosition(10.0, 10.0, 0.0);
    osg::ref_ptr<globe::ModelNode> copy = dynamic_cast<globe::ModelNode*>(node->clone(osg::CopyOp::SHALLOW_COPY));
    ASSERT_TRUE(copy.valid());
    EXPECT_NE(copy->getTransform(), node->getTransform());
    EXPECT_EQ(copy->getChild(0), copy->getTransform());
    EXPECT_EQ(copy->getTransform()->getChild(0), model.get());
    EXPECT_EQ(copy->getTransform()->getMatrix(), node->getTransform()->getMatrix());
    copy->setPosition(20.0, 20.0, 0.0);
    EXPECT_NE(copy->getTransform()->getMatrix(), node->getTransform()->getMatrix());
    EXPECT_EQ(node->getPosition(), osg::Vec3d(10.0, 10.0, 0.0));
}

// ---------------------------------------------------------------- top-most node search

TEST(FindTopMostNodeOfTypeVisitor, FindsTheShallowestMatch)
{
    // root -> a -> deep (csn) ; root -> b (csn) -> inner (csn)
    osg::ref_ptr<osg::Group> root = new osg::Group;
    osg::ref_ptr<osg::Group> a = new osg::Group;
    osg::ref_ptr<osg::CoordinateSystemNode> deep = new osg::CoordinateSystemNode;
    osg::ref_ptr<osg::CoordinateSystemNode> b = new osg::CoordinateSystemNode;
    osg::ref_ptr<osg::CoordinateSystemNode> inner = new osg::CoordinateSystemNode;
    root->addChild(a.get());
    a->addChild(deep.get());
    root->addChild(b.get());
    b->addChild(inner.get());

    globe::FindTopMostNodeOfTypeVisitor<osg::CoordinateSystemNode> visitor;
    root->accept(visitor);
    EXPECT_EQ(visitor._foundNode, b.get());
    EXPECT_EQ(globe::findTopMostNodeOfType<osg::CoordinateSystemNode>(root.get()), b.get());
    EXPECT_EQ(globe::findTopMostNodeOfType<osg::CoordinateSystemNode>(a.get()), deep.get());
    // The start node counts.
    EXPECT_EQ(globe::findTopMostNodeOfType<osg::CoordinateSystemNode>(b.get()), b.get());
    EXPECT_EQ(globe::findTopMostNodeOfType<osg::CoordinateSystemNode>(nullptr), nullptr);
    EXPECT_EQ(globe::findTopMostNodeOfType<osg::MatrixTransform>(root.get()), nullptr);

    // The traversal mask hides b: the deeper match is found.
    b->setNodeMask(0x2);
    EXPECT_EQ(globe::findTopMostNodeOfType<osg::CoordinateSystemNode>(root.get(), 0x1), deep.get());
    b->setNodeMask(~0u);

    // reset() clears the result for another search.
    visitor.reset();
    EXPECT_EQ(visitor._foundNode, nullptr);
    a->accept(visitor);
    EXPECT_EQ(visitor._foundNode, deep.get());
}

TEST(FindTopMostNodeOfTypeVisitor, SearchesUpwardsAndThenDownwards)
{
    osg::ref_ptr<globe::MapNode> map = new globe::MapNode;
    osg::ref_ptr<osg::Group> middle = new osg::Group;
    osg::ref_ptr<osg::Geode> leaf = new osg::Geode;
    map->addChild(middle.get());
    middle->addChild(leaf.get());

    globe::FindTopMostNodeOfTypeVisitor<osg::CoordinateSystemNode> up(osg::NodeVisitor::TRAVERSE_PARENTS, 1);
    leaf->accept(up);
    EXPECT_EQ(up._foundNode, map.get());
    EXPECT_EQ(globe::findRelativeNodeOfType<osg::CoordinateSystemNode>(leaf.get(), 1), map.get());

    // From above the map node, the upward search finds nothing and the
    // downward one finds it.
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    scene->addChild(map.get());
    globe::FindTopMostNodeOfTypeVisitor<osg::CoordinateSystemNode> fromScene(osg::NodeVisitor::TRAVERSE_PARENTS, 1);
    scene->accept(fromScene);
    EXPECT_EQ(fromScene._foundNode, nullptr);
    EXPECT_EQ(globe::findRelativeNodeOfType<globe::MapNode>(scene.get(), 1), map.get());
    EXPECT_EQ(globe::findRelativeNodeOfType<osg::PagedLOD>(scene.get(), 1), nullptr);
    EXPECT_EQ(globe::findRelativeNodeOfType<osg::PagedLOD>(nullptr), nullptr);
}
