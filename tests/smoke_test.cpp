#include <gtest/gtest.h>

#include "fru/fru_parser.h"

TEST(Smoke, SeqStrJoinsTextNumberText) {
    aim_parser::seq_str s("alveo_slot", 3, "_fru_dev");
    EXPECT_STREQ("alveo_slot3_fru_dev", s.c_str());
}
