// The record line: reading quoted, comma-separated fields from a text line and writing them
// back, including the places where the two directions are deliberately not inverses.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "record/dbrecord.h"
#include "record/kesta.h"

namespace {

using Fields = std::vector<std::string>;

Fields fieldsOf(const dbrecord& record) {
  Fields out;
  for (unsigned short i = 0; i < record.get_num_fields(); ++i) {
    const LightweightString<char>& f = record.getField(i);
    out.emplace_back(f.c_str(), f.size());
  }
  return out;
}

// Reads `line` into a fresh record; answers the count and leaves the fields in `out`.
int readLine(const std::string& line, Fields& out) {
  TextFile file;
  file.appendLine(std::string_view(line));
  Zr::Ptr<dbrecord> record(new dbrecord(0));
  int count = record->read(file);
  out = fieldsOf(*record);
  return count;
}

std::string writeFields(const Fields& fields) {
  Zr::Ptr<dbrecord> record(new dbrecord(static_cast<unsigned short>(fields.size())));
  for (std::size_t i = 0; i < fields.size(); ++i) {
    record->setField(static_cast<unsigned short>(i), LightweightString<char>(fields[i].data(), fields[i].size()));
  }
  TextFile file;
  EXPECT_TRUE(record->write(file));
  EXPECT_EQ(file.getNumLines(), 1u);
  return std::string(file.line(0));
}

std::string printable(const std::string& s) {
  std::string out;
  for (unsigned char c : s) {
    if (c < 32 || c >= 127) {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02x", c);
      out += hex;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

std::string repeat(char c, std::size_t n) { return std::string(n, c); }

TEST(LineFormat, ReadsFieldsAndCounts) {
  struct Case {
    std::string line;
    Fields fields;
    int count;
  };
  const std::vector<Case> cases = {
      // Quoting and the comma.
      {R"("Reel 1","","say ""hi""")", {"Reel 1", "", "say \"hi\""}, 3},
      {R"("a","b",)", {"a", "b"}, 2},  // a trailing comma adds no field
      {R"("a",,"c")", {"a", "", "c"}, 3},
      {"a,b c,d", {"a", "b c", "d"}, 3},
      {R"("a,b",c)", {"a,b", "c"}, 2},
      {",", {""}, 1},
      {",,", {"", ""}, 2},
      {R"("")", {""}, 1},
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
      {R"("a\")", {"a\\"}, 1},
      {R"("a\","b")", {"a\\", "b"}, 2},
      {R"(a\)", {"a\\"}, 1},
      {R"("\\n")", {"\\\\n"}, 1},
      // Control characters: counted but fieldless between fields, kept inside them.
      {"\"a\",\t\"b\"", {"a", "b"}, 3},
      {"\"a\",\x01\x02\"b\"", {"a", "b"}, 4},
      {"\x7f\"a\"", {"a"}, 2},
      {"\"a\",\x01", {"a"}, 2},
      {"\"a\x01" "b\"", {"a\x01" "b"}, 1},
      {"\"a\",\r", {"a"}, 2},
      {"\"a\"\r", {"a"}, 1},
      {"\x01", {}, 1},
      // Bytes above 127 are plain text, not control characters.
      {"\"caf\xc3\xa9\",\xe9t\xe9", {"caf\xc3\xa9", "\xe9t\xe9"}, 2},
  };
  for (const Case& c : cases) {
    Fields got;
    int count = readLine(c.line, got);
    EXPECT_EQ(count, c.count) << printable(c.line);
    EXPECT_EQ(got, c.fields) << printable(c.line);
  }
}

TEST(LineFormat, BlankLinesYieldNothingAndKeepTheMark) {
  for (const std::string line : {"", "   ", "\t \t"}) {
    for (bool was_changed : {false, true}) {
      TextFile file;
      file.appendLine(std::string_view(line));
      Zr::Ptr<dbrecord> record(new dbrecord(4));
      if (was_changed) record->set_field(0, "x");
      EXPECT_EQ(record->changed(), was_changed);
      EXPECT_EQ(record->read(file), 0) << printable(line);
      EXPECT_EQ(record->get_num_fields(), 0) << printable(line);
      EXPECT_EQ(record->changed(), was_changed) << printable(line);
      EXPECT_EQ(file.readCursor(), 1u);
    }
  }
}

TEST(LineFormat, ReadMarksRecordAndContainerChanged) {
  kesta db(std::vector<DBFieldDesc>{{"Name", DBFieldTypes::kText}});
  ASSERT_EQ(db.changed(), 0);
  Zr::Ptr<dbrecord> record(new dbrecord(1));
  record->set_container(&db);
  TextFile file;
  file.appendLine(std::string_view(R"("")"));
  EXPECT_EQ(record->read(file), 1);
  EXPECT_TRUE(record->changed());
  EXPECT_EQ(db.changed(), 1);

  // Writing clears the record's mark only.
  TextFile out;
  EXPECT_TRUE(record->write(out));
  EXPECT_FALSE(record->changed());
  EXPECT_EQ(db.changed(), 1);
}

TEST(LineFormat, ReadReplacesFieldsAndAdvancesTheCursor) {
  TextFile file;
  file.appendLine(std::string_view(R"("a","b","c")"));
  file.appendLine(std::string_view(""));
  file.appendLine(std::string_view("d"));
  Zr::Ptr<dbrecord> record(new dbrecord(5));
  record->set_field(4, "old");

  EXPECT_EQ(record->read(file), 3);
  EXPECT_EQ(fieldsOf(*record), (Fields{"a", "b", "c"}));
  EXPECT_EQ(record->read(file), 0);
  EXPECT_EQ(record->get_num_fields(), 0);
  EXPECT_EQ(record->read(file), 1);
  EXPECT_EQ(fieldsOf(*record), (Fields{"d"}));
  EXPECT_EQ(file.readCursor(), 3u);
  // Past the last line: an empty line, and the cursor still moves.
  EXPECT_EQ(record->read(file), 0);
  EXPECT_EQ(record->get_num_fields(), 0);
  EXPECT_EQ(file.readCursor(), 4u);
}

TEST(LineFormat, LongFieldsAreCutAndTheCutByteSkipped) {
  const std::string x4095 = repeat('x', 4095);
  struct Case {
    std::string line;
    Fields fields;
    int count;
  };
  const std::vector<Case> cases = {
      {"\"" + repeat('x', 5000) + "\"", {x4095, repeat('x', 904)}, 2},
      {"\"" + repeat('x', 5000) + "\",\"tail\"", {x4095, repeat('x', 904), "tail"}, 3},
      // The rest is read unquoted, so a comma that was inside the quotes now splits.
      {"\"" + repeat('x', 4100) + ",y\"", {x4095, "xxxx", "y"}, 3},
      {"\"" + x4095 + "\"", {x4095}, 1},
      // At exactly 4095 bytes the closing quote is the cut byte; the comma then opens an empty
      // field.
      {"\"" + x4095 + "\",\"b\"", {x4095, "", "b"}, 3},
      {"\"" + repeat('x', 4096) + "\"", {x4095, ""}, 2},
      // A double backslash with room for one byte: the second backslash is the cut byte.
      {"\"" + repeat('x', 4094) + "\\\\yz\"", {repeat('x', 4094) + "\\", "yz"}, 2},
      {"\"" + repeat('x', 4093) + "\\\\yz\"", {repeat('x', 4093) + "\\\\", "z"}, 2},
      // An escaped quote at the limit still fits: one byte stored for two read.
      {"\"" + repeat('x', 4094) + "\"\"\"", {repeat('x', 4094) + "\""}, 1},
  };
  for (const Case& c : cases) {
    Fields got;
    EXPECT_EQ(readLine(c.line, got), c.count) << c.line.size();
    ASSERT_EQ(got.size(), c.fields.size()) << c.line.size();
    for (std::size_t i = 0; i < got.size(); ++i) {
      EXPECT_EQ(got[i], c.fields[i]) << "line of " << c.line.size() << " bytes, field " << i;
    }
  }
}

// Special bytes at every offset of a long field, between plain bytes of both halves of the
// byte range, so that scanning several bytes at a time is checked at every alignment.
TEST(LineFormat, SpecialBytesAtEveryOffset) {
  const std::string filler = "ab\xe9" "cd\x80" "ef\xff" "gh";
  const std::vector<std::pair<std::string, std::string>> specials = {
      // byte as written in a line, byte as read back
      {"\"\"", "\""}, {"\\n", "\n"}, {",", ","}, {"\\x", "\\x"}, {"\\\\", "\\\\"}};
  for (std::size_t offset = 0; offset < 24; ++offset) {
    std::string head, tail;
    for (std::size_t i = 0; i < offset; ++i) head += filler[i % filler.size()];
    for (std::size_t i = 0; i < 19; ++i) tail += filler[(i + 3) % filler.size()];
    for (const auto& [written, read] : specials) {
      Fields got;
      const std::string line = "\"" + head + written + tail + "\",\"" + tail + "\"";
      EXPECT_EQ(readLine(line, got), 2) << printable(line);
      EXPECT_EQ(got, (Fields{head + read + tail, tail})) << printable(line);
    }
    // Unquoted, the comma ends the field wherever it sits.
    Fields got;
    EXPECT_EQ(readLine(head + "," + tail, got), 2) << offset;
    EXPECT_EQ(got, (Fields{head, tail})) << offset;

    EXPECT_EQ(writeFields({head + "\n" + tail, head + "\"" + tail + "\r"}),
              "\"" + head + "\\n" + tail + "\",\"" + head + "\"\"" + tail + "\"")
        << offset;
  }
}

// A plain line keeps the starts of its first fields in the record and of longer lines apart:
// every field must read back as written on both sides of that edge, before and after the
// record is taken apart.
TEST(LineFormat, PlainLinesOfAnyFieldCountReadBack) {
  for (unsigned count : {1u, 2u, 16u, 17u, 18u, 40u, 1000u}) {
    Fields fields;
    std::string line;
    for (unsigned i = 0; i < count; ++i) {
      fields.push_back(i % 3 == 0 ? "" : "v" + std::to_string(i * 7));
      line += (i ? ",\"" : "\"") + fields.back() + "\"";
    }
    TextFile file;
    file.appendLine(std::string_view(line));
    Zr::Ptr<dbrecord> record(new dbrecord(0));
    ASSERT_EQ(record->read(file), static_cast<int>(count));
    EXPECT_TRUE(record->heldAsLine()) << count;
    for (unsigned i = 0; i < count; ++i) {
      EXPECT_EQ(record->fieldView(static_cast<unsigned short>(i)), fields[i]) << count << " fields, field " << i;
    }
    EXPECT_EQ(record->fieldView(static_cast<unsigned short>(count)), "") << count;
    EXPECT_EQ(fieldsOf(*record), fields) << count;
    std::string written;
    record->write_to(written);
    EXPECT_EQ(written, line) << count;
  }
}

// A plain line is found by its separators, several bytes at a time: fields that hold just a
// comma make separators overlap, and the line must still read as its fields wherever they
// fall; lines that only look plain somewhere must not be kept as lines.
TEST(LineFormat, PlainLinesAreFoundAtEveryOffset) {
  for (std::size_t offset = 0; offset < 140; ++offset) {
    const std::string pad(offset, 'x');
    for (const Fields& fields : {Fields{pad, ",", "a", ",", ",", "b,", ",c", ""}, Fields{",", pad, ","},
                                 Fields{pad + ",", "", ","}, Fields{pad, "", "", "z"}}) {
      std::string line;
      for (std::size_t i = 0; i < fields.size(); ++i) line += (i ? ",\"" : "\"") + fields[i] + "\"";
      TextFile file;
      file.appendLine(std::string_view(line));
      Zr::Ptr<dbrecord> record(new dbrecord(0));
      ASSERT_EQ(record->read(file), static_cast<int>(fields.size())) << line;
      EXPECT_TRUE(record->heldAsLine()) << line;
      for (std::size_t i = 0; i < fields.size(); ++i) {
        EXPECT_EQ(record->fieldView(static_cast<unsigned short>(i)), fields[i]) << line << ", field " << i;
      }
    }
    // Look-alikes, and lines with a byte a plain line cannot hold (escape, control, delete).
    for (const std::string& line : {"\"" + pad + "\",\"", "\"" + pad + "\"\"y\"", "\"" + pad + "\" ,\"y\"",
                                    "\",\"" + pad + "\"", "\"" + pad + "\",\"\"\"y\"", "\"" + pad + "\\\\y\"",
                                    "\"" + pad + "\ty\"", "\"" + pad + "\x7fy\""}) {
      TextFile file;
      file.appendLine(std::string_view(line));
      Zr::Ptr<dbrecord> record(new dbrecord(0));
      record->read(file);
      EXPECT_FALSE(record->heldAsLine()) << line;
    }
  }
}

TEST(LineFormat, ALineOfManyCommasKeepsAtMost65535Fields) {
  Fields got;
  EXPECT_EQ(readLine(repeat(',', 70000), got), 70000);
  EXPECT_EQ(got.size(), 65535u);
}

TEST(LineFormat, WritesQuotedFields) {
  struct Case {
    Fields fields;
    std::string line;
  };
  const std::vector<Case> cases = {
      {{"Reel 1", "", "say \"hi\""}, R"("Reel 1","","say ""hi""")"},
      {{}, ""},
      {{""}, R"("")"},
      {{"a\nb"}, R"("a\nb")"},
      {{"a\r\nb\r"}, R"("a\nb")"},
      {{"a\\nb"}, R"("a\nb")"},
      {{"a\\\\b"}, R"("a\\b")"},
      {{"a,b", " x "}, R"("a,b"," x ")"},
      {{"\"\""}, R"("""""")"},
      {{"\t\x01\xff"}, "\"\t\x01\xff\""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(writeFields(c.fields), c.line) << printable(c.line);
  }
}

TEST(LineFormat, RoundTrips) {
  struct Case {
    Fields written;
    Fields read;
  };
  const std::vector<Case> cases = {
      // Exact.
      {{"Reel 1", "", "say \"hi\", ok"}, {"Reel 1", "", "say \"hi\", ok"}},
      {{"a\nb"}, {"a\nb"}},
      {{"a\\\\b"}, {"a\\\\b"}},
      {{"x\\", "y"}, {"x\\", "y"}},
      {{"a\\\"b"}, {"a\\\"b"}},
      {{"caf\xc3\xa9"}, {"caf\xc3\xa9"}},
      // Deliberately inexact.
      {{"a\\nb"}, {"a\nb"}},      // backslash-n becomes a line feed
      {{"a\r\nb\r"}, {"a\nb"}},   // carriage returns are lost
      {{"  x  "}, {"x"}},         // so is white space at both ends
      {{"\tx\n"}, {"x"}},         // an escaped trailing line feed comes back as white space
  };
  for (const Case& c : cases) {
    Fields got;
    const std::string line = writeFields(c.written);
    EXPECT_EQ(readLine(line, got), static_cast<int>(c.read.size())) << printable(line);
    EXPECT_EQ(got, c.read) << printable(line);
  }
}

}  // namespace
