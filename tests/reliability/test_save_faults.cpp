// Saving under disk errors, power loss and failing allocations: the file is always the old
// one or the new one, a save that answered success survives, nothing is left behind, and a
// failed save leaves the database as it was.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "ReliabilityUtil.h"
#include "SimFileSystem.h"
#include "common/TestUtil.h"
#include "record/KestaDebugPrivate.h"

using reliability::contentOf;
using reliability::marksOf;
using Call = SimFileSystem::Call;
using Unflushed = SimFileSystem::Unflushed;

namespace {

const std::string kFolder = "/logs";
const std::string kTarget = "/logs/day.kst";
const std::vector<std::string> kOnlyTarget = {"day.kst"};

// A log whose save changes it: records changed since the last save, some tagged (so the "Tag"
// texts change), fields that need escaping; `clean`: nothing marked changed before the save.
Zr::Ptr<kesta> make_log(int rows, bool old_version = false, bool clean = false) {
  Zr::Ptr<kesta> db(new kesta(std::vector<DBFieldDesc>{{"Name", DBFieldTypes::kText},
                                                       {"Start time", DBFieldTypes::kTimecode},
                                                       {"Notes", DBFieldTypes::kText},
                                                       {"Tag", DBFieldTypes::kText}}));
  db->set_filename(testutil::wide(kTarget));
  db->add_param("Production", old_version ? "Night Harbour (old cut)" : "Night Harbour");
  db->add_records(rows);
  for (int r = 0; r < rows; ++r) {
    const std::string name = "Sc " + std::to_string(r / 7 + 1) + " Tk " + std::to_string(r % 7 + 1);
    db->set_field(r, 0, (old_version ? "old " + name : name).c_str());
    db->set_field(r, 1, ("01:0" + std::to_string(r % 10) + ":00:00").c_str());
    db->set_field(r, 2, r % 5 == 0 ? "actor said \"harbour\"\nthen left" : "print, circle take");
    db->set_field(r, 3, r % 5 == 0 ? "stale" : "0");
  }
  db->clear_changed();
  for (int r = rows - 1; r >= 0; r -= 3) db->set_field(r, 2, "retake");  // the last row among them
  for (int r = 0; r < rows; r += 4) db->set_tag(r, 1);
  if (clean) db->clear_changed();
  return db;
}

struct Scenario {
  const char* name;
  bool overwrite;  // an older file is there
  int rows;
  std::size_t transfer;  // short transfers (0: whole)
  bool without_header;   // save_text_without_header
};

const Scenario kScenarios[] = {
    {"new file", false, 12, 0, false},
    {"overwrite", true, 12, 0, false},
    {"large file", true, 6000, 0, false},  // more than two of the writer's blocks
    {"large file in short writes", true, 1500, 20000, false},
    {"overwrite without header", true, 12, 0, true},
};

int save(kesta& db, const Scenario& s) { return s.without_header ? db.save_text_without_header() : db.save_text(); }

// What a clean save of the scenario leaves, the calls it makes, and the disk before it.
struct Reference {
  SimFileSystem disk;
  std::string old_bytes;
  std::string new_bytes;
  filemodel::Content after;
  std::vector<Call> calls;
};

Reference reference_for(const Scenario& s) {
  Reference ref;
  ref.disk.makeFolder(kFolder);
  ref.disk.setMaxTransfer(s.transfer);
  if (s.overwrite) {
    SimFileSystem old_disk;
    old_disk.makeFolder(kFolder);
    UseFileSystem use(&old_disk);
    EXPECT_GT(save(*make_log(s.rows / 2 + 3, true), s), 0);
    ref.old_bytes = old_disk.contents(kTarget);
    ref.disk.putFile(kTarget, ref.old_bytes);
  }
  SimFileSystem disk = ref.disk;
  Zr::Ptr<kesta> db = make_log(s.rows);
  {
    UseFileSystem use(&disk);
    EXPECT_EQ(save(*db, s), s.rows);
  }
  ref.new_bytes = disk.contents(kTarget);
  ref.after = contentOf(*db);
  ref.calls = disk.callLog();
  EXPECT_EQ(disk.namesIn(kFolder), kOnlyTarget);
  EXPECT_TRUE(ref.old_bytes != ref.new_bytes);
  return ref;
}

// The target is the old file (or absent, for a new one) or the new one, byte for byte.
void expect_old_or_new(const SimFileSystem& disk, const Scenario& s, const Reference& ref, const std::string& label) {
  const std::string bytes = disk.contents(kTarget);
  if (!disk.hasFile(kTarget)) {
    EXPECT_FALSE(s.overwrite) << label << ": the old file is gone";
  } else {
    EXPECT_TRUE(bytes == ref.new_bytes || (s.overwrite && bytes == ref.old_bytes))
        << label << ": the file is neither the old one nor the new one (" << bytes.size() << " bytes)";
  }
}

// A failed save leaves the database's content, marks and tags as they were.
struct Unchanged {
  kesta& db;
  const filemodel::Content content = contentOf(db);
  const reliability::Marks marks = marksOf(db);
  void check(const std::string& label) const {
    EXPECT_EQ(filemodel::difference(content, contentOf(db)), "") << label;
    EXPECT_TRUE(marks == marksOf(db)) << label << ": changed marks or tags differ";
    std::string why;
    EXPECT_TRUE(KestaDebug::check(db, &why)) << label << ": " << why;
  }
};

}  // namespace

