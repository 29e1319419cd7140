// The row index behind views, against a flat array of slots: capacity rule, slots keeping
// their contents as they leave and re-enter the live range, and the two queries of the
// deletion walk (find an equal row, decrement the rows above one, 0 wrapping), over sizes
// that span many blocks, tombstone sweeps and rebuilds.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "common/TestUtil.h"
#include "view/ViewIndex.h"

namespace {

// The obvious implementation: a vector of `capacity` slots, the first `count` live.
struct Flat {
  std::vector<ViewIndex::Entry> slots;
  int count = 0;

  void sizeFor(int wanted, int copy_limit) {
    if (wanted == 0) {
      slots.clear();
      count = 0;
      return;
    }
    const int target = std::max(wanted, 20);
    const int capacity = static_cast<int>(slots.size());
    const int resized =
        target <= capacity ? (capacity <= 2 * target ? capacity : capacity / 2) : std::max(2 * capacity, target);
    if (resized == capacity) return;
    std::vector<ViewIndex::Entry> fresh(static_cast<std::size_t>(resized));
    const int copied = resized < copy_limit ? target : copy_limit;
    std::copy(slots.begin(), slots.begin() + copied, fresh.begin());
    slots = fresh;
  }
  void insert(int at, int n, const std::vector<uint32_t>& rows, uint32_t shift) {
    for (int i = count - 1; i >= at; --i) {
      slots[static_cast<std::size_t>(i + n)] = slots[static_cast<std::size_t>(i)];
      slots[static_cast<std::size_t>(i + n)].row += shift;
    }
    for (std::size_t i = 0; i < rows.size(); ++i) slots[static_cast<std::size_t>(at) + i].row = rows[i];
    count += n;
  }
  void remove(int first, int n) {
    for (int i = first; i + n < count; ++i) slots[static_cast<std::size_t>(i)] = slots[static_cast<std::size_t>(i + n)];
    count -= n;
  }
  int findEqual(int from, int64_t row) const {
    for (int i = std::max(from, 0); i < count; ++i) {
      if (slots[static_cast<std::size_t>(i)].row == row) return i;
    }
    return -1;
  }
  void decrementAbove(int from, int to, int64_t threshold) {
    for (int i = std::max(from, 0); i < std::min(to, count); ++i) {
      if (slots[static_cast<std::size_t>(i)].row > threshold) --slots[static_cast<std::size_t>(i)].row;
    }
  }
};

class IndexPair {
 public:
  explicit IndexPair(unsigned seed) : rng_(seed) {}

  int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }

  uint32_t value() {
    switch (pick(0, 5)) {
      case 0:
        return 4294967295u - static_cast<uint32_t>(pick(0, 3));
      case 1:
        return 0;
      default:
        return static_cast<uint32_t>(pick(0, 60));
    }
  }

  void insert(int at, int n, bool sorted, int written, uint32_t shift) {
    std::vector<uint32_t> rows;
    const uint32_t start = value();
    for (int i = 0; i < written; ++i) rows.push_back(sorted ? start + static_cast<uint32_t>(i) : value());
    index_.sizeFor(index_.size() + n, index_.size());
    flat_.sizeFor(flat_.count + n, flat_.count);
    index_.insertSlots(at, n, rows.data(), written, shift);
    flat_.insert(at, n, rows, shift);
  }

  void remove(int first, int n) {
    const int before = index_.size();
    index_.removeRange(first, n);
    index_.sizeFor(before - n, before);
    flat_.remove(first, n);
    flat_.sizeFor(before - n, before);
  }

