#include "support/CookieContainers.h"

#include <algorithm>

namespace {

bool rec_less(const std::unique_ptr<ArrayRec>& a, const std::unique_ptr<ArrayRec>& b) { return a->compare(*b) < 0; }

bool cookie_less(const Cookie& a, const Cookie& b) { return a.compare(b) < 0; }

}  // namespace

ArrayRec::~ArrayRec() = default;

Array::Array() = default;

Array::~Array() = default;

void Array::init() { items_.clear(); }

bool Array::intern(ArrayRec* item, unsigned& index) {
  std::unique_ptr<ArrayRec> owned(item);
  if (!owned) return false;
  auto at = std::lower_bound(items_.begin(), items_.end(), owned, rec_less);
  index = static_cast<unsigned>(at - items_.begin());
  if (at != items_.end() && (*at)->compare(*owned) == 0) return false;
  items_.insert(at, std::move(owned));
  return true;
}

void Array::appendDatum(ArrayRec* item) {
  if (item) items_.emplace_back(item);
}

// An index past the end appends: the item is owned from here on and must not be lost.
void Array::insertDatum(ArrayRec* item, unsigned index) {
  if (!item) return;
  std::unique_ptr<ArrayRec> owned(item);
  if (index > items_.size()) index = static_cast<unsigned>(items_.size());
  items_.insert(items_.begin() + index, std::move(owned));
}

// Out of range there is nothing to replace; the item is still ours, so it is freed.
void Array::replaceDatum(unsigned index, ArrayRec* item) {
  std::unique_ptr<ArrayRec> owned(item);
  if (!owned || index >= items_.size()) return;
  items_[index] = std::move(owned);
}

void Array::sort() { std::stable_sort(items_.begin(), items_.end(), rec_less); }

void Array::printOn(GrowString& out) const {
  for (std::size_t i = 0; i < items_.size(); ++i) {
    if (i) out.append(", ");
    items_[i]->printOn(out);
  }
}

CookieSetRep::CookieSetRep() = default;

CookieSetRep::~CookieSetRep() = default;

void CookieSetRep::init() { sorted_.clear(); }

bool CookieSetRep::add(const Cookie& cookie) {
  auto at = std::lower_bound(sorted_.begin(), sorted_.end(), cookie, cookie_less);
  if (at != sorted_.end() && at->compare(cookie) == 0) return false;
  sorted_.insert(at, cookie);
  return true;
}

bool CookieSetRep::contains(const Cookie& cookie) const {
  return std::binary_search(sorted_.begin(), sorted_.end(), cookie, cookie_less);
}

int CookieSetRep::size() const noexcept { return static_cast<int>(sorted_.size()); }

const Cookie& CookieSetRep::operator[](int i) const { return sorted_[static_cast<std::size_t>(i)]; }

CookieSetRep* CookieSetRep::clone() const {
  CookieSetRep* copy = new CookieSetRep();
  copy->sorted_ = sorted_;
  return copy;
}

CookieSet::CookieSet() = default;

bool CookieSet::add(const Cookie& cookie) {
  // A cookie already present changes nothing, so the shared representation may stay shared.
  if (contains(cookie)) return false;
  unshare();
  return rep_->add(cookie);
}

bool CookieSet::contains(const Cookie& cookie) const { return rep_ && rep_->contains(cookie); }

int CookieSet::size() const noexcept { return rep_ ? rep_->size() : 0; }

const Cookie& CookieSet::operator[](int i) const { return (*rep_)[i]; }

// Copies may still hold the old representation; they keep their contents.
void CookieSet::purge() { rep_ = nullptr; }

void CookieSet::unshare() {
  if (!rep_) {
    rep_ = Zr::Ptr<CookieSetRep>(new CookieSetRep());
  } else if (rep_.useCount() > 1) {
    rep_ = Zr::Ptr<CookieSetRep>(rep_->clone());
  }
}
