// Strings made together in one allocation: each reads as its own text, copies share, a writer
// copies first, and the allocation goes only with the last string of the batch.

#include <gtest/gtest.h>

#include <atomic>
#include <string_view>
#include <vector>

#include "support/LightweightString.h"
#include "support/OS.h"

namespace {

using S = LightweightString<char>;

class CountingAllocator : public iAllocator {
 public:
  void* allocate(std::size_t size) override {
    ++calls_;
    ++live_;
    return defaultAllocator()->allocate(size);
  }
  void release(void* block) noexcept override {
    if (!block) return;
    --live_;
    defaultAllocator()->release(block);
  }
  long calls() const { return calls_; }
  long live() const { return live_; }

 private:
  std::atomic<long> calls_{0};
  std::atomic<long> live_{0};
};

class Installed {
 public:
  explicit Installed(iAllocator* a) : previous_(setAllocator(a)) {}
  ~Installed() { setAllocator(previous_); }

 private:
  iAllocator* previous_;
};

TEST(StringBatch, TextsShareOneAllocationFreedWithTheLastString) {
  CountingAllocator counting;
  Installed installed(&counting);
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

    // A copy outlives the rest of the batch, which stays allocated for it alone.
    S kept = out[3];
    EXPECT_EQ(out[0].shareCount(), 5);
    // A writer never writes into the batch: the others keep their texts.
    S grown = out[0];
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
    EXPECT_TRUE(again[0].isNull());
    EXPECT_TRUE(again[1].isNull());
  }
  EXPECT_EQ(counting.live(), 0);
}

TEST(StringBatch, ReplacingBatchTextsReleasesTheOldBatch) {
  CountingAllocator counting;
  Installed installed(&counting);
  {
    std::vector<S> fields(3);
    for (int round = 0; round < 5; ++round) {
      const std::string text = "take " + std::to_string(round);
      const std::string_view texts[] = {text, "Sc 12", text};
      S::makeBatch(texts, 3, fields.data());
      EXPECT_EQ(fields[0], text.c_str());
      EXPECT_EQ(fields[2], text.c_str());
      EXPECT_EQ(counting.live(), 1) << "round " << round;
    }
  }
  EXPECT_EQ(counting.live(), 0);
}

}  // namespace
