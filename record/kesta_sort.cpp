// kesta: sort fields, the process-wide comparison keys and the two record comparators.
//
// A sort does not call the comparators on records: sortOrder first reads each record's keys
// once into a flat array of fixed-size prefixes, coded so that comparing prefixes orders
// exactly as the comparators do, and sorts that array; a database then moves its records, a
// view its rows. A comparison the prefixes cannot settle compares the texts as the comparators
// do, so the order is the same.
//
// The keys live in process-wide state (cmp_fields and its companions below) so that views can
// prepare them through their database's sortPrepare and share the sort and the comparators.
// Only one sort may run at a time in a process.

#include <algorithm>
#include <array>
#include <cctype>
#include <climits>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string_view>
#include <type_traits>
#include <vector>

#include "record/FieldText.h"
#include "record/Prefetch.h"
#include "record/SortOrder.h"
#include "record/kesta.h"
#include "support/StringUtils.h"

namespace {

// Ten slots: at most nine keys and the -1 terminator.
constexpr std::size_t kKeySlots = 10;
int g_keys[kKeySlots] = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
int32_t g_case_insensitive = 0;
int32_t g_timecode_key = -1;

// The white space the comparators skip before a value.
bool is_leading_space(char c) {
  const auto u = static_cast<unsigned char>(c);
  return isascii(u) && isspace(u);
}

std::string_view skip_space(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && is_leading_space(text[i])) ++i;
  return text.substr(i);
}

// The byte strcasecmp compares in place of c, in the locale in force when the keys were last
// prepared: every sort prepares them before it compares.
struct LowerTable {
  unsigned char lower[256];
  LowerTable() {
    for (int c = 0; c < 256; ++c) lower[c] = static_cast<unsigned char>(std::tolower(c));
  }
};
LowerTable g_lower;

// The comparators read a value as a C string would, up to its first zero byte (c_text), and
// compare the views, so that no comparison makes a field string: a sort of a loaded log
// leaves its records holding their lines.

// strcasecmp on two such texts.
int casecmp(std::string_view a, std::string_view b) noexcept {
  if (a == b) return 0;  // a log repeats its values: equal texts are the common tie
  const std::size_t n = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned char ca = g_lower.lower[static_cast<unsigned char>(a[i])];
    const unsigned char cb = g_lower.lower[static_cast<unsigned char>(b[i])];
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  return (a.size() > b.size()) - (a.size() < b.size());
}

// Time codes compare on their first eight characters, then from the tenth on: the ninth, the
// separator before the frames (":" or ";"), never takes part.
// A value shorter than nine characters has an empty remainder.
int compare_timecodes(std::string_view a, std::string_view b) noexcept {
  const int r = casecmp(a.substr(0, 8), b.substr(0, 8));
  if (r != 0) return r;
  const auto frames_part = [](std::string_view s) { return s.size() < 9 ? std::string_view() : s.substr(9); };
  return casecmp(frames_part(a), frames_part(b));
}

// One key's values, leading blanks skipped, as the ascending comparator orders them.
int compare_values(int key, std::string_view a, std::string_view b) {
  if (a == b) return 0;
  if (key == g_timecode_key) return compare_timecodes(a, b);
  if (g_case_insensitive) return casecmp(a, b);
  return strxcmp(a, b);
}

// A field's text as the comparators read it.
std::string_view key_text(const dbrecord* record, unsigned short field) {
  return record ? c_text(record->fieldView(field)) : std::string_view();
}

// dbr_cmp from `key` on, for records with a value in the first key.
int ascending_from(const dbrecord& a, const dbrecord& b, const int* key) {
  for (; *key >= 0; ++key) {
    const auto field = static_cast<unsigned short>(*key);
    const std::string_view va = a.fieldView(field);
    const std::string_view vb = b.fieldView(field);
    // An empty value ends the comparison even when later keys differ; sorted logs depend on
    // this order.
    if (va.empty()) return vb.empty() ? 0 : 1;
    if (vb.empty()) return -1;
    const int r = compare_values(*key, skip_space(c_text(va)), skip_space(c_text(vb)));
    if (r != 0) return r;
  }
  return 0;
}

