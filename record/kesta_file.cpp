// kesta: the database text file. Parameter lines ("KESTA:Rev 1" first), a four-line column
// header (marker, widths, types, names), then one record line per record, every line in the
// record line syntax; and plain comma-separated input for files named "*.csv".
//
// Files are loaded through a TextFileReader a block at a time, the records read straight from
// each block's lines, and saved atomically through a TextFileWriter that streams the lines: a
// large log is never held twice in memory.

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <string_view>
#include <vector>

#include "record/CharClass.h"
#include "record/FieldText.h"
#include "record/KestaRevision.h"
#include "record/Prefetch.h"
#include "record/kesta.h"
#include "support/Log.h"
#include "support/StringUtils.h"
#include "support/TextFileReader.h"
#include "support/TextFileWriter.h"

namespace {

constexpr unsigned kNotFound = 0xFFFFFFFFu;
constexpr unsigned short kScratchFields = 24;
constexpr std::size_t kMaxColumns = 0xFFFF;
// Each formatted name field of the header is cut to this many bytes.
constexpr std::size_t kNameFieldLimit = 254;

bool is_marker(const dbrecord& line) {
  if (line.get_num_fields() == 0) return false;
  // The field's text up to its first zero byte is "KESTA" in any case; every record line is
  // asked, so the bytes past the fifth are looked at only when those five match.
  const std::string_view first = line.fieldView(0);
  // The first byte as strncasecmp compares it (no locale lowers another byte to 'k'), without
  // a call for every record.
  if (first.size() < 5 || (first[0] != 'K' && first[0] != 'k')) return false;
  return strncasecmp(first.data(), "KESTA", 5) == 0 && (first.size() == 5 || first[5] == '\0');
}

const char* skip_space(const char* text) {
  while (char_class::isAsciiSpace(*text)) ++text;
  return text;
}

// "key:value" -> key and value (the value's leading blanks dropped). False for a text without
// a colon or whose colon comes first: such parameter lines are skipped.
bool split_parameter(const char* text, LightweightString<char>& key, LightweightString<char>& value) {
  text = skip_space(text);
  const char* colon = std::strchr(text, ':');
  if (!colon || colon == text) return false;
  key = LightweightString<char>(text, static_cast<std::size_t>(colon - text));
  value = LightweightString<char>(skip_space(colon + 1));
  return true;
}

int revision_of(const LightweightString<char>& value) {
  const char* digits = value.c_str();
  while (*digits && (*digits < '0' || *digits > '9')) ++digits;
  return static_cast<int>(std::strtol(digits, nullptr, 10));
}

// The column a header-less file's name line gives: names mentioning a start or an end are
// time codes.
DBFieldTypes::eType guess_type(const char* name) {
  std::string lowered(name);
  for (char& c : lowered) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  const bool timecode = lowered.find("start") != std::string::npos || lowered.find("end") != std::string::npos;
  return timecode ? DBFieldTypes::kTimecode : DBFieldTypes::kText;
}

bool has_csv_suffix(const LightweightString<wchar_t>& name) {
  static const wchar_t kSuffix[] = L".csv";
  constexpr std::size_t kLength = 4;
  return name.size() >= kLength && std::wmemcmp(name.c_str() + name.size() - kLength, kSuffix, kLength) == 0;
}

// Splits at commas outside double quotes into views of `line`, which keep their quotes and
// blanks. `cuts` is room the split reuses.
void split_csv_line(std::string_view line, std::vector<uint32_t>& cuts, std::vector<std::string_view>& pieces) {
  cuts.clear();
  pieces.clear();
  Zr::findSeparators(line, Zr::IsMatchingChar(','), true, cuts);
  Zr::convertIndicesToSubStrings(line, cuts,
                                 [&](const char* at, std::size_t length) { pieces.emplace_back(at, length); });
}

// The first line names the columns (all text_s); each further line that gives pieces becomes
// a record. Pieces past the last column are dropped, missing ones leave fields empty.
// `rows_records`, given when the database's rows are its records, holds them: the pieces then
// go straight into the new row's record, as the row setter would store them, without a virtual
// call and a string made a field.
void read_csv(kesta& db, std::vector<DBFieldDesc>& fields, const TextFile& file, const RecordList* rows_records) {
  if (file.getNumLines() == 0) return;
  std::vector<uint32_t> cuts;
  std::vector<std::string_view> pieces;
  split_csv_line(file.line(0), cuts, pieces);
  for (std::string_view name : pieces) {
    // Fields are addressed with 16-bit indices: further pieces are dropped, as a record line's are.
    if (fields.size() == kMaxColumns) break;
    fields.push_back(DBFieldDesc(LightweightString<char>(name), DBFieldTypes::kTextS));
  }
  if (fields.empty()) return;
  for (unsigned i = 1; i < file.getNumLines(); ++i) {
    split_csv_line(file.line(i), cuts, pieces);
    const std::size_t n = std::min(pieces.size(), fields.size());
    if (n == 0) continue;
    const unsigned row = db.add_records(1);
    if (!rows_records) {
      for (std::size_t f = 0; f < n; ++f) {
        db.set_field(row, static_cast<unsigned>(f), LightweightString<char>(pieces[f]).c_str());
      }
    } else if (dbrecord* record = row < rows_records->size() ? (*rows_records)[row].get() : nullptr) {
      for (std::size_t f = 0; f < n; ++f) pieces[f] = stored_text(pieces[f]);
      record->setFields(pieces.data(), static_cast<unsigned short>(n));
      record->touch();  // each store marks the record, even of an empty piece
    }
  }
}

void append_quoted_list(std::string& line, std::size_t index, const char* text) {
  if (index > 0) line += ',';
  line += '"';
  line += text;
  line += '"';
}

// The mark as a store sets it; a record without fields takes no store.
void remark_changed(dbrecord& record) {
  if (record.get_num_fields() != 0) record.touch();
}

// What a save changes in the database before it knows whether the file was written: the
// records' "Tag" texts and changed marks, and the database's changed flag. Unless the save
// commits, the destructor puts them back (allocation failure included), so a failed save
// leaves the database as it was.
//
// A store through the database's row setter may reach another record than the row's: in the
// tagged-only display it goes by tagged row, and a derived class may answer rows its own way.
// Such a save remembers every record before the first store. A direct save stores each tag
// into its row's own record, so it keeps each row's changed mark as it goes, and a tag text
// only where the store changes it: that spares it a pass through every record's line.
class SaveUndo {
 public:
  SaveUndo(const RecordList& records, unsigned tag_column, int32_t& database_changed, bool direct)
      : records_(records),
        tag_column_(tag_column),
        database_changed_(database_changed),
        was_changed_(database_changed) {
    if (direct) {
      marks_.resize(records.size());
      return;
    }
    saved_.reserve(records.size());
    // Tag texts are mostly "0" and "1": one string each serves every record that holds it, and
    // a record kept as its line is not taken apart for it.
    LightweightString<char> recent[2];
    for (std::size_t row = 0; row < records.size(); ++row) {
      const Zr::Ptr<dbrecord>& record = records[row];
      if (!record) continue;
      LightweightString<char> tag;
      if (has_tag(*record)) {
        const std::string_view text = record->fieldView(tag_index());
        if (text == recent[0].view()) {
          tag = recent[0];
        } else if (text == recent[1].view()) {
          tag = recent[1];
        } else {
          tag = LightweightString<char>(text);
          recent[1] = std::move(recent[0]);
          recent[0] = tag;
        }
      }
      saved_.push_back(Saved{record, std::move(tag), record->changed()});
    }
  }
  ~SaveUndo() {
    if (committed_) return;
    for (const Saved& s : saved_) {
      if (has_tag(*s.record)) s.record->setField(tag_index(), s.tag);
      if (s.changed) {
        remark_changed(*s.record);
      } else {
        s.record->clear_changed();
      }
    }
    for (std::size_t row = 0; row < reached_; ++row) {
      dbrecord* record = records_[row].get();
      if (!record) continue;
      if (marks_[row]) {
        remark_changed(*record);
      } else {
        record->clear_changed();
      }
    }
    database_changed_ = was_changed_;
  }
  SaveUndo(const SaveUndo&) = delete;
  SaveUndo& operator=(const SaveUndo&) = delete;

