// ViewIndex: the row index of a view (see the header for the representation).

#include "view/ViewIndex.h"

#include <algorithm>
#include <limits>
#include <new>

#include "support/ReserveAtLeast.h"

namespace {

constexpr int kBlock = 32;
constexpr uint32_t kTopRow = std::numeric_limits<uint32_t>::max();
constexpr int kMinimumCapacity = 20;

uint32_t addWrapping(uint32_t row, int64_t delta) {
  return static_cast<uint32_t>(static_cast<uint64_t>(row) + static_cast<uint64_t>(delta));
}

}  // namespace

ViewIndex::ViewIndex() { rebuild({}, 0); }

ViewIndex::~ViewIndex() = default;

// ------------------------------------------------------------------------------- the tree

void ViewIndex::rebuild(const std::vector<Entry>& live, std::size_t room) {
  const std::size_t wanted = std::max<std::size_t>(live.size() + room, kBlock);
  int leaves = 1;
  while (static_cast<std::size_t>(leaves) * kBlock < wanted) leaves *= 2;
  const std::size_t slots = static_cast<std::size_t>(leaves) * kBlock;
  const std::size_t nodes = 2 * static_cast<std::size_t>(leaves);
  // Everything is allocated before anything changes, so a failure leaves the index as it was.
  std::vector<uint32_t> rows(slots, 0);
  std::vector<uint8_t> tags(slots, 0);
  std::vector<uint8_t> alive(slots, 0);
  std::vector<int32_t> count(nodes, 0);
  std::vector<uint32_t> least(nodes, kTopRow);
  std::vector<uint32_t> greatest(nodes, 0);
  std::vector<int64_t> pending(nodes, 0);
  for (std::size_t i = 0; i < live.size(); ++i) {
    rows[i] = live[i].row;
    tags[i] = live[i].tag;
    alive[i] = 1;
  }
  rows_.swap(rows);
  tags_.swap(tags);
  alive_.swap(alive);
  count_.swap(count);
  least_.swap(least);
  greatest_.swap(greatest);
  pending_.swap(pending);
  used_ = static_cast<int>(live.size());
  live_ = used_;
  leaves_ = leaves;
  for (int b = 0; b < leaves; ++b) summarize(leaves + b);
  for (int node = leaves - 1; node >= 1; --node) pull(node);
}

// A node's least and greatest rows include its own pending addition; the addition is still
// owed to everything below it.
void ViewIndex::apply(int node, int64_t delta) {
  if (count_[node] == 0) return;  // nothing below can read it; later writes push first
  least_[node] = addWrapping(least_[node], delta);
  greatest_[node] = addWrapping(greatest_[node], delta);
  pending_[node] += delta;
}

void ViewIndex::push(int node) {
  const int64_t delta = pending_[node];
  if (delta == 0) return;
  pending_[node] = 0;
  if (!isLeaf(node)) {
    apply(2 * node, delta);
    apply(2 * node + 1, delta);
    return;
  }
  const int first = (node - leaves_) * kBlock;
  for (int s = first; s < first + kBlock; ++s) {
    if (alive_[s]) rows_[s] = addWrapping(rows_[s], delta);
  }
}

// REQUIRES: the node owes nothing to its children.
void ViewIndex::pull(int node) {
  const int l = 2 * node, r = 2 * node + 1;
  count_[node] = count_[l] + count_[r];
  if (count_[l] == 0 && count_[r] == 0) {
    least_[node] = kTopRow;
    greatest_[node] = 0;
  } else if (count_[l] == 0) {
    least_[node] = least_[r];
    greatest_[node] = greatest_[r];
  } else if (count_[r] == 0) {
    least_[node] = least_[l];
    greatest_[node] = greatest_[l];
  } else {
    least_[node] = std::min(least_[l], least_[r]);
    greatest_[node] = std::max(greatest_[l], greatest_[r]);
  }
}

