#include "Text.h"

#include <algorithm>
#include <cstdio>

#include "ByteWords.h"

namespace kst {

bool hasControls(std::string_view text) {
  return byteWords::any(text, [](uint64_t w) { return (byteWords::below(w, 0x20) | byteWords::equal(w, 0x7f)) != 0; });
}

bool isAscii(std::string_view text) {
  return !byteWords::any(text, [](uint64_t w) { return byteWords::high(w) != 0; });
}

bool isPrintableAscii(std::string_view text) {
  namespace bw = byteWords;
  return !bw::any(text, [](uint64_t w) { return (bw::high(w) | bw::below(w, 0x20) | bw::equal(w, 0x7f)) != 0; });
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
