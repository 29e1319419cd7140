#include "LogLoader.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "Errors.h"
#include "support/OS.h"

namespace kst {
namespace {

constexpr unsigned kNone = 0xFFFFFFFFu;

// Where the parts of a log file begin, found with the library's line reader. Line numbers are
// 0-based indices into the TextFile.
struct HeaderScan {
  bool starts_as_log = false;                 // line 1 begins with "KESTA:"
  unsigned marker = kNone;                    // the "KESTA" line that opens the column header
  unsigned widths = 0, types = 0, names = 0;  // fields in the three header lines
};

// The start of a line for a message, cut to a readable length.
std::string excerpt(std::string_view line) {
  constexpr std::size_t kMax = 40;
  if (line.size() <= kMax) return inQuotes(line);
  return inQuotes(line.substr(0, kMax)) + "...";
}

unsigned fields_of_next_line(TextFile& file, dbrecord& scratch) {
  return scratch.read(file) == 0 ? 0 : scratch.get_num_fields();
}

HeaderScan scan_header(TextFile& file) {
  HeaderScan scan;
  Zr::Ptr<dbrecord> line(new dbrecord(0));
  file.setReadCursor(0);
  if (line->read(file) == 0 || strncasecmp(line->getField(0).c_str(), "KESTA:", 6) != 0) return scan;
  scan.starts_as_log = true;
  while (file.readCursor() < file.getNumLines()) {
    unsigned at = file.readCursor();
    if (line->read(file) != 0 && strcasecmp(line->getField(0).c_str(), "KESTA") == 0) {
      scan.marker = at;
      break;
    }
  }
  if (scan.marker == kNone) return scan;
  scan.widths = fields_of_next_line(file, *line);
  scan.types = fields_of_next_line(file, *line);
  scan.names = fields_of_next_line(file, *line);
  return scan;
}

std::string missing_header(const std::string& path) {
  return path + " is not a complete log: its column header (a line \"KESTA\" followed by the widths, " +
         "types and names lines) is missing";
}

// Why the library left the database invalid.
[[noreturn]] void explain_invalid(const std::string& path, const TextFile& file, const HeaderScan& scan) {
  if (file.getNumLines() == 0) throw Failure(path + " is empty, not a log (a log begins with a \"KESTA:\" line)");
  if (!scan.starts_as_log) {
    throw Failure(path + " is not a log: line 1 does not begin with \"KESTA:\" (it reads " + excerpt(file.line(0)) +
                  ")");
  }
  if (scan.marker == kNone) throw Failure(missing_header(path));
  unsigned first = scan.marker + 2;  // 1-based number of the widths line
  if (scan.types != scan.names) {
    std::string message = path + ": header lines of different lengths: line " + std::to_string(first + 1) +
                          " (types) has " + std::to_string(scan.types) + " fields, line " + std::to_string(first + 2) +
                          " (names) has " + std::to_string(scan.names);
    if (scan.widths != scan.names && scan.widths != scan.types) {
      message += ", line " + std::to_string(first) + " (widths) has " + std::to_string(scan.widths);
    }
    throw Failure(message);
  }
  throw Failure(path + " could not be loaded as a log");
}

// Calls take(index, line) for every line of the file, split as TextFile::load splits them: at
// line feeds, one carriage return before each dropped, a last line without a line feed kept,
// until take answers false. Reads in blocks, so that checking a large log does not hold it a
// second time. From byte `from` on, when given: `first` is then the index of the line that
// holds that byte. False, with errno set, when the file cannot be read.
template <class Take>
bool for_each_line(const std::string& path, Take take, uint64_t from = 0, unsigned first = 0) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  if (from > 0 && ::lseek(fd, static_cast<off_t>(from), SEEK_SET) < 0) {
    int error = errno;
    ::close(fd);
    errno = error;
    return false;
  }
  std::vector<char> block(1 << 20);
  std::string partial;  // a line that continues into the next block
  unsigned index = first;
  bool more = true;
  auto finish = [&](std::string_view line, bool ended) {
    if (ended && !line.empty() && line.back() == '\r') line.remove_suffix(1);
    more = take(index++, line);
  };
  while (more) {
    ssize_t got = ::read(fd, block.data(), block.size());
    if (got < 0) {
      if (errno == EINTR) continue;
      int error = errno;
      ::close(fd);
      errno = error;
      return false;
    }
    if (got == 0) break;
    std::string_view rest(block.data(), static_cast<std::size_t>(got));
    for (std::size_t feed; more && (feed = rest.find('\n')) != std::string_view::npos; rest.remove_prefix(feed + 1)) {
      if (partial.empty()) {
        finish(rest.substr(0, feed), true);
      } else {
        partial.append(rest.data(), feed);
        finish(partial, true);
        partial.clear();
      }
    }
    if (more) partial.append(rest.data(), rest.size());
  }
  ::close(fd);
  if (more && !partial.empty()) finish(partial, false);
  return true;
}

// Where the library's reads of a log began while it loaded it, each with the number of line
// feeds before it: the checks after the load read the lines after the records from the block
// that holds the first of them, not from the start of a large file again.
struct BlockStart {
  uint64_t offset;
  uint64_t feeds_before;
};

// Where the checks after a load may resume reading: from the last record's own line when the
// load says where that was, else from the blocks; with neither, from the start.
struct ReadMap {
  std::vector<BlockStart> blocks;
  std::optional<uint64_t> last_record;  // the offset of the last record line read
};

// memchr from feed to feed: std::count was measured slower here.
uint64_t count_feeds(const char* bytes, uint64_t size) {
  uint64_t feeds = 0;
  const char* const end = bytes + size;
  for (const char* p = bytes; (p = static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(end - p))));
       ++p) {
    ++feeds;
  }
  return feeds;
}

