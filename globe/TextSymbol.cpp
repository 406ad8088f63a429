#include <globe/TextSymbol>

namespace globe
{

TextSymbol::TextSymbol() = default;

TextSymbol::TextSymbol(const TextSymbol& rhs)
    : osg::Referenced()
    , _size(rhs._size)
    , _font(rhs._font)
    , _encoding(rhs._encoding)
    , _fill(rhs._fill)
{
}

TextSymbol& TextSymbol::operator=(const TextSymbol& rhs)
{
    _size = rhs._size;
    _font = rhs._font;
    _encoding = rhs._encoding;
    _fill = rhs._fill;
    return *this;
}

TextSymbol::~TextSymbol() = default;

} // namespace globe
