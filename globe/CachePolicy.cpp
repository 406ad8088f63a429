#include <globe/CachePolicy>

namespace globe
{

const CachePolicy CachePolicy::NO_CACHE(CachePolicy::USAGE_NO_CACHE);

} // namespace globe
