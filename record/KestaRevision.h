#ifndef KESTA_RECORD_KESTAREVISION_H
#define KESTA_RECORD_KESTAREVISION_H
// The revision level of the database file that this library writes: the "KESTA" parameter a
// database gains first ("Rev 1"), and the level a loaded file is checked against. Internal to
// the library.

namespace kesta_revision {

inline constexpr int kCurrentLevel = 1;

}  // namespace kesta_revision

#endif
