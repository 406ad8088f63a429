// What the command-line tools share: the output checks, the temporary name,
// the file an interrupt removes, and the progress line.
#include "OutputFile.h"
#include "StatusLine.h"
#include "TempDir.h"
#include "ToolError.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

TEST(OutputFile, AFolderOrAMissingFolderCannotTakeTheOutput)
{
    cxtest::TempDir dir;
    EXPECT_NO_THROW(cxtool::checkOutputPath((dir.path() / "out.db").string()));
    EXPECT_NO_THROW(cxtool::checkOutputPath("relative-name.db"));
    try
    {
        cxtool::checkOutputPath(dir.path().string());
        ADD_FAILURE() << "a folder was accepted";
    }
    catch (const cxtool::Error& e)
    {
        EXPECT_NE(std::string(e.what()).find("it is a folder"), std::string::npos) << e.what();
    }
    try
    {
        cxtool::checkOutputPath((dir.path() / "missing" / "out.db").string());
        ADD_FAILURE() << "a missing folder was accepted";
    }
    catch (const cxtool::Error& e)
    {
        EXPECT_NE(std::string(e.what()).find("does not exist"), std::string::npos) << e.what();
    }
}

TEST(OutputFile, TheTemporaryNameLiesBesideAndALeftoverGoes)
{
    cxtest::TempDir dir;
    const std::string target = (dir.path() / "out.db").string();
    const std::string expected = target + ".tmp" + std::to_string(::getpid());
    std::ofstream(expected) << "left by a killed run";
    ASSERT_TRUE(fs::exists(expected));
    EXPECT_EQ(cxtool::temporaryPathFor(target), expected);
    EXPECT_FALSE(fs::exists(expected));
}

// In a child process: a pending file, the handlers, then `signal`.
int childInterrupted(const std::string& pending, const std::string& released, int signal)
{
    const pid_t child = ::fork();
    if (child == 0)
    {
        std::ofstream(pending) << "half written";
        std::ofstream(released) << "complete";
        {
            cxtool::PendingFile done(released);
        }
        cxtool::PendingFile mark(pending);
        cxtool::removeOutputOnInterrupt();
        std::raise(signal);
        ::_exit(0); // not reached: the signal ends the process
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return status;
}

TEST(OutputFile, AnInterruptRemovesThePendingFileAndEndsTheProcessAsTheSignalWould)
{
    cxtest::TempDir dir;
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
    {
        const std::string pending = (dir.path() / ("pending" + std::to_string(signal))).string();
        const std::string released = (dir.path() / ("released" + std::to_string(signal))).string();
        const int status = childInterrupted(pending, released, signal);
        EXPECT_TRUE(WIFSIGNALED(status)) << "signal " << signal;
        if (WIFSIGNALED(status))
        {
            EXPECT_EQ(WTERMSIG(status), signal);
        }
        EXPECT_FALSE(fs::exists(pending)) << "the pending file stayed after signal " << signal;
        EXPECT_TRUE(fs::exists(released)) << "a released file was removed";
    }
}

TEST(OutputFile, AnInterruptRemovesThePendingFolderWithEverythingBelowIt)
{
    cxtest::TempDir dir;
    const fs::path pending = dir.path() / "set.tmp";
    const fs::path kept = dir.path() / "kept";
    const pid_t child = ::fork();
    if (child == 0)
    {
        // Files and folders several levels deep, more than one read of the
        // folder takes, and a folder that was released.
        fs::create_directories(pending);
        for (int i = 0; i < 300; ++i)
            std::ofstream(pending / ("file-with-a-long-name-" + std::to_string(i) + ".osgb")).close();
        fs::create_directories(pending / "0123" / "4567" / "spill");
        std::ofstream(pending / "0123" / "4567" / "r01234567.osgb") << "tile";
        std::ofstream(pending / "0123" / "4567" / "spill" / "spill1.bin") << "points";
        fs::create_directories(kept / "inner");
        {
            cxtool::PendingFolder released(kept.string());
        }
        cxtool::PendingFolder mark(pending.string());
        cxtool::removeOutputOnInterrupt();
        std::raise(SIGTERM);
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
    EXPECT_FALSE(fs::exists(pending)) << "the pending folder stayed";
    EXPECT_TRUE(fs::exists(kept / "inner")) << "a released folder was removed";
}

TEST(OutputFile, RemovingATreeNowTakesFoldersAndFilesAndNotesAMissingOne)
{
    cxtest::TempDir dir;
    const fs::path tree = dir.path() / "tree";
    fs::create_directories(tree / "a" / "b");
    std::ofstream(tree / "a" / "b" / "c.bin") << "x";
    std::ofstream(tree / "top.txt") << "y";
    EXPECT_TRUE(cxtool::removeTreeNow(tree.string().c_str()));
    EXPECT_FALSE(fs::exists(tree));
    EXPECT_TRUE(cxtool::removeTreeNow(tree.string().c_str())) << "nothing to remove is done";
    std::ofstream(dir.path() / "single") << "z";
    EXPECT_TRUE(cxtool::removeTreeNow((dir.path() / "single").string().c_str()));
    EXPECT_FALSE(fs::exists(dir.path() / "single"));
}

TEST(StatusLine, EachTenthIsReachedOnceAndTheWholeNever)
{
    std::ostringstream out;
    cxtool::StatusLine line(out, false);
    line.start();
    EXPECT_EQ(line.tenthReached(5, 100), 0);
    EXPECT_EQ(line.tenthReached(10, 100), 1);
    EXPECT_EQ(line.tenthReached(15, 100), 0);
    EXPECT_EQ(line.tenthReached(47, 100), 4);
    EXPECT_EQ(line.tenthReached(30, 100), 0);
    EXPECT_EQ(line.tenthReached(100, 100), 0);
    EXPECT_EQ(line.tenthReached(0, 0), 0);
    line.start();
    EXPECT_EQ(line.tenthReached(20, 100), 2) << "a new stage counts again";
}

TEST(StatusLine, OnlyAnInteractiveTerminalIsRedrawnAndNotTooOften)
{
    std::ostringstream log, terminal;
    cxtool::StatusLine quiet(log, false), live(terminal, true);
    quiet.start();
    live.start();
    quiet.redraw("objects: 1/2", true);
    EXPECT_EQ(log.str(), "");
    live.redraw("objects: 1/2", true);
    live.redraw("objects: 2/2 skipped", false); // within 50 ms of the last
    live.redraw("objects: 2/2", true);
    EXPECT_EQ(terminal.str(), "\robjects: 1/2\robjects: 2/2");
    const std::string elapsed = live.elapsed();
    EXPECT_EQ(elapsed.substr(elapsed.size() - 2), " s");
}
