// The counted handle and the cursor: how long views live under handles, chained views and
// copies, and how a cursor walks, removes and finds rows in both of its modes.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "view/KSTView.h"
#include "view/KSTViewCursor.h"
#include "view/ViewProbe.h"

namespace {

using viewprobe::shown;
using Ids = std::vector<int>;

// A view that counts its destructions, so a test sees the exact moment a view dies.
class Watched : public KSTViewRep {
 public:
  Watched(kesta* database, int& deaths) : KSTViewRep(database), deaths_(deaths) {}
  ~Watched() override { ++deaths_; }

 private:
  int& deaths_;
};

TEST(ViewHandle, HandlesOwnOneUseEachAndTheLastReleaseDestroys) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(3);
  const std::size_t listeners = db->listenerCount();
  int deaths = 0;
  {
    KSTView first(new Watched(db.get(), deaths));
    EXPECT_EQ(db->listenerCount(), listeners + 1);
    KSTView& alias = first;
    first = alias;  // takes the new use before dropping the old one
    EXPECT_EQ(first->useCount(), 1u);
    KSTView second(first);
    KSTView third;
    third = second;
    KSTView moved(std::move(second));
    EXPECT_FALSE(second);
    EXPECT_EQ(first->useCount(), 3u);

    // Pointing the last handles elsewhere lets the old view go.
    KSTView other(new Watched(db.get(), deaths));
    first = other;
    third = KSTView();
    EXPECT_EQ(deaths, 0);
    EXPECT_EQ(moved->useCount(), 1u);
    moved = other;
    EXPECT_EQ(deaths, 1);
    EXPECT_EQ(db->listenerCount(), listeners + 1);
    EXPECT_EQ(other->useCount(), 3u);
  }
  EXPECT_EQ(deaths, 2);
  EXPECT_EQ(db->listenerCount(), listeners);
  for (const KSTView& none : {KSTView(), KSTView(new KSTViewRep(nullptr))}) {
    EXPECT_FALSE(none.copy());
    EXPECT_FALSE(none.copyWithNewBaseView());
  }
}

TEST(ViewHandle, ChainedViewsKeepTheirBaseAlive) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(4);
  const std::size_t listeners = db->listenerCount();
  int deaths = 0;
  KSTView base(new Watched(db.get(), deaths));
  base->displayAllRecords();
  KSTViewRep* base_rep = base.get();
  KSTView outer(new Watched(db.get(), deaths));
  outer->baseView(base_rep);
  outer->displayRecordsAt(1, 2, 0);
  EXPECT_EQ(base_rep->listenerCount(), 1u);
  EXPECT_EQ(db->listenerCount(), listeners + 2);
  base = KSTView();
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(base_rep->useCount(), 1u);
  EXPECT_EQ(shown(*outer), (Ids{1, 2}));
  db->delete_records(1, 1);
  EXPECT_EQ(shown(*base_rep), (Ids{0, 2, 3})) << "the base view still hears its database";
  outer = KSTView();  // deregisters and lets the base view go with it
  EXPECT_EQ(deaths, 2);
  EXPECT_EQ(db->listenerCount(), listeners);

  // Unchaining a view that no handle holds destroys it at once.
  KSTView chained(new KSTViewRep(db.get()));
  chained->baseView(new Watched(db.get(), deaths));
  EXPECT_EQ(chained->baseViewRep()->useCount(), 1u);
  chained->baseView(nullptr);
  EXPECT_EQ(deaths, 3);
  EXPECT_EQ(db->listenerCount(), listeners + 1);
}

TEST(ViewHandle, ViewsHandedOutWithNoUseBelongToTheirFirstHandle) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(5);
  const std::size_t listeners = db->listenerCount();
  KSTView view(new KSTViewRep(db.get()));
  view->displayRecordsAt(2, 3, 0);  // rows 2, 3, 4
  view->set_tag(0, 1);
  view->set_tag(2, 1);
  {
    KSTView subview(view->newTagSubview());
    EXPECT_EQ(subview->useCount(), 1u);
    EXPECT_EQ(subview->baseViewRep(), view.get());
    EXPECT_EQ(view->useCount(), 2u);
    EXPECT_EQ(shown(*subview), (Ids{2, 4}));
  }
  EXPECT_EQ(view->useCount(), 1u);
  EXPECT_EQ(view->listenerCount(), 0u);
  {
    KSTView copy = view.copy();
    EXPECT_EQ(copy->useCount(), 1u);
    EXPECT_EQ(shown(*copy), (Ids{2, 3, 4}));
    EXPECT_EQ(copy->get_tag(2), 1);
    EXPECT_EQ(db->listenerCount(), listeners + 2);
    KSTView apart = view.copyWithNewBaseView();
    EXPECT_EQ(apart->useCount(), 1u);
    Zr::Ptr<kesta> private_db(apart->database());
    EXPECT_NE(private_db.get(), db.get());
    EXPECT_EQ(shown(*apart), (Ids{2, 3, 4}));
    EXPECT_EQ(private_db->listenerCount(), 1u);
    EXPECT_EQ(private_db->refCount(), 2);
    apart = KSTView();  // the view dies and gives up its database copy
    EXPECT_EQ(private_db->listenerCount(), 0u);
    EXPECT_EQ(private_db->refCount(), 1);
  }
  EXPECT_EQ(db->listenerCount(), listeners + 1);
}

// ------------------------------------------------------------------------------ cursor

