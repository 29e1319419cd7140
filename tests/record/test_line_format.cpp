// The record line: reading quoted, comma-separated fields from a text line and writing them
// back, including the places where the two directions are deliberately not inverses.

#include <gtest/gtest.h>

#include <algorithm>

#include "record/StoreTestUtil.h"

namespace {

using storetest::Strings;
using Fields = std::vector<std::string>;

Fields fieldsOf(const dbrecord& record) {
  Fields out;
  for (unsigned short i = 0; i < record.get_num_fields(); ++i) out.emplace_back(record.fieldView(i));
  return out;
}

// Reads `line` into a fresh record; answers the count, the fields in `out`, and in `held`
// whether the record kept its line. The fields must read the same once taken apart.
int readLine(const std::string& line, Fields& out, bool* held = nullptr) {
  TextFile file;
  file.appendLine(std::string_view(line));
  Zr::Ptr<dbrecord> record(new dbrecord(0));
  int count = record->read(file);
  out = fieldsOf(*record);
  if (held) *held = record->heldAsLine();
  EXPECT_EQ(record->is_blank(), std::all_of(out.begin(), out.end(), [](auto& f) { return f.empty(); }));
  EXPECT_EQ(record->fieldView(static_cast<unsigned short>(out.size())), "") << "past the last field";
  EXPECT_EQ(fieldsOf(dbrecord(*record)), out) << "the record taken apart";
  std::string written;
  record->write_to(written);
  EXPECT_TRUE(!held || !*held || written == line) << "a held line writes back as it was";
  return count;
}

std::string writeFields(const Fields& fields) {
  Zr::Ptr<dbrecord> record(new dbrecord(static_cast<unsigned short>(fields.size())));
  for (std::size_t i = 0; i < fields.size(); ++i) {
    record->setField(static_cast<unsigned short>(i), LightweightString<char>(fields[i].data(), fields[i].size()));
  }
  TextFile file;
  EXPECT_TRUE(record->write(file));
  return std::string(file.line(0));
}

// The line of fields that hold no byte but a quote that needs escaping.
std::string quoted(const Fields& fields) {
  std::string line;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    line += i ? ",\"" : "\"";
    for (char c : fields[i]) line += c == '"' ? "\"\"" : std::string(1, c);
    line += '"';
  }
  return line;
}

TEST(LineFormat, ReadsFieldsAndCounts) {
  struct Case {
    std::string line;
    Fields fields;
    int count;
  };
  const std::vector<Case> cases = {
      // Quoting and the comma; a trailing comma adds no field.
      {R"("Reel 1","","say ""hi""")", {"Reel 1", "", "say \"hi\""}, 3},
      {R"("a","b",)", {"a", "b"}, 2},
      {R"("a",,"c")", {"a", "", "c"}, 3},
      {"a,b c,d", {"a", "b c", "d"}, 3},
      {R"("a,b",c)", {"a,b", "c"}, 2},
      {",", {""}, 1},
      {R"("","")", {"", ""}, 2},
      {",,", {"", ""}, 2},
      {R"("""")", {"\""}, 1},
      {R"("x"")", {"x\""}, 1},
      // Text after a closing quote stays in the field; a quote in an unquoted field is dropped.
      {R"("ab"cd,e)", {"abcd", "e"}, 2},
      {R"(ab"cd)", {"abcd"}, 1},
      {R"("a" , "b")", {"a", "b"}, 2},
      // White space at both ends is lost, inside quotes too.
      {R"("  x  ")", {"x"}, 1},
      {"\"\tb\t\"", {"b"}, 1},
      {"  a  ,  b  ", {"a", "b"}, 2},
      // Backslashes.
      {R"("line\none")", {"line\none"}, 1},
      {R"("a\\b")", {"a\\\\b"}, 1},
      {R"("a\b")", {"a\\b"}, 1},
      {R"("a\","b")", {"a\\", "b"}, 2},
      {R"(a\)", {"a\\"}, 1},
      {R"("\\n")", {"\\\\n"}, 1},
      // Control characters: counted but fieldless between fields, kept inside them.
      {"\"a\",\t\"b\"", {"a", "b"}, 3},
      {"\"a\",\x01\x02\"b\"", {"a", "b"}, 4},
      {"\x7f\"a\"", {"a"}, 2},
      {"\"a\",\x01", {"a"}, 2},
      // clang-format off
      {"\"a\x01" "b\"", {"a\x01" "b"}, 1},
      // clang-format on
      {"\"a\",\r", {"a"}, 2},
      {"\"a\"\r", {"a"}, 1},
      {"\x01", {}, 1},
      // Bytes above 127 are plain text, not control characters.
      {"\"caf\xc3\xa9\",\xe9t\xe9", {"caf\xc3\xa9", "\xe9t\xe9"}, 2},
      // At most 65535 fields.
      {std::string(70000, ','), Fields(65535, ""), 70000},
  };
  for (const Case& c : cases) {
    Fields got;
    EXPECT_EQ(readLine(c.line, got), c.count) << testing::PrintToString(c.line.substr(0, 40));
    EXPECT_EQ(got, c.fields) << testing::PrintToString(c.line.substr(0, 40));
  }
}

