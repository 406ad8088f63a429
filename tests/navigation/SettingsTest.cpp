// Actions, option lists, the binding table and its default contents.
#include "NavTestSupport.h"

#include <navigation/CXEarthManipulator>

#include <gtest/gtest.h>

#include <cfloat>

using osgGA::GUIEventAdapter;
using M = CXEarthManipulator;

TEST(ManipulatorNames, TablesAreInEnumerationOrder)
{
    const char* actions[] = {"null",         "home",        "goto",         "pan",       "pan-left",
                             "pan-right",    "pan-up",      "pan-down",     "rotate",    "rotate-left",
                             "rotate-right", "rotate-up",   "rotate-down",  "zoom",      "zoom-in",
                             "zoom-out",     "earth-drag"};
    for (int i = 0; i < 17; ++i)
        EXPECT_EQ(actionNames[i], actions[i]) << i;
    EXPECT_EQ(actionNames[M::ACTION_EARTH_DRAG], "earth-drag");
    EXPECT_EQ(M::ACTION_EARTH_DRAG, 16);

    const char* options[] = {"scale-x", "scale-y", "continuous", "single-axis", "goto-range-factor", "duration"};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(actionOptionNames[i], options[i]) << i;
    EXPECT_EQ(M::OPTION_DURATION, 5);
    EXPECT_EQ(M::EVENT_MOUSE_CLICK, 0x20000);
}

TEST(ManipulatorAction, DirectionFollowsTheType)
{
    EXPECT_EQ(M::Action(M::ACTION_NULL)._dir, M::DIR_NA);
    EXPECT_EQ(M::Action(M::ACTION_PAN)._dir, M::DIR_NA);
    EXPECT_EQ(M::Action(M::ACTION_PAN_LEFT)._dir, M::DIR_LEFT);
    EXPECT_EQ(M::Action(M::ACTION_PAN_RIGHT)._dir, M::DIR_RIGHT);
    EXPECT_EQ(M::Action(M::ACTION_PAN_UP)._dir, M::DIR_UP);
    EXPECT_EQ(M::Action(M::ACTION_PAN_DOWN)._dir, M::DIR_DOWN);
    EXPECT_EQ(M::Action(M::ACTION_ROTATE_LEFT)._dir, M::DIR_LEFT);
    EXPECT_EQ(M::Action(M::ACTION_ROTATE_RIGHT)._dir, M::DIR_RIGHT);
    EXPECT_EQ(M::Action(M::ACTION_ROTATE_UP)._dir, M::DIR_UP);
    EXPECT_EQ(M::Action(M::ACTION_ROTATE_DOWN)._dir, M::DIR_DOWN);
    EXPECT_EQ(M::Action(M::ACTION_ZOOM_IN)._dir, M::DIR_UP);
    EXPECT_EQ(M::Action(M::ACTION_ZOOM_OUT)._dir, M::DIR_DOWN);
    EXPECT_EQ(M::Action(M::ACTION_EARTH_DRAG)._dir, M::DIR_NA);

    M::ActionOptions options;
    options.add(M::OPTION_SCALE_X, 2.0);
    M::Action a(M::ACTION_ROTATE_UP, options);
    M::Action b(M::ACTION_HOME);
    b = a;
    EXPECT_EQ(b._type, M::ACTION_ROTATE_UP);
    EXPECT_EQ(b._dir, M::DIR_UP);
    ASSERT_EQ(b._options.size(), 1u);
    EXPECT_EQ(b.getDoubleOption(M::OPTION_SCALE_X, 1.0), 2.0);
    EXPECT_EQ(M::NullAction._type, M::ACTION_NULL);
    EXPECT_TRUE(M::NullAction._options.empty());
}

TEST(ManipulatorAction, SameOptionTwiceKeepsBothAndTheFirstAnswers)
{
    M::ActionOptions options;
    options.add(M::OPTION_SCALE_Y, 3.0);
    options.add(M::OPTION_SCALE_Y, 7.0);
    options.add(M::OPTION_CONTINUOUS, true);
    options.add(M::OPTION_CONTINUOUS, false);
    ASSERT_EQ(options.size(), 4u);
    EXPECT_EQ(options[1]._doubleValue, 7.0);

    const M::Action action(M::ACTION_ZOOM, options);
    EXPECT_EQ(action.getDoubleOption(M::OPTION_SCALE_Y, 1.0), 3.0);
    EXPECT_TRUE(action.getBoolOption(M::OPTION_CONTINUOUS, false));
    // Absent options answer the default.
    EXPECT_EQ(action.getDoubleOption(M::OPTION_SCALE_X, 1.5), 1.5);
    EXPECT_TRUE(action.getBoolOption(M::OPTION_SINGLE_AXIS, true));

    options.clear();
    EXPECT_TRUE(options.empty());
}

