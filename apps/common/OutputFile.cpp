#include "OutputFile.h"

#include "ToolError.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/syscall.h>
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
char g_pendingFolder[4096];
volatile std::sig_atomic_t g_pendingFolderSet = 0;

// The entries of a directory as the kernel hands them out.
struct DirectoryEntry
{
    std::uint64_t inode;
    std::int64_t offset;
    unsigned short length;
    unsigned char type;
    char name[1];
};

bool isDotOrDotDot(const char* name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Removes the entry `name` of the open folder `parent`: a file at once, a
// folder after its contents. Only system calls and the stack: it runs in a
// signal handler too. `depth` bounds the recursion.
bool removeEntry(int parent, const char* name, int depth)
{
    if (::unlinkat(parent, name, 0) == 0 || errno == ENOENT)
        return true;
    if (errno != EISDIR && errno != EPERM)
        return false;
    if (depth > 64)
        return false;
    const int folder = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder < 0)
        return false;
    // Entries removed while reading may shift the rest: read again until a
    // pass finds nothing left.
    bool removedSome = true;
    while (removedSome)
    {
        removedSome = false;
        ::lseek(folder, 0, SEEK_SET);
        alignas(8) char buffer[2048];
        for (;;)
        {
            const long got = ::syscall(SYS_getdents64, folder, buffer, sizeof(buffer));
            if (got <= 0)
                break;
            for (long at = 0; at < got;)
            {
                const auto* entry = reinterpret_cast<const DirectoryEntry*>(buffer + at);
                if (!isDotOrDotDot(entry->name) && removeEntry(folder, entry->name, depth + 1))
                    removedSome = true;
                at += entry->length;
            }
        }
    }
    ::close(folder);
    return ::unlinkat(parent, name, AT_REMOVEDIR) == 0 || errno == ENOENT;
}

extern "C" void removePendingAndExit(int signal)
{
    const int saved = errno;
    if (g_pendingSet)
        ::unlink(g_pendingFile);
    if (g_pendingFolderSet)
        removeTreeNow(g_pendingFolder);
    errno = saved;
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

PendingFolder::PendingFolder(const std::string& path)
{
    g_pendingFolderSet = 0;
    if (path.size() < sizeof(g_pendingFolder))
    {
        std::memcpy(g_pendingFolder, path.c_str(), path.size() + 1);
        g_pendingFolderSet = 1;
    }
}

PendingFolder::~PendingFolder() { release(); }

void PendingFolder::release() { g_pendingFolderSet = 0; }

bool removeTreeNow(const char* path)
{
    return removeEntry(AT_FDCWD, path, 0);
}

void removeOutputOnInterrupt()
{
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, removePendingAndExit);
}

} // namespace cxtool
