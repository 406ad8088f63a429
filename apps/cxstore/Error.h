// The one exception type of cxstore: a message meant for the user (the one
// all the command-line tools share).
#ifndef CXSTORE_ERROR_H
#define CXSTORE_ERROR_H

#include "ToolError.h"

namespace cxstore
{

using Error = cxtool::Error;

} // namespace cxstore

#endif
