#ifndef KESTA_SUPPORT_FILECALLS_H
#define KESTA_SUPPORT_FILECALLS_H
// FileCalls: the retry and error rules shared by the code that reads and writes whole files
// through OS()->fileSystem(). Internal to the support library.

#include <fcntl.h>

#include <cerrno>
#include <new>

#include "support/OS.h"

namespace file_calls {

inline int open_file(iFileSystem* fs, const char* path, int flags, mode_t mode) {
  int fd;
  do {
    fd = fs->open(path, flags, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

// Runs a call again while it is interrupted before doing anything.
template <class Call>
int retrying(Call call) {
  int result;
  do {
    result = call();
  } while (result != 0 && errno == EINTR);
  return result;
}

// The buffers are standard vectors; their exhaustion surfaces as the library's exception.
template <class Step>
void or_bad_alloc(Step step) {
  try {
    step();
  } catch (const Zr::Exception::BadAlloc&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw Zr::Exception::BadAlloc();
  }
}

// A close that reports an error may be the first report of a lost transfer. EINTR still
// closes on Linux, so it is not retried and not an error.
inline bool close_file(iFileSystem* fs, int fd) { return fs->close(fd) == 0 || errno == EINTR; }

}  // namespace file_calls

#endif
