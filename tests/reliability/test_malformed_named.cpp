// Malformed files, one named case each: what every one loads to (valid or not, revision,
// parameters, columns, records, log lines), checked against hand-worked expectations and the
// byte-by-byte model of the format, then saved and loaded back. Cases that the format cannot
// carry through a save (names and parameters are written unescaped) say so.

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "FileModel.h"
#include "ReliabilityUtil.h"
#include "common/TestUtil.h"
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
const std::string kOneColumn = kRev + "\"KESTA\"\n\"8\"\n\"text\"\n\"Name\"\n";
const std::string kNotFilled = "kesta::add_text: returning because not all fields filled\n";
const std::string kNoMore = "kesta::add_text: returning because no more lines\n";
constexpr std::size_t kTenMegabytes = 10u << 20;

std::string warning(int revision) {
  return "kesta::read_text:  Warning: kesta is revision " + std::to_string(revision) + ", current level is 1\n";
}

std::string times(const std::string& text, std::size_t n) {
  std::string out;
  out.reserve(text.size() * n);
  for (std::size_t i = 0; i < n; ++i) out += text;
  return out;
}

std::string replaced(std::string text, char from, const std::string& to) {
  std::string out;
  for (char c : text) {
    if (c == from) {
      out += to;
    } else {
      out += c;
    }
  }
  return out;
}

// A header with the revision line, one parameter, the marker, and the given widths, types and
// names lines (each without its line feed).
std::string header(const std::string& widths, const std::string& types, const std::string& names) {
  return kRev + kMode + "\"KESTA\"\n" + widths + "\n" + types + "\n" + names + "\n";
}
std::string names3(const std::string& names) {
  return header("\"8\",\"8\",\"8\"", "\"text\",\"text\",\"text\"", names);
}
std::string types3(const std::string& types) { return header("\"8\",\"8\",\"8\"", types, "\"a\",\"b\",\"c\""); }

// A line of `n` quoted fields named by `name(i)`.
std::string line_of(std::size_t n, const std::function<std::string(std::size_t)>& name) {
  std::string out;
  for (std::size_t i = 0; i < n; ++i) out += (i ? ",\"" : "\"") + name(i) + "\"";
  return out;
}
std::string wide_file(std::size_t types, std::size_t names, std::size_t record) {
  return kRev + "\"KESTA\"\n" + line_of(names, [](std::size_t) { return "1"; }) + "\n" +
         line_of(types, [](std::size_t) { return "text"; }) + "\n" +
         line_of(names, [](std::size_t i) { return "c" + std::to_string(i); }) + "\n" +
         line_of(record, [](std::size_t) { return "v"; }) + "\n";
}

std::string field(kesta& db, unsigned row, unsigned column) { return std::string(db.getField(row, column).view()); }
std::vector<std::string> fields_of(kesta& db, unsigned row) {
  std::vector<std::string> out;
  Zr::Ptr<dbrecord> record = db.get_record(row);
  for (unsigned short f = 0; record && f < record->get_num_fields(); ++f) out.emplace_back(record->getField(f).view());
  return out;
}

struct Expect {
  int valid;
  int params;
  int columns;
  int records;
  std::string log = "";
  bool whole = true;  // columns and records come back from a save
  int revision = 1;
};

enum class Kind { kFile, kFolder, kMissing };

struct Case {
  std::string name;
  std::function<std::string()> bytes;
  Expect expect;
  std::function<void(kesta&)> more = nullptr;
  std::string file = "case.kst";
  Kind kind = Kind::kFile;
};

std::string value(kesta& db, unsigned i) { return std::string(db.params()[i].value().view()); }
std::string key(kesta& db, unsigned i) { return std::string(db.params()[i].name().view()); }
std::string column(kesta& db, unsigned i) { return std::string(db.fields()[i].name.view()); }
int type(kesta& db, unsigned i) { return static_cast<int>(db.get_field_type(i)); }

#define BYTES(expr) [=] { return std::string(expr); }

