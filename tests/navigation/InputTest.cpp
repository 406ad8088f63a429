// Input dispatch: the frame clock, the event stack, clicks, tasks,
// continuous motion and the pager switch.
#include "NavTestSupport.h"

#include <navigation/CXEarthManipulator>

#include <osg/Geode>
#include <osg/Geometry>

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

using M = CXEarthManipulator;
using osgGA::GUIEventAdapter;
using navtest::mouseEvent;

namespace
{

struct Bound
{
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    osg::ref_ptr<osgViewer::View> view = navtest::makeView();
    navtest::RecordingAdapter aa{view.get()};
    osg::ref_ptr<M> m = new M;

    Bound()
    {
        osg::ref_ptr<osg::Geode> ground = new osg::Geode;
        ground->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(-5000, -5000, 0), osg::Vec3(10000, 0, 0),
                                                            osg::Vec3(0, 10000, 0)));
        scene->addChild(ground.get());
        view->setSceneData(scene.get());
        m->setNode(scene.get());
        m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 0.0, -60.0, 500.0), 0.0);
    }

    bool send(const osg::ref_ptr<GUIEventAdapter>& ea) { return m->handle(*ea, aa); }
    bool frame() { return send(navtest::frameEvent()); }
    bool acceptsRequests() { return view->getDatabasePager()->getAcceptNewDatabaseRequests(); }
};

double now()
{
    return osg::Timer::instance()->time_s();
}

} // namespace

TEST(ManipulatorInput, NothingIsHandledAndTheClockStandsUntilEstablished)
{
    osg::ref_ptr<M> m = new M;
    osg::ref_ptr<osgViewer::View> view = navtest::makeView();
    navtest::RecordingAdapter aa(view.get());
    const double t = now();
    for (auto ea : {navtest::frameEvent(), mouseEvent(GUIEventAdapter::PUSH, 10, 10, 1, t, 1),
                    mouseEvent(GUIEventAdapter::DRAG, 20, 10, 1, t), mouseEvent(GUIEventAdapter::RELEASE, 20, 10, 0, t, 1),
                    navtest::keyEvent(GUIEventAdapter::KEYDOWN, ' '), navtest::scrollEvent(GUIEventAdapter::SCROLL_DOWN)})
        EXPECT_FALSE(m->handle(*ea, aa)) << ea->getEventType();
    EXPECT_EQ(m->_timeNow, 0.0);
    EXPECT_EQ(m->_frameCount, 0u);
    EXPECT_EQ(aa.redraws, 0);
    EXPECT_FALSE(m->_lastEvent.valid());
}

TEST(ManipulatorInput, TheFrameStepKeepsTheClock)
{
    Bound b;
    EXPECT_FALSE(b.frame());
    const double first = b.m->_timeNow;
    EXPECT_GT(first, 0.0);
    navtest::sleepSeconds(0.02);
    EXPECT_FALSE(b.frame());
    EXPECT_GE(b.m->_deltaTime, 0.015);
    EXPECT_NEAR(b.m->_timeFactor, b.m->_deltaTime / 0.01666666666, 1e-12);
    EXPECT_EQ(b.m->_frameCount, 2u);
}

TEST(ManipulatorInput, ARightButtonMoveStopsThePagerAndOnlyAReleaseResumesIt)
{
    Bound b;
    ASSERT_FALSE(b.m->_pagingBlocked);
    ASSERT_TRUE(b.acceptsRequests());
    const double t = now();
    EXPECT_FALSE(b.send(mouseEvent(GUIEventAdapter::MOVE, 10, 10, 0, t, GUIEventAdapter::RIGHT_MOUSE_BUTTON)));
    EXPECT_FALSE(b.acceptsRequests());
    // Other events leave it stopped; a left-button move does not stop it.
    b.send(navtest::scrollEvent(GUIEventAdapter::SCROLL_UP));
    b.send(navtest::keyEvent(GUIEventAdapter::KEYDOWN, 'x'));
    EXPECT_FALSE(b.acceptsRequests());
    EXPECT_TRUE(b.send(mouseEvent(GUIEventAdapter::RELEASE, 10, 10, 0, t + 1.0, GUIEventAdapter::LEFT_MOUSE_BUTTON)));
    EXPECT_TRUE(b.acceptsRequests());
    b.send(mouseEvent(GUIEventAdapter::MOVE, 10, 10, 0, t, GUIEventAdapter::LEFT_MOUSE_BUTTON));
    EXPECT_TRUE(b.acceptsRequests());
}

