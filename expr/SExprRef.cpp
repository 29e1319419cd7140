// The leaf elements of expression lists: field references and operators.

#include "expr/SExprRef.h"

#include "expr/SExprOperator.h"
#include "record/iKST.h"
#include "support/GrowString.h"

SExprRef::~SExprRef() = default;

void SExprRef::asString(GrowString& out) {
  if (!source_) {
    out.append("voidref");
    return;
  }
  out.append(source_->get_fieldname(field_));
}

SExprOperator::~SExprOperator() = default;

void SExprOperator::asString(GrowString& out) { out.append("op "); }
