// Record operations of the database: inserting, appending and deleting rows (with the
// "recordsDeleted" texts listeners see), setting fields by row, the identifier index and its
// cache rules, field search, and the record list underneath.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "common/TestUtil.h"
#include "record/RecordList.h"
#include "record/StoreTestUtil.h"
#include "record/kesta.h"
#include "support/OS.h"

namespace {

using storetest::columnOf;
using storetest::DeletionLog;
using storetest::makeDb;
using storetest::Rows;
using T = DBFieldTypes;

constexpr unsigned kNone = 0xFFFFFFFFu;

const std::vector<DBFieldDesc> kFields = {{"Name", T::kText}, {"Reel", T::kText}, {"Cookie", T::kText}};

Rows namedRows(int n) {
  Rows rows;
  for (int i = 0; i < n; ++i) rows.push_back({"r" + std::to_string(i)});
  return rows;
}

std::vector<std::string> names(kesta& db) { return columnOf(db, 0); }

TEST(KestaInsert, OneNewRecordThenEmptyEntries) {
  auto db = makeDb(kFields, namedRows(5));
  db->clear_changed();
  db->insert_records(2, 3);
  ASSERT_EQ(db->get_num_records(), 8u);
  // Callers rely on this shape: the new record at 2, no record at 3 and 4.
  ASSERT_TRUE(db->get_record(2));
  EXPECT_EQ(db->get_record(2)->get_container(), db.get());
  EXPECT_EQ(db->get_record(2)->get_num_fields(), 3u);
  EXPECT_FALSE(db->get_record(3));
  EXPECT_FALSE(db->get_record(4));
  EXPECT_EQ(names(*db), (std::vector<std::string>{"r0", "r1", "", "", "", "r2", "r3", "r4"}));
  EXPECT_EQ(db->changed(), 0) << "inserting does not mark the database";

  // Missing records never fault and answer as missing.
  EXPECT_EQ(db->set_field(3, 0, "x"), 0);
  EXPECT_FALSE(db->setField(4, 0, LightweightString<char>("x")));
  EXPECT_STREQ(db->getField(3, 0).c_str(), "");
  EXPECT_EQ(db->findFirst("Name", "", 0), 2) << "the search skips rows without a record";

  db->insert_records(9, 1);  // past the end
  db->insert_records(8, 0);
  EXPECT_EQ(db->get_num_records(), 8u);
  db->insert_records(8, 1);  // at the end
  EXPECT_EQ(db->get_num_records(), 9u);
  EXPECT_TRUE(db->get_record(8));
}

TEST(KestaInsert, AddRecordsAnswersTheFirstNewRow) {
  kesta db(kFields);
  EXPECT_EQ(db.add_records(4), 0u);
  EXPECT_EQ(db.get_num_records(), 4u);
  EXPECT_EQ(db.add_records(0), 4u);
  EXPECT_EQ(db.add_records(-3), 4u);
  EXPECT_EQ(db.get_num_records(), 4u);
  EXPECT_EQ(db.add_records(2), 4u);
  EXPECT_EQ(db.get_num_records(), 6u);
  for (unsigned r = 0; r < 6; ++r) EXPECT_EQ(db.get_record(r)->get_container(), &db);
}

TEST(KestaDelete, NotificationTexts) {
  struct Case {
    unsigned rows, first, count;
    std::vector<std::string> messages;
    std::vector<std::string> left;
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
    auto db = makeDb(kFields, namedRows(static_cast<int>(c.rows)));
    db->clear_changed();
    DeletionLog log(*db);
    db->delete_records(c.first, c.count);
    const std::string what = std::to_string(c.first) + "+" + std::to_string(c.count) + " of " + std::to_string(c.rows);
    EXPECT_EQ(log.texts, c.messages) << what;
    EXPECT_EQ(names(*db), c.left) << what;
    EXPECT_EQ(db->changed(), c.messages.empty() ? 0 : 1) << what;
  }
}

// A listener that looks at the database while it is told of a deletion.
struct Observer {
  kesta* db;
  unsigned rows_seen = 0;
  int changed_seen = -1;
  int onDeleted(const NotifyMsg&) {
    rows_seen = db->get_num_records();
    changed_seen = db->changed();
    return 0;
  }
};

TEST(KestaDelete, ListenersSeeTheShortenedListBeforeTheChangedFlag) {
  auto db = makeDb(kFields, namedRows(6));
  db->clear_changed();
  Observer observer{db.get()};
  Zr::Ptr<Zr::Guard> guard = db->registerNotification(&observer, &Observer::onDeleted,
                                                      NotifyMsgTypeDictionary::instance().intern("recordsDeleted"));
  db->delete_records(2, 3);
  EXPECT_EQ(observer.rows_seen, 3u);
  EXPECT_EQ(observer.changed_seen, 0);
  EXPECT_EQ(db->changed(), 1);
}

// A listener that drops the last reference to the database it listens to.
struct Dropper {
  Zr::Ptr<kesta> db;
  int onDeleted(const NotifyMsg&) {
    db = nullptr;
    return 0;
  }
};

TEST(KestaDelete, ListenerMayReleaseTheDatabase) {
  Dropper dropper{makeDb(kFields, namedRows(3))};
  Zr::Ptr<Zr::Guard> guard = dropper.db->registerNotification(
      &dropper, &Dropper::onDeleted, NotifyMsgTypeDictionary::instance().intern("recordsDeleted"));
  kesta* raw = dropper.db.get();
  raw->delete_records(0, 1);  // the sanitizer build checks nothing touches freed memory
  EXPECT_FALSE(dropper.db);
}

// Fails every allocation once armed, until disarmed.
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
  EXPECT_EQ(names(*db), (std::vector<std::string>{"r0", "r1", "r2", "r3"}));
  EXPECT_TRUE(log.texts.empty());
  EXPECT_EQ(db->changed(), 0);
}

