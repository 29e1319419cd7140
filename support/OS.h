#ifndef KESTA_SUPPORT_OS_H
#define KESTA_SUPPORT_OS_H
// The operating-system object of the process: the memory allocator every library block comes
// from, and the file interface every file read, write and rename goes through. Tests install
// their own (a failing allocator, a simulated disk) and restore the default afterwards.
//
//   void* block = OS()->allocator()->allocate(64);   // throws Zr::Exception::BadAlloc
//   OS()->allocator()->release(block);
//
// Thread safety: the default allocator and file system are safe from any thread. Installing
// a replacement is not synchronised with calls in flight: install before use, on one thread.

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "support/Export.h"

namespace Zr::Exception {

class KESTA_SUPPORT_API Base {
 public:
  Base() = default;
  Base(const Base&) = default;
  Base& operator=(const Base&) = default;
  virtual ~Base();
  virtual const char* message() const noexcept;
};

// Memory exhaustion. It is also a std::bad_alloc so that standard containers and code written
// against the standard library see the exception they expect.
class KESTA_SUPPORT_API BadAlloc : public Base, public std::bad_alloc {
 public:
  const char* message() const noexcept override;
  const char* what() const noexcept override;
};

}  // namespace Zr::Exception

class KESTA_SUPPORT_API iAllocator {
 public:
  virtual ~iAllocator();
  // A block of at least `size` bytes (a zero size gives a unique block); throws
  // Zr::Exception::BadAlloc when memory is exhausted. Never answers null.
  virtual void* allocate(std::size_t size) = 0;
  // Frees a block from allocate; null is ignored.
  virtual void release(void* block) noexcept = 0;
};

// POSIX-shaped file calls. Each answers what the system call answers: -1 with errno set on
// failure. `write` may write less than asked, as the system call may.
class KESTA_SUPPORT_API iFileSystem {
 public:
  virtual ~iFileSystem();
  virtual int open(const char* path, int flags, mode_t mode) = 0;
  virtual ssize_t read(int fd, void* buffer, std::size_t size) = 0;
  virtual ssize_t write(int fd, const void* buffer, std::size_t size) = 0;
  virtual int fsync(int fd) = 0;
  virtual int close(int fd) = 0;
  // 0 and the size of a regular file, or -1.
  virtual int fileSize(int fd, uint64_t& size) = 0;
  virtual int rename(const char* from, const char* to) = 0;
  virtual int unlink(const char* path) = 0;
  // 1 when the path names an existing file or folder, else 0.
  virtual int exists(const char* path) = 0;
  // Flushes a folder's entries (the names of files in it) to disk.
  virtual int syncDirectory(const char* path) = 0;
  // Moves a file over another: the container file's atomic replace. `flags` is reserved (0).
  virtual int move(const char* from, const char* to, int flags);
  // Asks for the written bytes [offset, offset + length) to start going to the disk now, so
  // that a later fsync has less to wait for. Advice only: answers 0, or -1 and changes nothing.
  virtual int startWriteback(int fd, uint64_t offset, uint64_t length);
  // The first `size` bytes of an open file, mapped read-only until the last holder lets go, or
  // null when the file cannot be mapped (the caller then reads it). A mapped file that another
  // program shrinks faults (SIGBUS) where its bytes were: only a process that can answer that
  // signal should ask.
  virtual std::shared_ptr<const char> map(int fd, uint64_t size);
};

class KESTA_SUPPORT_API iOS {
 public:
  virtual ~iOS();
  virtual iAllocator* allocator() = 0;
  virtual iFileSystem* fileSystem() = 0;
};

// The process's OS object; never null.
KESTA_SUPPORT_API iOS* OS();

// The defaults, for wrappers that forward to them.
KESTA_SUPPORT_API iAllocator* defaultAllocator();
KESTA_SUPPORT_API iFileSystem* defaultFileSystem();

// Installs a replacement (null restores the default); answers the one it replaces.
KESTA_SUPPORT_API iAllocator* setAllocator(iAllocator* allocator);
KESTA_SUPPORT_API iFileSystem* setFileSystem(iFileSystem* fileSystem);

#endif
