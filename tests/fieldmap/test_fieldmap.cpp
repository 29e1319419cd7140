// The field map: its text form in both directions, the fill from the source, and the name
// rules that keep entries distinct.
#include <gtest/gtest.h>

#include "fieldmap/FieldMap.h"
#include "view/KSTViewRep.h"

namespace {

Zr::Ptr<kesta> makeLog() {
  std::vector<DBFieldDesc> fields{{"Name", DBFieldTypes::kText},
                                  {"Reel", DBFieldTypes::kText},
                                  {"Scene", DBFieldTypes::kText},
                                  {"Start time", DBFieldTypes::kTimecode}};
  return Zr::Ptr<kesta>(new kesta(fields));
}

std::vector<std::string> names(const FieldMap& map) {
  std::vector<std::string> out;
  for (int i = 0; i < map.size(); ++i)
    out.push_back(std::string(map.getName(i).c_str()) + (map.isVisible(i) ? "" : "*"));
  return out;
}

TEST(FieldMap, ReadsTheStoredText) {
  struct Case {
    const char* stored;
    std::vector<std::string> expected;  // hidden entries end in '*'
    const char* written;
  };
  const Case cases[] = {
      {"2 -1", {"Reel", "Name*"}, "2 -1"},
      {"1 2 -4 3", {"Name", "Reel", "Start time*", "Scene"}, "1 2 -4 3"},
      {"2 -2 1", {"Reel", "Name"}, "2 1"},  // the first occurrence's flag wins
      {"3 x 4", {"Scene"}, "3"},            // parsing stops at the first non-number
      {"0 2", {"Reel"}, "2"},               // 0 adds nothing
      {"1234", {}, nullptr},                // read as column 123: unknown, empty name
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.stored);
    Zr::Ptr<kesta> db = makeLog();
    db->set_param_val("V5_FIELD_MAP", c.stored);
    FieldMap map(*db);
    if (c.written) {
      EXPECT_EQ(names(map), c.expected);
      EXPECT_STREQ(map.asString().c_str(), c.written);
    } else {
      // Column 123 does not exist: its entry has an empty name, which the source cannot
      // number, so it writes back as "0".
      ASSERT_EQ(map.size(), 1);
      EXPECT_TRUE(map.getName(0).empty());
      EXPECT_STREQ(map.asString().c_str(), "0");
    }
  }
}

TEST(FieldMap, VisibleIndexingFollowsDisplayOrder) {
  Zr::Ptr<kesta> db = makeLog();
  db->set_param_val("V5_FIELD_MAP", "2 -1");
  FieldMap map(*db);
  EXPECT_EQ(map.numVisible(), 1);
  EXPECT_EQ(map.getVisibleFieldIndex(0), 1);
  EXPECT_EQ(map.getVisibleFieldIndex(1), -1);
  EXPECT_FALSE(map.isVisible(-1));
  EXPECT_FALSE(map.isVisible(2));
  EXPECT_FALSE(map.isVisible("Tape"));
  EXPECT_TRUE(map.isVisible("REEL"));
  map.invertVisible(1);
  EXPECT_EQ(map.getVisibleFieldIndex(1), 0);
  map.swap(0, 1);
  EXPECT_STREQ(map.asString().c_str(), "1 2");
}

TEST(FieldMap, FillsFromTheSourceOnlyWhenEmpty) {
  Zr::Ptr<kesta> db = makeLog();
  FieldMap map(*db);  // no parameter: every column, visible, in database order
  EXPECT_EQ(names(map), (std::vector<std::string>{"Name", "Reel", "Scene", "Start time"}));
  EXPECT_STREQ(map.asString().c_str(), "1 2 3 4");

  map.remove("REEL");
  map.setVisible(0, false);
  KSTView other(new KSTViewRep(db.get()));
  map.setSourceDb(other);  // still no parameter: a non-empty map is kept as it is
  EXPECT_EQ(names(map), (std::vector<std::string>{"Name*", "Scene", "Start time"}));

  // A parameter on a non-empty map appends behind the existing entries.
  db->set_param_val("V5_FIELD_MAP", "2 1");
  KSTView again(new KSTViewRep(db.get()));
  map.setSourceDb(again);
  EXPECT_EQ(names(map), (std::vector<std::string>{"Name*", "Scene", "Start time", "Reel"}));
}

TEST(FieldMap, NamesStayDistinctIgnoringCase) {
  FieldMap map;
  map.append("Reel", true);
  map.append("reel", false);
  EXPECT_EQ(map.size(), 1);
  EXPECT_TRUE(map.isVisible(0));
  EXPECT_EQ(map.getFieldIdx("REEL"), 0);
  EXPECT_FALSE(map.remove("Tape"));
  EXPECT_TRUE(map.remove("REEL"));
  EXPECT_EQ(map.size(), 0);
  EXPECT_EQ(map.getFieldIdx("Reel"), -1);

  // Without a source, the text numbers entries by position.
  map.append("A", true);
  map.append("B", false);
  EXPECT_STREQ(map.asString().c_str(), "1 -2");
  map.set(5, "Z", true);  // out of range: ignored
  map.setName(-1, "Z");
  EXPECT_TRUE(map.getName(5).empty());
  EXPECT_EQ(map.size(), 2);

  FieldMap copy;
  copy = map;
  FieldMap& same = copy;
  copy = same;  // self-assignment keeps everything
  EXPECT_STREQ(copy.asString().c_str(), "1 -2");
  map.clear();
  EXPECT_EQ(map.numVisible(), 0);
  EXPECT_EQ(copy.size(), 2);
}

}  // namespace