TEST(ManipulatorInput, DragsAndWheelTurnsStopThePagerOnlyWhileBlocked)
{
    Bound b;
    const double t = now();
    b.send(mouseEvent(GUIEventAdapter::PUSH, 100, 100, 1, t, 1));
    b.send(mouseEvent(GUIEventAdapter::DRAG, 110, 100, 1, t + 0.1));
    EXPECT_TRUE(b.acceptsRequests());

    b.m->changeManipulatorState();
    ASSERT_TRUE(b.m->_pagingBlocked);
    b.send(mouseEvent(GUIEventAdapter::DRAG, 120, 100, 1, t + 0.2));
    EXPECT_FALSE(b.acceptsRequests());
    b.send(mouseEvent(GUIEventAdapter::RELEASE, 120, 100, 0, t + 0.3, 1));
    EXPECT_TRUE(b.acceptsRequests());
    // A wheel turn stops and resumes within the one event.
    b.send(navtest::scrollEvent(GUIEventAdapter::SCROLL_DOWN));
    EXPECT_TRUE(b.acceptsRequests());

    // init() clears the block.
    b.m->init(*navtest::frameEvent(), b.aa);
    EXPECT_FALSE(b.m->_pagingBlocked);
}

TEST(ManipulatorInput, ModifierKeysDoNothingOnKeyDownButTheirKeyUpCancelsATask)
{
    Bound b;
    EXPECT_TRUE(b.send(navtest::keyEvent(GUIEventAdapter::KEYDOWN, GUIEventAdapter::KEY_Left)));
    EXPECT_EQ(b.m->_task->_type, M::TASK_PAN);
    EXPECT_EQ(b.m->_task->_duration, DBL_MAX);
    EXPECT_EQ(b.m->_lastAction._type, M::ACTION_PAN_LEFT);

    for (int key : {int(GUIEventAdapter::KEY_Shift_L), int(GUIEventAdapter::KEY_Control_R), 0xFFE1, 0xFFFF})
    {
        b.aa.clear();
        EXPECT_FALSE(b.send(navtest::keyEvent(GUIEventAdapter::KEYDOWN, key))) << key;
        EXPECT_EQ(b.m->_task->_type, M::TASK_PAN) << key;
        EXPECT_EQ(b.aa.redraws, 0) << key;
    }
    EXPECT_TRUE(b.send(navtest::keyEvent(GUIEventAdapter::KEYUP, GUIEventAdapter::KEY_Shift_L)));
    EXPECT_EQ(b.m->_task->_type, M::TASK_NONE);
}

TEST(ManipulatorInput, AnUnboundKeyCountsButMovesNothingAndKeepsTheLastAction)
{
    Bound b;
    b.m->_lastAction = M::Action(M::ACTION_ROTATE);
    const osg::Matrixd before = b.m->getMatrix();
    EXPECT_TRUE(b.send(navtest::keyEvent(GUIEventAdapter::KEYDOWN, 'q')));
    EXPECT_EQ(b.m->_task->_type, M::TASK_NONE);
    EXPECT_EQ(b.m->_lastAction._type, M::ACTION_ROTATE);
    EXPECT_EQ(b.aa.redraws, 0);
    b.frame();
    EXPECT_EQ(b.m->getMatrix(), before);
}

TEST(ManipulatorInput, AHeldArrowKeyPansAtOneUnitPerSecondUntilKeyUp)
{
    Bound b;
    b.frame();
    const osg::Vec3d start = b.m->_center;
    EXPECT_TRUE(b.send(navtest::keyEvent(GUIEventAdapter::KEYDOWN, GUIEventAdapter::KEY_Right)));
    EXPECT_TRUE(b.aa.lastContinuous);
    // KEY_Right: dx = -1 per second, times the pan scale of -0.3 * distance.
    const double began = b.m->_timeNow;
    for (int i = 0; i < 10; ++i)
    {
        navtest::sleepSeconds(0.02);
        b.frame();
    }
    const double elapsed = b.m->_timeNow - began;
    const osg::Vec3d moved = b.m->_center - start;
    EXPECT_NEAR(moved.x(), elapsed * 0.3f * 500.0, 1e-6);
    EXPECT_NEAR(moved.y(), 0.0, 1e-6);

    EXPECT_TRUE(b.send(navtest::keyEvent(GUIEventAdapter::KEYUP, GUIEventAdapter::KEY_Right)));
    const osg::Vec3d stopped = b.m->_center;
    navtest::sleepSeconds(0.02);
    b.frame();
    b.frame();
    EXPECT_EQ(b.m->_center, stopped);
}

