// What the point cloud cull callback hangs on each cloud root, culled
// without a window.
#include "OctreeTestSupport.h"

#include <pointcloud/PotreeProgram>

#include <gtest/gtest.h>

#include <osg/ClipPlane>
#include <osg/Group>
#include <osg/Program>

#include <cmath>

using namespace cxtest;

namespace
{

struct Scene
{
    osg::ref_ptr<osg::Group> lidar = new osg::Group;
    osg::ref_ptr<pagelodCullCallBack> callback = new pagelodCullCallBack;

    Scene() { lidar->setCullCallback(callback.get()); }

    osg::ref_ptr<osg::PagedLOD> addRoot(const std::string& name = "PoRoot")
    {
        osg::ref_ptr<osg::PagedLOD> root = makeTile("ARSCmark");
        root->setName(name);
        lidar->addChild(root.get());
        return root;
    }
};

const osg::Matrixd kPerspective = osg::Matrixd::perspective(40.0, 4.0 / 3.0, 1.0, 10000.0);
const osg::Matrixd kOrtho = osg::Matrixd::ortho(-50.0, 50.0, -30.0, 45.0, -1000.0, 1000.0);

} // namespace

TEST(PointCloudCullCallback, ARootGetsTheTableTheViewUniformsAndTheProgram)
{
    Scene scene;
    osg::ref_ptr<osg::PagedLOD> root = scene.addRoot();
    cullOnce(scene.lidar.get(), 1, kPerspective, osg::Vec3d(0.0, -100.0, 0.0), osg::Vec3d(), 480.0);

    osg::StateSet* state = root->getStateSet();
    ASSERT_NE(state, nullptr);
    ASSERT_NE(tableOf(root.get()), nullptr);
    EXPECT_EQ(tableOf(root.get())->getImage()->s(), 2048);

    const osg::Uniform* visibleNodes = state->getUniform("visibleNodes");
    ASSERT_NE(visibleNodes, nullptr);
    EXPECT_EQ(visibleNodes->getType(), osg::Uniform::INT);
    int unit = -1;
    visibleNodes->get(unit);
    EXPECT_EQ(unit, 0);

    EXPECT_FLOAT_EQ(floatUniform(state, "slope"), static_cast<float>(std::tan(20.0 * M_PI / 180.0)));
    EXPECT_FLOAT_EQ(floatUniform(state, "vHeight"), 480.0f);
    EXPECT_FLOAT_EQ(floatUniform(state, "projectionMode"), 0.0f);
    EXPECT_EQ(state->getUniform("orthoHeight"), nullptr);
    EXPECT_FLOAT_EQ(floatUniform(state, "isClipPlane"), 0.0f);
    EXPECT_EQ(state->getUniform("plane0"), nullptr);

    osg::Program* program = dynamic_cast<osg::Program*>(state->getAttribute(osg::StateAttribute::PROGRAM));
    ASSERT_NE(program, nullptr);
    EXPECT_EQ(program, scene.callback->program);
    EXPECT_EQ(program->getName(), "Potree");
    EXPECT_EQ(state->getMode(0x8642), osg::StateAttribute::ON);
}

TEST(PointCloudCullCallback, UniformsAreNewObjectsEachCull)
{
    Scene scene;
    osg::ref_ptr<osg::PagedLOD> root = scene.addRoot();
    cullOnce(scene.lidar.get(), 1);
    osg::ref_ptr<osg::Uniform> slope = root->getStateSet()->getUniform("slope");
    osg::ref_ptr<osg::Uniform> height = root->getStateSet()->getUniform("vHeight");
    cullOnce(scene.lidar.get(), 2);
    EXPECT_NE(root->getStateSet()->getUniform("slope"), slope.get());
    EXPECT_NE(root->getStateSet()->getUniform("vHeight"), height.get());
}

