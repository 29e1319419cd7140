// KSTViewRep: construction, attachment to a database and a base view, uses, the mapping of
// view rows, the row index primitives and the parameters.

#include "view/KSTViewRep.h"

#include <cstdio>
#include <cstring>
#include <memory>

#include "support/Log.h"
#include "view/ViewMessages.h"

// -------------------------------------------------------------------------- construction

// A failure in a constructor must not leave the view registered with its database.
KSTViewRep::KSTViewRep(kesta* database) {
  try {
    init();
    kst(database);
    setIdentity();
  } catch (...) {
    teardown();
    throw;
  }
}

KSTViewRep::KSTViewRep(kesta* database, const char* spec) {
  try {
    init();
    kst(database);
    if (spec) {
      fieldSpec(spec);
    } else {
      setIdentity();
    }
  } catch (...) {
    teardown();
    throw;
  }
}

KSTViewRep::KSTViewRep(kesta* database, const char** names) {
  try {
    init();
    kst(database);
    if (!names) {
      setIdentity();
      return;
    }
    std::size_t total = 1;
    for (const char** name = names; *name; ++name) total += std::strlen(*name) + 1;
    std::unique_ptr<char[]> joined(new char[total]);
    char* end = joined.get();
    for (const char** name = names; *name; ++name) {
      const std::size_t n = std::strlen(*name);
      std::memcpy(end, *name, n);
      end += n;
      *end++ = ',';
    }
    *end = '\0';
    fieldSpec(joined.get());
  } catch (...) {
    teardown();
    throw;
  }
}

KSTViewRep::~KSTViewRep() { teardown(); }

void KSTViewRep::teardown() noexcept {
  // kst unchains first, keeping the database alive until this view has deregistered; a view
  // constructed without a database may still have been chained, so let its base go too.
  kst(nullptr);
  baseView(nullptr);
  fieldSpec(nullptr);
  drop_owned();
}

void KSTViewRep::drop_owned() noexcept {
  delete field_list_;
  field_list_ = nullptr;
  delete condition_;
  condition_ = nullptr;
  delete sort_order_;
  sort_order_ = nullptr;
  db_guard_ = nullptr;
  base_guard_ = nullptr;
}

void KSTViewRep::setIdentity() {
  GrowString names;
  identityFieldSpec(names);
  fieldSpec(names.c_str());
}

void KSTViewRep::init() {
  index_.release();
  base_ = nullptr;
  db_ = nullptr;
  uses_ = 0;
  drop_owned();
  internRevision();
}

void KSTViewRep::internRevision() {
  if (findParamIndex(LightweightString<char>("KESTA")) >= 0) return;
  char revision[16];
  std::snprintf(revision, sizeof revision, "Rev %d", 1);
  append_param(LightweightString<char>("KESTA"), LightweightString<char>(revision));
}

void KSTViewRep::kst(kesta* database) {
  if (database == db_) return;
  // Unchaining may destroy the base view and with it the database copy it owns, which this
  // view may stand on too: keep that database until this view has let go of it.
  Zr::Ptr<kesta> keep;
  if (db_ && db_->refCount() > 0) keep = Zr::Ptr<kesta>(db_);
  baseView(nullptr);
  clear();
  if (db_) db_->deregisterNotification(db_guard_);
  db_ = database;
  if (!database) return;
  fileName(database->get_filename());
  empty_params();
  addParamsFrom(database);
  internRevision();
  CriticalSection::Lock hold(database->lock());
  db_guard_ = database->registerNotification(this, &KSTViewRep::recordsDeletedNotify, view_messages::recordsDeleted());
}

void KSTViewRep::baseView(KSTViewRep* base) {
  if (base == base_) return;
  clear();
  empty_params();
  if (base_) {
    KSTViewRep* old = base_;
    old->deregisterNotification(base_guard_);
    base_ = nullptr;
    old->releaseUse();
  }
  if (!base) return;
  addParamsFrom(base);
  {
    CriticalSection::Lock hold(base->lock());
    base_guard_ = base->registerNotification(this, &KSTViewRep::recordsDeletedNotify, view_messages::recordsDeleted());
  }
  // Chained only once registered: a view whose registration failed holds no use to give back.
  base_ = base;
  base->addUse();
}

