#include "PointSource.h"

#include "Error.h"
#include "PointReaders.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>

namespace cxtiler
{

namespace
{

std::string lowerExtension(const std::string& path)
{
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

} // namespace

std::string cannotRead(const std::string& path) { return "cannot read '" + path + "': "; }

std::string withThousands(std::uint64_t value)
{
    std::string digits = std::to_string(value);
    for (int at = static_cast<int>(digits.size()) - 3; at > 0; at -= 3)
        digits.insert(static_cast<std::size_t>(at), ",");
    return digits;
}

InputFile::InputFile(const std::string& path) : _path(path)
{
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec))
        throw Error(cannotRead(path) + "it is a folder");
    if (!std::filesystem::exists(path, ec))
        throw Error(cannotRead(path) + "no such file");
    _file = std::fopen(path.c_str(), "rb");
    if (!_file)
        throw Error(cannotRead(path) + std::strerror(errno));
    std::setvbuf(_file, nullptr, _IOFBF, 1 << 20);
    const auto size = std::filesystem::file_size(path, ec);
    _size = ec ? 0 : static_cast<std::uint64_t>(size);
}

InputFile::~InputFile()
{
    if (_file)
        std::fclose(_file);
}

void InputFile::seek(std::uint64_t offset)
{
    if (::fseeko(_file, static_cast<off_t>(offset), SEEK_SET) != 0)
        throw Error(cannotRead(_path) + "cannot seek to byte " + std::to_string(offset));
}

std::uint64_t InputFile::tell() const { return static_cast<std::uint64_t>(::ftello(_file)); }

std::size_t InputFile::readSome(void* into, std::size_t bytes)
{
    const std::size_t got = std::fread(into, 1, bytes, _file);
    if (got < bytes && std::ferror(_file))
        throw Error(cannotRead(_path) + std::strerror(errno));
    return got;
}

void InputFile::readExactly(void* into, std::size_t bytes, const std::string& what)
{
    if (readSome(into, bytes) != bytes)
        throw Error(cannotRead(_path) + "the file ends early, in " + what + " (it is truncated)");
}

void TextLines::restart(std::uint64_t linesBefore)
{
    _text.clear();
    _at = 0;
    _atEnd = false;
    _line = linesBefore;
}

bool TextLines::next(const char*& begin, const char*& end)
{
    std::size_t stop;
    while (true)
    {
        stop = _text.find('\n', _at);
        if (stop != std::string::npos || _atEnd)
            break;
        // Keep the unread rest and append a block.
        _text.erase(0, _at);
        _at = 0;
        const std::size_t had = _text.size();
        constexpr std::size_t kBlock = 1 << 20;
        _text.resize(had + kBlock);
        const std::size_t got = _file.readSome(&_text[had], kBlock);
        _text.resize(had + got);
        if (got == 0)
            _atEnd = true;
    }
    if (stop == std::string::npos)
    {
        if (_at >= _text.size())
            return false;
        stop = _text.size();
    }
    begin = _text.data() + _at;
    end = _text.data() + stop;
    if (end > begin && end[-1] == '\r')
        --end;
    _at = stop + 1;
    ++_line;
    return true;
}

bool parseNumbers(const char* begin, const char* end, bool commas, std::vector<double>& numbers, std::string& badWord)
{
    numbers.clear();
    auto separator = [commas](char c) {
        return c == ' ' || c == '\t' || c == '\v' || c == '\f' || (commas && (c == ',' || c == ';'));
    };
    const char* at = begin;
    while (at < end)
    {
        while (at < end && separator(*at))
            ++at;
        if (at >= end)
            break;
        const char* word = at;
        while (at < end && !separator(*at))
            ++at;
        const char* from = word;
        if (*from == '+')
            ++from;
        double value = 0.0;
        const auto [next, error] = std::from_chars(from, at, value);
        if (error != std::errc() || next != at || from == at)
        {
            badWord.assign(word, at);
            return false;
        }
        numbers.push_back(value);
    }
    return true;
}

std::unique_ptr<PointSource> openPointSource(const std::string& path)
{
    char magic[4] = {0, 0, 0, 0};
    std::size_t got = 0;
    {
        InputFile file(path);
        if (file.size() == 0)
            throw Error(cannotRead(path) + "the file is empty");
        got = file.readSome(magic, sizeof(magic));
    }
    const std::string extension = lowerExtension(path);
    if (got == 4 && std::memcmp(magic, "LASF", 4) == 0)
        return openLasSource(path);
    if (got >= 3 && std::memcmp(magic, "ply", 3) == 0 && (got == 3 || magic[3] == '\n' || magic[3] == '\r'))
        return openPlySource(path);
    if (extension == ".las" || extension == ".laz")
        throw Error(cannotRead(path) + "it is not a LAS file (no \"LASF\" signature at its start)");
    if (extension == ".ply")
        throw Error(cannotRead(path) + "it is not a PLY file (it does not start with \"ply\")");
    if (extension == ".xyz" || extension == ".txt" || extension == ".csv")
        return openXyzSource(path);
    throw Error(cannotRead(path) + "unknown point cloud format: LAS (.las), PLY (.ply) and XYZ text "
                "(.xyz, .txt, .csv) are read");
}

} // namespace cxtiler
