#ifndef KESTA_SUPPORT_SYSTEMWATCHDOG_H
#define KESTA_SUPPORT_SYSTEMWATCHDOG_H
// SystemWatchdog: long operations announce themselves so that the application's watchdog does
// not take the thread for hung. Calls come in matched pairs and nest; they never block.
//
//   SystemWatchdog::beginLifeSupport();  ... long work ...  SystemWatchdog::endLifeSupport();
//
// Thread safety: the nesting count is per thread.

#include "support/Export.h"

class KESTA_SUPPORT_API SystemWatchdog {
 public:
  static void beginLifeSupport();
  static void endLifeSupport();
  // The calling thread's nesting depth (0 outside any bracket).
  static int lifeSupportDepth();

  // Brackets a scope.
  class Scope {
   public:
    Scope() { beginLifeSupport(); }
    ~Scope() { endLifeSupport(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
  };
};

#endif
