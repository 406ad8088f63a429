// Writing an output file so that it appears only once complete: it is built
// under a temporary name beside its place, renamed at the end, and removed
// when the build fails or the process is interrupted.
#ifndef CXTOOL_OUTPUTFILE_H
#define CXTOOL_OUTPUTFILE_H

#include <string>

namespace cxtool
{

/** Throws Error when `path` cannot take a new file: it is a folder, or its
  * folder does not exist. */
void checkOutputPath(const std::string& path);

/** The temporary name of an output at `path` (beside it, with this process's
  * id); a file of that name left by a killed run is removed. */
std::string temporaryPathFor(const std::string& path);

/** Flushes a written file to the disk before it is renamed into place. */
void syncFile(const std::string& path);

/** While it lives, marks one file as the one an interrupt (SIGINT, SIGTERM,
  * SIGHUP, once removeOutputOnInterrupt() is called) removes. One at a time:
  * a new mark replaces the earlier one. */
class PendingFile
{
public:
    explicit PendingFile(const std::string& path);
    ~PendingFile();
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;

    /** The file is complete (or gone): an interrupt leaves it. */
    void release();
};

/** While it lives, marks one folder as the one an interrupt removes, with
  * everything in it (a tile set written under a temporary name). One at a
  * time, beside the pending file. */
class PendingFolder
{
public:
    explicit PendingFolder(const std::string& path);
    ~PendingFolder();
    PendingFolder(const PendingFolder&) = delete;
    PendingFolder& operator=(const PendingFolder&) = delete;

    /** The folder is complete (or gone): an interrupt leaves it. */
    void release();
};

/** Removes a folder and everything below it with system calls only (no
  * allocation), as the interrupt handler does; true when it is gone. */
bool removeTreeNow(const char* path);

/** Installs the interrupt handlers that remove the pending file and folder
  * and then end the process as the signal would have. */
void removeOutputOnInterrupt();

} // namespace cxtool

#endif
