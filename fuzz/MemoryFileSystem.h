#ifndef KESTA_FUZZ_MEMORYFILESYSTEM_H
#define KESTA_FUZZ_MEMORYFILESYSTEM_H
// A file system held in memory, installed for the life of the object: the fuzz targets load
// and save many thousand files a second, which a real disk (and its flushes) would not allow.
// Folders are implicit: any path may be created.

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <string>

#include "support/OS.h"

namespace fuzzing {

class MemoryFileSystem final : public iFileSystem {
 public:
  MemoryFileSystem() : previous_(setFileSystem(this)) {}
  ~MemoryFileSystem() override { setFileSystem(previous_); }
  MemoryFileSystem(const MemoryFileSystem&) = delete;
  MemoryFileSystem& operator=(const MemoryFileSystem&) = delete;

  void put(const std::string& path, std::string bytes) { files_[path] = std::move(bytes); }
  const std::string* get(const std::string& path) const {
    auto it = files_.find(path);
    return it == files_.end() ? nullptr : &it->second;
  }
  void reset() {
    files_.clear();
    open_.clear();
  }

  int open(const char* path, int flags, mode_t) override {
    const bool exists = files_.count(path) != 0;
    if ((flags & O_CREAT) && (flags & O_EXCL) && exists) return fail(EEXIST);
    if (!(flags & O_CREAT) && !exists) return fail(ENOENT);
    if (!exists || (flags & O_TRUNC)) files_[path].clear();
    const int fd = next_fd_++;
    open_[fd] = Handle{path, 0};
    return fd;
  }
  ssize_t read(int fd, void* buffer, std::size_t size) override {
    Handle* h = handle(fd);
    if (!h) return fail(EBADF);
    const std::string& bytes = files_[h->path];
    if (h->offset >= bytes.size()) return 0;
    const std::size_t n = std::min(size, bytes.size() - h->offset);
    std::memcpy(buffer, bytes.data() + h->offset, n);
    h->offset += n;
    return static_cast<ssize_t>(n);
  }
  ssize_t write(int fd, const void* buffer, std::size_t size) override {
    Handle* h = handle(fd);
    if (!h) return fail(EBADF);
    std::string& bytes = files_[h->path];
    if (bytes.size() < h->offset + size) bytes.resize(h->offset + size);
    std::memcpy(bytes.data() + h->offset, buffer, size);
    h->offset += size;
    return static_cast<ssize_t>(size);
  }
  int fsync(int fd) override { return handle(fd) ? 0 : fail(EBADF); }
  int close(int fd) override { return open_.erase(fd) ? 0 : fail(EBADF); }
  int fileSize(int fd, uint64_t& size) override {
    Handle* h = handle(fd);
    if (!h) return fail(EBADF);
    size = files_[h->path].size();
    return 0;
  }
  int rename(const char* from, const char* to) override {
    auto it = files_.find(from);
    if (it == files_.end()) return fail(ENOENT);
    std::string bytes = std::move(it->second);
    files_.erase(it);
    files_[to] = std::move(bytes);
    return 0;
  }
  int unlink(const char* path) override { return files_.erase(path) ? 0 : fail(ENOENT); }
  int exists(const char* path) override { return files_.count(path) ? 1 : 0; }
  int syncDirectory(const char*) override { return 0; }

 private:
  struct Handle {
    std::string path;
    std::size_t offset;
  };
  static int fail(int error) {
    errno = error;
    return -1;
  }
  Handle* handle(int fd) {
    auto it = open_.find(fd);
    return it == open_.end() ? nullptr : &it->second;
  }

  iFileSystem* previous_;
  std::map<std::string, std::string> files_;
  std::map<int, Handle> open_;
  int next_fd_ = 3;
};

}  // namespace fuzzing

#endif
