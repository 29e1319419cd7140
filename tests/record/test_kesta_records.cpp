// Record operations of the database: inserting, appending and deleting rows (with the
// "recordsDeleted" texts listeners see), setting fields by row, the identifier index and its
// cache rules, field search, tags and the show-tags-only mode, and the record list underneath.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "common/TestUtil.h"
#include "record/RecordList.h"
#include "record/StoreTestUtil.h"
#include "support/OS.h"

namespace {

using namespace storetest;

const std::vector<DBFieldDesc> kFields = {{"Name", T::kText}, {"Reel", T::kText}, {"Cookie", T::kText}};

TEST(KestaInsert, OneNewRecordThenEmptyEntries) {
  auto db = makeDb(kFields, namedRows(5));
  db->clear_changed();
  db->insert_records(2, 3);
  // Callers rely on this shape: the new record at 2, no record at 3 and 4.
  EXPECT_EQ(columnOf(*db, 0), (Strings{"r0", "r1", "", "", "", "r2", "r3", "r4"}));
  ASSERT_TRUE(db->get_record(2));
  EXPECT_EQ(db->get_record(2)->get_container(), db.get());
  EXPECT_EQ(db->get_record(2)->get_num_fields(), 3u);
  EXPECT_FALSE(db->get_record(3) || db->get_record(4));
  EXPECT_EQ(db->changed(), 0) << "inserting does not mark the database";

  // Missing records never fault and answer as missing.
  EXPECT_EQ(db->set_field(3, 0, "x"), 0);
  EXPECT_FALSE(db->setField(4, 0, LightweightString<char>("x")));
  EXPECT_EQ(db->findFirst("Name", "", 0), 2) << "the search skips rows without a record";

  db->insert_records(9, 1);  // past the end
  db->insert_records(8, 0);
  EXPECT_EQ(db->get_num_records(), 8u);
  db->insert_records(8, 1);  // at the end
  EXPECT_TRUE(db->get_record(8));

  kesta added(kFields);
  EXPECT_EQ(added.add_records(4), 0u);
  EXPECT_EQ(added.add_records(0), 4u);
  EXPECT_EQ(added.add_records(-3), 4u);
  EXPECT_EQ(added.add_records(2), 4u);
  EXPECT_EQ(added.get_num_records(), 6u);
  EXPECT_EQ(added.get_record(5)->get_container(), &added);
}

TEST(KestaDelete, NotificationTexts) {
  struct Case {
    unsigned rows, first, count;
    Strings messages;
    Strings left;
  } cases[] = {
      {5, 1, 2, {"1 2 "}, {"r0", "r3", "r4"}},
      // A range past the end is cut there.
      {5, 3, 9, {"3 4 "}, {"r0", "r1", "r2"}},
      {5, 5, 1, {}, {"r0", "r1", "r2", "r3", "r4"}},
      {5, 0, 0, {}, {"r0", "r1", "r2", "r3", "r4"}},
      {0, 0, 1, {}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.first) + "+" + std::to_string(c.count) + " of " + std::to_string(c.rows));
    auto db = makeDb(kFields, namedRows(static_cast<int>(c.rows)));
    db->clear_changed();
    DeletionLog log(*db);
    db->delete_records(c.first, c.count);
    EXPECT_EQ(log.texts, c.messages);
    EXPECT_EQ(columnOf(*db, 0), c.left);
    EXPECT_EQ(db->changed(), c.messages.empty() ? 0 : 1);
  }
}

// Looks at the database while told of a deletion, then drops its last reference to it.
struct Observer {
  Zr::Ptr<kesta> db;
  unsigned rows_seen = 0;
  int changed_seen = -1;
  int onDeleted(const NotifyMsg&) {
    rows_seen = db->get_num_records();
    changed_seen = db->changed();
    db = nullptr;
    return 0;
  }
};

TEST(KestaDelete, ListenersSeeTheShortenedListBeforeTheChangedFlagAndMayReleaseTheDatabase) {
  Observer observer{makeDb(kFields, namedRows(6))};
  observer.db->clear_changed();
  Zr::Ptr<Zr::Guard> guard = observer.db->registerNotification(
      &observer, &Observer::onDeleted, NotifyMsgTypeDictionary::instance().intern("recordsDeleted"));
  observer.db->delete_records(2, 3);  // the sanitizer build checks nothing touches freed memory
  EXPECT_EQ(observer.rows_seen, 3u);
  EXPECT_EQ(observer.changed_seen, 0);
  EXPECT_FALSE(observer.db);
}

