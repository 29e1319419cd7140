// The database file: the exact text the writer produces, round trips of everything a file
// carries, damaged headers and the state they leave, and the comma-separated input form.

#include <gtest/gtest.h>

#include <climits>

#include "common/TestUtil.h"
#include "record/StoreTestUtil.h"
#include "support/Config.h"
#include "support/Log.h"

namespace {

using namespace storetest;

constexpr const char* kNotAllFilled = "kesta::add_text: returning because not all fields filled\n";
constexpr const char* kNoMoreLines = "kesta::add_text: returning because no more lines\n";

std::vector<int> typesOf(const kesta& db) {
  std::vector<int> out;
  for (unsigned f = 0; f < db.get_num_fields(); ++f) out.push_back(db.get_field_type(f));
  return out;
}

class KestaFile : public ::testing::Test {
 protected:
  // Writes `text` as `name` in the test folder and loads it, capturing the log.
  Zr::Ptr<kesta> load(const std::string& text, const std::string& name = "db.kst", int maxRecords = INT_MAX,
                      bool strict = true) {
    testutil::writeFile(dir_.file(name), text);
    capture_.clear();
    return Zr::Ptr<kesta>(new kesta(dir_.wfile(name), maxRecords, strict));
  }
  std::string log() const { return capture_.text(); }

