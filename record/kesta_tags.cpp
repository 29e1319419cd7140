// kesta: tags, tagged deletion and the show-tags-only mode with its tagged index.
//
// Every operation here reaches rows through the virtual get_num_records / get_record /
// set_tag / get_tag / delete_records, so a derived class that answers those otherwise sees its
// own rows; only invert_all_tags and index_tags read the full record list directly. A database
// of this very class has nothing overridden, and its tags are read from its records at once.

#include <cstdint>
#include <vector>

#include "record/Prefetch.h"
#include "record/kesta.h"

namespace {
constexpr unsigned kNoRow = 0xFFFFFFFFu;
}  // namespace

void kesta::set_tag(unsigned row, int value) {
  if (rows_are_records()) {
    if (dbrecord* record = record_at(row)) record->set_tag(static_cast<unsigned char>(value));
    return;
  }
  Zr::Ptr<dbrecord> record = get_record(row);
  if (record) record->set_tag(static_cast<unsigned char>(value));
}

void kesta::invert_tag(unsigned row) {
  Zr::Ptr<dbrecord> record = get_record(row);
  if (record) record->set_tag(record->get_tag() == 0 ? 1 : 0);
}

int kesta::get_tag(unsigned row) {
  // Callers ask row by row over whole logs: no count is taken on a record only looked at, and
  // the records a walk reaches next are asked for now, since a sort scatters them.
  if (rows_are_records()) {
    prefetch::record(records_, records_.size(), row);
    const dbrecord* record = record_at(row);
    return record ? record->get_tag() : -1;
  }
  Zr::Ptr<dbrecord> record = get_record(row);
  return record ? record->get_tag() : -1;
}

void kesta::set_all_tags(int value) {
  if (rows_are_records()) {
    prefetch::walk(records_, [&](dbrecord* record) {
      if (record) record->set_tag(static_cast<unsigned char>(value));
    });
    return;
  }
  for (unsigned row = 0; row < get_num_records(); ++row) set_tag(row, value);
}

void kesta::invert_all_tags() {
  // The full list on purpose: callers use this to reach the rows hidden by show-tags-only.
  for (std::size_t i = 0; i < records_.size(); ++i) {
    dbrecord* record = records_[i].get();
    if (record) record->set_tag(record->get_tag() == 0 ? 1 : 0);
  }
}

int kesta::get_num_tags() {
  // A row without a record answers -1 from get_tag and so counts, like the index_tags rule
  // that keeps such entries visible.
  int count = 0;
  if (rows_are_records()) {
    prefetch::walk(records_, [&](const dbrecord* record) {
      if (!record || record->get_tag() != 0) ++count;
    });
    return count;
  }
  for (unsigned row = 0; row < get_num_records(); ++row) {
    if (get_tag(row) != 0) ++count;
  }
  return count;
}

unsigned kesta::delete_tagged_records() {
  if (show_tags_only_) return kNoRow;
  // One delete_records call per run of consecutive rows tagged exactly 1, so listeners get
  // one "recordsDeleted" per run, rows numbered as before that run went.
  unsigned deleted = 0;
  unsigned first = 0;
  unsigned length = 0;
  unsigned row = 0;
  while (row < get_num_records()) {
    if (get_tag(row) == 1) {
      if (length == 0) first = row;
      ++length;
      ++row;
      continue;
    }
    if (length != 0) {
      delete_records(first, length);
      deleted += length;
      length = 0;
      // Row `first` now holds the row that ended the run, already seen.
      row = first + 1;
      continue;
    }
    ++row;
  }
  if (length != 0) {
    delete_records(first, length);
    deleted += length;
  }
  return deleted;
}

void kesta::set_show_tags_only(int on) {
  const int32_t previous = show_tags_only_;
  show_tags_only_ = on;
  if (!on) return;
  try {
    index_tags();
  } catch (...) {
    show_tags_only_ = previous;
    throw;
  }
}

unsigned kesta::index_tags() {
  // The old index is set aside rather than cleared, so that a failed allocation can put it back.
  std::vector<Zr::Ptr<dbrecord>> previous;
  previous.swap(tagged_);
  // The bound is the virtual row count, which is the tagged index itself while the flag is
  // set: a plain database then rebuilds an empty index. Views and derived classes rely on this.
  unsigned count = 0;
  try {
    for (unsigned row = 0; row < (count = get_num_records()); ++row) {
      if (row >= records_.size()) {
        tagged_.emplace_back();
        continue;
      }
      const Zr::Ptr<dbrecord>& entry = records_[row];
      if (!entry || entry->get_tag() != 0) tagged_.push_back(entry);
    }
  } catch (...) {
    tagged_.swap(previous);
    throw;
  }
  return count;
}

unsigned kesta::get_new_row(unsigned rawRow) {
  if (!show_tags_only_) return rawRow;
  if (tagged_.empty() || rawRow >= records_.size()) return kNoRow;
  const dbrecord* wanted = records_[rawRow].get();
  for (std::size_t i = 0; i < tagged_.size(); ++i) {
    if (tagged_[i].get() == wanted) return static_cast<unsigned>(i);
  }
  return kNoRow;
}

unsigned kesta::get_raw_row(unsigned row) {
  if (!show_tags_only_) return row;
  // A row equal to the index size passes this bound (callers rely on the bound as it is);
  // it names no entry and so finds nothing below.
  if (row > tagged_.size() || records_.empty() || row == tagged_.size()) return kNoRow;
  const dbrecord* wanted = tagged_[row].get();
  for (std::size_t i = 0; i < records_.size(); ++i) {
    if (records_[i].get() == wanted) return static_cast<unsigned>(i);
  }
  return kNoRow;
}
