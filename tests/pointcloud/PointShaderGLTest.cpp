// The point program on a real window: it compiles and links on this GL,
// colours points by each draw mode, and sizes them by the depth of the visible
// octree at each point. Clouds are built by hand under the viewer's LiDAR
// group and drawn by the viewer's own cull callback.
#include "OctreeTestSupport.h"
#include "ViewerFixture.h"

#include <pointcloud/PotreeProgram>

#include <osg/Camera>
#include <osg/GLExtensions>
#include <osg/Program>

#include <cmath>
#include <string>
#include <vector>

using namespace cxtest;

namespace
{

/** One point of a hand-built tile. */
struct Point
{
    osg::Vec3 position;       // world and octree frame at once
    osg::Vec4ub colour{255, 255, 255, 255};
    float classification = 0.0f;
    float intensity = 0.0f;
    float flag = 0.0f;
};

/** A tile as a tiler writes it: content transform "ARSCmark<n>" with the
  * per-tile uniforms and a geometry of points with the vertex attributes. */
osg::ref_ptr<osg::PagedLOD> pointTile(const std::string& name, const std::vector<Point>& points,
                                      const osg::Vec3& cubeCorner, float cubeSize, float spacing)
{
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec4ubArray> colours = new osg::Vec4ubArray;
    osg::ref_ptr<osg::Vec3Array> positions = new osg::Vec3Array;
    osg::ref_ptr<osg::FloatArray> classes = new osg::FloatArray;
    osg::ref_ptr<osg::FloatArray> intensities = new osg::FloatArray;
    osg::ref_ptr<osg::FloatArray> flags = new osg::FloatArray;
    osg::ref_ptr<osg::FloatArray> returns = new osg::FloatArray;
    for (const Point& p : points)
    {
        vertices->push_back(p.position);
        colours->push_back(p.colour);
        positions->push_back(p.position);
        classes->push_back(p.classification);
        intensities->push_back(p.intensity);
        flags->push_back(p.flag);
        returns->push_back(1.0f);
    }
    colours->setNormalize(true);
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setVertexArray(vertices.get());
    geometry->setColorArray(colours.get(), osg::Array::BIND_PER_VERTEX);
    geometry->setVertexAttribArray(10, positions.get(), osg::Array::BIND_PER_VERTEX);
    geometry->setVertexAttribArray(11, returns.get(), osg::Array::BIND_PER_VERTEX);
    geometry->setVertexAttribArray(12, new osg::FloatArray(*returns), osg::Array::BIND_PER_VERTEX);
    geometry->setVertexAttribArray(13, flags.get(), osg::Array::BIND_PER_VERTEX);
    geometry->setVertexAttribArray(14, intensities.get(), osg::Array::BIND_PER_VERTEX);
    geometry->setVertexAttribArray(15, classes.get(), osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, static_cast<GLsizei>(points.size())));
    // The tile's cube and a margin as its bound, so that a lone point is not
    // culled as a small feature, nor clipped by near and far planes that the
    // cull fits to the bound.
    const osg::Vec3 margin(1.0f, 1.0f, 1.0f);
    geometry->setInitialBound(
        osg::BoundingBox(cubeCorner - margin, cubeCorner + osg::Vec3(cubeSize, cubeSize, cubeSize) + margin));

    osg::ref_ptr<osg::PagedLOD> tile = makeTile(name, cubeCorner + osg::Vec3(cubeSize, cubeSize, cubeSize) * 0.5f);
    tile->setRadius(cubeSize * 0.87f);
    osg::Group* content = tile->getChild(0)->asGroup();
    content->asGroup()->getChild(0)->asGeode()->removeDrawables(0, 1);
    content->asGroup()->getChild(0)->asGeode()->addDrawable(geometry.get());
    osg::StateSet* state = content->getOrCreateStateSet();
    state->addUniform(new osg::Uniform("offset", cubeCorner));
    state->addUniform(new osg::Uniform("currentNodeSize", cubeSize));
    state->addUniform(new osg::Uniform("spacing", spacing));
    return tile;
}

/** Pixels of a frame that differ from `background` by more than 40 in a
  * channel, within a window around (x, y) (origin top-left). */
