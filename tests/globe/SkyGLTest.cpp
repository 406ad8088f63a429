// The sky, the sun light and the clip planes in real frames on an X display:
// a globe-sized ellipsoid from 20,000 km with the atmosphere around it, its
// day and night sides, and a building 50 m from an eye 100 m over the ground.
#include "EarthPoints.h"
#include "ViewerFixture.h"

#include <globe/AutoClipPlaneCullCallback>
#include <globe/DateTime>
#include <globe/MapNode>
#include <globe/SkyNode>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Material>
#include <osg/MatrixTransform>
#include <osg/Program>
#include <osg/ShapeDrawable>

#include <cmath>
#include <cstdlib>
#include <string>

using cxtest::pixelAt;
using cxtest::saveScreenshot;

namespace
{

constexpr double kFovy = 30.0;

osg::Matrixd enuFrame(double lonDeg, double latDeg, double height)
{
    osg::Matrixd frame;
    cxtest::wgs84().computeLocalToWorldTransformFromLatLongHeight(osg::DegreesToRadians(latDeg),
                                                                  osg::DegreesToRadians(lonDeg), height, frame);
    return frame;
}

osg::Material* flatMaterial(const osg::Vec4& colour)
{
    auto* m = new osg::Material;
    m->setAmbient(osg::Material::FRONT_AND_BACK, colour);
    m->setDiffuse(osg::Material::FRONT_AND_BACK, colour);
    m->setSpecular(osg::Material::FRONT_AND_BACK, osg::Vec4(0, 0, 0, 1));
    m->setEmission(osg::Material::FRONT_AND_BACK, osg::Vec4(0, 0, 0, 1));
    return m;
}

// The WGS84 ellipsoid as lit geometry, 1 degree per step, green.
osg::Geode* makeEllipsoid()
{
    auto* vertices = new osg::Vec3Array;
    auto* normals = new osg::Vec3Array;
    const int rows = 180, cols = 360;
    for (int i = 0; i <= rows; ++i)
    {
        for (int j = 0; j <= cols; ++j)
        {
            const double lat = -90.0 + i, lon = -180.0 + j;
            const osg::Vec3d p = cxtest::worldOf(lon, lat, 0.0);
            vertices->push_back(p);
            normals->push_back(cxtest::wgs84().computeLocalUpVector(p.x(), p.y(), p.z()));
        }
    }
    auto* triangles = new osg::DrawElementsUInt(GL_TRIANGLES);
    for (int i = 0; i < rows; ++i)
    {
        for (int j = 0; j < cols; ++j)
        {
            const unsigned v00 = i * (cols + 1) + j, v01 = v00 + 1, v10 = v00 + cols + 1, v11 = v10 + 1;
            for (unsigned int index : {v00, v01, v11, v00, v11, v10})
                triangles->push_back(index);
        }
    }
    auto* geometry = new osg::Geometry;
    geometry->setVertexArray(vertices);
    geometry->setNormalArray(normals, osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(triangles);
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    geode->getOrCreateStateSet()->setAttributeAndModes(flatMaterial(osg::Vec4(0.2f, 0.8f, 0.3f, 1.0f)));
    return geode;
}

osg::Node* makeBox(const osg::Matrixd& placement, const osg::Vec3& size, const osg::Vec4& colour)
{
    auto* transform = new osg::MatrixTransform(placement);
    auto* geode = new osg::Geode;
    geode->addDrawable(new osg::ShapeDrawable(new osg::Box(osg::Vec3(), size.x(), size.y(), size.z())));
    // Unlit: the colour must come through whatever the sun does.
    geode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    static_cast<osg::ShapeDrawable*>(geode->getDrawable(0))->setColor(colour);
    transform->addChild(geode);
    return transform;
}

bool isRed(const osg::Vec4ub& p) { return p.r() > 180 && p.g() < 60 && p.b() < 60; }
bool isBlue(const osg::Vec4ub& p) { return p.b() > 180 && p.r() < 60 && p.g() < 60; }
bool isGlobe(const osg::Vec4ub& p) { return p.g() > p.r() + 20 && p.g() > p.b() + 20; }
int brightness(const osg::Vec4ub& p) { return (p.r() + p.g() + p.b()) / 3; }
std::string str(const osg::Vec4ub& p)
{
    return "(" + std::to_string(p.r()) + "," + std::to_string(p.g()) + "," + std::to_string(p.b()) + ")";
}

} // namespace

class SkyGL : public cxtest::ViewerFixture
{
protected:
    void SetUp() override
    {
        ViewerFixture::SetUp();
        if (HasFatalFailure())
            return;
        view = viewer->getViewer();
        camera = view->getCamera();
        view->setCameraManipulator(nullptr);
        camera->setProjectionMatrixAsPerspective(kFovy, double(windowWidth) / windowHeight, 1.0, 10000.0);
        const osg::Vec4 clear = camera->getClearColor();
        clearColour = osg::Vec4ub(clear.r() * 255 + 0.5, clear.g() * 255 + 0.5, clear.b() * 255 + 0.5, 255);

        map = new globe::MapNode;
        map->addChild(makeEllipsoid());
        viewer->getRoot()->addChild(map.get());
    }