// REQUIRES: the leaf owes nothing to its slots.
void ViewIndex::summarize(int leaf) {
  const int first = (leaf - leaves_) * kBlock;
  int32_t n = 0;
  uint32_t lo = kTopRow, hi = 0;
  for (int s = first; s < first + kBlock; ++s) {
    if (!alive_[s]) continue;
    ++n;
    lo = std::min(lo, rows_[s]);
    hi = std::max(hi, rows_[s]);
  }
  count_[leaf] = n;
  least_[leaf] = lo;
  greatest_[leaf] = hi;
}

void ViewIndex::pushPath(int slot) {
  const int leaf = leaves_ + slot / kBlock;
  int depth = 0;
  while ((leaf >> depth) > 1) ++depth;
  for (int shift = depth; shift >= 0; --shift) push(leaf >> shift);
}

void ViewIndex::pullPath(int slot) {
  const int leaf = leaves_ + slot / kBlock;
  summarize(leaf);
  for (int node = leaf >> 1; node >= 1; node >>= 1) pull(node);
}

int ViewIndex::locate(int i) const {
  int node = 1;
  while (!isLeaf(node)) {
    if (i < count_[2 * node]) {
      node = 2 * node;
    } else {
      i -= count_[2 * node];
      node = 2 * node + 1;
    }
  }
  int s = (node - leaves_) * kBlock;
  for (;; ++s) {
    if (alive_[s] && i-- == 0) return s;
  }
}

int ViewIndex::rank(int slot) const {
  const int first = slot / kBlock * kBlock;
  int before = 0;
  for (int s = first; s < slot; ++s) before += alive_[s];
  for (int node = leaves_ + slot / kBlock; node > 1; node >>= 1) {
    if (node & 1) before += count_[node - 1];
  }
  return before;
}

// ------------------------------------------------------------------------------ entries

uint32_t ViewIndex::row(int i) const { return entry(i).row; }

uint8_t ViewIndex::tag(int i) const { return tags_[static_cast<std::size_t>(locate(i))]; }

ViewIndex::Entry ViewIndex::entry(int i) const {
  int node = 1;
  int64_t owed = 0;
  while (!isLeaf(node)) {
    owed += pending_[node];
    if (i < count_[2 * node]) {
      node = 2 * node;
    } else {
      i -= count_[2 * node];
      node = 2 * node + 1;
    }
  }
  owed += pending_[node];
  int s = (node - leaves_) * kBlock;
  for (;; ++s) {
    if (alive_[s] && i-- == 0) break;
  }
  return Entry{addWrapping(rows_[s], owed), tags_[s]};
}

void ViewIndex::setRow(int i, uint32_t row) {
  const int s = locate(i);
  pushPath(s);
  rows_[s] = row;
  pullPath(s);
}

void ViewIndex::setTag(int i, uint8_t tag) { tags_[static_cast<std::size_t>(locate(i))] = tag; }

void ViewIndex::collect(int node, int64_t owed, std::vector<Entry>& out) const {
  if (count_[node] == 0) return;
  owed += pending_[node];
  if (!isLeaf(node)) {
    collect(2 * node, owed, out);
    collect(2 * node + 1, owed, out);
    return;
  }
  const int first = (node - leaves_) * kBlock;
  for (int s = first; s < first + kBlock; ++s) {
    if (alive_[s]) out.push_back(Entry{addWrapping(rows_[s], owed), tags_[s]});
  }
}

std::vector<ViewIndex::Entry> ViewIndex::entries() const {
  std::vector<Entry> out;
  out.reserve(static_cast<std::size_t>(live_));
  collect(1, 0, out);
  return out;
}

void ViewIndex::assign(const std::vector<Entry>& live) { rebuild(live, live.size() / 2); }

int ViewIndex::countTags() const {
  int n = 0;
  for (int s = 0; s < used_; ++s) n += alive_[s] && tags_[s] ? 1 : 0;
  return n;
}

