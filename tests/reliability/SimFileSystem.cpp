// SimFileSystem: files and folders in memory with flushed and unflushed states, faults, and
// power loss.

#include "SimFileSystem.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

void split_path(const std::string& path, std::string& folder, std::string& name) {
  const std::size_t slash = path.rfind('/');
  // assign() rather than operator= from a literal: g++ 12 at -O2 reports a false overlap
  // (-Wrestrict) for the latter.
  if (slash == std::string::npos) {
    folder.assign(1, '.');
    name.assign(path);
  } else {
    folder.assign(path, 0, slash == 0 ? 1 : slash);
    name.assign(path, slash + 1, std::string::npos);
  }
}

// The folder holding `path` in a folder map, const or not; null when there is none.
template <class Folders>
auto folder_in(Folders& folders, const std::string& path, std::string& name) -> decltype(&folders.begin()->second) {
  std::string folder;
  split_path(path, folder, name);
  auto found = folders.find(folder);
  return found == folders.end() ? nullptr : &found->second;
}

int failure(int error) {
  errno = error;
  return -1;
}

}  // namespace

SimFileSystem::SimFileSystem() { disk_.folders["/"]; }

SimFileSystem::~SimFileSystem() = default;

// ------------------------------------------------------------------ setting up, looking

void SimFileSystem::makeFolder(const std::string& path) { disk_.folders[path]; }

void SimFileSystem::putFile(const std::string& path, const std::string& bytes) {
  std::string folder_path;
  std::string name;
  split_path(path, folder_path, name);
  Folder* folder = &disk_.folders[folder_path];
  const uint64_t inode = disk_.next_inode++;
  disk_.inodes[inode] = Inode{bytes, bytes};
  folder->names[name] = inode;
  folder->flushed[name] = inode;
}

bool SimFileSystem::hasFile(const std::string& path) const {
  std::string name;
  const Folder* folder = folderOf(path, name);
  return folder && folder->names.count(name) != 0;
}

std::string SimFileSystem::contents(const std::string& path) const {
  std::string name;
  const Folder* folder = folderOf(path, name);
  if (!folder) return {};
  auto found = folder->names.find(name);
  return found == folder->names.end() ? std::string() : disk_.inodes.at(found->second).data;
}

std::vector<std::string> SimFileSystem::namesIn(const std::string& path) const {
  std::vector<std::string> names;
  auto found = disk_.folders.find(path);
  if (found == disk_.folders.end()) return names;
  for (const auto& entry : found->second.names) names.push_back(entry.first);
  return names;
}

// ------------------------------------------------------------------------------ faults

void SimFileSystem::resetCalls() {
  calls_ = 0;
  log_.clear();
}

void SimFileSystem::failCall(unsigned n, int error) {
  fail_at_ = n;
  fail_error_ = error;
}

void SimFileSystem::failEvery(Call kind, int error) { fail_every_[static_cast<int>(kind)] = error; }

void SimFileSystem::clearFaults() {
  fail_at_ = 0;
  fail_error_ = 0;
  std::fill(std::begin(fail_every_), std::end(fail_every_), 0);
  crash_at_ = 0;
  max_transfer_ = 0;
  space_limit_ = 0;
}

bool SimFileSystem::enter(Call kind) {
  ++calls_;
  log_.push_back(kind);
  if (crash_at_ == calls_) crash_disk_ = disk_;
  if (fail_at_ == calls_) {
    errno = fail_error_;
    return false;
  }
  if (fail_every_[static_cast<int>(kind)] != 0) {
    errno = fail_every_[static_cast<int>(kind)];
    return false;
  }
  return true;
}

// -------------------------------------------------------------------------- power loss

void SimFileSystem::crashBeforeCall(unsigned n) {
  crash_at_ = n;
  crash_disk_.reset();
}

std::string SimFileSystem::survivingData(const Inode& inode, Unflushed unflushed) {
  switch (unflushed) {
    case Unflushed::kKept:
      return inode.data;
    case Unflushed::kLost:
      return inode.flushed;
    case Unflushed::kHalfWritten: {
      std::size_t same = 0;
      while (same < inode.data.size() && same < inode.flushed.size() && inode.data[same] == inode.flushed[same]) {
        ++same;
      }
      return inode.data.substr(0, same + (inode.data.size() - same) / 2);
    }
  }
  return inode.data;
}

