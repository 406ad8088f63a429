// The one exception type of the command-line tools: a message meant for the
// user, thrown for bad input, an unreadable source or an unwritable output.
#ifndef CXTOOL_TOOLERROR_H
#define CXTOOL_TOOLERROR_H

#include <stdexcept>
#include <string>

namespace cxtool
{

class Error : public std::runtime_error
{
public:
    explicit Error(const std::string& message) : std::runtime_error(message) {}
};

} // namespace cxtool

#endif