TEST(PointCloudCullCallback, OnlyPagedNodesNamedPoRootWithAChildAreRoots)
{
    Scene scene;
    osg::ref_ptr<osg::PagedLOD> other = scene.addRoot("PoRoot2");
    osg::ref_ptr<osg::PagedLOD> childless = new osg::PagedLOD;
    childless->setName("PoRoot");
    scene.lidar->addChild(childless.get());
    osg::ref_ptr<osg::Group> group = new osg::Group;
    group->setName("PoRoot");
    group->addChild(makeTile("ARSCmark").get());
    scene.lidar->addChild(group.get());

    cullOnce(scene.lidar.get(), 1);
    EXPECT_EQ(tableOf(other.get()), nullptr);
    EXPECT_EQ(childless->getStateSet(), nullptr);
    EXPECT_EQ(tableOf(group.get()), nullptr);
    EXPECT_EQ(scene.callback->program, nullptr);
}

TEST(PointCloudCullCallback, TheCallbackSpreadsOverEveryNodeBelow)
{
    Scene scene;
    osg::ref_ptr<osg::PagedLOD> root = scene.addRoot();
    cullOnce(scene.lidar.get(), 1);
    EXPECT_EQ(root->getCullCallback(), scene.callback.get());
    osg::Node* content = root->getChild(0);
    EXPECT_EQ(content->getCullCallback(), scene.callback.get());
    osg::Node* geode = content->asGroup()->getChild(0);
    EXPECT_EQ(geode->getCullCallback(), scene.callback.get());
    EXPECT_EQ(geode->asGroup()->getChild(0)->getCullCallback(), scene.callback.get());
}

TEST(PointCloudCullCallback, AFreshlyLoadedTileGetsTheCallbackAtTheFirstCullThatReachesItsParent)
{
    Scene scene;
    osg::ref_ptr<osg::PagedLOD> root = scene.addRoot();
    cullOnce(scene.lidar.get(), 1);

    // The pager merges a next level between two frames.
    osg::ref_ptr<osg::PagedLOD> fresh = makeTile("ARSCmark3");
    osg::Group* level = attachNextLevel(root.get(), {fresh});
    EXPECT_EQ(level->getCullCallback(), nullptr);
    EXPECT_EQ(fresh->getCullCallback(), nullptr);

    cullOnce(scene.lidar.get(), 2);
    EXPECT_EQ(level->getCullCallback(), scene.callback.get());
    EXPECT_EQ(fresh->getCullCallback(), scene.callback.get());
    EXPECT_EQ(fresh->getChild(0)->getCullCallback(), scene.callback.get());
    // And the fresh tile is in this cull's table already.
    EXPECT_EQ(recordOf(tableOf(root.get()), 0), (std::array<int, 4>{8, 1, 0, 0}));
    EXPECT_EQ(vsnStartOf(contentOf(fresh.get())), 1);
}

TEST(PointCloudCullCallback, APerspectiveCameraLeavesOrthoHeightAndAnOrthographicOneLeavesSlope)
{
    Scene scene;
    osg::ref_ptr<osg::PagedLOD> root = scene.addRoot();
    osg::StateSet* state = nullptr;

    cullOnce(scene.lidar.get(), 1, kPerspective);
    state = root->getStateSet();
    EXPECT_EQ(state->getUniform("orthoHeight"), nullptr);
    const float slope = floatUniform(state, "slope");
    EXPECT_FLOAT_EQ(slope, static_cast<float>(std::tan(20.0 * M_PI / 180.0)));

    cullOnce(scene.lidar.get(), 2, kOrtho);
    EXPECT_FLOAT_EQ(floatUniform(state, "projectionMode"), 1.0f);
    EXPECT_FLOAT_EQ(floatUniform(state, "orthoHeight"), 45.0f); // top, not top - bottom
    EXPECT_FLOAT_EQ(floatUniform(state, "slope"), slope);

    osg::ref_ptr<osg::Uniform> orthoHeight = state->getUniform("orthoHeight");
    cullOnce(scene.lidar.get(), 3, osg::Matrixd::perspective(60.0, 1.0, 1.0, 100.0));
    EXPECT_FLOAT_EQ(floatUniform(state, "projectionMode"), 0.0f);
    EXPECT_FLOAT_EQ(floatUniform(state, "slope"), static_cast<float>(std::tan(30.0 * M_PI / 180.0)));
    EXPECT_EQ(state->getUniform("orthoHeight"), orthoHeight.get());
}

