// Tags on database rows: values, counting, deletion of tagged runs (seen through the
// "recordsDeleted" messages and the delete_records calls), and the show-tags-only mode.

#include <gtest/gtest.h>

#include "record/StoreTestUtil.h"

namespace {

using namespace storetest;

const std::vector<DBFieldDesc> kFields = {{"Name", T::kText}, {"Reel", T::kText}};

TEST(Tags, SetInvertAndReadValues) {
  auto db = makeDb(kFields, namedRows(3));
  struct Step {
    int set;     // value for set_tag, -1 for invert_tag, -2 for nothing
    int expect;  // get_tag afterwards
  } steps[] = {{-2, 0}, {-1, 1}, {-1, 0}, {5, 5}, {-1, 0}, {256 + 3, 3}, {255, 255}, {-255, 1}};
  for (const Step& s : steps) {
    if (s.set == -1) db->invert_tag(1);
    if (s.set >= 0 || s.set < -2) db->set_tag(1, s.set);
    EXPECT_EQ(tagsOf(*db), (std::vector<int>{0, s.expect, 0})) << s.set;
  }
  // Rows past the end: nothing faults, nothing changes.
  EXPECT_EQ(db->get_tag(3), -1);
  EXPECT_EQ(db->get_tag(kNone), -1);
  db->set_tag(3, 1);
  db->invert_tag(3);
  db->invert_tag(kNone);
  EXPECT_EQ(db->get_num_tags(), 1);
}

TEST(Tags, AllTagsAndCount) {
  auto db = makeDb(kFields, namedRows(5));
  EXPECT_EQ(db->get_num_tags(), 0);
  db->set_all_tags(2);
  EXPECT_EQ(tagsOf(*db), (std::vector<int>{2, 2, 2, 2, 2}));
  EXPECT_EQ(db->get_num_tags(), 5);
  db->set_tag(3, 0);
  db->invert_all_tags();
  EXPECT_EQ(tagsOf(*db), (std::vector<int>{0, 0, 0, 1, 0}));
  EXPECT_EQ(db->get_num_tags(), 1);

  // Entries without a record (left by insert_records) answer -1, which counts as tagged.
  db->set_all_tags(0);
  db->insert_records(1, 3);
  EXPECT_EQ(tagsOf(*db), (std::vector<int>{0, 0, -1, -1, 0, 0, 0, 0}));
  EXPECT_EQ(db->get_num_tags(), 2);
  db->set_all_tags(1);
  EXPECT_EQ(db->get_num_tags(), 8);
  db->invert_all_tags();
  EXPECT_EQ(db->get_num_tags(), 2);
}

TEST(Tags, DeleteTaggedRecordsInRuns) {
  struct Case {
    std::vector<int> tags;
    Strings messages;
    std::vector<std::pair<unsigned, unsigned>> calls;
    Strings left;
  } cases[] = {
      {{0, 1, 1, 0, 1, 0}, {"1 2 ", "2 "}, {{1, 2}, {2, 1}}, {"r0", "r3", "r5"}},
      {{1, 1, 1, 1}, {"0 1 2 3 "}, {{0, 4}}, {}},
      {{0, 0, 1, 1}, {"2 3 "}, {{2, 2}}, {"r0", "r1"}},
      {{1, 0, 1, 0, 1}, {"0 ", "1 ", "2 "}, {{0, 1}, {1, 1}, {2, 1}}, {"r1", "r3"}},
      {{2, 1, 0, 5, 1}, {"1 ", "3 "}, {{1, 1}, {3, 1}}, {"r0", "r2", "r3"}},  // only tag 1 deletes
      {{0, 0, 0}, {}, {}, {"r0", "r1", "r2"}},
      {{}, {}, {}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.tags));
    auto db = makeDb<DeleteSpyKesta>(kFields, namedRows(static_cast<int>(c.tags.size())));
    setTags(*db, c.tags);
    DeletionLog log(*db);
    EXPECT_EQ(db->delete_tagged_records(), c.tags.size() - c.left.size());
    EXPECT_EQ(log.texts, c.messages);
    EXPECT_EQ(db->calls, c.calls);
    EXPECT_EQ(columnOf(*db, 0), c.left);
  }

  auto shown = makeDb<FullCountKesta>(kFields, namedRows(4));
  setTags(*shown, {1, 0, 1, 1});
  shown->set_show_tags_only(1);
  DeletionLog log(*shown);
  EXPECT_EQ(shown->delete_tagged_records(), kNone) << "refused while showing tagged rows only";
  EXPECT_TRUE(log.texts.empty());
  shown->set_show_tags_only(0);
  EXPECT_EQ(columnOf(*shown, 0), (Strings{"r0", "r1", "r2", "r3"}));
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
  EXPECT_EQ(db->get_new_row(0), kNone);

  // set_all_tags reaches only visible rows; invert_all_tags reaches every record.
  db->set_all_tags(1);
  db->invert_all_tags();
  db->set_show_tags_only(0);
  EXPECT_EQ(db->get_show_tags_only(), 0);
  EXPECT_EQ(taggedOf(*db, 0), (Strings{"r1", "r3"}));
}

TEST(Tags, TaggedIndexOfDerivedSource) {
  auto db = makeDb<FullCountKesta>(kFields, namedRows(6));
  setTags(*db, {0, 1, 0, 3, 1, 0});
  db->insert_records(6, 2);  // row 6 a new record, row 7 an entry without one
  db->set_show_tags_only(1);
  EXPECT_EQ(db->index_tags(), 8u);
  Strings visible;
  for (unsigned r = 0; r < 4; ++r) visible.emplace_back(db->getField(r, 0).c_str());
  EXPECT_EQ(visible, (Strings{"r1", "r3", "r4", ""}));
  EXPECT_FALSE(db->get_record(3));

  struct Map {
    unsigned raw, visible;
  } maps[] = {{1, 0}, {3, 1}, {4, 2}, {7, 3}, {0, kNone}, {2, kNone}, {6, kNone}, {99, kNone}};
  for (const Map& m : maps) {
    EXPECT_EQ(db->get_new_row(m.raw), m.visible) << "raw " << m.raw;
    if (m.visible != kNone) {
      EXPECT_EQ(db->get_raw_row(m.visible), m.raw) << "visible " << m.visible;
    }
  }
  EXPECT_EQ(db->get_raw_row(4), kNone);  // equal to the index size: passes the bound, finds nothing
  EXPECT_EQ(db->get_raw_row(5), kNone);

  // Turning the flag off keeps the index; row numbers are the full list's again.
  db->set_show_tags_only(0);
  EXPECT_EQ(db->get_new_row(2), 2u);
  EXPECT_EQ(db->get_raw_row(5), 5u);
  EXPECT_EQ(db->get_raw_row(kNone), kNone);
}

}  // namespace
