// KestaDebug: the invariant checks of databases and their views.

#include <cstdint>
#include <unordered_set>

#include "record/KestaDebugPrivate.h"
#include "view/KSTViewRep.h"

namespace {

constexpr std::size_t kMaxColumns = 0xFFFFu;
constexpr std::size_t kNotFound = 0xFFFFFFFFu;

bool fail(std::string* why, const std::string& text) {
  if (why) *why = text;
  return false;
}

}  // namespace

bool KestaDebug::check(const kesta& db, std::string* why) {
  if (db.fields_.size() > kMaxColumns) {
    return fail(why, std::to_string(db.fields_.size()) + " columns, more than 16-bit indices reach");
  }
  const std::size_t rows = db.records_.size();
  if (rows >= kNotFound) return fail(why, std::to_string(rows) + " records");
  if (db.tagged_.size() >= kNotFound) return fail(why, std::to_string(db.tagged_.size()) + " tagged entries");

  std::unordered_set<const dbrecord*> held;
  held.reserve(rows);
  for (std::size_t row = 0; row < rows; ++row) {
    const dbrecord* record = db.records_[row].get();
    if (!record) continue;
    const kesta* container = record->get_container();
    if (container && container != &db)
      return fail(why, "record " + std::to_string(row) + " belongs to another database");
    if (!held.insert(record).second)
      return fail(why, "record " + std::to_string(row) + " also stands in an earlier row");
  }

  if (db.show_tags_only_) {
    for (std::size_t i = 0; i < db.tagged_.size(); ++i) {
      const dbrecord* record = db.tagged_[i].get();
      if (record && held.count(record) == 0) {
        return fail(why, "tagged entry " + std::to_string(i) + " is not a record of the database");
      }
    }
  }

  const std::size_t indexed_rows = rows > db.tagged_.size() ? rows : db.tagged_.size();
  for (const auto& [id, row] : db.identifier_index_) {
    if (row >= indexed_rows) {
      return fail(why, "the identifier index names row " + std::to_string(row) + " of " + std::to_string(indexed_rows));
    }
  }
  return true;
}

bool KestaDebug::checkWithViews(const kesta& db, const std::vector<const KSTViewRep*>& views, std::string* why) {
  if (!check(db, why)) return false;
  for (std::size_t v = 0; v < views.size(); ++v) {
    const std::string which = "view " + std::to_string(v) + ": ";
    const KSTViewRep* view = views[v];
    if (!view) return fail(why, which + "null");
    for (const KSTViewRep* link = view; link; link = link->baseViewRep()) {
      if (link->database() != &db) return fail(why, which + "a view of its chain is on another database");
    }
    std::string view_why;
    if (!view->checkInvariants(&view_why)) return fail(why, which + view_why);
  }
  return true;
}