TEST(PointCloudCullCallback, AProjectionThatIsNeitherGivesModeMinusOneAndKeepsBoth)
{
    Scene scene;
    osg::ref_ptr<osg::PagedLOD> root = scene.addRoot();
    cullOnce(scene.lidar.get(), 1, kPerspective);
    cullOnce(scene.lidar.get(), 2, kOrtho);
    osg::StateSet* state = root->getStateSet();
    osg::ref_ptr<osg::Uniform> slope = state->getUniform("slope");
    osg::ref_ptr<osg::Uniform> orthoHeight = state->getUniform("orthoHeight");

    // A projective matrix that is neither a frustum nor a box.
    osg::Matrixd neither = kPerspective;
    neither(2, 3) = -0.5;
    neither(3, 3) = 0.25;
    double a, b, c, d, e, f;
    ASSERT_FALSE(neither.getPerspective(a, b, c, d));
    ASSERT_FALSE(neither.getOrtho(a, b, c, d, e, f));
    // Culling cannot use it for the frustum; keep the cloud in view anyway.
    scene.lidar->setCullingActive(false);
    root->setCullingActive(false);
    root->getChild(0)->setCullingActive(false);
    cullOnce(scene.lidar.get(), 3, neither);

    EXPECT_FLOAT_EQ(floatUniform(state, "projectionMode"), -1.0f);
    EXPECT_EQ(state->getUniform("slope"), slope.get());
    EXPECT_EQ(state->getUniform("orthoHeight"), orthoHeight.get());
}

TEST(PointCloudCullCallback, ClipPlanesAreDeliveredOnlyWhenPlaneZeroIsExactlyOn)
{
    Scene scene;
    osg::ref_ptr<osg::PagedLOD> root = scene.addRoot();
    osg::StateSet* state = root->getOrCreateStateSet();
    const osg::Vec4d planes[4] = {{1, 0, 0, -1}, {0, 1, 0, -2}, {0, 0, 1, -3}, {-1, 0, 0, 4}};
    for (unsigned int i = 0; i < 4; ++i)
        state->setAttribute(new osg::ClipPlane(i, planes[i]));

    // The attribute alone, without the mode: off.
    cullOnce(scene.lidar.get(), 1);
    EXPECT_FLOAT_EQ(floatUniform(state, "isClipPlane"), 0.0f);
    EXPECT_EQ(state->getUniform("plane0"), nullptr);

    // ON with OVERRIDE is not exactly ON: off.
    state->setMode(GL_CLIP_PLANE0, osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    cullOnce(scene.lidar.get(), 2);
    EXPECT_FLOAT_EQ(floatUniform(state, "isClipPlane"), 0.0f);
    EXPECT_EQ(state->getUniform("plane0"), nullptr);

    state->setMode(GL_CLIP_PLANE0, osg::StateAttribute::ON);
    cullOnce(scene.lidar.get(), 3);
    EXPECT_FLOAT_EQ(floatUniform(state, "isClipPlane"), 1.0f);
    const char* names[4] = {"plane0", "plane1", "plane2", "plane3"};
    for (int i = 0; i < 4; ++i)
    {
        const osg::Uniform* uniform = state->getUniform(names[i]);
        ASSERT_NE(uniform, nullptr) << names[i];
        EXPECT_EQ(uniform->getType(), osg::Uniform::FLOAT_VEC4);
        osg::Vec4f value;
        uniform->get(value);
        EXPECT_EQ(value, osg::Vec4f(planes[i])) << names[i];
    }

    // Switched off again: the flag drops, the planes stay as they were.
    osg::ref_ptr<osg::Uniform> plane2 = state->getUniform("plane2");
    state->setMode(GL_CLIP_PLANE0, osg::StateAttribute::OFF);
    cullOnce(scene.lidar.get(), 4);
    EXPECT_FLOAT_EQ(floatUniform(state, "isClipPlane"), 0.0f);
    EXPECT_EQ(state->getUniform("plane2"), plane2.get());
}

TEST(PointCloudCullCallback, OnlyPlaneZeroIsTestedAndAMissingOtherPlaneIsLeftOut)
{
    Scene scene;
    osg::ref_ptr<osg::PagedLOD> root = scene.addRoot();
    osg::StateSet* state = root->getOrCreateStateSet();
    state->setAttribute(new osg::ClipPlane(0, osg::Vec4d(0, 0, 1, 0)));
    state->setMode(GL_CLIP_PLANE0, osg::StateAttribute::ON);
    cullOnce(scene.lidar.get(), 1);
    EXPECT_FLOAT_EQ(floatUniform(state, "isClipPlane"), 1.0f);
    EXPECT_NE(state->getUniform("plane0"), nullptr);
    EXPECT_EQ(state->getUniform("plane1"), nullptr);
}

TEST(PointCloudCullCallback, TwoRootsHaveTheirOwnTablesAndShareOneProgram)
{
    Scene scene;
    osg::ref_ptr<osg::PagedLOD> first = scene.addRoot();
    osg::ref_ptr<osg::PagedLOD> second = scene.addRoot();
    attachNextLevel(second.get(), {makeTile("ARSCmark2")});
    cullOnce(scene.lidar.get(), 1);

    ASSERT_NE(tableOf(first.get()), nullptr);
    ASSERT_NE(tableOf(second.get()), nullptr);
    EXPECT_NE(tableOf(first.get()), tableOf(second.get()));
    EXPECT_EQ(recordOf(tableOf(first.get()), 0)[0], 0);
    EXPECT_EQ(recordOf(tableOf(second.get()), 0)[0], 4);
    EXPECT_NE(first->getStateSet()->getUniform("vHeight"), second->getStateSet()->getUniform("vHeight"));
    const osg::StateAttribute* a = first->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM);
    const osg::StateAttribute* b = second->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM);
    EXPECT_NE(a, nullptr);
    EXPECT_EQ(a, b);

    // The program outlives the roots that carried it.
    osg::Program* program = scene.callback->program;
    scene.lidar->removeChildren(0, scene.lidar->getNumChildren());
    first = nullptr;
    second = nullptr;
    osg::ref_ptr<osg::PagedLOD> third = scene.addRoot();
    cullOnce(scene.lidar.get(), 2);
    EXPECT_EQ(third->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM), program);
}

