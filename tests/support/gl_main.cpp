// main() of the rendering test programs: GoogleTest with a private X server
// and a watchdog that turns a hanging test into a failure with its stacks.
#include "HangWatchdog.h"
#include "Xvfb.h"

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    auto* xvfb = new cxtest::XvfbEnvironment;
    ::testing::AddGlobalTestEnvironment(xvfb);
    ::testing::UnitTest::GetInstance()->listeners().Append(new cxtest::HangWatchdog(
        cxtest::HangWatchdog::limitFromEnvironment(std::chrono::seconds(240)), [xvfb] { xvfb->TearDown(); }));
    return RUN_ALL_TESTS();
}
