// Sorting: sort-field lists and the prepared keys, both comparators' rules, and whole-database
// sorts of random values, in no order or in runs of order, whose every pair of rows the
// comparators must accept.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "record/StoreTestUtil.h"
#include "support/StringUtils.h"
#include "view/KSTView.h"
#include "view/KSTViewRep.h"

namespace {

using namespace storetest;

const std::vector<DBFieldDesc> kFields = {
    {"Name", T::kText}, {"Reel", T::kText}, {"Scene", T::kText}, {"TC", T::kTimecode}, {"Notes", T::kText}};
constexpr int kName = 0, kReel = 1, kScene = 2, kTc = 3;

int compareRecords(const Zr::Ptr<dbrecord>& a, const Zr::Ptr<dbrecord>& b, bool descending) {
  void* pa = const_cast<Zr::Ptr<dbrecord>*>(&a);
  void* pb = const_cast<Zr::Ptr<dbrecord>*>(&b);
  const int r = descending ? dbr_backcmp(pa, pb) : dbr_cmp(pa, pb);
  return (r > 0) - (r < 0);
}

TEST(Sort, SortFieldListsAndPreparedKeys) {
  auto db = makeDb(kFields, {});
  struct Case {
    std::vector<int> fields;  // for set_sortfields, terminator included; empty: set_sortfield(single)
    int single, index;        // index: getSortFieldIdx
    std::vector<int> keys;    // after sortPrepare
  } cases[] = {
      {{2, 0, -1}, 0, 2, {2, 0}}, {{-1}, 0, 0, {}}, {{4, -7, 1, -1}, 0, 4, {4}}, {{1, 99, 0, -1}, 0, 1, {1}},
      {{5, 0, -1}, 0, 5, {}},     {{}, 3, 3, {3}},  {{}, -1, 65535, {}},         {{}, 65536 + 2, 2, {2}},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.fields) + " " + std::to_string(c.single));
    if (c.fields.empty()) {
      db->set_sortfield(c.single);
    } else {
      db->set_sortfields(c.fields.data());
    }
    EXPECT_EQ(db->getSortFieldIdx(), c.index);
    db->sortPrepare(1, 0);
    std::vector<int> keys;
    for (const int* k = cmp_fields; *k >= 0; ++k) keys.push_back(*k);
    EXPECT_EQ(keys, c.keys);
  }
}

