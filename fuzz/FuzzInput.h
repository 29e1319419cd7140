#ifndef KESTA_FUZZ_FUZZINPUT_H
#define KESTA_FUZZ_FUZZINPUT_H
// Reads a fuzzer's bytes as a stream of small decisions: numbers in a range, flags and short
// texts. Past the end every read answers its smallest value, so any byte string decodes to a
// valid, finite sequence of choices and a mutation changes only the choices it touches.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace fuzzing {

class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  bool empty() const noexcept { return at_ >= size_; }
  std::size_t left() const noexcept { return size_ - at_; }

  uint8_t byte() noexcept { return at_ < size_ ? data_[at_++] : 0; }
  bool flag() noexcept { return (byte() & 1) != 0; }

  // A number in [lo, hi]; two bytes when the range needs them.
  int range(int lo, int hi) noexcept {
    const unsigned span = static_cast<unsigned>(hi - lo) + 1;
    unsigned raw = byte();
    if (span > 256) raw = raw << 8 | byte();
    return lo + static_cast<int>(raw % span);
  }

  // A text of at most `max` bytes: a length byte, then that many bytes.
  std::string text(std::size_t max) {
    std::size_t n = byte() % (max + 1);
    if (n > left()) n = left();
    std::string out(reinterpret_cast<const char*>(data_ + at_), n);
    at_ += n;
    return out;
  }

  // Everything not read yet.
  std::string_view rest() noexcept {
    std::string_view out(reinterpret_cast<const char*>(data_ + at_), left());
    at_ = size_;
    return out;
  }

 private:
  const uint8_t* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

}  // namespace fuzzing

#endif
