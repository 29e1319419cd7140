#include "Output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "ByteWords.h"
#include "Text.h"

namespace kst {
namespace {

// The length of the valid UTF-8 sequence that starts `text` (1 to 4), or 0 when its first
// byte does not start one. Overlong forms, surrogates and code points past U+10FFFF are not
// valid.
std::size_t utf8_length(std::string_view text) {
  auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  unsigned char lead = byte(0);
  if (lead < 0x80) return 1;
  std::size_t need;
  unsigned char lo = 0x80, hi = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    need = 1;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    need = 2;
    if (lead == 0xE0) lo = 0xA0;
    if (lead == 0xED) hi = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    need = 3;
    if (lead == 0xF0) lo = 0x90;
    if (lead == 0xF4) hi = 0x8F;
  } else {
    return 0;
  }
  if (text.size() <= need) return 0;
  if (byte(1) < lo || byte(1) > hi) return 0;
  for (std::size_t i = 2; i <= need; ++i) {
    if (byte(i) < 0x80 || byte(i) > 0xBF) return 0;
  }
  return need + 1;
}

void append_hex_escape(std::string& out, const char* prefix, unsigned value) {
  char buffer[12];
  std::snprintf(buffer, sizeof buffer, "%s%04x", prefix, value);
  out += buffer;
}

// A cell as the table shows it: one line, control characters escaped. `escaped` holds the
// text when it had to be changed.
std::string_view shown_text(std::string_view text, std::string& escaped) {
  if (!hasControls(text)) return text;
  escaped = escapeControls(text);
  return escaped;
}

// Rendered text, handed on to the sink in large pieces.
class Pieces {
 public:
  explicit Pieces(const TextSink& sink) : sink_(sink) {}
  std::string& text() { return text_; }
  void pass_on_if_large() {
    if (text_.size() >= kPiece) pass_on();
  }
  void pass_on() {
    if (!text_.empty()) sink_(text_);
    text_.clear();
  }

