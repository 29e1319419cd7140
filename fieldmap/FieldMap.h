#ifndef KESTA_FIELDMAP_FIELDMAP_H
#define KESTA_FIELDMAP_FIELDMAP_H
// FieldMap: the columns a client shows for a view of a database, in display order, each
// visible or hidden. It is kept by name, so it survives columns being renumbered, and
// persisted in the source's parameter "V5_FIELD_MAP" as signed 1-based column numbers:
// "1 2 -4 3" shows columns 1, 2 and 3 in that order with column 4 hidden between them.
//
//   FieldMap map(view);                         // reads "V5_FIELD_MAP", or every column
//   map.setVisible(map.getFieldIdx("Notes"), false);
//   view->set_param_val("V5_FIELD_MAP", map.asString().c_str());
//
// Names are distinct ignoring case. Out-of-range indices are ignored by setters and answer
// false, -1 or an empty string from queries.
//
// Thread safety: none; one thread at a time.

#include <vector>

#include "record/kesta.h"
#include "view/KSTView.h"

class KESTA_API FieldMap {
 public:
  FieldMap();
  explicit FieldMap(const KSTView& view);
  // A new view over `db` becomes the source.
  explicit FieldMap(kesta& db);
  FieldMap(const FieldMap& other);
  // Takes the source always (even from itself), then the names and flags.
  FieldMap& operator=(const FieldMap& other);
  ~FieldMap();

  int getFieldIdx(const LightweightString<char>& name) const;  // -1 when absent
  bool containsField(const LightweightString<char>& name) const;
  bool isVisible(int i) const;
  bool isVisible(const LightweightString<char>& name) const;
  int numVisible() const;
  // The source's column number of the n-th visible entry (n from 0); -1 past the last.
  int getVisibleFieldIndex(int n) const;
  LightweightString<char> getName(int i) const;  // empty out of range
  LightweightString<char> operator[](int i) const { return getName(i); }
  int size() const noexcept { return static_cast<int>(names_.size()); }

  void setVisible(int i, bool on);
  void invertVisible(int i);
  void setName(int i, const LightweightString<char>& name);
  void set(int i, const LightweightString<char>& name, bool visible);
  // REQUIRES: i and j are valid indices.
  void swap(int i, int j);
  bool remove(const LightweightString<char>& name);
  // Adds at the end unless present; a present name keeps its place and flag.
  void append(const LightweightString<char>& name, bool visible);
  void clear();

  // Makes `view` the source and adds the entries its "V5_FIELD_MAP" names behind the existing
  // ones; without that parameter, fills every column of the source when the map is empty.
  void setSourceDb(const KSTView& view);
  // The text form for "V5_FIELD_MAP".
  LightweightString<char> asString() const;

  const KSTView& source() const noexcept { return source_; }

 private:
  std::vector<LightweightString<char>> names_;
  std::vector<bool> visible_;
  KSTView source_;
};

#endif