TEST(KestaAdd, RecordsAddedOneAtATimeAllocateInProportionToTheRows) {
  // Each add makes room first (all or none); room made exactly would copy the whole list on
  // every call.
  constexpr int kRows = 20000;
  kesta db(kFields);
  std::size_t bytes = 0;
  {
    testutil::CountedBytes counted;
    for (int i = 0; i < kRows; ++i) db.add_records(1);
    bytes = counted.bytes();
  }
  EXPECT_EQ(db.get_num_records(), static_cast<unsigned>(kRows));
  EXPECT_LT(bytes, std::size_t{2048} * kRows);
}

TEST(KestaFields, SettersByRow) {
  auto db = makeDb(kFields, namedRows(2));
  db->clear_changed();

  EXPECT_EQ(db->set_field(0, 1, "  A001 "), 1);
  EXPECT_STREQ(db->getField(0, 1).c_str(), "A001 ") << "leading blanks go, trailing stay";
  EXPECT_EQ(db->changed(), 1);
  EXPECT_EQ(db->set_field(7, 1, "x"), 0);
  EXPECT_EQ(db->set_field(0, 3, "x"), 0);
  EXPECT_EQ(db->set_field(0, kNone, "x"), 0);

  db->clear_changed();
  EXPECT_FALSE(db->get_record(0)->changed());
  EXPECT_TRUE(db->setField(0, 1, LightweightString<char>("A001 ")));
  EXPECT_EQ(db->changed(), 0) << "an equal value is not a change";
  EXPECT_TRUE(db->setField(0, 1, LightweightString<char>("  B002")));
  EXPECT_STREQ(db->getField(0, 1).c_str(), "  B002") << "stored as given";
  EXPECT_EQ(db->changed(), 1);
  EXPECT_FALSE(db->setField(0, 65536, LightweightString<char>("x"))) << "no wrap to column 0";
  EXPECT_STREQ(db->getField(0, 0).c_str(), "r0");
  EXPECT_STREQ(db->getField(0, 65536).c_str(), "");

  db->get_record(1)->set_tag(3);
  db->clear_changed();
  EXPECT_EQ(db->changed(), 0);
  for (unsigned r = 0; r < 2; ++r) EXPECT_FALSE(db->get_record(r)->changed());
  EXPECT_EQ(db->get_tag(1), 3) << "tags survive";
}

