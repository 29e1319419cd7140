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
// Strings made together with makeBatch share one allocation (a record's fields, read from one
// line, are made this way): each keeps its own text, and the allocation goes when the last of
// them does. Such bodies never grow in place.
//
// Thread safety: a body shared between threads may be read concurrently; each handle is used
// from one thread at a time. Bodies come from OS()->allocator().

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

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

  const T* c_str() const noexcept { return body_ ? chars_of(body_) : empty_text(); }
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
  uint32_t capacity() const noexcept { return body_ ? capacity_of(body_) : 0; }
  // Number of handles keeping the body alive (0 without one); for a body made by makeBatch,
  // the handles on every body of its batch. For tests and diagnostics.
  int32_t shareCount() const noexcept { return body_ ? count_of(body_).load() : 0; }

  void clear() noexcept { drop(); }

  // Makes this handle the sole holder of a body with room for `length` characters, keeping
  // the text (cut to `length` when longer).
  void resizeFor(unsigned length) {
    uint32_t keep = size() < length ? size() : length;
    Body* fresh = make_body(length);
    if (body_ && keep) std::memcpy(chars_of(fresh), chars_of(body_), keep * sizeof(T));
    chars_of(fresh)[keep] = T(0);
    fresh->length = keep;
    drop();
    body_ = fresh;
  }

  LightweightString& append(const T* text, std::size_t n) {
    if (n == 0) return *this;
    uint32_t old = size();
    uint32_t wanted = static_cast<uint32_t>(old + n);
    // A batch body's count word is negative, never 1: it is always copied.
    if (!body_ || body_->refs.load(std::memory_order_acquire) != 1 || capacity_of(body_) < wanted) {
      uint32_t grown = old ? old * 2 : 0;
      if (grown < wanted) grown = wanted;
      // `text` may point into our own body: copy it before letting the old body go.
      Body* fresh = make_body(grown);
      T* chars = chars_of(fresh);
      if (body_ && old) std::memcpy(chars, chars_of(body_), old * sizeof(T));
      std::memcpy(chars + old, text, n * sizeof(T));
      fresh->length = wanted;
      chars[wanted] = T(0);
      drop();
      body_ = fresh;
      return *this;
    }
    std::memmove(chars_of(body_) + old, text, n * sizeof(T));
    body_->length = wanted;
    chars_of(body_)[wanted] = T(0);
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

  // Texts laid out as they will be in one shared allocation, written in place by their maker
  // (a line parser writes each field straight into its slot), then handed out with assign().
  //
  //   batch.clear();
  //   T* at = batch.reserve(max);  n = write_up_to_max(at);  batch.commit(n);  ...
  //   batch.assign(out);           // out[0 .. batch.size()) share one allocation
  class Batch {
   public:
    void clear() noexcept {
      bytes_ = kBatchHeader;
      slots_.clear();
    }
    std::size_t size() const noexcept { return slots_.size(); }
    // Room for a text of at most n characters; valid until the next reserve().
    T* reserve(std::size_t n) {
      const std::size_t need = bytes_ + batch_slot(n);
      if (layout_.size() < need) layout_.resize(need < 2 * layout_.size() ? 2 * layout_.size() : need);
      return reinterpret_cast<T*>(layout_.data() + bytes_ + sizeof(Body));
    }
    // Ends the reserved text at n characters; an empty one takes no room.
    void commit(std::size_t n) {
      if (n == 0) {
        slots_.push_back(Slot{0, 0});
        return;
      }
      reinterpret_cast<T*>(layout_.data() + bytes_ + sizeof(Body))[n] = T(0);
      slots_.push_back(Slot{static_cast<uint32_t>(bytes_), static_cast<uint32_t>(n)});
      bytes_ += batch_slot(n);
    }
    // Sets out[0 .. size()) to the texts. Strong guarantee: on a failed allocation `out` is
    // untouched. `out` must not hold bodies of this batch's layout (it holds none).
    void assign(LightweightString* out) const {
      int32_t holders = 0;
      for (const Slot& slot : slots_) holders += slot.at != 0;
      if (holders == 0) {
        for (std::size_t i = 0; i < slots_.size(); ++i) out[i].clear();
        return;
      }
      char* block = static_cast<char*>(OS()->allocator()->allocate(bytes_));
      std::memcpy(block, layout_.data(), bytes_);
      // Counted once: no other thread can see the block yet.
      new (block) std::atomic<int32_t>(holders);
      for (std::size_t i = 0; i < slots_.size(); ++i) {
        const Slot slot = slots_[i];
        out[i].drop();
        if (slot.at == 0) continue;
        out[i].body_ = new (block + slot.at) Body{{-static_cast<int32_t>(slot.at)}, slot.length};
      }
    }

   private:
    struct Slot {
      uint32_t at;  // 0: an empty text
      uint32_t length;
    };
    std::vector<char> layout_;
    std::vector<Slot> slots_;
    std::size_t bytes_ = kBatchHeader;
  };

  // Sets out[0 .. count) to the texts, whose bodies share one allocation; an empty text gives
  // a handle without a body.
  static void makeBatch(const std::basic_string_view<T>* texts, std::size_t count, LightweightString* out) {
    Batch batch;
    for (std::size_t i = 0; i < count; ++i) {
      std::memcpy(batch.reserve(texts[i].size()), texts[i].data(), texts[i].size() * sizeof(T));
      batch.commit(texts[i].size());
    }
    batch.assign(out);
  }

  friend bool operator==(const LightweightString& a, const LightweightString& b) noexcept {
    return a.body_ == b.body_ || a.compare(b) == 0;
  }
  friend bool operator==(const LightweightString& a, const T* b) noexcept {
    if (!b) return a.empty();
    return a.compare(b, length_of(b)) == 0;
  }
  friend bool operator<(const LightweightString& a, const LightweightString& b) noexcept { return a.compare(b) < 0; }

 private:
  // A body's header; its characters follow it. A body of its own keeps its holder count in
  // `refs` (always >= 1 while held) and its capacity in the word before the header. A batch
  // body has a negative `refs`: minus its distance in bytes from its batch's shared count,
  // which starts the allocation; its capacity is its length.
  struct Body {
    std::atomic<int32_t> refs;
    uint32_t length;
  };
  // Before a body of its own: its capacity, padded so that the header stays 8-byte aligned.
  static constexpr std::size_t kOwnHeader = 8;
  // A batch starts with the shared count, padded likewise.
  static constexpr std::size_t kBatchHeader = 8;
  static_assert(sizeof(Body) == 8 && alignof(Body) <= 4 && alignof(T) <= 4);

  static T* chars_of(Body* body) noexcept { return reinterpret_cast<T*>(body + 1); }
  static const T* chars_of(const Body* body) noexcept { return reinterpret_cast<const T*>(body + 1); }
  // The bytes a batch body of n characters takes, kept a multiple of 4 for the next header.
  static std::size_t batch_slot(std::size_t n) noexcept {
    return (sizeof(Body) + (n + 1) * sizeof(T) + 3) & ~std::size_t(3);
  }
  static int32_t link_of(const Body* body) noexcept { return body->refs.load(std::memory_order_relaxed); }
  static std::atomic<int32_t>& count_of(Body* body) noexcept {
    const int32_t link = link_of(body);
    if (link > 0) return body->refs;
    return *std::launder(reinterpret_cast<std::atomic<int32_t>*>(reinterpret_cast<char*>(body) + link));
  }
  static uint32_t capacity_of(const Body* body) noexcept {
    if (link_of(body) < 0) return body->length;
    uint32_t capacity;
    std::memcpy(&capacity, reinterpret_cast<const char*>(body) - kOwnHeader, sizeof capacity);
    return capacity;
  }

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
    char* block = static_cast<char*>(
        OS()->allocator()->allocate(kOwnHeader + sizeof(Body) + (std::size_t(capacity) + 1) * sizeof(T)));
    std::memcpy(block, &capacity, sizeof capacity);
    Body* body = new (block + kOwnHeader) Body{{1}, 0};
    chars_of(body)[0] = T(0);
    return body;
  }
  void assign(const T* text, std::size_t n) {
    if (!text || n == 0) return;
    Body* body = make_body(static_cast<uint32_t>(n));
    std::memcpy(chars_of(body), text, n * sizeof(T));
    chars_of(body)[n] = T(0);
    body->length = static_cast<uint32_t>(n);
    body_ = body;
  }
  void retain() const noexcept {
    if (body_) count_of(body_).fetch_add(1, std::memory_order_relaxed);
  }
  void drop() noexcept {
    Body* body = body_;
    body_ = nullptr;
    if (!body) return;
    std::atomic<int32_t>& count = count_of(body);
    if (count.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    // The last holder: of the body alone, or of every body of its batch.
    void* block = &count == &body->refs ? static_cast<void*>(reinterpret_cast<char*>(body) - kOwnHeader)
                                        : static_cast<void*>(&count);
    count.~atomic();
    OS()->allocator()->release(block);
  }

  Body* body_ = nullptr;
};

// Appends the number in decimal, with a minus sign for a negative int.
KESTA_SUPPORT_API LightweightString<char>& operator+=(LightweightString<char>& s, int value);
KESTA_SUPPORT_API LightweightString<char>& operator+=(LightweightString<char>& s, unsigned value);

#endif