TEST(ManipulatorInputSpec, OrderingIsLexicographicAndSigned)
{
    EXPECT_TRUE(M::InputSpec(1, 9, 9) < M::InputSpec(2, 0, 0));
    EXPECT_TRUE(M::InputSpec(2, 1, 9) < M::InputSpec(2, 2, 0));
    EXPECT_TRUE(M::InputSpec(2, 2, 1) < M::InputSpec(2, 2, 2));
    EXPECT_TRUE(M::InputSpec(2, -1, 0) < M::InputSpec(2, 0, 0));
    EXPECT_FALSE(M::InputSpec(2, 2, 2) < M::InputSpec(2, 2, 2));
}

TEST(ManipulatorInputSpec, TwoSidedModifiersExpandAndTheSpecComesLast)
{
    const std::vector<M::InputSpec> ctrl = M::InputSpec(GUIEventAdapter::KEYDOWN, 'a', 12).expand();
    ASSERT_EQ(ctrl.size(), 3u);
    EXPECT_EQ(ctrl[0]._modKeyMask, 8);
    EXPECT_EQ(ctrl[1]._modKeyMask, 4);
    EXPECT_EQ(ctrl[2]._modKeyMask, 12);

    // Ctrl and Shift, both two-sided: the first rule that fires is Ctrl, and
    // each half expands Shift in turn.
    const std::vector<M::InputSpec> both = M::InputSpec(GUIEventAdapter::KEYDOWN, 'a', 12 | 3).expand();
    std::vector<int> masks;
    for (const M::InputSpec& s : both)
        masks.push_back(s._modKeyMask);
    EXPECT_EQ(masks, (std::vector<int>{8 | 2, 8 | 1, 8 | 3, 4 | 2, 4 | 1, 4 | 3, 15}));

    // One side only, and the Super bits, are not expanded.
    EXPECT_EQ(M::InputSpec(GUIEventAdapter::KEYDOWN, 'a', 4).expand().size(), 1u);
    EXPECT_EQ(M::InputSpec(GUIEventAdapter::KEYDOWN, 'a', GUIEventAdapter::MODKEY_SUPER).expand().size(), 1u);
    EXPECT_EQ(M::InputSpec(GUIEventAdapter::KEYDOWN, 'a', 1024 | 2048).expand().size(), 3u);
    EXPECT_EQ(M::InputSpec(GUIEventAdapter::KEYDOWN, 'a', 64 | 128).expand().size(), 3u);
    EXPECT_EQ(M::InputSpec(GUIEventAdapter::KEYDOWN, 'a', 16 | 32).expand().size(), 3u);
}

TEST(ManipulatorSettings, DefaultsOfAFreshSettingsObject)
{
    osg::ref_ptr<M::Settings> s = new M::Settings;
    EXPECT_TRUE(s->getBindings().empty());
    EXPECT_FALSE(s->getSingleAxisRotation());
    EXPECT_TRUE(s->getLockAzimuthWhilePanning());
    EXPECT_EQ(s->getMouseSensitivity(), 1.0);
    EXPECT_EQ(s->getKeyboardSensitivity(), 1.0);
    EXPECT_EQ(s->getScrollSensitivity(), 1.0);
    EXPECT_EQ(s->getMinPitch(), -89.9);
    EXPECT_EQ(s->getMaxPitch(), -10.0);
    EXPECT_EQ(s->getMaxXOffset(), 0.0);
    EXPECT_EQ(s->getMaxYOffset(), 0.0);
    EXPECT_EQ(s->getMinDistance(), 1.0);
    EXPECT_EQ(s->getMaxDistance(), DBL_MAX);
    EXPECT_EQ(s->getTetherMode(), M::TETHER_CENTER);
    EXPECT_TRUE(s->getBreakTetherActions().empty());
    EXPECT_TRUE(s->getArcViewpointTransitions());
    EXPECT_FALSE(s->getAutoViewpointDurationEnabled());
    EXPECT_EQ(s->getMinViewpointDuration(), 3.0);
    EXPECT_EQ(s->getMaxViewpointDuration(), 8.0);
    EXPECT_EQ(s->getCameraProjection(), M::PROJ_PERSPECTIVE);
    EXPECT_EQ(s->getCameraFrustumOffsets(), osg::Vec2s(0, 0));
    EXPECT_EQ(s->_revision, 0);
}

