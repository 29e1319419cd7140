#ifndef KESTA_RECORD_PREFETCH_H
#define KESTA_RECORD_PREFETCH_H
// Asking for records before a pass reaches them. A pass over a large record list misses the
// cache on every record, and twice once a sort has scattered the records in memory: on the
// record and on its bytes. Asking for the record far ahead and, once it has arrived, for its
// bytes a little ahead lets those misses overlap. Internal to the library.
//
//   for (std::size_t row = 0; row < n; ++row) {
//     prefetch::field(records, n, row, reel);
//     ... records[row]->fieldView(reel) ...
//   }

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "record/dbrecord.h"

namespace prefetch {

constexpr std::size_t kRecordAhead = 16;
constexpr std::size_t kBytesAhead = 8;

// `records` is anything indexed by row whose entries have get(): a RecordList, an array of
// Zr::Ptr<dbrecord>.
template <class List>
void record(const List& records, std::size_t n, std::size_t row) noexcept {
  if (row + kRecordAhead >= n) return;
  // A record spans two or three cache lines, and a field's place is in its later ones.
  const char* at = reinterpret_cast<const char*>(records[row + kRecordAhead].get());
  if (!at) return;
  __builtin_prefetch(at);
  __builtin_prefetch(at + 64);
  __builtin_prefetch(at + sizeof(dbrecord) - 1);
}

// Calls fn(record) for every row in order (a null record where the row has none), each record
// asked for before the walk reaches it.
template <class List, class Fn>
void walk(const List& records, Fn fn) {
  const std::size_t n = records.size();
  for (std::size_t row = 0; row < n; ++row) {
    record(records, n, row);
    fn(records[row].get());
  }
}

// The record, and the bytes of one field.
template <class List>
void field(const List& records, std::size_t n, std::size_t row, unsigned short f) noexcept {
  record(records, n, row);
  if (row + kBytesAhead >= n) return;
  if (const dbrecord* later = records[row + kBytesAhead].get()) __builtin_prefetch(later->fieldView(f).data());
}

// The record, and both ends of its text, for a pass that reads all of it.
template <class List>
void whole(const List& records, std::size_t n, std::size_t row) noexcept {
  record(records, n, row);
  if (row + kBytesAhead >= n) return;
  const dbrecord* later = records[row + kBytesAhead].get();
  if (!later) return;
  const unsigned short fields = later->get_num_fields();
  if (fields == 0) return;
  __builtin_prefetch(later->fieldView(0).data());
  __builtin_prefetch(later->fieldView(static_cast<unsigned short>(fields - 1)).data());
}

// The record, and both ends of the line it holds (nothing more for one that holds none), for
// a pass that copies lines: no call into the record. Records that lie in memory in the order
// of the pass (a loaded log, or one sorted into the order it was loaded in) are left to the
// processor, which streams them and their lines: asking for them too slowed such a save by a
// tenth, where a save after a sort into another order took a fifth less.
template <class List>
void line(const List& records, std::size_t n, std::size_t row) noexcept {
  if (row + kRecordAhead >= n) return;
  const auto now = reinterpret_cast<std::uintptr_t>(records[row].get());
  const auto ahead = reinterpret_cast<std::uintptr_t>(records[row + kRecordAhead].get());
  constexpr std::uintptr_t kNear = 64 * 1024;
  if (now == 0 || ahead == 0 || (ahead > now && ahead - now < kNear)) return;
  record(records, n, row);
  const dbrecord* later = records[row + kBytesAhead].get();
  if (!later) return;
  const std::string_view held = later->heldLine();
  if (held.empty()) return;
  __builtin_prefetch(held.data());
  __builtin_prefetch(held.data() + held.size() - 1);
}

}  // namespace prefetch

#endif