TEST(ManipulatorInput, ADragWithNoPreviousEventOnTheStackMovesNothing)
{
    // The push is stacked, so the first drag after it has the push as its
    // previous event (see APushThenADragPans). A drag after the stack was
    // flushed, here by a key pressed during the drag, has none.
    Bound b;
    const double t = now();
    EXPECT_TRUE(b.send(mouseEvent(GUIEventAdapter::PUSH, 100, 100, 1, t, 1)));
    EXPECT_EQ(b.m->_mouseDownEvent.get(), b.m->_lastEvent.get());
    EXPECT_FALSE(b.m->_previousEvent.valid());
    b.send(navtest::keyEvent(GUIEventAdapter::KEYDOWN, 'q'));
    EXPECT_FALSE(b.m->_lastEvent.valid());
    b.aa.clear();
    const osg::Vec3d before = b.m->_center;
    EXPECT_TRUE(b.send(mouseEvent(GUIEventAdapter::DRAG, 150, 100, 1, t + 0.1)));
    EXPECT_FALSE(b.m->_previousEvent.valid());
    EXPECT_FALSE(b.m->handleMouseAction(b.m->_lastAction, b.view.get()));
    EXPECT_EQ(b.aa.redraws, 0);
    EXPECT_EQ(b.m->_center, before);
    // The next drag has a previous event again and moves.
    EXPECT_TRUE(b.send(mouseEvent(GUIEventAdapter::DRAG, 170, 100, 1, t + 0.2)));
    EXPECT_EQ(b.aa.redraws, 1);
    EXPECT_NE(b.m->_center, before);
}

TEST(ManipulatorInput, APushThenADragPans)
{
    Bound b;
    const double t = now();
    b.send(mouseEvent(GUIEventAdapter::PUSH, 100, 100, 1, t, 1));
    b.aa.clear();
    const osg::Vec3d before = b.m->_center;
    EXPECT_TRUE(b.send(mouseEvent(GUIEventAdapter::DRAG, 132, 100, 1, t + 0.1)));
    EXPECT_EQ(b.aa.redraws, 1);
    EXPECT_EQ(b.m->_lastAction._type, M::ACTION_PAN);
    // 32 pixels of 639 is 0.1002 normalised; times -0.3 * 500 moves the
    // centre the other way.
    const double dx = (132.0f / 639.0f * 2.0f - 1.0f) - (100.0f / 639.0f * 2.0f - 1.0f);
    EXPECT_NEAR(b.m->_center.x() - before.x(), dx * (-0.3f * 500.0), 1e-4);
}

TEST(ManipulatorInput, ADragThatDoesNotMoveReturnsFalseRequestsNoRedrawAndIsHandled)
{
    Bound b;
    const double t = now();
    b.send(mouseEvent(GUIEventAdapter::PUSH, 100, 100, 1, t, 1));
    b.send(mouseEvent(GUIEventAdapter::DRAG, 120, 100, 1, t + 0.1));
    b.aa.clear();
    const osg::Matrixd before = b.m->getMatrix();
    EXPECT_TRUE(b.send(mouseEvent(GUIEventAdapter::DRAG, 120, 100, 1, t + 0.2)));
    EXPECT_EQ(b.aa.redraws, 0);
    EXPECT_FALSE(b.m->handleMouseAction(b.m->_lastAction, b.view.get()));
    EXPECT_EQ(b.m->getMatrix(), before);
}