void SimFileSystem::applyChange(std::map<std::string, uint64_t>& names, const NameChange& change) {
  if (!change.from.empty()) {
    auto found = names.find(change.from);
    if (found != names.end() && found->second == change.inode) names.erase(found);
  }
  if (!change.to.empty()) names[change.to] = change.inode;
}

void SimFileSystem::powerLoss(Disk& disk, Unflushed unflushed) {
  for (auto& [path, folder] : disk.folders) {
    std::map<std::string, uint64_t> names = folder.flushed;
    std::size_t keep = 0;
    if (unflushed == Unflushed::kKept) keep = folder.pending.size();
    if (unflushed == Unflushed::kHalfWritten) keep = folder.pending.size() / 2;
    for (std::size_t i = 0; i < keep; ++i) applyChange(names, folder.pending[i]);
    folder.names = names;
    folder.flushed = names;
    folder.pending.clear();
  }
  std::map<uint64_t, Inode> survivors;
  for (const auto& [path, folder] : disk.folders) {
    for (const auto& [name, inode] : folder.names) {
      if (survivors.count(inode)) continue;
      const std::string data = survivingData(disk.inodes.at(inode), unflushed);
      survivors[inode] = Inode{data, data};
    }
  }
  disk.inodes.swap(survivors);
}

SimFileSystem SimFileSystem::afterPowerLoss(Unflushed unflushed) const {
  SimFileSystem after;
  after.disk_ = crash_disk_ ? *crash_disk_ : disk_;
  powerLoss(after.disk_, unflushed);
  return after;
}

// -------------------------------------------------------------------------- the calls

SimFileSystem::Folder* SimFileSystem::folderOf(const std::string& path, std::string& name) {
  return folder_in(disk_.folders, path, name);
}

const SimFileSystem::Folder* SimFileSystem::folderOf(const std::string& path, std::string& name) const {
  return folder_in(disk_.folders, path, name);
}

SimFileSystem::Descriptor* SimFileSystem::descriptor(int fd) {
  auto found = open_.find(fd);
  return found == open_.end() ? nullptr : &found->second;
}

uint64_t SimFileSystem::bytesUsed() const {
  std::map<uint64_t, bool> counted;
  uint64_t used = 0;
  auto count = [&](uint64_t inode) {
    if (inode == 0 || counted[inode]) return;
    counted[inode] = true;
    used += disk_.inodes.at(inode).data.size();
  };
  for (const auto& [path, folder] : disk_.folders) {
    for (const auto& [name, inode] : folder.names) count(inode);
  }
  for (const auto& [fd, d] : open_) count(d.inode);
  return used;
}

int SimFileSystem::open(const char* path, int flags, mode_t) {
  if (!enter(Call::kOpen)) return -1;
  const std::string text(path ? path : "");
  if (disk_.folders.count(text)) {
    if ((flags & O_ACCMODE) != O_RDONLY) return failure(EISDIR);
    open_[next_fd_] = Descriptor{0, flags, 0};
    return next_fd_++;
  }
  std::string name;
  Folder* folder = folderOf(text, name);
  if (!folder || name.empty()) return failure(ENOENT);
  auto found = folder->names.find(name);
  uint64_t inode = 0;
  if (found != folder->names.end()) {
    if ((flags & O_CREAT) && (flags & O_EXCL)) return failure(EEXIST);
    inode = found->second;
    if ((flags & O_TRUNC) && (flags & O_ACCMODE) != O_RDONLY) disk_.inodes[inode].data.clear();
  } else {
    if (!(flags & O_CREAT)) return failure(ENOENT);
    inode = disk_.next_inode++;
    disk_.inodes[inode] = Inode{};
    folder->names[name] = inode;
    folder->pending.push_back(NameChange{std::string(), name, inode});
  }
  open_[next_fd_] = Descriptor{inode, flags, 0};
  return next_fd_++;
}

ssize_t SimFileSystem::read(int fd, void* buffer, std::size_t size) {
  if (!enter(Call::kRead)) return -1;
  Descriptor* d = descriptor(fd);
  if (!d || (d->flags & O_ACCMODE) == O_WRONLY) return failure(EBADF);
  if (d->inode == 0) return failure(EISDIR);
  const std::string& data = disk_.inodes[d->inode].data;
  if (max_transfer_ && size > max_transfer_) size = max_transfer_;
  const uint64_t left = d->offset < data.size() ? data.size() - d->offset : 0;
  const std::size_t n = left < size ? static_cast<std::size_t>(left) : size;
  if (n) std::memcpy(buffer, data.data() + d->offset, n);
  d->offset += n;
  return static_cast<ssize_t>(n);
}