// The rows a cursor visits from `start` until it is back at -1, stepping with ++ or --.
std::vector<int> walk(const KSTView& view, int start, bool tagged_only, bool forward) {
  KSTViewCursor cursor(view, start, tagged_only);
  std::vector<int> rows;
  for (int guard = 0; guard < 100; ++guard) {
    forward ? ++cursor : --cursor;
    if (cursor.index() == -1) break;
    rows.push_back(cursor.index());
  }
  return rows;
}

TEST(ViewCursor, WalksVisitEveryRowOrEveryTaggedRowInBothDirections) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(5);
  // Every view of up to 5 rows, with every combination of flags, walked from -1 and from
  // every row, forwards and backwards.
  for (int rows = 0; rows <= 5; ++rows) {
    for (unsigned pattern = 0; pattern < (1u << rows); ++pattern) {
      KSTView view(new KSTViewRep(db.get()));
      view->displayRecordsAt(0, rows, 0);
      for (int r = 0; r < rows; ++r) view->set_tag(static_cast<unsigned>(r), (pattern >> r) & 1u);
      for (bool tagged_only : {false, true}) {
        for (int start = -1; start < rows; ++start) {
          std::vector<int> after, before;
          for (int r = 0; r < rows; ++r) {
            if (tagged_only && !((pattern >> r) & 1u)) continue;
            if (start < 0 || r > start) after.push_back(r);
            if (start < 0 || r < start) before.insert(before.begin(), r);
          }
          SCOPED_TRACE(std::to_string(rows) + " rows, flags " + std::to_string(pattern) + ", from " +
                       std::to_string(start) + (tagged_only ? ", tagged only" : ""));
          EXPECT_EQ(walk(view, start, tagged_only, true), after);
          EXPECT_EQ(walk(view, start, tagged_only, false), before);
        }
      }
    }
  }
}

TEST(ViewCursor, PositionsAndRecords) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(4);
  KSTView view(new KSTViewRep(db.get()));
  view->displayRecordsAt(1, 3, 0);  // database rows 1, 2, 3; none tagged
  KSTViewCursor cursor(view, -1, true);
  ++cursor;
  EXPECT_EQ(cursor.index(), -1) << "no tagged row to go to";
  EXPECT_EQ(*cursor, nullptr);
  // set_index ignores the mode but not the range.
  for (auto [asked, current] : {std::pair{0, 0}, {2, 2}, {3, -1}, {-1, -1}, {-7, -1}, {1000, -1}}) {
    cursor.set_index(asked);
    EXPECT_EQ(cursor.index(), current) << "set_index(" << asked << ")";
  }
  cursor.set_index(2);
  EXPECT_EQ(viewprobe::identity(*cursor), 3);
  EXPECT_EQ(KSTViewCursor(view, 5).index(), -1);
  KSTViewCursor plain(view);
  EXPECT_EQ(plain.view().get(), view.get());
  EXPECT_EQ(view->useCount(), 3u) << "each cursor holds the view";

  KSTViewCursor nothing{KSTView()};
  ++nothing;
  EXPECT_EQ(nothing.index(), -1);
  --nothing;
  EXPECT_EQ(nothing.index(), -1);
  nothing.remove();
  EXPECT_EQ(nothing.find(db->get_record(0).get()), -1);
}

TEST(ViewCursor, RemoveTakesTheRowOutOfTheViewOnly) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(3);
  KSTView view(new KSTViewRep(db.get()));
  view->displayAllRecords();
  std::vector<std::string> log;
  viewprobe::Probe probe(*view, 0, log);
  KSTViewCursor cursor(view);
  cursor.remove();  // on no row: nothing
  EXPECT_EQ(view->get_num_records(), 3u);
  cursor.set_index(1);
  cursor.remove();
  EXPECT_EQ(cursor.index(), 1) << "the former row 2 moved into place";
  EXPECT_EQ(viewprobe::identity(*cursor), 2);
  cursor.remove();  // the last row
  EXPECT_EQ(cursor.index(), -1);
  EXPECT_EQ(shown(*view), (Ids{0}));
  EXPECT_EQ(db->get_num_records(), 3u);
  EXPECT_EQ(log, (std::vector<std::string>{"v0 recordsDeleted [1 ]", "v0 recordsDeleted [1 ]"}));
}

TEST(ViewCursor, FindLooksAtEveryRowByRecordIdentity) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(5);
  KSTView view(new KSTViewRep(db.get()));
  view->displayRecordsAt(3, 2, 0);
  view->displayRecordsAt(1, 1, 2);
  view->displayRecordsAt(3, 1, 3);  // rows show 3, 4, 1, 3
  view->set_tag(3, 1);
  KSTViewCursor cursor(view, 3, true);
  // Not limited to tagged rows; stops at the first row showing the record; a record with the
  // same texts is not the same record.
  Zr::Ptr<dbrecord> twin(new dbrecord(*db->get_record(4)));
  for (auto [record, row] : {std::pair{db->get_record(3).get(), 0},
                             {db->get_record(1).get(), 2},
                             {twin.get(), -1},
                             {db->get_record(0).get(), -1}}) {
    cursor.set_index(1);
    EXPECT_EQ(cursor.find(record), row);
    EXPECT_EQ(cursor.index(), row);
  }
  KSTView empty(new KSTViewRep(db.get()));
  EXPECT_EQ(KSTViewCursor(empty).find(db->get_record(0).get()), -1);
}

}  // namespace