// Watches the library's reads of one file, forwarding every call to the file system it
// replaces while it lives. Only the first opening of `path` is watched; a second one leaves
// no map, and the checks then read the whole file.
class ReadWatch final : public iFileSystem {
 public:
  explicit ReadWatch(std::string path) : path_(std::move(path)), inner_(setFileSystem(this)) {}
  ~ReadWatch() override { setFileSystem(inner_ == defaultFileSystem() ? nullptr : inner_); }
  ReadWatch(const ReadWatch&) = delete;
  ReadWatch& operator=(const ReadWatch&) = delete;

  // Where the reads were. `last_line` is where the last record read still holds its line, if
  // it does: in a mapping, that tells its offset without counting the file's lines again.
  ReadMap where(const char* last_line) && {
    ReadMap map;
    if (!usable_) return map;
    if (mapping_) {
      const char* const base = mapping_.get();
      if (last_line && std::less_equal<>()(base, last_line) && std::less<>()(last_line, base + mapped_size_)) {
        map.last_record = static_cast<uint64_t>(last_line - base);
        return map;
      }
      // Marked as the reads would have been, a block at a time, so that the checks still jump.
      constexpr uint64_t kBlock = uint64_t{4} << 20;
      for (uint64_t at = 0; at < mapped_size_; at += kBlock) {
        blocks_.push_back(BlockStart{at, feeds_});
        feeds_ += count_feeds(base + at, std::min(kBlock, mapped_size_ - at));
      }
    }
    map.blocks = std::move(blocks_);
    return map;
  }

  int open(const char* path, int flags, mode_t mode) override {
    const int fd = inner_->open(path, flags, mode);
    if (fd >= 0 && path_ == path) {
      if (opened_) usable_ = false;
      opened_ = true;
      watched_ = fd;
    }
    return fd;
  }
  ssize_t read(int fd, void* buffer, std::size_t size) override {
    const ssize_t got = inner_->read(fd, buffer, size);
    if (got > 0 && fd == watched_) {
      const char* bytes = static_cast<const char*>(buffer);
      blocks_.push_back(BlockStart{offset_, feeds_});
      feeds_ += count_feeds(bytes, static_cast<uint64_t>(got));
      offset_ += static_cast<uint64_t>(got);
    }
    return got;
  }
  std::shared_ptr<const char> map(int fd, uint64_t size) override {
    std::shared_ptr<const char> mapping = inner_->map(fd, size);
    if (mapping && fd == watched_) {
      // The whole file at once: its lines are counted only if the checks need them.
      if (mapping_ || offset_ != 0) usable_ = false;
      mapping_ = mapping;
      mapped_size_ = size;
    }
    return mapping;
  }
  int close(int fd) override {
    if (fd == watched_) watched_ = -1;
    return inner_->close(fd);
  }
  ssize_t write(int fd, const void* buffer, std::size_t size) override { return inner_->write(fd, buffer, size); }
  int fsync(int fd) override { return inner_->fsync(fd); }
  int fileSize(int fd, uint64_t& size) override { return inner_->fileSize(fd, size); }
  int rename(const char* from, const char* to) override { return inner_->rename(from, to); }
  int unlink(const char* path) override { return inner_->unlink(path); }
  int exists(const char* path) override { return inner_->exists(path); }
  int syncDirectory(const char* path) override { return inner_->syncDirectory(path); }
  int move(const char* from, const char* to, int flags) override { return inner_->move(from, to, flags); }
  int startWriteback(int fd, uint64_t offset, uint64_t length) override {
    return inner_->startWriteback(fd, offset, length);
  }