void ViewIndex::pushBack(const Entry& entry) {
  if (used_ == leaves_ * kBlock) rebuild(entries(), std::max<std::size_t>(static_cast<std::size_t>(live_), kBlock));
  const int s = used_++;
  pushPath(s);
  rows_[s] = entry.row;
  tags_[s] = entry.tag;
  alive_[s] = 1;
  ++live_;
  pullPath(s);
}

void ViewIndex::killIn(int node, int lo, int hi, int a, int b) {
  if (count_[node] == 0 || hi * kBlock <= a || lo * kBlock >= b) return;
  push(node);
  if (isLeaf(node)) {
    for (int s = std::max(a, lo * kBlock); s < std::min(b, hi * kBlock); ++s) alive_[s] = 0;
    summarize(node);
    return;
  }
  const int mid = (lo + hi) / 2;
  killIn(2 * node, lo, mid, a, b);
  killIn(2 * node + 1, mid, hi, a, b);
  pull(node);
}

void ViewIndex::erase(int first, int count) {
  if (count <= 0) return;
  const int a = locate(first);
  const int b = locate(first + count - 1) + 1;
  killIn(1, 0, leaves_, a, b);
  live_ -= count;
  // Tombstones are swept once they outnumber the live entries, so each costs O(1) in all.
  // The sweep is only an economy: without memory for it the tombstones stay, and the erase
  // stands.
  if (used_ - live_ > live_ + 4 * kBlock) {
    try {
      rebuild(entries(), static_cast<std::size_t>(live_));
    } catch (const std::bad_alloc&) {
    }
  }
}

// ------------------------------------------------------------------------ the deletion walk

// Reads only: `owed` is what the ancestors still owe this node, so queries never reorganise
// the tree and may run side by side.
int ViewIndex::findFrom(int node, int lo, int hi, int from, int64_t row, int64_t owed) const {
  if (count_[node] == 0 || hi * kBlock <= from) return -1;
  if (row < static_cast<int64_t>(least_[node]) + owed || row > static_cast<int64_t>(greatest_[node]) + owed) return -1;
  owed += pending_[node];
  if (isLeaf(node)) {
    for (int s = std::max(from, lo * kBlock); s < hi * kBlock; ++s) {
      if (alive_[s] && static_cast<int64_t>(rows_[s]) + owed == row) return s;
    }
    return -1;
  }
  const int mid = (lo + hi) / 2;
  const int found = findFrom(2 * node, lo, mid, from, row, owed);
  return found >= 0 ? found : findFrom(2 * node + 1, mid, hi, from, row, owed);
}

int ViewIndex::findEqual(int from, int64_t row) const {
  if (from < 0) from = 0;
  if (from >= live_ || row < 0 || row > static_cast<int64_t>(kTopRow)) return -1;
  const int slot = findFrom(1, 0, leaves_, locate(from), row, 0);
  return slot < 0 ? -1 : rank(slot);
}

void ViewIndex::decrementIn(int node, int lo, int hi, int a, int b, int64_t threshold) {
  const int first = lo * kBlock, last = hi * kBlock;
  if (count_[node] == 0 || last <= a || first >= b) return;
  if (static_cast<int64_t>(greatest_[node]) <= threshold) return;
  // A whole subtree above the threshold owes one less, unless it holds a 0 that must wrap.
  if (a <= first && last <= b && static_cast<int64_t>(least_[node]) > threshold && least_[node] >= 1) {
    apply(node, -1);
    return;
  }
  push(node);
  if (isLeaf(node)) {
    for (int s = std::max(a, first); s < std::min(b, last); ++s) {
      if (alive_[s] && static_cast<int64_t>(rows_[s]) > threshold) rows_[s] = addWrapping(rows_[s], -1);
    }
    summarize(node);
    return;
  }
  const int mid = (lo + hi) / 2;
  decrementIn(2 * node, lo, mid, a, b, threshold);
  decrementIn(2 * node + 1, mid, hi, a, b, threshold);
  pull(node);
}

