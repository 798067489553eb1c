#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv)
{
    // Tests run on the simulated platform unless a test says otherwise.
    setenv("TIDEMIX_PLATFORM", "sim", 0);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
