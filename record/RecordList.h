#ifndef KESTA_RECORD_RECORDLIST_H
#define KESTA_RECORD_RECORDLIST_H
// RecordList: the database's full record list, an ordered list of Zr::Ptr<dbrecord> whose
// entries may hold no record. It is a gap buffer: the free space sits where the last insertion
// or deletion happened, so a walk that deletes runs of rows from front to back moves each
// record once in all rather than once per deletion.
//
// Invariants:
//  1. storage_ holds size() live entries and gap_length_ free ones starting at gap_start_.
//  2. Free entries hold no record.
//
// Thread safety: none; the database serialises.

#include <cstdint>
#include <vector>

#include "record/dbrecord.h"

class KESTA_API RecordList {
 public:
  using Entry = Zr::Ptr<dbrecord>;

  RecordList();
  ~RecordList();
  RecordList(const RecordList&) = delete;
  RecordList& operator=(const RecordList&) = delete;

  std::size_t size() const noexcept { return storage_.size() - gap_length_; }
  bool empty() const noexcept { return size() == 0; }
  // REQUIRES: i < size().
  const Entry& operator[](std::size_t i) const noexcept { return storage_[physical(i)]; }
  Entry& operator[](std::size_t i) noexcept { return storage_[physical(i)]; }

  void push_back(Entry record);
  // Inserts `count` empty entries before `at`. REQUIRES: at <= size().
  void insert_empty(std::size_t at, std::size_t count);
  // Removes entries [first, first + count). REQUIRES: first + count <= size().
  void erase(std::size_t first, std::size_t count);
  void clear() noexcept;
  // Room for `count` entries in all, grown geometrically so that room made one entry at a
  // time stays amortised constant.
  void reserve(std::size_t count);

  // Closes the gap and answers the entries as one contiguous array (for sorting).
  Entry* contiguous();

 private:
  std::size_t physical(std::size_t i) const noexcept { return i < gap_start_ ? i : i + gap_length_; }
  void move_gap(std::size_t to);
  void grow_gap(std::size_t at_least);

  std::vector<Entry> storage_;
  std::size_t gap_start_ = 0;
  std::size_t gap_length_ = 0;
};

#endif
