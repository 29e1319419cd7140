// dbrecord: field access, the setters and their changed marks, the record's shape, and the
// export of its label fields to a configuration block. The text-line form is in
// dbrecord_line.cpp.

#include "record/dbrecord.h"

#include <strings.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>
#include <vector>

#include "record/CharClass.h"
#include "record/kesta.h"

namespace {

// Fields are addressed with 16-bit indices.
constexpr std::size_t kMaxFields = USHRT_MAX;

// Read once per process: hosts switch the secondary reel columns off for the whole session.
bool reel_fields_editable() {
  static const int setting = config_int("dbv_reel_field_editable", 1, INT_MIN, INT_MAX);
  return setting != 0;
}

struct LabelKey {
  const char* column;
  const char* key;
};

// Rows after the first kPrimaryLabels are the secondary reels, exported only while the reel
// fields are editable.
constexpr LabelKey kLabelKeys[] = {
    {"notes", "notes"},       {"who", "who"},
    {"scene", "scene"},       {"description", "description"},
    {"shot", "shot"},         {"reel", "reelid"},
    {"snd reel", "reelid1"},  {"24P reel", "24P_reel"},
    {"cam reel", "camreel"},  {"comp reel", "comp_reel"},
    {"lab reel", "lab_reel"},
};
constexpr std::size_t kPrimaryLabels = 6;

}  // namespace

dbrecord::dbrecord(unsigned short n) : fields_(n) {}

dbrecord::dbrecord(const dbrecord& other) : Zr::InternalRefCount(), iVirtual(), iObject() {
  // A record that still keeps its line lends the copy that line: nothing is taken apart. Its
  // line is never changed while it is held, even by a reader taking it apart meanwhile.
  if (other.form_.load(std::memory_order_acquire) == kLine) {
    line_.text = other.line_.text;
    line_.at = other.line_.at;
    line_.length = other.line_.length;
    line_.fields = other.line_.fields;
    std::memcpy(line_.near_starts, other.line_.near_starts, sizeof line_.near_starts);
    if (other.line_.far_starts) {
      const std::size_t size = other.line_.far_size();
      line_.far_starts.reset(new uint16_t[size]);
      std::memcpy(line_.far_starts.get(), other.line_.far_starts.get(), size * sizeof(uint16_t));
      line_.copied = other.line_.copied;
    }
    form_.store(kLine, std::memory_order_release);
    return;
  }
  fields_ = other.fields();
}

dbrecord::~dbrecord() = default;

dbrecord& dbrecord::operator=(const dbrecord& other) {
  const unsigned short count = other.get_num_fields();
  own_fields().resize(count);
  // Through set_field on purpose: callers rely on the copy losing leading white space and
  // marking this record (and its database) changed.
  for (unsigned short i = 0; i < count; ++i) {
    const char* text = other.get_field(i);
    set_field(i, text ? text : "", true);
  }
  return *this;
}

const char* dbrecord::get_field(unsigned short i) const {
  if (i >= get_num_fields()) return nullptr;
  return fields()[i].c_str();
}

const LightweightString<char>& dbrecord::getField(unsigned short i) const {
  static const LightweightString<char> kEmpty;
  if (i >= get_num_fields()) return kEmpty;
  return fields()[i];
}

bool dbrecord::in_field(int i, char* dst, int len) {
  if (!in_range(i) || !dst || len < 0) return false;
  std::strncpy(dst, fields()[static_cast<std::size_t>(i)].c_str(), static_cast<std::size_t>(len));
  dst[len] = 0;
  return true;
}

bool dbrecord::is_blank() const {
  if (is_line()) return line_.length + 1 == 3u * line_.fields;  // nothing but "" fields
  for (const LightweightString<char>& field : fields_) {
    if (!field.empty()) return false;
  }
  return true;
}

bool dbrecord::set_field(int i, const char* text, bool trim) {
  if (!in_range(i)) return false;
  std::string_view value;
  if (text) {
    if (trim) {
      while (char_class::isAsciiSpace(*text)) ++text;
    }
    value = text;
  }
  // A save stores every record's tag this way, mostly the text already there: that leaves
  // the field string, or the line, as it is. Storing nothing still counts as a store: callers
  // use it to flag a record as touched.
  if (fieldView(static_cast<unsigned short>(i)) != value) {
    LightweightString<char>& field = own_fields()[static_cast<std::size_t>(i)];
    if (value.empty()) {
      field.clear();
    } else {
      field = LightweightString<char>(value);
    }
  }
  mark_changed();
  return true;
}