void KSTViewRep::releaseUse() {
  if (uses_ != 0) {
    --uses_;
    if (uses_ != 0) return;
  }
  delete this;
}

// ------------------------------------------------------------------------------- mapping

iKST* KSTViewRep::db() const noexcept {
  if (base_) return base_;
  return db_;
}

dbrecord* KSTViewRep::operator[](int row) const {
  iKST* source = db();
  if (!source || !inRange(row)) return nullptr;
  return source->get_record(index_.row(row)).get();
}

int KSTViewRep::baseIndex(int row) {
  iKST* source = db();
  if (!source || !inRange(row)) return 0;
  return source->baseIndex(static_cast<int>(index_.row(row)));
}

unsigned KSTViewRep::sourceRow(int row) const { return inRange(row) ? index_.row(row) : ~0u; }

unsigned KSTViewRep::findViewIndexForBaseRow(unsigned long sourceRow) const {
  const int found = index_.findEqual(0, static_cast<int64_t>(std::min<unsigned long>(sourceRow, 1ul << 40)));
  return found < 0 ? ~0u : static_cast<unsigned>(found);
}

int KSTViewRep::find(dbrecord* record) const {
  if (!record || !db()) return -1;
  for (int i = 0; i < index_.size(); ++i) {
    if ((*this)[i] == record) return i;
  }
  return -1;
}

int KSTViewRep::clampPosition(int at) const noexcept {
  if (at < 0) return 0;
  return at > index_.size() ? index_.size() : at;
}

// ----------------------------------------------------------------------------- the index

void KSTViewRep::clear() { index_.release(); }

void KSTViewRep::sizeIndexFor(int wanted) { index_.sizeFor(wanted, index_.size()); }

void KSTViewRep::append(unsigned row) {
  const uint32_t entry = row;
  sizeIndexFor(index_.size() + 1);
  index_.insertSlots(index_.size(), 1, &entry, 1, 0);
}

void KSTViewRep::buildIndex() {
  index_.truncate();
  if (iKST* source = db()) {
    for (unsigned r = 0; r < source->get_num_records(); ++r) {
      Zr::Ptr<dbrecord> record = source->get_record(r);
      if (satisfiesCondition(record.get())) append(r);
    }
  }
  sortIndex();
}

bool KSTViewRep::satisfiesCondition(dbrecord*) {
  if (condition_) kes_splat("KSTViewRep::satisfiesCondition, not implemented\n");
  return true;
}

void KSTViewRep::sortIndex() {
  if (sort_order_) kes_splat("KSTViewRep::sortIndex(), not implemented!\n");
}

// ---------------------------------------------------------------------------- parameters

void KSTViewRep::addParamsFrom(kesta* other) {
  if (!other) return;
  for (unsigned i = 0; i < other->num_params(); ++i) {
    const Zr::AttribValuePair pair = other->params()[i];
    add_param(pair.name(), pair.value());
  }
}

void KSTViewRep::addParamsFrom(KSTViewRep* other) {
  if (!other) return;
  for (unsigned i = 0; i < other->num_params(); ++i) {
    const Zr::AttribValuePair pair = other->params()[i];
    add_param(pair.name(), pair.value());
  }
}

void KSTViewRep::fileName(LightweightString<wchar_t> name) { file_name_ = name; }

// ------------------------------------------------------------------------------ checking

bool KSTViewRep::checkInvariants(std::string* why) const {
  auto fail = [&](const std::string& text) {
    if (why) *why = text;
    return false;
  };
  std::string index_why;
  if (!index_.check(&index_why)) return fail("row index: " + index_why);
  if (db_ && !db_guard_) return fail("attached to a database without a registration");
  if (base_ && !base_guard_) return fail("chained without a registration");
  if (base_ && base_->useCount() == 0) return fail("the base view holds no use");
  if (iKST* source = db()) {
    const unsigned available = source->get_num_records();
    const std::vector<ViewIndex::Entry> entries = index_.entries();
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (entries[i].row >= available && (*this)[static_cast<int>(i)] != nullptr) {
        return fail("view row " + std::to_string(i) + " names source row " + std::to_string(entries[i].row) +
                    " past the source's end, yet reads a record");
      }
    }
  }
  return true;
}
