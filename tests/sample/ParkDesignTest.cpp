// The park terrain model on the ground around it: its surface follows the
// surrounding ground it is given, the lake stays flat between its banks, and
// the skirt reaches below the surrounding ground all round.
#include "TerrainModel.h"

#include <gtest/gtest.h>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Group>

#include <cmath>

using cxsample::Lod;
using cxsample::ParkDesign;

namespace
{

// The vertices of the geometry called `name` anywhere under `node`.
const osg::Vec3Array* verticesOf(osg::Node& node, const std::string& name)
{
    if (auto* geometry = node.asGeometry())
        return geometry->getName() == name ? dynamic_cast<const osg::Vec3Array*>(geometry->getVertexArray()) : nullptr;
    if (auto* group = node.asGroup())
        for (unsigned int i = 0; i < group->getNumChildren(); ++i)
            if (const osg::Vec3Array* found = verticesOf(*group->getChild(i), name))
                return found;
    return nullptr;
}

// A tilted plane with a ripple: 1 m a hundred metres eastward.
double slope(double x, double y)
{
    return 0.01 * x + 2.0 * std::sin(y / 150.0);
}

} // namespace

TEST(ParkDesign, WithoutSurroundingsTheParkIsFlatAroundItsFeatures)
{
    ParkDesign park;
    EXPECT_EQ(park.baseHeight(300.0, -200.0), 0.0);
    // The border falls to the surrounding ground.
    EXPECT_NEAR(park.groundHeight(park.width / 2, 0.0), 0.0, 1e-9);
    EXPECT_NEAR(park.groundHeight(0.0, -park.depth / 2), 0.0, 1e-9);
}

TEST(ParkDesign, AwayFromTheLakeTheGroundFollowsTheSurroundings)
{
    ParkDesign flat;
    ParkDesign sloped;
    sloped.surroundings = slope;
    // Points far from the lake (its centre at 330, 170).
    for (const auto& [x, y] : {std::pair{-900.0, -700.0}, {-430.0, 260.0}, {540.0, -420.0}, {-200.0, -600.0}})
    {
        SCOPED_TRACE(std::to_string(x) + ", " + std::to_string(y));
        EXPECT_NEAR(sloped.baseHeight(x, y), slope(x, y), 1e-9);
        EXPECT_NEAR(sloped.groundHeight(x, y) - flat.groundHeight(x, y), slope(x, y), 1e-9);
    }
}

TEST(ParkDesign, TheLakeLiesFlatOnTheGroundAtItsCentre)
{
    ParkDesign sloped;
    sloped.surroundings = slope;
    const double atCentre = slope(sloped.lake.x(), sloped.lake.y());
    // On the lake and its banks the base is the ground at the lake's centre.
    for (const double fraction : {0.0, 0.5, 1.0, 1.2})
    {
        const double x = sloped.lake.x() + fraction * sloped.lakeRadii.x() * sloped.shoreRadius(0.0);
        EXPECT_NEAR(sloped.baseHeight(x, sloped.lake.y()), atCentre, 1e-9) << fraction;
    }

    osg::ref_ptr<osg::Image> texture = cxsample::parkImage(sloped, 64);
    osg::ref_ptr<osg::Node> model = cxsample::terrainModel(sloped, Lod::Crude2, *texture);
    ASSERT_TRUE(model.valid());
    const osg::Vec3Array* water = verticesOf(*model, "water");
    ASSERT_NE(water, nullptr);
    ASSERT_GT(water->size(), 3u);
    for (const osg::Vec3& v : *water)
        EXPECT_NEAR(v.z(), atCentre + sloped.waterLevel, 1e-4);
}

TEST(ParkDesign, TheSkirtReachesUnderTheSurroundingGround)
{
    ParkDesign sloped;
    sloped.surroundings = slope;
    osg::ref_ptr<osg::Image> texture = cxsample::parkImage(sloped, 64);
    osg::ref_ptr<osg::Node> model = cxsample::terrainModel(sloped, Lod::Crude2, *texture);
    const osg::Vec3Array* skirt = verticesOf(*model, "skirt");
    ASSERT_NE(skirt, nullptr);
    ASSERT_FALSE(skirt->empty());
    int under = 0, onBorder = 0;
    for (const osg::Vec3& v : *skirt)
    {
        // Every skirt vertex is on the park's border, or 4 m under the
        // surrounding ground there (levelled towards the lake near it).
        const double base = sloped.baseHeight(v.x(), v.y());
        if (std::fabs(v.z() - (base - 4.0)) < 1e-3)
            ++under;
        else if (std::fabs(v.z() - sloped.groundHeight(v.x(), v.y())) < 1e-3)
            ++onBorder;
        else
            ADD_FAILURE() << "a skirt vertex at " << v.x() << ", " << v.y() << ", " << v.z();
    }
    EXPECT_EQ(under, onBorder);
    EXPECT_EQ(under + onBorder, static_cast<int>(skirt->size()));
}