TEST(PotreeProgramFactory, TheProgramHasItsNameShadersAndAttributeBindings)
{
    osg::ref_ptr<osg::Program> program = createPotreeProgram();
    EXPECT_EQ(program->getName(), "Potree");
    ASSERT_EQ(program->getNumShaders(), 2u);
    EXPECT_EQ(program->getShader(0)->getType(), osg::Shader::VERTEX);
    EXPECT_EQ(program->getShader(1)->getType(), osg::Shader::FRAGMENT);
    const osg::Program::AttribBindingList& bindings = program->getAttribBindingList();
    const std::pair<const char*, GLuint> expected[] = {{"position", 10},      {"classfication", 15},
                                                       {"intensity", 14},     {"usingFlag", 13},
                                                       {"returnNumber", 12},  {"numberOfReturns", 11}};
    EXPECT_EQ(bindings.size(), 6u);
    for (const auto& [name, location] : expected)
    {
        auto it = bindings.find(name);
        ASSERT_NE(it, bindings.end()) << name;
        EXPECT_EQ(it->second, location) << name;
    }
    // Both sources begin with the inactive version comment.
    const std::string vertex = program->getShader(0)->getShaderSource();
    const std::string fragment = program->getShader(1)->getShaderSource();
    EXPECT_EQ(vertex.rfind("//#version 130\n", 0), 0u);
    EXPECT_EQ(fragment.rfind("//#version 130\n", 0), 0u);
    EXPECT_EQ(vertex, potreeVertexShaderSource());
    EXPECT_EQ(fragment, potreeFragmentShaderSource());
}

TEST(PotreeProgramFactory, TheReferenceIsReleasedToTheCaller)
{
    osg::Program* program = createPotreeProgram();
    EXPECT_EQ(program->referenceCount(), 0);
    osg::ref_ptr<osg::Program> owner = program;
    EXPECT_EQ(program->referenceCount(), 1);
}
