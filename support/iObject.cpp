// The roots of counted objects and the count block of external counts. Both live in blocks
// of the process allocator, so an object made on one side of the library boundary may be
// released on the other.

#include "support/iObject.h"

#include "support/OS.h"
#include "support/ZrPtr.h"

iVirtual::~iVirtual() = default;

iObject::~iObject() = default;

void* iObject::operator new(std::size_t size) { return OS()->allocator()->allocate(size); }

void* iObject::operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return OS()->allocator()->allocate(size);
  } catch (...) {
    // An installed allocator may throw anything; the nothrow form answers null for all of it.
    return nullptr;
  }
}

void iObject::operator delete(void* block) noexcept { OS()->allocator()->release(block); }

namespace Zr {

void* ExternalRefCount::operator new(std::size_t size) { return OS()->allocator()->allocate(size); }

void ExternalRefCount::operator delete(void* block) noexcept { OS()->allocator()->release(block); }

}  // namespace Zr
