// Actions, bindings and tunables of the earth manipulator.
#include <navigation/CXEarthManipulator>

#include <osg/Math>
#include <osgGA/GUIEventAdapter>

#include <algorithm>
#include <cfloat>
#include <cstring>

using osgGA::GUIEventAdapter;

const std::string actionNames[17] = {"null",         "home",        "goto",        "pan",
                                     "pan-left",     "pan-right",   "pan-up",      "pan-down",
                                     "rotate",       "rotate-left", "rotate-right", "rotate-up",
                                     "rotate-down",  "zoom",        "zoom-in",     "zoom-out",
                                     "earth-drag"};

const std::string actionOptionNames[6] = {"scale-x",    "scale-y",           "continuous",
                                          "single-axis", "goto-range-factor", "duration"};

const int CXEarthManipulator::EVENT_MOUSE_CLICK;

const CXEarthManipulator::Action CXEarthManipulator::NullAction(CXEarthManipulator::ACTION_NULL);

// ---------------------------------------------------------------------------
// Options and actions

CXEarthManipulator::ActionOption::ActionOption() : _option(OPTION_SCALE_X), _doubleValue(0.0) {}

CXEarthManipulator::ActionOption::ActionOption(ActionOptionType option, bool value) : _option(option), _doubleValue(0.0)
{
    // The bool shares its storage with the double; the rest stays zero so
    // that reading the other member of a bool option gives a defined value.
    _boolValue = value;
}

CXEarthManipulator::ActionOption::ActionOption(ActionOptionType option, double value)
    : _option(option), _doubleValue(value)
{
}

void CXEarthManipulator::ActionOptions::add(ActionOptionType option, bool value)
{
    push_back(ActionOption(option, value));
}

void CXEarthManipulator::ActionOptions::add(ActionOptionType option, double value)
{
    push_back(ActionOption(option, value));
}

CXEarthManipulator::Direction CXEarthManipulator::Action::directionOf(ActionType type)
{
    switch (type)
    {
    case ACTION_PAN_LEFT:
    case ACTION_ROTATE_LEFT:
        return DIR_LEFT;
    case ACTION_PAN_RIGHT:
    case ACTION_ROTATE_RIGHT:
        return DIR_RIGHT;
    case ACTION_PAN_UP:
    case ACTION_ROTATE_UP:
    case ACTION_ZOOM_IN:
        return DIR_UP;
    case ACTION_PAN_DOWN:
    case ACTION_ROTATE_DOWN:
    case ACTION_ZOOM_OUT:
        return DIR_DOWN;
    default:
        return DIR_NA;
    }
}

CXEarthManipulator::Action::Action(ActionType type) : _type(type), _dir(directionOf(type)) {}

CXEarthManipulator::Action::Action(ActionType type, const ActionOptions& options)
    : _type(type), _dir(directionOf(type)), _options(options)
{
}

CXEarthManipulator::Action::Action(const Action& rhs) = default;
CXEarthManipulator::Action& CXEarthManipulator::Action::operator=(const Action& rhs) = default;

bool CXEarthManipulator::Action::getBoolOption(ActionOptionType option, bool defaultValue) const
{
    for (const ActionOption& o : _options)
    {
        if (o._option == option)
        {
            // Read the flag's byte as a number: an option stored as a double
            // must not be loaded as an out-of-range bool.
            unsigned char byte = 0;
            std::memcpy(&byte, &o._boolValue, 1);
            return byte != 0;
        }
    }
    return defaultValue;
}

double CXEarthManipulator::Action::getDoubleOption(ActionOptionType option, double defaultValue) const
{
    for (const ActionOption& o : _options)
        if (o._option == option)
            return o._doubleValue;
    return defaultValue;
}

// ---------------------------------------------------------------------------
// Binding keys

CXEarthManipulator::InputSpec::InputSpec(int eventType, int inputMask, int modKeyMask)
    : _eventType(eventType), _inputMask(inputMask), _modKeyMask(modKeyMask)
{
}

bool CXEarthManipulator::InputSpec::operator<(const InputSpec& rhs) const
{
    if (_eventType != rhs._eventType)
        return _eventType < rhs._eventType;
    if (_inputMask != rhs._inputMask)
        return _inputMask < rhs._inputMask;
    return _modKeyMask < rhs._modKeyMask;
}

bool CXEarthManipulator::InputSpec::operator==(const InputSpec& rhs) const
{
    return _eventType == rhs._eventType && _inputMask == rhs._inputMask && _modKeyMask == rhs._modKeyMask;
}

