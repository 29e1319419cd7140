#ifndef KESTA_RECORD_DBRECORD_H
#define KESTA_RECORD_DBRECORD_H
// dbrecord: one row of a database, an ordered list of text fields, one per column.
//
//   Zr::Ptr<dbrecord> r(new dbrecord(3));
//   r->set_field(0, "  Reel 1");        // stores "Reel 1", marks the record changed
//   r->get_field(0);                    // "Reel 1"
//   r->get_field(7);                    // null: out of range
//
// A record points back, without owning, to the database that contains it (its container), so
// that a store into a field marks the database changed as well. Fields are addressed with
// 16-bit indices. An empty field is a null string and reads as "". Out-of-range indices never
// fault: getters answer null, "" or a shared empty string, setters answer false.
//
// A record read from a plain line (every field quoted; no backslash, control character or
// blank at a field's ends) keeps the line, shared with the text it came from, and takes it
// apart only when a field string is asked for: most records of a big log are loaded, sorted or
// searched on a few columns and written back, which fieldView and the writer do from the line
// itself. A line with doubled quotes in its fields also keeps a copy of its fields from the
// first pair on, each pair made one quote, for fieldView.
//
// Thread safety: the count and the field strings' counts are atomic, so records may be read
// from several threads (the first reader of a field takes the line apart, the others wait for
// it); changes need the caller's serialisation.

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/Config.h"
#include "support/Export.h"
#include "support/LightweightString.h"
#include "support/TextFile.h"
#include "support/ZrPtr.h"

class kesta;

class KESTA_API dbrecord : public iObject {
 public:
  // `n` empty fields, no container, changed mark and tag 0.
  explicit dbrecord(unsigned short n);
  // The same texts, shared (the same field strings, or the same held line), no container,
  // changed mark and tag 0.
  dbrecord(const dbrecord& other);
  ~dbrecord() override;
  // Resizes to other's field count and stores each of other's texts with set_field(i, text,
  // true): leading white space is dropped and the record is marked changed once per field.
  // The container is kept.
  dbrecord& operator=(const dbrecord& other);

  void set_container(kesta* container) noexcept { container_ = container; }
  kesta* get_container() const noexcept { return container_; }

  unsigned short get_num_fields() const noexcept {
    return form_.load(std::memory_order_acquire) == kFields ? static_cast<unsigned short>(fields_.size())
                                                            : line_.fields;
  }
  // The field's text; "" for an empty field; null when `i` is out of range.
  const char* get_field(unsigned short i) const;
  // The field's string; one shared, empty, never-changing string when `i` is out of range.
  const LightweightString<char>& getField(unsigned short i) const;
  // The field's bytes, empty for an empty field or `i` out of range, without making the field
  // string. Valid until the record is next changed (read, stored into or reshaped).
  std::string_view fieldView(unsigned short i) const noexcept;
  // The field's string as getField answers it; for a record that keeps its line, a string
  // of its own made for this call, so that the record is not taken apart for one field.
  LightweightString<char> fieldValue(unsigned short i) const;
  // Makes the field strings now and lets the line go, as a store would: for callers about to
  // read every field of many records, which would otherwise hold both.
  void takeApart() { own_fields(); }
  // True while the record keeps its line and has made no field strings from it.
  bool heldAsLine() const noexcept { return form_.load(std::memory_order_acquire) == kLine; }
  // Raises widest[i] to the byte size of field i, for every field i < max: a column's widest
  // value over many records, without a view made of each field.
  void widen(unsigned* widest, std::size_t max) const noexcept;
  // False when `i` is out of range; else copies at most `len` bytes into `dst`, stores a zero
  // at dst[len] (REQUIRES: dst holds len + 1 bytes) and answers true.
  bool in_field(int i, char* dst, int len);
  // True when the record has no fields or every field is empty.
  bool is_blank() const;

  // The main setter. False when `i` is out of range. Otherwise stores `text` (with leading
  // ASCII white space skipped when `trim`), or empties the field for null or empty text,
  // marks the record and its container changed, even when nothing changed, and answers true.
  bool set_field(int i, const char* text, bool trim = true);
  bool set_field(int i, int value);       // "%d"
  bool set_field(int i, unsigned value);  // "%u"
  bool set_field(int i, double value);    // "%.8lf"
  bool set_field(int i, bool value);      // "t" or "f"
  // Stores `s` (sharing it) only when it differs; marks changed only then. False out of range.
  bool setField(unsigned short i, const LightweightString<char>& s);
  // Stores texts[i] into field i, for i < n and within the record, as setField would each,
  // their strings made in one shared allocation: for a caller filling many records at once.
  void setFields(const std::string_view* texts, unsigned short n);