// dbr_backcmp from `key` on.
int descending_from(const dbrecord* a, const dbrecord* b, const int* key) {
  for (; *key >= 0; ++key) {
    const auto field = static_cast<unsigned short>(*key);
    const int r = casecmp(key_text(a, field), key_text(b, field));
    if (r != 0) return -r;
  }
  return 0;
}

const Zr::Ptr<dbrecord>& entry_at(void* p) { return *static_cast<const Zr::Ptr<dbrecord>*>(p); }

bool is_blank(const dbrecord* record) { return record == nullptr || record->is_blank(); }

}  // namespace

// Starts on the (empty, terminated) key list so that a comparator called before any
// sortPrepare compares nothing rather than faulting.
int* cmp_fields = g_keys;

namespace {

// ------------------------------------------------------------ prefix keys for sort()

// Keys read into the array: two, or three for a sort on more (reel, scene, shot); a comparison
// still level after them reads the later keys from the records.
constexpr std::size_t kMaxPrefixKeys = 3;
constexpr std::size_t kPrefixBytes = 16;

// A key's first kPrefixBytes coded bytes as two big-endian words, so that word order is the
// bytes' order; zero-padded, which sorts a text before any longer one.
struct Prefix {
  uint64_t hi = 0;
  uint64_t lo = 0;
  // Equal prefixes that are both exact mean the key compares level, except that natural order
  // lets the bytes of `text` decide between values level by value ("a01", "a1").
  bool exact = false;
  bool empty = false;
  bool leading_zeros = false;
  std::string_view text;

