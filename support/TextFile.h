#ifndef KESTA_SUPPORT_TEXTFILE_H
#define KESTA_SUPPORT_TEXTFILE_H
// TextFile: a whole text file held in memory as lines, in one buffer with line offsets.
//
//   TextFile file;
//   if (file.load(L"/logs/day1.kst", '\n', false)) {
//     for (unsigned i = 0; i < file.getNumLines(); ++i) use(file.line(i));   // no copies
//   }
//   file.appendLine("\"KESTA\"");
//   file.save(L"/logs/day1.kst", TextFile::eEOLStyle(1));
//
// Loading reads the file with one read into one buffer. With `keepCR` false, one carriage
// return before each separator is dropped. A last line without a terminator is a line; a final
// terminator adds no empty line. Lines past the end read as empty.
//
// Saving is atomic: the lines go to a temporary file in the same folder, which is flushed,
// renamed over the target, and the folder flushed. A save that answers true survives a power
// loss. On a failure before the rename the temporary file is removed, an existing target is
// untouched, and save answers false; when only the folder flush fails, save answers false and
// the target holds the old text or the new one, whichever a power loss leaves.
//
// Loading answers false when any call fails, closing the file included.
//
// All file calls go through OS()->fileSystem().
//
// Thread safety: none; one thread at a time. Loading and saving do not touch other objects.

#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "support/LightweightString.h"

class KESTA_SUPPORT_API TextFile {
 public:
  // The buffer's bytes are not zeroed as it grows: each is read or copied into before use,
  // and zeroing a big file's worth would cost a tenth of its load.
  template <class T>
  struct UnzeroedAllocator : std::allocator<T> {
    template <class U>
    struct rebind {
      using other = UnzeroedAllocator<U>;
    };
    UnzeroedAllocator() noexcept = default;
    template <class U>
    UnzeroedAllocator(const UnzeroedAllocator<U>&) noexcept {}
    template <class U>
    void construct(U* at) noexcept {
      ::new (static_cast<void*>(at)) U;
    }
    template <class U, class... Args>
    void construct(U* at, Args&&... args) {
      ::new (static_cast<void*>(at)) U(std::forward<Args>(args)...);
    }
    T* allocate(std::size_t n) { return static_cast<T*>(allocateBytes(n * sizeof(T))); }
    void deallocate(T* at, std::size_t n) noexcept { releaseBytes(at, n * sizeof(T)); }
  };
  using Bytes = std::vector<char, UnzeroedAllocator<char>>;
  static void* allocateBytes(std::size_t size);
  static void releaseBytes(void* at, std::size_t size) noexcept;

  // 1 ends every line with a line feed (what the library's files use). 2 ends lines with a
  // carriage return and line feed.
  enum eEOLStyle { kEOLNone = 0, kEOL_LF = 1, kEOL_CRLF = 2 };

  TextFile();
  ~TextFile();
  TextFile(const TextFile&) = delete;
  TextFile& operator=(const TextFile&) = delete;

  // Replaces the lines with the named file's, split at `separator`; false (and no lines)
  // when the file cannot be read. The read cursor goes back to 0.
  bool load(const LightweightString<wchar_t>& name, char separator, bool keepCR);
  // Writes every line ended as `style` says; false when the file could not be fully written.
  bool save(const LightweightString<wchar_t>& name, eEOLStyle style) const;

  unsigned getNumLines() const noexcept { return static_cast<unsigned>(lines_.size()); }
  // The line as a new string; empty past the end.
  LightweightString<char> operator[](unsigned i) const;
  // The line without copying; valid until the file changes. Empty past the end.
  std::string_view line(unsigned i) const noexcept {
    if (i >= lines_.size()) return {};
    const Span& s = lines_[i];
    return {data() + s.start, s.length};
  }
  // Keeps alive the bytes every line() points into. While a holder keeps them, this file never
  // changes them: it changes a copy instead, so a line taken from it stays valid in the
  // holder's hands.
  std::shared_ptr<const void> shareBuffer() const noexcept {
    if (mapped_) return mapped_;
    return buffer_;
  }

  void appendLine(const LightweightString<char>& text) { appendLine(text.view()); }
  void appendLine(std::string_view text);
  // Without it a literal would match both overloads above.
  void appendLine(const char* text) { appendLine(std::string_view(text ? text : "")); }
  void clear() noexcept;
  // Room for `bytes` more bytes of lines and `lines` more lines: appending them then moves
  // nothing, and the buffer holds no more room than asked for.
  void reserve(std::size_t bytes, std::size_t lines);

  // The read cursor: the index of the next line a record reader takes.
  unsigned readCursor() const noexcept { return cursor_; }
  void setReadCursor(unsigned i) noexcept { cursor_ = i; }
  // The line at the cursor (empty past the end), advancing the cursor by one.
  std::string_view takeLine() noexcept { return line(cursor_++); }

  // Bytes held by the line buffer; for memory accounting.
  std::size_t bufferSize() const noexcept { return mapped_ ? mapped_size_ : buffer_ ? buffer_->size() : 0; }

 private:
  friend class TextFileReader;  // fills the buffer a block at a time
  // Splits the whole buffer into lines as load does.
  void index_lines(char separator, bool keepCR);
  // The buffer, this file's alone: a shared one is left to its holders for a copy of its
  // bytes (`keep`) or for an empty one.
  Bytes& own_buffer(bool keep);

  const char* data() const noexcept { return mapped_ ? mapped_.get() : buffer_ ? buffer_->data() : nullptr; }

  struct Span {
    uint64_t start;
    uint32_t length;
  };
  std::shared_ptr<Bytes> buffer_;
  // A reader's block of a mapped file, used instead of buffer_ until the lines change.
  std::shared_ptr<const char> mapped_;
  std::size_t mapped_size_ = 0;
  std::vector<Span> lines_;
  unsigned cursor_ = 0;
};

#endif
