// The view core: parameters, uses, mapping of rows through a chain, the forwarded record-source
// operations with their deliberate quirks, and display operations.

#include <gtest/gtest.h>

#include "support/CookieContainers.h"
#include "view/ViewProbe.h"

namespace {

using viewprobe::Held;
using viewprobe::params;
using viewprobe::shown;

TEST(ViewCore, NewViewIsEmptyAndCarriesTheDatabasesParameters) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(4);
  db->set_filename(LightweightString<wchar_t>(L"day1.kst"));
  Held plain(new KSTViewRep(db.get()));
  EXPECT_EQ(plain->get_num_records(), 0u);
  EXPECT_EQ(plain->get_num_fields(), 3u);
  EXPECT_EQ(params(*plain.view), (std::vector<std::string>{"KESTA=Rev 1"}));
  EXPECT_TRUE(plain->get_filename() == L"day1.kst");
  EXPECT_EQ(plain->get_valid(), 1);

  db->add_param("Mode", "x");
  Held second(new KSTViewRep(db.get()));
  EXPECT_EQ(params(*second.view), (std::vector<std::string>{"KESTA=Rev 1", "Mode=x"}));
  // Chaining takes the base view's parameters instead; unchaining leaves none.
  Held chained(new KSTViewRep(db.get()));
  plain->add_param("Own", "1");
  chained->baseView(plain.view);
  EXPECT_EQ(params(*chained.view), (std::vector<std::string>{"KESTA=Rev 1", "Own=1"}));
  chained->baseView(nullptr);
  EXPECT_TRUE(params(*chained.view).empty());
  chained->internRevision();
  chained->internRevision();
  EXPECT_EQ(params(*chained.view), (std::vector<std::string>{"KESTA=Rev 1"}));
}

TEST(ViewCore, RowsMapThroughTheChain) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(6);
  Held base(new KSTViewRep(db.get()));
  base->displayRecordsAt(2, 4, 0);  // database rows 2..5
  Held outer(new KSTViewRep(db.get()));
  outer->baseView(base.view);
  outer->displayRecordsAt(3, 1, 0);
  outer->displayRecordsAt(1, 1, 1);  // base rows 3, 1
  EXPECT_EQ(outer->sourceRow(0), 3u);
  EXPECT_EQ(outer->baseIndex(0), 5);
  EXPECT_EQ(outer->baseIndex(1), 3);
  EXPECT_EQ(outer->baseIndex(2), 0) << "out of range";
  EXPECT_EQ(outer->sourceRow(2), ~0u);
  EXPECT_EQ(outer->findViewIndexForBaseRow(1), 1u);
  EXPECT_EQ(outer->findViewIndexForBaseRow(5), ~0u);
  EXPECT_EQ(outer->find(db->get_record(3).get()), 1);
  EXPECT_EQ(outer->find(db->get_record(4).get()), -1);
  EXPECT_EQ(outer->find(nullptr), -1);
  EXPECT_EQ((*outer.view)[1], db->get_record(3).get());
  EXPECT_EQ((*outer.view)[-1], nullptr);
  EXPECT_EQ(outer->make_dummy_record()->get_container(), nullptr);
  EXPECT_EQ(outer->make_dummy_record()->get_num_fields(), 3);
}