  testutil::TempDir dir_;
  CapturingLogSink capture_;
};

const char* const kGolden =
    "\"KESTA:Rev 1\"\n\"Mode:x\"\n\"KESTA\"\n\"32\",\"12\",\"1\"\n\"text\",\"timecode\",\"text\"\n"
    "\"Name\",\"Start time\",\"Tag\"\n\"Shot 1\",\"01:00:00:00\",\"0\"\n\"Shot 2\",\"01:00:10:00\",\"1\"\n";

TEST_F(KestaFile, WritesTheExampleDatabaseExactly) {
  auto db = makeDb({{"Name", T::kText}, {"Start time", T::kTimecode}, {"Tag", T::kText}},
                   {{"Shot 1", "01:00:00:00"}, {"Shot 2", "01:00:10:00"}});
  db->set_param_val("Mode", "x");
  db->get_record(1)->set_tag(1);
  db->set_filename(dir_.wfile("example.kst"));
  EXPECT_EQ(db->save_text(), 2);
  EXPECT_EQ(testutil::readFile(dir_.file("example.kst")), kGolden);
  for (unsigned r = 0; r < 2; ++r) EXPECT_FALSE(db->get_record(r)->changed()) << "writing clears the mark";
  EXPECT_EQ(db->save_text_without_header(), 2);
  EXPECT_EQ(testutil::readFile(dir_.file("example.kst")),
            "\"KESTA:Rev 1\"\n\"Mode:x\"\n\"Name\",\"Start time\",\"Tag\"\n"
            "\"Shot 1\",\"01:00:00:00\",\"0\"\n\"Shot 2\",\"01:00:10:00\",\"1\"\n");

  // Lines ended by carriage returns load the same; widths grow with the longest value.
  auto back = load(kGolden, "lf.kst");
  EXPECT_EQ(rowsOf(*back), (Rows{{"Shot 1", "01:00:00:00", "0"}, {"Shot 2", "01:00:10:00", "1"}}));
  std::string crlf;
  for (const char* p = kGolden; *p; ++p) crlf += *p == '\n' ? std::string("\r\n") : std::string(1, *p);
  auto from_crlf = load(crlf, "crlf.kst");
  EXPECT_EQ(rowsOf(*from_crlf), rowsOf(*back));
  EXPECT_EQ(paramsOf(*from_crlf), (Strings{"KESTA=Rev 1", "Mode=x"}));
  back->set_field(0, 0, std::string(40, 'n').c_str());
  EXPECT_EQ(back->save_text(), 2);
  EXPECT_NE(testutil::readFile(dir_.file("lf.kst")).find("\n\"40\",\"12\",\"1\"\n"), std::string::npos);
}

TEST_F(KestaFile, RoundTripKeepsEverythingTheFileCarries) {
  const std::vector<DBFieldDesc> fields = {
      {"Name", T::kText},     {"Start time", T::kTimecode}, {"Flag", T::kChar},   {"Odd", static_cast<T::eType>('B')},
      {"Count", T::kNumeric}, {"When", T::kDate},           {"Scene", T::kTextS}, {"Notes", T::kText},
      {"Tag", T::kText}};
  auto db = makeDb(fields, {{"Shot 1", "01:00:00:00", "y", "b", "12", "2024-06-11", "12A", "say \"hi\", twice"},
                            {"Shot 2", "01:00:10:00", "", "", "-3", "", "12", "line one\nline two"},
                            {"Shot, 3", "", "n", "", "", "", "", "back\\\\slash"}});
  db->set_param_val("Production", "Night Harbour");
  db->set_param_val("Editor", "A. Smith, B. Jones");
  setTags(*db, {0, 1, 7});
  db->set_filename(dir_.wfile("round.kst"));
  ASSERT_EQ(db->save_text(), 3);
  const std::string text = testutil::readFile(dir_.file("round.kst"));
  EXPECT_NE(text.find("\"text\",\"timecode\",\"c\",\"B\",\"numeric\",\"date\",\"text_s\",\"text\",\"text\"\n"),
            std::string::npos)
      << text;

  auto back = load(text, "again.kst");
  EXPECT_EQ(back->get_valid(), 1);
  EXPECT_EQ(namesOf(*back), namesOf(*db));
  EXPECT_EQ(typesOf(*back), typesOf(*db));
  EXPECT_EQ(paramsOf(*back), paramsOf(*db));
  EXPECT_EQ(rowsOf(*back), rowsOf(*db));
  EXPECT_EQ(columnOf(*back, 8), (Strings{"0", "1", "7"}));
  EXPECT_EQ(back->changed(), 0) << "a load ends unchanged";
  for (unsigned r = 0; r < back->get_num_records(); ++r) EXPECT_FALSE(back->get_record(r)->changed());
  EXPECT_EQ(log(), "");
}

// Damaged headers; the other damaged inputs are cases of MalformedFiles. The strict flag only
// decides what a file with parameters and no marker loads to.
TEST_F(KestaFile, DamagedHeadersEndInTheirStates) {
  struct Case {
    const char* what;
    std::string text;
    bool strict;
    int valid;
    unsigned fields, params;
    Strings names;  // first column of the records loaded
  } cases[] = {
      {"no KESTA: line", "\"Name\",\"Reel\"\n\"a\",\"b\"\n", true, 0, 0, 0, {}},
      {"unquoted and lower-case header", "kesta:rev 1\nkesta\n1\ntext\nName\nplain\n", true, 1, 1, 1, {"plain"}},
      {"no marker, strict", "\"KESTA:Rev 1\"\n\"Mode:x\"\n", true, 0, 0, 2, {}},
      {"no marker, not strict", "\"KESTA:Rev 1\"\n\"Mode:x\"\n\"Name\",\"Reel\"\n", false, 1, 0, 2, {}},
      {"header cut after the marker", "\"KESTA:Rev 1\"\n\"KESTA\"\n", true, 1, 0, 1, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    auto db = load(c.text, "damaged.kst", INT_MAX, c.strict);
    EXPECT_EQ(db->get_valid(), c.valid);
    EXPECT_EQ(db->get_num_fields(), c.fields);
    EXPECT_EQ(db->num_params(), c.params);
    EXPECT_EQ(columnOf(*db, 0), c.names);
    EXPECT_EQ(log(), "");
  }
}

TEST_F(KestaFile, ParameterLines) {
  auto db = load(
      "\"KESTA:  Rev 1\"\n\":starts with a colon\"\n\"no colon here\"\n\n\"Mode:x\"\n\"Take: 3\"\n\"Take:4\"\n"
      "\"  Spaced key : v:w\"\n\"Notes:a,b\"\n\"KESTA\"\n\"32\"\n\"text\"\n\"Name\"\n\"a\"\n");
  // Pairs are appended as read: duplicates stay and the first answers.
  EXPECT_EQ(paramsOf(*db), (Strings{"KESTA=Rev 1", "Mode=x", "Take=3", "Take=4", "Spaced key =v:w", "Notes=a,b"}));
  EXPECT_STREQ(db->get_param_val("take"), "3");
  EXPECT_EQ(db->get_num_records(), 1u);
  EXPECT_EQ(log(), "");
}

TEST_F(KestaFile, RecordLimits) {
  const std::string text = "\"KESTA:Rev 1\"\n\"Mode:x\"\n\"KESTA\"\n\"32\"\n\"text\"\n\"Name\"\n\"a\"\n\"b\"\n\"c\"\n";
  struct Case {
    int max;
    Strings names;
  } cases[] = {{0, {}}, {-5, {}}, {2, {"a", "b"}}, {3, {"a", "b", "c"}}, {INT_MAX, {"a", "b", "c"}}};
  for (const Case& c : cases) {
    auto db = load(text, "limits.kst", c.max);
    EXPECT_EQ(db->get_valid(), 1) << c.max;
    EXPECT_EQ(db->num_params(), 2u) << c.max;
    EXPECT_EQ(columnOf(*db, 0), c.names) << c.max;
    EXPECT_EQ(log(), "") << c.max;
  }
  // A load replaces columns and parameters but appends to the records already held.
  auto db = load(text, "limits.kst", 2);
  db->loadFromFile(dir_.wfile("limits.kst"), 1, true);
  EXPECT_EQ(columnOf(*db, 0), (Strings{"a", "b", "a"}));
  EXPECT_EQ(db->num_params(), 2u);
  EXPECT_EQ(db->changed(), 0);
}

TEST_F(KestaFile, LoadTextSkipsTheFirstLine) {
  kesta db(std::vector<DBFieldDesc>{{"Name", T::kText}, {"Reel", T::kText}});
  db.set_filename(dir_.wfile("lines.kst"));
  struct Case {
    const char* text;
    int answer;
    std::string log;
  } cases[] = {
      {"\"x\",\"y\"\n\"a\",\"b\"\n\"c\",\"d\"\n", 2, ""},  // the first line replaced by the second
      {"\"x\",\"y\"\n", 0, kNoMoreLines},
      {"\"x\"\n\"a\",\"b\"\n", 0, kNotAllFilled},
  };
  for (const Case& c : cases) {
    testutil::writeFile(dir_.file("lines.kst"), c.text);
    capture_.clear();
    EXPECT_EQ(db.load_text(INT_MAX), c.answer) << c.text;
    EXPECT_EQ(log(), c.log) << c.text;
  }
  EXPECT_EQ(columnOf(db, 0), (Strings{"a", "c"}));
  db.set_filename(dir_.wfile("absent.kst"));
  EXPECT_EQ(db.load_text(INT_MAX), 0);
}

TEST_F(KestaFile, CommaSeparatedInput) {
  auto db = load("a,b,c\n1,2\n", "a.csv");
  EXPECT_EQ(db->get_valid(), 1);
  EXPECT_EQ(namesOf(*db), (Strings{"a", "b", "c"}));
  EXPECT_EQ(db->changed(), 1) << "changed marks stay after this form";

  // Quote-aware split: pieces keep their quotes; a backslash-quote does not open a stretch;
  // pieces past the columns are dropped; lines without pieces add nothing; no record limit.
  auto quoted = load("Name,Notes\nx,\"y,z\"\n  w ,\"q\",extra\n\na\\\"b,c\nsolo\n", "q.csv", 1);
  EXPECT_EQ(rowsOf(*quoted), (Rows{{"x", "\"y,z\""}, {"w ", "\"q\""}, {"a\\\"b", "c"}, {"solo", ""}}));
  // Each store marks its record, a store of an empty piece too.
  auto commas = load("a,b\n,\nx,\n", "c.csv");
  ASSERT_EQ(commas->get_num_records(), 2u);
  EXPECT_TRUE(commas->get_record(0)->changed() && commas->get_record(1)->changed());
  // A class of its own gets each piece, as it stands, through its row setter.
  struct SetterSpy : kesta {
    int set_field(unsigned row, unsigned field, const char* value) override {
      stores.push_back(std::to_string(row) + "." + std::to_string(field) + "=" + value);
      return kesta::set_field(row, field, value);
    }
    Strings stores;
  } spy;
  testutil::writeFile(dir_.file("spy.csv"), "a,b\n x,\n");
  spy.loadFromFile(dir_.wfile("spy.csv"), INT_MAX, true);
  EXPECT_EQ(spy.stores, (Strings{"0.0= x", "0.1="}));
  EXPECT_EQ(rowsOf(spy), (Rows{{"x", ""}}));
  for (const char* text : {"", "\n1,2\n"}) {
    auto empty = load(text, "empty.csv");
    EXPECT_EQ(empty->get_valid(), 1);
    EXPECT_EQ(empty->get_num_fields() + empty->get_num_records(), 0u);
  }
}

TEST_F(KestaFile, SaveAnswers) {
  kesta empty(std::vector<DBFieldDesc>{{"Name", T::kText}});
  empty.set_filename(dir_.wfile("empty.kst"));
  EXPECT_EQ(empty.save_text(), 0) << "no records written";
  // Without parameters the file starts at the marker, and such a file does not load back.
  EXPECT_EQ(testutil::readFile(dir_.file("empty.kst")), "\"KESTA\"\n\"32\"\n\"text\"\n\"Name\"\n");

  // Every record of the full list is written, whatever the tag display mode.
  auto shown = makeDb<FullCountKesta>({{"Name", T::kText}}, {{"a"}, {"b"}, {"c"}});
  shown->set_tag(1, 1);
  shown->set_show_tags_only(1);
  shown->set_filename(dir_.wfile("shown.kst"));
  EXPECT_EQ(shown->save_text(), 3);
}

TEST_F(KestaFile, ExampleLogsLoadAndSaveBackUnchanged) {
  const std::string original = testutil::readFile(testutil::example("dailies.kst"));
  testutil::writeFile(dir_.file("dailies.kst"), original);
  kesta db(dir_.wfile("dailies.kst"), INT_MAX, true);
  ASSERT_EQ(db.get_valid(), 1);
  EXPECT_EQ(namesOf(db),
            (Strings{"Cookie", "Name", "Reel", "Scene", "Shot", "Start time", "End time", "Duration", "snd reel",
                     "snd start", "snd end", "start keycode", "end keycode", "Who", "Description", "Notes", "Tag"}));
  EXPECT_EQ(db.get_field_type(5), T::kTimecode);
  EXPECT_GE(db.get_num_records(), 150u);

  // The loader keeps tags at 0; given the tags their Tag column names, the writer must
  // reproduce the file byte for byte.
  const unsigned tag = db.get_fieldnum("Tag");
  unsigned tagged = 0;
  for (unsigned r = 0; r < db.get_num_records(); ++r) {
    int value = 0;
    db.in_field(r, tag, value);
    db.set_tag(r, value);
    tagged += value != 0;
  }
  EXPECT_GT(tagged, 0u);
  db.set_filename(dir_.wfile("again.kst"));
  EXPECT_EQ(db.save_text(), static_cast<int>(db.get_num_records()));
  EXPECT_EQ(testutil::readFile(dir_.file("again.kst")), original);
}

// A log read through a mapping of its file loads as one read into memory; saved over its own
// file, it still reads the bytes it mapped; and it lets the mapping go when it goes.
TEST_F(KestaFile, MappedLogsLoadAsReadOnesAndOutliveTheirFile) {
  testutil::writeFile(dir_.file("dailies.kst"), testutil::readFile(testutil::example("dailies.kst")));
  auto is_mapped = [&] {
    return testutil::readFile("/proc/self/maps").find(dir_.file("dailies.kst")) != std::string::npos;
  };
  kesta read(dir_.wfile("dailies.kst"), INT_MAX, true);
  config_set_int("map_files", 1);
  Zr::Ptr<kesta> db(new kesta(dir_.wfile("dailies.kst"), INT_MAX, true));
  config_unset_int("map_files");
  ASSERT_TRUE(is_mapped());
  EXPECT_EQ(db->get_valid(), 1);
  EXPECT_EQ(paramsOf(*db), paramsOf(read));
  EXPECT_EQ(namesOf(*db), namesOf(read));
  const Rows rows = rowsOf(read);
  EXPECT_EQ(rowsOf(*db), rows);

  db->set_field(0, 1, "renamed");
  EXPECT_EQ(db->save_text(), static_cast<int>(rows.size()));
  testutil::writeFile(dir_.file("dailies.kst"), "\"KESTA:Rev 1\"\n");
  Rows expected = rows;
  expected[0][1] = "renamed";
  for (auto& row : expected) row.back() = "0";  // the save stored each record's tag
  EXPECT_EQ(rowsOf(*db), expected);
  db = nullptr;
  EXPECT_FALSE(is_mapped());
}

// A load filter sees each record with its fields and database, keeps what it accepts, counts
// what it drops, and a record limit counts both; a CSV file is read whole.
TEST_F(KestaFile, LoadFiltersKeepWhatTheyAccept) {
  testutil::writeFile(dir_.file("db.kst"), kGolden);
  testutil::writeFile(dir_.file("db.csv"), "Name,Tag\nShot 1,0\nShot 2,1\n");
  kesta db;
  Strings seen;
  db.set_load_filter([&](const Zr::Ptr<dbrecord>& record) {
    EXPECT_EQ(record->get_container(), &db);
    seen.emplace_back(db.getField(0, 0).c_str());  // the records kept so far are rows already
    return record->fieldView(2) == "1";
  });
  db.loadFromFile(dir_.wfile("db.kst"), INT_MAX, true);
  EXPECT_EQ(rowsOf(db), (Rows{{"Shot 2", "01:00:10:00", "1"}}));
  EXPECT_EQ(db.records_dropped(), 1u);
  EXPECT_EQ(seen, (Strings{"", ""}));
  EXPECT_EQ(db.changed(), 0);

  db.set_load_filter([](const Zr::Ptr<dbrecord>&) { return false; });
  db.loadFromFile(dir_.wfile("db.kst"), 1, true);
  EXPECT_EQ(db.get_num_records(), 1u) << "the records held before stay";
  EXPECT_EQ(db.records_dropped(), 1u) << "the limit counts the dropped record";
  kesta csv;
  csv.set_load_filter([](const Zr::Ptr<dbrecord>&) { return false; });
  csv.loadFromFile(dir_.wfile("db.csv"), INT_MAX, true);
  EXPECT_EQ(csv.get_num_records(), 2u);
}

// Loading a second file into the same database must answer with the new file's columns.
TEST_F(KestaFile, ReloadColumnLookupsFollowTheNewFile) {
  auto db = load(
      "\"KESTA:Rev 1\"\n\"KESTA\"\n\"1\",\"12\"\n\"text\",\"timecode\"\n\"Tag\",\"Start time\"\n"
      "\"1\",\"01:00:00:00\"\n",
      "a.kst", 100, false);
  ASSERT_EQ(db->get_fieldnum("Tag"), 0u);
  testutil::writeFile(dir_.file("b.kst"),
                      "\"KESTA:Rev 1\"\n\"KESTA\"\n\"12\",\"100\",\"1\"\n\"timecode\",\"text\",\"text\"\n"
                      "\"End time\",\"Notes\",\"Tag\"\n\"01:00:10:00\",\"keep me\",\"0\"\n");
  db->loadFromFile(dir_.wfile("b.kst"), 100, false);
  EXPECT_EQ(db->get_fieldnum("Tag"), 2u);
  EXPECT_EQ(db->get_fieldnum("Start time"), kNone);
  // Queries treat the new "End time" as a range column: without a "Start time" nothing
  // matches, where the old column's flags would have found the row.
  dbrecord query(3);
  query.set_field(0, "01:00:1");
  db->set_query(&query);
  EXPECT_EQ(db->tag_matching_records(0), 0);
}

}  // namespace
