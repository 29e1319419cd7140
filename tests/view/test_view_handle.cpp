// The counted handle and the cursor: how long views live under handles, chained views, copies
// and temporaries, and how a cursor walks, removes and finds rows in both of its modes.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "view/KSTView.h"
#include "view/KSTViewCursor.h"
#include "view/ViewProbe.h"

namespace {

using Log = std::vector<std::string>;

// A view that counts its destructions, so a test sees the exact moment a view dies.
class Watched : public KSTViewRep {
 public:
  Watched(kesta* database, int& deaths) : KSTViewRep(database), deaths_(deaths) {}
  ~Watched() override { ++deaths_; }

 private:
  int& deaths_;
};

std::vector<int> shown(iKST& source) {
  std::vector<int> ids;
  for (unsigned r = 0; r < source.get_num_records(); ++r) ids.push_back(viewprobe::identity(source.get_record(r)));
  return ids;
}

TEST(ViewHandle, HandlesOwnOneUseEachAndTheLastReleaseDestroys) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(3);
  const std::size_t listeners = db->listenerCount();
  int deaths = 0;
  {
    KSTView first(new Watched(db.get(), deaths));
    EXPECT_EQ(first->useCount(), 1u);
    EXPECT_EQ(db->listenerCount(), listeners + 1);

    // Self-assignment takes the new use before dropping the old one.
    KSTView& alias = first;
    first = alias;
    EXPECT_EQ(first->useCount(), 1u);
    EXPECT_EQ(deaths, 0);
    first->displayAllRecords();
    EXPECT_EQ(shown(*first), (std::vector<int>{0, 1, 2}));

    KSTView second(first);
    KSTView third;
    third = second;
    EXPECT_EQ(first->useCount(), 3u);
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

  KSTView empty;
  EXPECT_FALSE(empty.copy());
  EXPECT_FALSE(empty.copyWithNewBaseView());
  KSTView detached(new KSTViewRep(nullptr));
  EXPECT_FALSE(detached.copy());
  EXPECT_FALSE(detached.copyWithNewBaseView());
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

  base = KSTView();  // the chained view still holds it
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(base_rep->useCount(), 1u);
  EXPECT_EQ(shown(*outer), (std::vector<int>{1, 2}));
  // The base view still hears its database. (What the chained view makes of the base view's
  // announcements is the deletion protocol's business, tested with the chains.)
  db->delete_records(1, 1);
  EXPECT_EQ(shown(*base_rep), (std::vector<int>{0, 2, 3}));

  // Releasing the chained view deregisters it and lets the base view go with it.
  outer = KSTView();
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
    EXPECT_EQ(view->listenerCount(), 1u);
    EXPECT_EQ(shown(*subview), (std::vector<int>{2, 4}));
  }
  EXPECT_EQ(view->useCount(), 1u);
  EXPECT_EQ(view->listenerCount(), 0u);

  {
    KSTView copy = view.copy();
    EXPECT_EQ(copy->useCount(), 1u);
    EXPECT_EQ(shown(*copy), (std::vector<int>{2, 3, 4}));
    EXPECT_EQ(copy->get_tag(2), 1);
    EXPECT_EQ(db->listenerCount(), listeners + 2);

    KSTView apart = view.copyWithNewBaseView();
    EXPECT_EQ(apart->useCount(), 1u);
    Zr::Ptr<kesta> private_db(apart->database());
    EXPECT_NE(private_db.get(), db.get());
    EXPECT_EQ(shown(*apart), (std::vector<int>{2, 3, 4}));
    EXPECT_EQ(private_db->listenerCount(), 1u);
    EXPECT_EQ(private_db->refCount(), 2);
    apart = KSTView();  // the view dies and gives up its database copy
    EXPECT_EQ(private_db->listenerCount(), 0u);
    EXPECT_EQ(private_db->refCount(), 1);
  }
  EXPECT_EQ(db->listenerCount(), listeners + 1);
}

TEST(ViewHandle, DuplicateTaggingLeavesAHeldViewAsItFoundIt) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(6);
  const char* names[] = {"b", "a", "b", "c", "a", "b"};
  for (unsigned r = 0; r < 6; ++r) db->set_field(r, 1u, names[r]);
  const std::size_t listeners = db->listenerCount();
  int deaths = 0;
  KSTView view(new Watched(db.get(), deaths));
  view->displayAllRecords();

  // a repeats once, b twice: one row of each group stays clear, which one is the sort's choice.
  EXPECT_EQ(view->tagDuplicates(1), 3);
  EXPECT_EQ(view->countTags(), 3);
  EXPECT_EQ(view->get_tag(3), 0);  // "c" is unique
  EXPECT_EQ(view->get_tag(1) + view->get_tag(4), 1);
  EXPECT_EQ(view->get_tag(0) + view->get_tag(2) + view->get_tag(5), 2);
  // All different: the first of each group and every unique row.
  EXPECT_EQ(view->tag_all_different(1), 3);
  EXPECT_EQ(view->get_tag(3), 1);
  EXPECT_EQ(view->get_tag(1) + view->get_tag(4), 1);
  EXPECT_EQ(view->get_tag(0) + view->get_tag(2) + view->get_tag(5), 1);

  // The temporaries are gone and this view lives on, unchanged in its rows and uses.
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(view->useCount(), 1u);
  EXPECT_EQ(view->listenerCount(), 0u);
  EXPECT_EQ(db->listenerCount(), listeners + 1);
  EXPECT_EQ(shown(*view), (std::vector<int>{0, 1, 2, 3, 4, 5}));
  view = KSTView();
  EXPECT_EQ(deaths, 1);
}

