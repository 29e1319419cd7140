#ifndef KESTA_SUPPORT_TEXTFILEREADER_H
#define KESTA_SUPPORT_TEXTFILEREADER_H
// TextFileReader: a text file read as lines one block at a time, so that a large file is never
// held whole in memory while it is turned into something else.
//
//   TextFileReader in(L"/logs/day1.kst", '\n', false);
//   TextFile lines;
//   while (in.next(lines)) {
//     while (lines.readCursor() < lines.getNumLines()) use(lines.takeLine());
//   }
//   if (!in.finish()) report(errno);   // the open, a read or the close failed
//
// The lines are split exactly as TextFile::load splits a whole file: at `separator`, one
// carriage return before each separator dropped unless `keepCR`, a last line without a
// separator kept, a final separator adding no empty line. Each block holds whole lines only;
// a line longer than a block makes that block as long as the line.
//
// With the setting "map_files" on (config_int; off by default), the reader maps the file
// instead of reading it, when the file system can: the lines then point into the mapping,
// which costs no copy and no fresh memory. A mapped file that another program shrinks while
// lines of it are held faults (SIGBUS) where its bytes were, so only a process that answers
// that signal should turn the setting on. A mapping sees the file's size at opening; reads see
// what it has grown to by then.
//
// After a failed call the reader takes no more file calls and next answers false; finish then
// answers false with errno as the failed call left it. All file calls go through
// OS()->fileSystem(), in the order open, file size, a mapping or reads, close.
//
// Thread safety: none; one thread at a time.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "support/LightweightString.h"
#include "support/TextFile.h"

class KESTA_SUPPORT_API TextFileReader {
 public:
  static constexpr std::size_t kDefaultBlock = std::size_t{4} << 20;

  // Opens the file; a failure shows in next (false) and finish (false).
  TextFileReader(const LightweightString<wchar_t>& name, char separator, bool keepCR,
                 std::size_t block = kDefaultBlock);
  ~TextFileReader();
  TextFileReader(const TextFileReader&) = delete;
  TextFileReader& operator=(const TextFileReader&) = delete;

  // The file's size when it was opened; 0 when it could not be opened.
  uint64_t size() const noexcept { return size_; }
  // Replaces the lines of `lines` with the file's next ones (at least one) and puts its read
  // cursor at 0. False, leaving `lines` empty, at the end of the file or after a failure.
  bool next(TextFile& lines);
  // Closes the file. True when it was opened, every read succeeded and so did the close.
  bool finish();

 private:
  void fail() noexcept;
  bool next_mapped(TextFile& lines);

  iFileSystem* fs_;
  const char separator_;
  const bool keep_cr_;
  const std::size_t block_;
  int fd_ = -1;
  bool ok_ = false;
  bool at_end_ = false;
  int error_ = 0;
  uint64_t size_ = 0;
  uint64_t read_ = 0;                    // bytes read so far
  std::vector<char> carry_;              // the start of a line whose separator is not read yet
  std::shared_ptr<const char> mapping_;  // the whole file, when it is mapped
};

#endif
