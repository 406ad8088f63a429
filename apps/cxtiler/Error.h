// The one exception type of cxtiler: a message meant for the user (the one
// all the command-line tools share).
#ifndef CXTILER_ERROR_H
#define CXTILER_ERROR_H

#include "ToolError.h"

namespace cxtiler
{

using Error = cxtool::Error;

} // namespace cxtiler

#endif
