// Text helpers: numbers, case, flags, natural order, paths and UTF-8.

#include "support/StringUtils.h"

#include <strings.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "support/OS.h"

namespace {

bool is_blank(unsigned char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool is_digit(unsigned char c) { return c >= '0' && c <= '9'; }

// Builds a string through a small local buffer, so a conversion appends in a few large pieces
// rather than one character at a time.
template <class T>
class Builder {
 public:
  explicit Builder(std::size_t expected) { out_.resizeFor(static_cast<unsigned>(expected)); }
  void put(T c) {
    chunk_[used_++] = c;
    if (used_ == kChunk) flush();
  }
  LightweightString<T> finish() {
    flush();
    return std::move(out_);
  }

 private:
  static constexpr std::size_t kChunk = 256;
  void flush() {
    out_.append(chunk_, used_);
    used_ = 0;
  }
  LightweightString<T> out_;
  T chunk_[kChunk];
  std::size_t used_ = 0;
};

// The text between leading and trailing blanks.
std::string_view trimmed(const LightweightString<char>& text) {
  std::string_view v = text.view();
  while (!v.empty() && is_blank(static_cast<unsigned char>(v.front()))) v.remove_prefix(1);
  while (!v.empty() && is_blank(static_cast<unsigned char>(v.back()))) v.remove_suffix(1);
  return v;
}

constexpr wchar_t kReplacement = 0xFFFD;

}  // namespace

namespace Zr {

LightweightString<char> StringFromInteger(int value) {
  LightweightString<char> text;
  text += value;
  return text;
}

unsigned UIntFromString(const LightweightString<char>& text, unsigned fallback) {
  std::string_view digits = trimmed(text);
  if (digits.empty()) return fallback;
  uint64_t value = 0;
  for (char c : digits) {
    if (!is_digit(static_cast<unsigned char>(c))) return fallback;
    value = value * 10 + static_cast<unsigned>(c - '0');
    if (value > UINT32_MAX) return fallback;
  }
  return static_cast<unsigned>(value);
}

void toLower(LightweightString<char>& text) {
  const char* s = text.c_str();
  uint32_t n = text.size();
  uint32_t first = 0;
  while (first < n && !(s[first] >= 'A' && s[first] <= 'Z')) ++first;
  if (first == n) return;  // nothing to change: keep sharing the body
  Builder<char> out(n);
  for (uint32_t i = 0; i < n; ++i) {
    char c = s[i];
    out.put(c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c);
  }
  text = out.finish();
}

LightweightString<wchar_t> WStringFromAscii(const char* text) {
  if (!text || !*text) return {};
  std::size_t n = std::strlen(text);
  Builder<wchar_t> out(n);
  for (std::size_t i = 0; i < n; ++i) out.put(static_cast<wchar_t>(static_cast<unsigned char>(text[i])));
  return out.finish();
}

}  // namespace Zr

int strxcmp(std::string_view a, std::string_view b) {
  // The bytes before the first difference compare level, and texts that are sorted together
  // share long beginnings. The walk starts after the last non-digit among them, so that a run
  // of digits is still read whole.
  const std::size_t shorter = std::min(a.size(), b.size());
  std::size_t same = 0;
  for (uint64_t x, y; same + 8 <= shorter; same += 8) {
    std::memcpy(&x, a.data() + same, 8);
    std::memcpy(&y, b.data() + same, 8);
    if (x != y) break;
  }
  while (same < shorter && a[same] == b[same]) ++same;
  while (same > 0 && is_digit(static_cast<unsigned char>(a[same - 1]))) --same;
  auto p = reinterpret_cast<const unsigned char*>(a.data()) + same;
  auto q = reinterpret_cast<const unsigned char*>(b.data()) + same;
  const auto pend = reinterpret_cast<const unsigned char*>(a.data()) + a.size();
  const auto qend = reinterpret_cast<const unsigned char*>(b.data()) + b.size();
  while (p != pend && q != qend) {
    if (is_digit(*p) && is_digit(*q)) {
      // Compare the runs by value: fewer significant digits is smaller, then digit by digit.
      while (*p == '0' && p + 1 != pend && is_digit(p[1])) ++p;
      while (*q == '0' && q + 1 != qend && is_digit(q[1])) ++q;
      auto pe = p, qe = q;
      while (pe != pend && is_digit(*pe)) ++pe;
      while (qe != qend && is_digit(*qe)) ++qe;
      if (pe - p != qe - q) return pe - p < qe - q ? -1 : 1;
      for (; p < pe; ++p, ++q) {
        if (*p != *q) return *p < *q ? -1 : 1;
      }
      continue;
    }
    if (*p != *q) return *p < *q ? -1 : 1;
    ++p;
    ++q;
  }
  if (p != pend || q != qend) return p != pend ? 1 : -1;
  // Level by value ("a01" and "a1"): the bytes decide, so only equal texts answer 0.
  const int c = a.compare(b);
  return (c > 0) - (c < 0);
}

int strxcmp(const char* a, const char* b) {
  return strxcmp(std::string_view(a ? a : ""), std::string_view(b ? b : ""));
}

LightweightString<char> BoolAsString(bool value) { return value ? "true" : "false"; }

bool BoolFromString(const LightweightString<char>& text, bool& value) {
  static const struct {
    const char* word;
    bool value;
  } kWords[] = {{"true", true}, {"false", false}, {"yes", true}, {"no", false}, {"on", true}, {"off", false},
                {"t", true},    {"f", false},     {"y", true},   {"n", false},  {"1", true},  {"0", false}};
  std::string_view word = trimmed(text);
  for (const auto& known : kWords) {
    if (word.size() == std::strlen(known.word) && strncasecmp(word.data(), known.word, word.size()) == 0) {
      value = known.value;
      return true;
    }
  }
  return false;
}

LightweightString<wchar_t> stripPathAndExt(const LightweightString<wchar_t>& path) {
  std::wstring_view name = path.view();
  std::size_t slash = name.rfind(L'/');
  if (slash != std::wstring_view::npos) name.remove_prefix(slash + 1);
  std::size_t dot = name.rfind(L'.');
  // A leading dot names a hidden file; it is not an extension.
  if (dot != std::wstring_view::npos && dot > 0) name = name.substr(0, dot);
  if (name.size() == path.size()) return path;
  return LightweightString<wchar_t>(name);
}

LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text) {
  auto s = reinterpret_cast<const unsigned char*>(text.c_str());
  std::size_t n = text.size();
  if (n == 0) return {};
  Builder<wchar_t> out(n);
  std::size_t i = 0;
  while (i < n) {
    unsigned char lead = s[i];
    if (lead < 0x80) {
      out.put(static_cast<wchar_t>(lead));
      ++i;
      continue;
    }
    // The allowed range of the second byte excludes overlong forms, surrogates and code
    // points past U+10FFFF.
    int need;
    uint32_t code;
    unsigned char lo = 0x80, hi = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
      need = 1;
      code = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      need = 2;
      code = lead & 0x0F;
      if (lead == 0xE0) lo = 0xA0;
      if (lead == 0xED) hi = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      need = 3;
      code = lead & 0x07;
      if (lead == 0xF0) lo = 0x90;
      if (lead == 0xF4) hi = 0x8F;
    } else {
      out.put(kReplacement);
      ++i;
      continue;
    }
    std::size_t j = i + 1;
    int got = 0;
    for (; got < need && j < n && s[j] >= lo && s[j] <= hi; ++got, ++j) {
      code = (code << 6) | (s[j] & 0x3F);
      lo = 0x80;
      hi = 0xBF;
    }
    // A broken sequence becomes one replacement for the bytes that began it; the byte that
    // broke it starts afresh.
    out.put(got == need ? static_cast<wchar_t>(code) : kReplacement);
    i = j;
  }
  return out.finish();
}

