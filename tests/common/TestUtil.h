#ifndef KESTA_TESTS_COMMON_TESTUTIL_H
#define KESTA_TESTS_COMMON_TESTUTIL_H
// Helpers shared by the test suites: a fresh temporary folder per test, whole-file reads and
// writes, wide file names, and a count of the bytes the library allocates.

#include <cstddef>
#include <string>

#include "support/LightweightString.h"
#include "support/OS.h"

namespace testutil {

// A new empty folder under the system's temporary folder, removed with everything in it when
// the object dies.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // path() + "/" + name
  std::string file(const std::string& name) const;
  // The same as a wide string, for the library's file-name arguments.
  LightweightString<wchar_t> wfile(const std::string& name) const;

 private:
  std::string path_;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);
bool pathExists(const std::string& path);
LightweightString<wchar_t> wide(const std::string& text);

// The source tree's examples folder, e.g. example("dailies.kst").
std::string example(const std::string& name);

// Counts the bytes the library asks for while it lives: it installs itself as the allocator
// and puts the previous one back when it dies. Catches work that grows faster than it should
// without timing anything.
class CountedBytes : public iAllocator {
 public:
  CountedBytes() : previous_(setAllocator(this)) {}
  ~CountedBytes() override { setAllocator(previous_); }
  CountedBytes(const CountedBytes&) = delete;
  CountedBytes& operator=(const CountedBytes&) = delete;

  void* allocate(std::size_t size) override {
    bytes_ += size;
    return previous_->allocate(size);
  }
  void release(void* block) noexcept override { previous_->release(block); }
  std::size_t bytes() const { return bytes_; }

 private:
  iAllocator* previous_;
  std::size_t bytes_ = 0;
};

}  // namespace testutil

#endif
