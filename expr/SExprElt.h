#ifndef KESTA_EXPR_SEXPRELT_H
#define KESTA_EXPR_SEXPRELT_H
// SExprElt: the abstract element of an expression list. An element is a nested list (SExpr),
// an operator (SExprOperator) or a reference to a field of a record source (SExprRef).
//
// Elements live in blocks of the process allocator (OS()->allocator()), wherever the `new`
// that made them was written, so a list built by the application may be destroyed by the
// library and the other way round.
//
// Thread safety: none; an expression is used by one thread at a time.

#include <cstddef>

#include "support/Export.h"

class GrowString;

class KESTA_API SExprElt {
 public:
  SExprElt() = default;
  SExprElt(const SExprElt&) = delete;
  SExprElt& operator=(const SExprElt&) = delete;
  virtual ~SExprElt();

  // Appends the element's printed form to `out`.
  virtual void asString(GrowString& out) = 0;

  static void* operator new(std::size_t size);
  static void operator delete(void* block) noexcept;
};

#endif