std::vector<Case> empty_and_blank_cases() {
  return {
      {"empty file", BYTES(""), {0, 0, 0, 0}},
      {"a single line feed", BYTES("\n"), {0, 0, 0, 0}},
      {"a single carriage return", BYTES("\r"), {0, 0, 0, 0}},
      {"spaces only", BYTES("    "), {0, 0, 0, 0}},
      {"blank CRLF lines", BYTES("\r\n\r\n\r\n"), {0, 0, 0, 0}},
      {"a million blank lines", BYTES(times("\n", 1000000)), {0, 0, 0, 0}},
      {"a million blank lines before the header", BYTES(times("\n", 1000000) + H + R1), {0, 0, 0, 0}},
      {"header only", BYTES(H), {1, 2, 3, 0}},
      {"header only without a final line feed", BYTES(H.substr(0, H.size() - 1)), {1, 2, 3, 0}},
      {"header then a million blank lines", BYTES(H + times("\n", 1000000) + R1), {1, 2, 3, 0}},
      {"a blank line between records", BYTES(H + R1 + "\n" + R2), {1, 2, 3, 1}},
      {"a line of spaces between records", BYTES(H + R1 + "   \n" + R2), {1, 2, 3, 1}},
      {"a line of tabs between records", BYTES(H + R1 + "\t\t\n" + R2), {1, 2, 3, 1}},
      {"a line of form feeds and vertical tabs", BYTES(H + R1 + "\f\v\r\n" + R2), {1, 2, 3, 1}},
      {"ten megabytes of spaces as a record line", BYTES(H + R1 + std::string(kTenMegabytes, ' ') + "\n" + R2),
       {1, 2, 3, 1}},
  };
}

std::vector<Case> first_line_cases() {
  const std::string rest = kMode + kHeader3 + R1;
  return {
      {"revision line only", BYTES(kRev), {1, 1, 0, 0}},
      {"revision line unquoted", BYTES("KESTA:Rev 1\n" + rest), {1, 2, 3, 1}},
      {"lower-case revision key", BYTES("\"kesta:rev 1\"\n" + rest), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(key(db, 0), "kesta"); }},
      {"revision 2", BYTES("\"KESTA:Rev 2\"\n" + rest), {1, 2, 3, 1, warning(2), true, 2}},
      {"revision 0", BYTES("\"KESTA:Rev 0\"\n" + rest), {1, 2, 3, 1, warning(0), true, 0}},
      {"revision without digits", BYTES("\"KESTA:Rev\"\n" + rest), {1, 2, 3, 1, warning(0), true, 0}},
      {"empty revision value", BYTES("\"KESTA:\"\n" + rest), {1, 2, 3, 1, warning(0), true, 0},
       [](kesta& db) { EXPECT_EQ(value(db, 0), ""); }},
      {"revision with leading zeros", BYTES("\"KESTA:Rev 001\"\n" + rest), {1, 2, 3, 1}},
      {"revision with a minus sign", BYTES("\"KESTA:Rev -3\"\n" + rest), {1, 2, 3, 1, warning(3), true, 3}},
      // strtol saturates; the long is then taken as an int.
      {"revision too large for a number", BYTES("\"KESTA:Rev 99999999999999999999\"\n" + rest),
       {1, 2, 3, 1, warning(-1), true, -1}},
      {"revision with a fraction", BYTES("\"KESTA:Rev 1.5\"\n" + rest), {1, 2, 3, 1}},
      {"space before the revision colon", BYTES("\"KESTA :Rev 1\"\n" + rest), {0, 0, 0, 0}},
      {"blanks inside the quotes before the revision", BYTES("\"   KESTA:Rev 1\"\n" + rest), {1, 2, 3, 1}},
      {"control character before the revision", BYTES("\x01\"KESTA:Rev 1\"\n" + rest), {1, 2, 3, 1}},
      {"UTF-8 byte-order mark", BYTES("\xEF\xBB\xBF" + H + R1), {0, 0, 0, 0}},
      {"UTF-16 byte-order mark", BYTES("\xFF\xFE" + H + R1), {0, 0, 0, 0}},
      {"file saved without parameters", BYTES("\"KESTA\"\n\"8\"\n\"text\"\n\"Name\"\n\"a\"\n"), {0, 0, 0, 0}},
      {"record line first", BYTES(R1 + H), {0, 0, 0, 0}},
      {"revision line with extra fields", BYTES("\"KESTA:Rev 1\",\"x\",\"y\"\n" + rest), {1, 2, 3, 1}},
      {"NUL inside the revision", BYTES("\"KESTA:Rev\0 1\"\n"s + rest), {1, 2, 3, 1, warning(0), true, 0},
       [](kesta& db) { EXPECT_EQ(value(db, 0), "Rev"); }},
      {"a file of NUL bytes", BYTES(std::string(1000, '\0')), {0, 0, 0, 0}},
      {"control bytes only", BYTES("\x01\x02\x03\n\x04\n"), {0, 0, 0, 0}},
  };
}

