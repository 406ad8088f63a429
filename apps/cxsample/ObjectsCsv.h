// The objects' table for the object store's import: one row per object under
// the header
//   objID,enterID,enterType,objName,lon,lat,height,radius,objType,fileName,
//   heading,pitch,roll,scaleX,scaleY,scaleZ
// in UTF-8 with "\n" line ends; fields with a comma, a quote or a line break
// are quoted, quotes doubled.
#ifndef CXSAMPLE_OBJECTSCSV_H
#define CXSAMPLE_OBJECTSCSV_H

#include "ObjectTable.h"

#include <string>
#include <vector>

namespace cxsample
{

using ObjectRow = cxtool::ObjectRow;

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
