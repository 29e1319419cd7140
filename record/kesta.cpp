// kesta: construction and life cycle, columns, parameters, and typed field access by row.

#include "record/kesta.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "record/KestaRevision.h"
#include "support/Config.h"

namespace {

constexpr unsigned kNotFound = 0xFFFFFFFFu;

}  // namespace

// ------------------------------------------------------------------ construction

kesta::kesta() { init(); }

kesta::kesta(const DBFieldDesc* descs) {
  init();
  for (const DBFieldDesc* d = descs; d && d->type != DBFieldTypes::kNone; ++d) fields_.push_back(*d);
  valid_ = 1;
  post_init();
}

kesta::kesta(const std::vector<DBFieldDesc>& descs) {
  init();
  setFields(descs);
}

kesta::kesta(const kesta& other, int copyRecords) {
  init();
  revision_ = other.revision_;
  fields_ = other.fields_;
  field_name_index_ = other.field_name_index_;
  share_params(other);
  post_init();
  if (copyRecords) {
    // Through other's own row numbering: a database showing only its tagged records gives
    // copies of those alone. Rows without a record have nothing to copy.
    for (unsigned row = 0; row < other.get_num_records(); ++row) {
      Zr::Ptr<dbrecord> source = other.get_record(row);
      if (source) records_.push_back(Zr::Ptr<dbrecord>(new dbrecord(*source)));
    }
  }
  valid_ = 1;
}

kesta::kesta(const LightweightString<wchar_t>& fileName, int maxRecords, bool strict) {
  init();
  file_name_ = fileName;
  loadFromFile(maxRecords, strict);
}

kesta::~kesta() {
  // Callers may keep records after the database goes; they must not mark a dead database.
  auto detach = [this](dbrecord* record) {
    if (record && record->get_container() == this) record->set_container(nullptr);
  };
  for (std::size_t row = 0; row < records_.size(); ++row) detach(records_[row].get());
  for (const Zr::Ptr<dbrecord>& record : tagged_) detach(record.get());
}

void kesta::init() {
  empty_params();
  show_tags_only_ = 0;
  changed_ = 0;
  valid_ = 0;
  revision_ = 1;
  match_options_ = 0;
  fields_.clear();
}

void kesta::free() {
  records_.clear();
  tagged_.clear();
  empty_params();
  field_name_index_.clear();
  identifier_index_.clear();
  fields_.clear();
  init();
}

void kesta::post_init() {
  set_sortfield(0);
  // Appended, not rebuilt: a database is meant to receive its columns once.
  for (unsigned f = 0; f < fields_.size(); ++f) special_label_flags_.push_back(isSpecialLabelField(f));
  getFieldNameIndexMap();
}

void kesta::setFields(const std::vector<DBFieldDesc>& descs) {
  std::vector<DBFieldDesc> fresh(descs);  // `descs` may be our own field list
  free();
  fields_.swap(fresh);
  valid_ = 1;
  post_init();
}

// ----------------------------------------------------------------------- columns

unsigned kesta::addField(const DBFieldDesc& desc) {
  const unsigned existing = get_fieldnum(desc.name);
  if (existing != kNotFound) return existing;
  const unsigned added = static_cast<unsigned>(fields_.size());
  fields_.push_back(desc);
  special_label_flags_.push_back(isSpecialLabelField(added));
  field_name_index_.clear();
  const int wanted = static_cast<int>(fields_.size());
  int fill = 1;
  for (std::size_t row = 0; row < records_.size(); ++row) {
    dbrecord* record = records_[row].get();
    if (record) record->resizeRecord(wanted, &fill, true);
  }
  return added;
}

unsigned kesta::get_num_fields() const { return static_cast<unsigned>(fields_.size()); }

const char* kesta::get_fieldname(unsigned field) const {
  return field < fields_.size() ? fields_[field].name.c_str() : "";
}

unsigned kesta::get_fieldnum(const LightweightString<char>& name) const {
  if (fields_.empty() || name.empty()) return kNotFound;
  const FieldNameIndex& index = getFieldNameIndexMap();
  auto found = index.find(name);
  return found == index.end() ? kNotFound : found->second;
}

