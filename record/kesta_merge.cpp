// kesta: bringing another database's records into this one, either whole (add_kesta, for a
// database of exactly the same shape) or field by field through the names (merge_all_matching).
//
// The source is read only through its virtual iKST operations, so it may be a derived class,
// and while it shows only its tagged records only those are taken.

#include <cstring>
#include <vector>

#include "record/kesta.h"
#include "support/TimeDef.h"

namespace {
constexpr int kRefused = -1;
}  // namespace

int kesta::add_kesta(kesta* other) {
  if (other == nullptr || show_tags_only_) return kRefused;
  if (revision_ != other->get_revision()) return kRefused;
  unsigned num_fields = get_num_fields();
  if (num_fields != other->get_num_fields()) return kRefused;
  for (unsigned i = 0; i < num_fields; ++i) {
    if (get_field_type(i) != other->get_field_type(i)) return kRefused;
    // Names compare case-sensitively here, unlike column lookups.
    if (std::strcmp(get_fieldname(i), other->get_fieldname(i)) != 0) return kRefused;
  }

  for (unsigned row = 0; row < other->get_num_records(); ++row) {
    Zr::Ptr<dbrecord> source = other->get_record(row);
    // A source row without a record stays a row without a record.
    Zr::Ptr<dbrecord> copy;
    if (source) {
      copy.reset(new dbrecord(*source));
      copy->set_container(this);
    }
    records_.push_back(std::move(copy));
  }
  return static_cast<int>(other->get_num_records());
}

int kesta::merge_all_matching(kesta* other) {
  if (other == nullptr) return 0;
  unsigned num_fields = get_num_fields();
  std::vector<int> source_field(num_fields);
  bool any = false;
  for (unsigned i = 0; i < num_fields; ++i) {
    source_field[i] = static_cast<int>(other->get_fieldnum(LightweightString<char>(get_fieldname(i))));
    if (source_field[i] >= 0) any = true;
  }
  if (!any) return 0;

  unsigned count = other->get_num_records();
  for (unsigned r = 0; r < count; ++r) {
    unsigned row = add_records(1);
    if (static_cast<int>(row) < 0) return 1;  // show-tags-only: nothing can be appended
    for (unsigned i = 0; i < num_fields; ++i) {
      int j = source_field[i];
      if (j < 0) continue;
      LightweightString<char> text = other->getField(r, static_cast<unsigned>(j));
      DBFieldTypes::eType mine = get_field_type(i);
      DBFieldTypes::eType theirs = other->get_field_type(static_cast<unsigned>(j));
      // The two time-code types keep their codes in different forms.
      if (mine == DBFieldTypes::kTimecode && theirs == DBFieldTypes::kTimecodeS) {
        text = time_def(text.c_str(), kLabelTimecode).get_punctuated_str();
      } else if (mine == DBFieldTypes::kTimecodeS && theirs == DBFieldTypes::kTimecode) {
        text = time_def(text.c_str(), kLabelTimecode).get_database_str();
      }
      set_field(row, i, text.c_str());
    }
  }
  return 1;
}
