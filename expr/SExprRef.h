#ifndef KESTA_EXPR_SEXPRREF_H
#define KESTA_EXPR_SEXPRREF_H
// SExprRef: a reference to one field of a record source: the field's number and the source
// that owns the field. The source is not owned; it must outlive the reference, or the
// reference must be unbound (null source).
//
// Thread safety: none; one thread at a time.

#include "expr/SExprElt.h"

class iKST;

class KESTA_API SExprRef : public SExprElt {
 public:
  SExprRef(unsigned field, iKST* source) noexcept : field_(field), source_(source) {}
  ~SExprRef() override;

  // Appends the source's name of the field, or "voidref" when no source is bound.
  void asString(GrowString& out) override;

  unsigned field() const noexcept { return field_; }
  iKST* source() const noexcept { return source_; }

 private:
  unsigned field_;
  iKST* source_;
};

#endif
