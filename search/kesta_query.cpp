// kesta: the query (one TextSearch::Criteria per column, by position) and everything built on
// it: matching a field or a record, the start..end range rule of the time-code and edge-code
// columns, tagging the matches, and tagging the first record of every run of equal values.

#include <strings.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <ctime>
#include <vector>

#include "record/FieldTables.h"
#include "record/FieldText.h"
#include "record/Prefetch.h"
#include "record/kesta.h"
#include "support/StringUtils.h"
#include "support/TimeDef.h"

namespace {

constexpr unsigned kNoField = 0xFFFFFFFFu;

// The start/end pair that a special column belongs to, as names to look up; false for any
// other name. The table lists each pair's start column followed by its end column. The names
// are made once: a query looks them up for every record.
bool special_pair(const char* name, const LightweightString<char>*& start, const LightweightString<char>*& end) {
  static const std::vector<LightweightString<char>> names = [] {
    std::vector<LightweightString<char>> made;
    for (int i = 0; *field_tables::kSpecialLabelFields[i]; ++i) made.emplace_back(field_tables::kSpecialLabelFields[i]);
    return made;
  }();
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (std::strcmp(name, names[i].c_str()) == 0) {
      start = &names[i & ~std::size_t{1}];
      end = &names[i | 1];
      return true;
    }
  }
  return false;
}

// A date column holds seconds since the epoch; it is searched in its calendar form, ctime's
// text in local time (taken through the reentrant form).
LightweightString<char> calendar_text(const LightweightString<char>& stored) {
  std::time_t seconds = static_cast<std::time_t>(Zr::UIntFromString(stored, 0));
  char text[64];
  if (ctime_r(&seconds, text) == nullptr) return LightweightString<char>();
  return LightweightString<char>(text);
}

// strncmp(text, q, n), for a text without a zero byte.
int compare_leading(std::string_view text, const char* q, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    const auto a = static_cast<unsigned char>(i < text.size() ? text[i] : '\0');
    const auto b = static_cast<unsigned char>(q[i]);
    if (a != b) return a < b ? -1 : 1;
    if (a == 0) return 0;
  }
  return 0;
}

// The start..end range rule: the record's start value begins with the query, or the query
// falls between the start and end values, compared on the query's length.
bool in_range(const dbrecord* record, const LightweightString<char>& query, unsigned start_field, unsigned end_field) {
  if (start_field == kNoField || record == nullptr) return false;
  const std::string_view start = c_text(record->fieldView(static_cast<unsigned short>(start_field)));
  if (start.empty()) return false;
  if (query.empty()) return true;

  const char* q = query.c_str();
  std::size_t length = query.size();
  const int from_start = compare_leading(start, q, length);
  if (from_start == 0) return true;

  if (end_field == kNoField) return false;
  const std::string_view end = c_text(record->fieldView(static_cast<unsigned short>(end_field)));
  if (end.empty()) return false;
  if (from_start > 0) return false;
  return compare_leading(end, q, length) >= 0;
}

}  // namespace

void kesta::set_query(dbrecord* query) {
  if (query == nullptr) return;
  unsigned short count = query->get_num_fields();
  if (count < get_num_fields()) return;
  std::vector<TextSearch::Criteria> criteria;
  criteria.reserve(count);
  for (unsigned short i = 0; i < count; ++i) {
    // An empty text makes an empty Criteria: no condition on that column.
    criteria.emplace_back(TextSearch::Criterion(query->getField(i), TextSearch::eContains));
  }
  setQuery(criteria);
}

void kesta::setQuery(const std::vector<TextSearch::Criteria>& criteria) {
  if (criteria.size() < get_num_fields()) return;
  if (&criteria == &query_) return;
  query_ = criteria;
}

bool kesta::matchField(const dbrecord* record, unsigned short field, const TextSearch::Criteria& criteria) const {
  if (record == nullptr) return false;
  unsigned opts = match_options_ != 0 ? TextSearch::kCaseSensitive : 0u;
  DBFieldTypes::eType type = field < fields_.size() ? fields_[field].type : DBFieldTypes::kNone;
  switch (type) {
    case DBFieldTypes::kTimecodeS: {
      LightweightString<char> punctuated =
          time_def(record->getField(field).c_str(), kLabelTimecode).get_punctuated_str();
      return TextSearch::match(punctuated, criteria, opts | TextSearch::kTimecode);
    }
    case DBFieldTypes::kTimecode:
      // Read from the record's line where it still has one: a search takes no record apart.
      return TextSearch::matchView(record->fieldView(field), criteria, opts | TextSearch::kTimecode);
    case DBFieldTypes::kDosDate:
      return TextSearch::match(calendar_text(record->getField(field)), criteria, opts);
    default:
      return TextSearch::matchView(record->fieldView(field), criteria, opts);
  }
}

bool kesta::match_field(const dbrecord* record, int field) const {
  if (field >= 0 && static_cast<std::size_t>(field) < special_label_flags_.size() &&
      special_label_flags_[static_cast<std::size_t>(field)]) {
    return found_in_special_label_field(record, field);
  }
  if (field < 0 || static_cast<std::size_t>(field) >= query_.size()) return true;
  const TextSearch::Criteria& criteria = query_[static_cast<std::size_t>(field)];
  if (criteria.empty()) return true;
  return matchField(record, static_cast<unsigned short>(field), criteria);
}

