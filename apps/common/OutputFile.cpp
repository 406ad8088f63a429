#include "OutputFile.h"

#include "ToolError.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace fs = std::filesystem;

namespace cxtool
{

namespace
{

// The pending file, for the interrupt handler: a plain buffer, since a signal
// handler may only call async-signal-safe functions.
char g_pendingFile[4096];
volatile std::sig_atomic_t g_pendingSet = 0;

extern "C" void removePendingAndExit(int signal)
{
    if (g_pendingSet)
        ::unlink(g_pendingFile);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

} // namespace

void checkOutputPath(const std::string& path)
{
    std::error_code ec;
    if (fs::is_directory(path, ec))
        throw Error("cannot write '" + path + "': it is a folder");
    const fs::path parent = fs::path(path).parent_path();
    if (!parent.empty() && !fs::is_directory(parent, ec))
        throw Error("cannot write '" + path + "': the folder '" + parent.string() + "' does not exist");
}

std::string temporaryPathFor(const std::string& path)
{
    const std::string temporary = path + ".tmp" + std::to_string(::getpid());
    std::error_code ec;
    fs::remove(temporary, ec);
    return temporary;
}

void syncFile(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY);
    if (fd >= 0)
    {
        ::fsync(fd);
        ::close(fd);
    }
}

PendingFile::PendingFile(const std::string& path)
{
    g_pendingSet = 0;
    if (path.size() < sizeof(g_pendingFile))
    {
        std::memcpy(g_pendingFile, path.c_str(), path.size() + 1);
        g_pendingSet = 1;
    }
}

PendingFile::~PendingFile() { release(); }

void PendingFile::release() { g_pendingSet = 0; }

void removeOutputOnInterrupt()
{
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, removePendingAndExit);
}

} // namespace cxtool
