#include <gtest/gtest.h>

#include <random>
#include <string>

#include "support/TextSearch.h"

namespace {

using namespace TextSearch;
using S = LightweightString<char>;
constexpr unsigned kCase = kCaseSensitive;
constexpr unsigned kTc = kTimecode;

bool match1(const std::string& text, const std::string& pattern, eMatchMethod method, unsigned options) {
  return match(S(text.c_str()), Criteria{Criterion(S(pattern.c_str()), method)}, options);
}

// Plain recursive wildcard matching, slow but obviously right, to check the fast one against.
bool reference_wildcard(const char* t, const char* p) {
  if (!*p) return !*t;
  if (*p == '*') return reference_wildcard(t, p + 1) || (*t && reference_wildcard(t + 1, p));
  return *t && (*p == '?' || *p == *t) && reference_wildcard(t + 1, p + 1);
}

// What the random comparison below does not reach: other punctuation, bytes past ASCII, the
// ends of the alphabet, and "*" outside wildcards.
TEST(TextSearch, EachMethodAndOption) {
  const struct {
    const char *text, *pattern;
    eMatchMethod method;
    unsigned options;
    bool expected;
  } cases[] = {
      // clang-format off
      {"Reel 12", "reel 12", eExact, 0, true},        {"ZONE a", "zone A", eExact, 0, true},
      {"A Reel 12", "A Reel 123", eContains, 0, false}, {"aaab", "aab", eContains, 0, true},
      {"[SCENE]", "[scene]", eContains, 0, true},     {"\xc3\xa9t\xc3\xa9", "\xc3\x89T\xc3\x89", eContains, 0, false},
      {"Scene 4A", "4A", eStartsWith, 0, false},      {"Take_07.mov", "Take_0?.mov", eWildcard, 0, true},
      {"", "*", eWildcard, 0, true},                  {"", "?", eWildcard, 0, false},
      {"abcabd", "*ab?", eWildcard, 0, true},         {"a*b", "a*b", eContains, 0, true},
      {"axb", "a*b", eContains, 0, false},            {"01;00;00;00", "01.00.00.00", eExact, kTc, true},
      {" 01, 00:00:00 ", "01000000", eExact, kTc, true}, {"01:00:00:01", "01000000", eExact, kTc, false},
      {"10:01:00:00", "0100", eContains, kTc, true},  {"10:02:00:00", "0100", eContains, kTc, false},
      {"01:02:03:04", "01:03", eStartsWith, kTc, false}, {"01:02:03:04", "01??03??", eWildcard, kTc, true},
      {"01:02:03:04", "01?03*", eWildcard, kTc, false}, {"Ab:\tcd", "ABCD", eExact, kTc, true},
      {"Ab:cd", "ABCD", eExact, kTc | kCase, false},
      // clang-format on
  };
  for (const auto& c : cases) {
    EXPECT_EQ(match1(c.text, c.pattern, c.method, c.options), c.expected)
        << '"' << c.text << "\" against \"" << c.pattern << "\" method " << c.method << " options " << c.options;
  }
}

TEST(TextSearch, CriteriaMatchWhenEveryCriterionWithTextMatches) {
  const S text("Reel 12 Scene 4");
  Criteria none;
  EXPECT_TRUE(none.empty());
  EXPECT_TRUE(match(text, none, 0));
  Criteria blanks(Criterion("", eExact));
  blanks.add(Criterion(S(), eStartsWith));
  EXPECT_TRUE(blanks.empty()) << "criteria without text are no condition";
  EXPECT_TRUE(match(text, blanks, 0));
  EXPECT_TRUE(match(S(), blanks, 0));

  Criteria both(Criterion("reel", eStartsWith));
  both.add(Criterion("", eExact));
  both.add(Criterion("scene 4", eContains));
  EXPECT_FALSE(both.empty());
  EXPECT_TRUE(match(text, both, 0));
  EXPECT_FALSE(match(text, both, kCase));
  both.add(Criterion("*5", eWildcard));
  EXPECT_FALSE(match(text, both, 0)) << "one failing criterion fails the whole";
  EXPECT_EQ(both.size(), 4);
  EXPECT_EQ(both.getCriterion(2).text(), "scene 4");
  EXPECT_EQ(both.getCriterion(2).method(), eContains);
  EXPECT_TRUE(both.getCriterion(4).text().empty());
  EXPECT_TRUE(both.getCriterion(65535).text().empty());
  EXPECT_TRUE(none.getCriterion(0).text().empty());
}

// Random short texts and patterns over a tiny alphabet reach the corner cases (repeats,
// adjacent stars, partial matches) far more often than hand-picked ones.
TEST(TextSearch, AgreesWithPlainReferenceOnRandomInput) {
  std::mt19937 rng(20240611);
  auto random_string = [&rng](const std::string& alphabet, int max_len) {
    std::string s(rng() % (max_len + 1), ' ');
    for (char& ch : s) ch = alphabet[rng() % alphabet.size()];
    return s;
  };
  auto normal = [](const std::string& s, unsigned options) {
    std::string out;
    for (char ch : s) {
      if ((options & kTc) && (ch == ':' || ch == '.')) continue;
      out += !(options & kCase) && ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch + 32) : ch;
    }
    return out;
  };
  for (int round = 0; round < 20000; ++round) {
    unsigned options = rng() % 4;
    std::string text = random_string("abAB:.", 8), pattern = random_string("abAB*?:", 5);
    std::string t = normal(text, options), p = normal(pattern, options);
    SCOPED_TRACE("\"" + text + "\" \"" + pattern + "\" options " + std::to_string(options));
    if (pattern.empty()) {
      // No text, no condition, whatever the method.
      for (eMatchMethod m : {eExact, eContains, eStartsWith, eWildcard}) EXPECT_TRUE(match1(text, pattern, m, options));
      continue;
    }
    EXPECT_EQ(match1(text, pattern, eExact, options), t == p);
    EXPECT_EQ(match1(text, pattern, eContains, options), t.find(p) != std::string::npos);
    EXPECT_EQ(match1(text, pattern, eStartsWith, options), t.compare(0, p.size(), p) == 0);
    EXPECT_EQ(match1(text, pattern, eWildcard, options), reference_wildcard(t.c_str(), p.c_str()));
  }
}

}  // namespace
