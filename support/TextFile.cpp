// TextFile: load with one read into one buffer, lines as offsets into it; saved through a
// TextFileWriter.

#include "support/TextFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <new>

#include "support/FileCalls.h"
#include "support/StringUtils.h"
#include "support/TextFileWriter.h"

using file_calls::close_file;
using file_calls::open_file;
using file_calls::or_bad_alloc;
using file_calls::retrying;

namespace {

// Reads up to `size` bytes, stopping early only at the end of the file; -1 on error.
int64_t read_all(iFileSystem* fs, int fd, char* data, uint64_t size) {
  uint64_t got = 0;
  while (got < size) {
    ssize_t n = fs->read(fd, data + got, size - got);
    if (n < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (n == 0) break;
    got += static_cast<uint64_t>(n);
  }
  return static_cast<int64_t>(got);
}

// How many times `separator` occurs in the `n` bytes at `data`. memchr passes over the bytes
// between separators many at a step, where std::count took one: 70 ms against 12 for a log of
// 270 MB.
std::size_t count_of(const char* data, uint64_t n, char separator) noexcept {
  std::size_t count = 0;
  const char* const end = data + n;
  // The end is tested first: memchr may not be given a null buffer, even to read no bytes.
  for (const char* p = data; p != end; ++p, ++count) {
    p = static_cast<const char*>(std::memchr(p, separator, static_cast<std::size_t>(end - p)));
    if (!p) break;
  }
  return count;
}

}  // namespace

// Plain pages, without large-page advice: a large page is faster to fill only while the
// system has free ones at hand; after a pause it must gather them first, and a fresh process's
// load then took two to three times as long.
void* TextFile::allocateBytes(std::size_t size) { return ::operator new(size); }

void TextFile::releaseBytes(void* at, std::size_t) noexcept { ::operator delete(at); }

TextFile::TextFile() = default;

TextFile::~TextFile() = default;

void TextFile::clear() noexcept {
  mapped_.reset();
  mapped_size_ = 0;
  if (buffer_ && buffer_.use_count() == 1) {
    buffer_->clear();  // its room serves the next load or block
  } else {
    buffer_.reset();
  }
  lines_.clear();
  cursor_ = 0;
}

TextFile::Bytes& TextFile::own_buffer(bool keep) {
  if (mapped_) {
    // The mapped bytes are the file's, never to be written: the lines go on in a copy.
    if (!buffer_ || buffer_.use_count() != 1) buffer_ = std::make_shared<Bytes>();
    if (keep) {
      buffer_->assign(mapped_.get(), mapped_.get() + mapped_size_);
    } else {
      buffer_->clear();
    }
    mapped_.reset();
    mapped_size_ = 0;
    return *buffer_;
  }
  if (!buffer_) {
    buffer_ = std::make_shared<Bytes>();
  } else if (buffer_.use_count() != 1) {
    buffer_ = keep ? std::make_shared<Bytes>(*buffer_) : std::make_shared<Bytes>();
  }
  return *buffer_;
}

bool TextFile::load(const LightweightString<wchar_t>& name, char separator, bool keepCR) {
  clear();
  LightweightString<char> path = toUTF8(name);
  if (path.empty()) return false;
  iFileSystem* fs = OS()->fileSystem();
  int fd = open_file(fs, path.c_str(), O_RDONLY | O_CLOEXEC, 0);
  if (fd < 0) return false;

  uint64_t size = 0;
  int64_t got = -1;
  if (retrying([&] { return fs->fileSize(fd, size); }) == 0) {
    Bytes* buffer = nullptr;
    try {
      or_bad_alloc([&] {
        buffer = &own_buffer(false);
        buffer->resize(size);
      });
    } catch (...) {
      fs->close(fd);
      throw;
    }
    got = read_all(fs, fd, buffer->data(), size);
  }
  // Callers rely on a load that either read the whole file or failed: an error reported at
  // close counts as an error of the read.
  if (!close_file(fs, fd)) got = -1;
  if (got < 0) {
    clear();
    return false;
  }
  buffer_->resize(static_cast<uint64_t>(got));  // the file shrank while we read it

  index_lines(separator, keepCR);
  return true;
}

void TextFile::index_lines(char separator, bool keepCR) {
  const char* data = this->data();
  const uint64_t n = bufferSize();
  // Counted once, so that a whole file's index takes no more room than it needs; a reader's
  // later blocks reuse the room the first one made.
  if (lines_.capacity() == 0) {
    or_bad_alloc([&] { lines_.reserve(count_of(data, n, separator) + 1); });
  }
  uint64_t start = 0;
  while (start < n) {
    const void* hit = std::memchr(data + start, separator, n - start);
    uint64_t end = hit ? static_cast<uint64_t>(static_cast<const char*>(hit) - data) : n;
    uint64_t length = end - start;
    if (hit && !keepCR && length > 0 && data[end - 1] == '\r') --length;
    lines_.push_back(Span{start, static_cast<uint32_t>(length)});
    start = end + 1;
  }
}

LightweightString<char> TextFile::operator[](unsigned i) const {
  std::string_view text = line(i);
  return LightweightString<char>(text.data(), text.size());
}

void TextFile::appendLine(std::string_view text) {
  or_bad_alloc([&] {
    // A shared buffer is copied first; its holders keep it, and so the text, alive.
    Bytes& buffer = own_buffer(true);
    const uint64_t start = buffer.size();
    const char* base = buffer.data();
    std::less<const char*> before;
    if (!text.empty() && !before(text.data(), base) && before(text.data(), base + start)) {
      // The text is one of our own lines: growing the buffer would move it.
      std::size_t offset = static_cast<std::size_t>(text.data() - base);
      buffer.resize(start + text.size());
      std::memmove(buffer.data() + start, buffer.data() + offset, text.size());
    } else {
      buffer.insert(buffer.end(), text.begin(), text.end());
    }
    lines_.push_back(Span{start, static_cast<uint32_t>(text.size())});
  });
}

void TextFile::reserve(std::size_t bytes, std::size_t lines) {
  or_bad_alloc([&] {
    Bytes& buffer = own_buffer(true);
    buffer.reserve(buffer.size() + bytes);
    lines_.reserve(lines_.size() + lines);
  });
}

bool TextFile::save(const LightweightString<wchar_t>& name, eEOLStyle style) const {
  TextFileWriter out(name, style);
  for (unsigned i = 0; i < lines_.size(); ++i) out.appendLine(line(i));
  return out.commit();
}
