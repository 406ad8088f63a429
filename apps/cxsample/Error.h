// The one exception type of cxsample: a message meant for the user (the one
// all the command-line tools share).
#ifndef CXSAMPLE_ERROR_H
#define CXSAMPLE_ERROR_H

#include "ToolError.h"

namespace cxsample
{

using Error = cxtool::Error;

} // namespace cxsample

#endif