// ------------------------------------------------------------------------------ cursor

// A view over `rows` database rows whose view flags follow the bits of `pattern`.
KSTView taggedView(kesta* db, int rows, unsigned pattern) {
  KSTView view(new KSTViewRep(db));
  view->displayRecordsAt(0, rows, 0);
  for (int r = 0; r < rows; ++r) view->set_tag(static_cast<unsigned>(r), (pattern >> r) & 1u);
  return view;
}

// The rows a cursor visits from -1 until it is back at -1, stepping with ++ or --.
std::vector<int> walk(KSTViewCursor cursor, bool forward) {
  std::vector<int> rows;
  for (int guard = 0; guard < 100; ++guard) {
    if (forward) {
      ++cursor;
    } else {
      --cursor;
    }
    if (cursor.index() == -1) break;
    rows.push_back(cursor.index());
  }
  return rows;
}

TEST(ViewCursor, WalksVisitEveryRowOrEveryTaggedRowInBothDirections) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(5);
  // Every view of up to 5 rows, with every combination of flags.
  for (int rows = 0; rows <= 5; ++rows) {
    for (unsigned pattern = 0; pattern < (1u << rows); ++pattern) {
      KSTView view = taggedView(db.get(), rows, pattern);
      for (bool tagged_only : {false, true}) {
        std::vector<int> expected;
        for (int r = 0; r < rows; ++r) {
          if (!tagged_only || ((pattern >> r) & 1u)) expected.push_back(r);
        }
        const std::string what = std::to_string(rows) + " rows, flags " + std::to_string(pattern) +
                                 (tagged_only ? ", tagged only" : ", all rows");
        EXPECT_EQ(walk(KSTViewCursor(view, -1, tagged_only), true), expected) << what;
        const std::vector<int> backwards(expected.rbegin(), expected.rend());
        EXPECT_EQ(walk(KSTViewCursor(view, -1, tagged_only), false), backwards) << what;

        // From a row in the middle, each step lands on the next (previous) row of the walk.
        for (int start = 0; start < rows; ++start) {
          KSTViewCursor cursor(view, start, tagged_only);
          ++cursor;
          int next = -1;
          for (int r : expected) {
            if (r > start) {
              next = r;
              break;
            }
          }
          EXPECT_EQ(cursor.index(), next) << what << ", ++ from " << start;
          cursor.set_index(start);
          --cursor;
          int previous = -1;
          for (int r : backwards) {
            if (r < start) {
              previous = r;
              break;
            }
          }
          EXPECT_EQ(cursor.index(), previous) << what << ", -- from " << start;
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
  struct Case {
    int asked;
    int current;
  } cases[] = {{0, 0}, {2, 2}, {3, -1}, {-1, -1}, {-7, -1}, {1000, -1}};
  for (const Case& c : cases) {
    cursor.set_index(c.asked);
    EXPECT_EQ(cursor.index(), c.current) << "set_index(" << c.asked << ")";
  }
  cursor.set_index(2);
  EXPECT_EQ(viewprobe::identity(*cursor), 3);
  EXPECT_EQ(KSTViewCursor(view, 5).index(), -1);

  KSTViewCursor plain(view);
  --plain;
  EXPECT_EQ(plain.index(), 2) << "-- from -1 starts at the last row";
  EXPECT_EQ(viewprobe::identity(*plain), 3);
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
  Log log;
  viewprobe::Probe probe(*view, 0, log);

  KSTViewCursor cursor(view);
  cursor.remove();  // on no row: nothing
  EXPECT_EQ(view->get_num_records(), 3u);

  cursor.set_index(1);
  cursor.remove();
  EXPECT_EQ(cursor.index(), 1) << "the former row 2 moved into place";
  EXPECT_EQ(viewprobe::identity(*cursor), 2);
  EXPECT_EQ(shown(*view), (std::vector<int>{0, 2}));
  cursor.remove();  // the last row
  EXPECT_EQ(cursor.index(), -1);
  EXPECT_EQ(shown(*view), (std::vector<int>{0}));
  EXPECT_EQ(db->get_num_records(), 3u);
  EXPECT_EQ(log, (Log{"v0 recordsDeleted [1 ]", "v0 recordsDeleted [1 ]"}));
}

TEST(ViewCursor, FindLooksAtEveryRowByRecordIdentity) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(5);
  KSTView view(new KSTViewRep(db.get()));
  view->displayRecordsAt(3, 2, 0);
  view->displayRecordsAt(1, 1, 2);
  view->displayRecordsAt(3, 1, 3);  // rows show 3, 4, 1, 3
  view->set_tag(3, 1);

  KSTViewCursor cursor(view, 3, true);
  // The walk is not limited to tagged rows and stops at the first row showing the record.
  EXPECT_EQ(cursor.find(db->get_record(3).get()), 0);
  EXPECT_EQ(cursor.index(), 0);
  EXPECT_EQ(cursor.find(db->get_record(1).get()), 2);
  EXPECT_EQ(cursor.index(), 2);

  // A record with the same texts is not the same record.
  Zr::Ptr<dbrecord> twin(new dbrecord(*db->get_record(4)));
  EXPECT_EQ(cursor.find(twin.get()), -1);
  EXPECT_EQ(cursor.index(), -1);
  cursor.set_index(1);
  EXPECT_EQ(cursor.find(db->get_record(0).get()), -1);
  EXPECT_EQ(cursor.index(), -1);

  KSTView empty(new KSTViewRep(db.get()));
  KSTViewCursor on_empty(empty);
  EXPECT_EQ(on_empty.find(db->get_record(0).get()), -1);
}

}  // namespace
