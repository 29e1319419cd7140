// Deletions through chained views (database <- A <- B) and single views, checked by the exact
// messages every listener hears, in order, and by the records each view shows afterwards.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <sstream>

#include "view/ViewProbe.h"

namespace {

using viewprobe::Probe;
using viewprobe::shown;
using Log = std::vector<std::string>;

// database <- A <- B, each showing every row; the probes register before the views, so each
// object's probe hears a message before the views do.
struct Chain {
  explicit Chain(int rows) : db(viewprobe::makeDatabase(rows)) {
    probes.push_back(std::make_unique<Probe>(*db, viewmodel::kDatabase, log));
    for (KSTViewRep** v : {&a, &b}) {
      *v = new KSTViewRep(db.get());
      (*v)->addUse();
      probes.push_back(std::make_unique<Probe>(**v, v == &a ? 0 : 1, log));
    }
    b->baseView(a);
    a->displayAllRecords();
    b->displayAllRecords();
    log.clear();
  }
  ~Chain() {
    probes.clear();
    b->releaseUse();
    a->releaseUse();
  }
  Zr::Ptr<kesta> db;
  KSTViewRep* a = nullptr;
  KSTViewRep* b = nullptr;
  Log log;
  std::vector<std::unique_ptr<Probe>> probes;
};

// Words joined by spaces, each followed by `end`.
template <class T>
std::string joined(const std::vector<T>& items, const char* end = "") {
  std::string out;
  for (const T& item : items) {
    std::ostringstream word;
    word << item;
    out += (out.empty() ? "" : " ") + word.str() + end;
  }
  return out;
}

std::string entries(KSTViewRep& view) {
  std::vector<unsigned> rows;
  for (int i = 0; i < static_cast<int>(view.get_num_records()); ++i) rows.push_back(view.sourceRow(i));
  return joined(rows);
}

TEST(ViewChain, DeletionsRepairEveryViewWithTheExactMessages) {
  // B hears A's removal and A's summary, then the database's own message in database rows, so
  // it loses three rows for one record; a summary of -1 wraps B's entry 0 past every row.
  const char* at_one =
      "db recordsDeleted [1 ]; v0 recordsDeleted [1 ]; v1 recordsDeleted [1 ]; v1 recordsDeleted [0 ]; "
      "v1 recordsChanged []; v0 recordsDeleted [0 ]; v1 recordsDeleted [0 ]; v1 recordsDeleted [-1 ]; "
      "v1 recordsChanged []; v0 recordsChanged []; v1 recordsDeleted [1 ]; v1 recordsDeleted [0 ]; "
      "v1 recordsChanged [];";
  struct Case {
    const char* what;
    int rows;
    std::function<void(Chain&)> act;
    std::string heard;
    const char* after;  // what the database, A and B show, and B's entries
  };
  // clang-format off
  const Case cases[] = {
      {"at the database", 5, [](Chain& c) { c.db->delete_records(1, 1); }, at_one, "0 2 3 4 | 0 2 3 4 | 0 2 | 0 1"},
      {"through A", 5, [](Chain& c) { c.a->deleteRecords(1, 1); }, at_one, "0 2 3 4 | 0 2 3 4 | 0 2 | 0 1"},
      {"through B", 5, [](Chain& c) { c.b->deleteRecords(3, 1); },
       "db recordsDeleted [3 ]; v0 recordsDeleted [3 ]; v1 recordsDeleted [3 ]; v1 recordsDeleted [2 ]; "
       "v1 recordsChanged []; v0 recordsDeleted [2 ]; v1 recordsDeleted [2 ]; v1 recordsDeleted [1 ]; "
       "v1 recordsChanged []; v0 recordsChanged [];", "0 1 2 4 | 0 1 2 4 | 0 1 2 | 0 1 2"},
      {"the lowest row through B", 4, [](Chain& c) { c.b->deleteRecords(0, 1); },
       "db recordsDeleted [0 ]; v0 recordsDeleted [0 ]; v1 recordsDeleted [0 ]; v1 recordsDeleted [-1 ]; "
       "v1 recordsChanged []; v0 recordsDeleted [-1 ]; v0 recordsChanged []; v1 recordsDeleted [1 ]; "
       "v1 recordsDeleted [0 ]; v1 recordsChanged [];", "1 2 3 | 1 2 3 | -1 1 | 4294967294 0"},
      // Removal takes no record; a run from view row 1 of a count of 2 is one row long.
      {"removal through B", 4, [](Chain& c) { EXPECT_EQ(c.b->removeRecordsFromBaseView(1, 2), 2); },
       "v0 recordsDeleted [1 ]; v1 recordsDeleted [1 ]; v1 recordsDeleted [0 ]; v1 recordsChanged []; "
       "v0 recordsDeleted [1 ]; v1 recordsDeleted [1 ]; v1 recordsDeleted [0 ]; v1 recordsChanged [];",
       "0 1 2 3 | 0 3 | 0 3 | 0 1"},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Chain chain(c.rows);
    c.act(chain);
    EXPECT_EQ(joined(chain.log, ";"), c.heard);
    EXPECT_EQ(joined(shown(*chain.db)) + " | " + joined(shown(*chain.a)) + " | " + joined(shown(*chain.b)) + " | " +
                  entries(*chain.b),
              c.after);
    for (KSTViewRep* view : {chain.a, chain.b}) {
      std::string why;
      EXPECT_TRUE(view->checkInvariants(&why)) << why;
    }
  }
}

TEST(ViewRepair, SingleViewsHearTheirOwnRemovalsAndSummaries) {
  struct Case {
    const char* what;
    std::vector<std::pair<int, int>> display;  // (first, count) appended in turn
    std::function<void(kesta&, KSTViewRep&)> act;
    const char* after;  // the view's entries and what it shows
    std::string heard;
  };
  const auto deleteTagged = [](kesta&, KSTViewRep& v) {
    for (unsigned row : {1u, 2u, 4u}) v.set_tag(row, 1);
    EXPECT_EQ(v.deleteTagged(), 3);
  };
  const auto removeTagged = [](kesta&, KSTViewRep& v) {
    for (unsigned row : {1u, 2u, 4u}) v.set_tag(row, 1);
    EXPECT_EQ(v.removeTagged(), 3);
  };
  // clang-format off
  const Case cases[] = {
      {"entries 0, 2, 3 lose database rows 1 and 2", {{0, 1}, {2, 2}},
       [](kesta& db, KSTViewRep&) { db.delete_records(1, 2); }, "0 1 | 0 3",
       "db recordsDeleted [1 2 ]; v0 recordsDeleted [1 ]; v0 recordsDeleted [1 ]; v0 recordsChanged [];"},
      {"both entries of a duplicated row go", {{2, 1}, {0, 1}, {2, 1}, {1, 1}},
       [](kesta& db, KSTViewRep&) { db.delete_records(2, 1); }, "0 1 | 0 1",
       "db recordsDeleted [2 ]; v0 recordsDeleted [0 ]; v0 recordsDeleted [1 ]; v0 recordsDeleted [-1 0 ]; "
       "v0 recordsChanged [];"},
      {"a run from the front goes down in one deletion", {{0, 6}},
       [](kesta&, KSTViewRep& v) { v.deleteRecords(0, 3); }, "0 1 2 | 3 4 5",
       "db recordsDeleted [0 1 2 ]; v0 recordsDeleted [0 ]; v0 recordsDeleted [0 ]; v0 recordsDeleted [0 ]; "
       "v0 recordsDeleted [-1 0 1 ]; v0 recordsChanged [];"},
      // A run starting at view row 1 of a count of 2 is one row long: rows 1 and 2 go apart.
      {"deleting tagged rows 1, 2 and 4", {{0, 6}}, deleteTagged, "0 1 2 | 0 3 5",
       "db recordsDeleted [1 ]; v0 recordsDeleted [1 ]; v0 recordsDeleted [0 ]; v0 recordsChanged []; "
       "db recordsDeleted [1 ]; v0 recordsDeleted [1 ]; v0 recordsDeleted [0 ]; v0 recordsChanged []; "
       "db recordsDeleted [2 ]; v0 recordsDeleted [2 ]; v0 recordsDeleted [1 ]; v0 recordsChanged [];"},
      {"removing tagged rows 1, 2 and 4", {{0, 6}}, removeTagged, "0 3 5 | 0 3 5",
       "v0 recordsDeleted [1 2 ]; v0 recordsDeleted [2 ];"},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Zr::Ptr<kesta> db = viewprobe::makeDatabase(6);
    Log log;
    auto db_probe = std::make_unique<Probe>(*db, viewmodel::kDatabase, log);  // hears before the view
    KSTViewRep* view = new KSTViewRep(db.get());
    view->addUse();
    {
      Probe probe(*view, 0, log);
      for (const auto& [first, count] : c.display)
        view->displayRecordsAt(first, count, static_cast<int>(view->get_num_records()));
      c.act(*db, *view);
      EXPECT_EQ(entries(*view) + " | " + joined(shown(*view)), c.after);
      EXPECT_EQ(joined(log, ";"), c.heard);
      EXPECT_EQ(view->countTags(), 0);
    }
    db_probe.reset();
    view->releaseUse();
  }
}

}  // namespace
