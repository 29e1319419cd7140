// TextFile: line splitting, byte-exact round trips, and saves that either complete or leave
// the old file as it was with nothing else behind; the streaming writer that saves use and the
// block reader that loads use.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/TestUtil.h"
#include "support/Config.h"
#include "support/StringUtils.h"
#include "support/TextFile.h"
#include "support/TextFileReader.h"
#include "support/TextFileWriter.h"

using namespace std::string_literals;
using testutil::readFile;
using testutil::TempDir;
using testutil::writeFile;
using Lines = std::vector<std::string>;

namespace {

// Forwards to the real disk, with one chosen call failing, transfers cut short, every other
// call first interrupted, and a count of descriptors left open. Installs itself while it lives.
class SimulatedDisk : public iFileSystem {
 public:
  enum Fault { kNone, kRead, kWrite, kFsync, kClose, kRename, kWriteback };
  explicit SimulatedDisk(Fault f = kNone, std::size_t max = 0, bool intr = false)
      : fault(f), max_transfer(max), interrupt(intr), previous_(setFileSystem(this)) {}
  ~SimulatedDisk() override { setFileSystem(previous_); }
  Fault fault;
  std::size_t max_transfer;  // 0: whole transfers
  bool interrupt;
  int open_fds = 0;
  std::size_t largest_read = 0;
  struct Writeback {
    uint64_t offset, length, file_size;  // the file's size when it was asked
  };
  std::vector<Writeback> writebacks;

  int open(const char* path, int flags, mode_t mode) override {
    if (interrupted()) return -1;
    int fd = real()->open(path, flags, mode);
    open_fds += fd >= 0;
    return fd;
  }
  ssize_t read(int fd, void* buffer, std::size_t size) override {
    if (fault == kRead) return fail(EIO);
    if (interrupted()) return -1;
    largest_read = std::max(largest_read, size);
    return real()->read(fd, buffer, cut(size));
  }
  ssize_t write(int fd, const void* buffer, std::size_t size) override {
    if (fault == kWrite) return fail(ENOSPC);
    return interrupted() ? -1 : real()->write(fd, buffer, cut(size));
  }
  int fsync(int fd) override { return fault == kFsync ? fail(EIO) : real()->fsync(fd); }
  int close(int fd) override {
    --open_fds;
    int result = real()->close(fd);
    return fault == kClose ? fail(EIO) : result;
  }
  int fileSize(int fd, uint64_t& size) override { return real()->fileSize(fd, size); }
  int rename(const char* from, const char* to) override {
    return fault == kRename ? fail(EXDEV) : real()->rename(from, to);
  }
  int unlink(const char* path) override { return real()->unlink(path); }
  int exists(const char* path) override { return real()->exists(path); }
  int syncDirectory(const char* path) override { return real()->syncDirectory(path); }
  int startWriteback(int fd, uint64_t offset, uint64_t length) override {
    uint64_t size = 0;
    real()->fileSize(fd, size);
    writebacks.push_back({offset, length, size});
    return fault == kWriteback ? fail(EIO) : real()->startWriteback(fd, offset, length);
  }
  std::shared_ptr<const char> map(int fd, uint64_t size) override { return real()->map(fd, size); }

