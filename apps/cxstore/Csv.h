// A reader of comma-separated values (RFC 4180): fields separated by commas,
// records by "\n" or "\r\n"; a field in double quotes may hold commas, line
// breaks and doubled quotes (""). A UTF-8 byte order mark at the start is
// skipped, and so are empty lines.
#ifndef CXSTORE_CSV_H
#define CXSTORE_CSV_H

#include "Error.h"

#include <string>
#include <string_view>
#include <vector>

namespace cxstore
{

/** A record that cannot be read; the message does not name the line. */
class CsvError : public Error
{
public:
    CsvError(long line, const std::string& message) : Error(message), line(line) {}
    long line;
};

struct CsvRecord
{
    long line = 0; ///< 1-based line on which the record starts
    std::vector<std::string> fields;
};

class CsvReader
{
public:
    /** Reads `text`, which must outlive the reader. */
    explicit CsvReader(std::string_view text);

    /** The next record; false at the end. Throws CsvError for a quoted field
      * that is not closed or is followed by anything but a comma or a line
      * break. */
    bool next(CsvRecord& record);

    /** Bytes consumed so far. */
    std::size_t position() const { return _pos; }

private:
    std::string_view _text;
    std::size_t _pos = 0;
    long _line = 1;
};

/** True when `text` is valid UTF-8 without NUL characters. */
bool isValidUtf8(std::string_view text);

} // namespace cxstore

#endif
