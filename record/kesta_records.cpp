// kesta: record operations and identity. Inserting, appending and deleting records, setting
// fields by row, the identifier index (media identifiers to rows), field search, removing a
// column, and the changed marks.
//
// The identifier index is a cache: emptied by insert_records, add_records and delete_records,
// built again by the next lookup when it is empty. Other changes (sorting, set_field on other
// columns, removeField) leave it as it is, and set_field(row, id) files its one entry even into
// an index never built, which the next lookup then takes as built. Callers depend on these
// rules as they stand.

#include <strings.h>

#include <cstdio>
#include <cstring>
#include <typeinfo>

#include "record/FieldText.h"
#include "record/kesta.h"
#include "support/Notifier.h"

namespace {

constexpr unsigned kNotFound = 0xFFFFFFFFu;

std::size_t decimal_digits(std::size_t n) {
  std::size_t digits = 1;
  while (n >= 10) {
    n /= 10;
    ++digits;
  }
  return digits;
}

// "first first+1 ... last " : each row in decimal followed by one space.
LightweightString<char> deleted_rows_text(std::size_t first, std::size_t count) {
  std::size_t length = 0;
  for (std::size_t row = first; row < first + count; ++row) length += decimal_digits(row) + 1;
  LightweightString<char> text;
  text.resizeFor(static_cast<unsigned>(length));
  char number[24];
  for (std::size_t row = first; row < first + count; ++row) {
    const int n = std::snprintf(number, sizeof number, "%zu ", row);
    text.append(number, static_cast<std::size_t>(n));
  }
  return text;
}

int records_deleted_type() {
  static const int type = NotifyMsgTypeDictionary::instance().intern(LightweightString<char>("recordsDeleted"));
  return type;
}

}  // namespace

Zr::Ptr<dbrecord> kesta::make_dummy_record() {
  return Zr::Ptr<dbrecord>(new dbrecord(static_cast<unsigned short>(get_num_fields())));
}

unsigned kesta::get_num_records() const {
  return static_cast<unsigned>(show_tags_only_ ? tagged_.size() : records_.size());
}

Zr::Ptr<dbrecord> kesta::get_record(unsigned row) const {
  if (show_tags_only_) return row < tagged_.size() ? tagged_[row] : Zr::Ptr<dbrecord>();
  return row < records_.size() ? records_[row] : Zr::Ptr<dbrecord>();
}

bool kesta::rows_are_records() const { return typeid(*this) == typeid(kesta) && show_tags_only_ == 0; }

LightweightString<char> kesta::getField(unsigned row, unsigned field) const {
  Zr::Ptr<dbrecord> record = get_record(row);
  if (!record || field >= record->get_num_fields()) return LightweightString<char>();
  return record->fieldValue(static_cast<unsigned short>(field));
}

void kesta::insert_records(unsigned at, unsigned count) {
  if (show_tags_only_ || at > records_.size()) return;
  // Every new record is stored at `at` in turn, each replacing the one before: the call leaves
  // one record at `at` and `count` - 1 entries without a record after it. Callers rely on that
  // shape (such rows read as missing), so making the one that survives is enough.
  Zr::Ptr<dbrecord> fresh;
  if (count > 0) fresh = newRecord();
  records_.insert_empty(at, count);
  if (count > 0) records_[at] = fresh;
  identifier_index_.clear();
}

unsigned kesta::add_records(int count) {
  if (show_tags_only_) return kNotFound;
  const unsigned before = static_cast<unsigned>(records_.size());
  if (count > 0) {
    try {
      records_.reserve(records_.size() + static_cast<std::size_t>(count));
      for (int i = 0; i < count; ++i) records_.push_back(newRecord());
    } catch (...) {
      records_.erase(before, records_.size() - before);  // all or none
      throw;
    }
  }
  identifier_index_.clear();
  return before;
}

void kesta::delete_records(unsigned first, unsigned count) {
  if (show_tags_only_ || first >= records_.size()) return;
  if (count == 0) {
    identifier_index_.clear();
    return;
  }
  // A range running past the end is cut there, so listeners hear only of rows that went.
  const std::size_t available = records_.size() - first;
  const std::size_t removed = count < available ? count : available;
  // Everything that may fail to allocate comes before the first row moves.
  NotifyMsg message(deleted_rows_text(first, removed), Zr::Ptr<iObject>());
  const int type = records_deleted_type();

  records_.erase(first, removed);
  identifier_index_.clear();
  // A listener may let go of the last reference to this database.
  Zr::Ptr<kesta> keep_alive;
  if (refCount() > 0) keep_alive = Zr::Ptr<kesta>(this);
  issueNotification(message, type);
  changed_ = 1;
}

