// Input dispatch of the earth manipulator: the frame clock, the mouse event
// stack, the click test, timed tasks, continuous motion and the database
// pager switch during interaction.
#include <navigation/CXEarthManipulator>

#include <osg/Timer>
#include <osgViewer/View>

#include <algorithm>
#include <cfloat>
#include <cmath>

using osgGA::GUIEventAdapter;

namespace
{

// Stops or resumes new database requests of the view's pager.
void acceptDatabaseRequests(osg::View* view, bool accept)
{
    auto* viewerView = dynamic_cast<osgViewer::View*>(view);
    if (viewerView && viewerView->getDatabasePager())
        viewerView->getDatabasePager()->setAcceptNewDatabaseRequests(accept);
}

} // namespace

// ---------------------------------------------------------------------------
// Tasks

CXEarthManipulator::Task::Task() : _type(TASK_NONE), _dx(0.0), _dy(0.0), _duration(0.0), _timeLastService(0.0) {}

CXEarthManipulator::Task::~Task() = default;

void CXEarthManipulator::Task::set(TaskType type, double dx, double dy, double duration, double now)
{
    _type = type;
    _dx = dx;
    _dy = dy;
    _duration = duration;
    _timeLastService = now;
}

bool CXEarthManipulator::serviceTask()
{
    if (_task.valid() && _task->_type != TASK_NONE)
    {
        const double dt = _timeNow - _task->_timeLastService;
        switch (_task->_type)
        {
        case TASK_PAN:
            pan(dt * _task->_dx, dt * _task->_dy);
            break;
        case TASK_ROTATE:
            rotate(dt * _task->_dx, dt * _task->_dy);
            break;
        case TASK_ZOOM:
            zoom(dt * _task->_dx, dt * _task->_dy);
            break;
        default:
            break;
        }
        _task->_duration -= dt;
        _task->_timeLastService = _timeNow;
        if (_task->_duration <= 0.0)
            _task->_type = TASK_NONE;
    }
    return _task.valid() && _task->_type != TASK_NONE;
}

// ---------------------------------------------------------------------------
// Event stack

void CXEarthManipulator::init(const GUIEventAdapter&, osgGA::GUIActionAdapter&)
{
    _pagingBlocked = false;
    flushMouseEventStack();
}

void CXEarthManipulator::addMouseEvent(const GUIEventAdapter& ea)
{
    _previousEvent = _lastEvent;
    _lastEvent = &ea;
}

void CXEarthManipulator::flushMouseEventStack()
{
    _previousEvent = nullptr;
    _lastEvent = nullptr;
}

void CXEarthManipulator::resetMouse(osgGA::GUIActionAdapter& aa)
{
    flushMouseEventStack();
    aa.requestContinuousUpdate(false);
    _throwing = false;
    _continuous = false;
    _singleAxisX = 1.0;
    _singleAxisY = 1.0;
    _lastPointOnEarth.set(0.0, 0.0, 0.0);
}

namespace
{

// Distance of two events in normalised window coordinates, in single precision.
float normalizedDistance(const GUIEventAdapter& a, const GUIEventAdapter& b)
{
    const float dx = a.getXnormalized() - b.getXnormalized();
    const float dy = a.getYnormalized() - b.getYnormalized();
    return std::sqrt(dx * dx + dy * dy);
}

} // namespace

bool CXEarthManipulator::isMouseMoving()
{
    if (!_lastEvent.valid() || !_previousEvent.valid())
        return false;
    const float dist = normalizedDistance(*_lastEvent, *_previousEvent);
    return _deltaTime * static_cast<double>(0.1f) < dist;
}

bool CXEarthManipulator::isMouseClick(const GUIEventAdapter* ea) const
{
    if (!ea || !_mouseDownEvent.valid())
        return false;
    // A speed, not a radius: a press that rests long enough is a click even
    // after the pointer has travelled.
    const float dist = normalizedDistance(*ea, *_mouseDownEvent);
    const float dt = static_cast<float>(ea->getTime() - _mouseDownEvent->getTime());
    return dist < dt * 0.1f;
}

// ---------------------------------------------------------------------------
// From events to deltas

void CXEarthManipulator::applyOptionsToDeltas(const Action& action, double& dx, double& dy)
{
    dx *= action.getDoubleOption(OPTION_SCALE_X, 1.0);
    dy *= action.getDoubleOption(OPTION_SCALE_Y, 1.0);

    if (action.getBoolOption(OPTION_SINGLE_AXIS, false))
    {
        if (std::fabs(dx) > std::fabs(dy))
            dy = 0.0;
        else
            dx = 0.0;
    }
}

bool CXEarthManipulator::handleMouseAction(const Action& action, osg::View* view)
{
    if (!_lastEvent.valid() || !_previousEvent.valid())
        return false;

    const float fdx = _lastEvent->getXnormalized() - _previousEvent->getXnormalized();
    const float fdy = _lastEvent->getYnormalized() - _previousEvent->getYnormalized();
    double dx = fdx;
    double dy = fdy;
    if (dx == 0.0 && dy == 0.0)
        return false;

    dx *= _settings->getMouseSensitivity();
    dy *= _settings->getMouseSensitivity();

    applyOptionsToDeltas(action, dx, dy);

    if (_continuous)
    {
        _continuousDx += dx * 0.01;
        _continuousDy += dy * 0.01;
    }
    else
    {
        handleMovementAction(action._type, dx, dy, view);
    }
    return true;
}