 private:
  static iFileSystem* real() { return defaultFileSystem(); }
  static int fail(int error) {
    errno = error;
    return -1;
  }
  bool interrupted() {
    if (!interrupt || tick_++ % 2) return false;
    errno = EINTR;
    return true;
  }
  std::size_t cut(std::size_t size) const { return max_transfer && size > max_transfer ? max_transfer : size; }
  unsigned tick_ = 0;
  iFileSystem* previous_;
};

Lines names_in(const std::string& folder) {
  Lines names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

// Appends the file's lines to `lines`, checking operator[] agrees with line().
Lines& add_lines(Lines& lines, const TextFile& file) {
  for (unsigned i = 0; i < file.getNumLines(); ++i) {
    LightweightString<char> copy = file[i];
    EXPECT_EQ(std::string(copy.c_str(), copy.size()), std::string(file.line(i)));
    lines.emplace_back(file.line(i));
  }
  return lines;
}

Lines lines_of(const TextFile& file) {
  Lines lines;
  return add_lines(lines, file);
}

// Whether the process has `path` mapped.
bool mapped(const std::string& path) { return readFile("/proc/self/maps").find(path) != std::string::npos; }

}  // namespace

// A whole load, and the reader's blocks of every size down to one byte, read over a disk that
// cuts transfers short and interrupts calls or mapped, split alike; blocks hold whole lines.
TEST(TextFile, LoadAndBlockReaderSplitLinesAlike) {
  const struct {
    std::string bytes;
    char separator;
    bool keep_cr;
    Lines lines;
  } cases[] = {
      {"", '\n', false, {}},
      {"a", '\n', false, {"a"}},
      {"a\n\n", '\n', false, {"a", ""}},
      {"\n", '\n', false, {""}},
      {"a\r\nb", '\n', false, {"a", "b"}},
      {"a\r\r\nb\r", '\n', false, {"a\r", "b\r"}},
      {"a\rb\n", '\n', false, {"a\rb"}},
      {"a\r\nb\r\n", '\n', true, {"a\r", "b\r"}},
      {"x\0y\n\xff\xfe\n"s, '\n', false, {"x\0y"s, "\xff\xfe"}},
      {"a;b\r;", ';', false, {"a", "b"}},
      {"long line one\r\n\nshort\r\nlast line without a feed\r",
       '\n',
       false,
       {"long line one", "", "short", "last line without a feed\r"}},
  };
  TempDir dir;
  SimulatedDisk disk(SimulatedDisk::kNone, 3, true);
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.bytes));
    writeFile(dir.file("in.txt"), c.bytes);
    TextFile file;
    ASSERT_TRUE(file.load(dir.wfile("in.txt"), c.separator, c.keep_cr));
    EXPECT_EQ(lines_of(file), c.lines);
    for (int map : {0, 1}) {
      config_set_int("map_files", map);
      for (std::size_t block : {1, 2, 3, 5, 64}) {
        TextFileReader in(dir.wfile("in.txt"), c.separator, c.keep_cr, block);
        EXPECT_EQ(in.size(), c.bytes.size());
        TextFile lines;
        Lines all;
        while (in.next(lines)) {
          EXPECT_GT(lines.getNumLines(), 0u);
          EXPECT_EQ(lines.readCursor(), 0u);
          EXPECT_EQ(mapped(dir.file("in.txt")), map == 1);
          add_lines(all, lines);
        }
        EXPECT_EQ(lines.getNumLines(), 0u);
        EXPECT_FALSE(in.next(lines));
        EXPECT_TRUE(in.finish());
        EXPECT_EQ(all, c.lines) << "block " << block << ", map " << map;
      }
    }
    config_unset_int("map_files");
  }
  EXPECT_EQ(disk.open_fds, 0);
}

// A mapped block's lines are the file's own bytes: changing them changes a copy, and lines
// taken from the block outlive the reader and the file's name until their holder lets go.
TEST(TextFileReader, MappedLinesOutliveTheReaderAndAreNeverWritten) {
  TempDir dir;
  writeFile(dir.file("in.txt"), "one\ntwo\nthree\n");
  config_set_int("map_files", 1);
  TextFileReader in(dir.wfile("in.txt"), '\n', false, 8);
  config_unset_int("map_files");
  TextFile lines;
  ASSERT_TRUE(in.next(lines));
  EXPECT_EQ(lines_of(lines), (Lines{"one", "two"}));
  std::shared_ptr<const void> held = lines.shareBuffer();
  const std::string_view two = lines.line(1);
  lines.appendLine("four");
  EXPECT_EQ(lines_of(lines), (Lines{"one", "two", "four"}));
  ASSERT_TRUE(in.next(lines));
  EXPECT_EQ(lines_of(lines), Lines{"three"});
  EXPECT_FALSE(in.next(lines));
  EXPECT_TRUE(in.finish());
  lines.clear();
  std::filesystem::remove(dir.file("in.txt"));
  EXPECT_EQ(two, "two");
  EXPECT_TRUE(mapped(dir.file("in.txt")));
  held.reset();
  EXPECT_FALSE(mapped(dir.file("in.txt")));
}

