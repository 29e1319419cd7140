#ifndef KESTA_EXPR_SEXPROPERATOR_H
#define KESTA_EXPR_SEXPROPERATOR_H
// SExprOperator: an operator element. It carries no data that the library reads; every
// operator prints as "op " (with its trailing space).
//
// Thread safety: none; one thread at a time.

#include "expr/SExprElt.h"

class KESTA_API SExprOperator : public SExprElt {
 public:
  SExprOperator() = default;
  ~SExprOperator() override;

  // Appends "op ".
  void asString(GrowString& out) override;
};

#endif
