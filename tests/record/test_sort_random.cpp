// Whole-database sorts on random, awkward values: the order a sort leaves must be one the
// comparators themselves accept, for every pair of rows, whatever the key list, case rule and
// direction. The values mix digit runs (with leading zeros and runs too long for any short
// prefix), case, leading blanks, bytes above 127, long shared beginnings, time codes, empty
// fields, blank records and empty list entries.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>

#include "record/StoreTestUtil.h"

namespace {

using storetest::makeDb;
using storetest::Rows;

const std::vector<DBFieldDesc> kFields = {{"Name", DBFieldTypes::kText},
                                          {"Reel", DBFieldTypes::kText},
                                          {"Scene", DBFieldTypes::kText},
                                          {"TC", DBFieldTypes::kTimecode},
                                          {"Notes", DBFieldTypes::kText}};
constexpr int kName = 0, kReel = 1, kScene = 2, kTc = 3;

const char* const kPieces[] = {"a",   "A",     "b",          "B",           "z",        "0",
                               "00",  "007",   "7",          "12",          "012",      "99999999",
                               "123456789",    "0000000001", "12345678901", " ",        "-",
                               ":",   "\x80",  "\xc3\xa9",   "Reel ",       "A001",     "a001",
                               "x",   "long shared beginning "};

std::string randomText(std::mt19937& rng) {
  std::string text;
  const int pieces = static_cast<int>(rng() % 5);
  for (int i = 0; i < pieces; ++i) text += kPieces[rng() % std::size(kPieces)];
  return text;
}

std::string randomTimecode(std::mt19937& rng) {
  char text[32];
  switch (rng() % 5) {
    case 0:  // short
      std::snprintf(text, sizeof text, "%02u:%02u", static_cast<unsigned>(rng() % 3), static_cast<unsigned>(rng() % 3));
      break;
    case 1:  // drop-frame separator and long frames parts
      std::snprintf(text, sizeof text, "01:00:0%u;%u%s", static_cast<unsigned>(rng() % 3),
                    static_cast<unsigned>(rng() % 30), rng() % 2 ? "ABCDEFGHIJ" : "abcdefghij");
      break;
    default:
      std::snprintf(text, sizeof text, "0%u:00:%02u:%02u", static_cast<unsigned>(rng() % 2),
                    static_cast<unsigned>(rng() % 4), static_cast<unsigned>(rng() % 24));
  }
  return text;
}

// With `as_lines`, the records hold their lines, as loaded ones do.
Zr::Ptr<kesta> randomDb(std::mt19937& rng, unsigned rows, bool as_lines) {
  Rows table;
  for (unsigned r = 0; r < rows; ++r) {
    std::vector<std::string> row;
    if (rng() % 10 != 0) {  // every tenth record stays blank
      for (unsigned f = 0; f < kFields.size(); ++f) {
        row.push_back(f == static_cast<unsigned>(kTc) && rng() % 4 != 0 ? randomTimecode(rng) : randomText(rng));
      }
    }
    table.push_back(row);
  }
  Zr::Ptr<kesta> db = makeDb(kFields, table);
  if (as_lines) {
    // Values with blanks at their ends do not come back: those go through the line first.
    for (unsigned r = 0; r < rows; ++r) {
      TextFile line;
      db->get_record(r)->write(line);
      db->get_record(r)->read(line);
    }
    EXPECT_TRUE(storetest::holdAsLines(*db));
  }
  db->insert_records(static_cast<unsigned>(rng() % rows), 3);  // entries holding no record
  return db;
}

int compareRows(kesta& db, unsigned i, unsigned j, bool descending) {
  Zr::Ptr<dbrecord> a = db.get_record(i);
  Zr::Ptr<dbrecord> b = db.get_record(j);
  return descending ? dbr_backcmp(&a, &b) : dbr_cmp(&a, &b);
}

std::vector<std::string> allTexts(kesta& db) {
  std::vector<std::string> texts;
  for (unsigned r = 0; r < db.get_num_records(); ++r) {
    Zr::Ptr<dbrecord> record = db.get_record(r);
    std::string line = record ? "" : "<none>";
    for (unsigned f = 0; record && f < kFields.size(); ++f) line += std::string(record->get_field(f)) + "|";
    texts.push_back(line);
  }
  std::sort(texts.begin(), texts.end());
  return texts;
}

TEST(SortRandom, EveryPairIsInAnOrderTheComparatorAccepts) {
  const std::vector<std::vector<int>> key_lists = {
      {kReel}, {kReel, kScene}, {kReel, kScene, kTc}, {kTc, kReel}, {kName, kTc, kScene, kReel}, {}, {kTc}};
  std::mt19937 rng(20240611);
  for (const std::vector<int>& keys : key_lists) {
    for (int case_insensitive = 0; case_insensitive < 2; ++case_insensitive) {
      for (int direction : {1, -1}) {
        for (int round = 0; round < 3; ++round) {
          Zr::Ptr<kesta> db = randomDb(rng, 150, round != 0);
          const std::vector<std::string> before = allTexts(*db);
          std::vector<int> list = keys;
          list.push_back(-1);
          db->set_sortfields(list.data());
          db->sort(direction, case_insensitive);
          // The sort leaves the comparison keys prepared, so the comparators read the same keys.
          const unsigned n = db->get_num_records();
          ASSERT_EQ(allTexts(*db), before) << "the sort lost or changed records";
          for (unsigned i = 0; i < n; ++i) {
            for (unsigned j = i + 1; j < n; ++j) {
              const int r = compareRows(*db, i, j, direction < 0);
              ASSERT_LE(r, 0) << "rows " << i << " and " << j << " out of order; keys " << keys.size()
                              << ", case-insensitive " << case_insensitive << ", direction " << direction;
            }
          }
        }
      }
    }
  }
}

}  // namespace
