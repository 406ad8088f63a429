// Turns a rendering test that hangs into a clear failure. A test listener
// notes when each test starts; a watchdog thread checks the clock, and when
// one test has run longer than its limit it prints the test's name and the
// stacks of all threads (through gdb when it is installed), stops the
// private X server and ends the program, well before CTest's own timeout
// would kill it without a word. The limit is CXTEST_HANG_SECONDS (default
// 240 seconds).
#ifndef CXVIEWER_TESTS_HANGWATCHDOG_H
#define CXVIEWER_TESTS_HANGWATCHDOG_H

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace cxtest
{

class HangWatchdog : public ::testing::EmptyTestEventListener
{
public:
    /** `onHang` runs on the watchdog thread before the program ends. */
    explicit HangWatchdog(std::chrono::seconds limit, std::function<void()> onHang = {});
    ~HangWatchdog() override;

    void OnTestStart(const ::testing::TestInfo& test) override;
    void OnTestEnd(const ::testing::TestInfo& test) override;

    /** The limit from CXTEST_HANG_SECONDS, or `fallback`. */
    static std::chrono::seconds limitFromEnvironment(std::chrono::seconds fallback);

private:
    void watch();

    const std::chrono::seconds _limit;
    std::function<void()> _onHang;
    std::mutex _mutex;
    std::condition_variable _wake;
    bool _stop = false;
    bool _running = false;
    std::string _test;
    std::chrono::steady_clock::time_point _started;
    std::thread _thread;
};

} // namespace cxtest

#endif
