#ifndef KESTA_SUPPORT_COOKIECONTAINERS_H
#define KESTA_SUPPORT_COOKIECONTAINERS_H
// Containers of identifiers: LightweightVector (a shared, copy-on-write vector), CookieVec,
// the sorted Array of ArrayRec items, and CookieSet, a shared sorted set of distinct cookies.
//
//   CookieSet set;
//   set.add(a); set.add(b); set.add(a);   // size() == 2, in Cookie::compare order
//   for (int i = 0; i < set.size(); ++i) use(set[i]);
//
// Thread safety: copies share their contents until one of them changes (it unshares first);
// one thread at a time per object.

#include <memory>
#include <vector>

#include "support/Cookie.h"
#include "support/GrowString.h"
#include "support/ZrPtr.h"

// A vector whose copies share one body until written.
template <class T>
class LightweightVector {
 public:
  LightweightVector() = default;

  void push_back(const T& value) {
    unshare();
    body_->items.push_back(value);
  }
  unsigned size() const noexcept { return body_ ? static_cast<unsigned>(body_->items.size()) : 0; }
  bool empty() const noexcept { return size() == 0; }
  const T& operator[](unsigned i) const { return body_->items[i]; }
  void clear() { body_ = nullptr; }
  void unshare() {
    if (!body_) {
      body_ = Zr::Ptr<Body>(new Body());
    } else if (body_.useCount() > 1) {
      Zr::Ptr<Body> copy(new Body());
      copy->items = body_->items;
      body_ = copy;
    }
  }

 private:
  struct Body : iObject {
    std::vector<T> items;
  };
  Zr::Ptr<Body> body_;
};

using CookieVec = LightweightVector<Cookie>;

// An item of an Array: ordered by compare, printed by printOn.
class KESTA_SUPPORT_API ArrayRec {
 public:
  virtual ~ArrayRec();
  virtual int compare(const ArrayRec& other) const = 0;
  virtual void printOn(GrowString& out) const = 0;
};

// An ordered array of owned ArrayRec items.
class KESTA_SUPPORT_API Array {
 public:
  Array();
  virtual ~Array();
  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;

  void init();  // empties the array
  // Keeps the array sorted and distinct: answers false (and deletes `item`) when an equal
  // item is there, setting `index` to it; else inserts, sets `index`, answers true.
  bool intern(ArrayRec* item, unsigned& index);
  void appendDatum(ArrayRec* item);
  void insertDatum(ArrayRec* item, unsigned index);
  void replaceDatum(unsigned index, ArrayRec* item);
  void sort();
  void printOn(GrowString& out) const;  // items separated by ", "
  unsigned size() const noexcept { return static_cast<unsigned>(items_.size()); }
  const ArrayRec* at(unsigned i) const { return i < items_.size() ? items_[i].get() : nullptr; }

 private:
  std::vector<std::unique_ptr<ArrayRec>> items_;
};

class KESTA_SUPPORT_API CookieSetRep : public iObject {
 public:
  CookieSetRep();
  ~CookieSetRep() override;
  void init();
  bool add(const Cookie& cookie);  // false when already present
  bool contains(const Cookie& cookie) const;
  int size() const noexcept;
  const Cookie& operator[](int i) const;  // REQUIRES: 0 <= i < size()
  CookieSetRep* clone() const;

 private:
  std::vector<Cookie> sorted_;
};

class KESTA_SUPPORT_API CookieSet {
 public:
  CookieSet();
  bool add(const Cookie& cookie);
  bool contains(const Cookie& cookie) const;
  int size() const noexcept;
  const Cookie& operator[](int i) const;  // REQUIRES: 0 <= i < size()
  void purge();                           // empties the set
  void unshare();                         // gives this set its own representation

 private:
  Zr::Ptr<CookieSetRep> rep_;
};

#endif
