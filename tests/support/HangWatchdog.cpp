#include "HangWatchdog.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>

namespace cxtest
{
namespace
{

// Prints the stacks of every thread of this process with gdb, if there is
// one; gdb attaches from a child process while this one waits for it.
void printStacks()
{
    if (std::system("command -v gdb > /dev/null 2>&1") != 0)
    {
        std::fprintf(stderr, "(no gdb: no thread stacks)\n");
        return;
    }
    // Where ptrace is limited to descendants, let the child attach to us.
    ::prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY, 0, 0, 0);
    const std::string command = "gdb -batch -nx -p " + std::to_string(::getpid())
                                + " -ex 'thread apply all bt 30' 2>/dev/null | grep -v '^\\[New LWP' 1>&2";
    if (std::system(command.c_str()) != 0)
        std::fprintf(stderr, "(gdb could not attach: no thread stacks)\n");
}

} // namespace

HangWatchdog::HangWatchdog(std::chrono::seconds limit, std::function<void()> onHang)
    : _limit(limit), _onHang(std::move(onHang)), _thread([this] { watch(); })
{
}

HangWatchdog::~HangWatchdog()
{
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _stop = true;
    }
    _wake.notify_all();
    _thread.join();
}

std::chrono::seconds HangWatchdog::limitFromEnvironment(std::chrono::seconds fallback)
{
    const char* text = std::getenv("CXTEST_HANG_SECONDS");
    if (!text || !*text)
        return fallback;
    char* end = nullptr;
    const long seconds = std::strtol(text, &end, 10);
    return (end && *end == '\0' && seconds > 0) ? std::chrono::seconds(seconds) : fallback;
}

void HangWatchdog::OnTestStart(const ::testing::TestInfo& test)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _test = std::string(test.test_suite_name()) + "." + test.name();
    _started = std::chrono::steady_clock::now();
    _running = true;
}

void HangWatchdog::OnTestEnd(const ::testing::TestInfo&)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _running = false;
}

void HangWatchdog::watch()
{
    std::unique_lock<std::mutex> lock(_mutex);
    while (!_stop)
    {
        _wake.wait_for(lock, std::chrono::seconds(1));
        if (_stop || !_running || std::chrono::steady_clock::now() - _started < _limit)
            continue;
        std::fprintf(stderr, "\n%s has run for more than %lld s: it hangs. Thread stacks:\n", _test.c_str(),
                     static_cast<long long>(_limit.count()));
        std::fflush(stderr);
        lock.unlock();
        printStacks();
        if (_onHang)
            _onHang();
        std::fflush(nullptr);
        std::_Exit(EXIT_FAILURE);
    }
}

} // namespace cxtest
