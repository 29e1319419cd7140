// TextFile: load with one read into one buffer, lines as offsets into it, atomic save.

#include "support/TextFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>

#include "support/StringUtils.h"

namespace {

// The buffers are standard vectors; their exhaustion surfaces as the library's exception.
template <class Step>
void or_bad_alloc(Step step) {
  try {
    step();
  } catch (const Zr::Exception::BadAlloc&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw Zr::Exception::BadAlloc();
  }
}

int open_file(iFileSystem* fs, const char* path, int flags, mode_t mode) {
  int fd;
  do {
    fd = fs->open(path, flags, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

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

// Runs a call again while it is interrupted before doing anything.
template <class Call>
int retrying(Call call) {
  int result;
  do {
    result = call();
  } while (result != 0 && errno == EINTR);
  return result;
}

// A close that reports an error may be the first report of a lost transfer. EINTR still
// closes on Linux, so it is not retried and not an error.
bool close_file(iFileSystem* fs, int fd) { return fs->close(fd) == 0 || errno == EINTR; }

// Makes the folder's entries durable. Folders on file systems that cannot flush them (EINVAL,
// ENOTSUP) leave that to the file system; every other failure means the new name may not
// survive a power loss.
bool sync_folder(iFileSystem* fs, const LightweightString<char>& folder) {
  if (retrying([&] { return fs->syncDirectory(folder.c_str()); }) == 0) return true;
  return errno == EINVAL || errno == ENOTSUP;
}

// Gathers lines and their terminators into large writes.
class ChunkWriter {
 public:
  ChunkWriter(iFileSystem* fs, int fd) : fs_(fs), fd_(fd) {}
  bool put(const char* data, std::size_t size) {
    if (used_ + size > sizeof chunk_) {
      if (!flush()) return false;
      if (size > sizeof chunk_) return write_all(fs_, fd_, data, size);
    }
    std::memcpy(chunk_ + used_, data, size);
    used_ += size;
    return true;
  }
  bool flush() {
    bool ok = write_all(fs_, fd_, chunk_, used_);
    used_ = 0;
    return ok;
  }

 private:
  iFileSystem* fs_;
  int fd_;
  std::size_t used_ = 0;
  char chunk_[32768];
};

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

TextFile::TextFile() = default;

TextFile::~TextFile() = default;

void TextFile::clear() noexcept {
  buffer_.clear();
  lines_.clear();
  cursor_ = 0;
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
    try {
      or_bad_alloc([&] { buffer_.resize(size); });
    } catch (...) {
      fs->close(fd);
      throw;
    }
    got = read_all(fs, fd, buffer_.data(), size);
  }
  // Callers rely on a load that either read the whole file or failed: an error reported at
  // close counts as an error of the read.
  if (!close_file(fs, fd)) got = -1;
  if (got < 0) {
    clear();
    return false;
  }
  buffer_.resize(static_cast<uint64_t>(got));  // the file shrank while we read it

  const char* data = buffer_.data();
  const uint64_t n = buffer_.size();
  or_bad_alloc([&] { lines_.reserve(static_cast<std::size_t>(std::count(data, data + n, separator)) + 1); });
  uint64_t start = 0;
  while (start < n) {
    const void* hit = std::memchr(data + start, separator, n - start);
    uint64_t end = hit ? static_cast<uint64_t>(static_cast<const char*>(hit) - data) : n;
    uint64_t length = end - start;
    if (hit && !keepCR && length > 0 && data[end - 1] == '\r') --length;
    lines_.push_back(Span{start, static_cast<uint32_t>(length)});
    start = end + 1;
  }
  return true;
}

LightweightString<char> TextFile::operator[](unsigned i) const {
  std::string_view text = line(i);
  return LightweightString<char>(text.data(), text.size());
}

void TextFile::appendLine(std::string_view text) {
  uint64_t start = buffer_.size();
  const char* base = buffer_.data();
  std::less<const char*> before;
  or_bad_alloc([&] {
    if (!text.empty() && !before(text.data(), base) && before(text.data(), base + start)) {
      // The text is one of our own lines: growing the buffer would move it.
      std::size_t offset = static_cast<std::size_t>(text.data() - base);
      buffer_.resize(start + text.size());
      std::memmove(buffer_.data() + start, buffer_.data() + offset, text.size());
    } else {
      buffer_.insert(buffer_.end(), text.begin(), text.end());
    }
    lines_.push_back(Span{start, static_cast<uint32_t>(text.size())});
  });
}

bool TextFile::save(const LightweightString<wchar_t>& name, eEOLStyle style) const {
  LightweightString<char> target = toUTF8(name);
  if (target.empty()) return false;
  iFileSystem* fs = OS()->fileSystem();
  // Made before the temporary file exists, so that nothing after it can fail to allocate.
  const LightweightString<char> folder = folder_of(target);

  LightweightString<char> temp;
  int fd = -1;
  for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
    temp = temp_name_for(target);
    fd = open_file(fs, temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno != EEXIST) return false;
  }
  if (fd < 0) return false;

  const char* eol = style == kEOL_CRLF ? "\r\n" : style == kEOLNone ? "" : "\n";
  const std::size_t eol_length = std::strlen(eol);
  bool ok = true;
  {
    ChunkWriter out(fs, fd);
    for (unsigned i = 0; ok && i < lines_.size(); ++i) {
      std::string_view text = line(i);
      ok = out.put(text.data(), text.size()) && out.put(eol, eol_length);
    }
    ok = ok && out.flush();
  }
  // The data must be on the disk before the name points at it, or a power loss could leave
  // the target naming an empty or partly written file.
  ok = ok && retrying([&] { return fs->fsync(fd); }) == 0;
  if (!close_file(fs, fd)) ok = false;
  ok = ok && retrying([&] { return fs->rename(temp.c_str(), target.c_str()); }) == 0;
  if (!ok) {
    int saved = errno;
    retrying([&] { return fs->unlink(temp.c_str()); });
    errno = saved;
    return false;
  }
  // The target now holds the new text, but until the folder is flushed a power loss may bring
  // the old one back: only then has the save succeeded. A failure here leaves the target
  // holding either text, which callers accept from a failed save.
  return sync_folder(fs, folder);
}
