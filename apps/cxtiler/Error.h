// The one exception type of the tiler: a message meant for the user, thrown for
// bad input, an unwritable output or a cancelled run.
#ifndef CXTILER_ERROR_H
#define CXTILER_ERROR_H

#include <stdexcept>
#include <string>

namespace cxtiler
{

class Error : public std::runtime_error
{
public:
    explicit Error(const std::string& message) : std::runtime_error(message) {}
};

} // namespace cxtiler

#endif
