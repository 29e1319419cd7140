// The expression list: its cells, their printing, reversal and destruction.

#include "expr/SExpr.h"

#include "expr/SExprIterator.h"
#include "support/GrowString.h"
#include "support/OS.h"

SExprElt::~SExprElt() = default;

void* SExprElt::operator new(std::size_t size) { return OS()->allocator()->allocate(size); }

void SExprElt::operator delete(void* block) noexcept {
  if (block) OS()->allocator()->release(block);
}

SExpr::~SExpr() {
  delete element_;
  // The rest of the list goes cell by cell rather than by recursion, so a long list cannot
  // exhaust the stack; elements still die in list order.
  SExpr* cell = next_;
  next_ = nullptr;
  while (cell) {
    SExpr* after = cell->next_;
    cell->next_ = nullptr;
    delete cell;
    cell = after;
  }
}

void SExpr::asString(GrowString& out) {
  out.append('(');
  SExprIterator it(this);
  ++it;
  while (it.current()) {
    if (SExprElt* element = it.current()->element()) element->asString(out);
    ++it;
    if (it.current()) out.append(' ');
  }
  out.append(')');
}

SExpr* SExpr::reverse() noexcept {
  SExpr* before = nullptr;
  SExpr* cell = this;
  while (cell) {
    SExpr* after = cell->next_;
    cell->next_ = before;
    before = cell;
    cell = after;
  }
  return before;
}
