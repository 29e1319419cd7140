#ifndef KESTA_TESTS_RELIABILITY_SIMFILESYSTEM_H
#define KESTA_TESTS_RELIABILITY_SIMFILESYSTEM_H
// An in-memory disk behind the file interface, for tests that fail calls and cut the power.
// Each file keeps its data and the data last flushed by fsync; each folder its names, the
// names last flushed by syncDirectory and the name changes since, in order. A power loss
// keeps what was flushed; the rest is all kept, all lost, or half written (the first half of
// each file's unflushed bytes and of each folder's name changes). A rename, within one folder
// only, is one name change. Calls are counted from 1 since the last resetCalls; a failed call has no
// effect, except close, which releases the descriptor as Linux does. Folders cannot be opened.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/OS.h"

class SimFileSystem final : public iFileSystem {
 public:
  enum class Call { kOpen, kRead, kWrite, kFsync, kClose, kFileSize, kRename, kUnlink, kExists, kSyncDirectory };
  enum class Unflushed { kKept, kLost, kHalfWritten };

  SimFileSystem() { disk_.folders["/"]; }

  // Setting up and looking: not counted, never failing, durable at once.
  void makeFolder(const std::string& path) { disk_.folders[path]; }
  void putFile(const std::string& path, const std::string& bytes);
  bool hasFile(const std::string& path) const;
  std::string contents(const std::string& path) const;  // "" when there is no such file
  std::vector<std::string> namesIn(const std::string& folder) const;
  int openDescriptors() const { return static_cast<int>(open_.size()); }

  unsigned calls() const { return calls_; }
  const std::vector<Call>& callLog() const { return log_; }
  void resetCalls() {
    calls_ = 0;
    log_.clear();
  }
  // Call number `n` fails with `error` (EINTR included: the caller is expected to retry).
  void failCall(unsigned n, int error) {
    fail_at_ = n;
    fail_error_ = error;
  }
  // Reads and writes move at most `bytes` bytes per call (0: no limit).
  void setMaxTransfer(std::size_t bytes) { max_transfer_ = bytes; }
  // Remembers the disk as it stands when call `n` begins.
  void crashBeforeCall(unsigned n) { crash_at_ = n; }
  // The disk a power loss leaves: the remembered one if the crash was reached, else this one.
  SimFileSystem afterPowerLoss(Unflushed unflushed) const;

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
    uint64_t inode = 0;
    int flags = 0;
    uint64_t offset = 0;
  };

  bool enter(Call kind);  // counts a call; false (errno set) when it is to fail
  Folder* folderOf(const std::string& path, std::string& name);
  Descriptor* descriptor(int fd);

  Disk disk_;
  std::optional<Disk> crash_disk_;
  std::map<int, Descriptor> open_;
  int next_fd_ = 3;
  unsigned calls_ = 0;
  std::vector<Call> log_;
  unsigned fail_at_ = 0;
  int fail_error_ = 0;
  unsigned crash_at_ = 0;
  std::size_t max_transfer_ = 0;
};

// Installs a file system for the life of the object.
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