std::vector<Case> parameter_cases() {
  const std::string rest = kHeader3 + R1;
  return {
      {"parameter line without a colon", BYTES(kRev + "\"Mode\"\n" + rest), {1, 1, 3, 1}},
      {"parameter line with the colon first", BYTES(kRev + "\":x\"\n" + rest), {1, 1, 3, 1}},
      {"parameter with an empty value", BYTES(kRev + "\"Mode:\"\n" + rest), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(value(db, 1), ""); }},
      {"parameter with blanks around key and value", BYTES(kRev + "\"  Mode :   x  \"\n" + rest), {1, 2, 3, 1},
       [](kesta& db) {
         EXPECT_EQ(key(db, 1), "Mode ");
         EXPECT_EQ(value(db, 1), "x");
       }},
      {"parameter value with colons", BYTES(kRev + "\"Time:01:00:00\"\n" + rest), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(value(db, 1), "01:00:00"); }},
      {"duplicate parameters", BYTES(kRev + kMode + kMode + rest), {1, 3, 3, 1}},
      {"blank line among the parameters", BYTES(kRev + "\n" + kMode + rest), {1, 2, 3, 1}},
      {"unquoted parameter line", BYTES(kRev + "Mode:x\n" + rest), {1, 2, 3, 1}},
      {"parameter line with several fields", BYTES(kRev + "\"A:1\",\"B:2\"\n" + rest), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(key(db, 1) + "=" + value(db, 1), "A=1"); }},
      {"parameter value with an escaped line feed", BYTES(kRev + "\"Note:a\\nb\"\n" + rest), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(value(db, 1), "a\nb"); }},
      {"parameter value with doubled quotes", BYTES(kRev + "\"Note:say \"\"hi\"\"\"\n" + rest), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(value(db, 1), "say \"hi\""); }},
      {"parameter value with a quoted comma", BYTES(kRev + "\"Note:a,b\"\n" + rest), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(value(db, 1), "a,b"); }},
      {"parameter value with a NUL", BYTES(kRev + "\"Note:ab\0cd\"\n"s + rest), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(value(db, 1), "ab"); }},
      {"parameter key with a NUL", BYTES(kRev + "\"No\0te:x\"\n"s + rest), {1, 1, 3, 1}},
      {"100,000 parameter lines", BYTES(kRev + times("\"Take:x\"\n", 100000) + rest), {1, 100001, 3, 1}},
      {"parameters and no header", BYTES(kRev + "\"A:1\"\n\"junk\"\n\"B:2\"\n"), {1, 3, 0, 0}},
      {"parameters and records but no header", BYTES(kRev + "\"Name\",\"Start\"\n" + R1), {1, 1, 0, 0}},
      {"parameter line that is a lone quote", BYTES(kRev + "\"\n" + kMode + rest), {1, 2, 3, 1}},
  };
}

