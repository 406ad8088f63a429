// The vertex re-projection of one geode: the anchor rules, the drawables it
// skips, the bounds it dirties, and the precision it keeps.
#include "ObliqueTestSupport.h"

#include <oblique/changevertex>

#include <osg/Drawable>

using cxtest::ObliqueFrame;
using cxtest::triangles;

namespace
{

// A drawable that is no osg::Geometry.
class PlainDrawable : public osg::Drawable
{
public:
    osg::BoundingSphere computeBound() const override { return osg::BoundingSphere(osg::Vec3(1, 2, 3), 4.0f); }
    void drawImplementation(osg::RenderInfo&) const override {}
};

// Tells whether the geode's bound waits to be recomputed.
class ProbeGeode : public osg::Geode
{
public:
    bool boundIsDirty() const { return !_boundingSphereComputed; }
};

const osg::Vec3Array& vertexArray(const osg::Geometry& geometry)
{
    return *static_cast<const osg::Vec3Array*>(geometry.getVertexArray());
}

// The identity re-projection: geocentric to the geocentric system of WGS84.
changevertex identityVisitor()
{
    return changevertex(osg::Vec3d(), globe::SpatialReference::create("geocentric"),
                        globe::SpatialReference::create("wgs84"));
}

} // namespace

TEST(changevertex, StartsWithItsArgumentsAndNoAnchor)
{
    ObliqueFrame frame;
    changevertex visitor(frame.offset, frame.srs, frame.mapsrs);
    EXPECT_EQ(visitor.offset, frame.offset);
    EXPECT_EQ(visitor.srs, frame.srs);
    EXPECT_EQ(visitor.mapsrs, frame.mapsrs);
    EXPECT_EQ(visitor.center, osg::Vec3d(0, 0, 0));
    EXPECT_EQ(visitor.getTraversalMode(), osg::NodeVisitor::TRAVERSE_ALL_CHILDREN);
}

TEST(changevertex, TheFirstVertexOfTheGeodeBecomesTheOriginAndTheAnchor)
{
    ObliqueFrame frame;
    osg::ref_ptr<osg::Geode> geode = cxtest::triangleGeode(12.5f, -40.25f, 3.0f);
    const std::vector<osg::Vec3> local = cxtest::verticesOf(geode.get());
    changevertex visitor(frame.offset, frame.srs, frame.mapsrs);
    geode->accept(visitor);

    const std::vector<osg::Vec3d> expected = cxtest::projGeocentric(local, frame.offset);
    EXPECT_NEAR((visitor.center - expected[0]).length(), 0.0, 1e-3);
    const auto& after = vertexArray(*geode->getDrawable(0)->asGeometry());
    EXPECT_EQ(after[0], osg::Vec3(0, 0, 0));
    for (std::size_t i = 0; i < after.size(); ++i)
        EXPECT_NEAR((osg::Vec3d(after[i]) + visitor.center - expected[i]).length(), 0.0, 1e-3) << i;
}

TEST(changevertex, AnEmptyFirstGeometryLeavesTheAnchorToTheFirstNonEmptyOne)
{
    ObliqueFrame frame;
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(triangles({}));
    geode->addDrawable(triangles({{5, 6, 7}, {15, 6, 7}, {5, 16, 7}}));
    changevertex visitor(frame.offset, frame.srs, frame.mapsrs);

    visitor.apply(*geode->getDrawable(0));
    EXPECT_EQ(visitor.center, osg::Vec3d(0, 0, 0));

    geode->accept(visitor);
    const osg::Vec3d expected = cxtest::projGeocentric({{5, 6, 7}}, frame.offset)[0];
    EXPECT_NEAR((visitor.center - expected).length(), 0.0, 1e-3);
    EXPECT_EQ(vertexArray(*geode->getDrawable(1)->asGeometry())[0], osg::Vec3(0, 0, 0));
}

TEST(changevertex, AFirstVertexAtTheEarthsCentreLeavesTheAnchorUnsetAndItsGeometryAbsolute)
{
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(triangles({{0, 0, 0}, {1, 2, 3}, {4, 5, 6}}));
    geode->addDrawable(triangles({{10, 20, 30}, {11, 21, 31}, {12, 22, 32}}));
    changevertex visitor = identityVisitor();
    geode->accept(visitor);

    EXPECT_EQ(visitor.center, osg::Vec3d(10, 20, 30));
    const auto& first = vertexArray(*geode->getDrawable(0)->asGeometry());
    EXPECT_EQ(first[1], osg::Vec3(1, 2, 3)); // absolute: nothing was subtracted
    const auto& second = vertexArray(*geode->getDrawable(1)->asGeometry());
    EXPECT_EQ(second[0], osg::Vec3(0, 0, 0));
    EXPECT_EQ(second[2], osg::Vec3(2, 2, 2));

    // Reused on another geode, the visitor keeps the anchor of the first.
    osg::ref_ptr<osg::Geode> other = cxtest::geodeOf({{100, 100, 100}, {101, 100, 100}, {100, 101, 100}});
    other->accept(visitor);
    EXPECT_EQ(visitor.center, osg::Vec3d(10, 20, 30));
    EXPECT_EQ(cxtest::verticesOf(other.get())[0], osg::Vec3(90, 80, 70));
}

