// The one exception type of the sample generator: a message meant for the user,
// thrown for bad arguments, an unreadable elevation file or an unwritable output.
#ifndef CXSAMPLE_ERROR_H
#define CXSAMPLE_ERROR_H

#include <stdexcept>
#include <string>

namespace cxsample
{

class Error : public std::runtime_error
{
public:
    explicit Error(const std::string& message) : std::runtime_error(message) {}
};

} // namespace cxsample

#endif
