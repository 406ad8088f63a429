// cxsample: writes the sample scene objects of the demo (buildings, a park
// terrain and pipes around Beijing, each model in four levels of detail) and
// the table that `cxstore build` turns into the object store.
// Run with --help for the usage.

#include "CommandLine.h"
#include "OutputFile.h"

#include <osg/Notify>

#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv)
{
    // The tool explains failures itself; the plugins' own warnings would only repeat them.
    osg::setNotifyLevel(osg::FATAL);
    // An interrupted run leaves no half-written table.
    cxtool::removeOutputOnInterrupt();
    const std::vector<std::string> args(argv + 1, argv + argc);
    return cxsample::runCommandLine(args, std::cout, std::cerr);
}
