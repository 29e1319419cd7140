// kesta: sort fields, the process-wide comparison keys and the two record comparators.
//
// The keys live in process-wide state (cmp_fields and its companions below) so that views can
// prepare them through their database's sortPrepare and reuse dbr_cmp / dbr_backcmp. Only one
// sort may run at a time in a process.

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdint>
#include <strings.h>

#include "record/kesta.h"
#include "support/StringUtils.h"

namespace {

// Ten slots: at most nine keys and the -1 terminator.
constexpr std::size_t kKeySlots = 10;
int g_keys[kKeySlots] = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
int32_t g_case_insensitive = 0;
int32_t g_timecode_key = -1;

const char* skip_space(const char* s) {
  while (*s && isascii(static_cast<unsigned char>(*s)) && isspace(static_cast<unsigned char>(*s))) ++s;
  return s;
}

// Time codes compare on their first eight characters, then from the tenth on: the ninth, the
// separator before the frames (":" or ";"), never takes part.
// A value shorter than nine characters has an empty remainder.
const char* frames_part(const char* s) {
  for (int i = 0; i < 9; ++i) {
    if (s[i] == '\0') return "";
  }
  return s + 9;
}

int compare_timecodes(const char* a, const char* b) {
  int r = strncasecmp(a, b, 8);
  if (r != 0) return r;
  return strcasecmp(frames_part(a), frames_part(b));
}

const Zr::Ptr<dbrecord>& entry_at(void* p) { return *static_cast<const Zr::Ptr<dbrecord>*>(p); }

bool is_blank(const dbrecord* record) { return record == nullptr || record->is_blank(); }

}  // namespace

// Starts on the (empty, terminated) key list so that a comparator called before any
// sortPrepare compares nothing rather than faulting.
int* cmp_fields = g_keys;

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
    Zr::Ptr<dbrecord>* begin = records_.contiguous();
    Zr::Ptr<dbrecord>* end = begin + records_.size();
    if (direction < 0) {
      std::sort(begin, end, [](const Zr::Ptr<dbrecord>& a, const Zr::Ptr<dbrecord>& b) {
        return dbr_backcmp(const_cast<Zr::Ptr<dbrecord>*>(&a), const_cast<Zr::Ptr<dbrecord>*>(&b)) < 0;
      });
    } else {
      std::sort(begin, end, [](const Zr::Ptr<dbrecord>& a, const Zr::Ptr<dbrecord>& b) {
        return dbr_cmp(const_cast<Zr::Ptr<dbrecord>*>(&a), const_cast<Zr::Ptr<dbrecord>*>(&b)) < 0;
      });
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
      ra->getField(static_cast<unsigned short>(first_key)).empty() ||
      rb->getField(static_cast<unsigned short>(first_key)).empty()) {
    bool blank_a = is_blank(ra);
    bool blank_b = is_blank(rb);
    if (blank_a || blank_b) return blank_a == blank_b ? 0 : (blank_a ? 1 : -1);
  }

  for (const int* key = cmp_fields; *key >= 0; ++key) {
    auto field = static_cast<unsigned short>(*key);
    const LightweightString<char>& va = ra->getField(field);
    const LightweightString<char>& vb = rb->getField(field);
    // An empty first value ends the comparison even when later keys differ; sorted logs
    // depend on this order.
    if (va.empty()) return vb.empty() ? 0 : 1;
    if (vb.empty()) return -1;
    const char* sa = skip_space(va.c_str());
    const char* sb = skip_space(vb.c_str());
    int r;
    if (*key == g_timecode_key) {
      r = compare_timecodes(sa, sb);
    } else if (g_case_insensitive) {
      r = strcasecmp(sa, sb);
    } else {
      r = strxcmp(sa, sb);
    }
    if (r != 0) return r;
  }
  return 0;
}

// Descending order compares the raw texts only, always ignoring case: no blank-record,
// empty-value, white-space or time-code rule. Callers depend on it being exactly this.
int dbr_backcmp(void* a, void* b) {
  const dbrecord* ra = entry_at(a).get();
  const dbrecord* rb = entry_at(b).get();
  for (const int* key = cmp_fields; *key >= 0; ++key) {
    auto field = static_cast<unsigned short>(*key);
    const char* sa = ra ? ra->get_field(field) : nullptr;
    const char* sb = rb ? rb->get_field(field) : nullptr;
    int r = strcasecmp(sa ? sa : "", sb ? sb : "");
    if (r != 0) return r == INT_MIN ? INT_MAX : -r;
  }
  return 0;
}