TEST(Sort, ComparatorRules) {
  auto db = makeDb(kFields, {});
  auto rec = [&](const Strings& values) {
    Zr::Ptr<dbrecord> r = db->newRecord();
    for (unsigned f = 0; f < values.size(); ++f) r->setField(static_cast<unsigned short>(f), values[f].c_str());
    return r;
  };
  const Strings tc0 = {"n", "", "", "10:00:00:00"};
  struct Case {
    const char* what;
    bool descending;
    std::vector<int> keys;
    int caseInsensitive;
    Strings a, b;
    int expect;  // sign of the comparison of a with b
  } cases[] = {
      {"blank after any", false, {1, -1}, 0, {}, {"", "x"}, 1},
      {"any before blank", false, {1, -1}, 0, {"", "", "", "", "n"}, {}, -1},
      {"blank level with blank", false, {1, -1}, 0, {}, {}, 0},
      {"empty key after value", false, {1, -1}, 0, {"a", ""}, {"b", "R"}, 1},
      {"both empty end the comparison", false, {1, 0, -1}, 0, {"a", "", "x"}, {"b", "", "y"}, 0},
      {"second key decides", false, {1, 0, -1}, 0, {"a", "R"}, {"b", "R"}, -1},
      {"leading blanks skipped", false, {1, -1}, 0, {"n", "  b"}, {"n", "b"}, 0},
      {"blanks only sort first", false, {1, -1}, 0, {"n", "  "}, {"n", "a"}, -1},
      {"natural order", false, {1, -1}, 0, {"n", "A2"}, {"n", "A10"}, -1},
      {"case counts", false, {1, -1}, 0, {"n", "b"}, {"n", "B"}, 1},
      {"case ignored with the flag", false, {1, -1}, 1, {"n", "b"}, {"n", "B"}, 0},
      {"time code separators level", false, {3, -1}, 0, tc0, {"n", "", "", "10:00:00;00"}, 0},
      {"time code later", false, {3, -1}, 0, tc0, {"n", "", "", "10:00:01:00"}, -1},
      {"time code frames", false, {3, -1}, 0, {"n", "", "", "10:00:00:12"}, {"n", "", "", "10:00:00;03"}, 1},
      {"time code short", false, {3, -1}, 0, {"n", "", "", "10:00:00"}, {"n", "", "", "10:00:00;03"}, -1},
      {"time code short level", false, {3, -1}, 0, {"n", "", "", "10:00:00:"}, {"n", "", "", "10:00:00;"}, 0},
      {"separator counts elsewhere", false, {2, -1}, 0, {"n", "", "10:00:00:00"}, {"n", "", "10:00:00;00"}, -1},
      // Descending compares the raw texts, always ignoring case, with no other rule.
      {"later first", true, {1, -1}, 0, {"n", "a"}, {"n", "b"}, 1},
      {"blanks kept", true, {1, -1}, 0, {"n", "  b"}, {"n", "a"}, 1},
      {"case always ignored", true, {1, -1}, 0, {"n", "b"}, {"n", "B"}, 0},
      {"empty sorts last", true, {1, -1}, 0, {"n", ""}, {"n", "a"}, 1},
      {"blank record has no rule", true, {1, -1}, 0, {}, {"n", ""}, 0},
      {"empty first key does not end", true, {1, 0, -1}, 0, {"a", ""}, {"b", ""}, 1},
      {"time code separator counts", true, {3, -1}, 0, tc0, {"n", "", "", "10:00:00;00"}, 1},
  };
  for (Case& c : cases) {
    db->set_sortfields(c.keys.data());
    db->sortPrepare(c.descending ? -1 : 1, c.caseInsensitive);
    EXPECT_EQ(compareRecords(rec(c.a), rec(c.b), c.descending), c.expect) << c.what;
    EXPECT_EQ(compareRecords(rec(c.b), rec(c.a), c.descending), -c.expect) << c.what << " (swapped)";
  }

  // An entry without a record compares as a blank record; nothing faults.
  db->set_sortfield(kReel);
  db->sortPrepare(1, 0);
  Zr::Ptr<dbrecord> none;
  EXPECT_EQ(compareRecords(none, rec({"a", "b"}), false), 1);
  EXPECT_EQ(compareRecords(none, rec({}), false), 0);
  EXPECT_EQ(compareRecords(none, none, true), 0);
  EXPECT_EQ(compareRecords(none, rec({"a", "b"}), true), 1);
  EXPECT_EQ(compareRecords(none, rec({"a", ""}), true), 0);
}

TEST(Sort, ShowTagsOnlyFollowsNewOrder) {
  // A source counting its full list sees its tagged rows in the new order.
  auto db = makeDb<FullCountKesta>(kFields, {{"d"}, {"b"}, {"c"}, {"a"}});
  setTags(*db, {1, 0, 1, 1});
  db->set_show_tags_only(1);
  db->set_sortfield(kName);
  db->sort(1, 0);
  Strings visible;
  for (unsigned r = 0; r < 3; ++r) visible.emplace_back(db->getField(r, kName).c_str());
  EXPECT_EQ(visible, (Strings{"a", "c", "d"}));
  EXPECT_EQ(db->get_raw_row(1), 2u);
  EXPECT_EQ(db->get_new_row(3), 2u);
}

