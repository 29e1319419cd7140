// Saving under disk errors and power loss: every call of a save fails in turn with each
// error, and the power goes before every call with unflushed data kept, lost or half written.
// The file is always the old one or the new one, a save that answered success survives,
// nothing is left behind, and a failed save leaves the database as it was.

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

using reliability::contentOf;
using reliability::marksOf;
using Unflushed = SimFileSystem::Unflushed;

namespace {

const std::string kFolder = "/logs";
const std::string kTarget = "/logs/day.kst";
const int kErrors[] = {EIO, ENOSPC, EDQUOT, EACCES, EINTR};
const Unflushed kUnflushed[] = {Unflushed::kKept, Unflushed::kLost, Unflushed::kHalfWritten};

// A log whose save changes it: some records changed since the last save, some tagged (so the
// "Tag" texts change), fields that need escaping. `variant` changes every text.
Zr::Ptr<kesta> make_log(int rows, int variant) {
  Zr::Ptr<kesta> db(new kesta(std::vector<DBFieldDesc>{{"Name", DBFieldTypes::kText},
                                                       {"Start time", DBFieldTypes::kTimecode},
                                                       {"Notes", DBFieldTypes::kText},
                                                       {"Tag", DBFieldTypes::kText}}));
  db->set_filename(testutil::wide(kTarget));
  db->add_param("Production", variant ? "Night Harbour (old cut)" : "Night Harbour");
  db->add_records(rows);
  for (int r = 0; r < rows; ++r) {
    const std::string name = "Sc " + std::to_string(r / 7 + 1) + " Tk " + std::to_string(r % 7 + 1);
    db->set_field(r, 0, (variant ? "old " + name : name).c_str());
    db->set_field(r, 1, ("01:0" + std::to_string(r % 10) + ":00:00").c_str());
    db->set_field(r, 2, r % 5 == 0 ? "actor said \"harbour\"\nthen left" : "print, circle take");
    db->set_field(r, 3, "0");
  }
  db->clear_changed();
  for (int r = 0; r < rows; r += 3) db->set_field(r, 2, "retake");
  for (int r = 0; r < rows; r += 4) db->set_tag(r, 1);
  return db;
}

struct Scenario {
  const char* name;
  bool overwrite;         // an older file is there
  int rows;
  std::size_t transfer;   // short transfers (0: whole)
  bool without_header;    // save_text_without_header
};

const Scenario kScenarios[] = {
    {"new file", false, 12, 0, false},
    {"overwrite", true, 12, 0, false},
    {"large file", true, 6000, 0, false},
    {"large file in short writes", true, 1500, 20000, false},
    {"overwrite without header", true, 12, 0, true},
};

int save(kesta& db, const Scenario& s) { return s.without_header ? db.save_text_without_header() : db.save_text(); }

SimFileSystem fresh_disk(const Scenario& s, const std::string& old_bytes) {
  SimFileSystem disk;
  disk.makeFolder(kFolder);
  if (s.overwrite) disk.putFile(kTarget, old_bytes);
  disk.setMaxTransfer(s.transfer);
  return disk;
}

// What a clean save of the scenario writes and leaves, and how many calls it makes.
struct Reference {
  std::string old_bytes;
  std::string new_bytes;
  filemodel::Content after;
  reliability::Marks after_marks;
  std::vector<SimFileSystem::Call> calls;
};

Reference reference_for(const Scenario& s) {
  Reference ref;
  {
    SimFileSystem disk;
    disk.makeFolder(kFolder);
    Zr::Ptr<kesta> old_log = make_log(s.rows / 2 + 3, 1);
    UseFileSystem use(&disk);
    EXPECT_GT(save(*old_log, s), 0);
    ref.old_bytes = disk.contents(kTarget);
  }
  SimFileSystem disk = fresh_disk(s, ref.old_bytes);
  Zr::Ptr<kesta> db = make_log(s.rows, 0);
  {
    UseFileSystem use(&disk);
    EXPECT_EQ(save(*db, s), s.rows);
  }
  ref.new_bytes = disk.contents(kTarget);
  ref.after = contentOf(*db);
  ref.after_marks = marksOf(*db);
  ref.calls = disk.callLog();
  EXPECT_EQ(disk.namesIn(kFolder), std::vector<std::string>{"day.kst"});
  EXPECT_TRUE(ref.old_bytes != ref.new_bytes);
  return ref;
}

// The target is the old file (or absent, for a new one) or the new one, byte for byte.
void expect_old_or_new(const SimFileSystem& disk, const Scenario& s, const Reference& ref, const std::string& label) {
  if (!disk.hasFile(kTarget)) {
    EXPECT_FALSE(s.overwrite) << label << ": the old file is gone";
    return;
  }
  const std::string bytes = disk.contents(kTarget);
  EXPECT_TRUE(bytes == ref.new_bytes || (s.overwrite && bytes == ref.old_bytes))
      << label << ": the file is neither the old one nor the new one (" << bytes.size() << " bytes)";
}

std::string describe(const Scenario& s, unsigned call, SimFileSystem::Call kind, const char* what) {
  return std::string(s.name) + ", call " + std::to_string(call) + " (kind " + std::to_string(static_cast<int>(kind)) +
         "): " + what;
}

}  // namespace