bool kesta::found_in_special_label_field(const dbrecord* record, int field) const {
  if (field < 0 || static_cast<std::size_t>(field) >= query_.size()) return true;
  const TextSearch::Criteria& criteria = query_[static_cast<std::size_t>(field)];
  if (criteria.empty()) return true;
  // A query in either column of a pair searches the same start..end range.
  const LightweightString<char>* start_name = nullptr;
  const LightweightString<char>* end_name = nullptr;
  if (!special_pair(get_fieldname(static_cast<unsigned>(field)), start_name, end_name)) return true;
  return in_range(record, criteria.getCriterion(0).text(), get_fieldnum(*start_name), get_fieldnum(*end_name));
}

std::vector<kesta::QueryTest> kesta::query_tests() const {
  std::vector<QueryTest> tests;
  const std::size_t columns = std::min<std::size_t>(get_num_fields(), query_.size());
  for (std::size_t field = 0; field < columns; ++field) {
    if (query_[field].empty()) continue;  // no condition, special column or not
    QueryTest test{static_cast<unsigned short>(field), false, kNoField, kNoField};
    if (field < special_label_flags_.size() && special_label_flags_[field]) {
      const LightweightString<char>* start_name = nullptr;
      const LightweightString<char>* end_name = nullptr;
      if (!special_pair(get_fieldname(static_cast<unsigned>(field)), start_name, end_name)) continue;
      test.range = true;
      test.start_field = get_fieldnum(*start_name);
      test.end_field = get_fieldnum(*end_name);
    }
    tests.push_back(test);
  }
  return tests;
}

bool kesta::passes(const dbrecord& record, const std::vector<QueryTest>& tests) const {
  for (const QueryTest& test : tests) {
    const TextSearch::Criteria& criteria = query_[test.field];
    if (!(test.range ? in_range(&record, criteria.getCriterion(0).text(), test.start_field, test.end_field)
                     : matchField(&record, test.field, criteria))) {
      return false;
    }
  }
  return true;
}

int kesta::match_record(const Zr::Ptr<dbrecord>& record) const {
  if (!record) return -1;
  if (query_.empty()) return -1;
  if (get_num_fields() == 0) return 1;
  unsigned field = 0;
  while (field < get_num_fields() && match_field(record.get(), static_cast<int>(field))) ++field;
  return field == get_num_fields() ? 1 : 0;
}

std::function<bool(const dbrecord&)> kesta::query_matcher() const {
  return [this, tests = query_tests()](const dbrecord& record) { return passes(record, tests); };
}

int kesta::match_record(int row) const { return match_record(get_record(static_cast<unsigned>(row))); }

int kesta::tag_matching_records(int keepTags) {
  if (query_.empty()) return 0;
  int count = 0;
  if (rows_are_records()) {
    const std::vector<QueryTest> tests = query_tests();
    for (std::size_t row = 0; row < records_.size(); ++row) {
      prefetch::whole(records_, records_.size(), row);
      const Zr::Ptr<dbrecord>& record = records_[row];
      // A row without a record counts as a match, as match_record's -1 does.
      if (!record || passes(*record, tests)) {
        ++count;
        if (record) record->set_tag(1);
      } else if (keepTags == 0) {
        record->set_tag(0);
      }
    }
    return count;
  }
  for (unsigned row = 0; row < get_num_records(); ++row) {
    // A row without a record answers -1, which counts as a match.
    if (match_record(static_cast<int>(row)) != 0) {
      ++count;
      set_tag(row, 1);
    } else if (keepTags == 0) {
      set_tag(row, 0);
    }
  }
  return count;
}

int kesta::tag_all_different(int field) {
  set_all_tags(0);
  set_show_tags_only(0);
  set_sortfield(field);
  sort(1, 0);
  // Values compare against a copy cut to 255 characters, so two equal longer values are both
  // tagged; callers depend on the buffer's size.
  if (rows_are_records()) return tag_all_different_records(static_cast<unsigned>(field));
  char previous[256] = "";
  for (unsigned row = 0; row < get_num_records(); ++row) {
    LightweightString<char> value = getField(row, static_cast<unsigned>(field));
    if (strcasecmp(value.c_str(), previous) == 0) continue;
    set_tag(row, 1);
    std::size_t length = value.size() < sizeof previous - 1 ? value.size() : sizeof previous - 1;
    std::memcpy(previous, value.c_str(), length);
    previous[length] = '\0';
  }
  return get_num_tags();
}

// tag_all_different's pass for a database whose rows are its records: the same comparisons,
// on the field bytes, without a string made for every row. The count is get_num_tags's: the
// tagged rows and the rows without a record.
int kesta::tag_all_different_records(unsigned field) {
  char previous[256] = "";
  std::size_t previous_length = 0;
  int count = 0;
  for (std::size_t row = 0; row < records_.size(); ++row) {
    if (field <= USHRT_MAX) prefetch::field(records_, records_.size(), row, static_cast<unsigned short>(field));
    dbrecord* record = records_[row].get();
    std::string_view value;
    if (!record) {
      ++count;
    } else if (field < record->get_num_fields()) {
      value = c_text(record->fieldView(static_cast<unsigned short>(field)));
    }
    if (value.size() == previous_length &&
        (previous_length == 0 || strncasecmp(value.data(), previous, previous_length) == 0)) {
      continue;
    }
    if (record) {
      record->set_tag(1);
      ++count;
    }
    previous_length = std::min(value.size(), sizeof previous - 1);
    if (previous_length > 0) std::memcpy(previous, value.data(), previous_length);
  }
  return count;
}