void ViewIndex::decrementAbove(int from, int to, int64_t threshold) {
  from = std::max(from, 0);
  to = std::min(to, live_);
  if (from >= to || threshold >= static_cast<int64_t>(kTopRow)) return;
  const int a = locate(from);
  const int b = to == live_ ? leaves_ * kBlock : locate(to);
  decrementIn(1, 0, leaves_, a, b, threshold);
}

// -------------------------------------------------------------------- the flat-array model

ViewIndex::Entry ViewIndex::staleAt(std::size_t slot) const {
  return slot < stale_.size() ? stale_[stale_.size() - 1 - slot] : Entry{};
}

void ViewIndex::dropStale(std::size_t count) { stale_.resize(stale_.size() - std::min(count, stale_.size())); }

void ViewIndex::sizeFor(int wanted, int copyLimit) {
  if (wanted == 0) {
    release();
    return;
  }
  const int64_t target = std::max<int64_t>(wanted, kMinimumCapacity);
  const int64_t capacity = capacity_;
  int64_t resized;
  if (target <= capacity) {
    resized = capacity <= 2 * target ? capacity : capacity / 2;
  } else {
    resized = std::max(2 * capacity, target);
  }
  resized = std::min<int64_t>(resized, std::numeric_limits<int32_t>::max());
  if (resized == capacity) return;
  const int64_t kept = resized < copyLimit ? target : copyLimit;
  if (kept < live_) {
    // Only a caller that asks for less than it holds gets here: the entries past the kept
    // slots are gone, as the copy would lose them.
    erase(static_cast<int>(kept), live_ - static_cast<int>(kept));
    stale_.clear();
  } else {
    const std::size_t keep = static_cast<std::size_t>(kept - live_);
    if (stale_.size() > keep) stale_.erase(stale_.begin(), stale_.end() - static_cast<std::ptrdiff_t>(keep));
  }
  capacity_ = static_cast<int>(resized);
}

void ViewIndex::release() {
  // Views release their index while they are destroyed, so this must not fail: without
  // memory for a fresh tree the old one stays, every entry a tombstone.
  try {
    rebuild({}, 0);
  } catch (const std::bad_alloc&) {
    erase(0, live_);
  }
  capacity_ = 0;
  stale_.clear();
  stale_.shrink_to_fit();
}

void ViewIndex::truncate() {
  std::vector<Entry> live = entries();
  reserveAtLeast(stale_, stale_.size() + live.size());
  rebuild({}, live.size());
  stale_.insert(stale_.end(), live.rbegin(), live.rend());
}

void ViewIndex::insertSlots(int at, int count, const uint32_t* rows, int written, uint32_t shiftMoved) {
  if (count <= 0) return;
  // What the opened slots held: the live entries there (copies of those that move up), then
  // the stale slots after the live range.
  std::vector<Entry> opened(static_cast<std::size_t>(count));
  const int from_live = std::min(at + count, live_) - at;
  if (from_live > 0 && at == 0 && from_live == live_) {
    std::vector<Entry> live = entries();
    std::copy(live.begin(), live.end(), opened.begin());
  } else {
    for (int i = 0; i < from_live; ++i) opened[static_cast<std::size_t>(i)] = entry(at + i);
  }
  for (int i = std::max(from_live, 0); i < count; ++i) {
    opened[static_cast<std::size_t>(i)] = staleAt(static_cast<std::size_t>(at + i - live_));
  }
  for (int i = 0; i < written; ++i) opened[static_cast<std::size_t>(i)].row = rows[i];

  // Room is made before anything changes, so a failure leaves the index as it was.
  if (at == live_ && count <= live_ / 4 + kBlock) {
    if (used_ + count > leaves_ * kBlock) {
      rebuild(entries(),
              std::max<std::size_t>(static_cast<std::size_t>(live_), kBlock) + static_cast<std::size_t>(count));
    }
    dropStale(static_cast<std::size_t>(count));
    for (const Entry& e : opened) pushBack(e);
    return;
  }
  std::vector<Entry> live = entries();
  if (shiftMoved != 0) {
    for (std::size_t i = static_cast<std::size_t>(at); i < live.size(); ++i) live[i].row += shiftMoved;
  }
  live.insert(live.begin() + at, opened.begin(), opened.end());
  rebuild(live, live.size() / 2);
  dropStale(static_cast<std::size_t>(count));
}