  std::string step() {
    std::ostringstream what;
    const int size = flat_.count;
    switch (pick(0, 9)) {
      case 0:
      case 1: {
        const int at = pick(0, size), n = pick(0, pick(0, 1) ? 5 : 400), written = pick(0, 3) ? n : pick(0, n);
        const bool sorted = pick(0, 2) != 0;
        const uint32_t shift = pick(0, 3) ? 0 : static_cast<uint32_t>(n);
        insert(at, n, sorted, written, shift);
        what << "insert(" << at << ", " << n << ", written " << written << ", shift " << shift << ")";
        break;
      }
      case 2: {
        if (size == 0) break;
        const int first = pick(0, size - 1), n = pick(0, std::min(size - first, pick(0, 1) ? 3 : 500));
        remove(first, n);
        what << "remove(" << first << ", " << n << ")";
        break;
      }
      case 3:
      case 4: {
        // One token of the deletion walk: as the views run it, and entry by entry.
        const int64_t named = pick(0, 4) == 0 ? -1 : pick(0, 62);
        int j = 0;
        while (j < index_.size()) {
          const int hit = index_.findEqual(j, named);
          index_.decrementAbove(j, hit < 0 ? index_.size() : hit, named);
          if (hit < 0) break;
          const int before = index_.size();
          index_.removeRange(hit, 1);
          index_.sizeFor(before - 1, before);
          j = hit;
        }
        j = 0;
        while (j < flat_.count) {
          ViewIndex::Entry& e = flat_.slots[static_cast<std::size_t>(j)];
          if (e.row > named) {
            --e.row;
            ++j;
          } else if (e.row == named) {
            const int before = flat_.count;
            flat_.remove(j, 1);
            flat_.sizeFor(before - 1, before);
          } else {
            ++j;
          }
        }
        what << "walk(" << named << ")";
        break;
      }
      case 5: {
        if (size == 0) break;
        for (int k = 0; k < 8; ++k) {
          const int i = pick(0, size - 1);
          const uint8_t tag = static_cast<uint8_t>(pick(0, 1));
          index_.setTag(i, tag);
          flat_.slots[static_cast<std::size_t>(i)].tag = tag;
          if (pick(0, 1)) {
            const uint32_t row = value();
            index_.setRow(i, row);
            flat_.slots[static_cast<std::size_t>(i)].row = row;
          }
        }
        what << "set rows and tags";
        break;
      }
      case 6: {
        const int from = pick(-2, size + 1), to = pick(from, size + 2);
        const int64_t threshold = pick(-2, 62);
        index_.decrementAbove(from, to, threshold);
        flat_.decrementAbove(from, to, threshold);
        what << "decrementAbove(" << from << ", " << to << ", " << threshold << ")";
        break;
      }
      case 7: {
        std::vector<ViewIndex::Entry> live(flat_.slots.begin(), flat_.slots.begin() + size);
        std::shuffle(live.begin(), live.end(), rng_);
        index_.assign(live);
        std::copy(live.begin(), live.end(), flat_.slots.begin());
        what << "assign(shuffled)";
        break;
      }
      case 8: {
        // Reveal the stale slots: open them at the end without writing rows.
        const int n = pick(0, std::min(60, static_cast<int>(flat_.slots.size()) - size + 30));
        insert(size, n, true, 0, 0);
        what << "open " << n << " unwritten at the end";
        break;
      }
      default: {
        if (pick(0, 3) == 0) {
          index_.release();
          flat_.slots.clear();
          flat_.count = 0;
          what << "release";
        } else {
          index_.truncate();
          flat_.count = 0;
          what << "truncate";
        }
      }
    }
    return what.str();
  }

