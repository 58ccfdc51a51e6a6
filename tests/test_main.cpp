#include <gtest/gtest.h>

#include "host/sysroot.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    // Retry sleeps of the library are counted, not slept.
    host::set_real_sleep(false);
    return RUN_ALL_TESTS();
}
