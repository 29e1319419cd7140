#ifndef KESTA_SUPPORT_TEXTFILEWRITER_H
#define KESTA_SUPPORT_TEXTFILEWRITER_H
// TextFileWriter: an atomic save that streams its lines to the disk as they are made, so that
// a large file is never held whole in memory.
//
//   TextFileWriter out(L"/logs/day1.kst", TextFile::kEOL_LF);
//   for (...) out.appendLine(text);
//   if (!out.commit()) report(errno);
//
// The lines go to a temporary file beside the target, written in large blocks. commit flushes
// it, renames it over the target and flushes the folder, with TextFile::save's guarantees
// (TextFile::save is this writer fed with the file's lines). A writer destroyed without a
// commit, or whose commit failed before the rename, removes its temporary file and leaves the
// target untouched.
//
// After a failed call the writer takes no more file calls: later lines are dropped, and commit
// closes and removes the temporary file and answers false with errno as the failed call left
// it. The file calls are made in the order a save makes them: open, writes, fsync, close,
// rename, folder flush (unlink instead of the rest after a failure). Every 8 MB the writes are
// followed by a startWriteback of what they wrote.
//
// Thread safety: none; one thread at a time.

#include <cstddef>
#include <string_view>

#include "support/LightweightString.h"
#include "support/TextFile.h"

class KESTA_SUPPORT_API TextFileWriter {
 public:
  // Opens the temporary file beside `name`; a failure shows in commit.
  TextFileWriter(const LightweightString<wchar_t>& name, TextFile::eEOLStyle style);
  ~TextFileWriter();
  TextFileWriter(const TextFileWriter&) = delete;
  TextFileWriter& operator=(const TextFileWriter&) = delete;

  // Adds a line ended as the style says.
  void appendLine(std::string_view text);
  // Makes the written lines the target's text; true when that is durable.
  bool commit();

 private:
  void put(const char* data, std::size_t size);
  bool flush();
  void wrote(std::size_t size);  // after `size` more bytes reached the file
  void fail() noexcept;
  void discard() noexcept;

  iFileSystem* fs_;
  LightweightString<char> target_;
  LightweightString<char> folder_;
  LightweightString<char> temp_;
  const char* eol_;
  std::size_t eol_length_;
  int fd_ = -1;
  bool ok_ = false;
  bool created_ = false;
  bool done_ = false;
  int error_ = 0;
  std::size_t used_ = 0;
  uint64_t written_ = 0;     // bytes handed to the file so far
  uint64_t sent_ahead_ = 0;  // of which the disk was asked to start writing
  // Writes of 64 KB, each starting at a multiple of that in the file (put fills the block to
  // the byte): the kernel then caches the file in pieces of that size, which cost less to fill,
  // write back and free. A save of a million-record log took 150 ms, against 210 ms when each
  // write ended with the last whole line. Larger blocks gained up to another sixth but, on a
  // virtual machine whose host takes back free memory, now and then made a save twice as slow:
  // the larger pieces then come from memory the host must first give back.
  static constexpr std::size_t kChunk = 65536;
  char chunk_[kChunk];
};

#endif
