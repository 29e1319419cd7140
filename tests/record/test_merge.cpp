// Merging: add_kesta's refusals and copies, merge_all_matching's field matching and time-code
// conversions.

#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "common/TestUtil.h"
#include "record/StoreTestUtil.h"

namespace {

using namespace storetest;
using Fields = std::vector<DBFieldDesc>;

const Fields kShape = {{"Name", T::kText}, {"Reel", T::kText}, {"Start time", T::kTimecode}};
const Rows kMine = {{"m1", "R1", "01:00:00:00"}, {"m2", "R2", "02:00:00:00"}};
const Rows kTheirs = {{"t1", "T1", "03:00:00:00"}, {"t2", "T2", "04:00:00:00"}, {"t3", "T3", ""}};

// A database of kShape loaded from a file that declares `revision`.
Zr::Ptr<kesta> loadWithRevision(const testutil::TempDir& dir, int revision) {
  const std::string name = "rev" + std::to_string(revision) + ".kst";
  testutil::writeFile(dir.file(name), "\"KESTA:Rev " + std::to_string(revision) +
                                          "\"\n\"KESTA\"\n\"32\",\"10\",\"12\"\n\"text\",\"text\",\"timecode\"\n"
                                          "\"Name\",\"Reel\",\"Start time\"\n\"f1\",\"F1\",\"05:00:00:00\"\n");
  return Zr::Ptr<kesta>(new kesta(dir.wfile(name), 0x7fffffff, false));
}

TEST(Merge, AddKestaRefusals) {
  testutil::TempDir dir;
  const Fields blank_name = {kShape[0], {"", T::kText}, kShape[2]};
  struct Case {
    const char* what;
    Zr::Ptr<kesta> source;
  } cases[] = {
      {"show-tags-only", nullptr},
      {"revision", loadWithRevision(dir, 2)},
      {"fewer fields", makeDb(Fields(kShape.begin(), kShape.end() - 1), kTheirs)},
      {"more fields", makeDb(Fields{kShape[0], kShape[1], kShape[2], {"Notes", T::kText}}, kTheirs)},
      {"type", makeDb(Fields{kShape[0], {"Reel", T::kTextS}, kShape[2]}, kTheirs)},
      {"name case", makeDb(Fields{kShape[0], {"reel", T::kText}, kShape[2]}, kTheirs)},
      {"name", makeDb(Fields{kShape[0], kShape[1], {"End time", T::kTimecode}}, kTheirs)},
      {"missing name", makeDb(blank_name, kTheirs)},
      {"no source", nullptr},
  };
  cases[0].source = makeDb(kShape, kTheirs);
  for (Case& c : cases) {
    auto db = makeDb(kShape, kMine);
    db->set_show_tags_only(&c == &cases[0]);
    EXPECT_EQ(db->add_kesta(c.source.get()), -1) << c.what;
    db->set_show_tags_only(0);
    EXPECT_EQ(columnOf(*db, 0), (Strings{"m1", "m2"})) << c.what;
  }
  // A missing name equals an empty one.
  EXPECT_EQ(makeDb(blank_name, kMine)->add_kesta(cases[7].source.get()), 3);
}

TEST(Merge, AddKestaAppendsIndependentCopiesOfVisibleRows) {
  auto db = makeDb(kShape, kMine);
  auto other = makeDb(kShape, kTheirs);
  other->set_tag(0, 1);
  db->clear_changed();
  other->clear_changed();
  EXPECT_EQ(db->add_kesta(other.get()), 3);
  EXPECT_EQ(rowsOf(*db), (Rows{kMine[0], kMine[1], kTheirs[0], kTheirs[1], kTheirs[2]}));
  EXPECT_EQ(db->changed(), 0);
  EXPECT_EQ(db->get_tag(2), 0) << "a copy starts untagged";
  // The copies belong to this database: changing one marks it, not the source.
  ASSERT_TRUE(db->set_field(2, 0, "changed"));
  EXPECT_EQ(db->changed(), 1);
  EXPECT_EQ(other->changed(), 0);
  EXPECT_STREQ(other->getField(0, 0).c_str(), "t1");

  // A file-loaded database of the same shape and revision is accepted too.
  testutil::TempDir dir;
  EXPECT_EQ(db->add_kesta(loadWithRevision(dir, 1).get()), 1);
  EXPECT_STREQ(db->getField(5, 1).c_str(), "F1");
  EXPECT_EQ(db->add_kesta(makeDb(kShape, {}).get()), 0);

  // A source's rows are its visible ones: a derived source counting its full list gives its
  // tagged records, then rows without one; a plain one showing tagged rows has none.
  auto derived = makeDb<FullCountKesta>(kShape, kTheirs);
  setTags(*derived, {0, 1, 1});
  derived->set_show_tags_only(1);
  EXPECT_EQ(db->add_kesta(derived.get()), 3);
  EXPECT_EQ(columnOf(*db, 0), (Strings{"m1", "m2", "changed", "t2", "t3", "f1", "t2", "t3", ""}));
  EXPECT_FALSE(db->get_record(8));
  other->set_all_tags(1);
  other->set_show_tags_only(1);
  EXPECT_EQ(db->add_kesta(other.get()), 0);
  EXPECT_EQ(db->get_num_records(), 9u);
}

TEST(Merge, MergeAllMatchingByName) {
  auto db = makeDb(Fields{{"Name", T::kText}, {"Reel", T::kText}}, {{"m1", "R1"}});
  auto other = makeDb(Fields{{"Tape", T::kText}, {"NAME", T::kText}, {"Extra", T::kText}},
                      {{"T1", "  n1", "x"}, {"T2", "n2", "y"}});
  EXPECT_EQ(db->merge_all_matching(other.get()), 1);
  EXPECT_EQ(rowsOf(*db), (Rows{{"m1", "R1"}, {"n1", ""}, {"n2", ""}})) << "stored through set_field: blanks trimmed";
  EXPECT_EQ(columnOf(*other, 1), (Strings{"  n1", "n2"}));

  for (const Fields& mine : {Fields{{"Scene", T::kText}}, Fields{}}) {
    auto target = makeDb(mine, {});
    EXPECT_EQ(target->merge_all_matching(other.get()), 0) << "no field matches";
    EXPECT_EQ(target->get_num_records(), 0u);
  }
  EXPECT_EQ(db->merge_all_matching(nullptr), 0);
  // Showing tagged rows only: the first append is refused, the merge still answers 1.
  db->set_show_tags_only(1);
  EXPECT_EQ(db->merge_all_matching(other.get()), 1);
  db->set_show_tags_only(0);
  EXPECT_EQ(db->get_num_records(), 3u);
  // A matching source without records adds nothing and answers 1.
  EXPECT_EQ(db->merge_all_matching(makeDb(Fields{{"Name", T::kText}}, {}).get()), 1);
  EXPECT_EQ(db->get_num_records(), 3u);
}

TEST(Merge, MergeMarksItsRecordsAndCallsAClassOfItsOwn) {
  // Each new record is marked changed, one whose matched texts are all empty too.
  auto db = makeDb(Fields{{"Name", T::kText}, {"Reel", T::kText}}, {});
  ASSERT_EQ(db->merge_all_matching(makeDb(Fields{{"Name", T::kText}}, {{""}, {"a"}}).get()), 1);
  ASSERT_EQ(db->get_num_records(), 2u);
  EXPECT_TRUE(db->get_record(0)->changed() && db->get_record(1)->changed());

  // A source of a class of its own is read through its getField, a target through its set_field.
  struct Shouting : kesta {
    using kesta::kesta;
    LightweightString<char> getField(unsigned row, unsigned field) const override {
      std::string text = kesta::getField(row, field).c_str();
      for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      return LightweightString<char>(text.c_str());
    }
  };
  struct Counting : kesta {
    using kesta::kesta;
    int set_field(unsigned row, unsigned field, const char* value) override {
      ++stores;
      return kesta::set_field(row, field, value);
    }
    int stores = 0;
  };
  auto plain = makeDb(Fields{{"Name", T::kText}, {"Reel", T::kText}}, {});
  ASSERT_EQ(plain->merge_all_matching(makeDb<Shouting>(Fields{{"Name", T::kText}}, {{"quiet"}}).get()), 1);
  EXPECT_EQ(rowsOf(*plain), (Rows{{"QUIET", ""}}));
  auto counting = makeDb<Counting>(Fields{{"Name", T::kText}, {"Reel", T::kText}}, {});
  ASSERT_EQ(counting->merge_all_matching(makeDb(Fields{{"Name", T::kText}}, {{"a"}, {"b"}}).get()), 1);
  EXPECT_EQ(rowsOf(*counting), (Rows{{"a", ""}, {"b", ""}}));
  EXPECT_EQ(counting->stores, 2) << "one matched field a row";
}

TEST(Merge, MergeConvertsBetweenTimeCodeForms) {
  // Column names say <target type><source type>, numbered so that they differ ignoring case.
  const Fields mine = {{"tT_1", T::kTimecode},
                       {"Tt_2", T::kTimecodeS},
                       {"tt_3", T::kTimecode},
                       {"TT_4", T::kTimecodeS},
                       {"at_5", T::kText}};
  const Fields theirs = {{"at_5", T::kTimecode},
                         {"TT_4", T::kTimecodeS},
                         {"tt_3", T::kTimecode},
                         {"Tt_2", T::kTimecode},
                         {"tT_1", T::kTimecodeS}};
  struct Case {
    Strings source;  // at_5, TT_4, tt_3, Tt_2, tT_1 (source order)
    Strings merged;  // tT_1, Tt_2, tt_3, TT_4, at_5 (target order)
  } cases[] = {
      {{"01:00:00:00", "01000000", "01000000", "10:11:12:13", "10111213"},
       {"10:11:12:13", "10111213", "01000000", "01000000", "01:00:00:00"}},
      {{"x", "020000;05", "02:00:00;05", "02:00:00;05", "020000;05"},  // drop frame
       {"02:00:00;05", "020000;05", "02:00:00;05", "020000;05", "x"}},
      {{"", "n/a", "", "n/a", "n/a"}, {"n/a", "n/a", "", "n/a", ""}},  // not a time code
  };
  for (const Case& c : cases) {
    auto db = makeDb(mine, {});
    ASSERT_EQ(db->merge_all_matching(makeDb(theirs, {c.source}).get()), 1);
    EXPECT_EQ(rowsOf(*db), (Rows{c.merged}));
  }
}

}  // namespace
