#include "view/KSTView.h"

#include "view/KSTViewCursor.h"
#include "view/KSTViewRep.h"

KSTView::KSTView(KSTViewRep* view) : view_(view) {
  if (view_) view_->addUse();
}

KSTView::KSTView(const KSTView& other) : view_(other.view_) {
  if (view_) view_->addUse();
}

KSTView::~KSTView() {
  if (view_) view_->releaseUse();
}

KSTView& KSTView::operator=(const KSTView& other) {
  KSTViewRep* incoming = other.view_;
  if (incoming) incoming->addUse();
  KSTViewRep* outgoing = view_;
  view_ = incoming;
  if (outgoing) outgoing->releaseUse();
  return *this;
}

KSTView& KSTView::operator=(KSTView&& other) noexcept {
  if (this != &other) {
    KSTViewRep* outgoing = view_;
    view_ = other.view_;
    other.view_ = nullptr;
    if (outgoing) outgoing->releaseUse();
  }
  return *this;
}

KSTView KSTView::copy() const { return view_ ? KSTView(view_->copy()) : KSTView(); }

KSTView KSTView::copyWithNewBaseView() const { return view_ ? KSTView(view_->copyWithNewBaseView()) : KSTView(); }

// --------------------------------------------------------------------------------- cursor

KSTViewCursor::KSTViewCursor(const KSTView& view, int row, bool taggedOnly) : view_(view), tagged_only_(taggedOnly) {
  set_index(row);
}

Zr::Ptr<dbrecord> KSTViewCursor::operator*() const {
  if (row_ < 0 || !view_) return {};
  return view_->get_record(static_cast<unsigned>(row_));
}

void KSTViewCursor::set_index(int row) {
  int count = view_ ? static_cast<int>(view_->get_num_records()) : 0;
  row_ = (row < 0 || row >= count) ? -1 : row;
}

KSTViewCursor& KSTViewCursor::operator++() {
  int count = view_ ? static_cast<int>(view_->get_num_records()) : 0;
  int row = row_ + 1;
  if (tagged_only_) {
    while (row < count && !(row >= 0 && view_->get_tag(static_cast<unsigned>(row)))) ++row;
  }
  row_ = row < count ? row : -1;
  return *this;
}

KSTViewCursor& KSTViewCursor::operator--() {
  int count = view_ ? static_cast<int>(view_->get_num_records()) : 0;
  int row = row_ == -1 ? count : row_;
  for (;;) {
    --row;
    if (row < 0) {
      row = -1;
      break;
    }
    if (!tagged_only_ || view_->get_tag(static_cast<unsigned>(row))) break;
  }
  row_ = row;
  return *this;
}

void KSTViewCursor::remove() {
  if (row_ == -1) return;
  view_->remove(row_, 1);
  set_index(row_);
}

int KSTViewCursor::find(dbrecord* record) {
  row_ = -1;
  if (!view_) return -1;
  KSTViewCursor walk(view_, -1, false);
  for (++walk; walk.index() != -1; ++walk) {
    if ((*view_)[walk.index()] == record) {
      row_ = walk.index();
      break;
    }
  }
  return row_;
}
