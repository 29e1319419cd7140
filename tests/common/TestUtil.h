#ifndef KESTA_TESTS_COMMON_TESTUTIL_H
#define KESTA_TESTS_COMMON_TESTUTIL_H
// Helpers shared by the test suites: a fresh temporary folder per test, whole-file reads and
// writes, wide file names, and an allocator that counts and fails on demand.

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

// Installs itself as the allocator while it lives, passes every request on to the one it
// replaced and puts that one back when it dies. Counts the requests, the bytes asked for (work
// that grows faster than it should shows without timing anything) and the blocks still live;
// throws BadAlloc for request `n` from now (from 1), alone or with every later one, and for
// every request of one size.
class TestAllocator : public iAllocator {
 public:
  explicit TestAllocator(long failAt = 0, bool andLater = false) : previous_(setAllocator(this)) {
    failAllocation(failAt, andLater);
  }
  ~TestAllocator() override { setAllocator(previous_); }
  TestAllocator(const TestAllocator&) = delete;
  TestAllocator& operator=(const TestAllocator&) = delete;

  void* allocate(std::size_t size) override {
    ++calls_;
    bytes_ += size;
    const bool counted_down = fail_in_ > 0 && --fail_in_ == 0;
    if (counted_down && fail_on_) fail_in_ = 1;
    if (counted_down || (fail_size_ != 0 && size == fail_size_)) {
      ++failures_;
      throw Zr::Exception::BadAlloc();
    }
    void* block = previous_->allocate(size);
    ++live_;
    return block;
  }
  void release(void* block) noexcept override {
    if (!block) return;
    --live_;
    previous_->release(block);
  }

  // Failures by count (0: none from now on) and by size (0: none).
  void failAllocation(long n, bool andLater = false) {
    fail_in_ = n;
    fail_on_ = andLater && n > 0;
  }
  void failSize(std::size_t size) { fail_size_ = size; }

  long calls() const { return calls_; }
  std::size_t bytes() const { return bytes_; }
  long live() const { return live_; }
  long failures() const { return failures_; }

 private:
  iAllocator* previous_;
  long calls_ = 0;
  std::size_t bytes_ = 0;
  long live_ = 0;
  long failures_ = 0;
  long fail_in_ = 0;
  bool fail_on_ = false;
  std::size_t fail_size_ = 0;
};

}  // namespace testutil

#endif
