#ifndef KESTA_BENCH_DAILIESCOLUMNS_H
#define KESTA_BENCH_DAILIESCOLUMNS_H
// The 17 standard columns of the benchmarks' generated logs, in file order, ended by an
// unnamed column as kesta's column-array constructor expects.

#include "record/DBFieldTypes.h"

namespace bench {

inline const DBFieldDesc kDailiesColumns[] = {
    {"Cookie", DBFieldTypes::kText},       {"Name", DBFieldTypes::kText},
    {"Reel", DBFieldTypes::kText},         {"Scene", DBFieldTypes::kText},
    {"Shot", DBFieldTypes::kText},         {"Start time", DBFieldTypes::kTimecode},
    {"End time", DBFieldTypes::kTimecode}, {"Duration", DBFieldTypes::kTimecode},
    {"snd reel", DBFieldTypes::kText},     {"snd start", DBFieldTypes::kTimecode},
    {"snd end", DBFieldTypes::kTimecode},  {"start keycode", DBFieldTypes::kText},
    {"end keycode", DBFieldTypes::kText},  {"Who", DBFieldTypes::kText},
    {"Description", DBFieldTypes::kText},  {"Notes", DBFieldTypes::kText},
    {"Tag", DBFieldTypes::kText},          {"", DBFieldTypes::kNone},
};

}  // namespace bench

#endif
