#include <navigation/MemoryManipulator>

#include <navigation/CXEarthManipulator>

#include <osg/ApplicationUsage>
#include <osg/Notify>

#include <iterator>

MemoryManipulator::MemoryManipulator() = default;
MemoryManipulator::~MemoryManipulator() = default;

void MemoryManipulator::addMatrixManipulator(int key, std::string name, osgGA::CameraManipulator* manipulator)
{
    if (!manipulator)
        return;

    _manips[key] = NamedManipulator(name, manipulator);

    if (!_current.valid())
    {
        _current = manipulator;
        _current->setHomePosition(_homeEye, _homeCenter, _homeUp, _autoComputeHomePosition);
        _current->setNode(nullptr);
        _current->setCoordinateFrameCallback(getCoordinateFrameCallback());
        _current->setByMatrix(getMatrix());
    }
}

void MemoryManipulator::addNumberedMatrixManipulator(osgGA::CameraManipulator* manipulator)
{
    if (!manipulator)
        return;
    addMatrixManipulator('1' + static_cast<int>(_manips.size()), manipulator->className(), manipulator);
}

void MemoryManipulator::selectMatrixManipulator(unsigned int index)
{
    if (index >= _manips.size())
        return;
    osgGA::CameraManipulator* selected = std::next(_manips.begin(), index)->second.second.get();

    selected->setHomePosition(_homeEye, _homeCenter, _homeUp, _autoComputeHomePosition);

    if (_current.valid())
    {
        if (!selected->getCoordinateFrameCallback())
            selected->setCoordinateFrameCallback(_current->getCoordinateFrameCallback());
        if (!selected->getNode())
            selected->setNode(_current->getNode());
        selected->setByMatrix(_current->getMatrix());
    }

    _current = selected;
}

osgGA::CameraManipulator* MemoryManipulator::getMatrixManipulatorWithIndex(unsigned int index)
{
    if (index >= _manips.size())
        return nullptr;
    return std::next(_manips.begin(), index)->second.second.get();
}

const osgGA::CameraManipulator* MemoryManipulator::getMatrixManipulatorWithIndex(unsigned int index) const
{
    if (index >= _manips.size())
        return nullptr;
    return std::next(_manips.begin(), index)->second.second.get();
}

osgGA::CameraManipulator* MemoryManipulator::getMatrixManipulatorWithKey(unsigned int key)
{
    const auto it = _manips.find(static_cast<int>(key));
    return it != _manips.end() ? it->second.second.get() : nullptr;
}

const osgGA::CameraManipulator* MemoryManipulator::getMatrixManipulatorWithKey(unsigned int key) const
{
    const auto it = _manips.find(static_cast<int>(key));
    return it != _manips.end() ? it->second.second.get() : nullptr;
}

bool MemoryManipulator::GetViewpoint(CXViewport& out)
{
    auto* earth = dynamic_cast<CXEarthManipulator*>(_current.get());
    if (!earth)
        return false;
    out = earth->getViewpoint();
    return true;
}

bool MemoryManipulator::SetViewport(const CXViewport& viewport)
{
    auto* earth = dynamic_cast<CXEarthManipulator*>(_current.get());
    if (!earth)
        return false;
    earth->setViewpoint(viewport, 0.0);
    return true;
}

// ---------------------------------------------------------------------------
// Forwarding

void MemoryManipulator::setByMatrix(const osg::Matrixd& matrix)
{
    if (_current.valid())
        _current->setByMatrix(matrix);
}

void MemoryManipulator::setByInverseMatrix(const osg::Matrixd& matrix)
{
    if (_current.valid())
        _current->setByInverseMatrix(matrix);
}

osg::Matrixd MemoryManipulator::getMatrix() const
{
    return _current.valid() ? _current->getMatrix() : osg::Matrixd::identity();
}

osg::Matrixd MemoryManipulator::getInverseMatrix() const
{
    return _current.valid() ? _current->getInverseMatrix() : osg::Matrixd::identity();
}

osgUtil::SceneView::FusionDistanceMode MemoryManipulator::getFusionDistanceMode() const
{
    return _current.valid() ? _current->getFusionDistanceMode() : osgGA::CameraManipulator::getFusionDistanceMode();
}

float MemoryManipulator::getFusionDistanceValue() const
{
    return _current.valid() ? _current->getFusionDistanceValue() : osgGA::CameraManipulator::getFusionDistanceValue();
}

osg::Node* MemoryManipulator::getNode()
{
    return _current.valid() ? _current->getNode() : nullptr;
}

const osg::Node* MemoryManipulator::getNode() const
{
    return _current.valid() ? static_cast<const osgGA::CameraManipulator*>(_current.get())->getNode() : nullptr;
}

void MemoryManipulator::init(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (_current.valid())
        _current->init(ea, aa);
}

void MemoryManipulator::setNode(osg::Node* node)
{
    for (auto& entry : _manips)
        entry.second.second->setNode(node);
}

void MemoryManipulator::setHomePosition(const osg::Vec3d& eye, const osg::Vec3d& center, const osg::Vec3d& up,
                                        bool autoComputeHomePosition)
{
    osgGA::CameraManipulator::setHomePosition(eye, center, up, autoComputeHomePosition);
    for (auto& entry : _manips)
        entry.second.second->setHomePosition(eye, center, up, autoComputeHomePosition);
}

void MemoryManipulator::setAutoComputeHomePosition(bool flag)
{
    osgGA::CameraManipulator::setAutoComputeHomePosition(flag);
    for (auto& entry : _manips)
        entry.second.second->setAutoComputeHomePosition(flag);
}

void MemoryManipulator::setCoordinateFrameCallback(CoordinateFrameCallback* cb)
{
    osgGA::CameraManipulator::setCoordinateFrameCallback(cb);
    for (auto& entry : _manips)
        entry.second.second->setCoordinateFrameCallback(cb);
}

void MemoryManipulator::home(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    for (auto& entry : _manips)
        entry.second.second->home(ea, aa);
}

void MemoryManipulator::computeHomePosition(const osg::Camera*, bool)
{
    // The interface's own two-argument computation, not an earth
    // manipulator's viewpoint-free override.
    for (auto& entry : _manips)
        entry.second.second->computeHomePosition(nullptr, false);
}

bool MemoryManipulator::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (!_current.valid())
        return false;

    bool handled = false;
    if (!ea.getHandled() && ea.getEventType() == osgGA::GUIEventAdapter::KEYDOWN)
    {
        const auto it = _manips.find(ea.getKey());
        if (it != _manips.end())
        {
            OSG_INFO << "Switching to manipulator: " << it->second.first << std::endl;
            osgGA::CameraManipulator* next = it->second.second.get();
            if (!next->getNode())
                next->setNode(_current->getNode());
            next->setByMatrix(_current->getMatrix());
            next->init(ea, aa);
            _current = next;
            handled = true;
        }
    }

    const bool currentHandled = _current->handle(ea, aa);
    return currentHandled || handled;
}

void MemoryManipulator::getUsage(osg::ApplicationUsage& usage) const
{
    for (const auto& entry : _manips)
    {
        std::string text = "Select '" + entry.second.first + "' camera manipulator";
        if (_current == entry.second.second)
            text += " (default)";
        usage.addKeyboardMouseBinding(std::string(1, static_cast<char>(entry.first)), text);
        entry.second.second->getUsage(usage);
    }
}
