// TextFileReader: blocks of whole lines, the unfinished last line carried to the next block.

#include "support/TextFileReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "support/Config.h"
#include "support/FileCalls.h"
#include "support/StringUtils.h"

using file_calls::close_file;
using file_calls::open_file;
using file_calls::or_bad_alloc;
using file_calls::retrying;

namespace {
// Read past the size the file had when it was opened, in case it has grown since.
constexpr std::size_t kOverRead = 4096;
}  // namespace

TextFileReader::TextFileReader(const LightweightString<wchar_t>& name, char separator, bool keepCR, std::size_t block)
    : fs_(OS()->fileSystem()), separator_(separator), keep_cr_(keepCR), block_(block ? block : 1) {
  const LightweightString<char> path = toUTF8(name);
  if (path.empty()) {
    error_ = ENOENT;
    return;
  }
  fd_ = open_file(fs_, path.c_str(), O_RDONLY | O_CLOEXEC, 0);
  if (fd_ < 0) {
    error_ = errno;
    return;
  }
  ok_ = true;
  if (retrying([&] { return fs_->fileSize(fd_, size_); }) != 0) {
    fail();
  } else if (config_int("map_files", 0, 0, 1) != 0) {
    or_bad_alloc([&] { mapping_ = fs_->map(fd_, size_); });
  }
}

TextFileReader::~TextFileReader() {
  if (fd_ >= 0) fs_->close(fd_);
}

void TextFileReader::fail() noexcept {
  error_ = errno;
  ok_ = false;
}

bool TextFileReader::next(TextFile& lines) {
  lines.clear();
  if (mapping_) return next_mapped(lines);
  if (!ok_ || (at_end_ && carry_.empty())) return false;
  TextFile::Bytes* block = nullptr;
  or_bad_alloc([&] {
    block = &lines.own_buffer(false);
    block->assign(carry_.begin(), carry_.end());
  });
  TextFile::Bytes& buffer = *block;
  carry_.clear();

  std::size_t searched = buffer.size();  // the carried start of a line holds no separator
  while (!at_end_) {
    // No bigger than what is left of the file (a little over, to meet its end in the same
    // round): a small log must not cost a whole block of zeroed memory.
    const uint64_t left = size_ > read_ ? size_ - read_ : 0;
    const std::size_t have = buffer.size();
    // The carried line and the new bytes fill one block exactly, which the buffer's
    // allocator can then map in large pages without a stray part-used one.
    const std::size_t room = have < block_ ? block_ - have : block_;
    const std::size_t want = left + kOverRead < room ? static_cast<std::size_t>(left) + kOverRead : room;
    or_bad_alloc([&] { buffer.resize(have + want); });
    std::size_t got = 0;
    while (got < want) {
      ssize_t n = fs_->read(fd_, buffer.data() + have + got, want - got);
      if (n < 0) {
        if (errno == EINTR) continue;
        fail();
        lines.clear();
        return false;
      }
      if (n == 0) {
        at_end_ = true;
        break;
      }
      got += static_cast<std::size_t>(n);
    }
    read_ += got;
    buffer.resize(have + got);
    const char* data = buffer.data();
    const void* last = got ? memrchr(data + searched, separator_, buffer.size() - searched) : nullptr;
    searched = buffer.size();
    if (last) {
      const std::size_t cut = static_cast<std::size_t>(static_cast<const char*>(last) - data) + 1;
      or_bad_alloc([&] { carry_.assign(data + cut, data + buffer.size()); });
      buffer.resize(cut);
      break;
    }
  }
  if (buffer.empty()) return false;
  lines.index_lines(separator_, keep_cr_);
  return true;
}

bool TextFileReader::next_mapped(TextFile& lines) {
  if (!ok_ || read_ >= size_) return false;
  const char* const base = mapping_.get();
  const uint64_t start = read_;
  uint64_t end = size_;
  if (size_ - start > block_) {
    // The block ends after its last separator; a line longer than a block runs on to its own.
    const char* from = base + start;
    const void* cut = memrchr(from, separator_, block_);
    if (!cut) cut = std::memchr(from + block_, separator_, static_cast<std::size_t>(size_ - start - block_));
    if (cut) end = static_cast<uint64_t>(static_cast<const char*>(cut) - base) + 1;
  }
  read_ = end;
  lines.mapped_ = std::shared_ptr<const char>(mapping_, base + start);
  lines.mapped_size_ = static_cast<std::size_t>(end - start);
  lines.index_lines(separator_, keep_cr_);
  return true;
}

bool TextFileReader::finish() {
  mapping_.reset();  // what its lines need, their holders keep
  if (fd_ >= 0) {
    if (!close_file(fs_, fd_) && ok_) fail();
    fd_ = -1;
  }
  if (!ok_) errno = error_;
  return ok_;
}
