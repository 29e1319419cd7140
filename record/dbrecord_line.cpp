// The record line: one record as quoted, comma-separated fields on one text line. Every line
// of a database file goes through here, so the reader is the library's hottest loop: one pass
// over the line into one scratch buffer, then one allocation for all the record's field texts.
//
// Writer and reader are not exact inverses, and files in the field rely on both directions as
// they are: the writer escapes line feeds as backslash-n but leaves backslashes alone and drops
// carriage returns; the reader turns every backslash-n into a line feed, keeps a double
// backslash as two bytes, and loses white space at both ends of a field.

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "record/CharClass.h"
#include "record/dbrecord.h"
#include "support/ReserveAtLeast.h"
#include "support/StringUtils.h"

namespace {

// The reader's field buffer; a field read from a line holds at most kFieldBufferSize - 1 bytes.
constexpr std::size_t kFieldBufferSize = 4096;
constexpr std::size_t kMaxFieldLength = kFieldBufferSize - 1;
// Fields are addressed with 16-bit indices; a line with more yields only the first ones.
constexpr std::size_t kMaxFields = USHRT_MAX;

// The first of the three bytes A, B, C in [p, end), or end. Scans a word at a time: fields are
// mostly plain text, and this scan is most of the reader's work.
template <char A, char B, char C>
const char* find_first_of(const char* p, const char* end) noexcept {
#if defined(__SSE2__)
  // Sixteen bytes a compare: a typical field is found in one step.
  const __m128i a = _mm_set1_epi8(A), b = _mm_set1_epi8(B), c = _mm_set1_epi8(C);
  while (end - p >= 16) {
    const __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i hits = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(w, a), _mm_cmpeq_epi8(w, b)), _mm_cmpeq_epi8(w, c));
    const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(hits));
    if (mask != 0) return p + std::countr_zero(mask);
    p += 16;
  }
#endif
  if constexpr (std::endian::native == std::endian::little) {
    constexpr uint64_t kOnes = 0x0101010101010101ull;
    constexpr uint64_t kHighs = 0x8080808080808080ull;
    // High bit set in each byte of w that is zero; a byte above a zero byte may be flagged
    // too, so only the lowest flag is exact, and that is the one taken.
    constexpr auto zero_bytes = [](uint64_t w) { return (w - kOnes) & ~w & kHighs; };
    while (end - p >= 8) {
      uint64_t w;
      std::memcpy(&w, p, sizeof w);
      const uint64_t hits = zero_bytes(w ^ (kOnes * static_cast<unsigned char>(A))) |
                            zero_bytes(w ^ (kOnes * static_cast<unsigned char>(B))) |
                            zero_bytes(w ^ (kOnes * static_cast<unsigned char>(C)));
      if (hits) return p + std::countr_zero(hits) / 8;
      p += 8;
    }
  }
  while (p != end && *p != A && *p != B && *p != C) ++p;
  return p;
}