bool CXEarthManipulator::handleMouseClickAction(const Action&)
{
    return false;
}

namespace
{

// Unit deltas of a directional action.
void directionDeltas(CXEarthManipulator::Direction dir, double& dx, double& dy)
{
    dx = dy = 0.0;
    switch (dir)
    {
    case CXEarthManipulator::DIR_LEFT:
        dx = 1.0;
        break;
    case CXEarthManipulator::DIR_RIGHT:
        dx = -1.0;
        break;
    case CXEarthManipulator::DIR_UP:
        dy = -1.0;
        break;
    case CXEarthManipulator::DIR_DOWN:
        dy = 1.0;
        break;
    default:
        break;
    }
}

} // namespace

bool CXEarthManipulator::handleKeyboardAction(const Action& action, double duration)
{
    double dx, dy;
    directionDeltas(action._dir, dx, dy);
    dx *= _settings->getKeyboardSensitivity();
    dy *= _settings->getKeyboardSensitivity();
    applyOptionsToDeltas(action, dx, dy);
    return handleAction(action, dx, dy, duration);
}

bool CXEarthManipulator::handleScrollAction(const Action& action, double duration)
{
    const double scale = 1.5;
    double dx, dy;
    directionDeltas(action._dir, dx, dy);
    dx = dx * scale * _settings->getScrollSensitivity();
    dy = dy * scale * _settings->getScrollSensitivity();
    applyOptionsToDeltas(action, dx, dy);
    return handleAction(action, dx, dy, duration);
}

bool CXEarthManipulator::handlePointAction(const Action&, float, float, osg::View*)
{
    // Pointing actions (goto) have no effect; the caller only redraws.
    return true;
}

void CXEarthManipulator::handleContinuousAction(const Action& action, osg::View* view)
{
    const double factor = (_timeNow - _lastContinuousActionTime) / 0.016666666;
    _lastContinuousActionTime = _timeNow;
    handleMovementAction(action._type, _continuousDx * factor, _continuousDy * factor, view);
}

void CXEarthManipulator::handleMovementAction(const ActionType& type, double dx, double dy, osg::View* view)
{
    switch (type)
    {
    case ACTION_PAN:
        pan(dx, dy);
        break;
    case ACTION_ROTATE:
        if (_continuous && _settings->getSingleAxisRotation())
        {
            if (std::fabs(dx) > std::fabs(dy))
                dy = 0.0;
            else
                dx = 0.0;
        }
        rotate(dx, dy);
        break;
    case ACTION_ZOOM:
        zoom(dx, dy);
        break;
    case ACTION_EARTH_DRAG:
        drag(dx, dy, view);
        break;
    default:
        break;
    }
}

bool CXEarthManipulator::handleAction(const Action& action, double dx, double dy, double duration)
{
    switch (action._type)
    {
    case ACTION_HOME:
        if (_homeViewpoint.isSet())
            setViewpoint(_homeViewpoint.get(), _homeViewpointDuration);
        return true;
    case ACTION_PAN:
    case ACTION_PAN_LEFT:
    case ACTION_PAN_RIGHT:
    case ACTION_PAN_UP:
    case ACTION_PAN_DOWN:
        _task->set(TASK_PAN, dx, dy, duration, _timeNow);
        return true;
    case ACTION_ROTATE:
    case ACTION_ROTATE_LEFT:
    case ACTION_ROTATE_RIGHT:
    case ACTION_ROTATE_UP:
    case ACTION_ROTATE_DOWN:
        _task->set(TASK_ROTATE, dx, dy, duration, _timeNow);
        return true;
    case ACTION_ZOOM:
    case ACTION_ZOOM_IN:
    case ACTION_ZOOM_OUT:
        _task->set(TASK_ZOOM, dx, dy, duration, _timeNow);
        return true;
    default:
        return false;
    }
}

// ---------------------------------------------------------------------------
// The entry from the event traversal