  // Empties every field; the count stays. Does not mark changed.
  void clear();
  // Removes field `i`, later fields move down. Nothing out of range. Does not mark changed.
  void removeField(unsigned short i);
  // Appends empty fields up to `n`, or drops fields from `n` on. Nothing when `n` is negative
  // or `fill` is null; `fill` and the flag are not otherwise used.
  void resizeRecord(int n, int* fill, bool);
  // Kept for interface compatibility; does nothing.
  void resizeField(int, int) noexcept {}

  // Replaces the fields from the file's next line (at its read cursor, which advances);
  // answers the fields parsed plus the control characters skipped between them, 0 for a line
  // that yields nothing (the record then has no fields and keeps its changed mark).
  int read(TextFile& file);
  // Appends the record as one line and clears the changed mark; always true.
  bool write(TextFile& file) const;
  // Appends the record's line, without a line end, to `line` and clears the changed mark.
  void write_to(std::string& line) const;
  // While the record keeps its line, that line (what write_to would append); else empty.
  // Valid as fieldView's views are. A writer may copy it out once instead of twice.
  std::string_view heldLine() const noexcept {
    return is_line() ? std::string_view(line_.at, line_.length) : std::string_view();
  }

  // Exports the label fields to `cfg` ("slate/take", "name", "notes", "reelid" ...); answers
  // how many label fields were exported. 0 without a container or a "name" column.
  int update(configb* cfg);

  bool changed() const noexcept { return changed_ != 0; }
  void clear_changed() noexcept { changed_ = 0; }
  // Marks the record and its container changed, as every store does, even one that changes
  // nothing: for a caller that found its store would change nothing.
  void touch() noexcept { mark_changed(); }
  unsigned char get_tag() const noexcept { return tag_; }
  void set_tag(unsigned char tag) noexcept { tag_ = tag; }

 private:
  // The line of a record that has not been taken apart; see above.
  struct PlainLine {
    std::shared_ptr<const void> text;  // keeps `at` alive
    const char* at = nullptr;
    uint32_t length = 0;
    uint16_t fields = 0;
    // Where each field's text starts in the line, so that a field is found at once; the first
    // field starts at 1, so only the later ones are kept. Logs rarely have more columns than
    // fit here: keeping them in the record saves a block and a cache miss a record.
    static constexpr uint16_t kNearStarts = 16;
    uint16_t near_starts[kNearStarts];
    // Set for a line with doubled quotes in its fields: far_starts then holds the starts into
    // the line with each pair made one quote, where the last field ends in it plus 3, where
    // the first field with a pair starts, and a copy of the rest of it, from which the fields
    // from there on are read. The ones before read from the line, which is the same up to there.
    bool copied = false;
    std::unique_ptr<uint16_t[]> far_starts;  // only for lines of more fields, or copied
    // later_starts()[i - 1] is where field i starts, for 0 < i < fields.
    const uint16_t* later_starts() const noexcept { return far_starts ? far_starts.get() : near_starts; }
    // The text of the field that starts at `start`.
    const char* field_at(std::size_t start) const noexcept {
      if (!copied || start < far_starts[fields]) return at + start;
      return reinterpret_cast<const char*>(far_starts.get() + fields + 1) + (start - far_starts[fields]);
    }
    // Where the last field ends: in the line, or for a copied one in its unquoted form.
    std::size_t last_end() const noexcept { return copied ? far_starts[fields - 1] - 3u : length - 1u; }
    // The bytes of a copied line's copy: from where it begins to where the unquoted line ends.
    std::size_t copy_size() const noexcept { return far_starts[fields - 1] - 2u - far_starts[fields]; }
    // The number of entries of far_starts.
    std::size_t far_size() const noexcept { return copied ? fields + 1u + (copy_size() + 1u) / 2 : fields - 1u; }
  };
  // kLine: the fields are still in line_. kParsing: a reader is making fields_ from it.
  // kFields: fields_ holds them (line_ may still hold the line, for readers that took a view).
  enum Form : uint8_t { kFields, kLine, kParsing };

  void mark_changed() noexcept;
  bool in_range(int i) const noexcept { return i >= 0 && i < static_cast<int>(get_num_fields()); }
  // The field strings, made from the line first if need be.
  const std::vector<LightweightString<char>>& fields() const {
    if (form_.load(std::memory_order_acquire) != kFields) take_apart();
    return fields_;
  }
  // The same, for a change: the line is let go.
  std::vector<LightweightString<char>>& own_fields() {
    fields();
    line_ = PlainLine();
    return fields_;
  }
  void take_apart() const;
  // Field i of the line. REQUIRES: the record holds its line, i < line_.fields.
  std::string_view line_field(unsigned short i) const noexcept;
  bool is_line() const noexcept { return form_.load(std::memory_order_acquire) != kFields; }

  kesta* container_ = nullptr;
  mutable std::vector<LightweightString<char>> fields_;
  mutable PlainLine line_;
  mutable std::atomic<uint8_t> form_{kFields};
  mutable uint8_t changed_ = 0;
  uint8_t tag_ = 0;
};

#endif
