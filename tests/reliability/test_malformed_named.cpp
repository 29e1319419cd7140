// Malformed files, one named case each: what every one loads to, checked against hand-worked
// expectations and the byte-by-byte model of the format, then saved and loaded back. Cases
// that the format cannot carry through a save (names are written unescaped) say so.

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "FileModel.h"
#include "ReliabilityUtil.h"
#include "SimFileSystem.h"
#include "record/KestaDebugPrivate.h"
#include "support/Log.h"
#include "support/StringUtils.h"

using namespace std::string_literals;
using reliability::contentOf;

namespace {

const std::string kRev = "\"KESTA:Rev 1\"\n";
const std::string kMode = "\"Mode:x\"\n";
const std::string kColumns3 = "\"32\",\"12\",\"1\"\n\"text\",\"timecode\",\"text\"\n\"Name\",\"Start time\",\"Tag\"\n";
const std::string kHeader3 = "\"KESTA\"\n" + kColumns3;
const std::string H = kRev + kMode + kHeader3;
const std::string R1 = "\"Shot 1\",\"01:00:00:00\",\"0\"\n";
const std::string R2 = "\"Shot 2\",\"01:00:10:00\",\"1\"\n";
const std::string R3 = "\"Shot 3\",\"01:00:20:00\",\"0\"";
const std::string kOneColumn = kRev + "\"KESTA\"\n\"8\"\n\"text\"\n\"Name\"\n";
const std::string kNotFilled = "kesta::add_text: returning because not all fields filled\n";
const std::string kNoMore = "kesta::add_text: returning because no more lines\n";
const std::string kMillionLines(1000000, '\n');
const std::string kTenMegabytes(10u << 20, 'x');

std::string warning(int revision) {
  return "kesta::read_text:  Warning: kesta is revision " + std::to_string(revision) + ", current level is 1\n";
}

std::string times(const std::string& text, std::size_t n) {
  std::string out;
  for (std::size_t i = 0; i < n; ++i) out += text;
  return out;
}

std::string crlf(const std::string& text) {
  std::string out;
  for (char c : text) out += c == '\n' ? "\r\n" : std::string(1, c);
  return out;
}

std::string names3(const std::string& names) {
  return kRev + kMode + "\"KESTA\"\n\"8\",\"8\",\"8\"\n\"text\",\"text\",\"text\"\n" + names + "\n";
}
std::string types3(const std::string& types) {
  return kRev + kMode + "\"KESTA\"\n\"8\"\n" + types + "\n\"a\",\"b\",\"c\"\n";
}

// A line of `n` quoted fields, the i-th named by `name(i)`.
std::string line_of(std::size_t n, const std::function<std::string(std::size_t)>& name) {
  std::string out;
  for (std::size_t i = 0; i < n; ++i) out += (i ? ",\"" : "\"") + name(i) + "\"";
  return out + "\n";
}
std::string wide_file(std::size_t types, std::size_t names, std::size_t record) {
  return kRev + "\"KESTA\"\n" + line_of(names, [](std::size_t) { return "1"; }) +
         line_of(types, [](std::size_t) { return "text"; }) +
         line_of(names, [](std::size_t i) { return "c" + std::to_string(i); }) +
         line_of(record, [](std::size_t) { return "v"; });
}

using Fields = std::vector<std::string>;
using Records = std::vector<Fields>;
Fields fields_of(kesta& db, unsigned row) { return reliability::contentOf(db).records.at(row); }
std::string field(kesta& db, unsigned row, unsigned column) { return fields_of(db, row).at(column); }
// The check that the first record holds exactly `expected`.
std::function<void(kesta&)> first_record_is(Fields expected) {
  return [expected](kesta& db) { EXPECT_EQ(fields_of(db, 0), expected); };
}
std::string key(kesta& db, unsigned i) { return std::string(db.params()[i].name().view()); }
std::string value(kesta& db, unsigned i) { return std::string(db.params()[i].value().view()); }
std::string column(kesta& db, unsigned i) { return std::string(db.fields()[i].name.view()); }
int type(kesta& db, unsigned i) { return static_cast<int>(db.get_field_type(i)); }

struct Expect {
  int valid;
  int params;
  int columns;
  int records;
  std::string log = "";
  bool whole = true;  // columns and records come back from a save
  int revision = 1;
};

struct Case {
  std::string name;
  std::string bytes;
  Expect expect;
  std::function<void(kesta&)> more = nullptr;
  std::string file = "/case.kst";  // a folder when it ends in '/', none when empty
};

using D = kesta&;

std::vector<Case> blank_and_first_line_cases() {
  const std::string rest = kMode + kHeader3 + R1;
  return {
      {"empty file", "", {0, 0, 0, 0}},
      {"a million blank lines before the header", kMillionLines + H + R1, {0, 0, 0, 0}},
      {"header then a million blank lines", H + kMillionLines + R1, {1, 2, 3, 0}},
      {"a blank line between records", H + R1 + "\n" + R2, {1, 2, 3, 1}},
      {"ten megabytes of spaces as a record line", H + R1 + std::string(10u << 20, ' ') + "\n" + R2, {1, 2, 3, 1}},
      {"revision line only", kRev, {1, 1, 0, 0}},
      {"lower-case revision key",
       "\"kesta:rev 1\"\n" + rest,
       {1, 2, 3, 1},
       [](D db) { EXPECT_EQ(key(db, 0), "kesta"); }},
      {"revision 2", "\"KESTA:Rev 2\"\n" + rest, {1, 2, 3, 1, warning(2), true, 2}},
      {"empty revision value",
       "\"KESTA:\"\n" + rest,
       {1, 2, 3, 1, warning(0), true, 0},
       [](D db) { EXPECT_EQ(value(db, 0), ""); }},
      {"revision with a minus sign", "\"KESTA:Rev -3\"\n" + rest, {1, 2, 3, 1, warning(3), true, 3}},
      // strtol saturates; the long is then taken as an int.
      {"revision too large", "\"KESTA:Rev 99999999999999999999\"\n" + rest, {1, 2, 3, 1, warning(-1), true, -1}},
      {"space before the revision colon", "\"KESTA :Rev 1\"\n" + rest, {0, 0, 0, 0}},
      {"UTF-8 byte-order mark", "\xEF\xBB\xBF" + H + R1, {0, 0, 0, 0}},
      {"file saved without parameters", "\"KESTA\"\n\"8\"\n\"text\"\n\"Name\"\n\"a\"\n", {0, 0, 0, 0}},
      {"NUL inside the revision",
       "\"KESTA:Rev\0 1\"\n"s + rest,
       {1, 2, 3, 1, warning(0), true, 0},
       [](D db) { EXPECT_EQ(value(db, 0), "Rev"); }},
  };
}

std::vector<Case> parameter_and_header_cases() {
  const std::string rest = kHeader3 + R1;
  return {
      {"parameter line without a colon", kRev + "\"Mode\"\n" + rest, {1, 1, 3, 1}},
      {"parameter line with the colon first", kRev + "\":x\"\n" + rest, {1, 1, 3, 1}},
      {"parameter with blanks around key and value",
       kRev + "\"  Mode :   x  \"\n" + rest,
       {1, 2, 3, 1},
       [](D db) { EXPECT_EQ(key(db, 1) + "=" + value(db, 1), "Mode =x"); }},
      {"duplicate parameters and a blank line", kRev + kMode + "\n" + kMode + rest, {1, 3, 3, 1}},
      {"parameter line with several fields",
       kRev + "\"A:1\",\"B:2\"\n" + rest,
       {1, 2, 3, 1},
       [](D db) { EXPECT_EQ(key(db, 1) + "=" + value(db, 1), "A=1"); }},
      {"parameter value with escapes",
       kRev + "\"Note:a\\nb \"\"hi\"\", c\"\n" + rest,
       {1, 2, 3, 1},
       [](D db) { EXPECT_EQ(value(db, 1), "a\nb \"hi\", c"); }},
      {"parameter value with a NUL",
       kRev + "\"Note:ab\0cd\"\n"s + rest,
       {1, 2, 3, 1},
       [](D db) { EXPECT_EQ(value(db, 1), "ab"); }},
      {"100,000 parameter lines", kRev + times("\"Take:x\"\n", 100000) + rest, {1, 100001, 3, 1}},
      {"parameters and no header", kRev + "\"A:1\"\n\"junk\"\n\"B:2\"\n", {1, 3, 0, 0}},
      {"marker in lower case with blanks", kRev + kMode + "\"  kesta  \"\n" + kColumns3 + R1, {1, 2, 3, 1}},
      {"marker and widths only", kRev + "\"KESTA\"\n\"8\"\n", {1, 1, 0, 0}},
      {"more types than names", types3("\"text\",\"text\",\"text\",\"text\"") + R1, {0, 2, 0, 0}},
      {"more names than types", types3("\"text\",\"text\"") + R1, {0, 2, 0, 0}},
      {"no widths line",
       kRev + kMode + "\"KESTA\"\n\"text\",\"timecode\",\"text\"\n\"Name\",\"Start time\",\"Tag\"\n" + R1 + R2,
       {1, 2, 3, 1},
       [](D db) { EXPECT_EQ(column(db, 0) + "|" + column(db, 1) + "|" + column(db, 2), "Shot 1|01:00:00:00|0"); }},
      {"marker twice",
       kRev + kMode + "\"KESTA\"\n" + kHeader3 + R1,
       {1, 2, 3, 2},
       [](D db) {
         EXPECT_EQ(column(db, 1) + "/" + std::to_string(type(db, 2)) + "/" + field(db, 0, 1), "timecode/49/Start time");
       }},
      {"unknown and empty type tokens",
       types3("\"bogus\",\"x\",\"\"") + R1,
       {1, 2, 3, 1},
       [](D db) {
         EXPECT_EQ(std::vector<int>({type(db, 0), type(db, 1), type(db, 2)}), (std::vector<int>{0, 'x', 0}));
       }},
      {"type tokens char, numeric and DATE",
       types3("\"char\",\"numeric\",\"DATE\"") + R1,
       {1, 2, 3, 1},
       [](D db) {
         EXPECT_EQ(std::vector<int>({type(db, 0), type(db, 1), type(db, 2)}),
                   (std::vector<int>{DBFieldTypes::kChar, DBFieldTypes::kNumeric, DBFieldTypes::kDate}));
       }},
      {"duplicate column names",
       names3("\"a\",\"A\",\"a\"") + R1,
       {1, 2, 3, 1},
       [](D db) { EXPECT_EQ(db.get_fieldnum("a"), 0u); }},
      // Names are written unescaped and cut at 254 bytes: these do not come back from a save.
      {"a 300-byte column name",
       names3("\"" + std::string(300, 'n') + "\",\"b\",\"c\"") + R1,
       {1, 2, 3, 1, "", false},
       [](D db) { EXPECT_EQ(column(db, 0).size(), 300u); }},
      {"a column name with doubled quotes",
       names3("\"Say \"\"x\"\"\",\"b\",\"c\"") + R1,
       {1, 2, 3, 1, "", false},
       [](D db) { EXPECT_EQ(column(db, 0), "Say \"x\""); }},
      {"a column name with an escaped line feed",
       names3("\"Na\\nme\",\"b\",\"c\"") + R1,
       {1, 2, 3, 1, "", false},
       [](D db) { EXPECT_EQ(column(db, 0), "Na\nme"); }},
      // Lines give at most 65,535 fields: the rest is dropped.
      {"100,000 columns",
       wide_file(100000, 100000, 100000),
       {1, 1, 65535, 1},
       [](D db) {
         EXPECT_EQ(std::string(db.get_fieldname(65534)) + "/" + std::to_string(fields_of(db, 0).size()),
                   "c65534/65535");
       }},
      {"a record line of 65,537 fields in a full-width file", wide_file(65535, 65535, 65537), {1, 1, 65535, 1}},
      {"a record line of 65,539 fields in a three-column file",
       H + R1 + line_of(65539, [](std::size_t) { return "v"; }) + R2,
       {1, 2, 3, 1, kNotFilled}},
      {"types line of 70,000 fields and names line of 65,535", wide_file(70000, 65535, 0), {1, 1, 65535, 0}},
      {"a 10 MB column name", names3("\"" + kTenMegabytes + "\",\"b\",\"c\"") + R1, {0, 2, 0, 0}},
  };
}

std::vector<Case> record_cases() {
  return {
      {"one field too many", H + R1 + "\"a\",\"b\",\"c\",\"d\"\n" + R2, {1, 2, 3, 1, kNotFilled}},
      {"one field too few", H + R1 + "\"a\",\"b\"\n" + R2, {1, 2, 3, 1, kNotFilled}},
      {"trailing comma", H + R1 + R3 + ",\n" + R2, {1, 2, 3, 3}},
      {"trailing comma on a short line", H + R1 + "\"Shot 3\",\"01:00:20:00\",\n" + R2, {1, 2, 3, 1, kNotFilled}},
      {"empty fields", H + ",\"01:00:20:00\",\"0\"\n\"Shot 3\",,\"0\"\n,,,\n", {1, 2, 3, 3}},
      {"unquoted fields", H + "Shot 3,01:00:20:00,0\n", {1, 2, 3, 1}, first_record_is({"Shot 3", "01:00:20:00", "0"})},
      {"blanks around quoted fields", H + "  \"Shot 3\"  ,  \"01:00:20:00\" , \"0\"  \n", {1, 2, 3, 1}},
      {"blanks inside the quotes",
       H + "\"Shot 3 \",\"01:00:20:00\",\"0\"\n\" Shot 4\",\"01:00:20:00\",\"0\"\n",
       {1, 2, 3, 2}},
      {"NUL inside a field",
       H + "\"Sh\0ot 3\",\"01:00:20:00\",\"0\"\n"s,
       {1, 2, 3, 1},
       [](D db) { EXPECT_EQ(field(db, 0, 0), "Sh\0ot 3"s); }},
      {"CRLF line ends", crlf(H + R1 + R2), {1, 2, 3, 2}},
      {"unterminated quote in a middle field",
       H + R1 + "\"Shot 3\",\"01:00:20:00,\"0\"\n" + R2,
       {1, 2, 3, 1, kNotFilled}},
      {"doubled quotes", H + "\"say \"\"hi\"\"\",\"\"\"\",\"0\"\n", {1, 2, 3, 1}},
      {"escapes", H + "\"line1\\nline2\",\"a\\\\b\",\"c\\\n", {1, 2, 3, 1}},
      // The backslash is kept, the two quotes after it make one, and the comma stays inside.
      {"backslash before a quote", H + R1 + "\"a\\\"\",\"b\",\"c\"\n" + R2, {1, 2, 3, 1, kNotFilled}},
      {"a field of 4,094 bytes", H + "\"" + std::string(4094, 'x') + "\",\"x\",\"0\"\n", {1, 2, 3, 1}},
      // A field stops when 4,095 bytes are stored and the byte there is skipped: here the
      // closing quote, so the comma after it ends an extra empty field. Written back quoted, an
      // unquoted field of that length does the same.
      {"a quoted field of 4,095 bytes",
       H + R1 + "\"" + std::string(4095, 'x') + "\",\"x\",\"0\"\n" + R2,
       {1, 2, 3, 1, kNotFilled}},
      {"an unquoted field of 4,095 bytes",
       H + std::string(4095, 'x') + ",\"x\",\"0\"\n",
       {1, 2, 3, 1, "", false},
       [](D db) { EXPECT_EQ(field(db, 0, 0).size(), 4095u); }},
      // Cut at 4,095 bytes; the byte at the cut is skipped, so the closing quote opens a field.
      {"a field of 4,096 bytes",
       H + "\"" + std::string(4096, 'x') + "\",\"01:00:20:00\",\"0\"\n",
       {1, 2, 3, 1, "", false}},
      {"a 10 MB field", H + R1 + "\"" + kTenMegabytes + "\",\"01:00:20:00\",\"0\"\n" + R2, {1, 2, 3, 1, kNotFilled}},
      {"a million commas", H + R1 + std::string(1000000, ',') + "\n" + R2, {1, 2, 3, 1, kNotFilled}},
      {"10 MB without a line feed", H + R1 + kTenMegabytes, {1, 2, 3, 1, kNotFilled}},
      {"last record without a line feed", H + R1 + R2.substr(0, R2.size() - 1), {1, 2, 3, 2}},
      // A record whose first field is the marker takes the third line after it, whatever its
      // length; written back, that record no longer fits the columns.
      {"a record that reads as the marker",
       H + "\"KESTA\",\"x\",\"y\"\n\"1\",\"2\",\"3\"\n\"text\",\"text\",\"text\"\n\"n1\",\"n2\"\n" + R1,
       {1, 2, 3, 2, "", false},
       first_record_is({"n1", "n2"})},
      {"one-column file with a repeated header",
       kOneColumn + "\"a\"\n\"KESTA\"\n\"8\"\n\"text\"\n\"Name\"\n\"b\"\n",
       {1, 1, 1, 3},
       [](D db) { EXPECT_EQ(field(db, 0, 0) + field(db, 1, 0) + field(db, 2, 0), "aNameb"); }},
      {"one-column file ending in a repeated header", kOneColumn + "\"a\"\n\"KESTA\"\n\"8\"\n", {1, 1, 1, 1, kNoMore}},
      {"100,000 records", H + times(R1, 100000), {1, 2, 3, 100000}},
  };
}

// Comma-separated input keeps no parameters, so a save of it does not load back.
std::vector<Case> csv_and_naming_cases() {
  std::vector<Case> cases = {
      {"empty", "", {1, 0, 0, 0, "", false}},
      {"short and long lines, a blank line, CRLF",
       "a,b,c\r\n1,2\r\n\n1,2,3,4\n",
       {1, 0, 3, 2, "", false},
       [](D db) {
         EXPECT_EQ(type(db, 2), DBFieldTypes::kTextS);
         EXPECT_EQ(contentOf(db).records, (Records{{"1", "2", ""}, {"1", "2", "3"}}));
       }},
      {"quoted commas and an escaped quote",
       "a,b\n\"x,y\",z\n\"x\\\",y\",z\n",
       {1, 0, 2, 2, "", false},
       [](D db) {
         EXPECT_EQ(contentOf(db).records, (Records{{"\"x,y\"", "z"}, {"\"x\\\",y\"", "z"}}));
       }},
      {"byte-order mark and blanks",
       "\xEF\xBB\xBF"
       "a, b\n  1,  2\n",
       {1, 0, 2, 1, "", false},
       [](D db) {
         EXPECT_EQ(column(db, 0) + "|" + column(db, 1) + "|" + field(db, 0, 0) + field(db, 0, 1),
                   "\xEF\xBB\xBF"
                   "a| b|12");
       }},
      {"NUL", "a,b\n1\0x,2\n"s, {1, 0, 2, 1, "", false}, [](D db) { EXPECT_EQ(field(db, 0, 0), "1"); }},
      {"a line of commas", "a,b\n,,,\n", {1, 0, 2, 1, "", false}, first_record_is({"", ""})},
      {"100,000 columns",
       line_of(100000, [](std::size_t i) { return std::to_string(i); }) + std::string(99999, ',') + "\n",
       {1, 0, 65535, 1, "", false},
       [](D db) { EXPECT_EQ(db.get_record(0)->get_num_fields(), 65535); }},
  };
  for (Case& c : cases) c.name = "comma-separated: " + c.name, c.file = "/case.csv";
  cases.push_back({"upper-case .CSV is not comma-separated", "a,b\n1,2\n", {0, 0, 0, 0}, nullptr, "/case.CSV"});
  cases.push_back({"file name with non-ASCII characters", H + R1, {1, 2, 3, 1}, nullptr, "/caf\xc3\xa9.kst"});
  cases.push_back({"file name with .csv inside it", H + R1, {1, 2, 3, 1}, nullptr, "/a.csv.kst"});
  cases.push_back({"the name is a folder", "", {0, 0, 0, 0}, nullptr, "/folder.kst/"});
  cases.push_back({"no such file", "", {0, 0, 0, 0}, nullptr, ""});
  return cases;
}

// Loads each case, checks it against its expectations and the model, and saves it back.
void run(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const auto started = std::chrono::steady_clock::now();
    SimFileSystem disk;
    const bool file = !c.file.empty() && !c.file.ends_with('/');
    const std::string path = file ? c.file : c.file.empty() ? "/missing.kst" : c.file.substr(0, c.file.size() - 1);
    if (file) disk.putFile(path, c.bytes);
    if (!file && !c.file.empty()) disk.makeFolder(path);
    Zr::Ptr<kesta> db;
    std::string log;
    {
      UseFileSystem use(&disk);
      CapturingLogSink capture;
      db = Zr::Ptr<kesta>(new kesta(fromUTF8(LightweightString<char>(path.c_str())), INT_MAX, false));
      log = capture.text();
    }
    const Expect& e = c.expect;
    const filemodel::Content got = contentOf(*db);
    EXPECT_EQ(got.valid, e.valid != 0);
    EXPECT_EQ(got.revision, e.revision);
    EXPECT_EQ(got.params.size(), static_cast<std::size_t>(e.params));
    EXPECT_EQ(got.columns.size(), static_cast<std::size_t>(e.columns));
    EXPECT_EQ(got.records.size(), static_cast<std::size_t>(e.records));
    EXPECT_EQ(log, e.log);
    std::string why;
    EXPECT_TRUE(KestaDebug::check(*db, &why)) << why;
    if (c.more) c.more(*db);
    if (file && !path.ends_with(".csv")) {
      // Loading leaves nothing marked changed, and the model of the format agrees.
      EXPECT_EQ(db->changed(), 0);
      for (unsigned row = 0; row < db->get_num_records(); ++row) EXPECT_FALSE(db->get_record(row)->changed());
      const filemodel::Loaded model = filemodel::load(c.bytes);
      EXPECT_EQ(filemodel::difference(model.content, got), "");
      EXPECT_EQ(model.log, log);
    }
    EXPECT_EQ(got.valid && reliability::roundTrip(*db, disk, c.name), got.valid && e.whole);
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(), 20.0) << "too slow";
  }
}

}  // namespace

TEST(MalformedFiles, BlankFilesAndFirstLines) { run(blank_and_first_line_cases()); }
TEST(MalformedFiles, ParameterLinesAndColumnHeaders) { run(parameter_and_header_cases()); }
TEST(MalformedFiles, RecordLines) { run(record_cases()); }
TEST(MalformedFiles, CommaSeparatedFilesAndFileNames) { run(csv_and_naming_cases()); }