TEST(ManipulatorSettings, DefaultTableHasTheFourteenRows)
{
    osg::ref_ptr<M> m = new M;
    const M::Settings* s = m->getSettings();
    ASSERT_NE(s, nullptr);
    // 13 rows without modifiers and one Ctrl row that expands to three keys.
    EXPECT_EQ(s->getBindings().size(), 16u);

    auto type = [&](int ev, int input, int mod = 0) { return s->getAction(ev, input, mod)._type; };
    EXPECT_EQ(type(GUIEventAdapter::KEYDOWN, ' '), M::ACTION_HOME);
    EXPECT_EQ(type(GUIEventAdapter::DRAG, GUIEventAdapter::LEFT_MOUSE_BUTTON), M::ACTION_PAN);
    const M::Action& zoom = s->getAction(GUIEventAdapter::DRAG, GUIEventAdapter::RIGHT_MOUSE_BUTTON, 0);
    EXPECT_EQ(zoom._type, M::ACTION_ZOOM);
    EXPECT_TRUE(zoom.getBoolOption(M::OPTION_CONTINUOUS, false));
    EXPECT_EQ(type(GUIEventAdapter::SCROLL, GUIEventAdapter::SCROLL_DOWN), M::ACTION_ZOOM_IN);
    EXPECT_EQ(type(GUIEventAdapter::SCROLL, GUIEventAdapter::SCROLL_UP), M::ACTION_ZOOM_OUT);
    EXPECT_EQ(type(GUIEventAdapter::KEYDOWN, GUIEventAdapter::KEY_Left), M::ACTION_PAN_LEFT);
    EXPECT_EQ(type(GUIEventAdapter::KEYDOWN, GUIEventAdapter::KEY_Right), M::ACTION_PAN_RIGHT);
    EXPECT_EQ(type(GUIEventAdapter::KEYDOWN, GUIEventAdapter::KEY_Up), M::ACTION_PAN_UP);
    EXPECT_EQ(type(GUIEventAdapter::KEYDOWN, GUIEventAdapter::KEY_Down), M::ACTION_PAN_DOWN);
    EXPECT_EQ(s->getAction(GUIEventAdapter::DOUBLECLICK, 1, 0).getDoubleOption(M::OPTION_GOTO_RANGE_FACTOR, 0), 0.4);
    EXPECT_EQ(s->getAction(GUIEventAdapter::DOUBLECLICK, 4, 0).getDoubleOption(M::OPTION_GOTO_RANGE_FACTOR, 0), 2.5);
    EXPECT_EQ(s->getAction(GUIEventAdapter::DOUBLECLICK, 4, 0)._type, M::ACTION_GOTO);
    // No earth drag in the default table, and the lock is on.
    for (const auto& binding : s->getBindings())
        EXPECT_NE(binding.second._type, M::ACTION_EARTH_DRAG);
    EXPECT_TRUE(s->getLockAzimuthWhilePanning());
    EXPECT_TRUE(s->getBreakTetherActions().empty());
}

TEST(ManipulatorSettings, NumLockAndCapsLockDoNotChangeTheAction)
{
    osg::ref_ptr<M> m = new M;
    const M::Settings* s = m->getSettings();
    const int locks[] = {GUIEventAdapter::MODKEY_NUM_LOCK, GUIEventAdapter::MODKEY_CAPS_LOCK,
                         GUIEventAdapter::MODKEY_NUM_LOCK | GUIEventAdapter::MODKEY_CAPS_LOCK};
    for (int lock : locks)
    {
        EXPECT_EQ(s->getAction(GUIEventAdapter::KEYDOWN, GUIEventAdapter::KEY_Left, lock)._type, M::ACTION_PAN_LEFT);
        EXPECT_EQ(s->getAction(GUIEventAdapter::DRAG, 1, lock)._type, M::ACTION_PAN);
        EXPECT_EQ(&s->getAction(GUIEventAdapter::DOUBLECLICK, 1, lock | GUIEventAdapter::MODKEY_LEFT_CTRL),
                  &s->getAction(GUIEventAdapter::DOUBLECLICK, 1, GUIEventAdapter::MODKEY_LEFT_CTRL));
    }
    // Other modifiers do change it.
    EXPECT_EQ(s->getAction(GUIEventAdapter::DRAG, 1, GUIEventAdapter::MODKEY_LEFT_SHIFT)._type, M::ACTION_NULL);
}