  int order(const Prefix& other) const noexcept {
    if (hi != other.hi) return hi < other.hi ? -1 : 1;
    if (lo != other.lo) return lo < other.lo ? -1 : 1;
    return 0;
  }
};

struct PrefixWriter {
  std::array<unsigned char, kPrefixBytes> bytes{};
  std::size_t n = 0;
  bool full() const noexcept { return n == kPrefixBytes; }
  void put(unsigned char c) noexcept { bytes[n++] = c; }
  void finish(Prefix& prefix) const noexcept {
    for (std::size_t i = 0; i < 8; ++i) prefix.hi = (prefix.hi << 8) | bytes[i];
    for (std::size_t i = 8; i < 16; ++i) prefix.lo = (prefix.lo << 8) | bytes[i];
  }
};

// The coders read a text as the comparators do, up to its first zero byte; `s` holds none.
void case_folded(std::string_view s, const LowerTable& table, Prefix& prefix) {
  PrefixWriter w;
  std::size_t i = 0;
  for (; i < s.size() && !w.full(); ++i) w.put(table.lower[static_cast<unsigned char>(s[i])]);
  prefix.exact = i == s.size();
  w.finish(prefix);
}

// The first eight characters, then the frames part, as compare_timecodes reads them.
void timecode_coded(std::string_view s, const LowerTable& table, Prefix& prefix) {
  PrefixWriter w;
  for (std::size_t i = 0; i < 8 && i < s.size(); ++i) w.put(table.lower[static_cast<unsigned char>(s[i])]);
  w.n = 8;
  // frames_part: from the tenth character on, nothing for a text of eight or fewer.
  std::size_t f = s.size() <= 8 ? s.size() : 9;
  for (; f < s.size() && !w.full(); ++f) w.put(table.lower[static_cast<unsigned char>(s[f])]);
  prefix.exact = f == s.size();
  w.finish(prefix);
}

bool is_digit(unsigned char c) { return c >= '0' && c <= '9'; }

// strxcmp's natural order as bytes: a run of digits becomes a count byte ('1' + significant
// digits - 1, which like any digit sorts against other bytes as the run's first digit does)
// followed by its significant digits. A run of nine or more digits ends the prefix at its
// count byte, which is then the highest.
void natural_coded(std::string_view s, Prefix& prefix) {
  PrefixWriter w;
  // The text is followed by a stop that is not a digit, as a zero-terminated one would be.
  auto p = reinterpret_cast<const unsigned char*>(s.data());
  const auto end = p + s.size();
  const auto digit = [end](const unsigned char* at) { return at < end && is_digit(*at); };
  bool exact = true;
  while (p < end) {
    if (w.full()) {
      exact = false;
      break;
    }
    if (!is_digit(*p)) {
      w.put(*p++);
      continue;
    }
    const unsigned char* q = p;
    while (*q == '0' && digit(q + 1)) ++q;
    if (q != p) prefix.leading_zeros = true;
    const unsigned char* e = q;
    while (digit(e)) ++e;
    const std::size_t count = static_cast<std::size_t>(e - q);
    if (count >= 9) {
      w.put('9');
      exact = false;
      break;
    }
    w.put(static_cast<unsigned char>('0' + count));
    for (; q != e && !w.full(); ++q) w.put(*q);
    if (q != e) {
      exact = false;
      break;
    }
    p = e;
  }
  prefix.exact = exact;
  w.finish(prefix);
}

// Everything the sort reads of one record's keys.
struct RecordKeys {
  std::array<Prefix, kMaxPrefixKeys> keys;
  // dbr_cmp's classes: 0 a value in the first key, 1 none there but not blank, 2 blank.
  uint8_t rank = 0;
};

// Reads the record's keys for an ascending (dbr_cmp) or a descending (dbr_backcmp) sort.
void read_record_keys(const dbrecord* record, bool ascending, std::size_t key_count, RecordKeys& out) {
  const int first_key = cmp_fields[0];
  if (ascending) {
    if (first_key < 0 || record == nullptr || record->fieldView(static_cast<unsigned short>(first_key)).empty()) {
      // Without keys there is nothing more to read either.
      out.rank = is_blank(record) ? 2 : (first_key < 0 ? 0 : 1);
      return;
    }
  }
  for (std::size_t k = 0; k < key_count; ++k) {
    const auto field = static_cast<unsigned short>(cmp_fields[k]);
    Prefix& prefix = out.keys[k];
    if (!ascending) {
      prefix.text = key_text(record, field);
      case_folded(prefix.text, g_lower, prefix);
      continue;
    }
    if (record->fieldView(field).empty()) {
      prefix.empty = true;
      break;  // the comparison ends here
    }
    const std::string_view text = skip_space(key_text(record, field));
    prefix.text = text;
    if (cmp_fields[k] == g_timecode_key) {
      timecode_coded(text, g_lower, prefix);
    } else if (g_case_insensitive) {
      case_folded(text, g_lower, prefix);
    } else {
      natural_coded(text, prefix);
    }
  }
}

// What the sort moves: a record's K prefixes packed small (64 bytes for two keys), since a sort
// of a large log is bound by moving its entries.
template <std::size_t K>
struct SortEntry {
  uint64_t words[2 * K];  // key k's prefix: words[2k], then words[2k + 1]
  const char* text[K];    // key k's text, for values the prefix does not settle
  uint32_t length[K];     // field texts are at most 32-bit long
  uint32_t index;
  uint8_t rank;
  uint8_t empty;          // bit k: key k is empty
  uint8_t exact;          // bit k: key k's prefix holds all of its value
  uint8_t leading_zeros;  // bit k: key k's text has a number written with leading zeros