// Parses one field starting at `p` (which is not the end and not a control character) into
// `buffer`, answering its length with trailing white space removed. Leaves `p` on the byte
// the scan stopped at: the end, an unquoted comma, or the byte at which a long field was cut.
std::size_t parse_field(const char*& p, const char* end, char* buffer) noexcept {
  bool quoted = false;
  if (*p == '"') {
    quoted = true;
    ++p;
  }
  while (p != end && char_class::isAsciiSpace(*p)) ++p;

  std::size_t n = 0;
  while (p != end && n < kMaxFieldLength) {
    // Copy the run of plain bytes up to the next byte that needs a decision.
    const std::size_t room = kMaxFieldLength - n;
    const std::size_t left = static_cast<std::size_t>(end - p);
    const char* run_end = p + (left < room ? left : room);
    // The comma only ends a field outside quotes; inside them it is stored below.
    const char* q = find_first_of<'"', '\\', ','>(p, run_end);
    std::memcpy(buffer + n, p, static_cast<std::size_t>(q - p));
    n += static_cast<std::size_t>(q - p);
    p = q;
    if (p == run_end) break;

    const char c = *p;
    const bool has_next = p + 1 != end;
    if (c == '"') {
      if (has_next && p[1] == '"') {
        buffer[n++] = '"';
        p += 2;
      } else {
        // A closing quote, or a stray one in an unquoted field: dropped. What follows it up to
        // the comma still belongs to the field.
        quoted = false;
        ++p;
      }
    } else if (c == '\\') {
      if (has_next && p[1] == 'n') {
        buffer[n++] = '\n';
        p += 2;
      } else if (has_next && p[1] == '\\') {
        buffer[n++] = '\\';
        if (n < kMaxFieldLength) {
          buffer[n++] = '\\';
          p += 2;
        } else {
          // No room for the pair: the field is cut at the second backslash.
          ++p;
        }
      } else {
        // Kept as it is; the next byte is read by the usual rules.
        buffer[n++] = '\\';
        ++p;
      }
    } else if (quoted) {  // a comma inside quotes
      buffer[n++] = ',';
      ++p;
    } else {
      break;  // the comma that ends the field
    }
  }
  while (n > 0 && char_class::isAsciiSpace(buffer[n - 1])) --n;
  return n;
}

// Replaces `fields` with the fields of `line`; answers the count read() answers.
int parse_line(std::string_view line, std::vector<LightweightString<char>>& fields) {
  // Each field is parsed straight into its place in the record's one allocation. The
  // initial-exec model (a few bytes of static TLS, available even to a library opened at run
  // time) spares each line a call to find the thread's block.
  [[gnu::tls_model("initial-exec")]] thread_local LightweightString<char>::Batch batch;
  batch.clear();

  const char* p = line.data();
  const char* const end = p + line.size();
  int count = 0;
  while (p != end) {
    ++count;
    // A control character between fields is counted but yields no field; loaders compare the
    // count with the column count, so a stray one makes the line stand out.
    if (char_class::isControl(*p)) {
      ++p;
      continue;
    }
    // Parsed texts never outgrow what is left of their line: escapes only shrink.
    const std::size_t left = static_cast<std::size_t>(end - p);
    if (batch.size() < kMaxFields) {
      const std::size_t length = parse_field(p, end, batch.reserve(left < kMaxFieldLength ? left : kMaxFieldLength));
      batch.commit(length);
    } else {
      char ignored[kFieldBufferSize];
      parse_field(p, end, ignored);
    }
    if (p != end) ++p;  // the comma, or the byte at which a long field was cut
  }
  fields.clear();  // keeps the capacity: a database reads every line into a record of its width
  if (fields.capacity() < batch.size()) fields.reserve(batch.size());
  fields.resize(batch.size());
  batch.assign(fields.data());
  return count;
}

// What one step of the plain-line scan found in sixteen bytes of a line.
struct Chunk {
  uint32_t quotes = 0;   // bit i: byte i is a double quote
  uint32_t commas = 0;   // bit i: byte i is a comma
  bool unplain = false;  // some byte is one a plain line cannot hold
};

#if defined(__SSE2__)
// Bit i: byte i of `w` is `c`.
[[gnu::always_inline]] inline uint32_t byte_mask(__m128i w, char c) noexcept {
  return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(w, _mm_set1_epi8(c))));
}

// Set where a byte is one a plain line cannot hold: a backslash or a control character.
[[gnu::always_inline]] inline __m128i unplain_bytes(__m128i w) noexcept {
  const __m128i last_control = _mm_set1_epi8(31);
  const __m128i control = _mm_cmpeq_epi8(_mm_max_epu8(w, last_control), last_control);
  return _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(w, _mm_set1_epi8('\\')), control),
                      _mm_cmpeq_epi8(w, _mm_set1_epi8(127)));
}
#endif

