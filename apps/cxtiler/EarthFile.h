// Writes the earth file that the viewer's "earth" reader turns into a map node.
#ifndef CXTILER_EARTHFILE_H
#define CXTILER_EARTHFILE_H

#include <string>

namespace cxtiler
{

struct EarthFileOptions
{
    /** The map's name; empty: the file's name without extension. */
    std::string name;
    /** MBTiles files of an <image> and an <elevation> layer; empty: no such layer.
     *  Written as given; a relative path is read relative to the earth file. */
    std::string image;
    std::string elevation;
};

/** The XML text of the earth file. */
std::string earthFileText(const EarthFileOptions& options);

/** Writes the earth file to `path` through a temporary file and a rename; throws
 *  Error when it cannot be written. */
void writeEarthFile(const std::string& path, const EarthFileOptions& options);

} // namespace cxtiler

#endif
