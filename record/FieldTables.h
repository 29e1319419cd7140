#ifndef KESTA_RECORD_FIELDTABLES_H
#define KESTA_RECORD_FIELDTABLES_H
// The record store's constant column tables: the standard column names with the minimum width
// the file writer gives them, and the names of the columns that hold time codes and edge codes
// (query matching treats those as start/end ranges). Internal to the library.
//
// Thread safety: constant data, safe from any thread.

namespace field_tables {

struct MinFieldSize {
  const char* name;  // null in the end marker
  int width;
};

// The standard columns in search order, ended by an entry with a null name.
extern const MinFieldSize kMinFieldSizes[];
// Width of a column whose name is not in kMinFieldSizes.
inline constexpr int kDefaultMinFieldSize = 4;

// The time-code and edge-code columns, ended by an empty name.
extern const char* const kSpecialLabelFields[];

// True when `name` equals one of kSpecialLabelFields, byte for byte (case counts here, unlike
// every other column-name comparison). False for null.
bool isSpecialLabelName(const char* name) noexcept;

}  // namespace field_tables

#endif