TEST(TextFileReader, ReadsNoBiggerThanTheFileYetAllOfAGrownOne) {
  TempDir dir;
  writeFile(dir.file("in.txt"), "one\ntwo\n");
  SimulatedDisk disk;
  TextFileReader in(dir.wfile("in.txt"), '\n', false);
  // Lines added after the open are read too, however far they run past the size seen then.
  std::ofstream grow(dir.file("in.txt"), std::ios::app | std::ios::binary);
  for (int i = 0; i < 5000; ++i) grow << "line " << i << "\n";
  grow.close();
  TextFile lines;
  Lines all;
  while (in.next(lines)) add_lines(all, lines);
  EXPECT_TRUE(in.finish());
  ASSERT_EQ(all.size(), 5002u);
  EXPECT_EQ(all[1], "two");
  EXPECT_EQ(all.back(), "line 4999");
  EXPECT_LT(disk.largest_read, std::size_t{64} << 10) << "a small file costs a small buffer";
}

TEST(TextFileReader, FailuresStopTheReadingAndShowInFinish) {
  TempDir dir;
  writeFile(dir.file("in.txt"), "one\ntwo\nthree\n");
  TextFile lines;
  TextFileReader missing(dir.wfile("missing.txt"), '\n', false);
  EXPECT_FALSE(missing.next(lines));
  EXPECT_FALSE(missing.finish());
  EXPECT_EQ(errno, ENOENT);
  for (SimulatedDisk::Fault fault : {SimulatedDisk::kRead, SimulatedDisk::kClose}) {
    SimulatedDisk disk;
    TextFileReader in(dir.wfile("in.txt"), '\n', false, 4);
    ASSERT_TRUE(in.next(lines));
    EXPECT_EQ(lines_of(lines), Lines{"one"});
    disk.fault = fault;
    if (fault == SimulatedDisk::kRead) {
      EXPECT_FALSE(in.next(lines));
      EXPECT_EQ(lines.getNumLines(), 0u);
      EXPECT_FALSE(in.next(lines)) << "no call after a failure";
    }
    errno = 0;
    EXPECT_FALSE(in.finish());
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(disk.open_fds, 0);
  }
}

TEST(TextFile, ReadingPastTheEndAndTheCursor) {
  TempDir dir;
  writeFile(dir.file("in.txt"), "one\ntwo\n");
  TextFile file;
  file.appendLine("stale");
  file.setReadCursor(5);
  ASSERT_TRUE(file.load(dir.wfile("in.txt"), '\n', false));
  EXPECT_EQ(file.readCursor(), 0u);
  EXPECT_EQ(file.takeLine(), "one");
  EXPECT_EQ(file.takeLine(), "two");
  EXPECT_EQ(file.takeLine(), "");
  EXPECT_TRUE(file[2].empty());
  EXPECT_TRUE(file[~0u].empty());
  // A failed load leaves no lines behind.
  EXPECT_FALSE(file.load(dir.wfile("missing.txt"), '\n', false));
  EXPECT_EQ(file.getNumLines(), 0u);
  ASSERT_TRUE(file.load(dir.wfile("in.txt"), '\n', false));
  EXPECT_FALSE(file.load(testutil::wide(dir.path()), '\n', false));
  EXPECT_EQ(file.getNumLines(), 0u);
}