TEST(KestaDelete, AllocationFailureLeavesTheRowsInPlace) {
  auto db = makeDb(kFields, namedRows(5));
  DeletionLog log(*db);
  db->delete_records(4, 1);  // interns the message type before the allocator fails
  log.texts.clear();
  db->clear_changed();
  {
    testutil::TestAllocator failing(1, true);
    EXPECT_THROW(db->delete_records(1, 2), std::bad_alloc);
  }
  EXPECT_EQ(columnOf(*db, 0), (Strings{"r0", "r1", "r2", "r3"}));
  EXPECT_TRUE(log.texts.empty());
  EXPECT_EQ(db->changed(), 0);
}

TEST(KestaAdd, RecordsAddedOneAtATimeAllocateInProportionToTheRows) {
  // Room made exactly for each add would copy the whole list on every call.
  kesta db(kFields);
  testutil::TestAllocator counted;
  for (int i = 0; i < 20000; ++i) db.add_records(1);
  EXPECT_LT(counted.bytes(), std::size_t{2048} * 20000);
  EXPECT_EQ(db.get_num_records(), 20000u);
}

TEST(KestaFields, SettersByRow) {
  auto db = makeDb(kFields, namedRows(2));
  db->clear_changed();
  EXPECT_EQ(db->set_field(0, 1, "  A001 "), 1);
  EXPECT_STREQ(db->getField(0, 1).c_str(), "A001 ") << "leading blanks go, trailing stay";
  EXPECT_EQ(db->changed(), 1);
  EXPECT_EQ(db->set_field(0, 3, "x") + db->set_field(0, kNone, "x") + db->set_field(7, 1, "x"), 0);

  db->get_record(1)->set_tag(3);
  db->clear_changed();
  EXPECT_FALSE(db->get_record(0)->changed() || db->get_record(1)->changed());
  EXPECT_EQ(db->get_tag(1), 3) << "tags survive";
  EXPECT_TRUE(db->setField(0, 1, LightweightString<char>("A001 ")));
  EXPECT_EQ(db->changed(), 0) << "an equal value is not a change";
  EXPECT_TRUE(db->setField(0, 1, LightweightString<char>("  B002")));
  EXPECT_STREQ(db->getField(0, 1).c_str(), "  B002") << "stored as given";
  EXPECT_EQ(db->changed(), 1);
  EXPECT_FALSE(db->setField(0, 65536, LightweightString<char>("x"))) << "no wrap to column 0";
  EXPECT_EQ(rowsOf(*db)[0], (Strings{"r0", "  B002", ""}));
  EXPECT_STREQ(db->getField(0, 65536).c_str(), "");
}

std::string text(const Cookie& id) { return id.asString(false).c_str(); }

std::vector<unsigned> rowsById(kesta& db, std::initializer_list<Cookie> ids) {
  std::vector<unsigned> out;
  for (const Cookie& id : ids) out.push_back(db.getRowIndexByID(id));
  return out;
}

TEST(KestaIdentity, LookupBuildsTheIndexFromTheCookieColumn) {
  std::vector<Cookie> ids;
  for (int i = 0; i < 10; ++i) ids.push_back(i == 9 ? ids[4] : Cookie::generate());
  auto db = makeDb(kFields, namedRows(10));
  for (unsigned r = 0; r < 10; ++r) db->set_field(r, 2, text(ids[r]).c_str());
  // The first of two rows wins.
  EXPECT_EQ(rowsById(*db, {ids[4], ids[8], Cookie::generate()}), (std::vector<unsigned>{4, 8, kNone}));
  EXPECT_EQ(db->get_record(ids[7]).get(), db->get_record(7u).get());
  EXPECT_FALSE(db->get_record(Cookie::generate()));

  // The index is a cache: a changed identifier is not seen until an emptying operation.
  const Cookie moved = Cookie::generate();
  db->setField(7, 2, LightweightString<char>(text(moved).c_str()));
  EXPECT_EQ(rowsById(*db, {moved, ids[7]}), (std::vector<unsigned>{kNone, 7}));
  db->add_records(0);
  EXPECT_EQ(rowsById(*db, {moved, ids[7]}), (std::vector<unsigned>{7, kNone}));
  db->delete_records(0, 2);
  EXPECT_EQ(db->getRowIndexByID(moved), 5u);
  db->insert_records(0, 1);
  EXPECT_EQ(db->getRowIndexByID(moved), 6u);

  kesta no_cookie(std::vector<DBFieldDesc>{{"Name", T::kText}});
  no_cookie.add_records(2);
  EXPECT_EQ(no_cookie.getRowIndexByID(ids[0]), kNone);
  EXPECT_FALSE(no_cookie.set_field(0, ids[0]));
  EXPECT_STREQ(no_cookie.addRecord(ids[0])->get_field(0), "");
  EXPECT_EQ(no_cookie.get_num_records(), 3u);
}

