#ifndef KESTA_SUPPORT_RESERVEATLEAST_H
#define KESTA_SUPPORT_RESERVEATLEAST_H
// reserveAtLeast: room for `total` elements, grown geometrically.
//
//   reserveAtLeast(list, list.size() + 1);   // amortised O(1), unlike list.reserve(size + 1)
//
// vector::reserve allocates exactly what it is asked for, so code that makes room before each
// change (to fail before anything moves) turns quadratic when the changes come one at a time.

#include <algorithm>
#include <cstddef>

template <class Vector>
void reserveAtLeast(Vector& v, std::size_t total) {
  if (total > v.capacity()) v.reserve(std::max(total, 2 * v.capacity()));
}

#endif
