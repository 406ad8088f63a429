// The scene objects of the sample on a real X11 window: the enterprises'
// quadtrees page in through ".qtn" names and the models' files by distance
// as the camera comes down; a model is found, highlighted, coloured, hidden;
// an adjustment saved survives a new viewer; flying away expires them.
#include "SampleMapFixture.h"
#include "TempDir.h"

#include <objects/CObjManager>
#include <oblique/ReadosgbCallback>

#include <osgDB/FileNameUtils>
#include <osgDB/ReadFile>
#include <osgDB/Registry>
#include <osgUtil/IntersectionVisitor>
#include <osgUtil/LineSegmentIntersector>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <mutex>
#include <set>

using OBJManage::CModel;

namespace
{

// Counts the names the pager reads, by extension. It is the viewer's own
// read callback, which leaves every read without it in its options as read.
class ReadRecorder : public ReadosgbCallback
{
public:
    osgDB::ReaderWriter::ReadResult readNode(const std::string& fileName, const osgDB::Options* options) override
    {
        const std::string extension = osgDB::getLowerCaseFileExtension(fileName);
        {
            std::lock_guard<std::mutex> lock(_mutex);
            ++_counts[extension];
        }
        return ReadosgbCallback::readNode(fileName, options);
    }

    int count(const std::string& extension) const
    {
        std::lock_guard<std::mutex> lock(_mutex);
        const auto it = _counts.find(extension);
        return it == _counts.end() ? 0 : it->second;
    }

private:
    mutable std::mutex _mutex;
    std::map<std::string, int> _counts;
};

float depthAt(const osg::Image& depth, int x, int y)
{
    return *reinterpret_cast<const float*>(depth.data(x, depth.t() - 1 - y));
}

} // namespace

/** The sample with its scene objects loaded as the demo host loads them. */
class SampleObjects : public cxtest::SampleMapFixture
{
protected:
    void SetUp() override
    {
        storePath = basePath + "/data/objects.db";
        ASSERT_TRUE(std::filesystem::is_regular_file(storePath))
            << "the sample has no object store: prepare it with scripts/prepare-data.sh";
        SampleMapFixture::SetUp();
        if (HasFatalFailure())
            return;
        // In the place of the one the viewer installed.
        recorder = new ReadRecorder;
        osgDB::Registry::instance()->setReadFileCallback(recorder.get());
        capture->setCaptureDepth(true);
        loadObjects(storePath);
    }

    void TearDown() override
    {
        SampleMapFixture::TearDown();
        osgDB::Registry::instance()->setReadFileCallback(nullptr);
        OBJManage::GetObjManager()->enterpriseMap.clear();
        OBJManage::GetObjManager()->enterIDMap.clear();
        OBJManage::GetObjManager()->ClearHighLightObjList();
        OBJManage::GetObjManager()->ClearColorObjList();
    }

    void loadObjects(const std::string& store)
    {
        viewer->modelRootPath = basePath + "/models/";
        viewer->objManager = OBJManage::GetObjManager();
        OBJManage::GetObjManager()->Init(store);
        if (viewer->getTerrain()->getNumParents() == 0)
            viewer->getRoot()->addChild(viewer->getTerrain());
    }

    /** The tallest building of the store: the one the tests look at. */
    osg::ref_ptr<DBManage::ShowObjProperty> tallestBuilding()
    {
        osg::ref_ptr<DBManage::ShowObjProperty> best;
        for (int id = 1; id < 2000; ++id)
        {
            osg::ref_ptr<DBManage::ShowObjProperty> o = DBManage::getDBManger()->ShowObjQueryInfo(id);
            if (o.valid() && o->objType == 0 && (!best.valid() || o->radius > best->radius))
                best = o;
        }
        return best;
    }

    /** Looks at the object's foot from the south, `range` away and 25
      * degrees down, and waits for everything to page in. */
    void lookAtObject(const DBManage::ShowObjProperty& o, double range)
    {
        globe::EarthManipulator* m = globeManipulator();
        m->setViewpoint(m->createViewpoint(o.posX, o.posY, 0.0, 0.0, -25.0, range), 0.0);
        ASSERT_TRUE(settle());
    }