TEST(KestaIdentity, SetFieldAndAddRecordFileTheirEntries) {
  const Cookie a = Cookie::generate(), b = Cookie::generate(), c = Cookie::generate();
  auto db = makeDb(kFields, namedRows(3));
  db->set_field(0, 2, text(a).c_str());
  // set_field by identifier files its one entry even into an unbuilt index, which then counts
  // as built: row 0's identifier is not found.
  EXPECT_TRUE(db->set_field(2, c));
  EXPECT_EQ(db->getField(2, 2).c_str(), text(c));
  EXPECT_EQ(rowsById(*db, {c, a}), (std::vector<unsigned>{2, kNone}));
  // Into a built index: the new identifier is filed, the old one's entry stays; an existing
  // entry is overwritten.
  db->add_records(0);
  EXPECT_EQ(db->getRowIndexByID(a), 0u);  // built again
  EXPECT_TRUE(db->set_field(0, b));
  EXPECT_EQ(rowsById(*db, {b, a}), (std::vector<unsigned>{0, 0}));
  EXPECT_TRUE(db->set_field(1, b));
  EXPECT_EQ(db->getRowIndexByID(b), 1u);
  EXPECT_FALSE(db->set_field(3, a)) << "no record";

  // addRecord leaves an unbuilt index empty ...
  auto fresh = makeDb(kFields, namedRows(2));
  Zr::Ptr<dbrecord> added = fresh->addRecord(a);
  EXPECT_EQ(fresh->get_record(2u).get(), added.get());
  EXPECT_EQ(added->get_field(2), text(a));
  EXPECT_EQ(added->get_container(), fresh.get());
  fresh->set_field(0, b);
  EXPECT_EQ(fresh->getRowIndexByID(a), kNone);
  // ... and files into a built one, where an identifier already there keeps its row.
  fresh->add_records(0);
  EXPECT_EQ(fresh->getRowIndexByID(a), 2u);  // built again
  fresh->addRecord(c);
  fresh->addRecord(a);
  EXPECT_EQ(rowsById(*fresh, {a, c}), (std::vector<unsigned>{2, 3}));
  EXPECT_EQ(fresh->get_num_records(), 5u);
}

TEST(KestaSearch, FindFirst) {
  auto db = makeDb(kFields, {{"n0", "B001"}, {"n1", "a001"}, {"n2", "A010"}, {"n3", "A001"}, {"n4", "A001"}});
  struct Case {
    const char* field;
    const char* value;
    int length, expect;
  } cases[] = {
      {"Reel", "A00", 2, 2},   {"reel", "A001", 0, 3}, {"Reel", "a001", 0, 1},   {"Reel", "A00", 0, -1},
      {"Reel", "A001x", 4, 3}, {"Reel", "C", 0, -1},   {"Notes", "A001", 0, -1}, {"Name", "n4", 0, 4},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(db->findFirst(c.field, c.value, c.length), c.expect) << c.field << " " << c.value << " " << c.length;
  }
  // On the identifier column the index answers, stale or not; what it lacks, the plain search.
  const std::string id = text(Cookie::generate());
  db->set_field(3, 2, id.c_str());
  EXPECT_EQ(db->findFirst("COOKIE", id.c_str(), 0), 3);
  db->setField(3, 2, LightweightString<char>("gone"));
  EXPECT_EQ(db->findFirst("cookie", id.c_str(), 0), 3);
  EXPECT_EQ(db->findFirst("Cookie", "gone", 0), 3);
  EXPECT_EQ(db->findFirst("Cookie", "nowhere", 0), -1);
}

const std::vector<DBFieldDesc> kTagFields = {{"Name", T::kText}, {"Reel", T::kText}};

