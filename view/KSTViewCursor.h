#ifndef KESTA_VIEW_KSTVIEWCURSOR_H
#define KESTA_VIEW_KSTVIEWCURSOR_H
// KSTViewCursor: walks the rows of a view, optionally only its tagged rows.
//
//   for (KSTViewCursor c(view, -1, true); (++c).index() != -1;) use(*c);
//
// The current row is -1 when the cursor stands on no row. Stepping past either end gives -1;
// stepping back from -1 starts at the last row.
//
// Thread safety: none; one thread at a time.

#include "record/dbrecord.h"
#include "view/KSTView.h"

class KESTA_API KSTViewCursor {
 public:
  explicit KSTViewCursor(const KSTView& view, int row = -1, bool taggedOnly = false);

  int index() const noexcept { return row_; }
  // The current row's record; null at -1.
  Zr::Ptr<dbrecord> operator*() const;
  // The row, or -1 when negative or past the end; the tagged-only flag is not consulted.
  void set_index(int row);
  KSTViewCursor& operator++();
  KSTViewCursor& operator--();
  // Removes the current row from the view (announcing it); the cursor then stands on the row
  // that took its place, or -1 past the end.
  void remove();
  // The first view row holding that very record, which becomes current; -1 when none.
  int find(dbrecord* record);

  const KSTView& view() const noexcept { return view_; }
  bool taggedOnly() const noexcept { return tagged_only_; }

 private:
  KSTView view_;
  int row_ = -1;
  bool tagged_only_ = false;
};

#endif
