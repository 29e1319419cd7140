// The debug invariant check: it holds through a working session over a real log and its
// views, and it catches each kind of broken database.

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "common/TestUtil.h"
#include "record/KestaDebugPrivate.h"
#include "support/Log.h"
#include "view/KSTView.h"
#include "view/KSTViewRep.h"

namespace {

// Reaches the full record list the way a careless derived class could.
class OpenKesta : public kesta {
 public:
  OpenKesta() : kesta(std::vector<DBFieldDesc>{{"Name", DBFieldTypes::kText}, {"Cookie", DBFieldTypes::kText}}) {}
  using kesta::records;
};

Zr::Ptr<kesta> dailies() {
  CapturingLogSink quiet;
  return Zr::Ptr<kesta>(new kesta(testutil::wide(testutil::example("dailies.kst")), INT_MAX, false));
}

}  // namespace

TEST(Invariants, HoldThroughAWorkingSessionWithViews) {
  Zr::Ptr<kesta> db = dailies();
  ASSERT_GT(db->get_num_records(), 100u);
  KSTView all(new KSTViewRep(db.get()));
  all->displayAllRecords();
  std::string why;
  auto holds = [&](const std::vector<const KSTViewRep*>& views, const char* step) {
    EXPECT_TRUE(KestaDebug::checkWithViews(*db, views, &why)) << step << ": " << why;
  };
  holds({all.get()}, "loaded");

  for (unsigned row = 0; row < db->get_num_records(); row += 3) all->set_tag(row, 1);
  KSTView tagged(all->newTagSubview());
  holds({all.get(), tagged.get()}, "tag subview");

  db->getRowIndexByID(Cookie("6ec9d286-63ca-428d-95f4-b3b2e4b06ce6", false));  // builds the identifier index
  all->deleteTagged();
  holds({all.get(), tagged.get()}, "deleted through the view");

  db->delete_records(0, 5);
  db->insert_records(3, 4);
  db->add_records(2);
  holds({all.get(), tagged.get()}, "deleted, inserted and appended at the database");

  db->set_sortfield(static_cast<int>(db->get_fieldnum("Name")));
  db->sort(1, 0);
  for (unsigned row = 0; row < db->get_num_records(); row += 2) db->set_tag(row, 1);
  db->set_show_tags_only(1);
  holds({all.get(), tagged.get()}, "sorted, showing tagged records only");
  db->set_show_tags_only(0);

  Zr::Ptr<kesta> copy(new kesta(*db, 1));  // copies carry no container
  EXPECT_TRUE(KestaDebug::check(*copy, &why)) << why;
  EXPECT_EQ(db->add_kesta(copy.get()), static_cast<int>(copy->get_num_records()));
  holds({all.get(), tagged.get()}, "merged a copy");
}

TEST(Invariants, CatchEachKindOfBrokenDatabase) {
  std::string why;
  {
    Zr::Ptr<OpenKesta> db(new OpenKesta());
    db->add_records(3);
    ASSERT_TRUE(KestaDebug::check(*db, &why)) << why;
    db->records().push_back(db->records()[1]);
    EXPECT_FALSE(KestaDebug::check(*db, &why));
    EXPECT_EQ(why, "record 3 also stands in an earlier row");
  }
  {
    Zr::Ptr<OpenKesta> db(new OpenKesta());
    Zr::Ptr<OpenKesta> other(new OpenKesta());
    other->add_records(1);
    db->records().push_back(other->records()[0]);
    EXPECT_FALSE(KestaDebug::check(*db, &why));
    EXPECT_EQ(why, "record 0 belongs to another database");
  }
  {
    Zr::Ptr<OpenKesta> db(new OpenKesta());
    db->add_records(4);
    db->set_field(3, 1, "6ec9d286-63ca-428d-95f4-b3b2e4b06ce6");
    ASSERT_EQ(db->getRowIndexByID(Cookie("6ec9d286-63ca-428d-95f4-b3b2e4b06ce6", false)), 3u);
    db->records().erase(2, 2);  // behind the index's back
    EXPECT_FALSE(KestaDebug::check(*db, &why));
    EXPECT_EQ(why, "the identifier index names row 3 of 2");
  }
  {
    Zr::Ptr<kesta> db(new kesta(std::vector<DBFieldDesc>{{"Name", DBFieldTypes::kText}}));
    Zr::Ptr<kesta> other(new kesta(std::vector<DBFieldDesc>{{"Name", DBFieldTypes::kText}}));
    KSTView elsewhere(new KSTViewRep(other.get()));
    KSTView here(new KSTViewRep(db.get()));
    KSTView chained(new KSTViewRep(db.get()));
    chained->baseView(elsewhere.get());
    EXPECT_TRUE(KestaDebug::checkWithViews(*db, {here.get()}, &why)) << why;
    EXPECT_FALSE(KestaDebug::checkWithViews(*db, {here.get(), elsewhere.get()}, &why));
    EXPECT_EQ(why, "view 1: a view of its chain is on another database");
    EXPECT_FALSE(KestaDebug::checkWithViews(*db, {chained.get()}, &why));
    EXPECT_EQ(why, "view 0: a view of its chain is on another database");
    EXPECT_FALSE(KestaDebug::checkWithViews(*db, {nullptr}, &why));
    EXPECT_EQ(why, "view 0: null");
  }
}