 private:
  const std::string path_;
  iFileSystem* const inner_;
  std::vector<BlockStart> blocks_;
  std::shared_ptr<const char> mapping_;
  uint64_t mapped_size_ = 0;
  uint64_t offset_ = 0;
  uint64_t feeds_ = 0;
  int watched_ = -1;
  bool opened_ = false;
  bool usable_ = true;
};

// What the checks after a load need of a log: its head, up to the column header's last line,
// and the lines from the first one the library did not take (`end`) on.
struct CheckedLines {
  TextFile head;
  HeaderScan scan;
  unsigned end = kNone;
  TextFile tail;  // line i is the file's line end + i
};

// False, with errno set, when the file cannot be read. With the last record's line, or the
// blocks of the library's load, the lines after the records are read from there.
bool read_checked_lines(const std::string& path, unsigned records, CheckedLines& lines, const ReadMap& reads) {
  const std::vector<BlockStart>& blocks = reads.blocks;
  const bool can_jump = reads.last_record || !blocks.empty();
  bool jump = false;
  bool ok = for_each_line(path, [&](unsigned i, std::string_view text) {
    if (lines.end == kNone) {
      lines.head.appendLine(text);
      lines.scan = scan_header(lines.head);
      if (lines.scan.marker != kNone && lines.head.getNumLines() >= lines.scan.marker + 4)
        lines.end = lines.scan.marker + 4 + records;
    } else if (can_jump && i < lines.end) {
      jump = true;
      return false;
    } else if (i >= lines.end) {
      lines.tail.appendLine(text);
    }
    return true;
  });
  // A header cut short by the end of the file: no line follows it.
  if (lines.end == kNone && lines.scan.marker != kNone) lines.end = lines.scan.marker + 4 + records;
  if (!ok || !jump) return ok;
  BlockStart from{0, 0};
  if (reads.last_record) {
    // The jump above means records were read, so the last one's line is line end - 1.
    from = BlockStart{*reads.last_record, lines.end - 1u};
  } else {
    // Line `end` follows the end-th line feed, so a block with fewer feeds before it holds the
    // start of that line or an earlier one; the first line read from there may be a piece.
    auto after = std::partition_point(blocks.begin(), blocks.end(),
                                      [&](const BlockStart& b) { return b.feeds_before < lines.end; });
    if (after != blocks.begin()) from = *(after - 1);
  }
  return for_each_line(
      path,
      [&](unsigned i, std::string_view text) {
        if (i >= lines.end) lines.tail.appendLine(text);
        return true;
      },
      from.offset, static_cast<unsigned>(from.feeds_before));
}

// The library stops at the first record line whose field count is wrong, and at a blank line;
// either way the records after it would be lost by a save, so both are errors here.
void check_records(const std::string& path, CheckedLines& lines, kesta& db, bool library_stopped) {
  if (lines.scan.marker == kNone) throw Failure(missing_header(path));
  const unsigned read = db.get_num_records() + db.records_dropped();
  const unsigned end = lines.end;
  TextFile& tail = lines.tail;
  unsigned stray = kNone;
  for (unsigned i = 0; i < tail.getNumLines(); ++i) {
    std::string_view text = tail.line(i);
    if (!isEssentiallyEmpty(text.data(), text.size())) {
      stray = end + i;
      break;
    }
  }
  const std::string before = std::to_string(read) + (read == 1 ? " record was" : " records were") + " read before it";
  if (stray == end) {
    Zr::Ptr<dbrecord> line(new dbrecord(0));
    tail.setReadCursor(0);
    unsigned count = fields_of_next_line(tail, *line);
    if (count != db.get_num_fields()) {
      throw Failure(path + ", line " + std::to_string(end + 1) + ": a record line with " + std::to_string(count) +
                    (count == 1 ? " field" : " fields") + ", expected " + std::to_string(db.get_num_fields()) +
                    " (one per column); " + before);
    }
  } else if (stray != kNone) {
    throw Failure(path + ", line " + std::to_string(end + 1) +
                  ": a blank line ends the records, but more lines follow it (the first at line " +
                  std::to_string(stray + 1) + "); " + before);
  }
  if (stray != kNone || library_stopped) {
    throw Failure(path + ": the records could not all be read (" + std::to_string(read) + " read)");
  }
}

}  // namespace

LightweightString<wchar_t> widePath(const std::string& path) {
  LightweightString<char> narrow(path.data(), path.size());
  LightweightString<wchar_t> wide = fromUTF8(narrow);
  if (!(toUTF8(wide) == narrow)) throw Failure("cannot use the file name " + inQuotes(path) + ": it is not UTF-8");
  return wide;
}

void requireReadable(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw Failure("cannot read " + path + ": " + reason(errno));
  struct stat info {};
  int error = ::fstat(fd, &info) == 0 ? (S_ISDIR(info.st_mode) ? EISDIR : 0) : errno;
  char probe;
  if (error == 0 && ::read(fd, &probe, 1) < 0) error = errno;
  ::close(fd);
  if (error != 0) throw Failure("cannot read " + path + ": " + reason(error));
}