    std::string storePath;
    osg::ref_ptr<ReadRecorder> recorder;
};

TEST_F(SampleObjects, ComingDownPagesTheQuadtreeAndTheModelFilesIn)
{
    ASSERT_EQ(OBJManage::GetObjManager()->enterpriseMap.size(), 3u);
    ASSERT_TRUE(settle());
    // From 20,000 km nothing of the objects is asked for.
    EXPECT_EQ(recorder->count("qtn"), 0);
    EXPECT_EQ(recorder->count("osgb"), 0);

    osg::ref_ptr<DBManage::ShowObjProperty> tower = tallestBuilding();
    ASSERT_TRUE(tower.valid());
    // Down to 300 m from the tower, in one flight.
    globe::EarthManipulator* m = globeManipulator();
    m->setViewpoint(m->createViewpoint(tower->posX, tower->posY, 0.0, 0.0, -30.0, 300.0), 4.0);
    ASSERT_TRUE(settle(240.0));
    EXPECT_GT(recorder->count("qtn"), 0) << "no quadtree node was read";
    EXPECT_GT(recorder->count("osgb"), 0) << "no model file was read";
    CModel* model = OBJManage::GetObjManager()->GetObj(tower->objID);
    ASSERT_NE(model, nullptr) << "the tower's model is not in the scene";
    EXPECT_EQ(model->getName(), tower->objName);
    EXPECT_GT(model->getQtnID(), 0);
    std::printf("%d quadtree nodes and %d model files read on the way down\n", recorder->count("qtn"),
                recorder->count("osgb"));

    osg::ref_ptr<osg::Image> frame = grabFrame();
    cxtest::saveScreenshot(*frame, "objects_tower_300m");
}

TEST_F(SampleObjects, HighlightColourAndVisibilityShowOnScreen)
{
    ASSERT_TRUE(settle());
    osg::ref_ptr<DBManage::ShowObjProperty> tower = tallestBuilding();
    ASSERT_TRUE(tower.valid());
    // From almost straight above: the tallest roof is hidden by nothing.
    globe::EarthManipulator* m = globeManipulator();
    m->setViewpoint(m->createViewpoint(tower->posX, tower->posY, 0.0, 0.0, -80.0, 600.0), 0.0);
    ASSERT_TRUE(settle());
    CModel* model = OBJManage::GetObjManager()->GetObj(tower->objID);
    ASSERT_NE(model, nullptr);

    // The roof: where a ray from high above the tower's foot meets the model.
    const osg::Vec3d foot = worldOf(tower->posX, tower->posY, tower->posZ);
    const osg::Vec3d high = worldOf(tower->posX, tower->posY, tower->posZ + 2000.0);
    osg::ref_ptr<osgUtil::LineSegmentIntersector> ray = new osgUtil::LineSegmentIntersector(high, foot);
    osgUtil::IntersectionVisitor visitor(ray.get());
    model->accept(visitor);
    ASSERT_TRUE(ray->containsIntersections()) << "the ray misses the tower";
    const osg::Vec3d roof = ray->getFirstIntersection().getWorldIntersectPoint();
    const osg::Vec3d w = toWindow(roof);
    const int x = static_cast<int>(std::lround(w.x()));
    const int y = windowHeight - 1 - static_cast<int>(std::lround(w.y()));
    ASSERT_TRUE(x > 5 && x < windowWidth - 5 && y > 5 && y < windowHeight - 5) << x << ", " << y;
    auto patch = [&](const osg::Image& image) {
        int r = 0, g = 0, b = 0;
        for (int dy = -2; dy <= 2; ++dy)
            for (int dx = -2; dx <= 2; ++dx)
            {
                const osg::Vec4ub p = cxtest::pixelAt(image, x + dx, y + dy);
                r += p.r();
                g += p.g();
                b += p.b();
            }
        return osg::Vec3i(r / 25, g / 25, b / 25);
    };
    osg::ref_ptr<osg::Image> plain = grabFrame();
    osg::ref_ptr<osg::Image> plainDepth = capture->depth();
    cxtest::saveScreenshot(*plain, "objects_tower_plain");
    const float towerDepth = depthAt(*plainDepth, x, y);

    model->SetModelHighLight(true);
    osg::ref_ptr<osg::Image> yellow = grabFrame();
    cxtest::saveScreenshot(*yellow, "objects_tower_highlighted");
    const osg::Vec3i hy = patch(*yellow);
    EXPECT_GT(hy.x(), hy.z() + 60) << "not yellow: " << hy.x() << " " << hy.y() << " " << hy.z();
    EXPECT_GT(hy.y(), hy.z() + 60) << "not yellow";

    model->SetModelHighLight(false);
    model->SetModelColor(1);
    osg::ref_ptr<osg::Image> red = grabFrame();
    cxtest::saveScreenshot(*red, "objects_tower_coloured");
    const osg::Vec3i hr = patch(*red);
    EXPECT_GT(hr.x(), hr.y() + 60) << "not red: " << hr.x() << " " << hr.y() << " " << hr.z();
    EXPECT_GT(hr.x(), hr.z() + 60) << "not red";

    // Hidden: the pixel shows what lies behind the tower, farther away.
    model->SetObjVisible(false);
    frames(1);
    grabFrame();
    osg::ref_ptr<osg::Image> hiddenDepth = capture->depth();
    EXPECT_GT(depthAt(*hiddenDepth, x, y), towerDepth) << "the tower still covers the pixel";
    model->SetObjVisible(true);
    model->SetModelColor(0); // leaves the colour on: the quirk of the value 0
    EXPECT_EQ(model->getStateSet()->getAttribute(osg::StateAttribute::MATERIAL), CModel::colorMaterial());
}

