// KSTViewRep: the view's own tag flags, tagging by query and by duplicate value, tag subviews
// and sorting the index.

#include <strings.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <vector>

#include "record/FieldText.h"
#include "record/SortOrder.h"
#include "support/SystemWatchdog.h"
#include "view/KSTViewRep.h"

bool KSTViewRep::tag(int row) { return inRange(row) && index_.tag(row) != 0; }

bool KSTViewRep::notTagged(int row) { return !tag(row); }

void KSTViewRep::set_tag(unsigned row, int on) {
  const int r = static_cast<int>(row);
  if (inRange(r)) index_.setTag(r, on != 0 ? 1 : 0);
}

void KSTViewRep::invert_tag(unsigned row) {
  const int r = static_cast<int>(row);
  if (inRange(r)) index_.setTag(r, index_.tag(r) ? 0 : 1);
}

int KSTViewRep::get_tag(unsigned row) { return tag(static_cast<int>(row)) ? 1 : 0; }

int KSTViewRep::get_num_tags() { return countTags(); }

void KSTViewRep::set_all_tags(int on) { tagAll(on != 0); }

void KSTViewRep::invert_all_tags() { invertAllTags(); }

void KSTViewRep::tagAll(bool on) {
  if (!db()) return;
  for (int i = 0; i < index_.size(); ++i) set_tag(static_cast<unsigned>(i), on);
}

void KSTViewRep::invertAllTags() {
  if (!db()) return;
  for (int i = 0; i < index_.size(); ++i) set_tag(static_cast<unsigned>(i), !tag(i));
}

int KSTViewRep::countTags() const { return db() ? index_.countTags() : 0; }

int KSTViewRep::tagMatches(int keep) {
  iKST* source = db();
  if (!source || index_.size() == 0) return 0;
  int matches = 0;
  for (int i = 0; i < index_.size(); ++i) {
    if (source->match_record(static_cast<int>(index_.row(i))) != 0) {
      set_tag(static_cast<unsigned>(i), 1);
      ++matches;
    } else if (keep == 0) {
      set_tag(static_cast<unsigned>(i), 0);
    }
  }
  return matches;
}

int KSTViewRep::tagDuplicatesOrdered(int field) {
  if (index_.size() < 2) return 0;
  // Read from the records' lines where they still have them, as strcasecmp reads texts.
  const auto text = [&](int row) {
    const dbrecord* record = (*this)[row];
    return record ? c_text(record->fieldView(static_cast<unsigned short>(field))) : std::string_view();
  };
  const auto same = [](std::string_view a, std::string_view b) {
    return a.size() == b.size() && (a.empty() || strncasecmp(a.data(), b.data(), a.size()) == 0);
  };
  int anchor = 0;
  int tagged = 0;
  for (int j = 1; j < index_.size(); ++j) {
    if (!same(text(anchor), text(j))) {
      anchor = j;
    } else {
      set_tag(static_cast<unsigned>(j), 1);
      ++tagged;
    }
  }
  return tagged;
}

int KSTViewRep::tagDuplicates(int field) {
  std::unique_ptr<KSTViewRep> sorted(new KSTViewRep(db_, field_spec_));
  sorted->baseView(this);
  sorted->displayAllRecords();
  sorted->set_sortfield(field);
  sorted->sort(1, 0);
  const int tagged = sorted->tagDuplicatesOrdered(field);
  sorted->tagBaseFromTags();
  // Releases the temporary view's use of this one, which destroys this view unless a handle
  // holds it: touch no member after this.
  sorted.reset();
  return tagged;
}

void KSTViewRep::tagBaseFromTags() {
  iKST* source = db();
  if (!source) return;
  for (int i = 0; i < index_.size(); ++i) source->set_tag(index_.row(i), index_.tag(i) ? 1 : 0);
}

KSTViewRep* KSTViewRep::newTagSubview() {
  if (!db_) return nullptr;
  KSTViewRep* subview = new KSTViewRep(db_, field_spec_);
  try {
    // Shares a private database copy, which must outlive the subview even once unchained.
    subview->private_db_ = private_db_;
    subview->baseView(this);
    subview->displayTaggedRecordsAt(0);
  } catch (...) {
    subview->releaseUse();  // unused: this destroys it
    throw;
  }
  return subview;
}

int KSTViewRep::tag_matching_records(int) { return tagMatches(0); }

int KSTViewRep::tag_all_different(int field) {
  tagDuplicates(field);
  invertAllTags();
  return get_num_tags();
}

void KSTViewRep::set_show_tags_only(int) { removeNonTagged(); }

int KSTViewRep::get_show_tags_only() { return 0; }

// The keys are the database's sort fields; `field` reaches the source's sortPrepare as it
// comes and its sign picks the comparator.
void KSTViewRep::sort(int field, int order) {
  SystemWatchdog::Scope life_support;
  iKST* source = db();
  if (!source) return;
  source->sortPrepare(field, order);
  // The records are read as the database sort reads its own; none is changed.
  const std::vector<ViewIndex::Entry> entries = index_.entries();
  std::vector<Zr::Ptr<dbrecord>> records(entries.size());
  for (std::size_t i = 0; i < entries.size(); ++i) records[i] = source->get_record(entries[i].row);
  const std::vector<uint32_t> sorted = sortOrder(records.data(), records.size(), field >= 0);
  std::vector<ViewIndex::Entry> reordered(entries.size());
  for (std::size_t i = 0; i < entries.size(); ++i) reordered[i] = entries[sorted[i]];
  index_.assign(reordered);
}
