// Sorting: sort-field lists, the prepared key list, the ascending comparator's rules (blank
// records, empty keys, white space, time codes, case) and the raw descending comparator.

#include <gtest/gtest.h>

#include <algorithm>

#include "record/StoreTestUtil.h"

namespace {

using storetest::columnOf;
using storetest::FullCountKesta;
using storetest::makeDb;
using storetest::Rows;
using Strings = std::vector<std::string>;

// Name, Reel, Scene, TC (time code), Notes.
const std::vector<DBFieldDesc> kFields = {{"Name", DBFieldTypes::kText},
                                          {"Reel", DBFieldTypes::kText},
                                          {"Scene", DBFieldTypes::kText},
                                          {"TC", DBFieldTypes::kTimecode},
                                          {"Notes", DBFieldTypes::kText}};
constexpr unsigned kName = 0, kReel = 1, kScene = 2;

// The prepared keys, read through the exported pointer up to the terminator.
std::vector<int> preparedKeys() {
  std::vector<int> keys;
  for (const int* k = cmp_fields; *k >= 0; ++k) keys.push_back(*k);
  return keys;
}

int compareRecords(const Zr::Ptr<dbrecord>& a, const Zr::Ptr<dbrecord>& b, bool descending = false) {
  void* pa = const_cast<Zr::Ptr<dbrecord>*>(&a);
  void* pb = const_cast<Zr::Ptr<dbrecord>*>(&b);
  return descending ? dbr_backcmp(pa, pb) : dbr_cmp(pa, pb);
}

int sign(int v) { return (v > 0) - (v < 0); }

TEST(Sort, SortFieldListsAndPreparedKeys) {
  auto db = makeDb(kFields, {});
  struct Case {
    const char* what;
    std::vector<int> fields;  // for set_sortfields, terminator included; empty: use `single`
    int single;
    int index;                // getSortFieldIdx
    std::vector<int> keys;    // after sortPrepare
  } cases[] = {
      {"two keys", {2, 0, -1}, 0, 2, {2, 0}},
      {"no keys", {-1}, 0, 0, {}},
      {"stops at the first negative", {4, -7, 1, -1}, 0, 4, {4}},
      {"out of range ends the list there", {1, 99, 0, -1}, 0, 1, {1}},
      {"first out of range", {5, 0, -1}, 0, 5, {}},
      {"single field", {}, 3, 3, {3}},
      {"single -1 is 65535, removed", {}, -1, 65535, {}},
      {"single cut to 16 bits", {}, 65536 + 2, 2, {2}},
  };
  for (Case& c : cases) {
    if (c.fields.empty()) {
      db->set_sortfield(c.single);
    } else {
      db->set_sortfields(c.fields.data());
    }
    EXPECT_EQ(db->getSortFieldIdx(), c.index) << c.what;
    db->sortPrepare(1, 0);
    EXPECT_EQ(preparedKeys(), c.keys) << c.what;
  }
}

TEST(Sort, AscendingComparatorRules) {
  auto db = makeDb(kFields, {});
  auto rec = [&](const Strings& values) {
    Zr::Ptr<dbrecord> r = db->newRecord();
    for (unsigned f = 0; f < values.size(); ++f) r->setField(static_cast<unsigned short>(f), values[f].c_str());
    return r;
  };
  struct Case {
    const char* what;
    std::vector<int> keys;
    int caseInsensitive;
    Strings a, b;
    int expect;  // sign of dbr_cmp(a, b)
  } cases[] = {
      {"blank after any", {1, -1}, 0, {}, {"", "x"}, 1},
      {"any before blank", {1, -1}, 0, {"", "", "", "", "n"}, {}, -1},
      {"blank level with blank", {1, -1}, 0, {}, {}, 0},
      {"empty key after value", {1, -1}, 0, {"a", ""}, {"b", "R"}, 1},
      {"value before empty key", {1, -1}, 0, {"b", "R"}, {"a", ""}, -1},
      {"both empty end the comparison", {1, 0, -1}, 0, {"a", "", "x"}, {"b", "", "y"}, 0},
      {"second key decides", {1, 0, -1}, 0, {"a", "R"}, {"b", "R"}, -1},
      {"leading blanks skipped", {1, -1}, 0, {"n", "  b"}, {"n", "b"}, 0},
      {"blanks only sort first", {1, -1}, 0, {"n", "  "}, {"n", "a"}, -1},
      {"natural order", {1, -1}, 0, {"n", "A2"}, {"n", "A10"}, -1},
      {"case counts", {1, -1}, 0, {"n", "b"}, {"n", "B"}, 1},
      {"case ignored with the flag", {1, -1}, 1, {"n", "b"}, {"n", "B"}, 0},
      {"time code separators level", {3, -1}, 0, {"n", "", "", "10:00:00:00"}, {"n", "", "", "10:00:00;00"}, 0},
      {"time code later", {3, -1}, 0, {"n", "", "", "10:00:00:00"}, {"n", "", "", "10:00:01:00"}, -1},
      {"time code frames", {3, -1}, 0, {"n", "", "", "10:00:00:12"}, {"n", "", "", "10:00:00;03"}, 1},
      {"time code short", {3, -1}, 0, {"n", "", "", "10:00:00"}, {"n", "", "", "10:00:00;03"}, -1},
      {"time code short level", {3, -1}, 0, {"n", "", "", "10:00:00:"}, {"n", "", "", "10:00:00;"}, 0},
      {"separator counts elsewhere", {2, -1}, 0, {"n", "", "10:00:00:00"}, {"n", "", "10:00:00;00"}, -1},
  };
  for (Case& c : cases) {
    db->set_sortfields(c.keys.data());
    db->sortPrepare(1, c.caseInsensitive);
    EXPECT_EQ(sign(compareRecords(rec(c.a), rec(c.b))), c.expect) << c.what;
    EXPECT_EQ(sign(compareRecords(rec(c.b), rec(c.a))), -c.expect) << c.what << " (swapped)";
  }

  // An entry without a record compares as a blank record; nothing faults.
  db->set_sortfield(kReel);
  db->sortPrepare(1, 0);
  Zr::Ptr<dbrecord> none;
  EXPECT_EQ(compareRecords(none, rec({"a", "b"})), 1);
  EXPECT_EQ(compareRecords(none, rec({})), 0);
  EXPECT_EQ(compareRecords(none, none, true), 0);
  EXPECT_GT(compareRecords(none, rec({"a", "b"}), true), 0);
  EXPECT_EQ(compareRecords(none, rec({"a", ""}), true), 0);
}

TEST(Sort, DescendingComparatorComparesRawText) {
  auto db = makeDb(kFields, {});
  auto rec = [&](const Strings& values) {
    Zr::Ptr<dbrecord> r = db->newRecord();
    for (unsigned f = 0; f < values.size(); ++f) r->setField(static_cast<unsigned short>(f), values[f].c_str());
    return r;
  };
  struct Case {
    const char* what;
    std::vector<int> keys;
    Strings a, b;
    int expect;
  } cases[] = {
      {"later first", {1, -1}, {"n", "a"}, {"n", "b"}, 1},
      {"blanks kept", {1, -1}, {"n", "  b"}, {"n", "a"}, 1},
      {"case always ignored", {1, -1}, {"n", "b"}, {"n", "B"}, 0},
      {"empty sorts last", {1, -1}, {"n", ""}, {"n", "a"}, 1},
      {"blank record has no rule", {1, -1}, {}, {"n", ""}, 0},
      {"empty first key does not end", {1, 0, -1}, {"a", ""}, {"b", ""}, 1},
      {"time code separator counts", {3, -1}, {"n", "", "", "10:00:00:00"}, {"n", "", "", "10:00:00;00"}, 1},
  };
  for (Case& c : cases) {
    db->set_sortfields(c.keys.data());
    db->sortPrepare(-1, 0);
    EXPECT_EQ(sign(compareRecords(rec(c.a), rec(c.b), true)), c.expect) << c.what;
    EXPECT_EQ(sign(compareRecords(rec(c.b), rec(c.a), true)), -c.expect) << c.what << " (swapped)";
  }
}

TEST(Sort, SortsWholeDatabase) {
  // r6 is a blank record; r7 has an empty key but is not blank.
  Rows rows = {{"r1", "c"}, {"r2", "  b"}, {"r3", "a"}, {"r4", "A10"}, {"r5", "A2"}, {}, {"r7", ""}};

  auto db = makeDb(kFields, rows);
  db->set_sortfield(kReel);
  db->sort(1, 0);
  EXPECT_EQ(columnOf(*db, kName), (Strings{"r5", "r4", "r3", "r2", "r1", "r7", ""}));
  EXPECT_EQ(db->getSortFieldIdx(), static_cast<int>(kReel));

  // Descending compares raw text ignoring case: the blanks of "  b" sort it below "a", and
  // the two empty values tie at the end.
  db->sort(-1, 0);
  Strings names = columnOf(*db, kName);
  ASSERT_EQ(names.size(), rows.size());
  EXPECT_EQ(Strings(names.begin(), names.begin() + 5), (Strings{"r1", "r5", "r4", "r3", "r2"}));
  Strings tail(names.begin() + 5, names.end());
  std::sort(tail.begin(), tail.end());
  EXPECT_EQ(tail, (Strings{"", "r7"}));
}

TEST(Sort, MultipleKeysAndCaseFlag) {
  Rows rows = {{"1", "b", "2"}, {"2", "a", "10"}, {"3", "B", "1"}, {"4", "a", "9"}, {"5", "b", "3"}};
  int keys[] = {static_cast<int>(kReel), static_cast<int>(kScene), -1};

  auto db = makeDb(kFields, rows);
  db->set_sortfields(keys);
  // Case ignored: b and B level on the first key; plain text order puts "10" before "9".
  db->sort(1, 1);
  EXPECT_EQ(columnOf(*db, kName), (Strings{"2", "4", "3", "1", "5"}));
  // Case counts and digits compare by value: B before a, 9 before 10.
  db->sort(1, 0);
  EXPECT_EQ(columnOf(*db, kName), (Strings{"3", "4", "2", "1", "5"}));
}

TEST(Sort, NoKeysOnlyMovesBlankRecordsLast) {
  auto db = makeDb(kFields, {{}, {"x", "1"}, {}, {"y", "2"}, {"z", "3"}});
  int none[] = {-1};
  db->set_sortfields(none);
  db->sort(1, 0);
  Strings names = columnOf(*db, kName);
  Strings head(names.begin(), names.begin() + 3);
  std::sort(head.begin(), head.end());
  EXPECT_EQ(head, (Strings{"x", "y", "z"}));
  EXPECT_EQ(Strings(names.begin() + 3, names.end()), (Strings{"", ""}));
}

TEST(Sort, EntriesWithoutRecordsSortAsBlank) {
  auto db = makeDb(kFields, {{"b", "2"}, {"a", "1"}, {"c", "3"}});
  db->insert_records(1, 3);  // row 1 a new blank record, rows 2 and 3 no record
  db->set_sortfield(kName);
  db->sort(1, 0);
  EXPECT_EQ(columnOf(*db, kName), (Strings{"a", "b", "c", "", "", ""}));
  db->sort(-1, 0);  // descending has no blank rule: empty text is the lowest
  EXPECT_EQ(columnOf(*db, kName), (Strings{"c", "b", "a", "", "", ""}));
}

TEST(Sort, ShowTagsOnlyFollowsNewOrder) {
  // A plain database rebuilds an empty tagged index; a derived source sees its tagged rows in
  // the new order.
  auto plain = makeDb(kFields, {{"b"}, {"a"}});
  plain->set_all_tags(1);
  plain->set_show_tags_only(1);
  plain->set_sortfield(kName);
  plain->sort(1, 0);
  EXPECT_EQ(plain->get_num_records(), 0u);

  auto db = makeDb<FullCountKesta>(kFields, {{"d"}, {"b"}, {"c"}, {"a"}});
  storetest::setTags(*db, {1, 0, 1, 1});
  db->set_show_tags_only(1);
  auto visible = [&] {
    Strings out;
    for (unsigned r = 0; r < 3; ++r) out.emplace_back(db->getField(r, kName).c_str());
    return out;
  };
  EXPECT_EQ(visible(), (Strings{"d", "c", "a"}));
  db->set_sortfield(kName);
  db->sort(1, 0);
  EXPECT_EQ(visible(), (Strings{"a", "c", "d"}));
  EXPECT_EQ(db->get_raw_row(1), 2u);
  EXPECT_EQ(db->get_new_row(3), 2u);
}

}  // namespace
