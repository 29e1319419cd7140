// Query matching on the database: setting queries, matching by column type, the start..end
// range rule of the time-code and edge-code column pairs, tagging matches and tagging the
// first record of every run of equal values.

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "record/StoreTestUtil.h"

namespace {

using storetest::columnOf;
using storetest::makeDb;
using storetest::Rows;
using Strings = std::vector<std::string>;
using Fields = std::vector<DBFieldDesc>;

const Fields kWords = {{"Name", DBFieldTypes::kText}, {"Reel", DBFieldTypes::kText}};

// A query record with one text per field of `db` (missing texts empty), plus `extra` fields.
Zr::Ptr<dbrecord> queryRecord(unsigned fields, const Strings& texts) {
  Zr::Ptr<dbrecord> q(new dbrecord(static_cast<unsigned short>(fields)));
  for (unsigned i = 0; i < texts.size(); ++i) q->set_field(static_cast<int>(i), texts[i].c_str());
  return q;
}

std::vector<TextSearch::Criteria> criteriaList(const Strings& texts) {
  std::vector<TextSearch::Criteria> list;
  for (const std::string& t : texts) {
    list.emplace_back(TextSearch::Criterion(LightweightString<char>(t.c_str()), TextSearch::eExact));
  }
  return list;
}

Strings matchingRows(kesta& db) {
  Strings out;
  for (unsigned r = 0; r < db.get_num_records(); ++r) {
    if (db.match_record(static_cast<int>(r)) == 1) out.emplace_back(db.getField(r, 0).c_str());
  }
  return out;
}

// Names of the rows that match_record accepts; the same whether the records hold field
// strings or, as loaded ones do, their lines.
Strings matching(kesta& db) {
  const Strings out = matchingRows(db);
  if (storetest::holdAsLines(db)) {
    EXPECT_EQ(matchingRows(db), out) << "with the records held as lines";
  }
  return out;
}

TEST(Query, WithoutQueryNothingMatchesAndNoTagChanges) {
  auto db = makeDb(kWords, {{"alpha"}, {"beta"}});
  db->set_tag(1, 1);
  EXPECT_EQ(db->match_record(0), -1);
  EXPECT_EQ(db->match_record(db->get_record(0)), -1);
  EXPECT_EQ(db->tag_matching_records(0), 0);
  EXPECT_EQ(db->get_tag(0), 0);
  EXPECT_EQ(db->get_tag(1), 1);

  db->set_query(nullptr);  // ignored
  EXPECT_EQ(db->match_record(0), -1);
}

TEST(Query, SettingQueries) {
  auto db = makeDb(kWords, {{"alpha", "R1"}, {"beta", "R2"}, {"alphabet", "r1"}, {"gamma", "R3"}});
  db->set_query(queryRecord(2, {"ALPHA"}).get());  // contains, case ignored
  EXPECT_EQ(matching(*db), (Strings{"alpha", "alphabet"}));

  // Too few fields: the old query stays.
  db->set_query(queryRecord(1, {"gamma"}).get());
  EXPECT_EQ(matching(*db), (Strings{"alpha", "alphabet"}));
  db->setQuery(criteriaList({"beta"}));
  EXPECT_EQ(matching(*db), (Strings{"alpha", "alphabet"}));

  struct Case {
    const char* what;
    std::vector<TextSearch::Criteria> list;
    Strings expect;
  } cases[] = {
      {"exact field count", criteriaList({"beta", ""}), {"beta"}},
      {"longer list kept, extra entries unused", criteriaList({"", "r1", "nothing"}), {"alpha", "alphabet"}},
      {"exact method", criteriaList({"alpha", ""}), {"alpha"}},
      {"all empty matches everything", criteriaList({"", ""}), {"alpha", "beta", "alphabet", "gamma"}},
  };
  for (const Case& c : cases) {
    db->setQuery(c.list);
    EXPECT_EQ(matching(*db), c.expect) << c.what;
  }

  // A query record with more fields than the database is taken whole; every empty text is
  // no condition.
  db->set_query(queryRecord(3, {"", "", "zzz"}).get());
  EXPECT_EQ(matching(*db).size(), 4u);
  db->set_query(queryRecord(2, {"a", "R"}).get());
  EXPECT_EQ(matching(*db), (Strings{"alpha", "beta", "alphabet", "gamma"}));
  db->set_query(queryRecord(2, {"a", "1"}).get());
  EXPECT_EQ(matching(*db), (Strings{"alpha", "alphabet"}));

  // Missing records.
  EXPECT_EQ(db->match_record(Zr::Ptr<dbrecord>()), -1);
  EXPECT_EQ(db->match_record(static_cast<int>(db->get_num_records())), -1);
  EXPECT_FALSE(db->matchField(nullptr, 0, criteriaList({"alpha"})[0]));
}

TEST(Query, TagMatchingRecordsKeepsOrReplacesTags) {
  Rows rows = {{"alpha"}, {"beta"}, {"alphabet"}, {"gamma"}};
  for (int keep : {1, 0}) {
    auto db = makeDb(kWords, rows);
    db->set_tag(3, 1);
    db->set_tag(1, 7);
    db->set_query(queryRecord(2, {"alpha"}).get());
    EXPECT_EQ(db->tag_matching_records(keep), 2) << keep;
    Strings expect = keep ? Strings{"alpha", "beta", "alphabet", "gamma"} : Strings{"alpha", "alphabet"};
    EXPECT_EQ(columnOf(*db, 0, true), expect) << keep;
    EXPECT_EQ(db->get_tag(0), 1);
  }

  // A row without a record answers -1 from match_record, which counts as a match.
  auto db = makeDb(kWords, rows);
  db->insert_records(4, 2);  // row 4 a new empty record, row 5 none
  db->set_query(queryRecord(2, {"alpha"}).get());
  EXPECT_EQ(db->tag_matching_records(0), 3);
  EXPECT_EQ(db->get_num_tags(), 3);  // row 5 counts as tagged, it has no record to tag
  EXPECT_EQ(db->get_tag(4), 0);
}

TEST(Query, MatchingByColumnType) {
  Fields fields = {{"Name", DBFieldTypes::kText},
                   {"Plain", DBFieldTypes::kText},
                   {"TC", DBFieldTypes::kTimecode},
                   {"TCs", DBFieldTypes::kTimecodeS}};
  auto db = makeDb(fields, {{"r0", "01000000", "01:00:00:00", "01000000"},
                            {"r1", "Reel A", "02:00:00:00", "02000000"},
                            {"r2", "", "01000000", "01:00:00:00"}});
  struct Case {
    const char* what;
    Strings query;
    Strings expect;
  } cases[] = {
      {"text is raw", {"", "01:00:00:00"}, {}},
      {"text ignores case", {"", "reel a"}, {"r1"}},
      {"raw time code ignores punctuation", {"", "", "01000000"}, {"r0", "r2"}},
      {"stored time code matched punctuated", {"", "", "", "01:00:00:00"}, {"r0", "r2"}},
      {"partial time code", {"", "", "", "02:00"}, {"r1"}},
      {"punctuation ignored on stored codes", {"", "", "", "0100"}, {"r0", "r2"}},
  };
  for (const Case& c : cases) {
    db->set_query(queryRecord(4, c.query).get());
    EXPECT_EQ(matching(*db), c.expect) << c.what;
  }
}

TEST(Query, DateColumnsMatchTheirCalendarForm) {
  const char* old_tz = std::getenv("TZ");
  std::string saved = old_tz ? old_tz : "";
  setenv("TZ", "UTC", 1);
  tzset();

  auto db = makeDb(Fields{{"Name", DBFieldTypes::kText}, {"Date", DBFieldTypes::kDosDate}},
                   {{"zero", "0"}, {"junk", "junk"}, {"year", "31536000"}, {"none", ""}, {"noon", "43200"}});
  struct Case {
    const char* what;
    const char* query;
    Strings expect;
  } cases[] = {
      {"epoch", "Thu Jan  1 00:00:00 1970", {"zero", "junk", "none"}},
      {"a year on", "Fri Jan  1 00:00:00 1971", {"year"}},
      {"time of day", "12:00:00", {"noon"}},
      {"seconds are not searched", "43200", {}},
  };
  for (const Case& c : cases) {
    db->set_query(queryRecord(2, {"", c.query}).get());
    EXPECT_EQ(matching(*db), c.expect) << c.what;
  }

  if (old_tz) {
    setenv("TZ", saved.c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  tzset();
}

TEST(Query, RangeRuleOnEachSpecialPair) {
  const char* pairs[][2] = {{"Start time", "End time"},         {"snd start", "snd end"},
                            {"start 24P code", "end 24P code"}, {"start keycode", "end keycode"},
                            {"start camcode", "end camcode"},   {"start inkcode", "end inkcode"}};
  Rows rows = {{"r0", "01:00:05:00", "01:00:20:00"},
               {"r1", "", "01:00:20:00"},
               {"r2", "02:00:00:00", "02:10:00:00"},
               {"r3", "01:00:10:00", ""}};
  struct Case {
    const char* query;
    Strings expect;
  } cases[] = {
      {"01:00:1", {"r0", "r3"}},  // inside r0's range; a prefix of r3's start
      {"01:00:2", {"r0"}},        // equal to r0's end over its length
      {"01:00:0", {"r0"}},        // a prefix of r0's start
      {"02", {"r2"}},
      {"01:01", {}},  // past r0's end
      {"00", {}},     // before every start
  };
  for (auto& pair : pairs) {
    auto db = makeDb(
        Fields{{"Name", DBFieldTypes::kText}, {pair[0], DBFieldTypes::kTimecode}, {pair[1], DBFieldTypes::kTimecode}},
        rows);
    for (const Case& c : cases) {
      for (unsigned column : {1u, 2u}) {  // a query in either column searches the same range
        Strings texts = {"", "", ""};
        texts[column] = c.query;
        db->set_query(queryRecord(3, texts).get());
        EXPECT_EQ(matching(*db), c.expect) << pair[0] << " column " << column << " query " << c.query;
      }
    }
  }
}

TEST(Query, RangeRuleEdges) {
  // Without the end column only a prefix of the start matches.
  auto no_end = makeDb(Fields{{"Name", DBFieldTypes::kText}, {"Start time", DBFieldTypes::kTimecode}},
                       {{"r0", "01:00:05:00"}, {"r3", "01:00:10:00"}});
  no_end->set_query(queryRecord(2, {"", "01:00:1"}).get());
  EXPECT_EQ(matching(*no_end), (Strings{"r3"}));

  // A column of a pair whose partner names the other pair: its start column is missing.
  auto mixed = makeDb(
      Fields{
          {"Name", DBFieldTypes::kText}, {"Start time", DBFieldTypes::kTimecode}, {"snd end", DBFieldTypes::kTimecode}},
      {{"r0", "01:00:05:00", "01:00:05:00"}});
  mixed->set_query(queryRecord(3, {"", "", "01"}).get());
  EXPECT_EQ(matching(*mixed), Strings{});
  mixed->set_query(queryRecord(3, {"", "01"}).get());
  EXPECT_EQ(matching(*mixed), (Strings{"r0"}));

  // Names are special only in their exact case: "start time" is searched as plain text.
  auto lower = makeDb(Fields{{"Name", DBFieldTypes::kText}, {"start time", DBFieldTypes::kText}},
                      {{"r0", "01:00:05:00"}, {"r3", "01:00:10:00"}});
  lower->set_query(queryRecord(2, {"", "00:1"}).get());
  EXPECT_EQ(matching(*lower), (Strings{"r3"}));

  // Only the first criterion is read; with no text it is no condition once a start exists.
  Fields fields = {
      {"Name", DBFieldTypes::kText}, {"Start time", DBFieldTypes::kTimecode}, {"End time", DBFieldTypes::kTimecode}};
  auto db = makeDb(fields, {{"r0", "01:00:05:00", "01:00:20:00"}, {"r1", "", "01:00:20:00"}});
  std::vector<TextSearch::Criteria> list(3);
  list[2].add(TextSearch::Criterion("", TextSearch::eContains));
  list[2].add(TextSearch::Criterion("zz", TextSearch::eContains));
  db->setQuery(list);
  EXPECT_EQ(matching(*db), (Strings{"r0"}));
  list[2] = TextSearch::Criteria(TextSearch::Criterion("01:00:1", TextSearch::eExact));
  list[2].add(TextSearch::Criterion("zz", TextSearch::eContains));
  db->setQuery(list);
  EXPECT_EQ(matching(*db), (Strings{"r0"}));  // the method and the second criterion are ignored
}

TEST(Query, TagAllDifferentTagsFirstOfEachRun) {
  std::string long255(255, 'x');
  struct Case {
    const char* what;
    Strings values;
    Strings tagged;  // Reel values of the tagged rows, in sorted order
  } cases[] = {
      {"case ignored, empty after values", {"a", "A", "b", ""}, {"A", "b", ""}},
      {"runs", {"b", "a", "b", "a", "a"}, {"a", "b"}},
      // The sort is case-sensitive, so upper case sorts apart and starts runs of its own.
      {"upper case apart", {"x", "X", "x", "y", "Y"}, {"X", "Y", "x", "y"}},
      {"empty run after a value", {"", "", "a"}, {"a", ""}},
      {"255 characters compare whole", {long255, long255}, {long255}},
      {"longer values are both tagged", {long255 + "a", long255 + "a"}, {long255 + "a", long255 + "a"}},
  };
  for (const Case& c : cases) {
    Rows rows;
    for (std::size_t i = 0; i < c.values.size(); ++i) rows.push_back({"n" + std::to_string(i), c.values[i]});
    auto db = makeDb(kWords, rows);
    db->set_all_tags(1);
    EXPECT_EQ(db->tag_all_different(1), static_cast<int>(c.tagged.size())) << c.what;
    EXPECT_EQ(columnOf(*db, 1, true), c.tagged) << c.what;
    EXPECT_EQ(db->getSortFieldIdx(), 1) << c.what;
  }

  // The sorted order is left in place and show-tags-only is turned off; only neighbours in
  // that order form runs, so B and b are both tagged.
  auto db = makeDb(kWords, {{"n0", "b"}, {"n1", "a"}, {"n2", "B"}});
  db->set_show_tags_only(1);
  EXPECT_EQ(db->tag_all_different(1), 3);
  EXPECT_EQ(db->get_show_tags_only(), 0);
  EXPECT_EQ(columnOf(*db, 1), (Strings{"B", "a", "b"}));

  // A column past the end: every value is empty, a leading empty run, nothing tagged.
  EXPECT_EQ(db->tag_all_different(99), 0);
}

}  // namespace
