// The command line of cxsample, callable in-process so that tests can run it.
#ifndef CXSAMPLE_COMMANDLINE_H
#define CXSAMPLE_COMMANDLINE_H

#include <iosfwd>
#include <string>
#include <vector>

namespace cxsample
{

/** The usage text. */
std::string usageText(const std::string& program);

/**
 * Runs the generator; `args` excludes the program name. Progress goes to `out`,
 * errors to `err`. Returns 0 on success, 1 when the work failed (an unwritable
 * output folder, an unreadable elevation file), 2 for a malformed command line.
 */
int runCommandLine(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

} // namespace cxsample

#endif