    // The map set-up's sky: attached, full minimum ambient, the fixed date, the
    // sun light's settings, the sky in the root, two clip callbacks.
    void installSkyAsTheMapSetUpDoes(bool clipPlanes = true)
    {
        sky = globe::SkyNode::create(map.get());
        sky->setName("skynode");
        sky->attach(view);
        sky->setMinimumAmbient(osg::Vec4f(1, 1, 1, 1));
        sky->setDateTime(globe::DateTime(2018, 11, 30, 9.0));
        osg::Light* light = sky->getSunLight();
        light->setPosition(osg::Vec4(0, 0, 1, 0));
        light->setAmbient(osg::Vec4(0.03f, 0.03f, 0.03f, 1));
        light->setDiffuse(osg::Vec4(1, 1, 1, 1));
        light->setSpecular(osg::Vec4(1, 1, 1, 1));
        viewer->getRoot()->addChild(sky.get());
        if (clipPlanes)
        {
            clipA = new globe::AutoClipPlaneCullCallback(map.get());
            clipB = new globe::AutoClipPlaneCullCallback(map.get());
            camera->addCullCallback(clipA.get());
            camera->addCullCallback(clipB.get());
        }
    }

    // Straight down from `height` over (lon, lat), north up on the screen
    // (the prime meridian's direction over a pole).
    void lookFromSpace(double lonDeg, double latDeg, double height)
    {
        const osg::Vec3d eye = cxtest::worldOf(lonDeg, latDeg, height);
        const osg::Vec3d up = std::fabs(latDeg) > 80.0 ? osg::Vec3d(-1, 0, 0) : osg::Vec3d(0, 0, 1);
        camera->setViewMatrixAsLookAt(eye, osg::Vec3d(0, 0, 0), up);
    }

    // Window pixel (from the top-left) of a world point in the last frame's
    // matrices; false when behind the eye.
    bool project(const osg::Vec3d& p, double& x, double& y) const
    {
        const osg::Vec4d clip = osg::Vec4d(p, 1.0) * camera->getViewMatrix() * camera->getProjectionMatrix();
        if (clip.w() <= 0.0)
            return false;
        x = (clip.x() / clip.w() + 1.0) * 0.5 * windowWidth;
        y = windowHeight - (clip.y() / clip.w() + 1.0) * 0.5 * windowHeight;
        return true;
    }

    // Radius in pixels of the globe's disc seen from `distance` (from its centre).
    double discRadiusPixels(double distance, double radius) const
    {
        const double angle = std::asin(radius / distance);
        return 0.5 * windowHeight * std::tan(angle) / std::tan(osg::DegreesToRadians(kFovy * 0.5));
    }

    osgViewer::View* view = nullptr;
    osg::Camera* camera = nullptr;
    osg::Vec4ub clearColour;
    osg::ref_ptr<globe::MapNode> map;
    osg::ref_ptr<globe::SkyNode> sky;
    osg::ref_ptr<globe::AutoClipPlaneCullCallback> clipA;
    osg::ref_ptr<globe::AutoClipPlaneCullCallback> clipB;
};

TEST_F(SkyGL, AtmosphereShaderLinks)
{
    installSkyAsTheMapSetUpDoes();
    lookFromSpace(42.1, -21.7, 2.0e7);
    frames(2);
    auto* program = dynamic_cast<osg::Program*>(
        sky->getAtmosphere()->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM));
    ASSERT_NE(program, nullptr);
    osg::State* state = viewer->graphicsContext->getState();
    ASSERT_NE(state, nullptr);
    osg::Program::PerContextProgram* pcp = program->getPCP(*state);
    ASSERT_NE(pcp, nullptr);
    EXPECT_TRUE(pcp->isLinked());
    std::string log;
    pcp->getInfoLog(log);
    EXPECT_TRUE(pcp->isLinked()) << log;
}