  // For a direct save, before anything is stored into the row's record; `replaced`: its tag
  // text is about to change.
  void beforeStore(std::size_t row, const Zr::Ptr<dbrecord>& record, bool replaced) {
    marks_[row] = record->changed();
    reached_ = row + 1;
    // Kept with a false mark: the row's own mark is put back from marks_.
    if (replaced) saved_.push_back(Saved{record, record->fieldValue(tag_index()), false});
  }

  void commit() noexcept { committed_ = true; }

 private:
  struct Saved {
    Zr::Ptr<dbrecord> record;
    LightweightString<char> tag;
    bool changed;
  };
  bool has_tag(const dbrecord& record) const noexcept {
    return tag_column_ != kNotFound && tag_column_ < record.get_num_fields();
  }
  unsigned short tag_index() const noexcept { return static_cast<unsigned short>(tag_column_); }

  const RecordList& records_;
  std::vector<Saved> saved_;
  std::vector<bool> marks_;  // a direct save's changed marks, by row, of the rows reached
  std::size_t reached_ = 0;
  const unsigned tag_column_;
  int32_t& database_changed_;
  const int32_t was_changed_;
  bool committed_ = false;
};

// Writes every record of the full list, whatever the tag display mode, after storing its tag
// in the "Tag" column, then saves the file. The tag goes in through the virtual row setter, so
// a derived class sees the store in its own row numbering; a direct save (see SaveUndo) stores
// it as that setter would.
int save_records(kesta& db, const RecordList& records, int32_t& database_changed, const TextFile& head,
                 const LightweightString<wchar_t>& name, bool direct) {
  const unsigned tag_column = db.get_fieldnum(LightweightString<char>("Tag"));
  SaveUndo undo(records, tag_column, database_changed, direct);
  // The lines go to the disk as they are made: a large log is never held twice in memory.
  TextFileWriter out(name, TextFile::kEOL_LF);
  for (unsigned i = 0; i < head.getNumLines(); ++i) out.appendLine(head.line(i));
  std::string line;  // one record's line at a time, its buffer reused
  int written = 0;
  char tag_text[8];
  for (std::size_t row = 0; row < records.size(); ++row) {
    // After a sort the lines lie scattered over the log: each is asked for before it is read.
    if (direct) prefetch::line(records, records.size(), row);
    Zr::Ptr<dbrecord> kept;  // a derived class's row setter might change the list
    const Zr::Ptr<dbrecord>& record = direct ? records[row] : (kept = records[row]);
    if (!record) continue;  // an entry left empty by insert_records has nothing to write
    std::string_view tag;
    if (tag_column != kNotFound) {
      char* const end =
          std::to_chars(tag_text, tag_text + sizeof tag_text - 1, static_cast<unsigned>(record->get_tag())).ptr;
      *end = '\0';
      tag = std::string_view(tag_text, static_cast<std::size_t>(end - tag_text));
    }
    if (direct) {
      // The store as set_field makes it, the field read once: mostly the text already there.
      const bool stores = tag_column != kNotFound && tag_column < record->get_num_fields();
      const bool replaced = stores && record->fieldView(static_cast<unsigned short>(tag_column)) != tag;
      undo.beforeStore(row, record, replaced);
      if (replaced) {
        record->set_field(static_cast<int>(tag_column), tag_text, true);
      } else if (stores) {
        record->touch();
      }
    } else if (tag_column != kNotFound) {
      db.set_field(static_cast<unsigned>(row), tag_column, tag_text);
    }
    if (const std::string_view held = record->heldLine(); !held.empty()) {
      out.appendLine(held);
      record->clear_changed();
    } else {
      line.clear();
      record->write_to(line);
      out.appendLine(line);
    }
    ++written;
  }
  if (!out.commit()) return 0;
  undo.commit();
  return written;
}

}  // namespace

