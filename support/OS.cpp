// The process's OS object: the allocator and file system in force, the default allocator,
// and the out-of-memory exception.
//
// The defaults are never destroyed: strings and objects released during static destruction
// (in any library, in any order) still reach a live allocator.

#include "support/OS.h"

#include <atomic>
#include <new>

namespace Zr::Exception {

Base::~Base() = default;

const char* Base::message() const noexcept { return "Zr::Exception::Base"; }

const char* BadAlloc::message() const noexcept { return "out of memory"; }

const char* BadAlloc::what() const noexcept { return message(); }

}  // namespace Zr::Exception

iAllocator::~iAllocator() = default;

iOS::~iOS() = default;

namespace {

// Forwards to the global operator new and delete, so the application's `delete` may free a
// block the library allocated and the other way round (also under AddressSanitizer, which
// rejects malloc'ed memory handed to delete).
class DefaultAllocator final : public iAllocator {
 public:
  void* allocate(std::size_t size) override {
    try {
      return ::operator new(size);
    } catch (const std::bad_alloc&) {
      throw Zr::Exception::BadAlloc();
    }
  }
  void release(void* block) noexcept override { ::operator delete(block); }
};

constinit std::atomic<iAllocator*> installed_allocator{nullptr};
constinit std::atomic<iFileSystem*> installed_file_system{nullptr};

class ProcessOS final : public iOS {
 public:
  iAllocator* allocator() override {
    iAllocator* a = installed_allocator.load(std::memory_order_acquire);
    return a ? a : defaultAllocator();
  }
  iFileSystem* fileSystem() override {
    iFileSystem* f = installed_file_system.load(std::memory_order_acquire);
    return f ? f : defaultFileSystem();
  }
};

}  // namespace

iOS* OS() {
  static ProcessOS* os = new ProcessOS();
  return os;
}

iAllocator* defaultAllocator() {
  static DefaultAllocator* allocator = new DefaultAllocator();
  return allocator;
}

iAllocator* setAllocator(iAllocator* allocator) {
  iAllocator* previous = installed_allocator.exchange(allocator, std::memory_order_acq_rel);
  return previous ? previous : defaultAllocator();
}

iFileSystem* setFileSystem(iFileSystem* fileSystem) {
  iFileSystem* previous = installed_file_system.exchange(fileSystem, std::memory_order_acq_rel);
  return previous ? previous : defaultFileSystem();
}
