#include "Text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace kst {

namespace {

constexpr uint64_t kOnes = 0x0101010101010101ull;
constexpr uint64_t kHighs = 0x8080808080808080ull;

// Nonzero when some byte of `w` is below `n` (at most 0x80). Exact as a test: a borrow reaches
// a byte only from a lower one that is below `n` itself.
constexpr uint64_t bytes_below(uint64_t w, unsigned char n) { return (w - kOnes * n) & ~w & kHighs; }

// Whether `test` holds for some eight bytes of `text`; a text shorter than that is read as one
// word filled out with copies of its first byte, which change no answer. Every cell a table
// shows is tested: a byte at a time was a third of printing a large log.
template <class Test>
bool any_word(std::string_view text, Test test) {
  const char* p = text.data();
  const std::size_t n = text.size();
  uint64_t w;
  if (n < 8) {
    if (n == 0) return false;
    w = kOnes * static_cast<unsigned char>(p[0]);
    for (std::size_t i = 1; i < n; ++i) w = (w << 8) | static_cast<unsigned char>(p[i]);
    return test(w);
  }
  for (std::size_t at = 0; at < n; at += 8) {
    // The last eight bytes are read whole, over some already read.
    std::memcpy(&w, p + std::min(at, n - 8), sizeof w);
    if (test(w)) return true;
  }
  return false;
}

}  // namespace

bool hasControls(std::string_view text) {
  return any_word(text, [](uint64_t w) { return (bytes_below(w, 0x20) | bytes_below(w ^ (kOnes * 0x7f), 1)) != 0; });
}

bool hasAnyOf(std::string_view text, std::string_view bytes) {
  return any_word(text, [bytes](uint64_t w) {
    uint64_t found = 0;
    for (char c : bytes) found |= bytes_below(w ^ (kOnes * static_cast<unsigned char>(c)), 1);
    return found != 0;
  });
}

bool isAscii(std::string_view text) {
  return !any_word(text, [](uint64_t w) { return (w & kHighs) != 0; });
}

std::string escapeControls(std::string_view text) {
  if (!hasControls(text)) return std::string(text);
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    auto u = static_cast<unsigned char>(c);
    if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '\r') {
      out += "\\r";
    } else if (u < 0x20 || u == 0x7f) {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02x", u);
      out += hex;
    } else {
      out += c;
    }
  }
  return out;
}

std::string inQuotes(std::string_view text) {
  // Built in place: g++ 12 at -O3 reports a false overlap (-Wrestrict) for "\"" + text.
  std::string out(1, '"');
  out += escapeControls(text);
  out += '"';
  return out;
}

bool endsWith(std::string_view text, std::string_view tail) {
  return text.size() >= tail.size() && text.substr(text.size() - tail.size()) == tail;
}

std::string plural(unsigned n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string trim(std::string_view text) {
  std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  std::size_t last = text.find_last_not_of(" \t");
  return std::string(text.substr(first, last - first + 1));
}

std::string wrap(std::string_view text, std::size_t width) {
  std::string out;
  std::size_t line = 0;
  while (!text.empty()) {
    std::size_t end = text.find(' ');
    std::string_view word = text.substr(0, end);
    if (line > 0 && line + 1 + word.size() > width) {
      out += '\n';
      line = 0;
    } else if (line > 0) {
      out += ' ';
      ++line;
    }
    out += word;
    line += word.size();
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
  }
  return out;
}

}  // namespace kst
