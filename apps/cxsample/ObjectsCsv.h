// The objects' table for the object store's import: one row per object under
// the header
//   objID,enterID,enterType,objName,lon,lat,height,radius,objType,fileName,
//   heading,pitch,roll,scaleX,scaleY,scaleZ
// in UTF-8 with "\n" line ends; fields with a comma, a quote or a line break
// are quoted, quotes doubled.
#ifndef CXSAMPLE_OBJECTSCSV_H
#define CXSAMPLE_OBJECTSCSV_H

#include <string>
#include <vector>

namespace cxsample
{

struct ObjectRow
{
    int objID = 0;
    int enterID = 0;
    int enterType = 0;
    std::string objName;
    double lon = 0.0;
    double lat = 0.0;
    double height = 0.0;
    double radius = 0.0;
    int objType = 0;
    std::string fileName;
    double heading = 0.0;
    double pitch = 0.0;
    double roll = 0.0;
    double scaleX = 1.0;
    double scaleY = 1.0;
    double scaleZ = 1.0;
};

extern const char* const kObjectsCsvHeader;

/** `text` as a CSV field. */
std::string csvField(const std::string& text);

/** `value` with `decimals` places and no negative zero. */
std::string fixed(double value, int decimals);

/** The table as text: the header line, then one line per row. */
std::string objectsCsv(const std::vector<ObjectRow>& rows);

/** Writes the table to `path` through a temporary file beside it, so that the
 *  file appears only when complete; throws Error when it cannot. */
void writeObjectsCsv(const std::string& path, const std::vector<ObjectRow>& rows);

} // namespace cxsample

#endif