bool CXEarthManipulator::handle(const GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (!established())
        return false;

    osg::View* view = aa.asView();
    updateCamera(view ? view->getCamera() : nullptr);

    if (ea.getEventType() == GUIEventAdapter::FRAME)
    {
        _timeLastFrame = _timeNow;
        _timeNow = osg::Timer::instance()->time_s();
        _deltaTime = _timeNow - _timeLastFrame;
        _timeFactor = _deltaTime / 0.01666666666;

        if (_pendingViewpointSet && _node.valid())
        {
            _pendingViewpointSet = false;
            setViewpoint(_pendingViewpoint, _pendingViewpointDuration);
            aa.requestRedraw();
        }
        else if (_settingViewpoint && _node.valid())
        {
            // Scene loading during the first frames must not eat the flight.
            if (_frameCount < 2)
                _transitionStartTime = _timeNow;
            updateSetViewpoint();
            aa.requestContinuousUpdate(_settingViewpoint);
        }

        if (_throwing || _continuous)
        {
            handleContinuousAction(_lastAction, view);
            aa.requestRedraw();
        }
        if (!_continuous)
        {
            _continuousDx = 0.0;
            _continuousDy = 0.0;
        }

        if (_task->_type != TASK_NONE)
        {
            if (serviceTask())
            {
                aa.requestContinuousUpdate(true);
            }
            else
            {
                aa.requestContinuousUpdate(false);
                aa.requestRedraw();
            }
        }

        ++_frameCount;
        return false;
    }

    if (ea.getHandled())
        return false;

    Action action(ACTION_NULL);
    bool handled = false;
    _timeNow = osg::Timer::instance()->time_s();

    if (_tetherNode.valid() && !_settings->getBreakTetherActions().empty())
    {
        const Action& a = _settings->getAction(ea.getEventType(), ea.getButtonMask(), ea.getModKeyMask());
        const std::vector<ActionType>& breakers = _settings->getBreakTetherActions();
        if (std::find(breakers.begin(), breakers.end(), a._type) != breakers.end())
            setTetherNode(nullptr);
    }

    const bool blocked = _pagingBlocked;

    switch (ea.getEventType())
    {
    case GUIEventAdapter::MOVE:
        // A move with the right button stops the pager; only a release
        // starts it again.
        if (ea.getButton() == GUIEventAdapter::RIGHT_MOUSE_BUTTON)
            acceptDatabaseRequests(view, false);
        break;

    case GUIEventAdapter::PUSH:
        resetMouse(aa);
        addMouseEvent(ea);
        _mouseDownEvent = &ea;
        aa.requestRedraw();
        handled = true;
        break;

    case GUIEventAdapter::RELEASE:
        if (_continuous)
        {
            _continuous = false;
        }
        else if (isMouseClick(&ea))
        {
            addMouseEvent(ea);
            if (_mouseDownEvent.valid())
            {
                action = _settings->getAction(EVENT_MOUSE_CLICK, _mouseDownEvent->getButtonMask(),
                                              _mouseDownEvent->getModKeyMask());
                if (handlePointAction(action, ea.getX(), ea.getY(), view))
                    aa.requestRedraw();
            }
            resetMouse(aa);
        }
        else
        {
            resetMouse(aa);
            addMouseEvent(ea);
        }
        acceptDatabaseRequests(view, true);
        handled = true;
        break;

    case GUIEventAdapter::DOUBLECLICK:
        _continuous = false;
        addMouseEvent(ea);
        if (_mouseDownEvent.valid())
        {
            action = _settings->getAction(GUIEventAdapter::DOUBLECLICK, _mouseDownEvent->getButtonMask(),
                                          _mouseDownEvent->getModKeyMask());
            if (handlePointAction(action, ea.getX(), ea.getY(), view))
                aa.requestRedraw();
            handled = true;
        }
        resetMouse(aa);
        break;

    case GUIEventAdapter::DRAG:
    {
        if (blocked)
            acceptDatabaseRequests(view, false);
        action = _settings->getAction(GUIEventAdapter::DRAG, ea.getButtonMask(), ea.getModKeyMask());
        addMouseEvent(ea);
        const bool wasContinuous = _continuous;
        _continuous = action.getBoolOption(OPTION_CONTINUOUS, false);
        if (handleMouseAction(action, view))
            aa.requestRedraw();
        if (_continuous && !wasContinuous)
            _lastContinuousActionTime = _timeNow;
        aa.requestContinuousUpdate(_continuous);
        _throwing = false;
        handled = true;
        break;
    }

    case GUIEventAdapter::KEYDOWN:
        // The modifier keys themselves (Shift_L and above) do nothing.
        if (ea.getKey() < GUIEventAdapter::KEY_Shift_L)
        {
            resetMouse(aa);
            action = _settings->getAction(GUIEventAdapter::KEYDOWN, ea.getKey(), ea.getModKeyMask());
            if (handleKeyboardAction(action, DBL_MAX))
                aa.requestRedraw();
            handled = true;
        }
        break;

    case GUIEventAdapter::KEYUP:
        resetMouse(aa);
        _task->_type = TASK_NONE;
        handled = true;
        break;

    case GUIEventAdapter::SCROLL:
        resetMouse(aa);
        if (blocked)
            acceptDatabaseRequests(view, false);
        addMouseEvent(ea);
        action = _settings->getAction(GUIEventAdapter::SCROLL, ea.getScrollingMotion(), ea.getModKeyMask());
        if (handleScrollAction(action, 0.2))
            aa.requestRedraw();
        if (blocked)
            acceptDatabaseRequests(view, true);
        handled = true;
        break;

    default:
        break;
    }

    if (_task->_type != TASK_NONE)
        aa.requestContinuousUpdate(true);

    if (handled && action._type != ACTION_NULL)
        _lastAction = action;

    return handled;
}

void CXEarthManipulator::getUsage(osg::ApplicationUsage&) const {}