TEST(Tags, SetInvertCountAndReadValues) {
  auto db = makeDb(kTagFields, namedRows(3));
  struct Step {
    int set;     // value for set_tag, -1 for invert_tag, -2 for nothing
    int expect;  // get_tag afterwards
  } steps[] = {{-2, 0}, {-1, 1}, {-1, 0}, {5, 5}, {-1, 0}, {256 + 3, 3}, {255, 255}, {-255, 1}};
  for (const Step& s : steps) {
    if (s.set == -1) db->invert_tag(1);
    if (s.set >= 0 || s.set < -2) db->set_tag(1, s.set);
    EXPECT_EQ(tagsOf(*db), (std::vector<int>{0, s.expect, 0})) << s.set;
  }
  // Rows past the end: nothing faults, nothing changes.
  EXPECT_EQ(db->get_tag(3), -1);
  EXPECT_EQ(db->get_tag(kNone), -1);
  db->set_tag(3, 1);
  db->invert_tag(3);
  db->invert_tag(kNone);
  EXPECT_EQ(db->get_num_tags(), 1);

  db = makeDb(kTagFields, namedRows(5));
  db->set_all_tags(2);
  EXPECT_EQ(tagsOf(*db), (std::vector<int>{2, 2, 2, 2, 2}));
  EXPECT_EQ(db->get_num_tags(), 5);
  db->set_tag(3, 0);
  db->invert_all_tags();
  EXPECT_EQ(tagsOf(*db), (std::vector<int>{0, 0, 0, 1, 0}));
  EXPECT_EQ(db->get_num_tags(), 1);

  // Entries without a record (left by insert_records) answer -1, which counts as tagged.
  db->set_all_tags(0);
  db->insert_records(1, 3);
  EXPECT_EQ(tagsOf(*db), (std::vector<int>{0, 0, -1, -1, 0, 0, 0, 0}));
  EXPECT_EQ(db->get_num_tags(), 2);
  db->set_all_tags(1);
  EXPECT_EQ(db->get_num_tags(), 8);
  db->invert_all_tags();
  EXPECT_EQ(db->get_num_tags(), 2);
}

// Two examples: the model check compares the answer, messages and rows on random tags, but
// its databases override nothing, so only the spy here sees each run go through delete_records.
TEST(Tags, DeleteTaggedRecordsInRuns) {
  struct Case {
    std::vector<int> tags;
    Strings messages;
    std::vector<std::pair<unsigned, unsigned>> calls;
    Strings left;
  } cases[] = {
      {{0, 1, 1, 0, 1, 0}, {"1 2 ", "2 "}, {{1, 2}, {2, 1}}, {"r0", "r3", "r5"}},
      {{2, 1, 0, 5, 1}, {"1 ", "3 "}, {{1, 1}, {3, 1}}, {"r0", "r2", "r3"}},  // only tag 1 deletes
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.tags));
    auto db = makeDb<DeleteSpyKesta>(kTagFields, namedRows(static_cast<int>(c.tags.size())));
    setTags(*db, c.tags);
    DeletionLog log(*db);
    EXPECT_EQ(db->delete_tagged_records(), c.tags.size() - c.left.size());
    EXPECT_EQ(log.texts, c.messages);
    EXPECT_EQ(db->calls, c.calls);
    EXPECT_EQ(columnOf(*db, 0), c.left);
  }

  auto shown = makeDb<FullCountKesta>(kTagFields, namedRows(4));
  setTags(*shown, {1, 0, 1, 1});
  shown->set_show_tags_only(1);
  DeletionLog log(*shown);
  EXPECT_EQ(shown->delete_tagged_records(), kNone) << "refused while showing tagged rows only";
  EXPECT_TRUE(log.texts.empty());
  shown->set_show_tags_only(0);
  EXPECT_EQ(columnOf(*shown, 0), (Strings{"r0", "r1", "r2", "r3"}));
}

TEST(Tags, ShowTagsOnlyOnPlainDatabase) {
  auto db = makeDb(kTagFields, namedRows(4));
  setTags(*db, {1, 0, 1, 0});
  db->set_show_tags_only(1);
  // The rebuild is bounded by the visible row count, which is the (empty) index itself.
  EXPECT_EQ(db->get_show_tags_only(), 1);
  EXPECT_EQ(db->get_num_records() + db->get_num_tags() + db->index_tags(), 0u);
  EXPECT_FALSE(db->get_record(0));
  EXPECT_EQ(db->get_new_row(0), kNone);
  // Structural changes are refused.
  EXPECT_EQ(db->add_records(2), kNone);
  db->insert_records(0, 1);
  DeletionLog log(*db);
  db->delete_records(0, 1);
  EXPECT_TRUE(log.texts.empty());
  // set_all_tags reaches only visible rows; invert_all_tags reaches every record.
  db->set_all_tags(1);
  db->invert_all_tags();
  db->set_show_tags_only(0);
  EXPECT_EQ(db->get_show_tags_only(), 0);
  EXPECT_EQ(columnOf(*db, 0), (Strings{"r0", "r1", "r2", "r3"}));
  EXPECT_EQ(tagsOf(*db), (std::vector<int>{0, 1, 0, 1}));
}

