#ifndef KESTA_VIEW_KSTVIEW_H
#define KESTA_VIEW_KSTVIEW_H
// KSTView: the counted handle through which callers hold a view.
//
//   KSTView view(new KSTViewRep(db.get()));   // the handle takes the view's first use
//   view->displayAllRecords();
//   KSTView tagged(view->newTagSubview());     // a view handed out with 0 uses: ours now
//
// Each handle owns one use of its view. Releasing a use destroys the view when the count was
// 1, or already 0: a view handed out with a count of 0 (copy, copyWithNewBaseView,
// newTagSubview) belongs to whoever wraps it first. Views chained on a view hold a use of it
// too, so a base view outlives its last handle while a chained view stands on it.
//
// Thread safety: none; the use count is a plain counter. One thread at a time.

#include "support/Export.h"

class KSTViewRep;

class KESTA_API KSTView {
 public:
  KSTView() noexcept = default;
  explicit KSTView(KSTViewRep* view);  // takes one use; null gives an empty handle
  KSTView(const KSTView& other);
  KSTView(KSTView&& other) noexcept : view_(other.view_) { other.view_ = nullptr; }
  ~KSTView();
  // Adds a use to other's view before releasing this one's, so self-assignment is safe.
  KSTView& operator=(const KSTView& other);
  KSTView& operator=(KSTView&& other) noexcept;

  KSTViewRep* get() const noexcept { return view_; }
  KSTViewRep* operator->() const noexcept { return view_; }
  KSTViewRep& operator*() const noexcept { return *view_; }
  explicit operator bool() const noexcept { return view_ != nullptr; }

  // A new handle on a copy of the view; empty without a view. REQUIRES: the view is attached
  // to a database.
  KSTView copy() const;
  KSTView copyWithNewBaseView() const;

 private:
  KSTViewRep* view_ = nullptr;
};

#endif