  std::string_view key(std::size_t k) const noexcept { return std::string_view(text[k], length[k]); }
  // Key k of both is one text: level, without reading it.
  bool same_text(const SortEntry& other, std::size_t k) const noexcept {
    return text[k] == other.text[k] && length[k] == other.length[k];
  }
};

static_assert(sizeof(SortEntry<2>) == 64);

template <std::size_t K>
void pack(const RecordKeys& keys, uint32_t index, SortEntry<K>& entry) {
  entry.index = index;
  entry.rank = keys.rank;
  entry.empty = 0;
  entry.exact = 0;
  entry.leading_zeros = 0;
  for (std::size_t k = 0; k < K; ++k) {
    const Prefix& prefix = keys.keys[k];
    const auto bit = static_cast<uint8_t>(1u << k);
    entry.words[2 * k] = prefix.hi;
    entry.words[2 * k + 1] = prefix.lo;
    entry.text[k] = prefix.text.data();
    entry.length[k] = static_cast<uint32_t>(prefix.text.size());
    if (prefix.empty) entry.empty |= bit;
    if (prefix.exact) entry.exact |= bit;
    if (prefix.leading_zeros) entry.leading_zeros |= bit;
  }
}

// The sign of dbr_cmp (ascending) or dbr_backcmp (descending) on the entries' records: from
// the prefixes where they settle it, else from the texts.
template <bool Ascending, std::size_t K>
int entry_order(const SortEntry<K>& a, const SortEntry<K>& b, std::size_t key_count, bool more_keys,
                const Zr::Ptr<dbrecord>* records) {
  if constexpr (Ascending) {
    if (a.rank != b.rank) return a.rank < b.rank ? -1 : 1;
    if (a.rank != 0) return 0;
  }
  for (std::size_t k = 0; k < key_count; ++k) {
    const auto bit = static_cast<uint8_t>(1u << k);
    if (Ascending && ((a.empty | b.empty) & bit)) return (a.empty & bit) ? ((b.empty & bit) ? 0 : 1) : -1;
    for (std::size_t w = 2 * k; w < 2 * k + 2; ++w) {
      if (a.words[w] != b.words[w]) return (a.words[w] < b.words[w]) == Ascending ? -1 : 1;
    }
    if (!(a.exact & b.exact & bit)) {
      if (a.same_text(b, k)) continue;
      const int r = Ascending ? compare_values(cmp_fields[k], a.key(k), b.key(k)) : -casecmp(a.key(k), b.key(k));
      if (r != 0) return r;
      continue;
    }
    if (Ascending && ((a.leading_zeros | b.leading_zeros) & bit) && !a.same_text(b, k)) {
      // Level by value; strxcmp lets the bytes decide.
      const int r = a.key(k).compare(b.key(k));
      if (r != 0) return r < 0 ? -1 : 1;
    }
  }
  if (!more_keys) return 0;
  const int* rest = cmp_fields + key_count;
  // A rank of 0 is a record with a value in the first key.
  return Ascending ? ascending_from(*records[a.index], *records[b.index], rest)
                   : descending_from(records[a.index].get(), records[b.index].get(), rest);
}

// Equal values that the prefixes do not settle (long ones, and numbers written with leading
// zeros, "A001"), made to share one text, so that the sort finds them level without reading
// them: a log repeats its reels, descriptions and notes, and reading values scattered over a
// large log costs a cache miss each. The first values seen are kept; a column of all
// different values fills the table early and is then left alone.
class SameTexts {
 public:
  std::string_view shared(std::string_view text) {
    if (kept_ == kMaxTexts) return text;
    if (slots_.empty()) slots_.resize(kSlots);
    const std::size_t hash = std::hash<std::string_view>()(text);
    for (std::size_t i = hash & (kSlots - 1);; i = (i + 1) & (kSlots - 1)) {
      Slot& slot = slots_[i];
      if (slot.text.data() == nullptr) {
        slot = Slot{text, hash};
        ++kept_;
        return text;
      }
      if (slot.hash == hash && slot.text == text) return slot.text;
    }
  }