TEST_F(SampleObjects, SavedAdjustmentsSurviveANewViewer)
{
    // A copy of the store, so that the sample stays as it is.
    cxtest::TempDir copyDir;
    const std::string copy = (copyDir.path() / "objects.db").string();
    std::filesystem::copy_file(storePath, copy);
    OBJManage::GetObjManager()->Release();
    OBJManage::GetObjManager()->enterpriseMap.clear();
    loadObjects(copy);
    ASSERT_TRUE(settle());
    osg::ref_ptr<DBManage::ShowObjProperty> tower = tallestBuilding();
    ASSERT_TRUE(tower.valid());
    lookAtObject(*tower, 800.0);
    CModel* model = OBJManage::GetObjManager()->GetObj(tower->objID);
    ASSERT_NE(model, nullptr);

    OBJManage::modeData edit;
    edit.objID = tower->objID;
    edit.pos.set(tower->posX + 0.001, tower->posY, tower->posZ);
    edit.angle.set(45.0, 0.0, 0.0);
    edit.scale.set(1.0, 1.0, 1.2);
    model->SetModelData(edit);
    ASSERT_TRUE(model->SaveAdjustmentModel());

    // A new viewer, as after a restart of the host.
    TearDown();
    OBJManage::GetObjManager()->Release();
    SampleMapFixture::SetUp();
    ASSERT_FALSE(HasFatalFailure());
    loadObjects(copy);
    ASSERT_TRUE(settle());
    lookAtObject(*tower, 800.0);
    CModel* again = OBJManage::GetObjManager()->GetObj(tower->objID);
    ASSERT_NE(again, nullptr) << "the moved tower did not page in";
    EXPECT_NEAR(again->GetPos().x(), tower->posX + 0.001, 1e-9);
    EXPECT_NEAR(again->Getangle().x(), 45.0, 1e-5);
    EXPECT_NEAR(again->GetScale().z(), 1.2, 1e-5);
    osg::Vec3d expected = worldOf(tower->posX + 0.001, tower->posY, tower->posZ);
    EXPECT_LT((again->getTransform()->getMatrix().getTrans() - expected).length(), 0.01);
}

