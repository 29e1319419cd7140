// Time codes on arbitrary text: a value that reads as a time code gives two well-formed text
// forms that read back to the same code and that a time-code search finds equal; anything
// else is carried through unchanged in both forms.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/FuzzChecks.h"
#include "support/TextSearch.h"
#include "support/TimeDef.h"

namespace {

using fuzzing::check;

bool digit(char c) { return c >= '0' && c <= '9'; }
bool separator(char c) { return c == ':' || c == ';' || c == '.'; }
bool blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string digitsOf(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (digit(c)) out += c;
  }
  return out;
}

// "HH?MM?SS?FF", "HHMMSS;FF" (the drop-frame database form) or "HHMMSSFF"; answers the eight
// digits, empty when the text has none of these shapes.
std::string shapeDigits(std::string_view t) {
  auto all_digits = [&](std::initializer_list<std::size_t> at) {
    for (std::size_t i : at) {
      if (!digit(t[i])) return false;
    }
    return true;
  };
  if (t.size() == 8 && all_digits({0, 1, 2, 3, 4, 5, 6, 7})) return std::string(t);
  if (t.size() == 9 && separator(t[6]) && all_digits({0, 1, 2, 3, 4, 5, 7, 8})) return digitsOf(t);
  if (t.size() == 11 && separator(t[2]) && separator(t[5]) && separator(t[8]) && all_digits({0, 1, 3, 4, 6, 7, 9, 10}))
    return digitsOf(t);
  return {};
}

int two(const std::string& d, std::size_t at) { return (d[at] - '0') * 10 + (d[at + 1] - '0'); }

void checkPunctuated(const std::string& p, bool drop) {
  check(p.size() == 11 && p[2] == ':' && p[5] == ':' && p[8] == (drop ? ';' : ':'), "punctuated form", p);
  check(digitsOf(p).size() == 8, "punctuated digits", p);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  text = text.substr(0, text.find('\0'));
  const time_def code(text.c_str(), kLabelTimecode);
  const std::string punctuated = code.get_punctuated_str().c_str();
  const std::string database = code.get_database_str().c_str();

  std::string_view trimmed(text);
  while (!trimmed.empty() && blank(trimmed.front())) trimmed.remove_prefix(1);
  while (!trimmed.empty() && blank(trimmed.back())) trimmed.remove_suffix(1);
  const std::string shape = shapeDigits(trimmed);

  if (!code.isTimecode()) {
    check(punctuated == text && database == text, "unread text is carried unchanged", text);
    // Every plausible code must read.
    check(shape.empty() || two(shape, 0) >= 24 || two(shape, 2) >= 60 || two(shape, 4) >= 60 || two(shape, 6) >= 24,
          "a well-formed code reads", text);
    return 0;
  }
  check(!shape.empty(), "only well-formed codes read", text);
  check(digitsOf(punctuated) == shape, "the digits are kept", text);
  checkPunctuated(punctuated, code.dropFrame());
  check(database == (code.dropFrame() ? shape.substr(0, 6) + ";" + shape.substr(6) : shape), "database form", text);
  if (code.dropFrame()) check(trimmed.size() > 6 && trimmed[trimmed.size() - 3] == ';', "drop-frame from ';'", text);

  // Both forms read back to the same code.
  for (const std::string& form : {punctuated, database}) {
    const time_def again(form.c_str(), kLabelTimecode);
    check(again.isTimecode() && again.dropFrame() == code.dropFrame(), "a form reads back", form);
    check(again.get_punctuated_str() == punctuated.c_str() && again.get_database_str() == database.c_str(),
          "a form gives the same forms", form);
  }

  // The two forms are the same code to a time-code search, in both directions.
  const unsigned options = TextSearch::kTimecode;
  const LightweightString<char> p(punctuated.c_str()), d(database.c_str());
  check(TextSearch::match(p, TextSearch::Criteria(TextSearch::Criterion(d, TextSearch::eExact)), options) &&
            TextSearch::match(d, TextSearch::Criteria(TextSearch::Criterion(p, TextSearch::eExact)), options),
        "time-code search sees one code", text);
  return 0;
}
