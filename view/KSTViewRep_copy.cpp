// KSTViewRep: copies of a view, on the same database or on a private copy of it.

#include "view/KSTViewRep.h"

KSTViewRep* KSTViewRep::copy() {
  if (!db_) return nullptr;
  KSTViewRep* result = new KSTViewRep(db_, field_spec_);
  try {
    // A copy of a view on a private database copy shares that database, so either may go first.
    result->private_db_ = private_db_;
    if (base_) {
      // Chained copies show every row of the base view, whatever this view shows.
      result->baseView(base_);
      result->displayAllRecords();
    } else {
      result->displayAllFromAt(this, 0);
      result->addParamsFrom(db_);
    }
    for (int i = 0; i < index_.size(); ++i) result->set_tag(static_cast<unsigned>(i), index_.tag(i));
  } catch (...) {
    result->releaseUse();  // unused: this destroys it
    throw;
  }
  return result;
}

KSTViewRep* KSTViewRep::copyWithNewBaseView() {
  if (!db_) return nullptr;
  Zr::Ptr<kesta> database(new kesta(*db_, 1));
  KSTViewRep* result = new KSTViewRep(database.get());
  try {
    result->private_db_ = database;
    for (int i = 0; i < index_.size(); ++i) {
      if ((*this)[i]) result->displayRecordsAt(baseIndex(i), 1, i);
    }
    result->addParamsFrom(this);
    for (int i = 0; i < index_.size(); ++i) result->set_tag(static_cast<unsigned>(i), index_.tag(i));
  } catch (...) {
    result->releaseUse();  // unused: this destroys it
    throw;
  }
  return result;
}
