#ifndef KESTA_TESTS_TOOL_KSTTEST_H
#define KESTA_TESTS_TOOL_KSTTEST_H
// A fixture that runs the built kst binary in a fresh folder and checks, after every run, that
// no file it was not told to write has changed and that nothing else (no temporary file) was
// left behind.
//
//   Result r = kst({"sort", path("a.kst"), "--by", "Reel", "-o", path("b.kst")}, {"b.kst"});
//   EXPECT_EQ(r.status, 0);

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "common/TestUtil.h"
#include "record/kesta.h"

namespace ksttest {

struct Result {
  int status = -1;  // the exit status, or 128 + the signal that ended the process
  std::string out;
  std::string err;
};

// Runs kst with `args`, standard input from /dev/null, standard output and error to files (so
// not a terminal), KESTA_LOG unset. With `file_size_limit` at or above 0, files the process
// writes cannot grow past that many bytes (and SIGXFSZ is ignored, so writes fail instead).
Result runKst(const std::vector<std::string>& args, long file_size_limit = -1);

class KstTest : public ::testing::Test {
 protected:
  void SetUp() override;

  // dir/name
  std::string path(const std::string& name) const { return dir_.file(name); }
  // Writes `bytes` to dir/name and answers the path.
  std::string put(const std::string& name, const std::string& bytes);
  // A copy of an example file in the folder; skips the test when the example is missing.
  std::string example(const std::string& name);
  std::string read(const std::string& name) const { return testutil::readFile(path(name)); }

  // Runs kst and checks that the folder's files other than `outputs` (names in the folder) are
  // byte for byte as before and that no file other than `outputs` appeared.
  Result kst(const std::vector<std::string>& args, const std::set<std::string>& outputs = {},
             long file_size_limit = -1);

  // Loads a log with the library itself; fails the test when it does not load.
  Zr::Ptr<kesta> load(const std::string& name) const;

  testutil::TempDir dir_;

 private:
  std::map<std::string, std::string> snapshot() const;
};

// The texts of one column, row by row, read with the library.
std::vector<std::string> column(kesta& db, const char* name);

// A log file in the library's format, as save_text writes it: parameters (key:value), marker,
// widths (all 4), types, names, records. Texts are written as given; quotes are doubled.
std::string logText(const std::vector<std::string>& params, const std::vector<std::string>& types,
                    const std::vector<std::string>& names, const std::vector<std::vector<std::string>>& rows);

// The lines of `text` (split at '\n', a final empty piece dropped).
std::vector<std::string> lines(const std::string& text);

}  // namespace ksttest

#endif