// Values the prefixes do not settle, repeated as a log repeats them: long ones that share
// more than a prefix holds, and numbers written with and without leading zeros, level by value
// and of one length ("R01-7", "R1-07"). The sort must tell every different one apart and go on
// to the next key for equal ones, also as the third of four keys after two level ones.
TEST(Sort, RepeatedValuesThePrefixesDoNotSettle) {
  const char* const kReels[] = {"R01-7", "R1-07", "R001-7", "R1-7", "R01-07", "R10-1"};
  std::mt19937 rng(7);
  for (int kind : {0, 1, 2, 3}) {
    // Kinds 2 and 3 sort the values of kinds 0 and 1 after two keys that are level everywhere.
    std::vector<int> keys = {4, kName, -1};
    if (kind >= 2) keys = {kReel, kScene, 4, kName, -1};
    for (int direction : {1, -1}) {
      for (bool as_lines : {false, true}) {
        SCOPED_TRACE("kind " + std::to_string(kind) + ", direction " + std::to_string(direction) +
                     (as_lines ? ", held as lines" : ""));
        Rows table;
        std::vector<std::pair<std::string, std::string>> expected;
        for (int i = 0; i < 400; ++i) {
          const std::string value =
              kind % 2 == 0 ? "LONG SHARED BEGINNING, THEN " + std::string(1, static_cast<char>('A' + rng() % 26))
                            : kReels[rng() % std::size(kReels)];
          char name[16];
          std::snprintf(name, sizeof name, "n%03d", i);
          table.push_back({name, "R1", "S1", "", value});
          expected.emplace_back(value, name);
        }
        std::shuffle(table.begin(), table.end(), rng);
        Zr::Ptr<kesta> db = makeDb(kFields, table);
        if (as_lines) {
          ASSERT_TRUE(holdAsLines(*db));
        }
        db->set_sortfields(keys.data());
        db->sort(direction, 0);
        // Descending compares the bytes (no letters differ in case here); ascending in natural order.
        std::sort(expected.begin(), expected.end(), [&](const auto& a, const auto& b) {
          const int r = direction < 0 ? a.first.compare(b.first) : strxcmp(a.first.c_str(), b.first.c_str());
          return r != 0 ? r < 0 : a.second < b.second;
        });
        if (direction < 0) std::reverse(expected.begin(), expected.end());
        std::vector<std::pair<std::string, std::string>> sorted;
        for (unsigned r = 0; r < db->get_num_records(); ++r) {
          sorted.emplace_back(db->getField(r, 4).c_str(), db->getField(r, kName).c_str());
        }
        EXPECT_EQ(sorted, expected);
      }
    }
  }
}

// Random values mixing digit runs (leading zeros, runs too long for any short prefix), case,
// leading blanks, bytes above 127, long shared beginnings, time codes, empty fields, blank
// records and empty list entries, in field strings or held as lines.
const char* const kPieces[] = {"a",     "A",        "b",         "B",          "z",
                               "0",     "00",       "007",       "7",          "12",
                               "012",   "99999999", "123456789", "0000000001", "12345678901",
                               " ",     "-",        ":",         "\x80",       "\xc3\xa9",
                               "Reel ", "A001",     "a001",      "x",          "long shared beginning "};

std::string randomValue(std::mt19937& rng, bool timecode) {
  if (!timecode || rng() % 4 == 0) {
    std::string text;
    for (int i = static_cast<int>(rng() % 5); i > 0; --i) text += kPieces[rng() % std::size(kPieces)];
    return text;
  }
  char text[32];
  const unsigned a = rng() % 3, b = rng() % 30, c = rng() % 24;
  switch (rng() % 5) {
    case 0:  // short
      std::snprintf(text, sizeof text, "%02u:%02u", a, b % 3);
      break;
    case 1:  // drop-frame separator and long frames parts
      std::snprintf(text, sizeof text, "01:00:0%u;%u%s", a, b, rng() % 2 ? "ABCDEFGHIJ" : "abcdefghij");
      break;
    default:
      std::snprintf(text, sizeof text, "0%u:00:%02u:%02u", a % 2, b % 4, c);
  }
  return text;
}

// With `as_lines`, each record is read back from its line, which plain ones then keep.
Zr::Ptr<kesta> randomDb(std::mt19937& rng, unsigned rows, bool as_lines) {
  Rows table(rows);
  for (auto& row : table) {
    if (rng() % 10 == 0) continue;  // a blank record
    for (unsigned f = 0; f < kFields.size(); ++f) row.push_back(randomValue(rng, f == kTc));
  }
  Zr::Ptr<kesta> db = makeDb(kFields, table);
  for (unsigned r = 0; as_lines && r < rows; ++r) {
    TextFile line;
    db->get_record(r)->write(line);
    db->get_record(r)->read(line);
  }
  db->insert_records(static_cast<unsigned>(rng() % rows), 3);
  return db;
}

