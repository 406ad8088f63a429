// main() of the rendering test programs: GoogleTest with a private X server.
#include "Xvfb.h"

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new cxtest::XvfbEnvironment);
    return RUN_ALL_TESTS();
}
