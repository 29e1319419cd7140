// The commands on small logs whose every value is known, checked against exact output and
// against the written logs read back with the library.

#include <algorithm>

#include "KstTest.h"

namespace ksttest {
namespace {

const Strings kTypes = {"text", "text", "timecode", "timecode", "text", "text"};
const Strings kNames = {"Name", "Reel", "Start time", "End time", "Notes", "Tag"};

class KstCommands : public KstTest {
 protected:
  // Three clips; the second is tagged. The first note holds quotes and a comma, the third a
  // line break (written in the log as backslash-n).
  std::string clips(const std::string& name = "clips.kst", const Strings& params = {"KESTA:Rev 1", "Mode:x"}) {
    return put(name, logText(params, kTypes, kNames,
                             {{"Sc 1 Tk 1", "A010", "01:00:05:00", "01:00:20:00", "say \"hi\", then go", "0"},
                              {"Sc 1 Tk 2", "A2", "01:00:30:00", "01:00:40:00", "", "1"},
                              {"Sc 2 Tk 1", "a001", "02:00:00:00", "02:00:10:00", "line one\\nline two", "0"}}));
  }
  Strings col(const std::string& name, const char* column_name) { return column(*load(name), column_name); }
};

TEST_F(KstCommands, ShowPrintsEachFormatFitsAWidthAndFollowsTheFieldMap) {
  const std::string file = clips();
  // The field map shows Start time, then Name; Reel is hidden and the rest are not listed.
  const std::string mapped = clips("mapped.kst", {"KESTA:Rev 1", "V5_FIELD_MAP:3 1 -2"});
  const struct {
    Strings args;
    std::string out;
  } cases[] = {
      {{"show", file},
       "Name       Reel  Start time   End time     Notes               Tag\n"
       "---------  ----  -----------  -----------  ------------------  ---\n"
       "Sc 1 Tk 1  A010  01:00:05:00  01:00:20:00  say \"hi\", then go   0\n"
       "Sc 1 Tk 2  A2    01:00:30:00  01:00:40:00                      1\n"
       "Sc 2 Tk 1  a001  02:00:00:00  02:00:10:00  line one\\nline two  0\n"},
      {{"show", file, "--width", "40"},
       "Name       Reel  Start time  End time\n"
       "---------  ----  ----------  ----------\n"
       "Sc 1 Tk 1  A010  01:00:05:\u2026  01:00:20:\u2026\n"
       "Sc 1 Tk 2  A2    01:00:30:\u2026  01:00:40:\u2026\n"
       "Sc 2 Tk 1  a001  02:00:00:\u2026  02:00:10:\u2026\n"
       "(2 more columns not shown)\n"},
      {{"show", file, "--columns", "Name, Notes", "--format", "csv"},
       "Name,Notes\r\nSc 1 Tk 1,\"say \"\"hi\"\", then go\"\r\nSc 1 Tk 2,\r\nSc 2 Tk 1,\"line one\nline two\"\r\n"},
      {{"show", file, "--columns", "notes,reel", "--format", "tsv", "--limit", "3"},
       "Notes\tReel\nsay \"hi\", then go\tA010\n\tA2\nline one\\nline two\ta001\n"},
      {{"show", file, "--columns", "Reel,Notes", "--format", "json", "--limit", "1"},
       "[\n  {\"Reel\": \"A010\", \"Notes\": \"say \\\"hi\\\", then go\"}\n]\n"},
      {{"show", file, "--tagged", "--columns", "Name", "--format", "csv"}, "Name\r\nSc 1 Tk 2\r\n"},
      {{"show", file, "--limit", "0", "--format", "json"}, "[]\n"},
      {{"show", mapped, "--format", "csv", "--limit", "1"}, "Start time,Name\r\n01:00:05:00,Sc 1 Tk 1\r\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    Result r = kstOk(c.args);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, c.out);
  }
  // Wide enough for everything: nothing is cut; --width 0 never cuts.
  const std::string full = kst({"show", file, "--width", "0"}).out;
  EXPECT_EQ(kst({"show", file, "--width", "66"}).out, full);
  EXPECT_EQ(kst({"show", file}).out, full);
  Result cut = kst({"show", file, "--width", "65"});
  EXPECT_NE(cut.out.find("\u2026"), std::string::npos);
  for (const std::string& line : lines(cut.out)) {
    std::size_t points = 0;
    for (unsigned char c : line) points += (c & 0xC0) != 0x80;
    EXPECT_LE(points, 65u) << line;
  }
}

// A control character is shown escaped, and a two-byte character takes one place, wherever
// in a cell it is: cells of 1 to 17 characters with the odd one at each place, in rows with
// and without a control character.
TEST_F(KstCommands, ShowFindsControlsAndWideCharactersAnywhereInACell) {
  std::vector<Strings> rows;
  Strings expected;
  for (std::size_t length = 1; length <= 17; ++length) {
    for (std::size_t at = 0; at < length; ++at) {
      const char control = (length + at) % 2 ? '\x01' : '\x7f';
      std::string wide(length - 1, 'y'), odd(length, 'x'), shown = odd;
      wide.insert(at, "\xC3\xA9");
      odd[at] = control;
      shown.replace(at, 1, control == '\x01' ? "\\x01" : "\\x7f");
      rows.push_back({wide, odd});
      expected.push_back(wide + std::string(17 - length + 2, ' ') + shown);
      // The same wide value in a line with nothing to escape.
      rows.push_back({wide, "x"});
      expected.push_back(wide + std::string(17 - length + 2, ' ') + "x");
    }
  }
  put("odd.kst", logText({"KESTA:Rev 1"}, {"text", "text"}, {"Wide", "Odd"}, rows));
  const Strings shown = lines(kstOk({"show", path("odd.kst"), "--width", "0"}).out);
  ASSERT_EQ(shown.size(), expected.size() + 2);
  EXPECT_EQ(shown[1], std::string(17, '-') + "  " + std::string(20, '-'));
  EXPECT_EQ(Strings(shown.begin() + 2, shown.end()), expected);
}

// JSON escapes a value for any one of the bytes that need it, alone in an otherwise plain value.
TEST_F(KstCommands, JsonEscapesEachByteThatNeedsIt) {
  put("one.kst",
      logText({"KESTA:Rev 1"}, {"text"}, {"Notes"}, {{"a\\b"}, {"del\x7f"}, {"q\"q"}, {"caf\xE9"}, {"plain"}}));
  EXPECT_EQ(kst({"show", path("one.kst"), "--format", "json"}).out,
            "[\n  {\"Notes\": \"a\\\\b\"},\n  {\"Notes\": \"del\\u007f\"},\n  {\"Notes\": \"q\\\"q\"},\n"
            "  {\"Notes\": \"caf\\u00e9\"},\n  {\"Notes\": \"plain\"}\n]\n");
}

// Output larger than the pieces it is written in: every row arrives whole, in order, laid out
// as in a small table.
TEST_F(KstCommands, ShowAndConvertStreamLargeOutputWhole) {
  constexpr int kRows = 20000;  // about 2 MB of table
  std::vector<Strings> rows;
  const std::string notes(60, 'n');
  for (int i = 0; i < kRows; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "clip %05d", i);
    rows.push_back({name, i % 2 ? "A2" : "A010", "01:00:05:00", "01:00:20:00", notes + (i % 3 ? "" : ", x"), "0"});
  }
  const std::string file = put("big.kst", logText({"KESTA:Rev 1"}, kTypes, kNames, rows));
  const Strings shown = lines(kstOk({"show", file, "--width", "0"}).out);
  kstOk({"convert", file, path("big.csv")}, {"big.csv"});
  const Strings written = lines(read("big.csv"));
  ASSERT_EQ(shown.size(), kRows + 2u);
  ASSERT_EQ(written.size(), kRows + 1u);
  EXPECT_EQ(shown[0], "Name        Reel  Start time   End time     Notes" + std::string(60, ' ') + "Tag");
  for (int i = 0; i < kRows; ++i) {
    const Strings& row = rows[static_cast<std::size_t>(i)];
    const bool comma = i % 3 == 0;
    const std::string reel = row[1] + std::string(6 - row[1].size(), ' ');
    EXPECT_EQ(shown[static_cast<std::size_t>(i) + 2],
              row[0] + "  " + reel + row[2] + "  " + row[3] + "  " + row[4] + (comma ? "  " : "     ") + "0")
        << i;
    EXPECT_EQ(written[static_cast<std::size_t>(i) + 1], row[0] + "," + row[1] + "," + row[2] + "," + row[3] + "," +
                                                            (comma ? "\"" + row[4] + "\"" : row[4]) + ",0\r")
        << i;
  }
}

TEST_F(KstCommands, InfoDescribesTheLog) {
  std::string file = clips("clips.kst", {"KESTA:Rev 1", "Mode:x", "V5_FIELD_MAP:1 -2"});
  Result info = kstOk({"info", file});
  EXPECT_EQ(info.out, "file        " + file +
                          "\n"
                          "revision    1\nrecords     3\ntagged      1\nparameters  3\n"
                          "  key           value\n"
                          "  ------------  -----\n"
                          "  KESTA         Rev 1\n"
                          "  Mode          x\n"
                          "  V5_FIELD_MAP  1 -2\n"
                          "columns     6\n"
                          "  #  name        type      width  shown\n"
                          "  -  ----------  --------  -----  -----\n"
                          "  1  Name        text      32     yes\n"
                          "  2  Reel        text      10     no\n"
                          "  3  Start time  timecode  12     no\n"
                          "  4  End time    timecode  12     no\n"
                          "  5  Notes       text      100    no\n"
                          "  6  Tag         text      1      no\n");
  Result json = kst({"info", file, "--format", "json"});
  EXPECT_NE(json.out.find("\"records\": 3,\n  \"tagged\": 1,"), std::string::npos) << json.out;
  EXPECT_NE(json.out.find(
                "{\"number\": 3, \"name\": \"Start time\", \"type\": \"timecode\", \"width\": 12, \"shown\": false}"),
            std::string::npos)
      << json.out;
}

TEST_F(KstCommands, SortUsesTheLibrarysOrders) {
  std::string file = clips();
  struct Case {
    Strings options;
    Strings reels;
  } cases[] = {
      {{}, {"A2", "A010", "a001"}},                 // numbers by value, upper case first
      {{"--ignore-case"}, {"a001", "A010", "A2"}},  // plain text ignoring case
      {{"--desc"}, {"A2", "A010", "a001"}},         // plain text ignoring case, reversed
  };
  for (const auto& c : cases) {
    Strings args{"sort", file, "--by", "Reel", "-o", path("sorted.kst")};
    args.insert(args.end(), c.options.begin(), c.options.end());
    ASSERT_EQ(kstOk(args, {"sorted.kst"}).err, "kst: sorted 3 records\n");
    auto db = load("sorted.kst");
    EXPECT_EQ(column(*db, "Reel"), c.reels);
    // The tag travels with its record.
    EXPECT_EQ(
        column(*db, "Tag")[static_cast<std::size_t>(std::find(c.reels.begin(), c.reels.end(), "A2") - c.reels.begin())],
        "1");
  }
  // Two keys, to standard output, quietly.
  Result out = kstOk({"-q", "sort", file, "--by", "Tag,Name", "--desc", "-o", "-"});
  EXPECT_EQ(out.err, "");
  Strings got = lines(out.out);
  ASSERT_EQ(got.size(), 9u);
  EXPECT_EQ(got[0], "\"KESTA:Rev 1\"");
  EXPECT_EQ(got[6].substr(0, 12), "\"Sc 1 Tk 2\",");
  EXPECT_EQ(got[7].substr(0, 12), "\"Sc 2 Tk 1\",");
  EXPECT_EQ(got[8].substr(0, 12), "\"Sc 1 Tk 1\",");

  // --in-place replaces the input.
  kstOk({"sort", file, "--by", "Name", "--desc", "--in-place"}, {"clips.kst"});
  EXPECT_EQ(col("clips.kst", "Name"), (Strings{"Sc 2 Tk 1", "Sc 1 Tk 2", "Sc 1 Tk 1"}));
}

TEST_F(KstCommands, FindPrintsOrTagsTheMatches) {
  std::string file = clips();
  struct Case {
    Strings conditions;
    std::string names;  // the printed Name column, CSV
  } cases[] = {
      {{"Start time=01:00:1"}, "Sc 1 Tk 1\r\n"},  // inside 01:00:05:00..01:00:20:00
      {{"End time=01:00:1"}, "Sc 1 Tk 1\r\n"},    // either column of the pair searches the range
      {{"Start time=01:00:3"}, "Sc 1 Tk 2\r\n"},  // a prefix of the start
      {{"Notes=HI"}, "Sc 1 Tk 1\r\n"},            // contains, ignoring case
      {{"Reel=a0", "Name=Tk 1"}, "Sc 1 Tk 1\r\nSc 2 Tk 1\r\n"},
      {{"Reel=a0", "Name=Sc 2"}, "Sc 2 Tk 1\r\n"},  // every condition must match
      {{"Reel=zzz"}, ""},
  };
  for (const auto& c : cases) {
    Strings args{"find", file};
    args.insert(args.end(), c.conditions.begin(), c.conditions.end());
    for (const char* o : {"--columns", "Name", "--format", "csv"}) args.push_back(o);
    EXPECT_EQ(kstOk(args).out, "Name\r\n" + c.names) << c.conditions[0];
  }

  // Tagging replaces the tags, or adds to them with --keep-tags; the Tag column keeps them.
  EXPECT_EQ(kstOk({"find", file, "Notes=hi", "-o", path("tagged.kst")}, {"tagged.kst"}).err,
            "kst: 1 record matches; 1 record tagged\n");
  EXPECT_EQ(col("tagged.kst", "Tag"), (Strings{"1", "0", "0"}));
  Result keep = kst({"find", file, "Notes=hi", "--keep-tags", "-o", path("tagged.kst")}, {"tagged.kst"});
  EXPECT_EQ(keep.err, "kst: 1 record matches; 2 records tagged\n");
  EXPECT_EQ(col("tagged.kst", "Tag"), (Strings{"1", "1", "0"}));

  // A log without a "Tag" column gets one, or the tags would be lost.
  put("untagged.kst", logText({"KESTA:Rev 1"}, {"text"}, {"Name"}, {{"x"}, {"y"}}));
  Result added = kst({"find", path("untagged.kst"), "Name=y", "-o", path("out.kst")}, {"out.kst"});
  EXPECT_EQ(added.err, "kst: added a \"Tag\" column to keep the tags\nkst: 1 record matches; 1 record tagged\n");
  EXPECT_EQ(col("out.kst", "Tag"), (Strings{"0", "1"}));
}

// A find that only prints keeps only the matches as it loads; what it prints must be what the
// tagging find writes, and a damaged log must be reported as the whole load reports it.
TEST_F(KstCommands, PrintingFindShowsWhatTaggingFindTags) {
  const std::string log = put("dailies.kst", testutil::readFile(testutil::example("dailies.kst")));
  const Strings columns{"--columns", "Name,Reel,Scene,Start time,End time,Notes", "--width", "0"};
  std::vector<std::size_t> printed_lines;
  for (const Strings& query : {Strings{"Scene=12"}, Strings{"Start time=01:2", "Notes=o"}, Strings{"Reel=a00"},
                               Strings{"Notes=no such note"}, Strings{}}) {
    for (bool keep : {false, true}) {
      Strings find{"find", log};
      find.insert(find.end(), query.begin(), query.end());
      if (keep) find.push_back("--keep-tags");
      Strings tag = find;
      tag.insert(tag.end(), {"-o", path("tagged.kst")});
      ASSERT_NO_FATAL_FAILURE(kstOk(tag, {"tagged.kst"}));
      find.insert(find.end(), columns.begin(), columns.end());
      Strings show{"show", path("tagged.kst"), "--tagged"};
      show.insert(show.end(), columns.begin(), columns.end());
      const Result printed = kstOk(find), shown = kst(show);
      EXPECT_EQ(printed.out, shown.out) << testing::PrintToString(find);
      printed_lines.push_back(lines(printed.out).size());
    }
  }
  // Only the note no record holds, without tags kept, prints the header and its rule alone.
  EXPECT_EQ(std::count(printed_lines.begin(), printed_lines.end(), 2u), 1) << testing::PrintToString(printed_lines);
  EXPECT_EQ(printed_lines[6], 2u);

  // A bad record line after records that match nothing, or with a condition on a column the
  // log lacks: the damage is reported first, the records read before it counted in full.
  std::vector<Strings> rows(300, Strings{"clip", "A001"});
  rows.push_back({"clip", "A002", "stray"});
  put("bad.kst", logText({"KESTA:Rev 1"}, {"text", "text"}, {"Name", "Reel"}, rows));
  for (const char* condition : {"Reel=zzz", "Nope=1"}) {
    const Result printing = kst({"find", path("bad.kst"), condition});
    const Result tagging = kst({"find", path("bad.kst"), condition, "-o", path("out.kst")});
    EXPECT_EQ(printing.status, 1);
    EXPECT_EQ(printing.err, tagging.err);
    EXPECT_NE(printing.err.find("300 records were read before it"), std::string::npos) << printing.err;
  }
}

TEST_F(KstCommands, ASaveSaysWhenTagTextsAreReplaced) {
  put("odd.kst", logText({"KESTA:Rev 1"}, {"text", "text"}, {"Name", "Tag"}, {{"a", "keep"}, {"b", "1"}, {"c", ""}}));
  Result r = kstOk({"sort", path("odd.kst"), "--by", "Name", "--desc", "-o", path("out.kst")}, {"out.kst"});
  EXPECT_EQ(r.err, "kst: warning: " + path("out.kst") +
                       ": the \"Tag\" column keeps tag numbers; 1 value there became 0 or 1 (record 3 held \"keep\")\n"
                       "kst: sorted 3 records\n");
  EXPECT_EQ(col("out.kst", "Tag"), (Strings{"0", "1", "0"}));
}

// A record is tagged when its Tag text reads as a non-zero number, as strtol reads it.
TEST_F(KstCommands, TagTextsThatReadAsNonZeroNumbersTagTheirRecords) {
  const std::string file = put("tags.kst", logText({"KESTA:Rev 1"}, {"text", "text"}, {"Name", "Tag"},
                                                   {{"n1", "007"},
                                                    {"n2", "00"},
                                                    {"n3", "-1"},
                                                    {"n4", "0x1"},
                                                    {"n5", "\t2"},
                                                    {"n6", "+0"},
                                                    {"n7", "12 takes"},
                                                    {"n8", ""}}));
  EXPECT_EQ(kstOk({"show", file, "--tagged", "--columns", "Name", "--format", "csv"}).out,
            "Name\r\nn1\r\nn3\r\nn5\r\nn7\r\n");
}

TEST_F(KstCommands, DistinctTagsTheFirstOfEachValue) {
  std::string file =
      put("reels.kst",
          logText({"KESTA:Rev 1"}, {"text", "text", "text"}, {"Name", "Reel", "Tag"},
                  {{"n1", "B", "0"}, {"n2", "a1", "0"}, {"n3", "", "1"}, {"n4", "A1", "0"}, {"n5", "B", "0"}}));
  Result printed = kstOk({"distinct", file, "--field", "Reel", "--columns", "Reel", "--format", "csv"});
  // Sorted as the library sorts (case first, empty values last): A1, B, B, a1, "". Runs of
  // equal values ignoring case give one tag each; the empty value follows a value, so it counts.
  EXPECT_EQ(printed.out, "Reel\r\nA1\r\nB\r\na1\r\n\r\n");
  Result saved = kst({"distinct", file, "--field", "reel", "-o", path("d.kst")}, {"d.kst"});
  EXPECT_EQ(saved.err, "kst: 4 distinct values tagged\n");
  auto db = load("d.kst");
  EXPECT_EQ(column(*db, "Reel"), (Strings{"A1", "B", "B", "a1", ""}));
  EXPECT_EQ(column(*db, "Tag"), (Strings{"1", "1", "0", "1", "1"}));
}

TEST_F(KstCommands, DeleteRemovesTheTaggedRecords) {
  std::string file = clips();
  EXPECT_EQ(kstOk({"delete", file, "--tagged", "-o", path("left.kst")}, {"left.kst"}).err,
            "kst: deleted 1 record; 2 remain\n");
  EXPECT_EQ(col("left.kst", "Name"), (Strings{"Sc 1 Tk 1", "Sc 2 Tk 1"}));
  // Nothing tagged: the whole log is written back, and an empty result is a real file.
  Result again = kst({"delete", path("left.kst"), "--tagged", "--in-place"}, {"left.kst"});
  EXPECT_EQ(again.err, "kst: deleted 0 records; 2 remain\n");
  put("all.kst", logText({"KESTA:Rev 1"}, {"text", "text"}, {"Name", "Tag"}, {{"x", "1"}, {"y", "1"}}));
  kstOk({"delete", path("all.kst"), "--tagged", "-o", path("none.kst")}, {"none.kst"});
  auto db = load("none.kst");
  EXPECT_EQ(db->get_num_records(), 0u);
  EXPECT_EQ(db->get_num_fields(), 2u);
}

TEST_F(KstCommands, MergeAppendsOrSaysWhyNot) {
  std::string into = clips();
  put("more.kst",
      logText({"KESTA:Rev 1"}, kTypes, kNames, {{"Sc 9 Tk 1", "B001", "03:00:00:00", "03:00:10:00", "", "1"}}));
  EXPECT_EQ(kstOk({"merge", into, path("more.kst"), "-o", path("m.kst")}, {"m.kst"}).err,
            "kst: appended 1 record from " + path("more.kst") + "\n");
  EXPECT_EQ(col("m.kst", "Name"), (Strings{"Sc 1 Tk 1", "Sc 1 Tk 2", "Sc 2 Tk 1", "Sc 9 Tk 1"}));
  EXPECT_EQ(col("m.kst", "Tag"), (Strings{"0", "1", "0", "1"}));

  struct Refusal {
    const char* name;
    std::string text;
    std::string why;
    std::string warning = "";
  } refusals[] = {
      {"rev2.kst", logText({"KESTA:Rev 2"}, kTypes, kNames, {}),
       into + " is revision 1, " + path("rev2.kst") + " is revision 2",
       "kst: warning: " + path("rev2.kst") + " is a revision 2 log; this library writes revision 1\n"},
      {"narrow.kst", logText({"KESTA:Rev 1"}, {"text"}, {"Name"}, {}),
       into + " has 6 columns, " + path("narrow.kst") + " has 1"},
      {"names.kst", logText({"KESTA:Rev 1"}, kTypes, {"Name", "reel", "Start time", "End time", "Notes", "Tag"}, {}),
       "column 2 differs in its name: " + into + " has \"Reel\" (text), " + path("names.kst") +
           " has \"reel\" (text) (names must match exactly, case included)"},
      {"types.kst", logText({"KESTA:Rev 1"}, {"text", "text", "text", "timecode", "text", "text"}, kNames, {}),
       "column 3 differs in its type: " + into + " has \"Start time\" (timecode), " + path("types.kst") +
           " has \"Start time\" (text)"},
  };
  for (const auto& r : refusals) {
    put(r.name, r.text);
    Result refused = kst({"merge", into, path(r.name), "-o", path("m2.kst")});
    EXPECT_EQ(refused.status, 1) << r.name;
    EXPECT_EQ(refused.err, r.warning + "kst: cannot append " + path(r.name) + " to " + into + ": " + r.why +
                               "; --by-name merges by column name\n");
  }

  // By name: Name and Reel are filled, columns the other log lacks stay empty.
  put("other.kst",
      logText({"KESTA:Rev 1"}, {"text", "text", "text"}, {"Tape", "reel", "name"}, {{"T1", "C001", "Sc 7"}}));
  ASSERT_NO_FATAL_FAILURE(kstOk({"merge", into, path("other.kst"), "--by-name", "-o", path("m3.kst")}, {"m3.kst"}));
  auto db = load("m3.kst");
  EXPECT_EQ(column(*db, "Reel").back(), "C001");
  EXPECT_EQ(column(*db, "Name").back(), "Sc 7");
  EXPECT_EQ(column(*db, "Notes").back(), "");
  put("disjoint.kst", logText({"KESTA:Rev 1"}, {"text"}, {"Tape"}, {{"T1"}}));
  Result nothing = kst({"merge", into, path("disjoint.kst"), "--by-name", "-o", path("m4.kst")});
  EXPECT_EQ(nothing.status, 1);
  EXPECT_NE(nothing.err.find("no column of one has the name of a column of the other"), std::string::npos);
}

TEST_F(KstCommands, ColumnsEditsTheFieldMap) {
  std::string file = clips();
  EXPECT_EQ(kstOk({"columns", file, "--hide", "Notes,Tag", "--order", "Reel,Name", "-o", path("c.kst")}, {"c.kst"}).err,
            "kst: field map: 2 1 3 4 -5 -6\n");
  EXPECT_STREQ(load("c.kst")->get_param_val("V5_FIELD_MAP"), "2 1 3 4 -5 -6");
  Result shown = kst({"show", path("c.kst"), "--format", "csv", "--limit", "1"});
  EXPECT_EQ(shown.out, "Reel,Name,Start time,End time\r\nA010,Sc 1 Tk 1,01:00:05:00,01:00:20:00\r\n");
  Result listed = kst({"columns", path("c.kst")});
  EXPECT_EQ(listed.out,
            "#  name        shown\n"
            "-  ----------  -----\n"
            "2  Reel        yes\n"
            "1  Name        yes\n"
            "3  Start time  yes\n"
            "4  End time    yes\n"
            "5  Notes       no\n"
            "6  Tag         no\n");
  // --show brings a hidden column back in its place; --reset starts over in the log's order.
  kstOk({"columns", path("c.kst"), "--show", "tag", "--in-place"}, {"c.kst"});
  EXPECT_STREQ(load("c.kst")->get_param_val("V5_FIELD_MAP"), "2 1 3 4 -5 6");
  kstOk({"columns", path("c.kst"), "--reset", "--hide", "Name", "--in-place"}, {"c.kst"});
  EXPECT_STREQ(load("c.kst")->get_param_val("V5_FIELD_MAP"), "-1 2 3 4 5 6");
}

TEST_F(KstCommands, ItemsListsAContainerFile) {
  put("day1.rak",
      "\"KESTA:Rev 1\"\n\"Name:Day 1 selects\"\n\"Permanent:true\"\n\"Owner:JM\"\n\"KESTA\"\n"
      "\"36\",\"10\"\n\"text\",\"text\"\n\"Cookie\",\"Reel\"\n"
      "\"4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.M255\",\"A001\"\n"
      "\"6ec9d286-63ca-428d-95f4-b3b2e4b06ce6\",\"A002\"\n");
  Result table = kstOk({"items", path("day1.rak")});
  const std::string container =
      ZRContainerFile::Reader(testutil::wide(path("day1.rak")), true).getCookie().asString(false).c_str();
  EXPECT_EQ(table.out,
            "container  Day 1 selects\n"
            "cookie     " +
                container +
                "\n"
                "permanent  yes\n"
                "items      2\n"
                "Owner      JM\n"
                "\n"
                "#  Cookie                                     Reel\n"
                "-  -----------------------------------------  ----\n"
                "1  4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.M255  A001\n"
                "2  6ec9d286-63ca-428d-95f4-b3b2e4b06ce6       A002\n");
  Result json = kst({"items", path("day1.rak"), "--format", "json"});
  EXPECT_NE(json.out.find("\"permanent\": true,\n  \"attributes\": {\"Owner\": \"JM\"},"), std::string::npos)
      << json.out;
  EXPECT_NE(json.out.find("{\"#\": \"2\", \"Cookie\": \"6ec9d286-63ca-428d-95f4-b3b2e4b06ce6\", \"Reel\": \"A002\"}"),
            std::string::npos);
  std::string file = clips();
  Result not_container = kst({"items", file});
  EXPECT_EQ(not_container.status, 1);
  EXPECT_EQ(not_container.err, "kst: " + file + " is not a container file: it has no \"Cookie\" column\n");
}

}  // namespace
}  // namespace ksttest