struct Blob
{
    int count = 0;
    int minX = 1 << 30, maxX = -1, minY = 1 << 30, maxY = -1;
    osg::Vec4ub centre;
    int width() const { return count ? maxX - minX + 1 : 0; }
};

Blob blobAround(const osg::Image& frame, int x, int y, int radius, const osg::Vec4ub& background)
{
    Blob blob;
    for (int j = y - radius; j <= y + radius; ++j)
        for (int i = x - radius; i <= x + radius; ++i)
        {
            if (i < 0 || j < 0 || i >= frame.s() || j >= frame.t())
                continue;
            const osg::Vec4ub p = pixelAt(frame, i, j);
            bool differs = false;
            for (int c = 0; c < 3; ++c)
                differs = differs || std::abs(int(p[c]) - int(background[c])) > 40;
            if (!differs)
                continue;
            ++blob.count;
            blob.minX = std::min(blob.minX, i);
            blob.maxX = std::max(blob.maxX, i);
            blob.minY = std::min(blob.minY, j);
            blob.maxY = std::max(blob.maxY, j);
        }
    blob.centre = pixelAt(frame, x, y);
    return blob;
}

/** Reads the program's link state and info logs inside a draw, where the
  * context is current. */
struct ProgramLogReader : public osg::Camera::DrawCallback
{
    osg::observer_ptr<osg::Program> program;
    mutable bool seen = false;
    mutable bool linked = false;
    mutable bool compiled = false;
    mutable std::string programLog, shaderLogs;

    void operator()(osg::RenderInfo& renderInfo) const override
    {
        osg::ref_ptr<osg::Program> p;
        if (!program.lock(p))
            return;
        osg::State* state = renderInfo.getState();
        const osg::Program::PerContextProgram* pcp = p->getPCP(*state);
        if (!pcp)
            return;
        seen = true;
        compiled = true;
        linked = pcp->isLinked();
        p->getGlProgramInfoLog(state->getContextID(), programLog);
        shaderLogs.clear();
        for (unsigned int i = 0; i < p->getNumShaders(); ++i)
        {
            std::string log;
            if (const osg::Shader::PerContextShader* pcs = p->getShader(i)->getPCS(*state))
            {
                compiled = compiled && pcs->isCompiled();
                pcs->getInfoLog(log);
            }
            else
            {
                compiled = false;
            }
            shaderLogs += log;
        }
    }
};

class PointShader : public ViewerFixture
{
protected:
    PointShader()
    {
        windowWidth = 320;
        windowHeight = 240;
        basePath = "/nonexistent-cxviewer-base"; // no map: a plain grey background
    }

    void SetUp() override
    {
        ViewerFixture::SetUp();
        if (HasFatalFailure())
            return;
        view()->setCameraManipulator(nullptr);
        lookFrom(osg::Vec3d(32.0, 32.0, 100.0), osg::Vec3d(32.0, 32.0, 0.0));
    }

    osgViewer::View* view() const { return viewer->getViewer(); }
    osg::StateSet* lidarState() const { return viewer->getLiDAR()->getOrCreateStateSet(); }

    void lookFrom(const osg::Vec3d& eye, const osg::Vec3d& target, const osg::Vec3d& up = osg::Vec3d(0.0, 1.0, 0.0))
    {
        view()->getCamera()->setViewMatrixAsLookAt(eye, target, up);
    }

    /** A cloud root over `cubeSize` from the origin with `points`. */
    osg::ref_ptr<osg::PagedLOD> addCloud(const std::vector<Point>& points, float cubeSize = 64.0f,
                                         float spacing = 1.0f)
    {
        osg::ref_ptr<osg::PagedLOD> root = pointTile("ARSCmark", points, osg::Vec3(), cubeSize, spacing);
        root->setName("PoRoot");
        // A root read from a tile file carries its state set (the cloud's
        // height range and so on). The cull pushes a node's state set before
        // the callback fills it, so a root without one would draw its first
        // frame unshaded.
        root->getOrCreateStateSet();
        viewer->getLiDAR()->addChild(root.get());
        return root;
    }

