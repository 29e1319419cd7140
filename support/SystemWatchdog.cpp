// The watchdog's view of each thread: how deeply it is inside long operations.

#include "support/SystemWatchdog.h"

namespace {
thread_local int life_support_depth = 0;
}

void SystemWatchdog::beginLifeSupport() { ++life_support_depth; }

// An unmatched end leaves the depth at 0 rather than below it.
void SystemWatchdog::endLifeSupport() {
  if (life_support_depth > 0) --life_support_depth;
}

int SystemWatchdog::lifeSupportDepth() { return life_support_depth; }
