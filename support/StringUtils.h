#ifndef KESTA_SUPPORT_STRINGUTILS_H
#define KESTA_SUPPORT_STRINGUTILS_H
// Small text helpers the library relies on: conversions, comparisons, path pieces and the
// separator-splitting templates.
//
//   auto cuts = Zr::findSeparators(line, Zr::IsMatchingChar(','), true);  // quote-aware
//   auto pieces = Zr::convertIndicesToSubStrings(line, cuts);             // "a","b c"
//
// Thread safety: every function here is reentrant.

#include <cstdint>
#include <string_view>
#include <vector>

#include "support/LightweightString.h"

namespace Zr {

KESTA_SUPPORT_API LightweightString<char> StringFromInteger(int value);
// The unsigned decimal number that `text` holds (surrounding blanks allowed), or `fallback`
// when it holds none or the number does not fit 32 bits.
KESTA_SUPPORT_API unsigned UIntFromString(const LightweightString<char>& text, unsigned fallback);
// Lower-cases ASCII letters in place.
KESTA_SUPPORT_API void toLower(LightweightString<char>& text);
// Widens each byte to one wide character.
KESTA_SUPPORT_API LightweightString<wchar_t> WStringFromAscii(const char* text);

// Matches one character; the predicate of findSeparators.
struct IsMatchingChar {
  explicit IsMatchingChar(char c) : c_(c) {}
  bool operator()(char c) const { return c == c_; }
  char c_;
};

// Appends to `cuts` the position of every separator in `text`. With `quoteAware`, separators
// between double quotes do not count, and a double quote preceded by a backslash neither opens
// nor closes a quoted stretch.
template <class Match>
void findSeparators(std::string_view text, Match match, bool quoteAware, std::vector<uint32_t>& cuts) {
  bool quoted = false;
  const char* s = text.data();
  for (uint32_t i = 0, n = static_cast<uint32_t>(text.size()); i < n; ++i) {
    char c = s[i];
    if (quoteAware && c == '"' && !(i > 0 && s[i - 1] == '\\')) {
      quoted = !quoted;
    } else if (!quoted && match(c)) {
      cuts.push_back(i);
    }
  }
}

template <class Match>
std::vector<uint32_t> findSeparators(const LightweightString<char>& text, Match match, bool quoteAware) {
  std::vector<uint32_t> cuts;
  findSeparators(text.view(), match, quoteAware, cuts);
  return cuts;
}

// Collects the pieces of a split into any container with push_back.
template <class Container>
struct SplitOutputBuilder {
  explicit SplitOutputBuilder(Container& out) : out_(out) {}
  void operator()(const char* begin, std::size_t length) {
    out_.push_back(typename Container::value_type(begin, length));
  }
  Container& out_;
};

// The pieces of `text` between the separators at `cuts` (each piece as it stands, quotes and
// blanks kept). No cuts gives the whole text as the only piece; an empty text gives none.
template <class Builder>
void convertIndicesToSubStrings(std::string_view text, const std::vector<uint32_t>& cuts, Builder build) {
  if (text.empty()) return;
  std::size_t start = 0;
  for (uint32_t cut : cuts) {
    build(text.data() + start, cut - start);
    start = cut + 1;
  }
  build(text.data() + start, text.size() - start);
}

template <class Builder>
void convertIndicesToSubStrings(const LightweightString<char>& text, const std::vector<uint32_t>& cuts, Builder build) {
  convertIndicesToSubStrings(text.view(), cuts, build);
}

inline std::vector<LightweightString<char>> convertIndicesToSubStrings(const LightweightString<char>& text,
                                                                       const std::vector<uint32_t>& cuts) {
  std::vector<LightweightString<char>> pieces;
  convertIndicesToSubStrings(text, cuts, SplitOutputBuilder<std::vector<LightweightString<char>>>(pieces));
  return pieces;
}

}  // namespace Zr

// Case-sensitive natural order: runs of ASCII digits compare by numeric value, other bytes by
// unsigned value, so "A2" < "A10"; texts level that way fall back to strcmp (a total order).
KESTA_SUPPORT_API int strxcmp(const char* a, const char* b);
// The same for texts that end where their views do; they hold no zero byte.
KESTA_SUPPORT_API int strxcmp(std::string_view a, std::string_view b);

// "true" or "false".
KESTA_SUPPORT_API LightweightString<char> BoolAsString(bool value);
// Accepts, ignoring case and surrounding blanks, true/false, yes/no, on/off, t/f, y/n and 1/0;
// stores the value and answers true, or answers false and leaves `value` alone.
KESTA_SUPPORT_API bool BoolFromString(const LightweightString<char>& text, bool& value);

// The name without folder and extension: "/a/b/clip.rak" -> "clip"; ".hidden" stays.
KESTA_SUPPORT_API LightweightString<wchar_t> stripPathAndExt(const LightweightString<wchar_t>& path);
// UTF-8 to UTF-32 wchar_t; invalid bytes become U+FFFD.
KESTA_SUPPORT_API LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text);
// UTF-32 wchar_t to UTF-8 (what file names are handed to the system as).
KESTA_SUPPORT_API LightweightString<char> toUTF8(const LightweightString<wchar_t>& text);
// True when the named file or folder exists (through OS()->fileSystem()).
KESTA_SUPPORT_API bool fileExists(const LightweightString<wchar_t>& path);
// True for a text that is empty or holds only white space.
KESTA_SUPPORT_API bool isEssentiallyEmpty(const LightweightString<char>& text);
KESTA_SUPPORT_API bool isEssentiallyEmpty(const char* text, std::size_t length);

#endif
