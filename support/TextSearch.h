#ifndef KESTA_SUPPORT_TEXTSEARCH_H
#define KESTA_SUPPORT_TEXTSEARCH_H
// TextSearch: matching a text against criteria.
//
//   TextSearch::Criteria c(TextSearch::Criterion("reel", TextSearch::eContains));
//   TextSearch::match("A Reel 12", c, 0);   // true: case is ignored without option bit 0
//
// Methods: 0 exact (the whole text), 1 contains, 2 starts with, 3 wildcard ("*" any run,
// "?" one character). A Criteria matches when every criterion in it matches; a criterion with
// empty text is no condition, and Criteria::empty() is true when no criterion has text.
// Option bit 0 (value 1) makes comparison case-sensitive (without it ASCII case is ignored);
// bit 1 (value 2) is time-code mode: ":" ";" "." "," and blanks are ignored on both sides,
// so "01000000" and "01:00:00:00" match each other.
//
// Thread safety: values; match is reentrant.

#include <string_view>
#include <vector>

#include "support/LightweightString.h"

namespace TextSearch {

enum eMatchMethod { eExact = 0, eContains = 1, eStartsWith = 2, eWildcard = 3 };

enum eOptions : unsigned { kCaseSensitive = 1u, kTimecode = 2u };

class KESTA_SUPPORT_API Criterion {
 public:
  Criterion() = default;
  Criterion(const LightweightString<char>& text, eMatchMethod method) : text_(text), method_(method) {}
  const LightweightString<char>& text() const noexcept { return text_; }
  eMatchMethod method() const noexcept { return method_; }

 private:
  LightweightString<char> text_;
  eMatchMethod method_ = eContains;
};

class KESTA_SUPPORT_API Criteria {
 public:
  Criteria() = default;
  explicit Criteria(const Criterion& criterion) { criteria_.push_back(criterion); }
  void add(const Criterion& criterion) { criteria_.push_back(criterion); }
  // True when no criterion has text.
  bool empty() const noexcept;
  unsigned short size() const noexcept { return static_cast<unsigned short>(criteria_.size()); }
  // The criterion at `i`; an empty one out of range.
  const Criterion& getCriterion(unsigned short i) const noexcept;

 private:
  std::vector<Criterion> criteria_;
};

KESTA_SUPPORT_API bool match(const LightweightString<char>& text, const Criteria& criteria, unsigned options);
// The same for the bytes of a view (a field read straight from its record's line).
KESTA_SUPPORT_API bool matchView(std::string_view text, const Criteria& criteria, unsigned options);

}  // namespace TextSearch

#endif
