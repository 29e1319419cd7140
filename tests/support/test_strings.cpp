// Shared string bodies, numeric appends, the text helpers and strxcmp's natural order.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "common/TestUtil.h"
#include "support/GrowString.h"
#include "support/StringUtils.h"

using S = LightweightString<char>;
using W = LightweightString<wchar_t>;

TEST(LightweightString, CopiesNeverSeeEachOthersAppends) {
  S empty;
  EXPECT_STREQ(empty.c_str(), "");
  EXPECT_TRUE(empty == S("") && empty == "");
  S a("Reel 1");
  S b = a;
  EXPECT_EQ(a.shareCount(), 2);
  b += " (B)";
  EXPECT_EQ(a, "Reel 1");
  EXPECT_EQ(b, "Reel 1 (B)");
  EXPECT_EQ(a.shareCount(), 1);

  // A sole holder with room appends in place; once shared, the writer copies first.
  S s("abc");
  s.resizeFor(64);
  const char* body = s.c_str();
  s += "def";
  EXPECT_EQ(s.c_str(), body);
  S t = s;
  s += 'g';
  EXPECT_EQ(t, "abcdef");
  EXPECT_EQ(t.c_str(), body);
  EXPECT_EQ(s, "abcdefg");

  S self("ab");
  self += self;
  S kept = self;
  self += self;
  EXPECT_EQ(self, "abababab");
  EXPECT_EQ(kept, "abab");
  self.resizeFor(100);
  self.append(self.c_str() + 1, 3);
  EXPECT_EQ(self, "ababababbab");
}

TEST(StringUtils, Numbers) {
  const struct {
    int value;
    const char* text;
  } ints[] = {{0, "0"}, {-7, "-7"}, {INT_MAX, "2147483647"}, {INT_MIN, "-2147483648"}};
  for (const auto& c : ints) {
    S s("n=");
    s += c.value;
    EXPECT_EQ(s, (std::string("n=") + c.text).c_str());
    EXPECT_EQ(Zr::StringFromInteger(c.value), c.text);
  }
  S u;
  u += UINT_MAX;
  EXPECT_EQ(u, "4294967295");
  const struct {
    const char* text;
    unsigned expected;
  } cases[] = {{"42", 42},         {" 7\t", 7}, {"4294967295", 4294967295u},
               {"4294967296", 99}, {"-1", 99},  {"12a", 99},
               {"", 99},           {"  ", 99},  {"+3", 99},
               {"007", 7}};
  for (const auto& c : cases) EXPECT_EQ(Zr::UIntFromString(c.text, 99), c.expected) << '"' << c.text << '"';
}

TEST(StringUtils, CaseBooleansPathsAndBlanks) {
  S a("ReEl \xC3\x84Z");
  S b = a;
  Zr::toLower(b);
  EXPECT_EQ(b, "reel \xC3\x84z");
  EXPECT_EQ(a, "ReEl \xC3\x84Z");
  W w = Zr::WStringFromAscii("ab\xE9");
  ASSERT_EQ(w.size(), 3u);
  EXPECT_EQ(w[2], L'\xE9');
  EXPECT_TRUE(Zr::WStringFromAscii(nullptr).empty());

  const struct {
    const char* text;
    bool understood, value;
  } bools[] = {{"true", true, true}, {" YES ", true, true},  {"Off", true, false}, {"t", true, true},
               {"N", true, false},   {"1", true, true},      {"0", true, false},   {"maybe", false, false},
               {"", false, false},   {"truex", false, false}};
  for (const auto& c : bools) {
    bool value = !c.value;
    EXPECT_EQ(BoolFromString(c.text, value), c.understood) << c.text;
    EXPECT_EQ(value, c.understood ? c.value : !c.value) << c.text;
  }

  // clang-format off
  const struct {
    const wchar_t *path, *stem;
  } paths[] = {{L"/a/b/clip.rak", L"clip"}, {L"clip", L"clip"},  {L".hidden", L".hidden"}, {L"/x/.hidden", L".hidden"},
               {L"/x/a.b.c", L"a.b"},       {L"/dir.d/file", L"file"}, {L"", L""},           {L"/a/b/", L""}};
  // clang-format on
  for (const auto& p : paths) EXPECT_TRUE(stripPathAndExt(p.path) == p.stem) << p.path;

  EXPECT_TRUE(isEssentiallyEmpty(S()));
  EXPECT_TRUE(isEssentiallyEmpty(S(" \t\r\n")));
  EXPECT_FALSE(isEssentiallyEmpty(S(" x ")));
  EXPECT_TRUE(isEssentiallyEmpty(nullptr, 4));
  testutil::TempDir dir;
  testutil::writeFile(dir.file("here.kst"), "x");
  EXPECT_TRUE(fileExists(dir.wfile("here.kst")));
  EXPECT_TRUE(fileExists(testutil::wide(dir.path())));
  EXPECT_FALSE(fileExists(dir.wfile("gone.kst")));
  EXPECT_FALSE(fileExists(W()));
}