 private:
  static constexpr std::size_t kPiece = std::size_t{1} << 20;
  const TextSink& sink_;
  std::string text_;
};

// Calls fn(cells) with the header, then with each row in order.
template <class Fn>
void each_line(const RowSource& table, Fn fn) {
  std::vector<std::string_view> cells(table.headers.begin(), table.headers.end());
  fn(cells, false);
  for (std::size_t r = 0; r < table.rows; ++r) {
    cells.clear();
    const bool printable = table.cells(r, cells);
    cells.resize(table.headers.size());
    fn(cells, printable);
  }
}

RowSource grid_rows(const Grid& grid) {
  RowSource table{grid.headers, grid.rows.size(), {}};
  table.cells = [&grid](std::size_t r, std::vector<std::string_view>& out) {
    for (const std::string& cell : grid.rows[r]) out.emplace_back(cell);
    return false;
  };
  return table;
}

std::string rendered(const Grid& grid, Format format, unsigned width) {
  std::string out;
  render(grid_rows(grid), format, width, [&](std::string_view piece) { out.append(piece); });
  return out;
}

void append_csv_field(std::string& out, std::string_view text) {
  namespace bw = byteWords;
  const auto needs_quotes = [](uint64_t w) {
    return (bw::equal(w, ',') | bw::equal(w, '"') | bw::equal(w, '\r') | bw::equal(w, '\n')) != 0;
  };
  if (!bw::any(text, needs_quotes)) {
    out.append(text);
    return;
  }
  out += '"';
  for (char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
  out += '"';
}

void append_tsv_field(std::string& out, std::string_view text) {
  namespace bw = byteWords;
  const auto needs_escape = [](uint64_t w) {
    return (bw::equal(w, '\t') | bw::equal(w, '\n') | bw::equal(w, '\r') | bw::equal(w, '\\')) != 0;
  };
  if (!bw::any(text, needs_escape)) {
    out.append(text);
    return;
  }
  for (char c : text) {
    if (const char letter = kst::tsvEscapeLetter(c)) {
      out += '\\';
      out += letter;
    } else {
      out += c;
    }
  }
}

void render_separated(const RowSource& table, char separator, const char* eol,
                      void (*field)(std::string&, std::string_view), Pieces& out) {
  each_line(table, [&](const std::vector<std::string_view>& cells, bool) {
    std::string& text = out.text();
    for (std::size_t i = 0; i < cells.size(); ++i) {
      if (i > 0) text += separator;
      field(text, cells[i]);
    }
    text += eol;
    out.pass_on_if_large();
  });
}

void render_json(const RowSource& table, Pieces& out) {
  std::string& text = out.text();
  if (table.rows == 0) {
    text += "[]\n";
    return;
  }
  text += "[\n";
  // Each column's name as every record writes it, made once.
  std::vector<std::string> keys;
  for (std::size_t i = 0; i < table.headers.size(); ++i) {
    std::string key = i > 0 ? ", " : "";
    appendJsonString(key, table.headers[i]);
    keys.push_back(key + ": ");
  }
  std::vector<std::string_view> cells;
  for (std::size_t r = 0; r < table.rows; ++r) {
    cells.clear();
    table.cells(r, cells);
    cells.resize(table.headers.size());
    text += "  {";
    for (std::size_t i = 0; i < keys.size(); ++i) {
      text += keys[i];
      appendJsonString(text, cells[i]);
    }
    text += r + 1 < table.rows ? "},\n" : "}\n";
    out.pass_on_if_large();
  }
  text += "]\n";
}

// `text` cut to `width` code points, the last of them "…" when anything was cut.
std::string fit(const std::string& text, std::size_t width) {
  if (displayWidth(text) <= width) return text;
  if (width == 0) return {};
  std::size_t keep = width - 1, at = 0;
  for (std::size_t points = 0; points < keep && at < text.size(); ++points) {
    std::size_t n = utf8_length(std::string_view(text).substr(at));
    at += n == 0 ? 1 : n;
  }
  return text.substr(0, at) + "\u2026";
}

// The columns of a table that fit `width`, and their widths. Columns wider than a common cap
// are cut to it, the cap being the largest that fits; when even a cap of kFloor does not fit,
// columns are left out from the right, because a table of slivers helps nobody.
std::vector<std::size_t> fitted_widths(std::vector<std::size_t> natural, unsigned width) {
  constexpr std::size_t kGap = 2, kFloor = 8;
  auto total_at = [&](std::size_t cap) {
    std::size_t sum = natural.empty() ? 0 : kGap * (natural.size() - 1);
    for (std::size_t w : natural) sum += std::min(w, std::max(cap, kFloor));
    return sum;
  };
  std::size_t widest = natural.empty() ? 0 : *std::max_element(natural.begin(), natural.end());
  if (width == 0 || total_at(widest) <= width) return natural;
  while (natural.size() > 1 && total_at(kFloor) > width) natural.pop_back();
  std::size_t lo = kFloor, hi = widest;  // the largest cap in [lo, hi) that fits
  while (lo + 1 < hi) {
    std::size_t mid = (lo + hi) / 2;
    (total_at(mid) <= width ? lo : hi) = mid;
  }
  for (std::size_t& w : natural) w = std::min(w, lo);
  return natural;
}

}  // namespace

std::vector<std::string> formatNames() { return {"table", "csv", "tsv", "json"}; }

Format formatFromName(const std::string& name) {
  if (name == "csv") return Format::kCsv;
  if (name == "tsv") return Format::kTsv;
  if (name == "json") return Format::kJson;
  return Format::kTable;
}

std::size_t displayWidth(std::string_view text) {
  // Most cells are plain ASCII: a byte each.
  if (isAscii(text)) return text.size();
  std::size_t points = 0;
  for (std::size_t at = 0; at < text.size(); ++points) {
    std::size_t n = utf8_length(text.substr(at));
    at += n == 0 ? 1 : n;
  }
  return points;
}

std::string csvField(std::string_view text) {
  std::string out;
  append_csv_field(out, text);
  return out;
}

std::string tsvField(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  append_tsv_field(out, text);
  return out;
}

void appendJsonString(std::string& out, std::string_view text) {
  out += '"';
  namespace bw = byteWords;
  const auto needs_escape = [](uint64_t w) {
    return (bw::high(w) | bw::below(w, 0x20) | bw::equal(w, 0x7f) | bw::equal(w, '"') | bw::equal(w, '\\')) != 0;
  };
  if (!bw::any(text, needs_escape)) {
    // Most values need no escape.
    out.append(text);
    out += '"';
    return;
  }
  for (std::size_t at = 0; at < text.size();) {
    auto u = static_cast<unsigned char>(text[at]);
    std::size_t n = utf8_length(text.substr(at));
    if (n > 1) {
      out.append(text.substr(at, n));
      at += n;
      continue;
    }
    ++at;
    if (n == 0) {
      // Not UTF-8: old logs are often Latin-1, so keep the byte as that character.
      append_hex_escape(out, "\\u", u);
    } else if (u == '"') {
      out += "\\\"";
    } else if (u == '\\') {
      out += "\\\\";
    } else if (u == '\n') {
      out += "\\n";
    } else if (u == '\r') {
      out += "\\r";
    } else if (u == '\t') {
      out += "\\t";
    } else if (u == '\b') {
      out += "\\b";
    } else if (u == '\f') {
      out += "\\f";
    } else if (u < 0x20 || u == 0x7f) {
      append_hex_escape(out, "\\u", u);
    } else {
      out += static_cast<char>(u);
    }
  }
  out += '"';
}

std::string renderCsv(const Grid& grid) { return rendered(grid, Format::kCsv, 0); }
std::string renderTsv(const Grid& grid) { return rendered(grid, Format::kTsv, 0); }
std::string renderJson(const Grid& grid) { return rendered(grid, Format::kJson, 0); }
std::string renderTable(const Grid& grid, unsigned width) { return rendered(grid, Format::kTable, width); }
std::string render(const Grid& grid, Format format, unsigned width) { return rendered(grid, format, width); }

namespace {

void render_table(const RowSource& table, unsigned width, Pieces& out) {
  const std::size_t columns = table.headers.size();
  if (columns == 0) return;
  std::string escaped;
  std::vector<std::size_t> natural(columns, 0);
  each_line(table, [&](const std::vector<std::string_view>& cells, bool printable) {
    for (std::size_t i = 0; i < columns; ++i) {
      natural[i] = std::max(natural[i], printable ? cells[i].size() : displayWidth(shown_text(cells[i], escaped)));
    }
  });
  std::vector<std::size_t> widths = fitted_widths(natural, width);
  const std::size_t shown = widths.size();

  std::string cut;
  auto line = [&](const std::vector<std::string_view>& cells, bool printable) {
    std::string& text = out.text();
    const std::size_t start = text.size();
    for (std::size_t i = 0; i < shown; ++i) {
      std::string_view cell = printable ? cells[i] : shown_text(cells[i], escaped);
      std::size_t used = printable ? cell.size() : displayWidth(cell);
      if (used > widths[i]) {
        cut = fit(std::string(cell), widths[i]);
        cell = cut;
        used = displayWidth(cut);
      }
      text.append(cell);
      if (i + 1 < shown) text.append(widths[i] - used + 2, ' ');
    }
    while (text.size() > start && text.back() == ' ') text.pop_back();
    text += '\n';
    out.pass_on_if_large();
  };
  bool first = true;
  each_line(table, [&](const std::vector<std::string_view>& cells, bool printable) {
    line(cells, printable);
    if (!first) return;
    first = false;
    std::vector<std::string> rule_texts;
    for (std::size_t w : widths) rule_texts.emplace_back(w, '-');
    line(std::vector<std::string_view>(rule_texts.begin(), rule_texts.end()), true);
  });
  if (shown < columns) {
    // Appended piece by piece: g++ 12 at -O3 reports a false overlap (-Wrestrict) for the
    // concatenated temporary.
    std::string& text = out.text();
    text += '(';
    text += std::to_string(columns - shown);
    text += " more columns not shown)\n";
  }
}

}  // namespace

void render(const RowSource& table, Format format, unsigned width, const TextSink& sink) {
  Pieces out(sink);
  switch (format) {
    case Format::kCsv:
      render_separated(table, ',', "\r\n", append_csv_field, out);
      break;
    case Format::kTsv:
      render_separated(table, '\t', "\n", append_tsv_field, out);
      break;
    case Format::kJson:
      render_json(table, out);
      break;
    case Format::kTable:
      render_table(table, width, out);
      break;
  }
  out.pass_on();
}

unsigned terminalWidth() {
  if (!isatty(STDOUT_FILENO)) return 0;
  struct winsize size {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  if (const char* columns = std::getenv("COLUMNS")) {
    long n = std::strtol(columns, nullptr, 10);
    if (n > 0 && n < 100000) return static_cast<unsigned>(n);
  }
  return 80;
}

}  // namespace kst
