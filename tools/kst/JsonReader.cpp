// The JSON reader: an array of flat objects, the form 'kst show --format json' writes.

#include <algorithm>
#include <cstdint>
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
    for (; counted_to_ < pos; ++counted_to_) counted_lines_ += text_[counted_to_] == '\n';
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

  std::vector<std::string> parse_record(std::vector<std::string>& headers) {
    expect('{', "a record (an object)");
    std::vector<std::string> row(headers.size());
    std::vector<bool> seen(headers.size(), false);
    skip_blanks();
    if (peek() == '}') {
      ++at_;
      return row;
    }
    for (;;) {
      skip_blanks();
      if (peek() != '"') fail("expected a column name in quotes");
      std::string key = parse_string();
      skip_blanks();
      expect(':', "':'");
      skip_blanks();
      auto [it, added] = columns_.try_emplace(key, headers.size());
      if (added) headers.push_back(key);
      std::size_t column = it->second;
      if (column >= row.size()) {
        row.resize(column + 1);
        seen.resize(column + 1, false);
      }
      if (seen[column]) fail("the column " + inQuotes(key) + " appears twice in one record");
      seen[column] = true;
      row[column] = parse_value(key);
      skip_blanks();
      if (peek() == ',') {
        ++at_;
        continue;
      }
      expect('}', "',' or '}'");
      return row;
    }
  }

  std::string parse_value(const std::string& key) {
    char c = peek();
    if (c == '"') return parse_string();
    if (c == '{' || c == '[') fail("the value of " + inQuotes(key) + " is not a text, a number or a boolean");
    for (const char* word : {"true", "false", "null"}) {
      std::size_t n = std::char_traits<char>::length(word);
      if (text_.compare(at_, n, word) == 0) {
        at_ += n;
        return word[0] == 'n' ? std::string() : std::string(word);
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
    return text_.substr(start, at_ - start);
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

  std::string parse_string() {
    ++at_;  // the opening quote
    std::string out;
    for (;;) {
      if (at_ >= text_.size()) fail("a text is never closed");
      char c = text_[at_++];
      if (c == '"') return out;
      if (static_cast<unsigned char>(c) < 0x20) fail("a control character inside a text (write it as an escape)");
      if (c != '\\') {
        out += c;
        continue;
      }
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
  mutable std::size_t counted_to_ = 0;
  mutable unsigned counted_lines_ = 1;
};

}  // namespace

InputTable readJson(const std::string& bytes, const std::string& path) { return JsonParser(bytes, path).parseTable(); }

}  // namespace kst