TEST(TextFile, RoundTripsAreByteExact) {
  TempDir dir;
  writeFile(dir.file("crlf.kst"), "a\r\nb\r\n\r\nlast");
  TextFile file;
  ASSERT_TRUE(file.load(dir.wfile("crlf.kst"), '\n', false));
  const struct {
    TextFile::eEOLStyle style;
    const char* bytes;
  } styles[] = {{TextFile::kEOL_LF, "a\nb\n\nlast\n"},
                {TextFile::kEOL_CRLF, "a\r\nb\r\n\r\nlast\r\n"},
                {TextFile::kEOLNone, "ablast"}};
  for (const auto& s : styles) {
    ASSERT_TRUE(file.save(dir.wfile("crlf.kst"), s.style));
    EXPECT_EQ(readFile(dir.file("crlf.kst")), s.bytes);
  }

  // Every byte value but the separator, NULs included; no line ends in a carriage return.
  std::string binary;
  for (int b = 0; b < 256; ++b) {
    if (b != '\n') binary += static_cast<char>(b);
    if (b % 32 == 31) binary += '\n';
  }
  writeFile(dir.file("binary.kst"), binary);
  ASSERT_TRUE(file.load(dir.wfile("binary.kst"), '\n', false));
  ASSERT_EQ(file.getNumLines(), 8u);
  ASSERT_TRUE(file.save(dir.wfile("copy.kst"), TextFile::kEOL_LF));
  EXPECT_EQ(readFile(dir.file("copy.kst")), binary);

  // An empty file loads as no lines, and saving no lines empties the target.
  writeFile(dir.file("empty.kst"), "");
  ASSERT_TRUE(file.load(dir.wfile("empty.kst"), '\n', false));
  EXPECT_EQ(file.getNumLines(), 0u);
  ASSERT_TRUE(file.save(dir.wfile("copy.kst"), TextFile::kEOL_LF));
  EXPECT_EQ(readFile(dir.file("copy.kst")), "");

  // File names are handed to the system as UTF-8.
  LightweightString<wchar_t> name = testutil::wide(dir.path());
  name += L"/caf\u00E9.kst";
  file.appendLine("x");
  ASSERT_TRUE(file.save(name, TextFile::kEOL_LF));
  EXPECT_EQ(readFile(dir.file("caf\xC3\xA9.kst")), "x\n");

  // Many lines through short transfers and interrupted calls.
  SimulatedDisk disk(SimulatedDisk::kNone, 5, true);
  TextFile out;
  std::string expected;
  for (int i = 0; i < 2000; ++i) {
    std::string line = "clip " + std::to_string(i) + ", reel A" + std::to_string(i % 7);
    out.appendLine(line);
    expected += line + "\n";
  }
  ASSERT_TRUE(out.save(dir.wfile("day.kst"), TextFile::kEOL_LF));
  EXPECT_EQ(readFile(dir.file("day.kst")), expected);
  EXPECT_EQ(disk.open_fds, 0);
}

// Appending its own lines, and a buffer handed out that stays as it was whatever comes next.
TEST(TextFile, AppendingItsOwnLinesAndALentBufferNeverChanges) {
  TextFile file;
  file.appendLine(LightweightString<char>("\"take 1\""));
  std::shared_ptr<const void> lent = file.shareBuffer();
  const std::string_view first = file.line(0);
  for (int i = 0; i < 200; ++i) file.appendLine(file.line(static_cast<unsigned>(i)));
  ASSERT_EQ(file.getNumLines(), 201u);
  for (unsigned i = 0; i < file.getNumLines(); ++i) ASSERT_EQ(file.line(i), "\"take 1\"") << i;
  file.appendLine(std::string_view());
  EXPECT_EQ(file.getNumLines(), 202u);
  EXPECT_EQ(first, "\"take 1\"");  // still in the lent bytes

  lent = file.shareBuffer();
  const std::string_view last = file.line(200);
  file.clear();
  file.appendLine("other");
  EXPECT_EQ(last, "\"take 1\"");
  EXPECT_EQ(file.line(0), "other");
  EXPECT_EQ(file.getNumLines(), 1u);
}

TEST(TextFile, FailedSaveLeavesTheOldFileAndNoTemporary) {
  TextFile file;
  file.appendLine("new contents");
  for (auto fault : {SimulatedDisk::kWrite, SimulatedDisk::kFsync, SimulatedDisk::kClose, SimulatedDisk::kRename}) {
    TempDir dir;
    writeFile(dir.file("day.kst"), "old\n");
    SimulatedDisk disk(fault);
    EXPECT_FALSE(file.save(dir.wfile("day.kst"), TextFile::kEOL_LF)) << fault;
    EXPECT_EQ(readFile(dir.file("day.kst")), "old\n") << fault;
    EXPECT_EQ(names_in(dir.path()), Lines{"day.kst"}) << fault;
    EXPECT_EQ(disk.open_fds, 0) << fault;
  }
}

