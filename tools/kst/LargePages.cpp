// Large pages for malloc's heap, where glibc and the kernel allow them.

#include "LargePages.h"

#include <cstdint>
#include <vector>

#if defined(__GLIBC__) && __has_include(<malloc.h>)
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>
#define KST_LARGE_PAGES 1
#endif

namespace kst {

#if defined(KST_LARGE_PAGES) && defined(MADV_HUGEPAGE)

namespace {

constexpr std::uintptr_t kLargePage = std::uintptr_t{2} << 20;
constexpr std::size_t kMostReach = std::size_t{1} << 30;
// Below malloc's default threshold for mapping a block apart, so these come from the heap.
constexpr std::size_t kStep = 64 << 10;
constexpr int kMostSteps = 64;

std::size_t reach() {
  long pages = sysconf(_SC_PHYS_PAGES);
  long size = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || size <= 0) return 0;
  std::size_t eighth = static_cast<std::size_t>(pages) / 8 * static_cast<std::size_t>(size);
  return eighth < kMostReach ? eighth : kMostReach;
}

}  // namespace

void adviseLargePagesForHeap() {
  const std::size_t want = reach();
  if (want < 4 * kLargePage) return;
  // The next growth of the heap asks for the whole reach at once. The pad goes back to its
  // default after, so that no later growth asks for that much; the trim threshold keeps the
  // heap from handing the reach back while kst runs.
  if (mallopt(M_TOP_PAD, static_cast<int>(want)) != 1) return;
  const auto start = reinterpret_cast<std::uintptr_t>(sbrk(0));
  std::vector<void*> steps;
  steps.reserve(kMostSteps);
  auto end = start;
  for (int i = 0; i < kMostSteps && end == start; ++i) {
    void* block = malloc(kStep);
    if (!block) break;
    steps.push_back(block);
    end = reinterpret_cast<std::uintptr_t>(sbrk(0));
  }
  const std::uintptr_t from = (start + kLargePage - 1) & ~(kLargePage - 1);
  const std::uintptr_t to = end & ~(kLargePage - 1);
  if (end != static_cast<std::uintptr_t>(-1) && to > from) {
    madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE);
  }
  mallopt(M_TOP_PAD, 128 << 10);
  mallopt(M_TRIM_THRESHOLD, static_cast<int>(want + want / 2));
  for (void* block : steps) free(block);
}

#else

void adviseLargePagesForHeap() {}

#endif

}  // namespace kst