TEST_F(SampleObjects, FlyingAwayExpiresThem)
{
    ASSERT_TRUE(settle());
    osg::ref_ptr<DBManage::ShowObjProperty> tower = tallestBuilding();
    ASSERT_TRUE(tower.valid());
    lookAtObject(*tower, 600.0);
    ASSERT_NE(OBJManage::GetObjManager()->GetObj(tower->objID), nullptr);

    // To South America, low enough that the terrain there pages in and
    // pushes the pager past its number of paged nodes, and a while there.
    globe::EarthManipulator* m = globeManipulator();
    for (const auto& [lon, lat] : {std::pair{-60.0, -30.0}, {-65.0, -25.0}, {-55.0, -20.0}, {-70.0, -35.0}})
    {
        m->setViewpoint(m->createViewpoint(lon, lat, 0.0, 0.0, -30.0, 20000.0), 0.0);
        ASSERT_TRUE(settle());
    }
    const auto start = std::chrono::steady_clock::now();
    while (OBJManage::GetObjManager()->GetObj(tower->objID) && cxtest::secondsSince(start) < 60.0)
        frames(10);
    EXPECT_EQ(OBJManage::GetObjManager()->GetObj(tower->objID), nullptr) << "the tower was not expired";
}

TEST_F(SampleObjects, TheParkPagesInAndLiesOverTheGround)
{
    ASSERT_TRUE(settle());
    osg::ref_ptr<DBManage::ShowObjProperty> park;
    for (int id = 1; id < 2000 && !park.valid(); ++id)
    {
        osg::ref_ptr<DBManage::ShowObjProperty> o = DBManage::getDBManger()->ShowObjQueryInfo(id);
        if (o.valid() && o->objType == 1)
            park = o;
    }
    ASSERT_TRUE(park.valid()) << "the sample has no terrain model";
    // 3.5 km away: the park's quadtree node (one object, a cell that covers
    // its 1.3 km radius) and its crude file page in.
    globe::EarthManipulator* m = globeManipulator();
    m->setViewpoint(m->createViewpoint(park->posX, park->posY, 0.0, 0.0, -45.0, 3500.0), 0.0);
    ASSERT_TRUE(settle());
    CModel* model = OBJManage::GetObjManager()->GetObj(park->objID);
    ASSERT_NE(model, nullptr) << "the park did not page in";
    EXPECT_GT(model->getBound().radius(), 1000.0);

    // Over a grid across the park the model lies above the globe's ground,
    // so that the ground does not show through it.
    int checked = 0;
    for (int i = -2; i <= 2; ++i)
        for (int j = -2; j <= 2; ++j)
        {
            // Off the mesh's grid lines, where a ray may slip between two
            // triangles.
            const double lon = park->posX + i * 0.002 + 0.00031, lat = park->posY + j * 0.0015 + 0.00017;
            const osg::Vec3d top = worldOf(lon, lat, 3000.0), bottom = worldOf(lon, lat, -200.0);
            osg::ref_ptr<osgUtil::LineSegmentIntersector> onModel = new osgUtil::LineSegmentIntersector(top, bottom);
            osgUtil::IntersectionVisitor modelVisitor(onModel.get());
            model->accept(modelVisitor);
            osg::ref_ptr<osgUtil::LineSegmentIntersector> onGround = new osgUtil::LineSegmentIntersector(top, bottom);
            osgUtil::IntersectionVisitor groundVisitor(onGround.get());
            viewer->mapNode->getTerrainEngine()->accept(groundVisitor);
            ASSERT_TRUE(onModel->containsIntersections()) << lon << ", " << lat << " is off the park";
            ASSERT_TRUE(onGround->containsIntersections());
            const double above = (onModel->getFirstIntersection().getWorldIntersectPoint() - bottom).length()
                                 - (onGround->getFirstIntersection().getWorldIntersectPoint() - bottom).length();
            EXPECT_GT(above, 0.0) << "the ground shows through the park at " << lon << ", " << lat;
            ++checked;
        }
    EXPECT_EQ(checked, 25);
    osg::ref_ptr<osg::Image> frame = grabFrame();
    cxtest::saveScreenshot(*frame, "objects_park_3500m");
}