std::vector<Case> header_cases() {
  return {
      {"marker in lower case", BYTES(kRev + kMode + "\"kesta\"\n" + kColumns3 + R1), {1, 2, 3, 1}},
      {"marker with blanks", BYTES(kRev + kMode + "\"  KESTA  \"\n" + kColumns3 + R1), {1, 2, 3, 1}},
      {"marker unquoted", BYTES(kRev + kMode + "KESTA\n" + kColumns3 + R1), {1, 2, 3, 1}},
      {"marker and nothing after", BYTES(kRev + "\"KESTA\"\n"), {1, 1, 0, 0}},
      {"marker and widths only", BYTES(kRev + "\"KESTA\"\n\"8\"\n"), {1, 1, 0, 0}},
      {"types without names", BYTES(kRev + "\"KESTA\"\n\"8\",\"8\",\"8\"\n\"text\",\"text\",\"text\"\n"), {0, 1, 0, 0}},
      {"more types than names", BYTES(header("\"8\"", "\"text\",\"text\",\"text\"", "\"a\",\"b\"") + R1), {0, 2, 0, 0}},
      {"more names than types", BYTES(header("\"8\"", "\"text\",\"text\"", "\"a\",\"b\",\"c\"") + R1), {0, 2, 0, 0}},
      {"no widths line",
       BYTES(kRev + kMode + "\"KESTA\"\n\"text\",\"timecode\",\"text\"\n\"Name\",\"Start time\",\"Tag\"\n" + R1 + R2),
       {1, 2, 3, 1},
       [](kesta& db) {
         EXPECT_EQ(column(db, 0) + "|" + column(db, 1) + "|" + column(db, 2), "Shot 1|01:00:00:00|0");
         EXPECT_EQ(type(db, 0) + type(db, 1) + type(db, 2), 0);
       }},
      {"marker twice", BYTES(kRev + kMode + "\"KESTA\"\n" + kHeader3 + R1), {1, 2, 3, 2},
       [](kesta& db) {
         EXPECT_EQ(column(db, 1), "timecode");
         EXPECT_EQ(type(db, 2), '1');
         EXPECT_EQ(field(db, 0, 1), "Start time");
       }},
      {"unknown type tokens", BYTES(types3("\"bogus\",\"x\",\"TEXT\"") + R1), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(std::vector<int>({type(db, 0), type(db, 1), type(db, 2)}), (std::vector<int>{0, 'x', 'a'})); }},
      {"empty type tokens", BYTES(types3("\"\",\"\",\"\"") + R1), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(type(db, 0) + type(db, 1) + type(db, 2), 0); }},
      {"type tokens char, numeric and date", BYTES(types3("\"char\",\"numeric\",\"DATE\"") + R1), {1, 2, 3, 1},
       [](kesta& db) {
         EXPECT_EQ(type(db, 0), DBFieldTypes::kChar);
         EXPECT_EQ(type(db, 1), DBFieldTypes::kNumeric);
         EXPECT_EQ(type(db, 2), DBFieldTypes::kDate);
       }},
      {"type as one high byte", BYTES(types3("\"\xE9\",\"text\",\"text\"") + R1), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(type(db, 0), -23); }},
      {"duplicate column names", BYTES(names3("\"a\",\"A\",\"a\"") + R1), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(db.get_fieldnum("a"), 0u); }},
      {"empty column names", BYTES(names3("\"\",\"\",\"\"") + R1), {1, 2, 3, 1}},
      // Names are written unescaped and cut at 254 bytes: these do not come back from a save.
      {"a 300-byte column name", BYTES(names3("\"" + std::string(300, 'n') + "\",\"b\",\"c\"") + R1),
       {1, 2, 3, 1, "", false}, [](kesta& db) { EXPECT_EQ(column(db, 0).size(), 300u); }},
      {"a column name with doubled quotes", BYTES(names3("\"Say \"\"x\"\"\",\"b\",\"c\"") + R1), {1, 2, 3, 1, "", false},
       [](kesta& db) { EXPECT_EQ(column(db, 0), "Say \"x\""); }},
      {"a column name with an escaped line feed", BYTES(names3("\"Na\\nme\",\"b\",\"c\"") + R1), {1, 2, 3, 1, "", false},
       [](kesta& db) { EXPECT_EQ(column(db, 0), "Na\nme"); }},
      {"a column name with a quoted comma", BYTES(names3("\"a,b\",\"c\",\"d\"") + R1), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(column(db, 0), "a,b"); }},
      {"names line with an unterminated quote", BYTES(names3("\"Name\",\"Start time\",\"Tag") + R1), {1, 2, 3, 1}},
      {"names line with a trailing comma", BYTES(names3("\"Name\",\"Start time\",\"Tag\",") + R1), {1, 2, 3, 1}},
      {"names line with an empty name between commas", BYTES(names3("\"Name\",,\"Tag\"") + R1), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(column(db, 1), ""); }},
      // Lines give at most 65,535 fields: the rest is dropped.
      {"100,000 columns", BYTES(wide_file(100000, 100000, 100000)), {1, 1, 65535, 1},
       [](kesta& db) {
         EXPECT_STREQ(db.get_fieldname(65534), "c65534");
         EXPECT_EQ(db.get_record(0)->get_num_fields(), 65535);
       }},
      {"a record line of 65,537 fields in a full-width file", BYTES(wide_file(65535, 65535, 65537)),
       {1, 1, 65535, 1}},
      {"a record line of 65,539 fields in a three-column file",
       BYTES(H + R1 + line_of(65539, [](std::size_t) { return "v"; }) + "\n" + R2), {1, 2, 3, 1, kNotFilled}},
      {"types line of 70,000 fields and names line of 65,535", BYTES(wide_file(70000, 65535, 0)),
       {1, 1, 65535, 0}},
  };
}