TEST(KestaIdentity, LookupBuildsTheIndexFromTheCookieColumn) {
  std::vector<Cookie> ids;
  for (int i = 0; i < 10; ++i) ids.push_back(Cookie::generate());
  ids[9] = ids[4];
  auto db = makeDb(kFields, namedRows(10));
  for (unsigned r = 0; r < 10; ++r) db->set_field(r, 2, ids[r].asString(false).c_str());

  EXPECT_EQ(db->getRowIndexByID(ids[4]), 4u) << "the first of two rows wins";
  EXPECT_EQ(db->getRowIndexByID(ids[7]), 7u);
  EXPECT_EQ(db->getRowIndexByID(Cookie::generate()), kNone);
  EXPECT_EQ(db->get_record(ids[7]).get(), db->get_record(7u).get());
  EXPECT_FALSE(db->get_record(Cookie::generate()));

  // The index is a cache: a changed identifier is not seen until an emptying operation.
  const Cookie moved = Cookie::generate();
  db->setField(7, 2, moved.asString(false));
  EXPECT_EQ(db->getRowIndexByID(moved), kNone);
  EXPECT_EQ(db->getRowIndexByID(ids[7]), 7u);
  db->add_records(0);
  EXPECT_EQ(db->getRowIndexByID(moved), 7u);
  EXPECT_EQ(db->getRowIndexByID(ids[7]), kNone);

  // Deleting empties it too, so rows after the deletion are found where they are now.
  db->delete_records(0, 2);
  EXPECT_EQ(db->getRowIndexByID(moved), 5u);
  db->insert_records(0, 1);
  EXPECT_EQ(db->getRowIndexByID(moved), 6u);

  kesta no_cookie(std::vector<DBFieldDesc>{{"Name", T::kText}});
  no_cookie.add_records(2);
  EXPECT_EQ(no_cookie.getRowIndexByID(ids[0]), kNone);
}

TEST(KestaIdentity, SetFieldByIdFilesOneEntryEvenIntoAnUnbuiltIndex) {
  const Cookie a = Cookie::generate(), b = Cookie::generate(), c = Cookie::generate();
  auto db = makeDb(kFields, namedRows(3));
  db->set_field(0, 2, a.asString(false).c_str());

  EXPECT_TRUE(db->set_field(2, c));
  EXPECT_STREQ(db->getField(2, 2).c_str(), c.asString(false).c_str());
  // The index now holds that entry alone and counts as built: row 0's identifier is not found.
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
  kesta no_cookie(std::vector<DBFieldDesc>{{"Name", T::kText}});
  no_cookie.add_records(1);
  EXPECT_FALSE(no_cookie.set_field(0, a));
}

TEST(KestaIdentity, AddRecordFilesOnlyIntoABuiltIndex) {
  const Cookie a = Cookie::generate(), b = Cookie::generate(), c = Cookie::generate();
  auto db = makeDb(kFields, namedRows(2));

  // Unbuilt index: addRecord leaves it empty, so the one entry set_field files next is all
  // the index holds.
  Zr::Ptr<dbrecord> added = db->addRecord(a);
  EXPECT_EQ(db->get_num_records(), 3u);
  EXPECT_EQ(db->get_record(2u).get(), added.get());
  EXPECT_STREQ(added->get_field(2), a.asString(false).c_str());
  EXPECT_EQ(added->get_container(), db.get());
  db->set_field(0, b);
  EXPECT_EQ(db->getRowIndexByID(a), kNone);

  // Built index: the new record is filed; an identifier already there keeps its row.
  db->add_records(0);
  EXPECT_EQ(db->getRowIndexByID(a), 2u);
  db->addRecord(c);
  EXPECT_EQ(db->getRowIndexByID(c), 3u);
  db->addRecord(a);
  EXPECT_EQ(db->get_num_records(), 5u);
  EXPECT_EQ(db->getRowIndexByID(a), 2u);

  kesta no_cookie(std::vector<DBFieldDesc>{{"Name", T::kText}});
  Zr::Ptr<dbrecord> plain = no_cookie.addRecord(a);
  ASSERT_TRUE(plain);
  EXPECT_EQ(no_cookie.get_num_records(), 1u);
  EXPECT_STREQ(plain->get_field(0), "");
}