bool dbrecord::set_field(int i, int value) {
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, "%d", value);
  return set_field(i, buffer, true);
}

bool dbrecord::set_field(int i, unsigned value) {
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, "%u", value);
  return set_field(i, buffer, true);
}

bool dbrecord::set_field(int i, double value) {
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, "%.8lf", value);
  return set_field(i, buffer, true);
}

bool dbrecord::set_field(int i, bool value) {
  char buffer[256] = {value ? 't' : 'f', 0};
  return set_field(i, buffer, true);
}

bool dbrecord::setField(unsigned short i, const LightweightString<char>& s) {
  if (i >= get_num_fields()) return false;
  if (fieldView(i) == s.view()) return true;
  own_fields()[i] = s;
  mark_changed();
  return true;
}

void dbrecord::setFields(const std::string_view* texts, unsigned short n) {
  n = std::min(n, get_num_fields());
  unsigned short first = 0;
  while (first < n && fieldView(first) == texts[first]) ++first;
  if (first == n) return;
  // Reused from record to record, as the line reader's.
  [[gnu::tls_model("initial-exec")]] thread_local LightweightString<char>::Batch batch;
  [[gnu::tls_model("initial-exec")]] thread_local std::vector<LightweightString<char>> made;
  batch.clear();
  for (unsigned short i = 0; i < n; ++i) {
    const std::size_t size = texts[i].size();
    if (size != 0) std::memcpy(batch.reserve(size), texts[i].data(), size);
    batch.commit(size);
  }
  made.resize(n);
  batch.assign(made.data());
  std::vector<LightweightString<char>>& fields = own_fields();
  for (unsigned short i = first; i < n; ++i) {
    if (fields[i].view() != texts[i]) fields[i].swap(made[i]);
  }
  // What was not stored lets its share of the block go now.
  for (LightweightString<char>& left : made) left.clear();
  mark_changed();
}

void dbrecord::clear() {
  if (is_line()) {
    const uint16_t count = line_.fields;
    fields_.assign(count, LightweightString<char>());
    line_ = PlainLine();
    form_.store(kFields, std::memory_order_release);
    return;
  }
  line_ = PlainLine();
  for (LightweightString<char>& field : fields_) field.clear();
}

void dbrecord::removeField(unsigned short i) {
  if (i >= get_num_fields()) return;
  std::vector<LightweightString<char>>& fields = own_fields();
  fields.erase(fields.begin() + i);
}

void dbrecord::resizeRecord(int n, int* fill, bool) {
  if (n < 0 || !fill) return;
  const std::size_t wanted = static_cast<std::size_t>(n);
  own_fields().resize(wanted < kMaxFields ? wanted : kMaxFields);
}

int dbrecord::update(configb* cfg) {
  const bool all_reels = reel_fields_editable();
  if (!container_ || !cfg) return 0;
  const unsigned name_field = container_->get_fieldnum(LightweightString<char>("name"));
  if (name_field == static_cast<unsigned>(-1)) return 0;

  const std::vector<LightweightString<char>>& fields = this->fields();
  strp_field value;
  if (name_field < fields.size()) value.set(fields[name_field]);
  cfg->set("slate/take", value);
  cfg->set("name", value);

  const std::size_t rows = all_reels ? std::size(kLabelKeys) : kPrimaryLabels;
  int exported = 0;
  for (unsigned short i = 0; i < fields.size(); ++i) {
    const char* column = container_->get_fieldname(i);
    if (!column) continue;
    for (std::size_t row = 0; row < rows; ++row) {
      if (strcasecmp(column, kLabelKeys[row].column) == 0) {
        value.set(fields[i]);
        cfg->set(kLabelKeys[row].key, value);
        ++exported;
        break;
      }
    }
  }
  return exported;
}

void dbrecord::mark_changed() noexcept {
  changed_ = 1;
  if (container_) container_->changed_ = 1;
}