std::vector<CXEarthManipulator::InputSpec> CXEarthManipulator::InputSpec::expand() const
{
    // Modifiers that exist on both sides of the keyboard: a mask naming both
    // sides also matches an event that reports one side only.
    static const int sides[][2] = {
        {GUIEventAdapter::MODKEY_LEFT_CTRL, GUIEventAdapter::MODKEY_RIGHT_CTRL},
        {GUIEventAdapter::MODKEY_LEFT_ALT, GUIEventAdapter::MODKEY_RIGHT_ALT},
        {GUIEventAdapter::MODKEY_LEFT_SHIFT, GUIEventAdapter::MODKEY_RIGHT_SHIFT},
        {GUIEventAdapter::MODKEY_LEFT_META, GUIEventAdapter::MODKEY_RIGHT_META},
        {GUIEventAdapter::MODKEY_LEFT_HYPER, GUIEventAdapter::MODKEY_RIGHT_HYPER},
    };
    std::vector<InputSpec> out;
    for (const auto& pair : sides)
    {
        if ((_modKeyMask & pair[0]) && (_modKeyMask & pair[1]))
        {
            for (int side : {pair[0], pair[1]})
            {
                const std::vector<InputSpec> sub = InputSpec(_eventType, _inputMask, _modKeyMask & ~side).expand();
                out.insert(out.end(), sub.begin(), sub.end());
            }
            break;
        }
    }
    out.push_back(*this);
    return out;
}

// ---------------------------------------------------------------------------
// Settings

CXEarthManipulator::Settings::Settings()
    : _singleAxisRotation(false),
      _lockAzimuthWhilePanning(true),
      _mouseSensitivity(1.0),
      _keyboardSensitivity(1.0),
      _scrollSensitivity(1.0),
      _minPitch(-89.9),
      _maxPitch(-10.0),
      _maxXOffset(0.0),
      _maxYOffset(0.0),
      _minDistance(1.0),
      _maxDistance(DBL_MAX),
      _tetherMode(TETHER_CENTER),
      _arcViewpoints(true),
      _autoViewpointDuration(false),
      _minViewpointDuration(3.0),
      _maxViewpointDuration(8.0),
      _cameraProjection(PROJ_PERSPECTIVE),
      _cameraFrustumOffsets(0, 0)
{
}

CXEarthManipulator::Settings::Settings(const Settings& rhs)
    : CXRevisioned<osg::Referenced>(rhs),
      _bindings(rhs._bindings),
      _singleAxisRotation(rhs._singleAxisRotation),
      _lockAzimuthWhilePanning(rhs._lockAzimuthWhilePanning),
      _mouseSensitivity(rhs._mouseSensitivity),
      _keyboardSensitivity(rhs._keyboardSensitivity),
      _scrollSensitivity(rhs._scrollSensitivity),
      _minPitch(rhs._minPitch),
      _maxPitch(rhs._maxPitch),
      _maxXOffset(rhs._maxXOffset),
      _maxYOffset(rhs._maxYOffset),
      _minDistance(rhs._minDistance),
      _maxDistance(rhs._maxDistance),
      _tetherMode(rhs._tetherMode),
      // The break-tether actions are not carried over: a copy starts with
      // none, so a copied table never ends a tether until the host says so.
      _breakTetherActions(),
      _arcViewpoints(rhs._arcViewpoints),
      _autoViewpointDuration(rhs._autoViewpointDuration),
      _minViewpointDuration(rhs._minViewpointDuration),
      _maxViewpointDuration(rhs._maxViewpointDuration),
      _cameraProjection(rhs._cameraProjection),
      _cameraFrustumOffsets(rhs._cameraFrustumOffsets)
{
}

CXEarthManipulator::Settings::~Settings() = default;

void CXEarthManipulator::Settings::bind(const InputSpec& input, const Action& action)
{
    for (const InputSpec& key : input.expand())
        _bindings[key] = action;
}

void CXEarthManipulator::Settings::bindKey(ActionType action, int key, int modKeyMask, const ActionOptions& options)
{
    bind(InputSpec(GUIEventAdapter::KEYDOWN, key, modKeyMask), Action(action, options));
}

void CXEarthManipulator::Settings::bindMouse(ActionType action, int buttonMask, int modKeyMask,
                                             const ActionOptions& options)
{
    bind(InputSpec(GUIEventAdapter::DRAG, buttonMask, modKeyMask), Action(action, options));
}

void CXEarthManipulator::Settings::bindMouseDoubleClick(ActionType action, int buttonMask, int modKeyMask,
                                                        const ActionOptions& options)
{
    bind(InputSpec(GUIEventAdapter::DOUBLECLICK, buttonMask, modKeyMask), Action(action, options));
}

void CXEarthManipulator::Settings::bindScroll(ActionType action, int scrollingMotion, int modKeyMask,
                                              const ActionOptions& options)
{
    bind(InputSpec(GUIEventAdapter::SCROLL, scrollingMotion, modKeyMask), Action(action, options));
}

void CXEarthManipulator::Settings::clearBindings(int eventType)
{
    for (auto it = _bindings.begin(); it != _bindings.end();)
    {
        if (it->first._eventType == eventType)
            it = _bindings.erase(it);
        else
            ++it;
    }
}

