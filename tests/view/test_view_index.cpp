// The row index behind views against the flat slot array of the reference model, over sizes
// that span many blocks, tombstone sweeps and rebuilds; and the cost of one-by-one removals.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "common/TestUtil.h"
#include "view/ViewIndex.h"
#include "view/ViewModel.h"

namespace {

using viewmodel::Slot;

class IndexPair {
 public:
  explicit IndexPair(unsigned seed) : flat_(0), rng_(seed) { flat_.addView(); }

  int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }
  std::vector<Slot>& slots() { return flat_.views[0].slots; }
  int& count() { return flat_.views[0].count; }

  // Rows near the wrap, 0, or small.
  uint32_t value() {
    const int kind = pick(0, 5);
    return kind == 0   ? 4294967295u - static_cast<uint32_t>(pick(0, 3))
           : kind == 1 ? 0
                       : static_cast<uint32_t>(pick(0, 60));
  }

  void insert(int at, int n, bool sorted, int written, uint32_t shift) {
    std::vector<uint32_t> rows;
    const uint32_t start = value();
    for (int i = 0; i < written; ++i) rows.push_back(sorted ? start + static_cast<uint32_t>(i) : value());
    index_.sizeFor(index_.size() + n, index_.size());
    index_.insertSlots(at, n, rows.data(), written, shift);
    flat_.open(0, at, n, rows, shift);
  }

  void removeFromIndex(int first, int n) {
    const int before = index_.size();
    index_.removeRange(first, n);
    index_.sizeFor(before - n, before);
  }

  std::string step() {
    std::ostringstream what;
    const int size = count();
    flat_.log.clear();
    switch (pick(0, 9)) {
      case 0:
      case 1: {
        const int at = pick(0, size), n = pick(0, pick(0, 1) ? 5 : 400), written = pick(0, 3) ? n : pick(0, n);
        const uint32_t shift = pick(0, 3) ? 0 : static_cast<uint32_t>(n);
        insert(at, n, pick(0, 2) != 0, written, shift);
        what << "insert(" << at << ", " << n << ", written " << written << ", shift " << shift << ")";
        break;
      }
      case 2: {
        if (size == 0) break;
        const int first = pick(0, size - 1), n = pick(0, std::min(size - first, pick(0, 1) ? 3 : 500));
        removeFromIndex(first, n);
        flat_.remove(0, first, n);
        what << "remove(" << first << ", " << n << ")";
        break;
      }
      case 3:
      case 4: {
        // One token of the deletion walk as the views run it; the model goes entry by entry.
        const int64_t named = pick(0, 4) == 0 ? -1 : pick(0, 62);
        for (int j = 0; j < index_.size();) {
          const int hit = index_.findEqual(j, named);
          index_.decrementAbove(j, hit < 0 ? index_.size() : hit, named);
          if (hit < 0) break;
          removeFromIndex(hit, 1);
          j = hit;
        }
        flat_.recordsDeleted(0, std::to_string(named));
        what << "walk(" << named << ")";
        break;
      }
      case 5:
        for (int k = 0; k < 8 && size > 0; ++k) {
          const int i = pick(0, size - 1);
          const uint8_t tag = static_cast<uint8_t>(pick(0, 1));
          index_.setTag(i, tag);
          slots()[i].tag = tag;
          if (pick(0, 1)) {
            const uint32_t row = value();
            index_.setRow(i, row);
            slots()[i].row = row;
          }
        }
        what << "set rows and tags";
        break;
      case 6: {
        const int from = pick(-2, size + 1), to = pick(from, size + 2);
        const int64_t threshold = pick(-2, 62);
        index_.decrementAbove(from, to, threshold);
        for (int i = std::max(from, 0); i < std::min(to, size); ++i) {
          if (slots()[i].row > threshold) --slots()[i].row;
        }
        what << "decrementAbove(" << from << ", " << to << ", " << threshold << ")";
        break;
      }
      case 7: {
        std::vector<ViewIndex::Entry> live;
        for (int i = 0; i < size; ++i) live.push_back({slots()[i].row, slots()[i].tag});
        std::shuffle(live.begin(), live.end(), rng_);
        index_.assign(live);
        for (int i = 0; i < size; ++i) slots()[i] = Slot{live[i].row, live[i].tag};
        what << "assign(shuffled)";
        break;
      }
      case 8: {
        // Reveals the stale slots: opens them at the end without writing rows.
        const int n = pick(0, std::min(60, static_cast<int>(slots().size()) - size + 30));
        insert(size, n, true, 0, 0);
        what << "open " << n << " unwritten at the end";
        break;
      }
      default:
        if (pick(0, 3) == 0) {
          index_.release();
          flat_.clear(0);
          what << "release";
        } else {
          index_.truncate();
          count() = 0;
          what << "truncate";
        }
    }
    return what.str();
  }