TEST(Tags, TaggedIndexOfDerivedSource) {
  auto db = makeDb<FullCountKesta>(kTagFields, namedRows(6));
  setTags(*db, {0, 1, 0, 3, 1, 0});
  db->insert_records(6, 2);  // row 6 a new record, row 7 an entry without one
  db->set_show_tags_only(1);
  EXPECT_EQ(db->index_tags(), 8u);
  Strings visible;
  for (unsigned r = 0; r < 4; ++r) visible.emplace_back(db->getField(r, 0).c_str());
  EXPECT_EQ(visible, (Strings{"r1", "r3", "r4", ""}));
  EXPECT_FALSE(db->get_record(3));

  struct Map {
    unsigned raw, visible;
  } maps[] = {{1, 0}, {3, 1}, {4, 2}, {7, 3}, {0, kNone}, {2, kNone}, {6, kNone}, {99, kNone}};
  for (const Map& m : maps) {
    EXPECT_EQ(db->get_new_row(m.raw), m.visible) << "raw " << m.raw;
    if (m.visible != kNone) {
      EXPECT_EQ(db->get_raw_row(m.visible), m.raw) << "visible " << m.visible;
    }
  }
  EXPECT_EQ(db->get_raw_row(4), kNone);  // equal to the index size: passes the bound, finds nothing
  EXPECT_EQ(db->get_raw_row(5), kNone);
  // Rows address the index; the search reads the full list.
  EXPECT_EQ(db->set_field(1, 1, "tagged"), 1);
  EXPECT_EQ(db->findFirst("Name", "r0", 0), 0);

  // Turning the flag off keeps the index; row numbers are the full list's again.
  db->set_show_tags_only(0);
  EXPECT_EQ(db->get_new_row(2), 2u);
  EXPECT_EQ(db->get_raw_row(5), 5u);
  EXPECT_EQ(db->get_raw_row(kNone), kNone);
  EXPECT_STREQ(db->getField(3, 1).c_str(), "tagged");
}

// The record list against a vector under random appends, insertions and deletions: order,
// emptiness of inserted entries, and that erased records are released.
TEST(RecordListModel, MatchesAVectorUnderRandomEdits) {
  std::mt19937 rng(20240611);
  RecordList list;
  std::vector<dbrecord*> model;
  std::vector<Zr::Ptr<dbrecord>> made;  // every record, so its use count shows the list's hold
  auto fresh = [&] {
    made.emplace_back(new dbrecord(1));
    return made.back();
  };
  for (int step = 0; step < 3000; ++step) {
    const unsigned op = rng() % 10;
    if (op < 4) {
      list.push_back(fresh());
      model.push_back(made.back().get());
    } else if (op < 6) {
      const std::size_t at = rng() % (model.size() + 1), n = rng() % 4;
      list.insert_empty(at, n);
      model.insert(model.begin() + static_cast<std::ptrdiff_t>(at), n, nullptr);
      if (n > 0) {  // the first inserted entry filled, as the database does
        list[at] = fresh();
        model[at] = made.back().get();
      }
    } else if (op < 9 && !model.empty()) {
      const std::size_t first = rng() % model.size(), n = rng() % (model.size() - first + 1);
      list.erase(first, n);
      model.erase(model.begin() + static_cast<std::ptrdiff_t>(first),
                  model.begin() + static_cast<std::ptrdiff_t>(first + n));
    }
    const Zr::Ptr<dbrecord>* entries = op == 9 ? list.contiguous() : nullptr;
    ASSERT_EQ(list.size(), model.size()) << "step " << step;
    for (std::size_t i = 0; i < model.size(); ++i) {
      ASSERT_EQ(list[i].get(), model[i]) << "step " << step << " @" << i;
      ASSERT_TRUE(!entries || entries[i].get() == model[i]) << "contiguous, step " << step;
    }
  }
  std::size_t held = 0;
  for (const Zr::Ptr<dbrecord>& r : made) {
    const bool in_list = std::find(model.begin(), model.end(), r.get()) != model.end();
    EXPECT_EQ(r.useCount(), in_list ? 2 : 1);
    held += in_list;
  }
  EXPECT_GT(held, 0u);
  list.clear();
  EXPECT_TRUE(list.empty());
  for (const Zr::Ptr<dbrecord>& r : made) EXPECT_EQ(r.useCount(), 1);
}

}  // namespace
