// The table of objects the tools exchange: cxsample writes it, cxstore builds
// an object store from it. One object per row, under a header of these
// columns in this order.
#ifndef CXTOOL_OBJECTTABLE_H
#define CXTOOL_OBJECTTABLE_H

#include <string>
#include <vector>

namespace cxtool
{

/** The header line, column by column. */
inline const std::vector<std::string> kObjectColumns = {
    "objID", "enterID", "enterType", "objName", "lon",     "lat",   "height", "radius",
    "objType", "fileName", "heading", "pitch", "roll", "scaleX", "scaleY", "scaleZ"};

/** The header line: the columns joined by commas. */
inline std::string objectTableHeader()
{
    std::string header;
    for (const std::string& column : kObjectColumns)
        header += (header.empty() ? "" : ",") + column;
    return header;
}

/** One row of the table. */
struct ObjectRow
{
    long line = 0; ///< where the row starts in a file read back; 0 for a row made
    int objID = 0;
    int enterID = 0;
    int enterType = 0;
    std::string objName;
    double lon = 0.0, lat = 0.0, height = 0.0; ///< degrees, degrees, metres
    double radius = 0.0;                       ///< metres
    int objType = 0;
    std::string fileName; ///< the model file; empty: an object without a model
    double heading = 0.0, pitch = 0.0, roll = 0.0;
    double scaleX = 1.0, scaleY = 1.0, scaleZ = 1.0;
};

} // namespace cxtool

#endif
