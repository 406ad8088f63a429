// The command line of cxstore, callable in-process so that tests can run it.
#ifndef CXSTORE_COMMANDLINE_H
#define CXSTORE_COMMANDLINE_H

#include <iosfwd>
#include <string>
#include <vector>

namespace cxstore
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

} // namespace cxstore

#endif