// Sixteen bytes of a line from `at` on (the `left` that remain at its end): its double quotes
// and commas, and whether any byte is a backslash or a control character. The masks are
// answered through `chunk`: returned, a struct of three parts cost a stall every call.
[[gnu::always_inline]] inline void scan_chunk(const char* at, std::size_t left, std::size_t line_size,
                                              Chunk& chunk) noexcept {
  chunk = Chunk();
#if defined(__SSE2__)
  if (left >= 16 || line_size >= 16) {
    // The last, short step of a line of 16 bytes or more reads the 16 that end the line; the
    // bytes it reads again are left out of its masks.
    const std::size_t back = left >= 16 ? 0 : 16 - left;
    const __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at - back));
    chunk.quotes = byte_mask(w, '"') >> back;
    chunk.commas = byte_mask(w, ',') >> back;
    chunk.unplain = _mm_movemask_epi8(unplain_bytes(w)) != 0;
    return;
  }
#endif
  const std::size_t n = left < 16 ? left : 16;
  for (std::size_t i = 0; i < n; ++i) {
    if (at[i] == '"') chunk.quotes |= uint32_t{1} << i;
    if (at[i] == ',') chunk.commas |= uint32_t{1} << i;
    if (at[i] == '\\' || char_class::isControl(at[i])) chunk.unplain = true;
  }
}

// The same for 64 bytes from `at` on, or what is left of the line.
struct Word {
  uint64_t quotes = 0;
  uint64_t commas = 0;
  bool unplain = false;
};

[[gnu::always_inline]] inline void scan_word(const char* text, std::size_t at, std::size_t size, Word& word) noexcept {
#if defined(__SSE2__)
  if (at + 64 <= size) {
    // A whole word: four steps of scan_chunk, with one test of the bytes ruled out.
    __m128i bad = _mm_setzero_si128();
    uint64_t quotes = 0;
    uint64_t commas = 0;
    for (std::size_t i = 0; i < 64; i += 16) {
      const __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + at + i));
      bad = _mm_or_si128(bad, unplain_bytes(w));
      quotes |= uint64_t{byte_mask(w, '"')} << i;
      commas |= uint64_t{byte_mask(w, ',')} << i;
    }
    word.quotes = quotes;
    word.commas = commas;
    word.unplain = _mm_movemask_epi8(bad) != 0;
    return;
  }
#endif
  word = Word();
  Chunk chunk;
  for (std::size_t i = 0; i < 64 && at + i < size; i += 16) {
    scan_chunk(text + at + i, size - at - i, size, chunk);
    word.quotes |= uint64_t{chunk.quotes} << i;
    word.commas |= uint64_t{chunk.commas} << i;
    word.unplain = word.unplain || chunk.unplain;
  }
}

// The field starts of a line being scanned, written through a plain pointer into room for
// every field a line of its size can hold: the scan's innermost step stays in registers.
struct Starts {
  uint16_t* first;
  uint16_t* next;
  std::size_t size() const noexcept { return static_cast<std::size_t>(next - first); }
  void clear() noexcept { next = first; }
};

// Ends the field that starts at `start` at the quote `q`; false when the field rules the line
// out.
[[gnu::always_inline]] inline bool close_field(const char* text, std::size_t start, std::size_t q, Starts& starts) {
  const std::size_t length = q - start;
  // A field of kMaxFieldLength bytes fills the buffer, and its closing quote is then the
  // byte at which it is cut.
  if (length >= kMaxFieldLength || (length > 0 && (text[start] == ' ' || text[q - 1] == ' '))) return false;
  if (starts.size() == kMaxFields) return false;
  *starts.next++ = static_cast<uint16_t>(start);
  return true;
}

