// FileModel: the file format's reading and writing rules, spelled out plainly.

#include "FileModel.h"

#include <strings.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "record/kesta.h"

namespace filemodel {

namespace {

constexpr std::size_t kMaxFieldLength = 4095;
constexpr std::size_t kMaxFields = 65535;

bool blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool control(char c) { return static_cast<unsigned char>(c) < 32 || c == 127; }

// The text a C string reading of the field sees: up to its first zero byte.
std::string as_c_text(const std::string& field) { return std::string(field.c_str()); }

bool is_marker(const std::vector<std::string>& fields) {
  return !fields.empty() && strcasecmp(fields[0].c_str(), "KESTA") == 0;
}

bool split_parameter(const std::string& field, std::string& key, std::string& value) {
  const std::string text = as_c_text(field);
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

int revision_of(const std::string& value) {
  std::size_t i = 0;
  while (i < value.size() && (value[i] < '0' || value[i] > '9')) ++i;
  return static_cast<int>(std::strtol(value.c_str() + i, nullptr, 10));
}

int guessed_type(const std::string& name) {
  std::string lowered = as_c_text(name);
  for (char& c : lowered) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lowered.find("start") != std::string::npos || lowered.find("end") != std::string::npos ? 116 : 97;
}

std::string escaped(const std::string& field) {
  if (field.find_first_of("\r\n\"") == std::string::npos) return field;
  std::string out;
  for (char c : field) {
    if (c == '\r') continue;
    if (c == '\n') {
      out += "\\n";
    } else if (c == '"') {
      out += "\"\"";
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

std::vector<std::string> splitLines(const std::string& bytes) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < bytes.size()) {
    const std::size_t end = bytes.find('\n', start);
    if (end == std::string::npos) {
      lines.push_back(bytes.substr(start));
      break;
    }
    std::string line = bytes.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
    start = end + 1;
  }
  return lines;
}

int readLine(const std::string& line, std::vector<std::string>& fields) {
  fields.clear();
  const char* const text = line.data();
  const std::size_t n = line.size();
  std::size_t p = 0;
  while (p < n && blank(text[p])) ++p;
  if (p == n) return 0;

  char buffer[kMaxFieldLength];
  if (fields.capacity() < 32) fields.reserve(32);
  p = 0;
  int count = 0;
  while (p < n) {
    ++count;
    if (control(text[p])) {
      ++p;
      continue;
    }
    bool quoted = false;
    if (text[p] == '"') {
      quoted = true;
      ++p;
    }
    while (p < n && blank(text[p])) ++p;
    std::size_t length = 0;
    while (p < n && length < kMaxFieldLength) {
      const char c = text[p];
      const bool has_next = p + 1 < n;
      if (c == '"') {
        if (has_next && text[p + 1] == '"') {
          buffer[length++] = '"';
          p += 2;
        } else {
          quoted = false;
          ++p;
        }
      } else if (c == '\\' && has_next && text[p + 1] == 'n') {
        buffer[length++] = '\n';
        p += 2;
      } else if (c == '\\' && has_next && text[p + 1] == '\\') {
        // Both are stored; with room for one only, the field is cut at the second.
        buffer[length++] = '\\';
        if (length < kMaxFieldLength) {
          buffer[length++] = '\\';
          p += 2;
        } else {
          ++p;
        }
      } else if (c == ',' && !quoted) {
        break;
      } else {
        buffer[length++] = c;
        ++p;
      }
    }
    while (length > 0 && blank(buffer[length - 1])) --length;
    if (p < n) ++p;
    if (fields.size() < kMaxFields) fields.emplace_back(buffer, length);
  }
  return count;
}

std::string rewritten(const std::string& field) {
  // Plain text goes out and comes back as it is.
  bool plain = field.empty() || (!blank(field.front()) && !blank(field.back()));
  for (std::size_t i = 0; plain && i < field.size(); ++i) {
    const char c = field[i];
    plain = c != '\r' && c != '\n' && c != '"' && c != '\\';
  }
  if (plain) return field;
  std::vector<std::string> fields;
  readLine("\"" + escaped(field) + "\"", fields);
  return fields.empty() ? std::string() : fields[0];
}

Loaded load(const std::string& bytes, int maxRecords) {
  Loaded out;
  Content& c = out.content;
  const std::vector<std::string> lines = splitLines(bytes);
  std::size_t cursor = 0;
  auto read = [&](std::vector<std::string>& fields) {
    const std::string empty;
    const std::string& line = cursor < lines.size() ? lines[cursor] : empty;
    ++cursor;
    return readLine(line, fields);
  };

  std::vector<std::string> line;
  read(line);
  if (line.empty() || strncasecmp(line[0].c_str(), "KESTA:", 6) != 0) return out;
  std::string key;
  std::string value;
  split_parameter(line[0], key, value);
  c.params.emplace_back(key, value);
  c.revision = revision_of(value);
  if (c.revision != 1) {
    char message[128];
    std::snprintf(message, sizeof message, "kesta::read_text:  Warning: kesta is revision %d, current level is %d\n",
                  c.revision, 1);
    out.log += message;
  }
  read(line);
  while (cursor <= lines.size()) {
    if (is_marker(line)) break;
    if (!line.empty() && split_parameter(line[0], key, value)) c.params.emplace_back(key, value);
    read(line);
  }

  if (is_marker(line)) {
    std::vector<std::string> widths;
    std::vector<std::string> types;
    std::vector<std::string> names;
    read(widths);
    read(types);
    read(names);
    if (types.size() != names.size()) return out;
    for (std::size_t f = 0; f < names.size(); ++f) {
      c.columns.push_back(Column{names[f], static_cast<int>(kesta::fieldTypeFromString(LightweightString<char>(types[f].data(), types[f].size())))});
    }
  } else {
    for (const std::string& name : line) c.columns.push_back(Column{name, guessed_type(name)});
  }
  c.valid = true;

  if (maxRecords < 1) return out;
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
    if (static_cast<int>(c.records.size()) == maxRecords) return out;
  }
  out.log += "kesta::add_text: returning because no more lines\n";
  return out;
}

std::string write(const Content& c, const Content& before) {
  std::string out;
  for (const auto& [key, value] : c.params) out += "\"" + key + ":" + value + "\"\n";
  out += "\"KESTA\"\n";
  for (std::size_t f = 0; f < c.columns.size(); ++f) {
    std::size_t width = static_cast<std::size_t>(kesta::getMinFieldSize(c.columns[f].name.c_str()));
    for (const std::vector<std::string>& record : before.records) {
      if (f < record.size() && record[f].size() > width) width = record[f].size();
    }
    out += (f ? ",\"" : "\"") + std::to_string(width) + "\"";
  }
  out += "\n";
  for (std::size_t f = 0; f < c.columns.size(); ++f) {
    if (f) out += ",";
    out += kesta::fieldTypeToString(static_cast<DBFieldTypes::eType>(c.columns[f].type)).view();
  }
  out += "\n";
  for (std::size_t f = 0; f < c.columns.size(); ++f) {
    char quoted[255];
    std::snprintf(quoted, sizeof quoted, "\"%s\"", c.columns[f].name.c_str());
    out += (f ? "," : "") + std::string(quoted);
  }
  out += "\n";
  for (const std::vector<std::string>& record : c.records) {
    for (std::size_t f = 0; f < record.size(); ++f) out += (f ? ",\"" : "\"") + escaped(record[f]) + "\"";
    out += "\n";
  }
  return out;
}

namespace {

std::string printable(const std::string& text) {
  std::string out;
  for (char c : text.substr(0, 60)) {
    const unsigned char u = static_cast<unsigned char>(c);
    if (u < 32 || u >= 127 || c == '\\') {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02x", u);
      out += hex;
    } else {
      out += c;
    }
  }
  return out + (text.size() > 60 ? "...(" + std::to_string(text.size()) + " bytes)" : "");
}

}  // namespace

std::string difference(const Content& e, const Content& a) {
  if (e.valid != a.valid) return "valid: expected " + std::to_string(e.valid) + ", got " + std::to_string(a.valid);
  if (e.revision != a.revision) {
    return "revision: expected " + std::to_string(e.revision) + ", got " + std::to_string(a.revision);
  }
  if (e.params.size() != a.params.size()) {
    return "parameters: expected " + std::to_string(e.params.size()) + ", got " + std::to_string(a.params.size());
  }
  for (std::size_t i = 0; i < e.params.size(); ++i) {
    if (e.params[i] != a.params[i]) {
      return "parameter " + std::to_string(i) + ": expected " + printable(e.params[i].first) + "=" +
             printable(e.params[i].second) + ", got " + printable(a.params[i].first) + "=" +
             printable(a.params[i].second);
    }
  }
  if (e.columns.size() != a.columns.size()) {
    return "columns: expected " + std::to_string(e.columns.size()) + ", got " + std::to_string(a.columns.size());
  }
  for (std::size_t i = 0; i < e.columns.size(); ++i) {
    if (!(e.columns[i] == a.columns[i])) {
      return "column " + std::to_string(i) + ": expected " + printable(e.columns[i].name) + "/" +
             std::to_string(e.columns[i].type) + ", got " + printable(a.columns[i].name) + "/" +
             std::to_string(a.columns[i].type);
    }
  }
  if (e.records.size() != a.records.size()) {
    return "records: expected " + std::to_string(e.records.size()) + ", got " + std::to_string(a.records.size());
  }
  for (std::size_t r = 0; r < e.records.size(); ++r) {
    if (e.records[r].size() != a.records[r].size()) {
      return "record " + std::to_string(r) + ": expected " + std::to_string(e.records[r].size()) + " fields, got " +
             std::to_string(a.records[r].size());
    }
    for (std::size_t f = 0; f < e.records[r].size(); ++f) {
      if (e.records[r][f] != a.records[r][f]) {
        return "record " + std::to_string(r) + " field " + std::to_string(f) + ": expected \"" +
               printable(e.records[r][f]) + "\", got \"" + printable(a.records[r][f]) + "\"";
      }
    }
  }
  return "";
}

}  // namespace filemodel
