// cxtiler: turns imagery and elevation rasters (georeferenced ones through GDAL,
// or whole-Earth equirectangular grids) into MBTiles pyramids in spherical
// mercator, and writes earth files.
// Run without arguments for the usage.

#include "CommandLine.h"
#include "OutputFile.h"

#include <cpl_error.h>
#include <osg/Notify>

#include <cstdio>
#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

int main(int argc, char** argv)
{
    // The tool explains failures itself; the plugins' own warnings would only repeat them.
    osg::setNotifyLevel(osg::FATAL);
    CPLSetErrorHandler(CPLQuietErrorHandler);
    // An interrupted run leaves no half-written output.
    cxtool::removeOutputOnInterrupt();
    const std::vector<std::string> args(argv + 1, argv + argc);
    return cxtiler::runCommandLine(args, std::cout, std::cerr, ::isatty(STDOUT_FILENO) != 0);
}