TEST(ViewCore, ForwardsReachTheMappedRowExceptWhereTheyMustNot) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(4);
  db->set_field(0, 1u, "abc");
  db->set_field(2, 1u, "ab");
  Held view(new KSTViewRep(db.get()));
  view->displayRecordsAt(2, 2, 0);  // rows 2, 3
  EXPECT_TRUE(view->set_field(1, 1u, "zz") != 0);
  EXPECT_STREQ(db->getField(3, 1).c_str(), "zz");
  EXPECT_TRUE(view->set_field(0, 1u, 12));
  int number = 0;
  EXPECT_TRUE(view->in_field(0, 1u, number));
  EXPECT_EQ(number, 12);
  EXPECT_FALSE(view->set_field(2, 1u, 5)) << "no row 2 in the view";
  EXPECT_STREQ(view->getField(1, 1).c_str(), "zz");
  EXPECT_STREQ(view->getField(7, 1).c_str(), "");
  EXPECT_STREQ(view->get_fieldname(1), "Name");
  EXPECT_EQ(view->get_fieldnum("TAG"), 2u);
  // findFirst searches the source from its first row for the whole value, and answers a
  // source row: callers rely on the start and length being ignored.
  EXPECT_EQ(view->findFirst("Name", "abc", 0), 0);
  EXPECT_EQ(view->findFirst("Name", "a", 1), -1);
  EXPECT_EQ(db->findFirst("Name", "a", 1), 0);
  // Showing only tagged rows removes the others from the view; the flag itself stays 0.
  view->set_tag(1, 1);
  view->set_show_tags_only(1);
  EXPECT_EQ(view->get_num_records(), 1u);
  EXPECT_EQ(view->get_show_tags_only(), 0);
  EXPECT_EQ(view->delete_tagged_records(), 0u);
  EXPECT_EQ(view->get_num_records(), 0u);
  EXPECT_EQ(db->get_num_records(), 4u);
  EXPECT_EQ(view->save_text(), 0);

  Held detached(new KSTViewRep(nullptr));
  detached->displayRecordsAt(0, 2, 0);
  EXPECT_EQ(detached->get_num_fields(), 0u);
  EXPECT_EQ(detached->baseIndex(0), 0);
  EXPECT_EQ(detached->find(db->get_record(0).get()), -1);
  EXPECT_FALSE(detached->set_field(0, 1u, 3));
  EXPECT_EQ(detached->get_record(0), nullptr);
  EXPECT_EQ(detached->get_valid(), 0);
  EXPECT_EQ(detached->findFirst("Name", "abc", 0), -1);
  EXPECT_EQ(detached->make_dummy_record(), nullptr);
}

TEST(ViewCore, DisplayOperations) {
  Zr::Ptr<kesta> db = viewprobe::makeDatabase(10);
  Held view(new KSTViewRep(db.get()));
  view->displayRecordsAt(0, 4, 0);
  EXPECT_EQ(view->displayRecordsAt(5, 3, 100), 3);
  EXPECT_EQ(shown(*view.view), (std::vector<int>{0, 1, 2, 3, 5, 6, 7}));
  EXPECT_EQ(view->displayMatchAt("Id", "9", -4), 1);
  EXPECT_EQ(view->displayMatchAt("Id", "nothing", 0), 0);
  EXPECT_EQ(shown(*view.view).front(), 9);

  // Another view's records not shown yet, as database rows, only on a view with no base.
  Held other(new KSTViewRep(db.get()));
  other->displayRecordsAt(8, 1, 0);
  other->displayRecordsAt(0, 1, 1);
  other->displayRecordsAt(8, 1, 2);  // 8, 0, 8: the second 8 is shown by then
  EXPECT_EQ(view->displayAllFromAt(other.view, 1), 1);
  EXPECT_EQ(shown(*view.view), (std::vector<int>{9, 8, 0, 1, 2, 3, 5, 6, 7}));
  Held chained(new KSTViewRep(db.get()));
  chained->baseView(view.view);
  EXPECT_EQ(chained->displayAllFromAt(other.view, 0), 0);
  Zr::Ptr<kesta> elsewhere = viewprobe::makeDatabase(3);
  Held foreign(new KSTViewRep(elsewhere.get()));
  foreign->displayAllRecords();
  EXPECT_EQ(view->displayAllFromAt(foreign.view, 0), 0);
}

TEST(ViewCore, DisplayByIdentifier) {
  std::vector<DBFieldDesc> fields{{"Cookie", DBFieldTypes::kText}, {"Id", DBFieldTypes::kText}};
  Zr::Ptr<kesta> db(new kesta(fields));
  std::vector<Cookie> ids;
  for (int i = 0; i < 4; ++i) ids.push_back(Cookie::generate());
  for (const Cookie& id : ids) db->addRecord(id);
  CookieVec wanted;
  wanted.push_back(ids[2]);
  wanted.push_back(Cookie::generate());
  wanted.push_back(ids[0]);
  Held view(new KSTViewRep(db.get()));
  EXPECT_EQ(view->displayRecordsAt(wanted, 0), 2);
  EXPECT_EQ(view->sourceRow(0), 2u);
  EXPECT_EQ(view->sourceRow(1), 0u);
  CookieSet set;
  set.add(ids[1]);
  set.add(ids[3]);
  EXPECT_EQ(view->displayRecordsAt(set, 1), 2);
  EXPECT_EQ(view->get_num_records(), 4u);
  EXPECT_EQ(view->sourceRow(0), 2u);
  EXPECT_EQ(view->sourceRow(3), 0u);
}

}  // namespace
