#ifndef KESTA_SUPPORT_LIGHTWEIGHTSTRING_H
#define KESTA_SUPPORT_LIGHTWEIGHTSTRING_H
// LightweightString<T>: a handle on a shared, reference-counted text body. Narrow strings hold
// field values, names and messages; wide strings hold file names.
//
//   LightweightString<char> a("Reel 1");
//   LightweightString<char> b = a;   // shares a's body
//   b += " (B)";                     // b copies first; a still reads "Reel 1"
//
// A handle without a body is the empty text: c_str() answers "" and never null, and it equals
// any other empty string. A body's characters are always zero-terminated. Appending writes in
// place only when this handle is the body's sole holder and the body has room.
//
// Thread safety: a body shared between threads may be read concurrently; each handle is used
// from one thread at a time. Bodies come from OS()->allocator().

#include <atomic>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <string_view>
#include <utility>

#include "support/OS.h"

template <class T>
class LightweightString {
 public:
  using value_type = T;

  LightweightString() noexcept = default;
  LightweightString(const T* text) { assign(text, text ? length_of(text) : 0); }
  LightweightString(const T* text, std::size_t length) { assign(text, length); }
  explicit LightweightString(std::basic_string_view<T> text) { assign(text.data(), text.size()); }
  LightweightString(const LightweightString& other) noexcept : body_(other.body_) { retain(); }
  LightweightString(LightweightString&& other) noexcept : body_(other.body_) { other.body_ = nullptr; }
  ~LightweightString() { drop(); }

  LightweightString& operator=(const LightweightString& other) noexcept {
    if (body_ != other.body_) {
      other.retain();
      drop();
      body_ = other.body_;
    }
    return *this;
  }
  LightweightString& operator=(LightweightString&& other) noexcept {
    if (this != &other) {
      drop();
      body_ = other.body_;
      other.body_ = nullptr;
    }
    return *this;
  }
  LightweightString& operator=(const T* text) {
    LightweightString fresh(text);
    swap(fresh);
    return *this;
  }

  void swap(LightweightString& other) noexcept { std::swap(body_, other.body_); }

  const T* c_str() const noexcept { return body_ ? body_->chars : empty_text(); }
  const T* data() const noexcept { return c_str(); }
  uint32_t size() const noexcept { return body_ ? body_->length : 0; }
  uint32_t length() const noexcept { return size(); }
  bool empty() const noexcept { return size() == 0; }
  // True for a handle without a body (as opposed to a body of length 0).
  bool isNull() const noexcept { return body_ == nullptr; }
  T operator[](std::size_t i) const noexcept { return c_str()[i]; }
  std::basic_string_view<T> view() const noexcept { return {c_str(), size()}; }
  const T* begin() const noexcept { return c_str(); }
  const T* end() const noexcept { return c_str() + size(); }
  uint32_t capacity() const noexcept { return body_ ? body_->capacity : 0; }
  // Number of handles sharing the body (0 without one); for tests and diagnostics.
  int32_t shareCount() const noexcept { return body_ ? body_->refs.load() : 0; }

  void clear() noexcept { drop(); }

  // Makes this handle the sole holder of a body with room for `length` characters, keeping
  // the text (cut to `length` when longer).
  void resizeFor(unsigned length) {
    uint32_t keep = size() < length ? size() : length;
    Body* fresh = make_body(length);
    if (body_ && keep) std::memcpy(fresh->chars, body_->chars, keep * sizeof(T));
    fresh->chars[keep] = T(0);
    fresh->length = keep;
    drop();
    body_ = fresh;
  }

  LightweightString& append(const T* text, std::size_t n) {
    if (n == 0) return *this;
    uint32_t old = size();
    uint32_t wanted = static_cast<uint32_t>(old + n);
    if (!body_ || body_->refs.load(std::memory_order_acquire) != 1 || body_->capacity < wanted) {
      uint32_t grown = old ? old * 2 : 0;
      if (grown < wanted) grown = wanted;
      // `text` may point into our own body: copy it before letting the old body go.
      Body* fresh = make_body(grown);
      if (body_ && old) std::memcpy(fresh->chars, body_->chars, old * sizeof(T));
      std::memcpy(fresh->chars + old, text, n * sizeof(T));
      fresh->length = wanted;
      fresh->chars[wanted] = T(0);
      drop();
      body_ = fresh;
      return *this;
    }
    std::memmove(body_->chars + old, text, n * sizeof(T));
    body_->length = wanted;
    body_->chars[wanted] = T(0);
    return *this;
  }
  LightweightString& operator+=(const T* text) { return text ? append(text, length_of(text)) : *this; }
  LightweightString& operator+=(T c) { return append(&c, 1); }
  LightweightString& operator+=(const LightweightString& other) {
    LightweightString keep(other);  // other may be *this
    return append(keep.c_str(), keep.size());
  }

