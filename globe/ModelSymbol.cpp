#include <globe/ModelSymbol>

namespace globe
{

// Copies take the symbol's values; osg::Referenced gives a copy a reference
// count of its own and leaves the count out of an assignment.
ModelSymbol::ModelSymbol() = default;
ModelSymbol::ModelSymbol(const ModelSymbol& rhs) = default;
ModelSymbol& ModelSymbol::operator=(const ModelSymbol& rhs) = default;
ModelSymbol::~ModelSymbol() = default;

} // namespace globe