TEST(ManipulatorInput, AClickIsASpeedNotARadius)
{
    Bound b;
    const double t = 100.0;
    b.m->_mouseDownEvent = mouseEvent(GUIEventAdapter::PUSH, 100, 100, 1, t, 1);
    EXPECT_FALSE(b.m->isMouseClick(nullptr));
    // Same place, no time: 0 < 0 is false.
    EXPECT_FALSE(b.m->isMouseClick(mouseEvent(GUIEventAdapter::RELEASE, 100, 100, 0, t, 1).get()));
    EXPECT_TRUE(b.m->isMouseClick(mouseEvent(GUIEventAdapter::RELEASE, 100, 100, 0, t + 0.01, 1).get()));
    // 64 pixels (0.2 normalised) in a second is slow enough; in 0.5 s not.
    EXPECT_FALSE(b.m->isMouseClick(mouseEvent(GUIEventAdapter::RELEASE, 164, 100, 0, t + 0.5, 1).get()));
    EXPECT_TRUE(b.m->isMouseClick(mouseEvent(GUIEventAdapter::RELEASE, 164, 100, 0, t + 3.0, 1).get()));
    b.m->_mouseDownEvent = nullptr;
    EXPECT_FALSE(b.m->isMouseClick(mouseEvent(GUIEventAdapter::RELEASE, 100, 100, 0, t + 1.0, 1).get()));
}

TEST(ManipulatorInput, IsMouseMovingComparesWithTheFrameTime)
{
    Bound b;
    EXPECT_FALSE(b.m->isMouseMoving());
    b.m->addMouseEvent(*mouseEvent(GUIEventAdapter::DRAG, 100, 100, 1, 1.0));
    EXPECT_FALSE(b.m->isMouseMoving());
    b.m->addMouseEvent(*mouseEvent(GUIEventAdapter::DRAG, 103.2f, 100, 1, 1.1));
    b.m->_deltaTime = 0.05; // 0.005 < 0.01
    EXPECT_TRUE(b.m->isMouseMoving());
    b.m->_deltaTime = 0.2; // 0.02 > 0.01
    EXPECT_FALSE(b.m->isMouseMoving());
}

TEST(ManipulatorInput, AReleaseInContinuousModeIsNotTestedAsAClick)
{
    Bound b;
    // A click action that would be visible if it ran.
    struct Counting : public M
    {
        int points = 0;
        bool handlePointAction(const Action&, float, float, osg::View*) override
        {
            ++points;
            return true;
        }
    };
    osg::ref_ptr<Counting> c = new Counting;
    c->setNode(b.scene.get());
    navtest::RecordingAdapter aa(b.view.get());
    const double t = now();
    c->handle(*mouseEvent(GUIEventAdapter::PUSH, 100, 100, 4, t, 4), aa);
    c->handle(*mouseEvent(GUIEventAdapter::DRAG, 100, 110, 4, t + 0.1), aa);
    ASSERT_TRUE(c->_continuous);
    EXPECT_TRUE(aa.lastContinuous);
    c->handle(*mouseEvent(GUIEventAdapter::RELEASE, 100, 110, 0, t + 5.0, 4), aa);
    EXPECT_FALSE(c->_continuous);
    EXPECT_EQ(c->points, 0);
    // The release is not even stacked.
    EXPECT_NE(c->_lastEvent->getEventType(), GUIEventAdapter::RELEASE);

    // Outside continuous mode a slow release is a click.
    c->handle(*mouseEvent(GUIEventAdapter::PUSH, 100, 100, 1, t + 6.0, 1), aa);
    c->handle(*mouseEvent(GUIEventAdapter::RELEASE, 100, 100, 0, t + 6.5, 1), aa);
    EXPECT_EQ(c->points, 1);
}

TEST(ManipulatorInput, ContinuousZoomMovesEveryFrameAtTheAccumulatedRate)
{
    Bound b;
    const double t = now();
    b.send(mouseEvent(GUIEventAdapter::PUSH, 100, 100, 4, t, 4));
    b.send(mouseEvent(GUIEventAdapter::DRAG, 100, 148, 4, t + 0.1));
    ASSERT_TRUE(b.m->_continuous);
    EXPECT_EQ(b.m->_lastAction._type, M::ACTION_ZOOM);
    const double rate = b.m->_continuousDy;
    EXPECT_NEAR(rate, double(148.0f / 479.0f * 2.0f - 100.0f / 479.0f * 2.0f) * 0.01, 1e-6);
    const double d0 = b.m->getDistance();
    navtest::sleepSeconds(0.02);
    b.frame();
    const double d1 = b.m->getDistance();
    EXPECT_GT(d1, d0); // dy > 0 zooms out
    navtest::sleepSeconds(0.02);
    b.frame();
    EXPECT_GT(b.m->getDistance(), d1);

    b.send(mouseEvent(GUIEventAdapter::RELEASE, 100, 148, 0, t + 0.5, 4));
    b.frame();
    EXPECT_EQ(b.m->_continuousDx, 0.0);
    EXPECT_EQ(b.m->_continuousDy, 0.0);
    const double d2 = b.m->getDistance();
    navtest::sleepSeconds(0.02);
    b.frame();
    EXPECT_EQ(b.m->getDistance(), d2);
}

