// Generated malformed files: truncations of a real log, and a bad byte at every offset of a
// shorter one. Each loads to exactly what the byte-by-byte model of the format gives for its
// bytes (validity, revision, parameters, columns, records read so far, log lines), with the
// invariants holding; whatever loads is saved and loaded back. Files are read from a real
// temporary folder; the saves go to the in-memory disk, since flushing a real one thousands
// of times would take minutes.

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>

#include "FileModel.h"
#include "ReliabilityUtil.h"
#include "SimFileSystem.h"
#include "common/TestUtil.h"
#include "record/KestaDebugPrivate.h"
#include "support/Log.h"

using reliability::contentOf;

namespace {

const std::string& dailies() {
  static const std::string bytes = testutil::readFile(testutil::example("dailies.kst"));
  return bytes;
}

// The header and the first four records of the example log.
std::string dailies_sample() {
  std::size_t end = 0;
  for (int line = 0; line < 12; ++line) end = dailies().find('\n', end) + 1;
  return dailies().substr(0, end);
}

// The offset just past the names line.
std::size_t header_end() {
  std::size_t end = 0;
  for (int line = 0; line < 8; ++line) end = dailies().find('\n', end) + 1;
  return end;
}

class Generated : public testing::Test {
 protected:
  struct Tally {
    int cases = 0;
    int loaded = 0;
    int whole = 0;
  };

  void SetUp() override {
    disk_.makeFolder("/saved");
    path_ = dir_.file("case.kst");
  }

  // Loads `bytes` and checks the result; answers false once enough cases have failed to stop.
  bool check(const std::string& bytes, const std::string& label, bool must_come_back) {
    SCOPED_TRACE(label);
    ++tally_.cases;
    // A fresh file each time: truncating one in place makes the file system flush it.
    std::remove(path_.c_str());
    testutil::writeFile(path_, bytes);
    Zr::Ptr<kesta> db;
    std::string log;
    {
      CapturingLogSink capture;
      db = Zr::Ptr<kesta>(new kesta(testutil::wide(path_), INT_MAX, false));
      log = capture.text();
    }
    const filemodel::Loaded model = filemodel::load(bytes);
    const filemodel::Content got = contentOf(*db);
    EXPECT_EQ(filemodel::difference(model.content, got), "");
    EXPECT_EQ(log, model.log);
    EXPECT_EQ(reliability::unexpectedLogLines(log), "");
    EXPECT_EQ(db->changed(), 0);
    std::string why;
    EXPECT_TRUE(KestaDebug::check(*db, &why)) << why;
    if (got.valid) {
      ++tally_.loaded;
      UseFileSystem use(&disk_);
      const bool whole = reliability::roundTrip(*db, "/saved/case.kst", label);
      if (whole) ++tally_.whole;
      if (must_come_back) {
        EXPECT_TRUE(whole) << "the records did not come back from a save";
      }
    }
    if (HasFailure() && ++failing_ >= 5) {
      ADD_FAILURE() << "stopping after " << label;
      return false;
    }
    return true;
  }

  // Every `step`th truncation of the example log, from `from` bytes up to `to`.
  void truncations(std::size_t from, std::size_t to, std::size_t step);
  // Two bad bytes at every offset in [from, to) of the sample.
  void badBytes(std::size_t from, std::size_t to);

  testutil::TempDir dir_;
  std::string path_;
  SimFileSystem disk_;
  Tally tally_;
  int failing_ = 0;
};

constexpr char kBadBytes[] = {'\0', '"', ',', '\n', '\r', '\\', '\xff', '\x01', ' ', ':', 'n'};
constexpr std::size_t kBadByteCount = sizeof kBadBytes;

void Generated::truncations(std::size_t from, std::size_t to, std::size_t step) {
  for (std::size_t size = from; size < to; size += step) {
    if (!check(dailies().substr(0, size), "truncated to " + std::to_string(size) + " bytes", true)) return;
  }
}

void Generated::badBytes(std::size_t from, std::size_t to) {
  const std::string sample = dailies_sample();
  for (std::size_t offset = from; offset < to; ++offset) {
    for (std::size_t k : {offset % kBadByteCount, (offset + 5) % kBadByteCount}) {
      if (sample[offset] == kBadBytes[k]) continue;
      std::string bytes = sample;
      bytes[offset] = kBadBytes[k];
      const std::string label =
          "byte " + std::to_string(static_cast<unsigned char>(kBadBytes[k])) + " at " + std::to_string(offset);
      if (!check(bytes, label, false)) return;
    }
  }
}

}  // namespace

// Every prefix of a well-formed file is a file the format can carry: what loads comes back.
TEST_F(Generated, EveryTruncationOfTheFirst2KB) {
  truncations(0, 2048, 1);
  EXPECT_EQ(tally_.cases, 2048);
  EXPECT_GT(tally_.loaded, 1500);
}

TEST_F(Generated, EveryTruncationOfTheNext2KB) {
  truncations(2048, 4096, 1);
  EXPECT_EQ(tally_.loaded, 2048);
}

TEST_F(Generated, EveryThirtySeventhTruncationOfTheNext24KB) {
  truncations(4096, 4096 + 37 * 650, 37);
  EXPECT_EQ(tally_.cases, 650);
  EXPECT_EQ(tally_.loaded, tally_.cases);
}

TEST_F(Generated, EveryThirtySeventhTruncationOfTheRest) {
  const std::size_t total = dailies().size();
  truncations(4096 + 37 * 650, total + 1, 37);
  ASSERT_TRUE(check(dailies(), "the whole file", true));
  EXPECT_GT(tally_.cases, 600);
  EXPECT_EQ(tally_.loaded, tally_.cases);
}

// A bad byte in the header can make a name or a parameter that the format writes back
// differently (a quote, or a backslash before an n); the round trip must still give what the
// format prescribes for the bytes written, and most files come back whole.
TEST_F(Generated, BadByteAtEveryOffsetOfTheHeader) {
  badBytes(0, header_end());
  EXPECT_GT(tally_.cases, 900);
  EXPECT_GT(tally_.whole, tally_.loaded * 9 / 10);
}

// In the records every bad byte leaves a file that comes back whole.
TEST_F(Generated, BadByteAtEveryOffsetOfTheRecords) {
  badBytes(header_end(), dailies_sample().size());
  EXPECT_GT(tally_.cases, 2000);
  EXPECT_EQ(tally_.whole, tally_.loaded);
}
