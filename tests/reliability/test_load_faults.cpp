// Loading under disk errors: every call of a load fails in turn with every error. A failed
// load gives the state of a file that cannot be loaded (invalid, no columns, no parameters,
// records already held kept), leaks no descriptor and no memory; an interrupted call is tried
// again and the load goes through.

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "ReliabilityUtil.h"
#include "SimFileSystem.h"
#include "common/TestUtil.h"
#include "record/KestaDebugPrivate.h"
#include "support/Log.h"
#include "support/TextFileReader.h"

using reliability::contentOf;

namespace {

const int kErrors[] = {EIO, ENOSPC, EDQUOT, EACCES, EINTR};

struct Source {
  const char* name;
  std::string path;
  std::size_t transfer;
};

const Source kSources[] = {
    {"log in one read", "/logs/day.kst", 0},
    {"log in short reads", "/logs/day.kst", 7000},
    {"comma-separated file", "/logs/day.csv", 0},
    {"log longer than two read blocks", "/logs/week.kst", 0},
};

// The example's records repeated past two of the loader's read blocks, so that a failure can
// come after records were already built from the earlier blocks.
std::string long_log() {
  const std::string example = testutil::readFile(testutil::example("dailies.kst"));
  // The end of the marker line, then of the widths, types and names lines.
  std::size_t header_end = example.find("\n", example.find("\n\"KESTA\"\n") + 1);
  for (int line = 0; line < 3; ++line) header_end = example.find('\n', header_end + 1);
  const std::string records = example.substr(header_end + 1);
  std::string log = example.substr(0, header_end + 1);
  while (log.size() < 2 * TextFileReader::kDefaultBlock + 100000) log += records;
  return log;
}

SimFileSystem disk_with(const Source& s) {
  SimFileSystem disk;
  disk.makeFolder("/logs");
  if (s.path.ends_with("week.kst")) {
    disk.putFile(s.path, long_log());
  } else {
    const std::string example = s.path.ends_with(".csv") ? "dailies.csv" : "dailies.kst";
    disk.putFile(s.path, testutil::readFile(testutil::example(example)));
  }
  disk.setMaxTransfer(s.transfer);
  return disk;
}

struct Reference {
  filemodel::Content content;
  std::string log;
  std::vector<SimFileSystem::Call> calls;
};

Reference reference_for(const Source& s) {
  Reference ref;
  SimFileSystem disk = disk_with(s);
  UseFileSystem use(&disk);
  CapturingLogSink log;
  Zr::Ptr<kesta> db(new kesta(testutil::wide(s.path), INT_MAX, false));
  ref.content = contentOf(*db);
  ref.log = log.text();
  ref.calls = disk.callLog();
  EXPECT_TRUE(ref.content.valid);
  EXPECT_GE(ref.content.records.size(), 10u);
  return ref;
}

std::string label_of(const Source& s, unsigned call, int error) {
  return std::string(s.name) + ", call " + std::to_string(call) + ": " + std::strerror(error);
}

}  // namespace

TEST(LoadFaults, EveryCallFailingGivesTheUnloadableStateWithNothingLeaked) {
  for (const Source& s : kSources) {
    const Reference ref = reference_for(s);
    ASSERT_GE(ref.calls.size(), 4u) << s.name;
    for (unsigned call = 1; call <= ref.calls.size(); ++call) {
      for (int error : kErrors) {
        const std::string label = label_of(s, call, error);
        SimFileSystem disk = disk_with(s);
        disk.failCall(call, error);
        UseFileSystem use(&disk);
        reliability::CountingAllocator allocator;
        {
          CapturingLogSink log;
          Zr::Ptr<kesta> db(new kesta(testutil::wide(s.path), INT_MAX, false));
          std::string why;
          EXPECT_TRUE(KestaDebug::check(*db, &why)) << label << ": " << why;
          if (error == EINTR) {
            EXPECT_EQ(filemodel::difference(ref.content, contentOf(*db)), "") << label;
            EXPECT_EQ(log.text(), ref.log) << label;
          } else {
            EXPECT_EQ(filemodel::difference(filemodel::Content{}, contentOf(*db)), "") << label;
            EXPECT_EQ(db->changed(), 0) << label;
            EXPECT_EQ(log.text(), "") << label;
          }
        }
        EXPECT_EQ(allocator.live(), 0) << label << ": blocks leaked";
        EXPECT_EQ(disk.openDescriptors(), 0) << label;
      }
    }
  }
}