TEST(ManipulatorInput, ScrollWithoutADirectionGivesZeroDeltasAndStillStartsATask)
{
    Bound b;
    b.m->_timeNow = 12.5;
    EXPECT_TRUE(b.m->handleScrollAction(M::Action(M::ACTION_ZOOM), 0.2));
    EXPECT_EQ(b.m->_task->_type, M::TASK_ZOOM);
    EXPECT_EQ(b.m->_task->_dx, 0.0);
    EXPECT_EQ(b.m->_task->_dy, 0.0);
    EXPECT_EQ(b.m->_task->_duration, 0.2);
    EXPECT_EQ(b.m->_task->_timeLastService, 12.5);

    // A wheel notch down: dy = -1.5 per second for 0.2 s.
    b.send(navtest::scrollEvent(GUIEventAdapter::SCROLL_DOWN));
    EXPECT_EQ(b.m->_task->_type, M::TASK_ZOOM);
    EXPECT_EQ(b.m->_task->_dy, -1.5);
    EXPECT_EQ(b.m->_lastAction._type, M::ACTION_ZOOM_IN);
}

TEST(ManipulatorInput, WheelDownZoomsInAndWheelUpZoomsOut)
{
    Bound b;
    b.frame();
    const double d0 = b.m->getDistance();
    b.send(navtest::scrollEvent(GUIEventAdapter::SCROLL_DOWN));
    for (int i = 0; i < 20 && b.m->_task->_type != M::TASK_NONE; ++i)
    {
        navtest::sleepSeconds(0.02);
        b.frame();
    }
    EXPECT_EQ(b.m->_task->_type, M::TASK_NONE);
    const double d1 = b.m->getDistance();
    EXPECT_LT(d1, d0);
    b.send(navtest::scrollEvent(GUIEventAdapter::SCROLL_UP));
    for (int i = 0; i < 20 && b.m->_task->_type != M::TASK_NONE; ++i)
    {
        navtest::sleepSeconds(0.02);
        b.frame();
    }
    EXPECT_GT(b.m->getDistance(), d1);
}

TEST(ManipulatorInput, AGotoDoubleClickOnlyRedraws)
{
    Bound b;
    const double t = now();
    b.send(mouseEvent(GUIEventAdapter::PUSH, 300, 200, 1, t, 1));
    b.send(mouseEvent(GUIEventAdapter::RELEASE, 300, 200, 0, t + 0.05, 1));
    b.frame();
    const osg::Matrixd before = b.m->getMatrix();
    b.aa.clear();
    EXPECT_TRUE(b.send(mouseEvent(GUIEventAdapter::DOUBLECLICK, 300, 200, 1, t + 0.1, 1)));
    EXPECT_EQ(b.aa.redraws, 1);
    EXPECT_EQ(b.m->getMatrix(), before);
    EXPECT_EQ(b.m->_lastAction._type, M::ACTION_GOTO);
    for (int i = 0; i < 3; ++i)
        b.frame();
    EXPECT_EQ(b.m->getMatrix(), before);
    EXPECT_FALSE(b.m->_settingViewpoint);

    // Without a press on record it is not handled.
    b.m->_mouseDownEvent = nullptr;
    EXPECT_FALSE(b.send(mouseEvent(GUIEventAdapter::DOUBLECLICK, 300, 200, 1, t + 0.2, 1)));
}

TEST(ManipulatorInput, OptionsScaleAndSingleAxis)
{
    osg::ref_ptr<M> m = new M;
    M::ActionOptions options;
    options.add(M::OPTION_SCALE_X, 2.0);
    options.add(M::OPTION_SCALE_Y, -3.0);
    double dx = 1.0, dy = 1.0;
    m->applyOptionsToDeltas(M::Action(M::ACTION_PAN, options), dx, dy);
    EXPECT_EQ(dx, 2.0);
    EXPECT_EQ(dy, -3.0);

    M::ActionOptions single;
    single.add(M::OPTION_SINGLE_AXIS, true);
    dx = 0.5, dy = -0.2;
    m->applyOptionsToDeltas(M::Action(M::ACTION_PAN, single), dx, dy);
    EXPECT_EQ(dx, 0.5);
    EXPECT_EQ(dy, 0.0);
    dx = 0.3, dy = -0.3; // a tie drops dx
    m->applyOptionsToDeltas(M::Action(M::ACTION_PAN, single), dx, dy);
    EXPECT_EQ(dx, 0.0);
    EXPECT_EQ(dy, -0.3);
}

