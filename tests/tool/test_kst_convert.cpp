// kst convert: spreadsheet round trips through a log, the other formats, and bad tables.

#include <algorithm>
#include <random>

#include "KstTest.h"

namespace ksttest {
namespace {

using KstConvert = KstTest;

// What a spreadsheet writes: CRLF line ends, quoted fields holding commas, doubled quotes and
// line breaks.
const std::string kSheet =
    "Name,Reel,Notes\r\n"
    "\"Sc 1, Tk 2\",A001,\"say \"\"hi\"\"\nthen leave\"\r\n"
    "plain,A002,\r\n"
    "\"\"\"quoted\"\"\",\"A,003\",\"two\n\nbreaks\"\r\n";

TEST_F(KstConvert, SpreadsheetRoundTripKeepsQuotesCommasAndLineBreaks) {
  put("sheet.csv", kSheet);
  EXPECT_EQ(kstOk({"convert", path("sheet.csv"), path("sheet.kst")}, {"sheet.kst"}).err,
            "kst: wrote 3 records to " + path("sheet.kst") + "\n");
  // The log holds the values themselves, read back by the library.
  auto db = load("sheet.kst");
  EXPECT_EQ(column(*db, "Name"), (Strings{"Sc 1, Tk 2", "plain", "\"quoted\""}));
  EXPECT_EQ(column(*db, "Reel"), (Strings{"A001", "A002", "A,003"}));
  EXPECT_EQ(column(*db, "Notes"), (Strings{"say \"hi\"\nthen leave", "", "two\n\nbreaks"}));
  EXPECT_EQ(db->get_field_type(0), DBFieldTypes::kText);

  kstOk({"convert", path("sheet.kst"), path("back.csv")}, {"back.csv"});
  EXPECT_EQ(read("back.csv"), kSheet);
}

TEST_F(KstConvert, CsvReadingDiffersFromTheLibrarysOwnLoad) {
  put("q.csv", "A,B\n\"x,y\",z\n");
  // show uses the library's load, which keeps each piece as it stands...
  Result shown = kst({"show", path("q.csv"), "--format", "json"});
  EXPECT_EQ(shown.out, "[\n  {\"A\": \"\\\"x,y\\\"\", \"B\": \"z\"}\n]\n");
  // ...convert reads RFC 4180.
  Result converted = kst({"convert", path("q.csv"), "-", "--to", "json"});
  EXPECT_EQ(converted.out, "[\n  {\"A\": \"x,y\", \"B\": \"z\"}\n]\n");
  // The library's load of a CSV file reads its tags as a log's.
  put("t.csv", "Name,Tag\na,0\nb,1\nc,0\n");
  EXPECT_EQ(kst({"show", path("t.csv"), "--tagged"}).out, "Name  Tag\n----  ---\nb     1\n");
}

TEST_F(KstConvert, CsvDetails) {
  const struct {
    const char* what;
    std::string csv;
    std::string json;
  } cases[] = {
      {"byte-order mark and blank lines", "\xEF\xBB\xBFName,Reel\n\nA,1\n\n",
       "[\n  {\"Name\": \"A\", \"Reel\": \"1\"}\n]\n"},
      {"blanks are kept", " a , b \n c ,d\n", "[\n  {\" a \": \" c \", \" b \": \"d\"}\n]\n"},
      {"short records are filled", "A,B,C\n1\n", "[\n  {\"A\": \"1\", \"B\": \"\", \"C\": \"\"}\n]\n"},
      {"empty trailing fields are dropped", "A,B\n1,2,,\n", "[\n  {\"A\": \"1\", \"B\": \"2\"}\n]\n"},
      {"no final line end", "A\n\"x\"", "[\n  {\"A\": \"x\"}\n]\n"},
      {"header only", "A,B\r\n", "[]\n"},
      {"a quoted field opened after a lone carriage return goes on over a line without quotes",
       "A,B\n1\r\"two\nlines\nend\",3\n",
       "[\n  {\"A\": \"1\", \"B\": \"\"},\n  {\"A\": \"two\\nlines\\nend\", \"B\": \"3\"}\n]\n"},
      {"a lone carriage return ends a record", "A,B\n1,2\r3,4\n",
       "[\n  {\"A\": \"1\", \"B\": \"2\"},\n  {\"A\": \"3\", \"B\": \"4\"}\n]\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    put("in.csv", c.csv);
    EXPECT_EQ(kstOk({"convert", path("in.csv"), "-", "--to", "json"}).out, c.json);
  }
}

TEST_F(KstConvert, BadTablesSayWhere) {
  const struct {
    const char* name;
    std::string bytes;
    std::string message;
  } cases[] = {
      {"open.csv", "A,B\n1,2\n\"x,\ny\n", "open.csv, line 3: a quoted field is never closed"},
      {"stray.csv", "A,B\n1,2\n3,x\"y\n",
       "stray.csv, line 3, column 4: a quote inside an unquoted field, or text after a closing quote"},
      {"wide.csv", "A,B\n1,2\n\"multi\nline\",2,3\n", "wide.csv, line 3: a record with 3 fields; the header has 2"},
      {"wider.csv", "A,B\n\"multi\nline\",2\n3,4,5\n", "wider.csv, line 4: a record with 3 fields; the header has 2"},
      {"empty.csv", "", "empty.csv has no header line naming the columns"},
      {"wide.tsv", "A\tB\n1\t2\t3\n", "wide.tsv, line 2: a record with 3 fields; the header has 2"},
      {"bad.json", "[\n  {\"A\": \"x\"},\n  {\"A\": [1]}\n]\n",
       "bad.json, line 3: the value of \"A\" is not a text, a number or a boolean"},
      {"twice.json", "[{\"A\": \"x\", \"A\": \"y\"}]",
       "twice.json, line 1: the column \"A\" appears twice in one record"},
      {"open.json", "[{\"A\": \"x}]", "open.json, line 1: a text is never closed"},
      {"tab.json", "[{\"A\": \"x\ty\"}]",
       "tab.json, line 1: a control character inside a text (write it as an escape)"},
      {"none.json", "[]", "none.json holds no record, so it names no columns"},
      {"quote.csv", "\"Na\"\"me\"\n1\n", ""},  // a name with a quote cannot go into a log header
      {"long.csv", "A\nshort\n" + std::string(4096, 'x') + "\n",
       "long.csv, line 3: the value of \"A\" is 4096 bytes long; a log keeps at most 4095 bytes in a field"},
  };
  for (const auto& c : cases) {
    put(c.name, c.bytes);
    Result r = kst({"convert", path(c.name), path("out.kst")});
    EXPECT_EQ(r.status, 1) << c.name << r.err;
    if (c.message.empty()) {
      EXPECT_NE(r.err.find("cannot be kept in a log header"), std::string::npos) << r.err;
    } else {
      EXPECT_EQ(r.err, "kst: " + path(c.message) + "\n") << c.name;
    }
  }
  // 4095 bytes fit.
  put("fits.csv", "A\n" + std::string(4095, 'x') + "\n");
  kstOk({"convert", path("fits.csv"), path("out.kst")}, {"out.kst"});
  EXPECT_EQ(column(*load("out.kst"), "A"), Strings{std::string(4095, 'x')});
}

TEST_F(KstConvert, ValuesTheLogCannotKeepAreReported) {
  put("blanks.csv", "Name,Notes\nok,\"  padded\"\nok2,\"C:\\new\"\n");
  EXPECT_EQ(kstOk({"convert", path("blanks.csv"), path("out.kst")}, {"out.kst"}).err,
            "kst: warning: 2 values will read back changed from the log (blanks at either end, carriage returns, or "
            "a backslash before \"n\"); the first at " +
                path("blanks.csv") + ", line 2, column \"Notes\"\nkst: wrote 2 records to " + path("out.kst") + "\n");
}

// Thousands of records, some reading back changed, some with quotes, one blank: the file holds
// every value as it was, and the warning counts all the changed ones.
TEST_F(KstConvert, LargeTablesKeepEveryValueAsItWas) {
  std::string csv = "Name,Notes\n";
  Strings lines;
  for (int i = 0; i < 9000; ++i) {
    const std::string n = std::to_string(i);
    if (i == 4500) {
      csv += ",\n";
      lines.push_back("\"\",\"\"");
    } else if (i % 1000 == 999) {
      csv += "n" + n + ",\"  padded " + n + "\"\n";
      lines.push_back("\"n" + n + "\",\"  padded " + n + "\"");
    } else if (i % 7 == 0) {
      csv += "n" + n + ",\"say \"\"hi\"\" " + n + "\"\n";
      lines.push_back("\"n" + n + "\",\"say \"\"hi\"\" " + n + "\"");
    } else {
      csv += "n" + n + ",note " + n + "\n";
      lines.push_back("\"n" + n + "\",\"note " + n + "\"");
    }
  }
  put("big.csv", csv);
  Result r = kstOk({"convert", path("big.csv"), path("out.kst")}, {"out.kst"});
  EXPECT_EQ(r.err.substr(0, r.err.find(" will")), "kst: warning: 9 values");
  EXPECT_NE(r.err.find(path("big.csv") + ", line 1001, column \"Notes\""), std::string::npos) << r.err;
  const std::string text = read("out.kst");
  std::vector<std::string> written;
  for (std::size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
    written.push_back(text.substr(at, end - at));
  }
  ASSERT_EQ(written.size(), lines.size() + 5);
  EXPECT_EQ(Strings(written.begin() + 5, written.end()), lines);
}

// Lines without quotes are read apart from the others: a table written with its values bare
// where they can be reads as the same table with every value quoted. Random values with blanks,
// tabs, control and non-ASCII bytes; empty and trailing fields; LF and CRLF; blank lines; and
// quoted values between the bare lines, some over three lines so that a bare line sits inside one.
TEST_F(KstConvert, BareAndQuotedValuesReadAlike) {
  std::mt19937 random(7);
  const auto pick = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
  const std::string bytes = std::string("ab Z09\t.;\x01\x7F\xC3\xA9", 13);
  const auto bare = [&] {
    std::string value;
    for (unsigned i = pick(5) == 0 ? 0 : 1 + pick(8); i > 0; --i)
      value += bytes[pick(static_cast<unsigned>(bytes.size()))];
    return value;
  };
  const std::vector<std::string> needing_quotes = {"x,y", "say \"hi\"", "two\nlines", "one\ntwo\nthree", "cr\rhere"};
  const auto quoted = [](const std::string& value) {
    std::string q = "\"";
    for (char c : value) q += c == '"' ? std::string("\"\"") : std::string(1, c);
    return q + "\"";
  };
  std::string plain = "A,B,C\n", all_quoted = "\"A\",\"B\",\"C\"\n";
  for (int row = 0; row < 600; ++row) {
    const std::string end = pick(3) == 0 ? "\r\n" : "\n";
    if (pick(20) == 0) {
      plain += end;
      all_quoted += end;
    }
    for (int f = 0, fields = 1 + static_cast<int>(pick(3)); f < fields; ++f) {
      const std::string value =
          pick(10) == 0 ? needing_quotes[pick(static_cast<unsigned>(needing_quotes.size()))] : bare();
      // A row of one empty value written bare would be a blank line, which holds no record.
      const bool needs = value.find_first_of(",\"\r\n") != std::string::npos || (fields == 1 && value.empty());
      plain += (f ? "," : "") + (needs ? quoted(value) : value);
      all_quoted += (f ? "," : "") + quoted(value);
    }
    if (row + 1 < 600) {
      plain += end;
      all_quoted += end;
    }
  }
  put("plain.csv", plain);
  put("quoted.csv", all_quoted);
  Result a = kstOk({"convert", path("plain.csv"), "-", "--to", "json"});
  Result b = kstOk({"convert", path("quoted.csv"), "-", "--to", "json"});
  EXPECT_EQ(std::count(a.out.begin(), a.out.end(), '{'), 600);
  EXPECT_EQ(a.out, b.out);
}

// TSV lines with escapes and without: a tab after a backslash stays in its cell, a trailing
// tab adds an empty cell, and an unknown escape is kept as it stands.
TEST_F(KstConvert, TsvCellsWithAndWithoutEscapes) {
  put("in.tsv", "A\tB\tC\r\nplain\t\tlast\t\nx\\ty\\\\z\\n\\r\\q\tb\\\tc\\\n\n1\t2\t3");
  EXPECT_EQ(kstOk({"convert", path("in.tsv"), "-", "--to", "json"}).out,
            "[\n  {\"A\": \"plain\", \"B\": \"\", \"C\": \"last\"},\n"
            "  {\"A\": \"x\\ty\\\\z\\n\\r\\\\q\", \"B\": \"b\\\\\\tc\\\\\", \"C\": \"\"},\n"
            "  {\"A\": \"1\", \"B\": \"2\", \"C\": \"3\"}\n]\n");
  // Written back, each value with one byte to escape gets its escape.
  put("one.json", "[{\"A\": \"t\\tt\", \"B\": \"b\\\\b\", \"C\": \"n\\nn\", \"D\": \"r\\rr\", \"E\": \"e\"}]");
  EXPECT_EQ(kst({"convert", path("one.json"), "-", "--to", "tsv"}).out,
            "A\tB\tC\tD\tE\nt\\tt\tb\\\\b\tn\\nn\tr\\rr\te\n");
}

TEST_F(KstConvert, TsvAndJsonRoundTrips) {
  put("sheet.csv", kSheet);
  // Control characters, a tab, a backslash and bytes that are not UTF-8.
  put("odd.kst", logText({"KESTA:Rev 1"}, {"text", "text"}, {"Name", "Notes"},
                         {{"caf\xE9", "tab\there \\\\ back"}, {"\xC3\xA9t\xC3\xA9", "bell\x07"}}));
  Result json = kst({"convert", path("odd.kst"), "-", "--to", "json"});
  EXPECT_EQ(json.out,
            "[\n  {\"Name\": \"caf\\u00e9\", \"Notes\": \"tab\\there \\\\\\\\ back\"},\n"
            "  {\"Name\": \"\xC3\xA9t\xC3\xA9\", \"Notes\": \"bell\\u0007\"}\n]\n");
  Result tsv = kst({"convert", path("odd.kst"), "-", "--to", "tsv"});
  EXPECT_EQ(tsv.out, "Name\tNotes\ncaf\xE9\ttab\\there \\\\\\\\ back\n\xC3\xA9t\xC3\xA9\tbell\x07\n");

  // csv -> tsv -> log and csv -> json -> log keep every value.
  for (const char* middle : {"mid.tsv", "mid.json"}) {
    kstOk({"convert", path("sheet.csv"), path(middle)}, {middle});
    kstOk({"convert", path(middle), path("end.kst")}, {"end.kst"});
    kstOk({"convert", path("end.kst"), path("end.csv")}, {"end.csv"});
    EXPECT_EQ(read("end.csv"), kSheet) << middle;
  }
}

// Each record names its own columns, in any order: a value missing from a record is empty
// there, whatever the record before held in that column.
TEST_F(KstConvert, JsonRecordsNameTheirColumnsInAnyOrder) {
  put("in.json",
      "[{\"A\": \"1\", \"B\": \"a long first value\", \"C\": \"x\"},\n"
      " {\"B\": \"2\", \"A\": \"a\"},\n"
      " {\"C\": true, \"D\": -1.5e3, \"A\": null},\n"
      " {\"A\": \"q \\\" b \\\\ e \\u00e9 n \\n end\", \"B\": \"\", \"C\": \"c\\rr\"},\n"
      " {}]\n");
  EXPECT_EQ(kstOk({"convert", path("in.json"), "-", "--to", "csv"}).out,
            "A,B,C,D\r\n"
            "1,a long first value,x,\r\n"
            "a,2,,\r\n"
            ",,true,-1.5e3\r\n"
            "\"q \"\" b \\ e \xC3\xA9 n \n end\",,\"c\rr\",\r\n"
            ",,,\r\n");
  // Line numbers go on counting after the first error-free lines.
  put("late.json", "[\n{\"A\": \"x\"},\n\n{\"A\": \"y\"},\n{\"A\": \"z\", \"A\": \"w\"}\n]\n");
  EXPECT_EQ(kst({"convert", path("late.json"), "-", "--to", "csv"}).err,
            "kst: " + path("late.json") + ", line 5: the column \"A\" appears twice in one record\n");
}

TEST_F(KstConvert, TemplateGivesTypesParametersAndFieldMap) {
  put("model.kst", logText({"KESTA:Rev 1", "Production:Night Harbour", "V5_FIELD_MAP:2 -1"}, {"text", "timecode"},
                           {"Name", "Start time"}, {}));
  put("sheet.csv", "start time,Extra,name\n01:00:00:00,x,Sc 1\n");
  kstOk({"convert", path("sheet.csv"), path("out.kst"), "--template", path("model.kst")}, {"out.kst"});
  auto db = load("out.kst");
  EXPECT_EQ(db->get_field_type(0), DBFieldTypes::kTimecode);
  EXPECT_EQ(db->get_field_type(1), DBFieldTypes::kText);
  EXPECT_STREQ(db->get_param_val("Production"), "Night Harbour");
  // The template shows Start time and hides Name; Extra, unknown to it, is shown after them.
  EXPECT_STREQ(db->get_param_val("V5_FIELD_MAP"), "1 -3 2");
  EXPECT_STREQ(db->getParamVal("KESTA").c_str(), "Rev 1");
}

}  // namespace
}  // namespace ksttest