TEST(LoadFaults, FailedReloadKeepsTheRecordsAlreadyHeld) {
  const Source& s = kSources[1];
  const Reference ref = reference_for(s);
  for (unsigned call = 1; call <= ref.calls.size(); ++call) {
    for (int error : kErrors) {
      const std::string label = label_of(s, call, error);
      SimFileSystem disk = disk_with(s);
      UseFileSystem use(&disk);
      CapturingLogSink log;
      Zr::Ptr<kesta> db(new kesta(testutil::wide(s.path), INT_MAX, false));
      const reliability::Marks held = reliability::marksOf(*db);
      const filemodel::Content before = contentOf(*db);

      disk.resetCalls();
      disk.failCall(call, error);
      db->loadFromFile(INT_MAX, false);
      const filemodel::Content after = contentOf(*db);
      std::string why;
      EXPECT_TRUE(KestaDebug::check(*db, &why)) << label << ": " << why;
      EXPECT_EQ(disk.openDescriptors(), 0) << label;
      if (error == EINTR) {
        // Loading appends: the file's records follow the ones held.
        EXPECT_EQ(after.records.size(), 2 * before.records.size()) << label;
        EXPECT_EQ(after.columns, before.columns) << label;
        continue;
      }
      EXPECT_FALSE(after.valid) << label;
      EXPECT_TRUE(after.columns.empty()) << label;
      EXPECT_TRUE(after.params.empty()) << label;
      EXPECT_EQ(after.records, before.records) << label;
      EXPECT_TRUE(reliability::marksOf(*db).records == held.records) << label << ": the records held were replaced";
    }
  }
}

// load_text appends the record lines of a file with no header (its first line is skipped).
TEST(LoadFaults, FailedAppendOfRecordLinesChangesNothing) {
  const Source& s = kSources[1];
  SimFileSystem disk = disk_with(s);
  const std::string& log_bytes = testutil::readFile(testutil::example("dailies.kst"));
  std::size_t records_start = 0;
  for (int line = 0; line < 8; ++line) records_start = log_bytes.find('\n', records_start) + 1;
  disk.putFile("/logs/more.kst", log_bytes.substr(records_start));
  UseFileSystem use(&disk);
  CapturingLogSink log;
  auto loaded = [&] {
    Zr::Ptr<kesta> db(new kesta(testutil::wide(s.path), INT_MAX, false));
    db->set_filename(testutil::wide("/logs/more.kst"));
    return db;
  };
  const Zr::Ptr<kesta> reference = loaded();
  const filemodel::Content before = contentOf(*reference);
  disk.resetCalls();
  ASSERT_EQ(reference->load_text(INT_MAX), static_cast<int>(before.records.size()) - 1);
  const unsigned calls = disk.calls();
  ASSERT_GE(calls, 4u);
  for (unsigned call = 1; call <= calls; ++call) {
    for (int error : kErrors) {
      if (error == EINTR) continue;
      Zr::Ptr<kesta> db = loaded();
      const reliability::Marks marks = reliability::marksOf(*db);
      disk.resetCalls();
      disk.failCall(call, error);
      EXPECT_EQ(db->load_text(INT_MAX), 0) << label_of(s, call, error);
      EXPECT_EQ(filemodel::difference(before, contentOf(*db)), "") << label_of(s, call, error);
      EXPECT_TRUE(marks == reliability::marksOf(*db)) << label_of(s, call, error);
      EXPECT_EQ(disk.openDescriptors(), 0);
    }
  }
}

TEST(LoadFaults, FilesThatCannotBeOpenedOrRead) {
  struct Case {
    const char* name;
    std::string path;
  };
  SimFileSystem disk;
  disk.makeFolder("/logs");
  disk.makeFolder("/logs/folder.kst");
  disk.putFile("/logs/day.kst", testutil::readFile(testutil::example("dailies.kst")));
  const Case cases[] = {
      {"no such file", "/logs/missing.kst"},
      {"no such folder", "/nowhere/day.kst"},
      {"a folder", "/logs/folder.kst"},
      {"an empty name", ""},
  };
  UseFileSystem use(&disk);
  for (const Case& c : cases) {
    reliability::CountingAllocator allocator;
    {
      Zr::Ptr<kesta> db(new kesta(testutil::wide(c.path), INT_MAX, false));
      EXPECT_EQ(filemodel::difference(filemodel::Content{}, contentOf(*db)), "") << c.name;
    }
    EXPECT_EQ(allocator.live(), 0) << c.name;
    EXPECT_EQ(disk.openDescriptors(), 0) << c.name;
  }
}