TEST(SaveFaults, EveryCallFailingWithEveryErrorKeepsTheOldFileOrTheNewOne) {
  for (const Scenario& s : kScenarios) {
    const Reference ref = reference_for(s);
    ASSERT_GE(ref.calls.size(), 6u) << s.name;
    for (unsigned call = 1; call <= ref.calls.size(); ++call) {
      for (int error : kErrors) {
        const std::string label = describe(s, call, ref.calls[call - 1], std::strerror(error));
        SimFileSystem disk = fresh_disk(s, ref.old_bytes);
        disk.failCall(call, error);
        Zr::Ptr<kesta> db = make_log(s.rows, 0);
        const filemodel::Content before = contentOf(*db);
        const reliability::Marks before_marks = marksOf(*db);
        int answer = 0;
        {
          UseFileSystem use(&disk);
          answer = save(*db, s);
        }
        EXPECT_EQ(disk.openDescriptors(), 0) << label;
        expect_old_or_new(disk, s, ref, label);
        if (error == EINTR) {
          // An interrupted call is tried again: the save goes through.
          EXPECT_EQ(answer, s.rows) << label;
          EXPECT_TRUE(disk.contents(kTarget) == ref.new_bytes) << label;
          EXPECT_EQ(filemodel::difference(ref.after, contentOf(*db)), "") << label;
          EXPECT_EQ(disk.namesIn(kFolder), std::vector<std::string>{"day.kst"}) << label;
          continue;
        }
        // Every call of a save matters: any error makes it answer failure.
        EXPECT_EQ(answer, 0) << label;
        EXPECT_EQ(filemodel::difference(before, contentOf(*db)), "") << label;
        EXPECT_TRUE(before_marks == marksOf(*db)) << label << ": changed marks or tags differ";
        for (const std::string& name : disk.namesIn(kFolder)) EXPECT_EQ(name, "day.kst") << label;
        std::string why;
        EXPECT_TRUE(KestaDebug::check(*db, &why)) << label << ": " << why;
      }
    }
  }
}

TEST(SaveFaults, PowerLossBeforeEveryCallLeavesTheOldFileOrTheNewOne) {
  for (const Scenario& s : kScenarios) {
    const Reference ref = reference_for(s);
    // One past the last call: the power goes after the save has answered.
    for (unsigned call = 1; call <= ref.calls.size() + 1; ++call) {
      for (Unflushed unflushed : kUnflushed) {
        const std::string label = std::string(s.name) + ", power lost before call " + std::to_string(call) +
                                  ", unflushed state " + std::to_string(static_cast<int>(unflushed));
        SimFileSystem disk = fresh_disk(s, ref.old_bytes);
        disk.crashBeforeCall(call);
        Zr::Ptr<kesta> db = make_log(s.rows, 0);
        int answer = 0;
        {
          UseFileSystem use(&disk);
          answer = save(*db, s);
        }
        const bool finished = call > ref.calls.size();
        EXPECT_EQ(disk.crashed(), !finished) << label;
        SimFileSystem after = disk.afterPowerLoss(unflushed);
        expect_old_or_new(after, s, ref, label);
        if (finished) {
          ASSERT_EQ(answer, s.rows) << label;
          EXPECT_TRUE(after.contents(kTarget) == ref.new_bytes) << label << ": a save that answered success was lost";
        }
        // A save cut short may leave its temporary file; it never takes another name.
        for (const std::string& name : after.namesIn(kFolder)) {
          const bool temporary = name.rfind("day.kst.", 0) == 0 && name.size() > 12 &&
                                 name.compare(name.size() - 4, 4, ".tmp") == 0;
          EXPECT_TRUE(name == "day.kst" || temporary) << label << ": " << name;
          if (finished) {
            EXPECT_EQ(name, "day.kst") << label;
          }
        }
        // Whatever survived loads as the old log or the new one.
        if (after.hasFile(kTarget) && !s.without_header) {
          UseFileSystem use(&after);
          CapturingLogSink quiet;
          Zr::Ptr<kesta> reloaded(new kesta(testutil::wide(kTarget), INT_MAX, false));
          EXPECT_TRUE(reloaded->get_valid()) << label;
          const int rows = static_cast<int>(reloaded->get_num_records());
          EXPECT_TRUE(rows == s.rows || rows == s.rows / 2 + 3) << label << ": " << rows << " records";
        }
      }
    }
  }
}