// -------------------------------------------------------------------------- saving

int kesta::save_text() {
  TextFile file;
  save_params(file);
  save_column_header(file, false);
  return save_records(*this, records_, changed_, file, file_name_, rows_are_records());
}

int kesta::save_text_without_header() {
  TextFile file;
  save_params(file);
  save_column_header(file, true);
  return save_records(*this, records_, changed_, file, file_name_, rows_are_records());
}

void kesta::save_params(TextFile& file) { write_param_lines(file); }

void kesta::save_column_header(TextFile& file, bool namesOnly) {
  std::string line;
  if (!namesOnly) {
    file.appendLine(std::string_view("\"KESTA\""));

    // Widths are written for other readers; this reader ignores them.
    const std::vector<unsigned> sizes = get_fieldsizes();
    for (unsigned f = 0; f < fields_.size(); ++f) {
      const unsigned minimum = static_cast<unsigned>(getMinFieldSize(fields_[f].name.c_str()));
      append_quoted_list(line, f, std::to_string(sizes[f] > minimum ? sizes[f] : minimum).c_str());
    }
    file.appendLine(std::string_view(line));

    line.clear();
    for (unsigned f = 0; f < fields_.size(); ++f) {
      if (f > 0) line += ',';
      line.append(fieldTypeToString(fields_[f].type).view());
    }
    file.appendLine(std::string_view(line));
  }

  line.clear();
  char quoted[kNameFieldLimit + 1];
  for (unsigned f = 0; f < fields_.size(); ++f) {
    if (f > 0) line += ',';
    // Names are not escaped, and a very long one loses its tail, closing quote included.
    std::snprintf(quoted, sizeof quoted, "\"%s\"", fields_[f].name.c_str());
    line += quoted;
  }
  file.appendLine(std::string_view(line));
}

