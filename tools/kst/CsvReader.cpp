// CSV (through libcsv) and TSV readers.

#include <csv.h>

#include <algorithm>
#include <cstring>

#include "Errors.h"
#include "TableReaders.h"
#include "Text.h"

namespace kst {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::size_t after_bom(const std::string& bytes) {
  return bytes.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0 ? kByteOrderMark.size() : 0;
}

// What libcsv's callbacks collect. They run inside C code, so they never throw: a failed
// allocation is noted and reported after the call.
struct CsvState {
  CellTable rows;
  std::vector<unsigned> starts;
  bool open = false;  // a record has begun and not ended
  // A quoted field is open: in strict CSV every quote belongs to a quoted field, so this is
  // whether the quotes read so far are odd in number.
  bool in_quotes = false;
  unsigned start = 0;  // the line it began on
  unsigned line = 0;   // the line being parsed
  unsigned events = 0;
  bool out_of_memory = false;
  bool too_long = false;  // a record of more than 4 GB
};

void add_field(std::string_view text, CsvState& state) noexcept {
  ++state.events;
  if (!state.open) {
    state.open = true;
    state.start = state.line;
  }
  try {
    if (!text.empty()) state.rows.append(text);
    if (!state.rows.endCell()) state.too_long = true;
  } catch (...) {
    state.out_of_memory = true;
  }
}

void on_field(void* text, std::size_t length, void* data) {
  add_field(std::string_view(static_cast<const char*>(text), length), *static_cast<CsvState*>(data));
}

void on_record(int, void* data) {
  auto& state = *static_cast<CsvState*>(data);
  ++state.events;
  if (!state.open) state.start = state.line;
  try {
    state.rows.endRow();
    state.starts.push_back(state.start);
  } catch (...) {
    state.out_of_memory = true;
  }
  state.open = false;
}

// Reads a line that holds no quote and no carriage return but for its line end, outside any
// quoted field: it is its fields split at the commas, as the parser would read it. Most lines of a
// large table are such lines, and the parser takes them a byte at a time. False, having read
// nothing, for any other line (the file's last, without a line end, included).
bool read_unquoted_line(std::string_view chunk, CsvState& state) {
  if (state.in_quotes || chunk.empty() || chunk.back() != '\n') return false;
  std::string_view text = chunk.substr(0, chunk.size() - 1);
  if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
  if (std::memchr(text.data(), '"', text.size()) || std::memchr(text.data(), '\r', text.size())) return false;
  if (text.empty()) return true;  // a blank line, which the parser skips
  for (;;) {
    const auto* comma = static_cast<const char*>(std::memchr(text.data(), ',', text.size()));
    const std::size_t length = comma ? static_cast<std::size_t>(comma - text.data()) : text.size();
    add_field(text.substr(0, length), state);
    if (!comma) break;
    text.remove_prefix(length + 1);
  }
  on_record(0, &state);
  return true;
}

// RFC 4180: blanks are part of a field.
int no_blanks(unsigned char) { return 0; }

bool is_blank_line(std::string_view chunk) { return chunk == "\n" || chunk == "\r\n" || chunk.empty(); }

// The first row names the columns. Longer rows are cut when what is cut is empty
// (spreadsheets add trailing separators), else an error; shorter ones read as filled with
// empty fields.
InputTable normalise(CellTable rows, std::vector<unsigned> starts, const std::string& path) {
  if (rows.rows() == 0) throw Failure(path + " has no header line naming the columns");
  InputTable table;
  const std::size_t columns = rows.width(0);
  for (std::size_t i = 0; i < columns; ++i) table.headers.emplace_back(rows.cell(0, i));
  for (std::size_t r = 1; r < rows.rows(); ++r) {
    const std::size_t width = rows.width(r);
    for (std::size_t i = columns; i < width; ++i) {
      if (!rows.cell(r, i).empty()) {
        throw Failure(path + ", line " + std::to_string(starts[r]) + ": a record with " + std::to_string(width) +
                      " fields; the header has " + std::to_string(columns));
      }
    }
  }
  rows.dropFirstRow();
  table.rows = std::move(rows);
  starts.erase(starts.begin());
  table.lines = std::move(starts);
  return table;
}

class CsvParser {
 public:
  CsvParser() {
    if (csv_init(&parser_, CSV_STRICT | CSV_STRICT_FINI) != 0) throw Failure("out of memory");
    csv_set_space_func(&parser_, no_blanks);
  }
  ~CsvParser() { csv_free(&parser_); }
  CsvParser(const CsvParser&) = delete;
  CsvParser& operator=(const CsvParser&) = delete;
  csv_parser* get() { return &parser_; }