    void setDrawMode(float mode) { lidarState()->addUniform(new osg::Uniform("PotreeDrawmode", mode)); }

    osg::Vec4ub background() { return osg::Vec4ub(178, 178, 178, 255); }

    /** Window position (origin top-left) of a world point. */
    osg::Vec2 windowOf(const osg::Vec3& world) const
    {
        const osg::Camera* camera = view()->getCamera();
        const osg::Matrixd vpw =
            camera->getViewMatrix() * camera->getProjectionMatrix() * camera->getViewport()->computeWindowMatrix();
        const osg::Vec3d w = osg::Vec3d(world) * vpw;
        return osg::Vec2(w.x(), windowHeight - w.y());
    }

    Blob blobAt(const osg::Image& frame, const osg::Vec3& world, int radius = 40)
    {
        const osg::Vec2 w = windowOf(world);
        return blobAround(frame, int(std::lround(w.x())), int(std::lround(w.y() - 0.5f)), radius, background());
    }

    /** The expected size on screen of a point at `distance` with `spacing`. */
    double expectedSize(double spacing, double distance) const
    {
        const double slope = std::tan(15.0 * M_PI / 180.0); // the viewer's 30 degree field of view
        return 1.5 * spacing * 0.5 * windowHeight / (slope * distance);
    }
};

} // namespace

TEST_F(PointShader, TheProgramCompilesAndLinksOnThisGL)
{
    addCloud({{osg::Vec3(32, 32, 0)}});
    frames(2);
    osg::ref_ptr<ProgramLogReader> reader = new ProgramLogReader;
    pagelodCullCallBack* callback = dynamic_cast<pagelodCullCallBack*>(viewer->getLiDAR()->getCullCallback());
    ASSERT_NE(callback, nullptr) << "the scene set-up puts the callback on the LiDAR group";
    ASSERT_NE(callback->program, nullptr);
    reader->program = callback->program;
    view()->getCamera()->setFinalDrawCallback(reader.get());
    frames(1);
    view()->getCamera()->setFinalDrawCallback(nullptr);
    ASSERT_TRUE(reader->seen);
    EXPECT_TRUE(reader->compiled) << reader->shaderLogs;
    EXPECT_TRUE(reader->linked) << "program log: " << reader->programLog << "\nshader logs: " << reader->shaderLogs;
    EXPECT_EQ(reader->shaderLogs.find("error"), std::string::npos) << reader->shaderLogs;
}

TEST_F(PointShader, DrawModeZeroShowsTheStoredColourAndRoundPointsFade)
{
    Point p{osg::Vec3(32, 32, 0)};
    p.colour = osg::Vec4ub(20, 40, 230, 255);
    osg::ref_ptr<osg::PagedLOD> root = addCloud({p}, 64.0f, 2.0f);
    lidarState()->addUniform(new osg::Uniform("PotreeMaxSize", 40.0f));
    setDrawMode(0.0f);
    osg::ref_ptr<osg::Image> square = grabFrame();
    saveScreenshot(*square, "pointcloud-mode0-square");
    const Blob s = blobAt(*square, p.position);
    ASSERT_GT(s.count, 0);
    EXPECT_NEAR(s.centre.r(), 20, 3);
    EXPECT_NEAR(s.centre.g(), 40, 3);
    EXPECT_NEAR(s.centre.b(), 230, 3);

    // Round points: the corners of the square are discarded.
    root->getOrCreateStateSet()->addUniform(new osg::Uniform("isCircle", true));
    osg::ref_ptr<osg::Image> round = grabFrame();
    saveScreenshot(*round, "pointcloud-mode0-round");
    const Blob r = blobAt(*round, p.position);
    EXPECT_NEAR(r.width(), s.width(), 2);
    const double ratio = double(r.count) / double(s.count);
    EXPECT_NEAR(ratio, M_PI / 4.0, 0.1) << r.count << " of " << s.count;
}

