#ifndef KESTA_TESTS_RELIABILITY_SIMFILESYSTEM_H
#define KESTA_TESTS_RELIABILITY_SIMFILESYSTEM_H
// SimFileSystem: an in-memory disk behind the file interface, for tests that fail calls and
// cut the power.
//
//   SimFileSystem disk;
//   disk.makeFolder("/logs");
//   disk.putFile("/logs/day.kst", old_bytes);
//   disk.failCall(3, ENOSPC);              // the third call from now fails
//   disk.crashBeforeCall(5);               // the power goes as the fifth call begins
//   { UseFileSystem use(&disk); db->save_text(); }
//   SimFileSystem after = disk.afterPowerLoss(SimFileSystem::Unflushed::kLost);
//   after.contents("/logs/day.kst");
//
// The disk keeps, for every file, the data written so far and the data last flushed by
// fsync, and for every folder its current names and the names last flushed by syncDirectory
// with the name changes since, in order. A power loss keeps flushed data and names; what
// happens to the rest is a parameter: all of it kept, all of it lost, or half written (the
// first half of the unflushed bytes of each file, the first half of each folder's unflushed
// name changes). A rename within one folder is one name change: it never half happens.
//
// Paths are taken literally: the folder of "/a/b" is "/a", of "b" it is ".". Folders exist
// only when made with makeFolder ("/" always exists); files are named only in folders.
//
// Faults: one chosen call (counted from the last resetCalls, from 1) or every call of one
// kind fails with a chosen errno and has no effect, except close, which releases the
// descriptor even when it fails, as Linux does. Reads and writes may be cut short, and a
// space limit makes writes fail with ENOSPC once the files hold that many bytes.
//
// Thread safety: none; one thread at a time.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/OS.h"

class SimFileSystem final : public iFileSystem {
 public:
  enum class Call { kOpen, kRead, kWrite, kFsync, kClose, kFileSize, kRename, kUnlink, kExists, kSyncDirectory };
  static constexpr int kCallKinds = 10;
  enum class Unflushed { kKept, kLost, kHalfWritten };

  SimFileSystem();
  SimFileSystem(const SimFileSystem&) = default;
  SimFileSystem& operator=(const SimFileSystem&) = default;
  ~SimFileSystem() override;

  // ---- setting up and looking: not counted, never failing, durable at once
  void makeFolder(const std::string& path);
  // Creates or replaces a file, flushed along with its name.
  void putFile(const std::string& path, const std::string& bytes);
  bool hasFile(const std::string& path) const;
  // The file's current data; "" when there is no such file.
  std::string contents(const std::string& path) const;
  // The names in a folder, sorted; empty when there is no such folder.
  std::vector<std::string> namesIn(const std::string& folder) const;
  int openDescriptors() const { return static_cast<int>(open_.size()); }

  // ---- counting calls
  unsigned calls() const { return calls_; }
  const std::vector<Call>& callLog() const { return log_; }
  // Starts counting again from 1; armed faults and crashes keep their numbers.
  void resetCalls();

  // ---- faults
  // Call number `n` fails with `error` (EINTR included: the caller is expected to retry).
  void failCall(unsigned n, int error);
  // Every call of `kind` fails with `error`.
  void failEvery(Call kind, int error);
  // Reads and writes move at most `bytes` bytes per call (0: no limit).
  void setMaxTransfer(std::size_t bytes) { max_transfer_ = bytes; }
  // The files may hold at most `bytes` bytes in all; a write that would pass the limit writes
  // what fits, and one that fits nothing fails with ENOSPC (0: no limit).
  void setSpaceLimit(std::size_t bytes) { space_limit_ = bytes; }
  void clearFaults();

  // ---- power loss
  // Remembers the disk as it stands when call `n` begins, before the call does anything.
  void crashBeforeCall(unsigned n);
  bool crashed() const { return crash_disk_.has_value(); }
  // The disk as a power loss leaves it: the remembered one when crashBeforeCall was reached,
  // else the current one. No descriptors are open on it and no faults are armed.
  SimFileSystem afterPowerLoss(Unflushed unflushed) const;

  // ---- the file interface
  int open(const char* path, int flags, mode_t mode) override;
  ssize_t read(int fd, void* buffer, std::size_t size) override;
  ssize_t write(int fd, const void* buffer, std::size_t size) override;
  int fsync(int fd) override;
  int close(int fd) override;
  int fileSize(int fd, uint64_t& size) override;
  int rename(const char* from, const char* to) override;
  int unlink(const char* path) override;
  int exists(const char* path) override;
  int syncDirectory(const char* path) override;

 private:
  struct Inode {
    std::string data;
    std::string flushed;
  };
  struct NameChange {
    std::string from;  // empty: a new name
    std::string to;    // empty: a removed name
    uint64_t inode = 0;
  };
  struct Folder {
    std::map<std::string, uint64_t> names;
    std::map<std::string, uint64_t> flushed;
    std::vector<NameChange> pending;
  };
  struct Disk {
    std::map<uint64_t, Inode> inodes;
    std::map<std::string, Folder> folders;
    uint64_t next_inode = 1;
  };
  struct Descriptor {
    uint64_t inode = 0;  // 0: a folder
    int flags = 0;
    uint64_t offset = 0;
  };

  // Counts a call and answers false (errno set) when it is to fail.
  bool enter(Call kind);
  Folder* folderOf(const std::string& path, std::string& name);
  const Folder* folderOf(const std::string& path, std::string& name) const;
  Descriptor* descriptor(int fd);
  uint64_t bytesUsed() const;
  static void applyChange(std::map<std::string, uint64_t>& names, const NameChange& change);
  static std::string survivingData(const Inode& inode, Unflushed unflushed);
  static void powerLoss(Disk& disk, Unflushed unflushed);

  Disk disk_;
  std::optional<Disk> crash_disk_;
  std::map<int, Descriptor> open_;
  int next_fd_ = 3;

  unsigned calls_ = 0;
  std::vector<Call> log_;
  unsigned fail_at_ = 0;
  int fail_error_ = 0;
  int fail_every_[kCallKinds] = {};
  unsigned crash_at_ = 0;
  std::size_t max_transfer_ = 0;
  std::size_t space_limit_ = 0;
};

// Installs a file system for the life of the object, restoring the previous one after.
class UseFileSystem {
 public:
  explicit UseFileSystem(iFileSystem* fs) : previous_(setFileSystem(fs)) {}
  ~UseFileSystem() { setFileSystem(previous_); }
  UseFileSystem(const UseFileSystem&) = delete;
  UseFileSystem& operator=(const UseFileSystem&) = delete;

 private:
  iFileSystem* previous_;
};

#endif
