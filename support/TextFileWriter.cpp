// TextFileWriter: lines streamed through one block to a temporary file, renamed on commit.

#include "support/TextFileWriter.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "support/FileCalls.h"
#include "support/StringUtils.h"

using file_calls::close_file;
using file_calls::open_file;
using file_calls::retrying;

namespace {

bool write_all(iFileSystem* fs, int fd, const char* data, std::size_t size) {
  while (size > 0) {
    ssize_t n = fs->write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (n == 0) {
      errno = EIO;
      return false;
    }
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

// Makes the folder's entries durable. Folders on file systems that cannot flush them (EINVAL,
// ENOTSUP) leave that to the file system; every other failure means the new name may not
// survive a power loss.
bool sync_folder(iFileSystem* fs, const LightweightString<char>& folder) {
  if (retrying([&] { return fs->syncDirectory(folder.c_str()); }) == 0) return true;
  return errno == EINVAL || errno == ENOTSUP;
}

std::atomic<unsigned> temp_serial{0};

// A name beside `target` that no other save, in this process or another, is using.
LightweightString<char> temp_name_for(const LightweightString<char>& target) {
  LightweightString<char> name(target);
  name += ".";
  name += static_cast<int>(getpid());
  name += "-";
  name += temp_serial.fetch_add(1, std::memory_order_relaxed);
  name += ".tmp";
  return name;
}

LightweightString<char> folder_of(const LightweightString<char>& path) {
  std::string_view v = path.view();
  std::size_t slash = v.rfind('/');
  if (slash == std::string_view::npos) return ".";
  if (slash == 0) return "/";
  return LightweightString<char>(v.substr(0, slash));
}

}  // namespace

TextFileWriter::TextFileWriter(const LightweightString<wchar_t>& name, TextFile::eEOLStyle style)
    : fs_(OS()->fileSystem()),
      target_(toUTF8(name)),
      eol_(style == TextFile::kEOL_CRLF  ? "\r\n"
           : style == TextFile::kEOLNone ? ""
                                         : "\n"),
      eol_length_(std::strlen(eol_)) {
  if (target_.empty()) {
    error_ = errno;
    return;
  }
  // Made before the temporary file exists, so that nothing after it can fail to allocate.
  folder_ = folder_of(target_);
  for (int attempt = 0; attempt < 100 && fd_ < 0; ++attempt) {
    temp_ = temp_name_for(target_);
    fd_ = open_file(fs_, temp_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd_ < 0 && errno != EEXIST) break;
  }
  ok_ = created_ = fd_ >= 0;
  if (!ok_) error_ = errno;
}

TextFileWriter::~TextFileWriter() {
  if (!done_) discard();
}

void TextFileWriter::fail() noexcept {
  if (ok_) error_ = errno;
  ok_ = false;
}

void TextFileWriter::discard() noexcept {
  done_ = true;
  if (fd_ < 0) return;
  int saved = errno;
  close_file(fs_, fd_);
  fd_ = -1;
  retrying([&] { return fs_->unlink(temp_.c_str()); });
  errno = saved;
}

bool TextFileWriter::flush() {
  bool written = write_all(fs_, fd_, chunk_, used_);
  if (written) wrote(used_);
  used_ = 0;
  return written;
}

void TextFileWriter::wrote(std::size_t size) {
  written_ += size;
  // A large file goes to the disk while the rest is made, rather than all of it during the
  // commit's fsync. Advice only: the fsync still answers for every byte.
  constexpr uint64_t kAhead = uint64_t{8} << 20;
  if (written_ - sent_ahead_ >= kAhead) {
    const int saved = errno;
    fs_->startWriteback(fd_, sent_ahead_, written_ - sent_ahead_);
    errno = saved;
    sent_ahead_ = written_;
  }
}

void TextFileWriter::put(const char* data, std::size_t size) {
  if (size == 0) return;  // an empty line's data may be null, which memcpy must not see
  // The block is filled to the byte, a line split across two if need be: every write then
  // starts at a multiple of the block's size in the file, where the kernel can cache it whole.
  while (used_ + size >= kChunk) {
    const std::size_t part = kChunk - used_;
    std::memcpy(chunk_ + used_, data, part);
    used_ = kChunk;
    if (!flush()) return fail();
    data += part;
    size -= part;
  }
  if (size == 0) return;
  std::memcpy(chunk_ + used_, data, size);
  used_ += size;
}

void TextFileWriter::appendLine(std::string_view text) {
  if (ok_) put(text.data(), text.size());
  if (ok_) put(eol_, eol_length_);
}

bool TextFileWriter::commit() {
  if (done_) return false;
  if (ok_ && !flush()) fail();
  // The data must be on the disk before the name points at it, or a power loss could leave
  // the target naming an empty or partly written file.
  if (ok_ && retrying([&] { return fs_->fsync(fd_); }) != 0) fail();
  if (fd_ >= 0) {
    if (!close_file(fs_, fd_)) fail();
    fd_ = -1;
  }
  if (ok_ && retrying([&] { return fs_->rename(temp_.c_str(), target_.c_str()); }) != 0) fail();
  done_ = true;
  if (!ok_) {
    if (created_) retrying([&] { return fs_->unlink(temp_.c_str()); });
    errno = error_;
    return false;
  }
  // The target now holds the new text, but until the folder is flushed a power loss may bring
  // the old one back: only then has the save succeeded. A failure here leaves the target
  // holding either text, which callers accept from a failed save.
  return sync_folder(fs_, folder_);
}
