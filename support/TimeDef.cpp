// SMPTE time codes in their two text forms. Anything that does not read as a time code is
// carried through unchanged: merging copies values through these forms and must never lose one.

#include "support/TimeDef.h"

#include <cstdio>
#include <string_view>

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_separator(char c) { return c == ':' || c == ';' || c == '.'; }
bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// The two-digit number at `text[at]`, or -1.
int two_digits(std::string_view text, std::size_t at) {
  if (at + 1 >= text.size() || !is_digit(text[at]) || !is_digit(text[at + 1])) return -1;
  return (text[at] - '0') * 10 + (text[at + 1] - '0');
}

struct Fields {
  int hours, minutes, seconds, frames;
  bool drop;
};

// Reads "HH?MM?SS?FF" (each ? one of : ; .), "HHMMSS?FF" or "HHMMSSFF".
bool read_timecode(std::string_view text, Fields& out) {
  std::size_t step;
  char before_frames = 0;
  if (text.size() == 8) {
    step = 2;
  } else if (text.size() == 11 && is_separator(text[2]) && is_separator(text[5]) && is_separator(text[8])) {
    step = 3;
    before_frames = text[8];
  } else if (text.size() == 9 && is_separator(text[6])) {
    step = 2;
    before_frames = text[6];
  } else {
    return false;
  }
  out.hours = two_digits(text, 0);
  out.minutes = two_digits(text, step);
  out.seconds = two_digits(text, 2 * step);
  out.frames = two_digits(text, text.size() - 2);
  out.drop = before_frames == ';';
  return out.hours >= 0 && out.hours < 24 && out.minutes >= 0 && out.minutes < 60 && out.seconds >= 0 &&
         out.seconds < 60 && out.frames >= 0 && out.frames < 60;
}

}  // namespace

time_def::time_def(const char* text, label_t kind) : raw_(text) {
  if (kind != kLabelTimecode) return;
  std::string_view v = raw_.view();
  while (!v.empty() && is_blank(v.front())) v.remove_prefix(1);
  while (!v.empty() && is_blank(v.back())) v.remove_suffix(1);
  Fields f;
  if (!read_timecode(v, f)) return;
  hours_ = f.hours;
  minutes_ = f.minutes;
  seconds_ = f.seconds;
  frames_ = f.frames;
  drop_ = f.drop;
  parsed_ = true;
}

LightweightString<char> time_def::get_punctuated_str() const {
  if (!parsed_) return raw_;
  char text[16];
  int n =
      std::snprintf(text, sizeof text, "%02d:%02d:%02d%c%02d", hours_, minutes_, seconds_, drop_ ? ';' : ':', frames_);
  return LightweightString<char>(text, static_cast<std::size_t>(n));
}

LightweightString<char> time_def::get_database_str() const {
  if (!parsed_) return raw_;
  char text[16];
  int n = drop_ ? std::snprintf(text, sizeof text, "%02d%02d%02d;%02d", hours_, minutes_, seconds_, frames_)
                : std::snprintf(text, sizeof text, "%02d%02d%02d%02d", hours_, minutes_, seconds_, frames_);
  return LightweightString<char>(text, static_cast<std::size_t>(n));
}