  std::string compare() {
    std::ostringstream diff;
    if (index_.size() != count() || index_.capacity() != static_cast<int>(slots().size())) {
      diff << "size " << index_.size() << "/" << index_.capacity() << ", flat " << count() << "/" << slots().size();
      return diff.str();
    }
    const std::vector<ViewIndex::Entry> live = index_.entries();
    int tags = 0;
    for (std::size_t i = 0; i < live.size(); ++i) {
      const Slot& want = slots()[i];
      tags += want.tag;
      if (live[i].row != want.row || live[i].tag != want.tag) {
        diff << "entry " << i << " is " << live[i].row << ":" << int(live[i].tag) << ", flat " << want.row << ":"
             << int(want.tag);
        return diff.str();
      }
    }
    // Point reads and a search from a random row.
    if (count() > 0) {
      const int i = pick(0, count() - 1), from = pick(0, i);
      const Slot& slot = slots()[i];
      if (index_.row(i) != slot.row || index_.tag(i) != slot.tag) return "point read of entry " + std::to_string(i);
      int first = from;
      while (slots()[first].row != slot.row) ++first;
      if (index_.findEqual(from, slot.row) != first) return "findEqual from " + std::to_string(from);
    }
    if (index_.countTags() != tags) return "countTags";
    std::string why;
    return index_.check(&why) ? std::string() : why;
  }

 private:
  ViewIndex index_;
  viewmodel::World flat_;
  std::mt19937 rng_;
};

TEST(ViewIndex, AgreesWithAFlatArrayOfSlots) {
  for (unsigned seed = 1; seed <= 60; ++seed) {
    IndexPair pair(seed);
    std::string trail;
    for (int step = 0; step < 400; ++step) {
      trail += "  " + pair.step() + "\n";
      if (trail.size() > 4000) trail.erase(0, trail.size() - 4000);
      ASSERT_EQ(pair.compare(), "") << "seed " << seed << ", step " << step << ", recent operations:\n" << trail;
    }
  }
}

TEST(ViewIndex, RemovalsOneAtATimeAllocateInProportionToTheRows) {
  // Room for the removed entries is made before each removal; made exactly, it would copy
  // every removed entry again on each call and a view's deletion would go quadratic.
  constexpr int kRows = 20000;
  ViewIndex index;
  index.sizeFor(kRows, 0);
  std::vector<uint32_t> rows(kRows);
  for (int i = 0; i < kRows; ++i) rows[i] = static_cast<uint32_t>(i);
  index.insertSlots(0, kRows, rows.data(), kRows, 0);
  std::size_t bytes = 0;
  {
    testutil::TestAllocator counted;
    for (int i = 0; i < kRows / 2; ++i) index.removeRange(i, 1);
    bytes = counted.bytes();
  }
  EXPECT_EQ(index.size(), kRows / 2);
  EXPECT_EQ(index.row(0), 1u);
  EXPECT_EQ(index.row(kRows / 2 - 1), static_cast<uint32_t>(kRows - 1));
  EXPECT_LT(bytes, std::size_t{64} * kRows * sizeof(ViewIndex::Entry));
}

}  // namespace
