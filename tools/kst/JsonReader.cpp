// The JSON reader: an array of flat objects, the form 'kst show --format json' writes.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <unordered_map>

#include "Errors.h"
#include "TableReaders.h"

namespace kst {
namespace {

class JsonParser {
 public:
  JsonParser(const std::string& text, const std::string& path) : text_(text), path_(path) {}

  InputTable parseTable() {
    InputTable table;
    table.rows.reserveFor(text_.size());
    skip_blanks();
    expect('[', "an array of records");
    skip_blanks();
    if (peek() != ']') {
      for (;;) {
        skip_blanks();
        table.lines.push_back(line_at(at_));
        for (const std::string& value : parse_record(table.headers)) {
          table.rows.append(value);
          if (!table.rows.endCell()) fail("a record longer than 4 GB");
        }
        table.rows.endRow();
        skip_blanks();
        if (peek() == ',') {
          ++at_;
          continue;
        }
        expect(']', "',' or ']'");
        break;
      }
    } else {
      ++at_;
    }
    skip_blanks();
    if (at_ < text_.size()) fail("text after the closing ']'");
    if (table.headers.empty()) throw Failure(path_ + " holds no record, so it names no columns");
    return table;
  }

 private:
  [[noreturn]] void fail(const std::string& what) const {
    throw Failure(path_ + ", line " + std::to_string(line_at(at_)) + ": " + what);
  }

  // Positions are asked for in increasing order, so the count goes on from the last one.
  unsigned line_at(std::size_t pos) const {
    pos = std::min(pos, text_.size());
    if (pos < counted_to_) {
      counted_to_ = 0;
      counted_lines_ = 1;
    }
    const char* const end = text_.data() + pos;
    for (const char* p = text_.data() + counted_to_;
         (p = static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(end - p)))) != nullptr; ++p) {
      ++counted_lines_;
    }
    counted_to_ = pos;
    return counted_lines_;
  }

