// The default file system: the POSIX calls themselves. Callers handle EINTR and short
// transfers; this layer answers exactly what the system answered.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "support/OS.h"

iFileSystem::~iFileSystem() = default;

int iFileSystem::move(const char* from, const char* to, int) { return rename(from, to); }

int iFileSystem::startWriteback(int, uint64_t, uint64_t) { return 0; }

std::shared_ptr<const char> iFileSystem::map(int, uint64_t) { return nullptr; }

namespace {

class PosixFileSystem final : public iFileSystem {
 public:
  int open(const char* path, int flags, mode_t mode) override { return ::open(path, flags, mode); }
  ssize_t read(int fd, void* buffer, std::size_t size) override { return ::read(fd, buffer, size); }
  ssize_t write(int fd, const void* buffer, std::size_t size) override { return ::write(fd, buffer, size); }
  int fsync(int fd) override { return ::fsync(fd); }
  int close(int fd) override { return ::close(fd); }
  int startWriteback(int fd, uint64_t offset, uint64_t length) override {
#if defined(__linux__)
    return ::sync_file_range(fd, static_cast<off_t>(offset), static_cast<off_t>(length), SYNC_FILE_RANGE_WRITE);
#else
    (void)fd, (void)offset, (void)length;
    return 0;
#endif
  }
  std::shared_ptr<const char> map(int fd, uint64_t size) override {
    if (size == 0 || size > SIZE_MAX) return nullptr;
    const auto length = static_cast<std::size_t>(size);
    // Populated now: a fault per page later would cost more than the whole mapping.
    void* at = ::mmap(nullptr, length, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
    if (at == MAP_FAILED) return nullptr;
    try {
      return std::shared_ptr<const char>(static_cast<const char*>(at),
                                         [length](const char* p) { ::munmap(const_cast<char*>(p), length); });
    } catch (...) {
      ::munmap(at, length);
      throw;
    }
  }
  int fileSize(int fd, uint64_t& size) override {
    struct stat st;
    if (::fstat(fd, &st) != 0) return -1;
    if (!S_ISREG(st.st_mode)) {
      errno = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
      return -1;
    }
    size = static_cast<uint64_t>(st.st_size);
    return 0;
  }
  int rename(const char* from, const char* to) override { return ::rename(from, to); }
  int unlink(const char* path) override { return ::unlink(path); }
  int exists(const char* path) override {
    struct stat st;
    return ::stat(path, &st) == 0 ? 1 : 0;
  }
  int syncDirectory(const char* path) override {
    int fd = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return -1;
    int result = ::fsync(fd);
    int saved = errno;
    ::close(fd);
    errno = saved;
    return result;
  }
};

}  // namespace

iFileSystem* defaultFileSystem() {
  static PosixFileSystem* file_system = new PosixFileSystem();
  return file_system;
}
