// Record operations of the database: inserting, appending and deleting rows (with the
// "recordsDeleted" texts listeners see), setting fields by row, the identifier index and its
// cache rules, field search, and the record list underneath.

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
      {5, 0, 1, {"0 "}, {"r1", "r2", "r3", "r4"}},
      {5, 4, 1, {"4 "}, {"r0", "r1", "r2", "r3"}},
      {5, 0, 5, {"0 1 2 3 4 "}, {}},
      {12, 8, 4, {"8 9 10 11 "}, {"r0", "r1", "r2", "r3", "r4", "r5", "r6", "r7"}},
      {5, 3, 9, {"3 4 "}, {"r0", "r1", "r2"}},  // a range past the end is cut there
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

// Fails every allocation once armed.
class FailingAllocator : public iAllocator {
 public:
  void* allocate(std::size_t size) override {
    if (armed) throw Zr::Exception::BadAlloc();
    return defaultAllocator()->allocate(size);
  }
  void release(void* block) noexcept override { defaultAllocator()->release(block); }
  bool armed = false;
};

TEST(KestaDelete, AllocationFailureLeavesTheRowsInPlace) {
  auto db = makeDb(kFields, namedRows(5));
  DeletionLog log(*db);
  db->delete_records(4, 1);  // interns the message type before the allocator fails
  log.texts.clear();
  db->clear_changed();

  FailingAllocator failing;
  iAllocator* previous = setAllocator(&failing);
  failing.armed = true;
  bool thrown = false;
  try {
    db->delete_records(1, 2);
  } catch (const std::bad_alloc&) {
    thrown = true;
  }
  failing.armed = false;
  setAllocator(previous);

  EXPECT_TRUE(thrown);
  EXPECT_EQ(columnOf(*db, 0), (Strings{"r0", "r1", "r2", "r3"}));
  EXPECT_TRUE(log.texts.empty());
  EXPECT_EQ(db->changed(), 0);
}

TEST(KestaAdd, RecordsAddedOneAtATimeAllocateInProportionToTheRows) {
  // Room made exactly for each add would copy the whole list on every call.
  constexpr int kRows = 20000;
  kesta db(kFields);
  testutil::CountedBytes counted;
  for (int i = 0; i < kRows; ++i) db.add_records(1);
  EXPECT_LT(counted.bytes(), std::size_t{2048} * kRows);
  EXPECT_EQ(db.get_num_records(), static_cast<unsigned>(kRows));
}

TEST(KestaFields, SettersByRow) {
  auto db = makeDb(kFields, namedRows(2));
  db->clear_changed();
  EXPECT_EQ(db->set_field(0, 1, "  A001 "), 1);
  EXPECT_STREQ(db->getField(0, 1).c_str(), "A001 ") << "leading blanks go, trailing stay";
  EXPECT_EQ(db->changed(), 1);
  for (unsigned field : {3u, kNone}) EXPECT_EQ(db->set_field(0, field, "x"), 0);
  EXPECT_EQ(db->set_field(7, 1, "x"), 0);

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
  EXPECT_STREQ(db->getField(0, 0).c_str(), "r0");
  EXPECT_STREQ(db->getField(0, 65536).c_str(), "");
}

std::string text(const Cookie& id) { return id.asString(false).c_str(); }

TEST(KestaIdentity, LookupBuildsTheIndexFromTheCookieColumn) {
  std::vector<Cookie> ids;
  for (int i = 0; i < 10; ++i) ids.push_back(Cookie::generate());
  ids[9] = ids[4];
  auto db = makeDb(kFields, namedRows(10));
  for (unsigned r = 0; r < 10; ++r) db->set_field(r, 2, text(ids[r]).c_str());

  EXPECT_EQ(db->getRowIndexByID(ids[4]), 4u) << "the first of two rows wins";
  EXPECT_EQ(db->getRowIndexByID(Cookie::generate()), kNone);
  EXPECT_EQ(db->get_record(ids[7]).get(), db->get_record(7u).get());
  EXPECT_FALSE(db->get_record(Cookie::generate()));

  // The index is a cache: a changed identifier is not seen until an emptying operation.
  const Cookie moved = Cookie::generate();
  db->setField(7, 2, LightweightString<char>(text(moved).c_str()));
  EXPECT_EQ(db->getRowIndexByID(moved), kNone);
  EXPECT_EQ(db->getRowIndexByID(ids[7]), 7u);
  db->add_records(0);
  EXPECT_EQ(db->getRowIndexByID(moved), 7u);
  EXPECT_EQ(db->getRowIndexByID(ids[7]), kNone);
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
  EXPECT_EQ(db->getRowIndexByID(c), 2u);
  EXPECT_EQ(db->getRowIndexByID(a), kNone);

  // Into a built index: the new identifier is filed, the old one stays where it was.
  db->add_records(0);
  EXPECT_EQ(db->getRowIndexByID(a), 0u);
  EXPECT_TRUE(db->set_field(0, b));
  EXPECT_EQ(db->getRowIndexByID(b), 0u);
  EXPECT_EQ(db->getRowIndexByID(a), 0u) << "stale entry of the old identifier";
  EXPECT_TRUE(db->set_field(1, b));
  EXPECT_EQ(db->getRowIndexByID(b), 1u) << "an existing entry is overwritten";
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
  EXPECT_EQ(fresh->getRowIndexByID(a), 2u);
  fresh->addRecord(c);
  EXPECT_EQ(fresh->getRowIndexByID(c), 3u);
  fresh->addRecord(a);
  EXPECT_EQ(fresh->get_num_records(), 5u);
  EXPECT_EQ(fresh->getRowIndexByID(a), 2u);
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
  // On the identifier column the index answers, stale or not.
  const std::string id = text(Cookie::generate());
  db->set_field(3, 2, id.c_str());
  EXPECT_EQ(db->findFirst("COOKIE", id.c_str(), 0), 3);
  db->setField(3, 2, LightweightString<char>("gone"));
  EXPECT_EQ(db->findFirst("cookie", id.c_str(), 0), 3) << "answered from the index";
  EXPECT_EQ(db->findFirst("Cookie", "gone", 0), 3) << "not in the index: the plain search";
  EXPECT_EQ(db->findFirst("Cookie", "nowhere", 0), -1);
}

TEST(KestaTaggedRows, RowsAddressTheTaggedIndex) {
  auto db = makeDb(kFields, namedRows(3));
  db->set_tag(1, 1);
  db->set_show_tags_only(1);
  // A plain database rebuilds its tagged index empty in this mode; structural changes refuse.
  EXPECT_FALSE(db->get_record(0));
  EXPECT_EQ(db->add_records(2), kNone);
  db->insert_records(0, 1);
  DeletionLog log(*db);
  db->delete_records(0, 1);
  EXPECT_TRUE(log.texts.empty());
  db->set_show_tags_only(0);
  EXPECT_EQ(columnOf(*db, 0), (Strings{"r0", "r1", "r2"}));

  auto full = makeDb<FullCountKesta>(kFields, namedRows(4));
  setTags(*full, {0, 1, 0, 1});
  full->set_show_tags_only(1);
  EXPECT_STREQ(full->getField(0, 0).c_str(), "r1");
  EXPECT_EQ(full->set_field(1, 1, "tagged"), 1);
  EXPECT_EQ(full->findFirst("Name", "r0", 0), 0) << "the search reads the full list";
  full->set_show_tags_only(0);
  EXPECT_STREQ(full->getField(3, 1).c_str(), "tagged");
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