Rows sortedRows(kesta& db) {
  Rows rows = rowsOf(db);
  std::sort(rows.begin(), rows.end());
  return rows;
}

// `source` is a database or a view over one.
void expectEveryPairInOrder(iKST& source, int direction) {
  for (unsigned i = 0; i < source.get_num_records(); ++i) {
    for (unsigned j = i + 1; j < source.get_num_records(); ++j) {
      ASSERT_LE(compareRecords(source.get_record(i), source.get_record(j), direction < 0), 0) << i << " " << j;
    }
  }
}

TEST(Sort, RandomSortsLeaveEveryPairInAnOrderTheComparatorAccepts) {
  const std::vector<std::vector<int>> key_lists = {
      {kReel}, {kReel, kScene}, {kReel, kScene, kTc}, {kTc, kReel}, {kName, kTc, kScene, kReel}, {}, {kTc}};
  std::mt19937 rng(20240611);
  for (const std::vector<int>& keys : key_lists) {
    for (int mode = 0; mode < 12; ++mode) {
      const int case_insensitive = mode & 1, direction = mode & 2 ? -1 : 1;
      SCOPED_TRACE(testing::PrintToString(keys) + " case-insensitive " + std::to_string(case_insensitive) +
                   " direction " + std::to_string(direction));
      Zr::Ptr<kesta> db = randomDb(rng, 150, mode >= 4);
      const Rows before = sortedRows(*db);
      const unsigned held = heldCount(*db);
      std::vector<int> list = keys;
      list.push_back(-1);
      db->set_sortfields(list.data());
      // A view over the database sorts its rows by the same keys, leaving the database as it is.
      KSTView view(new KSTViewRep(db.get()));
      view->displayAllRecords();
      view->sort(direction, case_insensitive);
      ASSERT_EQ(view->get_num_records(), db->get_num_records());
      expectEveryPairInOrder(*view.get(), direction);
      db->sort(direction, case_insensitive);
      ASSERT_EQ(sortedRows(*db), before) << "the sort lost or changed records";
      EXPECT_EQ(heldCount(*db), held) << "the sort took records apart";
      // The sort leaves the keys prepared, so the comparators read the same keys.
      expectEveryPairInOrder(*db, direction);
    }
  }
}

// Logs in order already, or in a few runs of order either way (two sorted logs merged, records
// appended), which a sort merges, and in more runs than it merges.
TEST(Sort, LogsInRunsOfOrder) {
  std::vector<int> keys = {kReel, kTc, -1};
  std::mt19937 rng(5);
  for (int runs : {1, 2, 3, 8, 9, 30}) {
    for (int mode = 0; mode < 4; ++mode) {
      const int case_insensitive = mode & 1, direction = mode & 2 ? -1 : 1;
      SCOPED_TRACE(std::to_string(runs) + " runs, case-insensitive " + std::to_string(case_insensitive) +
                   " direction " + std::to_string(direction));
      Rows table;
      for (int run = 0; run < runs; ++run) {
        Zr::Ptr<kesta> piece = randomDb(rng, 40, false);
        piece->set_sortfields(keys.data());
        piece->sort(rng() % 2 ? 1 : -1, case_insensitive);
        const Rows rows = rowsOf(*piece);
        table.insert(table.end(), rows.begin(), rows.end());
      }
      Zr::Ptr<kesta> db = makeDb(kFields, table);
      const Rows before = sortedRows(*db);
      db->set_sortfields(keys.data());
      KSTView view(new KSTViewRep(db.get()));
      view->displayAllRecords();
      view->sort(direction, case_insensitive);
      expectEveryPairInOrder(*view.get(), direction);
      db->sort(direction, case_insensitive);
      ASSERT_EQ(sortedRows(*db), before) << "the sort lost or changed records";
      expectEveryPairInOrder(*db, direction);
    }
  }
}

}  // namespace
