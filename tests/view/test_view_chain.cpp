// Deletions through chained views (database <- A <- B) and single views, checked by the exact
// messages every listener hears, in order, and by the records each view shows afterwards.

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "view/ViewProbe.h"

namespace {

using viewprobe::Probe;
using Log = std::vector<std::string>;
using Ids = std::vector<int>;

template <class Source>
Ids shown(Source& source) {
  Ids ids;
  for (unsigned r = 0; r < source.get_num_records(); ++r) ids.push_back(viewprobe::identity(source.get_record(r)));
  return ids;
}

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

TEST(ViewChain, DeletionsRepairEveryViewWithTheExactMessages) {
  // B hears A's removal and A's summary, then the database's own message in database rows, so
  // it loses three rows for one record; a summary of -1 wraps B's entry 0 past every row.
  const Log at_one{"db recordsDeleted [1 ]", "v0 recordsDeleted [1 ]",  "v1 recordsDeleted [1 ]",
                   "v1 recordsDeleted [0 ]", "v1 recordsChanged []",    "v0 recordsDeleted [0 ]",
                   "v1 recordsDeleted [0 ]", "v1 recordsDeleted [-1 ]", "v1 recordsChanged []",
                   "v0 recordsChanged []",   "v1 recordsDeleted [1 ]",  "v1 recordsDeleted [0 ]",
                   "v1 recordsChanged []"};
  struct Case {
    const char* what;
    int rows;
    std::function<void(Chain&)> act;
    Log heard;
    Ids db, a, b;
    std::vector<unsigned> b_entries;
  };
  const Case cases[] = {
      {"at the database", 5, [](Chain& c) { c.db->delete_records(1, 1); }, at_one, {0, 2, 3, 4}, {0, 2, 3, 4},
       {0, 2}, {0, 1}},
      {"through A", 5, [](Chain& c) { c.a->deleteRecords(1, 1); }, at_one, {0, 2, 3, 4}, {0, 2, 3, 4}, {0, 2},
       {0, 1}},
      {"through B", 5, [](Chain& c) { c.b->deleteRecords(3, 1); },
       {"db recordsDeleted [3 ]", "v0 recordsDeleted [3 ]", "v1 recordsDeleted [3 ]", "v1 recordsDeleted [2 ]",
        "v1 recordsChanged []", "v0 recordsDeleted [2 ]", "v1 recordsDeleted [2 ]", "v1 recordsDeleted [1 ]",
        "v1 recordsChanged []", "v0 recordsChanged []"},
       {0, 1, 2, 4}, {0, 1, 2, 4}, {0, 1, 2}, {0, 1, 2}},
      {"the lowest row through B", 4, [](Chain& c) { c.b->deleteRecords(0, 1); },
       {"db recordsDeleted [0 ]", "v0 recordsDeleted [0 ]", "v1 recordsDeleted [0 ]", "v1 recordsDeleted [-1 ]",
        "v1 recordsChanged []", "v0 recordsDeleted [-1 ]", "v0 recordsChanged []", "v1 recordsDeleted [1 ]",
        "v1 recordsDeleted [0 ]", "v1 recordsChanged []"},
       {1, 2, 3}, {1, 2, 3}, {-1, 1}, {4294967294u, 0}},
      // Removal takes no record; a run from view row 1 of a count of 2 is one row long.
      {"removal through B", 4, [](Chain& c) { EXPECT_EQ(c.b->removeRecordsFromBaseView(1, 2), 2); },
       {"v0 recordsDeleted [1 ]", "v1 recordsDeleted [1 ]", "v1 recordsDeleted [0 ]", "v1 recordsChanged []",
        "v0 recordsDeleted [1 ]", "v1 recordsDeleted [1 ]", "v1 recordsDeleted [0 ]", "v1 recordsChanged []"},
       {0, 1, 2, 3}, {0, 3}, {0, 3}, {0, 1}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Chain chain(c.rows);
    c.act(chain);
    EXPECT_EQ(chain.log, c.heard);
    EXPECT_EQ(shown(*chain.db), c.db);
    EXPECT_EQ(shown(*chain.a), c.a);
    EXPECT_EQ(shown(*chain.b), c.b);
    std::vector<unsigned> entries;
    for (int i = 0; i < static_cast<int>(chain.b->get_num_records()); ++i) entries.push_back(chain.b->sourceRow(i));
    EXPECT_EQ(entries, c.b_entries);
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
    std::vector<unsigned> entries;
    Ids ids;
    Log heard;
  };
  const Case cases[] = {
      {"entries 0, 2, 3 lose database rows 1 and 2", {{0, 1}, {2, 2}},
       [](kesta& db, KSTViewRep&) { db.delete_records(1, 2); }, {0, 1}, {0, 3},
       {"db recordsDeleted [1 2 ]", "v0 recordsDeleted [1 ]", "v0 recordsDeleted [1 ]", "v0 recordsChanged []"}},
      {"both entries of a duplicated row go", {{2, 1}, {0, 1}, {2, 1}, {1, 1}},
       [](kesta& db, KSTViewRep&) { db.delete_records(2, 1); }, {0, 1}, {0, 1},
       {"db recordsDeleted [2 ]", "v0 recordsDeleted [0 ]", "v0 recordsDeleted [1 ]", "v0 recordsDeleted [-1 0 ]",
        "v0 recordsChanged []"}},
      {"a deletion after every entry says nothing", {{0, 2}}, [](kesta& db, KSTViewRep&) { db.delete_records(3, 2); },
       {0, 1}, {0, 1}, {"db recordsDeleted [3 4 ]"}},
      // A run from the front goes down in one deletion.
      {"a run from the front", {{0, 6}}, [](kesta&, KSTViewRep& v) { v.deleteRecords(0, 3); }, {0, 1, 2}, {3, 4, 5},
       {"db recordsDeleted [0 1 2 ]", "v0 recordsDeleted [0 ]", "v0 recordsDeleted [0 ]", "v0 recordsDeleted [0 ]",
        "v0 recordsDeleted [-1 0 1 ]", "v0 recordsChanged []"}},
      // A run starting at view row 1 of a count of 2 is one row long: rows 1 and 2 go apart.
      {"deleting tagged rows 1, 2 and 4", {{0, 6}},
       [](kesta&, KSTViewRep& v) {
         for (unsigned row : {1u, 2u, 4u}) v.set_tag(row, 1);
         EXPECT_EQ(v.deleteTagged(), 3);
       },
       {0, 1, 2}, {0, 3, 5},
       {"db recordsDeleted [1 ]", "v0 recordsDeleted [1 ]", "v0 recordsDeleted [0 ]", "v0 recordsChanged []",
        "db recordsDeleted [1 ]", "v0 recordsDeleted [1 ]", "v0 recordsDeleted [0 ]", "v0 recordsChanged []",
        "db recordsDeleted [2 ]", "v0 recordsDeleted [2 ]", "v0 recordsDeleted [1 ]", "v0 recordsChanged []"}},
      {"removing tagged rows 1, 2 and 4", {{0, 6}},
       [](kesta&, KSTViewRep& v) {
         for (unsigned row : {1u, 2u, 4u}) v.set_tag(row, 1);
         EXPECT_EQ(v.removeTagged(), 3);
       },
       {0, 3, 5}, {0, 3, 5}, {"v0 recordsDeleted [1 2 ]", "v0 recordsDeleted [2 ]"}},
  };
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
      std::vector<unsigned> entries;
      for (int i = 0; i < static_cast<int>(view->get_num_records()); ++i) entries.push_back(view->sourceRow(i));
      EXPECT_EQ(entries, c.entries);
      EXPECT_EQ(shown(*view), c.ids);
      EXPECT_EQ(log, c.heard);
      EXPECT_EQ(view->countTags(), 0);
    }
    db_probe.reset();
    view->releaseUse();
  }
}