bool nonzeroNumber(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    if (text[i] != '0') return true;
  }
  return false;
}

bool isTagNumber(std::string_view text) { return text.find_first_not_of("0123456789") == std::string_view::npos; }

namespace {
// The databases whose "Tag" column held only tag numbers when their tags were last read. A
// command reads the tags of the databases it saves, and saves them before it ends.
std::unordered_set<const kesta*>& numbered_tags() {
  static auto* const databases = new std::unordered_set<const kesta*>;
  return *databases;
}

void noteTagTexts(const kesta& db, bool numbers) {
  if (numbers) {
    numbered_tags().insert(&db);
  } else {
    numbered_tags().erase(&db);
  }
}

// The tag a "Tag" text stands for; false when the text is not a tag number.
bool tagFromText(dbrecord& record, std::string_view text) {
  record.set_tag(nonzeroNumber(text) ? 1 : 0);
  return isTagNumber(text);
}

// A load's reading of the "Tag" column, record by record as they are read.
struct TagReading {
  void read(dbrecord& record) {
    if (!resolved) {
      resolved = true;  // the columns are known once the first record is read
      field = record.get_container()->get_fieldnum("Tag");
    }
    if (field != kNone) numbers = tagFromText(record, record.fieldView(static_cast<unsigned short>(field))) && numbers;
    ++seen;
  }

  bool resolved = false;
  unsigned field = kNone;
  bool numbers = true;  // every text read was a tag number
  std::size_t seen = 0;
};
}  // namespace

Zr::Ptr<kesta> loadLog(const std::string& path, TagColumn tags, kesta::LoadFilter keep) {
  requireReadable(path);
  LightweightString<wchar_t> name = widePath(path);
  Zr::Ptr<kesta> db;
  std::string library_log;
  ReadMap reads;
  TagReading tag_reading;
  {
    // The library reports a short read on standard error; the checks below say it better.
    CapturingLogSink capture;
    ReadWatch watch(path);
    db = Zr::Ptr<kesta>(new kesta());
    // Each record passes here as it is read, its line at hand: its tag is read now rather
    // than in a pass of its own, and its line noted, since the last one read may be dropped.
    const char* last_line = nullptr;
    db->set_load_filter([&, inner = std::move(keep)](const Zr::Ptr<dbrecord>& record) {
      last_line = record->heldLine().data();
      if (tags == TagColumn::read) tag_reading.read(*record);
      return !inner || inner(record);
    });
    db->loadFromFile(name, INT_MAX, false);
    db->set_load_filter(nullptr);  // its query was made for this load
    library_log = capture.text();
    reads = std::move(watch).where(last_line);
  }
  if (!endsWith(path, ".csv")) {
    if (!db->get_valid()) {
      TextFile file;
      if (!file.load(name, '\n', false)) throw Failure("cannot read " + path + ": " + reason(errno));
      explain_invalid(path, file, scan_header(file));
    }
    CheckedLines lines;
    if (!read_checked_lines(path, db->get_num_records() + db->records_dropped(), lines, reads)) {
      throw Failure("cannot read " + path + ": " + reason(errno));
    }
    check_records(path, lines, *db, library_log.find("not all fields filled") != std::string::npos);
    if (db->get_revision() != 1) {
      warn(path + " is a revision " + std::to_string(db->get_revision()) + " log; this library writes revision 1");
    }
  }
  if (tags == TagColumn::read) {
    // A CSV file's records do not pass the filter.
    if (tag_reading.seen == db->get_num_records() + db->records_dropped()) {
      noteTagTexts(*db, db->get_fieldnum("Tag") != kNone && tag_reading.numbers);
    } else {
      tagsFromTagColumn(*db);
    }
  }
  keepUntilExit(db);
  return db;
}

void keepUntilExit(const Zr::Ptr<kesta>& db) {
  // The holder is never destroyed, so the logs stay reachable rather than leaked.
  static auto* const kept = new std::vector<Zr::Ptr<kesta>>;
  kept->push_back(db);
}

void tagsFromTagColumn(kesta& db) {
  const unsigned field = db.get_fieldnum("Tag");
  bool numbers = true;
  // The record was reached through the same row: storing on it is what set_tag(r) does.
  if (field != kNone) {
    forEachFieldText(db, static_cast<unsigned short>(field), [&](unsigned, dbrecord& record, std::string_view text) {
      numbers = tagFromText(record, text) && numbers;
    });
  }
  noteTagTexts(db, field != kNone && numbers);
}

bool tagTextsAreNumbers(const kesta& db) { return numbered_tags().count(&db) != 0; }

}  // namespace kst