TEST(KestaSearch, FindFirst) {
  auto db = makeDb(kFields, {{"n0", "B001"}, {"n1", "a001"}, {"n2", "A010"}, {"n3", "A001"}, {"n4", "A001"}});
  struct Case {
    const char* field;
    const char* value;
    int length;
    int expect;
  } cases[] = {
      {"Reel", "A00", 2, 2},   {"reel", "A001", 0, 3}, {"Reel", "a001", 0, 1},   {"Reel", "A00", 0, -1},
      {"Reel", "A001x", 4, 3}, {"Reel", "C", 0, -1},   {"Notes", "A001", 0, -1}, {"Name", "n4", 0, 4},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(db->findFirst(c.field, c.value, c.length), c.expect) << c.field << " " << c.value << " " << c.length;
  }

  // On the identifier column the index answers, stale or not.
  const Cookie id = Cookie::generate();
  db->set_field(3, 2, id.asString(false).c_str());
  const std::string text = id.asString(false).c_str();
  EXPECT_EQ(db->findFirst("COOKIE", text.c_str(), 0), 3);
  db->setField(3, 2, LightweightString<char>("gone"));
  EXPECT_EQ(db->findFirst("cookie", text.c_str(), 0), 3) << "answered from the index";
  EXPECT_EQ(db->findFirst("Cookie", "gone", 0), 3) << "not in the index: the plain search";
  EXPECT_EQ(db->findFirst("Cookie", "nowhere", 0), -1);
}

TEST(KestaTaggedRows, RowsAddressTheTaggedIndex) {
  auto db = makeDb(kFields, namedRows(3));
  db->set_tag(1, 1);
  db->set_show_tags_only(1);
  // A plain database rebuilds its tagged index empty in this mode; structural changes refuse.
  EXPECT_EQ(db->get_num_records(), 0u);
  EXPECT_FALSE(db->get_record(0));
  EXPECT_EQ(db->add_records(2), kNone);
  db->insert_records(0, 1);
  DeletionLog log(*db);
  db->delete_records(0, 1);
  EXPECT_TRUE(log.texts.empty());
  db->set_show_tags_only(0);
  EXPECT_EQ(names(*db), (std::vector<std::string>{"r0", "r1", "r2"}));

  auto full = makeDb<storetest::FullCountKesta>(kFields, namedRows(4));
  full->set_tag(1, 1);
  full->set_tag(3, 1);
  full->set_show_tags_only(1);
  EXPECT_STREQ(full->getField(0, 0).c_str(), "r1");
  EXPECT_STREQ(full->getField(1, 0).c_str(), "r3");
  EXPECT_EQ(full->set_field(1, 1, "tagged"), 1);
  EXPECT_EQ(full->findFirst("Name", "r0", 0), 0) << "the search reads the full list";
  full->set_show_tags_only(0);
  EXPECT_STREQ(full->getField(3, 1).c_str(), "tagged");
}

// The record list against a plain vector: random insertions, deletions and appends at random
// places, checking order, emptiness of inserted entries, and that erased records are released.
TEST(RecordListModel, MatchesAVectorUnderRandomEdits) {
  std::mt19937 rng(20240611);
  RecordList list;
  std::vector<dbrecord*> model;
  std::vector<Zr::Ptr<dbrecord>> made;  // keeps every record, so its use count shows the list's hold

  auto check = [&](int step) {
    ASSERT_EQ(list.size(), model.size()) << "step " << step;
    for (std::size_t i = 0; i < model.size(); ++i) ASSERT_EQ(list[i].get(), model[i]) << "step " << step << " @" << i;
  };
  for (int step = 0; step < 3000; ++step) {
    const unsigned op = rng() % 10;
    if (op < 4) {
      Zr::Ptr<dbrecord> r(new dbrecord(1));
      made.push_back(r);
      list.push_back(r);
      model.push_back(r.get());
    } else if (op < 6) {
      const std::size_t at = rng() % (model.size() + 1);
      const std::size_t n = rng() % 4;
      list.insert_empty(at, n);
      model.insert(model.begin() + static_cast<std::ptrdiff_t>(at), n, nullptr);
      if (n > 0) {
        // Fill the first inserted entry, as the database does.
        Zr::Ptr<dbrecord> r(new dbrecord(1));
        made.push_back(r);
        list[at] = r;
        model[at] = r.get();
      }
    } else if (op < 9 && !model.empty()) {
      const std::size_t first = rng() % model.size();
      const std::size_t n = rng() % (model.size() - first + 1);
      list.erase(first, n);
      model.erase(model.begin() + static_cast<std::ptrdiff_t>(first),
                  model.begin() + static_cast<std::ptrdiff_t>(first + n));
    } else if (op == 9) {
      Zr::Ptr<dbrecord>* entries = list.contiguous();
      for (std::size_t i = 0; i < model.size(); ++i) ASSERT_EQ(entries[i].get(), model[i]);
    }
    check(step);
  }
  // Every record the list still holds has a count of 2 (ours and the list's), the rest 1.
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
