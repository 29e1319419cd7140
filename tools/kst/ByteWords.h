#ifndef KESTA_TOOLS_KST_BYTEWORDS_H
#define KESTA_TOOLS_KST_BYTEWORDS_H
// Tests of a text's bytes eight at a time, for the checks made of every cell printed: a byte at
// a time (or find_first_of, a call for every byte) was a third to a half of printing a large log.
//
//   kst::byteWords::any(text, [](uint64_t w) { return byteWords::equal(w, ',') != 0; })

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kst::byteWords {

constexpr uint64_t kOnes = 0x0101010101010101ull;
constexpr uint64_t kHighs = 0x8080808080808080ull;

// Nonzero when some byte of `w` is below `n` (at most 0x80). Exact as a test: a borrow reaches
// a byte only from a lower one that is below `n` itself.
constexpr uint64_t below(uint64_t w, unsigned char n) { return (w - kOnes * n) & ~w & kHighs; }
// Nonzero when some byte of `w` is `c`.
constexpr uint64_t equal(uint64_t w, unsigned char c) { return below(w ^ (kOnes * c), 1); }
// Nonzero when some byte of `w` is 0x80 or above.
constexpr uint64_t high(uint64_t w) { return w & kHighs; }

// Whether `test` holds for some eight bytes of `text`; a text shorter than that is read as one
// word filled out with copies of its first byte, which change no answer.
template <class Test>
bool any(std::string_view text, Test test) {
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

}  // namespace kst::byteWords

#endif