TEST_F(PointShader, DrawModeOneColoursByClass)
{
    const std::pair<float, osg::Vec4ub> classes[] = {
        {2.0f, {255, 127, 0, 255}}, {6.0f, {255, 0, 0, 255}},   {9.0f, {64, 64, 64, 255}},
        {11.0f, {0, 0, 255, 255}},  {42.0f, {240, 240, 0, 255}}, {255.0f, {0, 0, 0, 255}},
        {3.0f, {0, 150, 0, 255}},   {13.0f, {128, 0, 160, 255}},
    };
    std::vector<Point> points;
    for (int i = 0; i < 8; ++i)
    {
        Point p{osg::Vec3(4.0f + 8.0f * i, 32, 0)};
        p.classification = classes[i].first;
        p.colour = osg::Vec4ub(200, 200, 255, 255);
        points.push_back(p);
    }
    addCloud(points, 64.0f, 1.0f);
    setDrawMode(1.0f);
    osg::ref_ptr<osg::Image> frame = grabFrame();
    saveScreenshot(*frame, "pointcloud-mode1");
    for (int i = 0; i < 8; ++i)
    {
        const Blob b = blobAt(*frame, points[i].position, 3);
        const osg::Vec4ub& want = classes[i].second;
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(b.centre[c], want[c], 3) << "class " << classes[i].first << " channel " << c;
    }
}

TEST_F(PointShader, DrawModeTwoRampsHeightFromRedToBlue)
{
    // Seen from the side: z is the height of the ramp.
    lookFrom(osg::Vec3d(32, -150, 40), osg::Vec3d(32, 0, 40), osg::Vec3d(0, 0, 1));
    std::vector<Point> points = {{osg::Vec3(16, 32, 10)}, {osg::Vec3(32, 32, 35)}, {osg::Vec3(48, 32, 60)},
                                 {osg::Vec3(24, 32, 10.1f)}, {osg::Vec3(40, 32, 70)}};
    osg::ref_ptr<osg::PagedLOD> root = addCloud(points);
    root->getOrCreateStateSet()->addUniform(new osg::Uniform("minz", 10.0f));
    root->getOrCreateStateSet()->addUniform(new osg::Uniform("maxz", 60.0f));
    setDrawMode(2.0f);
    osg::ref_ptr<osg::Image> frame = grabFrame();
    saveScreenshot(*frame, "pointcloud-mode2");
    const osg::Vec4ub expected[] = {
        {255, 0, 0, 255},   // the bottom: hue 0, red
        {0, 255, 0, 255},   // half way: hue 120, green
        {0, 0, 255, 255},   // the top: hue 240, blue
        {255, 0, 0, 255},   // hue 0.48 snaps to 0
        {0, 0, 255, 255},   // above the top: held at 240
    };
    for (int i = 0; i < 5; ++i)
    {
        const Blob b = blobAt(*frame, points[i].position, 3);
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(b.centre[c], expected[i][c], 3) << "point " << i << " channel " << c;
    }
}

TEST_F(PointShader, DrawModeTwoWithAnEmptyRampDividesByZero)
{
    // maxz equal to minz: no guard. Above it the hue is +inf, held at 240
    // (blue); below it -inf, snapped to 0 (red).
    lookFrom(osg::Vec3d(32, -100, 32), osg::Vec3d(32, 0, 32), osg::Vec3d(0, 0, 1));
    std::vector<Point> points = {{osg::Vec3(20, 32, 50)}, {osg::Vec3(44, 32, 10)}};
    osg::ref_ptr<osg::PagedLOD> root = addCloud(points);
    root->getOrCreateStateSet()->addUniform(new osg::Uniform("minz", 30.0f));
    root->getOrCreateStateSet()->addUniform(new osg::Uniform("maxz", 30.0f));
    setDrawMode(2.0f);
    osg::ref_ptr<osg::Image> frame = grabFrame();
    const Blob above = blobAt(*frame, points[0].position, 3);
    const Blob below = blobAt(*frame, points[1].position, 3);
    EXPECT_NEAR(above.centre.b(), 255, 3);
    EXPECT_NEAR(above.centre.r(), 0, 3);
    EXPECT_NEAR(below.centre.r(), 255, 3);
    EXPECT_NEAR(below.centre.b(), 0, 3);
}

