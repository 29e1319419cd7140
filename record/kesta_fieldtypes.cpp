// Column types and widths: the type tokens of the column header in both directions, the
// minimum widths of the standard columns, the current width of a column's data, and the
// special-label test.

#include <strings.h>

#include "record/FieldTables.h"
#include "record/Prefetch.h"
#include "record/kesta.h"

namespace {

struct TypeToken {
  const char* name;  // what the reader accepts, ignoring case
  DBFieldTypes::eType code;
  bool written;  // false: the header carries the code as its own character instead
};

// Reader order matters: the first equal name wins.
// clang-format off
constexpr TypeToken kTypeTokens[] = {
    {"timecode", DBFieldTypes::kTimecode, true},     {"timecode_s", DBFieldTypes::kTimecodeS, true},
    {"text", DBFieldTypes::kText, true},             {"text_s", DBFieldTypes::kTextS, true},
    {"time_of_day", DBFieldTypes::kTimeOfDay, true}, {"date", DBFieldTypes::kDate, true},
    {"dos_date", DBFieldTypes::kDosDate, true},      {"char", DBFieldTypes::kChar, false},
    {"numeric", DBFieldTypes::kNumeric, true},       {"long", DBFieldTypes::kLong, true},
    {"double", DBFieldTypes::kDouble, true},
};
// clang-format on

}  // namespace

DBFieldTypes::eType kesta::fieldTypeFromString(const LightweightString<char>& token) {
  for (const TypeToken& t : kTypeTokens) {
    if (token.icompare(t.name) == 0) return t.code;
  }
  // Any other single character is its own code; files rely on this to carry codes that have
  // no name. The byte is signed, as the files were always read.
  if (token.size() == 1) return static_cast<DBFieldTypes::eType>(static_cast<signed char>(token[0]));
  return DBFieldTypes::kNone;
}

LightweightString<char> kesta::fieldTypeToString(DBFieldTypes::eType type) {
  LightweightString<char> out("\"");
  const TypeToken* found = nullptr;
  for (const TypeToken& t : kTypeTokens) {
    if (t.code == type && t.written) found = &t;
  }
  if (found) {
    out += found->name;
  } else {
    out += static_cast<char>(type);
  }
  out += '"';
  return out;
}

int kesta::getMinFieldSize(const char* name) {
  if (!name) name = "";
  for (const field_tables::MinFieldSize* entry = field_tables::kMinFieldSizes; entry->name; ++entry) {
    if (strcasecmp(name, entry->name) == 0) return entry->width;
  }
  return field_tables::kDefaultMinFieldSize;
}

bool kesta::isSpecialLabelField(unsigned long field) const {
  if (field >= fields_.size()) return false;
  return field_tables::isSpecialLabelName(fields_[field].name.c_str());
}

unsigned kesta::get_fieldsize(unsigned field) const {
  if (field >= fields_.size()) return 0;
  if (field_sizes_ && field < field_sizes_->size()) return (*field_sizes_)[field];
  const RecordList& all = records();
  unsigned widest = 0;
  for (std::size_t row = 0; row < all.size(); ++row) {
    const dbrecord* record = all[row].get();
    if (!record || field >= record->get_num_fields()) continue;
    const auto length = static_cast<unsigned>(record->fieldView(static_cast<unsigned short>(field)).size());
    if (length > widest) widest = length;
  }
  return widest;
}

std::vector<unsigned> kesta::get_fieldsizes() {
  std::vector<unsigned> widest(fields_.size(), 0);
  prefetch::walk(records(), [&](const dbrecord* record) {
    if (record) record->widen(widest.data(), widest.size());
  });
  // Still asked of get_fieldsize, which a derived class may answer its own way.
  struct ClearOnExit {
    const std::vector<unsigned>*& slot;
    ~ClearOnExit() { slot = nullptr; }
  };
  field_sizes_ = &widest;
  const ClearOnExit done{field_sizes_};
  std::vector<unsigned> sizes(fields_.size());
  for (unsigned f = 0; f < sizes.size(); ++f) sizes[f] = get_fieldsize(f);
  return sizes;
}

DBFieldTypes::eType kesta::get_field_type(unsigned field) const {
  return field < fields_.size() ? fields_[field].type : DBFieldTypes::kNone;
}

DBFieldTypes::eType kesta::get_fieldtype(unsigned field) const { return get_field_type(field); }

bool kesta::set_fieldtype(unsigned field, DBFieldTypes::eType type) {
  if (field >= fields_.size()) return false;
  // A column always has a type: 0 only ends descriptor arrays.
  fields_[field].type = type == DBFieldTypes::kNone ? DBFieldTypes::kText : type;
  return true;
}
