#include "support/TextSearch.h"

namespace TextSearch {

namespace {

// Matching runs once per record and field when a log is searched, so it works on the bytes
// in place: nothing is copied, folded or stripped ahead of time.
struct Scan {
  bool case_sensitive;
  bool timecode;

  // Time codes are written with any punctuation; only the digits carry the value.
  bool ignorable(char c) const {
    return timecode && (c == ':' || c == ';' || c == '.' || c == ',' || c == ' ' || c == '\t');
  }
  // The first byte at or after `p` that takes part in the comparison, or `end`.
  const char* skip(const char* p, const char* end) const {
    while (p != end && ignorable(*p)) ++p;
    return p;
  }
  bool same(char a, char b) const {
    if (case_sensitive) return a == b;
    return fold(a) == fold(b);
  }
  static char fold(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + ('a' - 'A')) : c; }

  // Whether the pattern matches the text from `t` on; on success `t` is left past the match.
  bool prefix(const char*& t, const char* te, const char* p, const char* pe) const {
    const char* at = skip(t, te);
    for (p = skip(p, pe); p != pe; p = skip(p + 1, pe)) {
      if (at == te || !same(*at, *p)) return false;
      at = skip(at + 1, te);
    }
    t = at;
    return true;
  }

  bool exact(const char* t, const char* te, const char* p, const char* pe) const {
    return prefix(t, te, p, pe) && skip(t, te) == te;
  }

  bool contains(const char* t, const char* te, const char* p, const char* pe) const {
    for (const char* from = skip(t, te);; from = skip(from + 1, te)) {
      const char* at = from;
      if (prefix(at, te, p, pe)) return true;
      if (from == te) return false;
    }
  }

  // "*" matches any run of characters, "?" exactly one. On a mismatch only the latest "*" is
  // retried one character further on, which keeps the scan linear in practice.
  bool wildcard(const char* t, const char* te, const char* p, const char* pe) const {
    t = skip(t, te);
    p = skip(p, pe);
    const char* star_p = nullptr;
    const char* star_t = nullptr;
    while (t != te) {
      if (p != pe && *p == '*') {
        p = skip(p + 1, pe);
        star_p = p;
        star_t = t;
      } else if (p != pe && (*p == '?' || same(*p, *t))) {
        p = skip(p + 1, pe);
        t = skip(t + 1, te);
      } else if (star_p) {
        star_t = skip(star_t + 1, te);
        t = star_t;
        p = star_p;
      } else {
        return false;
      }
    }
    while (p != pe && *p == '*') p = skip(p + 1, pe);
    return p == pe;
  }
};

bool matches(const Scan& scan, const char* t, const char* te, const Criterion& c) {
  const char* p = c.text().c_str();
  const char* pe = p + c.text().size();
  switch (c.method()) {
    case eExact:
      return scan.exact(t, te, p, pe);
    case eStartsWith:
      return scan.prefix(t, te, p, pe);
    case eWildcard:
      return scan.wildcard(t, te, p, pe);
    case eContains:
      break;
  }
  // Containment is the default method, so a value we do not know searches that way too.
  return scan.contains(t, te, p, pe);
}

}  // namespace

bool Criteria::empty() const noexcept {
  for (const Criterion& c : criteria_) {
    if (!c.text().empty()) return false;
  }
  return true;
}

const Criterion& Criteria::getCriterion(unsigned short i) const noexcept {
  static const Criterion kNone;
  return i < criteria_.size() ? criteria_[i] : kNone;
}

bool match(const LightweightString<char>& text, const Criteria& criteria, unsigned options) {
  return matchView(text.view(), criteria, options);
}

bool matchView(std::string_view text, const Criteria& criteria, unsigned options) {
  const Scan scan{(options & kCaseSensitive) != 0, (options & kTimecode) != 0};
  const char* t = text.data();
  const char* te = t + text.size();
  for (unsigned short i = 0, n = criteria.size(); i < n; ++i) {
    const Criterion& c = criteria.getCriterion(i);
    if (!c.text().empty() && !matches(scan, t, te, c)) return false;
  }
  return true;
}

}  // namespace TextSearch
