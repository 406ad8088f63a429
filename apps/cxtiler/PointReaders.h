// The readers behind openPointSource, and the file access they share.
#ifndef CXTILER_POINTREADERS_H
#define CXTILER_POINTREADERS_H

#include "PointSource.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace cxtiler
{

/** A file read in large blocks, with its size known. */
class InputFile
{
public:
    /** Opens `path`; throws Error naming it when it cannot be opened. */
    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    const std::string& path() const { return _path; }
    std::uint64_t size() const { return _size; }

    void seek(std::uint64_t offset);
    std::uint64_t tell() const;
    /** Reads up to `bytes`; returns how many were read (fewer only at the end). */
    std::size_t readSome(void* into, std::size_t bytes);
    /** Reads exactly `bytes` or throws Error ("... ends early: `what`"). */
    void readExactly(void* into, std::size_t bytes, const std::string& what);

private:
    std::string _path;
    std::FILE* _file = nullptr;
    std::uint64_t _size = 0;
};

/** The lines of a text file (or of its body from some offset), read in
 *  blocks; "\r\n" endings are taken as "\n". */
class TextLines
{
public:
    explicit TextLines(InputFile& file) : _file(file) {}

    /** Starts again at the file's present position, with line numbers going
     *  on from `linesBefore`. */
    void restart(std::uint64_t linesBefore);
    /** The next line, without its end; false at the end of the file. */
    bool next(const char*& begin, const char*& end);
    /** The number of the line last returned, from 1. */
    std::uint64_t lineNumber() const { return _line; }

private:
    InputFile& _file;
    std::string _text;
    std::size_t _at = 0;
    bool _atEnd = false;
    std::uint64_t _line = 0;
};

/** The numbers of a line, separated by blanks (and commas and semicolons
 *  when `commas`); false when a word is not a number, which is then in
 *  `badWord`. */
bool parseNumbers(const char* begin, const char* end, bool commas, std::vector<double>& numbers,
                  std::string& badWord);

/** Little-endian values from a byte buffer. */
template <class T>
T littleEndian(const unsigned char* bytes)
{
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value; // the platforms this builds on are little endian
}

std::unique_ptr<PointSource> openLasSource(const std::string& path);
std::unique_ptr<PointSource> openPlySource(const std::string& path);
std::unique_ptr<PointSource> openXyzSource(const std::string& path);

/** "1,234,567": counts in messages. */
std::string withThousands(std::uint64_t value);

} // namespace cxtiler

#endif