std::vector<Case> record_cases() {
  const std::string R3 = "\"Shot 3\",\"01:00:20:00\",\"0\"";
  return {
      {"one field too many", BYTES(H + R1 + "\"a\",\"b\",\"c\",\"d\"\n" + R2), {1, 2, 3, 1, kNotFilled}},
      {"one field too few", BYTES(H + R1 + "\"a\",\"b\"\n" + R2), {1, 2, 3, 1, kNotFilled}},
      {"trailing comma", BYTES(H + R1 + R3 + ",\n" + R2), {1, 2, 3, 3}},
      {"trailing comma on a short line", BYTES(H + R1 + "\"Shot 3\",\"01:00:20:00\",\n" + R2), {1, 2, 3, 1, kNotFilled}},
      {"empty field between commas", BYTES(H + "\"Shot 3\",,\"0\"\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(fields_of(db, 0), (std::vector<std::string>{"Shot 3", "", "0"})); }},
      {"leading comma", BYTES(H + ",\"01:00:20:00\",\"0\"\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(fields_of(db, 0), (std::vector<std::string>{"", "01:00:20:00", "0"})); }},
      {"a line of commas", BYTES(H + ",,,\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(fields_of(db, 0), (std::vector<std::string>{"", "", ""})); }},
      {"unquoted fields", BYTES(H + "Shot 3,01:00:20:00,0\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(fields_of(db, 0), (std::vector<std::string>{"Shot 3", "01:00:20:00", "0"})); }},
      {"blanks around quoted fields", BYTES(H + "  \"Shot 3\"  ,  \"01:00:20:00\" , \"0\"  \n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(fields_of(db, 0), (std::vector<std::string>{"Shot 3", "01:00:20:00", "0"})); }},
      {"tab between fields", BYTES(H + "\"Shot 3\",\t\"01:00:20:00\",\"0\"\n"), {1, 2, 3, 1}},
      {"DEL between fields", BYTES(H + "\"Shot 3\",\x7f\"01:00:20:00\",\"0\"\n"), {1, 2, 3, 1}},
      {"NUL between fields", BYTES(H + "\"Shot 3\",\0\"01:00:20:00\",\"0\"\n"s), {1, 2, 3, 1}},
      {"NUL inside a field", BYTES(H + "\"Sh\0ot 3\",\"01:00:20:00\",\"0\"\n"s), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(field(db, 0, 0), "Sh\0ot 3"s); }},
      {"control characters only as a record line", BYTES(H + R1 + "\x01\x02\x03\n" + R2), {1, 2, 3, 1, kNotFilled}},
      {"lone carriage return inside a field", BYTES(H + "\"Sh\rot 3\",\"01:00:20:00\",\"0\"\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(field(db, 0, 0), "Sh\rot 3"); }},
      // Without line feeds the whole file is one line: its first field is the revision pair.
      {"lone carriage returns as line ends", BYTES(replaced(H + R1, '\n', "\r")), {1, 1, 0, 0},
       [](kesta& db) { EXPECT_EQ(value(db, 0), "Rev 1\rMode:x\rKESTA\r32"); }},
      {"CRLF line ends", BYTES(replaced(H + R1 + R2, '\n', "\r\n")), {1, 2, 3, 2}},
      {"mixed line ends", BYTES(kRev + replaced(kMode, '\n', "\r\n") + kHeader3 + replaced(R1, '\n', "\r\n") + R2),
       {1, 2, 3, 2}},
      {"two carriage returns before a line feed", BYTES(H + R3 + "\r\r\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(field(db, 0, 2), "0"); }},
      {"invalid UTF-8 bytes", BYTES(H + "\"\xff\xfe\",\"\xc0\x80\",\"\x80\"\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(fields_of(db, 0), (std::vector<std::string>{"\xff\xfe", "\xc0\x80", "\x80"})); }},
      {"UTF-8 sequences cut short", BYTES(H + "\"caf\xc3\",\"x\",\"\xe2\x82\"\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(field(db, 0, 0), "caf\xc3"); }},
      {"surrogate and out-of-range UTF-8", BYTES(H + "\"\xed\xa0\x80\",\"\xf8\x88\x80\x80\x80\",\"\xf4\x90\x80\x80\"\n"),
       {1, 2, 3, 1}},
      {"unterminated quote at the end of a record", BYTES(H + "\"Shot 3\",\"01:00:20:00\",\"0\n" + R2), {1, 2, 3, 2}},
      {"unterminated quote in a middle field", BYTES(H + R1 + "\"Shot 3\",\"01:00:20:00,\"0\"\n" + R2),
       {1, 2, 3, 1, kNotFilled}},
      {"quote opened on one line and closed on the next", BYTES(H + "\"Shot 3\",\"01:00:20:00\",\"0\n1\"\n" + R2),
       {1, 2, 3, 1, kNotFilled}},
      {"stray quote in an unquoted field", BYTES(H + "Sh\"ot 3,01:00:20:00,0\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(field(db, 0, 0), "Shot 3"); }},
      {"text after a closing quote", BYTES(H + "\"Shot\"3,\"01:00:20:00\",\"0\"\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(field(db, 0, 0), "Shot3"); }},
      {"doubled quotes", BYTES(H + "\"say \"\"hi\"\"\",\"01:00:20:00\",\"0\"\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(field(db, 0, 0), "say \"hi\""); }},
      {"a field of one doubled quote", BYTES(H + "\"\"\"\",\"x\",\"0\"\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(field(db, 0, 0), "\""); }},
      {"a lone quote as a record line", BYTES(H + R1 + "\"\n" + R2), {1, 2, 3, 1, kNotFilled}},
      {"two quotes as a record line", BYTES(H + R1 + "\"\"\n" + R2), {1, 2, 3, 1, kNotFilled}},
      {"escaped line feed", BYTES(H + "\"line1\\nline2\",\"x\",\"0\"\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(field(db, 0, 0), "line1\nline2"); }},
      {"double backslash", BYTES(H + "\"a\\\\b\",\"x\",\"0\"\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(field(db, 0, 0), "a\\\\b"); }},
      {"backslash at the end of a line", BYTES(H + "\"a\",\"b\",\"c\\\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(field(db, 0, 2), "c\\"); }},
      // The backslash is kept, the two quotes after it make one, and the comma stays inside.
      {"backslash before a quote", BYTES(H + R1 + "\"a\\\"\",\"b\",\"c\"\n" + R2), {1, 2, 3, 1, kNotFilled}},
      {"a field of 4,094 bytes", BYTES(H + "\"" + std::string(4094, 'x') + "\",\"x\",\"0\"\n"), {1, 2, 3, 1},
       [](kesta& db) { EXPECT_EQ(field(db, 0, 0).size(), 4094u); }},
      // A field stops when 4,095 bytes are stored and the byte there is skipped: here the
      // closing quote, so the comma after it ends an extra empty field. Written back quoted, an
      // unquoted field of that length does the same.
      {"a quoted field of 4,095 bytes", BYTES(H + R1 + "\"" + std::string(4095, 'x') + "\",\"x\",\"0\"\n" + R2),
       {1, 2, 3, 1, kNotFilled}},
      {"an unquoted field of 4,095 bytes", BYTES(H + std::string(4095, 'x') + ",\"x\",\"0\"\n"), {1, 2, 3, 1, "", false},
       [](kesta& db) { EXPECT_EQ(field(db, 0, 0).size(), 4095u); }},
      // Cut at 4,095 bytes; the byte at the cut is skipped, so the closing quote opens a field.
      // Written back, the 4,095-byte field gains an empty field after it and no longer fits.
      {"a field of 4,096 bytes", BYTES(H + "\"" + std::string(4096, 'x') + "\",\"01:00:20:00\",\"0\"\n"),
       {1, 2, 3, 1, "", false},
       [](kesta& db) {
         EXPECT_EQ(fields_of(db, 0), (std::vector<std::string>{std::string(4095, 'x'), ",01:00:20:00", "0"}));
       }},
      {"a field of 5,000 bytes", BYTES(H + R1 + "\"" + std::string(5000, 'x') + "\",\"01:00:20:00\",\"0\"\n" + R2),
       {1, 2, 3, 1, kNotFilled}},
      {"a 10 MB field", BYTES(H + R1 + "\"" + std::string(kTenMegabytes, 'x') + "\",\"01:00:20:00\",\"0\"\n" + R2),
       {1, 2, 3, 1, kNotFilled}},
      {"a 10 MB column name", BYTES(names3("\"" + std::string(kTenMegabytes, 'n') + "\",\"b\",\"c\"") + R1),
       {0, 2, 0, 0}},
      {"a million commas", BYTES(H + R1 + std::string(1000000, ',') + "\n" + R2), {1, 2, 3, 1, kNotFilled}},
      {"10 MB without a line feed", BYTES(H + R1 + std::string(kTenMegabytes, 'x')), {1, 2, 3, 1, kNotFilled}},
      {"last record without a line feed", BYTES(H + R1 + R2.substr(0, R2.size() - 1)), {1, 2, 3, 2}},
      {"file ending in two line feeds", BYTES(H + R1 + "\n"), {1, 2, 3, 1}},
      // A record whose first field is the marker takes the third line after it, whatever its
      // length; written back, that record no longer fits the columns.
      {"a record that reads as the marker",
       BYTES(H + "\"KESTA\",\"x\",\"y\"\n\"1\",\"2\",\"3\"\n\"text\",\"text\",\"text\"\n\"n1\",\"n2\"\n" + R1),
       {1, 2, 3, 2, "", false}, [](kesta& db) { EXPECT_EQ(fields_of(db, 0), (std::vector<std::string>{"n1", "n2"})); }},
      {"one-column file with a repeated header",
       BYTES(kOneColumn + "\"a\"\n\"KESTA\"\n\"8\"\n\"text\"\n\"Name\"\n\"b\"\n"), {1, 1, 1, 3},
       [](kesta& db) { EXPECT_EQ(field(db, 0, 0) + field(db, 1, 0) + field(db, 2, 0), "aNameb"); }},
      {"one-column file ending in a repeated header", BYTES(kOneColumn + "\"a\"\n\"KESTA\"\n\"8\"\n"),
       {1, 1, 1, 1, kNoMore}},
      {"one-column record of an empty field", BYTES(kOneColumn + "\"\"\n"), {1, 1, 1, 1}},
      {"100,000 records", BYTES(H + times(R1, 100000)), {1, 2, 3, 100000}},
  };
}

// Comma-separated input keeps no parameters, so a save of it does not load back.
std::vector<Case> csv_cases() {
  const Expect none{1, 0, 0, 0, "", false};
  std::vector<Case> cases = {
      {"empty comma-separated file", BYTES(""), none},
      {"comma-separated names only", BYTES("a,b,c\n"), {1, 0, 3, 0, "", false},
       [](kesta& db) { EXPECT_EQ(type(db, 2), DBFieldTypes::kTextS); }},
      {"comma-separated short and long lines", BYTES("a,b,c\n1,2\n1,2,3,4\n"), {1, 0, 3, 2, "", false},
       [](kesta& db) {
         EXPECT_EQ(fields_of(db, 0), (std::vector<std::string>{"1", "2", ""}));
         EXPECT_EQ(fields_of(db, 1), (std::vector<std::string>{"1", "2", "3"}));
       }},
      {"comma-separated quoted commas", BYTES("a,b\n\"x,y\",z\n"), {1, 0, 2, 1, "", false},
       [](kesta& db) { EXPECT_EQ(fields_of(db, 0), (std::vector<std::string>{"\"x,y\"", "z"})); }},
      {"comma-separated escaped quote", BYTES("a,b\n\"x\\\",y\",z\n"), {1, 0, 2, 1, "", false},
       [](kesta& db) { EXPECT_EQ(fields_of(db, 0), (std::vector<std::string>{"\"x\\\",y\"", "z"})); }},
      {"comma-separated blank line", BYTES("a,b\n\n1,2\n"), {1, 0, 2, 1, "", false}},
      {"comma-separated CRLF", BYTES("a,b\r\n1,2\r\n"), {1, 0, 2, 1, "", false},
       [](kesta& db) { EXPECT_EQ(column(db, 1) + field(db, 0, 1), "b2"); }},
      {"comma-separated byte-order mark", BYTES("\xEF\xBB\xBF" "a,b\n1,2\n"), {1, 0, 2, 1, "", false},
       [](kesta& db) { EXPECT_EQ(column(db, 0), "\xEF\xBB\xBF" "a"); }},
      {"comma-separated NUL", BYTES("a,b\n1\0x,2\n"s), {1, 0, 2, 1, "", false},
       [](kesta& db) { EXPECT_EQ(field(db, 0, 0), "1"); }},
      {"comma-separated line of commas", BYTES("a,b\n,,,\n"), {1, 0, 2, 1, "", false},
       [](kesta& db) { EXPECT_EQ(fields_of(db, 0), (std::vector<std::string>{"", ""})); }},
      {"comma-separated blanks", BYTES("a, b\n  1,  2\n"), {1, 0, 2, 1, "", false},
       [](kesta& db) {
         EXPECT_EQ(column(db, 1), " b");
         EXPECT_EQ(fields_of(db, 0), (std::vector<std::string>{"1", "2"}));
       }},
      {"comma-separated 100,000 columns",
       BYTES(line_of(100000, [](std::size_t i) { return std::to_string(i); }) + "\n" + std::string(99999, ',') + "\n"),
       {1, 0, 65535, 1, "", false}, [](kesta& db) { EXPECT_EQ(db.get_record(0)->get_num_fields(), 65535); }},
  };
  for (Case& c : cases) c.file = "case.csv";
  cases.push_back({"upper-case .CSV is not comma-separated", BYTES("a,b\n1,2\n"), {0, 0, 0, 0}, nullptr, "case.CSV"});
  return cases;
}

std::vector<Case> naming_cases() {
  return {
      {"file name with non-ASCII characters", BYTES(H + R1), {1, 2, 3, 1}, nullptr, "caf\xc3\xa9.kst"},
      {"file name with .csv inside it", BYTES(H + R1), {1, 2, 3, 1}, nullptr, "a.csv.kst"},
      {"the name is a folder", nullptr, {0, 0, 0, 0}, nullptr, "folder.kst", Kind::kFolder},
      {"no such file", nullptr, {0, 0, 0, 0}, nullptr, "missing.kst", Kind::kMissing},
  };
}

bool is_csv(const std::string& file) { return file.size() >= 4 && file.compare(file.size() - 4, 4, ".csv") == 0; }


// Loads each case, checks it against its expectations and the model, and saves it back.
void run(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const auto started = std::chrono::steady_clock::now();
    testutil::TempDir dir;
    const std::string path = dir.file(c.file);
    std::string bytes;
    if (c.kind == Kind::kFile) {
      bytes = c.bytes();
      testutil::writeFile(path, bytes);
    } else if (c.kind == Kind::kFolder) {
      ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
    }

    Zr::Ptr<kesta> db;
    std::string log;
    {
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

    if (c.kind == Kind::kFile && !is_csv(c.file)) {
      // Loading leaves nothing marked changed, and the model of the format agrees.
      EXPECT_EQ(db->changed(), 0);
      for (unsigned row = 0; row < db->get_num_records(); ++row) EXPECT_FALSE(db->get_record(row)->changed());
      const filemodel::Loaded model = filemodel::load(bytes);
      EXPECT_EQ(filemodel::difference(model.content, got), "");
      EXPECT_EQ(model.log, log);
    }
    if (got.valid) {
      EXPECT_EQ(reliability::roundTrip(*db, dir.file("saved.kst"), c.name), e.whole);
    }

    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    EXPECT_LT(seconds, 20.0) << "too slow";
  }
}

}  // namespace

TEST(MalformedFiles, EmptyAndBlankFiles) { run(empty_and_blank_cases()); }
TEST(MalformedFiles, FirstLines) { run(first_line_cases()); }
TEST(MalformedFiles, ParameterLines) { run(parameter_cases()); }
TEST(MalformedFiles, ColumnHeaders) { run(header_cases()); }
TEST(MalformedFiles, RecordLines) { run(record_cases()); }
TEST(MalformedFiles, CommaSeparatedFiles) { run(csv_cases()); }
TEST(MalformedFiles, FileNames) { run(naming_cases()); }

TEST(MalformedFiles, AtLeastAHundredNamedCases) {
  std::size_t count = 0;
  for (auto group : {empty_and_blank_cases, first_line_cases, parameter_cases, header_cases, record_cases, csv_cases,
                     naming_cases}) {
    count += group().size();
  }
  EXPECT_GE(count, 100u);
}
