#ifndef KESTA_SUPPORT_ZRPTR_H
#define KESTA_SUPPORT_ZRPTR_H
// Zr::Ptr: an intrusive shared pointer of two words, the address of the object's count and
// the address of the object.
//
//   Zr::Ptr<dbrecord> p(new dbrecord(3));   // count 0 -> 1: p owns the record
//   Zr::Ptr<dbrecord> q = p;                // 2
//
// With InternalRefCountTraits (the default) the count lives in the object (T derives from
// Zr::InternalRefCount, usually through iObject). With ExternalRefCountTraits the count lives
// in a block of its own, so any type can be shared; both are freed at 0.
//
// Thread safety: copying and releasing from several threads at once is safe; assigning to
// the same Ptr from two threads is not.

#include <atomic>
#include <cstdint>
#include <new>
#include <utility>

#include "support/iObject.h"

namespace Zr {

struct DtorTraits {
  template <class T>
  static void destroy(T* object) noexcept {
    delete object;
  }
};

struct InternalRefCountTraits {
  template <class T>
  static const InternalRefCount* countOf(T* object) noexcept {
    return object;
  }
  template <class T>
  static const InternalRefCount* adopt(T* object) {
    return object;
  }
  static void freeCount(const InternalRefCount*) noexcept {}
};

// The separate block holding the count of an object that has none of its own.
class KESTA_SUPPORT_API ExternalRefCount final : public InternalRefCount {
 public:
  static void* operator new(std::size_t size);
  static void operator delete(void* block) noexcept;
};

struct ExternalRefCountTraits {
  template <class T>
  static const InternalRefCount* adopt(T*) {
    return new ExternalRefCount();
  }
  static void freeCount(const InternalRefCount* count) noexcept { delete static_cast<const ExternalRefCount*>(count); }
};

template <class T, class RefTraits = InternalRefCountTraits, class Dtor = DtorTraits>
class Ptr {
 public:
  Ptr() noexcept = default;
  Ptr(std::nullptr_t) noexcept {}
  // Adds one reference. With external counts a new count block is made for the object, so
  // a raw pointer must be wrapped only once.
  explicit Ptr(T* object) { reset(object); }
  Ptr(const Ptr& other) noexcept : count_(other.count_), object_(other.object_) { addRef(); }
  Ptr(Ptr&& other) noexcept : count_(other.count_), object_(other.object_) {
    other.count_ = nullptr;
    other.object_ = nullptr;
  }
  template <class U, std::enable_if_t<std::is_convertible_v<U*, T*>, int> = 0>
  Ptr(const Ptr<U, RefTraits, Dtor>& other) noexcept : count_(other.countBlock()), object_(other.get()) {
    addRef();
  }
  ~Ptr() { release(); }

  Ptr& operator=(const Ptr& other) noexcept {
    Ptr copy(other);
    swap(copy);
    return *this;
  }
  Ptr& operator=(Ptr&& other) noexcept {
    Ptr moved(std::move(other));
    swap(moved);
    return *this;
  }
  Ptr& operator=(std::nullptr_t) noexcept {
    release();
    return *this;
  }

  void reset() noexcept { release(); }
  void reset(T* object) {
    Ptr fresh;
    if (object) {
      // Ownership passes here: an object whose count block cannot be made is destroyed, as
      // the caller no longer holds it.
      try {
        fresh.count_ = RefTraits::adopt(object);
      } catch (...) {
        Dtor::destroy(object);
        throw;
      }
      fresh.object_ = object;
      fresh.addRef();
    }
    swap(fresh);
  }
  void swap(Ptr& other) noexcept {
    std::swap(count_, other.count_);
    std::swap(object_, other.object_);
  }

  T* get() const noexcept { return object_; }
  T* operator->() const noexcept { return object_; }
  T& operator*() const noexcept { return *object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }
  const InternalRefCount* countBlock() const noexcept { return count_; }
  int32_t useCount() const noexcept { return count_ ? count_->refCount() : 0; }

  friend bool operator==(const Ptr& a, const Ptr& b) noexcept { return a.object_ == b.object_; }
  friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.object_ == nullptr; }

 private:
  void addRef() const noexcept {
    if (count_) count_->addRef();
  }
  void release() noexcept {
    const InternalRefCount* count = count_;
    T* object = object_;
    count_ = nullptr;
    object_ = nullptr;
    if (count && count->releaseRef() == 0) {
      Dtor::destroy(object);
      RefTraits::freeCount(count);
    }
  }

  const InternalRefCount* count_ = nullptr;
  T* object_ = nullptr;
};

}  // namespace Zr

#endif