  char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }

  void skip_blanks() {
    while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\t' || text_[at_] == '\n' || text_[at_] == '\r'))
      ++at_;
  }

  void expect(char c, const char* wanted) {
    if (peek() != c || at_ >= text_.size()) fail(std::string("expected ") + wanted);
    ++at_;
  }

  // The record's values by column, in buffers kept from record to record.
  const std::vector<std::string>& parse_record(std::vector<std::string>& headers) {
    expect('{', "a record (an object)");
    row_.resize(headers.size());
    for (std::string& value : row_) value.clear();
    seen_.assign(headers.size(), false);
    skip_blanks();
    if (peek() == '}') {
      ++at_;
      return row_;
    }
    for (std::size_t next = 0;;) {
      skip_blanks();
      if (peek() != '"') fail("expected a column name in quotes");
      key_.clear();
      parse_string(key_);
      skip_blanks();
      expect(':', "':'");
      skip_blanks();
      // Records mostly name their columns in one order: the next column is tried before the map.
      std::size_t column = next;
      if (column >= headers.size() || headers[column] != key_) {
        auto [it, added] = columns_.try_emplace(key_, headers.size());
        if (added) headers.push_back(key_);
        column = it->second;
      }
      next = column + 1;
      if (column >= row_.size()) {
        row_.resize(column + 1);
        seen_.resize(column + 1, false);
      }
      if (seen_[column]) fail("the column " + inQuotes(key_) + " appears twice in one record");
      seen_[column] = true;
      parse_value(key_, row_[column]);
      skip_blanks();
      if (peek() == ',') {
        ++at_;
        continue;
      }
      expect('}', "',' or '}'");
      return row_;
    }
  }

  void parse_value(const std::string& key, std::string& out) {
    char c = peek();
    if (c == '"') return parse_string(out);
    if (c == '{' || c == '[') fail("the value of " + inQuotes(key) + " is not a text, a number or a boolean");
    for (const char* word : {"true", "false", "null"}) {
      std::size_t n = std::char_traits<char>::length(word);
      if (text_.compare(at_, n, word) == 0) {
        at_ += n;
        if (word[0] != 'n') out = word;
        return;
      }
    }
    std::size_t start = at_;
    if (peek() == '-') ++at_;
    std::size_t digits = skip_digits();
    if (peek() == '.') {
      ++at_;
      if (skip_digits() == 0) digits = 0;
    }
    if (peek() == 'e' || peek() == 'E') {
      ++at_;
      if (peek() == '+' || peek() == '-') ++at_;
      if (skip_digits() == 0) digits = 0;
    }
    if (digits == 0) {
      at_ = start;
      fail("the value of " + inQuotes(key) + " is not valid JSON");
    }
    out.assign(text_, start, at_ - start);
  }

  std::size_t skip_digits() {
    std::size_t start = at_;
    while (at_ < text_.size() && text_[at_] >= '0' && text_[at_] <= '9') ++at_;
    return at_ - start;
  }

  unsigned hex4() {
    if (at_ + 4 > text_.size()) fail("a \\u escape needs four hex digits");
    unsigned value = 0;
    for (int i = 0; i < 4; ++i) {
      char c = text_[at_++];
      value <<= 4;
      if (c >= '0' && c <= '9') {
        value |= static_cast<unsigned>(c - '0');
      } else if (c >= 'a' && c <= 'f') {
        value |= static_cast<unsigned>(c - 'a' + 10);
      } else if (c >= 'A' && c <= 'F') {
        value |= static_cast<unsigned>(c - 'A' + 10);
      } else {
        fail("a \\u escape needs four hex digits");
      }
    }
    return value;
  }

  static void append_utf8(std::string& out, uint32_t code) {
    if (code < 0x80) {
      out += static_cast<char>(code);
    } else if (code < 0x800) {
      out += static_cast<char>(0xC0 | (code >> 6));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
      out += static_cast<char>(0xE0 | (code >> 12));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (code >> 18));
      out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    }
  }

  // Appends the text that starts at the opening quote under the cursor to `out`.
  void parse_string(std::string& out) {
    ++at_;  // the opening quote
    for (;;) {
      // The bytes up to the next quote, escape or control character go in at once.
      std::size_t end = at_;
      while (end < text_.size() && text_[end] != '"' && text_[end] != '\\' &&
             static_cast<unsigned char>(text_[end]) >= 0x20)
        ++end;
      out.append(text_, at_, end - at_);
      at_ = end;
      if (at_ >= text_.size()) fail("a text is never closed");
      char c = text_[at_++];
      if (c == '"') return;
      if (c != '\\') fail("a control character inside a text (write it as an escape)");
      char e = peek();
      ++at_;
      switch (e) {
        case '"':
          out += '"';
          break;
        case '\\':
          out += '\\';
          break;
        case '/':
          out += '/';
          break;
        case 'b':
          out += '\b';
          break;
        case 'f':
          out += '\f';
          break;
        case 'n':
          out += '\n';
          break;
        case 'r':
          out += '\r';
          break;
        case 't':
          out += '\t';
          break;
        case 'u': {
          uint32_t code = hex4();
          if (code >= 0xD800 && code <= 0xDBFF && text_.compare(at_, 2, "\\u") == 0) {
            std::size_t back = at_;
            at_ += 2;
            uint32_t low = hex4();
            if (low >= 0xDC00 && low <= 0xDFFF) {
              code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
            } else {
              at_ = back;
            }
          }
          if (code >= 0xD800 && code <= 0xDFFF) code = 0xFFFD;  // a lone surrogate
          append_utf8(out, code);
          break;
        }
        default:
          --at_;
          fail("an unknown escape in a text");
      }
    }
  }

  const std::string& text_;
  const std::string& path_;
  std::size_t at_ = 0;
  std::unordered_map<std::string, std::size_t> columns_;
  std::vector<std::string> row_;
  std::vector<bool> seen_;
  std::string key_;
  mutable std::size_t counted_to_ = 0;
  mutable unsigned counted_lines_ = 1;
};

}  // namespace

InputTable readJson(const std::string& bytes, const std::string& path) { return JsonParser(bytes, path).parseTable(); }

}  // namespace kst
