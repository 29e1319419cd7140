// KSTViewRep: the field specification, the list of source fields a view is about, and the
// view's printed description.

#include <cstring>
#include <memory>

#include "expr/SExprRef.h"
#include "support/Log.h"
#include "support/OS.h"
#include "view/KSTViewRep.h"

void KSTViewRep::fieldSpec(const char* spec) {
  delete[] field_spec_;
  field_spec_ = nullptr;
  if (!spec) return;
  const std::size_t length = std::strlen(spec);
  try {
    field_spec_ = new char[length + 1];
  } catch (const Zr::Exception::BadAlloc&) {
    return;
  }
  std::memcpy(field_spec_, spec, length + 1);
  // The list is not emptied first: references of an earlier call end up before the new ones,
  // turned round by the reversal. Views set their specification once, in the constructor.
  char* state = nullptr;
  for (char* name = strtok_r(field_spec_, "\t,", &state); name; name = strtok_r(nullptr, "\t,", &state)) {
    const int field = dbFieldIndex(name);
    if (field != -1) {
      std::unique_ptr<SExprRef> ref(new SExprRef(static_cast<unsigned>(field), db()));
      field_list_ = new SExpr(ref.get(), field_list_);
      ref.release();  // the cell owns it now
    } else {
      dorp_printf("Warning: KSTView::fieldSpec, non-existant fieldname \"%s\".\n", name);
    }
  }
  std::memcpy(field_spec_, spec, length + 1);  // splitting cut it
  if (field_list_) field_list_ = field_list_->reverse();
}

void KSTViewRep::identityFieldSpec(GrowString& out) {
  iKST* source = db();
  if (!source) return;
  const unsigned fields = source->get_num_fields();
  for (unsigned i = 0; i < fields; ++i) {
    if (i > 0) out.append(',');
    out.append(source->get_fieldname(i));
  }
}

int KSTViewRep::dbFieldIndex(const char* name) {
  iKST* source = db();
  if (!source || !name) return -1;
  const int fields = static_cast<int>(source->get_num_fields());
  if (fields < 0) return 0;
  for (int i = 0; i < fields; ++i) {
    const char* candidate = source->get_fieldname(static_cast<unsigned>(i));
    if (candidate && std::strcmp(candidate, name) == 0) return i;
  }
  return -1;
}

void KSTViewRep::asString(GrowString& out) {
  out.append("fieldSpec: ");
  out.append(field_spec_);
  out.append('\n');
  if (field_list_) {
    out.append("fields: ");
    field_list_->asString(out);
    out.append('\n');
  }
}