bool kesta::setField(unsigned row, unsigned field, const LightweightString<char>& value) {
  Zr::Ptr<dbrecord> record = get_record(row);
  if (!record || field >= record->get_num_fields()) return false;
  return record->setField(static_cast<unsigned short>(field), value);
}

int kesta::set_field(unsigned row, unsigned field, const char* value) {
  Zr::Ptr<dbrecord> record = get_record(row);
  if (!record) return 0;
  return record->set_field(static_cast<int>(field), value, true) ? 1 : 0;
}

bool kesta::set_field(unsigned row, const Cookie& id) {
  Zr::Ptr<dbrecord> record = get_record(row);
  if (!record) return false;
  const unsigned field = get_fieldnum(LightweightString<char>("cookie"));
  if (field == kNotFound || field >= record->get_num_fields()) return false;
  const bool stored = record->setField(static_cast<unsigned short>(field), id.asString(false));
  // Filed even into an index never built; the entry of the record's old identifier stays.
  identifier_index_.insert_or_assign(id, row);
  return stored;
}

Zr::Ptr<dbrecord> kesta::addRecord(const Cookie& id) {
  Zr::Ptr<dbrecord> record = newRecord();
  const int32_t was_changed = changed_;
  records_.push_back(record);
  try {
    const unsigned field = get_fieldnum(LightweightString<char>("cookie"));
    if (field == kNotFound || field >= record->get_num_fields()) return record;
    record->setField(static_cast<unsigned short>(field), id.asString(false));
    // An index not yet built stays unbuilt; an existing entry for `id` keeps its row.
    if (!identifier_index_.empty()) identifier_index_.emplace(id, static_cast<unsigned>(records_.size() - 1));
  } catch (...) {
    // All or none: the record goes again, and with it the mark its identifier set.
    records_.erase(records_.size() - 1, 1);
    changed_ = was_changed;
    throw;
  }
  return record;
}

unsigned kesta::getRowIndexByID(const Cookie& id) const {
  if (identifier_index_.empty()) {
    const unsigned field = get_fieldnum(LightweightString<char>("cookie"));
    if (field != kNotFound) {
      try {
        // emplace keeps the first row of an identifier held by several.
        for (unsigned row = 0; row < get_num_records(); ++row) {
          identifier_index_.emplace(Cookie(getField(row, field), false), row);
        }
      } catch (...) {
        identifier_index_.clear();  // never leave a partial build behind as if it were whole
        throw;
      }
    }
  }
  auto found = identifier_index_.find(id);
  return found == identifier_index_.end() ? kNotFound : found->second;
}

Zr::Ptr<dbrecord> kesta::get_record(const Cookie& id) const {
  const unsigned row = getRowIndexByID(id);
  // The index may name a row that has gone since it was built; such a row has no record.
  if (static_cast<int>(row) < 0 || row >= records_.size()) return Zr::Ptr<dbrecord>();
  return records_[row];
}

int kesta::findFirst(const char* field, const char* value, int length) {
  if (!field) return -1;
  if (!value) value = "";
  if (strcasecmp(field, "cookie") == 0) {
    const unsigned row = getRowIndexByID(Cookie(value, false));
    if (row != kNotFound) return static_cast<int>(row);
  }
  const unsigned column = get_fieldnum(LightweightString<char>(field));
  if (static_cast<int>(column) < 0 || column > 0xFFFFu) return -1;
  for (unsigned row = 0; row < get_num_records(); ++row) {
    if (row >= records_.size()) break;
    const dbrecord* record = records_[row].get();
    if (!record) continue;
    // As strncmp (or strcmp) with the value answers 0, without taking the record apart.
    std::string_view text = c_text(record->fieldView(static_cast<unsigned short>(column)));
    std::string_view wanted(value);
    if (length != 0) {
      text = text.substr(0, static_cast<std::size_t>(length));
      wanted = wanted.substr(0, static_cast<std::size_t>(length));
    }
    if (text == wanted) return static_cast<int>(row);
  }
  return -1;
}

void kesta::removeField(const LightweightString<char>& name) {
  const unsigned field = get_fieldnum(name);
  if (static_cast<int>(field) < 0 || field >= fields_.size()) return;
  fields_.erase(fields_.begin() + static_cast<std::ptrdiff_t>(field));
  field_name_index_.clear();
  for (std::size_t row = 0; row < records_.size(); ++row) {
    dbrecord* record = records_[row].get();
    if (record) record->removeField(static_cast<unsigned short>(field));
  }
}

void kesta::clear_changed() { clear_marks(records_.size()); }

void kesta::clear_marks(std::size_t rows) {
  for (std::size_t row = 0; row < rows; ++row) {
    dbrecord* record = records_[row].get();
    if (record) record->clear_changed();
  }
  changed_ = 0;
}