TEST(LineFormat, ReadingReplacesFieldsMarksAndAdvances) {
  kesta db(std::vector<DBFieldDesc>{{"Name", DBFieldTypes::kText}});
  TextFile file;
  for (const char* line : {R"("a","b","c")", "", "   ", "\t \t", "d"}) file.appendLine(std::string_view(line));
  Zr::Ptr<dbrecord> record(new dbrecord(5));
  record->set_container(&db);
  EXPECT_EQ(record->read(file), 3);
  EXPECT_EQ(fieldsOf(*record), (Fields{"a", "b", "c"}));
  EXPECT_TRUE(record->changed());
  EXPECT_EQ(db.changed(), 1);
  // Writing clears the record's mark only; a blank line yields nothing and keeps the mark.
  TextFile out;
  record->write(out);
  for (bool was_changed : {false, false, true}) {
    if (was_changed) record->touch();
    EXPECT_EQ(record->read(file), 0);
    EXPECT_EQ(record->get_num_fields(), 0);
    EXPECT_EQ(record->changed(), was_changed);
  }
  EXPECT_EQ(db.changed(), 1);
  EXPECT_EQ(record->read(file), 1);
  EXPECT_EQ(fieldsOf(*record), (Fields{"d"}));
  EXPECT_EQ(file.readCursor(), 5u);
  // Past the last line: an empty line, and the cursor still moves.
  EXPECT_EQ(record->read(file), 0);
  EXPECT_EQ(record->get_num_fields(), 0);
  EXPECT_EQ(file.readCursor(), 6u);
}

TEST(LineFormat, LongFieldsAreCutAndTheCutByteSkipped) {
  const std::string x4093(4093, 'x'), x4094 = x4093 + "x", x4095 = x4094 + "x";
  struct Case {
    std::string line;
    Fields fields;
    int count;
  };
  const std::vector<Case> cases = {
      {"\"" + std::string(5000, 'x') + "\"", {x4095, std::string(904, 'x')}, 2},
      {"\"" + std::string(5000, 'x') + "\",\"tail\"", {x4095, std::string(904, 'x'), "tail"}, 3},
      // The rest is read unquoted, so a comma that was inside the quotes now splits.
      {"\"" + x4095 + "xxxxx,y\"", {x4095, "xxxx", "y"}, 3},
      {"\"" + x4095 + "\"", {x4095}, 1},
      // At exactly 4095 bytes the closing quote is the cut byte; the comma opens an empty field.
      {"\"" + x4095 + "\",\"b\"", {x4095, "", "b"}, 3},
      {"\"" + x4095 + "x\"", {x4095, ""}, 2},
      // A double backslash with room for one byte: the second backslash is the cut byte.
      {"\"" + x4094 + "\\\\yz\"", {x4094 + "\\", "yz"}, 2},
      {"\"" + x4093 + "\\\\yz\"", {x4093 + "\\\\", "z"}, 2},
      // An escaped quote at the limit still fits: one byte stored for two read.
      {"\"" + x4094 + "\"\"\"", {x4094 + "\""}, 1},
  };
  for (const Case& c : cases) {
    Fields got;
    EXPECT_EQ(readLine(c.line, got), c.count) << c.line.size();
    EXPECT_TRUE(got == c.fields) << "line of " << c.line.size() << " bytes";
  }
}

// Special bytes at every offset of a long field, between plain bytes of both halves of the
// byte range, so that scanning several bytes at a time is checked at every alignment.
TEST(LineFormat, SpecialBytesAtEveryOffset) {
  const std::string filler =
      "ab\xe9"
      "cd\x80"
      "ef\xff"
      "gh";
  // byte as written in a line, byte as read back
  const std::vector<std::pair<std::string, std::string>> specials = {
      {"\"\"", "\""}, {"\\n", "\n"}, {",", ","}, {"\\x", "\\x"}, {"\\\\", "\\\\"}};
  for (std::size_t offset = 0; offset < 24; ++offset) {
    std::string head, tail;
    for (std::size_t i = 0; i < offset; ++i) head += filler[i % filler.size()];
    for (std::size_t i = 0; i < 19; ++i) tail += filler[(i + 3) % filler.size()];
    for (const auto& [written, read] : specials) {
      Fields got;
      const std::string line = "\"" + head + written + tail + "\",\"" + tail + "\"";
      EXPECT_EQ(readLine(line, got), 2) << testing::PrintToString(line);
      EXPECT_EQ(got, (Fields{head + read + tail, tail})) << testing::PrintToString(line);
    }
    Fields got;
    EXPECT_EQ(readLine(head + "," + tail, got), 2) << offset;  // unquoted, the comma ends the field
    EXPECT_EQ(got, (Fields{head, tail})) << offset;
    EXPECT_EQ(writeFields({head + "\n" + tail, head + "\"" + tail + "\r"}),
              "\"" + head + "\\n" + tail + "\",\"" + head + "\"\"" + tail + "\"")
        << offset;
  }
}