 private:
  csv_parser parser_{};
};

}  // namespace

InputTable readCsv(const std::string& bytes, const std::string& path) {
  CsvParser parser;
  CsvState state;
  state.rows.reserveFor(bytes.size());
  // One line at a time, so that each record knows the line it starts on: a record whose
  // quoted field spans lines starts where the quote opened.
  for (std::size_t at = after_bom(bytes); at < bytes.size();) {
    std::size_t newline = bytes.find('\n', at);
    std::size_t end = newline == std::string::npos ? bytes.size() : newline + 1;
    std::string_view chunk(bytes.data() + at, end - at);
    ++state.line;
    state.events = 0;
    std::size_t parsed = chunk.size();
    if (!read_unquoted_line(chunk, state)) {
      parsed = csv_parse(parser.get(), chunk.data(), chunk.size(), on_field, on_record, &state);
      if (std::count(chunk.begin(), chunk.end(), '"') % 2 != 0) state.in_quotes = !state.in_quotes;
    }
    if (state.out_of_memory) throw Failure("out of memory reading " + path);
    if (state.too_long) throw Failure(path + ", line " + std::to_string(state.line) + ": a record longer than 4 GB");
    if (parsed != chunk.size()) {
      int error = csv_error(parser.get());
      throw Failure(path + ", line " + std::to_string(state.line) + ", column " + std::to_string(parsed + 1) + ": " +
                    (error == CSV_EPARSE
                         ? std::string("a quote inside an unquoted field, or text after a closing quote")
                         : std::string(csv_strerror(error))));
    }
    if (state.events == 0 && !state.open && !is_blank_line(chunk)) {
      state.open = true;  // a quoted field opened on this line and goes on
      state.start = state.line;
    }
    at = end;
  }
  if (csv_fini(parser.get(), on_field, on_record, &state) != 0) {
    throw Failure(path + ", line " + std::to_string(state.start) + ": a quoted field is never closed");
  }
  if (state.out_of_memory) throw Failure("out of memory reading " + path);
  if (state.too_long) throw Failure(path + ": a record longer than 4 GB");
  return normalise(std::move(state.rows), std::move(state.starts), path);
}

InputTable readTsv(const std::string& bytes, const std::string& path) {
  CellTable rows;
  rows.reserveFor(bytes.size());
  std::vector<unsigned> starts;
  unsigned line = 0;
  for (std::size_t at = after_bom(bytes); at < bytes.size();) {
    std::size_t newline = bytes.find('\n', at);
    std::size_t end = newline == std::string::npos ? bytes.size() : newline;
    std::string_view text(bytes.data() + at, end - at);
    at = end + 1;
    ++line;
    if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
    if (text.empty()) continue;
    const auto end_cell = [&] {
      if (!rows.endCell()) throw Failure(path + ", line " + std::to_string(line) + ": a record longer than 4 GB");
    };
    if (!std::memchr(text.data(), '\\', text.size())) {
      // Without escapes a line is its cells split at the tabs, each copied whole.
      for (;;) {
        const auto* tab = static_cast<const char*>(std::memchr(text.data(), '\t', text.size()));
        const std::size_t length = tab ? static_cast<std::size_t>(tab - text.data()) : text.size();
        rows.append(text.substr(0, length));
        if (!tab) break;
        end_cell();
        text.remove_prefix(length + 1);
      }
    } else {
      for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '\t') {
          end_cell();
        } else if (c == '\\' && i + 1 < text.size()) {
          const char next = text[++i];
          if (const char byte = kst::tsvEscapedByte(next)) {
            rows.append(byte);
          } else {
            rows.append(c);
            rows.append(next);
          }
        } else {
          rows.append(c);
        }
      }
    }
    end_cell();
    rows.endRow();
    starts.push_back(line);
  }
  return normalise(std::move(rows), std::move(starts), path);
}

}  // namespace kst
