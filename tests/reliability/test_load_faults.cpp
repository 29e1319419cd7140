// Loading under disk errors: every call of a load fails in turn with every error. A failed
// load gives the state of a file that cannot be loaded (invalid, no columns, no parameters,
// records already held kept) and leaks no descriptor and no memory; an interrupted call is
// tried again and the load goes through.

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include "ReliabilityUtil.h"
#include "SimFileSystem.h"
#include "common/TestUtil.h"
#include "record/KestaDebugPrivate.h"
#include "support/Log.h"
#include "support/TextFileReader.h"

using reliability::contentOf;
using reliability::marksOf;

namespace {

using reliability::dailies;
using reliability::pastLines;

const int kErrors[] = {EIO, ENOSPC, EDQUOT, EACCES, EINTR};

// The example's records repeated past two of the loader's read blocks, so that a failure can
// come after records were already built from the earlier blocks.
std::string long_log() {
  std::string log = dailies();
  while (log.size() < 2 * TextFileReader::kDefaultBlock + 100000) log += dailies().substr(pastLines(8));
  return log;
}

struct Source {
  const char* name;
  std::string path;
  std::string bytes;
  std::size_t transfer;
};

SimFileSystem disk_with(const Source& s) {
  SimFileSystem disk;
  disk.makeFolder("/logs");
  disk.putFile(s.path, s.bytes);
  disk.setMaxTransfer(s.transfer);
  return disk;
}

std::string label_of(const Source& s, unsigned call, int error) {
  return std::string(s.name) + ", call " + std::to_string(call) + ": " + std::strerror(error);
}

const Source& short_reads() {
  static const Source s{"log in short reads", "/logs/day.kst", dailies(), 7000};
  return s;
}

}  // namespace

TEST(LoadFaults, EveryCallFailingGivesTheUnloadableStateWithNothingLeaked) {
  const Source sources[] = {
      {"log in one read", "/logs/day.kst", dailies(), 0},
      short_reads(),
      {"comma-separated file", "/logs/day.csv", testutil::readFile(testutil::example("dailies.csv")), 0},
      {"log longer than two read blocks", "/logs/week.kst", long_log(), 0},
  };
  for (const Source& s : sources) {
    SimFileSystem reference = disk_with(s);
    filemodel::Content content;
    std::string log;
    {
      UseFileSystem use(&reference);
      CapturingLogSink capture;
      content = contentOf(*Zr::Ptr<kesta>(new kesta(testutil::wide(s.path), INT_MAX, false)));
      log = capture.text();
    }
    ASSERT_GE(content.records.size(), 10u) << s.name;
    ASSERT_GE(reference.calls(), 4u) << s.name;
    for (unsigned call = 1; call <= reference.calls(); ++call) {
      for (int error : kErrors) {
        const std::string label = label_of(s, call, error);
        SimFileSystem disk = disk_with(s);
        disk.failCall(call, error);
        UseFileSystem use(&disk);
        testutil::TestAllocator allocator;
        {
          CapturingLogSink capture;
          Zr::Ptr<kesta> db(new kesta(testutil::wide(s.path), INT_MAX, false));
          std::string why;
          EXPECT_TRUE(KestaDebug::check(*db, &why)) << label << ": " << why;
          const bool retried = error == EINTR;
          EXPECT_EQ(filemodel::difference(retried ? content : filemodel::Content{}, contentOf(*db)), "") << label;
          EXPECT_EQ(capture.text(), retried ? log : "") << label;
          EXPECT_TRUE(retried || db->changed() == 0) << label;
        }
        EXPECT_EQ(allocator.live(), 0) << label << ": blocks leaked";
        EXPECT_EQ(disk.openDescriptors(), 0) << label;
      }
    }
  }
}

// A reload replaces parameters and columns and appends the file's records; load_text appends
// the record lines of a file without a header (its first line skipped). Call 0 fails none.
TEST(LoadFaults, FailedReloadOrAppendKeepsTheRecordsAlreadyHeld) {
  const Source& s = short_reads();
  SimFileSystem disk = disk_with(s);
  disk.putFile("/logs/more.kst", dailies().substr(pastLines(8)));
  UseFileSystem use(&disk);
  CapturingLogSink log;
  for (bool append : {false, true}) {
    for (unsigned call = 0, calls = 0; call <= calls; ++call) {
      for (int error : kErrors) {
        const std::string label = (append ? "append, " : "reload, ") + label_of(s, call, error);
        Zr::Ptr<kesta> db(new kesta(testutil::wide(s.path), INT_MAX, false));
        if (append) db->set_filename(testutil::wide("/logs/more.kst"));
        const filemodel::Content before = contentOf(*db);
        const reliability::Marks marks = marksOf(*db);
        disk.resetCalls();
        disk.failCall(call, error);
        int answer = 0;
        if (append) {
          answer = db->load_text(INT_MAX);
        } else {
          db->loadFromFile(INT_MAX, false);
        }
        if (call == 0) calls = disk.calls();
        std::string why;
        EXPECT_TRUE(KestaDebug::check(*db, &why)) << label << ": " << why;
        EXPECT_EQ(disk.openDescriptors(), 0) << label;
        const filemodel::Content after = contentOf(*db);
        if (call == 0 || error == EINTR) {
          EXPECT_EQ(after.records.size(), 2 * before.records.size() - append) << label;
          EXPECT_EQ(answer, append ? static_cast<int>(before.records.size()) - 1 : 0) << label;
          EXPECT_EQ(after.columns, before.columns) << label;
          continue;
        }
        const filemodel::Content expected = append ? before : filemodel::Content{false, 1, {}, {}, before.records};
        EXPECT_EQ(filemodel::difference(expected, after), "") << label;
        EXPECT_EQ(answer, 0) << label;
        EXPECT_TRUE(append ? marks == marksOf(*db) : marks.records == marksOf(*db).records) << label;
      }
    }
    EXPECT_GE(disk.calls(), 4u);
  }
}

TEST(LoadFaults, FilesThatCannotBeOpenedLeakNothing) {
  SimFileSystem disk;
  disk.makeFolder("/logs");
  disk.makeFolder("/logs/folder.kst");
  UseFileSystem use(&disk);
  for (const char* path : {"/logs/missing.kst", "/nowhere/day.kst", "/logs/folder.kst", ""}) {
    testutil::TestAllocator allocator;
    {
      Zr::Ptr<kesta> db(new kesta(testutil::wide(path), INT_MAX, false));
      EXPECT_EQ(filemodel::difference(filemodel::Content{}, contentOf(*db)), "") << path;
    }
    EXPECT_EQ(allocator.live(), 0) << path;
    EXPECT_EQ(disk.openDescriptors(), 0) << path;
  }
}