// plain_fields by walking the quotes in order: for the lines where a field holding just a
// comma makes separators overlap. Every quote opens or closes a field.
uint16_t plain_fields_in_order(std::string_view line, Starts& starts) {
  starts.clear();
  const char* const text = line.data();
  const std::size_t size = line.size();
  std::size_t start = 1;    // the open field's first byte
  std::size_t opening = 0;  // the quote that opened it, passed over when the walk meets it
  for (std::size_t at = 0; at < size; at += 16) {
    Chunk chunk;
    scan_chunk(text + at, size - at, size, chunk);
    for (; chunk.quotes != 0; chunk.quotes &= chunk.quotes - 1) {
      const std::size_t q = at + static_cast<std::size_t>(std::countr_zero(chunk.quotes));
      if (q == opening) continue;
      if (!close_field(text, start, q, starts)) return 0;
      if (q + 1 == size) return static_cast<uint16_t>(starts.size());
      // The next field's opening quote must have its closing one after it.
      if (size - q < 4 || text[q + 1] != ',' || text[q + 2] != '"') return 0;
      opening = q + 2;
      start = q + 3;
    }
  }
  return 0;  // not reached: the last byte is a closing quote
}

// The number of fields of a plain line, 0 for any other, with each field's start in `starts`.
// A plain line reads as exactly the bytes between its quotes, and those bytes write back as
// the same line. A line too long for 16-bit starts is not taken as plain: such lines are rare
// enough to be read into field strings at once.
//
// A plain line is a quote, fields without quotes joined by '","', and a quote: its quotes are
// its first and last bytes and the two ends of each separator, and nothing else. So 64 bytes
// at a time, the separators are found as masks and the quotes checked against them at once.
uint16_t plain_fields(std::string_view line, Starts& starts) {
  starts.clear();
  const char* const text = line.data();
  const std::size_t size = line.size();
  if (size < 2 || size > UINT16_MAX || text[0] != '"' || text[size - 1] != '"') return 0;
  std::size_t start = 1;  // the open field's first byte
  uint64_t carried = 0;   // quotes the last word's separators end in this one
  Word word;
  Word next;
  scan_word(text, 0, size, word);
  for (std::size_t at = 0; at < size; at += 64) {
    if (at + 64 < size) {
      scan_word(text, at + 64, size, next);
    } else {
      next = Word();
    }
    if (word.unplain) return 0;
    uint64_t seps =
        word.quotes & ((word.commas >> 1) | (next.commas << 63)) & ((word.quotes >> 2) | (next.quotes << 62));
    // The first quote opens the line, and a separator needs a field and its quote after it.
    if (at == 0) seps &= ~uint64_t{1};
    if (size < at + 67) seps &= size >= at + 4 ? ~uint64_t{0} >> (63 - (size - 4 - at)) : 0;
    // Overlapping separators come three in a row (a field of just a comma), so two of them
    // always share a word.
    if ((seps & (seps >> 2)) != 0) return plain_fields_in_order(line, starts);
    uint64_t expected = seps | (seps << 2) | carried;
    if (at == 0) expected |= 1;
    if (size - 1 - at < 64) expected |= uint64_t{1} << (size - 1 - at);
    if (word.quotes != expected) return 0;
    carried = seps >> 62;
    for (; seps != 0; seps &= seps - 1) {
      const std::size_t q = at + static_cast<std::size_t>(std::countr_zero(seps));
      if (!close_field(text, start, q, starts)) return 0;
      start = q + 3;
    }
    word = next;
  }
  return close_field(text, start, size - 1, starts) ? static_cast<uint16_t>(starts.size()) : 0;
}

// Whether some byte of the line is one a plain line cannot hold.
bool has_unplain_bytes(std::string_view line) noexcept {
  Chunk chunk;
  for (std::size_t at = 0; at < line.size(); at += 16) {
    scan_chunk(line.data() + at, line.size() - at, line.size(), chunk);
    if (chunk.unplain) return true;
  }
  return false;
}

