#ifndef KESTA_TESTS_RELIABILITY_RELIABILITYUTIL_H
#define KESTA_TESTS_RELIABILITY_RELIABILITYUTIL_H
// Helpers of the reliability tests: a database's content and marks as plain values, an
// allocator that counts live blocks, and the check every loaded database goes through.

#include <string>
#include <vector>

#include "FileModel.h"
#include "record/kesta.h"
#include "support/OS.h"

namespace reliability {

// The database's content as the file format sees it: the full record list, fields byte-exact.
filemodel::Content contentOf(const kesta& db);

// What a save may change besides the text: changed marks, tags, and which record is where.
struct Marks {
  int database_changed = 0;
  std::vector<const dbrecord*> records;
  std::vector<bool> changed;
  std::vector<int> tags;
  bool operator==(const Marks&) const = default;
};
Marks marksOf(const kesta& db);

// Counts the blocks handed out and not yet released; installs itself for its lifetime.
class CountingAllocator final : public iAllocator {
 public:
  CountingAllocator();
  ~CountingAllocator() override;
  CountingAllocator(const CountingAllocator&) = delete;
  CountingAllocator& operator=(const CountingAllocator&) = delete;
  void* allocate(std::size_t size) override;
  void release(void* block) noexcept override;
  long live() const { return live_; }
  // Allocation number `n` from now (from 1) throws Zr::Exception::BadAlloc; 0 disarms.
  void failAllocation(long n) {
    fail_in_ = n;
    fail_on_ = false;
  }
  // Allocation number `n` from now and every later one throw; 0 disarms.
  void failFrom(long n) {
    fail_in_ = n;
    fail_on_ = n > 0;
  }
  // How many allocations have thrown since this allocator was installed.
  long failures() const { return failures_; }

 private:
  iAllocator* previous_;
  long live_ = 0;
  long fail_in_ = 0;
  bool fail_on_ = false;  // keep failing once the armed allocation is reached
  long failures_ = 0;
};

// The log lines a load may write; anything else in `log` is answered as "" otherwise.
std::string unexpectedLogLines(const std::string& log);

// Saves `db` under `fileName` with whatever file system is installed, then loads the file
// into a new database. Checks, through gtest assertions tagged with `label`: the save answers
// the record count; the bytes are those the format prescribes; the reload is what the format
// gives for those bytes; both databases pass the invariant check. Answers whether the columns
// and records came back as they were (up to what writing a field does to it).
bool roundTrip(kesta& db, const std::string& fileName, const std::string& label);

// Reads a file with whatever file system is installed; "" when it cannot be read.
std::string readWithInstalledFileSystem(const std::string& path);

}  // namespace reliability

#endif
