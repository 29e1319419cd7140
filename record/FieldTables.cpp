// The constant column tables shared by the column-width code and query matching.

#include "record/FieldTables.h"

#include <cstring>

namespace field_tables {

const MinFieldSize kMinFieldSizes[] = {
    {"Cookie", 12},       {"Type", 6},           {"Flags", 8},           {"Name", 32},          {"Date", 12},
    {"Size", 8},          {"pic qual", 4},       {"aud qual", 32},       {"chans", 64},         {"Start time", 12},
    {"End time", 12},     {"Duration", 16},      {"Reel", 10},           {"Reel Type", 30},     {"Scene", 24},
    {"Shot", 24},         {"Who", 24},           {"Description", 64},    {"Notes", 100},        {"snd start", 12},
    {"snd end", 12},      {"snd reel", 10},      {"start 24P code", 12}, {"end 24P code", 12},  {"24P reel", 10},
    {"film_origin", 3},   {"pulldown", 3},       {"sequence", 2},        {"start keycode", 17}, {"end keycode", 17},
    {"film duration", 9}, {"start camcode", 12}, {"end camcode", 12},    {"cam reel", 10},      {"comp reel", 10},
    {"cam_date", 6},      {"start inkcode", 15}, {"end inkcode", 15},    {"lab reel", 10},      {"Mdrive", 4},
    {"Tag", 1},           {nullptr, 0},
};

// clang-format off
const char* const kSpecialLabelFields[] = {
    "Start time",    "End time",    "snd start",     "snd end",     "start 24P code", "end 24P code",
    "start keycode", "end keycode", "start camcode", "end camcode", "start inkcode",  "end inkcode",
    "",
};
// clang-format on

bool isSpecialLabelName(const char* name) noexcept {
  if (!name) return false;
  for (const char* const* entry = kSpecialLabelFields; **entry; ++entry) {
    if (std::strcmp(name, *entry) == 0) return true;
  }
  return false;
}

}  // namespace field_tables