// plain_fields for a line that is plain but for doubled quotes inside its fields, 0 for any
// other: the field starts are those of `text`, the line with each pair made one quote, from
// which the fields then read as from a plain line. Such a line is what the writer makes of
// those fields, byte for byte, as a plain line is. `text` matches the line up to `same`, the
// start of the first field with a pair.
uint16_t unquoted_fields(std::string_view line, Starts& starts, std::string& text, std::size_t& same) {
  starts.clear();
  text.clear();
  same = SIZE_MAX;
  const char* const data = line.data();
  const std::size_t size = line.size();
  // Two bytes spare: the copy's end is kept as a start past it.
  if (size < 2 || size > UINT16_MAX - 2u || data[0] != '"' || data[size - 1] != '"') return 0;
  if (has_unplain_bytes(line)) return 0;
  text.push_back('"');
  std::size_t start = 1;  // the open field's first byte in `text`
  std::size_t p = 1;
  for (;;) {
    const void* found = std::memchr(data + p, '"', size - p);
    if (!found) return 0;  // a pair that ends the line leaves its field open
    const std::size_t q = static_cast<std::size_t>(static_cast<const char*>(found) - data);
    text.append(data + p, q - p);
    if (q + 1 < size && data[q + 1] == '"') {
      same = std::min(same, start);
      text.push_back('"');
      p = q + 2;
      continue;
    }
    if (!close_field(text.data(), start, text.size(), starts)) return 0;
    if (q + 1 == size) break;
    if (size - q < 4 || data[q + 1] != ',' || data[q + 2] != '"') return 0;
    text.append("\",\"");
    p = q + 3;
    start = text.size();
  }
  text.push_back('"');
  same = std::min(same, text.size());
  return static_cast<uint16_t>(starts.size());
}

}  // namespace

int dbrecord::read(TextFile& file) {
  // A loaded record is new and holds no line: nothing to let go.
  if (line_.text || line_.far_starts) line_ = PlainLine();
  form_.store(kFields, std::memory_order_release);
  const std::string_view line = file.takeLine();
  if (isEssentiallyEmpty(line.data(), line.size())) {
    fields_.clear();
    return 0;
  }
  [[gnu::tls_model("initial-exec")]] thread_local std::vector<uint16_t> room;
  [[gnu::tls_model("initial-exec")]] thread_local std::string unquoted;
  // A field takes at least three bytes of a line, two quotes and a comma; longer lines than
  // 16-bit starts reach are not scanned for fields, and so never grow the room.
  const std::size_t fields_at_most = std::min<std::size_t>(line.size(), UINT16_MAX) / 3 + 1;
  if (room.size() < fields_at_most) room.resize(fields_at_most);
  Starts starts{room.data(), room.data()};
  uint16_t count = plain_fields(line, starts);
  std::size_t same = 0;
  const bool copied = count == 0 && (count = unquoted_fields(line, starts, unquoted, same)) != 0;
  if (count != 0) {
    line_.text = file.shareBuffer();
    line_.at = line.data();
    line_.length = static_cast<uint32_t>(line.size());
    line_.fields = count;
    line_.copied = copied;
    uint16_t* kept = line_.near_starts;
    if (copied) {
      // The starts, then where the unquoted line ends, where the copy begins in it, and the
      // copy: the fields before the first pair read from the line itself.
      const std::size_t copy_size = unquoted.size() - same;
      const std::size_t size = count + 1u + (copy_size + 1) / 2;
      line_.far_starts.reset(new uint16_t[size]);
      kept = line_.far_starts.get();
      kept[count - 1] = static_cast<uint16_t>(unquoted.size() + 2);
      kept[count] = static_cast<uint16_t>(same);
      if (copy_size % 2 != 0) kept[size - 1] = 0;  // a byte that copies of the record still copy
      std::memcpy(kept + count + 1, unquoted.data() + same, copy_size);
    } else if (count - 1u > PlainLine::kNearStarts) {
      line_.far_starts.reset(new uint16_t[count - 1u]);
      kept = line_.far_starts.get();
    }
    std::memcpy(kept, starts.first + 1, (count - 1u) * sizeof(uint16_t));
    // A record that had fields lets their room go too: the line holds them now.
    std::vector<LightweightString<char>>().swap(fields_);
    form_.store(kLine, std::memory_order_release);
    mark_changed();
    return count;
  }
  const int parsed = parse_line(line, fields_);
  mark_changed();
  return parsed;
}

