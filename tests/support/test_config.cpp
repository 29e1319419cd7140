// Integer settings: set values, environment, fallback, clamping.

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>

#include "support/Config.h"

TEST(Config, SetValuesAreClampedAndUnsetFallsBack) {
  const char* name = "support_test_unsettled";
  ASSERT_EQ(std::getenv("KESTA_SUPPORT_TEST_UNSETTLED"), nullptr);
  EXPECT_EQ(config_int(name, 4, 0, 10), 4);
  EXPECT_EQ(config_int(name, 40, 0, 10), 10);  // the fallback is limited too
  const struct {
    int value, lowest, highest, expected;
  } cases[] = {{7, 0, 10, 7}, {50, 0, 10, 10}, {-5, 0, 10, 0}, {INT_MIN, INT_MIN, INT_MAX, INT_MIN}, {3, 3, 3, 3}};
  for (const auto& c : cases) {
    config_set_int(name, c.value);
    EXPECT_EQ(config_int(name, 1, c.lowest, c.highest), c.expected) << c.value;
  }
  config_set_int("Support_Test_Unsettled", 9);  // names ignore case
  EXPECT_EQ(config_int("SUPPORT_TEST_UNSETTLED", 1, 0, 10), 9);
  config_unset_int(name);
  EXPECT_EQ(config_int(name, 1, 0, 10), 1);
}

// Run by CTest in its own process with the variables set (tests/support/extra.cmake).
TEST(ConfigEnv, EnvironmentValues) {
  if (!std::getenv("KESTA_SUPPORT_TEST_LEVEL")) GTEST_SKIP() << "environment not set";
  EXPECT_EQ(config_int("support_test_level", 1, 0, 10), 5);
  EXPECT_EQ(config_int("support_test_level", 1, 0, 3), 3);
  EXPECT_EQ(config_int("support_test_level", 1, 6, 9), 6);
  EXPECT_EQ(config_int("support_test_word", 2, 0, 10), 2);    // "abc"
  EXPECT_EQ(config_int("support_test_mixed", 2, 0, 10), 2);   // "5x"
  EXPECT_EQ(config_int("support_test_spaced", 2, 0, 10), 8);  // " 8 "
  EXPECT_EQ(config_int("support_test_huge", 2, 0, INT_MAX), INT_MAX);
  EXPECT_EQ(config_int("support_test_negative", 2, INT_MIN, 0), INT_MIN);

  config_set_int("support_test_level", 7);
  EXPECT_EQ(config_int("support_test_level", 1, 0, 10), 7);
  config_unset_int("support_test_level");
  EXPECT_EQ(config_int("support_test_level", 1, 0, 10), 5);
}
