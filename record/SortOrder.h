#ifndef KESTA_RECORD_SORTORDER_H
#define KESTA_RECORD_SORTORDER_H
// The order a sort puts records in, for a caller that orders something else by them, as a view
// orders its rows. Internal to the library.
//
//   db->sortPrepare(1, 0);                       // the keys: the database's sort fields
//   std::vector<uint32_t> order = sortOrder(records.data(), records.size(), true);
//   // records[order[0]] comes first
//
// Ascending orders as dbr_cmp does, descending as dbr_backcmp, on the keys the last
// sortPrepare set; which of two records that compare level comes first is unspecified. The
// records are only read, and no comparison allocates. REQUIRES: n < 2^32.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "record/dbrecord.h"

std::vector<uint32_t> sortOrder(const Zr::Ptr<dbrecord>* records, std::size_t n, bool ascending);

#endif
