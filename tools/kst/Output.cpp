#include "Output.h"
#include "Text.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

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

// A cell as the table shows it: one line, control characters escaped, and its width, which
// the layout needs three times.
struct TableCell {
  std::string text;
  std::size_t width;
};

TableCell table_cell(std::string_view text) {
  std::string shown = escapeControls(text);
  const std::size_t width = displayWidth(shown);
  return TableCell{std::move(shown), width};
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
  if (std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
    return text.size();
  }
  std::size_t points = 0;
  for (std::size_t at = 0; at < text.size(); ++points) {
    std::size_t n = utf8_length(text.substr(at));
    at += n == 0 ? 1 : n;
  }
  return points;
}

std::string csvField(std::string_view text) {
  if (text.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(text);
  std::string out = "\"";
  for (char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
  out += '"';
  return out;
}

std::string tsvField(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\\':
        out += "\\\\";
        break;
      default:
        out += c;
    }
  }
  return out;
}

void appendJsonString(std::string& out, std::string_view text) {
  out += '"';
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

std::string renderCsv(const Grid& grid) {
  std::string out;
  auto line = [&](const std::vector<std::string>& cells) {
    for (std::size_t i = 0; i < cells.size(); ++i) {
      if (i > 0) out += ',';
      out += csvField(cells[i]);
    }
    out += "\r\n";
  };
  line(grid.headers);
  for (const auto& row : grid.rows) line(row);
  return out;
}

std::string renderTsv(const Grid& grid) {
  std::string out;
  auto line = [&](const std::vector<std::string>& cells) {
    for (std::size_t i = 0; i < cells.size(); ++i) {
      if (i > 0) out += '\t';
      out += tsvField(cells[i]);
    }
    out += '\n';
  };
  line(grid.headers);
  for (const auto& row : grid.rows) line(row);
  return out;
}

std::string renderJson(const Grid& grid) {
  if (grid.rows.empty()) return "[]\n";
  std::string out = "[\n";
  for (std::size_t r = 0; r < grid.rows.size(); ++r) {
    out += "  {";
    for (std::size_t i = 0; i < grid.headers.size(); ++i) {
      if (i > 0) out += ", ";
      appendJsonString(out, grid.headers[i]);
      out += ": ";
      appendJsonString(out, i < grid.rows[r].size() ? grid.rows[r][i] : std::string());
    }
    out += r + 1 < grid.rows.size() ? "},\n" : "}\n";
  }
  out += "]\n";
  return out;
}

std::string renderTable(const Grid& grid, unsigned width) {
  const std::size_t columns = grid.headers.size();
  if (columns == 0) return {};
  std::vector<std::vector<TableCell>> cells;
  cells.reserve(grid.rows.size() + 1);
  cells.emplace_back();
  for (const auto& h : grid.headers) cells[0].push_back(table_cell(h));
  for (const auto& row : grid.rows) {
    cells.emplace_back();
    cells.back().reserve(columns);
    for (std::size_t i = 0; i < columns; ++i) cells.back().push_back(table_cell(i < row.size() ? row[i] : ""));
  }
  std::vector<std::size_t> natural(columns, 0);
  for (const auto& row : cells) {
    for (std::size_t i = 0; i < columns; ++i) natural[i] = std::max(natural[i], row[i].width);
  }
  std::vector<std::size_t> widths = fitted_widths(natural, width);
  const std::size_t shown = widths.size();

  std::string out;
  std::string text;
  auto line = [&](const std::vector<TableCell>& row) {
    text.clear();
    for (std::size_t i = 0; i < shown; ++i) {
      std::size_t used = row[i].width;
      if (used <= widths[i]) {
        text += row[i].text;
      } else {
        const std::string cut = fit(row[i].text, widths[i]);
        text += cut;
        used = displayWidth(cut);
      }
      if (i + 1 < shown) text.append(widths[i] - used + 2, ' ');
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    out += text;
    out += '\n';
  };
  line(cells[0]);
  std::vector<TableCell> rule;
  for (std::size_t w : widths) rule.push_back(TableCell{std::string(w, '-'), w});
  line(rule);
  for (std::size_t r = 1; r < cells.size(); ++r) line(cells[r]);
  if (shown < columns) {
    // Appended piece by piece: g++ 12 at -O3 reports a false overlap (-Wrestrict) for the
    // concatenated temporary.
    out += '(';
    out += std::to_string(columns - shown);
    out += " more columns not shown)\n";
  }
  return out;
}

std::string render(const Grid& grid, Format format, unsigned width) {
  switch (format) {
    case Format::kCsv:
      return renderCsv(grid);
    case Format::kTsv:
      return renderTsv(grid);
    case Format::kJson:
      return renderJson(grid);
    case Format::kTable:
      break;
  }
  return renderTable(grid, width);
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
