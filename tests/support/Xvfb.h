// A private X server for the rendering tests. When DISPLAY is unset the
// environment starts Xvfb on a free display (it picks the number itself and
// reports it through -displayfd), points DISPLAY at it, and stops it by its
// pid at the end of the test program.
#ifndef CXVIEWER_TESTS_XVFB_H
#define CXVIEWER_TESTS_XVFB_H

#include <gtest/gtest.h>

#include <string>
#include <sys/types.h>

namespace cxtest
{

class XvfbEnvironment : public ::testing::Environment
{
public:
    void SetUp() override;
    void TearDown() override;

    /** The display the tests draw on, ":N". */
    static const std::string& display();

private:
    pid_t _pid = -1;
};

} // namespace cxtest

#endif