void ViewIndex::removeRange(int first, int count) {
  if (count <= 0) return;
  // The stale list grows before anything changes, so a failure leaves the index as it was.
  reserveAtLeast(stale_, stale_.size() + static_cast<std::size_t>(count));
  if (count >= live_ / 4) {
    std::vector<Entry> live = entries();
    std::vector<Entry> gone(live.rbegin(), live.rbegin() + count);
    live.erase(live.begin() + first, live.begin() + first + count);
    rebuild(live, live.size() / 2);
    stale_.insert(stale_.end(), gone.begin(), gone.end());
    return;
  }
  for (int i = live_ - 1; i >= live_ - count; --i) stale_.push_back(entry(i));
  erase(first, count);
}

// ---------------------------------------------------------------------------- checking

bool ViewIndex::checkNode(int node, int64_t owed, std::string* why) const {
  auto fail = [&](const char* text) {
    if (why) *why = std::string(text) + " at node " + std::to_string(node);
    return false;
  };
  int32_t n = 0;
  uint32_t lo = kTopRow, hi = 0;
  if (isLeaf(node)) {
    if (count_[node] == 0) {
      // An empty leaf's pending addition reaches no entry.
      for (int s = (node - leaves_) * kBlock; s < (node - leaves_ + 1) * kBlock; ++s) {
        if (alive_[s]) return fail("live slot under an empty leaf");
      }
      return true;
    }
    const int64_t own = pending_[node];
    for (int s = (node - leaves_) * kBlock; s < (node - leaves_ + 1) * kBlock; ++s) {
      if (!alive_[s]) continue;
      if (s >= used_) return fail("live slot past the written ones");
      const int64_t value = static_cast<int64_t>(rows_[s]) + own + owed;
      if (value < 0 || value > static_cast<int64_t>(kTopRow)) return fail("row out of range");
      ++n;
      lo = std::min(lo, static_cast<uint32_t>(value - owed));
      hi = std::max(hi, static_cast<uint32_t>(value - owed));
    }
  } else {
    const int64_t below = owed + pending_[node];
    if (!checkNode(2 * node, below, why) || !checkNode(2 * node + 1, below, why)) return false;
    for (int child : {2 * node, 2 * node + 1}) {
      if (count_[child] == 0) continue;
      n += count_[child];
      lo = std::min<uint32_t>(lo, addWrapping(least_[child], pending_[node]));
      hi = std::max<uint32_t>(hi, addWrapping(greatest_[child], pending_[node]));
    }
    if (n == 0) return count_[node] == 0 ? true : fail("count");
  }
  if (n != count_[node]) return fail("count");
  if (lo != least_[node] || hi != greatest_[node]) return fail("least or greatest row");
  return true;
}

bool ViewIndex::check(std::string* why) const {
  auto fail = [&](const std::string& text) {
    if (why) *why = text;
    return false;
  };
  if (live_ < 0 || live_ > capacity_)
    return fail("row count " + std::to_string(live_) + " outside capacity " + std::to_string(capacity_));
  if (stale_.size() > static_cast<std::size_t>(capacity_ - live_)) return fail("more stale slots than free capacity");
  if (count_[1] != live_) return fail("tree count differs from the row count");
  for (int s = 0; s < leaves_ * kBlock; ++s) {
    if (alive_[s] && tags_[s] > 1) return fail("tag other than 0 or 1");
  }
  for (const Entry& e : stale_) {
    if (e.tag > 1) return fail("stale tag other than 0 or 1");
  }
  return checkNode(1, 0, why);
}
