// kesta: bringing another database's records into this one, either whole (add_kesta, for a
// database of exactly the same shape) or field by field through the names (merge_all_matching).
//
// The source is read only through its virtual iKST operations, so it may be a derived class,
// and while it shows only its tagged records only those are taken. Between two databases of
// the plain class that show all their records, those calls would only reach the records, and
// merge_records goes to them at once.

#include <algorithm>
#include <climits>
#include <cstring>
#include <string_view>
#include <vector>

#include "record/FieldText.h"
#include "record/kesta.h"
#include "support/TimeDef.h"

namespace {

constexpr int kRefused = -1;

// What a field of type `mine` stores of `text`, read from a field of type `theirs`: the two
// time-code types keep their codes in different forms; other texts are stored as they are.
bool converts(DBFieldTypes::eType mine, DBFieldTypes::eType theirs) {
  return (mine == DBFieldTypes::kTimecode && theirs == DBFieldTypes::kTimecodeS) ||
         (mine == DBFieldTypes::kTimecodeS && theirs == DBFieldTypes::kTimecode);
}
LightweightString<char> converted(DBFieldTypes::eType mine, const LightweightString<char>& text) {
  const time_def code(text.c_str(), kLabelTimecode);
  return mine == DBFieldTypes::kTimecode ? code.get_punctuated_str() : code.get_database_str();
}

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
  if (rows_are_records() && other->rows_are_records()) {
    merge_records(*other, source_field, count);
    return 1;
  }
  for (unsigned r = 0; r < count; ++r) {
    unsigned row = add_records(1);
    if (static_cast<int>(row) < 0) return 1;  // show-tags-only: nothing can be appended
    for (unsigned i = 0; i < num_fields; ++i) {
      int j = source_field[i];
      if (j < 0) continue;
      LightweightString<char> text = other->getField(r, static_cast<unsigned>(j));
      const DBFieldTypes::eType mine = get_field_type(i);
      if (converts(mine, other->get_field_type(static_cast<unsigned>(j)))) text = converted(mine, text);
      set_field(row, i, text.c_str());
    }
  }
  return 1;
}

// merge_all_matching for two databases whose rows are their records, with nothing overridden:
// what its virtual calls would do, done on the records. Each new record takes its texts at
// once, as views of the source's where no time code changes form, in one allocation.
void kesta::merge_records(const kesta& other, const std::vector<int>& source_field, unsigned count) {
  const unsigned short fields = static_cast<unsigned short>(std::min<std::size_t>(source_field.size(), USHRT_MAX));
  std::vector<bool> convert(fields);
  for (unsigned short i = 0; i < fields; ++i) {
    const int j = source_field[i];
    convert[i] = j >= 0 && converts(get_field_type(i), other.get_field_type(static_cast<unsigned>(j)));
  }
  std::vector<std::string_view> texts(fields);
  std::vector<LightweightString<char>> codes(fields);
  for (unsigned r = 0; r < count; ++r) {
    const unsigned row = add_records(1);
    const dbrecord* source = other.record_at(r);
    for (unsigned short i = 0; i < fields; ++i) {
      const int j = source_field[i];
      // getField's text: empty for a missing record or field.
      const std::string_view text =
          j >= 0 && source ? source->fieldView(static_cast<unsigned short>(j)) : std::string_view();
      if (convert[i]) {
        codes[i] = converted(get_field_type(i), LightweightString<char>(text));
        texts[i] = stored_text(codes[i].view());
      } else {
        texts[i] = stored_text(text);
      }
    }
    if (dbrecord* target = record_at(row)) {
      target->setFields(texts.data(), fields);
      target->touch();  // each store marks the record, even of an empty text
    }
  }
}