TEST_F(SkyGL, GlobeFromFarWithTheSkyBehindIt)
{
    installSkyAsTheMapSetUpDoes();
    const double height = 2.0e7;
    lookFromSpace(42.1, -21.7, height);
    frames(1);
    osg::ref_ptr<osg::Image> image = grabFrame();
    ASSERT_TRUE(image.valid());
    saveScreenshot(*image, "sky_globe_from_20000km");

    const int cx = windowWidth / 2, cy = windowHeight / 2;
    const double distance = cxtest::worldOf(42.1, -21.7, height).length();
    const double disc = discRadiusPixels(distance, osg::WGS_84_RADIUS_EQUATOR);
    ASSERT_GT(disc, 50.0);
    ASSERT_LT(disc + 8.0, cy);

    // The globe covers the middle: everything within 90 % of its disc.
    int globePixels = 0, samples = 0;
    for (int k = 0; k < 32; ++k)
    {
        const double a = 2.0 * osg::PI * k / 32.0;
        for (double share : {0.0, 0.3, 0.6, 0.9})
        {
            const auto p = pixelAt(*image, int(cx + std::cos(a) * disc * share), int(cy + std::sin(a) * disc * share));
            ++samples;
            if (isGlobe(p))
                ++globePixels;
            else
                ADD_FAILURE() << "not globe at share " << share << " angle " << a << ": " << str(p);
        }
    }
    EXPECT_EQ(globePixels, samples);

    // Just outside the disc: the atmosphere, not the clear colour, all around.
    int skyPixels = 0;
    for (int k = 0; k < 32; ++k)
    {
        const double a = 2.0 * osg::PI * k / 32.0;
        const auto p = pixelAt(*image, int(cx + std::cos(a) * (disc + 3.0)), int(cy + std::sin(a) * (disc + 3.0)));
        const int difference = std::abs(p.r() - clearColour.r()) + std::abs(p.g() - clearColour.g()) +
                               std::abs(p.b() - clearColour.b());
        if (difference > 60 && p.b() >= p.r())
            ++skyPixels;
        else
            ADD_FAILURE() << "no sky at angle " << a << ": " << str(p) << " clear " << str(clearColour);
    }
    EXPECT_EQ(skyPixels, 32);

    // Far from the globe: the dark of space over the clear colour, with
    // stars in it.
    for (const auto& corner : {std::pair<int, int>{5, 5}, {windowWidth - 6, 5}, {5, windowHeight - 6}})
    {
        const auto p = pixelAt(*image, corner.first, corner.second);
        EXPECT_LT(brightness(p), 90) << corner.first << "," << corner.second << ": " << str(p);
        EXPECT_GT(std::abs(p.r() - clearColour.r()) + std::abs(p.g() - clearColour.g()) +
                      std::abs(p.b() - clearColour.b()),
                  200)
            << "the clear colour shows at " << corner.first << "," << corner.second;
    }
    int dark = 0, stars = 0, outside = 0;
    for (int y = 0; y < windowHeight; ++y)
        for (int x = 0; x < windowWidth; ++x)
        {
            if (std::hypot(x - cx, y - cy) < disc + 20.0)
                continue;
            ++outside;
            const int b = brightness(pixelAt(*image, x, y));
            dark += b < 12 ? 1 : 0;
            stars += b > 60 ? 1 : 0;
        }
    EXPECT_GT(dark, outside * 9 / 10) << "space is not dark";
    EXPECT_GT(stars, 5) << "no stars";

    // The planes: the globe inside, the two callbacks agreeing.
    double nearA = 0, farA = 0, nearB = 0, farB = 0;
    ASSERT_TRUE(clipA->getLastClipPlanes(nearA, farA));
    ASSERT_TRUE(clipB->getLastClipPlanes(nearB, farB));
    EXPECT_DOUBLE_EQ(nearA, nearB);
    EXPECT_DOUBLE_EQ(farA, farB);
    EXPECT_LT(nearA, height);
    EXPECT_GT(farA, std::sqrt(distance * distance - osg::WGS_84_RADIUS_EQUATOR * osg::WGS_84_RADIUS_EQUATOR));
    double l, r, b, t, n, f;
    ASSERT_TRUE(camera->getProjectionMatrix().getFrustum(l, r, b, t, n, f));
    EXPECT_NEAR(n, nearA, 1e-6 * nearA);
    EXPECT_NEAR(f, farA, 1e-6 * farA);
}

