// The allocator in force: every block of strings, counted objects and count blocks comes from
// it, and its exhaustion surfaces as Zr::Exception::BadAlloc with nothing leaked. Also string
// batches (one allocation for many strings) and Zr::Ptr counts under concurrent use.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string_view>
#include <thread>
#include <vector>

#include "common/TestUtil.h"
#include "support/GrowString.h"
#include "support/OS.h"
#include "support/StringUtils.h"
#include "support/ZrPtr.h"

namespace {

using S = LightweightString<char>;

std::atomic<int> destroyed{0};

struct Shot : iObject {
  ~Shot() override { ++destroyed; }
};

struct Plain {
  ~Plain() { ++destroyed; }
};

// Copies, appends, conversions: a bit of everything that allocates.
S string_work() {
  S a("Reel ");
  S b = a;
  b += 12;
  b += " / ";
  b += 7u;
  b += b;
  Zr::toLower(b);
  GrowString g;
  g.append(b.c_str());
  g.append(g.c_str());  // grows, and frees the smaller block
  g.append('!');
  S out = toUTF8(fromUTF8(S(g.c_str())));
  out += 0;
  return out;
}

}  // namespace

TEST(Allocator, EveryFailurePointThrowsBadAllocAndLeaksNothing) {
  long failures = 0;
  for (long n = 1;; ++n) {
    bool completed = false;
    long live = 0;
    {
      testutil::TestAllocator failing(n, true);
      try {
        EXPECT_EQ(string_work(), "reel 12 / 7reel 12 / 7reel 12 / 7reel 12 / 7!0");
        completed = true;
      } catch (const Zr::Exception::BadAlloc& e) {
        ++failures;
        EXPECT_NE(e.message(), nullptr);
      }
      live = failing.live();
    }
    EXPECT_EQ(live, 0) << "allocation " << n;
    if (completed) break;
    ASSERT_LT(n, 1000);
  }
  EXPECT_GE(failures, 8);
  testutil::TestAllocator failing(1, true);
  EXPECT_THROW(S("x"), std::bad_alloc);  // standard code sees std::bad_alloc
}

TEST(Allocator, ObjectsAndCountBlocksComeFromTheAllocator) {
  destroyed = 0;
  {
    testutil::TestAllocator counting;
    Zr::Ptr<Shot> shot(new Shot);
    EXPECT_EQ(counting.live(), 1);
    {
      Zr::Ptr<Plain, Zr::ExternalRefCountTraits> plain(new Plain);
      auto copy = plain;
      EXPECT_EQ(counting.live(), 2);  // the count block; Plain itself is the caller's
      EXPECT_EQ(copy.useCount(), 2);
    }
    EXPECT_EQ(destroyed, 1);
    shot.reset();
    EXPECT_EQ(counting.live(), 0);
  }
  testutil::TestAllocator failing(1, true);
  EXPECT_EQ(new (std::nothrow) Shot, nullptr);
  EXPECT_THROW(new Shot, Zr::Exception::BadAlloc);
  EXPECT_EQ(failing.live(), 0);
  // An object handed over whose count block cannot be made is destroyed, not leaked.
  testutil::TestAllocator no_count(1, true);
  destroyed = 0;
  EXPECT_THROW((Zr::Ptr<Plain, Zr::ExternalRefCountTraits>(new Plain)), Zr::Exception::BadAlloc);
  EXPECT_EQ(destroyed, 1);
}

TEST(Allocator, DefaultBlocksMixWithGlobalNewAndDelete) {
  // Under AddressSanitizer a malloc-based allocator fails here with an allocation mismatch.
  ::operator delete(defaultAllocator()->allocate(24));
  defaultAllocator()->release(::operator new(24));
  defaultAllocator()->release(nullptr);
  void* a = defaultAllocator()->allocate(0);
  void* b = defaultAllocator()->allocate(0);
  EXPECT_NE(a, nullptr);
  EXPECT_NE(a, b);
  defaultAllocator()->release(a);
  defaultAllocator()->release(b);
}

#if defined(__SANITIZE_ADDRESS__)
#define KESTA_UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KESTA_UNDER_ASAN 1
#endif
#endif

#ifndef KESTA_UNDER_ASAN
// AddressSanitizer aborts on impossible sizes instead of throwing, so this runs without it.
TEST(Allocator, ExhaustionOfTheDefaultThrowsBadAlloc) {
  EXPECT_THROW(defaultAllocator()->allocate(SIZE_MAX / 2), Zr::Exception::BadAlloc);
}
#endif

