// Merging: add_kesta's refusals and copies, merge_all_matching's field matching and time-code
// conversions.

#include <gtest/gtest.h>

#include "common/TestUtil.h"
#include "record/StoreTestUtil.h"

namespace {

using storetest::columnOf;
using storetest::FullCountKesta;
using storetest::makeDb;
using storetest::Rows;
using Strings = std::vector<std::string>;
using Fields = std::vector<DBFieldDesc>;

const Fields kShape = {{"Name", DBFieldTypes::kText},
                       {"Reel", DBFieldTypes::kText},
                       {"Start time", DBFieldTypes::kTimecode}};
const Rows kMine = {{"m1", "R1", "01:00:00:00"}, {"m2", "R2", "02:00:00:00"}};
const Rows kTheirs = {{"t1", "T1", "03:00:00:00"}, {"t2", "T2", "04:00:00:00"}, {"t3", "T3", ""}};

constexpr int kRefused = -1;

// A database of kShape loaded from a file that declares `revision`.
Zr::Ptr<kesta> loadWithRevision(const testutil::TempDir& dir, int revision) {
  std::string name = "rev" + std::to_string(revision) + ".kst";
  testutil::writeFile(dir.file(name), "\"KESTA:Rev " + std::to_string(revision) +
                                          "\"\n\"KESTA\"\n\"32\",\"10\",\"12\"\n"
                                          "\"text\",\"text\",\"timecode\"\n"
                                          "\"Name\",\"Reel\",\"Start time\"\n"
                                          "\"f1\",\"F1\",\"05:00:00:00\"\n");
  return Zr::Ptr<kesta>(new kesta(dir.wfile(name), 0x7fffffff, false));
}

TEST(Merge, AddKestaRefusals) {
  testutil::TempDir dir;
  struct Case {
    const char* what;
    Zr::Ptr<kesta> source;
    bool showTagsOnly;
  } cases[] = {
      {"show-tags-only", makeDb(kShape, kTheirs), true},
      {"revision", loadWithRevision(dir, 2), false},
      {"fewer fields", makeDb(Fields(kShape.begin(), kShape.end() - 1), kTheirs), false},
      {"more fields", makeDb(Fields{kShape[0], kShape[1], kShape[2], {"Notes", DBFieldTypes::kText}}, kTheirs), false},
      {"type", makeDb(Fields{kShape[0], {"Reel", DBFieldTypes::kTextS}, kShape[2]}, kTheirs), false},
      {"name case", makeDb(Fields{kShape[0], {"reel", DBFieldTypes::kText}, kShape[2]}, kTheirs), false},
      {"name", makeDb(Fields{kShape[0], kShape[1], {"End time", DBFieldTypes::kTimecode}}, kTheirs), false},
      {"missing name", makeDb(Fields{kShape[0], {"", DBFieldTypes::kText}, kShape[2]}, kTheirs), false},
      {"no source", Zr::Ptr<kesta>(), false},
  };
  ASSERT_EQ(cases[1].source->get_revision(), 2);
  for (Case& c : cases) {
    auto db = makeDb(kShape, kMine);
    if (c.showTagsOnly) db->set_show_tags_only(1);
    unsigned before = c.source ? c.source->get_num_records() : 0;
    EXPECT_EQ(db->add_kesta(c.source.get()), kRefused) << c.what;
    db->set_show_tags_only(0);
    EXPECT_EQ(columnOf(*db, 0), (Strings{"m1", "m2"})) << c.what;
    if (c.source) {
      EXPECT_EQ(c.source->get_num_records(), before) << c.what;
    }
  }

  // A missing name equals an empty one.
  auto blank_names = makeDb(Fields{kShape[0], {"", DBFieldTypes::kText}, kShape[2]}, kMine);
  EXPECT_EQ(blank_names->add_kesta(cases[7].source.get()), 3);
}

TEST(Merge, AddKestaAppendsIndependentCopies) {
  auto db = makeDb(kShape, kMine);
  auto other = makeDb(kShape, kTheirs);
  other->set_tag(0, 1);
  db->clear_changed();
  other->clear_changed();

  EXPECT_EQ(db->add_kesta(other.get()), 3);
  EXPECT_EQ(columnOf(*db, 0), (Strings{"m1", "m2", "t1", "t2", "t3"}));
  EXPECT_EQ(columnOf(*db, 2), (Strings{"01:00:00:00", "02:00:00:00", "03:00:00:00", "04:00:00:00", ""}));
  EXPECT_EQ(db->changed(), 0);
  EXPECT_EQ(db->get_tag(2), 0);  // a copy starts untagged

  // The copies belong to this database: changing one marks it, not the source.
  ASSERT_TRUE(db->set_field(2, 0, "changed"));
  EXPECT_EQ(db->changed(), 1);
  EXPECT_EQ(other->changed(), 0);
  EXPECT_STREQ(other->getField(0, 0).c_str(), "t1");
  EXPECT_NE(db->get_record(2).get(), other->get_record(0).get());

  // A file-loaded database of the same shape and revision is accepted too.
  testutil::TempDir dir;
  EXPECT_EQ(db->add_kesta(loadWithRevision(dir, 1).get()), 1);
  EXPECT_STREQ(db->getField(5, 1).c_str(), "F1");

  auto empty = makeDb(kShape, {});
  EXPECT_EQ(db->add_kesta(empty.get()), 0);
  EXPECT_EQ(db->get_num_records(), 6u);
}

TEST(Merge, AddKestaTakesOnlyVisibleRowsOfSource) {
  auto derived = makeDb<FullCountKesta>(kShape, kTheirs);
  storetest::setTags(*derived, {0, 1, 1});
  derived->set_show_tags_only(1);
  auto db = makeDb(kShape, kMine);
  EXPECT_EQ(db->add_kesta(derived.get()), 3);  // its row count is the full list ...
  // ... but its rows are the tagged index: t2, t3, then a row without a record.
  ASSERT_EQ(db->get_num_records(), 5u);
  EXPECT_EQ(columnOf(*db, 0), (Strings{"m1", "m2", "t2", "t3", ""}));
  EXPECT_FALSE(db->get_record(4));

  // A plain database showing tagged rows only has none visible.
  auto plain = makeDb(kShape, kTheirs);
  plain->set_all_tags(1);
  plain->set_show_tags_only(1);
  EXPECT_EQ(db->add_kesta(plain.get()), 0);
  EXPECT_EQ(db->get_num_records(), 5u);
}

TEST(Merge, MergeAllMatchingByName) {
  auto db = makeDb(Fields{{"Name", DBFieldTypes::kText}, {"Reel", DBFieldTypes::kText}}, {{"m1", "R1"}});
  auto other = makeDb(Fields{{"Tape", DBFieldTypes::kText}, {"NAME", DBFieldTypes::kText}, {"Extra", DBFieldTypes::kText}},
                      {{"T1", "  n1", "x"}, {"T2", "n2", "y"}});
  EXPECT_EQ(db->merge_all_matching(other.get()), 1);
  EXPECT_EQ(columnOf(*db, 0), (Strings{"m1", "n1", "n2"}));  // stored through set_field: blanks trimmed
  EXPECT_EQ(columnOf(*db, 1), (Strings{"R1", "", ""}));
  EXPECT_EQ(db->get_num_fields(), 2u);
  EXPECT_EQ(columnOf(*other, 1), (Strings{"  n1", "n2"}));

  struct Refusal {
    const char* what;
    Fields mine;
    int expect;
  } refusals[] = {
      {"no field matches", {{"Scene", DBFieldTypes::kText}}, 0},
      {"no fields", {}, 0},
  };
  for (const Refusal& r : refusals) {
    auto target = makeDb(r.mine, {});
    EXPECT_EQ(target->merge_all_matching(other.get()), r.expect) << r.what;
    EXPECT_EQ(target->get_num_records(), 0u) << r.what;
  }
  EXPECT_EQ(db->merge_all_matching(nullptr), 0);

  // Showing tagged rows only: the first append is refused, the merge still answers 1.
  db->set_show_tags_only(1);
  EXPECT_EQ(db->merge_all_matching(other.get()), 1);
  db->set_show_tags_only(0);
  EXPECT_EQ(db->get_num_records(), 3u);

  // A matching source without records adds nothing and answers 1.
  auto none = makeDb(Fields{{"Name", DBFieldTypes::kText}}, {});
  EXPECT_EQ(db->merge_all_matching(none.get()), 1);
  EXPECT_EQ(db->get_num_records(), 3u);
}

TEST(Merge, MergeConvertsBetweenTimeCodeForms) {
  // Column names say <target type><source type>, numbered so that they differ ignoring case.
  Fields mine = {{"tT_1", DBFieldTypes::kTimecode}, {"Tt_2", DBFieldTypes::kTimecodeS},
                 {"tt_3", DBFieldTypes::kTimecode}, {"TT_4", DBFieldTypes::kTimecodeS},
                 {"at_5", DBFieldTypes::kText}};
  Fields theirs = {{"at_5", DBFieldTypes::kTimecode}, {"TT_4", DBFieldTypes::kTimecodeS},
                   {"tt_3", DBFieldTypes::kTimecode}, {"Tt_2", DBFieldTypes::kTimecode},
                   {"tT_1", DBFieldTypes::kTimecodeS}};
  struct Case {
    const char* what;
    Strings source;  // at_5, TT_4, tt_3, Tt_2, tT_1 (source order)
    Strings merged;  // tT_1, Tt_2, tt_3, TT_4, at_5 (target order)
  } cases[] = {
      {"plain codes",
       {"01:00:00:00", "01000000", "01000000", "10:11:12:13", "10111213"},
       {"10:11:12:13", "10111213", "01000000", "01000000", "01:00:00:00"}},
      {"drop frame",
       {"x", "020000;05", "02:00:00;05", "02:00:00;05", "020000;05"},
       {"02:00:00;05", "020000;05", "02:00:00;05", "020000;05", "x"}},
      {"not a time code", {"", "n/a", "", "n/a", "n/a"}, {"n/a", "n/a", "", "n/a", ""}},
  };
  for (const Case& c : cases) {
    auto db = makeDb(mine, {});
    auto other = makeDb(theirs, {c.source});
    ASSERT_EQ(db->merge_all_matching(other.get()), 1) << c.what;
    ASSERT_EQ(db->get_num_records(), 1u) << c.what;
    Strings merged;
    for (unsigned f = 0; f < 5; ++f) merged.emplace_back(db->getField(0, f).c_str());
    EXPECT_EQ(merged, c.merged) << c.what;
  }
}

}  // namespace