// ------------------------------------------------------------------------- loading

void kesta::loadFromFile(const LightweightString<wchar_t>& fileName, int maxRecords, bool strict) {
  LightweightString<wchar_t> previous_name = file_name_;
  if (&fileName != &file_name_) set_filename(fileName);
  try {
    loadFromFile(maxRecords, strict);
  } catch (...) {
    file_name_.swap(previous_name);
    throw;
  }
}

// A whole file in memory, or a file read a block at a time: the next line is always at the
// read cursor of the block that next() answers, and reading past the last line yields nothing.
class kesta::LineSource {
 public:
  explicit LineSource(TextFile& whole) : block_(whole) {}
  LineSource(TextFile& block, TextFileReader& in) : block_(block), in_(&in) {}

  TextFile& next() {
    if (in_ && block_.readCursor() >= block_.getNumLines()) in_->next(block_);
    return block_;
  }
  bool more() { return next().readCursor() < block_.getNumLines(); }
  // How many lines are likely left, to size the record list once.
  std::size_t expected_lines() {
    TextFile& block = next();
    const std::size_t here = block.getNumLines() - std::min(block.readCursor(), block.getNumLines());
    if (!in_ || block.getNumLines() == 0) return here;
    const uint64_t average = block.bufferSize() / block.getNumLines() + 1;
    return static_cast<std::size_t>(std::max<uint64_t>(here, in_->size() / average));
  }

 private:
  TextFile& block_;
  TextFileReader* in_ = nullptr;
};

void kesta::loadFromFile(int maxRecords, bool strict) {
  // What a load replaces is set aside rather than emptied, and the records it appends are
  // dropped again, so that a failed allocation leaves the database as it was.
  ParamList previous_params;
  std::vector<DBFieldDesc> previous_fields;
  FieldNameIndex previous_names;
  std::vector<bool> previous_flags;
  std::vector<uint16_t> previous_sort_fields = sort_fields_;
  const int32_t previous_scalars[] = {show_tags_only_, changed_, valid_, revision_, match_options_};
  const std::size_t held = records_.size();
  swap_params(previous_params);
  previous_fields.swap(fields_);
  // The columns are about to be replaced, and their name lookup and special-label flags with
  // them: kept, a reload would go on answering with the previous file's column numbers (a save
  // would then write tags into whatever column now stands where "Tag" stood).
  previous_names.swap(field_name_index_);
  previous_flags.swap(special_label_flags_);
  init();  // records already held stay

  try {
    if (!load_log(file_name_, maxRecords, strict)) {
      // A file that could not be read to its end loads nothing, as one that cannot be opened.
      records_.erase(held, records_.size() - held);
      field_name_index_.clear();
      special_label_flags_.clear();
      sort_fields_ = previous_sort_fields;
      init();
    }
  } catch (...) {
    records_.erase(held, records_.size() - held);
    swap_params(previous_params);
    fields_.swap(previous_fields);
    field_name_index_.swap(previous_names);
    special_label_flags_.swap(previous_flags);
    sort_fields_.swap(previous_sort_fields);
    show_tags_only_ = previous_scalars[0];
    changed_ = previous_scalars[1];
    valid_ = previous_scalars[2];
    revision_ = previous_scalars[3];
    match_options_ = previous_scalars[4];
    throw;
  }
}

