// The one exception type of cxstore: a message meant for the user, thrown for
// bad input, an unreadable store or an unwritable output.
#ifndef CXSTORE_ERROR_H
#define CXSTORE_ERROR_H

#include <stdexcept>
#include <string>

namespace cxstore
{

class Error : public std::runtime_error
{
public:
    explicit Error(const std::string& message) : std::runtime_error(message) {}
};

} // namespace cxstore

#endif