TEST(StringUtils, Utf8) {
  const wchar_t* text = L"Zo\u00EB \u2013 \u65E5\u672C \U0001F600";
  EXPECT_TRUE(fromUTF8(toUTF8(text)) == text);
  EXPECT_EQ(toUTF8(text), "Zo\xC3\xAB \xE2\x80\x93 \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80");
  // Each maximal broken sequence becomes one U+FFFD.
  // clang-format off
  const struct {
    const char* bytes;
    const wchar_t* decoded;
  } broken[] = {{"a\xFF" "b", L"a\uFFFDb"},
                {"\xE6\x97", L"\uFFFD"},
                {"\xC0\xAF", L"\uFFFD\uFFFD"},
                {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},
                {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"},
                {"\xE6\x97x", L"\uFFFDx"}};
  // clang-format on
  for (const auto& c : broken) EXPECT_TRUE(fromUTF8(c.bytes) == c.decoded) << c.bytes;
  const wchar_t lone[] = {0xD800, 0};
  EXPECT_EQ(toUTF8(lone), "\xEF\xBF\xBD");
}

TEST(GrowString, AppendsIncludingItsOwnText) {
  GrowString g;
  EXPECT_STREQ(g, "");
  g.append("take ");
  g.append(nullptr);
  g.append('7');
  EXPECT_STREQ(g, "take 7");
  for (int i = 0; i < 6; ++i) g.append(g.c_str());  // grows while reading itself
  EXPECT_EQ(g.size(), 6u * 64);
  EXPECT_EQ(std::string(g.c_str(), 12), "take 7take 7");
  g.clear();
  g.append("x", 1);
  EXPECT_STREQ(g.c_str(), "x");
}

namespace {
int sign(int v) { return (v > 0) - (v < 0); }
}  // namespace

TEST(Strxcmp, NaturalOrder) {
  // clang-format off
  const struct {
    const char *a, *b;
    int expected;
  } cases[] = {{"A2", "A10", -1}, {"x9y", "x10y", -1}, {"abc", "abd", -1}, {"", "a", -1}, {"a", "a", 0},
               {"B", "a", -1},    {"a\xFF", "a1", 1},  {"a1b", "a1", 1},   {"0", "00", -1}, {"a01", "a1", -1},
               {"file007", "file7", -1}, {"1.10", "1.9", 1}, {"a-1", "a1", -1},
               {"n99999999999999999999", "n100000000000000000000", -1},
               // Level up to a digit: the run is still compared whole.
               {"A19", "A100", -1}, {"v12b", "v123", -1}, {"x0012", "x012", -1}, {"take 7a", "take 7", 1},
               {"long shared beginning 0000000009", "long shared beginning 10", -1}};
  // clang-format on
  for (const auto& c : cases) {
    EXPECT_EQ(sign(strxcmp(c.a, c.b)), c.expected) << c.a << " vs " << c.b;
    EXPECT_EQ(sign(strxcmp(c.b, c.a)), -c.expected) << c.b << " vs " << c.a;
  }
  EXPECT_EQ(strxcmp(nullptr, ""), 0);
  // Views end where they say, whatever bytes follow them.
  const std::string_view a12("A12"), a13("A13");
  EXPECT_EQ(strxcmp(a12.substr(0, 2), a13.substr(0, 2)), 0);
  EXPECT_EQ(strxcmp(a12.substr(0, 2), std::string_view("A9")), -1);
  EXPECT_EQ(strxcmp(std::string_view("A10x").substr(0, 3), std::string_view("A9")), 1);
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
  std::sort(shots.begin(), shots.end(), [](auto& a, auto& b) { return strxcmp(a.c_str(), b.c_str()) < 0; });
  EXPECT_EQ(shots, (std::vector<std::string>{"Sc1", "Sc1b", "Sc02", "Sc2", "Sc10"}));
}
