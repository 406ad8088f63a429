// The command line of cxtiler, callable in-process so that tests can run it.
#ifndef CXTILER_COMMANDLINE_H
#define CXTILER_COMMANDLINE_H

#include <iosfwd>
#include <string>
#include <vector>

namespace cxtiler
{

/** The usage text. */
std::string usageText(const std::string& program);

/**
 * Runs one command; `args` excludes the program name. Results and progress go to
 * `out`, errors to `err`. `interactive` redraws the progress line in place.
 * Returns 0 on success, 1 when the work failed, 2 for a malformed command line.
 */
int runCommandLine(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
                   bool interactive = false);

} // namespace cxtiler

#endif