TEST_F(SkyGL, StarAndSpaceShadersLink)
{
    installSkyAsTheMapSetUpDoes();
    lookFromSpace(42.1, -21.7, 2.0e7);
    frames(2);
    osg::State* state = viewer->graphicsContext->getState();
    ASSERT_NE(state, nullptr);
    for (osg::Geode* geode : {sky->getStars(), sky->getSpace()})
    {
        auto* program = dynamic_cast<osg::Program*>(geode->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM));
        ASSERT_NE(program, nullptr) << geode->getName();
        osg::Program::PerContextProgram* pcp = program->getPCP(*state);
        ASSERT_NE(pcp, nullptr) << geode->getName();
        std::string log;
        pcp->getInfoLog(log);
        EXPECT_TRUE(pcp->isLinked()) << geode->getName() << ": " << log;
    }
}

TEST_F(SkyGL, TheAirIsDarkOnTheNightSideWhateverTheMinimumAmbient)
{
    // The map set-up's full minimum ambient lights the ground's night side
    // like its day side; the air still follows the sun.
    installSkyAsTheMapSetUpDoes();
    const osg::Vec3d sun = sky->getSunDirection();
    // Looking at the globe side on: the sun to the right of the window, the
    // terminator down the middle of the disc.
    const osg::Vec3d pole(0, 0, 1);
    osg::Vec3d side = pole ^ sun;
    side.normalize();
    const osg::Vec3d eye = side * 2.6e7;
    camera->setViewMatrixAsLookAt(eye, osg::Vec3d(), pole);
    frames(1);
    osg::ref_ptr<osg::Image> image = grabFrame();
    saveScreenshot(*image, "sky_terminator_side_on");
    // The blue of the air just outside the limb towards the sun and away
    // from it: walking out from the centre of the disc past the globe's
    // green, the brightest blue of the next pixels.
    double cx = 0, cy = 0;
    ASSERT_TRUE(project(osg::Vec3d(), cx, cy));
    auto glow = [&](const osg::Vec3d& towards) {
        double x = 0, y = 0;
        EXPECT_TRUE(project(towards * osg::WGS_84_RADIUS_EQUATOR, x, y));
        const double length = std::hypot(x - cx, y - cy);
        const double ux = (x - cx) / length, uy = (y - cy) / length;
        int blue = 0, outside = 0;
        for (double r = length * 0.9; r < length * 1.2 && outside < 8; r += 1.0)
        {
            const osg::Vec4ub p = pixelAt(*image, int(std::lround(cx + ux * r)), int(std::lround(cy + uy * r)));
            if (isGlobe(p))
                continue;
            ++outside;
            blue = std::max<int>(blue, p.b());
        }
        return blue;
    };
    const int day = glow(sun), night = glow(-sun);
    EXPECT_GT(day, 80) << "no glow on the day side";
    EXPECT_LT(night, day / 3) << "the night side glows like the day side";
}

