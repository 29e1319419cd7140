// A view's own tags: setting and counting them, tagging by query (rows mapped to the source),
// by duplicate value in order and after sorting, writing them to the source, tag subviews,
// taking tags from the source, and sorting the index both ways.

#include <gtest/gtest.h>

#include <set>

#include "record/StoreTestUtil.h"
#include "support/SystemWatchdog.h"
#include "view/ViewProbe.h"

namespace {

constexpr unsigned kName = 1;
constexpr unsigned kTagField = 2;

// A database whose query matches the rows in `matching`, and which remembers the rows it was
// asked about and the watchdog depth at which sorts are prepared.
class ScriptedKesta : public kesta {
 public:
  using kesta::kesta;
  int match_record(int row) const override {
    asked.push_back(row);
    return matching.count(row) ? 1 : 0;
  }
  void sortPrepare(int direction, int caseInsensitive) override {
    prepared.push_back({direction, caseInsensitive, SystemWatchdog::lifeSupportDepth()});
    kesta::sortPrepare(direction, caseInsensitive);
  }
  std::set<int> matching;
  mutable std::vector<int> asked;
  std::vector<std::vector<int>> prepared;
};

Zr::Ptr<ScriptedKesta> namedDatabase(const std::vector<const char*>& names) {
  storetest::Rows rows;
  for (std::size_t i = 0; i < names.size(); ++i) rows.push_back({std::to_string(i), names[i]});
  return storetest::makeDb<ScriptedKesta>(viewprobe::kFields, rows);
}

using viewprobe::Held;

std::vector<int> flags(KSTViewRep& view) {
  std::vector<int> out;
  for (unsigned i = 0; i < view.get_num_records(); ++i) out.push_back(view.get_tag(i));
  return out;
}

std::vector<std::string> names(iKST& view) {
  std::vector<std::string> out;
  for (unsigned i = 0; i < view.get_num_records(); ++i) out.push_back(view.getField(i, kName).c_str());
  return out;
}

TEST(ViewTags, FlagsAreTheViewsOwnAndIgnoreRowsOutOfRange) {
  Zr::Ptr<ScriptedKesta> db = namedDatabase({"a", "b", "c", "d"});
  Held view(new KSTViewRep(db.get()));
  view->displayAllRecords();
  view->set_tag(1, 5);
  view->invert_tag(3);
  view->set_tag(4, 1);
  view->invert_tag(static_cast<unsigned>(-1));
  EXPECT_EQ(flags(*view.view), (std::vector<int>{0, 1, 0, 1}));
  EXPECT_EQ(view->get_tag(4), 0);
  EXPECT_FALSE(view->tag(-1));
  EXPECT_TRUE(view->notTagged(9));
  EXPECT_EQ(view->get_num_tags(), 2);
  EXPECT_EQ(db->get_num_tags(), 0) << "the database's tags are untouched";
  view->invert_all_tags();
  EXPECT_EQ(flags(*view.view), (std::vector<int>{1, 0, 1, 0}));
  view->set_all_tags(7);
  EXPECT_EQ(view->countTags(), 4);

  // Without a source there is nothing to tag or count.
  Held detached(new KSTViewRep(nullptr));
  detached->displayRecordsAt(0, 2, 0);
  detached->tagAll(true);
  EXPECT_EQ(detached->countTags(), 0);
  detached->set_tag(0, 1);
  EXPECT_EQ(detached->countTags(), 0);
  EXPECT_EQ(detached->get_tag(0), 1);
}

TEST(ViewTags, TagMatchesAsksTheSourceForMappedRows) {
  Zr::Ptr<ScriptedKesta> db = namedDatabase({"a", "b", "c", "d", "e"});
  db->matching = {1, 4};
  Held view(new KSTViewRep(db.get()));
  view->displayRecordsAt(4, 1, 0);
  view->displayRecordsAt(0, 3, 1);  // rows 4, 0, 1, 2
  view->set_tag(3, 1);

  EXPECT_EQ(view->tagMatches(1), 2);
  EXPECT_EQ(db->asked, (std::vector<int>{4, 0, 1, 2}));
  EXPECT_EQ(flags(*view.view), (std::vector<int>{1, 0, 1, 1})) << "keep leaves other flags";
  EXPECT_EQ(view->tagMatches(0), 2);
  EXPECT_EQ(flags(*view.view), (std::vector<int>{1, 0, 1, 0})) << "without keep the others are cleared";
  view->set_tag(3, 1);
  EXPECT_EQ(view->tag_matching_records(1), 2);
  EXPECT_EQ(flags(*view.view), (std::vector<int>{1, 0, 1, 0})) << "the argument is not passed on";

  // match_record hands the view row over unmapped.
  db->asked.clear();
  EXPECT_EQ(view->match_record(0), 0);
  EXPECT_EQ(view->match_record(1), 1);
  EXPECT_EQ(db->asked, (std::vector<int>{0, 1}));
}

TEST(ViewTags, DuplicatesInOrderCompareIgnoringCase) {
  struct Case {
    std::vector<const char*> values;
    int tagged;
    std::vector<int> flags;
    bool first_tagged = false;  // flags already set stay set
  };
  const Case cases[] = {
      // clang-format off
      {{"abc", "ABC", "abd"}, 1, {0, 1, 0}}, {{"x", "y", "x"}, 0, {0, 0, 0}},
      {{"a", "A", "a", "b", "B"}, 3, {0, 1, 1, 0, 1}}, {{"", ""}, 1, {0, 1}},
      {{"only"}, 0, {0}}, {{"p", "q"}, 0, {1, 0}, true},
      // clang-format on
  };
  for (const Case& c : cases) {
    Zr::Ptr<ScriptedKesta> db = namedDatabase(c.values);
    Held view(new KSTViewRep(db.get()));
    view->displayAllRecords();
    view->set_tag(0, c.first_tagged);
    EXPECT_EQ(view->tagDuplicatesOrdered(kName), c.tagged) << c.values[0];
    EXPECT_EQ(flags(*view.view), c.flags) << c.values[0];
  }
}

TEST(ViewTags, DuplicatesAfterSortingAndAllDifferent) {
  Zr::Ptr<ScriptedKesta> db = namedDatabase({"b", "a", "b", "c", "a", "b"});
  Held view(new KSTViewRep(db.get()));
  view->displayAllRecords();
  const auto tagged = [&] {
    std::multiset<std::string> out;
    for (unsigned i = 0; i < 6; ++i) {
      if (view->get_tag(i)) out.insert(view->getField(i, kName).c_str());
    }
    return out;
  };
  // One row of each repeated value stays untagged; which one is up to the sort.
  EXPECT_EQ(view->tagDuplicates(kName), 3);
  EXPECT_EQ(tagged(), (std::multiset<std::string>{"a", "b", "b"}));
  EXPECT_EQ(view->useCount(), 1u) << "the temporary view gave its use back";
  EXPECT_EQ(view->tag_all_different(kName), 3);
  EXPECT_EQ(tagged(), (std::multiset<std::string>{"a", "b", "c"}));
  EXPECT_EQ(names(*view.view), (std::vector<std::string>{"b", "a", "b", "c", "a", "b"})) << "this view keeps its order";
  EXPECT_EQ(db->get_num_tags(), 0);
}

TEST(ViewTags, TagsReachTheSourceAndComeBackFromIt) {
  Zr::Ptr<ScriptedKesta> db = namedDatabase({"a", "b", "c", "d"});
  Held view(new KSTViewRep(db.get()));
  view->displayRecordsAt(3, 1, 0);
  view->displayRecordsAt(1, 1, 1);  // rows 3, 1
  view->set_tag(0, 1);
  db->set_tag(1, 1);
  view->tagBaseFromTags();
  EXPECT_EQ(db->get_tag(3), 1);
  EXPECT_EQ(db->get_tag(1), 0) << "a clear flag clears the source's tag";

  // A subview chained on the view shows its tagged rows.
  Held subview(view->newTagSubview());
  EXPECT_EQ(subview->baseViewRep(), view.view);
  EXPECT_EQ(names(*subview.view), (std::vector<std::string>{"d"}));
  EXPECT_EQ(view->useCount(), 2u);

  // From the database's tags: by tag flag, or by the number in the "Tag" field.
  db->set_tag(0, 2);
  db->set_field(2, kTagField, "7");
  db->set_field(1, kTagField, "0");
  db->set_field(0, kTagField, "x");
  Held fresh(new KSTViewRep(db.get()));
  EXPECT_EQ(fresh->displayTaggedRecordsAt(5), 2);
  EXPECT_EQ(names(*fresh.view), (std::vector<std::string>{"a", "d"}));
  fresh->displayAllRecordsWithBaseTagStatus();
  EXPECT_EQ(flags(*fresh.view), (std::vector<int>{1, 0, 0, 1}));
  fresh->setupViewTagsFromKestaTagField();
  EXPECT_EQ(flags(*fresh.view), (std::vector<int>{0, 0, 1, 0}));
}

TEST(ViewTags, SortOrdersTheIndexBothWaysUnderTheWatchdog) {
  Zr::Ptr<ScriptedKesta> db = namedDatabase({"b", "d", "a", "c"});
  ASSERT_TRUE(storetest::holdAsLines(*db));  // as loaded records are
  Held view(new KSTViewRep(db.get()));
  view->displayAllRecords();
  view->set_tag(0, 1);  // "b" carries its flag along
  view->set_sortfield(static_cast<int>(kName));
  view->sort(1, 0);
  EXPECT_EQ(names(*view.view), (std::vector<std::string>{"a", "b", "c", "d"}));
  EXPECT_EQ(flags(*view.view), (std::vector<int>{0, 1, 0, 0}));
  view->sort(-1, 0);
  EXPECT_EQ(names(*view.view), (std::vector<std::string>{"d", "c", "b", "a"}));
  EXPECT_EQ(flags(*view.view), (std::vector<int>{0, 0, 1, 0}));
  // The arguments reach sortPrepare as they come, inside the watchdog bracket.
  EXPECT_EQ(db->prepared, (std::vector<std::vector<int>>{{1, 0, 1}, {-1, 0, 1}}));
  EXPECT_EQ(SystemWatchdog::lifeSupportDepth(), 0);
  EXPECT_EQ(names(*db), (std::vector<std::string>{"b", "d", "a", "c"})) << "the database keeps its order";
  EXPECT_EQ(storetest::heldCount(*db), 4u) << "the sort took records apart";

  Held detached(new KSTViewRep(nullptr));
  detached->sort(1, 0);
  EXPECT_EQ(SystemWatchdog::lifeSupportDepth(), 0);
}

}  // namespace
