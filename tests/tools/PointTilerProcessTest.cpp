// `cxtiler points` as its own process on a cloud several times larger than
// its memory budget: its peak memory stays under a bound that does not grow
// with the cloud, and an interrupt leaves no output behind.
#include "PointCloudFiles.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <iostream>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

using namespace pointtest;

namespace
{

/** A surface of `count` points over 2 x 2 km in UTM 50N, as a binary PLY of
 *  floats (about 15 bytes a point), written as it is made. */
void writeSurface(const std::string& path, std::uint64_t count)
{
    std::ofstream out(path, std::ios::binary);
    out << "ply\nformat binary_little_endian 1.0\nelement vertex " << count
        << "\nproperty float x\nproperty float y\nproperty float z\nproperty uchar red\nproperty uchar green\n"
           "property uchar blue\nend_header\n";
    std::uint64_t state = 12345;
    auto next = [&state]() {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<double>(state >> 11) / 9007199254740992.0;
    };
    std::vector<char> block;
    block.reserve(15 * 65536);
    for (std::uint64_t i = 0; i < count; ++i)
    {
        // Float coordinates near the origin of the frame are exact enough;
        // the CRS is given with a false easting of its own.
        const float x = static_cast<float>(2000.0 * next());
        const float y = static_cast<float>(2000.0 * next());
        const float z = static_cast<float>(50.0 + 10.0 * std::sin(x / 150.0) * std::cos(y / 170.0) + next());
        const unsigned char rgb[3] = {static_cast<unsigned char>(x / 8), static_cast<unsigned char>(y / 8), 128};
        const char* bytes[] = {reinterpret_cast<const char*>(&x), reinterpret_cast<const char*>(&y),
                               reinterpret_cast<const char*>(&z)};
        for (const char* b : bytes)
            block.insert(block.end(), b, b + 4);
        block.insert(block.end(), rgb, rgb + 3);
        if (block.size() >= 15 * 65536)
        {
            out.write(block.data(), static_cast<std::streamsize>(block.size()));
            block.clear();
        }
    }
    out.write(block.data(), static_cast<std::streamsize>(block.size()));
}

/** A UTM 50N with its origin moved near the test's coordinates. */
const char* const kLocalUtm = "+proj=utm +zone=50 +datum=WGS84 +x_0=-447000 +y_0=-4418000 +units=m +no_defs";

struct ChildRun
{
    int status = -1;
    double peakMegabytes = 0.0; // VmHWM of the child as last seen
    bool sawRunning = false;
};

/** The child's peak resident memory from /proc (VmHWM, in kB); -1 once gone. */
long highWaterKb(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line))
        if (line.compare(0, 6, "VmHWM:") == 0)
            return std::stol(line.substr(6));
    return -1;
}

/** Runs the tool with `args`, output to `log`, watching its memory; calls
 *  `watch(pid)` every few milliseconds while it runs (it may signal it). */
ChildRun runTool(const std::vector<std::string>& args, const std::string& log,
                 const std::function<void(pid_t)>& watch = {})
{
    std::vector<std::string> all = {CXTILER_EXECUTABLE};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : all)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    pid_t pid = 0;
    ChildRun run;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0)
        return run;
    while (true)
    {
        int status = 0;
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid)
        {
            run.status = status;
            break;
        }
        const long kb = highWaterKb(pid);
        if (kb > 0)
        {
            run.sawRunning = true;
            run.peakMegabytes = std::max(run.peakMegabytes, kb / 1024.0);
        }
        if (watch)
            watch(pid);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return run;
}

std::string readText(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

constexpr std::uint64_t kBig = 4000000;
constexpr std::uint64_t kSmall = 1000000;

} // namespace

TEST(PointTilerProcess, PeakMemoryStaysWithinTheBudgetWhateverTheCloudsSize)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's own memory hides the tool's";
#endif
    cxtest::TempDir temporary;
    const fs::path dir = temporary.path();
    writeSurface((dir / "big.ply").string(), kBig);
    writeSurface((dir / "small.ply").string(), kSmall);
    const ChildRun small = runTool({"points", (dir / "small.ply").string(), (dir / "small").string(), "--srs", kLocalUtm,
                                    "--max-memory", "64"},
                                   (dir / "small.log").string());
    ASSERT_TRUE(WIFEXITED(small.status) && WEXITSTATUS(small.status) == 0) << readText(dir / "small.log");
    const ChildRun big = runTool({"points", (dir / "big.ply").string(), (dir / "big").string(), "--srs", kLocalUtm,
                                  "--max-memory", "64"},
                                 (dir / "big.log").string());
    const std::string log = readText(dir / "big.log");
    ASSERT_TRUE(WIFEXITED(big.status) && WEXITSTATUS(big.status) == 0) << log;
    ASSERT_TRUE(big.sawRunning && small.sawRunning);
    EXPECT_NE(log.find("streamed through spill files"), std::string::npos) << log;
    EXPECT_NE(readText(dir / "big" / "cloud.json").find("\"points\": 4000000"), std::string::npos);

    // The cloud's points alone would take 4,000,000 x 40 bytes = 153 MB.
    const double cloudMegabytes = kBig * 40.0 / (1024.0 * 1024.0);
    std::cout << "peak resident memory at --max-memory 64: " << small.peakMegabytes << " MB for 1,000,000 points, "
              << big.peakMegabytes << " MB for 4,000,000 points (" << cloudMegabytes << " MB of points)\n";
    RecordProperty("peak_mb_1M", std::to_string(small.peakMegabytes));
    RecordProperty("peak_mb_4M", std::to_string(big.peakMegabytes));
    // The program itself (libraries, PROJ's database) takes some 40 MB.
    EXPECT_LT(big.peakMegabytes, 64.0 + 56.0);
    EXPECT_LT(big.peakMegabytes, cloudMegabytes);
    EXPECT_LT(big.peakMegabytes, small.peakMegabytes + 16.0) << "four times the points, not more memory";
}

TEST(PointTilerProcess, AnInterruptLeavesNoOutputFolder)
{
    cxtest::TempDir temporary;
    const fs::path input = temporary.path() / "cloud.ply";
    writeSurface(input.string(), 1500000);
    const fs::path dir = temporary.path() / "interrupt";
    fs::create_directories(dir);
    const fs::path output = dir / "set";
    bool sent = false;
    const ChildRun run = runTool({"points", input.string(), output.string(), "--srs", kLocalUtm, "--max-memory", "40"},
                                 (temporary.path() / "interrupt.log").string(), [&](pid_t pid) {
                                     // Once it writes tiles into its temporary folder.
                                     const fs::path temporary = output.string() + ".tmp" + std::to_string(pid);
                                     std::error_code ec;
                                     if (!sent && fs::exists(temporary / "cloud.osgb", ec))
                                     {
                                         ::kill(pid, SIGINT);
                                         sent = true;
                                     }
                                 });
    ASSERT_TRUE(sent) << "the run ended before it wrote a tile: " << readText(temporary.path() / "interrupt.log");
    EXPECT_TRUE(WIFSIGNALED(run.status) && WTERMSIG(run.status) == SIGINT) << "status " << run.status;
    std::vector<std::string> left;
    for (const auto& entry : fs::directory_iterator(dir))
        left.push_back(entry.path().filename().string());
    EXPECT_TRUE(left.empty()) << "left behind: " << (left.empty() ? std::string() : left.front());
}
