// Generated malformed files: truncations of a real log, and a bad byte at every offset of a
// shorter one. Each loads to exactly what the byte-by-byte model of the format gives for its
// bytes, with the invariants holding; whatever loads is saved and loaded back. Files are read
// from a real temporary folder; the saves go to the in-memory disk.

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

namespace {

using reliability::dailies;
using reliability::pastLines;

class Generated : public testing::Test {
 protected:
  // Loads `bytes` and checks the result; false once enough cases have failed to stop.
  bool check(const std::string& bytes, const std::string& label, bool must_come_back) {
    SCOPED_TRACE(label);
    ++cases_;
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
    const filemodel::Content got = reliability::contentOf(*db);
    EXPECT_EQ(filemodel::difference(model.content, got), "");
    EXPECT_EQ(log, model.log);
    EXPECT_EQ(db->changed(), 0);
    std::string why;
    EXPECT_TRUE(KestaDebug::check(*db, &why)) << why;
    if (got.valid) {
      ++loaded_;
      const bool whole = reliability::roundTrip(*db, disk_, label);
      whole_ += whole;
      EXPECT_TRUE(whole || !must_come_back) << "the records did not come back from a save";
    }
    if (HasFailure() && ++failing_ >= 5) {
      ADD_FAILURE() << "stopping after " << label;
      return false;
    }
    return true;
  }

  // Every `step`th truncation of the example log, from `from` bytes up to `to`.
  void truncations(std::size_t from, std::size_t to, std::size_t step) {
    for (std::size_t size = from; size < to; size += step) {
      if (!check(dailies().substr(0, size), "truncated to " + std::to_string(size) + " bytes", true)) return;
    }
  }

  // Two bad bytes at every offset in [from, to) of the header and first four records.
  void badBytes(std::size_t from, std::size_t to) {
    static constexpr char kBad[] = {'\0', '"', ',', '\n', '\r', '\\', '\xff', '\x01', ' ', ':', 'n'};
    const std::string sample = dailies().substr(0, pastLines(12));
    for (std::size_t offset = from; offset < to; ++offset) {
      for (std::size_t k : {offset % sizeof kBad, (offset + 5) % sizeof kBad}) {
        if (sample[offset] == kBad[k]) continue;
        std::string bytes = sample;
        bytes[offset] = kBad[k];
        const std::string label =
            "byte " + std::to_string(static_cast<unsigned char>(kBad[k])) + " at " + std::to_string(offset);
        if (!check(bytes, label, false)) return;
      }
    }
  }

  testutil::TempDir dir_;
  std::string path_ = dir_.file("case.kst");
  SimFileSystem disk_;
  int cases_ = 0;
  int loaded_ = 0;
  int whole_ = 0;
  int failing_ = 0;
};

}  // namespace

// Every prefix of a well-formed file is a file the format can carry: what loads comes back.
// Past the first 2 KB every prefix loads.
TEST_F(Generated, EveryTruncationOfTheFirst4KBAndEveryThirtySeventhAfter) {
  truncations(0, 2048, 1);
  EXPECT_GT(loaded_, 1500);
  const int loaded_in_2KB = loaded_;
  truncations(2048, 4096, 1);
  truncations(4096, dailies().size() + 1, 37);
  ASSERT_TRUE(check(dailies(), "the whole file", true));
  EXPECT_GT(cases_, 4096 + 1250);
  EXPECT_EQ(loaded_ - loaded_in_2KB, cases_ - 2048);
}

// A bad byte in the header can make a name or a parameter that the format writes back
// differently; the round trip must still give what the format prescribes for the bytes
// written, and most files come back whole. In the records every file comes back whole.
TEST_F(Generated, BadByteAtEveryOffsetOfTheHeader) {
  badBytes(0, pastLines(8));
  EXPECT_GT(cases_, 900);
  EXPECT_GT(whole_, loaded_ * 9 / 10);
}

TEST_F(Generated, BadByteAtEveryOffsetOfTheRecords) {
  badBytes(pastLines(8), pastLines(12));
  EXPECT_GT(cases_, 2000);
  EXPECT_EQ(whole_, loaded_);
}