 private:
  static constexpr std::size_t kSlots = std::size_t{1} << 16;
  static constexpr std::size_t kMaxTexts = kSlots / 2;
  struct Slot {
    std::string_view text;
    std::size_t hash = 0;
  };
  std::vector<Slot> slots_;
  std::size_t kept_ = 0;
};

template <std::size_t K>
void read_keys(const Zr::Ptr<dbrecord>* records, std::size_t n, bool ascending, std::size_t key_count,
               std::vector<SortEntry<K>>& entries) {
  entries.resize(n);
  const int first_key = cmp_fields[0];
  SameTexts same;
  for (std::size_t i = 0; i < n; ++i) {
    if (first_key >= 0) prefetch::field(records, n, i, static_cast<unsigned short>(first_key));
    RecordKeys keys;
    read_record_keys(records[i].get(), ascending, key_count, keys);
    for (std::size_t k = 0; k < key_count; ++k) {
      Prefix& prefix = keys.keys[k];
      if ((!prefix.exact || prefix.leading_zeros) && !prefix.text.empty()) prefix.text = same.shared(prefix.text);
    }
    pack(keys, static_cast<uint32_t>(i), entries[i]);
  }
}

// A log is often in order already, or nearly: recorded in order, appended to, or two sorted
// logs merged. One pass finds its runs, turning those that run backwards; a few runs are merged
// straight into the order, at a comparison or so a record where a sort takes some twenty. Gives
// up (false) at the run past the last it merges, at once on values in no order.
template <class Entry, class Less>
bool merge_runs(std::vector<Entry>& entries, Less less, std::vector<uint32_t>& order) {
  constexpr std::size_t kMaxRuns = 8;
  const std::size_t n = entries.size();
  std::array<std::size_t, kMaxRuns> next{}, end{};
  std::size_t runs = 0;
  for (std::size_t i = 0; i < n;) {
    if (runs == kMaxRuns) return false;
    const std::size_t start = i++;
    if (i < n && less(entries[i], entries[i - 1])) {
      while (i < n && !less(entries[i - 1], entries[i])) ++i;
      std::reverse(entries.begin() + static_cast<std::ptrdiff_t>(start),
                   entries.begin() + static_cast<std::ptrdiff_t>(i));
    } else {
      while (i < n && !less(entries[i], entries[i - 1])) ++i;
    }
    next[runs] = start;
    end[runs] = i;
    ++runs;
  }
  order.resize(n);
  for (std::size_t out = 0; out < n; ++out) {
    std::size_t best = 0;
    for (std::size_t r = 1; r < runs; ++r) {
      if (less(entries[next[r]], entries[next[best]])) best = r;
    }
    order[out] = entries[next[best]].index;
    if (++next[best] == end[best]) {
      --runs;
      next[best] = next[runs];
      end[best] = end[runs];
    }
  }
  return true;
}

template <std::size_t K>
std::vector<uint32_t> sort_order(const Zr::Ptr<dbrecord>* records, std::size_t n, bool ascending, std::size_t keys) {
  const std::size_t key_count = std::min(keys, K);
  const bool more_keys = keys > key_count;
  std::vector<SortEntry<K>> entries;
  read_keys(records, n, ascending, key_count, entries);
  const auto by = [&](auto ascending_order) {
    return [&](const SortEntry<K>& a, const SortEntry<K>& b) {
      return entry_order<decltype(ascending_order)::value>(a, b, key_count, more_keys, records) < 0;
    };
  };
  std::vector<uint32_t> order;
  const auto sort_by = [&](auto less) {
    if (merge_runs(entries, less, order)) return;
    std::sort(entries.begin(), entries.end(), less);
    order.resize(n);
    for (std::size_t i = 0; i < n; ++i) order[i] = entries[i].index;
  };
  if (ascending) {
    sort_by(by(std::true_type()));
  } else {
    sort_by(by(std::false_type()));
  }
  return order;
}

}  // namespace

std::vector<uint32_t> sortOrder(const Zr::Ptr<dbrecord>* records, std::size_t n, bool ascending) {
  std::size_t keys = 0;
  while (cmp_fields[keys] >= 0) ++keys;
  // A third prefix makes each entry half as large again: worth it only where it is read.
  return keys > 2 ? sort_order<3>(records, n, ascending, keys) : sort_order<2>(records, n, ascending, keys);
}

