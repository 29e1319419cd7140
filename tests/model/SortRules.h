#ifndef KESTA_TESTS_MODEL_SORTRULES_H
#define KESTA_TESTS_MODEL_SORTRULES_H
// The record comparison of sorting, written from its rules for the model check: ascending
// puts blank records last, ends at the first key whose first value is empty (empty values
// sort after others), skips leading blanks and compares with strxcmp, or ignoring case when
// asked; descending compares the raw texts ignoring case, negated, and nothing else.

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include "support/StringUtils.h"

namespace sortrules {

struct Keys {
  std::vector<int> fields;  // up to the terminator
  bool case_insensitive = false;
  bool descending = false;
};

using Values = std::vector<std::string>;  // empty: no record

inline bool blank(const Values& v) {
  return std::all_of(v.begin(), v.end(), [](const std::string& s) { return s.empty(); });
}

inline const char* skipSpace(const char* s) {
  while (*s && isascii(static_cast<unsigned char>(*s)) && isspace(static_cast<unsigned char>(*s))) ++s;
  return s;
}

inline int ascending(const Values& a, const Values& b, const Keys& keys) {
  if (blank(a) || blank(b)) return blank(a) == blank(b) ? 0 : (blank(a) ? 1 : -1);
  for (int f : keys.fields) {
    const std::string& va = a[static_cast<std::size_t>(f)];
    const std::string& vb = b[static_cast<std::size_t>(f)];
    if (va.empty()) return vb.empty() ? 0 : 1;
    if (vb.empty()) return -1;
    const char* sa = skipSpace(va.c_str());
    const char* sb = skipSpace(vb.c_str());
    const int r = keys.case_insensitive ? strcasecmp(sa, sb) : strxcmp(sa, sb);
    if (r != 0) return r;
  }
  return 0;
}

inline int descending(const Values& a, const Values& b, const Keys& keys) {
  for (int f : keys.fields) {
    const std::string va = a.empty() ? "" : a[static_cast<std::size_t>(f)];
    const std::string vb = b.empty() ? "" : b[static_cast<std::size_t>(f)];
    const int r = strcasecmp(va.c_str(), vb.c_str());
    if (r != 0) return -r;
  }
  return 0;
}

inline int compareRecords(const Values& a, const Values& b, const Keys& keys) {
  return keys.descending ? descending(a, b, keys) : ascending(a, b, keys);
}

}  // namespace sortrules

#endif
