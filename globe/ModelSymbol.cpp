#include <globe/ModelSymbol>

namespace globe
{

ModelSymbol::ModelSymbol() = default;

ModelSymbol::ModelSymbol(const ModelSymbol& rhs)
    : osg::Referenced()
    , _model(rhs._model)
    , _heading(rhs._heading)
    , _pitch(rhs._pitch)
    , _roll(rhs._roll)
    , _scaleX(rhs._scaleX)
    , _scaleY(rhs._scaleY)
    , _scaleZ(rhs._scaleZ)
{
}

ModelSymbol& ModelSymbol::operator=(const ModelSymbol& rhs)
{
    // The reference count is the object's own and is not assigned.
    _model = rhs._model;
    _heading = rhs._heading;
    _pitch = rhs._pitch;
    _roll = rhs._roll;
    _scaleX = rhs._scaleX;
    _scaleY = rhs._scaleY;
    _scaleZ = rhs._scaleZ;
    return *this;
}

ModelSymbol::~ModelSymbol() = default;

} // namespace globe
