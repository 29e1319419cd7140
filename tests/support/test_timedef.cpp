// Time codes in both text forms; what is not a time code passes through unchanged.

#include <gtest/gtest.h>

#include "support/TimeDef.h"

TEST(TimeDef, ReadsAndWritesBothForms) {
  const struct {
    const char* text;
    bool timecode, drop;
    const char* punctuated;
    const char* database;
  } cases[] = {
      {"01:00:00:00", true, false, "01:00:00:00", "01000000"},
      {"01:00:00;12", true, true, "01:00:00;12", "010000;12"},
      {"01;00;00;12", true, true, "01:00:00;12", "010000;12"},
      {"01;00;00:12", true, false, "01:00:00:12", "01000012"},
      {"01.02.03.04", true, false, "01:02:03:04", "01020304"},
      {"01020304", true, false, "01:02:03:04", "01020304"},
      {"010203;04", true, true, "01:02:03;04", "010203;04"},
      {" \t23:59:59:29 ", true, false, "23:59:59:29", "23595929"},
      {"", false, false, "", ""},
      {"A001", false, false, "A001", "A001"},
      {"1:00:00:00", false, false, "1:00:00:00", "1:00:00:00"},
      {"24:00:00:00", false, false, "24:00:00:00", "24:00:00:00"},
      {"01:60:00:00", false, false, "01:60:00:00", "01:60:00:00"},
      {"0100000", false, false, "0100000", "0100000"},
      {"01:00:00:00:00", false, false, "01:00:00:00:00", "01:00:00:00:00"},
      {" 01 :00:00:00", false, false, " 01 :00:00:00", " 01 :00:00:00"},
      {"01-00-00-00", false, false, "01-00-00-00", "01-00-00-00"},
  };
  for (const auto& c : cases) {
    time_def t(c.text, kLabelTimecode);
    EXPECT_EQ(t.isTimecode(), c.timecode) << c.text;
    EXPECT_EQ(t.dropFrame(), c.drop) << c.text;
    EXPECT_EQ(t.get_punctuated_str(), c.punctuated) << c.text;
    EXPECT_EQ(t.get_database_str(), c.database) << c.text;
    // Each form reads back to the same code, drop-frame included.
    time_def from_db(c.database, kLabelTimecode);
    time_def from_punctuated(c.punctuated, kLabelTimecode);
    EXPECT_EQ(from_db.get_punctuated_str(), c.punctuated) << c.text;
    EXPECT_EQ(from_punctuated.get_database_str(), c.database) << c.text;
    EXPECT_EQ(from_db.dropFrame(), c.drop) << c.text;
  }
}

TEST(TimeDef, OtherKindsKeepTheText) {
  time_def t("01:00:00:00", kLabelNone);
  EXPECT_FALSE(t.isTimecode());
  EXPECT_EQ(t.get_database_str(), "01:00:00:00");
  EXPECT_EQ(time_def(nullptr, kLabelTimecode).get_punctuated_str(), "");
  EXPECT_EQ(time_def().get_database_str(), "");
}