TEST_F(SkyGL, SunLightsTheDaySideOfTheDate)
{
    installSkyAsTheMapSetUpDoes();
    // No ambient floor: the night side is dark.
    sky->setMinimumAmbient(osg::Vec4f(0, 0, 0, 1));
    sky->getSunLight()->setAmbient(osg::Vec4(0, 0, 0, 1));
    const int cx = windowWidth / 2, cy = windowHeight / 2;

    // Over the sub-solar point: the sun is overhead, the middle is bright.
    lookFromSpace(42.1, -21.7, 2.0e7);
    frames(1);
    osg::ref_ptr<osg::Image> day = grabFrame();
    saveScreenshot(*day, "sky_day_side");
    const auto dayPixel = pixelAt(*day, cx, cy);
    EXPECT_TRUE(isGlobe(dayPixel)) << str(dayPixel);
    EXPECT_GT(dayPixel.g(), 170) << str(dayPixel);

    // The light's position is the sun's direction, not the (0, 0, 1) written
    // by hand before the frame.
    const osg::Vec4 position = view->getLight()->getPosition();
    const osg::Vec3d direction(position.x(), position.y(), position.z());
    const auto sun = globe::SkyNode::computeSunPosition(globe::DateTime(2018, 11, 30, 9.0));
    EXPECT_GT(direction * sun.direction, std::cos(osg::DegreesToRadians(0.05)));
    EXPECT_FLOAT_EQ(position.w(), 0.0f);

    // The antipode: night, dark.
    lookFromSpace(42.1 - 180.0, 21.7, 2.0e7);
    frames(1);
    osg::ref_ptr<osg::Image> night = grabFrame();
    saveScreenshot(*night, "sky_night_side");
    const auto nightPixel = pixelAt(*night, cx, cy);
    EXPECT_LT(brightness(nightPixel), 15) << str(nightPixel);

    // Over the north pole, in polar night at the end of November (where a
    // light from (0, 0, 1) would shine straight down): dark as well.
    lookFromSpace(0.0, 90.0, 2.0e7);
    frames(1);
    osg::ref_ptr<osg::Image> pole = grabFrame();
    saveScreenshot(*pole, "sky_north_pole_november");
    EXPECT_LT(brightness(pixelAt(*pole, cx, cy)), 15) << str(pixelAt(*pole, cx, cy));

    // Six months on the pole is in daylight.
    sky->setDateTime(globe::DateTime(2018, 6, 21, 12.0));
    frames(1);
    osg::ref_ptr<osg::Image> summer = grabFrame();
    saveScreenshot(*summer, "sky_north_pole_june");
    EXPECT_GT(brightness(pixelAt(*summer, cx, cy)), 40) << str(pixelAt(*summer, cx, cy));

    // With the minimum ambient at full, the night side is as bright as the day side.
    sky->setDateTime(globe::DateTime(2018, 11, 30, 9.0));
    sky->setMinimumAmbient(osg::Vec4f(1, 1, 1, 1));
    lookFromSpace(42.1 - 180.0, 21.7, 2.0e7);
    frames(1);
    osg::ref_ptr<osg::Image> lit = grabFrame();
    saveScreenshot(*lit, "sky_night_side_full_ambient");
    const auto litPixel = pixelAt(*lit, cx, cy);
    EXPECT_GE(litPixel.g(), dayPixel.g() - 5) << str(litPixel) << " vs " << str(dayPixel);
}

class SkyGroundGL : public SkyGL
{
protected:
    // Beijing, an eye 100 m over flat ground looking level to the north; a
    // red building 20 m wide and 120 m tall whose near face is 50 m away; a
    // blue 40 m square 2 cm over the ground 300 m north and 150 m east.
    void buildGroundScene()
    {
        const double lon = 116.39, lat = 39.91;
        const osg::Matrixd frame = enuFrame(lon, lat, 0.0);
        // The ground: a 4 km square, grey-green, unlit.
        auto* ground = new osg::Geometry;
        auto* corners = new osg::Vec3Array;
        for (const auto& c : {osg::Vec3d(-2000, -2000, 0), osg::Vec3d(2000, -2000, 0), osg::Vec3d(2000, 2000, 0),
                              osg::Vec3d(-2000, 2000, 0)})
            corners->push_back(c);
        ground->setVertexArray(corners);
        auto* groundColour = new osg::Vec4Array;
        groundColour->push_back(osg::Vec4(0.4f, 0.45f, 0.35f, 1.0f));
        ground->setColorArray(groundColour, osg::Array::BIND_OVERALL);
        ground->addPrimitiveSet(new osg::DrawArrays(GL_QUADS, 0, 4));
        auto* groundGeode = new osg::Geode;
        groundGeode->addDrawable(ground);
        groundGeode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
        auto* groundPlace = new osg::MatrixTransform(frame);
        groundPlace->addChild(groundGeode);
        map->addChild(groundPlace);

        map->addChild(makeBox(osg::Matrixd::translate(0, 60, 60) * frame, osg::Vec3(20, 20, 120),
                              osg::Vec4(1, 0, 0, 1)));
        map->addChild(makeBox(osg::Matrixd::translate(150, 300, 0.02 + 0.005) * frame, osg::Vec3(40, 40, 0.01),
                              osg::Vec4(0, 0, 1, 1)));
        decalCentre = osg::Vec3d(150, 300, 0.03) * frame;
        towerFaceCentre = osg::Vec3d(0, 50, 100) * frame;
        towerTopFront = osg::Vec3d(0, 50, 118) * frame;

        eye = osg::Vec3d(0, 0, 100) * frame;
        camera->setProjectionMatrixAsPerspective(60.0, double(windowWidth) / windowHeight, 1.0, 10000.0);
        const osg::Vec3d north = osg::Vec3d(0, 1, 0) * frame - osg::Vec3d() * frame;
        const osg::Vec3d up = osg::Vec3d(0, 0, 1) * frame - osg::Vec3d() * frame;
        camera->setViewMatrixAsLookAt(eye, eye + north, up);
    }

