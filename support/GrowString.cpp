// GrowString keeps its text in one block of the process allocator, doubling as it grows.

#include "support/GrowString.h"

#include <cstring>

#include "support/OS.h"

GrowString::GrowString() = default;

GrowString::~GrowString() { OS()->allocator()->release(text_); }

void GrowString::append(const char* text) {
  if (text) append(text, std::strlen(text));
}

void GrowString::append(char c) { append(&c, 1); }

void GrowString::append(const char* text, std::size_t length) {
  if (!text || length == 0) return;
  // `text` may point into our own block, so the old block goes only after the copy.
  char* old = nullptr;
  if (length_ + length + 1 > capacity_) {
    old = text_;
    reserve(length_ + length + 1);
  }
  std::memmove(text_ + length_, text, length);
  length_ += length;
  text_[length_] = '\0';
  OS()->allocator()->release(old);
}

void GrowString::clear() noexcept {
  length_ = 0;
  if (text_) text_[0] = '\0';
}

// Moves the text to a new block of at least `wanted` bytes; the caller releases the old one.
void GrowString::reserve(std::size_t wanted) {
  std::size_t capacity = capacity_ < 32 ? 32 : capacity_ * 2;
  if (capacity < wanted) capacity = wanted;
  char* fresh = static_cast<char*>(OS()->allocator()->allocate(capacity));
  if (length_) std::memcpy(fresh, text_, length_);
  fresh[length_] = '\0';
  text_ = fresh;
  capacity_ = capacity;
}
