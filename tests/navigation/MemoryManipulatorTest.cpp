// The manipulator that holds several manipulators under keys.
#include "NavTestSupport.h"

#include <navigation/CXEarthManipulator>
#include <navigation/MemoryManipulator>

#include <osg/ApplicationUsage>
#include <osg/Notify>
#include <osgGA/TrackballManipulator>

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

using M = CXEarthManipulator;
using osgGA::GUIEventAdapter;

namespace
{

// A manipulator that records what it is asked.
class Recording : public osgGA::TrackballManipulator
{
public:
    std::vector<int> keys;
    int inits = 0;
    int homes = 0;
    int setByMatrixCalls = 0;
    osg::Matrixd lastSetMatrix;

    bool handle(const GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override
    {
        if (ea.getEventType() == GUIEventAdapter::KEYDOWN)
            keys.push_back(ea.getKey());
        return osgGA::TrackballManipulator::handle(ea, aa);
    }
    void init(const GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override
    {
        ++inits;
        osgGA::TrackballManipulator::init(ea, aa);
    }
    void home(const GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override
    {
        ++homes;
        osgGA::TrackballManipulator::home(ea, aa);
    }
    void setByMatrix(const osg::Matrixd& matrix) override
    {
        ++setByMatrixCalls;
        lastSetMatrix = matrix;
        osgGA::TrackballManipulator::setByMatrix(matrix);
    }
};

struct CapturingNotify : public osg::NotifyHandler
{
    std::mutex mutex;
    std::vector<std::pair<osg::NotifySeverity, std::string>> messages;
    void notify(osg::NotifySeverity severity, const char* message) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        messages.emplace_back(severity, message);
    }
};

} // namespace

TEST(MemoryManipulator, TheFirstAddedBecomesCurrentAndLaterOnesDoNot)
{
    osg::ref_ptr<MemoryManipulator> mm = new MemoryManipulator;
    EXPECT_STREQ(mm->className(), "MemoryManipulator");
    EXPECT_EQ(mm->getCurrentMatrixManipulator(), nullptr);
    mm->addMatrixManipulator('a', "ignored", nullptr);
    EXPECT_EQ(mm->getNumMatrixManipulators(), 0u);

    osg::ref_ptr<Recording> first = new Recording;
    osg::ref_ptr<Recording> second = new Recording;
    mm->setHomePosition(osg::Vec3d(1, 2, 3), osg::Vec3d(0, 0, 0), osg::Vec3d(0, 0, 1), true);
    mm->addMatrixManipulator('a', "first", first.get());
    EXPECT_EQ(mm->getCurrentMatrixManipulator(), first.get());
    // It got this object's home position and a matrix of its own.
    osg::Vec3d eye, center, up;
    first->getHomePosition(eye, center, up);
    EXPECT_EQ(eye, osg::Vec3d(1, 2, 3));
    EXPECT_TRUE(first->getAutoComputeHomePosition());
    EXPECT_EQ(first->setByMatrixCalls, 1);

    mm->addMatrixManipulator('b', "second", second.get());
    EXPECT_EQ(mm->getCurrentMatrixManipulator(), first.get());
    EXPECT_EQ(mm->getNumMatrixManipulators(), 2u);
    EXPECT_EQ(second->setByMatrixCalls, 0);
}

TEST(MemoryManipulator, AddingUnderAUsedKeyReplacesWhileCurrentStaysTheOld)
{
    osg::ref_ptr<MemoryManipulator> mm = new MemoryManipulator;
    osg::ref_ptr<Recording> first = new Recording;
    osg::ref_ptr<Recording> replacement = new Recording;
    mm->addMatrixManipulator('a', "first", first.get());
    mm->addMatrixManipulator('a', "replacement", replacement.get());
    EXPECT_EQ(mm->getNumMatrixManipulators(), 1u);
    EXPECT_EQ(mm->getMatrixManipulatorWithKey('a'), replacement.get());
    EXPECT_EQ(mm->getKeyManipMap().at('a').first, "replacement");
    EXPECT_EQ(mm->getCurrentMatrixManipulator(), first.get());
}

TEST(MemoryManipulator, NumberedManipulatorsGetOneTwoThreeAndAreNamedByClass)
{
    osg::ref_ptr<MemoryManipulator> mm = new MemoryManipulator;
    osg::ref_ptr<M> earth = new M;
    osg::ref_ptr<Recording> ball = new Recording;
    osg::ref_ptr<M> earth2 = new M;
    mm->addNumberedMatrixManipulator(earth.get());
    mm->addNumberedMatrixManipulator(nullptr);
    mm->addNumberedMatrixManipulator(ball.get());
    mm->addNumberedMatrixManipulator(earth2.get());
    ASSERT_EQ(mm->getNumMatrixManipulators(), 3u);
    EXPECT_EQ(mm->getMatrixManipulatorWithKey('1'), earth.get());
    EXPECT_EQ(mm->getMatrixManipulatorWithKey('2'), ball.get());
    EXPECT_EQ(mm->getMatrixManipulatorWithKey('3'), earth2.get());
    EXPECT_EQ(mm->getKeyManipMap().at('1').first, "CXEarthManipulator");
    EXPECT_EQ(mm->getKeyManipMap().at('2').first, "TrackballManipulator");
    EXPECT_EQ(mm->getMatrixManipulatorWithIndex(0), earth.get());
    EXPECT_EQ(mm->getMatrixManipulatorWithIndex(2), earth2.get());
    EXPECT_EQ(mm->getMatrixManipulatorWithIndex(3), nullptr);
    EXPECT_EQ(mm->getMatrixManipulatorWithKey('4'), nullptr);
    const MemoryManipulator& c = *mm;
    EXPECT_EQ(c.getMatrixManipulatorWithIndex(3), nullptr);
    EXPECT_EQ(c.getMatrixManipulatorWithIndex(1), ball.get());
    EXPECT_EQ(c.getCurrentMatrixManipulator(), earth.get());
}

TEST(MemoryManipulator, AKeySwitchesAndIsPassedOnToTheNewManipulator)
{
    osg::ref_ptr<MemoryManipulator> mm = new MemoryManipulator;
    osg::ref_ptr<Recording> first = new Recording;
    osg::ref_ptr<Recording> second = new Recording;
    mm->addMatrixManipulator('a', "first", first.get());
    mm->addMatrixManipulator('b', "second", second.get());
    first->setByMatrix(osg::Matrixd::translate(5, 6, 7));
    navtest::RecordingAdapter aa;

    osg::ref_ptr<CapturingNotify> capture = new CapturingNotify;
    osg::ref_ptr<osg::NotifyHandler> previous = osg::getNotifyHandler();
    const osg::NotifySeverity level = osg::getNotifyLevel();
    osg::setNotifyLevel(osg::INFO);
    osg::setNotifyHandler(capture.get());
    EXPECT_TRUE(mm->handle(*navtest::keyEvent(GUIEventAdapter::KEYDOWN, 'b'), aa));
    osg::setNotifyHandler(previous.get());
    osg::setNotifyLevel(level);

    EXPECT_EQ(mm->getCurrentMatrixManipulator(), second.get());
    EXPECT_EQ(second->keys, std::vector<int>{'b'});
    EXPECT_TRUE(first->keys.empty());
    EXPECT_EQ(second->inits, 1);
    // The view matrix was handed over.
    EXPECT_EQ(second->lastSetMatrix, first->getMatrix());
    bool found = false;
    for (const auto& message : capture->messages)
        if (message.second.find("Switching to manipulator: second") != std::string::npos)
        {
            found = true;
            EXPECT_EQ(message.first, osg::INFO);
        }
    EXPECT_TRUE(found);

    // Another key goes to the current one only.
    mm->handle(*navtest::keyEvent(GUIEventAdapter::KEYDOWN, 'z'), aa);
    EXPECT_EQ(second->keys, (std::vector<int>{'b', 'z'}));
    // A handled event does not switch.
    osg::ref_ptr<GUIEventAdapter> handled = navtest::keyEvent(GUIEventAdapter::KEYDOWN, 'a');
    handled->setHandled(true);
    mm->handle(*handled, aa);
    EXPECT_EQ(mm->getCurrentMatrixManipulator(), second.get());
}

TEST(MemoryManipulator, TheKeySwitchDoesNotHandOverTheHomePositionButSelectDoes)
{
    osg::ref_ptr<MemoryManipulator> mm = new MemoryManipulator;
    osg::ref_ptr<Recording> first = new Recording;
    osg::ref_ptr<Recording> second = new Recording;
    mm->addMatrixManipulator('a', "first", first.get());
    mm->addMatrixManipulator('b', "second", second.get());
    second->setHomePosition(osg::Vec3d(9, 9, 9), osg::Vec3d(0, 0, 0), osg::Vec3d(0, 0, 1));
    // The object's own home position, given to nobody yet.
    mm->osgGA::CameraManipulator::setHomePosition(osg::Vec3d(1, 1, 1), osg::Vec3d(0, 0, 0), osg::Vec3d(0, 0, 1));

    navtest::RecordingAdapter aa;
    mm->handle(*navtest::keyEvent(GUIEventAdapter::KEYDOWN, 'b'), aa);
    osg::Vec3d eye, center, up;
    second->getHomePosition(eye, center, up);
    EXPECT_EQ(eye, osg::Vec3d(9, 9, 9));

    mm->selectMatrixManipulator(0);
    EXPECT_EQ(mm->getCurrentMatrixManipulator(), first.get());
    first->getHomePosition(eye, center, up);
    EXPECT_EQ(eye, osg::Vec3d(1, 1, 1));
    EXPECT_EQ(first->lastSetMatrix, second->getMatrix());
    mm->selectMatrixManipulator(5); // out of range: nothing
    EXPECT_EQ(mm->getCurrentMatrixManipulator(), first.get());
}

TEST(MemoryManipulator, SetViewportAlwaysJumpsAtOnce)
{
    osg::ref_ptr<MemoryManipulator> mm = new MemoryManipulator;
    osg::ref_ptr<M> earth = new M;
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    mm->addMatrixManipulator('1', "earth", earth.get());
    earth->setNode(scene.get());
    const CXViewport target(osg::Vec3d(10, 20, 0), 45.0, -30.0, 300.0);
    EXPECT_TRUE(mm->SetViewport(target));
    EXPECT_FALSE(earth->_settingViewpoint);
    CXViewport out;
    EXPECT_TRUE(mm->GetViewpoint(out));
    EXPECT_TRUE(out.isValid());
    EXPECT_EQ(out.getFocalPoint(), osg::Vec3d(10, 20, 0));
    EXPECT_NEAR(out.getHeading(), 45.0, 1e-9);
    EXPECT_NEAR(out.getPitch(), -30.0, 1e-9);
    EXPECT_NEAR(out.getRange(), 300.0, 1e-9);

    // Another class: false and the argument untouched.
    osg::ref_ptr<MemoryManipulator> other = new MemoryManipulator;
    other->addMatrixManipulator('1', "ball", new Recording);
    CXViewport untouched(osg::Vec3d(1, 1, 1), 1, -1, 1);
    EXPECT_FALSE(other->GetViewpoint(untouched));
    EXPECT_EQ(untouched.getFocalPoint(), osg::Vec3d(1, 1, 1));
    EXPECT_FALSE(other->SetViewport(target));
    osg::ref_ptr<MemoryManipulator> empty = new MemoryManipulator;
    EXPECT_FALSE(empty->GetViewpoint(untouched));

    // The remembered viewpoint is only stored.
    mm->setOldViewport(target);
    EXPECT_EQ(mm->getOldViewport().getRange(), 300.0);
}

TEST(MemoryManipulator, ForwardsToTheCurrentAndToAll)
{
    osg::ref_ptr<MemoryManipulator> mm = new MemoryManipulator;
    // Nothing current yet: neutral answers instead of a crash.
    EXPECT_TRUE(mm->getMatrix().isIdentity());
    EXPECT_TRUE(mm->getInverseMatrix().isIdentity());
    EXPECT_EQ(mm->getNode(), nullptr);
    navtest::RecordingAdapter aa;
    EXPECT_FALSE(mm->handle(*navtest::frameEvent(), aa));

    osg::ref_ptr<M> earth = new M;
    osg::ref_ptr<Recording> ball = new Recording;
    mm->addMatrixManipulator('1', "earth", earth.get());
    mm->addMatrixManipulator('2', "ball", ball.get());
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    mm->setNode(scene.get());
    EXPECT_EQ(earth->getNode(), scene.get());
    EXPECT_EQ(ball->getNode(), scene.get());
    EXPECT_EQ(mm->getNode(), scene.get());

    earth->setViewpoint(CXViewport(osg::Vec3d(1, 2, 0), 0, -45, 20), 0.0);
    EXPECT_EQ(mm->getMatrix(), earth->getMatrix());
    EXPECT_EQ(mm->getInverseMatrix(), earth->getInverseMatrix());
    EXPECT_EQ(mm->getFusionDistanceMode(), osgUtil::SceneView::USE_FUSION_DISTANCE_VALUE);
    EXPECT_FLOAT_EQ(mm->getFusionDistanceValue(), 20.0f);

    mm->setAutoComputeHomePosition(false);
    EXPECT_FALSE(earth->getAutoComputeHomePosition());
    EXPECT_FALSE(ball->getAutoComputeHomePosition());
    mm->setHomePosition(osg::Vec3d(3, 3, 3), osg::Vec3d(), osg::Vec3d(0, 0, 1));
    osg::Vec3d eye, center, up;
    earth->getHomePosition(eye, center, up);
    EXPECT_EQ(eye, osg::Vec3d(3, 3, 3));

    mm->home(*navtest::frameEvent(), aa);
    EXPECT_EQ(ball->homes, 1);

    // The interface's own home computation (the bound from the south, no
    // lift) reaches the earth manipulator, not its own override.
    osg::ref_ptr<osg::Geode> box = new osg::Geode;
    box->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(0, 0, 0), osg::Vec3(100, 0, 0), osg::Vec3(0, 100, 0)));
    scene->addChild(box.get());
    mm->computeHomePosition();
    earth->getHomePosition(eye, center, up);
    EXPECT_NEAR(eye.z(), scene->getBound().center().z(), 1e-4);
    EXPECT_LT(eye.y(), scene->getBound().center().y() - 3.0 * scene->getBound().radius());
    earth->computeHomePosition();
    earth->getHomePosition(eye, center, up);
    EXPECT_NEAR(eye.z(), scene->getBound().center().z() + 0.0001 * scene->getBound().radius(), 1e-4);
}

TEST(MemoryManipulator, UsageListsTheKeysAndMarksTheCurrent)
{
    osg::ref_ptr<MemoryManipulator> mm = new MemoryManipulator;
    mm->addMatrixManipulator('1', "earth", new M);
    mm->addMatrixManipulator('2', "ball", new Recording);
    osg::ref_ptr<osg::ApplicationUsage> usage = new osg::ApplicationUsage;
    mm->getUsage(*usage);
    const auto& bindings = usage->getKeyboardMouseBindings();
    ASSERT_TRUE(bindings.count("1"));
    EXPECT_EQ(bindings.at("1"), "Select 'earth' camera manipulator (default)");
    EXPECT_EQ(bindings.at("2"), "Select 'ball' camera manipulator");
}
