// cxstore: builds the object stores that the viewer's scene objects come from
// (enterprises, objects and their quadtrees, from a CSV table) and lists them.
// Run with --help for the usage.

#include "CommandLine.h"
#include "OutputFile.h"

#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

int main(int argc, char** argv)
{
    // An interrupted build leaves no half-written store.
    cxtool::removeOutputOnInterrupt();
    const std::vector<std::string> args(argv + 1, argv + argc);
    return cxstore::runCommandLine(args, std::cout, std::cerr, ::isatty(STDOUT_FILENO) != 0);
}
