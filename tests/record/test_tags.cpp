// Tags on database rows: values, counting, deletion of tagged runs (seen through the
// "recordsDeleted" messages and the delete_records calls), and the show-tags-only mode.

#include <gtest/gtest.h>

#include "record/StoreTestUtil.h"

namespace {

using storetest::columnOf;
using storetest::DeleteSpyKesta;
using storetest::DeletionLog;
using storetest::FullCountKesta;
using storetest::makeDb;
using storetest::Rows;
using storetest::setTags;

const std::vector<DBFieldDesc> kFields = {{"Name", DBFieldTypes::kText}, {"Reel", DBFieldTypes::kText}};

Rows namedRows(int n) {
  Rows rows;
  for (int i = 0; i < n; ++i) rows.push_back({"r" + std::to_string(i), "A00" + std::to_string(i)});
  return rows;
}

constexpr unsigned kAllBits = 0xFFFFFFFFu;

TEST(Tags, SetInvertAndReadValues) {
  auto db = makeDb(kFields, namedRows(3));
  struct Step {
    const char* what;
    int set;      // value for set_tag, or -1 for invert_tag
    int expect;   // get_tag afterwards
  } steps[] = {
      {"fresh record", -2, 0},     {"invert 0", -1, 1},          {"invert 1", -1, 0},
      {"store 5", 5, 5},           {"invert 5 gives 0", -1, 0},  {"cut to 8 bits", 256 + 3, 3},
      {"store 255", 255, 255},     {"negative is cut", -255, 1},
  };
  for (const Step& s : steps) {
    if (s.set == -1) {
      db->invert_tag(1);
    } else if (s.set != -2) {
      db->set_tag(1, s.set);
    }
    EXPECT_EQ(db->get_tag(1), s.expect) << s.what;
    EXPECT_EQ(db->get_tag(0), 0) << s.what << ": neighbour untouched";
    EXPECT_EQ(db->get_tag(2), 0) << s.what << ": neighbour untouched";
  }

  // Rows past the end: no record, nothing faults, nothing changes.
  EXPECT_EQ(db->get_tag(db->get_num_records()), -1);
  EXPECT_EQ(db->get_tag(kAllBits), -1);
  db->set_tag(3, 1);
  db->invert_tag(3);
  db->invert_tag(kAllBits);
  EXPECT_EQ(db->get_num_tags(), 1);
}

TEST(Tags, AllTagsAndCount) {
  auto db = makeDb(kFields, namedRows(5));
  EXPECT_EQ(db->get_num_tags(), 0);
  db->set_all_tags(2);
  for (unsigned r = 0; r < 5; ++r) EXPECT_EQ(db->get_tag(r), 2);
  EXPECT_EQ(db->get_num_tags(), 5);
  db->set_tag(3, 0);
  db->invert_all_tags();
  EXPECT_EQ(db->get_num_tags(), 1);
  EXPECT_EQ(db->get_tag(3), 1);
  db->set_all_tags(0);
  EXPECT_EQ(db->get_num_tags(), 0);

  // Entries without a record (left by insert_records) answer -1, which counts as tagged.
  db->insert_records(1, 3);
  ASSERT_EQ(db->get_num_records(), 8u);
  ASSERT_FALSE(db->get_record(2));
  EXPECT_EQ(db->get_tag(2), -1);
  EXPECT_EQ(db->get_num_tags(), 2);
  db->set_all_tags(1);
  EXPECT_EQ(db->get_num_tags(), 8);
  db->invert_all_tags();
  EXPECT_EQ(db->get_num_tags(), 2);
}

TEST(Tags, DeleteTaggedRecordsInRuns) {
  struct Case {
    const char* what;
    std::vector<int> tags;
    std::vector<std::string> messages;
    std::vector<std::pair<unsigned, unsigned>> calls;
    std::vector<std::string> left;
  } cases[] = {
      {"two runs", {0, 1, 1, 0, 1, 0}, {"1 2 ", "2 "}, {{1, 2}, {2, 1}}, {"r0", "r3", "r5"}},
      {"one run, all", {1, 1, 1, 1}, {"0 1 2 3 "}, {{0, 4}}, {}},
      {"run at the end", {0, 0, 1, 1}, {"2 3 "}, {{2, 2}}, {"r0", "r1"}},
      {"alternating", {1, 0, 1, 0, 1}, {"0 ", "1 ", "2 "}, {{0, 1}, {1, 1}, {2, 1}}, {"r1", "r3"}},
      {"only tag 1 deletes", {2, 1, 0, 5, 1}, {"1 ", "3 "}, {{1, 1}, {3, 1}}, {"r0", "r2", "r3"}},
      {"nothing tagged", {0, 0, 0}, {}, {}, {"r0", "r1", "r2"}},
      {"empty database", {}, {}, {}, {}},
  };
  for (const Case& c : cases) {
    auto db = makeDb<DeleteSpyKesta>(kFields, namedRows(static_cast<int>(c.tags.size())));
    setTags(*db, c.tags);
    DeletionLog log(*db);
    unsigned expected = static_cast<unsigned>(c.tags.size() - c.left.size());
    EXPECT_EQ(db->delete_tagged_records(), expected) << c.what;
    EXPECT_EQ(log.texts, c.messages) << c.what;
    EXPECT_EQ(db->calls, c.calls) << c.what;
    EXPECT_EQ(columnOf(*db, 0), c.left) << c.what;
  }

  // A tag of 2 survives deletion yet counts as a tag.
  auto db = makeDb(kFields, namedRows(2));
  db->set_tag(0, 2);
  EXPECT_EQ(db->get_num_tags(), 1);
  EXPECT_EQ(db->delete_tagged_records(), 0u);
  EXPECT_EQ(db->get_num_records(), 2u);
  EXPECT_EQ(db->get_num_tags(), 1);
}

TEST(Tags, DeleteTaggedRefusedWhileShowingTagsOnly) {
  auto db = makeDb<FullCountKesta>(kFields, namedRows(4));
  setTags(*db, {1, 0, 1, 1});
  db->set_show_tags_only(1);
  DeletionLog log(*db);
  EXPECT_EQ(db->delete_tagged_records(), kAllBits);
  EXPECT_TRUE(log.texts.empty());
  db->set_show_tags_only(0);
  EXPECT_EQ(columnOf(*db, 0), (std::vector<std::string>{"r0", "r1", "r2", "r3"}));
}

TEST(Tags, ShowTagsOnlyOnPlainDatabase) {
  auto db = makeDb(kFields, namedRows(4));
  setTags(*db, {1, 0, 1, 0});
  db->set_show_tags_only(1);
  // The rebuild is bounded by the visible row count, which is the (empty) index itself.
  EXPECT_EQ(db->get_show_tags_only(), 1);
  EXPECT_EQ(db->get_num_records(), 0u);
  EXPECT_EQ(db->get_num_tags(), 0);
  EXPECT_EQ(db->index_tags(), 0u);
  EXPECT_EQ(db->get_new_row(0), kAllBits);

  // set_all_tags reaches only visible rows; invert_all_tags reaches every record.
  db->set_all_tags(1);
  db->invert_all_tags();
  db->set_show_tags_only(0);
  EXPECT_EQ(db->get_show_tags_only(), 0);
  ASSERT_EQ(db->get_num_records(), 4u);
  EXPECT_EQ(storetest::taggedOf(*db, 0), (std::vector<std::string>{"r1", "r3"}));
}

TEST(Tags, TaggedIndexOfDerivedSource) {
  auto db = makeDb<FullCountKesta>(kFields, namedRows(6));
  setTags(*db, {0, 1, 0, 3, 1, 0});
  db->insert_records(6, 2);  // row 6 a new record, row 7 an entry without one
  db->set_show_tags_only(1);
  EXPECT_EQ(db->index_tags(), 8u);

  // Visible rows: r1, r3, r4 and the entry without a record.
  std::vector<std::string> visible;
  for (unsigned r = 0; r < 4; ++r) visible.emplace_back(db->getField(r, 0).c_str());
  EXPECT_EQ(visible, (std::vector<std::string>{"r1", "r3", "r4", ""}));
  EXPECT_FALSE(db->get_record(3));

  struct Map {
    unsigned raw, visible;
  } maps[] = {{1, 0}, {3, 1}, {4, 2}, {7, 3}, {0, kAllBits}, {2, kAllBits}, {6, kAllBits}, {99, kAllBits}};
  for (const Map& m : maps) {
    EXPECT_EQ(db->get_new_row(m.raw), m.visible) << "raw " << m.raw;
    if (m.visible != kAllBits) {
      EXPECT_EQ(db->get_raw_row(m.visible), m.raw) << "visible " << m.visible;
    }
  }
  EXPECT_EQ(db->get_raw_row(4), kAllBits);  // equal to the index size: passes the bound, finds nothing
  EXPECT_EQ(db->get_raw_row(5), kAllBits);

  // Turning the flag off keeps the index; row numbers are the full list's again.
  db->set_show_tags_only(0);
  EXPECT_EQ(db->get_new_row(2), 2u);
  EXPECT_EQ(db->get_raw_row(5), 5u);
  EXPECT_EQ(db->get_raw_row(kAllBits), kAllBits);
}

}  // namespace
