#include <globe/Style>

namespace globe
{

Style::Style(const std::string& name)
    : _name(name)
{
}

Style::Style(const Style& rhs, const osg::CopyOp& /*copyop*/)
    : _name(rhs._name)
    , _modelSymbol(rhs._modelSymbol.valid() ? new ModelSymbol(*rhs._modelSymbol) : nullptr)
    , _textSymbol(rhs._textSymbol.valid() ? new TextSymbol(*rhs._textSymbol) : nullptr)
{
}

Style& Style::operator=(const Style& rhs)
{
    if (this == &rhs)
        return *this;
    _name = rhs._name;
    _modelSymbol = rhs._modelSymbol.valid() ? new ModelSymbol(*rhs._modelSymbol) : nullptr;
    _textSymbol = rhs._textSymbol.valid() ? new TextSymbol(*rhs._textSymbol) : nullptr;
    return *this;
}

Style::~Style() = default;

ModelSymbol* Style::getOrCreateModelSymbol()
{
    if (!_modelSymbol.valid())
        _modelSymbol = new ModelSymbol;
    return _modelSymbol.get();
}

TextSymbol* Style::getOrCreateTextSymbol()
{
    if (!_textSymbol.valid())
        _textSymbol = new TextSymbol;
    return _textSymbol.get();
}

} // namespace globe