TEST_F(PointShader, DrawModeThreeGreysByIntensityWithTheStepAt255)
{
    const float intensities[] = {255.0f, 256.0f, 127.5f, 32768.0f, 0.0f};
    const int expected[] = {255, 1, 128, 128, 0};
    std::vector<Point> points;
    for (int i = 0; i < 5; ++i)
    {
        Point p{osg::Vec3(8.0f + 12.0f * i, 32, 0)};
        p.intensity = intensities[i];
        p.colour = osg::Vec4ub(255, 0, 0, 255);
        points.push_back(p);
    }
    addCloud(points);
    setDrawMode(3.0f);
    osg::ref_ptr<osg::Image> frame = grabFrame();
    saveScreenshot(*frame, "pointcloud-mode3");
    for (int i = 0; i < 5; ++i)
    {
        const osg::Vec2 w = windowOf(points[i].position);
        const osg::Vec4ub c = pixelAt(*frame, int(std::lround(w.x())), int(std::lround(w.y() - 0.5f)));
        for (int ch = 0; ch < 3; ++ch)
            EXPECT_NEAR(c[ch], expected[i], 2) << "intensity " << intensities[i] << " channel " << ch;
    }
}

TEST_F(PointShader, TheFlagColourCoversEveryDrawMode)
{
    Point marked{osg::Vec3(20, 32, 0)};
    marked.flag = 7.0f;
    marked.classification = 2.0f;
    Point plain{osg::Vec3(44, 32, 0)};
    plain.flag = 3.0f;
    plain.classification = 2.0f;
    osg::ref_ptr<osg::PagedLOD> root = addCloud({marked, plain});
    root->getOrCreateStateSet()->addUniform(new osg::Uniform("flag", 7));
    root->getOrCreateStateSet()->addUniform(new osg::Uniform("flagColor", osg::Vec3(0.0f, 1.0f, 1.0f)));
    for (float mode : {0.0f, 1.0f, 3.0f})
    {
        setDrawMode(mode);
        osg::ref_ptr<osg::Image> frame = grabFrame();
        const Blob m = blobAt(*frame, marked.position, 3);
        const Blob p = blobAt(*frame, plain.position, 3);
        EXPECT_NEAR(m.centre.r(), 0, 3) << "mode " << mode;
        EXPECT_NEAR(m.centre.g(), 255, 3) << "mode " << mode;
        EXPECT_NEAR(m.centre.b(), 255, 3) << "mode " << mode;
        EXPECT_FALSE(p.centre.r() < 10 && p.centre.g() > 245 && p.centre.b() > 245) << "mode " << mode;
    }
    // Flag 0 marks nothing.
    root->getOrCreateStateSet()->addUniform(new osg::Uniform("flag", 0));
    setDrawMode(1.0f);
    osg::ref_ptr<osg::Image> frame = grabFrame();
    EXPECT_NEAR(blobAt(*frame, marked.position, 3).centre.g(), 127, 3);
}

TEST_F(PointShader, APointOfARootAloneHasTheSizeOfTheRootSpacing)
{
    // Depth 0: the size follows from "spacing" alone.
    Point p{osg::Vec3(32, 32, 0)};
    p.colour = osg::Vec4ub(255, 0, 0, 255);
    addCloud({p}, 64.0f, 2.0f);
    lidarState()->addUniform(new osg::Uniform("PotreeMaxSize", 100.0f));
    osg::ref_ptr<osg::Image> frame = grabFrame();
    const Blob b = blobAt(*frame, p.position);
    EXPECT_NEAR(b.width(), expectedSize(2.0, 100.0), 1.5);
}

