#ifndef KESTA_EXPR_SEXPRITERATOR_H
#define KESTA_EXPR_SEXPRITERATOR_H
// SExprIterator: walks the cells of an expression list.
//
//   for (SExprIterator it(list); (++it).current();) use(it.current()->element());
//
// A new iterator stands before the first cell (current() is null). Stepping moves to the
// first cell, then along the list; past the last cell it stands on nothing again, and the
// next step starts over at the first cell.
//
// Thread safety: none; one thread at a time.

#include "expr/SExpr.h"

class KESTA_API SExprIterator {
 public:
  explicit SExprIterator(SExpr* first) noexcept : first_(first) {}

  SExprIterator& operator++() noexcept {
    current_ = current_ ? current_->next() : first_;
    return *this;
  }
  // The cell the iterator stands on, or null.
  SExpr* current() const noexcept { return current_; }

 private:
  SExpr* first_;
  SExpr* current_ = nullptr;
};

#endif
