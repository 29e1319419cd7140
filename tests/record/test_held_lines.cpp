// Records that keep their line (as loaded ones do) must answer every reading operation of the
// database and its views exactly as records holding field strings: lookups, column widths,
// sorts, duplicate tagging, searches and saves. Each check runs on two databases built from
// the same rows, one of them with its records held as lines.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/TestUtil.h"
#include "record/StoreTestUtil.h"
#include "view/KSTView.h"
#include "view/KSTViewRep.h"

namespace {

using storetest::columnOf;
using storetest::makeDb;
using storetest::Rows;
using storetest::taggedOf;

const std::vector<DBFieldDesc> kFields = {{"Name", DBFieldTypes::kText},
                                          {"Reel", DBFieldTypes::kText},
                                          {"Start time", DBFieldTypes::kTimecode},
                                          {"End time", DBFieldTypes::kTimecode},
                                          {"Notes", DBFieldTypes::kText},
                                          {"Tag", DBFieldTypes::kText},
                                          {"Comment", DBFieldTypes::kText}};

// Plain values and values whose lines are not plain (quotes, commas, line feeds) side by side,
// with case-only differences and repeats for the duplicate rules. The last column's widest
// value is in a plain line, for the widths a save writes.
const Rows kRows = {
    {"r0", "A001", "01:00:05:00", "01:00:20:00", "say \"hi\"", "0", "c"},
    {"r1", "a001", "01:00:10:00", "01:00:12:00", "x,y", "0", ""},
    {"r2", "B10", "02:00:00:00", "02:10:00:00", "", "0", "a comment wider than the column's least width"},
    {"r3", "b9", "", "01:00:20:00", "two\nlines", "0", "short"},
    {"r4", "A001", "01:00:05:00", "01:00:06:00", "plain", "0", ""},
    {"r5", "", "", "", "", "0", ""},
    {"r6", "b10", "01:00:10:00", "", "back\\slash", "0", "x"},
};

struct Pair {
  Zr::Ptr<kesta> fields = makeDb(kFields, kRows);
  Zr::Ptr<kesta> lines = makeDb(kFields, kRows);
  Pair() { EXPECT_TRUE(storetest::holdAsLines(*lines)); }
};

unsigned heldCount(kesta& db) {
  unsigned held = 0;
  for (unsigned r = 0; r < db.get_num_records(); ++r) held += db.get_record(r)->heldAsLine();
  return held;
}

std::vector<int> tags(iKST& db) {
  std::vector<int> out;
  for (unsigned r = 0; r < db.get_num_records(); ++r) out.push_back(db.get_tag(r));
  return out;
}

TEST(HeldLines, LookupsAndColumnWidths) {
  Pair p;
  const unsigned held = heldCount(*p.lines);
  EXPECT_GE(held, 3u) << "the plain rows should keep their lines";
  for (unsigned f = 0; f < kFields.size(); ++f) {
    EXPECT_EQ(p.lines->get_fieldsize(f), p.fields->get_fieldsize(f)) << f;
    EXPECT_EQ(columnOf(*p.lines, f), columnOf(*p.fields, f)) << f;
  }
  for (const char* value : {"A001", "a001", "B", "b9", "", "01:00:1"}) {
    for (int length : {0, 1, 3}) {
      EXPECT_EQ(p.lines->findFirst("Reel", value, length), p.fields->findFirst("Reel", value, length))
          << value << " " << length;
      EXPECT_EQ(p.lines->findFirst("Start time", value, length), p.fields->findFirst("Start time", value, length))
          << value << " " << length;
    }
  }
  EXPECT_EQ(heldCount(*p.lines), held) << "a reading operation took records apart";
}

TEST(HeldLines, SortsAndDuplicateTagging) {
  for (int field : {1, 2, 4}) {
    Pair p;
    const unsigned held = heldCount(*p.lines);
    EXPECT_EQ(p.lines->tag_all_different(field), p.fields->tag_all_different(field)) << field;
    EXPECT_EQ(heldCount(*p.lines), held) << "the sort took records apart";
    EXPECT_EQ(columnOf(*p.lines, 0), columnOf(*p.fields, 0)) << field;
    EXPECT_EQ(taggedOf(*p.lines, 0), taggedOf(*p.fields, 0)) << field;

    Pair q;
    KSTView on_lines(new KSTViewRep(q.lines.get()));
    KSTView on_fields(new KSTViewRep(q.fields.get()));
    on_lines->displayAllRecords();
    on_fields->displayAllRecords();
    EXPECT_EQ(on_lines->tag_all_different(field), on_fields->tag_all_different(field)) << field;
    EXPECT_EQ(tags(*on_lines), tags(*on_fields)) << field;
    EXPECT_EQ(columnOf(*on_lines, 0), columnOf(*on_fields, 0)) << field;
  }
}

// Three keys leave the third to the comparator, so the sort first takes every record apart,
// and the lines may go; values level by value ("A01", "A001") are then told apart by texts
// read after that.
TEST(HeldLines, SortsOnMoreKeysThanThePrefixesHold) {
  const Rows rows = {
      {"r0", "A01", "01:00:00:00", "", "b", "0"},  {"r1", "A001", "01:00:00:00", "", "a", "0"},
      {"r2", "A1", "01:00:00:00", "", "c", "0"},   {"r3", "A001", "01:00:00:00", "", "c", "0"},
      {"r4", "A01", "01:00:00:00", "", "a", "0"},  {"r5", "A0001", "01:00:00:00", "", "b", "0"},
  };
  Zr::Ptr<kesta> fields = makeDb(kFields, rows);
  Zr::Ptr<kesta> lines = makeDb(kFields, rows);
  ASSERT_TRUE(storetest::holdAsLines(*lines));
  int keys[] = {1, 2, 4, -1};
  for (kesta* db : {fields.get(), lines.get()}) {
    db->set_sortfields(keys);
    db->sort(1, 0);
  }
  EXPECT_EQ(columnOf(*lines, 0), (std::vector<std::string>{"r5", "r1", "r3", "r4", "r0", "r2"}));
  EXPECT_EQ(columnOf(*lines, 0), columnOf(*fields, 0));
}

TEST(HeldLines, SavesWriteTheSameFile) {
  testutil::TempDir dir;
  Pair p;
  p.fields->set_filename(testutil::wide(dir.file("fields.kst")));
  p.lines->set_filename(testutil::wide(dir.file("lines.kst")));
  // The save stores each record's tag in the Tag column: a changed one (in a row whose line is
  // not plain) and unchanged ones.
  p.fields->set_tag(0, 1);
  p.lines->set_tag(0, 1);
  ASSERT_EQ(p.fields->save_text(), static_cast<int>(kRows.size()));
  const unsigned held = heldCount(*p.lines);
  ASSERT_EQ(p.lines->save_text(), static_cast<int>(kRows.size()));
  EXPECT_EQ(heldCount(*p.lines), held) << "the save took records apart";
  for (unsigned r = 0; r < p.lines->get_num_records(); ++r) {
    EXPECT_FALSE(p.lines->get_record(r)->changed()) << "writing clears the mark, row " << r;
  }
  EXPECT_EQ(testutil::readFile(dir.file("lines.kst")), testutil::readFile(dir.file("fields.kst")));
}

}  // namespace