TEST(changevertex, ADrawableThatIsNoGeometryIsSkippedAndTheGeodeBoundIsDirtiedAllTheSame)
{
    osg::ref_ptr<ProbeGeode> geode = new ProbeGeode;
    geode->addDrawable(new PlainDrawable);
    geode->getBound();
    ASSERT_FALSE(geode->boundIsDirty());

    ObliqueFrame frame;
    changevertex visitor(frame.offset, frame.srs, frame.mapsrs);
    geode->accept(visitor);
    EXPECT_TRUE(geode->boundIsDirty());
    EXPECT_EQ(visitor.center, osg::Vec3d(0, 0, 0));
}

TEST(changevertex, VerticesOfAnotherArrayTypeAreLeftAsTheyCame)
{
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    osg::ref_ptr<osg::Vec3dArray> doubles = new osg::Vec3dArray;
    for (const osg::Vec3d& v : {osg::Vec3d(1, 2, 3), osg::Vec3d(4, 5, 6), osg::Vec3d(7, 8, 9)})
        doubles->push_back(v);
    geometry->setVertexArray(doubles);
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry);
    ObliqueFrame frame;
    changevertex visitor(frame.offset, frame.srs, frame.mapsrs);
    geode->accept(visitor);
    EXPECT_EQ(visitor.center, osg::Vec3d(0, 0, 0));
    EXPECT_EQ((*static_cast<osg::Vec3dArray*>(geometry->getVertexArray()))[1], osg::Vec3d(4, 5, 6));
}

TEST(changevertex, TheArrayIsChangedInPlaceAndNormalsAreNotTouched)
{
    ObliqueFrame frame;
    osg::ref_ptr<osg::Geometry> geometry = triangles({{1, 1, 1}, {2, 1, 1}, {1, 2, 1}});
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array(3);
    for (osg::Vec3& n : *normals)
        n.set(0, 0, 1);
    geometry->setNormalArray(normals, osg::Array::BIND_PER_VERTEX);
    osg::Array* before = geometry->getVertexArray();
    const unsigned int modified = before->getModifiedCount();
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry);
    changevertex visitor(frame.offset, frame.srs, frame.mapsrs);
    geode->accept(visitor);
    EXPECT_EQ(geometry->getVertexArray(), before);
    EXPECT_EQ(before->getModifiedCount(), modified); // not marked dirty
    EXPECT_EQ((*normals)[0], osg::Vec3(0, 0, 1));
}

TEST(changevertex, ATileKeepsMillimetresAndNoOffsetExceedsItsSize)
{
    // A 200 m tile of a few thousand vertices, re-projected and added back to
    // its anchor, against PROJ's own answer for the original points.
    ObliqueFrame frame;
    std::vector<osg::Vec3> local;
    const float size = 200.0f;
    for (int j = 0; j <= 40; ++j)
        for (int i = 0; i <= 40; ++i)
            local.emplace_back(-100.0f + size * i / 40.0f, 300.0f + size * j / 40.0f, 20.0f + 0.37f * ((i * j) % 60));
    local.resize(local.size() / 3 * 3);
    osg::ref_ptr<osg::Geode> geode = cxtest::geodeOf(local);
    changevertex visitor(frame.offset, frame.srs, frame.mapsrs);
    geode->accept(visitor);

    const std::vector<osg::Vec3d> expected = cxtest::projGeocentric(local, frame.offset);
    const std::vector<osg::Vec3> after = cxtest::verticesOf(geode.get());
    ASSERT_EQ(after.size(), expected.size());
    double worst = 0.0, largest = 0.0;
    for (std::size_t i = 0; i < after.size(); ++i)
    {
        worst = std::max(worst, (osg::Vec3d(after[i]) + visitor.center - expected[i]).length());
        largest = std::max(largest, double(after[i].length()));
    }
    EXPECT_LT(worst, 1e-3);
    EXPECT_LE(largest, std::sqrt(2.0) * size + 30.0); // the tile's diagonal and its height range
}