    osg::Vec3d eye, decalCentre, towerFaceCentre, towerTopFront;
};

TEST_F(SkyGroundGL, BuildingFiftyMetresAwayIsNotClipped)
{
    installSkyAsTheMapSetUpDoes();
    buildGroundScene();
    frames(1);
    osg::ref_ptr<osg::Image> image = grabFrame();
    ASSERT_TRUE(image.valid());
    saveScreenshot(*image, "sky_ground_building");

    double nearPlane = 0, farPlane = 0;
    ASSERT_TRUE(clipA->getLastClipPlanes(nearPlane, farPlane));
    EXPECT_LT(nearPlane, 25.0);
    EXPECT_GE(nearPlane, clipA->getMinimumNear());
    EXPECT_GT(farPlane, 100000.0);

    // The building's face, at eye level and near its top, and its sides.
    double x = 0, y = 0;
    ASSERT_TRUE(project(towerFaceCentre, x, y));
    EXPECT_NEAR(x, windowWidth / 2.0, 1.0);
    for (int dy : {0, 40, 100})
        EXPECT_TRUE(isRed(pixelAt(*image, int(x), int(y) + dy)))
            << dy << ": " << str(pixelAt(*image, int(x), int(y) + dy));
    ASSERT_TRUE(project(towerTopFront, x, y));
    EXPECT_TRUE(isRed(pixelAt(*image, int(x), int(y) + 2))) << str(pixelAt(*image, int(x), int(y) + 2));
    EXPECT_TRUE(isRed(pixelAt(*image, int(x) - 50, int(y) + 10)));
    EXPECT_TRUE(isRed(pixelAt(*image, int(x) + 50, int(y) + 10)));

    // The square 2 cm over the ground, 335 m away: blue throughout, no
    // speckles of the ground through it.
    ASSERT_TRUE(project(decalCentre, x, y));
    ASSERT_GT(x, 0.0);
    ASSERT_LT(x, windowWidth);
    int blue = 0, total = 0;
    for (int dx = -6; dx <= 6; dx += 2)
    {
        for (int dy = -2; dy <= 2; ++dy)
        {
            ++total;
            const auto p = pixelAt(*image, int(x) + dx, int(y) + dy);
            if (isBlue(p))
                ++blue;
            else
                ADD_FAILURE() << "decal " << dx << "," << dy << ": " << str(p);
        }
    }
    EXPECT_EQ(blue, total);

    // Above the horizon beside the building: the daytime sky, blue.
    const auto skyPixel = pixelAt(*image, 20, 20);
    EXPECT_GT(skyPixel.b(), skyPixel.r() + 30) << str(skyPixel);
    EXPECT_NE(str(skyPixel), str(clearColour));
    // Below the horizon: the ground.
    const auto groundPixel = pixelAt(*image, 20, windowHeight - 20);
    EXPECT_NEAR(groundPixel.r(), 102, 3) << str(groundPixel);
    EXPECT_NEAR(groundPixel.g(), 115, 3) << str(groundPixel);
}

TEST_F(SkyGroundGL, WithoutTheCallbackTheBuildingIsClipped)
{
    // The control: the camera's own near/far computation over a globe-sized
    // scene puts near kilometres away, and the building disappears.
    installSkyAsTheMapSetUpDoes(false);
    buildGroundScene();
    frames(1);
    osg::ref_ptr<osg::Image> image = grabFrame();
    saveScreenshot(*image, "sky_ground_building_no_callback");
    double x = 0, y = 0;
    ASSERT_TRUE(project(towerFaceCentre, x, y));
    EXPECT_FALSE(isRed(pixelAt(*image, int(x), int(y)))) << str(pixelAt(*image, int(x), int(y)));
}
