// KSTViewRep: filling the row index (display operations) and inserting blank records.
// Nothing here is announced: new entries keep the tags their slots held.

#include <cstdlib>
#include <limits>
#include <unordered_set>
#include <vector>

#include "support/SystemWatchdog.h"
#include "view/KSTViewRep.h"

namespace {

const LightweightString<char>& tagFieldName() {
  static const LightweightString<char> name("Tag");
  return name;
}

}  // namespace

int KSTViewRep::displayRecordsAt(int first, int count, int at) {
  if (count < 0) return count;  // nothing to show
  if (static_cast<int64_t>(index_.size()) + count > std::numeric_limits<int32_t>::max()) return 0;
  at = clampPosition(at);
  sizeIndexFor(index_.size() + count);
  std::vector<uint32_t> rows(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i)
    rows[static_cast<std::size_t>(i)] = static_cast<uint32_t>(static_cast<int64_t>(first) + i);
  index_.insertSlots(at, count, rows.data(), count, 0);
  return count;
}

int KSTViewRep::displayMatchAt(const char* field, const char* value, int at) {
  iKST* source = db();
  if (!source) return 0;
  const int row = source->findFirst(field, value, 0);
  if (row < 0) return 0;
  displayRecordsAt(row, 1, at);
  return 1;
}

int KSTViewRep::displayTaggedRecordsAt(int at) {
  iKST* source = db();
  if (!source) return 0;
  const int tagged = std::max(source->get_num_tags(), 0);
  if (static_cast<int64_t>(index_.size()) + tagged > std::numeric_limits<int32_t>::max()) return 0;
  sizeIndexFor(index_.size() + tagged);
  const int position = clampPosition(at);
  std::vector<uint32_t> rows;
  rows.reserve(static_cast<std::size_t>(tagged));
  for (unsigned r = 0; r < source->get_num_records() && rows.size() < static_cast<std::size_t>(tagged); ++r) {
    if (source->get_tag(r)) rows.push_back(r);
  }
  // A source that counts more tags than it shows leaves the remaining entries as their slots
  // held them.
  index_.insertSlots(position, tagged, rows.data(), static_cast<int>(rows.size()), 0);
  return tagged;
}

int KSTViewRep::displayAllFromAt(KSTViewRep* other, int at) {
  iKST* source = db();
  if (base_ || !source || !other || other->db() != source || other->index_.size() == 0) return 0;
  // The records this view shows, kept as rows are added, answer "does find see it" without a
  // walk per row.
  std::unordered_set<const dbrecord*> shown;
  for (int i = 0; i < index_.size(); ++i) shown.insert((*this)[i]);
  int added = 0;
  for (int i = 0; i < other->index_.size(); ++i) {
    dbrecord* record = (*other)[i];
    if (record && !shown.count(record)) {
      const int position = clampPosition(at);
      displayRecordsAt(other->baseIndex(i), 1, at);
      shown.insert((*this)[position]);
      ++at;
      ++added;
    }
  }
  return added;
}

int KSTViewRep::displayRecordsAt(const CookieVec& ids, int at) {
  SystemWatchdog::Scope life_support;
  int found = 0;
  for (unsigned i = 0; i < ids.size(); ++i) {
    const LightweightString<char> text = ids[i].asString(false);
    if (displayMatchAt("Cookie", text.c_str(), at)) {
      ++at;
      ++found;
    }
  }
  return found;
}

int KSTViewRep::displayRecordsAt(const CookieSet& ids, int at) {
  CookieVec list;
  for (int i = 0; i < ids.size(); ++i) list.push_back(ids[i]);
  return displayRecordsAt(list, at);
}

void KSTViewRep::displayAllRecords() {
  iKST* source = db();
  if (!source) return;
  remove(0, index_.size());
  displayRecordsAt(0, static_cast<int>(source->get_num_records()), 0);
}

void KSTViewRep::displayAllRecordsWithBaseTagStatus() {
  iKST* source = db();
  if (!source) return;
  displayAllRecords();
  if (source->get_fieldnum(tagFieldName()) == ~0u) return;
  const unsigned rows = source->get_num_records();
  for (unsigned r = 0; r < rows; ++r) set_tag(r, source->get_tag(r) != 0);
}

void KSTViewRep::setupViewTagsFromKestaTagField() {
  iKST* source = db();
  if (!source) return;
  displayAllRecords();
  const unsigned field = source->get_fieldnum(tagFieldName());
  if (field == ~0u) return;
  const unsigned rows = source->get_num_records();
  for (unsigned r = 0; r < rows; ++r) {
    const LightweightString<char> text = source->getField(r, field);
    set_tag(r, !text.empty() && std::strtol(text.c_str(), nullptr, 10) != 0);
  }
}

// The entries from `at` move up and name rows `count` higher; entries before `at` keep their
// rows whatever they name, and other views are not told: callers rely on insertion being
// silent.
void KSTViewRep::insertBlankRecords(int at, int count) {
  iKST* source = db();
  if (!source || count < 0) return;
  if (static_cast<int64_t>(index_.size()) + count > std::numeric_limits<int32_t>::max()) return;
  at = clampPosition(at);
  uint32_t first;
  if (at < index_.size()) {
    first = index_.row(at);
    source->insert_records(first, static_cast<unsigned>(count));
  } else {
    first = source->get_num_records();
    source->add_records(count);
  }
  at = clampPosition(at);
  sizeIndexFor(index_.size() + count);
  std::vector<uint32_t> rows(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) rows[static_cast<std::size_t>(i)] = first + static_cast<uint32_t>(i);
  index_.insertSlots(at, count, rows.data(), count, static_cast<uint32_t>(count));
}
