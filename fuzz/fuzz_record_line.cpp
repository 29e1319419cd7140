// The record line reader and writer against a plain byte-at-a-time reading of the format.
// The library's reader scans a word at a time and its writer appends runs; this target checks
// both against the straightforward loop, field for field and byte for byte, and checks that
// clean fields survive a round trip exactly.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "record/dbrecord.h"
#include "support/TextFile.h"

namespace {

constexpr std::size_t kMaxField = 4095;
constexpr std::size_t kMaxFields = 65535;

bool space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool control(char c) { return static_cast<unsigned char>(c) < 32 || c == 127; }

struct Reading {
  std::vector<std::string> fields;
  int count = 0;
};

Reading referenceRead(std::string_view line) {
  Reading out;
  bool blank = true;
  for (char c : line) blank = blank && space(c);
  if (blank) return out;
  std::size_t p = 0;
  const std::size_t n = line.size();
  while (p < n) {
    ++out.count;
    if (control(line[p])) {
      ++p;
      continue;
    }
    bool quoted = false;
    if (line[p] == '"') {
      quoted = true;
      ++p;
    }
    while (p < n && space(line[p])) ++p;
    std::string field;
    while (p < n && field.size() < kMaxField) {
      const char c = line[p];
      const bool next = p + 1 < n;
      if (c == '"') {
        if (next && line[p + 1] == '"') {
          field += '"';
          p += 2;
        } else {
          quoted = false;
          ++p;
        }
      } else if (c == '\\' && next && line[p + 1] == 'n') {
        field += '\n';
        p += 2;
      } else if (c == '\\' && next && line[p + 1] == '\\') {
        // With room for one byte only, the field is cut at the second backslash.
        field += '\\';
        ++p;
        if (field.size() < kMaxField) {
          field += '\\';
          ++p;
        }
      } else if (c == ',' && !quoted) {
        break;
      } else {
        field += c;
        ++p;
      }
    }
    while (!field.empty() && space(field.back())) field.pop_back();
    if (p < n) ++p;
    if (out.fields.size() < kMaxFields) out.fields.push_back(field);
  }
  return out;
}

std::string referenceWrite(const std::vector<std::string>& fields) {
  std::string line;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) line += ',';
    line += '"';
    for (char c : fields[i]) {
      if (c == '\r') continue;
      if (c == '\n') {
        line += "\\n";
      } else if (c == '"') {
        line += "\"\"";
      } else {
        line += c;
      }
    }
    line += '"';
  }
  return line;
}

std::vector<std::string> fieldsOf(const dbrecord& record) {
  std::vector<std::string> out;
  for (unsigned short i = 0; i < record.get_num_fields(); ++i) {
    out.emplace_back(record.getField(i).view());
  }
  return out;
}

// Fields the format carries exactly: no carriage return, no backslash, no white space at
// either end, shorter than the reader's field length (a field of exactly that length stops
// the scan on its closing quote, and the comma after it then opens an empty field).
std::vector<std::string> cleaned(std::vector<std::string> fields) {
  for (std::string& f : fields) {
    std::string kept;
    for (char c : f) {
      if (c != '\r' && c != '\\') kept += c;
    }
    if (kept.size() >= kMaxField) kept.resize(kMaxField - 1);
    std::size_t b = 0, e = kept.size();
    while (b < e && space(kept[b])) ++b;
    while (e > b && space(kept[e - 1])) --e;
    f = kept.substr(b, e - b);
  }
  return fields;
}

void check(bool ok) {
  if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  TextFile file;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = input.find('\n', start);
    file.appendLine(input.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
    if (end == std::string_view::npos) break;
    start = end + 1;
  }

  dbrecord record(3);
  for (unsigned i = 0; i < file.getNumLines(); ++i) {
    const Reading expected = referenceRead(file.line(i));
    const int count = record.read(file);
    check(file.readCursor() == i + 1);
    check(count == expected.count);

    // Before any field string is made: a record may still hold its line, and the views, the
    // blank test and the writer then work from that.
    const std::size_t n = expected.fields.size();
    check(record.get_num_fields() == n);
    // One more width than fields: widen must leave it alone.
    std::vector<unsigned> widths(n + 1, 0);
    record.widen(widths.data(), widths.size());
    check(widths[n] == 0);
    bool blank = true;
    for (std::size_t f = 0; f < n; ++f) {
      check(widths[f] == expected.fields[f].size());
      check(record.fieldView(static_cast<unsigned short>(f)) == expected.fields[f]);
      blank = blank && expected.fields[f].empty();
    }
    check(record.fieldView(static_cast<unsigned short>(n)).empty());
    check(record.is_blank() == blank);
    TextFile written;
    record.write(written);
    check(!record.changed());
    check(written.getNumLines() == 1);
    check(written.line(0) == referenceWrite(expected.fields));

    const std::vector<std::string> got = fieldsOf(record);
    check(got == expected.fields);

    // Clean fields come back exactly.
    std::vector<std::string> clean = cleaned(got);
    dbrecord exact(static_cast<unsigned short>(clean.size()));
    for (std::size_t f = 0; f < clean.size(); ++f) {
      exact.setField(static_cast<unsigned short>(f), LightweightString<char>(std::string_view(clean[f])));
    }
    TextFile round;
    exact.write(round);
    dbrecord back(0);
    const int back_count = back.read(round);
    check(fieldsOf(back) == clean);
    check(back_count == static_cast<int>(clean.size()));
  }
  // Past the last line the reader sees an empty line.
  check(record.read(file) == 0 && record.get_num_fields() == 0);
  return 0;
}
