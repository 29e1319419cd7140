// Zr::Ptr counts under concurrent copies and releases: one count per object, one destruction.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/ZrPtr.h"

namespace {

std::atomic<int> destroyed{0};

struct Clip : iObject {
  ~Clip() override { ++destroyed; }
};

}  // namespace

TEST(ZrPtr, CopiesFromTwoThreadsKeepTheCount) {
  destroyed = 0;
  Zr::Ptr<Clip> shared(new Clip);
  auto churn = [&shared] {
    for (int i = 0; i < 200000; ++i) {
      Zr::Ptr<Clip> copy(shared);
      Zr::Ptr<Clip> again;
      again = copy;
      Zr::Ptr<Clip> moved(std::move(copy));
    }
  };
  std::thread a(churn), b(churn);
  a.join();
  b.join();
  EXPECT_EQ(shared.useCount(), 1);
  EXPECT_EQ(destroyed, 0);
  shared = nullptr;
  EXPECT_EQ(destroyed, 1);
}

TEST(ZrPtr, RacingLastReleasesDestroyEachObjectOnce) {
  destroyed = 0;
  constexpr int kObjects = 20000;
  std::vector<Zr::Ptr<Clip>> left, right;
  for (int i = 0; i < kObjects; ++i) {
    Zr::Ptr<Clip> clip(new Clip);
    left.push_back(clip);
    right.push_back(clip);
  }
  EXPECT_EQ(left.front().useCount(), 2);
  std::atomic<bool> go{false};
  auto drain = [&go](std::vector<Zr::Ptr<Clip>>& holders) {
    while (!go) std::this_thread::yield();
    for (auto& p : holders) p.reset();
  };
  std::thread a(drain, std::ref(left)), b(drain, std::ref(right));
  go = true;
  a.join();
  b.join();
  EXPECT_EQ(destroyed, kObjects);
}

TEST(ZrPtr, ConversionAndRawAdoptionShareOneCount) {
  destroyed = 0;
  Clip* raw = new Clip;
  Zr::Ptr<Clip> first(raw);
  Zr::Ptr<Clip> second(raw);  // intrusive: a second wrap joins the same count
  Zr::Ptr<iObject> base(first);
  EXPECT_EQ(first.useCount(), 3);
  EXPECT_TRUE(base.get() == static_cast<iObject*>(raw));
  first.reset();
  second.reset();
  EXPECT_EQ(destroyed, 0);
  base.reset();
  EXPECT_EQ(destroyed, 1);
}
