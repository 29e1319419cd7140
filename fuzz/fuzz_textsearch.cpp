// Text search against a plain reference: with the ignored characters of time-code mode taken
// out and case folded when it does not matter, exact is equality, starts-with a prefix test,
// contains a substring test and wildcard the usual "*"/"?" match; every criterion must match.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/FuzzChecks.h"
#include "fuzz/FuzzInput.h"
#include "support/TextSearch.h"

namespace {

using fuzzing::check;

std::string normal(const std::string& s, bool case_sensitive, bool timecode) {
  std::string out;
  for (char c : s) {
    if (timecode && (c == ':' || c == ';' || c == '.' || c == ',' || c == ' ' || c == '\t')) continue;
    if (!case_sensitive && c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    out += c;
  }
  return out;
}

bool glob(const std::string& text, const std::string& pattern) {
  // matched[j]: the pattern's first j characters match the text read so far.
  std::vector<char> matched(pattern.size() + 1, 0);
  matched[0] = 1;
  for (std::size_t j = 1; j <= pattern.size() && pattern[j - 1] == '*'; ++j) matched[j] = 1;
  for (char c : text) {
    std::vector<char> next(pattern.size() + 1, 0);
    for (std::size_t j = 1; j <= pattern.size(); ++j) {
      const char p = pattern[j - 1];
      if (p == '*') {
        next[j] = next[j - 1] || matched[j];
      } else if (p == '?' || p == c) {
        next[j] = matched[j - 1];
      }
    }
    matched = next;
  }
  return matched[pattern.size()];
}

bool reference(const std::string& text, const std::string& pattern, int method) {
  switch (method) {
    case TextSearch::eExact:
      return text == pattern;
    case TextSearch::eStartsWith:
      return text.compare(0, pattern.size(), pattern) == 0 && text.size() >= pattern.size();
    case TextSearch::eWildcard:
      return glob(text, pattern);
    default:
      return text.find(pattern) != std::string::npos;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzzing::FuzzInput in(data, size);
  const unsigned options = in.byte();
  const bool case_sensitive = options & TextSearch::kCaseSensitive;
  const bool timecode = options & TextSearch::kTimecode;
  const int criteria_count = in.range(1, 3);

  struct Wanted {
    std::string pattern;
    int method;
  };
  std::vector<Wanted> wanted;
  TextSearch::Criteria criteria;
  for (int i = 0; i < criteria_count; ++i) {
    const int method = in.range(0, 3);
    std::string pattern = in.text(48);
    criteria.add(TextSearch::Criterion(LightweightString<char>(pattern.data(), pattern.size()),
                                       static_cast<TextSearch::eMatchMethod>(method)));
    wanted.push_back({pattern, method});
  }
  std::string text(in.rest().substr(0, 512));

  bool expected = true;
  bool any_text = false;
  for (const Wanted& w : wanted) {
    if (w.pattern.empty()) continue;  // no condition
    any_text = true;
    expected = expected &&
               reference(normal(text, case_sensitive, timecode), normal(w.pattern, case_sensitive, timecode), w.method);
  }
  const bool got = TextSearch::match(LightweightString<char>(text.data(), text.size()), criteria, options);
  check(got == expected, "match agrees with the reference", text);
  check(criteria.empty() == !any_text, "criteria empty when no criterion has text");
  return 0;
}