LightweightString<char> toUTF8(const LightweightString<wchar_t>& text) {
  std::size_t n = text.size();
  if (n == 0) return {};
  Builder<char> out(n);
  for (wchar_t w : text) {
    uint32_t c = static_cast<uint32_t>(w);
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = kReplacement;
    if (c < 0x80) {
      out.put(static_cast<char>(c));
    } else if (c < 0x800) {
      out.put(static_cast<char>(0xC0 | (c >> 6)));
      out.put(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
      out.put(static_cast<char>(0xE0 | (c >> 12)));
      out.put(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.put(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
      out.put(static_cast<char>(0xF0 | (c >> 18)));
      out.put(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
      out.put(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.put(static_cast<char>(0x80 | (c & 0x3F)));
    }
  }
  return out.finish();
}

bool fileExists(const LightweightString<wchar_t>& path) {
  if (path.empty()) return false;
  return OS()->fileSystem()->exists(toUTF8(path).c_str()) == 1;
}

bool isEssentiallyEmpty(const char* text, std::size_t length) {
  if (!text) return true;
  for (std::size_t i = 0; i < length; ++i) {
    if (!is_blank(static_cast<unsigned char>(text[i]))) return false;
  }
  return true;
}

bool isEssentiallyEmpty(const LightweightString<char>& text) { return isEssentiallyEmpty(text.c_str(), text.size()); }
