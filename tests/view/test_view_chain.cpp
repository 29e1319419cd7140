// Views chained on a database and on each other (database <- A <- B): deletions at the
// database, through A and through B, checked by the exact messages every listener hears and
// by the records each view shows afterwards; the worked repair example; duplicate entries;
// silent insertion; removing versus deleting tagged rows.

#include <gtest/gtest.h>

#include <memory>

#include "view/ViewProbe.h"

namespace {

using viewprobe::Probe;
using Log = std::vector<std::string>;

// Records the ids a view (or the database) shows, row by row; -1 for a missing record.
template <class Source>
std::vector<int> shown(Source& source) {
  std::vector<int> ids;
  for (unsigned r = 0; r < source.get_num_records(); ++r) ids.push_back(viewprobe::identity(source.get_record(r)));
  return ids;
}

// database <- A <- B, each showing every row, each probed. The probes register before the
// views, so each object's probe hears a message before the views do.
class Chain {
 public:
  explicit Chain(int rows) : db(viewprobe::makeDatabase(rows)) {
    probes.push_back(std::make_unique<Probe>(*db, viewmodel::kDatabase, log));
    a = new KSTViewRep(db.get());
    a->addUse();
    probes.push_back(std::make_unique<Probe>(*a, 0, log));
    b = new KSTViewRep(db.get());
    b->addUse();
    probes.push_back(std::make_unique<Probe>(*b, 1, log));
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
  KSTViewRep* a;
  KSTViewRep* b;
  Log log;
  std::vector<std::unique_ptr<Probe>> probes;
};

TEST(ViewChain, DeletionAtTheDatabaseOrThroughTheFirstViewRepairsBothViews) {
  // B hears A's removal and A's summary, then the database's own message in database rows:
  // it loses three rows for one deleted record, as the protocol has it.
  const Log expected{"db recordsDeleted [1 ]", "v0 recordsDeleted [1 ]",  "v1 recordsDeleted [1 ]",
                     "v1 recordsDeleted [0 ]", "v1 recordsChanged []",    "v0 recordsDeleted [0 ]",
                     "v1 recordsDeleted [0 ]", "v1 recordsDeleted [-1 ]", "v1 recordsChanged []",
                     "v0 recordsChanged []",   "v1 recordsDeleted [1 ]",  "v1 recordsDeleted [0 ]",
                     "v1 recordsChanged []"};
  for (bool through_a : {false, true}) {
    Chain chain(5);
    if (through_a) {
      chain.a->deleteRecords(1, 1);
    } else {
      chain.db->delete_records(1, 1);
    }
    EXPECT_EQ(chain.log, expected) << (through_a ? "through A" : "at the database");
    EXPECT_EQ(shown(*chain.db), (std::vector<int>{0, 2, 3, 4}));
    EXPECT_EQ(shown(*chain.a), (std::vector<int>{0, 2, 3, 4}));
    EXPECT_EQ(shown(*chain.b), (std::vector<int>{0, 2}));
    for (KSTViewRep* view : {chain.a, chain.b}) {
      std::string why;
      EXPECT_TRUE(view->checkInvariants(&why)) << why;
    }
  }
}

TEST(ViewChain, DeletionThroughTheOuterViewGoesDownTheChain) {
  Chain chain(5);
  chain.b->deleteRecords(3, 1);
  const Log expected{"db recordsDeleted [3 ]", "v0 recordsDeleted [3 ]", "v1 recordsDeleted [3 ]",
                     "v1 recordsDeleted [2 ]", "v1 recordsChanged []",   "v0 recordsDeleted [2 ]",
                     "v1 recordsDeleted [2 ]", "v1 recordsDeleted [1 ]", "v1 recordsChanged []",
                     "v0 recordsChanged []"};
  EXPECT_EQ(chain.log, expected);
  EXPECT_EQ(shown(*chain.db), (std::vector<int>{0, 1, 2, 4}));
  EXPECT_EQ(shown(*chain.a), (std::vector<int>{0, 1, 2, 4}));
  EXPECT_EQ(shown(*chain.b), (std::vector<int>{0, 1, 2}));
}

TEST(ViewChain, DeletingLowRowsLeavesWrappedEntriesThatReadAsMissing) {
  // The summary -1 makes B decrement every entry; its entry 0 wraps to 4294967295.
  Chain chain(4);
  chain.b->deleteRecords(0, 1);
  EXPECT_EQ(shown(*chain.a), (std::vector<int>{1, 2, 3}));
  ASSERT_EQ(chain.b->get_num_records(), 2u);
  EXPECT_EQ(chain.b->sourceRow(0), 4294967294u);
  EXPECT_EQ(chain.b->sourceRow(1), 0u);
  EXPECT_EQ(shown(*chain.b), (std::vector<int>{-1, 1}));
  EXPECT_EQ(chain.b->operator[](0), nullptr);
  std::string why;
  EXPECT_TRUE(chain.b->checkInvariants(&why)) << why;
}

TEST(ViewRepair, WorkedExampleAndDuplicateEntries) {
  struct Case {
    const char* what;
    std::vector<std::pair<int, int>> display;  // (first, count) appended in turn
    unsigned first, count;                     // the database deletion
    std::vector<unsigned> entries;             // afterwards
    std::vector<int> ids;
    Log heard;
  };
  const Case cases[] = {
      {"entries 0, 2, 3 lose database rows 1 and 2",
       {{0, 1}, {2, 2}},
       1,
       2,
       {0, 1},
       {0, 3},
       {"v0 recordsDeleted [1 ]", "v0 recordsDeleted [1 ]", "v0 recordsChanged []"}},
      {"both entries of a duplicated row go",
       {{2, 1}, {0, 1}, {2, 1}, {1, 1}},
       2,
       1,
       {0, 1},
       {0, 1},
       {"v0 recordsDeleted [0 ]", "v0 recordsDeleted [1 ]", "v0 recordsDeleted [-1 0 ]", "v0 recordsChanged []"}},
      {"a deletion after every entry changes nothing and says nothing", {{0, 2}}, 3, 2, {0, 1}, {0, 1}, {}},
  };
  for (const Case& c : cases) {
    Zr::Ptr<kesta> db = viewprobe::makeDatabase(6);
    KSTViewRep* view = new KSTViewRep(db.get());
    view->addUse();
    Log log;
    {
      Probe probe(*view, 0, log);
      for (const auto& [first, count] : c.display)
        view->displayRecordsAt(first, count, static_cast<int>(view->get_num_records()));
      db->delete_records(c.first, c.count);
      std::vector<unsigned> entries;
      for (int i = 0; i < static_cast<int>(view->get_num_records()); ++i) entries.push_back(view->sourceRow(i));
      EXPECT_EQ(entries, c.entries) << c.what;
      EXPECT_EQ(shown(*view), c.ids) << c.what;
      EXPECT_EQ(log, c.heard) << c.what;
    }
    view->releaseUse();
  }
}

TEST(ViewRepair, InsertionIsNotAnnounced) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(5);
  Log log;
  Probe db_probe(*db, viewmodel::kDatabase, log);
  KSTViewRep* a = new KSTViewRep(db.get());
  KSTViewRep* other = new KSTViewRep(db.get());
  a->addUse();
  other->addUse();
  a->displayAllRecords();
  other->displayAllRecords();
  {
    Probe probe_a(*a, 0, log), probe_other(*other, 1, log);
    a->insertBlankRecords(2, 3);
  }
  EXPECT_TRUE(log.empty());
  // The database holds one new record and two entries without one before the old row 2.
  viewprobe::label(*db, 100);
  EXPECT_EQ(shown(*db), (std::vector<int>{0, 1, 100, -1, -1, 2, 3, 4}));
  EXPECT_EQ(shown(*a), (std::vector<int>{0, 1, 100, -1, -1, 2, 3, 4}));
  // The other view still names its old row numbers, which now hold other records.
  EXPECT_EQ(shown(*other), (std::vector<int>{0, 1, 100, -1, -1}));
  // Appending through a view asks the source to add records and answers the old count.
  EXPECT_EQ(a->add_records(2), 8u);
  EXPECT_EQ(db->get_num_records(), 10u);
  EXPECT_EQ(a->sourceRow(8), 8u);
  EXPECT_EQ(a->sourceRow(9), 9u);
  other->releaseUse();
  a->releaseUse();
}

TEST(ViewRepair, RemoveTaggedKeepsRecordsDeleteTaggedDeletesThem) {
  for (bool deleting : {false, true}) {
    Zr::Ptr<kesta> db = viewprobe::makeDatabase(6);
    Log log;
    Probe db_probe(*db, viewmodel::kDatabase, log);
    KSTViewRep* view = new KSTViewRep(db.get());
    view->addUse();
    view->displayAllRecords();
    for (unsigned row : {1u, 2u, 4u}) view->set_tag(row, 1);
    {
      Probe probe(*view, 0, log);
      const int count = deleting ? view->deleteTagged() : view->removeTagged();
      EXPECT_EQ(count, 3);
    }
    EXPECT_EQ(shown(*view), (std::vector<int>{0, 3, 5}));
    EXPECT_EQ(view->countTags(), 0);
    if (deleting) {
      EXPECT_EQ(shown(*db), (std::vector<int>{0, 3, 5}));
      // The run of rows 1 and 2 goes as two single deletions: a run starting at view row 1
      // of a count of 2 is one row long.
      const Log expected{"db recordsDeleted [1 ]", "v0 recordsDeleted [1 ]", "v0 recordsDeleted [0 ]",
                         "v0 recordsChanged []",   "db recordsDeleted [1 ]", "v0 recordsDeleted [1 ]",
                         "v0 recordsDeleted [0 ]", "v0 recordsChanged []",   "db recordsDeleted [2 ]",
                         "v0 recordsDeleted [2 ]", "v0 recordsDeleted [1 ]", "v0 recordsChanged []"};
      EXPECT_EQ(log, expected);
    } else {
      EXPECT_EQ(db->get_num_records(), 6u);
      EXPECT_EQ(log, (Log{"v0 recordsDeleted [1 2 ]", "v0 recordsDeleted [2 ]"}));
    }
    view->releaseUse();
  }
}

TEST(ViewRepair, RunsFromTheFrontGoDownInOneDeletion) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(6);
  Log log;
  Probe db_probe(*db, viewmodel::kDatabase, log);
  KSTViewRep* view = new KSTViewRep(db.get());
  view->addUse();
  view->displayAllRecords();
  view->deleteRecords(0, 3);
  EXPECT_EQ(log, (Log{"db recordsDeleted [0 1 2 ]"}));
  EXPECT_EQ(shown(*view), (std::vector<int>{3, 4, 5}));
  // Through a chain the removal reaches every view down to the database's, no record goes.
  KSTViewRep* outer = new KSTViewRep(db.get());
  outer->addUse();
  outer->baseView(view);
  outer->displayAllRecords();
  log.clear();
  EXPECT_EQ(outer->removeRecordsFromBaseView(1, 2), 2);
  EXPECT_EQ(log, (Log{}));
  EXPECT_EQ(shown(*view), (std::vector<int>{3}));
  EXPECT_EQ(shown(*outer), (std::vector<int>{3}));
  EXPECT_EQ(db->get_num_records(), 3u);
  outer->releaseUse();
  view->releaseUse();
}

}  // namespace
