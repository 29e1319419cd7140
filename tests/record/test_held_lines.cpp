// Records that keep their line (as loaded ones do), and a class derived from kesta (which goes
// through the virtual row calls where kesta itself reads its list), must answer lookups,
// widths, duplicate and query tagging, sorts and saves exactly as plain records of kesta.

#include <gtest/gtest.h>

#include "common/TestUtil.h"
#include "record/StoreTestUtil.h"

namespace {

using namespace storetest;

class Derived : public kesta {
 public:
  using kesta::kesta;
};

const std::vector<DBFieldDesc> kFields = {{"Name", T::kText},         {"Reel", T::kText},  {"Start time", T::kTimecode},
                                          {"End time", T::kTimecode}, {"Notes", T::kText}, {"Tag", T::kText},
                                          {"Comment", T::kText}};
const std::string kLong(256, 'x');  // one byte over what duplicate tagging compares

// Plain lines and lines that are not (quotes, commas, line feeds, a zero byte, which compares
// as far as that byte), case-only differences and repeats, values past 255 bytes. The last
// column's widest value is in a plain line, for the widths a save writes. Tag texts change in
// the save only where the line is not plain.
const Rows kRows = {
    {"r0", "A001", "01:00:05:00", "01:00:20:00", "say \"hi\"", "1", "c"},
    {"r1", "a001", "01:00:10:00", "01:00:12:00", "x,y", "0", ""},
    {"r2", "B10", "02:00:00:00", "02:10:00:00", "", "0", "a comment wider than the column's least width"},
    {"r3", "b9", "", "01:00:20:00", "two\nlines", "1", "short"},
    {"r4", "A001", "01:00:05:00", "01:00:06:00", "plain", "0", ""},
    {"r5", "", "", "", "", "0", ""},
    {"r6", "b10", "01:00:10:00", "", "back\\slash", "7", "x"},
    {"r7", kLong, "", "01:00:20:00", "plain", "0", ""},
    {"r8", kLong, "01:00:05:00", "01:00:06:00", "", "0", "y"},
    {"r9", std::string("b9\0x", 4), "01:00:11:00", "01:00:13:00", "", "", ""},
};

// Kind 0 is the reference; bit 0 holds the records as lines, bit 1 makes the class derived.
// `holes` rows without a record go in the middle; every third row is tagged.
Zr::Ptr<kesta> build(int kind, unsigned holes) {
  Zr::Ptr<kesta> db(kind & 2 ? new Derived(kFields) : new kesta(kFields));
  addRows(*db, kRows);
  if (kind & 1) {
    EXPECT_TRUE(holdAsLines(*db));
  }
  if (holes > 0) db->insert_records(3, holes + 1);  // one record, then `holes` rows without one
  for (unsigned r = 0; r < db->get_num_records(); r += 3) db->set_tag(r, 1);
  return db;
}

TEST(SameAnswers, LookupsWidthsAndTagging) {
  for (unsigned holes : {0u, 3u}) {
    for (int kind = 1; kind < 4; ++kind) {
      SCOPED_TRACE("kind " + std::to_string(kind) + ", holes " + std::to_string(holes));
      auto ref = build(0, holes), db = build(kind, holes);
      const unsigned held = heldCount(*db);
      EXPECT_GE(held, kind & 1 ? 4u : 0u) << "the plain rows should keep their lines";
      for (unsigned f = 0; f < kFields.size(); ++f) {
        EXPECT_EQ(db->get_fieldsize(f), ref->get_fieldsize(f)) << f;
        EXPECT_EQ(columnOf(*db, f), columnOf(*ref, f)) << f;
      }
      for (const char* value : {"A001", "a001", "B", "b9", "", "01:00:1"}) {
        for (int length : {0, 1, 3}) {
          for (const char* column : {"Reel", "Start time"}) {
            EXPECT_EQ(db->findFirst(column, value, length), ref->findFirst(column, value, length))
                << column << " " << value << " " << length;
          }
        }
      }
      EXPECT_EQ(heldCount(*db), held) << "a reading operation took records apart";

      for (int field = 0; field < static_cast<int>(kFields.size()); ++field) {
        auto a = build(0, holes), b = build(kind, holes);
        const unsigned b_held = heldCount(*b);
        EXPECT_EQ(b->tag_all_different(field), a->tag_all_different(field)) << field;
        EXPECT_EQ(heldCount(*b), b_held) << "the sort took records apart, field " << field;
        EXPECT_EQ(tagsOf(*b), tagsOf(*a)) << field;
        EXPECT_EQ(columnOf(*b, 0), columnOf(*a, 0)) << field;
      }
      for (const Strings& query : {Strings{"", "a0"}, Strings{"", "", "01:00:1"}, Strings{"r", "", "", "", "", "0"}}) {
        for (int keep : {0, 1}) {
          auto a = build(0, holes), b = build(kind, holes);
          Zr::Ptr<dbrecord> q(new dbrecord(static_cast<unsigned short>(kFields.size())));
          for (unsigned i = 0; i < query.size(); ++i) q->set_field(static_cast<int>(i), query[i].c_str());
          a->set_query(q.get());
          b->set_query(q.get());
          EXPECT_EQ(b->tag_matching_records(keep), a->tag_matching_records(keep)) << query.back() << " " << keep;
          EXPECT_EQ(tagsOf(*b), tagsOf(*a)) << query.back() << " " << keep;
        }
      }
    }
  }
}

// Copies of records that keep their line keep it too, and stand alone as any copy does.
TEST(SameAnswers, CopiesKeepTheLinesAndStandAlone) {
  for (int kind = 1; kind < 4; kind += 2) {
    SCOPED_TRACE("kind " + std::to_string(kind));
    auto ref = build(0, 2), db = build(kind, 2);
    const unsigned held = heldCount(*db);
    kesta ref_copy(*ref, 1);
    Zr::Ptr<kesta> copy(new kesta(*db, 1));
    Zr::Ptr<kesta> appended(new kesta(kFields));
    ASSERT_EQ(appended->add_kesta(db.get()), static_cast<int>(db->get_num_records()));
    EXPECT_EQ(heldCount(*copy), held) << "the copy took records apart";
    EXPECT_EQ(heldCount(*appended), held) << "add_kesta took records apart";
    const Strings notes = columnOf(*db, 4);
    copy->set_field(0, 4, "changed in the copy");
    db->set_field(1, 4, "changed in the original");
    EXPECT_EQ(columnOf(*appended, 4), notes);
    db = nullptr;  // the copies outlive the records they were made from
    for (unsigned f = 0; f < kFields.size(); ++f) {
      if (f != 4) {
        EXPECT_EQ(columnOf(*copy, f), columnOf(ref_copy, f)) << f;
      }
      EXPECT_EQ(columnOf(*appended, f), columnOf(*ref, f)) << f;
    }
    EXPECT_EQ(copy->getField(0, 4), LightweightString<char>("changed in the copy"));
  }
  // A line of more fields than a record keeps the starts of in itself.
  std::vector<DBFieldDesc> wide;
  Strings row;
  for (int f = 0; f < 40; ++f) {
    wide.emplace_back(("C" + std::to_string(f)).c_str(), T::kText);
    row.push_back("v" + std::to_string(f));
  }
  Zr::Ptr<kesta> original(new kesta(wide));
  addRows(*original, {row});
  ASSERT_TRUE(holdAsLines(*original));
  Zr::Ptr<dbrecord> copy(new dbrecord(*original->get_record(0)));
  original = nullptr;
  EXPECT_TRUE(copy->heldAsLine());
  for (unsigned short f = 0; f < 40; ++f) EXPECT_EQ(copy->fieldView(f), row[f]) << f;
}

TEST(SameAnswers, SavesWriteTheSameFileAndMarks) {
  testutil::TempDir dir;
  for (unsigned holes : {0u, 2u}) {
    std::string ref_text;
    Strings ref_tags;
    for (int kind = 0; kind < 4; ++kind) {
      SCOPED_TRACE("kind " + std::to_string(kind) + ", holes " + std::to_string(holes));
      auto db = build(kind, holes);
      db->clear_changed();
      db->set_field(1, 0, "changed before the save");
      const std::string name = dir.file("k" + std::to_string(kind) + ".kst");
      db->set_filename(testutil::wide(name));
      const unsigned held = heldCount(*db);
      EXPECT_EQ(db->save_text(), static_cast<int>(kRows.size() + (holes ? 1 : 0)));
      EXPECT_EQ(heldCount(*db), held) << "the save took records apart";
      if (kind == 0) ref_text = testutil::readFile(name), ref_tags = columnOf(*db, 5);
      EXPECT_EQ(testutil::readFile(name), ref_text);
      EXPECT_EQ(columnOf(*db, 5), ref_tags) << "tag texts";
      for (unsigned r = 0; r < db->get_num_records(); ++r) {
        Zr::Ptr<dbrecord> record = db->get_record(r);
        EXPECT_FALSE(record && record->changed()) << "row " << r;
      }
      // Every tag store marks the database, even one that leaves the text as it was.
      db->clear_changed();
      db->save_text();
      EXPECT_EQ(db->changed(), 1);
    }
  }
}

}  // namespace
