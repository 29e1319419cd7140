// The file format's reading and writing rules, spelled out plainly.

#include "FileModel.h"

#include <strings.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "record/kesta.h"

namespace filemodel {

namespace {

constexpr std::size_t kMaxFieldLength = 4095;
constexpr std::size_t kMaxFields = 65535;

bool blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool control(char c) { return static_cast<unsigned char>(c) < 32 || c == 127; }

bool is_marker(const std::vector<std::string>& fields) {
  return !fields.empty() && strcasecmp(fields[0].c_str(), "KESTA") == 0;
}

// Parameters are read as C strings: up to the first zero byte.
bool split_parameter(const std::string& field, std::string& key, std::string& value) {
  const std::string text(field.c_str());
  std::size_t start = 0;
  while (start < text.size() && blank(text[start])) ++start;
  const std::size_t colon = text.find(':', start);
  if (colon == std::string::npos || colon == start) return false;
  key = text.substr(start, colon - start);
  std::size_t value_start = colon + 1;
  while (value_start < text.size() && blank(text[value_start])) ++value_start;
  value = text.substr(value_start);
  return true;
}

int guessed_type(const std::string& name) {
  std::string lowered(name.c_str());
  for (char& c : lowered) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lowered.find("start") != std::string::npos || lowered.find("end") != std::string::npos ? 116 : 97;
}

std::string escaped(const std::string& field) {
  if (field.find_first_of("\r\n\"") == std::string::npos) return field;
  std::string out;
  for (char c : field) {
    if (c == '\n') {
      out += "\\n";
    } else if (c == '"') {
      out += "\"\"";
    } else if (c != '\r') {
      out += c;
    }
  }
  return out;
}

// The lines of a file split at line feeds: one carriage return before each dropped, a last
// line without a terminator kept.
std::vector<std::string> split_lines(const std::string& bytes) {
  std::vector<std::string> lines;
  for (std::size_t start = 0; start < bytes.size();) {
    std::size_t end = bytes.find('\n', start);
    if (end == std::string::npos) end = bytes.size();
    std::string line = bytes.substr(start, end - start);
    if (end < bytes.size() && !line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
    start = end + 1;
  }
  return lines;
}

// Reads one line into `fields`; answers the fields plus the control characters skipped
// between them, 0 for a blank line.
int read_line(const std::string& line, std::vector<std::string>& fields) {
  fields.clear();
  const std::size_t n = line.size();
  std::size_t p = 0;
  while (p < n && blank(line[p])) ++p;
  if (p == n) return 0;
  std::string buffer;
  int count = 0;
  for (p = 0; p < n;) {
    ++count;
    if (control(line[p])) {
      ++p;
      continue;
    }
    bool quoted = line[p] == '"';
    if (quoted) ++p;
    while (p < n && blank(line[p])) ++p;
    buffer.clear();
    while (p < n && buffer.size() < kMaxFieldLength) {
      const char c = line[p];
      const char next = p + 1 < n ? line[p + 1] : '\0';
      if (c == '"' && next == '"') {
        buffer += '"';
        p += 2;
      } else if (c == '"') {
        quoted = false;
        ++p;
      } else if (c == '\\' && next == 'n' && p + 1 < n) {
        buffer += '\n';
        p += 2;
      } else if (c == '\\' && next == '\\' && p + 1 < n) {
        // Both are stored; with room for one only, the field is cut at the second.
        buffer += '\\';
        if (buffer.size() < kMaxFieldLength) {
          buffer += '\\';
          ++p;
        }
        ++p;
      } else if (c == ',' && !quoted) {
        break;
      } else {
        buffer += c;
        ++p;
      }
    }
    while (!buffer.empty() && blank(buffer.back())) buffer.pop_back();
    if (p < n) ++p;
    if (fields.size() < kMaxFields) fields.push_back(buffer);
  }
  return count;
}

}  // namespace

std::string rewritten(const std::string& field) {
  bool plain = field.empty() || (!blank(field.front()) && !blank(field.back()));
  for (std::size_t i = 0; plain && i < field.size(); ++i)
    plain = std::string("\r\n\"\\").find(field[i]) == std::string::npos;
  if (plain) return field;
  std::vector<std::string> fields;
  read_line("\"" + escaped(field) + "\"", fields);
  return fields.empty() ? std::string() : fields[0];
}

Loaded load(const std::string& bytes) {
  Loaded out;
  Content& c = out.content;
  const std::vector<std::string> lines = split_lines(bytes);
  std::size_t cursor = 0;
  auto read = [&](std::vector<std::string>& fields) {
    return read_line(cursor < lines.size() ? lines[cursor++] : (++cursor, std::string()), fields);
  };

  std::vector<std::string> line;
  read(line);
  if (line.empty() || strncasecmp(line[0].c_str(), "KESTA:", 6) != 0) return out;
  std::string key;
  std::string value;
  split_parameter(line[0], key, value);
  c.params.emplace_back(key, value);
  std::size_t digit = value.find_first_of("0123456789");
  c.revision =
      static_cast<int>(std::strtol(value.c_str() + (digit == std::string::npos ? value.size() : digit), nullptr, 10));
  if (c.revision != 1) {
    out.log += "kesta::read_text:  Warning: kesta is revision " + std::to_string(c.revision) + ", current level is 1\n";
  }
  read(line);
  while (cursor <= lines.size() && !is_marker(line)) {
    if (!line.empty() && split_parameter(line[0], key, value)) c.params.emplace_back(key, value);
    read(line);
  }

  if (is_marker(line)) {
    std::vector<std::string> types;
    std::vector<std::string> names;
    read(types);  // the widths, which the reader ignores
    read(types);
    read(names);
    if (types.size() != names.size()) return out;
    for (std::size_t f = 0; f < names.size(); ++f) {
      const LightweightString<char> type(types[f].data(), types[f].size());
      c.columns.push_back(Column{names[f], static_cast<int>(kesta::fieldTypeFromString(type))});
    }
  } else {
    for (const std::string& name : line) c.columns.push_back(Column{name, guessed_type(name)});
  }
  c.valid = true;

  for (;;) {
    std::vector<std::string> record;
    if (read(record) == 0) return out;
    if (static_cast<uint16_t>(record.size()) != static_cast<uint16_t>(c.columns.size())) {
      out.log += "kesta::add_text: returning because not all fields filled\n";
      return out;
    }
    if (is_marker(record)) {
      read(record);
      read(record);
      if (read(record) == 0) break;
    }
    c.records.push_back(record);
  }
  out.log += "kesta::add_text: returning because no more lines\n";
  return out;
}

std::string write(const Content& c, const Content& before) {
  std::string out;
  for (const auto& [key, value] : c.params) out += "\"" + key + ":" + value + "\"\n";
  out += "\"KESTA\"\n";
  std::string types;
  std::string names;
  for (std::size_t f = 0; f < c.columns.size(); ++f) {
    std::size_t width = static_cast<std::size_t>(kesta::getMinFieldSize(c.columns[f].name.c_str()));
    for (const std::vector<std::string>& record : before.records) {
      if (f < record.size() && record[f].size() > width) width = record[f].size();
    }
    out += (f ? ",\"" : "\"") + std::to_string(width) + "\"";
    types += (f ? "," : "") +
             std::string(kesta::fieldTypeToString(static_cast<DBFieldTypes::eType>(c.columns[f].type)).view());
    // Names go out unescaped, cut to 254 bytes quotes included.
    names += (f ? "," : "") + ("\"" + std::string(c.columns[f].name.c_str()) + "\"").substr(0, 254);
  }
  out += "\n" + types + "\n" + names + "\n";
  for (const std::vector<std::string>& record : c.records) {
    for (std::size_t f = 0; f < record.size(); ++f) out += (f ? ",\"" : "\"") + escaped(record[f]) + "\"";
    out += "\n";
  }
  return out;
}

namespace {

// At most 60 bytes, control bytes and backslashes as hex.
std::string printable(const std::string& text) {
  std::string out;
  for (char c : text.substr(0, 60)) {
    char hex[8];
    std::snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned char>(c));
    out += control(c) || c == '\\' || c < 0 ? std::string(hex) : std::string(1, c);
  }
  return out + (text.size() > 60 ? "...(" + std::to_string(text.size()) + " bytes)" : "");
}

std::string show(const std::pair<std::string, std::string>& p) {
  return printable(p.first) + "=" + printable(p.second);
}
std::string show(const Column& c) { return printable(c.name) + "/" + std::to_string(c.type); }
std::string show(const std::vector<std::string>& r) {
  std::string joined;
  for (const std::string& f : r) joined += (joined.empty() ? "" : "|") + f;
  return std::to_string(r.size()) + " fields " + printable(joined);
}

template <class T>
std::string first_difference(const char* what, const std::vector<T>& e, const std::vector<T>& a) {
  for (std::size_t i = 0; i < e.size() || i < a.size(); ++i) {
    if (i >= e.size() || i >= a.size() || !(e[i] == a[i])) {
      return what + std::to_string(i) + ": expected " + (i < e.size() ? show(e[i]) : "none") + ", got " +
             (i < a.size() ? show(a[i]) : "none");
    }
  }
  return "";
}

}  // namespace

std::string difference(const Content& e, const Content& a) {
  if (e.valid != a.valid || e.revision != a.revision) {
    return "valid/revision: expected " + std::to_string(e.valid) + "/" + std::to_string(e.revision) + ", got " +
           std::to_string(a.valid) + "/" + std::to_string(a.revision);
  }
  std::string d = first_difference("parameter ", e.params, a.params);
  if (d.empty()) d = first_difference("column ", e.columns, a.columns);
  return d.empty() ? first_difference("record ", e.records, a.records) : d;
}

}  // namespace filemodel
