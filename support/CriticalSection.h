#ifndef KESTA_SUPPORT_CRITICALSECTION_H
#define KESTA_SUPPORT_CRITICALSECTION_H
// CriticalSection: a recursive mutual-exclusion lock; the thread that holds it may enter again.
//
//   CriticalSection cs;
//   { CriticalSection::Lock hold(cs); ... }
//
// Thread safety: that is its purpose.

#include <mutex>

#include "support/Export.h"

class KESTA_SUPPORT_API CriticalSection {
 public:
  CriticalSection();
  ~CriticalSection();
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  void enter();
  void leave();

  class Lock {
   public:
    explicit Lock(CriticalSection& cs) : cs_(cs) { cs_.enter(); }
    ~Lock() { cs_.leave(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    CriticalSection& cs_;
  };

 private:
  std::recursive_mutex mutex_;
};

#endif