// A plain line keeps the starts of its first fields in the record and of longer lines apart,
// and is found by its separators several bytes at a time; fields of just a comma make
// separators overlap. Every field must read back as written wherever it falls, and lines that
// only look plain somewhere must not be kept as lines.
TEST(LineFormat, PlainLinesAreKeptAndReadBack) {
  std::vector<Fields> lines;
  for (unsigned count : {1u, 2u, 16u, 17u, 18u, 40u, 1000u}) {
    lines.emplace_back();
    for (unsigned i = 0; i < count; ++i) lines.back().push_back(i % 3 == 0 ? "" : "v" + std::to_string(i * 7));
  }
  for (std::size_t offset = 0; offset < 140; ++offset) {
    const std::string pad(offset, 'x');
    // Doubled quotes too, also where they and the separators look alike.
    for (const Fields& fields :
         {Fields{pad, ",", "a", ",", ",", "b,", ",c", ""}, Fields{",", pad, ","}, Fields{pad + ",", "", ","},
          Fields{pad, "", "", "z"}, Fields{pad + "\"y"}, Fields{pad, "\"y"}, Fields{"\"", pad + "\",\"", "\",", ""},
          Fields{"a\"\"", ",\"", pad, "\"\"\""}, Fields{"r", pad, "n\"", "", "t\""}}) {
      lines.push_back(fields);
    }
    // Look-alikes (a pair that ends the line, stray quotes, a blank after a pair), and lines
    // with a byte a plain line cannot hold (escape, control, delete).
    for (const std::string& line :
         {"\"" + pad + "\",\"", "\"" + pad + "\",\"\"\"", "\"" + pad + "\"y\"", "\"" + pad + "\"\" \"",
          "\"" + pad + "\" ,\"y\"", "\",\"" + pad + "\"", "\"" + pad + "\"\"\"y\"", "\"" + pad + "\\\\y\"",
          "\"" + pad + "\"\"\ty\"", "\"" + pad + "\x7fy\""}) {
      Fields ignored;
      bool held = true;
      readLine(line, ignored, &held);
      EXPECT_FALSE(held) << line;
    }
  }
  for (const Fields& fields : lines) {
    const std::string line = quoted(fields);
    Fields got;
    bool held = false;
    ASSERT_EQ(readLine(line, got, &held), static_cast<int>(fields.size())) << line;
    EXPECT_TRUE(held) << line;
    EXPECT_EQ(got, fields) << line;
  }
}

TEST(LineFormat, WritesQuotedFieldsAndReadsThemBack) {
  struct Case {
    Fields fields;
    std::string line;
    Fields read;  // empty: as written
  };
  const std::vector<Case> cases = {
      {{"Reel 1", "", "say \"hi\", ok"}, R"("Reel 1","","say ""hi"", ok")", {}},
      {{""}, R"("")", {}},
      {{"a\nb"}, R"("a\nb")", {}},
      {{"a\\\\b"}, R"("a\\b")", {}},
      {{"x\\", "y"}, R"("x\","y")", {}},
      {{"a\\\"b"}, R"("a\""b")", {}},
      {{"\"\""}, R"("""""")", {}},
      {{"caf\xc3\xa9"}, "\"caf\xc3\xa9\"", {}},
      // Deliberately inexact: backslash-n becomes a line feed, carriage returns and white space
      // at both ends are lost, and an escaped trailing line feed comes back as white space.
      {{"a\\nb"}, R"("a\nb")", {"a\nb"}},
      {{"a\r\nb\r"}, R"("a\nb")", {"a\nb"}},
      {{"a,b", " x "}, R"("a,b"," x ")", {"a,b", "x"}},
      {{"\t\x01\xff"}, "\"\t\x01\xff\"", {"\x01\xff"}},
      {{"\tx\n"}, "\"\tx\\n\"", {"x"}},
  };
  for (const Case& c : cases) {
    const std::string line = writeFields(c.fields);
    EXPECT_EQ(line, c.line) << testing::PrintToString(c.line);
    Fields got;
    const Fields& read = c.read.empty() ? c.fields : c.read;
    EXPECT_EQ(readLine(line, got), static_cast<int>(read.size())) << testing::PrintToString(line);
    EXPECT_EQ(got, read) << testing::PrintToString(line);
  }
  EXPECT_EQ(writeFields({}), "");
}

}  // namespace
