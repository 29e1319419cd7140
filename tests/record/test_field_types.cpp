// Column types and widths: type tokens in both directions, the minimum widths of the standard
// columns, the current width of a column's data, and the special-label test.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "record/kesta.h"

namespace {

using T = DBFieldTypes;

TEST(FieldTypes, TokensReadIgnoringCaseThenAsOneCharacter) {
  struct Case {
    const char* token;
    int code;
  };
  const Case cases[] = {
      {"timecode", 116}, {"TIMECODE", 116},   {"timecode_s", 84},  {"Text", 97},      {"text_s", 65},
      {"TEXT_S", 65},    {"Text_S", 65},      {"time_of_day", 68}, {"DATE", 100},     {"dos_date", 77},
      {"char", 99},      {"Numeric", 110},    {"long", 108},       {"double", 102},   {"x", 120},
      {"c", 99},         {"B", 66},           {"\x7f", 127},       {"\xc8", -56},     {"xy", 0},
      {"", 0},           {"timecodes", 0},    {"tex", 0},          {" text", 0},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(kesta::fieldTypeFromString(LightweightString<char>(c.token)), c.code) << c.token;
  }
  EXPECT_EQ(kesta::fieldTypeFromString(LightweightString<char>()), 0);
}

TEST(FieldTypes, TokensWrittenForTheHeader) {
  struct Case {
    int code;
    const char* token;
  };
  const Case cases[] = {
      {116, "\"timecode\""}, {84, "\"timecode_s\""}, {97, "\"text\""},     {65, "\"text_s\""},
      {68, "\"time_of_day\""}, {100, "\"date\""},    {77, "\"dos_date\""}, {110, "\"numeric\""},
      {108, "\"long\""},     {102, "\"double\""},     {99, "\"c\""},        {66, "\"B\""},
      {120, "\"x\""},        {1, "\"\x01\""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(kesta::fieldTypeToString(static_cast<T::eType>(c.code)), c.token) << c.code;
  }
}

TEST(FieldTypes, EveryCodeUpTo127SurvivesWriteAndRead) {
  for (int code = 1; code <= 127; ++code) {
    LightweightString<char> token = kesta::fieldTypeToString(static_cast<T::eType>(code));
    ASSERT_GE(token.size(), 3u) << code;
    ASSERT_EQ(token[0], '"');
    ASSERT_EQ(token[token.size() - 1], '"');
    LightweightString<char> bare(token.c_str() + 1, token.size() - 2);
    EXPECT_EQ(kesta::fieldTypeFromString(bare), code) << token.c_str();
  }
}

TEST(FieldTypes, MinimumWidthsByName) {
  struct Case {
    const char* name;
    int width;
  };
  const Case cases[] = {
      {"Cookie", 12},      {"notes", 100},        {"NOTES", 100},      {"Comment", 4},     {"Tag", 1},
      {"Reel", 10},        {"Reel Type", 30},     {"reel type", 30},   {"Reel Typ", 4},    {"chans", 64},
      {"start keycode", 17}, {"START 24P CODE", 12}, {"film_origin", 3}, {"sequence", 2},   {"Mdrive", 4},
      {"lab reel", 10},    {"", 4},               {nullptr, 4},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(kesta::getMinFieldSize(c.name), c.width) << (c.name ? c.name : "(null)");
  }
}

TEST(FieldTypes, SpecialLabelFieldsCompareCaseSensitively) {
  const std::vector<std::string> special = {"Start time",     "End time",      "snd start",     "snd end",
                                            "start 24P code", "end 24P code",  "start keycode", "end keycode",
                                            "start camcode",  "end camcode",   "start inkcode", "end inkcode"};
  const std::vector<std::string> plain = {"start time", "START TIME", "Start time ", "Reel", "snd reel", "Start"};
  std::vector<DBFieldDesc> descs;
  for (const std::string& n : special) descs.emplace_back(n.c_str(), T::kTimecode);
  for (const std::string& n : plain) descs.emplace_back(n.c_str(), T::kText);
  kesta db(descs);
  ASSERT_EQ(db.get_num_fields(), special.size() + plain.size());
  for (unsigned i = 0; i < special.size(); ++i) EXPECT_TRUE(db.isSpecialLabelField(i)) << special[i];
  for (unsigned i = 0; i < plain.size(); ++i) {
    EXPECT_FALSE(db.isSpecialLabelField(special.size() + i)) << plain[i];
  }
  EXPECT_FALSE(db.isSpecialLabelField(special.size() + plain.size()));
  EXPECT_FALSE(db.isSpecialLabelField(static_cast<unsigned long>(-1)));
}

TEST(FieldTypes, TypesReadAndSetByColumn) {
  kesta db(std::vector<DBFieldDesc>{{"Reel", T::kText}, {"Start time", T::kTimecode}});
  EXPECT_EQ(db.get_field_type(1), T::kTimecode);
  EXPECT_EQ(db.get_fieldtype(1), T::kTimecode);
  EXPECT_EQ(db.get_field_type(2), 0);
  EXPECT_EQ(db.get_fieldtype(2), 0);

  EXPECT_TRUE(db.set_fieldtype(0, T::kLong));
  EXPECT_EQ(db.get_field_type(0), T::kLong);
  EXPECT_TRUE(db.set_fieldtype(1, T::kNone));  // a column always keeps a type
  EXPECT_EQ(db.get_field_type(1), T::kText);
  EXPECT_TRUE(db.set_fieldtype(1, static_cast<T::eType>('B')));
  EXPECT_EQ(db.get_field_type(1), 'B');
  EXPECT_FALSE(db.set_fieldtype(2, T::kDate));
  EXPECT_EQ(db.get_field_type(0), T::kLong);
  EXPECT_EQ(db.get_field_type(1), 'B');
}

TEST(FieldTypes, FieldSizeIsTheLongestValueOverAllRecords) {
  kesta db(std::vector<DBFieldDesc>{{"Reel", T::kText}, {"Notes", T::kText}, {"Who", T::kText}});
  EXPECT_EQ(db.get_fieldsize(0), 0u);  // no records

  ASSERT_EQ(db.add_records(3), 0u);
  db.get_record(0)->set_field(0, "A001");
  db.get_record(1)->set_field(0, "A0002 long");
  db.get_record(2)->set_field(0, "B3");
  db.get_record(1)->set_field(1, "caf\xc3\xa9");  // bytes, not characters
  db.get_record(0)->set_field(2, "abc");
  db.get_record(2)->set_field(2, "someone");
  int fill = 1;
  db.get_record(2)->resizeRecord(1, &fill, true);  // now too short to have fields 1 and 2
  EXPECT_EQ(db.get_fieldsize(0), 10u);
  EXPECT_EQ(db.get_fieldsize(1), 5u);
  EXPECT_EQ(db.get_fieldsize(2), 3u);
  EXPECT_EQ(db.get_fieldsize(3), 0u);

  // Entries without a record contribute nothing.
  db.insert_records(0, 3);
  ASSERT_EQ(db.get_num_records(), 6u);
  EXPECT_FALSE(db.get_record(1));
  EXPECT_EQ(db.get_fieldsize(0), 10u);
  db.get_record(0)->set_field(0, "a much longer reel name");
  EXPECT_EQ(db.get_fieldsize(0), 23u);
}

}  // namespace
