#ifndef KESTA_TESTS_RELIABILITY_FILEMODEL_H
#define KESTA_TESTS_RELIABILITY_FILEMODEL_H
// The database file format worked out from its rules one byte at a time, without the
// library's buffers or word-at-a-time scans: what loading a file's bytes gives and the bytes
// saving a database writes. Names ending ".csv" are not modelled.

#include <string>
#include <utility>
#include <vector>

namespace filemodel {

struct Column {
  std::string name;
  int type = 0;
  bool operator==(const Column&) const = default;
};

struct Content {
  bool valid = false;
  int revision = 1;
  std::vector<std::pair<std::string, std::string>> params;
  std::vector<Column> columns;
  std::vector<std::vector<std::string>> records;
  bool operator==(const Content&) const = default;
};

struct Loaded {
  Content content;
  std::string log;  // the lines the load writes to the log, in order
};

Loaded load(const std::string& bytes);
// A field as it comes back from being written and read again.
std::string rewritten(const std::string& field);
// The bytes save_text writes for `content`; the widths line measures `before`, the content as
// the save found it (before its "Tag" texts were stored).
std::string write(const Content& content, const Content& before);
// "" when equal, else the first difference, readable in a test failure.
std::string difference(const Content& expected, const Content& actual);

}  // namespace filemodel

#endif
