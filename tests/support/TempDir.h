// A temporary directory for a test, removed with its contents afterwards;
// optionally the process's working directory while it lives.
#ifndef CXVIEWER_TESTS_TEMPDIR_H
#define CXVIEWER_TESTS_TEMPDIR_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace cxtest
{

class TempDir
{
public:
    explicit TempDir(bool enter = false)
    {
        std::string templ = (std::filesystem::temp_directory_path() / "cxviewer-test-XXXXXX").string();
        _path = mkdtemp(templ.data());
        if (enter)
        {
            _previous = std::filesystem::current_path();
            std::filesystem::current_path(_path);
        }
    }
    ~TempDir()
    {
        if (!_previous.empty())
            std::filesystem::current_path(_previous);
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return _path; }

    /** Writes `text` to a file below the directory, creating folders. */
    std::filesystem::path write(const std::string& relative, const std::string& text) const
    {
        const std::filesystem::path file = _path / relative;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
        return file;
    }

private:
    std::filesystem::path _path;
    std::filesystem::path _previous;
};

} // namespace cxtest

#endif