TEST(ViewRepair, InsertionIsNotAnnounced) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(5);
  KSTViewRep* a = new KSTViewRep(db.get());
  KSTViewRep* other = new KSTViewRep(db.get());
  Log log;
  for (KSTViewRep* v : {a, other}) {
    v->addUse();
    v->displayAllRecords();
  }
  {
    Probe db_probe(*db, viewmodel::kDatabase, log), probe_a(*a, 0, log), probe_other(*other, 1, log);
    a->insertBlankRecords(2, 3);
  }
  EXPECT_TRUE(log.empty());
  // One new record and two entries without one before the old row 2; the other view still
  // names its old row numbers, which now hold other records.
  viewprobe::label(*db, 100);
  EXPECT_EQ(shown(*db), (Ids{0, 1, 100, -1, -1, 2, 3, 4}));
  EXPECT_EQ(shown(*a), (Ids{0, 1, 100, -1, -1, 2, 3, 4}));
  EXPECT_EQ(shown(*other), (Ids{0, 1, 100, -1, -1}));
  EXPECT_EQ(a->add_records(2), 8u) << "the old count";
  EXPECT_EQ(db->get_num_records(), 10u);
  EXPECT_EQ(a->sourceRow(9), 9u);
  other->releaseUse();
  a->releaseUse();
}

}  // namespace
