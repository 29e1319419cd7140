#ifndef KESTA_TESTS_RECORD_STORETESTUTIL_H
#define KESTA_TESTS_RECORD_STORETESTUTIL_H
// Helpers for the tag, sort, merge and query tests: small databases built from tables, column
// readers, a listener that records "recordsDeleted" texts, and a derived database whose row
// count is always its full list (so its tagged index is really filled).

#include <string>
#include <utility>
#include <vector>

#include "record/kesta.h"
#include "support/Notifier.h"

namespace storetest {

using Rows = std::vector<std::vector<std::string>>;

// A database with `fields` and one record per row; texts are stored as given (leading blanks
// kept), a row shorter than the field list leaves the rest empty.
template <class Db = kesta>
Zr::Ptr<Db> makeDb(const std::vector<DBFieldDesc>& fields, const Rows& rows) {
  Zr::Ptr<Db> db(new Db(fields));
  for (const auto& row : rows) {
    unsigned r = db->add_records(1);
    for (unsigned f = 0; f < row.size(); ++f) db->setField(r, f, LightweightString<char>(row[f].c_str()));
  }
  return db;
}

// Writes each record out and reads it back in place, so that the records of plain lines keep
// their line, as loaded ones do. False, with nothing read back, when some value would not come
// back the same (blanks at its ends, a carriage return ...). Changed marks end up set.
inline bool holdAsLines(kesta& db) {
  std::vector<Zr::Ptr<dbrecord>> records;
  TextFile lines;
  for (unsigned r = 0; r < db.get_num_records(); ++r) {
    Zr::Ptr<dbrecord> record = db.get_record(r);
    if (!record) continue;
    record->write(lines);
    records.push_back(record);
  }
  Zr::Ptr<dbrecord> back(new dbrecord(0));
  for (const Zr::Ptr<dbrecord>& record : records) {
    back->read(lines);
    if (back->get_num_fields() != record->get_num_fields()) return false;
    for (unsigned short f = 0; f < record->get_num_fields(); ++f) {
      if (back->fieldView(f) != record->fieldView(f)) return false;
    }
  }
  lines.setReadCursor(0);
  for (const Zr::Ptr<dbrecord>& record : records) record->read(lines);
  return true;
}

// Column `field` read row by row through the record source (visible rows only).
inline std::vector<std::string> columnOf(iKST& db, unsigned field) {
  std::vector<std::string> out;
  for (unsigned r = 0; r < db.get_num_records(); ++r) out.emplace_back(db.getField(r, field).c_str());
  return out;
}

// Column `field` of the rows whose tag is non-zero.
inline std::vector<std::string> taggedOf(iKST& db, unsigned field) {
  std::vector<std::string> out;
  for (unsigned r = 0; r < db.get_num_records(); ++r) {
    if (db.get_tag(r) > 0) out.emplace_back(db.getField(r, field).c_str());
  }
  return out;
}

inline void setTags(iKST& db, const std::vector<int>& tags) {
  for (unsigned r = 0; r < tags.size(); ++r) db.set_tag(r, tags[r]);
}

// Records the text of every "recordsDeleted" message the database issues while it lives.
class DeletionLog {
 public:
  explicit DeletionLog(kesta& db)
      : guard_(db.registerNotification(this, &DeletionLog::onDeleted,
                                       NotifyMsgTypeDictionary::instance().intern("recordsDeleted"))) {}
  int onDeleted(const NotifyMsg& msg) {
    texts.emplace_back(msg.text().c_str());
    return 0;
  }
  std::vector<std::string> texts;

 private:
  Zr::Ptr<Zr::Guard> guard_;
};

// A derived record source whose row count is its full list even while only tagged records are
// shown, so index_tags walks every record.
class FullCountKesta : public kesta {
 public:
  using kesta::kesta;
  unsigned get_num_records() const override { return static_cast<unsigned>(records().size()); }
};

// A plain database that logs its delete_records calls.
class DeleteSpyKesta : public kesta {
 public:
  using kesta::kesta;
  void delete_records(unsigned first, unsigned count) override {
    calls.emplace_back(first, count);
    kesta::delete_records(first, count);
  }
  std::vector<std::pair<unsigned, unsigned>> calls;
};

}  // namespace storetest

#endif
