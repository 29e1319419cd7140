// The recursive critical section and the per-thread watchdog depth.

#include <gtest/gtest.h>

#include <thread>

#include "support/CriticalSection.h"
#include "support/SystemWatchdog.h"

TEST(CriticalSection, RecursiveAndExclusive) {
  CriticalSection cs;
  cs.enter();
  cs.enter();  // the holder may enter again
  long counter = 0;
  auto add = [&] {
    for (int i = 0; i < 100000; ++i) {
      CriticalSection::Lock hold(cs);
      ++counter;
    }
  };
  std::thread a(add), b(add);
  cs.leave();
  cs.leave();
  a.join();
  b.join();
  EXPECT_EQ(counter, 200000);
}

TEST(SystemWatchdog, DepthNestsPerThread) {
  SystemWatchdog::beginLifeSupport();
  {
    SystemWatchdog::Scope scope;
    EXPECT_EQ(SystemWatchdog::lifeSupportDepth(), 2);
    std::thread([] { EXPECT_EQ(SystemWatchdog::lifeSupportDepth(), 0); }).join();
  }
  EXPECT_EQ(SystemWatchdog::lifeSupportDepth(), 1);
  SystemWatchdog::endLifeSupport();
  SystemWatchdog::endLifeSupport();  // unmatched: stays at 0
  EXPECT_EQ(SystemWatchdog::lifeSupportDepth(), 0);
  SystemWatchdog::beginLifeSupport();
  EXPECT_EQ(SystemWatchdog::lifeSupportDepth(), 1);
  SystemWatchdog::endLifeSupport();
}