const kesta::FieldNameIndex& kesta::getFieldNameIndexMap() const {
  if (!field_name_index_.empty()) return field_name_index_;
  // emplace keeps the first of names equal ignoring case: with duplicates, the first column wins.
  for (std::size_t f = 0; f < fields_.size(); ++f) {
    field_name_index_.emplace(fields_[f].name, static_cast<uint16_t>(f));
  }
  return field_name_index_;
}

bool kesta::set_fieldname(unsigned field, const char* name) {
  static const int strip_ampersands = config_int("remove_fieldname_ampersands", 1, INT_MIN, INT_MAX);
  if (field >= fields_.size()) return false;
  LightweightString<char>& stored = fields_[field].name;
  if (!name || !*name) {
    stored.clear();
  } else if (strip_ampersands != 0 && std::strchr(name, '&')) {
    // Names may carry menu accelerator marks ("Sc&ene"), dropped unless the setting is 0.
    stored = strip_char_from_string('&', name);
  } else {
    stored = LightweightString<char>(name);
  }
  field_name_index_.clear();
  return true;
}

LightweightString<char> kesta::strip_char_from_string(char c, const char* s) {
  LightweightString<char> out;
  if (!s) return out;
  out.resizeFor(static_cast<unsigned>(std::strlen(s)));
  const char* run = s;
  for (const char* p = s;; ++p) {
    if (*p == c || *p == '\0') {
      out.append(run, static_cast<std::size_t>(p - run));
      if (*p == '\0') break;
      run = p + 1;
    }
  }
  return out;
}

// -------------------------------------------------------------------- parameters

int kesta::add_param(const LightweightString<char>& key, const LightweightString<char>& value) {
  if (num_params() == 0) {
    char revision[32];
    std::snprintf(revision, sizeof revision, "Rev %d", kesta_revision::kCurrentLevel);
    append_param(LightweightString<char>("KESTA"), LightweightString<char>(revision));
  }
  return KSTBase::add_param(key, value);
}

// --------------------------------------------------------------------- accessors

void kesta::set_filename(LightweightString<wchar_t> name) { file_name_ = name; }

bool kesta::set_field(unsigned row, unsigned field, int value) {
  Zr::Ptr<dbrecord> record = get_record(row);
  return record && record->set_field(static_cast<int>(field), value);
}

bool kesta::set_field(unsigned row, unsigned field, double value) {
  Zr::Ptr<dbrecord> record = get_record(row);
  return record && record->set_field(static_cast<int>(field), value);
}

bool kesta::set_field(unsigned row, unsigned field, bool value) {
  Zr::Ptr<dbrecord> record = get_record(row);
  return record && record->set_field(static_cast<int>(field), value);
}

// Unlike the record's own in_field, an empty field answers false here and leaves the output
// alone; callers use that to keep their defaults.
bool kesta::in_field(unsigned row, unsigned field, char* dst, int len) const {
  LightweightString<char> text = getField(row, field);
  if (text.empty() || !dst || len < 0) return false;
  std::strncpy(dst, text.c_str(), static_cast<std::size_t>(len));
  dst[len] = '\0';
  return true;
}

bool kesta::in_field(unsigned row, unsigned field, int& value) const {
  LightweightString<char> text = getField(row, field);
  if (text.empty()) return false;
  value = static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
  return true;
}

bool kesta::in_field(unsigned row, unsigned field, double& value) const {
  LightweightString<char> text = getField(row, field);
  if (text.empty()) return false;
  value = std::strtod(text.c_str(), nullptr);
  return true;
}

bool kesta::in_field(unsigned row, unsigned field, bool& value) const {
  LightweightString<char> text = getField(row, field);
  if (text.empty()) return false;
  value = text[0] == 't';
  return true;
}

// ------------------------------------------------------------------------ records

Zr::Ptr<dbrecord> kesta::newRecord() {
  Zr::Ptr<dbrecord> record(new dbrecord(static_cast<unsigned short>(get_num_fields())));
  record->set_container(this);
  return record;
}
