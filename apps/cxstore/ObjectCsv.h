// The objects table that cxstore builds a store from: a CSV file with the
// header kObjectColumns (the table cxsample writes), one object per row, every row checked before anything
// is written.
#ifndef CXSTORE_OBJECTCSV_H
#define CXSTORE_OBJECTCSV_H

#include "ObjectTable.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace cxstore
{

class Progress;

using cxtool::kObjectColumns;
using ObjectRow = cxtool::ObjectRow;

struct ObjectTable
{
    std::vector<ObjectRow> rows;
    /** enterID to enterType, one entry per enterprise of the rows. */
    std::map<int, int> enterprises;
};

/**
 * Reads and checks the table in `text`; `name` names it in messages. Every row
 * is checked: the right number of fields; objID, enterID, enterType and objType
 * 32-bit integers; the other numbers finite decimals; longitude in -180..180,
 * latitude in -90..90, radius not negative; names valid UTF-8; no objID twice;
 * one enterType per enterprise; at least one row. Throws Error listing the bad
 * rows ("objects.csv, line 7: latitude 95 is outside -90..90"), the first 20
 * of them and how many more there are. `progress` counts bytes.
 */
ObjectTable parseObjectCsv(std::string_view text, const std::string& name, Progress& progress);

/** The same for a file; throws Error when it cannot be read. */
ObjectTable readObjectCsv(const std::string& path, Progress& progress);

} // namespace cxstore

#endif