TEST(ManipulatorSettings, CtrlDoubleClickOnEitherSideHitsOnlyTheCtrlRow)
{
    osg::ref_ptr<M> m = new M;
    const M::Settings* s = m->getSettings();
    for (int ctrl : {int(GUIEventAdapter::MODKEY_LEFT_CTRL), int(GUIEventAdapter::MODKEY_RIGHT_CTRL),
                     int(GUIEventAdapter::MODKEY_CTRL)})
    {
        const M::Action& a = s->getAction(GUIEventAdapter::DOUBLECLICK, GUIEventAdapter::LEFT_MOUSE_BUTTON, ctrl);
        EXPECT_EQ(a._type, M::ACTION_GOTO) << ctrl;
        EXPECT_EQ(a.getDoubleOption(M::OPTION_GOTO_RANGE_FACTOR, 0.0), 2.5) << ctrl;
    }
    // Without Ctrl, the plain left row (0.4); Ctrl with the right button has no row.
    EXPECT_EQ(s->getAction(GUIEventAdapter::DOUBLECLICK, 1, 0).getDoubleOption(M::OPTION_GOTO_RANGE_FACTOR, 0.0), 0.4);
    EXPECT_EQ(s->getAction(GUIEventAdapter::DOUBLECLICK, 4, GUIEventAdapter::MODKEY_LEFT_CTRL)._type, M::ACTION_NULL);
}

TEST(ManipulatorSettings, MiddleDragAndLeftRightDragBothRotate)
{
    osg::ref_ptr<M> m = new M;
    const M::Settings* s = m->getSettings();
    EXPECT_EQ(s->getAction(GUIEventAdapter::DRAG, GUIEventAdapter::MIDDLE_MOUSE_BUTTON, 0)._type, M::ACTION_ROTATE);
    EXPECT_EQ(s->getAction(GUIEventAdapter::DRAG,
                           GUIEventAdapter::LEFT_MOUSE_BUTTON | GUIEventAdapter::RIGHT_MOUSE_BUTTON, 0)
                  ._type,
              M::ACTION_ROTATE);
}

TEST(ManipulatorSettings, MouseClickHasNoBindingInTheDefaultTable)
{
    osg::ref_ptr<M> m = new M;
    const M::Settings* s = m->getSettings();
    for (int buttons : {0, 1, 2, 4, 5})
        EXPECT_EQ(&s->getAction(M::EVENT_MOUSE_CLICK, buttons, 0), &M::NullAction) << buttons;
}

TEST(ManipulatorSettings, BindingReplacesAnEarlierEntryAndClearBindingsDropsAKind)
{
    osg::ref_ptr<M::Settings> s = new M::Settings;
    s->bindMouse(M::ACTION_PAN, GUIEventAdapter::LEFT_MOUSE_BUTTON);
    s->bindMouse(M::ACTION_EARTH_DRAG, GUIEventAdapter::LEFT_MOUSE_BUTTON);
    EXPECT_EQ(s->getBindings().size(), 1u);
    EXPECT_EQ(s->getAction(GUIEventAdapter::DRAG, 1, 0)._type, M::ACTION_EARTH_DRAG);

    s->bindMouseDoubleClick(M::ACTION_GOTO, 1);
    s->bindMouseDoubleClick(M::ACTION_GOTO, 1, GUIEventAdapter::MODKEY_CTRL);
    EXPECT_EQ(s->getBindings().size(), 5u);
    s->clearBindings(GUIEventAdapter::DOUBLECLICK);
    EXPECT_EQ(s->getBindings().size(), 1u);
    EXPECT_EQ(s->getAction(GUIEventAdapter::DOUBLECLICK, 1, 0)._type, M::ACTION_NULL);
}

TEST(ManipulatorSettings, ACopyHasNoBreakTetherActionsAndTakesTheRevisionOver)
{
    osg::ref_ptr<M::Settings> s = new M::Settings;
    s->bindKey(M::ACTION_HOME, 'h');
    s->setBreakTetherActions({M::ACTION_PAN, M::ACTION_ROTATE});
    s->setMinMaxDistance(5.0, 500.0);
    s->setMouseSensitivity(2.0);
    s->_alwaysDirty = true;

    osg::ref_ptr<M::Settings> copy = new M::Settings(*s);
    EXPECT_TRUE(copy->getBreakTetherActions().empty());
    EXPECT_EQ(s->getBreakTetherActions().size(), 2u);
    EXPECT_EQ(copy->getAction(GUIEventAdapter::KEYDOWN, 'h', 0)._type, M::ACTION_HOME);
    EXPECT_EQ(copy->getMinDistance(), 5.0);
    EXPECT_EQ(copy->getMaxDistance(), 500.0);
    EXPECT_EQ(copy->getMouseSensitivity(), 2.0);
    EXPECT_EQ(copy->_revision, s->_revision);
    EXPECT_TRUE(copy->_alwaysDirty);
}

