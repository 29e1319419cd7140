#ifndef KESTA_RECORD_KESTADEBUGPRIVATE_H
#define KESTA_RECORD_KESTADEBUGPRIVATE_H
// KestaDebug: invariant checks over a database and the views attached to it, for tests and
// fuzzers. Not installed and not part of the library's interface: a check walks every record
// and every view row, so it belongs in debugging, never on a production path.
//
//   std::string why;
//   EXPECT_TRUE(KestaDebug::check(*db, &why)) << why;
//   EXPECT_TRUE(KestaDebug::checkWithViews(*db, {all.get(), tagged.get()}, &why)) << why;
//
// What a database must satisfy whatever was done to it:
//  1. At most 65535 columns (fields are addressed with 16-bit indices); fewer than
//     4294967295 records and tagged-index entries (that number means "not found").
//  2. Every record of the full list belongs to this database: its container is this
//     database, or none (copies made by the copying constructor carry none).
//  3. No record stands in two rows of the full list.
//  4. While show-tags-only is on, every record of the tagged index is one of the full list.
//  5. When the identifier index is built, every row it names is below the number of rows it
//     was built over (the full list, or the tagged index).
// The field-name index is a cache that a reload keeps as it was, so it is not checked.
//
// Thread safety: reads only; run it while nothing changes the database or its views.

#include <string>
#include <vector>

#include "record/kesta.h"

class KSTViewRep;

class KESTA_API KestaDebug {
 public:
  // True when `db` satisfies the invariants above; otherwise false, with the first broken one
  // described in `why` (when not null).
  static bool check(const kesta& db, std::string* why);
  // check(db), then for each view: it is attached to `db`, every view of its base chain is
  // too, and its own checkInvariants holds. Views are listed by the caller, since a database
  // does not know its views.
  static bool checkWithViews(const kesta& db, const std::vector<const KSTViewRep*>& views, std::string* why);
  // The full record list, which the visible rows hide while show-tags-only is on: for a check
  // that compares it with a model, also on a plain database, which no subclass may reach into.
  static const RecordList& records(const kesta& db) noexcept { return db.records_; }
};

#endif
