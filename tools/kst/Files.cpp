#include "Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "Errors.h"
#include "LogLoader.h"
#include "support/TextFileWriter.h"

namespace kst {
namespace {

std::string folder_of(const std::string& path) {
  std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

// Fails early, before any work, when the target cannot be written: a missing or read-only
// folder, or a folder where the file should be.
void require_writable(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
    throw Failure("cannot write " + path + ": " + reason(EISDIR));
  }
  std::string folder = folder_of(path);
  if (::stat(folder.c_str(), &info) != 0) throw Failure("cannot write " + path + ": " + reason(errno));
  if (!S_ISDIR(info.st_mode)) throw Failure("cannot write " + path + ": " + reason(ENOTDIR));
  if (::access(folder.c_str(), W_OK) != 0) throw Failure("cannot write " + path + ": " + reason(errno));
}

// A private folder for a save that goes to standard output, removed with what it holds.
class TempFolder {
 public:
  TempFolder() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/kst-XXXXXX";
    if (!mkdtemp(pattern.data())) throw Failure("cannot make a temporary folder: " + reason(errno));
    path_ = pattern;
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// The save writes each record's tag into the "Tag" column; say so when that replaces a text
// that was not a tag number.
void warn_replaced_tags(kesta& db, const std::string& path) {
  const unsigned tag_field = db.get_fieldnum("Tag");
  if (tag_field == 0xFFFFFFFFu || tagTextsAreNumbers(db)) return;
  unsigned replaced = 0;
  std::string first;
  forEachFieldText(db, static_cast<unsigned short>(tag_field), [&](unsigned r, const dbrecord&, std::string_view text) {
    if (isTagNumber(text)) return;
    if (replaced++ == 0) first = "record " + std::to_string(r + 1) + " held " + inQuotes(text);
  });
  if (replaced > 0) {
    warn(path + ": the \"Tag\" column keeps tag numbers; " + plural(replaced, "value", "values") +
         " there became 0 or 1 (" + first + ")");
  }
}

void save_to_file(kesta& db, const std::string& path, const std::string& shown_as) {
  struct stat before {};
  const bool existed = ::stat(path.c_str(), &before) == 0;
  const unsigned expected = db.get_num_records();
  warn_replaced_tags(db, shown_as);
  int written;
  int error;
  {
    CapturingLogSink capture;  // the library logs nothing useful to the user here
    db.set_filename(widePath(path));
    errno = 0;
    written = db.save_text();
    error = errno;
  }
  // save_text answers 0 both for a failure and for a log without records; the rename that
  // ends a successful save leaves a new file behind, which tells the two apart.
  bool saved = written > 0 && static_cast<unsigned>(written) == expected;
  if (written == 0 && expected == 0) {
    struct stat after {};
    saved = ::stat(path.c_str(), &after) == 0 &&
            (!existed || after.st_ino != before.st_ino || after.st_dev != before.st_dev);
  }
  if (!saved) throw Failure("could not write " + shown_as + (error != 0 ? ": " + reason(error) : std::string()));
}

}  // namespace

void addWriteOptions(CLI::App* command, WriteOptions& options) {
  command->add_option("-o,--output", options.out, "Write the changed log to OUT ('-' for standard output)")
      ->type_name("OUT");
  command->add_flag("--in-place", options.in_place, "Write the changed log back to the input file");
}

Destination Destination::forLog(const WriteOptions& options, const std::string& input) {
  if (options.in_place && !options.out.empty()) throw UsageError("give either -o OUT or --in-place, not both");
  if (options.in_place) {
    if (endsWith(input, ".csv")) {
      throw UsageError(input + " is read as CSV; a log written back to it would not be: use -o OUT, or 'kst convert'");
    }
    require_writable(input);
    return Destination(input);
  }
  if (options.out.empty()) {
    throw UsageError("this command changes the log: give -o OUT (or -o - for standard output), or --in-place");
  }
  if (options.out == "-") return Destination("-");
  if (sameFile(options.out, input)) {
    throw UsageError(options.out + " is the input; use --in-place to write back to it");
  }
  if (endsWith(options.out, ".csv")) {
    throw UsageError(options.out + ": a log named .csv would be read back as CSV; use 'kst convert' to make CSV");
  }
  require_writable(options.out);
  return Destination(options.out);
}

Destination Destination::forFile(const std::string& out, const std::string& input) {
  if (out == "-") return Destination("-");
  if (sameFile(out, input)) throw UsageError(out + " is the input; convert writes to another file");
  require_writable(out);
  return Destination(out);
}

void saveLog(kesta& db, const Destination& to) {
  if (!to.toStdout()) {
    save_to_file(db, to.path(), to.path());
    return;
  }
  TempFolder folder;
  std::string path = folder.path() + "/out.kst";
  save_to_file(db, path, "standard output");
  writeStdout(readBytes(path));
}

void writeStdout(std::string_view piece) {
  std::cout.write(piece.data(), static_cast<std::streamsize>(piece.size()));
  std::cout.flush();
  if (!std::cout) throw Failure("cannot write to standard output");
}

void writeText(const std::string& content, const Destination& to) {
  writeText([&](const TextSink& sink) { sink(content); }, to);
}

void writeText(const std::function<void(const TextSink&)>& produce, const Destination& to) {
  if (to.toStdout()) {
    produce(writeStdout);
    return;
  }
  // The library's atomic writer, fed pieces as lines without line ends.
  TextFileWriter file(widePath(to.path()), TextFile::kEOLNone);
  produce([&](std::string_view piece) { file.appendLine(piece); });
  errno = 0;
  if (!file.commit()) {
    int error = errno;
    throw Failure("could not write " + to.path() + (error != 0 ? ": " + reason(error) : std::string()));
  }
}

std::string readBytes(const std::string& path) {
  requireReadable(path);
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw Failure("cannot read " + path + ": " + reason(errno));
  std::string bytes;
  // Room for what the file holds now, so that a large one is not copied as the text grows.
  struct stat info {};
  if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0) {
    bytes.reserve(static_cast<std::size_t>(info.st_size));
  }
  char chunk[65536];
  for (;;) {
    ssize_t got = ::read(fd, chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      int error = errno;
      ::close(fd);
      throw Failure("cannot read " + path + ": " + reason(error));
    }
    if (got == 0) break;
    bytes.append(chunk, static_cast<std::size_t>(got));
  }
  ::close(fd);
  return bytes;
}

bool sameFile(const std::string& a, const std::string& b) {
  std::error_code error;
  return std::filesystem::equivalent(a, b, error) && !error;
}

}  // namespace kst
