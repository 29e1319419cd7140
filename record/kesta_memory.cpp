// The library's own operator new and delete, every form. Each routes to the process allocator
// (OS()->allocator()), so a block allocated here may be freed by the application and the
// other way round. The linker script (cmake/kesta.map) keeps them local to libkesta.

#include <cstddef>
#include <new>

#include "support/OS.h"

void* operator new(std::size_t size) { return OS()->allocator()->allocate(size); }
void* operator new[](std::size_t size) { return OS()->allocator()->allocate(size); }

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return OS()->allocator()->allocate(size);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }

void operator delete(void* block) noexcept { OS()->allocator()->release(block); }
void operator delete[](void* block) noexcept { OS()->allocator()->release(block); }
void operator delete(void* block, std::size_t) noexcept { OS()->allocator()->release(block); }
void operator delete[](void* block, std::size_t) noexcept { OS()->allocator()->release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { OS()->allocator()->release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { OS()->allocator()->release(block); }

// Over-aligned forms: the allocator knows no alignment, so take enough to align within the
// block and keep the block's start just before the aligned address.
namespace {
void* aligned_allocate(std::size_t size, std::align_val_t alignment) {
  std::size_t align = static_cast<std::size_t>(alignment);
  char* block = static_cast<char*>(OS()->allocator()->allocate(size + align + sizeof(void*)));
  std::size_t address = reinterpret_cast<std::size_t>(block + sizeof(void*));
  char* aligned = reinterpret_cast<char*>((address + align - 1) & ~(align - 1));
  reinterpret_cast<void**>(aligned)[-1] = block;
  return aligned;
}
void aligned_release(void* aligned) noexcept {
  if (aligned) OS()->allocator()->release(reinterpret_cast<void**>(aligned)[-1]);
}
}  // namespace

void* operator new(std::size_t size, std::align_val_t al) { return aligned_allocate(size, al); }
void* operator new[](std::size_t size, std::align_val_t al) { return aligned_allocate(size, al); }
void* operator new(std::size_t size, std::align_val_t al, const std::nothrow_t&) noexcept {
  try {
    return aligned_allocate(size, al);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t size, std::align_val_t al, const std::nothrow_t& tag) noexcept {
  return operator new(size, al, tag);
}
void operator delete(void* block, std::align_val_t) noexcept { aligned_release(block); }
void operator delete[](void* block, std::align_val_t) noexcept { aligned_release(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { aligned_release(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { aligned_release(block); }
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept { aligned_release(block); }
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept { aligned_release(block); }
