#ifndef KESTA_EXPR_SEXPR_H
#define KESTA_EXPR_SEXPR_H
// SExpr: one cell of a singly linked expression list; it owns its element and the rest of
// the list. Views keep their field lists in such lists.
//
//   SExpr* list = new SExpr(new SExprRef(3, db), new SExpr(new SExprOperator()));
//   GrowString out;
//   list->asString(out);   // "(Reel op )"
//   delete list;           // destroys every cell and element
//
// Thread safety: none; one thread at a time.

#include "expr/SExprElt.h"

class KESTA_API SExpr : public SExprElt {
 public:
  // Takes ownership of `element` and of the list that starts at `next`.
  explicit SExpr(SExprElt* element, SExpr* next = nullptr) noexcept : element_(element), next_(next) {}
  // Destroys the element, then every later cell with its element.
  ~SExpr() override;

  // "(" then the elements of this cell and the cells after it, separated by single spaces,
  // then ")". A cell without an element contributes nothing but its separator.
  void asString(GrowString& out) override;

  // Reverses the chain that starts at this cell in place; answers the new first cell (the
  // former last). This cell becomes the last.
  SExpr* reverse() noexcept;

  SExprElt* element() const noexcept { return element_; }
  SExpr* next() const noexcept { return next_; }

 private:
  SExprElt* element_;
  SExpr* next_;
};

#endif
