// strxcmp: natural, case-sensitive and total.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "support/StringUtils.h"

namespace {
int sign(int v) { return (v > 0) - (v < 0); }
}  // namespace

TEST(Strxcmp, NaturalOrder) {
  const struct {
    const char* a;
    const char* b;
    int expected;
  } cases[] = {
      {"A2", "A10", -1},  {"x9y", "x10y", -1}, {"abc", "abd", -1},
      {"", "a", -1},      {"a", "a", 0},       {"B", "a", -1},
      {"a\xFF", "a1", 1}, {"a1b", "a1", 1},    {"n99999999999999999999", "n100000000000000000000", -1},
      {"0", "00", -1},    {"a01", "a1", -1},   {"file007", "file7", -1},
      {"1.10", "1.9", 1}, {"a-1", "a1", -1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(sign(strxcmp(c.a, c.b)), c.expected) << c.a << " vs " << c.b;
    EXPECT_EQ(sign(strxcmp(c.b, c.a)), -c.expected) << c.b << " vs " << c.a;
  }
  EXPECT_EQ(strxcmp(nullptr, ""), 0);
}

TEST(Strxcmp, IsATotalOrder) {
  const std::vector<std::string> samples = {"",     "0",   "00", "000", "1",    "01",  "2",   "10",   "010",
                                            "a",    "A",   "a1", "a01", "a001", "a2",  "a10", "a010", "a1b",
                                            "a01b", "a1a", "ab", "b",   "B2",   "B10", "~",   "\x7f", "\xff",
                                            "1a",   "1 ",  " 1", "9",   "09",   "99",  "100", "a9z",  "a10z"};
  for (const auto& x : samples) {
    for (const auto& y : samples) {
      int xy = sign(strxcmp(x.c_str(), y.c_str()));
      EXPECT_EQ(xy, -sign(strxcmp(y.c_str(), x.c_str()))) << x << " | " << y;
      EXPECT_EQ(xy == 0, x == y) << x << " | " << y;
      if (xy >= 0) continue;
      for (const auto& z : samples) {
        if (strxcmp(y.c_str(), z.c_str()) < 0) {
          EXPECT_LT(strxcmp(x.c_str(), z.c_str()), 0) << x << " " << y << " " << z;
        }
      }
    }
  }
  std::vector<std::string> shots = {"Sc10", "Sc2", "Sc1", "Sc02", "Sc1b"};
  std::sort(shots.begin(), shots.end(),
            [](const std::string& a, const std::string& b) { return strxcmp(a.c_str(), b.c_str()) < 0; });
  EXPECT_EQ(shots, (std::vector<std::string>{"Sc1", "Sc1b", "Sc02", "Sc2", "Sc10"}));
}