// Strings made together share one allocation, which goes only with the last of them.
TEST(StringBatch, TextsShareOneAllocationFreedWithTheLastString) {
  testutil::TestAllocator counting;
  {
    const std::string_view texts[] = {"Reel 1", "", "A", "a longer note, with \"quotes\"", "", "7"};
    std::vector<S> out(std::size(texts));
    S::makeBatch(texts, std::size(texts), out.data());
    EXPECT_EQ(counting.calls(), 1);
    for (std::size_t i = 0; i < std::size(texts); ++i) {
      EXPECT_EQ(out[i].view(), texts[i]) << i;
      EXPECT_EQ(out[i].c_str()[texts[i].size()], '\0') << i;
      EXPECT_EQ(out[i].isNull(), texts[i].empty()) << i;
      EXPECT_EQ(out[i].capacity(), texts[i].size()) << i;
    }
    EXPECT_EQ(out[0].shareCount(), 4);  // the four bodies keep the batch
    S kept = out[3];
    EXPECT_EQ(out[0].shareCount(), 5);
    S grown = out[0];  // a writer never writes into the batch
    grown += " (B)";
    EXPECT_EQ(grown, "Reel 1 (B)");
    EXPECT_EQ(out[0], "Reel 1");
    EXPECT_EQ(out[2], "A");
    const long before_clear = counting.live();
    out.clear();
    EXPECT_EQ(counting.live(), before_clear);
    EXPECT_EQ(kept, "a longer note, with \"quotes\"");
    EXPECT_EQ(kept.shareCount(), 1);
    kept.clear();
    EXPECT_EQ(counting.live(), before_clear - 1);

    // All-empty texts allocate nothing and empty the handles.
    std::vector<S> again = {S("x"), S("y")};
    const std::string_view none[] = {"", ""};
    const long calls = counting.calls();
    S::makeBatch(none, 2, again.data());
    EXPECT_EQ(counting.calls(), calls);
    EXPECT_TRUE(again[0].isNull() && again[1].isNull());

    // Replacing a batch's texts releases the old batch.
    const long base = counting.live();
    std::vector<S> fields(3);
    for (int round = 0; round < 5; ++round) {
      const std::string text = "take " + std::to_string(round);
      const std::string_view batch[] = {text, "Sc 12", text};
      S::makeBatch(batch, 3, fields.data());
      EXPECT_EQ(fields[2], text.c_str());
      EXPECT_EQ(counting.live(), base + 1) << "round " << round;
    }
  }
  EXPECT_EQ(counting.live(), 0);
}

TEST(ZrPtr, CopiesAndReleasesFromTwoThreadsKeepOneCount) {
  destroyed = 0;
  Zr::Ptr<Shot> shared(new Shot);
  auto churn = [&shared] {
    for (int i = 0; i < 200000; ++i) {
      Zr::Ptr<Shot> copy(shared);
      Zr::Ptr<Shot> again;
      again = copy;
      Zr::Ptr<Shot> moved(std::move(copy));
    }
  };
  std::thread a(churn), b(churn);
  a.join();
  b.join();
  EXPECT_EQ(shared.useCount(), 1);
  EXPECT_EQ(destroyed, 0);
  shared = nullptr;
  EXPECT_EQ(destroyed, 1);

  // Racing last releases destroy each object once.
  destroyed = 0;
  constexpr int kObjects = 20000;
  std::vector<Zr::Ptr<Shot>> left, right;
  for (int i = 0; i < kObjects; ++i) {
    left.emplace_back(new Shot);
    right.push_back(left.back());
  }
  std::atomic<bool> go{false};
  auto drain = [&go](std::vector<Zr::Ptr<Shot>>& holders) {
    while (!go) std::this_thread::yield();
    for (auto& p : holders) p.reset();
  };
  std::thread c(drain, std::ref(left)), d(drain, std::ref(right));
  go = true;
  c.join();
  d.join();
  EXPECT_EQ(destroyed, kObjects);

  // Intrusive: a second wrap of a raw pointer and a base-class pointer join the same count.
  destroyed = 0;
  Shot* raw = new Shot;
  Zr::Ptr<Shot> first(raw), second(raw);
  Zr::Ptr<iObject> base(first);
  EXPECT_EQ(first.useCount(), 3);
  EXPECT_TRUE(base.get() == static_cast<iObject*>(raw));
  first.reset();
  second.reset();
  EXPECT_EQ(destroyed, 0);
  base.reset();
  EXPECT_EQ(destroyed, 1);
}
