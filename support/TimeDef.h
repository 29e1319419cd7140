#ifndef KESTA_SUPPORT_TIMEDEF_H
#define KESTA_SUPPORT_TIMEDEF_H
// time_def: a time or film code of a given kind; kind 6 is a SMPTE time code.
//
//   time_def t("01:00:00;12", 6);
//   t.get_punctuated_str();   // "01:00:00;12"  (";" before the frames marks drop-frame)
//   t.get_database_str();     // "010000;12"
//
// Reading: "HH:MM:SS:FF" with any of ":", ";", "." as separators (";" before the frames marks
// drop-frame), or the eight digits "HHMMSSFF", blanks around it ignored. The database form is
// the unpunctuated digits; a drop-frame code keeps only its ";" before the frames, so that
// drop-frame survives a round trip through both forms. Text that is not a time code is kept as
// it came: both forms answer it unchanged, so a conversion never loses a value; empty stays
// empty.
//
// Thread safety: a value type.

#include "support/LightweightString.h"

enum label_t : int {
  kLabelNone = 0,
  kLabelTimecode = 6,
};

class KESTA_SUPPORT_API time_def {
 public:
  time_def() = default;
  time_def(const char* text, label_t kind);

  bool isTimecode() const noexcept { return parsed_; }
  bool dropFrame() const noexcept { return drop_; }
  // "HH:MM:SS:FF", or "HH:MM:SS;FF" for drop-frame; unparsed text as it came.
  LightweightString<char> get_punctuated_str() const;
  // "HHMMSSFF", or "HHMMSS;FF" for drop-frame (so drop-frame survives a round trip);
  // unparsed text as it came.
  LightweightString<char> get_database_str() const;

 private:
  LightweightString<char> raw_;
  int hours_ = 0, minutes_ = 0, seconds_ = 0, frames_ = 0;
  bool parsed_ = false;
  bool drop_ = false;
};

#endif
