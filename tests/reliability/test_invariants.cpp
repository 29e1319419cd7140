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

const char kId[] = "6ec9d286-63ca-428d-95f4-b3b2e4b06ce6";

}  // namespace

TEST(Invariants, HoldThroughAWorkingSessionWithViews) {
  Zr::Ptr<kesta> db;
  {
    CapturingLogSink quiet;
    db = Zr::Ptr<kesta>(new kesta(testutil::wide(testutil::example("dailies.kst")), INT_MAX, false));
  }
  ASSERT_GT(db->get_num_records(), 100u);
  KSTView all(new KSTViewRep(db.get()));
  all->displayAllRecords();
  for (unsigned row = 0; row < db->get_num_records(); row += 3) all->set_tag(row, 1);
  KSTView tagged(all->newTagSubview());
  std::string why;
  auto holds = [&](const char* step) {
    EXPECT_TRUE(KestaDebug::checkWithViews(*db, {all.get(), tagged.get()}, &why)) << step << ": " << why;
  };
  holds("tag subview");

  db->getRowIndexByID(Cookie(kId, false));  // builds the identifier index
  all->deleteTagged();
  holds("deleted through the view");

  db->delete_records(0, 5);
  db->insert_records(3, 4);
  db->add_records(2);
  holds("deleted, inserted and appended at the database");

  db->set_sortfield(static_cast<int>(db->get_fieldnum("Name")));
  db->sort(1, 0);
  for (unsigned row = 0; row < db->get_num_records(); row += 2) db->set_tag(row, 1);
  db->set_show_tags_only(1);
  holds("sorted, showing tagged records only");
  db->set_show_tags_only(0);

  Zr::Ptr<kesta> copy(new kesta(*db, 1));  // copies carry no container
  EXPECT_TRUE(KestaDebug::check(*copy, &why)) << why;
  EXPECT_EQ(db->add_kesta(copy.get()), static_cast<int>(copy->get_num_records()));
  holds("merged a copy");
}

TEST(Invariants, CatchEachKindOfBrokenDatabase) {
  std::string why;
  Zr::Ptr<OpenKesta> db(new OpenKesta());
  Zr::Ptr<OpenKesta> other(new OpenKesta());
  db->add_records(4);
  other->add_records(1);
  ASSERT_TRUE(KestaDebug::check(*db, &why)) << why;
  db->set_field(3, 1, kId);
  ASSERT_EQ(db->getRowIndexByID(Cookie(kId, false)), 3u);
  db->records().erase(2, 2);  // behind the index's back
  EXPECT_FALSE(KestaDebug::check(*db, &why));
  EXPECT_EQ(why, "the identifier index names row 3 of 2");
  db->add_records(2);  // which clears the index
  db->records().push_back(db->records()[1]);
  EXPECT_FALSE(KestaDebug::check(*db, &why));
  EXPECT_EQ(why, "record 4 also stands in an earlier row");
  db->records().erase(4, 1);
  db->records().push_back(other->records()[0]);
  EXPECT_FALSE(KestaDebug::check(*db, &why));
  EXPECT_EQ(why, "record 4 belongs to another database");

  Zr::Ptr<kesta> elsewhere_db(new kesta(std::vector<DBFieldDesc>{{"Name", DBFieldTypes::kText}}));
  KSTView elsewhere(new KSTViewRep(elsewhere_db.get()));
  KSTView here(new KSTViewRep(other.get()));
  KSTView chained(new KSTViewRep(other.get()));
  chained->baseView(elsewhere.get());
  EXPECT_TRUE(KestaDebug::checkWithViews(*other, {here.get()}, &why)) << why;
  EXPECT_FALSE(KestaDebug::checkWithViews(*other, {here.get(), elsewhere.get()}, &why));
  EXPECT_EQ(why, "view 1: a view of its chain is on another database");
  EXPECT_FALSE(KestaDebug::checkWithViews(*other, {chained.get()}, &why));
  EXPECT_EQ(why, "view 0: a view of its chain is on another database");
  EXPECT_FALSE(KestaDebug::checkWithViews(*other, {nullptr}, &why));
  EXPECT_EQ(why, "view 0: null");
}