TEST_F(PointShader, APointTwoVisibleLevelsDeepIsAQuarterOfTheSize)
{
    // Root cube 0..64. Octant 5 (x and z upper halves... here x high, z high)
    // is loaded, and below it octant 2. A root point inside that grandchild's
    // cube walks two levels down; one elsewhere stays at depth 0.
    // Octant 5 = 4*1 + 2*0 + 1: x in 32..64, y in 0..32, z in 32..64.
    // Its octant 2 = 4*0 + 2*1 + 0: x in 32..48, y in 16..32, z in 32..48.
    lookFrom(osg::Vec3d(32, 32, 200), osg::Vec3d(32, 32, 0));
    Point deep{osg::Vec3(40, 24, 40)};
    deep.colour = osg::Vec4ub(255, 0, 0, 255);
    Point shallow{osg::Vec3(16, 48, 40)};
    shallow.colour = osg::Vec4ub(0, 0, 255, 255);
    osg::ref_ptr<osg::PagedLOD> root = addCloud({deep, shallow}, 64.0f, 8.0f);
    osg::ref_ptr<osg::PagedLOD> child = pointTile("ARSCmark5", {}, osg::Vec3(32, 0, 32), 32.0f, 4.0f);
    osg::ref_ptr<osg::PagedLOD> grandchild = pointTile("ARSCmark2", {}, osg::Vec3(32, 16, 32), 16.0f, 2.0f);
    attachNextLevel(child.get(), {grandchild});
    attachNextLevel(root.get(), {child});
    lidarState()->addUniform(new osg::Uniform("PotreeMaxSize", 200.0f));

    osg::ref_ptr<osg::Image> frame = grabFrame();
    saveScreenshot(*frame, "pointcloud-depth-two");
    EXPECT_EQ(recordOf(tableOf(root.get()), 0)[0], 32);
    EXPECT_EQ(recordOf(tableOf(root.get()), 1)[0], 4);
    const Blob d = blobAt(*frame, deep.position, 30);
    const Blob s = blobAt(*frame, shallow.position, 30);
    const double distance = 200.0 - 40.0;
    EXPECT_NEAR(s.width(), expectedSize(8.0, distance), 1.5);
    EXPECT_NEAR(d.width(), expectedSize(2.0, distance), 1.5);
}

TEST_F(PointShader, APointOnTheUpperFaceStillWalksDownButOneAndAHalfCubesAwayEndsTheWalk)
{
    // Octant 7 is visible. A point on the cube's upper corner rounds to 1 in
    // every axis: octant 7, depth 1. A point one and a half cube lengths out
    // rounds to 2: index 14, no such bit, depth 0.
    lookFrom(osg::Vec3d(64, 64, 400), osg::Vec3d(64, 64, 0));
    Point corner{osg::Vec3(64, 64, 64)};
    corner.colour = osg::Vec4ub(255, 0, 0, 255);
    Point outside{osg::Vec3(96, 96, 96)};
    outside.colour = osg::Vec4ub(0, 0, 255, 255);
    osg::ref_ptr<osg::PagedLOD> root = addCloud({corner, outside}, 64.0f, 8.0f);
    attachNextLevel(root.get(), {pointTile("ARSCmark7", {}, osg::Vec3(32, 32, 32), 32.0f, 4.0f)});
    lidarState()->addUniform(new osg::Uniform("PotreeMaxSize", 200.0f));
    osg::ref_ptr<osg::Image> frame = grabFrame();
    EXPECT_NEAR(blobAt(*frame, corner.position, 20).width(), expectedSize(4.0, 400.0 - 64.0), 1.5);
    EXPECT_NEAR(blobAt(*frame, outside.position, 20).width(), expectedSize(8.0, 400.0 - 96.0), 1.5);
}

TEST_F(PointShader, SizesAreClampedToTheMinimumFirstAndTheMaximumWins)
{
    Point p{osg::Vec3(32, 32, 0)};
    p.colour = osg::Vec4ub(255, 0, 0, 255);
    addCloud({p}, 64.0f, 0.01f); // far below one pixel
    lidarState()->addUniform(new osg::Uniform("PotreeMinSize", 9.0f));
    lidarState()->addUniform(new osg::Uniform("PotreeMaxSize", 30.0f));
    EXPECT_NEAR(blobAt(*grabFrame(), p.position).width(), 9, 1);

    lidarState()->addUniform(new osg::Uniform("PotreeMinSize", 12.0f));
    lidarState()->addUniform(new osg::Uniform("PotreeMaxSize", 5.0f));
    EXPECT_NEAR(blobAt(*grabFrame(), p.position).width(), 5, 1);
}
