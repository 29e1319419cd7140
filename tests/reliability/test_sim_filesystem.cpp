// The simulated disk keeps exactly what it promises across a power loss: the fault tests are
// only as strict as this model.

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "SimFileSystem.h"

using Unflushed = SimFileSystem::Unflushed;

namespace {

void write_file(SimFileSystem& disk, const std::string& path, const std::string& bytes, bool flush) {
  const int fd = disk.open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(disk.write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  if (flush) {
    ASSERT_EQ(disk.fsync(fd), 0);
  }
  ASSERT_EQ(disk.close(fd), 0);
}

}  // namespace

TEST(SimFileSystem, PowerLossKeepsFlushedDataAndNamesOnly) {
  struct Case {
    bool flush_data;
    bool flush_folder;
    Unflushed unflushed;
    bool present;
    std::string contents;
  };
  const Case cases[] = {
      {true, true, Unflushed::kLost, true, "abcdefgh"},        {true, false, Unflushed::kLost, false, ""},
      {false, true, Unflushed::kLost, true, ""},               {false, true, Unflushed::kHalfWritten, true, "abcd"},
      {false, true, Unflushed::kKept, true, "abcdefgh"},       {false, false, Unflushed::kKept, true, "abcdefgh"},
      {false, false, Unflushed::kHalfWritten, false, ""},
  };
  for (const Case& c : cases) {
    SimFileSystem disk;
    disk.makeFolder("/d");
    write_file(disk, "/d/f", "abcdefgh", c.flush_data);
    if (c.flush_folder) {
      ASSERT_EQ(disk.syncDirectory("/d"), 0);
    }
    SimFileSystem after = disk.afterPowerLoss(c.unflushed);
    EXPECT_EQ(after.hasFile("/d/f"), c.present) << c.flush_data << c.flush_folder;
    EXPECT_EQ(after.contents("/d/f"), c.contents) << c.flush_data << c.flush_folder;
  }
}

TEST(SimFileSystem, RenameIsOneNameChangeAndUnflushedRenamesRollBack) {
  SimFileSystem disk;
  disk.makeFolder("/d");
  disk.putFile("/d/target", "old");
  write_file(disk, "/d/temp", "new", true);
  ASSERT_EQ(disk.rename("/d/temp", "/d/target"), 0);
  EXPECT_EQ(disk.namesIn("/d"), std::vector<std::string>{"target"});
  // Two unflushed changes: the new name, then the rename. Half keeps the first one only.
  const SimFileSystem half = disk.afterPowerLoss(Unflushed::kHalfWritten);
  EXPECT_EQ(half.contents("/d/target"), "old");
  EXPECT_EQ(half.contents("/d/temp"), "new");
  const SimFileSystem lost = disk.afterPowerLoss(Unflushed::kLost);
  EXPECT_EQ(lost.namesIn("/d"), std::vector<std::string>{"target"});
  EXPECT_EQ(lost.contents("/d/target"), "old");
  const SimFileSystem kept = disk.afterPowerLoss(Unflushed::kKept);
  EXPECT_EQ(kept.namesIn("/d"), std::vector<std::string>{"target"});
  EXPECT_EQ(kept.contents("/d/target"), "new");
}

TEST(SimFileSystem, FaultsCountsAndDescriptors) {
  SimFileSystem disk;
  disk.makeFolder("/d");
  disk.failCall(2, ENOSPC);
  const int fd = disk.open("/d/f", O_WRONLY | O_CREAT | O_EXCL, 0666);
  ASSERT_GE(fd, 0);
  errno = 0;
  EXPECT_EQ(disk.write(fd, "abc", 3), -1);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(disk.contents("/d/f"), "");  // a failed call does nothing
  EXPECT_EQ(disk.write(fd, "abc", 3), 3);
  EXPECT_EQ(disk.openDescriptors(), 1);
  disk.failEvery(SimFileSystem::Call::kClose, EIO);
  EXPECT_EQ(disk.close(fd), -1);
  EXPECT_EQ(disk.openDescriptors(), 0);  // released all the same, as Linux does
  EXPECT_EQ(disk.calls(), 4u);
  EXPECT_EQ(disk.open("/d/f", O_WRONLY | O_CREAT | O_EXCL, 0666), -1);
  EXPECT_EQ(errno, EEXIST);

  disk.clearFaults();
  disk.setMaxTransfer(2);
  disk.setSpaceLimit(5);
  const int again = disk.open("/d/g", O_WRONLY | O_CREAT, 0666);
  EXPECT_EQ(disk.write(again, "wxyz", 4), 2);  // short
  EXPECT_EQ(disk.write(again, "yz", 2), -1);   // the two files hold five bytes: full
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(disk.close(again), 0);
  EXPECT_EQ(disk.contents("/d/g"), "wx");
}

TEST(SimFileSystem, CrashBeforeACallRemembersTheDiskBeforeIt) {
  SimFileSystem disk;
  disk.makeFolder("/d");
  disk.crashBeforeCall(4);  // open, write, fsync, then the close
  write_file(disk, "/d/f", "data", true);
  ASSERT_EQ(disk.syncDirectory("/d"), 0);
  EXPECT_TRUE(disk.crashed());
  EXPECT_FALSE(disk.afterPowerLoss(Unflushed::kLost).hasFile("/d/f"));
  EXPECT_EQ(disk.afterPowerLoss(Unflushed::kKept).contents("/d/f"), "data");
}