TEST(SaveFaults, EveryCallFailingWithEveryErrorKeepsTheOldFileAndTheDatabaseAsTheyWere) {
  for (const Scenario& s : kScenarios) {
    const Reference ref = reference_for(s);
    ASSERT_GE(ref.calls.size(), 6u) << s.name;
    for (unsigned call = 1; call <= ref.calls.size(); ++call) {
      // Only the folder flush comes after the rename: a failure there leaves the new file.
      const bool after_rename = ref.calls[call - 1] == Call::kSyncDirectory;
      for (int error : {EIO, ENOSPC, EDQUOT, EACCES, EINTR}) {
        const std::string label = std::string(s.name) + ", call " + std::to_string(call) + ": " + std::strerror(error);
        SimFileSystem disk = ref.disk;
        disk.failCall(call, error);
        // Show-tags-only sends the tag stores through the tagged index's row numbers (so only
        // saves that fail before the rename use it here); a clean log has every mark to put
        // back, a changed one some.
        const int tags_only = error != EINTR && !after_rename && call % 2;
        Zr::Ptr<kesta> db = make_log(s.rows, false, call % 4 > 1);
        db->set_show_tags_only(tags_only);
        const Unchanged shown{*db};
        db->set_show_tags_only(0);
        const Unchanged all{*db};
        db->set_show_tags_only(tags_only);
        int answer = 0;
        {
          UseFileSystem use(&disk);
          answer = save(*db, s);
        }
        EXPECT_EQ(disk.openDescriptors(), 0) << label;
        EXPECT_EQ(disk.namesIn(kFolder),
                  s.overwrite || answer || after_rename ? kOnlyTarget : std::vector<std::string>{})
            << label;
        if (error == EINTR) {
          // An interrupted call is tried again: the save goes through.
          EXPECT_EQ(answer, s.rows) << label;
          EXPECT_TRUE(disk.contents(kTarget) == ref.new_bytes) << label;
          EXPECT_EQ(filemodel::difference(ref.after, contentOf(*db)), "") << label;
          continue;
        }
        EXPECT_EQ(answer, 0) << label;
        EXPECT_TRUE(disk.contents(kTarget) == (after_rename ? ref.new_bytes : ref.old_bytes)) << label;
        shown.check(label);
        db->set_show_tags_only(0);
        all.check(label);
      }
    }
  }
}

TEST(SaveFaults, PowerLossBeforeEveryCallLeavesTheOldFileOrTheNewOne) {
  for (const Scenario& s : kScenarios) {
    const Reference ref = reference_for(s);
    // One past the last call: the power goes after the save has answered.
    for (unsigned call = 1; call <= ref.calls.size() + 1; ++call) {
      for (Unflushed unflushed : {Unflushed::kKept, Unflushed::kLost, Unflushed::kHalfWritten}) {
        const std::string label = std::string(s.name) + ", power lost before call " + std::to_string(call) +
                                  ", unflushed " + std::to_string(static_cast<int>(unflushed));
        SimFileSystem disk = ref.disk;
        disk.crashBeforeCall(call);
        int answer = 0;
        {
          UseFileSystem use(&disk);
          answer = save(*make_log(s.rows), s);
        }
        SimFileSystem after = disk.afterPowerLoss(unflushed);
        expect_old_or_new(after, s, ref, label);
        const bool finished = call > ref.calls.size();
        if (finished) {
          ASSERT_EQ(answer, s.rows) << label;
          EXPECT_TRUE(after.contents(kTarget) == ref.new_bytes) << label << ": a save that answered success was lost";
        }
        // A save cut short may leave its temporary file; it never takes another name.
        for (const std::string& name : after.namesIn(kFolder)) {
          const bool temporary =
              !finished && name.starts_with("day.kst.") && name.ends_with(".tmp") && name.size() > 12;
          EXPECT_TRUE(name == "day.kst" || temporary) << label << ": " << name;
        }
      }
    }
  }
}

TEST(SaveFaults, AllocationFailureDuringASaveLeavesEverythingAsItWas) {
  const Scenario& s = kScenarios[1];
  const Reference ref = reference_for(s);
  int failures = 0;
  for (long n = 1;; ++n) {
    const std::string label = "allocation " + std::to_string(n);
    SimFileSystem disk = ref.disk;
    Zr::Ptr<kesta> db = make_log(s.rows, false, n % 2);
    const Unchanged before{*db};
    bool threw = false;
    int answer = 0;
    {
      UseFileSystem use(&disk);
      testutil::TestAllocator allocator;
      allocator.failAllocation(n);
      try {
        answer = db->save_text();
      } catch (const Zr::Exception::BadAlloc&) {
        threw = true;
      }
    }
    EXPECT_EQ(disk.openDescriptors(), 0) << label;
    EXPECT_EQ(disk.namesIn(kFolder), kOnlyTarget) << label;
    if (!threw) {
      // Allocation n was never made: every earlier one failed in turn.
      EXPECT_EQ(answer, s.rows);
      EXPECT_TRUE(disk.contents(kTarget) == ref.new_bytes);
      break;
    }
    ++failures;
    EXPECT_TRUE(disk.contents(kTarget) == ref.old_bytes) << label;
    before.check(label);
  }
  EXPECT_GT(failures, s.rows);  // every record's line allocates
}