bool kesta::load_log(const LightweightString<wchar_t>& name, int maxRecords, bool strict) {
  records_dropped_ = 0;
  if (has_csv_suffix(name)) {
    TextFile file;
    if (!file.load(name, '\n', false)) return true;  // nothing read, nothing to undo
    // Left as read: no post_init, no record limit, changed marks kept.
    read_csv(*this, fields_, file, rows_are_records() ? &records_ : nullptr);
    valid_ = 1;
    return true;
  }

  // The records are built as the file streams in: a load holds the records and one block,
  // never the whole file as well.
  TextFileReader in(name, '\n', false);
  TextFile block;
  LineSource lines(block, in);
  dbrecord line(kScratchFields);
  read_params_from(lines, &line);
  if (num_params() == 0) return in.finish();

  if (is_marker(line)) {
    dbrecord widths(0);
    dbrecord types(0);
    dbrecord names(0);
    widths.read(lines.next());
    types.read(lines.next());
    names.read(lines.next());
    if (types.get_num_fields() != names.get_num_fields()) return in.finish();
    for (unsigned short f = 0; f < names.get_num_fields(); ++f) {
      fields_.push_back(DBFieldDesc(names.getField(f), fieldTypeFromString(types.getField(f))));
    }
  } else {
    if (strict) {
      valid_ = 0;
      return in.finish();
    }
    // No header: the line that ended the parameters names the columns.
    for (unsigned short f = 0; f < line.get_num_fields(); ++f) {
      fields_.push_back(DBFieldDesc(line.getField(f), guess_type(line.get_field(f))));
    }
  }
  valid_ = 1;
  post_init();
  const std::size_t held = records_.size();
  add_lines(lines, 0, maxRecords, load_filter_ ? &load_filter_ : nullptr, true);
  clear_marks(held);
  return in.finish();
}

void kesta::read_params(TextFile& file, dbrecord* line) {
  LineSource lines(file);
  read_params_from(lines, line);
}

void kesta::read_params_from(LineSource& lines, dbrecord* line) {
  empty_params();
  if (!line) return;
  line->read(lines.next());
  if (line->get_num_fields() == 0 || strncasecmp(line->get_field(0), "KESTA:", 6) != 0) return;

  LightweightString<char> key;
  LightweightString<char> value;
  split_parameter(line->get_field(0), key, value);
  append_param(key, value);
  revision_ = revision_of(value);
  if (revision_ != kesta_revision::kCurrentLevel) {
    dorp_printf("kesta::read_text:  Warning: kesta is revision %d, current level is %d\n", revision_,
                kesta_revision::kCurrentLevel);
  }

  // Up to the header marker, or the end of the file. Pairs are appended as they come, so
  // duplicates are kept.
  bool read_a_line = lines.more();
  line->read(lines.next());
  while (read_a_line) {
    if (is_marker(*line)) break;
    if (line->get_num_fields() > 0 && split_parameter(line->get_field(0), key, value)) append_param(key, value);
    read_a_line = lines.more();
    line->read(lines.next());
  }
}

int kesta::add_text(TextFile& file, int skipFirst, int maxRecords) {
  LineSource lines(file);
  return add_lines(lines, skipFirst, maxRecords);
}

int kesta::add_lines(LineSource& lines, int skipFirst, int maxRecords, const LoadFilter* keep, bool unmarked) {
  if (maxRecords < 1) return 0;
  // Also with a filter that keeps few: the room a list reserves and never fills is never touched.
  records_.reserve(records_.size() + std::min(lines.expected_lines(), static_cast<std::size_t>(maxRecords)));

  int count = 0;
  for (;;) {
    // Not newRecord(): its empty fields would be dropped by the read at once.
    Zr::Ptr<dbrecord> record(new dbrecord(0));
    record->set_container(this);
    // A blank line ends the records as the end of the file does.
    if (record->read(lines.next()) == 0) return count;
    if (record->get_num_fields() != static_cast<uint16_t>(get_num_fields())) {
      LogBoth("kesta::add_text: returning because not all fields filled\n");
      return count;
    }
    if (count != 0 || skipFirst == 0) {
      if (is_marker(*record)) {
        // A repeated header (only a one-column database gets this far): the record takes the
        // names line.
        record->read(lines.next());
        record->read(lines.next());
        if (record->read(lines.next()) == 0) break;
      }
    } else if (record->read(lines.next()) == 0) {
      break;  // the first line was to be skipped
    }
    if (!keep || (*keep)(record)) {
      if (unmarked) record->clear_changed();
      records_.push_back(std::move(record));
    } else {
      ++records_dropped_;  // its memory serves the next record
    }
    if (++count == maxRecords) return count;
  }
  dorp_printf("kesta::add_text: returning because no more lines\n");
  return count;
}

int kesta::load_text(int maxRecords) {
  TextFile file;
  if (!file.load(file_name_, '\n', false)) return 0;
  return add_text(file, 1, maxRecords);
}