TEST(TextFile, ConcurrentSavesToOneTarget) {
  TempDir dir;
  std::string contents[2];
  auto saver = [&](int who) {
    TextFile file;
    for (int i = 0; i < 300; ++i) {
      std::string line = "writer " + std::to_string(who) + " line " + std::to_string(i);
      file.appendLine(line);
      contents[who] += line + "\n";
    }
    for (int round = 0; round < 20; ++round) EXPECT_TRUE(file.save(dir.wfile("shared.kst"), TextFile::kEOL_LF));
  };
  std::thread a(saver, 0), b(saver, 1);
  a.join();
  b.join();
  std::string final_text = readFile(dir.file("shared.kst"));
  EXPECT_TRUE(final_text == contents[0] || final_text == contents[1]);
  EXPECT_EQ(names_in(dir.path()), Lines{"shared.kst"});
}

TEST(TextFileWriter, StreamsLinesOfAnySizeAndLeavesNothingWithoutACommit) {
  TempDir dir;
  writeFile(dir.file("day.kst"), "old\n");
  // Lines shorter than, equal to and longer than the writer's block (64 KB), in an order that
  // makes the block fill exactly and end inside a line, the next line end included; no byte
  // repeats its neighbour, so a piece written from the wrong place shows.
  const std::size_t sizes[] = {0, 10, 65535, 1, 65536, 200000, 3, 70000, 65534};
  std::string expected;
  {
    TextFileWriter out(dir.wfile("day.kst"), TextFile::kEOL_CRLF);
    for (std::size_t i = 0; i < std::size(sizes); ++i) {
      std::string line(sizes[i], ' ');
      for (std::size_t j = 0; j < line.size(); ++j) line[j] = static_cast<char>('A' + (i + j) % 53);
      out.appendLine(line);
      expected += line + "\r\n";
    }
    ASSERT_TRUE(out.commit());
    EXPECT_FALSE(out.commit()) << "a second commit has nothing to make";
  }
  EXPECT_EQ(readFile(dir.file("day.kst")), expected);
  // Abandoned part way, with a block's worth already on the disk: the target keeps its text
  // and the temporary file goes.
  {
    TextFileWriter out(dir.wfile("day.kst"), TextFile::kEOL_LF);
    out.appendLine(std::string(300000, 'z'));
  }
  EXPECT_EQ(readFile(dir.file("day.kst")), expected);
  EXPECT_EQ(names_in(dir.path()), Lines{"day.kst"});
  // A writer that cannot open its temporary file takes lines and answers false.
  TextFileWriter nowhere(dir.wfile("missing/day.kst"), TextFile::kEOL_LF);
  nowhere.appendLine("x");
  errno = 0;
  EXPECT_FALSE(nowhere.commit());
  EXPECT_EQ(errno, ENOENT);
}

// A large file is sent to the disk as it is written: every byte written is asked for once, in
// order, only after it reached the file, and advice that fails changes nothing of the save.
TEST(TextFileWriter, LargeFilesStartGoingToTheDiskAsTheyAreWritten) {
  for (SimulatedDisk::Fault fault : {SimulatedDisk::kNone, SimulatedDisk::kWriteback}) {
    TempDir dir;
    SimulatedDisk disk(fault);
    // Lines of two sizes, alternately, that end the writer's blocks inside lines: 32 MB.
    const std::string lines[2] = {std::string(60000, 'x'), std::string(100000, 'y')};
    constexpr int kLines = 400;
    TextFileWriter out(dir.wfile("big.kst"), TextFile::kEOL_LF);
    for (int i = 0; i < kLines; ++i) out.appendLine(lines[i % 2]);
    ASSERT_TRUE(out.commit());
    const uint64_t size = kLines / 2 * (lines[0].size() + lines[1].size() + 2);
    EXPECT_EQ(std::filesystem::file_size(dir.file("big.kst")), size);
    ASSERT_EQ(disk.writebacks.size(), size / (uint64_t{8} << 20)) << "one for each 8 MB written";
    uint64_t next = 0;
    for (const auto& w : disk.writebacks) {
      EXPECT_EQ(w.offset, next);
      EXPECT_GE(w.length, uint64_t{8} << 20);
      EXPECT_GE(w.file_size, w.offset + w.length) << "asked for before it was written";
      next = w.offset + w.length;
    }
  }
}
