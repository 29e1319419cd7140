// RecordList: the gap buffer behind the database's full record list.
//
// Moving a Zr::Ptr leaves its source null, so every entry that a gap move or an erase vacates
// holds no record without further work (invariant 2).

#include "record/RecordList.h"

#include <algorithm>
#include <utility>

#include "support/ReserveAtLeast.h"

namespace {

// Room added when the gap must grow away from the end: a share of the list, so that a run of
// insertions in the middle costs amortised constant moves per entry.
std::size_t middle_growth(std::size_t live, std::size_t wanted) { return std::max(wanted, live / 2 + 16); }

}  // namespace

RecordList::RecordList() = default;

RecordList::~RecordList() = default;

void RecordList::push_back(Entry record) {
  move_gap(size());
  grow_gap(1);
  storage_[gap_start_] = std::move(record);
  ++gap_start_;
  --gap_length_;
}

void RecordList::insert_empty(std::size_t at, std::size_t count) {
  if (count == 0) return;
  move_gap(at);
  grow_gap(count);
  // The entries taken from the gap are already empty.
  gap_start_ += count;
  gap_length_ -= count;
}

void RecordList::erase(std::size_t first, std::size_t count) {
  if (count == 0) return;
  // Bring the gap to the nearest edge of the range (no move when it lies inside it); the
  // range is then the live entries on both sides of the gap.
  const std::size_t last = first + count;
  move_gap(std::clamp(gap_start_, first, last));
  for (std::size_t i = first; i < gap_start_; ++i) storage_[i] = nullptr;
  const std::size_t after_gap = gap_start_ + gap_length_;
  for (std::size_t i = after_gap; i < last + gap_length_; ++i) storage_[i] = nullptr;
  gap_start_ = first;
  gap_length_ += count;
}

void RecordList::clear() noexcept {
  std::vector<Entry> none;
  storage_.swap(none);
  gap_start_ = 0;
  gap_length_ = 0;
}

void RecordList::reserve(std::size_t count) { reserveAtLeast(storage_, count + gap_length_); }

RecordList::Entry* RecordList::contiguous() {
  const std::size_t live = size();
  move_gap(live);
  storage_.resize(live);  // drops the empty tail; never reallocates
  gap_length_ = 0;
  return storage_.data();
}

void RecordList::move_gap(std::size_t to) {
  if (gap_length_ == 0) {
    gap_start_ = to;
    return;
  }
  const auto base = storage_.begin();
  if (to < gap_start_) {
    std::move_backward(base + static_cast<std::ptrdiff_t>(to), base + static_cast<std::ptrdiff_t>(gap_start_),
                       base + static_cast<std::ptrdiff_t>(gap_start_ + gap_length_));
  } else if (to > gap_start_) {
    std::move(base + static_cast<std::ptrdiff_t>(gap_start_ + gap_length_),
              base + static_cast<std::ptrdiff_t>(to + gap_length_), base + static_cast<std::ptrdiff_t>(gap_start_));
  }
  gap_start_ = to;
}

void RecordList::grow_gap(std::size_t at_least) {
  if (gap_length_ >= at_least) return;
  const std::size_t gap_end = gap_start_ + gap_length_;
  const std::size_t tail = storage_.size() - gap_end;
  if (tail == 0) {
    // The gap is at the end: the vector's own geometric growth keeps appends amortised.
    storage_.resize(storage_.size() + (at_least - gap_length_));
    gap_length_ = at_least;
    return;
  }
  const std::size_t added = middle_growth(size(), at_least - gap_length_);
  std::vector<Entry> grown(storage_.size() + added);  // may throw; nothing has changed yet
  std::move(storage_.begin(), storage_.begin() + static_cast<std::ptrdiff_t>(gap_start_), grown.begin());
  std::move(storage_.begin() + static_cast<std::ptrdiff_t>(gap_end), storage_.end(),
            grown.end() - static_cast<std::ptrdiff_t>(tail));
  storage_.swap(grown);
  gap_length_ += added;
}