  std::string compare() {
    std::ostringstream diff;
    if (index_.size() != flat_.count || index_.capacity() != static_cast<int>(flat_.slots.size())) {
      diff << "size " << index_.size() << "/" << index_.capacity() << ", flat " << flat_.count << "/"
           << flat_.slots.size();
      return diff.str();
    }
    const std::vector<ViewIndex::Entry> live = index_.entries();
    int tags = 0;
    for (int i = 0; i < flat_.count; ++i) {
      const ViewIndex::Entry& want = flat_.slots[static_cast<std::size_t>(i)];
      tags += want.tag;
      if (live[static_cast<std::size_t>(i)].row != want.row || live[static_cast<std::size_t>(i)].tag != want.tag) {
        diff << "entry " << i << " is " << live[static_cast<std::size_t>(i)].row << ":"
             << int(live[static_cast<std::size_t>(i)].tag) << ", flat " << want.row << ":" << int(want.tag);
        return diff.str();
      }
    }
    for (int k = 0; k < 4 && flat_.count > 0; ++k) {
      const int i = pick(0, flat_.count - 1);
      if (index_.row(i) != flat_.slots[static_cast<std::size_t>(i)].row ||
          index_.tag(i) != flat_.slots[static_cast<std::size_t>(i)].tag) {
        return "point read of entry " + std::to_string(i);
      }
      const int64_t probe = pick(0, 3) ? flat_.slots[static_cast<std::size_t>(i)].row : pick(-1, 70);
      const int from = pick(0, flat_.count);
      if (index_.findEqual(from, probe) != flat_.findEqual(from, probe)) {
        return "findEqual(" + std::to_string(from) + ", " + std::to_string(probe) + ")";
      }
    }
    if (index_.countTags() != tags) return "countTags";
    std::string why;
    if (!index_.check(&why)) return why;
    return {};
  }

 private:
  std::mt19937 rng_;
  ViewIndex index_;
  Flat flat_;
};

TEST(ViewIndex, AgreesWithAFlatArrayOfSlots) {
  for (unsigned seed = 1; seed <= 60; ++seed) {
    IndexPair pair(seed);
    std::string trail;
    for (int step = 0; step < 400; ++step) {
      const std::string what = pair.step();
      trail += "  " + what + "\n";
      if (trail.size() > 4000) trail.erase(0, trail.size() - 4000);
      const std::string diff = pair.compare();
      ASSERT_EQ(diff, "") << "seed " << seed << ", step " << step << ", recent operations:\n" << trail;
    }
  }
}

TEST(ViewIndex, CapacityFollowsTheGrowthAndShrinkRule) {
  ViewIndex index;
  const uint32_t row = 7;
  struct Step {
    int wanted;
    int copy_limit;
    int capacity;
  };
  // Minimum 20; doubling, or straight to a larger target; one halving per call, only when
  // the capacity exceeds twice the target; 0 releases.
  const Step steps[] = {{1, 0, 20},  {20, 0, 20}, {21, 0, 40}, {100, 0, 100}, {101, 0, 200}, {60, 0, 100},
                        {40, 0, 50}, {10, 0, 25}, {10, 0, 25}, {30, 0, 50},   {0, 0, 0},     {5, 0, 20}};
  for (const Step& s : steps) {
    index.sizeFor(s.wanted, s.copy_limit);
    EXPECT_EQ(index.capacity(), s.capacity) << "after sizeFor(" << s.wanted << ")";
  }
  index.insertSlots(0, 1, &row, 1, 0);
  EXPECT_EQ(index.size(), 1);
  EXPECT_EQ(index.row(0), 7u);
}

TEST(ViewIndex, RemovalsOneAtATimeAllocateInProportionToTheRows) {
  // Room for the removed entries is made before each removal; made exactly, it would copy
  // every removed entry again on each call and a view's deletion would go quadratic.
  constexpr int kRows = 20000;
  ViewIndex index;
  index.sizeFor(kRows, 0);
  std::vector<uint32_t> rows(kRows);
  for (int i = 0; i < kRows; ++i) rows[static_cast<std::size_t>(i)] = static_cast<uint32_t>(i);
  index.insertSlots(0, kRows, rows.data(), kRows, 0);

  std::size_t bytes = 0;
  {
    testutil::CountedBytes counted;
    for (int i = 0; i < kRows / 2; ++i) index.removeRange(i, 1);
    bytes = counted.bytes();
  }

  EXPECT_EQ(index.size(), kRows / 2);
  EXPECT_EQ(index.row(0), 1u);
  EXPECT_EQ(index.row(kRows / 2 - 1), static_cast<uint32_t>(kRows - 1));
  EXPECT_LT(bytes, std::size_t{64} * kRows * sizeof(ViewIndex::Entry));
}

}  // namespace