ssize_t SimFileSystem::write(int fd, const void* buffer, std::size_t size) {
  if (!enter(Call::kWrite)) return -1;
  Descriptor* d = descriptor(fd);
  if (!d || (d->flags & O_ACCMODE) == O_RDONLY) return failure(EBADF);
  std::string& data = disk_.inodes[d->inode].data;
  if (d->flags & O_APPEND) d->offset = data.size();
  if (max_transfer_ && size > max_transfer_) size = max_transfer_;
  if (space_limit_) {
    const uint64_t end = d->offset + size;
    const uint64_t growth = end > data.size() ? end - data.size() : 0;
    const uint64_t used = bytesUsed();
    const uint64_t room = used < space_limit_ ? space_limit_ - used : 0;
    if (growth > room) {
      const uint64_t cut = growth - room;
      if (cut >= size) return failure(ENOSPC);
      size -= static_cast<std::size_t>(cut);
    }
  }
  if (data.size() < d->offset + size) data.resize(d->offset + size, '\0');
  std::memcpy(data.data() + d->offset, buffer, size);
  d->offset += size;
  return static_cast<ssize_t>(size);
}

int SimFileSystem::fsync(int fd) {
  if (!enter(Call::kFsync)) return -1;
  Descriptor* d = descriptor(fd);
  if (!d) return failure(EBADF);
  if (d->inode != 0) {
    Inode& inode = disk_.inodes[d->inode];
    inode.flushed = inode.data;
  }
  return 0;
}

int SimFileSystem::close(int fd) {
  const bool ok = enter(Call::kClose);
  const int error = errno;
  if (open_.erase(fd) == 0) return failure(EBADF);
  return ok ? 0 : failure(error);
}

int SimFileSystem::fileSize(int fd, uint64_t& size) {
  if (!enter(Call::kFileSize)) return -1;
  Descriptor* d = descriptor(fd);
  if (!d) return failure(EBADF);
  if (d->inode == 0) return failure(EISDIR);
  size = disk_.inodes[d->inode].data.size();
  return 0;
}

int SimFileSystem::rename(const char* from, const char* to) {
  if (!enter(Call::kRename)) return -1;
  std::string from_name;
  std::string to_name;
  Folder* source = folderOf(from ? from : "", from_name);
  Folder* target = folderOf(to ? to : "", to_name);
  if (!source || !target || to_name.empty()) return failure(ENOENT);
  auto found = source->names.find(from_name);
  if (found == source->names.end()) return failure(ENOENT);
  if (disk_.folders.count(to)) return failure(EISDIR);
  const uint64_t inode = found->second;
  if (source == target) {
    source->names.erase(found);
    source->names[to_name] = inode;
    source->pending.push_back(NameChange{from_name, to_name, inode});
  } else {
    source->names.erase(found);
    source->pending.push_back(NameChange{from_name, std::string(), inode});
    target->names[to_name] = inode;
    target->pending.push_back(NameChange{std::string(), to_name, inode});
  }
  return 0;
}

int SimFileSystem::unlink(const char* path) {
  if (!enter(Call::kUnlink)) return -1;
  const std::string text(path ? path : "");
  if (disk_.folders.count(text)) return failure(EISDIR);
  std::string name;
  Folder* folder = folderOf(text, name);
  if (!folder) return failure(ENOENT);
  auto found = folder->names.find(name);
  if (found == folder->names.end()) return failure(ENOENT);
  folder->pending.push_back(NameChange{name, std::string(), found->second});
  folder->names.erase(found);
  return 0;
}

int SimFileSystem::exists(const char* path) {
  if (!enter(Call::kExists)) return 0;
  const std::string text(path ? path : "");
  return disk_.folders.count(text) || hasFile(text) ? 1 : 0;
}

int SimFileSystem::syncDirectory(const char* path) {
  if (!enter(Call::kSyncDirectory)) return -1;
  auto found = disk_.folders.find(path ? path : "");
  if (found == disk_.folders.end()) return failure(ENOENT);
  found->second.flushed = found->second.names;
  found->second.pending.clear();
  return 0;
}
