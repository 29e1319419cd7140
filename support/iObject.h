#ifndef KESTA_SUPPORT_IOBJECT_H
#define KESTA_SUPPORT_IOBJECT_H
// The roots of every reference-counted object: an intrusive atomic count, a virtual
// destructor, and iObject joining the two virtually so that an object reached through several
// bases still has exactly one count.
//
// Thread safety: only the count is atomic; the object itself is not locked.

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "support/Export.h"

namespace Zr {

// The count starts at 0; Zr::Ptr adds the first reference. Copying an object never copies
// its count: a copy is a new object with no holders yet.
class KESTA_SUPPORT_API InternalRefCount {
 public:
  InternalRefCount() noexcept : refs_(0) {}
  InternalRefCount(const InternalRefCount&) noexcept : refs_(0) {}
  InternalRefCount& operator=(const InternalRefCount&) noexcept { return *this; }

  void addRef() const noexcept { refs_.fetch_add(1, std::memory_order_relaxed); }
  // Answers the count after the release; the caller destroys the object at 0.
  int32_t releaseRef() const noexcept { return refs_.fetch_sub(1, std::memory_order_acq_rel) - 1; }
  int32_t refCount() const noexcept { return refs_.load(std::memory_order_acquire); }

 protected:
  ~InternalRefCount() = default;

 private:
  mutable std::atomic<int32_t> refs_;
};

}  // namespace Zr

class KESTA_SUPPORT_API iVirtual {
 public:
  virtual ~iVirtual();
};

// Every library object lives in blocks of the process allocator (OS()->allocator()), wherever
// the `new` that made it was written, so objects cross between the library and the
// application freely.
class KESTA_SUPPORT_API iObject : public virtual Zr::InternalRefCount, public virtual iVirtual {
 public:
  ~iObject() override;

  static void* operator new(std::size_t size);
  static void* operator new(std::size_t size, const std::nothrow_t&) noexcept;
  static void operator delete(void* block) noexcept;
};

#endif
