#ifndef KESTA_SUPPORT_GROWSTRING_H
#define KESTA_SUPPORT_GROWSTRING_H
// GrowString: a text built by appending, always zero-terminated; used where the library
// assembles messages and printed forms.
//
// Thread safety: none; one thread at a time.

#include <cstddef>

#include "support/Export.h"

class KESTA_SUPPORT_API GrowString {
 public:
  GrowString();
  ~GrowString();
  GrowString(const GrowString&) = delete;
  GrowString& operator=(const GrowString&) = delete;

  void append(const char* text);  // null appends nothing
  void append(const char* text, std::size_t length);
  void append(char c);
  void clear() noexcept;

  operator const char*() const noexcept { return text_ ? text_ : ""; }
  const char* c_str() const noexcept { return text_ ? text_ : ""; }
  std::size_t size() const noexcept { return length_; }

 private:
  void reserve(std::size_t wanted);

  char* text_ = nullptr;
  std::size_t length_ = 0;
  std::size_t capacity_ = 0;
};

#endif