void dbrecord::take_apart() const {
  uint8_t expected = kLine;
  if (form_.compare_exchange_strong(expected, kParsing, std::memory_order_acquire)) {
    try {
      parse_line(std::string_view(line_.at, line_.length), fields_);
    } catch (...) {
      form_.store(kLine, std::memory_order_release);
      throw;
    }
    // The line stays: another reader may hold a view into it.
    form_.store(kFields, std::memory_order_release);
    return;
  }
  while (form_.load(std::memory_order_acquire) != kFields) std::this_thread::yield();
}

LightweightString<char> dbrecord::fieldValue(unsigned short i) const {
  if (heldAsLine()) return LightweightString<char>(fieldView(i));
  return getField(i);
}

void dbrecord::widen(unsigned* widest, std::size_t max) const noexcept {
  auto raise = [&](std::size_t i, std::size_t size) {
    if (size > widest[i]) widest[i] = static_cast<unsigned>(size);
  };
  if (form_.load(std::memory_order_acquire) == kFields) {
    const std::size_t n = std::min(max, fields_.size());
    for (std::size_t i = 0; i < n; ++i) raise(i, fields_[i].size());
    return;
  }
  // Sizes from the starts alone, as line_field finds the ends: the line's bytes stay untouched.
  const std::size_t n = std::min<std::size_t>(max, line_.fields);
  if (n == 0) return;
  const uint16_t* later = line_.later_starts();
  std::size_t start = 1;
  for (std::size_t i = 0; i + 1 < line_.fields && i < n; ++i) {
    raise(i, later[i] - 3u - start);
    start = later[i];
  }
  if (n == line_.fields) raise(n - 1, line_.last_end() - start);
}

std::string_view dbrecord::line_field(unsigned short i) const noexcept {
  const uint16_t* later = line_.later_starts();
  const std::size_t start = i == 0 ? 1u : later[i - 1];
  // A field ends three bytes before the next one starts ("," between), the last one a byte
  // before the line does.
  const std::size_t end = i + 1u < line_.fields ? later[i] - 3u : line_.last_end();
  return {line_.field_at(start), end - start};
}

std::string_view dbrecord::fieldView(unsigned short i) const noexcept {
  if (form_.load(std::memory_order_acquire) == kFields) {
    return i < fields_.size() ? fields_[i].view() : std::string_view();
  }
  return i < line_.fields ? line_field(i) : std::string_view();
}

void dbrecord::write_to(std::string& line) const {
  if (is_line()) {
    // A plain line is what the writer would make of its fields.
    line.append(line_.at, line_.length);
    changed_ = 0;
    return;
  }
  std::size_t estimate = 0;
  for (const LightweightString<char>& field : fields_) estimate += field.size() + 3;
  reserveAtLeast(line, line.size() + estimate + estimate / 16);

  bool first = true;
  for (const LightweightString<char>& field : fields_) {
    if (!first) line += ',';
    first = false;
    line += '"';
    const char* p = field.c_str();
    const char* const end = p + field.size();
    while (p != end) {
      const char* q = find_first_of<'"', '\n', '\r'>(p, end);
      line.append(p, static_cast<std::size_t>(q - p));
      if (q == end) break;
      if (*q == '"') {
        line += "\"\"";
      } else if (*q == '\n') {
        line += "\\n";
      }  // a carriage return is dropped
      p = q + 1;
    }
    line += '"';
  }
  changed_ = 0;
}

bool dbrecord::write(TextFile& file) const {
  // Reused from line to line.
  [[gnu::tls_model("initial-exec")]] thread_local std::string line;
  line.clear();
  write_to(line);
  file.appendLine(std::string_view(line));
  return true;
}