const CXEarthManipulator::Action& CXEarthManipulator::Settings::getAction(int eventType, int inputMask,
                                                                          int modKeyMask) const
{
    // Num Lock and Caps Lock do not change what an input means.
    const int mask = modKeyMask & ~(GUIEventAdapter::MODKEY_NUM_LOCK | GUIEventAdapter::MODKEY_CAPS_LOCK);
    const auto it = _bindings.find(InputSpec(eventType, inputMask, mask));
    return it != _bindings.end() ? it->second : NullAction;
}

void CXEarthManipulator::Settings::setLockAzimuthWhilePanning(bool value)
{
    _lockAzimuthWhilePanning = value;
}

void CXEarthManipulator::Settings::setMinMaxPitch(double minPitch, double maxPitch)
{
    _minPitch = minPitch;
    _maxPitch = maxPitch;
}

void CXEarthManipulator::Settings::setMaxOffset(double maxXOffset, double maxYOffset)
{
    _maxXOffset = maxXOffset;
    _maxYOffset = maxYOffset;
}

void CXEarthManipulator::Settings::setMinMaxDistance(double minDistance, double maxDistance)
{
    _minDistance = minDistance;
    _maxDistance = maxDistance;
    dirty();
}

void CXEarthManipulator::Settings::setAutoViewpointDurationLimits(double minSeconds, double maxSeconds)
{
    _minViewpointDuration = minSeconds;
    _maxViewpointDuration = maxSeconds;
}

void CXEarthManipulator::Settings::setCameraProjection(CameraProjection projection)
{
    _cameraProjection = projection;
    dirty();
}

void CXEarthManipulator::Settings::setCameraFrustumOffsets(const osg::Vec2s& offsets)
{
    _cameraFrustumOffsets = offsets;
    dirty();
}

// ---------------------------------------------------------------------------
// Installing settings on the manipulator

void CXEarthManipulator::configureDefaultSettings()
{
    _settings = new Settings;
    Settings* s = _settings.get();

    s->bindKey(ACTION_HOME, GUIEventAdapter::KEY_Space);
    s->bindMouse(ACTION_PAN, GUIEventAdapter::LEFT_MOUSE_BUTTON);

    ActionOptions continuous;
    continuous.add(OPTION_CONTINUOUS, true);
    s->bindMouse(ACTION_ZOOM, GUIEventAdapter::RIGHT_MOUSE_BUTTON, 0L, continuous);

    s->bindMouse(ACTION_ROTATE, GUIEventAdapter::MIDDLE_MOUSE_BUTTON);
    s->bindMouse(ACTION_ROTATE, GUIEventAdapter::LEFT_MOUSE_BUTTON | GUIEventAdapter::RIGHT_MOUSE_BUTTON);

    // Wheel down zooms in, wheel up zooms out.
    s->bindScroll(ACTION_ZOOM_IN, GUIEventAdapter::SCROLL_DOWN);
    s->bindScroll(ACTION_ZOOM_OUT, GUIEventAdapter::SCROLL_UP);

    s->bindKey(ACTION_PAN_LEFT, GUIEventAdapter::KEY_Left);
    s->bindKey(ACTION_PAN_RIGHT, GUIEventAdapter::KEY_Right);
    s->bindKey(ACTION_PAN_UP, GUIEventAdapter::KEY_Up);
    s->bindKey(ACTION_PAN_DOWN, GUIEventAdapter::KEY_Down);

    ActionOptions closer;
    closer.add(OPTION_GOTO_RANGE_FACTOR, 0.4);
    s->bindMouseDoubleClick(ACTION_GOTO, GUIEventAdapter::LEFT_MOUSE_BUTTON, 0L, closer);

    ActionOptions farther;
    farther.add(OPTION_GOTO_RANGE_FACTOR, 2.5);
    s->bindMouseDoubleClick(ACTION_GOTO, GUIEventAdapter::RIGHT_MOUSE_BUTTON, 0L, farther);
    s->bindMouseDoubleClick(ACTION_GOTO, GUIEventAdapter::LEFT_MOUSE_BUTTON, GUIEventAdapter::MODKEY_CTRL, farther);

    s->setLockAzimuthWhilePanning(true);
}

void CXEarthManipulator::applySettings(Settings* settings)
{
    if (settings)
        _settings = settings;
    else
        configureDefaultSettings();

    _task->_type = TASK_NONE;
    flushMouseEventStack();

    // The pitch is read in radians and clamped against limits in degrees:
    // an ordinary pitch lies above -10 and the clamp answers -10, which the
    // viewpoint below then reads as degrees.
    double pitch = 0.0;
    getLocalEulerAngles(nullptr, &pitch);
    const double clamped = osg::clampBetween(pitch, _settings->getMinPitch(), _settings->getMaxPitch());

    setDistance(_distance);

    if (clamped != pitch)
    {
        const CXViewport vp = getViewpoint();
        setViewpoint(CXViewport(vp.getFocalPoint(), vp.getHeading(), clamped, vp.getRange()), 0.0);
    }
}