void kesta::set_sortfield(int field) {
  sort_fields_.clear();
  sort_fields_.push_back(static_cast<uint16_t>(field));
}

void kesta::set_sortfields(int* fields) {
  sort_fields_.clear();
  if (fields == nullptr) return;
  for (const int* f = fields; *f >= 0; ++f) sort_fields_.push_back(static_cast<uint16_t>(*f));
}

int kesta::getSortFieldIdx() const { return sort_fields_.empty() ? 0 : sort_fields_.front(); }

void kesta::sortPrepare(int /*direction*/, int caseInsensitive) {
  // Keys past the ninth have no slot; they are dropped rather than written past the list.
  std::size_t count = std::min(sort_fields_.size(), kKeySlots - 1);
  for (std::size_t i = 0; i < count; ++i) g_keys[i] = sort_fields_[i];
  g_keys[count] = -1;
  g_case_insensitive = caseInsensitive;
  g_timecode_key = -1;
  g_lower = LowerTable();
  cmp_fields = g_keys;
  if (g_keys[0] < 0) return;

  // An out-of-range key becomes the terminator there; the walk still visits the later slots.
  unsigned num_fields = get_num_fields();
  int timecode_key = -1;
  for (std::size_t i = 0; i < count; ++i) {
    unsigned field = static_cast<unsigned>(g_keys[i]);
    if (field >= num_fields) {
      g_keys[i] = -1;
    } else if (get_field_type(field) == DBFieldTypes::kTimecode) {
      timecode_key = static_cast<int>(field);
    }
  }
  g_timecode_key = timecode_key;
}

void kesta::sort(int direction, int caseInsensitive) {
  sortPrepare(direction, caseInsensitive);
  if (!records_.empty()) {
    // Nothing can throw once the order is made: the records move without allocating.
    Zr::Ptr<dbrecord>* records = records_.contiguous();
    const std::size_t n = records_.size();
    std::vector<uint32_t> order = sortOrder(records, n, direction >= 0);
    // In place, a cycle of the permutation at a time: a second list of a large log would cost
    // its fresh pages more than the moves. A place filled is marked by pointing at itself.
    for (std::size_t start = 0; start < n; ++start) {
      if (order[start] == start) continue;
      Zr::Ptr<dbrecord> first = std::move(records[start]);
      std::size_t at = start;
      while (order[at] != start) {
        const std::size_t from = order[at];
        records[at] = std::move(records[from]);
        order[at] = static_cast<uint32_t>(at);
        at = from;
      }
      records[at] = std::move(first);
      order[at] = static_cast<uint32_t>(at);
    }
  }
  if (show_tags_only_) index_tags();
}

int dbr_cmp(void* a, void* b) {
  const dbrecord* ra = entry_at(a).get();
  const dbrecord* rb = entry_at(b).get();
  // A record with a value in the first key is not blank: the blank test, which reads every
  // field, is needed only when a first value is empty or there are no keys.
  const int first_key = cmp_fields[0];
  if (first_key < 0 || ra == nullptr || rb == nullptr ||
      ra->fieldView(static_cast<unsigned short>(first_key)).empty() ||
      rb->fieldView(static_cast<unsigned short>(first_key)).empty()) {
    bool blank_a = is_blank(ra);
    bool blank_b = is_blank(rb);
    if (blank_a || blank_b) return blank_a == blank_b ? 0 : (blank_a ? 1 : -1);
  }
  return ascending_from(*ra, *rb, cmp_fields);
}

// Descending order compares the raw texts only, always ignoring case: no blank-record,
// empty-value, white-space or time-code rule. Callers depend on it being exactly this.
int dbr_backcmp(void* a, void* b) { return descending_from(entry_at(a).get(), entry_at(b).get(), cmp_fields); }
