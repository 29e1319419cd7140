// The numeric appends of narrow strings.

#include "support/LightweightString.h"

#include <charconv>

namespace {

template <class Number>
LightweightString<char>& append_decimal(LightweightString<char>& s, Number value) {
  char digits[16];
  auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  return s.append(digits, static_cast<std::size_t>(end - digits));
}

}  // namespace

LightweightString<char>& operator+=(LightweightString<char>& s, int value) { return append_decimal(s, value); }

LightweightString<char>& operator+=(LightweightString<char>& s, unsigned value) { return append_decimal(s, value); }