TEST(ManipulatorInput, KeyboardDirectionsAndSensitivity)
{
    osg::ref_ptr<M> m = new M;
    m->getSettings()->setKeyboardSensitivity(2.0);
    const std::pair<M::ActionType, osg::Vec2d> cases[] = {
        {M::ACTION_PAN_LEFT, osg::Vec2d(2, 0)},  {M::ACTION_PAN_RIGHT, osg::Vec2d(-2, 0)},
        {M::ACTION_PAN_UP, osg::Vec2d(0, -2)},   {M::ACTION_PAN_DOWN, osg::Vec2d(0, 2)},
        {M::ACTION_ROTATE_LEFT, osg::Vec2d(2, 0)}, {M::ACTION_ZOOM_OUT, osg::Vec2d(0, 2)}};
    for (const auto& c : cases)
    {
        EXPECT_TRUE(m->handleKeyboardAction(M::Action(c.first), 1.0));
        EXPECT_EQ(m->_task->_dx, c.second.x()) << c.first;
        EXPECT_EQ(m->_task->_dy, c.second.y()) << c.first;
    }
    EXPECT_FALSE(m->handleKeyboardAction(M::Action(M::ACTION_EARTH_DRAG), 1.0));
    EXPECT_FALSE(m->handleMouseClickAction(M::Action(M::ACTION_PAN)));
    EXPECT_TRUE(m->handlePointAction(M::Action(M::ACTION_NULL), 0, 0, nullptr));
}

TEST(ManipulatorInput, ServiceTaskRunsForItsDurationInFrameSteps)
{
    Bound b;
    b.m->_timeNow = 10.0;
    b.m->_task->set(M::TASK_ZOOM, 0.0, 1.0, 0.25, 10.0);
    b.m->_timeNow = 10.1;
    EXPECT_TRUE(b.m->serviceTask());
    EXPECT_NEAR(b.m->getDistance(), 500.0 * 1.1, 1e-9);
    EXPECT_NEAR(b.m->_task->_duration, 0.15, 1e-12);
    b.m->_timeNow = 10.3;
    EXPECT_FALSE(b.m->serviceTask());
    EXPECT_EQ(b.m->_task->_type, M::TASK_NONE);
    EXPECT_FALSE(b.m->serviceTask());
}

TEST(ManipulatorInput, ResetMouseClearsTheStackAndTheModes)
{
    Bound b;
    b.m->addMouseEvent(*mouseEvent(GUIEventAdapter::DRAG, 1, 1, 1, 1.0));
    b.m->addMouseEvent(*mouseEvent(GUIEventAdapter::DRAG, 2, 2, 1, 1.1));
    b.m->_mouseDownEvent = mouseEvent(GUIEventAdapter::PUSH, 1, 1, 1, 0.9);
    b.m->_continuous = true;
    b.m->_throwing = true;
    b.m->_lastPointOnEarth.set(1, 2, 3);
    b.m->resetMouse(b.aa);
    EXPECT_FALSE(b.m->_lastEvent.valid());
    EXPECT_FALSE(b.m->_previousEvent.valid());
    EXPECT_TRUE(b.m->_mouseDownEvent.valid());
    EXPECT_FALSE(b.m->_continuous);
    EXPECT_FALSE(b.m->_throwing);
    EXPECT_EQ(b.m->_singleAxisX, 1.0);
    EXPECT_EQ(b.m->_singleAxisY, 1.0);
    EXPECT_EQ(b.m->_lastPointOnEarth, osg::Vec3d(0, 0, 0));
    ASSERT_FALSE(b.aa.continuous.empty());
    EXPECT_FALSE(b.aa.continuous.back());
}

TEST(ManipulatorInput, HandledEventsAreLeftAlone)
{
    Bound b;
    osg::ref_ptr<GUIEventAdapter> key = navtest::keyEvent(GUIEventAdapter::KEYDOWN, GUIEventAdapter::KEY_Left);
    key->setHandled(true);
    EXPECT_FALSE(b.send(key));
    EXPECT_EQ(b.m->_task->_type, M::TASK_NONE);
}
