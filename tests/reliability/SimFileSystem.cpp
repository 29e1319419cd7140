// SimFileSystem: files and folders in memory with flushed and unflushed states, faults, and
// power loss.

#include "SimFileSystem.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

namespace {

void split_path(const std::string& path, std::string& folder, std::string& name) {
  const std::size_t slash = path.rfind('/');
  // assign() rather than operator= from a literal: g++ 12 at -O2 reports a false -Wrestrict.
  if (slash == std::string::npos) {
    folder.assign(1, '.');
    name.assign(path);
  } else {
    folder.assign(path, 0, slash == 0 ? 1 : slash);
    name.assign(path, slash + 1, std::string::npos);
  }
}

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

void SimFileSystem::putFile(const std::string& path, const std::string& bytes) {
  std::string folder;
  std::string name;
  split_path(path, folder, name);
  const uint64_t inode = disk_.next_inode++;
  disk_.inodes[inode] = Inode{bytes, bytes};
  disk_.folders[folder].names[name] = inode;
  disk_.folders[folder].flushed[name] = inode;
}

bool SimFileSystem::hasFile(const std::string& path) const {
  std::string name;
  const Folder* folder = folder_in(disk_.folders, path, name);
  return folder && folder->names.count(name) != 0;
}

std::string SimFileSystem::contents(const std::string& path) const {
  std::string name;
  const Folder* folder = folder_in(disk_.folders, path, name);
  if (!folder || !folder->names.count(name)) return {};
  return disk_.inodes.at(folder->names.at(name)).data;
}

std::vector<std::string> SimFileSystem::namesIn(const std::string& path) const {
  std::vector<std::string> names;
  auto found = disk_.folders.find(path);
  if (found != disk_.folders.end()) {
    for (const auto& entry : found->second.names) names.push_back(entry.first);
  }
  return names;
}

bool SimFileSystem::enter(Call kind) {
  ++calls_;
  log_.push_back(kind);
  if (crash_at_ == calls_) crash_disk_ = disk_;
  if (fail_at_ != calls_) return true;
  errno = fail_error_;
  return false;
}

SimFileSystem SimFileSystem::afterPowerLoss(Unflushed unflushed) const {
  SimFileSystem after;
  Disk& disk = after.disk_;
  disk = crash_disk_ ? *crash_disk_ : disk_;
  for (auto& [path, folder] : disk.folders) {
    std::size_t keep = unflushed == Unflushed::kKept ? folder.pending.size() : 0;
    if (unflushed == Unflushed::kHalfWritten) keep = folder.pending.size() / 2;
    for (std::size_t i = 0; i < keep; ++i) {
      const NameChange& change = folder.pending[i];
      auto found = folder.flushed.find(change.from);
      if (found != folder.flushed.end() && found->second == change.inode) folder.flushed.erase(found);
      if (!change.to.empty()) folder.flushed[change.to] = change.inode;
    }
    folder.names = folder.flushed;
    folder.pending.clear();
  }
  std::map<uint64_t, Inode> survivors;
  for (const auto& [path, folder] : disk.folders) {
    for (const auto& [name, number] : folder.names) {
      const Inode& inode = disk.inodes.at(number);
      std::string data = unflushed == Unflushed::kKept ? inode.data : inode.flushed;
      if (unflushed == Unflushed::kHalfWritten) {
        std::size_t same = 0;
        while (same < inode.data.size() && same < inode.flushed.size() && inode.data[same] == inode.flushed[same])
          ++same;
        data = inode.data.substr(0, same + (inode.data.size() - same) / 2);
      }
      survivors[number] = Inode{data, data};
    }
  }
  disk.inodes.swap(survivors);
  return after;
}

SimFileSystem::Folder* SimFileSystem::folderOf(const std::string& path, std::string& name) {
  return folder_in(disk_.folders, path, name);
}

SimFileSystem::Descriptor* SimFileSystem::descriptor(int fd) {
  auto found = open_.find(fd);
  return found == open_.end() ? nullptr : &found->second;
}

int SimFileSystem::open(const char* path, int flags, mode_t) {
  if (!enter(Call::kOpen)) return -1;
  const std::string text(path ? path : "");
  if (disk_.folders.count(text)) return failure(EISDIR);
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
  if (max_transfer_ && size > max_transfer_) size = max_transfer_;
  if (data.size() < d->offset + size) data.resize(d->offset + size, '\0');
  std::memcpy(data.data() + d->offset, buffer, size);
  d->offset += size;
  return static_cast<ssize_t>(size);
}

int SimFileSystem::fsync(int fd) {
  if (!enter(Call::kFsync)) return -1;
  Descriptor* d = descriptor(fd);
  if (!d) return failure(EBADF);
  disk_.inodes[d->inode].flushed = disk_.inodes[d->inode].data;
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
  size = disk_.inodes[d->inode].data.size();
  return 0;
}

int SimFileSystem::rename(const char* from, const char* to) {
  if (!enter(Call::kRename)) return -1;
  std::string from_name;
  std::string to_name;
  Folder* folder = folderOf(from ? from : "", from_name);
  if (!folder || folder != folderOf(to ? to : "", to_name)) return failure(EXDEV);  // saves stay in one folder
  if (!folder->names.count(from_name) || to_name.empty()) return failure(ENOENT);
  const uint64_t inode = folder->names[from_name];
  folder->names.erase(from_name);
  folder->names[to_name] = inode;
  folder->pending.push_back(NameChange{from_name, to_name, inode});
  return 0;
}

int SimFileSystem::unlink(const char* path) {
  if (!enter(Call::kUnlink)) return -1;
  std::string name;
  Folder* folder = folderOf(path ? path : "", name);
  if (!folder || !folder->names.count(name)) return failure(ENOENT);
  folder->pending.push_back(NameChange{name, std::string(), folder->names[name]});
  folder->names.erase(name);
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