TEST(ManipulatorSettings, MinMaxDistanceDirtiesAndTheAzimuthLockDoesNot)
{
    osg::ref_ptr<M::Settings> s = new M::Settings;
    int reader = -1;
    s->sync(reader);
    s->setLockAzimuthWhilePanning(false);
    EXPECT_FALSE(s->getLockAzimuthWhilePanning());
    EXPECT_FALSE(s->outOfSyncWith(reader));
    s->setMinMaxDistance(2.0, 20.0);
    EXPECT_TRUE(s->outOfSyncWith(reader));
    EXPECT_EQ(s->getMinDistance(), 2.0);
    EXPECT_EQ(s->getMaxDistance(), 20.0);
}

TEST(ManipulatorSettings, ApplySettingsNullInstallsAFreshDefaultTable)
{
    osg::ref_ptr<M> m = new M;
    osg::ref_ptr<M::Settings> old = m->getSettings();
    old->bindKey(M::ACTION_ZOOM_IN, 'z');
    old->bindMouse(M::ACTION_EARTH_DRAG, GUIEventAdapter::LEFT_MOUSE_BUTTON);
    EXPECT_EQ(old->referenceCount(), 2);

    m->applySettings(nullptr);
    M::Settings* fresh = m->getSettings();
    ASSERT_NE(fresh, nullptr);
    EXPECT_NE(fresh, old.get());
    EXPECT_EQ(old->referenceCount(), 1);
    EXPECT_EQ(fresh->getAction(GUIEventAdapter::KEYDOWN, 'z', 0)._type, M::ACTION_NULL);
    EXPECT_EQ(fresh->getAction(GUIEventAdapter::DRAG, 1, 0)._type, M::ACTION_PAN);
    EXPECT_EQ(fresh->getBindings().size(), 16u);
}

TEST(ManipulatorSettings, ApplySettingsSharesTheObjectCancelsTheTaskAndFlushesTheMouse)
{
    osg::ref_ptr<M> a = new M;
    osg::ref_ptr<M> b = new M;
    osg::ref_ptr<M::Settings> shared = new M::Settings;
    shared->setMinMaxDistance(10.0, 100.0);

    b->_task->set(M::TASK_PAN, 1.0, 0.0, 5.0, 0.0);
    b->addMouseEvent(*navtest::mouseEvent(GUIEventAdapter::PUSH, 1, 1, 1, 0.0));
    b->addMouseEvent(*navtest::mouseEvent(GUIEventAdapter::DRAG, 2, 2, 1, 0.1));
    a->applySettings(shared.get());
    b->applySettings(shared.get());
    EXPECT_EQ(a->getSettings(), shared.get());
    EXPECT_EQ(b->getSettings(), shared.get());
    EXPECT_EQ(b->_task->_type, M::TASK_NONE);
    EXPECT_FALSE(b->_lastEvent.valid());
    EXPECT_FALSE(b->_previousEvent.valid());
    // The distance is clamped to the new limits at once.
    EXPECT_EQ(b->getDistance(), 10.0);
}

TEST(ManipulatorSettings, ApplySettingsClampsARadianPitchAgainstDegreeLimits)
{
    // Bound to a scene, looking down at -60 degrees.
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    osg::ref_ptr<M> m = new M;
    m->setNode(scene.get());
    m->setViewpoint(CXViewport(osg::Vec3d(0, 0, 0), 30.0, -60.0, 100.0), 0.0);
    double heading = 0, pitch = 0;
    navtest::headingPitchDegrees(*m, heading, pitch);
    ASSERT_NEAR(pitch, -60.0, 1e-9);

    // -60 degrees is -1.047 radians, above the default maximum of -10 (read
    // as the same unit): the clamp answers -10, which is then set as degrees.
    m->applySettings(m->getSettings());
    navtest::headingPitchDegrees(*m, heading, pitch);
    EXPECT_NEAR(pitch, -10.0, 1e-9);
    EXPECT_NEAR(heading, 30.0, 1e-9);
    EXPECT_NEAR(m->getDistance(), 100.0, 1e-9);

    // Limits that contain the radian value leave the camera alone.
    osg::ref_ptr<M::Settings> wide = new M::Settings;
    wide->setMinMaxPitch(-90.0, 90.0);
    m->applySettings(wide.get());
    navtest::headingPitchDegrees(*m, heading, pitch);
    EXPECT_NEAR(pitch, -10.0, 1e-9);
}
