#ifndef KESTA_TESTS_RELIABILITY_FILEMODEL_H
#define KESTA_TESTS_RELIABILITY_FILEMODEL_H
// FileModel: the database file format worked out from its rules one byte at a time, without
// the library's buffers or word-at-a-time scans: what loading a file's bytes gives (valid or
// not, revision, parameters, columns, records, log lines) and the bytes saving a database
// writes. Tests compare the library with it on files of any shape.
//
//   filemodel::Content expected = filemodel::load(bytes);
//   EXPECT_EQ(filemodel::difference(expected, capture(*db)), "");
//
// Only the database format: names ending ".csv" are not modelled.

#include <string>
#include <utility>
#include <vector>

namespace filemodel {

struct Column {
  std::string name;
  int type = 0;
  bool operator==(const Column&) const = default;
};

// What a database holds, as far as its file is concerned.
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

// The lines of a file as loaded with the line feed as separator: one carriage return before
// each line feed dropped, a last line without a terminator kept, no empty line after a final
// terminator.
std::vector<std::string> splitLines(const std::string& bytes);
// Reads one line into `fields`; answers the fields plus the control characters skipped
// between them, 0 for a blank line (whose fields are then none).
int readLine(const std::string& line, std::vector<std::string>& fields);
// A field as it comes back from being written and read again.
std::string rewritten(const std::string& field);

Loaded load(const std::string& bytes, int maxRecords = 0x7fffffff);
// The bytes save_text writes for `content` (its "Tag" texts already stored). The widths line
// is written before the "Tag" texts are stored, so it measures `before`, the content as the
// save found it.
std::string write(const Content& content, const Content& before);

// "" when equal, else the first difference, readable in a test failure.
std::string difference(const Content& expected, const Content& actual);

}  // namespace filemodel

#endif