TEST(SaveFaults, FailuresThatLastLeaveEverythingAsItWas) {
  const Scenario& s = kScenarios[2];  // large file, over an old one
  const Reference ref = reference_for(s);
  struct Fault {
    const char* name;
    SimFileSystem::Call kind;
    int error;
    std::size_t space;  // a space limit instead, when not 0
  };
  const Fault faults[] = {
      {"every write fails", SimFileSystem::Call::kWrite, ENOSPC, 0},
      {"every fsync fails", SimFileSystem::Call::kFsync, EIO, 0},
      {"every close fails", SimFileSystem::Call::kClose, EIO, 0},
      {"every rename fails", SimFileSystem::Call::kRename, EACCES, 0},
      {"every open fails", SimFileSystem::Call::kOpen, EACCES, 0},
      {"the folder cannot be flushed", SimFileSystem::Call::kSyncDirectory, EIO, 0},
      {"the disk fills half way", SimFileSystem::Call::kOpen, 0, ref.old_bytes.size() + ref.new_bytes.size() / 2},
      {"the disk is full", SimFileSystem::Call::kOpen, 0, ref.old_bytes.size()},
  };
  for (const Fault& f : faults) {
    SimFileSystem disk = fresh_disk(s, ref.old_bytes);
    if (f.space) {
      disk.setSpaceLimit(f.space);
    } else {
      disk.failEvery(f.kind, f.error);
    }
    Zr::Ptr<kesta> db = make_log(s.rows, 0);
    const filemodel::Content before = contentOf(*db);
    const reliability::Marks before_marks = marksOf(*db);
    int answer = 0;
    {
      UseFileSystem use(&disk);
      answer = db->save_text();
    }
    EXPECT_EQ(answer, 0) << f.name;
    EXPECT_EQ(disk.openDescriptors(), 0) << f.name;
    EXPECT_EQ(filemodel::difference(before, contentOf(*db)), "") << f.name;
    EXPECT_TRUE(before_marks == marksOf(*db)) << f.name;
    // Only a failed folder flush comes after the rename; before it the old file stands.
    if (f.space == 0 && f.kind == SimFileSystem::Call::kSyncDirectory) {
      EXPECT_TRUE(disk.contents(kTarget) == ref.new_bytes) << f.name;
    } else {
      EXPECT_TRUE(disk.contents(kTarget) == ref.old_bytes) << f.name;
    }
    EXPECT_EQ(disk.namesIn(kFolder), std::vector<std::string>{"day.kst"}) << f.name;
  }
}

TEST(SaveFaults, FailedSaveRestoresTagTextsAndMarksInEveryDisplayMode) {
  // Show-tags-only sends the tag stores through the tagged index's row numbers; a failed save
  // still gives every record back its text and mark.
  for (int show_tags_only = 0; show_tags_only <= 1; ++show_tags_only) {
    SimFileSystem disk;
    disk.makeFolder(kFolder);
    disk.failEvery(SimFileSystem::Call::kRename, EIO);
    Zr::Ptr<kesta> db = make_log(40, 0);
    for (int r = 0; r < 40; r += 5) db->set_field(r, 3, "stale");
    db->set_show_tags_only(show_tags_only);
    const reliability::Marks before_marks = marksOf(*db);
    const filemodel::Content before = contentOf(*db);
    db->set_show_tags_only(0);
    const filemodel::Content before_all = contentOf(*db);
    const reliability::Marks before_all_marks = marksOf(*db);
    db->set_show_tags_only(show_tags_only);
    {
      UseFileSystem use(&disk);
      EXPECT_EQ(db->save_text(), 0);
    }
    EXPECT_TRUE(before_marks == marksOf(*db)) << show_tags_only;
    EXPECT_EQ(filemodel::difference(before, contentOf(*db)), "") << show_tags_only;
    db->set_show_tags_only(0);
    EXPECT_EQ(filemodel::difference(before_all, contentOf(*db)), "") << show_tags_only;
    EXPECT_TRUE(before_all_marks == marksOf(*db)) << show_tags_only;
  }
}

TEST(SaveFaults, AllocationFailureDuringASaveLeavesEverythingAsItWas) {
  const Scenario& s = kScenarios[1];
  const Reference ref = reference_for(s);
  int failures = 0;
  for (long n = 1;; ++n) {
    SimFileSystem disk = fresh_disk(s, ref.old_bytes);
    Zr::Ptr<kesta> db = make_log(s.rows, 0);
    const filemodel::Content before = contentOf(*db);
    const reliability::Marks before_marks = marksOf(*db);
    bool threw = false;
    int answer = 0;
    {
      UseFileSystem use(&disk);
      reliability::CountingAllocator allocator;
      allocator.failAllocation(n);
      try {
        answer = db->save_text();
      } catch (const Zr::Exception::BadAlloc&) {
        threw = true;
      }
    }
    EXPECT_EQ(disk.openDescriptors(), 0) << n;
    expect_old_or_new(disk, s, ref, "allocation " + std::to_string(n));
    if (!threw) {
      // The allocation numbered n was never made: every earlier one failed in turn.
      EXPECT_EQ(answer, s.rows);
      EXPECT_TRUE(disk.contents(kTarget) == ref.new_bytes);
      break;
    }
    ++failures;
    EXPECT_EQ(filemodel::difference(before, contentOf(*db)), "") << n;
    EXPECT_TRUE(before_marks == marksOf(*db)) << n;
    for (const std::string& name : disk.namesIn(kFolder)) EXPECT_EQ(name, "day.kst") << n;
  }
  EXPECT_GT(failures, s.rows);  // every record's line allocates
}
