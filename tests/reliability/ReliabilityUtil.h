#ifndef KESTA_TESTS_RELIABILITY_RELIABILITYUTIL_H
#define KESTA_TESTS_RELIABILITY_RELIABILITYUTIL_H
// A database's content and marks as plain values, and the save-and-reload check.

#include <string>
#include <vector>

#include "FileModel.h"
#include "SimFileSystem.h"
#include "record/kesta.h"

namespace reliability {

// The full record list as the file format sees it, fields byte-exact.
filemodel::Content contentOf(const kesta& db);

// What a save may change besides the text: changed marks, tags, and which record is where.
struct Marks {
  int database_changed = 0;
  std::vector<const dbrecord*> records;
  std::vector<bool> changed;
  std::vector<int> tags;
  bool operator==(const Marks&) const = default;
};
Marks marksOf(const kesta& db);

// The example log's bytes, and the offset past its first `lines` lines.
const std::string& dailies();
std::size_t pastLines(int lines);

// Saves `db` as "/saved.kst" on `disk` and loads it back. Checks, tagged with `label`: the
// save answers the record count and writes the bytes the format prescribes; the reload is
// what the format gives for them; both databases hold their invariants. Answers whether the
// columns and records came back (up to what writing does to a field).
bool roundTrip(kesta& db, SimFileSystem& disk, const std::string& label);

}  // namespace reliability

#endif
