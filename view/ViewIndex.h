#ifndef KESTA_VIEW_VIEWINDEX_H
#define KESTA_VIEW_VIEWINDEX_H
// ViewIndex: the row index of a view, a list of entries (a source row number and a tag flag)
// that behaves exactly like a flat array of `capacity()` slots of which the first `size()`
// are live, yet repairs itself after deletions in logarithmic time.
//
// The flat array is what callers observe: a slot that leaves the live range keeps what it
// held, a slot that enters it (an insertion) starts with what the slot held, and a change of
// capacity keeps the first slots and clears the rest (row 0, tag 0). The class keeps those
// contents for the slots past the live range ("stale" slots) without storing the array.
//
// The live entries sit in tombstoned blocks under a segment tree that keeps, per subtree, the
// number of live entries, the least and greatest row number and a pending addition. The
// deletion protocol of views asks two things of it: the first entry at or after a position
// that names a given row, and "every entry in a range above a row loses one" (0 wrapping to
// 4294967295). Both cost O(log n) per boundary between entries above and not above that row,
// so an index in source order, or made of a few such runs, is repaired in O(log n) per
// deleted row instead of O(n); an index in random order degrades to O(n), like a plain walk.
//
// Invariants:
//  1. 0 <= size() <= capacity().
//  2. The remembered stale slots number at most capacity() - size(); the slots after them
//     hold row 0, tag 0.
//  3. Every tree node's count, least and greatest row agree with the live entries below it,
//     its own pending addition included and its ancestors' excluded.
//
// Thread safety: const members only read, so they may run concurrently while nothing
// changes the index; changes need the caller's serialisation.

#include <cstdint>
#include <string>
#include <vector>

#include "support/Export.h"

class KESTA_API ViewIndex {
 public:
  struct Entry {
    uint32_t row = 0;
    uint8_t tag = 0;
  };

  ViewIndex();
  ~ViewIndex();
  ViewIndex(const ViewIndex&) = delete;
  ViewIndex& operator=(const ViewIndex&) = delete;

  int size() const noexcept { return live_; }
  int capacity() const noexcept { return capacity_; }

  // REQUIRES for the accessors: 0 <= i < size().
  uint32_t row(int i) const;
  uint8_t tag(int i) const;
  Entry entry(int i) const;
  void setRow(int i, uint32_t row);
  void setTag(int i, uint8_t tag);

  // The capacity rule of views for `wanted` entries: 0 releases everything; otherwise the
  // target is `wanted` raised to 20; a target above the capacity grows it to the larger of
  // twice the capacity and the target; a capacity above twice the target is halved (once).
  // When the capacity changes, the first `copyLimit` slots are kept (the target's worth when
  // the new capacity is below `copyLimit`) and the others are cleared.
  void sizeFor(int wanted, int copyLimit);
  // Capacity 0, no entries.
  void release();
  // No live entries; the slots keep their contents and the capacity stays.
  void truncate();
  // Opens `count` entries at `at` as the flat array does: the live entries from `at` move up
  // by `count` (their rows raised by `shiftMoved`), and the opened entries keep the contents
  // of the slots they now occupy, except that the first `written` of them take the rows in
  // `rows`. REQUIRES: 0 <= at <= size(), 0 <= written <= count, capacity() >= size() + count.
  void insertSlots(int at, int count, const uint32_t* rows, int written, uint32_t shiftMoved);
  // Takes entries [first, first + count) out; later entries move down and the vacated slots
  // at the end keep what they held. REQUIRES: 0 <= first, 0 <= count, first + count <= size().
  void removeRange(int first, int count);

  // The first position at or after `from` whose row equals `row`; -1 when none.
  int findEqual(int from, int64_t row) const;
  // Every entry in [from, to) whose row is above `threshold` loses one; a row of 0 (which is
  // above a negative threshold) becomes 4294967295.
  void decrementAbove(int from, int to, int64_t threshold);

  // The live entries in order.
  std::vector<Entry> entries() const;
  // Replaces the live entries by as many others (a reordering). REQUIRES: same size().
  void assign(const std::vector<Entry>& live);
  int countTags() const;

  // Checks the invariants above; on failure answers false and says why.
  bool check(std::string* why) const;

 private:
  void rebuild(const std::vector<Entry>& live, std::size_t room);
  void pushBack(const Entry& entry);
  void erase(int first, int count);
  Entry staleAt(std::size_t slot) const;
  void dropStale(std::size_t count);

  int locate(int i) const;
  int rank(int slot) const;
  bool isLeaf(int node) const noexcept { return node >= leaves_; }
  void apply(int node, int64_t delta);
  void push(int node);
  void pull(int node);
  void summarize(int leaf);
  void pushPath(int slot);
  void pullPath(int slot);
  int findFrom(int node, int lo, int hi, int from, int64_t row, int64_t owed) const;
  void decrementIn(int node, int lo, int hi, int a, int b, int64_t threshold);
  void killIn(int node, int lo, int hi, int a, int b);
  void collect(int node, int64_t pending, std::vector<Entry>& out) const;
  bool checkNode(int node, int64_t pending, std::string* why) const;

  // Slots of the live entries; tombstones (alive 0) mark removed ones. Rows are stored
  // without the pending additions of the tree nodes above them.
  std::vector<uint32_t> rows_;
  std::vector<uint8_t> tags_;
  std::vector<uint8_t> alive_;
  int used_ = 0;  // slots [0, used_) have been written
  int live_ = 0;
  int leaves_ = 1;  // blocks, a power of two; node 1 is the root, leaves_ + b is block b
  std::vector<int32_t> count_;
  std::vector<uint32_t> least_;
  std::vector<uint32_t> greatest_;
  std::vector<int64_t> pending_;

  int capacity_ = 0;
  // The remembered stale slots, the one right after the live range last.
  std::vector<Entry> stale_;
};

#endif