  // Three-way comparison of the code units (unsigned for char), shorter first on a tie.
  int compare(const LightweightString& other) const noexcept { return compare(other.c_str(), other.size()); }
  int compare(const T* text, std::size_t n) const noexcept {
    std::size_t mine = size();
    std::size_t common = mine < n ? mine : n;
    const T* a = c_str();
    for (std::size_t i = 0; i < common; ++i) {
      if (a[i] != text[i]) return unit(a[i]) < unit(text[i]) ? -1 : 1;
    }
    return mine == n ? 0 : (mine < n ? -1 : 1);
  }
  // Compares ignoring ASCII case, like strcasecmp.
  int icompare(const T* text) const noexcept {
    const T* a = c_str();
    if (!text) text = empty_text();
    for (;; ++a, ++text) {
      auto x = fold(*a), y = fold(*text);
      if (x != y) return x < y ? -1 : 1;
      if (!*a) return 0;
    }
  }

  friend bool operator==(const LightweightString& a, const LightweightString& b) noexcept {
    return a.body_ == b.body_ || a.compare(b) == 0;
  }
  friend bool operator==(const LightweightString& a, const T* b) noexcept {
    if (!b) return a.empty();
    return a.compare(b, length_of(b)) == 0;
  }
  friend bool operator<(const LightweightString& a, const LightweightString& b) noexcept {
    return a.compare(b) < 0;
  }

 private:
  struct Body {
    std::atomic<int32_t> refs;
    uint32_t length;
    uint32_t capacity;
    T* chars;
  };

  static const T* empty_text() noexcept {
    static const T zero = T(0);
    return &zero;
  }
  static std::size_t length_of(const T* text) noexcept {
    if constexpr (sizeof(T) == 1) {
      return std::strlen(reinterpret_cast<const char*>(text));
    } else {
      std::size_t n = 0;
      while (text[n]) ++n;
      return n;
    }
  }
  static auto unit(T c) noexcept {
    if constexpr (sizeof(T) == 1) {
      return static_cast<unsigned char>(c);
    } else {
      return static_cast<uint32_t>(c);
    }
  }
  static auto fold(T c) noexcept {
    auto u = unit(c);
    return (u >= 'A' && u <= 'Z') ? u + ('a' - 'A') : u;
  }
  static Body* make_body(uint32_t capacity) {
    void* block = OS()->allocator()->allocate(sizeof(Body) + (std::size_t(capacity) + 1) * sizeof(T));
    Body* body = static_cast<Body*>(block);
    new (&body->refs) std::atomic<int32_t>(1);
    body->length = 0;
    body->capacity = capacity;
    body->chars = reinterpret_cast<T*>(body + 1);
    body->chars[0] = T(0);
    return body;
  }
  void assign(const T* text, std::size_t n) {
    if (!text || n == 0) return;
    Body* body = make_body(static_cast<uint32_t>(n));
    std::memcpy(body->chars, text, n * sizeof(T));
    body->chars[n] = T(0);
    body->length = static_cast<uint32_t>(n);
    body_ = body;
  }
  void retain() const noexcept {
    if (body_) body_->refs.fetch_add(1, std::memory_order_relaxed);
  }
  void drop() noexcept {
    Body* body = body_;
    body_ = nullptr;
    if (body && body->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      body->refs.~atomic();
      OS()->allocator()->release(body);
    }
  }

  Body* body_ = nullptr;
};

// Appends the number in decimal, with a minus sign for a negative int.
KESTA_SUPPORT_API LightweightString<char>& operator+=(LightweightString<char>& s, int value);
KESTA_SUPPORT_API LightweightString<char>& operator+=(LightweightString<char>& s, unsigned value);

#endif
