#ifndef KESTA_RECORD_DBFIELDTYPES_H
#define KESTA_RECORD_DBFIELDTYPES_H
// Column types and descriptors. A type code is an ASCII character code; it reaches the file's
// column header as a token ("timecode", "text", ...) or, for codes without one, as the single
// character itself. 0 means no type and ends an array of descriptors.

#include <cstdint>

#include "support/LightweightString.h"

struct DBFieldTypes {
  enum eType : int32_t {
    kNone = 0,
    kTimecode = 't',   // 116 "timecode"
    kTimecodeS = 'T',  // 84  "timecode_s"
    kText = 'a',       // 97  "text"
    kTextS = 'A',      // 65  "text_s"
    kTimeOfDay = 'D',  // 68  "time_of_day"
    kDate = 'd',       // 100 "date"
    kDosDate = 'M',    // 77  "dos_date"
    kChar = 'c',       // 99  "char", written as "c"
    kNumeric = 'n',    // 110 "numeric"
    kLong = 'l',       // 108 "long"
    kDouble = 'f',     // 102 "double"
  };
};

// One column: its name (looked up ignoring case) and its type. Widths are computed when a file
// is written, never stored.
struct DBFieldDesc {
  DBFieldDesc() = default;
  DBFieldDesc(const LightweightString<char>& n, DBFieldTypes::eType t) : name(n), type(t) {}
  DBFieldDesc(const char* n, DBFieldTypes::eType t) : name(n), type(t) {}

  LightweightString<char> name;
  DBFieldTypes::eType type = DBFieldTypes::kNone;
};

#endif
