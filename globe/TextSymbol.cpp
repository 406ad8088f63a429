#include <globe/TextSymbol>

namespace globe
{

// Copies take the symbol's values; osg::Referenced gives a copy a reference
// count of its own and leaves the count out of an assignment.
TextSymbol::TextSymbol() = default;
TextSymbol::TextSymbol(const TextSymbol& rhs) = default;
TextSymbol& TextSymbol::operator=(const TextSymbol& rhs) = default;
TextSymbol::~TextSymbol() = default;

} // namespace globe
