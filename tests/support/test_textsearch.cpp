#include <gtest/gtest.h>

#include <random>
#include <string>

#include "support/TextSearch.h"

namespace {

using TextSearch::Criteria;
using TextSearch::Criterion;
using TextSearch::eContains;
using TextSearch::eExact;
using TextSearch::eMatchMethod;
using TextSearch::eStartsWith;
using TextSearch::eWildcard;

constexpr unsigned kCase = TextSearch::kCaseSensitive;
constexpr unsigned kTc = TextSearch::kTimecode;

bool match1(const std::string& text, const std::string& pattern, eMatchMethod method, unsigned options) {
  Criteria c{Criterion(LightweightString<char>(pattern.c_str()), method)};
  return TextSearch::match(LightweightString<char>(text.c_str()), c, options);
}

// Plain recursive wildcard matching, slow but obviously right, to check the fast one against.
bool reference_wildcard(const char* t, const char* p) {
  if (!*p) return !*t;
  if (*p == '*') return reference_wildcard(t, p + 1) || (*t && reference_wildcard(t + 1, p));
  return *t && (*p == '?' || *p == *t) && reference_wildcard(t + 1, p + 1);
}

TEST(TextSearch, EachMethodAndOption) {
  struct Case {
    const char* text;
    const char* pattern;
    eMatchMethod method;
    unsigned options;
    bool expected;
  };
  const Case cases[] = {
      // exact: the whole text
      {"Reel 12", "Reel 12", eExact, 0, true},
      {"Reel 12", "reel 12", eExact, 0, true},
      {"Reel 12", "reel 12", eExact, kCase, false},
      {"Reel 12", "Reel 1", eExact, 0, false},
      // contains
      {"A Reel 12", "reel", eContains, 0, true},
      {"A Reel 12", "reel", eContains, kCase, false},
      {"A Reel 12", "A Reel 123", eContains, 0, false},
      {"aaab", "aab", eContains, 0, true},
      {"[SCENE]", "[scene]", eContains, 0, true},
      {"\xc3\xa9t\xc3\xa9", "\xc3\x89T\xc3\x89", eContains, 0, false},  // only ASCII folds
      // starts with
      {"Scene 4A", "scene", eStartsWith, 0, true},
      {"Scene 4A", "Scene 4AB", eStartsWith, 0, false},
      {"Scene 4A", "4A", eStartsWith, 0, false},
      {"Scene 4A", "scene", eStartsWith, kCase, false},
      // wildcard
      {"Take_07.mov", "*.mov", eWildcard, 0, true},
      {"Take_07.mov", "take*", eWildcard, 0, true},
      {"Take_07.mov", "take*", eWildcard, kCase, false},
      {"Take_07.mov", "*07*", eWildcard, 0, true},
      {"Take_07.mov", "Take_0?.mov", eWildcard, 0, true},
      {"Take_07.mov", "Take_?.mov", eWildcard, 0, false},
      {"Take_07.mov", "*", eWildcard, 0, true},
      {"", "*", eWildcard, 0, true},
      {"", "?", eWildcard, 0, false},
      {"abcabd", "*ab?", eWildcard, 0, true},
      {"abcabd", "a*c*d", eWildcard, 0, true},
      {"a*b", "a*b", eContains, 0, true},  // "*" is literal outside wildcards
      {"axb", "a*b", eContains, 0, false},
      // time-code mode: punctuation and blanks are ignored on both sides
      {"01:00:00:00", "01000000", eExact, kTc, true},
      {"01000000", "01:00:00:00", eExact, kTc, true},
      {"01;00;00;00", "01.00.00.00", eExact, kTc, true},
      {" 01, 00:00:00 ", "01000000", eExact, kTc, true},
      {"01:00:00:01", "01000000", eExact, kTc, false},
      {"10:01:00:00", "0100", eContains, kTc, true},
      {"10:02:00:00", "0100", eContains, kTc, false},
      {"01:02:03:04", "0102", eStartsWith, kTc, true},
      {"01:02:03:04", "01:03", eStartsWith, kTc, false},
      {"01:02:03:04", "01*04", eWildcard, kTc, true},
      {"01:02:03:04", "01??03??", eWildcard, kTc, true},
      {"01:02:03:04", "01?03*", eWildcard, kTc, false},
      {"Ab:cd", "ABCD", eExact, kTc, true},
      {"Ab:cd", "ABCD", eExact, kTc | kCase, false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(match1(c.text, c.pattern, c.method, c.options), c.expected)
        << '"' << c.text << "\" against \"" << c.pattern << "\" method " << c.method << " options " << c.options;
  }
}

TEST(TextSearch, CriteriaMatchWhenEveryCriterionWithTextMatches) {
  const LightweightString<char> text("Reel 12 Scene 4");
  Criteria none;
  EXPECT_TRUE(none.empty());
  EXPECT_TRUE(TextSearch::match(text, none, 0));

  Criteria blanks(Criterion("", eExact));
  blanks.add(Criterion(LightweightString<char>(), eStartsWith));
  EXPECT_TRUE(blanks.empty()) << "criteria without text are no condition";
  EXPECT_TRUE(TextSearch::match(text, blanks, 0));
  EXPECT_TRUE(TextSearch::match(LightweightString<char>(), blanks, 0));

  Criteria both(Criterion("reel", eStartsWith));
  both.add(Criterion("", eExact));
  both.add(Criterion("scene 4", eContains));
  EXPECT_FALSE(both.empty());
  EXPECT_TRUE(TextSearch::match(text, both, 0));
  EXPECT_FALSE(TextSearch::match(text, both, kCase));
  both.add(Criterion("*5", eWildcard));
  EXPECT_FALSE(TextSearch::match(text, both, 0)) << "one failing criterion fails the whole";

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
  auto random_string = [&rng](const char* alphabet, std::size_t alphabet_size, int max_len) {
    std::string s(rng() % (max_len + 1), ' ');
    for (char& ch : s) ch = alphabet[rng() % alphabet_size];
    return s;
  };
  auto lower = [](std::string s) {
    for (char& ch : s) ch = static_cast<char>(ch >= 'A' && ch <= 'Z' ? ch + 32 : ch);
    return s;
  };
  auto strip = [](std::string s) {
    std::string out;
    for (char ch : s) {
      if (ch != ':' && ch != ';' && ch != '.' && ch != ',' && ch != ' ') out += ch;
    }
    return out;
  };
  for (int round = 0; round < 20000; ++round) {
    unsigned options = rng() % 4;
    std::string text = random_string("abAB:.", 6, 8);
    std::string pattern = random_string("abAB*?:", 7, 5);
    std::string t = text, p = pattern;
    if (options & kTc) {
      t = strip(t);
      p = strip(p);
    }
    if (!(options & kCase)) {
      t = lower(t);
      p = lower(p);
    }
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
