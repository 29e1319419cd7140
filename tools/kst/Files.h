#ifndef KESTA_TOOLS_KST_FILES_H
#define KESTA_TOOLS_KST_FILES_H
// Where a command's result goes, and writing it there without ever damaging what was there.
//
// A command that changes a log writes to `-o OUT` (or `-o -`, standard output), or back to its
// input only with `--in-place`. Every file is written atomically: the library's save (and
// TextFile) write a temporary file beside the target and rename it into place, so a failed or
// interrupted write leaves the old file as it was.
//
//   kst::Destination to = kst::Destination::forLog(options, "day1.kst");  // checks first
//   kst::saveLog(*db, to);                                                // throws kst::Failure

#include <kesta/kesta.h>

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <string_view>

#include "Output.h"

namespace kst {

struct WriteOptions {
  std::string out;
  bool in_place = false;
};

// Adds -o/--output and --in-place to a command that changes a log.
void addWriteOptions(CLI::App* command, WriteOptions& options);

class Destination {
 public:
  // Where a changed log goes. Throws UsageError when neither or both of -o and --in-place are
  // given, when -o names the input without --in-place, or when the target's name ends in
  // ".csv" (a log there would be read back as CSV); throws Failure when the target's folder
  // cannot be written.
  static Destination forLog(const WriteOptions& options, const std::string& input);
  // A converted file: `out` ("-" for standard output), which must not be `input`.
  static Destination forFile(const std::string& out, const std::string& input);
  bool toStdout() const noexcept { return path_ == "-"; }
  const std::string& path() const noexcept { return path_; }

 private:
  explicit Destination(std::string path) : path_(std::move(path)) {}
  std::string path_;
};

// Saves `db` with the library's save_text. Throws Failure when the file was not written; the
// target is then as it was.
void saveLog(kesta& db, const Destination& to);

// Writes `content` to the destination (atomically for a file). Throws Failure.
void writeText(const std::string& content, const Destination& to);
// The same for text made a piece at a time: produce(sink) hands every piece to `sink`, and
// the file takes their place once all are written. Throws Failure.
void writeText(const std::function<void(const TextSink&)>& produce, const Destination& to);
// Writes a piece of text to standard output. Throws Failure.
void writeStdout(std::string_view piece);

// The whole file. Throws Failure with the system's reason.
std::string readBytes(const std::string& path);

// True when both paths name the same existing file.
bool sameFile(const std::string& a, const std::string& b);

}  // namespace kst

#endif
