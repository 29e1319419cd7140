#ifndef KESTA_TESTS_RECORD_STORETESTUTIL_H
#define KESTA_TESTS_RECORD_STORETESTUTIL_H
// Small databases built from tables, column and row readers, a "recordsDeleted" listener, and
// derived databases whose row calls differ from the plain class's.

#include <string>
#include <utility>
#include <vector>

#include "record/kesta.h"
#include "support/Notifier.h"

namespace storetest {

using Rows = std::vector<std::vector<std::string>>;
using Strings = std::vector<std::string>;
using T = DBFieldTypes;
constexpr unsigned kNone = 0xFFFFFFFFu;

// Texts stored as given (leading blanks kept); a short row leaves the rest empty.
inline void addRows(kesta& db, const Rows& rows) {
  for (const auto& row : rows) {
    unsigned r = db.add_records(1);
    for (unsigned f = 0; f < row.size(); ++f) db.setField(r, f, LightweightString<char>(row[f].data(), row[f].size()));
  }
}
template <class Db = kesta>
Zr::Ptr<Db> makeDb(const std::vector<DBFieldDesc>& fields, const Rows& rows) {
  Zr::Ptr<Db> db(new Db(fields));
  addRows(*db, rows);
  return db;
}

// Rows "r0", "r1" ... (or another prefix) in the first column.
inline Rows namedRows(int n, const std::string& prefix = "r") {
  Rows rows;
  for (int i = 0; i < n; ++i) rows.push_back({prefix + std::to_string(i)});
  return rows;
}

// Writes each record out and reads it back in place, so plain lines keep their line as loaded
// records do. False at the first value that would not come back the same.
inline bool holdAsLines(kesta& db) {
  for (unsigned r = 0; r < db.get_num_records(); ++r) {
    Zr::Ptr<dbrecord> record = db.get_record(r), back(new dbrecord(0));
    if (!record) continue;
    TextFile line;
    record->write(line);
    back->read(line);
    if (back->get_num_fields() != record->get_num_fields()) return false;
    for (unsigned short f = 0; f < record->get_num_fields(); ++f) {
      if (back->fieldView(f) != record->fieldView(f)) return false;
    }
    line.setReadCursor(0);
    record->read(line);
  }
  return true;
}

// How many records keep their line.
inline unsigned heldCount(kesta& db) {
  unsigned held = 0;
  for (unsigned r = 0; r < db.get_num_records(); ++r) {
    if (Zr::Ptr<dbrecord> record = db.get_record(r)) held += record->heldAsLine();
  }
  return held;
}

// Column `field` of the visible rows; with `tagged`, of those whose tag is non-zero only.
inline Strings columnOf(iKST& db, unsigned field, bool tagged = false) {
  Strings out;
  for (unsigned r = 0; r < db.get_num_records(); ++r) {
    if (!tagged || db.get_tag(r) > 0) out.emplace_back(db.getField(r, field).c_str());
  }
  return out;
}

inline Rows rowsOf(kesta& db) {
  Rows out;
  for (unsigned r = 0; r < db.get_num_records(); ++r) {
    out.emplace_back();
    for (unsigned f = 0; f < db.get_num_fields(); ++f) out.back().emplace_back(db.getField(r, f).c_str());
  }
  return out;
}

inline std::vector<int> tagsOf(iKST& db) {
  std::vector<int> out;
  for (unsigned r = 0; r < db.get_num_records(); ++r) out.push_back(db.get_tag(r));
  return out;
}

inline void setTags(iKST& db, const std::vector<int>& tags) {
  for (unsigned r = 0; r < tags.size(); ++r) db.set_tag(r, tags[r]);
}

inline Strings namesOf(const kesta& db) {
  Strings out;
  for (unsigned f = 0; f < db.get_num_fields(); ++f) out.emplace_back(db.get_fieldname(f));
  return out;
}

inline Strings paramsOf(const KSTBase& db) {
  Strings out;
  for (const Zr::AttribValuePair& p : db.params())
    out.push_back(std::string(p.name().c_str()) + "=" + p.value().c_str());
  return out;
}

// The text of every "recordsDeleted" message the database issues while this lives.
class DeletionLog {
 public:
  explicit DeletionLog(kesta& db)
      : guard_(db.registerNotification(this, &DeletionLog::onDeleted,
                                       NotifyMsgTypeDictionary::instance().intern("recordsDeleted"))) {}
  int onDeleted(const NotifyMsg& msg) {
    texts.emplace_back(msg.text().c_str());
    return 0;
  }
  Strings texts;

 private:
  Zr::Ptr<Zr::Guard> guard_;
};

// Its row count is its full list even while only tagged records show, so index_tags walks
// every record.
class FullCountKesta : public kesta {
 public:
  using kesta::kesta;
  unsigned get_num_records() const override { return static_cast<unsigned>(records().size()); }
};

// Logs its delete_records calls.
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
